"""The system under test: the programs in a table, small file systems for state and sockets, a wall clock that can
be stepped, and the routing suite if this machine has it."""
import collections
import contextlib
import ctypes
import json
import os
import pathlib
import re
import resource
import shutil
import signal
import struct
import subprocess
import sys
import time

import router
from system import System
from trap_sink import TrapSink

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "kernel"))
import suite  # noqa: E402

HERE = pathlib.Path(__file__).resolve().parent
FILE_SYSTEM = 160 << 20  # octets of the state directory's and of the run directory's file system
FILE_SYSTEM_OF_GUEST = 32 << 20

Program = collections.namedtuple("Program", "name of_suite")
# Everything that is killed and stopped.
PROGRAMS = (
    Program("daemon", False),
    Program("agent", False),
    Program("snmpd", False),
    Program("bgpd", True),
    Program("zebra", True),
)
SUITE_PROGRAMS = tuple(program.name for program in PROGRAMS if program.of_suite)


def mount(folder, size):
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size},mode=755", "chaos", str(folder)], check=True)


def start_suite():
    """The suite of this machine in fresh folders; None if there is none."""
    try:
        release = suite.Release()
    except suite.NotInstalled:
        return None
    for folder in ("/run/frr", "/etc/frr"):
        os.makedirs(folder, exist_ok=True)
        mount(folder, 8 << 20)
    running = suite.Suite(release, None, reversed(SUITE_PROGRAMS), router.suite_configuration())
    running.start()
    running.load()
    return running


class Rig(System):
    """The sub-agent, snmpd and the daemon write into folders of their own, whose file systems can be filled."""

    def __init__(self, journal, sanitized, in_guest):
        self.journal, self.sink, self.commands = journal, TrapSink(), {}
        if in_guest:
            router.Size.shrink()
        self.router = router.KernelRouter() if in_guest else router.FileRouter()
        self.router.prepare()
        self.suite = start_suite()
        super().__init__(self.router.text(), source=self.router.source, frr="true" if self.suite else "false")
        for name in ("run", "state"):
            mount(self.folder / name, FILE_SYSTEM_OF_GUEST if in_guest else FILE_SYSTEM)
        self.clock_file = None if in_guest else self.folder / "clock"
        self.clock_offset = 0
        self.least_pause = 0.5 if in_guest else 0.0  # of users: the guest has one slow processor
        self.step_clock(0)
        if not in_guest and not sanitized:  # a sanitizer's library is the first, or there is none
            self.environment.update(LD_PRELOAD=str(self.build_clock()), CHAOS_CLOCK=str(self.clock_file))
        self.trap_port = self.sink.port

    def __exit__(self, kind, *rest):
        for name in list(self.processes):
            self.kill(name)
        for name in ("run", "state"):
            subprocess.run(["umount", str(self.folder / name)], check=True)
        super().__exit__(None, *rest)
        for name in SUITE_PROGRAMS if self.suite else ():
            with contextlib.suppress(ProcessLookupError, FileNotFoundError):
                os.kill(self.suite.pid(name), signal.SIGKILL)

    def snmpd_settings(self):
        """snmpd's own memory of a thousand notifications, 12 KB each, would look like growth."""
        return super().snmpd_settings() + "doNotRetainNotificationLogs yes\n"

    def build_clock(self):
        library = self.folder / "clock_offset.so"
        subprocess.run([os.environ.get("CC", "cc"), "-O2", "-shared", "-fPIC", "-o", str(library), str(HERE / "clock_offset.c"),
                        "-ldl"], check=True)
        return library

    def step_clock(self, seconds):
        """The programs' wall clock is this much ahead; in the guest that of its kernel."""
        if self.clock_file is None:
            time.clock_settime(time.CLOCK_REALTIME, time.time() + seconds - self.clock_offset)
            self.clock_offset = seconds
            return
        with open(self.clock_file, "r+b" if self.clock_file.exists() else "wb") as file:
            file.write(struct.pack("=q", seconds))

    def start(self):
        self.start_all()
        self.cli("config", "set", "traps", "all", check=True)
        self.router.configure(self)

    # --- Programs ---

    def programs(self):
        return [program.name for program in PROGRAMS if self.suite or not program.of_suite]

    def spawn(self, name, *command):
        self.commands[name] = command
        return super().spawn(name, *command)

    def pid(self, name):
        """None if it does not run."""
        if name in SUITE_PROGRAMS:
            with contextlib.suppress(FileNotFoundError, ValueError):
                pid = self.suite.pid(name)
                return pid if pathlib.Path(f"/proc/{pid}").exists() else None
            return None
        process = self.processes.get(name)
        return process.pid if process and process.poll() is None else None

    def signal(self, name, number):
        if (pid := self.pid(name)) is not None:
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, number)

    def end(self, name, number):
        """Ends a program."""
        if name not in SUITE_PROGRAMS:
            self.kill(name, number)
        elif self.pid(name) is not None:
            self.suite.signal(name, number)

    def restart(self, name):
        """Starts a program that does not run, and does not wait until it answers."""
        if self.pid(name) is not None:
            return
        if name in SUITE_PROGRAMS:
            self.suite.start(name)
            self.suite.load()
            return
        if name == "snmpd":
            self.agentx.unlink(missing_ok=True)
        super().spawn(name, *self.commands[name])

    def dead(self):
        """Names of programs that do not run, and the status of those that ended by themselves."""
        found = {}
        for name in self.programs():
            if self.pid(name) is None:
                process = self.processes.get(name)
                found[name] = process.returncode if process else None
        return found

    def address_space(self, name):
        """Octets of virtual memory in use."""
        return self.status(name, "VmSize") << 10

    def resident(self, name):
        """KiB."""
        return self.status(name, "VmRSS")

    def status(self, name, field):
        text = pathlib.Path(f"/proc/{self.pid(name)}/status").read_text()
        return int(re.search(rf"^{field}:\s+(\d+) kB", text, re.MULTILINE)[1])

    def limit_memory(self, name, octets):
        """RLIM_INFINITY: no limit."""
        if (pid := self.pid(name)) is not None:
            with contextlib.suppress(ProcessLookupError):
                resource.prlimit(pid, resource.RLIMIT_AS, (octets, resource.RLIM_INFINITY))

    # --- What it shows ---

    @property
    def socket(self):
        return self.folder / "run/dev.mpls.vpn.main"

    def vrfs(self):
        """{name: row}; None if the command line got no answer."""
        result = self.cli("--json", "--timeout", "20000", "show", "vrf")
        if result.returncode != 0:
            return None
        return {row["name"]: row for row in json.loads(result.stdout)}

    def lost_traps(self):
        """Notifications that full queues have lost, as the logs state them."""
        whole = re.findall(r"(\d+) notifications were lost while the queue was full", self.log("daemon"))
        return sum(map(int, whole)) + sum(map(int, re.findall(r"traps: (\d+) lost because the queue of the sub-agent",
                                                             self.log("agent"))))

    def is_losing_traps(self):
        """Whether the daemon reported that its queue is full, and not yet how many it has lost."""
        text = self.log("daemon")
        return text.rfind("the oldest are lost from here") > text.rfind("notifications were lost while the queue was full")

    def save(self, folder):
        for path in [*self.folder.glob("*.log"), *self.folder.glob("etc/*")]:
            shutil.copy(path, folder)
        shutil.copytree(self.folder / "state", folder / "state", dirs_exist_ok=True)
