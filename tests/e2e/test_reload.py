# SPDX-License-Identifier: Apache-2.0
"""SIGHUP with each setting changed: it counts from then on, or the log says that it waits."""

import os
import re
import signal
import socket
import subprocess
import time

import harness
from harness import ServerCase, TestServer, Tree, curl, run, url_path, wait_for
from test_program import basic

SHIPPED = os.path.join(harness.ROOT, "packaging", "kest.toml")
FILE_STORE = "{B3AE2BF6-28BB-4DFC-8CB2-5AE85E2B16A6}"
PREFIX = "Kest\\Configuration\\"


def shipped_settings():
    """(key, name) of every setting of the shipped file, those in comments included."""
    key, found = None, []
    with open(SHIPPED, encoding="utf-8") as lines:
        for line in lines:
            if match := re.match(r"#?\s*\['([^']+)'\]\s*$", line):
                key = match[1]
            elif match := re.match(r"#\s*'([^']+)' = ", line):
                found.append((key, match[1]))
    return found


def rule_changes():
    """For each value of an access rule: another one, with what a rule needs besides."""
    rest = ["'Who' = ['everybody']", "'Path' = '/archive'", "'Rights' = ['list']"]
    values = {"Who": "['anonymous']", "Path": "'/other'", "Rights": "['read']",
              "Allow": "['read']", "Deny": "['read']", "Make": "true"}
    changes = {}
    for name, value in values.items():
        without = "'Rights'" if name in ("Allow", "Deny") else f"'{name}'"
        changes[name] = ("\n".join([value, *(line for line in rest
                                             if not line.startswith(without))]), False)
    return changes


class Unaddressed(TestServer):
    """Listens where its configuration says."""

    def command(self):
        line = super().command()
        at = line.index("--listen")
        return line[:at] + line[at + 2:]


