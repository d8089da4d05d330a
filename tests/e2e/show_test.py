#!/usr/bin/env python3
"""mplsvpn shows the whole MIB: every VRF and route of a router file, value by value; filters, both forms of requests; and
ten thousand VRFs, steadily and in bounded memory."""
import ipaddress
import json
import pathlib
import re
import subprocess
import time
import unittest

from system import ASAN_OPTIONS, BIN, ROOT, SLOW, System, SystemTest, wait_until

PROTOCOLS = {"local": 2, "static": 3, "ospf": 13, "bgp": 14}
TYPES = {"local": 3, "remote": 4, "blackhole": 5}
ROUTER = {
    "vrfs": [
        {"name": "red", "table": 10, "rd": "65000:10", "routes": [
            {"prefix": "0.0.0.0/0", "type": "blackhole", "protocol": "static"},
            {"prefix": "10.0.0.0/8", "next_hop": "10.10.1.9", "protocol": "bgp", "next_hop_as": 65010},
            {"prefix": "10.10.1.0/24", "interface": "ge1", "protocol": "local"},
            {"prefix": "10.12.0.0/16", "next_hops": ["10.10.1.2", "10.10.1.3"], "interface": "ge1", "protocol": "ospf",
             "metrics": [20, 1, 2, 3]},
            {"prefix": "10.12.0.0/24", "next_hop": "198.51.100.2", "interface": "ge0", "protocol": "bgp", "labels": [16]},
            {"prefix": "10.12.0.1/32", "next_hop": "10.10.1.2", "protocol": "static"},
            {"prefix": "2001:db8:10:1::/64", "interface": "ge1", "protocol": "local"},
            {"prefix": "2001:db8::/32", "next_hop": "2001:db8:10:1::2", "interface": "ge1", "protocol": "bgp",
             "next_hop_as": 65010, "metrics": [1, 2, 3, 4, 5]}]},
        {"name": "blue", "table": 20, "rd": "192.0.2.1:20", "big": True, "routes": [
            {"prefix": "::/0", "next_hop": "2001:db8:20:1::fe", "interface": "ge3", "protocol": "static"}]},
        {"name": "green", "tables": {"ipv4": 30}, "id": 30, "rd": "4200000000:30"},
        {"name": "all", "tables": {"ipv4": 41, "ipv6": 42, "ipv4-multicast": 43, "ipv6-multicast": 44}, "id": 41},
        {"name": "a/b %", "table": 50, "rd": "1:1"},
        {"name": "orange", "state": "referenced"}],
    "interfaces": [
        {"name": "ge0", "index": 2, "addresses": ["198.51.100.1/30"]},
        {"name": "ge1", "index": 11, "vrf": "red", "addresses": ["10.10.1.1/24"]},
        {"name": "ge2", "index": 12, "vrf": "red", "state": "down", "addresses": ["10.10.2.1/24"]},
        {"name": "ge3", "index": 21, "vrf": "blue", "addresses": ["2001:db8:20:1::1/64"]},
        {"name": "ge4.100", "index": 22, "vrf": "blue"},
        {"name": "ge5", "index": 31, "vrf": "a/b %", "addresses": ["10.1.1.1/24"]},
        {"name": "ge6", "index": 41, "vrf": "orange", "addresses": ["10.40.1.1/24"]}]}
VRFS = {vrf["name"]: vrf for vrf in ROUTER["vrfs"] if vrf.get("state") != "referenced"}
IN_ORDER = sorted(VRFS, key=lambda name: (len(name), name))


def interfaces_of(vrf):
    return [interface for interface in ROUTER["interfaces"] if interface.get("vrf") == vrf]


def is_active(interface):
    return interface.get("state", "up") == "up" and bool(interface.get("addresses"))


