# SPDX-License-Identifier: Apache-2.0
"""The checker itself, with histories made by hand."""

import random
import unittest

from checker import NEVER, UNANSWERED, Request, State, after, explain, is_legal, shortest


def history(*rows):
    """Rows: (client, kind, status, began, ended, {more})."""
    return [Request(*row[:5], **(row[5] if len(row) > 5 else {})) for row in rows]


def put(client, status, began, ended, value, **more):
    return (client, "put", status, began, ended, {"value": value, **more})


def get(client, began, ended, value):
    return (client, "get", 200, began, ended, {"value": value})


class Legal(unittest.TestCase):
    def check(self, *rows):
        self.assertTrue(is_legal(history(*rows)))

    def test_nothing(self):
        self.check()

    def test_what_overlaps_may_happen_in_either_order(self):
        self.check(put(1, 201, 0, 10, "a"), put(2, 201, 0, 10, "b"), get(3, 11, 12, "a"))
        self.check(put(1, 201, 0, 10, "a"), put(2, 201, 0, 10, "b"), get(3, 11, 12, "b"))

    def test_a_reader_beside_a_writer_sees_old_or_new(self):
        self.check(put(1, 201, 0, 1, "a"), put(1, 201, 2, 9, "b"), get(2, 3, 4, "a"),
                   get(2, 5, 6, "b"))

    def test_without_an_answer_it_was_done_or_not(self):
        for seen in ("a", "b"):
            self.check(put(1, 201, 0, 1, "a"), put(1, UNANSWERED, 2, 5, "b"), get(2, 6, 7, seen))

    def test_one_of_two_creators_wins(self):
        self.check(put(1, 201, 0, 5, "a", condition="new"), put(2, 412, 0, 5, "b", condition="new"),
                   get(3, 6, 7, "a"))

    def test_a_lock_keeps_others_out_until_it_is_released(self):
        self.check((1, "lock", 200, 0, 1, {"token": "t"}), put(2, 423, 2, 3, "x"),
                   put(1, 201, 2, 3, "a", token="t"), (2, "lock", 423, 2, 3),
                   (1, "refresh", 200, 4, 5, {"token": "t"}),
                   (1, "unlock", 200, 6, 7, {"token": "t"}), put(2, 201, 8, 9, "x"),
                   put(1, 412, 10, 11, "y", token="t"), get(1, 12, 13, "x"))

    def test_shared_locks_live_together(self):
        self.check((1, "lock", 200, 0, 1, {"token": "s", "shared": True}),
                   (2, "lock", 200, 0, 1, {"token": "t", "shared": True}),
                   (3, "lock", 423, 2, 3), put(1, 201, 4, 5, "a", token="s"),
                   put(2, 201, 6, 7, "b", token="t"))

    def test_a_lock_that_nobody_heard_of_may_stand(self):
        self.check((1, "lock", UNANSWERED, 0, 5, {"token": "?"}), put(2, 423, 6, 7, "x"))
        self.check((1, "lock", UNANSWERED, 0, 5, {"token": "?"}), put(2, 201, 6, 7, "x"))

    def test_a_lock_that_was_cut_short_may_leave_an_empty_file(self):
        self.check((1, "lock", UNANSWERED, 0, 5, {"token": "?"}), get(2, 6, 7, b""),
                   put(2, 201, 8, 9, "x"))

    def test_deleting_takes_the_lock_along(self):
        self.check((1, "lock", 200, 0, 1, {"token": "t"}),
                   (1, "delete", 200, 2, 3, {"token": "t"}), (2, "get", 404, 4, 5),
                   put(2, 201, 6, 7, "x"))


