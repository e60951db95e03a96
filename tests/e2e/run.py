#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the end-to-end tests.

usage: run.py [--junit FILE] [--server KESTD] [--dialect DIALECT] [--sandbox] [--clients]
              [--without NAME]… [--jobs N] [NAME…]

NAME picks modules, classes or cases as unittest does ("test_content", "test_content.Put.test_…").
--sandbox runs the servers as the unit of packaging/ would, under its filter of system calls.
--clients runs what tries real programs, the long forms too, and puts the table that it prints into
docs/clients.md. --without leaves out a module, a class or a case: what cannot hold for the build that
is tested. --jobs runs N modules of everything beside each other: most of them wait for
something most of the time. The exit status is not 0 when a case failed, or a run of everything does not show
what that table says.
"""

import argparse
import os
import sys
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE, os.path.join(os.path.dirname(HERE), "support")]

import beside  # noqa: E402
import harness  # noqa: E402
import junit  # noqa: E402
import programs  # noqa: E402

# What tries real programs; the last is run by ./test --full.
CLIENTS = ["test_standard_clients", "test_standard_desktops", "test_standard_libraries",
           "test_standard_mounts", "test_standard_transfers", "long_clients"]


# Options that the processes of --jobs are handed on.
HANDED_ON = ("server", "dialect", "sandbox")


class Report(unittest.TextTestResult):
    """Keeps one row per case for the JUnit file, and tells each case's time."""

    def __init__(self, *args, **kwargs):
        super().__init__(*args, **kwargs)
        self.rows = []
        self._bad = False
        self._began = 0.0

    def getDescription(self, test):
        return test.id()

    def startTest(self, test):
        self._began = time.monotonic()
        self._bad = False
        harness.current_case = test.id()
        super().startTest(test)

    def stopTest(self, test):
        took = time.monotonic() - self._began
        self.rows.append((test.id(), took, self._bad))
        self.stream.writeln(f"        {took:.2f} s")
        super().stopTest(test)

    def _failed(self, test):
        # A class or module that could not be set up is no case, but fails the run all the same.
        if isinstance(test, unittest.TestCase):
            self._bad = True
        else:
            self.rows.append((str(test), 0.0, True))

    def addError(self, test, err):
        self._failed(test)
        super().addError(test, err)

    def addFailure(self, test, err):
        self._failed(test)
        super().addFailure(test, err)

    def addSubTest(self, test, subtest, err):
        if err is not None:
            self._failed(test)
        super().addSubTest(test, subtest, err)

    def addSkip(self, test, reason):
        # Nothing is skipped here: what cannot run has failed.
        self._failed(test)
        super().addSkip(test, reason)


def leave_out(suite, names):
    """The suite without what bears one of the names, and the names that nothing bears."""
    unused = set(names)

    def is_wanted(test):
        for name in names:
            if test.id() == name or test.id().startswith(name + "."):
                unused.discard(name)
                return False
        return True

    def flat(tests):
        for test in tests:
            yield from flat(test) if isinstance(test, unittest.TestSuite) else (test,)

    return unittest.TestSuite([test for test in flat(suite) if is_wanted(test)]), sorted(unused)


def show_clients(result, is_all, writes):
    """Prints the table of real programs; where everything ran, the document has to have it."""
    if not programs.results:
        return
    print(programs.table())
    if writes:
        programs.write_document(programs.DOCUMENT)
    differences = programs.differs_from(programs.DOCUMENT) if is_all else []
    for line in differences:
        print(f"docs/clients.md: {line}")
    if is_all:
        result.rows.append(("docs/clients.md", 0.0, bool(differences)))


def run_beside(args):
    """Runs everything, some modules at a time: those of real programs one after the other, since they
    make one table."""
    options = ["--table"]
    for name in HANDED_ON:
        value = getattr(args, name)
        options += ["--" + name] if value is True else ["--" + name, value] if value else []
    clients = [name for name in CLIENTS if name.startswith("test_")]
    others = sorted(name[:-3] for name in os.listdir(HERE)
                    if name.startswith("test_") and name.endswith(".py") and name[:-3] not in clients)
    return beside.run([clients, *([name] for name in others)], args.jobs, options)


def finish(args, rows):
    """Writes the report. The exit status."""
    if args.junit:
        junit.write(args.junit, "e2e", rows)
    bad = sum(1 for row in rows if row[2])
    print(f"{len(rows)} cases, {bad} failed")
    return 1 if bad or not rows else 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--junit")
    parser.add_argument("--server", help="the kestd to test (default: the release build)")
    parser.add_argument("--dialect", choices=("classic", "standard"),
                        help="of servers whose case chooses none (default: standard)")
    parser.add_argument("--sandbox", action="store_true",
                        help="run servers under the service's filter of system calls")
    parser.add_argument("--clients", action="store_true",
                        help="write the table of docs/clients.md anew")
    parser.add_argument("--without", action="append", default=[], metavar="NAME",
                        help="a module, a class or a case to leave out")
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--table", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("names", nargs="*")
    args = parser.parse_args()
    if args.server:
        harness.KESTD = os.path.abspath(args.server)
    if args.sandbox:
        harness.WRAPPER = ["/usr/bin/python3", os.path.join(HERE, "sandbox")]
    harness.DIALECT = args.dialect or harness.DIALECT
    if not os.access(harness.KESTD, os.X_OK):
        print(f"run.py: there is no server at {harness.KESTD}", file=sys.stderr)
        return 2
    if args.jobs > 1 and not (args.names or args.clients or args.without):
        return finish(args, run_beside(args))
    loader = unittest.TestLoader()
    names = args.names or (CLIENTS if args.clients else [])
    if names:
        suite = loader.loadTestsFromNames(names)
    else:
        suite = loader.discover(HERE, pattern="test_*.py", top_level_dir=HERE)
    if args.without:
        suite, unused = leave_out(suite, args.without)
        if unused:
            print(f"run.py: there is no {', '.join(unused)} to leave out", file=sys.stderr)
            return 2
    runner = unittest.TextTestRunner(verbosity=2, resultclass=Report, stream=sys.stdout)
    result = runner.run(suite)
    show_clients(result, is_all=not names or args.table, writes=args.clients and not args.names)
    return finish(args, result.rows)


if __name__ == "__main__":
    sys.exit(main())
