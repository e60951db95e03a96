# SPDX-License-Identifier: Apache-2.0
"""Requests that try to leave the served directories, or that are no requests at all."""

import os

from harness import ServerCase, Tree, head, in_both_dialects, url_path

SECRET = b"not for you"


@in_both_dialects
class Escapes(ServerCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.outside = Tree()
        cls.outside.write("secret.txt", SECRET)
        cls.outside.write("folder/secret.txt", SECRET)
        cls.tree.write("inside.txt", b"inside")
        cls.tree.write("sub/deep.txt", b"deep")
        os.symlink(cls.outside / "secret.txt", cls.tree / "link-file")
        os.symlink(cls.outside / "folder", cls.tree / "link-folder")
        os.symlink("/etc", cls.tree / "link-etc")
        os.symlink("../" * 20 + "etc/passwd", cls.tree / "link-up")
        os.symlink("link-loop", cls.tree / "link-loop")
        os.symlink("inside.txt", cls.tree / "link-inside")
        os.symlink("/proc/self/root/etc/passwd", cls.tree / "link-magic")

    @classmethod
    def tearDownClass(cls):
        super().tearDownClass()
        cls.outside.remove()

    def up_paths(self):
        name = os.path.basename(self.outside.path) + "/secret.txt"
        base = self.path()
        for dots in ("..", "%2e%2e", ".%2e", "%2E.", "..;", "%252e%252e", "..%c0%af"):
            for separator in ("/", "%2f", "%2F", "%5c", "\\", "//", "/./"):
                yield base + separator + (dots + separator) * 3 + name
                yield base + "/sub/" + (dots + separator) * 2 + name
        yield base + "/" + self.outside.path + "/secret.txt"
        yield base + "//etc/passwd"
        yield "/" + "../" * 10 + "etc/passwd"
        yield "/Ferro/../../etc/passwd"

    def test_no_spelling_of_a_path_reads_outside(self):
        for path in self.up_paths():
            with self.subTest(path=path):
                reply = self.server.request("GET", path)
                self.assertIn(reply.status, (301, 302, 307, 400, 403, 404), reply)
                self.assertNotIn(SECRET, reply.body)
                self.assertNotIn(b"root:", reply.body)

    def test_no_spelling_of_a_path_writes_outside(self):
        before = sorted(os.listdir(self.outside.path))
        above = set(os.listdir(os.path.dirname(self.tree.path)))
        for path in self.up_paths():
            self.server.request("PUT", path, b"overwritten")
        self.assertEqual(self.outside.read("secret.txt"), SECRET)
        self.assertEqual(sorted(os.listdir(self.outside.path)), before)
        self.assertNotIn("secret.txt", set(os.listdir(os.path.dirname(self.tree.path))) - above)

    def test_links_out_of_the_volume_are_not_followed(self):
        for name in ("link-file", "link-folder/secret.txt", "link-etc/passwd", "link-up",
                     "link-loop", "link-magic"):
            with self.subTest(name=name):
                reply = self.server.request("GET", self.path(*name.split("/")))
                self.assertIn(reply.status, (403, 404), reply)
                self.assertNotIn(SECRET, reply.body)

    def test_links_out_of_the_volume_are_not_written_through(self):
        for name in ("link-file", "link-folder/secret.txt", "link-folder/new.txt"):
            self.server.request("PUT", self.path(*name.split("/")), b"overwritten")
            self.server.request("MKCOL", self.path("link-folder", "made"))
        self.assertEqual(self.outside.read("secret.txt"), SECRET)
        self.assertEqual(self.outside.read("folder/secret.txt"), SECRET)
        self.assertEqual(os.listdir(self.outside / "folder"), ["secret.txt"])

    def test_links_inside_the_volume_are_followed(self):
        self.assertEqual(self.server.request("GET", self.path("link-inside")).body, b"inside")

    def test_dot_segments_within_the_volume_are_resolved(self):
        for path in ("/sub/../inside.txt", "/./inside.txt", "/sub/%2e%2e/inside.txt"):
            with self.subTest(path=path):
                self.assertEqual(self.server.request("GET", self.path() + path).body, b"inside")

    def test_the_stores_own_directory_is_never_served(self):
        self.server.request("PUT", self.path("makes-the-store-write"), b"x")
        for name in (".kest", ".Kest", ".KEST"):
            for rest in ((), ("tmp",), ("meta.db",), ("deleted",)):
                with self.subTest(path=(name, *rest)):
                    path = self.path(name, *rest)
                    self.assertEqual(self.server.request("GET", path).status, 404)
                    reply = self.server.request("PUT", path, b"x")
                    self.assertIn(reply.status, range(400, 500), reply)
                    reply = self.server.request("MKCOL", path)
                    self.assertIn(reply.status, range(400, 500), reply)


@in_both_dialects
class Malformed(ServerCase):
    """Each gets a status that fits, and leaves the server as it was."""

    def status_of(self, data):
        got = self.server.raw(data)
        self.assertRegex(got[:13], rb"^HTTP/1\.[01] \d\d\d ", data[:100])
        return int(got[9:12])

    def request_line(self, line, *fields):
        return "\r\n".join([line, *fields, "", ""]).encode("latin-1")

    def test_heads_that_are_refused_with_400(self):
        path = self.path("file")
        host = "Host: localhost"
        cases = {
            "no host": [f"GET {path} HTTP/1.1"],
            "two hosts": [f"GET {path} HTTP/1.1", host, "Host: other"],
            "host with path": [f"GET {path} HTTP/1.1", "Host: a/b"],
            "host with markup": [f"GET {path} HTTP/1.1", "Host: <b>"],
            "host with user": [f"GET {path} HTTP/1.1", "Host: a@b"],
            "nul in path": ["GET /Ferro/docs/a%00b HTTP/1.1", host],
            "encoded slash": ["GET /Ferro/docs/a%2Fb HTTP/1.1", host],
            "broken escape": ["GET /Ferro/docs/%zz HTTP/1.1", host],
            "cut escape": ["GET /Ferro/docs/%4 HTTP/1.1", host],
            "no utf-8": ["GET /Ferro/docs/%ff%fe HTTP/1.1", host],
            "overlong": ["GET /Ferro/docs/%c0%ae HTTP/1.1", host],
            "surrogate": ["GET /Ferro/docs/%ed%a0%80 HTTP/1.1", host],
            "folded line": [f"GET {path} HTTP/1.1", host, "X: a", " b"],
            "space before colon": [f"GET {path} HTTP/1.1", host, "X : a"],
            "two lengths": [f"PUT {path} HTTP/1.1", host, "Content-Length: 1", "Content-Length: 2"],
            "length and chunked": [f"PUT {path} HTTP/1.1", host, "Content-Length: 5",
                                   "Transfer-Encoding: chunked"],
            "negative length": [f"PUT {path} HTTP/1.1", host, "Content-Length: -1"],
            "huge length": [f"PUT {path} HTTP/1.1", host,
                            "Content-Length: 99999999999999999999999"],
        }
        for name, lines in cases.items():
            with self.subTest(name):
                data = self.request_line(*lines)
                self.assertEqual(self.status_of(data), 400)

    def test_noise_is_refused(self):
        for data in (b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03" + os.urandom(400) + b"\r\n\r\n",
                     b"\0" * 100 + b"\r\n\r\n", b"GET\r\n\r\n", b"hello world\r\n\r\n"):
            got = self.server.raw(data)
            self.assertTrue(got == b"" or got.startswith(b"HTTP/1.1 400 "), got[:100])

    def test_long_target_answers_414(self):
        self.assertEqual(self.status_of(head("GET", "/Ferro/" + "a" * 9000, self.server.port)), 414)

    def test_long_head_answers_431(self):
        lines = [f"X-{i}: {'v' * 1000}" for i in range(60)]
        self.assertEqual(self.status_of(head("GET", self.path("x"), self.server.port, *lines)), 431)

    def test_head_without_end_answers_431(self):
        data = b"GET /Ferro HTTP/1.1\r\nHost: localhost\r\nX: " + b"a" * 100000
        self.assertEqual(self.status_of(data), 431)

    def test_unknown_transfer_coding_is_refused(self):
        data = head("PUT", self.path("x"), self.server.port, "Transfer-Encoding: gzip")
        self.assertIn(self.status_of(data), (400, 501))

    def test_broken_chunks_store_nothing(self):
        for body in (b"zz\r\nhello\r\n", b"5\r\nhelloX", b"ffffffffffffffffff\r\nx", b"-1\r\n\r\n"):
            with self.subTest(body=body):
                data = head("PUT", self.path("broken"), self.server.port,
                            "Transfer-Encoding: chunked") + body
                got = self.server.raw(data)
                self.assertFalse(got.startswith(b"HTTP/1.1 2"), got[:100])
                self.assertFalse(os.path.exists(self.tree / "broken"))
        self.assertEqual(self.tree.leftovers(), [])

    def test_path_outside_the_location_answers_404(self):
        for path in ("/other", "/Ferrox", "/ferroo/docs", "/Ferro2"):
            with self.subTest(path=path):
                self.assertEqual(self.server.request("GET", path).status, 404)

    def test_name_too_long_is_refused(self):
        reply = self.server.request("PUT", url_path("docs", "n" * 256), b"x")
        self.assertIn(reply.status, (400, 403, 404, 414), reply)

    def test_control_characters_in_a_new_name_are_refused(self):
        for name in ("a\nb", "a\x01b", "a\x7fb"):
            with self.subTest(name=name):
                reply = self.server.request("PUT", url_path("docs", name), b"x")
                self.assertIn(reply.status, range(400, 500), reply)
