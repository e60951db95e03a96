# SPDX-License-Identifier: Apache-2.0
"""Real programs with their default settings against the standard dialect: what they store has to
be there byte for byte, and what they read has to be what is there. docs/clients.md tells the
operations that each is tried with."""

import os

from harness import pattern
from programs import ProgramCase, tried

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
my $list = $dav->propfind(-url => "pl/", -depth => 1)->get_resourcelist;
$list->count_resources == 2 or die "the folder does not show its two files";
for my $each ($list->get_resources) { $each->get_property("getcontentlength") == 100000 or die }
try("get", $dav->get(-url => "pl/three", -to => $target));
try("delete", $dav->delete("pl"));
"""

CADAVER = """mkcol cv
cd cv
put {source} one
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


class Programs(ProgramCase):
    def script(self, interpreter, text):
        path = self.write("script", text.encode())
        self.go(interpreter, path, str(self.server.port), self.source, self.target)
        self.assert_got()

    @tried("easywebdav", "list", "read", "create", "folder", "delete",
           package="python3-easywebdav")
    def test_easywebdav(self):
        self.script(PYTHON, EASYWEBDAV)

    @tried("webdavclient3", "list", "read", "create", "replace", "folder", "copy", "move",
           "delete", "properties", "space", package="python3-webdavclient")
    def test_webdavclient(self):
        self.script(PYTHON, WEBDAVCLIENT)

    def test_http_dav_of_perl(self):
        with tried("HTTP::DAV", "list", "read", "create", "folder", "copy", "move", "delete",
                   "lock", "properties", package="libhttp-dav-perl"):
            self.script("perl", HTTP_DAV)

    def test_cadaver(self):
        with tried("cadaver", "list", "read", "create", "replace", "folder", "copy", "move",
                   "delete", "lock", "properties"):
            text = self.go("cadaver", self.docs() + "/", stdin=CADAVER.format(
                source=self.source, target=self.target).encode())
            self.assertNotRegex(text, r"failed|Could not|\b[45]\d\d\b", text)
            self.assertIn("Value of mine is: value", text)
            self.assertRegex(text, r"Scope: exclusive  Type: write  Timeout: 3\d\d\d seconds")
            self.assertRegex(text, r"(?m)^ +one +100000 ")
            self.assert_got()
            self.assertFalse(os.path.exists(self.tree / "cv"))

    @tried("git", "list", "read", "create", "replace", "folder", "move", "lock")
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
        self.go("git", "-C", bare, "fsck", "--strict")
        self.go("git", "clone", "-q", "-b", "main", url, self.target, **git)
        with open(os.path.join(self.target, "file"), encoding="ascii") as file:
            self.assertEqual(file.read(), "two")


class Copiers(ProgramCase):
    """Programs that keep trees in step, and those that back them up."""

    def rclone(self, vendor, *command):
        return self.go("rclone", "--config", os.path.join(self.own, "none.conf"),
                       "--webdav-url", self.docs(), "--webdav-vendor", vendor, *command)

    def copy_with_rclone(self, vendor):
        there = f":webdav:rclone-{vendor}"
        self.rclone(vendor, "copy", self.folder, there)
        self.assert_stored(f"rclone-{vendor}/one", self.content)
        self.rclone(vendor, "check", self.folder, there)
        self.rclone(vendor, "copy", there, self.target + vendor)
        self.go("diff", "-r", self.folder, self.target + vendor)
        self.write("src/two words.txt", b"edited by " + vendor.encode())
        self.rclone(vendor, "sync", self.folder, there)
        self.assert_stored(f"rclone-{vendor}/two words.txt", b"edited by " + vendor.encode())
        self.rclone(vendor, "copyto", there + "/one", there + "/copied/one")
        self.rclone(vendor, "moveto", there + "/one", there + "/moved/one")
        for name in ("copied/one", "moved/one"):
            self.assert_stored(f"rclone-{vendor}/{name}", self.content)
        self.assertFalse(os.path.exists(self.tree / f"rclone-{vendor}/one"))
        self.assertRegex(self.rclone(vendor, "about", ":webdav:"), r"Free: +\d")

    def purge_with_rclone(self, vendor):
        self.rclone(vendor, "purge", f":webdav:rclone-{vendor}")
        self.assertFalse(os.path.exists(self.tree / f"rclone-{vendor}"))

    @tried("rclone", "list", "read", "create", "replace", "folder", "copy", "move", "delete",
           "space")
    def test_rclone_of_any_vendor(self):
        self.copy_with_rclone("other")
        self.purge_with_rclone("other")

    def test_rclone_keeps_dates_where_its_vendor_can(self):
        for vendor in ("owncloud", "nextcloud"):
            with self.subTest(vendor), \
                    tried(f"rclone ({vendor})", "list", "read", "create", "replace", "folder",
                          "copy", "move", "delete", "dates", "space", package="rclone"):
                self.copy_with_rclone(vendor)
                for name in ("moved/one", "copied/one"):
                    when = os.stat(self.tree / f"rclone-{vendor}/{name}").st_mtime
                    self.assertEqual(int(when), 981_173_106, name)
                # What has not changed is not sent again.
                again = ("-v", "sync", self.folder, f":webdav:rclone-{vendor}")
                self.assertIn("one: Copied (new)", self.rclone(vendor, *again))
                self.assertIn("There was nothing to transfer", self.rclone(vendor, *again))
                self.purge_with_rclone(vendor)

    @tried("duplicity", "list", "read", "create", "folder", "delete")
    def test_duplicity_restores_what_it_backed_up(self):
        url = f"webdav://u:p@127.0.0.1:{self.server.port}/Ferro/docs/duplicity"
        self.go("duplicity", "--no-encryption", "full", self.folder, url)
        self.write("src/three", b"later")
        self.go("duplicity", "--no-encryption", "incremental", self.folder, url)
        self.assertIn("Number of contained backup sets: 2",
                      self.go("duplicity", "collection-status", url))
        # Another machine knows nothing but what is stored.
        os.rename(os.path.join(self.own, ".cache"), os.path.join(self.own, "forgotten"))
        self.go("duplicity", "--no-encryption", "restore", url, self.target)
        self.go("diff", "-r", self.folder, self.target)
        self.go("duplicity", "--no-encryption", "full", self.folder, url)
        self.go("duplicity", "remove-all-but-n-full", "1", "--force", url)
        self.assertIn("Number of contained backup sets: 1",
                      self.go("duplicity", "collection-status", url))
        self.go("duplicity", "--no-encryption", "restore", url, self.target + "2")
        self.go("diff", "-r", self.folder, self.target + "2")

    @tried("restic (by rclone)", "list", "read", "create", "folder", "delete", package="restic")
    def test_restic_restores_what_it_backed_up(self):
        config = self.write("rclone.conf", f"[k]\ntype = webdav\nurl = {self.docs()}\n"
                            "vendor = other\n".encode())
        env = {"RCLONE_CONFIG": config, "RESTIC_PASSWORD": "x", "RESTIC_REPOSITORY": "rclone:k:r"}
        self.go("restic", "-q", "init", **env)
        self.go("restic", "-q", "backup", "src", **env)
        self.write("src/three", pattern(300_000, 3))
        self.go("restic", "-q", "backup", "src", **env)
        self.go("restic", "-q", "forget", "--keep-last", "1", "--prune", **env)
        self.go("restic", "-q", "check", "--read-data", **env)
        self.go("restic", "-q", "restore", "latest", "--target", self.target, **env)
        self.go("diff", "-r", self.folder, os.path.join(self.target, "src"))
