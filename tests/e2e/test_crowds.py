# SPDX-License-Identifier: Apache-2.0
"""Many clients at once: busy, slow and idle ones."""

import http.client
import itertools
import resource
import select
import socket
import time

from harness import ServerCase, TestServer, exchange, in_both_dialects, in_parallel, pattern, \
    url_path, wait_for


def allow_descriptors(count):
    """This process holds the client's end of every connection."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if soft != resource.RLIM_INFINITY and soft < count + 200:
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(count + 200, hard), hard))


opened = itertools.count()  # by all cases


def open_many(server, count, data, receive_buffer=0):
    """Opens that many connections, 100 from an address, sends data on each, and returns them."""
    allow_descriptors(count)
    sockets = []
    for _ in range(count):
        sock = socket.socket()
        sock.settimeout(60)
        if receive_buffer:
            sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        group = next(opened) // 100
        sock.bind((f"127.0.{1 + group % 250}.{1 + group // 250 % 250}", 0))
        sock.connect(("127.0.0.1", server.port))
        sock.sendall(data)
        sockets.append(sock)
    return sockets


@in_both_dialects
class Parallel(ServerCase):
    settings = {"FileStore": {"Sync": "none"}}

    def test_64_clients_each_read_what_they_wrote(self):
        def work(i):
            client = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=120)
            for turn in range(20):
                data = pattern(1000 + i * 4001 + turn * 17, i * 100 + turn)
                path = self.path(f"client-{i}-{turn % 4}")
                self.assertEqual(exchange(client, "PUT", path, data).status,
                                 201 if turn < 4 else self.says.replaced)
                self.assertEqual(exchange(client, "GET", path).body, data)
                low, high = turn * 10, turn * 10 + 500
                part = exchange(client, "GET", path, headers={"Range": f"bytes={low}-{high}"})
                self.assertEqual(part.body, data[low:high + 1])
            client.close()

        in_parallel(64, work)
        self.assertEqual(self.tree.leftovers(), [])

    def test_64_clients_write_one_file_and_it_is_always_whole(self):
        versions = [pattern(150_000 + i, i) for i in range(64)]
        known = {self.sha(data) for data in versions}
        path = self.path("shared")
        self.server.request("PUT", path, versions[0])

        def work(i):
            client = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=120)
            for _ in range(5):
                self.assertEqual(exchange(client, "PUT", path, versions[i]).status,
                                 self.says.replaced)
                reply = exchange(client, "GET", path)
                self.assertEqual(reply.status, 200)
                self.assertIn(self.sha(reply.body), known)
            client.close()

        in_parallel(64, work)
        self.assertEqual(self.tree.leftovers(), [])


@in_both_dialects
class Slow(ServerCase):
    settings = {"Server": {"Head Time": 4000}}

    def normal_client(self, rounds=50):
        """Works as if it were alone; returns the longest time that one request took."""
        worst = 0.0
        for i in range(rounds):
            began = time.monotonic()
            data = b"round %d" % i
            self.assertIn(self.server.request("PUT", self.path("normal"), data).status,
                          (201, self.says.replaced))
            self.assertEqual(self.server.request("GET", self.path("normal")).body, data)
            worst = max(worst, time.monotonic() - began)
        return worst

    def trickle(self, sockets):
        for sock in sockets:
            try:
                sock.send(b"a")
            except OSError:
                pass  # it was ended for being slow

    def test_2000_trickling_heads_do_not_keep_a_normal_client_waiting(self):
        before = self.server.threads()
        slow = open_many(self.server, 2000,
                         b"GET /Ferro/docs/ HTTP/1.1\r\nHost: localhost\r\nX-Slow: ")
        try:
            self.trickle(slow[::2])
            self.assertLess(self.normal_client(), 15.0)
            self.assertLess(self.server.threads(), before + 100, "slow heads hold threads")
            # Each is told that it took too long, however often it sends one more byte.
            waiting = set(slow)
            end = time.monotonic() + 60
            while waiting and time.monotonic() < end:
                self.trickle(list(waiting)[::50])
                poller = select.poll()
                by_fd = {sock.fileno(): sock for sock in waiting}
                for fd in by_fd:
                    poller.register(fd, select.POLLIN)
                for fd, _ in poller.poll(200):
                    try:
                        got = by_fd[fd].recv(4096)
                    except ConnectionResetError:
                        got = b""
                    self.assertTrue(got == b"" or got.startswith(b"HTTP/1.1 408 "), got[:60])
                    waiting.discard(by_fd[fd])
            self.assertEqual(len(waiting), 0, "slow heads are never ended")
        finally:
            for sock in slow:
                sock.close()

    def test_slow_bodies_leave_room_for_others(self):
        # Small announced bodies that never come: no thread may be lost to them.
        request = (f"PUT {url_path('docs', 'never')} HTTP/1.1\r\nHost: localhost\r\n"
                   "Content-Length: 1000\r\n\r\nabc").encode()
        slow = open_many(self.server, 300, request)
        try:
            self.assertLess(self.normal_client(20), 20.0)
        finally:
            for sock in slow:
                sock.close()


@in_both_dialects
class SlowWithFewThreads(ServerCase):
    """More slow clients than threads, of every kind: all stay, and others are served."""

    COUNT = 40  # of each kind
    settings = {"Server": {"Worker Threads": 2, "Access Log": False, "Head Time": 600_000,
                           "Body Idle Time": 600_000, "Send Stall Time": 600_000,
                           "Rate Time": 600_000},
                "FileStore": {"Sync": "none"}}

    def setUp(self):
        self.large = pattern(8_000_000)
        self.medium = pattern(60_000)
        self.tree.write("large", self.large)
        self.tree.write("medium", self.medium)

    def head(self, method, name, more=""):
        return f"{method} {url_path('docs', name)} HTTP/1.1\r\nHost: 127.0.0.1\r\n{more}\r\n".encode()

    def serve_honest(self):
        for i in range(30):
            data = b"round %d" % i
            self.assertIn(self.server.request("PUT", self.path("normal"), data).status, (201, 204))
            self.assertEqual(self.server.request("GET", self.path("normal")).body, data)
            self.assertEqual(self.server.request("PROPFIND", self.path("normal")).status, 207)

    def read_body(self, sock, size):
        """One reply's body; the status must be 200."""
        got = b""
        while b"\r\n\r\n" not in got:
            part = sock.recv(65536)
            self.assertTrue(part, got[:100])
            got += part
        head, _, body = got.partition(b"\r\n\r\n")
        self.assertTrue(head.startswith(b"HTTP/1.1 200 "), head[:60])
        while len(body) < size:
            part = sock.recv(size - len(body))
            self.assertTrue(part, "the reply ends early")
            body += part
        return body

    def test_all_kinds_at_once_keep_nobody_waiting(self):
        count = self.COUNT
        kinds = {
            "heads": (b"GET /Ferro/docs/medium HTTP/1.1\r\nHost: 127", 0),
            "uploads": (self.head("PUT", "slow", "Content-Length: 100000\r\n") + b"x" * 10_000, 0),
            "gathered": (self.head("PUT", "slow", "Content-Length: 1000\r\n") + b"x", 0),
            "downloads": (self.head("GET", "large"), 65536),
            "pipelines": (self.head("GET", "medium") * 100, 65536),
        }
        clients = {}
        try:
            for kind, (data, receive_buffer) in kinds.items():
                clients[kind] = open_many(self.server, count, data, receive_buffer)
                self.serve_honest()
            # Nobody was ended for it: who has sent too little has heard nothing ...
            silent = clients["heads"] + clients["uploads"] + clients["gathered"]
            poller = select.poll()
            for sock in silent:
                poller.register(sock, select.POLLIN)
            self.assertEqual(poller.poll(0), [])
            # ... and who goes on is served to the end.
            for sock in clients["uploads"][::10]:
                sock.sendall(b"x" * 90_000)
                self.assertRegex(sock.recv(4096), b"^HTTP/1.1 20[14] ")
            for sock in clients["downloads"][::10]:
                self.assertEqual(self.read_body(sock, len(self.large)), self.large)
            for sock in clients["pipelines"][::10]:
                got = b""
                while len(got) < 100 * len(self.medium):
                    part = sock.recv(1 << 20)
                    self.assertTrue(part, "the pipeline ends early")
                    got += part
            self.serve_honest()
        finally:
            for sock in [sock for kind in clients.values() for sock in kind]:
                sock.close()


