"""The routing suite on the router: runs it, configures it, and reads what its operational commands state.

RDs and route targets of a VRF are taken from what the suite does with them. RD and exported targets are those of its route in
the VPN table. For every route target of the pool the suite has a probe, a BGP instance without a VRF device that exports it alone:
a VRF that has the probe's route imports it.
"""
import itertools
import pathlib
import time

from model import Suite
from suite_shell import Shell
from system import wait_until

import kernel as linux
import suite as suites

PROGRAMS = ("zebra", "staticd", "bgpd", "ospfd", "ripd")
PROTOCOL_PROGRAMS = ("staticd", "ospfd", "ripd")
TARGETS = ("65000:1", "65000:99", "192.0.2.1:7", "4200000000:30")
LOADS = 5
LEARNING = 1.0  # s in which a program that starts gets VRFs and interfaces from zebra; it may miss some in what it loads before
IMPORT, EXPORT = 1, 2
BGP, OSPF, RIP, STATIC = 1, 2, 3, 5
FAMILIES = {4: "ipv4", 6: "ipv6"}


def route_of(version, place):
    """The route by which the suite's VPN table identifies a BGP instance; a probe's place is above 200."""
    return f"10.200.{place}.0/24" if version == 4 else f"2001:db8:200:{place:x}::/64"


def probe_place(target):
    return 200 + TARGETS.index(target)


def instance(vrf, place, families, label=("label vpn export auto",)):
    """The lines of a BGP instance; families: {version: (rd, imports, exports)}. Without a device there is no label."""
    lines = [f"router bgp 65000 vrf {vrf}", f"bgp router-id 10.99.0.{place}", "no bgp network import-check",
             "no bgp ebgp-requires-policy"]
    for version, (rd, imports, exports) in families.items():
        lines += [f"address-family {FAMILIES[version]} unicast", f"network {route_of(version, place)}", *label,
                  f"rd vpn export {rd}", f"rt vpn import {imports}", f"rt vpn export {exports}", "export vpn", "import vpn",
                  "exit-address-family"]
    return lines + ["exit"]


def base_configuration():
    lines = ["route-map RM permit 10", "exit", "router bgp 65000", "bgp router-id 10.99.0.254", "exit"]
    for target in TARGETS:
        place = probe_place(target)
        lines += instance(f"probe{place}", place, {version: (f"64999:{place}{version}", target, target) for version in FAMILIES}, ())
    return "\n".join(lines) + "\n"


def stanza_lines(configuration):
    """{(stanza, line)} of interfaces' descriptions, RIP and VRFs."""
    found, stanza = set(), ""
    for line in configuration.splitlines():
        if not line.startswith(" "):
            stanza = line if line.startswith(("interface ", "router rip", "vrf ")) else ""
        elif stanza and (not stanza.startswith("interface ") or line.startswith(" description ")):
            found.add((stanza, line.strip()))
    return found


