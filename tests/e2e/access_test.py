#!/usr/bin/env python3
"""What other local users can and cannot do: directories, files, locks, roles, and servers in place of the daemon."""
import contextlib
import fcntl
import grp
import os
import shutil
import signal
import socket
import stat
import struct
import subprocess
import unittest

from system import BIN, SLOW, System, wait_until

ANOTHER_USER = 60001
IS_ROOT = os.geteuid() == 0
NEEDS_ROOT = unittest.skipUnless(IS_ROOT, "SKIPPED: needs root to become another user")


def mode_of(path):
    return stat.S_IMODE(path.lstat().st_mode)


def locker_of(path):
    """The process that has an fcntl lock on the file, 0 for none."""
    with open(path, "rb") as file:
        request = struct.pack("hhqqi4x", fcntl.F_WRLCK, os.SEEK_SET, 0, 0, 0)
        kind, _, _, _, process = struct.unpack("hhqqi4x", fcntl.fcntl(file, fcntl.F_GETLK, request))
    return 0 if kind == fcntl.F_UNLCK else process


def start_as(user, groups, call):
    """Runs the call in a child process of this user (None: of this process's); returns its process id when it has returned.
    The child then waits for its end."""
    reader, writer = os.pipe()
    child = os.fork()
    if child == 0:
        try:
            if user is not None:
                os.setgroups(groups)
                os.setgid(user)
                os.setuid(user)
            call()
            os.write(writer, b"x")
            signal.pause()
        finally:
            os._exit(1)
    os.close(writer)
    with open(reader, "rb") as started:
        assert started.read(1) == b"x", "the child has failed"
    return child


@contextlib.contextmanager
def another_process(call, user=None, groups=()):
    """Yields the id of a child process that has run the call and still exists."""
    child = start_as(user, groups, call)
    try:
        yield child
    finally:
        os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)


