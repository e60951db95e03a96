# SPDX-License-Identifier: Apache-2.0
"""Content in the standard dialect: created, edited, replaced, copied and moved, byte for byte."""

import base64
import hashlib
import http.client
import os
import re
import threading
import time

import davxml
from dav import D, lock, multistatus, unlock
from harness import PATIENCE, ServerCase, Tree, curl, exchange, in_parallel, pattern, run

STANDARD = ("--dialect", "standard")


class StandardCase(ServerCase):
    options = STANDARD

    def ask(self, method, name, body=None, **headers):
        return self.server.request(method, self.path(*name.split("/")), body,
                                   {key.replace("_", "-"): value for key, value in headers.items()})

    def relocate(self, method, source, target, **headers):
        return self.ask(method, source,
                        Destination=self.server.url("docs", *target.split("/")), **headers)

    def scratch(self):
        """A directory of the client's, gone after the case."""
        tree = Tree()
        self.addCleanup(tree.remove)
        return tree

    def status(self, reply, wanted):
        self.assertEqual(reply.status, wanted, reply)


class Validators(StandardCase):
    def test_tag_of_put_is_that_of_get_and_head(self):
        put = self.ask("PUT", "tag", b"one")
        self.status(put, 201)
        tag = put.headers["etag"]
        self.assertRegex(tag, r'^"[^"]+"$', "strong")
        for method in ("GET", "HEAD"):
            reply = self.ask(method, "tag")
            self.status(reply, 200)
            self.assertEqual(reply.headers["etag"], tag)
            self.assertEqual(reply.headers["last-modified"], put.headers["last-modified"])
            self.assertEqual(reply.headers["cache-control"], "private, no-cache")
            self.assertEqual(reply.headers["accept-ranges"], "bytes")
            self.assertEqual(reply.headers["content-length"], "3")

    def test_tag_changes_with_every_change_within_one_tick(self):
        tags = [self.ask("PUT", "ticks", b"%d" % (i % 2)).headers["etag"] for i in range(30)]
        self.assertEqual(len(set(tags)), 30)

    def test_tag_does_not_come_back_with_a_date(self):
        first = self.ask("PUT", "dated", b"aa", X_OC_Mtime="1700000000")
        self.assertEqual(first.headers["x-oc-mtime"], "accepted")
        self.assertEqual(first.headers["last-modified"], "Tue, 14 Nov 2023 22:13:20 GMT")
        second = self.ask("PUT", "dated", b"bb", X_OC_Mtime="1700000000")
        self.assertNotEqual(first.headers["etag"], second.headers["etag"])
        self.status(self.ask("GET", "dated", If_None_Match=first.headers["etag"]), 200)

    def test_conditions_on_reading(self):
        tag = self.ask("PUT", "read", b"text").headers["etag"]
        date = self.ask("HEAD", "read").headers["last-modified"]
        for method in ("GET", "HEAD"):
            for headers, wanted in (({"If_None_Match": tag}, 304),
                                    ({"If_None_Match": f"W/{tag}"}, 304),
                                    ({"If_None_Match": '"other"'}, 200),
                                    ({"If_Match": tag}, 200), ({"If_Match": '"other"'}, 412),
                                    ({"If_Modified_Since": date}, 304),
                                    ({"If_Unmodified_Since": date}, 200),
                                    ({"If": f"([{tag}])"}, 200), ({"If": '(["other"])'}, 412)):
                with self.subTest(method=method, headers=headers):
                    reply = self.ask(method, "read", **headers)
                    self.status(reply, wanted)
                    if wanted == 304:
                        self.assertEqual((reply.body, reply.headers["etag"]), (b"", tag))

    def test_all_three_forms_of_dates(self):
        self.ask("PUT", "forms", b"x", X_OC_Mtime="784111777")
        for date in ("Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT",
                     "Sun Nov  6 08:49:37 1994"):
            self.status(self.ask("GET", "forms", If_Modified_Since=date), 304)
            self.status(self.ask("GET", "forms", If_Unmodified_Since=date), 200)

    def test_conditions_do_not_hide_what_is_missing(self):
        self.status(self.ask("GET", "nothing", If_Match="*"), 404)
        self.status(self.ask("DELETE", "nothing", If_Match="*"), 404)
        self.status(self.ask("PUT", "no/parent", b"x", If_None_Match="*"), 409)


