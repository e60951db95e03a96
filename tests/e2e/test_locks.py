# SPDX-License-Identifier: Apache-2.0
"""Locks: two clients that edit the same document are kept apart."""

import os
import random
import sqlite3
import threading
import time

from dav import copy, lock, move, multistatus, propfind, named, proppatch, refresh, unlock
from harness import KESTD, ServerCase, in_both_dialects, in_parallel, run

DONE = (200, 201, 204)


@in_both_dialects
class Editing(ServerCase):
    @property
    def unknown(self):
        """UNLOCK with a token that is none of the path's."""
        return {"standard": 409, "classic": 404}[self.dialect]

    def fresh(self, name, data=b"first"):
        self.tree.write(name, data)
        return self.path(name)

    def test_lock_edit_refresh_unlock(self):
        path = self.fresh("edit.txt")
        held = lock(self.server, path, "Second-100", "<D:href>me@example.org</D:href>")
        self.assertEqual(held.status, 200)
        self.assertRegex(held.lock.timeout, r"^Second-(100|9\d)$")
        self.assertEqual(held.lock.depth, "0")
        self.assertTrue(held.lock.exclusive)
        token = held.lock.token
        self.assertTrue(token.startswith("opaquelocktoken:"))
        # Another client cannot write, and is told what stands in the way: in the classic dialect
        # with the holder's token, which nobody else has to know.
        self.assertEqual(self.server.request("PUT", path, b"theirs").status, 423)
        other = lock(self.server, path)
        self.assertEqual(other.status, 423)
        self.assertEqual(token.encode() in other.body, self.dialect == "classic")
        # It can still read.
        self.assertEqual(self.server.request("GET", path).body, b"first")
        # The holder can do both.
        mine = {"If": f"(<{token}>)"}
        self.assertEqual(self.server.request("PUT", path, b"mine", mine).status,
                         self.says.replaced)
        again = refresh(self.server, path, token, "Second-200")
        self.assertEqual((again.status, again.lock.token), (200, token))
        self.assertRegex(again.lock.timeout, r"^Second-(200|19\d)$")
        self.assertEqual(unlock(self.server, path, token).status, self.says.unlocked)
        self.assertEqual(self.server.request("PUT", path, b"theirs").status, self.says.replaced)

    def test_every_change_of_a_locked_file_needs_the_token(self):
        path = self.fresh("guarded")
        free = self.fresh("free", b"free")
        token = lock(self.server, path).lock.token
        mine = {"If": f"(<{token}>)"}
        changes = {
            "put": lambda h: self.server.request("PUT", path, b"new", h),
            "delete": lambda h: self.server.request("DELETE", path, None, h),
            "move": lambda h: move(self.server, path, self.path("elsewhere"), **h),
            "copy onto": lambda h: copy(self.server, free, path, **h),
        }
        for name, change in changes.items():
            with self.subTest(change=name):
                self.assertEqual(change({}).status, 423)
                self.assertEqual(self.tree.read("guarded"), b"first")
        reply = proppatch(self.server, path, [("X:color", "blue")])
        self.assertNotIn(b"200 OK", reply.body)
        self.assertEqual(self.server.request("PUT", path, b"new", mine).status, self.says.replaced)
        self.assertEqual(self.server.request("DELETE", path, None, mine).status, self.says.deleted)

    def test_folder_with_a_locked_member_stays(self):
        self.tree.write("folder/locked", b"x")
        token = lock(self.server, self.path("folder", "locked")).lock.token
        # The standard dialect names the member.
        refused = {"standard": 207, "classic": 423}[self.dialect]
        for reply in (self.server.request("DELETE", self.path("folder")),
                      move(self.server, self.path("folder"), self.path("away"))):
            self.assertEqual(reply.status, refused)
            if refused == 207:
                self.assertEqual([(entry.path, entry.status) for entry in multistatus(reply.body)],
                                 [("/Ferro/docs/folder/locked", 423)])
        self.assertTrue(os.path.exists(self.tree / "folder/locked"))
        unlock(self.server, self.path("folder", "locked"), token)
        self.assertEqual(self.server.request("DELETE", self.path("folder")).status,
                         self.says.deleted)

    def test_wrong_token_counts_for_nothing(self):
        path = self.fresh("wrong")
        token = lock(self.server, path).lock.token
        made_up = token[:-4] + "0000"
        reply = self.server.request("PUT", path, b"x", {"If": f"(<{made_up}>)"})
        self.assertIn(reply.status, (412, 423))
        self.assertEqual(unlock(self.server, path, made_up).status, self.unknown)
        self.assertEqual(self.tree.read("wrong"), b"first")
        self.assertEqual(unlock(self.server, path, token).status, self.says.unlocked)

    def test_shared_locks_live_together(self):
        path = self.fresh("shared")
        one = lock(self.server, path, scope="shared", owner="one")
        two = lock(self.server, path, scope="shared", owner="two")
        self.assertEqual((one.status, two.status), (200, 200))
        self.assertFalse(one.lock.exclusive)
        self.assertEqual(lock(self.server, path).status, 423)
        entry = propfind(self.server, path, 0, named("lockdiscovery")).entries[0]
        self.assertEqual(len(entry.found["{DAV:}lockdiscovery"]), 2)
        for held in (one, two):
            self.assertEqual(unlock(self.server, path, held.lock.token).status, self.says.unlocked)

    def test_lock_of_nothing_makes_an_empty_file(self):
        path = self.path("made by lock")
        held = lock(self.server, path)
        self.assertEqual(held.status, self.says.locked_new)
        self.assertEqual(self.tree.read("made by lock"), b"")
        self.assertEqual(self.server.request("PUT", path, b"x").status, 423)
        self.assertEqual(unlock(self.server, path, held.lock.token).status, self.says.unlocked)

    def test_token_stands_in_a_header_in_the_standard_dialect(self):
        held = lock(self.server, self.fresh("told"))
        self.assertEqual(held.headers.get("lock-token"),
                         f"<{held.lock.token}>" if self.dialect == "standard" else None)

    def test_lock_does_not_travel(self):
        path = self.fresh("travels")
        token = lock(self.server, path).lock.token
        self.assertIn(copy(self.server, path, self.path("copy of it")).status, DONE)
        self.assertEqual(self.server.request("PUT", self.path("copy of it"), b"x").status,
                         self.says.replaced)
        self.assertIn(move(self.server, path, self.path("moved"), If=f"(<{token}>)").status, DONE)
        self.assertEqual(self.server.request("PUT", self.path("moved"), b"x").status,
                         self.says.replaced)

    def test_lock_expires_by_itself(self):
        path = self.fresh("expires")
        token = lock(self.server, path, "Second-100").lock.token
        # Instead of waiting, its end is moved to the past. In the classic dialect a lock is held for
        # a minute longer than the client was told.
        self.let_time_pass(seconds=155 if self.dialect == "classic" else 95)
        self.assertEqual(self.server.request("PUT", path, b"theirs").status, 423)
        self.let_time_pass(seconds=6)
        self.assertEqual(self.server.request("PUT", path, b"theirs").status, self.says.replaced)
        self.assertNotEqual(refresh(self.server, path, token).status, 200)
        self.assertEqual(unlock(self.server, path, token).status, self.unknown)
        again = lock(self.server, path)
        self.assertEqual(again.status, 200)
        self.assertNotEqual(again.lock.token, token)

    def let_time_pass(self, seconds):
        store = sqlite3.connect(self.tree / ".kest/meta.db", timeout=60)
        with store:
            # in units of 100 ns; the last may never end
            changed = store.execute("UPDATE locks SET expires = expires - ? WHERE expires > 0",
                                    (seconds * 10_000_000,)).rowcount
        store.close()
        self.assertGreater(changed, 0)

    def test_locks_survive_restart_and_kill(self):
        path = self.fresh("survives")
        token = lock(self.server, path, "Second-1000").lock.token
        self.server.restart()
        self.assertEqual(self.server.request("PUT", path, b"x").status, 423)
        self.server.kill()
        self.server.start()
        self.assertEqual(self.server.request("PUT", path, b"x").status, 423)
        mine = {"If": f"(<{token}>)"}
        self.assertEqual(self.server.request("PUT", path, b"mine", mine).status,
                         self.says.replaced)
        self.assertEqual(unlock(self.server, path, token).status, self.says.unlocked)

    def test_files_cut_short_under_the_running_server_do_no_harm(self):
        path = self.fresh("cut short")
        token = lock(self.server, path, "Second-1000").lock.token
        private = self.tree / ".kest"
        stop = threading.Event()
        rounds = []

        def cut():
            while not stop.is_set():
                for name in ("state", "meta.db-shm"):
                    file = os.path.join(private, name)
                    if os.path.exists(file):
                        with open(file, "rb") as before:
                            content = before.read()
                        os.truncate(file, 0)
                        time.sleep(0.002)
                        with open(file, "wb") as after:
                            after.write(content)
                rounds.append(time.monotonic())
                time.sleep(0.001)

        cutter = threading.Thread(target=cut)
        cutter.start()
        try:
            for i in range(200):
                other = self.path(f"beside {i}")
                held = lock(self.server, other).lock.token
                self.assertEqual(self.server.request("PUT", other, b"x").status, 423)
                self.assertEqual(unlock(self.server, other, held).status, self.says.unlocked)
        finally:
            stop.set()
            cutter.join()
        self.assertGreater(len(rounds), 10)
        for _ in range(2):
            self.assertEqual(self.server.request("PUT", path, b"x").status, 423)
            self.server.restart()
        self.assertEqual(unlock(self.server, path, token).status, self.says.unlocked)

    def test_a_stopped_server_leaves_all_in_one_file(self):
        token = lock(self.server, self.fresh("backup"), "Second-1000").lock.token
        self.server.end()
        private = self.tree / ".kest"
        self.assertEqual([name for name in os.listdir(private) if name.startswith("meta.db")],
                         ["meta.db"])
        store = sqlite3.connect(f"file:{private}/meta.db?immutable=1", uri=True)
        kept = [row[0] for row in store.execute("SELECT token FROM locks")]
        store.close()
        self.assertIn(token.removeprefix("opaquelocktoken:"), kept)
        self.server.start()
        self.assertEqual(self.server.request("PUT", self.path("backup"), b"x").status, 423)

    def test_if_conditions(self):
        path = self.fresh("conditions")
        token = lock(self.server, path).lock.token
        dead = "opaquelocktoken:00000000-0000-0000-0000-000000000000"
        cases = [
            (f"(<{token}>)", self.says.replaced),
            (f"(<{dead}>) (<{token}>)", self.says.replaced),
            (f"(<{dead}>)", 412),
            (f"(Not <{dead}> <{token}>)", self.says.replaced),
            (f"(Not <{token}>)", 412),
            (f"<{self.server.base()}{path}> (<{token}>)", self.says.replaced),
        ]
        for value, status in cases:
            with self.subTest(value=value):
                reply = self.server.request("PUT", path, b"x", {"If": value})
                self.assertEqual(reply.status, status)

    def test_hostile_owner_texts_do_not_break_replies(self):
        for i, owner in enumerate(("a &amp; b", "&lt;script&gt;", "x" * 1000, "ünï \U0001f600",
                                   "<D:href>mailto:a@b</D:href>", "<unclosed")):
            with self.subTest(owner=owner):
                path = self.fresh(f"owner{i}")
                reply = lock(self.server, path, owner=owner)
                if owner == "<unclosed" and self.dialect == "standard":
                    self.assertEqual(reply.status, 400)
                    continue
                # Kept: the classic reply carries the owner's text as it was collected from the
                # request, so that it is no XML for some of these; what others are told is.
                self.assertEqual(reply.status, 200)
                self.assertTrue(reply.lock or self.dialect == "classic", "no XML")
                entry = propfind(self.server, path, 0, named("lockdiscovery")).entries[0]
                self.assertEqual(len(entry.found["{DAV:}lockdiscovery"]), 1)

    def test_location_and_missing_token(self):
        self.assertEqual(lock(self.server, "/Ferro").status, 403)
        path = self.fresh("tokenless")
        self.assertEqual(self.server.request("UNLOCK", path).status, 400)
        reply = self.server.request("UNLOCK", path, None, {"Lock-Token": "<nothing>"})
        self.assertEqual(reply.status, {"standard": 400, "classic": 404}[self.dialect])


