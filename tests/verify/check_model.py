#!/usr/bin/env python3
# check_model.py MODEL SOURCES WORKING_FOLDER: explores every state of a model, and sees that broken ones are rejected.
#
# A model says in its comments, in brackets:
#   part NAME                    explored on its own, compiled with NAME defined
#   control NAME: what it does   a broken variant; one of the parts has to find an error in it
#   at rest some may sleep on    that nothing can happen any more is an end like others
#   source: text                 the text stands in one of the sources that the model mirrors, named as src/...
#
# With KEL_FULL_EFFORT=1 in the environment, FULL_EFFORT is defined as well.
import os
import re
import shutil
import subprocess
import sys

SKIPPED = 77
SEARCH_DEPTH = 1000000


def fail(text):
    print("FAILED: " + text)
    sys.exit(1)


def squeezed(text):
    return re.sub(r"\s+", " ", text)


def check_mirrored_sources(text, sources):
    names = sorted(set(re.findall(r"src/[\w/]+\.(?:cpp|h)", text)))
    if not names:
        fail("the model names no source that it mirrors")
    said = squeezed(" ".join(open(os.path.join(sources, name), encoding="utf-8").read() for name in names))
    quotes = re.findall(r"\[source: (.*?)\]\s*\*/", text)
    if len(quotes) < 5:
        fail("the model quotes hardly anything of its source")
    for quote in quotes:
        if squeezed(quote) not in said:
            fail(f"no source says any more: {quote}\nSee whether the model still does what {', '.join(names)} do.")
    return len(quotes)


# Explores a variant whole. Returns the number of states and the error found, "" for none.
def explore(model, defined, folder, may_sleep_on):
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(folder)
    flags = ["-D" + name for name in defined]
    made = subprocess.run(["spin", "-a", *flags, model], cwd=folder, capture_output=True, text=True)
    if made.returncode != 0 or "rror" in made.stdout:
        fail(made.stdout + made.stderr)
    compiled = subprocess.run(["cc", "-O1", "-w", "-DSAFETY", "-DCOLLAPSE", "-o", "pan", "pan.c"], cwd=folder)
    if compiled.returncode != 0:
        fail("the model's verifier does not compile")
    options = [f"-m{SEARCH_DEPTH}"] + (["-E"] if may_sleep_on else [])
    out = subprocess.run(["./pan", *options], cwd=folder, capture_output=True, text=True).stdout
    if "max search depth too small" in out or "out of memory" in out or "Full statespace search" not in out:
        fail("not every state was explored\n" + out)
    errors = int(re.search(r"errors: (\d+)", out).group(1))
    states = int(float(re.search(r"([\d.e+]+) states, stored", out).group(1)))
    if errors == 0:
        return states, ""
    return states, re.search(r"pan:\d+: (.*?)(?: \(at depth|$)", out, re.MULTILINE).group(1)


def main():
    model, sources, folder = sys.argv[1:]
    if shutil.which("spin") is None or shutil.which("cc") is None:
        print("SKIPPED: this machine has no spin or no C compiler; Debian's package is called spin")
        sys.exit(SKIPPED)
    name = os.path.splitext(os.path.basename(model))[0]
    with open(model, encoding="utf-8") as file:
        text = file.read()
    quotes = check_mirrored_sources(text, sources)
    effort = ["FULL_EFFORT"] if os.environ.get("KEL_FULL_EFFORT") == "1" else []
    parts = re.findall(r"\[part (\w+)\]", text) or ["WHOLE"]
    controls = re.findall(r"\[control (\w+): ([^\]]+)\]", text)
    may_sleep_on = "[at rest some may sleep on]" in text
    if not controls:
        fail("a model that has nothing to reject shows nothing")

    total = 0
    for part in parts:
        states, error = explore(model, [part] + effort, folder, may_sleep_on)
        print(f"{name}, {part}: {states} states, {error or 'no error'}", flush=True)
        if error:
            fail("replay it with spin -t -p")
        total += states
    for control, meaning in controls:
        if not re.search(r"#ifn?def " + control, text):
            fail(f"the model has no {control}")
        for part in parts:
            _, error = explore(model, [part, control], folder, may_sleep_on)
            if error:
                break
        if not error:
            fail(f"nothing is wrong with {control}: {meaning}")
        print(f"{name}, {control} ({squeezed(meaning.replace(' * ', ' '))}): rejected, {error}", flush=True)
    print(f"trust: model {name.replace('_', ' ')} | {total} states explored, no error; {len(controls)} of "
          f"{len(controls)} broken variants rejected; {quotes} lines compared with the source")


main()
