# SPDX-License-Identifier: Apache-2.0
"""What well-known clients send, in their order, and what each of them insists on in the replies.

Clients that are at hand are driven for real in the other modules; here are the words of those that
are not, and of the strict parts of those that are.
"""

import unittest
import xml.etree.ElementTree as ElementTree

from dav import D, multistatus
from harness import TestServer, Tree, curl, url_path
from replayed_client import ClientCase, asks


class Neon(ClientCase):
    """The library below cadaver and davfs2."""

    always = {"User-Agent": "cadaver/0.24 neon/0.32.4", "Connection": "TE", "TE": "trailers"}

    LOCK = (b'<?xml version="1.0" encoding="utf-8"?>\n<lockinfo xmlns=\'DAV:\'>\n'
            b" <lockscope><exclusive/></lockscope>\n<locktype><write/></locktype>"
            b"<owner><href>mailto:me</href></owner>\n</lockinfo>\n")

    def url(self, path):
        return self.server.base() + path

    def locked(self, path, status=200, **headers):
        reply = self.ask("LOCK", path, self.LOCK, Content_Type="application/xml", Depth="0",
                         **headers)
        self.assertEqual(reply.status, status)
        return reply

    def test_lock_tells_its_token_in_header_and_body(self):
        self.tree.write("locked.txt", b"x")
        path = self.path("locked.txt")
        reply = self.locked(path, Timeout="Second-1800")
        token = self.token_in(reply)
        self.assertEqual(reply.headers["lock-token"], f"<{token}>")
        self.assertRegex(self.in_lock(reply, "timeout").text, r"^Second-(1800|179\d)$")
        self.assertEqual(self.in_lock(reply, "depth").text, "0")
        # Found again with its owner's text as it was given.
        found = self.ask("PROPFIND", path, asks("lockdiscovery", namespace=""), Depth="0")
        self.assertEqual(found.status, 207)
        self.assertEqual(self.token_in(found), token)
        self.assertEqual(self.in_lock(found, "owner").find(D + "href").text, "mailto:me")
        # Kept alive without a body.
        again = self.ask("LOCK", path, None, If=f"(<{token}>)", Timeout="Second-1800")
        self.assertEqual((again.status, self.token_in(again)), (200, token))
        # A change names the resource that its token is of, whole or by its path.
        for name in (self.url(path), path):
            put = self.ask("PUT", path, b"y", If=f"<{name}> (<{token}>)")
            self.assertIn(put.status, (200, 201, 204))
        self.assertEqual(self.ask("PUT", path, b"z").status, 423)
        gone = self.ask("UNLOCK", path, None, Lock_Token=f"<{token}>")
        self.assertIn(gone.status, (200, 204))

    def test_folder_is_made_with_a_slash_at_its_end(self):
        path = self.path("made") + "/"
        self.assertEqual(self.ask("MKCOL", path).status, 201)
        self.assertEqual(self.ask("MKCOL", path).status, 405)
        self.assertEqual(self.ask("MKCOL", self.path("not", "there") + "/").status, 409)

    def test_fragment_in_the_target_deletes_nothing(self):
        self.tree.write("whole", b"x")
        self.assertEqual(self.ask("DELETE", self.path("whole") + "#part").status, 400)
        self.assertEqual(self.tree.read("whole"), b"x")

    def test_cadaver_lists_with_its_own_question(self):
        self.tree.write("ls/file", b"12345")
        entries = self.listing(
            self.path("ls") + "/", 1,
            asks("getcontentlength", "getlastmodified", "resourcetype", "checked-in",
                 "checked-out", others=['<e:executable xmlns:e="http://apache.org/dav/props/"/>']))
        self.assertTrue(entries[0].is_collection())
        self.assertEqual(entries[1].text("getcontentlength"), "5")
        self.assertRegex(entries[1].text("getlastmodified"), r"^\w{3}, \d\d \w{3} \d{4} \S+ GMT$")

    def test_davfs2_creates_under_a_lock(self):
        path = self.path("davfs new")
        options = self.ask("OPTIONS", self.path() + "/")
        self.assertEqual(options.headers["dav"].replace(" ", "").split(",")[:2], ["1", "2"])
        self.assertEqual(self.ask("HEAD", path).status, 404)
        # Without a condition. Any other status than 201, and its PUT asks that there be no file,
        # which the lock has made: what it stores is lost.
        lock = self.locked(path, 201, Timeout="Second-1800")
        token = self.token_in(lock)
        self.assertEqual(self.ask("LOCK", path, self.LOCK, Depth="0").status, 423,
                         "somebody else's file")
        tag = lock.headers["etag"]
        put = self.ask("PUT", path, b"content", If=f"<{self.url(path)}> (<{token}>)",
                       If_Match=tag, Expect="100-continue")
        self.assertIn(put.status, (200, 201, 204))
        head = self.ask("HEAD", path)
        self.assertEqual((head.status, head.headers["content-length"]), (200, "7"))
        self.assertIn("last-modified", head.headers)
        self.assertNotIn("w/", head.headers.get("etag", "").lower(), "only strong tags come back")
        self.assertIn(self.ask("UNLOCK", path, None, Lock_Token=f"<{token}>").status, (200, 204))

    def test_davfs2_recognises_folders_by_a_word(self):
        # It looks for the word in all that the type says.
        self.tree.write("types/file", b"x")
        entries = self.listing(self.path("types") + "/", 1, asks("resourcetype", "getetag"))
        own, file = (ElementTree.tostring(entry.found[D + "resourcetype"]) for entry in entries)
        self.assertIn(b"collection", own)
        self.assertNotIn(b"collection", file)


