#!/usr/bin/env python3
"""Every table of the MIB module as stock SNMP tools read it, value by value against the router file."""
import ipaddress
import itertools
import json
import random
import re
import subprocess
import time
import unittest

from system import (IF_CONF, IF_ENTRY, PERF_ENTRY, RAW, ROOT, ROOT_OID, ROUTE_ENTRY, RT_ENTRY, SCALARS, SEC_ENTRY, VRF_ENTRY,
                    SharedSystemTest, SystemTest, check_increasing, dotted, expected_if_conf, name_index, oid_tuple, parse_walk,
                    route_index, wait_until)

LONGEST = "a-much-longer-name-of-31-octets"
ANY = "*"  # values that tests of their own check

# JSON is YAML: the router is data, from which the tests compute what a walk must show.
ROUTER = {
    "vrfs": [
        # As in many Linux VRFs: a default route of type unreachable, without next hop, as the very first route.
        {"name": "red", "table": 10, "description": "Red Rail", "rd": "65000:100",
         "route_targets": {"both": ["65000:100"], "import": ["65000:99", "192.0.2.1:7"], "ipv6": {"export": ["4200000000:6"]}},
         "thresholds": {"ipv4": {"maximum": 4000000000, "mid": 80}}, "bgp": {"as": 65000, "neighbors": ["10.0.0.2"]},
         "ospf": [{"process": 1, "area": 0, "interfaces": ["ge0", "ge3"]}], "rip": {"interfaces": ["ge1"]},
         "eigrp": [{"as": 9, "interfaces": ["ge0", "ge1"]}], "routes": [
            {"prefix": "0.0.0.0/0", "type": "reject"},
            {"prefix": "10.0.0.0/8", "type": "blackhole"},
            {"prefix": "10.0.1.0/24", "interface": "ge0"},
            {"prefix": "10.0.1.0/24", "next_hop": "10.0.0.7", "interface": "ge0", "protocol": "ospf", "metric": 20},
            {"prefix": "10.1.0.0/16", "next_hops": ["10.0.0.2", "10.0.0.3"], "interface": "ge0", "protocol": "static"},
            {"prefix": "10.2.0.0/16", "next_hop": "10.0.0.2", "interface": "ge0", "protocol": "bgp",
             "metrics": [1, 2, 3, 4, 5], "next_hop_as": 65010},
            {"prefix": "10.3.0.0/16", "next_hop": "10.0.0.2", "interface": "ge0", "labels": [1002, 16]},
            {"prefix": "::/0", "type": "reject"},
            {"prefix": "2001:db8:1::/64", "interface": "ge0"},
            {"prefix": "2001:db8:1::/64", "next_hop": "2001:db8::7", "interface": "ge0"},
            {"prefix": "2001:db8:2::/48", "next_hop": "2001:db8::2", "interface": "ge0", "protocol": "bgp",
             "metrics": [1, 2, 3, 4, 5], "next_hop_as": 65010},
            {"prefix": "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128", "next_hop": "ffff::1", "interface": "ge0"},
        ]},
        # In the order of names: IPv4 only (after a VRF whose last routes are IPv6), no routes, IPv6 only.
        {"name": "blue", "table": 20, "rd": "10.1.1.1:55", "description": "B\u00fcro",
         "static": [{"prefix": "10.0.0.0/8", "next_hop": "10.0.0.1"}], "routes": [
            {"prefix": "0.0.0.0/0", "type": "local", "interface": "ge3"},
            {"prefix": "255.255.255.255/32", "next_hop": "255.255.255.255", "interface": "ge3"},
        ]},
        {"name": "none", "table": 30, "description": "", "rd": "4200000000:7"},
        {"name": "sixer", "tables": {"ipv4": 41, "ipv6": 40}, "route_targets": {"ipv6": {"both": ["1:2"]}}, "routes": [
            {"prefix": "::/0", "type": "local", "interface": "ge4"},
            {"prefix": "2001:db8::/32", "next_hop": "2001:db8::1", "interface": "ge4"},
        ]},
        {"name": LONGEST, "table": 50, "routes": [
            {"prefix": "10.0.0.0/8", "next_hop": "10.0.0.1", "interface": "ge4"},
            {"prefix": "2001:db8::/32", "next_hop": "2001:db8::1", "interface": "ge4"},
        ]},
        {"name": "many", "table": 60, "routes": [
            {"generate": 300, "prefix": "20.0.0.0/24", "next_hop": "20.0.0.1", "interface": "ge4", "protocol": "bgp"},
            {"prefix": "20.0.200.0/24", "interface": "ge4"},
        ]},
        {"name": "later", "state": "referenced", "description": "soon", "route_targets": {"ipv4": {"export": ["65000:5"]}}},
    ],
    "interfaces": [
        {"name": "ge0", "index": 11, "vrf": "red", "state": "up", "addresses": ["10.0.0.1/24"]},
        {"name": "ge1", "index": 12, "vrf": "red", "state": "down", "addresses": ["10.0.1.1/24"]},
        {"name": "ge3", "index": 14, "vrf": "blue", "state": "up"},
        {"name": "ge4", "index": 15, "vrf": LONGEST, "state": "up", "addresses": ["2001:db8::1/64"]},
        {"name": "ge5", "index": 16, "state": "up", "addresses": ["192.0.2.1/24"]},
        {"name": "ge2", "index": 300000, "vrf": "red", "state": "down", "addresses": ["10.0.2.1/24"]},
        {"name": "ge6", "index": 17, "vrf": "nowhere", "state": "up", "addresses": ["10.9.0.1/24"]},
        {"name": "ge7", "index": 18, "vrf": "later", "state": "up", "addresses": ["10.8.0.1/24"]},
        {"name": "ge8.ip6", "index": 19, "vrf": "blue", "state": "up"},  # of a subscriber
    ],
}
PROTOCOL_BITS = {("red", 11): (1, 2, 6), ("red", 12): (1, 3, 6), ("red", 300000): (1,), ("blue", 14): (5,)}
TYPES = {"other": 1, "reject": 2, "local": 3, "remote": 4, "blackhole": 5}
PROTOCOLS = {"other": 1, "local": 2, "static": 3, "ospf": 13, "bgp": 14}


