#!/usr/bin/env python3
"""The module inside a stock snmpd: unloaded, loaded again, and loaded beside the sub-agent."""
import pathlib
import signal
import time
import unittest

from module_system import DLMOD, ROWS, UP_TIME, ModuleTest, blocks_of_the_module
from snmp_client import GET_BULK
from system import BIN, IF_CONF, MODULE, ROUTE_ENTRY, SCALARS, SLOW, dotted, wait_until


class Loading(ModuleTest):
    def maps(self, running):
        return pathlib.Path(f"/proc/{running.processes['snmpd'].pid}/maps").read_text()

    def test_module_that_is_unloaded_leaves_the_process_and_can_be_loaded_again(self):
        running = self.start()
        for _ in range(3):
            self.assertIn("mpls_vpn_snmpd.so", self.maps(running))
            self.set_module(running, DLMOD + ".5.1", "i", "5")
            self.assertIsNone(running.get_value(SCALARS + ".1.0"))
            self.assertNotIn("mpls_vpn_snmpd.so", self.maps(running))
            self.assertEqual(running.snmp("get", dotted(UP_TIME)).returncode, 0)
            self.set_module(running, DLMOD + ".5.1", "i", "4")
            wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")
        self.assertEqual(len(self.column(running, 7)), ROWS)

    def test_module_can_be_unloaded_while_requests_wait(self):
        running = self.start()
        time.sleep(1.1 * SLOW)
        running.processes["daemon"].send_signal(signal.SIGSTOP)
        walkers = [self.client(running) for _ in range(10)]
        for number, walker in enumerate(walkers):
            walker.send(GET_BULK, [ROUTE_ENTRY + (7 + number,)], 0, 10)
        self.set_module(running, DLMOD + ".5.1", "i", "5")
        running.processes["daemon"].send_signal(signal.SIGCONT)
        self.assertEqual(running.snmp("get", dotted(UP_TIME)).returncode, 0)
        self.assertIsNone(running.get_value(SCALARS + ".1.0"))
        self.set_module(running, DLMOD + ".5.1", "i", "4")
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")

    def test_module_serves_after_snmpd_has_read_its_configuration_again(self):
        running = self.start()
        for _ in range(3):
            running.processes["snmpd"].send_signal(signal.SIGHUP)
            wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")
            self.assertEqual(len(self.column(running, 7)), ROWS)
        self.assertNotIn("another agent", running.log("snmpd"))

    def test_module_for_another_net_snmp_is_rejected(self):
        running = self.new_module_system(MODULE.parent / "test/mpls_vpn_snmpd.so")
        running.start_daemon()
        running.start_snmpd()
        wait_until("the message", lambda: "built for net-snmp 4.2.1, but snmpd runs with " in running.log("snmpd"))
        self.assertIsNone(running.get_value(SCALARS + ".1.0"))

    def test_module_beside_the_sub_agent_refuses_until_that_ends(self):
        running = self.new_module_system(None)
        running.start_daemon()
        running.start_snmpd()
        running.start_agent()
        self.set_module(running, DLMOD + ".5.1", "i", "6")
        self.set_module(running, DLMOD + ".2.1", "s", "mpls_vpn_snmpd", DLMOD + ".3.1", "s", str(MODULE))
        self.set_module(running, DLMOD + ".5.1", "i", "4")
        wait_until("the message", lambda: "another agent serves 1.3.6.1.2.1.10.166.11.1, so this module does not" in
                   running.log("snmpd"))
        self.assertEqual(running.get_value(SCALARS + ".1.0"), "2")
        time.sleep(4.5 * SLOW)  # it tries every two seconds, and snmpd would log each attempt
        self.assertEqual(running.log("snmpd").count("duplicate registration"), 0)
        running.kill("agent", signal.SIGTERM)
        wait_until("the rows of the module", lambda: running.get_value(SCALARS + ".1.0") == "2")
        self.assertEqual(running.log("snmpd").count("another agent"), 1)

    def test_sub_agent_beside_the_module_is_refused_until_that_ends(self):
        running = self.start()
        running.spawn("agent", str(BIN / "mpls_vpn_snmp"), "--agentx-socket", str(running.agentx))
        wait_until("the message", lambda: "another agent serves 1.3.6.1.2.1.10.166.11.1" in running.log("agent"))
        self.assertEqual(running.get_value(SCALARS + ".1.0"), "2")
        self.set_module(running, DLMOD + ".5.1", "i", "5")
        wait_until("the rows of the sub-agent", lambda: running.get_value(SCALARS + ".1.0") == "2")

    def test_no_leak_and_no_invalid_access(self):
        running = self.new_module_system()
        running.start_daemon()
        wrapper = running.folder / "valgrind.log"
        running.snmpd_wrapper = ("valgrind", "--leak-check=full", "--show-leak-kinds=definite,possible",
                                 "--keep-debuginfo=yes", f"--log-file={wrapper}")
        running.start_snmpd()
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2", 60)
        for _ in range(2):
            self.column(running, 7)
            running.walk(IF_CONF)
            running.processes["snmpd"].send_signal(signal.SIGHUP)
            self.column(running, 8)
            running.kill("daemon")
            wait_until("an error", lambda: self.error_status(running, SCALARS + ".1.0"))
            running.start_daemon()
            wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2", 60)
            running.processes["daemon"].send_signal(signal.SIGSTOP)
            walker = self.client(running)
            for number in range(10):
                walker.send(GET_BULK, [ROUTE_ENTRY + (9 + number,)], 0, 30)
            self.set_module(running, DLMOD + ".5.1", "i", "5")
            running.processes["daemon"].send_signal(signal.SIGCONT)
            self.set_module(running, DLMOD + ".5.1", "i", "4")
            wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2", 60)
        running.kill("snmpd", signal.SIGTERM)
        self.assertEqual(blocks_of_the_module(wrapper.read_text()), [])


if __name__ == "__main__":
    unittest.main()
