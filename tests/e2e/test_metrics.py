# SPDX-License-Identifier: Apache-2.0
"""The listener for metrics: counts that are exact, formats that parse, and who cannot disturb it."""

import http.client
import json
import os
import re
import signal
import socket
import threading
import time
import unittest

from prometheus_client.openmetrics import parser as openmetrics
from prometheus_client import parser as prometheus

import harness
from harness import PATIENCE, TestServer, Tree, curl, url_path, wait_for

USERS = ("--user", "anna:secret")
ANNA = {"Authorization": "Basic YW5uYTpzZWNyZXQ="}
GUESSER = {"Authorization": "Basic YW5uYTp3cm9uZw=="}
OPEN_METRICS = {"Accept": "application/openmetrics-text; version=1.0.0,text/plain;q=0.5"}


class Scraped:
    """One scrape: samples by name and labels, and the families' types."""

    def __init__(self, text, is_open):
        parse = openmetrics if is_open else prometheus
        self.types, self.values, self.labels = {}, {}, {}
        for family in parse.text_string_to_metric_families(text):
            self.types[family.name] = family.type
            for sample in family.samples:
                key = (sample.name, tuple(sorted(sample.labels.items())))
                if key in self.values:
                    raise AssertionError(f"{key} stands there twice")
                self.values[key] = sample.value
                self.labels.setdefault(sample.name, set()).update(sample.labels)

    def value(self, name, **labels):
        return self.values.get((name, tuple(sorted(labels.items()))), 0)

    def all(self, name):
        """The values of one name, by the values of their labels in order of the labels' names."""
        return {tuple(value for _, value in labels): number
                for (each, labels), number in self.values.items() if each == name}


class MetricsCase(unittest.TestCase):
    options = ()

    def setUp(self):
        self.tree = Tree()
        self.addCleanup(self.tree.remove)
        self.other = Tree()
        self.addCleanup(self.other.remove)

    def serve(self, *options, wrapper=(), **settings):
        volumes = {"docs": self.tree.path, 'a "b"\\': self.other.path}
        server = TestServer(volumes, options, wrapper=wrapper, settings={
            "Server": {"Metrics Listen": ["127.0.0.1:0"],
                       **{name.replace("_", " "): value for name, value in settings.items()}}})
        self.addCleanup(server.close)
        self.port = int(wait_for(lambda: re.search(
            r"info kestd: metrics at http://127\.0\.0\.1:(\d+)/metrics\n", server.log()),
            "the listener's port")[1])
        return server

    def connect(self):
        client = socket.create_connection(("127.0.0.1", self.port), PATIENCE)
        self.addCleanup(client.close)
        return client

    def ask(self, path, headers=None, method="GET"):
        """Status, header fields in lower case, and body; the connection closes behind it."""
        lines = [f"{name}: {value}\r\n" for name, value in (headers or {}).items()]
        with socket.create_connection(("127.0.0.1", self.port), PATIENCE) as client:
            client.sendall(f"{method} {path} HTTP/1.1\r\nHost: x\r\n{''.join(lines)}\r\n".encode())
            head, _, body = harness.read_all(client).partition(b"\r\n\r\n")
        first, *rest = head.decode().split("\r\n")
        fields = {line.split(": ")[0].lower(): line.split(": ", 1)[1] for line in rest}
        if method != "HEAD":
            self.assertEqual(int(fields["content-length"]), len(body))
        return int(first.split()[1]), fields, body.decode()

    def scrape(self, is_open=False):
        status, fields, text = self.ask("/metrics", OPEN_METRICS if is_open else None)
        self.assertEqual(status, 200)
        self.assertEqual(fields["content-type"],
                         "application/openmetrics-text; version=1.0.0; charset=utf-8" if is_open
                         else "text/plain; version=0.0.4; charset=utf-8")
        return Scraped(text, is_open)

    def counted(self, count):
        """A scrape once so many requests are counted: that is done after the reply has left."""
        return wait_for(lambda: (scraped := self.scrape()) and sum(
            scraped.all("kestd_requests_total").values()) >= count and scraped, "the counts")


