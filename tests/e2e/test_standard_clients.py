# SPDX-License-Identifier: Apache-2.0
"""Real programs with their default settings against the standard dialect: what they store has to
be there byte for byte, and what they read has to be what is there. docs/clients.md tells the
operations that each is tried with."""

import os
import shutil
import tempfile

from harness import SCRATCH, ServerCase, pattern, run

PYTHON = "/usr/bin/python3"  # the one that Debian's modules are for

EASYWEBDAV = """
import easywebdav, sys
port, source, target = int(sys.argv[1]), sys.argv[2], sys.argv[3]
client = easywebdav.connect("127.0.0.1", port=port, protocol="http", path="Ferro/docs")
client.mkdir("ew")
client.upload(source, "ew/one")
assert [(f.name, f.size) for f in client.ls("ew")][1:] == [("/Ferro/docs/ew/one", 100000)]
client.download("ew/one", target)
assert client.exists("ew/one")
client.delete("ew/one")
assert not client.exists("ew/one")
client.rmdir("ew")
"""

WEBDAVCLIENT = """
import sys
from webdav3.client import Client
port, source, target = sys.argv[1], sys.argv[2], sys.argv[3]
client = Client({"webdav_hostname": "http://127.0.0.1:" + port, "webdav_root": "/Ferro/docs/"})
client.mkdir("wc")
client.upload_sync("wc/one", source)
client.copy("wc/one", "wc/two")
client.move("wc/two", "wc/three")
assert sorted(client.list("wc")) == ["one", "three"], client.list("wc")
assert client.info("wc/three")["size"] == "100000"
assert int(client.free()) > 0
client.set_property("wc/one", {"namespace": "urn:x", "name": "p", "value": "v"})
assert client.get_property("wc/one", {"namespace": "urn:x", "name": "p"}) == "v"
client.download_sync("wc/three", target)
client.clean("wc")
assert not client.check("wc")
"""

HTTP_DAV = """
use HTTP::DAV;
my ($port, $source, $target) = @ARGV;
my $dav = HTTP::DAV->new();
sub try { my ($what, $done) = @_; $done or die "$what: " . $dav->message }
try("open", $dav->open(-url => "http://127.0.0.1:$port/Ferro/docs/"));
try("mkcol", $dav->mkcol("pl"));
try("put", $dav->put(-local => $source, -url => "pl/one"));
try("lock", $dav->lock("pl/one"));
try("unlock", $dav->unlock("pl/one"));
try("prop", $dav->set_prop(-url => "pl/one", -namespace => "dave:", -propname => "colour",
                           -propvalue => "red"));
my $read = $dav->propfind("pl/one");
$read->get_property("colour") eq "red" or die "the property is lost";
try("copy", $dav->copy(-url => "pl/one", -dest => "pl/two"));
try("move", $dav->move(-url => "pl/two", -dest => "pl/three"));
try("get", $dav->get(-url => "pl/three", -to => $target));
try("delete", $dav->delete("pl"));
"""

CADAVER = """mkcol cv
cd cv
put {source} one
copy one two
move two three
propset one mine value
propget one mine
lock one
discover one
unlock one
ls
get three {target}
delete one three
cd ..
rmcol cv
quit
"""


