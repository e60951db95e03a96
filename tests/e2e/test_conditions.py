# SPDX-License-Identifier: Apache-2.0
"""Conditions are judged where the name changes: of many clients that want the same, one gets it."""

import http.client
import threading

from dav import copy, lock, lock_body, move, unlock
from harness import PATIENCE, ServerCase, exchange, head, in_parallel

FREE = {"If-None-Match": "*"}


class OfManyClients(ServerCase):
    CLIENTS = 16
    ROUNDS = 20

    def race(self, ask):
        """The replies to all clients, each of which calls ask(client, i) at the same moment."""
        start = threading.Barrier(self.CLIENTS)

        def work(i):
            client = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=PATIENCE)
            try:
                client.connect()
                start.wait(PATIENCE)
                return ask(client, i)
            finally:
                client.close()

        return in_parallel(self.CLIENTS, work)

    def statuses(self, ask):
        """Their statuses; the name is free again afterwards."""
        statuses = [reply.status for reply in self.race(ask)]
        self.server.request("DELETE", self.path("name"))
        return statuses

    def one_wins(self, ask, won, lost):
        for _ in range(self.ROUNDS):
            statuses = self.statuses(ask)
            self.assertEqual(statuses.count(won), 1, statuses)
            self.assertEqual([s for s in statuses if s not in (won, *lost)], [])

    def relocate(self, method, overwrite):
        headers = {"Destination": self.server.base() + self.path("name"), "Overwrite": overwrite}
        return lambda client, i: exchange(client, method, self.path(f"source {i}"), None, headers)

    def sources(self):
        for i in range(self.CLIENTS):
            self.tree.write(f"source {i}", f"from {i}")

    def test_one_upload_makes_a_name_that_has_to_be_free(self):
        def put(client, i):
            return exchange(client, "PUT", self.path("name"), b"of %d" % i, FREE)

        self.one_wins(put, 201, (412,))

    def test_one_copy_makes_its_destination_without_overwriting(self):
        self.sources()
        self.one_wins(self.relocate("COPY", "F"), 201, (412,))

    def test_one_move_takes_its_destination_without_overwriting(self):
        for _ in range(self.ROUNDS // 3):
            self.sources()
            statuses = self.statuses(self.relocate("MOVE", "F"))
            self.assertEqual(statuses.count(201), 1, statuses)
            self.assertEqual(statuses.count(412), self.CLIENTS - 1, statuses)

    def test_nobody_who_may_overwrite_is_told_that_the_name_was_taken(self):
        self.sources()
        for _ in range(self.ROUNDS):
            statuses = self.statuses(self.relocate("COPY", "T"))
            self.assertEqual([s for s in statuses if s not in (201, 204)], [])

    def test_one_folder_is_made(self):
        for headers, lost in (({}, 405), (FREE, 412)):
            self.one_wins(lambda client, _, h=headers: exchange(
                client, "MKCOL", self.path("name"), None, h), 201, (lost,))

    def test_one_lock_makes_the_file(self):
        def ask(client, _):
            return exchange(client, "LOCK", self.path("name"), lock_body(),
                            {"Content-Type": "text/xml", "Depth": "0", **FREE})

        for _ in range(self.ROUNDS):
            replies = self.race(ask)
            statuses = sorted(reply.status for reply in replies)
            self.assertEqual(statuses[0], 201)
            self.assertEqual([s for s in statuses[1:] if s not in (412, 423)], [])
            made = next(reply for reply in replies if reply.status == 201)
            token = made.headers["lock-token"].strip("<>")
            self.assertEqual(unlock(self.server, self.path("name"), token).status, 204)
            self.assertEqual(self.server.request("DELETE", self.path("name")).status, 204)

    def test_one_deletes_what_has_to_exist(self):
        for _ in range(self.ROUNDS):
            self.tree.write("name", b"x")
            statuses = self.statuses(lambda client, _: exchange(
                client, "DELETE", self.path("name"), None, {"If-Match": "*"}))
            self.assertEqual(statuses.count(204), 1, statuses)


class OneClient(ServerCase):
    def test_a_long_upload_whose_name_is_taken_meanwhile_is_refused(self):
        client = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=PATIENCE)
        client.putrequest("PUT", self.path("long"))
        for name, value in {"Transfer-Encoding": "chunked", **FREE}.items():
            client.putheader(name, value)
        client.endheaders()
        client.send(b"4\r\nmine\r\n")
        self.assertEqual(self.server.request("PUT", self.path("long"), b"theirs").status, 201)
        client.send(b"0\r\n\r\n")
        self.assertEqual(client.getresponse().status, 412)
        client.close()
        self.assertEqual(self.tree.read("long"), b"theirs")
        self.assertEqual(self.tree.leftovers(), [])

    def test_a_name_is_not_taken_because_another_one_looks_like_it_in_a_link(self):
        self.tree.write("a b", b"another")
        self.tree.write("x y/member", b"another")
        self.tree.write("folder/member", b"mine")
        reply = self.server.request("PUT", self.path("a%20b"), b"mine", FREE)
        self.assertEqual(reply.status, 201)
        self.assertEqual((self.tree.read("a b"), self.tree.read("a%20b")), (b"another", b"mine"))
        self.assertEqual(copy(self.server, self.path("folder"), self.path("x%20y")).status, 201)
        self.assertEqual(self.tree.read("x%20y/member"), b"mine")
        self.assertEqual(move(self.server, self.path("folder"), self.path("z%20z")).status, 201)

    def test_what_was_changed_later_is_left_alone(self):
        path = self.path("dated")
        self.tree.write("dated", b"first")
        early = {"If-Unmodified-Since": "Sun, 06 Nov 1994 08:49:37 GMT"}
        held = lock(self.server, self.path("other"))
        for method, body in (("PUT", b"x"), ("DELETE", None), ("MKCOL", None)):
            self.assertEqual(self.server.request(method, path, body, early).status, 412, method)
        self.assertEqual(move(self.server, path, self.path("away"), **early).status, 412)
        self.assertEqual(self.tree.read("dated"), b"first")
        late = {"If-Unmodified-Since": "Sun, 06 Nov 2994 08:49:37 GMT"}
        self.assertEqual(self.server.request("PUT", path, b"second", late).status, 204)
        self.assertEqual(unlock(self.server, self.path("other"), held.lock.token).status, 204)

    def test_a_body_is_not_invited_where_the_condition_fails(self):
        self.tree.write("taken", b"theirs")
        with self.server.connect() as sock:
            sock.sendall(head("PUT", self.path("taken"), self.server.port,
                              "Content-Length: 5000000", "Expect: 100-continue",
                              "If-None-Match: *"))
            self.assertTrue(sock.recv(4096).startswith(b"HTTP/1.1 412 "))
        self.assertEqual(self.tree.read("taken"), b"theirs")


class Classic(ServerCase):
    """The module's own conditions are those of "If" and the flag of COPY and MOVE: nothing judges
    the others for it."""

    dialect = "classic"

    def test_headers_that_the_module_does_not_know_change_nothing(self):
        for headers in (FREE, {"If-Match": '"none"'},
                        {"If-Unmodified-Since": "Sun, 06 Nov 1994 08:49:37 GMT"}):
            self.tree.write("known", b"old")
            self.assertEqual(self.server.request("PUT", self.path("known"), b"new",
                                                 headers).status, 201)
            self.assertEqual(self.tree.read("known"), b"new")
            reply = self.server.request("DELETE", self.path("known"), None, headers)
            self.assertEqual(reply.status, 200)

    def test_nothing_is_overwritten_without_leave(self):
        self.tree.write("from", b"new")
        self.tree.write("to", b"old")
        for method in (copy, move):
            reply = method(self.server, self.path("from"), self.path("to"), Overwrite="F")
            self.assertEqual(reply.status, 412)
            self.assertEqual(self.tree.read("to"), b"old")
