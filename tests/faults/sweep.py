#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Fails each call of each request in turn, and looks whether every reply was true.

usage: tests/faults/run [--full] [--budget N] [--scenario TEXT]… [--call TEXT]… [--world NAME]…
                        [--dialect NAME]… [--minutes N] [--server KESTD] [--preload FILE]
                        [--junit FILE] [--list] [-v]

Without --full, a sample of N injections that is the same in every run. With --minutes, as much of it
as fits into that time, in an order that leaves out of each request the same share. The exit status
is not 0 when a reply was not true.
"""

import argparse
import collections
import contextlib
import errno
import hashlib
import os
import re
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
TESTS = os.path.dirname(HERE)
sys.path[:0] = [HERE, os.path.join(TESTS, "e2e"), os.path.join(TESTS, "support")]

import harness  # noqa: E402
import judge  # noqa: E402
import junit  # noqa: E402
import resumable  # noqa: E402
import scenarios  # noqa: E402
from control import FROM_THEN, ONCE, SHORT, SHORT_FROM, describe, library  # noqa: E402
from world import Unsettled, World, Wrong  # noqa: E402

E = errno
# What each kind of call can fail with. EINTR and a short count are no failures: the caller goes on.
ERRORS = {
    "open": (E.EIO, E.EMFILE, E.EINTR), "create": (E.ENOSPC, E.EIO, E.EMFILE),
    "openat2": (E.EIO, E.ENOMEM, E.EMFILE, E.EINTR), "close": (E.EIO,),
    "read": (E.EIO, E.EINTR), "write": (E.ENOSPC, E.EIO, E.EINTR),
    "getdents64": (E.EIO, E.ENOMEM, E.EINTR), "stat": (E.EIO, E.ENOMEM), "fstat": (E.EIO,),
    "statx": (E.EIO, E.ENOMEM), "access": (E.EIO,), "rename": (E.EIO, E.ENOSPC),
    "link": (E.EIO, E.ENOSPC), "unlink": (E.EIO,), "mkdir": (E.ENOSPC, E.EIO),
    "fsync": (E.EIO, E.ENOSPC), "ftruncate": (E.EIO, E.ENOSPC),
    "fallocate": (E.ENOSPC, E.EIO), "copy_file_range": (E.EIO, E.ENOSPC, E.EINTR),
    "ioctl": (E.EIO,), "fcntl": (E.EIO, E.ENOLCK), "flock": (E.EIO,), "setattr": (E.EIO,),
    "getxattr": (E.EIO,), "setxattr": (E.EIO, E.ENOSPC), "getrandom": (E.EIO, E.EINTR),
    "mmap": (E.ENOMEM,), "malloc": (E.ENOMEM,), "recv": (E.ECONNRESET, E.EINTR),
    "send": (E.ECONNRESET, E.EINTR), "epoll": (E.ENOMEM,), "thread": (E.EAGAIN,),
}
SHORTENED = ("read", "write", "copy_file_range", "getdents64", "recv", "send")
# Calls that may end with EINTR although no data has moved; those of the database go on by themselves.
DISK = ("open", "create", "openat2", "read", "write", "getdents64", "stat", "fstat", "statx",
        "access", "rename", "link", "unlink", "mkdir", "fsync", "ftruncate", "fallocate",
        "copy_file_range", "setattr", "getxattr", "setxattr")
GROUPS = {  # several kinds from one moment on: a state that the whole machine comes into
    "disk-full": (("create", "write", "rename", "link", "mkdir", "ftruncate", "fallocate",
                   "copy_file_range", "setxattr", "fsync"), E.ENOSPC),
    "disk-dead": (DISK, E.EIO),
    "no-descriptors": (("open", "create", "openat2"), E.EMFILE),
    "no-memory": (("malloc", "mmap"), E.ENOMEM),
}
WORLDS = {
    "plain": {},
    "unsynced": {"settings": {"FileStore": {"Sync": "none"}}},
    "final": {"settings": {"FileStore": {"Keep Deleted": 0, "Sync": "full"}}},
    "ruled": {"settings": {
        "Access\\Rules\\open": {"Who": ["everybody"], "Path": "/docs/*", "Rights": ["all"]},
        "Access\\Rules\\closed": {"Who": ["everybody"], "Path": "/other/*",
                                  "Rights": ["list", "read"]}}},
    "uploads": {},  # of those that go on in other requests
    "crossing": {"other": os.environ.get("KEST_TEST_DIR") or tempfile.gettempdir()},
}
MANY = 4  # complaints of one injection that are kept
MOST_PLACES = 200  # injections of one fault that are looked up in the program
PATIENCE = 3  # seconds for what is removed in the background
HANGS = 3  # of one scenario with one kind of call; the rest is left out, and told


class Injection:
    """The nth call of some kinds, and what becomes of it."""

    def __init__(self, kind, calls, nth, mode, error):
        self.kind = kind
        self.calls = calls
        self.nth = nth
        self.mode = mode
        self.error = error
        self.lasts = mode == FROM_THEN
        # Rows of properties and locks that a running server shows may differ from those of a fresh
        # one: what a failure that lasts leaves is set right by the next start, and what was written
        # and not synced may count or not. Names and contents may not.
        self.may_differ = self.lasts or kind == "fsync"
        self.must_go_on = mode in (SHORT, SHORT_FROM) or error == E.EINTR

    def __str__(self):
        what = {ONCE: "", FROM_THEN: " on", SHORT: " short", SHORT_FROM: " on short"}[self.mode]
        error = "" if self.mode in (SHORT, SHORT_FROM) else " " + E.errorcode[self.error]
        return f"{self.kind} {self.nth}{what}{error}"


def injections(counts):
    """All there are for a request that calls each kind so often."""
    for kind, errors in ERRORS.items():
        count = counts.get(kind, 0)
        for nth in range(1, count + 1):
            for error in errors:
                yield Injection(kind, (kind,), nth, ONCE, error)
            if kind in SHORTENED:
                yield Injection(kind, (kind,), nth, SHORT, 0)
            if (nth <= 2 or nth * 2 == count) and kind != "fcntl":  # a lock is waited for: 10 s
                yield Injection(kind, (kind,), nth, FROM_THEN, errors[0])
        if count and kind in SHORTENED and kind != "send":  # a socket that takes less is full
            yield Injection(kind, (kind,), 1, SHORT_FROM, 0)
    for group, (kinds, error) in GROUPS.items():
        total = sum(counts.get(kind, 0) for kind in kinds)
        step = max(total // 40, 1)
        for nth in range(1, total + 1, step):
            yield Injection(group, kinds, nth, FROM_THEN, error)


class Runner:
    """One world with the scenarios that want it."""

    def __init__(self, world, chosen, options):
        self.world = world
        self.chosen = chosen
        self.options = options
        self.items = []       # of injections
        self.references = {}  # scenario: (item before, items without a failure)
        self.counts = {}
        self.oldest = {}      # by volume: the number of the oldest deleted entry that is kept
        self.told = set()     # private files that are known to be left
        self.left_out = 0

    def measure(self, scenario):
        """Runs the scenario without failures: first without its request, then often enough that the
        count of its calls is that of a server that knows it."""
        before = self.world.item(scenario)
        clean = []
        for _ in range(3):
            item = self.world.item(scenario)
            self.run(item, None)
            if item.answer.status not in scenario.status or not item.answer.whole:
                raise Wrong(f"{scenario.name} without a failure: {item.answer}")
            item.kept = self.world.kept_of(item)
            clean.append(item)
        counts = self.world.control.counts()
        self.counts[scenario] = dict(zip(self.world.names, counts))
        self.references[scenario] = (before, clean)

    def run(self, item, injection):
        world, control = self.world, self.world.control
        method, path, headers, body = item.scenario.request(item)
        world.peer.ask("OPTIONS", "/")  # a connection that the server waits for
        mask = 0
        for name in injection.calls if injection else ():
            mask |= 1 << world.names.index(name)
        plan = (injection.nth, injection.mode, injection.error) if injection else (0, 0, 0)
        with control.armed(mask, *plan):
            item.answer = world.peer.last(method, path, headers, body, control.disarm)
        item.injection = injection
        item.hits = control.hits()
        if item.hits:
            item.places = world.symbols.places(control.frames())

    def check_now(self, item):
        """What the server that has answered shows, and what it holds on to."""
        world = self.world
        try:
            item.same = world.look(world.peer, item)
        except (Wrong, OSError, SyntaxError) as wrong:
            item.same = None
            # The failure is over: nothing that is there may be missing, whatever it has left.
            if not (item.injection.may_differ and isinstance(wrong, Unsettled)):
                item.notes.append(f"then: {wrong}"[:300])
        item.kept = world.kept_of(item)
        self.check_gone(item, "stays open", world.lost_files)
        # Where names cannot be changed the next start does it.
        if item.injection.kind in ("unlink", "rename", "disk-full", "disk-dead"):
            self.told.update(world.leftovers())
        else:
            self.check_gone(item, "is left", lambda: [path for path in world.leftovers()
                                                      if path not in self.told])

    def check_gone(self, item, what, found):
        """What is removed in the background is waited for. What has been told once is not told for
        every injection that follows."""
        with contextlib.suppress(harness.Failure):
            if found():
                harness.wait_for(lambda: not found(), what, PATIENCE)
            return
        lost = found()
        item.notes.append(f"{what}: {', '.join(lost)[:200]}")
        self.told.update(lost)
        self.world.files = self.world.open_files()

    def prepared(self, scenario):
        """An item whose preparation went well; if it does not, the failure before it lasts."""
        try:
            return self.world.item(scenario)
        except (Wrong, OSError) as wrong:
            if self.items:
                self.items[-1].notes.append(f"lasts: {wrong}"[:300])
            self.world.revive()
            return self.world.item(scenario)

    def inject(self, scenario, injection):
        world = self.world
        item = self.prepared(scenario)
        self.run(item, injection)
        if not item.hits:
            return None
        if world.has_died(item):
            item.notes.append("the server has died: " + world.revive()[-300:])
        else:
            self.check_now(item)
        self.items.append(item)
        return item

    def go(self, plan):
        hangs = collections.Counter()
        for scenario, injection in plan:
            if self.options.end and time.monotonic() > self.options.end:
                break
            if hangs[scenario, injection.kind] >= HANGS:
                self.left_out += 1
                continue
            started = time.monotonic()
            item = self.inject(scenario, injection)
            if time.monotonic() - started > 0.3 and self.options.verbose:
                print(f"{scenario.name}, {injection}: {time.monotonic() - started:.1f} s",
                      flush=True)
            if item and item.answer.hung:
                hangs[scenario, injection.kind] += 1

    def settle(self):
        """Judges everything by a fresh server. Yields (item, complaints, whether it was late)."""
        with self.world.fresh() as peer:
            left = self.world.left_on_disk()
            kept, strays = self.world.kept()
            self.oldest = judge.oldest_kept(kept)
            if left:
                yield None, [f"left for ever: {path}" for path in left[:MANY]], False
            if strays:
                yield None, strays[:MANY], False
            for scenario, (before, clean) in self.references.items():
                yield from self.settle_scenario(peer, scenario, before, clean, kept)

    def settle_scenario(self, peer, scenario, before, clean, kept):
        look = self.world.look
        found = [(look(peer, item), self.kept(item, kept)) for item in clean]
        reference = judge.Reference(scenario.name, look(peer, before), clean[-1].answer,
                                    found[-1][0], self.kept(before, kept), found[-1][1])
        for item, (state, known) in zip(clean, found):
            if (judge.without_tokens(state), known) != reference.after or \
                    judge.steady(item.answer.body) != reference.body and scenario.name[:4] != "LOCK":
                raise Wrong(f"{scenario.name} is not the same in every run: "
                            + judge.compare((judge.without_tokens(state), known), reference.after)
                            + judge.difference(item.answer.body, reference.body))
        if clean[-1].answer.status >= 400 and reference.before != reference.after:
            yield clean[-1], [judge.compare(reference.after, reference.before)], False
        for item in self.items:
            if item.scenario is scenario:
                yield self.verdict(peer, item, reference, kept)

    def kept(self, item, kept):
        """What is kept of this item, and what was and has given way to a later request."""
        found = dict(kept.get(item.name, {}))
        for (volume, number), entry in item.kept.items():
            if (volume, number) in found or not entry[1]:
                continue
            if number >= self.oldest.get(volume, number + 1):
                item.notes.append(f"an older entry is kept than {entry}, which is gone")
            found[volume, number] = entry
        return sorted(((volume, *entry) for (volume, _), entry in found.items()), key=repr)

    def verdict(self, peer, item, reference, all_kept):
        kept = self.kept(item, all_kept)
        complaints = list(item.notes) + list(judge.judge_reply(item, reference))
        try:
            fresh = self.world.look(peer, item)
        except (Wrong, OSError, SyntaxError) as wrong:
            return item, complaints + [f"fresh: {wrong}"[:300]], False
        complaints += judge.judge_state(item, fresh, kept, reference)
        if item.scenario.upload:
            complaints += resumable.judge_upload(self.world, peer, item, fresh, reference)
        return item, complaints, judge.is_late(item, fresh, kept, reference)

    def end_uploads(self):
        """What nobody goes on with ends in its time, and leaves nothing."""
        time.sleep(1.1)  # the start of a server looks for it
        with self.world.after(FileStore={"Upload Time": 1}):
            with contextlib.suppress(harness.Failure):
                harness.wait_for(lambda: not resumable.pending(self.world), "the uploads to end", 30)
        left = resumable.pending(self.world)
        if left:
            yield None, [f"an upload stays for ever: {path}" for path in left[:MANY]], False


def order(seed, scenario, injection):
    """A place in the sample that depends on nothing but what is asked."""
    return hashlib.sha1(f"{seed} {scenario.name} {injection}".encode()).digest()


def make_plan(runner, options, share):
    """Every injection of these scenarios, or a sample of `share` of them: at least one for each
    kind of call in each scenario comes first, then the rest as the hash has it."""
    everything = [(scenario, injection) for scenario in runner.chosen
                  for injection in injections(runner.counts[scenario])
                  if not options.call or any(text in str(injection) for text in options.call)]
    if share is None:
        if options.end:
            everything.sort(key=lambda pair: order(options.seed, *pair))
        return everything, len(everything)
    ranked = sorted(everything, key=lambda pair: order(options.seed, *pair))
    picked = set(map(id, ranked[:share]))
    return [pair for pair in everything if id(pair) in picked], len(everything)


class Tally:
    """Counts, and prints each distinct fault once with how often it came."""

    def __init__(self, root):
        self.root = root
        self.dialect = ""
        self.total = 0
        self.untrue = 0
        self.late = 0
        self.statuses = collections.Counter()
        self.faults = {}
        self.by_scenario = collections.Counter()
        self.failed = collections.Counter()

    def add(self, item, complaints, late):
        self.late += late
        if item is not None:
            self.total += 1
            self.by_scenario[self.name_of(item)] += 1
            status = item.answer.status
            self.statuses[f"{status // 100}xx" if item.answer.told() else "cut"] += 1
        if not complaints:
            return
        self.untrue += 1
        self.failed[self.name_of(item)] += 1
        text = re.sub(r"\d+", "#", complaints[0].split(":")[0])
        request = self.name_of(item).split(" [")[0]
        self.faults.setdefault((text[:60], request), []).append((item, complaints))

    def name_of(self, item):
        return f"{self.dialect}: {item.scenario.name if item else 'at the end'}"

    def report(self, verbose):
        for (_, request), found in sorted(self.faults.items(), key=lambda row: -len(row[1])):
            item, complaints = found[0]
            print(f"\n{request}, {len(found)} times: {complaints[0][:300]}")
            for complaint in complaints[1:MANY]:
                print(f"    and {complaint[:300]}")
            places = collections.Counter(
                describe(item.places, self.root) for item, _ in found[:MOST_PLACES] if item)
            for place, count in places.most_common(None if verbose else 3):
                print(f"    {count} at {place}")
            for other, _ in found[:20 if verbose else 3]:
                if other:
                    print(f"    {other.scenario.name}: {other.injection}: {other.answer}"[:180])
        if verbose:
            for name, count in self.by_scenario.items():
                print(f"{count:6}, {self.failed[name]:6} untrue  {name}")

    def write_junit(self, path):
        names = sorted({*self.by_scenario, *self.failed})
        junit.write(path, "faults", [(name, 0, name in self.failed) for name in names])


def arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument("--full", action="store_true")
    parser.add_argument("--budget", type=int, default=4000, help="injections of the sample")
    parser.add_argument("--seed", default="1", help="another sample")
    parser.add_argument("--scenario", action="append", help="only those with this in their name")
    parser.add_argument("--call", action="append", help="only injections that read like this")
    parser.add_argument("--world", action="append", choices=sorted(WORLDS))
    parser.add_argument("--dialect", action="append", choices=scenarios.DIALECTS)
    parser.add_argument("--minutes", type=float, help="begin no injection after this time")
    parser.add_argument("--server", help="the kestd to test (default: the release build)")
    parser.add_argument("--preload",
                        help="default: the newer one of the release and the development build")
    parser.add_argument("--junit")
    parser.add_argument("--list", action="store_true", help="what each request calls, and end")
    parser.add_argument("-v", "--verbose", action="store_true")
    return parser.parse_args()


def choose(name, dialect, options):
    """The scenarios of one world."""
    if options.world and name not in options.world or \
            options.dialect and dialect not in options.dialect:
        return []
    return [scenario for scenario in scenarios.ALL
            if scenario.world == name and dialect in scenario.dialects and
            (not options.scenario or any(text in scenario.name for text in options.scenario))]


def show_calls(dialect, runner):
    for scenario, counts in runner.counts.items():
        called = " ".join(f"{kind}={count}" for kind, count in counts.items() if count)
        print(f"{dialect}: {scenario.name}: {called}")


def run_part(name, dialect, chosen, options, share, tally):
    """These scenarios, in one world or in as many as hold all injections: (made, possible, left
    out)."""
    plan, made, left_out = None, 0, 0
    while plan is None or plan:
        world = World(options.preload, dialect, **WORLDS[name])
        try:
            runner = Runner(world, chosen, options)
            for scenario in chosen:
                runner.measure(scenario)
            if options.list:
                show_calls(dialect, runner)
                return 0, 0, 0
            if plan is None:
                plan, possible = make_plan(runner, options, share)
            most = resumable.MOST_AT_ONCE if name == "uploads" else len(plan)
            runner.go(plan[:most])
            plan = plan[most:]
            for row in runner.settle():
                tally.add(*row)
            if name == "uploads":
                for row in runner.end_uploads():
                    tally.add(*row)
            made += len(runner.items)
            left_out += runner.left_out
        finally:
            world.close()
    return made, possible, left_out


def run_world(name, dialect, chosen, options, share, tally):
    started = time.monotonic()
    tally.dialect = dialect
    parts = [[scenario] for scenario in chosen] if name == "uploads" else [chosen]
    rows = [run_part(name, dialect, part, options,
                     None if share is None else share * len(part) // len(chosen), tally)
            for part in parts]
    made, possible, left_out = map(sum, zip(*rows))
    print(f"{dialect}, {name}: {made} of {possible} injections in {len(chosen)} requests, "
          f"{left_out} left out after hangs, {time.monotonic() - started:.0f} s", flush=True)


def main():
    options = arguments()
    if options.server:
        harness.KESTD = os.path.abspath(options.server)
    options.preload = os.path.abspath(options.preload or library())
    for path in (harness.KESTD, options.preload):
        if not os.path.exists(path):
            print(f"run: there is no {path}", file=sys.stderr)
            return 2
    options.end = options.minutes and time.monotonic() + 60 * options.minutes
    tally = Tally(os.path.dirname(os.path.dirname(harness.KESTD)))
    worlds = {(name, dialect): choose(name, dialect, options)
              for dialect in scenarios.DIALECTS for name in WORLDS}
    total = sum(map(len, worlds.values()))
    for (name, dialect), chosen in worlds.items():
        share = None if options.full else options.budget * len(chosen) // max(total, 1)
        if chosen:
            run_world(name, dialect, chosen, options, share, tally)
    if options.list:
        return 0
    tally.report(options.verbose)
    if options.junit:
        tally.write_junit(options.junit)
    told = ", ".join(f"{count} {status}" for status, count in sorted(tally.statuses.items()))
    print(f"\n{tally.total} injections ({told}; {tally.late} told as failed and done), "
          f"{tally.untrue} untrue, {len(tally.faults)} distinct")
    return 1 if tally.faults or not tally.total else 0


if __name__ == "__main__":
    sys.exit(main())
