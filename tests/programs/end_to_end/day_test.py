#!/usr/bin/env python3
"""The day of ./run as a test: as it is, with a backend that dies, and on two units at once."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
PROJECT = pathlib.Path(__file__).resolve().parents[3]
sys.path.insert(0, str(PROJECT / "tools"))
import unit_case  # noqa: E402
import unit_day  # noqa: E402


class DayTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="vintrel-e2e-")
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name).resolve()

    def start_day(self, name):
        return subprocess.Popen(
            [PROJECT / "tools" / "day", "--bin", unit_case.binaries(), "--dir", self.directory / name],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def assert_nothing_left(self):
        left = subprocess.run(["pgrep", "-af", str(self.directory)], capture_output=True,
                              text=True, check=False).stdout
        self.assertEqual(left, "")

    def test_two_units_live_their_day_side_by_side(self):
        days = [self.start_day(name) for name in ("one", "two")]
        for day in days:
            output, _ = day.communicate(timeout=240)
            self.assertEqual(day.returncode, 0, output)
            self.assertIn("All stages were seen.", output)
            for name in ("subject", "issuer", "notBefore", "notAfter"):
                self.assertRegex(output, rf"\n +{name} +\S")
        chains = {(self.directory / name / "logs" / "chain.pem").read_text()
                  for name in ("one", "two")}
        self.assertEqual(len(chains), 2, "each unit has a certificate of its own")
        self.assert_nothing_left()

    def test_a_backend_that_stops_half_way_is_a_failed_stage(self):
        day = self.start_day("unit")
        lines = []
        for line in day.stdout:
            lines.append(line)
            if "ignition off and on" in line:
                backend = subprocess.run(
                    ["pgrep", "-f", f"vintrel-backend.*{self.directory}"], capture_output=True,
                    text=True, check=True).stdout.split()
                subprocess.run(["kill", "-KILL", *backend], check=True)
        self.assertEqual(day.wait(timeout=60), 1)
        day.stdout.close()
        output = "".join(lines)
        self.assertRegex(output, r"FAILED at the stage 'TLS alert': backend has ended")
        self.assertRegex(output, r"The end of .*vintrel-client\.log:\n.* VT ")
        self.assert_nothing_left()


class UnitTest(unit_case.UnitCase):
    """One unit, driven step by step through what the day does not show."""

    def test_refusals_and_bad_answers_leave_the_store_as_it_was(self):
        scenarios = ["refuse:403", "wrong-media-type", "other-key", "untrusted-root", "garbage"]
        self.day.provision()
        self.day.start_simulators("--scenario", ",".join(scenarios))
        self.day.start_client()
        expected = {
            "refuse:403": "GenericError received!",
            "other-key": "Checking the TIV Certificate failed!",
            "untrusted-root": "Checking the TIV Certificate failed!",
            "garbage": "Unable to parse the Response!",
            "wrong-media-type": "Unknown type of payload received",
        }
        for scenario in scenarios:
            with self.subTest(scenario):
                self.day.client_log.mark()
                self.day.command("clamp on")
                self.day.wait_log(expected[scenario])
                if scenario == "wrong-media-type":
                    # Retried after five seconds, and the retry meets the next scenario.
                    continue
                self.day.wait_log("EndCertificateUpdate The TIV Certificate update failed!")
                self.day.command("clamp off")
                with self.assertRaises(unit_day.Failure):
                    self.day.stored_certificate()

    def test_the_host_sees_nothing_of_the_unit(self):
        self.day.provision()
        self.assertFalse(pathlib.Path("/etc/vintrel-client-phm.ini").exists())
        self.assertFalse(pathlib.Path("/var/lib/orv").exists())
        self.assertTrue((self.day.unit / "var/lib/orv/crypto/store.db").exists())


if __name__ == "__main__":
    unit_case.main()
