# SPDX-License-Identifier: Apache-2.0
"""What the tests stand on notices what it has to."""

import glob
import os
import re
import unittest

from harness import ROOT, Failure, SanitizerReport, TestServer, Tree, refuse_reports


class Reports(unittest.TestCase):
    def test_what_a_sanitizer_prints_fails_the_case(self):
        for text in ("==71==ERROR: LeakSanitizer: detected memory leaks",
                     "=======\n==71==ERROR: AddressSanitizer: heap-use-after-free on address 0x6",
                     "AddressSanitizer:DEADLYSIGNAL\n==71==ERROR: AddressSanitizer: SEGV",
                     "=======\nWARNING: ThreadSanitizer: data race (pid=71)",
                     "/src/core/text.cpp:31:14: runtime error: signed integer overflow"):
            with self.subTest(text), self.assertRaises(SanitizerReport):
                refuse_reports("kestd: a line before\n" + text + "\n    #0 somewhere\n")

    def test_what_clients_can_put_into_the_log_does_not(self):
        refuse_reports('kestd: 127.0.0.1 "GET /Ferro/==71==ERROR: a:1:2: runtime error: b" 404\n')


class Documented(unittest.TestCase):
    def test_cases_that_the_documentation_names_exist(self):
        with open(os.path.join(ROOT, "docs", "testing.md"), encoding="utf-8") as file:
            named = re.findall(r"`(test_\w+)\.py` `(test_\w+)`", file.read())
        self.assertGreaterEqual(len(named), 30)
        for module, case in named:
            with self.subTest(module=module, case=case), \
                    open(os.path.join(ROOT, "tests", "e2e", module + ".py"),
                         encoding="utf-8") as file:
                self.assertIn(f"    def {case}(self", file.read())

    def test_suites_that_the_documentation_names_exist(self):
        with open(os.path.join(ROOT, "docs", "testing.md"), encoding="utf-8") as file:
            named = set(re.findall(r"`(Standard\w+)[.`]", file.read()))
        self.assertGreaterEqual(len(named), 20)
        text = ""
        for path in glob.glob(os.path.join(ROOT, "tests", "contract", "standard", "*_test.cpp")):
            with open(path, encoding="utf-8") as file:
                text += file.read()
        for suite in named:
            self.assertRegex(text, rf"TEST\w*\({suite},", suite)


class ServerEnds(unittest.TestCase):
    """A server that reports, or ends badly, when it is asked to end fails the run."""

    def setUp(self):
        self.tree = Tree()
        self.addCleanup(self.tree.remove)

    def ending(self, line):
        """A server whose last words and exit status are the shell's."""
        script = f'"$@" & trap "kill $!; wait $!; {line}" TERM; wait $!'
        return TestServer({"docs": self.tree.path}, wrapper=["sh", "-c", script, "sh"])

    def test_well(self):
        self.ending("exit 0").close()

    def test_with_another_status(self):
        with self.assertRaisesRegex(Failure, "ended with 23"):
            self.ending("exit 23").close()

    def test_with_a_report(self):
        with self.assertRaises(SanitizerReport):
            self.ending("echo ==1==ERROR: LeakSanitizer: >&2").close()
