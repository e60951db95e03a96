# SPDX-License-Identifier: Apache-2.0
"""Access rules below what a request is about, what is told of what may not be seen, ways around the
rules, and home folders.
"""

import os
import shutil
import signal
import unittest

import harness
from access_rules import (ANNA, BEN, GOOD, LOCK_BODY, PATCH_BODY, RIGHTS, USERS, at, rule, rules,
                          snapshot)
from harness import ServerCase, TestServer, Tree, run, url_path, wait_for


class Below:
    """Rules below what a request is about, and ways around rules."""

    dialect = None
    settings = rules(
        keep=rule("/docs/tree/a/keep", {"list", "read", "create", "change"}),
        secret=rule("/docs/secret", ()),
        secretdeep=rule("/docs/hides/in/secret", ()),
        drop=rule("/docs/drop/*", {"create"}),
        unlisted=rule("/docs/unlisted/*", {"read"}))

    @classmethod
    def setUpClass(cls):
        cls.options = (*USERS, "--dialect", cls.dialect)
        super().setUpClass()

    def setUp(self):
        for name in os.listdir(self.tree / ""):
            if name != ".kest":
                path = self.tree / name
                is_tree = os.path.isdir(path) and not os.path.islink(path)
                shutil.rmtree(path) if is_tree else os.unlink(path)
        self.tree.write("tree/a/keep/file", b"kept")
        self.tree.write("tree/b", b"b")
        self.tree.write("secret/name-of-secret", b"TOPSECRET")
        self.tree.write("hides/in/secret/name-of-secret", b"TOPSECRET")
        self.tree.write("open/file", b"open")
        self.tree.write("unlisted/file", b"readable")
        os.mkdir(self.tree / "drop")

    def ask(self, method, path, headers=None, body=None, user=ANNA):
        return self.server.request(method, path, body, {**user, **(headers or {})})

    def refused(self, method, path, headers=None, body=None, status=(403,)):
        before = snapshot(self.tree / "")
        reply = self.ask(method, path, headers, body)
        self.assertIn(reply.status, status, (method, path, headers, reply))
        self.assertEqual(before, snapshot(self.tree / ""), (method, path))
        self.assertNotIn(b"name-of-secret", reply.body, (method, path))
        return reply

    def test_a_tree_fails_whole(self):
        for path in ("tree", "tree/a", "tree/a/keep", "tree/a/keep/file"):
            self.refused("DELETE", at(path))
            self.refused("MOVE", at(path), {"Destination": url_path("docs", "x")})
        self.refused("MOVE", self.path("open"),
                     {"Destination": url_path("docs", "tree", "a"), "Overwrite": "T"})
        self.refused("COPY", self.path("open"), # 412: the classic dialect's own refusal
                     {"Destination": url_path("docs", "tree"), "Overwrite": "T"},
                     status=(403, 412) if self.dialect == "classic" else (403,))
        self.refused("COPY", self.path("hides"), {"Destination": url_path("docs", "x")})
        self.refused("MOVE", self.path("hides", "in"), {"Destination": url_path("docs", "x")})
        self.refused("DELETE", self.path("hides"))
        self.refused("LOCK", self.path("hides"), {"Depth": "infinity"}, LOCK_BODY)
        if self.dialect == "standard": # the classic one copies no trees of that kind
            self.assertIn(self.ask("COPY", self.path("tree"),
                                   {"Destination": url_path("docs", "x")}).status, GOOD)
            self.assertEqual(self.tree.read("x/a/keep/file"), b"kept")
        # Nothing of what may not be made comes into being below a new place.
        self.tree.write("other/in/secret/y", b"y")
        shutil.rmtree(self.tree / "hides")
        self.refused("COPY", self.path("other"), {"Destination": url_path("docs", "hides")})

    def test_what_may_not_be_seen_is_not_there(self):
        secret, missing = self.path("secret"), self.path("missing")
        for method, body in (("GET", None), ("HEAD", None), ("PROPFIND", None), ("DELETE", None),
                             ("PROPPATCH", PATCH_BODY)):
            told = self.refused(method, secret, {"Depth": "0"}, body, status=(404,))
            none = self.ask(method, missing, {"Depth": "0"}, body)
            self.assertEqual(told.status, none.status, method)
            inside = self.path("secret", "name-of-secret")
            self.refused(method, inside, {"Depth": "0"}, body, status=(404,))
        for where in ("", "hides", "hides/in"):
            path = at(where) if where else self.path()
            for depth in ("1", "infinity"):
                reply = self.ask("PROPFIND", path, {"Depth": depth})
                self.assertNotIn(b"secret", reply.body, (where, depth))
            for accept in ("text/html", "*/*"):
                self.assertNotIn(b"secret", self.ask("GET", path, {"Accept": accept}).body)
        self.assertIn(b"secret", self.ask("PROPFIND", self.path(), {"Depth": "1"}, user=BEN).body)

    def test_deleted_entries_have_the_rights_of_where_they_were(self):
        for path in ("secret/name-of-secret", "open/file"):
            self.assertIn(self.ask("DELETE", at(path), user=BEN).status, GOOD)
        kept = {}
        for folder in ("secret", "open"):
            self.ask("POST", self.path(folder), {"Content-Type":
                                                 "application/x-www-form-urlencoded"},
                     b"ShowDeleted=1", user=BEN)
        for number in sorted(os.listdir(self.tree / ".kest/deleted"), key=int):
            with open(self.tree / f".kest/deleted/{number}", "rb") as file:
                kept[file.read()] = number
        secret = url_path("docs", ".kest", "deleted", kept[b"TOPSECRET"], "name-of-secret")
        mine = url_path("docs", ".kest", "deleted", kept[b"open"], "file")
        self.assertEqual(self.ask("GET", secret, user=BEN).body, b"TOPSECRET")
        for method, headers in (("GET", {}), ("HEAD", {}), ("PROPFIND", {"Depth": "0"}),
                                ("DELETE", {}), ("MOVE", {"Destination": self.path("got")}),
                                ("COPY", {"Destination": self.path("got")})):
            self.refused(method, secret, headers, status=(404,))
        self.assertEqual(self.ask("GET", mine).body, b"open")
        self.refused("MOVE", mine, {"Destination": self.path("secret", "x")})
        self.assertIn(self.ask("MOVE", mine, {"Destination": self.path("open", "file")}).status,
                      GOOD)
        self.assertEqual(self.tree.read("open/file"), b"open")

    def test_a_drop_folder_takes_and_tells_nothing(self):
        self.assertEqual(self.ask("PUT", self.path("drop", "one"), body=b"1").status, 201)
        self.refused("PUT", self.path("drop", "one"), body=b"2")
        self.refused("GET", self.path("drop", "one"), status=(404,))
        self.assertEqual(self.ask("PROPFIND", self.path("drop"), {"Depth": "1"}).status, 207)
        self.assertNotIn(b"one", self.ask("PROPFIND", self.path("drop"), {"Depth": "1"}).body)
        self.assertEqual(self.tree.read("drop/one"), b"1")

    def test_what_is_not_listed_is_read_by_its_name(self):
        self.assertEqual(self.ask("GET", self.path("unlisted", "file")).body, b"readable")
        self.assertNotIn(b"/file", self.ask("PROPFIND", self.path("unlisted"), {"Depth": "1"}).body)

    def test_no_spelling_leads_around(self):
        secret = "/Ferro/docs/secret/name-of-secret"
        spellings = [
            secret, secret + "/", "/Ferro//docs///secret//name-of-secret",
            "/Ferro/docs/./secret/./name-of-secret", "/Ferro/docs/open/../secret/name-of-secret",
            "/Ferro/docs/%73ecret/name-of-secret", "/Ferro/docs/%2573ecret/name-of-secret",
            "/Ferro/docs/%252573ecret/name-of-secret",
            "/Ferro/docs/secret%2Fname-of-secret", "/Ferro/docs/secret%252Fname-of-secret",
            "/Ferro/docs/%2e%2e/docs/secret/name-of-secret", "/Ferro/./docs/secret/name-of-secret",
            "/Ferro/docs/secret/.", "/Ferro/docs/secret/.index_xml", "/Ferro/docs/secret/",
            "/Ferro/docs/secret/./.index_xml", "/Ferro/docs/secret//.index_xml",
            "/Ferro/docs/secret/.index_xml/", "/Ferro/docs/secret?start=0", "/Ferro/docs/secret;x",
            "/Ferro/docs/secret/name-of-secret%00", "/Ferro/docs/SECRET/../secret/name-of-secret",
            "http://127.0.0.1/Ferro/docs/secret/name-of-secret",
            "/Ferro/docs/.kest/../secret/name-of-secret",
            "/Ferro/docs/.kest/deleted/../../secret/name-of-secret",
            "/Ferro/docs/.kest/deleted/secret/name-of-secret",
        ]
        for spelling in spellings:
            for method, headers in (("GET", {}), ("GET", {"Accept": "text/html"}),
                                    ("PROPFIND", {"Depth": "1"}), ("DELETE", {}),
                                    ("COPY", {"Destination": "/Ferro/docs/got"}),
                                    ("MOVE", {"Destination": "/Ferro/docs/got"})):
                before = snapshot(self.tree / "")
                reply = self.ask(method, spelling, headers)
                self.assertNotIn(reply.status, GOOD, (method, spelling, reply))
                self.assertNotIn(b"TOPSECRET", reply.body, (method, spelling))
                self.assertEqual(before, snapshot(self.tree / ""), (method, spelling))
            before = snapshot(self.tree / "")
            for method, source in (("COPY", "open/file"), ("MOVE", "open/file")):
                reply = self.ask(method, at(source),
                                 {"Destination": spelling, "Overwrite": "T"})
                now = snapshot(self.tree / "")
                self.assertEqual({k: v for k, v in before.items() if k.startswith("secret/")},
                                 {k: v for k, v in now.items() if k.startswith("secret/")},
                                 (method, spelling, reply))
                if now != before:
                    self.setUp()
                    before = snapshot(self.tree / "")
            reply = self.ask("PUT", spelling, body=b"mine")
            self.assertEqual(self.tree.read("secret/name-of-secret"), b"TOPSECRET", spelling)
            self.setUp()

    def test_no_link_leads_around(self):
        os.symlink("../secret", self.tree / "open/folder")
        os.symlink("../secret/name-of-secret", self.tree / "open/alias")
        os.symlink("..", self.tree / "open/up")
        os.symlink("file", self.tree / "open/fine")
        self.assertEqual(self.ask("GET", self.path("open", "folder", "name-of-secret"),
                                  user=BEN).body, b"TOPSECRET")
        for path in ("open/folder/name-of-secret", "open/alias", "open/up/secret/name-of-secret",
                     "open/folder"):
            where = at(path)
            for method, headers in (("GET", {}), ("PROPFIND", {"Depth": "1"}),
                                    ("COPY", {"Destination": "/Ferro/docs/got"})):
                self.refused(method, where, headers, status=(403, 404, 409))
        self.refused("PUT", self.path("open", "folder", "new"), body=b"x", status=(403, 404, 409))
        self.refused("PUT", self.path("open", "folder", "name-of-secret"), body=b"x",
                     status=(403, 404, 409))
        self.refused("MKCOL", self.path("open", "folder", "new"), status=(403, 404, 409))
        self.refused("DELETE", self.path("open", "folder", "name-of-secret"),
                     status=(403, 404, 409))
        self.refused("MOVE", self.path("open", "folder", "name-of-secret"),
                     {"Destination": "/Ferro/docs/got"}, status=(403, 404, 409))
        self.refused("PROPPATCH", self.path("open", "alias"), body=PATCH_BODY,
                     status=(403, 404, 409))
        reply = self.ask("COPY", self.path("open"), {"Destination": "/Ferro/docs/got"})
        self.assertNotIn(b"TOPSECRET", b"".join(
            content or b"" for name, content in snapshot(self.tree / "").items()
            if name.startswith("got")), reply)
        self.assertEqual(self.ask("GET", self.path("open", "fine")).body, b"open")

    def test_conditions_do_not_tell_what_is_there(self):
        if self.dialect == "classic":
            return
        tag = self.ask("HEAD", self.path("secret", "name-of-secret"), user=BEN).headers["etag"]
        for condition in (f"([{tag}])", f"(Not [{tag}])"):
            told = [self.ask("PROPFIND", self.path("open"),
                             {"Depth": "0", "If": f"<{at(path)}> {condition}"}).status
                    for path in ("secret/name-of-secret", "secret/missing")]
            self.assertEqual(told[0], told[1], condition)


