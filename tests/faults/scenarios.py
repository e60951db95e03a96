# SPDX-License-Identifier: Apache-2.0
"""Every method on files, trees and between volumes: what is there before, and the one request that
a failure is put into."""

import functools

import resumable
from harness import pattern
from world import REFRESHED, colour_body, lock_body, lock_headers

SMALL = b"the old content"
NEW = b"quite another content"
LARGE = pattern(150_000, 1)   # more than is received before the module is called
MIDDLE = pattern(70_000, 2)   # more than one buffer of a reply
BROWSER = {"User-Agent": "Mozilla/5.0 (X11; Linux x86_64) Firefox/128.0", "Accept": "text/html"}
ALLPROP = b'<?xml version="1.0"?><D:propfind xmlns:D="DAV:"><D:allprop/></D:propfind>'
PROPNAME = b'<?xml version="1.0"?><D:propfind xmlns:D="DAV:"><D:propname/></D:propfind>'
NAMED = (b'<?xml version="1.0"?><D:propfind xmlns:D="DAV:" xmlns:X="urn:x"><D:prop><D:displayname/>'
         b"<D:resourcetype/><D:getcontentlength/><D:getlastmodified/><D:lockdiscovery/><X:colour/>"
         b"</D:prop></D:propfind>")


DIALECTS = ("classic", "standard")


class Scenario:
    """build(item) makes what is there before; request(item) is (method, path, headers, body)."""

    def __init__(self, name, build, request, status, world, dialects, upload=None):
        self.name = name
        self.dialects = dialects
        self.build = build
        self.request = request
        self.status = status  # without a failure
        self.world = world
        self.upload = upload  # what it does to one that goes on in other requests


ALL = []


def scenario(name, build, request, *status, worlds=("plain",), dialects=DIALECTS, upload=None):
    for world in worlds:
        shown = name if world == "plain" else f"{name} [{world}]"
        ALL.append(Scenario(shown, build, request, status, world, dialects, upload))


def chain(*steps):
    def build(item):
        for step in steps:
            step(item)
    return build


def file(name, data=SMALL, volume="docs"):
    return lambda item: item.write(name, data, volume)


def folder(name, volume="docs"):
    return lambda item: item.folder(name, volume)


def coloured(name, value="blue", volume="docs"):
    return lambda item: item.colour(name, value, volume)


def locked(name, **how):
    return lambda item: item.lock(name, **how)


def tree(name, volume="docs"):
    """Files and folders, some of them empty, one with a property."""
    def build(item):
        for i in range(6):
            item.write(f"{name}/f{i}", b"%s %d" % (name.encode(), i), volume)
        item.write(f"{name}/sub/deep/leaf", MIDDLE, volume)
        item.folder(f"{name}/sub/empty", volume)
        item.colour(f"{name}/f2", "green", volume)
        item.colour(f"{name}/sub", "red", volume)
    return build


def ask(method, name="", headers=None, body=b"", volume="docs"):
    return lambda item: (method, item.path(name, volume), dict(headers or {}), body)


def to(method, source, target, headers=None, volume="docs"):
    return lambda item: (method, item.path(source),
                         {**item.destination(target, volume), "Overwrite": "T",
                          **(headers or {})}, b"")


def with_token(method, name, headers=None, body=b""):
    return lambda item: (method, item.path(name),
                         {"If": f"(<{item.token}>)", **(headers or {})}, body)


def form(*files):
    parts = [f'--BB\r\nContent-Disposition: form-data; name="file"; filename="{name}"\r\n'
             f"Content-Type: text/plain\r\n\r\n".encode() + data + b"\r\n" for name, data in files]
    return b"".join(parts) + b"--BB--\r\n"


def post(*files):
    return ask("POST", "", {**BROWSER, "Content-Type": "multipart/form-data; boundary=BB"},
               form(*files))


nothing = chain()
LISTED = chain(*(file(f"f{i:02}", b"x" * i) for i in range(12)), folder("sub"),
               coloured("f03"), coloured("sub"), locked("f05"))

