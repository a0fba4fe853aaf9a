"""The group `process`: the service at its start, at rest and at its end, beside a bare program.

The bare program links the same libraries and does nothing. At rest means: with everything that the
vehicle offers connected, waiting for a trigger. Where there is a limit of its own for a figure, a
second row has it.
"""

import os
import pathlib
import re
import select
import signal
import statistics
import subprocess
import sys
import tempfile
import time

import group_pass
from group_pass import unit_day

ROUNDS = 15
IDLE_S = 30
MINUTE_S = 60
BARE = "bare program with the same libraries"
LIMIT = "limit"
START_LIMIT_MS = 30
PSS_LIMIT_KIB = 12 * 1024
END_LIMIT_MS = 200
CONFIG = unit_day.PROJECT / "packaging" / "vintrel-client-phm.ini"


def row(item, unit, ours, value, baseline=BARE):
    limit = {"aim": 1.0} if baseline == LIMIT else {}
    return {"item": item, "unit": unit, "ours": ours, "baseline": baseline, "value": value, **limit}


def start_and_end(program, line):
    """The times in ms from the start of a program to its line, and from SIGTERM to its end."""
    starts, ends = [], []
    for _ in range(ROUNDS):
        begin = time.monotonic()
        with subprocess.Popen([program], stderr=subprocess.PIPE) as process:
            while line not in process.stderr.readline():
                pass
            starts.append(time.monotonic() - begin)
            begin = time.monotonic()
            process.send_signal(signal.SIGTERM)
            process.stderr.read()
            process.wait()
            ends.append(time.monotonic() - begin)
    return [statistics.median(times) * 1000 for times in (starts, ends)]


def measured_in_unit(day, program, line):
    """The same, measured inside the unit."""
    said = day.run(*day.in_unit(sys.executable, __file__, day.binaries / program, line))
    return [float(number) for number in said.split()]


def needed(program):
    said = subprocess.run(["readelf", "--dynamic", program], capture_output=True, check=True,
                          text=True).stdout
    return set(re.findall(r"\(NEEDED\).*\[(.*)\]", said))


def stripped_kib(program, directory):
    stripped = directory / "stripped"
    subprocess.run(["strip", "-o", stripped, program], check=True)
    return stripped.stat().st_size / 1024


def loaded_kib(pid):
    """The size of all files that a process has mapped to be executed, itself left out."""
    own = os.readlink(f"/proc/{pid}/exe")
    maps = pathlib.Path(f"/proc/{pid}/maps").read_text().splitlines()
    files = {line.split()[-1] for line in maps if " r-xp " in line and "/" in line}
    return sum(os.stat(name).st_size for name in files if name != own) / 1024


def memory_kib(pid):
    rollup = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    return [int(re.search(rf"^{name}:\s*(\d+) kB", rollup, re.MULTILINE).group(1))
            for name in ("Rss", "Pss")]


def wake_ups(pid):
    """How often its own threads have run, and those of the platform's libraries.

    Its other threads wait for what at rest does not come: a signal, an alert.
    """
    own = libraries = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        numbers = re.findall(r"ctxt_switches:\s*(\d+)", (task / "status").read_text())
        if task.name == str(pid) or (task / "comm").read_text() == "keepAlive\n":
            own += sum(map(int, numbers))
        else:
            libraries += sum(map(int, numbers))
    return own, libraries


def idle_minute(pid):
    """Of an idle minute, from a part of one: wake-ups as above, CPU time in ms."""
    before = None
    while not before or before[0] != wake_ups(pid)[0]:
        # What the start has set off may not be over yet.
        before = wake_ups(pid)
        time.sleep(1)
    before = wake_ups(pid)
    cpu = group_pass.cpu_ms(pid)
    time.sleep(IDLE_S)
    scale = MINUTE_S / IDLE_S
    return [(after - count) * scale for after, count in zip(
        (*wake_ups(pid), group_pass.cpu_ms(pid)), (*before, cpu))]


def at_rest(pid):
    rss, pss = memory_kib(pid)
    threads = len(list(pathlib.Path(f"/proc/{pid}/task").iterdir()))
    return {"RSS": rss, "PSS": pss, "threads": threads, "loaded": loaded_kib(pid)}


def client_pid(day):
    return group_pass.process_of(day.processes["vintrel-client"].pid, "vintrel-client")


