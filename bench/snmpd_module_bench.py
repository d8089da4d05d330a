#!/usr/bin/env python3
"""How long a stock snmpd takes for another MIB while managers read this one through the module inside snmpd: times for one GET of
sysUpTime, against the same snmpd without the module, in alternating turns.

  snmpd_module_bench.py BIN_DIRECTORY [--brief]

The daemon answers, hangs (SIGSTOP), is killed, or is killed and started again all the time; meanwhile readers send a GETBULK every
10 ms, also while none is answered."""
import json
import os
import pathlib
import signal
import statistics
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests/e2e"))
os.environ["MPLS_TEST_BIN"] = str(pathlib.Path(sys.argv[1]).resolve())
from snmp_client import GET, GET_BULK, SnmpClient  # noqa: E402
from system import MODULE, ROUTE_ENTRY, SCALARS, System, oid_tuple, wait_until  # noqa: E402

BRIEF = "--brief" in sys.argv
TURNS = 1 if BRIEF else 3
REQUESTS = 200 if BRIEF else 3000
READERS = 5
ROUTES = 1000 if BRIEF else 100_000
UP_TIME = oid_tuple("1.3.6.1.2.1.1.3.0")
ROUTER = json.dumps({"vrfs": [{"name": "red", "table": 10,
                               "routes": [{"generate": ROUTES, "prefix": "20.0.0.0/24", "next_hop": "192.0.2.1"}]}]})


class Readers(threading.Thread):
    """Managers that ask all the time, whether they are answered or not."""

    def __init__(self, port):
        super().__init__()
        self.clients, self.stop = [SnmpClient(port) for _ in range(READERS)], threading.Event()

    def run(self):
        place = 0
        while not self.stop.wait(0.01):
            for number, client in enumerate(self.clients):
                place += 1
                index = (3,) + tuple(b"red") + (1, 4, 20, place % 4, place % 250)
                client.send(GET_BULK, [ROUTE_ENTRY + (7 + number,) + index], 0, 50)


class Restarts(threading.Thread):
    def __init__(self, system):
        super().__init__()
        self.system, self.stop = system, threading.Event()

    def run(self):
        while not self.stop.wait(0.2):
            self.system.kill("daemon")
            self.system.start_daemon()


def times(system):
    """Milliseconds of each GET."""
    client, found = SnmpClient(system.port), []
    for _ in range(REQUESTS):
        client.request(GET, UP_TIME)
        found.append(client.seconds * 1000)
        time.sleep(0.001)
    return found


def measure(module, state):
    """(median, 99th percentile, longest)"""
    with System(ROUTER) as system:
        system.module = module
        system.start_daemon()
        system.start_snmpd()
        if module:
            wait_until("the rows", lambda: system.get_value(SCALARS + ".1.0") == "1", 30)
        readers, restarts = Readers(system.port), Restarts(system)
        readers.start()
        time.sleep(0.5)
        if state == "hangs":
            system.processes["daemon"].send_signal(signal.SIGSTOP)
        elif state == "is killed":
            system.kill("daemon")
        elif state == "restarts":
            restarts.start()
        found = sorted(times(system))
        readers.stop.set()
        readers.join()
        if restarts.is_alive():
            restarts.stop.set()
            restarts.join()
        return statistics.median(found), found[len(found) * 99 // 100], found[-1]


def main():
    print(f"time for a GET of sysUpTime in ms, {READERS} readers of the route table ({ROUTES:,} routes), "
          f"{REQUESTS} requests, medians of {TURNS} turns")
    print(f"  {'the daemon':12} {'median':>8} {'without':>8} {'p99':>8} {'without':>8} {'longest':>8} {'without':>8}   "
          "p99 more than without")
    for state in ("answers", "hangs", "is killed", "restarts"):
        turns = [(measure(MODULE, state), measure(None, state)) for _ in range(TURNS)]
        ours, theirs = ([statistics.median(turn[side][place] for turn in turns) for place in range(3)] for side in (0, 1))
        more = statistics.median(turn[0][1] - turn[1][1] for turn in turns)
        figures = " ".join(f"{figure:8.3f}" for pair in zip(ours, theirs) for figure in pair)
        print(f"  {state:12} {figures}   {more:8.3f} (aim: at most 1)", flush=True)


if __name__ == "__main__":
    main()
