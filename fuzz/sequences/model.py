# SPDX-License-Identifier: Apache-2.0
"""What a sequence of requests does to a small tree, as the protocol and this server have it.

Each step predicts the status of its reply and changes the model where it succeeds. Paths are tuples
of names below the folder of the sequence, the volume first; values are texts.
"""

import uploads

FOLDER = object()  # stands where a file has its content


def is_within(path, top):
    return path[:len(top)] == top


class Model(uploads.Model):
    """{path: content or FOLDER}, properties by path, locks as (path, scope, number)."""

    def __init__(self, volumes, dialect):
        self.is_standard = dialect == "standard"
        # What is told of a change that makes nothing new.
        self.done = 204 if self.is_standard else 200
        self.nodes = {(volume,): FOLDER for volume in volumes}
        self.colours = {}
        self.locks = []
        self.uploads = {}

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

    def carry(self, source, target, colours=True):
        """Content, and properties, of a tree, at another place as well."""
        for held in (self.nodes, self.colours) if colours else (self.nodes,):
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
            found |= {207, 423} if self.is_standard else {423}  # 207: what is locked lies below
        return found

    def put_refusals(self, path, step):
        exists = path in self.nodes
        found = self.refusals(path, step, [path] if exists else self.membership(path))
        if self.is_standard and (step["none_match"] and exists or step["match"] and not exists):
            found.add(412)
        if not self.is_folder(path[:-1]):
            found.add(409)
        if self.is_folder(path):
            found.add(405)
        return found

    def put(self, path, step):
        exists = path in self.nodes
        found = self.put_refusals(path, step)
        if not found:
            self.nodes[path] = step["content"]
        return found or {204 if exists and self.is_standard else 201}

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
        return found or {self.done}

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
        """The standard dialect replaces what is there by something new, with the properties of the
        source. The classic one copies content only: a file that it writes over keeps its own
        properties and locks, and no folder is put over anything."""
        target = step["target"]
        existed = target in self.nodes
        closed = self.whole(target) if self.is_standard or not existed else [target]
        found = self.relocation_refusals(path, step)
        found |= self.refusals(path, step, closed)
        if target == path:  # nothing changes, whatever is told
            return {200, 201, 204, 403, 409, 412, 423} if path in self.nodes else found
        if self.is_standard and is_within(path, target):
            found.add(409)
        if not self.is_standard and ((self.is_folder(path) and (existed or step["overwrite"])) or
                                     self.is_folder(target)):
            found |= {403, 404, 405, 409, 412}
        if found:
            return found
        if self.is_standard:
            self.forget(target)
        self.carry(path, target, self.is_standard)
        return self.relocated(existed)

    def move(self, path, step):
        target = step["target"]
        existed = target in self.nodes
        found = self.relocation_refusals(path, step)
        found |= self.refusals(path, step, self.whole(path) + self.whole(target))
        if target == path:
            return {200, 201, 204, 403, 409, 412, 423} if path in self.nodes else found
        if is_within(path, target):
            found |= {403, 404, 405, 409, 412}
        if found:
            return found
        self.forget(target)
        self.carry(path, target)
        self.forget(path)
        return self.relocated(existed)

    def relocated(self, existed):
        return {204 if existed else 201} if self.is_standard else {200}

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

    def propfind(self, path, step):
        found = set() if path in self.nodes else {404}
        if self.is_standard and self.condition_fails(path, step["tokens"]):
            found.add(412)
        return found or {207}

    def lock(self, path, step):
        found = set()
        if not self.is_folder(path[:-1]):
            found.add(409)
        if any("exclusive" in (scope, step["scope"]) for _, scope, _ in self.locks_on(path)):
            found.add(423)
        if path not in self.nodes and self.is_closed([path[:-1]], []):
            found.add(423)
        is_new = path not in self.nodes
        if not found:
            self.nodes.setdefault(path, "")
            self.locks.append((path, step["scope"], step["number"]))
        return found or {201 if is_new and self.is_standard else 200}

    def refresh(self, path, step):
        """Without a body, with the token of a lock on the path."""
        return {412} if self.condition_fails(path, [step["number"]]) else {200}

    def unlock(self, path, step):
        found = [lock for lock in self.locks_on(path) if lock[2] == step["number"]]
        if found:
            self.locks.remove(found[0])
            return {self.done}
        return {404, 409} if self.is_standard else {404}
