#!/usr/bin/env python3
"""The items of notifications and of the re-issue time: set, set again, replayed after a kill and deleted; and the threshold
events to which the daemon subscribes."""
import json
import unittest

from system import SCALARS, SystemTest, name_and_rest, wait_until

UP, DOWN, MID_EXCEEDED, MAX_EXCEEDED, CLEARED = 1, 2, 3, 4, 6  # of mplsL3VpnNotifications
ALL = (UP, DOWN, MID_EXCEEDED, MAX_EXCEEDED, CLEARED)
# What an exercise raises while the item is set.
SWITCHES = {"vrf-up": (UP,), "vrf-down": (DOWN,), "mid-thresh-exc": (MID_EXCEEDED,), "max-thresh-exc": (MAX_EXCEEDED,),
            "max-thresh-clr": (CLEARED,), "ilg-lbl-exc": (), "all": ALL}
STAGES = ("set", "again", "killed", "deleted")  # each with a VRF of its own, whose interface has raised nothing yet


class Switches(SystemTest):
    def setUp(self):
        names = [f"{stage}{number}" for number in range(len(SWITCHES)) for stage in STAGES] + ["last"]
        self.number = {name: 100 + number for number, name in enumerate(names)}
        interfaces = [{"name": name + "a", "index": number, "vrf": name, "state": "down", "addresses": ["10.0.0.1/24"]}
                      for name, number in self.number.items()]
        interfaces.append({"name": "defaulta", "index": 9, "state": "down", "addresses": ["10.0.0.1/24"]})
        self.system = self.new_system(json.dumps({
            "vrfs": [{"name": name, "table": number} for name, number in self.number.items()], "interfaces": interfaces}))
        self.system.start_trapd()
        self.system.start_all()
        self.expected = []
        lines = [f"set vrf {name} threshold ipv4 3 1\n" for name in (*names, "default", *(
            f"later{number}" for number in range(len(SWITCHES))))]
        (self.system.folder / "limits").write_text("".join(lines))
        self.do("config", "load", str(self.system.folder / "limits"))

    def do(self, *words):
        self.system.cli(*words, check=True)

    def exercise(self, vrf, raises):
        """Brings the VRF up and down, its routes above its thresholds and back, which raises these traps in this order."""
        self.do("router", "up", vrf + "a")
        self.do("router", "down", vrf + "a")
        if vrf == "default":
            return  # not a VRF, and a router file has no routes of it
        for verb, number in (("add", 1), ("add", 2), ("add", 3), ("delete", 3), ("delete", 2), ("delete", 1)):
            self.do("router", f"{verb}-route", vrf, f"10.{number}.0.0/16", "via", "10.0.0.2")
        self.expected += [(number, vrf) for number in raises]

    def exercise_later(self, vrf, raises):
        """The same on a VRF that is created now and whose thresholds were configured before."""
        self.do("router", "add-vrf", vrf)
        self.do("router", "add-interface", vrf + "a", "index", str(1000 + len(self.expected)), "vrf", vrf, "down", "address",
                "10.0.0.1/24")
        self.exercise(vrf, raises)

    def received(self):
        """(notification, VRF) of every trap received."""
        found = []
        for number, variables in self.system.traps():
            index = variables[0][0][5:] if number not in (UP, DOWN) else variables[0][0][5:-1]
            found.append((number, name_and_rest(index)[0]))
        return found

    def check_received(self):
        try:
            wait_until("traps", lambda: len(self.received()) >= len(self.expected))
        finally:
            self.assertEqual(self.received(), self.expected)

    def scalars(self):
        shown = self.system.cli_json("show", "scalars")
        raw = self.system.cli_json("get", "scalars")
        self.assertEqual(raw, {key: shown[key] for key in raw})
        return shown["notificationEnable"], shown["maxThresholdNotifTime"]

    def scalars_become(self, enabled, reissue):
        wait_until("scalars", lambda: self.scalars() == (enabled, reissue))
        truth = "1" if enabled else "2"
        wait_until("scalars in the MIB", lambda: [self.system.get_value(f"{SCALARS}.{column}.0") for column in (4, 6)]
                   == [truth, str(reissue)])

    def test_switches(self):
        for number, (item, raises) in enumerate(SWITCHES.items()):
            enabled = 1 if item == "all" else 0
            self.do("config", "set", "traps", item)
            self.scalars_become(enabled, 0)
            self.exercise(f"set{number}", raises)
            self.exercise_later(f"later{number}", raises)
            self.exercise("default", ())
            self.do("config", "set", "traps", item)
            self.exercise(f"again{number}", raises)
            self.check_received()
            self.system.kill("daemon")
            self.system.start_daemon()
            self.scalars_become(enabled, 0)
            self.exercise(f"killed{number}", raises)
            self.do("config", "delete", "traps", item)
            self.scalars_become(0, 0)
            self.exercise(f"deleted{number}", ())
            self.check_received()
        self.do("config", "set", "traps", "all")
        self.exercise("last", ALL)  # received in order: no other trap was on its way
        self.check_received()

    def test_reissue_time(self):
        for words, seconds in ((("set", "5"), 5), (("set", "7"), 7), (("delete",), 0)):
            self.do("config", words[0], "traps", "notif-reissue-time", *words[1:])
            self.scalars_become(0, seconds)
            self.system.kill("daemon")
            self.system.start_daemon()
            self.scalars_become(0, seconds)

    def test_threshold_events(self):
        """Thresholds are crossed in both directions, found exceeded by a new process, and deleted."""
        self.do("config", "set", "traps", "all")
        router = json.loads(self.system.router_file.read_text())
        above = [{"generate": 5, "prefix": "20.0.0.0/24", "next_hop": "10.0.0.2"}]
        router["vrfs"] = [{"name": "set0", "table": 100, "routes": above}, {"name": "later0", "table": 99, "routes": above}]
        self.system.router_file.write_text(json.dumps(router))
        self.do("router", "reload")
        raised = [(MID_EXCEEDED, "set0"), (MAX_EXCEEDED, "set0"), (MID_EXCEEDED, "later0"), (MAX_EXCEEDED, "later0")]
        self.expected = sorted(raised)
        wait_until("both", lambda: len(self.received()) >= 4)
        self.assertEqual(sorted(self.received()), sorted(raised))
        self.system.kill("daemon")
        self.system.start_daemon()
        wait_until("both again", lambda: len(self.received()) >= 8)
        self.assertEqual(sorted(self.received()[4:]), sorted(raised))
        rows = {row["name"]: (row["currNumRoutes"], row["midThresh"], row["highThresh"])
                for row in self.system.cli_json("show", "vrf")}
        self.assertEqual(rows, {"set0": (5, 1, 3), "later0": (5, 1, 3)})
        self.expected = self.received()
        for vrf in ("set0", "later0"):
            self.do("config", "set", "vrf", vrf, "threshold", "ipv4", "10", "7")
            self.do("config", "set", "vrf", vrf, "threshold", "ipv4", "5", "4")
            self.do("config", "delete", "vrf", vrf, "threshold", "ipv4")
            self.expected += [(CLEARED, vrf), (MID_EXCEEDED, vrf), (MAX_EXCEEDED, vrf), (CLEARED, vrf)]
        self.do("router", "up", "set0a")
        self.expected.append((UP, "set0"))
        self.check_received()


if __name__ == "__main__":
    unittest.main()
