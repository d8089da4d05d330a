#!/usr/bin/env python3
"""Debian's prometheus-snmp-exporter with the module of the examples: it reads a stock snmpd, names VRFs as text, and shows what the
command line shows. The module is what the packaged generator makes of its input and of the MIB module that we install."""
import os
import re
import subprocess
import tempfile
import unittest
import urllib.request

from system import ROOT, SLOW, System, wait_until

FOLDER = ROOT / "examples/prometheus/snmp"
MIBS = f"{ROOT}/packaging/mibs:{ROOT}/tests/data/smi"
ROUTER = """\
vrfs:
  - {name: red, table: 10, routes: [{prefix: 10.1.0.0/16, type: blackhole, protocol: static}]}
  - {name: customer-4711, table: 20}
interfaces:
  - {name: ge0, index: 11, vrf: red, state: up, addresses: [10.0.0.1/24]}
  - {name: ge1, index: 12, vrf: red}
"""
# Of the exporter, and of the rows that `mplsvpn --json show vrf` shows.
COLUMNS = {"mplsL3VpnVrfOperStatus": "operStatus", "mplsL3VpnVrfActiveInterfaces": "activeInterfaces",
           "mplsL3VpnVrfAssociatedInterfaces": "associatedInterfaces", "mplsL3VpnVrfPerfCurrNumRoutes": "currNumRoutes",
           "mplsL3VpnVrfConfMidRteThresh": "midThresh", "mplsL3VpnVrfConfHighRteThresh": "highThresh"}


class Exporter(unittest.TestCase):
    def fetched(self, system, port):
        url = f"http://127.0.0.1:{port}/snmp?module=mplsvpn&target=127.0.0.1:{system.port}"
        with urllib.request.urlopen(url, timeout=20 * SLOW) as answer:
            return answer.read().decode()

    def test_it_shows_what_the_command_line_shows(self):
        with System(ROUTER) as system:
            system.start_all()
            system.cli("config", "set", "vrf", "red", "threshold", "ipv4", "10", "5", check=True)
            wait_until("the threshold", lambda: system.cli_json("show", "vrf", "red")[0]["midThresh"] == 5)
            ports = []

            def command(port):
                ports[:] = [port]
                return "prometheus-snmp-exporter", f"--config.file={FOLDER}/snmp.yml", f"--web.listen-address=127.0.0.1:{port}"

            system.start_on_a_port("exporter", 0, command, lambda port: "Listening on" in system.log("exporter"))
            text = self.fetched(system, ports[0])
            for metric, key in COLUMNS.items():
                found = dict(re.findall(rf'^{metric}{{mplsL3VpnVrfName="(.*)"}} (\d+)$', text, re.MULTILINE))
                self.assertEqual(found, {row["name"]: str(row[key]) for row in system.cli_json("show", "vrf")}, text)
            self.assertIn("\nmplsL3VpnConfiguredVrfs 2\n", text)

    def test_module_is_what_the_generator_makes(self):
        with tempfile.TemporaryDirectory(prefix="mpls_vpn_e2e.") as folder:
            made = os.path.join(folder, "snmp.yml")
            subprocess.run(["prometheus-snmp-generator", "generate", "-o", made], cwd=FOLDER, check=True, capture_output=True,
                           env=dict(os.environ, MIBS="MPLS-L3VPN-STD-MIB", MIBDIRS=MIBS), timeout=60 * SLOW)
            with open(made) as module:
                self.assertEqual(module.read(), (FOLDER / "snmp.yml").read_text())

    def test_rules_and_their_tests_pass_promtool(self):
        for words in ("check", "config", "prometheus.yml"), ("test", "rules", "mplsvpn_snmp.test.yml"):
            result = subprocess.run(["promtool", *words], cwd=FOLDER, capture_output=True, text=True, check=False)
            self.assertEqual(result.returncode, 0, result.stdout + result.stderr)


if __name__ == "__main__":
    unittest.main()
