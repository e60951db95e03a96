# SPDX-License-Identifier: Apache-2.0
"""The sweep of failing calls (tests/faults) notices what it has to."""

import argparse
import os
import socket
import sys
import unittest

import harness
from harness import ROOT

sys.path.append(os.path.join(ROOT, "tests", "faults"))

import judge  # noqa: E402
import scenarios  # noqa: E402
import sweep  # noqa: E402
from control import ONCE, SHORT, STUCK, library  # noqa: E402
from connection import head, parse  # noqa: E402
from world import World  # noqa: E402

LIBRARY = library()


class Replies(unittest.TestCase):
    """A cut reply is told from a whole one."""

    def test_by_its_framing(self):
        for text, whole in (
                (b"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc", True),
                (b"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nab", False),
                (b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n", True),
                (b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n", False),
                (b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nab", False),
                (b"HTTP/1.1 200 OK\r\nContent-Le", False),
                (b"", False)):
            with self.subTest(text):
                self.assertEqual(parse(text, "GET").told(), whole)


class Truth(unittest.TestCase):
    """Every kind of untrue reply is complained about, and no true one."""

    OLD = {("docs", ""): (None, (), None), ("docs", "f"): ("old", (), "blue")}
    NEW = {("docs", ""): (None, (), None), ("docs", "f"): ("new", (), "blue")}
    TORN = {("docs", ""): (None, (), None)}

    def complaints(self, status, state, kept=(), body=b"", clean_status=201, must_go_on=False,
                   name="PUT over", whole=True):
        head = b"HTTP/1.1 %d X\r\nContent-Length: %d\r\n\r\n"
        clean = parse(head % (clean_status, 4) + b"body", "PUT")
        after = self.NEW if clean_status < 400 else self.OLD
        known = [("docs", "f", "old")] if clean_status < 400 else []
        reference = judge.Reference(name, self.OLD, clean, after, [], known)
        item = type("Item", (), {})()
        item.scenario = next(found for found in scenarios.ALL if found.name == name)
        item.injection = sweep.Injection("read", ("read",), 1, SHORT if must_go_on else ONCE, 5)
        item.answer = parse(head % (status, len(body) + (not whole)) + body, "PUT")
        item.same = state
        item.kept = {}
        return list(judge.judge_reply(item, reference)) + \
            list(judge.judge_state(item, state, list(kept), reference))

    def test_what_is_true(self):
        kept = [("docs", "f", "old")]
        self.assertEqual(self.complaints(201, self.NEW, kept, b"body"), [])
        self.assertEqual(self.complaints(500, self.OLD), [])
        self.assertEqual(self.complaints(500, self.NEW, kept), [])
        self.assertEqual(self.complaints(201, self.OLD, (), whole=False), [])

    def test_what_is_not(self):
        kept = [("docs", "f", "old")]
        for what, found in (
                ("success that did nothing", self.complaints(201, self.OLD, (), b"body")),
                ("not found", self.complaints(404, self.OLD)),
                ("expectation failed", self.complaints(417, self.OLD)),
                ("torn after a failure", self.complaints(500, self.TORN)),
                ("torn without a reply", self.complaints(201, self.TORN, (), whole=False)),
                ("a stray kept entry", self.complaints(500, self.OLD, kept)),
                ("another body", self.complaints(201, self.NEW, kept, b"bod")),
                ("EINTR told as a failure", self.complaints(500, self.OLD, must_go_on=True))):
            with self.subTest(what):
                self.assertNotEqual(found, [])

    def test_an_ignored_lock(self):
        self.assertEqual(self.complaints(423, self.OLD, (), b"body", 423), [])
        self.assertNotEqual(self.complaints(201, self.NEW, (), b"body", 423), [])


def faults_of(names, calls, dialect="classic"):
    """What a sweep of these calls of these requests complains about, and how many failed."""
    world = World(LIBRARY, dialect)
    try:
        runner = sweep.Runner(world, [found for found in scenarios.ALL
                                      if found.name in names and dialect in found.dialects],
                              argparse.Namespace(call=calls, verbose=False, end=None))
        for scenario in runner.chosen:
            runner.measure(scenario)
        runner.go(sweep.make_plan(runner, runner.options, None)[0])
        return [(str(item.injection) if item else "at the end", complaints) for item, complaints, _ in runner.settle()
                if complaints], len(runner.items)
    finally:
        world.close()


class Locks(unittest.TestCase):
    def test_none_is_granted_when_memory_runs_out_in_the_body(self):
        faults, count = faults_of(("LOCK file", "LOCK refresh"), ["malloc"])
        self.assertEqual(faults, [])
        self.assertGreater(count, 20)


    def test_one_whose_reply_is_lost_is_not_there_nor_is_its_empty_file(self):
        for dialect in scenarios.DIALECTS:
            with self.subTest(dialect):
                faults, count = faults_of(("LOCK new name",), ["send", "malloc"], dialect)
                self.assertEqual(faults, [])
                self.assertGreater(count, 20)


class Uploads(unittest.TestCase):
    def test_lasting_want_of_memory_leaves_the_server_alive(self):
        faults, count = faults_of(("PUT begins an upload [uploads]",), ["no-memory"], "standard")
        self.assertEqual(faults, [])
        self.assertGreater(count, 20)

    def test_what_is_there_stays_when_memory_runs_out(self):
        # The locks of one request make the others look for locks, too.
        faults, count = faults_of(("PUT with token", "PUT over", "PUT new"), ["malloc"])
        self.assertEqual(faults, [])
        self.assertGreater(count, 20)

    def test_what_is_told_of_one_that_can_be_resumed_is_there(self):
        faults, count = faults_of(("PATCH ends an upload [uploads]",), ["fsync", "read 1"], "standard")
        self.assertEqual(faults, [])
        self.assertGreater(count, 5)
        faults, count = faults_of(("DELETE of an upload [uploads]",), ["read", "unlink"], "standard")
        self.assertEqual(faults, [])
        self.assertGreater(count, 5)


class Sessions(unittest.TestCase):
    def test_want_of_memory_is_not_told_as_a_wrong_method(self):
        faults, count = faults_of(("GET index for a browser",), [f"malloc {nth} " for nth in range(6, 20)])
        self.assertEqual(faults, [])
        self.assertGreater(count, 10)


class Renames(unittest.TestCase):
    def test_properties_and_locks_stay_with_their_files(self):
        faults, count = faults_of(("DELETE file", "DELETE with token", "MOVE file"), ["write"])
        self.assertEqual(faults, [])
        self.assertGreater(count, 30)


    def test_what_can_neither_end_nor_be_undone_is_ended_without_a_new_start(self):
        for dialect in scenarios.DIALECTS:
            with self.subTest(dialect):
                faults, count = faults_of(("MOVE tree over",), ["rename", "disk-full"], dialect)
                self.assertEqual(faults, [])
                self.assertGreater(count, 5)


class Copies(unittest.TestCase):
    def test_what_has_given_way_leaves_the_list_when_there_is_memory_again(self):
        faults, count = faults_of(("MOVE file over between volumes",), ["no-memory"])
        self.assertEqual(faults, [])
        self.assertGreater(count, 20)

    def test_one_that_is_given_up_without_memory_leaves_the_server_alive(self):
        faults, count = faults_of(("MOVE tree over between volumes",), ["no-memory"])
        self.assertEqual(faults, [])
        self.assertGreater(count, 20)

    def test_what_has_moved_is_moved_also_when_what_gave_way_cannot_be_let_go(self):
        faults, count = faults_of(("MOVE file over between volumes",), ["rename", "fsync"])
        self.assertEqual(faults, [])
        self.assertGreater(count, 20)


class Standard(unittest.TestCase):
    def test_a_lock_that_is_refused_is_not_there(self):
        faults, count = faults_of(("LOCK file", "LOCK shared", "LOCK refresh"),
                                  ["statx", "getxattr"], "standard")
        self.assertEqual(faults, [])
        self.assertGreater(count, 2)

    def test_want_of_memory_is_no_fault_of_the_properties(self):
        faults, count = faults_of(("MKCOL with properties",), ["malloc"], "standard")
        self.assertEqual(faults, [])
        self.assertGreater(count, 20)

    def test_a_condition_that_fails_leaves_no_deleted_entry(self):
        faults, count = faults_of(("DELETE If-Match of another",), ["write"], "standard")
        self.assertEqual(faults, [])
        self.assertGreater(count, 10)


class Shutdown(unittest.TestCase):
    def test_it_does_not_wait_for_a_call_that_does_not_return(self):
        """A disk that hangs: the process ends in its time, and says so. No request can be cancelled
        that waits for the kernel."""
        for dialect in ("classic", "standard"):
            with self.subTest(dialect):
                world = World(LIBRARY, dialect, {"Server": {"Access Log": False,
                                                            "Shutdown Time": 1}})
                try:
                    self.stop_while_stuck(world)
                finally:
                    world.close()

    def stop_while_stuck(self, world):
        scenario = next(found for found in scenarios.ALL if found.name == "GET small")
        item = world.item(scenario)
        method, path, headers, body = scenario.request(item)
        mask = sum(1 << world.names.index(kind) for kind in ("open", "openat2", "statx", "stat"))
        with world.control.armed(mask, 1, STUCK), \
                socket.create_connection(("127.0.0.1", world.server.port)) as client:
            client.sendall(head(method, path, world.server.port, headers, len(body)))
            harness.wait_for(world.control.hits, "a call to be stuck")
            log = world.server.log_path
            self.assertEqual(world.server.stop(), 1)
            with open(log, encoding="utf-8") as lines:
                self.assertIn("a request does not end; the process ends without it", lines.read())


class Library(unittest.TestCase):
    """The call that was picked fails, and no other."""

    def setUp(self):
        self.world = World(LIBRARY, "classic")
        self.addCleanup(self.world.close)

    def test_only_the_picked_call_fails(self):
        runner = sweep.Runner(self.world, [], None)
        scenario = next(found for found in scenarios.ALL if found.name == "GET small")
        runner.measure(scenario)
        counts = runner.counts[scenario]
        self.assertGreaterEqual(counts["openat2"] + counts["open"], 1)
        kind = "openat2" if counts["openat2"] else "open"
        for error, told in ((5, 500), (24, 503)):
            item = self.world.item(scenario)
            runner.run(item, sweep.Injection(kind, (kind,), 1, ONCE, error))
            self.assertEqual((item.hits, item.answer.status), (1, told), harness.KESTD)
            self.assertTrue(item.places)
        item = self.world.item(scenario)
        runner.run(item, None)
        self.assertEqual((item.hits, item.answer.status), (0, 200))
