#!/usr/bin/env python3
"""system_unprivileged.py BIN_DIRECTORY VERSION: daemon and sub-agent run as their own users, with the groups that
docs/access.md and docs/frr.md name and without any privilege, on a real kernel with the routing suite of that major version.
Runs in the guest (see uml-run), as root."""
import os
import pathlib
import subprocess
import sys
import unittest

# The programs, where every user may read them.
PROGRAMS = pathlib.Path("/opt/programs")
PROGRAMS.mkdir(parents=True)
subprocess.run(["mount", "--bind", pathlib.Path(sys.argv[1]).resolve().parent, PROGRAMS], check=True)
sys.argv[1] = str(PROGRAMS / "bin")

import guest_system  # noqa: E402,F401 (before system and suite)
from kernel import batch, member_lines, vrf_lines  # noqa: E402
from suite_system import BGP, SuiteSystemTest, main, vpn_instance  # noqa: E402
from system import PERF_ENTRY, System, dotted, name_index, wait_until  # noqa: E402

VRFS = {"red": 10, "blue": 20}
MEMBERS = {"red1": "red", "blue1": "blue"}
CONFIG = "hostname pe1\n" + BGP + vpn_instance("red", 1)
DAEMON, AGENT = "mpls_vpn_mib", "mpls_vpn_snmp"  # users
GROUP, AGENTS, SUITE = "mpls_vpn_mib", "mpls_vpn_agent", "frrvty"


def add_to_user_database():
    """The users and groups that a package or systemd-sysusers creates."""
    with open("/etc/passwd", "a") as users, open("/etc/group", "a") as groups:
        for number, user in ((900, DAEMON), (901, AGENT)):
            users.write(f"{user}:x:{number}:{number}::/nonexistent:/usr/sbin/nologin\n")
        groups.write(f"{GROUP}:x:900:\n{AGENT}:x:901:\n{AGENTS}:x:902:\n")


def group_number(release):
    """Of the group that may use the suite's sockets."""
    lines = (line.split(":") for line in release.path("/etc/group").read_text().splitlines())
    return next(int(fields[2]) for fields in lines if fields[0] == SUITE)


def shell_in(root):
    """The words of the shell of a root folder for a user who may not call chroot."""
    folder = pathlib.Path("/opt/suite")
    folder.mkdir()
    subprocess.run(["mount", "--bind", root, folder], check=True)
    (loader,) = folder.glob("usr/lib/x86_64-linux-gnu/ld-linux-x86-64.so.2")
    libraries = f"{loader.parent}:{loader.parent}/frr"
    return f"{loader} --library-path {libraries} {folder}/usr/bin/vtysh --vty_socket {folder}/run/frr"


class UnprivilegedSystem(System):
    """The daemon's process has the user and the groups of `daemon_groups`, the sub-agent's those of its service file."""
    daemon_groups = ()

    def __init__(self, *arguments, **options):
        super().__init__(*arguments, **options)
        self.folder.chmod(0o711)
        for name in ("run", "state"):
            subprocess.run(["chown", f"{DAEMON}:{GROUP}", self.folder / name], check=True)
        (self.folder / "run").chmod(0o750)

    def snmpd_settings(self):
        return super().snmpd_settings() + f"agentXPerms 0660 0711 root {AGENT}\n"

    def spawn(self, name, *command):
        identity = {"daemon": {"user": DAEMON, "group": GROUP, "extra_groups": self.daemon_groups},
                    "agent": {"user": AGENT, "group": AGENT, "extra_groups": (GROUP, AGENTS)}}.get(name, {})
        with open(self.folder / f"{name}.log", "a") as log:
            self.processes[name] = subprocess.Popen(command, env=self.environment, stdin=subprocess.DEVNULL, stdout=log,
                                                    stderr=log, cwd=self.folder, **identity)
        return self.processes[name]


def status(process):
    lines = pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines()
    return dict(line.split(":\t", 1) for line in lines if ":\t" in line)