class Ranges(StandardCase):
    SIZE = 5 * 1024 * 1024 * 1024

    def test_one_and_several(self):
        data = pattern(100_000)
        self.tree.write("parts", data)
        for given, first, last in (("0-0", 0, 0), ("99999-", 99999, 99999), ("-7", 99993, 99999),
                                   ("500-1499", 500, 1499), ("90000-200000", 90000, 99999)):
            reply = self.ask("GET", "parts", Range=f"bytes={given}")
            self.status(reply, 206)
            self.assertEqual(reply.headers["content-range"], f"bytes {first}-{last}/100000")
            self.assertEqual(reply.body, data[first:last + 1])
        reply = self.ask("GET", "parts", Range="bytes=0-9,5-19,70000-70009,-5")
        self.status(reply, 206)
        boundary = re.fullmatch(r"multipart/byteranges; boundary=(\w+)",
                                reply.headers["content-type"])[1]
        parts = reply.body.split(f"--{boundary}".encode())
        self.assertEqual((parts[0].strip(), parts[-1].strip()), (b"", b"--"))
        found = [(re.search(rb"Content-Range: (bytes \S+)", part)[1].decode(),
                  part.split(b"\r\n\r\n", 1)[1][:-2]) for part in parts[1:-1]]
        self.assertEqual(found, [("bytes 0-19/100000", data[:20]),
                                 ("bytes 70000-70009/100000", data[70000:70010]),
                                 ("bytes 99995-99999/100000", data[-5:])])

    def test_beyond_the_end(self):
        self.tree.write("short", b"12345")
        for given in ("5-", "-0", "9-10"):
            reply = self.ask("GET", "short", Range=f"bytes={given}")
            self.status(reply, 416)
            self.assertEqual(reply.headers["content-range"], "bytes */5")

    def test_any_offset_of_a_large_file_costs_the_same(self):
        path = self.tree.write("huge", b"head")
        with open(path, "r+b") as file:
            file.truncate(self.SIZE)
            file.seek(self.SIZE - 4)
            file.write(b"tail")
        began = time.monotonic()
        for first in (self.SIZE - 4, 1 << 32, (1 << 31) - 1):
            reply = self.ask("GET", "huge", Range=f"bytes={first}-{first + 3}")
            self.status(reply, 206)
            self.assertEqual(reply.headers["content-range"],
                             f"bytes {first}-{first + 3}/{self.SIZE}")
            self.assertEqual(reply.body, b"tail" if first == self.SIZE - 4 else b"\0" * 4)
        self.assertLess(time.monotonic() - began, PATIENCE / 2)

    def test_if_range(self):
        tag = self.ask("PUT", "ranged", b"0123456789").headers["etag"]
        date = self.ask("HEAD", "ranged").headers["last-modified"]
        for value, wanted in ((tag, 206), (date, 206), ('"other"', 200), (f"W/{tag}", 200),
                              ("Sun, 06 Nov 1994 08:49:37 GMT", 200)):
            self.status(self.ask("GET", "ranged", Range="bytes=2-3", If_Range=value), wanted)

    def test_curl_resumes(self):
        data = pattern(3_000_000)
        self.tree.write("resumed", data)
        here = self.scratch()
        part = here.write("part", data[:1_234_567])
        done = curl("-C", "-", "-o", part, self.docs("resumed"))
        self.assertEqual((done.code, done.status), (0, 206), done)
        self.assertEqual(here.read("part"), data)


