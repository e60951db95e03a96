# SPDX-License-Identifier: Apache-2.0
"""The WebDAV conformance tests of the package litmus against the standard dialect."""

import os
import re
import shutil
import tempfile
import unittest

from harness import SCRATCH, Tree, TestServer, run

SUITES = {"basic": 16, "copymove": 13, "props": 30, "locks": 41, "http": 4}


class Litmus(unittest.TestCase):
    """Every test of every suite, without a failure, a warning or one that is skipped."""

    def run_suites(self, options, scheme):
        tree = Tree()
        work = tempfile.mkdtemp(prefix="kest-litmus-", dir=SCRATCH)
        self.addCleanup(tree.remove)
        self.addCleanup(shutil.rmtree, work, ignore_errors=True)
        with TestServer({"docs": tree.path}, ("--dialect", "standard", *options)) as server:
            self.assertEqual(server.scheme, scheme)
            for suite, count in SUITES.items():
                if (suite, scheme) == ("http", "https"):
                    continue  # its one test, "expect100", litmus does not do over TLS
                with self.subTest(suite):
                    _, text = run("litmus", "-k", server.url("docs") + "/", cwd=work,
                                  env={"TESTS": suite})
                    summary = re.search(r"of (\d+) tests run: (\d+) passed, (\d+) failed", text)
                    self.assertIsNotNone(summary, text)
                    self.assertEqual(tuple(map(int, summary.groups())), (count, count, 0), text)
                    self.assertNotRegex(text, r"WARNING|SKIPPED|warning|skipped")

    def test_over_http(self):
        self.run_suites((), "http")

    def test_over_https(self):
        keys = tempfile.mkdtemp(prefix="kest-keys-", dir=SCRATCH)
        self.addCleanup(shutil.rmtree, keys, ignore_errors=True)
        key, certificate = os.path.join(keys, "key.pem"), os.path.join(keys, "cert.pem")
        status, text = run("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                           "ec_paramgen_curve:P-256", "-nodes", "-days", "2", "-subj",
                           "/CN=127.0.0.1", "-keyout", key, "-out", certificate)
        self.assertEqual(status, 0, text)
        self.run_suites(("--tls-cert", certificate, "--tls-key", key), "https")
