#!/usr/bin/env python3
"""system_identity.py BIN_DIRECTORY: members of VRFs whose names and indexes change. Runs in the guest (see uml-run), as root.

Members are deleted and created again under their name, swap names and take over indexes. After every step the SNMP walk and
the command line must equal `ip -j link`: the daemon reads interface indexes from a list that it fetched at its start, and
must not use an entry of an interface that has changed since.
"""
import subprocess
import time
import unittest

import guest_system  # noqa: F401 (before system)
from kernel import Kernel, batch, delete_links, member_lines, vrf_lines
from system import pass_a_second
from system_walk import KernelWalk, members


def index_of(name):
    return Kernel().indexes()[name]


class ChangedMembers(KernelWalk):
    def setUp(self):
        """Starts the daemon when the VRFs red and blue have members: all of them are in its list of indexes."""
        self.addCleanup(delete_links)
        self.items = {}  # protocols configured, by VRF and name of the interface
        batch(vrf_lines({"red": 10, "blue": 20}) + member_lines({"d1": "red", "d2": "red", "d3": "blue", "d4": "red"}))
        self.system.kill("daemon")
        self.system.start_daemon()
        self.step()

    def test_member_created_again_under_its_name_has_its_new_index(self):
        old = index_of("d2")
        self.step("link del d2", "link add d2 type dummy", "link set d2 master red")
        self.assertNotEqual(index_of("d2"), old)
        self.step(f"link add d9 index {old} type dummy", "link set d9 master red")
        self.assertEqual({name for vrf, name in ((key[0], name) for key, name in members().items()) if vrf == "red"},
                         {"d1", "d2", "d4", "d9"})

    def test_member_created_again_and_another_with_its_old_index_in_one_step(self):
        old = index_of("d2")
        self.step("link del d2", "link add d2 type dummy", "link set d2 master red",
                  f"link add d9 index {old} type dummy", "link set d9 master red")

    def test_member_created_again_under_another_index_in_another_vrf(self):
        self.step("link del d3", "link add d3 index 777 type dummy", "link set d3 master red")
        self.step("link del d1", "link add d1 index 778 type dummy", "link set d1 master blue")

    def test_members_of_one_vrf_swap_their_names(self):
        self.step("link set d1 name aside", "link set d2 name d1", "link set aside name d2")
        self.step("link set d1 nomaster", "link set d1 master blue")

    def test_member_with_a_subscribers_name_has_no_row_until_it_is_renamed(self):
        self.step("link set d1 name d1.ip", "link set d3 name x.pppoe3")
        self.step("link set d1.ip name d1.ipsub", "link set d2 name d1")
        self.step("link set d1.ipsub name back", "link set x.pppoe3 nomaster")
        self.step("link set x.pppoe3 name d3", "link set d3 master red")

    def test_members_swap_their_indexes(self):
        first, second = index_of("d1"), index_of("d2")
        self.step("link del d1", "link del d2", f"link add d1 index {second} type dummy",
                  f"link add d2 index {first} type dummy", "link set d1 master red", "link set d2 master red")

    def test_names_rotate_while_a_member_is_created_again(self):
        old = index_of("d4")
        self.step("link del d4", "link set d2 name d4", "link set d1 name d2",
                  f"link add d1 index {old} type dummy", "link set d1 master red")

    # --- Times of VRFs over a restart of the daemon ---

    def times(self):
        return {row["name"]: (row["creationTime"], row["confLastChanged"]) for row in self.system.cli_json("show", "vrf")}

    def restart(self, *lines):
        """The lines are applied while the daemon is down."""
        self.system.kill("daemon")
        batch(lines)
        self.system.start_daemon()
        self.step()

    def second_vrf(self, name, table, index):
        """A VRF besides red and blue, with times of its own."""
        pass_a_second()
        self.step(f"link add {name} index {index} type vrf table {table}", f"link set {name} up")
        self.assertGreater(self.times()[name][0], self.times()["red"][0])

    def test_vrfs_of_one_table_keep_their_times_over_restarts(self):
        self.second_vrf("low", 10, 3 if index_of("red") > 3 else 2)
        self.second_vrf("high", 10, 900)
        before = self.times()
        self.restart()
        self.assertEqual(self.times(), before)
        self.step("link del red")
        self.restart()
        self.assertEqual(self.times(), {name: each for name, each in before.items() if name != "red"})

    def test_vrf_that_takes_the_table_of_another_while_the_daemon_is_down_has_times_of_its_own(self):
        before = self.times()
        self.second_vrf("third", 30, 900)
        began = int(time.time())
        self.restart("link del blue", "link add new type vrf table 20", "link set new up")
        self.assertGreaterEqual(self.times()["new"][0], began)
        self.assertEqual(self.times()["red"], before["red"])

    # --- Protocols, which are configured for names ---

    WORDS = {2: "ospf 1 area 0.0.0.0 interface {}", 3: "rip interface {}", 5: "static 198.51.100.0/24 interface {}",
             6: "eigrp 100 interface {}"}  # by the number of MplsL3VpnIfVpnRouteDistProtocol

    def protocols(self):
        """What the test configured for the present names and VRFs of the kernel's interfaces."""
        return {key: numbers for key, name in members().items() if (numbers := self.items.get((key[0], name)))}

    def configure(self, verb, vrf, name, *numbers):
        for number in numbers:
            self.system.cli("config", verb, "vrf", vrf, *self.WORDS[number].format(name).split(), check=True)
        present = set(self.items.get((vrf, name), ()))
        self.items[vrf, name] = sorted(present | set(numbers) if verb == "set" else present - set(numbers))

    def test_protocols_follow_a_name_through_renames_and_edits(self):
        self.configure("set", "red", "d1", 2, 3)
        self.configure("set", "red", "new", 3, 6)
        self.step()
        self.step("link set d1 name new")
        self.configure("delete", "red", "d1", 3)
        self.step()
        self.configure("delete", "red", "new", 6)
        self.step("link set new name d1")
        self.configure("set", "red", "d1", 5)
        self.step("link set d1 name other")
        self.configure("delete", "red", "d1", 2, 5)
        self.configure("set", "red", "other", 2)
        self.step()
        self.configure("delete", "red", "other", 2)
        self.configure("delete", "red", "new", 3)
        self.step("link set other name d1")

    def test_protocols_stay_with_the_name_when_members_swap_names_or_are_created_again(self):
        self.configure("set", "red", "d1", 2, 5)
        self.configure("set", "red", "d2", 3)
        self.configure("set", "blue", "d1", 6)
        self.step("link set d1 name aside", "link set d2 name d1", "link set aside name d2")
        self.configure("delete", "red", "d1", 5)
        self.step("link set d1 nomaster", "link set d1 master blue")
        self.step("link del d2", "link add d2 type dummy", "link set d2 master red")
        self.step("link set d2 name aside", "link set d4 name d2", "link set aside name d4")
        for vrf, name, number in (("red", "d1", 2), ("red", "d2", 3), ("blue", "d1", 6)):
            self.configure("delete", vrf, name, number)
        self.step()


if __name__ == "__main__":
    subprocess.run(["modprobe", "-a", "vrf", "dummy"], check=True)
    unittest.main(verbosity=2)
