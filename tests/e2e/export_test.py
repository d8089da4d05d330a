#!/usr/bin/env python3
""""mplsvpn export": readers of the three forms, which are Python's, find what the router file has."""
import csv
import io
import json
import subprocess
import unittest

from system import BIN, SystemTest, wait_until

LONG = "a description of more than 200 characters " * 6
VRFS = {
    "red": {"rd": "65000:10", "description": 'Red, "head" office', "interfaces": ["ge1", "ge2"],
            "import": ["65000:10", "65000:99"], "export": ["65000:10"]},
    'a,"b"\\c': {"rd": "192.0.2.1:20", "description": "two, or three", "interfaces": [], "import": [], "export": ["65000:99"]},
    "blue": {"rd": "", "description": LONG, "interfaces": ["ge3"], "import": ["4200000000:1"], "export": []},
}


def router():
    """JSON is YAML."""
    return json.dumps({
        "vrfs": [{"name": name, "table": 10 + at, "description": vrf["description"], **({"rd": vrf["rd"]} if vrf["rd"] else {}),
                  "route_targets": {"ipv4": {"import": vrf["import"]}, "ipv6": {"export": vrf["export"], "import": vrf["import"][:1]}}}
                 for at, (name, vrf) in enumerate(VRFS.items())],
        "interfaces": [{"name": "ge0", "index": 1}] + [
            {"name": name, "index": 10 + int(name[2:]), "vrf": vrf}
            for vrf, facts in VRFS.items() for name in facts["interfaces"]]})


class Export(SystemTest):
    def setUp(self):
        self.system = self.new_system(router())
        self.system.start_daemon()
        wait_until("VRFs", lambda: len(self.system.cli_json("show", "vrf")) == len(VRFS))

    def exported(self, form, *options):
        """As octets: text mode would change line ends."""
        return subprocess.run([str(BIN / "mplsvpn"), *options, "export", "--format", form], env=self.system.environment, check=True,
                              capture_output=True, timeout=60).stdout.decode()

    def test_napalm_has_an_instance_for_each_vrf_and_one_for_the_rest(self):
        instances = json.loads(self.exported("napalm"))
        self.assertEqual(set(instances), {"default", *VRFS})
        for name, vrf in VRFS.items():
            self.assertEqual(instances[name], {
                "name": name, "type": "L3VRF", "state": {"route_distinguisher": vrf["rd"]},
                "interfaces": {"interface": {interface: {} for interface in vrf["interfaces"]}},
                "route_targets": {"import": vrf["import"], "export": vrf["export"]}})
        default = instances["default"]
        self.assertEqual((default["name"], default["type"], default["state"]), ("default", "DEFAULT_INSTANCE", {"route_distinguisher": ""}))
        self.assertEqual(default["interfaces"], {"interface": {"ge0": {}}})

    def test_netbox_has_each_route_target_once_and_vrfs_within_its_limits(self):
        exported = json.loads(self.exported("netbox", "--json"))
        self.assertEqual(exported["route_targets"], [{"name": name} for name in ("4200000000:1", "65000:10", "65000:99")])
        vrfs = {vrf["name"]: vrf for vrf in exported["vrfs"]}
        self.assertEqual(set(vrfs), set(VRFS))
        for name, vrf in VRFS.items():
            shown = vrfs[name]
            self.assertEqual((shown["rd"], shown["import_targets"], shown["export_targets"]),
                             (vrf["rd"] or None, vrf["import"], vrf["export"]))
            self.assertLessEqual(len(shown["description"]), 200)
            self.assertEqual(shown["description"] + shown["comments"], vrf["description"])

    def test_csv_has_a_row_for_each_vrf_in_which_quotes_and_line_ends_survive(self):
        text = self.exported("csv")
        header, *rows = csv.reader(io.StringIO(text, newline=""), strict=True)
        self.assertEqual(header, ["name", "rd", "description", "import_targets", "export_targets", "interfaces"])
        self.assertEqual(sorted(rows), sorted(
            [name, vrf["rd"], vrf["description"], " ".join(vrf["import"]), " ".join(vrf["export"]), " ".join(vrf["interfaces"])]
            for name, vrf in VRFS.items()))
        self.assertTrue(text.endswith("\r\n"))
        self.assertEqual(text.count("\r\n"), len(VRFS) + 1)

    def test_changes_are_in_the_next_export(self):
        self.system.cli("config", "set", "vrf", "red", "rt", "export", "65000:77", check=True)
        self.assertIn("65000:77", json.loads(self.exported("napalm"))["red"]["route_targets"]["export"])
        # Targets of a VRF that does not exist are of no instance.
        self.system.cli("config", "set", "vrf", "absent", "rt", "both", "65000:78", check=True)
        for form in "napalm", "netbox", "csv":
            self.assertNotIn("65000:78", self.exported(form))

    def test_words_that_make_no_export_are_usage_errors(self):
        for words, text in ((("export",), "--format"), (("export", "--format", "xml"), "xml"),
                            (("--json", "export", "--format", "csv"), "is not JSON")):
            result = self.system.cli(*words)
            self.assertEqual((result.returncode, result.stdout), (2, ""), words)
            self.assertIn(text, result.stderr)
        self.system.kill("daemon")
        self.assertEqual(self.system.cli("export", "--format", "csv").returncode, 3)


if __name__ == "__main__":
    unittest.main()
