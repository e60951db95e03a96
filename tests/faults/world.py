# SPDX-License-Identifier: Apache-2.0
"""The volumes that a sweep works on, the servers over them, and what both look like.

Every injection has a folder of its own in each volume, so that many can be judged by one fresh
server.
"""

import contextlib
import hashlib
import os
import re
import shutil
import sqlite3
import subprocess
import tempfile
import time
import xml.etree.ElementTree as ElementTree
from urllib.parse import unquote

import harness
from control import Control, Symbols
from harness import TestServer, url_path, wait_for
from connection import Peer

MTIME = 1_500_000_000  # of every file that is there before a request
# Seconds of a lock, and of one that is refreshed, which is the most that is granted: neither may run
# out, nor may they be taken for each other, before the last look, hours later.
LOCKED, REFRESHED = 40_000, 86_400
TICKS = 10_000_000  # of the database, in a second
D = "{DAV:}"
X = "{urn:x}"
LOOK = (b'<?xml version="1.0"?><D:propfind xmlns:D="DAV:" xmlns:X="urn:x"><D:prop>'
        b"<D:resourcetype/><D:getcontentlength/><X:colour/></D:prop>"
        b"</D:propfind>")
VOLUMES = ("docs", "other")
MEMORY = "/dev/shm"  # a file system in which syncs cost nothing; real disks have tests of their own


class Wrong(Exception):
    """What a server shows cannot be true."""


class Unsettled(Wrong):
    """Rows wait for the next start to be set right."""


def digest(data):
    return hashlib.sha1(data).hexdigest()[:12] if len(data) > 24 else data.decode("latin-1")


def disk_state(top):
    """{path below: content, or None for a directory} of what is at `top`, itself under ""."""
    if os.path.isfile(top):
        with open(top, "rb") as file:
            return {"": digest(file.read())}
    found = {"": None} if os.path.isdir(top) else {}
    for folder, folders, files in os.walk(top):
        below = os.path.relpath(folder, top)
        below = "" if below == "." else below + "/"
        found.update((below + name, None) for name in folders)
        for name in files:
            with open(os.path.join(folder, name), "rb") as file:
                found[below + name] = digest(file.read())
    return found


def ticks_now():
    """The time as the database has it: 100 ns units since 1601."""
    return int(time.time() * TICKS) + 116_444_736_000_000_000


class Database:
    """What one volume's metadata says about properties and locks. A listing does not tell them of
    members, and of a folder nothing tells the locks."""

    def __init__(self, tree):
        self.tree = tree
        self.copied = None  # the files as they were at the last look
        self.base = None

    def close(self):
        if self.base is not None:
            self.base.close()
            self.base = None

    def execute(self, *query):
        """Asks a copy: one process has the database at a time, and that is the server."""
        stamp = []
        for name in ("meta.db", "meta.db-wal"):
            with contextlib.suppress(FileNotFoundError):
                found = os.stat(os.path.join(self.tree / ".kest", name))
                stamp.append((name, found.st_mtime_ns, found.st_size))
        if self.base is None or stamp != self.copied:
            self.copy(stamp)
        return self.base.execute(*query)

    def copy(self, stamp):
        self.close()
        with tempfile.TemporaryDirectory(prefix="kest-base-", dir=MEMORY) as folder:
            for name, _, _ in stamp:
                shutil.copyfile(os.path.join(self.tree / ".kest", name),
                                os.path.join(folder, name))
            self.base = sqlite3.connect(os.path.join(folder, "meta.db"))
            self.base.execute("SELECT count(*) FROM props").fetchone()  # the log is read
        self.copied = stamp

    def colours(self, top):
        """{path below `top`: value of the property}"""
        rows = self.execute(
            "SELECT path, value FROM props WHERE (path = ?1 OR path GLOB ?1 || '/*') "
            "AND name LIKE '%colour'", (top,))
        return {path[len(top):].strip("/"): self.text_of(bytes(value).decode())
                for path, value in rows}

    @staticmethod
    def text_of(value):
        """The content: the standard dialect keeps the whole element."""
        return ElementTree.fromstring(value).text if value.startswith("<") else value

    def locks(self, top):
        """{path below `top`: its locks}"""
        found = {}
        now = ticks_now()
        for path, scope, depth, expires, token in self.execute(
                "SELECT path, scope, depth, expires, token FROM locks WHERE expires > ?2 "
                "AND (path = ?1 OR path GLOB ?1 || '/*') ORDER BY seq", (top, now)):
            length = "long" if expires - now > (LOCKED + 3600) * TICKS else "short"
            found.setdefault(path[len(top):].strip("/"), []).append(
                ("shared" if scope else "exclusive", depth, length, "opaquelocktoken:" + token))
        return found


