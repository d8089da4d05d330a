#!/usr/bin/env python3
"""Every kind of configuration that the daemon subscribes to, from the command line to the MIB and to what mplsvpn shows: set,
set to another value, deleted, and replayed after a kill; on an existing VRF, on one that is created later, and on "default".
ITEMS states what each item changes. Every item has a VRF of its own, so that all items are tested at once and a change of
another VRF's columns or times is an error."""
import json
import subprocess
import typing
import unittest

from system import IF_CONF, L3VPN, SCALARS, System, bits, name_index, oid_tuple, wait_until

VRF_ENTRY, RT_ENTRY, IF_ENTRY = (oid_tuple(L3VPN) + tail for tail in ((1, 2, 2, 1), (1, 2, 3, 1), (1, 2, 1, 1)))
DESCRIPTION, RD, MID, HIGH, MAXIMUM = 3, 4, 9, 10, 11
RAW = ("-Ot", "--hexOutputLength=0")
IMPORT, EXPORT = 1, 2
PROTOCOLS = {"bgp": 1, "ospf": 2, "rip": 3, "static": 5, "other": 6}  # MplsL3VpnRtProtocol
NOTHING = {"description": "", "rd": "", "mid": 0, "high": 0, "targets": [], "policies": {}, "a": set(), "b": set()}


class Item(typing.NamedTuple):
    name: str
    is_stamped: bool  # a change sets the VRF's time of last change
    steps: list  # (words after "config set|delete vrf NAME", what the VRF shows then besides NOTHING), ...

    def shows(self, done):
        """What the VRF shows after this number of steps."""
        return NOTHING | (self.steps[done - 1][1] if done else {})


def both(*names):
    return {"a": set(names), "b": set(names)}


