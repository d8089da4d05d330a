#!/usr/bin/env python3
"""system_frr.py BIN_DIRECTORY VERSION: two routers that exchange VPN routes, with the routing suite of that major
version (see suite.py). Runs in the guest (see uml-run), as root.

This namespace is the first provider edge router, PE1, with the routing suite, the daemon and the SNMP agents; "p" and
"pe2" are namespaces: a router that switches labels, and the second edge router with a suite of its own. After every
step RDs, route targets, policies, protocols of interfaces and routes in the MIB must equal the output of the suite's own
commands, and the times of last change may differ only for VRFs that changed.
"""
import ipaddress
import re
import time

from suite_system import SuiteSystemTest, main, vpn_family  # before system
from kernel import Kernel, batch, member_lines, vrf_lines
from suite import Suite, run
from system import IF_ENTRY, ROUTE_ENTRY, bits, dotted, expected_if_conf, name_index, wait_until

VRFS = {"red": 10, "blue": 20, "green": 1030}
PE1_PROGRAMS = ("zebra", "staticd", "bgpd", "ospfd", "ripd", "eigrpd")
PE2_PROGRAMS = ("zebra", "staticd", "bgpd")
UP_TO_DATE = 2.0  # seconds from the end of a command to the MIB that shows it

LINKS = """
link add core type veth peer name to-pe1 netns p
addr add 10.255.0.1/32 dev lo
addr add 10.12.1.1/30 dev core
link set core up
addr add 2001:db8:c1::1/64 dev core nodad
addr add 2001:db8:ff::1/128 dev lo
"""
MEMBERS = {"red1": ("red", "10.1.0.1/30"), "red2": ("red", "10.4.0.1/30"), "blue1": ("blue", "10.2.0.1/30"),
           "grn1": ("green", "10.3.0.1/30")}
P_LINKS = """
link set lo up
link add to-pe2 type veth peer name core netns pe2
addr add 10.12.1.2/30 dev to-pe1
addr add 10.12.2.2/30 dev to-pe2
link set to-pe1 up
link set to-pe2 up
addr add 2001:db8:c1::2/64 dev to-pe1 nodad
addr add 2001:db8:c2::2/64 dev to-pe2 nodad
"""
PE2_LINKS = """
link set lo up
link add red type vrf table 10
link set red up
addr add 10.255.0.2/32 dev lo
addr add 2001:db8:ff::2/128 dev lo
addr add 10.12.2.1/30 dev core
link set core up
addr add 2001:db8:c2::1/64 dev core nodad
link add red1 type dummy
link set red1 master red
link set red1 up
addr add 10.21.0.1/24 dev red1
addr add 2001:db8:21::1/64 dev red1 nodad
"""
P_ROUTES = """
route add 10.255.0.1/32 via 10.12.1.1
route add 10.255.0.2/32 via 10.12.2.1
route add 2001:db8:ff::1/128 via 2001:db8:c1::1
route add 2001:db8:ff::2/128 via 2001:db8:c2::1
"""
# The middle router removes the outer label: it is the penultimate hop of both edge routers.
P_LABELS = """
route add 1001 via inet 10.12.1.1
route add 1002 via inet 10.12.2.1
route add 1101 via inet6 2001:db8:c1::1
route add 1102 via inet6 2001:db8:c2::1
"""


def core_bgp(own, peer, own6, peer6):
    return f"""
router bgp 65000
 bgp router-id {own}
 no bgp default ipv4-unicast
 neighbor {peer} remote-as 65000
 neighbor {peer} update-source lo
 neighbor {peer} timers connect 2
 neighbor {peer6} remote-as 65000
 neighbor {peer6} update-source lo
 neighbor {peer6} timers connect 2
 address-family ipv4 vpn
  neighbor {peer} activate
 exit-address-family
 address-family ipv6 vpn
  neighbor {peer6} activate
 exit-address-family
exit
"""


