# SPDX-License-Identifier: Apache-2.0
"""`kestd check`: all mistakes at once, "ok" where there are none, and nothing changed."""

import os
import shutil
import socket
import unittest

import harness
from harness import ROOT, TestServer, Tree, run

SERVER = "['Kest\\Configuration\\Server']\n"
STORE = "['Kest\\Configuration\\FileStore']\n"
VOLUMES = "['Kest\\Configuration\\FileStore\\Volumes']\n"
CLASS = "['Tolm\\Classes\\{B3AE2BF6-28BB-4DFC-8CB2-5AE85E2B16A6}']\n"
FOREIGN = ("['Tolm\\Classes\\{11111111-28BB-4DFC-8CB2-5AE85E2B16A6}']\n'Library' = '%s'\n")


class Check(unittest.TestCase):
    def setUp(self):
        self.own = Tree()
        self.addCleanup(self.own.remove)
        for folder in ("state", "docs/inner", "elsewhere"):
            os.makedirs(self.own / folder)
        os.symlink(self.own / "docs", self.own / "link")
        self.own.write("text", "no library")

    def call(self, command, text, *more):
        path = self.own.write("kest.toml", text)
        return run(harness.KESTD, command, *more, "--config", path, "--state-dir",
                   self.own / "state", *([] if "'Listen'" in text else ["--listen", "127.0.0.1:0"]),
                   timeout=60)

    def mistakes(self):
        """Text of a configuration, and what is said of it."""
        own = self.own
        docs = f"'docs' = '{own / 'docs'}'\n"
        library = os.path.join(os.path.dirname(harness.KESTD), "..", "lib", "filestore.so")
        return [
            (SERVER + "'Conections' = 5\n", "unknown setting 'Conections'; did you mean 'Connections'?"),
            (SERVER + "'Fnord' = 5\n", "unknown setting 'Fnord'\n"),
            ("['Kest\\Configuration\\Sever']\n'Realm' = 'x'\n",
             "unknown table 'Kest\\Configuration\\Sever'; did you mean 'Kest\\Configuration\\Server'?"),
            ("['Elsewhere']\n'Realm' = 'x'\n", "unknown table 'Elsewhere'\n"),
            (CLASS + f"'Library' = '{library}'\n'Libary' = 'x'\n", "did you mean 'Library'?"),
            (CLASS + f"'Library' = '{own / 'text'}'\n", "file too short"),
            (CLASS + f"'Library' = '{own / 'none.so'}'\n", "No such file"),
            (FOREIGN % library + "['Kest\\Configuration\\Sever']\n'Realm' = 'x'\n",
             "did you mean 'Kest\\Configuration\\Server'?"),
            (FOREIGN % library + SERVER + "'Realn' = 'x'\n", "did you mean 'Realm'?"),
            (STORE + "'Keep Deleted' = true\n", "expected a number, not true or false"),
            (SERVER + "'Head Time' = false\n", "expected a number, not true or false"),
            (SERVER + "'Access Log' = 2\n", "expected true or false"),
            (SERVER + "'Access Log Format' = 'xml'\n", "expected 'text' or 'json'"),
            (SERVER + "'Log File' = 'error.log'\n", "expected a full path"),
            (SERVER + f"'Access Log File' = '{own / 'none/log'}'\n",
             f"'{own / 'none'}': No such file"),
            (SERVER + f"'Audit Log File' = '{own / 'docs'}'\n", "is a directory, expected a file"),
            (SERVER + "'Listen' = '127.0.0.1:0'\n", "expected a list of texts"),
            (SERVER + "'Listen' = ['127.0.0.1:7', '127.0.0.1:7']\n", "to be listened on twice"),
            (VOLUMES + docs + f"'inner' = '{own / 'docs/inner'}'\n",
             "its directory lies in that of the volume 'docs'"),
            (VOLUMES + f"'inner' = '{own / 'docs/inner'}'\n" + docs,
             "its directory holds that of the volume 'inner'"),
            (VOLUMES + docs + f"'again' = '{own / 'link'}/'\n",
             "its directory is that of the volume 'docs'"),
            (VOLUMES + f"'none' = '{own / 'none'}'\n", "No such file"),
            (VOLUMES + f"'text' = '{own / 'text'}'\n", "is not a directory"),
            (SERVER + "'Trusted Proxies' = ['proxy']\n", "not 'proxy'"),
            (SERVER + "'PROXY Protocol' = ['127.0.0.1:0']\n", "without 'Trusted Proxies'"),
        ]

    def test_what_it_refuses_does_not_start(self):
        for text, said in self.mistakes():
            for command in ("check", "serve"):
                with self.subTest(said, command=command):
                    if "twice" in said and command == "serve":
                        said = "cannot listen on"  # it finds out itself
                    status, output = self.call(command, text)
                    self.assertEqual(status, 1, output)
                    self.assertIn(said, output)

    def test_all_mistakes_are_told_at_once(self):
        text = (SERVER + "'Conections' = 5\n'Realm' = ''\n'Head Time' = true\n'Worker Threads' = 0\n"
                "'TLS Certificate' = '/none/cert'\n'TLS Key' = '/none/key'\n" +
                STORE + "'Sync' = 'maybe'\n'Kep Free' = 1\n" +
                VOLUMES + "'none' = '/none/volume'\n" +
                "['Kest\\Configuration\\KestDav']\n'Dialect' = 'modern'\n"
                "['Kest\\Configuration\\Directory']\n'Backend' = 'file'\n")
        status, output = self.call("check", text)
        self.assertEqual(status, 1)
        for line, what in ((2, "'Connections'"), (3, "'Realm'"), (4, "'Head Time'"),
                           (5, "'Worker Threads'"), (6, "/none/cert"), (7, "/none/key"),
                           (9, "'Sync'"), (10, "'Keep Free'"), (12, "/none/volume"),
                           (14, "'Dialect'"), (16, "'Backend'")):
            self.assertRegex(output, rf"(?m)^kestd: \S*kest\.toml:{line}: .*{what}")
        self.assertEqual(len(output.splitlines()), 11, output)

    def test_what_is_right_is_ok(self):
        library = os.path.join(os.path.dirname(harness.KESTD), "..", "lib", "filestore.so")
        with open(os.path.join(ROOT, "packaging", "kest.toml"), encoding="utf-8") as file:
            shipped = file.read()
        docs = VOLUMES + f"'docs' = '{self.own / 'docs'}'\n'other' = '{self.own / 'elsewhere'}'\n"
        for text in ("", shipped, docs, SERVER + "'Access Log' = 1\n",
                     FOREIGN % library + "['Its\\Own\\Settings']\n'Name' = 'x'\n"):
            with self.subTest(text[-60:]):
                self.assertEqual(self.call("check", text), (0, "ok\n"))

    def test_an_address_in_use_is_told(self):
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", 0))
            taken.listen()
            port = taken.getsockname()[1]
            text = SERVER + f"'Listen' = ['127.0.0.1:0', '127.0.0.1:{port}']\n"
            status, output = self.call("check", text)
            self.assertEqual(status, 1)
            self.assertIn(f"cannot listen on 127.0.0.1:{port}: Address already in use", output)
            self.assertEqual(run(harness.KESTD, "check", "--running", "--config",
                                 self.own / "kest.toml", "--state-dir", self.own / "state"),
                             (0, "ok\n"))

    def test_nothing_changes_on_the_disk(self):
        self.own.write("kest.toml", VOLUMES + f"'docs' = '{self.own / 'docs'}'\n")
        before = sorted(os.walk(self.own.path))
        for more in ((), ("--config", self.own / "kest.toml")):
            self.assertEqual(run(harness.KESTD, "check", "--state-dir", self.own / "state",
                                 "--listen", "127.0.0.1:0", *more), (0, "ok\n"))
        self.assertEqual(sorted(os.walk(self.own.path)), before)
        shutil.rmtree(self.own / "state")
        status, output = run(harness.KESTD, "check", "--listen", "127.0.0.1:0", env={
            "STATE_DIRECTORY": self.own / "state", "XDG_STATE_HOME": self.own / "state"})
        self.assertFalse(os.path.exists(self.own / "state"), output)
        self.assertIn(status, (0, 1))

    def test_a_running_server_takes_its_own_addresses_for_free(self):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        path = self.own.write("kest.toml", SERVER + f"'Listen' = ['127.0.0.1:{port}']\n")
        with TestServer({"docs": self.own / "docs"}, ["--config", path]) as server:
            # TestServer's --listen wins; what counts is that a reload does not ask for ports.
            self.own.write("kest.toml", SERVER + f"'Listen' = ['127.0.0.1:{server.port}']\n")
            server.process.send_signal(1)
            harness.wait_for(lambda: "reading the configuration again" in server.log(), "a reload")
            self.assertEqual(server.request("OPTIONS", "/").status, 200)
            self.assertNotIn("cannot listen", server.log())
