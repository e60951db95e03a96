# SPDX-License-Identifier: Apache-2.0
"""What mounts and editors do to files in the standard dialect: create, edit and replace under locks.
test_standard_windows and test_standard_finder have the larger ones."""

import os
import time

from flows import FlowCase
from harness import pattern


class Davfs2(FlowCase):
    """davfs2 with its default settings, which locks what it writes. test_standard_mounts runs it;
    these are its requests, for machines on which nothing can be mounted."""

    def store(self, name, data):
        if os.path.exists(self.tree / name):
            tag = self.ask("HEAD", name, None, 200).headers["etag"]
            token = self.locked(name, 200, Depth="0", Timeout="Second-1800")
            conditions = {"If_Match": tag}
        else:
            token = self.locked(name, 201, Depth="0", Timeout="Second-1800")
            conditions = {}
        done = self.ask("PUT", name, data, 204, If=f"<{self.docs(name)}> (<{token}>)",
                        Expect="100-continue", **conditions)
        self.assertEqual(self.ask("HEAD", name).headers["etag"], done.headers["etag"])
        self.unlock(name, token)

    def test_created_edited_and_replaced_file_comes_back(self):
        for data in (pattern(400_000, seed) for seed in (1, 2, 3)):
            self.store("a.bin", data)
            self.assertEqual(self.ask("GET", "a.bin").body, data)


class Editors(FlowCase):
    """Sequences of requests as other editors send them."""

    def test_gvfs_does_not_overwrite_what_others_changed(self):
        self.ask("HEAD", "notes", None, 404)
        self.ask("PUT", "notes", b"mine", 201)
        tag = self.ask("HEAD", "notes", None, 200).headers["etag"]
        self.ask("PUT", "notes", b"theirs", 204)
        self.ask("PUT", "notes", b"mine again", 412, If_Match=tag)
        self.assertEqual(self.tree.read("notes"), b"theirs")

    def test_change_by_another_program_is_seen(self):
        tag = self.ask("PUT", "outside", b"ours", 201).headers["etag"]
        time.sleep(0.05)
        self.tree.write("outside", b"hers")
        seen = self.ask("GET", "outside", None, 200, If_None_Match=tag)
        self.assertEqual(seen.body, b"hers")
        self.ask("PUT", "outside", b"ours", 412, If_Match=tag)
        self.assertEqual(self.tree.read("outside"), b"hers")
