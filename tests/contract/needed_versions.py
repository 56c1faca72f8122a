#!/usr/bin/env python3
"""The shipped libraries need no later symbol versions of the C and C++ libraries than the README says."""
import pathlib
import re
import subprocess
import sys


def number(version):
    return tuple(map(int, version.split(".")))


def main():
    readelf, readme = sys.argv[1], pathlib.Path(sys.argv[2]).read_text()
    said = {kind: re.search(rf"`{kind}_([\d.]+)`", readme) for kind in ("GLIBC", "GLIBCXX", "CXXABI")}
    if not all(said.values()):
        sys.exit("the README does not say what is needed")
    wrong, needed = [], {}
    for library in filter(None, sys.argv[3:]):
        text = subprocess.run([readelf, "-W", "-V", library], check=True, capture_output=True, text=True).stdout
        needs = text[text.index("Version needs section"):]
        for kind, version in re.findall(r"Name: (GLIBC|GLIBCXX|CXXABI)_([\d.]+)", needs):
            needed[kind] = max(needed.get(kind, (0,)), number(version))
    for kind, match in said.items():
        # Exactly: a README that asks for more than there is need for keeps people out.
        if needed.get(kind) != number(match[1]):
            wrong.append(f"{kind}: the README says {match[1]}, needed is {needed.get(kind)}")
    print("\n".join(wrong) or "needs " + ", ".join(match[0] for match in said.values()))
    return 1 if wrong else 0


sys.exit(main())
