#!/usr/bin/env python3
"""The Debian packages on clean machines with systemd and a stock snmpd: the commands of README.md, the packages' own test, an
upgrade and a refused downgrade while the services run, and what is left after a purge.

Usage: packages.py RELEASE [TEST...], after scripts/package RELEASE; or with MPLS_TEST_PACKAGES, the folder of other packages. The
class Upgrade needs packages of a later version, too, which scripts/package --test builds.
"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from machine import ROOT, Machine, wait_until

RELEASE = sys.argv[1] if len(sys.argv) > 1 else "bookworm"
BUILT = pathlib.Path(os.environ.get("MPLS_TEST_PACKAGES", ROOT / "build" / RELEASE / "packages"))
LATER = BUILT / "later"  # a build of its own
NAMES = ("mplsvpn", "mplsvpn-snmp")
SERVICES = ("mpls_vpn_mib", "mpls_vpn_snmp")
MIB = "1.3.6.1.2.1.10.166.11"
SNMPD_CONF = "/etc/snmp/snmpd.conf"
# What other programs write: the kernel, systemd's state of a running machine, the package manager and logs.
VOLATILE = ("proc", "sys", "dev", "tmp", "root", "mnt", "run/systemd", "run/credentials", "run/user", "run/dbus", "var/cache", "var/log",
            "var/lib/apt", "var/lib/dpkg", "var/lib/systemd/timers", "var/lib/systemd/catalog", "var/lib/private", "var/tmp",
            "run/lock", "run/log")
ROUTER = """\
vrfs:
  - {name: red, table: 10, rd: "65000:10", routes: [{prefix: 10.1.0.0/16, type: blackhole}]}
  - {name: blue, table: 20, rd: "65000:20"}
interfaces: [{name: ge1, index: 11, vrf: red}]
"""


def built(name, folder=BUILT):
    return next(folder.glob(f"{name}_*.deb"))

SETTINGS = "source: file\nrouter_file: router.yaml\n"
SUITE = """\
router bgp 65000
 bgp router-id 10.255.0.1
exit
router bgp 65000 vrf red
 address-family ipv4 unicast
  rd vpn export 65000:77
  rt vpn both 65000:78
  label vpn export auto
  export vpn
  import vpn
 exit-address-family
