"""The group `framework`: the same work on the framework, bare system calls, libuv and Boost.Asio."""

import json
import os
import subprocess
import sys

BASELINES = {"bare": "bare system calls", "libuv": "libuv", "asio": "Boost.Asio",
             "level test": "the level test alone", "atomic test": "one atomic load"}
# The highest ratio that is good enough.
AIMS = {
    ("self-post", "bare"): 1.2,
    ("drain", "bare"): 1.3,
    ("timers", "bare"): 1.2,
    ("timers", "libuv"): 1.0,
    ("timers", "asio"): 1.0,
    ("async", "bare"): 1.2,
    ("async ping-pong", "bare"): 1.2,
    ("stream, reads of 1024", "bare"): 1.15,
    ("stream, reads of 4096", "bare"): 1.15,
}


def measure(binaries):
    """The figures of each item by contender; ends with the program's own message if work was not
    done as the item asks."""
    environment = {name: value for name, value in os.environ.items() if name != "ARA_LOG_LEVEL"}
    result = subprocess.run([str(binaries / "bench-framework")], stdout=subprocess.PIPE,
                            env=environment, text=True)
    if result.returncode != 0:
        sys.exit(f"bench-framework ended with status {result.returncode}")
    figures = {}
    for line in result.stdout.splitlines():
        figure = json.loads(line)
        item = figures.setdefault(figure["item"], {"unit": figure["unit"], "by": {}})
        item["by"][figure["contender"]] = figure["median"]
    return figures


def run(binaries):
    rows = []
    for item, figure in measure(binaries).items():
        for contender, baseline in BASELINES.items():
            if contender not in figure["by"]:
                continue
            row = {"item": item, "unit": figure["unit"], "ours": figure["by"]["ours"],
                   "baseline": baseline, "value": figure["by"][contender]}
            aim = AIMS.get((item, contender))
            rows.append({**row, "aim": aim} if aim else row)
    return rows