def paths_of(vrf):
    """The rows of a VRF's routes in the order of the MIB."""
    rows = []
    for route in VRFS[vrf].get("routes", []):
        prefix = ipaddress.ip_network(route["prefix"])
        for next_hop in route.get("next_hops", [route.get("next_hop")]):
            rows.append((prefix.version, int(prefix.network_address), prefix.prefixlen,
                         int(ipaddress.ip_address(next_hop)) if next_hop else 0, next_hop, route))
    return [path[4:] for path in sorted(rows, key=lambda path: path[:4])]


def expected_route(vrf, next_hop, route):
    prefix = ipaddress.ip_network(route["prefix"])
    kind = TYPES[route.get("type", "remote" if next_hop else "local")]
    family = {4: 1, 6: 2}[prefix.version]
    metrics = (route.get("metrics", []) + [-1] * 5)[:5]
    if prefix.version == 4:
        metrics[4] = metrics[3]  # the fifth metric of an IPv4 route repeats the fourth
    index = {interface["name"]: interface["index"] for interface in ROUTER["interfaces"]}.get(route.get("interface"), 0)
    own = {interface["index"]: interface["name"] for interface in interfaces_of(vrf)}
    nothing = "" if kind == TYPES["local"] else {4: "0.0.0.0", 6: "::"}[prefix.version]
    return {"vrfName": vrf, "prefix": route["prefix"], "destType": family, "destTypeName": f"ipv{prefix.version}",
            "dest": str(prefix.network_address), "mask": prefix.prefixlen,
            "nextHopType": 0 if kind == TYPES["local"] else family, "nextHop": next_hop or nothing, "ifIndex": index,
            "interfaceName": own.get(index, ""), "type": kind, "proto": PROTOCOLS[route["protocol"]],
            "nextHopAS": route.get("next_hop_as", 0) if prefix.version == 6 else 0,
            **{f"metric{n}": metrics[n - 1] for n in range(1, 6)}, "rowStatus": 1}


def longest_match(vrf, address):
    address = ipaddress.ip_address(address)
    paths = [(next_hop, route) for next_hop, route in paths_of(vrf)
             if ipaddress.ip_network(route["prefix"]).version == address.version and
             address in ipaddress.ip_network(route["prefix"])]
    longest = max((ipaddress.ip_network(route["prefix"]).prefixlen for _, route in paths), default=None)
    return [(next_hop, route) for next_hop, route in paths if ipaddress.ip_network(route["prefix"]).prefixlen == longest]


