"""A person at the page: a headless Chromium that is steered like one.

Debian's python3-selenium belongs to Debian's Python; scripts that need it run by /usr/bin/python3.
"""

import re
import shutil
import tempfile

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    webdriver = None

LIMIT = 60
FLAGS = ("headless", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run",
         "disable-background-networking", "disable-component-update", "disable-sync",
         "disable-dev-shm-usage", "hide-scrollbars")


def is_available():
    return webdriver is not None and all(map(shutil.which, ("chromium", "chromedriver")))


class PageDriver:
    """Use as a context manager; ends the browser and removes its profile."""

    def __init__(self, width, height):
        self.size = (width, height)

    def __enter__(self):
        self.profile = tempfile.TemporaryDirectory(prefix="vintrel-chromium-",
                                                   ignore_cleanup_errors=True)
        options = webdriver.ChromeOptions()
        options.binary_location = shutil.which("chromium")
        for flag in FLAGS:
            options.add_argument(f"--{flag}")
        options.add_argument(f"--user-data-dir={self.profile.name}")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.browser = webdriver.Chrome(service=Service(shutil.which("chromedriver")),
                                        options=options)
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": self.size[0], "height": self.size[1], "deviceScaleFactor": 1,
            "mobile": False})
        return self

    def __exit__(self, *error):
        self.browser.quit()
        self.profile.cleanup()

    def open(self, address):
        self.browser.get(address)

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector):
        """What stands there now, empty if nothing does. One step: the page may replace it."""
        return self.browser.execute_script(
            "return document.querySelector(arguments[0])?.textContent ?? ''", selector)

    def wait(self, what, condition):
        return WebDriverWait(self.browser, LIMIT, 0.05).until(
            lambda _: condition(), f"not seen: {what}")

    def wait_text(self, selector, pattern):
        return self.wait(f"{pattern} in {selector}",
                         lambda: re.search(pattern, self.text(selector)))

    def press(self, group, name):
        """Clicks a button among the controls."""
        self.find(f"fieldset[data-group='{group}']").find_element(
            By.XPATH, f".//button[text()='{name}']").click()

    def set(self, group, label, text):
        """Writes a control's value and sets it."""
        row = self.find(f"fieldset[data-group='{group}']").find_element(
            By.XPATH, f".//div[label[text()='{label}']]")
        field = row.find_element(By.TAG_NAME, "input")
        field.clear()
        field.send_keys(text)
        row.find_element(By.XPATH, ".//button").click()

    def key(self, name):
        """Types a key, or one that has a name ("ARROW_DOWN"), wherever the focus is."""
        webdriver.ActionChains(self.browser).send_keys(getattr(Keys, name, name)).perform()

    def take_picture(self, path, scheme):
        """A picture as a user sees it who wants it "light" or "dark"."""
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})
        self.browser.save_screenshot(str(path))
