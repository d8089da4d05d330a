"""Tests of the checks of "mplsvpn doctor" that ask the routing suite, for system_doctor.py: its access, its VRFs, labels, route
distinguishers and saved configuration.
"""
import grp
import os
import pathlib
import pwd
import re
import subprocess

from doctor_case import DoctorTest  # before system
from kernel import batch, member_lines, vrf_lines
from suite import SHELL as SHELL_PATH, run
from system import wait_until

OTHER_USER = ("setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups")
OTHER_NAME = pwd.getpwuid(65534).pw_name


class SuiteChecks(DoctorTest):
    def test_user_without_rights_for_the_suite(self):
        """The user may not ask the daemon either, so whether it needs the suite is not known. The shell is this machine's: that of a
        root folder needs chroot."""
        os.chmod(self.system.folder, 0o755)
        os.chmod(self.system.folder / "run", 0o755)
        sockets = pathlib.Path("/var/run/frr")
        if not sockets.exists():
            sockets.mkdir()
            run("mount", "--bind", str(self.suite.run), str(sockets))
            self.addCleanup(run, "umount", str(sockets))
        os.chmod(self.suite.run, 0o750)
        self.addCleanup(os.chmod, self.suite.run, 0o755)
        self.assert_has_no_permission(sockets)
        os.chmod(self.suite.run, 0o755)
        self.assert_has_no_permission(next(path for path in sockets.iterdir() if path.suffix == ".vty"))

    def assert_has_no_permission(self, path):
        fix = self.assert_found("suite-access", "notPossible", f"the user {OTHER_NAME} has no permission for {path}: {SHELL_PATH} does not "
                                "answer: ", shell=SHELL_PATH, wrapper=OTHER_USER)
        try:
            group = grp.getgrgid(path.stat().st_gid).gr_name
        except KeyError:  # it is one of the root folder
            group = "frrvty"
        self.assertEqual(fix, f"usermod -aG {group} {OTHER_NAME}; then log in again")

    def test_suite_without_its_shell_is_an_error_if_it_is_followed(self):
        self.assert_found("suite-access", "error", "No such file", shell="/nonexistent/vtysh")

    def test_management_program_that_does_not_run(self):
        if not self.release.has_mgmtd:
            self.assertEqual(self.diagnose("suite-mgmtd"), ("ok", []))
            return
        self.suite.stop("mgmtd")
        self.assert_found("suite-mgmtd", "error", "runs without mgmtd")
        self.suite.start("mgmtd")
        self.assert_ok("suite-mgmtd")

    def test_vrf_of_the_suite_without_device(self):
        self.suite.configure("router bgp 65000 vrf absent", "exit")
        self.assert_found("suite-vrf-device", "error", "the suite has VRF absent")
        self.suite.configure("no router bgp 65000 vrf absent")
        self.suite.configure("no vrf absent")
        self.assert_ok("suite-vrf-device")

    def test_vrf_for_management_is_not_a_vpn_until_something_says_so(self):
        saved = self.suite.etc / "frr.conf"
        batch(vrf_lines({"mgmt": 90}) + member_lines({"mgmt1": "mgmt"}, "link set {name} up") + ["addr add 10.90.0.1/24 dev mgmt1"])
        self.addCleanup(batch, ["link del mgmt1", "link del mgmt"])
        for check in "vrf-device-down", "vrf-members", "suite-vrf-device", "vpn-label", "vpn-rd", "suite-saved":
            self.assert_ok(check)
        self.assert_found("vrf-not-in-suite", "ok", "not in the suite's configuration, and no VPNs: mgmt")
        self.assert_found("vrf-not-in-suite", "notPossible", "mgmt; whether they are VPNs is unknown: ",
                          conf=("--suite-conf", str(self.suite.etc)))
        for words, text in ("rd 65000:90", "it has a route distinguisher"), ("rt import 65000:90", "it has route targets"):
            self.system.cli("config", "set", "vrf", "mgmt", *words.split(), check=True)
            self.assert_found("vrf-not-in-suite", "warning", f"does not name VRF mgmt, but {text}")
            self.system.cli("config", "delete", "vrf", "mgmt", *words.split(), check=True)
            self.assert_found("vrf-not-in-suite", "ok", "mgmt")
        self.addCleanup(saved.write_text, saved.read_text())
        saved.write_text(saved.read_text() + "router bgp 65000 vrf mgmt\nexit\n")
        self.assert_found("vrf-not-in-suite", "warning", f"does not name VRF mgmt, but {saved} names it")

    def change(self, vrf, *lines):
        self.suite.configure(f"router bgp 65000 vrf {vrf}", "address-family ipv4 unicast", *lines, "exit-address-family", "exit")

    def announced_label(self, rd):
        """The label of the VPN routes with this RD, as bgpd shows them."""
        shown = self.suite.ask("bgpd", "show bgp ipv4 vpn").partition(f"Route Distinguisher: {rd}\n")[2]
        return re.search(r" label=(\d+) ", shown)[1]

    def assert_label_is_missing(self):
        wait_until("implicit null", lambda: self.announced_label("65000:10") == "3", 20)
        fix = self.assert_found("vpn-label", "error", "VRF red exports its ipv4 unicast routes without a label or segment identifier: they "
                                "are announced with label 3")
        self.correct(fix)
        self.assert_ok("vpn-label")
        wait_until("a label", lambda: self.announced_label("65000:10") != "3", 20)

    def test_export_without_label(self):
        self.assertNotEqual(self.announced_label("65000:10"), "3")
        self.change("red", "no label vpn export auto")
        self.assert_label_is_missing()

    def test_export_with_a_mode_of_labels_only(self):
        mode = "label vpn export allocation-mode per-nexthop"
        if self.release.major < 10:
            with self.assertRaisesRegex(AssertionError, "Unknown command"):
                self.change("red", mode)
            self.assert_ok("vpn-label")
            return
        self.change("red", "no label vpn export auto", mode)
        self.assert_label_is_missing()
        self.change("red", "no " + mode)

    def test_missing_and_duplicate_route_distinguishers(self):
        self.change("red", "no rd vpn export 65000:10")
        self.assert_found("vpn-rd", "error", "VRF red exports its ipv4 unicast routes without a route distinguisher")
        self.change("red", "rd vpn export 65000:20")
        self.assert_found("vpn-rd", "error", "have the route distinguisher 65000:20")
        self.change("red", "rd vpn export 65000:10")
        self.assert_ok("vpn-rd")

    def test_running_configuration_that_is_not_saved(self):
        self.assert_ok("suite-saved")
        self.change("blue", "rt vpn both 65000:20 65000:21")
        fix = self.assert_found("suite-saved", "warning",
                                "VRF blue ipv4 unicast: only the running configuration has export 65000:21, import 65000:21: a restart")
        shown = subprocess.run(fix, shell=True, check=False, capture_output=True, text=True)
        self.assertRegex(shown.stdout, r"(?m)^>   rt vpn both 65000:20 65000:21$")
        self.change("blue", "rt vpn both 65000:20")
        self.assert_ok("suite-saved")

    def test_saved_file_is_the_one_that_the_suite_reads(self):
        integrated, alone = self.suite.etc / "frr.conf", self.suite.etc / "bgpd.conf"
        saved = integrated.read_text()
        self.addCleanup(self.restart_bgpd)
        self.addCleanup(integrated.write_text, saved)
        self.addCleanup(alone.unlink)
        alone.write_text(saved.replace("rd vpn export 65000:10", "rd vpn export 65000:99"))
        os.chmod(alone, 0o644)
        self.restart_bgpd()
        self.assertNotIn("65000:99", self.suite.ask("bgpd", "show running-config"))
        self.assertEqual(self.saved_state(), ("ok", []))
        integrated.unlink()
        self.suite.stop("bgpd")
        self.suite.start("bgpd")
        self.assertIn("65000:99", self.suite.ask("bgpd", "show running-config"))
        self.assertEqual(self.saved_state(), ("ok", []))
        integrated.write_text(saved)
        state, (finding,) = self.saved_state()
        self.assertEqual(state, "warning")
        self.assertRegex(finding["text"], f"only {integrated} has rd 65000:10: a restart of the suite loads the file and ignores {alone}$")

    def saved_state(self):
        """By the folder of the suite's configuration instead of a named file."""
        return self.diagnose("suite-saved", shell=" ".join(self.suite.shell_words("--config_dir", str(self.suite.etc))), conf=())

    def restart_bgpd(self):
        self.suite.stop("bgpd")
        self.start_bgpd()

    def test_bgpd_that_has_ended(self):
        self.suite.stop("bgpd")
        self.addCleanup(self.start_bgpd)
        saved = (self.suite.etc / "frr.conf").read_text()
        self.assert_found("suite-access", "error", 'has "router bgp": no VPN routes are exchanged')
        self.becomes("sources", lambda: self.diagnose("sources")[0], "error", 30)
        self.assert_found("sources", "error", "bgpd: ")
        for check in "suite-vrf-device", "vrf-not-in-suite", "vpn-label", "vpn-rd", "suite-saved":
            with self.subTest(check):
                self.assertEqual(self.diagnose(check)[0], "notPossible")
        self.assertEqual((self.suite.etc / "frr.conf").read_text(), saved)

    def start_bgpd(self):
        self.suite.start("bgpd")
        self.suite.load()
        for check in "suite-access", "suite-saved", "sources":
            self.assert_ok(check)
