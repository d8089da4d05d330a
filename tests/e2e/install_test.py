#!/usr/bin/env python3
"""`cmake --install` installs a system that runs: programs, modules and service files are where they are expected, and routes
are counted, which needs the modules. Debug information is in files of its own."""
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

from system import BIN, MODULE, ROOT, SCALARS, SLOW, System, wait_until

ROUTER = """\
vrfs: [{name: red, table: 10, routes: [{prefix: 10.1.0.0/16, type: blackhole, protocol: static}]}]
interfaces: []
"""
PACKAGES = {  # component, which has the name of its package: files
    "mplsvpn": {
        "usr/sbin/mpls_vpn_mib": 0o755,
        "usr/bin/mplsvpn": 0o755,
        "usr/lib/mpls_vpn_mib/mib/libipv4_forwardmib.dll": None,
        "usr/lib/mpls_vpn_mib/mib/libipv6_forwardmib.dll": None,
        "usr/lib/systemd/system/mpls_vpn_mib.service": 0o644,
        "usr/lib/sysusers.d/mpls_vpn_mib.conf": 0o644,
        "usr/share/bash-completion/completions/mplsvpn": 0o644,
        "usr/share/fish/vendor_completions.d/mplsvpn.fish": 0o644,
        "usr/share/zsh/vendor-completions/_mplsvpn": 0o644,
        "usr/share/man/man1/mplsvpn.1": 0o644,
        "usr/share/man/man5/mpls_vpn_router.5": 0o644,
        "usr/share/man/man5/platform.yaml.5": 0o644,
        "usr/share/man/man8/mpls_vpn_mib.8": 0o644,
        **{f"usr/share/doc/mplsvpn/{name}": 0o644 for name in (
            "access.md", "configuration.md", "export.md", "frr.md", "installation.md", "json.md", "metrics.md", "mib.md",
            "mplsvpn.schema.json", "routes.md", "sample-output.md", "traps.md", "troubleshooting.md", "upgrade.md",
            "examples/small-router.yaml", "examples/grafana/mplsvpn.json", "examples/prometheus/README.md",
            "examples/prometheus/mplsvpn.rules.yml", "examples/prometheus/mplsvpn.test.yml", "examples/prometheus/prometheus.yml",
            "examples/prometheus/snmp/generator.yml", "examples/prometheus/snmp/mplsvpn_snmp.rules.yml",
            "examples/prometheus/snmp/mplsvpn_snmp.test.yml", "examples/prometheus/snmp/prometheus.yml",
            "examples/prometheus/snmp/snmp.yml")},
    },
    "mplsvpn-snmp": {
        "usr/sbin/mpls_vpn_snmp": 0o755,
        "usr/lib/systemd/system/mpls_vpn_snmp.service": 0o644,
        "usr/lib/sysusers.d/mpls_vpn_snmp.conf": 0o644,
        "usr/lib/tmpfiles.d/mpls_vpn_snmp.conf": 0o644,
        "usr/share/man/man8/mpls_vpn_snmp.8": 0o644,
        "usr/share/snmp/mibs/MPLS-L3VPN-STD-MIB.txt": 0o644,
        "usr/share/mpls_vpn_mib/MPLS-L3VPN-STD-MIB.mib": 0o644,
        **{f"usr/share/doc/mplsvpn-snmp/{name}": 0o644 for name in (
            "README.Debian", "examples/README.md", "examples/librenms.md", "examples/snmpd.conf", "examples/snmpd_module.conf",
            "examples/snmptrapd.conf", "examples/snmpv3.conf")},
    },
}
if MODULE.exists():  # built with libsnmp-dev only
    PACKAGES["mplsvpn-snmp"]["usr/lib/mpls_vpn_mib/mpls_vpn_snmpd.so"] = None
PROGRAMS = {name: mode for files in PACKAGES.values() for name, mode in files.items()}
ADDRESS = "127.0.0.3"  # of the router, at which the package's snmpd does not listen
STRIPPED = sorted(name for name in PROGRAMS if "bin/" in name or name.endswith((".dll", ".so")))


def debug_file(program):
    return f"usr/lib/debug/{program}.debug"


DEBUG = {debug_file(program): 0o644 for program in STRIPPED}


def headings(document):
    """The places of a document, as links name them."""
    lines = re.findall(r"^#+ (.*)", document.read_text(), re.MULTILINE)
    return [re.sub(r"[^\w\- ]", "", line.lower()).replace(" ", "-") for line in lines]


def install(root, *options):
    subprocess.run(["cmake", "--install", str(BIN.parent), "--prefix", "/usr", *options], check=True, timeout=100 * SLOW,
                   env=dict(os.environ, DESTDIR=str(root)), stdout=subprocess.DEVNULL)


def files_below(root):
    return {str(file.relative_to(root)): file.stat().st_mode & 0o777 for file in root.rglob("*") if file.is_file()}


def output_of(*command):
    return subprocess.run([str(word) for word in command], check=True, capture_output=True, text=True, errors="replace",
                          timeout=60).stdout


