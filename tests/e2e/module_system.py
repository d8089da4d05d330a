"""For tests of the module inside snmpd: a stock snmpd that loads it, with many routes."""
import json
import re
import subprocess
import unittest

from snmp_client import SnmpClient
from system import MODULE, ROUTE_ENTRY, SLOW, VRF_ENTRY, SystemTest, dotted, name_index, oid_tuple, wait_until

UP_TIME = oid_tuple("1.3.6.1.2.1.1.3.0")
RD_OF_RED = dotted(VRF_ENTRY + (4,) + name_index("red"))  # which no test reads before
FIRST_ROUTE = ROUTE_ENTRY + (7,)
ROWS = 2000
ROUTER = json.dumps({
    "vrfs": [{"name": "red", "table": 10, "rd": "65000:1", "description": "Red Rail",
              "routes": [{"generate": ROWS, "prefix": "20.0.0.0/24", "next_hop": "192.0.2.1"}]},
             {"name": "blue", "table": 20}],
    "interfaces": [{"name": f"ge{number}", "index": number + 10, "vrf": "red", "state": "up", "addresses": [f"10.0.{number}.1/24"]}
                   for number in range(5)]})
DLMOD = "1.3.6.1.4.1.2021.13.14.2.1"  # dlmodEntry: 2 name, 3 path, 5 status (2 unloaded, 4 load, 5 unload, 6 create, 7 delete)


@unittest.skipUnless(MODULE.exists(), "SKIPPED: mpls_vpn_snmpd.so is not built (libsnmp-dev)")
class ModuleTest(SystemTest):
    def new_module_system(self, module=MODULE):
        started = self.new_system(ROUTER)
        started.module = module
        return started

    def start(self, snmpd_settings=""):
        started = self.new_module_system()
        started.more_snmpd_settings = snmpd_settings
        started.start_daemon()
        started.start_snmpd()
        started.wait_registered()
        wait_until("the routes", lambda: len(self.column(started, 7)) == ROWS)
        return started

    def column(self, running, number):
        return running.walk(dotted(ROUTE_ENTRY + (number,)), "bulkwalk", ("-Cr50",))

    def client(self, running, timeout=10):
        client = SnmpClient(running.port, timeout * SLOW)
        self.addCleanup(client.close)
        return client

    def error_status(self, running, oid):
        result = running.snmp("get", oid)
        return "genError" in result.stdout + result.stderr

    def set_module(self, running, *arguments):
        result = subprocess.run(["snmpset", "-v2c", "-c", "private", "-One", "-t", "5", "-r", "0", f"127.0.0.1:{running.port}",
                                 *arguments], env=running.environment, capture_output=True, text=True, check=False)
        self.assertEqual(result.returncode, 0, result.stderr)


def blocks_of_the_module(report):
    """The errors and leaks of valgrind's report in which the module takes part: it is C++, all else is C."""
    names = ("snmpd::", "agent::", "tables::", "mpls_vpn_snmpd", "operator new")
    blocks = [block for block in re.split(r"==\d+== \n", report) if any(name in block for name in names)]
    return [block for block in blocks if "at 0x" in block]  # and not what valgrind says about itself
