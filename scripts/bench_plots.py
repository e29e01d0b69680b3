"""Plots of speed against input size, drawn by gnuplot as SVG files."""

import pathlib
import statistics
import subprocess
import tempfile

# File, title, unit of the input, the unit's part of one "size", and the lines: their label and the begin of their
# benchmarks' names, behind which the size follows.
PLOTS = (
    ("profiles", "Reading the last key of a profile text", "GB", 1e-9,
     (("ours", "inifile/read/ours"), ("inih", "inifile/read/inih"), ("GKeyFile", "inifile/read/GKeyFile"))),
    ("base64", "Encoding Base64 without line breaks", "GB", 1e-9,
     (("ours", "base64/encode/ours"), ("EVP_EncodeBlock", "base64/encode/EVP_EncodeBlock"),
      ("memcpy", "base64/encode/memcpy"))),
    ("base64-decode", "Decoding Base64 without line breaks", "GB", 1e-9,
     (("ours", "base64/decode/ours"), ("EVP_DecodeBlock", "base64/decode/EVP_DecodeBlock"),
      ("memcpy", "base64/decode/memcpy"))),
    ("md5", "MD5", "GB", 1e-9, (("ours", "md5/ours"), ("OpenSSL", "md5/MD5"))),
    ("charsets", "Chinese text from GBK to UTF-8", "GB", 1e-9,
     (("ours", "iconv/ours/gbk-utf8/chinese"), ("iconv, ready", "iconv/bare/gbk-utf8/chinese"))),
    ("packets", "Adding items to a packet", "million items", 1e-6,
     (("ours", "msgpacket/add/ours"), ("std::vector", "msgpacket/add/vector"))),
    ("memory", "Appending pieces of 16 bytes to a memory object", "million pieces", 1e-6,
     (("ours", "string/append/ours"), ("std::string", "string/append/string"), ("std::vector", "string/append/vector"))),
    ("tables", "Finding keys in a table", "million keys", 1e-6,
     (("ours", "table/find/ours"), ("GHashTable", "table/find/GHashTable"),
      ("std::unordered_map", "table/find/unordered_map"))),
    ("xml", "Work on XML nodes", "million nodes", 1e-6,
     (("append", "xml/grow/append"), ("write", "xml/grow/write"), ("delete one by one", "xml/grow/delete"),
      ("nest", "xml/grow/levels"))),
    ("json", "Building a JSON array of records", "million records", 1e-6,
     (("ours", "json/grow/ours"), ("nlohmann", "json/grow/nlohmann"))),
    ("messages", "Encoding arrays of records", "million records", 1e-6,
     (("DER", "message/grow-encode/der"), ("XML", "message/grow-encode/xml"), ("JSON", "message/grow-encode/json"))),
    ("cabinets", "Making a cabinet of small files", "thousand files", 1e-3,
     (("ours", "mycab/make/ours"), ("zip", "mycab/make/zip"))),
)

SETUP = """set terminal svg size 720,400 font "sans-serif,13" background "white"
set output "{output}"
set title "{title}"
set logscale xy
set xlabel "{size}"
set ylabel "{unit} per second"
set format x "10^{{%L}}"
set grid
set key outside right center noenhanced
plot {lines}
"""


def points(times, name):
    """The sizes and speeds that were measured, by growing size."""
    prefix = name + "/"
    found = [(int(key[len(prefix):]), values) for key, values in times.items()
             if key.startswith(prefix) and key[len(prefix):].isdigit() and key != prefix + "0"]
    return [(size, size / statistics.median(values) * 1e9) for size, values in sorted(found)]


def draw(directory, times):
    """Draws all plots into a directory; raises ValueError if one of their lines was not measured."""
    directory.mkdir(exist_ok=True)
    for file, title, unit, part, lines in PLOTS:
        with tempfile.TemporaryDirectory() as work:
            parts = []
            for number, (label, name) in enumerate(lines):
                line = points(times, name)
                if len(line) < 2:
                    raise ValueError(f"no growing sizes of {name}")
                data = pathlib.Path(work) / str(number)
                data.write_text("".join(f"{size} {speed * part}\n" for size, speed in line), encoding="ascii")
                parts.append(f'"{data}" with linespoints linewidth 2 pointtype 7 pointsize 0.5 title "{label}"')
            script = SETUP.format(output=directory / (file + ".svg"), title=title, unit=unit, lines=", ".join(parts),
                                  size="bytes" if unit == "GB" else unit.split()[-1])
            subprocess.run(["gnuplot"], input=script, text=True, check=True)
