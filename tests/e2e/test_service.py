# SPDX-License-Identifier: Apache-2.0
"""The server as a service: what the service manager is told, gives and forbids."""

import os
import re
import signal
import socket
import subprocess
import tempfile
import unittest

import harness
from harness import PATIENCE, TestServer, Tree, url_path, wait_for

UNIT = os.path.join(harness.ROOT, "build", "release", "packaging", "kestd.service")


class Manager:
    """The socket at which a service manager listens for what a service says of itself."""

    def __init__(self):
        self.directory = tempfile.mkdtemp(prefix="kest-notify-")
        self.path = os.path.join(self.directory, "socket")
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(self.path)
        self.socket.settimeout(PATIENCE)

    def close(self):
        self.socket.close()
        os.unlink(self.path)
        os.rmdir(self.directory)

    def hears(self, *besides):
        """The lines of the next message that is not just one of `besides`."""
        while True:
            lines = self.socket.recv(4096).decode().splitlines()
            if lines[0] not in besides:
                return lines


class Notify(unittest.TestCase):
    def setUp(self):
        self.tree = Tree()
        self.addCleanup(self.tree.remove)
        self.manager = Manager()
        self.addCleanup(self.manager.close)

    def serve(self, **more):
        return TestServer({"docs": self.tree.path},
                          env={"NOTIFY_SOCKET": self.manager.path, **more})

    def test_says_when_it_is_ready_reads_its_configuration_again_and_stops(self):
        with self.serve() as server:
            ready = self.manager.hears()
            self.assertEqual(ready[0], "READY=1")
            self.assertRegex(ready[1], r"^STATUS=Serving http://127\.0\.0\.1:\d+/Ferro/$")
            server.process.send_signal(signal.SIGHUP)
            self.assertEqual(self.manager.hears(), ["RELOADING=1"])
            self.assertEqual(self.manager.hears()[0], "READY=1")
            server.process.send_signal(signal.SIGTERM)
            self.assertEqual(self.manager.hears(), ["STOPPING=1"])
            server.process.wait(PATIENCE)

    def test_shows_the_watchdog_that_it_is_alive(self):
        with self.serve(WATCHDOG_USEC="900000"):
            self.assertEqual(self.manager.hears()[0], "READY=1")
            for _ in range(3):
                self.assertEqual(self.manager.hears(), ["WATCHDOG=1"])

    def test_is_silent_where_nobody_watches(self):
        with self.serve() as server:
            self.assertEqual(self.manager.hears()[0], "READY=1")
            server.process.send_signal(signal.SIGTERM)
            self.assertEqual(self.manager.hears(), ["STOPPING=1"])
            server.process.wait(PATIENCE)


class SocketActivation(unittest.TestCase):
    """Listening sockets that stand at descriptor 3 and above when the program starts."""

    def setUp(self):
        self.tree = Tree()
        self.addCleanup(self.tree.remove)
        self.state = Tree()
        self.addCleanup(self.state.remove)
        self.socket = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(self.socket.close)
        self.port = self.socket.getsockname()[1]
        self.log = tempfile.TemporaryFile()
        self.addCleanup(self.log.close)

    def start(self, listen):
        number = self.socket.fileno()
        script = f'exec 3<&{number}; LISTEN_FDS=1 LISTEN_PID=$$ exec "$@"'
        process = subprocess.Popen(
            ["bash", "-c", script, "bash", harness.KESTD, "serve", "--listen", listen,
             "--state-dir", self.state.path, "docs=" + self.tree.path],
            pass_fds=[number], stdout=subprocess.PIPE, stderr=self.log, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def test_serves_at_the_socket_that_it_is_given(self):
        process = self.start(f"127.0.0.1:{self.port}")
        self.assertEqual(process.stdout.readline(),
                         f"kestd: serving http://127.0.0.1:{self.port}/Ferro/\n")
        with socket.create_connection(("127.0.0.1", self.port), PATIENCE) as client:
            client.sendall(b"OPTIONS /Ferro/docs HTTP/1.1\r\nHost: localhost\r\n"
                           b"Connection: close\r\n\r\n")
            self.assertTrue(client.recv(4096).startswith(b"HTTP/1.1 200 "))

    def test_a_socket_that_the_settings_do_not_name_stops_the_start(self):
        process = self.start("127.0.0.1:0")
        self.assertEqual(process.wait(PATIENCE), 1)
        self.log.seek(0)
        self.assertIn(f"the service manager listens on 127.0.0.1:{self.port}, which 'Listen' does "
                      "not name", self.log.read().decode())


class Unit(unittest.TestCase):
    def test_exposes_little(self):
        text = subprocess.run(["systemd-analyze", "security", "--offline=true", UNIT], check=False,
                              capture_output=True, text=True).stdout
        level = float(re.search(r"Overall exposure level for \S+: (\S+)", text)[1])
        self.assertLessEqual(level, 2.0, text)

    def test_is_well_formed(self):
        # It looks whether the program is there: here it is not installed.
        done = subprocess.run(["systemd-analyze", "verify", "--man=no", UNIT], check=False,
                              capture_output=True, text=True)
        said = [line for line in done.stderr.splitlines()
                if "kestd.service" in line and "is not executable" not in line]
        self.assertEqual(said, [])

    def test_serves_under_its_filter_of_system_calls(self):
        tree = Tree()
        self.addCleanup(tree.remove)
        sandbox = os.path.join(harness.ROOT, "tests", "e2e", "sandbox")
        with TestServer({"docs": tree.path}, wrapper=["/usr/bin/python3", sandbox]) as server:
            file, copy = url_path("docs", "file"), url_path("docs", "copy")
            self.assertEqual(server.request("PUT", file, b"x" * 100_000).status, 201)
            self.assertEqual(server.request("GET", file).body, b"x" * 100_000)
            self.assertEqual(server.request("COPY", file,
                                            headers={"Destination": copy}).status, 201)
            self.assertEqual(server.request("DELETE", copy).status, 204)
            server.process.send_signal(signal.SIGHUP)
            wait_for(lambda: "reading the configuration again" in server.log(), "the reload")
            self.assertNotIn("error", server.log())
            status = open(f"/proc/{server.process.pid}/status", encoding="ascii").read()
            self.assertIn("Seccomp:\t2", status)