exit
"""
FETCH = "import urllib.request; print(urllib.request.urlopen('http://127.0.0.1:10166/metrics', timeout=10).read().decode())"


def field(deb, name):
    return subprocess.run(["dpkg-deb", "--field", str(deb), name], check=True, text=True, stdout=subprocess.PIPE).stdout.strip()


def blocks_of_readme(title):
    """The commands of each code block of a section, continued lines joined."""
    section = re.search(rf"^##+ {title}\n(.*?)^##", (ROOT / "README.md").read_text(), re.MULTILINE | re.DOTALL)[1]
    blocks = re.findall(r"^ *```\n(.*?)^ *```", section, re.MULTILINE | re.DOTALL)
    return [[line.strip() for line in block.replace("\\\n", " ").splitlines()] for block in blocks]


class PackagesTest(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="mpls_vpn_packages.")
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)
        for name in NAMES:
            shutil.copy(built(name), self.folder)
        self.machine = Machine(RELEASE, self.folder)
        self.addCleanup(self.machine.end)
        self.addCleanup(lambda: (BUILT / f"{self._testMethodName}.log").write_text(self.machine.log()))

    def install(self):
        self.machine.run(f"apt-get -q install snmpd snmp {' '.join(f'./{built(name).name}' for name in NAMES)}")

    def configure(self):
        """A router from a file, snmpd with the example, and configuration of an operator."""
        self.machine.write("/etc/mpls_vpn_mib/router.yaml", ROUTER)
        self.machine.write("/etc/mpls_vpn_mib/platform.yaml", SETTINGS)
        self.machine.run("cp /usr/share/doc/mplsvpn-snmp/examples/snmpd.conf /etc/snmp/snmpd.conf.d/mpls_vpn_mib.conf")
        self.machine.run("systemctl restart snmpd mpls_vpn_mib")
        wait_until("the router file", lambda: len(self.vrfs()) == 2)
        self.machine.run("mplsvpn config set vrf red description by an operator")
        wait_until("the sub-agent", lambda: self.walked("1.1.1").endswith("= Gauge32: 2"))

    def vrfs(self):
        result = self.machine.run("mplsvpn --json show vrf", check=False)
        return json.loads(result.stdout) if result.returncode == 0 else []

    def times(self):
        return {vrf["name"]: (vrf["creationTime"], vrf["confLastChanged"], vrf["description"]) for vrf in self.vrfs()}

    def walked(self, subtree):
        return self.machine.run(f"snmpwalk -v2c -c l3vpn -m '' 127.0.0.1 {MIB}.{subtree}", check=False).stdout.strip()

    def states(self, name="ActiveState"):
        return [self.machine.property(service, name) for service in SERVICES]

    def files(self):
        pruned = " -o ".join(f"-path /{folder}" for folder in VOLATILE)
        return set(self.machine.output(f"find / \\( {pruned} \\) -prune -o -print").splitlines())


class Installation(PackagesTest):
    def test_commands_of_the_readme_serve_the_mib(self):
        self.machine.run("useradd --create-home operator1")
        install, *others, look = blocks_of_readme("Install on a router")
        self.run_commands(install)
        stock = self.machine.output(f"sha256sum {SNMPD_CONF}")
        for block in others:
            self.run_commands(block)
        self.assertNotIn("Can't identify", self.machine.log())
        wait_until("the rows", lambda: re.search(r"166\.11\.1\.1\.1\.0 = |ConfiguredVrfs\.0 = ", self.run_commands(look)))
        self.assertEqual(self.states(), ["active", "active"])
        self.assertEqual(self.states("UnitFileState"), ["enabled", "enabled"])
        for service in SERVICES:
            self.machine.run(f"systemctl reload {service}")
        self.assertIn("configuredVrfs", self.machine.output("su operator1 -c 'mplsvpn --json show scalars'"))
        self.machine.run("su operator1 -c 'mplsvpn config set vrf red description of an operator'")
        self.replace_agent_by_module_and_return()
        self.serve_metrics()
        self.assertEqual(self.machine.output(f"sha256sum {SNMPD_CONF}"), stock)

    def replace_agent_by_module_and_return(self):
        to_module, _, back = blocks_of_readme("Sub-agent or module")
        self.configure()
        self.run_commands(to_module)
        wait_until("the module", lambda: "mpls_vpn_snmpd: serves MPLS-L3VPN-STD-MIB" in self.machine.log())
        wait_until("the module's rows", lambda: self.walked("1.1.1").endswith("= Gauge32: 2"))
        self.assertEqual(self.states(), ["active", "inactive"])
        self.run_commands(back)
        wait_until("the sub-agent's rows", lambda: self.walked("1.1.1").endswith("= Gauge32: 2"))
        self.assertEqual(self.states(), ["active", "active"])

    def serve_metrics(self):
        """The confined service may listen at the loopback address, and on one device only: here that of the loopback address, because
        the host's kernel may have no VRFs."""
        for metrics, place in (("true", "127.0.0.1:10166\n"), ("{vrf: lo}", "127.0.0.1:10166 in VRF lo\n")):
            self.machine.write("/etc/mpls_vpn_mib/platform.yaml", f"{SETTINGS}metrics: {metrics}\n")
            self.machine.run("systemctl reload mpls_vpn_mib")
            wait_until("metrics", lambda at=place: f"metrics: /metrics is served at {at}" in self.machine.log())
            self.assertIn("mplsvpn_up 1", self.fetched_metrics())

    def in_network(self, *command):
        """Runs a program of the host in the network of the machine."""
        return subprocess.run(["nsenter", "--target", self.machine.init, "--net", *command], check=True, text=True, timeout=60,
                              stdout=subprocess.PIPE)

    def fetched_metrics(self):
        return self.in_network(sys.executable, "-c", FETCH).stdout

    def run_commands(self, commands):
        """Returns what the last one prints."""
        return [self.machine.run(command.replace("USER", "operator1")).stdout for command in commands][-1]

    def test_confined_daemon_reads_the_suite_of_the_release(self):
        self.install()
        self.machine.run("apt-get -q install frr")
        self.machine.run("sed -i 's/^bgpd=no/bgpd=yes/' /etc/frr/daemons")
        self.machine.write("/etc/frr/frr.conf", SUITE)
        self.machine.write("/etc/mpls_vpn_mib/router.yaml", "vrfs: [{name: red, table: 10}]\n")  # the host's kernel may have no VRFs
        self.machine.write("/etc/mpls_vpn_mib/platform.yaml", SETTINGS + "frr: true\n")
        self.machine.run("chown frr:frr /etc/frr/frr.conf; systemctl restart frr mpls_vpn_mib")
        wait_until("the suite's RD", lambda: [vrf["rd"] for vrf in self.vrfs()] == ["65000:77"], 60)
        exports = "mplsvpn --json show route-targets"
        wait_until("the suite's targets", lambda: "65000:78" in self.machine.output(exports))
        sources = json.loads(self.machine.output("mplsvpn --json show status"))["sources"]
        self.assertIn(("bgpd", "up"), [(source["name"], source["state"]) for source in sources], sources)

    def test_packages_own_test_passes(self):
        self.machine.run("apt-get -q install --no-install-recommends autopkgtest")
        shutil.copytree(ROOT / "debian", self.folder / "tree/debian", symlinks=True)
        # The machine is the container that the test requires; the program cannot know that.
        result = self.machine.run("autopkgtest --no-built-binaries --ignore-restrictions=isolation-container ./*.deb tree/ -- null",
                                  check=False)
        print(result.stdout[-1500:])
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertRegex(result.stdout, r"(?m)^walk +PASS$")

    def test_purge_leaves_no_file(self):
        depends = " ".join(re.sub(r"\(.*?\)|\|[^,]*", "", field(built(name), "Depends")).replace(",", " ") for name in NAMES)
        self.machine.run(f"apt-get -q install snmpd snmp {depends.replace('mplsvpn', '')}")
        before = self.files()
        self.install()
        self.configure()
        during = self.files() - before
        for expected in ("/usr/sbin/mpls_vpn_mib", "/etc/mpls_vpn_mib/router.yaml", "/run/mpls_vpn_mib/dev.mpls.vpn.main"):
            self.assertIn(expected, during)
        self.assertTrue([path for path in during if path.startswith("/var/lib/mpls_vpn_mib/")])
        self.machine.run("rm /etc/snmp/snmpd.conf.d/mpls_vpn_mib.conf")  # of the operator
        self.machine.run("apt-get -q purge mplsvpn mplsvpn-snmp")
        self.machine.run("systemctl daemon-reload; systemctl restart snmpd")
        self.assertEqual(sorted(self.files() - before), [])
        self.assertEqual(self.states("LoadState"), ["not-found", "not-found"])