def vrfs():
    return sorted((vrf for vrf in ROUTER["vrfs"] if vrf.get("state") != "referenced"),
                  key=lambda vrf: name_index(vrf["name"]))


def paths(vrf):
    """(network, next hop or None, route) of each row."""
    for route in vrf.get("routes", []):
        first = ipaddress.ip_network(route["prefix"])
        for number in range(route.get("generate", 1)):
            step = number * 2 ** (first.max_prefixlen - first.prefixlen)
            network = ipaddress.ip_network((int(first.network_address) + step, first.prefixlen)) if step else first
            for hop in route.get("next_hops", [route.get("next_hop")]):
                yield network, ipaddress.ip_address(hop) if hop else None, route


def route_type(hop, route):
    if "type" in route:
        return TYPES[route["type"]]
    return TYPES["remote"] if hop else TYPES["local"]


def route_targets(vrf):
    """(type, family, text) of each, in the order of their numbers."""
    configured = vrf.get("route_targets", {})
    found = set()
    for family, word in ((1, "ipv4"), (2, "ipv6")):
        for lists in (configured, configured.get(word, {})):
            for kind, keys in ((1, ("import", "both")), (2, ("export", "both"))):
                found.update((kind, family, text) for key in keys for text in lists.get(key, []))
    return sorted(found, key=lambda each: (each[0], each[1], len(each[2]), each[2]))


def octets(text):
    """A text as the tools show it: in hexadecimal where it is not ASCII."""
    return f'"{text}"' if text.isascii() else '"' + "".join(f"{octet:02X} " for octet in text.encode()) + '"'


