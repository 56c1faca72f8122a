"""Mutants that no test can notice: equivalent.txt holds for each the source, the line before and after, and the reason.

    src/queues/ring.h
    - if (a < b)
    + if (a <= b)
    = when both are equal, either branch does the same
"""


def name(mutation):
    return mutation.path, mutation.before.strip(), mutation.after.strip()


def read(file):
    """The reasons by (source, line before, line after). A "#" starts a comment; blank lines mean nothing."""
    reasons = {}
    path = before = after = None
    for line in file.read_text().splitlines():
        mark, rest = line[:2], line[2:].strip()
        if mark == "- ":
            before = rest
        elif mark == "+ ":
            after = rest
        elif mark == "= ":
            reasons[path, before, after] = rest
        elif mark == "  ":
            reasons[path, before, after] += " " + rest
        elif line.strip() and not line.startswith("#"):
            path = line.strip()
    return reasons


def outdated(reasons, texts):
    """The entries whose line is no longer in its source."""
    lines = {path: {line.strip() for line in text.splitlines()} for path, text in texts.items()}
    return [f"{path}: {before}" for path, before, after in reasons if before not in lines.get(path, {before})]
