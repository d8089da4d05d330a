#!/usr/bin/env python3
"""route_life.py PROGRAM: routes of VRFs on a real kernel, step by step. Runs in the guest (see uml-run), as root.

PROGRAM is kernel_model_dump. After every step its rows must be those that ip(8) shows of every VRF's tables. The test polls
with a bound.
"""
import os
import subprocess
import sys
import time
import unittest

import vrf_life
from kernel import Kernel, batch, member_lines, vrf_lines
from routes import LARGEST_INTEGER, REJECT, vrf_routes
from vrf_life import BOUND, Guest


def model_routes(answer):
    return {vrf: {(row["prefix"], row["next_hop"]): (row["metric"], row["index"], row["type"], row["labels"],
                                                     row["protocol"]) for row in rows}
            for vrf, rows in answer["routes"].items()}


class RouteGuest(Guest):
    """Three VRFs with two interfaces in red, one in blue and a core interface in none; no tests of its own."""

    def setUp(self):
        super().setUp()
        batch(vrf_lines({"red": 10, "blue": 20}) +
              member_lines({"d0": "red", "d1": "red", "d2": "blue", "d4": ""}, "link set {name} up") +
              ["link set lo up", "addr add 10.0.0.1/24 dev d0", "addr add 10.1.0.1/24 dev d1", "addr add 10.0.0.1/24 dev d2",
               "addr add 10.99.0.1/24 dev d4", "addr add 2001:db8:10::1/64 dev d0 nodad",
               "addr add 2001:db8:11::1/64 dev d1 nodad"])
        self.expect_rows("three VRFs")

    def clean(self):
        super().clean()
        for family in ("-4", "-6"):  # routes without a device outlive their VRF
            for table in ("10", "20"):
                subprocess.run(["ip", family, "route", "flush", "table", table], stderr=subprocess.DEVNULL, check=False)
        subprocess.run(["ip", "nexthop", "flush"], stdout=subprocess.DEVNULL, check=False)

    def expect_rows(self, step):
        """The model's rows are the kernel's, within the bound."""
        answer = self.expect_equal(step, lambda: vrf_routes(Kernel()), model_routes)
        self.assertEqual(answer["refused"], 0)
        return model_routes(answer)

    def routes(self, *commands):
        batch(commands)
        return self.expect_rows("; ".join(commands))


