#!/usr/bin/env python3
"""The sub-agent as a service: its state for the service manager, its signals, and words that it refuses."""
import os
import signal
import subprocess
import unittest

from service_system import ROUTER, ServiceTest
from system import BIN, SCALARS, SLOW, wait_until


class SubAgent(ServiceTest):
    def test_service_manager_learns_state_life_and_end(self):
        manager = self.service_manager()
        system = self.new_system(ROUTER)
        system.module = None
        socket_of_daemon = f"{system.folder}/run/dev.mpls.vpn.main"
        system.environment |= manager.environment(WATCHDOG_USEC="200000")
        system.spawn("agent", str(BIN / "mpls_vpn_snmp"), "--agentx-socket", str(system.agentx))
        manager.wait_for("READY=1")
        manager.wait_for(f"STATUS=waiting for the daemon at {socket_of_daemon}")
        del system.environment["NOTIFY_SOCKET"]
        system.start_daemon()
        manager.wait_for(f"STATUS=waiting for the master agent at {system.agentx}")
        system.start_snmpd()
        manager.wait_for(f"STATUS=registered with the master agent at {system.agentx}")
        system.kill("daemon")
        manager.wait_for(f"STATUS=registered with the master agent at {system.agentx}; "
                         f"waiting for the daemon at {socket_of_daemon}")
        manager.lines.clear()
        wait_until("signs of life", lambda: manager.read().count("WATCHDOG=1") > 3)
        self.assertEqual(self.ended(system, "agent", signal.SIGTERM), 0)
        self.assertIn(f"ended by SIGTERM from process {os.getpid()}\n", system.log("agent"))
        manager.wait_for("STOPPING=1")

    def test_signals_without_a_meaning_are_logged_and_end_nothing(self):
        system = self.new_system(ROUTER)
        system.module = None
        system.start_all()
        for number in signal.SIGUSR1, signal.SIGUSR2:
            system.processes["agent"].send_signal(number)
            self.wait_for_line(system, "agent", f"{number.name} from process {os.getpid()} has no effect; SIGHUP connects again\n")
        self.assertEqual(system.get_value(SCALARS + ".1.0"), "1")
        self.assertEqual(system.log("agent").count(": registered "), 1)
        self.assertEqual(self.ended(system, "agent", signal.SIGTERM), 0)

    def test_sighup_connects_again(self):
        system = self.new_system(ROUTER)
        system.module = None
        system.start_all()
        system.processes["agent"].send_signal(signal.SIGHUP)
        self.wait_for_line(system, "agent", f"SIGHUP from process {os.getpid()}: connecting again\n")
        wait_until("its second registration", lambda: system.log("agent").count(": registered ") == 2)
        self.assertEqual(system.get_value(SCALARS + ".1.0"), "1")
        self.assertNotIn("away", system.log("agent"))


    def test_help_has_no_words_of_the_programming_language(self):
        shown = subprocess.run([str(BIN / "mpls_vpn_snmp"), "--help"], capture_output=True, text=True, check=True).stdout
        self.assertNotRegex(shown, r"UINT|TEXT|INT in")
        self.assertRegex(shown, r"--row-age TIME ")

    def test_age_of_rows_is_a_time_with_a_unit(self):
        for age in "1s", "0.5s", "60s", "0", "1000":
            result = subprocess.run([str(BIN / "mpls_vpn_snmp"), "--row-age", age, "--version"], capture_output=True, text=True, check=False)
            self.assertEqual((result.returncode, result.stderr), (0, ""), age)

    def test_wrong_words_are_named_with_the_closest_option(self):
        system = self.new_system(ROUTER)
        for words, reason in ((("--agent-socket", "/x"), 'unknown option "--agent-socket"; did you mean "--agentx-socket"\\?'),
                              (("--agentx-sockt=/x",), 'unknown option "--agentx-sockt=/x"; did you mean "--agentx-socket"\\?'),
                              (("--zzzzzzzzz",), 'unknown option "--zzzzzzzzz"'), (("start",), 'unexpected argument "start"'),
                              (("--row-age", "x"), '--row-age: "x" is not a time from 0 to 60s, such as 500ms or 2s'),
                              (("--row-age", "61s"), '--row-age: "61s" is not a time from 0 to 60s, such as 500ms or 2s'),
                              (("--row-age",), 'a value is missing after "--row-age"')):
            with self.subTest(words):
                result = subprocess.run([str(BIN / "mpls_vpn_snmp"), *words], env=system.environment, capture_output=True, text=True,
                                        timeout=60 * SLOW, check=False)
                self.assertEqual(result.returncode, 2)
                self.assertRegex(result.stderr, rf'\Ampls_vpn_snmp: {reason}(;|(?<=\?)) "mpls_vpn_snmp --help" lists the options\n\Z')


if __name__ == "__main__":
    unittest.main()