class Counts(MetricsCase):
    def test_each_request_is_counted_once(self):
        server = self.serve()
        odd = harness.url_path('a "b"\\', "x")
        for i in range(3):
            self.assertEqual(server.request("PUT", url_path("docs", f"{i}"), b"x" * 300).status, 201)
        for _ in range(5):
            self.assertEqual(server.request("GET", url_path("docs", "0")).status, 200)
        self.assertEqual(server.request("HEAD", url_path("docs", "0")).status, 200)
        self.assertEqual(server.request("GET", odd).status, 404)
        self.assertEqual(server.request("PROPFIND", url_path("docs"), None,
                                        {"Depth": "1"}).status, 207)
        self.assertEqual(server.request("BREW", url_path("docs")).status, 501)
        self.assertEqual(server.request("GET", "/nowhere").status, 404)
        with socket.create_connection(("127.0.0.1", server.port)) as client:
            client.sendall(b"no request\r\n\r\n")
            self.assertIn(b" 400 ", harness.read_all(client)[:20])
        scraped = self.counted(14)
        self.assertEqual(scraped.all("kestd_requests_total"), {
            ("PUT", "201"): 3, ("GET", "200"): 5, ("HEAD", "200"): 1, ("GET", "404"): 2,
            ("PROPFIND", "207"): 1, ("other", "501"): 1, ("other", "400"): 1})
        self.assertEqual(scraped.all("kestd_volume_requests_total"), {
            ("2xx", "PUT", "docs"): 3, ("2xx", "GET", "docs"): 5, ("2xx", "HEAD", "docs"): 1,
            ("4xx", "GET", 'a "b"\\'): 1, ("2xx", "PROPFIND", "docs"): 1,
            ("5xx", "other", "docs"): 1, ("4xx", "GET", ""): 1, ("4xx", "other", ""): 1})
        self.assertEqual(scraped.value("kestd_volume_received_bytes_total", volume="docs"), 900)
        self.assertEqual(scraped.value("kestd_request_size_bytes_sum"), 900)
        self.assertEqual(scraped.value("kestd_request_size_bytes_bucket", le="0.0"), 11)
        self.assertEqual(scraped.value("kestd_request_size_bytes_bucket", le="1024.0"), 14)
        self.assertEqual(scraped.value("kestd_request_duration_seconds_count", method="GET"), 7)
        self.assertGreater(scraped.value("kestd_request_duration_seconds_sum", method="GET"), 0)
        self.assertGreaterEqual(scraped.value("kestd_connections_accepted_total"), 2)

    def test_many_at_once(self):
        server = self.serve()
        self.tree.write("file", b"y" * 1000)
        self.assertEqual(set(harness.in_parallel(8, lambda _: server.request(
            "GET", url_path("docs", "file")).status)), {200})

        def ask(_):
            client = http.client.HTTPConnection("127.0.0.1", server.port)
            for _ in range(25):
                harness.exchange(client, "GET", url_path("docs", "file"))
            client.close()

        harness.in_parallel(8, ask)
        scraped = self.counted(208)
        self.assertEqual(scraped.all("kestd_requests_total"), {("GET", "200"): 208})
        self.assertEqual(scraped.value("kestd_reply_size_bytes_sum"), 208_000)

    def test_sign_ins(self):
        server = self.serve(*USERS, Guess_Delay=3600)
        path = url_path("docs")
        self.assertEqual(server.request("PROPFIND", path, None, {**ANNA, "Depth": "0"}).status, 207)
        denied = 0
        while server.request("GET", path, None, GUESSER).status == 401:
            denied += 1
        scraped = self.scrape()
        self.assertEqual(scraped.all("kestd_sign_ins_total"), {
            ("granted",): 1, ("denied",): denied, ("throttled",): 1, ("unavailable",): 0})
        self.assertEqual(scraped.value("kestd_guessers_throttled"), 1)

    def test_a_failing_provider(self):
        server = self.serve(wrapper=("prlimit", "--fsize=100000"))
        self.assertEqual(self.scrape().all("kestd_provider_failures_total"),
                         {("500",): 0, ("503",): 0, ("507",): 0})
        status = server.request("PUT", url_path("docs", "a"), b"x" * 200_000).status
        self.assertGreaterEqual(status, 500)
        self.assertEqual(sum(self.counted(1).all("kestd_provider_failures_total").values()), 1)
        self.assertEqual(self.scrape().value("kestd_provider_failures_total", status=str(status)), 1)

    def test_volumes(self):
        server = self.serve()
        for name in ("a", "b", "c"):
            server.request("PUT", url_path("docs", name), b"x")
        self.assertEqual(server.request("DELETE", url_path("docs", "a")).status, 204)
        body = (b'<D:lockinfo xmlns:D="DAV:"><D:lockscope><D:exclusive/></D:lockscope><D:locktype>'
                b"<D:write/></D:locktype></D:lockinfo>")
        self.assertEqual(server.request("LOCK", url_path("docs", "b"), body).status, 200)
        scraped = self.scrape()
        other = 'a "b"\\'
        self.assertEqual(scraped.all("kestd_locks"), {("docs",): 1, (other,): 0})
        self.assertEqual(scraped.all("kestd_kept_entries"), {("docs",): 1, (other,): 0})
        self.assertEqual(scraped.all("kestd_volume_up"), {("docs",): 1, (other,): 1})
        self.assertEqual(scraped.all("kestd_volume_writable"), {("docs",): 1, (other,): 1})
        disk = os.statvfs(self.tree.path)
        size = scraped.value("kestd_volume_size_bytes", volume="docs")
        self.assertLessEqual(size, disk.f_blocks * disk.f_frsize)  # less what is kept for root
        self.assertGreater(size, scraped.value("kestd_volume_free_bytes", volume="docs"))
        self.assertGreater(scraped.value("kestd_volume_free_bytes", volume="docs"), 0)

    def test_a_volume_that_goes_is_told(self):
        self.serve()
        self.assertEqual(self.ask("/ready")[0], 200)
        os.rename(self.tree.path, self.tree.path + ".away")
        self.addCleanup(lambda: os.path.exists(self.tree.path) or
                        os.rename(self.tree.path + ".away", self.tree.path))
        self.assertEqual(self.scrape().value("kestd_volume_up", volume="docs"), 0)
        status, _, text = self.ask("/ready")
        self.assertEqual((status, text),
                         (503, "the volume 'docs' does not answer, or is not in its place\n"))
        self.assertEqual(self.ask("/health")[0], 200)
        os.rename(self.tree.path + ".away", self.tree.path)
        self.assertEqual(self.ask("/ready")[0], 200)

    def test_connections(self):
        server = self.serve(Connections_Per_Address=2)
        clients = [server.connect() for _ in range(2)]
        for client in clients:
            self.addCleanup(client.close)
        refused = server.connect()
        self.addCleanup(refused.close)
        wait_for(lambda: self.scrape().value("kestd_connections_refused_total", reason="address"),
                 "the refusal")
        scraped = wait_for(lambda: (s := self.scrape()).value("kestd_connections", state="idle")
                           == 2 and s, "two idle connections")
        self.assertEqual(scraped.value("kestd_connections_accepted_total"), 2)
        self.assertGreaterEqual(scraped.value("kestd_workers"), 1)
        self.assertEqual(scraped.value("kestd_workers_limit"), 64)


