# SPDX-License-Identifier: Apache-2.0
"""App passwords: made by command, used, limited, revoked, and gone with their users."""

import os
import re
import shutil
import signal
import time
import unittest

import harness
from access_rules import LOCK_BODY, rule
from harness import TestServer, Tree, run, url_path, wait_for
from slapd import Slapd, person
from test_program import basic


class Cases(unittest.TestCase):
    """A server with the volumes "docs" and "other", and a user "anna" of the users file."""

    settings = {}
    delay = 0  # what was made a moment ago is tried until the server knows it

    def setUp(self):
        self.tree = Tree()
        self.addCleanup(self.tree.remove)
        for volume in ("docs", "other"):
            self.tree.write(f"{volume}/file", b"content")
        self.state = os.path.join(self.tree.path, "state")
        os.mkdir(self.state)
        self.apps = os.path.join(self.state, "app-passwords")
        self.users = self.tree / "users"
        run(harness.KESTD, "user", "add", "anna", "--users-file", self.users, stdin=b"own\n")
        self.server = self.start()

    def start(self):
        settings = {"Server": {"Users File": str(self.users), "Guess Delay": self.delay},
                    **self.settings}
        settings["Auth"] = {"App Passwords File": self.apps, **settings.get("Auth", {})}
        server = TestServer({name: self.tree / name for name in ("docs", "other")}, (), settings)
        self.addCleanup(server.close)
        self.config = self.tree / "kest.toml"
        shutil.copyfile(os.path.join(server.state, "test.toml"), self.config)
        return server

    def command(self, *words, expected=0):
        status, text = run(harness.KESTD, "user", "app-password", *words, "--config", self.config)
        self.assertEqual(status, expected, text)
        return text

    def add(self, *words):
        return re.search("^kest-[a-z2-7]{8}-[a-z2-7]{32}$", self.command("add", *words),
                         re.MULTILINE)[0]

    def ask(self, password, method="GET", path=("docs", "file"), body=None, name="anna", **headers):
        return self.server.request(method, url_path(*path), body,
                                   {**basic(name, password), **headers})

    def works(self, password, **how):
        wait_for(lambda: self.ask(password, **how).status == 200, "that it is taken")

    def is_refused(self, password, **how):
        wait_for(lambda: self.ask(password, **how).status == 401, "that it is refused")


