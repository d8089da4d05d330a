#!/usr/bin/env python3
"""chaos.py [--minutes M] [--seed S] [--only TEXT] [--out FOLDER]: disturbs the programs of a whole system in random
order while users read, commit and receive traps, and checks what they see. See scripts/chaos."""
import argparse
import contextlib
import os
import pathlib
import random
import signal
import subprocess
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "e2e"))
import checks  # noqa: E402
import disturbances  # noqa: E402
from journal import Journal  # noqa: E402
from load import AGENTX, Committer, Flapper, LargeCommits, Reader, TargetReader, TrapReader, Walker  # noqa: E402
from rig import SUITE_PROGRAMS, Rig  # noqa: E402
from system import SLOW  # noqa: E402

SKIPPED = 77
RECOVERED_WITHIN = 2.0   # seconds
MOST_PENDING = 8192      # traps in the queues of the daemon and the sub-agent
TRAPS_PER_SECOND = 500   # that snmpd sends at least
PATIENCE = 60.0          # seconds until a system that does not recover ends the run
RESTART_AFTER = 0.2      # seconds until a program that ended by itself is started again
HOLDS = (0.02, 0.1, 0.3, 1.0, 1.0, 2.0, 3.0, 8.0)
CALM = (0.0, 0.2, 1.0, 2.0)
EPOCHS = 4               # in each, one program is spared from being killed, so that it gets old


