#!/usr/bin/env python3
"""system_frr_programs.py BIN_DIRECTORY VERSION: programs of the routing suite of that major version (see suite.py) end, hang
and are restarted one at a time. Runs in the guest (see uml-run), as root.

The items of a program that does not answer must stay in the MIB without any commit, and those of the others must be
followed. Protocols must stay on interfaces that are down.
"""
import signal
import subprocess

from suite_system import BGP, SuiteSystemTest, exported_routes, main, vpn_instance  # before system
from kernel import batch, member_lines, vrf_lines
from suite import run
from system import L3VPN, wait_until

VRFS = {"red": 10, "blue": 20, "gold": 40}
MEMBERS = {"red1": "red", "blue1": "blue", "gold1": "gold"}
PROGRAMS = ("zebra", "staticd", "bgpd", "ospfd", "ospf6d", "ripd", "ripngd")
CONFIG = f"""hostname pe1
vrf red
 ip route 192.168.50.0/24 10.1.0.2
exit-vrf
vrf gold
 vni 100
exit-vrf
interface red
 description customer red
exit
interface red1
 ipv6 ospf6 area 0
exit
router ospf vrf red
 network 10.1.0.0/24 area 0
exit
router ospf6 vrf red
 ospf6 router-id 10.1.0.1
exit
router rip vrf blue
 network 10.2.0.0/24
exit
router ripng vrf gold
 network gold1
exit
{BGP}{vpn_instance("red", 1)}router bgp 65000 vrf blue
 bgp router-id 10.2.0.1
 neighbor 10.2.0.2 remote-as 65102
 address-family ipv4 unicast
  redistribute connected
  import vrf gold
 exit-address-family
exit
router bgp 65000 vrf gold
 bgp router-id 10.3.0.1
 address-family ipv4 unicast
  redistribute connected
 exit-address-family
exit
"""


class OneOfManyTest(SuiteSystemTest):
    programs = PROGRAMS
    config = CONFIG
    vrfs = VRFS
    members = MEMBERS

    @classmethod
    def prepare(cls):
        run("modprobe", "-a", "ipv6", "vrf", "dummy", "mpls_router", "mpls_iptunnel")
        addresses = [f"addr add 10.{number}.0.1/24 dev {name}" for number, name in enumerate(MEMBERS, 1)]
        batch(vrf_lines(VRFS) + member_lines(MEMBERS, "link set {name} up") + addresses)

    # --- The suite ---

    def suite_items(self, suite):
        """({VRF: RD}, {(VRF, direction, family, target)})."""
        leaks = suite.ask_json("bgpd", "show bgp vrf all ipv4 unicast route-leak json")["vrfs"]
        rds = {vrf: leaks[vrf]["routeDistinguisher"] for vrf in VRFS if vrf in leaks}
        targets = {(vrf, direction, "ipv4", text) for vrf in rds for direction, key in (("import", "importRts"), ("export", "exportRts"))
                   for text in leaks[vrf][key].split()}
        targets.add(("red", "import", "ipv4", "65000:10"))  # no command shows the imports of a VRF that does not import by name
        for vrf, rd, texts in exported_routes(suite):
            rds[vrf] = rd
            targets.update((vrf, "export", "ipv4", text) for text in texts.split())
        return {vrf: rd for vrf, rd in rds.items() if rd != "none"}, {item for item in targets if item[3] != "none"}

    def suite_protocols(self, suite):
        """{interface: {protocol}}."""
        found = {"red1": {"static"}, "blue1": {"bgp"}, "gold1": set()}  # of whole VRFs
        for protocol, interfaces in (("ospf", suite.ospf_interfaces().get("red", ())), ("rip", suite.rip_interfaces(["blue"])["blue"]),
                                     ("rip", suite.ripng_interfaces(["gold"])["gold"]), ("ospf", suite.ospf6_interfaces("red"))):
            for name in interfaces:
                found[name].add(protocol)
        return found

    def is_whole(self, suite):
        """Whether the suite has loaded everything."""
        try:
            return self.suite_protocols(suite) == {"red1": {"static", "ospf"}, "blue1": {"bgp", "rip"}, "gold1": {"rip"}}
        except OSError:
            return False

    # --- The MIB ---

    def state(self):
        """What must not change: tables of configuration with their times, the owner of each item, and the commits."""
        return {"mib": self.system.walk(f"{L3VPN}.1.2"), "items": self.system.cli("config", "show", "--owners", check=True).stdout,
                "commits": self.system.cli("config", "history", check=True).stdout}

    def assert_state(self, before, when):
        now = self.state()
        for part, value in before.items():
            self.assertEqual(now[part], value, f"{when}: {part}")


