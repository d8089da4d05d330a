"""Tests whose steps raise traps. From the start on, a stock snmptrapd must have received exactly the expected traps."""
from system import SystemTest, wait_until


class TrapCase(SystemTest):
    ROUTER = ""  # the router file that a subclass starts with

    def setUp(self):
        self.system = self.new_system(self.ROUTER)
        self.system.start_trapd()
        self.system.start_all()
        self.expected = []

    def config(self, *words):
        self.system.cli("config", *words, check=True)

    def router(self, *words):
        self.system.cli("router", *words, check=True)

    def all_received(self):
        """All expected traps were received, and no others."""
        return self.system.traps() == self.expected

    def expect(self, *traps):
        """These traps and no others are received next, in this order."""
        self.expected += traps
        try:
            wait_until(f"{len(self.expected)} traps", self.all_received, 15)
        except AssertionError:
            self.assertEqual(self.system.traps(), self.expected)
            raise
