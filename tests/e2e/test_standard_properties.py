# SPDX-License-Identifier: Apache-2.0
"""PROPFIND and PROPPATCH in the standard dialect, read by a strict, namespace-aware parser."""

import email.utils
import os
import subprocess
import time
import xml.etree.ElementTree as ElementTree

import davxml
from dav import ALLPROP, D, copy, move, multistatus, named, propfind
from harness import HOSTILE_NAMES, ServerCase, Tree, TestServer, url_path

X = "{urn:x}"
Z = "{urn:schemas-microsoft-com:}"
WIN32 = "urn:schemas-microsoft-com:"


def update(content, scope=""):
    return (f'<?xml version="1.0"?><D:propertyupdate xmlns:D="DAV:"{scope}>{content}'
            "</D:propertyupdate>").encode()


def setting(*properties):
    return "<D:set><D:prop>" + "".join(properties) + "</D:prop></D:set>"


class Standard(ServerCase):
    options = ("--dialect", "standard")

    def patch(self, path, body, headers=None):
        """The status of each property that the reply tells of, in its order."""
        reply = self.server.request("PROPPATCH", path, body, headers)
        self.assertEqual(reply.status, 207, reply)
        response, = davxml.document(reply.body, "multistatus").findall(D + "response")
        self.assertEqual(response.find(D + "href").text, path)
        told = []
        for propstat in response.findall(D + "propstat"):
            status = int(propstat.find(D + "status").text.split()[1])
            told += [(child.tag, status) for child in propstat.find(D + "prop")]
        return told

    def one(self, path, *names):
        entry, = propfind(self.server, path, 0, named(*names)).entries
        return entry


class Listing(Standard):
    hostile = True

    def test_file_tells_all_its_properties(self):
        self.tree.write("five.txt", b"12345")
        os.utime(self.tree / "five.txt", (1_700_000_000, 1_700_000_000))
        for body in (None, ALLPROP):
            reply = propfind(self.server, self.path("five.txt"), 0, body)
            self.assertEqual(reply.status, 207)
            entry, = reply.entries
            self.assertEqual(entry.href, "/Ferro/docs/five.txt")
            self.assertEqual(entry.missing, {})
            self.assertEqual(entry.text("getcontentlength"), "5")
            self.assertEqual(entry.text("displayname"), "five.txt")
            self.assertEqual(entry.text("getcontenttype"), "text/plain")
            self.assertEqual(len(entry.found[D + "resourcetype"]), 0)
            self.assertEqual(len(entry.found[D + "supportedlock"]), 2)
            when = email.utils.parsedate_to_datetime(entry.text("getlastmodified")).timestamp()
            self.assertEqual(when, 1_700_000_000)
            self.assertEqual(entry.text("getetag"),
                             self.server.request("HEAD", self.path("five.txt")).headers["etag"])

    def test_folder_lists_every_hostile_name(self):
        os.mkdir(self.tree / "sub & <folder>")
        own, *members = propfind(self.server, self.path() + "/", 1).entries
        self.assertEqual(own.href, "/Ferro/docs/")
        got = {entry.path: entry for entry in members}
        base = "/Ferro/docs/"
        self.assertTrue({base + name for name in HOSTILE_NAMES} <= set(got), set(got))
        self.assertTrue(got[base + "sub & <folder>/"].is_collection())
        for name in HOSTILE_NAMES:
            entry = got[base + name]
            self.assertEqual(entry.text("displayname"), name)
            self.assertEqual(self.server.request("HEAD", entry.href).status, 200, entry.href)

    def test_named_properties_are_found_or_missing(self):
        self.tree.write("n.bin", b"1")
        entry = self.one(self.path("n.bin"), "getcontentlength", "unheard", "X:mine",
                         "quota-used-bytes")
        self.assertEqual(set(entry.found), {D + "getcontentlength"})
        self.assertEqual(set(entry.missing), {D + "unheard", X + "mine", D + "quota-used-bytes"})

    def test_quota_of_a_collection(self):
        entry = self.one(self.path(), "quota-available-bytes", "quota-used-bytes")
        self.assertEqual(entry.missing, {})
        self.assertGreater(int(entry.text("quota-available-bytes")), 0)

    def test_quota_is_told_to_who_asks_without_a_body_about_one_collection(self):
        quota = {D + "quota-available-bytes", D + "quota-used-bytes"}
        self.tree.write("quota/file", b"1")
        for path, depth, body, wanted in (
                (self.path("quota"), 0, None, quota), (self.path("quota"), 1, None, set()),
                (self.path("quota"), 0, ALLPROP, set()),
                (self.path("quota", "file"), 0, None, set()), ("/Ferro/", 0, None, set())):
            with self.subTest(path=path, depth=depth, body=body):
                for entry in propfind(self.server, path, depth, body).entries:
                    self.assertEqual(quota & set(entry.found), wanted)
                    self.assertEqual(entry.missing, {})

    def test_deep_paths_are_complete(self):
        folder = "/".join(["f" * 60] * 12)
        os.makedirs(self.tree / folder)
        self.tree.write(folder + "/leaf", b"x")
        reply = propfind(self.server, self.path(*folder.split("/")), 1)
        self.assertEqual(len(reply.entries), 2)
        self.assertTrue(reply.entries[1].href.endswith("/leaf"))

    def test_root_lists_the_volumes(self):
        own, docs = propfind(self.server, "/Ferro/", 1).entries
        self.assertEqual((own.href, docs.href), ("/Ferro/", "/Ferro/docs/"))
        self.assertTrue(own.is_collection() and docs.is_collection())

    def test_malformed_requests_are_refused(self):
        self.tree.write("m", b"1")
        for body in (b"<D:propfind", b'<D:propfind xmlns:D="DAV:"><D:prop><b:f xmlns:b=""/>'
                     b"</D:prop></D:propfind>", b'<propfind><allprop/></propfind>'):
            self.assertEqual(propfind(self.server, self.path("m"), 0, body).status, 400, body)
        self.assertEqual(propfind(self.server, self.path("none")).status, 404)


