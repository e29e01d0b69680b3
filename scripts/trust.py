#!/usr/bin/env python3
"""Writes the figures of docs/trust.md anew, from what scripts/trust.sh has measured."""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs/trust.md"
LOGS = ROOT / "build/trust"


def read(path):
    return path.read_text(errors="replace") if path.exists() else ""


def grouped(number):
    return f"{number:,}"


def find(pattern, text, what):
    found = re.search(pattern, text)
    if not found:
        sys.exit(f"trust: nothing measured of {what}")
    return found


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "| " + " | ".join("---" for _ in head) + " |"]
    lines += ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]
    return "\n".join(lines)


def strain_rows(preset):
    """(family, operation) -> runs, faults, refused; and the closing line."""
    text = read(ROOT / f"build/strain-{preset}.log")
    rows = {}
    for line in text.splitlines():
        cells = re.match(r"(.{18}) (.{20}) +(\d+) +(\d+) +(\d+) +(\d+)", line)
        if cells:
            rows[cells[1].strip(), cells[2].strip()] = [int(cells[i]) for i in (3, 5, 6)]
    total = find(r"strain: (\d+) processes of (\d+) threads, (\d+) operations, (\d+) faults, (\d+) findings", text, "strain")
    seconds = find(r"strain: seed (\d+), (\d+) seconds", text, "strain")
    return rows, [int(total[i]) for i in range(1, 6)], int(seconds[2])


def strain():
    asan, asan_total, asan_seconds = strain_rows("asan")
    tsan, tsan_total, tsan_seconds = strain_rows("tsan")
    families = {}
    for rows, place in ((asan, 0), (tsan, 1)):
        for (family, _), (runs, faults, refused) in rows.items():
            entry = families.setdefault(family, [0, 0, 0, 0])
            entry[place] += runs
            entry[2] += faults
            entry[3] += refused
    body = table(
        ["Family", "operations, address sanitizers", "operations, thread sanitizer", "faults injected", "failures reported"],
        [[family] + [grouped(number) for number in entry] for family, entry in families.items()],
    )
    summary = (
        f"{asan_total[0]} processes of {asan_total[1]} threads, {asan_seconds} + {tsan_seconds} s: "
        f"{grouped(asan_total[2] + tsan_total[2])} operations, {grouped(asan_total[3] + tsan_total[3])} faults, "
        f"{asan_total[4] + tsan_total[4]} findings"
    )
    return summary, body


def fuzz():
    rows = []
    for corpus in sorted((ROOT / "tests/fuzz/corpus").iterdir()):
        log = read(ROOT / f"build/fuzz/{corpus.name}.log")
        done = find(r"Done (\d+) runs in (\d+) second", log, f"fuzz target {corpus.name}")
        rows.append((corpus.name, sum(1 for _ in corpus.iterdir()), int(done[1]), int(done[2])))
    summary = (
        f"{len(rows)} targets, {grouped(sum(row[1] for row in rows))} inputs in their corpora, "
        f"{grouped(sum(row[2] for row in rows))} executions in {rows[0][3] - 1} s a target, no finding"
    )
    body = table(["Target", "corpus", "executions"], [[name, grouped(size), grouped(runs)] for name, size, runs, _ in rows])
    return summary, body


NOT_MEASURED = "not measured since the last change"


def static(name, none):
    """What an analysis says, which fails where it finds anything."""
    return "0 findings" if none in read(LOGS / f"{name}.log") else NOT_MEASURED


def covered(what, log):
    found = re.search(what + r": ([\d.]+)% \((\d+) out of (\d+)\)", log)
    return f"{found[1]} % ({grouped(int(found[2]))} of {grouped(int(found[3]))})" if found else NOT_MEASURED


def figures():
    coverage = read(LOGS / "coverage.log")
    fault = read(LOGS / "fault.log")
    tests = find(r"\[  PASSED  \] (\d+) tests", fault, "tests of failing systems")[1]
    points = re.findall(r"fault: (\d+) allocations and (\d+) other calls failed in turn", fault)
    if not points:
        sys.exit("trust: nothing measured of failing calls")
    allocations, others = max((int(a), int(b)) for a, b in points)
    strain_summary, strain_table = strain()
    fuzz_summary, fuzz_table = fuzz()
    clean = len(re.findall(r"^valgrind: \S+ is clean", read(LOGS / "valgrind.log"), re.M))
    mutants = find(
        r"seed (\d+), (\d+) of (\d+) possible, (\d+) killed \(([\d.]+) %\), (\d+) survived, (\d+) known to change nothing",
        read(LOGS / "mutants.log"),
        "mutants",
    )
    rows = [
        ["lines covered", covered("lines", coverage), "`scripts/coverage.sh`"],
        ["branches covered", covered("branches", coverage), "`scripts/coverage.sh`"],
        [
            "mutants: single operators changed on covered lines",
            f"{mutants[2]} of {grouped(int(mutants[3]))} (seed {mutants[1]}): {mutants[4]} noticed ({mutants[5]} %), "
            f"{mutants[6]} not, {mutants[7]} others known to change nothing",
            "`scripts/mutants.py`",
        ],
        ["allocations failed in turn", f"{grouped(allocations)}, in {tests} tests", "`fault_test`, preset asan"],
        ["system and library calls failed in turn", f"{grouped(others)}, in the same tests", "`fault_test`, preset asan"],
        ["fuzzing", fuzz_summary, "`scripts/fuzz.sh 20`"],
        ["strain", strain_summary, "`scripts/strain.sh 5`"],
        ["cppcheck", static("cppcheck", "cppcheck: no findings"), "`scripts/cppcheck.sh`"],
        ["clang-tidy, library and tool", static("tidy", "tidy: no findings"), "`scripts/tidy.sh`"],
    ]
    if clean:
        rows.append(["test programs clean under valgrind", clean, "`scripts/valgrind.sh`"])
    return "\n\n".join(
        [table(["What", "Measured", "Command"], rows), "### Strain, by family", strain_table, "### Fuzz targets", fuzz_table]
    )


def main():
    page = PAGE.read_text()
    begin, end = "<!-- figures begin -->\n", "<!-- figures end -->"
    head, rest = page.split(begin)
    tail = rest.split(end)[1]
    PAGE.write_text(head + begin + figures() + "\n" + end + tail)
    print("trust: docs/trust.md is renewed")


main()