class ChaosRig(Rig):
    """With its users, and the checks that need a calm moment."""

    def __init__(self, journal, sanitized, in_guest):
        super().__init__(journal, sanitized, in_guest)
        self.traps, self.commits, self.memory = checks.Traps(), checks.Commits(), checks.Memory()
        self.trap_lock = threading.Lock()
        self.trap_reader = TrapReader(self, self.traps, self.trap_lock)
        self.loads, self.slowest, self.recoveries = [], {}, 0

    def start_load(self):
        self.walker, self.flapper = Walker(self), Flapper(self, self.traps, self.trap_lock)
        self.committer, self.large_commits = Committer(self, self.commits), LargeCommits(self)
        self.loads = [self.walker, self.flapper, self.committer, self.large_commits, Reader(self, self.commits), TargetReader(self)]
        for load in self.loads:
            load.start()

    def stop_load(self):
        for load in self.loads:
            load.stop.set()
        for load in self.loads:
            load.join(30)

    # --- Ends of programs ---

    def end_program(self, name, number):
        self.end(name, number)
        if name == "daemon":
            self.after_daemon()

    def after_daemon(self):
        """What it had not delivered is stored, what it had not acknowledged will not be done."""
        self.trap_reader.drain()
        now = time.monotonic()
        is_stored = not self.journal.disturbed(("state directory",), now, now)
        with self.trap_lock:
            for text in self.traps.end_life(self.lost_traps(), self.is_losing_traps(), is_stored):
                self.journal.error(text)
        self.commits.settle()
        self.large_commits.commits.settle()

    def start_dead(self, may_end):
        """Starts programs that ended by themselves again, which is an error unless they may end."""
        for name, status in self.dead().items():
            crashed = status is not None and -status in (signal.SIGSEGV, signal.SIGBUS, signal.SIGFPE, signal.SIGILL)
            text = f"{name} ended by itself with status {status}: {self.last_words(name)}"
            if crashed or not may_end:
                self.journal.error(text)
            else:
                self.journal.note(text)
            self.journal.begin(name)
            if name == "daemon":
                self.after_daemon()
            self.restart(name)

    def last_words(self, name):
        path = self.folder / f"{name}.log"
        return path.read_text(errors="replace")[-300:].strip() if path.exists() else ""

    # --- Recovery ---

    def recover(self, what, may_end):
        """Waits until all users are served; an error if this takes too long. False if they are never served."""
        start, done = time.monotonic(), {}
        commits, flaps = self.committer.rounds, self.flapper.rounds
        acknowledged = self.commits.acknowledged
        restarted, waited = start, self.waited()
        last_raised, backlog = self.backlog()
        conditions = {
            "walk": self.walker.whole,
            "command line": lambda: self.vrfs() is not None,
            "commit": lambda: self.commits.acknowledged > acknowledged and self.committer.rounds > commits,
            "traps": lambda: self.flapper.rounds > flaps + 1 and self.trap_arrived(last_raised),
        }
        while len(done) < len(conditions):
            if time.monotonic() > start + PATIENCE * SLOW:
                self.journal.error(f"no {', no '.join(conditions.keys() - done.keys())} {PATIENCE * SLOW:g} s after {what}")
                return False
            if self.dead():
                time.sleep(RESTART_AFTER)
                self.start_dead(may_end)
                restarted, done, waited = time.monotonic(), {}, self.waited()
            for name, condition in conditions.items():
                if name not in done and condition():
                    done[name] = time.monotonic() - restarted
            time.sleep(0.01)
        self.recoveries += 1
        for name, seconds in done.items():
            self.slowest[name] = max((seconds, what), self.slowest.get(name, (0.0, "")))
        waited = self.waited() - waited
        bounds = {"traps": RECOVERED_WITHIN + backlog / TRAPS_PER_SECOND}
        slow = {name: f"{seconds:.2f} s" for name, seconds in done.items()
                if seconds - waited > bounds.get(name, RECOVERED_WITHIN) * SLOW}
        if slow:
            self.journal.error(f"recovery from {what} took {slow}, of which programs waited {waited:.2f} s for a processor")
        self.journal.note("recovered: " + ", ".join(f"{name} {seconds:.2f} s" for name, seconds in done.items()))
        return True

    def waited(self):
        """Seconds that the programs, and this one for its clients, have waited for a processor of a busy machine."""
        return sum(map(waited_for_processor, [threading.get_native_id(), *map(self.pid, ("daemon", *AGENTX))]))

    def backlog(self):
        """The place of the last trap that was raised, and how many have not arrived, at most those of both queues."""
        self.trap_reader.drain()
        with self.trap_lock:
            last = len(self.traps.place) - 1
            return last, min(last - self.traps.last, MOST_PENDING)

    def trap_arrived(self, last):
        """One that was raised after this one."""
        self.trap_reader.drain()
        with self.trap_lock:
            return self.traps.last > last

    def check_calm(self):
        """All traps up to now arrive, or were counted as lost."""
        with self.trap_lock:
            mark = self.traps.last_certain
        deadline = time.monotonic() + RECOVERED_WITHIN * SLOW
        while time.monotonic() < deadline:
            self.trap_reader.drain()
            with self.trap_lock:
                if not self.traps.missing(mark):
                    break
            time.sleep(0.02)
        with self.trap_lock:
            for text in self.traps.settle(mark, self.lost_traps()):
                self.journal.error(text)
        self.commits.settle()
        self.large_commits.check()
        if not self.large_commits.wanted.is_set():
            self.large_commits.commits.settle()
        self.journal.end_all()
        for name in self.programs():
            self.memory.add(name, time.monotonic() - self.journal.began, self.pid(name), self.resident(name))


def waited_for_processor(pid):
    try:
        return int(pathlib.Path(f"/proc/{pid}/schedstat").read_text().split()[1]) / 1e9
    except (FileNotFoundError, ProcessLookupError):
        return 0.0


def draw(rng, choices, spared):
    """One to three disturbances of different targets."""
    drawn = []
    for _ in range(rng.choice((1, 1, 1, 2, 2, 3))):
        one, = rng.choices(choices, [each.weight for each in choices])
        if not any(one.target() == other.target() for other in drawn) and not one.ends(spared):
            drawn.append(one)
    return drawn


def disturb(rig, rng, drawn):
    """Whether the system recovers."""
    what = " and ".join(each.name for each in drawn)
    holds = [rng.choice(HOLDS) for _ in drawn]
    rig.journal.note(f"--- {what}")
    for each in drawn:
        for name in each.disturbs:
            rig.journal.begin(name)
    with contextlib.ExitStack() as stack:
        for each, hold in zip(drawn, holds):
            stack.enter_context(each(rig, rng))
            time.sleep(hold)
    return rig.recover(what, any(each.fatal for each in drawn))