class LiveSuite:
    def __init__(self, release):
        self.suite = suites.Suite(release, None, PROGRAMS, base_configuration())
        self.dead = set()
        self.lost_lines = set()     # {(stanza, line)} that mgmtd left out of the last load
        self.incomplete_loads = []  # the same of each, for those who look for a reason
        self.ask, self.ask_json, self.ask_each = self.suite.ask, self.suite.ask_json, self.suite.ask_each
        self.suite.start()
        self.load()
        self.shell = Shell(self.suite.shell_words())

    def close(self):
        self.shell.close()
        for program in reversed(self.suite.programs):
            if program not in self.dead:
                self.suite.signal(program, 9)

    # --- Operations ---

    def configure(self, line):
        """Commands separated by " / "; those that the suite refuses change nothing."""
        self.shell.ask("configure terminal")
        for command in line.split(" / "):
            self.shell.ask(command)
        self.shell.ask("end")

    def kill(self, program):
        if not self.dead:
            self.shell.ask("write memory")  # loaded again by a supervisor
        if program in self.suite.programs and program not in self.dead:
            self.dead.add(program)
            self.suite.signal(program, 9)

    def start(self, program):
        """Like the suite's supervisor: with zebra all others are restarted, because it has lost what they had sent."""
        if program not in self.dead:
            return
        programs = self.suite.programs if program == "zebra" else (program,)
        for each in programs:
            self.kill(each)
        self.dead.difference_update(programs)
        self.suite.start(*programs)
        if not self.dead:
            time.sleep(LEARNING)
            self.load()

    def load(self):
        """mgmtd may leave out lines that the other programs apply; another load mostly completes it."""
        for _ in range(LOADS):
            self.suite.load()
            if "mgmtd" not in self.suite.programs:
                return
            saved = (self.suite.etc / "frr.conf").read_text()
            self.lost_lines = stanza_lines(saved) - self.lines_of_mgmtd()
            if not self.lost_lines:
                return
            self.incomplete_loads.append(sorted(self.lost_lines))
            time.sleep(LEARNING)

    def lines_of_mgmtd(self):
        return stanza_lines(self.ask("mgmtd", "show running-config"))

    def lost_stanzas(self):
        """Those whose programs apply lines that no program of the suite shows in its configuration."""
        return {stanza for stanza, _ in self.lost_lines - self.lines_of_mgmtd()} if self.lost_lines else set()

    def restart(self, *programs):
        """Restarts programs that miss or forget something. In a VRF that was created again RIP does not run, and staticd does
        not print the static routes that it has; OSPF and RIP may not run on an interface that joins a VRF with an address;
        and zebra may not know the addresses of an interface that was created again."""
        for program in programs:
            self.kill(program)
        self.start_all()

    def notice_ended(self):
        """Restarts programs that ended by themselves, as a supervisor does."""
        for program in self.suite.programs:
            if program not in self.dead and not pathlib.Path(f"/proc/{self.suite.pid(program)}").exists():
                self.dead.add(program)

    def start_all(self):
        self.notice_ended()
        for program in self.suite.programs:
            self.start(program)

    # --- What the suite states ---

    def describe(self):
        """[(command, answer)] for the analysis of a mismatch."""
        asked = ("show running-config", "show bgp vrfs", "show bgp ipv4 vpn", "show bgp ipv6 vpn", "show ip ospf vrf all interface",
                 "show ip route vrf all", "show ipv6 route vrf all", "show interface vrf all")
        asked += tuple(f"show ip rip vrf {vrf} status" for vrf in linux.Kernel().vrfs())
        return ([("lines that loads left out of mgmtd", "\n".join(map(str, self.incomplete_loads)))] +
                [(command, self.suite.shell("-c", command).stdout) for command in asked] +
                [(f"{program}: show running-config", self.ask(program, "show running-config")) for program in self.suite.programs
                 if self.suite.answers(program)])

    def state(self, kernel, places):
        """`places`: {VRF: its place}."""
        state = Suite()
        self.read_vpn(state, kernel, places)
        self.read_protocols(state, kernel)
        self.read_descriptions(state, kernel)
        return state

    def read_vpn(self, state, kernel, places):
        """Of VRFs of the kernel: a BGP instance without a device imports nothing."""
        instances = self.ask_json("bgpd", "show bgp vrfs json").get("vrfs", {})
        for version, family in FAMILIES.items():
            rds = self.distinguishers(family)
            tables = self.ask_json("bgpd", f"show bgp vrf all {family} unicast json")
            for vrf in kernel.vrfs():
                own = tables.get(vrf, {}).get("routes", {})
                if vrf not in rds:
                    state.unexported.update({(vrf, version)} if vrf in instances else ())
                    if vrf not in state.rds and route_of(version, places[vrf]) in own:
                        state.unsure_rds.add(vrf)
                    continue
                state.rds.setdefault(vrf, rds[vrf])
                exported = self.exported_targets(family, route_of(version, places[vrf]))
                state.targets.update((vrf, EXPORT, version, target) for target in exported)
                state.targets.update((vrf, IMPORT, version, target) for target in TARGETS
                                     if route_of(version, probe_place(target)) in own)
        # Version 10 forgets the networks of an instance that is configured before its VRF is created.
        state.unsure_rds.update(vrf for vrf in kernel.vrfs() if vrf in instances and vrf not in state.rds)

    def distinguishers(self, family):
        """{VRF: RD} of the routes that VRFs export."""
        shown = self.ask_json("bgpd", f"show bgp {family} vpn json").get("routes", {}).get("routeDistinguishers", {})
        return {path["nhVrfName"]: rd for rd, prefixes in shown.items() for paths in prefixes.values() for path in paths
                if "nhVrfName" in path}

    def exported_targets(self, family, prefix):
        shown = self.ask_json("bgpd", f"show bgp {family} vpn {prefix} json")
        return {word.removeprefix("RT:") for route in shown.values() for path in route["paths"]
                for word in path.get("extendedCommunity", {}).get("string", "").split()}

    def read_protocols(self, state, kernel):
        lost, ospf = self.lost_stanzas(), self.ask_json("ospfd", "show ip ospf vrf all interface json")
        neighbors, all_static = self.suite.vrfs_with_neighbors(), self.static_routes()
        all_rip = self.suite.rip_interfaces(kernel.vrfs())
        for vrf in kernel.vrfs():
            rip, static = all_rip[vrf], all_static.get(vrf, set())
            for (owner, _), link in kernel.members().items():
                if owner != vrf:
                    continue
                name = link["ifname"]
                stated = {protocol for protocol, runs in (
                    (BGP, vrf in neighbors), (RIP, name in rip), (STATIC, name in static or None in static),
                    (OSPF, ospf.get(vrf, {}).get("interfaces", {}).get(name, {}).get("ospfEnabled"))) if runs}
                unsure = {protocol for protocol, stanza in ((RIP, f"router rip vrf {vrf}"), (STATIC, f"vrf {vrf}")) if stanza in lost}
                state.protocols[vrf, name] = stated - unsure
                state.may_be[vrf, name] = self.not_stated(kernel, link, vrf) | unsure

    @staticmethod
    def not_stated(kernel, link, vrf):
        """The suite does not state which protocols are enabled on an interface that is down or in a VRF that is down, nor that
        a static route names it; nor does it state RIP on an interface without an address."""
        if not linux.is_up(link) or not linux.is_up(kernel.vrfs()[vrf]):
            return {OSPF, RIP, STATIC}
        return set() if linux.has_ipv4(link) else {RIP}

    def static_routes(self):
        """{VRF: names of interfaces that static routes name, None for a route that names none}."""
        found = {}
        for words in ("ip", "ipv6"):
            for _, entry in self.ask_each("zebra", f"show {words} route vrf all static json"):
                # By prefix, a document for each VRF; in later versions by VRF and prefix.
                prefixes = [entry] if isinstance(entry, list) else entry.values()
                for route in itertools.chain.from_iterable(prefixes):
                    found.setdefault(route["vrfName"], set()).update(map(out_of, route.get("nexthops", [])))
        return found

    def read_descriptions(self, state, kernel):
        shown = self.ask_json("zebra", "show interface vrf all json")
        lost = self.lost_stanzas()
        state.descriptions = {vrf: shown.get(vrf, {}).get("description", "") for vrf in kernel.vrfs()}
        state.unsure_descriptions = {vrf for vrf in kernel.vrfs() if f"interface {vrf}" in lost}


def out_of(hop):
    """The interface that a static route names, None when it names none."""
    return hop.get("interfaceName") if hop.get("directlyConnected") else None


def wait_for_probes(live):
    """The first leak takes the suite a moment; the comparison starts after it."""
    names = {f"probe{probe_place(target)}" for target in TARGETS}
    wait_until("the suite's probes", lambda: names <= set(live.distinguishers("ipv4")), 20)
