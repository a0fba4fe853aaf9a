#!/usr/bin/env python3
"""The Debian package: what is in it, and its life on a machine from installation to purge."""

import shutil
import subprocess
import sys
import unittest

sys.dont_write_bytecode = True
import service_test  # noqa: E402
from service_test import CONFIG, STORE, UNIT  # noqa: E402

FILES = """
/etc/vintrel-client-phm.ini
/lib/systemd/system/vintrel-client.service
/usr/lib/sysusers.d/vintrel-client.conf
/usr/lib/tmpfiles.d/vintrel-client.conf
/usr/sbin/vintrel-client
/usr/sbin/vintrel-provision
/usr/share/doc/vintrel-client/changelog.gz
/usr/share/doc/vintrel-client/copyright
/usr/share/man/man8/vintrel-client.8.gz
/usr/share/man/man8/vintrel-provision.8.gz
"""


class PackageTest(service_test.MachineCase):
    def succeeds(self, *command):
        return self.run_in("sh", "-c", f"{' '.join(command)} && echo yes || echo no").endswith(
            "yes\n")

    def newer_package(self):
        """The same package with a higher version."""
        tree = self.package.with_name("newer")
        subprocess.run(["dpkg-deb", "-R", self.package, tree], check=True)
        control = tree / "DEBIAN" / "control"
        control.write_text(control.read_text().replace("\nVersion: ", "\nVersion: 1:"))
        subprocess.run(["dpkg-deb", "-b", tree, "newer.deb"], check=True, capture_output=True,
                       cwd=tree.parent)
        return tree.with_name("newer.deb")

    def test_its_life_from_installation_to_purge(self):
        day = self.day
        day.install(self.package)
        self.assertEqual(self.run_in("systemctl", "is-enabled", UNIT), "enabled\n")
        self.assertEqual(day.state(), "inactive", "there is nothing to keep current yet")
        self.assertEqual(self.run_in("stat", "-c", "%U %G %a", STORE), "vintrel vintrel 700\n")
        day.provision()
        day.start_simulators()
        day.restart()
        day.command("clamp on")
        day.update("ACTIVATIONREASON_CLAMP30_DETECTED", 0)
        certificate, pid = day.stored_certificate(), day.main_pid()
        self.run_in("sed", "-i", "s/^supervision-cycle.*/supervision-cycle = 77/", CONFIG)

        day.client_log.mark()
        self.run_in("dpkg", "--install", self.newer_package())
        day.wait_log("No TIV certificate update needed.")
        self.assertIn("aliveTime =77", day.client_log.new_text(), "the unit's own configuration")
        self.assertNotEqual(day.main_pid(), pid)
        self.assertEqual(day.stored_certificate(), certificate)

        self.run_in("dpkg", "--remove", UNIT)
        day.wait_log("Vintrel Client Terminated.")
        self.assertFalse(self.succeeds("systemctl", "--quiet", "is-active", UNIT))
        self.assertFalse(self.succeeds("test", "-e", "/usr/sbin/vintrel-client"))
        self.assertTrue(self.succeeds("test", "-e", CONFIG))
        self.assertIn("was not removed", self.run_in("dpkg", "--purge", UNIT))
        self.assertFalse(self.succeeds("test", "-e", CONFIG))
        self.assertEqual(day.stored_certificate(), certificate)

        day.install(self.package)
        self.assertEqual(day.state(), "active", "its store was there already")
        self.run_in("dpkg", "--remove", UNIT)
        self.run_in("rm", "-r", STORE)
        self.run_in("dpkg", "--purge", UNIT)
        self.assertFalse(self.succeeds("test", "-e", "/var/lib/orv"))

    def test_it_holds_what_it_says_and_nothing_else(self):
        said = subprocess.run(["dpkg-deb", "--contents", self.package], capture_output=True,
                              text=True, check=True).stdout
        listed = [line.split()[-1].lstrip(".") for line in said.splitlines()]
        self.assertEqual(sorted(name for name in listed if name[-1] != "/"), FILES.split())

    @unittest.skipUnless(shutil.which("lintian"), "lintian is not installed")
    def test_lintian_has_nothing_to_say(self):
        said = subprocess.run(["lintian", "--fail-on", "error,warning", self.package],
                              capture_output=True, text=True, check=False)
        self.assertEqual((said.returncode, said.stdout), (0, ""))


if __name__ == "__main__":
    unittest.main(verbosity=2, argv=[sys.argv[0], *sys.argv[3:]])
