# SPDX-License-Identifier: Apache-2.0
"""Access rules: every method with every set of rights, for files, folders and trees.

Each set of rights is a folder whose members "anna" has them on, as one of a group; "ben" may do
everything. What a method needs is written down here once, by the definition of the rights.
"""

import os
import re
import shutil
import unittest

from access_rules import (ANNA, BEN, GOOD, LOCK_BODY, PATCH_BODY, USERS, form, name_of, rule,
                          rules, snapshot, subsets)
from harness import ServerCase, url_path


class Table:
    """The table method x right x kind of object, in one dialect."""

    dialect = None

    @classmethod
    def setUpClass(cls):
        cls.options = (*USERS, "--dialect", cls.dialect)
        cls.settings = rules(**{name_of(r): rule(f"/docs/{name_of(r)}/*", r) for r in subsets()})
        super().setUpClass()

    def fresh(self, rights):
        """A file, a folder with a member, and a free folder beside, as they are at first."""
        for folder in (name_of(rights), "free"):
            shutil.rmtree(self.tree / folder, ignore_errors=True)
            self.tree.write(f"{folder}/file", b"secret content")
            self.tree.write(f"{folder}/folder/member", b"secret member")
        self.folder = name_of(rights)

    def state(self):
        return snapshot(self.tree / self.folder), snapshot(self.tree / "free")

    def ask(self, method, *parts, headers=None, body=None, user=ANNA):
        headers = {**user, **(headers or {})}
        if "Destination" in headers:
            headers["Destination"] = url_path("docs", *headers["Destination"])
        return self.server.request(method, url_path("docs", *parts), body, headers)

    def check(self, rights, expected, method, *parts, headers=None, body=None):
        """expected: True for a success, the status of the refusal, or False for any refusal."""
        before = self.state()
        reply = self.ask(method, *parts, headers=headers, body=body)
        where = f"{method} {'/'.join(parts)} {headers} with {sorted(rights)}: {reply}"
        if expected is True:
            self.assertIn(reply.status, GOOD, where)
        else:
            if expected:
                self.assertEqual(reply.status, expected, where)
            self.assertGreaterEqual(reply.status, 400, where)
            self.assertEqual(before, self.state(), where)
        return reply

    def each(self):
        for rights in subsets():
            known = bool(rights & {"list", "read"})
            self.fresh(rights)
            yield rights, known, 403 if known else 404

    def test_reading(self):
        for rights, known, refused in self.each():
            may_read = True if "read" in rights else refused
            may_know = True if known else 404
            reply = self.check(rights, may_read, "GET", self.folder, "file")
            self.assertEqual("read" in rights, b"secret content" in reply.body)
            self.check(rights, may_know, "HEAD", self.folder, "file")
            self.check(rights, may_know, "GET", self.folder, "folder")
            for kind in ("file", "folder"):
                self.check(rights, may_know, "PROPFIND", self.folder, kind,
                           headers={"Depth": "0"})
            for name in ("file", "none"):
                reply = self.ask("OPTIONS", self.folder, name)
                self.assertEqual(reply.status, 200)

    def test_listing(self):
        for rights, known, _ in self.each():
            for depth in ("1", "infinity") if self.dialect == "standard" else ("1",):
                reply = self.ask("PROPFIND", self.folder, headers={"Depth": depth})
                self.assertEqual(reply.status, 207, reply)
                for name in (b"/folder", b"/file") + ((b"/member",) if depth != "1" else ()):
                    self.assertEqual("list" in rights, name in reply.body, reply)
            page = self.ask("GET", self.folder, headers={"Accept": "text/html"})
            self.assertEqual(page.status, 200)
            self.assertEqual("list" in rights, b"/file" in page.body, page)
            page = self.ask("GET", self.folder, ".index_xml")
            self.assertEqual("list" in rights, b"file" in page.body, page)

    def test_making(self):
        for rights, _, _ in self.each():
            create = True if "create" in rights else 403
            change = True if "change" in rights else 403
            self.check(rights, create, "PUT", self.folder, "new", body=b"x")
            self.check(rights, change, "PUT", self.folder, "file", body=b"y")
            self.check(rights, create, "MKCOL", self.folder, "made")
            self.check(rights, create, "LOCK", self.folder, "locknew", body=LOCK_BODY)
            for name, may in (("formed", create), ("file", change)):
                before = self.state()
                headers, body = form(name, "by form")
                self.ask("POST", self.folder, headers=headers, body=body)
                if may is True:
                    self.assertEqual(self.tree.read(f"{self.folder}/{name}"), b"by form")
                else:
                    self.assertEqual(before, self.state(), (name, rights))

    def test_changing(self):
        for rights, known, refused in self.each():
            may = known and "change" in rights
            self.check(rights, True if may else refused, "PROPPATCH", self.folder, "file",
                       body=PATCH_BODY)
            if self.dialect == "standard":
                found = self.ask("PROPFIND", self.folder, "file", headers={"Depth": "0"}, user=BEN)
                self.assertEqual(may, b">v<" in found.body, (rights, found))
            elif "change" in rights and not known:
                continue  # nobody could unlock: the classic dialect looks first
            reply = self.check(rights, True if "change" in rights else 403, "LOCK", self.folder,
                               "file", body=LOCK_BODY, headers={"Depth": "0"})
            if "change" in rights:
                token = reply.headers.get("lock-token") or re.search(
                    rb"(opaquelocktoken:[-0-9a-f]+|urn:uuid:[-0-9a-f]+)", reply.body)[1].decode()
                self.check(rights, True, "UNLOCK", self.folder, "file",
                           headers={"Lock-Token": token if token[0] == "<" else f"<{token}>"})

    def test_deleting(self):
        for rights, known, refused in self.each():
            # Where the classic dialect looks first, what may not be known is not there.
            may = "delete" in rights and (known or self.dialect == "standard")
            for kind in ("file", "folder"):
                self.check(rights, True if may else refused, "DELETE", self.folder, kind)
                self.assertNotEqual(may, os.path.exists(self.tree / f"{self.folder}/{kind}"))

    def test_copying_and_moving_away(self):
        for rights, known, refused in self.each():
            for method, needed in (("COPY", {"read"}), ("MOVE", {"read", "delete"})):
                for kind, more in (("file", set()), ("folder", {"list"})):
                    self.fresh(rights)
                    may = needed | more <= rights
                    if self.dialect == "classic" and method == "COPY" and kind == "folder":
                        if not may: # which it has a reason of its own to refuse
                            self.check(rights, False, method, self.folder, kind,
                                       headers={"Destination": ("free", "there")})
                        continue
                    self.check(rights, True if may else refused, method, self.folder, kind,
                               headers={"Destination": ("free", "there")})
                    if may:
                        self.assertTrue(os.path.exists(self.tree / "free/there"))

    def test_copying_and_moving_to(self):
        for rights, known, _ in self.each():
            for method in ("COPY", "MOVE"):
                for kind, target, needed in (
                        ("file", "new", {"create"}), ("folder", "new", {"create"}),
                        ("file", "file", {"change"}), ("folder", "folder", {"create", "delete"}),
                        ("folder", "file", {"create", "delete"}),
                        ("file", "folder", {"create", "delete"})):
                    self.fresh(rights)
                    may = needed <= rights
                    # The classic dialect refuses some of these by itself.
                    if self.dialect == "classic" and (target, kind) != ("new", "file"):
                        if not may:
                            self.check(rights, False, method, "free", kind,
                                       headers={"Destination": (self.folder, target)})
                        continue
                    self.check(rights, True if may else 403, method, "free", kind,
                               headers={"Destination": (self.folder, target)})

    def test_what_nobody_restricts_stays_open(self):
        self.fresh({"list"})
        self.assertEqual(self.ask("GET", self.folder, "file", user=BEN).status, 200)
        self.assertIn(self.ask("PUT", self.folder, "new", body=b"", user=BEN).status, GOOD)
        self.assertIn(self.ask("DELETE", self.folder, "folder", user=BEN).status, GOOD)


