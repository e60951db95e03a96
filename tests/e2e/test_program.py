# SPDX-License-Identifier: Apache-2.0
"""The program as an administrator uses it: configuration, users, TLS, reload, stop."""

import base64
import http.client
import os
import re
import signal
import socket
import subprocess
import threading
import unittest

import harness
from dav import multistatus
from harness import Failure, ServerCase, TestServer, Tree, curl, registry_text, run, url_path, \
    wait_for


def basic(name, password):
    text = base64.b64encode(f"{name}:{password}".encode()).decode()
    return {"Authorization": f"Basic {text}"}


class Dialects(unittest.TestCase):
    """Replacing a file is 204 in the standard dialect and 201 in the classic one."""

    def setUp(self):
        self.addCleanup(setattr, harness, "DIALECT", harness.DIALECT)
        harness.DIALECT = None
        self.tree = Tree()
        self.addCleanup(self.tree.remove)

    def replaced(self, options=(), settings=None):
        with TestServer({"docs": self.tree.path}, options, settings) as server:
            server.request("PUT", url_path("docs", "f"), b"one")
            return server.request("PUT", url_path("docs", "f"), b"two").status

    def test_standard_is_what_the_server_chooses(self):
        self.assertEqual(self.replaced(), 204)

    def test_the_file_chooses_another(self):
        self.assertEqual(self.replaced(settings={"KestDav": {"Dialect": "classic"}}), 201)

    def test_the_option_wins_over_the_file_also_after_a_reload(self):
        settings = {"KestDav": {"Dialect": "classic"}}
        with TestServer({"docs": self.tree.path}, ("--dialect", "standard"), settings) as server:
            server.request("PUT", url_path("docs", "f"), b"one")
            settings["KestDav"]["Read-Write Block Size"] = 4096  # the log will tell of it
            with open(os.path.join(server.state, "test.toml"), "w", encoding="utf-8") as out:
                out.write(registry_text(settings))
            server.process.send_signal(signal.SIGHUP)
            wait_for(lambda: "Read-Write Block Size" in server.log(), "the file to be read again")
            self.assertEqual(server.request("PUT", url_path("docs", "f"), b"two").status, 204)
            self.assertNotIn("Dialect", server.log())


class Commands(ServerCase):
    def test_help_and_version(self):
        status, text = run(harness.KESTD, "--help")
        self.assertEqual(status, 0)
        self.assertIn("kestd serve", text)
        status, text = run(harness.KESTD, "--version")
        self.assertEqual(status, 0)
        self.assertRegex(text, r"\d+\.\d+")

    def test_unknown_option_is_named(self):
        status, text = run(harness.KESTD, "serve", "--nonsense")
        self.assertNotEqual(status, 0)
        self.assertIn("--nonsense", text)

    def test_taken_port_is_told(self):
        status, text = run(harness.KESTD, "serve", "--listen", f"127.0.0.1:{self.server.port}",
                           "--state-dir", self.tree.path, f"x={self.tree.path}")
        self.assertNotEqual(status, 0)
        self.assertIn(str(self.server.port), text)

    def test_other_addresses_need_users(self):
        status, text = run(harness.KESTD, "serve", "--listen", "0.0.0.0:0",
                           "--state-dir", self.tree.path, f"x={self.tree.path}")
        self.assertNotEqual(status, 0)
        self.assertIn("user", text)

    def test_wrong_configuration_names_file_and_line(self):
        cases = {
            "syntax": "['Kest\\Configuration\\Server']\n'Listen' = [",
            "type": "['Kest\\Configuration\\Server']\n\n'Connections' = 'many'\n",
            "range": "['Kest\\Configuration\\Server']\n\n'Connections' = 0\n",
        }
        for name, text in cases.items():
            with self.subTest(name):
                path = self.tree.write(f"{name}.toml", text)
                status, said = run(harness.KESTD, "serve", "--config", path, "--listen",
                                   "127.0.0.1:0", "--state-dir", self.tree.path,
                                   f"x={self.tree.path}", timeout=60)
                self.assertNotEqual(status, 0)
                self.assertRegex(said, rf"{name}\.toml:\d+")
        status, said = run(harness.KESTD, "serve", "--config", self.tree / "missing.toml")
        self.assertNotEqual(status, 0)
        self.assertIn("missing.toml", said)

    def test_setting_that_nobody_reads_stops_the_start(self):
        with self.assertRaisesRegex(Failure, "unknown setting 'Conections'"):
            TestServer({"t": self.tree.path}, settings={"Server": {"Conections": 5}})

    def test_reader_of_the_ready_line_may_go_away(self):
        # A script that reads one line and closes the pipe must not end the server.
        self.server.process.stdout.close()
        self.assertEqual(self.server.request("OPTIONS", "/").status, 200)
        self.server.process.stdout = open(os.devnull, "rb")

    def test_log_names_requests_without_their_markup(self):
        self.server.request("GET", self.path("log\"me\x1b[31m"))
        self.assertNotIn("\x1b", self.server.log())


