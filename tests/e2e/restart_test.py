#!/usr/bin/env python3
"""Each process is killed in turn during a continuous walk: the system recovers by itself, OIDs always increase, and no row
lacks a column."""
import threading
import time
import unittest

from system import BIN, IF_CONF, SLOW, SystemTest, check_increasing, expected_if_conf, oid_tuple, parse_walk, wait_until

ROUTER = "generate: {vrfs: 30, interfaces_per_vrf: 10}\n"
RECOVERED_WITHIN = 2.0  # seconds after the restart of the killed process


class Walker(threading.Thread):
    """Walks until it is stopped; records every error and counts complete walks."""

    def __init__(self, system):
        super().__init__()
        self.system, self.errors, self.good, self.stop = system, [], 0, threading.Event()

    def run(self):
        while not self.stop.is_set():
            agent = self.system.processes.get("agent")
            result = self.system.snmp("bulkwalk", IF_CONF, timeout=1, options=("-Cr20",))
            same_agent = agent is not None and self.system.processes.get("agent") is agent
            rows = parse_walk(result.stdout)
            try:
                check_increasing(rows)
                if "not increasing" in result.stderr:
                    raise AssertionError(result.stderr)
                # A master agent that loses its sub-agent answers the rest of a walk with the end of the MIB.
                if result.returncode == 0 and rows and same_agent:
                    self.check_whole(rows)
                    self.good += 1
            except AssertionError as error:
                self.errors.append(str(error))

    @staticmethod
    def check_whole(rows):
        """A walk that ended without an error has every column of every row."""
        start = len(oid_tuple(IF_CONF)) + 2
        columns = {}
        for oid, _ in rows:
            columns.setdefault(oid[start - 1], set()).add(oid[start:])
        keys = set.union(*columns.values())
        for column in (2, 3, 4, 5):
            missing = keys - columns.get(column, set())
            assert not missing, f"column {column} lacks {len(missing)} of {len(keys)} rows"


class Restart(SystemTest):
    def setUp(self):
        self.system = self.new_system(ROUTER)
        self.system.start_all()
        rows = self.system.cli_json("show", "interfaces")
        self.expected = expected_if_conf([(row["vrfName"], row["ifConfIndex"]) for row in rows])
        self.assertEqual(len(rows), 300)
        self.walker = Walker(self.system)
        self.walker.start()
        self.addCleanup(self.end_walker)

    def end_walker(self):
        self.walker.stop.set()
        self.walker.join()

    def whole(self):
        result = self.system.snmp("bulkwalk", IF_CONF, timeout=1, options=("-Cr20",))
        return result.returncode == 0 and parse_walk(result.stdout) == self.expected

    def expect_recovery(self, what):
        start = time.monotonic()
        wait_until(f"whole table after the restart of {what}", self.whole, RECOVERED_WITHIN)
        print(f"{what}: whole table {time.monotonic() - start:.2f} s after its restart (bound {RECOVERED_WITHIN * SLOW:g} s)")

    def check_walker(self):
        good = self.walker.good
        wait_until("walks continue", lambda: self.walker.good > good + 1)
        self.assertEqual(self.walker.errors, [])

    def test_sub_agent_killed(self):
        for _ in range(3):
            self.system.kill("agent")
            self.system.spawn("agent", *self.agent_command())
            self.expect_recovery("the sub-agent")
        self.check_walker()

    def test_snmpd_killed(self):
        for _ in range(2):
            self.system.kill("snmpd")
            self.system.agentx.unlink(missing_ok=True)
            self.system.start_snmpd()
            self.expect_recovery("snmpd")
        self.check_walker()

    def test_daemon_killed(self):
        for _ in range(3):
            self.system.kill("daemon")
            self.expect_general_error()
            self.system.start_daemon()
            self.expect_recovery("the daemon")
        self.check_walker()
        log = self.system.log("agent")
        self.assertLess(log.count("\n"), 40, "a transition is logged once, not at every attempt:\n" + log)

    def expect_general_error(self):
        """A walk without the daemon gets an error, not an empty table."""
        time_bound = time.monotonic() + 3 * SLOW
        while time.monotonic() < time_bound:
            result = self.system.snmp("walk", IF_CONF, timeout=3)
            if "genErr" in result.stderr + result.stdout or "general failure" in result.stderr + result.stdout:
                return
            self.assertIn(result.returncode, (0, 1, 2))
        self.fail("no walk got an error while the daemon was down")

    def agent_command(self):
        return str(BIN / "mpls_vpn_snmp"), "--agentx-socket", str(self.system.agentx)


if __name__ == "__main__":
    unittest.main()
