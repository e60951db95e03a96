#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Many clients lock, refresh, write with and without tokens and conditions, read, delete and unlock
the same few files, while the server is killed now and then; every file's history is checked.

usage: locks.py [--rounds N] [--clients N] [--requests N] [--seed N] [--sync none|data|full]
                [--server KESTD] [--dialect classic|standard]

Prints what was done, and for each history that no order of its requests explains the shortest part
that shows it. The exit status is not 0 when there was one.
"""

import argparse
import contextlib
import http.client
import os
import random
import sys
import threading
import time
import xml.etree.ElementTree as ElementTree

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "e2e"))
sys.path.insert(0, HERE)

import harness  # noqa: E402
from checker import UNANSWERED, Request, explain, is_legal  # noqa: E402
from dav import Lock, lock_body  # noqa: E402
from harness import TestServer, Tree, exchange, in_parallel, url_path  # noqa: E402

FILES = 3  # in each round
KINDS = ("get", "get", "put", "put", "put", "delete", "lock", "lock", "refresh", "unlock")
CONDITIONS = {"new": ("If-None-Match", "*"), "there": ("If-Match", "*"),
              "unchanged": ("If-Unmodified-Since", "Sat, 01 Jan 2000 00:00:00 GMT")}


def body_of(name, dice):
    """Tells in every line whose it is."""
    return f"{name}\n".encode() * dice.choice((1, 10, 1000, 3000))


class File:
    """One file that clients fight for, and what they saw."""

    def __init__(self, path):
        self.path = path
        self.history = []
        self.tokens = ["opaquelocktoken:00000000-0000-0000-0000-000000000000"]
        self.names = {b"": b""}  # of bodies

    def name_of(self, body):
        """What to call a body: mixed ones have no name."""
        return self.names.get(body, f"unknown content of {len(body)} bytes: {body[:40]!r}")


class Client:
    def __init__(self, number, server, dice):
        self.number = number
        self.server = server
        self.dice = dice
        self.connection = None

    def close(self):
        if self.connection:
            self.connection.close()
        self.connection = None

    def connect(self, stopped):
        """Waits while the server is down."""
        while not self.connection:
            stopped.wait_until_up()
            connection = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=120)
            try:
                connection.connect()
                self.connection = connection
            except OSError:
                connection.close()
                time.sleep(0.002)

    def ask(self, file, stopped):
        """One request, chosen by the dice, into the file's history."""
        kind = self.dice.choice(KINDS)
        wish = {"kind": kind, "client": self.number}
        headers, body = {}, None
        if kind == "put":
            wish["value"] = f"{file.path} {self.number} {self.dice.getrandbits(48):x}"
            body = body_of(wish["value"], self.dice)
            file.names[body] = wish["value"]
            # The classic dialect knows none of them.
            known = CONDITIONS if self.server.dialect == "standard" else ()
            wish["condition"] = self.dice.choice((None, None, None, *known))
            if wish["condition"]:
                headers.update([CONDITIONS[wish["condition"]]])
        if kind == "lock":
            wish["shared"] = self.dice.random() < 0.3
            wish["token"] = f"unheard-of {self.dice.getrandbits(48):x}"
            body = lock_body(scope="shared" if wish["shared"] else "exclusive")
            headers.update({"Timeout": "Second-600", "Content-Type": "text/xml"})
        elif kind in ("refresh", "unlock") or (kind != "get" and self.dice.random() < 0.6):
            wish["token"] = self.dice.choice(file.tokens[-3:])
            headers["Lock-Token" if kind == "unlock" else "If"] = (
                f"<{wish['token']}>" if kind == "unlock" else f"(<{wish['token']}>)")
        self.connect(stopped)
        self.record(file, wish, body, headers)

    def record(self, file, wish, body, headers):
        method = {"refresh": "LOCK"}.get(wish["kind"], wish["kind"].upper())
        began = time.monotonic()
        try:
            reply = exchange(self.connection, method, file.path, body, headers)
        except (OSError, http.client.HTTPException):
            self.close()
            file.history.append(Request(status=UNANSWERED, began=began, ended=time.monotonic(),
                                        **wish))
            return
        ended = time.monotonic()
        if wish["kind"] == "get" and reply.status == 200:
            wish["value"] = file.name_of(reply.body)
        if wish["kind"] == "lock" and reply.status in (200, 201):
            try:
                wish["token"] = Lock(reply.body).token
            except ElementTree.ParseError:
                wish["token"] = f"unreadable {reply.body!r}"
            file.tokens.append(wish["token"])
        file.history.append(Request(status=reply.status, began=began, ended=ended, **wish))


