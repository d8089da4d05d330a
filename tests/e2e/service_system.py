"""For tests of the programs as services: a service manager that the test plays, starts that are refused, and lines of the log."""
import os
import socket
import subprocess
import tempfile

from system import BIN, SLOW, SystemTest, wait_until

ROUTER = "vrfs: [{name: red, table: 10}]\ninterfaces: []\n"
DAEMON = str(BIN / "mpls_vpn_mib")


class ServiceManager:
    """The notification socket of a service manager; collects what arrives."""

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory(prefix="mpls_vpn_e2e.")
        self.path = os.path.join(self.folder.name, "notify")
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(self.path)
        self.lines = []

    def close(self):
        self.socket.close()
        self.folder.cleanup()

    def environment(self, **more):
        return {"NOTIFY_SOCKET": self.path, **more}

    def read(self):
        self.socket.setblocking(False)
        try:
            while True:
                self.lines += self.socket.recv(4096).decode().split("\n")
        except BlockingIOError:
            return self.lines

    def wait_for(self, line, seconds=10):
        wait_until(line, lambda: line in self.read(), seconds)

    def states(self):
        return [line.removeprefix("STATUS=") for line in self.read() if line.startswith("STATUS=")]


class ServiceTest(SystemTest):
    def started(self, router=ROUTER, **environment):
        system = self.new_system(router, environment=environment)
        system.start_daemon()
        return system

    def service_manager(self):
        manager = ServiceManager()
        self.addCleanup(manager.close)
        return manager

    def refused(self, system, *arguments, **environment):
        """What a start that fails prints, and its status."""
        result = subprocess.run([DAEMON, *arguments], env=dict(system.environment, **environment), capture_output=True,
                                text=True, timeout=60 * SLOW, check=False)
        return result.returncode, result.stderr

    def ended(self, system, name, number):
        system.processes[name].send_signal(number)
        return system.processes[name].wait(timeout=20 * SLOW)

    def wait_for_line(self, system, name, text):
        wait_until(text, lambda: text in system.log(name))
