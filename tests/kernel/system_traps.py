#!/usr/bin/env python3
"""system_traps.py BIN_DIRECTORY: traps of VRFs on a real kernel. Runs in the guest (see uml-run), as root.

The daemon follows the kernel, and "mplsvpn watch" records its traps. After every step these are exactly the traps expected
so far. What the kernel does after a step (IPv6 addresses that it removes with the link, adds again and finds to be unique
seconds later) must add none. To show that none is on its way, an interface in a separate VRF is then set down and up: the
kernel announces changes in order, and so does the daemon.
"""
import pathlib
import subprocess
import unittest

import guest_system  # noqa: F401 (before system)
from kernel import Kernel, batch, delete_links
from system import BIN, System, wait_until

APART = ("link add apart type vrf table 99", "link set apart up", "link add a0 type dummy",
         "link set a0 addrgenmode none", "addr add 10.99.0.1/24 dev a0", "link set a0 master apart", "link set a0 up")
VRFS = ("link add red type vrf table 10", "link set red up", "link add blue type vrf table 20", "link set blue up")


def links():
    return {link["ifname"]: link for link in Kernel().links}


def addresses(name, family):
    """[(address, still tentative)] of the interface."""
    return [(each["local"], bool(each.get("tentative"))) for each in links()[name]["addr_info"]
            if each.get("family") == family]


def has_usable_ipv6(name):
    """True if the interface has IPv6 addresses and all of them are known to be unique."""
    found = addresses(name, "inet6")
    return bool(found) and not any(tentative for _, tentative in found)