@in_both_dialects
class Contention(ServerCase):
    CLIENTS = 64
    FILES = 10
    ROUNDS = 15

    def test_64_clients_fight_for_10_locks(self):
        for i in range(self.FILES):
            self.tree.write(f"counter{i}", b"0")
        holders = [None] * self.FILES
        wins = [0] * self.FILES
        clashes = []

        def work(client):
            dice = random.Random(client)
            for _ in range(self.ROUNDS):
                i = dice.randrange(self.FILES)
                path = self.path(f"counter{i}")
                reply = lock(self.server, path, owner=f"client {client}")
                if reply.status == 423:
                    continue
                self.assertEqual(reply.status, 200)
                if holders[i] is not None:
                    clashes.append((i, holders[i], client))
                holders[i] = client
                mine = {"If": f"(<{reply.lock.token}>)"}
                value = int(self.server.request("GET", path).body)
                put = self.server.request("PUT", path, b"%d" % (value + 1), mine)
                self.assertEqual(put.status, self.says.replaced)
                wins[i] += 1
                holders[i] = None
                self.assertEqual(unlock(self.server, path, reply.lock.token).status,
                                 self.says.unlocked)

        in_parallel(self.CLIENTS, work)
        self.assertEqual(clashes, [])
        self.assertGreater(sum(wins), self.FILES)
        # No update is lost.
        for i in range(self.FILES):
            self.assertEqual(int(self.tree.read(f"counter{i}")), wins[i])
            held = lock(self.server, self.path(f"counter{i}"))
            self.assertEqual(held.status, 200, "a lock was left behind")
            unlock(self.server, self.path(f"counter{i}"), held.lock.token)


