#!/usr/bin/env python3
"""Writes the manual pages of section 3: one for each exported function and one for each public header, out of the comments
in the headers. Doxygen reads these; what it understood is turned into roff here.

    scripts/man_pages.py --output DIR [--doxygen PROGRAM] [--version TEXT]

Pages have no date, and the same headers give the same bytes.
"""
import argparse
import errno
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import textwrap
import xml.etree.ElementTree as ElementTree

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIBRARY = "libZKQ_general"
SEE_ALSO_LIMIT = 12
PROTOTYPE_WIDTH = 72
SOURCE_WIDTH = 78
ERROR_TEXT = "ZKQGeneral_GetGeneralErrorInfo"

# Doxygen reads the settings of the reference; these come after them.
SETTINGS = """
@INCLUDE = docs/Doxyfile
OUTPUT_DIRECTORY = {output}
INPUT = include
FILE_PATTERNS = *.h
USE_MDFILE_AS_MAINPAGE =
GENERATE_HTML = NO
GENERATE_XML = YES
XML_PROGRAMLISTING = NO
WARNINGS = NO
WARN_IF_UNDOCUMENTED = NO
WARN_NO_PARAMDOC = NO
WARN_AS_ERROR = NO
"""


def run_doxygen(program, output):
    settings = SETTINGS.format(output=output)
    subprocess.run([program, "-"], input=settings, text=True, check=True, cwd=ROOT, stdout=subprocess.DEVNULL)


# Texts


def escape(text, literal=False):
    """A text as roff prints it: nothing in it is a request or an escape."""
    if not text.isascii():
        sys.exit(f"man_pages: not ASCII, so not for every terminal: {text!r}")
    text = text.replace("\\", "\\e")
    if literal:
        return text.replace("-", "\\-")
    return re.sub(r"(?<![\w-])-(?=[\w-])", r"\\-", text)  # a sign or an option, not a hyphen


def squeeze(text):
    return re.sub(r"\s+", " ", text)


def guard(line):
    """A line of text that begins like a request."""
    return "\\&" + line if line[:1] in (".", "'") else line


class Names:
    """What a name in a text refers to: functions have pages."""

    def __init__(self, functions):
        self.functions = functions

    def link(self, text):
        """Names of functions, written with brackets or without, as references to their pages."""
        def page(match):
            name = match.group(1)
            return f"\\fB{name}\\fP(3)" if name in self.functions else match.group(0)
        return re.sub(r"\b([A-Za-z_]\w+)(?:\(\))?", page, text)


def inline(element, names, plain=False):
    """The text of an element with what is set apart in it; block elements are left out."""
    parts = []

    def add(text):
        text = escape(squeeze(text or ""))
        parts.append(text if plain else names.link(text))

    add(element.text)
    for child in element:
        if child.tag in ("computeroutput", "emphasis", "bold"):
            text = escape(squeeze("".join(child.itertext())), literal=True)
            if plain:
                parts.append(text)
            elif text in names.functions:
                parts.append(f"\\fB{text}\\fP(3)")
            else:
                parts.append(f"\\fI{text}\\fP" if child.tag == "emphasis" else f"\\fB{text}\\fP")
        elif child.tag == "sp":
            parts.append(" ")
        elif child.tag in BLOCKS:
            pass
        elif child.tag == "linebreak":
            parts.append(" ")
        else:
            add("".join(child.itertext()))
        add(child.tail)
    return squeeze("".join(parts)).strip()


def words(node, names):
    """What a comment of one line says, behind a field or in front of a macro."""
    paras = node.findall("briefdescription/para") + node.findall("detaileddescription/para")
    return guard(" ".join(inline(para, names) for para in paras))


def code_lines(listing):
    lines = []
    for line in listing.iter("codeline"):
        parts = []
        for node in line.iter():
            if node.tag == "sp":
                parts.append(" ")
            elif node.text:
                parts.append(node.text)
            if node is not line and node.tail:
                parts.append(node.tail)
        lines.append("".join(parts).rstrip())
    return lines


BLOCKS = {"parameterlist", "simplesect", "programlisting", "orderedlist", "itemizedlist", "verbatim"}


def listing(lines):
    return [".PP", ".in +4n", ".nf", *(guard(escape(line, literal=True)) for line in lines), ".fi", ".in"]


