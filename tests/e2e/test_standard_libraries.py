# SPDX-License-Identifier: Apache-2.0
"""Client libraries that come by a package registry, as their lock file says."""

import os

from harness import run
from programs import ProgramCase, tried

NODE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "node")


class Node(ProgramCase):
    @classmethod
    def setUpClass(cls):
        if not os.path.isdir(os.path.join(NODE, "node_modules", "webdav")):
            status, text = run("npm", "ci", "--no-audit", "--no-fund", "--ignore-scripts",
                               "--silent", cwd=NODE)
            if status:
                raise AssertionError(text)
        super().setUpClass()

    @tried("webdav (npm)", "list", "read", "create", "replace", "resume", "folder", "copy", "move",
           "delete", "lock", "dates", "space", package="npm 5.11.0")
    def test_webdav(self):
        text = self.go("node", os.path.join(NODE, "webdav.mjs"), self.docs(), self.source,
                       self.target)
        self.assertIn("done", text)
        self.assert_got()
        self.assertFalse(os.path.exists(self.tree / "nw"))
