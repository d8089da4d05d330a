#!/usr/bin/env python3
"""system_explain.py BIN_DIRECTORY VERSION: "mplsvpn explain" on a provider-edge router with the routing suite of that major
version (see suite.py) and a second one. Each link is broken once; then it is the first broken one, and what `ip -j route` and the
suite's own commands state agrees. Runs in the guest (see uml-run), as root.
"""
import json
import os
import shlex
import subprocess
import threading
import time

from suite_system import SuiteSystemTest, main, vpn_family  # before system
from kernel import batch, member_lines, vrf_lines
from suite import Suite, run
from system import BIN, wait_until

VRFS = {"red": 10, "blue": 20}
MEMBERS = {"red1": "red", "blue1": "blue"}
IN_PE2 = ("ip", "netns", "exec", "pe2")
CORE = "ip route 10.255.0.2/32 10.12.0.2"
LABEL = " label 1002"
OFFERED, OFFERED6, OTHER, ABSENT = "10.21.0.0/24", "2001:db8:21::/64", "10.22.0.0/24", "10.99.0.0/24"


def router(number, peer, vrfs):
    """The configuration of PE `number`. IPv6 routes need a core of IPv6: the kernel takes none with an IPv4 gateway."""
    neighbors = [f"10.255.0.{peer}", f"fd00::{peer}"]
    lines = "".join(f" neighbor {each} remote-as 65000\n neighbor {each} update-source lo\n neighbor {each} timers connect 2\n"
                    for each in neighbors)
    families = "".join(f" address-family {family} vpn\n  neighbor {each} activate\n exit-address-family\n"
                       for family, each in zip(("ipv4", "ipv6"), neighbors))
    instances = "".join(f"router bgp 65000 vrf {vrf}\n bgp router-id 10.{number}.{at}.1\n" + vpn_family(rd, target) +
                        vpn_family(rd, target, "ipv6") + "exit\n" for at, (vrf, rd, target) in enumerate(vrfs, 1))
    return f"""hostname pe{number}
ip route 10.255.0.{peer}/32 10.12.0.{peer} label 100{peer}
ipv6 route fd00::{peer}/128 fd12::{peer} label 100{peer}
router bgp 65000
 bgp router-id 10.255.0.{number}
 no bgp default ipv4-unicast
{lines}{families}exit
{instances}"""


def prepare_core(number, *options):
    lines = ["link set lo up", f"addr add 10.255.0.{number}/32 dev lo", f"addr add fd00::{number}/128 dev lo",
             f"addr add 10.12.0.{number}/30 dev core", f"addr add fd12::{number}/64 dev core nodad", "link set core up"]
    batch(lines, *options)
    batch([f"route add 100{number} dev lo"], *options, "-f", "mpls")  # the label with which the other one sends


