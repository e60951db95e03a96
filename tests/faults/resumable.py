# SPDX-License-Identifier: Apache-2.0
"""Uploads that go on in other requests: their scenarios, and whether what the server tells of them
after a failure is true.

What was acknowledged is there; what is told to be there is there, byte for byte; the target is the
old or the new one; and an upload that is not complete can be completed.
"""

import os
import re

import judge
from harness import pattern
from world import digest

WHOLE = pattern(400_000, 7)
FIRST = 100_000   # bytes of the first request: more than is received before the module is called
SECOND = 150_000  # of the one after it
PARTIAL = {"Content-Type": "application/partial-upload"}
MOST_AT_ONCE = 40  # injections in one world: the store keeps 64 uploads of one user
RESUMED = 4  # of five; the others show that what nobody goes on with ends by itself


class Upload:
    """What a scenario does to the upload of "f"."""

    def __init__(self, begins=False, ends=False, cancels=False):
        self.begins = begins
        self.ends = ends
        self.cancels = cancels


def mark(is_complete, offset=None):
    headers = {"Upload-Complete": f"?{int(is_complete)}"}
    return headers if offset is None else {**headers, **PARTIAL, "Upload-Offset": str(offset)}


def begun(item):
    """A step of a preparation: the first part is there."""
    answer = item.ask("PUT", "f", mark(False), WHOLE[:FIRST])
    item.place = place_told(answer)
    item.sent = FIRST


def to_upload(method, headers=None, body=b""):
    """A request to the upload of the preparation."""
    return lambda item: (method, item.place or item.path("no/.kest/upload/x"), dict(headers or {}),
                         body)


def place_told(answer):
    """The place that the reply names, or one that came before it."""
    found = re.search(rb"\r\nLocation: (\S+/\.kest/upload/\S+)\r\n", answer.text)
    return found[1].decode() if found else None


def add(scenario, chain, file, coloured):
    """Adds the scenarios: (`scenario` takes name, build, request, statuses and what it does)."""
    over = chain(file("f"), coloured("f"))
    for name, before in (("", chain()), (" over", over)):
        scenario("PUT begins an upload" + name, before,
                 lambda item: ("PUT", item.path("f"), mark(False), WHOLE[:FIRST]), 201,
                 upload=Upload(begins=True))
        scenario("PUT of a whole that can be resumed" + name, before,
                 lambda item: ("PUT", item.path("f"), mark(True), WHOLE), 201, 204,
                 upload=Upload(begins=True, ends=True))
        scenario("PATCH ends an upload" + name, chain(before, begun),
                 to_upload("PATCH", mark(True, FIRST), WHOLE[FIRST:]), 201, 204,
                 upload=Upload(ends=True))
    there = chain(over, begun)
    scenario("PATCH adds to an upload", there,
             to_upload("PATCH", mark(False, FIRST), WHOLE[FIRST:FIRST + SECOND]), 204,
             upload=Upload())
    scenario("HEAD of an upload", there, to_upload("HEAD"), 204, upload=Upload())
    scenario("DELETE of an upload", there, to_upload("DELETE"), 204, upload=Upload(cancels=True))


def stored(world, place):
    name = place.rsplit("/", 1)[1]
    try:
        with open(world.trees["docs"] / f".kest/uploads/{name}", "rb") as file:
            return file.read()
    except FileNotFoundError:
        return None


def judge_upload(world, peer, item, state, reference):
    """Complaints about the item's upload. Completes it, most of the time."""
    upload, answer = item.scenario.upload, item.answer
    place = item.place or place_told(answer)
    if not place:
        return
    is_told = answer.told() and not judge.tells_failure(answer, reference.answer) and \
        answer.status == reference.answer.status
    is_new = state.get(("docs", "f"), (None,))[0] == digest(WHOLE)
    found = peer.ask("HEAD", place)
    if upload.cancels and (is_told or found.status == 404):
        if found.status != 404:
            yield f"after {answer.status} the upload is there"
        elif is_told and stored(world, place) is not None:
            yield "the upload is gone, and its content is not"
        return
    if found.status != 204:
        yield f"the upload is told as {found.status}"
        return
    if (found.headers["upload-complete"] == "?1") != is_new:
        yield f"Upload-Complete: {found.headers['upload-complete']}, and the content is " + \
            ("new" if is_new else "old")
    elif not is_new:
        yield from judge_pending(world, peer, item, place, int(found.headers["upload-offset"]))


def judge_pending(world, peer, item, place, offset):
    answer = item.answer
    told = int(answer.headers.get("upload-offset", 0)) if answer.told() else 0
    if offset < max(told, item.sent):
        yield f"{offset} bytes are left of {max(told, item.sent)} that were acknowledged"
    if (stored(world, place) or b"")[:offset] != WHOLE[:offset]:
        yield f"the {offset} bytes told are not those that were sent"
    if int(item.name[1:]) % (RESUMED + 1) == 0:
        return
    ended = peer.ask("PATCH", place, mark(True, offset), WHOLE[offset:])
    if ended.status not in (201, 204):
        yield f"the upload cannot be completed: {ended}"
        return
    with open(item.disk("f"), "rb") as file:
        if file.read() != WHOLE:
            yield "completed, the content is not what was sent"


def pending(world):
    """Files of uploads that the volumes hold."""
    return [os.path.join(folder, name) for folder in
            (tree / ".kest/uploads" for tree in world.trees.values())
            if os.path.isdir(folder) for name in os.listdir(folder)]
