#!/usr/bin/env python3
"""How long a scrape of /metrics takes with 1,000 VRFs of four interfaces and four routes each, from the connection to the last octet.
The floor is a bare socket server of another process that sends the same octets; the two alternate.

  scrape_bench.py BIN_DIRECTORY [--brief]"""
import contextlib
import os
import pathlib
import signal
import socket
import statistics
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests/e2e"))
os.environ["MPLS_TEST_BIN"] = str(pathlib.Path(sys.argv[1]).resolve())
from system import System, unused_port  # noqa: E402

BRIEF = "--brief" in sys.argv
VRFS, INTERFACES = (20, 4) if BRIEF else (1000, 4)
SCRAPES = 5 if BRIEF else 200
AIM = 10  # ms
REQUEST = b"GET /metrics HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n"
END_OF_HEAD = b"\r\n\r\n"


def router_file():
    lines = ["vrfs:\n"]
    for vrf in range(VRFS):
        routes = ", ".join(f"{{prefix: 10.{protocol}.0.0/16, type: blackhole, protocol: {protocol_name}}}"
                           for protocol, protocol_name in enumerate(("bgp", "ospf", "static", "rip")))
        lines.append(f"  - {{name: customer-{vrf:04}, table: {vrf + 1000}, rd: \"65000:{vrf}\", routes: [{routes}]}}\n")
    lines.append("interfaces:\n")
    lines += [f"  - {{name: eth{number}, index: {number + 10}, vrf: customer-{number // INTERFACES:04}, state: up}}\n"
              for number in range(VRFS * INTERFACES)]
    return "".join(lines)


def scrape(port):
    """The answer, and the seconds until its last octet."""
    began = time.perf_counter()
    parts = []
    with socket.create_connection(("127.0.0.1", port)) as connection:
        connection.sendall(REQUEST)
        while part := connection.recv(1 << 20):
            parts.append(part)
    return b"".join(parts), time.perf_counter() - began


def serve(listener, answer):
    while True:
        connection, _ = listener.accept()
        with connection:
            request = b""
            while END_OF_HEAD not in request:
                request += connection.recv(4096)
            connection.sendall(answer)


@contextlib.contextmanager
def bare_server(answer):
    """Yields the port of a process that sends the answer."""
    with socket.create_server(("127.0.0.1", 0)) as listener:
        process = os.fork()
        if process == 0:
            try:
                serve(listener, answer)
            finally:
                os._exit(1)
        try:
            yield listener.getsockname()[1]
        finally:
            os.kill(process, signal.SIGKILL)
            os.waitpid(process, 0)


def main():
    port = unused_port()
    with System(router_file()) as system:
        with open(system.folder / "etc/platform.yaml", "a") as settings:
            settings.write(f"metrics: {{port: {port}}}\n")
        system.start_daemon()
        answer = scrape(port)[0]
        head, _, body = answer.partition(END_OF_HEAD)
        if not head.startswith(b"HTTP/1.1 200 ") or body.count(b"\nmplsvpn_vrf_info{") != VRFS:
            raise SystemExit(f"not a scrape of {VRFS} VRFs: {head[:200]}")
        series = sum(not line.startswith(b"#") for line in body.splitlines())
        with bare_server(answer) as bare:
            rounds = [(scrape(port)[1], scrape(bare)[1]) for _ in range(SCRAPES)]
    print(f"scrape of {VRFS:,} VRFs x {INTERFACES} interfaces: {series:,} series, {len(answer) / 1e6:.2f} MB; {SCRAPES} scrapes")
    medians = []
    for name, which in (("/metrics", 0), ("a bare server", 1)):
        times = sorted(each[which] * 1e3 for each in rounds)
        medians.append(statistics.median(times))
        print(f"  {name:14} median {statistics.median(times):7.2f} ms, 99% {times[int(len(times) * 0.99) - 1]:7.2f} ms")
    ratio = statistics.median(full / floor for full, floor in rounds)
    result = "met" if medians[0] < AIM else "not met"
    print(f"  {'ratio':14} {ratio:14.1f}      (aim of the median: below {AIM} ms: {result})")


if __name__ == "__main__":
    main()
