#!/usr/bin/env python3
"""vrf_life.py PROGRAM: VRFs on a real kernel, step by step. Runs in the guest (see uml-run), as root.

PROGRAM is kernel_model_dump. After every step its model must equal what ip(8) shows; some steps also state the changes of
which the model must have notified its observers. The test polls with a bound.
"""
import json
import os
import subprocess
import sys
import tempfile
import time
import unittest

from kernel import Kernel, batch, delete_links, is_up, kind, usable_addresses, vrf_lines

BOUND = 30.0  # seconds; the guest may share its CPU with others
PROGRAM = ""


def addresses_of(link):
    """IPv4 in the kernel's order; IPv6 sorted, because its order in the model differs."""
    usable = usable_addresses(link)
    text = [f'{each["local"]}/{each["prefixlen"]}' for each in usable if each["family"] == "inet"]
    return text + sorted(f'{each["local"]}/{each["prefixlen"]}' for each in usable if each["family"] == "inet6")


def kernel_state():
    """The expected (VRFs, interfaces) of the model, without ids."""
    vrfs, interfaces = {}, {}
    for link in Kernel().links:
        name, info = link["ifname"], link.get("linkinfo", {})
        if kind(link) == "vrf":
            if name != "default":
                vrfs[name] = (info["info_data"]["table"], link.get("ifalias", ""))
            continue
        member = info.get("info_slave_kind") == "vrf"
        interfaces[name] = (link["ifindex"], link["master"] if member else "default", is_up(link),
                            link.get("ifalias", ""), addresses_of(link))
    return vrfs, interfaces


def model_state(answer):
    vrfs = {vrf["name"]: (vrf["table"], vrf["description"]) for vrf in answer["vrfs"]}
    interfaces = {}
    for each in answer["interfaces"]:
        ipv6 = sorted(a for a in each["addresses"] if ":" in a)
        ipv4 = [a for a in each["addresses"] if ":" not in a]
        interfaces[each["name"]] = (each["index"], each["vrf"], each["up"], each["description"], ipv4 + ipv6)
    return vrfs, interfaces


