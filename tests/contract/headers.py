#!/usr/bin/env python3
"""Each public header compiles alone and after all others, without a warning, in every language it is written for."""
import itertools
import pathlib
import subprocess
import sys

C_HEADERS = {"vxw_shim.h", "queues.h", "sysport.h", "ipaddr.h", "kel_platform.h"}
C_STANDARDS = ["c99", "c11", "gnu17", "c2x"]
CXX_STANDARDS = ["c++11", "c++14", "c++17", "c++20", "c++2b"]
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror", "-fsyntax-only"]
# Headers of other libraries define macros such as OK and ERROR.
VARIANTS = [[], ["-DKEL_NO_VX_NAMES"], ["-DOK=0", "-DERROR=-1", "-DWAIT_FOREVER=-1"]]


def main():
    folders = [pathlib.Path(folder) for folder in sys.argv[1:]]
    headers = sorted(header for folder in folders for header in folder.glob("*.h"))
    searched = [f"-I{folder}" for folder in folders]
    wrong, compiled = [], 0

    def compile_text(command, text, what):
        nonlocal compiled
        compiled += 1
        result = subprocess.run([*command, *WARNINGS, *searched, "-"], input=text, capture_output=True, text=True)
        if result.returncode != 0:
            wrong.append(f"{what}: {' '.join(command)}\n{result.stderr}")

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
    print("\n".join(wrong) or f"{compiled} compilations of {len(headers)} headers")
    return 1 if wrong or not compiled else 0


sys.exit(main())
