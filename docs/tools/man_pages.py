#!/usr/bin/env python3
"""Writes a manual page of section 3 for each exported C call: man_pages.py XML-FOLDER MAP VERSION OUTPUT-FOLDER."""
import pathlib
import re
import sys

from doxygen_xml import functions

DATE = "November 21, 2026"


def exported_c_names(map_file):
    return set(re.findall(r"^\s*(\w+);", pathlib.Path(map_file).read_text(), re.M))


def escaped(text):
    """Text for the formatter: nothing in it is taken for a request, and a sentence starts a line."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    lines = re.sub(r"(?<=[a-z0-9)])([.]) (?=[A-Z])", r"\1\n", text).split("\n")
    return "\n".join("\\&" + line if line.startswith((".", "'")) else line for line in lines)


def quoted(text):
    return '"' + text.replace('"', '\\(dq').strip() + '"'


def page(function, version, neighbours):
    lines = [f".Dd {DATE}", f".Dt {function.name.upper()} 3", f".Os kel_utils {version}", ".Sh NAME",
             f".Nm {function.name}", f".Nd {escaped(function.brief.rstrip('.')).replace(chr(10), ' ')}",
             ".Sh LIBRARY", "libkel_utils (\\-lkel_utils)", ".Sh SYNOPSIS",
             f".In {function.header}", f".Ft {quoted(function.returns)}", f".Fo {function.name}"]
    lines += [f".Fa {quoted(kind + ('' if kind.endswith('*') else ' ') + name)}" for kind, name in function.arguments]
    lines += [".Fa void"] if not function.arguments else []
    lines += [".Fc", ".Sh DESCRIPTION", escaped(function.brief)]
    for paragraph in function.paragraphs:
        lines += [".Pp", escaped(paragraph)]
    if function.parameters:
        lines += [".Pp", "The arguments are:", ".Bl -tag -width Ds"]
        for names, text in function.parameters:
            lines += [f".It Fa {names.replace(', ', ' , ')}", escaped(text)]
        lines += [".El"]
    if function.returned or function.results:
        lines += [".Sh RETURN VALUES"]
        lines += [escaped(function.returned)] if function.returned else []
        if function.results:
            lines += [".Bl -tag -width Ds"]
            for value, text in function.results:
                lines += [f".It {escaped(value)}", escaped(text)]
            lines += [".El"]
    lines += [".Sh CONCURRENCY", ".Bl -tag -width Ds"]
    for tag, title in (("Blocking", "waits"), ("Locks", "takes"), ("Context", "from")):
        lines += [f".It {title}", escaped(function.tags[tag])]
    lines += [".El", ".Sh SEE ALSO"]
    lines += [f".Xr {name} 3 ," for name in neighbours[:-1]] + [f".Xr {name} 3" for name in neighbours[-1:]]
    return "\n".join(lines) + "\n"


def main():
    xml, map_file, version, output = sys.argv[1:]
    wanted = exported_c_names(map_file)
    calls = {}
    for function in functions(xml):
        if not function.scope and function.name in wanted:
            calls[function.name] = function
    folder = pathlib.Path(output)
    folder.mkdir(parents=True, exist_ok=True)
    for name, function in calls.items():
        if missing := {"Blocking", "Locks", "Context"} - set(function.tags):
            sys.exit(f"{function.header}:{function.line}: {name}() does not say: {', '.join(sorted(missing))}")
        neighbours = sorted(other for other in calls if other != name and calls[other].header == function.header)
        (folder / f"{name}.3").write_text(page(function, version, neighbours))
    data = {"mutex_sem_t", "msg_q_x_test_id", "msg_q_x_test_sem"}
    if absent := wanted - set(calls) - data:
        sys.exit(f"exported and not in the reference: {', '.join(sorted(absent))}")
    print(f"{len(calls)} manual pages")


main()
