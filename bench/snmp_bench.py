#!/usr/bin/env python3
"""Varbinds per second of the interface table through a stock snmpd: the real sub-agent against two trivial ones with
the same rows, one that speaks AgentX from a sorted array and one on net-snmp's agent library. All processes
share one CPU; the three run alternately, and the results are the medians of the pairwise ratios.

  snmp_bench.py BIN_DIRECTORY BENCH_DIRECTORY [--brief]"""
import os
import pathlib
import statistics
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests/e2e"))
os.environ["MPLS_TEST_BIN"] = str(pathlib.Path(sys.argv[1]).resolve())
from system import IF_CONF, SCALARS, System, wait_until  # noqa: E402

BENCH = pathlib.Path(sys.argv[2]).resolve()
BRIEF = "--brief" in sys.argv
VRFS, INTERFACES = (50, 10) if BRIEF else (1000, 10)
TURNS = 1 if BRIEF else 7
VARBINDS = VRFS * INTERFACES * 4
# The subtrees and the repetitions of each kind of walk.
WALKS = {"column after column, GETBULK 50": (IF_CONF, 50),
         "four columns side by side, GETBULK 12": (",".join(f"{IF_CONF}.1.{column}" for column in (2, 3, 4, 5)), 12)}


def pin_to_one_cpu():
    cpu = max(os.sched_getaffinity(0))
    os.sched_setaffinity(0, {cpu})  # inherited by everything that is started from here
    return cpu


def processor_time(system):
    """Seconds that these processes have used."""
    return sum(int((pathlib.Path("/proc") / str(process.pid) / "schedstat").read_text().split()[0])
               for process in system.processes.values()) / 1e9


def measure(system, kind):
    """Varbinds per second of one whole walk, and per second of the processors' time for the agents, after a first walk that is not
    counted."""
    roots, repetitions = WALKS[kind]
    walk = [str(BENCH / "snmp_walk_client"), str(system.port), roots, str(repetitions), "1"]
    subprocess.run(walk, env=system.environment, check=True, capture_output=True)
    before = processor_time(system)
    output = subprocess.run(walk, env=system.environment, check=True, capture_output=True, text=True).stdout
    used = processor_time(system) - before
    count, seconds = output.split()
    if int(count) != VARBINDS:
        raise SystemExit(f"walked {count} varbinds instead of {VARBINDS}")
    return int(count) / float(seconds), int(count) / used


def check_rows(system, program, expected):
    if system.walk(IF_CONF, tool="bulkwalk") != expected:
        raise SystemExit(f"{program} does not serve the rows of mpls_vpn_snmp")


def run_trivial(system, program, expected):
    system.spawn("trivial", str(BENCH / program), str(system.agentx), str(VRFS), str(INTERFACES))
    wait_until(program, lambda: b"INTEGER" in subprocess.run(
        ["snmpgetnext", "-v2c", "-c", "public", "-t", "5", f"127.0.0.1:{system.port}", IF_CONF],
        env=system.environment, capture_output=True, check=False).stdout, 30)
    if expected is not None:
        check_rows(system, program, expected)
    rates = {kind: measure(system, kind) for kind in WALKS}
    system.kill("trivial")
    wait_until("the table removed", lambda: system.get_value(SCALARS + ".1.0") is None)
    return rates


def run_real(system, rows):
    system.start_agent()
    if rows is not None:
        rows += system.walk(IF_CONF, tool="bulkwalk")
    rates = {kind: measure(system, kind) for kind in WALKS}
    system.kill("agent")
    wait_until("the table removed", lambda: system.get_value(SCALARS + ".1.0") is None)
    return rates


def show(kind, turns):
    print(f"  {kind}")
    for name, text in (("real", "mpls_vpn_snmp with the daemon"), ("array", "trivial AgentX agent, sorted array"),
                       ("library", "trivial agent on net-snmp's library")):
        print(f"    {text:38} {statistics.median(rates[kind][0] for rates in turns[name]):10,.0f} varbinds/s")
    for name, aim in (("array", 0.95), ("library", 1.3)):
        elapsed, used = (statistics.median(real[kind][clock] / other[kind][clock]
                                           for real, other in zip(turns["real"], turns[name])) for clock in (0, 1))
        print(f"    ratio to {name:29} {elapsed:10.2f}; by the time that the agents and snmpd used {used:.2f}   "
              f"(aim: at least {aim})")


def main():
    cpu = pin_to_one_cpu()
    turns = {"real": [], "array": [], "library": []}
    with System(f"generate: {{vrfs: {VRFS}, interfaces_per_vrf: {INTERFACES}}}\n") as system:
        system.start_daemon()
        system.start_snmpd()
        for turn in range(TURNS):
            rows = [] if turn == 0 else None  # the comparison takes long
            turns["real"].append(run_real(system, rows))
            turns["array"].append(run_trivial(system, "agentx_array_agent", rows))
            turns["library"].append(run_trivial(system, "netsnmp_agent", rows))
    print(f"SNMP walk of the interface table, {VRFS} VRFs x {INTERFACES} interfaces, {TURNS} turns, all on CPU {cpu}")
    for kind in WALKS:
        show(kind, turns)


if __name__ == "__main__":
    main()
