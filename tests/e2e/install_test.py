#!/usr/bin/env python3
"""What `cmake --install` makes of a build is a system that runs: everything is where the service files and the programs
look for it, and routes are counted, which takes the modules."""
import json
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

from system import BIN, SLOW, System, wait_until

ROUTER = """\
vrfs: [{name: red, table: 10, routes: [{prefix: 10.1.0.0/16, type: blackhole, protocol: static}]}]
interfaces: []
"""
FILES = {
    "usr/sbin/mpls_vpn_mib": 0o755,
    "usr/sbin/mpls_vpn_snmp": 0o755,
    "usr/bin/mplsvpn": 0o755,
    "usr/lib/mpls_vpn_mib/mib/libipv4_forwardmib.dll": None,
    "usr/lib/mpls_vpn_mib/mib/libipv6_forwardmib.dll": None,
    "usr/lib/systemd/system/mpls_vpn_mib.service": 0o644,
    "usr/lib/systemd/system/mpls_vpn_snmp.service": 0o644,
    "usr/share/bash-completion/completions/mplsvpn": 0o644,
}


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory(prefix="mpls_vpn_install.")
        cls.addClassCleanup(holder.cleanup)
        cls.root = pathlib.Path(holder.name)
        subprocess.run(["cmake", "--install", str(BIN.parent), "--prefix", "/usr"], check=True, timeout=100 * SLOW,
                       env=dict(os.environ, DESTDIR=str(cls.root)), stdout=subprocess.DEVNULL)

    def test_nothing_else_and_nothing_less_is_installed(self):
        installed = {str(file.relative_to(self.root)): file.stat().st_mode & 0o777
                     for file in self.root.rglob("*") if file.is_file()}
        self.assertEqual(sorted(installed), sorted(FILES))
        for name, mode in FILES.items():
            if mode is not None:
                self.assertEqual(oct(installed[name]), oct(mode), name)

    def test_services_start_what_is_installed(self):
        for service in self.root.rglob("*.service"):
            program = re.search(r"^ExecStart=(\S+)", service.read_text(), re.MULTILINE)[1]
            self.assertTrue((self.root / program.lstrip("/")).is_file(), program)

    def test_installed_daemon_counts_routes_with_the_installed_modules(self):
        with System(ROUTER) as lab:
            lab.environment["MPLS_VPN_MIB_LIB_DIR"] = str(self.root / "usr/lib/mpls_vpn_mib")
            daemon = lab.spawn("daemon", str(self.root / "usr/sbin/mpls_vpn_mib"))

            def shown():
                self.assertIsNone(daemon.poll(), lab.log("daemon"))
                result = subprocess.run([str(self.root / "usr/bin/mplsvpn"), "--json", "show", "vrf"], env=lab.environment,
                                        capture_output=True, text=True, timeout=60 * SLOW, check=False)
                return result.returncode == 0 and json.loads(result.stdout)

            vrf = wait_until("the VRF", shown, 30)[0]
            self.assertEqual((vrf["name"], vrf["currNumRoutes"]), ("red", 1))


if __name__ == "__main__":
    unittest.main()
