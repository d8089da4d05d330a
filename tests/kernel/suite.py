"""The routing suite FRR for tests in the guest: this machine's, or another release's in a Debian root folder.

    release = suite.find(10)                # raises NotInstalled with the reason
    pe1 = suite.Suite(release, None, ("zebra", "bgpd"), "router bgp ...")
    pe1.start()
    pe1.load()
    pe1.ask("bgpd", "show version")

A suite of another release runs under chroot in its root folder. The environment variable MPLS_TEST_FRR10_ROOT (of
version 10; MPLS_TEST_FRR8_ROOT of version 8) names the folder; scripts/test sets it. The guest writes into memory only, so
nothing is written to the folder.
"""
import contextlib
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

from suite_shell import Programs, Shell
from system import wait_until

SHELL = "/usr/bin/vtysh"
PROGRAMS = "/usr/lib/frr"
PATIENCE = 30.0  # seconds for a program to answer, or to end


class NotInstalled(Exception):
    """There is no suite of the required version; the text is the reason."""


def run(*words):
    result = subprocess.run(words, text=True, capture_output=True, check=False)
    if result.returncode != 0:
        raise AssertionError(f"{' '.join(words)}: {result.returncode}\n{result.stdout}{result.stderr}")
    return result.stdout


class Release:
    """An installed suite: that of this machine if it has no root folder."""

    def __init__(self, root=None):
        self.root = root
        if not self.path(f"{PROGRAMS}/zebra").exists():
            raise NotInstalled(f"no routing suite in {root or 'this machine'} (package frr)")
        self.version = run(*self.words(f"{PROGRAMS}/zebra", "--version")).split()[2]
        self.major = int(self.version.partition(".")[0])
        self.has_mgmtd = self.path(f"{PROGRAMS}/mgmtd").exists()

    def words(self, *words):
        """The command as it is called from outside the root folder."""
        return ("/usr/sbin/chroot", self.root, *words) if self.root else words

    def path(self, inside):
        return pathlib.Path(f"{self.root or ''}{inside}")

    def prepare(self):
        """Mounts what the suite's programs need in the root folder; once per guest."""
        if not self.root or self.path("/proc/self").exists():
            return
        for kind in ("proc", "sysfs", "devtmpfs"):
            run("mount", "-t", kind, kind, str(self.path({"proc": "/proc", "sysfs": "/sys", "devtmpfs": "/dev"}[kind])))


def find(major):
    """The suite of this major version: that of this machine, or of the root folder that the environment names."""
    reasons = []
    variable = f"MPLS_TEST_FRR{major}_ROOT"
    for root in (None, os.environ.get(variable)):
        if root is None and reasons:
            reasons.append(f"{variable} is not set (scripts/test makes the root folder and sets it)")
            continue
        try:
            release = Release(root)
        except NotInstalled as missing:
            reasons.append(str(missing))
            continue
        if release.major == major:
            release.prepare()
            return release
        reasons.append(f"{root or 'this machine'} has version {release.version}")
    raise NotInstalled("; ".join(reasons))


def find_or_skip(test, major):
    """For the main program of a test: ends it as skipped, with the reason, if the suite is not installed."""
    try:
        return find(major)
    except NotInstalled as missing:
        print(f"SKIPPED: {test}: FRR {major}: {missing}")
        sys.exit(77)


