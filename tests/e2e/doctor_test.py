#!/usr/bin/env python3
"""The checks of "mplsvpn doctor" of the daemon and of routes, with real processes: each is triggered, and is quiet again when the
cause is removed. Those of kernel and routing suite are triggered in the guest (tests/kernel/system_doctor.py)."""
import contextlib
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest

from doctor_system import IS_ROOT, OPERATOR, OTHER_USER, ROUTER, DoctorTest
from system import BIN, ROOT


class Daemon(DoctorTest):
    def test_daemon_that_does_not_run_is_an_error_and_others_are_not_possible(self):
        system = self.new_system(ROUTER)
        self.assert_found(system, "daemon-running", "error", "mpls_vpn_mib is not running")
        self.assert_found(system, "sources", "notPossible", "mpls_vpn_mib is not running")
        system.start_daemon()
        self.assertEqual(self.diagnose(system, "daemon-running"), ("ok", ""))
        self.assertEqual(self.diagnose(system, "daemon-version"), ("ok", ""))

    def test_settings_that_a_start_refuses_are_an_error_before_and_after_a_reload(self):
        system = self.started()
        self.assertEqual(self.diagnose(system, "settings"), ("ok", ""))
        settings = system.folder / "etc/platform.yaml"
        valid = settings.read_text()
        settings.write_text(valid.replace("source: file", "source: fil"))
        wrong = f"the daemon would not start again: {settings}:1:9: 'source' is 'kernel' or 'file', not 'fil'"
        self.assert_found(system, "settings", "error", wrong)
        self.reload(system, "the former settings remain")
        self.assert_found(system, "settings", "error", wrong)
        settings.write_text(valid)
        self.assert_found(system, "settings", "warning", "in effect are not those of the file: " + wrong.split(": ", 1)[1])
        self.assertEqual(self.fixes(system, "settings"), ["systemctl reload mpls_vpn_mib"])
        self.reload(system, "the settings have not changed")
        self.assertEqual(self.diagnose(system, "settings"), ("ok", ""))
        system.kill("daemon")
        self.assertEqual(self.diagnose(system, "settings"), ("ok", ""))
        system.router_file.write_text("vrfs: 1\n")
        self.assert_found(system, "settings", "error", f"would not start again: {system.router_file}:1:7: ")

    def test_settings_that_wait_for_a_restart_are_a_warning(self):
        system = self.started()
        settings = system.folder / "etc/platform.yaml"
        valid = settings.read_text()
        settings.write_text("source: kernel\n")
        self.reload(system, "the setting 'source' has changed")
        self.assert_found(system, "settings", "warning", "not those of the file: restart the daemon for the changed source")
        self.assertEqual(self.fixes(system, "settings"), ["systemctl restart mpls_vpn_mib"])
        settings.write_text(valid + "frr: /nonexistent/vtysh\n")
        self.assert_found(system, "settings", "error", "mpls_vpn_mib --check fails: /nonexistent/vtysh: the shell of the routing suite")

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root runs the doctor as another user")
    def test_settings_that_the_user_may_not_read_are_not_possible(self):
        system = self.started()
        (system.folder / "etc/platform.yaml").chmod(0o600)
        system.folder.chmod(0o755)
        self.assert_found(system, "settings", "notPossible", "platform.yaml: Permission denied", wrapper=OTHER_USER)

    def reload(self, system, line):
        system.processes["daemon"].send_signal(signal.SIGHUP)
        self.becomes("the reload", lambda: line in system.log("daemon"), True)

    def test_metrics_that_are_not_served_are_a_warning(self):
        system = self.started()
        self.assertEqual((self.diagnose(system, "metrics"), self.metrics_line(system)), (("ok", ""), "off"))
        settings = system.folder / "etc/platform.yaml"
        with socket.create_server(("127.0.0.1", 0)) as other:
            port = other.getsockname()[1]
            settings.write_text(settings.read_text() + f"metrics: {{port: {port}}}\n")
            self.reload(system, "'metrics' has changed and is not in effect yet")
            self.assert_found(system, "metrics", "warning", f"metrics are not served at 127.0.0.1:{port}: ")
            self.assertRegex(self.metrics_line(system), f"^not served at 127.0.0.1:{port}: .")
            self.assertTrue(system.cli_json("show", "status")["metrics"]["problem"])
        self.becomes_ok(system, "metrics")
        self.assertEqual(self.metrics_line(system), f"127.0.0.1:{port}")
        self.assertEqual(system.cli_json("show", "status")["metrics"], {"place": f"127.0.0.1:{port}", "problem": None})

    def metrics_line(self, system):
        return re.search(r"(?m)^ *metrics +(.*)", system.cli("show", "status").stdout)[1]

    def test_invalid_router_file_is_a_source_that_is_down(self):
        system = self.started()
        self.assertEqual(self.diagnose(system, "sources"), ("ok", ""))
        system.router_file.write_text(ROUTER.replace("table: 10", "table: ten"))
        self.becomes("an error", lambda: self.diagnose(system, "sources")[0], "error")
        self.assertIn(f"file: {system.router_file}:1:", self.diagnose(system, "sources")[1])

    def test_missing_route_modules_are_an_error(self):
        system = self.new_system(ROUTER)
        system.environment["MPLS_VPN_MIB_LIB_DIR"] = str(system.folder / "lib")
        system.start_daemon()
        self.assert_found(system, "route-modules", "error", str(system.folder / "lib/mib/libipv4_forwardmib.dll"))

    def test_database_that_was_begun_anew_is_a_warning(self):
        system = self.new_system(ROUTER)
        database = system.folder / "state/checkpoint.db"
        database.write_text("not a database")
        system.start_daemon()
        self.assert_found(system, "databases", "warning", f"{database} could not be used 1 times")
        pathlib.Path(f"{database}.unusable.1").unlink()
        self.assertEqual(self.diagnose(system, "databases"), ("ok", ""))

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root mounts a small disk")
    def test_full_disk_is_an_error(self):
        system = self.new_system(ROUTER)
        self.assertIn(self.diagnose(system, "disk")[0], ("ok", "warning"))
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=8m,mode=700", "small", system.folder / "state"], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", system.folder / "state"], check=True)
        system.start_daemon()
        self.assert_found(system, "disk", "error", f"{system.folder / 'state'} has 7 MiB of free disk space")
        system.kill("daemon")

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root mounts a small disk")
    def test_disk_without_a_free_inode_is_an_error(self):
        system = self.new_system(ROUTER)
        state = system.folder / "state"
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64m,nr_inodes=8,mode=700", "small", state], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", state], check=True)
        self.assertEqual(self.diagnose(system, "disk"), ("ok", ""))
        files = [state / f"file{number}" for number in range(8)]
        with self.assertRaisesRegex(OSError, "No space left"):
            for file in files:
                file.touch()
        self.assert_found(system, "disk", "error", f"{state} has no free inode")
        files[0].unlink()
        self.assertEqual(self.diagnose(system, "disk"), ("ok", ""))

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root mounts a small disk")
    def test_configuration_that_cannot_be_written_is_an_error_until_it_can(self):
        system = self.new_system(ROUTER)
        state = system.folder / "state"
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=8m,mode=700", "small", state], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", state], check=True)
        system.start_daemon()
        self.assertEqual(self.diagnose(system, "databases"), ("ok", ""))
        with contextlib.suppress(OSError), open(state / "filler", "wb", buffering=0) as filler:
            while True:
                filler.write(bytes(4096))
        lines = "".join(f"set vrf red watch 10.9.{number}.0/24\n" for number in range(200))
        (system.folder / "many").write_text(lines)
        self.assertNotEqual(system.cli("config", "load", str(system.folder / "many")).returncode, 0)
        self.assert_found(system, "databases", "error", f"{state / 'configuration.db'} cannot be written: ")
        (state / "filler").unlink()
        system.cli("config", "load", str(system.folder / "many"), check=True)
        self.assertNotIn("configuration.db", self.diagnose(system, "databases")[1])
        system.kill("daemon")

    def test_queue_and_history_of_traps_that_cannot_be_written_are_errors(self):
        system = self.started(environment={"MPLS_VPN_MIB_FAULTS": "queue_file_append=28@1+0"})
        system.cli("config", "set", "traps", "all", check=True)
        self.assertEqual(self.diagnose(system, "databases"), ("ok", ""))
        system.cli("router", "down", "ge0", check=True)
        for file in "traps", "trap_history":
            self.becomes("the error", lambda name=file: f"{system.folder / 'state' / name} cannot be written: No space left on device"
                         in self.diagnose(system, "databases")[1], True)

    def test_file_of_the_future_shows_that_the_clock_was_set_back(self):
        system = self.started()
        file = system.folder / "state/vrf_ids"
        file.touch()
        self.assertNotEqual(self.diagnose(system, "clock")[0], "error")
        os.utime(file, (time.time() + 3600, time.time() + 3600))
        self.assert_found(system, "clock", "error", f"{file} was changed in the future")

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root becomes another user")
    def test_daemon_that_this_user_may_not_ask_is_not_reported_as_ended(self):
        system = self.started()
        system.folder.chmod(0o755)
        self.assert_found(system, "daemon-running", "notPossible", "not permitted: ", wrapper=OTHER_USER)
        self.assertEqual(self.fixes(system, "daemon-running", wrapper=OTHER_USER), ["run mplsvpn doctor as root"])


    def test_daemon_that_does_not_answer_is_restarted_and_not_started(self):
        system = self.started()
        self.assertEqual(self.diagnose(system, "daemon-running"), ("ok", ""))
        system.processes["daemon"].send_signal(signal.SIGSTOP)
        result = subprocess.run([str(BIN / "mplsvpn"), "--json", "--timeout", "200ms", "doctor", "--only", "daemon-running"],
                                env=system.environment, capture_output=True, text=True, check=False)
        finding, = json.loads(result.stdout)[0]["findings"]
        self.assertIn("did not answer within 200 ms", finding["text"])
        self.assertEqual(finding["fix"], "journalctl -u mpls_vpn_mib; systemctl restart mpls_vpn_mib")
        system.kill("daemon")
        self.assertEqual(self.fixes(system, "daemon-running"), ["systemctl start mpls_vpn_mib"])

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root becomes another user")
    def test_files_that_this_user_may_not_read_are_not_passed_over_by_the_clock(self):
        system = self.started()
        system.folder.chmod(0o755)
        self.assert_found(system, "clock", "notPossible" if self.is_synchronized(system) else "warning",
                          f"{system.folder / 'state'}: Permission denied", wrapper=OTHER_USER)
        self.assertIn("run mplsvpn doctor as root", self.fixes(system, "clock", wrapper=OTHER_USER))

    def is_synchronized(self, system):
        return "not synchronized" not in self.diagnose(system, "clock")[1]

    def test_file_that_was_set_aside_says_nothing_of_the_clock(self):
        system = self.started()
        file = system.folder / "state/checkpoint.db.unusable.1"
        file.touch()
        os.utime(file, (time.time() + 3600, time.time() + 3600))
        self.assertNotIn("in the future", self.diagnose(system, "clock")[1])

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root mounts")
    def test_time_service_that_is_enabled_is_one_that_is_installed(self):
        system = self.started()
        if self.is_synchronized(system):
            self.skipTest("SKIPPED: this machine's clock is synchronized")
        units = system.folder / "units"
        units.mkdir()
        mounted = ("unshare", "--mount", "sh", "-c", f'mount --bind {units} /usr/lib/systemd/system; exec "$@"', "sh")
        self.assertEqual(self.fixes(system, "clock", wrapper=mounted), ["apt-get install chrony"])
        for unit, fix in (("systemd-timesyncd", "systemctl enable --now systemd-timesyncd; timedatectl timesync-status"),
                          ("ntpsec", "systemctl enable --now ntpsec; ntpq -p"), ("chrony", "systemctl enable --now chrony; chronyc sources")):
            (units / f"{unit}.service").touch()
            self.assertEqual(self.fixes(system, "clock", wrapper=mounted), [fix])
            (units / f"{unit}.service").unlink()

    def test_configuration_of_the_suite_that_is_used_in_part_is_a_warning(self):
        suite = pathlib.Path(tempfile.mkdtemp(prefix="mpls_vpn_suite."))
        self.addCleanup(shutil.rmtree, suite)
        (suite / "bgpd.conf").write_text("router bgp 65000 vrf red\n address-family ipv4 unicast\n  rt vpn both 65000:nosuch\n"
                                         " exit-address-family\nexit\n")
        system = self.started(frr=f"{shlex.quote(str(ROOT / 'sources/frr/fake_vtysh'))} {suite}")
        self.becomes("the warning", lambda: self.diagnose(system, "sources")[0], "warning")
        self.assert_found(system, "sources", "warning", "bgpd: ")
        self.assert_found(system, "sources", "warning", "of its running configuration is left out: ")
        self.assertEqual(self.fixes(system, "sources"), ["journalctl -u mpls_vpn_mib"])

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root becomes another user")
    def test_users_without_the_right_for_the_suites_sockets_are_named_with_the_group(self):
        sockets = pathlib.Path(tempfile.mkdtemp(prefix="mpls_vpn_suite."))
        self.addCleanup(shutil.rmtree, sockets)
        shell = sockets / "shell"
        shell.write_text("#!/bin/sh\necho 'Exiting: failed to connect to any daemons.' >&2\nexit 1\n")
        for path in sockets, shell:
            path.chmod(0o755)
        words = f"{shell} --vty_socket {sockets}"
        system = self.new_system(source="kernel", frr=words)
        system.folder.chmod(0o755)
        for folder in "run", "state":
            shutil.chown(system.folder / folder, 64999, 64999)
        with socket.socket(socket.AF_UNIX) as zebra:  # as Debian has it: the folder is open, its sockets are not
            zebra.bind(str(sockets / "zebra.vty"))
        (sockets / "zebra.vty").chmod(0o770)
        shutil.chown(sockets / "zebra.vty", "root", "dialout")
        system.spawn("daemon", *OPERATOR, str(BIN / "mpls_vpn_mib"))
        reason = f"the user 64999 has no permission for {sockets}/zebra.vty"
        self.becomes("the state of the suite", lambda: reason in self.diagnose(system, "sources")[1], True)
        self.assertEqual(self.fixes(system, "sources"), ["usermod -aG dialout 64999 && systemctl restart mpls_vpn_mib"])
        asked = ("--suite-shell", words)
        self.assert_found(system, "suite-access", "error", reason, *asked, wrapper=OPERATOR)
        self.assertEqual(self.fixes(system, "suite-access", *asked, wrapper=OPERATOR), ["usermod -aG dialout 64999; then log in again"])
        self.assertEqual(self.fixes(system, "suite-access", *asked), ["systemctl start frr"])
        shell.write_text("#!/bin/sh\necho 'the line is too long' >&2\nexit 1\n")
        self.assertEqual(self.fixes(system, "suite-access", *asked), ["systemctl status frr; journalctl -u frr"])