class AppPasswords(Cases):
    def test_one_is_its_users_until_it_is_revoked(self):
        secret = self.add("anna", "backup")
        self.works(secret)
        self.assertEqual(self.ask(secret, "PUT", body=b"new").status, 204)
        self.assertEqual(self.ask("own").status, 200)
        run(harness.KESTD, "user", "add", "ben", "--users-file", self.users, stdin=b"b\n")
        self.server.process.send_signal(signal.SIGHUP)
        wait_for(lambda: self.ask("b", name="ben").status == 200, "ben")
        self.assertEqual(self.ask(secret, name="ben").status, 401, "it is another's")
        for wrong in (secret[:-1] + ("a" if secret[-1] != "a" else "b"), secret.upper(),
                      secret[:-1], secret + "a", "kest-" + "a" * 8 + "-" + "a" * 32):
            self.assertEqual(self.ask(wrong).status, 401, wrong)
        other = self.add("anna", "phone")
        self.works(other)
        begun = time.monotonic()
        self.command("revoke", "anna", "backup")
        self.is_refused(secret)
        self.assertLess(time.monotonic() - begun, 60)
        self.assertEqual(self.ask(other).status, 200)
        self.assertEqual(self.ask("own").status, 200)
        self.assertNotIn("backup", self.command("list"))

    def test_no_secret_lies_in_the_file(self):
        secret = self.add("anna", "backup")
        with open(self.apps, encoding="utf-8") as file:
            text = file.read()
        self.assertNotIn(secret[14:], text)
        self.assertEqual(os.stat(self.apps).st_mode & 0o777, 0o600)

    def test_a_volume_and_reading_are_all_that_is_left(self):
        for words, read, write in (
                (("docs only", "--volume", "docs"), {"docs"}, {"docs"}),
                (("reader", "--read-only"), {"docs", "other"}, set()),
                (("both", "--volume", "other", "--read-only"), {"other"}, set())):
            secret = self.add("anna", *words)
            wait_for(lambda: self.ask(secret, path=()).status == 200, "that it is taken")
            seen = self.ask(secret, "PROPFIND", (), Depth="1").body.decode()
            for volume in ("docs", "other"):
                where = (words, volume)
                self.assertEqual(f"/Ferro/{volume}" in seen, volume in read, where)
                file = (volume, "file")
                refused = 403 if volume in read else 404
                statuses = {
                    "GET": self.ask(secret, path=file).status,
                    "PUT": self.ask(secret, "PUT", file, b"x").status,
                    "PROPPATCH": self.ask(secret, "PROPPATCH", file, b"<x/>").status,
                    "LOCK": self.ask(secret, "LOCK", file, LOCK_BODY).status,
                    "MOVE": self.ask(secret, "MOVE", file,
                                     Destination=url_path(volume, "moved")).status,
                }
                self.assertEqual(statuses["GET"], 200 if volume in read else 404, where)
                for method in ("PUT", "LOCK"):
                    self.assertEqual(statuses[method] < 300, volume in write, (where, statuses))
                if volume not in write:
                    self.assertEqual(statuses["PROPPATCH"], refused, (where, statuses))
                    self.assertEqual(statuses["MOVE"], refused, (where, statuses))
            self.assertEqual(self.ask("own", "PUT", ("docs", "own"), b"x").status // 100, 2,
                             "her own password is not bound")

    def test_its_end_and_last_use_are_told(self):
        secret = self.add("anna", "short", "--days", "1")
        self.add("anna", "long", "--days", "0")
        listed = self.command("list", "anna")
        self.assertRegex(listed, r"(?m)^anna\t\w+\tlong\tmade \S+\tends never\tused never\t"
                                 r"all volumes\tall rights$")
        self.works(secret)
        with open(self.apps, encoding="utf-8") as file:
            lines = file.read().splitlines()
        past = [re.sub(r"^((?:[^:]*:){4})\d+", rf"\g<1>{int(time.time()) - 1}", line)
                if line.endswith(":short") else line for line in lines]
        self.assertNotEqual(lines, past)
        with open(self.apps + ".new", "w", encoding="utf-8") as file:
            file.write("\n".join(past) + "\n")
        self.server.close()
        self.assertRegex(self.command("list", "anna"), r"short\t.*used \d{4}-\d\d-\d\d\t")
        os.rename(self.apps + ".new", self.apps)
        self.server = self.start()
        self.assertEqual(self.ask(secret).status, 401, "it has ended")

    def test_a_user_who_is_gone_takes_them_along(self):
        secret = self.add("anna", "backup")
        self.works(secret)
        run(harness.KESTD, "user", "remove", "anna", "--users-file", self.users)
        self.server.process.send_signal(signal.SIGHUP)
        self.is_refused(secret)

    def test_mistakes_are_told(self):
        self.add("anna", "backup")
        for words, wanted, status in (
                (("add", "anna", "backup"), "already", 1),
                (("add", "nobody", "x"), "there is no user nobody", 1),
                (("revoke", "anna", "phone"), "has no app password", 1),
                (("revoke", "ben", "backup"), "has no app password", 1),
                (("add", "anna"), "needs a user and a name", 2),
                (("add", "anna", "a:b"), "without ':'", 2),
                (("add", "anna", "x", "--days", "-1"), "number of days", 2),
                (("add", "anna", "x", "--volume", "a/b"), "name of a volume", 2),
                (("list", "anna", "x"), "unexpected argument", 2),
                (("revoke", "anna", "x", "--read-only"), "unknown option", 2)):
            self.assertIn(wanted, self.command(*words, expected=status), words)
        with open(self.apps, "a", encoding="utf-8") as file:
            file.write("anna:broken\n")
        wait_for(lambda: "the old app passwords stay" in self.server.log(), "the line in the log")
        status, text = run(harness.KESTD, "check", "--running", "--config", self.config)
        self.assertEqual(status, 1)
        self.assertIn("app-passwords:3: expected USER:ID:HASH", text)


class Guesses(Cases):
    delay = 60

    def test_are_limited(self):
        self.add("anna", "backup")
        wrong = ["kest-" + "a" * 8 + "-" + "a" * 31 + letter for letter in "abcdefgh"]
        self.assertEqual([self.ask(one).status for one in wrong], [401] * 6 + [429] * 2)


class OfLdapUsers(Cases):
    @classmethod
    def setUpClass(cls):
        cls.slapd = Slapd(person("carol", "cherry", "Staff"))
        cls.addClassCleanup(cls.slapd.close)
        cls.settings = {
            "Auth": {"Sources": ["users", "ldap"]},
            "Auth\\LDAP": {"Server": cls.slapd.url, "Base": "o=org", "Retry Time": 0},
            "Access\\Rules\\all": rule("/docs", set(), who=("everybody",)),
            "Access\\Rules\\staff": rule("/docs", {"list", "read"}, who=("group:staff",))}

    def test_rules_for_their_groups_hold(self):
        secret = self.add("carol", "backup")
        self.works(secret, name="carol")
        self.works(secret, name="CAROL")
        self.assertEqual(self.ask(secret, "PUT", body=b"x", name="carol").status, 403)
        for name, said in (("carol", "list    allowed"), ("CAROL", "list    allowed"),
                           ("otto", "list    denied ")):
            _, told = run(harness.KESTD, "access", "explain", name, "/docs/x",
                          "--config", self.config)
            self.assertIn(said, told)
        self.slapd.stop()
        other = self.add("carol", "other")
        try:
            wait_for(lambda: self.ask(other, name="carol").status == 503, "what nobody knows")
        finally:
            self.slapd.start()
        self.works(other, name="carol")


del Cases  # it has no cases of its own