class TrapsOnAKernel(unittest.TestCase):
    def setUp(self):
        self.system = System(source="kernel")
        self.addCleanup(self.clean)
        self.system.start_daemon()
        self.system.cli("config", "set", "traps", "all", check=True)
        self.system.spawn("watch", str(BIN / "mplsvpn"), "--json", "watch")
        wait_until("watch", lambda: "watching for traps" in self.system.log("watch"))
        self.index, self.expected = {}, []
        self.ip(*APART, *VRFS)
        self.expect("Up apart a0")

    def clean(self):
        self.system.__exit__(None)
        delete_links()

    def ip(self, *commands):
        """Runs the commands in one process, so close together that the daemon may see only their combined result."""
        batch(commands)
        self.index.update(Kernel().indexes())

    def traps(self):
        traps = self.system.events("watch")
        self.assertEqual([trap["lostBefore"] for trap in traps], [0] * len(traps))
        return [(trap["notification"], trap["vrfName"], trap["ifConfIndex"]) for trap in traps]

    def trap(self, text):
        """("mplsL3VpnVrfUp", "red", 5) of "Up red d0"."""
        kind, vrf, interface = text.split()
        return (f"mplsL3VpnVrf{kind}", vrf, self.index[interface])

    def expect(self, *traps):
        """These traps and no others are received next, in this order."""
        self.expected += [self.trap(text) for text in traps]
        wait_until(f"{len(self.expected)} traps", lambda: len(self.traps()) >= len(self.expected))
        self.assertEqual(self.traps(), self.expected)

    def step(self, *commands, traps=()):
        """The commands raise these traps and no others, and the kernel's own actions afterwards raise none."""
        self.ip(*commands)
        self.expect(*traps)
        wait_until("the kernel is done", lambda: not any(
            each.get("tentative") for link in links().values() for each in link["addr_info"] if "UP" in link["flags"]))
        self.ip("link set a0 down")
        self.expect("Down apart a0")
        self.ip("link set a0 up")
        self.expect("Up apart a0")
        if commands:
            print("; ".join(commands) + ": " + (", ".join(traps) or "nothing"))

    def flap(self, name="d0", vrf="red"):
        self.step(f"link set {name} down", traps=[f"Down {vrf} {name}"])
        self.step(f"link set {name} up", traps=[f"Up {vrf} {name}"])

    # --- Up and down ---

    def test_last_active_interface_with_ipv4_is_set_down_and_up(self):
        self.step("link add d0 type dummy", "link set d0 addrgenmode none", "addr add 10.0.0.1/24 dev d0",
                  "link set d0 master red")
        self.step("link set d0 up", traps=["Up red d0"])
        for _ in range(3):
            self.flap()

    def test_last_active_interface_with_both_families_is_set_down_and_up(self):
        self.step("link add d0 type veth peer name p0", "link set p0 up", "link set d0 master red",
                  "addr add 10.0.0.1/24 dev d0", "link set d0 up", "addr add 2001:db8::1/64 dev d0", traps=["Up red d0"])
        self.assertTrue(has_usable_ipv6("d0"))
        self.step("link set d0 down", traps=["Down red d0"])
        self.assertEqual(addresses("d0", "inet6"), [], "the kernel takes them away with the link")
        self.assertEqual(addresses("d0", "inet"), [("10.0.0.1", False)])
        # IPv4 makes the VRF active at once; the link-local address, seconds later, raises nothing.
        self.step("link set d0 up", traps=["Up red d0"])
        self.assertTrue(has_usable_ipv6("d0"))

    def test_last_active_interface_with_only_a_link_local_address_is_set_down_and_up(self):
        self.step("link add d0 type veth peer name p0", "link set p0 up", "link set d0 master red", "link set d0 up",
                  traps=["Up red d0"])
        self.flap()
        self.assertTrue(has_usable_ipv6("d0"))

    def test_ipv6_addresses_that_the_kernel_retains_raise_one_up_only(self):
        self.step("link add d0 type veth peer name p0", "link set p0 up", "link set d0 master red", "link set d0 up",
                  "addr add 2001:db8::1/64 dev d0", traps=["Up red d0"])
        pathlib.Path("/proc/sys/net/ipv6/conf/d0/keep_addr_on_down").write_text("1")
        self.flap()
        self.assertEqual(len(addresses("d0", "inet6")), 2)

    def test_carrier_that_is_lost_and_returns(self):
        self.step("link add d0 type veth peer name p0", "link set d0 master red", "addr add 10.0.0.1/24 dev d0",
                  "link set d0 up")
        self.step("link set p0 up", traps=["Up red d0"])
        for _ in range(2):
            self.step("link set p0 down", traps=["Down red d0"])
            self.step("link set p0 up", traps=["Up red d0"])

    def test_of_several_interfaces_only_the_last_down_and_the_first_up_are_notified(self):
        self.step("link add d0 type dummy", "addr add 10.0.0.1/24 dev d0", "link set d0 master red",
                  "link add d1 type dummy", "addr add 10.0.1.1/24 dev d1", "link set d1 master red")
        self.step("link set d0 up", traps=["Up red d0"])
        self.step("link set d1 up")
        self.step("link set d0 down")
        self.step("link set d1 down", traps=["Down red d1"])
        self.step("link set d1 up", traps=["Up red d1"])
        self.step("link set d0 up")

    def test_several_interfaces_set_down_and_up_at_once_raise_one_trap_each_way(self):
        """Which interface the trap names is not fixed: the daemon may see a state between the commands."""
        self.step("link add d0 type dummy", "addr add 10.0.0.1/24 dev d0", "link set d0 master red",
                  "link add d1 type dummy", "addr add 10.0.1.1/24 dev d1", "link set d1 master red")
        for state, kind in (("up", "Up"), ("down", "Down"), ("up", "Up")):
            known = len(self.expected)
            self.ip(f"link set d1 {state}", f"link set d0 {state}")
            wait_until("a trap", lambda: len(self.traps()) > known)
            trap = self.traps()[known]
            self.assertIn(trap, (self.trap(f"{kind} red d0"), self.trap(f"{kind} red d1")))
            self.expected.append(trap)
            self.step()

    # --- Joining, moving, leaving ---

    def make_up_outside(self):
        self.step("link add d0 type veth peer name p0", "link set p0 up", "addr add 10.0.0.1/24 dev d0",
                  "link set d0 up")

    def test_interface_that_is_up_joins_moves_and_is_released(self):
        self.make_up_outside()
        self.step("link set d0 master red", traps=["Up red d0"])
        self.step("link set d0 master blue", traps=["Down red d0", "Up blue d0"])
        self.step("link set d0 nomaster", traps=["Down blue d0"])
        self.step("link set d0 master red", traps=["Up red d0"])

    def test_interface_that_is_deleted_while_up(self):
        self.make_up_outside()
        self.step("link set d0 master red", traps=["Up red d0"])
        self.step("link del d0", traps=["Down red d0"])

    def test_interface_that_is_down_joins_and_leaves_silently(self):
        self.step("link add d0 type dummy", "addr add 10.0.0.1/24 dev d0", "link set d0 master red")
        self.step("link set d0 master blue")
        self.step("link set d0 nomaster")

    def test_interface_that_moves_between_vrfs_that_stay_up(self):
        self.make_up_outside()
        self.step("link add d1 type dummy", "addr add 10.0.1.1/24 dev d1", "link set d1 master red", "link set d1 up",
                  "link add d2 type dummy", "addr add 10.0.2.1/24 dev d2", "link set d2 master blue", "link set d2 up",
                  traps=["Up red d1", "Up blue d2"])
        self.step("link set d0 master red")
        self.step("link set d0 master blue")

    def test_first_and_last_address(self):
        self.step("link add d0 type dummy", "link set d0 addrgenmode none", "link set d0 master red", "link set d0 up")
        self.step("addr add 10.0.0.1/24 dev d0", traps=["Up red d0"])
        self.step("addr add 10.0.1.1/24 dev d0")
        self.step("addr del 10.0.0.1/24 dev d0")
        self.step("addr del 10.0.1.1/24 dev d0", traps=["Down red d0"])


if __name__ == "__main__":
    subprocess.run(["modprobe", "-a", "vrf", "dummy", "veth", "ipv6"], check=True)
    unittest.main(verbosity=2)
