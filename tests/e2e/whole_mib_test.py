#!/usr/bin/env python3
"""Every table of the MIB module as stock SNMP tools read it, value by value against the router file."""
import json
import random
import re
import subprocess
import time
import unittest

from system import (IF_CONF, IF_ENTRY, PERF_ENTRY, RAW, ROOT, ROOT_OID, ROUTE_ENTRY, RT_ENTRY, SCALARS, SEC_ENTRY, VRF_ENTRY,
                    SharedSystemTest, SystemTest, check_increasing, dotted, name_index, oid_tuple, parse_walk, wait_until)
from whole_mib import ROUTER, expected, masked, members_by_name, paths, route_targets, vrfs


class WholeMib(SharedSystemTest):
    router = json.dumps(ROUTER)

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.expected = expected()
        many = dotted(PERF_ENTRY + (3,) + name_index("many"))
        wait_until("the generated routes", lambda: cls.system.get_value(many) == "301")
        cls.walked = cls.system.walk(options=RAW)

    def value(self, oid):
        result = self.system.snmp("get", dotted(oid), options=RAW)
        return result.stdout.strip().partition(" ")[2]

    def test_walk_shows_exactly_the_router(self):
        self.assertEqual([oid for oid, _ in self.walked], [oid for oid, _ in self.expected])
        self.assertEqual(masked(self.walked, self.expected), self.expected)

    def test_bulk_walk_of_every_size_shows_the_same(self):
        for repetitions in (1, 7, 50, 200):
            rows = self.system.walk(tool="bulkwalk", options=(*RAW, f"-Cr{repetitions}"))
            self.assertEqual(masked(rows, self.expected), self.expected, repetitions)

    def test_walk_of_each_table_is_its_part_of_the_whole(self):
        for entry in (IF_ENTRY, VRF_ENTRY, RT_ENTRY, SEC_ENTRY, PERF_ENTRY, ROUTE_ENTRY):
            part = [row for row in self.expected if row[0][:len(entry)] == entry]
            self.assertTrue(part)
            self.assertEqual(masked(self.system.walk(dotted(entry), options=RAW), part), part)

    def test_get_of_every_instance_returns_the_walked_value(self):
        ages = {}
        for start in range(0, len(self.walked), 25):
            rows = self.walked[start:start + 25]
            result = self.system.snmp("get", *(dotted(oid) for oid, _ in rows), options=RAW)
            values = [line.partition(" ")[2].strip() for line in result.stdout.splitlines()]
            self.assertEqual(len(values), len(rows))
            for (oid, walked), got in zip(rows, values):
                if oid[:len(ROUTE_ENTRY) + 1] == ROUTE_ENTRY + (10,):
                    ages[oid] = (int(walked), int(got))
                else:
                    self.assertEqual(got, walked, oid)
        self.assertGreater(len(ages), 300)
        for oid, (before, after) in ages.items():  # seconds since the last change
            self.assertTrue(before <= after < before + 600, oid)

    def test_getnext_from_any_oid_finds_the_next_row(self):
        randomly = random.Random(11)
        oids = [oid for oid, _ in self.expected]
        for _ in range(400):
            oid = randomly.choice(oids)
            start = oid[:randomly.randint(len(ROOT_OID), len(oid))]
            if randomly.random() < 0.5:
                place = randomly.randint(len(ROOT_OID), len(start)) - 1
                start = start[:place] + (max(0, start[place] + randomly.choice((-1, 1))),) + start[place + 1:]
            after = [oid for oid in oids if oid > start]
            if start < ROOT_OID or not after:
                continue
            result = self.system.snmp("getnext", dotted(start))
            found = result.stdout.partition(" ")[0]
            self.assertEqual(oid_tuple(found), after[0], start)

    def test_absent_partial_and_absurd_indexes_have_no_instance(self):
        red = name_index("red")
        route = red + (1, 4, 10, 1, 0, 0, 16, 2, 0, 0, 1, 4, 10, 0, 0, 2)
        self.assertEqual(self.value(ROUTE_ENTRY + (8,) + route), "4")
        indexes = [route[:cut] for cut in range(len(route))]
        indexes += [route[:place] + (value,) + route[place + 1:] for place in range(len(route))
                    for value in (0, route[place] + 1, 256, 2 ** 32 - 1) if value != route[place]]
        present = {oid[len(ROUTE_ENTRY) + 1:] for oid, _ in self.expected}
        indexes = [index for index in indexes if index not in present]
        for start in range(0, len(indexes), 20):
            oids = [dotted(ROUTE_ENTRY + (8,) + index) for index in indexes[start:start + 20]]
            result = self.system.snmp("get", *oids)
            self.assertEqual(result.stdout.count("No Such Instance"), len(oids), result.stdout)
        for entry in (VRF_ENTRY + (4,), SEC_ENTRY + (1,), PERF_ENTRY + (3,)):
            for index in ((), (3,), red[:3], red + (0,), (0,), name_index("later"), name_index("default"), (32,) + (97,) * 32,
                          (3, 114, 101, 356)):
                self.assertEqual(self.value(entry + index), "No Such Instance currently exists at this OID", index)
        self.assertEqual(self.value(RT_ENTRY + (4,) + red + (1, 1)), '"65000:99"')
        for index in ((), red, red + (1,), red + (1, 2), red + (0, 1), red + (1, 4), red + (1, 3), red + (10, 2), red + (1, 1, 1)):
            self.assertEqual(self.value(RT_ENTRY + (4,) + index), "No Such Instance currently exists at this OID", index)

    def test_absent_partial_and_absurd_indexes_have_no_interface(self):
        red = dotted(name_index("red"))
        for index in ("", ".3", f".{red}", f".{red}.13", f".{red}.11.1", f".{red}.0", f".{red}.4294967295", ".0.11",
                      ".31" + ".97" * 31 + ".11", ".32" + ".97" * 32 + ".11", ".3.114.101.356.11", ".4294967295.1",
                      *(f".{dotted(name_index(vrf))}.{index}" for vrf, index in (("nowhere", 17), ("later", 18), ("default", 16),
                                                                                ("blue", 19)))):
            result = self.system.snmp("get", f"{IF_CONF}.1.5{index}")
            self.assertIn("No Such Instance", result.stdout, index)
        for absent in (f"{IF_CONF}.1.1.{red}.11", f"{IF_CONF}.1.6.{red}.11", f"{SCALARS}.1.1", f"{SCALARS}.8.0"):
            self.assertIn("No Such", self.system.snmp("get", absent).stdout, absent)

    def test_set_is_refused_and_the_walk_continues(self):
        result = self.system.snmp("set", f"{SCALARS}.4.0", "i", "1", options=("-c", "private"))
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("notWritable", result.stderr + result.stdout)
        self.assertEqual(masked(self.system.walk(options=RAW), self.expected), self.expected)

    def test_command_line_shows_the_same_scalars_and_interfaces(self):
        scalars = self.system.cli_json("show", "scalars")
        self.assertEqual([str(scalars[name]) for name in ("configuredVrfs", "activeVrfs", "connectedInterfaces")],
                         [value for _, value in self.expected[:3]])
        shown = {row["name"]: (row["vrfName"], row["ifConfIndex"]) for row in self.system.cli_json("show", "interfaces")}
        self.assertEqual(shown, members_by_name())

    def test_labelled_route_has_a_cross_connect(self):
        index = name_index("red") + (1, 4, 10, 3, 0, 0, 16, 2, 0, 0, 1, 4, 10, 0, 0, 2)
        pointer = self.value(ROUTE_ENTRY + (17,) + index)
        self.assertRegex(pointer, r'^"([0-9A-F]{2} ){1,24}"$')
        self.assertNotEqual(pointer, '"00 "')

    def test_tables_of_snmptable(self):
        for name, rows in (("mplsL3VpnVrfTable", len(vrfs())),
                           ("mplsL3VpnVrfRTTable", sum(len(route_targets(vrf)) for vrf in ROUTER["vrfs"])),
                           ("mplsL3VpnVrfPerfTable", len(vrfs())), ("mplsL3VpnVrfSecTable", len(vrfs())),
                           ("mplsL3VpnVrfRteTable", sum(len(list(paths(vrf))) for vrf in vrfs()))):
            environment = {key: value for key, value in self.system.environment.items() if not key.startswith("MIB")}
            result = subprocess.run(
                ["snmptable", "-v2c", "-c", "public", "-m", "MPLS-L3VPN-STD-MIB", "-M", str(ROOT / "packaging/mibs"), "-Cf", "|",
                 "-CH", f"127.0.0.1:{self.system.port}", f"MPLS-L3VPN-STD-MIB::{name}"],
                env=environment, capture_output=True, text=True, timeout=120, check=False)
            lines = [line for line in result.stdout.splitlines() if "|" in line]
            self.assertEqual(len(lines), rows, result.stderr + result.stdout[:500])
            self.assertFalse([line for line in lines if "?" in line], "a missing cell")
            if name == "mplsL3VpnVrfTable":
                self.assertTrue(re.search(r'\|65000:100\|.*\|up\|1\|3\|', result.stdout), result.stdout)


