#!/usr/bin/env python3
"""The wall clock is set forward and back while the daemon, snmpd and the sub-agent run: a library that is preloaded steps theirs.
Ages and time stamps of later events do not notice. With the module, too: MPLS_TEST_FRONT_END=module. What takes minutes is
tested with a monotonic clock that is set forward."""
import os
import signal
import unittest

from system import BIN, IN_SNMPD, RAW, ROUTE_ENTRY, SCALARS, VRF_ENTRY, SystemTest, dotted, name_index, wait_until

LIBRARY = BIN.parent / "lib/test/stepped_clock.so"
ROUTER = """
vrfs:
  - {name: red, table: 10, description: first, routes: [{prefix: 10.1.0.0/16, next_hop: 192.0.2.1}]}
interfaces: []
"""
HOUR = 3600
L3VPN_OID = ".1.3.6.1.2.1.10.166.11"
NOT_ASKED = "snmpd has not asked for any object"
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


@unittest.skipUnless(LIBRARY.exists(), "SKIPPED: stepped_clock.so is not built (a build for another kind of tests)")
class ViewTest(SystemTest):
    """A stock snmpd that shows a view of the MIB tree only, as that of Debian does."""

    def system_with_view(self, included):
        system = self.new_system(ROUTER.replace("interfaces: []", "interfaces: [{name: ge1, index: 11, vrf: red, state: up}]"))
        step = system.folder / "step"
        step.write_text("0")
        system.snmpd_settings = lambda: f"view some included {included}\nrocommunity public default -V some\nmaster agentx\n"
        system.environment.update(LD_PRELOAD=str(LIBRARY), MPLS_TEST_MONOTONIC_STEP=str(step))
        system.start_daemon()
        system.cli("config", "set", "traps", "all", check=True)
        system.start_snmpd()
        system.spawn("agent", str(BIN / "mpls_vpn_snmp"), "--agentx-socket", str(system.agentx))
        wait_until("registration", lambda: ": registered 1.3.6" in system.log("agent"))
        return system, step

    def after_an_hour_of_walks(self, system, step):
        """Walks of the tree, an hour, and a notification, which ends the sub-agent's wait."""
        for tool, oid in (("get", L3VPN_OID + ".1.1.1.0"), ("walk", L3VPN_OID), ("walk", ".1"), ("bulkwalk", ".1.3.6.1.2.1.10")):
            system.snmp(tool, oid, timeout=30)
        step.write_text(str(HOUR))
        system.cli("router", "down", "ge1", check=True)
        wait_until("the notification", lambda: system.cli_json("show", "traps"))
        wait_until("its receipt", lambda: system.cli_json("show", "status")["traps"]["waiting"] == 0)

    def test_sub_agent_that_a_view_hides_is_never_asked_and_logs_it(self):
        system, step = self.system_with_view("system")
        self.after_an_hour_of_walks(system, step)
        wait_until("the cause", lambda: NOT_ASKED in system.log("agent"))  # after the receipt

    def test_sub_agent_that_is_asked_logs_nothing(self):
        system, step = self.system_with_view(".1")
        self.after_an_hour_of_walks(system, step)
        system.kill("agent", signal.SIGTERM)  # it ends what it does before
        self.assertNotIn(NOT_ASKED, system.log("agent"))


if IN_SNMPD:
    del ViewTest  # the module notices no missing query


if __name__ == "__main__":
    unittest.main()