# {a} and {b} are the VRF's interfaces. Each item has four steps: two set, two delete.
ITEMS = [
    Item("description", True, [
        ("set description Red Rail", {"description": "Red Rail"}),
        ("set description Rail, \\ and 100 % #more", {"description": "Rail, \\ and 100 % #more"}),
        ("delete description Rail, \\ and 100 % #more", {}),
        (None, {})]),
    Item("import targets", True, [
        ("set rt import 65000:1 ipv4", {"targets": [(IMPORT, "ipv4", "65000:1")]}),
        ("set rt import 65000:02 ipv4", {"targets": [(IMPORT, "ipv4", "65000:1"), (IMPORT, "ipv4", "65000:2")]}),
        ("delete rt import 65000:1 ipv4", {"targets": [(IMPORT, "ipv4", "65000:2")]}),
        ("delete rt import 65000:2 ipv4", {})]),
    Item("export targets", True, [
        ("set rt export 4200000000:30 ipv6", {"targets": [(EXPORT, "ipv6", "4200000000:30")]}),
        ("set rt export 10.0.0.1:5 ipv6",
         {"targets": [(EXPORT, "ipv6", "10.0.0.1:5"), (EXPORT, "ipv6", "4200000000:30")]}),
        ("delete rt export 4200000000:30", {"targets": [(EXPORT, "ipv6", "10.0.0.1:5")]}),
        ("delete rt export 10.0.0.1:5 ipv6", {})]),
    Item("targets of all kinds", True, [
        ("set rt both 65000:100",
         {"targets": [(kind, family, "65000:100") for kind in (IMPORT, EXPORT) for family in ("ipv4", "ipv6")]}),
        ("set rt export 65000:99 ipv4",
         {"targets": [(IMPORT, "ipv4", "65000:100"), (IMPORT, "ipv6", "65000:100"), (EXPORT, "ipv4", "65000:99"),
                      (EXPORT, "ipv4", "65000:100"), (EXPORT, "ipv6", "65000:100")]}),
        ("delete rt export", {"targets": [(IMPORT, "ipv4", "65000:100"), (IMPORT, "ipv6", "65000:100")]}),
        ("delete rt", {})]),
    Item("import policy", False, [
        ("set policy import ipv4 pass-some", {"policies": {("ipv4", "import"): "pass-some"}}),
        ("set policy import ipv4 pass-all", {"policies": {("ipv4", "import"): "pass-all"}}),
        ("delete policy import ipv4 pass-all", {}),
        (None, {})]),
    Item("export policies", False, [
        ("set policy export ipv6 pass", {"policies": {("ipv6", "export"): "pass"}}),
        ("set policy export ipv4 pass-v4", {"policies": {("ipv6", "export"): "pass", ("ipv4", "export"): "pass-v4"}}),
        ("delete policy export ipv6", {"policies": {("ipv4", "export"): "pass-v4"}}),
        ("delete policy export ipv4", {})]),
    Item("thresholds", True, [
        ("set threshold ipv4 100 80", {"mid": 80, "high": 100}),
        ("set threshold ipv4 4294967295 3000000000", {"mid": 3000000000, "high": 4294967295}),
        ("delete threshold ipv4", {}),
        (None, {})]),
    Item("thresholds of IPv6", True, [
        ("set threshold ipv6 5 0", {"mid": 0, "high": 5}),
        ("set threshold ipv6 50 40", {"mid": 40, "high": 50}),
        ("delete threshold ipv6 50 40", {}),
        (None, {})]),
    Item("route distinguisher", True, [
        ("set rd 65000:1", {"rd": "65000:1"}),
        ("set rd 192.0.2.1:7", {"rd": "192.0.2.1:7"}),
        ("delete rd 192.0.2.1:7", {}),
        (None, {})]),
    Item("route distinguishers of both families", True, [
        ("set rd 65000:6 ipv6", {"rd": "65000:6"}),
        ("set rd 4200000000:4 ipv4", {"rd": "4200000000:4"}),
        ("delete rd 4200000000:4 ipv4", {"rd": "65000:6"}),
        ("delete rd 65000:6 ipv6", {})]),
    Item("BGP neighbours", False, [
        ("set bgp 65000 neighbor 10.0.0.2 ipv4", both("bgp")),
        ("set bgp 65000 neighbor 2001:db8::2 ipv6", both("bgp")),
        ("delete bgp 65000 neighbor 10.0.0.2 ipv4", both("bgp")),
        ("delete bgp 65000 neighbor 2001:db8::2 ipv6", {})]),
    Item("RIP", False, [
        ("set rip interface {a}", {"a": {"rip"}}),
        ("set rip interface {b}", both("rip")),
        ("delete rip interface {a}", {"b": {"rip"}}),
        ("delete rip interface {b}", {})]),
    Item("OSPF", False, [
        ("set ospf 1 area 0 interface {a}", {"a": {"ospf"}}),
        ("set ospf core area 10.0.0.0 interface {b}", both("ospf")),
        ("delete ospf 1 area 0 interface {a}", {"b": {"ospf"}}),
        ("delete ospf core area 10.0.0.0 interface {b}", {})]),
    Item("EIGRP, twice on one interface", False, [
        ("set eigrp 9 interface {a}", {"a": {"other"}}),
        ("set eigrp 10 interface {a}", {"a": {"other"}}),
        ("delete eigrp 9 interface {a}", {"a": {"other"}}),
        ("delete eigrp 10 interface {a}", {})]),
    Item("static routes with an interface", False, [
        ("set static 10.1.0.0/16 interface {a}", {"a": {"static"}}),
        ("set static 2001:db8::/32 interface {b} via 2001:db8::1", both("static")),
        ("delete static 10.1.0.0/16 interface {a}", {"b": {"static"}}),
        ("delete static 2001:db8::/32 interface {b} via 2001:db8::1", {})]),
    Item("static routes without one", False, [
        ("set static 10.1.0.0/16 via 10.0.0.2", both("static")),
        ("set static 10.2.0.0/16 interface {a} via 10.0.0.2", both("static")),
        ("delete static 10.1.0.0/16 via 10.0.0.2", {"a": {"static"}}),
        ("delete static 10.2.0.0/16 interface {a} via 10.0.0.2", {})]),
]
STEPS = 4


def dotted(oid):
    return ".".join(map(str, oid))


def name_and_rest(index):
    """A VRF's name and the sub-identifiers after it."""
    length = index[0]
    return bytes(index[1:1 + length]).decode(), index[1 + length:]