# -- Reading
scenario("GET small", file("f"), ask("GET", "f"), 200)
scenario("GET middle", file("f", MIDDLE), ask("GET", "f"), 200)
scenario("GET range", file("f", MIDDLE), ask("GET", "f", {"Range": "bytes=1000-60000"}), 206)
scenario("GET missing", nothing, ask("GET", "no"), 404)
scenario("HEAD", file("f", MIDDLE), ask("HEAD", "f"), 200)
scenario("GET index", LISTED, ask("GET", ""), 200)
scenario("GET index for a browser", LISTED, ask("GET", "", BROWSER), 200)
scenario("PROPFIND 0 of a file", chain(file("f"), coloured("f")),
         ask("PROPFIND", "f", {"Depth": "0"}, ALLPROP), 207)
scenario("PROPFIND 0 named", chain(file("f"), coloured("f"), locked("f")),
         ask("PROPFIND", "f", {"Depth": "0"}, NAMED), 207)
scenario("PROPFIND 0 of a folder", chain(file("f"), coloured("")),
         ask("PROPFIND", "", {"Depth": "0"}, NAMED), 207)
scenario("PROPFIND 1", LISTED, ask("PROPFIND", "", {"Depth": "1"}), 207)
scenario("PROPFIND 1 named", LISTED, ask("PROPFIND", "", {"Depth": "1"}, NAMED), 207)
scenario("PROPFIND names", LISTED, ask("PROPFIND", "", {"Depth": "1"}, PROPNAME), 207)
scenario("PROPFIND missing", nothing, ask("PROPFIND", "no", {"Depth": "0"}, ALLPROP), 404)

# -- Content
BOTH = ("plain", "unsynced")
scenario("PUT new", nothing, ask("PUT", "f", {}, NEW), 201, worlds=BOTH)
scenario("PUT new large", nothing, ask("PUT", "f", {}, LARGE), 201, worlds=BOTH)
scenario("PUT over", file("f"), ask("PUT", "f", {}, NEW), 200, 201, 204, worlds=BOTH)
scenario("PUT over large", chain(file("f", MIDDLE), coloured("f")), ask("PUT", "f", {}, LARGE),
         200, 201, 204)
scenario("PUT over", chain(file("f"), coloured("f")), ask("PUT", "f", {}, NEW),
         200, 201, 204, worlds=("final",))
scenario("PUT with token", chain(file("f"), locked("f")), with_token("PUT", "f", {}, NEW),
         200, 201, 204)
scenario("PUT to a locked file", chain(file("f"), locked("f")), ask("PUT", "f", {}, NEW), 423)
scenario("PUT If-Match of another", file("f"),
         ask("PUT", "f", {"If-Match": '"0"'}, NEW), 412, dialects=("standard",))
scenario("PUT If-None-Match", file("f"), ask("PUT", "f", {"If-None-Match": "*"}, NEW), 412,
         dialects=("standard",))
scenario("PUT new If-None-Match", nothing, ask("PUT", "f", {"If-None-Match": "*"}, NEW), 201)
scenario("PUT without parent", nothing, ask("PUT", "no/f", {}, NEW), 409)
scenario("POST two files", file("b.txt"), post(("a.txt", NEW), ("b.txt", NEW)), 200)

# -- Names
scenario("MKCOL", nothing, ask("MKCOL", "c"), 201)
scenario("MKCOL of what is there", folder("c"), ask("MKCOL", "c"), 405)
ENDS = ("plain", "final")
scenario("DELETE file", chain(file("f"), coloured("f")), ask("DELETE", "f"), 200, 204, worlds=ENDS)
scenario("DELETE tree", tree("t"), ask("DELETE", "t"), 200, 204, worlds=ENDS)
scenario("DELETE locked", chain(file("f"), locked("f")), ask("DELETE", "f"), 423)
scenario("DELETE tree with a locked file", chain(tree("t"), locked("t/f3")), ask("DELETE", "t"),
         207, 423)
scenario("DELETE with token", chain(file("f"), locked("f")), with_token("DELETE", "f"), 200, 204)

