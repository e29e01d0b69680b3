#!/usr/bin/env python3
"""The library against its peers as Markdown tables, from the JSON files of Google Benchmark.

    bench_table.py RESULT.json...                      prints them
    bench_table.py --page PAGE.md MACHINE RESULT.json...   renews them on a page, with the plots beside it

On a page each line "<!-- results: FAMILY -->" is followed by the tables of the benchmarks whose names begin so, up to the line
"<!-- end -->"; "bars" and "machine" stand for what their names say.
"""

import json
import math
import pathlib
import re
import statistics
import subprocess
import sys

import bench_plots

# Two programs that make the same system calls still differ by a few percent from run to run.
NO_SLOWER = 1.05
# What doubles with its input has exponent 1. A little more is the price of leaving the caches, and peers pay it too.
LINEAR = 1.15
# At least 0.98 of zlib's own speed.
ZLIB_SPEED = 1 / 0.98
# At least 0.95 of a bare loop.
LOOP_SPEED = 1 / 0.95
# With a larger spread than this a verdict is a guess, and is marked as one.
UNSTEADY = 0.5

SIZES = {10_000: "10 KB", 100_000: "100 KB", 1_000_000: "1 MB", 10_000_000: "10 MB"}
BYTES = {64: "64 bytes", 1 << 10: "1 KB", 64 << 10: "64 KB", 1 << 20: "1 MB", 100_000_000: "100 MB"}
FILES = {4096: "4 KB", 1 << 20: "1 MB", 100 << 20: "100 MB"}
TEXTS = {16: "16 B", 1 << 10: "1 KB", 64 << 10: "64 KB", 1 << 20: "1 MB"}
DIRECTIONS = ("gbk-ucs2", "ucs2-gbk", "gbk-utf8", "utf8-gbk")
GROWING = (100_000, 1_000_000, 10_000_000)
MEMBERS = (1_000, 10_000, 100_000)
TABLE_SIZES = (1_000, 100_000, 1_000_000)
XML_SIZES = (1_000, 10_000, 100_000, 1_000_000)
RECORDS = (1_000, 10_000, 100_000, 1_000_000)
ENTRIES = (1_000, 10_000, 100_000)
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def rows():
    """Yields (what, our benchmark, name of the peer, the peer's benchmarks and how often each, bar or None)."""
    for threads in (1, 2, 4):
        place = f"threads:{threads}"
        title = f"{threads} thread{'s' if threads > 1 else ''}"
        for ours, name in (("always", "record, always on"), ("switched", "record, own switch"),
                           ("printf", "printf-style record")):
            # The bar is for a text that is ready. The formatted record shows what formatting adds.
            bar = 1.15 if threads == 1 and ours != "printf" else None
            yield (f"{name}, {title}", f"log/record/{ours}/{place}", "open, flock, write, unlock, close",
                   [(1, f"log/record/floor/{place}")], bar)
            yield (f"{name}, {title}", f"log/record/{ours}/{place}", "spdlog, flush each",
                   [(1, f"log/record/spdlog/{place}")], None)
    for ours, name in (("switched", "all logs off"), ("level", "level off"), ("fixed", "level off, fixed levels"),
                       ("printf", "printf-style, all logs off")):
        yield (f"record, {name}", f"log/off/{ours}", "time()", [(1, "log/off/time")], 2.0)

    for size, title in SIZES.items():
        for peer in ("inih", "GKeyFile"):
            yield (f"profile, last key of {title}", f"inifile/read/ours/{size}", peer,
                   [(1, f"inifile/read/{peer}/{size}")], 0.2)
    for size, title in SIZES.items():
        yield (f"profile, write a key into {title}", f"inifile/write/ours/{size}", "2 memcpy + our read",
               [(2, f"inifile/write/memcpy/{size}"), (1, f"inifile/read/ours/{size}")], 1.0)

    yield ("the last of 1,000 addresses, 1,000 interfaces", "netcard/address/ours", "libmnl",
           [(1, "netcard/address/libmnl")], NO_SLOWER)
    yield ("list 1,000 network cards", "netcard/cards/ours", "getifaddrs", [(1, "netcard/cards/getifaddrs")], None)

    for size, title in FILES.items():
        yield (f"copy a file of {title}", f"file/copy/ours/{size}", "read/write loop",
               [(1, f"file/copy/loop/{size}")], NO_SLOWER)
    yield ("copy a file of 100 MB", f"file/copy/ours/{100 << 20}", "cp", [(1, f"file/copy/cp/{100 << 20}")], NO_SLOWER)
    for size, title in FILES.items():
        for peer, name in (("loop", "fstat, malloc, read loop"), ("lstat", "lstat, malloc, read loop")):
            yield (f"read a file of {title}", f"file/read/ours/{size}", name, [(1, f"file/read/{peer}/{size}")],
                   NO_SLOWER)

    for count in (1_000, 10_000, 100_000, 1_000_000):
        for peer, name in (("string", "std::string"), ("vector", "std::vector")):
            yield (f"append {count} pieces of 16 bytes", f"string/append/ours/{count}", name,
                   [(1, f"string/append/{peer}/{count}")], None)
    for count in (10, 100, 1_000, 10_000, 100_000, 1_000_000):
        yield (f"split {count} tokens", f"string/split/ours/{count}", "strtok_r, strdup",
               [(1, f"string/split/strtok_r/{count}")], None)

    for count in (1_000, 10_000, 100_000, 1_000_000):
        yield (f"packet, add {count} items of 16 bytes", f"msgpacket/add/ours/{count}", "std::vector",
               [(1, f"msgpacket/add/vector/{count}")], None)
        yield (f"packet, read {count} items by index", f"msgpacket/read/ours/{count}", "loop by hand",
               [(1, f"msgpacket/read/by-hand/{count}")], None)

    for direction in DIRECTIONS:
        for kind in ("ascii", "chinese", "mixed"):
            for size, title in TEXTS.items():
                place = f"{direction}/{kind}/{size}"
                # The bar for ASCII is for texts that are longer than the call around them.
                bar = 0.1 if kind == "ascii" and size > 16 else NO_SLOWER
                yield (f"{direction}, {kind}, {title}", f"iconv/ours/{place}", "iconv, ready",
                       [(1, f"iconv/bare/{place}")], bar)
                if size == 16:  # in longer texts opening is nothing
                    yield (f"{direction}, {kind}, {title}", f"iconv/ours/{place}", "open, iconv, close",
                           [(1, f"iconv/opening/{place}")], 0.2)
    # Where the bytes go to memory and back, no codec gets away from a copy. The few of 64 are mostly the way there.
    for size, title in BYTES.items():
        fast = 1 << 10 <= size <= 1 << 20
        for ours, name, peers in (
                ("encode", "Base64 of", (("EVP_EncodeBlock", 0.1 if fast else 1.0), ("memcpy", None))),
                ("encode_lines", "Base64, 72 columns, of", (("EVP_EncodeBlock", 0.2 if fast else 1.0),
                                                            ("EVP_EncodeUpdate", 0.2 if fast else 1.0))),
                ("decode", "Base64 to", (("EVP_DecodeBlock", 0.1 if fast else 1.0), ("memcpy", None))),
                ("decode_lines", "Base64, 72 columns, to", (("EVP_DecodeUpdate", 0.2),))):
            for peer, bar in peers:
                yield (f"{name} {title}", f"base64/{ours}/ours/{size}", peer, [(1, f"base64/{ours}/{peer}/{size}")], bar)
    for size, title in BYTES.items():
        yield (f"MD5 of {title}", f"md5/ours/{size}", "MD5()", [(1, f"md5/MD5/{size}")], 1.0)
        yield (f"MD5 of {title}", f"md5/ours/{size}", "MD5_Init, _Update, _Final", [(1, f"md5/MD5_Update/{size}")], 1.0)

    for what, peer in (("compress", "compress2"), ("decompress", "uncompress")):
        for sample in ("text", "noise"):
            yield (f"{what} 3 MB of {sample}", f"zlib/{what}/ours/{sample}", peer,
                   [(1, f"zlib/{what}/zlib/{sample}")], ZLIB_SPEED)
        for size in GROWING:
            yield (f"{what} {SIZES[size]} of text, growing", f"zlib/{what}-growing/ours/{size}", f"malloc, {peer}",
                   [(1, f"zlib/{what}-growing/zlib/{size}")], None)
    for count, title in ((0, "/usr/share/doc"), *((count, f"{count} small files") for count in MEMBERS)):
        for what, peer in (("make", "zip"), ("extract", "unzip")):
            yield (f"cabinet, {what} {title}", f"mycab/{what}/ours/{count}", peer, [(1, f"mycab/{what}/{peer}/{count}")],
                   NO_SLOWER)
    for name, title in (("mime", "freedesktop.org.xml"), ("iso", "iso_639-3.xml"), ("generated", "50 MB")):
        for peer, bar in (("pugixml", 1.0), ("libxml2", 0.2)):
            yield (f"XML, load and release {title}", f"xml/load/ours/{name}", peer, [(1, f"xml/load/{peer}/{name}")],
                   bar)
        yield (f"XML, write {title}", f"xml/write/ours/{name}", "pugixml", [(1, f"xml/write/pugixml/{name}")], 1.0)
    for what in ("insert", "find"):
        for count in TABLE_SIZES:
            for peer, name in (("GHashTable", "GHashTable"), ("unordered_map", "std::unordered_map")):
                yield (f"table, {what} {count} keys", f"table/{what}/ours/{count}", name,
                       [(1, f"table/{what}/{peer}/{count}")], 1.0 if count <= 100_000 else None)

    for text, title in (("real", "iso_639-3.json"), ("numbers", "10 MB of numbers"), ("strings", "10 MB of strings"),
                        ("nested", "10 MB of nested arrays")):
        for what, name, bar in (("read", "read and release", 0.5), ("write", "write and release", 1.0)):
            for peer, peer_bar in (("rapidjson", bar), ("simdjson", None), ("nlohmann", None), ("jansson", None),
                                   ("json-c", None)):
                yield (f"JSON, {name} {title}", f"json/{what}/ours/{text}", peer, [(1, f"json/{what}/{peer}/{text}")],
                       peer_bar)
    yield ("run a short program and wait", "system/run/ours", "posix_spawn, waitpid", [(1, "system/run/spawn")],
           NO_SLOWER)
    for peer, name, bar in (("spawn", "posix_spawn, waitpid", NO_SLOWER), ("fork", "fork, exec, waitpid", None)):
        yield ("run it from a process with 512 MB in use", "system/run-large/ours/512", name,
               [(1, f"system/run-large/{peer}/512")], bar)
    yield ("tick count", "system/ticks/ours", "pread, sscanf", [(1, "system/ticks/sscanf")], 1.2)
    yield ("tick count", "system/ticks/ours", "pread, strtod", [(1, "system/ticks/strtod")], 1.2)
    # At least 0.95 of the speed.
    yield ("semaphore, take and give back", "syncobject/semaphore/ours", "two semop",
           [(1, "syncobject/semaphore/semop")], 1 / 0.95)
    yield ("shared block, lock and unlock", "syncobject/block/ours", "two semop", [(1, "syncobject/semaphore/semop")],
           1 / 0.95)

    for count in RECORDS:
        yield (f"JSON, array of {count} records", f"json/grow/ours/{count}", "nlohmann",
               [(1, f"json/grow/nlohmann/{count}")], None)
    for form, peer, bar in (("pem", "PEM_read_bio_X509", 1 / 3), ("der", "d2i_X509", None)):
        yield (f"open every certificate of the system, {form.upper()}", f"x509-certificate/{form}/ours", peer,
               [(1, f"x509-certificate/{form}/openssl")], bar)

    for what, title in (("encode", "message of 20 fields, encode"), ("encode-into", "the same into a buffer"),
                        ("decode", "message of 20 fields, decode and release")):
        for peer, name in (("protobuf-c", "protobuf-c"), ("openssl", "OpenSSL's templates")):
            yield (title, f"message/{what}/ours", name, [(1, f"message/{what}/{peer}")], 0.5)

    for what, name in (("send", "S_Send"), ("receive", "S_Receive")):
        yield (f"{name} of 1 GiB", f"socket/{what}/ours", "loop with poll", [(1, f"socket/{what}/bare")], LOOP_SPEED)
    for what, name, peers in (("memory", "1 GiB into memory", ("libcurl", "libcurl-10MB")),
                              ("chunked", "1 GiB in chunks into memory", ("libcurl",)),
                              ("file", "1 GiB into a file", ("libcurl", "libcurl-10MB")),
                              ("requests", "small request", ("libcurl",))):
        for peer in peers:
            yield (f"HTTP, {name}", f"http/{what}/ours", peer.replace("-", ", buffer of "),
                   [(1, f"http/{what}/{peer}")], 1.0)
    for size in (64, 1 << 10, 64 << 10):
        for what, title in (("base64", "the library's buffer"), ("base64-string", "std::string")):
            yield (f"C++ layer: Base64 of {BYTES[size]}, {title}", f"cpp/{what}/layer/{size}", "bare C calls",
                   [(1, f"cpp/{what}/bare/{size}")], NO_SLOWER)
    for what, title in (("packet", "packet, add and read 1,000 integers"), ("json-int", "JSON, get a number"),
                        ("json-string", "JSON, get a string"), ("memory", "memory object, 1,000 pieces of 16 bytes"),
                        ("record-off", "record, level off"), ("record-on", "record, written")):
        bar = None if what == "record-on" else NO_SLOWER  # the file system's mood is more than the layer could be
        yield (f"C++ layer: {title}", f"cpp/{what}/layer", "bare C calls", [(1, f"cpp/{what}/bare")], bar)


