# SPDX-License-Identifier: Apache-2.0
"""What a sequence of requests does to a small tree, as the protocol and this server have it.

Each step predicts the status of its reply and changes the model where it succeeds. Paths are tuples
of names below the folder of the sequence, the volume first; values are texts.
"""

FOLDER = object()  # stands where a file has its content


def is_within(path, top):
    return path[:len(top)] == top


class Model:
    """{path: content or FOLDER}, properties by path, locks as (path, scope, number)."""

    def __init__(self, volumes):
        self.nodes = {(volume,): FOLDER for volume in volumes}
        self.colours = {}
        self.locks = []

    # -- questions

    def is_file(self, path):
        return path in self.nodes and self.nodes[path] is not FOLDER

    def is_folder(self, path):
        return self.nodes.get(path) is FOLDER

    def locks_on(self, path):
        return [lock for lock in self.locks if lock[0] == path]

    def is_closed(self, paths, given):
        """Whether one of these paths bears locks of which none was given. Locks never reach below
        their resource: LOCK takes Depth 0, whatever is asked for."""
        return any(self.locks_on(path) and
                   not any(lock[2] in given for lock in self.locks_on(path)) for path in set(paths))

    def membership(self, path):
        return [path, path[:-1]]

    def whole(self, path):
        """The locks that stand in the way of a tree that goes."""
        return self.membership(path) + [lock[0] for lock in self.locks if is_within(lock[0], path)]

    def condition_fails(self, path, tokens):
        """An If header names one token for the request's own path: it must be that of a lock on
        it."""
        return any(number not in [lock[2] for lock in self.locks_on(path)] for number in tokens)

    # -- changes

    def forget(self, path):
        for held in (self.nodes, self.colours):
            for name in [name for name in held if is_within(name, path)]:
                del held[name]
        self.locks = [lock for lock in self.locks if not is_within(lock[0], path)]

    def carry(self, source, target):
        """Properties and content of a tree, at another place as well."""
        for held in (self.nodes, self.colours):
            for name, value in list(held.items()):
                if is_within(name, source):
                    held[target + name[len(source):]] = value

    # -- steps: each returns the statuses that are right. Where a request is wrong in several ways,
    #    any of them may be told.

    def get(self, path, _):
        return {200} if path in self.nodes else {404}

    head = get

    def refusals(self, path, step, closed):
        """What the header fields of a change say against it. `closed`: the paths whose locks count."""
        found = set()
        if self.condition_fails(path, step["tokens"]):
            found.add(412)
        if self.is_closed(closed, step["tokens"]):
            found.add(423)
        return found

    def put(self, path, step):
        exists = path in self.nodes
        found = self.refusals(path, step, [path] if exists else self.membership(path))
        if (step["none_match"] and exists) or (step["match"] and not exists):
            found.add(412)
        if not self.is_folder(path[:-1]):
            found.add(409)
        if self.is_folder(path):
            found.add(405)
        if not found:
            self.nodes[path] = step["content"]
        return found or {201}

    def mkcol(self, path, step):
        found = self.refusals(path, step, self.membership(path))
        if path in self.nodes:
            found.add(405)
        if not self.is_folder(path[:-1]):
            found.add(409)
        if not found:
            self.nodes[path] = FOLDER
        return found or {201}

    def delete(self, path, step):
        if path not in self.nodes:
            return {404, 412} if step["tokens"] else {404}
        found = self.refusals(path, step, self.whole(path))
        if not found:
            self.forget(path)
        return found or {200}

    def relocation_refusals(self, path, step):
        """What COPY and MOVE refuse alike."""
        target = step["target"]
        found = set()
        if path not in self.nodes:
            found.add(404)
        if target != path and is_within(target, path):
            found.add(403)
        if target in self.nodes and not step["overwrite"]:
            found.add(412)
        if not self.is_folder(target[:-1]):
            found.add(409)
        return found

    def copy(self, path, step):
        target = step["target"]
        existed = target in self.nodes
        found = self.relocation_refusals(path, step)
        found |= self.refusals(path, step, [target] if existed else self.membership(target))
        if target == path:  # nothing changes, whatever is told
            return {201, 204, 403, 409, 412, 423} if path in self.nodes else found
        if (self.is_folder(path) and existed) or self.is_folder(target):
            found |= {403, 404, 405, 409, 412}
        if not found:
            self.colours.pop(target, None)
            self.carry(path, target)
        return found or ({204} if existed else {201})

    def move(self, path, step):
        target = step["target"]
        existed = target in self.nodes
        found = self.relocation_refusals(path, step)
        found |= self.refusals(path, step, self.whole(path) + self.whole(target))
        if target == path:
            return {201, 204, 403, 409, 412, 423} if path in self.nodes else found
        if is_within(path, target) or (path[0] != target[0] and existed and (
                self.is_folder(path) or self.is_folder(target))):
            found |= {403, 404, 405, 409, 412}  # only within a volume a folder is replaced
        if found:
            return found
        self.forget(target)
        self.carry(path, target)
        self.forget(path)
        return {204} if existed else {201}

    def proppatch(self, path, step):
        if path not in self.nodes:
            return {404, "refused"}
        if self.refusals(path, step, [path]):
            return {"refused"}
        if step["colour"] is None:
            if path not in self.colours:
                return {"refused", 207}
            del self.colours[path]
        else:
            self.colours[path] = step["colour"]
        return {207}

    def propfind(self, path, _):
        return {207} if path in self.nodes else {404}

    def lock(self, path, step):
        found = set()
        if not self.is_folder(path[:-1]):
            found.add(409)
        if any("exclusive" in (scope, step["scope"]) for _, scope, _ in self.locks_on(path)):
            found.add(423)
        if path not in self.nodes and self.is_closed([path[:-1]], []):
            found.add(423)
        if not found:
            self.nodes.setdefault(path, "")
            self.locks.append((path, step["scope"], step["number"]))
        return found or {200}

    def refresh(self, path, step):
        """Without a body, with the token of a lock on the path."""
        return {412} if self.condition_fails(path, [step["number"]]) else {200}

    def unlock(self, path, step):
        found = [lock for lock in self.locks_on(path) if lock[2] == step["number"]]
        if found:
            self.locks.remove(found[0])
        return {200} if found else {404}
