#!/usr/bin/env python3
"""soak.py BIN_DIRECTORY [--seconds N] [--routes N] [--changes N] [--interval N]: daemon, sub-agent and a stock snmpd on a kernel
whose VRFs have this many routes, of which this many change each second, with walkers, readers, commits and traps. Runs in
the guest (see uml-run), as root; scripts/soak calls it.

Writes a line for each interval to soak.csv in $UML_OUT, and ends before its time when there is a file `stop`. At the end it
waits until the MIB shows every change, unless it is interrupted, and prints a report (see report.py)."""
import argparse
import collections
import csv
import json
import os
import pathlib
import statistics
import subprocess
import sys
import time

OUT = pathlib.Path(os.environ.get("UML_OUT", "."))
HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent), str(HERE)]
os.environ.setdefault("MPLS_TEST_SLOW", "20")  # the run may have the lowest priority on a busy machine
import guest_system  # noqa: E402,F401 (before system)
import report  # noqa: E402
from clients import Clients, walk_rows  # noqa: E402
from kernel import batch, vrf_lines  # noqa: E402
from moving_routes import MovingRoutes  # noqa: E402
from snmp_client import SnmpClient  # noqa: E402
from system import PERF_ENTRY, ROUTE_ENTRY, SLOW, System, name_index, wait_until  # noqa: E402
from trap_sink import TrapSink  # noqa: E402

PRESENT, INTERFACE = 3, 7          # columns of the performance and of the route table
NO_SUCH = (0x80, 0x81)
DOWN, UP = 2, 1                    # numbers of the notifications
COMMIT_EVERY, TRAP_EVERY = 10, 5   # seconds
TOO_LATE = 1800                    # seconds: a change that is not visible by then is lost
MADE_UP = 60                       # seconds of changes that are made up for when the machine was busy
WHOLE_WALK = 0.99                  # rows of a walk for each route: all, but for those changed meanwhile
PATIENT = ("--timeout", "60000")   # of mplsvpn
FLAPPING = (*vrf_lines({"flap": 99}), "link add f0 type dummy", "link set f0 addrgenmode none", "addr add 10.255.0.1/24 dev f0",
            "link set f0 master flap", "link set f0 up")


class SoakSystem(System):
    def __init__(self, sink):
        super().__init__(source="kernel", frr="false")
        self.sink = sink

    def snmpd_settings(self):
        """Without the log of the latest 1000 notifications, for which snmpd needs 12 MB."""
        return super().snmpd_settings() + "doNotRetainNotificationLogs yes\n"

    def trap_sink(self):
        return f"trap2sink 127.0.0.1:{self.sink.port} public\n"

    def resident(self, name):
        """KiB, without files: the trace buffers become resident as they are filled."""
        status = pathlib.Path(f"/proc/{self.processes[name].pid}/status").read_text()
        return int(status.split("RssAnon:")[1].split()[0])

    def files(self, name):
        return len(os.listdir(f"/proc/{self.processes[name].pid}/fd"))

    def state(self):
        """KiB."""
        return sum(path.stat().st_blocks for path in (self.folder / "state").rglob("*")) // 2


class Changes:
    """Changes the routes at a rate, and measures for one change at a time how long it takes until it is seen."""

    def __init__(self, routes, rate, client, log):
        self.routes, self.rate, self.client, self.log = routes, rate, client, log
        self.pending, self.delays, self.lost = None, [], 0
        self.due = time.monotonic()

    def step(self):
        now = time.monotonic()
        self.due = max(self.due, now - MADE_UP)
        if now >= self.due:
            self.due += 1
            changed = self.routes.change(self.rate)
            self.pending = self.pending or Pending(changed[0])
        elif self.pending:
            self.look(self.pending)

    def look(self, pending):
        waited = time.monotonic() - pending.since
        row, is_there = pending.rows[0]
        if self.sees(row) is is_there:
            pending.rows.pop(0)
        if not pending.rows:
            self.delays.append(waited)
            self.pending = None
        elif waited > TOO_LATE:
            self.log(f"{pending.text} is not visible after {waited:.0f} s")
            self.lost += 1
            self.pending = None

    def sees(self, row):
        """None if there is no answer."""
        try:
            _, tag, _ = self.client.get(ROUTE_ENTRY + (INTERFACE,) + row)
        except (TimeoutError, RuntimeError):
            return None
        return tag not in NO_SUCH


class Pending:
    """The latest change of a VRF: a route that must become a row, and one whose row must be removed."""

    def __init__(self, vrf):
        self.since, self.text = time.monotonic(), f"{vrf.name}: {vrf.prefix(vrf.next - 1)}"
        self.rows = [(vrf.row(vrf.next - 1), True), (vrf.row(vrf.oldest - 1), False)]


