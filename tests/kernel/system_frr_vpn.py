#!/usr/bin/env python3
"""system_frr_vpn.py BIN_DIRECTORY VERSION: what a VRF gets from a routing suite of that major version (see suite.py) besides
configured RDs and route targets. Runs in the guest (see uml-run), as root.

VRFs import each other by name, export VPN routes, and have a VNI. The RDs and route targets that the suite derives must be
in the MIB and change with the router ID as the suite's own commands show. So must the protocols of interfaces:
OSPFv3, RIPng, BGP with neighbors of a listen range and on an interface.
"""
from suite_system import SuiteSystemTest, exported_routes, main, vpn_family  # before system
from kernel import batch, member_lines, vrf_lines
from suite import run
from system import wait_until

VRFS = {"red": 10, "blue": 20, "green": 30, "gold": 40, "gray": 50}
MEMBERS = {"red1": "red", "red2": "red", "blue1": "blue", "green1": "green", "gold1": "gold", "gray1": "gray"}
PROGRAMS = ("zebra", "staticd", "bgpd", "ospf6d", "ripngd", "isisd")
FAMILIES = ("ipv4", "ipv6", "evpn")  # the VRF's RD is that of the first family that has one

# With the bridge of a VXLAN the VNI of its VRF is a layer-3 VNI.
VNIS = "".join(f"""
link add br{vni} type bridge
link set br{vni} master {vrf} addrgenmode none
link set br{vni} up
link add vx{vni} type vxlan id {vni} local 10.255.0.1 dstport 4789 nolearning
link set vx{vni} master br{vni} addrgenmode none
link set vx{vni} up
""" for vrf, vni in (("gold", 100), ("gray", 200)))

CONFIG = f"""hostname pe1
vrf gold
 vni 100
exit-vrf
vrf gray
 vni 200
exit-vrf
vrf blue
 ip router-id 10.3.0.1
exit-vrf
interface red2
 ipv6 ospf6 area 0.0.0.1
exit
interface green1
 ipv6 ospf6 area 0
 ip router isis A
exit
router isis A vrf green
 net 49.0001.0000.0000.0001.00
exit
router ospf6 vrf red
 ospf6 router-id 10.1.0.1
exit
router ripng vrf red
 network 2001:db8:1::/48
 network red2
exit
router ripng vrf blue
 network blue1
exit
router ripng vrf green
 network 2001:db8:4::1/127
exit
router bgp 65000
 bgp router-id 10.255.0.1
 neighbor 10.255.0.2 remote-as 65000
 address-family l2vpn evpn
  neighbor 10.255.0.2 activate
  advertise-all-vni
 exit-address-family
exit
router bgp 65000 vrf red
 bgp router-id 10.1.0.1
 neighbor CE peer-group
 neighbor CE remote-as 65101
 bgp listen range 10.1.0.0/24 peer-group CE
 address-family ipv4 unicast
  redistribute connected
  import vrf blue
 exit-address-family
exit
router bgp 65000 vrf blue
 neighbor blue1 interface remote-as external
 address-family ipv4 unicast
  redistribute connected
  import vrf red
 exit-address-family
 address-family ipv6 unicast
  redistribute connected
  import vrf red
 exit-address-family
exit
router bgp 65000 vrf green
 bgp router-id 10.4.0.1
{vpn_family("65000:30", "65000:30")}exit
router bgp 65000 vrf gold
 bgp router-id 10.5.0.1
 address-family l2vpn evpn
  advertise ipv4 unicast
 exit-address-family
exit
router bgp 65000 vrf gray
 bgp router-id 10.6.0.1
 address-family l2vpn evpn
  rd 65000:200
  route-target import 65000:201
  route-target import 10.0.0.1:202
  route-target export 4200000000:203
 exit-address-family
exit
"""
CHANGED = ("red", "blue", "green", "gold")
ROUTER_IDS = [line for number, vrf in enumerate(CHANGED, 1)
              for line in (f"router bgp 65000 vrf {vrf}", f"bgp router-id 10.9.{number}.1", "exit")]


