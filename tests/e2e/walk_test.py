#!/usr/bin/env python3
"""The scalars and the interface table as stock SNMP tools read them, value by value against the router file."""
import random
import unittest

from system import IF_CONF, L3VPN, SCALARS, SharedSystemTest, expected_if_conf, name_index, oid_tuple

ROUTER = """
vrfs:
  - {name: red, table: 10}
  - {name: blue, table: 20}
  - {name: a-much-longer-name-of-31-octets, table: 30}
  - {name: empty, table: 40}
  - {name: later, state: referenced}
interfaces:
  - {name: ge0, index: 11, vrf: red, state: up, addresses: [10.0.0.1/24]}
  - {name: ge1, index: 12, vrf: red, state: up, addresses: [10.0.1.1/24]}
  - {name: ge2, index: 300000, vrf: red, state: down, addresses: [10.0.2.1/24]}
  - {name: ge3, index: 14, vrf: blue, state: up, addresses: ["2001:db8::1/64"]}
  - {name: ge4, index: 15, vrf: a-much-longer-name-of-31-octets, state: up}
  - {name: ge5, index: 16, state: up, addresses: [192.0.2.1/24]}
  - {name: ge6, index: 17, vrf: nowhere, state: up, addresses: [10.9.0.1/24]}
  - {name: ge7, index: 18, vrf: later, state: up, addresses: [10.8.0.1/24]}
  - {name: ge8.ip6, index: 19, vrf: red, state: up, addresses: [10.7.0.1/24]}
"""
MEMBERS = [("red", 11), ("red", 12), ("red", 300000), ("blue", 14), ("a-much-longer-name-of-31-octets", 15)]
# red: two active interfaces; blue: active by its IPv6 address; the third has no address; empty has no interface.
SCALAR_VALUES = {1: "4", 2: "2", 3: "5", 4: "2", 5: "0", 6: "0", 7: "0"}


class Walk(SharedSystemTest):
    router = ROUTER

    def expected(self):
        scalars = [(oid_tuple(SCALARS) + (column, 0), value) for column, value in SCALAR_VALUES.items()]
        return scalars + expected_if_conf(MEMBERS)

    def walk(self, **options):
        return self.system.walk(SCALARS, **options) + self.system.walk(IF_CONF, **options)

    def test_walk_shows_exactly_the_router(self):
        self.assertEqual(self.walk(), self.expected())

    def test_bulk_walk_of_every_size_shows_the_same(self):
        for repetitions in (1, 2, 3, 7, 50):
            rows = self.walk(tool="bulkwalk", options=(f"-Cr{repetitions}",))
            self.assertEqual(rows, self.expected(), repetitions)

    def test_get_of_every_instance_returns_the_walked_value(self):
        for oid, value in self.expected():
            self.assertEqual(self.system.get_value(".".join(map(str, oid))), value, oid)

    def test_getnext_from_any_oid_finds_the_next_row(self):
        expected = self.expected()
        randomly = random.Random(7)
        starts = [oid for oid, _ in expected[:-1]]
        for oid, _ in expected:  # truncated anywhere, and with each component one larger or smaller
            cut = randomly.randint(len(oid_tuple(L3VPN)), len(oid))
            starts.append(oid[:cut])
            place = randomly.randint(len(oid_tuple(L3VPN)), len(oid) - 1)
            starts.append(oid[:place] + (max(0, oid[place] + randomly.choice((-1, 1))),) + oid[place + 1:])
        for start in starts:
            after = [row for row in expected if row[0] > start]
            if not after:
                continue
            result = self.system.snmp("getnext", ".".join(map(str, start)))
            oid, _, value = result.stdout.strip().partition(" ")
            self.assertEqual((oid_tuple(oid), value), after[0], start)

    def test_one_request_with_many_ranges_is_answered_whole(self):
        oids = [".".join(map(str, oid)) for oid, _ in self.expected()]
        result = self.system.snmp("get", *oids)
        self.assertEqual([line.partition(" ")[2] for line in result.stdout.splitlines()],
                         [value for _, value in self.expected()])

    def test_absent_partial_and_absurd_indexes_have_no_instance(self):
        red = ".".join(map(str, name_index("red")))
        for index in ("", ".3", f".{red}", f".{red}.13", f".{red}.11.1", f".{red}.0", f".{red}.4294967295", ".0.11",
                      ".31" + ".97" * 31 + ".11", ".32" + ".97" * 32 + ".11", ".3.114.101.356.11", ".4294967295.1",
                      ".7.110.111.119.104.101.114.101.17", ".5.108.97.116.101.114.18", ".7" + ".100.101.102.97.117.108.116.16"):
            result = self.system.snmp("get", f"{IF_CONF}.1.5{index}")
            self.assertIn("No Such Instance", result.stdout, index)
        self.assertIn("No Such", self.system.snmp("get", f"{IF_CONF}.1.1.{red}.11").stdout)
        self.assertIn("No Such", self.system.snmp("get", f"{IF_CONF}.1.6.{red}.11").stdout)
        self.assertIn("No Such Instance", self.system.snmp("get", f"{SCALARS}.1.1").stdout)
        self.assertIn("No Such", self.system.snmp("get", f"{SCALARS}.8.0").stdout)

    def test_set_is_refused_and_the_walk_continues(self):
        system = self.system
        result = system.snmp("set", f"{SCALARS}.4.0", "i", "1", options=("-c", "private"))
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("notWritable", result.stderr + result.stdout)
        self.assertEqual(self.walk(), self.expected())

    def test_command_line_shows_the_same_scalars_and_interfaces(self):
        scalars = self.system.cli_json("show", "scalars")
        self.assertEqual((scalars["configuredVrfs"], scalars["activeVrfs"], scalars["connectedInterfaces"]), (4, 2, 5))
        interfaces = self.system.cli_json("show", "interfaces")
        self.assertEqual(sorted((row["vrfName"], row["ifConfIndex"]) for row in interfaces), sorted(MEMBERS))

    def test_every_interface_index_is_that_of_the_table(self):
        names = {row["ifConfIndex"]: row["name"] for row in self.system.cli_json("show", "interfaces", "red")}
        self.assertEqual(names, {11: "ge0", 12: "ge1", 300000: "ge2"})


if __name__ == "__main__":
    unittest.main()