@in_both_dialects
class Idle(ServerCase):
    COUNT = 5000

    def test_5000_idle_connections_cost_little_and_harm_nobody(self):
        self.tree.write("small", b"small")
        request = (f"HEAD {url_path('docs', 'small')} HTTP/1.1\r\nHost: localhost\r\n\r\n").encode()
        # One round first, so that what is made once is not counted.
        for sock in open_many(self.server, 50, request):
            sock.recv(4096)
            sock.close()
        before = self.server.memory_now()
        idle = open_many(self.server, self.COUNT, request)
        try:
            for sock in idle:
                self.assertTrue(sock.recv(4096).startswith(b"HTTP/1.1 200 "))
            each = (self.server.memory_now() - before) / self.COUNT
            self.assertLess(each, 8 * 1024, "bytes per idle connection")
            self.assertLess(self.server.threads(), 100)
            began = time.monotonic()
            for _ in range(50):
                self.assertEqual(self.server.request("GET", self.path("small")).body, b"small")
            self.assertLess(time.monotonic() - began, 30.0)
            # They are idle, not forgotten.
            for sock in idle[::500]:
                sock.sendall(request)
                self.assertTrue(sock.recv(4096).startswith(b"HTTP/1.1 200 "))
        finally:
            for sock in idle:
                sock.close()


