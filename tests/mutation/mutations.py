"""Which small mistakes a source could have: each is one line that reads a little differently.

A mutation is known by its file, the line before, the line after, and how many equal lines come first: never by a line
number, so that work elsewhere in a file does not change which mutations are chosen or what was found about them.
Works on the tree's own formatting (clang-format): binary operators stand between spaces, unary ones do not.
"""
import dataclasses
import hashlib
import itertools
import re

# Kinds in the order in which a file's share is dealt out, one of each and round again.
KINDS = ("lock", "statement", "condition", "comparison", "logic", "arithmetic", "constant", "arguments")

INSTEAD = {
    "comparison": {"<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"), "==": ("!=",), "!=": ("==",)},
    "logic": {"&&": ("||",), "||": ("&&",), "&": ("|",), "|": ("&",), "^": ("|",), "|=": ("&=",), "&=": ("|=",)},
    "arithmetic": {"+": ("-",), "-": ("+",), "*": ("/",), "/": ("*",), "%": ("/",), "<<": (">>",), ">>": ("<<",),
                   "+=": ("-=",), "-=": ("+=",), "<<=": (">>=",), ">>=": ("<<=",)},
}
BINARY = re.compile(r"(?<=[\w)\]'\"] )([-+*/%<>=!&|^]{1,3})(?= |$)")
STEP = re.compile(r"(?<![-+])(\+\+|--)(?![-+])")
NOT = re.compile(r"(?<![\w)\]])[!~](?=[\w(])")
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f]+|\d+)([uUlL]*)(?![\w.'])")
TRUTH = re.compile(r"\b(true|false)\b")
LOCK = re.compile(r"(const )?([\w:]*Lock|std::(lock_guard|scoped_lock|unique_lock)(<.*>)?) \w+\(.*\);"
                  r"|(semTake|semGive|pthread_mutex_(un)?lock)\(.*\);")
# A call, an assignment or a step: one word or path and then an operator, unlike a declaration's two words.
STATEMENT = re.compile(r"(?:delete(\[\])? \w+|\(void\).*|[*+-]*[\w:.\[\]>()*-]+( ?[-+*/%&|^<>]{0,2}= .*|\(.*\)|\+\+|--)?);")
NO_STATEMENT = re.compile(r"(return|using|namespace|static_assert|friend|typedef|goto|public|private|extern|throw)\b|.*= (delete|default|0);$")
CONDITION = re.compile(r"\b(if|while|for) \(")
CHOICE = re.compile(r"(?:return | = |\()([^?;=]*[^?;= ]) \? ")
CALL_OF_TWO = re.compile(r"(\w+)\(([\w.*&>\[\]-]+), ([\w.*&>\[\]-]+)\)")
COMMUTES = {"min", "max", "sum", "swap"}


@dataclasses.dataclass(frozen=True)
class Mutation:
    path: str  # of the source, from the top of the tree
    kind: str
    line: int  # where it is at the moment; 0 is the first
    before: str  # the whole line
    after: str
    repeat: int  # how many of the lines further up are equal to `before`

    def key(self):
        return "\t".join((self.path, self.kind, str(self.repeat), self.before.strip(), self.after.strip()))

    def rank(self, seed):
        return hashlib.sha256(f"{seed}\t{self.key()}".encode()).hexdigest()

    def apply(self, text):
        lines = text.split("\n")
        assert lines[self.line] == self.before
        lines[self.line] = self.after
        return "\n".join(lines)


def code_only(text):
    """The text with comments, string and character literals, directives and static assertions as blanks."""
    literal = r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"' + r"|(?<!\w)'(?:\\.|[^'\\\n])+'"

    def blank(match):
        found = match.group()
        if found[0] in "\"'":
            return found[0] + " " * (len(found) - 2) + found[0]
        return re.sub(r"[^\n]", " ", found)

    text = re.sub(literal, blank, text, flags=re.S)
    text = re.sub(r"^[ \t]*#(?:[^\n\\]|\\.)*", blank, text, flags=re.M | re.S)
    return re.sub(r"\bstatic_assert\(.*?\);|\bKEL_[A-Z_]+\([^()]*\)|\boperator\S+\(", blank, text, flags=re.S)