class Soak:
    def __init__(self, arguments):
        self.arguments = arguments
        self.sink = TrapSink()
        self.system = SoakSystem(self.sink)
        self.routes = MovingRoutes(arguments.routes)
        self.seen, self.walk, self.files = collections.defaultdict(list), {}, {}
        self.walked = self.walks = self.walk_errors = self.commits = self.lost = 0
        self.traps = []  # numbers expected

    def log(self, text):
        with open(OUT / "log", "a") as log:
            log.write(f"{time.strftime('%H:%M:%S')} {text}\n")

    def prepare(self):
        self.log(f"{self.arguments.routes} routes")
        self.routes.load()
        batch(FLAPPING)
        self.system.start_all()
        self.client = SnmpClient(self.system.port, 30)
        self.cli("config", "set", "traps", "all")
        self.log("the kernel has the routes")
        for vrf in self.routes.vrfs:
            wait_until(f"the routes of {vrf.name}", lambda v=vrf: self.number(v) == v.size + 1, 3600 / SLOW, 0.5)
        self.changes = Changes(self.routes, self.arguments.changes, self.client, self.log)
        self.clients = Clients(self.system, self.routes.vrfs)
        self.log("the MIB has the routes")

    # --- What happens ---

    def run(self):
        start = time.monotonic()
        next_line, next_commit, next_trap = (start + every for every in (self.arguments.interval, COMMIT_EVERY, TRAP_EVERY))
        next_look = start
        while time.monotonic() < start + self.arguments.seconds and not (OUT / "stop").exists():
            self.changes.step()
            if time.monotonic() >= next_look:
                next_look = time.monotonic() + 1
                self.collect()
            if time.monotonic() >= next_commit:
                next_commit = time.monotonic() + COMMIT_EVERY
                self.commit()
            if time.monotonic() >= next_trap:
                next_trap = time.monotonic() + TRAP_EVERY
                self.flap()
            if time.monotonic() >= next_line:
                next_line += self.arguments.interval
                self.write_line(time.monotonic() - start)
            time.sleep(0.05)
        end = "interrupted" if (OUT / "stop").exists() else "complete"
        self.clients.end()
        if end == "complete":
            self.log("the last changes are checked")
            self.check_changes()
            self.check_traps()
        self.collect()
        self.write_line(time.monotonic() - start)
        return end

    def commit(self):
        """A VRF gets another description, and its route target is set or deleted."""
        vrf = self.routes.vrfs[self.commits % len(self.routes.vrfs)].name
        value = f"commit {self.commits}"
        verb = "delete" if (self.commits // len(self.routes.vrfs)) % 2 else "set"
        self.cli("config", "set", "vrf", vrf, "description", value)
        self.cli("config", verb, "vrf", vrf, "rt", "both", "65000:1")
        shown = json.loads(self.cli("--json", "get", f"vrf/{vrf}"))["description"]
        if shown != value:
            self.lose(f"{vrf} has the description {shown!r}, not {value!r}")
        self.commits += 1

    def cli(self, *words):
        """The output. A command that does not succeed is repeated: the machine may be busy."""
        for _ in range(5):
            done = self.system.cli(*PATIENT, *words)
            if done.returncode == 0:
                return done.stdout
            self.log(f"mplsvpn {' '.join(words)}: {done.stderr}")
        raise AssertionError(f"mplsvpn {' '.join(words)} failed five times: {done.stderr}")

    def flap(self):
        """An interface goes down or up again when the notification of the last time was received: the daemon does not see shorter
        changes."""
        if len(self.received()) < len(self.traps):
            return
        is_down = len(self.traps) % 2
        batch([f"link set f0 {'up' if is_down else 'down'}"])
        self.traps.append(UP if is_down else DOWN)

    def lose(self, text):
        self.log(text)
        self.lost += 1

    def collect(self):
        for name in report.PROCESSES:
            assert self.system.processes[name].poll() is None, f"{name} ended: {self.system.log(name)[-2000:]}"
            self.files[name] = min(self.files.get(name, 1 << 20), self.system.files(name))
        for kind, value in self.clients.reports():
            if kind == "rows":
                self.walked += value
            elif kind == "walk":
                self.walks += 1
                self.walk = {"walk_s": round(value[0], 1), "walk_rows": value[1]}
                if value[1] < WHOLE_WALK * self.routes.count():
                    self.lose(f"a walk had {value[1]} rows only")
            elif kind == "error":
                self.log(value)
                self.walk_errors += 1
            else:
                self.seen[kind].append(value)

    # --- What must be ---

    def number(self, vrf):
        """Of the VRF's routes; None while the SNMP agent does not answer."""
        try:
            _, tag, content = self.client.get(PERF_ENTRY + (PRESENT,) + name_index(vrf.name))
        except (TimeoutError, RuntimeError):
            return None
        return None if tag in NO_SUCH else int.from_bytes(content, "big")

    def check_changes(self):
        """The MIB has exactly the kernel's routes."""
        for vrf in self.routes.vrfs:
            try:
                wait_until("the changes", lambda v=vrf: self.is_current(v), TOO_LATE / SLOW, 0.2)
                assert self.rows(vrf) == [vrf.row(number) for number in range(vrf.oldest, vrf.next)], "other routes"
            except AssertionError as error:
                self.lose(f"{vrf.name}: {error}; {self.number(vrf)} routes, not {vrf.size + 1}")

    def is_current(self, vrf):
        see = self.changes.sees
        return (self.number(vrf) == vrf.size + 1 and see(vrf.row(vrf.next - 1)) is True and
                (vrf.oldest == 0 or see(vrf.row(vrf.oldest - 1)) is False))

    def rows(self, vrf):
        """The indexes of its rows after that of its interface's prefix, which is the first."""
        column = ROUTE_ENTRY + (INTERFACE,)
        root = column + name_index(vrf.name)
        found = walk_rows(self.client, root)
        return [name[len(column):] for name in found if name[len(column):] != vrf.connected_row()]

    def received(self):
        return [number for number, _ in self.sink.traps()]

    def check_traps(self):
        try:
            wait_until("the traps", lambda: len(self.received()) >= len(self.traps), TOO_LATE / SLOW)
        except AssertionError:
            pass
        if self.received() != self.traps:
            self.lose(f"{len(self.received())} traps were received, not the {len(self.traps)} raised")

    # --- What is measured ---

    def write_line(self, seconds):
        line = {"seconds": round(seconds), "state_kib": self.system.state(), "rows_walked": self.walked, "walks": self.walks,
                "walk_errors": self.walk_errors, "routes": self.routes.count(), "changes": self.routes.changes,
                "pending": int(self.changes.pending is not None), "commits": self.commits, "traps_raised": len(self.traps),
                "traps_received": len(self.received()), "lost": self.lost + self.changes.lost,
                "long_iterations": json.loads(self.cli("--json", "show", "status"))["longIterations"], **self.walk}
        for name in report.PROCESSES:
            line[f"{name}_kib"] = self.system.resident(name)
            line[f"{name}_files"] = self.files[name]
        for kind in report.KINDS:
            line |= latencies(kind, self.seen[kind])
        if self.changes.delays:
            line |= {"delay_p50_ms": milliseconds(statistics.median(self.changes.delays)),
                     "delay_max_ms": milliseconds(max(self.changes.delays))}
        self.changes.delays, self.files = [], {}
        self.seen.clear()
        is_new = not (OUT / "soak.csv").exists()
        with open(OUT / "soak.csv", "a", newline="") as file:
            writer = csv.DictWriter(file, report.COLUMNS)
            if is_new:
                writer.writeheader()
            writer.writerow(line)


def milliseconds(seconds):
    return round(1000 * seconds, 1)


def latencies(kind, seconds):
    answered = sorted(each for each in seconds if each is not None)
    line = {f"{kind}_asked": len(seconds), f"{kind}_failed": len(seconds) - len(answered)}
    if answered:
        for part in (50, 99):
            line[f"{kind}_p{part}_ms"] = milliseconds(answered[min(len(answered) - 1, len(answered) * part // 100)])
    return line


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seconds", type=float, default=20)
    parser.add_argument("--routes", type=int, default=2000)
    parser.add_argument("--changes", type=int, default=50, help="in each second")
    parser.add_argument("--interval", type=float, default=60, help="seconds of a line")
    parser.add_argument("--settle", type=int, default=5, help="lines before the start that is compared with the end")
    arguments = parser.parse_args()
    subprocess.run(["modprobe", "-a", "vrf", "dummy"], check=True)
    soak = Soak(arguments)
    try:
        with soak.system:
            soak.prepare()
            end = soak.run()
    except (AssertionError, OSError, subprocess.SubprocessError) as error:
        end = f"{type(error).__name__}: {error}"
        soak.log(end)
    (OUT / "end").write_text(end + "\n")
    return 0 if report.report(OUT, arguments.settle) else 1


if __name__ == "__main__":
    sys.exit(main())
