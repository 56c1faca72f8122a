#!/usr/bin/env python3
"""What the debugger shows: of a running process, of its core file, and of an arm64 core in gdb-multiarch."""
import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile

LOCKS = [
    r"thread \d+ \(LWP \d+\) in takePortThenVlan waits for vlanLock: mutual exclusion, "
    r"held by thread \d+ \(LWP \d+\), 2 times",
    r"thread \d+ \(LWP \d+\) in takeVlanThenPort waits for portLock: mutual exclusion, "
    r"held by thread \d+ \(LWP \d+\)",
    r"thread \d+ \(LWP \d+\) in SBaseQ::timer_callback waits for SBaseQ::timerSig: binary, count 0, 1 waiting",
    r"deadlock: thread \d+ \(LWP \d+\) -> thread \d+ \(LWP \d+\) -> thread \d+ \(LWP \d+\)",
    r"3 threads wait",
]
QUEUES = [
    r"0x[0-9a-f]+ multi-event queue 1, 2 of 64 pending, 2 gives held back \{7 = 2 \(changed\), 9 = 500\}",
    r"0x[0-9a-f]+ message queue 2, 1 of 4 messages",
    r"0x[0-9a-f]+ replies fixed message queue, 1 of 8 messages of up to 32 bytes",
    r"2 queues",
    r"due 100000 ticks after tick \d+: 0x[0-9a-f]+ multi-event queue 1, 2 of 64 pending, 2 gives held back \{.*\}",
    r"1 queues age",
]
VALUES = {
    "counted": r"0x[0-9a-f]+ counting, count 3",
    "*counted": r"counting, count 3",
    "none": r"0x0",
    "*mask": r"100 bits \{4-6, 64, 99\}",
    "*emptyMask": r"32 bits \{\}",
    "*matrix": r"2 rows of 40 bits = \{\[0\] = \{\}, \[1\] = \{0, 39\}\}",
    "v4": r"192\.0\.2\.7",
    "v6": r"fe80::1%1",
    "noAddress": r"empty",
    "dnsName": r'DNS name "switch\.example"',
    "literal": r'address 192\.0\.2\.8, written "192\.0\.2\.8"',
    "octets": r"3 octets: 41 00 42 \|A\.B\|",
    "oid": r"1\.3\.6\.1\.2\.1",
    "noOid": r"empty",
    "bits": r"\{0, 9-10\}",
    "date": r"2026-11-21,9:5:0\.3",
    "dateAndZone": r"2026-11-21,9:5:0\.3,-2:30",
    "noDate": r"empty",
    "*timers": r'delta list "retries", 2 entries, the last due in 12 = \{due in 5 = 0x[0-9a-f]+ <early>, '
               r'due in 12 = 0x[0-9a-f]+ <late>\}',
    "*pool": r"pool, 7 of 8 blocks of 64 bytes free",
    "ports": r"0x[0-9a-f]+ port map, 2 ports = \{\[1\] = port instance 0x01010001, \[2\] = port instance 0x01010002\}",
    "*asBase": r"multi-event queue 1, 1 of 16 pending \{4 = 200\}",
}


def debugger(gdb, script, program, commands, core=None):
    arguments = [gdb, "-nx", "-batch", "-ex", "set debuginfod enabled off", "-ex", "set print thread-events off",
                 "-ex", "set width 0", "-ex", f"source {script}"]
    for command in commands:
        arguments += ["-ex", command]
    done = subprocess.run(arguments + [program] + ([core] if core else []), capture_output=True, text=True,
                          timeout=240, check=False)
    return done.stdout + done.stderr


def missing(output, patterns):
    return [p for p in patterns if not re.search(f"^(?:.* = )?(?:{p})$", output, re.M)]


def printed(names):
    return [f"print {name}" for name in names]


def check(title, output, patterns):
    wrong = missing(output, patterns)
    if wrong:
        print(f"{title}: not shown:\n  " + "\n  ".join(wrong) + "\nshown:\n" + output)
    return not wrong


def stop_at(function):
    return ["set breakpoint pending on", f"break {function}", "run"]


def live_and_core(options, folder):
    """The stuck program: while it runs, then from the core file that the debugger wrote of it."""
    core = str(folder / "core")
    asked = ["kel locks", "kel queues", "kel aging"]
    live = debugger(options.gdb, options.script, options.stuck,
                    stop_at("stuck") + asked + [f"generate-core-file {core}"])
    good = check("running", live, LOCKS + QUEUES)
    if good and not os.path.exists(core):
        print("no core file was written:\n" + live)
        return False
    return good and check("core file", debugger(options.gdb, options.script, options.stuck, asked, core),
                          LOCKS + QUEUES)


def values(options):
    output = debugger(options.gdb, options.script, options.shown, stop_at("shown") + printed(VALUES))
    return check("values", output, [rf"\$\d+ = (?:{p})" for p in VALUES.values()])


def notices_a_lie(options):
    """The check itself: a pattern that is not shown has to be reported."""
    output = debugger(options.gdb, options.script, options.shown, stop_at("shown") + ["print *mask"])
    return missing(output, [r"\$\d+ = 100 bits \{4-7, 64, 99\}"]) != []


def emulated_core(options, folder):
    """An arm64 program that aborts under emulation leaves a core file, which gdb-multiarch reads."""
    environment = dict(os.environ, STUCK_ABORTS="1")
    subprocess.run(["bash", "-c", 'ulimit -c unlimited; exec "$@"', "-", *options.emulator, options.shown],
                   cwd=folder, env=environment, capture_output=True, timeout=240, check=False)
    cores = list(folder.glob("*.core"))
    if not cores:
        print("the emulated program left no core file")
        return False
    sysroot = ["set sysroot " + options.sysroot, "set solib-search-path " + options.libraries]
    output = debugger(options.gdb, options.script, options.shown, sysroot + [f"core-file {cores[0]}"] +
                      printed(VALUES))
    return check("arm64 core file", output, [rf"\$\d+ = (?:{p})" for p in VALUES.values()])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--gdb", required=True)
    parser.add_argument("--script", required=True)
    parser.add_argument("--stuck")
    parser.add_argument("--shown", required=True)
    parser.add_argument("--emulator", nargs="*", default=[])
    parser.add_argument("--sysroot", default="")
    parser.add_argument("--libraries", default="")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        if options.emulator:
            return 0 if emulated_core(options, folder) else 1
        good = live_and_core(options, folder) and values(options) and notices_a_lie(options)
        print("all is shown" if good else "")
        return 0 if good else 1


sys.exit(main())
