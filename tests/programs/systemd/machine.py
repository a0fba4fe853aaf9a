"""A machine of its own with a real systemd, as `tools/machine` boots it."""

import os
import pathlib
import subprocess
import time

BOOT = pathlib.Path(__file__).resolve().parents[3] / "tools" / "machine"
SYSTEMD = pathlib.Path("/lib/systemd/systemd")
LIMIT = 60


def cgroup_root():
    """Where the host has mounted the cgroups of version 2, or None."""
    for line in pathlib.Path("/proc/self/mounts").read_text().splitlines():
        _, place, kind, options, *_ = line.split()
        if kind == "cgroup2" and "rw" in options.split(","):
            return pathlib.Path(place)
    return None


def missing():
    """Why there can be no machine here, or None."""
    if os.geteuid() != 0:
        return "needs root"
    if not SYSTEMD.exists():
        return "systemd is not installed"
    if cgroup_root() is None:
        return "needs cgroups of version 2"
    probe = subprocess.run(
        ["unshare", "--mount", "--pid", "--net", "--ipc", "--uts", "--cgroup", "--fork", "sh", "-c",
         "mount -t tmpfs tmpfs /mnt && mkdir /mnt/u /mnt/w && "
         "mount -t overlay -o lowerdir=/,upperdir=/mnt/u,workdir=/mnt/w overlay /mnt"],
        capture_output=True, text=True, check=False)
    return f"no namespaces or overlays: {probe.stderr.strip()}" if probe.returncode else None


class Machine:
    """Boots at once. `shared` is a directory that both sides see under the same path."""

    def __init__(self, shared):
        self.cgroup = cgroup_root() / f"vintrel-{os.getpid()}"
        self.cgroup.mkdir()
        with open(shared / "boot.log", "wb") as log:
            self.process = subprocess.Popen([BOOT, shared, self.cgroup], stdout=log, stderr=log)
        self.pid = None
        deadline = time.monotonic() + LIMIT
        while self.state() not in ("running", "degraded"):
            if self.process.poll() is not None or time.monotonic() > deadline:
                self.stop()
                raise RuntimeError("no boot: " + (shared / "boot.log").read_text())
            time.sleep(0.05)

    def state(self):
        children = pathlib.Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children")
        self.pid = children.read_text().strip() if children.exists() else None
        if not self.pid:
            return None
        return self.run("systemctl", "is-system-running", check=False).strip()

    def command(self, *command):
        """What runs a command in the machine, as root."""
        return ["nsenter", "--target", self.pid, "--mount", "--pid", "--net", "--ipc", "--uts",
                "--cgroup", "--wdns=/", "--", *map(str, command)]

    def run(self, *command, check=True):
        """Runs a command in the machine to its end; what it writes."""
        result = subprocess.run(self.command(*command), stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, text=True,
                                check=False, timeout=LIMIT)
        if check and result.returncode != 0:
            raise AssertionError(f"{command} ended with {result.returncode}: {result.stdout}")
        return result.stdout

    def show(self, unit, name):
        """A property of a unit."""
        return self.run("systemctl", "show", "--property", name, "--value", unit).strip()

    def stop(self):
        self.process.kill()
        self.process.wait()
        deadline = time.monotonic() + LIMIT
        groups = [pathlib.Path(place) for place, _, _ in os.walk(self.cgroup, topdown=False)]
        while groups and time.monotonic() < deadline:
            try:
                groups[0].rmdir()
                groups.pop(0)
            except OSError:
                time.sleep(0.02)  # its processes are still going
