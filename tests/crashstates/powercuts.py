#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Power cuts on real file systems: a server works on an image, whose file system is shut down in the
middle so that nothing reaches the disk any more, and what a server finds there afterwards is
compared with what was answered.

usage: powercuts.py [--cycles N] [--filesystems ext4,xfs] [--sync data|full] [--seed N]
                    [--server KESTD]

Needs root, loop devices, mkfs.ext4 and mkfs.xfs. The exit status is 1 when something was lost, and 3
when this machine does not permit what is needed: then nothing has been checked.
"""

import argparse
import fcntl
import http.client
import os
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "e2e"))

import harness  # noqa: E402
from dav import multistatus, named  # noqa: E402
from harness import TestServer, exchange, url_path  # noqa: E402

SHUTDOWN = 0x8004587D  # FS_IOC_SHUTDOWN, which ext4 and xfs share
NO_LOG_FLUSH = 2       # what has not reached the log never does
CLIENTS = 4
NAMES = ("a", "b", "c", "d")
IMAGE_BYTES = 512 << 20
DONE = (200, 201, 204)
ANY = "any"  # color: which properties a COPY takes along is not looked at here
PATCH = ('<?xml version="1.0"?><D:propertyupdate xmlns:D="DAV:" xmlns:X="urn:x"><D:set><D:prop>'
         "<X:color>%s</X:color></D:prop></D:set></D:propertyupdate>")


class NotPermitted(Exception):
    """The machine does not let us."""


class Image:
    """A file system in a file, mounted."""

    def __init__(self, kind, base):
        self.kind = kind
        self.file = os.path.join(base, f"{kind}.img")
        self.top = os.path.join(base, kind)
        os.mkdir(self.top)
        with open(self.file, "wb") as image:
            image.truncate(IMAGE_BYTES)
        self.command(f"mkfs.{kind}", "-q", *(["-F"] if kind == "ext4" else []), self.file)
        self.mount()

    def command(self, *words):
        if not shutil.which(words[0], path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin"):
            raise NotPermitted(f"{words[0]} is not installed")
        done = subprocess.run(words, capture_output=True, text=True, check=False,
                              env=dict(os.environ, PATH=os.environ["PATH"] + ":/usr/sbin:/sbin"))
        if done.returncode:
            raise NotPermitted(f"{' '.join(words)}: {done.stderr.strip()}")

    def mount(self):
        self.command("mount", "-o", "loop", self.file, self.top)

    def cut(self):
        top = os.open(self.top, os.O_RDONLY)
        try:
            fcntl.ioctl(top, SHUTDOWN, struct.pack("I", NO_LOG_FLUSH))
        finally:
            os.close(top)

    def unmount(self):
        self.command("umount", self.top)


class Client:
    """Changes files that are its own, and knows what has to be there: {name: (content, color)}."""

    def __init__(self, number, dice):
        self.folder = f"client{number}"
        self.dice = dice
        self.files = {}
        self.after = None  # what is there if the request without a success was done
        self.told = ""
        self.answered = 0

    def path(self, name=""):
        return url_path("docs", self.folder, name) if name else url_path("docs", self.folder)

    def work(self, server, over):
        connection = http.client.HTTPConnection("127.0.0.1", server.port, timeout=60)
        try:
            while not over.is_set():
                method, name, headers, body, self.after = self.choose(server)
                self.told = f"{method} {name} {headers.get('Destination', '')}"
                reply = exchange(connection, method, self.path(name), body, headers)
                if over.is_set() or reply.status not in (*DONE, 207) or b" 200 " not in reply.body and (
                        method == "PROPPATCH"):
                    return
                self.files, self.after = self.after, None
                self.answered += 1
        except (OSError, http.client.HTTPException):
            pass  # the end
        finally:
            connection.close()

    def choose(self, server):
        """(method, name, headers, body, the files after it)."""
        files = dict(self.files)
        name = self.dice.choice(NAMES)
        number = self.dice.getrandbits(40)
        kind = self.dice.choice(("put", "put", "color", "move", "move", "delete", "copy"))
        if name not in files or kind == "put":
            content = f"{number:x}\n".encode() * self.dice.choice((1, 100, 5000))
            files[name] = (content, files.get(name, (None, None))[1])
            return "PUT", name, {}, content, files
        if kind == "color":
            files[name] = (files[name][0], f"{number:x}")
            return ("PROPPATCH", name, {"Content-Type": "text/xml"},
                    (PATCH % files[name][1]).encode(), files)
        if kind == "delete":
            del files[name]
            return "DELETE", name, {}, None, files
        target = self.dice.choice([other for other in NAMES if other != name])
        files[target] = files[name] if kind == "move" else (files[name][0], ANY)
        if kind == "move":
            del files[name]
        return (kind.upper(), name,
                {"Destination": server.base() + self.path(target), "Overwrite": "T"}, None, files)

    def found(self, server):
        """What a server finds now."""
        files = {}
        for name in NAMES:
            reply = server.request("GET", self.path(name))
            if reply.status == 404:
                continue
            look = server.request("PROPFIND", self.path(name), named("X:color"), {"Depth": "0"})
            entry = multistatus(look.body)[0]
            color = next((child.text.strip() for tag, child in entry.found.items() if "color" in tag),
                         None)
            files[name] = (reply.body, color)
        return files

    def fault(self, found):
        """None, or what has been lost."""
        def is_like(files):
            return files is not None and found.keys() == files.keys() and all(
                content == found[name][0] and color in (ANY, found[name][1])
                for name, (content, color) in files.items())

        if is_like(self.files) or is_like(self.after):
            return None
        short = lambda files: None if files is None else {
            name: (content[:12], len(content), color) for name, (content, color) in files.items()}
        return (f"{self.folder}: after {self.answered} answers and {self.told} without one: found "
                f"{short(found)}\n  expected {short(self.files)}\n  or {short(self.after)}")


def cycle(image, sync, clients, seed):
    """One cut. Returns the faults."""
    settings = {"FileStore": {"Sync": sync, "Keep Deleted": 1}, "Server": {"Access Log": False}}
    over = threading.Event()
    with TestServer({"docs": image.top}, settings=settings) as server:
        for client in clients:
            server.request("MKCOL", client.path())
            client.files, client.after, client.answered = client.found(server), None, 0
        threads = [threading.Thread(target=client.work, args=(server, over)) for client in clients]
        for thread in threads:
            thread.start()
        time.sleep(random.Random(seed).random() * 1.5)
        over.set()  # what is answered from here on would not have been without power
        image.cut()
        for thread in threads:
            thread.join()
        server.kill()
        image.unmount()
        image.mount()
        server.start()
        faults = [client.fault(client.found(server)) for client in clients]
    return [fault for fault in faults if fault]


def run(kind, base, args):
    """Returns the number of faults."""
    image = Image(kind, base)
    faults = answered = 0
    try:
        dice = random.Random(args.seed)
        clients = [Client(i, random.Random(f"{args.seed} {i}")) for i in range(CLIENTS)]
        for i in range(args.cycles):
            for fault in cycle(image, args.sync, clients, dice.random()):
                faults += 1
                print(f"{kind}, cut {i}: {fault}", flush=True)
            answered += sum(client.answered for client in clients)
    finally:
        image.unmount()
    print(f"{kind}, Sync = {args.sync}: {args.cycles} cuts, {answered} answered changes, "
          f"{faults} faults", flush=True)
    return faults


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--cycles", type=int, default=50)
    parser.add_argument("--filesystems", default="ext4,xfs")
    parser.add_argument("--sync", default="data")
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--server")
    args = parser.parse_args()
    if args.server:
        harness.KESTD = os.path.abspath(args.server)
    print(f"seed {args.seed}", flush=True)
    base = tempfile.mkdtemp(prefix="kest-cuts-", dir=harness.SCRATCH)
    try:
        faults = sum(run(kind, base, args) for kind in args.filesystems.split(","))
    except NotPermitted as why:
        print(f"powercuts.py: this machine does not permit it: {why}", file=sys.stderr)
        return 3
    finally:
        shutil.rmtree(base, ignore_errors=True)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
