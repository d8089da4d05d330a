#!/usr/bin/env python3
"""Varbinds per second of the interface table through a stock snmpd: the real sub-agent against two trivial ones with
the same index shape, one that speaks AgentX from a sorted array and one on net-snmp's agent library. All processes
share one CPU; the three run alternately, and the results are the medians of the pairwise ratios.

  snmp_bench.py BIN_DIRECTORY BENCH_DIRECTORY [--brief]"""
import os
import pathlib
import statistics
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests/e2e"))
os.environ["MPLS_TEST_BIN"] = sys.argv[1]
from system import IF_CONF, SCALARS, System, wait_until  # noqa: E402

BENCH = pathlib.Path(sys.argv[2])
BRIEF = "--brief" in sys.argv
VRFS, INTERFACES = (50, 10) if BRIEF else (1000, 10)
TURNS = 1 if BRIEF else 7
VARBINDS = VRFS * INTERFACES * 4


def pin_to_one_cpu():
    cpu = max(os.sched_getaffinity(0))
    os.sched_setaffinity(0, {cpu})  # inherited by everything that is started from here
    return cpu


def measure(system):
    """Varbinds per second of one whole walk with GETBULK 50, after a first walk that is not counted."""
    walk = [str(BENCH / "snmp_walk_client"), str(system.port), IF_CONF, "50", "1"]
    subprocess.run(walk, env=system.environment, check=True, capture_output=True)
    output = subprocess.run(walk, env=system.environment, check=True, capture_output=True, text=True).stdout
    count, seconds = output.split()
    if int(count) != VARBINDS:
        raise SystemExit(f"walked {count} varbinds instead of {VARBINDS}")
    return int(count) / float(seconds)


def run_trivial(system, program):
    system.spawn("trivial", str(BENCH / program), str(system.agentx), str(VRFS), str(INTERFACES))
    wait_until(program, lambda: b"INTEGER" in subprocess.run(
        ["snmpgetnext", "-v2c", "-c", "public", "-t", "5", f"127.0.0.1:{system.port}", IF_CONF],
        env=system.environment, capture_output=True, check=False).stdout, 30)
    rate = measure(system)
    system.kill("trivial")
    wait_until("the table removed", lambda: system.get_value(SCALARS + ".1.0") is None)
    return rate


def run_real(system):
    system.start_agent()
    rate = measure(system)
    system.kill("agent")
    wait_until("the table removed", lambda: system.get_value(SCALARS + ".1.0") is None)
    return rate


def main():
    cpu = pin_to_one_cpu()
    rates = {"real": [], "array": [], "library": []}
    with System(f"generate: {{vrfs: {VRFS}, interfaces_per_vrf: {INTERFACES}}}\n") as system:
        system.start_daemon()
        system.start_snmpd()
        for _ in range(TURNS):
            rates["real"].append(run_real(system))
            rates["array"].append(run_trivial(system, "agentx_array_agent"))
            rates["library"].append(run_trivial(system, "netsnmp_agent"))
    median = {name: statistics.median(values) for name, values in rates.items()}
    print(f"SNMP walk of the interface table, GETBULK 50, {VRFS} VRFs x {INTERFACES} interfaces, "
          f"{TURNS} turns, all on CPU {cpu}")
    for name, text in (("real", "mpls_vpn_snmp with the daemon"), ("array", "trivial AgentX agent, sorted array"),
                       ("library", "trivial agent on net-snmp's library")):
        print(f"  {text:38} {median[name]:10,.0f} varbinds/s")
    for name, aim in (("array", 0.9), ("library", 1.3)):
        ratio = statistics.median(real / other for real, other in zip(rates["real"], rates[name]))
        print(f"  ratio to {name:29} {ratio:10.2f}   (aim: at least {aim})")


if __name__ == "__main__":
    main()
