#!/usr/bin/env python3
"""system_routes.py BIN_DIRECTORY: the routes of VRFs, through the whole system, on a real kernel. Runs in the guest (see
uml-run), as root.

After every step the walk of the route table, value by value, the number of routes of every VRF, the command line and what is
missing of a VRF must equal `ip -j route show vrf`.
"""
import ipaddress
import json
import os
import subprocess
import unittest

from guest_system import GuestSystemTest  # before system
from kernel import Kernel, batch, member_lines, vrf_lines
from routes import LOCAL, REMOTE, vrf_routes
from system import PERF_ENTRY, RAW, ROUTE_ENTRY, SLOW, SystemTest, dotted, name_index, route_index, wait_until

WATCHED = ("0.0.0.0/0", "192.168.4.0/24", "10.0.0.0/24", "192.168.1.0/24", "192.168.8.0/24", "192.168.9.0/24",
           "2001:db8:10::/64", "2001:db8:cccc::/48")
LOW = 8  # IPv4 routes of red

INTERFACE, TYPE, PROTOCOL, METRIC, POINTER, STATUS = 7, 8, 9, 12, 17, 18
NO_METRIC = "-1"


def expected_cells(routes):
    """{oid: value} of the columns that the kernel knows."""
    cells = {}
    for vrf, rows in routes.items():
        for (prefix, next_hop), (metric, index, kind, labels, protocol) in rows.items():
            hop = ipaddress.ip_address(next_hop) if next_hop else None
            place = route_index(vrf, ipaddress.ip_network(prefix), hop, kind == LOCAL)
            for column, value in ((INTERFACE, index), (TYPE, kind), (PROTOCOL, protocol), (STATUS, 1),
                                  (METRIC, metric if metric else "0 or -1"), (POINTER, "labels" if labels else '"00 "')):
                cells[ROUTE_ENTRY + (column,) + place] = str(value)
    return cells


def seen_cells(walked):
    cells = {}
    for oid, value in walked:
        column = oid[len(ROUTE_ENTRY)]
        if column == METRIC and value in ("0", NO_METRIC):
            value = "0 or -1"  # ip(8) prints no metric for 0
        if column == POINTER and value != '"00 "':
            value = "labels"
        if column in (INTERFACE, TYPE, PROTOCOL, METRIC, POINTER, STATUS):
            cells[oid] = value
    return cells


def no_hop_is_empty(address):
    return "" if address in ("0.0.0.0", "::") else address