class Routes(DoctorTest):
    ROUTES = ROUTER.replace("table: 10", "table: 10, routes: [{prefix: 10.9.0.0/16, next_hop: 10.1.0.2, interface: ge0}]")

    def test_table_below_its_low_water_mark_is_a_warning_until_it_has_the_routes(self):
        system = self.started()
        self.assertEqual(self.diagnose(system, "routes-low"), ("ok", ""))
        system.cli("config", "set", "vrf", "red", "low-water", "ipv4", "1", "0", check=True)
        self.becomes("the warning", lambda: self.diagnose(system, "routes-low")[0], "warning")
        self.assert_found(system, "routes-low", "warning", "VRF red: 0 ipv4 routes, below its low-water mark of 1 since 20")
        system.router_file.write_text(self.ROUTES)
        self.becomes_ok(system, "routes-low")

    def test_watched_prefix_without_a_route_is_a_warning_until_it_has_one(self):
        system = self.started()
        system.cli("config", "set", "vrf", "red", "watch", "10.9.0.0/16", check=True)
        self.becomes("the warning", lambda: self.diagnose(system, "watched-prefix"),
                     ("warning", "VRF red: the watched prefix 10.9.0.0/16 has no route"))
        system.router_file.write_text(self.ROUTES)
        self.becomes_ok(system, "watched-prefix")

    def test_prefixes_beyond_the_limit_are_a_warning(self):
        system = self.started()
        lines = "".join(f"set vrf red watch 10.{number // 256}.{number % 256}.0/24\n" for number in range(1003))
        (system.folder / "watched").write_text(lines)
        system.cli("config", "load", str(system.folder / "watched"), check=True)
        self.becomes("the number of findings", lambda: len(self.fixes(system, "watched-prefix")), 22)
        self.assert_found(system, "watched-prefix", "warning", "and 980 more watched prefixes without a route")
        self.assertEqual([fix.split(";")[0] for fix in self.fixes(system, "watched-prefix")[19:21]],
                         ["mplsvpn explain red 10.0.19.0/24", "mplsvpn show thresholds"])
        self.becomes("the warning", lambda: "3 prefixes beyond the limit are not watched" in self.diagnose(system, "watched-prefix")[1], True)


