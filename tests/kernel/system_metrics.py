#!/usr/bin/env python3
"""system_metrics.py BIN_DIRECTORY: a scrape of /metrics with a real VRF device. Runs in the guest (see uml-run), as root.

The VRF has routes of three protocols and local ones in each family, thresholds and one member. The expected counts of routes come
from `ip -j route`.
"""
import json
import re
import subprocess
import unittest
from collections import Counter

import guest_system  # noqa: F401 (before system)
from kernel import batch, member_lines, vrf_lines
from system import SystemTest, fetch, unused_port, wait_until

MOST_SERIES = 25  # of a VRF without the series of its members
PROTOCOLS = ("bgp", "ospf", "static")  # beside the local routes of the kernel
SERIES = re.compile(r'^(\w+)\{(?:.*,)?vrf="red"(?:,(.*))?\} (\S+)$', re.MULTILINE)


def installed(family):
    """{protocol: routes} of the VRF's table that a protocol of PROTOCOLS installed."""
    answer = subprocess.run(["ip", "-j", family, "route", "show", "vrf", "red"], check=True, text=True, stdout=subprocess.PIPE).stdout
    return Counter(route["protocol"] for route in json.loads(answer) if route["protocol"] in PROTOCOLS)


class Scrape(SystemTest):
    def setUp(self):
        batch(["link set lo up", *vrf_lines({"red": 10, "blue": 20}), *member_lines({"d0": "red"}, "link set {name} up")])
        batch(["addr add 10.0.0.1/24 dev d0", "addr add 2001:db8::1/64 dev d0 nodad"])
        for number, protocol in enumerate(PROTOCOLS, 1):
            for route in range(number):  # as many as the protocol's number
                batch([f"route add 192.{number}.{route}.0/24 via 10.0.0.2 vrf red proto {protocol}",
                       f"route add 2001:db8:{number}:{route}::/64 via 2001:db8::2 vrf red proto {protocol}"])
        self.system = self.new_system(source="kernel")
        self.port = unused_port()
        with open(self.system.folder / "etc/platform.yaml", "a") as settings:
            settings.write(f"metrics: {{port: {self.port}}}\n")
        self.system.start_daemon()

    def series(self):
        """[(metric, other labels, value)] of the VRF."""
        return SERIES.findall(fetch(f"http://127.0.0.1:{self.port}/metrics"))

    def routes(self, family):
        found = re.compile(rf'afi="{family}",protocol="(\w+)"')
        return Counter({found.search(labels)[1]: int(value) for name, labels, value in self.series()
                        if name == "mplsvpn_vrf_routes" and found.search(labels)})

    def test_vrf_has_at_most_25_series_with_its_members_apart(self):
        for family in ("ipv4", "ipv6"):
            self.system.cli("config", "set", "vrf", "red", "threshold", family, "1000", "800", check=True)
        wait_until("the routes", lambda: sum(self.routes("ipv6").values()) >= sum(range(len(PROTOCOLS) + 1)))
        for family, option in (("ipv4", "-4"), ("ipv6", "-6")):
            counted, expected = self.routes(family), installed(option)
            self.assertEqual(set(expected), set(PROTOCOLS))
            self.assertEqual({name: counted[name] for name in expected}, dict(expected), family)
        names = Counter(name for name, _, _ in self.series())
        print(dict(names))
        self.assertEqual(names.pop("mplsvpn_vrf_interface_info"), 1)
        self.assertEqual(names["mplsvpn_vrf_routes_threshold"], 4)
        self.assertLessEqual(sum(names.values()), MOST_SERIES, names)


if __name__ == "__main__":
    subprocess.run(["modprobe", "-a", "vrf", "dummy"], check=True)
    unittest.main(verbosity=2)