class Formats(MetricsCase):
    def test_both_parse_and_say_the_same(self):
        server = self.serve()
        server.request("GET", url_path("docs"))
        older = self.counted(1)
        newer = self.scrape(is_open=True)
        for name in ("kestd_requests_total", "kestd_volume_requests_total", "kestd_workers_limit",
                     "kestd_request_size_bytes_bucket", "kestd_build_info"):
            self.assertEqual(older.all(name).keys(), newer.all(name).keys(), name)
        self.assertEqual(set(older.types.items()), set(newer.types.items()))
        self.assertIn("counter", older.types.values())
        version = harness.run(harness.KESTD, "--version")[1].split()[1]
        self.assertEqual(older.value("kestd_build_info", version=version), 1)
        self.assertLess(abs(older.value("process_start_time_seconds") - time.time()), PATIENCE * 5)

    def test_head_has_no_body_and_the_same_type(self):
        self.serve()
        status, fields, body = self.ask("/metrics", OPEN_METRICS, "HEAD")
        self.assertEqual((status, body), (200, ""))
        self.assertIn("openmetrics", fields["content-type"])
        self.assertEqual(self.ask("/metrics", None, "POST")[0], 405)
        self.assertEqual(self.ask("/")[0], 404)


class Life(MetricsCase):
    def test_health_and_readiness(self):
        server = self.serve()
        self.assertEqual(self.ask("/health")[::2], (200, "ok\n"))
        self.assertEqual(self.ask("/ready")[::2], (200, "ok\n"))
        self.assertTrue(server.alive())

    def test_not_ready_while_it_stops(self):
        server = self.serve(Shutdown_Time=60_000)
        client = socket.create_connection(("127.0.0.1", server.port))
        self.addCleanup(client.close)
        client.sendall(harness.head("PUT", url_path("docs", "slow"), server.port,
                                    "Content-Length: 1000000") + b"x" * 100_000)
        wait_for(lambda: self.scrape().value("kestd_requests_waiting") == 1, "the upload")
        server.process.send_signal(signal.SIGTERM)
        wait_for(lambda: self.ask("/ready")[::2] == (503, "stopping\n"), "the end of readiness")
        self.assertEqual(self.ask("/health")[0], 200)
        client.sendall(b"x" * 900_000)
        self.assertIn(b" 201 ", harness.read_all(client)[:20])
        self.assertEqual(server.process.wait(PATIENCE), 0)

    def test_answers_while_every_worker_is_busy(self):
        server = self.serve(Worker_Threads=1)
        for i in range(300):
            self.tree.write(f"d/{i}.txt", b"")
        stop = threading.Event()

        def ask(_):
            client = http.client.HTTPConnection("127.0.0.1", server.port)
            while not stop.is_set():
                client.request("PROPFIND", url_path("docs", "d"), headers={"Depth": "1"})
                client.getresponse().read()
            client.close()

        threads = [threading.Thread(target=ask, args=(i,)) for i in range(3)]
        for thread in threads:
            thread.start()
        try:
            wait_for(lambda: self.scrape().value("kestd_workers_busy") == 1, "a busy worker")
            self.assertEqual(self.ask("/health")[0], 200)
        finally:
            stop.set()
            for thread in threads:
                thread.join()