class Users(ServerCase):
    options = ("--user", "alice:wonder land", "--user", "bob:pässword")

    def test_only_users_with_their_password_get_in(self):
        path = self.path("file")
        reply = self.server.request("PUT", path, b"x")
        self.assertEqual(reply.status, 401)
        self.assertIn("Basic", reply.headers["www-authenticate"])
        for name, password in (("alice", "wrong"), ("nobody", "x"), ("", "")):
            reply = self.server.request("PUT", path, b"x", basic(name, password))
            self.assertEqual(reply.status, 401)
        self.assertFalse(os.path.exists(self.tree / "file"))
        for name, password in (("alice", "wonder land"), ("bob", "pässword"),
                               ("DOMAIN\\alice", "wonder land")):
            reply = self.server.request("PUT", path, name.encode(), basic(name, password))
            self.assertEqual(reply.status, 201 if name == "alice" else 204, name)

    def test_broken_credentials_are_refused(self):
        for value in ("Basic", "Basic !!!", "Basic YWxpY2U=", "Bearer x", "Basic " + "A" * 5000):
            reply = self.server.request("GET", self.path("f"), headers={"Authorization": value})
            self.assertIn(reply.status, (400, 401), value)

    def test_curl_signs_in(self):
        source = self.tree.write("source", b"from curl")
        reply = curl("-u", "alice:wonder land", "-T", source, self.docs("by curl"))
        self.assertEqual(reply.status, 201)


class Guessing(ServerCase):
    """Somebody guesses passwords as fast as he can: nobody else notices."""

    options = [word for i in range(12) for word in ("--user", f"user{i}:right{i}")]

    def guess(self, source, names, stop, statuses):
        connection = http.client.HTTPConnection("127.0.0.1", self.server.port,
                                                timeout=harness.PATIENCE,
                                                source_address=(source, 0))
        turn = 0
        while not stop.is_set():
            turn += 1
            name = names[turn % len(names)]
            try:
                connection.request("PROPFIND", url_path("docs"),
                                   headers=basic(name, f"wrong{turn}"))
                reply = connection.getresponse()
                reply.read()
                statuses.append((reply.status, reply.headers.get("retry-after")))
                if reply.status == 429 or reply.status == 503:
                    stop.wait(0.02)
            except OSError:
                connection.close()
        connection.close()

    def test_users_sign_in_while_forty_connections_guess(self):
        # Names that exist and names that do not, each guess another one.
        names = ["root", "admin"] + [f"made up {i}" for i in range(400)]
        stop, statuses = threading.Event(), []
        guessers = [threading.Thread(target=self.guess, args=("127.0.0.9", names, stop, statuses))
                    for _ in range(40)]
        for thread in guessers:
            thread.start()
        try:
            wait_for(lambda: len(statuses) > 100, "the guesses")
            for i in range(12):
                reply = self.server.request("PROPFIND", url_path("docs"),
                                            headers=basic(f"user{i}", f"right{i}"))
                self.assertEqual(reply.status, 207, f"user{i}")
        finally:
            stop.set()
            for thread in guessers:
                thread.join()

    def test_a_guesser_is_told_when_to_come_again(self):
        replies = []
        for i in range(12):
            replies.append(self.server.request("PROPFIND", url_path("docs"),
                                               headers=basic("victim", f"wrong{i}")))
        self.assertEqual([reply.status for reply in replies[:6]], [401] * 6)
        self.assertIn(429, [reply.status for reply in replies])
        told = next(reply for reply in replies if reply.status == 429)
        self.assertGreaterEqual(int(told.headers["retry-after"]), 1)
        # The documented expression finds the address.
        with open(os.path.join(harness.ROOT, "docs", "operations.md"), encoding="utf-8") as text:
            pattern = re.search(r"^(\^\\S\+ warning .*<HOST>.*)$", text.read(), re.MULTILINE)[1]
        pattern = pattern.replace("<HOST>", r"(?P<host>\S+)")
        found = wait_for(lambda: [match for line in self.server.log().splitlines()
                                  if (match := re.search(pattern, line)) and "victim" in line],
                         "the lines of the log")
        self.assertEqual({match["host"] for match in found}, {"127.0.0.1"})


