# SPDX-License-Identifier: Apache-2.0
"""Resumable uploads: beginning them, going on after a cut, and what is refused."""

import json
import os

from harness import head, in_parallel, pattern, wait_for
from uploads import PARTIAL, PROBLEM, UploadCase, Wire


class Creation(UploadCase):
    def test_interim_reply_tells_the_place_before_the_body_is_sent(self):
        content = pattern(300_000, 1)
        with Wire(self.server) as wire:
            wire.send("PUT", self.path("whole"), "Upload-Complete: ?1",
                      "Upload-Draft-Interop-Version: 8", f"Content-Length: {len(content)}")
            interim = wire.read()
            self.assertEqual(interim.status, 104)
            self.assertRegex(interim.headers["location"],
                             r"^/.+/docs/whole/\.kest/upload/[0-9a-f]{32}$")
            self.assertEqual(interim.headers["upload-draft-interop-version"], "8")
            self.assertIn("max-age=", interim.headers["upload-limit"])
            self.assertEqual(set(interim.headers),
                             {"location", "upload-draft-interop-version", "upload-limit"})
            wire.sock.sendall(content)
            final = wire.read()
        self.assertEqual(final.status, 201, final)
        self.assertEqual(final.headers["upload-complete"], "?1")
        self.assertNotIn("location", final.headers)
        self.assertEqual(final.headers["etag"],
                         self.ask("HEAD", self.path("whole")).headers["etag"])
        self.assertEqual(self.content("whole"), content)
        done = self.ask("HEAD", interim.headers["location"])
        self.assertEqual((done.status, done.headers["upload-complete"],
                          done.headers["upload-offset"], done.headers["upload-length"]),
                         (204, "?1", "300000", "300000"))

    def test_each_version_is_spoken(self):
        content = pattern(100_000, 2)
        for version in (3, 4, 5, 6, 7, 8, 9, None):
            with self.subTest(version=version), Wire(self.server) as wire:
                mark = "Upload-Incomplete: ?0" if version == 3 else "Upload-Complete: ?1"
                said = (f"Upload-Draft-Interop-Version: {version}",) if version else ()
                wire.send("PUT", self.path(f"v{version}"), mark, *said,
                          f"Content-Length: {len(content)}")
                interim = wire.read()
                self.assertEqual(interim.status, 104)
                self.assertEqual(interim.headers.get("upload-draft-interop-version"),
                                 str(version) if version else None)
                wire.sock.sendall(content)
                final = wire.read()
                self.assertEqual(final.status, 201)
                self.assertEqual("location" in final.headers, version in (3, 4, 5))
                self.assertEqual(final.headers.get("upload-incomplete"),
                                 "?0" if version == 3 else None)

    def test_version_that_is_not_known_is_a_put(self):
        content = pattern(100_000, 3)
        for version in (1, 2, 10):
            with Wire(self.server) as wire:
                wire.send("PUT", self.path(f"other{version}"), "Upload-Complete: ?1",
                          f"Upload-Draft-Interop-Version: {version}",
                          f"Content-Length: {len(content)}", body=content)
                self.assertEqual(wire.read().status, 201)
            self.assertEqual(self.content(f"other{version}"), content)

    def test_http_1_0_hears_no_interim_reply(self):
        content = b"x" * 100_000
        request = head("PUT", self.path("old"), self.server.port, "Upload-Complete: ?1",
                       f"Content-Length: {len(content)}").replace(b"HTTP/1.1", b"HTTP/1.0")
        reply = self.server.raw(request + content)
        self.assertTrue(reply.startswith(b"HTTP/1.1 201"), reply[:100])

    def test_what_is_not_marked_is_a_put(self):
        content = pattern(100_000, 4)
        before = self.pending()
        for mark in ("Upload-Complete: ?2", "Upload-Complete: 1", "Upload-Complete: true",
                     'Upload-Complete: "?1"', "Upload-Complete:", "Upload-Complete: ?1x"):
            with self.subTest(mark), Wire(self.server) as wire:
                wire.send("PUT", self.path("plain"), mark, f"Content-Length: {len(content)}",
                          body=content)
                self.assertIn(wire.read().status, (201, 204))
        self.assertEqual(self.pending(), before)

    def test_parts_make_the_whole(self):
        parts = [pattern(70_000, i) for i in range(4)]
        place = self.begin("parts", body=parts[0])
        self.assertFalse(os.path.exists(self.tree / "parts"))
        offset = len(parts[0])
        for part in parts[1:3]:
            added = self.append(place, offset, part)
            self.assertEqual((added.status, added.headers["upload-complete"]), (204, "?0"), added)
            offset += len(part)
            self.assertEqual(added.headers["upload-offset"], str(offset))
        last = self.append(place, offset, parts[3], complete=True)
        self.assertEqual((last.status, last.headers["upload-complete"]), (201, "?1"), last)
        self.assertEqual(self.content("parts"), b"".join(parts))

    def test_empty_creation_and_empty_end(self):
        content = pattern(50_000, 5)
        place = self.begin("careful", "Upload-Length: 50000")
        self.assertEqual(self.append(place, 0, content).status, 204)
        self.assertEqual(self.append(place, 50_000, b"", complete=True).status, 201)
        self.assertEqual(self.content("careful"), content)

    def test_empty_file(self):
        place = self.begin("empty")
        self.assertEqual(self.append(place, 0, b"", complete=True).status, 201)
        self.assertEqual(self.content("empty"), b"")

    def test_chunked_bodies(self):
        place = self.begin("chunked")
        chunks = b"5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n"
        with Wire(self.server) as wire:
            wire.send("PATCH", place, PARTIAL, "Upload-Offset: 0", "Upload-Complete: ?1",
                      "Transfer-Encoding: chunked", body=chunks)
            added = wire.read()
        self.assertEqual(added.status, 201, added)
        self.assertEqual(self.content("chunked"), b"hello world")

    def test_options_tell_of_it(self):
        known = self.ask("OPTIONS", self.path("new-name"))
        self.assertIn("application/partial-upload", known.headers["accept-patch"])
        self.assertIn("max-age=", known.headers["upload-limit"])
        place = self.begin("known")
        self.assertEqual(self.ask("OPTIONS", place).headers["allow"],
                         "OPTIONS, HEAD, PATCH, DELETE")

    def test_refused_as_a_put_is(self):
        self.tree.write("there", b"old")
        for path, lines, wanted in (("missing/a", (), 409), ("there/a", (), 409),
                                    ("there", ("If-None-Match: *",), 412),
                                    ("free", ("If-Match: *",), 412),
                                    ("there", ("If: (<bad",), 400),
                                    ("there", ("Content-Range: bytes 0-1/3",), 400)):
            with self.subTest(path, lines=lines):
                reply = self.ask("PUT", self.path(*path.split("/")), "Upload-Complete: ?0",
                                 "Content-Length: 0", *lines)
                self.assertEqual(reply.status, wanted, reply)
        self.assertEqual(self.content("there"), b"old")