def paragraphs(element, names):
    """The paragraphs of a description as roff, without parameters and results."""
    lines = []
    for para in element.findall("para"):
        text = inline(para, names)
        if text:
            lines += [".PP", guard(text)]
        for block in para:
            if block.tag == "programlisting":
                lines += listing(code_lines(block))
            elif block.tag in ("orderedlist", "itemizedlist"):
                for number, item in enumerate(block.findall("listitem"), 1):
                    mark = f"{number}." if block.tag == "orderedlist" else "\\(bu"
                    lines.append(f".IP {mark} 4")
                    lines += [guard(inline(one, names)) for one in item.findall("para")]
    return lines


# What Doxygen has found


class Function:
    def __init__(self, node, header):
        self.name = node.findtext("name")
        self.header = header
        self.line = int(node.find("location").get("line"))
        self.type = "".join(node.find("type").itertext()).strip()
        self.arguments = split_arguments(node.findtext("argsstring") or "")
        self.brief = node.find("briefdescription")
        self.detail = node.find("detaileddescription")
        self.parameters = []
        for item in self.detail.iter("parameteritem"):
            self.parameters.append((item.findtext("parameternamelist/parametername"),
                                    item.find("parameterdescription")))
        self.result = next((sect for sect in self.detail.iter("simplesect") if sect.get("kind") == "return"), None)

    def text(self):
        return squeeze(" ".join("".join(part.itertext()) for part in (self.brief, self.detail)))


def split_arguments(text):
    """The arguments of a prototype, one by one."""
    text = text.strip()
    text = text[1:text.rindex(")")] if text.startswith("(") else ""
    return [squeeze(argument).strip() for argument in text.split(",")] if text.strip() else ["void"]


class Header:
    def __init__(self, name):
        self.name = name  # such as "inifile.h"
        self.brief = None
        self.detail = None
        self.functions = []
        self.groups = []  # (title, description) of groups of functions
        self.enums = []
        self.types = []
        self.macros = []

    def page(self):
        return "ZKQ_general_" + self.name.removesuffix(".h")


def header_of(node, headers):
    location = node.find("location")
    name = pathlib.Path(location.get("file")).name
    return headers.setdefault(name, Header(name))


def exported_names():
    """The functions that have pages: those that the shared object exports."""
    return set(re.findall(r"^ +(\w+);", (ROOT / "src/libZKQ_general.map").read_text(), re.MULTILINE))


def read_xml(directory):
    headers = {}
    exported = exported_names()
    seen = set()  # members of a group stand in their file, too
    for path in sorted(pathlib.Path(directory).glob("*.xml")):
        compound = ElementTree.parse(path).getroot().find("compounddef")
        if compound is None:
            continue
        kind = compound.get("kind")
        if kind == "file":
            name = compound.findtext("compoundname")
            if name == "ZKQ_general.h":
                continue
            header = headers.setdefault(name, Header(name))
            header.brief, header.detail = compound.find("briefdescription"), compound.find("detaileddescription")
        elif kind == "struct":
            header_of(compound, headers).types.append(compound)
            continue
        elif kind != "group":
            continue
        for node in compound.iter("memberdef"):
            header = header_of(node, headers)
            member = node.get("kind")
            key = (member, node.findtext("name"), node.find("location").get("line"))
            if key in seen:
                continue
            seen.add(key)
            if member == "function" and key[1] in exported:
                header.functions.append(Function(node, header))
            elif member == "enum":
                header.enums.append(node)
            elif member == "define":
                header.macros.append(node)
        if kind == "group":
            functions = [node.findtext("name") for node in compound.iter("memberdef") if node.get("kind") == "function"]
            header.groups.append((compound.findtext("title"), compound.find("detaileddescription"), set(functions)))
    for header in headers.values():
        header.functions.sort(key=lambda function: function.line)
    return headers


# Pages


def title(name, version):
    return [f'.TH "{name}" 3 "" "{LIBRARY} {version}" "{LIBRARY} functions"',
            ".nh", ".ad l"]


def prototype(function):
    """The prototype in lines that fit a terminal."""
    start = function.type + ("" if function.type.endswith("*") else " ") + function.name + "("
    lines, line = [], start
    for number, argument in enumerate(function.arguments):
        last = number + 1 == len(function.arguments)
        piece = argument + (");" if last else ",")
        if number > 0 and len(line) + 1 + len(piece) > PROTOTYPE_WIDTH:
            lines.append(line)
            line = " " * 4 + piece
        else:
            line += piece if number == 0 else " " + piece
    return lines + [line]