class UsersFile(ServerCase):
    def setUp(self):
        self.own = Tree()
        self.addCleanup(self.own.remove)
        self.file = self.own / "users"

    def user(self, *arguments, password=None):
        return run(harness.KESTD, "user", *arguments, "--users-file", self.file,
                   stdin=None if password is None else (password + "\n").encode())

    def test_users_are_added_changed_and_removed_while_it_runs(self):
        self.assertEqual(self.user("add", "carol", password="one")[0], 0)
        self.assertEqual(os.stat(self.file).st_mode & 0o077, 0)
        with open(self.file, encoding="utf-8") as text:
            self.assertNotIn("one", text.read().split(":")[1])
        settings = {"Server": {"Users File": self.file}}
        with TestServer({"docs": self.tree.path}, settings=settings) as server:
            def status(password):
                return server.request("PROPFIND", url_path("docs"),
                                      headers=basic("carol", password)).status

            self.assertEqual((status("one"), status("two")), (207, 401))
            self.assertEqual(self.user("passwd", "carol", password="two")[0], 0)
            server.process.send_signal(signal.SIGHUP)
            wait_for(lambda: status("two") == 207, "the new password to count")
            self.assertEqual(status("one"), 401)
            self.assertIn("carol", self.user("list")[1])
            self.assertEqual(self.user("add", "dave", password="x")[0], 0)
            self.assertEqual(self.user("remove", "carol")[0], 0)
            server.process.send_signal(signal.SIGHUP)
            wait_for(lambda: status("two") == 401, "the removed user to be refused")

    def test_command_line_wins_over_the_file(self):
        self.assertEqual(self.user("add", "frank", password="of the file")[0], 0)
        settings = {"Server": {"Users File": self.file}}
        with TestServer({"docs": self.tree.path}, ["--user", "frank:of the line"],
                        settings) as server:
            for password, status in (("of the line", 207), ("of the file", 401)):
                reply = server.request("PROPFIND", url_path("docs"),
                                       headers=basic("frank", password))
                self.assertEqual(reply.status, status, password)

    def test_wrong_use_is_told(self):
        self.assertNotEqual(self.user("remove", "nobody")[0], 0)
        self.assertEqual(self.user("add", "eve", password="x")[0], 0)
        self.assertNotEqual(self.user("add", "eve", password="x")[0], 0)


class Reload(ServerCase):
    def test_wrong_new_settings_leave_the_old_ones(self):
        own = Tree()
        path = own.write("kest.toml", registry_text({"Server": {"Access Log": False}}))
        try:
            with TestServer({"docs": own.path}, ["--config", path]) as server:
                server.request("GET", url_path("docs", "quiet"))
                own.write("kest.toml", "['Kest\\Configuration\\Server']\n'Access Log' = 'maybe'\n")
                server.process.send_signal(signal.SIGHUP)
                wait_for(lambda: "kest.toml" in server.log(), "the complaint")
                server.request("GET", url_path("docs", "quiet"))
                self.assertNotIn("/docs/quiet", server.log())
                own.write("kest.toml", registry_text({"Server": {"Access Log": True}}))
                server.process.send_signal(signal.SIGHUP)
                wait_for(lambda: server.request("GET", url_path("docs", "loud"))
                         and "/docs/loud" in server.log(), "the access log")
        finally:
            own.remove()