class RoutesOnAKernel(GuestSystemTest):
    def difference(self):
        """(what, kernel, shown) of rows that only the system or only the kernel has; empty when they agree."""
        routes = vrf_routes(Kernel())
        expected, seen = expected_cells(routes), seen_cells(self.system.walk(dotted(ROUTE_ENTRY), options=RAW))
        found = [(dotted(oid[len(ROUTE_ENTRY):]), expected.get(oid), seen.get(oid))
                 for oid in sorted({*expected, *seen}) if expected.get(oid) != seen.get(oid)]
        for vrf, rows in routes.items():
            number = self.system.get_value(dotted(PERF_ENTRY + (3,) + name_index(vrf)))
            if number != str(len(rows)):
                found.append((f"number of routes of {vrf}", len(rows), number))
            listed = {(row["prefix"], no_hop_is_empty(row["nextHop"]))
                      for row in self.system.cli_json("show", "routes", vrf)}
            found += [(f"show routes {vrf}", "only one has it", each) for each in sorted(listed ^ set(rows))]
        return found + self.difference_of_missing(routes.get("red", {}))

    def difference_of_missing(self, rows):
        """The same of red's watched prefixes and of its low-water mark."""
        red, = self.system.cli_json("show", "thresholds")
        shown = {each["prefix"]: each["present"] for each in red["prefixes"]} | {"low": red["tables"][0]["state"] == "low"}
        forwarded = {prefix for (prefix, _), row in rows.items() if row[2] in (LOCAL, REMOTE)}
        expected = {prefix: prefix in forwarded for prefix in WATCHED}
        expected["low"] = sum(":" not in prefix for prefix, _ in rows) < LOW
        return [(f"watched {what}", expected[what], shown.get(what)) for what in expected if expected[what] != shown.get(what)]

    def step(self, *commands):
        batch(commands)
        self.becomes("; ".join(commands), self.difference, [])
        print(f"{len(commands)} commands: " + ", ".join(f"{vrf} {len(rows)} routes" for vrf, rows in vrf_routes(Kernel()).items()))

    def restart_daemon(self):
        """What is not lost is not reported, although the new process knows no route when it starts."""
        changed = lambda: {each["prefix"]: each["changed"] for each in self.system.cli_json("show", "thresholds")[0]["prefixes"]}
        before, log = changed(), self.system.log("daemon")
        self.system.processes["daemon"].terminate()
        self.system.processes["daemon"].wait(timeout=20 * SLOW)
        self.system.start_daemon()
        self.becomes("the routes after a restart", self.difference, [])
        self.assertNotIn("watched prefix", self.system.log("daemon").removeprefix(log))
        self.assertEqual(changed(), before)

    def test_life_of_the_routes_of_two_vrfs(self):
        self.system.cli("config", "set", "vrf", "red", "low-water", "ipv4", str(LOW), "0", check=True)
        for prefix in WATCHED:
            self.system.cli("config", "set", "vrf", "red", "watch", prefix, check=True)
        self.step("link set lo up", *vrf_lines({"red": 10, "blue": 20}),
                  *member_lines({"d0": "red", "d1": "red", "d2": "blue", "d4": ""}, "link set {name} up"))
        self.step("addr add 10.0.0.1/24 dev d0", "addr add 10.1.0.1/24 dev d1", "addr add 10.0.0.1/24 dev d2",
                  "addr add 10.99.0.1/24 dev d4", "addr add 2001:db8:10::1/64 dev d0 nodad",
                  "addr add 2001:db8:11::1/64 dev d1 nodad", "addr add 2001:db8:20::1/64 dev d2 nodad")
        self.step("route add unreachable default metric 4278198272 vrf red",
                  "route add 192.168.1.0/24 via 10.0.0.2 vrf red",
                  "route add 192.168.2.0/24 via 10.0.0.2 metric 50 proto static vrf red",
                  "route add 192.168.3.0/24 dev d1 proto static scope link vrf red",
                  "route add blackhole 192.168.4.0/24 vrf red", "route add prohibit 192.168.6.0/24 vrf red",
                  "route add 192.168.8.0/24 vrf red nexthop via 10.0.0.2 nexthop via 10.1.0.2 weight 3",
                  "route add 192.168.9.0/24 via 10.0.0.2 metric 20 proto 186 vrf red",
                  "route add 192.168.10.0/24 via 10.1.0.2 metric 30 proto 188 vrf red",
                  "route add 192.168.1.0/24 via 10.0.0.3 vrf blue")
        self.step("route add unreachable ::/0 metric 4278198272 vrf red",
                  "route add 2001:db8:aaaa::/48 via 2001:db8:10::2 metric 30 vrf red",
                  "route add blackhole 2001:db8:bbbb::/48 vrf red",
                  "route add 2001:db8:cccc::/48 vrf red nexthop via 2001:db8:10::2 nexthop via 2001:db8:11::2",
                  "route add 2001:db8:dddd::/48 via 2001:db8:20::2 vrf blue")
        if os.path.isdir("/proc/sys/net/mpls"):
            self.step("route add 10.9.0.0/16 encap mpls 200 via 10.99.0.2 dev d4 proto bgp vrf red",
                      "route add 10.10.0.0/16 encap mpls 1002/16 via 10.99.0.2 dev d4 proto bgp vrf red")
        self.step("route add default via 10.0.0.2 vrf red", "route del 192.168.9.0/24 vrf red",
                  "route replace 192.168.1.0/24 via 10.1.0.2 vrf red")
        self.restart_daemon()
        self.step("link set d0 down")
        self.step("link set d0 up")
        self.step("link set d1 master blue")
        self.step("link del red")


class TablesThatAreNotRead(SystemTest):
    def test_table_that_is_never_read_is_not_low_and_is_reported(self):
        batch(["link add red type vrf table 1010", "link set red up"])
        self.addCleanup(batch, ["link del red"])
        system = self.new_system(source="kernel", environment={"MPLS_VPN_MIB_FAULTS": "netlink_route_dump_request=5@1+0"})
        system.start_daemon()
        system.cli("config", "set", "vrf", "red", "low-water", "ipv4", "1", "0", check=True)
        system.cli("config", "set", "vrf", "red", "watch", "2001:db8::/32", check=True)
        missing = {"lowTables": 0, "absentPrefixes": 0, "watchedPrefixes": 1, "notWatchedPrefixes": 0, "unreadTables": 2}
        self.becomes("what is not known", lambda: system.cli_json("show", "status")["missingRoutes"], missing)
        self.assertIn(", 2 tables not read yet\n", system.cli("show", "status").stdout)
        red, = system.cli_json("show", "thresholds")
        self.assertEqual([(table["family"], table["state"]) for table in red["tables"]], [("ipv4", "notRead"), ("ipv6", "notRead")])
        self.assertEqual(red["prefixes"][0]["present"], None)

        def findings():
            return [finding["text"] for check in ("routes-low", "watched-prefix") for finding in
                    json.loads(system.cli("--json", "doctor", "--only", check).stdout)[0]["findings"]]
        wait_until("the warning", findings, 60)
        self.assertRegex(findings()[0], r"^VRF red: its ipv4 routes are not read for 2\d s; until they are, its low-water mark and watched "
                         "prefixes are not compared$")
        self.assertNotIn("below its low-water mark of 1", system.log("daemon"))
        # The families were set one after the other.
        self.becomes("both warnings", lambda: system.log("daemon").count("routes are not read after 20 s"), 2)


if __name__ == "__main__":
    subprocess.run(["modprobe", "-a", "vrf", "dummy"], check=True)
    if subprocess.run(["modprobe", "-a", "mpls_router", "mpls_iptunnel"], check=False).returncode != 0:
        print("SKIPPED: no MPLS modules for this kernel: routes with labels are not tested", flush=True)
    unittest.main(verbosity=2)