class Resumption(UploadCase):
    def test_connection_cut_at_several_places(self):
        content = pattern(1_000_000, 6)
        for sent in (0, 1, 8191, 65_536, 65_537, 500_000, 999_999):
            with self.subTest(sent=sent):
                name = f"cut{sent}"
                place = self.broken(name, content, sent)
                offset = self.settled(place, sent)
                self.assertEqual(offset, sent)
                self.assertFalse(os.path.exists(self.tree / name))
                last = self.append(place, offset, content[offset:], complete=True)
                self.assertEqual(last.status, 201, last)
                self.assertEqual(self.content(name), content)

    def test_cut_again_and_again(self):
        content = pattern(400_000, 7)
        place = self.broken("again", content, 50_000)
        for end in (120_000, 200_001, 333_333):
            offset = self.offset(place)
            with Wire(self.server) as wire:
                wire.send("PATCH", place, PARTIAL, f"Upload-Offset: {offset}",
                          "Upload-Complete: ?1", f"Content-Length: {len(content) - offset}",
                          body=content[offset:end])
            self.settled(place, end)
        offset = self.offset(place)
        self.assertEqual(self.append(place, offset, content[offset:], complete=True).status, 201)
        self.assertEqual(self.content("again"), content)

    def test_who_asks_takes_it_from_who_still_sends(self):
        content = pattern(300_000, 8)
        with Wire(self.server) as stale:
            stale.send("PUT", self.path("stale"), "Upload-Complete: ?1",
                       f"Content-Length: {len(content)}", body=content[:100_000])
            place = stale.read().headers["location"]
            wait_for(lambda: len(self.stored(place)) >= 65_536, "a block")
            offset = self.offset(place)
            self.assertGreaterEqual(offset, 65_536)
            stale.sock.sendall(b"z" * 200_000)  # never counts
            self.assertEqual(stale.read().status, 409)
        self.assertEqual(self.offset(place), offset)
        self.assertEqual(self.append(place, offset, content[offset:], complete=True).status, 201)
        self.assertEqual(self.content("stale"), content)

    def test_of_many_that_append_at_once_one_does(self):
        place = self.begin("many", body=b"start")
        bodies = [bytes([65 + i]) * 200_000 for i in range(6)]
        replies = in_parallel(6, lambda i: self.append(place, 5, bodies[i]).status)
        self.assertEqual(replies.count(204), 1, replies)
        self.assertEqual(set(replies) - {204}, {409}, replies)
        winner = bodies[replies.index(204)]
        self.assertEqual(self.offset(place), 200_005)
        self.assertEqual(self.append(place, 200_005, b"", complete=True).status, 201)
        self.assertEqual(self.content("many"), b"start" + winner)

    def test_cancelling_ends_it(self):
        place = self.begin("cancelled", body=b"some")
        self.assertEqual(self.ask("DELETE", place).status, 204)
        for method in ("HEAD", "DELETE"):
            self.assertEqual(self.ask(method, place).status, 404)
        self.assertEqual(self.append(place, 4, b"more").status, 404)
        self.assertFalse([name for name in self.pending() if place.rsplit("/", 1)[1] in name])
        self.assertFalse(os.path.exists(self.tree / "cancelled"))

    def test_cancelling_leaves_what_is_there(self):
        self.tree.write("kept", b"old")
        place = self.begin("kept", body=b"new")
        self.assertEqual(self.ask("DELETE", place).status, 204)
        self.assertEqual(self.content("kept"), b"old")