PE1_CONFIG = """hostname pe1
ip route 10.255.0.2/32 10.12.1.2 label 1002
ipv6 route 2001:db8:ff::2/128 2001:db8:c1::2 label 1102
vrf red
 ip route 192.168.50.0/24 10.1.0.2
 ip route 192.168.52.0/24 blackhole
exit-vrf
vrf blue
 ip route 192.168.60.0/24 blue1
exit-vrf
interface red
 description customer red
exit
route-map RM-IN permit 10
exit
route-map RM-OUT permit 10
exit
""" + core_bgp("10.255.0.1", "10.255.0.2", "2001:db8:ff::1", "2001:db8:ff::2") + """
router bgp 65000 vrf red
 bgp router-id 10.1.0.1
 neighbor 10.1.0.2 remote-as 65101
 neighbor 2001:db8:1::2 remote-as 65101
 address-family ipv4 unicast
  redistribute connected
  redistribute static
  no neighbor 2001:db8:1::2 activate
  label vpn export auto
  rd vpn export 65000:10
  rt vpn import 65000:10 65000:99
  rt vpn export 65000:10
  route-map vpn import RM-IN
  route-map vpn export RM-OUT
  export vpn
  import vpn
 exit-address-family
""" + vpn_family("65000:10", "65000:10", "ipv6", further="  neighbor 2001:db8:1::2 activate\n") + f"""exit
router bgp 65000 vrf blue
 bgp router-id 10.2.0.1
{vpn_family("10.255.0.1:20", "65000:20")}exit
router bgp 65000 vrf green
 bgp router-id 10.3.0.1
{vpn_family("4200000000:30", "4200000000:30", label=5030)}exit
router ospf vrf blue
 ospf router-id 10.2.0.1
 network 10.2.0.0/30 area 0
exit
router rip vrf green
 network 10.3.0.0/30
exit
router eigrp 100 vrf red
 network 10.4.0.0/30
exit
"""
PE2_CONFIG = """hostname pe2
ip route 10.255.0.1/32 10.12.2.2 label 1001
ipv6 route 2001:db8:ff::1/128 2001:db8:c2::2 label 1101
""" + core_bgp("10.255.0.2", "10.255.0.1", "2001:db8:ff::2", "2001:db8:ff::1") + """
router bgp 65000 vrf red
 bgp router-id 10.21.0.1
""" + vpn_family("65000:110", "65000:10") + vpn_family("65000:110", "65000:10", "ipv6") + "exit\n"


def prepare_routers():
    run("modprobe", "-a", "ipv6", "vrf", "dummy", "veth", "mpls_router", "mpls_iptunnel")
    for namespace in ("p", "pe2"):
        run("ip", "netns", "add", namespace)
    for inside in ((), ("ip", "netns", "exec", "p"), ("ip", "netns", "exec", "pe2")):
        run(*inside, "sysctl", "-qw", "net.ipv4.ip_forward=1", "net.ipv6.conf.all.forwarding=1",
            "net.mpls.platform_labels=1048575", "net.ipv4.conf.all.rp_filter=0")
    members = [line for name, (vrf, address) in MEMBERS.items()
               for line in member_lines({name: vrf}, "link set {name} up", f"addr add {address} dev {name}")]
    batch([*LINKS.split("\n"), *vrf_lines(VRFS), *members, "addr add 2001:db8:1::1/64 dev red1 nodad"])
    batch(P_LINKS.split("\n"), "-n", "p")
    batch(PE2_LINKS.split("\n"), "-n", "pe2")
    batch(P_ROUTES.split("\n"), "-n", "p")
    batch(P_LABELS.split("\n"), "-n", "p", "-f", "mpls")
    for inside, interface in (((), "core"), (("p",), "to-pe1"), (("p",), "to-pe2"), (("pe2",), "core")):
        run(*(("ip", "netns", "exec", *inside) if inside else ()), "sysctl", "-qw", f"net.mpls.conf.{interface}.input=1")


