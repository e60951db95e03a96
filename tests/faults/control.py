# SPDX-License-Identifier: Apache-2.0
"""The driver's side of the preloaded library: which call of the server is to fail, and how.

The layout is that of struct Control in failing_calls.h.
"""

import contextlib
import functools
import mmap
import os
import re
import struct
import subprocess

MAGIC = 0x46434C31
MOST_CALLS = 64
NAME_ROOM = 24
MOST_FRAMES = 24
AT_ARMED, AT_NTH, AT_MASK, AT_SEEN, AT_HITS, AT_FRAMES = 8, 12, 24, 32, 36, 40
AT_ADDRESSES = 48
AT_COUNTS = AT_ADDRESSES + 8 * MOST_FRAMES
AT_NAMES = AT_COUNTS + 4 * MOST_CALLS
SIZE = AT_NAMES + NAME_ROOM * MOST_CALLS

ONCE, FROM_THEN, SHORT, SHORT_FROM, STUCK = range(5)


def library():
    """Where the preloaded library is: ./test builds it beside the release, whoever works on it in the
    development build. The newer one; it serves every kestd, those with sanitizers too."""
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    places = [os.path.join(root, "build", build, "lib", "libfailing_calls.so")
              for build in ("release", "dev")]
    return max(filter(os.path.exists, places), key=os.path.getmtime, default=places[0])


class Control:
    """One file that a server and this process map. Only one request may run while it is armed."""

    def __init__(self, path):
        self.path = path
        with open(path, "wb") as file:
            file.truncate(SIZE)
        with open(path, "r+b") as file:
            self.memory = mmap.mmap(file.fileno(), SIZE)

    def close(self):
        self.memory.close()
        os.unlink(self.path)

    def names(self):
        """The kinds of calls that the loaded library knows, in the order of their bits."""
        magic, calls = struct.unpack_from("<II", self.memory, 0)
        if magic != MAGIC:
            raise RuntimeError("the server has not loaded the library of failing calls")
        return [self.memory[AT_NAMES + NAME_ROOM * i:AT_NAMES + NAME_ROOM * (i + 1)]
                .rstrip(b"\0").decode() for i in range(calls)]

    @contextlib.contextmanager
    def armed(self, mask=0, nth=0, mode=ONCE, error=0):
        """The nth call of the kinds in `mask` fails, is cut short or stuck; nth 0 only counts."""
        self.memory[AT_SEEN:AT_NAMES] = bytes(AT_NAMES - AT_SEEN)
        struct.pack_into("<IIi", self.memory, AT_NTH, nth, mode, error)
        struct.pack_into("<Q", self.memory, AT_MASK, mask)
        struct.pack_into("<I", self.memory, AT_ARMED, 1)
        try:
            yield self
        finally:
            self.disarm()

    def disarm(self):
        struct.pack_into("<I", self.memory, AT_ARMED, 0)

    def seen(self):
        return struct.unpack_from("<I", self.memory, AT_SEEN)[0]

    def hits(self):
        return struct.unpack_from("<I", self.memory, AT_HITS)[0]

    def counts(self):
        """How often each kind was called, by its bit."""
        return struct.unpack_from(f"<{MOST_CALLS}I", self.memory, AT_COUNTS)

    def frames(self):
        """The return addresses at the first hit, innermost first."""
        count = min(struct.unpack_from("<I", self.memory, AT_FRAMES)[0], MOST_FRAMES)
        return struct.unpack_from(f"<{count}Q", self.memory, AT_ADDRESSES)


class Symbols:
    """Turns return addresses of a running process into functions and lines."""

    def __init__(self, pid):
        self.maps = []
        with open(f"/proc/{pid}/maps", encoding="utf-8") as maps:
            for line in maps:
                fields = line.split(None, 5)
                if len(fields) == 6 and fields[5].startswith("/"):
                    low, high = (int(part, 16) for part in fields[0].split("-"))
                    self.maps.append((low, high, int(fields[2], 16), fields[5].strip()))

    def place(self, address):
        """(library, offset in it), or None."""
        for low, high, offset, path in self.maps:
            if low <= address < high:
                return path, address - low + offset
        return None

    def places(self, addresses):
        return tuple(filter(None, map(self.place, addresses)))


@functools.lru_cache(maxsize=None)
def function_at(path, offset):
    """The bare name of the function, or an empty text."""
    out = subprocess.run(["addr2line", "-Cfse", path, hex(offset - 1)], capture_output=True,
                         text=True, check=False).stdout.split("\n")[0]
    name = re.sub(r"<[^<>]*>|\(.*", "", re.sub(r"\(anonymous namespace\)", "", out))
    return name.split("::")[-1].strip(" <>?")


def describe(places, root, most=5):
    """Function names of the project's own frames, innermost first."""
    found = []
    for path, offset in places:
        if not path.startswith(root) or "failing_calls" in path:
            continue
        name = function_at(path, offset)
        if name and (not found or found[-1] != name):
            found.append(name)
        if len(found) == most:
            break
    return " < ".join(found)
