#!/usr/bin/env python3
"""The daemon is killed at random moments while VRFs are created and deleted and interfaces move between them: the times of
a VRF (mplsL3VpnVrfCreationTime and mplsL3VpnVrfConfLastChanged) are never lost.

A change must survive once a client has read it; before that it may or may not. So a VRF is "unsure" while an edit that
affects it is in progress, and every other VRF must have exactly the times that were read last. A second thread reads rows
all the time; the record on disk is never older than the row that it read.

Each round edits and loads the router file (Churn), reads rows (Reader), kills the daemon and compares a copy of the checkpoint
database with the rows that were read. Sometimes the router changes while the daemon is down, sometimes the next daemon is
killed while it starts. Then the daemon starts; its rows, its records and its counts of restored and stale records are
compared with the records found.

  MPLS_TEST_CHECKPOINT_ROUNDS   number of rounds: 40 in every test run, 200 in .ci/run
  MPLS_TEST_SEED                the seed that a failed run printed
"""
import collections
import contextlib
import os
import pathlib
import random
import re
import shutil
import sqlite3
import struct
import tempfile
import threading
import time
import unittest

from system import BIN, SLOW, SystemTest, wait_until
from wire import Client

ROUNDS = int(os.environ.get("MPLS_TEST_CHECKPOINT_ROUNDS", "40"))
SEED = int(os.environ.get("MPLS_TEST_SEED") or random.SystemRandom().randrange(1 << 32))
LONGEST_LIFE = 0.1  # seconds from the first answer to the kill
VRFS, INTERFACES, FIRST_ID = 60, 120, 100
DISCONNECTED = (ConnectionError, FileNotFoundError)

Times = collections.namedtuple("Times", "created changed")
Edit = collections.namedtuple("Edit", "made deleted moved")  # names of VRFs


