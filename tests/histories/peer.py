#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Random sequences of requests, the same ones to this server and to Apache's mod_dav: the trees have
to be the same after each, and the statuses the same or a known difference.

usage: peer.py [--sequences N] [--length N] [--seed N] [--server KESTD] [--learn]
               [--ancestors]

--ancestors lets COPY and MOVE go onto a folder above their source. --learn prints the differences that are not known instead of stopping a sequence at them. The exit
status is not 0 when there was one, 2 when Apache (apache2 with mod_dav_fs) is not installed.
"""

import argparse
import collections
import http.client
import os
import random
import shutil
import sys
import tempfile
import time
import xml.etree.ElementTree as ElementTree
from urllib.parse import unquote, urlsplit

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(ROOT, "tests", "e2e"))
sys.path.insert(0, os.path.join(ROOT, "bench"))
sys.path.insert(0, HERE)

import harness  # noqa: E402
import servers  # noqa: E402
from dav import D, Lock, lock_body  # noqa: E402
from harness import TestServer, exchange  # noqa: E402
import peer_differences  # noqa: E402

FILES = ("a", "b", "d/x", "d/y", "d/e/z", "n/m")
FOLDERS = ("d", "d/e", "n", "f")
METHODS = ("PUT",) * 5 + ("MKCOL",) * 4 + ("GET", "HEAD", "DELETE", "DELETE", "COPY", "COPY", "COPY",
                                          "MOVE", "MOVE", "MOVE", "PROPFIND", "PROPPATCH", "LOCK",
                                          "UNLOCK", "REFRESH")


ANCESTORS = False  # whether COPY and MOVE may have a folder above their source as destination
NOBODYS = "opaquelocktoken:00000000-0000-0000-0000-000000000000"


class Side:
    """One of the two servers: where a sequence works, on its disk and in its URLs."""

    def __init__(self, port, disk, prefix):
        self.port = port
        self.disk = disk
        self.prefix = prefix
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=harness.PATIENCE)
        self.tokens = []
        self.folder = None

    def begin(self, name):
        self.folder = name
        self.tokens = []
        self.send("MKCOL", "/")

    def url(self, path):
        return f"{self.prefix}/{self.folder}/{path.lstrip('/')}"

    def send(self, method, path, body=None, headers=None, to=None, token=None):
        given = dict(headers or {})
        if to is not None:
            given["Destination"] = f"http://127.0.0.1:{self.port}{self.url(to)}"
        if token is not None:
            name = self.tokens[token] if token < len(self.tokens) else NOBODYS
            if method == "UNLOCK":
                given["Lock-Token"] = f"<{name}>"
            else:
                given["If"] = f"(<{name}>)"
        try:
            return exchange(self.connection, method, self.url(path), body, given)
        except (OSError, http.client.HTTPException):
            self.connection.close()  # the server has ended a connection that it may end
            return exchange(self.connection, method, self.url(path), body, given)

    def tree(self):
        """{path: content, or None for a folder}, without what the server keeps for itself."""
        found = {}
        top = os.path.join(self.disk, self.folder)
        for folder, folders, files in os.walk(top):
            folders[:] = [name for name in folders if name not in (".DAV", ".kest")]
            inside = os.path.relpath(folder, top)
            found.update({os.path.normpath(os.path.join(inside, name)): None for name in folders})
            for name in files:
                with open(os.path.join(folder, name), "rb") as file:
                    found[os.path.normpath(os.path.join(inside, name))] = file.read()
        return found


def made(dice, step, before):
    """(method, path, more) of a request."""
    method = dice.choice(METHODS)
    path = dice.choice(FILES if dice.random() < 0.6 else FOLDERS)
    more = {}
    if method in ("PUT", "DELETE", "MKCOL", "COPY", "MOVE", "PROPPATCH") and dice.random() < 0.25:
        more["token"] = dice.randrange(3)
    if method == "PUT":
        path = dice.choice(FILES)
        more["body"] = f"content {step}\n".encode()
    elif method == "MKCOL":
        path = dice.choice(FOLDERS)
    elif method in ("COPY", "MOVE"):
        # Not onto a folder above it: what a refused one leaves is looked at by --ancestors.
        more["to"] = dice.choice([to for to in FILES + FOLDERS
                                  if ANCESTORS or not path.startswith(to + "/")])
        more["headers"] = {"Overwrite": dice.choice("TTF")}
        if method == "COPY" and dice.random() < 0.2:
            more["headers"]["Depth"] = "0"
    elif method == "PROPFIND":
        more["headers"] = {"Depth": dice.choice("01")}
    elif method == "PROPPATCH":
        more["body"] = (b'<?xml version="1.0"?><D:propertyupdate xmlns:D="DAV:" xmlns:X="urn:x">'
                        b"<D:set><D:prop><X:color>%d</X:color></D:prop></D:set>"
                        b"</D:propertyupdate>" % step)
        more["headers"] = {"Content-Type": "text/xml"}
    elif method == "LOCK":
        more["body"] = lock_body(scope=dice.choice(("exclusive", "exclusive", "shared")))
        more["headers"] = {"Timeout": "Second-600", "Depth": "0", "Content-Type": "text/xml"}
    elif method in ("UNLOCK", "REFRESH"):
        more["token"] = dice.randrange(3)
    if method == "LOCK" and path not in before and dice.random() < 0.95:
        path = dice.choice(sorted(name for name in before if before[name] is not None) or [path])
    if method == "MKCOL" or before.get(path, b"") is None:
        path += "/"  # as clients write the URL of a folder
    return method, path, more


def names_in(reply, side):
    """What a PROPFIND names, below the sequence's folder."""
    root = ElementTree.fromstring(reply.body)
    top = urlsplit(side.url("")).path
    return {unquote(urlsplit(element.text).path).removeprefix(top).strip("/")
            for element in root.iterfind(f"{D}response/{D}href")}


