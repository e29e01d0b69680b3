#!/usr/bin/env python3
"""Changes single operators of the library and looks whether the tests notice.

    scripts/coverage.sh --json build/coverage.json
    scripts/mutants.py [--count N] [--seed N] [--only PATTERN]

A mutant is the library with one operator, number or statement changed, on a line that the tests reach. It is built without
optimiser and run against the tests of its family, and is killed if one of them fails. Mutants do what nobody has meant: they
run in namespaces of their own, where the file system can be read only, and no other process is seen. Needs root.

What survives and is no fault of the tests stands in tests/mutants/equivalent.txt, each with its reason. The rest is told
at the end, and in build/mutants/survivors.txt. The sample changes with the month, unless a seed is given.
"""
import argparse
import concurrent.futures
import datetime
import fnmatch
import json
import os
import pathlib
import queue
import random
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build/mutants"
EQUIVALENT = ROOT / "tests/mutants/equivalent.txt"
SECONDS = 60  # that the tests of a family may take

# Which tests judge a source: the first pattern that fits.
FAMILIES = [
    ("base64*", "base64_*"),
    ("charset_table*", "iconv_*"),
    ("child_table*", "child_table_* system_process_*"),
    ("converter*", "iconv_*"),
    ("error*", "error_* string_*"),
    ("file*", "file_*"),
    ("iconv*", "iconv_*"),
    ("inifile*", "inifile_*"),
    ("profile_text*", "inifile_* mycab_*"),
    ("json*", "json_* x509_message_*"),
    ("log*", "log_*"),
    ("library*", "log_* system_test"),
    ("md5*", "md5_*"),
    ("msgpacket*", "msgpacket_*"),
    ("mycab*", "mycab_*"),
    ("memory_object*", "string_*"),
    ("string*", "string_*"),
    ("syncobject*", "syncobject_*"),
    ("clock*", "system_*"),
    ("system*", "system_*"),
    ("table*", "table_*"),
    ("TamorXml*", "xml_* xmlh_*"),
    ("xml.h", "xml_* xmlh_*"),
    ("node_pool*", "xml_* json_*"),
    ("WQXXMLH*", "xmlh_*"),
    ("xmlh*", "xmlh_*"),
    ("asn1*", "x509_*"),
    ("x509_message*", "x509_message_*"),
    ("x509*", "x509_*"),
    ("zlib*", "zlib_* mycab_*"),
    ("http*", "http_*"),
    ("resolver*", "host_address_* socket_*"),
    ("host_address*", "host_address_*"),
    ("socket*", "socket_* http_*"),
    ("ping*", "ping_*"),
    ("ip*", "ip_*"),
    ("rtnetlink*", "ip_* netcard_*"),
    ("bridge*", "netcard_*"),
    ("netcard*", "netcard_*"),
    ("*", "string_* inifile_* file_* log_* xmlh_* json_*"),
]

# What may be changed into what; the first that fits at a place of a line. Texts and comments are left alone.
SKIPPED = r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)*\'|//.*'
CHANGES = [
    (r"==", "!="),
    (r"!=", "=="),
    (r"<=(?!>)", "<"),
    (r">=", ">"),
    (r"(?<= )<(?= )", "<="),
    (r"(?<= )>(?= )", ">="),
    (r"&&(?! )|(?<= )&&(?= )", "||"),
    (r"\|\|", "&&"),
    (r"\+\+", "--"),
    (r"--", "++"),
    (r"\+=", "-="),
    (r"-=", "+="),
    (r"(?<= )\+(?= )", "-"),
    (r"(?<= )-(?= )", "+"),
    (r"(?<= )\*(?= )", "+"),
    (r"(?<= )/(?= )", "*"),
    (r"(?<= )%(?= )", "/"),
    (r"(?<= )&(?= )", "|"),
    (r"(?<= )\|(?= )", "&"),
    (r"<<", ">>"),
    (r">>", "<<"),
    (r"!(?=[\w(])", ""),
    (r"\btrue\b", "false"),
    (r"\bfalse\b", "true"),
    (r"\bTRUE\b", "FALSE"),
    (r"\bFALSE\b", "TRUE"),
    (r"\bcontinue;", "break;"),
    (r"\bbreak;", "continue;"),
    (r"(?<![\w.'])\d+(?![\w.'])", lambda found: str(int(found) + 1)),
    (r"^\s*[\w.>-]+\([^;]*\);$", ";"),
]
PLACES = re.compile("|".join([f"(?P<skip>{SKIPPED})"] + [f"(?P<c{i}>{pattern})" for i, (pattern, _) in enumerate(CHANGES)]))

