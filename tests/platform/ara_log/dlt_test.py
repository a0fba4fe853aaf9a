#!/usr/bin/env python3
"""The output dlt of ara::log with the daemon and the tools that others log with, and without."""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "programs" / "end_to_end"))
import unit_case  # noqa: E402

LIMIT = 30
# libdlt by itself would keep a process without daemon from exiting for ten seconds.
EXIT_LIMIT = 8
# All of 127.0.0.0/8 is this host: with an address of its own a test has the port to itself.
HOST = f"127.{64 + (os.getpid() >> 16)}.{os.getpid() >> 8 & 255}.{os.getpid() & 255}"
LEVELS = ["fatal", "error", "warn", "info", "debug", "verbose"]


def chosen(directory):
    """The environment of a process that logs to DLT, too; its daemon's pipe is in `directory`."""
    return {"ARA_LOG_OUTPUT": "console,dlt", "DLT_PIPE_DIR": str(directory)}


@unittest.skipUnless(shutil.which("dlt-daemon"), "dlt-daemon is not installed: skipped")
class DltTest(unit_case.UnitCase):
    def setUp(self):
        super().setUp()
        self.directory = self.day.directory
        self.writer = self.start_writer()

    def popen(self, *command, **options):
        process = subprocess.Popen([str(part) for part in command], **options)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def open(self, name):
        file = open(self.directory / name, "wb")
        self.addCleanup(file.close)
        return file

    def start_writer(self):
        writer = self.popen(unit_case.binaries() / "ara-log-writer", text=True, bufsize=1,
                            env=os.environ | chosen(self.directory), stdin=subprocess.PIPE,
                            stdout=subprocess.PIPE, stderr=self.open("console"))
        self.addCleanup(writer.stdout.close)
        return writer

    def log(self, level, text="-", count=1):
        self.writer.stdin.write(f"{LEVELS.index(level) + 1} {count} {text}\n")
        return self.writer.stdout.readline().strip()

    def start_daemon(self):
        configuration = self.directory / "dlt.conf"
        configuration.write_text(
            f"SendContextRegistration = 1\nECUId = UNIT\nLoggingMode = 2\nLoggingLevel = 6\n"
            f"LoggingFilename = {self.directory}/daemon.log\nBindAddress = ::ffff:{HOST}\n"
            f"ControlSocketPath = {self.directory}/control\nRingbufferMinSize = 500000\n"
            f"RingbufferMaxSize = 10000000\nRingbufferStepSize = 500000\n"
            f"PersistanceStoragePath = {self.directory}\nTimeOutOnSend = 4\n")
        daemon = self.popen("dlt-daemon", "-c", configuration, "-t", self.directory)
        self.day.wait_for("listening daemon", lambda: self.tool("dlt-control", "-j").returncode == 0)
        self.popen("stdbuf", "-oL", "dlt-receive", "-a", HOST, stdout=self.open("received"))
        return daemon

    def tool(self, program, *arguments):
        return subprocess.run([program, *arguments, HOST], capture_output=True, timeout=LIMIT)

    def set_level(self, level):
        self.tool("dlt-control", "-a", "VT", "-c", "MAIN", "-l", str(LEVELS.index(level) + 1))

    def messages(self):
        """Level and text of each message of our context."""
        text = (self.directory / "received").read_text(errors="replace")
        return re.findall(r"UNIT VT-- MAIN log (\w+) V 1 \[(.*?)\]$", text,
                          re.MULTILINE | re.DOTALL)

    def assert_exits_at_once(self):
        self.writer.stdin.close()
        status = self.writer.wait(EXIT_LIMIT)
        self.assertEqual(status, 0, (self.directory / "console").read_text()[-3000:])

    def test_lines_have_ids_and_levels_and_the_level_follows_the_daemon(self):
        self.log("warn", "before the daemon")
        self.start_daemon()
        self.day.wait_for("the kept line", lambda: self.messages() == [("warn", "before the daemon")])
        self.set_level("verbose")
        self.day.wait_for("the level", lambda: self.log("verbose", count=0) == "enabled")
        long = "ä" * 1500
        for level in LEVELS:
            self.log(level, f"as {level} \x1b[2K")
        self.log("info", long)
        pieces = [("info", "ä" * 512), ("info", "ä" * 512), ("info", "ä" * 476)]
        self.day.wait_for("all lines", lambda: self.messages()[1:] == [
            (level, rf"as {level} \x1b[2K") for level in LEVELS] + pieces)
        self.set_level("error")
        self.day.wait_for("the level", lambda: self.log("verbose", count=0) == "disabled")
        self.log("warn", "for the console only")
        self.log("error", "for both")
        self.day.wait_for("the last line", lambda: self.messages()[-1] == ("error", "for both"))
        self.assert_exits_at_once()
        self.assertNotIn(("warn", "for the console only"), self.messages())
        console = (self.directory / "console").read_text()
        self.assertIn("VT for the console only\n", console)
        self.assertNotIn("as verbose", console, "the console keeps its own level")

    def test_a_daemon_that_hangs_or_dies_holds_nobody_up(self):
        daemon = self.start_daemon()
        self.log("info", "first")
        self.day.wait_for("a message", self.messages)
        daemon.send_signal(signal.SIGSTOP)
        # More than the daemon's pipe and the library's memory hold.
        self.assertEqual(self.log("info", "x" * 500, 3000), "enabled")
        daemon.kill()
        daemon.wait()
        self.assertEqual(self.log("info", "y", 10), "enabled")
        self.assert_exits_at_once()


if __name__ == "__main__":
    unit_case.main()
