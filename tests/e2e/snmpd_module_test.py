#!/usr/bin/env python3
"""The module inside a stock snmpd: its tables are those of the sub-agent, and requests wait for no other. The other tests of SNMP
run with it, too: MPLS_TEST_FRONT_END=module."""
import json
import pathlib
import random
import signal
import socket
import subprocess
import threading
import time
import unittest

from module_system import FIRST_ROUTE, ROWS, UP_TIME, ModuleTest, blocks_of_the_module
from snmp_client import GET, GET_BULK, GET_NEXT, NO_SUCH_INSTANCE, SnmpClient
from system import IF_CONF, L3VPN, PERF_ENTRY, ROUTE_ENTRY, SCALARS, SLOW, VRF_ENTRY, dotted, name_index, oid_tuple, wait_until


class Tables(ModuleTest):
    def test_module_and_sub_agent_answer_the_same(self):
        running = self.start()
        by_module = [row for row in running.walk() if row[0][:len(FIRST_ROUTE)] != ROUTE_ENTRY + (10,)]  # but ages
        running.kill("snmpd", signal.SIGTERM)
        running.module = None
        running.start_snmpd()
        running.start_agent()
        by_agent = [row for row in running.walk() if row[0][:len(FIRST_ROUTE)] != ROUTE_ENTRY + (10,)]
        self.assertEqual([row[0] for row in by_module], [row[0] for row in by_agent])
        differing = [pair for pair in zip(by_module, by_agent) if pair[0] != pair[1]]
        for one, other in differing:  # snmpd's sysUpTime began anew
            self.assertRegex(one[1] + other[1], r"^[0-9:.]+$", (one, other))

    def test_bulk_of_any_size_and_several_columns_side_by_side(self):
        running = self.start()
        client = self.client(running)
        for repetitions in (1, 10, 100, 1000):
            at = [ROUTE_ENTRY + (column,) for column in (7, 8, 9)]
            seen = [0, 0, 0]
            while any(name[:len(FIRST_ROUTE)] == ROUTE_ENTRY + (7 + number,) for number, name in enumerate(at)):
                client.send(GET_BULK, at, 0, repetitions)
                answer = client.receive()
                self.assertGreaterEqual(len(answer), 3)
                for place, (name, _, _) in enumerate(answer):
                    number = place % 3
                    self.assertGreater(name, at[number])
                    at[number] = name
                    seen[number] += name[:len(FIRST_ROUTE)] == ROUTE_ENTRY + (7 + number,)
            self.assertEqual(seen, [ROWS] * 3, repetitions)

    def test_walkers_of_many_columns_and_tables_at_once_all_end(self):
        """More of them than a table has windows, each at another place."""
        running = self.start()
        ends, problems = [], []

        def walk(root, start):
            try:
                client = SnmpClient(running.port, 20 * SLOW)
                count, _ = client.walk(root, start, rows=11)
                client.close()
                ends.append(count)
            except (AssertionError, OSError, RuntimeError) as problem:
                problems.append(f"{root}: {problem}")
        index = (3,) + tuple(b"red") + (1, 4, 20, 0)
        threads = [threading.Thread(target=walk, args=(ROUTE_ENTRY + (column,), ROUTE_ENTRY + (column,) + index + (place,)))
                   for column in range(7, 19) for place in (0, 100)]
        threads += [threading.Thread(target=walk, args=(oid_tuple(IF_CONF) + (1, column), None)) for column in (2, 3, 4, 5)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(problems, [])
        self.assertEqual(sorted(ends), [5] * 4 + [ROWS - 100] * 12 + [ROWS] * 12)

    def test_what_follows_the_mib_follows_its_last_row(self):
        running = self.start()
        result = running.snmp("bulkget", "-Cr5", dotted(ROUTE_ENTRY + (18, 250)))
        names = [line.split(" ", 1)[0] for line in result.stdout.splitlines()]
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertTrue(names and not names[0].startswith("." + L3VPN + ".1."), result.stdout)

    def test_nothing_can_be_set(self):
        running = self.start()
        result = subprocess.run(["snmpset", "-v2c", "-c", "private", "-t", "5", "-r", "0", f"127.0.0.1:{running.port}",
                                 SCALARS + ".7.0", "u", "5"], env=running.environment, capture_output=True, text=True, check=False)
        self.assertIn("notWritable", result.stderr)


class Requests(ModuleTest):
    def test_request_with_variables_of_several_tables_and_other_mibs(self):
        running = self.start()
        client = self.client(running)
        scalar, descr = oid_tuple(SCALARS) + (1, 0), VRF_ENTRY + (3,) + name_index("red")
        client.send(GET, [UP_TIME, scalar, descr, oid_tuple("1.3.6.1.2.1.1.5.0"), descr[:-1] + (0,)])
        answer = client.receive()
        self.assertEqual([name for name, _, _ in answer][:4], [UP_TIME, scalar, descr, oid_tuple("1.3.6.1.2.1.1.5.0")])
        self.assertEqual((answer[1][2], answer[2][2], answer[4][1]), (b"\x02", b"Red Rail", NO_SUCH_INSTANCE))
        starts = [UP_TIME[:-1], ROUTE_ENTRY + (7,), oid_tuple("1.3.6.1.2.1.1.4"), VRF_ENTRY + (4,)]
        client.send(GET_BULK, starts, 1, 3)
        names = [name for name, _, _ in client.receive()]
        self.assertEqual(len(names), 1 + 3 * 3)
        self.assertEqual(names[0], UP_TIME)
        for place in (1, 4, 7):
            self.assertEqual(names[place][:len(FIRST_ROUTE)], FIRST_ROUTE)

    def test_answer_that_would_be_too_big_is_shortened(self):
        running = self.start()
        client = self.client(running)
        starts = [ROUTE_ENTRY + (column,) for column in range(7, 19)] * 4
        client.send(GET_BULK, starts, 0, 1000)
        answer = client.receive()
        self.assertGreater(len(answer), len(starts) - 1)
        self.assertLess(len(answer), 1000)
        for place, (name, _, _) in enumerate(answer):
            self.assertEqual(name[:len(FIRST_ROUTE)], starts[place % len(starts)])

    def test_manager_sees_its_view_only(self):
        settings = (f"view part included .{SCALARS}\nview part included .1.3.6.1.2.1.1\n"
                    f"view part included .{dotted(ROUTE_ENTRY)}.8\n"
                    f"view part excluded .{dotted(ROUTE_ENTRY)}.8.3.114.101.100.1.4.20.0.5\n"
                    "rocommunity limited default -V part\n")
        running = self.start(settings)
        for tool, options in (("walk", ()), ("bulkwalk", ("-Cr20",))):
            result = subprocess.run([f"snmp{tool}", "-v2c", "-c", "limited", "-One", "-Oq", "-t", "10", "-r", "0", *options,
                                     f"127.0.0.1:{running.port}", L3VPN], env=running.environment, capture_output=True, text=True,
                                    check=False)
            names = [line.split(" ", 1)[0][1:] for line in result.stdout.splitlines() if "No more variables" not in line]
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertEqual(len([name for name in names if name.startswith(SCALARS + ".")]), 7, tool)
            self.assertEqual(len([name for name in names if name.startswith(dotted(ROUTE_ENTRY) + ".8.")]), ROWS - 1, tool)
            self.assertEqual(len([name for name in names if name.startswith(L3VPN)]), 7 + ROWS - 1, tool)

    def as_limited_manager(self, running, tool, *arguments):
        return subprocess.run([f"snmp{tool}", "-v2c", "-c", "limited", "-One", "-Oq", "-t", "10", "-r", "0", *arguments],
                              env=running.environment, capture_output=True, text=True, check=False)

    def test_vrf_that_a_manager_may_not_see_is_skipped_whatever_its_size(self):
        running = self.new_module_system()
        router = {"vrfs": [{"name": name, "table": table, "routes": [{"generate": count, "prefix": "20.0.0.0/24", "next_hop": "192.0.2.1"}]}
                           for name, table, count in (("a", 10, 3), ("red", 20, 1000000), ("blue", 30, 4))]}
        running.router_file.write_text(json.dumps(router))
        running.more_snmpd_settings = (f"view part included .{L3VPN}\nview part excluded .{dotted(ROUTE_ENTRY)}.7.3.114.101.100\n"
                                       "rocommunity limited default -V part\n")
        running.start_daemon()
        running.start_snmpd()
        wait_until("the routes", lambda: running.get_value(dotted(PERF_ENTRY + (3,) + name_index("red"))) == "1000000", 60)
        for tool, options in (("walk", ()), ("bulkwalk", ("-Cr20",))):
            result = self.as_limited_manager(running, tool, *options, f"127.0.0.1:{running.port}", dotted(FIRST_ROUTE))
            self.assertEqual((result.returncode, len(result.stdout.splitlines())), (0, 7), result.stdout + result.stderr)

    def test_error_has_no_name_that_the_manager_may_not_see(self):
        running = self.start(f"view part included .{L3VPN}\nview part excluded .{dotted(FIRST_ROUTE)}.3.114.101.100.1.4.20\n"
                             "rocommunity limited default -V part\n")
        time.sleep(1.1 * SLOW)  # the rows that were read have become too old
        running.snmp("getnext", dotted(FIRST_ROUTE))  # the first ones are read
        running.processes["daemon"].send_signal(signal.SIGSTOP)
        self.addCleanup(running.processes["daemon"].send_signal, signal.SIGCONT)
        result = self.as_limited_manager(running, "getnext", f"127.0.0.1:{running.port}", dotted(FIRST_ROUTE))
        self.assertIn("genError", result.stderr + result.stdout)
        self.assertNotIn(".3.114.101.100", result.stderr + result.stdout)

    def test_user_of_snmpv3_reads_the_tables(self):
        running = self.start('createUser reader SHA "a long password"\nrouser reader auth\n')
        result = subprocess.run(["snmpbulkwalk", "-v3", "-u", "reader", "-l", "authNoPriv", "-a", "SHA", "-A", "a long password",
                                 "-One", "-Oq", "-t", "10", "-r", "0", f"127.0.0.1:{running.port}", dotted(ROUTE_ENTRY + (8,))],
                                env=running.environment, capture_output=True, text=True, check=False)
        self.assertEqual(len(result.stdout.splitlines()), ROWS, result.stderr)

    def test_rows_are_those_of_the_command_line(self):
        running = self.start()
        shown = running.cli_json("show", "routes", "red")
        for number, key in ((7, "ifIndex"), (8, "type"), (9, "proto"), (11, "nextHopAS"), (12, "metric1"), (16, "metric5"),
                            (18, "rowStatus")):
            rows = self.column(running, number)
            self.assertEqual([value for _, value in rows], [str(row[key]) for row in shown], key)
        prefixes = [".".join(map(str, name[-14:-10])) + f"/{name[-10]}" for name, _ in rows]
        self.assertEqual(prefixes, [row["prefix"] for row in shown])
        interfaces = [(value, row["rowStatus"]) for (_, value), row in
                      zip(running.walk(IF_CONF + ".1.5"), running.cli_json("show", "interfaces"))]
        self.assertEqual(interfaces, [("1", 1)] * 5)


class Sessions(ModuleTest):
    """Requests that wait for a daemon that hangs, when they or snmpd's configuration end."""
    def connect(self, running):
        connection = socket.create_connection(("127.0.0.1", running.tcp_port), 10 * SLOW)
        self.addCleanup(connection.close)
        return connection

    def start_with_tcp(self, wrapper=()):
        running = self.new_module_system()
        running.snmpd_wrapper = wrapper
        running.tcp_port = random.randint(20000, 32000)
        running.more_snmpd_settings = f"agentAddress tcp:127.0.0.1:{running.tcp_port}\n"
        running.start_daemon()
        running.start_snmpd()
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2", 60)
        return running

    def let_requests_wait(self, running):
        time.sleep(1.1 * SLOW)  # the rows that were read have become too old
        running.processes["daemon"].send_signal(signal.SIGSTOP)
        for number in range(5):
            walker = self.client(running)
            walker.send(GET_BULK, [ROUTE_ENTRY + (7 + number,)], 0, 10)
            connection = self.connect(running)
            connection.sendall(walker.message(GET_NEXT, [ROUTE_ENTRY + (12 + number,), ROUTE_ENTRY + (13 + number,)]))
            time.sleep(0.02)
            connection.close()

    def expect_rows(self, running):
        running.processes["daemon"].send_signal(signal.SIGCONT)
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2", 60)
        self.assertEqual(len(self.column(running, 7)), ROWS)

    def test_connection_that_ends_while_its_request_waits(self):
        running = self.start_with_tcp()
        for _ in range(3):
            self.let_requests_wait(running)
            self.assertEqual(running.snmp("get", dotted(UP_TIME)).returncode, 0)
            self.expect_rows(running)

    def test_answer_is_not_sent_to_a_later_connection(self):
        running = self.start_with_tcp()
        for _ in range(3):
            time.sleep(1.1 * SLOW)  # the rows that were read have become too old
            running.processes["daemon"].send_signal(signal.SIGSTOP)
            asker = self.connect(running)
            asker.sendall(self.client(running).message(GET_NEXT, [FIRST_ROUTE]))
            time.sleep(0.03)
            asker.close()
            time.sleep(0.03)
            later = self.connect(running)
            time.sleep(0.05)
            running.processes["daemon"].send_signal(signal.SIGCONT)
            later.settimeout(0.6 * SLOW)
            self.assertRaises(TimeoutError, later.recv, 4096)

    def test_configuration_that_is_read_again_while_requests_wait(self):
        running = self.start_with_tcp()
        for _ in range(3):
            self.let_requests_wait(running)
            running.processes["snmpd"].send_signal(signal.SIGHUP)
            wait_until("an answer", lambda: running.snmp("get", dotted(UP_TIME), timeout=1).returncode == 0)
            self.expect_rows(running)

    def test_no_invalid_access_when_snmpd_ends_while_requests_wait(self):
        report = pathlib.Path(f"/tmp/mpls_vpn_e2e.valgrind.{random.getrandbits(40):x}")
        self.addCleanup(report.unlink, missing_ok=True)
        running = self.start_with_tcp(("valgrind", "--leak-check=full", "--show-leak-kinds=definite,possible",
                                       "--keep-debuginfo=yes", f"--log-file={report}"))
        self.let_requests_wait(running)
        self.assertEqual(running.snmp("get", dotted(UP_TIME)).returncode, 0)
        running.processes["snmpd"].send_signal(signal.SIGHUP)
        wait_until("an answer", lambda: running.snmp("get", dotted(UP_TIME), timeout=1).returncode == 0, 60)
        self.expect_rows(running)
        self.let_requests_wait(running)
        running.kill("snmpd", signal.SIGTERM)
        self.assertEqual(blocks_of_the_module(report.read_text()), [])


if __name__ == "__main__":
    unittest.main()
