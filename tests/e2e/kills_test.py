#!/usr/bin/env python3
"""The daemon, the sub-agent and snmpd are killed at random moments while VRFs go up and down and the configuration changes.

Each round commits configuration, lets VRFs flap, kills one of the processes in between and starts it again. Whatever a
commit acknowledged is there afterwards. The traps of the flaps are received in order and none is missing, except those of the
last moment of a killed daemon, which had not raised them yet. One may be received again only directly after a kill.

  MPLS_TEST_KILL_ROUNDS   rounds (20)
  MPLS_TEST_SEED          the seed that a failed run printed
"""
import collections
import contextlib
import os
import random
import threading
import time
import unittest

from system import BIN, SLOW, SystemTest, name_index, wait_until
from trap_sink import TrapSink
from wire import Client

ROUNDS = int(os.environ.get("MPLS_TEST_KILL_ROUNDS") or "20")
SEED = int(os.environ.get("MPLS_TEST_SEED") or random.SystemRandom().randrange(1 << 32))
VRFS = 40
FLAPS = 12  # in a round, at most
LONGEST = 0.05  # seconds from the first flap to the kill
DISCONNECTED = (ConnectionError, FileNotFoundError)
UP, DOWN = 1, 2
ROUTER = "vrfs:\n" + "".join(f"  - {{name: vrf{n}, table: {100 + n}}}\n" for n in range(VRFS)) + "interfaces:\n" + "".join(
    f"  - {{name: ge{n}, index: {n + 1}, vrf: vrf{n}, state: up, addresses: [10.0.{n}.1/24]}}\n" for n in range(VRFS))
STATUS_OF_VRF = (1, 2, 2, 1, 6)  # mplsL3VpnVrfOperStatus
VRF_OF = {name_index(f"vrf{n}"): n for n in range(VRFS)}


class Worker(threading.Thread):
    """Does something again and again until the daemon ends or all is done. An error is stored for the main thread."""

    def __init__(self, work, count):
        super().__init__()
        self.work, self.count, self.error = work, count, None

    def run(self):
        try:
            with contextlib.suppress(*DISCONNECTED):
                for _ in range(self.count):
                    self.work()
        except Exception as error:  # pylint: disable=broad-except
            self.error = error

    def wait(self):
        self.join()
        if self.error:
            raise self.error


class Kills(SystemTest):
    maxDiff = None

    def setUp(self):
        print(f"MPLS_TEST_SEED={SEED}, {ROUNDS} rounds", flush=True)
        self.rng = random.Random(SEED)
        self.sink = TrapSink()
        self.system = self.new_system(ROUTER)
        self.system.trap_port = self.sink.port
        self.system.start_all()
        self.system.cli("config", "set", "traps", "all", check=True)
        self.vrf = 0          # that flaps next
        self.raised = []      # (notification, VRF) in this round
        self.checked = 0      # traps received in former rounds
        self.descriptions = {}   # of VRFs, acknowledged
        self.in_doubt = {}       # VRF: description whose commit the daemon did not answer
        self.commits = 0
        self.counts = collections.Counter()

    def client(self):
        return Client(self.system.folder / "run/dev.mpls.vpn.main", 30 * SLOW)

    # --- What happens ---

    def flap(self):
        """The interface of the next VRF goes down and up again. A trap may have been raised although its action fails."""
        vrf = self.vrf = (self.vrf + 1) % VRFS
        with self.client() as client:
            for word, notification in (("down", DOWN), ("up", UP)):
                self.raised.append((notification, vrf))
                client.action("router", word, f"ge{vrf}")

    def commit(self):
        self.commits += 1
        name, text = f"vrf{self.commits % VRFS}", f"commit {self.commits}"
        self.in_doubt[name] = text
        if self.system.cli("config", "set", "vrf", name, "description", text).returncode != 0:
            raise ConnectionError
        self.descriptions[name] = self.in_doubt.pop(name)
        self.counts["acknowledged commits"] += 1

    def kill_one(self):
        """Kills a process in the middle of what happens, and starts it again."""
        victim = self.rng.choice(("daemon", "agent", "snmpd"))
        workers = [Worker(self.flap, self.rng.randint(1, FLAPS)), Worker(self.commit, 4)]
        for worker in workers:
            worker.start()
        time.sleep(self.rng.uniform(0, LONGEST * SLOW))  # a random moment, not a wait for an event
        self.system.kill(victim)
        for worker in workers:
            worker.wait()
        self.counts[f"kills of {victim}"] += 1
        if victim == "daemon":
            self.system.start_daemon()
        elif victim == "agent":
            self.system.spawn("agent", str(BIN / "mpls_vpn_snmp"), "--agentx-socket", str(self.system.agentx))
        else:
            self.system.agentx.unlink(missing_ok=True)
            self.system.start_snmpd()
        return victim

    # --- What is found ---

    def received(self):
        """(notification, VRF) of the traps received in this round."""
        traps = self.sink.traps()[self.checked:]
        return [(notification, VRF_OF[oids[1][0][len(STATUS_OF_VRF):]]) for notification, oids in traps]

    def check_descriptions(self):
        with self.client() as client:
            for name, text in {**self.descriptions, **self.in_doubt}.items():
                found = client.vrf_row(name)["description"] or ""
                self.assertIn(found, {text, self.descriptions.get(name, "")}, name)
                self.descriptions[name] = found
        self.in_doubt.clear()

    def is_complete(self, received):
        """All traps were received in order, and some of them again after one of them."""
        first = next((n for n, (one, other) in enumerate(zip(received, self.raised)) if one != other), len(self.raised))
        again = len(received) - len(self.raised)
        return 0 <= again <= first and received[first:] == self.raised[first - again:]

    def misses_only_last(self, received, last):
        """All traps were received in order. A killed daemon may not have raised those of its last two actions."""
        missing = len(self.raised) - len(received)
        return 0 <= missing <= min(last, 2) and received == self.raised[:last - missing] + self.raised[last:]

    def check_traps(self, victim):
        """After the traps of one more flap, those of the round are complete."""
        last = len(self.raised)
        self.flap()

        def complete():
            received = self.received()
            return self.misses_only_last(received, last) if victim == "daemon" else self.is_complete(received)

        try:
            wait_until(f"the traps after a kill of {victim}", complete, 15)
        except AssertionError:
            self.assertEqual(self.received(), self.raised, f"after a kill of {victim}, which was at trap {last}")
            raise
        received = len(self.received())
        self.counts["traps"] += received
        self.counts["traps received again"] += max(0, received - len(self.raised))
        self.counts["traps that a killed daemon did not raise"] += max(0, len(self.raised) - received)
        self.checked = len(self.sink.traps())
        self.raised.clear()

    def test_what_was_acknowledged_survives_kills_at_random_moments(self):
        began = time.monotonic()
        for _ in range(ROUNDS):
            victim = self.kill_one()
            self.check_descriptions()
            self.check_traps(victim)
        print(f"{time.monotonic() - began:.1f} s, " + ", ".join(f"{count} {what}" for what, count in sorted(self.counts.items())))


if __name__ == "__main__":
    unittest.main()
