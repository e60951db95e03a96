# SPDX-License-Identifier: Apache-2.0
"""Keeps what was measured: bench/history/COMMIT.json, with the machine and the versions beside it.

A file has "commit", "date", "machine" and a section for each of the benches that kept something:
"counts" as bench/counts.json has it, "peers" {row: {server: median in us}}.
"""

import json
import os
import platform
import re
import subprocess

HERE = os.path.dirname(os.path.abspath(__file__))
FOLDER = os.path.join(HERE, "history")
ASKED = {"nginx": ["nginx", "-v"], "apache": ["apache2", "-v"], "lighttpd": ["lighttpd", "-v"]}


def output(*command):
    """What a program says, of its errors too; empty when it is not there."""
    try:
        done = subprocess.run(command, capture_output=True, text=True, check=False, cwd=HERE,
                              env=dict(os.environ, PATH=os.environ["PATH"] + ":/usr/sbin"))
    except OSError:
        return ""
    return (done.stdout + done.stderr).strip()


def processor():
    with open("/proc/cpuinfo", encoding="utf-8", errors="replace") as info:
        found = re.search(r"^model name\s*:\s*(.*)$", info.read(), re.MULTILINE)
    return found[1] if found else platform.machine()


def machine():
    versions = {name: re.search(r"/([\d.]+)", output(*command))
                for name, command in ASKED.items()}
    return {"processor": processor(), "processors": os.cpu_count(),
            "kernel": platform.release(),
            "versions": {name: found[1] for name, found in versions.items() if found}}


def commit():
    """The commit at hand, with a mark when something was changed since."""
    dirty = output("git", "status", "--porcelain", "--untracked-files=no")
    return output("git", "rev-parse", "--short=10", "HEAD") + ("-changed" if dirty else "")


def keep(section, figures):
    """Puts a bench's figures into the file of this commit; says which one it is."""
    os.makedirs(FOLDER, exist_ok=True)
    path = os.path.join(FOLDER, commit() + ".json")
    kept = {}
    if os.path.exists(path):
        with open(path, encoding="utf-8") as file:
            kept = json.load(file)
    kept.update(commit=commit(), date=output("git", "show", "-s", "--format=%cI", "HEAD"),
                machine=machine())
    kept[section] = figures
    with open(path, "w", encoding="utf-8") as file:
        json.dump(kept, file, indent=1, sort_keys=True)
        file.write("\n")
    print(f"kept in {os.path.relpath(path)}")


def everything():
    """All that was kept, the oldest commit first."""
    kept = []
    for name in os.listdir(FOLDER) if os.path.isdir(FOLDER) else []:
        if name.endswith(".json"):
            with open(os.path.join(FOLDER, name), encoding="utf-8") as file:
                kept.append(json.load(file))
    return sorted(kept, key=lambda each: each["date"])
