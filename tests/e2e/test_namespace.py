# SPDX-License-Identifier: Apache-2.0
"""Deleting, copying and moving."""

import filecmp
import os
import threading

from dav import copy, move
from harness import HOSTILE_NAMES, ServerCase, TestServer, Tree, in_both_dialects, run, \
    url_path, wait_for

DONE = (200, 201, 204)


def make_tree(tree, name, folders, files):
    for i in range(folders):
        for j in range(files):
            tree.write(f"{name}/folder {i:03d}/file {j:04d}.txt", b"content %d %d" % (i, j))


def same_trees(a, b):
    """True when both hold the same files with the same content."""
    compared = filecmp.dircmp(a, b, ignore=[])
    todo = [compared]
    while todo:
        now = todo.pop()
        if now.left_only or now.right_only or now.funny_files:
            return False
        _, bad, errors = filecmp.cmpfiles(now.left, now.right, now.common_files, shallow=False)
        if bad or errors:
            return False
        todo += now.subdirs.values()
    return True


@in_both_dialects
class Delete(ServerCase):
    def test_file_and_folder_go(self):
        self.tree.write("file", b"x")
        make_tree(self.tree, "folder", 3, 3)
        for name in ("file", "folder"):
            reply = self.server.request("DELETE", self.path(name))
            self.assertEqual((reply.status, reply.body), (self.says.deleted, b""))
            self.assertFalse(os.path.exists(self.tree / name))
            self.assertEqual(self.server.request("GET", self.path(name)).status, 404)

    def test_missing_answers_404(self):
        self.assertEqual(self.server.request("DELETE", self.path("nothing")).status, 404)

    def test_volume_and_location_cannot_be_deleted(self):
        self.tree.write("stays", b"x")
        for path in ("/Ferro", "/Ferro/", self.path(), self.path() + "/"):
            reply = self.server.request("DELETE", path)
            self.assertIn(reply.status, range(400, 500), path)
        self.assertEqual(self.tree.read("stays"), b"x")

    def test_every_hostile_name_can_be_deleted(self):
        for name in HOSTILE_NAMES:
            self.tree.write("hostile/" + name, b"x")
        for name in HOSTILE_NAMES:
            with self.subTest(name=name):
                self.assertEqual(self.server.request("DELETE", self.path("hostile", name)).status,
                                 self.says.deleted)
        self.assertEqual(os.listdir(self.tree / "hostile"), [])

    def test_tree_of_any_size_goes_at_once(self):
        make_tree(self.tree, "large", 100, 100)
        inode = os.stat(self.tree / "large").st_ino
        self.assertEqual(self.server.request("DELETE", self.path("large")).status,
                         self.says.deleted)
        self.assertFalse(os.path.exists(self.tree / "large"))
        # Moved aside as it is, and not walked through.
        kept = {entry.inode() for entry in os.scandir(self.tree / ".kest/deleted")}
        self.assertIn(inode, kept)


