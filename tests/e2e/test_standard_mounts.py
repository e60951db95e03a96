# SPDX-License-Identifier: Apache-2.0
"""Folders that are mounted by way of WebDAV: programs that know nothing of it work on them."""

import contextlib
import ctypes
import os
import shutil
import subprocess
import tempfile
import time
import unittest

import programs
from harness import (PATIENCE, SCRATCH, Failure, _die_with_parent, in_parallel, pattern,
                     wait_for)
from programs import ProgramCase, tried


PROGRAMS = ("davfs2", "rclone mount", "rclone mount (cache)")


def is_possible():
    """Where a container keeps /dev/fuse away, nothing can be mounted."""
    return os.geteuid() == 0 and os.access("/dev/fuse", os.R_OK | os.W_OK)


def load_tests(_loader, tests, _pattern):
    if is_possible():
        return tests
    print("mounts: this user of this machine may not mount; test_standard_flows has the requests")
    programs.not_here.update(PROGRAMS)
    return unittest.TestSuite()


class MountCase(ProgramCase):
    """The cases' own mount, which goes away with them."""

    def setUp(self):
        super().setUp()
        self.place = os.path.join(self.own, "mount")
        os.mkdir(self.place)
        self.mount()
        self.addCleanup(self.unmount)

    def mounted(self):
        with open("/proc/self/mounts", encoding="utf-8") as mounts:
            return any(line.split()[1] == self.place for line in mounts)

    def at(self, *names):
        return os.path.join(self.place, *names)

    def put(self, name, data):
        with open(self.at(name), "wb") as out:
            out.write(data)

    def get(self, name):
        with open(self.at(name), "rb") as file:
            return file.read()

    def arrives(self, name, data):
        def has_come():
            with contextlib.suppress(FileNotFoundError):
                return self.tree.read(name) == data
            return False

        wait_for(has_come, f"{name} to arrive")

    def settles(self, name):
        """Waits until the program knows that its file has arrived."""

    def goes(self, name):
        wait_for(lambda: not os.path.exists(self.tree / name), f"{name} to go")

    def check_files(self):
        created, edited, replaced = (pattern(400_000, seed) for seed in (1, 2, 3))
        for data in (created, edited, b"", b"short"):
            self.put("a.bin", data)
            self.arrives("a.bin", data)
        # An editor's way to save: another file takes the name.
        self.put("tmp.bin", replaced)
        self.arrives("tmp.bin", replaced)
        self.settles("tmp.bin")
        os.rename(self.at("tmp.bin"), self.at("a.bin"))
        self.arrives("a.bin", replaced)
        self.goes("tmp.bin")
        self.assertEqual(self.get("a.bin"), replaced)
        # Some bytes in the middle and at the end.
        with open(self.at("a.bin"), "r+b") as file:
            file.seek(200_000)
            file.write(b"middle")
            file.seek(0, os.SEEK_END)
            file.write(b"end")
        self.arrives("a.bin", replaced[:200_000] + b"middle" + replaced[200_006:] + b"end")

    def copy_a_tree(self):
        for i in range(12):
            self.write(f"src/deep/er/file {i} & more.bin", pattern(20_000 + i, i))
        self.go("cp", "-r", self.folder, self.at("tree"))
        wait_for(lambda: subprocess.run(["diff", "-r", self.folder, self.tree / "tree"],
                                        stdout=subprocess.DEVNULL, check=False).returncode == 0,
                 "the tree to arrive")

    def check_trees(self):
        self.copy_a_tree()
        self.go("diff", "-r", self.folder, self.at("tree"))
        os.rename(self.at("tree"), self.at("renamed"))
        self.go("diff", "-r", self.folder, self.tree / "renamed")
        self.go("rm", "-r", self.at("renamed"))
        self.goes("renamed")

    def check_many_at_once(self):
        def write(i):
            self.put(f"many-{i}", pattern(150_000, i))

        in_parallel(8, write)
        for i in range(8):
            self.arrives(f"many-{i}", pattern(150_000, i))


def names_in(path):
    """Reads a folder by little pieces. davfs2 1.6 refuses more than 16 KiB at a time, which is what
    newer kernels pass on of what readdir() of the C library asks."""
    libc = ctypes.CDLL(None, use_errno=True)
    folder = os.open(path, os.O_RDONLY | os.O_DIRECTORY)
    found, piece = set(), ctypes.create_string_buffer(4096)
    try:
        while True:
            size = libc.getdents64(folder, piece, ctypes.c_size_t(len(piece)))
            if size < 0:
                raise OSError(ctypes.get_errno(), path)
            if size == 0:
                return found - {".", ".."}
            at = 0
            while at < size:
                length = int.from_bytes(piece.raw[at + 16:at + 18], "little")
                found.add(piece.raw[at + 19:at + length].split(b"\0")[0].decode())
                at += length
    finally:
        os.close(folder)


class DavfsCase(MountCase):
    """With its own settings but the delay of uploads: it locks what it writes."""

    def mount(self):
        cache = tempfile.mkdtemp(prefix="kest-davfs-", dir=SCRATCH)
        self.addCleanup(shutil.rmtree, cache)
        os.chmod(cache, 0o777)
        os.chmod(self.own, 0o755)
        self.conf = self.write("conf", f"ask_auth 0\ncache_dir {cache}\ndelay_upload 0\n".encode())
        self.mount_again()

    def mount_again(self):
        self.go("mount", "-t", "davfs", "-o", f"conf={self.conf}", self.docs() + "/", self.place,
                stdin=b"\n\n")

    def unmount(self):
        if self.mounted():
            self.go("umount", self.place)