class ClassicBelow(Below, ServerCase):
    dialect = "classic"


class StandardBelow(Below, ServerCase):
    dialect = "standard"


class Homes(unittest.TestCase):
    """Home folders, volumes that only some see, and rules that change while the server runs."""

    def setUp(self):
        self.trees = {name: Tree() for name in ("homes", "staff", "docs")}
        for tree in self.trees.values():
            self.addCleanup(tree.remove)
        settings = rules(
            others=rule("/homes/*", (), who=("everybody",)),
            own=rule("/homes/%u", RIGHTS, who=("everybody",), Make=True),
            hidden=rule("/staff", (), who=("everybody",)),
            seen=rule("/staff", RIGHTS))
        self.server = TestServer({name: tree.path for name, tree in self.trees.items()}, USERS,
                                 settings)
        self.addCleanup(self.server.close)

    def ask(self, method, path, user, body=None, **headers):
        return self.server.request(method, path, body, {**user, **headers})

    def test_each_user_has_a_home_of_his_own(self):
        self.assertEqual(os.listdir(self.trees["homes"] / ""), [".kest"])
        self.assertEqual(self.ask("PUT", "/Ferro/homes/anna/x", ANNA, b"hers").status, 201)
        self.assertEqual(self.ask("PUT", "/Ferro/homes/anna/y", BEN, b"his").status, 403)
        self.assertEqual(self.ask("GET", "/Ferro/homes/anna/x", BEN).status, 404)
        self.assertEqual(self.trees["homes"].read("anna/x"), b"hers")
        self.assertTrue(os.path.isdir(self.trees["homes"] / "ben"))
        listing = self.ask("PROPFIND", "/Ferro/homes/", BEN, Depth="1").body
        self.assertIn(b"/homes/ben/", listing)
        self.assertNotIn(b"anna", listing)

    def test_a_volume_that_only_some_see(self):
        for path in ("/Ferro/", "/Ferro"):
            self.assertIn(b"staff", self.ask("PROPFIND", path, ANNA, Depth="1").body)
            self.assertNotIn(b"staff", self.ask("PROPFIND", path, BEN, Depth="1").body)
            self.assertNotIn(b"staff", self.ask("GET", path, BEN, Accept="text/html").body)
        hidden = self.ask("PROPFIND", "/Ferro/staff", BEN, Depth="0")
        none = self.ask("PROPFIND", "/Ferro/nowhere", BEN, Depth="0")
        self.assertEqual((hidden.status, hidden.body), (404, hidden.body))
        self.assertEqual(hidden.status, none.status)
        for method in ("PUT", "MKCOL"):
            self.assertEqual(self.ask(method, "/Ferro/staff/x", BEN).status, 403)

    def test_rules_are_taken_over_while_the_server_runs(self):
        self.assertEqual(self.ask("PUT", "/Ferro/docs/x", BEN, b"1").status, 201)
        self.server.settings = {**self.server.settings, **rules(
            fixed=rule("/docs", ("list", "read"), who=("user:ben",)))}
        self.server.command()  # writes the file
        self.server.process.send_signal(signal.SIGHUP)
        wait_for(lambda: self.ask("PUT", "/Ferro/docs/x", BEN, b"2").status == 403, "the new rule")
        self.assertIn("'Kest\\Configuration\\Access\\Rules\\fixed' 'Path' has changed: it is taken "
                      "over", self.server.log())
        self.assertIn(self.ask("PUT", "/Ferro/docs/x", ANNA, b"3").status, GOOD)
        # A wrong rule leaves the old ones in force.
        self.server.settings["Access\\Rules\\fixed"]["Rights"] = ["write"]
        self.server.command()
        self.server.process.send_signal(signal.SIGHUP)
        wait_for(lambda: "the old settings stay" in self.server.log(), "the refusal")
        self.assertEqual(self.ask("PUT", "/Ferro/docs/x", BEN, b"4").status, 403)

    def test_explain_names_the_rule(self):
        _, told = run(harness.KESTD, "access", "explain", "ben", "/staff/x",
                      *self.server.command()[2:])
        self.assertRegex(told, r"list +denied +rule 'hidden' on /staff")
        self.assertEqual(told.count("denied"), len(RIGHTS))
        _, told = run(harness.KESTD, "access", "explain", "otto", "/staff/x", "--group", "Staff",
                      *self.server.command()[2:])
        self.assertIn("there is no user 'otto'", told)
        self.assertRegex(told, r"list +allowed +rule")


if __name__ == "__main__":
    unittest.main()