class TimeStamps(SystemTest):
    def setUp(self):
        self.system = self.new_system(json.dumps({"vrfs": [{"name": "old", "table": 10}], "interfaces": [
            {"name": "ge0", "index": 11, "state": "up", "addresses": ["10.0.0.1/24"]}]}))

    def ticks(self, *columns, vrf):
        oids = [dotted(VRF_ENTRY + (column,) + name_index(vrf)) for column in columns]
        result = self.system.snmp("get", "1.3.6.1.2.1.1.3.0", *oids, options=RAW)
        return [int(line.split(" ")[1]) for line in result.stdout.splitlines()]

    def test_creation_and_change_are_in_the_masters_sysuptime(self):
        system = self.system
        system.start_daemon()
        # More than a second between the VRF's creation and the master's start: its time stamp is in whole seconds.
        created = system.cli_json("get", "vrf/old")["creationTime"]
        wait_until("another second", lambda: time.time() >= created + 2)
        system.start_snmpd()
        system.start_agent()
        self.assertEqual(self.ticks(5, 12, vrf="old")[1:], [0, 0], "before the master started")
        before = self.ticks(5, vrf="old")[0]
        wait_until("three seconds of sysUpTime", lambda: self.ticks(5, vrf="old")[0] > 300)
        system.cli("router", "add-vrf", "new", check=True)
        wait_until("the new VRF", lambda: system.get_value(dotted(VRF_ENTRY + (13,) + name_index("new"))) == "1")
        up_time, creation, changed = self.ticks(5, 12, vrf="new")
        self.assertTrue(before <= creation <= up_time and up_time - creation < 3000, (before, creation, up_time))
        wait_until("a later second", lambda: self.ticks(5, vrf="old")[0] > up_time + 150)
        system.cli("router", "move", "ge0", "new", check=True)
        wait_until("the change", lambda: self.ticks(12, vrf="new")[1] > changed)
        up_time, creation_again, changed = self.ticks(5, 12, vrf="new")
        self.assertEqual(creation_again, creation)
        self.assertTrue(creation < changed <= up_time)
        self.assertEqual(self.ticks(12, vrf="old")[1], 0)
        # A new master starts at 0 again.
        system.kill("snmpd")
        last_change = system.cli_json("get", "vrf/new")["confLastChanged"]
        wait_until("yet another second", lambda: time.time() >= last_change + 2)
        system.start_snmpd()
        system.wait_registered()
        self.assertEqual(self.ticks(5, 12, vrf="new")[1:], [0, 0])