def route_cells(network, hop, route):
    """{column: value}; an IPv4 route has no next-hop AS, and metric 5 repeats metric 4."""
    metrics = (route.get("metrics", [route["metric"]] if "metric" in route else []) + [-1] * 5)[:5]
    next_hop_as = route.get("next_hop_as", 0)
    if network.version == 4:
        metrics[4] = metrics[3]
        next_hop_as = 0
    interfaces = {interface["name"]: interface["index"] for interface in ROUTER["interfaces"]}
    kind = route_type(hop, route)
    default = "local" if kind == TYPES["local"] else "static"
    cells = {7: interfaces.get(route.get("interface"), 0), 8: kind, 9: PROTOCOLS[route.get("protocol", default)], 10: ANY,
             11: next_hop_as, 17: ANY if "labels" in route else '"00 "', 18: 1}
    cells.update(zip(range(12, 17), metrics))
    return cells


def table(entry, rows):
    """[(oid, value)] of {index: {column: value}}, column by column."""
    columns = sorted(next(iter(rows.values()))) if rows else []
    return [(entry + (column,) + index, str(rows[index][column])) for column in columns for index in sorted(rows)]


def members_by_name():
    """{interface: (VRF, ifIndex)}."""
    names = {vrf["name"] for vrf in vrfs()}
    return {each["name"]: (each["vrf"], each["index"]) for each in ROUTER["interfaces"]
            if each.get("vrf") in names and ".ip" not in each["name"]}


def expected():
    members = list(members_by_name().values())
    active = {"red": 1, LONGEST: 1}  # up and with an address
    scalars = {1: len(vrfs()), 2: len(active), 3: len(members), 4: 2, 5: 0, 6: 0, 7: 0}
    vrf_rows, targets, security, performance, routes = {}, {}, {}, {}, {}
    for vrf in vrfs():
        name = vrf["name"]
        index = name_index(name)
        up = 1 if name in active else 2
        threshold = vrf.get("thresholds", {}).get("ipv4", {"maximum": 0, "mid": 0})
        vrf_rows[index] = {
            2: '""', 3: octets(vrf.get("description", "")), 4: f'"{vrf.get("rd", "")}"', 5: ANY, 6: up, 7: active.get(name, 0),
            8: sum(member[0] == name for member in members), 9: threshold["mid"], 10: threshold["maximum"],
            11: threshold["maximum"], 12: ANY, 13: 1, 14: up, 15: 5}
        security[index] = {1: 0, 2: 0}
        performance[index] = {1: 0, 2: 0, 3: len(list(paths(vrf))), 4: 0, 5: 0}
        for network, hop, route in paths(vrf):
            kind = route_type(hop, route)
            routes[route_index(name, network, hop, kind == TYPES["local"])] = route_cells(network, hop, route)
    # Route targets are rows even without their VRF.
    for vrf in ROUTER["vrfs"]:
        for number, (kind, family, text) in enumerate(route_targets(vrf), 1):
            targets[name_index(vrf["name"]) + (number, kind)] = {
                4: f'"{text}"', 5: f'"IPv{4 if family == 1 else 6} Unicast"', 6: 1, 7: 5}
    return ([(oid_tuple(SCALARS) + (column, 0), str(value)) for column, value in scalars.items()]
            + expected_if_conf(members, PROTOCOL_BITS) + table(VRF_ENTRY, vrf_rows) + table(RT_ENTRY, targets)
            + table(SEC_ENTRY, security)
            + table(PERF_ENTRY, performance) + table(ROUTE_ENTRY, routes))


def masked(rows, like):
    """The rows, with ANY in place of the values that are ANY in the rows to compare with."""
    return [(oid, ANY if other[1] == ANY else value) for (oid, value), other in itertools.zip_longest(
        rows, like, fillvalue=(None, None))]


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
