#!/usr/bin/env python3
"""What the random test accepts as times of a VRF."""
import pathlib
import sys
import types
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "churn"))
from times import Times  # noqa: E402

MODEL = types.SimpleNamespace(vrfs={"red": {"ifindex": 7, "linkinfo": {"info_data": {"table": 10}}}})


def errors(created, changed, began=100.5):
    return Times().errors(MODEL, {"red": {"creationTime": created, "confLastChanged": changed}}, {"red"}, began, False)


class TimesOfAVrf(unittest.TestCase):
    def test_created_and_changed_in_the_batch(self):
        self.assertEqual(errors(101, 102), [])
        self.assertEqual(errors(101, 0), [])

    def test_an_interface_left_the_former_vrf_of_the_name_a_second_before(self):
        self.assertEqual(errors(101, 100), [])

    def test_time_of_the_former_vrf(self):
        self.assertEqual(errors(101, 99), ["red was created at 101 and changed at 99"])

    def test_creation_before_the_batch(self):
        self.assertEqual(errors(99, 102), ["red is new, created at 99, the batch began at 100.50"])


if __name__ == "__main__":
    unittest.main()