class AccessTest(unittest.TestCase):
    def setUp(self):
        self.system = self.enterContext(System("vrfs: [{name: red, id: 10}]\ninterfaces: []\n"))
        self.run_directory, self.state = self.system.folder / "run", self.system.folder / "state"
        self.system.folder.chmod(0o755)  # other users reach what the daemon's own permissions let them reach

    def fail_to_start(self):
        """Starts the daemon, which must end with status 1, and returns its log."""
        process = self.system.spawn("daemon", str(BIN / "mpls_vpn_mib"))
        self.assertEqual(process.wait(timeout=30 * SLOW), 1, self.system.log("daemon"))
        return self.system.log("daemon")

    def test_modes_do_not_depend_on_the_umask_and_excess_permissions_are_removed(self):
        (self.state / "configuration.db").touch(0o644)
        (self.state / "checkpoint.db").touch(0o644)
        (self.state / "checkpoint.db").chmod(0o666)
        before = os.umask(0)
        try:
            self.system.start_daemon()
        finally:
            os.umask(before)
        self.system.cli("config", "set", "vrf", "red", "description", "x", check=True)
        self.assertEqual(mode_of(self.run_directory), 0o750)
        self.assertEqual(mode_of(self.state), 0o700)
        self.assertEqual({path.name: oct(mode_of(path)) for path in self.state.iterdir()},
                         {path.name: oct(0o600) for path in self.state.iterdir()})
        expected = {"lock": 0o600, "parcel.registry": 0o640, "trace": 0o750, "dev.mpls.vpn.main": 0o660, "dev.mpls.vpn.debug": 0o660}
        self.assertEqual({path.name: oct(mode_of(path)) for path in self.run_directory.iterdir()},
                         {name: oct(mode) for name, mode in expected.items()})
        self.assertEqual({mode_of(path) for path in (self.run_directory / "trace").iterdir()}, {0o640})

    def test_files_of_a_former_start_lose_excess_permissions(self):
        self.system.start_daemon()
        self.system.kill("daemon")
        for folder, name in ((self.state, "configuration.db.unusable.1"), (self.run_directory, "trace/a.former.one")):
            (folder / name).touch()
        files = [path for folder in (self.run_directory, self.state) for path in folder.rglob("*") if path.is_file()]
        for path in files:
            path.chmod(0o666)
        self.system.start_daemon()
        modes = {path.name: oct(mode_of(path)) for path in files}
        self.assertEqual(modes, {path.name: oct(0o600 if path.parent == self.state or path.name == "lock" else 0o640) for path in files})

    def test_missing_parents_of_directories_may_be_written_by_their_owner_only(self):
        self.system.environment["MPLS_VPN_MIB_STATE_DIR"] = str(self.system.folder / "new/deep/state")
        before = os.umask(0)
        try:
            self.system.start_daemon()
        finally:
            os.umask(before)
        self.assertEqual([oct(mode_of(self.system.folder / path)) for path in ("new", "new/deep", "new/deep/state")],
                         ["0o755", "0o755", "0o700"])

    @NEEDS_ROOT
    def test_lock_on_the_run_directory_does_not_delay_a_start(self):
        self.run_directory.chmod(0o755)
        with another_process(lambda: fcntl.flock(os.open(self.run_directory, os.O_RDONLY), fcntl.LOCK_EX), ANOTHER_USER):
            self.system.start_daemon()

    def test_locked_run_directory_is_reported_with_the_holder(self):
        (self.run_directory / "lock").touch(0o600)
        with another_process(lambda: fcntl.lockf(os.open(self.run_directory / "lock", os.O_RDWR), fcntl.LOCK_SH)) as holder:
            self.assertIn(f"process {holder}", self.fail_to_start())

    def test_databases_are_locked_while_the_daemon_runs(self):
        self.system.start_daemon()
        daemon = self.system.processes["daemon"].pid
        for name in ("configuration.db", "checkpoint.db"):
            self.assertEqual(locker_of(self.state / name), daemon, name)

    def test_locked_database_is_reported_with_the_holder(self):
        for name in ("configuration.db", "checkpoint.db"):
            self.system.start_daemon()
            self.system.kill("daemon")
            with another_process(lambda file=self.state / name: fcntl.lockf(os.open(file, os.O_RDONLY), fcntl.LOCK_SH)) as holder:
                self.assertIn(f"process {holder}", self.fail_to_start(), name)

    @NEEDS_ROOT
    def test_directories_of_another_user_are_refused(self):
        for directory in (self.run_directory, self.state):
            os.chown(directory, ANOTHER_USER, ANOTHER_USER)
            self.assertIn(f"{directory} belongs to user {ANOTHER_USER}", self.fail_to_start())
            os.chown(directory, 0, 0)

    def test_directories_that_everybody_may_write_are_refused(self):
        for directory in (self.run_directory, self.state):
            directory.chmod(0o777)
            self.assertIn(f"everybody may write to {directory}", self.fail_to_start())
            directory.chmod(0o700)

    def test_links_in_the_run_directory_are_not_followed(self):
        precious = self.system.folder / "precious"
        precious.write_text("precious")
        for name in ("parcel.registry.new", "parcel.registry"):
            (self.run_directory / name).symlink_to(precious)
        self.system.start_daemon()
        self.assertEqual(precious.read_text(), "precious")
        (self.run_directory / "lock").unlink()
        (self.run_directory / "lock").symlink_to(precious)
        self.system.kill("daemon")
        self.fail_to_start()
        self.assertEqual(precious.read_text(), "precious")


AGENTS = "daemon"  # a group that exists everywhere; a user of the daemon's own group (root's) may connect


