# SPDX-License-Identifier: Apache-2.0
"""Storing and reading files: the whole way from a client to the disk and back."""

import email.utils
import hashlib
import http.client
import os
import time

from harness import HOSTILE_NAMES, ServerCase, TestServer, Tree, Failure, curl, exchange, \
    in_both_dialects, pattern, url_path


@in_both_dialects
class FirstRequest(ServerCase):
    def test_put_as_first_request_ever_answers_201_and_reads_back(self):
        # The state of a session is made by its first request; that one may create something.
        source = self.tree.write("source.bin", pattern(300000))
        reply = curl("-T", source, self.docs("file"))
        self.assertEqual((reply.code, reply.status), (0, 201), reply)
        self.assertEqual(self.tree.read("file"), pattern(300000))
        self.assertEqual(curl(self.docs("file")).out, pattern(300000))
        self.assertEqual(curl("-r", "1000-1999", self.docs("file")).out,
                         pattern(300000)[1000:2000])


@in_both_dialects
class Upload(ServerCase):
    sizes = [0, 1, 1023, 1024, 65535, 65536, 65537, 262143, 262144, 262145, 1 << 20, (5 << 20) + 3]

    def test_put_with_length_stores_every_size(self):
        for size in self.sizes:
            with self.subTest(size=size):
                source = self.tree.write("up/source", pattern(size, 1))
                reply = curl("-T", source, self.docs(f"length-{size}"))
                self.assertEqual((reply.code, reply.status), (0, 201), reply)
                self.assertEqual(reply.headers.get("content-length"), "0")
                self.assertEqual(self.tree.read(f"length-{size}"), pattern(size, 1))

    def test_put_chunked_stores_every_size(self):
        for size in self.sizes:
            with self.subTest(size=size):
                reply = curl("-T", "-", self.docs(f"chunked-{size}"), stdin=pattern(size, 2) or None)
                self.assertEqual((reply.code, reply.status), (0, 201), reply)
                self.assertEqual(self.tree.read(f"chunked-{size}"), pattern(size, 2))

    def test_put_with_expectation_is_invited_to_continue(self):
        source = self.tree.write("up/expect", pattern(200000, 3))
        began = time.monotonic()
        reply = curl("-T", source, "-H", "Expect: 100-continue", "--expect100-timeout", "60",
                     self.docs("expected"))
        self.assertEqual((reply.code, reply.status), (0, 201), reply)
        self.assertLess(time.monotonic() - began, 30, "100 Continue never came")
        self.assertEqual(self.tree.read("expected"), pattern(200000, 3))

    def test_put_over_existing_replaces(self):
        self.tree.write("again", b"first")
        for size in (5000, 10, 70000, 0):
            reply = self.server.request("PUT", self.path("again"), pattern(size, size))
            self.assertEqual(reply.status, self.says.replaced)
            self.assertEqual(self.tree.read("again"), pattern(size, size))

    def test_put_below_missing_folder_answers_409(self):
        reply = self.server.request("PUT", self.path("nowhere", "file"), b"x")
        self.assertEqual(reply.status, 409, reply)

    def test_put_onto_folder_is_refused_and_folder_stays(self):
        os.mkdir(self.tree / "folder")
        reply = self.server.request("PUT", self.path("folder"), b"x")
        self.assertEqual(reply.status, 405, reply)
        self.assertTrue(os.path.isdir(self.tree / "folder"))

    def test_put_to_the_location_itself_is_refused(self):
        self.assertEqual(self.server.request("PUT", "/Ferro", b"x").status,
                         {"standard": 405, "classic": 403}[self.dialect])

    def test_put_beside_the_volumes_is_refused(self):
        reply = self.server.request("PUT", url_path("file-in-the-root"), b"x")
        self.assertIn(reply.status, range(400, 500), reply)

    def test_no_temporary_file_is_left(self):
        self.server.request("PUT", self.path("done"), pattern(100000))
        self.assertEqual(self.tree.leftovers(), [])

    def test_put_leaves_descriptors_as_they_were(self):
        self.server.request("PUT", self.path("warm"), b"x")
        before = self.server.open_files()
        for i in range(50):
            self.server.request("PUT", self.path("warm"), pattern(i * 1000))
            self.server.request("PUT", self.path("nowhere", "warm"), b"x")
        self.assertLess(self.server.open_files(), before + 10)


