#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Sixteen clients use all methods on a small set of names, while the server reads its settings again
every few moments, and, if asked, is killed and writes to a disk that is full now and then.

usage: chaos.py [--seconds N] [--clients N] [--seed N] [--kills] [--full-disk] [--sync LEVEL]
                [--server KESTD] [--dialect classic|standard]

What is checked: every content that is read is one that was sent, whole; what a client alone writes
it reads back, kills or not; while a client holds a lock nobody else changes the file, and no update
that is made under a lock is lost; a listing holds everything that is there all the time; no answer
says that the server is broken; nothing of unfinished work is left. The exit status is not 0 when
something of that does not hold. Run with --server build/tsan/bin/kestd, a report of the sanitizer
fails the run, too.
"""

import argparse
import collections
import contextlib
import http.client
import os
import random
import signal
import subprocess
import sys
import threading
import time
import xml.etree.ElementTree as ElementTree

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "e2e"))

import harness  # noqa: E402
from dav import Lock, lock_body, multistatus  # noqa: E402
from harness import TestServer, Tree, exchange, in_parallel, url_path, wait_for  # noqa: E402

SHARED = [("docs", "a"), ("docs", "b"), ("docs", "dir", "c"), ("docs", "dir", "d"), ("docs", "dir"),
          ("docs", "dir", "sub"), ("other", "a"), ("other", "e")]
LOCKED = [("docs", "locked0"), ("docs", "locked1"), ("docs", "box", "locked2")]
SMALL = ("small", "s0"), ("small", "s1")
PATCH = (b'<?xml version="1.0"?><D:propertyupdate xmlns:D="DAV:" xmlns:X="urn:x"><D:set><D:prop>'
         b"<X:color>%s</X:color></D:prop></D:set></D:propertyupdate>")
BROKEN = {500, 501, 504}  # 502: a Destination made before the server came back on another port


class Content:
    """Bodies that say whose they are and whether they are whole."""

    def __init__(self):
        self.lock = threading.Lock()
        self.sent = set()

    def make(self, client, dice):
        name = f"{client}-{dice.getrandbits(60):x}"
        count = dice.choice((1, 3, 100, 2000, 6000))
        with self.lock:
            self.sent.add((name, count))
        return f"{name} {count}\n".encode() * count

    def fault_of(self, body):
        """None, or what is wrong with a body that was read."""
        if not body:
            return None  # what a LOCK makes
        line, _, _ = body.partition(b"\n")
        try:
            name, count = line.decode().split()
            whole = body == line + b"\n" if count == "1" else body == (line + b"\n") * int(count)
        except (ValueError, UnicodeDecodeError):
            return f"unknown content: {body[:60]!r}"
        with self.lock:
            is_sent = (name, int(count)) in self.sent
        if not is_sent:
            return f"nobody sent {line!r}"
        return None if whole else f"mixed or cut content: {len(body)} bytes that begin with {line!r}"


class World:
    """The server, its volumes, and what went wrong."""

    def __init__(self, server, seed, small=None):
        self.server = server
        self.seed = seed
        self.small = small
        self.content = Content()
        self.up = threading.Event()
        self.up.set()
        self.over = threading.Event()
        self.counts = collections.Counter()
        self.faults = []
        self.updates = [0] * len(LOCKED)  # answered ones, by the holder of the lock
        self.unsure = [0] * len(LOCKED)   # those without an answer
        self.starts = 0

    def fault(self, text):
        self.faults.append(text)
        if len(self.faults) > 50:
            self.over.set()

    def kill_and_start(self):
        self.up.clear()
        self.server.kill()
        self.server.start()
        self.starts += 1
        self.up.set()


class Gone(Exception):
    """No answer: the server was killed, or it is a fault."""


class Client:
    def __init__(self, world, number):
        self.world = world
        self.number = number
        self.dice = random.Random(f"{world.seed} {number}")
        self.connection = None
        self.own = url_path("docs", f"own{number}")
        self.own_content = {b""}  # what may be there; first of all what was put there at the start
        self.requests = 0

    def ask(self, method, path, body=None, headers=None):
        """The reply. Gone where there is none."""
        while not self.connection:
            if not self.world.up.wait(harness.PATIENCE):
                raise harness.Failure("the server does not come back")
            connection = http.client.HTTPConnection("127.0.0.1", self.world.server.port,
                                                    timeout=harness.PATIENCE)
            try:
                connection.connect()
                self.connection = connection
            except OSError as error:
                connection.close()
                if self.world.up.is_set() and not self.world.server.alive():
                    raise harness.Failure("the server has ended") from error
                time.sleep(0.005)
        starts = self.world.starts
        self.requests += 1
        try:
            reply = exchange(self.connection, method, path, body, headers)
        except (OSError, http.client.HTTPException) as error:
            self.connection.close()
            self.connection = None
            if self.world.up.is_set() and starts == self.world.starts:
                time.sleep(0.2)  # is it being killed this moment?
                if self.world.up.is_set() and starts == self.world.starts:
                    self.world.fault(f"{method} {path}: no answer, and nobody killed: {error!r}")
            raise Gone from error
        self.world.counts[(method, reply.status)] += 1
        if reply.status in BROKEN:
            self.world.fault(f"{method} {path} -> {reply.status}")
        return reply

    def work(self):
        acts = (self.use_shared, self.use_shared, self.use_shared, self.use_own, self.hold_lock,
                self.disturb_locked, self.list_top, self.use_small)
        while not self.world.over.is_set():
            with contextlib.suppress(Gone):
                self.dice.choice(acts)()
        if self.connection:
            self.connection.close()

    # -- what everybody changes --------------------------------------------------------------

    def use_shared(self):
        path = url_path(*self.dice.choice(SHARED))
        method = self.dice.choice(("GET", "GET", "PUT", "PUT", "DELETE", "MKCOL", "COPY", "MOVE",
                                   "PROPFIND", "PROPPATCH", "HEAD"))
        headers, body = {}, None
        if method == "PUT":
            body = self.world.content.make(self.number, self.dice)
        elif method == "PROPPATCH":
            body = PATCH % self.dice.choice((b"red", b"blue"))
        elif method in ("COPY", "MOVE"):
            target = url_path(*self.dice.choice(SHARED))
            headers = {"Destination": self.world.server.base() + target,
                       "Overwrite": self.dice.choice("TTF")}
        elif method == "PROPFIND":
            headers = {"Depth": self.dice.choice("01")}
        reply = self.ask(method, path, body, headers)
        if method == "GET" and reply.status == 200 and "text/html" not in reply.headers.get(
                "content-type", ""):
            self.check_content(path, reply.body)

    def check_content(self, path, body):
        wrong = self.world.content.fault_of(body)
        if wrong:
            self.world.fault(f"GET {path}: {wrong}")

    # -- what one client changes alone -------------------------------------------------------

    def use_own(self):
        if self.dice.random() < 0.5:
            reply = self.ask("GET", self.own)
            if reply.status != 200 or reply.body not in self.own_content:
                self.world.fault(f"GET {self.own} -> {reply.status} {reply.body[:60]!r}, expected "
                                 f"one of {[body[:60] for body in self.own_content]}")
            else:
                self.own_content = {reply.body}
            return
        body = self.world.content.make(self.number, self.dice)
        self.own_content.add(body)
        reply = self.ask("PUT", self.own, body)
        if reply.status in (201, 204):
            self.own_content = {body}
        elif reply.status != 503:
            self.world.fault(f"PUT {self.own} -> {reply.status}")

    def list_top(self):
        reply = self.ask("PROPFIND", url_path("docs"), None, {"Depth": "1"})
        if reply.status != 207:
            return self.world.fault(f"PROPFIND of the top -> {reply.status}")
        names = {entry.path.rstrip("/").rpartition("/")[2] for entry in multistatus(reply.body)}
        missing = {f"own{i}" for i in range(len(self.world.clients))} - names
        if missing:
            self.world.fault(f"PROPFIND of the top lacks {sorted(missing)}")
        return None

    # -- locks -------------------------------------------------------------------------------

    def hold_lock(self):
        i = self.dice.randrange(len(LOCKED))
        path = url_path(*LOCKED[i])
        reply = self.ask("LOCK", path, lock_body(f"client {self.number}"),
                         {"Timeout": "Second-600", "Content-Type": "text/xml"})
        if reply.status not in (200, 201):
            return
        try:
            token = Lock(reply.body).token
        except ElementTree.ParseError:
            return self.world.fault(f"LOCK {path}: {reply.body[:200]!r}")
        try:
            self.update(i, path, token)
        finally:
            self.until_answered("UNLOCK", path, {"Lock-Token": f"<{token}>"}, (200, 204))
        return None

    def update(self, i, path, token):
        """What is read stays until the holder changes it; the count goes up by one."""
        mine = {"If": f"(<{token}>)"}
        before = self.until_answered("GET", path, None, (200,))
        count = int(before.body.split()[0]) if before.body else 0
        body = f"{count + 1} {self.number}\n".encode()
        self.world.unsure[i] += 1
        reply = self.ask("PUT", path, body, mine)
        if reply.status not in (201, 204):
            self.world.unsure[i] -= 1
            return self.world.fault(f"PUT {path} by the holder of its lock -> {reply.status}")
        self.world.unsure[i] -= 1
        self.world.updates[i] += 1
        for _ in range(self.dice.randrange(3)):
            reply = self.until_answered("GET", path, None, (200,))
            if reply.body != body:
                self.world.fault(f"{path} was changed to {reply.body[:60]!r} while locked by "
                                 f"client {self.number}, who wrote {body!r}")
        return None

    def until_answered(self, method, path, headers, good):
        while True:
            try:
                reply = self.ask(method, path, None, headers)
                break
            except Gone:
                if method == "UNLOCK":
                    good = (*good, 404, 409)  # it may have been done
        if reply.status not in good:
            self.world.fault(f"{method} {path} by the holder of its lock -> {reply.status}")
        return reply

    def disturb_locked(self):
        """Changes without a token where somebody may hold a lock. Where nobody does they may
        succeed, so that only what leaves the count as it is can be asked: nobody holds still."""
        path = url_path(*self.dice.choice(LOCKED))
        method = self.dice.choice(("PROPPATCH", "COPY", "LOCK", "MOVE"))
        if method == "PROPPATCH":
            self.ask("PROPPATCH", path, PATCH % b"green")
        elif method == "COPY":
            self.ask("COPY", path, None,
                     {"Destination": self.world.server.base() + url_path("other", "of locked")})
        elif method == "LOCK":
            self.ask("LOCK", path, None, {"If": "(<opaquelocktoken:none>)"})
        else:  # away and back: in between a name is missing, so only into itself
            self.ask("MOVE", path, None, {"Destination": self.world.server.base() + path})

    # -- a small disk ------------------------------------------------------------------------

    def use_small(self):
        if not self.world.small:
            return
        path = url_path(*self.dice.choice(SMALL))
        method = self.dice.choice(("PUT", "PUT", "GET", "DELETE"))
        body = (self.world.content.make(self.number, self.dice) if method == "PUT" else None)
        reply = self.ask(method, path, body)
        if method == "GET" and reply.status == 200:
            self.check_content(path, reply.body)


class SmallVolume:
    """A file system of 1 MiB where this user may mount one; else there is none."""

    def __init__(self, wanted):
        self.tree = Tree()
        self.mounted = wanted and os.geteuid() == 0 and subprocess.run(
            ["mount", "-t", "tmpfs", "-o", "size=1m,mode=0700", "kest-test", self.tree.path],
            capture_output=True, check=False).returncode == 0

    def close(self):
        if self.mounted:
            subprocess.run(["umount", self.tree.path], check=True)
        self.tree.remove()


def prepare(world, clients):
    world.clients = [Client(world, i) for i in range(clients)]
    first = Client(world, "first")
    for folder in ("dir", "box"):
        first.ask("MKCOL", url_path("docs", folder))
    for client in world.clients:
        first.ask("PUT", client.own, b"")
    for place in LOCKED:
        first.ask("PUT", url_path(*place), b"0 nobody\n")
    first.connection.close()


def check_end(world, trees):
    """What has to hold when everybody has gone."""
    last = Client(world, "last")
    for client in world.clients:
        reply = last.ask("GET", client.own)
        if reply.status != 200 or reply.body not in client.own_content:
            world.fault(f"at the end: GET {client.own} -> {reply.status} {reply.body[:60]!r}")
    for i, place in enumerate(LOCKED):
        reply = last.ask("GET", url_path(*place))
        count = int(reply.body.split()[0]) if reply.status == 200 else -1
        low, high = world.updates[i], world.updates[i] + world.unsure[i]
        if not low <= count <= high:
            world.fault(f"at the end: {place} counts {count}, expected {low} to {high}: "
                        "an update is lost")
    for place in SHARED:
        reply = last.ask("GET", url_path(*place))
        if reply.status == 200 and "text/html" not in reply.headers.get("content-type", ""):
            last.check_content(url_path(*place), reply.body)
    last.connection.close()
    for tree in trees:
        try:
            wait_for(lambda: not tree.leftovers(), "unfinished work to go", 20)
        except harness.Failure:
            world.fault(f"at the end: left behind: {tree.leftovers()[:10]}")


def run(seconds, clients, seed, kills=False, full_disk=False, sync="data"):
    """Returns the world: its counts and faults."""
    docs, other = Tree(), Tree()
    small = SmallVolume(full_disk)
    volumes = {"docs": docs.path, "other": other.path}
    if small.mounted:
        volumes["small"] = small.tree.path
    settings = {"FileStore": {"Sync": sync}, "Server": {"Access Log": False}}
    try:
        with TestServer(volumes, settings=settings) as server:
            world = World(server, seed, small.mounted)
            prepare(world, clients)
            workers = threading.Thread(
                target=lambda: crowd(world), daemon=True)
            workers.start()
            disturb(world, seconds, kills)
            workers.join(harness.PATIENCE)
            if workers.is_alive():
                world.fault("a client hangs")
            check_end(world, [docs, other] + ([small.tree] if small.mounted else []))
    finally:
        small.close()
        for tree in (docs, other):
            tree.remove()
    return world


def crowd(world):
    try:
        in_parallel(len(world.clients), lambda i: world.clients[i].work())
    except BaseException as error:  # told with the rest
        world.fault(f"a client gave up: {error!r}")
    finally:
        world.over.set()


def disturb(world, seconds, kills):
    """SIGHUP now and then, and kills; on the thread that started the server, since it ends with
    that."""
    dice = random.Random(world.seed)
    end = time.monotonic() + seconds
    next_kill = time.monotonic() + 2
    while time.monotonic() < end and not world.over.wait(dice.random() * min(3, seconds / 4)):
        if not world.server.alive():
            world.fault(f"the server ended: {world.server.log()[-2000:]}")
            break
        world.server.process.send_signal(signal.SIGHUP)
        world.counts["SIGHUP"] += 1
        if kills and time.monotonic() > next_kill:
            world.kill_and_start()
            world.counts["kill"] += 1
            next_kill = time.monotonic() + 1 + 4 * dice.random()
    world.over.set()


def summary(world):
    requests = sum(client.requests for client in world.clients)
    statuses = collections.Counter()
    for key, count in world.counts.items():
        if isinstance(key, tuple):
            statuses[key[1]] += count
    told = ", ".join(f"{status}: {count}" for status, count in sorted(statuses.items()))
    return (f"{requests} requests of {len(world.clients)} clients ({told}), "
            f"{sum(world.updates)} updates under locks, {world.counts['SIGHUP']} times SIGHUP, "
            f"{world.counts['kill']} kills, {'a' if world.small else 'no'} small disk, "
            f"{len(world.faults)} faults")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--seconds", type=float, default=600)
    parser.add_argument("--clients", type=int, default=16)
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--kills", action="store_true")
    parser.add_argument("--full-disk", action="store_true")
    parser.add_argument("--sync", default="data")
    parser.add_argument("--server")
    parser.add_argument("--dialect", choices=("classic", "standard"))
    args = parser.parse_args()
    harness.DIALECT = args.dialect or harness.DIALECT
    if args.server:
        harness.KESTD = os.path.abspath(args.server)
    print(f"seed {args.seed}", flush=True)
    world = run(args.seconds, args.clients, args.seed, args.kills, args.full_disk, args.sync)
    for text in world.faults[:30]:
        print(text)
    print(summary(world))
    return 1 if world.faults else 0


if __name__ == "__main__":
    sys.exit(main())