@NEEDS_ROOT
class RolesTest(unittest.TestCase):
    """The daemon runs as root; clients run as another user who may connect."""

    def setUp(self):
        router = ("vrfs: [{name: red, table: 10}]\n"
                  "interfaces: [{name: eth0, vrf: red, index: 5, state: up, addresses: [10.0.0.1/24]}]\n")
        self.system = self.enterContext(System(router, environment={"MPLS_VPN_MIB_AGENT_GROUP": AGENTS}))
        self.system.folder.chmod(0o755)
        self.programs = self.system.folder / "bin"  # the build folder may be closed to other users
        shutil.copytree(BIN, self.programs)

    def spawn_as(self, name, groups, *command):
        with open(self.system.folder / f"{name}.log", "a") as log:
            self.system.processes[name] = subprocess.Popen(
                [str(self.programs / command[0]), *command[1:]], env=self.system.environment, stdin=subprocess.DEVNULL,
                stdout=log, stderr=log, cwd="/", user=ANOTHER_USER, group=ANOTHER_USER, extra_groups=groups)

    def cli_as(self, groups, *words):
        return subprocess.run([str(self.programs / "mplsvpn"), *words], env=self.system.environment, capture_output=True,
                              text=True, stdin=subprocess.DEVNULL, cwd="/", user=ANOTHER_USER, group=ANOTHER_USER,
                              extra_groups=groups, timeout=60 * SLOW, check=False)

    def test_sub_agent_needs_the_agents_group_only(self):
        self.system.snmpd_settings = lambda: "rocommunity public\nmaster agentx\nagentXPerms 0777 0755\n"
        self.system.start_trapd()
        self.system.start_daemon()
        self.system.start_snmpd()
        self.spawn_as("agent", [0, grp.getgrnam(AGENTS).gr_gid], "mpls_vpn_snmp", "--agentx-socket", str(self.system.agentx))
        self.system.wait_registered()
        self.system.cli("config", "set", "traps", "all", check=True)
        self.system.cli("router", "down", "eth0", check=True)
        wait_until("a trap", self.system.traps, 15)
        self.assertNotIn("refused", self.system.log("agent"))

    def test_sub_agent_that_may_only_read_receives_no_notifications(self):
        self.system.snmpd_settings = lambda: "rocommunity public\nmaster agentx\nagentXPerms 0777 0755\n"
        self.system.start_daemon()
        self.system.start_snmpd()
        self.spawn_as("agent", [0], "mpls_vpn_snmp", "--agentx-socket", str(self.system.agentx))
        self.system.wait_registered()
        wait_until("the refusal", lambda: "refused the subscription" in self.system.log("agent"))
        self.assertIn("add the sub-agent's user to the agents' group (mpls_vpn_agent)", self.system.log("agent"))

    def test_reader_agent_and_others_have_their_rights_and_no_more(self):
        self.system.start_daemon()
        show, config, change = ("show", "vrf"), ("config", "show"), ("config", "set", "vrf", "red", "description", "x")
        debug = ("debug", "list")
        agent, reader, other = [0, grp.getgrnam(AGENTS).gr_gid], [0], []
        allowed = {(tuple(groups), words) for groups in (agent, reader, other) for words in (show, config, change, debug)
                   if self.cli_as(groups, *words).returncode == 0}
        self.assertEqual(allowed, {(tuple(agent), show), (tuple(reader), show), (tuple(reader), config), (tuple(reader), debug)})

    def test_refusal_has_a_status_of_its_own_and_names_the_group_that_may(self):
        self.system.start_daemon()
        for words in (("router", "down", "eth0"), ("config", "set", "vrf", "red", "description", "x"), ("debug", "vmap", "on")):
            refused = self.cli_as([0], *words)
            self.assertEqual(refused.returncode, 5, words)
            self.assertIn("the group mpls_vpn_admin", refused.stderr)
        self.assertEqual(self.cli_as([], "trace").returncode, 5)
        self.assertEqual(self.cli_as([0], "trace", "init").returncode, 0)

    def test_socket_that_denies_permission_names_its_group_and_how_to_join_it(self):
        self.system.start_daemon()
        run_directory = self.system.folder / "run"
        refused = self.cli_as([], "show", "vrf")
        self.assertEqual(refused.returncode, 5)
        self.assertIn("permission denied; only root and the group root may use it\n", refused.stderr)
        os.chown(run_directory, -1, grp.getgrnam(AGENTS).gr_gid)
        self.assertIn(f"only root and the group {AGENTS} may use it; \"adduser USER {AGENTS}\" adds a user",
                      self.cli_as([], "show", "vrf").stderr)

    def test_flood_of_connections_is_logged_with_a_count_when_it_has_ended(self):
        self.system.start_daemon()
        path = str(self.system.folder / "run" / "dev.mpls.vpn.main")

        def flood():
            self.connections = [socket.socket(socket.AF_UNIX) for _ in range(300)]
            for connection in self.connections:
                connection.connect(path)

        with another_process(flood, ANOTHER_USER, [0]):
            wait_until("the count", lambda: "similar lines were suppressed" in self.system.log("daemon"), 30)
        self.assertEqual(self.system.log("daemon").count("this user has 16 clients already"), 100 + 1)

    def test_server_of_another_user_is_not_believed(self):
        run_directory = self.system.folder / "run"
        run_directory.chmod(0o777)
        fake = run_directory / "dev.mpls.vpn.main"

        def listen():
            server = socket.socket(socket.AF_UNIX)
            server.bind(str(fake))
            fake.chmod(0o666)
            server.listen()
            self.server = server

        with another_process(listen, ANOTHER_USER):
            result = self.system.cli("show", "scalars")
            self.assertEqual(result.returncode, 3)
            self.assertIn(f"{fake}: served by a user who is neither root nor the owner of its directory", result.stderr)
            self.system.spawn("agent", str(BIN / "mpls_vpn_snmp"), "--agentx-socket", str(self.system.agentx))
            wait_until("the sub-agent's message", lambda: "untrusted user" in self.system.log("agent"))


