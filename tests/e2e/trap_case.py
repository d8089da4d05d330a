"""Tests whose steps raise traps: what a stock snmptrapd received must be, from the start, what was expected so far."""
import unittest

from system import System, wait_until


class TrapCase(unittest.TestCase):
    ROUTER = ""  # of the class: the router file to begin with

    def setUp(self):
        self.system = System(self.ROUTER)
        self.addCleanup(self.system.__exit__, None, None, None)
        self.system.start_trapd()
        self.system.start_all()
        self.expected = []

    def config(self, *words):
        self.system.cli("config", *words, check=True)

    def router(self, *words):
        self.system.cli("router", *words, check=True)

    def came(self):
        """All that is expected has come, and nothing else."""
        return self.system.traps() == self.expected

    def comes(self, *traps):
        """These traps and no others come next, in this order."""
        self.expected += traps
        try:
            wait_until(f"{len(self.expected)} traps", self.came, 15)
        except AssertionError:
            self.assertEqual(self.system.traps(), self.expected)
            raise
