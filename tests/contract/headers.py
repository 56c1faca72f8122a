#!/usr/bin/env python3
"""Each public header compiles alone, after all others and after those of other libraries, without a warning, in every
language it is written for."""
import concurrent.futures
import itertools
import pathlib
import subprocess
import sys

C_HEADERS = {"vxw_shim.h", "queues.h", "sysport.h", "ipaddr.h", "kel_platform.h", "kel_standin.h"}
C_STANDARDS = ["c99", "c11", "gnu17", "c2x"]
CXX_STANDARDS = ["c++11", "c++14", "c++17", "c++20", "c++2b"]
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror", "-fsyntax-only"]
# Headers of other libraries bring macros such as OK and ERROR, and their own idea of a bit set or a queue.
FOREIGN = {"c": ["leveldb/c.h", "ncurses.h"],
           "c++": ["leveldb/db.h", "leveldb/write_batch.h", "glog/logging.h", "ncurses.h"]}
VARIANTS = [[], ["-DKEL_NO_VX_NAMES"], ["-DOK=0", "-DERROR=-1", "-DWAIT_FOREVER=-1"]]


def main():
    places = [pathlib.Path(place) for place in sys.argv[1:]] # folders of headers, and single headers
    headers = sorted(header for place in places for header in ([place] if place.is_file() else place.glob("*.h")))
    folders = dict.fromkeys(header.parent for header in headers)
    searched = [f"-I{folder}" for folder in folders]
    jobs = []

    def compile_text(command, text, what):
        jobs.append((command, text, what))

    def complaint(job):
        command, text, what = job
        result = subprocess.run([*command, *WARNINGS, *searched, "-"], input=text, capture_output=True, text=True)
        return f"{what}: {' '.join(command)}\n{result.stderr}" if result.returncode != 0 else ""

    for compiler, language, standards in [("gcc", "c", C_STANDARDS), ("clang", "c", C_STANDARDS),
                                          ("g++", "c++", CXX_STANDARDS), ("clang++", "c++", CXX_STANDARDS)]:
        wanted = [h for h in headers if language == "c++" or h.name in C_HEADERS]
        for standard, variant in itertools.product(standards, VARIANTS):
            command = [compiler, "-x", language, f"-std={standard}", *variant]
            if variant == []:
                for header in wanted:
                    compile_text(command, f"#include <{header.name}>\n", header.name)
            order = "".join(f"#include <{header.name}>\n" for header in wanted)
            back = "".join(f"#include <{header.name}>\n" for header in reversed(wanted))
            compile_text(command, order, "all, in order")
            compile_text(command, back, "all, backwards")
            if variant == []:
                foreign = "".join(f"#include <{name}>\n" for name in FOREIGN[language])
                compile_text(command, foreign + order, "all, after other libraries'")
                compile_text(command, foreign + back, "all backwards, after other libraries'")
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as workers:
        wrong = list(filter(None, workers.map(complaint, jobs)))
    print("\n".join(wrong) or f"{len(jobs)} compilations of {len(headers)} headers")
    return 1 if wrong or not jobs else 0


sys.exit(main())