def now():
    return int(subprocess.run(["date", "+%s"], capture_output=True, text=True, check=True).stdout)


def pass_a_second():
    start = now()
    wait_until("another second", lambda: now() > start)


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


class Subscriptions(unittest.TestCase):
    maxDiff = 4000

    def start(self, there):
        self.system = System(json.dumps(router_of(there)))
        self.addCleanup(self.system.__exit__, None)
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
        rows = self.system.walk(dotted(oid_tuple(L3VPN) + (1, 2)), options=RAW)
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

    def becomes(self, what, read, expected):
        found = []

        def is_so():
            try:
                found[:] = [read()]
            except (AssertionError, KeyError) as error:
                # The walk failed because the sub-agent is not connected yet, or a row was removed during the walk: it has
                # its first columns and lacks its last.
                found[:] = [error]
            return found == [expected]

        try:
            wait_until(what, is_so)
        except AssertionError:
            if isinstance(found[0], Exception):
                raise found[0]
            self.assertEqual(found[0], expected, what)

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


UP, DOWN, MID_EXCEEDED, MAX_EXCEEDED, CLEARED = 1, 2, 3, 4, 6  # of mplsL3VpnNotifications
ALL = (UP, DOWN, MID_EXCEEDED, MAX_EXCEEDED, CLEARED)
# What an exercise raises while the item is set.
SWITCHES = {"vrf-up": (UP,), "vrf-down": (DOWN,), "mid-thresh-exc": (MID_EXCEEDED,), "max-thresh-exc": (MAX_EXCEEDED,),
            "max-thresh-clr": (CLEARED,), "ilg-lbl-exc": (), "all": ALL}
STAGES = ("set", "again", "killed", "deleted")  # each with a VRF of its own, whose interface has raised nothing yet