# Runs its arguments where they can do no harm.
CAGE = """
mount --make-rprivate / && mount -o remount,bind,ro / && mount -t tmpfs none /tmp && mount --bind "$0" "$0" &&
mount -o remount,bind,rw "$0" && mount -t sysfs none /sys && ip link set lo up && ulimit -c 0 && exec "$@"
"""


def mutants_of(path, lines):
    """(path, line, text, changed text) for each place of the covered lines."""
    source = (ROOT / path).read_text().split("\n")
    for number in sorted(lines):
        text = source[number - 1]
        if text.lstrip().startswith(("#", "static_assert", "template", "constexpr static")):
            continue
        for place in PLACES.finditer(text):
            if place.lastgroup == "skip":
                continue
            change = CHANGES[int(place.lastgroup[1:])][1]
            new = change(place[0]) if callable(change) else change
            yield path, number, text, text[: place.start()] + new + text[place.end() :]


def all_mutants(pattern):
    covered = json.loads((ROOT / "build/coverage.json").read_text())
    for file in covered["files"]:
        if fnmatch.fnmatch(file["file"], pattern):
            lines = {line["line_number"] for line in file["lines"] if line["count"] > 0}
            yield from mutants_of(file["file"], lines)


def tests_of(path):
    name = pathlib.PurePath(path).name
    return next(tests for pattern, tests in FAMILIES if fnmatch.fnmatch(name, pattern)).split()


class Tree:
    """A copy of the sources with a build of its own."""

    def __init__(self, number):
        self.source = WORK / f"tree{number}"
        self.build = WORK / f"build{number}"
        files = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, capture_output=True, check=True).stdout
        for name in filter(None, files.decode().split("\0")):
            target = self.source / name
            target.parent.mkdir(parents=True, exist_ok=True)
            if not target.exists() or target.read_bytes() != (ROOT / name).read_bytes():
                shutil.copy(ROOT / name, target)
        options = ["-DCMAKE_BUILD_TYPE=Debug", "-DZKQ_WERROR=OFF"]
        options += [f"-DZKQ_BUILD_{part}=OFF" for part in ("TOOLS", "EXAMPLES", "MAN")]
        run(["cmake", "-S", self.source, "-B", self.build, "-G", "Ninja", *options])
        run(["cmake", "--build", self.build])

    def everything(self):
        return sorted(p.name for p in (self.build / "tests").iterdir() if p.name.endswith("_test") and p.is_file())

    def programs(self, path):
        """The test programs that judge a source."""
        chosen = [n for n in self.everything() if any(fnmatch.fnmatch(n, pattern) for pattern in tests_of(path))]
        return [f"tests/{name}" for name in chosen] + ["tests/fault/fault_test"]

    def check(self):
        """What is not changed must pass, or nothing said here would mean anything."""
        for program in [f"tests/{name}" for name in self.everything()] + ["tests/fault/fault_test"]:
            if not self.passes([program]):
                sys.exit(f"mutants: {program} fails without any change")

    def passes(self, programs):
        for program in programs:
            command = ["unshare", "-m", "-n", "-i", "-p", "-f", "--mount-proc", "--kill-child", "bash", "-c", CAGE]
            command += [self.build, self.build / program, "--gtest_brief=1", "--gtest_fail_fast"]
            environment = dict(os.environ, LOCPATH=str(self.build / "tests/locale"))
            try:
                done = subprocess.run(
                    command, cwd=self.build, env=environment, stdin=subprocess.DEVNULL, capture_output=True, timeout=SECONDS
                )
            except subprocess.TimeoutExpired:
                return False
            if done.returncode != 0:
                return False
        return True

    def judge(self, mutant):
        """"killed", "survived", or "stillborn" if it does not even compile."""
        path, number, _, changed = mutant
        target = self.source / path
        original = target.read_text()
        lines = original.split("\n")
        lines[number - 1] = changed
        target.write_text("\n".join(lines))
        try:
            wanted = ["ZKQ_general"] + [pathlib.PurePath(program).name for program in self.programs(path)]
            if run(["cmake", "--build", self.build, "--target", *wanted], check=False) != 0:
                return "stillborn"
            return "survived" if self.passes(self.programs(path)) else "killed"
        finally:
            target.write_text(original)