class Depths(ServerCase):
    options = ("--dialect", "standard")
    settings = {"KestDav": {"Infinity Entries": 40}}

    def test_infinity_walks_the_tree_up_to_the_setting(self):
        wanted = {"/Ferro/docs/t/"}
        for i in range(3):
            for j in range(10):
                self.tree.write(f"t/{i}/d/{j}", b"x")
                wanted.add(f"/Ferro/docs/t/{i}/d/{j}")
            wanted |= {f"/Ferro/docs/t/{i}/", f"/Ferro/docs/t/{i}/d/"}
        self.assertEqual(len(wanted), 37)
        for depth in ("infinity", None):
            headers = {} if depth is None else {"Depth": depth}
            reply = self.server.request("PROPFIND", self.path("t"), None, headers)
            self.assertEqual(reply.status, 207)
            hrefs = [entry.href for entry in multistatus(reply.body)]
            self.assertEqual(len(hrefs), len(set(hrefs)))
            self.assertEqual(set(hrefs), wanted)
        for j in range(4):
            self.tree.write(f"t/more{j}", b"x")
        reply = self.server.request("PROPFIND", self.path("t"), None, {"Depth": "infinity"})
        self.assertEqual(reply.status, 403)
        self.assertEqual(davxml.condition(reply.body), ("propfind-finite-depth", []))

    def test_a_great_folder_is_complete_and_needs_no_memory(self):
        os.mkdir(self.tree / "many")
        for i in range(20_000):
            os.close(os.open(self.tree / f"many/{i:05}", os.O_CREAT | os.O_WRONLY))
        propfind(self.server, self.path("many"), 0)
        before = self.server.memory_peak()
        reply = self.server.request("PROPFIND", self.path("many"), named("getcontentlength"),
                                    {"Depth": "1"})
        self.assertEqual(len(davxml.document(reply.body, "multistatus")), 20_001)
        self.assertLess(self.server.memory_peak() - before, 24 << 20)