class Clients(MetricsCase):
    def test_slow_ones_keep_nobody_out(self):
        self.serve()
        slow = [self.connect() for _ in range(40)]  # more than are held
        for client in slow:
            client.sendall(b"GET /metrics HTTP/1.1\r\n")
        self.assertEqual(self.scrape().value("kestd_workers_limit"), 64)
        ended = [client for client in slow if client.recv(1) == b""]  # after their time at the latest
        self.assertEqual(len(ended), 40)

    def test_heads_are_bounded(self):
        self.serve()
        client = self.connect()
        client.sendall(b"GET /metrics HTTP/1.1\r\nX: " + b"y" * 8192)
        self.assertIn(b" 431 ", harness.read_all(client)[:20])
        client = self.connect()
        client.sendall(b"\x16\x03\x01 rubbish\r\n\r\n")
        self.assertIn(b" 400 ", harness.read_all(client)[:20])
        self.assertEqual(self.ask("/health")[0], 200)

    def test_one_that_reads_nothing_goes(self):
        server = self.serve()
        client = self.connect()
        client.sendall(b"GET /metrics HTTP/1.1\r\n\r\n" + b"z" * 60_000)
        before = server.open_files()
        self.assertEqual(self.ask("/health")[0], 200)
        wait_for(lambda: server.open_files() < before, "its end")


