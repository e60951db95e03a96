# SPDX-License-Identifier: Apache-2.0
"""What many clients see of one server, checked as a whole: the bounded forms of what
tests/histories runs for as long as it is asked to."""

import os
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "histories"))

import chaos  # noqa: E402
import harness  # noqa: E402
import locks  # noqa: E402
import peer  # noqa: E402
from harness import TestServer, Tree  # noqa: E402
from test_checker import Illegal, Legal, Random  # noqa: E402,F401 (the checker's own cases)


class InBothDialects(unittest.TestCase):
    def speak(self, dialect):
        """What servers speak that the case starts from here on."""
        self.addCleanup(setattr, harness, "DIALECT", harness.DIALECT)
        harness.DIALECT = dialect


class Histories(InBothDialects):
    def test_locks_and_conditions_have_a_legal_order_kills_or_not(self):
        self.check("classic", rounds=45)

    def test_so_they_have_in_the_standard_dialect(self):
        self.check("standard", rounds=45)

    def check(self, dialect, rounds):
        self.speak(dialect)
        tree = Tree()
        self.addCleanup(tree.remove)
        settings = {"FileStore": {"Sync": "none"}, "Server": {"Access Log": False}}
        with TestServer({"docs": tree.path}, settings=settings) as server:
            result = locks.run(server, rounds=rounds, clients=6, requests=12, seed=2026)
        print(result)
        self.assertEqual([], result.illegal, "\n".join(result.illegal))
        self.assertGreater(result.kills, 10)


class Chaos(InBothDialects):
    def check(self, dialect="classic", **how):
        self.speak(dialect)
        world = chaos.run(clients=16, **how)
        print(chaos.summary(world))
        self.assertEqual([], world.faults, "\n".join(world.faults))

    def test_nothing_is_mixed_lost_or_ignored(self):
        self.check(seconds=6, seed=1)

    def test_nor_is_it_with_kills_and_full_disks(self):
        self.check(seconds=10, seed=2, kills=True, full_disk=True)

    def test_nor_is_it_in_the_standard_dialect(self):
        self.check("standard", seconds=8, seed=3, kills=True, full_disk=True)


class Peer(unittest.TestCase):
    def test_random_sequences_give_the_trees_and_statuses_of_a_second_server(self):
        comparison = peer.compare(sequences=100, length=40, seed=4)
        self.assertIsNotNone(comparison, "Apache is not installed: scripts/install-packages test")
        comparison.tell()
        self.assertGreater(comparison.requests, 1000)
        self.assertEqual({}, dict(comparison.unknown), comparison.examples)