@in_both_dialects
class FewDescriptors(ServerCase):
    """200 clients of a server that may open 64 files."""

    def setUp(self):
        self.tree.write("file", pattern(100_000))
        self.few = TestServer({"docs": self.tree.path}, wrapper=["prlimit", "--nofile=64:64"])
        self.addCleanup(self.few.close)

    def ask(self, method, name, body=None):
        """The status, or None where the server just closed the connection."""
        try:
            return self.few.request(method, url_path("docs", name), body).status
        except (ConnectionError, http.client.HTTPException):
            return None

    def test_who_is_let_in_is_served_and_others_are_told(self):
        def work(i):
            return {(method, self.ask(method, name, body))
                    for method, name, body in (("GET", "file", None), ("PUT", f"new {i}", b"x"),
                                               ("PROPFIND", "file", None))}

        seen = set().union(*in_parallel(200, work))
        good = {("GET", 200), ("PUT", 201), ("PROPFIND", 207)}
        self.assertLessEqual(good, seen)
        self.assertLessEqual({status for _, status in seen - good}, {503, None}, seen)
        self.assertIn("only 64 files can be open", self.few.log())

    def test_idle_clients_do_not_take_the_descriptors_of_content(self):
        idle = open_many(self.few, 200, b"")
        try:
            # All have been looked at: those over the limit have been closed, or told and closed.
            wait_for(lambda: len(select.select(idle, [], [], 0)[0]) > 150,
                     "the server to turn away", 30)
            kept = next(sock for sock in idle if not select.select([sock], [], [], 0)[0])
            for _ in range(20):
                kept.sendall((f"GET {url_path('docs', 'file')} HTTP/1.1\r\n"
                              "Host: localhost\r\n\r\n").encode())
                got = b""
                while not got.endswith(pattern(100_000)[-100:]):
                    part = kept.recv(65536)
                    self.assertTrue(part, got[:100])
                    got += part
                self.assertTrue(got.startswith(b"HTTP/1.1 200 "), got[:100])
        finally:
            for sock in idle:
                sock.close()
        wait_for(lambda: self.ask("PUT", "after", b"x") in (201, 204), "the clients to be gone")
