"""The router whose MIB is walked: a router file, or the devices of this machine's kernel. It has VRFs that no one changes, with rows
in every table, VRFs that commits describe, VRFs that the suite configures, and an interface that moves from one new VRF to the
next, which raises traps."""
import contextlib
import subprocess
import time

from system import wait_until
from wire import Client

FLAPPING = "ge900"
FIRST_TABLE = 100
FIRST_NEW_TABLE = 100000


class Size:
    """How many VRFs there are of each kind, and interfaces in each of them."""
    still, committed, suite, units = 12, 3, 4, 3

    @classmethod
    def shrink(cls):
        """For a guest: snmpd asks the sub-agent for each object of a walk, which takes milliseconds there."""
        cls.still, cls.committed, cls.suite, cls.units = 3, 2, 1, 1


def still_vrfs():
    return [f"still{number:02}" for number in range(Size.still)]


def committed_vrfs():
    return [f"commit{number}" for number in range(Size.committed)]


def suite_vrfs():
    return [f"suite{number}" for number in range(Size.suite)]


def numbered_vrfs():
    return enumerate(still_vrfs() + committed_vrfs() + suite_vrfs(), 1)


def suite_target(number):
    return f"64999:{number}"


def suite_configuration():
    return "hostname pe1\n" + "".join(
        f"router bgp 65000 vrf {name}\n address-family ipv4 unicast\n  rd vpn export {suite_target(number)}\n"
        f"  rt vpn both {suite_target(number)}\n exit-address-family\nexit\n"
        for number, name in enumerate(suite_vrfs(), 1))


class FileRouter:
    source = "file"
    is_certain = True  # session.move() waits until the traps were raised

    @staticmethod
    def text():
        vrfs, interfaces = [], []
        for number, name in numbered_vrfs():
            line = f"  - {{name: {name}, table: {FIRST_TABLE + number}"
            if name in still_vrfs():
                hop = f"next_hop: 10.{number}.0.2, interface: ge{number}0"
                line += (f', rd: "65000:{number}", route_targets: {{both: [65000:{number}]}}, '
                         f"routes: [{{prefix: 20.{number}.0.0/16, {hop}}}, {{prefix: 21.{number}.0.0/16, {hop}}}]")
            vrfs.append(line + "}")
            interfaces += [f"  - {{name: ge{number}{unit}, index: {number}{unit}, vrf: {name}, "
                           f"addresses: [10.{number}.{unit}.1/24]}}" for unit in range(Size.units)]
        interfaces.append(f"  - {{name: {FLAPPING}, index: 900, addresses: [10.250.0.1/24]}}")
        return "\n".join(["vrfs:", *vrfs, "interfaces:", *interfaces]) + "\n"

    def prepare(self):
        """The daemon reads the file."""

    def configure(self, rig):
        """The file has the configuration."""

    @contextlib.contextmanager
    def session(self, rig):
        """Lasts as long as the daemon, which then reads the file again."""
        with Client(rig.socket) as client:
            yield FileSession(client)


class FileSession:
    joined = None  # the VRF of the flapping interface
    longest = 0.0  # seconds until a VRF was up

    def __init__(self, client):
        self.client = client

    def create(self, name, number):
        self.client.action("router", "add-vrf", name, "id", str(FIRST_NEW_TABLE + number))

    def move(self, name):
        """Returns when the daemon shows the VRF up: of changes that it has not processed, it considers the last only."""
        self.client.action("router", "move", FLAPPING, name)
        start = time.monotonic()
        wait_until(f"{name} to be up", lambda: (self.client.vrf_row(name) or {}).get("activeInterfaces") == 1, 30, every=0.001)
        self.longest = max(self.longest, time.monotonic() - start)

    def delete(self, name):
        self.client.action("router", "delete-vrf", name)


class KernelRouter:
    """Changes that follow each other quickly are one change for the daemon, and those before its start are none."""
    source = "kernel"
    is_certain = False

    def __init__(self):
        self.kernel_session = KernelSession()

    @staticmethod
    def text():
        return ""

    def prepare(self):
        for words in (("modprobe", "-aq", "ipv6", "vrf", "dummy"), ("sysctl", "-qw", "net.ipv6.conf.default.disable_ipv6=1")):
            subprocess.run(words, check=True)
        lines = []
        for number, name in numbered_vrfs():
            lines += [f"link add {name} type vrf table {FIRST_TABLE + number}", f"link set {name} up"]
            for unit in range(Size.units):
                device = f"ge{number}{unit}"
                lines += [f"link add {device} type dummy", f"link set {device} master {name} up",
                          f"addr add 10.{number}.{unit}.1/24 dev {device}"]
            if name in still_vrfs():
                lines += [f"route add {first}.{number}.0.0/16 via 10.{number}.0.2 vrf {name}" for first in (20, 21)]
        lines += [f"link add {FLAPPING} type dummy", f"link set {FLAPPING} up", f"addr add 10.250.0.1/24 dev {FLAPPING}"]
        ip_batch(lines)

    def configure(self, rig):
        file = rig.folder / "still.conf"
        file.write_text("".join(f"set vrf {name} rd 65000:{number}\nset vrf {name} rt both 65000:{number}\n"
                                for number, name in enumerate(still_vrfs(), 1)))
        rig.cli("config", "load", str(file), check=True)

    @contextlib.contextmanager
    def session(self, _rig):
        yield self.kernel_session


class KernelSession:
    joined, longest = None, 0.0

    def create(self, name, number):
        ip_batch([f"link add {name} type vrf table {FIRST_NEW_TABLE + number}", f"link set {name} up"])

    def move(self, name):
        ip_batch([f"link set {FLAPPING} master {name}"])

    def delete(self, name):
        ip_batch([f"link delete {name}"])


def ip_batch(lines):
    subprocess.run(["ip", "-batch", "-"], input="\n".join(lines) + "\n", text=True, check=True)
