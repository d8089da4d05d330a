#!/usr/bin/env python3
"""10,000 VRFs with 10 interfaces each from the file source: loaded, ready, and walked whole."""
import time
import unittest

from system import IF_CONF, SCALARS, SystemTest, check_increasing, parse_walk


class Scale(SystemTest):
    def test_ten_thousand_vrfs_are_loaded_and_walked(self):
        system = self.new_system("generate: {vrfs: 10000, interfaces_per_vrf: 10}\n")
        start = time.monotonic()
        system.start_all()
        print(f"ready after {time.monotonic() - start:.1f} s")
        self.assertEqual(system.get_value(SCALARS + ".1.0"), "10000")
        self.assertEqual(system.get_value(SCALARS + ".3.0"), "100000")
        start = time.monotonic()
        result = system.snmp("bulkwalk", IF_CONF + ".1.5", timeout=10, options=("-Cr50",))
        rows = parse_walk(result.stdout)
        print(f"one column of {len(rows)} rows in {time.monotonic() - start:.1f} s")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(len(rows), 100000)
        check_increasing(rows)
        listed = system.cli("--json", "show", "interfaces", check=True).stdout
        self.assertEqual(listed.count('"ifConfIndex"'), 100000)


if __name__ == "__main__":
    unittest.main()
