# SPDX-License-Identifier: Apache-2.0
"""What fails in the standard dialect: pages for people, elements and short texts for programs."""

import base64
import os
import re

from dav import lock_body
from harness import ServerCase

BROWSER = {"Accept": "text/html,application/xhtml+xml,application/xml;q=0.9,*/*;q=0.8"}
LIMIT = 100_000


def form(name, content):
    """The headers and the body with which a browser uploads a file."""
    body = (b"--b\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" + name.encode() +
            b"\"\r\nContent-Type: text/plain\r\n\r\n" + content + b"\r\n--b--\r\n")
    return {"Content-Type": "multipart/form-data; boundary=b"}, body


class Errors(ServerCase):
    options = ("--dialect", "standard")
    settings = {"Server": {"Body Size": LIMIT}}

    def see(self, method, path, status, body=None, headers=None):
        """What a browser shows, with a way back that leads somewhere."""
        reply = self.server.request(method, path, body, {**BROWSER, **(headers or {})})
        self.assertEqual(reply.status, status, reply)
        self.assertIn("text/html", reply.headers["content-type"], reply)
        page = reply.body.decode()
        self.assertRegex(page, r"<h1>[A-Z][^<]+\.</h1>")
        self.assertIn("Status %d" % status, page)
        links = re.findall(r'<a href="([^"]*)">', page)
        self.assertEqual(links, [".", ".."], page)
        return reply

    def test_person_sees_a_page_whoever_refuses(self):
        self.tree.write("folder/f.txt", b"content")
        self.see("GET", self.path("nothing"), 404)
        self.see("GET", self.path("folder") + "/deep/nothing.txt", 404)
        self.see("GET", "/elsewhere/nothing", 404)
        self.see("GET", "/Wharf/nothing.html", 404)
        self.see("GET", self.path("folder") + "/f.txt", 412, headers={"If-Match": '"other"'})
        self.see("GET", self.path("folder") + "/f.txt", 416, headers={"Range": "bytes=100-200"})
        self.see("GET", self.path("folder") + "/", 412, headers={"If-Match": '"other"'})
        self.see("GET", self.path("") + "f%00.txt", 400)

    def test_person_whose_upload_fails_sees_why(self):
        os.mkdir(self.tree / "uploads")
        headers, body = form("small.txt", b"small")
        self.assertEqual(self.server.request("POST", self.path("uploads") + "/", body,
                                             {**BROWSER, **headers}).status, 200)
        self.assertEqual(self.tree.read("uploads/small.txt"), b"small")
        headers, body = form("large.txt", b"x" * LIMIT)
        self.see("POST", self.path("uploads") + "/", 413, body, headers)
        self.see("POST", self.path("uploads") + "/", 415, b"x", {"Content-Type": "text/plain"})
        headers, body = form("orphan.txt", b"x")
        refused = self.see("POST", self.path("none") + "/", 404, body, headers)
        self.assertNotIn(b"<script", refused.body.lower())
        lock = self.server.request("LOCK", self.path("uploads") + "/small.txt", lock_body())
        self.assertEqual(lock.status, 200)
        headers, body = form("small.txt", b"other")
        self.see("POST", self.path("uploads") + "/", 423, body, headers)
        self.assertEqual(sorted(os.listdir(self.tree / "uploads")), ["small.txt"])
        self.assertEqual(self.tree.read("uploads/small.txt"), b"small")

    def test_program_is_told_in_a_line(self):
        self.tree.write("f.txt", b"content")
        nothing, there = self.path("nothing"), self.path("f.txt")
        for method, path, status, headers in (
                ("GET", nothing, 404, {}), ("PROPFIND", nothing, 404, {"Depth": "0"}),
                ("DELETE", nothing, 404, {}), ("MKCOL", there, 405, {}),
                ("PUT", self.path("no") + "/parent", 409, {}), ("PUT", there + "/", 405, {}),
                ("PUT", there, 412, {"If-None-Match": "*"}),
                ("COPY", nothing, 404, {"Destination": self.server.url("docs", "n")}),
                ("LOCK", there, 400, {"Timeout": "Second-1"}), ("POST", "/elsewhere", 404, {})):
            reply = self.server.request(method, path, b"", headers)
            self.assertEqual(reply.status, status, (method, reply))
            self.assertEqual(reply.headers["content-type"], "text/plain; charset=utf-8", method)
            self.assertRegex(reply.body, rb"\A[0-9A-Z][^<\n]+\n\Z", method)
        head = self.server.request("HEAD", nothing)
        self.assertEqual((head.status, head.body), (404, b""))

    def test_download_that_goes_on_gets_no_sentence_behind_it(self):
        self.tree.write("f.txt", b"content")
        reply = self.server.request("GET", self.path("f.txt"), None, {"Range": "bytes=7-"})
        self.assertEqual((reply.status, reply.body), (416, b""))
        self.assertEqual(reply.headers["content-range"], "bytes */7")

    def test_unlock_with_a_token_of_another_scheme(self):
        self.tree.write("f", b"1")
        for token, status in (("<urn:uuid:00000000-0000-4000-8000-000000000001>", 409),
                              ("<opaquelocktoken:00000000-0000-4000-8000-000000000001>", 409),
                              ("nonsense", 400), ("<>", 400)):
            reply = self.server.request("UNLOCK", self.path("f"), None, {"Lock-Token": token})
            self.assertEqual(reply.status, status, token)
            if status == 409:
                self.assertIn(b"<D:lock-token-matches-request-uri/>", reply.body)


class SignIn(ServerCase):
    options = ("--dialect", "standard", "--user", "alice:secret")

    def test_person_who_does_not_sign_in_sees_a_page(self):
        for headers in ({}, {"Authorization": "Basic " +
                             base64.b64encode(b"alice:wrong").decode()}):
            reply = self.server.request("GET", self.path(""), None, {**BROWSER, **headers})
            self.assertEqual(reply.status, 401)
            self.assertIn("basic", reply.headers["www-authenticate"].lower())
            self.assertIn(b"<h1>You have to sign in", reply.body)
