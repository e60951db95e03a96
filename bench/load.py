# SPDX-License-Identifier: Apache-2.0
"""The load client: compiled when it changed, and run against a server with a scenario."""

import json
import os
import subprocess

import servers
import workloads

HERE = os.path.dirname(os.path.abspath(__file__))
CLIENT = os.path.join(servers.ROOT, "build", "bench", "kestload")


def build():
    """The load client has no part in the product's build: it is compiled here when it changed."""
    folder = os.path.join(HERE, "client")
    sources = [os.path.join(folder, name) for name in sorted(os.listdir(folder))]
    newest = max(os.path.getmtime(path) for path in sources)
    if os.path.exists(CLIENT) and os.path.getmtime(CLIENT) >= newest:
        return
    os.makedirs(os.path.dirname(CLIENT), exist_ok=True)
    subprocess.run(["g++", "-std=c++20", "-O2", "-Wall", "-Wextra", "-o", CLIENT,
                    *[path for path in sources if path.endswith(".cpp")]], check=True)


def processors():
    """Those of the servers, and that of the client."""
    mine = sorted(os.sched_getaffinity(0))
    return (mine[:-1], mine[-1:]) if len(mine) > 1 else (mine, mine)


def drive(server, scenario, client_cpus, scratch):
    path = os.path.join(scratch, "scenario")
    with open(path, "w", encoding="utf-8") as out:
        out.write("\n".join(scenario) + "\n")
    done = subprocess.run(["taskset", "-c", ",".join(map(str, client_cpus)), CLIENT, "127.0.0.1",
                           str(server.port), path], capture_output=True, text=True, check=False)
    if not done.stdout:
        raise workloads.Wrong(f"the load client failed: {done.stderr.strip()}")
    return json.loads(done.stdout)
