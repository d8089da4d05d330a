#!/usr/bin/env python3
"""The wall clock is set forward and back while the daemon, snmpd and the sub-agent run: a library that is preloaded steps theirs.
Ages and time stamps of later events do not notice. With the module, too: MPLS_TEST_FRONT_END=module."""
import os
import unittest

from system import BIN, RAW, ROUTE_ENTRY, SCALARS, VRF_ENTRY, SystemTest, dotted, name_index, wait_until

LIBRARY = BIN.parent / "lib/test/stepped_clock.so"
ROUTER = """
vrfs:
  - {name: red, table: 10, description: first, routes: [{prefix: 10.1.0.0/16, next_hop: 192.0.2.1}]}
interfaces: []
"""
HOUR = 3600
DESCRIPTION, CHANGED = (dotted(VRF_ENTRY + (column,) + name_index("red")) for column in (3, 12))
UP_TIME = "1.3.6.1.2.1.1.3.0"


@unittest.skipUnless(LIBRARY.exists(), "SKIPPED: stepped_clock.so is not built (a build for another kind of tests)")
class ClockTest(SystemTest):
    def setUp(self):
        self.system = self.new_system(ROUTER)
        self.step = self.system.folder / "step"
        self.step.write_text("0")
        loaded = " ".join(filter(None, (os.environ.get("LD_PRELOAD"), str(LIBRARY))))
        self.system.environment.update(LD_PRELOAD=loaded, MPLS_TEST_CLOCK_STEP=str(self.step))
        self.system.start_all()
        wait_until("the row", lambda: self.system.get_value(DESCRIPTION) == '"first"')

    def set_clock(self, seconds):
        replacement = self.step.with_suffix(".new")
        replacement.write_text(str(seconds))
        replacement.replace(self.step)

    def change(self, text):
        """Changes the row and waits until it is shown."""
        self.system.cli("config", "set", "vrf", "red", "description", text, check=True)
        wait_until("the changed row", lambda: self.system.get_value(DESCRIPTION) == f'"{text}"', 5)

    def ticks(self, oid):
        return int(self.system.snmp("get", oid, options=RAW).stdout.split()[-1])

    def test_rows_are_read_again_after_their_age(self):
        for number, seconds in enumerate((HOUR, -HOUR, 0)):
            self.system.get_value(DESCRIPTION)
            self.set_clock(seconds)
            self.change(f"text {number}")

    def test_time_stamps_of_later_events_are_in_the_agents_up_time(self):
        self.system.get_value(DESCRIPTION)
        for number, seconds in enumerate((HOUR, -HOUR, 0)):
            self.set_clock(seconds)
            before = self.ticks(UP_TIME)
            self.change(f"text {number}")

            def is_between(start=before):
                return start - 200 <= self.ticks(CHANGED) <= self.ticks(UP_TIME) + 200
            wait_until(f"a time stamp in up time after a step of {seconds} s", is_between, 40)

    def test_age_of_a_route_does_not_follow_the_wall_clock(self):
        age = dotted(ROUTE_ENTRY + (10,))
        for seconds in (HOUR, -HOUR, 0):
            self.set_clock(seconds)
            self.change(f"text {seconds}")
            self.assertLess(int(self.system.walk(age)[0][1]), 120, seconds)

    def test_requests_are_answered_in_time_after_each_step(self):
        for seconds in (HOUR, -HOUR, 0):
            self.set_clock(seconds)
            self.system.kill("daemon")
            self.system.start_daemon()
            wait_until("the rows", lambda: self.system.get_value(SCALARS + ".1.0") == "1", 10)


if __name__ == "__main__":
    unittest.main()
