#!/usr/bin/env python3
"""Commits of operators beside a router file: their users, commits to be confirmed, suppressed items, over restarts."""
import json
import os
import pwd
import unittest

from system import SystemTest, wait_until

ROUTER = {"vrfs": [{"name": "red", "table": 10, "description": "file", "rd": "65000:10"}], "interfaces": []}


class Commits(SystemTest):
    def setUp(self):
        self.system = self.new_system(json.dumps(ROUTER))
        self.system.start_daemon()
        self.user = pwd.getpwuid(os.geteuid()).pw_name

    def config(self, *words, check=True):
        return self.system.cli("config", *words, check=check)

    def shown(self):
        return self.config("show", "vrf", "red").stdout.splitlines()

    def description(self):
        return self.system.cli_json("get", "vrf/red")["description"]

    def restart(self):
        self.system.kill("daemon")
        self.system.start_daemon()

    def test_commit_prints_its_number_and_user(self):
        made = self.config("set", "vrf", "red", "description", "operator").stdout
        newest, first = self.system.cli_json("config", "history")
        self.assertEqual(made, f"commit {newest['id']} by {self.user}\n")
        self.assertEqual((newest["user"], first["owner"], first["user"]), (self.user, "file", None))
        self.restart()
        self.assertEqual(self.system.cli_json("config", "history")[0]["user"], self.user)

    def test_unconfirmed_commit_is_undone_also_by_the_next_daemon(self):
        self.config("set", "--confirmed", "1s", "vrf", "red", "description", "tried")
        wait_until("the former description", lambda: self.description() == "file")
        self.config("set", "--confirmed", "2s", "vrf", "red", "description", "tried again")
        self.restart()
        self.assertEqual(self.description(), "tried again")
        self.assertIn("is undone at", self.config("show").stderr)
        self.assertIn("is undone at", self.system.cli("show", "status").stderr)
        wait_until("the former description", lambda: self.description() == "file")
        self.assertRegex(self.system.log("daemon"), r"commit \d+ was not confirmed in time: commit \d+ undoes it")

    def test_confirmed_commit_stays(self):
        self.config("set", "--confirmed", "1h", "vrf", "red", "description", "confirmed")
        self.assertRegex(self.config("confirm").stdout, rf"^commit \d+ by {self.user} is confirmed$")
        self.restart()
        comment = self.system.cli_json("config", "history")[0]["comment"]
        self.assertEqual(comment, f"set vrf red description confirmed, confirmed by {self.user}")
        self.assertEqual(self.description(), "confirmed")
        self.assertEqual(self.config("show").stderr, "")
        self.assertIsNone(self.system.cli_json("show", "status")["confirmation"])

    def test_backup_restores_the_items_of_an_operator_on_an_empty_daemon(self):
        for words in (("vrf", "blue", "description", 'said "no" \\ \u00e4'), ("vrf", "red", "rd", "192.0.2.1:7"),
                      ("vrf", "red", "rt", "both", "65000:11", "ipv4"), ("vrf", "red", "threshold", "ipv6", "90", "80"),
                      ("vrf", "red", "static", "10.1.0.0/16", "interface", "ge1", "via", "10.0.0.2"),
                      ("vrf", "blue", "rt", "import", "4200000000:1", "ipv6"), ("traps", "vrf-up")):
            self.config("set", *words)
        self.config("suppress", "vrf", "red", "description")
        backup = self.config("show", "--owner", "cli").stdout
        self.assertGreaterEqual(len(backup.splitlines()), 8)
        file = self.system.folder / "backup"
        file.write_text(backup)
        empty = self.new_system()
        empty.start_daemon()
        self.assertEqual(empty.cli("config", "show").stdout, "")
        empty.cli("config", "load", str(file), check=True)
        self.assertEqual(empty.cli("config", "show", "--owner", "cli").stdout, backup)
        effective = [line for line in backup.splitlines() if line != "suppress vrf red description file"]
        self.assertEqual(len(effective), len(backup.splitlines()) - 1)
        self.assertEqual(empty.cli("config", "show").stdout.splitlines(), effective)

    def test_backup_that_replaces_deletes_what_was_set_since(self):
        self.config("set", "vrf", "blue", "description", "before")
        self.config("suppress", "vrf", "red", "description")
        file = self.system.folder / "backup"
        file.write_text(self.config("show", "--owner", "cli").stdout)
        self.config("set", "vrf", "blue", "vni", "77")
        self.config("set", "vrf", "blue", "description", "since")
        self.config("load", str(file))
        self.assertIn("vni 77", self.config("show", "--owner", "cli").stdout)
        self.assertIn("- vrf blue vni 77", self.config("load", "--replace", "--dry-run", str(file)).stdout)
        self.config("load", "--replace", str(file))
        self.assertEqual(self.config("show", "--owner", "cli").stdout, file.read_text())
        self.assertEqual(self.system.cli("config", "load", "--replace", "--candidate", str(file)).returncode, 2)
        self.config("load", "--replace", "/dev/null")
        self.assertEqual(self.config("show", "--owner", "cli").stdout, "")
        self.assertIsNotNone(self.description())

    def test_suppressed_item_stays_without_effect(self):
        self.config("suppress", "vrf", "red", "description")
        self.assertIsNone(self.description())
        red = {**ROUTER["vrfs"][0], "description": "edited"}
        self.system.router_file.write_text(json.dumps({**ROUTER, "vrfs": [red]}))
        self.system.cli("router", "reload", check=True)
        self.restart()
        self.assertIsNone(self.description())
        self.config("unsuppress", "vrf", "red")
        self.assertEqual(self.description(), "edited")

    def test_item_of_a_missing_vrf_is_set_with_a_warning(self):
        result = self.config("set", "vrf", "typo", "rd", "65000:7")
        self.assertEqual(result.stderr, "mplsvpn: warning: VRF typo does not exist; its configuration waits until it is created\n")
        self.assertIn("set vrf typo rd 65000:7 ipv4\n", self.config("show").stdout)
        self.assertEqual(self.config("set", "vrf", "red", "rd", "65000:8").stderr, "")
        self.assertTrue(self.config("set", "vrf", "redd", "rd", "65000:9").stderr.endswith(" until it is created; did you mean red?\n"))

    def test_distinguisher_of_the_router_file_is_deleted_there(self):
        wait_until("the VRF", lambda: [row["rd"] for row in self.system.cli_json("show", "vrf")] == ["65000:10"])
        for verb, words in ("delete", ("rd",)), ("delete", ("rd", "65000:10")), ("suppress", ("rd",)):
            refused = self.config(verb, "vrf", "red", *words, check=False)
            self.assertEqual(refused.returncode, 1)
            self.assertEqual(refused.stderr, f'mplsvpn: vrf red {" ".join(words)} is set by "file" with the VRF: change it there, or '
                             'override it with "config set vrf red rd RD"\n')
        self.assertEqual(self.config("delete", "vrf", "red", "rd", "65000:11", check=False).stderr, "mplsvpn: vrf red rd 65000:11 is not set\n")

    def test_distinguisher_of_the_router_file_is_shown_with_its_owner(self):
        wait_until("the VRF", lambda: [row["rd"] for row in self.system.cli_json("show", "vrf")] == ["65000:10"])
        shown = self.config("show", "vrf", "red", "rd")
        self.assertEqual(shown.stdout, "")
        self.assertIn('vrf red rd is set by "file" with the VRF: change it there, or override it with ', shown.stderr)
        self.assertEqual(self.config("show", "--owner", "cli", "vrf", "red", "rd").stderr, "")
        self.config("set", "vrf", "red", "rd", "65000:8")
        shown = self.config("show", "vrf", "red", "rd")
        self.assertIn("set vrf red rd 65000:8 ipv4\n", shown.stdout)
        self.assertEqual(shown.stderr, "")

    def test_interface_that_joins_a_missing_vrf_is_a_warning(self):
        self.system.cli("router", "add-interface", "ge7", "index", "7", check=True)
        warning = 'VRF nosuch does not exist; "router add-vrf nosuch" creates it'
        moved = self.system.cli("router", "join", "ge7", "nosuch", check=True)
        self.assertEqual((moved.stdout, moved.stderr), ("interface ge7 is in VRF nosuch\n", f"mplsvpn: warning: {warning}\n"))
        moved = self.system.cli("--json", "router", "join", "ge7", "nosuch", check=True)
        self.assertEqual(json.loads(moved.stdout), {"text": "interface ge7 is in VRF nosuch"})
        self.assertEqual(json.loads(moved.stderr), {"warning": {"message": warning}})
        self.assertEqual(self.system.cli("router", "join", "ge7", "red", check=True).stderr, "")

    def test_warnings_of_interfaces_say_how_many_more_there_are(self):
        lines = self.system.folder / "lines"
        lines.write_text("".join(f"set vrf red rip interface none{number}\n" for number in range(130)))
        warnings = self.config("load", str(lines)).stderr.splitlines()
        self.assertEqual((len(warnings), warnings[-1]), (101, "mplsvpn: warning: whether 30 more interfaces exist is not checked; "
                                                              "\"show interfaces\" lists all"))

    def test_warnings_say_how_many_more_there_are(self):
        lines = self.system.folder / "lines"
        lines.write_text("".join(f"set vrf none{number} rd 65000:{number}\n" for number in range(130)))
        warnings = self.config("load", str(lines)).stderr.splitlines()
        self.assertEqual((len(warnings), warnings[-1]), (101, "mplsvpn: warning: whether 30 more VRFs exist is not checked; \"show vrf\" "
                                                         "lists all"))
        lines.write_text("".join(f"suppress vrf red rt import 65000:{number} ipv4\n" for number in range(1000, 1130)))
        warnings = self.config("load", str(lines)).stderr.splitlines()
        self.assertEqual((len(warnings), warnings[-1]), (101, "mplsvpn: warning: no other owner sets 30 more items that are suppressed"))

    def test_unknown_vrf_is_an_error_with_any_owner(self):
        self.config("set", "vrf", "later", "description", "waits")
        for words in ("vrf", "nosuch"), ("--owner", "file", "vrf", "nosuch"):
            shown = self.config("show", *words, check=False)
            self.assertEqual((shown.returncode, shown.stdout, shown.stderr), (1, "", "mplsvpn: VRF nosuch does not exist\n"), words)
        self.assertEqual(self.config("show", "--owner", "file", "vrf", "later").stdout, "")

    def test_item_of_a_missing_interface_is_set_with_a_warning(self):
        warning = "mplsvpn: warning: interface nosuch0 does not exist; its configuration waits until it is created\n"
        for words in ("rip", "interface"), ("ospf", "1", "area", "0", "interface"), ("static", "10.1.0.0/16", "interface"):
            self.assertEqual(self.config("set", "vrf", "red", *words, "nosuch0").stderr, warning)
        self.assertIn("set vrf red rip interface nosuch0\n", self.config("show").stdout)
        self.system.cli("router", "add-interface", "nosuch0", "index", "99", check=True)
        self.assertEqual(self.config("set", "vrf", "red", "ripng", "interface", "nosuch0").stderr, "")

    def test_conditions_of_the_default_vrf_are_set_with_a_warning(self):
        for words in ("low-water", "ipv4", "5", "1"), ("watch", "10.0.0.0/8"):
            self.assertIn("routes outside of VRFs are not followed", self.config("set", "vrf", "default", *words).stderr)
        self.assertEqual(self.config("set", "vrf", "red", "watch", "10.0.0.0/8").stderr, "")

    def test_suppression_of_what_no_owner_sets_has_a_warning(self):
        for vrf in "rde", "red":
            result = self.config("suppress", "vrf", vrf, "rt", "import", "65000:98", "ipv4")
            self.assertEqual(result.stderr, f"mplsvpn: warning: no other owner sets vrf {vrf} rt import 65000:98 ipv4; it is "
                             "suppressed as soon as one does\n")
        self.assertEqual(self.config("suppress", "vrf", "red", "description").stderr, "")

    def test_load_of_everything_takes_over_the_files_items_until_rollback(self):
        first = self.system.cli_json("config", "history")[0]["id"]
        everything = self.system.folder / "all.conf"
        everything.write_text(self.config("show").stdout)
        self.assertIn("takes over items of other owners (1 of file)", self.config("load", str(everything)).stderr)
        self.config("rollback", str(first))
        self.assertEqual(self.config("show", "--owner", "cli").stdout, "")
        self.assertEqual(self.shown(), ["set vrf red description file"])


if __name__ == "__main__":
    unittest.main()
