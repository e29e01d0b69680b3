#!/usr/bin/env python3
"""Writes the manual page of zkq: the guide docs/tool.md, and behind each of its sections the commands that it is about, as
their help texts tell of them.

    scripts/tool_page.py ZKQ VERSION OUTPUT

The page has no date, and the same tool and guide give the same bytes.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
GUIDE = ROOT / "docs" / "tool.md"

ENDING = """
.SH EXIT STATUS
0 when done, 1 on a failure, 2 on wrong usage.
.BR "zkq proc run" ,
.BR "zkq proc lock" ,
.B zkq ipc sem lock
and
.B zkq ipc block lock
end with the status of the program that they run.
.SH ENVIRONMENT
.TP
.BR LC_ALL ", " LC_CTYPE ", " LANG
The charset of the terminal, in which names and messages are shown.
.TP
.B NO_COLOR
Need not be set: nothing is coloured. Progress bars are drawn on standard error where it is a terminal, and nowhere else.
.SH SEE ALSO
.BR md5sum (1),
.BR openssl (1),
.BR ip (8),
.BR ipcs (1)
"""


def escaped(text):
    """A text as roff takes it literally."""
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("`", "\\`").replace("^", "\\(ha").replace("~", "\\(ti")
    text = text.replace('"', "\\(dq").replace("'", "\\(aq")
    return re.sub(r"^\.", r"\\&.", text)


def inline(text):
    """A paragraph of the guide: code is bold, links are their texts."""
    text = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", text)
    parts = text.split("`")
    return "".join("\\fB" + escaped(part) + "\\fR" if i % 2 else escaped(part) for i, part in enumerate(parts))


def block(lines):
    """Lines that stand as they are, a little to the right."""
    return [".PP", ".RS 4", ".EX"] + ["\\&" + escaped(line) for line in lines] + [".EE", ".RE"]


def table(lines):
    """Rows of a table but for its rule, as items."""
    rows = [[cell.strip() for cell in line.strip("|").split("|")] for line in lines if not re.match(r"\|[ -|]*$", line)]
    out = []
    for row in rows[1:]:
        out += [".TP", inline(row[0]), inline("; ".join(row[1:]))]
    return out


class Page:
    """Turns the guide into roff, paragraph by paragraph."""

    def __init__(self):
        self.out = []
        self.lines = []

    def end_paragraph(self):
        if self.lines and self.lines[0].startswith("|"):
            self.out += table(self.lines)
        elif self.lines:
            self.out += [".PP", inline(" ".join(self.lines))]
        self.lines = []

    def guide(self, text):
        fenced = None
        for line in text.splitlines():
            if fenced is not None:
                if line.startswith("```"):
                    self.out += block(fenced)
                    fenced = None
                else:
                    fenced.append(line)
            elif line.startswith("```"):
                self.end_paragraph()
                fenced = []
            elif line.startswith("### "):
                self.end_paragraph()
                self.out.append('.SS "' + escaped(line[4:]) + '"')
            elif not line:
                self.end_paragraph()
            else:
                self.lines.append(line)
        self.end_paragraph()
        return self.out


def help_of(tool, command):
    return subprocess.run([tool, *command, "--help"], check=True, capture_output=True, text=True).stdout


def part(text, heading):
    """The lines of a help text under a heading."""
    found = re.search("^" + heading + r":\n((?:  .*\n)+)", text, re.M)
    return found.group(1).rstrip("\n").split("\n") if found else []


def commands_below(tool, command):
    """The commands without commands of their own, in the order of the help texts."""
    names = [line.split()[0] for line in part(help_of(tool, command), "Subcommands") if line[2] != " "]
    if not names:
        return [command]
    return [leaf for name in names for leaf in commands_below(tool, command + [name])]


def items(lines):
    """Positionals or options as items."""
    entries = []
    for line in lines:
        if line[2] != " ":  # an entry that leaves no room for its description has it in the next line
            left, _, right = line.strip().partition("  ")
            entries.append([left, right.strip()])
        else:
            entries[-1][1] = (entries[-1][1] + " " + line.strip()).strip()
    out = []
    for left, right in entries:
        left = re.sub(r" REQUIRED| Excludes:.*| Needs:.*|:[A-Z]+ .*|:[A-Z]+$", "", left) # the parser's own remarks
        out += [".TP", ".B " + escaped(left.replace(",", ", ")), escaped(right)]
    return out


def command_part(tool, command):
    text = help_of(tool, command)
    usage = re.search(r"^Usage: (.*)$", text, re.M).group(1)
    options = [line for line in part(text, "Options") if not line.startswith("  -h,--help")]
    out = ['.SS "' + escaped(usage) + '"', escaped(text.splitlines()[0]) + "."]
    out += items(part(text, "Positionals")) + items(options)
    examples = part(text, "Examples?")
    if examples:
        out += [".PP", "Example:" if len(examples) == 1 else "Examples:"] + block([line[2:] for line in examples])
    return out


def main():
    tool, version, output = sys.argv[1:]
    sections = re.split(r"^## ", GUIDE.read_text(encoding="utf-8").split("\n", 1)[1], flags=re.M)
    groups = [line.split()[0] for line in part(help_of(tool, []), "Subcommands")]
    out = [
        ".\\\" Made by scripts/tool_page.py from the help texts and the guide.",
        '.TH ZKQ 1 "" "libZKQ_general ' + version + '" "User Commands"',
        ".SH NAME",
        "zkq \\- files, logs, archives, documents, certificates, networks and processes from a shell",
        ".SH SYNOPSIS",
        ".B zkq",
        ".I COMMAND",
        ".RI [ OPTION \"]... [\" ARGUMENT ]...",
        ".br",
        ".B zkq",
        ".RI [ COMMAND ]",
        ".B \\-\\-help",
        ".br",
        ".B zkq \\-\\-version",
        ".SH DESCRIPTION",
    ]
    out += Page().guide(sections[0])
    for section in sections[1:]:
        title, body = section.split("\n", 1)
        out.append('.SH "' + escaped(title.upper()) + '"')
        out += Page().guide(body)
        for group in [g for g in groups if re.search(r"^[$#] .*\bzkq " + g + r"\b", body, re.M)]:
            groups.remove(group)
            for command in commands_below(tool, [group]):
                out += command_part(tool, command)
    if groups:
        sys.exit("tool_page: the guide has no section with an example of: " + " ".join(groups))
    page = "\n".join(out) + ENDING
    pathlib.Path(output).write_text(page.replace("\n\n", "\n"), encoding="utf-8")


if __name__ == "__main__":
    main()