class Item:
    """One run of one scenario: its folder in each volume."""

    def __init__(self, world, scenario, number):
        self.world = world
        self.scenario = scenario
        self.name = f"i{number:06d}"
        self.token = None   # of the lock that the preparation took
        self.place = None   # of the upload that the preparation began
        self.sent = 0       # bytes of it that have been acknowledged
        self.answer = None
        self.injection = None
        self.same = None    # State, as the running server shows it
        self.fresh = None   # as a fresh one does
        self.kept = {}      # what the running server keeps of what was deleted: see World.kept
        self.notes = []     # what was found wrong right away
        self.places = ()    # where the injected failure happened

    def disk(self, name, volume="docs"):
        return os.path.join(self.world.trees[volume].path, self.name, name)

    def write(self, name, data=b"", volume="docs"):
        path = self.disk(name, volume)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as out:
            out.write(data)
        os.utime(path, (MTIME, MTIME))

    def folder(self, name, volume="docs"):
        os.makedirs(self.disk(name, volume), exist_ok=True)

    def path(self, name="", volume="docs"):
        """Request path of something in the item's folder."""
        return url_path(volume, self.name, *name.split("/")) if name else url_path(volume,
                                                                                    self.name)

    def destination(self, name, volume="docs"):
        return {"Destination": f"http://127.0.0.1:{self.world.server.port}"
                               + self.path(name, volume)}

    # -- unarmed requests of the preparation

    def ask(self, method, name, headers=None, body=b"", volume="docs"):
        answer = self.world.peer.ask(method, self.path(name, volume), headers, body)
        if not 200 <= answer.status < 300:
            raise Wrong(f"preparation of {self.scenario.name}: {method} {name}: {answer}")
        return answer

    def colour(self, name, value, volume="docs"):
        answer = self.ask("PROPPATCH", name, {}, colour_body(value), volume)
        if b" 200 OK" not in answer.body:
            raise Wrong(f"preparation of {self.scenario.name}: {answer.body}")

    def lock(self, name, volume="docs", scope="exclusive", depth="0"):
        answer = self.ask("LOCK", name, lock_headers(depth), lock_body(scope), volume)
        self.token = re.search(rb"opaquelocktoken:[0-9a-f-]+", answer.body)[0].decode()


def colour_body(value):
    return (f'<?xml version="1.0"?><D:propertyupdate xmlns:D="DAV:" xmlns:X="urn:x"><D:set>'
            f"<D:prop><X:colour>{value}</X:colour></D:prop></D:set></D:propertyupdate>").encode()


def lock_body(scope="exclusive"):
    return (f'<?xml version="1.0"?><D:lockinfo xmlns:D="DAV:"><D:lockscope><D:{scope}/>'
            f"</D:lockscope><D:locktype><D:write/></D:locktype><D:owner>someone</D:owner>"
            "</D:lockinfo>").encode()


def lock_headers(depth="0"):
    return {"Timeout": f"Second-{LOCKED}", "Depth": depth, "Content-Type": "text/xml"}


