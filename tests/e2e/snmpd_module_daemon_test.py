#!/usr/bin/env python3
"""The module inside a stock snmpd while the daemon hangs, is killed or restarts."""
import pathlib
import select
import signal
import threading
import time
import unittest

from module_system import RD_OF_RED, ROWS, UP_TIME, ModuleTest
from snmp_client import GET, GET_BULK, GET_NEXT
from system import ROUTE_ENTRY, SCALARS, SLOW, wait_until


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


if __name__ == "__main__":
    unittest.main()
