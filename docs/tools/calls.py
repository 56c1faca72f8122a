#!/usr/bin/env python3
"""Prints the tables of calls, made from the tags in the public headers: calls.py XML-FOLDER."""
import itertools
import sys

from doxygen_xml import TAGS, functions

HEAD = """# Calls: what waits, what locks, from where

Which calls can wait, which locks they take, and from where they may be called: what the three tags at each declaration say,
in tables. `scripts/docs` makes them. A member function without a row is like the call that its description names, or like
its class.

"""
PLATFORM = {"kel_platform.h", "kel_standin.h"}


def cell(text):
    return text.replace("|", "\\|")


def main():
    print(HEAD, end="")
    tagged = [function for function in functions(sys.argv[1])
              if function.header not in PLATFORM and set(TAGS) <= set(function.tags)]
    for header, group in itertools.groupby(tagged, key=lambda function: function.header):
        print(f"## {header}\n\n| Call | Waits | Locks | May be called from |\n|---|---|---|---|")
        # Neighbours that say the same share a row.
        rows = itertools.groupby(group, key=lambda function: (function.scope, *(function.tags[tag] for tag in TAGS)))
        for (scope, *said), calls in rows:
            names = dict.fromkeys(f"`{scope + '::' if scope else ''}{call.name}()`" for call in calls)
            print(f"| {' '.join(names)} | {' | '.join(map(cell, said))} |")
        print()


main()
