#!/usr/bin/env python3
"""The module as operators run it: in an snmpd with the user, the group and the log level of Debian's service, with the directives
of snmpd.conf, and when its functions fail."""
import os
import pathlib
import pwd
import re
import shlex
import shutil
import signal
import subprocess
import time
import unittest

from module_system import DLMOD, ROWS, ModuleTest
from system import MODULE, ROOT, SCALARS, VRF_ENTRY, dotted, name_index, wait_until
from trap_sink import TrapSink
from wire import Client

DROP_IN = (ROOT / "packaging/snmpd_module.conf").read_text()
SERVICE = ("-LOw", "-u", "Debian-snmp", "-g", "Debian-snmp", "-I", "-smux,mteTrigger,mteTriggerConf")
DESCRIPTION = dotted(VRF_ENTRY + (3,) + name_index("red"))
UP, DOWN = 1, 2  # notifications


def user_exists(name):
    try:
        return pwd.getpwnam(name) is not None
    except KeyError:
        return False


@unittest.skipUnless(os.geteuid() == 0 and user_exists("Debian-snmp") and shutil.which("setfacl"),
                     "SKIPPED: needs root, the user Debian-snmp and the package acl")
class DebianService(ModuleTest):
    """The daemon's socket belongs to root's group, of which Debian-snmp is not a member."""

    def start_service(self, group):
        """A daemon whose group of agents is this one, and snmpd as its service starts it."""
        self.running = self.new_module_system()
        self.running.environment["MPLS_VPN_MIB_AGENT_GROUP"] = group
        self.running.folder.chmod(0o755)
        shutil.chown(self.running.folder / "snmp", "Debian-snmp", "Debian-snmp")
        self.running.snmpd_options = SERVICE
        self.running.start_trapd()
        self.running.start_daemon()

    def apply_access_lists(self):
        """As the drop-in's ExecStartPost does."""
        commands = re.findall(r"^ExecStartPost=\+-(.*)$", DROP_IN, re.MULTILINE)
        self.assertEqual(len(commands), 2)
        for command in commands:
            subprocess.run(shlex.split(command.replace("/run/mpls_vpn_mib", str(self.running.folder / "run"))), check=True)

    def served(self):
        return self.running.get_value(SCALARS + ".1.0") == "2"

    def test_drop_in_gives_snmpd_the_rows_and_the_notifications_also_after_a_restart_of_the_daemon(self):
        self.start_service(re.search(r"MPLS_VPN_MIB_AGENT_GROUP=(\S+)", DROP_IN)[1])
        self.apply_access_lists()
        self.running.start_snmpd()
        status = pathlib.Path(f"/proc/{self.running.processes['snmpd'].pid}/status").read_text()
        self.assertEqual(re.search(r"Uid:\t(\d+)", status)[1], str(pwd.getpwnam("Debian-snmp").pw_uid))
        wait_until("the rows", self.served)
        for times in (1, 2):
            self.running.cli("config", "set", "traps", "all", check=True)
            for number in range(5):
                self.running.cli("router", "down", f"ge{number}", check=True)
            wait_until("a trap", lambda expected=times: len(self.running.traps()) == expected, 15)
            self.running.kill("daemon")
            self.running.start_daemon()
            time.sleep(3)  # a service with many VRFs starts
            self.apply_access_lists()
            wait_until("the message", lambda expected=times: self.running.log("snmpd").count(": answers again") == expected)
        self.assertTrue(self.served())
        self.assertEqual(self.running.log("snmpd").count("mpls_vpn_snmpd: serves MPLS-L3VPN-STD-MIB from the daemon at "), 1)
        self.assertEqual(self.running.log("snmpd").count(": away ("), 2)
        self.assertNotIn("may not connect", self.running.log("snmpd"))
        self.assertNotIn("refused the subscription", self.running.log("snmpd"))

    def test_missing_right_to_connect_is_reported_with_what_to_do(self):
        self.start_service("Debian-snmp")
        self.running.start_snmpd()
        wait_until("the message", lambda: "may not connect" in self.running.log("snmpd"), 30)
        self.assertIn(f"mpls_vpn_snmpd: this process may not connect to the daemon at {self.running.folder}/run/dev.mpls.vpn.main; "
                      "let snmpd's group do so: install snmpd_module.conf for the daemon's service\n", self.running.log("snmpd"))
        self.apply_access_lists()
        wait_until("the rows", self.served)
        self.assertEqual(self.running.log("snmpd").count("may not connect"), 1)
        self.assertNotIn("refused the subscription", self.running.log("snmpd"))

    def test_missing_role_is_reported_with_what_to_do(self):
        self.start_service("mpls_vpn_agent")
        self.apply_access_lists()
        self.running.start_snmpd()
        wait_until("the message", lambda: "refused the subscription" in self.running.log("snmpd"))
        self.assertIn("mpls_vpn_snmpd: traps: the daemon at ", self.running.log("snmpd"))
        self.assertIn("so no notifications are sent; name snmpd's group in MPLS_VPN_MIB_AGENT_GROUP: install snmpd_module.conf for "
                      "the daemon's service\n", self.running.log("snmpd"))
        wait_until("the rows", self.served)


