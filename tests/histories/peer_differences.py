# SPDX-License-Identifier: Apache-2.0
"""Where this server and Apache's mod_dav answer the same request differently, and why."""

import dataclasses

REFUSALS = (403, 404, 405, 409, 412, 423)

# Both refuse, and nothing has changed. Which of several reasons is told, and in which words, is
# each server's own; the reason says what Apache means by its status.
OTHER_REFUSALS = {
    207: "the lock that stands in the way is told in a multistatus there",
    301: "sent on to the URL of the folder, which ends in a slash, before anything else is asked",
    400: "a path below a file, and a token that nobody holds, are bad requests there",
    403: "the other order of looks: the ends of a COPY or MOVE are compared first there",
    404: "the other order of looks: the source is looked for first there",
    405: "the other order of looks: the name is looked at before locks and conditions there",
    409: "the other order of looks: the parent, or the lock to refresh, is looked for first there",
    412: "the other order of looks: conditions are judged first there",
    423: "the other order of looks: locks are asked first there",
    424: "the lock of a member, or of the folder around, makes the request depend on another there",
    500: "a destination without a parent is an error of the server there, a conflict here",
}


@dataclasses.dataclass(frozen=True)
class Difference:
    """statuses: ours, theirs. when: of (path, request, tree before), or always."""

    method: str
    statuses: tuple
    reason: str
    when: object = None
    trees_differ: bool = False

    def covers(self, method, path, more, before, statuses):
        return (method == self.method and statuses == self.statuses
                and (self.when is None or self.when(path, more, before)))

    def __str__(self):
        return f"{self.method}: {self.statuses[0]} for {self.statuses[1]}: {self.reason}"


def into_itself(path, more, before):
    return more["to"].startswith(path + "/") or path.startswith(more["to"] + "/")


def onto_folder(path, more, before):
    return more["to"] in before and before[more["to"]] is None


def is_new(path, more, before):
    return path not in before


def with_token(path, more, before):
    return "token" in more


SUCCESSES = (
    Difference("LOCK", (201, 200), "a lock of a new name makes an empty file here (RFC 4918 section "
               "7.3); there the name is only reserved", is_new, trees_differ=True),
    Difference("COPY", (403, 201), "a folder into itself is refused here, shallow or not",
               into_itself, trees_differ=True),
    Difference("COPY", (403, 204), "a folder into itself is refused here, shallow or not",
               into_itself, trees_differ=True),
    *(Difference(method, (ours, 301), "a folder is replaced here whose URL ends without a slash",
                 onto_folder, trees_differ=True)
      for method in ("COPY", "MOVE") for ours in (201, 204)),
    *(Difference(method, (ours, theirs), "the token of the folder around is asked for there",
                 with_token, trees_differ=True)
      for method in ("DELETE", "MOVE", "COPY", "PUT") for ours in (201, 204)
      for theirs in (412, 424)),
)


def refusal(method, statuses):
    """The known difference between two refusals; None where it is not known."""
    ours, theirs = statuses
    # Of a tree's members that stand in the way each is named here, and nothing has changed.
    names_members = ours == 207 and method in ("DELETE", "COPY", "MOVE")
    if not (ours in REFUSALS or names_members) or theirs not in OTHER_REFUSALS:
        return None
    return Difference(method, statuses, OTHER_REFUSALS[theirs])


def find(method, path, more, before, statuses):
    """The known difference that covers a pair of answers; None where they should not differ."""
    for difference in SUCCESSES:
        if difference.covers(method, path, more, before, statuses):
            return difference
    return refusal(method, statuses) if statuses[0] != statuses[1] else None
