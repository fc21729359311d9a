#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Do the tests notice when the library is wrong?

Flips operators and constants of the library's sources, one at a time, in a copy of them, and runs the
library's tests against each: a flip is caught when a test fails, crashes or comes to no end.

    scripts/mutation.py                 140 flips in every folder of the library: minutes
    scripts/mutation.py --count 8       the first few of them
    scripts/mutation.py --list          what would be flipped
    scripts/mutation.py --only 'pim/load.cpp' --count 1000     every flip of some files

What is flipped: comparisons, sums, shifts, bits and logic; a negation left out; integer constants by
one; a result true for false; a loop ended instead of continued; an assignment or a call left out. The
seed alone decides which; each folder takes part by its size, and the small ones by a share at least.
A flip that does not compile, or of which the compiler makes the very same code, is not counted, and
the next one takes its place. Nothing else is left out of the count: flips that change no answer, explained in
EQUIVALENT below, count as not caught.

Only the flipped file (of a header: whoever includes it) is compiled anew; tests of the file's own
folder run first. Exit code 1 when fewer than --least per cent are caught.
"""

import argparse
import concurrent.futures
import fnmatch
import json
import os
import pathlib
import random
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIBRARY_FOLDERS = ("core", "extmem", "pim", "rm", "presetdb", "verify", "module")
COPIED_FOLDERS = LIBRARY_FOLDERS + ("include", "platform", "third_party")
LEAST_SHARE = 0.06  # of a folder, however small
MEMORY_LIMIT = 2 << 30  # bytes in use; tests reserve more than that, which costs nothing
OUTPUT_LIMIT = 64 << 20

# Flips that change no answer: file, the line, the line flipped, and why.
EQUIVALENT = (
    ("verify/rules.cpp", "for (size_t i = 0; i < walk_.slots(); ++i) {",
     "for (size_t i = 1; i < walk_.slots(); ++i) {",
     "node 0 is the root, neither a rule nor a record with an id"),
    ("verify/ring.cpp", "steps_ = 0;", "steps_ = 1;",
     "marks stand one step nearer: the way from one to the next bounds time alone"),
    ("extmem/children.h", "if (steps_left_ == 0)", "if (steps_left_ == 1)",
     "a list has fewer members than its store has nodes; of a ring one member less is met"),
)

# What stands in the code, and what may stand there instead. Binary operators have a blank on both
# sides, which templates, pointers and references never have.
FLIPS = [
    (r"(?<= )<=(?= )", ("<", ">")),
    (r"(?<= )>=(?= )", (">", "<")),
    (r"(?<= )<(?= )", ("<=", ">=")),
    (r"(?<= )>(?= )", (">=", "<=")),
    (r"(?<= )==(?= )", ("!=",)),
    (r"(?<= )!=(?= )", ("==",)),
    (r"(?<= )&&(?= )", ("||",)),
    (r"(?<= )\|\|(?= |$)", ("&&",)),
    (r"(?<= )&&(?=$)", ("||",)),
    (r"(?<= )\+(?= )", ("-",)),
    (r"(?<= )-(?= )", ("+",)),
    (r"(?<= )\*(?= )", ("+",)),
    (r"(?<= )/(?= )", ("*",)),
    (r"(?<= )%(?= )", ("/",)),
    (r"(?<= )<<(?= )", (">>",)),
    (r"(?<= )>>(?= )", ("<<",)),
    (r"(?<= )&(?= )", ("|",)),
    (r"(?<= )\|(?= )", ("&",)),
    (r"(?<= )\+=(?= )", ("-=",)),
    (r"(?<= )-=(?= )", ("+=",)),
    (r"(?<= )\|=(?= )", ("&=",)),
    (r"(?<= )&=(?= )", ("|=",)),
    (r"\+\+(?=\w)|(?<=\w)\+\+", ("--",)),
    (r"(?<!-)--(?=[\w*])|(?<=\w)--", ("++",)),
    (r"(?<![\w)\]])!(?=[\w(*:])", ("",)),
    (r"(?<=return )true(?=;)", ("false",)),
    (r"(?<=return )false(?=;)", ("true",)),
    (r"\bcontinue(?=;)", ("break",)),
    (r"(?<![\w.'])(?:0[xX][0-9a-fA-F]+|\d+)(?=[uUlL]*(?![\w.']))", ("+1", "-1")),
]
# An assignment or a call that is a whole line, after a line that ended something.
STATEMENT = re.compile(r"^[ \t]+(?!return\b|delete\b|else\b|if\b|for\b|while\b|switch\b|case\b)"
                       r"\*?[A-Za-z_][\w:.\[\]>-]*(?: [-+|&]?= .*|\(.*\));$")
ENDED = re.compile(r"(?:[;{}:)]|\belse|\bdo)$")


def say(text):
    print(text, flush=True)


def blanked(text):
    """The source with comments, texts and characters of constants blanked, as long as it was."""
    def blank(match):
        return re.sub(r"[^\n]", " ", match.group())
    return re.sub(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])\'', blank, text,
                  flags=re.S)


class Flip:
    def __init__(self, path, text, begin, end, choices):
        self.path, self.begin, self.end, self.choices = path, begin, end, choices
        first = text.rfind("\n", 0, begin) + 1
        last = text.find("\n", end)
        self.line = text.count("\n", 0, begin) + 1
        self.before = text[first:last].strip()
        self.around = (text[first:begin], text[end:last])

    def choose(self, rng):
        self.choice = rng.choice(self.choices)
        self.after = (self.around[0] + self.choice + self.around[1]).strip()

    @property
    def why(self):
        for path, before, after, reason in EQUIVALENT:
            if (path, before, after) == (self.path, self.before, self.after):
                return reason
        return None

    def __str__(self):
        return f"{self.path}:{self.line}: {self.before}  ->  {self.after or '(left out)'}"


def stepped(number, step):
    """The constant one higher or lower, in its base; None below zero."""
    value = int(number, 0) + (1 if step == "+1" else -1)
    if value < 0:
        return None
    return hex(value) if number[:2].lower() == "0x" else str(value)


def flips_of(path, text):
    code = blanked(text)
    # What only the compiler looks at: directives, assertions, template heads.
    code = re.sub(r"^[ \t]*#[^\n]*|\bstatic_assert\s*\(.*?\);|^[ \t]*template <[^\n]*",
                  lambda m: re.sub(r"[^\n]", " ", m.group()), code, flags=re.S | re.M)
    found = []
    for pattern, replacements in FLIPS:
        for match in re.finditer(pattern, code, flags=re.M):
            choices = replacements
            if replacements == ("+1", "-1"):
                if len(match.group()) > 1 and re.match(r"0\d", match.group()):
                    continue
                choices = tuple(c for c in (stepped(match.group(), s) for s in replacements) if c)
            found.append(Flip(path, text, match.start(), match.end(), choices))
    at, previous = 0, ""
    for line in code.splitlines(keepends=True):
        content = line.rstrip()
        if STATEMENT.match(content) and ENDED.search(previous):
            begin = at + len(content) - len(content.lstrip())
            found.append(Flip(path, text, begin, at + len(content), (";",)))
        if content:
            previous = content
        at += len(line)
    return sorted(found, key=lambda flip: (flip.begin, flip.end))


def chosen(tree, seed, only):
    """Every flip, in the order of choice: any first part of it holds each folder by its share."""
    ranked, total = [], 0
    folders = {}
    for folder in LIBRARY_FOLDERS:
        folders[folder] = []
        for path in sorted((tree / folder).glob("*")):
            name = f"{folder}/{path.name}"
            if path.suffix in (".cpp", ".h") and fnmatch.fnmatch(name, only):
                folders[folder] += flips_of(name, path.read_text())
        total += len(folders[folder])
    for folder, flips in folders.items():
        rng = random.Random(f"{seed} {folder}")
        rng.shuffle(flips)
        share = max(len(flips) / total, LEAST_SHARE) if flips else 1
        for rank, flip in enumerate(flips):
            flip.choose(rng)
            ranked.append(((rank + rng.random()) / share, folder, flip))
    ranked.sort(key=lambda entry: entry[:2])
    return [flip for _, _, flip in ranked]


class Build:
    """An up-to-date build of the tests, whose library is compiled anew from the copy."""

    def __init__(self, build, work, jobs):
        self.build, self.tree, self.jobs = build, work / "tree", jobs
        self.originals, self.flipped = work / "objects", work / "flipped"
        self.sources, self.commands = [], {}

    def copy(self):
        for folder in COPIED_FOLDERS:
            shutil.copytree(ROOT / folder, self.tree / folder)

    def prepare(self):
        if not (self.build / "CMakeCache.txt").exists():
            run_or_stop(["cmake", "--preset", "release", "-B", str(self.build)], cwd=ROOT)
        run_or_stop(["cmake", "--build", str(self.build), "--target", "vexil_tests",
                     f"-j{self.jobs}"], cwd=ROOT)
        for entry in json.loads((self.build / "compile_commands.json").read_text()):
            path = pathlib.Path(entry["file"])
            words = shlex.split(entry["command"])
            output = words[words.index("-o") + 1]
            if not output.startswith("CMakeFiles/vexil.dir/"):
                continue
            source = str(path.relative_to(ROOT))
            self.sources.append(source)
            # The copy takes the checkout's place, and what compiles fastest that of what runs fastest.
            words = [self.moved(word) for word in words[:words.index("-o")]]
            self.commands[source] = [w for w in words if w != "-Werror"] + ["-O1", "-w"]
        with pool(self.jobs) as workers:
            for source, compiled in zip(self.sources, workers.map(self.compile_original, self.sources)):
                if not compiled:
                    stop(f"{source} does not compile")
        link = shlex.split((self.build / "tests/CMakeFiles/vexil_tests.dir/link.txt").read_text())
        self.link_head = [link[0]] + [w for w in link[1:link.index("-o")]
                                      if not w.endswith(".o") and "whole-archive" not in w]
        # A relative path beside the test objects' directory, as the linker was started.
        self.link_tail = [w for w in link[1:link.index("-o")] if w.endswith(".o")]
        self.link_tail += [w for w in link[link.index("-o") + 2:] if os.path.basename(w) != "libvexil.a"]
        self.link_tail += [str(p) for p in sorted((self.build / "CMakeFiles/vexil_cjson.dir").rglob("*.o"))]

    def moved(self, word):
        for prefix in ("-I", "-isystem"):
            path = word[len(prefix):]
            if word.startswith(prefix) and (path == str(ROOT) or path.startswith(f"{ROOT}/")):
                if not path.startswith(f"{self.build}/"):
                    return prefix + str(self.tree) + path[len(str(ROOT)):]
        return word

    def object(self, source, where=None):
        return (where or self.originals) / (source.replace("/", "_") + ".o")

    def compile(self, source, path, output, first=()):
        output.parent.mkdir(parents=True, exist_ok=True)
        return not quiet([*self.commands[source][:1], *first, *self.commands[source][1:],
                          "-o", str(output), "-c", str(path)], self.build)

    def compile_original(self, source):
        return self.compile(source, self.tree / source, self.object(source))

    def users(self, header):
        """Sources that include a header."""
        found = []
        for source in self.sources:
            command = [*self.commands[source], "-MM", str(self.tree / source)]
            listed = subprocess.run(command, cwd=self.build, capture_output=True, text=True).stdout
            if str(self.tree / header) in listed.replace("\\\n", " ").split():
                found.append(source)
        return found

    def compile_flip(self, flip, number):
        """The objects that a flip changes; None when it does not compile or changes none."""
        where = self.flipped / str(number)
        overlay = where / "tree"
        path = overlay / flip.path
        path.parent.mkdir(parents=True, exist_ok=True)
        text = (self.tree / flip.path).read_text()
        path.write_text(text[:flip.begin] + flip.choice + text[flip.end:])
        changed = {}
        for source in [flip.path] if flip.path.endswith(".cpp") else self.users(flip.path):
            output = self.object(source, where)
            at = overlay / source
            if not self.compile(source, at if at.exists() else self.tree / source, output,
                                (f"-I{overlay}",)):
                return None
            if output.read_bytes() != self.object(source).read_bytes():
                changed[source] = output
        return changed or None

    def link(self, program, changed):
        objects = [str(changed.get(source, self.object(source))) for source in self.sources]
        # The library's copies of inline functions come first, so they are the ones that run.
        if quiet([*self.link_head, *objects, *self.link_tail, "-o", str(program)],
                 self.build / "tests"):
            stop(f"{program} does not link")


def quiet(command, cwd):
    return subprocess.run(command, cwd=cwd, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL).returncode


def pool(jobs):
    return concurrent.futures.ThreadPoolExecutor(jobs)


def stop(reason):
    say(f"mutation.py: {reason}")
    say("0 passed, 1 failed")
    os._exit(1)


def run_or_stop(command, **options):
    result = subprocess.run(command, capture_output=True, text=True, **options)
    if result.returncode:
        say((result.stdout + result.stderr)[-4000:])
        stop(f"{command[0]} failed")


def limited(seconds):
    resource.setrlimit(resource.RLIMIT_CPU, (seconds, seconds + 5))
    resource.setrlimit(resource.RLIMIT_FSIZE, (OUTPUT_LIMIT, OUTPUT_LIMIT))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def used_memory(process):
    try:
        with open(f"/proc/{process.pid}/statm") as figures:
            return int(figures.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")
    except (OSError, IndexError):
        return 0


def outcome_of(process, seconds):
    """The exit code; None for a process that takes too much time or memory."""
    ends = time.monotonic() + 60 + 20 * seconds  # one that waits for nothing, or a very busy machine
    while time.monotonic() < ends and used_memory(process) < MEMORY_LIMIT:
        try:
            code = process.wait(0.1)
            return None if code in (-signal.SIGXCPU, -signal.SIGKILL) else code
        except subprocess.TimeoutExpired:
            pass
    return None


def run_tests(program, picked, seconds):
    """Why the tests fail; None when they pass. @seconds of processor time are all that they get."""
    output = program.with_suffix(".out")
    with open(output, "w") as sink:
        started = subprocess.Popen([str(program), f"--gtest_filter={picked}", "--gtest_fail_fast"],
                                   stdin=subprocess.DEVNULL, stdout=sink, stderr=subprocess.STDOUT,
                                   start_new_session=True, preexec_fn=lambda: limited(seconds),
                                   cwd=program.parent)
        try:
            code = outcome_of(started, seconds)
        finally:
            try:
                os.killpg(started.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            started.wait()
    if code == 0:
        return None
    last = "at the start"
    with open(output, errors="replace") as seen:
        for line in seen:
            if line.startswith("[ RUN      ] "):
                last = line[13:].strip()
            elif line.startswith("[  FAILED  ] "):
                return "fails " + line[13:].split(",")[0].split(" (")[0].strip()
    return f"no end in {last}" if code is None else f"crash in {last}"


class Tests:
    def __init__(self, program):
        listing = program.with_suffix(".json")
        run_or_stop([str(program), "--gtest_list_tests", f"--gtest_output=json:{listing}"])
        self.places = {}  # suite to the files of its tests
        for suite in json.loads(listing.read_text())["testsuites"]:
            for test in suite["testsuite"]:
                self.places.setdefault(suite["name"], set()).add(test["file"])

    def stages(self, path):
        """Filters that together pick every test once: the file's own, its folder's, the rest."""
        folder, name = path.split("/")
        stem = name.rsplit(".", 1)[0]
        own = [s for s, files in self.places.items()
               if any(f.endswith(f"tests/{folder}/{stem}_test.cpp") for f in files)]
        near = [s for s, files in self.places.items() if s not in own
                and any(f"tests/{folder}/" in f for f in files)]
        for suites in (own, near):
            if suites:
                yield ":".join(f"{s}.*" for s in suites)
        yield "-" + ":".join(f"{s}.*" for s in own + near)


def main():
    parser = argparse.ArgumentParser(formatter_class=argparse.RawDescriptionHelpFormatter,
                                     description=__doc__)
    parser.add_argument("--count", type=int, default=140, help="flips to try")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--least", type=float, default=90, help="per cent that must be caught")
    parser.add_argument("--seconds", type=float, help="begin no flip after so long")
    parser.add_argument("--only", default="*", help="pattern of files, like 'pim/*'")
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build",
                        help="build of the tests to start from; brought up to date")
    parser.add_argument("--work", type=pathlib.Path, default=ROOT / "out/mutation")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--list", action="store_true")
    options = parser.parse_args()
    began = time.monotonic()
    work, build_dir = options.work.resolve(), options.build.resolve()

    if options.list:
        for flip in chosen(ROOT, options.seed, options.only)[:options.count]:
            say(str(flip))
        return 0

    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    build = Build(build_dir, work, options.jobs)
    build.copy()
    build.prepare()
    program = work / "tests"
    build.link(program, {})
    tests = Tests(program)
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    broken = run_tests(program, "*", 1800)
    if broken:
        stop(f"the tests do not pass as they are: {broken}")
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    usual = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    seconds = int(10 + 2 * usual)
    flips = chosen(build.tree, options.seed, options.only)
    say(f"{len(flips)} flips are possible in {len(build.sources)} sources and their headers; "
        f"seed {options.seed}; the tests as they are take {usual:.0f} s")

    def judge(numbered):
        number, flip = numbered
        if options.seconds and time.monotonic() - began > options.seconds:
            return None
        changed = build.compile_flip(flip, number)
        if changed is None:
            return "none"
        mutant = build.flipped / str(number) / "tests"
        build.link(mutant, changed)
        found = None
        for picked in tests.stages(flip.path):
            found = run_tests(mutant, picked, seconds)
            if found:
                break
        shutil.rmtree(mutant.parent)
        return found or "NOT CAUGHT"

    counted, caught, unchanged, survivors = 0, 0, 0, []
    remaining = list(enumerate(flips))
    with pool(options.jobs) as workers:
        while counted < options.count and remaining:
            # As many as are still wanted; flips that count for nothing are made up in another round.
            batch, remaining = (remaining[:options.count - counted], remaining[options.count - counted:])
            for (_, flip), result in zip(batch, workers.map(judge, batch)):
                if result is None:
                    remaining = []
                elif result == "none":
                    unchanged += 1
                else:
                    counted += 1
                    if result == "NOT CAUGHT":
                        survivors.append(flip)
                        if flip.why:
                            result += f": {flip.why}"
                    else:
                        caught += 1
                    say(f"{counted:4} {flip}: {result}")
    shutil.rmtree(work, ignore_errors=True)

    say("")
    for flip in survivors:
        say(f"not caught: {flip}" + (f": {flip.why}" if flip.why else ""))
    explained = sum(1 for flip in survivors if flip.why)
    say(f"{unchanged} flips did not compile or gave the same code, and do not count")
    say(f"{time.monotonic() - began:.0f} s")
    say(f"{caught} caught of {counted}; {explained} of the others change no answer")
    good = counted > 0 and caught * 100 >= options.least * counted
    say(f"{int(good)} passed, {int(not good)} failed")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