class Directives(ModuleTest):
    def start_with(self, directives, wrapper=()):
        running = self.new_module_system()
        running.snmpd_wrapper = wrapper
        running.more_snmpd_settings = directives
        running.start_daemon()
        running.start_snmpd()
        return running

    def read_again(self, running, directives):
        conf = running.folder / "snmpd.conf"
        others = [line for line in conf.read_text().splitlines(True) if not line.startswith("mplsVpn")]
        conf.write_text("".join(others) + directives)
        running.processes["snmpd"].send_signal(signal.SIGHUP)

    def test_run_directory_of_the_directive_is_used(self):
        running = self.new_module_system()
        running.snmpd_wrapper = ("env", "MPLS_VPN_MIB_RUN_DIR=/nowhere")
        running.more_snmpd_settings = f"mplsVpnRunDirectory {running.folder}/run\n"
        running.start_daemon()
        running.start_snmpd()
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")
        self.read_again(running, "")
        wait_until("the message", lambda: "daemon at /nowhere/dev.mpls.vpn.main: away" in running.log("snmpd"))
        self.read_again(running, f"mplsVpnRunDirectory {running.folder}/run\n")
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")
        self.assertEqual(len(self.column(running, 7)), ROWS)

    def new_text_is_shown_after(self, running, text):
        """True if a row that has just been read is read again for the next request."""
        running.get_value(DESCRIPTION)
        running.cli("config", "set", "vrf", "red", "description", text, check=True)
        return running.get_value(DESCRIPTION) == f'"{text}"'

    def test_age_of_rows_is_that_of_the_directive_also_after_a_change(self):
        running = self.start_with("mplsVpnRowAge 60000\n")
        wait_until("the rows", lambda: running.get_value(DESCRIPTION) == '"Red Rail"')
        self.assertFalse(self.new_text_is_shown_after(running, "one"))
        self.read_again(running, "mplsVpnRowAge 0\n")
        wait_until("the other age", lambda: running.get_value(DESCRIPTION) == '"one"')
        self.assertTrue(self.new_text_is_shown_after(running, "two"))

    def test_invalid_lines_are_reported_with_their_number_and_ignored(self):
        age = "mplsVpnRowAge needs a number of milliseconds, 0 to 60000; it is ignored"
        path = "mplsVpnRunDirectory needs one absolute path; it is ignored"
        long = "mplsVpnRunDirectory: the path is too long for a socket in it; it is ignored"
        cases = [("mplsVpnRowAge 60001", age), ("mplsVpnRowAge -1", age), ("mplsVpnRowAge ten", age), ("mplsVpnRowAge 5 6", age),
                 ("mplsVpnRunDirectory run", path), ("mplsVpnRunDirectory /run /run", path),
                 ("mplsVpnRunDirectory /" + "x" * 100, long), ("mplsVpnRunDirectory /" + "x" * 600, long)]
        running = self.start_with("mplsVpnRowAge 0\n" + "".join(case + "\n" for case, _ in cases))
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")
        lines = (running.folder / "snmpd.conf").read_text().splitlines()
        for case, message in cases:
            self.assertIn(f"snmpd.conf: line {lines.index(case) + 1}: Error: {message}", running.log("snmpd"), case)
        self.assertTrue(self.new_text_is_shown_after(running, "one"))

    def test_directives_are_accepted_again_after_the_module_was_unloaded_and_loaded(self):
        running = self.start_with("mplsVpnRowAge 500\n")
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")
        for _ in range(2):
            self.set_module(running, DLMOD + ".5.1", "i", "5")
            self.set_module(running, DLMOD + ".5.1", "i", "4")
        running.processes["snmpd"].send_signal(signal.SIGHUP)
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")
        self.assertNotIn("Unknown token: mplsVpn", running.log("snmpd"))