for METHOD in ("COPY", "MOVE"):
    # The classic dialect copies a tree where it has not to look for another one first.
    WHOLE = DIALECTS if METHOD == "MOVE" else ("standard",)
    scenario(f"{METHOD} file", chain(file("f", MIDDLE), coloured("f")), to(METHOD, "f", "g"), 200, 201,
             worlds=BOTH)
    scenario(f"{METHOD} file over", chain(file("f"), coloured("f"), file("g", NEW),
                                          coloured("g", "old")),
             to(METHOD, "f", "g"), 200, 201, 204, worlds=ENDS)
    scenario(f"{METHOD} file Overwrite F", chain(file("f"), file("g", NEW)),
             to(METHOD, "f", "g", {"Overwrite": "F"}), 412)
    scenario(f"{METHOD} new Overwrite F", file("f"), to(METHOD, "f", "g", {"Overwrite": "F"}), 200, 201)
    scenario(f"{METHOD} onto a locked file", chain(file("f"), file("g", NEW), locked("g")),
             to(METHOD, "f", "g"), 423)
    scenario(f"{METHOD} tree", tree("t"), to(METHOD, "t", "u"), 200, 201, dialects=WHOLE)
    # The classic dialect copies no tree onto another.
    for DIALECT in DIALECTS:
        scenario(f"{METHOD} tree over", chain(tree("t"), tree("u")), to(METHOD, "t", "u"),
                 *((412,) if (METHOD, DIALECT) == ("COPY", "classic") else (200, 204)),
                 worlds=ENDS, dialects=(DIALECT,))
    BETWEEN = ("plain", "final", "crossing")
    scenario(f"{METHOD} file between volumes", chain(file("f", MIDDLE), coloured("f")),
             to(METHOD, "f", "g", volume="other"), 200, 201,
             worlds=(*BETWEEN, "unsynced"))
    scenario(f"{METHOD} file over between volumes",
             chain(file("f"), coloured("f"), file("g", NEW, "other"),
                   coloured("g", "old", "other")),
             to(METHOD, "f", "g", volume="other"), 200, 201, 204, worlds=ENDS)
    scenario(f"{METHOD} tree between volumes", tree("t"), to(METHOD, "t", "u", volume="other"),
             200, 201, worlds=BETWEEN, dialects=WHOLE)
    scenario(f"{METHOD} tree over between volumes", chain(tree("t"), tree("u", "other")),
             to(METHOD, "t", "u", volume="other"), 200, 204, 412, worlds=ENDS)
scenario("COPY tree without another", tree("t"), to("COPY", "t", "u", {"Overwrite": "F"}), 200, 201)
scenario("COPY tree without another between volumes", tree("t"),
         to("COPY", "t", "u", {"Overwrite": "F"}, volume="other"), 200, 201, worlds=BETWEEN)
scenario("MOVE locked", chain(file("f"), locked("f")), to("MOVE", "f", "g"), 423)

# -- Properties
scenario("PROPPATCH set", file("f"), ask("PROPPATCH", "f", {}, colour_body("blue")), 207)
scenario("PROPPATCH change", chain(file("f"), coloured("f")),
         ask("PROPPATCH", "f", {}, colour_body("red")), 207, worlds=BOTH)
scenario("PROPPATCH folder", folder("c"), ask("PROPPATCH", "c", {}, colour_body("blue")), 207)
scenario("PROPPATCH remove", chain(file("f"), coloured("f")),
         ask("PROPPATCH", "f", {}, b'<?xml version="1.0"?><D:propertyupdate xmlns:D="DAV:" '
             b'xmlns:X="urn:x"><D:remove><D:prop><X:colour/></D:prop></D:remove>'
             b"</D:propertyupdate>"), 207)

# -- Locks
scenario("LOCK file", file("f"), ask("LOCK", "f", lock_headers(), lock_body()), 200)
scenario("LOCK shared", chain(file("f"), locked("f", scope="shared")),
         ask("LOCK", "f", lock_headers(), lock_body("shared")), 200)
scenario("LOCK new name", nothing, ask("LOCK", "f", lock_headers(), lock_body()), 200, 201)
scenario("LOCK folder", tree("c"), ask("LOCK", "c", lock_headers("infinity"), lock_body()), 200)
scenario("LOCK of what is locked", chain(file("f"), locked("f")),
         ask("LOCK", "f", lock_headers(), lock_body()), 423)
scenario("LOCK refresh", chain(file("f"), locked("f")),
         with_token("LOCK", "f", {"Timeout": f"Second-{REFRESHED}"}), 200)