def end_ms(day):
    """From SIGTERM to the end of the process."""
    pid = client_pid(day)
    descriptor = os.pidfd_open(pid)
    begin = time.monotonic()
    os.kill(pid, signal.SIGTERM)
    select.select([descriptor], [], [])
    took = (time.monotonic() - begin) * 1000
    os.close(descriptor)
    status = day.processes.pop("vintrel-client").wait(day.limit)
    if status != 0:
        raise unit_day.Failure(f"the service ended with status {status}")
    return took


def ends(day):
    """The time to the end from a pass's states in which the service waits."""
    times = {}
    for state, is_there in (
            ("in an exchange", lambda: day.requests()),
            ("in the wait for a retry", lambda: "Retrying in" in day.client_log.new_text())):
        day.start_client()
        day.client_log.mark()
        day.command("clamp on")
        day.wait_for(state, is_there)
        times[state] = end_ms(day)
        day.command("clamp off")
    return times


def resting_client(day, config):
    """Starts the service with this configuration, or without one; its process."""
    place = day.unit / "etc" / CONFIG.name
    place.unlink(missing_ok=True)
    if config:
        place.write_text(config.read_text())
    day.start_client()
    return client_pid(day)


def measure(day, bare, directory):
    os.environ["ORV_CRYPTO_CORE_DUMPS"] = "1"  # else only root may look at the memory
    day.provision()
    day.start_simulators("--scenario", "silent,empty")
    start, end = measured_in_unit(day, "vintrel-client", "waiting for a trigger")
    bare_start, bare_end = measured_in_unit(day, "bench-bare-process", "waiting")

    with subprocess.Popen([bare], stderr=subprocess.DEVNULL) as process:
        bare_wakes, _, bare_cpu = idle_minute(process.pid)
        bare_rest = at_rest(process.pid)
        process.terminate()
    pid = resting_client(day, None)
    wakes, library_wakes, cpu = idle_minute(pid)
    day.stop_client()
    pid = resting_client(day, CONFIG)
    supervised_wakes, _, supervised_cpu = idle_minute(pid)
    rest = at_rest(pid)
    day.stop_client()

    rows = [
        row("start to waiting for a trigger", "ms", start, bare_start),
        row("start to waiting for a trigger", "ms", start, START_LIMIT_MS, LIMIT),
        row("RSS at rest", "KiB", rest["RSS"], bare_rest["RSS"]),
        row("PSS at rest", "KiB", rest["PSS"], bare_rest["PSS"]),
        row("PSS at rest", "KiB", rest["PSS"], PSS_LIMIT_KIB, LIMIT),
        row("threads at rest", "1", rest["threads"], bare_rest["threads"]),
        row("program, stripped", "KiB", stripped_kib(day.binaries / "vintrel-client", directory),
            stripped_kib(bare, directory)),
        row("libraries that it loads", "KiB", rest["loaded"], bare_rest["loaded"]),
        row("wake-ups in an idle minute", "1", wakes, bare_wakes),
        row("wake-ups in an idle minute", "1", wakes, 0, LIMIT),
        row("the same, platform libraries", "1", library_wakes, bare_wakes),
        row("CPU time of an idle minute", "ms", cpu, bare_cpu),
        row("wake-ups in an idle minute, supervised", "1", supervised_wakes, bare_wakes),
        row("CPU time of an idle minute, supervised", "ms", supervised_cpu, bare_cpu),
        row("SIGTERM to the end, at rest", "ms", end, bare_end),
        row("SIGTERM to the end, at rest", "ms", end, END_LIMIT_MS, LIMIT),
    ]
    rows += [row(f"SIGTERM to the end, {state}", "ms", took, END_LIMIT_MS, LIMIT)
             for state, took in ends(day).items()]
    return rows


def run(binaries):
    bare = binaries / "bench-bare-process"
    missing = needed(binaries / "vintrel-client") - needed(bare) - {"ld-linux-x86-64.so.2"}
    if missing:
        raise RuntimeError(f"the bare program does not link {missing}")
    with tempfile.TemporaryDirectory(prefix="vintrel-bench-") as directory:
        day = group_pass.quiet_day(binaries, directory)
        try:
            return measure(day, bare, pathlib.Path(directory))
        finally:
            day.end_all()


if __name__ == "__main__":
    print(*start_and_end(sys.argv[1], sys.argv[2].encode()))
