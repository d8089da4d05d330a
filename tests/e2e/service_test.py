#!/usr/bin/env python3
"""The daemon as a service: signals, what the service manager is notified of, wrong settings, a second daemon,
and --check."""
import contextlib
import os
import signal
import socket
import sqlite3
import subprocess
import threading
import time
import unittest

from service_system import DAEMON, ROUTER, ServiceTest
from system import BIN, SLOW, fetch, unused_port, wait_until

KEYS = "the keys are source, frr, metrics, router_file"


class EndOfDaemon(ServiceTest):
    def test_sigterm_and_sigint_end_it_with_a_line_and_without_sockets(self):
        for number in signal.SIGTERM, signal.SIGINT:
            system = self.started()
            self.assertEqual(self.ended(system, "daemon", number), 0)
            self.assertIn(f"mpls_vpn_mib: ended by {number.name} from process {os.getpid()}\n", system.log("daemon"))
            left = {file.name for file in (system.folder / "run").iterdir()}
            self.assertEqual(left & {"dev.mpls.vpn.main", "dev.mpls.vpn.debug", "lock"}, set())

    def test_confirmed_commit_and_times_survive_the_end(self):
        system = self.started()
        confirmed = []

        def commit():
            for number in range(1, 1000):
                if system.cli("config", "set", "vrf", "red", "rd", f"65000:{number}").returncode != 0:
                    return
                confirmed.append(number)
        committing = threading.Thread(target=commit)
        committing.start()
        wait_until("commits", lambda: len(confirmed) > 5)
        self.assertEqual(self.ended(system, "daemon", signal.SIGTERM), 0)
        committing.join()
        system.start_daemon()
        vrf = system.cli_json("show", "vrf")[0]
        self.assertIn(int(vrf["rd"].split(":")[1]), (confirmed[-1], confirmed[-1] + 1))
        created = vrf["creationTime"]
        self.ended(system, "daemon", signal.SIGTERM)
        system.start_daemon()
        self.assertEqual(system.cli_json("show", "vrf")[0]["creationTime"], created)

    def test_signals_without_a_meaning_are_logged_and_end_nothing(self):
        system = self.started()
        for number in signal.SIGUSR1, signal.SIGUSR2:
            system.processes["daemon"].send_signal(number)
            self.wait_for_line(system, "daemon", f"{number.name} from process {os.getpid()} has no effect; SIGHUP reads the settings")
        self.assertEqual([vrf["name"] for vrf in system.cli_json("show", "vrf")], ["red"])
        self.assertEqual(self.ended(system, "daemon", signal.SIGTERM), 0)
        self.assertEqual([file.name for file in (system.folder / "run").iterdir() if file.is_socket()], [])

    def test_signal_during_the_start_ends_it(self):
        routes = ", ".join(f"{{prefix: 10.{i // 256}.{i % 256}.0/24, type: blackhole, protocol: static}}" for i in range(20000))
        system = self.new_system(f"vrfs: [{{name: red, table: 10, routes: [{routes}]}}]\ninterfaces: []\n")
        system.spawn("daemon", DAEMON)
        wait_until("the lock", lambda: (system.folder / "state/configuration.db").exists())
        self.assertIn(self.ended(system, "daemon", signal.SIGTERM), (0, -signal.SIGTERM))

    def test_client_that_waits_loses_the_connection(self):
        system = self.started()
        watch = system.spawn("watch", str(BIN / "mplsvpn"), "watch", "traps", "--timeout", "30")
        wait_until("the client", lambda: len(system.cli_json("show", "status")["clients"]) > 1)
        self.assertEqual(self.ended(system, "daemon", signal.SIGTERM), 0)
        self.wait_for_line(system, "watch", "mpls_vpn_mib closed the connection; waiting until it runs again\n")
        self.assertIsNone(watch.poll())


