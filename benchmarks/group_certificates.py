"""The group `certificates`: each operation on keys and certificates against the bare calls in it."""

import json
import os
import subprocess
import sys
import tempfile

BASELINES = {"computes": "bare OpenSSL calls", "stores": "the same in a bare SQLite transaction"}
AIM = 1.3


def run(binaries):
    environment = {**os.environ, "ARA_LOG_LEVEL": "warn"}
    with tempfile.TemporaryDirectory(prefix="vintrel-bench-") as directory:
        result = subprocess.run(
            [str(binaries / "bench-certificates"), "--directory", directory],
            stdout=subprocess.PIPE, env=environment, text=True)
    if result.returncode != 0:
        sys.exit(f"bench-certificates ended with status {result.returncode}")
    figures = [json.loads(line) for line in result.stdout.splitlines() if line.startswith("{")]
    return [{"item": figure["item"], "unit": "us", "ours": figure["ours"],
             "baseline": BASELINES[figure["kind"]], "value": figure["bare"], "aim": AIM}
            for figure in figures]
