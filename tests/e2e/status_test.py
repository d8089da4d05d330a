#!/usr/bin/env python3
""""mplsvpn show status" of real processes: what it states is what the processes, the files and the kernel are."""
import re
import shutil
import subprocess
import unittest

from system import BIN, SystemTest, wait_until

ROUTER = "vrfs: [{name: red, table: 10}]\ninterfaces: [{name: ge0, index: 1, vrf: red, addresses: [10.1.0.1/24]}]\n"


class Status(SystemTest):
    def started(self, **options):
        system = self.new_system(ROUTER, **options)
        system.start_daemon()
        return system

    def status(self, system):
        return system.cli_json("show", "status")

    def source(self, system):
        return self.status(system)["sources"][0]

    def test_invalid_router_file_is_stated_until_it_is_corrected(self):
        system = self.started()
        loaded = self.source(system)
        self.assertEqual((loaded["name"], loaded["state"], loaded["problem"]), ("file", "up", None))
        self.assertLessEqual(abs(loaded["lastAnswer"] - system.router_file.stat().st_mtime), 30)
        system.router_file.write_text(ROUTER.replace("table: 10", "table: ten"))
        wait_until("the error", lambda: self.source(system)["state"] == "down")
        self.assertIn(f"{system.router_file}:1:", self.source(system)["problem"])
        self.assertIn(f"{system.router_file}:1:", system.cli("show", "status").stdout)
        system.router_file.write_text(ROUTER)
        wait_until("the router", lambda: self.source(system)["state"] == "up")

    def test_missing_routes_are_counted(self):
        system = self.started()
        self.assertEqual(self.status(system)["missingRoutes"],
                         {"lowTables": 0, "absentPrefixes": 0, "watchedPrefixes": 0, "notWatchedPrefixes": 0, "unreadTables": 0})
        system.cli("config", "set", "vrf", "red", "low-water", "ipv6", "2", "0", check=True)
        for prefix in "10.1.0.0/16", "10.2.0.0/16":
            system.cli("config", "set", "vrf", "red", "watch", prefix, check=True)
        system.cli("router", "add-route", "red", "10.1.0.0/16", "via", "10.1.0.2", check=True)
        self.becomes("the counts", lambda: self.status(system)["missingRoutes"],
                     {"lowTables": 1, "absentPrefixes": 1, "watchedPrefixes": 2, "notWatchedPrefixes": 0, "unreadTables": 0})
        self.assertRegex(system.cli("show", "status").stdout, r"\n *missing routes +1 table low, 1 of 2 watched prefixes absent\n")

    def test_databases_are_those_of_the_state_directory(self):
        system = self.new_system(ROUTER)
        (system.folder / "state/configuration.db").write_text("not a database")
        system.start_daemon()
        shown = {each["name"]: each for each in self.status(system)["databases"]}
        files = {"configuration": "configuration.db", "checkpoint": "checkpoint.db", "traps": "traps", "trapHistory": "trap_history"}
        self.assertEqual(list(shown), list(files))
        for name, database in shown.items():
            self.assertEqual(database["path"], str(system.folder / "state" / files[name]))
            self.assertGreater(database["kibibytes"], 0)
        self.assertEqual([shown[name]["setAside"] for name in ("configuration", "checkpoint")], [1, 0])

    def test_missing_route_modules_are_named(self):
        system = self.new_system(ROUTER)
        system.environment["MPLS_VPN_MIB_LIB_DIR"] = str(system.folder / "lib")
        system.start_daemon()
        modules = self.status(system)["routeModules"]
        self.assertFalse(modules["loaded"])
        self.assertIn(str(system.folder / "lib/mib/libipv4_forwardmib.dll"), modules["problems"][0])
        shutil.copytree(BIN.parent / "lib", system.folder / "lib")
        system.cli("show", "routes", "red", check=True)
        self.assertEqual(self.status(system)["routeModules"], {"loaded": True, "problems": []})

    def test_front_end_is_the_process_that_receives_traps(self):
        system = self.started()
        self.assertIsNone(self.status(system)["frontEnd"])
        system.cli("config", "set", "traps", "all", check=True)
        system.cli("router", "down", "ge0", check=True)
        wait_until("a trap", lambda: self.status(system)["traps"]["waiting"] == 1)
        system.start_snmpd()
        system.start_agent()
        front_end = wait_until("the front end", lambda: self.status(system)["frontEnd"])
        module = system.module is not None
        self.assertEqual(front_end["kind"], "module" if module else "subAgent")
        self.assertEqual(front_end["process"], system.processes["snmpd" if module else "agent"].pid)
        wait_until("no trap", lambda: self.status(system)["traps"]["waiting"] == 0)
        version = subprocess.run([str(BIN / "mplsvpn"), "--version"], capture_output=True, text=True, check=True).stdout.split()[-1]
        self.assertEqual(front_end["version"], version)
        self.assertRegex(system.cli("show", "status").stdout,
                         f"process {front_end['process']}, connected for 00:00:.., version {re.escape(version)}\n")


class KernelStatus(SystemTest):
    def test_kernel_is_up_with_its_release(self):
        system = self.new_system(source="kernel")
        system.start_daemon()
        kernel = system.cli_json("show", "status")["sources"][0]
        self.assertEqual((kernel["name"], kernel["state"]), ("kernel", "up"))
        release = subprocess.run(["uname", "-r"], capture_output=True, text=True, check=True).stdout.strip()
        self.assertEqual(kernel["version"], release)


if __name__ == "__main__":
    unittest.main()
