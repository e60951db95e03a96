# SPDX-License-Identifier: Apache-2.0
"""What the server says leaves compressed where a client takes it; what is stored leaves as it is."""

import gzip
import http.client
import os
import subprocess
import unittest

import davxml
import harness
from harness import ServerCase, TestServer, curl, url_path

BODY = b'<D:propfind xmlns:D="DAV:"><D:allprop/></D:propfind>'
SCRIPT = "/Wharf/" + next(name for name in sorted(os.listdir(
    os.path.join(harness.ROOT, "web", "wharf")), key=lambda name: -os.path.getsize(
        os.path.join(harness.ROOT, "web", "wharf", name))) if name.endswith(".js"))


def plain_of(reply):
    """The body of a reply as it was before it was coded."""
    coding = reply.headers.get("content-encoding")
    if coding == "gzip":
        return gzip.decompress(reply.body)
    if coding == "zstd":
        return subprocess.run(["zstd", "-dc"], input=reply.body, capture_output=True,
                              check=True).stdout
    assert coding is None, coding
    return reply.body


class Compression(ServerCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        for i in range(400):
            cls.tree.write(f"many/a member with a long name {i:04}.txt", b"x")
        for name in os.listdir(cls.tree / "many"):  # old enough for tags that do not change any more
            os.utime(os.path.join(cls.tree / "many", name), (1_000_000_000, 1_000_000_000))
        cls.tree.write("few/one.txt", b"x")
        cls.tree.write("text.txt", b"line of text\n" * 500)
        cls.tree.write("page.html", b"<p>text</p>\n" * 1000)

    def ask(self, method, path, accepted, headers=None, body=None):
        """A reply whose body is as it came; what it holds is read strictly all the same."""
        client = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=harness.PATIENCE)
        self.addCleanup(client.close)
        given = {"Accept-Encoding": accepted} if accepted is not None else {}
        client.putrequest(method, path, skip_accept_encoding=True)
        for name, value in {**given, **(headers or {})}.items():
            client.putheader(name, value)
        if body is not None:
            client.putheader("Content-Length", str(len(body)))
        client.endheaders(body)
        reply = client.getresponse()
        fields = {name.lower(): value for name, value in reply.getheaders()}
        return harness.Reply(reply.status, fields, reply.read())

    def listing(self, accepted, folder="many", headers=None):
        return self.ask("PROPFIND", url_path("docs", folder), accepted,
                        {"Depth": "1", **(headers or {})}, BODY)

    def read(self, reply, path):
        """The hrefs of a multistatus, which is held against RFC 4918."""
        plain = harness.Reply(reply.status, reply.headers, plain_of(reply))
        davxml.read_reply("PROPFIND", path, plain)
        return plain.body.count(b"<D:href>") or plain.body.count(b"href>") // 2

    def test_a_listing(self):
        path = url_path("docs", "many")
        whole = self.listing(None)
        self.assertNotIn("content-encoding", whole.headers)
        for accepted, coding in (("gzip", "gzip"), ("gzip, zstd", "zstd"), ("*", "zstd"),
                                 ("zstd;q=0.1, gzip;q=0.2", "gzip")):
            reply = self.listing(accepted)
            self.assertEqual((reply.status, reply.headers["content-encoding"]), (207, coding))
            self.assertIn("Accept-Encoding", reply.headers["vary"])
            self.assertLess(len(reply.body), len(whole.body) / 4)
            self.assertEqual(len(plain_of(reply)), len(whole.body))
            self.assertEqual(self.read(reply, path), self.read(whole, path))
        for accepted in ("identity", "gzip;q=0", "br", "gzip;q=0.1, identity"):
            self.assertEqual(len(self.listing(accepted).body), len(whole.body), accepted)

    def test_a_short_one_is_left_alone(self):
        reply = self.ask("PROPFIND", url_path("docs", "few", "one.txt"), "gzip",
                         {"Depth": "0"}, b'<D:propfind xmlns:D="DAV:"><D:prop><D:getetag/></D:prop>'
                         b"</D:propfind>")
        self.assertEqual(reply.status, 207)
        self.assertNotIn("content-encoding", reply.headers)

    def test_what_is_stored_is_left_alone(self):
        for name in ("text.txt", "page.html"):
            path = url_path("docs", name)
            plain = self.ask("GET", path, None)
            for headers in ({}, {"Range": "bytes=100-1999"}):
                for method in ("GET", "HEAD"):
                    reply = self.ask(method, path, "gzip, zstd", headers)
                    self.assertNotIn("content-encoding", reply.headers)
                    self.assertEqual(reply.headers["etag"], plain.headers["etag"])
            self.assertEqual(self.ask("GET", path, "gzip").body, plain.body)
            self.assertEqual(self.ask("GET", path, "gzip", {"Range": "bytes=5-9"}).body,
                             plain.body[5:10])

    def test_scripts_and_their_tags(self):
        plain = self.ask("GET", SCRIPT, None)
        self.assertEqual(plain.headers["vary"], "Accept-Encoding")
        coded = self.ask("GET", SCRIPT, "gzip")
        self.assertEqual(coded.headers["content-encoding"], "gzip")
        self.assertEqual(plain_of(coded), plain.body)
        self.assertEqual(coded.headers["etag"], "W/" + plain.headers["etag"])
        for tag in (coded.headers["etag"], plain.headers["etag"]):
            for accepted in ("gzip", None):
                again = self.ask("GET", SCRIPT, accepted, {"If-None-Match": tag})
                self.assertEqual((again.status, again.body), (304, b""))
                self.assertNotIn("content-encoding", again.headers)
        head = self.ask("HEAD", SCRIPT, "gzip")
        self.assertEqual(head.body, b"")
        for name in ("content-encoding", "etag", "vary", "content-type"):
            self.assertEqual(head.headers[name], coded.headers[name], name)
        self.assertNotIn("content-length", head.headers)

    def test_pages(self):
        path = url_path("docs", "many") + "/"
        browser = {"Accept": "text/html"}
        plain = self.ask("GET", path, None, browser)
        self.assertEqual(plain.status, 200)
        self.assertIn("Accept-Encoding", plain.headers["vary"])
        coded = self.ask("GET", path, "gzip", browser)
        self.assertEqual(coded.headers["content-encoding"], "gzip")
        self.assertEqual(len(plain_of(coded)), len(plain.body))

    def test_pages_of_other_sites_learn_nothing_by_sizes(self):
        for site, is_coded in (("cross-site", False), ("same-site", False), ("same-origin", True),
                               ("none", True)):
            reply = self.listing("gzip", headers={"Sec-Fetch-Site": site})
            self.assertEqual("content-encoding" in reply.headers, is_coded, site)

    def test_curl(self):
        plain = curl("-X", "PROPFIND", "-H", "Depth: 1", self.docs("many"))
        coded = curl("--compressed", "-X", "PROPFIND", "-H", "Depth: 1", self.docs("many"))
        self.assertIn(coded.headers["content-encoding"], ("gzip", "zstd"))
        self.assertEqual(len(coded.out), len(plain.out))
        page = curl("--compressed", self.server.base() + SCRIPT)
        self.assertEqual(page.out, curl(self.server.base() + SCRIPT).out)

    def test_the_connection_goes_on(self):
        client = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=harness.PATIENCE)
        self.addCleanup(client.close)
        for accepted in ("gzip", "identity", "gzip"):
            client.request("PROPFIND", url_path("docs", "many"), BODY,
                           {"Depth": "1", "Accept-Encoding": accepted})
            reply = client.getresponse()
            self.assertEqual(reply.status, 207)
            reply.read()

    def test_http_1_0(self):
        with self.server.connect() as client:
            client.sendall(f"GET {SCRIPT} HTTP/1.0\r\nAccept-Encoding: gzip\r\n\r\n".encode())
            head, _, body = harness.read_all(client).partition(b"\r\n\r\n")
        self.assertIn(b"Content-Encoding: gzip", head)
        self.assertEqual(gzip.decompress(body), self.ask("GET", SCRIPT, None).body)


class Off(unittest.TestCase):
    def asked(self, *options, **settings):
        tree = harness.Tree()
        self.addCleanup(tree.remove)
        for i in range(50):
            tree.write(f"a member {i}", b"")
        with TestServer({"docs": tree.path}, options, {"Server": settings}) as server:
            for path in (url_path("docs"), SCRIPT):
                method = "GET" if path == SCRIPT else "PROPFIND"
                reply = server.request(method, path, None,
                                       {"Depth": "1", "Accept-Encoding": "gzip"})
                self.assertIn(reply.status, (200, 207))
                self.assertNotIn("content-encoding", reply.headers)
                self.assertNotIn("vary", reply.headers)

    def test_by_the_setting(self):
        self.asked(Compression=False)

    def test_in_the_classic_dialect(self):
        self.asked("--dialect", "classic")


if __name__ == "__main__":
    unittest.main()
