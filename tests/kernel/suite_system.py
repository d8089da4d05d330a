"""For tests with the routing suite: this machine is a router with the suite of RELEASE and the whole system.

The output of the suite's programs is the expected result; the MIB is read over SNMP, origins on the command line.
"""
import re
import sys
import unittest

from guest_system import GuestSystemTest  # before system and suite
import suite
from kernel import Kernel
from suite import run
from system import BIN, RT_ENTRY, VRF_ENTRY, dotted, name_index, wait_until

FAMILIES = {"IPv4 Unicast": "ipv4", "IPv6 Unicast": "ipv6", "": "evpn"}
DIRECTIONS = {1: "import", 2: "export"}


def vpn_family(rd, target, family="ipv4", label="auto", further=""):
    """The address family of a VRF's BGP instance that imports and exports VPN routes with one route target."""
    return f""" address-family {family} unicast
  redistribute connected
  label vpn export {label}
  rd vpn export {rd}
  rt vpn both {target}
  export vpn
  import vpn
{further} exit-address-family
"""


# Without a router ID of its own, version 10 may replace a configured route target at its start when it chooses one.
BGP = """router bgp 65000
 bgp router-id 10.255.0.1
exit
"""


def vpn_instance(vrf, number):
    """BGP of the VRF whose first network is 10.NUMBER.0.0/24, with RD and route target 65000:NUMBER0."""
    target = f"65000:{number}0"
    return f"""router bgp 65000 vrf {vrf}
 bgp router-id 10.{number}.0.1
{vpn_family(target, target)}exit
"""


class SuiteSystemTest(GuestSystemTest):
    """`prepare` creates the router's devices before the suite's programs are started with their configuration."""
    release = None
    programs = ()
    config = "hostname pe1\n"
    vrfs = {}     # {name: table}
    members = {}  # {interface: VRF}
    maxDiff = None

    @classmethod
    def prepare(cls):
        """Overridden by tests."""

    @classmethod
    def setUpClass(cls):
        run("sysctl", "-qw", "kernel.hostname=pe1")  # the suite writes it into what it saves
        cls.prepare()
        cls.suite = suite.Suite(cls.release, None, cls.programs, cls.config)
        cls.suite.start()
        cls.suite.load()
        if cls.frr is None and cls.release.root:
            cls.frr = " ".join(cls.suite.shell_words())
        super().setUpClass()

    @classmethod
    def tearDownClass(cls):
        """The suite ends with the guest."""
        print(cls.system.log("daemon"), flush=True)
        super().tearDownClass()

    # --- The suite ---

    def section(self, vrf):
        """The lines of the VRF's instance in the running configuration of BGP, as words."""
        text = self.suite.ask("bgpd", "show running-config")
        found = re.search(rf"^router bgp \S+ vrf {vrf}\n(.*?)^exit", text, re.MULTILINE | re.DOTALL)
        return [line.split() for line in found[1].splitlines()] if found else []

    def is_lost(self, program):
        said = re.findall(rf"frr: {program} (answers|does not answer)", self.system.log("daemon"))
        return said[-1:] == ["does not answer"]

    # --- The MIB ---

    def rows(self, entry):
        """{(column, index): value}."""
        return {(oid[len(entry)], oid[len(entry) + 1:]): value.strip('"')
                for oid, value in self.system.walk(dotted(entry))}

    def rd(self, vrf):
        return (self.system.get_value(dotted(VRF_ENTRY + (4,) + name_index(vrf))) or "").strip('"')

    def mib_protocols(self):
        """{interface: {protocol}} as the command line shows them."""
        return {row["name"]: set(row["protocolNames"]) - {"none"} for row in self.system.cli_json("show", "interfaces")
                if row["name"] in self.members}

    def mib_rds(self):
        """{VRF: RD} of VRFs that have one."""
        name_of = {name_index(name): name for name in self.vrfs}
        return {name_of[index]: value for (column, index), value in self.rows(VRF_ENTRY).items() if column == 4 and value}

    def mib_targets(self):
        """{(VRF, direction, family, target)}; without rows that were removed while the table was walked."""
        rows = self.rows(RT_ENTRY)
        return {(bytes(index[1:1 + index[0]]).decode(), DIRECTIONS[index[-1]], FAMILIES[rows[5, index]], value)
                for (column, index), value in rows.items() if column == 4 and (5, index) in rows}

    def changed(self):
        """{VRF: seconds of its last change}."""
        return {vrf: self.system.cli_json("get", f"vrf/{vrf}")["confLastChanged"] for vrf in self.vrfs}

    def owned(self, owner):
        return self.system.cli("config", "show", "--owner", owner).stdout

    def watch_changes(self):
        """Starts `mplsvpn watch changes`; `changes` returns its output."""
        self.system.spawn("watch", str(BIN / "mplsvpn"), "--json", "watch", "changes")
        self.addCleanup(self.end_watch)
        wait_until("watch", lambda: "watching for" in self.system.log("watch"))

    def end_watch(self):
        self.system.kill("watch")
        (self.system.folder / "watch.log").unlink()

    def changes(self):
        return self.system.events("watch")

    # --- Both ---

    def assert_becomes_equal(self, mib_shows, suite_shows, seconds=10.0):
        def differences():
            mib, suite = mib_shows(), suite_shows()
            if isinstance(suite, dict):
                return {part: (mib.get(part), suite.get(part)) for part in {**mib, **suite} if mib.get(part) != suite.get(part)}
            return (mib, suite) if mib != suite else {}
        self.becomes("the MIB shows what the suite shows: {part: (MIB, suite)}", differences, {}, seconds)


def exported_routes(of_suite):
    """(VRF, RD, targets) of the VPN routes that the suite exports."""
    index = {f"@{number}<": name for name, number in Kernel().indexes().items()}
    rd = vrf = None
    for line in of_suite.ask("bgpd", "show bgp ipv4 vpn").splitlines():
        if line.startswith("Route Distinguisher: "):
            rd = line.split()[-1]
        for mark, name in index.items():
            vrf = name if mark in line else vrf
        targets = re.search(r"EC\{(.*?)\}", line)
        if targets:
            yield vrf, rd, targets[1]


def main(name, *cases):
    """name BIN_DIRECTORY VERSION; the first was taken by guest_system."""
    release = suite.find_or_skip(name, int(sys.argv.pop(1)))
    for case in cases:
        case.release = release
    print(f"FRR {release.version}", flush=True)
    unittest.main(verbosity=2)
