"""Users of the system, each a thread: walks over SNMP, readings and commits on the command line, changes of the router that raise
traps. What they see is checked at once; a request may fail only while something that it needs is disturbed."""
import json
import re
import threading
import time
import traceback

import checks
from router import committed_vrfs, still_vrfs, suite_target, suite_vrfs
from system import L3VPN, ROOT_OID, SCALARS, VRF_ENTRY, name_and_rest, oid_tuple, parse_walk
from trap_sink import decode_trap

AGENTX = ("agent", "snmpd")
PAUSE_OF_FLAPS = 0.03
SUITE_DELAY = 15.0     # seconds after which all items of the suite are visible again


class Load(threading.Thread):
    pause = 0.0

    def __init__(self, rig):
        super().__init__(daemon=True)
        self.rig, self.journal, self.stop, self.rounds = rig, rig.journal, threading.Event(), 0

    def run(self):
        try:
            while not self.stop.wait(max(self.pause, self.rig.least_pause)):
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
        self.commits = commits

    def step(self):
        commit(self, self.commits, committed_vrfs())
        self.rounds += 1


class LargeCommits(Load):
    """One commit at a time, when it is asked for, that describes VRFs which no one has created."""
    VRFS = [f"large{number:04}" for number in range(3000)]

    def __init__(self, rig):
        super().__init__(rig)
        self.commits, self.wanted = checks.Commits(), threading.Event()

    def step(self):
        if not self.wanted.wait(0.1):
            return
        commit(self, self.commits, self.VRFS)
        self.rounds += 1
        self.wanted.clear()

    def check(self):
        """What is effective of them, when none is in progress."""
        if self.wanted.is_set() or self.rounds == 0:
            return
        look = self.commits.look()
        result = self.rig.cli("--timeout", "20000", "config", "show")
        if result.returncode != 0:
            self.errors([f"config show: {result.stderr}"])
            return
        numbers = re.findall(r"^set vrf large\d+ description \"?commit (\d+)", result.stdout, re.MULTILINE)
        self.errors(self.commits.errors(look, list(map(int, numbers)) + [0] * (len(self.VRFS) - len(numbers))))


def commit(load, commits, vrfs):
    since, number = time.monotonic(), commits.begin()
    file = load.rig.folder / f"{type(load).__name__}.conf"
    file.write_text("".join(f'set vrf {name} description "commit {number}"\n' for name in vrfs))
    result = load.rig.cli("--timeout", "20000", "config", "load", str(file))
    commits.end(number, result.returncode == 0)
    if result.returncode != 0:
        load.failed(since, ("daemon", "state directory"), f"commit {number}: {result.stderr.strip()}")


class Flapper(Load):
    """Moves an interface into new VRFs: each raises an up when the interface joins it and a down when the interface leaves."""
    UP, DOWN = 1, 2

    def __init__(self, rig, traps, lock):
        super().__init__(rig)
        self.traps, self.lock, self.number = traps, lock, 0
        self.fast, self.longest = threading.Event(), 0.0

    def step(self):
        since = time.monotonic()
        try:
            with self.rig.router.session(self.rig) as session:
                while not self.stop.is_set():
                    since = time.monotonic()
                    self.flap(session)
                    self.longest = max(self.longest, session.longest)
                    self.stop.wait(0 if self.fast.is_set() else max(PAUSE_OF_FLAPS, self.rig.least_pause))
        except (OSError, AssertionError) as failure:
            self.failed(since, ("daemon",), repr(failure))
            self.stop.wait(0.02)

    def flap(self, session):
        self.number += 1
        former, joined = session.joined, f"t{self.number}"
        raised = [(self.UP, joined)] if former is None else [(self.DOWN, former), (self.UP, joined)]
        session.create(joined, self.number)
        with self.lock:
            for trap in raised:
                self.traps.submit(trap)
        session.move(joined)
        if self.rig.router.is_certain:
            with self.lock:
                for trap in raised:
                    self.traps.confirm(trap)
        session.joined = joined
        if former is not None:
            session.delete(former)
        self.rounds += 1


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
                    return journal.disturbed(AGENTX, first - 1, now)
                for text in self.traps.receive(key_of(trap), when, repeats_since):
                    journal.error(text)


def key_of(trap):
    """(number, VRF): the last variable is a column of the VRF's row."""
    number, variables = trap
    oid, _ = variables[-1]
    return number, name_and_rest(oid[len(VRF_ENTRY) - len(ROOT_OID) + 1:])[0]
