# SPDX-License-Identifier: Apache-2.0
"""Signing in by a trusted proxy that names the user."""

import http.client
import os
import re
import unittest

import harness
from access_rules import rule, rules
from harness import PATIENCE, TestServer, Tree, exchange, run, url_path, wait_for
from proxies import Nginx, sample
from test_program import basic

PROXY, STRANGER = "127.0.0.5", "127.0.0.6"


def settings(**more):
    return {"Server": {"Trusted Proxies": [PROXY]}, "Auth": {"Sources": ["users", "proxy"]}, **more}


class Named(unittest.TestCase):
    """Requests that come from the proxy's address, and from another one."""

    def serve(self, more=None, options=("--user", "anna:apple")):
        self.tree = Tree()
        self.addCleanup(self.tree.remove)
        self.tree.write("file", b"content")
        server = TestServer({"docs": self.tree.path}, options, settings(**(more or {})))
        self.addCleanup(server.close)
        return server

    def ask(self, server, headers, source=PROXY, method="GET", body=None):
        client = http.client.HTTPConnection("127.0.0.1", server.port, timeout=PATIENCE,
                                            source_address=(source, 0))
        try:
            return exchange(client, method, url_path("docs", "file"), body, headers)
        finally:
            client.close()

    def status(self, *arguments, **more):
        return self.ask(*arguments, **more).status

    def test_who_the_proxy_names_is_in(self):
        server = self.serve()
        self.assertEqual(self.status(server, {}), 401)
        self.assertEqual(self.ask(server, {"Remote-User": "berta"}).body, b"content")
        self.assertEqual(self.status(server, {"Remote-User": ""}), 401)
        wait_for(lambda: " berta [" in server.log(), "the access log's line")

    def test_nobody_else_names_a_user(self):
        server = self.serve()
        for name in ("berta", "anna"):
            self.assertEqual(self.status(server, {"Remote-User": name}, source=STRANGER), 401)
        named = {"Remote-User": "berta", "X-Forwarded-For": PROXY}
        self.assertEqual(self.status(server, named, source=STRANGER), 401)
        signed_in = {"Remote-User": "berta", **basic("anna", "apple")}
        self.assertEqual(self.status(server, signed_in, source=STRANGER), 200)
        wait_for(lambda: " anna [" in server.log(), "the access log's line")
        self.assertNotIn("berta", server.log())

    def test_what_the_client_can_have_added_is_refused(self):
        server = self.serve()
        twice = (b"GET /Ferro/docs/file HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n"
                 b"Remote-User: root\r\nRemote-User: berta\r\n\r\n")
        groups = twice.replace(b"Remote-User: root", b"Remote-Groups: a\r\nRemote-Groups: b")
        for request in (twice, groups):
            client = http.client.socket.create_connection(
                ("127.0.0.1", server.port), PATIENCE, source_address=(PROXY, 0))
            with client:
                client.sendall(request)
                self.assertIn(b" 400 ", client.makefile("rb").readline())
        for name in ("a:b", "x" * 200, "a\\b", "#a"):
            self.assertEqual(self.status(server, {"Remote-User": name}), 400, name)

    def test_groups_are_those_of_the_rules(self):
        server = self.serve(rules(
            readers=rule("/docs", ["list", "read"], ["everybody"]),
            writers=rule("/docs", ["list", "read", "create", "change"], ["group:editors"])),
            ("--user", "anna:apple", "--dialect", "standard"))
        reader = {"Remote-User": "berta", "Remote-Groups": "Staff"}
        writer = {"Remote-User": "berta", "Remote-Groups": "staff,Editors"}
        self.assertEqual(self.status(server, reader, method="PUT", body=b"new"), 403)
        self.assertEqual(self.status(server, writer, method="PUT", body=b"new"), 204)
        self.assertEqual(self.status(server, reader, method="PUT", body=b"newer"), 403)
        self.assertEqual(self.ask(server, reader).body, b"new")

    def test_a_program_of_such_a_user_has_an_app_password(self):
        apps = Tree()
        self.addCleanup(apps.remove)
        server = self.serve({"Auth": {"Sources": ["proxy"],
                                      "App Passwords File": os.path.join(apps.path, "file")}}, ())
        config = os.path.join(server.state, "test.toml")
        status, text = run(harness.KESTD, "user", "app-password", "add", "berta", "phone",
                           "--config", config)
        self.assertEqual(status, 0, text)
        secret = re.search("^kest-[a-z2-7]{8}-[a-z2-7]{32}$", text, re.MULTILINE)[0]
        wait_for(lambda: self.status(server, basic("berta", secret)) == 200, "that it is taken")
        self.assertEqual(self.status(server, basic("berta", secret), source=STRANGER), 200)
        self.assertEqual(self.status(server, basic("carol", secret), source=STRANGER), 401)
        self.assertEqual(self.status(server, basic("berta", "apple"), source=STRANGER), 401)

    def test_it_is_refused_where_no_proxy_is_trusted(self):
        with self.assertRaises(harness.Failure) as failure:
            TestServer({"docs": self.plain_tree()}, (), {"Auth": {"Sources": ["proxy"]}})
        self.assertIn("without 'Trusted Proxies'", str(failure.exception))

    def plain_tree(self):
        tree = Tree()
        self.addCleanup(tree.remove)
        return tree.path


class BehindNginx(unittest.TestCase):
    """nginx asks for the password, as docs/proxies says."""

    def test_the_sample(self):
        tree = Tree()
        self.addCleanup(tree.remove)
        tree.write("file", b"content")
        users = os.path.join(tree.path, "users")
        _, hashed = run("openssl", "passwd", "-apr1", "cherry")
        with open(users, "w", encoding="ascii") as file:
            file.write(f"carol:{hashed}")
        os.chmod(tree.path, 0o755)
        os.chmod(users, 0o644)
        server = TestServer({"docs": tree.path}, (), {
            "Server": {"Trusted Proxies": ["127.0.0.1"]}, "Auth": {"Sources": ["proxy"]}})
        self.addCleanup(server.close)
        text = sample("nginx-sign-in.conf").replace("/etc/nginx/users", users)
        proxy = Nginx(server.port, text)
        self.addCleanup(proxy.close)

        def ask(headers):
            client = http.client.HTTPConnection("127.0.0.1", proxy.port, timeout=PATIENCE)
            try:
                return exchange(client, "GET", url_path("docs", "file"), None,
                                {"Host": "files.example.org", **headers})
            finally:
                client.close()
        self.assertEqual(ask({}).status, 401)
        self.assertEqual(ask({"Remote-User": "carol"}).status, 401)
        self.assertEqual(ask(basic("carol", "cherry")).body, b"content")
        self.assertEqual(ask({**basic("carol", "cherry"), "Remote-User": "root"}).status, 200)
        wait_for(lambda: server.log().count(" carol [") == 2, "the access log")
        self.assertNotIn("root", server.log())


if __name__ == "__main__":
    unittest.main()
