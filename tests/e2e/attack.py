#!/usr/bin/env python3
"""A large router whose daemon is attacked by one hostile program after the other, while a bystander reads from the daemon and a
manager reads over SNMP. Started by itself it runs each attack for some seconds, prints a table of what the two waited, and ends
with status 1 if a target is missed: attack.py [--routes ROUTES] [SECONDS [ATTACK...]]."""
import argparse
import functools
import multiprocessing
import os
import sys
import time

from hostile import ATTACKS, Bystander, Manager
from snmp_client import SnmpClient
from system import SCALARS, SLOW, VRF_ENTRY, System, name_index, oid_tuple, wait_until

GROUP, ATTACKER, BYSTANDER = 61000, 61001, 61002  # of the socket; two users without other rights
BYSTANDER_P99, MANAGER_P99 = 0.020, 0.050         # seconds

fork = multiprocessing.get_context("fork")  # what runs as another user cannot read this file again


class Program:
    """An object with run() in a process of its own that becomes another user (0: stays root)."""

    def __init__(self, program, user=0):
        self.stop, self.ready, (self.results, sender) = fork.Event(), fork.Event(), fork.Pipe(duplex=False)
        self.process = fork.Process(target=self.work, args=(program, user, sender), daemon=True)
        self.process.start()
        sender.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.join()

    def wait_ready(self):
        if not self.ready.wait(30 * SLOW):
            raise AssertionError("the program does not begin")

    def work(self, program, user, sender):
        if user:
            os.setgroups([])
            os.setgid(GROUP)
            os.setuid(user)
        sender.send(program.run(self.stop.is_set, self.ready.set))

    def end(self):
        """What run() returned."""
        self.stop.set()
        return self.results.recv()


class Arena(System):
    """The system of a large router, whose sockets the two users may use."""

    def __init__(self, vrfs=10000, interfaces_per_vrf=10, commit=50000, routes=0):
        super().__init__(f"generate: {{vrfs: {vrfs}, interfaces_per_vrf: {interfaces_per_vrf}, "
                         f"routes_per_vrf: {routes // vrfs}}}\n")
        self.folder.chmod(0o711)
        run = self.folder / "run"
        os.chown(run, 0, GROUP)
        run.chmod(0o750)
        self.sockets = run / "dev.mpls.vpn.main", run / "dev.mpls.vpn.debug"
        self.commit = commit
        self.last_vrf, self.routes_per_vrf = f"customer-{vrfs:05}", routes // vrfs

    def start(self):
        self.start_snmpd()
        self.start_programs()
        wait_until("the routes of the last VRF", lambda: self.routes() == self.routes_per_vrf, 120)
        return self

    def routes(self):
        """Of the last VRF; routes are loaded in the order of the VRFs."""
        return self.cli_json("show", "vrf", self.last_vrf)[0]["currNumRoutes"]

    def load_commit(self):
        """A large commit, for attacks on the history."""
        lines = self.folder / "commit.conf"
        words = (f"set vrf customer-{number:05} rt both 65000:{number}\n" for number in range(1, self.commit // 4))
        lines.write_text("".join(words))
        self.cli("config", "load", str(lines), check=True)

    def attack(self, attack, seconds):
        """What the bystander and the manager waited meanwhile, and what the attack could do. Without an attack they are
        alone."""
        if attack is None:
            return *self.measure(seconds), {}
        with Program(attack(*self.sockets), ATTACKER) as hostile:
            hostile.wait_ready()
            return *self.measure(seconds), hostile.end()

    def recover(self, seconds=10.0):
        """Waits until the manager is served, or starts the daemon and the sub-agent again: how many seconds it took, or None."""
        start = time.monotonic()
        try:
            self.wait_registered(seconds)
            return time.monotonic() - start
        except AssertionError:
            for name in ("agent", "daemon"):
                self.kill(name)
            self.start_programs()
            return None

    def long_iterations(self):
        """Of the daemon's event loop."""
        return self.cli_json("show", "status")["longIterations"]

    def start_programs(self):
        os.setegid(GROUP)  # the daemon gives its sockets its own group
        try:
            self.start_daemon()
        finally:
            os.setegid(0)
        self.start_agent("--row-age", "0")  # every request of the manager reaches the daemon

    def measure(self, seconds):
        oids = [oid_tuple(SCALARS + ".1.0"), VRF_ENTRY + (4,) + name_index("customer-00001")]
        with Program(Bystander(self.sockets[0]), BYSTANDER) as bystander, \
                Program(Manager(functools.partial(SnmpClient, self.port), oids)) as manager:
            time.sleep(seconds)
            return [Seen(**program.end()) for program in (bystander, manager)]


class Seen:
    """What one client waited."""

    def __init__(self, seconds, lost):
        self.seconds, self.lost = sorted(seconds), lost

    def quantile(self, part):
        return self.seconds[min(len(self.seconds) - 1, int(len(self.seconds) * part))] if self.seconds else float("inf")

    def __str__(self):
        p50, p99, longest = (1000 * self.quantile(part) for part in (0.5, 0.99, 1))
        return f"{len(self.seconds):6}{len(self.lost):6}{p50:9.1f}{p99:9.1f}{longest:9.1f}"


TITLE = f"{'':28}|{'bystander':>18}{'':21}|{'SNMP':>18}\n" + f"{'attack (times in ms)':28}" + \
    2 * f"|{'asked':>6}{'lost':>6}{'p50':>9}{'p99':>9}{'max':>9}"


def run(arena, attack, seconds, name):
    """Prints a line of the table; whether the targets are met."""
    before = arena.long_iterations()
    bystander, manager, counts = arena.attack(attack, seconds)
    print(f"{name:28}|{bystander}|{manager}", counts or "", flush=True)
    notes = [*bystander.lost[:1], *manager.lost[:1]]
    if arena.recover() is None:
        notes.append("the sub-agent did not recover: started again")
    elif arena.long_iterations() > before:
        notes.append(f"{arena.long_iterations() - before} iterations of the daemon's loop took more than 50 ms")
    if notes:
        print("    " + "; ".join(notes), flush=True)
    return not notes and bystander.quantile(0.99) <= BYSTANDER_P99 and manager.quantile(0.99) <= MANAGER_P99


def main(seconds=10.0, names=(), routes=0):
    """The first lines of the table are no attacks: what the machine allows, and what an administrator's commit costs."""
    attacks = [attack for attack in ATTACKS if not names or attack.__name__ in names]
    with Arena(routes=routes) as arena:
        arena.start()
        print(TITLE, flush=True)
        run(arena, None, seconds, "none")
        arena.load_commit()
        run(arena, None, max(seconds, 5.0), "none, after a large commit")
        missed = [attack.__name__ for attack in attacks if not run(arena, attack, seconds, attack.__name__)]
    print("targets missed:", ", ".join(missed) or "none")
    return 1 if missed else 0


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--routes", type=int, default=0, help="over all VRFs")
    parser.add_argument("seconds", type=float, nargs="?", default=10.0)
    parser.add_argument("attacks", nargs="*")
    options = parser.parse_args()
    sys.exit(main(options.seconds, options.attacks, options.routes))
