#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""What the tests ran of the library, line by line and branch by branch.

    coverage.py BUILD [--list docs/coverage.md] [--lines 97] [--branches 90]

Reads what gcov makes of the library's objects in BUILD after the tests ran. Nothing is left out:
every line with code and every branch of the sources and headers of the library's folders counts, as
the compiler numbers them without optimisation. Instances of one template are one piece of code.

--list names a document that explains what is not covered. Each item there is

    - `function` (file): `line of code` (line); `line of code` (1 of 4 branches)
      the reason

and the items must be exactly what is not covered: same lines of code in the same functions, as often,
with as many branches. --items prints what belongs there.

Ends with "N passed, N failed": the lines, the branches, and the list when there is one.
"""

import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIBRARY_FOLDERS = ("core", "extmem", "pim", "rm", "presetdb", "verify", "module")
ITEM = re.compile(r"^- `([^`]+)` \(([^)]+)\): (.*)$")
SPOT = re.compile(r"`([^`]+)` \((line|\d+ of \d+ branches)\)")


def short_name(demangled):
    """A function's name without scope, arguments and types."""
    name = demangled.replace("(anonymous namespace)::", "").replace("vexil::", "")
    depth, plain = 0, ""
    for at, c in enumerate(name):
        if c == "<" and not plain.endswith("operator"):
            depth += 1
        elif c == ">" and depth:
            depth -= 1
        elif depth == 0:
            if c == "(" and not plain.endswith("operator"):
                break
            plain += c
    return plain.split()[-1].rsplit("::", 1)[-1] if "operator" not in plain else plain.strip()


class Line:
    def __init__(self):
        self.count = 0
        self.functions = set()
        self.branches = {}  # number of branches to their counts

    def add(self, function, entry):
        self.count += entry["count"]
        self.functions.add(function)
        counts = [branch["count"] for branch in entry["branches"]]
        if counts:
            known = self.branches.setdefault(len(counts), [0] * len(counts))
            for i, count in enumerate(counts):
                known[i] += count

    def all_branches(self):
        return [count for counts in self.branches.values() for count in counts]

    @property
    def spot(self):
        """What is missing; None for a line that is covered."""
        branches = self.all_branches()
        if self.count == 0:
            return "line"
        if 0 in branches:
            return f"{branches.count(0)} of {len(branches)} branches"
        return None


def read_object(notes):
    with tempfile.TemporaryDirectory() as scratch:
        return subprocess.run(["gcov", "--json-format", "--branch-probabilities", "--stdout", str(notes)],
                              cwd=scratch, capture_output=True, text=True, check=True).stdout


def read(build):
    """File to line number to Line."""
    files = collections.defaultdict(lambda: collections.defaultdict(Line))
    objects = sorted((build / "CMakeFiles/vexil.dir").rglob("*.gcno"))
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for text in pool.map(read_object, objects):
            for document in text.splitlines():
                for file in json.loads(document)["files"]:
                    path = pathlib.Path(file["file"])
                    if not path.is_relative_to(ROOT):
                        continue
                    name = str(path.relative_to(ROOT))
                    if name.split("/")[0] not in LIBRARY_FOLDERS:
                        continue
                    names = {f["name"]: short_name(f["demangled_name"]) for f in file["functions"]}
                    for entry in file["lines"]:
                        function = names.get(entry.get("function_name"), "?")
                        files[name][entry["line_number"]].add(function, entry)
    return files


def percent(part, whole):
    return 100 * part / whole if whole else 0.0


def uncovered(files):
    """(file, function) to the spots in it, in order of lines."""
    found = collections.OrderedDict()
    for name in sorted(files):
        source = (ROOT / name).read_text().splitlines()
        for number, line in sorted(files[name].items()):
            if line.spot:
                code = " ".join(source[number - 1].split())
                found.setdefault((name, min(line.functions)), []).append((code, line.spot, number))
    return found


def listed(document):
    """The document's items: (file, function) to spots; and what is wrong with their form."""
    found, wrong = collections.defaultdict(list), []
    lines = document.read_text().splitlines()
    for at, text in enumerate(lines):
        if not text.startswith("- `"):
            continue
        behind = at + 1
        while behind < len(lines) and lines[behind].startswith("  `"):
            text += " " + lines[behind].strip()
            behind += 1
        match = ITEM.match(text)
        spots = SPOT.findall(match.group(3)) if match else []
        if not spots:
            wrong.append(f"{document.name}:{at + 1}: not an item: {text}")
            continue
        found[match.group(2), match.group(1)] += spots
        if behind >= len(lines) or not lines[behind].startswith("  "):
            wrong.append(f"{document.name}:{at + 1}: no reason is given")
    return found, wrong


def compare(missing, document):
    items, wrong = listed(document)
    for key in sorted(set(missing) | set(items)):
        actual = collections.Counter((code, spot) for code, spot, _ in missing.get(key, ()))
        claimed = collections.Counter(items.get(key, ()))
        for code, spot in sorted((actual - claimed).elements()):
            wrong.append(f"not covered and not listed: {key[0]}, {key[1]}: {code} ({spot})")
        for code, spot in sorted((claimed - actual).elements()):
            wrong.append(f"listed, but covered or gone: {key[0]}, {key[1]}: {code} ({spot})")
    return wrong


def main():
    parser = argparse.ArgumentParser(formatter_class=argparse.RawDescriptionHelpFormatter,
                                     description=__doc__)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--lines", type=float, default=97)
    parser.add_argument("--branches", type=float, default=90)
    parser.add_argument("--list", type=pathlib.Path)
    parser.add_argument("--items", action="store_true", help="print what is not covered")
    options = parser.parse_args()

    files = read(options.build.resolve())
    totals = [0, 0, 0, 0]
    print(f"{'':28} {'lines':>12} {'':7} {'branches':>12}")
    for name in sorted(files):
        lines = files[name].values()
        branches = [count for line in lines for count in line.all_branches()]
        figures = [sum(line.count > 0 for line in lines), len(lines),
                   sum(count > 0 for count in branches), len(branches)]
        totals = [a + b for a, b in zip(totals, figures)]
        print_row(name, figures)
    print_row("total", totals)
    missing = uncovered(files)
    if options.items:
        for (name, function), spots in missing.items():
            print(f"- `{function}` ({name}): " +
                  ";\n  ".join(f"`{code}` ({spot})" for code, spot, _ in spots))

    checks = [("lines", percent(*totals[:2]), options.lines),
              ("branches", percent(*totals[2:]), options.branches)]
    passed = failed = 0
    for what, actual, least in checks:
        good = actual >= least
        passed, failed = passed + good, failed + (not good)
        print(f"{what}: {actual:.2f} % covered, at least {least:g} % wanted: {'ok' if good else 'FAILED'}")
    if options.list:
        wrong = compare(missing, options.list)
        for text in wrong:
            print(text)
        passed, failed = passed + (not wrong), failed + bool(wrong)
        print(f"{options.list} tells what is not covered, and why: {'FAILED' if wrong else 'ok'}")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


def print_row(name, figures):
    print(f"{name:28} {figures[0]:>6}/{figures[1]:<5} {percent(*figures[:2]):6.2f}%"
          f" {figures[2]:>6}/{figures[3]:<5} {percent(*figures[2:]):6.2f}%")


if __name__ == "__main__":
    sys.exit(main())