class MissingFiles(ServerCase):
    """Whatever the configuration names has to be there: to be served without it is not wanted."""

    def setUp(self):
        self.own = Tree()
        self.addCleanup(self.own.remove)

    def certificate(self):
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:P-256", "-nodes", "-days", "1", "-subj", "/CN=x",
                        "-keyout", self.own / "key.pem", "-out", self.own / "cert.pem"],
                       check=True, capture_output=True)

    def cases(self):
        """Text of a configuration for each setting, with a place for a path, and a path that
        serves."""
        self.certificate()
        cert, key = self.own / "cert.pem", self.own / "key.pem"
        os.makedirs(self.own / "folder", exist_ok=True)
        self.own.write("users", "")
        server = "['Kest\\Configuration\\Server']\n"
        class_id = "{B3AE2BF6-28BB-4DFC-8CB2-5AE85E2B16A6}"
        return {
            "Users File": (server + "'Users File' = '%s'\n", self.own / "users"),
            "TLS Certificate":
                (server + f"'TLS Certificate' = '%s'\n'TLS Key' = '{key}'\n", cert),
            "TLS Key": (server + f"'TLS Certificate' = '{cert}'\n'TLS Key' = '%s'\n", key),
            "Wharf Directory": (server + "'Wharf Directory' = '%s'\n", self.own / "folder"),
            "Template Directory": ("['Kest\\Configuration\\KestDav']\n"
                                   "'Template Directory' = '%s/'\n", self.own / "folder"),
            "CA Certificate": ("['Kest\\Configuration\\Directory']\n"
                               "'CA Certificate' = '%s'\n", cert),
            "vol": ("['Kest\\Configuration\\FileStore\\Volumes']\n'vol' = '%s'\n",
                    self.own / "folder"),
            "Library": (f"['Tolm\\Classes\\{class_id}']\n'Library' = '%s'\n",
                        os.path.join(os.path.dirname(harness.KESTD), "..", "lib", "filestore.so")),
        }

    def test_each_stops_the_start_and_is_named(self):
        for name, (text, _) in self.cases().items():
            with self.subTest(name):
                path = self.own.write("kest.toml", text % (self.own / "missing"))
                for command in ("check", "serve"):
                    status, said = run(harness.KESTD, command, "--config", path, "--listen",
                                       "127.0.0.1:0", "--state-dir", self.own.path,
                                       f"x={self.tree.path}", timeout=60)
                    self.assertEqual(status, 1, said)
                    self.assertIn(self.own / "missing", said)
                    self.assertIn(name, said)
        self.assertEqual(os.listdir(self.own / "folder"), [])

    def test_a_file_of_the_wrong_kind_stops_the_start(self):
        for name, (text, path) in self.cases().items():
            with self.subTest(name):
                wrong = self.own / ("kest.toml" if os.path.isdir(path) else "folder")
                config = self.own.write("kest.toml", text % wrong)
                status, said = run(harness.KESTD, "check", "--config", config)
                self.assertEqual(status, 1, said)
                self.assertIn(name, said)

    def test_a_named_state_directory_is_there(self):
        for command in ("check", "serve"):
            status, said = run(harness.KESTD, command, "--state-dir", self.own / "missing",
                               "--listen", "127.0.0.1:0", timeout=60)
            self.assertEqual(status, 1)
            self.assertIn(self.own / "missing", said)
        self.assertFalse(os.path.exists(self.own / "missing"))

    def test_none_is_lost_by_a_reload(self):
        users = self.own / "users"
        self.assertEqual(run(harness.KESTD, "user", "add", "carol", "--users-file", users,
                             stdin=b"one\n")[0], 0)
        config = self.own / "kest.toml"
        self.own.write("kest.toml", registry_text({"Server": {"Users File": users}}))
        with TestServer({"docs": self.own.path}, ["--config", config]) as server:
            for name, (text, _) in self.cases().items():
                with self.subTest(name):
                    said = len(server.log())
                    self.own.write("kest.toml", text % (self.own / "missing"))
                    server.process.send_signal(signal.SIGHUP)
                    wait_for(lambda: "the old settings stay" in server.log()[said:], "the refusal")
                    self.assertIn(self.own / "missing", server.log()[said:])
                    reply = server.request("PROPFIND", url_path("docs"))
                    self.assertEqual(reply.status, 401)
                    reply = server.request("PROPFIND", url_path("docs"),
                                           headers=basic("carol", "one"))
                    self.assertEqual(reply.status, 207)

    def test_a_users_file_without_users_lets_nobody_in(self):
        users = self.own.write("users", "")
        with TestServer({"docs": self.own.path}, settings={"Server": {"Users File": users}}) \
                as server:
            self.assertEqual(server.request("PROPFIND", url_path("docs")).status, 401)
            self.assertIn("nobody can sign in", server.log())


