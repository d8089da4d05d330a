#!/usr/bin/env python3
"""The route table of one VRF against net-snmp's own inetCidrRouteTable: the same routes, the same snmpd, the same client,
in one run. The kernel's routes, which snmpd reads, are in a network namespace of the run's own; the daemon's are
the same prefixes from a router file.

  route_table_bench.py BIN_DIRECTORY BENCH_DIRECTORY [--brief]        (as root, for the namespace)

The sub-agent and the module inside snmpd are measured in turn.

Shown for each number of routes:
  first row     seconds until the first row is answered, without requests before
  rows/s        of one column, GETBULK 50, table warm; the median of alternating rounds
  octets/route  growth of the processes that store the routes
  silence       longest time in which snmpd did not answer a GET of sysUpTime, from the request of the first row until the
                column was walked once"""
import ipaddress
import json
import os
import pathlib
import statistics
import subprocess
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests/e2e"))
os.environ["MPLS_TEST_BIN"] = str(pathlib.Path(sys.argv[1]).resolve())
from snmp_client import GET_NEXT, SnmpClient  # noqa: E402
from system import L3VPN, System, name_index, wait_until  # noqa: E402

BENCH = pathlib.Path(sys.argv[2]).resolve()
BRIEF = "--brief" in sys.argv
COUNTS = (1000,) if BRIEF else (1000, 10000, 100000)
TURNS = 1 if BRIEF else 3
MODULE = pathlib.Path(sys.argv[1]).resolve().parent / "lib/mpls_vpn_snmpd.so"
OURS = L3VPN + ".1.4.1.1.7"        # mplsL3VpnVrfRteInetCidrIfIndex
THEIRS = "1.3.6.1.2.1.4.24.7.1.7"  # inetCidrRouteIfIndex
UP_TIME = "1.3.6.1.2.1.1.3"
ROUTER = {"vrfs": [{"name": "red", "table": 10}, {"name": "blue", "table": 20}]}
FIRST, GATEWAY = "20.0.0.0/24", "192.0.2.1"


def getnext(port, oid, timeout):
    """Seconds until a GETNEXT, sent once, is answered, and the name in the answer."""
    client = SnmpClient(port, timeout)
    (name, _, _), = client.request(GET_NEXT, numbers(oid))
    client.close()
    return client.seconds, name


def numbers(oid):
    return tuple(int(part) for part in oid.split("."))


class Prober(threading.Thread):
    """Asks for sysUpTime all the time, one question at a time."""

    def __init__(self, port):
        super().__init__(daemon=True)
        self.port, self.longest, self.stop = port, 0.0, threading.Event()

    def run(self):
        while not self.stop.wait(0.002):
            self.longest = max(self.longest, getnext(self.port, UP_TIME, 1000)[0])


def resident(process):
    for line in pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1]) * 1024
    raise SystemExit(f"process {process.pid} has ended")


def prefixes(count):
    first = ipaddress.ip_network(FIRST)
    return (ipaddress.ip_network((int(first.network_address) + 256 * number, 24)) for number in range(count))


def fill_kernel(count):
    batch = "".join(f"route add {prefix} via {GATEWAY}\n" for prefix in prefixes(count))
    subprocess.run(["ip", "-batch", "-"], input=batch, text=True, check=True)


def empty_kernel():
    subprocess.run(["ip", "route", "flush", "via", GATEWAY], check=True)


def walk(system, oid, count):
    """Rows per second. Some rows more than the routes are the namespace's own."""
    client = [str(BENCH / "snmp_walk_client"), str(system.port), oid, "50", "1"]
    output = subprocess.run(client, env=system.environment, check=True, capture_output=True, text=True).stdout
    rows, seconds = output.split()
    if not count <= int(rows) <= count + 20:
        raise SystemExit(f"{oid}: {rows} rows instead of {count}")
    return int(rows) / float(seconds)


def first_and_silence(system, oid, count, patience=300):
    """TimeoutError if the first row needs more than `patience` seconds."""
    prober = Prober(system.port)
    prober.start()
    try:
        time.sleep(0.2)
        first, name = getnext(system.port, oid, patience)
        if name[:len(numbers(oid))] != numbers(oid):
            raise SystemExit(f"{oid}: no first row")
        walk(system, oid, count)
    finally:
        prober.stop.set()
    prober.join()
    return first, prober.longest


def give_routes(system, count):
    routes = [{"generate": count, "prefix": FIRST, "next_hop": GATEWAY}]
    vrfs = [dict(ROUTER["vrfs"][0], routes=routes), *ROUTER["vrfs"][1:]]
    system.router_file.write_text(json.dumps({"vrfs": vrfs}))
    number = L3VPN + ".1.3.1.1.3." + ".".join(map(str, name_index("red")))
    wait_until("the routes", lambda: system.get_value(number) == str(count), 60)


def measure(count, module):
    """One front end against snmpd's own table."""
    with System(json.dumps(ROUTER)) as system:
        system.module = module
        system.start_all()
        ours_are = [system.processes[name] for name in ("daemon", "snmpd" if module else "agent")]
        snmpd = system.processes["snmpd"]
        before = {process: resident(process) for process in ours_are}
        give_routes(system, count)
        ours = first_and_silence(system, OURS, count)
        our_memory = sum(resident(process) - before[process] for process in ours_are) / count
        before[snmpd] = resident(snmpd)
        theirs = first_and_silence(system, THEIRS, count)
        their_memory = (resident(snmpd) - before[snmpd]) / count
        rates = [(walk(system, OURS, count), walk(system, THEIRS, count)) for _ in range(TURNS)]
    name = "mpls_vpn_snmpd.so" if module else "mpls_vpn_snmp"
    for name, (first, silence), memory, rate in (
            (name + " + daemon", ours, our_memory, statistics.median(pair[0] for pair in rates)),
            ("snmpd's own table", theirs, their_memory, statistics.median(pair[1] for pair in rates))):
        print(f"    {name:26} {first:8.3f} s  {rate:10,.0f}  {memory:12,.0f}  {silence:7.3f} s")
    print(f"    {'ratio, ours to theirs':26} {ours[0] / theirs[0]:8.3f}    "
          f"{statistics.median(one / other for one, other in rates):10.3f}  {our_memory / their_memory:12.2f}  "
          f"{ours[1] / theirs[1]:7.3f}", flush=True)


def enter_namespace():
    """The program begins anew in a network namespace of its own, with a gateway for the kernel's routes."""
    if "--in-namespace" not in sys.argv:
        os.execvp("unshare", ["unshare", "--net", sys.executable, *sys.argv, "--in-namespace"])
    for command in ("link set lo up", "link add uplink type veth peer name far", "link set far up",
                    "addr add 192.0.2.2/24 dev uplink", "link set uplink up"):
        subprocess.run(["ip", *command.split()], check=True)


def main():
    enter_namespace()
    print("route table, one column, against snmpd's own inetCidrRouteTable; times in seconds, one run")
    for count in COUNTS:
        print(f"  {count:7,} routes              first row      rows/s  octets/route    silence")
        fill_kernel(count)
        for module in (None, MODULE) if MODULE.exists() else (None,):
            measure(count, module)
        empty_kernel()


if __name__ == "__main__":
    main()