@in_both_dialects
class CopyAndMove(ServerCase):
    def test_file_is_copied_and_moved(self):
        self.tree.write("one", b"content")
        self.assertEqual(copy(self.server, self.path("one"), self.path("two")).status,
                         self.says.relocated)
        self.assertEqual(move(self.server, self.path("one"), self.path("three")).status,
                         self.says.relocated)
        self.assertEqual((self.tree.read("two"), self.tree.read("three")), (b"content",) * 2)
        self.assertFalse(os.path.exists(self.tree / "one"))

    def test_every_hostile_name_is_source_and_target(self):
        for name in HOSTILE_NAMES:
            self.tree.write("from/" + name, name.encode())
        os.mkdir(self.tree / "copied")
        os.mkdir(self.tree / "moved")
        for name in HOSTILE_NAMES:
            with self.subTest(name=name):
                source = self.path("from", name)
                self.assertIn(copy(self.server, source, self.path("copied", name)).status, DONE)
                self.assertIn(move(self.server, source, self.path("moved", name)).status, DONE)
        self.assertEqual(os.listdir(self.tree / "from"), [])
        for folder in ("copied", "moved"):
            self.assertEqual(sorted(os.listdir(self.tree / folder)), sorted(HOSTILE_NAMES))
            for name in HOSTILE_NAMES:
                self.assertEqual(self.tree.read(f"{folder}/{name}"), name.encode())

    def test_overwrite_false_keeps_what_is_there(self):
        self.tree.write("new", b"new")
        self.tree.write("old", b"old")
        for method in (copy, move):
            reply = method(self.server, self.path("new"), self.path("old"), Overwrite="F")
            self.assertEqual(reply.status, 412)
            self.assertEqual((self.tree.read("new"), self.tree.read("old")), (b"new", b"old"))

    def test_overwrite_true_replaces_a_file(self):
        for method in (copy, move):
            self.tree.write("new", b"new")
            self.tree.write("old", b"old")
            self.assertEqual(method(self.server, self.path("new"), self.path("old"),
                                    Overwrite="T").status, self.says.overwritten)
            self.assertEqual(self.tree.read("old"), b"new")

    def test_folder_is_copied_to_a_new_place(self):
        make_tree(self.tree, "source", 4, 5)
        # Without leave to overwrite: the classic dialect merges into what is there, or refuses.
        reply = copy(self.server, self.path("source"), self.path("copy"), Overwrite="F")
        self.assertEqual(reply.status, self.says.relocated)
        self.assertTrue(same_trees(self.tree / "source", self.tree / "copy"))

    def test_folder_is_moved_to_a_new_place(self):
        make_tree(self.tree, "moving", 4, 5)
        make_tree(self.tree, "expected", 4, 5)
        self.assertIn(move(self.server, self.path("moving"), self.path("moved")).status, DONE)
        self.assertTrue(same_trees(self.tree / "expected", self.tree / "moved"))
        self.assertFalse(os.path.exists(self.tree / "moving"))

    def test_folder_is_never_put_inside_itself(self):
        make_tree(self.tree, "outer", 2, 2)
        for method in (copy, move):
            for target in ("outer/inner", "outer/a/b", "outer/folder 000/x"):
                with self.subTest(method=method.__name__, target=target):
                    reply = method(self.server, self.path("outer"),
                                   self.path(*target.split("/")))
                    self.assertIn(reply.status, (400, 403, 409), reply)
        self.assertEqual(sorted(os.listdir(self.tree / "outer")), ["folder 000", "folder 001"])

    def test_what_is_missing_is_not_copied_onto_itself(self):
        for method in (copy, move):
            for overwrite in ("T", "F"):
                with self.subTest(method=method.__name__, overwrite=overwrite):
                    reply = method(self.server, self.path("nobody"), self.path("nobody"),
                                   Overwrite=overwrite)
                    self.assertEqual(reply.status, 404)

    def test_parent_that_is_missing_answers_409(self):
        self.tree.write("child", b"x")
        for method in (copy, move):
            reply = method(self.server, self.path("child"), self.path("no", "such", "place"))
            self.assertEqual(reply.status, 409, reply)
        self.assertEqual(self.tree.read("child"), b"x")

    def test_wrong_destinations_are_refused(self):
        self.tree.write("here", b"x")
        cases = [(None, 400), ("", 400), ("not a url", 400),
                 ("http://elsewhere.example/Ferro/docs/there", 502),
                 (self.server.base() + "/other/there", 502)]
        for method in ("COPY", "MOVE"):
            for target, status in cases:
                with self.subTest(method=method, target=target):
                    headers = {} if target is None else {"Destination": target}
                    reply = self.server.request(method, self.path("here"), headers=headers)
                    self.assertEqual(reply.status, status)
        self.assertEqual(self.tree.read("here"), b"x")

    def test_destination_may_be_a_path(self):
        self.tree.write("abs", b"x")
        reply = self.server.request("COPY", self.path("abs"),
                                    headers={"Destination": self.path("abs copy")})
        self.assertIn(reply.status, DONE)
        self.assertEqual(self.tree.read("abs copy"), b"x")

    def test_escape_by_destination_is_refused(self):
        self.tree.write("secret", b"x")
        above = os.path.dirname(self.tree.path)
        before = set(os.listdir(above))
        for target in ("/../../escaped", "/%2e%2e/%2e%2e/escaped", "/..%2fescaped"):
            for method in ("COPY", "MOVE"):
                self.server.request(method, self.path("secret"),
                                    headers={"Destination": self.docs() + target})
        self.assertNotIn("escaped", set(os.listdir(above)) - before)
        self.assertTrue(os.path.exists(self.tree / "secret"))



class Great(ServerCase):
    def test_move_of_100000_files_is_one_rename(self):
        make_tree(self.tree, "huge", 1000, 100)
        inode = os.stat(self.tree / "huge").st_ino
        self.assertIn(move(self.server, self.path("huge"), self.path("huge moved")).status, DONE)
        self.assertEqual(os.stat(self.tree / "huge moved").st_ino, inode)
        self.assertEqual(sum(len(files) for _, _, files in os.walk(self.tree / "huge moved")),
                         100_000)