class Programs(ServerCase):
    options = ("--dialect", "standard")

    def setUp(self):
        self.own = tempfile.mkdtemp(prefix="kest-client-", dir=SCRATCH)
        self.addCleanup(shutil.rmtree, self.own, ignore_errors=True)
        self.content = pattern(100_000)
        self.folder = os.path.join(self.own, "src")
        os.mkdir(self.folder)
        self.source = self.write("src/one", self.content)
        self.write("src/two words.txt", b"two\n")
        os.utime(self.source, (981_173_106, 981_173_106))
        self.target = os.path.join(self.own, "got")

    def write(self, name, data):
        path = os.path.join(self.own, name)
        with open(path, "wb") as out:
            out.write(data)
        return path

    def go(self, *command, stdin=None, cwd=None, **env):
        status, text = run(*command, stdin=stdin, cwd=cwd or self.own, env={"HOME": self.own, **env})
        self.assertEqual(status, 0, text)
        return text

    def assert_got(self):
        with open(self.target, "rb") as file:
            self.assertEqual(file.read(), self.content)

    def script(self, interpreter, text):
        path = self.write("script", text.encode())
        self.go(interpreter, path, str(self.server.port), self.source, self.target)
        self.assert_got()

    def test_easywebdav(self):
        self.script(PYTHON, EASYWEBDAV)

    def test_webdavclient(self):
        self.script(PYTHON, WEBDAVCLIENT)

    def test_http_dav_of_perl(self):
        self.script("perl", HTTP_DAV)

    def test_cadaver(self):
        text = self.go("cadaver", self.docs() + "/", stdin=CADAVER.format(
            source=self.source, target=self.target).encode())
        self.assertNotRegex(text, r"failed|Could not|\b[45]\d\d\b", text)
        self.assertIn("Value of mine is: value", text)
        self.assertRegex(text, r"Scope: exclusive  Type: write  Timeout: 3\d\d\d seconds")
        self.assert_got()

    def test_git_pushes_and_fetches(self):
        bare, work = self.tree / "repo.git", os.path.join(self.own, "work")
        git = {"GIT_AUTHOR_NAME": "n", "GIT_AUTHOR_EMAIL": "e", "GIT_COMMITTER_NAME": "n",
               "GIT_COMMITTER_EMAIL": "e", "GIT_CONFIG_NOSYSTEM": "1"}
        self.go("git", "init", "-q", "--bare", bare)
        self.go("git", "-C", bare, "update-server-info")
        self.go("git", "init", "-q", "-b", "main", work)
        url = self.docs("repo.git")
        for turn in ("one", "two"):
            with open(os.path.join(work, "file"), "w", encoding="ascii") as out:
                out.write(turn)
            self.go("git", "add", "file", cwd=work, **git)
            self.go("git", "commit", "-q", "-m", turn, cwd=work, **git)
            self.go("git", "push", "-q", url, "HEAD:refs/heads/main", cwd=work, **git)
        self.assertIn("two", self.go("git", "-C", bare, "log", "--oneline", "main"))
        self.go("git", "clone", "-q", "-b", "main", url, self.target, **git)
        with open(os.path.join(self.target, "file"), encoding="ascii") as file:
            self.assertEqual(file.read(), "two")

    def rclone(self, vendor, *command):
        return self.go("rclone", "--config", os.path.join(self.own, "none.conf"),
                       "--webdav-url", self.docs(), "--webdav-vendor", vendor, *command)

    def test_rclone_keeps_dates_where_its_vendor_can(self):
        for vendor in ("other", "owncloud", "nextcloud"):
            with self.subTest(vendor):
                there = f":webdav:rclone-{vendor}"
                self.rclone(vendor, "copy", self.folder, there)
                self.assertEqual(self.tree.read(f"rclone-{vendor}/one"), self.content)
                if vendor != "other":
                    when = os.stat(self.tree / f"rclone-{vendor}/one").st_mtime
                    self.assertEqual(int(when), 981_173_106)
                self.rclone(vendor, "check", self.folder, there)
                self.rclone(vendor, "copy", there, self.target + vendor)
                self.go("diff", "-r", self.folder, self.target + vendor)
                self.rclone(vendor, "moveto", there + "/one", there + "/moved/one")
                self.rclone(vendor, "purge", there)
                self.assertFalse(os.path.exists(self.tree / f"rclone-{vendor}"))

    def test_duplicity_restores_what_it_backed_up(self):
        url = f"webdav://u:p@127.0.0.1:{self.server.port}/Ferro/docs/duplicity"
        self.go("duplicity", "--no-encryption", "full", self.folder, url)
        self.write("src/three", b"later")
        self.go("duplicity", "--no-encryption", "incremental", self.folder, url)
        self.assertIn("Number of contained backup sets: 2",
                      self.go("duplicity", "collection-status", url))
        self.go("duplicity", "--no-encryption", "restore", url, self.target)
        self.go("diff", "-r", self.folder, self.target)

    def test_restic_restores_what_it_backed_up(self):
        config = self.write("rclone.conf", f"[k]\ntype = webdav\nurl = {self.docs()}\n"
                            "vendor = other\n".encode())
        env = {"RCLONE_CONFIG": config, "RESTIC_PASSWORD": "x", "RESTIC_REPOSITORY": "rclone:k:r"}
        self.go("restic", "-q", "init", **env)
        self.go("restic", "-q", "backup", "src", **env)
        self.go("restic", "-q", "check", **env)
        self.go("restic", "-q", "restore", "latest", "--target", self.target, **env)
        self.go("diff", "-r", self.folder, os.path.join(self.target, "src"))