class Edge(SuiteSystemTest):
    """PE1: its suite against its MIB."""
    programs = PE1_PROGRAMS
    config = PE1_CONFIG
    vrfs = VRFS

    @classmethod
    def prepare(cls):
        prepare_routers()
        other = Suite(cls.release, "pe2", PE2_PROGRAMS, PE2_CONFIG)
        other.start()
        other.load()

    # --- The suite ---

    def configured(self):
        """{"rd": {(VRF, family)}, "rt": {...}, "policy": {...}} of the running configuration."""
        found = {"rd": {}, "rt": set(), "policy": {}}
        vrf = family = None
        for line in self.suite.ask("bgpd", "show running-config").splitlines():
            if line[:1] != " ":
                head = re.fullmatch(r"router bgp \S+ vrf (\S+)", line)
                vrf, family = head and head[1], None
            words = line.split()
            if words[:1] == ["address-family"]:
                family = words[1]
            if vrf is None or family is None:
                continue
            if words[:3] == ["rd", "vpn", "export"]:
                found["rd"][vrf, family] = words[3]
            elif words[:2] == ["rt", "vpn"]:
                for direction in ("import", "export"):
                    if words[2] in (direction, "both"):
                        found["rt"].update((vrf, direction, family, text) for text in words[3:])
            elif words[:2] == ["route-map", "vpn"]:
                found["policy"][vrf, family, words[2]] = words[3]
        return found

    def protocols(self):
        """{(VRF, interface index): protocol numbers} by the suite's commands and the static routes."""
        index = Kernel().indexes()
        found = {(vrf, index[name]): set() for name, (vrf, _) in MEMBERS.items()}
        in_whole = {(vrf, 1) for vrf in self.suite.vrfs_with_neighbors()}
        for number, in_vrfs in ((2, self.suite.ospf_interfaces()), (3, self.suite.rip_interfaces(VRFS)),
                                (6, self.suite.eigrp_interfaces(VRFS))):
            for vrf, names in in_vrfs.items():
                for name in names:
                    found[vrf, index[name]].add(number)
        vrf = None
        for line in self.suite.running_config().splitlines():
            if line[:1] != " ":
                vrf = line.split()[1] if line.startswith("vrf ") else None
            elif vrf and re.match(r" ip(v6)? route ", line):
                out = line.split()[3]
                if out in index:
                    found[vrf, index[out]].add(5)
                else:
                    in_whole.add((vrf, 5))
        for key, numbers in found.items():
            numbers.update(number for vrf, number in in_whole if vrf == key[0])
        return found

    def installed(self):
        """{(VRF, prefix)} of the routes that the suite has installed in the kernel or found there.

        Without the addresses of the router itself, which version 10 shows as routes and the MIB does not.
        """
        found = set()
        for vrf in VRFS:
            for words in ("ip", "ipv6"):
                for prefix, ways in self.suite.ask_json("zebra", f"show {words} route vrf {vrf} json").items():
                    if any(way.get("installed") and way["protocol"] != "local" for way in ways):
                        found.add((vrf, ipaddress.ip_network(prefix)))
        return {(vrf, prefix) for vrf, prefix in found if not prefix.is_link_local}

    def suite_shows(self):
        found, protocols = self.configured(), self.protocols()
        rds = {vrf: found["rd"].get((vrf, "ipv4"), found["rd"].get((vrf, "ipv6"), "")) for vrf in VRFS}
        policies = {vrf: tuple(found["policy"].get((vrf, "ipv4", way), "") for way in ("import", "export")) for vrf in VRFS}
        return {"rd": {vrf: rd for vrf, rd in rds.items() if rd}, "rt": found["rt"], "policy": policies, "routes": self.installed(),
                "interfaces": [row for row in expected_if_conf(protocols, {key: tuple(value) for key, value in protocols.items()})
                               if row[0][len(IF_ENTRY)] == 3]}

    # --- The MIB ---

    def policies(self):
        """{VRF: (import, export)} of IPv4 unicast."""
        found = {}
        for vrf in self.system.cli_json("show", "vrf", "detail"):
            table = next((table for table in vrf["addressFamilies"] if (table["afi"], table["safi"]) == (1, 1)), {})
            found[vrf["name"]] = (table.get("importRoutePolicy", ""), table.get("exportRoutePolicy", ""))
        return found

    def mib_shows(self):
        name_of = {name_index(name): name for name in VRFS}
        policies = {vrf: policy for vrf, policy in self.policies().items() if vrf in VRFS}
        routes = set()
        for column, index in self.rows(ROUTE_ENTRY):
            if column == 8:
                length = 1 + index[0]
                vrf, rest = name_of[index[:length]], index[length:]
                address = ipaddress.ip_address(bytes(rest[2:2 + rest[1]]))
                routes.add((vrf, ipaddress.ip_network((address, rest[2 + rest[1]]))))
        return {"rd": self.mib_rds(), "rt": self.mib_targets(), "policy": policies,
                "routes": {(vrf, prefix) for vrf, prefix in routes if not prefix.is_link_local and not prefix.is_multicast},
                "interfaces": self.system.walk(dotted(IF_ENTRY + (3,)))}

    # --- Steps ---

    def assert_equal_to_suite(self, seconds=10.0):
        self.assert_becomes_equal(self.mib_shows, self.suite_shows, seconds)

    def has_routes_of_pe2(self):
        return {("red", ipaddress.ip_network(prefix)) for prefix in ("10.21.0.0/24", "2001:db8:21::/64")} <= self.installed()

    def step(self, what, action, shows, moved):
        """Does it and waits until `shows()`; then everything agrees, and only the times of `moved` have changed."""
        before = self.changed()
        wait_until("a later second", lambda: time.time() > max(before.values()) + 1.1)
        action()
        began = time.monotonic()
        wait_until(what, shows, UP_TO_DATE)
        print(f"{what}: {time.monotonic() - began:.2f} s", flush=True)
        self.assert_equal_to_suite()
        after = self.changed()
        self.assertEqual({vrf for vrf in VRFS if after[vrf] != before[vrf]}, set(moved), what)

    def configure_step(self, what, lines, shows, moved):
        self.step(what, lambda: self.suite.configure(*lines), shows, moved)

    def target_texts(self, vrf):
        return {target for each, _, _, target in self.mib_targets() if each == vrf}

    def test_1_the_mib_is_what_the_suite_shows(self):
        wait_until("routes of PE2", self.has_routes_of_pe2, 60)
        self.assert_equal_to_suite(30)
        shown = self.mib_shows()
        self.assertEqual(shown["rd"], {"red": "65000:10", "blue": "10.255.0.1:20", "green": "4200000000:30"})
        self.assertEqual(len(shown["rt"]), 9)
        self.assertEqual(shown["policy"]["red"], ("RM-IN", "RM-OUT"))
        self.assertEqual(self.system.cli_json("get", "vrf/red")["description"], "customer red")
        in_suite = self.protocols()
        self.assertEqual(sorted(map(sorted, in_suite.values())), [[1, 5], [1, 5, 6], [2, 5], [3]])
        self.assertIn(bits(1, 5, 6), [value for _, value in shown["interfaces"]])

    def test_2_changes_are_followed_and_move_the_times_of_their_vrfs_only(self):
        red4 = ("router bgp 65000 vrf red", "address-family ipv4 unicast")
        self.configure_step("an RD changed", (*red4, "no rd vpn export", "rd vpn export 65000:11"),
                            lambda: self.rd("red") == "65000:11", {"red"})
        self.configure_step("a route target more", (*red4, "rt vpn import 65000:10 65000:99 65000:77"),
                            lambda: "65000:77" in self.target_texts("red"), {"red"})
        self.configure_step("route targets less", (*red4, "rt vpn import 65000:10"),
                            lambda: self.target_texts("red") == {"65000:10"}, {"red"})
        self.configure_step("no export policy", (*red4, "no route-map vpn export RM-OUT"),
                            lambda: self.policies()["red"] == ("RM-IN", ""), set())  # policies do not set the time
        self.configure_step("a VRF that only the suite has", ("router bgp 65000 vrf azure", "address-family ipv4 unicast",
                                                              "rd vpn export 65000:40", "rt vpn both 65000:40"),
                            lambda: self.target_texts("azure") == {"65000:40"}, set())
        self.configure_step("no instance for blue", ("no router bgp 65000 vrf blue",),
                            lambda: self.target_texts("blue") == set() and self.rd("blue") == "", {"blue"})

    def test_3_the_suite_is_restarted(self):
        self.suite.command("write memory")
        before, times = self.mib_shows(), self.changed()
        for programs in (("bgpd",), ()):
            self.suite.stop(*programs)
            wait_until("the daemon to notice", lambda: self.is_lost("bgpd"), 20)
            self.assert_configuration(before, times)
            self.suite.start(*programs)
            wait_until("bgpd to answer", lambda: not self.is_lost("bgpd"), 20)
            self.assert_configuration(before, times)
            self.suite.load()
            wait_until("routes of PE2", self.has_routes_of_pe2, 60)
            self.assert_equal_to_suite(20)
            self.assert_configuration(before, times)
        self.configure_step("an RD changed", ("router bgp 65000 vrf green", "address-family ipv4 unicast", "no rd vpn export",
                                              "rd vpn export 65000:31"), lambda: self.rd("green") == "65000:31", {"green"})

    def test_4_the_daemon_is_restarted_while_the_suite_is_down(self):
        before, times = self.mib_shows(), self.changed()
        self.suite.command("write memory")
        self.suite.stop()
        self.system.kill("daemon")
        self.system.start_daemon()
        self.system.wait_registered()
        wait_until("the SNMP agent", lambda: self.rd("green") == "65000:31")
        self.assert_configuration(before, times)
        self.suite.start()
        self.suite.load()
        wait_until("routes of PE2", self.has_routes_of_pe2, 60)
        self.assert_equal_to_suite(20)
        self.assert_configuration(before, times)

    def assert_configuration(self, before, times):
        shown = self.mib_shows()
        for part in ("rd", "rt", "policy", "interfaces"):
            self.assertEqual(shown[part], before[part], part)
        self.assertEqual(self.changed(), times)


if __name__ == "__main__":
    main("system_frr", Edge)
