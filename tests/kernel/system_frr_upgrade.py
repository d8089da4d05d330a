#!/usr/bin/env python3
"""system_frr_upgrade.py BIN_DIRECTORY: the routing suite of version 8 is replaced by version 10 with the same configuration
while the daemon follows it (see suite.py). Runs in the guest (see uml-run), as root.

Nothing in the MIB may change except what the suite derives again, not even for a moment: no commit, no time.
"""
import pathlib
import shlex
import tempfile
import unittest

from system_frr_programs import OneOfManyTest  # before system and suite
import suite as suites
from system import wait_until


class Upgrade(OneOfManyTest):
    @classmethod
    def setUpClass(cls):
        """The daemon's shell is the one that is installed."""
        cls.installed = pathlib.Path(tempfile.mkdtemp(prefix="mpls_vpn_shell.")) / "vtysh"
        cls.frr = str(cls.installed)
        cls.release = suites.find_or_skip("system_frr_upgrade", 8)
        cls.next_release = suites.find_or_skip("system_frr_upgrade", 10)
        super().setUpClass()

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.install(cls.release)

    @classmethod
    def install(cls, release):
        """Moved into place, as a package manager does."""
        new = cls.installed.with_suffix(".new")
        new.write_text(f'#!/bin/sh\nexec {shlex.join(release.words(suites.SHELL))} "$@"\n')
        new.chmod(0o755)
        new.rename(cls.installed)

    def test_upgrade(self):
        self.assert_becomes_equal(self.mib_protocols, lambda: self.suite_protocols(self.suite), 30)
        self.assertTrue(self.is_whole(self.suite))
        items = self.suite_items(self.suite)
        self.assert_becomes_equal(lambda: (self.mib_rds(), self.mib_targets()), lambda: items)
        before, times = self.state(), self.changed()
        self.watch_changes()
        self.suite.stop()
        wait_until("the daemon to notice", lambda: all(map(self.is_lost, ("zebra", "bgpd", "ripd"))))
        self.assert_state(before, "version 8 stopped")
        upgraded = suites.Suite(self.next_release, None, self.programs, self.config)
        self.install(self.next_release)
        upgraded.start()
        wait_until("version 10", lambda: not any(map(self.is_lost, ("zebra", "bgpd", "ripd"))))
        self.assert_state(before, "version 10 started")
        upgraded.load()
        wait_until("version 10 to have its configuration", lambda: self.is_whole(upgraded), 30)
        self.assert_becomes_equal(self.mib_protocols, lambda: self.suite_protocols(upgraded))
        self.assert_becomes_equal(lambda: (self.mib_rds(), self.mib_targets()), lambda: self.suite_items(upgraded))
        self.assert_same_but_derived(before, times, items, self.suite_items(upgraded))
        self.assert_mgmtd_is_followed(upgraded)

    def assert_same_but_derived(self, before, times, items, now):
        """Derived items have numbers that the suite counts anew in each start."""
        differing = {vrf for vrf in self.vrfs if items[0].get(vrf) != now[0].get(vrf) or
                     {item for item in items[1] if item[0] == vrf} != {item for item in now[1] if item[0] == vrf}}
        print(f"derived anew: {differing or 'nothing'}", flush=True)
        self.assertLessEqual(differing, {"blue", "gold"})
        self.assertEqual({vrf for vrf, seconds in self.changed().items() if seconds != times[vrf]}, differing)
        self.assertEqual({change["vrfName"] for change in self.changes()}, differing)
        self.assertEqual({change["newOrigin"] or change["oldOrigin"] for change in self.changes()} - {"derived"}, set())
        if not differing:
            self.assert_state(before, "version 10 loaded")

    def assert_mgmtd_is_followed(self, upgraded):
        """What it no longer says is removed: the programs that said it before are not waited for."""
        upgraded.configure("no router rip vrf blue", "vrf red", "no ip route 192.168.50.0/24 10.1.0.2")
        wait_until("the changes", lambda: self.mib_protocols() == {"red1": {"ospf"}, "blue1": {"bgp"}, "gold1": {"rip"}}, 20)


if __name__ == "__main__":
    unittest.main(verbosity=2)
