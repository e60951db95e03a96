# SPDX-License-Identifier: Apache-2.0
"""curl and wget: tags, what is resumed after a break, and a mirror."""

import os

from harness import pattern
from programs import ProgramCase, tried

CODE = "%{http_code}"


class Curl(ProgramCase):
    def curl(self, *arguments):
        """The status of the reply, with curl's own settings."""
        return int(self.go("curl", "-s", "-S", "-o", self.target, "-w", CODE, *arguments)[-3:])

    @tried("curl", "create", "replace", "read")
    def test_upload_and_download(self):
        self.assertEqual(self.curl("-T", self.source, self.docs("curl")), 201)
        self.assertEqual(self.curl("-T", self.source, self.docs("curl")), 204)
        self.assert_stored("curl", self.content)
        # Above 1 MiB it waits for "100 Continue", and of a pipe it does not know the length.
        large = self.write("large", pattern(3_000_000, 2))
        self.assertEqual(self.curl("-T", large, self.docs("curl large")), 201)
        self.assert_stored("curl large", self.read("large"))
        self.go("curl", "-s", "-S", "-f", "-T", "-", self.docs("piped"), stdin=self.content)
        self.assert_stored("piped", self.content)
        # A folder at the end of the URL: curl adds the file's name.
        self.assertEqual(self.curl("-T", self.source, self.docs() + "/"), 201)
        self.assert_stored("one", self.content)
        self.assertEqual(self.curl(self.docs("curl large")), 200)
        self.assertEqual(self.read("got"), self.read("large"))

    @tried("curl", "dates")
    def test_dates(self):
        self.tree.write("dated", b"old")
        os.utime(self.tree / "dated", (981_173_106, 981_173_106))
        self.assertEqual(self.curl("-R", self.docs("dated")), 200)
        self.assertEqual(int(os.stat(self.target).st_mtime), 981_173_106)
        self.assertEqual(self.curl("-z", self.target, self.docs("dated")), 304)

    @tried("curl", "read")
    def test_what_has_not_changed_is_not_sent_again(self):
        tag = os.path.join(self.own, "tag")
        tags = ("--etag-compare", tag, "--etag-save", tag)
        self.tree.write("tagged", b"first")
        self.assertEqual(self.curl("--etag-save", tag, self.docs("tagged")), 200)
        self.assertEqual(self.curl(*tags, self.docs("tagged")), 304)
        self.assertEqual(self.curl("-T", self.source, self.docs("tagged")), 204)
        self.assertEqual(self.curl(*tags, self.docs("tagged")), 200)
        self.assert_got()
        self.assertEqual(self.curl(*tags, self.docs("tagged")), 304)

    @tried("curl", "resume")
    def test_interrupted_download_goes_on(self):
        self.tree.write("long", self.content)
        self.write("got", self.content[:33_333])
        self.assertEqual(self.curl("-C", "-", self.docs("long")), 206)
        self.assert_got()
        # What is whole already has nothing left to send; curl takes 416 for that.
        self.assertEqual(self.curl("-C", "-", self.docs("long")), 416)
        self.assert_got()

    @tried("curl", "resume")
    def test_interrupted_upload_goes_on(self):
        for stored in (33_333, 100_000, 0):
            with self.subTest(stored=stored):
                self.tree.write("partial", self.content[:stored])
                if stored == 100_000:  # some bytes of it are sent once more
                    stored = 50_000
                self.assertEqual(self.curl("-C", str(stored), "-T", self.source,
                                           self.docs("partial")), 204)
                self.assert_stored("partial", self.content)
        # It cannot go on behind what is not there.
        self.tree.write("partial", self.content[:1000])
        self.assertEqual(self.curl("-C", "2000", "-T", self.source, self.docs("partial")), 416)
        self.assert_stored("partial", self.content[:1000])
        # "-C -" knows no place of an upload: it sends the whole.
        self.assertEqual(self.curl("-C", "-", "-T", self.source, self.docs("partial")), 204)
        self.assert_stored("partial", self.content)


class Wget(ProgramCase):
    def wget(self, *arguments):
        return self.go("wget", *arguments)

    @tried("wget", "read", "dates")
    def test_download_with_its_date(self):
        self.tree.write("w/one", self.content)
        os.utime(self.tree / "w/one", (981_173_106, 981_173_106))
        self.wget(self.docs("w", "one"))
        self.assertEqual(self.read("one"), self.content)
        self.assertEqual(int(os.stat(os.path.join(self.own, "one")).st_mtime), 981_173_106)
        self.assertIn("304 Not Modified", self.wget("-N", self.docs("w", "one")))

    @tried("wget", "resume")
    def test_continue(self):
        self.tree.write("w/part", self.content)
        self.write("part", self.content[:12_345])
        text = self.wget("--continue", self.docs("w", "part"))
        self.assertIn("206 Partial Content", text)
        self.assertEqual(self.read("part"), self.content)
        self.assertIn("already fully retrieved", self.wget("--continue", self.docs("w", "part")))
        self.assertEqual(self.read("part"), self.content)

    @tried("wget", "list")
    def test_mirror(self):
        wanted = {"top.txt": b"1", "two words.txt": b"2", "deep/er/ünïcödé.txt": b"3",
                  "deep/amp&ersand.bin": self.content}
        for name, data in wanted.items():
            self.tree.write("mirrored/" + name, data)
        self.wget("--mirror", "--no-parent", "--no-host-directories", "--cut-dirs=3",
                  "--directory-prefix=copy", "--restrict-file-names=nocontrol",
                  self.docs("mirrored") + "/")
        for name, data in wanted.items():
            self.assertEqual(self.read("copy/" + name), data, name)