def prepare_router():
    run("modprobe", "-a", "ipv6", "vrf", "dummy", "bridge", "vxlan", "mpls_router", "mpls_iptunnel")
    run("sysctl", "-qw", "net.ipv4.ip_forward=1", "net.ipv6.conf.all.forwarding=1", "net.mpls.platform_labels=1048575")
    addresses = [line for number, name in enumerate(MEMBERS, 1)
                 for line in (f"addr add 10.{number}.0.1/24 dev {name}", f"addr add 2001:db8:{number}::1/64 dev {name} nodad")]
    batch(vrf_lines(VRFS) + member_lines(MEMBERS, "link set {name} up") + addresses +
          ["addr add 10.255.0.1/32 dev lo", *VNIS.split("\n")])


def add_origin(found, what, value, origin):
    if value:
        found.setdefault(what, set()).add((value, origin))


def as_origins(items, origin_of):
    found = {}
    for vrf, word, family, value in items:
        add_origin(found, (vrf, word, family), value, origin_of(vrf, word, value))
    return found


def differences(before, after):
    for what in before.keys() | after.keys():
        old, new = before.get(what, set()), after.get(what, set())
        yield from ((what, "-", *item) for item in old - new)
        yield from ((what, "+", *item) for item in new - old)


class Vpns(SuiteSystemTest):
    programs = PROGRAMS
    config = CONFIG
    vrfs = VRFS
    members = MEMBERS
    prepare = staticmethod(prepare_router)

    # --- The suite ---

    def leaks(self):
        """(family, VRF, RD, import targets, export targets) of VRFs that import by name or are imported."""
        for family in ("ipv4", "ipv6"):
            shown = self.suite.ask_json("bgpd", f"show bgp vrf all {family} unicast route-leak json")
            for vrf, leak in shown["vrfs"].items():
                if vrf in VRFS:
                    yield (family, vrf, *("" if leak[key] == "none" else leak[key]
                                          for key in ("routeDistinguisher", "importRts", "exportRts")))

    def evpn(self):
        """(VRF, RD, import targets, export targets) of VRFs with a VNI."""
        vrf_of = {shown["l3vni"]: vrf for vrf, shown in self.suite.ask_json("bgpd", "show bgp vrfs json")["vrfs"].items()}
        for shown in self.suite.ask_json("bgpd", "show bgp l2vpn evpn vni json").values():
            if isinstance(shown, dict) and shown["type"] == "L3":
                yield vrf_of[shown["vni"]], shown["rd"], shown["importRTs"], shown["exportRTs"]

    def suite_items(self):
        """{VRF: RD} and {(VRF, direction, family, target)}."""
        rds, targets = {}, set()

        def add(vrf, family, rd, imports, exports):
            if rd:
                rds.setdefault(vrf, {})[family] = rd
            targets.update((vrf, "import", family, text) for text in imports)
            targets.update((vrf, "export", family, text) for text in exports)

        for family, vrf, rd, imports, exports in self.leaks():
            add(vrf, family, rd, imports.split(), exports.split())
        for vrf, rd, texts in exported_routes(self.suite):
            add(vrf, "ipv4", rd, (), texts.split())
        for vrf, rd, imports, exports in self.evpn():
            add(vrf, "evpn", rd, imports, exports)
        add("green", "ipv4", "", ("65000:30",), ())  # no command shows the imports of a VRF that does not import by name
        return {vrf: min(families.items(), key=lambda item: FAMILIES.index(item[0]))[1]
                for vrf, families in rds.items()}, targets

    def suite_origins(self):
        """The same items as {what: {(value, origin)}}: configured is what the suite prints as its configuration."""
        rds, targets = self.suite_items()
        lines = {vrf: self.section(vrf) for vrf in VRFS}

        def origin(vrf, word, value):
            heads = ("rd",) if word == "rd" else ("rt", "route-target")
            return "configured" if any(line[0] in heads and value in line for line in lines[vrf]) else "derived"
        return as_origins([(vrf, "rd", "", rd) for vrf, rd in rds.items()] + list(targets), origin)

    def router_id(self, vrf):
        return self.suite.ask_json("bgpd", "show bgp vrfs json")["vrfs"][vrf]["routerId"]

    def suite_protocols(self):
        """{interface: {protocol}}."""
        found = {name: set() for name in MEMBERS}
        for vrf in ("red", "green"):
            for name in self.suite.ospf6_interfaces(vrf):
                found[name].add("ospf")
        for name in set().union(*self.suite.ripng_interfaces(("red", "blue", "green")).values()):
            found[name].add("rip")
        with_bgp = self.suite.vrfs_with_neighbors()
        with_bgp.update(vrf for vrf in ("red", "blue") if "listen range" in self.suite.ask("bgpd", f"show bgp vrf {vrf} peer-group"))
        for name, vrf in MEMBERS.items():
            if vrf in with_bgp:
                found[name].add("bgp")
        return found

    # --- The MIB ---

    def mib_items(self):
        return self.mib_rds(), self.mib_targets()

    def details(self):
        """What the command line shows of each VRF, as suite_origins()."""
        found = {}
        for vrf in VRFS:
            shown, = self.system.cli_json("show", "vrf", vrf, "detail")
            add_origin(found, (vrf, "rd", ""), shown["rd"], shown["rdOrigin"])
            for table in shown["addressFamilies"]:
                family = {"unicast": table["afiName"]}.get(table["safiName"], table["safiName"])
                for target in table["routeTargets"]:
                    add_origin(found, (vrf, target["typeName"], family), target["value"], target["origin"])
        return found

    def assert_items_of_the_suite(self):
        self.assert_becomes_equal(self.mib_items, self.suite_items)

    def reported(self):
        """The changes that were watched, in the words of suite_origins()."""
        for change in self.changes():
            self.assertEqual(change["lostBefore"], 0)
            word = change["change"].removeprefix("rt ")
            what = (change["vrfName"], word, change["family"] or "")
            yield what, (change["oldValue"], change["oldOrigin"]), (change["newValue"], change["newOrigin"])

    def assert_reported(self, *states):
        """The changes lead from each state to the next one, each once. Of route targets that are added and removed together
        any two may be one change."""
        expected = sorted(line for before, after in zip(states, states[1:]) for line in differences(before, after))

        def reported():
            lines, changes = [], list(self.reported())
            for what, old, new in changes:
                # The suite is asked for the families one after the other, and may change in between.
                if what[1:] == ("rd", "ipv6") and ((what[0], "rd", ""), old, new) in changes:
                    continue
                lines += [(what, "-", *old)] if old[0] else []
                lines += [(what, "+", *new)] if new[0] else []
            return sorted(lines)
        wait_until("the changes", lambda: len(reported()) >= len(expected))
        self.assertEqual(reported(), expected)
        for what, old, new in self.reported():
            self.assertTrue(what[1] != "rd" or (old[0] and new[0]), f"{what}: {old} -> {new}")

    # --- Tests ---

    def test_1_the_mib_has_what_the_suite_derives(self):
        wait_until("the VNIs", lambda: len(list(self.evpn())) == 2, 30)
        wait_until("VPN routes", lambda: {vrf for vrf, *_ in exported_routes(self.suite)} >= {"red", "blue", "green"}, 30)
        self.assert_items_of_the_suite()
        rds, targets = self.mib_items()
        self.assertEqual(set(rds), set(VRFS))
        self.assertEqual((rds["green"], rds["gray"]), ("65000:30", "65000:200"))
        self.assertTrue(all(rds[vrf].startswith(f"10.{number}.0.1:")
                            for vrf, number in (("red", 1), ("blue", 3), ("gold", 5))), rds)
        self.assertIn(("gold", "import", "evpn", "65000:100"), targets)
        self.assertEqual(self.details(), self.suite_origins())
        self.assertIn(f"vrf red rd {rds['red']} ipv4", self.owned("frr-derived"))
        self.assertNotIn(" gray ", self.owned("frr-derived"))

    def test_2_interfaces_have_their_protocols(self):
        self.assert_becomes_equal(self.mib_protocols, self.suite_protocols)
        self.assertEqual(self.mib_protocols(), {"red1": {"bgp", "rip"}, "red2": {"bgp", "rip", "ospf"},
                                                "blue1": {"bgp", "rip"}, "green1": {"rip"}, "gold1": set(), "gray1": set()})
        circuits = self.suite.ask_json("isisd", "show isis vrf green interface json")["areas"][0]["circuits"]
        self.assertEqual(circuits[0]["interface"]["name"], "green1", "IS-IS runs, and no subscription can carry it")

    def test_3_vnis_are_in_the_details(self):
        instances = self.suite.ask_json("bgpd", "show bgp vrfs json")["vrfs"]
        vnis = {vrf: instances[vrf]["l3vni"] or None for vrf in VRFS}
        self.assertEqual({vrf for vrf, vni in vnis.items() if vni}, {"gold", "gray"})
        shown = {vrf: self.system.cli_json("show", "vrf", vrf, "detail")[0] for vrf in VRFS}
        self.assertEqual({vrf: detail["vni"] for vrf, detail in shown.items()}, vnis)
        self.assertEqual({vrf: detail["vniOrigin"] for vrf, detail in shown.items()},
                         {vrf: vni and "configured" for vrf, vni in vnis.items()})

    def test_4_router_ids_change_what_is_derived_and_each_change_is_reported(self):
        was = self.suite_origins()
        self.watch_changes()
        self.system.cli("config", "set", "vrf", "gold", "rd", "65000:77", "evpn", check=True)  # overrides the suite's
        covered = {**was, ("gold", "rd", ""): {("65000:77", "operator")}}
        self.assertEqual(self.details(), covered)
        self.suite.configure("ip router-id 10.8.2.1 vrf blue")  # of zebra: changes the instance, but nothing derived
        wait_until("the instance", lambda: self.router_id("blue") == "10.8.2.1")
        self.assertEqual(self.suite_origins(), was)
        self.suite.configure(*ROUTER_IDS)
        wait_until("the suite", lambda: {self.suite_items()[0][vrf].partition(":")[0] for vrf in CHANGED} ==
                   {f"10.9.{number}.1" for number, _ in enumerate(CHANGED, 1)})
        self.assert_becomes_equal(self.mib_items, lambda: ({**self.suite_items()[0], "gold": "65000:77"}, self.suite_items()[1]))
        now = self.suite_origins()
        still_covered = {**now, ("gold", "rd", ""): {("65000:77", "operator")}}
        self.assertEqual(self.details(), still_covered)
        self.system.cli("config", "delete", "vrf", "gold", "rd", "65000:77", "evpn", check=True)
        self.assert_items_of_the_suite()
        self.assertEqual(self.details(), now)
        self.assert_reported(was, covered, still_covered, now)

    def test_5_configured_rds_take_over_from_derived_ones(self):
        self.suite.configure("router bgp 65000 vrf blue", "address-family ipv4 unicast", "no import vrf red",
                             "exit-address-family", "address-family ipv6 unicast", "no import vrf red")
        self.suite.configure("router bgp 65000 vrf gold", "address-family l2vpn evpn", "rd 65000:9", "route-target export 65000:8")
        self.assert_items_of_the_suite()
        self.assertEqual(self.details(), self.suite_origins())
        self.assertEqual(self.mib_items()[0]["gold"], "65000:9")

    def test_6_numbers_in_asdot(self):
        if self.release.major < 10:
            self.skipTest(f"FRR {self.release.version} has no as-notation")
        for vrf in ("red", "blue", "green"):
            self.suite.configure(f"no router bgp 65000 vrf {vrf}")
        self.suite.configure("router bgp 1.10 vrf green as-notation dot+", "bgp router-id 10.4.0.1", "address-family ipv4 unicast",
                             "redistribute connected", "label vpn export auto", "rd vpn export 0.65000:100000",
                             "rt vpn export 1.10:30 0.65000:31", "rt vpn import 65000:30", "export vpn", "import vpn")
        wait_until("the export", lambda: any(vrf == "green" for vrf, *_ in exported_routes(self.suite)), 10)
        self.assert_items_of_the_suite()
        self.assertEqual(self.mib_items()[0]["green"], "65000:100000")
        self.assertIn(("green", "export", "ipv4", "65546:30"), self.mib_items()[1])


if __name__ == "__main__":
    main("system_frr_vpn", Vpns)
