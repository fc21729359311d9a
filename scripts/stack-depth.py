#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""How deep calls into the library can go, in bytes of stack.

Compiles the library's sources once more as a build compiled them, lets the compiler write for each
what its functions need and whom they call (-fcallgraph-info=su), joins these graphs, and adds up the
worst path below every function that callers may use.

    stack-depth.py --commands build/compile_commands.json      the build for programs
    stack-depth.py --kbuild MODULE --kernel KERNEL_BUILD       the kernel module, by its .cmd files

Nothing is guessed: a call through a pointer, a recursion, a frame that grows at run time or a function
from outside that the tables below do not know ends the run, as does a static function of the library
that nothing is seen to call. Exit code 1 then, and when a path is deeper than --limit.

What counts: every frame of the library and of cJSON, with return addresses; functions from outside
with what OUTSIDE allows them. What does not: the kernel's allocator and log, and the callbacks of
callers. They are entered from the depths that the last lines tell, and use the rest of the stack.
"""

import argparse
import concurrent.futures
import json
import os
import re
import shlex
import subprocess
import sys
import tempfile

LIBRARY_FOLDERS = ("core", "extmem", "pim", "rm", "presetdb", "verify", "module")
NO_PATH = float("-inf")

KERNEL = "the kernel"
CALLER = "the caller"
# Functions from outside: bytes allowed, or who is entered.
OUTSIDE = {
    "kvmalloc_node": KERNEL,
    "kvfree": KERNEL,
    "_printk": KERNEL,
    "vexil_CBRegister": CALLER,
    **dict.fromkeys(("kstrtoull", "kstrtoll"), 256),
    # Leaves, and the compiler writes most of them out in place.
    **dict.fromkeys(("memcpy", "memmove", "memset", "memcmp", "memchr", "strlen", "strcmp",
                     "strncmp", "strcpy", "strrchr", "sprintf", "tolower"), 256),
    # What a kernel's flags add. They return at once unless the kernel stops.
    **dict.fromkeys(("__fentry__", "mcount", "__stack_chk_fail", "__x86_return_thunk"), 32),
}

# Calls through pointers, by the last name of the called expression. "(...)" stands for all functions
# of the caller's file with these parameters: the entries of a table.
THROUGH_POINTER = {
    # hooks of stores, tries and cJSON, which nobody but the library sets
    "allocate": ["ALLOC"],
    "deallocate": ["DEALLOC"],
    "deallocate_": ["DEALLOC"],
    "reallocate": ["REALLOC"],
    "reallocate_": ["REALLOC"],
    "print": ["_printk"],
    "print_error": ["_printk"],
    # what callers registered, or gave to the call
    "fn": [CALLER],
    "handler": [CALLER],
    "alg_fn": [CALLER],
    # tables: how a block is delivered (pim/load.cpp), how a section is stored (pim/config.cpp)
    "deliver": ["(Delivery&, node_d, int)"],
    "store": ["(Config&, const Section&, const cJSON*)"],
}

# Recursions: the functions of the cycle, how often each of them can be on the stack, and why.
JSON_LEVELS = 48  # CJSON_NESTING_LIMIT
RECURSIONS = [
    # Values of the 48th level stand below 48 containers; a container below them is refused.
    ({"parse_value", "parse_array", "parse_object"}, JSON_LEVELS + 1),
    ({"cJSON_Delete"}, JSON_LEVELS + 1),
    # Folders lie in eight others, with a call for what is in the last.
    ({"walk_ips", "insert_ip"}, 9),
]


def fail(message):
    sys.stdout.flush()
    sys.exit("stack-depth: " + message)


# ---- graphs ----


class Function:
    def __init__(self, title):
        self.title = title
        self.name = title
        self.bytes = None  # None: its body is elsewhere
        self.place = ""  # file:line of the body
        self.parameters = ""
        self.calls = {}  # title of the called: where, once

    def base_name(self):
        return re.sub(r".*::", "", re.sub(r"[ \[].*", "", self.name))


NODE = re.compile(r'node: \{ title: "((?:[^"\\]|\\.)*)" label: "((?:[^"\\]|\\.)*)"( shape : ellipse)? ?\}')
EDGE = re.compile(r'edge: \{ sourcename: "([^"]*)" targetname: "([^"]*)"(?: label: "([^"]*)")? ?\}')
INDIRECT = "__indirect_call"


def read_graph(path, functions, pointer_calls, faults):
    with open(path, encoding="utf-8") as graph:
        for line in graph:
            node = NODE.match(line)
            if node:
                title, label, elsewhere = node.groups()
                function = functions.setdefault(title, Function(title))
                if not elsewhere and title != INDIRECT:
                    read_body(function, label.split(r"\n"), faults)
                continue
            edge = EDGE.match(line)
            if not edge:
                continue
            source, target, place = edge.groups()
            if target == INDIRECT:
                pointer_calls.append((source, place or ""))
            else:
                target = without_alias(target)
                functions.setdefault(target, Function(target))
                functions[source].calls.setdefault(target, place or "")


def without_alias(title):
    """A global function calls itself, and others of its file call it, by an alias."""
    return re.sub(r"^(?:.*:)?([^:]+)\.localalias(\.\d+)?$", r"\1", title)


def read_body(function, label, faults):
    usage = next((re.match(r"(\d+) bytes \((.*)\)", part) for part in label if " bytes (" in part), None)
    if not usage:
        fail("no stack usage of " + function.title)
    if usage.group(2) not in ("static", "dynamic,bounded"):
        faults.append(f"{label[1]}: a frame that grows without bound: {function.title}")
    # An inline function has a body in every file that uses it.
    function.bytes = max(function.bytes or 0, int(usage.group(1)))
    function.place = ":".join(label[1].split(":")[:2])
    parameters = label[0].find("(")
    function.parameters = label[0][parameters:] if parameters >= 0 else ""


def callee(place, folder, sources):
    """The last name of the called expression at file:line:column."""
    path, line, column = place.rsplit(":", 2)
    if path not in sources:
        with open(os.path.join(folder, path), encoding="utf-8") as source:
            sources[path] = source.read().split("\n")
    text = sources[path][int(line) - 1]
    at = int(column) - 1
    # C++ points at the bracket of the arguments, C at where the expression begins.
    before = text[:at] if text[at:at + 1] == "(" else text[:at] + re.match(r"[\w.>\-\[\]*]*", text[at:]).group()
    name = re.search(r"(\w+)$", before)
    return name.group(1) if name else ""


def resolve_pointers(functions, pointer_calls, folder, faults):
    sources = {}
    for source, place in pointer_calls:
        name = callee(place, folder, sources) if place else ""
        if name not in THROUGH_POINTER:
            faults.append(f"{place}: a call through a pointer that is not known: {name or source}")
            continue
        for target in THROUGH_POINTER[name]:
            if target.startswith("("):
                file = place.rsplit(":", 2)[0]
                entries = [one.title for one in functions.values()
                           if one.bytes is not None and one.place.rsplit(":", 1)[0] == file
                           and one.parameters == target]
                if not entries:
                    faults.append(f"{place}: no function has the parameters {target}")
            else:
                entries = [target]
            for entry in entries:
                functions.setdefault(entry, Function(entry))
                functions[source].calls.setdefault(entry, place)


def give_names(functions):
    titles = list(functions)
    plain = [re.sub(r"^.*:(?=[^:]*$)", "", title) for title in titles]
    names = subprocess.run(["c++filt", "-p"], input="\n".join(plain), text=True, check=True,
                           capture_output=True).stdout.split("\n")
    for title, name in zip(titles, names):
        functions[title].name = name.replace("(anonymous namespace)::", "")


# ---- depths ----


def components(functions, start):
    """Strongly connected sets of what @start reaches, callees first."""
    order, low, on_stack, stack, found = {}, {}, set(), [], []

    def visit(title):
        order[title] = low[title] = len(order)
        stack.append(title)
        on_stack.add(title)
        for target in functions[title].calls:
            if target not in order:
                visit(target)
                low[title] = min(low[title], low[target])
            elif target in on_stack:
                low[title] = min(low[title], order[target])
        if low[title] == order[title]:
            members = []
            while not members or members[-1] != title:
                members.append(stack.pop())
                on_stack.discard(members[-1])
            found.append(members)

    for title in start:
        if title not in order:
            visit(title)
    return found


class Depths:
    """The deepest path below each function, to @ends (None: to wherever)."""

    def __init__(self, functions, ordered, ends=None):
        self.functions = functions
        self.ends = ends
        self.depth = {}
        self.next = {}  # what the deepest path goes on with: (title, note)
        for members in ordered:
            if len(members) == 1 and members[0] not in functions[members[0]].calls:
                self.add_plain(members[0])
            else:
                self.add_recursion(members)

    def size(self, title):
        return frame(self.functions[title])

    def below(self, title, members=()):
        """The deepest path that leaves @members from @title, without its own frame."""
        best, where = (0 if self.ends is None or title in self.ends else NO_PATH), None
        for target in self.functions[title].calls:
            if target not in members and self.depth[target] > best:
                best, where = self.depth[target], target
        return best, where

    def add_plain(self, title):
        best, where = self.below(title)
        self.depth[title] = self.size(title) + best
        self.next[title] = (where, "")

    def add_recursion(self, members):
        levels = recursion_levels([self.functions[title] for title in members])
        tails = {title: self.below(title, members) for title in members}
        counters = counting_members(self.functions, members)
        if not counters:
            # Any order of the members: each as often as it can be there.
            every = levels * sum(self.size(title) for title in members)
            best, last = max((tails[title][0], title) for title in members)
            for title in members:
                self.depth[title] = every + best
                self.next[title] = (tails[last][1], f"{levels} times each: {self.names(members)}")
            return
        # Into the counting function, around as often as it may be entered, and out. Each that can
        # count bounds the whole.
        for counter in counters:
            others = [title for title in members if title != counter]
            around = self.size(counter) + max(self.path(target, counter, others)
                                              for target in self.functions[counter].calls if target in members)
            cost, last = max((self.path(counter, title, others) + self.size(title) + tails[title][0], title)
                             for title in members)
            for title in members:
                depth = self.path(title, counter, others) + (levels - 1) * around + cost
                if title not in self.depth or depth < self.depth[title]:
                    self.depth[title] = depth
                    self.next[title] = (tails[last][1], f"{levels} times {around}: {self.names(members)}")

    def names(self, members):
        return ", ".join(sorted(self.functions[title].base_name() for title in members))

    def path(self, title, end, others):
        """The heaviest way from @title to @end through @others, without the frame of @end."""
        if title == end:
            return 0
        best = NO_PATH
        for target in self.functions[title].calls:
            if target == end or (target in others and target != title):
                best = max(best, self.path(target, end, others))
        return self.size(title) + best

    def trace(self, title):
        while title:
            following, note = self.next[title]
            yield self.functions[title], self.size(title), note
            title = following


def frame(function):
    if function.bytes is not None:
        return function.bytes
    allowed = OUTSIDE.get(function.title, 0)
    return allowed if isinstance(allowed, int) else 0


def recursion_levels(members):
    names = {function.base_name() for function in members}
    for known, levels in RECURSIONS:
        if names <= known:
            return levels
    fail("a recursion that is not known: " + ", ".join(sorted(function.name for function in members)))


def counting_members(functions, members):
    """Those members without which there is no cycle."""
    found = []
    for counter in members:
        rest = {title: functions[title] for title in members if title != counter}
        inner = {title: Function(title) for title in rest}
        for title in rest:
            inner[title].calls = {target: "" for target in rest[title].calls if target in rest}
        if all(len(one) == 1 and one[0] not in inner[one[0]].calls for one in components(inner, inner)):
            found.append(counter)
    return found


# ---- what to compile ----


def library_sources(root):
    return {os.path.join(folder, name) for folder in LIBRARY_FOLDERS
            for name in os.listdir(os.path.join(root, folder)) if name.endswith(".cpp")}


def commands_of_build(database, root):
    """(source, command, folder) of the library's files in a compile_commands.json."""
    with open(database, encoding="utf-8") as text:
        entries = json.load(text)
    for entry in entries:
        if of_library(entry["file"], root):
            yield entry["file"], entry["command"], entry["directory"]