class World:
    """Two volumes, the server under test with the library before it, and fresh servers."""

    PATIENCE = 20  # seconds without a byte; generous, the machine may be busy

    def __init__(self, library, dialect, settings=None, other=None):
        self.preload = library
        self.options = ("--dialect", dialect)
        self.settings = {"Server": {"Access Log": False}, **(settings or {})}
        self.trees = {"docs": harness.Tree(MEMORY), "other": harness.Tree(other or MEMORY)}
        handle, path = tempfile.mkstemp(prefix="kest-control-", dir=MEMORY)
        os.close(handle)
        self.control = Control(path)
        self.count = 0
        self.start()

    def environment(self):
        """The library stands before the C library, but behind a sanitizer."""
        linked = harness.run("ldd", harness.KESTD)[1]
        before = re.findall(r"=> (\S*/lib[at]san\S*)", linked)
        return {"LD_PRELOAD": " ".join(before + [self.preload]),
                "KEST_FAILING_CALLS": self.control.path}

    def start(self):
        volumes = {name: tree.path for name, tree in self.trees.items()}
        self.server = TestServer(volumes, self.options, self.settings, self.environment())
        self.peer = Peer(self.server.port, self.PATIENCE)
        self.names = self.control.names()
        self.symbols = Symbols(self.server.process.pid)
        for _ in range(3):
            self.peer.ask("PROPFIND", url_path("docs"), {"Depth": "1"})
        self.files = self.open_files()
        self.open_databases()

    def open_databases(self):
        self.databases = {name: Database(tree) for name, tree in self.trees.items()}

    def close_databases(self):
        for database in self.databases.values():
            database.close()

    def stop(self):
        self.close_databases()
        self.peer.close()
        self.server.close()

    def close(self):
        with contextlib.suppress(harness.Failure):
            self.stop()
        self.control.close()
        for tree in self.trees.values():
            tree.remove()

    def has_died(self, item):
        """Whether the server has ended; one that is about to takes its time to write a core."""
        if not item.answer.told() and self.server.alive():
            try:
                self.peer.ask("OPTIONS", "/")
            except OSError:
                with contextlib.suppress(subprocess.TimeoutExpired):
                    self.server.process.wait(self.PATIENCE)
        return not self.server.alive()

    def revive(self):
        """After the server has died: the next one."""
        log = self.server.log()[-2000:]
        self.close_databases()
        self.peer.close()
        if self.server.process:
            self.server.process.kill()
            self.server.process.wait()
            self.server.process.stdout.close()
        shutil.rmtree(self.server.state, ignore_errors=True)
        self.start()
        return log

    @contextlib.contextmanager
    def fresh(self):
        """A server without the library, after the one under test has ended."""
        self.stop()
        volumes = {name: tree.path for name, tree in self.trees.items()}
        with TestServer(volumes, self.options, self.settings) as server:
            peer = Peer(server.port, self.PATIENCE)
            self.open_databases()
            yield peer
            self.close_databases()
            peer.close()

    @contextlib.contextmanager
    def after(self, **settings):
        """One more server over the same directories, when no other is there."""
        volumes = {name: tree.path for name, tree in self.trees.items()}
        with TestServer(volumes, self.options, {**self.settings, **settings}) as server:
            yield server

    def item(self, scenario):
        self.count += 1
        item = Item(self, scenario, self.count)
        for volume in VOLUMES:
            item.folder("", volume)
        scenario.build(item)
        return item

    # -- what there is

    def open_files(self):
        """What the server's descriptors lead to, with how many lead there."""
        found = {}
        folder = f"/proc/{self.server.process.pid}/fd"
        for name in os.listdir(folder):
            with contextlib.suppress(OSError):
                target = os.readlink(os.path.join(folder, name))
                target = re.sub(r"^socket:.*", "socket", target)
                found[target] = found.get(target, 0) + 1
        return found

    def lost_files(self):
        """Descriptors that lead into a volume and have not been there at the start."""
        lost = []
        for target, count in self.open_files().items():
            inside = any(target.startswith(tree.path) for tree in self.trees.values())
            known = re.search(r"/\.kest/meta\.db(-wal|-shm)?$", target)
            # Connections to the database are kept for the next request, and a directory, twice.
            spare = 12 if known else 2 * target.endswith("/.kest/uploads")
            if (inside or target == "socket") and count > self.files.get(target, 0) + spare:
                lost.append(target)
        return lost

    def leftovers(self):
        """What is on its way in, of this server or of one before it."""
        return [tree / f".kest/tmp/{name}" for tree in self.trees.values()
                for name in os.listdir(tree / ".kest/tmp") if not name.endswith(".lock")]

    def look(self, peer, item):
        """The item's trees as this server shows them and as they are on disk, or Wrong."""
        state = {}
        for volume in VOLUMES:
            shown = self.walk(peer, item, volume)  # first: a request ends what failures have left
            disk = disk_state(item.disk("", volume))
            if set(shown) != set(disk):
                raise Wrong(f"the server shows {sorted(shown)}, on disk are {sorted(disk)}")
            colours = self.databases[volume].colours(item.name)
            locks = self.databases[volume].locks(item.name)
            for name, (folder, size) in shown.items():
                content = disk[name]
                if folder != (content is None):
                    raise Wrong(f"{name} is of another kind on disk")
                if not folder and size != os.path.getsize(item.disk(name, volume)):
                    raise Wrong(f"{name} is {size} bytes long for the server")
                state[volume, name] = (content, tuple(locks.pop(name, ())),
                                       colours.pop(name, None))
            if colours or locks:
                raise Unsettled(f"properties {colours} and locks {locks} of what is not there")
        return state

    def walk(self, peer, item, volume):
        """{path below the item: (is a folder, size)}"""
        found = {}
        pending = [""]
        while pending:
            folder = pending.pop()
            answer = peer.ask("PROPFIND", item.path(folder, volume), {"Depth": "1"}, LOOK)
            if answer.status != 207:
                raise Wrong(f"PROPFIND of {volume}/{folder} is answered with {answer.status}")
            prefix = unquote(item.path("", volume))
            for response in ElementTree.fromstring(answer.body).findall(D + "response"):
                href = unquote(response.findtext(D + "href"))
                name = href.partition(prefix)[2].strip("/")
                entry = self.entry(response)
                if entry[0] and name != folder:
                    pending.append(name)
                if name not in found or name != folder:
                    found[name] = entry
        return found

    @staticmethod
    def entry(response):
        """(is a folder, size)"""
        folder, size = False, 0
        for propstat in response.findall(D + "propstat"):
            status = propstat.findtext(D + "status")
            prop = propstat.find(D + "prop")
            if " 200 " not in status and " 404 " not in status:
                raise Wrong(f"a property has the status {status}")
            if " 200 " in status:
                folder = folder or prop.find(f"{D}resourcetype/{D}collection") is not None
                size = int(prop.findtext(D + "getcontentlength") or size)
        return folder, size

    def kept(self):
        """{name of an item: {(volume, number): (path, files)}} of all deleted entries, from both
        databases, and what should not be in them."""
        kept, strays = {}, []
        for volume in VOLUMES:
            base = self.databases[volume]
            rows = base.execute("SELECT id, parent, name FROM deleted").fetchall()
            for row in rows:
                item, entry = self.entry_of(volume, *row)
                kept.setdefault(item, {})[volume, row[0]] = entry
            strays += self.strays(self.trees[volume], base, {row[0] for row in rows})
        return kept, strays

    def kept_of(self, item):
        """The same of one item, as it is now."""
        return {(volume, row[0]): self.entry_of(volume, *row)[1] for volume in VOLUMES
                for row in self.databases[volume].execute(
                    "SELECT id, parent, name FROM deleted WHERE parent = ?1 OR parent GLOB ?1 || "
                    "'/*'", (item.name,))}

    def entry_of(self, volume, number, parent, name):
        """(name of the item, (path below it, files))"""
        item, _, below = f"{parent}/{name}".partition("/")
        return item, (below, disk_state(self.trees[volume] / f".kest/deleted/{number}"))

    @staticmethod
    def strays(tree, base, known):
        """Rows about nothing, and deleted files that nobody lists."""
        found = [f"an intent {row}" for row in base.execute("SELECT source, target FROM intents")]
        for table, column in (("props", "path"), ("locks", "path"), ("hidden", "parent")):
            for (path,) in base.execute(f"SELECT DISTINCT {column} FROM {table}"):
                if not os.path.lexists(tree / path):
                    found.append(f"a row of {table} about {path}, which is not there")
        for name in os.listdir(tree / ".kest/deleted"):
            if int(name) not in known:
                found.append(f"a deleted entry {name} that is in no list")
        return found

    def left_on_disk(self):
        """What a fresh server should have cleared away."""
        def clear():
            return not self.leftovers() and not any(
                os.listdir(tree / ".kest/purge") for tree in self.trees.values())
        try:
            wait_for(clear, "what is on its way out to go", 30)
            return []
        except harness.Failure:
            return self.leftovers() + [
                os.path.join(tree / ".kest/purge", name) for tree in self.trees.values()
                for name in os.listdir(tree / ".kest/purge")]