class Stop:
    """Kills the server and starts it again while clients work."""

    def __init__(self, server):
        self.server = server
        self.up = threading.Event()
        self.up.set()

    def wait_until_up(self):
        if not self.up.wait(120):
            raise harness.Failure("the server does not come back")

    def kill_and_start(self):
        self.up.clear()
        self.server.kill()
        self.server.start()
        self.up.set()


class Result:
    def __init__(self):
        self.requests = self.answered = self.kills = self.histories = 0
        self.statuses = {}
        self.illegal = []  # texts

    def add(self, file):
        self.histories += 1
        self.requests += len(file.history)
        for request in file.history:
            self.answered += request.status != UNANSWERED
            key = (request.kind, request.status)
            self.statuses[key] = self.statuses.get(key, 0) + 1
        if not is_legal(file.history):
            self.illegal.append(f"{file.path}: {explain(file.history)}")

    def __str__(self):
        rows = sorted(self.statuses.items())
        told = ", ".join(f"{kind} {status or 'none'}: {count}" for (kind, status), count in rows)
        return (f"{self.histories} histories of {self.requests} requests, {self.answered} answered, "
                f"{self.kills} kills, {len(self.illegal)} illegal\n({told})")


@contextlib.contextmanager
def beside(work):
    """Does work on a thread of its own while the body runs, and raises what it raised."""
    failures = []

    def call():
        try:
            work()
        except BaseException as error:  # handed to the caller's thread
            failures.append(error)

    thread = threading.Thread(target=call, daemon=True)
    thread.start()
    try:
        yield
    finally:
        thread.join()
    if failures:
        raise failures[0]


def run(server, rounds, clients, requests, seed, volume="docs"):
    """Works on a server that runs; it runs again afterwards."""
    result = Result()
    for number in range(rounds):
        dice = random.Random(f"{seed} {number}")
        files = [File(url_path(volume, f"round{number}-{i}")) for i in range(FILES)]
        stop = Stop(server)
        kills = number % 3 == 2

        def work(i):
            own = random.Random(f"{seed} {number} {i}")
            client = Client(i, server, own)
            for _ in range(requests):
                client.ask(own.choice(files), stop)
            client.close()

        with beside(lambda: in_parallel(clients, work)):
            if kills:  # on this thread: a server ends with the thread that started it
                time.sleep(dice.random() * 0.05)
                stop.kill_and_start()
        result.kills += kills
        if not kills and any(r.status == UNANSWERED for file in files for r in file.history):
            result.illegal.append(f"round {number}: a request has no answer, and nobody killed")
        for file in files:
            result.add(file)
    return result


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--rounds", type=int, default=1000)
    parser.add_argument("--clients", type=int, default=6)
    parser.add_argument("--requests", type=int, default=12, help="of each client in a round")
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--sync", default="none")
    parser.add_argument("--server")
    parser.add_argument("--dialect", choices=("classic", "standard"))
    args = parser.parse_args()
    harness.DIALECT = args.dialect or harness.DIALECT
    if args.server:
        harness.KESTD = os.path.abspath(args.server)
    tree = Tree()
    settings = {"FileStore": {"Sync": args.sync}, "Server": {"Access Log": False}}
    try:
        with TestServer({"docs": tree.path}, settings=settings) as server:
            print(f"seed {args.seed}", flush=True)
            result = run(server, args.rounds, args.clients, args.requests, args.seed)
    finally:
        tree.remove()
    for text in result.illegal[:20]:
        print(text)
    print(result)
    return 1 if result.illegal else 0


if __name__ == "__main__":
    sys.exit(main())
