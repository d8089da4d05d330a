#!/usr/bin/env python3
"""Route thresholds, from the configuration and the router's tables to a stock snmptrapd and the VRF table."""
import time
import unittest

from system import BIN, L3VPN, SLOW, System, SystemTest, name_index, pass_a_second, wait_until
from trap_case import TrapCase

ROUTER = """
vrfs:
  - {name: red, table: 10}
  - {name: blue, table: 20}
interfaces:
  - {name: ge0, index: 11, vrf: red, state: up, addresses: [10.0.0.1/24]}
"""
GENERATED = """
vrfs:
  - {{name: red, table: 10, routes: [{{generate: {routes}, prefix: 20.0.0.0/24, next_hop: 10.0.0.2, interface: ge0}}]}}
  - {{name: blue, table: 20}}
interfaces:
  - {{name: ge0, index: 11, vrf: red, state: up, addresses: [10.0.0.1/24]}}
"""
MID, MAXIMUM, CLEARED = 3, 4, 6  # of mplsL3VpnNotifications
MID_COLUMN, HIGH_COLUMN, MAX_ROUTES_COLUMN = 9, 10, 11


def threshold_trap(number, vrf, routes, threshold):
    """What snmptrapd prints: the number of routes and the threshold, both with the index of this VRF."""
    name = name_index(vrf)
    column = MID_COLUMN if number == MID else HIGH_COLUMN
    return (number, [((1, 3, 1, 1, 3) + name, str(routes)), ((1, 2, 2, 1, column) + name, str(threshold))])


