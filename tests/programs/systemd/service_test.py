#!/usr/bin/env python3
"""The installed service under a real systemd: started, supervised, stopped and brought back."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
PROGRAMS = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(PROGRAMS / "end_to_end"), str(PROGRAMS.parents[1] / "tools")]
import machine  # noqa: E402
import unit_day  # noqa: E402

UNIT = "vintrel-client"
STARTED = f"Started {UNIT}.service"
STORE = "/var/lib/orv/crypto"
CONFIG = "/etc/vintrel-client-phm.ini"
WAITING = "Vintrel Client waiting for a trigger"
# The same unit in a hurry.
HASTE = "[Service]\nWatchdogSec=1\nRestartSec=100ms\n"
ALIVE_TIME = ("supervision-cycle = 100", "supervision-cycle = 2")


class Journal(unit_day.Log):
    """What the journal of the machine has on the unit."""

    def __init__(self, host):
        super().__init__(None)
        self.host = host

    def text(self):
        self.host.run("journalctl", "--sync")
        return self.host.run("journalctl", "--unit", UNIT, "--output", "cat", "--quiet")


class MachineDay(unit_day.Day):
    """A unit that is a machine: its service is the installed one, and journald has the log."""

    def __init__(self, binaries, directory):
        super().__init__(binaries, directory, machine.LIMIT)
        self.say = lambda text: None
        self.seen_requests = 0
        self.logs.mkdir()
        self.machine = machine.Machine(directory)
        self.client_log = Journal(self.machine)

    def in_unit(self, program, *arguments):
        """As the user of the service, whose sockets only it may use."""
        return self.machine.command("runuser", "-u", "vintrel", "--",
                                    self.binaries / program, *arguments)

    def launch(self, name, command, log, stdin=subprocess.DEVNULL):
        if name == "backend":
            command = self.machine.command(*command)
        return super().launch(name, command, log, stdin)

    def wait_for(self, what, condition):
        try:
            return super().wait_for(what, condition)
        except unit_day.Failure as failure:
            raise unit_day.Failure(f"{failure}\n{self.client_log.tail()}") from None

    def install(self, package):
        self.machine.run("dpkg", "--install", package)
        self.machine.run("install", "-d", "-o", "vintrel", "/run/qel", "/run/adaptive")

    def provision(self):
        base = self.directory / "base.pem"
        self.run(self.binaries / "vintrel-pki", "create", self.pki)
        self.run(self.binaries / "vintrel-pki", "unit", self.pki, "--vin", unit_day.VIN,
                 "--out", base)
        self.machine.run("install", "-o", "vintrel", base, self.pki / "product-root.pem", "/run")
        for arguments in (["init"], ["base", "--key", "/run/base.pem", "--chain", "/run/base.pem"],
                          ["root", "/run/product-root.pem"]):
            self.machine.run("runuser", "-u", "vintrel", "--", "vintrel-provision", *arguments)

    def main_pid(self):
        pid = self.machine.show(UNIT, "MainPID")
        return pid if pid != "0" else None

    def state(self):
        return self.machine.show(UNIT, "ActiveState")

    def restart(self):
        self.client_log.mark()
        self.machine.run("systemctl", "restart", UNIT)
        self.wait_log(WAITING)

    def wait_restart(self, pid):
        self.wait_for("another process", lambda: self.main_pid() not in (pid, None))
        self.wait_log(WAITING)

    def close(self):
        self.machine.stop()
        self.end_all()


class MachineCase(unittest.TestCase):
    """A test case with one machine for all its tests."""

    @classmethod
    def setUpClass(cls):
        reason = machine.missing()
        if reason:
            print(f"skipped: {reason}")
            raise unittest.SkipTest(reason)
        directory = tempfile.TemporaryDirectory(prefix="vintrel-systemd-")
        cls.addClassCleanup(directory.cleanup)
        path = pathlib.Path(directory.name).resolve()
        path.chmod(0o755)
        binaries, packages = map(pathlib.Path, sys.argv[1:3])
        cls.package = path / "package.deb"
        shutil.copy(max(packages.glob("*.deb"), key=os.path.getmtime), cls.package)
        for name in ("backend", "pki", "provision", "vehicle"):
            shutil.copy(binaries / f"vintrel-{name}", path)
        cls.day = MachineDay(path, path)
        cls.addClassCleanup(cls.day.close)

    def run_in(self, *command):
        return self.day.machine.run(*command)


class ServiceTest(MachineCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.day.install(cls.package)
        cls.day.provision()
        cls.day.start_simulators("--scenario", "silent,ok")
        run = cls.day.machine.run
        run("sh", "-c", f"mkdir -p /etc/systemd/system/{UNIT}.service.d && printf '{HASTE}' "
            f"> /etc/systemd/system/{UNIT}.service.d/haste.conf && "
            f"sed -i 's/{ALIVE_TIME[0]}/{ALIVE_TIME[1]}/' {CONFIG}")
        run("systemctl", "daemon-reload")

    def setUp(self):
        self.day.command("clamp off")
        self.day.command("connector session started")
        self.day.restart()
        self.pid = self.day.main_pid()

    def hold_store(self):
        """Takes the lock of the store; what gives it back."""
        holder = subprocess.Popen(self.day.machine.command(
            "flock", STORE, "sh", "-c", "echo held; read line"), stdin=subprocess.PIPE,
            stdout=subprocess.PIPE)
        self.addCleanup(holder.kill)
        self.addCleanup(holder.communicate)
        self.assertEqual(holder.stdout.readline(), b"held\n")
        return holder.communicate

    def test_a_start_is_not_reported_before_the_service_is_running(self):
        self.run_in("systemctl", "stop", UNIT)
        release = self.hold_store()
        self.day.client_log.mark()
        self.run_in("systemctl", "start", "--no-block", UNIT)
        self.day.wait_for("two attempts", lambda: self.day.client_log.new_text().count(
            "Scheduled restart job") > 1)
        self.assertEqual(self.day.state(), "activating")
        self.assertNotIn(STARTED, self.day.client_log.new_text())
        release()
        self.day.wait_log(STARTED)
        said, _, _ = self.day.client_log.new_text().partition(STARTED)
        self.assertIn("ReportApplicationState kRunning", said)

    def test_a_machine_that_has_ended_itself_is_started_anew(self):
        self.day.command("connector session rejected")
        self.day.wait_log("Vintrel Client Terminated.")
        self.day.command("connector session started")
        self.day.wait_restart(self.pid)
        self.assertIn("Watchdog timeout", self.day.client_log.new_text())

    def test_a_stopped_process_is_started_anew(self):
        self.day.client_log.mark()
        self.run_in("kill", "-STOP", self.pid)
        self.day.wait_restart(self.pid)
        self.assertIn("Watchdog timeout", self.day.client_log.new_text())

    def test_a_stop_is_orderly(self):
        self.run_in("systemctl", "stop", UNIT)
        self.day.wait_log("Vintrel Client Terminated.")
        said = self.day.client_log.new_text()
        self.assertIn("Deactivated successfully.", said)
        self.assertNotIn("Main process exited", said, "by a signal or with another status")

    def test_a_killed_one_finishes_its_enrolment_at_the_next_trigger(self):
        self.day.command("clamp on")
        self.day.wait_for("the request", self.day.requests)
        self.day.client_log.mark()
        self.run_in("kill", "-KILL", self.pid)
        self.day.seen_requests = 1
        # The ignition is still on, which is the next trigger.
        self.day.update("ACTIVATIONREASON_CLAMP30_DETECTED", 0)

    def test_without_a_sound_configuration_it_runs_unsupervised(self):
        self.assertEqual(self.day.machine.show(UNIT, "WatchdogUSec"), "1s")
        self.run_in("sed", "-i", "s/^supervision-cycle.*/supervision-cycle = 70000/", CONFIG)
        self.day.restart()
        self.assertIn('Configuration parameter "supervision-cycle" was invalid for component '
                      "vintrel-client", self.day.client_log.new_text())
        self.assertEqual(self.day.machine.show(UNIT, "WatchdogUSec"), "0")
        self.run_in("sed", "-i", f"s/^supervision-cycle.*/{ALIVE_TIME[1]}/", CONFIG)

    def test_the_sandbox_is_tight(self):
        self.run_in("systemd-analyze", "security", "--threshold=12", UNIT)


if __name__ == "__main__":
    unittest.main(verbosity=2, argv=[sys.argv[0], *sys.argv[3:]])
