#!/usr/bin/env python3
"""system_walk.py BIN_DIRECTORY: the whole system on a real kernel. Runs in the guest (see uml-run), as root.

Daemon, stock snmpd, sub-agent and command line follow the kernel while three VRFs are created, used and deleted; after every
step the SNMP walk and the command line must equal `ip -j link`.
"""
import subprocess
import unittest

from guest_system import GuestSystemTest  # before system
from kernel import Kernel, batch, is_active, vrf_lines
from system import IF_CONF, SCALARS, VRF_ENTRY, dotted, expected_if_conf, name_index, wait_until


def members():
    """{(VRF, ifIndex): interface name} of the kernel; interfaces of subscribers are not in the MIB."""
    return {key: link["ifname"] for key, link in Kernel().members().items()
            if ".ip" not in link["ifname"] and ".pppoe" not in link["ifname"]}


def numbers():
    """How many VRFs, VRFs with an active member, and members the kernel has."""
    kernel = Kernel()
    return len(kernel.vrfs()), len({vrf for (vrf, _), link in kernel.members().items() if is_active(link)}), len(members())


class KernelWalk(GuestSystemTest):
    """The system on a kernel whose links change step by step; no tests of its own."""

    def protocols(self):
        """The protocols of members that have any, in the form of expected_if_conf()."""
        return {}

    def views(self):
        """(shown, expected by the kernel). The sub-agent may show a value for a second after it changed."""
        expected, of_kernel, scalars = numbers(), members(), self.system.cli_json("show", "scalars")
        yield tuple(scalars[name] for name in ("configuredVrfs", "activeVrfs", "connectedInterfaces")), expected
        yield tuple(self.system.get_value(f"{SCALARS}.{column}.0") for column in (1, 2, 3)), tuple(map(str, expected))
        rows = self.system.cli_json("show", "interfaces")
        yield {(row["vrfName"], row["ifConfIndex"]): row["name"] for row in rows}, of_kernel
        yield self.system.walk(IF_CONF), expected_if_conf(of_kernel, self.protocols())

    def difference(self):
        """The first view that differs from the kernel."""
        return next((view for view in self.views() if view[0] != view[1]), None)

    def step(self, *commands):
        batch(commands)
        self.becomes("; ".join(commands), self.difference, None)
        print("{}: {} VRFs, {} active, {} members".format("; ".join(commands), *numbers()))


class SystemOnAKernel(KernelWalk):
    def test_life_of_three_vrfs(self):
        self.step(*vrf_lines({"red": 10, "blue": 20, "green": 30}))
        self.step("link add d0 type dummy", "addr add 10.0.0.1/24 dev d0", "link set d0 master red")
        self.step("link set d0 up")
        self.step("link add d1 type dummy", "link set d1 master blue", "link set d1 up",
                  "addr add 10.1.0.1/24 dev d1")
        self.step("link set d0 master blue")
        self.step("link set d1 down")
        self.step("link set d1 name customer1")
        self.step("link set customer1 up")
        self.step("link set d0 down")
        self.step("link set d0 up")
        self.step("link set blue down", "link set blue name azure", "link set azure up")
        self.step("link set d0 nomaster")
        self.step("link set d0 master green")
        self.step("link del customer1")
        self.step("link del green")
        self.step("link del azure", "link del red", "link del d0")
        self.assertEqual(self.system.walk(IF_CONF), [])

    def is_described(self, vrf, text):
        """Everywhere: mplsL3VpnVrfDescription and the command line."""
        oid = dotted(VRF_ENTRY + (3,) + name_index(vrf))

        def shown():
            return [row["description"] for row in self.system.cli_json("show", "vrf", "--name", vrf)]
        wait_until(f"{vrf}: {text!r}", lambda: shown() == [text] and self.system.get_value(oid) == f'"{text}"', 10)
        print(f"{vrf}: {text!r}")

    def test_alias_describes_a_vrf_until_a_description_is_configured(self):
        description = ("vrf", "described", "description")
        self.step("link add described type vrf table 40", "link set described up")
        self.is_described("described", "")
        self.step('link set described alias "Red Rail"')
        self.is_described("described", "Red Rail")
        self.system.cli("config", "set", *description, "configured", check=True)
        self.is_described("described", "configured")
        self.step('link set described alias "Red Rail, sold"')
        self.is_described("described", "configured")
        self.system.cli("config", "delete", *description, check=True)
        self.is_described("described", "Red Rail, sold")
        self.system.kill("daemon")
        self.system.start_daemon()
        self.is_described("described", "Red Rail, sold")
        self.step('link set described alias ""')
        self.is_described("described", "")
        self.step("link del described")


if __name__ == "__main__":
    subprocess.run(["modprobe", "-a", "vrf", "dummy"], check=True)
    unittest.main(verbosity=2)
