# SPDX-License-Identifier: Apache-2.0
"""The file managers' and the office's own access to WebDAV (gvfs, KIO, LibreOffice), each without a
screen, in a session of its own, with the settings of a fresh account."""

import os
import re

from harness import HOSTILE_NAMES, pattern, wait_for
from programs import ProgramCase, Session, tried

HERE = os.path.dirname(os.path.abspath(__file__))
PYTHON = "/usr/bin/python3"  # the one that Debian's modules are for


class DesktopCase(ProgramCase):
    def setUp(self):
        super().setUp()
        self.session = Session()
        self.addCleanup(self.session.close)

    def url(self, scheme, *names):
        return self.docs(*names).replace("http:", scheme + ":")

    def do(self, *command, stdin=None):
        status, text = self.session.run(*command, stdin=stdin, cwd=self.own)
        self.assertEqual(status, 0, (command, text))
        return text


class Gvfs(DesktopCase):
    """What files of GNOME are opened and saved with: gvfsd-dav, by way of "gio"."""

    def setUp(self):
        super().setUp()
        self.do("gio", "mount", self.dav())

    def dav(self, *names):
        return self.url("dav", *names)

    def tries(self, *operations):
        return tried("gvfs", *operations, package="gvfs-backends")

    def info(self, *names):
        text = self.do("gio", "info", self.dav(*names))
        return dict(re.findall(r"^ *([\w:-]+): +(.*?)$", text, re.MULTILINE))

    def test_file_comes_and_goes(self):
        with self.tries("create", "read", "list"):
            self.do("gio", "copy", self.source, self.dav("gvfs.bin"))
            self.assert_stored("gvfs.bin", self.content)
            self.do("gio", "copy", self.dav("gvfs.bin"), self.target)
            self.assert_got()
            self.assertEqual(self.info("gvfs.bin")["type"], "regular")
            self.assertEqual(self.info("gvfs.bin")["size"], "100000")
            rows = self.do("gio", "list", "-l", self.dav())
            self.assertIn("gvfs.bin\t100000\t(regular)", rows)

    def test_types_are_those_of_the_names(self):
        with self.tries("list"):
            os.makedirs(self.tree / "types/folder")
            for name in ("a.txt", "b.png", "c.pdf"):
                self.tree.write("types/" + name, b"x")
            found = {name: self.info("types", name) for name in ("a.txt", "b.png", "c.pdf")}
            self.assertEqual([one["standard::content-type"] for one in found.values()],
                             ["text/plain", "image/png", "application/pdf"])
            self.assertEqual({one["type"] for one in found.values()}, {"regular"})
            self.assertEqual(self.info("types", "folder")["type"], "directory")

    def test_every_strange_name_is_listed_and_read(self):
        with self.tries("list"):
            for name in HOSTILE_NAMES:
                self.tree.write("strange/" + name, name.encode())
            os.mkdir(self.tree / "strange/less<folder>&")
            text = self.do("gio", "list", "-l", "--hidden", self.dav("strange") + "/")
            rows = dict(line.rsplit("\t", 1) for line in text.splitlines())
            for name in HOSTILE_NAMES:
                self.assertEqual(rows[f"{name}\t{len(name.encode())}"], "(regular)", rows)
            self.assertEqual(len(rows), len(HOSTILE_NAMES) + 1)
            for name in ("a%20b.txt", "amp&ersand.txt", "less<greater>.txt", "ünïcödé.txt"):
                self.assertEqual(self.do("gio", "cat", self.dav("strange", name)), name)

    def test_file_is_edited_in_place(self):
        with self.tries("replace"):
            self.tree.write("edited.txt", b"before")
            for turn in (b"after\n", b"", pattern(300_000, 7)):
                self.do("gio", "save", self.dav("edited.txt"), stdin=turn)
                self.assert_stored("edited.txt", turn)
            tag = self.info("edited.txt")["etag::value"]
            self.do("gio", "save", "--etag", tag, self.dav("edited.txt"), stdin=b"mine")
            self.assert_stored("edited.txt", b"mine")
            status, text = self.session.run("gio", "save", "--etag", tag, self.dav("edited.txt"),
                                            stdin=b"stale")
            self.assertNotEqual(status, 0, text)
            self.assert_stored("edited.txt", b"mine")

    def test_renamed_moved_copied_and_deleted(self):
        with self.tries("folder", "copy", "move", "delete"):
            self.do("gio", "mkdir", self.dav("g dir"))
            self.do("gio", "copy", self.source, self.dav("g dir", "one"))
            self.do("gio", "rename", self.dav("g dir", "one"), "two & 3")
            self.assert_stored("g dir/two & 3", self.content)
            self.do("gio", "copy", self.dav("g dir", "two & 3"), self.dav("g dir", "copy"))
            self.do("gio", "move", self.dav("g dir", "two & 3"), self.dav("moved away"))
            self.assert_stored("g dir/copy", self.content)
            self.assert_stored("moved away", self.content)
            self.assertEqual(os.listdir(self.tree / "g dir"), ["copy"])
            # A rename never takes another's name.
            status, text = self.session.run("gio", "rename", self.dav("moved away"), "g dir")
            self.assertNotEqual(status, 0, text)
            self.assert_stored("moved away", self.content)
            for name in (("g dir", "copy"), ("g dir",), ("moved away",)):
                self.do("gio", "remove", self.dav(*name))
            self.assertFalse(os.path.exists(self.tree / "g dir"))
            self.assertFalse(os.path.exists(self.tree / "moved away"))

    def test_copy_back_keeps_the_date(self):
        with self.tries("dates"):
            os.utime(self.tree.write("dated.txt", b"x"), (1_234_567_890, 1_234_567_890))
            self.assertEqual(self.info("dated.txt")["time::modified"], "1234567890")

    def test_space_is_told(self):
        with self.tries("space"):
            text = self.do("gio", "info", "-f", self.dav())
            size, free = (int(re.search(rf"filesystem::{name}: (\d+)", text)[1])
                          for name in ("size", "free"))
            self.assertTrue(0 < free <= size, text)