class Upgrade(PackagesTest):
    def programs(self):
        files = "/usr/sbin/mpls_vpn_mib /usr/sbin/mpls_vpn_snmp /usr/bin/mplsvpn"
        return [line.split()[0] for line in self.machine.output(f"sha256sum {files}").splitlines()]

    def test_upgrade_preserves_times_configuration_and_snmpd_and_a_downgrade_is_refused(self):
        self.install()
        self.configure()
        times, snmpd = self.times(), self.machine.property("snmpd", "MainPID")
        settings = self.machine.output("cat /etc/mpls_vpn_mib/*; mplsvpn config show --owner cli")
        walk, processes = self.walked("1.2"), self.states("MainPID")
        self.assertEqual(times["red"][2], "by an operator")
        old = field(built("mplsvpn"), "Version")
        new = field(built("mplsvpn", LATER), "Version")
        for name in NAMES:
            shutil.copy(built(name, LATER), self.folder)
        programs = self.programs()
        self.doctor_finds_a_daemon_of_an_earlier_version(new)
        self.machine.run("apt-get -q install " + " ".join(f"./{built(name, LATER).name}" for name in NAMES))
        self.assertEqual(self.machine.output("dpkg-query -W -f '${Version} ' mplsvpn mplsvpn-snmp"), f"{new} {new}")
        for before, now in zip(programs, self.programs()):
            self.assertNotEqual(now, before)
        self.assertEqual(self.machine.output("mplsvpn --version"), new.partition("+")[0])
        wait_until("the new daemon", lambda: self.times() == times)
        self.assertEqual(json.loads(self.machine.output("mplsvpn --json show status"))["version"], new.partition("+")[0])
        for before, now in zip(processes, self.states("MainPID")):
            self.assertNotEqual(now, before)  # of the new release
        self.assertEqual(self.machine.output("cat /etc/mpls_vpn_mib/*; mplsvpn config show --owner cli"), settings)
        wait_until("the same walk", lambda: self.walked("1.2") == walk)
        self.assertEqual((self.machine.property("snmpd", "MainPID"), self.machine.property("snmpd", "NRestarts")), (snmpd, "0"))
        self.refuse_downgrade(old, new)
        wait_until("the daemon", lambda: self.times() == times)
        self.assertEqual(self.states(), ["active", "active"])

    def doctor_finds_a_daemon_of_an_earlier_version(self, new):
        """Of a command line that was installed while the daemon went on."""
        self.machine.run(f"dpkg-deb -x {built('mplsvpn', LATER).name} later")
        doctor = "--json doctor --only daemon-version"
        shown = self.machine.run(f"later/usr/bin/mplsvpn {doctor}", check=False)
        self.assertEqual(shown.returncode, 1, shown.stderr)
        check, = json.loads(shown.stdout)
        running, installed = self.machine.output("mplsvpn --version"), new.partition("+")[0]
        self.assertEqual([finding["text"] for finding in check["findings"]],
                         [f"the daemon is of version {running}, this command line of {installed}"])
        self.assertEqual(json.loads(self.machine.output(f"mplsvpn {doctor}"))[0]["state"], "ok")

    def refuse_downgrade(self, old, new):
        for name in NAMES:
            result = self.machine.run(f"dpkg --install ./{built(name).name}", check=False)
            self.assertNotEqual(result.returncode, 0)
            self.assertIn(f"{name}: version {new} is installed; version {old} is older", result.stderr)
        result = self.machine.run("apt-get -q install --allow-downgrades " + " ".join(f"./{built(name).name}" for name in NAMES),
                                  check=False)
        self.assertNotEqual(result.returncode, 0)
        self.assertEqual(self.machine.output("dpkg-query -W -f '${Version} ${Status}\\n' mplsvpn mplsvpn-snmp"),
                         "\n".join([f"{new} install ok installed"] * 2))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[2:], verbosity=2)
