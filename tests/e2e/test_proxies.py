# SPDX-License-Identifier: Apache-2.0
"""The server behind nginx, Apache, HAProxy and Caddy: with a plain line each, and as docs/proxies says."""

import http.client
import re
import shutil
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

from harness import (PATIENCE, SCRATCH, Failure, TestServer, Tree, exchange, pattern, run, url_path,
                     wait_for)
from proxies import Apache, Caddy, Haproxy, Nginx, NginxStream, sample

CLIENT = "127.0.0.9"  # where the clients come from; the proxies come from 127.0.0.1
TRUST = {"Server": {"Trusted Proxies": ["127.0.0.1"]}}
USER = ("--user", "anna:secret")
SIGNED_IN = {"Authorization": "Basic YW5uYTpzZWNyZXQ="}
LOCK = (b'<?xml version="1.0"?><D:lockinfo xmlns:D="DAV:"><D:lockscope><D:exclusive/></D:lockscope>'
        b'<D:locktype><D:write/></D:locktype></D:lockinfo>')


class Behind(unittest.TestCase):
    """What all of these have in common."""

    def serve(self, options=("--dialect", "standard", *USER), settings=None):
        self.tree = Tree()
        self.addCleanup(self.tree.remove)
        server = TestServer({"docs": self.tree.path}, options, settings or TRUST)
        self.addCleanup(server.close)
        return server

    def start(self, kind, server, text):
        proxy = kind(server.port, text)
        self.addCleanup(proxy.close)
        self.proxy = proxy
        return proxy

    def ask(self, method, path, body=None, headers=None):
        """Through the proxy, whose name for the client is an outside one."""
        client = http.client.HTTPConnection("127.0.0.1", self.proxy.port, timeout=PATIENCE,
                                            source_address=(CLIENT, 0))
        try:
            return exchange(client, method, path, body,
                            {"Host": self.outside, **SIGNED_IN, **(headers or {})})
        finally:
            client.close()

    def expect(self, status, method, path, body=None, headers=None):
        reply = self.ask(method, path, body, headers)
        self.assertEqual(reply.status, status, f"{method} {path}: {reply!r}\n{self.proxy.log()}")
        return reply

    @property
    def outside(self):
        return f"files.example.org:{self.proxy.port}"

    def outside_url(self, path):
        return f"http://{self.outside}{path}"

    def work_on_files(self, prefix=""):
        """What a WebDAV client does in an hour."""
        def path(*parts):
            return prefix + url_path("docs", *parts)
        data = pattern(200_000)
        self.expect(201, "MKCOL", path("folder"))
        self.expect(201, "PUT", path("folder", "a b#.bin"), data)
        self.assertEqual(self.expect(200, "GET", path("folder", "a b#.bin")).body, data)
        part = self.expect(206, "GET", path("folder", "a b#.bin"), None, {"Range": "bytes=5-9"})
        self.assertEqual(part.body, data[5:10])
        self.expect(201, "COPY", path("folder", "a b#.bin"), None,
                    {"Destination": self.outside_url(path("folder", "copy.bin"))})
        self.expect(201, "MOVE", path("folder", "a b#.bin"), None,
                    {"Destination": self.outside_url(path("folder", "ü.bin")), "Overwrite": "F"})
        self.expect(412, "MOVE", path("folder", "copy.bin"), None,
                    {"Destination": self.outside_url(path("folder", "ü.bin")), "Overwrite": "F"})
        listing = self.expect(207, "PROPFIND", path("folder") + "/", None, {"Depth": "1"})
        hrefs = {href.text for href in ElementTree.fromstring(listing.body).iter("{DAV:}href")}
        self.assertEqual(hrefs, {path("folder") + "/", path("folder", "copy.bin"),
                                 path("folder", "ü.bin")})
        self.lock_and_write(path("folder", "copy.bin"))
        self.expect(204, "DELETE", path("folder"))
        self.expect(404, "GET", path("folder", "copy.bin"))

    def lock_and_write(self, path):
        granted = self.expect(200, "LOCK", path, LOCK, {"Content-Type": "application/xml"})
        root = ElementTree.fromstring(granted.body).find(".//{DAV:}lockroot/{DAV:}href")
        self.assertEqual(root.text, path)
        token = granted.headers["lock-token"]
        self.expect(423, "PUT", path, b"other")
        self.expect(204, "PUT", path, b"new", {"If": f"<{self.outside_url(path)}> ({token})"})
        self.expect(204, "UNLOCK", path, None, {"Lock-Token": token})
        self.assertEqual(self.expect(200, "GET", path).body, b"new")

    def addresses(self, server):
        """The clients that the access log names, once all of it is there."""
        marker = "/Ferro/last-line"
        server.request("GET", marker, None, SIGNED_IN)
        log = wait_for(lambda: marker in server.log() and server.log(), "the access log")
        lines = [line for line in log.splitlines() if '"' in line and marker not in line]
        self.assertTrue(lines, log)
        return {line.split(" ", 1)[0] for line in lines}