class EachSetting(ServerCase):
    """Walks the shipped configuration."""

    def setUp(self):
        self.addCleanup(setattr, harness, "DIALECT", harness.DIALECT)
        harness.DIALECT = None  # an option would win over the file
        self.own = Tree()
        self.addCleanup(self.own.remove)
        for folder in ("docs", "other", "wharf", "templates"):
            os.mkdir(self.own / folder)
        self.own.write("wharf/new.js", "new")
        self.own.write("docs/file", "content")
        self.own.write("users", "")
        for name, password in (("carol", "one"), ("dora", "two")):
            run(harness.KESTD, "user", "add", name, "--users-file", self.own / "users",
                stdin=(password + "\n").encode())
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:P-256", "-nodes", "-days", "1", "-subj", "/CN=x",
                        "-keyout", self.own / "key.pem", "-out", self.own / "cert.pem"],
                       check=True, capture_output=True)

    def changed_logs(self):
        file = f"'{self.own / 'log'}'"
        return {"Access Log": ("false", False), "Access Log Format": ("'json'", False),
                "Log File": (file, True), "Access Log File": (file, True),
                "Audit Log File": (file, True)}

    def changed_sign_in(self):
        own = self.own
        ldap = f"['{PREFIX}Auth\\LDAP']\n'Server' = 'ldap://127.0.0.1:1'"
        sign_in = {
            "Server": ("'ldap://127.0.0.1:1'", False), "Start TLS": ("true", False),
            "CA Certificate": (f"'{own / 'cert.pem'}'", False),
            "Bind Name": ("'cn=x'\n'Bind Password' = 'x'", False),
            "Bind Password": ("'x'", False), "Base": ("'o=x'", False),
            "User Filter": ("'(cn=%u)'", False), "User Name": ("'cn'", False),
            "Group Attribute": ("'x'", False), "Group Base": ("'o=x'", False),
            "Group Filter": ("'(x=%d)'", False), "Group Name": ("'x'", False),
            "Timeout": ("100", False), "Retry Time": ("1", False), "Checks At Once": ("1", False),
        }
        auth = {
            "Plain HTTP Passwords": ("true", False),
            "Sources": ("['users', 'ldap']\n" + ldap, False),
            "Htpasswd File": (f"'{own / 'users'}'", False),
            "App Passwords File": (f"'{own / 'apps'}'", False),
            "PAM Service": ("'other'", False),
            "Client CA": (f"'{own / 'cert.pem'}'", False),
            "Client CRL": (f"'{own / 'cert.pem'}'", False),
            "Proxy User Header": ("'X-User'", False), "Proxy Groups Header": ("'X-Groups'", False),
        }
        return {PREFIX + "Auth": auth, PREFIX + "Auth\\LDAP": sign_in}

    def changed(self):
        """For each setting: a value that is not its default, and whether it waits."""
        own = self.own
        library = os.path.join(os.path.dirname(harness.KESTD), "..", "lib", "filestore.so")
        tls = f"'TLS Certificate' = '{own / 'cert.pem'}'\n'TLS Key' = '{own / 'key.pem'}'"
        server = {
            "Listen": ("['127.0.0.1:1']", True), "Metrics Listen": ("['127.0.0.1:0']", True),
            "TLS Certificate": (tls, False), "TLS Key": (tls, False),
            "Public URL": ("'https://files.example.org'", False), "Realm": ("'Elsewhere'", False),
            **self.changed_logs(),
            "Compression": ("false", False), "Wharf Directory": (f"'{own / 'wharf'}'", False),
            "Users File": (f"'{own / 'users'}'", False), "Connections": ("1", False),
            "Worker Threads": ("3", False), "Head Size": ("1024", False),
            "Target Size": ("256", False), "XML Body Size": ("1024", False),
            "Body Size": ("10", False), "Head Time": ("200", False),
            "Body Idle Time": ("200", False), "Send Stall Time": ("200", False),
            "Keep-Alive Time": ("200", False), "Shutdown Time": ("100", False),
            "Session Timeout": ("10", False), "Sessions": ("9", False),
            "Browser Sessions": ("3", False), "Session Objects": ("3", True),
            "Password Waiters": ("3", False), "Credential Cache": ("3", False),
            "Credential Time": ("3", False), "Guess Delay": ("0", False),
            "Connections Per Address": ("900", False), "Waiting Requests": ("900", False),
            "Waiting Requests Per Address": ("90", False), "Least Rate": ("100", False),
            "Rate Time": ("50000", False), "Trusted Proxies": ("['10.0.0.0/8']", False),
            "Proxy Headers": ("'forwarded'", False),
            "PROXY Protocol": ("['127.0.0.1:0']\n'Trusted Proxies' = ['10.0.0.0/8']", True),
        }
        module = {
            "Moniker": ("'/Other'", True), "Read-Write Block Size": ("4096", True),
            "Dialect": ("'classic'", True), "Infinity Entries": ("10", True),
            "Template Directory": (f"'{own / 'templates'}/'", True),
        }
        store = {
            "Sync": ("'none'", True), "Keep Deleted": ("0", True),
            "Server Address": ("'127.0.0.2'", True), "Keep Free": ("1", True),
            "Reserve": ("64", True), "Upload Time": ("60", True),
        }
        directory = {
            "Backend": ("'ldap'\n'Server' = 'ldap://127.0.0.1:1'", False), "Tree": ("'X'", False),
            "Server": ("'ldap://127.0.0.1:1'", False), "Base": ("'o=x'", False),
            "Bind Name": ("'cn=x'", False), "Bind Password": ("'x'", False),
            "Start TLS": ("true", False), "CA Certificate": (f"'{own / 'cert.pem'}'", False),
            "Timeout": ("100", False), "Cache Time": ("1", False), "Cache Entries": ("1", False),
            "Retry Time": ("1", False),
        }
        attributes = {name: ("'x'", False) for name in (
            "Internet EMail Address", "CN", "Full Name", "Surname", "Given Name",
            "Telephone Number")}
        prefix = PREFIX
        keys = {
            prefix + "Access\\Groups": {"staff": ("['anna']", False)},
            prefix + "Access\\Rules\\archive": rule_changes(),
            prefix + "Server": server, prefix + "KestDav": module, prefix + "FileStore": store,
            prefix + "FileStore\\Volumes": {"docs": (f"'{own / 'other'}'", True)},
            **self.changed_sign_in(),
            prefix + "Directory": directory, prefix + "Directory\\Attributes": attributes,
            f"Kest\\Policies\\DAV Handlers\\Configured\\{FILE_STORE}": {"Name": ("'X'", True)},
            f"Tolm\\Classes\\{FILE_STORE}": {"Library": (f"'{library}'", True)},
        }
        return {(key, name): value for key, names in keys.items() for name, value in names.items()}

    def text_of(self, key="", name="", value=""):
        """A configuration with that one setting changed; `value` may bring what belongs to it."""
        tables = {
            "Kest\\Configuration\\Server": {"Listen": "['127.0.0.1:0']"},
            "Kest\\Configuration\\FileStore\\Volumes": {"first": f"'{self.own / 'docs'}'"},
        }
        if key:
            tables.setdefault(key, {})[name] = value
        lines = []
        for table, values in tables.items():
            lines.append(f"['{table}']")
            lines += [text if text.startswith("'TLS") else f"'{each}' = {text}"
                      for each, text in values.items()]
        return "\n".join(lines) + "\n"

    def reload(self, server, text):
        """Gives the server another configuration; returns how long its log was before."""
        before = len(server.log())
        self.own.write("kest.toml", text)
        server.process.send_signal(signal.SIGHUP)
        return before

    def said(self, server, before, wanted):
        return wait_for(lambda: wanted in server.log()[before:] and server.log()[before:], wanted)

    def test_is_taken_over_or_named(self):
        changed = self.changed()
        plain = self.text_of()
        self.own.write("kest.toml", plain)
        effects = Effects(self)
        options = ["--config", self.own / "kest.toml", "--user", "anna:right"]
        with Unaddressed({}, options) as server:
            seen = 0
            for key, name in shipped_settings():
                seen += 1
                with self.subTest(f"{key} {name}"):
                    self.assertIn((key, name), changed, "no value to change it to")
                    value, waits = changed[key, name]
                    before = self.reload(server, self.text_of(key, name, value))
                    ending = "waits for the next start" if waits else "is taken over"
                    log = self.said(server, before, f"'{key}' '{name}' has changed: it {ending}")
                    self.assertNotIn("unread", log)
                    effect = getattr(effects, re.sub(r"\W", "_", name.lower()), None)
                    if effect:
                        wait_for(lambda: effect(server), f"the effect of '{name}'")
                    before = self.reload(server, plain)
                    if not waits:  # what waited is as it was at the start
                        self.said(server, before, f"'{key}' '{name}' has changed")
                    wait_for(lambda: Effects.status(server) == 207, "the server as it was")
            self.assertEqual(seen, len(changed))

    def test_a_moniker_waits_and_the_server_stays(self):
        self.own.write("kest.toml", "")
        with TestServer({"docs": self.own / "docs"},
                        ["--config", self.own / "kest.toml"]) as server:
            for moniker in ("/Other", "/Third", "/Ferro"):
                before = self.reload(
                    server, f"['Kest\\Configuration\\KestDav']\n'Moniker' = '{moniker}'\n")
                self.said(server, before, "'Moniker' has changed: it waits for the next start")
                for _ in range(3):
                    self.assertEqual(server.request("GET", url_path("docs", "file")).body,
                                     b"content")
                    self.assertEqual(server.request("GET", moniker + "x/docs/file").status, 404)


