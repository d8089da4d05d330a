"""The whole system in the guest, for the system_*.py tests.

Import it before modules of tests/e2e: it takes BIN_DIRECTORY from the command line and puts it into the environment, where
system.py reads it when it is imported.
"""
import os
import pathlib
import sys

os.environ["MPLS_TEST_BIN"] = os.path.abspath(sys.argv.pop(1))
os.environ.setdefault("MPLS_TEST_SLOW", "3")  # a process start costs 15 ms here
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "e2e"))
from system import System, SystemTest  # noqa: E402


class GuestSystemTest(SystemTest):
    """One system, with the kernel as source, for all tests of a class."""
    frr = None  # value of `frr:` in platform.yaml; None: without it
    system_class = System

    @classmethod
    def setUpClass(cls):
        cls.system = cls.system_class(source="kernel", frr=cls.frr)
        cls.system.start_all()

    @classmethod
    def tearDownClass(cls):
        cls.system.__exit__(None)
