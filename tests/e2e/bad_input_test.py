#!/usr/bin/env python3
"""Invalid input of every kind causes a clear error, and the system continues to work."""

import fcntl
import os
import pathlib
import re
import signal
import socket
import struct
import subprocess
import tempfile
import unittest

from system import BIN, IF_CONF, ROOT, SLOW, SharedSystemTest, SystemTest, expected_if_conf, wait_until

PROGRAMS = ("mpls_vpn_mib", "mpls_vpn_snmp", "mplsvpn")
ROUTER = """
vrfs:
  - {name: red, table: 10}
interfaces:
  - {name: ge0, index: 11, vrf: red, state: up, addresses: [10.0.0.1/24]}
"""
GARBAGE = [b"", b"\x00", b"GET / HTTP/1.0\r\n\r\n", b"\xff" * 4096, bytes(range(256)) * 40,
           struct.pack("<IIII", 0xffffffff, 0xffffffff, 0xffffffff, 0xffffffff)]
REFUSED = [("get", "nothing", "No such path"), ("get", "interface-next/red", "A path argument is missing"),
           ("get", "interface-next/red/eleven", "does not decode"), ("get", "vrf/nothing", "no such row"),
           ("get", "interface/red/11", "no such row"),  # an exact read in a VRF of the database has no row
           ("list", "interface/red/11", "does not serve this operation"),
           ("get", "interface-next/" + "a" * 5000 + "/1", ".")]


