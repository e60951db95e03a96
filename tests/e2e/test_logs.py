# SPDX-License-Identifier: Apache-2.0
"""The logs: what a line tells, where it goes, and what happens when files are rotated or full."""

import json
import os
import re
import signal
import socket
import unittest

from harness import TestServer, Tree, url_path, wait_for

USERS = ("--user", "anna:secret")
ANNA = {"Authorization": "Basic YW5uYTpzZWNyZXQ="}
GUESSER = {"Authorization": "Basic YW5uYTp3cm9uZw=="}


class LogCase(unittest.TestCase):
    def setUp(self):
        self.tree = Tree()
        self.addCleanup(self.tree.remove)
        self.logs = Tree()
        self.addCleanup(self.logs.remove)

    def serve(self, *options, **settings):
        server = TestServer({"docs": self.tree.path}, options, settings={"Server": {
            name.replace("_", " "): value for name, value in settings.items()}})
        self.addCleanup(server.close)
        return server

    def lines(self, name, count):
        """The first lines of a log, once they are there. A line is written after its reply has left:
        those of two connections are in no order."""
        path = self.logs / name

        def read():
            if not os.path.exists(path):
                return None
            with open(path, encoding="utf-8") as file:
                lines = file.read().splitlines()
            return lines if len(lines) >= count else None
        return wait_for(read, f"{count} lines of {name}")[:count]

    def objects(self, name, count):
        return [json.loads(line) for line in self.lines(name, count)]


class Access(LogCase):
    def test_a_line_tells_of_a_request(self):
        server = self.serve(*USERS, Access_Log_File=self.logs / "access")
        path = url_path("docs", "new.txt")
        self.assertEqual(server.request("PUT", path, b"12345", ANNA).status, 201)
        self.assertEqual(server.request("GET", path, None, ANNA).body, b"12345")
        form = r'127\.0\.0\.1 - anna \[\S+ \+0000\] "%s ' + re.escape(path) + \
            r' HTTP/1\.1" %d %s \d+ [0-9a-f]{16}'
        put, get = sorted(self.lines("access", 2), key=lambda line: '"GET ' in line)
        self.assertRegex(put, form % ("PUT", 201, r"\d+") + "$")
        self.assertRegex(get, form % ("GET", 200, 5) + "$")
        self.assertNotIn("new.txt", server.log())

    def test_a_line_is_an_object(self):
        server = self.serve(*USERS, Access_Log_File=self.logs / "access", Access_Log_Format="json")
        path = url_path("docs", 'a"b.txt')
        server.request("PUT", path, b"12345", {**ANNA, "User-Agent": "tool \\ \"x\""})
        put, = self.objects("access", 1)
        self.assertRegex(put.pop("time"), r"^20\d\d-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$")
        self.assertRegex(put.pop("id"), r"^[0-9a-f]{16}$")
        self.assertGreater(put.pop("duration_us"), 0)
        self.assertGreaterEqual(put.pop("sent"), 0)
        self.assertEqual(put, {"remote": "127.0.0.1", "user": "anna", "method": "PUT",
                               "target": path, "protocol": "HTTP/1.1", "status": 201,
                               "received": 5, "user_agent": "tool \\ \"x\""})

    def test_a_proxy_names_request_and_client(self):
        for trusted, name in ((["127.0.0.1"], "of-the.proxy_1"), ([], None)):
            with self.subTest(trusted=trusted):
                log = "access" + str(len(trusted))
                server = self.serve(Access_Log_File=self.logs / log, Access_Log_Format="json",
                                    **{"Trusted Proxies": trusted} if trusted else {})
                server.request("GET", url_path("docs", "1"), None, {
                    "X-Request-Id": "of-the.proxy_1", "X-Forwarded-For": "192.0.2.7"})
                server.request("GET", url_path("docs", "2"), None, {"X-Request-Id": "no good\""})
                first, second = sorted(self.objects(log, 2), key=lambda line: line["target"])
                self.assertEqual(first["remote"], "192.0.2.7" if trusted else "127.0.0.1")
                for line, given in ((first, name), (second, None)):
                    if given:
                        self.assertEqual(line["id"], given)
                    else:
                        self.assertRegex(line["id"], r"^[0-9a-f]{16}$")

    def test_what_is_no_request_has_a_line(self):
        server = self.serve(Access_Log_File=self.logs / "access")
        with socket.create_connection(("127.0.0.1", server.port)) as client:
            client.sendall(b"no request\r\n\r\n")
            self.assertTrue(client.recv(4096).startswith(b"HTTP/1.1 400 "))
        line, = self.lines("access", 1)
        self.assertRegex(line, r'^127\.0\.0\.1 - - \[\S+ \+0000\] ".*" 400 \d+ \d+ [0-9a-f]{16}$')