class Effects:
    """How some settings show: each method is true when its setting counts."""

    RIGHT = basic("anna", "right")

    def __init__(self, case):
        self.case = case

    @staticmethod
    def status(server, method="PROPFIND", path=url_path("first"), body=None, headers=None):
        """0 where there is no answer."""
        try:
            return server.request(method, path, body, {**Effects.RIGHT, **(headers or {})}).status
        except OSError:
            return 0

    def realm(self, server):
        reply = server.request("GET", url_path("first"))
        return "Elsewhere" in reply.headers["www-authenticate"]

    def public_url(self, server):
        source, target = url_path("first", "file"), url_path("first", "copy")
        there = {"Destination": "https://files.example.org" + target}
        return self.status(server, "COPY", source, headers=there) in (201, 204)

    def wharf_directory(self, server):
        return server.request("GET", "/Wharf/new.js").body == b"new"

    def users_file(self, server):
        return server.request("PROPFIND", url_path("first"),
                              headers=basic("carol", "one")).status == 207

    def head_size(self, server):
        return self.status(server, headers={"X-Long": "x" * 1500}) == 431

    def target_size(self, server):
        return self.status(server, path=url_path("first") + "/" + "x" * 300) == 414

    def xml_body_size(self, server):
        return self.status(server, body=b"<x>" + b" " * 2000) == 413

    def body_size(self, server):
        return self.status(server, "PUT", url_path("first", "big"), b"x" * 100) == 413

    def half(self, server, text):
        """What comes for a request that is never completed; soon, or not within this time."""
        with socket.create_connection(("127.0.0.1", server.port), 5) as sock:
            sock.sendall(text)
            try:
                return sock.recv(100)
            except TimeoutError:
                return None

    def head_time(self, server):
        return (self.half(server, b"GET /") or b"").startswith(b"HTTP/1.1 408")

    def keep_alive_time(self, server):
        with socket.create_connection(("127.0.0.1", server.port), 5) as sock:
            sock.sendall(b"OPTIONS * HTTP/1.1\r\nHost: localhost\r\n\r\n")
            try:
                while sock.recv(1000):
                    pass
                return True
            except TimeoutError:
                return False

    def connections(self, server):
        with socket.create_connection(("127.0.0.1", server.port), 5) as held:
            held.sendall(b"GET /")
            time.sleep(0.05)
            return self.status(server) in (0, 503)

    def guess_delay(self, server):
        statuses = [server.request("PROPFIND", url_path("first"),
                                   headers=basic("guess", f"wrong {i}")).status for i in range(9)]
        return 429 not in statuses

    def moniker(self, server):
        return self.status(server) == 207 and self.status(server, path="/Other/first") == 404

    def docs(self, server):
        """The volume that is new in the file."""
        return self.status(server) == 207 and self.status(server, path=url_path("docs")) == 404

    def template_directory(self, server):
        reply = server.request("GET", url_path("first") + "/",
                               headers={**self.RIGHT, "User-Agent": "Mozilla/5.0"})
        return reply.status == 200 and b"Wharf" in reply.body
