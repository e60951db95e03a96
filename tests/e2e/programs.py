# SPDX-License-Identifier: Apache-2.0
"""What the cases with real programs share: a home for each, a session bus where one is needed, and
the table of what worked with which program (docs/clients.md)."""

import contextlib
import ctypes
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time

from harness import PATIENCE, ROOT, SCRATCH, Failure, ServerCase, pattern, run

# The columns of the table, in its order.
OPERATIONS = ("list", "read", "create", "replace", "resume", "folder", "copy", "move", "delete",
              "lock", "properties", "dates", "space")
LONG = "long"  # in the cell of what only the long form of the tests tries
TABLE = re.compile(r"(?<=<!-- table -->\n).*(?=<!-- end of table -->)", re.DOTALL)

results = {}   # {program: {operation: "yes", "no" or LONG}}
not_here = set()  # programs that the machine cannot run: their rows of the document stand
packages = {}  # {program: the Debian package, or a text that says the version}


@contextlib.contextmanager
def tried(program, *operations, package=None, long=False):
    """Enters in the table whether the block showed that the program does these operations."""
    unknown = set(operations) - set(OPERATIONS)
    if unknown:
        raise Failure(f"no columns of the table: {unknown}")
    packages.setdefault(program, package or program)
    row = results.setdefault(program, {})
    worked = "no"
    try:
        yield
        worked = LONG if long else "yes"
    finally:
        for operation in operations:
            if row.get(operation) in (None, LONG) or worked == "no":
                row[operation] = worked


def version(program):
    """As its package says, without the distribution's own numbers."""
    package = packages[program]
    if " " in package:
        return package.split(" ", 1)[1]
    _, text = run("dpkg-query", "-W", "-f", "${Version}", package)
    return re.sub(r"^\d+:|[-+].*", "", text) if re.match(r"\d", text) else ""


def table():
    """The rows in Markdown, one per program."""
    lines = ["| program | version | " + " | ".join(OPERATIONS) + " |",
             "|---|---|" + "---|" * len(OPERATIONS)]
    for program in sorted(results, key=str.lower):
        cells = [results[program].get(operation, "") for operation in OPERATIONS]
        lines.append(f"| {program} | {version(program)} | " + " | ".join(cells) + " |")
    return "\n".join(lines) + "\n"


def in_document(path):
    with open(path, encoding="utf-8") as file:
        found = TABLE.search(file.read())
    if not found:
        raise Failure(f"{path} has no place for the table")
    return found[0]


def write_document(path):
    with open(path, encoding="utf-8") as file:
        text = file.read()
    with open(path, "w", encoding="utf-8") as out:
        out.write(TABLE.sub(lambda _: table(), text))


def differs_from(path):
    """What the document says otherwise than these runs did: versions aside, and what only the long
    form tries."""
    def rows(text):
        cells = (line.strip("| \n").split("|") for line in text.splitlines()[2:])
        return {row[0].strip(): [re.sub(LONG, "", cell).strip() for cell in row[2:]]
                + [""] * (2 + len(OPERATIONS) - len(row)) for row in cells}

    said, seen = rows(in_document(path)), rows(table())
    return [f"{program}: the document has {said.get(program)}, seen was {cells}"
            for program, cells in seen.items() if said.get(program) != cells] + \
           [f"{program} was not tried" for program, cells in said.items()
            if program not in seen and program not in not_here and any(cells)]


DOCUMENT = os.path.join(ROOT, "docs", "clients.md")


