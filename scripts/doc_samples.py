#!/usr/bin/env python3
"""Keeps the programs that the documentation shows, and what it says that they print, those of examples/.

    scripts/doc_samples.py [--programs DIR]             updates the blocks in place
    scripts/doc_samples.py --check [--programs DIR]     fails where one differs

A line in front of a fenced block says where its text comes from:

    <!-- code: examples/FILE -->            the whole file, without the marks of regions
    <!-- code: examples/FILE REGION -->     what stands between /* [REGION] */ and /* [REGION end] */, or // [REGION], dedented
    <!-- output: examples/FILE -->          what the program prints
    <!-- output: examples/FILE 1-7 -->      some lines of that
    <!-- output: examples/FILE NAME -->     what follows the line "== NAME", to the next such line; blanks in the name as "_"
    <!-- file: examples/FILE NAME -->       the file NAME that it leaves in its working directory

Outputs and files are looked at with --programs, the directory in which the programs have been built.
"""
import argparse
import pathlib
import re
import subprocess
import sys
import tempfile
import textwrap

ROOT = pathlib.Path(__file__).resolve().parent.parent
SAMPLES = "examples/guide"
SECONDS = 60
# Pages with code that stands for itself: fragments, or programs with a test of their own.
FREE_PAGES = {"docs/architecture.md", "docs/cpp.md", "docs/benchmarks.md", "docs/trust.md", "docs/tool.md", "docs/testing.md"}

MARK = re.compile(r"<!-- (code|output|file): (\S+)(?: (\S+))? -->$")
FENCE = re.compile(r"(`{3,})(\w*)$")
REGION = re.compile(r"\s*(?:/\*|//) \[(\w+)( end)?\](?: \*/)?\s*$")


class DocError(Exception):
    pass


def code_of(name, region):
    """The lines of a sample, or of a region of it, as they are shown."""
    path = ROOT / name
    if not path.is_file():
        raise DocError(f"{name} is not there")
    lines, inside = [], set()
    for line in path.read_text().splitlines():
        mark = REGION.match(line)
        if mark is None:
            if region is None or region in inside:
                lines.append(line)
        elif mark.group(2):
            inside.discard(mark.group(1))
        else:
            inside.add(mark.group(1))
    if inside:
        raise DocError(f"{name}: region {inside.pop()} has no end")
    if not lines:
        raise DocError(f"{name} has no region {region}")
    return textwrap.dedent("\n".join(lines)).strip("\n").splitlines()


class Programs:
    """Runs each program once, in a directory of its own."""

    def __init__(self, directory):
        self.directory = directory
        self.results = {}

    def run(self, source):
        if source not in self.results:
            program = (self.directory / source).with_suffix("").resolve()
            with tempfile.TemporaryDirectory(dir=self.directory) as work:
                done = subprocess.run([program], cwd=work, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=SECONDS)
                if done.returncode != 0:
                    raise DocError(f"{source} ends with {done.returncode}: {done.stderr.decode(errors='replace')}")
                files = {path.name: path.read_bytes() for path in pathlib.Path(work).iterdir() if path.is_file()}
            self.results[source] = (done.stdout, files)
        return self.results[source]

    def output(self, source, span):
        lines = self.run(source)[0].decode().splitlines()
        if span is None:
            return lines
        if re.fullmatch(r"\d+-\d+", span):
            first, last = (int(number) for number in span.split("-"))
            return lines[first - 1:last]
        heading = "== " + span.replace("_", " ")
        if heading not in lines:
            raise DocError(f"{source} does not print {heading}")
        rest = lines[lines.index(heading) + 1:]
        return rest[:next((i for i, line in enumerate(rest) if line.startswith("== ")), len(rest))]

    def file(self, source, name):
        files = self.run(source)[1]
        if name not in files:
            raise DocError(f"{source} leaves no {name}")
        return files[name].decode().splitlines()


def wanted(kind, source, detail, programs):
    """The lines that a block should have; None if nobody can say now."""
    if kind == "code":
        return code_of(source, detail)
    if programs is None:
        return None
    return programs.output(source, detail) if kind == "output" else programs.file(source, detail)


def process(name, programs, used):
    """The page as it should be, line by line, and the blocks that differ."""
    lines = (ROOT / name).read_text().splitlines()
    result, complaints = [], []
    mark = None
    i = 0
    while i < len(lines):
        line = lines[i]
        result.append(line)
        i += 1
        found = MARK.match(line)
        fence = FENCE.match(line)
        if fence is None:
            if mark is not None:
                raise DocError(f"{name}:{i}: no block behind the mark")
            mark = found
            continue
        end = next((j for j in range(i, len(lines)) if lines[j] == fence.group(1)), None)
        if end is None:
            raise DocError(f"{name}:{i}: the block has no end")
        body = lines[i:end]
        if mark is not None:
            used.add(mark.group(2))
            right = wanted(*mark.groups(), programs)
            if right is not None and right != body:
                complaints.append(f"{name}:{i}: not what {mark.group(2)} {mark.group(3) or ''} has")
                body = right
        elif fence.group(2) == "c" and name not in FREE_PAGES:
            raise DocError(f"{name}:{i}: a program that nobody compiles")
        result += body + [lines[end]]
        i = end + 1
        mark = None
    return result, complaints


def main():
    parser = argparse.ArgumentParser(description="keeps the programs in the documentation those of examples/")
    parser.add_argument("--check", action="store_true", help="change nothing, fail where a block differs")
    parser.add_argument("--programs", type=pathlib.Path, help="where the programs are built; their outputs are looked at")
    arguments = parser.parse_args()
    programs = Programs(arguments.programs) if arguments.programs else None
    pages = ["README.md", "CONTRIBUTING.md"] + sorted(str(path.relative_to(ROOT)) for path in (ROOT / "docs").rglob("*.md"))
    used, failed = set(), False
    for name in pages:
        try:
            lines, complaints = process(name, programs, used)
        except DocError as error:
            lines, complaints = None, [str(error)]
        if lines is not None and not arguments.check and complaints:
            (ROOT / name).write_text("\n".join(lines) + "\n")
        for complaint in complaints:
            print(complaint if arguments.check or lines is None else f"updated {complaint}")
        failed = failed or (bool(complaints) and (arguments.check or lines is None))
    for path in sorted((ROOT / SAMPLES).glob("*.c*")):
        if str(path.relative_to(ROOT)) not in used:
            print(f"{path.relative_to(ROOT)}: no page shows it")
            failed = True
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
