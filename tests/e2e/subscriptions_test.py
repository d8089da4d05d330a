#!/usr/bin/env python3
"""Every kind of configuration that the daemon subscribes to, from the command line to the MIB and to what mplsvpn shows: set,
set to another value, deleted, and replayed after a kill; on an existing VRF, on one that is created later, and on "default".
ITEMS states what each item changes. Every item has a VRF of its own, so that all items are tested at once and a change of
another VRF's columns or times is an error."""
import json
import typing
import unittest

from subscription_items import ITEMS, STEPS, Item
from system import (IF_ENTRY, RAW, ROOT_OID, RT_ENTRY, VRF_ENTRY, SystemTest, bits, dotted, name_and_rest, pass_a_second)

DESCRIPTION, RD, MID, HIGH, MAXIMUM = 3, 4, 9, 10, 11
PROTOCOLS = {"bgp": 1, "ospf": 2, "rip": 3, "static": 5, "other": 6}  # MplsL3VpnRtProtocol


class Vrf(typing.NamedTuple):
    """The VRF of an item."""
    item: Item
    name: str
    number: int

    def interfaces(self):
        return [{"name": self.name + letter, "index": self.number * 10 + place, "vrf": self.name,
                 "addresses": [f"10.{self.number % 250}.{place}.1/24"]} for place, letter in enumerate("ab")]

    def in_file(self):
        return {"name": self.name, "table": self.number}

    def words(self, step):
        """The words of a step, or None when it has none."""
        text = self.item.steps[step][0]
        if text is None:
            return None
        verb, *words = text.format(a=self.name + "a", b=self.name + "b").split(" ")
        return ("config", verb, "vrf", self.name, *words)


def vrfs(name, first):
    return [Vrf(item, f"{name}{number}", first + number) for number, item in enumerate(ITEMS)]


def router_of(there):
    return {"vrfs": [vrf.in_file() for vrf in there],
            "interfaces": [interface for vrf in there for interface in vrf.interfaces()] + [
                {"name": "default" + letter, "index": 9 - place, "addresses": ["192.0.2.1/24"]}
                for place, letter in enumerate("ab")]}


def expected_of(configured, done, there):
    """What must be shown when these VRFs' items have done `done` steps and the VRFs `there` exist. Route targets are rows even
    without their VRF."""
    shows = {vrf.name: vrf.item.shows(done) for vrf in configured}
    return {
        "rows": {vrf.name: {key: shows[vrf.name][key] for key in ("description", "rd", "mid", "high")} for vrf in there},
        "targets": {name: show["targets"] for name, show in shows.items() if show["targets"]},
        "policies": {vrf.name: shows[vrf.name]["policies"] for vrf in there},
        "protocols": {interface["index"]: shows[vrf.name][interface["name"][-1]] for vrf in there
                      for interface in vrf.interfaces()}}


