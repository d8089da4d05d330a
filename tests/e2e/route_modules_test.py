#!/usr/bin/env python3
"""The daemon without the routing table's modules: requests for routes fail, counts are unknown, the log stays short."""
import shutil
import unittest

from system import BIN, L3VPN, SystemTest, wait_until

ROUTER = """
vrfs:
""" + "".join(f"  - {{name: v{number}, table: {number}, routes: [{{prefix: 10.0.0.0/8, next_hop: 10.0.0.2}}]}}\n"
              for number in range(10, 30))
ROUTES = L3VPN + ".1.4.1"
VRFS = L3VPN + ".1.2.2"
PERFORMANCE = L3VPN + ".1.3.1.1"
ROUTES_OF_V10 = PERFORMANCE + ".3.3.118.49.48"
ADDED_OF_V10 = PERFORMANCE + ".1.3.118.49.48"
MODULES = ("libipv4_forwardmib.dll", "libipv6_forwardmib.dll")


class WithoutRouteModules(SystemTest):
    def setUp(self):
        self.system = self.new_system(ROUTER)
        self.modules = self.system.folder / "lib/mib"
        self.modules.mkdir(parents=True)
        self.system.environment["MPLS_VPN_MIB_LIB_DIR"] = str(self.modules.parent)
        self.system.start_all()

    def log_lines(self):
        return self.system.log("daemon").splitlines()

    def test_start_names_each_missing_file_once_with_the_loaders_reason(self):
        logged = [line for line in self.log_lines() if "requests for routes fail" in line]
        self.assertEqual(logged, ["mpls_vpn_mib: requests for routes fail, because a module cannot be loaded: "
                                f"{self.modules}/{name}: cannot open shared object file: No such file or directory"
                                for name in MODULES])

    def test_requests_for_routes_fail_and_say_why(self):
        for words in (("show", "routes", "v10"), ("show", "routes", "v10", "10.1.1.1"),
                      ("get", "route-next/v10/1/0/1/0/0"), ("get", "route/v10/1/8/1/0a000000/0a000002")):
            result = self.system.cli(*words)
            self.assertEqual(result.returncode, 1, words)
            self.assertEqual(result.stdout, "", words)
            self.assertIn("A route module cannot be loaded", result.stderr, words)
            self.assertNotIn("\\x", result.stderr, words)
        self.assertTrue(self.system.cli("show", "routes", "v10").stderr.startswith("mplsvpn: show routes v10: A route module"))

    def test_route_table_is_an_error_and_not_empty_over_snmp(self):
        answer = self.system.snmp("walk", ROUTES)
        self.assertIn("genError", answer.stdout + answer.stderr)
        self.assertEqual(len([oid for oid, _ in self.system.walk(VRFS)]), 20 * 14)

    def test_route_counts_are_unknown_on_the_command_line(self):
        self.assert_counts_are_unknown()

    def test_one_missing_module_makes_counts_unknown(self):
        shutil.copy(BIN.parent / "lib/mib" / MODULES[0], self.modules / MODULES[0])
        self.assert_counts_are_unknown()

    def assert_counts_are_unknown(self):
        rows = self.system.cli_json("show", "vrf") + self.system.cli_json("show", "vrf", "v10", "detail")
        self.assertEqual([row["currNumRoutes"] for row in rows], [None] * 21)
        lines = self.system.cli("show", "vrf", "v10").stdout.splitlines()
        self.assertEqual(dict(zip(lines[0].split(), lines[1].split()))["ROUTES"], "unknown")
        self.assertIn("unknown now;", self.system.cli("show", "vrf", "v10", "detail").stdout)

    def test_route_counts_are_an_error_over_snmp_and_other_objects_of_the_row_are_not(self):
        answer = self.system.snmp("get", ROUTES_OF_V10)
        self.assertIn("genError", answer.stdout + answer.stderr)
        answer = self.system.snmp("getnext", PERFORMANCE + ".3")
        self.assertIn("genError", answer.stdout + answer.stderr)
        self.assertIn("0", self.system.snmp("get", ADDED_OF_V10).stdout)
        self.assertIn("No Such Instance", self.system.snmp("get", PERFORMANCE + ".3.1.120").stdout)

    def test_requests_do_not_fill_the_log(self):
        before = len(self.log_lines())
        for _ in range(5):
            self.assertEqual(len(self.system.cli_json("show", "vrf")), 20)
            self.system.cli("show", "routes", "v10")
            self.system.walk(VRFS)
        self.assertEqual(self.log_lines()[before:], [])

    def test_modules_that_are_put_into_place_are_used_at_the_next_request(self):
        self.assertEqual(self.system.cli("show", "routes", "v10").returncode, 1)
        for name in MODULES:
            shutil.copy(BIN.parent / "lib/mib" / name, self.modules / name)
        self.assertEqual([route["prefix"] for route in self.system.cli_json("show", "routes", "v10")], ["10.0.0.0/8"])
        self.assertEqual(self.system.cli_json("show", "vrf", "v10")[0]["currNumRoutes"], 1)
        wait_until("routes over SNMP", lambda: self.system.snmp("walk", ROUTES).returncode == 0)
        wait_until("the count over SNMP", lambda: "1" in self.system.snmp("get", ROUTES_OF_V10).stdout.split())
        self.assertIn("mpls_vpn_mib: the route modules are loaded; routes are shown", self.log_lines()[-1])


if __name__ == "__main__":
    unittest.main()