OVERFLOW_USER = 65534


@NEEDS_ROOT
class UnprivilegedDaemonTest(unittest.TestCase):
    def start(self, user, **options):
        """A daemon of this user, without other groups."""
        system = self.enterContext(System(**options))
        system.folder.chmod(0o755)
        self.programs = system.folder / "programs"
        for name in ("bin", "lib"):
            shutil.copytree(BIN.parent / name, self.programs / name)
        system.environment["MPLS_VPN_MIB_LIB_DIR"] = str(self.programs / "lib")
        for name in ("run", "state"):
            os.chown(system.folder / name, user, user)
        with open(system.folder / "daemon.log", "a") as log:
            system.processes["daemon"] = subprocess.Popen(
                [str(self.programs / "bin/mpls_vpn_mib")], env=system.environment, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                cwd="/", user=user, group=user, extra_groups=[])
        wait_until("daemon", lambda: system.cli("show", "scalars").returncode == 0, 30)
        return system

    def may_configure(self, system, user, group):
        command = [str(self.programs / "bin/mplsvpn"), "config", "set", "vrf", "red", "description", str(user)]
        return subprocess.run(command, env=system.environment, check=False, capture_output=True, cwd="/", user=user, group=group,
                              extra_groups=[], timeout=60 * SLOW).returncode == 0

    def test_daemon_that_runs_as_the_overflow_user_gives_it_no_rights(self):
        system = self.start(OVERFLOW_USER)
        self.assertTrue(self.may_configure(system, 0, OVERFLOW_USER))
        self.assertFalse(self.may_configure(system, OVERFLOW_USER, OVERFLOW_USER))
        self.assertIn("run the daemon as a user of its own", system.log("daemon"))

    def test_daemon_follows_the_kernel_without_any_privilege(self):
        system = self.start(ANOTHER_USER, source="kernel", frr="false")
        for user in (0, ANOTHER_USER):
            self.assertTrue(self.may_configure(system, user, ANOTHER_USER), user)
        owners = {path.stat().st_uid for path in (*(system.folder / "state").iterdir(), *(system.folder / "run").iterdir())}
        self.assertEqual(owners, {ANOTHER_USER})


if __name__ == "__main__":
    unittest.main()
