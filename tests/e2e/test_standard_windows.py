# SPDX-License-Identifier: Apache-2.0
"""Explorer's network drive (the mini redirector of Windows) and Office, request by request."""

import os

from dav import D, multistatus
from flows import FlowCase, asks
from harness import pattern

Z = "{urn:schemas-microsoft-com:}"
WHEN = "Tue, 14 Nov 2023 22:13:20 GMT"


def win32(*properties):
    """A PROPPATCH body as Windows writes it: one line, prefix Z."""
    inner = "".join(f"<Z:{name}>{value}</Z:{name}>" for name, value in properties)
    return ('<?xml version="1.0" encoding="utf-8" ?><D:propertyupdate xmlns:D="DAV:" '
            'xmlns:Z="urn:schemas-microsoft-com:"><D:set><D:prop>'
            f"{inner}</D:prop></D:set></D:propertyupdate>").encode()


TIMES = win32(("Win32CreationTime", "Sun, 06 Nov 1994 08:49:37 GMT"),
              ("Win32LastAccessTime", WHEN), ("Win32LastModifiedTime", WHEN),
              ("Win32FileAttributes", "00000020"))


class WindowsCase(FlowCase):
    always = {"User-Agent": "Microsoft-WebDAV-MiniRedir/10.0.22621", "translate": "f",
              "Connection": "Keep-Alive", "Pragma": "no-cache"}
    kind = 'text/xml; charset="utf-8"'

    def look(self, name, wanted=207):
        """Without a body: everything is asked for."""
        reply = self.ask("PROPFIND", name, b"", wanted, Depth="0")
        return multistatus(reply.body)[0] if wanted == 207 else None

    def take(self, name, wanted=200):
        """Without a depth."""
        return self.locked(name, wanted, "<D:href>PC\\anna</D:href>", Timeout="Second-3600")

    def patch(self, name, body, **headers):
        entry, = self.entries("PROPPATCH", name, body, **headers)
        self.assertEqual(entry.missing, {})
        return set(entry.found)


class Explorer(WindowsCase):
    def test_drive_is_mapped(self):
        for path in ("/", "/Ferro", self.path()):
            options = self.send("OPTIONS", path, None, 200)
            self.assertIn("2", options.headers["dav"].replace(" ", "").split(","))
            self.assertEqual(options.headers["ms-author-via"], "DAV")
            self.assertIn("PROPFIND", options.headers["allow"])
            own, = multistatus(self.send("PROPFIND", path, b"", 207, Depth="0").body)
            self.assertTrue(own.is_collection())
        # The size of the drive; without it that of C is shown.
        own = self.look("")
        for name in ("quota-available-bytes", "quota-used-bytes"):
            self.assertGreaterEqual(int(own.text(name)), 0)

    def test_folder_is_listed(self):
        self.tree.write("shown/a & b.txt", b"12345")
        os.mkdir(self.tree / "shown/sub folder")
        entries = self.entries("PROPFIND", "shown", b"", Depth="1")
        self.assertEqual([entry.href for entry in entries][0], "/Ferro/docs/shown/")
        found = {entry.text("displayname"): entry for entry in entries}
        self.assertEqual(set(found), {"shown", "a & b.txt", "sub folder"})
        file = found["a & b.txt"]
        self.assertEqual((file.text("getcontentlength"), file.is_collection()), ("5", False))
        self.assertTrue(found["sub folder"].is_collection())
        for depth, count in (("1,noroot", 2), ("infinity,noroot", 2)):
            self.assertEqual(len(self.entries("PROPFIND", "shown", b"", Depth=depth)), count)

    def test_new_file_is_made_step_by_step(self):
        name, data = "New Text Document.txt", pattern(30_000, 5)
        self.look(name, 404)
        self.ask("PUT", name, b"", 201)
        token = self.take(name)
        mine = {"If": f"(<{token}>)"}
        wanted = {Z + each for each in ("Win32CreationTime", "Win32LastAccessTime",
                                        "Win32LastModifiedTime", "Win32FileAttributes")}
        self.assertEqual(self.patch(name, TIMES, **mine), wanted)
        self.ask("HEAD", name, None, 200)
        self.ask("PUT", name, data, 204, **mine)
        self.assertEqual(self.patch(name, TIMES, **mine), wanted)
        self.unlock(name, token)
        entry = self.look(name)
        self.assertEqual(entry.text("getcontentlength"), "30000")
        self.assertEqual(entry.text("getlastmodified"), WHEN)
        self.assertEqual(entry.text("creationdate"), "1994-11-06T08:49:37Z")
        self.assertEqual(self.tree.read(name), data)

    def test_attributes_are_kept_by_a_rename_and_a_copy(self):
        self.ask("PUT", "kept.txt", b"1", 201)
        self.patch("kept.txt", win32(("Win32FileAttributes", "00000022")))
        self.ask("MOVE", "kept.txt", None, 201, Destination=self.docs("kept 2.txt"), Overwrite="F")
        self.ask("COPY", "kept 2.txt", None, 201, Destination=self.docs("kept 3.txt"))
        for name in ("kept 2.txt", "kept 3.txt"):
            entry, = self.entries("PROPFIND", name, b"", Depth="0")
            self.assertEqual(entry.found[Z + "Win32FileAttributes"].text, "00000022")
        self.ask("MOVE", "kept 2.txt", None, 412, Destination=self.docs("kept 3.txt"),
                 Overwrite="F")

    def test_folder_is_made_and_deleted(self):
        self.look("New folder", 404)
        self.ask("MKCOL", "New folder", None, 201)
        self.patch("New folder", TIMES)
        self.assertTrue(self.look("New folder").is_collection())
        self.ask("MOVE", "New folder", None, 201, Destination=self.docs("named"), Overwrite="F")
        self.ask("DELETE", "named", None, 204)
        self.look("named", 404)

    def test_part_of_a_file_is_read(self):
        self.tree.write("film.mkv", pattern(200_000, 4))
        head = self.ask("HEAD", "film.mkv", None, 200)
        self.assertEqual(head.headers["content-length"], "200000")
        part = self.ask("GET", "film.mkv", None, 206, Range="bytes=65536-131071")
        self.assertEqual(part.headers["content-range"], "bytes 65536-131071/200000")
        self.assertEqual(part.body, pattern(200_000, 4)[65536:131072])

    def test_file_that_another_holds_is_refused(self):
        self.ask("PUT", "held.txt", b"1", 201)
        token = self.take("held.txt")
        for method, headers in (("PUT", {}), ("DELETE", {}), ("PROPPATCH", {}),
                                ("MOVE", {"Destination": self.docs("taken")}),
                                ("LOCK", {"Timeout": "Second-3600"})):
            body = {"PUT": b"2", "PROPPATCH": TIMES}.get(method)
            if method == "LOCK":
                body = b'<?xml version="1.0"?><D:lockinfo xmlns:D="DAV:"><D:lockscope>' \
                       b"<D:exclusive/></D:lockscope><D:locktype><D:write/></D:locktype>" \
                       b"</D:lockinfo>"
            reply = self.ask(method, "held.txt", body, 423, **headers)
            self.assertNotIn(token.encode(), reply.body)
        self.assertEqual(self.tree.read("held.txt"), b"1")
        self.unlock("held.txt", token)


