"""The group `vehicle`: what comes from the vehicle, from its bytes to its event on the dispatcher.

The vehicle is a process of its own that writes on bare sockets and notes when. The baseline is a
thread that blocks in a read, a pipe and a loop on `poll`, in the same process and in turn. At rest
three inputs are connected and nothing is due: no ping of the access layer falls into the window.
"""

import json
import os
import subprocess
import sys

BASELINE = "thread, pipe and poll"
LIMIT = 120


def measure(binaries, work):
    """The program's figures by item, each with its unit."""
    result = subprocess.run([str(binaries / "bench-vehicle"), work], stdout=subprocess.PIPE,
                            env={**os.environ, "ARA_LOG_LEVEL": "warn"}, text=True, timeout=LIMIT)
    if result.returncode != 0:
        sys.exit(f"bench-vehicle {work} ended with status {result.returncode}")
    figures = [json.loads(line) for line in result.stdout.splitlines()]
    return {figure["item"]: figure for figure in figures}


def row(item, unit, ours, value):
    return {"item": item, "unit": unit, "ours": ours, "baseline": BASELINE, "value": value}


def run(binaries):
    delivery = measure(binaries, "delivery")
    rows = [row(item, figure["unit"], figure["value"], delivery[f"{item}, bare"]["value"])
            for item, figure in delivery.items() if not item.endswith(", bare")]
    ours, bare = measure(binaries, "rest"), measure(binaries, "bare-rest")
    return rows + [row(item, figure["unit"], figure["value"], bare[item]["value"])
                   for item, figure in ours.items()]
