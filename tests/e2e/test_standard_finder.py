# SPDX-License-Identifier: Apache-2.0
"""Finder (WebDAVFS of macOS) and the file programs of phones, request by request."""

import os
import unicodedata

import davxml
from dav import multistatus
from flows import FlowCase, asks
from harness import pattern

STAT = asks("getlastmodified", "getcontentlength", "creationdate", "resourcetype")
READDIR = asks("getlastmodified", "getcontentlength", "creationdate", "resourcetype", others=(
    '<A:appledoubleheader xmlns:A="http://www.apple.com/webdav_fs/props/"/>',))


class Finder(FlowCase):
    """It knows elements by their local names, at any depth, and looks at no property's status."""

    always = {"User-Agent": "WebDAVFS/3.0.0 (03008000) Darwin/22.0.0 (x86_64)", "Accept": "*/*"}

    def as_it_reads(self, body):
        """{local name: [text]} of all elements that have a text, or are "collection"."""
        found = {}
        for element in davxml.parsed(body).iter():
            name = element.tag.split("}")[-1].lower()
            if len(element):
                continue  # line breaks between elements are no text
            if element.text or name == "collection":
                self.assertEqual(element.text or "", (element.text or "").strip())
                found.setdefault(name, []).append(element.text)
        return found

    def stat(self, name, wanted=207):
        return self.ask("PROPFIND", name, STAT, wanted, Depth="0")

    def test_mount(self):
        options = self.ask("OPTIONS", "", None, 200)
        self.assertIn("2", options.headers["dav"].replace(" ", "").split(","))
        self.assertEqual(len(self.as_it_reads(self.stat("").body)["collection"]), 1)
        quota = self.ask("PROPFIND", "", asks("quota-available-bytes", "quota-used-bytes", "quota",
                                              "quotaused"), 207, Depth="0")
        read = self.as_it_reads(quota.body)
        self.assertGreater(int(read["quota-available-bytes"][0]), 0)
        self.assertGreaterEqual(int(read["quota-used-bytes"][0]), 0)
        self.assertNotIn("quota", read)

    def test_probes_are_plain_404s(self):
        os.mkdir(self.tree / "probed")
        for name in ("._x", ".DS_Store", ".hidden", ".metadata_never_index", ".Spotlight-V100",
                     "Backups.backupdb", "mach_kernel", "._."):
            self.stat("probed/" + name, 404)

    def test_folder_is_listed(self):
        names = ["a & b.txt", "Drüber.txt", "._a & b.txt", "<c>.txt"]
        for name in names:
            self.tree.write("listed/" + unicodedata.normalize("NFD", name), b"12345")
        os.mkdir(self.tree / "listed/sub")
        reply = self.ask("PROPFIND", "listed", READDIR, 207, Depth="1")
        read = self.as_it_reads(reply.body)
        self.assertEqual(len(read["href"]), 6, "one for each entry, and none inside a property")
        self.assertEqual(len(read["collection"]), 2)
        self.assertEqual(read["getcontentlength"], ["5"] * 4)
        for href in read["href"]:
            self.assertTrue(href.startswith("/Ferro/docs/listed/") and "&" not in href, href)
        own, *members = sorted(multistatus(reply.body), key=lambda entry: len(entry.path))
        self.assertEqual(own.href, "/Ferro/docs/listed/")
        self.assertTrue(all(len(entry.path) > len(own.path) for entry in members))

    def test_new_file_is_saved(self):
        data = pattern(60_000, 4)
        for name, content in (("Dru\u0308ber & dru\u0308nter.txt", data),
                              ("._Dru\u0308ber & dru\u0308nter.txt", b"resource"),
                              (".DS_Store", pattern(6148, 5))):
            self.stat(name, 404)
            self.ask("PUT", name, b"", 201)
            token = self.locked(name, 200, "<D:href>http://www.apple.com/webdav_fs/</D:href>",
                                Depth="0", Timeout="Second-600")
            condition = f"(<{token}>)"
            self.put_in_chunks(name, content, len(content), 204, If=condition)
            self.refresh(name, token, Timeout="Second-600", Content_Type="text/xml")
            self.unlock(name, token)
            read = self.as_it_reads(self.stat(name).body)
            self.assertEqual(read["getcontentlength"], [str(len(content))])
            self.assertEqual(self.tree.read(name), content)

    def test_document_is_saved_by_way_of_another_name(self):
        self.tree.write("Letter.txt", b"old")
        self.stat("(A Document Being Saved)", 404)
        self.ask("MKCOL", "(A Document Being Saved)", None, 201)
        name = "(A Document Being Saved)/Letter.txt"
        self.ask("PUT", name, b"", 201)
        token = self.locked(name, 200, Depth="0", Timeout="Second-600")
        self.put_in_chunks(name, b"new content", 11, 204, If=f"(<{token}>)")
        self.unlock(name, token)
        # A move without "Overwrite" replaces.
        self.ask("MOVE", name, None, 204, Destination=self.docs("Letter.txt"))
        self.assertEqual(self.tree.read("Letter.txt"), b"new content")
        # A folder goes when it is empty.
        self.assertEqual(len(self.entries("PROPFIND", "(A Document Being Saved)", READDIR,
                                          Depth="1")), 1)
        self.ask("DELETE", "(A Document Being Saved)", None, 204)

    def test_upload_that_is_cut_changes_nothing(self):
        self.tree.write("cut.bin", b"whole")
        self.put_in_chunks("cut.bin", b"half", 8, 400)
        self.assertEqual(self.tree.read("cut.bin"), b"whole")

    def test_reading_goes_on_where_it_stopped(self):
        data = pattern(50_000, 6)
        self.tree.write("resumed", data)
        first = self.ask("GET", "resumed", None, 200)
        self.assertEqual(first.headers["content-length"], "50000")
        date = first.headers["last-modified"]
        self.ask("GET", "resumed", None, 304, If_Modified_Since=date)
        os.utime(self.tree / "resumed", (1_700_000_000, 1_700_000_000))
        date = self.ask("HEAD", "resumed", None, 200).headers["last-modified"]
        part = self.ask("GET", "resumed", None, 206, Range="bytes=20000-", If_Range=date)
        self.assertEqual(part.body, data[20_000:])

    def test_refusal_of_one_file_is_no_multistatus(self):
        """With one it asks again for ever."""
        self.tree.write("held/in", b"x")
        token = self.locked("held/in", 200, Depth="0", Timeout="Second-600")
        self.ask("DELETE", "held/in", None, 423)
        self.ask("LOCK", "held/in", b'<?xml version="1.0"?><D:lockinfo xmlns:D="DAV:"><D:lockscope>'
                 b"<D:exclusive/></D:lockscope><D:locktype><D:write/></D:locktype></D:lockinfo>",
                 423, Depth="0", Timeout="Second-600")
        self.unlock("held/in", token)


