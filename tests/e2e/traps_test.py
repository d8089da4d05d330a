#!/usr/bin/env python3
"""Traps from the router's changes to a stock snmptrapd: each switch, every kind of change, restarts of each process in
between, and a queue that overflows."""
import contextlib
import json
import signal
import subprocess
import threading
import time
import unittest

from system import BIN, IN_SNMPD, L3VPN, SLOW, name_index, wait_until
from trap_case import TrapCase
from trap_sink import TrapSink
from wire import Client

ROUTER = """
vrfs:
  - {name: red, table: 10}
  - {name: blue, table: 20}
interfaces:
  - {name: ge0, index: 11, vrf: red, state: up, addresses: [10.0.0.1/24]}
  - {name: ge1, index: 12, vrf: red, state: down, addresses: [10.0.1.1/24]}
  - {name: ge2, index: 13, state: up, addresses: [10.0.2.1/24]}
"""
UP, DOWN = 1, 2
PAIRS = 500  # of traps while something restarts: fewer than QUEUE
QUEUE = 4096  # traps that the daemon stores for the sub-agent


def vrf_trap(number, vrf, index):
    """What snmptrapd prints when this interface brings the VRF up or down."""
    name = name_index(vrf)
    return (number, [((1, 2, 1, 1, 5) + name + (index,), "1"), ((1, 2, 2, 1, 6) + name, str(number))])


