#!/usr/bin/env python3
"""Traps per second through a stock snmpd: a full queue of the daemon, sent by the sub-agent, against a trivial AgentX
notifier. All processes share one CPU; the two run alternately, and the result is the median of the pairwise ratios. The
time is that between the first and the last datagram.

  trap_bench.py BIN_DIRECTORY BENCH_DIRECTORY [--brief]"""
import os
import pathlib
import statistics
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests/e2e"))
os.environ["MPLS_TEST_BIN"] = sys.argv[1]
from system import System, wait_until  # noqa: E402
from trap_sink import TrapSink  # noqa: E402
from wire import Client  # noqa: E402

BENCH = pathlib.Path(sys.argv[2])
BRIEF = "--brief" in sys.argv
TURNS = 1 if BRIEF else 5
QUEUE = 4096  # what the daemon keeps
WINDOW = 16   # notifications that the sub-agent has under way
ROUTER = """
vrfs:
  - {name: red, table: 10}
interfaces:
  - {name: ge0, index: 11, vrf: red, state: up, addresses: [10.0.0.1/24]}
"""


def rate(sink):
    """Traps per second of a whole queue."""
    wait_until("the traps", lambda: len(sink.received) >= QUEUE, 120)
    times = [at for at, _ in sink.received[:QUEUE]]
    sink.received.clear()
    return (QUEUE - 1) / (times[-1] - times[0])


def run_real(system, sink):
    with Client(system.folder / "run/dev.mpls.vpn.main") as client:
        for _ in range(QUEUE):
            client.action("router", "down", "ge0")
            client.action("router", "up", "ge0")
    sink.received.clear()  # of the start of snmpd
    system.spawn("agent", str(pathlib.Path(sys.argv[1]) / "mpls_vpn_snmp"), "--agentx-socket", str(system.agentx))
    ours = rate(sink)
    system.kill("agent")
    return ours


def run_trivial(system, sink):
    notifier = subprocess.Popen([str(BENCH / "agentx_notifier"), str(system.agentx), str(QUEUE), str(WINDOW)])
    other = rate(sink)
    if notifier.wait() != 0:
        raise SystemExit("the notifier failed")
    return other


def main():
    cpu = max(os.sched_getaffinity(0))
    os.sched_setaffinity(0, {cpu})  # inherited by everything that is started from here
    sink = TrapSink()
    real, trivial = [], []
    with System(ROUTER) as system:
        system.trap_port = sink.port
        system.start_daemon()
        system.start_snmpd()
        system.cli("config", "set", "traps", "all", check=True)
        for _ in range(TURNS):
            real.append(run_real(system, sink))
            trivial.append(run_trivial(system, sink))
    ratio = statistics.median(ours / other for ours, other in zip(real, trivial))
    print(f"Traps through snmpd, {QUEUE} of a queue, {TURNS} turns, all on CPU {cpu}")
    print(f"  mpls_vpn_snmp with the daemon          {statistics.median(real):10,.0f} traps/s")
    print(f"  trivial AgentX notifier                {statistics.median(trivial):10,.0f} traps/s")
    print(f"  ratio                                  {ratio:10.2f}   (aim: at least 0.9)")


if __name__ == "__main__":
    main()