class Suite:
    """A running suite in a network namespace; None is this one.

    In a namespace it has a path space of the same name, so that suites use different files. `programs` are started in this
    order; mgmtd, if the release has it, before them.
    """

    def __init__(self, release, namespace, programs, config):
        self.release = release
        self.programs = (("mgmtd",) if release.has_mgmtd else ()) + tuple(programs)
        self.inside = ("ip", "netns", "exec", namespace) if namespace else ()
        self.path_space = ("-N", namespace) if namespace else ()
        below = f"/{namespace}" if namespace else ""
        self.run = release.path(f"/run/frr{below}")
        self.etc = release.path(f"/etc/frr{below}")
        for folder in (self.run, self.etc):
            folder.mkdir(parents=True, exist_ok=True)
        self.save(config)
        (self.etc / "vtysh.conf").write_text("service integrated-vtysh-config\n")
        run(*release.words("chown", "-R", "frr:frr", f"/run/frr{below}", f"/etc/frr{below}"))
        programs = Programs(self.run)
        self.ask, self.ask_json, self.ask_each = programs.ask, programs.ask_json, programs.ask_each
        self.session = None

    def save(self, config):
        """The configuration that `load` loads."""
        (self.etc / "frr.conf").write_text(config)

    def start(self, *programs):
        for program in programs or self.programs:
            self.start_program(program)
            wait_until(program, lambda name=program: self.answers(name), PATIENCE, every=0.05)

    def start_program(self, program):
        """Some programs do not close their standard output: a pipe would never end."""
        words = (*self.inside, *self.release.words(f"{PROGRAMS}/{program}", "-d", *self.path_space, "-P", "0"))
        with tempfile.TemporaryFile("w+") as said:
            status = subprocess.run(words, stdin=subprocess.DEVNULL, stdout=said, stderr=said, check=False).returncode
            said.seek(0)
            assert status == 0, f"{' '.join(words)}: {status}\n{said.read()}"

    def answers(self, program):
        try:
            return bool(self.ask(program, "show version"))
        except OSError:
            return False

    def load(self):
        loaded = self.shell("-b")
        assert loaded.returncode == 0, loaded.stdout + loaded.stderr

    def pid(self, program):
        return int((self.run / f"{program}.pid").read_text())

    def stop(self, *programs):
        for program in programs or tuple(reversed(self.programs)):
            self.signal(program, 15)

    def signal(self, program, number):
        """Sends a signal that ends the program, and waits for its end."""
        self.end_session()
        pid = self.pid(program)
        with contextlib.suppress(ProcessLookupError):
            os.kill(pid, number)
        wait_until(f"{program} to end", lambda: not pathlib.Path(f"/proc/{pid}").exists(), PATIENCE, every=0.05)

    def hang(self, program):
        os.kill(self.pid(program), signal.SIGSTOP)

    def resume(self, program):
        os.kill(self.pid(program), signal.SIGCONT)

    def shell_words(self, *words):
        """The suite's shell as a command, for `frr:` in platform.yaml and for tests."""
        return (*self.release.words(SHELL), *self.path_space, *words)

    def shell(self, *words):
        return subprocess.run(self.shell_words(*words), capture_output=True, text=True, check=False)

    # --- Commands that show are sent to a program itself, changes to a session of the shell ---

    def running_config(self):
        """Of all programs."""
        return "".join(self.ask(program, "show running-config") for program in self.programs)

    def configure(self, *lines):
        """As in a session of the shell: each line is sent to every program that knows it. A line that is refused ends it."""
        self.command("configure terminal")
        try:
            for line in lines:
                self.command(line)
        finally:
            self.command("end")

    def command(self, line):
        if self.session is None:
            self.session = Shell(self.shell_words())
        refused = self.session.ask(line)
        assert "%" not in refused, f"{line}: {refused}"

    def end_session(self):
        """Otherwise the session's next command would reconnect it to restarted programs."""
        if self.session is not None:
            self.session.close()
        self.session = None

    # --- Interfaces on which a protocol runs, by the suite's operational commands: {VRF: {interface}} ---

    def ospf_interfaces(self):
        shown = self.ask_json("ospfd", "show ip ospf vrf all interface json")
        return {vrf: set(instance.get("interfaces", {})) for vrf, instance in shown.items() if isinstance(instance, dict)}

    def rip_interfaces(self, vrfs):
        return {vrf: in_table(self.ask("ripd", f"show ip rip vrf {vrf} status"), "Key-chain") for vrf in vrfs}

    def ripng_interfaces(self, vrfs):
        return {vrf: in_table(self.ask("ripngd", f"show ipv6 ripng vrf {vrf} status"), "Recv") for vrf in vrfs}

    def vrfs_with_neighbors(self):
        shown = self.ask_json("bgpd", "show bgp vrf all summary json")
        return {vrf for vrf, families in shown.items()
                if any(family.get("peers") for family in families.values() if isinstance(family, dict))}

    def ospf6_interfaces(self, vrf):
        shown = self.ask_json("ospf6d", f"show ipv6 ospf6 vrf {vrf} interface json")
        return {name for name, interface in shown.items() if interface.get("attachedToArea")}

    def eigrp_interfaces(self, vrfs):
        return {vrf: set(re.findall(r"^(\w+) +\d+ ", self.ask("eigrpd", f"show ip eigrp vrf {vrf} interfaces"), re.MULTILINE))
                for vrf in vrfs}


def in_table(status, last_title):
    """The interfaces in the table of a RIP status."""
    table = status.partition(last_title)[2].partition("Routing for")[0]
    return set(re.findall(r"^    (\S+) ", table, re.MULTILINE))
