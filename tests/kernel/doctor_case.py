"""For tests of "mplsvpn doctor" in the guest: a router with two VRFs and the routing suite, and what a check finds."""
import json
import subprocess

from suite_system import BGP, SuiteSystemTest, vpn_instance  # before system
from kernel import batch, member_lines, vrf_lines
from suite import run
from system import BIN

VRFS = {"red": 10, "blue": 20}
MEMBERS = {"red1": "red", "blue1": "blue"}
PATIENCE = "2m"  # on a machine that does much else
CONFIG = "hostname pe1\n" + BGP + vpn_instance("red", 1) + vpn_instance("blue", 2)


class DoctorTest(SuiteSystemTest):
    programs = ("zebra", "staticd", "bgpd")
    config = CONFIG
    vrfs = VRFS
    members = MEMBERS

    @classmethod
    def prepare(cls):
        run("modprobe", "-a", "ipv6", "vrf", "dummy", "mpls_router", "mpls_iptunnel")
        run("sysctl", "-qw", "net.ipv4.ip_forward=1", "net.mpls.platform_labels=1048575")
        guards = [f"-{family} route add vrf {vrf} unreachable default metric 4278198272" for vrf in VRFS for family in (4, 6)]
        batch(vrf_lines(VRFS) + member_lines(MEMBERS, "link set {name} up") +
              ["addr add 10.1.0.1/24 dev red1", "addr add 10.2.0.1/24 dev blue1", "link add core type dummy", "link set core up"])
        for guard in guards:
            run("ip", *guard.split())
        run("sysctl", "-qw", "net.mpls.conf.core.input=1")

    def diagnose(self, check, shell=None, wrapper=(), patience=PATIENCE, conf=None):
        conf = ("--suite-conf", str(self.suite.etc / "frr.conf")) if conf is None else conf
        shell = shell or " ".join(self.suite.shell_words())
        words = ("--only", check, "--suite-timeout", patience, "--suite-shell", shell, *conf)
        result = subprocess.run([*wrapper, str(BIN / "mplsvpn"), "--json", "doctor", *words], env=self.system.environment,
                                capture_output=True, text=True, check=False)
        shown, = json.loads(result.stdout)
        return shown["state"], shown["findings"]

    def assert_found(self, check, state, text, **how):
        found, findings = self.diagnose(check, **how)
        self.assertEqual(found, state, (check, findings))
        self.assertTrue(any(text in finding["text"] for finding in findings), findings)
        return next(finding["fix"] for finding in findings if text in finding["text"])

    def assert_ok(self, check):
        self.becomes(check, lambda: self.diagnose(check), ("ok", []), 20)

    def correct(self, fix):
        subprocess.run(fix, shell=True, check=True, capture_output=True)
