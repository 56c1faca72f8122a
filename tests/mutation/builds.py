"""A built tree of the project, and how to get from it to a library with one source changed.

Nothing in the built tree is touched: what depends on the changed source is compiled again, without optimisation, into a
folder of its own, and linked there with all that stayed as it was. Tests find the changed library first.
"""
import json
import os
import pathlib
import re
import resource
import shlex
import shutil
import signal
import subprocess
import time

LIBRARY = "src/libkel_utils.so"
PLATFORM = "platform/standin"  # whose library a changed one does not find beside itself
# Tests of what is built on top, or of texts and files; they say little about a source of the library. Those of ported
# sources also start more tasks than a mutant has addresses for.
OTHERS_TESTS = ("tests/portd/", "tests/platform/", "tests/contract/", "tests/porting/", "examples/", "bench/", "apps/")


class CommandFailed(Exception):
    pass


class CompileError(CommandFailed):
    """The mutant's own; any other failure is the tree's."""


def quiet(command, folder, failure=CommandFailed):
    done = subprocess.run(command, cwd=folder, shell=isinstance(command, str), stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode != 0:
        raise failure(done.stdout)
    return done.stdout


def symbols(listing):
    """The names that nm lists, without versions."""
    return {line.split()[-1].split("@")[0] for line in listing.splitlines() if len(line.split()) > 1}


class Test:
    def __init__(self, described, folder):
        command = described["command"]
        self.name = described["name"]
        self.program = os.path.relpath(command[0], folder)
        self.arguments = command[1:]
        properties = {each["name"]: each["value"] for each in described["properties"]}
        self.folder = properties["WORKING_DIRECTORY"]
        self.environment = dict(each.split("=", 1) for each in properties.get("ENVIRONMENT", []))
        self.seconds = None  # how long it takes when nothing is changed

    def room(self):
        return pathlib.PurePath(self.program).parts[1:-1]


class Build:
    def __init__(self, top, preset):
        self.top = pathlib.Path(top)
        self.preset = preset
        self.folder = self.top / "build" / preset

    def configure(self, jobs):
        quiet(["cmake", "--preset", self.preset], self.top)
        # All of it: of a test whose program is not there yet, ctest does not say what it runs.
        quiet(["cmake", "--build", "--preset", self.preset, f"-j{jobs}"], self.top)
        described = json.loads(quiet(["ctest", "--show-only=json-v1"], self.folder))["tests"]
        self.tests = [Test(each, self.folder) for each in described if self.is_ours(each)]
        self.compiles = {}
        for entry in json.loads((self.folder / "compile_commands.json").read_text()):
            words = shlex.split(entry["command"])
            self.compiles[words[words.index("-o") + 1]] = (words, entry["file"])
        self.links = {}
        for command in quiet("ninja -t commands", self.folder).splitlines():
            output = re.search(r" -o (\S+) ", command)
            if output and " -c " not in command:
                self.links[output.group(1)] = command
        self.library = next(output for output in self.links if output.startswith(LIBRARY))
        self.dependents = self.read_dependents()

    def exports_of(self, room):
        """The names that the sources in a folder of src/ define, "" for those beside the folders."""
        folder = "src/CMakeFiles/kel_utils.dir/" + (f"{room}/" if room else "")
        objects = [word for word in self.links[self.library].split()
                   if word.endswith(".o") and os.path.dirname(word) + "/" == folder]
        return symbols(quiet(["nm", "--defined-only", "--extern-only", *objects], self.folder))

    def names_used_by(self, test):
        return symbols(quiet(["nm", "-D", "--undefined-only", test.program], self.folder))

    def is_ours(self, described):
        properties = {each["name"] for each in described.get("properties", [])}
        if properties & {"PASS_REGULAR_EXPRESSION", "WILL_FAIL", "DISABLED"}:
            return False  # one that is meant to fail says nothing here
        program = os.path.relpath(described["command"][0], self.folder)
        return program.startswith(("tests/", "fuzz/")) and not program.startswith(OTHERS_TESTS)

    def read_dependents(self):
        """For each file of src/, the objects made from it."""
        dependents, target = {}, None
        for line in quiet("ninja -t deps", self.folder).splitlines():
            if not line.startswith(" "):
                target = line.split(":")[0]
            elif line.strip() and "/src/" in line and target in self.compiles:
                file = os.path.relpath(os.path.join(self.folder, line.strip()), self.top)
                dependents.setdefault(file, set()).add(target)
        return dependents

    def rebuild(self, path, text, work):
        """Builds what depends on the source `path` with `text` in its place; returns the programs built anew."""
        self.place(path, text, work)
        programs = {self.library} | {test.program for test in self.tests if test.seconds is not None}
        new_objects = {}
        for target in sorted(self.dependents.get(path, ())):
            if any(f" {target} " in self.links.get(output, "") for output in programs):
                new_objects[target] = self.compile(target, path, work)
        return {output: self.link(output, new_objects, work) for output in programs
                if any(f" {target} " in self.links.get(output, "") for target in new_objects)}

    def optimised(self, path, text, work):
        """The machine code of the library's objects that depend on the source, as it is shipped."""
        self.place(path, text, work)
        targets = [target for target in sorted(self.dependents.get(path, ())) if f" {target} " in self.links[self.library]]
        return [self.compile(target, path, work, ["-g0", "-w"]).read_bytes() for target in targets]

    def place(self, path, text, work):
        """Puts the changed source into a copy of its folder, where its neighbours find it as well."""
        folder = os.path.dirname(path)
        (work / folder).mkdir(parents=True, exist_ok=True)
        for neighbour in (self.top / folder).iterdir():
            if neighbour.is_file():
                shutil.copyfile(neighbour, work / folder / neighbour.name)
        (work / path).write_text(text)

    def compile(self, target, path, work, flags=("-O0", "-g0", "-w")):
        words, source = self.compiles[target]
        output = work / target.replace("/", "_")
        words = [word for word in words if word != "-Werror"]
        words[words.index("-o") + 1] = str(output)
        if os.path.dirname(os.path.relpath(source, self.top)) == os.path.dirname(path):
            words[words.index("-c") + 1] = str(work / os.path.relpath(source, self.top))
        words.insert(1, f"-I{work / 'src'}")  # where a changed header is found first
        quiet(words + list(flags), self.folder, CompileError)
        return output

    def link(self, output, new_objects, work):
        result = work / (pathlib.Path(LIBRARY).name + ".0" if output == self.library else output.replace("/", "_"))
        command = self.links[output].replace(f" -o {output} ", f" -o {result} ")
        for old, new in new_objects.items():
            command = command.replace(f" {old} ", f" {new} ")
        quiet(command, self.folder, CompileError)
        return result

    def run(self, test, limit, built, work):
        """Whether the test passes within `limit` seconds: "" or what became of it."""
        program = built.get(test.program, self.folder / test.program)
        environment = dict(os.environ, **test.environment)
        environment.update(LD_LIBRARY_PATH=f"{work}:{self.folder / PLATFORM}",
                           GTEST_FAIL_FAST="1", GTEST_BRIEF="1", GTEST_COLOR="no")
        # Not for the address sanitizer, whose watching thread would pass for a leak where a test replaces calloc().
        environment["TSAN_OPTIONS"] = environment.get("TSAN_OPTIONS", "") + ":hard_rss_limit_mb=3000"
        plain = self.preset in ("release", "debug")
        started = time.monotonic()
        with subprocess.Popen([program, *test.arguments], cwd=test.folder, env=environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True,
                              preexec_fn=lambda: set_limits(plain)) as process:
            try:
                status = process.wait(limit)
            except subprocess.TimeoutExpired:
                status = None
            finally:
                end_session(process.pid)
        self.last_seconds = time.monotonic() - started
        if status is None:
            return f"{test.name} does not end"
        return "" if status == 0 else f"{test.name} ends with {status}"


def set_limits(plain):
    """A mutant may print or allocate without end; a sanitizer's shadow needs all the addresses there are."""
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_FSIZE, (256 << 20, 256 << 20))
    if plain:
        resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))


def end_session(leader):
    """Ends a test and what it forked."""
    try:
        os.killpg(leader, signal.SIGKILL)
    except ProcessLookupError:
        pass