class Comparison:
    def __init__(self, ours, theirs):
        self.ours = ours
        self.theirs = theirs
        self.requests = 0
        self.known = collections.Counter()
        self.unknown = collections.Counter()
        self.examples = {}

    def sequence(self, name, seed, length, learn):
        for side in (self.ours, self.theirs):
            side.begin(name)
        dice = random.Random(seed)
        told = []
        for step in range(length):
            before = self.ours.tree()
            method, path, more = made(dice, step, before)
            told.append(f"{method} {path} {more.get('to', '')} {more.get('headers', '')} "
                        f"{more.get('token', '')}")
            if not self.step(method, path, more, before, told) and not learn:
                return
            if self.ours.tree() != self.theirs.tree():
                return  # told, or a difference whose trees may differ

    def step(self, method, path, more, before, told):
        sent = "LOCK" if method == "REFRESH" else method
        answers = [side.send(sent, path, **more) for side in (self.ours, self.theirs)]
        self.requests += 1
        for side, reply in zip((self.ours, self.theirs), answers):
            if method == "LOCK" and reply.status in (200, 201):
                side.tokens.append(Lock(reply.body).token)
        statuses = tuple(reply.status for reply in answers)
        told[-1] += f" -> {statuses}"
        known = peer_differences.find(method, path.rstrip("/"), more, before, statuses)
        if known is None and statuses[0] != statuses[1]:
            return self.differs("status", method, statuses, told)
        if known:
            self.known[known] += 1
        trees = [side.tree() for side in (self.ours, self.theirs)]
        if trees[0] != trees[1] and not (known and known.trees_differ):
            only = [sorted(map(str, set(a.items()) - set(b.items())))
                    for a, b in (trees, trees[::-1])]
            return self.differs(f"tree: only here {only[0]}, only there {only[1]}", method, statuses,
                                told)
        return self.compare_bodies(method, path, before, answers, told)

    def compare_bodies(self, method, path, before, answers, told):
        path = path.rstrip("/")
        statuses = tuple(reply.status for reply in answers)
        if method == "GET" and statuses == (200, 200) and before.get(path) is not None:
            if answers[0].body != answers[1].body:
                return self.differs("content", method, statuses, told)
        if method == "PROPFIND" and statuses == (207, 207):
            names = [names_in(reply, side)
                     for reply, side in zip(answers, (self.ours, self.theirs))]
            if names[0] != names[1]:
                return self.differs(f"names: {names}", method, statuses, told)
        return True

    def differs(self, what, method, statuses, told):
        key = (what.split(":")[0], method, statuses)
        self.unknown[key] += 1
        self.examples.setdefault(key, f"{what}\n    " + "\n    ".join(told))
        return False

    def tell(self, limit=10):
        for difference, count in self.known.most_common():
            print(f"{count:6} {difference}")
        for key, count in self.unknown.most_common(limit):
            print(f"UNKNOWN {count} times: {key[1]} {key[2]}: {self.examples[key]}")
        print(f"{self.requests} requests, {sum(self.known.values())} with a known difference "
              f"({len(self.known)} kinds), {sum(self.unknown.values())} with an unknown one",
              flush=True)


def compare(sequences, length, seed, learn=False):
    """Starts both servers. None when there is no Apache."""
    if not servers.Apache.available():
        return None
    base = tempfile.mkdtemp(prefix="kest-peer-", dir=harness.SCRATCH)
    os.chmod(base, 0o755)  # Apache's workers are another user
    ours = os.path.join(base, "ours")
    os.mkdir(ours)
    os.makedirs(os.path.join(base, "common", "r"))
    apache = servers.Apache(base, sorted(os.sched_getaffinity(0)))
    try:
        with TestServer({"docs": ours}, settings={"FileStore": {"Sync": "none"}}) as server:
            apache.start()
            harness.loose_ports.add(apache.port)
            comparison = Comparison(Side(server.port, ours, "/Ferro/docs"),
                                    Side(apache.port, apache.write, apache.path("w").rstrip("/")))
            for i in range(sequences):
                comparison.sequence(f"s{i}", f"{seed} {i}", length, learn)
    finally:
        apache.stop()
        shutil.rmtree(base, ignore_errors=True)
    return comparison


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--sequences", type=int, default=2000)
    parser.add_argument("--length", type=int, default=40)
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--server")
    parser.add_argument("--learn", action="store_true")
    parser.add_argument("--ancestors", action="store_true")
    args = parser.parse_args()
    if args.server:
        harness.KESTD = os.path.abspath(args.server)
    globals()["ANCESTORS"] = args.ancestors
    print(f"seed {args.seed}", flush=True)
    comparison = compare(args.sequences, args.length, args.seed, args.learn)
    if comparison is None:
        print("peer.py: there is no Apache with mod_dav here (package apache2)", file=sys.stderr)
        return 2
    comparison.tell()
    return 1 if comparison.unknown else 0


if __name__ == "__main__":
    sys.exit(main())