class Changes(SystemTest):
    ROUTES = 3000

    def setUp(self):
        stay = {"generate": self.ROUTES, "prefix": "20.0.0.0/24", "next_hop": "20.0.0.1"}
        self.system = self.new_system(json.dumps({"vrfs": [
            {"name": "a", "table": 10, "routes": [stay, {"prefix": "2001:db8::/32", "next_hop": "2001:db8::1"}]},
            {"name": "b", "table": 20}, {"name": "c", "table": 30, "routes": [stay]}]}))
        self.system.start_all()
        for vrf in ("a", "c"):
            oid = dotted(PERF_ENTRY + (3,) + name_index(vrf))
            wait_until("the routes", lambda oid=oid: int(self.system.get_value(oid)) >= self.ROUTES)

    def test_unchanged_rows_are_shown_exactly_once_while_others_are_added_and_deleted(self):
        system = self.system
        column = dotted(ROUTE_ENTRY + (7,))
        stay = {oid for oid, _ in system.walk(column)}
        self.assertEqual(len(stay), 2 * self.ROUTES + 1)
        for _ in range(3):
            walk = subprocess.Popen(
                ["snmpwalk", "-v2c", "-c", "public", "-One", "-Oq", "-t", "20", f"127.0.0.1:{system.port}", column],
                env=system.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            rounds = 0
            try:
                with_walk = []
                reader = iter(walk.stdout.readline, "")
                for number, line in enumerate(reader):
                    with_walk.append(line)
                    if number % 1000 != 500:
                        continue
                    rounds += 1
                    if rounds % 2:
                        system.cli("router", "add-vrf", "bb", check=True)
                        system.cli("router", "add-route", "b", "10.0.0.0/8", "via", "10.0.0.1", check=True)
                        system.cli("router", "add-route", "a", "20.0.0.128/25", "via", "10.0.0.1", check=True)
                    else:
                        system.cli("router", "delete-vrf", "bb", check=True)
                        system.cli("router", "delete-route", "b", "10.0.0.0/8", "via", "10.0.0.1", check=True)
                        system.cli("router", "delete-route", "a", "20.0.0.128/25", "via", "10.0.0.1", check=True)
            finally:
                walk.wait(timeout=120)
                errors = walk.stderr.read()
                walk.stdout.close()
                walk.stderr.close()
            self.assertGreater(rounds, 3)
            self.assertEqual(walk.returncode, 0, errors)
            rows = parse_walk("".join(with_walk))
            check_increasing(rows)
            self.assertEqual(len([oid for oid, _ in rows if oid in stay]), len(stay))


if __name__ == "__main__":
    unittest.main()