class Uploads(StandardCase):
    def test_created_replaced_and_refused(self):
        self.status(self.ask("PUT", "file", b"old"), 201)
        self.status(self.ask("PUT", "file", b"new"), 204)
        self.assertEqual(self.tree.read("file"), b"new")
        self.status(self.ask("PUT", "none/file", b"x"), 409)
        self.status(self.ask("MKCOL", "folder"), 201)
        refused = self.ask("PUT", "folder", b"x")
        self.status(refused, 405)
        self.assertIn("PROPFIND", refused.headers["allow"])
        self.status(self.server.request("PUT", self.path("slash") + "/", b"x"), 405)
        self.assertFalse(os.path.exists(self.tree / "slash"))

    def test_conditions_on_writing(self):
        tag = self.ask("PUT", "guarded", b"one").headers["etag"]
        self.status(self.ask("PUT", "guarded", b"two", If_None_Match="*"), 412)
        self.status(self.ask("PUT", "guarded", b"two", If_Match='"other"'), 412)
        self.assertEqual(self.tree.read("guarded"), b"one")
        done = self.ask("PUT", "guarded", b"two", If_Match=f'"other", {tag}')
        self.status(done, 204)
        self.status(self.ask("DELETE", "guarded", If_Match=tag), 412)
        self.status(self.ask("DELETE", "guarded", If_Match=done.headers["etag"]), 204)

    def test_of_many_editors_one_wins_each_round(self):
        tag = self.ask("PUT", "shared", b"start").headers["etag"]
        for _ in range(5):
            start = threading.Barrier(8)

            def edit(i, tag=tag, start=start):
                client = http.client.HTTPConnection("127.0.0.1", self.server.port,
                                                    timeout=PATIENCE)
                try:
                    client.connect()
                    start.wait(PATIENCE)
                    return exchange(client, "PUT", self.path("shared"), b"by %d" % i,
                                    {"If-Match": tag})
                finally:
                    client.close()

            replies = in_parallel(8, edit)
            won = [reply for reply in replies if reply.status == 204]
            self.assertEqual(sorted(reply.status for reply in replies), [204] + [412] * 7)
            tag = won[0].headers["etag"]
            self.assertEqual(self.ask("HEAD", "shared").headers["etag"], tag)

    def test_expected_length_that_does_not_come(self):
        self.ask("PUT", "whole", b"old content")
        path = self.path("whole")
        for expected in (1000, 2):
            reply = self.server.raw(
                (f"PUT {path} HTTP/1.1\r\nHost: 127.0.0.1:{self.server.port}\r\n"
                 f"Transfer-Encoding: chunked\r\nX-Expected-Entity-Length: {expected}\r\n"
                 "Connection: close\r\n\r\n3\r\nabc\r\n0\r\n\r\n").encode())
            self.assertTrue(reply.startswith(b"HTTP/1.1 400 "), reply[:100])
        self.assertEqual(self.tree.read("whole"), b"old content")
        self.assertEqual(self.tree.leftovers(), [])

    def test_digests(self):
        def digest(name, data):
            made = hashlib.new(name.replace("-", ""), data).digest()
            return f"{name}=:{base64.b64encode(made).decode()}:"

        data = pattern(700_000)
        for name in ("sha-256", "sha-512", "md5"):
            for header in ("Content_Digest", "Repr_Digest"):
                self.ask("PUT", "digested", b"old")
                self.status(self.ask("PUT", "digested", data, **{header: digest(name, b"x")}), 400)
                self.assertEqual(self.tree.read("digested"), b"old")
                self.status(self.ask("PUT", "digested", data, **{header: digest(name, data)}), 204)
        for name in ("SHA1", "MD5", "SHA256"):
            made = hashlib.new(name.lower(), data).hexdigest()
            self.status(self.ask("PUT", "digested", data, OC_Checksum=f"{name}:{made}"), 204)
            self.status(self.ask("PUT", "digested", b"x", OC_Checksum=f"{name}:{made}"), 400)
        self.assertEqual(self.tree.read("digested"), data)
        self.assertEqual(self.tree.leftovers(), [])

    def test_part_of_a_file(self):
        data = pattern(300_000)
        self.ask("PUT", "part", data)
        piece = b"X" * 1000
        done = self.ask("PUT", "part", piece, Content_Range="bytes 100000-100999/300000")
        self.status(done, 204)
        wanted = data[:100_000] + piece + data[101_000:]
        self.assertEqual(self.tree.read("part"), wanted)
        self.status(self.ask("PUT", "part", b"x", Content_Range="bytes 0-0/5"), 416)
        self.status(self.ask("PUT", "part", b"x", Content_Range="bytes 300001-300001/300002"), 416)
        self.status(self.ask("PUT", "part", b"xy", Content_Range="bytes 0-0/300000"), 400)
        self.status(self.ask("PUT", "part", b"x", Content_Range="nonsense"), 400)
        self.assertEqual(self.tree.read("part"), wanted)
        self.assertEqual(self.tree.leftovers(), [])

    def test_patch(self):
        self.ask("PUT", "patched", b"0123456789")
        kind = "application/x-sabredav-partialupdate"
        for given, body, wanted in (("bytes=2-4", b"abc", b"01abc56789"),
                                    ("bytes=8-", b"XYZ", b"01abc567XYZ"),
                                    ("bytes=-1", b"!?", b"01abc567XY!?"),
                                    ("append", b"...", b"01abc567XY!?...")):
            reply = self.ask("PATCH", "patched", body, Content_Type=kind, X_Update_Range=given)
            self.status(reply, 204)
            self.assertEqual(self.tree.read("patched"), wanted)
            self.assertEqual(self.ask("HEAD", "patched").headers["etag"], reply.headers["etag"])
        self.status(self.ask("PATCH", "patched", b"x", Content_Type="text/plain"), 415)
        self.status(self.ask("PATCH", "nothing", b"x", Content_Type=kind, X_Update_Range="append"),
                    404)
        options = self.ask("OPTIONS", "patched")
        self.assertIn("PATCH", options.headers["allow"])
        self.assertIn(kind, options.headers["accept-patch"].split(", "))

    def test_reader_sees_the_old_or_the_new_whole(self):
        size = 400_000
        self.ask("PUT", "seen", b"a" * size)
        over = threading.Event()
        wrong = []

        def read():
            client = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=PATIENCE)
            while not over.is_set():
                body = exchange(client, "GET", self.path("seen")).body
                if len(body) != size or body.count(body[:1]) != size:
                    wrong.append((len(body), body[:3]))
            client.close()

        reader = threading.Thread(target=read)
        reader.start()
        for i in range(20):
            letter = b"ab"[i % 2:i % 2 + 1]
            self.status(self.ask("PUT", "seen", letter * size,
                                 Content_Range=f"bytes 0-{size - 1}/{size}"), 204)
        over.set()
        reader.join(PATIENCE)
        self.assertEqual(wrong, [])

    def test_locked(self):
        self.tree.write("locked", b"mine")
        token = lock(self.server, self.path("locked")).lock.token
        refused = self.ask("PUT", "locked", b"yours")
        self.status(refused, 423)
        self.assertEqual(davxml.condition(refused.body),
                         ("lock-token-submitted", ["/Ferro/docs/locked"]))
        self.assertNotIn(token.encode(), refused.body)
        self.status(self.ask("PUT", "locked", b"still mine", If=f"(<{token}>)"), 204)
        self.assertIn(unlock(self.server, self.path("locked"), token).status, (200, 204))


