# SPDX-License-Identifier: Apache-2.0
"""Signing in by an LDAP server, by an htpasswd file, and by several sources in their order."""

import json
import os
import signal
import subprocess
import unittest

import harness
from access_rules import rule
from harness import ServerCase, TestServer, Tree, run, url_path, wait_for
from slapd import Slapd, person
from test_program import basic


class SignedIn(unittest.TestCase):
    """One slapd, and a server for each case."""

    @classmethod
    def setUpClass(cls):
        cls.slapd = Slapd(person("anna", "apple", "Staff"), person("ben", "berry", "Guests"),
                          person("carol", "cherry"))
        cls.addClassCleanup(cls.slapd.close)

    def setUp(self):
        self.tree = Tree()
        self.addCleanup(self.tree.remove)
        self.tree.write("file", b"content")

    def settings(self, *sources, **more):
        return {"Auth": {"Sources": list(sources), **more.pop("auth", {})},
                "Auth\\LDAP": {"Server": self.slapd.url, "Base": "o=org", **more.pop("ldap", {})},
                **more}

    def serve(self, settings, *options):
        server = TestServer({"docs": self.tree.path}, options, settings)
        self.addCleanup(server.close)
        return server

    def get(self, server, name=None, password="", headers=None):
        headers = {**(basic(name, password) if name else {}), **(headers or {})}
        return server.request("GET", url_path("docs", "file"), headers=headers)

    def status(self, server, name=None, password=""):
        return self.get(server, name, password).status


class Ldap(SignedIn):
    def test_the_password_is_the_servers(self):
        server = self.serve(self.settings("ldap"))
        self.assertEqual(self.status(server), 401)
        for _ in range(3):
            self.assertEqual(self.get(server, "anna", "apple").body, b"content")
            self.assertEqual(self.status(server, "ANNA", "apple"), 200)
        for name, password in (("anna", "wrong"), ("anna", ""), ("nobody", "apple"),
                               ("*", "apple"), ("anna)(uid=*", "apple")):
            self.assertEqual(self.status(server, name, password), 401, (name, password))
        wait_for(lambda: "wrong password from 127.0.0.1 for 'nobody'" in server.log(), "the line")
        self.assertIn("wrong password from 127.0.0.1 for 'anna': 2 so far", server.log())

    def test_rules_speak_of_its_groups(self):
        server = self.serve(self.settings("ldap", **{
            "Access\\Rules\\all": rule("/docs", {"list"}, who=("everybody",)),
            "Access\\Rules\\staff": rule("/docs", {"list", "read"}, who=("group:staff",))}))
        self.assertEqual(self.status(server, "anna", "apple"), 200)
        self.assertEqual(self.status(server, "ben", "berry"), 403)
        self.assertEqual(self.status(server, "carol", "cherry"), 403)

    def test_a_server_that_is_gone_lets_nobody_in_and_counts_no_guess(self):
        users = self.tree / "users"
        run(harness.KESTD, "user", "add", "dora", "--users-file", users, stdin=b"date\n")
        audit = self.tree / "audit.log"
        server = self.serve(self.settings("users", "ldap", ldap={"Retry Time": 0}, Server={
            "Users File": str(users), "Audit Log File": str(audit), "Credential Time": 1}))
        self.assertEqual(self.status(server, "anna", "apple"), 200)
        self.slapd.stop()
        try:
            wait_for(lambda: self.status(server, "anna", "apple") == 503, "that she is forgotten")
            for _ in range(30):
                reply = self.get(server, "anna", "wrong")
                self.assertEqual(reply.status, 503)
                self.assertIn("retry-after", reply.headers)
            self.assertEqual(self.status(server, "dora", "date"), 200, "the users file knows her")
            self.assertEqual(self.status(server, "dora", "wrong"), 401)
        finally:
            self.slapd.start()
        self.assertEqual(self.status(server, "anna", "apple"), 200)
        self.assertIn("nobody can sign in by the LDAP server", server.log())
        self.assertNotIn("for 'anna'", server.log())

        def results():
            with open(audit, encoding="utf-8") as lines:
                return {(line["user"], line["result"]) for line in map(json.loads, lines)
                        if line["event"] == "sign-in"}
        wanted = {("anna", "granted"), ("anna", "unavailable"), ("dora", "granted"),
                  ("dora", "denied")}
        wait_for(lambda: results() == wanted, "the audit log")

    def test_guesses_are_limited(self):
        server = self.serve(self.settings("ldap"))
        self.assertEqual(self.status(server, "anna", "apple"), 200)
        said = [self.status(server, name, f"wrong {i}")
                for i, name in enumerate(("ben", "BEN", "Ben", "bEn", "beN", "bEN", "BEn", "ben"))]
        self.assertEqual(said, [401] * 6 + [429] * 2)
        self.assertEqual(self.status(server, "ben", "berry"), 429)
        self.assertEqual(self.status(server, "anna", "apple"), 200)


