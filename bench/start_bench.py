#!/usr/bin/env python3
"""How long the daemon needs from its start until it reports that it is ready, with a written router file of 10,000 VRFs with 10
interfaces each, of two addresses each. The floor is the same daemon with an empty router file; the two alternate.

  start_bench.py BIN_DIRECTORY [--brief]"""
import os
import pathlib
import socket
import statistics
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests/e2e"))
os.environ["MPLS_TEST_BIN"] = str(pathlib.Path(sys.argv[1]).resolve())
from system import BIN, System  # noqa: E402

BRIEF = "--brief" in sys.argv
VRFS, INTERFACES = (100, 10) if BRIEF else (10000, 10)
TURNS = 1 if BRIEF else 5
TICKS = os.sysconf("SC_CLK_TCK")


def router_file():
    lines = ["vrfs:\n", *(f"  - {{name: customer-{vrf:05}, table: {vrf + 1000}}}\n" for vrf in range(VRFS)), "interfaces:\n"]
    for number in range(VRFS * INTERFACES):
        high, low = number >> 8, number & 255
        lines.append(f"  - name: eth{number}\n    index: {number + 10}\n    vrf: customer-{number // INTERFACES:05}\n"
                     f"    state: up\n    addresses: [10.{high >> 8}.{high & 255}.{low}/32, \"2001:db8:{number >> 16:x}:{number & 0xffff:x}::1/64\"]\n")
    return "".join(lines)


def start(system):
    """Seconds until the daemon is ready, its seconds of processor time until then, and its resident octets."""
    notices = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    notices.bind(str(system.folder / "notices"))
    notices.settimeout(30)
    system.environment["NOTIFY_SOCKET"] = str(system.folder / "notices")
    began = time.monotonic()
    process = system.spawn("daemon", str(BIN / "mpls_vpn_mib"))
    while b"READY=1" not in notices.recv(1000):
        pass
    seconds = time.monotonic() - began
    # After the name in parentheses: user and system time are the fields 14 and 15 of proc(5), RSS is 24.
    fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()
    return seconds, (int(fields[11]) + int(fields[12])) / TICKS, int(fields[21]) * os.sysconf("SC_PAGE_SIZE")


def measure(router):
    with System(router) as system:
        return start(system)


def main():
    router = router_file()
    rounds = [(measure(router), measure("vrfs: []\ninterfaces: []\n")) for _ in range(TURNS)]
    print(f"start until ready, {VRFS:,} VRFs x {INTERFACES} interfaces of a router file of {len(router) / 1e6:.1f} MB; medians")
    for name, which in (("with the router file", 0), ("with an empty one", 1)):
        seconds, processor, resident = (statistics.median(each[which][field] for each in rounds) for field in range(3))
        print(f"  {name:22} {seconds:7.3f} s, {processor:6.2f} s of processor time, {resident / 1e6:6.1f} MB")
    ratio = statistics.median((full[0] - empty[0]) * 1e6 / (VRFS * INTERFACES) for full, empty in rounds)
    print(f"  {'an interface':22} {ratio:7.2f} us   (aim: ready within 1 s)")


if __name__ == "__main__":
    main()