class UnreadLog(ServerCase):
    """Nobody reads standard error: requests go on, and the server ends when it is told to."""

    def serve(self, tree):
        process = subprocess.Popen(
            [harness.KESTD, "serve", "--listen", "127.0.0.1:0", "--state-dir", tree.path,
             f"docs={tree.path}"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        port = int(process.stdout.readline().rsplit(b":", 1)[1].split(b"/")[0])
        return process, port

    def ask(self, port, times):
        """Sends requests over one connection, each of which makes a line of the log."""
        connection = http.client.HTTPConnection("127.0.0.1", port, timeout=harness.PATIENCE)
        for _ in range(times):
            connection.request("OPTIONS", "/" + "a" * 1000)
            connection.getresponse().read()
        connection.close()

    def test_requests_and_the_end_do_not_wait_for_its_reader(self):
        tree = Tree()
        self.addCleanup(tree.remove)
        process, port = self.serve(tree)
        self.ask(port, 2000)  # 2 MB of lines
        process.send_signal(signal.SIGHUP)
        self.ask(port, 10)
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(harness.PATIENCE), 0)

    def test_lines_that_nobody_took_are_counted(self):
        tree = Tree()
        self.addCleanup(tree.remove)
        process, port = self.serve(tree)
        self.ask(port, 2000)
        pieces = []
        reader = threading.Thread(
            target=lambda: pieces.extend(iter(lambda: process.stderr.read1(65536), b"")))
        reader.start()
        self.ask(port, 1)

        def counted():
            text = b"".join(list(pieces)).decode(errors="replace")
            lost = sum(int(n) for n in re.findall(r" (\d+) log lines lost", text))
            return lost and text.count("OPTIONS /aaa") + lost == 2001

        wait_for(counted, "each line, or word of its loss")
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(harness.PATIENCE), 0)
        reader.join()


class Tls(ServerCase):
    def certificate(self, folder, name):
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:P-256", "-nodes", "-days", "1", "-subj", f"/CN={name}",
                        "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", folder / "key.pem",
                        "-out", folder / "cert.pem"], check=True, capture_output=True)

    def test_files_travel_over_tls_and_a_new_certificate_is_taken_over(self):
        own = Tree()
        try:
            self.certificate(own, "first")
            options = ["--tls-cert", own / "cert.pem", "--tls-key", own / "key.pem"]
            with TestServer({"docs": self.tree.path}, options) as server:
                self.assertEqual(server.scheme, "https")
                trust = ("--cacert", own / "cert.pem")
                data = harness.pattern(3_000_000)
                source = self.tree.write("source", data)
                self.assertEqual(curl(*trust, "-T", source, server.url("docs", "tls")).status, 201)
                self.assertEqual(curl(*trust, server.url("docs", "tls")).out, data)
                reply = curl(*trust, "-X", "PROPFIND", server.url("docs", "tls"))
                self.assertEqual([entry.href for entry in multistatus(reply.out)],
                                 [url_path("docs", "tls")])
                # The classic dialect writes the whole URL.
                with TestServer({"docs": self.tree.path},
                                [*options, "--dialect", "classic"]) as other:
                    reply = curl(*trust, "-X", "PROPFIND", other.url("docs", "tls"))
                    self.assertEqual([entry.href for entry in multistatus(reply.out)],
                                     [other.url("docs", "tls")])
                # Plain text on that port gets no file.
                with socket.create_connection(("127.0.0.1", server.port), 30) as sock:
                    sock.sendall(b"GET /Ferro/docs/tls HTTP/1.1\r\nHost: localhost\r\n\r\n")
                    self.assertNotIn(b"200 OK", harness.read_all(sock))
                self.certificate(own, "second")
                server.process.send_signal(signal.SIGHUP)
                # Only the new certificate is trusted now.
                wait_for(lambda: curl(*trust, server.url("docs", "tls")).status == 200,
                         "the new certificate")
        finally:
            own.remove()

    def test_missing_key_stops_the_start(self):
        with self.assertRaises(Failure):
            TestServer({"docs": self.tree.path}, ["--tls-cert", self.tree / "no.pem",
                                                  "--tls-key", self.tree / "no.pem"])