# What is to grow as its input does: (what, our benchmark, peer, its benchmark, sizes).
GROWTH = (
    ("profile, last key", "inifile/read/ours", "inih", "inifile/read/inih", SIZES),
    ("profile, write a key", "inifile/write/ours", "memcpy", "inifile/write/memcpy", SIZES),
    ("append pieces", "string/append/ours", "std::string", "string/append/string", (1_000, 10_000, 100_000, 1_000_000)),
    ("split tokens", "string/split/ours", "strtok_r", "string/split/strtok_r",
     (10, 100, 1_000, 10_000, 100_000, 1_000_000)),
    ("packet, add items", "msgpacket/add/ours", "std::vector", "msgpacket/add/vector",
     (1_000, 10_000, 100_000, 1_000_000)),
    ("packet, read items by index", "msgpacket/read/ours", "by hand", "msgpacket/read/by-hand",
     (1_000, 10_000, 100_000, 1_000_000)),
    ("MD5", "md5/ours", "MD5()", "md5/MD5", (1 << 10, 64 << 10, 1 << 20, 100_000_000)),
    ("compress, growing", "zlib/compress-growing/ours", "compress2", "zlib/compress-growing/zlib", GROWING),
    ("decompress, growing", "zlib/decompress-growing/ours", "uncompress", "zlib/decompress-growing/zlib", GROWING),
    *((f"message, array of records, {mode}, {what}", f"message/grow-{what}/{mode}", None, None, ENTRIES)
      for mode in ("der", "xml", "json") for what in ("encode", "decode")),
    ("JSON, array of records", "json/grow/ours", "nlohmann", "json/grow/nlohmann", RECORDS),
    ("make a cabinet", "mycab/make/ours", "zip", "mycab/make/zip", MEMBERS),
    ("extract a cabinet", "mycab/extract/ours", "unzip", "mycab/extract/unzip", MEMBERS),
    ("XML, append children", "xml/grow/append", None, None, XML_SIZES),
    ("XML, attributes over elements", "xml/grow/attributes", None, None, XML_SIZES),
    ("XML, attributes of one element", "xml/grow/attributes_of_one", None, None, XML_SIZES),
    ("XML, bytes of a CDATA section", "xml/grow/section", None, None, XML_SIZES),
    ("XML, pieces of text", "xml/grow/pieces", None, None, XML_SIZES),
    ("XML, levels", "xml/grow/levels", None, None, XML_SIZES),
    ("XML, delete one by one", "xml/grow/delete", None, None, XML_SIZES),
    ("XML, write nodes", "xml/grow/write", None, None, XML_SIZES),
    ("XML, walk by growing index", "xml/grow/walk", None, None, XML_SIZES),
)


