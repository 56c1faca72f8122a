#!/usr/bin/env python3
"""The shipped files: names, full RELRO, no executable or writable code, no run path, canaries, fortified calls, programs
that can stand anywhere, no constructors of our own, and signed return addresses on 64-bit Arm. A program that is built
without all of these must be found out."""
import argparse
import pathlib
import re
import subprocess
import sys
import tempfile


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def unsigned_functions(objdump, file):
    """The functions of an object that save their return address without having signed it."""
    names = []
    for function in re.split(r"\n\n(?=[0-9a-f]+ <)", output(objdump, "-dr", "--no-show-raw-insn", file)):
        if match := re.search(r"^[0-9a-f]+ <(.+)>:$", function, re.M):
            saves = re.search(r"\t(stp|str)\t.*\bx30\b.*\[sp", function)
            if saves and not re.search(r"\tpaciasp\b", function[:saves.start()]):
                names.append(match[1])
    return names


class Checks:
    def __init__(self, arguments):
        self.arguments = arguments
        self.wrong = []

    def must(self, condition, file, what):
        if not condition:
            self.wrong.append(f"{pathlib.Path(file).name}: {what}")

    def read(self, file, *options):
        return output(self.arguments.readelf, "-W", *options, file)

    def linked(self, file):
        """What holds for libraries and programs alike."""
        text = self.read(file, "-h", "-d", "-l")
        self.must("GNU_RELRO" in text and re.search(r"FLAGS.*(BIND_)?NOW", text), file, "not full RELRO")
        self.must(re.search(r"GNU_STACK.* RW ", text), file, "executable stack")
        self.must(not re.search(r"LOAD .* RWE ", text), file, "memory that can be written and executed")
        self.must("TEXTREL" not in text, file, "relocations in code")
        self.must(re.search(r"Type: +DYN", text), file, "cannot stand at any address")
        self.must("__stack_chk_fail" in self.read(file, "--dyn-syms"), file, "no stack canaries")
        return text

    def library(self, file):
        text = self.linked(file)
        name = re.search(r"(libkel_\w+)\.so", file)[1]
        self.must(f"Library soname: [{name}.so.0]" in text, file, "another soname")
        self.must("SYMBOLIC" not in text, file, "linked with -Bsymbolic")
        if self.arguments.optimised: # a program may call nothing that can be fortified
            self.must(re.search(r" __\w+_chk@", self.read(file, "--dyn-syms")), file, "no fortified calls")

    def object(self, file):
        self.must(not re.search(r"\.(init_array|ctors|fini_array|dtors)\b", self.read(file, "-S")), file,
                  "code of ours runs when the library is loaded")
        if self.arguments.architecture == "aarch64":
            names = unsigned_functions(self.arguments.objdump, file)
            self.must(not names, file, f"saves an unsigned return address: {', '.join(names)}")

    def no_run_path(self, file):
        self.must(not re.search(r"\((RUNPATH|RPATH)\)", self.read(file, "-d")), file, "has a run path")

    def installed(self, build):
        """What is installed has no run path (what is only built finds its libraries by one), and is the same from any
        folder."""
        with tempfile.TemporaryDirectory() as folder:
            output("cmake", "--install", build, "--prefix", folder)
            files = [file for file in pathlib.Path(folder).rglob("*")
                     if file.is_file() and not file.is_symlink() and file.read_bytes()[:4] == b"\x7fELF"]
            self.must(len(files) >= 2, folder, "nothing is installed")
            for file in files:
                self.no_run_path(file)
                if self.arguments.optimised:
                    self.must(self.arguments.source.encode() not in file.read_bytes(), file,
                              "names the folder in which it was built")
            return len(files)


SOFT = """
#include <stdio.h>
__attribute__((constructor)) static void early(void) { puts("early"); }
int main(void) { char text[64]; return scanf("%60s", text); }
"""


def overlooked(arguments):
    """What the checks do not find in a program that has none of all this."""
    unsigned = ["-mbranch-protection=none"] if arguments.architecture == "aarch64" else []
    with tempfile.TemporaryDirectory() as folder:
        source, made, file = (str(pathlib.Path(folder) / name) for name in ("soft.c", "soft.o", "soft"))
        pathlib.Path(source).write_text(SOFT)
        output(arguments.compiler, "-fno-stack-protector", "-fno-pie", *unsigned, "-c", source, "-o", made)
        output(arguments.compiler, "-no-pie", *(f"-Wl,-z,{word}" for word in ("norelro", "lazy", "execstack")),
               "-Wl,-rpath,/nowhere", made, "-o", file)
        checks = Checks(arguments)
        checks.linked(file)
        checks.no_run_path(file)
        checks.object(made)
        found = "\n".join(checks.wrong)
    expected = ["not full RELRO", "executable stack", "cannot stand at any address", "no stack canaries", "has a run path",
                "code of ours runs"] + (["unsigned return address: "] if unsigned else [])
    return [f"not noticed in a program built to have it: {what}" for what in expected if what not in found]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--readelf", required=True)
    parser.add_argument("--objdump", required=True)
    parser.add_argument("--compiler", required=True, help="for C")
    parser.add_argument("--architecture", required=True)
    parser.add_argument("--optimised", type=int, default=0, help="1: calls of the C library are fortified")
    parser.add_argument("--build", help="a build that can be installed")
    parser.add_argument("--source", default="", help="folder of the tree")
    parser.add_argument("--objects", default="", help="of the libraries, separated by ;")
    parser.add_argument("--libraries", nargs="+", required=True)
    parser.add_argument("--programs", nargs="*", default=[])
    arguments = parser.parse_args()

    checks = Checks(arguments)
    for file in filter(None, arguments.libraries):
        checks.library(file)
    for file in filter(None, arguments.programs):
        checks.linked(file)
    objects = list(filter(None, arguments.objects.split(";")))
    for file in objects:
        checks.object(file)
    checks.must(objects, "build", "no objects to look at")
    checks.wrong += overlooked(arguments)
    installed = checks.installed(arguments.build) if arguments.build else 0
    print("\n".join(checks.wrong) or f"hardened; {len(objects)} objects, {installed} installed files")
    return 1 if checks.wrong else 0


sys.exit(main())
