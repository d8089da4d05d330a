"""Seeded random edits of the suite's configuration: BGP instances with RD and route targets, neighbors, OSPF, RIP, static
routes, descriptions. The configuration of a VRF or an interface stays when the VRF or interface is deleted, and vice versa."""
from live_suite import FAMILIES, PROGRAMS, TARGETS, instance

PREFIXES = ("10.0.0.0/8", "10.0.0.0/24", "10.1.0.0/16", "10.2.0.0/24", "10.1.0.1/32", "0.0.0.0/0")
STATIC = {4: ("172.16.1.0/24", "172.16.2.0/24"), 6: ("2001:db8:5::/48", "2001:db8:6::/48")}


class RandomSuite:
    """Random configuration of the suite for World; uses its choices."""

    def place_of(self, vrf):
        return self.vrf_names.index(vrf) + 1

    def any_vrf(self):
        return self.random.choice(self.vrf_names if self.chance(20) or not self.vrfs else sorted(self.vrfs))

    def any_interface(self):
        return self.random.choice(self.interface_names)

    def some_targets(self):
        return " ".join(self.random.sample(TARGETS, self.random.randrange(1, 3)))

    def new_rd(self, vrf):
        place = self.place_of(vrf)
        return self.random.choice((f"65000:{place}0", f"65000:{place}1", f"192.0.2.{place}:20", f"4200000000:{place}"))

    @staticmethod
    def suite_lines(*lines):
        return ["suite " + " / ".join(lines)]

    def add_instance(self):
        vrf = self.any_vrf()
        versions = self.random.choice(((4,), (4, 6), (6,)))
        families = {version: (self.new_rd(vrf), self.some_targets(), self.some_targets()) for version in versions}
        self.instances[vrf] = {*self.instances.get(vrf, ()), *versions}
        return self.suite_lines(*instance(vrf, self.place_of(vrf), families))

    def delete_instance(self):
        vrf = self.pick(self.instances)
        del self.instances[vrf]
        return self.suite_lines(f"no router bgp 65000 vrf {vrf}")

    def change_vpn(self):
        vrf = self.pick(self.instances)
        family = FAMILIES[self.pick(self.instances[vrf])]
        change = self.random.choice((f"rd vpn export {self.new_rd(vrf)}", f"rt vpn import {self.some_targets()}",
                                     f"rt vpn export {self.some_targets()}", f"rt vpn both {self.some_targets()}",
                                     f"{self.random.choice(('', 'no '))}route-map vpn import RM"))
        replaced = ["no rd vpn export"] if change.startswith("rd") else []
        return self.suite_lines(f"router bgp 65000 vrf {vrf}", f"address-family {family} unicast", *replaced, change)

    def change_neighbor(self):
        vrf, neighbor = self.pick(self.instances), f"10.{self.random.randrange(2)}.0.9"
        change = f"neighbor {neighbor} remote-as 65009" if self.chance(60) else f"no neighbor {neighbor}"
        return self.suite_lines(f"router bgp 65000 vrf {vrf}", change)

    def change_ospf(self):
        vrf, no = self.any_vrf(), self.random.choice(("", "", "no "))
        if self.chance(10):
            return self.suite_lines(f"no router ospf vrf {vrf}")
        return self.suite_lines(f"router ospf vrf {vrf}", f"{no}network {self.random.choice(PREFIXES)} area 0")

    def change_rip(self):
        vrf, no = self.any_vrf(), self.random.choice(("", "", "no "))
        if self.chance(10):
            return self.suite_lines(f"no router rip vrf {vrf}")
        network = self.any_interface() if self.chance(30) else self.random.choice(PREFIXES)
        return self.suite_lines(f"router rip vrf {vrf}", f"{no}network {network}")

    def change_static(self):
        version, no = self.random.choice((4, 4, 6)), self.random.choice(("", "", "no "))
        words, prefix = {4: "ip", 6: "ipv6"}[version], self.random.choice(STATIC[version])
        out = "blackhole" if self.chance(20) else self.any_interface()
        return self.suite_lines(f"vrf {self.any_vrf()}", f"{no}{words} route {prefix} {out}")

    def change_description(self):
        text = self.random.choice(("description by the suite", "description x", "no description"))
        return self.suite_lines(f"interface {self.any_vrf()}", text)

    def kill_program(self):
        program = self.random.choice(PROGRAMS)
        self.dead.append(program)
        return [f"kill {program}"]

    SUITE_WEIGHTS = (("add_instance", 5), ("delete_instance", 2), ("change_vpn", 8), ("change_neighbor", 4),
                     ("change_ospf", 8), ("change_rip", 8), ("change_static", 8), ("change_description", 2),
                     ("kill_program", 1))
