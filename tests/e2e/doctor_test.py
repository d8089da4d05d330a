#!/usr/bin/env python3
""""mplsvpn doctor" with real processes: each check of the daemon and of snmpd is triggered, and is quiet again when the cause is
removed. Those of kernel and routing suite are triggered in the guest (tests/kernel/system_doctor.py)."""
import contextlib
import grp
import json
import os
import pathlib
import pwd
import re
import shlex
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest

from system import BIN, ROOT, SystemTest, wait_until

ROUTER = "vrfs: [{name: red, table: 10}]\ninterfaces: [{name: ge0, index: 1, vrf: red, addresses: [10.1.0.1/24]}]\n"
STATES = {"ok": 0, "notPossible": 0, "warning": 1, "error": 2}
OTHER_USER = ("setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups")
OPERATOR = ("setpriv", "--reuid", "64999", "--regid", "64999", "--clear-groups")  # a user without a name
IS_ROOT = os.geteuid() == 0
ALONE = ("unshare", "--pid", "--fork", "--mount-proc")  # without the processes of others
WITHOUT = (*ALONE, "sh", "-c", 'for file in $(which -a "$0"); do mount --bind /dev/null "$file"; done; exec "$@"')
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


class DoctorTest(SystemTest):
    def started(self, router=ROUTER, **options):
        system = self.new_system(router, **options)
        system.start_daemon()
        return system

    def words(self, system, *words):
        socket_given = ("--agentx-socket", str(system.agentx)) if system.agentx else ()
        return (str(BIN / "mplsvpn"), "--json", "doctor", *socket_given, *words)

    def diagnose(self, system, check, *words, wrapper=()):
        """(state, the texts of the findings) of one check."""
        result = subprocess.run([*wrapper, *self.words(system, "--only", check, *words)], env=system.environment,
                                capture_output=True, text=True, check=False)
        self.assertIn(result.returncode, (0, 1, 2), result.stderr)
        shown, = json.loads(result.stdout)
        self.assertEqual(shown["id"], check)
        self.assertEqual(result.returncode, STATES[shown["state"]])
        return shown["state"], " / ".join(finding["text"] for finding in shown["findings"])

    def fixes(self, system, check, *words, wrapper=()):
        result = subprocess.run([*wrapper, *self.words(system, "--only", check, *words)], env=system.environment, capture_output=True,
                                text=True, check=False)
        return [finding["fix"] for finding in json.loads(result.stdout)[0]["findings"]]

    def becomes_ok(self, system, check, *words):
        self.becomes(check, lambda: self.diagnose(system, check, *words), ("ok", ""))

    def assert_found(self, system, check, state, text, *words, wrapper=()):
        found = self.diagnose(system, check, *words, wrapper=wrapper)
        self.assertEqual(found[0], state, found)
        self.assertIn(text, found[1])


class Daemon(DoctorTest):
    def test_daemon_that_does_not_run_is_an_error_and_others_are_not_possible(self):
        system = self.new_system(ROUTER)
        self.assert_found(system, "daemon-running", "error", "mpls_vpn_mib is not running")
        self.assert_found(system, "sources", "notPossible", "mpls_vpn_mib is not running")
        system.start_daemon()
        self.assertEqual(self.diagnose(system, "daemon-running"), ("ok", ""))
        self.assertEqual(self.diagnose(system, "daemon-version"), ("ok", ""))

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


