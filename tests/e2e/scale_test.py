#!/usr/bin/env python3
"""10,000 VRFs with 10 interfaces each from the file source: loaded, ready, and walked whole."""
import time
import unittest

from system import IF_CONF, SCALARS, SLOW, SystemTest, check_increasing, parse_walk


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
        self.check_completion(system)

    def check_completion(self, system):
        """A user who types does not wait for names."""
        interfaces = ("config", "set", "vrf", "X", "rip", "interface")
        for words, least in ((("show", "routes", "customer-0999"), 10), (("config", "set", "vrf", ""), 100),
                             (("router", "down", "cust0999"), 10), ((*interfaces, "cust"), 100), ((*interfaces, "nosuch"), 0)):
            durations = []
            for _ in range(5):
                start = time.monotonic()
                offered = system.cli("complete", "--", *words, check=True).stdout.split()
                durations.append(time.monotonic() - start)
            self.assertGreaterEqual(len(offered), least)
            print(f"completion of {' '.join(words)}: {min(durations) * 1000:.0f} ms")
            self.assertLess(min(durations), 0.1 * SLOW)


if __name__ == "__main__":
    unittest.main()
