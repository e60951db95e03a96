# SPDX-License-Identifier: Apache-2.0
"""What is on disk after clients, the server or the disk gave up in the middle."""

import hashlib
import http.client
import os
import socket
import struct
import subprocess
import threading
import time

from dav import lock, unlock
from harness import ServerCase, TestServer, Tree, exchange, head, in_both_dialects, in_parallel, \
    pattern, url_path, wait_for

OLD = b"the old content"


@in_both_dialects
class ClientGone(ServerCase):
    """An upload that ends early leaves what was there before."""

    def put_and_leave(self, name, announced, sent, reset, chunked=False):
        sock = self.server.connect()
        length = "Transfer-Encoding: chunked" if chunked else f"Content-Length: {announced}"
        sock.sendall(head("PUT", self.path(name), self.server.port, length))
        data = pattern(sent, 4)
        sock.sendall(b"%x\r\n%s\r\n" % (len(data), data) if chunked else data)
        # Let part of it arrive before the line is cut.
        wait_for(lambda: sent < 200_000 or self.tree.leftovers(), "the upload to begin")
        if reset:
            sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        sock.close()

    def test_old_content_stays_and_nothing_is_left(self):
        for chunked in (False, True):
            for reset in (False, True):
                for sent in (10, 1_000_000):
                    with self.subTest(chunked=chunked, reset=reset, sent=sent):
                        self.tree.write("file", OLD)
                        self.put_and_leave("file", 5_000_000, sent, reset, chunked)
                        self.put_and_leave("new", 5_000_000, sent, reset, chunked)
                        wait_for(lambda: not self.tree.leftovers(), "the clean-up")
                        self.assertEqual(self.tree.read("file"), OLD)
                        self.assertFalse(os.path.exists(self.tree / "new"))

    def test_descriptors_and_threads_come_back(self):
        self.put_and_leave("file", 5_000_000, 1_000_000, True)
        wait_for(lambda: not self.tree.leftovers(), "the clean-up")
        before = self.server.open_files()
        in_parallel(20, lambda i: self.put_and_leave(f"gone{i}", 5_000_000, 300_000, i % 2 == 0))
        wait_for(lambda: not self.tree.leftovers(), "the clean-up")
        wait_for(lambda: self.server.open_files() <= before + 4, "descriptors to be closed")

    def test_download_cut_short_harms_nobody(self):
        self.tree.write("big", pattern(20_000_000))
        for _ in range(20):
            sock = self.server.connect()
            sock.sendall(head("GET", self.path("big"), self.server.port))
            sock.recv(1000)
            sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            sock.close()
        self.assertEqual(self.server.request("GET", self.path("big")).body, pattern(20_000_000))


@in_both_dialects
class DiskFull(ServerCase):
    """A volume on a file system of 2 MiB, or, where this user may not mount one, of as much as
    the largest size that the server may give a file."""

    def setUp(self):
        self.small = Tree()
        self.mounted = False
        options = ["-o", "size=2m,mode=0700"]
        if os.geteuid() == 0:
            done = subprocess.run(["mount", "-t", "tmpfs", *options, "kest-test", self.small.path],
                                  capture_output=True, check=False)
            self.mounted = done.returncode == 0
        wrapper = [] if self.mounted else ["prlimit", f"--fsize={2 << 20}"]
        self.full = TestServer({"small": self.small.path}, wrapper=wrapper)

    def tearDown(self):
        self.full.close()
        if self.mounted:
            subprocess.run(["umount", self.small.path], check=True)
        self.small.remove()
        super().tearDown()

    def test_file_that_the_process_may_not_write_is_refused_as_a_full_disk_is(self):
        tree = Tree()
        self.addCleanup(tree.remove)
        wrapper = ["prlimit", f"--fsize={1 << 20}"]
        with TestServer({"small": tree.path}, wrapper=wrapper) as server:
            path = url_path("small", "file")
            self.assertEqual(server.request("PUT", path, OLD).status, 201)
            self.assertEqual(server.request("PUT", path, pattern(2 << 20)).status, 507)
            self.assertTrue(server.alive())
            self.assertEqual(server.request("GET", path).body, OLD)

    def test_full_disk_answers_507_and_keeps_the_old_content(self):
        path = url_path("small", "file")
        self.assertEqual(self.full.request("PUT", path, OLD).status, 201)
        with self.full.connect() as sock:
            sock.sendall(head("PUT", path, self.full.port, f"Content-Length: {8 << 20}",
                              "Connection: close"))
            try:
                sock.sendall(pattern(8 << 20))
            except (BrokenPipeError, ConnectionResetError):
                pass  # it may stop listening once it knows
            try:
                got = sock.recv(4096)
            except ConnectionResetError:
                got = b""
        self.assertTrue(got == b"" or got.startswith(b"HTTP/1.1 507 "), got[:60])
        wait_for(lambda: not self.small.leftovers(), "the clean-up")
        self.assertEqual(self.full.request("GET", path).body, OLD)
        # There is room again, and the server goes on.
        self.assertEqual(self.full.request("PUT", url_path("small", "next"), OLD * 1000).status, 201)
        self.assertEqual(self.small.read("next"), OLD * 1000)

    def test_body_that_fits_a_buffer_is_told_507(self):
        fill = pattern(60_000)
        statuses = set()
        for i in range(60):
            status = self.full.request("PUT", url_path("small", f"f{i}"), fill).status
            statuses.add(status)
            if status == 201:
                self.assertEqual(self.small.read(f"f{i}"), fill)
            else:
                self.assertFalse(os.path.exists(self.small / f"f{i}"))
        if self.mounted:
            self.assertEqual(statuses, {201, 507})
        wait_for(lambda: not self.small.leftovers(), "the clean-up")

    def fill(self):
        """Uploads until nothing fits any more; the names that are there."""
        names = []
        for size in (60_000, 4_000, 100):
            for i in range(60):
                name = f"{size}-{i}"
                status = self.full.request("PUT", url_path("small", name), b"x" * size).status
                if status == 507:
                    break
                self.assertEqual(status, 201)
                names.append(name)
        return names

    def test_a_disk_that_is_full_of_deleted_files_takes_new_ones(self):
        for _ in range(2):
            names = self.fill()
            self.assertGreater(len(names), 10)
            for name in names:
                reply = self.full.request("DELETE", url_path("small", name))
                self.assertEqual(reply.status, self.says.deleted, name)
        for i in range(5):
            reply = self.full.request("PUT", url_path("small", f"new{i}"), b"new" * 50_000)
            self.assertEqual(reply.status, 201)
            self.assertEqual(self.small.read(f"new{i}"), b"new" * 50_000)

    def test_deleting_and_unlocking_work_on_a_full_disk(self):
        path = url_path("small", "held")
        self.assertEqual(self.full.request("PUT", path, OLD).status, 201)
        held = lock(self.full, path)
        self.assertEqual(held.status, 200)
        names = self.fill()
        self.assertEqual(unlock(self.full, path, held.lock.token).status, self.says.unlocked)
        self.assertEqual(self.full.request("DELETE", path).status, self.says.deleted)
        self.assertEqual(self.full.request("GET", path).status, 404)
        for name in names:
            self.assertEqual(self.small.read(name), b"x" * int(name.split("-")[0]))
            self.assertEqual(self.full.request("DELETE", url_path("small", name)).status,
                             self.says.deleted)