def of_library(source, root):
    relative = os.path.relpath(source, root)
    return (relative.split(os.sep)[0] in LIBRARY_FOLDERS or os.path.basename(source) == "cJSON.c" or
            relative == os.path.join("platform", "linux", "glue.c"))


def commands_of_kbuild(module, kernel, root):
    for folder, _, names in os.walk(module):
        for name in names:
            if not name.endswith(".o.cmd"):
                continue
            with open(os.path.join(folder, name), encoding="utf-8") as text:
                first = text.readline()
            command = re.match(r"(?:saved)?cmd_\S+ := (.*)", first)
            # Programs run after the compiler are none of ours.
            command = command and command.group(1).split(" ; ")[0].replace("$(pound)", "#").replace("$$", "$")
            source = command and re.search(r"(\S+\.(?:cpp|c))\s*$", command)
            if source and " -c " in command and of_library(os.path.join(kernel, source.group(1)), root):
                yield source.group(1), command, kernel


def compile_graph(source, command, folder, output):
    command = re.sub(r"\s-Wp,-MM?D,\S+", " ", command)
    command, count = re.subn(r"(\s-o\s*)\S+", lambda match: match.group(1) + shlex.quote(output + ".o"), command)
    if count != 1:
        fail("no output in the command for " + source)
    run = subprocess.run(command + " -fcallgraph-info=su", shell=True, cwd=folder, text=True,
                         capture_output=True, check=False)
    if run.returncode != 0:
        fail(f"{source} does not compile\n{run.stderr}")
    return output + ".ci"


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    parser = argparse.ArgumentParser(description="How deep calls into the library can go.")
    parser.add_argument("--commands", metavar="FILE", help="compile_commands.json of a build")
    parser.add_argument("--kbuild", metavar="FOLDER", help="folder of a built kernel module")
    parser.add_argument("--kernel", metavar="FOLDER", help="the kernel build that it was built against")
    parser.add_argument("--root", default=root, help="the tree with the library's sources")
    parser.add_argument("--functions", help="names of the functions that callers may use, one a line")
    parser.add_argument("--limit", type=int, default=8192, help="bytes that no path may exceed")
    parser.add_argument("--paths", type=int, default=3, help="how many of the deepest paths to show")
    parser.add_argument("--brief", action="store_true", help="no table of all functions")
    arguments = parser.parse_args()
    if bool(arguments.commands) == bool(arguments.kbuild) or bool(arguments.kbuild) != bool(arguments.kernel):
        parser.error("either --commands, or --kbuild with --kernel")
    root = os.path.abspath(arguments.root)
    listed = arguments.functions or os.path.join(root, "tests/abi/functions.txt")
    with open(listed, encoding="utf-8") as text:
        exported = [line.strip() for line in text if line.strip() and not line.startswith("#")]

    if arguments.commands:
        jobs = list(commands_of_build(arguments.commands, root))
    else:
        jobs = list(commands_of_kbuild(os.path.abspath(arguments.kbuild), os.path.abspath(arguments.kernel), root))
    compiled = [os.path.join(folder, source) for source, _, folder in jobs]
    missing = [source for source in sorted(library_sources(root))
               if not any(path.endswith(os.sep + source) for path in compiled)]
    if missing or not any(path.endswith("cJSON.c") for path in compiled):
        fail("not part of the build: " + " ".join(missing or ["cJSON.c"]))

    functions, pointer_calls, faults = {}, [], []
    with tempfile.TemporaryDirectory() as work:
        with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
            graphs = pool.map(lambda item: compile_graph(*item[1], os.path.join(work, str(item[0]))), enumerate(jobs))
            for graph in graphs:
                read_graph(graph, functions, pointer_calls, faults)
    resolve_pointers(functions, pointer_calls, jobs[0][2], faults)
    give_names(functions)
    sys.exit(report(functions, exported, faults, root, arguments))


