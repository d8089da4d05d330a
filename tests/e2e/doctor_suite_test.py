#!/usr/bin/env python3
"""The checks of "mplsvpn doctor" of the routing suite, whose shell a script plays. Those that need the suite itself are triggered
in the guest (tests/kernel/system_doctor.py)."""
import pathlib
import socket
import subprocess
import unittest

from doctor_system import IS_ROOT, ROUTER, DoctorTest

# What the suite's shell prints, as seen with versions 8 and 10.
SUITE_SHELL = """#!/bin/sh
for command; do :; done
case $command in
"show daemons") cat "$0.daemons"; [ ! -f "$0.later" ] || mv "$0.later" "$0.daemons" ;;
"show version") echo "FRRouting 10.3 (pe1) on Linux(6.1.0)." ;;
"show running-config") cat "$0.running" ;;
*) echo "% Unknown command: $command"; exit 1 ;;
esac
"""


class RoutingSuite(DoctorTest):
    """Without a daemon, so that the kernel and the suite are looked at; the suite's shell is a script."""

    def setUp(self):
        self.system = self.new_system(ROUTER)
        self.shell = self.system.folder / "shell"
        self.shell.write_text(SUITE_SHELL)
        self.shell.chmod(0o755)
        self.saved = self.system.folder / "frr.conf"
        self.running(*self.instance("red", "65000:1"))
        self.saved.write_text(self.text(*self.instance("red", "65000:1")))
        self.programs("zebra", "bgpd", "mgmtd")

    def instance(self, vrf, target, *more):
        return (f"router bgp 65000 vrf {vrf}", " address-family ipv4 unicast", "  rd vpn export 65000:10",
                f"  rt vpn both {target}", *more, " exit-address-family", "exit")

    def text(self, *lines):
        return "".join(line + "\n" for line in lines)

    def running(self, *lines):
        pathlib.Path(f"{self.shell}.running").write_text(self.text("Building configuration...", *lines, "end"))

    def programs(self, *names):
        pathlib.Path(f"{self.shell}.daemons").write_text(" " + " ".join(names) + "\n")

    def words(self, system, *words):
        shell = () if "--suite-shell" in words else ("--suite-shell", str(self.shell))
        return super().words(system, *shell, "--suite-conf", str(self.saved), *words)

    def test_bgpd_that_has_ended_makes_checks_of_its_configuration_impossible(self):
        self.programs("zebra", "mgmtd")
        self.running()
        for check in "suite-vrf-device", "vrf-not-in-suite", "vpn-label", "vpn-rd", "suite-saved":
            with self.subTest(check):
                self.assert_found(self.system, check, "notPossible", "bgpd does not run")
                self.assertEqual(self.fixes(self.system, check), [None])
        self.assert_found(self.system, "suite-access", "error", f'bgpd does not run although {self.saved} has "router bgp"')
        self.assert_compares_before_a_restart("suite-access", "set bgpd=yes in /etc/frr/daemons; ")
        self.saved.write_text("hostname pe1\n")
        self.assertEqual(self.diagnose(self.system, "suite-access"), ("ok", ""))

    def assert_compares_before_a_restart(self, check, before):
        """The running configuration may lack what the program that does not run would have: saving it would lose that."""
        fix, = self.fixes(self.system, check)
        compared, text = fix.split("; ", 1)
        self.assertEqual(compared, f"{self.shell} -c 'show running-config' | diff {self.saved} -")
        self.assertEqual(text, f"{before}when that file has all that is needed: systemctl restart frr, which interrupts the "
                               "routing and loads it")
        self.assertNotIn("write", fix)

    def test_program_that_the_shell_reaches_later_runs(self):
        for check in "suite-mgmtd", "suite-access", "suite-saved":
            with self.subTest(check):
                self.programs("zebra")
                pathlib.Path(f"{self.shell}.later").write_text(" zebra bgpd mgmtd\n")
                self.assertEqual(self.diagnose(self.system, check), ("ok", ""))

    def test_program_that_listens_and_is_not_reached_is_not_reported_as_ended(self):
        self.programs("zebra")
        with socket.socket(socket.AF_UNIX) as mgmtd:
            mgmtd.bind(str(self.system.folder / "mgmtd.vty"))
            mgmtd.listen()
            shell = f"{self.shell} --vty_socket {self.system.folder}"
            self.assert_found(self.system, "suite-mgmtd", "notPossible", f"mgmtd runs, but {shell} has not reached it within 1000 ms",
                              "--suite-shell", shell, "--suite-timeout", "1s")
        self.assert_found(self.system, "suite-mgmtd", "error", "runs without mgmtd", "--suite-shell", shell, "--suite-timeout", "1s")

    def test_warning_of_the_shell_that_names_a_program_is_no_sign_of_it(self):
        pathlib.Path(f"{self.shell}.daemons").write_text("Warning: closing connection to mgmtd because of an I/O error!\n zebra bgpd\n")
        self.assert_found(self.system, "suite-mgmtd", "error", "runs without mgmtd")

    def test_missing_mgmtd_is_no_reason_for_a_restart_without_a_look(self):
        self.programs("zebra", "bgpd")
        self.assert_found(self.system, "suite-mgmtd", "error", "runs without mgmtd")
        self.assert_compares_before_a_restart("suite-mgmtd", "")

    def test_saved_configuration_that_differs_is_compared_and_never_replaced(self):
        self.assertEqual(self.diagnose(self.system, "suite-saved"), ("ok", ""))
        self.running(*self.instance("red", "65000:2"))
        self.assert_found(self.system, "suite-saved", "warning",
                          "VRF red ipv4 unicast: only the running configuration has export 65000:2, import 65000:2; "
                          f"only {self.saved} has export 65000:1, import 65000:1")
        fix, = self.fixes(self.system, "suite-saved")
        shown = subprocess.run(fix, shell=True, capture_output=True, text=True, check=False).stdout
        self.assertIn("<   rt vpn both 65000:1\n", shown)
        self.assertIn(">   rt vpn both 65000:2\n", shown)
        self.running()
        self.assert_found(self.system, "suite-saved", "warning", f"red ipv4 unicast: only {self.saved} has export 65000:1")
        self.assertEqual(self.fixes(self.system, "suite-saved"), [fix])

    def test_missing_saved_configuration_is_a_warning_if_it_would_be_lost(self):
        self.saved.unlink()
        self.assert_found(self.system, "suite-saved", "warning", f"{self.saved} does not exist: a restart of the suite loses")
        self.running("router bgp 65000", "exit")
        self.assert_found(self.system, "suite-saved", "notPossible", f"{self.saved} does not exist")

    def test_segment_identifiers_need_no_labels(self):
        exports = ("  export vpn", "  sid vpn export auto")
        self.running(*self.instance("red", "65000:1", *exports))
        self.assertEqual(self.diagnose(self.system, "mpls-labels"), ("ok", ""))
        self.assertEqual(self.diagnose(self.system, "vpn-label"), ("ok", ""))
        self.running(*self.instance("red", "65000:1", "  export vpn"))
        self.assert_found(self.system, "vpn-label", "error", "without a label or segment identifier")

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root hides files of the kernel")
    def test_kernel_without_mpls_is_an_error_if_labels_are_used(self):
        without = ("unshare", "--mount", "sh", "-c", 'mount -t tmpfs none /proc/sys/net; exec "$@"', "sh")
        self.assertEqual(self.diagnose(self.system, "mpls-labels", wrapper=without), ("ok", ""))
        self.running(*self.instance("red", "65000:1", "  export vpn", "  label vpn export auto"))
        self.assert_found(self.system, "mpls-labels", "error", "the kernel's module mpls_router is not loaded", wrapper=without)
        self.assertEqual(self.fixes(self.system, "mpls-labels", wrapper=without), ["modprobe -a mpls_router mpls_iptunnel"])

    def test_names_in_commands_are_quoted_for_the_shell(self):
        name = "a;`id`$x'"
        self.running(*self.instance(name, "65000:1", "  export vpn"))
        fix, = self.fixes(self.system, "suite-vrf-device")
        shown = subprocess.run(f"ip() {{ printf '%s\\n' \"$@\"; }}; {fix}", shell=True, capture_output=True, text=True, check=True)
        self.assertEqual(shown.stdout.split(), ["link", "add", name, "type", "vrf", "table", "NUMBER", "link", "set", "dev", name, "up"])
        fix, = self.fixes(self.system, "vpn-label")
        self.shell.write_text("#!/bin/sh\nprintf '%s\\n' \"$@\"\n")
        shown = subprocess.run(fix, shell=True, capture_output=True, text=True, check=True)
        self.assertIn(f"router bgp 65000 vrf {name}\n", shown.stdout)


if __name__ == "__main__":
    unittest.main()