class ClassicTable(Table, ServerCase):
    dialect = "classic"


class StandardTable(Table, ServerCase):
    dialect = "standard"

    def test_patching(self):
        for rights, known, _ in self.each():
            expected = 403
            if rights & {"create", "change"}:
                expected = 404 if not known else True if "change" in rights else 403
            self.check(rights, expected, "PATCH", self.folder, "file", body=b"xy",
                       headers={"X-Update-Range": "bytes=0-1",
                                "Content-Type": "application/x-sabredav-partialupdate"})

    def test_extended_mkcol(self):
        body = (b'<D:mkcol xmlns:D="DAV:" xmlns:z="urn:z"><D:set><D:prop><D:resourcetype>'
                b"<D:collection/></D:resourcetype><z:p>v</z:p></D:prop></D:set></D:mkcol>")
        for rights, _, _ in self.each():
            self.check(rights, True if "create" in rights else 403, "MKCOL", self.folder, "made",
                       body=body, headers={"Content-Type": "application/xml"})

    def test_refusals_name_the_privilege(self):
        self.fresh({"list", "read"})
        for method, parts, headers, privilege, where in (
                ("PUT", ("new",), {}, "bind", "new"), ("MKCOL", ("new",), {}, "bind", "new"),
                ("DELETE", ("file",), {}, "unbind", "file"),
                ("PROPPATCH", ("file",), {}, "write-content", "file"),
                ("COPY", ("file",), {"Destination": (self.folder, "x")}, "bind", "x"),
                ("PUT", ("file",), {}, "bind", "file")):
            reply = self.ask(method, self.folder, *parts, headers=headers,
                             body=PATCH_BODY if method == "PROPPATCH" else None)
            self.assertEqual(reply.status, 403, reply)
            text = reply.body.decode()
            self.assertIn("<D:need-privileges>", text)
            self.assertIn(f"<D:privilege><D:{privilege}/></D:privilege>", text)
            self.assertIn(f"<D:href>{url_path('docs', self.folder, where)}</D:href>", text)
        # One that only the store knows of.
        self.fresh({"list", "read", "create"})
        reply = self.ask("PUT", self.folder, "file", body=b"x")
        self.assertEqual(reply.status, 403)
        self.assertIn(b"<D:write-content/>", reply.body)
        self.assertIn(b"/file</D:href>", reply.body)


if __name__ == "__main__":
    unittest.main()