class Thresholds(TrapCase):
    ROUTER = ROUTER

    def setUp(self):
        super().setUp()
        self.config("set", "traps", "all")

    def limit(self, vrf, maximum, mid, family="ipv4"):
        self.config("set", "vrf", vrf, "threshold", family, str(maximum), str(mid))

    def add_routes(self, vrf, *numbers):
        for number in numbers:
            self.router("add-route", vrf, f"10.{number}.0.0/16", "via", "10.0.0.2")

    def delete_routes(self, vrf, *numbers):
        for number in numbers:
            self.router("delete-route", vrf, f"10.{number}.0.0/16", "via", "10.0.0.2")

    def expect_no_other(self):
        """A trap that is raised now is the next one to arrive."""
        self.router("down", "ge0")
        self.router("up", "ge0")
        seen = wait_until("the next traps", lambda: [trap for trap in self.system.traps() if trap[0] == 1], 15)
        self.assertEqual(len(seen), 1)
        self.assertEqual([trap for trap in self.system.traps() if trap[0] not in (1, 2)], self.expected)

    def thresholds_in_the_mib(self, vrf):
        index = ".".join(str(part) for part in name_index(vrf))
        return tuple(int(self.system.get_value(f"{L3VPN}.1.2.2.1.{column}.{index}"))
                     for column in (MID_COLUMN, HIGH_COLUMN, MAX_ROUTES_COLUMN))

    def watched(self):
        """The state of red's IPv4 table, and its prefixes that are absent."""
        red, = self.system.cli_json("show", "thresholds", "red")
        return red["tables"][0]["state"], [each["prefix"] for each in red["prefixes"] if not each["present"]]

    def test_missing_routes_are_shown_and_logged_also_after_a_restart(self):
        self.config("set", "vrf", "red", "low-water", "ipv4", "2", "0")
        for prefix in ("10.1.0.0/16", "10.2.0.0/16"):
            self.config("set", "vrf", "red", "watch", prefix)
        self.add_routes("red", 1, 2)
        wait_until("both routes", lambda: self.watched() == ("ok", []))
        self.delete_routes("red", 2)
        wait_until("the loss", lambda: self.watched() == ("low", ["10.2.0.0/16"]))
        self.assertIn("VRF red: 1 IPv4 routes, below its low-water mark of 2 for 0 s", self.system.log("daemon"))
        self.assertIn("VRF red: the watched prefix 10.2.0.0/16 has no route any more", self.system.log("daemon"))
        self.add_routes("red", 2)
        wait_until("the return", lambda: self.watched() == ("ok", []))
        self.assertIn("VRF red: the watched prefix 10.2.0.0/16 has a route again", self.system.log("daemon"))
        self.system.kill("daemon")
        self.system.start_daemon()
        wait_until("the state without routes", lambda: self.watched() == ("low", ["10.1.0.0/16", "10.2.0.0/16"]))
        self.router("delete-vrf", "red")
        self.assertEqual(self.watched(), ("low", ["10.1.0.0/16", "10.2.0.0/16"]), "a VRF that does not exist is shown")
        self.assertIn("VRF green does not exist", self.system.cli("show", "thresholds", "green").stderr)
        self.expect_no_other()

    def test_one_trap_for_each_threshold_and_one_clearing(self):
        self.limit("red", 4, 2)
        self.add_routes("red", 1, 2)
        self.add_routes("red", 3)
        self.expect(threshold_trap(MID, "red", 3, 2))
        self.add_routes("red", 4)
        self.expect(threshold_trap(MAXIMUM, "red", 4, 4))
        self.add_routes("red", 5, 6)
        self.delete_routes("red", 6, 5)
        self.delete_routes("red", 4)
        self.expect(threshold_trap(CLEARED, "red", 3, 4))
        self.delete_routes("red", 3, 2)
        self.add_routes("red", 2, 3)
        self.expect(threshold_trap(MID, "red", 3, 2))
        self.expect_no_other()

    def traps_of(self, vrf):
        """The traps about this VRF, in order."""
        name = name_index(vrf)
        return [trap for trap in self.system.traps() if trap[1][0][0][-len(name):] == name]

    def test_maximum_is_raised_again_every_second_until_it_is_cleared(self):
        self.config("set", "traps", "notif-reissue-time", "1")
        for vrf in ("red", "blue"):
            self.limit(vrf, 2, 0)
        began = time.monotonic()
        for vrf in ("red", "blue"):
            self.add_routes(vrf, 1, 2)
        wait_until("three again", lambda: min(len(self.traps_of(vrf)) for vrf in ("red", "blue")) >= 4, 20)
        self.assertGreaterEqual(time.monotonic() - began, 2.0, "three intervals; the first had started before")
        self.delete_routes("red", 2)
        wait_until("the clearing", lambda: self.traps_of("red")[-1][0] == CLEARED, 15)
        rounds = len(self.traps_of("blue"))  # blue is still above: its traps measure the time in which red sends none
        wait_until("three more of blue", lambda: len(self.traps_of("blue")) >= rounds + 3, 20)
        again = threshold_trap(MAXIMUM, "red", 2, 2)
        *before, last = self.traps_of("red")
        self.assertEqual(before, [again] * len(before))
        self.assertEqual(last, threshold_trap(CLEARED, "red", 1, 2))

    def test_vrf_deleted_above_its_maximum_is_cleared_and_not_raised_again(self):
        self.config("set", "traps", "notif-reissue-time", "1")
        for vrf in ("red", "blue"):
            self.limit(vrf, 2, 0)
            self.add_routes(vrf, 1, 2)
        wait_until("both above", lambda: min(len(self.traps_of(vrf)) for vrf in ("red", "blue")) >= 1, 15)
        self.router("delete-vrf", "red")
        wait_until("the clearing", lambda: self.traps_of("red")[-1][0] == CLEARED, 15)
        self.config("delete", "vrf", "red", "threshold", "ipv4")
        sent, rounds = len(self.traps_of("red")), len(self.traps_of("blue"))
        wait_until("three more of blue", lambda: len(self.traps_of("blue")) >= rounds + 3, 20)
        self.assertEqual(len(self.traps_of("red")), sent)
        self.assertEqual(self.traps_of("red")[-1], threshold_trap(CLEARED, "red", 0, 2))

    def test_details_show_the_thresholds_of_the_family_that_is_still_watched(self):
        self.limit("red", 400, 300, "ipv4")
        self.limit("red", 60, 0, "ipv6")
        self.config("delete", "vrf", "red", "threshold", "ipv4")
        wait_until("no thresholds of red in the row", lambda: self.thresholds_in_the_mib("red") == (0, 0, 0))
        detail = self.system.cli("show", "vrf", "red", "detail", check=True).stdout
        self.assertIn("  route thresholds    ipv6 high 60, mid none (operator)\n", detail)
        self.assertIn("  route thresholds    none\n", self.system.cli("show", "vrf", "blue", "detail", check=True).stdout)

    def test_changed_threshold_takes_effect_at_once(self):
        self.add_routes("red", 1, 2, 3)
        self.limit("red", 3, 2)
        self.expect(threshold_trap(MID, "red", 3, 2), threshold_trap(MAXIMUM, "red", 3, 3))
        self.limit("red", 10, 5)
        self.expect(threshold_trap(CLEARED, "red", 3, 10))
        self.limit("red", 1, 0)
        self.expect(threshold_trap(MAXIMUM, "red", 3, 1))
        self.config("delete", "vrf", "red", "threshold", "ipv4")
        self.expect(threshold_trap(CLEARED, "red", 3, 0))
        self.expect_no_other()

    def test_many_routes_at_once_cross_each_threshold_once(self):
        self.limit("red", 50000, 30000)
        self.system.router_file.write_text(GENERATED.format(routes=60000))
        self.router("reload")
        wait_until("both", lambda: len(self.system.traps()) >= 2, 60)
        (mid, mid_values), (maximum, maximum_values) = self.system.traps()
        self.assertEqual((mid, maximum), (MID, MAXIMUM))
        self.assertGreater(int(mid_values[0][1]), 30000)
        self.assertGreaterEqual(int(maximum_values[0][1]), 50000)
        self.system.router_file.write_text(GENERATED.format(routes=10))
        self.router("reload")
        wait_until("the clearing", lambda: len(self.system.traps()) >= 3, 60)
        cleared, values = self.system.traps()[2]
        self.assertEqual(cleared, CLEARED)
        self.assertLess(int(values[0][1]), 50000)
        self.expected = self.system.traps()
        self.expect_no_other()

    def test_daemon_that_starts_above_the_maximum_raises_it(self):
        self.limit("red", 50, 30)
        self.config("set", "traps", "notif-reissue-time", "1")
        self.system.router_file.write_text(GENERATED.format(routes=60))
        self.router("reload")
        wait_until("the maximum", lambda: MAXIMUM in [trap[0] for trap in self.system.traps()], 15)
        self.system.kill("daemon")
        before = len(self.system.traps())
        self.system.start_daemon()
        wait_until("three from the new process", lambda: len(self.system.traps()) >= before + 4, 30)
        later = [trap for trap in self.system.traps()[before:] if trap[0] == MAXIMUM]
        self.assertEqual(later[-1], threshold_trap(MAXIMUM, "red", 60, 50))
        self.system.router_file.write_text(GENERATED.format(routes=10))
        self.router("reload")
        wait_until("the clearing", lambda: self.system.traps()[-1][0] == CLEARED, 15)
        self.assertEqual([trap for trap in self.system.traps() if trap[0] == CLEARED],
                         [threshold_trap(CLEARED, "red", 10, 50)])