class Unprivileged(SuiteSystemTest):
    programs, config, vrfs, members = ("zebra", "staticd", "bgpd"), CONFIG, VRFS, MEMBERS
    system_class = UnprivilegedSystem

    @classmethod
    def prepare(cls):
        add_to_user_database()
        cls.suite_group = UnprivilegedSystem.daemon_groups = (group_number(cls.release),)
        cls.frr = shell_in(cls.release.root) if cls.release.root else None
        subprocess.run(["modprobe", "-a", "vrf", "dummy"], check=True)
        batch(vrf_lines(VRFS) + member_lines(MEMBERS, "addr add 10.1.0.1/30 dev {name}", "link set {name} up"))

    def suite_rd(self, vrf):
        words = [line[3] for line in self.section(vrf) if line[:3] == ["rd", "vpn", "export"]]
        return words[0] if words else ""

    def routes(self, vrf):
        return self.system.get_value(dotted(PERF_ENTRY + (3,) + name_index(vrf)))

    def kernel_routes(self, vrf):
        shown = subprocess.run(["ip", "-4", "route", "show", "table", str(VRFS[vrf])], check=True, capture_output=True, text=True)
        return str(sum(not line.startswith(("local", "broadcast")) for line in shown.stdout.splitlines()))

    def restart_daemon(self, groups):
        self.system.kill("daemon")
        (self.system.folder / "daemon.log").unlink()
        self.system.daemon_groups = groups
        self.system.start_daemon()
        self.system.wait_registered()

    def test_1_processes_have_neither_root_nor_capabilities(self):
        for name in ("daemon", "agent"):
            found = status(self.system.processes[name])
            self.assertNotIn("0", found["Uid"].split(), name)
            self.assertNotIn("0", found["Gid"].split() + found["Groups"].split(), name)
            self.assertEqual((int(found["CapEff"], 16), int(found["CapPrm"], 16)), (0, 0), name)

    def test_2_kernel_and_suite_are_followed(self):
        wait_until("the RD of the suite", lambda: self.rd("red") == self.suite_rd("red") == "65000:10")
        self.suite.configure("router bgp 65000 vrf red", "address-family ipv4 unicast", "no rd vpn export", "rd vpn export 65000:11")
        wait_until("the changed RD", lambda: self.rd("red") == self.suite_rd("red") == "65000:11")
        batch(["route add 192.0.2.0/24 via 10.1.0.2 table 10"])
        wait_until("the route", lambda: self.routes("red") == self.kernel_routes("red") == "2")
        batch(["link set blue1 down"])
        wait_until("the VRF that is down", lambda: self.state("blue") == "down")
        batch(["link set blue1 up"])
        wait_until("the VRF that is up", lambda: self.state("blue") == "up")

    def state(self, vrf):
        return {row["name"]: row["operStatusName"] for row in self.system.cli_json("show", "vrf")}[vrf]

    def test_3_without_the_suites_group_the_log_names_it_and_the_kernel_is_followed(self):
        wait_until("the RD of the suite", lambda: self.rd("red") == self.suite_rd("red"))
        before = self.rd("red")
        self.restart_daemon(())
        wait_until("the reason", lambda: "has no permission for" in self.system.log("daemon"), 30)
        reasons = [line for line in self.system.log("daemon").splitlines() if "has no permission for" in line]
        self.assertEqual(len(reasons), 1, reasons)
        self.assertRegex(reasons[0], rf"{DAEMON} has .*/frr/\w+\.vty; add it to the group ({self.suite_group[0]}|{SUITE}) and")
        self.assertEqual(self.routes("red"), self.kernel_routes("red"))
        sources = {source["name"]: source for source in self.system.cli_json("show", "status")["sources"]}
        self.assertEqual(sources.pop("kernel")["state"], "up")
        self.assertEqual({source["state"] for source in sources.values()}, {"down"})
        for source in sources.values():
            self.assertRegex(source["problem"], rf"{DAEMON} has no permission for .*; add it to the group .* and restart the daemon")
        self.assertEqual(self.rd("red"), before, "the last known configuration stays")
        self.restart_daemon(self.suite_group)
        self.suite.configure("router bgp 65000 vrf red", "address-family ipv4 unicast", "no rd vpn export", "rd vpn export 65000:12")
        wait_until("the changed RD", lambda: self.rd("red") == self.suite_rd("red") == "65000:12")

    def test_4_administrators_configure_the_daemon_of_another_user(self):
        self.system.cli("config", "set", "vrf", "blue", "description", "blue customer", check=True)
        self.assertEqual(self.system.cli_json("get", "vrf/blue")["description"], "blue customer")


if __name__ == "__main__":
    if os.environ.get("UML_OUT") is None:
        sys.exit("run it in the guest: tests/kernel/uml-run")
    main("system_unprivileged", Unprivileged)
