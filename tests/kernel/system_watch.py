#!/usr/bin/env python3
"""system_watch.py BIN_DIRECTORY: what "mplsvpn watch" shows of interfaces and routes, on a real kernel. Runs in the guest (see
uml-run), as root.

The watches begin with empty tables. After every step, what is left of all added, changed and removed rows must be the rows that
`ip -j` implies; so must it after a step that the kernel made while the daemon was down.
"""
import subprocess
import unittest

import guest_system  # noqa: F401 (before system)
from kernel import Kernel, batch, is_up, member_lines, vrf_lines
from routes import BLACKHOLE, LOCAL, REJECT, REMOTE, vrf_routes
from system import BIN, SystemTest, wait_until

TYPES = {"reject": REJECT, "local": LOCAL, "remote": REMOTE, "blackhole": BLACKHOLE}
WATCHES = {"interfaces": ("interfaces",), "red": ("routes", "--vrf", "red"),
           "ipv4": ("routes", "--vrf", "red", "--prefix", "0.0.0.0/0"), "ipv6": ("routes", "--vrf", "red", "--prefix", "::/0")}


class WatchOnAKernel(SystemTest):
    def setUp(self):
        batch(["link set lo up", *vrf_lines({"red": 10, "blue": 20})])
        self.system = self.new_system(source="kernel")
        self.system.start_daemon()
        for name, words in WATCHES.items():
            self.system.spawn(name, str(BIN / "mplsvpn"), "--json", "watch", *words, "--interval", "200ms")
            wait_until(name, lambda: ", now 0 rows" in self.system.log(name))

    def rows(self, name):
        """What is left of the changes that a watch showed, by the names of the rows."""
        rows, parts = {}, ("vrfName", "ifConfIndex") if name == "interfaces" else ("prefix", "nextHop")
        for change in self.system.events(name):
            key = tuple(change[part] for part in parts)
            self.assertEqual(key in rows, change["old"] is not None, change)
            if change["new"] is None:
                self.assertEqual(change["old"], rows.pop(key), change)
                continue
            for field, value in (change["old"] or {}).items():
                self.assertEqual(rows[key].get(field, value), value, change)
            rows[key] = {**rows.get(key, {}), **change["new"]}
        return rows

    def shown(self):
        routes = [{(prefix, hop or ""): (row["ifIndex"] or 0, TYPES[row["typeName"]]) for (prefix, hop), row in self.rows(name).items()}
                  for name in ("red", "ipv4", "ipv6")]
        return {key: (row["state"], sorted(row["addresses"])) for key, row in self.rows("interfaces").items()}, *routes

    @staticmethod
    def of_kernel():
        kernel = Kernel()
        interfaces = {key: ("up" if is_up(link) else "down", sorted(f"{each['local']}/{each['prefixlen']}" for each in link["addr_info"]))
                      for key, link in kernel.members().items()}
        routes = {key: row[1:3] for key, row in vrf_routes(kernel).get("red", {}).items()}
        return interfaces, routes, *({key: row for key, row in routes.items() if (":" in key[0]) == is_ipv6} for is_ipv6 in (False, True))

    def difference(self):
        """[(row, shown, kernel)]"""
        return [(key, shown.get(key), expected.get(key)) for shown, expected in zip(self.shown(), self.of_kernel())
                for key in sorted({*shown, *expected}) if shown.get(key) != expected.get(key)]

    def step(self, *commands):
        batch(commands)
        self.becomes("; ".join(commands), self.difference, [])
        print(f"{len(commands)} commands: {len(self.rows('interfaces'))} interfaces, {len(self.rows('red'))} routes")

    def test_changes_add_up_to_the_kernel(self):
        self.step(*member_lines({"d0": "red", "d1": "red", "d2": "blue", "d4": ""}, "link set {name} addrgenmode none", "link set {name} up"))
        self.step("addr add 10.0.0.1/24 dev d0", "addr add 10.1.0.1/24 dev d1", "addr add 2001:db8:10::1/64 dev d0 nodad")
        self.step("route add 192.168.1.0/24 via 10.0.0.2 vrf red", "route add unreachable default metric 4278198272 vrf red",
                  "route add blackhole 192.168.4.0/24 vrf red", "route add default via 10.1.0.2 vrf red",
                  "route add 192.168.3.0/24 dev d1 scope link vrf red", "route add unreachable ::/0 metric 4278198272 vrf red",
                  "route add 192.168.8.0/24 vrf red nexthop via 10.0.0.2 nexthop via 10.1.0.2",
                  "route add 2001:db8:aaaa::/48 via 2001:db8:10::2 vrf red")
        self.step("route del default via 10.1.0.2 vrf red", "route replace 192.168.1.0/24 via 10.1.0.2 vrf red")
        self.step("link set d1 down", "link set d2 master red")
        self.step("link set d1 up", "addr del 10.1.0.1/24 dev d1", "addr add 10.1.0.7/24 dev d1")
        self.system.kill("daemon")
        batch(["link set d2 nomaster", "link set d4 master blue", "route del 192.168.4.0/24 vrf red",
               "route add 192.168.5.0/24 via 10.0.0.2 vrf red"])
        self.system.start_daemon()
        self.step("link set d0 down")
        self.step("link del red")


if __name__ == "__main__":
    subprocess.run(["modprobe", "-a", "vrf", "dummy"], check=True)
    unittest.main(verbosity=2)