class Snmp(DoctorTest):
    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root makes process namespaces")
    def test_snmpd_that_does_not_run_is_an_error(self):
        system = self.started()
        self.assert_found(system, "snmpd-running", "error", "no snmpd runs", wrapper=ALONE)
        system.start_snmpd()
        self.assertEqual(self.diagnose(system, "snmpd-running"), ("ok", ""))

    def test_agentx_socket_that_is_missing_or_closed_is_an_error(self):
        system = self.started()
        self.assert_found(system, "agentx-socket", "error", f"{system.agentx} does not exist")
        system.module = None
        system.start_snmpd()
        self.assertEqual(self.diagnose(system, "agentx-socket"), ("ok", ""))

    def test_agentx_socket_without_a_listener_is_an_error(self):
        system = self.new_system(ROUTER)
        with socket.socket(socket.AF_UNIX) as left_over:
            left_over.bind(str(system.agentx))
        self.assert_found(system, "agentx-socket", "error", f"{system.agentx}: Connection refused")

    def test_agentx_socket_is_that_of_snmpds_configuration(self):
        system = self.new_system(ROUTER)
        conf = system.folder / "named.conf"
        conf.write_text(f"master agentx\nagentXSocket unix:{system.folder}/named\n")
        given = ("--snmpd-conf", str(conf))
        system.agentx = None
        self.assert_found(system, "agentx-socket", "error", f"{system.folder}/named does not exist", *given)
        conf.write_text("agentXSocket tcp:localhost:705\n")
        self.assert_found(system, "agentx-socket", "notPossible", "tcp:localhost:705 is not the path of a Unix socket", *given)

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root hides programs")
    def test_machine_without_snmpd_or_without_the_sub_agent_has_no_errors_of_them(self):
        system = self.started()
        system.environment["PATH"] += f":{BIN}"
        for program, text, fix in (("snmpd", "snmpd is not installed", "apt-get install snmpd"),
                                   ("mpls_vpn_snmp", "the sub-agent is not installed",
                                    "apt install ./mplsvpn-snmp_*.deb, in the folder with the packages")):
            for check in "snmpd-running", "agentx-socket", "snmp-front-end", "snmp-view":
                with self.subTest(check, program=program):
                    self.assert_found(system, check, "notPossible", text, wrapper=(*WITHOUT, program))
                    self.assertEqual(self.fixes(system, check, wrapper=(*WITHOUT, program)), [fix])

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root becomes another user")
    def test_agentx_socket_of_another_user_is_an_error(self):
        system = self.new_system(ROUTER)
        system.module = None
        system.start_snmpd()
        system.folder.chmod(0o755)
        self.assert_found(system, "agentx-socket", "error", f"of the sub-agent has no permission for {system.agentx}",
                          wrapper=OTHER_USER)

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root becomes another user")
    def test_closed_agentx_socket_is_opened_by_what_is_advised_and_stays_that_of_its_group(self):
        system = self.new_system(ROUTER)
        system.module = None
        system.start_snmpd()
        with tempfile.NamedTemporaryFile("w", suffix=".conf") as conf:
            os.chmod(conf.name, 0o644)

            def advised(line):
                conf.seek(0)
                conf.truncate()
                conf.write(line + "\n")
                conf.flush()
                fix, = self.fixes(system, "agentx-socket", "--snmpd-conf", conf.name, wrapper=OTHER_USER)
                return fix
            fix = advised("agentXPerms 0660 0711")
            self.assertEqual(fix, f"chmod a+x {system.folder}")
            subprocess.run(fix, shell=True, check=True)
            restart = ", then: systemctl restart snmpd"
            member = f"usermod -aG daemon {pwd.getpwuid(65534).pw_name}, then: systemctl restart mpls_vpn_snmp"
            self.assertEqual(advised("master agentx"), 'add "agentXPerms 0660 0711 Debian-snmp mpls_vpn_snmp" to snmpd.conf' + restart)
            self.assertEqual(advised("agentXPerms 0600 0755 man"),
                             f'replace the line {conf.name}:1 by "agentXPerms 0660 0755 man mpls_vpn_snmp"{restart}')
            self.assertEqual(advised("agentXPerms 0660 0755 man daemon"), member)
            self.assertEqual(advised("agentXPerms 0600 0755 man daemon"),
                             f'replace the line {conf.name}:1 by "agentXPerms 0660 0755 man daemon"{restart}; {member}')

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root gives files to groups")
    def test_snmpd_accepts_the_agentx_permissions_of_the_package_without_a_complaint(self):
        system = self.new_system(ROUTER)
        system.module = None
        line = re.search(r"(?m)^agentXPerms .*$", (ROOT / "packaging/snmpd.conf").read_text())[0]
        system.more_snmpd_settings = line.replace("mpls_vpn_snmp", "daemon") + "\n"
        system.start_snmpd()
        self.assertNotIn("Can't identify", system.log("snmpd"))
        found = system.agentx.stat()
        self.assertEqual((found.st_gid, found.st_mode & 0o777), (grp.getgrnam("daemon").gr_gid, 0o660))
        self.assertEqual(line, "agentXPerms 0660 0711 Debian-snmp mpls_vpn_snmp")

    def test_front_end_that_is_not_connected_is_an_error(self):
        system = self.started()
        self.assert_found(system, "snmp-front-end", "error", "neither the sub-agent, which does not run, nor the module is connected",
                          wrapper=ALONE)
        self.assertEqual(self.fixes(system, "snmp-front-end", wrapper=ALONE), ["systemctl start mpls_vpn_snmp"])
        system.start_snmpd()
        system.start_agent()
        self.becomes_ok(system, "snmp-front-end")

    def test_sub_agent_that_runs_without_a_connection_is_not_reported_as_ended(self):
        system = self.started()
        system.module = None
        system.start_snmpd()
        system.start_agent()
        self.becomes_ok(system, "snmp-front-end")
        agent = system.processes["agent"]
        agent.send_signal(signal.SIGSTOP)  # it does not connect again
        self.addCleanup(agent.send_signal, signal.SIGCONT)
        system.kill("daemon")
        system.start_daemon()
        self.assert_found(system, "snmp-front-end", "warning", "but it is not connected to the daemon for ")
        self.assertRegex(self.diagnose(system, "snmp-front-end")[1], r"^the sub-agent runs \(process \d+\), .* for \d+ s; 0 traps wait$")
        self.assertEqual(self.fixes(system, "snmp-front-end"), ["wait 10 s and run mplsvpn doctor again"])
        self.becomes("an error", lambda: self.diagnose(system, "snmp-front-end")[0], "error")
        self.assertEqual(self.fixes(system, "snmp-front-end"), ["journalctl -u mpls_vpn_snmp; systemctl restart mpls_vpn_snmp"])
        agent.send_signal(signal.SIGCONT)
        self.becomes_ok(system, "snmp-front-end")

    def asking(self, system):
        return "--snmp", f"-v2c -c public -t 5 127.0.0.1:{system.port}"

    def test_view_without_the_mib_is_an_error_by_snmpds_answer(self):
        system = self.started()
        system.more_snmpd_settings = "view narrow included .1.3.6.1.2.1.1\nrocommunity hidden default -V narrow\n"
        system.start_snmpd()
        system.start_agent()
        self.becomes_ok(system, "snmp-view", *self.asking(system))
        hidden = self.asking(system)[1].replace("public", "hidden")
        self.assert_found(system, "snmp-view", "error", "No Such Object", "--snmp", hidden)
        self.assert_found(system, "snmp-view", "error", "No Such Object", "--snmp", hidden.replace("-v2c", "-v1"))
        system.kill("snmpd")
        self.assert_found(system, "snmp-view", "error", "snmpd does not answer: Timeout", "--snmp", hidden.replace("-t 5", "-t 1 -r 0"))

    def test_view_without_the_mib_is_an_error_by_the_configuration(self):
        system = self.new_system(ROUTER)
        stock = system.folder / "snmpd.conf"
        stock.write_text("view systemonly included .1.3.6.1.2.1.1\nrocommunity public default -V systemonly\n"
                         f"includeDir {system.folder}/more\n")
        given = ("--snmpd-conf", str(stock))
        self.assert_found(system, "snmp-view", "error", f"{stock}:2: rocommunity shows the view systemonly, which lacks it", *given)
        more = system.folder / "more"
        more.mkdir()
        shipped = (ROOT / "packaging/snmpd.conf").read_text()
        (more / "mib.conf").write_text(shipped)
        line = shipped.splitlines().index("rocommunity l3vpn 127.0.0.1 -V l3vpn") + 1
        self.assertEqual(self.diagnose(system, "snmp-view", *given), ("ok", f"{more}/mib.conf:{line} shows it; {stock}:2 does not"))
        (more / "mib.conf").write_text("view systemonly included .1.3.6.1.2.1\nview systemonly excluded .1.3.6.1.2.1.10\n")
        self.assertEqual(self.diagnose(system, "snmp-view", *given)[0], "error")
        stock.write_text("rocommunity public default .1.3.6.1.2.1\n")
        self.assertEqual(self.diagnose(system, "snmp-view", *given), ("ok", ""))
        stock.write_text("")
        self.assert_found(system, "snmp-view", "error", "lets no manager read anything", *given)
        self.assert_found(system, "snmp-view", "notPossible", "No such file", "--snmpd-conf", "/nonexistent.conf")

    def test_well_known_community_is_not_shown_the_mib(self):
        system = self.new_system(ROUTER)
        stock = system.folder / "stock.conf"
        stock.write_text("view systemonly included .1.3.6.1.2.1.1\nrocommunity public default -V systemonly\n"
                         "rocommunity6 public default -V systemonly\nincludeDir /etc/snmp/snmpd.conf.d\n")
        example = "install -m 640 -g Debian-snmp /usr/share/doc/mplsvpn-snmp/examples/snmpd.conf"
        self.assertIn(example, " ".join((ROOT / "README.md").read_text().split()))
        fix, = self.fixes(system, "snmp-view", "--snmpd-conf", str(stock))
        self.assertIn(example if not pathlib.Path("/etc/snmp/snmpd.conf.d/mpls_vpn_mib.conf").exists() else "MANAGER", fix)
        self.assertIn('"rocommunity COMMUNITY MANAGER -V l3vpn"', fix)
        stock.write_text(stock.read_text().replace("includeDir", "#"))
        fix, = self.fixes(system, "snmp-view", "--snmpd-conf", str(stock))
        self.assertIn('"rocommunity COMMUNITY MANAGER -V l3vpn"', fix)

    def test_manager_without_the_if_mib_has_no_verdict_of_its_interfaces(self):
        system = self.started()
        system.more_snmpd_settings = "view l3vpn included .1.3.6.1.2.1.10.166.11\nrocommunity narrow default -V l3vpn\n"
        system.start_snmpd()
        for version in "-v2c", "-v1":
            asking = self.asking(system)[1].replace("public", "narrow").replace("-v2c", version)
            self.assert_found(system, "snmp-ifindex", "notPossible", "this manager may not read the IF-MIB", "--snmp", asking)
        self.assert_found(system, "snmp-ifindex", "notPossible", "snmpd does not answer: Timeout", "--snmp",
                          asking.replace("-t 5", "-t 1 -r 0").replace("narrow", "unknown"))

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root makes network namespaces")
    def test_interface_that_snmpd_does_not_show_is_a_warning_with_the_reason(self):
        names = {name: int(pathlib.Path(f"/sys/class/net/{name}/ifindex").read_text()) for name in os.listdir("/sys/class/net")}
        other = "lo" if len(names) == 1 else next(name for name in names if name != "lo")
        interfaces = f"{{name: {other}, index: {names[other]}, vrf: red}}, {{name: nosuch0, index: {max(names.values()) + 1}, vrf: red}}"
        system = self.started(f"vrfs: [{{name: red, table: 10}}]\ninterfaces: [{interfaces}]\n")
        system.start_snmpd()
        self.assert_found(system, "snmp-ifindex", "warning", "snmpd does not show 1 of our interfaces, nosuch0: this network namespace does "
                          "not have them", *self.asking(system))
        self.assertNotIn(other, self.diagnose(system, "snmp-ifindex", *self.asking(system))[1])
        if other == "lo":
            self.skipTest("SKIPPED: this machine has no interface but lo")
        address, conf = f"unix:{system.folder}/other.sock", system.folder / "other.conf"
        conf.write_text("authcommunity read public\n")
        system.spawn("other", "unshare", "--net", "snmpd", "-f", "-Lo", "-C", "-c", str(conf), address)
        wait_until("snmpd", lambda: "NET-SNMP version" in system.log("other"))
        self.assert_found(system, "snmp-ifindex", "warning", f"snmpd does not show 1 of our interfaces, {other}: it runs in another network "
                          "namespace", "--snmp", f"-v2c -c public -t 5 {address}")

    def test_other_ifindex_of_an_interface_is_an_error(self):
        index = int(pathlib.Path("/sys/class/net/lo/ifindex").read_text())
        system = self.started(ROUTER.replace("name: ge0, index: 1", f"name: lo, index: {index}"))
        self.assert_found(system, "snmp-ifindex", "notPossible", "the community is unknown")
        system.start_snmpd()
        self.assertEqual(self.diagnose(system, "snmp-ifindex", *self.asking(system)), ("ok", ""))
        system.router_file.write_text(ROUTER.replace("name: ge0, index: 1", f"name: lo, index: {index + 76}"))
        self.becomes("an error", lambda: self.diagnose(system, "snmp-ifindex", *self.asking(system))[0], "error")
        self.assert_found(system, "snmp-ifindex", "error", f"interface lo has ifIndex {index + 76} here and {index} in snmpd",
                          *self.asking(system))


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
                         r"\n0 ok, 1 not possible, 0 warning, 1 error\n\Z")

    def test_checks_of_a_group_that_lack_the_same_are_one_line(self):
        system = self.started()
        shown = self.doctor(system).stdout
        reason = "the daemon reads a router file, not this kernel"
        lines = [line for line in shown.splitlines() if reason in line]
        self.assertEqual(lines, [f"13-17  not possible  vrf-device-down to mpls-labels: {reason}",
                                 f"18-25  not possible  suite-access to suite-routes: {reason}"])
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