class Plain(Behind):
    """One line of configuration, and the server trusts the proxy."""

    def check(self, kind, seen):
        server = self.serve()
        self.start(kind, server, kind.plain)
        self.work_on_files()
        self.assertEqual(self.addresses(server), {seen})

    def test_nginx(self):
        self.check(Nginx, "127.0.0.1")  # it says nothing about its clients

    def test_apache(self):
        self.check(Apache, CLIENT)

    def test_haproxy(self):
        self.check(Haproxy, "127.0.0.1")  # likewise

    def test_caddy(self):
        self.check(Caddy, CLIENT)


class Documented(Behind):
    """The sample files, and what clients may not say."""

    def check(self, kind, name):
        server = self.serve(settings={"Server": {"Trusted Proxies": ["127.0.0.1"],
                                                 "Proxy Headers": "x-forwarded"}})
        self.start(kind, server, sample(name))
        self.work_on_files()
        lies = {"X-Forwarded-For": "6.6.6.6", "X-Forwarded-Host": "evil.example.org",
                "X-Forwarded-Proto": "https", "X-Forwarded-Port": "6", "X-Forwarded-Prefix": "/evil",
                "Forwarded": "for=6.6.6.6;host=evil.example.org;proto=https"}
        self.tree.write("a", b"a")
        page = self.expect(200, "GET", url_path("docs", ""), None,
                           {"Accept": "text/html", "User-Agent": "Mozilla/5.0", **lies})
        self.assertNotIn("Secure", page.headers["set-cookie"])
        self.assertNotIn("evil", page.headers["content-security-policy"])
        self.assertIn(f"{self.outside}/Wharf/", page.headers["content-security-policy"])
        self.expect(502, "COPY", url_path("docs", "a"), None,
                    {"Destination": "http://evil.example.org" + url_path("docs", "b"), **lies})
        self.assertEqual(self.addresses(server), {CLIENT})
        self.litmus()

    def litmus(self):
        """All of it, through the proxy."""
        work = tempfile.mkdtemp(prefix="kest-litmus-", dir=SCRATCH)
        self.addCleanup(shutil.rmtree, work, ignore_errors=True)
        url = f"http://127.0.0.1:{self.proxy.port}" + url_path("docs") + "/"
        _, text = run("litmus", "-k", url, "anna", "secret", cwd=work,
                      env={"TESTS": "basic copymove props locks"})
        runs = re.findall(r"of (\d+) tests run: (\d+) passed, (\d+) failed", text)
        self.assertEqual([run[0] for run in runs], ["16", "13", "30", "41"], text)
        self.assertEqual({run[2] for run in runs}, {"0"}, text)

    def test_nginx(self):
        self.check(Nginx, "nginx.conf")

    def test_apache(self):
        self.check(Apache, "apache.conf")

    def test_haproxy(self):
        self.check(Haproxy, "haproxy.cfg")

    def test_caddy(self):
        self.check(Caddy, "Caddyfile")


