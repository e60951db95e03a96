# SPDX-License-Identifier: Apache-2.0
"""Directory trees for the end-to-end tests, and what stands in them."""

import contextlib
import hashlib
import os
import shutil
import tempfile

# Where the test trees go. They need a file system on disk that can rename and hold sparse files.
SCRATCH = os.environ.get("KEST_TEST_DIR") or None

# Names that have broken servers: each becomes a file in the default tree.
HOSTILE_NAMES = [
    "plain.txt",
    "with space.txt",
    "100%.txt",
    "a%20b.txt",
    "semi;colon.txt",
    "hash#question?.txt",
    "amp&ersand.txt",
    "quote'and\"quote.txt",
    "less<greater>.txt",
    "plus+equals=.txt",
    "colon:at@.txt",
    "brackets[]{}().txt",
    "back\\slash.txt",
    "tilde~caret^pipe|.txt",
    "-leading-dash.txt",
    ".dotfile",
    "trailing.dot.",
    "ünïcödé.txt",
    "e\u0301 combining.txt",
    "emoji \U0001f600\U0001f469\u200d\U0001f680.txt",
    "שלום עולם.txt",
    "\u202eright-to-left override.txt",
    "日本語.txt",
    "x" * 255,
]


def pattern(size, seed=0):
    """Bytes that differ at every offset that matters, the same for the same size and seed."""
    block = hashlib.sha512(str(seed).encode()).digest()
    unit = b"".join(hashlib.sha512(block + bytes([i & 255, i >> 8])).digest() for i in range(1024))
    whole, rest = divmod(size, len(unit))
    return unit * whole + unit[:rest]


class Tree:
    """A fresh directory that goes away with all that is in it."""

    def __init__(self, base=None):
        self.path = tempfile.mkdtemp(prefix="kest-e2e-", dir=base or SCRATCH)

    def __truediv__(self, name):
        return os.path.join(self.path, name)

    def write(self, name, data=b""):
        path = self / name
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as out:
            out.write(data if isinstance(data, bytes) else data.encode())
        return path

    def read(self, name):
        with open(self / name, "rb") as file:
            return file.read()

    def fill_hostile(self):
        for name in HOSTILE_NAMES:
            self.write(name, name.encode())
        return self

    def leftovers(self):
        """Files of unfinished uploads that the file store still keeps below this tree."""
        found = []
        for folder, _, files in os.walk(self / ".kest/tmp"):
            # A running server keeps a lock file, by which others know that its files are in use.
            found += [os.path.join(folder, name) for name in files if not name.endswith(".lock")]
        return found

    def remove(self):
        # Cases may have taken permissions away.
        for folder, _, _ in os.walk(self.path):
            with contextlib.suppress(OSError):
                os.chmod(folder, 0o700)
        shutil.rmtree(self.path, ignore_errors=True)
