# SPDX-License-Identifier: Apache-2.0
"""Whether a reply that a failure ran into was true.

A request may end as it does without the failure; or with 5xx, or without a whole reply, and then
what was there before is there, or what should come, and nothing in between. No other status is
true: a 4xx says that the request was wrong, and 404 that there is nothing.
"""

import errno
import re

VARIES = [  # what differs between two runs of one request, or with its headers
    (rb"i\d{6}", b"ITEM"),
    (rb"opaquelocktoken:[0-9a-f-]+", b"TOKEN"),
    (rb'(W/)?"[0-9a-f]{16,48}"', b"TAG"),
    (rb"127\.0\.0\.1:\d+", b"HOST"),
    (rb"Second-\d+", b"SECONDS"),
    (rb"\d{4}-\d\d-\d\dT[\d:.]+Z", b"DATE"),
    (rb"\d{4}-\d\d-\d\d \d\d:\d\d(:\d\d)?", b"DATE"),
    (rb"\w{3}, \d\d \w{3} \d{4} [\d:]{8} GMT", b"DATE"),
    (rb"\b1[0-9]{9,18}\b", b"TICKS"),
    (rb'(W/)?("|&quot;)[0-9a-f]{32}("|&quot;)', b"TAG"),
    (rb"<D:quota-available-bytes>\d+", b"<D:quota-available-bytes>"),
    (rb"\bfile\d+\b", b"FILE"),  # numbered for the scripts of a page
]


def steady(body):
    """A body without what may differ."""
    for pattern, text in VARIES:
        body = re.sub(pattern, text, body)
    return body


def inner_statuses(body):
    return {int(status) for status in re.findall(rb"HTTP/1\.1 (\d\d\d)", body)}


def is_success(answer):
    return 200 <= answer.status < 300


def tells_failure(answer, clean):
    """A reply that says of itself that something failed on the server's side."""
    if answer.status >= 500:
        return True
    return answer.status == 207 and any(
        status >= 500 for status in inner_statuses(answer.body) - inner_statuses(clean.body))


def without_tokens(state):
    return {key: (content, tuple(sorted(lock[:3] for lock in locks)), colour)
            for key, (content, locks, colour) in state.items()}


def contents_of(state):
    """What is there, without properties and locks."""
    return {key: content for key, (content, _, _) in state.items()}


def locks_in(state):
    """What is locked, and how often."""
    return sorted(lock for _, locks, _ in state[0].values() for lock in locks)


def oldest_kept(kept):
    """{volume: number of the oldest deleted entry with files}. On a full disk the oldest entries
    give way, so that of what was kept only older ones may be gone."""
    oldest = {}
    for entries in kept.values():
        for (volume, number), (_, files) in entries.items():
            if files:
                oldest[volume] = min(number, oldest.get(volume, number))
    return oldest


class Reference:
    """How a scenario goes without a failure: what was there before, the reply, what is there
    after."""

    def __init__(self, name, before, answer, after, before_kept, after_kept):
        self.name = name
        self.before = (without_tokens(before), before_kept)
        self.after = (without_tokens(after), after_kept)
        self.answer = answer
        self.body = steady(answer.body)


def compare(state, other):
    """What differs, in a few words."""
    (shown, kept), (wanted, wanted_kept) = state, other
    names = sorted(":".join(key) for key in set(shown) | set(wanted)
                   if shown.get(key) != wanted.get(key))
    words = [f"{name}: {shown.get(tuple(name.split(':', 1)))} instead of "
             f"{wanted.get(tuple(name.split(':', 1)))}" for name in names[:3]]
    if kept != wanted_kept:
        words.append(f"kept {kept} instead of {wanted_kept}")
    return "; ".join(words)


def is_torn(state, item, reference):
    """Whether this is neither what was there nor what should come. Some of what a failure leaves is
    no more than that: a form's files are each for themselves; and where the disk goes on failing,
    what cannot be taken back stays as a kept entry without files, or as the empty file under a lock
    that was not granted."""
    known = (reference.before, reference.after)
    if state in known:
        return False
    shown, kept = state
    if item.scenario.name.startswith("POST"):
        return any(shown.get(key) not in [one[0].get(key) for one in known]
                   for key in {*shown, *reference.before[0], *reference.after[0]})
    if not item.injection.may_differ:
        return True
    kept = [entry for entry in kept if entry[2]]
    if item.scenario.name.startswith("LOCK new"):
        shown = {key: value for key, value in shown.items() if value != ("", (), None)}
    return (shown, kept) not in known


def is_in_both(shown, kept, given_way, reference):
    """Whether an object that was to move between volumes stands in both, and nothing is lost: what
    it has replaced is kept."""
    if " between volumes" not in reference.name:
        return False
    before, after = reference.before[0], reference.after[0]
    both = {key: value for key, value in before.items() if key[0] == "docs"}
    both.update((key, value) for key, value in after.items() if key[0] == "other")
    replaced = [("other", name, held_at(before, "other", name)) for name in ("g", "u")
                if ("other", name) in before]
    # One that was not aside yet may have given way to what needed room.
    gone = {(volume, path) for (volume, _), (path, files) in given_way.items() if not files}
    return shown == both and all(entry in kept or entry[:2] in gone for entry in replaced)


