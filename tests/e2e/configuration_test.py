#!/usr/bin/env python3
"""A VRF's configuration from the router file and the command line to the MIB: a change is in the next walk, all else
survives kills, and a VRF or an interface that is created again has its configuration again."""
import copy
import json
import subprocess
import unittest

from system import (BIN, IF_CONF, IF_ENTRY, ROOT, ROOT_OID, RAW, RT_ENTRY, VRF_ENTRY, SystemTest, bits, dotted, name_index,
                    pass_a_second)

DESCRIPTION, RD, MID, HIGH = 3, 4, 9, 10

ROUTER = {
    "vrfs": [
        {"name": "red", "table": 10, "description": "Red Rail", "rd": "65000:10",
         "route_targets": {"ipv4": {"import": ["65000:10"], "export": ["65000:10"]}},
         "thresholds": {"ipv4": {"maximum": 100, "mid": 80}}, "bgp": {"as": 65000, "neighbors": ["10.0.0.2"]},
         "ospf": [{"process": 1, "area": 0, "interfaces": ["ge0"]}]},
        {"name": "blue", "table": 20, "description": "Blue Bank", "rip": {"interfaces": ["ge1", "ge0"]}},
    ],
    "interfaces": [
        {"name": "ge0", "index": 11, "vrf": "red", "state": "up", "addresses": ["10.0.0.1/24"]},
        {"name": "ge1", "index": 12, "vrf": "blue", "state": "up", "addresses": ["10.0.0.1/24"]},
    ],
}


