# SPDX-License-Identifier: Apache-2.0
"""What the desktops that are not at hand send, in their order: macOS's Finder and Windows."""

import xml.etree.ElementTree as ElementTree

from dav import D, multistatus
from replayed_client import ClientCase, asks, wants_lock


class Finder(ClientCase):
    """WebDAVFS of macOS. It knows elements by their local names, at any depth."""

    always = {"User-Agent": "WebDAVFS/3.0.0 (03008000) Darwin/22.0.0 (x86_64)", "Accept": "*/*"}
    STAT = asks("getlastmodified", "getcontentlength", "creationdate", "resourcetype")

    def test_mount_may_write(self):
        options = self.ask("OPTIONS", self.path() + "/")
        self.assertIn("2", options.headers["dav"].replace(" ", "").split(","))
        entry = self.listing(self.path() + "/", 0, self.STAT)[0]
        self.assertTrue(entry.is_collection())
        # It asks how much room there is; without an answer it shows none.
        quota = self.listing(self.path() + "/", 0,
                             asks("quota-available-bytes", "quota-used-bytes", "quota",
                                  "quotaused"))
        self.assertEqual(len(quota), 1)

    def test_probes_are_plain_404s(self):
        for name in ("._x", ".DS_Store", ".hidden", ".metadata_never_index", ".Spotlight-V100",
                     "Backups.backupdb", "mach_kernel"):
            reply = self.ask("PROPFIND", self.path(name), self.STAT, Depth="0", **self.xml())
            self.assertEqual((reply.status, reply.body), (404, self.server.not_found_body()), name)

    def test_save_of_a_new_file(self):
        # Names come decomposed.
        for name in ("Dru\u0308ber & dru\u0308nter.txt", "._Dru\u0308ber & dru\u0308nter.txt"):
            path = self.path(name)
            self.assertEqual(self.ask("PUT", path, b"").status, 201)
            reply = self.ask("LOCK", path, wants_lock("<D:href>http://www.apple.com/webdav_fs/"
                                                      "</D:href>"),
                             Depth="0", Timeout="Second-600", **self.xml())
            self.assertEqual(reply.status, 200)
            token = self.token_in(reply)
            chunks = b"5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n"
            put = self.ask("PUT", path, chunks, Transfer_Encoding="chunked",
                           X_Expected_Entity_Length="11", If=f"(<{token}>)")
            self.assertIn(put.status, (200, 201, 204))
            again = self.ask("LOCK", path, None, If=f"(<{token}>)", Timeout="Second-600",
                             **self.xml())
            self.assertEqual((again.status, self.token_in(again)), (200, token))
            self.assertIn(self.ask("UNLOCK", path, None, Lock_Token=f"<{token}>").status,
                          (200, 204))
            self.assertEqual(self.tree.read(name), b"hello world")

    def test_listing_holds_only_what_was_asked_for(self):
        self.tree.write("only/a & b.txt", b"x")
        self.tree.write("only/c.txt", b"y")
        reply = self.ask("PROPFIND", self.path("only") + "/", self.STAT, Depth="1", **self.xml())
        for element in (b"lockdiscovery", b"supportedlock", b"displayname", b"getcontenttype"):
            self.assertNotIn(element, reply.body)
        root = ElementTree.fromstring(reply.body)
        hrefs = [href.text for href in root.iter(D + "href")]
        self.assertEqual(len(hrefs), 3, "one for each entry")
        for href in hrefs:
            self.assertNotIn("&", href)
            self.assertEqual(href, href.strip())
        self.assertEqual(len(list(root.iter(D + "collection"))), 1)
        dates = [date.text for date in root.iter(D + "getlastmodified")]
        self.assertEqual(len(dates), 3)
        for date in dates:
            self.assertRegex(date, r"^\w{3}, \d\d \w{3} \d{4} \d\d:\d\d:\d\d GMT$")

    def test_what_is_missing_is_left_empty(self):
        # The status of a property is not looked at.
        self.tree.write("untyped", b"x")
        entry, = self.listing(self.path("untyped"), 0, asks("getcontentlanguage", "source"))
        self.assertEqual(entry.found, {})
        for name in ("getcontentlanguage", "source"):
            element = entry.missing[D + name]
            self.assertEqual((element.text, len(element), element.attrib), (None, 0, {}))

    def test_move_without_overwrite_replaces(self):
        self.tree.write("from", b"new")
        self.tree.write("to", b"old")
        reply = self.ask("MOVE", self.path("from"), None,
                         Destination=self.server.url("docs", "to"))
        self.assertIn(reply.status, (201, 204))
        self.assertEqual(self.tree.read("to"), b"new")

    def test_refused_change_of_one_file_is_no_multistatus(self):
        # One that is makes it wait for ever.
        self.tree.write("held", b"x")
        path = self.path("held")
        token = self.token_in(self.ask("LOCK", path, wants_lock("other"), Depth="0",
                                       Timeout="Second-600", **self.xml()))
        self.assertEqual(self.ask("DELETE", path).status, 423)
        self.assertEqual(self.ask("LOCK", path, wants_lock("me"), Depth="0", Timeout="Second-600",
                                  **self.xml()).status, 423)
        self.ask("UNLOCK", path, None, Lock_Token=f"<{token}>")

    def test_reads_go_on_where_they_stopped(self):
        self.tree.write("resumed", b"0123456789")
        path = self.path("resumed")
        first = self.ask("GET", path)
        self.assertEqual(first.headers["content-length"], "10")
        date = first.headers["last-modified"]
        self.assertEqual(self.ask("GET", path, None, If_Modified_Since=date).status, 304)
        part = self.ask("GET", path, None, Range="bytes=5-9", If_Range=date)
        self.assertEqual((part.status, part.body), (206, b"56789"))