class Command(DoctorTest):
    def doctor(self, system, *words):
        return subprocess.run([str(BIN / "mplsvpn"), "doctor", *words], env=system.environment, capture_output=True, text=True,
                              check=False)

    def test_text_has_number_state_reason_and_fix_of_each_check(self):
        system = self.new_system(ROUTER)
        shown = self.doctor(system, "--only", "daemon-running", "--only", "daemon-version")
        self.assertEqual(shown.returncode, 2)
        self.assertRegex(shown.stdout, r"\Adaemon\n"
                         r"   1  error         daemon-running     the daemon answers\n"
                         r"      mpls_vpn_mib is not running .*\n"
                         r"      fix: systemctl start mpls_vpn_mib\n"
                         r"   2  not possible  daemon-version     daemon and command line are of one version\n"
                         r"      as in check 1\n"
                         r"\n0 ok, 1 not possible, 0 warnings, 1 error\n\Z")

    def test_checks_of_a_group_that_lack_the_same_are_one_line(self):
        system = self.started()
        shown = self.doctor(system).stdout
        reason = "the daemon reads a router file, not this kernel"
        lines = [line for line in shown.splitlines() if reason in line]
        self.assertEqual(lines, [f"15-19  not possible  vrf-device-down to mpls-labels: {reason}",
                                 f"20-27  not possible  suite-access to suite-routes: {reason}"])
        checks = json.loads(subprocess.run(self.words(system), env=system.environment, capture_output=True, text=True,
                                           check=False).stdout)
        alike = [check["id"] for check in checks if [finding["text"] for finding in check["findings"]] == [reason]]
        self.assertEqual((len(alike), alike[0], alike[-1]), (13, "vrf-device-down", "suite-routes"))
        self.assertIn(f", {sum(check['state'] == 'notPossible' for check in checks)} not possible, ", shown.splitlines()[-1])

    def test_check_that_is_left_out_is_not_shown(self):
        system = self.new_system(ROUTER)
        shown = self.doctor(system, "--only", "disk", "--only", "daemon-running", "--skip", "daemon-running")
        self.assertNotIn("daemon-running", shown.stdout)
        self.assertIn("disk", shown.stdout)

    def test_name_of_a_group_chooses_its_checks(self):
        shown = self.doctor(self.new_system(ROUTER), "--only", "routes").stdout
        self.assertIn("routes-low", shown)
        self.assertIn("watched-prefix", shown)
        self.assertNotIn("suite-routes", shown)

    def test_unknown_check_is_a_usage_error(self):
        shown = self.doctor(self.new_system(ROUTER), "--only", "nosuch")
        self.assertEqual(shown.returncode, 2)
        self.assertIn("nosuch", shown.stderr)

    def test_router_file_is_not_compared_with_the_kernel(self):
        system = self.started()
        for check in "vrf-device-down", "suite-vrf-device", "vrf-not-in-suite", "suite-saved":
            with self.subTest(check):
                self.assert_found(system, check, "notPossible", "the daemon reads a router file, not this kernel",
                                  "--suite-shell", "/nonexistent/vtysh")

    def test_page_describes_each_check_under_its_id(self):
        system = self.new_system(ROUTER)
        checks = json.loads(subprocess.run(self.words(system), env=system.environment, capture_output=True, text=True,
                                           check=False).stdout)
        page = (ROOT / "docs/troubleshooting.md").read_text()
        self.assertEqual(re.findall(r"^### (\S+)$", page, re.MULTILINE), [check["id"] for check in checks])
        self.assertEqual([check["number"] for check in checks], list(range(1, len(checks) + 1)))


if __name__ == "__main__":
    unittest.main()
