"""What the tests on the page share: units that `./run --open` sets up, and the page's address."""

import pathlib
import signal
import subprocess
import sys
import tempfile
import unittest

PROJECT = pathlib.Path(__file__).resolve().parents[3]
LIMIT = 60
sys.path.insert(0, str(PROJECT / "tools"))


def binaries():
    """The directory of the programs: the first argument of the test."""
    return pathlib.Path(sys.argv[1]).resolve()


def main(arguments=1):
    """Runs the tests; so many arguments are the test's own."""
    unittest.main(verbosity=2, argv=[sys.argv[0], *sys.argv[1 + arguments:]])


class PageCase(unittest.TestCase):
    UNITS = 1

    @classmethod
    def setUpClass(cls):
        directory = tempfile.TemporaryDirectory(prefix="vintrel-page-test-")
        cls.addClassCleanup(directory.cleanup)
        cls.directory = pathlib.Path(directory.name).resolve()
        cls.page = subprocess.Popen(
            [PROJECT / "tools" / "open-page", "--bin", binaries(), "--dir", cls.directory,
             "--units", str(cls.UNITS)],
            stdout=subprocess.PIPE, text=True, env={"PATH": "/usr/bin:/bin"})
        cls.addClassCleanup(cls.end)
        cls.address = ""
        for line in cls.page.stdout:
            if line.startswith("The page: "):
                cls.address = line.split()[-1]
                break

    @classmethod
    def end(cls):
        cls.page.send_signal(signal.SIGTERM)
        cls.page.communicate(timeout=LIMIT)