@in_both_dialects
class AcrossVolumes(ServerCase):
    def setUp(self):
        self.one, self.two = Tree(), Tree()
        self.both = TestServer({"one": self.one.path, "two": self.two.path})

    def tearDown(self):
        self.both.close()
        self.one.remove()
        self.two.remove()
        super().tearDown()

    def test_file_and_tree_move_with_content_and_dates(self):
        self.one.write("file", b"content")
        os.utime(self.one / "file", (1_600_000_000, 1_600_000_000))
        make_tree(self.one, "tree", 5, 20)
        make_tree(self.one, "expected", 5, 20)
        for name in ("file", "tree"):
            reply = move(self.both, url_path("one", name), url_path("two", name))
            self.assertIn(reply.status, DONE)
            self.assertFalse(os.path.exists(self.one / name))
        self.assertEqual(self.two.read("file"), b"content")
        self.assertEqual(int(os.stat(self.two / "file").st_mtime), 1_600_000_000)
        self.assertTrue(same_trees(self.one / "expected", self.two / "tree"))


class Clients(ServerCase):
    def setUp(self):
        self.local = Tree()
        self.addCleanup(self.local.remove)

    def test_rclone_moves_and_purges_trees(self):
        make_tree(self.tree, "r", 3, 10)
        make_tree(self.local, "r", 3, 10)

        def rclone(*arguments):
            status, text = run("rclone", "--config", "/dev/null", "--retries", "1",
                               "--webdav-url", self.docs(), *arguments, cwd=self.local.path)
            self.assertEqual(status, 0, text)

        rclone("moveto", ":webdav:r", ":webdav:r moved")
        self.assertTrue(same_trees(self.local / "r", self.tree / "r moved"))
        rclone("copy", ":webdav:r moved", ":webdav:r copied")
        self.assertTrue(same_trees(self.local / "r", self.tree / "r copied"))
        rclone("purge", ":webdav:r moved")
        self.assertFalse(os.path.exists(self.tree / "r moved"))

    def test_cadaver_copies_moves_and_deletes(self):
        make_tree(self.tree, "c", 2, 3)
        self.tree.write("note.txt", b"note")
        commands = ["copy note.txt note2.txt", "move note2.txt note3.txt", "delete note.txt",
                    "copy c/ d/", "move d/ e/", "rmcol c/", "quit", ""]
        status, text = run("cadaver", "-t", self.docs() + "/", cwd=self.local.path,
                           stdin="\n".join(commands).encode(), env={"HOME": self.local.path})
        self.assertEqual(status, 0, text)
        names = set(os.listdir(self.tree.path)) - {".kest"}
        self.assertEqual(names, {"note3.txt", "e"}, text)
        make_tree(self.local, "c", 2, 3)
        self.assertTrue(same_trees(self.local / "c", self.tree / "e"))


@in_both_dialects
class PowerCut(ServerCase):
    """kill -9 in the middle of copies and moves: nothing that existed is lost."""

    def test_sources_are_whole_after_kill(self):
        other = Tree()
        try:
            make_tree(self.tree, "expected", 10, 60)
            for i in range(4):
                make_tree(self.tree, f"copied {i}", 10, 60)
                make_tree(self.tree, f"moved {i}", 10, 60)
            with TestServer({"docs": self.tree.path, "other": other.path},
                            settings=self.settings) as server:
                def work(i):
                    try:
                        if i < 4:
                            copy(server, self.path(f"copied {i}"), self.path(f"copy {i}"),
                                 Overwrite="F")
                        else:
                            move(server, self.path(f"moved {i - 4}"),
                                 url_path("other", f"moved {i - 4}"))
                    except OSError:
                        pass  # the server was killed
                    except Exception as error:  # half a reply
                        self.assertIn("http.client", type(error).__module__)

                threads = [threading.Thread(target=work, args=(i,)) for i in range(8)]
                for thread in threads:
                    thread.start()
                wait_for(lambda: sum(len(files) for _, _, files in os.walk(other.path)) > 100,
                         "the copying to begin")
                server.kill()
                for thread in threads:
                    thread.join()
                server.start()
                self.check(other)
        finally:
            other.remove()

    def check(self, other):
        expected = self.tree / "expected"
        for i in range(4):
            self.assertTrue(same_trees(expected, self.tree / f"copied {i}"))
            # Of a move across volumes each file is here or there, and whole.
            for folder in sorted(os.listdir(expected)):
                for name in sorted(os.listdir(f"{expected}/{folder}")):
                    part = f"moved {i}/{folder}/{name}"
                    with open(f"{expected}/{folder}/{name}", "rb") as file:
                        wanted = file.read()
                    found = []
                    for tree in (self.tree, other):
                        if os.path.exists(tree / part):
                            found.append(tree.read(part))
                    self.assertIn(wanted, found, f"{part} is lost")
                    # Of a copy each file is there or not, and whole.
                    part = f"copy {i}/{folder}/{name}"
                    if os.path.exists(self.tree / part):
                        self.assertEqual(wanted, self.tree.read(part), f"{part} is not whole")


@in_both_dialects
class UnsyncedPowerCut(PowerCut):
    """The same where new files have no name until they are whole."""

    settings = {"FileStore": {"Sync": "none"}}