class RouteLife(RouteGuest):
    """Step by step."""

    def test_routes_over_an_interface_of_another_vrf_are_removed_with_its_last_address(self):
        self.routes("link add e0 type dummy", "link set e0 up", "addr add 10.50.0.1/24 dev e0",
                    "route add 192.168.1.0/24 via 10.50.0.2 dev e0 onlink vrf red")
        self.routes("addr del 10.50.0.1/24 dev e0")

    def test_routes_of_every_kind(self):
        rows = self.routes(
            "route add unreachable default metric 4278198272 vrf red",
            "route add 192.168.1.0/24 via 10.0.0.2 vrf red",
            "route add 192.168.2.0/24 via 10.0.0.2 metric 50 proto static vrf red",
            "route add 192.168.3.0/24 dev d1 proto static scope link vrf red",
            "route add blackhole 192.168.4.0/24 vrf red", "route add unreachable 192.168.5.0/24 vrf red",
            "route add prohibit 192.168.6.0/24 vrf red", "route add throw 192.168.7.0/24 table 10",
            "route add 192.168.8.0/24 vrf red nexthop via 10.0.0.2 nexthop via 10.1.0.2 weight 3",
            "route add 192.168.9.0/24 via 10.0.0.2 metric 20 proto 196 vrf red",
            "route add 192.168.9.0/24 via 10.0.0.2 metric 10 proto 186 vrf red",
            "route add 192.168.9.0/24 via 10.1.0.2 metric 30 proto 188 vrf red",
            "route add 192.168.17.0/24 via inet6 2001:db8:10::2 dev d0 vrf red",
            "route add 192.168.1.0/24 via 10.0.0.3 vrf blue")["red"]
        self.assertEqual(rows["0.0.0.0/0", ""][:3], (LARGEST_INTEGER, 0, REJECT))
        self.assertEqual(rows["192.168.9.0/24", "10.0.0.2"][0], 10)
        self.assertEqual(len([key for key in rows if key[0] == "192.168.8.0/24"]), 2)
        self.routes("route del 192.168.9.0/24 via 10.0.0.2 metric 10 vrf red",
                    "route replace 192.168.1.0/24 via 10.1.0.2 vrf red", "route del 192.168.4.0/24 vrf red")

    def test_ipv6_routes(self):
        rows = self.routes(
            "route add unreachable ::/0 metric 4278198272 vrf red",
            "route add 2001:db8:aaaa::/48 via 2001:db8:10::2 metric 30 vrf red",
            "route add blackhole 2001:db8:bbbb::/48 vrf red",
            "route add 2001:db8:cccc::/48 vrf red nexthop via 2001:db8:10::2 nexthop via 2001:db8:11::2",
            "route add 2001:db8:dddd::/48 via fe80::2 dev d0 expires 300 vrf red")["red"]
        self.assertIn(("2001:db8:10::/64", ""), rows)
        self.assertIn(("::/0", ""), rows)
        self.assertFalse([key for key in rows if key[0].startswith(("fe80", "ff"))])
        self.routes("route append 2001:db8:cccc::/48 via 2001:db8:11::3 vrf red",
                    "route del 2001:db8:aaaa::/48 vrf red")

    def test_routes_that_leave_with_labels(self):
        if not os.path.isdir("/proc/sys/net/mpls"):
            self.skipTest("SKIPPED: no MPLS in this kernel")
        rows = self.routes(
            "route add 10.9.0.0/16 encap mpls 200 via 10.99.0.2 dev d4 proto bgp vrf red",
            "route add 10.10.0.0/16 encap mpls 1002/16 via 10.99.0.2 dev d4 proto bgp vrf red",
            "route add 10.11.0.0/16 proto bgp vrf red nexthop encap mpls 201 via 10.99.0.2 dev d4"
            " nexthop encap mpls 202 via 10.99.0.3 dev d4")["red"]
        self.assertEqual(rows["10.10.0.0/16", "10.99.0.2"][3], [1002, 16])
        self.assertEqual(rows["10.11.0.0/16", "10.99.0.3"][3], [202])
        self.routes("route replace 10.9.0.0/16 encap mpls 300 via 10.99.0.2 dev d4 proto bgp vrf red")
        rows = self.routes("link set d4 down")["red"]  # in no VRF, and routes of red depend on it
        self.assertNotIn(("10.9.0.0/16", "10.99.0.2"), rows)

    def test_link_down_removes_routes_without_events(self):
        self.routes("route add 192.168.1.0/24 via 10.0.0.2 vrf red", "route add 192.168.2.0/24 via 10.1.0.2 vrf red",
                    "route add 2001:db8:aaaa::/48 via 2001:db8:10::2 vrf red",
                    "route add 192.168.8.0/24 vrf red nexthop via 10.0.0.2 nexthop via 10.1.0.2",
                    "route add 2001:db8:cccc::/48 vrf red nexthop via 2001:db8:10::2 nexthop via 2001:db8:11::2")
        rows = self.routes("link set d0 down")["red"]
        self.assertNotIn(("192.168.1.0/24", "10.0.0.2"), rows)
        self.assertNotIn(("192.168.8.0/24", "10.0.0.2"), rows)
        self.assertIn(("192.168.8.0/24", "10.1.0.2"), rows)
        rows = self.routes("link set d0 up")["red"]
        self.assertIn(("10.0.0.0/24", ""), rows)
        self.assertIn(("192.168.8.0/24", "10.0.0.2"), rows)
        self.routes("link set d0 down", "link set d1 down", "link set d1 up", "link set d0 up")

    def test_interface_that_moves_leaves_its_routes_in_the_old_table(self):
        self.routes("route add 192.168.1.0/24 via 10.0.0.2 vrf red", "route add 192.168.2.0/24 via 10.1.0.2 vrf red")
        rows = self.routes("link set d0 master blue")
        self.assertNotIn(("192.168.1.0/24", "10.0.0.2"), rows["red"])
        self.assertIn(("10.0.0.0/24", ""), rows["blue"])
        self.routes("link set d0 nomaster")
        self.routes("link del d1")

    def test_deleted_vrf_loses_its_rows_and_a_new_one_has_the_remaining_routes(self):
        self.routes("route add unreachable default metric 4278198272 vrf red",
                    "route add 192.168.1.0/24 via 10.0.0.2 vrf red")
        self.assertNotIn("red", self.routes("link del red"))
        rows = self.routes("link add red type vrf table 10", "link set red up")["red"]
        self.assertEqual(set(rows), {("0.0.0.0/0", "")})

    def test_renamed_vrf_keeps_its_routes(self):
        self.routes("route add 192.168.1.0/24 via 10.0.0.2 vrf red")
        rows = self.routes("link set red down", "link set red name crimson", "link set crimson up")
        self.assertIn("crimson", rows)

    def test_two_vrfs_on_one_table(self):
        rows = self.routes("link add twin type vrf table 10", "link set twin up",
                           "route add blackhole 192.168.1.0/24 vrf red")
        self.assertEqual(rows["twin"], rows["red"])
        self.routes("link del red")
        self.routes("route add blackhole 192.168.2.0/24 table 10")

    def test_next_hop_objects(self):
        for compatible in ("1", "0"):
            subprocess.run(["sysctl", "-qw", f"net.ipv4.nexthop_compat_mode={compatible}"], check=True)
            with self.subTest(nexthop_compat_mode=compatible):
                self.routes("nexthop add id 5 via 10.0.0.2 dev d0", "nexthop add id 6 via 10.1.0.2 dev d1",
                            "nexthop add id 7 group 5/6", "route add 192.168.15.0/24 nhid 5 vrf red",
                            "route add 192.168.16.0/24 nhid 7 vrf red")
                rows = self.routes("nexthop replace id 5 via 10.0.0.9 dev d0")["red"]
                self.assertIn(("192.168.16.0/24", "10.0.0.9"), rows)
                rows = self.routes("link set d0 down")["red"]
                self.assertNotIn(("192.168.15.0/24", "10.0.0.9"), rows)
                self.routes("link set d0 up", "nexthop del id 6")
                subprocess.run(["ip", "nexthop", "flush"], stdout=subprocess.DEVNULL, check=True)
                self.expect_rows("objects flushed")