class Model:
    """A running kernel_model_dump."""

    def __init__(self, *arguments):
        self.folder = tempfile.TemporaryDirectory()
        self.process = subprocess.Popen([PROGRAM, *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        text=True, env=dict(os.environ, MPLS_VPN_MIB_RUN_DIR=self.folder.name))
        self.changes = []

    def ask(self):
        self.process.stdin.write("\n")
        self.process.stdin.flush()
        line = self.process.stdout.readline()
        if not line:
            raise RuntimeError(f"the program ended with status {self.process.wait()}")
        answer = json.loads(line)
        self.changes += answer["changes"]
        return answer

    def take_changes(self):
        changes, self.changes = self.changes, []
        return changes

    def end(self):
        self.process.stdin.close()
        try:
            status = self.process.wait(timeout=BOUND)
        except subprocess.TimeoutExpired:
            self.process.kill()
            status = self.process.wait()
        self.process.stdout.close()
        self.folder.cleanup()
        return status


class Guest(unittest.TestCase):
    """The program on a router without VRFs; no tests of its own."""
    maxDiff = None
    arguments = ("--reread-ms=30000",)

    def setUp(self):
        self.model = Model(*self.arguments)
        self.addCleanup(self.clean)
        self.expect_same("start")
        self.model.take_changes()

    def clean(self):
        status = self.model.end()
        delete_links()
        self.assertEqual(status, 0)

    def expect_equal(self, step, of_kernel, of_model):
        """Waits until the model shows what the kernel has; returns the model's last answer."""
        deadline = time.monotonic() + BOUND
        while True:
            before = of_kernel()
            answer = self.model.ask()
            if of_model(answer) == before or time.monotonic() > deadline:
                break
        self.assertEqual(of_model(answer), before, step)
        return answer

    def expect_same(self, step):
        """Returns the changes of which the model notified its observers."""
        self.expect_equal(step, kernel_state, model_state)
        return self.model.take_changes()

    def step(self, *commands):
        batch(commands)
        return self.expect_same("; ".join(commands))

    def vrf_ids(self):
        return {vrf["name"]: vrf["id"] for vrf in self.model.ask()["vrfs"]}

    def make_three_vrfs(self):
        return self.step(*vrf_lines({"red": 10, "blue": 20, "green": 30}))


class VrfLife(Guest):
    """One step after the other."""

    def test_three_vrfs_are_created_and_deleted(self):
        self.assertEqual(self.make_three_vrfs(), ["created red", "created blue", "created green"])
        self.assertEqual(self.vrf_ids(), {"red": 10, "blue": 20, "green": 30})
        self.assertEqual(self.step("link del blue"), ["deleted blue"])
        self.step("link set red down")
        self.assertEqual(self.step("link del red", "link del green"), ["deleted red", "deleted green"])

    def test_enslaving_a_link_that_is_up_is_one_move(self):
        self.make_three_vrfs()
        self.step("link add d0 type dummy", "addr add 10.0.0.1/24 dev d0", "link set d0 up")
        self.assertEqual(self.step("link set d0 master red"), ["moved d0 from default to red"])
        self.assertEqual(self.step("link set d0 master blue"), ["moved d0 from red to blue"])
        self.assertEqual(self.step("link set d0 nomaster"), ["moved d0 from blue to default"])

    def test_enslaving_a_link_that_is_down_is_one_move(self):
        self.make_three_vrfs()
        self.step("link add d0 type dummy")
        self.assertEqual(self.step("link set d0 master red"), ["moved d0 from default to red"])

    def test_flaps_are_followed(self):
        self.make_three_vrfs()
        self.step("link add d0 type dummy", "link set d0 master red", "link set d0 up")
        self.assertEqual(self.step("link set d0 down"), ["d0 down"])
        self.assertEqual(self.step("link set d0 up"), ["d0 up"])
        self.assertEqual(self.step("link set d0 carrier off"), ["d0 down"])
        self.assertEqual(self.step("link set d0 carrier on"), ["d0 up"])

    def test_carrier_of_a_peer_is_followed(self):
        self.make_three_vrfs()
        self.step("link add v0 type veth peer name v1", "link set v0 master green", "link set v0 up")
        self.assertIn("v0 up", self.step("link set v1 up"))
        self.assertIn("v0 down", self.step("link set v1 down"))

    def test_interface_is_renamed_in_its_vrf(self):
        self.make_three_vrfs()
        self.step("link add d0 type dummy", "link set d0 master red")
        self.assertEqual(self.step("link set d0 name d9"), ["renamed d0 to d9"])

    def test_interfaces_of_two_vrfs_swap_their_names(self):
        self.make_three_vrfs()
        self.step("link add d0 type dummy", "link set d0 master red",
                  "link add d1 type dummy", "link set d1 master blue")
        self.step("link set d0 name tmp", "link set d1 name d0", "link set tmp name d1")

    def test_renamed_vrf_retains_its_interfaces(self):
        self.make_three_vrfs()
        self.step("link add d0 type dummy", "link set d0 master blue")
        self.step("link set blue down")
        self.assertEqual(self.step("link set blue name azure", "link set azure up"),
                         ["moved d0 from blue to default", "deleted blue", "created azure",
                          "moved d0 from default to azure"])
        self.assertEqual(self.vrf_ids()["azure"], 20)

    def test_vrfs_swap_their_names(self):
        self.make_three_vrfs()
        self.step("link add d0 type dummy", "link set d0 master blue")
        self.step("link set blue down", "link set red down", "link set red name tmp", "link set blue name red",
                  "link set tmp name blue")
        self.assertEqual(self.vrf_ids(), {"blue": 10, "red": 20, "green": 30})

    def test_interfaces_leave_a_deleted_vrf(self):
        self.make_three_vrfs()
        self.step("link add d0 type dummy", "link set d0 master red", "link set d0 up",
                  "link add d1 type dummy", "link set d1 master red")
        self.assertEqual(self.step("link del red"), ["moved d0 from red to default", "moved d1 from red to default",
                                                     "deleted red"])

    def test_vrf_created_again_is_a_new_one(self):
        self.make_three_vrfs()
        self.step("link add d0 type dummy", "link set d0 master red")
        changes = self.step("link del red", "link add red type vrf table 11", "link set d0 master red")
        self.assertIn("deleted red", changes)
        self.assertEqual(changes[-1], "moved d0 from default to red")
        self.assertEqual(self.vrf_ids()["red"], 11)

    def test_deleted_interface_is_removed_from_its_vrf(self):
        self.make_three_vrfs()
        self.step("link add d0 type dummy", "link set d0 master red", "link set d0 up")
        self.assertEqual(self.step("link del d0"), ["removed d0 in red"])

    def test_interface_moved_to_another_namespace_is_removed(self):
        self.make_three_vrfs()
        self.step("link add d0 type dummy", "link set d0 master red")
        batch(["netns add other"])
        self.addCleanup(batch, ["netns del other"])
        self.assertEqual(self.step("link set d0 netns other"), ["removed d0 in red"])

    def test_interface_created_in_a_vrf_is_never_seen_outside(self):
        self.make_three_vrfs()
        self.assertEqual(self.step("link add d0 master red type dummy"), ["added d0 in red"])

    def test_addresses_are_followed(self):
        self.make_three_vrfs()
        self.step("link add d0 type dummy", "link set d0 master red", "link set d0 up")
        self.step("addr add 10.0.0.1/24 dev d0", "addr add 10.0.0.2/24 dev d0", "addr add 10.1.0.1/24 dev d0")
        self.step("addr add 2001:db8::1/64 dev d0", "addr add 2001:db8::2/64 dev d0")
        self.step("addr del 10.0.0.1/24 dev d0")
        self.step("link set d0 master blue")
        self.step("link set d0 down")

    def test_two_vrf_devices_on_one_table_have_two_ids(self):
        self.make_three_vrfs()
        self.step("link add dup type vrf table 10", "link add d0 type dummy", "link set d0 master dup")
        self.assertEqual(self.vrf_ids()["dup"], 0x8000000a)
        self.assertEqual(self.step("link del red"), ["deleted red"])
        self.assertEqual(self.vrf_ids()["dup"], 0x8000000a)

    def test_bridge_in_a_vrf_is_a_member_and_its_ports_are_not(self):
        self.make_three_vrfs()
        self.step("link add br0 type bridge", "link set br0 master red", "link add d0 type dummy",
                  "link set d0 master br0")
        changes = self.step("link set d0 nomaster")
        self.assertEqual([change for change in changes if "d0" in change and "moved" in change], [])

    def test_two_hundred_vrfs_are_created_and_deleted(self):
        lines = []
        for number in range(200):
            lines += [f"link add vrf{number} type vrf table {1000 + number}",
                      f"link add d{number} type dummy", f"link set d{number} master vrf{number}"]
        self.step(*lines)
        self.assertEqual(self.model.ask()["refused"], 0)
        self.step(*[f"link del vrf{number}" for number in range(200)])


class Overrun(Guest):
    """Through a socket that is too small for a burst."""
    arguments = ("--receive-buffer=1",)

    def test_many_moves_overrun_and_nothing_is_lost(self):
        self.make_three_vrfs()
        lines = ["link add d0 type dummy", "link set d0 up", "link add d1 type dummy"]
        for _ in range(50):
            lines += ["link set d0 master red", "link set d1 master blue", "link set d0 master blue",
                      "link set d1 master red"]
        self.step(*lines)
        self.assertGreater(self.model.ask()["losses"], 0)

    def test_vrfs_and_interfaces_deleted_in_an_overrun_leave_no_stale_entry(self):
        lines, undo = [], []
        for number in range(60):
            lines += [f"link add vrf{number} type vrf table {1000 + number}",
                      f"link add d{number} type dummy", f"link set d{number} master vrf{number}"]
            undo += [f"link del vrf{number}"] + ([f"link del d{number}"] if number % 2 else [])
        self.step(*lines)
        self.step(*undo, "link add vrf0 type vrf table 1000", "link set d0 master vrf0", "link set d2 name other")
        self.assertGreater(self.model.ask()["losses"], 1)
        self.assertEqual(self.model.ask()["refused"], 0)


class Reading(Guest):
    """Changes that the kernel does not announce, with a short interval between readings."""
    arguments = ("--reread-ms=200",)

    def test_alias_of_a_vrf_and_of_an_interface_that_are_down(self):
        self.step("link add red type vrf table 10", "link add d0 type dummy", "link set d0 master red")
        batch(['link set red alias "customer red, contract 4711"', 'link set d0 alias "to the customer"'])
        self.assertEqual(self.expect_same("aliases"), ["described red"])


if __name__ == "__main__":
    PROGRAM = os.path.abspath(sys.argv.pop(1))
    subprocess.run(["modprobe", "-a", "vrf", "dummy", "veth", "bridge"], check=True)
    unittest.main(verbosity=2)