class Switches(unittest.TestCase):
    def setUp(self):
        names = [f"{stage}{number}" for number in range(len(SWITCHES)) for stage in STAGES] + ["last"]
        self.number = {name: 100 + number for number, name in enumerate(names)}
        interfaces = [{"name": name + "a", "index": number, "vrf": name, "state": "down", "addresses": ["10.0.0.1/24"]}
                      for name, number in self.number.items()]
        interfaces.append({"name": "defaulta", "index": 9, "state": "down", "addresses": ["10.0.0.1/24"]})
        self.system = System(json.dumps({"vrfs": [{"name": name, "table": number} for name, number in self.number.items()],
                                         "interfaces": interfaces}))
        self.addCleanup(self.system.__exit__, None)
        self.system.start_trapd()
        self.system.start_all()
        self.expected = []
        lines = [f"set vrf {name} threshold ipv4 3 1\n" for name in (*names, "default", *(
            f"later{number}" for number in range(len(SWITCHES))))]
        (self.system.folder / "limits").write_text("".join(lines))
        self.do("config", "load", str(self.system.folder / "limits"))

    def do(self, *words):
        self.system.cli(*words, check=True)

    def exercise(self, vrf, raises):
        """Brings the VRF up and down, its routes above its thresholds and back, which raises these traps in this order."""
        self.do("router", "up", vrf + "a")
        self.do("router", "down", vrf + "a")
        if vrf == "default":
            return  # not a VRF, and a router file has no routes of it
        for verb, number in (("add", 1), ("add", 2), ("add", 3), ("delete", 3), ("delete", 2), ("delete", 1)):
            self.do("router", f"{verb}-route", vrf, f"10.{number}.0.0/16", "via", "10.0.0.2")
        self.expected += [(number, vrf) for number in raises]

    def exercise_later(self, vrf, raises):
        """The same on a VRF that is created now and whose thresholds were configured before."""
        self.do("router", "add-vrf", vrf)
        self.do("router", "add-interface", vrf + "a", "index", str(1000 + len(self.expected)), "vrf", vrf, "down", "address",
                "10.0.0.1/24")
        self.exercise(vrf, raises)

    def received(self):
        """(notification, VRF) of every trap received."""
        found = []
        for number, variables in self.system.traps():
            index = variables[0][0][5:] if number not in (UP, DOWN) else variables[0][0][5:-1]
            found.append((number, name_and_rest(index)[0]))
        return found

    def check_received(self):
        try:
            wait_until("traps", lambda: len(self.received()) >= len(self.expected))
        finally:
            self.assertEqual(self.received(), self.expected)

    def scalars(self):
        shown = self.system.cli_json("show", "scalars")
        raw = self.system.cli_json("get", "scalars")
        self.assertEqual(raw, {key: shown[key] for key in raw})
        return shown["notificationEnable"], shown["maxThresholdNotifTime"]

    def scalars_become(self, enabled, reissue):
        wait_until("scalars", lambda: self.scalars() == (enabled, reissue))
        truth = "1" if enabled else "2"
        wait_until("scalars in the MIB", lambda: [self.system.get_value(f"{SCALARS}.{column}.0") for column in (4, 6)]
                   == [truth, str(reissue)])

    def test_switches(self):
        for number, (item, raises) in enumerate(SWITCHES.items()):
            enabled = 1 if item == "all" else 0
            self.do("config", "set", "traps", item)
            self.scalars_become(enabled, 0)
            self.exercise(f"set{number}", raises)
            self.exercise_later(f"later{number}", raises)
            self.exercise("default", ())
            self.do("config", "set", "traps", item)
            self.exercise(f"again{number}", raises)
            self.check_received()
            self.system.kill("daemon")
            self.system.start_daemon()
            self.scalars_become(enabled, 0)
            self.exercise(f"killed{number}", raises)
            self.do("config", "delete", "traps", item)
            self.scalars_become(0, 0)
            self.exercise(f"deleted{number}", ())
            self.check_received()
        self.do("config", "set", "traps", "all")
        self.exercise("last", ALL)  # received in order: no other trap was on its way
        self.check_received()

    def test_reissue_time(self):
        for words, seconds in ((("set", "5"), 5), (("set", "7"), 7), (("delete",), 0)):
            self.do("config", words[0], "traps", "notif-reissue-time", *words[1:])
            self.scalars_become(0, seconds)
            self.system.kill("daemon")
            self.system.start_daemon()
            self.scalars_become(0, seconds)

    def test_threshold_events(self):
        """Thresholds are crossed in both directions, found exceeded by a new process, and deleted."""
        self.do("config", "set", "traps", "all")
        router = json.loads(self.system.router_file.read_text())
        above = [{"generate": 5, "prefix": "20.0.0.0/24", "next_hop": "10.0.0.2"}]
        router["vrfs"] = [{"name": "set0", "table": 100, "routes": above}, {"name": "later0", "table": 99, "routes": above}]
        self.system.router_file.write_text(json.dumps(router))
        self.do("router", "reload")
        raised = [(MID_EXCEEDED, "set0"), (MAX_EXCEEDED, "set0"), (MID_EXCEEDED, "later0"), (MAX_EXCEEDED, "later0")]
        self.expected = sorted(raised)
        wait_until("both", lambda: len(self.received()) >= 4)
        self.assertEqual(sorted(self.received()), sorted(raised))
        self.system.kill("daemon")
        self.system.start_daemon()
        wait_until("both again", lambda: len(self.received()) >= 8)
        self.assertEqual(sorted(self.received()[4:]), sorted(raised))
        rows = {row["name"]: (row["currNumRoutes"], row["midThresh"], row["highThresh"])
                for row in self.system.cli_json("show", "vrf")}
        self.assertEqual(rows, {"set0": (5, 1, 3), "later0": (5, 1, 3)})
        self.expected = self.received()
        for vrf in ("set0", "later0"):
            self.do("config", "set", "vrf", vrf, "threshold", "ipv4", "10", "7")
            self.do("config", "set", "vrf", vrf, "threshold", "ipv4", "5", "4")
            self.do("config", "delete", "vrf", vrf, "threshold", "ipv4")
            self.expected += [(CLEARED, vrf), (MID_EXCEEDED, vrf), (MAX_EXCEEDED, vrf), (CLEARED, vrf)]
        self.do("router", "up", "set0a")
        self.expected.append((UP, "set0"))
        self.check_received()


if __name__ == "__main__":
    unittest.main()
