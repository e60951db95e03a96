# SPDX-License-Identifier: Apache-2.0
"""What every end-to-end test stands on: a real server over a fresh tree, and clients for it.

A case starts with a TestServer (or shares its class's), talks to it with curl or raw sockets, and
looks at the tree on disk. Every request of these carries the case's name in X-Test-Case, for traces.
"""

import ctypes
import gzip
import hashlib
import http.client
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from urllib.parse import quote, unquote, urlsplit

from trees import HOSTILE_NAMES, SCRATCH, Tree, pattern  # noqa: F401  (cases take them from here)

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
KESTD = os.path.join(ROOT, "build", "release", "bin", "kestd")
LOCATION = "/Ferro"
WRAPPER = []  # the program, with its arguments, that starts each server
DIALECT = "standard"  # of servers whose case chooses none; None: what the server chooses

# How long anything may take that is not a figure under test. Generous: the machine may be busy.
PATIENCE = 120

# How the report of a sanitizer begins, in a server that was built with one.
SANITIZER = re.compile(
    r"^(==\d+==\s*ERROR: |WARNING: ThreadSanitizer|\S+:\d+:\d+: runtime error: )", re.MULTILINE)

current_case = "none"
_libc = ctypes.CDLL(None)
PR_SET_PDEATHSIG = 1


def _die_with_parent():
    """Runs in a new server's process: it ends when the tests end, however they end."""
    _libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


class Failure(Exception):
    """Something outside of what a case asserts went wrong."""


class SanitizerReport(AssertionError):
    """A program under test broke a rule of the language. No case expects that."""


def refuse_reports(text):
    """Raises where a program printed what a sanitizer found."""
    found = SANITIZER.search(text)
    if found:
        raise SanitizerReport(text[found.start():found.start() + 12000])


def wait_for(condition, what, seconds=PATIENCE):
    """Polls until condition() is true, and returns what it returned."""
    end = time.monotonic() + seconds
    pause = 0.005
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise Failure(f"waited {seconds} s in vain for {what}")
        time.sleep(pause)
        pause = min(pause * 1.5, 0.2)


def url_path(*parts):
    """Path of a request from unescaped names below the location."""
    return LOCATION + "".join("/" + quote(part, safe="") for part in parts)


def registry_text(settings):
    """The configuration file that says this much; everything else keeps its default."""
    lines = []
    for key, values in settings.items():
        lines.append(f"['Kest\\Configuration\\{key}']")
        for name, value in values.items():
            shown = str(value).lower() if isinstance(value, bool) else repr(value)
            lines.append(f"'{name}' = {shown}")
    return "\n".join(lines) + "\n"


