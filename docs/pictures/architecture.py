#!/usr/bin/env python3
"""Draws who includes whom, from the rules that the contract test checks, as a dot graph on standard output.

    architecture.py SOURCE-FOLDER | dot -Tsvg > architecture.svg
    architecture.py SOURCE-FOLDER --check PICTURE.dot     compares instead: status 1 when the rules have changed
"""
import pathlib
import runpy
import sys

# Rooms as the rules name them -> (what the picture calls them, the group they stand in).
GROUPS = {
    "apps": "Control process",
    "library": "libkel_utils",
    "platform": "Platform",
}
ROOMS = {
    "apps/portd/": ("kel-portd", "apps"),
    "src/queues/": ("queues", "library"),
    "src/deltalist/": ("deltalist", "library"),
    "src/mempool/": ("mempool", "library"),
    "src/sysport/": ("sysport", "library"),
    "src/mgmt_types/": ("mgmt_types", "library"),
    "src/ipaddr/": ("ipaddr", "library"),
    "src/bitset/": ("bitset", "library"),
    "src/vxw_shim/": ("vxw_shim", "library"),
    "src/output.cpp": ("output", "library"),
    "src/datagram.cpp": ("datagram", "library"),
    "platform/include/": ("kel_platform.h", "platform"),
    "platform/standin/": ("stand-in", "platform"),
    "platform/providers/": ("providers", "platform"),
}
OWNERS = {
    "vxw_shim.h": "vxw_shim", "queues.h": "queues", "ipaddr.h": "ipaddr", "deltalist.h": "deltalist",
    "mempool.h": "mempool", "bitset.h": "bitset", "mgmt_types.h": "mgmt_types", "sysport.h": "sysport",
    "kel_platform.h": "kel_platform.h", "kel_standin.h": "stand-in",
}


def room_of(rule):
    """The room that a rule's files stand in: the longest prefix, so that a rule for one source is its room's."""
    return max((room for room in ROOMS if rule.startswith(room)), key=len, default=None)


def arrows(allowed):
    found = set()
    for rule, headers in allowed.items():
        room = room_of(rule)
        if room is None:
            continue
        for header in headers:
            target = OWNERS.get(header, header.split("/")[0])
            if target != ROOMS[room][0]:
                found.add((ROOMS[room][0], target))
    return sorted(found)


def graph(allowed):
    lines = ["// Drawn by architecture.py from the rules of tests/contract/arrows.py.", "digraph rooms {", "    rankdir=TB",
             '    bgcolor="white"',
             '    node [shape=box style="rounded,filled" fillcolor="#f4f7fb" color="#5b7083" fontname="Helvetica" '
             'fontsize=11]',
             '    edge [color="#5b7083"]']
    for group, title in GROUPS.items():
        lines += [f"    subgraph cluster_{group} {{", f'        label="{title}"', '        fontname="Helvetica"',
                  '        color="#c9d3dc"']
        lines += [f'        "{name}"' for name, where in ROOMS.values() if where == group]
        lines.append("    }")
    lines += [f'    "{source}" -> "{target}"' for source, target in arrows(allowed)]
    return "\n".join([*lines, '    "kel-portd" -> "providers"', "}"]) + "\n"


def main():
    root = pathlib.Path(sys.argv[1])
    text = graph(runpy.run_path(str(root / "tests/contract/arrows.py"), run_name="rules")["ALLOWED"])
    if sys.argv[2:3] != ["--check"]:
        print(text, end="")
        return 0
    same = pathlib.Path(sys.argv[3]).read_text() == text
    print("the picture shows the rules" if same else "the rules have changed: draw docs/pictures/architecture.svg anew")
    return 0 if same else 1


sys.exit(main())