def run(command, check=True):
    done = subprocess.run(command, capture_output=True, check=False)
    if check and done.returncode != 0:
        sys.exit(f"mutants: {command[0]} failed\n{done.stdout.decode()[-3000:]}{done.stderr.decode()[-3000:]}")
    return done.returncode


def key(mutant):
    """How a mutant stands in the list of equivalents: without its line number, which changes."""
    path, _, text, changed = mutant
    return f"{path}: {text.strip()} => {changed.strip()}"


def known_equivalents():
    if not EQUIVALENT.exists():
        return set()
    return {line for line in EQUIVALENT.read_text().splitlines() if line and not line.startswith(("#", "  "))}


def options():
    today = datetime.date.today()
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--count", type=int, default=200, help="mutants that compile")
    parser.add_argument("--seed", type=int, default=today.year * 100 + today.month)
    parser.add_argument("--only", default="*", help="sources, as src/json_*")
    return parser.parse_args()


def main():
    chosen = options()
    mutants = list(all_mutants(chosen.only))
    random.Random(chosen.seed).shuffle(mutants)
    trees = queue.Queue()
    for number in range(os.cpu_count()):
        tree = Tree(number)
        if number == 0:
            tree.check()
        trees.put(tree)
        print(f"mutants: tree {number} is built", flush=True)
    waiting = iter(mutants)
    tally = {"killed": 0, "survived": 0, "stillborn": 0, "equivalent": 0}
    survivors = []
    known = known_equivalents()

    def one(mutant):
        tree = trees.get()
        try:
            return mutant, tree.judge(mutant)
        finally:
            trees.put(tree)

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        running = set()
        while tally["killed"] + tally["survived"] + tally["equivalent"] + len(running) < chosen.count or running:
            while tally["killed"] + tally["survived"] + tally["equivalent"] + len(running) < chosen.count:
                following = next(waiting, None)
                if following is None:
                    chosen.count = 0
                    break
                running.add(pool.submit(one, following))
            done, running = concurrent.futures.wait(running, return_when=concurrent.futures.FIRST_COMPLETED)
            for mutant, verdict in (future.result() for future in done):
                if verdict == "survived" and key(mutant) in known:
                    verdict = "equivalent"
                tally[verdict] += 1
                if verdict == "survived":
                    survivors.append(f"{mutant[0]}:{mutant[1]}\n{key(mutant)}\n")
                print(f"{verdict:10} {mutant[0]}:{mutant[1]}  {mutant[2].strip()}  =>  {mutant[3].strip()}", flush=True)
    (WORK / "survivors.txt").write_text("\n".join(survivors))
    judged = tally["killed"] + tally["survived"]
    print("\n".join(survivors))
    print(
        f"mutants: seed {chosen.seed}, {judged} of {len(mutants)} possible, {tally['killed']} killed "
        f"({100 * tally['killed'] / max(judged, 1):.1f} %), {tally['survived']} survived, {tally['equivalent']} known to change "
        f"nothing, {tally['stillborn']} did not compile"
    )


if __name__ == "__main__":
    main()