class ProgramCase(ServerCase):
    """Cases that run programs: each has a home of its own, and the same content to store."""

    options = ("--dialect", "standard")

    def setUp(self):
        self.own = tempfile.mkdtemp(prefix="kest-client-", dir=SCRATCH)
        self.addCleanup(shutil.rmtree, self.own, ignore_errors=True)
        self.content = pattern(100_000)
        self.folder = os.path.join(self.own, "src")
        os.mkdir(self.folder)
        self.source = self.write("src/one", self.content)
        self.write("src/two words.txt", b"two\n")
        os.utime(self.source, (981_173_106, 981_173_106))
        self.target = os.path.join(self.own, "got")

    def write(self, name, data):
        path = os.path.join(self.own, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as out:
            out.write(data)
        return path

    def read(self, name):
        with open(os.path.join(self.own, name), "rb") as file:
            return file.read()

    def go(self, *command, stdin=None, cwd=None, **env):
        """What the program printed; it has to end well."""
        status, text = run(*command, stdin=stdin, cwd=cwd or self.own, env={"HOME": self.own, **env})
        self.assertEqual(status, 0, text)
        return text

    def assert_got(self):
        with open(self.target, "rb") as file:
            self.assertEqual(file.read(), self.content)

    def assert_stored(self, name, data):
        """Compares in a way that does not print what is long."""
        self.assertTrue(os.path.isfile(self.tree / name), f"there is no {name}")
        stored = self.tree.read(name)
        self.assertEqual((len(stored), self.sha(stored)), (len(data), self.sha(data)), name)

    def requests(self):
        """Those that the server has logged so far, as (method, path, status); the last may yet
        have to come."""
        found = re.findall(r'"([A-Z]+) (\S+) HTTP/1\.[01]" (\d+) ', self.server.log())
        return [(method, path, int(status)) for method, path, status in found]


class Session:
    """A home, a runtime directory and a session bus, gone with every process started there."""

    def __init__(self):
        self.home = tempfile.mkdtemp(prefix="kest-session-", dir=SCRATCH)
        self.runtime = os.path.join(self.home, "run")
        os.mkdir(self.runtime, 0o700)
        # Nothing of the user's own session; settings are those of a fresh account.
        self.env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": self.home,
                    "XDG_RUNTIME_DIR": self.runtime, "LC_ALL": "C.UTF-8",
                    "QT_QPA_PLATFORM": "offscreen"}
        address = os.path.join(self.runtime, "bus")
        self.bus = subprocess.Popen(
            ["dbus-daemon", "--session", "--nofork", "--nosyslog", f"--address=unix:path={address}"],
            env=self.env, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL, preexec_fn=self._die_with_parent)
        self.env["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={address}"
        end = time.monotonic() + PATIENCE
        while not os.path.exists(address):
            if self.bus.poll() is not None or time.monotonic() > end:
                self.close()
                raise Failure("there is no session bus")
            time.sleep(0.01)

    @staticmethod
    def _die_with_parent():
        ctypes.CDLL(None).prctl(1, signal.SIGKILL)

    def run(self, *command, stdin=None, cwd=None, timeout=PATIENCE):
        """Exit status and what was printed. Services that the program starts outlive it, so that
        its output goes to a file: nobody waits for them to close a pipe."""
        with tempfile.TemporaryFile(dir=self.home) as out:
            done = subprocess.run(command, env=self.env, cwd=cwd or self.home, input=stdin,
                                  stdin=None if stdin is not None else subprocess.DEVNULL,
                                  stdout=out, stderr=subprocess.STDOUT, timeout=timeout,
                                  check=False)
            out.seek(0)
            return done.returncode, out.read().decode(errors="replace")

    def processes(self):
        """Those that have this home in their environment."""
        mark = f"XDG_RUNTIME_DIR={self.runtime}".encode()
        found = []
        for name in os.listdir("/proc"):
            if name.isdigit() and int(name) != os.getpid():
                with contextlib.suppress(OSError), open(f"/proc/{name}/environ", "rb") as file:
                    if mark in file.read().split(b"\0"):
                        found.append(int(name))
        return found

    def close(self):
        self.bus.terminate()
        self.bus.wait(PATIENCE)
        end = time.monotonic() + 0.5
        while self.processes() and time.monotonic() < end:
            time.sleep(0.05)
        for process in self.processes():
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGKILL)
        shutil.rmtree(self.home, ignore_errors=True)
