"""A whole system in a network namespace of its own: applies operations to it and reads what it shows."""
import ctypes
import itertools
import pathlib
import random
import re
import subprocess
import time

from changes import Changes
from kernel import Kernel
from live_suite import LiveSuite, wait_for_probes
from model import Model, Suite
from shown import CommandLine
from system import BIN, System, wait_until
from traps import Sink, States, order_errors, watched

OWN_PROCESSES = ("snmpd", "daemon", "agent")
CLONE_NEWNET = 0x40000000
QUIET = 0.4  # s without a trap: all that a daemon published before it was killed has been sent

SETTINGS = {  # name in /proc/sys/net: the values to draw from
    "ipv4/nexthop_compat_mode": (1, 1, 0),
    "ipv6/conf/*/accept_dad": (0, 0, 1),
    "ipv6/conf/*/keep_addr_on_down": (0, 1),
    "ipv4/conf/*/ignore_routes_with_linkdown": (0, 0, 1),
    "mpls/platform_labels": (100000,),
}


def enter_new_namespace():
    if ctypes.CDLL(None, use_errno=True).unshare(CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), "unshare")
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)


def draw_settings(seed):
    """Random settings of the kernel, each of which changes what it announces."""
    draw = random.Random(f"settings {seed}")
    for name, values in SETTINGS.items():
        value = draw.choice(values)
        for scope in ("all", "default") if "*" in name else ("",):
            pathlib.Path("/proc/sys/net", name.replace("*", scope)).write_text(str(value))


class ChurnSystem(System):
    def __init__(self, sink, shell):
        super().__init__(source="kernel", frr=shell)
        self.sink = sink

    def trap_sink(self):
        return f"trap2sink 127.0.0.1:{self.sink.port} public\n"