class Rclone(ClientCase):
    always = {"User-Agent": "rclone/v1.60.1-DEV"}

    QUESTION = (b'<?xml version="1.0" encoding="utf-8"?>\n<d:propfind  xmlns:d="DAV:" xmlns:oc="'
                b'http://owncloud.org/ns" xmlns:nc="http://nextcloud.org/ns">\n <d:prop>\n'
                b"  <d:displayname />\n  <d:getlastmodified />\n  <d:getcontentlength />\n"
                b"  <d:resourcetype />\n  <d:getcontenttype />\n  <oc:checksums />\n </d:prop>\n"
                b"</d:propfind>\n")

    def test_upload_is_looked_at_again(self):
        path = self.path("up", "file 1%.bin")
        self.assertEqual(self.ask("MKCOL", self.path("up") + "/").status, 201)
        self.assertIn(self.ask("MKCOL", self.path("up") + "/").status, (405, 406, 423))
        put = self.ask("PUT", path, b"12345", X_OC_Mtime="1700000000",
                       Content_Type="application/octet-stream")
        self.assertIn(put.status, (200, 201, 204))
        entries = self.listing(path, 0, self.QUESTION)
        self.assertEqual(entries[0].path, "/Ferro/docs/up/file 1%.bin")
        self.assertEqual(int(entries[0].text("getcontentlength")), 5)
        self.assertEqual(entries[0].text("getlastmodified").strip(),
                         entries[0].text("getlastmodified"))

    def test_part_is_read_with_a_stray_depth(self):
        self.tree.write("part", b"0123456789")
        reply = self.ask("GET", self.path("part"), None, Range="bytes=2-4", Depth="0")
        self.assertEqual((reply.status, reply.body), (206, b"234"))
        self.assertEqual(reply.headers["content-range"], "bytes 2-4/10")

    def test_missing_folder_above_is_told_by_409(self):
        self.assertEqual(self.ask("PUT", self.path("no", "file"), b"x").status, 409)
        self.assertEqual(self.ask("MKCOL", self.path("no", "folder") + "/").status, 409)
        self.assertEqual(self.ask("PROPFIND", self.path("no"), self.QUESTION,
                                  Depth="0").status, 404)

    def test_server_side_copy_and_move(self):
        self.tree.write("source", b"x")
        for method, name in (("COPY", "copied"), ("MOVE", "moved")):
            reply = self.ask(method, self.path("source"), None, Overwrite="T",
                             Destination=self.server.url("docs", name))
            self.assertIn(reply.status, (201, 204))
            self.assertEqual(self.tree.read(name), b"x")