class Namespace(StandardCase):
    def test_folders(self):
        self.status(self.ask("MKCOL", "made"), 201)
        self.status(self.ask("MKCOL", "made"), 405)
        self.status(self.ask("MKCOL", "no/made"), 409)
        self.status(self.ask("MKCOL", "body", b"afafafaf", Content_Type="xzy-foo/bar-512"), 415)
        self.assertFalse(os.path.exists(self.tree / "body"))
        self.status(self.ask("DELETE", "made", Depth="0"), 400)
        self.status(self.ask("DELETE", "made"), 204)
        self.status(self.ask("DELETE", "made"), 404)

    def test_folder_with_properties(self):
        def body(properties):
            return (f'<D:mkcol xmlns:D="DAV:"><D:set><D:prop>{properties}</D:prop></D:set>'
                    "</D:mkcol>").encode()

        kind = "<D:resourcetype><D:collection/></D:resourcetype>"
        colour = '<x:colour xmlns:x="urn:x">red</x:colour>'
        self.status(self.ask("MKCOL", "coloured", body(kind + colour), Content_Type="text/xml"),
                    201)
        found = self.ask("PROPFIND", "coloured", b'<D:propfind xmlns:D="DAV:"><D:prop>'
                         b'<x:colour xmlns:x="urn:x"/></D:prop></D:propfind>', Depth="0")
        entry, = multistatus(found.body)
        self.assertEqual(entry.found["{urn:x}colour"].text, "red")
        text = body(kind)
        self.status(self.ask("MKCOL", "in-chunks", b"%x\r\n%b\r\n0\r\n\r\n" % (len(text), text),
                             Content_Type="text/xml", Transfer_Encoding="chunked"), 201)
        refused = self.ask("MKCOL", "calendar", body('<D:resourcetype><D:collection/>'
                                                     '<x:calendar xmlns:x="urn:x"/>'
                                                     "</D:resourcetype>" + colour),
                           Content_Type="application/xml")
        self.status(refused, 424)
        told = davxml.document(refused.body, "mkcol-response").findall(D + "propstat")
        self.assertEqual(sorted(each.find(D + "status").text.split()[1] for each in told),
                         ["403", "424"])
        self.assertFalse(os.path.exists(self.tree / "calendar"))

    def test_tree_replaces_a_tree_whole(self):
        self.tree.write("from/top", b"1")
        self.tree.write("from/in/deep", b"2")
        self.tree.write("to/old", b"3")
        self.status(self.relocate("COPY", "from", "to", Overwrite="F"), 412)
        self.assertEqual(self.tree.read("to/old"), b"3")
        self.status(self.relocate("COPY", "from", "to"), 204)
        self.assertEqual(self.tree.read("to/in/deep"), b"2")
        self.assertFalse(os.path.exists(self.tree / "to/old"))
        self.status(self.relocate("MOVE", "from", "to2"), 201)
        self.status(self.relocate("COPY", "to", "to3", Depth="0"), 201)
        self.assertEqual(os.listdir(self.tree / "to3"), [])
        self.status(self.relocate("MOVE", "to2/top", "to3"), 204)
        self.assertEqual(self.tree.read("to3"), b"1")

    def test_name_that_begins_with_the_sources(self):
        self.tree.write("a/x", b"1")
        self.status(self.relocate("COPY", "a", "a2"), 201)
        self.status(self.relocate("MOVE", "a2", "a22"), 201)
        self.assertEqual(self.tree.read("a22/x"), b"1")

    def test_onto_itself_and_into_itself(self):
        self.tree.write("self/in/x", b"1")
        for method in ("COPY", "MOVE"):
            self.status(self.relocate(method, "self", "self"), 403)
            self.status(self.relocate(method, "self/in/x", "self/in/x"), 403)
            self.assertIn(self.relocate(method, "self", "self/in/new").status, (403, 409))
            self.status(self.relocate(method, "self/in", "self"), 409)
            self.status(self.relocate(method, "self", "no/parent"), 409)
            self.status(self.relocate(method, "nothing", "new"), 404)
        self.assertEqual(self.tree.read("self/in/x"), b"1")

    def test_one_of_many_takes_a_free_name(self):
        for i in range(8):
            self.tree.write(f"source{i}", b"%d" % i)
        start = threading.Barrier(8)

        def move(i):
            start.wait(PATIENCE)
            return self.relocate("MOVE", f"source{i}", "taken", Overwrite="F").status

        self.assertEqual(sorted(in_parallel(8, move)), [201] + [412] * 7)

    def test_strange_names(self):
        for name in ("a%20b", "100%", "sp ace", "ünï", "a&b<c>", "q?h#"):
            with self.subTest(name=name):
                self.status(self.ask("PUT", name, b"x"), 201)
                self.status(self.relocate("COPY", name, name + "2"), 201)
                self.status(self.relocate("MOVE", name + "2", name + "3"), 201)
                self.assertEqual(self.tree.read(name + "3"), b"x")

    def test_browser_gets_pages(self):
        reply = self.ask("GET", "nothing", Accept="text/html")
        self.status(reply, 404)
        self.assertIn("text/html", reply.headers["content-type"])
        self.assertIn(b"There is nothing under this name", reply.body)
        self.assertIn(b'href=".."', reply.body)


