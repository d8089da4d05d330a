#!/usr/bin/env python3
"""How long answers of the route table take while 10,000 of the kernel's 1,000,000 routes change in each second: GET, GETNEXT and
GETBULK of 50 at random places, and a GET of snmpd's own sysUpTime between them, as the floor that the machine's other work adds.
Runs in a network namespace of its own and needs the privilege to make one.

  kernel_load_bench.py BIN_DIRECTORY BENCH_DIRECTORY [--brief] [--seconds N]"""
import argparse
import ctypes
import ipaddress
import os
import pathlib
import random
import signal
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests/e2e"))
CLONE_NEWNET = 0x40000000
INTERFACE = 7  # mplsL3VpnVrfRteInetCidrIfIndex
UP_TIME = (1, 3, 6, 1, 2, 1, 1, 3, 0)
VRF, FIRST, GATEWAY = "vrf00000", 0x64000000, ipaddress.ip_address("10.0.0.2")
ROWS = 50
INTEGER = 2    # tag


def parse_arguments():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("programs")
    parser.add_argument("bench")
    parser.add_argument("--brief", action="store_true")
    parser.add_argument("--seconds", type=float, default=60.0)
    parser.add_argument("--routes", type=int, default=1_000_000)
    parser.add_argument("--changes", type=int, default=10_000, help="in each second")
    return parser.parse_args()


def requests(client, routes):
    """{name: a function that asks}"""
    from system import ROUTE_ENTRY, route_index

    def place():
        prefix = ipaddress.ip_network((FIRST + random.randrange(routes), 32))
        return ROUTE_ENTRY + (INTERFACE,) + route_index(VRF, prefix, GATEWAY, False)

    def rows(answer):
        """Random rows are there, but for those that are deleted at the moment and the one after the last."""
        found.append(answer[0][1] == INTEGER)
        assert sum(found) >= 0.9 * len(found) - 10, answer

    found = []
    return {"sysUpTime": lambda: client.get(UP_TIME), "GET": lambda: rows([client.get(place())]),
            "GETNEXT": lambda: rows([client.get_next(place())]), f"GETBULK {ROWS}": lambda: rows(client.get_bulk(place(), ROWS))}


def measure(client, options):
    """{name: seconds of each answer, sorted}"""
    asked = requests(client, options.routes)
    times = {name: [] for name in asked}
    end = time.monotonic() + options.seconds
    while time.monotonic() < end:
        for name, ask in asked.items():
            ask()
            times[name].append(client.seconds)
    return {name: sorted(found) for name, found in times.items()}


def report(times):
    for name, found in times.items():
        print(f"{name:12} {len(found):7} answers: median {1e3 * statistics.median(found):6.2f} ms, "
              f"99 % below {1e3 * found[len(found) * 99 // 100]:6.2f} ms, longest {1e3 * found[-1]:6.2f} ms")


def run(options):
    from snmp_client import SnmpClient
    from system import System, wait_until
    with System() as system:
        system.spawn("daemon", str(pathlib.Path(options.bench) / "kernel_load_daemon"), str(options.routes), str(options.changes))
        wait_until("the daemon", lambda: "ready" in system.log("daemon"), 120)
        system.start_snmpd()
        system.start_agent()
        client = SnmpClient(system.port)
        report(measure(client, options))
        client.close()
        system.kill("daemon", signal.SIGTERM)
        print(system.log("daemon").splitlines()[-1])


def main():
    options = parse_arguments()
    os.environ["MPLS_TEST_BIN"] = os.path.abspath(options.programs)
    options.bench = os.path.abspath(options.bench)
    if options.brief:
        options.seconds, options.routes = 1.0, 10_000
    if ctypes.CDLL(None, use_errno=True).unshare(CLONE_NEWNET) != 0:
        print("SKIPPED: no network namespace")
        return
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    run(options)


if __name__ == "__main__":
    main()
