#!/usr/bin/env python3
"""Who may include whom: nothing else, and no circles."""
import pathlib
import re
import sys

PRIVATE = {"vxw_shim/sem_lock.h", "vxw_shim/tick_deadline.h", "vxw_shim/unlocked_access.h", "vxw_shim/probe.h"}
PUBLIC = {"vxw_shim.h", "queues.h", "ipaddr.h", "deltalist.h", "mempool.h", "bitset.h", "mgmt_types.h", "sysport.h"}
PLATFORM = "kel_platform.h"
STANDIN = "kel_standin.h"

# room (longest prefix wins) -> project headers that it may include, besides its own folder's
ALLOWED = {
    "include/queues.h": {"vxw_shim.h"},
    "include/deltalist.h": {"vxw_shim.h"},
    "include/mempool.h": {"vxw_shim.h"},
    "include/sysport.h": {"vxw_shim.h"},
    "include/": set(),
    "src/output.cpp": {"vxw_shim.h", PLATFORM},
    "src/datagram.cpp": {"vxw_shim.h"},
    "src/vxw_shim/": {"vxw_shim.h"},
    "src/queues/multi_event_q": {"queues.h", "vxw_shim.h", "bitset.h"} | PRIVATE,
    "src/queues/queue_show.cpp": {"queues.h", "vxw_shim.h", "bitset.h"} | PRIVATE,
    "src/queues/": {"queues.h", "vxw_shim.h"} | PRIVATE,
    "src/ipaddr/": {"ipaddr.h"},
    "src/deltalist/": {"deltalist.h", "vxw_shim.h"} | PRIVATE,
    "src/mempool/": {"mempool.h", "vxw_shim.h"} | PRIVATE,
    "src/bitset/": {"bitset.h", PLATFORM} | PRIVATE,
    "src/mgmt_types/": {"mgmt_types.h", "vxw_shim.h"},
    "src/sysport/": {"sysport.h", "vxw_shim.h", "bitset.h", PLATFORM} | PRIVATE,
    "platform/include/": set(),
    "platform/standin/": {PLATFORM},
    "platform/providers/": {STANDIN, PLATFORM},
    "apps/portd/": PUBLIC | {STANDIN},
}


def main():
    root = pathlib.Path(sys.argv[1])
    wrong, seen = [], 0
    files = [f for top in ("include", "src", "platform", "apps") for f in sorted((root / top).rglob("*"))
             if f.suffix in {".h", ".c", ".cpp"}]
    project = {str(f.relative_to(root)) for f in files}
    for file in files:
        name = str(file.relative_to(root))
        rule = max((prefix for prefix in ALLOWED if name.startswith(prefix)), key=len, default=None)
        if rule is None:
            wrong.append(f"{name}: in no known room")
            continue
        own_folder = name.rsplit("/", 1)[0] + "/"
        for header in re.findall(r'^\s*#\s*include\s+["<]([^">]+)[">]', file.read_text(), re.M):
            candidates = {p for p in project if p.endswith("/" + header)}
            if not candidates:
                continue  # the C or C++ library or a package
            seen += 1
            inside = any(p.startswith(own_folder) for p in candidates) and not own_folder == "include/"
            provider = name.startswith("apps/") and any(p.startswith("platform/providers/") for p in candidates)
            if not inside and not provider and header not in ALLOWED[rule]:
                wrong.append(f"{name} includes {header}")
    print("\n".join(wrong) or f"{seen} includes in {len(files)} files")
    return 1 if wrong or not seen else 0


if __name__ == "__main__":
    sys.exit(main())
