#!/usr/bin/env python3
"""The examples for managers work as they are written, with stock programs: SNMPv3 for reads and notifications, names in
snmptrapd's log, OIDs of the objects to watch."""
import os
import re
import subprocess
import unittest

from system import ROOT, SLOW, System, wait_until

EXAMPLES = ROOT / "examples/snmp"
MIBS = ["-m", "MPLS-L3VPN-STD-MIB", "-M", str(ROOT / "packaging/mibs")]
L3VPN = ".1.3.6.1.2.1.10.166.11"
ROUTER = """\
vrfs: [{name: red, table: 10}]
interfaces: [{name: ge0, index: 11, vrf: red, state: up, addresses: [10.0.0.1/24]}]
"""
V3 = (EXAMPLES / "snmpv3.conf").read_text()
CREATE_USER = re.search(r"^createUser .*$", V3, re.MULTILINE)[0]
ADDRESS = "127.0.0.3"  # of the router for its managers
AUTHENTICATION, ENCRYPTION = re.findall(r'"(.*?)"', CREATE_USER)


class Station(System):
    """A router with the example's settings, and a station that accepts its informs."""

    def snmpd_settings(self):
        ours = V3.replace(" STATION", f" 127.0.0.1:{self.trap_port}").replace(" mpls_vpn_snmp", " root")
        ours = ours.replace("udp:ADDRESS:161\n", f"udp:{ADDRESS}:{self.port}\n")
        return ours + "\nrocommunity public\n"  # for the tests' own look at the sub-agent

    def trap_sink(self):
        return ""

    def trapd_settings(self):
        # createUser is for the file of snmptrapd's own, which this one replaces here.
        return super().trapd_settings() + CREATE_USER + "\n"

    def trapd_format(self):
        return MIBS

    def manager(self, level, oid):
        """Exit status and output of a walk with this security level."""
        result = subprocess.run(
            ["snmpwalk", "-v3", "-u", "manager", "-l", level, "-a", "SHA-256", "-A", AUTHENTICATION, "-x", "AES", "-X", ENCRYPTION,
             "-t", str(2 * SLOW), "-r", "1", *MIBS, f"{ADDRESS}:{self.port}", oid],
            env=self.environment, capture_output=True, text=True, timeout=60 * SLOW, check=False)
        return result.returncode, result.stdout + result.stderr


class SnmpV3(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.system = Station(ROUTER)
        cls.enterClassContext(cls.system)
        cls.system.start_trapd()
        cls.system.start_all()

    def test_manager_reads_the_mib_and_the_interfaces_with_encryption_only(self):
        status, output = self.system.manager("authPriv", L3VPN)
        self.assertEqual(status, 0, output)
        self.assertIn('mplsL3VpnVrfPerfCurrNumRoutes."red" = Gauge32: 0', output)
        for subtree in ".1.3.6.1.2.1.1.3", ".1.3.6.1.2.1.2.1":
            self.assertRegex(self.system.manager("authPriv", subtree)[1], r" = (Timeticks|INTEGER): ")
        for level in "authNoPriv", "noAuthNoPriv":
            status, output = self.system.manager(level, L3VPN)
            self.assertNotEqual(status, 0, output)
            self.assertNotIn("mplsL3VpnVrf", output)

    def test_manager_reads_nothing_else(self):
        self.assertIn("No Such Object", self.system.manager("authPriv", ".1.3.6.1.2.1.25.1")[1])

    def test_station_logs_informs_by_name(self):
        self.system.cli("config", "set", "traps", "all", check=True)
        self.system.cli("router", "down", "ge0", check=True)
        line = (r'^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d UDP: \[127\.0\.0\.1\].* = OID: MPLS-L3VPN-STD-MIB::mplsL3VpnVrfDown, '
                r'MPLS-L3VPN-STD-MIB::mplsL3VpnIfConfRowStatus\."red"\.11 = INTEGER: active\(1\), '
                r'MPLS-L3VPN-STD-MIB::mplsL3VpnVrfOperStatus\."red" = INTEGER: down\(2\)$')
        wait_until("the inform", lambda: re.search(line, self.system.log("trapd"), re.MULTILINE), 15)


class Pages(unittest.TestCase):
    def test_oids_of_the_page_are_those_of_the_objects(self):
        rows = re.findall(r"^ *\| `(mplsL3Vpn\S+)` \| `([\d.]+)` \|", (EXAMPLES / "librenms.md").read_text(), re.MULTILINE)
        self.assertGreater(len(rows), 3)
        environment = {key: value for key, value in os.environ.items() if not key.startswith("MIB")}
        for name, oid in rows:
            shown = subprocess.run(["snmptranslate", *MIBS, "-On", f"MPLS-L3VPN-STD-MIB::{name}"], env=environment, check=True,
                                   capture_output=True, text=True, timeout=60).stdout
            self.assertEqual(shown.strip(), oid, name)


if __name__ == "__main__":
    unittest.main()