class Traps(TrapCase):
    ROUTER = ROUTER

    def setUp(self):
        super().setUp()
        self.repeated_from = 0

    def flap(self, times=1):
        for _ in range(times):
            self.router("down", "ge0")
            self.router("up", "ge0")
            self.expected += [vrf_trap(DOWN, "red", 11), vrf_trap(UP, "red", 11)]

    def kill_between(self, name):
        """Kills a process between the daemon and snmptrapd. Unacknowledged traps may be repeated before new ones."""
        self.system.kill(name)
        self.repeated_from = len(self.expected)

    def all_received(self):
        """All expected traps were received once each, except those that a killed process may have sent before."""
        received, end = self.system.traps(), self.repeated_from
        for repeated in range(end + 1):
            if received == self.expected[:end] + self.expected[end - repeated:end] + self.expected[end:]:
                self.expected, self.repeated_from = received, 0
                return True
        return False

    def test_up_down_join_leave_and_move(self):
        self.config("set", "traps", "all")
        self.router("down", "ge0")
        self.expect(vrf_trap(DOWN, "red", 11))
        self.router("up", "ge1")
        self.expect(vrf_trap(UP, "red", 12))
        self.router("up", "ge0")  # the second active interface raises nothing
        self.router("down", "ge1")
        self.router("move", "ge2", "blue")
        self.expect(vrf_trap(UP, "blue", 13))
        self.router("move", "ge2", "red")
        self.expect(vrf_trap(DOWN, "blue", 13))
        self.router("leave", "ge2")
        self.router("leave", "ge0")
        self.expect(vrf_trap(DOWN, "red", 11))
        self.router("move", "ge0", "red")
        self.expect(vrf_trap(UP, "red", 11))

    def test_flapping_interface_raises_each_trap_in_order(self):
        self.config("set", "traps", "all")
        self.flap(20)
        self.expect()

    def test_each_switch_alone(self):
        self.config("set", "traps", "vrf-up")
        self.router("down", "ge0")
        self.router("up", "ge0")
        self.expect(vrf_trap(UP, "red", 11))
        self.config("delete", "traps", "vrf-up")
        self.config("set", "traps", "vrf-down")
        self.router("down", "ge0")
        self.router("up", "ge0")
        self.expect(vrf_trap(DOWN, "red", 11))
        # A disabled up is not considered: the interface raises no second down before the next up.
        self.config("set", "traps", "all")
        self.config("delete", "traps", "vrf-down")
        self.router("down", "ge0")
        self.router("up", "ge0")
        self.expect(vrf_trap(UP, "red", 11))
        self.config("delete", "traps", "all")
        self.router("down", "ge0")
        self.router("up", "ge0")
        self.config("set", "traps", "vrf-up")
        self.config("set", "traps", "vrf-down")
        self.flap()
        self.expect()

    def test_traps_stay_in_order_while_snmpd_is_down(self):
        self.config("set", "traps", "all")
        self.flap(3)
        self.expect()
        self.kill_between("snmpd")
        self.flap(10)
        self.system.agentx.unlink(missing_ok=True)
        self.system.start_snmpd()
        self.expect()
        self.flap(2)
        self.expect()

    def test_traps_stay_in_order_while_the_sub_agent_is_down(self):
        self.config("set", "traps", "all")
        for _ in range(3):
            self.kill_between("agent")
            self.flap(5)
            self.system.start_agent()
            self.flap(1)
            self.expect()

    def test_traps_on_their_way_arrive_once_although_the_daemon_is_killed(self):
        """The sub-agent has sent them to an snmpd that does not answer; the next daemon sends them again."""
        self.config("set", "traps", "all")
        snmpd = self.system.processes["snmpd"]
        for _ in range(3):
            snmpd.send_signal(signal.SIGSTOP)
            self.flap(4)
            time.sleep(0.2)  # until the sub-agent has them; no program shows that
            self.system.kill("daemon")
            self.system.start_daemon()
            self.flap(1)
            snmpd.send_signal(signal.SIGCONT)
            self.expect()

    def test_clean_restarts_lose_and_repeat_nothing(self):
        """Each restart finds some on their way; no more are raised than the daemon stores."""
        sink = TrapSink()
        self.system.trap_port = sink.port
        self.restart_snmpd()
        self.config("set", "traps", "all")
        restarts = [self.restart_snmpd, self.restart_sub_agent] * 4

        def flap():
            for _ in range(PAIRS // 10):
                self.flap_quickly(10)
                time.sleep(0.01)
        for restart in restarts:
            flapper = threading.Thread(target=flap)
            flapper.start()
            time.sleep(0.1)
            restart()
            flapper.join()
        expected = [DOWN, UP] * (PAIRS * len(restarts))
        with contextlib.suppress(AssertionError):
            wait_until("every trap", lambda: len(sink.traps()) >= len(expected), 20)
        time.sleep(0.5)  # for those that would be sent twice
        self.assertNotIn("lost while the queue was full", self.system.log("daemon"))
        received = [number for number, _ in sink.traps()]
        self.assertEqual(len(received), len(expected))
        self.assertEqual(received, expected)

    def restart_sub_agent(self):
        if not IN_SNMPD:
            self.system.kill("agent", signal.SIGTERM)
            self.system.start_agent()

    def restart_snmpd(self):
        self.system.kill("snmpd", signal.SIGTERM)
        self.system.agentx.unlink(missing_ok=True)
        self.system.start_snmpd()

    if not IN_SNMPD:  # the module takes every trap at once while snmpd runs: nothing fills the queue
        def test_full_queue_drops_the_oldest_and_reports_how_many(self):
            sink = TrapSink()
            self.system.kill("snmpd")
            self.system.agentx.unlink(missing_ok=True)
            self.system.trap_port = sink.port
            self.system.start_snmpd()
            self.system.kill("agent")
            self.config("set", "traps", "all")
            self.flap_quickly(QUEUE // 2 + 25)
            self.system.start_agent()
            wait_until("the traps of a whole queue", lambda: len(sink.traps()) >= QUEUE, 60)
            self.assertEqual([number for number, _ in sink.traps()], [DOWN, UP] * (QUEUE // 2))
            self.assertIn("traps: 50 lost because the queue of the daemon was full, 50 since the start", self.system.log("agent"))
            self.assertIn("50 notifications were lost while the queue was full", self.system.log("daemon"))

    def flap_quickly(self, pairs):
        """Uses one connection: thousands of processes would take minutes."""
        with Client(self.system.folder / "run/dev.mpls.vpn.main") as client:
            for _ in range(pairs):
                client.action("router", "down", "ge0")
                client.action("router", "up", "ge0")

    def test_history_has_what_the_manager_received_also_after_the_daemon_is_killed(self):
        self.config("set", "traps", "all")
        self.flap(3)
        self.expect()
        for _ in range(2):
            self.assert_history_is_what_was_received()
            self.kill_between("daemon")
            self.system.start_daemon()
            self.flap(1)
            self.expect()
        self.assert_history_is_what_was_received()

    def assert_history_is_what_was_received(self):
        wait_until("every acknowledgement", lambda: self.system.cli_json("show", "traps")["waiting"] == 0)
        shown = self.system.cli_json("show", "traps", "--last", "500")
        received = self.system.traps()
        self.assertEqual([vrf_trap(each["trapType"] + 1, each["vrfName"], each["ifConfIndex"]) for each in shown["traps"]], received)
        self.assertEqual([each["notificationOid"] for each in shown["traps"]], [f"{L3VPN}.0.{number}" for number, _ in received])
        self.assertEqual({each["notificationOid"]: each["count"] for each in shown["raised"]},
                         {f"{L3VPN}.0.{number}": [raised for raised, _ in received].count(number) for number in range(1, 7)})

    def test_watch_shows_the_traps_that_are_sent(self):
        self.config("set", "traps", "all")
        begins = "watching for traps and changes"
        for options, check, first in (([], self.check_text, begins), (["--json"], self.check_json, f'{{"note":{{"message":"{begins}"}}}}')):
            watch = subprocess.Popen([str(BIN / "mplsvpn"), *options, "watch", "--count", "2", "--timeout", str(20 * SLOW)],
                                     env=self.system.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            self.assertEqual(watch.stderr.readline(), first + "\n")
            self.flap()
            output, errors = watch.communicate(timeout=30 * SLOW)
            self.assertEqual(watch.returncode, 0, errors)
            check(output.splitlines())

    def test_watch_continues_after_the_daemon_is_restarted(self):
        self.config("set", "traps", "all")
        watch = subprocess.Popen([str(BIN / "mplsvpn"), "watch", "--vrf", "red", "--count", "4", "--timeout", str(30 * SLOW)],
                                 env=self.system.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.assertEqual(watch.stderr.readline(), "watching for traps and changes\n")
        self.flap()
        self.expect()
        self.kill_between("daemon")
        self.assertEqual(watch.stderr.readline(), "mpls_vpn_mib closed the connection; waiting until it runs again\n")
        self.system.start_daemon()
        self.assertEqual(watch.stderr.readline(), "watching for traps and changes again\n")
        self.flap()
        output, errors = watch.communicate(timeout=30 * SLOW)
        self.assertEqual((watch.returncode, errors), (0, ""))
        self.check_text(output.splitlines()[:2])
        self.check_text(output.splitlines()[2:])

    def check_text(self, lines):
        self.assertEqual([line.split(" ", 1)[1] for line in lines],
                         ["mplsL3VpnVrfDown red interface 11 vrf down", "mplsL3VpnVrfUp red interface 11 vrf up"])

    def check_json(self, lines):
        traps = [json.loads(line) for line in lines]
        self.assertEqual([(trap["notification"], trap["vrfName"], trap["ifConfIndex"], trap["lostBefore"]) for trap in traps],
                         [("mplsL3VpnVrfDown", "red", 11, 0), ("mplsL3VpnVrfUp", "red", 11, 0)])


if __name__ == "__main__":
    unittest.main()