class Kio(DesktopCase):
    """What files of KDE are opened and saved with, by way of "kioclient"."""

    def dav(self, *names):
        return self.url("webdav", *names)

    def tries(self, *operations):
        return tried("KIO", *operations, package="kio")

    def kio(self, *command):
        text = self.do("kioclient5", "--noninteractive", *command)
        self.assertNotIn("rror", text)
        return text

    def test_file_comes_and_goes(self):
        with self.tries("create", "read", "replace", "dates"):
            self.kio("copy", self.source, self.dav("kio.bin"))
            self.assert_stored("kio.bin", self.content)
            self.kio("copy", self.dav("kio.bin"), self.target)
            self.assert_got()
            other = self.write("other", pattern(250_000, 8))
            refused, _ = self.session.run("kioclient5", "--noninteractive", "copy", other,
                                          self.dav("kio.bin"))
            self.assertNotEqual(refused, 0)
            self.assert_stored("kio.bin", self.content)
            self.kio("--overwrite", "copy", other, self.dav("kio.bin"))
            self.assert_stored("kio.bin", self.read("other"))
            os.utime(self.tree / "kio.bin", (1_234_567_890, 1_234_567_890))
            self.kio("copy", self.dav("kio.bin"), self.target + "2")
            self.assertEqual(int(os.stat(self.target + "2").st_mtime), 1_234_567_890)

    def test_every_strange_name_is_listed(self):
        with self.tries("list"):
            for name in HOSTILE_NAMES:
                self.tree.write("strange/" + name, name.encode())
            self.tree.write("strange/z behind", b"x")
            listed = set(self.kio("ls", self.dav("strange") + "/").splitlines())
            self.assertTrue(set(HOSTILE_NAMES) | {"z behind"} <= listed,
                            set(HOSTILE_NAMES) - listed)
            for name in ("a%20b.txt", "amp&ersand.txt", "less<greater>.txt", "ünïcödé.txt"):
                self.assertEqual(self.kio("cat", self.dav("strange", name)), name)

    def test_tree_is_copied_moved_and_deleted(self):
        with self.tries("folder", "copy", "move", "delete"):
            self.write("src/deeper/three", pattern(50_000, 9))
            self.kio("copy", self.folder, self.dav("kio tree"))
            self.go("diff", "-r", self.folder, self.tree / "kio tree")
            self.kio("copy", self.dav("kio tree"), self.dav("kio tree2"))
            self.go("diff", "-r", self.folder, self.tree / "kio tree2")
            self.kio("move", self.dav("kio tree2"), self.dav("kio moved"))
            self.go("diff", "-r", self.folder, self.tree / "kio moved")
            self.assertFalse(os.path.exists(self.tree / "kio tree2"))
            self.kio("copy", self.dav("kio moved"), self.target)
            self.go("diff", "-r", self.folder, self.target)
            self.kio("move", self.dav("kio moved", "one"), self.dav("kio moved", "1 & only"))
            self.assert_stored("kio moved/1 & only", self.content)
            for name in ("kio tree", "kio moved"):
                self.kio("remove", self.dav(name))
                self.assertFalse(os.path.exists(self.tree / name))