@in_both_dialects
class PowerCut(ServerCase):
    """kill -9 while many uploads run; then a start over what is left."""

    CLIENTS = 200

    def test_every_file_is_old_or_new_and_whole_after_kill(self):
        old = {i: b"old %d " % i * 1000 for i in range(self.CLIENTS)}
        new = {i: pattern(400_000, i) for i in range(self.CLIENTS)}
        answered = set()
        # The other half of the names is new.
        for i in range(0, self.CLIENTS, 2):
            self.tree.write(f"f{i}", old[i])

        half = threading.Event()
        count = threading.Semaphore(self.CLIENTS // 4)

        def work(i):
            client = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=120)
            try:
                if exchange(client, "PUT", self.path(f"f{i}"), new[i]).status in (201, 204):
                    answered.add(i)
                    if not count.acquire(blocking=False):
                        half.set()
            except (OSError, http.client.HTTPException):
                pass  # the server was killed
            finally:
                client.close()

        threads = [threading.Thread(target=work, args=(i,)) for i in range(self.CLIENTS)]
        for thread in threads:
            thread.start()
        half.wait(60)
        self.server.kill()
        for thread in threads:
            thread.join()

        self.server.start()
        for i in range(self.CLIENTS):
            try:
                data = self.tree.read(f"f{i}")
            except FileNotFoundError:
                data = None
            if i in answered:
                self.assertEqual(data == new[i], True, f"f{i}: an answered upload is lost")
            else:
                before = old[i] if i % 2 == 0 else None
                self.assertIn(data, (before, new[i]), f"f{i} is neither old nor new")
        wait_for(lambda: not self.tree.leftovers(), "left-overs of the dead process to go")
        self.assertEqual(self.server.request("PUT", self.path("after"), b"x").status, 201)

    def test_clean_stop_lets_a_running_upload_finish(self):
        data = pattern(3_000_000)
        sock = self.server.connect()
        sock.sendall(head("PUT", self.path("running"), self.server.port,
                          f"Content-Length: {len(data)}") + data[:1_000_000])
        wait_for(self.tree.leftovers, "the upload to begin")
        self.server.process.terminate()
        # It takes no new work …
        wait_for(lambda: not self.accepts(), "the server to stop accepting")
        # … but finishes what it has.
        sock.sendall(data[1_000_000:])
        self.assertTrue(sock.recv(4096).startswith(b"HTTP/1.1 201 "))
        sock.close()
        self.assertEqual(self.server.process.wait(60), 0)
        self.assertEqual(hashlib.sha256(self.tree.read("running")).digest(),
                         hashlib.sha256(data).digest())
        self.server.process.stdout.close()
        self.server.start()

    def accepts(self):
        try:
            with socket.create_connection(("127.0.0.1", self.server.port), 5) as sock:
                sock.sendall(b"OPTIONS / HTTP/1.1\r\nHost: localhost\r\n\r\n")
                return sock.recv(100) != b""
        except OSError:
            time.sleep(0.01)
            return False


@in_both_dialects
class UnsyncedPowerCut(PowerCut):
    """The same where new files have no name until they are whole."""

    settings = {"FileStore": {"Sync": "none"}}
    test_clean_stop_lets_a_running_upload_finish = None  # waits for a name that is not there