class Gvfs(ClientCase):
    """The file manager of GNOME."""

    always = {"User-Agent": "gvfs/1.50.3", "Accept-Encoding": "gzip, deflate"}

    def test_mount_finds_a_folder(self):
        self.tree.write("mount/file", b"x")
        path = self.path("mount") + "/"
        options = self.ask("OPTIONS", path)
        self.assertEqual(options.status, 200)
        self.assertIn("dav", options.headers)
        reply = self.ask("PROPFIND", path, asks("resourcetype", "getcontentlength"), Depth="1",
                         **self.xml())
        own = multistatus(reply.body)[0]
        # Only the first element of the type is looked at.
        self.assertEqual(own.found[D + "resourcetype"][0].tag, D + "collection")
        # It climbs as long as there are folders.
        for above in ("/Ferro/", "/"):
            self.assertEqual(self.ask("OPTIONS", above).status, 200)
            entries = self.listing(above, 0, asks("resourcetype"))
            self.assertTrue(entries[0].is_collection(), above)

    def test_shown_names_are_the_names(self):
        self.tree.write("names/ünï & 1%.txt", b"x")
        entries = self.listing(self.path("names") + "/", 1,
                               asks("displayname", "resourcetype", "getcontenttype", "getetag",
                                    "creationdate", "getlastmodified", "getcontentlength"))
        for entry in entries:
            self.assertEqual(entry.text("displayname"), entry.path.rstrip("/").rsplit("/")[-1])
            self.assertRegex(entry.href, r"^[^a-f%]*(%[0-9A-F]{2}|[^%])*$", "upper-case escapes")
            self.assertNotIn("%2F", entry.href)

    def test_new_file_is_looked_for_first(self):
        path = self.path("created.txt")
        self.assertEqual(self.ask("HEAD", path).status, 404)
        self.assertIn(self.ask("PUT", path, b"x", Overwrite="F").status, (200, 201, 204))
        self.assertEqual(self.ask("HEAD", path).status, 200)

    def test_rename_does_not_replace(self):
        self.tree.write("a", b"a")
        self.tree.write("b", b"b")
        reply = self.ask("MOVE", self.path("a"), None, Overwrite="F",
                         Apply_To_Redirect_Ref="T", Destination=self.server.url("docs", "b"))
        self.assertEqual(reply.status, 412)
        self.assertEqual(self.tree.read("b"), b"b")
        gone = self.ask("DELETE", self.path("a"), None, Apply_To_Redirect_Ref="T")
        self.assertIn(gone.status, (200, 204))