@in_both_dialects
class Folders(ServerCase):
    def test_mkcol_makes_a_folder_and_answers_201(self):
        self.assertEqual(self.server.request("MKCOL", self.path("new")).status, 201)
        self.assertTrue(os.path.isdir(self.tree / "new"))

    def test_mkcol_with_trailing_slash_makes_a_folder(self):
        self.assertEqual(self.server.request("MKCOL", self.path("slash") + "/").status, 201)
        self.assertTrue(os.path.isdir(self.tree / "slash"))

    def test_mkcol_on_existing_answers_405(self):
        self.tree.write("file", b"x")
        os.mkdir(self.tree / "there")
        self.assertEqual(self.server.request("MKCOL", self.path("there")).status, 405)
        self.assertEqual(self.server.request("MKCOL", self.path("file")).status, 405)
        self.assertEqual(self.tree.read("file"), b"x")

    def test_mkcol_below_missing_folder_answers_409(self):
        self.assertEqual(self.server.request("MKCOL", self.path("no", "such")).status, 409)

    def test_mkcol_of_the_location_is_refused(self):
        self.assertEqual(self.server.request("MKCOL", "/Ferro").status,
                         {"standard": 405, "classic": 403}[self.dialect])


@in_both_dialects
class Download(ServerCase):
    hostile = True

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.data = pattern(1000)
        cls.tree.write("thousand.bin", cls.data)
        cls.tree.write("big.bin", pattern(3_000_000, 9))
        cls.tree.write("empty.txt")
        cls.tree.write("page.html", "<p>hello")

    def get(self, name, **headers):
        given = {key.replace("_", "-"): value for key, value in headers.items()}
        return self.server.request("GET", self.path(name), headers=given)

    def test_every_hostile_name_reads_back(self):
        for name in HOSTILE_NAMES:
            with self.subTest(name=name):
                reply = self.server.request("GET", self.path(name))
                self.assertEqual(reply.status, 200)
                self.assertEqual(reply.body, name.encode())

    def test_every_hostile_name_can_be_written(self):
        os.mkdir(self.tree / "written")
        for name in HOSTILE_NAMES:
            with self.subTest(name=name):
                reply = self.server.request("PUT", self.path("written", name), b"new " + name.encode())
                self.assertEqual(reply.status, 201)
        self.assertEqual(sorted(os.listdir(self.tree / "written")), sorted(HOSTILE_NAMES))
        for name in HOSTILE_NAMES:
            self.assertEqual(self.tree.read("written/" + name), b"new " + name.encode())

    def test_get_tells_type_date_and_length(self):
        reply = self.get("page.html")
        self.assertEqual(reply.headers["content-type"].split(";")[0], "text/html")
        self.assertEqual(reply.headers["content-length"], "8")
        self.assertEqual(reply.headers["accept-ranges"], "bytes")
        self.assertEqual(reply.headers["cache-control"],
                         {"standard": "private, no-cache", "classic": "no-store"}[self.dialect])
        told = email.utils.parsedate_to_datetime(reply.headers["last-modified"]).timestamp()
        self.assertEqual(int(told), int(os.stat(self.tree / "page.html").st_mtime))

    def test_get_of_empty_file_answers_200_without_body(self):
        reply = self.get("empty.txt")
        self.assertEqual((reply.status, reply.body), (200, b""))
        self.assertEqual(reply.headers["content-length"], "0")

    def test_get_of_missing_file_answers_404(self):
        reply = self.get("missing.txt")
        self.assertEqual((reply.status, reply.body), (404, self.server.not_found_body()))

    def test_head_equals_get_without_body(self):
        got = self.get("big.bin")
        head = self.server.request("HEAD", self.path("big.bin"))
        self.assertEqual((head.status, head.body), (200, b""))
        for name in ("content-length", "content-type", "last-modified", "accept-ranges"):
            self.assertEqual(head.headers.get(name), got.headers.get(name), name)

    def test_head_of_missing_file_answers_404(self):
        self.assertEqual(self.server.request("HEAD", self.path("missing")).status, 404)

    def test_head_of_folder_answers_200(self):
        self.assertEqual(self.server.request("HEAD", self.path()).status, 200)

    def test_closed_ranges(self):
        whole = self.data
        # range, status, Content-Range, body
        cases = [
            ("bytes=0-99", 206, "bytes 0-99/1000", whole[:100]),
            ("bytes=0-0", 206, "bytes 0-0/1000", whole[:1]),
            ("bytes=999-999", 206, "bytes 999-999/1000", whole[999:]),
            ("bytes=900-5000", 206, "bytes 900-999/1000", whole[900:]),
            # What is no range of bytes: the whole.
            ("lines=0-99", 200, None, whole),
        ]
        for text, status, told, body in cases:
            with self.subTest(range=text):
                reply = self.get("thousand.bin", Range=text)
                self.assertEqual(reply.status, status)
                self.assertEqual(reply.headers.get("content-range"), told)
                self.assertEqual(reply.body, body)

    def test_range_across_blocks(self):
        data = pattern(3_000_000, 9)
        for first, last in ((0, 262143), (262140, 262150), (100, 2_999_999), (1_000_000, 2_000_000)):
            reply = self.get("big.bin", Range=f"bytes={first}-{last}")
            self.assertEqual(reply.status, 206)
            self.assertEqual(self.sha(reply.body), self.sha(data[first:last + 1]))

    def test_conditional_get(self):
        mtime = 1_700_000_000
        os.utime(self.tree / "thousand.bin", (mtime, mtime))
        cases = [(mtime, 304), (mtime + 3600, 304), (mtime - 1, 200)]
        for when, status in cases:
            with self.subTest(offset=when - mtime):
                date = email.utils.formatdate(when, usegmt=True)
                reply = self.get("thousand.bin", If_Modified_Since=date)
                self.assertEqual(reply.status, status)
                self.assertEqual(reply.body, b"" if status == 304 else self.data)
        reply = self.get("thousand.bin", If_Modified_Since="yesterday or so")
        self.assertEqual(reply.status, 200)

    def test_curl_conditional_download_leaves_the_file_alone(self):
        # A fraction of a second, as most files have: clients are told whole seconds.
        os.utime(self.tree / "page.html", (1_700_000_000.75, 1_700_000_000.75))
        out = self.tree / "mine"
        self.assertEqual(curl("-o", out, "-R", self.docs("page.html")).status, 200)
        reply = curl("-o", out, "-z", out, self.docs("page.html"))
        self.assertEqual(reply.status, 304)

    def test_many_requests_on_one_connection(self):
        client = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=60)
        client.connect()
        first = client.sock
        for i in range(300):
            self.assertEqual(exchange(client, "GET", self.path("thousand.bin")).body, self.data)
            self.assertEqual(exchange(client, "HEAD", self.path("empty.txt")).status, 200)
            self.assertEqual(exchange(client, "GET", self.path("nothing")).status, 404)
            self.assertEqual(exchange(client, "PUT", self.path("kept"), b"%d" % i).status,
                             self.says.replaced if i else 201)
        self.assertIs(client.sock, first, "the server closed a connection that it should keep")
        client.close()

    def test_pipelined_requests_are_answered_in_order(self):
        with self.server.connect() as sock:
            sock.sendall(b"".join(
                b"GET %s HTTP/1.1\r\nHost: localhost\r\nRange: bytes=%d-%d\r\n%s\r\n"
                % (self.path("thousand.bin").encode(), i, i + 9,
                   b"Connection: close\r\n" if i == 99 else b"")
                for i in range(100)))
            got = b""
            while part := sock.recv(65536):
                got += part
        self.assertEqual(got.count(b"HTTP/1.1 206 "), 100)
        place = 0
        for i in range(100):
            place = got.index(b"\r\n\r\n", place) + 4
            self.assertEqual(got[place:place + 10], self.data[i:i + 10])

    def test_http_1_0_client_is_served(self):
        reply = curl("--http1.0", self.docs("thousand.bin"))
        self.assertEqual((reply.status, reply.out), (200, self.data))

    def test_options_names_the_classes(self):
        module = {"standard": "1, 2, 3, extended-mkcol, sabredav-partialupdate",
                  "classic": "1, 2"}[self.dialect]
        server = {"standard": "1, 2, 3", "classic": "1, 2"}[self.dialect]
        for path, classes in (("/Ferro", module), ("/Ferro/", module), (self.path(), module),
                              (self.path("missing"), module), ("/", "1, 2"), ("*", server)):
            with self.subTest(path=path):
                reply = self.server.request("OPTIONS", path)
                self.assertEqual(reply.status, 200)
                self.assertEqual(reply.headers["dav"], classes)

    def test_unknown_method_answers_501(self):
        self.assertEqual(self.server.request("BREW", self.path()).status, 501)

    def test_browser_is_sent_to_the_location(self):
        reply = self.server.request("GET", "/")
        self.assertIn(reply.status, (301, 302, 303, 307, 308))
        self.assertTrue(reply.headers["location"].endswith("/Ferro/"), reply)