def is_final(item):
    """Whether a deletion may leave nothing to restore: one that cannot be written down on a full
    disk goes for good."""
    return item.scenario.name.startswith("DELETE") and item.injection.lasts and \
        item.injection.error == errno.ENOSPC


def held_at(shown, volume, top):
    """The files there as a deleted entry has them."""
    return {name[len(top):].strip("/"): value[0] for (place, name), value in shown.items()
            if place == volume and (name + "/").startswith(top + "/")}


def without_spare(kept, reference):
    """What is kept, without what has moved between volumes or was replaced in that and could not be
    let go: it is kept like a deleted entry, which loses nothing."""
    if " between volumes" not in reference.name:
        return kept
    return [entry for entry in kept if entry in reference.after[1] or
            entry[2] != held_at(reference.before[0], *entry[:2])]


def judge_reply(item, reference):
    """Complaints about the reply alone."""
    answer, clean = item.answer, reference.answer
    method = item.scenario.name.split(" ")[0]
    if answer.hung:
        yield "no end of the reply while the failure lasted"
    if not answer.told():
        if item.injection and item.injection.must_go_on:
            yield "given up where it had only to go on"
        return
    if tells_failure(answer, clean):
        if item.injection and item.injection.must_go_on:
            yield f"{answer.status} where it had only to go on"
        return
    if clean.status == 206 and answer.status == 200:
        return  # the whole file for a part of it is an answer, too (RFC 9110 section 14.2)
    if item.injection.kind == "recv" and answer.status >= 400:
        return  # the client is told that its own connection has failed
    if answer.status != clean.status:
        yield f"told {answer.status} instead of {clean.status} or a failure"
        return
    same = steady(answer.body) == reference.body
    if method == "LOCK" and answer.status in (200, 201):
        same = b"activelock" in answer.body
    if not same:
        yield f"{answer.status} with another body: {difference(answer.body, reference.body)}"
    if method == "HEAD" or (method == "GET" and answer.status == 200):
        for name in ("content-length", "content-type", "content-range"):
            if answer.headers.get(name) != clean.headers.get(name):
                yield f"{answer.status} with {name} {answer.headers.get(name)}"


def difference(body, wanted):
    """Where two bodies part."""
    body = steady(body)
    at = next((i for i, pair in enumerate(zip(body, wanted)) if pair[0] != pair[1]),
              min(len(body), len(wanted)))
    return f"{len(body)} bytes for {len(wanted)}, at {at}: {body[max(at - 30, 0):at + 50]!r}"


def judge_state(item, fresh, kept, reference):
    """Complaints about what is there after the reply."""
    held = kept
    kept = without_spare(held, reference)
    if is_final(item) and not kept:
        kept = reference.after[1] if without_tokens(fresh) == reference.after[0] else kept
    state = (without_tokens(fresh), kept)
    answer = item.answer
    if item.same is not None and item.same != fresh and not (
            item.injection.may_differ and contents_of(item.same) == contents_of(fresh)):
        yield "a fresh server sees something else than the one that answered"
    if answer.told() and not tells_failure(answer, reference.answer) and \
            answer.status == reference.answer.status:
        if state != reference.after:
            yield f"after {answer.status}: {compare(state, reference.after)}"
        yield from judge_token(item, fresh)
    elif is_torn(state, item, reference) and not (
            item.injection.may_differ and is_in_both(state[0], held, item.kept, reference)):
        nearest = min((reference.before, reference.after),
                      key=lambda other: len(compare(state, other)))
        yield f"after {answer.status or 'no reply'}, neither old nor new: {compare(state, nearest)}"
    # One that was refreshed all the same is known to its holder.
    elif item.scenario.name.startswith("LOCK") and answer.status >= 500 and \
            not item.scenario.name.startswith("LOCK refresh") and \
            reference.before != reference.after and locks_in(state) != locks_in(reference.before):
        yield f"after {answer.status} the lock is there"


def judge_token(item, fresh):
    """A lock that was granted bears the token that the reply tells."""
    if not item.scenario.name.startswith("LOCK") or not is_success(item.answer):
        return
    told = re.findall(rb"opaquelocktoken:[0-9a-f-]+", item.answer.text)
    held = {lock[3].encode() for _, locks, _ in fresh.values() for lock in locks}
    if not told or told[0] not in held:
        yield "the token told is that of no lock"


def is_late(item, fresh, kept, reference):
    """Told as a failure, yet done: true, but worth counting."""
    return (not item.answer.told() or tells_failure(item.answer, reference.answer)) and \
        reference.before != reference.after and \
        (without_tokens(fresh), kept) == reference.after
