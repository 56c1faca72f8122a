"""What the mutations are, and that they are the same ones again when the rest of a source changes."""
import pathlib
import sys
import unittest

import equivalents
import mutations

SOURCE = """// room.cpp: a < b in a comment is no comparison.
#include <limits.h>
static_assert(sizeof(int) == 4);

int clampedSum(Room &room, int a, int b)
{
    SemLock hold(room.lock);
    const char *text = "a < b && c";
    if (a < b && room.isOpen(a, b))
        return 31;
    room.count += a;
    note(text);
    return a == 0 ? b : -1;
}
"""


def lines_after(source, kind):
    return [mutation.after.strip() for mutation in mutations.mutations_of("src/room.cpp", source) if mutation.kind == kind]


class EachKind(unittest.TestCase):
    def test_comparisons_are_moved_and_turned_but_not_in_comments_texts_and_directives(self):
        self.assertEqual(["if (a <= b && room.isOpen(a, b))", "if (a >= b && room.isOpen(a, b))", "return a != 0 ? b : -1;"],
                         lines_after(SOURCE, "comparison"))

    def test_logic_is_exchanged(self):
        self.assertEqual(["if (a < b || room.isOpen(a, b))"], lines_after(SOURCE, "logic"))

    def test_conditions_are_negated_unless_they_are_one_comparison(self):
        self.assertEqual(["if (!(a < b && room.isOpen(a, b)))"], lines_after(SOURCE, "condition")[:1])
        self.assertEqual([], lines_after("{\nif (a < b)\n", "condition"))

    def test_arithmetic_is_exchanged(self):
        self.assertEqual(["room.count -= a;"], lines_after(SOURCE, "arithmetic"))

    def test_constants_are_one_more_or_one_less(self):
        self.assertEqual(["return 32;", "return 30;", "return a == 1 ? b : -1;", "return a == 0 ? b : -2;", "return a == 0 ? b : -0;"],
                         lines_after(SOURCE, "constant"))

    def test_locks_are_dropped(self):
        self.assertEqual([";"], lines_after(SOURCE, "lock"))

    def test_statements_are_dropped_but_not_declarations(self):
        self.assertEqual([";", ";"], lines_after(SOURCE, "statement"))

    def test_arguments_are_swapped(self):
        self.assertEqual(["if (a < b && room.isOpen(b, a))"], lines_after(SOURCE, "arguments"))

    def test_a_mutation_changes_its_line_and_nothing_else(self):
        for mutation in mutations.mutations_of("src/room.cpp", SOURCE):
            mutant = mutation.apply(SOURCE).split("\n")
            differing = [line for line, (was, now) in enumerate(zip(SOURCE.split("\n"), mutant)) if was != now]
            self.assertEqual([mutation.line], differing)


class Choice(unittest.TestCase):
    def test_lines_added_above_change_neither_names_nor_order(self):
        before = mutations.dealt(mutations.mutations_of("src/room.cpp", SOURCE), 1)
        after = mutations.dealt(mutations.mutations_of("src/room.cpp", "int x;\n\n" + SOURCE), 1)
        self.assertEqual([mutation.key() for mutation in before], [mutation.key() for mutation in after])

    def test_another_seed_is_another_order(self):
        found = mutations.mutations_of("src/room.cpp", SOURCE)
        self.assertNotEqual(mutations.dealt(found, 1), mutations.dealt(found, 2))

    def test_the_first_of_a_file_are_of_different_kinds(self):
        first = mutations.dealt(mutations.mutations_of("src/room.cpp", SOURCE), 1)[:8]
        self.assertEqual(list(mutations.KINDS), [mutation.kind for mutation in first])

    def test_shares_follow_the_sizes_and_add_up(self):
        self.assertEqual({"a": 67, "b": 32, "c": 1}, mutations.shares({"a": 200, "b": 97, "c": 3}, 100))


class Equivalents(unittest.TestCase):
    def test_each_has_a_reason_and_its_line_is_in_its_source(self):
        top = pathlib.Path(__file__).resolve().parents[2]
        reasons = equivalents.read(top / "tests" / "mutation" / "equivalent.txt")
        for (path, before, after), reason in reasons.items():
            self.assertTrue(reason and before != after and (top / path).is_file(), (path, before))

    def test_an_entry_is_outdated_when_its_line_is_gone(self):
        reasons = {("src/room.cpp", "room.count += a;", ";"): "never read"}
        self.assertEqual([], equivalents.outdated(reasons, {"src/room.cpp": SOURCE}))
        self.assertEqual(["src/room.cpp: room.count += a;"],
                         equivalents.outdated(reasons, {"src/room.cpp": SOURCE.replace("+=", "-=")}))


if __name__ == "__main__":
    sys.exit(unittest.main())