class Kio(ClientCase):
    """The file manager of KDE, which takes few statuses for success."""

    always = {"User-Agent": "Mozilla/5.0 (X11; Linux x86_64) KIO/5.103", "Accept": "*/*"}

    def test_every_answer_is_one_that_it_takes(self):
        self.assertEqual(self.ask("MKCOL", self.path("kio")).status, 201)
        self.assertEqual(self.ask("PUT", self.path("kio", "one"), b"1").status // 100, 2)
        target = self.server.url("docs", "kio", "two").replace("http:", "webdav:")
        for method in ("COPY", "MOVE"):
            reply = self.ask(method, self.path("kio", "one"), None, Destination=target,
                             Overwrite="T", Depth="infinity")
            self.assertIn(reply.status, (201, 204), method)
        self.assertEqual(self.tree.read("kio/two"), b"1")
        self.assertIn(self.ask("DELETE", self.path("kio", "two")).status, (200, 204))
        self.assertIn(self.ask("DELETE", self.path("kio")).status, (200, 204))

    def test_every_entry_has_a_status_of_exactly_200(self):
        self.tree.write("list/file.txt", b"x")
        reply = self.ask("PROPFIND", self.path("list") + "/",
                         asks("creationdate", "getcontentlength", "displayname", "source",
                              "getcontentlanguage", "getcontenttype", "getlastmodified",
                              "getetag", "supportedlock", "lockdiscovery", "resourcetype"),
                         Depth="1", **self.xml())
        for response in ElementTree.fromstring(reply.body).findall(D + "response"):
            self.assertIn("HTTP/1.1 200 OK",
                          [status.text for status in response.iter(D + "status")])
        self.assertEqual([e.is_collection() for e in multistatus(reply.body)], [True, False])


class Curl(ClientCase):
    def test_large_upload_waits_to_be_invited(self):
        local = Tree()
        self.addCleanup(local.remove)
        file = local.write("big", b"x" * (3 << 20))
        reply = curl("-H", "Expect: 100-continue", "-T", file, self.docs("big"))
        self.assertEqual((reply.status, reply.code), (201, 0))
        reply = curl("-T", "-", self.docs("piped"), stdin=b"from a pipe")
        self.assertEqual((reply.status, reply.code), (201, 0))
        self.assertEqual(self.tree.read("piped"), b"from a pipe")

    def test_resumed_upload_goes_on_where_it_stopped(self):
        self.tree.write("resume", b"first half, ")
        local = Tree()
        self.addCleanup(local.remove)
        file = local.write("resume", b"first half, second half")
        reply = curl("-C", "12", "-T", file, self.docs("resume"))
        self.assertEqual(reply.status, 204)
        self.assertEqual(self.tree.read("resume"), b"first half, second half")


class CurlSignsIn(unittest.TestCase):
    def test_upload_with_any_scheme_is_asked_to_sign_in_first(self):
        tree = Tree()
        self.addCleanup(tree.remove)
        local = Tree()
        self.addCleanup(local.remove)
        file = local.write("file", b"content")
        with TestServer({"docs": tree.path}, ["--user", "anna:secret"]) as server:
            # The first upload is empty and must not be taken for the file.
            empty = server.request("PUT", url_path("docs", "file"), b"")
            self.assertEqual(empty.status, 401)
            self.assertRegex(empty.headers["www-authenticate"], r"^Basic realm=")
            reply = curl("--anyauth", "-u", "anna:secret", "-T", file, server.url("docs", "file"))
            self.assertEqual((reply.status, reply.code), (201, 0))
            # Windows puts the machine's name in front.
            reply = curl("-u", "PC\\anna:secret", server.url("docs", "file"))
            self.assertEqual(reply.out, b"content")


class Phones(ClientCase):
    def test_android_reads_any_place_of_a_file(self):
        self.tree.write("film", bytes(range(256)))
        head = self.ask("HEAD", self.path("film"))
        self.assertEqual(head.headers["accept-ranges"], "bytes")
        self.assertEqual(head.headers["content-length"], "256")
        part = self.ask("GET", self.path("film"), None, Range="bytes=250-255")
        self.assertEqual((part.status, part.body), (206, bytes(range(250, 256))))

    def test_zotero_tries_the_place_out(self):
        folder = self.path("zotero") + "/"
        self.assertEqual(self.ask("OPTIONS", folder).status, 200)
        self.assertEqual(self.ask("PROPFIND", folder, asks("getcontentlength"),
                                  Depth="0").status, 404)
        self.assertEqual(self.ask("MKCOL", folder).status, 201)
        self.assertEqual(self.ask("PROPFIND", folder, asks("getcontentlength"),
                                  Depth="0").status, 207)
        probe = self.path("zotero", "zotero-test-file.prop")
        self.assertEqual(self.ask("GET", self.path("zotero", "nonexistent.prop")).status, 404)
        self.assertIn(self.ask("PUT", probe, b" ").status, (200, 201, 204))
        self.assertEqual(self.ask("GET", probe).body, b" ")
        self.assertIn(self.ask("DELETE", probe).status, (200, 204))

    def test_players_know_folders_by_their_slash(self):
        self.tree.write("media/album/song.mp3", b"x")
        own, album = self.listing(self.path("media"), 1, asks("resourcetype"))
        for entry in (own, album):
            self.assertTrue(entry.href.endswith("/") and entry.is_collection())