scenario("UNLOCK", chain(file("f"), locked("f")),
         lambda item: ("UNLOCK", item.path("f"), {"Lock-Token": f"<{item.token}>"}, b""), 200, 204)
scenario("UNLOCK folder", chain(tree("c"), locked("c", depth="infinity")),
         lambda item: ("UNLOCK", item.path("c"), {"Lock-Token": f"<{item.token}>"}, b""), 200, 204)

# -- Access rules: the same with questions about rights, and refusals. "other" is read-only.
RULED = ("ruled",)
scenario("PUT new", nothing, ask("PUT", "f", {}, NEW), 201, worlds=RULED,
         dialects=("standard",))
scenario("PUT over", file("f"), ask("PUT", "f", {}, NEW), 200, 201, 204, worlds=RULED,
         dialects=("standard",))
scenario("PROPFIND 1", chain(file("f"), folder("sub")), ask("PROPFIND", "", {"Depth": "1"}), 207,
         worlds=RULED,
         dialects=("standard",))
scenario("COPY tree", tree("t"), to("COPY", "t", "u"), 201, worlds=RULED,
         dialects=("standard",))
scenario("LOCK new name", nothing, ask("LOCK", "f", lock_headers(), lock_body()), 200, 201,
         worlds=RULED,
         dialects=("standard",))
scenario("DELETE tree", tree("t"), ask("DELETE", "t"), 200, 204, worlds=RULED,
         dialects=("standard",))
scenario("MOVE tree", tree("t"), to("MOVE", "t", "u"), 201, worlds=RULED,
         dialects=("standard",))
scenario("PROPPATCH set", file("f"), ask("PROPPATCH", "f", {}, colour_body("blue")), 207,
         worlds=RULED, dialects=("standard",))
scenario("PUT refused", file("f", volume="other"), ask("PUT", "f", {}, NEW, volume="other"), 403,
         worlds=RULED,
         dialects=("standard",))
scenario("DELETE refused", file("f", volume="other"), ask("DELETE", "f", volume="other"), 403,
         worlds=RULED,
         dialects=("standard",))
scenario("MOVE refused", file("f"), to("MOVE", "f", "f", volume="other"), 403, worlds=RULED,
         dialects=("standard",))

# -- What only the standard dialect has
STANDARD = ("standard",)
PART = {"Content-Type": "application/x-sabredav-partialupdate"}
scenario("PATCH append", chain(file("f"), coloured("f")),
         ask("PATCH", "f", {**PART, "X-Update-Range": "append"}, NEW), 200, 204,
         dialects=STANDARD)
scenario("PATCH within", chain(file("f", MIDDLE), coloured("f")),
         ask("PATCH", "f", {**PART, "X-Update-Range": "bytes=5-19"}, SMALL), 200, 204,
         worlds=("plain", "unsynced", "final"), dialects=STANDARD)
scenario("PATCH with token", chain(file("f"), locked("f")),
         with_token("PATCH", "f", {**PART, "X-Update-Range": "append"}, NEW), 200, 204,
         dialects=STANDARD)
scenario("PATCH of a locked file", chain(file("f"), locked("f")),
         ask("PATCH", "f", {**PART, "X-Update-Range": "append"}, NEW), 423, dialects=STANDARD)
scenario("MKCOL with properties", nothing,
         ask("MKCOL", "c", {"Content-Type": "text/xml"},
             b'<D:mkcol xmlns:D="DAV:" xmlns:X="urn:x"><D:set><D:prop><D:resourcetype>'
             b"<D:collection/></D:resourcetype><X:colour>blue</X:colour></D:prop></D:set></D:mkcol>"),
         201, worlds=BOTH, dialects=STANDARD)
scenario("PROPFIND infinity", tree("t"), ask("PROPFIND", "t", {"Depth": "infinity"}, NAMED), 207,
         dialects=STANDARD)
scenario("PUT in a locked folder", chain(tree("c"), locked("c", depth="infinity")),
         ask("PUT", "c/f", {}, NEW), 423, dialects=STANDARD)
scenario("DELETE If-Match of another", file("f"),
         ask("DELETE", "f", {"If-Match": '"0"'}), 412, dialects=STANDARD)

# -- Uploads that go on in other requests
resumable.add(functools.partial(scenario, worlds=("uploads",), dialects=STANDARD), chain, file, coloured)
