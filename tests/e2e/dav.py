# SPDX-License-Identifier: Apache-2.0
"""What a WebDAV client makes of replies: strict where the strictest clients are."""

import re
import xml.etree.ElementTree as ElementTree
import xml.parsers.expat
from urllib.parse import quote

from harness import Failure, plain_path

D = "{DAV:}"
ALLPROP = b'<?xml version="1.0"?><D:propfind xmlns:D="DAV:"><D:allprop/></D:propfind>'


def named(*names):
    """A PROPFIND body that asks for these properties; names without ":" are the protocol's own."""
    inner = "".join(f"<{name}/>" if ":" in name else f"<D:{name}/>" for name in names)
    return (f'<?xml version="1.0"?><D:propfind xmlns:D="DAV:" xmlns:X="urn:x"><D:prop>{inner}'
            "</D:prop></D:propfind>").encode()


def well_formed(body):
    """Parses without namespaces, for the classic dialect's reply to PROPPATCH: it echoes a prefix
    that only the request declared."""
    parser = xml.parsers.expat.ParserCreate()
    parser.Parse(body, True)


class Entry:
    """One response element: the path that it is about, and its properties by their status."""

    def __init__(self, element):
        href = element.find(D + "href")
        self.href = None if href is None else href.text
        self.path = None if href is None else plain_path(href.text)
        whole = element.find(D + "status")  # of the entry, where it has no properties
        self.status = None if whole is None else int(whole.text.split()[1])
        self.found = {}
        self.missing = {}
        for propstat in element.findall(D + "propstat"):
            status = propstat.find(D + "status").text
            place = self.found if " 200 " in status else self.missing
            for prop in propstat.findall(D + "prop"):
                for child in prop:
                    place[child.tag] = child

    def text(self, name):
        return self.found[D + name].text

    def is_collection(self):
        return self.found[D + "resourcetype"].find(D + "collection") is not None


def strict(body):
    """Fails where the strictest clients lose an entry or give up on a 207 reply."""
    if b"<!" in body:
        raise Failure("a declaration: clients refuse entities")
    for response in re.split(rb"<\w+:response>", body)[1:]:
        # Clients that read as they receive want to know first what the rest is about.
        match = re.match(rb"\s*<\w+:href>([^<]*)</\w+:href>", response)
        if not match:
            raise Failure(f"no href first: {response[:200]!r}")
        if not re.fullmatch(rb"[A-Za-z0-9._~:/!$'()*+,;=@|{}%-]+", match[1]):
            raise Failure(f"an href that is no URI: {match[1]!r}")
        for status in re.findall(rb"<\w+:status>([^<]*)<", response):
            if not re.fullmatch(rb"HTTP/1\.1 [1-5]\d\d .*", status):
                raise Failure(f"a status line that is none: {status!r}")


def multistatus(body):
    """The entries of a 207 reply, in its order."""
    strict(body)
    root = ElementTree.fromstring(body)
    if root.tag != D + "multistatus":
        raise Failure(f"this is no multistatus: {root.tag}")
    return [Entry(element) for element in root.findall(D + "response")]


def propfind(server, path, depth=0, body=None):
    """The reply, with its entries when it is a 207."""
    headers = {"Depth": str(depth)}
    if body is not None:
        headers["Content-Type"] = "text/xml; charset=utf-8"
    reply = server.request("PROPFIND", path, body, headers)
    reply.entries = multistatus(reply.body) if reply.status == 207 else []
    return reply


def proppatch(server, path, sets=(), removes=(), headers=None):
    """One prop element for each property, as the server wants it."""
    text = ['<?xml version="1.0"?><D:propertyupdate xmlns:D="DAV:" xmlns:X="urn:x">']
    text += [f"<D:set><D:prop><{name}>{value}</{name}></D:prop></D:set>" for name, value in sets]
    text += [f"<D:remove><D:prop><{name}/></D:prop></D:remove>" for name in removes]
    text.append("</D:propertyupdate>")
    given = {"Content-Type": "text/xml; charset=utf-8", **(headers or {})}
    reply = server.request("PROPPATCH", path, "".join(text).encode(), given)
    if reply.status == 207 and server.dialect == "classic":
        well_formed(reply.body)
    elif reply.status == 207:
        reply.entries = multistatus(reply.body)
    return reply


def destination(server, path):
    return {"Destination": server.base() + path}


def move(server, source, target, **headers):
    return server.request("MOVE", source, headers={**destination(server, target), **headers})


def copy(server, source, target, **headers):
    return server.request("COPY", source, headers={**destination(server, target), **headers})


def lock_body(owner="someone", scope="exclusive"):
    return (f'<?xml version="1.0"?><D:lockinfo xmlns:D="DAV:"><D:lockscope><D:{scope}/>'
            f"</D:lockscope><D:locktype><D:write/></D:locktype><D:owner>{owner}</D:owner>"
            "</D:lockinfo>").encode()


class Lock:
    """The lock that a LOCK reply describes."""

    def __init__(self, body):
        root = ElementTree.fromstring(body)
        active = root.find(f"{D}lockdiscovery/{D}activelock")
        self.token = active.find(f"{D}locktoken/{D}href").text
        self.timeout = active.find(D + "timeout").text
        self.depth = active.find(D + "depth").text
        self.owner = active.find(D + "owner")
        scope = active.find(D + "lockscope")
        self.exclusive = scope.find(D + "exclusive") is not None


def lock(server, path, timeout="Second-600", owner="someone", scope="exclusive", **headers):
    """The reply; its .lock is the one described, on 423 of the classic dialect the other
    holder's."""
    reply = server.request("LOCK", path, lock_body(owner, scope),
                           {"Timeout": timeout, "Depth": "0", "Content-Type": "text/xml",
                            **headers})
    reply.lock = None
    describes = reply.status in (200, 201) or b"lockdiscovery" in reply.body
    if describes and reply.status != 207:
        try:
            reply.lock = Lock(reply.body)
        except ElementTree.ParseError:
            pass  # the owner's text stands in the reply as it was collected: see the cases for it
    return reply


def refresh(server, path, token, timeout="Second-600"):
    reply = server.request("LOCK", path, None, {"Timeout": timeout, "If": f"(<{token}>)"})
    reply.lock = Lock(reply.body) if reply.status == 200 else None
    return reply


def unlock(server, path, token):
    return server.request("UNLOCK", path, None, {"Lock-Token": f"<{token}>"})


def href_of(path):
    """How the server writes a path of unescaped text in an href."""
    return quote(path, safe="/!$'()*+,-._{|}~")
