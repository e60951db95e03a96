# SPDX-License-Identifier: Apache-2.0
"""Runs the modules of the end-to-end tests beside each other, each in a process of its own."""

import concurrent.futures
import os
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

HERE = os.path.dirname(os.path.abspath(__file__))


def rows_of(report):
    """The rows of a JUnit report: (name, seconds, failed). None without a whole one."""
    try:
        return [(case.get("name"), float(case.get("time")), case.find("failure") is not None)
                for case in ElementTree.parse(report).getroot().iter("testcase")]
    except (OSError, ElementTree.ParseError):
        return None


def run_group(modules, options):
    """Runs some modules, one after the other: (what they printed, their rows)."""
    with tempfile.TemporaryDirectory(prefix="kest-e2e-") as place:
        report = os.path.join(place, "report.xml")
        child = subprocess.run(
            [sys.executable, os.path.join(HERE, "run.py"), "--junit", report, *options, *modules],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        rows = rows_of(report)
    if rows is None or (child.returncode != 0 and not any(failed for _, _, failed in rows)):
        # It ended before it could say what failed.
        rows = [*(rows or []), (" ".join(modules), 0.0, True)]
    return child.stdout.decode("utf-8", "replace"), rows


def run(groups, jobs, options):
    """Runs `jobs` groups of modules at a time, in their order, and prints what each printed, those in
    which something failed last. The rows of all."""
    everything, failures = [], []
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        runs = [pool.submit(run_group, modules, options) for modules in groups]
        for finished in concurrent.futures.as_completed(runs):
            text, rows = finished.result()
            everything += rows
            if any(failed for _, _, failed in rows):
                failures.append(text)
            else:
                print(text, flush=True)
    for text in failures:
        print(text, flush=True)
    return everything
