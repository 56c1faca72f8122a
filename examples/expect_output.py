#!/usr/bin/env python3
"""Runs an example and compares what it prints with the "Prints:" comment at the end of its source.

    expect_output.py SOURCE PROGRAM [ARGUMENT...]
"""
import difflib
import pathlib
import re
import subprocess
import sys


def main():
    source, command = pathlib.Path(sys.argv[1]), sys.argv[2:]
    expected = re.search(r"/\* Prints:\n(.*)\*/\s*\Z", source.read_text(), re.S)
    if not expected:
        print(f"{source.name} does not say what it prints")
        return 1
    finished = subprocess.run(command, stdout=subprocess.PIPE, text=True, timeout=50, check=False)
    wanted, printed = expected[1].splitlines(), finished.stdout.splitlines()
    difference = list(difflib.unified_diff(wanted, printed, "as the source says", "as printed", lineterm=""))
    print("\n".join(difference) or finished.stdout)
    if finished.returncode != 0:
        print(f"ended with {finished.returncode}")
    return 1 if difference or finished.returncode != 0 else 0


sys.exit(main())
