#!/usr/bin/env python3
"""The docs stay true: every oddity names a test that exists, every relative link leads somewhere, and
every quoted program is the one that is built and run."""
import pathlib
import re
import sys


def tests_of(root):
    """All GoogleTest names of the tree, as Suite.Test."""
    names = set()
    for file in (root / "tests").rglob("*.cpp"):
        for suite, test in re.findall(r"^\s*TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", file.read_text(), re.M):
            names.add(f"{suite}.{test}")
    return names


def rows(document):
    """The rows of the compatibility table that describe an oddity, as lists of cells."""
    for line in document.splitlines():
        cells = [cell.strip() for cell in line.strip().strip("|").split(" | ")]
        if line.startswith("| ") and len(cells) == 3 and cells[0] != "Where":
            yield cells


def main():
    root = pathlib.Path(sys.argv[1])
    names, wrong = tests_of(root), []

    pinned = 0
    for where, _, test in rows((root / "docs/compatibility.md").read_text()):
        for name in test.replace("`", "").split(","):
            pinned += 1
            if name.strip() not in names:
                wrong.append(f"docs/compatibility.md: {where}: no test {name.strip()}")
    if pinned == 0:
        wrong.append("docs/compatibility.md: no rows")

    for source in [*(root / "src").rglob("*.cpp"), *(root / "src").rglob("*.h"), *(root / "include").rglob("*.h")]:
        text = re.sub(r"\n\s*(//|\*)\s?", " ", source.read_text())
        for comment in re.findall(r"Kept:(.*?\.)(?:\s|\n)", text):
            if not set(re.findall(r"\b\w+\.\w+\b", text[text.find(comment):][:600])) & names:
                wrong.append(f"{source.relative_to(root)}: a Kept comment names no test:{comment[:60]}")

    for document in [*root.glob("*.md"), *(root / "docs").rglob("*.md")]:
        prose = re.sub(r"^```.*?^```", "", document.read_text(), flags=re.M | re.S)  # a lambda looks like a link
        for target in re.findall(r"\]\(([^)#]+)[^)]*\)", prose):
            if "://" not in target and not (document.parent / target).exists():
                wrong.append(f"{document.relative_to(root)}: dead link {target}")
        for source, quoted in re.findall(r"<!-- (\S+) -->\n```\w+\n(.*?)```", document.read_text(), re.S):
            if (root / source).read_text() != quoted:
                wrong.append(f"{document.relative_to(root)}: does not quote {source} as it is")

    print("\n".join(wrong) or f"{pinned} oddities pinned by tests")
    return 1 if wrong else 0


sys.exit(main())
