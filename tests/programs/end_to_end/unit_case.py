"""What tests on a whole unit share."""

import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "tools"))
import unit_day  # noqa: E402


def binaries():
    """The directory of the programs: the first argument of the test."""
    return pathlib.Path(sys.argv[1]).resolve()


def main():
    unittest.main(verbosity=2, argv=[sys.argv[0], *sys.argv[2:]])


class UnitCase(unittest.TestCase):
    """A test with a unit of its own in `self.day`, nothing of which is left behind."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="vintrel-e2e-")
        self.addCleanup(directory.cleanup)
        self.day = unit_day.Day(binaries(), pathlib.Path(directory.name).resolve(), 60)
        self.day.say = lambda text: None
        self.day.seen_requests = 0
        self.addCleanup(self.day.end_all)