class Rig:
    """`release` is that of the routing suite, or None; `places`: see LiveSuite.state."""

    def __init__(self, seed, release=None, places=None):
        draw_settings(seed)
        self.live, self.places = release and LiveSuite(release), places
        if self.live:
            wait_for_probes(self.live)
        self.sink = Sink()
        self.system = ChurnSystem(self.sink, " ".join(self.live.suite.shell_words()) if self.live else "false")
        self.command_line = CommandLine(self.system)
        self.watches, self.daemon_starts = 0, 0
        self.repeats = 0  # batches in which a notification may be sent twice, because an agent was killed
        self.failed_lines, self.lines = 0, 0
        self.refused = []  # commands, with ip(8)'s reason
        self.start_daemon()
        self.system.start_snmpd()
        self.start_agent()
        self.system.cli("config", "set", "traps", "all", check=True)

    def close(self):
        self.system.__exit__(None)
        if self.live:
            self.live.close()

    # --- Processes ---

    def start_daemon(self):
        self.wait_settled()
        self.system.start_daemon()
        self.watches += 1
        self.daemon_starts += 1
        name = f"watch{self.watches}"
        self.system.spawn(name, str(BIN / "mplsvpn"), "--json", "watch")
        wait_until("watch", lambda: "watching for traps" in self.system.log(name))
        self.accepted_published, self.accepted_received = 0, len(self.sink.vrf_traps)
        self.states = States(Model(Kernel(), Suite()).active_vrfs())
        self.changes, self.accepted_changes = Changes(), 0

    def start_agent(self):
        self.system.start_agent("--row-age", "50")

    def start(self, process):
        if self.live and process in self.live.suite.programs:
            self.live.start(process)
        elif process not in self.system.processes:
            for needed in ("daemon", "snmpd") if process == "agent" else ():  # it is started when it has answered
                self.start(needed)
            {"daemon": self.start_daemon, "snmpd": self.system.start_snmpd, "agent": self.start_agent}[process]()

    def start_all(self):
        if self.live:
            self.live.start_all()
        for process in OWN_PROCESSES:
            self.start(process)

    def kill(self, process):
        """[errors]"""
        if process not in OWN_PROCESSES:
            self.live.kill(process)
            return []
        if process not in self.system.processes:
            return []
        if process == "daemon":
            return self.kill_daemon()
        self.repeats = 2
        self.system.kill(process)
        return []

    def kill_daemon(self):
        """Its notifications are final then; the last of them may be lost."""
        self.start_all()
        self.system.kill("daemon")
        self.wait_quiet()
        published, received = self.new_traps()
        self.system.kill(f"watch{self.watches}")
        common = min(len(published), len(received))
        return (self.states.follow(published)
                + order_errors(received[:common], published[:common], self.repeats > 0))

    def wait_quiet(self):
        known = -1
        while known != len(self.sink.vrf_traps):
            known = len(self.sink.vrf_traps)
            time.sleep(QUIET)

    # --- Operations ---

    def apply(self, operations):
        """[errors]"""
        errors = []
        steps = [step.partition(" ")[::2] for operation in operations for step in operation]
        for tool, group in itertools.groupby(steps, key=lambda step: step[0]):
            errors += self.use(tool, [line for _, line in group])
        return errors

    def use(self, tool, lines):
        if tool == "kill":
            return [error for line in lines for error in self.kill(line)]
        if tool == "start":
            for process in lines:
                self.start(process)
            return []
        if tool == "suite":
            for line in lines:
                self.live.configure(line)
            return []
        # After a flush that failed, ip(8) does not carry out what follows in its batch, and does not say so.
        for _, group in itertools.groupby(lines, key=lambda line: line.startswith("route flush ")):
            self.ip_batch(list(group), ("-f", "mpls") if tool == "mpls" else ())
        return []

    def ip_batch(self, lines, options):
        shown = subprocess.run(["ip", *options, "-force", "-batch", "-"], input="\n".join(lines) + "\n", text=True,
                               capture_output=True, check=False)
        self.lines += len(lines)
        self.failed_lines += shown.stderr.count("Command failed")
        for match in re.finditer(r"(.*)\nCommand failed -:(\d+)", shown.stderr):
            self.refused.append(f"{lines[int(match[2]) - 1]}: {match[1]}")

    def wait_settled(self):
        wait_until("the kernel to settle", lambda: Kernel().is_settled(), 30)

    # --- Outside the MIB ---

    def suite_says(self, kernel):
        return self.live.state(kernel, self.places) if self.live else Suite()

    def describe(self):
        """Information for the analysis of a mismatch."""
        commands = [("ip", "-d", "addr", "show"), ("ip", "-4", "route", "show", "table", "all"),
                    ("ip", "-6", "route", "show", "table", "all"), ("ip", "nexthop", "show")]
        shown = [subprocess.run(words, capture_output=True, text=True, check=False) for words in commands]
        said = [(" ".join(one.args), one.stdout + one.stderr) for one in shown]
        said += [(" ".join(("mplsvpn", *words)), self.system.cli(*words).stdout)
                 for words in (("config", "show"), ("show", "vrf", "detail"), ("show", "interfaces"), ("show", "route-targets"))]
        said += [(path.name, path.read_text(errors="replace")) for path in sorted(self.system.folder.glob("*.log"))]
        said.append(("commands that the kernel refused", "\n".join(self.refused)))
        said += self.live.describe() if self.live else []
        return "".join(f"=== {what}\n{text}\n" for what, text in said)

    # --- Traps ---

    def published(self):
        """(traps, changes)"""
        return watched(self.system.log(f"watch{self.watches}"))

    def new_traps(self):
        """(published, received) since they were last accepted."""
        return self.published()[0][self.accepted_published:], self.sink.vrf_traps[self.accepted_received:]

    def trap_errors(self, active):
        published, received = self.new_traps()
        states = States(self.states.up)
        return (states.follow(published) + order_errors(received, published, self.repeats > 0)
                + states.differences(active))

    def accept_traps(self):
        published, received = self.new_traps()
        self.states.follow(published)
        self.accepted_published += len(published)
        self.accepted_received += len(received)
        self.repeats = max(0, self.repeats - 1)

    # --- Changes of RDs and route targets ---

    def new_changes(self):
        return self.published()[1][self.accepted_changes:]

    def accept_changes(self, events, targets):
        self.changes.accept(events, targets)
        self.accepted_changes += len(events)