class Subscriptions(SystemTest):
    maxDiff = 4000

    def start(self, there):
        self.system = self.new_system(json.dumps(router_of(there)))
        self.system.start_all()

    def restart(self):
        self.system.kill("daemon")
        self.system.start_daemon()

    def do(self, *words):
        self.system.cli(*words, check=True)

    def take_step(self, step, of):
        for vrf in of:
            if vrf.words(step):
                self.do(*vrf.words(step))

    def add_interface(self, interface):
        self.do("router", "add-interface", interface["name"], "index", str(interface["index"]), "vrf", interface["vrf"],
                "address", interface["addresses"][0])

    # --- Reading ---

    def in_the_mib(self):
        rows = self.system.walk(dotted(ROOT_OID + (1, 2)), options=RAW)
        found = {"rows": {}, "targets": {}, "protocols": {}}
        keys = {VRF_ENTRY + (DESCRIPTION,): "description", VRF_ENTRY + (RD,): "rd", VRF_ENTRY + (MID,): "mid",
                VRF_ENTRY + (HIGH,): "high"}
        for oid, value in rows:
            column, (name, rest) = oid[:len(VRF_ENTRY) + 1], name_and_rest(oid[len(VRF_ENTRY) + 1:])
            text = value[1:-1].replace("\\\\", "\\") if value.startswith('"') else int(value)
            if column in keys:
                found["rows"].setdefault(name, {})[keys[column]] = text
            elif column == VRF_ENTRY + (MAXIMUM,):
                self.assertEqual(text, found["rows"][name]["high"], "the maximum is the high threshold")
            elif column == RT_ENTRY + (4,):
                family = dict(rows)[RT_ENTRY + (5,) + oid[len(column):]][1:5].lower()
                found["targets"].setdefault(name, []).append((rest[1], family, text))
                self.assertEqual(rest[0], len(found["targets"][name]), "numbered from 1")
            elif column == IF_ENTRY + (3,):
                found["protocols"][rest[0]] = value
        return found

    def shown(self):
        """What "mplsvpn show" prints as JSON."""
        details = self.system.cli_json("show", "vrf", "detail")
        interfaces = self.system.cli_json("show", "interfaces")
        targets = {}
        for row in self.system.cli_json("show", "route-targets"):
            family = row["description"][:4].lower()
            targets.setdefault(row["vrfName"], []).append((row["type"], family, row["rt"]))
        for vrf in details:
            own = [(target["type"], family["afiName"], target["value"]) for family in vrf["addressFamilies"]
                   for target in family["routeTargets"]]
            in_order = sorted(own, key=lambda target: target[0])  # a stable sort: imports first
            self.assertEqual(in_order, targets.get(vrf["name"], []), "both commands show the same")
        return {
            "rows": {vrf["name"]: {"description": vrf["description"], "rd": vrf["rd"], "mid": vrf["midThresh"],
                                   "high": vrf["highThresh"]} for vrf in details},
            "targets": targets,
            "policies": {vrf["name"]: {(family["afiName"], way): family[way + "RoutePolicy"]
                                       for family in vrf["addressFamilies"] for way in ("import", "export")
                                       if family[way + "RoutePolicy"]} for vrf in details},
            "protocols": {row["ifConfIndex"]: set(row["protocolNames"]) for row in interfaces}}

    def raw(self):
        """The daemon's records; an attribute that is not set is null."""
        records = {item["key"]: item["record"] for item in self.system.cli_json("datalist", "vrf-detail")}
        rows, targets, policies = {}, {}, {}
        for name, record in records.items():
            self.assertEqual(self.system.cli_json("get", f"vrf-detail/{name}"), record)
            row = self.system.cli_json("get", f"vrf/{name}")
            self.assertEqual((row["description"], row["rd"]), (record["VRFDescription"], record["RouteDistinguisher"]))
            rows[name] = {"description": row["description"] or "", "rd": row["rd"] or "", "mid": row["midThresh"],
                          "high": row["highThresh"]}
            families = {1: "ipv4", 2: "ipv6"}
            own = [(target["RouteTargetType"], families[table["AFName"]], target["RouteTargetValue"])
                   for table in record["AF"] for target in table["RouteTarget"]]
            if own:
                targets[name] = sorted(own, key=lambda target: target[0])
            policies[name] = {(families[table["AFName"]], way.lower()): table[way + "RoutePolicy"]
                              for table in record["AF"] for way in ("Import", "Export")
                              if table[way + "RoutePolicy"] is not None}
        return {"rows": rows, "targets": targets, "policies": policies}

    def times(self):
        """{VRF: (creation, last change)}, seconds."""
        return {vrf["name"]: (vrf["creationTime"], vrf["confLastChanged"]) for vrf in self.system.cli_json("show", "vrf")}

    def check(self, what, configured, done, there):
        """Every way of reading shows the expected state."""
        expected = expected_of(configured, done, there)
        self.becomes(f"{what}: mplsvpn", self.shown, expected)
        existing = {vrf.name for vrf in there}
        own = {name: targets for name, targets in expected["targets"].items() if name in existing}
        self.assertEqual(self.raw(), {"rows": expected["rows"], "targets": own, "policies": expected["policies"]}, what)
        in_the_mib = {"rows": expected["rows"], "targets": expected["targets"],
                      "protocols": {index: bits(*(PROTOCOLS[name] for name in names))
                                    for index, names in expected["protocols"].items()}}
        self.becomes(f"{what}: MIB", self.in_the_mib, in_the_mib)

    # --- Items ---

    def test_vrf_that_exists(self):
        have = vrfs("have", 100)
        self.start(have)
        self.check("at first", have, 0, have)
        for step in range(STEPS):
            before = self.times()
            pass_a_second()
            self.take_step(step, have)
            self.check(f"step {step + 1}", have, step + 1, have)
            after = self.times()
            for vrf in have:
                is_later = after[vrf.name][1] > before[vrf.name][1]
                self.assertEqual(is_later, vrf.item.is_stamped and vrf.words(step) is not None, (vrf.item.name, step))
                self.assertEqual(after[vrf.name][0], before[vrf.name][0], "created once")
            pass_a_second()
            if step < 2:
                self.take_step(step, have)  # the same value again changes nothing
                self.check(f"step {step + 1}, again", have, step + 1, have)
                self.assertEqual(self.times(), after)
            self.restart()
            self.check(f"step {step + 1}, after a kill", have, step + 1, have)
            self.assertEqual(self.times(), after)

    def test_vrf_that_is_created_later(self):
        later = vrfs("later", 200)
        self.start([])
        for step in range(2):
            self.take_step(step, later)
            self.check(f"step {step + 1}", later, step + 1, [])
            self.restart()
            self.check(f"step {step + 1}, after a kill", later, step + 1, [])
        for vrf in later:  # one interface exists before the VRF, the other is added after it
            first, second = vrf.interfaces()
            self.add_interface(first)
            self.do("router", "add-vrf", vrf.name, "table", str(vrf.number))
            self.add_interface(second)
        self.check("created", later, 2, later)
        self.system.router_file.write_text(json.dumps(router_of(later)))
        self.do("router", "reload")
        self.check("created, of the file", later, 2, later)
        before = self.times()
        pass_a_second()
        self.restart()
        self.check("created, after a kill", later, 2, later)
        self.assertEqual(self.times(), before)
        for step in range(2, STEPS):
            self.take_step(step, later)
            self.check(f"step {step + 1}", later, step + 1, later)

    def test_vrf_that_is_deleted_before_its_configuration(self):
        have = vrfs("have", 100)
        self.start(have)
        for step in range(2):
            self.take_step(step, have)
        for vrf in have:
            self.do("router", "delete-vrf", vrf.name)
        self.check("deleted", have, 2, [])
        for step in range(2, STEPS):
            self.take_step(step, have)
        self.check("deleted, without configuration", have, STEPS, [])
        self.do("router", "reload")
        self.check("there again", have, STEPS, have)

    def test_thresholds_of_both_families_share_one_pair(self):
        red = Vrf(ITEMS[0], "red", 100)
        self.start([red])

        def pair_becomes(what, mid, high):
            row = {"description": "", "rd": "", "mid": mid, "high": high}
            self.becomes(what, lambda: self.in_the_mib()["rows"], {"red": row})
            self.assertEqual(self.shown()["rows"], {"red": row}, what)

        threshold = ("vrf", "red", "threshold")
        self.do("config", "set", *threshold, "ipv6", "50", "40")
        self.do("config", "set", *threshold, "ipv4", "100", "80")
        pair_becomes("IPv4 was set last", 80, 100)
        self.do("config", "set", *threshold, "ipv6", "60", "40")
        pair_becomes("IPv6 was set last", 40, 60)
        self.restart()
        pair_becomes("IPv6 was set last, after a kill", 40, 60)
        self.do("config", "set", *threshold, "ipv4", "100", "90")
        pair_becomes("IPv4 was set last again", 90, 100)
        self.restart()
        pair_becomes("IPv4 was set last again, after a kill", 90, 100)
        self.do("config", "delete", *threshold, "ipv6")
        pair_becomes("one family's were deleted", 0, 0)
        self.restart()
        pair_becomes("one family's were deleted, after a kill", 90, 100)

    # --- The default VRF ---

    def cells(self):
        """All columns except ages and those of route targets."""
        left_out = (VRF_ENTRY + (5,), VRF_ENTRY + (12,))
        return [(oid, value) for oid, value in self.system.walk(options=RAW)
                if oid[:len(RT_ENTRY)] != RT_ENTRY and oid[:len(VRF_ENTRY) + 1] not in left_out]

    def shown_but_targets(self):
        return [self.system.cli_json("show", *words) for words in (("vrf", "detail"), ("interfaces",), ("scalars",))]

    def target_texts(self):
        return [row["rt"] for row in self.system.cli_json("show", "route-targets")]

    def test_default_vrf(self):
        default = [Vrf(item, "default", 1) for item in ITEMS]
        self.start([Vrf(ITEMS[0], "red", 100)])
        nothing, no_cells = self.shown_but_targets(), self.cells()
        process = self.system.processes["daemon"]
        for vrf in default:
            for step in range(STEPS):
                self.take_step(step, [vrf])
                # The route targets of "default" are rows, too.
                targets = [text for _, _, text in vrf.item.shows(step + 1)["targets"]]
                self.becomes(f"targets of {vrf.item.name}, step {step + 1}", self.target_texts, targets)
                self.assertEqual(self.shown_but_targets(), nothing, (vrf.item.name, step))
        self.assertEqual(self.system.cli_json("config", "show"), [])
        for step in range(2):
            self.take_step(step, default)
        self.assertEqual((self.shown_but_targets(), self.cells()), (nothing, no_cells))
        self.assertIsNone(process.poll())
        targets = self.target_texts()
        self.restart()
        self.assertEqual((self.shown_but_targets(), self.target_texts()), (nothing, targets))
        self.becomes("cells after a kill", self.cells, no_cells)
        for path in ("vrf/default", "vrf-detail/default"):
            self.assertNotEqual(self.system.cli("get", path).returncode, 0)
        self.do("config", "delete", "vrf", "default")
        self.becomes("targets, deleted", self.target_texts, [])
        self.assertEqual((self.shown_but_targets(), self.cells()), (nothing, no_cells))


if __name__ == "__main__":
    unittest.main()
