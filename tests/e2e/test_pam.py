# SPDX-License-Identifier: Apache-2.0
"""Signing in by PAM: the system's library, with modules of the test's own below a directory of its own."""

import concurrent.futures
import os
import unittest

from harness import TestServer, Tree, url_path, wait_for
from test_program import basic

MODULES = "/usr/lib/x86_64-linux-gnu"
SERVICE = """auth required {matrix} passdb={users}
account required {matrix} passdb={users}
"""
USERS = "anna:apple:files\nben:berry:files\ncarol:cherry:other\n"


def library(name):
    """Where Debian puts it on this machine."""
    for top in (MODULES, "/usr/lib/aarch64-linux-gnu", "/usr/lib64", "/usr/lib"):
        path = os.path.join(top, name)
        if os.path.exists(path):
            return path
    raise FileNotFoundError(name)


class Pam(unittest.TestCase):
    def setUp(self):
        self.tree = Tree()
        self.addCleanup(self.tree.remove)
        self.tree.write("volume/file", b"content")
        self.tree.write("users", USERS.encode())
        self.tree.write("services/files", SERVICE.format(
            matrix=library("pam_wrapper/pam_matrix.so"), users=self.tree / "users").encode())
        self.tree.write("services/closed", b"auth required pam_deny.so\n"
                                           b"account required pam_deny.so\n")

    def serve(self, service="files", sources=("pam",), **auth):
        settings = {"Server": {"Guess Delay": 0},
                    "Auth": {"Sources": list(sources), "PAM Service": service, **auth}}
        sanitizer = os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"
        env = {"LD_PRELOAD": library("libpam_wrapper.so"), "PAM_WRAPPER": "1",
               "PAM_WRAPPER_SERVICE_DIR": str(self.tree / "services"), "ASAN_OPTIONS": sanitizer}
        server = TestServer({"docs": self.tree / "volume"}, (), settings, env)
        self.addCleanup(server.close)
        return server

    def status(self, server, *who):
        headers = basic(*who) if who else {}
        return server.request("GET", url_path("docs", "file"), headers=headers).status

    def test_the_password_is_the_modules(self):
        server = self.serve()
        self.assertEqual(self.status(server), 401)
        for _ in range(2):
            self.assertEqual(self.status(server, "anna", "apple"), 200)
            self.assertEqual(self.status(server, "ben", "berry"), 200)
        for name, password in (("anna", "berry"), ("anna", ""), ("nobody", "x"), ("", "apple"),
                               ("anna", "apple\0"), ("an:na", "apple")):
            self.assertEqual(self.status(server, name, password), 401, (name, password))
        wait_for(lambda: " anna [" in server.log(), "the access log's line")

    def test_users_of_another_service_are_none(self):
        self.assertEqual(self.status(self.serve(), "carol", "cherry"), 401)
        self.assertEqual(self.status(self.serve("closed"), "anna", "apple"), 401)

    def test_a_source_before_it_decides_about_its_own(self):
        self.tree.write("htpasswd", b"anna:$apr1$x$OMO2vKiFMDJAbWk5mdtBP.\n")
        server = self.serve(sources=("htpasswd", "pam"),
                            **{"Htpasswd File": str(self.tree / "htpasswd")})
        self.assertEqual(self.status(server, "anna", "apple"), 401)
        self.assertEqual(self.status(server, "ben", "berry"), 200)

    def test_many_sign_in_at_once(self):
        server = self.serve()
        passwords = ["apple" if i % 2 else f"wrong{i}" for i in range(16)]
        with concurrent.futures.ThreadPoolExecutor(16) as pool:
            statuses = list(pool.map(lambda password: self.status(server, "anna", password),
                                     passwords))
        self.assertEqual(statuses[1::2], [200] * 8)
        self.assertTrue(set(statuses[::2]) <= {401, 429, 503}, statuses)


if __name__ == "__main__":
    unittest.main()