class Office(WindowsCase):
    def test_document_is_opened_and_saved(self):
        self.tree.write("office.docx", b"old")
        # "Existence Discovery" asks for the folder.
        for method in ("OPTIONS", "HEAD"):
            self.ask(method, "", None, 200, User_Agent="Microsoft Office Existence Discovery")
        reply = self.ask("LOCK", "office.docx", b'<?xml version="1.0"?><D:lockinfo xmlns:D="DAV:">'
                         b"<D:lockscope><D:exclusive/></D:lockscope><D:locktype><D:write/>"
                         b"</D:locktype><D:owner>Anna</D:owner></D:lockinfo>", 200,
                         Timeout="Second-120", Depth="0")
        lock = self.active_lock(reply)
        self.assertRegex(lock.find(D + "timeout").text, r"^Second-1(20|1\d)$")
        self.assertEqual(lock.find(D + "owner").text, "Anna")
        self.assertEqual(lock.find(f"{D}lockroot/{D}href").text, "/Ferro/docs/office.docx")
        token = self.token_of(reply)
        for _ in range(3):  # every minute, for as long as the document is open
            self.refresh("office.docx", token, Timeout="Second-120")
        entry, = self.entries("PROPFIND", "office.docx", asks("lockdiscovery", "supportedlock"),
                              Depth="0")
        self.assertEqual(len(entry.found[D + "supportedlock"]), 2)
        self.assertEqual(len(entry.found[D + "lockdiscovery"]), 1)
        self.ask("PUT", "office.docx", b"new", 204, If=f"(<{token}>)")
        # It takes the token from the body as it is, sometimes.
        self.ask("UNLOCK", "office.docx", None, 204, Lock_Token=token)
        self.assertEqual(self.tree.read("office.docx"), b"new")

    def test_document_is_replaced_by_a_temporary_file(self):
        self.tree.write("plan.docx", b"old")
        document, temporary = self.take("plan.docx"), self.take("~tmp.docx", 201)
        self.ask("PUT", "~tmp.docx", b"new", 204, If=f"(<{temporary}>)")
        self.unlock("~tmp.docx", temporary)
        self.unlock("plan.docx", document)
        temporary = self.take("~tmp.docx")
        self.ask("MOVE", "~tmp.docx", None, 204, Destination=self.docs("plan.docx"),
                 Overwrite="T", If=f"(<{temporary}>)")
        self.assertEqual(self.tree.read("plan.docx"), b"new")
        self.assertFalse(os.path.exists(self.tree / "~tmp.docx"))
        self.ask("PUT", "plan.docx", b"newer", 204)  # no lock has come along

    def test_folder_of_the_document_may_be_locked(self):
        self.tree.write("project/plan.docx", b"old")
        token = self.locked("project", 200, "Anna", Depth="infinity", Timeout="Second-120")
        self.ask("PUT", "project/plan.docx", b"theirs", 423)
        self.ask("PUT", "project/~new.docx", b"theirs", 423)
        self.ask("PUT", "project/plan.docx", b"mine", 204, If=f"(<{token}>)")
        for entry in self.entries("PROPFIND", "project", asks("lockdiscovery"), Depth="1"):
            self.assertEqual(len(entry.found[D + "lockdiscovery"]), 1)
        self.unlock("project", token)
