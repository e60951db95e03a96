# SPDX-License-Identifier: Apache-2.0
"""LOCK, UNLOCK and the If header in the standard dialect."""

import xml.etree.ElementTree as ElementTree

import davxml
from dav import D, lock_body, named, propfind
from harness import ServerCase


class Locks(ServerCase):
    options = ("--dialect", "standard")

    def lock(self, path, depth="0", scope="exclusive", owner="<D:href>http://me/</D:href>",
             headers=None):
        """The reply, with the lock that it describes."""
        reply = self.server.request("LOCK", path, lock_body(owner, scope),
                                    {"Depth": depth, "Timeout": "Second-600", **(headers or {})})
        if reply.status in (200, 201):
            reply.active, = davxml.active_locks(reply.body)
            reply.token = reply.active.find(f"{D}locktoken/{D}href").text
            self.assertEqual(reply.headers["lock-token"], f"<{reply.token}>")
        return reply

    def put(self, path, token=None):
        headers = {"If": f"(<{token}>)"} if token else {}
        return self.server.request("PUT", path, b"new", headers).status

    def unlock(self, path, token):
        return self.server.request("UNLOCK", path, None, {"Lock-Token": f"<{token}>"}).status

    def test_lock_describes_itself(self):
        self.tree.write("l.txt", b"1")
        reply = self.lock(self.path("l.txt"))
        self.assertEqual(reply.status, 200)
        self.assertRegex(reply.active.find(D + "timeout").text, r"^Second-(600|59\d)$")
        self.assertEqual(reply.active.find(D + "depth").text, "0")
        self.assertEqual(reply.active.find(f"{D}owner/{D}href").text, "http://me/")
        self.assertEqual(reply.active.find(f"{D}lockroot/{D}href").text, "/Ferro/docs/l.txt")
        entry, = propfind(self.server, self.path("l.txt"), 0, named("lockdiscovery")).entries
        self.assertEqual(entry.found[D + "lockdiscovery"][0].find(f"{D}locktoken/{D}href").text,
                         reply.token)
        self.assertEqual(self.put(self.path("l.txt")), 423)
        self.assertEqual(self.put(self.path("l.txt"), reply.token), 204)
        self.assertEqual(self.unlock(self.path("l.txt"), "opaquelocktoken:0"), 409)
        self.assertEqual(self.unlock(self.path("l.txt"), reply.token), 204)
        self.assertEqual(self.put(self.path("l.txt")), 204)

    def test_new_name_becomes_an_empty_file(self):
        reply = self.lock(self.path("new.txt"))
        self.assertEqual(reply.status, 201)
        self.assertEqual(self.tree.read("new.txt"), b"")
        # davfs2 takes the tag for its next "If-Match", and knows no weak ones.
        tag = reply.headers["etag"]
        self.assertFalse(tag.startswith("W/"), tag)
        put = self.server.request("PUT", self.path("new.txt"), b"text",
                                  {"If": f"<{self.docs('new.txt')}> (<{reply.token}> [{tag}])",
                                   "If-Match": tag})
        self.assertEqual(put.status, 204)
        self.assertEqual(self.tree.read("new.txt"), b"text")
        self.assertEqual(self.unlock(self.path("new.txt"), reply.token), 204)
        self.assertEqual(self.lock(self.path("no", "parent")).status, 409)

    def test_collection_is_locked_with_all_members(self):
        self.tree.write("c/in", b"1")
        reply = self.lock(self.path("c"), "infinity")
        self.assertEqual(reply.status, 200)
        self.assertEqual(reply.active.find(f"{D}lockroot/{D}href").text, "/Ferro/docs/c/")
        for name in ("in", "later"):
            self.assertEqual(self.put(self.path("c", name)), 423, name)
        self.assertEqual(self.put(self.path("c", "later"), reply.token), 201)
        self.assertEqual(self.put(self.path("c", "later")), 423)
        entries = propfind(self.server, self.path("c"), 1, named("lockdiscovery")).entries
        self.assertEqual(len(entries), 3)
        for entry in entries:
            self.assertEqual(entry.found[D + "lockdiscovery"][0].find(f"{D}lockroot/{D}href").text,
                             "/Ferro/docs/c/")
        refused = self.lock(self.path("c", "in"))
        self.assertEqual((refused.status, davxml.condition(refused.body)),
                         (423, ("no-conflicting-lock", ["/Ferro/docs/c/"])))
        self.assertNotIn(reply.token.encode(), refused.body)
        refreshed = self.server.request("LOCK", self.path("c", "in"), None,
                                        {"If": f"(<{reply.token}>)", "Timeout": "Second-900"})
        self.assertEqual(refreshed.status, 200)
        active, = davxml.active_locks(refreshed.body)
        self.assertRegex(active.find(D + "timeout").text, r"^Second-(900|89\d)$")
        self.assertEqual(self.unlock(self.path("c", "in"), reply.token), 204)
        self.assertEqual(self.put(self.path("c", "in")), 204)

    def test_member_that_is_locked_refuses_the_collection(self):
        self.tree.write("m/in", b"1")
        held = self.lock(self.path("m", "in"))
        refused = self.lock(self.path("m"), "infinity")
        self.assertEqual(refused.status, 207)
        root = davxml.document(refused.body, "multistatus")
        told = {response.find(D + "href").text: response.find(D + "status").text.split()[1]
                for response in root.findall(D + "response")}
        self.assertEqual(told, {"/Ferro/docs/m/in": "423", "/Ferro/docs/m/": "424"})
        self.assertEqual(self.unlock(self.path("m", "in"), held.token), 204)

    def test_unlock_takes_a_token_as_it_stands_in_the_body(self):
        self.tree.write("bare.txt", b"1")
        token = self.lock(self.path("bare.txt")).token
        for header, wanted in ((token + ">", 400), (token + " x", 400), (token, 204), (token, 409)):
            reply = self.server.request("UNLOCK", self.path("bare.txt"), None,
                                        {"Lock-Token": header})
            self.assertEqual(reply.status, wanted, header)

    def test_shared_locks_stand_beside_each_other(self):
        self.tree.write("s.txt", b"1")
        tokens = [self.lock(self.path("s.txt"), scope="shared").token for _ in range(2)]
        self.assertEqual(self.lock(self.path("s.txt")).status, 423)
        entry, = propfind(self.server, self.path("s.txt"), 0, named("lockdiscovery")).entries
        self.assertEqual(len(entry.found[D + "lockdiscovery"]), 2)
        for token in tokens:
            self.assertEqual(self.unlock(self.path("s.txt"), token), 204)

    def test_owner_comes_back_as_it_was_sent(self):
        self.tree.write("o.txt", b"1")
        owner = '<x:who xmlns:x="urn:x" y="&lt;">A &amp; B</x:who> tail'
        reply = self.lock(self.path("o.txt"), owner=owner)
        sent = ElementTree.fromstring(f"<o>{owner}</o>")
        for body in (reply.body,
                     propfind(self.server, self.path("o.txt"), 0, named("lockdiscovery")).body):
            got = davxml.parsed(body).find(f".//{D}owner")
            self.assertEqual([ElementTree.tostring(each) for each in got],
                             [ElementTree.tostring(each) for each in sent])
        self.assertEqual(self.unlock(self.path("o.txt"), reply.token), 204)

    def test_if_header_is_judged_on_every_method(self):
        self.tree.write("i.txt", b"1")
        path = self.path("i.txt")
        tag = self.server.request("HEAD", path).headers["etag"]
        for method in ("GET", "PROPFIND"):
            for header, status in ((f"([{tag}])", True), ('(["no"])', False),
                                   (f'(Not ["no"] [{tag}])', True),
                                   (f"<{self.docs('gone')}> ([{tag}])", False),
                                   ("(<DAV:no-lock>)", False), ("(Not <DAV:no-lock>)", True)):
                reply = self.server.request(method, path, None, {"If": header, "Depth": "0"})
                if tag.startswith("W/") and tag in header:
                    continue  # a weak tag is equal to nothing here
                self.assertEqual(reply.status == 412, not status, (method, header, reply))
            self.assertEqual(self.server.request(method, path, None, {"If": "(", "Depth": "0"})
                             .status, 400)

    def test_malformed_locks_are_refused(self):
        self.tree.write("b.txt", b"1")
        whole = lock_body()
        for body in (whole[:-20], b"<D:lockinfo", whole.replace(b"<D:write/>", b"<D:read/>")):
            reply = self.server.request("LOCK", self.path("b.txt"), body, {"Depth": "0"})
            self.assertEqual(reply.status, 400, body)
        self.assertEqual(self.put(self.path("b.txt")), 204)
        self.assertEqual(self.server.request("UNLOCK", self.path("b.txt")).status, 400)