class Parts(ServerCase):
    """Ranges and conditions of the standard dialect."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.data = pattern(1000)
        cls.tree.write("thousand.bin", cls.data)

    get = Download.get

    def test_ranges(self):
        whole = self.data
        # range, status, Content-Range, body
        cases = [
            ("bytes=0-99", 206, "bytes 0-99/1000", whole[:100]),
            ("bytes=0-0", 206, "bytes 0-0/1000", whole[:1]),
            ("bytes=999-999", 206, "bytes 999-999/1000", whole[999:]),
            ("bytes=900-5000", 206, "bytes 900-999/1000", whole[900:]),
            ("bytes=0-", 206, "bytes 0-999/1000", whole),
            ("bytes=500-", 206, "bytes 500-999/1000", whole[500:]),
            ("bytes=-500", 206, "bytes 500-999/1000", whole[500:]),
            ("bytes=-5000", 206, "bytes 0-999/1000", whole),
            ("bytes=0-99999999999", 206, "bytes 0-999/1000", whole),
            ("bytes=1000-", 416, "bytes */1000", b""),
            ("bytes=-0", 416, "bytes */1000", b""),
            ("bytes=2000-2999", 416, "bytes */1000", b""),
            ("bytes=99999999999-", 416, "bytes */1000", b""),
            # Ranges that touch are one.
            ("bytes=0-99,100-199", 206, "bytes 0-199/1000", whole[:200]),
            # What is no range of bytes: the whole.
            ("bytes=5-3", 200, None, whole),
            ("lines=0-99", 200, None, whole),
            ("bytes =0-99", 200, None, whole),
            ("bytes=0,5", 200, None, whole),
        ]
        for text, status, told, body in cases:
            with self.subTest(range=text):
                reply = self.get("thousand.bin", Range=text)
                self.assertEqual(reply.status, status)
                self.assertEqual(reply.headers.get("content-range"), told)
                self.assertEqual(reply.body, body)

    def test_interrupted_download_is_resumed(self):
        out = self.tree / "resumed"
        with open(out, "wb") as file:
            file.write(self.data[:300])
        reply = curl("-C", "-", "-o", out, self.docs("thousand.bin"))
        self.assertEqual((reply.code, reply.status), (0, 206), reply)
        with open(out, "rb") as file:
            self.assertEqual(file.read(), self.data)

    def test_upload_on_condition_replaces_nothing_newer(self):
        path = self.path("guarded.txt")
        ask = lambda body, **headers: self.server.request("PUT", path, body, headers={
            name.replace("_", "-"): value for name, value in headers.items()}).status
        self.assertEqual(ask(b"mine", If_None_Match="*"), 201)
        self.assertEqual(ask(b"yours", If_None_Match="*"), 412)
        date = self.get("guarded.txt").headers["last-modified"]
        self.assertEqual(ask(b"ours", If_Match="*", If_Unmodified_Since=date), 204)
        self.assertEqual(ask(b"late", If_Unmodified_Since="Sun, 06 Nov 1994 08:49:37 GMT"), 412)
        self.assertEqual(self.get("guarded.txt").body, b"ours")

    def test_range_on_condition_of_the_same_date(self):
        date = self.get("thousand.bin").headers["last-modified"]
        for condition, status in ((date, 206), ("Sun, 06 Nov 1994 08:49:37 GMT", 200),
                                  ('"tag"', 200)):
            for text in ("bytes=500-", "bytes=-500"):
                with self.subTest(condition=condition, range=text):
                    reply = self.get("thousand.bin", Range=text, If_Range=condition)
                    self.assertEqual(reply.status, status)
                    self.assertEqual(reply.body, self.data[500:] if status == 206 else self.data)


class ClassicParts(ServerCase):
    """What the module says to ranges that are not closed, and nobody mends for it."""

    dialect = "classic"
    get = Download.get

    def test_ranges_are_the_modules(self):
        data = pattern(1000)
        self.tree.write("thousand.bin", data)
        reply = self.get("thousand.bin", Range="bytes=-500")
        self.assertEqual((reply.status, reply.headers["content-length"], reply.body),
                         (206, "0", b""))
        reply = self.get("thousand.bin", Range="bytes=0-99,101-199")
        self.assertEqual((reply.status, reply.headers["content-range"], reply.body),
                         (206, "bytes 0-199/1000", data[:100] + data[101:200]))
        reply = self.get("thousand.bin", Range="bytes=0-99", If_Range='"other"')
        self.assertEqual((reply.status, reply.body), (206, data[:100]))
        # The announced length is that of the whole: the end of the connection shows what is short.
        reply = curl("-r", "500-", self.docs("thousand.bin"))
        self.assertEqual((reply.code, reply.status, reply.out), (18, 206, data[500:]))

    def test_part_is_not_stored_for_the_whole(self):
        self.tree.write("kept", b"whole content")
        reply = self.server.request("PUT", self.path("kept"), b"part",
                                    {"Content-Range": "bytes 0-3/13"})
        self.assertEqual(reply.status, 400)
        self.assertEqual(self.tree.read("kept"), b"whole content")


@in_both_dialects
class Volumes(ServerCase):
    def test_two_volumes_are_kept_apart(self):
        one, two = Tree(), Tree()
        try:
            with TestServer({"one": one.path, "two words": two.path}) as server:
                self.assertEqual(server.request("PUT", url_path("one", "f"), b"1").status, 201)
                self.assertEqual(server.request("PUT", url_path("two words", "f"), b"2").status, 201)
                self.assertEqual((one.read("f"), two.read("f")), (b"1", b"2"))
                self.assertEqual(server.request("GET", url_path("three", "f")).status, 404)
        finally:
            one.remove()
            two.remove()

    def test_volume_takes_the_name_of_its_directory(self):
        tree = Tree()
        os.mkdir(tree / "Bücher")
        try:
            server = TestServer({}, [tree / "Bücher"])
            with server:
                self.assertEqual(server.request("PUT", url_path("Bücher", "f"), b"x").status, 201)
        finally:
            tree.remove()

    def test_missing_directory_stops_the_start(self):
        with self.assertRaises(Failure) as caught:
            TestServer({"gone": self.tree / "no such directory"})
        self.assertIn("no such directory", str(caught.exception))


@in_both_dialects
class WholeTree(ServerCase):
    settings = {"FileStore": {"Sync": "none"}}

    def test_a_thousand_files_of_all_sizes_round_trip(self):
        client = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=60)
        sums = {}
        for i in range(1000):
            data = pattern((i * 7919) % 40000, i)
            sums[i] = hashlib.sha256(data).digest()
            self.assertEqual(exchange(client, "PUT", self.path(f"f{i}"), data).status, 201)
        for i in range(1000):
            body = exchange(client, "GET", self.path(f"f{i}")).body
            self.assertEqual(hashlib.sha256(body).digest(), sums[i])
        client.close()
