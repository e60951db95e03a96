# SPDX-License-Identifier: Apache-2.0
"""Writes the results of a run as JUnit's report, which ./test adds up."""

from xml.sax.saxutils import quoteattr


def write(path, suite, rows):
    """rows: (name, seconds, failed)."""
    bad = sum(1 for _, _, failed in rows if failed)
    with open(path, "w", encoding="utf-8") as out:
        out.write('<?xml version="1.0" encoding="UTF-8"?>\n')
        out.write(f'<testsuite name={quoteattr(suite)} tests="{len(rows)}" failures="{bad}">\n')
        for name, took, failed in rows:
            mark = "><failure/></testcase>" if failed else "/>"
            out.write(f'<testcase name={quoteattr(name)} time="{took:.3f}"{mark}\n')
        out.write("</testsuite>\n")
