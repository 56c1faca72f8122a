#!/usr/bin/env python3
"""Every argument of every C entry point is tried with hostile values, or its undefined values are documented.

tests/faults/hostile_arguments_test.cpp says which: ints(), null() and handle() try all values of a kind; someInts() leaves
some out and never() all. Those two need a row in docs/reliability.md, and each row there needs one of them.
"""
import pathlib
import re
import sys


def c_part(text):
    """What a header declares for C, without comments and preprocessor lines."""
    text = re.sub(r"/\*.*?\*/", " ", text, flags=re.S)
    text = re.sub(r"#(?:[^\n]*\\\n)*[^\n]*", " ", text)
    return "".join(re.findall(r'extern "C" \{(.*?)\n\}[ \t]*(?://[^\n]*)?\n', text, re.S))


def entry_points(include):
    """{call: [(argument, is_pointer, is_queue)]} of all C functions."""
    calls = {}
    for header in sorted(include.glob("*.h")):
        for name, arguments in re.findall(r"[\w*]\s+\**(\w+)\(([^()]*)\)\s*(?:__attribute__[^;]*)?;", c_part(header.read_text())):
            calls[name] = []
            for argument in arguments.split(","):
                argument = " ".join(argument.split())
                if argument in ("void", "", "..."):
                    continue
                match = re.fullmatch(r"(.*?)(\w+)", argument)
                kind = match[1].strip()
                pointer = "*" in kind or kind in ("SEM_ID", "MSG_Q_ID", "FUNCPTR")
                queue = kind in ("SMultiEventQ *", "SMsgQueueX *", "SBaseQ *")
                calls[name].append((match[2], pointer, queue))
    return calls


def tried(source):
    """{(call, argument): {how}} from the test's source."""
    ways = {}
    for how, call, argument in re.findall(r'\b(ints|someInts|null|never)\(\s*"(\w+)",\s*"(\w+)"', source):
        ways.setdefault((call, argument), set()).add(how)
    for call in re.findall(r'\bhandle<\w+>\(\s*"(\w+)"', source):
        ways.setdefault((call, "queue"), set()).add("handle")
    for arguments, body in re.findall(r'for \(const char \*argument : \{([^}]*)\}\)(.*?;\n(?:\s+never[^\n]*\n)?)', source, re.S):
        for call in re.findall(r'never\("(\w+)", argument\)', body):
            for argument in re.findall(r'"(\w+)"', arguments):
                ways.setdefault((call, argument), set()).add("never")
    return ways


def documented(document):
    """{(call, argument)} of the section "Undefined on purpose"."""
    section = re.search(r"\n## Undefined on purpose\n(.*?)(?=\n## |\Z)", document, re.S)
    pairs = set()
    for line in (section[1] if section else "").splitlines():
        cells = [cell.strip() for cell in line.strip().strip("|").split(" | ")]
        if len(cells) == 3 and line.startswith("| `"):
            for call in re.findall(r"`(\w+)`", cells[0]):
                for argument in re.findall(r"`(\w+)`", cells[1]):
                    pairs.add((call, argument))
    return pairs


def main():
    root = pathlib.Path(sys.argv[1])
    calls = entry_points(root / "include")
    ways = tried((root / "tests/faults/hostile_arguments_test.cpp").read_text())
    rows = documented((root / "docs/reliability.md").read_text())

    wrong, arguments = [], 0
    for call, parameters in calls.items():
        for argument, pointer, queue in parameters:
            arguments += 1
            key = (call, re.sub(r"^arg\d+$", "arg1", argument))
            how = ways.get(key, set())
            wanted = {"handle"} if queue else {"null", "never"} if pointer else {"ints", "someInts"}
            if not how & wanted:
                wrong.append(f"{call}({argument}) is not tried with {' or '.join(sorted(wanted))}")
            if how & {"someInts", "never"} and key not in rows:
                wrong.append(f"{call}({argument}): what is undefined stands in no row of docs/reliability.md")
    known = {(call, argument) for call, parameters in calls.items() for argument, _, _ in parameters}
    known |= {("taskSpawn", "arg1")}
    wrong += [f"the test tries {call}({argument}), which is no argument" for call, argument in sorted(set(ways) - known)]
    wrong += [f"docs/reliability.md: {call}({argument}) is no argument" for call, argument in sorted(rows - known)]
    if arguments < 100:
        wrong.append(f"only {arguments} arguments were found in the headers")
    print("\n".join(wrong) or f"{arguments} arguments of {len(calls)} C entry points; {len(rows)} partly undefined")
    return 1 if wrong else 0


sys.exit(main())