class Phones(FlowCase):
    def test_android_reads_any_place_of_a_file(self):
        """The storage access framework of DAVx5."""
        data = pattern(300_000, 7)
        self.tree.write("film", data)
        os.utime(self.tree / "film", (1_700_000_000, 1_700_000_000))
        head = self.ask("HEAD", "film", None, 200)
        tag = head.headers["etag"]
        self.assertEqual(head.headers["accept-ranges"], "bytes")
        self.assertEqual(head.headers["content-length"], "300000")
        self.assertFalse(tag.startswith("W/"))
        for first, last in ((299_990, 299_999), (0, 9), (131_072, 262_143)):
            part = self.ask("GET", "film", None, 206, Range=f"bytes={first}-{last}", If_Match=tag)
            self.assertEqual(part.body, data[first:last + 1])
        self.tree.write("film", data[::-1])
        self.ask("GET", "film", None, 412, Range="bytes=0-9", If_Match=tag)

    def test_android_stores_photographs(self):
        self.ask("PROPFIND", "Camera", asks("resourcetype"), 404, Depth="0")
        self.ask("MKCOL", "Camera", None, 201)
        self.ask("MKCOL", "Camera", None, 405)
        data = pattern(400_000, 8)
        put = self.ask("PUT", "Camera/IMG 0001.jpg", data, 201, If_None_Match="*",
                       Content_Type="image/jpeg", X_OC_Mtime="1700000000")
        self.assertEqual(put.headers["x-oc-mtime"], "accepted")
        self.ask("PUT", "Camera/IMG 0001.jpg", data, 412, If_None_Match="*",
                 Content_Type="image/jpeg")
        entry = self.entries("PROPFIND", "Camera", asks("getetag", "getcontenttype",
                                                        "getcontentlength", "getlastmodified"),
                             Depth="1")[1]
        self.assertEqual(entry.text("getetag"), put.headers["etag"])
        self.assertEqual(entry.text("getcontenttype"), "image/jpeg")
        self.assertEqual(entry.text("getlastmodified"), "Tue, 14 Nov 2023 22:13:20 GMT")
        self.assertEqual(self.tree.read("Camera/IMG 0001.jpg"), data)

    def test_zotero_tries_the_place_out(self):
        self.ask("OPTIONS", "zotero", None, 200)
        question = asks("getcontentlength")
        self.ask("PROPFIND", "zotero", question, 404, Depth="0")
        self.ask("MKCOL", "zotero", None, 201)
        self.ask("PROPFIND", "zotero", question, 207, Depth="0")
        self.ask("GET", "zotero/nonexistent.prop", None, 404)
        self.ask("PUT", "zotero/zotero-test-file.prop", b" ", (201, 204))
        self.assertEqual(self.ask("GET", "zotero/zotero-test-file.prop", None, 200).body, b" ")
        self.ask("DELETE", "zotero/zotero-test-file.prop", None, 204)

    def test_players_know_folders_by_their_slash(self):
        self.tree.write("media/album/song.mp3", b"x")
        own, album = self.entries("PROPFIND", "media", asks("resourcetype", "getcontenttype"),
                                  Depth="1")
        for entry in (own, album):
            self.assertTrue(entry.href.endswith("/") and entry.is_collection())
        _, song = self.entries("PROPFIND", "media/album", asks("getcontenttype"), Depth="1")
        self.assertEqual(song.text("getcontenttype"), "audio/mpeg")

    def test_ios_walks_browses_and_edits(self):
        """The Files of iOS and programs beside it: read at once, save by PUT with the tag."""
        self.tree.write("ios/note.txt", b"old")
        self.ask("OPTIONS", "ios", None, 200)
        _, note = self.entries("PROPFIND", "ios", b"", Depth="1")
        read = self.send("GET", note.href, None, 200)
        self.assertEqual(read.body, b"old")
        self.ask("PUT", "ios/note.txt", b"new", 412, If_Match='"another"')
        self.assertEqual(self.tree.read("ios/note.txt"), b"old")
        tag = self.ask("PUT", "ios/note.txt", b"new", 204).headers["etag"]
        self.ask("PUT", "ios/note.txt", b"newer", 204, If_Match=tag)
        self.ask("MOVE", "ios/note.txt", None, 201, Destination=self.docs("ios", "Notiz ü.txt"),
                 Overwrite="F")
        self.assertEqual(self.tree.read("ios/Notiz ü.txt"), b"newer")

    def test_remotely_save_walks_with_dates(self):
        """It parses the date's text as it is, and walks by one level or all at once."""
        self.tree.write("vault/a/b/note.md", b"text")
        for depth, count in (("1", 2), ("infinity", 4)):
            found = self.entries("PROPFIND", "vault", b"", Depth=depth)
            self.assertEqual(len(found), count)
            for entry in found:
                self.assertRegex(entry.text("getlastmodified"), r"^\w{3}, \d\d \w{3} \d{4} .* GMT$")

    def test_webdavfs_writes_parts(self):
        """Where PATCH or PUT with a range is offered, a mount may write in place."""
        self.tree.write("parts", b"0123456789")
        self.assertIn("sabredav-partialupdate", self.ask("OPTIONS", "parts", None,
                                                         200).headers["dav"])
        self.ask("PATCH", "parts", b"abc", 204, X_Update_Range="bytes=2-4",
                 Content_Type="application/x-sabredav-partialupdate")
        self.ask("PUT", "parts", b"XY", 204, Content_Range="bytes 8-9/*")
        self.assertEqual(self.tree.read("parts"), b"01abc567XY")