class Programs(StandardCase):
    """Programs of every day, as they come."""

    def remote(self):
        return f":webdav,url='{self.server.base()}/Ferro/docs',vendor=owncloud:"

    def test_rclone_copies_there_and_back_with_dates(self):
        here = self.scratch()
        here.write("from/a.txt", pattern(100_000, 1))
        here.write("from/sub/b c.txt", b"")
        here.write("from/words", b"hello world")
        os.utime(here / "from/a.txt", (1_600_000_000, 1_600_000_000))
        config = {"RCLONE_CONFIG": here.write("rclone.conf")}
        for source, target in ((here / "from", self.remote() + "rclone"),
                               (self.remote() + "rclone", here / "back")):
            code, text = run("rclone", "copy", source, target, env=config)
            self.assertEqual(code, 0, text)
        self.assertEqual(here.read("back/a.txt"), pattern(100_000, 1))
        self.assertEqual(here.read("back/sub/b c.txt"), b"")
        self.assertEqual(int(os.stat(here / "back/a.txt").st_mtime), 1_600_000_000)
        code, text = run("rclone", "cat", "--offset", "6", "--count", "5",
                         self.remote() + "rclone/words", env=config)
        self.assertEqual((code, text), (0, "world"))
        here.write("from/a.txt", b"edited")
        code, text = run("rclone", "sync", here / "from", self.remote() + "rclone", env=config)
        self.assertEqual(code, 0, text)
        self.assertEqual(self.tree.read("rclone/a.txt"), b"edited")

    def test_cadaver_puts_moves_and_gets(self):
        here = self.scratch()
        here.write("up.bin", pattern(50_000, 2))
        script = ("mkcol box\ncd box\nput up.bin\ncopy up.bin copy.bin\n"
                  "move copy.bin moved.bin\nget moved.bin back.bin\ndelete up.bin\nquit\n")
        code, text = run("cadaver", self.docs() + "/", cwd=here.path, stdin=script.encode(),
                         env={"HOME": here.path})
        self.assertEqual(code, 0, text)
        self.assertEqual(here.read("back.bin"), pattern(50_000, 2), text)
        self.assertEqual(os.listdir(self.tree / "box"), ["moved.bin"], text)

    def test_curl_uploads_with_tags(self):
        here = self.scratch()
        source = here.write("up", pattern(2_000_000, 3))
        first = curl("-T", source, self.docs("curled"))
        self.assertEqual((first.code, first.status), (0, 201), first)
        again = curl("-T", source, "-H", f"If-Match: {first.headers['etag']}",
                     self.docs("curled"))
        self.assertEqual((again.code, again.status), (0, 204), again)
        stale = curl("-T", source, "-H", f"If-Match: {first.headers['etag']}",
                     self.docs("curled"))
        self.assertEqual(stale.status, 412, stale)
        kept = curl("-H", f"If-None-Match: {again.headers['etag']}", self.docs("curled"))
        self.assertEqual(kept.status, 304, kept)
        self.assertEqual(self.tree.read("curled"), pattern(2_000_000, 3))
