# SPDX-License-Identifier: Apache-2.0
"""The workloads. Each prepares a server's area, gives the load client its scenario, and checks
afterwards that what the replies claim has happened."""

import http.client
import os
import re
import shutil
import time

import tree

PROPFIND = ('<?xml version="1.0" encoding="utf-8"?><D:propfind xmlns:D="DAV:"><D:prop>'
            "<D:resourcetype/><D:getcontentlength/><D:getlastmodified/><D:creationdate/>"
            "</D:prop></D:propfind>")
LOCK = ('<?xml version="1.0" encoding="utf-8"?><D:lockinfo xmlns:D="DAV:">'
        "<D:lockscope><D:exclusive/></D:lockscope><D:locktype><D:write/></D:locktype>"
        "<D:owner><D:href>bench</D:href></D:owner></D:lockinfo>")


class Wrong(Exception):
    """A reply, or what stands on disk after it, is not right."""


class Context:
    """What a workload works with: one server, the common tree, and how long to measure."""

    def __init__(self, server, seconds, scale, sequences=0):
        self.server = server
        self.seconds = seconds
        self.scale = scale  # divides sizes and counts, for a quick look
        self.sequences = sequences  # so many times in place of a time; 0: for a time

    def common(self, name):
        return os.path.join(self.server.read, name)

    def own(self, name):
        return os.path.join(self.server.write, name)

    def clear(self):
        """Empties the server's own area, its kept deleted entries and all."""
        for name in os.listdir(self.server.write):
            path = self.own(name)
            if name == ".kest":
                continue
            shutil.rmtree(path) if os.path.isdir(path) else os.unlink(path)

    def give(self, path):
        """Hands what was made here to the user that the server runs as."""
        owner = os.stat(self.server.base)
        if owner.st_uid == os.geteuid():
            return
        for folder, _, files in os.walk(path):
            os.chown(folder, owner.st_uid, owner.st_gid)
            for name in files:
                os.chown(os.path.join(folder, name), owner.st_uid, owner.st_gid)
        if os.path.isfile(path):
            os.chown(path, owner.st_uid, owner.st_gid)

    def request(self, method, path, body=None, headers=None):
        client = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=120)
        try:
            client.request(method, path.replace(" ", "%20"), body, headers or {})
            reply = client.getresponse()
            return reply.status, reply.read()
        finally:
            client.close()


class Workload:
    name = ""
    group = ""
    needs = ()
    fixed = False  # runs its steps a fixed number of times, not for a time

    def prepare(self, ctx):
        pass

    def scenario(self, ctx):
        raise NotImplementedError

    def check(self, ctx, outcome):
        pass


def timed(ctx, connections, *lines):
    bound = f"sequences {ctx.sequences}" if ctx.sequences else f"duration {ctx.seconds}"
    return [f"connections {connections}", bound, *lines]


