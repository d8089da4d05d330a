#!/usr/bin/env python3
"""No local user without rights takes the daemon from the others: while each hostile program runs, another user and an SNMP
manager get every answer, and within a bound that allows for a busy machine. attack.py measures how fast."""
import os
import re
import struct
import unittest

from attack import ATTACKER, Arena, Program
from hostile import ATTACKS, COMMIT, DEBUG_SET, STAGE, SUBSCRIBE, HalfHeaders, PipelinedScalars, SilentDebugClients, commit, frame
from system import SLOW, wait_until
from wire import Client, text

BOUND = 1.0     # seconds that 99 of 100 requests take at most
SECONDS = 2.0   # of each attack
ACCESS = 13     # the status of what a user may not do


class Requests:
    """The statuses of these requests, sent by another user."""

    def __init__(self, path, *requests):
        self.path, self.requests = str(path), requests

    def run(self, *_):
        with Client(self.path) as client:
            statuses = []
            for request in self.requests:
                client.socket.sendall(request)
                length = struct.unpack("<I", client.read(16)[12:])[0]
                statuses.append(struct.unpack("<I", client.read(length)[:4])[0])
            return statuses


@unittest.skipIf(os.getuid() != 0, "SKIPPED: only root can become other users")
class HostileClients(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.arena = Arena()
        cls.addClassCleanup(cls.arena.__exit__, None)
        cls.arena.start()
        cls.arena.load_commit()

    def others_are_served_during(self, attack):
        for who, seen in zip(("bystander", "manager"), self.arena.attack(attack, SECONDS)):
            self.assertEqual(seen.lost, [], who)
            self.assertLess(seen.quantile(0.99), BOUND * SLOW, who)

    def attacked_by(self, attack):
        """The attack lasts until the end of the test."""
        self.enterContext(Program(attack(*self.arena.sockets), ATTACKER)).wait_ready()

    def test_root_is_served_while_others_take_every_connection(self):
        self.attacked_by(HalfHeaders)
        self.arena.cli("show", "scalars", check=True)

    def test_sub_agent_reconnects_while_others_take_every_connection(self):
        self.attacked_by(HalfHeaders)
        self.arena.kill("agent")
        self.arena.start_agent("--row-age", "0")

    def test_root_debugs_while_others_take_every_connection(self):
        self.attacked_by(SilentDebugClients)
        self.arena.cli("debug", "list", check=True)

    def attackers(self):
        return [client for client in self.arena.cli_json("show", "status")["clients"] if client["user"] == ATTACKER]

    def test_status_names_the_user_that_keeps_the_daemon_busy(self):
        wait_until("end of the attack before", lambda: not self.attackers())
        self.attacked_by(PipelinedScalars)
        client, = wait_until("its requests", lambda: [each for each in self.attackers() if each["loopMilliseconds"] > 0])
        self.assertEqual(client["role"], "read")
        self.assertGreater(client["requests"], 100)
        self.assertGreater(client["requestsPerSecond"], 0)

    def test_readers_change_nothing(self):
        main, debug = self.arena.sockets
        stage = frame(STAGE, struct.pack("<BI", 0, 0))
        named = frame(SUBSCRIBE, text("/oper/mpls_vpn/gl/") + text("snmp"))
        debug_all = frame(DEBUG_SET, text("all") + b"\1")
        for path, requests in ((main, (stage, frame(COMMIT, commit("")), named)), (debug, (debug_all,))):
            with Program(Requests(path, *requests), ATTACKER) as reader:
                self.assertEqual(reader.end(), [ACCESS] * len(requests))


def add_test(attack):
    words = re.sub("([A-Z])", r"_\1", attack.__name__).lower()

    def test(self):
        self.others_are_served_during(attack)
    setattr(HostileClients, f"test_others_are_served_during{words}", test)


for each in ATTACKS:
    add_test(each)

if __name__ == "__main__":
    unittest.main()
