# SPDX-License-Identifier: Apache-2.0
"""What the cases share that send the requests of programs which do not run here."""

import davxml
from dav import D, multistatus
from harness import ServerCase


def asks(*names, others=()):
    """A PROPFIND body as most programs write it."""
    inner = "".join(f"<D:{name}/>" for name in names) + "".join(others)
    return (f'<?xml version="1.0" encoding="utf-8"?>\n<D:propfind xmlns:D="DAV:">\n<D:prop>{inner}'
            "</D:prop>\n</D:propfind>\n").encode()


def wants_lock(owner):
    return ('<?xml version="1.0" encoding="utf-8"?>\n<D:lockinfo xmlns:D="DAV:">\n<D:lockscope>'
            "<D:exclusive/></D:lockscope>\n<D:locktype><D:write/></D:locktype>\n"
            f"<D:owner>{owner}</D:owner>\n</D:lockinfo>\n").encode()


class FlowCase(ServerCase):
    """Every reply is read by the strict parser: TestServer.request does that."""

    options = ("--dialect", "standard")
    always = {}  # headers of each request
    kind = "text/xml"  # of the bodies

    def send(self, method, path, body=None, wanted=None, **headers):
        """headers: with "_" for "-". The kind of a body is told where there is one."""
        given = dict(self.always)
        if body:
            given["Content-Type"] = self.kind
        given.update({key.replace("_", "-"): value for key, value in headers.items()})
        reply = self.server.request(method, path, body, given)
        if wanted is not None:
            self.assertIn(reply.status, wanted if isinstance(wanted, tuple) else (wanted,),
                          (method, path, reply))
        return reply

    def ask(self, method, name, body=None, wanted=None, **headers):
        """The same of a name in the volume, unescaped."""
        return self.send(method, self.path(*name.split("/")) if name else self.path() + "/", body,
                         wanted, **headers)

    def entries(self, method, name, body=None, **headers):
        return multistatus(self.ask(method, name, body, 207, **headers).body)

    def active_lock(self, reply):
        """The lock that a reply to LOCK tells of, with its token in the header too where new."""
        active, = davxml.active_locks(reply.body)
        return active

    def token_of(self, reply):
        return self.active_lock(reply).find(f"{D}locktoken/{D}href").text

    def locked(self, name, wanted, owner="me", **headers):
        """The token of a new lock."""
        reply = self.ask("LOCK", name, wants_lock(owner), wanted, **headers)
        token = self.token_of(reply)
        self.assertEqual(reply.headers["lock-token"], f"<{token}>")
        self.assertLess(len(token), 256)
        return token

    def refresh(self, name, token, body=b"", **headers):
        again = self.ask("LOCK", name, body, 200, If=f"(<{token}>)", **headers)
        self.assertEqual(self.token_of(again), token)
        return again

    def unlock(self, name, token):
        self.ask("UNLOCK", name, None, 204, Lock_Token=f"<{token}>")

    def put_in_chunks(self, name, data, expected, wanted, **headers):
        """Of a length that only "X-Expected-Entity-Length" tells."""
        lines = "".join(f"{key.replace('_', '-')}: {value}\r\n"
                        for key, value in {**self.always, **headers}.items())
        pieces = [data[at:at + 4096] for at in range(0, len(data), 4096)]
        chunks = b"".join(b"%x\r\n%b\r\n" % (len(piece), piece) for piece in pieces)
        reply = self.server.raw(
            (f"PUT {self.path(*name.split('/'))} HTTP/1.1\r\nHost: 127.0.0.1:{self.server.port}\r\n"
             f"{lines}Transfer-Encoding: chunked\r\nX-Expected-Entity-Length: {expected}\r\n"
             "Connection: close\r\n\r\n").encode() + chunks + b"0\r\n\r\n")
        self.assertEqual(int(reply.split()[1]), wanted, reply[:300])
