# SPDX-License-Identifier: Apache-2.0
"""Whether there is an order in which a server may have done what its clients saw.

A history is what several clients asked of one resource, each request with the moments of its
beginning and its end and with its answer. It is legal when the requests can be put in an order in
which each stands between its beginning and its end and every answer is what a server without
concurrency would have said (linearizability; the search is Wing and Gong's, with the states that
were met remembered, as Lowe proposed). A request without an answer was done at some moment before
its end, or never.
"""

import dataclasses

UNANSWERED = 0
NEVER = float("inf")


@dataclasses.dataclass(frozen=True)
class State:
    """content: None where there is no file. locks: the tokens that are held."""

    content: object = None
    locks: frozenset = frozenset()
    exclusive: bool = False


@dataclasses.dataclass(frozen=True)
class Request:
    """kind: "get", "put", "delete", "lock", "refresh", "unlock".
    token: the one that is sent along, or the one that a LOCK was given. condition: None,
    "new" (If-None-Match: *), "there" (If-Match: *), "unchanged" (If-Unmodified-Since, a date before
    anything was written). value: what a PUT brings, or what a GET was given."""

    client: int
    kind: str
    status: int
    began: float
    ended: float
    token: object = None
    value: object = None
    condition: object = None
    shared: bool = False

    def __str__(self):
        words = [f"client {self.client}: {self.kind.upper()}"]
        if self.condition:
            words.append({"new": "If-None-Match: *", "there": "If-Match: *",
                          "unchanged": "If-Unmodified-Since"}[self.condition])
        if self.shared:
            words.append("shared")
        if self.kind == "put":
            words.append(repr(self.value))
        if self.token is not None and self.kind != "lock":
            words.append(f"with {self.token}")
        words.append("-> " + (str(self.status) if self.status != UNANSWERED else "no answer"))
        if self.kind == "get" and self.status == 200:
            words.append(repr(self.value))
        if self.kind == "lock" and self.token is not None and self.status == 200:
            words.append(f"token {self.token}")
        end = "never" if self.ended == NEVER else f"{self.ended:.4f}"
        return f"{self.began:10.4f} .. {end:>10}  " + " ".join(words)


DONE = (200, 201, 204)
CHANGING = ("put", "delete", "lock", "unlock")


def _refusals(state, request):
    """The statuses with which a change may be refused in a state."""
    found = set()
    if request.token is not None and request.token not in state.locks:
        found.add(412)
    if request.token not in state.locks and state.locks:
        found.add(423)
    if state.content is not None and request.condition in ("new", "unchanged"):
        found.add(412)
    if state.content is None and request.condition == "there":
        found.add(412)
    return found


def _done(state, request):
    """The state after the request was done; None where it cannot be done."""
    held = state.locks
    if request.kind == "get":
        return state if state.content is not None and request.value == state.content else None
    if request.kind == "lock":
        if held and (state.exclusive or not request.shared):
            return None
        content = b"" if state.content is None else state.content
        return State(content, held | {request.token}, not request.shared)
    if request.kind == "refresh":
        return state if request.token in held else None
    if request.kind == "unlock":
        if request.token not in held:
            return None
        rest = held - {request.token}
        return State(state.content, rest, bool(rest) and state.exclusive)
    if _refusals(state, request):
        return None
    if request.kind == "delete":
        return None if state.content is None else State()
    return State(request.value, held, state.exclusive)


def _refused(state, request):
    """Whether the answer, which is no success, is right in a state."""
    if request.kind == "get":
        return request.status == 404 and state.content is None
    if request.kind == "lock":
        return request.status == 423 and bool(state.locks) and (
            state.exclusive or not request.shared)
    if request.kind == "refresh":
        return request.status in (404, 412) and request.token not in state.locks
    if request.kind == "unlock":
        return request.status in (404, 409) and request.token not in state.locks
    if request.kind == "delete" and state.content is None and request.status == 404:
        return True
    return request.status in _refusals(state, request)


def after(state, request):
    """The states that the request can leave, its answer being what it is; none: it is wrong."""
    if request.status == UNANSWERED:
        states = [state]
        done = _done(state, request) if request.kind in CHANGING else None
        if done is not None:
            states.append(done)
        if done is not None and request.kind == "lock" and state.content is None:
            states.append(State(b""))  # the file is there before its lock
        return states
    if request.status in DONE:
        done = _done(state, request)
        return [] if done is None else [done]
    return [state] if _refused(state, request) else []


def is_legal(history, first=State()):
    """Whether some order of the requests explains all answers."""
    requests = sorted(history, key=lambda request: request.began)
    everything = (1 << len(requests)) - 1
    met = set()
    stack = [(0, first)]
    while stack:
        done, state = stack.pop()
        if done == everything:
            return True
        if (done, state) in met:
            continue
        met.add((done, state))
        waiting = [i for i in range(len(requests)) if not done >> i & 1]
        horizon = min(requests[i].ended for i in waiting)
        for i in waiting:
            if requests[i].began > horizon:
                break  # something that ended before it began has not been done yet
            stack += [(done | 1 << i, then) for then in after(state, requests[i])]
    return False


def shortest(history, first=State()):
    """Of an illegal history a part that is illegal by itself, as short as can be had."""
    ends = sorted({request.ended for request in history if request.status != UNANSWERED})
    low, high = 0, len(ends) - 1
    while low < high:  # the first answer that nothing explains
        middle = (low + high) // 2
        if is_legal(_until(history, ends[middle]), first):
            low = middle + 1
        else:
            high = middle
    left = _until(history, ends[low])
    # What changed nothing can go without making the rest less legal than it was.
    for request in list(left):
        harmless = request.status not in DONE or request.kind in ("get", "refresh")
        if harmless and request.status != UNANSWERED or request.ended == NEVER:
            rest = [other for other in left if other is not request]
            if not is_legal(rest, first):
                left = rest
    return sorted(left, key=lambda request: request.began)


def _until(history, end):
    """What was known at a moment: what had not been answered has no answer."""
    known = []
    for request in history:
        if request.ended <= end:
            known.append(request)
        elif request.began <= end:
            known.append(dataclasses.replace(
                request, status=UNANSWERED, ended=NEVER,
                value=request.value if request.kind == "put" else None))
    return known


def explain(history, first=State()):
    """Text for people: the shortest illegal part of a history."""
    part = shortest(history, first)
    return "\n".join([f"no order explains these {len(part)} of {len(history)} requests:",
                      *map(str, part)])
