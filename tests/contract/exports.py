#!/usr/bin/env python3
"""The library exports exactly the names in abi/kel_utils.map, each from the source file it is listed under."""
import argparse
import re
import subprocess
import sys


def listed(map_file):
    """The names of the version script by source file, as {source: set of names}."""
    groups, source = {}, None
    for line in open(map_file):
        line = line.strip()
        if match := re.fullmatch(r"# (src/\S+\.cpp)", line):
            source = match[1]
            groups[source] = set()
        elif match := re.fullmatch(r'(?:"(.+)"|(\w+));', line):
            if source is not None and match[0] != "*;":
                groups[source].add(match[1] or match[2])
    return groups


def defined(nm, file, *options):
    """The demangled names that a library or an object defines for others."""
    lines = subprocess.run([nm, "-C", "--defined-only", "--extern-only", *options, file],
                           check=True, capture_output=True, text=True).stdout.splitlines()
    return {line.split(" ", 2)[2] for line in lines if line}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--map", required=True)
    parser.add_argument("--nm", required=True)
    parser.add_argument("--library", required=True)
    parser.add_argument("--objects", required=True, help="separated by ;")
    arguments = parser.parse_args()

    groups = listed(arguments.map)
    exported = defined(arguments.nm, arguments.library, "--dynamic")
    every = set().union(*groups.values())
    wrong = [f"exported, not in the list: {name}" for name in sorted(exported - every)]
    wrong += [f"in the list, not exported: {name}" for name in sorted(every - exported)]
    if not every:
        wrong.append("the list is empty")

    objects = arguments.objects.split(";")
    for source, names in groups.items():
        own = [file for file in objects if file.endswith(source.removeprefix("src") + ".o")]
        if len(own) != 1:
            wrong.append(f"{source}: {len(own)} object files")
            continue
        wrong += [f"{source} does not define {name}" for name in sorted(names - defined(arguments.nm, own[0]))]

    print("\n".join(wrong) or f"{len(every)} names in {len(groups)} source files")
    return 1 if wrong else 0


sys.exit(main())