class Programs(OneOfManyTest):
    def test_1_the_mib_is_what_the_suite_shows(self):
        wait_until("both versions of OSPF", lambda: " ospf ospf6 " in self.owned("frr") and self.ospf_item(), 30)
        self.assert_becomes_equal(self.mib_protocols, lambda: self.suite_protocols(self.suite), 30)
        self.assertTrue(self.is_whole(self.suite), self.mib_protocols())
        self.assert_becomes_equal(lambda: (self.mib_rds(), self.mib_targets()), lambda: self.suite_items(self.suite))
        self.assertEqual(self.mib_rds().keys(), {"red", "gold"})

    def test_2_items_stay_while_one_program_is_down(self):
        for program in (*(("mgmtd",) if self.release.has_mgmtd else ()), "zebra", "bgpd"):
            with self.subTest(program):
                before = self.state()
                self.suite.signal(program, signal.SIGKILL)
                wait_until("the daemon to notice", lambda each=program: self.is_lost(each))
                self.assert_state(before, f"{program} killed")
                self.suite.start(program)
                wait_until(f"{program} to answer", lambda each=program: not self.is_lost(each))
                self.assert_state(before, f"{program} started")
                self.suite.load()
                wait_until("the suite", lambda: self.is_whole(self.suite), 30)
                self.assert_becomes_equal(self.mib_protocols, lambda: self.suite_protocols(self.suite))
                self.assert_state(before, f"{program} back")

    def test_3_one_program_hangs(self):
        before, said = self.state(), self.system.log("daemon").count("bgpd does not answer")
        self.suite.end_session()
        self.suite.hang("bgpd")
        self.addCleanup(self.suite.resume, "bgpd")
        self.configure_ospf("no network 10.1.0.0/24 area 0", "network 10.1.0.0/25 area 1")
        wait_until("OSPF to be followed", lambda: "area 0.0.0.1" in self.ospf_item())
        wait_until("the daemon to notice", lambda: self.is_lost("bgpd"), 20)
        self.assertEqual(self.mib_rds()["red"], "65000:10")
        self.system.kill("daemon")
        self.system.start_daemon()
        self.system.wait_registered()
        self.configure_ospf("no network 10.1.0.0/25 area 1", "network 10.1.0.0/24 area 0")
        wait_until("OSPF to be followed", lambda: "area 0.0.0.0" in self.ospf_item())
        self.assertEqual(self.system.walk(f"{L3VPN}.1.2"), before["mib"])
        self.assertLessEqual(self.system.log("daemon").count("bgpd does not answer"), said + 2)  # once in each life
        self.suite.resume("bgpd")
        self.suite.configure("router bgp 65000 vrf red", "address-family ipv4 unicast", "no rd vpn export", "rd vpn export 65000:11")
        wait_until("bgpd to be followed", lambda: self.rd("red") == "65000:11", 30)

    def configure_ospf(self, *lines):
        """Uses the shell of one program: a session with all of them would wait for the hanging one."""
        done = subprocess.run([*self.suite.shell_words("-d", "ospfd"), *(word for line in (
            "configure terminal", "router ospf vrf red", *lines) for word in ("-c", line))], capture_output=True, text=True, check=True)
        self.assertNotIn("%", done.stdout)

    def ospf_item(self):
        return "".join(line for line in self.owned("frr").splitlines() if " ospf 1 " in line)

    def test_4_protocols_stay_on_interfaces_that_are_down(self):
        """The suite shows different protocols differently then; the MIB shows what is configured."""
        before = self.mib_protocols()
        for name in MEMBERS:
            run("ip", "link", "set", name, "down")
        wait_until("the suite", lambda: not self.suite.ospf_interfaces().get("red") and
                   not self.suite.rip_interfaces(["blue"])["blue"])
        self.assertEqual((self.suite.ospf6_interfaces("red"), self.suite.ripng_interfaces(["gold"])["gold"]), ({"red1"}, {"gold1"}))
        self.configure_ospf("no network 10.1.0.0/24 area 0", "network 10.1.0.0/25 area 2")  # followed after they went down
        wait_until("OSPF to be followed", lambda: "area 0.0.0.2" in self.ospf_item())
        self.assertEqual(self.mib_protocols(), before)
        for name in MEMBERS:
            run("ip", "link", "set", name, "up")
        wait_until("the suite", lambda: self.is_whole(self.suite), 30)
        self.assertEqual(self.mib_protocols(), before)


if __name__ == "__main__":
    main("system_frr_programs", Programs)
