# SPDX-License-Identifier: Apache-2.0
"""Files of several GiB: every byte, in bounded memory."""

import os
import subprocess

from harness import ServerCase, current_case, curl, in_both_dialects

MIB = 1 << 20
SIZE = 3 << 30
CHUNK = MIB


def mark(index):
    """The first bytes of the chunk: chunks that change places are found out."""
    return b"chunk %010d of a large file" % index


def chunk(index):
    return mark(index).ljust(CHUNK, b"\0")


def write_sparse(path):
    with open(path, "wb") as out:
        out.truncate(SIZE)
        for i in range(SIZE // CHUNK):
            out.seek(i * CHUNK)
            out.write(mark(i))


class LargeCase(ServerCase):
    # The figures under test do not depend on it, and the disk of a test machine may be slow.
    settings = {"FileStore": {"Sync": "none"}}

    def check(self, stream):
        for i in range(SIZE // CHUNK):
            self.assertEqual(stream.read(CHUNK) == chunk(i), True, f"chunk {i} differs")
        self.assertEqual(stream.read(1), b"")


@in_both_dialects
class Download(LargeCase):
    def test_three_gib_down_within_64_mib(self):
        write_sparse(self.tree / "source.bin")
        with subprocess.Popen(["curl", "-sS", "-H", f"X-Test-Case: {current_case}",
                               self.docs("source.bin")], stdout=subprocess.PIPE) as client:
            self.check(client.stdout)
        self.assertEqual(client.returncode, 0)
        # The classic dialect reads positions into 31 bits.
        far = (1 << 31, SIZE - CHUNK) if self.dialect == "standard" else ()
        for first in ((1 << 31) - CHUNK, *far):
            reply = curl("-r", f"{first}-{first + 99}", self.docs("source.bin"))
            self.assertEqual(reply.out, chunk(first // CHUNK)[:100])
        self.assertLess(self.server.memory_peak(), 64 * MIB)


class Upload(LargeCase):
    def test_three_gib_up_within_64_mib(self):
        source = self.tree / "source.bin"
        write_sparse(source)
        reply = curl("-T", source, self.docs("large.bin"))
        self.assertEqual((reply.code, reply.status), (0, 201), reply)
        with open(self.tree / "large.bin", "rb") as stored:
            self.check(stored)
        self.assertLess(self.server.memory_peak(), 64 * MIB)


class Huge(LargeCase):
    def test_more_than_4_gib_down_whole_and_in_parts(self):
        size = (4 << 30) + CHUNK
        mark = b"the end"
        with open(self.tree / "huge.bin", "wb") as out:
            out.truncate(size - len(mark))
            out.seek(0, os.SEEK_END)
            out.write(mark)
        with subprocess.Popen(["curl", "-sS", "-H", f"X-Test-Case: {current_case}",
                               self.docs("huge.bin")], stdout=subprocess.PIPE) as client:
            count, last = 0, b""
            while part := client.stdout.read(CHUNK):
                count, last = count + len(part), part
        self.assertEqual((client.returncode, count), (0, size))
        self.assertTrue(last.endswith(mark))
        first = size - len(mark)
        for text in (f"{first}-{size - 1}", f"-{len(mark)}"):
            reply = curl("-r", text, self.docs("huge.bin"))
            self.assertEqual((reply.code, reply.status, reply.out), (0, 206, mark), text)
            self.assertEqual(reply.headers["content-range"], f"bytes {first}-{size - 1}/{size}")
        self.assertEqual(curl("-I", self.docs("huge.bin")).headers["content-length"], str(size))
        self.assertLess(self.server.memory_peak(), 64 * MIB)


class ClassicHuge(LargeCase):
    dialect = "classic"

    def test_what_is_too_long_for_it_is_seen_to_be_short(self):
        # Kept: of more than 4 GiB only the rest beyond them is sent, under the whole's length.
        size = (4 << 30) + CHUNK
        with open(self.tree / "huge.bin", "wb") as out:
            out.truncate(size)
        reply = curl(self.docs("huge.bin"))
        self.assertEqual((reply.code, reply.status, len(reply.out)), (18, 200, CHUNK))
        self.assertEqual(reply.headers["content-length"], str(size))
