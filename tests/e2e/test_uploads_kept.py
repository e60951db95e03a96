# SPDX-License-Identifier: Apache-2.0
"""Resumable uploads: what the first request says of the whole, restarts, and their ends."""

import base64
import hashlib
import os
import re
import time

import harness
from dav import lock, unlock
from harness import Tree, pattern, run, wait_for
from uploads import PARTIAL, UploadCase, Wire


class Terms(UploadCase):
    """What the first request says holds for the last one."""

    def test_conditions_are_judged_when_it_is_published(self):
        place = self.begin("first", "If-None-Match: *", body=b"mine")
        self.assertEqual(self.ask("PUT", self.path("first"), body=b"theirs").status, 201)
        reply = self.append(place, 4, b"", complete=True)
        self.assertEqual((reply.status, reply.headers["upload-complete"]), (412, "?1"))
        self.assertEqual(self.content("first"), b"theirs")
        self.assertEqual(self.ask("HEAD", place).status, 404)

    def test_tag_is_judged_when_it_is_published(self):
        tag = self.ask("PUT", self.path("tagged"), body=b"one").headers["etag"]
        kept = self.begin("tagged", f"If-Match: {tag}", body=b"two")
        late = self.begin("tagged", f"If-Match: {tag}", body=b"three")
        self.assertEqual(self.append(kept, 3, b"", complete=True).status, 204)
        self.assertEqual(self.append(late, 5, b"", complete=True).status, 412)
        self.assertEqual(self.content("tagged"), b"two")

    def test_locks_are_judged_when_it_is_published(self):
        self.tree.write("locked", b"old")
        path = self.path("locked")
        early = self.begin("locked", body=b"without")
        held = lock(self.server, path).lock
        mine = self.begin("locked", f"If: (<{held.token}>)", body=b"with")
        self.assertEqual(self.ask("PUT", path, "Upload-Complete: ?0",
                                  "Content-Length: 0").status, 423)
        self.assertEqual(self.append(early, 7, b"", complete=True).status, 423)
        self.assertEqual(self.append(mine, 4, b"", complete=True).status, 204)
        self.assertEqual(self.content("locked"), b"with")
        self.assertEqual(unlock(self.server, path, held.token).status, 204)

    def test_date_is_that_of_the_first_request(self):
        place = self.begin("dated", "X-OC-Mtime: 1700000000", body=b"x")
        last = self.append(place, 1, b"y", complete=True)
        self.assertEqual((last.status, last.headers["last-modified"], last.headers["x-oc-mtime"]),
                         (201, "Tue, 14 Nov 2023 22:13:20 GMT", "accepted"))

    def test_digest_of_the_whole(self):
        content = pattern(200_000, 9)
        for is_right in (True, False):
            digest = hashlib.sha256(content if is_right else b"other").digest()
            name = f"digest{is_right}"
            place = self.begin(name, f"Repr-Digest: sha-256=:{base64.b64encode(digest).decode()}:",
                               body=content[:70_000])
            last = self.append(place, 70_000, content[70_000:], complete=True)
            self.assertEqual(last.status, 201 if is_right else 400, last)
            self.assertEqual(os.path.exists(self.tree / name), is_right)
            self.assertEqual(self.ask("HEAD", place).status, 204 if is_right else 404)

    def test_digest_of_a_part(self):
        place = self.begin("part", body=b"12345")
        wrong = base64.b64encode(hashlib.sha256(b"other").digest()).decode()
        right = base64.b64encode(hashlib.sha256(b"67890").digest()).decode()
        reply = self.append(place, 5, b"67890", f"Content-Digest: sha-256=:{wrong}:")
        self.assertEqual(reply.status, 400)
        self.assertEqual(self.offset(place), 5)
        reply = self.append(place, 5, b"67890", f"Content-Digest: sha-256=:{right}:", complete=True)
        self.assertEqual(reply.status, 201)
        self.assertEqual(self.content("part"), b"1234567890")

    def test_parent_that_has_gone(self):
        os.mkdir(self.tree / "folder")
        place = self.ask("PUT", self.path("folder", "a"), "Upload-Complete: ?0",
                         body=b"12345").headers["location"]
        os.rmdir(self.tree / "folder")
        self.assertEqual(self.append(place, 5, b"", complete=True).status, 409)


