"""A whole system for end-to-end tests: the daemon, a stock snmpd and the sub-agent, each a real process in a temporary
directory, with a loopback port and Unix sockets of its own. Only processes started here are ended."""
import contextlib
import json
import os
import pathlib
import random
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.request

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BIN = pathlib.Path(os.environ.get("MPLS_TEST_BIN", ROOT / "build/release/bin"))
L3VPN = "1.3.6.1.2.1.10.166.11"
SCALARS = L3VPN + ".1.1"
IF_CONF = L3VPN + ".1.2.1"
RAW = ("-Ot", "--hexOutputLength=0")  # of the SNMP tools: time stamps as numbers, octets on one line
IN_SNMPD = os.environ.get("MPLS_TEST_FRONT_END") == "module"  # the module inside snmpd instead of the sub-agent
MODULE = BIN.parent / "lib/mpls_vpn_snmpd.so"
SLOW = float(os.environ.get("MPLS_TEST_SLOW", "1"))  # sanitizer builds take longer: every bound is multiplied
# For a process whose memory is measured: an address-sanitized build retains freed memory, to find uses of it.
ASAN_OPTIONS = ":".join(filter(None, [os.environ.get("ASAN_OPTIONS"), "quarantine_size_mb=1", "thread_local_quarantine_size_kb=64"]))


def wait_until(what, condition, seconds=10.0, every=0.02):
    """Polls until the condition is true and returns its value; AssertionError after that time. A condition that takes long pauses as
    long: it starts programs, which take the CPU from those that it waits for."""
    deadline = time.monotonic() + seconds * SLOW
    while True:
        start = time.monotonic()
        result = condition()
        if result:
            return result
        now = time.monotonic()
        if now > deadline:
            raise AssertionError(f"{what}: not within {seconds * SLOW:g} s")
        time.sleep(max(every, now - start))


def unused_port():
    """A TCP port of the loopback address."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def fetch(url):
    with urllib.request.urlopen(url, timeout=10 * SLOW) as answer:
        return answer.read().decode()


def pass_a_second():
    """Time stamps are in whole seconds."""
    start = time.time()
    wait_until("a later second", lambda: time.time() > start + 1.1)


def oid_tuple(text):
    return tuple(int(part) for part in text.strip(".").split("."))


def dotted(oid):
    return ".".join(map(str, oid))


ROOT_OID = oid_tuple(L3VPN)
IF_ENTRY, VRF_ENTRY, RT_ENTRY, SEC_ENTRY, PERF_ENTRY, ROUTE_ENTRY = (
    ROOT_OID + tail for tail in ((1, 2, 1, 1), (1, 2, 2, 1), (1, 2, 3, 1), (1, 2, 6, 1), (1, 3, 1, 1), (1, 4, 1, 1)))


def name_index(name):
    """The index sub-identifiers of a VRF name: its length, then its octets."""
    return (len(name),) + tuple(name.encode())


def name_and_rest(index):
    """A VRF's name and the sub-identifiers after it."""
    length = index[0]
    return bytes(index[1:1 + length]).decode(), index[1 + length:]


def address_index(address):
    return (len(address.packed),) + tuple(address.packed)


def route_index(vrf, network, hop, is_local):
    """The index of a route: an ip_network, an ip_address or None, and whether its inetCidrRouteType is local."""
    family = 1 if network.version == 4 else 2
    same_family = hop is not None and hop.version == network.version
    next_hop = hop if same_family else type(network.network_address)(0)
    return (name_index(vrf) + (family,) + address_index(network.network_address) + (network.prefixlen, 2, 0, 0)
            + ((0, 0) if is_local else (family,) + address_index(next_hop)))


