#!/usr/bin/env python3
"""Changes of route distinguishers and route targets with a whole daemon: "mplsvpn watch" records them while the router file,
an operator and the routing suite change them. The suite is a shell that prints what the test gives it."""
import json
import pathlib
import shlex
import shutil
import tempfile
import unittest

from system import BIN, ROOT, SystemTest, wait_until

ROUTER = {"vrfs": [{"name": "red", "table": 10, "rd": "65000:10",
                    "route_targets": {"ipv4": {"import": ["65000:10"], "export": ["65000:10"]}}},
                   {"name": "blue", "table": 20}],
          "interfaces": []}
CONFIGURED = """router bgp 65000 vrf blue
 address-family ipv4 unicast
  rd vpn export {rd}
  rt vpn both {rt}
  export vpn
 exit-address-family
exit
"""
IMPORTING = """router bgp 65000 vrf blue
 address-family ipv4 unicast
  import vrf red
 exit-address-family
exit
"""


class Changes(SystemTest):
    def setUp(self):
        self.suite = pathlib.Path(tempfile.mkdtemp(prefix="mpls_vpn_suite."))
        self.addCleanup(shutil.rmtree, self.suite, ignore_errors=True)
        self.router = json.loads(json.dumps(ROUTER))
        self.system = self.new_system(json.dumps(self.router),
                                      frr=f"{shlex.quote(str(ROOT / 'sources/frr/fake_vtysh'))} {self.suite}")
        self.configure(CONFIGURED.format(rd="65000:20", rt="65000:20"))
        for family in ("ipv4", "ipv6"):
            self.show(family, "{}")
        self.system.start_daemon()
        wait_until("what the suite has", lambda: "65000:20" in self.owned_by("frr"), 30)
        self.watch()

    def configure(self, text):
        self.write("bgpd.conf", text)

    def show(self, family, vrfs):
        self.write(f"show bgp vrf all {family} unicast route-leak json", '{"vrfs":' + vrfs + "}")

    def write(self, name, text):
        """Renamed into place: the shell never reads a partial file."""
        (self.suite / "new").write_text(text)
        (self.suite / "new").rename(self.suite / name)

    def owned_by(self, owner):
        return self.system.cli("config", "show", "--owner", owner).stdout

    def watch(self):
        self.system.spawn("watch", str(BIN / "mplsvpn"), "--json", "watch")
        wait_until("watch", lambda: "watching for" in self.system.log("watch"))
        self.seen = 0

    def lines(self):
        return self.system.events("watch")

    def shows(self, *expected):
        """Exactly these lines are printed, in any order: "rd red 65000:1 operator -> none"."""
        wait_until(str(expected), lambda: len(self.lines()) >= self.seen + len(expected), 30)
        new = [self.text(line) for line in self.lines()[self.seen:]]
        self.assertEqual(sorted(new), sorted(expected))
        self.seen += len(expected)

    @staticmethod
    def text(line):
        sides = [f"{line[side + 'Value']} {line[side + 'Origin']}" if line[side + "Value"] else "none" for side in ("old", "new")]
        family = f" {line['family']}" if line["family"] else ""
        assert line["origin"] == (line["newOrigin"] or line["oldOrigin"]) and line["lostBefore"] == 0, line
        return f"{line['change']} {line['vrfName']}{family} {sides[0]} -> {sides[1]}"

    def reload(self):
        self.system.router_file.write_text(json.dumps(self.router))
        self.system.cli("router", "reload", check=True)

    def config(self, *words):
        self.system.cli("config", *words, check=True)

    def test_router_file_and_operator(self):
        red = self.router["vrfs"][0]
        red["rd"] = "65000:11"
        red["route_targets"]["ipv4"]["import"] = ["65000:11"]
        self.reload()
        self.shows("rd red 65000:10 router file -> 65000:11 router file",
                   "rt import red ipv4 65000:10 router file -> 65000:11 router file")
        self.config("set", "vrf", "red", "rd", "65000:99")
        self.shows("rd red 65000:11 router file -> 65000:99 operator")
        self.config("set", "vrf", "red", "rt", "export", "65000:10", "ipv4")  # the value that is effective
        self.config("delete", "vrf", "red", "rt", "export", "65000:10", "ipv4")
        red["rd"] = "65000:12"  # overridden
        self.reload()
        self.config("delete", "vrf", "red", "rd")
        self.shows("rd red 65000:99 operator -> 65000:12 router file")
        self.config("set", "vrf", "red", "rt", "import", "65000:50", "ipv6")
        self.shows("rt import red ipv6 none -> 65000:50 operator")
        self.config("delete", "vrf", "red", "rt", "import", "65000:50", "ipv6")
        self.shows("rt import red ipv6 65000:50 operator -> none")

    def test_suite_configured_and_derived(self):
        self.configure(CONFIGURED.format(rd="65000:21", rt="65000:20"))
        self.shows("rd blue 65000:20 configured -> 65000:21 configured")
        self.config("set", "vrf", "blue", "rd", "65000:21")  # the same: no change
        self.config("delete", "vrf", "blue", "rd", "65000:21")
        self.derive("10.0.0.1:2", "10.0.0.1:3")
        self.configure(IMPORTING)
        wait_until("what is derived", lambda: "10.0.0.1:3" in self.owned_by("frr-derived"), 30)
        wait_until("what is configured", lambda: "65000:20" not in self.owned_by("frr"), 60)
        self.shows("rd blue 65000:21 configured -> 10.0.0.1:2 derived",
                   "rt import blue ipv4 none -> 10.0.0.1:3 derived",
                   "rt import blue ipv4 65000:20 configured -> none",
                   "rt export blue ipv4 65000:20 configured -> none")
        self.derive("10.0.0.9:2", "10.0.0.9:3")  # another router ID
        self.shows("rd blue 10.0.0.1:2 derived -> 10.0.0.9:2 derived",
                   "rt import blue ipv4 10.0.0.1:3 derived -> 10.0.0.9:3 derived")

    def derive(self, rd, imports):
        leaks = {"blue": {"routeDistinguisher": rd, "importRts": imports, "exportRts": "none"}}
        self.show("ipv4", json.dumps(leaks))

    def test_restart_shows_nothing_and_later_changes_once(self):
        self.config("set", "vrf", "red", "rd", "65000:99")
        self.shows("rd red 65000:10 router file -> 65000:99 operator")
        self.system.kill("watch")
        self.system.kill("daemon")
        self.system.start_daemon()
        (self.system.folder / "watch.log").unlink()
        self.watch()
        asked = self.suite / "bgpd.asked"
        before = len(asked.read_text())
        wait_until("answers of the suite", lambda: len(asked.read_text()) > before + 3, 30)
        self.config("delete", "vrf", "red", "rd", "65000:99")
        self.shows("rd red 65000:99 operator -> 65000:10 router file")

    def test_every_change_of_a_large_commit_is_shown(self):
        lines = [f"set vrf v{vrf} rt both 65000:{vrf}" for vrf in range(500)]
        load = self.system.folder / "many.conf"
        load.write_text("\n".join(lines) + "\n")
        self.config("load", str(load))
        self.shows(*[f"rt {direction} v{vrf} {family} none -> 65000:{vrf} operator" for vrf in range(500)
                     for direction in ("import", "export") for family in ("ipv4", "ipv6")])


if __name__ == "__main__":
    unittest.main()
