#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Random sequences of requests, compared with a model of what they do.

usage: fuzz/sequences/run [--seconds N] [--seed N] [--length N] [--server KESTD] [--stop-after N]
                          [--dialect NAME]… [--replay FILE] [--junit FILE]

The time is shared out between the dialects.

Prints each sequence that goes otherwise than the model says, with all steps taken out that it does
not need. The exit status is not 0 when there is one. --replay runs one as it was printed.
"""

import argparse
import json
import os
import random
import re
import sys
import time
import xml.etree.ElementTree as ElementTree
from urllib.parse import unquote

HERE = os.path.dirname(os.path.abspath(__file__))
TESTS = os.path.join(os.path.dirname(os.path.dirname(HERE)), "tests")
sys.path[:0] = [HERE, os.path.join(TESTS, "faults"), os.path.join(TESTS, "e2e"),
                os.path.join(TESTS, "support")]

import harness  # noqa: E402
import junit  # noqa: E402
from harness import TestServer, Tree, url_path  # noqa: E402
import uploads  # noqa: E402
from model import FOLDER, Model  # noqa: E402
from connection import Peer  # noqa: E402
from world import D, LOOK, MEMORY, Database, World, Wrong, colour_body, lock_body, \
    lock_headers  # noqa: E402

VOLUMES = ("docs", "other")
DIALECTS = ("classic", "standard")
NAMES = ("a", "b", "c")
REMOVE = (b'<?xml version="1.0"?><D:propertyupdate xmlns:D="DAV:" xmlns:X="urn:x"><D:remove><D:prop>'
          b"<X:colour/></D:prop></D:remove></D:propertyupdate>")
WEIGHTS = {"put": 8, "mkcol": 5, "delete": 4, "copy": 7, "move": 8, "proppatch": 4, "propfind": 1,
           "lock": 4, "refresh": 1, "unlock": 3, "get": 2}


class Mismatch(Exception):
    """The server and the model part. `kind` is the same for what looks alike."""

    def __init__(self, text, step=None):
        super().__init__(text)
        words = re.sub(r"\d+|'[^']*'", "#", text.split(": ")[-1])
        self.kind = f"{step['method'] if step else 'end'} {words[:60] if not step else text.split(': ')[-1]}"


class Generator(uploads.Generator):
    """Steps that refer to names and to the number of earlier locks and uploads, so that any of them
    can be left out."""

    def __init__(self, seed, dialect):
        self.random = random.Random(seed)
        # The classic dialect knows no uploads that go on in other requests.
        self.weights = {**WEIGHTS, **(uploads.WEIGHTS if dialect == "standard" else {})}

    def path(self):
        depth = self.random.choices((1, 2, 3), (6, 4, 1))[0]
        volume = self.random.choices(VOLUMES, (4, 1))[0]
        return [volume] + [self.random.choice(NAMES) for _ in range(depth)]

    def sequence(self, length):
        steps, locks = [], []
        for number in range(length):
            method = self.random.choices(list(self.weights), list(self.weights.values()))[0]
            step = {"method": method, "path": self.path(), "tokens": self.tokens(locks)}
            getattr(self, "add_" + method, lambda *_: None)(step, number, locks)
            steps.append(step)
        return steps

    def tokens(self, locks):
        if locks and self.random.random() < 0.4:
            return [self.random.choice(locks)["number"]]
        return []

    def near_a_lock(self, step, locks):
        """Often, what is done has to do with a lock."""
        if locks and self.random.random() < 0.5:
            lock = self.random.choice(locks)
            step["path"] = lock["path"]
            if self.random.random() < 0.6:
                step["tokens"] = [lock["number"]]

    def add_put(self, step, number, locks):
        self.near_a_lock(step, locks)
        step["content"] = f"{number}" * self.random.choice((1, 1, 3, 40_000))
        step["none_match"] = self.random.random() < 0.1
        step["match"] = self.random.random() < 0.1

    def add_delete(self, step, _, locks):
        self.near_a_lock(step, locks)

    def add_proppatch(self, step, number, locks):
        self.near_a_lock(step, locks)
        step["colour"] = None if self.random.random() < 0.25 else f"c{number}"

    def add_copy(self, step, _, locks):
        self.near_a_lock(step, locks)
        step["target"] = self.path()
        step["overwrite"] = self.random.random() < 0.6

    add_move = add_copy

    def add_lock(self, step, number, locks):
        step["scope"] = self.random.choice(("exclusive", "exclusive", "shared"))
        step["number"] = number
        step["tokens"] = []
        locks.append(step)

    def add_refresh(self, step, _, locks):
        self.add_unlock(step, _, locks)

    def add_unlock(self, step, _, locks):
        step["number"] = self.random.choice(locks)["number"] if locks else -1
        if locks and self.random.random() < 0.8:
            step["path"] = next(lock["path"] for lock in locks if lock["number"] == step["number"])


class Runner(uploads.Runner):
    """Runs sequences, each in a folder of its own."""

    mismatch = Mismatch

    def __init__(self, server, trees, dialect):
        self.server = server
        self.dialect = dialect
        self.trees = trees
        self.peer = Peer(server.port, harness.PATIENCE)
        self.count = 0
        self.requests = 0
        self.databases = {name: Database(tree) for name, tree in trees.items()}

    def url(self, path):
        return url_path(path[0], self.folder, *path[1:])

    def ask(self, method, path, headers=None, body=b""):
        self.requests += 1
        return self.peer.ask(method, self.url(path), headers, body)

    def begin(self):
        self.count += 1
        self.folder = f"s{self.count:06d}"
        self.tokens = {}
        self.places, self.offsets = {}, {}
        for volume in VOLUMES:
            os.mkdir(self.trees[volume] / self.folder)
        self.model = Model(VOLUMES, self.dialect)

    def run(self, steps):
        """Raises Mismatch, whose `at` is the number of steps taken."""
        self.begin()
        for number, step in enumerate(steps):
            wanted = getattr(self.model, step["method"])(tuple(step["path"]),
                                                         {**step, "target": tuple(
                                                             step.get("target", ()))})
            got = self.do(step)
            if got not in wanted:
                raise Mismatch(f"step {number}, {show(step)}: {got} instead of "
                               f"{', '.join(map(str, wanted))}", step)
        self.compare()

    def do(self, step):
        """Sends the step, and returns the status that counts."""
        method, path = step["method"], step["path"]
        headers = {}
        if step["tokens"]:
            headers["If"] = f"(<{self.token(step['tokens'][0])}>)"
        answer = getattr(self, "send_" + method, self.send_plain)(step, path, headers)
        if method == "get" and answer.status == 200 and self.model.is_file(tuple(path)):
            if answer.body.decode() != self.model.nodes[tuple(path)]:
                raise Mismatch(f"{show(step)}: other content")
        if method == "proppatch" and answer.status == 207:
            return 207 if b" 200 OK" in answer.body else "refused"
        if method == "proppatch" and answer.status in (412, 423):
            return "refused"
        return answer.status

    def token(self, number):
        return self.tokens.get(number, f"opaquelocktoken:00000000-0000-0000-0000-{number + 1:012d}")

    def send_plain(self, step, path, headers):
        return self.ask(step["method"].upper(), path, headers)

    def send_propfind(self, _, path, headers):
        return self.ask("PROPFIND", path, {**headers, "Depth": "1"}, LOOK)

    def send_get(self, _, path, headers):
        return self.ask("GET", path, {})

    def send_put(self, step, path, headers):
        if step["none_match"]:
            headers["If-None-Match"] = "*"
        if step["match"]:
            headers["If-Match"] = "*"
        return self.ask("PUT", path, headers, step["content"].encode())

    def send_copy(self, step, path, headers):
        headers["Destination"] = f"http://127.0.0.1:{self.server.port}{self.url(step['target'])}"
        headers["Overwrite"] = "T" if step["overwrite"] else "F"
        return self.ask(step["method"].upper(), path, headers)

    send_move = send_copy

    def send_proppatch(self, step, path, headers):
        body = REMOVE if step["colour"] is None else colour_body(step["colour"])
        return self.ask("PROPPATCH", path, headers, body)

    def send_lock(self, step, path, headers):
        answer = self.ask("LOCK", path, {**headers, **lock_headers()}, lock_body(step["scope"]))
        if answer.status in (200, 201):
            self.tokens[step["number"]] = re.search(rb"opaquelocktoken:[0-9a-f-]+",
                                                    answer.body)[0].decode()
        return answer

    def send_refresh(self, step, path, _):
        return self.ask("LOCK", path, {"If": f"(<{self.token(step['number'])}>)",
                                       "Timeout": "Second-900"})

    def send_unlock(self, step, path, _):
        return self.ask("UNLOCK", path, {"Lock-Token": f"<{self.token(step['number'])}>"})

    # -- what there is at the end

    def compare(self):
        shown = {}
        for volume in VOLUMES:
            self.walk((volume,), shown)
        wanted = set(self.model.nodes)
        if set(shown) != wanted:
            raise Mismatch(f"there is too much: {sorted(set(shown) - wanted)}, "
                           f"and missing: {sorted(wanted - set(shown))}")
        for path, folder in shown.items():
            if folder != (self.model.nodes[path] is FOLDER):
                raise Mismatch(f"{path} is {'a' if folder else 'no'} folder")
            if not folder:
                self.compare_content(path)
        self.compare_metadata("colours", dict(self.model.colours))
        held = {}
        for path, scope, number in self.model.locks:
            held.setdefault(path, []).append((scope, self.tokens[number]))
        self.compare_metadata("locks", held)

    def compare_metadata(self, what, wanted):
        found = {}
        for volume in VOLUMES:
            for name, value in getattr(self.databases[volume], what)(self.folder).items():
                path = (volume, *name.split("/")) if name else (volume,)
                found[path] = value if what == "colours" else [(lock[0], lock[3])
                                                               for lock in value]
        if found != wanted:
            raise Mismatch(f"{what}: {found}, not {wanted}")

    def compare_content(self, path):
        with open(os.path.join(self.trees[path[0]] / self.folder, *path[1:]), "rb") as file:
            if file.read().decode() != self.model.nodes[path]:
                raise Mismatch(f"{path} has other content")

    def walk(self, path, shown):
        answer = self.ask("PROPFIND", path, {"Depth": "1"}, LOOK)
        if answer.status != 207:
            raise Mismatch(f"PROPFIND of {path} is answered with {answer.status}")
        prefix = unquote(self.url((path[0],)))
        for response in ElementTree.fromstring(answer.body).findall(D + "response"):
            below = unquote(response.findtext(D + "href")).partition(prefix)[2].strip("/")
            name = (path[0], *below.split("/")) if below else (path[0],)
            try:
                folder, _ = World.entry(response)
            except Wrong as wrong:
                raise Mismatch(f"{name}: {wrong}") from None
            if name not in shown:
                shown[name] = folder
                if folder and name != path:
                    self.walk(name, shown)


def show(step):
    """One step as a line."""
    words = [step["method"].upper(), "/".join(step["path"])]
    if "target" in step:
        words.append("to " + "/".join(step["target"]) + (" overwriting" if step["overwrite"] else ""))
    for name in ("scope", "number", "colour"):
        if name in step:
            words.append(f"{name} {step[name]}")
    if "content" in step:
        words.append(f"{len(step['content'])} bytes")
    words += [name for name in ("none_match", "match") if step.get(name)]
    if step["tokens"]:
        words.append(f"with the token of {step['tokens'][0]}")
    return " ".join(words)


def fails(runner, steps):
    """The Mismatch that the sequence ends with, or nothing."""
    try:
        runner.run(steps)
    except Mismatch as mismatch:
        return mismatch
    return None


def shrink(runner, steps, kind):
    """Leaves out what the same mismatch does not need: halves first, then smaller pieces."""
    size = len(steps) // 2
    while size:
        at = 0
        while at < len(steps):
            shorter = steps[:at] + steps[at + size:]
            found = fails(runner, shorter) if shorter else None
            if found and found.kind == kind:
                steps = shorter
            else:
                at += size
        size //= 2
    return steps


def report(runner, seed, steps, mismatch):
    shorter = shrink(runner, steps, mismatch.kind)
    print(f"\n{runner.dialect}, seed {seed}, {len(shorter)} steps: {fails(runner, shorter) or mismatch}")
    for number, step in enumerate(shorter):
        print(f"    {number}: {show(step)}")
    print(f"    {json.dumps(shorter)}", flush=True)


def explore(runner, options, seconds):
    """(sequences, kinds of failures)"""
    seen = set()
    end = time.monotonic() + seconds
    count = 0
    while time.monotonic() < end and len(seen) < options.stop_after:
        seed = f"{options.seed}-{count}"
        steps = Generator(seed, runner.dialect).sequence(options.length)
        count += 1
        mismatch = fails(runner, steps)
        if mismatch and mismatch.kind not in seen:
            seen.add(mismatch.kind)
            report(runner, seed, steps, mismatch)
    return count, seen


def arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument("--seconds", type=float, default=20)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--length", type=int, default=16)
    parser.add_argument("--stop-after", type=int, default=6, help="different failures")
    parser.add_argument("--dialect", action="append", choices=DIALECTS)
    parser.add_argument("--replay", help="a file with one sequence, as it was printed")
    parser.add_argument("--server", help="the kestd to test (default: the release build)")
    parser.add_argument("--junit")
    return parser.parse_args()


def run_dialect(dialect, options, seconds):
    """Whether something went otherwise than the model says."""
    trees = {volume: Tree(MEMORY) for volume in VOLUMES}
    settings = {"Server": {"Access Log": False}, "FileStore": {"Sync": "none"}}
    try:
        with TestServer({name: tree.path for name, tree in trees.items()},
                        ("--dialect", dialect), settings) as server:
            runner = Runner(server, trees, dialect)
            if options.replay:
                with open(options.replay, encoding="utf-8") as file:
                    why = fails(runner, json.load(file))
                print(f"{dialect}: {why or 'as the model says'}")
                return bool(why)
            count, seen = explore(runner, options, seconds)
            runner.peer.close()
    finally:
        for tree in trees.values():
            tree.remove()
    print(f"{dialect}: {count} sequences of {options.length} steps, {runner.requests} requests, "
          f"{'failures' if seen else 'all as the model says'}", flush=True)
    return bool(seen) or not count


def main():
    options = arguments()
    if options.server:
        harness.KESTD = os.path.abspath(options.server)
    dialects = options.dialect or DIALECTS
    failed = {dialect: run_dialect(dialect, options, options.seconds / len(dialects))
              for dialect in dialects}
    if options.junit:
        rows = [(f"sequences {dialect}", 0, is_bad) for dialect, is_bad in failed.items()]
        junit.write(options.junit, "sequences", rows)
    return 1 if any(failed.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
