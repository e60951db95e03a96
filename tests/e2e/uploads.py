# SPDX-License-Identifier: Apache-2.0
"""Uploads that go on when their connection has broken, spoken over raw sockets."""

import os

from harness import ServerCase, head, read_strictly, wait_for

PARTIAL = "Content-Type: application/partial-upload"
PROBLEM = "https://iana.org/assignments/http-problem-types#"


class Answer:
    """One reply, interim or final."""

    def __init__(self, status, headers, body=b""):
        self.status, self.headers, self.body = status, headers, body

    def __repr__(self):
        return f"<{self.status} {self.headers} {self.body[:200]!r}>"


class Wire:
    """A connection that is read reply by reply."""

    def __init__(self, server):
        self.server = server
        self.sock = server.connect()
        self.data = b""
        self.asked = None  # method and path of the last request

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.sock.close()

    def send(self, method, path, *lines, body=b""):
        self.asked = method, path
        self.sock.sendall(head(method, path, self.server.port, *lines) + body)
        return self

    def _more(self):
        part = self.sock.recv(65536)
        if not part:
            raise EOFError(self.data)
        self.data += part

    def read(self, has_body=True):
        while b"\r\n\r\n" not in self.data:
            self._more()
        text, _, self.data = self.data.partition(b"\r\n\r\n")
        first, *lines = text.decode("latin-1").split("\r\n")
        headers = {name.lower(): value for name, value in (line.split(": ", 1) for line in lines)}
        answer = Answer(int(first.split()[1]), headers)
        length = int(headers.get("content-length", 0)) if has_body else 0
        while len(self.data) < length:
            self._more()
        answer.body, self.data = self.data[:length], self.data[length:]
        return read_strictly(self.server.port, *self.asked, answer)


class UploadCase(ServerCase):
    options = ("--dialect", "standard")

    def ask(self, method, path, *lines, body=b"", server=None):
        """One request; the final reply."""
        if body:
            lines += (f"Content-Length: {len(body)}",)
        with Wire(server or self.server) as wire:
            wire.send(method, path, *lines, body=body)
            answer = wire.read(method != "HEAD")
            while answer.status < 200:
                answer = wire.read(method != "HEAD")
            return answer

    def begin(self, name, *lines, body=b"", server=None):
        """Begins an upload of parts: its place."""
        made = self.ask("PUT", self.path(name), "Upload-Complete: ?0",
                        f"Content-Length: {len(body)}" if not body else "X-Some: thing", *lines,
                        body=body, server=server)
        self.assertEqual(made.status, 201, made)
        self.assertEqual(made.headers["upload-complete"], "?0")
        self.assertEqual(made.headers["upload-offset"], str(len(body)))
        self.assertRegex(made.headers["upload-limit"], r"^max-size=\d+, max-age=\d+$")
        return made.headers["location"]

    def append(self, place, offset, body, *lines, complete=False, server=None):
        return self.ask("PATCH", place, PARTIAL, f"Upload-Offset: {offset}",
                        f"Upload-Complete: ?{int(complete)}",
                        *(lines if body else ("Content-Length: 0", *lines)), body=body,
                        server=server)

    def offset(self, place, server=None):
        found = self.ask("HEAD", place, server=server)
        self.assertEqual(found.status, 204, found)
        self.assertEqual(found.headers["cache-control"], "no-store")
        return int(found.headers["upload-offset"])

    def broken(self, name, content, sent, *lines, server=None):
        """A PUT of everything whose client leaves half way: the upload's place."""
        server = server or self.server
        with Wire(server) as wire:
            wire.send("PUT", self.path(name), "Upload-Complete: ?1",
                      f"Content-Length: {len(content)}", *lines)
            interim = wire.read()
            self.assertEqual(interim.status, 104, interim)
            wire.sock.sendall(content[:sent])
        return interim.headers["location"]

    def settled(self, place, wanted, server=None):
        """Waits until what was sent has been taken: the offset only grows while it is received."""
        def arrived():
            # Asking ends whoever is still adding, so let the server read first.
            return len(self.stored(place)) >= wanted
        wait_for(arrived, f"{wanted} bytes of {place}")
        return self.offset(place, server)

    def stored(self, place):
        name = place.rsplit("/", 1)[1]
        try:
            return self.tree.read(f".kest/uploads/{name}")
        except FileNotFoundError:
            return b""

    def content(self, name):
        return self.tree.read(name)

    def pending(self):
        try:
            return sorted(os.listdir(self.tree / ".kest/uploads"))
        except FileNotFoundError:
            return []