class Router:
    """The router as its file describes it. A name has the same id when the VRF is deleted and created again."""

    def __init__(self, rng):
        self.rng = rng
        self.vrfs = {f"vrf{number}" for number in range(VRFS // 2)}
        self.vrf_of = {f"if{number}": f"vrf{rng.randrange(VRFS)}" for number in range(INTERFACES)}

    @staticmethod
    def id_of(name):
        return FIRST_ID + int(name[3:])

    def ids(self):
        return {self.id_of(name) for name in self.vrfs}

    def members(self, vrf):
        return sum(1 for each in self.vrf_of.values() if each == vrf)

    def text(self):
        lines = ["vrfs:" if self.vrfs else "vrfs: []"]
        lines += [f"  - {{name: {name}, table: {self.id_of(name)}}}" for name in sorted(self.vrfs)]
        lines.append("interfaces:")
        for number, (name, vrf) in enumerate(self.vrf_of.items()):
            lines.append(f"  - {{name: {name}, index: {number + 1}" + (f", vrf: {vrf}}}" if vrf else "}"))
        return "\n".join(lines) + "\n"

    def edit(self):
        """Some changes; no two of them affect the same VRF."""
        edit, free = Edit(set(), set(), set()), {f"vrf{number}" for number in range(VRFS)}
        for _ in range(self.rng.randint(1, 5)):
            self.rng.choice((self.make, self.delete, self.move, self.move))(edit, free)
        return edit

    def choose(self, names):
        return self.rng.choice(sorted(names)) if names else None

    def make(self, edit, free):
        name = self.choose(free - self.vrfs)
        if name:
            self.vrfs.add(name)
            edit.made.add(name)
            free.discard(name)

    def delete(self, edit, free):
        name = self.choose(free & self.vrfs)
        if name is None or len(self.vrfs) < 5:
            return
        self.vrfs.discard(name)
        edit.deleted.add(name)
        free.discard(name)
        if self.rng.random() < 0.5:  # otherwise its interfaces still name it
            self.vrf_of = {interface: None if vrf == name else vrf for interface, vrf in self.vrf_of.items()}

    def move(self, edit, free):
        interface = self.choose(name for name, vrf in self.vrf_of.items() if vrf is None or vrf in free)
        target = self.choose(free)
        source = interface and self.vrf_of[interface]
        if interface is None or target is None or target == source:
            return
        self.vrf_of[interface] = target
        for name in {source, target} - {None}:
            free.discard(name)
            if name in self.vrfs:
                edit.moved.add(name)


class Shown:
    """The times of VRFs that clients have read, and the edit in progress that may have changed them since."""

    def __init__(self):
        self.lock = threading.Lock()
        self.times = {}                         # name: Times
        self.least = {}                         # name: the latest last-changed time that was read
        self.lives = collections.Counter()      # name: how often it was created or deleted
        self.in_progress = Edit(set(), set(), set())
        self.samples = 0

    def begin(self, edit):
        with self.lock:
            self.in_progress = edit
            for name in edit.made | edit.deleted:
                self.lives[name] += 1
                self.least.pop(name, None)

    def end(self, times):
        """The edit is complete; these are the times of the VRFs that it affected, None for deleted ones."""
        with self.lock:
            for name, shown in times.items():
                if shown is None:
                    self.times.pop(name, None)
                else:
                    self.times[name] = shown
            self.in_progress = Edit(set(), set(), set())

    def life(self, name):
        with self.lock:
            return None if name in self.in_progress.made | self.in_progress.deleted else self.lives[name]

    def sample(self, name, life, times):
        """The reader read these times of the VRF, whose life before was this one."""
        with self.lock:
            if life is not None and self.lives[name] == life:
                self.least[name] = max(self.least.get(name, 0), times.changed)
                self.samples += 1


class Churn(threading.Thread):
    """Edits the router until the daemon ends. Errors are stored for the main thread."""

    def __init__(self, test):
        super().__init__()
        self.test, self.edits, self.error = test, 0, None

    def run(self):
        try:
            with contextlib.suppress(*DISCONNECTED), Client(self.test.socket, 30 * SLOW) as client:
                while True:
                    self.change(client)
        except Exception as error:  # pylint: disable=broad-except
            self.error = error

    def change(self, client):
        test = self.test
        edit = test.router.edit()
        test.shown.begin(edit)
        test.write_router()
        client.action("router", "reload")
        test.shown.end({**{name: self.deleted(client, name) for name in edit.deleted},
                        **{name: self.settled(client, name) for name in edit.made | edit.moved}})
        self.edits += 1

    def deleted(self, client, name):
        wait_until(f"{name} is deleted", lambda: client.vrf_row(name) is None, every=0)

    def settled(self, client, name):
        """The VRF's times as soon as it has the interfaces of the file."""
        members = self.test.router.members(name)

        def row():
            row = client.vrf_row(name)
            return row and row["associatedInterfaces"] == members and times_of(row)

        return wait_until(f"{name} with {members} interfaces", row, every=0)


class Reader(threading.Thread):
    """Reads rows until the daemon ends."""

    def __init__(self, test, seed):
        super().__init__()
        self.test, self.rng, self.error = test, random.Random(seed), None

    def run(self):
        shown = self.test.shown
        try:
            with contextlib.suppress(*DISCONNECTED), Client(self.test.socket, 30 * SLOW) as client:
                while True:
                    name = f"vrf{self.rng.randrange(VRFS)}"
                    life = shown.life(name)
                    row = client.vrf_row(name)
                    if row:
                        shown.sample(name, life, times_of(row))
        except Exception as error:  # pylint: disable=broad-except
            self.error = error


def times_of(row):
    return Times(row["creationTime"], row["confLastChanged"])


class Checkpoint(SystemTest):
    maxDiff = None

    def setUp(self):
        print(f"MPLS_TEST_SEED={SEED}, {ROUNDS} rounds", flush=True)
        self.rng = random.Random(SEED)
        self.router = Router(self.rng)
        self.shown = Shown()
        self.system = self.new_system(self.router.text())
        self.socket = self.system.folder / "run/dev.mpls.vpn.main"
        self.counts = collections.Counter()

    def write_router(self):
        new = self.system.folder / "etc/router.yaml.new"
        new.write_text(self.router.text())
        new.rename(self.system.router_file)

    # --- Starts and kills ---

    def spawn(self):
        self.socket.unlink(missing_ok=True)
        self.system.spawn("daemon", str(BIN / "mpls_vpn_mib"))

    def first_rows(self):
        """The times of all VRFs, as soon as the daemon answers."""
        def connect():
            self.assertIsNone(self.system.processes["daemon"].poll(), self.system.log("daemon"))
            with contextlib.suppress(*DISCONNECTED):
                return Client(self.socket, 30 * SLOW)

        with wait_until("daemon", connect, 30, every=0.001) as client:
            return {name: times_of(client.vrf_row(name)) for name in self.router.vrfs}

    def live(self):
        """Edits and reads until the daemon is killed."""
        threads = [Churn(self), Reader(self, self.rng.random())]
        for thread in threads:
            thread.start()
        time.sleep(self.rng.uniform(0, LONGEST_LIFE * SLOW))  # a random moment, not a wait for an event
        self.system.kill("daemon")
        for thread in threads:
            thread.join()
            if thread.error:
                raise thread.error
        self.counts["edits"] += threads[0].edits

    def records(self):
        """{id: Times} in a copy of the database: opening the original would checkpoint its log before the next daemon does."""
        with tempfile.TemporaryDirectory(dir=self.system.folder) as folder:
            for name in ("checkpoint.db", "checkpoint.db-wal"):
                with contextlib.suppress(FileNotFoundError):
                    shutil.copy(self.system.folder / "state" / name, folder)
            with contextlib.closing(sqlite3.connect(pathlib.Path(folder) / "checkpoint.db")) as database:
                rows = database.execute("SELECT key, data FROM record").fetchall()
        found = {struct.unpack("<I", key)[0]: Times(*struct.unpack("<II", data)) for key, data in rows}
        self.assertEqual(len(found), len(rows), "two records of one VRF")
        return found

    def restored(self):
        """(total, good, stale) as counted by the running daemon."""
        texts = [entry["text"] for entry in self.system.cli_json("trace", "chkpt", "--last", "300")]
        counted = [re.fullmatch(r"Checkpoint found a total of (\d+) records. Good records = (\d+), stale record = (\d+)\.", text)
                   for text in texts]
        return [tuple(int(number) for number in match.groups()) for match in counted if match][-1]

    # --- Checks ---

    def check_death(self, records, died):
        """No time that was read is missing from the records."""
        edit, known = self.shown.in_progress, self.shown.times
        unsure = edit.made | edit.deleted | edit.moved
        sure = {name: times for name, times in known.items() if name not in unsure}
        self.assertEqual({name: records.get(self.router.id_of(name)) for name in sure}, sure)
        for name in edit.moved:
            record = records[self.router.id_of(name)]
            self.assertEqual(record.created, known[name].created, name)
            self.assertTrue(known[name].changed <= record.changed <= died, (name, known[name], record, died))
        for name, changed in self.shown.least.items():
            if name not in edit.made | edit.deleted:
                self.assertGreaterEqual(records[self.router.id_of(name)].changed, changed, name)
        self.counts["killed during an edit"] += bool(unsure)
        self.counts["survivors"] += len(sure)

    def check_start(self, records, started, rows):
        """The VRFs have the times of the records found; the daemon counted the records and deleted the stale ones."""
        ids = self.router.ids()
        good = {name: records[self.router.id_of(name)] for name in rows if self.router.id_of(name) in records}
        self.assertEqual({name: rows[name] for name in good}, good)
        for name in rows.keys() - good.keys():
            self.assertGreaterEqual(rows[name].created, started, f"{name} was created while the daemon was down")
        self.assertEqual(self.restored(), (len(records), len(good), len(records) - len(good)))
        self.assertEqual(self.records(), {self.router.id_of(name): times for name, times in rows.items()})
        self.counts["stale records"] += len(records.keys() - ids)
        self.counts["created while the daemon was down"] += len(rows) - len(good)

    def check_early_death(self, before):
        """A daemon killed during its start lost and changed no record of an existing VRF."""
        records = self.records()
        existing = {vrf_id: times for vrf_id, times in before.items() if vrf_id in self.router.ids()}
        self.assertEqual({vrf_id: records.get(vrf_id) for vrf_id in existing}, existing)
        self.counts["killed at start-up"] += 1
        return records

    def start_and_kill(self, records):
        self.spawn()
        time.sleep(self.rng.uniform(0, 0.04 * SLOW))  # a random moment
        self.system.kill("daemon")
        return self.check_early_death(records)

    def test_times_survive_kills_at_random_moments(self):
        began = time.monotonic()
        self.spawn()
        self.shown.times = self.first_rows()
        for _ in range(ROUNDS):
            self.live()
            died = int(time.time())
            records = self.records()
            self.check_death(records, died)
            if self.rng.random() < 0.3:
                for _ in range(3):
                    self.router.edit()
                self.write_router()
            elif self.shown.in_progress != Edit(set(), set(), set()):
                self.write_router()  # the edit in progress may not have reached the file
            while self.rng.random() < 0.25:
                records = self.start_and_kill(records)
            self.spawn()
            rows = self.first_rows()
            self.check_start(records, died, rows)
            samples = self.shown.samples
            self.shown = Shown()
            self.shown.times, self.shown.samples = rows, samples
        self.counts["rows read meanwhile"] = self.shown.samples
        print(f"{time.monotonic() - began:.1f} s, " + ", ".join(f"{count} {what}" for what, count in sorted(self.counts.items())))
        for what in ("edits", "rows read meanwhile", "survivors"):
            self.assertGreater(self.counts[what], ROUNDS // 4, what)
        for what in ("killed during an edit", "killed at start-up", "stale records", "created while the daemon was down"):
            self.assertGreater(self.counts[what], 0, what)


if __name__ == "__main__":
    unittest.main()