class Refusals(UploadCase):
    def test_offset_that_does_not_match(self):
        place = self.begin("offset", body=b"12345")
        for offset in (0, 4, 6, 10 ** 14):
            reply = self.append(place, offset, b"x")
            self.assertEqual((reply.status, reply.headers["upload-offset"]), (409, "5"), reply)
            self.assertEqual(reply.headers["content-type"], "application/problem+json")
            problem = json.loads(reply.body)
            self.assertEqual((problem["type"], problem["expected-offset"],
                              problem["provided-offset"]),
                             (PROBLEM + "mismatching-upload-offset", 5, offset))
        self.assertEqual(self.offset(place), 5)

    def test_lengths_that_contradict_each_other(self):
        inconsistent = PROBLEM + "inconsistent-upload-length"
        reply = self.ask("PUT", self.path("long"), "Upload-Complete: ?1", "Upload-Length: 99",
                         "Content-Length: 70000")
        self.assertEqual((reply.status, json.loads(reply.body)["type"]), (400, inconsistent))
        place = self.begin("length", "Upload-Length: 10", body=b"12345")
        self.assertEqual(self.ask("HEAD", place).headers["upload-length"], "10")
        for body, lines, complete in ((b"123456", (), False), (b"1234", (), True),
                                      (b"1", ("Upload-Length: 11",), False)):
            reply = self.append(place, 5, body, *lines, complete=complete)
            self.assertTrue(reply.body, (reply, body))
            self.assertEqual((reply.status, json.loads(reply.body)["type"]), (400, inconsistent))
        self.assertEqual(self.append(place, 5, b"67890", complete=True).status, 201)
        self.assertEqual(self.content("length"), b"1234567890")

    def test_chunks_beyond_the_length_end_the_upload(self):
        place = self.begin("beyond", "Upload-Length: 10", body=b"12345")
        with Wire(self.server) as wire:
            wire.send("PATCH", place, PARTIAL, "Upload-Offset: 5", "Upload-Complete: ?0",
                      "Transfer-Encoding: chunked", body=b"8\r\n12345678\r\n0\r\n\r\n")
            self.assertEqual(wire.read().status, 400)
        self.assertEqual(self.ask("HEAD", place).status, 404)

    def test_malformed_requests(self):
        place = self.begin("malformed", body=b"12345")
        for lines, wanted in (((PARTIAL, "Upload-Offset: 5"), 400),
                              ((PARTIAL, "Upload-Complete: ?0"), 400),
                              ((PARTIAL, "Upload-Complete: ?0", "Upload-Offset: -1"), 400),
                              ((PARTIAL, "Upload-Complete: yes", "Upload-Offset: 5"), 400),
                              (("Upload-Complete: ?0", "Upload-Offset: 5"), 415),
                              (("Content-Type: text/plain", "Upload-Complete: ?0",
                                "Upload-Offset: 5"), 415)):
            with self.subTest(lines=lines):
                self.assertEqual(self.ask("PATCH", place, *lines, body=b"x").status, wanted)
        self.assertEqual(self.offset(place), 5)

    def test_names_that_are_none(self):
        place = self.begin("named", body=b"x")
        name = place.rsplit("/", 1)[1]
        other = self.path("other") + "/.kest/upload/" + name
        wrong = place[:-1] + ("0" if place[-1] != "0" else "1")
        for bad in (other, wrong, place + "x", place[:-1]):
            for method in ("HEAD", "DELETE"):
                self.assertEqual(self.ask(method, bad).status, 404, bad)
            self.assertEqual(self.append(bad, 1, b"y").status, 404, bad)
        self.assertIn(self.ask("GET", place).status, (404, 405))
        self.assertIn(self.ask("PROPFIND", place, "Depth: 0").status, (404, 405))
        self.assertEqual(self.ask("PUT", place, body=b"y").status, 400)
        self.assertEqual(self.offset(place), 1)

    def test_complete_one_takes_no_more(self):
        place = self.begin("done", body=b"12345")
        self.assertEqual(self.append(place, 5, b"", complete=True).status, 201)
        reply = self.append(place, 5, b"more")
        self.assertEqual((reply.status, json.loads(reply.body)["type"]),
                         (400, PROBLEM + "inconsistent-upload-length"))
        reply = self.append(place, 5, b"", complete=True)
        self.assertEqual((reply.status, json.loads(reply.body)["type"]),
                         (410, PROBLEM + "completed-upload"))
        self.assertEqual(self.content("done"), b"12345")
        self.assertEqual(self.ask("DELETE", place).status, 204)
        self.assertEqual(self.content("done"), b"12345")
        self.assertEqual(self.ask("HEAD", place).status, 404)

    def test_complete_one_is_forgotten_with_its_content(self):
        place = self.begin("gone", body=b"12345")
        self.assertEqual(self.append(place, 5, b"", complete=True).status, 201)
        self.assertEqual(self.ask("HEAD", place).headers["upload-complete"], "?1")
        self.assertEqual(self.ask("PUT", self.path("gone"), body=b"other").status, 204)
        self.assertEqual(self.ask("HEAD", place).status, 404)
