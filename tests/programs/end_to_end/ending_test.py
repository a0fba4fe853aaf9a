#!/usr/bin/env python3
"""How the service ends: with which status, with what in the log, and with what in the store."""

import os
import re
import signal
import sqlite3
import sys
import unittest.mock

sys.dont_write_bytecode = True
import unit_case  # noqa: E402
import unit_day  # noqa: E402

KILLED_BY_SIGTERM = 128 + signal.SIGTERM
LAST_LINE = "Vintrel Client Terminated."


class EndingTest(unit_case.UnitCase):
    def launch(self):
        """Starts the service without waiting for anything."""
        self.day.client_log.mark()
        self.day.launch("vintrel-client", self.day.in_unit("vintrel-client"),
                        "vintrel-client.log")

    def assert_orderly(self, status):
        text = self.day.client_log.new_text()
        self.assertEqual(status, 0, text)
        self.assertIn(LAST_LINE, text)

    def enter_exchange(self, *scenarios):
        self.day.provision()
        self.day.start_simulators("--scenario", ",".join(scenarios))
        self.day.start_client()
        self.day.client_log.mark()
        self.day.command("clamp on")

    def test_a_termination_at_any_line_of_the_start_is_orderly(self):
        self.day.provision()
        self.day.start_client()
        self.day.stop_client()
        for said in ("clamp control is out of reach:", " Exception:"):
            self.assertIn(f"{said} client configuration /var/run/qel/", self.day.client_log.text())
        lines = self.day.client_log.text().splitlines()
        start = [line.split("] ")[-1] for line in lines[:lines.index(next(
            line for line in lines if "waiting for a trigger" in line)) + 1]]
        listens = next(index for index, line in enumerate(start) if "Crypto API init" in line)
        for index in range(listens, len(start), 4):
            with self.subTest(line=start[index]):
                self.launch()
                self.day.wait_for(
                    "the line", lambda: self.day.client_log.new_text().count("\n") > index)
                self.assert_orderly(self.day.end("vintrel-client"))

    def hold_store_at_the_next_pass(self):
        """Starts a pass, which stands still in the store; what lets it go on."""
        store = sqlite3.connect(self.day.unit / "var/lib/orv/crypto/store.db")
        store.execute("BEGIN EXCLUSIVE")
        self.day.client_log.mark()
        self.day.command("clamp on")
        self.day.wait_log("Vintrel Client triggered by Clamp 15")
        self.addCleanup(store.close)
        return store.rollback

    def test_a_termination_while_the_store_is_slow_is_not_lost(self):
        self.day.provision()
        self.day.start_simulators()
        self.day.start_client()
        release = self.hold_store_at_the_next_pass()
        self.day.processes["vintrel-client"].send_signal(signal.SIGTERM)
        self.day.wait_log("SIGTERM received.")
        self.day.processes["vintrel-client"].send_signal(signal.SIGTERM)  # changes nothing
        release()
        self.assert_orderly(self.day.processes.pop("vintrel-client").wait(60))

    def test_a_rejection_while_the_store_is_slow_lets_no_update_begin(self):
        self.enterContext(unittest.mock.patch.dict(os.environ, ARA_LOG_LEVEL="verbose"))
        self.day.provision()
        self.day.start_simulators()
        self.day.start_client()
        release = self.hold_store_at_the_next_pass()
        self.day.command("connector session rejected")
        self.day.wait_for("the library's report of it", lambda: re.search(
            r"EVENT async raised .* -> ZemConnectorFsm", self.day.client_log.new_text().split(
                "Requesting VIN")[-1]))
        release()
        self.day.wait_log(LAST_LINE)
        self.assertEqual(self.day.end("vintrel-client"), KILLED_BY_SIGTERM)
        self.assertEqual(self.day.requests(), [])

    def test_a_rejected_session_leaves_no_process_that_swallows_a_termination(self):
        self.day.provision()
        self.day.start_simulators()
        for attempt in range(6):
            self.day.command("connector session started")
            self.day.start_client()
            self.day.command("connector session rejected")
            if attempt == 0:
                self.day.wait_log(LAST_LINE)
            status = self.day.end("vintrel-client")
            expected = [KILLED_BY_SIGTERM] if attempt == 0 else [0, KILLED_BY_SIGTERM]
            self.assertIn(status, expected, "heard by the machine, or behind its end by nobody")
            self.assertIn(LAST_LINE, self.day.client_log.new_text())

    def test_a_termination_in_the_middle_of_an_exchange_is_orderly(self):
        self.enter_exchange("silent")
        self.day.wait_for("the request", lambda: self.day.requests())
        self.assert_orderly(self.day.end("vintrel-client"))

    def test_a_termination_in_the_wait_for_a_retry_is_orderly(self):
        self.enter_exchange("empty")
        self.day.wait_log("Retrying in 5 seconds...")
        self.assert_orderly(self.day.end("vintrel-client"))

    def test_an_answer_that_breaks_the_parser_ends_the_service_and_leaves_the_store(self):
        self.enter_exchange("ok", "broken-status")
        self.day.wait_log("The TIV Certificate was successfully updated")
        before = self.day.stored_certificate()
        self.day.client_log.mark()
        self.day.command(f"alert {unit_day.ALERT_OID} {unit_day.ALERT_CODE}")
        self.assertEqual(self.day.processes.pop("vintrel-client").wait(60), 1)
        self.assertIn("Dispatcher Error, exception: stoi", self.day.client_log.new_text())
        self.assertEqual(self.day.stored_certificate(), before)
        requests = len(self.day.requests())
        self.day.command("clamp off")
        self.day.start_client()
        self.day.client_log.mark()
        self.day.command("clamp on")
        self.day.wait_log("No TIV certificate update needed.")
        self.assertEqual(len(self.day.requests()), requests, "key and certificate still fit")


if __name__ == "__main__":
    unit_case.main()
