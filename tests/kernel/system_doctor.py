#!/usr/bin/env python3
"""system_doctor.py BIN_DIRECTORY VERSION: "mplsvpn doctor" on a real kernel with the routing suite of that major version (see
suite.py). Each check of the kernel and of the suite is triggered, and is quiet again when the command that it prints, or
the same by hand, has been run. Runs in the guest (see uml-run), as root.
"""
import ctypes
import grp
import json
import os
import pathlib
import pwd
import re
import struct
import subprocess

from suite_system import BGP, SuiteSystemTest, main, vpn_instance  # before system
from kernel import batch, member_lines, vrf_lines
from suite import SHELL as SHELL_PATH, run
from system import BIN, wait_until

VRFS = {"red": 10, "blue": 20}
MEMBERS = {"red1": "red", "blue1": "blue"}
ADJ_MAX_ERROR, ADJ_ESTIMATED_ERROR, ADJ_STATUS, UNSYNCHRONIZED = 0x4, 0x8, 0x10, 0x40  # adjtimex(2)
PATIENCE = "2m"  # on a machine that does much else
OTHER_USER = ("setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups")
OTHER_NAME = pwd.getpwuid(65534).pw_name
SELECTED = """echo '{"10.8.0.0/16": [{"selected": true, "protocol": "static"}]}'"""
SHELL = """#!/usr/bin/env python3
import subprocess, sys
cases, words, commands = {cases!r}, {words!r}, [word for word in sys.argv[1:] if word != "-c"]
with open({runs!r}, "a") as runs:
    print(len(commands), file=runs)
if not set(commands) & set(cases):
    sys.exit(subprocess.run([*words, *sys.argv[1:]], check=False).returncode)
for command in commands:
    ran = subprocess.run(cases.get(command) or [*words, "-c", command], shell=command in cases, check=False)
    if ran.returncode != 0:
        sys.exit(ran.returncode)
"""
CHECKS = ("vrf-device-down", "vrf-members", "vrf-default-route", "vrf-shared-table", "mpls-labels", "suite-access", "suite-mgmtd",
          "suite-vrf-device", "vrf-not-in-suite", "vpn-label", "vpn-rd", "suite-saved", "suite-routes")
CONFIG = "hostname pe1\n" + BGP + vpn_instance("red", 1) + vpn_instance("blue", 2)