class System:
    def __init__(self, router="vrfs: []\ninterfaces: []\n", source="file", environment=None, frr=None):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="mpls_vpn_e2e."))
        for sub in ("run", "state", "etc", "snmp", "mibs"):
            (self.folder / sub).mkdir()
        self.router_file = self.folder / "etc/router.yaml"
        self.router_file.write_text(router)
        settings = "source: kernel\n" if source == "kernel" else "source: file\nrouter_file: router.yaml\n"
        settings += f"frr: {frr}\n" if frr else ""
        (self.folder / "etc/platform.yaml").write_text(settings)
        self.environment = dict(
            os.environ, MPLS_VPN_MIB_RUN_DIR=str(self.folder / "run"), MPLS_VPN_MIB_STATE_DIR=str(self.folder / "state"),
            MPLS_VPN_MIB_CONFIG_DIR=str(self.folder / "etc"), MPLS_VPN_MIB_LIB_DIR=str(BIN.parent / "lib"),
            SNMP_PERSISTENT_DIR=str(self.folder / "snmp"), MIBS="", **(environment or {}))
        # Programs of net-snmp read each file of this folder when they start.
        self.environment["MIBDIRS"] = str(self.folder / "mibs")
        self.processes = {}
        self.port = 0
        self.trap_port = 0  # of snmptrapd; when set, snmpd sends traps there
        self.agentx = self.folder / "agentx"
        self.module = MODULE if IN_SNMPD else None  # that snmpd loads
        self.snmpd_wrapper = ()  # a program that runs snmpd
        self.snmpd_options = ("-Lo",)
        self.more_snmpd_settings = ""

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        if kind is not None:
            for log in sorted(self.folder.glob("*.log")):
                sys.stderr.write(f"--- {log.name}\n{log.read_text(errors='replace')[-4000:]}\n")
        for name in list(self.processes):
            self.kill(name)
        shutil.rmtree(self.folder, ignore_errors=True)

    # --- processes ---

    def spawn(self, name, *command):
        with open(self.folder / f"{name}.log", "a") as log:
            self.processes[name] = subprocess.Popen(command, env=self.environment, stdin=subprocess.DEVNULL, stdout=log,
                                                    stderr=log, cwd=self.folder)
        return self.processes[name]

    def kill(self, name, with_signal=signal.SIGKILL):
        process = self.processes.pop(name, None)
        if process is not None:
            with contextlib.suppress(ProcessLookupError):
                process.send_signal(with_signal)
            process.wait(timeout=20)
        return process

    def log(self, name):
        return (self.folder / f"{name}.log").read_text(errors="replace")

    def events(self, name):
        """What a process printed as JSON, a line each, without the notes on standard error."""
        lines = [json.loads(line) for line in self.log(name).splitlines(keepends=True) if line.startswith("{") and line.endswith("\n")]
        return [line for line in lines if "note" not in line]

    def start_daemon(self):
        process = self.spawn("daemon", str(BIN / "mpls_vpn_mib"))

        def ready():
            assert process.poll() is None, f"the daemon ended with {process.returncode}\n{self.log('daemon')}"
            return self.cli("show", "scalars").returncode == 0

        wait_until("daemon", ready, 30)

    def start_on_a_port(self, name, port, command, is_ready):
        """Starts a program on this UDP port, if it is not 0, or on another one; `command` returns its words for a port."""
        for _ in range(20):
            port = port or random.randint(20000, 32000)
            process = self.spawn(name, *command(port))
            deadline = time.monotonic() + 5 * SLOW
            while process.poll() is None and time.monotonic() < deadline:
                if is_ready(port):
                    return
                time.sleep(0.02)
            self.kill(name)
            port = 0
        raise AssertionError(f"{name} did not start: " + self.log(name))

    def start_snmpd(self):
        def command(port):
            self.port, conf = port, self.folder / "snmpd.conf"
            conf.write_text(self.snmpd_place() + f"agentXSocket {self.agentx}\n" + self.snmpd_settings() +
                            self.more_snmpd_settings + self.trap_sink())
            return *self.snmpd_wrapper, "snmpd", "-f", *self.snmpd_options, "-C", "-c", str(conf), "-p", str(self.folder / "snmpd.pid")
        self.start_on_a_port("snmpd", self.port, command, lambda _: self.agentx.exists() and
                             self.snmp("get", "1.3.6.1.2.1.1.3.0", timeout=1).returncode == 0)

    def snmpd_place(self):
        return f"agentAddress udp:127.0.0.1:{self.port}\n"

    def snmpd_settings(self):
        module = f"dlmod mpls_vpn_snmpd {self.module}\n" if self.module else ""
        return "rocommunity public\nrwcommunity private\nmaster agentx\n" + module

    def trap_sink(self):
        return f"trap2sink 127.0.0.1:{self.trap_port} public\n" if self.trap_port else ""

    def trapd_settings(self):
        return (ROOT / "examples/snmp/snmptrapd.conf").read_text().replace(" COMMUNITY", " public")

    def trapd_format(self):
        """Options that make it log what traps() reads."""
        return ["-One", "-Oq", "-F", "TRAP\t%v\n"]

    def start_trapd(self):
        """Starts a stock snmptrapd that logs each notification on a line. Call it before start_snmpd, whose snmpd sends there."""
        def command(port):
            self.trap_port, conf = port, self.folder / "snmptrapd.conf"
            conf.write_text(self.trapd_settings())
            return ("snmptrapd", "-f", "-Lo", "-C", "-c", str(conf), *self.trapd_format(), "-p", str(self.folder / "trapd.pid"),
                    f"udp:127.0.0.1:{port}")
        self.start_on_a_port("trapd", 0, command, lambda port: f":{port:04X} " in pathlib.Path("/proc/net/udp").read_text())

    def traps(self):
        """[(notification number, [(oid below the MIB, value)])] of this MIB, in the order received."""
        found = []
        for line in self.log("trapd").splitlines():
            if not line.startswith("TRAP\t"):
                continue
            variables = [part.split(" ", 1) for part in line.split("\t")[1:] if " " in part]
            trap = oid_tuple(variables[1][1])  # after sysUpTime.0
            if trap[:len(ROOT_OID) + 1] != ROOT_OID + (0,):
                continue
            found.append((trap[-1], [(oid_tuple(name)[len(ROOT_OID):], value.strip()) for name, value in variables[2:]]))
        return found

    def start_agent(self, *options):
        if not self.module:
            self.spawn("agent", str(BIN / "mpls_vpn_snmp"), "--agentx-socket", str(self.agentx), *options)
        self.wait_registered()

    def wait_registered(self, seconds=10.0):
        wait_until("registration of the sub-agent", lambda: self.get_value(SCALARS + ".1.0") is not None, seconds)

    def start_all(self):
        self.start_daemon()
        self.start_snmpd()
        self.start_agent()
        return self

    # --- clients ---

    def cli(self, *words, check=False):
        result = subprocess.run([str(BIN / "mplsvpn"), *words], env=self.environment, capture_output=True, text=True,
                                stdin=subprocess.DEVNULL, timeout=60 * SLOW, check=False)
        if check and result.returncode != 0:
            raise AssertionError(f"mplsvpn {' '.join(words)}: {result.returncode}\n{result.stdout}{result.stderr}")
        return result

    def cli_json(self, *words):
        return json.loads(self.cli("--json", *words, check=True).stdout)

    def snmp(self, tool, *arguments, timeout=5, options=()):
        command = [f"snmp{tool}", "-v2c", "-c", "public", "-One", "-Oq", "-t", str(timeout * SLOW), "-r", "0", *options,
                   f"127.0.0.1:{self.port}", *arguments]
        return subprocess.run(command, env=self.environment, capture_output=True, text=True, check=False)

    def get_value(self, oid):
        """The value as text; None if the agent has no such object or does not answer."""
        result = self.snmp("get", oid, timeout=2)
        if result.returncode != 0 or "No Such" in result.stdout:
            return None
        return result.stdout.split(" ", 1)[1].strip()

    def walk(self, root=L3VPN, tool="walk", options=()):
        """[(oid, value)] in the order received; an AssertionError unless the walk succeeds and every OID increases."""
        result = self.snmp(tool, root, options=options)
        assert result.returncode == 0, f"snmp{tool}: {result.returncode} {result.stderr}{result.stdout[-300:]}"
        rows = parse_walk(result.stdout)
        check_increasing(rows)
        return rows