class Restarts(UploadCase):
    settings = {"Server": {"Shutdown Time": 500}}

    def test_upload_outlives_the_server(self):
        content = pattern(500_000, 10)
        place = self.broken("restarted", content, 123_456)
        self.settled(place, 123_456)
        self.server.restart()
        self.assertEqual(self.offset(place), 123_456)
        self.server.restart()
        self.assertEqual(self.append(place, 123_456, content[123_456:], complete=True).status, 201)
        self.assertEqual(self.content("restarted"), content)
        self.server.restart()
        self.assertEqual(self.ask("HEAD", place).headers["upload-complete"], "?1")

    def test_what_was_told_is_there_after_a_kill(self):
        content = pattern(12_000_000, 11)
        place = self.begin("killed", body=content[:1_000_000])
        with Wire(self.server) as wire:
            wire.send("PATCH", place, PARTIAL, "Upload-Offset: 1000000", "Upload-Complete: ?1",
                      f"Content-Length: {len(content) - 1_000_000}", body=content[1_000_000:-5])
            wait_for(lambda: len(self.stored(place)) > len(content) - 600_000, "the content")
            self.server.kill()
        self.server.start()
        offset = self.offset(place)
        self.assertGreaterEqual(offset, 1_000_000 + (8 << 20), "checkpoints")
        self.assertEqual(self.stored(place)[:offset], content[:offset])
        self.assertEqual(self.append(place, offset, content[offset:], complete=True).status, 201)
        self.assertEqual(self.content("killed"), content)

    def test_shutting_down_keeps_what_has_arrived(self):
        content = pattern(200_000, 12)
        with Wire(self.server) as wire:
            wire.send("PUT", self.path("stopped"), "Upload-Complete: ?1",
                      f"Content-Length: {len(content)}", body=content[:150_000])
            place = wire.read().headers["location"]
            wait_for(lambda: len(self.stored(place)) >= 65_536, "a block")
            self.server.restart()
        self.assertEqual(self.offset(place), 150_000)

    def test_damaged_record_is_no_upload(self):
        place = self.begin("damaged", body=b"12345")
        record = self.tree / (".kest/uploads/" + place.rsplit("/", 1)[1] + ".state")
        with open(record, "r+b") as file:
            file.seek(20)
            file.write(b"7")
        self.assertEqual(self.ask("HEAD", place).status, 404)
        self.assertEqual(self.append(place, 5, b"x").status, 404)


class Ends(UploadCase):
    settings = {"FileStore": {"Upload Time": 2}}

    def test_upload_ends_when_nothing_comes(self):
        place = self.begin("expired", body=b"12345")
        self.assertEqual(self.offset(place), 5)
        time.sleep(2.1)
        self.assertEqual(self.ask("HEAD", place).status, 404)
        self.assertEqual(self.append(place, 5, b"x", complete=True).status, 404)
        self.server.restart()  # and the start sweeps
        wait_for(lambda: self.pending() == [], "the sweep")

    def test_its_time_goes_on_across_a_restart(self):
        for end in (self.server.end, self.server.kill):
            place = self.begin("over", body=b"12345")
            time.sleep(1.2)
            end()
            self.server.start()
            time.sleep(1.2)
            self.assertEqual(self.ask("HEAD", place).status, 404)
            self.assertEqual(self.append(place, 5, b"x", complete=True).status, 404)
            self.assertFalse(os.path.exists(self.tree / "over"))

    def test_upload_that_ends_while_no_server_runs_leaves_nothing(self):
        for end in (self.server.end, self.server.kill):
            place = self.begin("alone", body=b"12345")
            end()
            time.sleep(2.1)
            self.server.start()
            self.assertEqual(self.ask("HEAD", place).status, 404)
            wait_for(lambda: self.pending() == [], "the sweep")
            self.assertFalse(os.path.exists(self.tree / "alone"))

    def test_what_comes_keeps_it(self):
        place = self.begin("fed")
        for i in range(4):
            time.sleep(0.7)
            self.assertEqual(self.append(place, i, b"x").status, 204)
        self.assertEqual(self.append(place, 4, b"", complete=True).status, 201)


