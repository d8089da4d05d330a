#!/usr/bin/env python3
""""mplsvpn explain" of a daemon that reads a router file: links of the kernel and of the routing suite are not checked, the others
are. tests/kernel/system_explain.py has the links of a real provider-edge router."""
import json
import unittest

from system import ROOT, SharedSystemTest, System, wait_until

PREFIX, ABSENT = "10.11.0.0/16", "10.99.0.0/16"


class Explain(SharedSystemTest):
    router = (ROOT / "examples/small-router.yaml").read_text()

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        wait_until("VRFs", lambda: len(cls.system.cli_json("show", "vrf")) == 3)

    def explain(self, *words, prefix=None):
        """(first broken link, {link: state}, {link: text})"""
        shown = self.system.cli("--json", "explain", *words)
        self.assertEqual(shown.stderr, "")
        explained = json.loads(shown.stdout)
        broken, links = explained["firstBroken"], explained["links"]
        self.assertEqual(shown.returncode, 1 if broken else 0)
        self.assertEqual((explained["vrfName"], explained["prefix"]), (words[0], prefix or (*words, None)[1]))
        self.assertTrue(all((link["fix"] is not None) == (link["state"] == "broken") for link in links), links)
        self.assertEqual(broken, next((link["id"] for link in links if link["state"] == "broken"), None))
        return broken, {link["id"]: link["state"] for link in links}, {link["id"]: link["text"] for link in links}

    def test_routes_that_cannot_be_read_are_not_absent(self):
        with System() as alone:  # without a daemon
            shown = json.loads(alone.cli("--json", "explain", "red", "10.11.0.1").stdout)
        address, = (link for link in shown["links"] if link["id"] == "address")
        self.assertEqual(address["state"], "notChecked")
        self.assertIn("the routes of the VRF are not known: ", address["text"])

    def test_device_is_not_missing_without_a_daemon_that_reads_the_kernel(self):
        with System() as alone:
            shown = alone.cli("explain", "nosuch-vrf")
        self.assertNotIn("\nbroken", "\n" + shown.stdout)
        self.assertIn("No link is known to be broken: device could not be looked at (", shown.stdout)

    def test_row_of_the_daemon_decides(self):
        broken, states, texts = self.explain("red", PREFIX)
        self.assertIsNone(broken)
        self.assertEqual({name for name, state in states.items() if state == "ok"}, {"vrf", "row"})
        self.assertEqual(texts["kernel"], "the daemon reads a router file, not this kernel")
        row, = self.system.cli_json("show", "routes", "red", PREFIX)
        self.assertIn(f"next hop 10.10.1.2, protocol {row['protoName']}", texts["row"])
        self.assertEqual(self.explain("red", ABSENT)[0], "row")

    def test_address_is_explained_by_its_longest_route(self):
        for vrf, address in ("red", "10.11.1.2"), ("blue", "2001:db8:99::1"):
            prefix, = {row["prefix"] for row in self.system.cli_json("show", "routes", vrf, address)}
            broken, states, texts = self.explain(vrf, address, prefix=prefix)
            self.assertEqual((broken, states["address"], states["row"]), (None, "ok", "ok"))
            self.assertTrue(texts["address"].endswith(f" is that of {prefix}"), texts)

    def test_address_to_which_no_route_leads_is_the_broken_link(self):
        row, = self.system.cli_json("show", "routes", "red", "10.99.0.1")
        self.assertEqual((row["prefix"], row["typeName"]), ("0.0.0.0/0", "blackhole"))
        broken, _, texts = self.explain("red", "10.99.0.1", prefix="10.99.0.1/32")
        self.assertEqual((broken, texts["address"]),
                         ("address", "the VRF has 0.0.0.0/0, which drops packets (blackhole) for 10.99.0.1"))
        broken, _, texts = self.explain("blue", "10.99.0.1", prefix="10.99.0.1/32")
        self.assertEqual((broken, texts["address"]), ("address", "the VRF has no route for 10.99.0.1"))
        self.assertTrue(self.system.cli("explain", "blue", "10.99.0.1").stdout.endswith(
            "\nFirst broken link: address\nfix: add a route to 10.99.0.1 in VRF blue; mplsvpn show routes blue lists its routes\n"))
        self.assertIn("drops packets (blackhole), protocol ", self.explain("red", "0.0.0.0/0")[2]["row"])

    def test_route_that_is_removed_is_the_broken_link(self):
        self.system.cli("router", "add-route", "red", "10.77.0.0/16", "via", "10.10.1.2", check=True)
        self.assertIsNone(self.explain("red", "10.77.0.0/16")[0])
        self.system.cli("router", "delete-route", "red", "10.77.0.0/16", "via", "10.10.1.2", check=True)
        self.assertEqual(self.explain("red", "10.77.0.0/16")[0], "row")

    def test_targets_that_another_vrf_exports(self):
        _, states, texts = self.explain("red")
        self.assertEqual((states["rd"], texts["rd"], states["imports"]), ("ok", "65000:10", "notChecked"))
        self.system.cli("config", "set", "vrf", "green", "rt", "export", "65000:99", check=True)
        self.assertIn("65000:99 from VRF green", self.explain("red")[2]["imports"])
        self.assertIn("65000:99, imported by VRF red", self.explain("green")[2]["exports"])
        self.system.cli("config", "delete", "vrf", "green", "rt", "export", "65000:99", check=True)

    def test_vrf_that_is_down_or_unknown(self):
        self.assertEqual(self.explain("green")[0], "vrf")
        self.assertEqual(self.explain("nosuch")[0], "vrf")
        self.assertEqual(self.explain("nosuch", PREFIX)[0], "vrf")

    def test_text_names_the_first_broken_link_last(self):
        shown = self.system.cli("explain", "red", ABSENT)
        self.assertEqual(shown.returncode, 1)
        self.assertTrue(shown.stdout.endswith("\nFirst broken link: row\nfix: mplsvpn show routes red; mplsvpn show status\n"), shown.stdout)

    def test_wrong_words_are_usage_errors(self):
        for words in (("explain",), ("explain", "red", "10.11.0.1/16"), ("explain", "red", "x"),
                      ("explain", "red", PREFIX, "more")):
            result = self.system.cli(*words)
            self.assertEqual((result.returncode, result.stdout), (2, ""), words)


if __name__ == "__main__":
    unittest.main()
