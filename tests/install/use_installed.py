#!/usr/bin/env python3
"""Builds and runs four programs against installed libraries: in C and C++, found by pkg-config and by CMake.

  use_installed.py                     those in /usr
  use_installed.py --build FOLDER      those of a build: installs it to one prefix, moves that to another, uses the latter

Each is linked twice, once more with -Wl,--no-undefined, and a version from the future must not be found."""
import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

SOURCES = pathlib.Path(__file__).resolve().parent / "consumer"
EXPECTED = {"c": "C: event 5 says 17\n",
            "cpp": "C++: system port 1, 3 bits, 192.0.2.1, block 1, timer 1, version 0x1000001\n"}
LINKINGS = [[], ["-Wl,--no-undefined"]]
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]


def run(*command, env=None):
    """Runs a command and returns what it printed; what it said is shown if it fails."""
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True, env=env)
    if result.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}: status {result.returncode}\n{result.stdout}{result.stderr}")
    return result.stdout


class Consumers:
    """The programs, the compilers for them, and how to run what these make."""

    def __init__(self, arguments, prefix, work):
        self.arguments, self.prefix, self.work, self.used = arguments, prefix, work, 0
        self.environment = dict(os.environ)
        if prefix is not None:
            folders = {library.parent for library in prefix.rglob("libkel_utils.so.0")}
            self.environment["LD_LIBRARY_PATH"] = os.pathsep.join(map(str, folders))
            # Before the folders it would search anyway: other packages of the system may be needed beside.
            self.environment["PKG_CONFIG_PATH"] = os.pathsep.join(str(folder / "pkgconfig") for folder in folders)

    def expect(self, language, program):
        printed = run(*filter(None, [self.arguments.emulator]), program, env=self.environment)
        if printed != EXPECTED[language]:
            sys.exit(f"{program} printed {printed!r}")
        self.used += 1

    def by_pkg_config(self):
        compilers = {"c": [self.arguments.cc, "-std=c99"], "cpp": [self.arguments.cxx, "-std=c++11"]}
        packages = {"c": ["kel_utils"], "cpp": ["kel_utils", "kel_platform"]}
        for language, compiler in compilers.items():
            flags = run("pkg-config", "--cflags", *packages[language], env=self.environment).split()
            libraries = run("pkg-config", "--libs", *packages[language], env=self.environment).split()
            for linking in LINKINGS:
                program = self.work / f"by_pkg_config_{language}"
                run(*compiler, *WARNINGS, *flags, SOURCES / f"consumer.{language}", "-o", program, *linking, *libraries)
                self.expect(language, program)
        if subprocess.run(["pkg-config", "--atleast-version=2", "kel_utils"], env=self.environment).returncode == 0:
            sys.exit("pkg-config finds version 2")

    def by_cmake(self):
        options = [f"-DCMAKE_C_COMPILER={self.arguments.cc}", f"-DCMAKE_CXX_COMPILER={self.arguments.cxx}",
                   f"-DCMAKE_C_FLAGS={' '.join(WARNINGS)}", f"-DCMAKE_CXX_FLAGS={' '.join(WARNINGS)}"]
        if self.arguments.toolchain:
            options = [f"-DCMAKE_TOOLCHAIN_FILE={self.arguments.toolchain}"]
        if self.prefix is not None:
            # Without a run path, what the library itself needs is found only if the package says where it is.
            options += [f"-DCMAKE_PREFIX_PATH={self.prefix}", "-DCMAKE_SKIP_RPATH=ON"]
        for number, linking in enumerate(LINKINGS):
            build = self.work / f"by_cmake_{number}"
            run("cmake", "-S", SOURCES, "-B", build, *options, f"-DCMAKE_EXE_LINKER_FLAGS={' '.join(linking)}")
            run("cmake", "--build", build)
            for language in EXPECTED:
                self.expect(language, build / f"consumer_{language}")
        project = self.work / "future"
        project.mkdir()
        (project / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.16)\nproject(future LANGUAGES C CXX)\nfind_package(kel_utils 2.0 QUIET)\n"
            "if(kel_utils_FOUND OR NOT kel_utils_CONSIDERED_VERSIONS)\n    message(FATAL_ERROR \"version 2\")\nendif()\n")
        run("cmake", "-S", project, "-B", project / "build", *options)


def moved_installation(build, work):
    """Installs a build to one place, moves it to another, and returns that."""
    first, second = work / "first", work / "elsewhere" / "second"
    run("cmake", "--install", build, "--prefix", first)
    second.parent.mkdir()
    first.rename(second)
    wanted = ["include/kel_utils/vxw_shim.h", "include/kel_utils/sysport.h", "share/kel_utils/lsan.supp",
              "share/kel_utils/tsan.supp", "lib/systemd/system/kel-portd.service", "bin/kel-port-lint", "share/doc/kel_utils/examples/first_client.c"]
    missing = [name for name in wanted if not (second / name).exists()]
    if len(list(second.rglob("libkel_utils.so.*-gdb.py"))) != 1:
        missing.append("the debugger's file")
    for library in second.rglob("libkel_*.so*"):
        if library.is_symlink() and not library.exists():
            missing.append(f"what {library} leads to")
    texts = [file for file in second.rglob("*") if file.suffix in (".cmake", ".pc")]
    missing += [f"{file} without the first prefix in it" for file in texts if str(first) in file.read_text()]
    if missing or len(texts) < 5:
        sys.exit(f"not installed: {missing} ({len(texts)} files to find it by)")
    return second


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build")
    parser.add_argument("--cc", default="cc")
    parser.add_argument("--cxx", default="c++")
    parser.add_argument("--emulator", default="")
    parser.add_argument("--toolchain", default="")
    arguments = parser.parse_args()
    work = pathlib.Path(tempfile.mkdtemp(prefix="kel-install-"))
    try:
        prefix = moved_installation(arguments.build, work) if arguments.build else None
        consumers = Consumers(arguments, prefix, work)
        consumers.by_pkg_config()
        consumers.by_cmake()
        print(f"{consumers.used} programs built and run")
        return 0 if consumers.used == 2 * len(EXPECTED) * len(LINKINGS) else 1
    finally:
        shutil.rmtree(work)


sys.exit(main())
