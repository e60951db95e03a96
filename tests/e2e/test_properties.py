# SPDX-License-Identifier: Apache-2.0
"""Listing, and setting and reading properties, as clients do it."""

import email.utils
import os
import subprocess
import time
import xml.etree.ElementTree as ElementTree

from dav import ALLPROP, D, multistatus, named, propfind, proppatch
from harness import HOSTILE_NAMES, ServerCase, Tree, curl, in_both_dialects, in_parallel, run

MIB = 1 << 20


@in_both_dialects
class Listing(ServerCase):
    hostile = True

    @property
    def origin(self):
        """What stands before the path of every href."""
        return self.server.base() if self.dialect == "classic" else ""

    def test_file_tells_its_vitals(self):
        self.tree.write("five.txt", b"12345")
        os.utime(self.tree / "five.txt", (1_700_000_000, 1_700_000_000))
        reply = propfind(self.server, self.path("five.txt"))
        self.assertEqual(reply.status, 207)
        self.assertEqual(reply.headers["content-type"],
                         {"standard": 'application/xml; charset="utf-8"',
                          "classic": "text/xml"}[self.dialect])
        self.assertEqual(len(reply.entries), 1)
        entry = reply.entries[0]
        self.assertEqual(entry.href, self.origin + "/Ferro/docs/five.txt")
        self.assertEqual(entry.text("getcontentlength"), "5")
        self.assertEqual(entry.text("displayname"), "five.txt")
        self.assertFalse(entry.is_collection())
        when = email.utils.parsedate_to_datetime(entry.text("getlastmodified")).timestamp()
        self.assertEqual(when, 1_700_000_000)
        self.assertRegex(entry.text("creationdate"), r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        self.assertEqual(set(entry.missing),
                         {D + "getcontenttype"} if self.dialect == "classic" else set())

    def test_folder_lists_every_hostile_name(self):
        folder = self.tree / "folder"
        os.mkdir(folder)
        # Kept: a display name of the classic dialect passes "<" through: such a listing is no XML.
        raw = [name for name in HOSTILE_NAMES if "<" in name and self.dialect == "classic"]
        for name in HOSTILE_NAMES:
            if name not in raw:
                self.tree.write("folder/" + name, b"x")
        os.mkdir(self.tree / "folder/sub & folder")
        reply = propfind(self.server, self.path("folder"), 1)
        own, *children = reply.entries
        self.assertTrue(own.is_collection() and own.href.endswith("/folder/"))
        got = {entry.path: entry for entry in children}
        base = "/Ferro/docs/folder/"
        wanted = {base + name for name in HOSTILE_NAMES if name not in raw}
        self.assertEqual(set(got), wanted | {base + "sub & folder/"})
        self.assertTrue(got[base + "sub & folder/"].is_collection())
        for path in wanted:
            self.assertEqual(got[path].text("displayname"), path[len(base):])
        # Every href can be used as it stands.
        for entry in children:
            answer = self.server.request("HEAD", entry.href[len(self.origin):])
            self.assertEqual(answer.status, 200, entry.href)

    def test_every_printable_character_survives_in_a_name(self):
        os.mkdir(self.tree / "ascii")
        letters = [c for c in map(chr, range(0x20, 0x7F)) if c != "/"]
        for c in letters:
            self.tree.write(f"ascii/a{c}b", c.encode())
        for c in letters:
            with self.subTest(character=c):
                reply = self.server.request("PROPFIND", self.path("ascii", f"a{c}b"),
                                            headers={"Depth": "0"})
                self.assertEqual(reply.status, 207)
                if c == "<" and self.dialect == "classic":
                    # Kept: written raw.
                    self.assertIn(b"<a:displayname>a<b</a:displayname>", reply.body)
                    with self.assertRaises(ElementTree.ParseError):
                        multistatus(reply.body)
                    continue
                entry = multistatus(reply.body)[0]
                self.assertEqual(entry.path, f"/Ferro/docs/ascii/a{c}b")
                self.assertEqual(entry.text("displayname"), f"a{c}b")
                answer = self.server.request("GET", entry.href[len(self.origin):])
                self.assertEqual(answer.body, c.encode())

    def test_root_lists_the_volumes(self):
        reply = propfind(self.server, "/Ferro/", 1)
        self.assertEqual([entry.path for entry in reply.entries], ["/Ferro/", "/Ferro/docs/"])
        self.assertEqual(reply.entries[0].text("displayname"), "Ferro")

    def test_missing_path_answers_404(self):
        reply = propfind(self.server, self.path("missing"), 0)
        self.assertEqual((reply.status, reply.body), (404, self.server.not_found_body()))

    def test_the_stores_own_directory_is_not_listed(self):
        self.server.request("PUT", self.path("makes-the-store-write"), b"x")
        paths = [entry.path for entry in propfind(self.server, self.path(), 1,
                                                  named("resourcetype")).entries]
        self.assertFalse([path for path in paths if ".kest" in path.lower()])

    def test_every_body_form_is_understood(self):
        self.tree.write("file", b"xyz")
        path = self.path("file")
        self.assertEqual(propfind(self.server, path, 0, ALLPROP).entries[0]
                         .text("getcontentlength"), "3")
        names = b'<D:propfind xmlns:D="DAV:"><D:propname/></D:propfind>'
        entry = propfind(self.server, path, 0, names).entries[0]
        self.assertIsNone(entry.text("getcontentlength"))
        entry = propfind(self.server, path, 0, named("getcontentlength", "nosuch")).entries[0]
        self.assertEqual(set(entry.found), {D + "getcontentlength"})
        # Kept: the classic dialect leaves out what it does not know.
        self.assertEqual(set(entry.missing),
                         {D + "nosuch"} if self.dialect == "standard" else set())

    def test_clients_at_once_get_what_each_asks_for(self):
        self.tree.write("asked")
        names = ["author", "editor", "reader", "writer"]  # bodies of one length
        reply = proppatch(self.server, self.path("asked"),
                          [("X:" + name, "of " + name) for name in names])
        self.assertEqual(reply.status, 207)

        def ask(i):
            name = names[i % len(names)]
            for _ in range(50):
                reply = propfind(self.server, self.path("asked"), 0, named("X:" + name))
                text = reply.body.decode()
                self.assertEqual([other for other in names if "of " + other in text], [name])

        in_parallel(16, ask)

class ClassicListing(ServerCase):
    dialect = "classic"

    def test_infinity_lists_nothing_below(self):
        # Kept: any depth that is no number is 0.
        reply = propfind(self.server, self.path(), "infinity")
        self.assertEqual(len(reply.entries), 1)

    def test_100000_entries_are_listed_in_bounded_memory(self):
        folder = self.tree / "many"
        os.mkdir(folder)
        for i in range(100_000):
            os.close(os.open(f"{folder}/entry {i:06d}.txt", os.O_CREAT | os.O_WRONLY))
        self.server.request("PROPFIND", self.path("file"), headers={"Depth": "0"})
        before = self.server.memory_now()
        self.server.reset_memory_peak()
        began = time.monotonic()
        reply = self.server.request("PROPFIND", self.path("many"), headers={"Depth": "1"})
        took = time.monotonic() - began
        grown = self.server.memory_peak() - before
        self.assertEqual(len(multistatus(reply.body)), 100_001)
        self.assertLess(grown, 32 * MIB)
        self.assertLess(took, 30)


@in_both_dialects
class DeadProperties(ServerCase):
    def value(self, path, name):
        entry = propfind(self.server, path, 0, named("X:" + name)).entries[0]
        found = [element for tag, element in entry.found.items() if tag.endswith(name)]
        return found[0].text.strip() if found else None

    def test_set_read_list_and_remove(self):
        self.tree.write("file", b"x")
        path = self.path("file")
        self.assertEqual(proppatch(self.server, path, [("X:color", "blue"),
                                                       ("X:shape", "round")]).status, 207)
        self.assertEqual(self.value(path, "color"), "blue")
        self.assertEqual(self.value(path, "shape"), "round")
        reply = proppatch(self.server, path, removes=["X:color"])
        self.assertIn(b"200 OK", reply.body)
        self.assertIsNone(self.value(path, "color"))
        self.assertEqual(self.value(path, "shape"), "round")

    def test_unknown_path_answers_404(self):
        self.assertEqual(proppatch(self.server, self.path("no"), [("X:a", "b")]).status, 404)

    def test_properties_survive_kill(self):
        self.tree.write("kept", b"x")
        path = self.path("kept")
        for i in range(20):
            self.assertEqual(proppatch(self.server, path, [(f"X:p{i}", str(i))]).status, 207)
        self.server.kill()
        self.server.start()
        for i in range(20):
            self.assertEqual(self.value(path, f"p{i}"), str(i))

    def test_properties_follow_a_move_and_go_with_a_delete(self):
        self.tree.write("from", b"x")
        proppatch(self.server, self.path("from"), [("X:color", "green")])
        reply = self.server.request("MOVE", self.path("from"), headers={
            "Destination": self.docs("to")})
        self.assertIn(reply.status, (200, 201, 204))
        self.assertEqual(self.value(self.path("to"), "color"), "green")
        self.server.request("DELETE", self.path("to"))
        self.server.request("PUT", self.path("to"), b"another file of the same name")
        self.assertIsNone(self.value(self.path("to"), "color"))

    def test_properties_stay_when_the_content_is_replaced(self):
        self.tree.write("replaced", b"x")
        proppatch(self.server, self.path("replaced"), [("X:color", "red")])
        self.server.request("PUT", self.path("replaced"), b"new content")
        self.assertEqual(self.value(self.path("replaced"), "color"), "red")

    def test_folders_have_properties(self):
        os.mkdir(self.tree / "folder")
        self.assertEqual(proppatch(self.server, self.path("folder"), [("X:color", "red")]).status,
                         207)
        self.assertEqual(self.value(self.path("folder"), "color"), "red")


class ClassicProperties(ServerCase):
    dialect = "classic"
    value = DeadProperties.value

    def test_only_the_first_property_of_a_prop_element_is_taken(self):
        # Kept: a client sends one prop element for each property.
        self.tree.write("two", b"x")
        body = (b'<D:propertyupdate xmlns:D="DAV:" xmlns:X="urn:x"><D:set><D:prop>'
                b"<X:one>1</X:one><X:two>2</X:two></D:prop></D:set></D:propertyupdate>")
        self.server.request("PROPPATCH", self.path("two"), body)
        self.assertEqual(self.value(self.path("two"), "one"), "1")
        self.assertIsNone(self.value(self.path("two"), "two"))

    def test_markup_in_a_value_comes_back_as_it_was(self):
        self.tree.write("markup", b"x")
        path = self.path("markup")
        proppatch(self.server, path, [("X:rich", "a &amp; <b>b</b> &lt;c&gt; ünï \U0001f600")])
        reply = propfind(self.server, path, 0, named("X:rich"))
        self.assertIn("a &amp; <b>b</b> &lt;c&gt; ünï \U0001f600".encode(), reply.body)

    def test_body_of_8000_bytes_is_refused(self):
        self.tree.write("limit", b"x")
        self.assertNotEqual(proppatch(self.server, self.path("limit"),
                                      [("X:big", "v" * 8000)]).status, 207)
        self.assertEqual(proppatch(self.server, self.path("limit"),
                                   [("X:big", "v" * 7000)]).status, 207)
        self.assertEqual(self.value(self.path("limit"), "big"), "v" * 7000)


@in_both_dialects
class HostileXml(ServerCase):
    """Bodies made to hurt: bounded memory and time, and the server goes on."""

    def bodies(self):
        deep = b"<a>" * 10_000
        yield "deep nesting", b'<propfind xmlns="DAV:">' + deep
        yield "deep nesting that ends", (b'<propfind xmlns="DAV:">' + deep + b"</a>" * 10_000
                                         + b"</propfind>")
        yield "many elements", (b'<propfind xmlns="DAV:"><prop>' + b"<x/>" * 200_000
                                + b"</prop></propfind>")
        yield "a million elements", (b'<propfind xmlns="DAV:"><prop>' + b"<x/>" * 1_000_000
                                     + b"</prop></propfind>")
        yield "long names", (b'<propfind xmlns="DAV:"><prop><' + b"n" * 100_000
                             + b"/></prop></propfind>")
        yield "many attributes", (b"<propfind " + b" ".join(b'a%d="x"' % i for i in range(20_000))
                                  + b"/>")
        yield "truncated", b'<?xml version="1.0"?><propfind xmlns="DAV:"><prop><displ'
        yield "entities", (b'<?xml version="1.0"?><!DOCTYPE p [<!ENTITY a "aaaaaaaaaa">'
                           + b"".join(b'<!ENTITY %c "%s">' % (98 + i, b"&%c;" % (97 + i) * 10)
                                      for i in range(12))
                           + b']><propfind xmlns="DAV:"><prop><x>&m;</x></prop></propfind>')
        yield "entity in attribute", (b'<!DOCTYPE p [<!ENTITY a "' + b"a" * 1000 + b'">]>'
                                      b'<propfind x="' + b"&a;" * 10_000 + b'"/>')
        yield "outside entity", (b'<!DOCTYPE p [<!ENTITY a SYSTEM "file:///etc/passwd">]>'
                                 b'<propfind xmlns="DAV:"><prop><x>&a;</x></prop></propfind>')
        yield "utf-16", '<propfind xmlns="DAV:"><allprop/></propfind>'.encode("utf-16")
        yield "said to be utf-16", b'<?xml version="1.0" encoding="utf-16"?><propfind/>'
        yield "unknown encoding", b'<?xml version="1.0" encoding="klingon"?><propfind/>'
        yield "bad utf-8", b'<propfind xmlns="DAV:"><prop><\xff\xfe/></prop></propfind>'
        yield "nul bytes", b"<propfind>\0\0\0</propfind>"
        yield "binary", bytes(range(256)) * 100
        yield "empty", b""
        yield "no xml", b"hello"

    def test_no_body_hurts_the_server(self):
        self.tree.write("target", b"x")
        # What is made once per process is made now.
        propfind(self.server, self.path("target"), 1, ALLPROP)
        for name, body in self.bodies():
            for method in ("PROPFIND", "PROPPATCH", "LOCK"):
                with self.subTest(body=name, method=method):
                    before = self.server.memory_now()
                    self.server.reset_memory_peak()
                    began = time.monotonic()
                    reply = self.server.request(method, self.path("target"), body,
                                                {"Depth": "0", "Content-Type": "text/xml"})
                    self.assertLess(time.monotonic() - began, 20)
                    self.assertIn(reply.status, (200, 207, 400, 413, 417, 422, 423, 507), reply)
                    self.assertNotIn(b"root:", reply.body)
                    self.assertLess(self.server.memory_peak() - before, 64 * MIB)
                    self.assertTrue(self.server.alive())
        self.assertEqual(propfind(self.server, self.path("target"), 0, ALLPROP).status, 207)


class Clients(ServerCase):
    """Programs that people use, driven as people do."""

    def setUp(self):
        self.local = Tree()
        self.addCleanup(self.local.remove)

    def cadaver(self, *commands):
        status, text = run("cadaver", "-t", self.docs() + "/", cwd=self.local.path,
                           stdin="\n".join([*commands, "quit", ""]).encode(),
                           env={"HOME": self.local.path})
        self.assertEqual(status, 0, text)
        return text

    def rclone(self, *arguments):
        status, text = run("rclone", "--config", "/dev/null", "--retries", "1",
                           "--webdav-url", self.docs(), *arguments, cwd=self.local.path)
        self.assertEqual(status, 0, text)
        return text

    def test_cadaver_lists_fetches_and_stores(self):
        self.tree.write("c/one.txt", b"one")
        self.tree.write("c/sub/two.txt", b"two")
        self.local.write("mine.txt", b"mine")
        text = self.cadaver("cd c", "ls", "get one.txt", "put mine.txt", "mkcol made", "ls")
        self.assertIn("one.txt", text)
        self.assertIn("Coll:", text)
        self.assertEqual(self.local.read("one.txt"), b"one")
        self.assertEqual(self.tree.read("c/mine.txt"), b"mine")
        self.assertTrue(os.path.isdir(self.tree / "c/made"))

    def test_cadaver_properties_come_back(self):
        self.tree.write("props.txt", b"x")
        text = self.cadaver("propset props.txt color blue", "propget props.txt color")
        self.assertIn("blue", text.split("propset", 1)[-1].split("color", 1)[-1])

    def test_rclone_lists_names_as_they_are(self):
        names = HOSTILE_NAMES
        for name in names:
            self.tree.write("list/" + name, b"x")
        text = self.rclone("lsf", ":webdav:list")
        # rclone shows a backslash and control characters through look-alikes.
        plain = [name for name in names if not set(name) & set("\\\x7f") and name.strip() == name]
        for name in plain:
            self.assertIn(name + "\n", text)

    def test_rclone_copies_a_tree_there_and_back(self):
        for i in range(60):
            self.local.write(f"tree/dir {i % 7}/sub/file {i} ünï.bin", os.urandom(i * 997))
        self.rclone("copy", "tree", ":webdav:copied tree")
        self.rclone("check", "--download", "tree", ":webdav:copied tree")
        self.rclone("copy", ":webdav:copied tree", "back")
        self.assertEqual(subprocess.run(["diff", "-r", "tree", "back"], cwd=self.local.path,
                                        capture_output=True, check=False).returncode, 0)
        self.assertEqual(subprocess.run(["diff", "-r", "tree", self.tree / "copied tree"],
                                        cwd=self.local.path, capture_output=True,
                                        check=False).returncode, 0)

    def test_curl_lists_sets_and_reads(self):
        self.tree.write("curl.txt", b"x")
        reply = curl("-X", "PROPFIND", "-H", "Depth: 1", self.docs() + "/")
        self.assertEqual(reply.status, 207)
        self.assertIn("/Ferro/docs/curl.txt", [entry.path for entry in multistatus(reply.out)])
        reply = curl("-X", "PROPPATCH", "--data-binary", '<D:propertyupdate xmlns:D="DAV:">'
                     '<D:set><D:prop><note xmlns="">from curl</note></D:prop></D:set>'
                     "</D:propertyupdate>",
                     self.docs("curl.txt"))
        self.assertEqual(reply.status, 207)
        reply = curl("-X", "PROPFIND", "--data-binary", '<D:propfind xmlns:D="DAV:"><D:prop>'
                     "<note/></D:prop></D:propfind>", self.docs("curl.txt"))
        self.assertEqual(multistatus(reply.out)[0].found["note"].text, "from curl")