class Settings(MetricsCase):
    def check(self, listen, **more):
        status, text = 0, ""
        own = Tree()
        self.addCleanup(own.remove)
        own.write("kest.toml", harness.registry_text({"Server": {"Metrics Listen": listen, **more}}))
        status, text = harness.run(harness.KESTD, "check", "--config", own / "kest.toml",
                                   "--state-dir", own.path)
        return status, text

    def test_mistakes_are_told(self):
        for listen, more, wrong in (
                (["localhost:1"], {}, "expected ADDRESS:PORT with a numeric address"),
                (["127.0.0.1:7"], {"Listen": ["127.0.0.1:7"]}, "is one of the addresses of 'Listen'"),
                ("127.0.0.1:0", {}, "'Metrics Listen'")):
            status, text = self.check(listen, **more)
            self.assertEqual(status, 1, text)
            self.assertIn(wrong, text)
        with socket.create_server(("127.0.0.1", 0)) as taken:
            status, text = self.check([f"127.0.0.1:{taken.getsockname()[1]}"],
                                      **{"Listen": ["127.0.0.1:0"]})
            self.assertEqual(status, 1, text)
            self.assertIn("Address already in use", text)
        self.assertEqual(self.check(["127.0.0.1:0"], **{"Listen": ["127.0.0.1:0"]})[0], 0)

    def test_there_is_none_by_itself(self):
        with TestServer({"docs": self.tree.path}) as server:
            self.assertEqual(server.request("GET", "/metrics").status, 404)
            self.assertNotIn("metrics at", server.log())


class Shipped(MetricsCase):
    """The dashboard and the alerts name what there is."""

    FOLDER = os.path.join(harness.ROOT, "packaging", "monitoring")
    NAMES = re.compile(r"\b((?:kestd|process)_[a-z_]+)\b(?:\{([^}]*)\})?")

    def check_expression(self, scraped, expression):
        found = self.NAMES.findall(expression)
        self.assertTrue(found, expression)
        for name, labels in found:
            with self.subTest(name):
                self.assertIn(name, scraped.labels)
                for label in re.findall(r"(\w+)\s*(?:=~|!~|!=|=)", labels):
                    if label not in ("instance", "job"):  # which Prometheus adds
                        self.assertIn(label, scraped.labels[name])

    def scraped(self):
        server = self.serve()
        server.request("GET", url_path("docs"))
        return self.counted(1)

    def test_dashboard(self):
        with open(os.path.join(self.FOLDER, "dashboard.json"), encoding="utf-8") as file:
            board = json.load(file)
        scraped = self.scraped()
        targets = [target for panel in board["panels"] for target in panel["targets"]]
        self.assertGreaterEqual(len(targets), 10)
        for target in targets:
            self.check_expression(scraped, target["expr"])
        numbers = [panel["id"] for panel in board["panels"]]
        self.assertEqual(len(numbers), len(set(numbers)))

    def test_alerts(self):
        with open(os.path.join(self.FOLDER, "alerts.yml"), encoding="utf-8") as file:
            text = file.read()
        expressions = re.findall(r"^\s+expr: (.+)$", text, re.M)
        self.assertEqual(len(expressions), len(re.findall(r"- alert: ", text)))
        self.assertGreaterEqual(len(expressions), 3)
        scraped = self.scraped()
        for expression in expressions:
            self.check_expression(scraped, expression)


if __name__ == "__main__":
    unittest.main()
