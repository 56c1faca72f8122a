#!/usr/bin/env python3
"""kel-port-lint: the corpus says by its comments what is to be found on which line; anything else read is survived."""
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import unittest

LINT, CORPUS = sys.argv[1], pathlib.Path(sys.argv[2])


def lint(*files):
    return subprocess.run([sys.executable, LINT, *map(str, files)], capture_output=True, text=True, timeout=120, check=False)


def found(done):
    return {(int(line), rule) for line, rule in re.findall(r"^.*?:(\d+): ([\w-]+): ", done.stdout, re.M)}


def expected(file):
    return {(number, rule) for number, line in enumerate(file.read_text().splitlines(), 1)
            for rules in re.findall(r"/\* expect: (.*?) \*/", line) for rule in rules.split()}


class PortLint(unittest.TestCase):
    def lintText(self, text):
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder) / "code.c"
            file.write_bytes(text if isinstance(text, bytes) else text.encode())
            return lint(file)

    def testFindsInTheCorpusWhatItsCommentsSayAndNothingElse(self):
        rules = set()
        for file in sorted(CORPUS.glob("*.c")):
            done = lint(file)
            self.assertEqual(found(done), expected(file), file.name)
            self.assertEqual(done.returncode, 1 if expected(file) else 0, file.name)
            rules |= {rule for _, rule in expected(file)}
        named = set(re.findall(r"^  ([\w-]+): ", lint("--help").stdout, re.M))
        self.assertEqual(rules, named, "every rule is in the corpus")

    def testEachFindingNamesFileLineRuleReasonAndRemedy(self):
        self.assertRegex(self.lintText("int f() { return semTake(s, 1) == ERROR; }\n").stdout,
                         r"^/.*/code\.c:1: result-error: [^;]+; [^;]+\n$")

    def testTickConstantsAreComputed(self):
        for ticks, wrong in (("214748", False), ("214749", True), ("0x346DD", True), ("35 * 60 * 100", False),
                             ("36 * 60 * sysClkRateGet()", True), ("(unsigned int)300000UL", True),
                             ("-1", False), ("WAIT_FOREVER", False), ("0xFFFFFFFF", False), ("limit", False)):
            done = self.lintText("int f(void) { return semTake(s, %s); }\n" % ticks)
            self.assertEqual("long-wait" in done.stdout, wrong, ticks)

    def testDefinitionsAndSemaphoresAreKnownAcrossFiles(self):
        with tempfile.TemporaryDirectory() as folder:
            first, second = pathlib.Path(folder) / "a.h", pathlib.Path(folder) / "b.c"
            first.write_text("#define LIMIT (HOUR \\\n * 100)\n#define HOUR 3600\nvoid g() { flag = semBCreate(0, 0); }\n")
            second.write_text("void f(void)\n{\n semTake(lock, LIMIT);\n semGive(p->flag);\n semGive(p->flag);\n}\n")
            self.assertEqual(found(lint(first, second)), {(3, "long-wait"), (5, "binary-given-twice")})
            self.assertEqual(found(lint(second)), set())

    def testADefinitionByItselfHasNoValue(self):
        self.assertEqual(self.lintText("#define A B\n#define B A\nint f() { return semTake(s, A); }\n").returncode, 0)

    def testDeclarationsCommentsAndTextsAreNoCalls(self):
        self.assertEqual(self.lintText(
            'int semTake(SEM_ID s, unsigned t);\n/* semTake(s, 999999) */\n// taskDelay(999999)\n'
            'const char *t = "taskDelay(999999)";\n').returncode, 0)

    def testAFindingThatIsMeantIsQuiet(self):
        meant = "void f(void)\n{\n    taskDelay(999999); /* kel-port-lint: long-delay is meant */\n}\n"
        self.assertEqual(self.lintText(meant).returncode, 0)
        self.assertEqual(self.lintText(meant.replace("long-delay is", "long-wait is")).returncode, 1)

    def testAnUnreadableFileAndNoFileAreErrors(self):
        self.assertEqual(lint("/nowhere/code.c").returncode, 2)
        self.assertIn("/nowhere/code.c", lint("/nowhere/code.c").stderr)
        self.assertEqual(lint().returncode, 2)

    def testAnyBytesAreSurvived(self):
        seed = random.SystemRandom().randrange(1 << 32)
        chance = random.Random(seed)
        whole = b"".join(file.read_bytes() for file in sorted(CORPUS.glob("*.c")))
        with tempfile.TemporaryDirectory() as folder:
            files = []
            for index in range(200):
                text = bytearray(whole[:chance.randrange(len(whole))])
                for _ in range(chance.randrange(200)):
                    text[chance.randrange(len(text) or 1):chance.randrange(len(text) or 1)] = bytes(
                        chance.choice(b"(){};,\\\"'#/* \n\x00\xff9") for _ in range(chance.randrange(4)))
                files.append(pathlib.Path(folder) / ("%d.c" % index))
                files[-1].write_bytes(text[:4000])
            done = lint(*files)
            self.assertIn(done.returncode, (0, 1), "seed %d: %s" % (seed, done.stderr))
            self.assertEqual(done.stderr, "", "seed %d" % seed)


unittest.main(argv=sys.argv[:1])