class SystemTest(unittest.TestCase):
    """Tests that start systems of their own."""

    def new_system(self, *arguments, **options):
        system = System(*arguments, **options)
        self.addCleanup(system.__exit__, None)
        return system

    def becomes(self, what, read, expected, seconds=10.0):
        found = []

        def is_so():
            try:
                found[:] = [read()]
            except (AssertionError, KeyError) as error:
                # The walk failed because the sub-agent is not connected yet, or a row was removed during the walk: it has
                # its first columns and lacks its last.
                found[:] = [error]
            return found == [expected]

        try:
            wait_until(what, is_so, seconds)
        except AssertionError:
            if isinstance(found[0], Exception):
                raise found[0]
            self.assertEqual(found[0], expected, what)


class SharedSystemTest(unittest.TestCase):
    """Tests that share one running system with the router of their class."""
    router = "vrfs: []\ninterfaces: []\n"

    @classmethod
    def setUpClass(cls):
        cls.system = System(cls.router)
        cls.addClassCleanup(cls.system.__exit__, None)
        cls.system.start_all()


def parse_walk(text):
    rows = []
    for line in text.splitlines():
        if not line.startswith("."):
            continue  # "No more variables" and the like
        oid, _, value = line.partition(" ")
        if value.startswith("No ") or oid_tuple(oid)[:len(ROOT_OID)] != ROOT_OID:
            continue
        rows.append((oid_tuple(oid), value.strip()))
    return rows


def check_increasing(rows):
    for before, after in zip(rows, rows[1:]):
        assert before[0] < after[0], f"OID not increasing: {before[0]} then {after[0]}"


def bits(*numbers):
    """A BITS value of one octet as the tools print it: a character if it is printable, else hexadecimal."""
    octet = sum(0x80 >> number for number in numbers)
    return f'"{chr(octet)}"' if 0x20 <= octet < 0x7f else f'"{octet:02X} "'


def expected_if_conf(members, protocols=None):
    """The rows of the interface table for {(vrf, ifIndex)} in the order of a walk. `protocols` has the numbers of the
    protocols (MplsL3VpnIfVpnRouteDistProtocol) of interfaces that have any."""
    keys = sorted((name_index(vrf) + (index,), bits(*(protocols or {}).get((vrf, index), ()))) for vrf, index in members)
    columns = {2: "2", 3: None, 4: "5", 5: "1"}
    return [(IF_ENTRY + (column,) + key, value or shown) for column, value in columns.items() for key, shown in keys]