def closing(line, opening):
    """The position of the parenthesis that closes the one at `opening`, or -1 when it is on another line."""
    depth = 0
    for position in range(opening, len(line)):
        depth += {"(": 1, ")": -1}.get(line[position], 0)
        if depth == 0:
            return position
    return -1


def variants(code, starts_statement):
    """(kind, first, last, replacement) for each mistake that this line could have."""
    for match in BINARY.finditer(code):
        for kind, instead in INSTEAD.items():
            for other in instead.get(match.group(1), ()):
                yield kind, match.start(1), match.end(1), other
    for match in STEP.finditer(code):
        yield "arithmetic", *match.span(), "--" if match.group() == "++" else "++"
    for match in NOT.finditer(code):
        yield "logic", *match.span(), ""
    for match in NUMBER.finditer(code):
        value = int(match.group(1), 0)
        form = hex if match.group(1).startswith("0x") else str
        for other in (value + 1, value - 1):
            if other >= 0:
                yield "constant", *match.span(1), form(other)
    for match in TRUTH.finditer(code):
        yield "constant", *match.span(), "false" if match.group() == "true" else "true"
    for match in CONDITION.finditer(code):
        yield from negated(code, match)
    for match in CHOICE.finditer(code):
        if match.group(1).count("(") == match.group(1).count(")"):
            yield "condition", *match.span(1), f"!({match.group(1)})"
    for match in CALL_OF_TWO.finditer(code):
        if match.group(1) not in COMMUTES and match.group(2) != match.group(3):
            yield "arguments", match.start(2), match.end(3), f"{match.group(3)}, {match.group(2)}"
    statement = code.strip()
    if starts_statement and statement:
        first = code.index(statement[0])
        if LOCK.fullmatch(statement):
            yield "lock", first, first + len(statement), ";"
        elif STATEMENT.fullmatch(statement) and not NO_STATEMENT.match(statement):
            yield "statement", first, first + len(statement), ";"


def is_one_comparison(condition):
    """Its opposite is already among the comparisons."""
    operators = [match.group(1) for match in BINARY.finditer(condition)]
    return sum(operator in INSTEAD["comparison"] for operator in operators) == 1 and not {"&&", "||"} & set(operators)


def negated(code, match):
    last = closing(code, match.end() - 1)
    first = match.end()
    if last < 0:
        return
    if match.group(1) == "for":
        parts = code[first:last].split(";")
        if len(parts) != 3 or not parts[1].strip():
            return
        first += len(parts[0]) + 2
        last = first + len(parts[1].strip())
    elif ";" in code[first:last] or " = " in code[first:last]:
        return
    if is_one_comparison(code[first:last]):
        return
    yield "condition", first, last, f"!({code[first:last]})"


def mutations_of(path, text):
    """Every mutation of a source, in the order of its lines."""
    found, seen, previous = [], {}, ";"
    for number, (line, code) in enumerate(zip(text.split("\n"), code_only(text).split("\n"))):
        repeat = seen.get(line, 0)
        seen[line] = repeat + 1
        starts_statement = previous[-1] in ";{}:)" or previous.endswith("else")
        for kind, first, last, other in variants(code, starts_statement):
            # What stands in literals is taken from the line itself: only whole tokens outside of them are replaced.
            if kind in ("condition", "arguments"):
                other = other.replace(code[first:last], line[first:last])
            after = line[:first] + other + line[last:]
            found.append(Mutation(path, kind, number, line, after, repeat))
        previous = code.strip() or previous
    return found


def dealt(mutations, seed):
    """The mutations of one file in the order in which they are tried: kind by kind and round again."""
    by_kind = [sorted((m for m in mutations if m.kind == kind), key=lambda m: m.rank(seed)) for kind in KINDS]
    rounds = itertools.zip_longest(*by_kind)
    return [mutation for one_of_each in rounds for mutation in one_of_each if mutation is not None]


def shares(sizes, count):
    """Splits `count` over the files by size, at least one each, the largest remainders first."""
    total = sum(sizes.values())
    exact = {path: count * size / total for path, size in sizes.items()}
    share = {path: max(1, int(part)) for path, part in exact.items()}
    for path in sorted(exact, key=lambda path: (int(exact[path]) - exact[path], path)):
        if sum(share.values()) >= count:
            break
        share[path] += 1
    return share