class TestServer:
    """One kestd over one or more directories, from its ready line to its end.

    volumes: {name: directory}. settings: {key below 'Kest\\Configuration': {value name: value}}.
    """

    __test__ = False

    def __init__(self, volumes, options=(), settings=None, env=None, wrapper=()):
        self.volumes = dict(volumes)
        self.state = tempfile.mkdtemp(prefix="kest-state-", dir=SCRATCH)
        self.options = list(options)
        self.settings = settings
        self.env = dict(os.environ, **(env or {}))
        self.wrapper = list(wrapper)
        self.dialect = DIALECT or "standard"
        if "--dialect" in self.options:
            self.dialect = self.options[self.options.index("--dialect") + 1]
        self.process = None
        self.port = 0
        self.scheme = "http"
        self.log_path = os.path.join(self.state, "server.log")
        self.searched = 0  # so much of the log holds no report, or one that was told
        self.start()

    # -- life ---------------------------------------------------------------------------------

    def command(self):
        line = [*self.wrapper, *WRAPPER, KESTD, "serve", "--listen", "127.0.0.1:0",
                "--state-dir", self.state, *self.options]
        if DIALECT and "--dialect" not in self.options:
            line += ["--dialect", self.dialect]
        if self.settings is not None:
            path = os.path.join(self.state, "test.toml")
            with open(path, "w", encoding="utf-8") as out:
                out.write(registry_text(self.settings))
            line += ["--config", path]
        return line + [f"{name}={path}" for name, path in self.volumes.items()]

    def start(self):
        log = open(self.log_path, "ab")
        self.process = subprocess.Popen(self.command(), stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=log, env=self.env,
                                        preexec_fn=_die_with_parent)
        log.close()
        watchdog = threading.Timer(PATIENCE, self.process.kill)
        watchdog.start()
        line = self.process.stdout.readline().decode(errors="replace")
        watchdog.cancel()
        match = re.fullmatch(r"kestd: serving (https?)://(\[[^]]*\]|[^:/]+):(\d+)(/[^ ]*)/\n", line)
        if not match:
            self.process.kill()
            self.process.wait()
            self.process.stdout.close()
            self.refuse_reports()
            raise Failure(f"no ready line but {line!r}; log:\n{self.log()}")
        self.scheme = match[1]
        self.port = int(match[3])
        (loose_ports.discard if self.is_standard() else loose_ports.add)(self.port)

    def stop(self):
        """Asks it to end and returns its exit status."""
        if self.process is None:
            return None
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        try:
            status = self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise Failure(f"did not end after SIGTERM; log:\n{self.log()}") from None
        finally:
            self.process.stdout.close()
            self.process = None
        self.refuse_reports()
        return status

    def kill(self):
        """Ends it as a power cut would, as far as a process can be."""
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()
        self.process = None
        self.refuse_reports()

    def end(self):
        """Asks it to end, and fails unless it ends well."""
        status = self.stop()
        if status not in (None, 0):
            raise Failure(f"the server ended with {status}; log:\n{self.log()[-4000:]}")

    def restart(self):
        self.end()
        self.start()

    def close(self):
        try:
            self.end()
        finally:
            shutil.rmtree(self.state, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def alive(self):
        return self.process is not None and self.process.poll() is None

    # -- what it looks like from outside ---------------------------------------------------------

    def log(self):
        with open(self.log_path, encoding="utf-8", errors="replace") as file:
            return file.read()

    def refuse_reports(self):
        """Raises where a sanitizer found something since the last call."""
        new = self.log()[self.searched:]
        self.searched += len(new)
        refuse_reports(new)

    def memory_peak(self):
        """The largest resident size so far, in bytes."""
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            for line in status:
                if line.startswith("VmHWM:"):
                    return int(line.split()[1]) * 1024
        raise Failure("no VmHWM")

    def memory_now(self):
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            for line in status:
                if line.startswith("VmRSS:"):
                    return int(line.split()[1]) * 1024
        raise Failure("no VmRSS")

    def threads(self):
        return len(os.listdir(f"/proc/{self.process.pid}/task"))

    def open_files(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def reset_memory_peak(self):
        with open(f"/proc/{self.process.pid}/clear_refs", "w", encoding="ascii") as clear:
            clear.write("5")

    # -- requests --------------------------------------------------------------------------------

    def is_standard(self):
        """Whether its replies are to be those of the standard dialect."""
        if "--dialect" in self.options:
            return self.options[self.options.index("--dialect") + 1] == "standard"
        return DIALECT in (None, "standard")

    def not_found_body(self):  # of a 404 for a program
        return b"There is nothing under this name.\n" if self.is_standard() else b""

    def base(self):
        return f"{self.scheme}://127.0.0.1:{self.port}"

    def url(self, *parts):
        return self.base() + url_path(*parts)

    def connect(self, timeout=PATIENCE):
        sock = socket.create_connection(("127.0.0.1", self.port), timeout)
        sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return sock

    def request(self, method, path, body=None, headers=None, timeout=PATIENCE):
        """One request on its own connection; path is sent as given."""
        client = http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)
        try:
            return exchange(client, method, path, body, headers)
        finally:
            client.close()

    def raw(self, data, timeout=PATIENCE):
        """Sends bytes as they are and nothing more, and returns all that comes back."""
        with self.connect(timeout) as sock:
            try:
                sock.sendall(data)
                sock.shutdown(socket.SHUT_WR)
            except OSError:
                pass  # refused before its end
            return read_all(sock)


class Reply:
    """Status, headers (names in lower case; repeated ones joined) and body of a reply."""

    def __init__(self, status, headers, body):
        self.status = status
        self.headers = headers
        self.body = body

    def __repr__(self):
        return f"<{self.status} {self.headers} {self.body[:200]!r}>"


loose_ports = set()  # of servers whose XML is their own: in the classic dialect, other programs


def read_strictly(port, method, path, reply):
    """Every reply comes by here: one whose XML is not what RFC 4918 says is a failure, whatever the
    case looks for. Only what `loose_ports` say is not read."""
    if port not in loose_ports:
        import davxml  # which needs this module
        davxml.read_reply(method, path, reply)
    return reply


def exchange(client, method, path, body=None, headers=None):
    """One request on a connection that may be used again."""
    given = dict(headers or {})
    names = {name.lower() for name in given}
    client.putrequest(method, path, skip_host="host" in names, skip_accept_encoding=True)
    client.putheader("X-Test-Case", current_case)
    if body is not None and not names & {"content-length", "transfer-encoding"}:
        given["Content-Length"] = str(len(body))
    for name, value in given.items():
        client.putheader(name, value)
    client.endheaders(body)
    reply = client.getresponse()
    is_coded = reply.getheader("Content-Encoding") == "gzip"
    data = gzip.decompress(reply.read()) if is_coded else reply.read()
    fields = {}
    for name, value in reply.getheaders():
        name = name.lower()
        fields[name] = f"{fields[name]}, {value}" if name in fields else value
    return read_strictly(client.port, method, path, Reply(reply.status, fields, data))


def read_all(sock):
    parts = []
    while True:
        try:
            part = sock.recv(65536)
        except ConnectionResetError:
            break
        if not part:
            break
        parts.append(part)
    return b"".join(parts)


def head(method, path, port, *lines):
    """The bytes of a request head for raw sockets."""
    return "\r\n".join([f"{method} {path} HTTP/1.1", f"Host: 127.0.0.1:{port}",
                        f"X-Test-Case: {current_case}", *lines, "", ""]).encode()


class Curl:
    """What one run of curl gave."""

    def __init__(self, status, code, headers, out, err):
        self.status = status  # HTTP status of the last reply, 0: none
        self.code = code      # curl's exit status
        self.headers = headers
        self.out = out
        self.err = err

    def __repr__(self):
        return f"<curl exit {self.code}, HTTP {self.status}: {self.err}>"


def curl(*args, stdin=None, timeout=PATIENCE * 5):
    """Runs curl; everything it prints or receives on standard output comes back in .out."""
    with tempfile.NamedTemporaryFile(prefix="kest-head-", dir=SCRATCH) as heads:
        line = ["curl", "--silent", "--show-error", "--globoff", "--path-as-is",
                "--header", f"X-Test-Case: {current_case}", "--dump-header", heads.name, *args]
        done = subprocess.run(line, input=stdin, stdin=None if stdin else subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=timeout,
                              check=False)
        text = heads.read().decode("latin-1")
    blocks = [block for block in text.split("\r\n\r\n") if block.startswith("HTTP/")]
    status, fields = 0, {}
    if blocks:
        first, *rest = blocks[-1].split("\r\n")
        status = int(first.split()[1])
        for row in rest:
            name, _, value = row.partition(":")
            fields[name.lower()] = value.strip()
    return Curl(status, done.returncode, fields, done.stdout, done.stderr.decode(errors="replace"))


def run(*command, cwd=None, stdin=None, timeout=PATIENCE * 5, env=None):
    """Runs a client program; returns exit status and everything that it printed."""
    done = subprocess.run(command, cwd=cwd, input=stdin, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, timeout=timeout, check=False,
                          env=dict(os.environ, **(env or {})))
    text = done.stdout.decode(errors="replace")
    refuse_reports(text)
    return done.returncode, text


def in_parallel(count, work):
    """Calls work(0) … work(count - 1) at once, each on its thread; raises the first failure."""
    results = [None] * count
    failures = []

    def call(i):
        try:
            results[i] = work(i)
        except BaseException as error:  # handed to the caller's thread
            failures.append(error)

    threads = [threading.Thread(target=call, args=(i,), daemon=True) for i in range(count)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(PATIENCE * 5)
        if thread.is_alive():
            raise Failure("a client hangs")
    if failures:
        raise failures[0]
    return results


class Statuses:
    """What a dialect answers where something was done."""

    def __init__(self, replaced, deleted, unlocked, relocated, overwritten, locked_new):
        self.replaced = replaced          # PUT over a file
        self.deleted = deleted
        self.unlocked = unlocked
        self.relocated = relocated        # COPY and MOVE to a free name
        self.overwritten = overwritten    # and onto a file
        self.locked_new = locked_new      # LOCK of a free name


STATUSES = {"standard": Statuses(204, 204, 204, 201, 204, 201),
            "classic": Statuses(201, 200, 200, 200, 200, 200)}


def in_both_dialects(case):
    """For a ServerCase: its cases run in the standard dialect, and once more in the classic one.
    To be placed on what both promise alike."""
    name = case.__name__ + "InClassic"
    setattr(sys.modules[case.__module__], name,
            type(name, (case,), {"dialect": "classic", "__module__": case.__module__}))
    return case


class ServerCase(unittest.TestCase):
    """Cases that share one server over one tree "docs". All servers that they start speak the
    class's dialect."""

    dialect = "standard"
    options = ()
    settings = None
    hostile = False

    @classmethod
    def setUpClass(cls):
        global DIALECT
        DIALECT, cls._before = cls.dialect, DIALECT
        cls.addClassCleanup(cls._restore_dialect)
        cls.says = STATUSES[cls.dialect]
        cls.tree = Tree()
        if cls.hostile:
            cls.tree.fill_hostile()
        try:
            cls.server = TestServer({"docs": cls.tree.path}, cls.options, cls.settings)
        except BaseException:
            cls.tree.remove()
            raise

    @classmethod
    def _restore_dialect(cls):
        global DIALECT
        DIALECT = cls._before

    @classmethod
    def tearDownClass(cls):
        try:
            cls.server.close()
        finally:
            cls.tree.remove()

    def tearDown(self):
        status, alive = None, self.server.alive()
        if not alive:
            status = self.server.process.wait() if self.server.process else None
            self.server.process = None
            self.server.start()  # for the cases that follow
        self.server.refuse_reports()
        if not alive:
            self.fail(f"the server ended with {status}; log:\n{self.server.log()[-4000:]}")

    def docs(self, *parts):
        """URL of something in the volume, for curl."""
        return self.server.url("docs", *parts)

    def path(self, *parts):
        """Request path of something in the volume."""
        return url_path("docs", *parts)

    def sha(self, data):
        return hashlib.sha256(data).hexdigest()


def plain_path(url):
    """The unescaped path of an href."""
    return unquote(urlsplit(url).path)
