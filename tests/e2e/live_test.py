#!/usr/bin/env python3
"""A running system follows its router: file reloads and the router commands show in the next walk."""
import unittest

from system import IF_CONF, SCALARS, System, SystemTest, expected_if_conf, pass_a_second, wait_until

ROUTER = """
vrfs:
  - {name: red, table: 10}
interfaces:
  - {name: ge0, index: 11, vrf: red, state: up, addresses: [10.0.0.1/24]}
  - {name: ge1, index: 12, state: up, addresses: [10.0.1.1/24]}
"""


class Live(SystemTest):
    def setUp(self):
        self.system = self.new_system(ROUTER)
        self.system.start_all()

    def shows(self, members):
        wait_until(f"walk of {members}", lambda: self.system.walk(IF_CONF) == expected_if_conf(members), 5)
        rows = {(row["vrfName"], row["ifConfIndex"]) for row in self.system.cli_json("show", "interfaces")}
        self.assertEqual(rows, set(members))

    def router(self, *words):
        self.system.cli("router", *words, check=True)

    def test_commands_add_move_and_remove(self):
        self.shows([("red", 11)])
        self.router("add-vrf", "blue")
        self.router("move", "ge1", "blue")
        self.shows([("red", 11), ("blue", 12)])
        self.router("move", "ge0", "blue")
        self.shows([("blue", 11), ("blue", 12)])
        self.router("leave", "ge0")
        self.shows([("blue", 12)])
        self.router("delete-interface", "ge1")
        self.shows([])

    def test_link_state_changes_the_active_vrfs(self):
        def active():
            return self.system.get_value(SCALARS + ".2.0")

        wait_until("red active", lambda: active() == "1")
        self.router("down", "ge0")
        wait_until("red inactive", lambda: active() == "0", 5)
        self.router("up", "ge0")
        wait_until("red active again", lambda: active() == "1", 5)

    def test_vrf_that_is_deleted_and_created_again(self):
        self.router("delete-vrf", "red")
        self.shows([])
        self.router("add-vrf", "red")
        self.shows([("red", 11)])

    def test_changed_file_is_applied_and_an_invalid_one_changes_nothing(self):
        system = self.system
        system.router_file.write_text(ROUTER.replace("{name: ge1, index: 12, ", "{name: ge1, index: 12, vrf: red, "))
        self.shows([("red", 11), ("red", 12)])
        system.router_file.write_text(ROUTER.replace("index: 12", "index: twelve"))
        wait_until("line and column in the log", lambda: "router.yaml:6:24:" in system.log("daemon"), 5)
        self.shows([("red", 11), ("red", 12)])
        result = system.cli("router", "reload")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("router.yaml:6:24:", result.stdout + result.stderr)

    def test_change_of_big_keeps_the_creation_time_and_writes_no_error(self):
        def times():
            return [row["creationTime"] for row in self.system.cli_json("show", "vrf")]

        def errors():
            return self.system.cli("trace", "mpls_vpn/error", check=True).stdout

        created, written = times(), errors()
        pass_a_second()
        self.system.router_file.write_text(ROUTER.replace("table: 10", "table: 10, big: true"))
        wait_until("the change", lambda: "big" in self.system.cli("router", "show", "red", check=True).stdout, 5)
        # The next change is answered after everything that the first one caused.
        self.system.router_file.write_text(ROUTER.replace("{name: ge1, index: 12, ", "{name: ge1, index: 12, vrf: red, "))
        self.shows([("red", 11), ("red", 12)])
        self.assertEqual(times(), created)
        # Each change of a VRF without an RD writes this record.
        for line in errors()[len(written):].splitlines():
            self.assertIn("bgp_vpn_rd_get failed", line)

    def test_interfaces_with_another_index_or_name_are_shown_as_in_the_file(self):
        def follow(**indexes):
            lines = "".join(f"  - {{name: {name}, index: {index}, vrf: red}}\n" for name, index in indexes.items())
            self.system.router_file.write_text(f"vrfs:\n  - {{name: red, table: 10}}\ninterfaces:\n{lines}")
            self.shows([("red", index) for index in sorted(indexes.values())])
            rows = self.system.cli_json("show", "interfaces")
            self.assertEqual({row["name"]: row["ifConfIndex"] for row in rows}, indexes)

        follow(ge0=11, ge1=22)  # was 12
        follow(ge0=11, ge1=22, ge9=12)
        follow(ge0=22, ge1=11, ge9=12)
        follow(ge0=22, ge1=12, ge9=11)
        follow(ge9=22, ge1=11, ge0=12)
        follow(ge9=11)


class LostConnection(unittest.TestCase):
    """The membership service fails at the first change after the start; the daemon connects again by itself."""

    def after(self, *words):
        faults = {"MPLS_VPN_MIB_FAULTS": "vmap_service=5@2+1", "MPLS_VPN_MIB_DEBUG": "vmap"}
        with System(ROUTER, environment=faults) as system:
            system.start_all()
            system.cli("router", *words, check=True)
            wait_until("the second connection",
                       lambda: system.log("daemon").count("connection established") == 2, 10)
            return system.walk(IF_CONF)

    def test_interface_that_joined_meanwhile_is_there(self):
        self.assertEqual(self.after("move", "ge1", "red"), expected_if_conf([("red", 11), ("red", 12)]))

    def test_interface_that_left_meanwhile_is_removed(self):
        self.assertEqual(self.after("leave", "ge0"), expected_if_conf([]))

    def test_vrf_that_was_deleted_meanwhile_is_removed(self):
        self.assertEqual(self.after("delete-vrf", "red"), expected_if_conf([]))


if __name__ == "__main__":
    unittest.main()
