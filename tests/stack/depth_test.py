#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""depth_test.py SCRIPT CC CXX CASE: stack-depth.py over a small library made up for CASE.

Sums are compared with frames that the compiler reports another way, in .su files.
"""

import json
import os
import re
import subprocess
import sys
import tempfile

HEAD = """
#define APART extern "C" __attribute__((noinline, noclone))
extern "C" void kvfree(const void *);
APART void leaf(void) { char bytes[40]; kvfree(bytes); }
"""
JSON = """
void kvfree(const void *);
"""
ROUNDS = 49  # of cJSON_Delete


def frame(size):
    return f"char bytes[{size}]; kvfree(bytes);"


class Library:
    """Sources of a tree, the functions that it exports, and what the script must say."""

    def __init__(self, source, exported="entry", json_source="", limit=8192):
        self.source = HEAD + source
        self.json = JSON + json_source
        self.exported = exported
        self.limit = limit
        self.others = {}
        self.sum = None  # of frames by name: the worst depth
        self.says = None  # when it fails


def case_sound():
    library = Library("APART void middle(void) { char bytes[100]; kvfree(bytes); leaf(); kvfree(bytes); }\n"
                      "APART void entry(void) { char bytes[300]; kvfree(bytes); middle(); kvfree(bytes); }")
    library.sum = ["entry", "middle", "leaf"]
    return library


def case_hooks():
    library = Library("struct Store { void *(*allocate)(unsigned long); };\n"
                      "APART void *ALLOC(unsigned long size) { char bytes[500]; kvfree(bytes); kvfree(&size); return 0; }\n"
                      "APART void entry(Store *store) { char bytes[20]; kvfree(store->allocate(sizeof bytes)); kvfree(bytes); }")
    library.sum = ["entry", "ALLOC"]
    return library


def case_tables():
    library = Library("struct Delivery; struct node_d { int id; };\n"
                      "static bool deliver_one(Delivery &, node_d node, int) { char bytes[600]; kvfree(bytes); return node.id; }\n"
                      "static bool deliver_two(Delivery &, node_d node, int) { char bytes[60]; kvfree(bytes); return node.id; }\n"
                      "struct Route { bool (*deliver)(Delivery &, node_d, int); };\n"
                      "extern const Route kRoutes[2]; const Route kRoutes[2] = {{deliver_one}, {deliver_two}};\n"
                      "APART bool entry(int at, Delivery &to) { char bytes[9]; kvfree(bytes);\n"
                      "\tbool done = kRoutes[at].deliver(to, {at}, 1); kvfree(bytes); return done; }")
    library.sum = ["entry", "deliver_one"]
    return library


def case_recursion():
    library = Library('APART void cJSON_Delete(void *); APART void entry(void *item) { cJSON_Delete(item); kvfree(item); }',
                      json_source="__attribute__((noinline)) void cJSON_Delete(void **item) { char bytes[64]; kvfree(bytes);"
                      " if (*item) cJSON_Delete(*item); kvfree(bytes); }")
    library.sum = ["entry"] + ["cJSON_Delete"] * ROUNDS
    return library


def case_mutual_recursion():
    library = Library("namespace { __attribute__((noinline)) void walk_ips(void **, int);\n"
                      "__attribute__((noinline)) void insert_ip(void **item, int depth) {\n"
                      "\tchar bytes[100]; kvfree(bytes); if (depth < 8) walk_ips(item, depth + 1); leaf(); kvfree(bytes); }\n"
                      "void walk_ips(void **item, int depth) {\n"
                      "\tchar bytes[200]; kvfree(bytes); for (; *item; ++item) insert_ip(item, depth); kvfree(bytes); } }\n"
                      "APART void entry(void **item) { walk_ips(item, 0); kvfree(item); }")
    library.sum = ["entry"] + ["walk_ips", "insert_ip"] * 9 + ["leaf"]
    return library


def case_large_frame():
    library = Library("APART void middle(void) { char bytes[5000]; kvfree(bytes); leaf(); kvfree(bytes); }\n"
                      "APART void entry(void) { char bytes[4000]; kvfree(bytes); middle(); kvfree(bytes); }")
    library.sum = ["entry", "middle", "leaf"]
    return library


def case_deep_recursion():
    library = case_recursion()
    library.json = library.json.replace("bytes[64]", "bytes[200]")
    return library


def case_unknown_recursion():
    library = Library("APART void entry(int depth) { char bytes[8]; kvfree(bytes); if (depth) entry(depth - 1); kvfree(bytes); }")
    library.says = "a recursion that is not known: entry"
    return library


def case_unknown_pointer():
    library = Library("struct Store { void (*mystery)(void); };\n"
                      "APART void entry(Store *store) { store->mystery(); leaf(); }")
    library.says = r"core/made_up\.cpp:6:\d+: a call through a pointer that is not known: mystery"
    return library


def case_growing_frame():
    library = Library("APART void entry(int size) { char *bytes = (char *)__builtin_alloca(size); kvfree(bytes); leaf(); }")
    library.says = "core/made_up.cpp:5:.*: a frame that grows without bound: entry"
    return library


def case_unknown_outside():
    library = Library('extern "C" void foreign(void); APART void entry(void) { foreign(); leaf(); }')
    library.says = "a function from outside that is not known: foreign"
    return library


def case_overlooked_pointer():
    library = Library("struct Map { void (*handler)(void); };\n"
                      "static void overlooked(void) { leaf(); kvfree(0); }\n"
                      "extern const Map kMap; const Map kMap = {overlooked};\n"
                      "APART void entry(const Map *map) { map->handler(); leaf(); }")
    library.says = r"core/made_up\.cpp:6: nothing is seen to call overlooked"
    return library


def case_absent_function():
    library = case_sound()
    library.exported = "entry\nabsent"
    library.sum, library.says = None, "not in the build: absent"
    return library


def case_absent_source():
    library = case_sound()
    library.others["pim/forgotten.cpp"] = ""
    library.sum, library.says = None, "not part of the build: pim/forgotten.cpp"
    return library


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def frames(root, commands):
    """What -fstack-usage says: bytes by plain name."""
    sizes = {}
    for command in commands:
        subprocess.run(command["command"] + " -fstack-usage", shell=True, cwd=root, check=True)
    for name in ("made_up", "cJSON"):
        with open(os.path.join(root, name + ".su"), encoding="utf-8") as usage:
            for line in usage:
                function, size, _ = line.rstrip().split("\t")
                name = re.search(r"(\w+)(?:\(.*)?$", function.split(":", 3)[3]).group(1)
                sizes[name] = int(size)
    return sizes


def main():
    script, c, cxx, case = sys.argv[1:]
    library = globals()["case_" + case]()
    with tempfile.TemporaryDirectory() as root:
        for folder in ("core", "extmem", "pim", "rm", "presetdb", "verify", "module"):
            os.mkdir(os.path.join(root, folder))
        write(f"{root}/core/made_up.cpp", library.source)
        write(f"{root}/json/cJSON.c", library.json)
        for name, text in library.others.items():
            write(f"{root}/{name}", text)
        write(f"{root}/functions.txt", "# those that callers may use\n" + library.exported + "\n")
        commands = [{"directory": root, "file": f"{root}/{source}",
                     "command": f"{compiler} -O2 -o {output} -c {root}/{source}"}
                    for compiler, output, source in ((cxx, "made_up.o", "core/made_up.cpp"),
                                                     (c, "cJSON.o", "json/cJSON.c"))]
        write(f"{root}/commands.json", json.dumps(commands))
        run = subprocess.run([sys.executable, script, "--root", root, "--commands", f"{root}/commands.json",
                              "--functions", f"{root}/functions.txt", "--limit", str(library.limit)],
                             text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        wanted, status = library.says, 1
        if library.sum:
            sizes = frames(root, commands)
            depth = sum(sizes[name] for name in library.sum)
            wanted, status = f"worst depth: {depth} bytes of {library.limit}$", int(depth > library.limit)
            if (depth > library.limit) != (case in ("large_frame", "deep_recursion")):
                sys.exit(f"{case}: {depth} bytes is not what the case is about\n{sizes}")
        if run.returncode != status or not re.search(wanted, run.stdout, re.M):
            sys.exit(f"{case}: result {run.returncode} instead of {status}, or not said: {wanted}\n{run.stdout}")


if __name__ == "__main__":
    main()
