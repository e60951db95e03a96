# SPDX-License-Identifier: Apache-2.0
"""The bodies and the checks that the replays of well-known clients share."""

import xml.etree.ElementTree as ElementTree

from dav import D, multistatus, strict
from harness import ServerCase

XML = {"Content-Type": 'text/xml; charset="utf-8"'}


def asks(*names, namespace="D", others=()):
    """A PROPFIND body of properties of the protocol, and of elements written out."""
    prefix = namespace + ":" if namespace else ""
    declared = f'xmlns:{namespace}="DAV:"' if namespace else 'xmlns="DAV:"'
    inner = "".join(f"<{prefix}{name}/>" for name in names) + "".join(others)
    return (f'<?xml version="1.0" encoding="utf-8"?>\n<{prefix}propfind {declared}><{prefix}prop>'
            f"{inner}</{prefix}prop></{prefix}propfind>\n").encode()


def wants_lock(owner):
    return ('<?xml version="1.0" encoding="utf-8"?>\n<D:lockinfo xmlns:D="DAV:">'
            "<D:lockscope><D:exclusive/></D:lockscope><D:locktype><D:write/></D:locktype>"
            f"<D:owner>{owner}</D:owner></D:lockinfo>\n").encode()


class ClientCase(ServerCase):
    """Requests with the headers that every request of one client has."""

    always = {}

    def ask(self, method, path, body=None, **headers):
        given = {name.replace("_", "-"): value for name, value in headers.items()}
        return self.server.request(method, path, body, {**self.always, **given})

    def listing(self, path, depth, body):
        reply = self.ask("PROPFIND", path, body, Depth=str(depth), **self.xml())
        self.assertEqual(reply.status, 207)
        self.assertRegex(reply.headers["content-type"], r"^(text/xml|application/xml)")
        strict(reply.body)
        return multistatus(reply.body)

    @staticmethod
    def xml():
        return {"Content_Type": XML["Content-Type"]}

    def in_lock(self, reply, name):
        """The one element of the one lock that a reply describes, found by its namespace."""
        locks = list(ElementTree.fromstring(reply.body).iter(D + "activelock"))
        self.assertEqual(len(locks), 1, reply)
        found = locks[0].findall(D + name)
        self.assertEqual(len(found), 1, reply)
        return found[0]

    def token_in(self, reply):
        """The token of a LOCK reply, as the clients that look into the body find it."""
        token = self.in_lock(reply, "locktoken").find(D + "href").text
        self.assertRegex(token, r"^\S{1,255}$")
        return token