class Restarts(SystemTest):
    WATCHED = """
vrfs: [{name: red, table: 10, routes: [%s]}]
interfaces: [{name: ge0, index: 11, vrf: red, state: up, addresses: [10.0.0.1/24]}]
"""
    ROUTE = "{prefix: 10.%d.0.0/16, next_hop: 10.0.0.2, interface: ge0}"

    def router(self, *numbers):
        return self.WATCHED % ", ".join(self.ROUTE % number for number in numbers)

    def shown(self, system):
        red, = system.cli_json("show", "thresholds")
        return red["tables"][0], {each["prefix"]: each for each in red["prefixes"]}

    def test_what_is_lost_while_the_daemon_is_down_is_reported_and_times_stay(self):
        system = self.new_system(self.router(1, 2))
        system.start_daemon()
        system.cli("config", "set", "vrf", "red", "low-water", "ipv4", "3", "0", check=True)
        for number in 1, 2, 3:
            system.cli("config", "set", "vrf", "red", "watch", f"10.{number}.0.0/16", check=True)
        present = lambda: [prefix for prefix, each in self.shown(system)[1].items() if each["present"]]
        self.becomes("two prefixes", present, ["10.1.0.0/16", "10.2.0.0/16"])
        self.becomes("a low table", lambda: self.shown(system)[0]["state"], "low")
        before = self.shown(system)
        system.processes["daemon"].terminate()
        self.assertEqual(system.processes["daemon"].wait(timeout=20 * SLOW), 0)
        system.router_file.write_text(self.router(2))
        pass_a_second()
        system.start_daemon()
        wait_until("the loss", lambda: "VRF red: the watched prefix 10.1.0.0/16 has no route any more\n" in system.log("daemon"))
        after = self.shown(system)
        self.assertEqual(after[0]["lowChanged"], before[0]["lowChanged"])
        self.assertEqual(after[1]["10.2.0.0/16"], before[1]["10.2.0.0/16"])
        self.assertGreater(after[1]["10.1.0.0/16"]["changed"], before[1]["10.1.0.0/16"]["changed"])
        self.assertEqual(system.log("daemon").count("below its low-water mark of 3"), 1, "it is reported once")
        self.assertNotIn("10.3.0.0/16 has no route", system.log("daemon"))


class Start(unittest.TestCase):
    def test_daemon_that_cannot_watch_the_tables_ends_with_the_reason(self):
        with System(ROUTER, environment={"MPLS_VPN_MIB_FAULTS": "rib_threshold_attach=5"}) as system:
            process = system.spawn("daemon", str(BIN / "mpls_vpn_mib"))
            self.assertEqual(process.wait(timeout=20 * SLOW), 1)
            self.assertIn("mpls_vpn_mib: cannot watch the route thresholds: Input/output error", system.log("daemon"))


if __name__ == "__main__":
    unittest.main()