class Arguments(unittest.TestCase):
    """What every program answers to arguments, before it starts anything."""

    def answer(self, program, *arguments):
        with tempfile.TemporaryDirectory(prefix="mpls_vpn_arguments.") as folder:
            environment = {f"MPLS_VPN_MIB_{name}_DIR": folder for name in ("RUN", "STATE", "CONFIG")}
            result = subprocess.run([str(BIN / program), *arguments], env=dict(os.environ, **environment), timeout=10 * SLOW,
                                    capture_output=True, text=True, check=False)
            return result.returncode, result.stdout, result.stderr

    def test_help_is_printed(self):
        for program in PROGRAMS:
            status, out, err = self.answer(program, "--help")
            self.assertEqual((status, err), (0, ""), program)
            self.assertRegex(out, rf"(?is)usage: .*{program}.*--help.*--version")

    def test_version_is_that_of_the_build(self):
        version = re.search(r"^project\(\S+ VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
        for program in PROGRAMS:
            self.assertEqual(self.answer(program, "--version"), (0, version + "\n", ""), program)

    def test_other_arguments_are_refused_by_name(self):
        for program in PROGRAMS:
            for argument in ("-x", "--unknown", "stop"):
                status, out, err = self.answer(program, argument)
                self.assertEqual((status, out), (2, ""), (program, argument))
                self.assertIn("--help", err)
                if program != "mplsvpn":  # which reports its missing command first
                    self.assertIn(argument, err)
        self.assertEqual(self.answer("mpls_vpn_mib", "--chek")[2], 'mpls_vpn_mib: unexpected argument "--chek"; did you mean "--check"? '
                         '"mpls_vpn_mib --help" lists the arguments\n')
        self.assertEqual(self.answer("mpls_vpn_mib", "--help", "me")[2],
                         'mpls_vpn_mib: unexpected argument "me"; "mpls_vpn_mib --help" lists the arguments\n')

    def test_socket_of_the_master_agent_that_is_no_unix_socket_is_refused(self):
        status, _, err = self.answer("mpls_vpn_snmp", "--agentx-socket", "tcp:localhost:705")
        self.assertEqual(status, 2)
        self.assertIn("tcp:localhost:705 is not a Unix socket", err)


class BadInput(SharedSystemTest):
    router = ROUTER

    def tearDown(self):
        for name, process in self.system.processes.items():
            self.assertIsNone(process.poll(), f"{name} ended: {self.system.log(name)[-2000:]}")
        self.assertEqual(self.system.walk(IF_CONF), expected_if_conf([("red", 11)]))

    def send(self, path, octets, half_close):
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as peer:
            peer.settimeout(10)
            peer.connect(str(path))
            try:
                peer.sendall(octets)
                if half_close:
                    peer.shutdown(socket.SHUT_WR)
                    while peer.recv(4096):
                        pass
            except (BrokenPipeError, ConnectionResetError):
                return  # the peer closed the connection, as it should

    def sockets(self):
        run = self.system.folder / "run"
        return [run / "dev.mpls.vpn.main", run / "dev.mpls.vpn.debug"]

    def test_garbage_on_each_socket_is_refused_with_a_reason(self):
        for path in self.sockets():
            before = len(self.system.log("daemon"))
            for octets in GARBAGE:
                self.send(path, octets, half_close=True)
            wait_until("a logged reason", lambda start=before: len(self.system.log("daemon")) > start)

    def test_truncated_request_affects_no_other_client(self):
        """A request that the command line really sends, truncated at every length."""
        request = self.recorded_request()
        self.assertGreater(len(request), 20)
        for length in range(1, len(request)):
            self.send(self.sockets()[0], request[:length], half_close=True)

    def test_garbage_on_the_master_agents_socket_does_not_affect_the_sub_agent(self):
        for octets in GARBAGE[1:]:
            self.send(self.system.agentx, octets, half_close=False)

    def recorded_request(self):
        """The first request of `mplsvpn show scalars`, received by a listener in place of the daemon."""
        run = self.system.folder / "fake"
        run.mkdir(exist_ok=True)
        path = run / "dev.mpls.vpn.main"
        path.unlink(missing_ok=True)
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as listener:
            listener.bind(str(path))
            listener.listen()
            listener.settimeout(10)
            environment = dict(self.system.environment, MPLS_VPN_MIB_RUN_DIR=str(run))
            with subprocess.Popen([BIN / "mplsvpn", "show", "scalars"], env=environment, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL) as client:
                peer, _ = listener.accept()
                with peer:
                    peer.settimeout(10)
                    request = peer.recv(65536)
                client.wait(timeout=20)
        return request

    def test_each_request_that_cannot_be_answered_has_its_own_error(self):
        for operation, path, error in REFUSED:
            with self.subTest(path=path[:60]):
                result = self.system.cli(operation, "/oper/mpls_vpn/gl/" + path)
                self.assertEqual((result.returncode, result.stdout), (1, ""))
                self.assertRegex(result.stderr, error)

    def test_absurd_indexes_over_snmp(self):
        for index in (".4294967295" * 100, ".31" + ".4294967295" * 31 + ".4294967295", ".3.114.101.100.4294967295.1.2.3"):
            for tool in ("get", "getnext"):
                result = self.system.snmp(tool, f"{IF_CONF}.1.5{index}")
                self.assertEqual(result.returncode, 0, result.stderr)

    def test_wrong_words_on_the_command_line_are_usage_errors(self):
        for words in (("nonsense",), ("show",), ("show", "nothing"), ("router",), ("debug", "nothing", "on")):
            result = self.system.cli(*words)
            self.assertIn(result.returncode, (1, 2), words)
            self.assertNotEqual(result.stdout + result.stderr, "", words)


class LostReaders(SystemTest):
    """The reader of standard error or standard output stops reading or closes the pipe."""

    def setUp(self):
        self.system = self.new_system(ROUTER)

    def start(self, name, *command, pipe_size=1 << 16, **environment):
        """The process, its standard error on a pipe, and the reading end."""
        reader, writer = os.pipe()
        fcntl.fcntl(reader, fcntl.F_SETPIPE_SZ, pipe_size)
        process = subprocess.Popen(command, env=dict(self.system.environment, **environment), stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=writer)
        os.close(writer)
        self.system.processes[name] = process
        return process, reader

    def start_printing_daemon(self, pipe_size=1 << 16):
        process, reader = self.start("daemon", str(BIN / "mpls_vpn_mib"), pipe_size=pipe_size, MPLS_VPN_MIB_DEBUG="all")
        wait_until("daemon", lambda: self.system.cli("show", "scalars").returncode == 0, 30)
        return process, reader

    def assert_ignores_broken_pipes(self, process):
        status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
        ignored = int(status.split("SigIgn:")[1].split()[0], 16)
        self.assertTrue(ignored & 1 << (signal.SIGPIPE - 1), status)

    def test_daemon_continues_when_the_reader_of_its_standard_error_has_closed(self):
        process, reader = self.start_printing_daemon()
        self.assert_ignores_broken_pipes(process)
        os.close(reader)
        for _ in range(3):
            self.system.cli("show", "scalars", check=True)
        self.assertIsNone(process.poll())

    def test_daemon_continues_when_its_standard_error_is_not_read(self):
        process, reader = self.start_printing_daemon(pipe_size=4096)
        self.addCleanup(os.close, reader)
        os.set_blocking(reader, False)
        for _ in range(30):  # several times the capacity of the pipe
            self.system.cli("show", "scalars", check=True)
        os.read(reader, 1 << 16)
        self.system.cli("show", "scalars", check=True)
        self.assertRegex(os.read(reader, 1 << 16), rb"standard error: [1-9][0-9]* lines were lost\n")
        self.assertIsNone(process.poll())

    def test_sub_agent_continues_when_the_reader_of_its_standard_error_has_closed(self):
        self.system.start_daemon()
        self.system.start_snmpd()
        process, reader = self.start("agent", str(BIN / "mpls_vpn_snmp"), "--verbose", "--agentx-socket",
                                     str(self.system.agentx))
        os.close(reader)
        self.system.wait_registered()
        self.assert_ignores_broken_pipes(process)
        self.assertEqual(self.system.get_value(f"{IF_CONF}.1.5.3.114.101.100.11"), "1")
        self.assertIsNone(process.poll())

    def test_command_line_ends_quietly_when_the_reader_of_its_output_has_closed(self):
        self.system.start_daemon()
        reader, writer = os.pipe()
        os.close(reader)
        # A parent that ignores the signal, as supervisors do, makes no difference.
        for restore_signals in (True, False):
            result = subprocess.run([BIN / "mplsvpn", "show", "interfaces"], env=self.system.environment, stdout=writer,
                                    stderr=subprocess.PIPE, text=True, check=False, restore_signals=restore_signals)
            self.assertEqual((result.returncode, result.stderr), (-signal.SIGPIPE, ""))
        os.close(writer)


class BadStart(SystemTest):
    def start(self, router, settings=None, environment=None):
        system = self.new_system(router, environment=environment)
        if settings is not None:
            (system.folder / "etc/platform.yaml").write_text(settings)
        process = system.spawn("daemon", str(BIN / "mpls_vpn_mib"))
        return process.wait(timeout=60), system.log("daemon")

    def test_invalid_router_file_ends_the_start_with_line_and_column(self):
        status, log = self.start("vrfs:\n  - {name: red, table: ten}\n")
        self.assertEqual(status, 78)
        self.assertIn("router.yaml:2:24:", log)

    def test_invalid_settings_end_the_start_with_line_and_column(self):
        status, log = self.start(ROUTER, settings="sauce: file\n")
        self.assertEqual(status, 78)
        self.assertIn('platform.yaml:1:1: the settings file has no key "sauce"; the keys are source, ', log)

    def test_start_with_faults_or_without_settings_logs_warnings(self):
        """The service manager learns the severity from the beginning of a line, if standard error is its journal."""
        system = self.new_system(ROUTER)
        with open(system.folder / "daemon.log", "w") as log:
            place = os.fstat(log.fileno())
            environment = {**system.environment, "JOURNAL_STREAM": f"{place.st_dev}:{place.st_ino}",
                           "MPLS_VPN_MIB_CONFIG_DIR": "/none", "MPLS_VPN_MIB_FAULTS": "debug_register=5"}
            subprocess.run([BIN / "mpls_vpn_mib"], env=environment, stderr=log, check=False, timeout=60 * SLOW)
        lines = system.log("daemon").splitlines()
        for warning in "MPLS_VPN_MIB_FAULTS makes operations fail, for tests: debug_register=5", \
                "/none: the configuration directory does not exist; the defaults are used":
            self.assertIn("<4>mpls_vpn_mib: " + warning, lines)

    def test_empty_list_of_faults_is_none(self):
        system = self.new_system(ROUTER)
        system.environment["MPLS_VPN_MIB_FAULTS"] = ""
        system.start_daemon()
        self.assertNotIn("FAULTS", system.log("daemon"))

    def test_second_daemon_on_the_same_sockets_is_refused(self):
        system = self.new_system(ROUTER)
        system.start_daemon()
        process = system.spawn("second", str(BIN / "mpls_vpn_mib"))
        self.assertEqual(process.wait(timeout=60), 1)
        self.assertEqual(system.cli("show", "scalars").returncode, 0)

    def test_start_that_fails_without_debug_areas_says_so(self):
        status, log = self.start(ROUTER, environment={"MPLS_VPN_MIB_FAULTS": "vmap_c_lib_init=12"})
        self.assertEqual(status, 1)
        self.assertIn("mpls_vpn_mib: the start failed; without a reason above, start it with MPLS_VPN_MIB_DEBUG=errors", log)

    START_UP_FAILURES = {"trace_open=28": "ERR_TRACE_INIT", "debug_register=5": "Debug initialization failed exiting...",
                         "vtab_init=5": "Failed to initialize VTAB", "proc_ready=5": "Error in main: proc_ready",
                         "vmap_c_lib_init=12": "Error in main: error in PROV"}

    def start_failing(self, fault):
        status, log = self.start(ROUTER, environment={"MPLS_VPN_MIB_FAULTS": fault, "MPLS_VPN_MIB_DEBUG": "errors"})
        self.assertEqual(status, 1, fault + "\n" + log)
        return log

    def test_start_up_failure_has_status_one_and_names_the_step(self):
        for fault, message in self.START_UP_FAILURES.items():
            self.assertIn(message, self.start_failing(fault), fault)

    def test_failed_bind_has_status_one_and_names_the_step(self):
        """The services bind before the provider does; each failed bind ends the start with a message of its own."""
        for first in range(1, 40):
            log = self.start_failing(f"kvtree_bind=5@{first}+0")
            if "Error in main: error in PROV" in log:
                return
            self.assertIn("mpls_vpn_mib: cannot ", log)
        self.fail("no failed bind was that of the provider")

if __name__ == "__main__":
    unittest.main()