class Reload(ServiceTest):
    def hang_up(self, system, line):
        system.processes["daemon"].send_signal(signal.SIGHUP)
        self.wait_for_line(system, "daemon", line)
        self.assertIsNone(system.processes["daemon"].poll())

    def test_sighup_reads_settings_and_router_file_again(self):
        system = self.started()
        self.hang_up(system, f"SIGHUP from process {os.getpid()}: the settings have not changed\n")
        self.wait_for_line(system, "daemon", f"{system.router_file} loaded: nothing changed\n")

    def test_router_file_in_a_folder_that_is_not_watched_is_loaded(self):
        system = self.new_system(ROUTER)
        target = system.folder / "target.yaml"
        target.write_text(ROUTER)
        system.router_file.unlink()
        system.router_file.symlink_to(target)
        system.start_daemon()
        target.write_text(ROUTER.replace("red", "blue"))
        self.hang_up(system, "the settings have not changed\n")
        self.becomes("the VRF", lambda: [vrf["name"] for vrf in system.cli_json("show", "vrf")], ["blue"])

    def test_settings_that_need_a_restart_are_named(self):
        system = self.started()
        settings = system.folder / "etc/platform.yaml"
        settings.write_text("source: kernel\n")
        for key in "source", "router_file":
            self.hang_up(system, f"the setting '{key}' has changed; restart the daemon, then it takes effect\n")
        self.assertEqual([vrf["name"] for vrf in system.cli_json("show", "vrf")], ["red"], "still those of the file")
        self.assertEqual(self.problem(system), "restart the daemon for the changed source, router_file")
        self.assertIn("settings  ", system.cli("show", "status").stdout)
        settings.write_text("source: kernel\nnosuch: 1\n")
        self.hang_up(system, f"{settings}:2:1: the settings file has no key \"nosuch\"; {KEYS} "
                             f"(SIGHUP from process {os.getpid()}; the former settings remain)\n")


    def test_settings_remain_while_their_directory_is_missing(self):
        system = self.started()
        settings, port = system.folder / "etc/platform.yaml", unused_port()
        settings.write_text(settings.read_text() + f"metrics: {{port: {port}}}\n")
        self.hang_up(system, "the setting 'metrics' has changed and is in effect\n")
        settings.parent.rename(system.folder / "away")
        self.hang_up(system, f"{settings.parent}: the configuration directory does not exist any more (SIGHUP from process "
                             f"{os.getpid()}; the former settings remain)\n")
        self.assertEqual(self.series(port, "mplsvpn_up"), ["mplsvpn_up 1"])
        self.assertIn("does not exist any more", self.problem(system))
        (system.folder / "away").rename(settings.parent)
        self.hang_up(system, "the settings have not changed\n")
        self.assertIsNone(self.problem(system))

    def test_metrics_whose_port_is_in_use_are_not_said_to_be_in_effect(self):
        system = self.started()
        settings = system.folder / "etc/platform.yaml"
        with socket.socket() as other:
            other.bind(("127.0.0.1", 0))
            other.listen()
            port = other.getsockname()[1]
            settings.write_text(settings.read_text() + f"metrics: {{port: {port}}}\n")
            self.hang_up(system, "the setting 'metrics' has changed and is not in effect yet\n")
            self.assertIn(f"/metrics is not served at 127.0.0.1:{port}", system.log("daemon"))
            self.assertNotIn("is in effect\n", system.log("daemon"))
        self.wait_for_line(system, "daemon", f"/metrics is served at 127.0.0.1:{port}\n")

    def problem(self, system):
        return system.cli_json("show", "status")["settingsProblem"]

    def is_listening(self, port):
        with socket.socket() as client:
            return client.connect_ex(("127.0.0.1", port)) == 0

    def series(self, port, name):
        return [line for line in fetch(f"http://127.0.0.1:{port}/metrics").splitlines() if line.startswith(name)]

    def test_metrics_are_switched_and_moved_without_a_restart(self):
        system = self.started(ROUTER.replace("[]", "[{name: ge0, index: 1, vrf: red}]"))
        settings = system.folder / "etc/platform.yaml"
        base = settings.read_text()
        first, second = unused_port(), unused_port()
        applied = "the setting 'metrics' has changed and is in effect\n"
        settings.write_text(base + f"metrics: {{port: {first}}}\n")
        self.hang_up(system, applied)
        self.assertEqual(self.series(first, "mplsvpn_up"), ["mplsvpn_up 1"])
        self.assertNotEqual(self.series(first, "mplsvpn_vrf_interface_info{"), [])
        with socket.create_connection(("127.0.0.1", first)) as idle:
            settings.write_text(base + f"metrics: {{port: {second}, interfaces: false}}\n")
            self.hang_up(system, f"/metrics is served at 127.0.0.1:{second}\n")
            idle.settimeout(10 * SLOW)
            self.assertEqual(idle.recv(1), b"", "the client of the former port is closed")
        self.assertEqual(self.series(second, "mplsvpn_up"), ["mplsvpn_up 1"])
        self.assertEqual(self.series(second, "mplsvpn_vrf_interface_info{"), [])
        self.assertFalse(self.is_listening(first))
        settings.write_text(base + "metrics: {port: 0}\n")
        self.hang_up(system, f"{settings}:{base.count(chr(10)) + 1}:17: 'port' is a number from 1 to 65535, not '0' (SIGHUP")
        self.assertEqual(self.series(second, "mplsvpn_up"), ["mplsvpn_up 1"], "an invalid file changes nothing")
        self.assertIn("'port' is a number from 1 to 65535", self.problem(system))
        settings.write_text(base)
        system.processes["daemon"].send_signal(signal.SIGHUP)
        self.becomes("no port", lambda: self.is_listening(second), False)
        self.assertIsNone(self.problem(system))

    def test_service_manager_learns_the_begin_and_the_end(self):
        manager = self.service_manager()
        system = self.started(**manager.environment())
        manager.wait_for("READY=1")
        manager.lines.clear()
        begin = time.monotonic_ns() // 1000
        system.processes["daemon"].send_signal(signal.SIGHUP)
        manager.wait_for("READY=1")
        self.assertIn(f"{system.router_file} loaded: nothing changed\n", system.log("daemon"), "the end, not the begin")
        manager.lines = [line for line in manager.lines if not line.startswith("STATUS=")]
        self.assertEqual([line.split("=")[0] for line in manager.lines], ["RELOADING", "MONOTONIC_USEC", "READY"])
        self.assertTrue(begin <= int(manager.lines[1].split("=")[1]) <= time.monotonic_ns() // 1000, manager.lines)


class Notifications(ServiceTest):
    def test_service_manager_learns_state_life_and_end(self):
        manager = self.service_manager()
        system = self.started(**manager.environment(WATCHDOG_USEC="200000"))
        manager.wait_for("READY=1")
        manager.wait_for(f"STATUS=1 VRF and 0 interfaces from {system.router_file}")
        manager.lines.clear()
        wait_until("signs of life", lambda: manager.read().count("WATCHDOG=1") > 3)
        self.assertEqual(self.ended(system, "daemon", signal.SIGTERM), 0)
        manager.wait_for("STOPPING=1")
        manager.wait_for(f"STATUS=ended by SIGTERM from process {os.getpid()}")

    def test_state_follows_the_router(self):
        manager = self.service_manager()
        system = self.started(**manager.environment())
        system.router_file.write_text("vrfs: [{name: red, table: 10}, {name: blue, table: 11}]\ninterfaces: []\n")
        manager.wait_for(f"STATUS=2 VRFs and 0 interfaces from {system.router_file}")
        self.assertEqual(manager.read().count("WATCHDOG=1"), 0)


class Refusals(ServiceTest):
    def test_wrong_settings_have_a_status_of_their_own(self):
        system = self.new_system(ROUTER)
        (system.folder / "etc/platform.yaml").write_text("sauce: file\n")
        status, log = self.refused(system)
        self.assertEqual((status, log), (78, f"mpls_vpn_mib: {system.folder}/etc/platform.yaml:1:1: the settings file has no key \"sauce\"; {KEYS}\n"))

    def test_invalid_router_file_has_it_too_but_not_a_missing_one(self):
        system = self.new_system("vrfs: [{name: red}]\n")
        status, log = self.refused(system)
        self.assertEqual((status, f"{system.router_file}:1:" in log), (78, True), log)
        system.router_file.unlink()
        self.assertEqual(self.refused(system)[0], 1)

    def test_database_of_a_later_release_has_it_too(self):
        system = self.started()
        system.kill("daemon", signal.SIGTERM)
        for name in "configuration.db", "checkpoint.db":
            with self.subTest(name):
                with contextlib.closing(sqlite3.connect(system.folder / "state" / name)) as database:
                    version, = database.execute("PRAGMA user_version").fetchone()
                    database.execute("PRAGMA user_version = 99")
                status, log = self.refused(system)
                self.assertEqual(status, 78, log)
                self.assertIn(f"it is of version 99 and this release reads versions up to {version}", log)
                self.assertNotIn("without a reason above", log)
                with contextlib.closing(sqlite3.connect(system.folder / "state" / name)) as database:
                    database.execute(f"PRAGMA user_version = {version}")

    def test_second_daemon_names_the_first_and_its_folder(self):
        system = self.started()
        first = system.processes["daemon"].pid
        for own in {}, {"MPLS_VPN_MIB_STATE_DIR": str(system.folder / "other")}:
            status, log = self.refused(system, **own)
            self.assertEqual(status, 1)
            self.assertEqual(log.splitlines()[0].split(":")[1], f" process {first} runs as the daemon of {system.folder}/run")
        self.assertEqual(system.cli("show", "vrf").returncode, 0)

    def test_run_directory_that_cannot_be_used_is_named_with_the_reason(self):
        system = self.new_system(ROUTER)
        for folder, reason in ("/proc/nosuch", "No such file or directory"), (
                f"{system.folder}/{'d' * 90}", "at most 107 octets: set MPLS_VPN_MIB_RUN_DIR"):
            status, log = self.refused(system, MPLS_VPN_MIB_RUN_DIR=folder)
            self.assertEqual(status, 1)
            self.assertRegex(log, f"{folder}.*: .*{reason}")


class Check(ServiceTest):
    def test_valid_files_are_named_and_nothing_is_created(self):
        system = self.new_system(ROUTER)
        fresh = {"MPLS_VPN_MIB_RUN_DIR": str(system.folder / "no_run"), "MPLS_VPN_MIB_STATE_DIR": str(system.folder / "no_state")}
        result = subprocess.run([DAEMON, "--check"], env=dict(system.environment, **fresh), capture_output=True, text=True,
                                timeout=60 * SLOW, check=False)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(result.stdout, f"{system.folder}/etc/platform.yaml: valid (source: file)\n{system.router_file}: valid\n")
        self.assertEqual([file.name for file in system.folder.glob("no_*")], [])

    def test_error_is_named_with_its_place_and_has_the_status_of_a_start(self):
        system = self.started()
        system.kill("daemon")
        system.router_file.write_text("vrfs: [{name: red}]\ninterfaces: []\n")
        status, log = self.refused(system, "--check")
        self.assertEqual((status, log), (78, f"{system.router_file}:1:8: the VRF \"red\" needs an id or a table\n"))
        self.assertEqual(self.refused(system)[0], 78)
        system.router_file.unlink()
        self.assertEqual((self.refused(system, "--check")[0], self.refused(system)[0]), (1, 1))
        settings = system.folder / "etc/platform.yaml"
        settings.write_text("source: file\nrouter_file: router.yaml\nfrr: /nosuch/vtysh\n")
        system.router_file.write_text(ROUTER)
        status, log = self.refused(system, "--check")
        self.assertEqual(status, 1)
        self.assertIn("/nosuch/vtysh: ", log)
        settings.write_text("source: flie\n")
        self.assertEqual(self.refused(system, "--check"),
                         (78, f"{settings}:1:9: 'source' is 'kernel' or 'file', not 'flie'\n"))
        self.assertEqual(self.refused(system)[0], 78)

    def test_running_daemon_is_not_disturbed(self):
        system = self.started()
        self.assertEqual(self.refused(system, "--check"), (0, ""))
        self.assertEqual(system.cli("show", "vrf").returncode, 0)


if __name__ == "__main__":
    unittest.main()