class Explain(SuiteSystemTest):
    programs = ("zebra", "staticd", "bgpd")
    config = router(1, 2, (("red", "65000:10", "65000:10"), ("blue", "65000:20", "65000:20")))
    vrfs = VRFS
    members = MEMBERS

    @classmethod
    def prepare(cls):
        run("modprobe", "-a", "ipv6", "vrf", "dummy", "veth", "mpls_router", "mpls_iptunnel")
        run("ip", "netns", "add", "pe2")
        for inside in ((), IN_PE2):
            run(*inside, "sysctl", "-qw", "net.ipv4.ip_forward=1", "net.ipv6.conf.all.forwarding=1", "net.mpls.platform_labels=1048575")
        batch(["link add core type veth peer name core netns pe2"])
        prepare_core(1)
        prepare_core(2, "-n", "pe2")
        batch(vrf_lines(VRFS) + member_lines(MEMBERS, "link set {name} up") +
              ["addr add 10.1.0.1/24 dev red1", "addr add 10.2.0.1/24 dev blue1"])
        batch(vrf_lines({"red": 10, "other": 20}) + member_lines({"red1": "red", "o1": "other"}, "link set {name} up") +
              ["addr add 10.21.0.1/24 dev red1", "addr add 2001:db8:21::1/64 dev red1 nodad", "addr add 10.22.0.1/24 dev o1"], "-n", "pe2")
        for inside in ((), IN_PE2):
            run(*inside, "sysctl", "-qw", "net.mpls.conf.core.input=1")
        cls.peer = Suite(cls.release, "pe2", cls.programs,
                         router(2, 1, (("red", "65000:110", "65000:10"), ("other", "65000:122", "65000:99"))))
        cls.peer.start()
        cls.peer.load()

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.start_shell()
        for family, prefix in ((4, OFFERED), (6, OFFERED6)):
            wait_until(prefix, lambda shown=(family, prefix): kernel_routes(*shown), 40)

    @classmethod
    def start_shell(cls):
        """A shell that answers one command from the programs' sockets: that of the suite takes a second for each here."""
        pipes = question, answer = [cls.system.folder / name for name in ("question", "answer")]
        for pipe in pipes:
            os.mkfifo(pipe)
        cls.shell = cls.system.folder / "shell"
        cls.shell.write_text(f"""#!/bin/sh
[ $# = 2 ] || exec {" ".join(cls.suite.shell_words())} "$@"
echo "$2" > {question}
exec cat {answer}
""")
        cls.shell.chmod(0o755)

        def serve():
            while True:
                command = question.read_text().strip()
                answer.write_text(cls.answer(command))
        threading.Thread(target=serve, daemon=True).start()

    @classmethod
    def answer(cls, command):
        if command == "show daemons":
            return " ".join(cls.programs)
        if command == "show running-config":
            return cls.suite.running_config()
        return cls.suite.ask("bgpd" if command.startswith("show bgp") else "zebra", command)

    def explain(self, *words, shell=None, patience="1m"):
        shell = shell or str(self.shell)
        shown = subprocess.run([str(BIN / "mplsvpn"), "--json", "explain", *words, "--suite-shell", shell, "--suite-timeout", patience],
                               env=self.system.environment, capture_output=True, text=True, check=False)
        self.assertEqual(shown.stderr, "")
        explained = json.loads(shown.stdout)
        self.assertEqual(shown.returncode, 1 if explained["firstBroken"] or explained["firstUnknown"] else 0)
        unknown = explained["firstUnknown"]
        if unknown:
            self.assertIsNone(explained["firstBroken"])
            return f"unknown: {unknown}", {link["id"]: link for link in explained["links"]}
        return explained["firstBroken"], {link["id"]: link for link in explained["links"]}

    def assert_whole(self, *words, seconds=20):
        """No link is broken, once the suite has reacted. The result: {link: text}."""
        shown = []
        self.becomes(" ".join(words), lambda: (shown.append(self.explain(*words)), shown[-1][0])[1], None, seconds)
        return {name: link["text"] for name, link in shown[-1][1].items()}

    def assert_broken(self, link, text, *words, seconds=20):
        """The link is the first broken one with this text, once the suite has reacted. The result: its correction."""
        shown = []

        def first():
            broken, links = self.explain(*words)
            shown.append(links[broken]["fix"] if broken else "")
            return broken, text in links[link]["text"] or links
        self.becomes(" ".join(words), first, (link, True), seconds)
        return shown[-1]

    def correct(self, fix):
        """Lines for the suite are entered in the session that is open, which spares a start of its shell."""
        shell, *words = shlex.split(fix)
        if shell != str(self.shell):
            run(shell, *words)
            return
        self.assertEqual(words[:2], ["-c", "configure terminal"])
        self.assertEqual(set(words[::2]), {"-c"})
        self.suite.configure(*words[3::2], "exit-address-family", "exit")

    def of_vrf(self, vrf, *lines):
        self.suite.configure(f"router bgp 65000 vrf {vrf}", "address-family ipv4 unicast", *lines, "exit-address-family", "exit")

    def of_red(self, *lines):
        self.of_vrf("red", *lines)

    # --- a prefix ---

    def test_1_working_routes_have_no_broken_link(self):
        for family, prefix, next_hop, gateway in ((4, OFFERED, "10.255.0.2/32", "10.12.0.2"), (6, OFFERED6, "fd00::2/128", "fd12::2")):
            texts = self.assert_whole("red", prefix)
            route, = kernel_routes(family, prefix)
            path, = self.suite.ask_json("bgpd", f"show bgp ipv{family} vpn {prefix} json")["65000:110"]["paths"]
            self.assertIn(f"with label {path['remoteLabel']} ", texts["label"])
            self.assertIn("imports 65000:10", texts["targets"])
            self.assertIn("with RD 65000:110", texts["targets"])
            self.assertIn(f"{next_hop}, static: {gateway} core", texts["next-hop"])
            self.assertIn(path["bestpath"]["selectionReason"], texts["best-path"])
            self.assertIn(f"via {gateway} dev {route['dev']}", texts["kernel"])
            self.assertIn(f"with label {route['encap_labels']}", texts["kernel"])
            self.assertIn("protocol bgp", texts["row"])

    def test_1_shell_of_the_suite_answers_the_same(self):
        shell = " ".join(self.suite.shell_words())
        self.assert_whole("red")
        self.assertEqual(self.explain("red", shell=shell), self.explain("red"))

    def test_2_route_of_the_vrf_itself_needs_no_target(self):
        links = self.explain("red", "10.1.0.0/24")[1]
        self.assertEqual({name for name, link in links.items() if link["state"] == "broken"}, set())
        self.assertIn("connected", links["source"]["text"])
        self.assertEqual(links["targets"]["state"], "notChecked")
        self.assertIn("dev red1", links["kernel"]["text"])

    def test_2_address_is_explained_by_the_route_that_the_kernel_takes(self):
        run("ip", "route", "add", "10.21.0.64/26", "dev", "red1", "table", "10")
        for address in ("10.21.0.7", "10.21.0.77", "10.1.0.1"):
            route, = read_routes(run("ip", "-j", "route", "get", "fibmatch", address, "vrf", "red"))
            prefix = route["dst"] + ("" if "/" in route["dst"] else "/32")
            if route.get("type") != "local":  # version 8 has no routes of them
                self.assertEqual({prefix}, set(self.suite.ask_json("zebra", f"show ip route vrf red {address} json")))
            self.assertEqual(self.assert_whole("red", address)["address"], f"the longest route to {address} is that of {prefix}")
        run("ip", "route", "del", "10.21.0.64/26", "table", "10")

    def test_3_prefix_that_no_router_has(self):
        self.assertEqual(kernel_routes(4, ABSENT), [])
        self.assert_broken("source", "neither VRF red nor the VPN routes", "red", ABSENT)
        self.assert_broken("source", "neither VRF red nor the VPN routes", "red", ABSENT.removesuffix("/24"))

    def test_3_route_whose_target_is_not_imported(self):
        self.assertEqual(kernel_routes(4, OTHER), [])
        fix = self.assert_broken("targets", "that VRF red imports (65000:10); other VPNs have the prefix with 65000:99 "
                                 "(from 10.255.0.2 with RD 65000:122)", "red", OTHER)
        self.assertIn("(65000:10)", fix)  # what is there already stays
        self.of_red("rt vpn import 65000:10 65000:99")
        self.assert_whole("red", OTHER)
        self.assertEqual(len(kernel_routes(4, OTHER)), 1)
        self.of_red("rt vpn import 65000:10")
        self.assert_broken("targets", "65000:99", "red", OTHER)

    def test_3_path_of_the_vrf_that_is_not_used(self):
        prefix = "10.8.0.0/16"
        self.of_red(f"network {prefix}")  # there is no route that it announces
        self.assert_broken("source", f"the suite has {prefix} and does not use it: bgp", "red", prefix)
        path, = self.suite.ask_json("bgpd", f"show bgp vrf red ipv4 unicast {prefix} json")["paths"]
        self.assertFalse(path["valid"])
        links = self.explain("red", prefix)[1]
        self.assertEqual({links[name]["state"] for name in ("targets", "next-hop", "label")}, {"notChecked"})
        self.of_red(f"no network {prefix}")
        self.assert_broken("source", "neither VRF red nor", "red", prefix)

    def test_3_route_of_another_vrf_of_this_router(self):
        self.assert_broken("targets", "have the prefix with 65000:10 (from VRF red)", "blue", "10.1.0.0/24")
        self.of_vrf("blue", "rt vpn import 65000:20 65000:10")
        texts = self.assert_whole("blue", "10.1.0.0/24")
        self.assertEqual(len(kernel_routes(4, "10.1.0.0/24", "blue")), 1)
        self.assertIn("from VRF red", texts["source"])
        self.assertIn("packets go to VRF red without a label", texts["label"])
        self.of_vrf("blue", "rt vpn import 65000:20")

    def test_4_export_without_route_distinguisher(self):
        self.of_red("no rd vpn export 65000:10")
        self.suite.configure("router bgp 65000 vrf red", "address-family ipv6 unicast", "no rd vpn export 65000:10",
                             "exit-address-family", "exit")
        self.assert_broken("rd", "exports its ipv4 unicast routes without a route distinguisher", "red")
        self.of_red("rd vpn export 65000:10")
        self.suite.configure("router bgp 65000 vrf red", "address-family ipv6 unicast", "rd vpn export 65000:10",
                             "exit-address-family", "exit")
        self.assert_whole("red")

    def test_4_vrf_that_imports_nothing(self):
        self.of_red("no import vpn")
        self.correct(self.assert_broken("targets", "does not import ipv4 unicast VPN routes", "red", OFFERED))
        self.assert_whole("red", OFFERED)

    def test_4_route_map_that_rejects(self):
        self.suite.configure("route-map none deny 1", "exit")
        self.of_red("route-map vpn import none")
        self.assert_broken("best-path", "a route map or filter rejects it", "red", OFFERED)
        self.of_red("no route-map vpn import none")
        self.assert_whole("red", OFFERED)

    def test_4_route_without_label(self):
        if self.release.major < 10:
            self.skipTest("version 8 announces the former label further on")

        def of_peer(line):
            self.peer.configure("router bgp 65000 vrf red", "address-family ipv4 unicast", line, "exit-address-family", "exit")
        of_peer("no label vpn export auto")
        self.assert_broken("label", "the path from 10.255.0.2 has neither label nor segment identifier", "red", OFFERED)
        path, = self.suite.ask_json("bgpd", f"show bgp ipv4 vpn {OFFERED} json")["65000:110"]["paths"]
        self.assertEqual(path["remoteLabel"], 3, "implicit null")
        of_peer("label vpn export auto")
        self.assert_whole("red", OFFERED)

    def test_5_next_hop_that_the_core_does_not_reach(self):
        self.suite.configure(f"no {CORE}{LABEL}", CORE)
        self.assert_broken("next-hop", "to the next hop 10.255.0.2 has no label", "red", OFFERED)
        self.assertIn("is in 10.21.0.0/24, which BGP has; the VRF has no route", self.explain("red", "10.21.0.7")[1]["address"]["text"])
        self.assertEqual(kernel_routes(4, OFFERED), [])
        self.suite.configure(f"no {CORE}")
        self.assert_broken("next-hop", "the core has no route to the next hop 10.255.0.2", "red", OFFERED)
        self.suite.configure(CORE + LABEL)
        self.assert_whole("red", OFFERED, seconds=40)

    def test_6_session_that_is_down(self):
        self.suite.configure("router bgp 65000", "neighbor 10.255.0.2 shutdown", "exit")
        self.assert_broken("sessions", "no ipv4 vpn session is established; the ipv4 vpn session with 10.255.0.2 is Idle", "red")
        self.assert_broken("source", "; the ipv4 vpn session with 10.255.0.2 is Idle", "red", OFFERED)
        self.suite.configure("router bgp 65000", "no neighbor 10.255.0.2 shutdown", "exit")
        self.assert_whole("red", OFFERED, seconds=60)

    def test_6_route_that_the_kernel_lacks(self):
        # The kernel deletes the routes of a next-hop object without notice, so that zebra does not install them again.
        run("ip", "nexthop", "del", "id", str(kernel_routes(4, OFFERED)[0]["nhid"]))
        self.assert_broken("kernel", "table 10 of the kernel has no route 10.21.0.0/24", "red", OFFERED)
        self.suite.configure(f"no {CORE}{LABEL}")
        self.assert_broken("next-hop", "the core has no route", "red", OFFERED)
        self.suite.configure(CORE + LABEL)
        self.assert_whole("red", OFFERED, seconds=40)

    # --- a VRF ---

    def test_2_vrf_with_its_targets(self):
        texts = self.assert_whole("red")
        self.assertIn(texts["rd"], ("65000:10", "65000:10; the MIB differs: none"))  # until the daemon has read it
        self.assertEqual(texts["imports"], "ipv4: 65000:10 from 10.255.0.2; ipv6: 65000:10 from fd00::2")
        peers = {family: self.suite.ask_json("bgpd", f"show bgp {family} vpn summary json")["peers"] for family in ("ipv4", "ipv6")}
        self.assertEqual(texts["sessions"], "; ".join(f"{family} vpn with {peer}: {facts['state']}" for family, found in peers.items()
                                                      for peer, facts in found.items()))
        table = self.suite.ask_json("zebra", "show mpls table json")
        labels = {label for label, entry in table.items() if entry["nexthops"][0].get("interface") == "red"}
        self.assertTrue(labels and all(label in texts["vpn-label"] for label in labels), (labels, texts))

    def test_3_target_that_no_router_exports(self):
        self.assert_broken("imports", "no other VRF and no other router exports 65000:20", "blue")
        self.of_red("rt vpn export 65000:10 65000:20")
        self.suite.configure("router bgp 65000 vrf red", "address-family ipv6 unicast", "rt vpn export 65000:10 65000:20",
                             "exit-address-family", "exit")
        self.assertIn("65000:20 from VRF red", self.assert_whole("blue")["imports"])
        self.of_red("rt vpn export 65000:10")
        self.suite.configure("router bgp 65000 vrf red", "address-family ipv6 unicast", "rt vpn export 65000:10",
                             "exit-address-family", "exit")

    def test_4_export_without_label(self):
        self.of_red("no label vpn export auto")
        self.correct(self.assert_broken("vpn-label", "without a label or segment identifier", "red"))
        self.assert_whole("red")

    def test_5_unknown_vrf(self):
        self.assert_broken("vrf", "the daemon has no VRF nosuch", "nosuch")

    def test_5_vrf_of_the_suite_without_device(self):
        self.suite.configure("router bgp 65000 vrf orange", "exit")
        fix = self.assert_broken("device", "the kernel has no VRF device orange, which the suite configures", "orange")
        run("sh", "-c", fix.replace("NUMBER", "40"))
        self.becomes("orange", lambda: self.explain("orange")[1]["device"]["text"], "the device orange is up, with table 40")
        self.suite.configure("no router bgp 65000 vrf orange")
        run("ip", "link", "del", "orange")

    # --- parts of the system that are absent ---

    def test_7_suite_that_is_absent(self):
        broken, links = self.explain("red", OFFERED, shell="/nonexistent/vtysh")
        self.assertIsNone(broken)
        self.assertEqual({name for name, link in links.items() if link["state"] == "ok"}, {"vrf", "device", "kernel", "row"})
        self.assertIn("No such file", links["source"]["text"])

    def test_7_suite_that_does_not_answer_is_waited_for_once(self):
        began = time.monotonic()
        shell = self.system.folder / "silent"
        shell.write_text("#!/bin/sh\nexec sleep 100\n")
        shell.chmod(0o755)
        broken, links = self.explain("red", OFFERED, shell=str(shell), patience="2s")
        self.assertIsNone(broken)
        self.assertLess(time.monotonic() - began, 4)
        self.assertIn("does not answer", links["source"]["text"])

    def test_8_device_that_is_down(self):
        run("ip", "link", "set", "blue", "down")
        self.correct(self.assert_broken("device", "the device blue is down", "blue", "10.2.0.0/24"))

    def test_9_daemon_that_does_not_run(self):
        self.system.kill("daemon")
        broken, links = self.explain("red", OFFERED)
        self.assertEqual(broken, "unknown: row")
        self.assertEqual({name for name, link in links.items() if link["state"] == "notChecked"}, {"vrf", "row"})


def read_routes(text):
    """Of ip(8), which prints the labels as a second "dst"."""
    def read(pairs):
        names = [name for name, _ in pairs]
        labels = [value for name, value in pairs if name == "dst"][1:] if names.count("dst") > 1 else []
        return {**dict(reversed(pairs)), "encap_labels": labels[0].replace(" ", "") if labels else None}
    return json.loads(text, object_pairs_hook=read)


def kernel_routes(family, prefix, vrf="red"):
    return read_routes(run("ip", f"-{family}", "-j", "route", "show", "vrf", vrf, prefix) or "[]")


if __name__ == "__main__":
    main("system_explain", Explain)
