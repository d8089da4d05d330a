"""Users of the system, each a thread: walks over SNMP, readings and commits on the command line, changes of the router that raise
traps. What they see is checked at once; a request may fail only while something that it needs is disturbed."""
import json
import threading
import time
import traceback

import checks
from rig import FLAPPING, STILL, committed_vrfs, still_vrfs, suite_target, suite_vrfs
from system import L3VPN, ROOT_OID, VRF_ENTRY, SCALARS, name_and_rest, oid_tuple, parse_walk
from trap_sink import decode_trap
from wire import Client

ROW_AGE = 1.0          # seconds for which the sub-agent shows a row that it has read
AGENTX = ("agent", "snmpd")
SUITE_DELAY = 15.0     # seconds after which all items of the suite are visible again
FIRST_ID = 100000      # of the VRFs that are created


class Load(threading.Thread):
    pause = 0.0

    def __init__(self, rig):
        super().__init__(daemon=True)
        self.rig, self.journal, self.stop, self.rounds = rig, rig.journal, threading.Event(), 0

    def run(self):
        try:
            while not self.stop.wait(self.pause):
                self.step()
        except Exception:  # pylint: disable=broad-except
            self.journal.error(f"{type(self).__name__} ended: {traceback.format_exc()}")

    def failed(self, since, names, text):
        """A request that began then got no answer."""
        if not self.journal.disturbed(names, since, time.monotonic()):
            self.journal.error(f"{type(self).__name__}, while nothing is disturbed: {text}")

    def errors(self, found):
        for text in found:
            self.journal.error(f"{type(self).__name__}: {text}")


def lasting_oids(rows):
    """Without those of VRFs whose number of rows changes, and of columns that only the description of a row has."""
    still = set(still_vrfs())

    def lasts(oid):
        if oid[:len(ROOT_OID) + 2] == oid_tuple(SCALARS):
            return True
        index = oid[len(VRF_ENTRY) + 1:]
        return name_and_rest(index)[0] in still
    return {oid for oid, _ in rows if lasts(oid)}


class Walker(Load):
    """Walks the whole MIB."""

    def __init__(self, rig):
        super().__init__(rig)
        self.lasting = lasting_oids(rig.walk())

    def walk(self, timeout=1):
        since = time.monotonic()
        result = self.rig.snmp("bulkwalk", L3VPN, timeout=timeout, options=("-Cr40", "-r", "4"))
        return since, result, parse_walk(result.stdout)

    def step(self):
        since, result, rows = self.walk()
        self.rounds += 1
        if result.returncode != 0:
            self.failed(since, ("daemon", *AGENTX), f"{result.returncode} {result.stderr.strip()[-300:]}")
        may_be_cut = result.returncode != 0 or self.journal.disturbed(AGENTX, since, time.monotonic())
        if "not increasing" in result.stderr:
            self.errors([result.stderr.strip()])
        self.errors(checks.walk_errors(rows, self.lasting, may_be_cut))

    def whole(self):
        """Whether a walk shows everything now."""
        _, result, rows = self.walk()
        return result.returncode == 0 and not checks.walk_errors(rows, self.lasting, False)


class Reader(Load):
    """Reads the VRFs on the command line: times that must not change, and what commits have set."""
    pause = 0.1

    def __init__(self, rig, commits):
        super().__init__(rig)
        self.commits, self.times = commits, checks.Times(still_vrfs())

    def step(self):
        since, look = time.monotonic(), self.commits.look()
        rows = self.rig.vrfs()
        self.rounds += 1
        if rows is None:
            self.failed(since, ("daemon",), "show vrf failed")
            return
        self.errors(self.times.errors(rows))
        if lacking := set(committed_vrfs()) - rows.keys():
            self.errors([f"no row of {sorted(lacking)}"])
            return
        self.errors(self.commits.errors(look, [commit_number(rows[name]["description"]) for name in committed_vrfs()]))


def commit_number(description):
    return int(description.removeprefix("commit ") or 0)


