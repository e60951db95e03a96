# SPDX-License-Identifier: Apache-2.0
"""What clients have stumbled over, one case each, where no other module of the standard dialect has
the case already. Every reply is read by the strict parser (davxml)."""

import gzip
import os
import shutil
import tempfile

from dav import ALLPROP, D, copy, lock_body, move, multistatus, named, propfind
from flows import FlowCase, wants_lock
from harness import SCRATCH, TestServer, Tree, curl, run

X = "{urn:x}"
PROPNAME = b'<?xml version="1.0"?><D:propfind xmlns:D="DAV:"><D:propname/></D:propfind>'


class Listings(FlowCase):
    def set(self, name, *properties):
        inner = "".join(properties)
        entry, = self.entries("PROPPATCH", name, (
            '<?xml version="1.0"?><D:propertyupdate xmlns:D="DAV:" xmlns:q="urn:x"><D:set><D:prop>'
            f"{inner}</D:prop></D:set></D:propertyupdate>").encode())
        self.assertEqual(entry.missing, {})

    def test_name_of_another_namespace_is_another_property(self):
        self.tree.write("foreign", b"1")
        body = (b'<?xml version="1.0"?><D:propfind xmlns:D="DAV:"><D:prop><D:displayname/>'
                b'<displayname xmlns="urn:x"/><getetag xmlns=""/></D:prop></D:propfind>')
        entry, = self.entries("PROPFIND", "foreign", body, Depth="0")
        self.assertEqual(set(entry.found), {D + "displayname"})
        self.assertEqual(set(entry.missing), {X + "displayname", "getetag"})

    def test_lists_of_all_properties_hold_dead_ones_well_formed(self):
        self.tree.write("dead/file", b"1")
        for name in ("dead", "dead/file"):
            self.set(name, f"<q:of>{name}</q:of>", '<p xmlns="urn:y:z">&lt;</p>', "<none/>")
        wanted = {X + "of", "{urn:y:z}p", "none"}
        for body in (None, ALLPROP, PROPNAME):
            for depth in ("0", "1"):
                for entry in self.entries("PROPFIND", "dead", body, Depth=depth):
                    self.assertTrue(wanted <= set(entry.found), entry.found)
                    if body != PROPNAME:
                        self.assertEqual(entry.found[X + "of"].text,
                                         entry.path[len("/Ferro/docs/"):].rstrip("/"))

    def test_removed_property_is_missing_not_left_out(self):
        self.tree.write("removed", b"1")
        self.set("removed", "<q:a>1</q:a>")
        self.entries("PROPPATCH", "removed", b'<?xml version="1.0"?><D:propertyupdate '
                     b'xmlns:D="DAV:"><D:remove><D:prop><a xmlns="urn:x"/></D:prop></D:remove>'
                     b"</D:propertyupdate>")
        entry, = propfind(self.server, self.path("removed"), 0, named("X:a", "getetag")).entries
        self.assertEqual((set(entry.missing), set(entry.found)), ({X + "a"}, {D + "getetag"}))

    def test_prefix_of_the_protocol_is_the_one_that_naive_clients_look_for(self):
        self.tree.write("naive", b"1")
        reply = self.ask("PROPFIND", "naive", ALLPROP, 207, Depth="0")
        self.assertIn(b"<D:href>", reply.body)  # duplicity compares it as text

    def test_options_allow_nothing_that_is_refused(self):
        self.tree.write("allowed", b"1")
        os.mkdir(self.tree / "allowed folder")
        for name in ("allowed", "allowed folder", "allowed nothing"):
            methods = self.ask("OPTIONS", name, None, 200).headers["allow"].split(", ")
            self.assertEqual(len(methods), len(set(methods)))
            self.assertFalse({"SEARCH", "TRACE"} & set(methods))
            for method in set(methods) - {"DELETE", "OPTIONS", "POST"}:
                with self.subTest(name=name, method=method):
                    # A condition that never holds: nothing is changed.
                    reply = self.ask(method, name, None, If="(<DAV:no-lock>)", Depth="0",
                                     Destination=self.docs("elsewhere"))
                    self.assertNotIn(reply.status, (405, 500, 501), reply)

    def test_what_lies_above_promises_what_lies_below(self):
        reply = self.server.request("OPTIONS", "/")
        self.assertEqual((reply.status, reply.headers["dav"], reply.headers["allow"]),
                         (200, "1, 2", "OPTIONS, GET, HEAD, PROPFIND"))

    def test_coded_bodies_are_refused_and_not_stored(self):
        self.tree.write("coded", b"plain")
        for method, body in (("PUT", gzip.compress(b"new")), ("PROPFIND", gzip.compress(ALLPROP))):
            reply = self.ask(method, "coded", body, 415, Content_Encoding="gzip", Depth="0")
            self.assertEqual(reply.headers["accept-encoding"], "identity")
        self.assertEqual(self.tree.read("coded"), b"plain")


