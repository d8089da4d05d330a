#!/usr/bin/env python3
"""The module inside a stock snmpd: what it does while the daemon hangs, is killed or restarts, when it is unloaded, loaded
again or loaded beside the sub-agent, and that its tables are those of the sub-agent. The other tests of SNMP run with it, too:
MPLS_TEST_FRONT_END=module."""
import json
import pathlib
import random
import re
import select
import signal
import socket
import subprocess
import threading
import time
import unittest

from snmp_client import GET, GET_BULK, GET_NEXT, NO_SUCH_INSTANCE, SnmpClient
from system import (BIN, IF_CONF, L3VPN, MODULE, PERF_ENTRY, ROUTE_ENTRY, SCALARS, SLOW, VRF_ENTRY, SystemTest, dotted, name_index,
                    oid_tuple, wait_until)

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


def blocks_of_the_module(report):
    """The errors and leaks of valgrind's report in which the module takes part: it is C++, all else is C."""
    names = ("snmpd::", "agent::", "tables::", "mpls_vpn_snmpd", "operator new")
    blocks = [block for block in re.split(r"==\d+== \n", report) if any(name in block for name in names)]
    return [block for block in blocks if "at 0x" in block]  # and not what valgrind says about itself


class DaemonAway(ModuleTest):
    def other_mib_while(self, running, stop):
        """The longest time, in seconds, for one GET of sysUpTime, asked all the time until `stop` returns."""
        client, longest = self.client(running), []

        def ask():
            while not done.is_set():
                client.request(GET, UP_TIME)
                longest.append(client.seconds)
        done = threading.Event()
        asker = threading.Thread(target=ask)
        asker.start()
        try:
            stop()
        finally:
            done.set()
            asker.join()
        return longest

    def test_hanging_daemon_is_an_error_and_delays_no_other_mib(self):
        running = self.start()
        time.sleep(1.1 * SLOW)  # the rows that were read have become too old
        running.processes["daemon"].send_signal(signal.SIGSTOP)

        def read():
            for _ in range(3):
                begin = time.monotonic()
                for number in range(20):  # without waiting for the answers
                    walker = self.client(running)
                    walker.send(GET_NEXT, [ROUTE_ENTRY + (7 + number % 10,)])
                self.assertTrue(self.error_status(running, RD_OF_RED))
                self.assertLess(time.monotonic() - begin, 4 * SLOW)
        latencies = sorted(self.other_mib_while(running, read))
        # Generous bounds for a busy machine: a module that waits would take half a second each time.
        self.assertGreater(len(latencies), 100)
        self.assertLess(latencies[len(latencies) // 2], 0.01 * SLOW)
        self.assertLess(latencies[-1], 0.3 * SLOW)
        running.processes["daemon"].send_signal(signal.SIGCONT)
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")
        self.assertEqual(len(self.column(running, 7)), ROWS)

    def test_many_managers_at_once_get_rows_when_the_daemon_answers_in_time(self):
        running = self.start()
        time.sleep(1.1 * SLOW)  # the rows that were read have become too old
        walkers = [self.client(running) for _ in range(150)]
        running.processes["daemon"].send_signal(signal.SIGSTOP)
        for number, walker in enumerate(walkers):
            walker.send(GET_NEXT, [ROUTE_ENTRY + (7 + number % 10, 3) + tuple(b"red") + (1, 4, 20, 0, number)])
        time.sleep(0.2)  # less than the time for one call
        running.processes["daemon"].send_signal(signal.SIGCONT)
        for walker in walkers:
            self.assertEqual(len(walker.receive()), 1)

    def test_large_requests_that_fail_together_delay_no_other_mib(self):
        running = self.start()
        time.sleep(1.1 * SLOW)  # the rows that were read have become too old
        running.processes["daemon"].send_signal(signal.SIGSTOP)
        index = (3,) + tuple(b"red") + (1, 4, 20)

        def read():
            for number in range(30):
                names = [ROUTE_ENTRY + (7 + place % 3,) + index + (place % 8, place % 256, number) for place in range(800)]
                self.client(running).send(GET_NEXT, names)
            time.sleep(3 * SLOW)
        latencies = self.other_mib_while(running, read)
        self.assertLess(max(latencies), 0.3 * SLOW)
        running.processes["daemon"].send_signal(signal.SIGCONT)
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")

    def test_small_requests_are_answered_between_large_ones_that_arrived_before(self):
        running = self.start()
        time.sleep(1.1 * SLOW)  # the rows that were read have become too old
        index = (3,) + tuple(b"red") + (1, 4, 20)
        large, small = ([self.client(running) for _ in range(count)] for count in (20, 5))
        running.processes["daemon"].send_signal(signal.SIGSTOP)
        for number, client in enumerate(large):  # rows at more places than there are windows
            client.send(GET_NEXT, [ROUTE_ENTRY + (7 + place % 12,) + index + (place % 8, 30 * place % 256, number) for place in range(700)])
            time.sleep(0.005)
        for client in small:
            client.send(GET_NEXT, [ROUTE_ENTRY + (7,) + index + (3, 90, 0)])
        time.sleep(0.05)
        running.processes["daemon"].send_signal(signal.SIGCONT)
        waiting, order = {client.socket: client for client in large + small}, []
        while waiting:
            for ready in select.select(list(waiting), [], [], 10 * SLOW)[0]:
                client = waiting.pop(ready)
                client.receive()
                order.append(client in small)
        self.assertLess(max(place for place, is_small in enumerate(order) if is_small), len(order) // 2)

    def test_rows_return_after_the_daemon_was_killed(self):
        running = self.start()
        for _ in range(3):
            running.kill("daemon")
            wait_until("an error", lambda: self.error_status(running, SCALARS + ".1.0"))
            running.start_daemon()
            wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")
            wait_until("the routes", lambda: len(self.column(running, 7)) == ROWS)

    def test_daemon_that_starts_after_snmpd_is_served_and_there_is_no_gap_before(self):
        running = self.new_module_system()
        running.start_snmpd()
        self.assertTrue(self.error_status(running, SCALARS + ".1.0"), "no such object would mean that there are no VRFs")
        running.start_daemon()
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")

    def test_walks_that_are_abandoned_cost_no_memory(self):
        running = self.start()
        walkers = [self.client(running) for _ in range(50)]

        def abandon(rounds):
            for count in range(rounds):
                for number, walker in enumerate(walkers):
                    index = (1, 4, 20, (count * 50 + number) % 8, number, 0, 24, 2, 0, 0, 1, 4, 192, 0, 2, 1)
                    walker.send(GET_BULK, [ROUTE_ENTRY + (7 + number % 12, 3) + tuple(b"red") + index], 0, 20)
                    if number % 10 == 9:
                        self.client(running).request(GET, UP_TIME)
        abandon(20)
        before = resident(running.processes["snmpd"])
        abandon(60)
        self.assertLess(resident(running.processes["snmpd"]) - before, 8 << 20)
        self.assertEqual(len(self.column(running, 7)), ROWS)


def resident(process):
    for line in pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1]) * 1024
    raise AssertionError("the process has ended")


class Loading(ModuleTest):
    def maps(self, running):
        return pathlib.Path(f"/proc/{running.processes['snmpd'].pid}/maps").read_text()

    def test_module_that_is_unloaded_leaves_the_process_and_can_be_loaded_again(self):
        running = self.start()
        for _ in range(3):
            self.assertIn("mpls_vpn_snmpd.so", self.maps(running))
            self.set_module(running, DLMOD + ".5.1", "i", "5")
            self.assertIsNone(running.get_value(SCALARS + ".1.0"))
            self.assertNotIn("mpls_vpn_snmpd.so", self.maps(running))
            self.assertEqual(running.snmp("get", dotted(UP_TIME)).returncode, 0)
            self.set_module(running, DLMOD + ".5.1", "i", "4")
            wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")
        self.assertEqual(len(self.column(running, 7)), ROWS)

    def test_module_can_be_unloaded_while_requests_wait(self):
        running = self.start()
        time.sleep(1.1 * SLOW)
        running.processes["daemon"].send_signal(signal.SIGSTOP)
        walkers = [self.client(running) for _ in range(10)]
        for number, walker in enumerate(walkers):
            walker.send(GET_BULK, [ROUTE_ENTRY + (7 + number,)], 0, 10)
        self.set_module(running, DLMOD + ".5.1", "i", "5")
        running.processes["daemon"].send_signal(signal.SIGCONT)
        self.assertEqual(running.snmp("get", dotted(UP_TIME)).returncode, 0)
        self.assertIsNone(running.get_value(SCALARS + ".1.0"))
        self.set_module(running, DLMOD + ".5.1", "i", "4")
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")

    def test_module_serves_after_snmpd_has_read_its_configuration_again(self):
        running = self.start()
        for _ in range(3):
            running.processes["snmpd"].send_signal(signal.SIGHUP)
            wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2")
            self.assertEqual(len(self.column(running, 7)), ROWS)
        self.assertNotIn("another agent", running.log("snmpd"))

    def test_module_for_another_net_snmp_is_rejected(self):
        running = self.new_module_system(MODULE.parent / "test/mpls_vpn_snmpd.so")
        running.start_daemon()
        running.start_snmpd()
        wait_until("the message", lambda: "built for net-snmp 4.2.1, but snmpd runs with " in running.log("snmpd"))
        self.assertIsNone(running.get_value(SCALARS + ".1.0"))

    def test_module_beside_the_sub_agent_refuses_until_that_ends(self):
        running = self.new_module_system(None)
        running.start_daemon()
        running.start_snmpd()
        running.start_agent()
        self.set_module(running, DLMOD + ".5.1", "i", "6")
        self.set_module(running, DLMOD + ".2.1", "s", "mpls_vpn_snmpd", DLMOD + ".3.1", "s", str(MODULE))
        self.set_module(running, DLMOD + ".5.1", "i", "4")
        wait_until("the message", lambda: "another agent serves 1.3.6.1.2.1.10.166.11.1, so this module does not" in
                   running.log("snmpd"))
        self.assertEqual(running.get_value(SCALARS + ".1.0"), "2")
        time.sleep(4.5 * SLOW)  # it tries every two seconds, and snmpd would log each attempt
        self.assertEqual(running.log("snmpd").count("duplicate registration"), 0)
        running.kill("agent", signal.SIGTERM)
        wait_until("the rows of the module", lambda: running.get_value(SCALARS + ".1.0") == "2")
        self.assertEqual(running.log("snmpd").count("another agent"), 1)

    def test_sub_agent_beside_the_module_is_refused_until_that_ends(self):
        running = self.start()
        running.spawn("agent", str(BIN / "mpls_vpn_snmp"), "--agentx-socket", str(running.agentx))
        wait_until("the message", lambda: "another agent serves 1.3.6.1.2.1.10.166.11.1" in running.log("agent"))
        self.assertEqual(running.get_value(SCALARS + ".1.0"), "2")
        self.set_module(running, DLMOD + ".5.1", "i", "5")
        wait_until("the rows of the sub-agent", lambda: running.get_value(SCALARS + ".1.0") == "2")

    def test_no_leak_and_no_invalid_access(self):
        running = self.new_module_system()
        running.start_daemon()
        wrapper = running.folder / "valgrind.log"
        running.snmpd_wrapper = ("valgrind", "--leak-check=full", "--show-leak-kinds=definite,possible",
                                 "--keep-debuginfo=yes", f"--log-file={wrapper}")
        running.start_snmpd()
        wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2", 60)
        for _ in range(2):
            self.column(running, 7)
            running.walk(IF_CONF)
            running.processes["snmpd"].send_signal(signal.SIGHUP)
            self.column(running, 8)
            running.kill("daemon")
            wait_until("an error", lambda: self.error_status(running, SCALARS + ".1.0"))
            running.start_daemon()
            wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2", 60)
            running.processes["daemon"].send_signal(signal.SIGSTOP)
            walker = self.client(running)
            for number in range(10):
                walker.send(GET_BULK, [ROUTE_ENTRY + (9 + number,)], 0, 30)
            self.set_module(running, DLMOD + ".5.1", "i", "5")
            running.processes["daemon"].send_signal(signal.SIGCONT)
            self.set_module(running, DLMOD + ".5.1", "i", "4")
            wait_until("the rows", lambda: running.get_value(SCALARS + ".1.0") == "2", 60)
        running.kill("snmpd", signal.SIGTERM)
        self.assertEqual(blocks_of_the_module(wrapper.read_text()), [])


if __name__ == "__main__":
    unittest.main()