class Configuration(SystemTest):
    def setUp(self):
        self.router = copy.deepcopy(ROUTER)
        self.red, self.blue = self.router["vrfs"]
        self.system = self.new_system(json.dumps(self.router))
        self.system.start_all()

    def reload(self):
        self.system.router_file.write_text(json.dumps(self.router))
        self.system.cli("router", "reload", check=True)

    def vrf(self, name, *columns):
        """Columns of the VRF's row, from a walk."""
        rows = dict(self.system.walk(dotted(VRF_ENTRY), options=RAW))
        return [rows.get(VRF_ENTRY + (column,) + name_index(name)) for column in columns]

    def targets(self, vrf):
        """["1 65000:10"]: type and text, in the order of their numbers."""
        start = RT_ENTRY + (4,) + name_index(vrf)
        return [f"{oid[-1]} {value[1:-1]}" for oid, value in self.system.walk(dotted(RT_ENTRY), options=RAW)
                if oid[:len(start)] == start]

    def protocols(self, vrf, index):
        rows = dict(self.system.walk(IF_CONF, options=RAW))
        return rows.get(IF_ENTRY + (3,) + name_index(vrf) + (index,))

    def times(self):
        """{VRF: (creation, last change)} in the daemon's seconds."""
        rows = [self.system.cli_json("get", f"vrf/{name}") for name in ("red", "blue")]
        return {row["name"]: (row["creationTime"], row["confLastChanged"]) for row in rows}

    def everything(self):
        """What must not change: all columns of VRFs, route targets and interfaces except the relative times."""
        def is_time(oid):
            return oid[:len(VRF_ENTRY) + 1] in (VRF_ENTRY + (5,), VRF_ENTRY + (12,))
        rows = self.system.walk(dotted(ROOT_OID + (1, 2)), options=RAW)
        return [(oid, value) for oid, value in rows if not is_time(oid)]

    # --- The router file ---

    def test_reload_is_in_the_next_walk_and_stamps_the_changed_vrf_only(self):
        self.assertEqual(self.targets("red"), ["1 65000:10", "2 65000:10"])
        before = self.times()
        pass_a_second()
        self.red["description"] = "Red Rail, sold"
        self.red["rd"] = "65000:11"
        self.red["route_targets"] = {"ipv4": {"import": ["65000:7", "65000:10"]}}
        self.red["thresholds"]["ipv4"] = {"maximum": 200, "mid": 150}
        self.red["rip"] = {"interfaces": ["ge0"]}
        self.reload()
        self.becomes("route targets", lambda: self.targets("red"), ["1 65000:7", "1 65000:10"])
        self.becomes("row", lambda: self.vrf("red", DESCRIPTION, RD, MID, HIGH),
                     ['"Red Rail, sold"', '"65000:11"', "150", "200"])
        self.becomes("protocols", lambda: self.protocols("red", 11), bits(1, 2, 3))
        after = self.times()
        self.assertEqual(after["red"][0], before["red"][0], "the creation time is unchanged")
        self.assertGreater(after["red"][1], before["red"][1])
        self.assertEqual(after["blue"], before["blue"])

    def test_removed_configuration_leaves_nothing(self):
        for key in ("description", "route_targets", "thresholds"):
            del self.red[key]
        self.reload()
        self.becomes("route targets", lambda: self.targets("red"), [])
        self.becomes("row", lambda: self.vrf("red", DESCRIPTION, MID, HIGH), ['""', "0", "0"])

    def test_invalid_file_changes_nothing(self):
        before = self.everything(), self.times()
        self.red["description"] = "new"
        self.red["route_targets"] = {"import": ["none"]}
        self.system.router_file.write_text(json.dumps(self.router))
        result = self.system.cli("router", "reload")
        self.assertNotEqual(result.returncode, 0)
        self.assertRegex(result.stdout + result.stderr, r':1:\d+: "none" is not a route target such as ')
        self.assertEqual((self.everything(), self.times()), before)

    # --- The command line ---

    def test_command_line_overrides_the_file(self):
        set_red = ("config", "set", "vrf", "red")
        self.system.cli(*set_red, "description", "by", "hand", check=True)
        self.system.cli(*set_red, "rt", "import", "65000:99", "ipv4", check=True)
        self.becomes("description", lambda: self.vrf("red", DESCRIPTION), ['"by hand"'])
        self.becomes("route targets", lambda: self.targets("red"), ["1 65000:10", "1 65000:99", "2 65000:10"])
        self.red["description"] = "the file's own"
        self.reload()
        self.assertEqual(self.vrf("red", DESCRIPTION), ['"by hand"'])
        self.system.cli("config", "delete", "vrf", "red", "description", check=True)
        self.becomes("description", lambda: self.vrf("red", DESCRIPTION), ['"the file\'s own"'])

    # --- The format of AS numbers ---

    def completed(self, *words):
        """What the completion of bash offers after these words of the command line."""
        script = """. "$1"; shift; COMP_WORDS=("$@" ""); COMP_CWORD=$#; _mplsvpn; echo "${COMPREPLY[*]}" """
        environment = dict(self.system.environment, PATH=f"{BIN}:{self.system.environment['PATH']}")
        return subprocess.run(["bash", "-c", script, "bash", str(ROOT / "packaging/bash-completion/mplsvpn"), "mplsvpn", *words],
                              env=environment, capture_output=True, text=True, check=True).stdout.split()

    def test_completion_offers_the_words_and_vrfs_that_may_follow(self):
        self.assertEqual(self.completed("config", "set", "vrf"), ["blue", "red"])
        self.assertEqual(self.completed("config", "set", "vrf", "red", "rt"), ["both", "export", "import"])
        self.assertEqual(self.completed("config", "set", "vrf", "red", "rt", "both", "65000", ":", "1"),
                         ["evpn", "ipv4", "ipv6"])
        self.assertEqual(self.completed("config", "set", "vrf", "red", "rt", "both"), [])

    def test_format_of_as_numbers_applies_without_a_restart_and_survives_one(self):
        small = ["65000:100", "0.65000:100"]
        plain, dotted = "4200000000:30", "64086.59904:30"
        self.red["rd"] = "4200000000:1"
        self.red["route_targets"] = {"ipv4": {"import": [*small, plain], "export": [*small, plain]}}
        self.blue["route_targets"] = {"ipv4": {"both": small}}
        self.reload()

        def rows(last):
            return [f"{direction} {target}" for direction in (1, 2) for target in (*small, last)]

        def texts():
            return self.targets("red"), self.vrf("red", RD)

        in_asplain, in_asdot = (rows(plain), ['"4200000000:1"']), (rows(dotted), ['"64086.59904:1"'])
        self.becomes("asplain", texts, in_asplain)
        before = self.times()
        pass_a_second()
        self.system.cli("config", "set", "bgp", "as-format", "asdot", check=True)
        self.becomes("asdot", texts, in_asdot)
        after = self.times()
        self.assertGreater(after["red"][1], before["red"][1], "its texts changed")
        self.assertEqual(after["blue"], before["blue"], "its texts are the same in every format")
        self.system.cli("config", "set", "vrf", "red", "rt", "import", "65536:7", "ipv4", check=True)
        self.becomes("a new route target", lambda: "1 1.0:7" in self.targets("red"), True)
        self.system.cli("config", "delete", "vrf", "red", "rt", "import", "65536:7", "ipv4", check=True)
        self.becomes("asdot", texts, in_asdot)
        self.check_restart()
        self.assertEqual(texts(), in_asdot)
        self.system.cli("config", "delete", "bgp", "as-format", check=True)
        self.becomes("asplain again", texts, in_asplain)

    def test_format_of_as_numbers_in_the_router_file(self):
        self.red["route_targets"] = {"ipv4": {"import": ["4200000000:30"]}}
        self.router["as_format"] = "asdot+"
        self.reload()
        self.becomes("asdot+", lambda: self.targets("red"), ["1 64086.59904:30"])
        self.system.cli("config", "set", "bgp", "as-format", "asplain", check=True)
        self.becomes("the command line's", lambda: self.targets("red"), ["1 4200000000:30"])
        self.system.cli("config", "delete", "bgp", "as-format", check=True)
        self.becomes("the file's", lambda: self.targets("red"), ["1 64086.59904:30"])
        del self.router["as_format"]
        self.reload()
        self.becomes("asplain", lambda: self.targets("red"), ["1 4200000000:30"])

    # --- Restarts ---

    def check_restart(self):
        before = self.everything(), self.times()
        self.system.kill("daemon")
        self.system.start_daemon()
        self.becomes("everything", self.everything, before[0])
        self.assertEqual(self.times(), before[1])

    def test_kill_and_restart_change_nothing(self):
        for _ in range(2):
            pass_a_second()
            self.check_restart()

    def test_file_changed_while_the_daemon_was_down_is_effective_afterwards(self):
        self.system.kill("daemon")
        self.red["description"] = "meanwhile"
        self.system.router_file.write_text(json.dumps(self.router))
        self.system.start_daemon()
        self.becomes("description", lambda: self.vrf("red", DESCRIPTION), ['"meanwhile"'])

    def test_vrf_that_is_created_again_has_its_configuration(self):
        before = self.everything()
        table = self.red.pop("table")
        self.red["state"] = "referenced"
        self.reload()
        self.becomes("row", lambda: self.vrf("red", DESCRIPTION), [None])
        del self.red["state"]
        self.red["table"] = table
        self.reload()
        self.becomes("everything", self.everything, before)

    def test_interface_that_returns_to_its_vrf_has_its_protocols(self):
        red, blue = bits(1, 2), bits(3)
        self.assertEqual(self.protocols("red", 11), red)
        self.system.cli("router", "move", "ge0", "blue", check=True)
        self.becomes("protocols in blue", lambda: self.protocols("blue", 11), blue)
        self.assertIsNone(self.protocols("red", 11))
        self.system.cli("router", "move", "ge0", "red", check=True)
        self.becomes("protocols in red", lambda: self.protocols("red", 11), red)


if __name__ == "__main__":
    unittest.main()