class Off(UploadCase):
    settings = {"FileStore": {"Upload Time": 0}}

    def test_without_time_it_is_not_offered(self):
        content = pattern(100_000, 13)
        with Wire(self.server) as wire:
            wire.send("PUT", self.path("plain"), "Upload-Complete: ?1",
                      f"Content-Length: {len(content)}", body=content)
            self.assertEqual(wire.read().status, 201)
        self.assertEqual(self.content("plain"), content)
        part = self.ask("PUT", self.path("part"), "Upload-Complete: ?0", body=b"part")
        self.assertEqual(part.status, 501)
        self.assertFalse(os.path.exists(self.tree / "part"))
        options = self.ask("OPTIONS", self.path("plain"))
        self.assertNotIn("partial-upload", options.headers["accept-patch"])
        self.assertNotIn("upload-limit", options.headers)


class Bounds(UploadCase):
    def test_oldest_of_a_user_gives_way(self):
        places = [self.begin("bound", body=b"x") for _ in range(66)]
        self.assertEqual([self.ask("HEAD", place).status for place in places[:2]], [404, 404])
        self.assertEqual([self.ask("HEAD", place).status for place in places[2:]], [204] * 64)
        self.assertEqual(len(self.pending()), 128)

    def test_more_than_the_disk_has_is_refused(self):
        reply = self.ask("PUT", self.path("huge"), "Upload-Complete: ?0", "Content-Length: 0",
                         "Upload-Length: 900000000000000")
        self.assertEqual(reply.status, 507)
        limit = int(re.search(r"max-size=(\d+)", self.ask(
            "OPTIONS", self.path("huge")).headers["upload-limit"])[1])
        self.assertGreater(limit, 0)
        self.assertLess(limit, 900000000000000)


class Limited(UploadCase):
    settings = {"Server": {"Body Size": 1 << 20}}

    def test_parts_do_not_pass_the_limit_of_a_body(self):
        mebibyte = 1 << 20
        place = self.begin("limited", body=b"x" * 600_000)
        self.assertEqual(self.append(place, 600_000, b"y" * 500_000).status, 413)
        rest = mebibyte - 600_000
        self.assertEqual(self.append(place, 600_000, b"y" * rest).status, 204)
        self.assertEqual(self.append(place, mebibyte, b"z").status, 413)
        self.assertEqual(self.append(place, mebibyte, b"", complete=True).status, 201)


class Users(UploadCase):
    """An upload is nothing to anybody but who began it."""

    @classmethod
    def setUpClass(cls):
        cls.own = Tree()
        users = cls.own / "users"
        for name in ("ann", "bob"):
            assert run(harness.KESTD, "user", "add", name, "--users-file", users,
                       stdin=f"pass of {name}\n".encode())[0] == 0
        cls.settings = {"Server": {"Users File": users}}
        super().setUpClass()

    @classmethod
    def tearDownClass(cls):
        super().tearDownClass()
        cls.own.remove()

    @staticmethod
    def by(name):
        text = base64.b64encode(f"{name}:pass of {name}".encode()).decode()
        return f"Authorization: Basic {text}"

    def test_others_find_none(self):
        place = self.begin("hers", self.by("ann"), body=b"hers")
        for method in ("HEAD", "DELETE"):
            self.assertEqual(self.ask(method, place, self.by("bob")).status, 404)
            self.assertEqual(self.ask(method, place).status, 401)
        self.assertEqual(self.append(place, 4, b"x", self.by("bob")).status, 404)
        self.assertEqual(self.append(place, 4, b"!", self.by("ann"), complete=True).status, 201)
        self.assertEqual(self.content("hers"), b"hers!")
