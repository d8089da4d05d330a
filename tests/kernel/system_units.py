#!/usr/bin/env python3
"""The service files under systemd itself, in the guest: the daemon and the sub-agent run confined, as their own users and with the
capabilities that the files grant; the shell of the routing suite answers the daemon; reload, stop, a killed process, a process
that hangs and wrong settings have the effects that the files state; metrics are served in a VRF.

Usage: system_units.py BIN_DIRECTORY
"""
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import unittest

import guest_system  # noqa: F401  first: it takes BIN_DIRECTORY
from system import BIN, ROOT, SCALARS, wait_until

UNITS = pathlib.Path("/run/systemd/system")
SETTINGS = pathlib.Path("/etc/mpls_vpn_mib/platform.yaml")
LOG = "/root/systemd.log"  # systemd clears /tmp
# Read before systemd starts: the clone may be below /tmp.
AGENTX_PERMISSIONS = [line for line in (ROOT / "packaging/snmpd.conf").read_text().splitlines()
                      if line.startswith("agentXPerms")]
DAEMON, AGENT = "mpls_vpn_mib", "mpls_vpn_snmp"
CAP_NET_ADMIN = 12
METRICS_PORT = 10166
BGPD = """\
vrf red
exit-vrf
router bgp 65000 vrf red
 address-family ipv4 unicast
  rd vpn export 65000:10
  rt vpn both 65000:10
  label vpn export auto
  export vpn
  import vpn
"""


def run(*command, check=True):
    return subprocess.run([str(word) for word in command], check=check, capture_output=True, text=True, timeout=120).stdout.strip()


def scrape(address, device=""):
    """What /metrics answers to a client in this VRF, or outside of VRFs."""
    with socket.socket() as client:
        client.settimeout(10)
        client.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, device.encode())
        client.connect((address, METRICS_PORT))
        client.sendall(b"GET /metrics HTTP/1.0\r\n\r\n")
        with client.makefile() as answer:
            return answer.read()


def install():
    programs = {"/usr/sbin": [BIN / DAEMON, BIN / AGENT], "/usr/bin": [BIN / "mplsvpn"],
                "/usr/lib/mpls_vpn_mib/mib": (BIN.parent / "lib/mib").iterdir()}
    for folder, files in programs.items():
        pathlib.Path(folder).mkdir(parents=True, exist_ok=True)
        for file in files:
            shutil.copy(file, folder)
    for users in (ROOT / "packaging").glob("*.sysusers"):
        shutil.copy(users, f"/usr/lib/sysusers.d/{users.stem}.conf")
    run("systemd-sysusers")
    SETTINGS.parent.mkdir(parents=True, exist_ok=True)


class Manager:
    """systemd in a process namespace of its own: process 1 of the guest is uml-init."""

    def __init__(self):
        os.environ["SYSTEMD_IGNORE_CHROOT"] = "1"  # the guest's root is a layer
        pathlib.Path("/sys/fs/cgroup").mkdir(exist_ok=True)
        run("mount", "-t", "cgroup2", "none", "/sys/fs/cgroup")
        UNITS.mkdir(parents=True)
        (UNITS / "tmp.mount").symlink_to("/dev/null")
        (UNITS / "test.target").write_text("[Unit]\nDescription=test\n")
        for service in (ROOT / "packaging").glob("*.service"):
            shutil.copy(service, UNITS)
            (UNITS / f"{service.name}.d").mkdir()
            (UNITS / f"{service.name}.d/log.conf").write_text(f"[Service]\nStandardError=append:/root/{service.stem}.log\n")
        (UNITS / f"{DAEMON}.service.d/metrics.conf").write_text("[Service]\nIPAddressAllow=10.1.0.0/24\n")  # as docs/metrics.md
        with open(LOG, "w") as log:
            self.process = subprocess.Popen(
                ["unshare", "--fork", "--kill-child", "--pid", "--mount", "--mount-proc", "/lib/systemd/systemd", "--system",
                 "--unit=test.target", "--log-target=console", "--show-status=no"],
                env=dict(os.environ, container="other"), stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)
        wait_until("systemd", pathlib.Path("/run/systemd/private").exists, 20)
        self.pid = run("pgrep", "-P", self.process.pid)

    def control(self, *words, check=True):
        return self.inside("/usr/bin/systemctl", *words, check=check)

    def show(self, unit, name):
        return self.control("show", "--value", "-p", name, unit)

    def becomes(self, unit, name, value, seconds=20):
        wait_until(f"{unit}: {name}={value}; it is {self.show(unit, name)}", lambda: value in self.show(unit, name), seconds)

    def send(self, unit, number):
        self.control("kill", "--kill-whom=main", "-s", number.name, unit)

    def inside(self, *command, check=True):
        return run("nsenter", "-t", self.pid, "-m", "-p", "-r", *command, check=check)

    def status_of(self, unit):
        """The lines of the main process's /proc/PID/status."""
        status = self.inside("cat", f"/proc/{self.show(unit, 'MainPID')}/status")
        return dict(line.split(":\t", 1) for line in status.splitlines() if ":\t" in line)


