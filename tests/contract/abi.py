#!/usr/bin/env python3
"""Names, signatures, layouts and virtual slots are those of the kept description: abidiff finds nothing.

With --update the description is written anew from the library. Exit status 77 says that abigail-tools is missing.
"""
import argparse
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

# Only what the public headers declare, and nothing of the machine that built it.
DESCRIBE = ["--exported-interfaces-only", "--drop-private-types", "--no-show-locs", "--no-comp-dir-path",
            "--no-corpus-path", "--no-write-default-sizes", "--type-id-style", "sequence"]

# One small change each, of the kind that breaks processes linked earlier: abidiff must notice every one.
CHANGES = {
    "a member that moved": (r"layout-offset-in-bits='192'", "layout-offset-in-bits='224'"),
    "a virtual function in another slot": (r"vtable-offset='40'", "vtable-offset='99'"),
    "an exported name that went": (r" *<elf-symbol name='semTake'[^\n]*\n", ""),
    "a class that grew": (r"(<class-decl name='SMsgQueueX' size-in-bits=')\d+'", r"\g<1>4096'"),
}


def described(library, folders):
    headers = [word for folder in folders for word in ("--headers-dir", folder)]
    text = subprocess.run(["abidw", *DESCRIBE, *headers, library], check=True, capture_output=True, text=True).stdout
    # Where a source stood when it was compiled, and what the library is linked with, is the build's business.
    text = re.sub(r" path='[^']*/", " path='", text)
    return re.sub(r"  <elf-needed>.*?</elf-needed>\n", "", text, flags=re.S)


def compared(kept, library):
    """abidiff's exit status, 0 for no change, and its report."""
    # Without the folders of headers: a description has no locations, so with them every change would count as private.
    run = subprocess.run(["abidiff", "--exported-interfaces-only", kept, library], capture_output=True, text=True)
    return run.returncode, run.stdout + run.stderr


def check(kept, library):
    wrong = []
    description = kept.read_text()
    if re.search(r"['\"]/\w|path='[^']*/", description):
        wrong.append(f"{kept.name} holds the path of a machine")
    status, report = compared(kept, library)
    if status != 0:
        wrong.append(f"the binary interface is not that of {kept.name}:\n{report}"
                     "If that is meant: scripts/update-abi")
    with tempfile.TemporaryDirectory() as folder:
        changed = pathlib.Path(folder) / kept.name
        for what, (pattern, replacement) in CHANGES.items():
            text = re.sub(pattern, replacement, description, count=1)
            if text == description:
                wrong.append(f"{kept.name} has nothing to try '{what}' on")
                continue
            changed.write_text(text)
            if compared(changed, library)[0] == 0:
                wrong.append(f"abidiff does not notice {what}")
    return wrong


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kept", required=True, type=pathlib.Path)
    parser.add_argument("--library", required=True)
    parser.add_argument("--headers", action="append", default=[], help="folder of public headers, for --update")
    parser.add_argument("--update", action="store_true")
    arguments = parser.parse_args()

    if not shutil.which("abidiff") or not shutil.which("abidw"):
        print("SKIPPED: abidiff is missing (package abigail-tools); the binary interface was not compared")
        return 77
    if arguments.update:
        arguments.kept.write_text(described(arguments.library, arguments.headers))
        print(f"wrote {arguments.kept.name}")
        return 0
    wrong = check(arguments.kept, arguments.library)
    symbols = arguments.kept.read_text().count("<elf-symbol ")
    architecture = arguments.kept.suffixes[0].lstrip(".")
    print("\n".join(wrong) or f"trust: ABI, {architecture} | {symbols} symbols, no change; "
          f"{len(CHANGES)} planted changes noticed")
    return 1 if wrong else 0


sys.exit(main())