class BelowAPath(Behind):
    """nginx publishes the server under /dav/."""

    def check(self, text):
        server = self.serve(settings={"Server": {
            "Trusted Proxies": ["127.0.0.1"], "Public URL": "http://files.example.org/dav"}})
        self.start(Nginx, server, text)
        self.work_on_files("/dav")
        page = self.expect(200, "GET", "/dav" + url_path("docs", ""), None,
                           {"Accept": "text/html", "User-Agent": "Mozilla/5.0 Chrome/120.0"})
        self.assertIn("; Path=/dav/Ferro;", page.headers["set-cookie"])
        sources = re.findall(rb'(?:href|src)="(/[^"]*/Wharf/[^"#]*)', page.body)
        self.assertTrue(sources, page.body)
        for source in {one for one in sources if one.startswith(b"/dav/")}:
            self.expect(200, "GET", source.decode())
        self.assertIn(b"/dav/Ferro/../Wharf/index.js", sources)
        top = self.expect(302, "GET", "/dav/")
        self.assertTrue(top.headers["location"].endswith("/dav/Ferro/"), top)
        self.assertEqual(self.addresses(server), {CLIENT})

    def test_nginx_takes_it_off(self):
        self.check(sample("nginx-prefix.conf"))

    def test_nginx_leaves_it(self):
        self.check(sample("nginx-prefix.conf").replace(":8080/;", ":8080;")
                   .replace("X-Forwarded-Prefix /dav", 'X-Forwarded-Prefix ""'))

    def test_the_classic_dialect_cannot_be(self):
        with self.assertRaisesRegex(Failure, "needs the standard dialect"):
            self.serve(("--dialect", "classic", *USER),
                       {"Server": {"Public URL": "http://files.example.org/dav"}})


class Announced(Behind):
    """The PROXY protocol."""

    def check(self, kind, text):
        server = self.serve(settings={"Server": {"Trusted Proxies": ["127.0.0.1"],
                                                 "PROXY Protocol": ["127.0.0.1:0"]}})
        self.start(kind, server, text)
        self.work_on_files()
        with self.assertRaises((http.client.HTTPException, OSError)):
            server.request("GET", "/", None, SIGNED_IN)  # nobody else gets in
        log = wait_for(lambda: "UNLOCK" in server.log() and server.log(), "the access log")
        lines = [line for line in log.splitlines() if " HTTP/1." in line]
        self.assertEqual({line.split(" ", 1)[0] for line in lines}, {CLIENT})
        self.assertIn("its PROXY preamble is malformed", log)

    def test_haproxy_version_1(self):
        text = sample("haproxy-tcp.cfg")
        self.assertIn(" send-proxy-v2\n", text)
        self.check(Haproxy, text.replace(" send-proxy-v2\n", " send-proxy\n"))

    def test_haproxy_version_2(self):
        self.check(Haproxy, sample("haproxy-tcp.cfg"))

    def test_haproxy_checks_the_server_by_itself(self):
        server = self.serve(settings={"Server": {"Trusted Proxies": ["127.0.0.1"],
                                                 "PROXY Protocol": ["127.0.0.1:0"]}})
        text = sample("haproxy-tcp.cfg").replace(
            "    server", "    option httpchk GET /\n    server").replace(
            " send-proxy-v2\n", " send-proxy-v2 check inter 100\n")
        self.start(Haproxy, server, text)
        wait_for(lambda: '"GET / HTTP/1.' in server.log(), "a check of the proxy's own")
        self.work_on_files()
        self.assertNotIn("preamble", server.log())

    def test_nginx(self):
        self.check(NginxStream, sample("nginx-stream.conf"))


class NobodyElse(Behind):
    """A proxy that is not trusted is a client like any other."""

    def test_its_headers_are_not_looked_at(self):
        server = self.serve(settings={"Server": {"Trusted Proxies": ["127.0.0.77"]}})
        self.start(Apache, server, sample("apache.conf"))
        self.expect(201, "PUT", url_path("docs", "a"), b"a")
        self.assertEqual(self.addresses(server), {"127.0.0.1"})