class SmallRouter(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.started = int(time.time())
        cls.system = System(json.dumps(ROUTER))
        cls.addClassCleanup(cls.system.__exit__, None)
        cls.system.start_daemon()
        wait_until("all routes", lambda: len(cls.routes("red")) == len(paths_of("red")))

    @classmethod
    def routes(cls, *words):
        return cls.system.cli_json("show", "routes", *words)

    def names(self, *words):
        return [vrf["name"] for vrf in self.system.cli_json("show", "vrf", *words)]

    def refused(self, status, message, *words):
        result = self.system.cli(*words)
        self.assertEqual((result.returncode, result.stdout), (status, ""), words)
        self.assertIn(message, result.stderr)

    def check_routes(self, shown, expected):
        for row, wanted in zip(shown, expected):
            self.assertLessEqual(row["age"], time.time() - self.started + 1)
            self.assertEqual({key: row[key] for key in wanted}, wanted)
        self.assertEqual(len(shown), len(expected))

    def test_vrfs_are_those_of_the_file(self):
        shown = self.system.cli_json("show", "vrf")
        self.assertEqual([vrf["name"] for vrf in shown], IN_ORDER)
        for vrf in shown:
            interfaces = interfaces_of(vrf["name"])
            active = sum(is_active(interface) for interface in interfaces)
            wanted = {"rd": VRFS[vrf["name"]].get("rd", ""), "associatedInterfaces": len(interfaces),
                      "activeInterfaces": active, "operStatus": 1 if active else 2, "adminStatus": 1 if active else 2,
                      "currNumRoutes": len(paths_of(vrf["name"])), "storageType": 5, "rowStatus": 1}
            self.assertEqual({key: vrf[key] for key in wanted}, wanted, vrf["name"])
            self.assertTrue(self.started <= vrf["creationTime"] <= time.time())
            if vrf["name"] == "all":  # its creation was its last change
                self.assertEqual((vrf["confLastChanged"], vrf["confLastChangedText"]), (0, "-"))
            else:
                self.assertTrue(vrf["creationTime"] <= vrf["confLastChanged"] <= time.time())

    def test_details_are_those_of_the_file(self):
        shown = self.system.cli_json("show", "vrf", "detail")
        self.assertEqual([vrf["name"] for vrf in shown], IN_ORDER)
        rows = {vrf["name"]: vrf for vrf in self.system.cli_json("show", "vrf")}
        for vrf in shown:
            self.assertEqual(vrf["interfaces"], [interface["name"] for interface in interfaces_of(vrf["name"])])
            self.assertEqual(vrf["isBigVrf"], VRFS[vrf["name"]].get("big", False))
            families = {(family["afiName"], family["safiName"]) for family in vrf["addressFamilies"]}
            wanted = {("ipv4", "unicast")} if vrf["name"] == "green" else {("ipv4", "unicast"), ("ipv6", "unicast")}
            self.assertEqual(families, wanted, vrf["name"])
            self.assertEqual(vrf, vrf | rows[vrf["name"]])
            self.assertEqual(self.system.cli_json("show", "vrf", "--name", vrf["name"], "detail"), [vrf])

    def test_families_filter(self):
        self.assertEqual(self.names("ipv6"), [name for name in IN_ORDER if name != "green"])
        self.assertEqual(self.names("multicast"), ["all"])
        self.assertEqual(self.names("ipv4", "unicast"), IN_ORDER)
        self.assertEqual(self.names("detail", "ipv6", "multicast"), ["all"])
        self.refused(1, "VRF green has no ipv6 table", "show", "vrf", "green", "ipv6")
        self.refused(1, "VRF red has no multicast table", "show", "vrf", "red", "detail", "multicast")

    def test_text_is_in_columns(self):
        for words in (("show", "vrf"), ("show", "routes", "red"), ("show", "vrf", "invalid")):
            titles, *rows = self.system.cli(*words, check=True).stdout.splitlines()
            self.assertTrue(rows)
            for title in ("VRF", "RD", "STATE", "DESCRIPTION", "PREFIX", "NEXT HOP", "PROTOCOL", "CROSS-CONNECT"):
                at = (" " + titles + " ").find(f" {title} ")
                for row in rows if at > 0 else []:
                    self.assertRegex(row[at - 1:], "^ [^ ]", row)

    def test_invalid_vrfs_are_distinguished_from_unknown_ones(self):
        self.assertEqual(self.system.cli_json("show", "vrf", "invalid"), [{"name": "orange", "interfaces": ["ge6"]}])
        self.refused(1, "VRF orange is invalid", "show", "vrf", "orange")
        self.refused(1, "VRF orange is invalid", "show", "routes", "orange")
        self.refused(1, "VRF pink does not exist", "show", "vrf", "pink")
        self.refused(1, "VRF pink does not exist", "show", "route-targets", "pink")
        self.refused(1, "VRF ge1 does not exist; it is an interface of VRF red (mplsvpn show interfaces red)", "show", "interfaces", "ge1")
        self.refused(1, "VRF ge0 does not exist; it is an interface in no VRF", "show", "vrf", "ge0")
        self.refused(1, 'VRF br does not exist; did you mean the word "brief"?', "show", "vrf", "br")

    def test_routes_are_those_of_the_file(self):
        for vrf in VRFS:
            self.check_routes(self.routes(vrf), [expected_route(vrf, *path) for path in paths_of(vrf)])
        labelled = [row["prefix"] for row in self.routes("red") if row["xcPointer"]]
        self.assertEqual(labelled, ["10.12.0.0/24"])

    def test_every_prefix_shows_its_routes(self):
        for vrf, config in VRFS.items():
            for prefix in {route["prefix"] for route in config.get("routes", [])}:
                paths = [path for path in paths_of(vrf) if path[1]["prefix"] == prefix]
                self.check_routes(self.routes(vrf, prefix), [expected_route(vrf, *path) for path in paths])
        self.refused(1, "VRF red has no route for 10.12.0.0/17", "show", "routes", "red", "10.12.0.0/17")
        self.refused(1, "VRF red has no route for 0.0.0.0/1", "show", "routes", "red", "0.0.0.0/1")
        self.refused(1, "VRF red has no route for ::/0", "show", "routes", "red", "::/0")
        self.refused(1, "VRF blue has no route for 0.0.0.0/0", "show", "routes", "blue", "0.0.0.0/0")
        self.refused(2, "10.12.1.0/16 has host bits set; did you mean 10.12.0.0/16?", "show", "routes", "red", "10.12.1.0/16")

    def test_addresses_show_the_longest_match(self):
        for address in ("10.12.0.1", "10.12.0.2", "10.12.1.0", "10.10.1.255", "10.99.0.0", "192.0.2.1", "0.0.0.0",
                        "255.255.255.255", "2001:db8:10:1::7", "2001:db8:ffff::"):
            paths = longest_match("red", address)
            self.assertTrue(paths)
            self.check_routes(self.routes("red", address), [expected_route("red", *path) for path in paths])
        self.check_routes(self.routes("blue", "::"), [expected_route("blue", *path) for path in paths_of("blue")])
        self.refused(1, "VRF red has no route to 2001:db9::", "show", "routes", "red", "2001:db9::")
        self.refused(1, "VRF green has no route to 10.0.0.1", "show", "routes", "green", "10.0.0.1")

    def test_structured_form_shows_families_with_targets_or_policies_only(self):
        shown = self.system.cli_json("show", "vrf", "--structured")
        self.assertEqual([vrf["name"] for vrf in shown], IN_ORDER)
        self.assertEqual([vrf["addressFamilies"] for vrf in shown], [[]] * len(shown))
        self.assertEqual(self.system.cli_json("show", "vrf", "a/b %", "--structured")[0]["name"], "a/b %")

    def test_any_path_is_shown_raw_in_both_forms(self):
        def keys(*words):
            return [item["key"] for item in self.system.cli_json(*words)]

        self.assertEqual(keys("list", "vrf-detail"), IN_ORDER)
        self.assertEqual(keys("list", "vrf-detail", "--max", "2"), IN_ORDER[:2])
        self.assertEqual(keys("list", "vrf-detail-filter/-/-/2"), ["all"])
        self.assertEqual(keys("datalist", "vrf-invalid-detail"), ["orange"])
        items = self.system.cli_json("datalist", "vrf-detail/red")  # what follows it
        self.assertEqual([item["record"]["VRFName"] for item in items], IN_ORDER[IN_ORDER.index("red") + 1:])
        encoded = [name.replace("%", "%25").replace(" ", "%20").replace("/", "%2F") for name in IN_ORDER]
        self.assertEqual(keys("datalist", "vrf-detail", "--structured"), encoded)
        self.assertEqual(self.system.cli_json("get", "vrf-detail/red", "--structured")["AF"], [])
        self.assertEqual(len(self.system.cli_json("get", "vrf-detail/red")["AF"]), 2)


class Changes(SystemTest):
    def test_changes_are_shown(self):
        system = self.new_system(json.dumps(ROUTER))
        system.start_daemon()
        system.cli("router", "add-vrf", "cyan", "id", "60", check=True)
        system.cli("router", "move", "ge1", "cyan", check=True)
        system.cli("router", "add-route", "cyan", "10.60.0.0/16", "via", "10.10.1.2", "interface", "ge1", check=True)
        wait_until("the VRF with its interface", lambda: [
            (vrf["associatedInterfaces"], vrf["operStatusName"], vrf["currNumRoutes"])
            for vrf in system.cli_json("show", "vrf") if vrf["name"] == "cyan"] == [(1, "up", 1)])
        route = system.cli_json("show", "routes", "cyan", "10.60.1.2")[0]
        self.assertEqual((route["prefix"], route["nextHop"], route["interfaceName"]), ("10.60.0.0/16", "10.10.1.2", "ge1"))
        system.cli("router", "delete-vrf", "cyan", check=True)
        wait_until("the VRF is deleted", lambda: system.cli("show", "vrf", "cyan").returncode == 1)
        system.kill("daemon")
        for words in (("show", "vrf"), ("show", "vrf", "detail"), ("show", "vrf", "invalid"), ("show", "routes", "red"),
                      ("show", "route-targets"), ("list", "vrf-detail"), ("datalist", "vrf-detail")):
            result = system.cli(*words)
            self.assertEqual((result.returncode, result.stdout), (3, ""), words)
            self.assertIn("mpls_vpn_mib is not running (nothing listens on ", result.stderr)


# A path as "get", "list" and "datalist" name it: one that the router below has.
PATHS = {"scalars": "scalars", "interface-next/VRF/IFINDEX": "interface-next/red/0",
         "vrf/VRF": "vrf/red", "vrf-next/VRF": "vrf-next/a", "vrf-detail/VRF": "vrf-detail/blue",
         "vrf-detail-filter/VRF/AFI/SAFI": "vrf-detail-filter/-/1/1", "vrf-invalid-detail/VRF": "vrf-invalid-detail/orphan",
         "rt/VRF/INDEX/TYPE": "rt/red/1/1", "rt-next/VRF/INDEX/TYPE": "rt-next/red/0/0",
         "route/VRF/TYPE/LENGTH/TYPE/DESTINATION/NEXTHOP": "route/red/1/8/1/0a000000/00000000",
         "route-next/VRF/TYPE/LENGTH/TYPE/DESTINATION/NEXTHOP": "route-next/red/1/0/1/0/0",
         "/oper/interfaces/name/NAME": "/oper/interfaces/name/ge%2D0", "/oper/interfaces/index/IFINDEX": "/oper/interfaces/index/7",
         "/oper/interfaces/next/HANDLE": "/oper/interfaces/next/0", "/oper/notifications/latest/N": "/oper/notifications/latest/5",
         "/oper/process/status": "/oper/process/status", "/oper/route_watch/vrf-next/VRF": "/oper/route_watch/vrf-next/-"}
PATHS_ROUTER = """vrfs:
  - {name: red, table: 10, route_targets: {both: [65000:1]}, routes: [{prefix: 10.0.0.0/8, type: blackhole}]}
  - {name: blue, table: 20}
interfaces: [{name: ge-0, index: 7, vrf: red}, {name: ge1, index: 8, vrf: orphan}]
"""


class Paths(SystemTest):
    def test_commands_read_the_paths_that_they_name_and_no_others(self):
        system = self.new_system(PATHS_ROUTER)
        system.start_daemon()
        system.cli("config", "set", "vrf", "red", "watch", "10.0.0.0/8", check=True)
        wait_until("the route", lambda: system.cli_json("show", "routes", "red"))
        for command in "get", "list", "datalist":
            named = [row["path"] for row in system.cli_json(command)]
            self.assertTrue(set(named) <= set(PATHS), named)
            for path, example in PATHS.items():
                with self.subTest(command=command, path=path):
                    self.assertEqual(system.cli(command, example).returncode == 0, path in named)
                    self.assertIn(f"  {path}\n", system.cli(command, "--help").stdout)

    def test_paths_are_those_of_all_providers(self):
        table = (ROOT / "mpls/vpn/mib/src/provider/path_table.cpp").read_text()
        provided = set(re.findall(r'^ +\{"([a-z-]+)[/"]', table.partition("kProvPaths")[2].partition("};")[0], re.MULTILINE))
        self.assertEqual(provided - {"interface"},  # has no rows, because the MIB is read with "next" only
                         {path.split("/")[0] for path in PATHS if not path.startswith("/")})
        providers = {match for file in ROOT.glob("platform/**/records.h")
                     for match in re.findall(r'kProviderPath\[\] = "(.*)"', file.read_text())}
        self.assertEqual(providers - {"/oper/vpn_changes/"},  # has notifications only
                         {path[:path.index("/", len("/oper/")) + 1] for path in PATHS if path.startswith("/")})


def watched(system, *words):
    """(lines, longest pause in s, peak memory in kB) of a command whose output is read while it prints."""
    environment = dict(system.environment, ASAN_OPTIONS=ASAN_OPTIONS)
    with subprocess.Popen([str(BIN / "mplsvpn"), *words], env=environment, stdout=subprocess.PIPE) as process:
        lines, silence, memory, last = 0, 0.0, 0, time.monotonic()
        while text := process.stdout.read1(1 << 16):
            now = time.monotonic()
            silence, last = max(silence, now - last), now
            lines += text.count(b"\n")
            for line in pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines():
                if line.startswith("VmHWM"):
                    memory = max(memory, int(line.split()[1]))
        assert process.wait(timeout=60 * SLOW) == 0, words
        return lines, silence, memory


class Large(SystemTest):
    def test_ten_thousand_vrfs_print_steadily_in_bounded_memory(self):
        few, many = 1000, 10000
        systems = {}
        for count in (few, many):
            systems[count] = self.new_system(f"generate: {{vrfs: {count}, interfaces_per_vrf: 2}}\n")
            systems[count].start_daemon()
        for words, lines_per_vrf in ((("--json", "show", "vrf"), 1), (("--json", "show", "vrf", "detail"), 1),
                                     (("show", "vrf", "detail", "ipv4"), 10), (("--json", "show", "vrf", "ipv6"), 1)):
            lines, _, memory = watched(systems[few], *words)
            many_lines, silence, many_memory = watched(systems[many], *words)
            print(f"{' '.join(words)}: {many_lines} lines, {silence:.2f} s silent at most, {memory} kB of {few} VRFs, "
                  f"{many_memory} kB of {many}")
            self.assertGreaterEqual(lines, few * lines_per_vrf)
            self.assertGreaterEqual(many_lines, many * lines_per_vrf)
            self.assertLess(many_memory, memory + 1024)
            self.assertLess(silence, 3 * SLOW)
        names = [vrf["name"] for vrf in systems[many].cli_json("show", "vrf")]
        self.assertEqual(len(set(names)), many)
        self.assertEqual(names, [vrf["name"] for vrf in systems[many].cli_json("show", "vrf", "detail")])
        self.assertEqual(names, sorted(names, key=lambda name: (len(name), name)))

    def test_routes_of_a_large_table_print_steadily_in_bounded_memory(self):
        system = self.new_system(json.dumps({"vrfs": [
            {"name": "few", "table": 10, "routes": [{"generate": 5000, "prefix": "20.0.0.0/24"}]},
            {"name": "many", "table": 20, "routes": [{"generate": 100000, "prefix": "20.0.0.0/24"}]}]}))
        system.start_daemon()
        wait_until("all routes", lambda: system.cli_json("show", "vrf", "many")[0]["currNumRoutes"] == 100000, 60)
        _, _, memory = watched(system, "--json", "show", "routes", "few")
        lines, silence, many_memory = watched(system, "--json", "show", "routes", "many")
        print(f"{lines} lines, {silence:.2f} s silent at most, {memory} kB of 5000 routes, {many_memory} kB of 100000")
        self.assertEqual(lines, 100002)
        self.assertLess(many_memory, memory + 1024)
        self.assertLess(silence, 3 * SLOW)

    def test_closed_output_ends_it(self):
        system = self.new_system("generate: {vrfs: 5000, interfaces_per_vrf: 1}\n")
        system.start_daemon()
        with subprocess.Popen([str(BIN / "mplsvpn"), "show", "vrf", "detail"], env=system.environment,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as process:
            process.stdout.readline()
            process.stdout.close()
            self.assertNotEqual(process.wait(timeout=30 * SLOW), 0)
        self.assertEqual(system.cli("show", "scalars").returncode, 0)


if __name__ == "__main__":
    unittest.main()
