#!/usr/bin/env python3
"""The tracepoints of the library: the documented ones, with the documented arguments, a nop each."""
import argparse
import pathlib
import re
import subprocess
import sys


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def documented(page):
    """{probe: number of arguments}"""
    rows = re.findall(r"^\| `(\w+)` \| ([^|]+) \|", page, re.M)
    return {name: len(arguments.split(",")) for name, arguments in rows}


def built(readelf, library):
    """[(probe, its address, number of arguments)]"""
    notes = run(readelf, "--notes", "--wide", library)
    found = re.findall(r"Provider: kel_utils\s+Name: (\w+)\s+Location: (0x[0-9a-f]+),.*\s+Arguments: (.*)", notes)
    return [(name, int(address, 16), len(re.findall(r"-?\d+@", arguments))) for name, address, arguments in found]


def is_nop(objdump, library, address):
    code = run(objdump, "-d", "--no-show-raw-insn", f"--start-address={address:#x}", f"--stop-address={address + 4:#x}",
               library)
    return re.search(rf"^\s*{address:x}:\s+nop\b", code, re.M) is not None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--readelf", required=True)
    parser.add_argument("--objdump", required=True)
    parser.add_argument("--page", required=True)
    parser.add_argument("library")
    options = parser.parse_args()
    wanted = documented(pathlib.Path(options.page).read_text())
    probes = built(options.readelf, options.library)
    wrong = [f"{name}: documented, not built" for name in wanted if name not in {p[0] for p in probes}]
    for name, address, arguments in probes:
        if wanted.get(name) != arguments:
            wrong.append(f"{name}: {arguments} arguments, documented {wanted.get(name)}")
        if not is_nop(options.objdump, options.library, address):
            wrong.append(f"{name} at {address:#x} is not a nop")
    print("\n".join(wrong) or f"{len(wanted)} probes at {len(probes)} places")
    return 1 if wrong or not wanted else 0


sys.exit(main())
