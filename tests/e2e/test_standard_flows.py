# SPDX-License-Identifier: Apache-2.0
"""What editors do to files in the standard dialect: create, edit and replace under locks."""

import os
import subprocess
import time
import xml.etree.ElementTree as ElementTree

from dav import D, multistatus
from harness import PATIENCE, ServerCase, Tree, pattern, wait_for

LOCK_BODY = (b'<?xml version="1.0" encoding="utf-8"?>\n<lockinfo xmlns=\'DAV:\'>\n'
             b" <lockscope><exclusive/></lockscope>\n<locktype><write/></locktype>"
             b"<owner>me</owner>\n</lockinfo>\n")


class FlowCase(ServerCase):
    options = ("--dialect", "standard")

    def ask(self, method, name, body=None, wanted=None, **headers):
        reply = self.server.request(method, self.path(*name.split("/")), body,
                                    {key.replace("_", "-"): value
                                     for key, value in headers.items()})
        if wanted is not None:
            self.assertEqual(reply.status, wanted, (method, name, reply))
        return reply

    def locked(self, name, wanted, **headers):
        """The token of a new lock."""
        reply = self.ask("LOCK", name, LOCK_BODY, wanted, Content_Type="application/xml",
                         **headers)
        token = ElementTree.fromstring(reply.body).find(f".//{D}locktoken/{D}href").text
        self.assertEqual(reply.headers["lock-token"], f"<{token}>")
        return token


class Davfs2(FlowCase):
    """davfs2 with its default settings: it locks what it writes."""

    def setUp(self):
        self.here = Tree()
        self.addCleanup(self.here.remove)
        os.makedirs(self.here / "mount")
        cache = self.here / "cache"
        os.makedirs(cache)
        os.chmod(self.here.path, 0o755)
        os.chmod(cache, 0o777)
        self.here.write("conf", f"ask_auth 0\ncache_dir {cache}\ndelay_upload 0\n")

    def mount(self):
        """Whether this user may, and the system can."""
        if os.geteuid() != 0 or not os.access("/dev/fuse", os.R_OK | os.W_OK):
            return False
        done = subprocess.run(
            ["mount", "-t", "davfs", "-o", f"conf={self.here / 'conf'}", self.docs() + "/",
             self.here / "mount"], input=b"\n\n", stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, timeout=PATIENCE, check=False)
        return done.returncode == 0

    def unmount(self):
        subprocess.run(["umount", self.here / "mount"], stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL, timeout=PATIENCE * 2, check=True)

    def arrives(self, name, data):
        def has_come():
            try:
                return self.tree.read(name) == data
            except FileNotFoundError:
                return False

        wait_for(has_come, f"{name} to arrive")

    def store(self, name, data):
        """The requests that it sends to write a file, where it cannot be run itself."""
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
        self.ask("UNLOCK", name, None, 204, Lock_Token=f"<{token}>")

    def test_created_edited_and_replaced_file_comes_back(self):
        created, edited, replaced = (pattern(400_000, seed) for seed in (1, 2, 3))
        if not self.mount():
            for data in (created, edited, replaced):
                self.store("a.bin", data)
                self.assertEqual(self.ask("GET", "a.bin").body, data)
            return
        try:
            for data in (created, edited):
                self.here.write("mount/a.bin", data)
                self.arrives("a.bin", data)
            self.here.write("mount/tmp.bin", replaced)
            self.arrives("tmp.bin", replaced)
            os.rename(self.here / "mount/tmp.bin", self.here / "mount/a.bin")
            self.arrives("a.bin", replaced)
            self.assertEqual(self.here.read("mount/a.bin"), replaced)
            os.mkdir(self.here / "mount/folder")
            self.here.write("mount/folder/x", b"")
            self.arrives("folder/x", b"")
            os.remove(self.here / "mount/folder/x")
            os.rmdir(self.here / "mount/folder")
        finally:
            self.unmount()
        self.assertEqual(self.tree.read("a.bin"), replaced)
        self.assertFalse(os.path.exists(self.tree / "tmp.bin"))
        self.assertFalse(os.path.exists(self.tree / "folder"))