class RouteOverrun(RouteGuest):
    """Through a socket that is too small for a burst."""
    arguments = ("--receive-buffer=1",)

    def test_many_routes_overrun_and_nothing_is_lost(self):
        self.routes(*[f"route add 172.16.{number % 250}.{number // 250 * 16}/28 via 10.0.0.2 vrf red"
                      for number in range(600)], "route add blackhole 192.168.1.0/24 vrf blue")
        self.assertGreater(self.model.ask()["route_losses"], 0)
        self.routes("route flush vrf red", "route flush vrf blue")


class ManyRoutes(RouteGuest):
    """A large table; the rows are counted only."""
    arguments = ("--count-routes",)

    def expect_rows(self, step):
        return self.model.ask()

    def expect_count(self, count):
        deadline = time.monotonic() + BOUND
        while self.model.ask()["routes"]["red"] != count and time.monotonic() < deadline:
            pass
        self.assertEqual(self.model.ask()["routes"]["red"], count)

    def test_twenty_thousand_routes_are_removed_with_their_link(self):
        before = self.model.ask()["routes"]["red"]
        batch([f"route add 172.{16 + number // 62500}.{number // 250 % 250}.{number % 250}/32 via 10.0.0.2 vrf red"
               for number in range(20000)])
        self.expect_count(before + 20000)
        batch(["link set d0 down"])
        self.expect_count(before - 2)  # and the two connected prefixes
        self.assertEqual(self.model.ask()["refused"], 0)


if __name__ == "__main__":
    vrf_life.PROGRAM = os.path.abspath(sys.argv.pop(1))
    subprocess.run(["modprobe", "-a", "vrf", "dummy", "veth", "bridge"], check=True)
    if subprocess.run(["modprobe", "-a", "mpls_router", "mpls_iptunnel"], check=False).returncode != 0:
        print("SKIPPED: no MPLS modules for this kernel: routes with labels are not tested", flush=True)
    unittest.main(verbosity=2)
