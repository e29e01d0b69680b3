#!/usr/bin/env python3
"""Every link in the documentation leads somewhere: to a file of the repository and, where one is named, to a heading in it.

    scripts/doc_links.py

Links to other hosts are not followed.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LINK = re.compile(r"!?\[[^\]]*\]\(\s*<?([^)\s>]+)>?(?:\s+\"[^\"]*\")?\s*\)")
HEADING = re.compile(r"#{1,6}\s+(.*?)\s*#*$")


def text_lines(path):
    """The lines of a page, numbered, those in fenced blocks and code spans blanked."""
    fence = None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        start = re.match(r"\s*(`{3,}|~{3,})", line)
        if fence is not None:
            if start and line.strip() == fence:
                fence = None
            continue
        if start:
            fence = start.group(1)
            continue
        yield number, line


def slug(heading):
    """The anchor that a heading gets where repositories are shown."""
    heading = re.sub(r"!?\[([^\]]*)\]\([^)]*\)", r"\1", heading)
    heading = re.sub(r"[^\w\- ]", "", heading.lower())
    return heading.replace(" ", "-")


def anchors(path, known={}):
    if path not in known:
        found = {}
        for _, line in text_lines(path):
            heading = HEADING.match(line)
            if heading:
                name = slug(heading.group(1))
                count = found.get(name, 0)
                found[name] = count + 1
                if count:
                    found[f"{name}-{count}"] = 1
        known[path] = set(found)
    return known[path]


def complaint(page, target):
    """What is wrong with a link; None if nothing is."""
    if re.match(r"[a-z][a-z0-9+.-]*:", target):
        return None
    name, _, anchor = target.partition("#")
    path = (page.parent / name).resolve() if name else page
    if not path.is_relative_to(ROOT):
        return "outside of the repository"
    if not path.exists():
        return "not there"
    if anchor and path.suffix == ".md" and anchor not in anchors(path):
        return "no such heading"
    return None


def main():
    pages = [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *sorted((ROOT / "docs").rglob("*.md"))]
    links = failures = 0
    for page in pages:
        for number, line in text_lines(page):
            for target in LINK.findall(re.sub(r"`[^`]*`", "", line)):
                links += 1
                wrong = complaint(page, target)
                if wrong:
                    failures += 1
                    print(f"{page.relative_to(ROOT)}:{number}: {target}: {wrong}")
    print(f"doc_links: {links} links in {len(pages)} pages, {failures} lead nowhere")
    sys.exit(1 if failures or not links else 0)


if __name__ == "__main__":
    main()