class Contents(FlowCase):
    def test_tree_and_file_replace_each_other(self):
        self.tree.write("tree/in/deep", b"1")
        self.tree.write("file", b"2")
        for relocate in (copy, move):
            self.tree.write("target", b"old")
            reply = relocate(self.server, self.path("tree"), self.path("target"))
            self.assertEqual(reply.status, 204)
            self.assertEqual(self.tree.read("target/in/deep"), b"1")
            reply = relocate(self.server, self.path("file"), self.path("target"))
            self.assertEqual(reply.status, 204)
            self.assertEqual(self.tree.read("target"), b"2")
            os.remove(self.tree / "target")

    def test_name_with_an_escape_is_not_the_name_that_it_escapes(self):
        self.tree.write("x y", b"1")
        self.ask("HEAD", "x%20y", None, 404)
        self.ask("PUT", "x%20y", b"2", 201, If_None_Match="*")
        self.assertEqual((self.tree.read("x y"), self.tree.read("x%20y")), (b"1", b"2"))
        self.tree.write("s t/in", b"3")
        self.tree.write("source/in", b"4")
        reply = copy(self.server, self.path("source"), self.path("s%20t"), Overwrite="F")
        self.assertEqual(reply.status, 201)
        self.assertEqual((self.tree.read("s t/in"), self.tree.read("s%20t/in")), (b"3", b"4"))

    def test_no_name_is_kept_from_reading(self):
        for name in ("page.index_xml", "page.index_html", "~~~index_xml", ".index_xml"):
            self.tree.write(name, name.encode())
            self.assertEqual(self.ask("GET", name, None, 200).body, name.encode())

    def test_head_knows_the_dates_conditions(self):
        self.tree.write("dated", b"1")
        os.utime(self.tree / "dated", (1_700_000_000, 1_700_000_000))
        for method in ("GET", "HEAD"):
            self.ask(method, "dated", None, 304, If_Modified_Since="Tue, 14 Nov 2023 22:13:20 GMT")
            reply = self.ask(method, "dated", None, 200,
                             If_Modified_Since="Tue, 14 Nov 2023 22:13:19 GMT")
            self.assertEqual(reply.headers["cache-control"], "private, no-cache")


class LocksOfTrees(FlowCase):
    def test_lock_without_a_depth_holds_for_the_tree(self):
        self.tree.write("locked/in/deep", b"1")
        reply = self.ask("LOCK", "locked", wants_lock("me"), 200, Timeout="Second-600")
        lock, token = self.active_lock(reply), self.token_of(reply)
        self.assertEqual(lock.find(D + "depth").text, "infinity")
        for name in ("locked/in/deep", "locked/new", "locked/in/new"):
            self.ask("PUT", name, b"2", 423)
        for method, headers in (("DELETE", {}), ("MOVE", {"Destination": self.docs("away")})):
            self.ask(method, "locked/in/deep", None, 423, **headers)
        self.ask("MKCOL", "locked/folder", None, 423)
        self.ask("PUT", "locked/new", b"2", 201, If=f"<{self.docs('locked')}> (<{token}>)")
        self.unlock("locked", token)
        self.ask("PUT", "locked/in/deep", b"2", 204)

    def test_foreign_root_makes_no_lock(self):
        self.tree.write("rooted", b"1")
        for body in (b"<D:lockinfo", lock_body().replace(b"lockinfo", b"propfind"),
                     lock_body().replace(b"DAV:", b"urn:other")):
            self.ask("LOCK", "rooted", body, 400, Depth="0")
        self.ask("PUT", "rooted", b"2", 204)


class OldTls(FlowCase):
    def test_client_that_offers_only_http_1_0_by_alpn_is_served(self):
        keys = tempfile.mkdtemp(prefix="kest-keys-", dir=SCRATCH)
        self.addCleanup(shutil.rmtree, keys, ignore_errors=True)
        key, certificate = os.path.join(keys, "key.pem"), os.path.join(keys, "cert.pem")
        status, text = run("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                           "ec_paramgen_curve:P-256", "-nodes", "-days", "2", "-subj",
                           "/CN=127.0.0.1", "-keyout", key, "-out", certificate)
        self.assertEqual(status, 0, text)
        tree = Tree()
        self.addCleanup(tree.remove)
        tree.write("old", b"content")
        with TestServer({"docs": tree.path}, ("--dialect", "standard", "--tls-cert",
                                                   certificate, "--tls-key", key)) as server:
            reply = curl("-0", "-k", server.url("docs", "old"))
            self.assertEqual((reply.code, reply.status, reply.out), (0, 200, b"content"), reply)


class Names(FlowCase):
    def test_name_that_is_markup_does_not_become_some(self):
        name = "</D:displayname><D:getetag>x</D:getetag><a b='c'>&amp;.txt".replace("/", "%2f")
        self.tree.write("markup/" + name, b"1")
        _, entry = multistatus(self.ask("PROPFIND", "markup", None, 207, Depth="1").body)
        self.assertEqual(entry.text("displayname"), name)
        self.assertNotEqual(entry.text("getetag"), "x")
