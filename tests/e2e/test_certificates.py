# SPDX-License-Identifier: Apache-2.0
"""Signing in by a client's certificate."""

import os
import signal
import ssl
import unittest
import urllib.error
import urllib.request

import harness
from access_rules import rule, rules
from harness import TestServer, Tree, run, wait_for
from test_program import basic

EXTENSIONS = """[ca]
basicConstraints=critical,CA:TRUE
[client]
extendedKeyUsage=clientAuth
[server]
extendedKeyUsage=serverAuth
subjectAltName=IP:127.0.0.1
[authority]
database={directory}/index
crlnumber={directory}/number
default_md=sha256
default_crl_days=30
"""


class Authority:
    """Makes certificates, and revokes them."""

    def __init__(self, directory, name):
        self.directory, self.name = directory, name
        self.extensions = os.path.join(directory, f"{name}.cnf")
        for file, text in ((self.extensions, EXTENSIONS.format(directory=directory)),
                           (os.path.join(directory, "index"), ""),
                           (os.path.join(directory, "number"), "01\n")):
            with open(file, "w", encoding="ascii") as out:
                out.write(text)
        self.openssl("req", "-x509", *self.new_key(name), "-subj", f"/CN={name}", "-days", "2",
                     "-config", self.extensions, "-extensions", "ca")

    def openssl(self, *words):
        status, text = run("openssl", *words, cwd=self.directory)
        if status:
            raise harness.Failure(text)

    @staticmethod
    def new_key(name):
        return ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-keyout",
                f"{name}.key", "-out", f"{name}.pem")

    def issue(self, file, subject, kind="client", days=1):
        self.openssl("req", *self.new_key(file)[:-1], f"{file}.csr", "-subj", subject, "-utf8",
                     "-config", self.extensions)
        self.openssl("x509", "-req", "-in", f"{file}.csr", "-CA", f"{self.name}.pem", "-CAkey",
                     f"{self.name}.key", "-CAcreateserial", "-out", f"{file}.pem", "-days",
                     str(days), "-extfile", self.extensions, "-extensions", kind)

    def revoke(self, *files):
        at = ("-config", self.extensions, "-name", "authority", "-cert", f"{self.name}.pem",
              "-keyfile", f"{self.name}.key")
        for file in files:
            self.openssl("ca", *at, "-revoke", f"{file}.pem")
        self.openssl("ca", *at, "-gencrl", "-out", "crl.pem")

    def path(self, file):
        return os.path.join(self.directory, file)


class Certificates(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.made = Tree()
        cls.addClassCleanup(cls.made.remove)
        cls.authority = Authority(cls.made.path, "ours")
        cls.authority.issue("server", "/CN=127.0.0.1", "server")
        for file, subject in (("anna", "/O=org/CN=anna"), ("ben", "/CN=bén"), ("none", "/O=org"),
                              ("two", "/CN=anna/CN=ben"), ("bad", "/CN=a:b")):
            cls.authority.issue(file, subject)
        cls.authority.issue("machine", "/CN=anna", "server")
        cls.authority.revoke()
        other = Authority(os.path.join(cls.made.path), "theirs")
        other.issue("stranger", "/CN=anna")

    def serve(self, more=None, **auth):
        self.tree = Tree()
        self.addCleanup(self.tree.remove)
        self.tree.write("file", b"content")
        path = self.authority.path
        settings = {"Server": {"TLS Certificate": path("server.pem"),
                               "TLS Key": path("server.key")},
                    "Auth": {"Sources": ["certificate", "users"], "Client CA": path("ours.pem"),
                             **auth}, **(more or {})}
        server = TestServer({"docs": self.tree.path}, ("--user", "otto:orange"), settings)
        self.addCleanup(server.close)
        return server

    def status(self, server, file=None, headers=None, method="GET", body=None):
        context = ssl.create_default_context(cafile=self.authority.path("ours.pem"))
        if file:
            context.load_cert_chain(self.authority.path(f"{file}.pem"),
                                    self.authority.path(f"{file}.key"))
        request = urllib.request.Request(server.url("docs", "file"), body, headers or {},
                                         method=method)
        try:
            with urllib.request.urlopen(request, context=context, timeout=harness.PATIENCE) as reply:
                reply.read()
                return reply.status
        except urllib.error.HTTPError as refused:
            with refused:
                return refused.code
        except (urllib.error.URLError, ConnectionError, ssl.SSLError):
            return 0  # TLS itself has failed

    def test_the_common_name_is_the_user(self):
        server = self.serve(rules(
            all=rule("/docs", ("list", "read"), ["everybody"]),
            anna=rule("/docs", ("list", "read", "create", "change"), ["user:anna"]),
            ben=rule("/docs", ("list",), ["user:bén"])))
        self.assertEqual(self.status(server), 401)
        self.assertEqual(self.status(server, "anna"), 200)
        self.assertEqual(self.status(server, "anna", None, "PUT", b"new"), 204)
        self.assertEqual(self.status(server, "ben"), 403)
        self.assertEqual(self.status(server, None, basic("otto", "orange")), 200)
        self.assertEqual(self.status(server, None, basic("otto", "orange"), "PUT", b"x"), 403)
        self.assertEqual(self.status(server, "anna", basic("otto", "orange"), "PUT", b"x"), 204)

    def test_a_certificate_without_a_users_name_is_none(self):
        server = self.serve()
        for file in ("none", "two", "bad"):
            self.assertEqual(self.status(server, file), 401, file)
            self.assertEqual(self.status(server, file, basic("otto", "orange")), 200, file)

    def test_what_nobody_vouches_for_ends_the_handshake(self):
        server = self.serve()
        for file in ("stranger", "machine"):  # of others; not for clients
            self.assertEqual(self.status(server, file), 0, file)
        self.assertEqual(self.status(server, "anna"), 200)

    def test_a_revoked_one_is_refused_after_a_reload(self):
        server = self.serve(**{"Client CRL": self.authority.path("crl.pem")})
        self.authority.issue("carol", "/CN=carol")
        self.assertEqual(self.status(server, "carol"), 200)
        self.authority.revoke("carol")
        self.assertEqual(self.status(server, "carol"), 200)  # until the server reads the list
        server.process.send_signal(signal.SIGHUP)
        wait_for(lambda: self.status(server, "carol") == 0, "the list")
        self.assertEqual(self.status(server, "anna"), 200)

    def test_mistakes_are_told(self):
        for name in ("Client CA", "Client CRL"):
            with self.assertRaises(harness.Failure) as failure:
                self.serve(**{name: self.authority.path("server.key")})
            self.assertIn(f"'{name}'", str(failure.exception))


if __name__ == "__main__":
    unittest.main()