def start_kernel_and_suite():
    run("ip", "link", "add", "red", "type", "vrf", "table", "10")
    run("ip", "link", "set", "red", "up")
    run("ip", "link", "set", "lo", "up")
    run("ip", "link", "add", "ge1", "master", "red", "up", "type", "dummy")
    run("ip", "address", "add", "10.1.0.1/24", "dev", "ge1")
    pathlib.Path("/run/frr").mkdir()
    shutil.chown("/run/frr", "frr", "frr")
    pathlib.Path("/etc/frr/test.conf").write_text(BGPD)
    run("/usr/lib/frr/zebra", "-d", "-u", "frr", "-g", "frr")
    run("/usr/lib/frr/bgpd", "-d", "-u", "frr", "-g", "frr", "-f", "/etc/frr/test.conf")


class Units(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        install()
        start_kernel_and_suite()
        cls.manager = Manager()

    @classmethod
    def tearDownClass(cls):
        for log in sorted(pathlib.Path("/root").glob("*.log")):
            print(f"--- {log.name}\n{log.read_text(errors='replace')[-3000:]}")

    def setUp(self):
        SETTINGS.write_text("source: kernel\nfrr: true\n")

    def start(self, unit):
        self.manager.control("reset-failed", unit, check=False)
        self.manager.control("start", unit)
        self.addCleanup(self.manager.control, "stop", unit, check=False)

    def test_daemon_runs_confined_and_the_suites_shell_answers_it(self):
        self.start(DAEMON)
        process = self.manager.status_of(DAEMON)
        user = run("id", "-u", DAEMON)
        self.assertEqual(process["Uid"].split(), [user] * 4)
        for kind in "CapEff", "CapPrm", "CapBnd", "CapAmb":
            self.assertEqual(int(process[kind], 16), 1 << CAP_NET_ADMIN, kind)
        self.assertEqual((process["NoNewPrivs"], process["Seccomp"]), ("1", "2"))
        self.manager.becomes(DAEMON, "StatusText", "1 VRF and 2 interfaces from the kernel")
        self.manager.becomes(DAEMON, "StatusText", "FRR: ", 150)
        wait_until("the RD of the suite", lambda: "65000:10" in run("mplsvpn", "show", "vrf"), 60)
        run("mplsvpn", "config", "set", "vrf", "red", "description", "of", "the", "guest")

    def reload_and_scrape_metrics_in_the_vrf(self):
        SETTINGS.write_text("source: kernel\nfrr: true\nmetrics: {address: 0.0.0.0, vrf: red}\n")
        self.manager.control("reload", DAEMON)
        served = f"metrics: /metrics is served at 0.0.0.0:{METRICS_PORT} in VRF red\n"
        wait_until(served, lambda: served in pathlib.Path(f"/root/{DAEMON}.log").read_text())
        self.assertIn('\nmplsvpn_vrf_interfaces{vrf="red",', scrape("10.1.0.1", "red"))
        self.assertRaises(ConnectionRefusedError, scrape, "127.0.0.1")

    def test_reload_stop_and_kill(self):
        self.start(DAEMON)
        self.reload_and_scrape_metrics_in_the_vrf()
        self.assertEqual(self.manager.show(DAEMON, "NRestarts"), "0")
        self.manager.send(DAEMON, signal.SIGKILL)
        self.manager.becomes(DAEMON, "NRestarts", "1")
        self.manager.becomes(DAEMON, "ActiveState", "active")
        self.manager.control("stop", DAEMON)
        self.assertEqual([self.manager.show(DAEMON, name) for name in ("ActiveState", "Result")], ["inactive", "success"])
        self.assertEqual(list(pathlib.Path("/run/mpls_vpn_mib").glob("dev.*")), [])

    def test_wrong_settings_are_a_failure_that_is_not_tried_again(self):
        SETTINGS.write_text("sauce: kernel\n")
        self.manager.control("start", DAEMON, check=False)
        self.manager.becomes(DAEMON, "ActiveState", "failed")
        self.assertEqual(self.manager.show(DAEMON, "ExecMainStatus"), "78")
        self.assertEqual(self.manager.show(DAEMON, "NRestarts"), "0")

    def test_process_that_hangs_is_started_again(self):
        overrides = UNITS / f"{AGENT}.service.d/test.conf"
        overrides.write_text("[Service]\nWatchdogSec=5s\n")
        self.manager.control("daemon-reload")
        self.start(AGENT)
        self.manager.becomes(AGENT, "StatusText", "waiting for the daemon at /run/mpls_vpn_mib/dev.mpls.vpn.main")
        self.manager.send(AGENT, signal.SIGSTOP)
        self.manager.becomes(AGENT, "NRestarts", "1", 60)

    def test_sub_agent_runs_confined_and_serves_snmpd(self):
        self.start(DAEMON)
        pathlib.Path("/root/snmpd.conf").write_text("\n".join(
            ["rocommunity public", "master agentx", "agentAddress udp:127.0.0.1:1161", *AGENTX_PERMISSIONS, ""]))
        snmpd = subprocess.Popen(["snmpd", "-f", "-Lf", "/root/snmpd.log", "-C", "-c", "/root/snmpd.conf"])
        self.addCleanup(snmpd.wait)
        self.addCleanup(snmpd.kill)
        self.start(AGENT)
        self.manager.becomes(AGENT, "StatusText", "registered with the master agent at /var/agentx/master", 20)
        process = self.manager.status_of(AGENT)
        self.assertEqual([process[kind] for kind in ("CapEff", "CapBnd")], ["0" * 16] * 2)
        got = run("snmpget", "-v2c", "-c", "public", "-Oqv", "127.0.0.1:1161", f"{SCALARS}.1.0")
        self.assertEqual(got, "1")


if __name__ == "__main__":
    unittest.main(verbosity=2)