class Patching(Standard):
    def test_values_come_back_whole(self):
        self.tree.write("w.txt", b"1")
        values = {
            "attribute": '<a xmlns="urn:x" href="q&amp;r">text<!-- gone --></a>',
            "elements": '<x:e xmlns:x="urn:x"><y:f xmlns:y="urn:y" y:g="1"><h/></y:f> tail</x:e>',
            "plain": "<plain>p &lt;&#13;</plain>",
            "language": '<x:l xmlns:x="urn:x" xml:lang="de">ß</x:l>',
            "empty": '<x:none xmlns:x="urn:x"/>',
            "long": '<x:long xmlns:x="urn:x">' + "v" * 100_000 + "</x:long>",
        }
        told = self.patch(self.path("w.txt"), update(setting(*values.values())))
        self.assertEqual([status for _, status in told], [200] * len(values))
        entry = self.one(self.path("w.txt"), "X:a", "X:e", "X:l", "X:none", "X:long")
        self.assertEqual(entry.missing, {})
        for name in ("attribute", "elements", "language", "empty", "long"):
            sent = ElementTree.fromstring(values[name])
            self.assertEqual(ElementTree.tostring(entry.found[sent.tag]),
                             ElementTree.tostring(sent), name)
        plain = propfind(self.server, self.path("w.txt"), 0, ALLPROP).entries[0].found["plain"]
        self.assertEqual(plain.text, "p <\r")

    def test_changes_are_made_in_order_or_not_at_all(self):
        self.tree.write("o.txt", b"1")
        path = self.path("o.txt")
        scope = ' xmlns:X="urn:x"'
        self.patch(path, update(setting("<X:a>1</X:a>", "<X:b>1</X:b>") +
                                "<D:remove><D:prop><X:a/></D:prop></D:remove>" +
                                setting("<X:b>2</X:b>"), scope))
        entry = self.one(path, "X:a", "X:b")
        self.assertEqual((set(entry.missing), entry.found[X + "b"].text), ({X + "a"}, "2"))
        told = self.patch(path, update(setting("<X:b>3</X:b>", "<D:getetag>x</D:getetag>"), scope))
        self.assertEqual(dict(told), {D + "getetag": 403, X + "b": 424})
        self.assertEqual(self.one(path, "X:b").found[X + "b"].text, "2")

    def test_dates_and_attributes_are_set(self):
        self.tree.write("d.txt", b"1")
        path = self.path("d.txt")
        when = 1_234_567_890
        http = email.utils.formatdate(when, usegmt=True)
        scope = f' xmlns:Z="{WIN32}"'
        for property_ in (f"<D:getlastmodified>{http}</D:getlastmodified>",
                          f"<D:lastmodified>{when}</D:lastmodified>",
                          f"<Z:Win32LastModifiedTime>{http}</Z:Win32LastModifiedTime>"):
            os.utime(self.tree / "d.txt", (1, 1))
            told = self.patch(path, update(setting(property_), scope))
            self.assertEqual([status for _, status in told], [200])
            self.assertEqual(int(os.stat(self.tree / "d.txt").st_mtime), when, property_)
        told = self.patch(path, update(setting(
            f"<Z:Win32CreationTime>{http}</Z:Win32CreationTime>",
            f"<Z:Win32LastAccessTime>{http}</Z:Win32LastAccessTime>",
            f"<Z:Win32LastModifiedTime>{http}</Z:Win32LastModifiedTime>",
            "<Z:Win32FileAttributes>00000022</Z:Win32FileAttributes>"), scope))
        self.assertEqual([status for _, status in told], [200] * 4)
        reply = propfind(self.server, path, 0, ALLPROP).entries[0]
        self.assertEqual(reply.text("creationdate"), "2009-02-13T23:31:30Z")
        self.assertEqual(reply.found[Z + "Win32FileAttributes"].text, "00000022")
        self.assertEqual(reply.found[Z + "Win32LastAccessTime"].text, http)

    def test_properties_go_with_copies_and_moves(self):
        self.tree.write("p/a", b"1")
        scope = ' xmlns:X="urn:x"'
        self.patch(self.path("p", "a"), update(setting("<X:of>file</X:of>"), scope))
        self.patch(self.path("p") + "/", update(setting("<X:of>folder</X:of>"), scope))
        self.assertEqual(copy(self.server, self.path("p"), self.path("q")).status, 201)
        self.assertEqual(move(self.server, self.path("q"), self.path("r")).status, 201)
        entries = propfind(self.server, self.path("r"), 1, named("X:of")).entries
        self.assertEqual({entry.href: entry.found[X + "of"].text for entry in entries},
                         {"/Ferro/docs/r/": "folder", "/Ferro/docs/r/a": "file"})

    def test_malformed_updates_change_nothing(self):
        self.tree.write("m.txt", b"1")
        whole = update(setting('<X:a xmlns:X="urn:x">1</X:a>'))
        for body in (whole[:-40], b"", update(""), b'<propertyupdate/>'):
            reply = self.server.request("PROPPATCH", self.path("m.txt"), body)
            self.assertEqual(reply.status, 400, body)
        self.assertEqual(set(self.one(self.path("m.txt"), "X:a").missing), {X + "a"})