class Editors(FlowCase):
    """Sequences of requests as other editors send them."""

    def put_in_chunks(self, name, data, expected, **headers):
        path = self.path(name)
        lines = "".join(f"{key.replace('_', '-')}: {value}\r\n" for key, value in headers.items())
        chunk = f"{len(data):x}\r\n".encode() + data + b"\r\n0\r\n\r\n"
        reply = self.server.raw(
            (f"PUT {path} HTTP/1.1\r\nHost: 127.0.0.1:{self.server.port}\r\n{lines}"
             f"Transfer-Encoding: chunked\r\nX-Expected-Entity-Length: {expected}\r\n"
             "Connection: close\r\n\r\n").encode() + chunk)
        return int(reply.split()[1])

    def test_finder_saves(self):
        data = pattern(60_000, 4)
        for name, content in (("Letter.txt", data), ("._Letter.txt", b"resource")):
            self.ask("HEAD", name, None, 404)
            self.ask("PUT", name, b"", 201)
            token = self.locked(name, 200, Depth="0", Timeout="Second-600")
            condition = f"(<{token}>)"
            self.assertEqual(self.put_in_chunks(name, content, len(content), If=condition), 204)
            again = self.ask("LOCK", name, b"", 200, If=condition, Timeout="Second-600",
                             Content_Type="text/xml")
            self.assertIn(token.encode(), again.body)
            self.ask("UNLOCK", name, None, 204, Lock_Token=f"<{token}>")
            self.assertEqual(self.tree.read(name), content)

    def test_windows_copies_a_file_and_keeps_its_dates(self):
        data = pattern(30_000, 5)
        self.ask("PROPFIND", "report.docx", b"", 404, Depth="0")
        self.ask("PUT", "report.docx", b"", 201)
        token = self.locked("report.docx", 200, Timeout="Second-3600")
        condition = f"(<{token}>)"
        patch = (b'<?xml version="1.0" encoding="utf-8" ?><D:propertyupdate xmlns:D="DAV:" '
                 b'xmlns:Z="urn:schemas-microsoft-com:"><D:set><D:prop>'
                 b"<Z:Win32CreationTime>Sun, 06 Nov 1994 08:49:37 GMT</Z:Win32CreationTime>"
                 b"<Z:Win32LastModifiedTime>Tue, 14 Nov 2023 22:13:20 GMT"
                 b"</Z:Win32LastModifiedTime><Z:Win32FileAttributes>00000020"
                 b"</Z:Win32FileAttributes></D:prop></D:set></D:propertyupdate>")
        self.ask("HEAD", "report.docx", None, 200)
        self.ask("PUT", "report.docx", data, 204, If=condition)
        done = self.ask("PROPPATCH", "report.docx", patch, 207, If=condition)
        entry, = multistatus(done.body)
        self.assertEqual((len(entry.found), len(entry.missing)), (3, 0), done.body)
        self.ask("UNLOCK", "report.docx", None, 204, Lock_Token=f"<{token}>")
        head = self.ask("HEAD", "report.docx", None, 200)
        self.assertEqual(head.headers["last-modified"], "Tue, 14 Nov 2023 22:13:20 GMT")
        self.assertEqual(self.tree.read("report.docx"), data)

    def test_office_replaces_a_document(self):
        self.tree.write("plan.docx", b"old")
        document = self.locked("plan.docx", 200, Timeout="Second-3600")
        temporary = self.locked("~tmp.docx", 201, Timeout="Second-3600")
        self.ask("PUT", "~tmp.docx", b"new", 204, If=f"(<{temporary}>)")
        self.ask("UNLOCK", "~tmp.docx", None, 204, Lock_Token=f"<{temporary}>")
        self.ask("UNLOCK", "plan.docx", None, 204, Lock_Token=f"<{document}>")
        temporary = self.locked("~tmp.docx", 200, Timeout="Second-3600")
        self.ask("MOVE", "~tmp.docx", None, 204, Destination=self.docs("plan.docx"),
                 Overwrite="T", If=f"(<{temporary}>)")
        self.assertEqual(self.tree.read("plan.docx"), b"new")
        self.assertFalse(os.path.exists(self.tree / "~tmp.docx"))
        self.ask("PUT", "plan.docx", b"newer", 204)  # no lock has come along

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
