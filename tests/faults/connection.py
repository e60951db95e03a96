# SPDX-License-Identifier: Apache-2.0
"""A client that tells a whole reply from one that was visibly cut short."""

import socket
import time


class Answer:
    """What came back for one request. status 0: nothing. `whole`: by its own framing."""

    def __init__(self, status, headers, body, whole, text=b""):
        self.status = status
        self.headers = headers
        self.body = body
        self.whole = whole
        self.text = text  # as it came
        self.hung = False  # no end came while the failures lasted

    def __repr__(self):
        return f"<{self.status}{'' if self.whole else ' cut'} {self.body[:160]!r}>"

    def told(self):
        """Whether a client knows what the server said."""
        return self.status != 0 and self.whole


def unchunk(rest):
    """(body, whether the last chunk came)."""
    body = bytearray()
    while True:
        line, mark, rest = rest.partition(b"\r\n")
        if not mark:
            return bytes(body), False
        size = int(line.split(b";")[0], 16)
        if size == 0:
            return bytes(body), rest.endswith(b"\r\n")
        body += rest[:size]
        if len(rest) < size + 2:
            return bytes(body), False
        rest = rest[size + 2:]


def parse(text, method):
    """An Answer from all that a connection gave."""
    last = text
    while last.startswith(b"HTTP/1.1 1"):  # interim replies
        last = last.partition(b"\r\n\r\n")[2]
    head, mark, rest = last.partition(b"\r\n\r\n")
    if not mark:
        return Answer(0, {}, b"", False, text)
    first, *rows = head.decode("latin-1").split("\r\n")
    status = int(first.split(" ")[1])
    headers = {}
    for row in rows:
        name, _, value = row.partition(":")
        headers[name.lower()] = value.strip()
    if method == "HEAD" or status in (204, 304):
        return Answer(status, headers, b"", not rest, text)
    if headers.get("transfer-encoding") == "chunked":
        body, whole = unchunk(rest)
        return Answer(status, headers, body, whole, text)
    size = int(headers.get("content-length", len(rest)))
    return Answer(status, headers, rest, len(rest) == size, text)


def head(method, path, port, headers, length):
    lines = [f"{method} {path} HTTP/1.1", f"Host: 127.0.0.1:{port}"]
    lines += [f"{name}: {value}" for name, value in headers.items()]
    if length or method in ("PUT", "POST", "PATCH"):
        lines.append(f"Content-Length: {length}")
    return "\r\n".join(lines + ["", ""]).encode()


class Peer:
    """A kept connection to one server; reconnects when it has gone."""

    def __init__(self, port, patience):
        self.port = port
        self.patience = patience  # seconds
        self.sock = None

    def close(self):
        if self.sock is not None:
            self.sock.close()
            self.sock = None

    def connect(self):
        self.close()
        self.sock = socket.create_connection(("127.0.0.1", self.port), self.patience)
        self.sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def ask(self, method, path, headers=None, body=b""):
        """One request on the kept connection; its reply is whole or this raises."""
        for attempt in (0, 1):
            fresh = self.sock is None
            if fresh:
                self.connect()
            try:
                self.sock.sendall(head(method, path, self.port, headers or {}, len(body)) + body)
                return self.receive(method)
            except (ConnectionError, TimeoutError, OSError):
                self.close()
                if fresh or attempt:
                    raise
        return None

    def receive(self, method):
        text = b""
        while True:
            got = self.sock.recv(262144)
            if not got:
                self.close()
                raise ConnectionError("closed")
            text += got
            if b"\r\n\r\n" in text:
                answer = parse(text, method)
                if answer.status and answer.whole:
                    return answer

    def last(self, method, path, headers=None, body=b"", after=None):
        """One request with which the connection ends, whatever comes back. `after` is called when
        nothing has come for a while: what holds the server up is to be taken away."""
        text = b""
        sock, self.sock = self.sock, None
        hung = False
        with sock:
            try:
                given = {**(headers or {}), "Connection": "close"}
                sock.sendall(head(method, path, self.port, given, len(body)) + body)
            except OSError:
                pass  # refused before its end
            sock.settimeout(self.patience)
            end = time.monotonic() + 4 * self.patience
            while time.monotonic() < end:
                try:
                    got = sock.recv(262144)
                except TimeoutError:
                    hung = True
                    if after:
                        after()
                    continue
                except OSError:
                    break
                if not got:
                    break
                text += got
        answer = parse(text, method)
        answer.hung = hung
        return answer
