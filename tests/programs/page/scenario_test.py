#!/usr/bin/env python3
"""A person at the page, from the first ignition to the end of the page's server.

Pictures of each step, in light and in dark, stay in the folder that is the second argument.
"""

import pathlib
import re
import sys

sys.dont_write_bytecode = True
import page_case  # noqa: E402
import page_driver  # noqa: E402

SKIPPED = 77
PLACES = """return [...document.querySelectorAll("fieldset, article, main > *, .lanes-name")].map(
    (one) => { const box = one.getBoundingClientRect();
               return [one.tagName, box.x, box.y + scrollY, box.width, box.height].join(); });"""


class ScenarioTest(page_case.PageCase):
    UNITS = 2

    def setUp(self):
        self.pictures = pathlib.Path(sys.argv[2]).resolve()
        self.pictures.mkdir(parents=True, exist_ok=True)
        self.person = self.enterContext(page_driver.PageDriver(1280, 1360))

    def picture(self, name):
        for scheme in ("dark", "light"):
            self.person.take_picture(self.pictures / f"{name}-{scheme}.png", scheme)

    def places(self):
        """Where everything is that must not move when something happens."""
        return self.person.browser.execute_script(PLACES)

    def test_from_the_first_ignition_to_the_end(self):
        person = self.person
        person.open(self.address)
        person.wait_text("#link", "^Connected$")
        person.wait_text("#client-card .badge", "missing")
        person.wait_text("#now-state", "WaitTrigger")
        person.wait_text("fieldset[data-group='TLS alert'] legend", "1 listening")
        before = self.places()
        self.picture("1-factory-fresh")

        person.press("Ignition", "on")
        person.wait_text("#client-card", "CN=VNTREL00000000001:C003")
        person.wait_text("#client-card .badge", "in order")
        self.assertRegex(person.text("#client-card"),
                         r"today: 7\d\d days left.*last year begins.*key fits: yes.*path good: yes")
        self.assertRegex(person.text("#factory-card"), "key fits: yes")
        person.wait_text("#now-pass", "Clamp 15 – certificate stored")
        self.assertIn("reason 0 (no certificate stored)", person.text("#now-reason"))
        self.assertRegex(person.text("#journal tr"), r"PUT /enrolreason 0.*200 issued.*\d\.\d ms")
        self.assertEqual(self.places(), before, "nothing moves")
        self.picture("2-certificate-stored")

        person.set("Backend", "Scenario", "refuse:403,empty")
        person.wait_text("#said", "^Done: Backend")
        person.press("TLS alert", "Send")
        person.wait_text("#journal tr", "403 refused.*scenario refuse:403")
        person.wait_text("#now-pass", r"TLS alert – failed: refused by the backend \(HTTP 403\)")
        self.picture("3-refused")

        person.press("Ignition", "off")
        person.wait_text("#said", "^Done: Clamp 15 off")
        person.press("Ignition", "on")
        person.wait_text("#now-pass", "Clamp 15 – no update needed")
        person.press("TLS alert", "Send")
        person.wait_text("#now-wait", "retry 3 of 9 in 300 s")
        left = self.seconds_left()
        person.wait("the count going down", lambda: self.seconds_left() < left)
        self.assertIn("forced by a TLS alert", person.text("#now-reason"))
        self.picture("4-waiting-for-the-retry")

        self.read_the_lanes()
        self.look_at_the_second_unit()

        self.page.terminate()
        person.wait_text("#link", "Connection to the page’s server lost")
        self.assertTrue(person.find("fieldset").get_property("disabled"))
        self.picture("7-connection-lost")
        errors = [entry["message"] for entry in person.browser.get_log("browser")
                  if "/events" not in entry["message"]]
        self.assertEqual(errors, [])

    def seconds_left(self):
        return float(self.person.wait_text("#now-left", r"^([\d.]+) s left").group(1))

    def read_the_lanes(self):
        """By the keyboard alone: from a line of the log to its moment, and on along the events."""
        person = self.person
        person.key("f")
        person.key("Retrying in 300")
        person.wait_text("#log-count", "^1 of ")
        person.key("TAB")
        person.key("ARROW_DOWN")
        person.wait_text(".lanes-moment time", re.escape(person.text("#log .line .clock")))
        person.key("t")
        seen = person.text(".lanes-moment")
        while "FsmRetryProcedure" not in seen:
            person.key("ARROW_RIGHT")
            person.wait("the next event", lambda: person.text(".lanes-moment") != seen)
            seen = person.text(".lanes-moment")
        states = person.text(".lanes-states")
        for state in ("VintrelClientFsmFsmRetryProcedure", "Waitingretry 3 of 9 in 300 s",
                      "Activation reasonreason 1 (forced by a TLS alert)", "Clamp 15on"):
            self.assertIn(state, states)
        self.picture("5-reading-the-lanes")

    def look_at_the_second_unit(self):
        person = self.person
        person.key("2")
        person.wait_text("#units [aria-current=true]", "VNTREL00000000002.*ignition off")
        person.wait_text("#client-card .badge", "missing")
        self.assertEqual(person.text("#journal"), "")
        person.set("Immobilizer", "VIN", "VNTREL00000000009")
        person.wait_text("#units [aria-current=true]", "VNTREL00000000009")
        person.key("i")
        person.wait_text("#now-pass", "failed: VINs differ: immobilizer .VNTREL00000000009.")
        person.press("Service", "Start with -reset")
        person.find("#log-text").clear()
        person.wait_text("#log", "Vintrel Client Factory Reset")
        self.picture("6-second-unit")
        person.press("Service", "Stop")
        person.wait_text("fieldset[data-group='Service'] legend", "stopped")


if __name__ == "__main__":
    if not page_driver.is_available():
        print("skipped: needs chromium, chromium-driver and python3-selenium")
        sys.exit(SKIPPED)
    page_case.main(2)