class LibreOffice(DesktopCase):
    """A document is made, opened, edited and saved where it is, under the office's own lock."""

    def setUp(self):
        super().setUp()
        self.script = os.path.join(HERE, "office.py")

    def asked(self, name):
        return [(method, status) for method, path, status in self.requests()
                if path == self.path(name)]

    def office(self, *steps):
        return self.do(PYTHON, self.script, self.session.home, *steps)

    def test_document_is_edited_under_a_lock(self):
        with tried("LibreOffice", "create", "read", "replace", "lock",
                   package="libreoffice-core-nogui"):
            text = self.office("new", self.docs("letter.odt"), "first words",
                               "edit", self.docs("letter.odt"), "first words", "second words",
                               "edit", self.docs("letter.odt"), "second words", "third words",
                               "text", self.docs("letter.odt"), self.target)
            self.assertIn("done", text)
            self.assertEqual(self.read("got").decode("utf-8-sig").strip(), "third words")
            wanted = {("LOCK", 201), ("LOCK", 200), ("PUT", 204), ("UNLOCK", 204)}
            wait_for(lambda: wanted <= set(self.asked("letter.odt")), "its requests in the log")
            self.assertEqual([(method, status) for method, status in self.asked("letter.odt")
                              if status >= 400 and method != "PROPFIND"], [])
            # The document is one, and nobody holds it any more.
            self.go(PYTHON, "-m", "zipfile", "-t", self.tree / "letter.odt")
            self.assertEqual(self.server.request("PUT", self.path("letter.odt"), b"x").status, 204)

    def test_document_that_another_holds_is_not_written(self):
        with tried("LibreOffice", "lock", package="libreoffice-core-nogui"):
            self.office("new", self.docs("held.odt"), "mine")
            whole = self.tree.read("held.odt")
            held = self.server.request("LOCK", self.path("held.odt"), LOCK_BODY, {"Depth": "0"})
            self.assertEqual(held.status, 200)
            text = self.office("readonly", self.docs("held.odt"), "mine")
            self.assertIn("done", text)
            self.assertEqual(self.tree.read("held.odt"), whole)


LOCK_BODY = (b'<?xml version="1.0"?><D:lockinfo xmlns:D="DAV:"><D:lockscope><D:exclusive/>'
             b"</D:lockscope><D:locktype><D:write/></D:locktype><D:owner>another</D:owner>"
             b"</D:lockinfo>")
