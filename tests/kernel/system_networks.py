#!/usr/bin/env python3
"""system_networks.py BIN_DIRECTORY VERSION: which interfaces a `network` line enables a protocol on, with the routing
suite of that major version (see suite.py). Runs in the guest (see uml-run), as root.

The expected result of each line is the output of the suite's own commands. Each line is configured together with one for a
marker interface, so that the MIB can only agree when it has followed the line.
"""
import pathlib
import time

from suite_system import SuiteSystemTest, main  # before system
from kernel import batch, member_lines, vrf_lines
from suite import run
from system import wait_until

ADDRESSES = {
    "plain": ["10.0.0.1/24"],
    "link31": ["10.0.2.0/31"],
    "host": ["10.0.3.1/32"],
    "unnumbered": ["10.0.3.1/32"],
    "peer": ["10.0.4.1 peer 10.0.5.1/32"],
    "peernet": ["10.0.6.1 peer 10.0.7.1/24"],
    "second": ["10.0.8.1/24", "10.0.8.2/24", "10.0.9.1/24"],  # the second address is a secondary one
    "longer": ["10.0.10.1/24", "10.0.10.200/25"],
    "none": [],
}
# Lines of OSPF and RIP, one at a time.
NETWORKS = (
    "10.0.0.1/32 10.0.0.0/30 10.0.0.0/24 10.0.0.77/24 10.0.0.128/25 10.0.0.0/16 10.0.2.0/32 10.0.2.1/32 10.0.2.0/31 "
    "10.0.3.1/32 10.0.3.0/24 10.0.4.1/32 10.0.5.1/32 10.0.5.0/24 10.0.6.0/24 10.0.7.0/24 10.0.8.1/32 10.0.8.2/32 "
    "10.0.9.0/24 10.0.10.200/32 10.0.10.0/25 10.9.0.0/16 0.0.0.0/0").split()
# Lines of EIGRP, each in addition to those before it: in version 8 EIGRP does not run again on an interface that it left.
EIGRP_NETWORKS = (
    "10.0.0.128/25 10.0.0.0/30 10.0.2.1/32 10.0.2.0/32 10.0.3.77/24 10.0.5.1/32 10.0.4.1/32 10.0.8.2/32 10.0.9.0/24 "
    "0.0.0.0/0").split()
MARKERS = 2


def marker(number):
    return f"10.250.{number % MARKERS}.1/32"


def eigrp_marker(number):
    return f"10.251.{number}.1/32"


def shells_of(daemon):
    """{process: hundredths of a second that its child processes have used} of the suite's shells that the daemon started."""
    found = {}
    for path in pathlib.Path("/proc").glob("[0-9]*/stat"):
        name, _, rest = path.read_text().partition(" (")[2].rpartition(") ")
        fields = rest.split()
        if name == "vtysh" and int(fields[1]) == daemon:
            found[path.parent.name] = int(fields[13]) + int(fields[14])
    return found


def prepare_router():
    run("modprobe", "-a", "ipv6", "vrf", "dummy")
    members = dict(ADDRESSES)
    members.update((f"mark{number}", [marker(number)]) for number in range(MARKERS))
    members.update((f"emark{number}", [eigrp_marker(number)]) for number in range(len(EIGRP_NETWORKS)))
    addresses = [f"addr add {address} dev {name}" for name, texts in members.items() for address in texts]
    batch(vrf_lines({"red": 10}) + member_lines(dict.fromkeys(members, "red"), "link set {name} up") + addresses)


class Networks(SuiteSystemTest):
    programs = ("zebra", "ospfd", "ripd", "eigrpd")
    prepare = staticmethod(prepare_router)

    def mib(self, protocol):
        return {row["name"] for row in self.system.cli_json("show", "interfaces") if protocol in row["protocolNames"]}

    def assert_followed(self, line, marked, protocols):
        """`protocols`: {name in the MIB: function that returns what the suite shows}."""
        for protocol, shown in protocols.items():
            wait_until(f"{protocol} of the suite on {marked}", lambda shown=shown: marked in shown())
            self.assert_becomes_equal(lambda protocol=protocol: self.mib(protocol), shown)
            print(f"{line:16} {protocol:6} {' '.join(sorted(shown() - {marked})) or '-'}", flush=True)

    def test_ospf_and_rip(self):
        protocols = {"ospf": lambda: self.suite.ospf_interfaces().get("red", set()),
                     "rip": lambda: self.suite.rip_interfaces(["red"])["red"]}
        for number, line in enumerate(NETWORKS):
            with self.subTest(line):
                lines = (line, marker(number))
                ospf = [f"network {each} area 0" for each in lines]
                rip = [f"network {each}" for each in lines]
                self.suite.configure("router ospf vrf red", *ospf, "exit", "router rip vrf red", *rip)
                self.assert_followed(line, f"mark{number % MARKERS}", protocols)
                self.suite.configure("router ospf vrf red", *("no " + each for each in ospf), "exit",
                                     "router rip vrf red", *("no " + each for each in rip))

    def test_reading_from_the_suite_starts_no_process(self):
        """A pager for each command would use ten times the shell's own time."""
        daemon = self.system.processes["daemon"].pid
        wait_until("the daemon's shells", lambda: len(shells_of(daemon)) >= len(self.suite.programs))
        time.sleep(2)
        before = shells_of(daemon)  # for a process that a shell starts once
        time.sleep(4)
        after = {shell: used for shell, used in shells_of(daemon).items() if shell in before}
        self.assertGreaterEqual(len(after), len(self.suite.programs))
        # The shell of a program that does not run is replaced at times: a new one has not started that process yet.
        asked = [shell for shell in after if before[shell] > 0]
        self.assertNotEqual(asked, [])
        self.assertEqual({shell: after[shell] for shell in asked}, {shell: before[shell] for shell in asked})

    def test_eigrp(self):
        protocols = {"other": lambda: self.suite.eigrp_interfaces(["red"])["red"]}
        for number, line in enumerate(EIGRP_NETWORKS):
            with self.subTest(line):
                self.suite.configure("router eigrp 1 vrf red", f"network {line}", f"network {eigrp_marker(number)}")
                self.assert_followed(line, f"emark{number}", protocols)


if __name__ == "__main__":
    main("system_networks", Networks)