class Doctor(SuiteSystemTest):
    programs = ("zebra", "staticd", "bgpd")
    config = CONFIG
    vrfs = VRFS
    members = MEMBERS

    @classmethod
    def prepare(cls):
        run("modprobe", "-a", "ipv6", "vrf", "dummy", "mpls_router", "mpls_iptunnel")
        run("sysctl", "-qw", "net.ipv4.ip_forward=1", "net.mpls.platform_labels=1048575")
        guards = [f"-{family} route add vrf {vrf} unreachable default metric 4278198272" for vrf in VRFS for family in (4, 6)]
        batch(vrf_lines(VRFS) + member_lines(MEMBERS, "link set {name} up") +
              ["addr add 10.1.0.1/24 dev red1", "addr add 10.2.0.1/24 dev blue1", "link add core type dummy", "link set core up"])
        for guard in guards:
            run("ip", *guard.split())
        run("sysctl", "-qw", "net.mpls.conf.core.input=1")

    def diagnose(self, check, shell=None, wrapper=(), patience=PATIENCE, conf=None):
        conf = ("--suite-conf", str(self.suite.etc / "frr.conf")) if conf is None else conf
        shell = shell or " ".join(self.suite.shell_words())
        words = ("--only", check, "--suite-timeout", patience, "--suite-shell", shell, *conf)
        result = subprocess.run([*wrapper, str(BIN / "mplsvpn"), "--json", "doctor", *words], env=self.system.environment,
                                capture_output=True, text=True, check=False)
        shown, = json.loads(result.stdout)
        return shown["state"], shown["findings"]

    def assert_found(self, check, state, text, **how):
        found, findings = self.diagnose(check, **how)
        self.assertEqual(found, state, (check, findings))
        self.assertTrue(any(text in finding["text"] for finding in findings), findings)
        return next(finding["fix"] for finding in findings if text in finding["text"])

    def assert_ok(self, check):
        self.becomes(check, lambda: self.diagnose(check), ("ok", []), 20)

    def correct(self, fix):
        subprocess.run(fix, shell=True, check=True, capture_output=True)

    # --- the kernel ---

    def test_0_healthy_router_has_no_findings(self):
        for check in CHECKS:
            with self.subTest(check):
                self.assert_ok(check)

    def test_device_that_is_down(self):
        run("ip", "link", "set", "red", "down")
        self.correct(self.assert_found("vrf-device-down", "error", "the device of VRF red is down"))
        self.assert_ok("vrf-device-down")
        run("ip", "route", "replace", "vrf", "red", "unreachable", "default", "metric", "4278198272")

    def test_names_are_quoted_for_the_shell(self):
        name = "g;`id`$x'"
        run("ip", "link", "add", name, "type", "vrf", "table", "77")
        self.addCleanup(run, "ip", "link", "del", name)
        self.correct(self.assert_found("vrf-device-down", "error", f"the device of VRF {name} is down"))
        self.assert_ok("vrf-device-down")

    def test_vrf_without_interface_table_of_its_own_or_configuration(self):
        run("ip", "link", "add", "green", "type", "vrf", "table", "20")
        run("ip", "link", "set", "green", "up")
        self.assert_found("vrf-members", "warning", "VRF green has no interface")
        self.assert_found("vrf-shared-table", "error", "VRFs blue and green share table 20")
        run("ip", "link", "del", "green")
        for check in "vrf-members", "vrf-shared-table":
            self.assert_ok(check)

    def test_table_without_default_route(self):
        run("ip", "-4", "route", "del", "vrf", "red", "unreachable", "default", "metric", "4278198272")
        self.correct(self.assert_found("vrf-default-route", "warning", "table 10 of VRF red has no default route: IPv4"))
        self.assert_ok("vrf-default-route")

    def test_kernel_that_accepts_no_labels(self):
        run("sysctl", "-qw", "net.mpls.conf.core.input=0")
        run("ip", "link", "add", "core.1", "type", "dummy")
        run("ip", "link", "set", "core.1", "up")
        fix = self.assert_found("mpls-labels", "error", "no interface outside of VRFs accepts labelled packets")
        command, names = re.fullmatch(r"(sysctl .*) for each .*; INTERFACE is one of (.*)", fix).groups()
        self.assertEqual(set(names.split(", ")) - {"core", "core/1"}, set())
        self.correct(command.replace("INTERFACE", "core/1"))
        self.assert_ok("mpls-labels")
        run("ip", "link", "del", "core.1")
        self.correct(command.replace("INTERFACE", "core"))
        self.assert_ok("mpls-labels")
        run("sysctl", "-qw", "net.mpls.platform_labels=0")
        self.correct(self.assert_found("mpls-labels", "error", "net.mpls.platform_labels is 0"))
        run("sysctl", "-qw", "net.mpls.conf.core.input=1")
        self.assert_ok("mpls-labels")

    def test_interface_that_sends_labels_and_accepts_none(self):
        self.assert_ok("mpls-labels")
        batch(["link add core.2 type dummy", "link set core.2 up", "addr add 10.12.2.1/30 dev core.2"])
        self.addCleanup(batch, ["link del core.2"])
        self.assert_ok("mpls-labels")
        for commands in (["route add vrf red 10.77.0.0/16 encap mpls 1002 via 10.12.2.2 dev core.2"],
                         ["nexthop add id 902 encap mpls 1002 via 10.12.2.2 dev core.2", "route add vrf red 10.78.0.0/16 nhid 902"]):
            batch(commands)
            self.correct(self.assert_found("mpls-labels", "error", "labelled packets leave through interface core.2, which accepts none"))
            self.assert_ok("mpls-labels")
            batch(["route del vrf red 10.77.0.0/16"] if "10.77" in commands[0] else ["nexthop del id 902"])
            run("sysctl", "-qw", "net.mpls.conf.core/2.input=0")
            self.assert_ok("mpls-labels")

    def test_clock_that_is_not_synchronized(self):
        self.addCleanup(self.set_clock_status, UNSYNCHRONIZED)
        self.set_clock_status(0)
        self.assert_ok("clock")
        self.set_clock_status(UNSYNCHRONIZED)
        self.assert_found("clock", "warning", "the clock is not synchronized")

    def set_clock_status(self, status):
        """As a time service does: the status, and no error of the clock, which would grow until the kernel changes the status."""
        timex = struct.pack("IxxxxqqqqiQ", ADJ_STATUS | ADJ_MAX_ERROR | ADJ_ESTIMATED_ERROR, 0, 0, 0, 0, status, 0).ljust(256, b"\0")
        buffer = ctypes.create_string_buffer(timex)
        self.assertGreaterEqual(ctypes.CDLL(None, use_errno=True).adjtimex(buffer), 0, os.strerror(ctypes.get_errno()))

    # --- routes ---

    def test_routes_that_are_watched(self):
        edits = ("low-water", "ipv4", "1000", "0"), ("watch", "10.66.0.0/16")
        for words in edits:
            self.system.cli("config", "set", "vrf", "red", *words, check=True)
            self.addCleanup(self.system.cli, "config", "delete", "vrf", "red", *words[:2])
        self.becomes("routes-low", lambda: self.diagnose("routes-low")[0], "warning", 20)
        routes = self.system.cli_json("show", "thresholds")[0]["tables"][0]["routes"]
        self.system.cli("config", "set", "vrf", "red", "low-water", "ipv4", str(routes + 1), "0", check=True)
        self.assert_found("routes-low", "warning", f"{routes}")
        self.assert_found("watched-prefix", "warning", "10.66.0.0/16")
        run("ip", "route", "add", "vrf", "red", "10.66.0.0/16", "dev", "red1")
        for check in "routes-low", "watched-prefix":
            self.assert_ok(check)
        run("ip", "route", "del", "vrf", "red", "10.66.0.0/16", "dev", "red1")
        for check in "routes-low", "watched-prefix":
            self.becomes(check, lambda name=check: self.diagnose(name)[0], "warning", 20)

    # --- the suite ---

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

    def shell_that(self, **cases):
        """The suite's shell, but for these commands: {VRF of "show ip route": what is done then}. Its runs are counted."""
        shell = self.system.folder / "shell"
        cases = {f"show ip route vrf {vrf} json": action for vrf, action in cases.items()}
        shell.write_text(SHELL.format(cases=cases, words=list(self.suite.shell_words()), runs=str(shell) + ".runs"))
        shell.chmod(0o755)
        return str(shell)

    def runs(self, shell):
        """The number of commands of each run."""
        runs = pathlib.Path(shell + ".runs")
        counts = [int(line) for line in runs.read_text().splitlines()]
        runs.unlink()
        return counts

    def test_route_that_reaches_the_kernel_later(self):
        shell = self.shell_that(red=f"{SELECTED}; ip route replace vrf red 10.8.0.0/16 dev red1")
        self.addCleanup(run, "ip", "route", "del", "vrf", "red", "10.8.0.0/16", "dev", "red1")
        self.assertEqual(self.diagnose("suite-routes", shell=shell), ("ok", []))

    def test_vrf_that_cannot_be_read_does_not_hide_others(self):
        for broken, selected in ("blue", "red"), ("red", "blue"):
            shell = self.shell_that(**{broken: "echo broken >&2; exit 1", selected: SELECTED})
            self.assert_found("suite-routes", "error", f"VRF {selected}: the suite has selected routes", shell=shell)
            self.assert_found("suite-routes", "error", f"VRF {broken}: broken", shell=shell)

    def test_time_for_all_vrfs_is_bounded_and_says_what_was_not_checked(self):
        shell = self.system.folder / "slow"
        shell.write_text("""#!/bin/sh\ncase $2 in *daemons) echo zebra ;; *) echo '{} {}'; exec sleep 1000 ;; esac\n""")
        shell.chmod(0o755)
        self.assert_found("suite-routes", "notPossible", "1 VRFs, from blue on, were not checked: the suite did not answer for all within "
                          "6000 ms", shell=str(shell), patience="1s")

    def test_many_vrfs_are_asked_for_in_one_run_of_the_shell(self):
        many = {f"many{number}": 1000 + number for number in range(100)}
        batch(vrf_lines(many))
        self.addCleanup(batch, [f"link del {name}" for name in many])
        wait_until("zebra", lambda: "many99" in self.suite.ask("zebra", "show vrf"), 60)
        shell = self.shell_that()
        self.assertEqual(self.diagnose("suite-routes", shell=shell), ("ok", []))
        self.assertEqual(self.runs(shell), [1, 2 * len([*VRFS, *many])])

    def test_route_that_the_kernel_lacks(self):
        self.suite.configure("vrf red", "ip route 10.9.0.0/16 10.1.0.9", "exit-vrf")
        wait_until("the route", lambda: self.kernel_routes("10.9.0.0/16"), 20)
        self.assert_ok("suite-routes")
        # The kernel deletes the routes of a next-hop object without notice, so that zebra does not install them again.
        run("ip", "nexthop", "del", "id", str(self.kernel_routes("10.9.0.0/16")[0]["nhid"]))
        self.assertEqual(self.kernel_routes("10.9.0.0/16"), [])
        self.assert_found("suite-routes", "error", "VRF red: the suite has selected routes that the kernel does not have: 10.9.0.0/16")
        self.suite.configure("vrf red", "no ip route 10.9.0.0/16 10.1.0.9", "exit-vrf")
        self.assert_ok("suite-routes")

    def test_route_that_only_tables_of_others_have(self):
        prefix, others = "10.7.0.0/16", (("vrf blue", "dev blue1"), ("table main", "dev core"))
        for table, device in others:
            run("ip", "route", "add", *table.split(), prefix, *device.split())
            self.addCleanup(run, "ip", "route", "del", *table.split(), prefix, *device.split())
        self.suite.configure("vrf red", f"ip route {prefix} 10.1.0.9", "exit-vrf")
        self.addCleanup(self.suite.configure, "vrf red", f"no ip route {prefix} 10.1.0.9", "exit-vrf")
        wait_until("the route", lambda: self.kernel_routes(prefix), 20)
        self.assert_ok("suite-routes")
        run("ip", "nexthop", "del", "id", str(self.kernel_routes(prefix)[0]["nhid"]))
        self.assertEqual(self.kernel_routes(prefix), [])
        state, findings = self.diagnose("suite-routes")
        self.assertEqual((state, [finding["text"] for finding in findings]),
                         ("error", [f"VRF red: the suite has selected routes that the kernel does not have: {prefix}"]))

    def kernel_routes(self, prefix):
        return json.loads(run("ip", "-j", "route", "show", "vrf", "red", prefix) or "[]")


if __name__ == "__main__":
    main("system_doctor", Doctor)
