# SPDX-License-Identifier: Apache-2.0
"""The files that the workloads read: made once, checked by content."""

import hashlib
import os
import shutil

SMALL = 1 << 10
MIDDLE = 1 << 20
LARGE = 1 << 30
COPIED = 256 << 20


def fill(path, size):
    """A file of bytes that repeat with no period that a block size could hide."""
    if os.path.exists(path) and os.path.getsize(path) == size:
        return path
    unit = b"".join(hashlib.sha512(b"%d" % i).digest() for i in range(16411))
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path + ".part", "wb") as out:
        left = size
        while left:
            left -= out.write(unit[:left])
    os.rename(path + ".part", path)
    return path


def form(path, source, name, boundary):
    """The body of a form with one file field, whose content is that of `source`."""
    head = (f'--{boundary}\r\nContent-Disposition: form-data; name="file"; '
            f'filename="{name}"\r\n\r\n').encode()
    tail = f"\r\n--{boundary}--\r\n".encode()
    size = len(head) + os.path.getsize(source) + len(tail)
    if os.path.exists(path) and os.path.getsize(path) == size:
        return path
    with open(path + ".part", "wb") as out, open(source, "rb") as content:
        out.write(head)
        shutil.copyfileobj(content, out, 1 << 20)
        out.write(tail)
    os.rename(path + ".part", path)
    return path


def folder(path, count):
    """A directory of that many small files with names of ordinary length."""
    os.makedirs(path, exist_ok=True)
    have = len(os.listdir(path))
    for i in range(have, count):
        with open(os.path.join(path, f"document {i:06d} report.txt"), "wb") as out:
            out.write(b"x" * (i % 50))
    return path


def nested(path, count):
    """A tree of that many files in folders of a hundred; returns the number of folders."""
    folders = (count + 99) // 100
    for i in range(folders):
        sub = os.path.join(path, f"part {i:04d}")
        os.makedirs(sub, exist_ok=True)
        for j in range(min(100, count - i * 100)):
            with open(os.path.join(sub, f"file {j:03d}.txt"), "wb") as out:
                out.write(b"content %d %d" % (i, j))
    return folders


def count_files(path):
    return sum(len(files) for _, _, files in os.walk(path))