class TargetReader(Load):
    """Reads the route targets: those of the suite are stored, so only the suite's own end removes them."""
    pause = 0.3

    def step(self):
        since = time.monotonic()
        result = self.rig.cli("--json", "--timeout", "20000", "show", "route-targets")
        self.rounds += 1
        if result.returncode != 0:
            self.failed(since, ("daemon",), f"show route-targets: {result.stderr.strip()}")
        elif self.rig.suite and not self.journal.disturbed(("suite",), since - SUITE_DELAY, time.monotonic()):
            self.errors(self.missing(result.stdout))

    def missing(self, shown):
        wanted = {(name, suite_target(number)) for number, name in enumerate(suite_vrfs(), 1)}
        lacking = wanted - {(row["vrfName"], row["rt"]) for row in json.loads(shown)}
        return [f"the suite's route targets are not shown: {sorted(lacking)}"] if lacking else []


class Committer(Load):
    """Commits that set several descriptions at once."""
    pause = 0.05

    def __init__(self, rig, commits):
        super().__init__(rig)
        self.commits, self.acknowledged = commits, 0
        self.file = rig.folder / "commit.conf"

    def step(self):
        since, number = time.monotonic(), self.commits.begin()
        self.file.write_text("".join(f'set vrf {name} description "commit {number}"\n' for name in committed_vrfs()))
        result = self.rig.cli("--timeout", "20000", "config", "load", str(self.file))
        self.commits.end(number, result.returncode == 0)
        self.rounds += 1
        if result.returncode != 0:
            self.failed(since, ("daemon", "state directory"), f"commit {number}: {result.stderr.strip()}")


class Flapper(Load):
    """Moves an interface into new VRFs: each raises an up when the interface joins it and a down when the interface leaves."""
    UP, DOWN = 1, 2

    def __init__(self, rig, traps, lock):
        super().__init__(rig)
        self.traps, self.lock, self.number = traps, lock, 0
        self.fast = threading.Event()

    def step(self):
        since = time.monotonic()
        try:
            with Client(self.rig.socket) as client:
                self.step_connected(client, since)
        except (OSError, AssertionError) as failure:
            self.failed(since, ("daemon",), repr(failure))
            self.stop.wait(0.02)

    def step_connected(self, client, since):
        joined = None
        while not self.stop.is_set():
            since = time.monotonic()
            self.number += 1
            name = f"t{self.number}"
            raised = [(self.UP, name)] if joined is None else [(self.DOWN, joined), (self.UP, name)]
            client.action("router", "add-vrf", name, "id", str(FIRST_ID + self.number))
            with self.lock:
                for trap in raised:
                    self.traps.submit(trap)
            client.action("router", "move", FLAPPING, name)
            with self.lock:
                for trap in raised:
                    self.traps.confirm(trap)
            if joined is not None:
                client.action("router", "delete-vrf", joined)
            joined = name
            self.rounds += 1
            if not self.fast.is_set():
                self.stop.wait(0.03)


class TrapReader:
    """Moves the traps that have arrived from the sink to the ledger."""

    def __init__(self, rig, traps, lock):
        self.rig, self.traps, self.lock, self.read = rig, traps, lock, 0

    def drain(self):
        journal, received = self.rig.journal, self.rig.sink.received
        with self.lock:
            while self.read < len(received):
                when, datagram = received[self.read]
                received[self.read] = None
                self.read += 1
                trap = decode_trap(datagram)
                if trap is None:
                    continue

                def repeats_since(first, now=when):
                    return journal.disturbed(("daemon", *AGENTX), first - 1, now)
                for text in self.traps.receive(key_of(trap), when, repeats_since):
                    journal.error(text)


def key_of(trap):
    """(number, VRF): the last variable is a column of the VRF's row."""
    number, variables = trap
    oid, _ = variables[-1]
    return number, name_and_rest(oid[len(VRF_ENTRY) - len(ROOT_OID) + 1:])[0]