@in_both_dialects
class Administration(ServerCase):
    """An administrator sees and breaks locks beside the running server."""

    def locks(self, *words):
        return run(KESTD, "locks", *words, "--state-dir", self.server.state,
                   f"docs={self.tree.path}")

    def test_locks_are_listed_and_broken(self):
        self.tree.write("held", b"x")
        self.assertEqual(self.locks("list"), (0, ""))
        held = lock(self.server, self.path("held"), owner="somebody")
        token = held.lock.token.removeprefix("opaquelocktoken:")
        status, printed = self.locks("list")
        fields = printed.rstrip("\n").split("\t")
        self.assertEqual(status, 0)
        self.assertEqual(fields[:3], [token, "/docs/held", "exclusive"])
        self.assertEqual(fields[4:], ["local user", "somebody"])
        self.assertEqual(self.locks("break", "no-such-token")[0], 1)
        self.assertEqual(self.server.request("PUT", self.path("held"), b"y").status, 423)
        self.assertEqual(self.locks("break", token), (0, ""))
        self.assertEqual(self.server.request("PUT", self.path("held"), b"y").status,
                         self.says.replaced)
        self.assertEqual(self.locks("list"), (0, ""))

    def test_wrong_words_are_refused(self):
        for words in ((), ("break",), ("lists",), ("break", "--help")):
            self.assertEqual(self.locks(*words)[0], 2, words)
