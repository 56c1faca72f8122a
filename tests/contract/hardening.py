#!/usr/bin/env python3
"""The shipped libraries: their names, full RELRO, no executable stack, no run path, no constructors of our own."""
import re
import subprocess
import sys


def main():
    readelf, wrong = sys.argv[2], []
    for library in filter(None, sys.argv[3:]):
        text = subprocess.run([readelf, "-W", "-d", "-l", library], check=True, capture_output=True, text=True).stdout
        name = re.search(r"(libkel_\w+)\.so", library)[1]

        def must(condition, what):
            if not condition:
                wrong.append(f"{name}: {what}")

        must(f"Library soname: [{name}.so.0]" in text, "another soname")
        must("GNU_RELRO" in text and re.search(r"FLAGS.*(BIND_)?NOW", text), "not full RELRO")
        must(re.search(r"GNU_STACK.* RW ", text), "executable stack")
        must("SYMBOLIC" not in text, "linked with -Bsymbolic")
    print("\n".join(wrong) or "hardened")
    return 1 if wrong or len(sys.argv) < 4 else 0


sys.exit(main())