class Order(SignedIn):
    def test_the_first_that_knows_a_name_decides(self):
        files = {"Users File": str(self.tree / "users")}
        passwords = self.tree / "htpasswd"
        run(harness.KESTD, "user", "add", "anna", "--users-file", files["Users File"],
            stdin=b"first\n")
        for name, password, how in (("anna", "second", "-B"), ("eve", "elder", "-m"),
                                    ("fay", "fig", "-s"), ("gil", "grape", "-B")):
            subprocess.run(["htpasswd", "-b", how, *([] if os.path.exists(passwords) else ["-c"]),
                            str(passwords), name, password], check=True, capture_output=True)
        settings = self.settings("users", "htpasswd", "ldap", Server=files,
                                 auth={"Htpasswd File": str(passwords)})
        server = self.serve(settings)
        for name, password, status in (
                ("anna", "first", 200), ("anna", "second", 401), ("anna", "apple", 401),
                ("ANNA", "apple", 401), ("eve", "elder", 200), ("fay", "fig", 200),
                ("gil", "grape", 200), ("gil", "wrong", 401), ("ben", "berry", 200)):
            self.assertEqual(self.status(server, name, password), status, (name, password))

    def test_a_user_is_locked_out_with_a_reload(self):
        passwords = self.tree / "htpasswd"
        subprocess.run(["htpasswd", "-bcB", str(passwords), "eve", "elder"], check=True,
                       capture_output=True)
        server = self.serve(self.settings("htpasswd", auth={"Htpasswd File": str(passwords)}))
        self.assertEqual(self.status(server, "eve", "elder"), 200)
        self.tree.write("htpasswd", "")
        server.process.send_signal(signal.SIGHUP)
        wait_for(lambda: self.status(server, "eve", "elder") == 401, "that she is gone")


class Checked(ServerCase):
    def test_mistakes_are_told(self):
        own = Tree()
        self.addCleanup(own.remove)
        ldap = "['Kest\\Configuration\\Auth\\LDAP']\n"
        for text, wanted in (
                ("'Sources' = ['nis']", "not 'nis'"),
                ("'Sources' = []", "expected some of"),
                ("'Sources' = ['pam']\n'PAM Service' = '../x'", "a file in /etc/pam.d"),
                ("'Sources' = ['proxy']", "without 'Trusted Proxies'"),
                ("'Sources' = ['users', 'users']", "twice"),
                ("'Sources' = ['htpasswd']", "'htpasswd' needs 'Htpasswd File'"),
                ("'Htpasswd File' = '/nonexistent'", "No such file"),
                ("'Sources' = ['ldap']", "expected ldap://"),
                ("'Sources' = ['ldap']\n" + ldap + "'Server' = 'ldap://192.0.2.1'",
                 "passwords could be read"),
                (ldap + "'User Filter' = '(uid=x)'", "expected a filter with %u"),
                (ldap + "'Bind Name' = 'cn=x'", "expected 'Bind Password'"),
                (ldap + "'Sever' = 'x'", "did you mean 'Server'")):
            own.write("kest.toml", "['Kest\\Configuration\\Auth']\n" + text + "\n")
            status, said = run(harness.KESTD, "check", "--config", own / "kest.toml", "--listen",
                               "127.0.0.1:0", "--state-dir", own.path)
            self.assertEqual(status, 1, said)
            self.assertIn(wanted, said)


class PlainHttp(SignedIn):
    def test_a_password_from_another_machine_needs_https(self):
        proxy = {"Trusted Proxies": ["127.0.0.1"]}
        server = self.serve({"Server": proxy}, "--user", "dora:date")
        far = {"X-Forwarded-For": "192.0.2.1"}
        for headers, status in ((far, 403), ({**far, "X-Forwarded-Proto": "https"}, 200),
                                ({**far, "X-Forwarded-Proto": "http"}, 403), ({}, 200)):
            reply = self.get(server, "dora", "date", headers)
            self.assertEqual(reply.status, status, headers)
            if status == 403:
                self.assertIn(b"use https", reply.body)
                self.assertNotIn("www-authenticate", self.get(server, headers=headers).headers)
        server = self.serve({"Server": proxy, "Auth": {"Plain HTTP Passwords": True}},
                            "--user", "dora:date")
        self.assertEqual(self.get(server, "dora", "date", far).status, 200)


del SignedIn  # it has no cases of its own