class Failures(ModuleTest):
    """Exceptions in the functions that snmpd calls; most likely are those of failed allocations."""

    def start_failing(self, variable, value, module=MODULE, directives="", trap_port=0):
        running = self.new_module_system(module)
        running.snmpd_wrapper = ("env", f"{variable}={value}")
        running.more_snmpd_settings = directives
        running.trap_port = trap_port
        running.start_daemon()
        running.start_snmpd()
        return running

    def start_with_faults(self, faults, **settings):
        """Returns when the rows are there."""
        running = self.start_failing("MPLS_VPN_MIB_FAULTS", faults, **settings)
        self.wait_for_rows(running)
        return running

    def wait_for_rows(self, running, limit=10):
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2", limit)

    def test_exception_in_any_function_that_snmpd_calls_does_not_end_it(self):
        for place in ("settings", "request", "rows", "traps", "alarm"):
            with self.subTest(place):
                running = self.start_with_faults(f"mpls_vpn_snmpd_{place}=12@1+3")
                wait_until("the routes", lambda: self.rows_or_none(running) == ROWS)
                self.assertTrue(f"mpls_vpn_snmpd: mpls_vpn_snmpd_{place}: std::bad_alloc" in running.log("snmpd"))
                self.assertIsNone(running.processes["snmpd"].poll())
                running.kill("snmpd")
                running.kill("daemon")

    def rows_or_none(self, running):
        try:
            return len(self.column(running, 7))
        except AssertionError:
            return None

    def test_directive_that_fails_is_reported_and_snmpd_starts(self):
        running = self.start_with_faults("mplsVpnRowAge=12@1+1", directives="mplsVpnRowAge 500\n")
        self.assertIn("mpls_vpn_snmpd: mplsVpnRowAge: std::bad_alloc", running.log("snmpd"))

    def test_request_that_fails_leaves_the_next_one_its_answer(self):
        """The daemon is not asked for a batch that counts as under way."""
        running = self.start_with_faults("daemon_source_ask=12@30+1", directives="mplsVpnRowAge 0\n")
        self.assertTrue(any(self.error_status(running, SCALARS + ".1.0") for _ in range(40)))
        self.wait_for_rows(running, 5)
        self.assertEqual(running.get_value(DESCRIPTION), '"Red Rail"')
        self.assertIn("mpls_vpn_snmpd_request: std::bad_alloc; answering genErr", running.log("snmpd"))
        self.assertNotIn("timed out", running.log("snmpd"))

    def test_notifications_stay_in_order_when_one_fails_and_then_the_first_new_connection(self):
        sink = TrapSink()
        running = self.start_with_faults("trap_feed_keep=12@3+1,mpls_vpn_snmpd_start_over=12@1+1", trap_port=sink.port)
        running.cli("config", "set", "traps", "all", check=True)
        with Client(running.folder / "run/dev.mpls.vpn.main") as client:
            for number in range(4):
                client.action("router", "down", f"ge{number}")
            for _ in range(10):
                client.action("router", "down", "ge4")
                client.action("router", "up", "ge4")
        expected = [DOWN, UP] * 10
        wait_until("every notification", lambda: len(sink.traps()) >= len(expected))
        self.assertEqual([number for number, _ in sink.traps()], expected)
        self.assertIn("mpls_vpn_snmpd_traps: std::bad_alloc", running.log("snmpd"))
        self.assertIn("mpls_vpn_snmpd_start_over: std::bad_alloc", running.log("snmpd"))

    def test_rows_return_after_allocations_failed_anywhere(self):
        """Every so many allocations of the module one fails."""
        for every in (53, 101, 307):
            with self.subTest(every):
                running = self.start_failing("MPLS_TEST_FAILING_ALLOCATION", every, MODULE.parent / "test/scarce/mpls_vpn_snmpd.so")
                for _ in range(3):
                    wait_until("a row", lambda: running.get_value(SCALARS + ".1.0") == "2", 30)
                    self.rows_or_none(running)
                    for table in (SCALARS, dotted(VRF_ENTRY), DESCRIPTION):
                        running.snmp("bulkwalk", table)
                self.assertIsNone(running.processes["snmpd"].poll())
                self.assertTrue("std::bad_alloc" in running.log("snmpd"))
                running.kill("daemon")
                running.start_daemon()
                wait_until("a row", lambda: running.get_value(SCALARS + ".1.0") == "2", 30)
                running.kill("snmpd", signal.SIGTERM)
                running.kill("daemon")


if __name__ == "__main__":
    unittest.main()