class Illegal(unittest.TestCase):
    def check(self, *rows):
        rows = history(*rows)
        self.assertFalse(is_legal(rows))
        part = shortest(rows)
        self.assertFalse(is_legal(part))
        self.assertLessEqual(len(part), len(rows))
        self.assertIn("no order explains", explain(rows))
        return part

    def test_a_lost_update(self):
        self.check(put(1, 201, 0, 1, "a"), put(1, 201, 2, 3, "b"), get(2, 4, 5, "a"))

    def test_mixed_content(self):
        self.check(put(1, 201, 0, 1, "aaaa"), put(2, 201, 0, 1, "bbbb"), get(3, 2, 3, "aabb"))

    def test_a_reader_that_goes_back(self):
        self.check(put(1, 201, 0, 1, "a"), put(1, 201, 2, 9, "b"), get(2, 3, 4, "b"),
                   get(2, 5, 6, "a"))

    def test_two_creators_of_one_name(self):
        self.check(put(1, 201, 0, 5, "a", condition="new"), put(2, 201, 0, 5, "b", condition="new"))

    def test_an_ignored_lock(self):
        self.check((1, "lock", 200, 0, 1, {"token": "t"}), put(2, 201, 2, 3, "x"),
                   put(1, 201, 4, 5, "a", token="t"))

    def test_two_holders_of_one_lock(self):
        self.check((1, "lock", 200, 0, 5, {"token": "s"}), (2, "lock", 200, 0, 5, {"token": "t"}))

    def test_a_lock_that_vanishes(self):
        self.check((1, "lock", 200, 0, 1, {"token": "t"}),
                   (1, "unlock", 404, 2, 3, {"token": "t"}))

    def test_a_lock_that_stays(self):
        self.check((1, "lock", 200, 0, 1, {"token": "t"}), (1, "unlock", 200, 2, 3, {"token": "t"}),
                   put(2, 423, 4, 5, "x"))

    def test_an_answered_upload_that_is_gone_after_a_kill(self):
        self.check(put(1, 201, 0, 1, "a"), put(2, UNANSWERED, 2, 3, "b"), (3, "get", 404, 4, 5))

    def test_what_was_never_answered_does_not_happen_later(self):
        self.check(put(1, 201, 0, 1, "a"), put(2, UNANSWERED, 2, 3, "b"), get(3, 4, 5, "a"),
                   get(3, 6, 7, "b"))

    def test_an_answer_that_no_state_gives(self):
        self.check((1, "get", 500, 0, 1))

    def test_the_shortest_part_holds_what_matters(self):
        noise = [get(9, 2 * i + 10, 2 * i + 11, "a") for i in range(20)]
        late = [put(8, 201, 100 + 2 * i, 101 + 2 * i, f"late {i}") for i in range(20)]
        part = self.check(put(1, 201, 0, 1, "a"), *noise, get(2, 60, 61, "b"), *late)
        self.assertLessEqual(len(part), 2)


class Random(unittest.TestCase):
    """What a machine without concurrency said is legal, however its times are stretched; with one
    answer turned it seldom is, and the checker tells."""

    KINDS = ("get", "put", "put", "delete", "lock", "unlock", "refresh")

    def made(self, dice, count):
        state, rows, tokens = State(), [], ["none"]
        for i in range(count):
            kind = dice.choice(self.KINDS)
            more = {}
            if kind == "put":
                more = {"value": i, "condition": dice.choice((None, None, "new", "there"))}
            if kind == "lock":
                more = {"token": i, "shared": dice.random() < 0.4}
            elif kind in ("unlock", "refresh") or (kind != "get" and dice.random() < 0.5):
                more["token"] = dice.choice(tokens)
            if kind == "get":
                more = {"value": state.content}
            for status in (200, 404, 412, 423):
                request = Request(i % 4, kind, status, i - 3 * dice.random(),
                                  i + 3 * dice.random(), **more)
                states = after(state, request)
                if states:
                    break
            self.assertTrue(states, request)
            state = states[0]
            if kind == "lock" and status == 200:
                tokens.append(i)
            rows.append(request)
        return rows

    def test_made_histories_are_legal(self):
        for seed in range(200):
            with self.subTest(seed=seed):
                self.assertTrue(is_legal(self.made(random.Random(seed), 30)))

    def test_stale_reads_are_found(self):
        found = 0
        for seed in range(100):
            rows = self.made(random.Random(seed), 20)
            rows.append(Request(7, "get", 200, 100, 101, value="never written"))
            found += not is_legal(rows)
        self.assertEqual(found, 100)

    def test_never_ends_after_everything(self):
        rows = history(put(1, UNANSWERED, 0, NEVER, "a"), (2, "get", 404, 1, 2), get(2, 3, 4, "a"))
        self.assertTrue(is_legal(rows))


if __name__ == "__main__":
    unittest.main()