def report(functions, exported, faults, root, arguments):
    absent = [name for name in exported if name not in functions or functions[name].bytes is None]
    if absent:
        fail("not in the build: " + " ".join(absent))
    ordered = components(functions, exported)
    reached = {title for members in ordered for title in members}
    faults += [f"a function from outside that is not known: {title}"
               for title in sorted(reached) if functions[title].bytes is None and
               title not in OUTSIDE and title != CALLER]
    # A static function that nobody calls is called through a pointer that was overlooked. Others
    # may be left over: written out in place wherever they are called.
    called = {title for members in components(functions, exported + [
        function.title for function in functions.values() if ":" not in function.title]) for title in members}
    ours = tuple(os.path.join(root, folder) + os.sep for folder in LIBRARY_FOLDERS)
    faults += [f"{function.place}: nothing is seen to call {function.name}"
               for function in functions.values() if function.bytes is not None and
               function.title not in called and
               os.path.abspath(os.path.join(root, function.place)).startswith(ours)]
    if faults:
        fail("\n  ".join(["not all is known", *sorted(set(faults))]))

    depths = Depths(functions, ordered)
    ranked = sorted(exported, key=lambda name: (-depths.depth[name], name))
    if not arguments.brief:
        print("bytes  function")
        for name in ranked:
            print(f"{depths.depth[name]:5}  {name}")
    shown = []
    for name in ranked:
        path = list(depths.trace(name))
        if any(longer[-len(path):] == path for longer in shown) or len(shown) == arguments.paths:
            continue
        shown.append(path)
        print(f"\n{depths.depth[name]} bytes below {name}:")
        for function, size, note in path:
            print(f"  {size:5}  {function.name}" + (f"   ({note})" if note else ""))

    print()
    frames = [function for title, function in functions.items() if title in reached and function.bytes is not None]
    largest = max(frames, key=lambda function: function.bytes)
    print(f"largest frame: {largest.bytes} bytes, {largest.name}; {len(frames)} functions")
    for who, ends in ((KERNEL, {name for name, kind in OUTSIDE.items() if kind == KERNEL}),
                      (CALLER, {CALLER} | {name for name, kind in OUTSIDE.items() if kind == CALLER})):
        entered = Depths(functions, ordered, ends).depth
        print(f"{who} is entered at most {max(0, max(entered[name] for name in exported))} bytes deep")
    worst = depths.depth[ranked[0]]
    print(f"worst depth: {worst} bytes of {arguments.limit}")
    return 0 if worst <= arguments.limit else 1


if __name__ == "__main__":
    sys.setrecursionlimit(10000)
    main()