def synopsis(lines):
    return [".SH SYNOPSIS", ".nf", ".B #include <ZKQ_general.h>", *([".PP"] if lines else []),
            *("\\fB" + escape(line, literal=True) + "\\fP" for line in lines), ".fi",
            ".PP", "Link with \\fB\\-lZKQ_general\\fP."]


def error_list(function):
    """The errno values that a comment names, with what the system says of them."""
    found = []
    for name in re.findall(r"\bE[A-Z0-9]{3,}\b", function.text()):
        if name not in found and hasattr(errno, name):
            found.append(name)
    lines = []
    for name in found:
        number = getattr(errno, name)
        lines += [".TP", f"\\fB{name}\\fP ({number})", guard(escape(os.strerror(number)))]
    return lines


def see_also(function, names):
    """First what the comment refers to, then the nearest neighbours in the header."""
    chosen = []

    def add(name):
        if name != function.name and name in names.functions and name not in chosen and len(chosen) < SEE_ALSO_LIMIT:
            chosen.append(name)

    for name in re.findall(r"\b\w+", function.text()):
        add(name)
    family = function.header.functions
    for _, _, members in function.header.groups:
        if function.name in members:
            family = [one for one in family if one.name in members]
    place = family.index(function)
    for distance in range(1, len(family)):
        for neighbour in (place - distance, place + distance):
            if 0 <= neighbour < len(family):
                add(family[neighbour].name)
    chosen += [function.header.page(), "ZKQ_general_types"]
    return references(chosen)


def references(chosen):
    return [".SH SEE ALSO"] + [f"\\fB{name}\\fP(3)" + ("," if name != chosen[-1] else "") for name in chosen]


def common_rules(function, names):
    """What the header, or the group, says of all its functions."""
    lines = paragraphs(function.header.detail, names)
    for heading, detail, members in function.header.groups:
        if function.name in members:
            lines += paragraphs(detail, names)
    if lines:
        lines = [f"Of all functions of \\fB{function.header.name}\\fP:", *lines]
    return [".SH NOTES", *lines, ".PP",
            "What holds for the whole library, threads included, is in \\fBZKQ_general_types\\fP(3)."]


def brief_line(element, names):
    text = inline(element.find("para"), names, plain=True) if element.find("para") is not None else ""
    return text.rstrip(".")


def function_page(function, names, version):
    page = title(function.name, version)
    page += [".SH NAME", f"{function.name} \\- {brief_line(function.brief, names)}"]
    page += synopsis(prototype(function))
    page += [".SH DESCRIPTION", *paragraphs(function.brief, names), *paragraphs(function.detail, names)]
    if function.parameters:
        page.append(".SH PARAMETERS")
        for name, description in function.parameters:
            page += [".TP", f"\\fI{name}\\fP"]
            page += [guard(inline(para, names)) for para in description.findall("para")]
    if function.result is not None:
        page += [".SH RETURN VALUE", *paragraphs(function.result, names)]
    elif function.type == "void":
        page += [".SH RETURN VALUE", "None."]
    errors = error_list(function)
    if errors:
        page += [".SH ERRORS", "Errno values that are named above:", *errors]
    page += common_rules(function, names)
    page += see_also(function, names)
    return page


def type_section(header, names):
    lines = []
    for compound in sorted(header.types, key=lambda one: int(one.find("location").get("line"))):
        lines += [".SS " + compound.findtext("compoundname").removesuffix("_st")]
        lines += paragraphs(compound.find("briefdescription"), names)
        for member in compound.iter("memberdef"):
            kind = "".join(member.find("type").itertext()).strip()
            declaration = kind + ("" if kind.endswith("*") else " ") + member.findtext("name") + \
                (member.findtext("argsstring") or "")
            lines += [".TP", "\\fB" + escape(declaration, literal=True) + "\\fP"]
            lines += [words(member, names)]
    return [".SH TYPES", *lines] if lines else []


