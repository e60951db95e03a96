# SPDX-License-Identifier: Apache-2.0
"""What real programs leave behind when they are killed amid a large file: the long form of
test_standard_mounts and test_standard_clients, run by ./test --full."""

import os
import signal
import subprocess

import test_standard_mounts as mounts
from harness import _die_with_parent, pattern, wait_for
from programs import ProgramCase, tried

SIZE = 100 * 1024 * 1024


class Interrupted:
    """A file of 100 MiB is replaced by another, and the program is killed amid that."""

    def begin(self):
        self.old, self.new = pattern(SIZE, 1), pattern(SIZE, 2)
        # Long enough ago for what the program has read at its start to hold.
        os.utime(self.tree.write("large", self.old), (1_700_000_000, 1_700_000_000))

    def wait_until_under_way(self):
        def under_way():
            return any(os.path.getsize(path) > SIZE // 20 for path in self.tree.leftovers()
                       if os.path.exists(path))

        wait_for(under_way, "the upload to be under way")

    def check_that_nothing_changed(self):
        wait_for(lambda: not self.tree.leftovers(), "the broken upload to be removed")
        self.assert_stored("large", self.old)


class Davfs2(Interrupted, mounts.DavfsCase):
    @tried("davfs2", "resume", long=True)
    def test_large_file_is_old_or_new(self):
        if not mounts.is_possible():
            self.fail("this user of this machine may not mount")
        self.unmount()
        self.begin()
        self.mount_again()
        self.put("large", self.new)
        self.wait_until_under_way()
        os.kill(self.daemon(), signal.SIGKILL)
        self.go("umount", "-i", self.place)
        self.check_that_nothing_changed()
        # The next mount finds its lock, and its file in the cache.
        self.place += "-again"
        os.mkdir(self.place)
        self.mount_again()
        self.put("large", self.new)
        self.arrives("large", self.new)

    def daemon(self):
        for name in filter(str.isdigit, os.listdir("/proc")):
            with open(f"/proc/{name}/cmdline", "rb") as file:
                words = file.read().split(b"\0")
            if words[0].endswith(b"mount.davfs") and self.place.encode() in words:
                return int(name)
        return self.fail("there is no mount.davfs")


class Rclone(Interrupted, ProgramCase):
    @tried("rclone", "resume", long=True)
    def test_large_file_is_old_or_new(self):
        self.begin()
        source = self.write("large", self.new)
        command = ["rclone", "--config", os.path.join(self.own, "none.conf"), "copyto",
                   "--ignore-times", source, f":webdav,url='{self.docs()}':large"]
        slow = subprocess.Popen(command + ["--bwlimit", "20M"], env=dict(os.environ, HOME=self.own),
                                stdin=subprocess.DEVNULL, preexec_fn=_die_with_parent)
        self.wait_until_under_way()
        slow.kill()
        slow.wait()
        self.check_that_nothing_changed()
        self.go(*command)
        self.assert_stored("large", self.new)