class Davfs2(DavfsCase):
    @tried("davfs2", "create", "replace", "read", "lock", "move")
    def test_files(self):
        self.check_files()
        self.unmount()
        asked = {(method, status) for method, path, status in self.requests()
                 if path == self.path("a.bin")}
        self.assertTrue({("LOCK", 201), ("LOCK", 200), ("PUT", 204), ("UNLOCK", 204)} <= asked,
                        asked)
        self.assertNotIn(("PUT", 412), asked)

    @tried("davfs2", "list", "folder", "copy", "move", "delete")
    def test_trees(self):
        self.copy_a_tree()
        self.unmount()
        self.mount_again()
        os.rename(self.at("tree"), self.at("renamed"))
        for place in (self.at, self.tree.__truediv__):
            for name in ("", "deep", "deep/er"):
                self.assertEqual(names_in(place(os.path.join("renamed", name))),
                                 set(os.listdir(os.path.join(self.folder, name))), name)
        for folder, _, files in os.walk(self.folder, topdown=False):
            inner = os.path.relpath(folder, self.folder)
            for name in files:
                inside = os.path.join("renamed", inner, name)
                self.assertEqual(self.get(inside), self.read(os.path.join(folder, name)))
                os.remove(self.at(inside))
            os.rmdir(self.at("renamed", inner) if inner != "." else self.at("renamed"))
        self.goes("renamed")

    @tried("davfs2", "replace")
    def test_file_that_another_program_has_just_written(self):
        # It sends weak tags as strong ones: they may not last for long.
        self.unmount()
        self.tree.write("theirs", self.content)
        time.sleep(0.3)
        self.mount_again()
        self.put("theirs", b"ours")
        self.arrives("theirs", b"ours")

    @tried("davfs2", "create")
    def test_many_files_at_once(self):
        self.check_many_at_once()

    @tried("davfs2", "space", "dates")
    def test_space_and_dates(self):
        free = os.statvfs(self.place)
        there = os.statvfs(self.tree.path)
        self.assertLess(abs(free.f_bavail * free.f_frsize - there.f_bavail * there.f_frsize),
                        there.f_blocks * there.f_frsize // 10)
        os.utime(self.tree.write("dated", b"x"), (981_173_106, 981_173_106))
        self.unmount()
        self.mount_again()
        self.assertEqual(int(os.stat(self.at("dated")).st_mtime), 981_173_106)


class RcloneMount(MountCase):
    """As it comes, which writes a file from its beginning to its end only."""

    caching = ()

    def mount(self):
        with open(os.path.join(self.own, "rclone.log"), "ab") as log:
            self.process = subprocess.Popen(
                ["rclone", "mount", "-v", "--config", os.path.join(self.own, "none.conf"),
                 "--cache-dir", os.path.join(self.own, "cache"), "--webdav-url", self.docs(),
                 "--webdav-vendor", "other", *self.caching, ":webdav:", self.place],
                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=log,
                env=dict(os.environ, HOME=self.own), preexec_fn=_die_with_parent)
        wait_for(lambda: self.mounted() or self.process.poll() is not None, "the mount")
        if not self.mounted():
            raise Failure(self.read("rclone.log").decode())

    def unmount(self):
        if self.mounted():
            self.go("fusermount3", "-u", self.place)
        if self.process.poll() is None:
            self.process.terminate()
            self.process.wait(PATIENCE)

    @tried("rclone mount", "create", "replace", "read", "move", package="rclone")
    def test_files(self):
        for turn, data in enumerate((pattern(400_000, 1), pattern(300_000, 2), b"")):
            self.put("r.bin", data)
            self.arrives("r.bin", data)
            self.put("new.bin", data)
            os.rename(self.at("new.bin"), self.at(f"moved-{turn}.bin"))
            self.arrives(f"moved-{turn}.bin", data)
        self.tree.write("there", self.content)
        self.unmount()
        self.mount()
        self.assertEqual(self.get("there"), self.content)
        with open(self.at("there"), "rb") as file:
            file.seek(77_777)
            self.assertEqual(file.read(1000), self.content[77_777:78_777])

    @tried("rclone mount", "list", "folder", "copy", "move", "delete", package="rclone")
    def test_trees(self):
        self.check_trees()

    @tried("rclone mount", "create", package="rclone")
    def test_many_files_at_once(self):
        self.check_many_at_once()

    @tried("rclone mount", "space", package="rclone")
    def test_space(self):
        free = os.statvfs(self.place)
        self.assertGreater(free.f_bavail, 0)


class RcloneCachedMount(RcloneMount):
    """With its cache of files, which lets programs write anywhere in them."""

    caching = ("--vfs-cache-mode", "full", "--vfs-write-back", "100ms")

    def settles(self, name):
        # A rename while it still waits for the reply, and it forgets the old name on the server.
        done = f"{name}: vfs cache: upload succeeded".encode()
        wait_for(lambda: done in self.read("rclone.log"), f"the reply to the upload of {name}")

    def test_files(self):
        with tried("rclone mount (cache)", "create", "replace", "read", "move", package="rclone"):
            self.check_files()

    def test_trees(self):
        with tried("rclone mount (cache)", "list", "folder", "copy", "move", "delete",
                   package="rclone"):
            self.check_trees()

    def test_many_files_at_once(self):
        with tried("rclone mount (cache)", "create", package="rclone"):
            self.check_many_at_once()

    def test_space(self):
        with tried("rclone mount (cache)", "space", package="rclone"):
            self.assertGreater(os.statvfs(self.place).f_bavail, 0)
