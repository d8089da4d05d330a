#!/usr/bin/env python3
"""system_doctor_lookups.py BIN_DIRECTORY: "mplsvpn doctor" warns of a VRF exactly if the kernel looks up its packets in the main
table, which `ip route get` shows. Runs in the guest (see uml-run), as root.
"""
import json
import os
import subprocess
import sys
import unittest

from kernel import batch, member_lines, vrf_lines

PROGRAM = os.path.join(os.path.abspath(sys.argv.pop(1)), "mplsvpn")
DESTINATIONS = {"-4": "99.1.1.1", "-6": "2001:db8:99::1"}
GATEWAYS = {"-4": {"usable": "via 10.1.0.2 dev red1", "silent": "via 10.5.0.2 dev silent"},
            "-6": {"usable": "via 2001:db8:1::2 dev red1", "silent": "via 2001:db8:5::2 dev silent"}}
GUARD = "unreachable default metric 4278198272"
# Name: the default routes of the VRF's table; the link of {silent} has no carrier.
ROUTES = {
    "none": [], "unreachable": [GUARD], "blackhole": ["blackhole default"], "prohibit": ["prohibit default"],
    "gateway": ["default {usable}"], "throw": ["throw default metric 100"],
    "throw_before_unreachable": ["throw default metric 100", GUARD],
    "throw_after_unreachable": ["unreachable default metric 50", "throw default metric 100"],
    "without_carrier": ["default {silent} metric 100"], "without_carrier_before_unreachable": ["default {silent} metric 100", GUARD],
    "without_carrier_before_throw": ["default {silent} metric 50", "throw default metric 100", GUARD],
    "one_path_without_carrier": ["default nexthop {silent} nexthop {usable}"],
}
SOME_IGNORE = ("without_carrier", "without_carrier_before_unreachable", "without_carrier_before_throw", "one_path_without_carrier")
RULES = {
    "l3mdev unreachable": 2000, "l3mdev blackhole": 2000, "l3mdev prohibit": 2000, "l3mdev unreachable after main": 32766 + 100,
    "from 10.1.0.0/16 l3mdev unreachable": 2000, "not from 10.1.0.0/16 l3mdev unreachable": 2000, "fwmark 7 l3mdev unreachable": 2000,
}


def ip(*words):
    return subprocess.run(["ip", *words], capture_output=True, text=True, check=False)


class Lookups(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        subprocess.run(["modprobe", "-a", "ipv6", "vrf", "dummy", "veth"], check=True)
        batch(vrf_lines({"red": 10}) + member_lines({"red1": "red", "core": ""}, "link set {name} up") +
              ["link add silent type veth peer name other", "link set silent master red", "link set silent up",
               "addr add 10.1.0.1/24 dev red1", "addr add 2001:db8:1::1/64 dev red1 nodad", "addr add 10.9.0.1/24 dev core",
               "addr add 10.5.0.1/24 dev silent", "addr add 2001:db8:5::1/64 dev silent nodad", "route add default dev core", "route add ::/0 dev core metric 10"])

    def ignore(self, is_ignored):
        for family in "ipv4", "ipv6":
            subprocess.run(["sysctl", "-qw", f"net.{family}.conf.silent.ignore_routes_with_linkdown={int(is_ignored)}"], check=True)

    def leaves(self, family):
        """Whether the kernel takes a route of the main table for a packet of the VRF."""
        return " dev core" in ip(family, "route", "get", DESTINATIONS[family], "vrf", "red").stdout

    def warned(self):
        """{family: the fix} of those that the check warns of."""
        shown = subprocess.run([PROGRAM, "--json", "doctor", "--only", "vrf-default-route"], capture_output=True, text=True, check=False)
        found, = json.loads(shown.stdout)
        self.assertEqual(found["state"], "warning" if found["findings"] else "ok", found)
        return {finding["fix"].split()[1]: finding["fix"] for finding in found["findings"]}

    def clean(self):
        for family in DESTINATIONS:
            batch(["route flush table 10 exact default"], family)
        self.doCleanups()

    def add(self, family, routes):
        for route in routes:
            batch(["route add vrf red " + route.format(**GATEWAYS[family])], family)

    def assert_verdict(self):
        """The fix of each finding, when it is run, keeps packets in the VRF."""
        fixes = self.warned()
        self.assertEqual({family for family in DESTINATIONS if self.leaves(family)}, set(fixes))
        for family, fix in fixes.items():
            subprocess.run(fix, shell=True, check=True)
            self.assertFalse(self.leaves(family), fix)
        self.assertEqual(self.warned(), {})
        return set(fixes)

    def test_verdict_is_that_of_the_kernel(self):
        seen = []
        for name, routes in ROUTES.items():
            for is_ignored in (False, True) if name in SOME_IGNORE else (False,):
                self.clean()
                with self.subTest(name, ignored=is_ignored):
                    self.ignore(is_ignored)
                    for family in DESTINATIONS:
                        self.add(family, routes)
                    seen.append(len(self.assert_verdict()))
        self.assertEqual(set(seen), {0, 2})

    def test_rule_may_end_the_lookups_of_all_vrfs(self):
        seen = []
        for rule, priority in RULES.items():
            self.clean()
            with self.subTest(rule):
                for family in DESTINATIONS:
                    words = f"pref {priority} {rule}".replace(" after main", "").split()
                    if family == "-6":
                        words = [word.replace("10.1.0.0/16", "2001:db8:1::/64") for word in words]
                    batch([" ".join(["rule", "add", *words])], family)
                    self.addCleanup(ip, family, "rule", "del", *words)
                seen.append(len(self.warned()))
                if "from" not in rule:
                    self.assert_verdict()
        self.assertEqual(set(seen), {0, 2})


if __name__ == "__main__":
    unittest.main(verbosity=2)