def run(rig, arguments):
    """The number of disturbances by name."""
    rng = random.Random(arguments.seed)
    choices = [each for each in disturbances.table(rig.programs(), SUITE_PROGRAMS)
               if (not arguments.only or any(only in each.name for only in arguments.only))
               and not (arguments.sanitized and each.without_sanitizers)]
    counts = {}
    end = time.monotonic() + arguments.minutes * 60
    spared = ("", "daemon", *AGENTX)
    while time.monotonic() < end and not arguments.ended.is_set():
        left = end - time.monotonic()
        epoch = min(EPOCHS - 1, int(EPOCHS * (1 - left / (arguments.minutes * 60))))
        drawn = draw(rng, choices, spared[epoch])
        if not drawn:
            continue
        for each in drawn:
            counts[each.name] = counts.get(each.name, 0) + 1
        before = len(rig.journal.errors)
        if not disturb(rig, rng, drawn):
            break
        rig.check_calm()
        if len(rig.journal.errors) > before:
            print(*rig.journal.errors[before:], sep="\n", flush=True)
            if not arguments.go_on:
                break
        time.sleep(rng.choice(CALM))
    return counts


def report(rig, counts, arguments):
    journal = rig.journal
    print(f"seed {arguments.seed}, {(time.monotonic() - journal.began) / 60:.1f} minutes, {sum(counts.values())} disturbances, "
          f"{rig.recoveries} recoveries, {len(journal.errors)} errors")
    for name, count in sorted(counts.items()):
        print(f"  {count:5} {name}")
    print("users: " + ", ".join(f"{type(load).__name__} {load.rounds}" for load in rig.loads)
          + f", {len(rig.traps.arrived)} traps")
    print(f"longest time until a VRF was up: {rig.flapper.longest:.3f} s")
    for name, (seconds, what) in rig.slowest.items():
        print(f"slowest recovery of {name}: {seconds:.2f} s after {what}")
    for name, (everyone, longest, seconds) in rig.memory.slopes().items():
        first, last = rig.memory.samples[name][0][2], rig.memory.samples[name][-1][2]
        print(f"memory of {name}: {first} to {last} KiB, {everyone:+.0f} KiB/h; "
              f"{longest:+.0f} KiB/h of the process that lived {seconds / 60:.1f} minutes")


def enter_namespaces():
    """Runs this program again in namespaces of its own: what it mounts and starts ends with it."""
    if os.environ.get("CHAOS_INSIDE"):
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        return
    words = ["unshare", "--mount", "--net", "--pid", "--fork", "--mount-proc", "--kill-child"]
    if os.getuid() != 0 or subprocess.run([*words, "true"], capture_output=True, check=False).returncode != 0:
        print("SKIPPED: chaos: this machine allows no namespaces (root is needed)")
        sys.exit(SKIPPED)
    os.environ["CHAOS_INSIDE"] = "1"
    # The shell is process 1, which waits for the programs whose parents have ended.
    os.execvp(words[0], [*words, "bash", "-c", '"$@"; exit $?', "bash", sys.executable, *sys.argv])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--minutes", type=float, default=1.0)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--sanitized", action="store_true", help="the programs have sanitizers")
    parser.add_argument("--only", action="append", help="disturbances whose name has this text")
    parser.add_argument("--go-on", action="store_true", help="after an error, too")
    parser.add_argument("--out", type=pathlib.Path)
    parser.add_argument("--in-guest", action="store_true", help="this machine's kernel is the router; its clock is stepped")
    arguments = parser.parse_args()
    arguments.ended = threading.Event()  # SIGTERM: the report is printed
    if not arguments.in_guest:
        enter_namespaces()
    signal.signal(signal.SIGTERM, lambda *_: arguments.ended.set())
    if arguments.out:
        arguments.out.mkdir(parents=True, exist_ok=True)
    journal = Journal(arguments.out)
    with ChaosRig(journal, arguments.sanitized, arguments.in_guest) as rig:
        rig.start()
        rig.start_load()
        counts = run(rig, arguments)
        rig.stop_load()
        for text in rig.memory.errors():
            journal.error(text)
        if journal.errors:
            print(*journal.lines[-200:], *dict.fromkeys(journal.errors), sep="\n")
            if arguments.out:
                rig.save(arguments.out)
        report(rig, counts, arguments)
    sys.exit(1 if journal.errors else 0)


if __name__ == "__main__":
    main()