class MiniRedirector(ClientCase):
    """The network drive of Windows."""

    always = {"User-Agent": "Microsoft-WebDAV-MiniRedir/10.0.22621", "translate": "f",
              "Connection": "Keep-Alive", "Pragma": "no-cache"}
    TIMES = (b'<?xml version="1.0" encoding="utf-8" ?><D:propertyupdate xmlns:D="DAV:" '
             b'xmlns:Z="urn:schemas-microsoft-com:"><D:set><D:prop>'
             b"<Z:Win32CreationTime>Tue, 14 Nov 2023 22:13:20 GMT</Z:Win32CreationTime>"
             b"<Z:Win32LastAccessTime>Tue, 14 Nov 2023 22:13:20 GMT</Z:Win32LastAccessTime>"
             b"<Z:Win32LastModifiedTime>Tue, 14 Nov 2023 22:13:20 GMT</Z:Win32LastModifiedTime>"
             b"<Z:Win32FileAttributes>00000020</Z:Win32FileAttributes>"
             b"</D:prop></D:set></D:propertyupdate>")

    def locked(self, path):
        # Without a depth.
        reply = self.ask("LOCK", path, wants_lock("<D:href>PC\\anna</D:href>"),
                         Timeout="Second-3600", **self.xml())
        self.assertIn(reply.status, (200, 201))
        token = self.token_in(reply)
        self.assertEqual(reply.headers["lock-token"], f"<{token}>")
        return token

    def unlock(self, path, token):
        self.assertIn(self.ask("UNLOCK", path, None, Lock_Token=f"<{token}>").status, (200, 204))

    def test_every_step_down_to_the_folder_answers(self):
        for path in ("/", "/Ferro", self.path()):
            options = self.ask("OPTIONS", path)
            self.assertEqual(options.status, 200, path)
            self.assertEqual(options.headers["dav"].replace(" ", "").split(",")[:2], ["1", "2"])
            self.assertEqual(options.headers["ms-author-via"], "DAV")
            self.assertIn("PROPFIND", options.headers["allow"])
            # Without a body: everything is asked for.
            reply = self.ask("PROPFIND", path, b"", Depth="0")
            self.assertEqual(reply.status, 207, path)
            self.assertTrue(multistatus(reply.body)[0].is_collection())

    def test_new_file_is_made_step_by_step(self):
        path = self.path("New Text Document.txt")
        self.assertEqual(self.ask("PROPFIND", path, b"", Depth="0").status, 404)
        self.assertEqual(self.ask("PUT", path, b"").status, 201)
        token = self.locked(path)
        mine = {"If": f"(<{token}>)"}
        # An empty answer would be shown as a full disk.
        times = self.ask("PROPPATCH", path, self.TIMES, **mine, **self.xml())
        self.assertEqual(times.status, 207)
        entry, = multistatus(times.body)
        self.assertEqual((set(entry.found), entry.missing),
                         ({"{urn:schemas-microsoft-com:}" + name for name in (
                             "Win32CreationTime", "Win32LastAccessTime", "Win32LastModifiedTime",
                             "Win32FileAttributes")}, {}))
        self.assertEqual(self.ask("HEAD", path).status, 200)
        self.assertIn(self.ask("PUT", path, b"text", **mine).status, (200, 201, 204))
        self.assertEqual(self.ask("PROPPATCH", path, self.TIMES, **mine, **self.xml()).status, 207)
        self.unlock(path, token)
        entry = multistatus(self.ask("PROPFIND", path, b"", Depth="0").body)[0]
        self.assertEqual(entry.text("getcontentlength"), "4")
        self.assertRegex(entry.text("creationdate"), r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")

    def test_file_is_replaced_by_another(self):
        self.tree.write("doc.docx", b"old")
        doc, temporary = self.path("doc.docx"), self.path("~temp.tmp")
        first = self.locked(doc)
        second = self.locked(temporary)
        put = self.ask("PUT", temporary, b"new", If=f"(<{second}>)")
        self.assertIn(put.status, (200, 201, 204))
        self.unlock(doc, first)
        self.unlock(temporary, second)
        token = self.locked(temporary)
        move = self.ask("MOVE", temporary, None, Overwrite="T", If=f"(<{token}>)",
                        Destination=self.server.url("docs", "doc.docx"))
        self.assertIn(move.status, (201, 204))
        self.assertEqual(self.tree.read("doc.docx"), b"new")
        self.assertEqual(self.ask("PUT", doc, b"free").status // 100, 2, "the lock does not travel")

    def test_old_forms_of_the_depth_are_taken(self):
        self.tree.write("depth/file", b"x")
        reply = self.ask("PROPFIND", self.path("depth"), b"", Depth="1,noroot")
        self.assertEqual(reply.status, 207)
        self.assertEqual([entry.path for entry in multistatus(reply.body)],
                         ["/Ferro/docs/depth/file"])
        self.tree.write("depth/below/deep", b"x")
        reply = self.ask("PROPFIND", self.path("depth"), b"", Depth="infinity,noroot")
        self.assertEqual({entry.path for entry in multistatus(reply.body)},
                         {"/Ferro/docs/depth/file", "/Ferro/docs/depth/below/",
                          "/Ferro/docs/depth/below/deep"})

    def test_office_saves(self):
        self.tree.write("office.docx", b"old")
        path = self.path("office.docx")
        # "Existence Discovery" asks for the folder.
        for method in ("OPTIONS", "HEAD"):
            reply = self.ask(method, self.path() + "/",
                             User_Agent="Microsoft Office Existence Discovery")
            self.assertEqual(reply.status, 200)
        reply = self.ask("LOCK", path, wants_lock("Anna"), Timeout="Second-120", Depth="0",
                         **self.xml())
        token = self.token_in(reply)
        self.assertRegex(self.in_lock(reply, "timeout").text, r"^Second-1(20|1\d)$")
        again = self.ask("LOCK", path, b"", If=f"(<{token}>)", Timeout="Second-120")
        self.assertEqual((again.status, self.token_in(again)), (200, token))
        self.assertIn(self.ask("PUT", path, b"new", If=f"(<{token}>)").status, (200, 201, 204))
        # Sometimes without the angle brackets.
        self.assertIn(self.ask("UNLOCK", path, None, Lock_Token=token).status, (200, 204))
        self.assertEqual(self.ask("PUT", path, b"free").status // 100, 2)
