#!/usr/bin/env python3
"""What the daemon finds damaged or unreadable in its state directory: it starts, and what it set aside, where, and what to do about
it is in "mplsvpn show status" and in "mplsvpn doctor"."""
import contextlib
import os
import pathlib
import re
import sqlite3
import subprocess
import unittest

from doctor_system import DoctorTest
from system import wait_until


class StateFiles(DoctorTest):
    def damage(self, system, name, sql):
        """Ends the daemon, changes its database and starts another one."""
        system.kill("daemon")
        with contextlib.closing(sqlite3.connect(system.folder / "state" / name)) as database, database:
            database.execute(sql)
        system.start_daemon()

    def database(self, system, name):
        return next(each for each in system.cli_json("show", "status")["databases"] if each["name"] == name)

    def follow(self, advice):
        """Its commands of sqlite3, which are for a daemon that does not run. Returns the rows that the first one shows."""
        words = re.fullmatch(r"systemctl stop mpls_vpn_mib; sqlite3 (\S+) '(.+?)'; systemctl start mpls_vpn_mib; set again what is "
                             r"missing; then the same with '(.+)'", advice)
        self.assertIsNotNone(words, advice)
        with contextlib.closing(sqlite3.connect(words[1])) as database, database:
            shown = [row for part in words[2].split(";") for row in database.execute(part)]
            database.executescript(words[3])
        return shown

    def test_rows_in_quarantine_are_counted_until_they_are_removed(self):
        system = self.started()
        for prefix in "10.1.0.0/16", "10.2.0.0/16", "10.3.0.0/16":
            system.cli("config", "set", "vrf", "red", "watch", prefix, check=True)
        self.assertEqual([self.database(system, name)["quarantined"] for name in ("configuration", "checkpoint")], [0, 0])
        self.assertEqual(self.diagnose(system, "databases"), ("ok", ""))
        self.damage(system, "configuration.db", "UPDATE node SET checksum = checksum + 1 WHERE path LIKE '%10.1.0.0%' OR path LIKE '%10.2.0.0%'")
        self.damage(system, "checkpoint.db", "UPDATE record SET checksum = checksum + 1")
        configuration, checkpoint = (self.database(system, name) for name in ("configuration", "checkpoint"))
        self.assertEqual((configuration["quarantined"], configuration["setAside"]), (2, 0))
        self.assertEqual((checkpoint["quarantined"], checkpoint["setAside"]), (1, 0))
        self.assertRegex(system.cli("show", "status").stdout, r"\nconfiguration +\d+ KiB +0 +2 ")
        for path, rows, table in ((configuration["path"], 2, "quarantine_node"), (checkpoint["path"], 1, "quarantine_record")):
            self.assert_found(system, "databases", "warning", f"{path}: {rows} rows could not be used and have no effect; they are "
                              f"stored in its tables {table}")
        advice = self.fixes(system, "databases")
        self.assertEqual(len(advice), 2)
        system.kill("daemon")
        shown = str([self.follow(each) for each in advice])
        for lost in "10.1.0.0", "10.2.0.0":
            self.assertIn(lost, shown)
        self.assertNotIn("10.3.0.0", shown)
        system.start_daemon()
        self.assertEqual(self.diagnose(system, "databases"), ("ok", ""))

    def raise_trap(self, system):
        system.cli("config", "set", "traps", "all", check=True)
        system.cli("router", "down", "ge0", check=True)
        wait_until("a trap", lambda: system.cli_json("show", "status")["traps"]["waiting"] == 1)

    def test_queue_that_cannot_be_read_is_set_aside_and_the_daemon_starts(self):
        system = self.started()
        self.raise_trap(system)
        system.kill("daemon")
        queue = system.folder / "state/traps"
        before = queue.read_bytes()
        system.environment["MPLS_VPN_MIB_FAULTS"] = "queue_file_read=5"
        system.start_daemon()
        aside = pathlib.Path(f"{queue}.unusable.1")
        self.assertEqual(aside.read_bytes(), before)
        self.assertIn(f"{queue} cannot be read (Input/output error) and is stored as {aside}: the notifications in it are not sent",
                      system.log("daemon"))
        shown = self.database(system, "traps")
        self.assertEqual((shown["setAside"], shown["problem"]), (1, None))
        self.assert_found(system, "databases", "warning", f"{queue} could not be used 1 times")
        system.cli("router", "down", "ge0", check=True)
        wait_until("a trap", lambda: system.cli_json("show", "status")["traps"]["waiting"] == 1)

    @unittest.skipUnless(os.geteuid() == 0, "SKIPPED: only root becomes another user and mounts")
    def test_queue_that_can_neither_be_read_nor_moved_is_left_and_the_daemon_starts(self):
        system = self.started()
        self.raise_trap(system)
        system.kill("daemon")
        queue = system.folder / "state/traps"
        before = queue.read_bytes()
        subprocess.run(["mount", "--bind", queue, queue], check=True)  # a name that cannot be changed
        self.addCleanup(subprocess.run, ["umount", "-l", queue], check=True)
        system.environment["MPLS_VPN_MIB_FAULTS"] = "queue_file_read=5"
        system.start_daemon()
        self.assertRegex(system.log("daemon"), f"{queue} is not used: it cannot be read .Input/output error. nor set aside")
        self.assertIn("it cannot be read (Input/output error) nor set aside", self.database(system, "traps")["problem"])
        self.assert_found(system, "databases", "error", f"{queue} is not used: it cannot be read (Input/output error)")
        self.assertIn(f"mv {queue} to another folder; systemctl restart mpls_vpn_mib", system.cli("doctor", "--only", "databases").stdout)
        system.cli("router", "down", "ge0", check=True)
        wait_until("a trap", lambda: system.cli_json("show", "status")["traps"]["waiting"] == 1)
        self.assertEqual(queue.read_bytes(), before)


if __name__ == "__main__":
    unittest.main()