def sections(file):
    return set(re.findall(r"^ +\[ *\d+\] (\S+)", output_of("readelf", "-SW", file), re.MULTILINE))


class RouterWithSnmpd(System):
    """The system with the package's own snmpd.conf, whose addresses get another port, and the project's file, with its lines for a
    manager on another host."""

    def snmpd_place(self):
        return ""

    def snmpd_settings(self):
        package = pathlib.Path("/etc/snmp/snmpd.conf").read_text()
        stock = re.sub(r"(?m)^includeDir.*", "", re.sub(r"(?m)^(agentaddress +)(.*)", self.with_port, package))
        ours = (ROOT / "packaging/snmpd.conf").read_text().replace(" mpls_vpn_snmp", " root")  # a group of this machine
        ours = re.sub(r"(?m)^#(agentaddress|rocommunity) ", r"\1 ", ours).replace(":161\n", f":{self.port}\n")
        return f"{stock}\n" + ours.replace("ADDRESS", ADDRESS).replace(" COMMUNITY MANAGER", " remote 127.0.0.1")

    def with_port(self, line):
        has_ipv6 = pathlib.Path("/proc/net/if_inet6").exists()
        return line[1] + ",".join(f"{address}:{self.port}" for address in line[2].split(",") if has_ipv6 or "[" not in address)

    def configured_vrfs(self, community, address="127.0.0.1"):
        result = subprocess.run(["snmpget", "-v2c", "-c", community, "-Oqv", "-t", str(5 * SLOW), "-r", "0", f"{address}:{self.port}",
                                 SCALARS + ".1.0"], env=self.environment, capture_output=True, text=True, check=False)
        return result.stdout.strip()


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory(prefix="mpls_vpn_install.")
        cls.addClassCleanup(holder.cleanup)
        cls.root = pathlib.Path(holder.name)
        install(cls.root)

    def test_nothing_else_and_nothing_less_is_installed(self):
        installed = files_below(self.root)
        expected = {**PROGRAMS, **DEBUG}
        self.assertEqual(sorted(installed), sorted(expected))
        for name, mode in expected.items():
            if mode is not None:
                self.assertEqual(oct(installed[name]), oct(mode), name)

    def test_each_file_is_in_the_component_of_its_package_only(self):
        for component, files in (*PACKAGES.items(), ("debug", DEBUG)):
            with tempfile.TemporaryDirectory(prefix="mpls_vpn_install.") as root:
                install(root, "--component", component)
                self.assertEqual(sorted(files_below(pathlib.Path(root))), sorted(files))

    def test_links_of_documents_lead_to_installed_files(self):
        links = 0
        for document in (*self.root.rglob("*.md"), *self.root.rglob("README.Debian")):
            text = document.read_text()
            for link in re.findall(r"\]\(([^)\s]+)\)", text):
                file, _, place = link.partition("#")
                if file.startswith("http"):
                    continue
                linked = (document.parent / file).resolve() if file else document
                self.assertTrue(linked.is_file(), f"{document.relative_to(self.root)}: {link}")
                self.assertIn(place, ["", *headings(linked)], f"{document.relative_to(self.root)}: {link}")
                links += 1
        self.assertGreater(links, 20)

    def test_programs_are_stripped_and_name_their_debug_file(self):
        for program in STRIPPED:
            left = sections(self.root / program)
            self.assertIn(".text", left)
            self.assertEqual([name for name in left if name.startswith(".debug") or name == ".symtab"], [], program)
            link = output_of("readelf", "--string-dump=.gnu_debuglink", self.root / program)
            self.assertIn(f" {pathlib.Path(debug_file(program)).name}\n", link)

    def test_debug_file_belongs_to_the_program_and_knows_its_lines(self):
        for program in STRIPPED:
            separate = self.root / debug_file(program)
            identity = [re.search("Build ID: .*", output_of("readelf", "-nW", file))[0]
                        for file in (self.root / program, separate)]
            self.assertEqual(identity[0], identity[1], program)
            self.assertIn(".debug_line", sections(separate))
        daemon = self.root / debug_file("usr/sbin/mpls_vpn_mib")
        address = re.search(r"^([0-9a-f]+) T main$", output_of("nm", daemon), re.MULTILINE)[1]
        self.assertRegex(output_of("addr2line", "-e", daemon, address), r"daemon/main\.cpp:\d+")

    def test_services_start_what_is_installed(self):
        for service in self.root.rglob("*.service"):
            program = re.search(r"^ExecStart=(\S+)", service.read_text(), re.MULTILINE)[1]
            self.assertTrue((self.root / program.lstrip("/")).is_file(), program)

    def test_services_remove_what_changes_a_program_from_outside(self):
        for service in self.root.rglob("*.service"):
            unset = re.search(r"^UnsetEnvironment=(.*)", service.read_text(), re.MULTILINE)[1].split()
            for variable in "MPLS_VPN_MIB_FAULTS", "LD_PRELOAD", "LD_LIBRARY_PATH", "LD_AUDIT":
                self.assertIn(variable, unset, service.name)

    @unittest.skipUnless(shutil.which("systemd-analyze"), "SKIPPED: no systemd-analyze")
    def test_services_are_valid_to_systemd(self):
        targets = pathlib.Path("/usr/lib/systemd/system")
        for target in targets.glob("*.target"):
            shutil.copy(target, self.root / "usr/lib/systemd/system", follow_symlinks=False)
        self.addCleanup(lambda: [target.unlink() for target in (self.root / "usr/lib/systemd/system").glob("*.target")])
        (self.root / "bin").mkdir()
        shutil.copy("/bin/sh", self.root / "bin")  # of ExecReload
        self.addCleanup(shutil.rmtree, self.root / "bin")
        result = subprocess.run(["systemd-analyze", "verify", f"--root={self.root}", "mpls_vpn_mib.service",
                                 "mpls_vpn_snmp.service"], capture_output=True, text=True, timeout=60, check=False,
                                env=dict(os.environ, MANPATH=str(self.root / "usr/share/man")))
        self.assertEqual((result.returncode, result.stdout + result.stderr), (0, ""))

    @unittest.skipUnless(shutil.which("systemd-analyze"), "SKIPPED: no systemd-analyze")
    def test_services_are_confined(self):
        """By systemd's own measure, from 0 to 100; a service without any confinement has 96."""
        for service, most in (("mpls_vpn_mib", 20), ("mpls_vpn_snmp", 20)):
            result = subprocess.run(["systemd-analyze", "security", "--no-pager", "--offline=true", f"--threshold={most}",
                                     self.root / f"usr/lib/systemd/system/{service}.service"],
                                    capture_output=True, text=True, timeout=60, check=False)
            self.assertEqual(result.returncode, 0, result.stdout + result.stderr)

    @unittest.skipUnless(shutil.which("systemd-sysusers"), "SKIPPED: no systemd-sysusers")
    def test_users_and_groups_of_the_services_are_created(self):
        with tempfile.TemporaryDirectory(prefix="mpls_vpn_install.") as root:
            install(root)
            (pathlib.Path(root) / "etc").mkdir()
            subprocess.run(["systemd-sysusers", f"--root={root}"], check=True, capture_output=True, timeout=60)
            lines = [line.split(":") for line in (pathlib.Path(root) / "etc/group").read_text().splitlines()]
            members = {line[0]: line[3].split(",") for line in lines}
        named = re.findall(r"^(?:User|Group|SupplementaryGroups)=(.*)", "".join(
            service.read_text() for service in self.root.rglob("*.service")), re.MULTILINE)
        self.assertEqual({name for line in named for name in line.split()}, {"mpls_vpn_mib", "mpls_vpn_agent", "mpls_vpn_snmp"})
        self.assertEqual(set(members), {"mpls_vpn_mib", "mpls_vpn_agent", "mpls_vpn_snmp", "mpls_vpn_admin", "frrvty"})
        self.assertEqual(members["frrvty"], ["mpls_vpn_mib"])
        for group in ("mpls_vpn_mib", "mpls_vpn_agent"):
            self.assertEqual(members[group], ["mpls_vpn_snmp"])

    def test_managers_here_and_on_other_hosts_read_the_mib_through_the_packages_snmpd_with_the_lines_to_add(self):
        self.assertRegex(pathlib.Path("/etc/snmp/snmpd.conf").read_text(), r"(?m)^agentaddress +127\.0\.0\.1,\[::1\]$")
        with RouterWithSnmpd(ROUTER) as lab:
            lab.start_daemon()
            lab.start_snmpd()
            lab.spawn("agent", str(self.root / "usr/sbin/mpls_vpn_snmp"), "--agentx-socket", str(lab.agentx))
            wait_until("the sub-agent", lambda: lab.configured_vrfs("l3vpn") == "1")
            self.assertEqual(lab.configured_vrfs("remote", ADDRESS), "1")
            self.assertNotEqual(lab.configured_vrfs("public"), "1")  # the package's view does not have the MIB

    def test_installed_daemon_counts_routes_with_the_installed_modules(self):
        with System(ROUTER) as lab:
            lab.environment["MPLS_VPN_MIB_LIB_DIR"] = str(self.root / "usr/lib/mpls_vpn_mib")
            daemon = lab.spawn("daemon", str(self.root / "usr/sbin/mpls_vpn_mib"))

            def shown():
                self.assertIsNone(daemon.poll(), lab.log("daemon"))
                result = subprocess.run([str(self.root / "usr/bin/mplsvpn"), "--json", "show", "vrf"], env=lab.environment,
                                        capture_output=True, text=True, timeout=60 * SLOW, check=False)
                return result.returncode == 0 and json.loads(result.stdout)

            vrf = wait_until("the VRF", shown, 30)[0]
            self.assertEqual((vrf["name"], vrf["currNumRoutes"]), ("red", 1))


if __name__ == "__main__":
    unittest.main()
