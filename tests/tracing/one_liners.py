#!/usr/bin/env python3
"""The documented bpftrace programs, run on a small client. Needs root, bpftrace, and a kernel that lets us; skips else."""
import argparse
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile

SKIPPED = 77
EXPECTED = {
    "How long events wait": r"@us:\s*\n\[",
    "How long each thread holds": r"@us\[\d+\]:\s*\n\[",
    "The share of events": r"^33 of 100$",
}


def lets_us_trace():
    done = subprocess.run(["bpftrace", "-e", "BEGIN { exit(); }"],
                          capture_output=True, text=True, timeout=60, check=False)
    return done.returncode == 0 and "Attaching 1 probe" in done.stdout


def traced(program, client):
    """What the program prints while one client after the other runs beside it: the first may come before it is ready."""
    with tempfile.TemporaryFile("w+") as output:
        with subprocess.Popen(["bpftrace", "-e", program], stdout=output, stderr=subprocess.STDOUT) as tracer:
            for _ in range(6):
                subprocess.run([client], capture_output=True, timeout=60, check=True)
            tracer.send_signal(signal.SIGINT)
            tracer.wait(timeout=60)
        output.seek(0)
        return output.read()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--page", required=True)
    parser.add_argument("--library", required=True)
    parser.add_argument("client")
    options = parser.parse_args()
    if os.geteuid() != 0 or shutil.which("bpftrace") is None:
        print("SKIPPED: needs root and bpftrace")
        return SKIPPED
    if not lets_us_trace():
        print("SKIPPED: this kernel lets nobody trace")
        return SKIPPED
    page = pathlib.Path(options.page).read_text()
    programs = re.findall(r"^(.+):\n\n```bpftrace\n(.*)\n```", page, re.M)
    wrong = [title for title in EXPECTED if not any(found.startswith(title) for found, _ in programs)]
    for title, program in programs:
        output = traced(program.replace("LIB", os.path.realpath(options.library)), options.client)
        pattern = next(p for t, p in EXPECTED.items() if title.startswith(t))
        if not re.search(pattern, output, re.M):
            wrong.append(f"{title}: printed\n{output}")
    print("\n".join(wrong) or f"{len(programs)} programs ran")
    return 1 if wrong or not programs else 0


sys.exit(main())
