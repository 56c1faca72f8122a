#!/usr/bin/env python3
"""Every exported function has a row in the fault tables of tests/faults."""
import pathlib
import re
import sys

DATA = {"mutex_sem_t", "msg_q_x_test_id", "msg_q_x_test_sem"}


def functions(map_file):
    """The functions of the version script: C names and C++ signatures; no data, no tables, no type information."""
    names = set()
    for line in map_file.read_text().splitlines():
        if match := re.fullmatch(r'\s*(?:"(.+)"|(\w+));', line):
            name = match[1] or match[2]
            is_function = "(" in name if match[1] else name not in DATA
            if is_function:
                names.add(name)
    return names


def main():
    root = pathlib.Path(sys.argv[1])
    exported = functions(root / "abi/kel_utils.map")
    rows = set()
    for source in (root / "tests/faults").glob("*_faults*.cpp"):
        for literal in re.findall(r'"((?:[^"\\\n]|\\.)*)"', source.read_text()):
            rows.update(name for name in literal.split("\\n") if name)
    wrong = [f"no row in tests/faults: {name}" for name in sorted(exported - rows)]
    if not exported:
        wrong.append("the list of exports is empty")
    print("\n".join(wrong) or f"{len(exported)} exported functions have rows in the fault tables")
    return 1 if wrong else 0


sys.exit(main())
