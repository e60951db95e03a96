# SPDX-License-Identifier: Apache-2.0
"""What a server used: processor time and memory of all of its processes, read from /proc."""

import os

TICK = os.sysconf("SC_CLK_TCK")


def family(root):
    """The process and all that descend from it."""
    children = {}
    for name in os.listdir("/proc"):
        if not name.isdigit():
            continue
        try:
            with open(f"/proc/{name}/stat", encoding="utf-8", errors="replace") as stat:
                fields = stat.read().rpartition(")")[2].split()
        except OSError:
            continue
        children.setdefault(int(fields[1]), []).append(int(name))
    found, todo = [], [root]
    while todo:
        pid = todo.pop()
        found.append(pid)
        todo += children.get(pid, [])
    return found


def cpu_seconds(root):
    """User and system time of the living, and of the children that they have waited for."""
    total = 0
    for pid in family(root):
        try:
            with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as stat:
                fields = stat.read().rpartition(")")[2].split()
        except OSError:
            continue
        # utime, stime, cutime, cstime
        total += sum(int(field) for field in fields[11:15])
    return total / TICK


def cpu_nanoseconds(root):
    """The same of the living alone, by thread and as exact as the scheduler counts it."""
    total = 0
    for pid in family(root):
        try:
            threads = os.listdir(f"/proc/{pid}/task")
        except OSError:
            continue
        for thread in threads:
            try:
                with open(f"/proc/{pid}/task/{thread}/schedstat", encoding="ascii") as stat:
                    total += int(stat.read().split()[0])
            except OSError:
                continue
    return total


def _status(pid, key):
    try:
        with open(f"/proc/{pid}/status", encoding="ascii", errors="replace") as status:
            for line in status:
                if line.startswith(key + ":"):
                    return int(line.split()[1]) * 1024
    except OSError:
        pass
    return 0


def reset_peak(root):
    for pid in family(root):
        try:
            with open(f"/proc/{pid}/clear_refs", "w", encoding="ascii") as clear:
                clear.write("5")
        except OSError:
            pass


def memory(root):
    """Resident bytes now, summed over the processes (pages that they share count for each)."""
    return sum(_status(pid, "VmRSS") for pid in family(root))


def peak(root):
    """The same at its highest since reset_peak, each process at its own highest."""
    return sum(_status(pid, "VmHWM") for pid in family(root))