def load(paths):
    """Returns the times of all repetitions in nanoseconds, by benchmark; raises ValueError if one failed."""
    times = {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            for run in json.load(file)["benchmarks"]:
                if run.get("error_occurred"):
                    raise ValueError(f"{run['name']}: {run['error_message']}")
                if run["run_type"] != "iteration":
                    continue
                # The clock is the one the benchmark asked for: elapsed time where files or threads are involved.
                clock = "real_time" if re.search("/(real|manual)_time", run["run_name"]) else "cpu_time"
                name = re.sub("/(iterations:[0-9]+|repeats:[0-9]+|real_time|manual_time)", "", run["run_name"])
                times.setdefault(name, []).append(run[clock] * NANOSECONDS[run["time_unit"]])
    return times


def show_time(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}" if nanoseconds < 100 * size else f"{nanoseconds / size:.0f} {unit}"
    return f"{nanoseconds:.3g} ns"


def spread(values):
    """The middle half of the repetitions, as a part of their median; nothing is said of fewer than four."""
    if len(values) < 4:
        return math.nan
    quarters = statistics.quantiles(values, n=4)
    return (quarters[2] - quarters[0]) / quarters[1]


def exponent(times, name, sizes):
    """The slope of time over size, both as logarithms: 1 is linear, 2 quadratic."""
    xs = [math.log(size) for size in sizes]
    ys = [math.log(statistics.median(times[f"{name}/{size}"])) for size in sizes]
    mean_x, mean_y = statistics.fmean(xs), statistics.fmean(ys)
    return sum((x - mean_x) * (y - mean_y) for x, y in zip(xs, ys)) / sum((x - mean_x) ** 2 for x in xs)


def verdict(value, bar):
    return "" if bar is None else "met" if value <= bar else "missed"


def table_line(*cells):
    return "| " + " | ".join(cells) + " |"


def measured_ratios(times):
    """Yields (what, our benchmark, our time, peer, its time, ratio, bar or None, spread) of all that was measured."""
    for what, ours, peer, parts, bar in rows():
        names = [ours] + [name for _, name in parts]
        if any(name not in times for name in names):
            continue
        our_time = statistics.median(times[ours])
        peer_time = sum(factor * statistics.median(times[name]) for factor, name in parts)
        noise = max(spread(times[name]) for name in names)
        yield what, ours, our_time, peer, peer_time, our_time / peer_time, bar, noise


def measured_growth(times):
    """Yields (what, our benchmark, our exponent, peer, its exponent or None)."""
    for what, ours, peer, peer_name, sizes in GROWTH:
        if all(f"{name}/{size}" in times for name in (ours, peer_name) if name for size in sizes):
            yield what, ours, exponent(times, ours, sizes), peer, exponent(times, peer_name, sizes) if peer_name else None


def tables(times, family=""):
    """The lines of both tables of one family, or of all."""
    ratios = [table_line(what, show_time(our_time), peer, show_time(peer_time), f"{ratio:.3g}", f"{bar:.3g}" if bar else "",
                         "" if math.isnan(noise) else f"{noise:.0%}", verdict(ratio, bar) + (", unsteady" if bar and noise > UNSTEADY else ""))
              for what, ours, our_time, peer, peer_time, ratio, bar, noise in measured_ratios(times)
              if ours.startswith(family)]
    growth = [table_line(what, f"{slope:.2f}", peer or "", "" if peer_slope is None else f"{peer_slope:.2f}", f"{LINEAR}",
                         verdict(slope, LINEAR))
              for what, ours, slope, peer, peer_slope in measured_growth(times) if ours.startswith(family)]
    if ratios:
        ratios = [table_line("What", "Ours", "Peer", "Peer's time", "Ratio", "Bar", "Spread", ""),
                  table_line("---", "---:", "---", "---:", "---:", "---:", "---:", "---")] + ratios
    if growth:
        growth = [table_line("Growth with the input (1 is linear)", "Ours", "Peer", "Peer's", "Bar", ""),
                  table_line("---", "---:", "---", "---:", "---:", "---")] + growth
    return ratios + ([""] if ratios and growth else []) + growth


def bars(times):
    """The lines that count the bars and list the ones that are missed."""
    rated = [(what, peer, ratio, bar) for what, _, _, peer, _, ratio, bar, _ in measured_ratios(times) if bar]
    missed = [row for row in rated if row[2] > row[3]]
    slopes = [(what, slope) for what, _, slope, _, _ in measured_growth(times)]
    steep = [row for row in slopes if row[1] > LINEAR]
    lines = [f"{len(rated) - len(missed)} of {len(rated)} bars on ratios are met, and {len(slopes) - len(steep)} of "
             f"{len(slopes)} on growth."]
    if missed:
        lines += ["", table_line("Missed", "Peer", "Ratio", "Bar"), table_line("---", "---", "---:", "---:")]
        lines += [table_line(what, peer, f"{ratio:.3g}", f"{bar:.3g}") for what, peer, ratio, bar in missed]
    if steep:
        lines += ["", table_line("Missed", "Growth", "Bar"), table_line("---", "---:", "---:")]
        lines += [table_line(what, f"{slope:.2f}", f"{LINEAR}") for what, slope in steep]
    return lines


def renew(page, machine, times):
    """Replaces what stands in the marked places of a page; raises ValueError if a family has nothing to show."""
    def region(match):
        name = match[1]
        lines = [machine] if name == "machine" else bars(times) if name == "bars" else tables(times, name)
        if not lines:
            raise ValueError(f"{page}: nothing was measured for {name}")
        return "\n".join([f"<!-- results: {name} -->", *lines, "<!-- end -->"])

    with open(page, encoding="utf-8") as file:
        text = file.read()
    text = re.sub(r"<!-- results: (\S+) -->\n.*?<!-- end -->", region, text, flags=re.DOTALL)
    with open(page, "w", encoding="utf-8") as file:
        file.write(text)


def main():
    arguments = sys.argv[1:]
    try:
        if arguments[:1] == ["--page"]:
            page, machine, *results = arguments[1:]
            times = load(results)
            renew(page, machine, times)
            bench_plots.draw(pathlib.Path(page).parent / "plots", times)
        else:
            print("\n".join(tables(load(arguments))))
    except (OSError, ValueError, KeyError, subprocess.CalledProcessError) as error:
        print(f"bench_table.py: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
