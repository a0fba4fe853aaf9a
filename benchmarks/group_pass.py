"""The group `pass`: real passes of the real service against the bare OpenSSL calls in them."""

import datetime
import json
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
import unit_day  # noqa: E402

PASSES = 7
# The machine waits as long between the answer and its validation.
FIXED_DELAY_MS = 3000
START = "VintrelClientFsm: Vintrel Client triggered by"
STORED = "VintrelClientFsm: The TIV Certificate and the Key were stored successfully"


def process_of(pid, name):
    """The descendant of a process that runs the program of this name."""
    for child in pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split():
        if pathlib.Path(f"/proc/{child}/comm").read_text().strip() == name:
            return int(child)
        found = process_of(child, name)
        if found:
            return found
    return None


def cpu_ms(pid):
    """CPU time of all threads, as the scheduler counts it."""
    total = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        total += int((task / "schedstat").read_text().split()[0])
    return total / 1e6


def peak_kib(pid):
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    return int(re.search(r"^VmHWM:\s*(\d+) kB", status, re.MULTILINE).group(1))


def stamp(line):
    """The moment at which a line of the log was written."""
    return datetime.datetime.fromisoformat(line.split("Z", 1)[0])


def spans_ms(log, start_text, end_text):
    """The time from each line with the one text to the next one with the other."""
    spans, start = [], None
    for line in log.splitlines():
        if start_text in line:
            start = stamp(line)
        elif end_text in line and start:
            spans.append((stamp(line) - start).total_seconds() * 1000)
            start = None
    return spans


def quiet_day(binaries, directory):
    day = unit_day.Day(binaries, pathlib.Path(directory).resolve(), 60)
    day.say = lambda text: None
    day.print_certificate = lambda: None
    day.seen_requests = 0
    return day


def live(day, between=lambda: None):
    """Enrols again and again; CPU time of a pass and peak memory of the service."""
    day.ignition_on()
    client = process_of(day.processes["vintrel-client"].pid, "vintrel-client")
    before = cpu_ms(client)
    for _ in range(PASSES):
        day.tls_alert()
        day.ignition_again()
        between()
    # Each alert's pass has a clamp pass without an update behind it.
    return (cpu_ms(client) - before) / PASSES, peak_kib(client)


def bare(binaries, directory):
    """The figures of the bare calls, on a store in memory and on one beside the unit's."""
    with tempfile.TemporaryDirectory(dir=directory) as store:
        result = subprocess.run([str(binaries / "bench-bare-pass"), "--directory", store],
                                capture_output=True, check=True, text=True)
    return json.loads(result.stdout)


def run(binaries):
    with tempfile.TemporaryDirectory(prefix="vintrel-bench-") as directory:
        day = quiet_day(binaries, directory)
        try:
            day.provision()
            day.start_simulators()
            cpu, peak = live(day)
            wall = statistics.median(
                span - FIXED_DELAY_MS
                for span in spans_ms(day.client_log.text(), START, STORED))
        finally:
            day.end_all()
        calls = bare(binaries, directory)
    baseline = "bare OpenSSL calls"
    return [
        {"item": "trigger to stored certificate", "unit": "ms", "ours": wall,
         "baseline": baseline, "value": calls["memory"]["wall_ms"]},
        {"item": "CPU time of update and check", "unit": "ms", "ours": cpu,
         "baseline": baseline, "value": calls["memory"]["cpu_ms"]},
        {"item": "peak memory of the service", "unit": "KiB", "ours": peak,
         "baseline": baseline, "value": calls["peak_kib"]},
    ]