class Get(Workload):
    group = "content"

    def __init__(self, name, size, connections):
        self.name, self.size, self.connections = name, size, connections

    def prepare(self, ctx):
        self.file = tree.fill(ctx.common(f"{self.name}.bin"), max(1, self.size // ctx.scale)
                              if self.size >= tree.LARGE else self.size)

    def scenario(self, ctx):
        return timed(ctx, self.connections,
                     f"step GET {ctx.server.path('r', self.name + '.bin')}",
                     f"reply-file {self.file}")


class Head(Workload):
    group, name = "content", "head"

    def prepare(self, ctx):
        tree.fill(ctx.common("head.bin"), tree.SMALL)

    def scenario(self, ctx):
        return timed(ctx, 16, f"step HEAD {ctx.server.path('r', 'head.bin')}")


class Ranges(Workload):
    """Parts at random places of a large file, as players and downloads in pieces ask for."""

    group, name = "content", "range-64k"

    def prepare(self, ctx):
        self.file = tree.fill(ctx.common("ranges.bin"), tree.LARGE // ctx.scale)

    def scenario(self, ctx):
        return timed(ctx, 16, f"step GET {ctx.server.path('r', 'ranges.bin')}",
                     f"random-range {self.file} 65536")


class Put(Workload):
    group = "content"

    def __init__(self, name, size, connections):
        self.name, self.size, self.connections = name, size, connections

    def prepare(self, ctx):
        ctx.clear()
        size = max(1, self.size // ctx.scale) if self.size >= tree.LARGE else self.size
        self.file = tree.fill(ctx.common(f"{self.name}.bin"), size)

    def scenario(self, ctx):
        return timed(ctx, self.connections, "modulo 500",
                     f"step PUT {ctx.server.path('w', 'put-{m}' if self.connections > 1 else 'put')}",
                     f"body-file {self.file}", "expect 200 201 204")

    def check(self, ctx, outcome):
        with open(self.file, "rb") as file:
            wanted = file.read()
        names = [name for name in os.listdir(ctx.server.write) if name.startswith("put")]
        if not names:
            raise Wrong("nothing was stored")
        for name in names[:20]:
            with open(ctx.own(name), "rb") as file:
                if file.read() != wanted:
                    raise Wrong(f"{name} differs from what was sent")


class Propfind(Workload):
    group = "properties"
    question = PROPFIND

    def __init__(self, name, depth, entries):
        self.name, self.depth, self.entries = name, depth, entries

    def prepare(self, ctx):
        count = max(1, self.entries // ctx.scale) if self.entries else 0
        folder = f"folder-{self.entries}"
        if self.entries:
            tree.folder(ctx.common(folder), count)
            self.target = ctx.server.path("r", folder + "/")
        else:
            tree.fill(ctx.common("propfind.txt"), 100)
            self.target = ctx.server.path("r", "propfind.txt")
        # One reply is read as a client does; the load client then holds all others against its
        # length and its count of entries.
        status, body = ctx.request("PROPFIND", self.target, self.question,
                                   {"Depth": str(self.depth), "Content-Type": "text/xml"})
        entries = len(re.findall(rb"<(?:\w+:)?response[ >]", body))
        wanted = count + 1
        if status != 207 or entries != wanted:
            raise Wrong(f"answered {status} with {entries} of {wanted} entries")
        self.length = len(body)
        self.count = wanted

    def scenario(self, ctx):
        return timed(ctx, 1 if self.entries >= 1000 else 16,
                     f"step PROPFIND {self.target}", f"header Depth: {self.depth}",
                     "header Content-Type: text/xml", f"body {self.question}",
                     "expect 207", f"reply-length {self.length}")

    def units(self):
        return self.count


class Proppatch(Workload):
    group, name = "properties", "proppatch"
    needs = ("dead-properties",)

    def prepare(self, ctx):
        ctx.clear()
        tree.fill(ctx.own("patched.txt"), 100)
        ctx.give(ctx.own("patched.txt"))

    def scenario(self, ctx):
        body = ('<D:propertyupdate xmlns:D="DAV:" xmlns:X="urn:x"><D:set><D:prop>'
                "<X:color>value {i}</X:color></D:prop></D:set></D:propertyupdate>")
        return timed(ctx, 1, f"step PROPPATCH {ctx.server.path('w', 'patched.txt')}",
                     "header Content-Type: text/xml", f"body {body}", "expect 207 204")


class MakeAndDelete(Workload):
    group, name = "namespace", "mkcol-delete"

    def prepare(self, ctx):
        ctx.clear()

    def scenario(self, ctx):
        path = ctx.server.path("w", "made-{i}/")
        return timed(ctx, 4, f"step MKCOL {path}", "expect 201", f"step DELETE {path}",
                     "expect 200 204")

    def check(self, ctx, outcome):
        if any(name.startswith("made") for name in os.listdir(ctx.server.write)):
            raise Wrong("deleted folders are still there")


class DeleteTree(Workload):
    group, name, fixed = "namespace", "delete-tree-10k", True
    COPIES = 5

    def prepare(self, ctx):
        ctx.clear()
        for i in range(self.COPIES):
            tree.nested(ctx.own(f"tree-{i}"), 10000 // ctx.scale)
        ctx.give(ctx.server.write)

    def scenario(self, ctx):
        return ["connections 1", f"sequences {self.COPIES}",
                f"step DELETE {ctx.server.path('w', 'tree-{i}/')}", "expect 200 204"]

    def check(self, ctx, outcome):
        if any(name.startswith("tree") for name in os.listdir(ctx.server.write)):
            raise Wrong("deleted trees are still there")


class MoveFile(Workload):
    group, name = "namespace", "move-file"

    def prepare(self, ctx):
        ctx.clear()
        tree.fill(ctx.own("moved-a"), tree.SMALL)
        ctx.give(ctx.own("moved-a"))

    def scenario(self, ctx):
        base = f"http://127.0.0.1:{ctx.server.port}"
        one, two = ctx.server.path("w", "moved-a"), ctx.server.path("w", "moved-b")
        return timed(ctx, 1, f"step MOVE {one}", f"header Destination: {base}{two}",
                     "expect 200 201 204", f"step MOVE {two}", f"header Destination: {base}{one}",
                     "expect 200 201 204")

    def check(self, ctx, outcome):
        names = [name for name in os.listdir(ctx.server.write) if name.startswith("moved")]
        if names != ["moved-a"] or os.path.getsize(ctx.own("moved-a")) != tree.SMALL:
            raise Wrong(f"after an even number of moves there is {names}")


class MoveTree(MoveFile):
    name = "move-tree-10k"

    def prepare(self, ctx):
        ctx.clear()
        tree.nested(ctx.own("moved-a"), 10000 // ctx.scale)
        ctx.give(ctx.own("moved-a"))

    def scenario(self, ctx):
        return [line + "/" if line.startswith(("step", "header Dest")) else line
                for line in super().scenario(ctx)]

    def check(self, ctx, outcome):
        names = [name for name in os.listdir(ctx.server.write) if name.startswith("moved")]
        if names != ["moved-a"] or tree.count_files(ctx.own("moved-a")) != 10000 // ctx.scale:
            raise Wrong(f"after an even number of moves there is {names}")


class CopyFile(Workload):
    group, name, fixed = "namespace", "copy-256m", True
    ROUNDS = 3

    def prepare(self, ctx):
        ctx.clear()
        tree.fill(ctx.own("source.bin"), tree.COPIED // ctx.scale)
        ctx.give(ctx.own("source.bin"))

    def scenario(self, ctx):
        base = f"http://127.0.0.1:{ctx.server.port}"
        return ["connections 1", f"sequences {self.ROUNDS}",
                f"step COPY {ctx.server.path('w', 'source.bin')}",
                f"header Destination: {base}{ctx.server.path('w', 'copy-{i}.bin')}",
                "expect 200 201 204"]

    def check(self, ctx, outcome):
        with open(ctx.own("source.bin"), "rb") as file:
            wanted = file.read()
        for i in range(self.ROUNDS):
            with open(ctx.own(f"copy-{i}.bin"), "rb") as file:
                if file.read() != wanted:
                    raise Wrong(f"copy {i} differs")


class CopyTree(Workload):
    group, name, fixed = "namespace", "copy-tree-1k", True
    ROUNDS = 5

    def prepare(self, ctx):
        ctx.clear()
        self.count = max(100, 1000 // ctx.scale)
        tree.nested(ctx.own("source"), self.count)
        ctx.give(ctx.own("source"))

    def scenario(self, ctx):
        base = f"http://127.0.0.1:{ctx.server.port}"
        return ["connections 1", f"sequences {self.ROUNDS}",
                f"step COPY {ctx.server.path('w', 'source/')}",
                f"header Destination: {base}{ctx.server.path('w', 'copy-{i}/')}",
                "expect 200 201 204"]

    def check(self, ctx, outcome):
        for i in range(self.ROUNDS):
            if tree.count_files(ctx.own(f"copy-{i}")) != self.count:
                raise Wrong(f"copy {i} is not complete")


class Locks(Workload):
    group = "locks"
    needs = ("locks",)

    def __init__(self, name, connections, resources):
        self.name, self.connections, self.resources = name, connections, resources

    def prepare(self, ctx):
        ctx.clear()
        for i in range(self.resources):
            tree.fill(ctx.own(f"locked-{i}"), 100)
        ctx.give(ctx.server.write)

    def scenario(self, ctx):
        contended = self.resources < self.connections
        name = ("locked-{m}" if contended else "locked-{c}")
        path = ctx.server.path("w", name)
        return timed(ctx, self.connections, f"modulo {self.resources}",
                     f"step LOCK {path}", "header Timeout: Second-600", "header Depth: 0",
                     "header Content-Type: text/xml", f"body {LOCK}",
                     "expect 200 423" if contended else "expect 200",
                     "capture-token token", f"takes {name}",
                     f"step UNLOCK {path}", "needs token", "header Lock-Token: {token}",
                     f"gives {name}", "expect 200 204")

    def check(self, ctx, outcome):
        if not outcome["statuses"].get("200"):
            raise Wrong("nobody ever got a lock")


class Index(Workload):
    group = "index"

    def __init__(self, name, entries):
        self.name, self.entries = name, entries

    def prepare(self, ctx):
        count = max(1, self.entries // ctx.scale)
        folder = f"folder-{self.entries}"
        tree.folder(ctx.common(folder), count)
        self.target = ctx.server.path("r", folder + "/")
        status, body = ctx.request("GET", self.target)
        if status != 200 or b"document" not in body:
            raise Wrong(f"answered {status} without entries")

    def scenario(self, ctx):
        return timed(ctx, 1, f"step GET {self.target}", "reply-has document")


class FormUpload(Workload):
    """The same content, on one connection and for the same time, as put-1g sends."""

    group, name = "index", "form-upload-1g"
    needs = ("forms",)
    BOUNDARY = "----WebKitFormBoundary7MA4YWxkTrZu0gW"  # of the form and length that browsers send

    def prepare(self, ctx):
        ctx.clear()
        self.size = tree.LARGE // ctx.scale
        source = tree.fill(ctx.common("put-1g.bin"), self.size)
        self.body = tree.form(ctx.common("form.body"), source, "uploaded.bin", self.BOUNDARY)

    def scenario(self, ctx):
        return timed(ctx, 1, f"step POST {ctx.server.path('w')}",
                     f"header Content-Type: multipart/form-data; boundary={self.BOUNDARY}",
                     f"body-file {self.body}", "expect 200 201")

    def check(self, ctx, outcome):
        if os.path.getsize(ctx.own("uploaded.bin")) != self.size:
            raise Wrong("the upload is not complete")


class Idle(Workload):
    """Connections that did one request each and then wait."""

    group = "idle"

    def __init__(self, count):
        self.name, self.count = f"idle-{count}", count

    def measure(self, ctx, memory):
        """Bytes of memory that each of the connections costs the server."""
        import resource
        import socket

        hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
        tree.fill(ctx.common("head.bin"), tree.SMALL)
        request = (f"HEAD {ctx.server.path('r', 'head.bin')} HTTP/1.1\r\n"
                   f"Host: 127.0.0.1:{ctx.server.port}\r\n\r\n").encode()

        def connect(count):
            made = []
            for i in range(count):  # 200 from an address: one alone may not have so many
                sock = socket.create_connection(("127.0.0.1", ctx.server.port), 30,
                                                (f"127.0.{1 + i // 200}.1", 0))
                made.append(sock)
                sock.sendall(request)
            for sock in made:
                if not sock.recv(4096).startswith(b"HTTP/1.1 200 "):
                    raise Wrong("an idle connection was not served")
            return made

        for sock in connect(64):
            sock.close()
        time.sleep(0.2)
        before = memory(ctx.server.pid)
        sockets = connect(self.count)
        try:
            time.sleep(0.5)
            used = memory(ctx.server.pid) - before
            # They must still be alive.
            for sock in sockets[::100]:
                sock.sendall(request)
                if not sock.recv(4096).startswith(b"HTTP/1.1 200 "):
                    raise Wrong("an idle connection was lost")
        finally:
            for sock in sockets:
                sock.close()
        return used / self.count


ALL = [
    Get("get-1k", tree.SMALL, 16),
    Get("get-1m", tree.MIDDLE, 8),
    Get("get-1g", tree.LARGE, 1),
    Head(),
    Ranges(),
    Put("put-1k", tree.SMALL, 16),
    Put("put-1g", tree.LARGE, 1),
    Idle(1000),
    Idle(5000),
    Propfind("propfind-0", 0, 0),
    Propfind("propfind-1-1k", 1, 1000),
    Propfind("propfind-1-10k", 1, 10000),
    Propfind("propfind-1-100k", 1, 100000),
    Proppatch(),
    MakeAndDelete(),
    DeleteTree(),
    MoveFile(),
    MoveTree(),
    CopyFile(),
    CopyTree(),
    Locks("lock-1", 1, 1),
    Locks("lock-16-distinct", 16, 16),
    Locks("lock-16-contended", 16, 3),
    Index("index-1k", 1000),
    Index("index-10k", 10000),
    Index("index-100k", 100000),
    FormUpload(),
]