def constant_section(header, names):
    lines = []
    for enum in header.enums:
        lines += paragraphs(enum.find("briefdescription"), names)
        for value in enum.findall("enumvalue"):
            start = squeeze(value.findtext("initializer") or "").strip()
            lines += [".TP", "\\fB" + value.findtext("name") + "\\fP" + (" " + escape(start, literal=True))]
            lines += [words(value, names)]
    for macro in header.macros:
        if not words(macro, names) or macro.findtext("name").startswith("_"):
            continue
        arguments = [one.findtext("defname") or "" for one in macro.findall("param")]
        call = macro.findtext("name") + (f"({', '.join(arguments)})" if arguments else "")
        lines += [".TP", "\\fB" + escape(call, literal=True) + "\\fP", words(macro, names)]
    return [".SH CONSTANTS AND MACROS", *lines] if lines else []


def header_page(header, names, version):
    page = title(header.page(), version)
    page += [".SH NAME", f"{header.page()} \\- {brief_line(header.brief, names)}"]
    page += [".SH SYNOPSIS", ".nf", f".B #include <ZKQ_general/{header.name}>", ".fi", ".PP",
             "Part of \\fB<ZKQ_general.h>\\fP. Link with \\fB\\-lZKQ_general\\fP."]
    page += [".SH DESCRIPTION", *paragraphs(header.brief, names), *paragraphs(header.detail, names)]
    for heading, detail, _ in header.groups:
        page += [f".SS {heading}", *paragraphs(detail, names)]
    if header.functions:
        page.append(".SH FUNCTIONS")
        for function in header.functions:
            page += [".TP", f"\\fB{function.name}\\fP(3)", guard(brief_line(function.brief, names) + ".")]
    page += type_section(header, names) + constant_section(header, names)
    page += references([ERROR_TEXT, "ZKQ_general"] + (["ZKQ_general_types"] if header.name != "types.h" else []))
    return page


def library_page(headers, names, version):
    page = title("ZKQ_general", version)
    page += [".SH NAME", "ZKQ_general \\- what Linux server and agent programs share, behind one flat set of C functions"]
    page += synopsis([])
    page += [".SH DESCRIPTION", f"{LIBRARY} runs in its caller's process, starts no thread of its own, and needs nothing at run "
             "time but the C library and zlib. Its functions are in families, each with a header and a page:"]
    for header in sorted(headers.values(), key=lambda one: one.name.lower()):
        page += [".TP", f"\\fB{header.page()}\\fP(3)", guard(brief_line(header.brief, names) + ".")]
    page += [".SH NOTES", *paragraphs(headers["types.h"].detail, names)]
    page += references([ERROR_TEXT])
    return page


def layout(lines):
    """Filled text in short lines, and no paragraph break where a heading has made one."""
    result, filled = [], True
    for line in lines:
        if line in (".nf", ".fi"):
            filled = line == ".fi"
        if line == ".PP" and result and result[-1].startswith((".SH", ".SS")):
            continue
        if not filled or line.startswith("."):
            result.append(line)
            continue
        pieces = textwrap.wrap(line, SOURCE_WIDTH, break_long_words=False, break_on_hyphens=False)
        result += [guard(piece) for piece in pieces]
    return result


def write_pages(headers, output, version):
    functions = {function.name for header in headers.values() for function in header.functions}
    names = Names(functions)
    shutil.rmtree(output, ignore_errors=True)
    output.mkdir(parents=True)
    (output / "ZKQ_general.3").write_text("\n".join(layout(library_page(headers, names, version))) + "\n",
                                         encoding="ascii")
    for header in headers.values():
        pages = {header.page(): header_page(header, names, version)}
        pages |= {function.name: function_page(function, names, version) for function in header.functions}
        for name, page in pages.items():
            (output / f"{name}.3").write_text("\n".join(layout(page)) + "\n", encoding="ascii")


def main():
    parser = argparse.ArgumentParser(description="writes the manual pages of section 3")
    parser.add_argument("--output", required=True, type=pathlib.Path)
    parser.add_argument("--doxygen", default="doxygen")
    parser.add_argument("--version", default="")
    arguments = parser.parse_args()
    arguments.output.parent.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=arguments.output.resolve().parent) as work:
        run_doxygen(arguments.doxygen, work)
        headers = read_xml(pathlib.Path(work) / "xml")
    write_pages(headers, arguments.output, arguments.version)


if __name__ == "__main__":
    main()