class Audit(LogCase):
    def test_changes_and_sign_ins_are_told(self):
        server = self.serve(*USERS, Audit_Log_File=self.logs / "audit", Guess_Delay=0)
        path, other = url_path("docs", "a"), url_path("docs", "b")
        target = server.url("docs", "b")
        self.assertEqual(server.request("PUT", path, b"x", GUESSER).status, 401)
        for method, headers, body in (("PUT", {}, b"x"), ("GET", {}, None),
                                      ("MOVE", {"Destination": target}, None),
                                      ("DELETE", {}, None)):
            server.request(method, path, body, {**ANNA, **headers})
        told = self.objects("audit", 6)
        for line in told:
            self.assertRegex(line.pop("time"), r"Z$")
            self.assertEqual(line.pop("remote"), "127.0.0.1")
            line.pop("id", None)
        self.assertCountEqual(told, [
            {"event": "sign-in", "user": "anna", "result": "denied"},
            {"event": "PUT", "user": "", "target": path, "status": 401},
            {"event": "sign-in", "user": "anna", "result": "granted"},
            {"event": "PUT", "user": "anna", "target": path, "status": 201},
            {"event": "MOVE", "user": "anna", "target": path, "destination": target, "status": 201},
            {"event": "DELETE", "user": "anna", "target": path, "status": 404},
        ])
        self.assertTrue(os.path.exists(self.tree / "b"), other)

    def test_guesses_that_are_not_checked_are_told(self):
        server = self.serve(*USERS, Audit_Log_File=self.logs / "audit", Guess_Delay=3600)
        throttled = None
        for _ in range(30):
            throttled = server.request("GET", url_path("docs"), None, {
                **GUESSER, "Authorization": GUESSER["Authorization"]}).status == 429
            if throttled:
                break
        self.assertTrue(throttled)
        wait_for(lambda: "throttled" in (self.logs.read("audit") or b"").decode(), "the line")


class Files(LogCase):
    def test_rotation(self):
        server = self.serve(Access_Log_File=self.logs / "access", Log_File=self.logs / "events")
        server.request("GET", url_path("docs", "one"))
        self.lines("access", 1)
        for name in ("access", "events"):
            os.rename(self.logs / name, self.logs / (name + ".1"))
        server.process.send_signal(signal.SIGUSR1)
        wait_for(lambda: os.path.exists(self.logs / "access"), "the new file")
        server.request("GET", url_path("docs", "two"))
        self.assertIn("/two ", self.lines("access", 1)[0])
        self.assertIn("/one ", self.lines("access.1", 1)[0])
        server.process.send_signal(signal.SIGHUP)
        self.assertIn("info kestd: reading the configuration again", self.lines("events", 1)[0])

    def test_a_full_disk_stops_nothing(self):
        os.symlink("/dev/full", self.logs / "access")
        server = self.serve(Access_Log_File=self.logs / "access")
        self.assertEqual(server.request("PUT", url_path("docs", "a"), b"x").status, 201)
        wait_for(lambda: "1 log lines lost: No space left on device" in server.log(), "the count")
        self.assertEqual(server.request("GET", url_path("docs", "a")).body, b"x")

    def test_what_goes_wrong_names_its_request(self):
        server = self.serve(Access_Log_File=self.logs / "access", Log_File=self.logs / "events")
        with open(os.fsencode(self.tree.path) + b"/no text \xff", "wb"):
            pass  # a name that no URL can have is left out, and the log says so
        self.assertEqual(server.request("PROPFIND", url_path("docs"), None,
                                        {"Depth": "1"}).status, 207)
        request, = self.lines("access", 1)
        said = wait_for(lambda: [line for line in self.logs.read("events").decode().splitlines()
                                 if "names in" in line], "the warning")
        self.assertTrue(said[0].endswith(f" [{request.split()[-1]}]"), said)


class Journal(LogCase):
    def test_severities_stand_in_front(self):
        """Standard error is the journal when the service manager says so with its device and inode."""
        script = 'JOURNAL_STREAM=$(stat -L -c %d:%i /proc/self/fd/2) exec "$@"'
        server = TestServer({"docs": self.tree.path}, wrapper=("bash", "-c", script, "bash"))
        self.addCleanup(server.close)
        server.process.send_signal(signal.SIGHUP)
        wait_for(lambda: "<6>info kestd: reading the configuration again\n" in server.log(),
                 "the line")


if __name__ == "__main__":
    unittest.main()
