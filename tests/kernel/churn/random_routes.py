"""Seeded random routes of all types in the tables of VRFs, next-hop objects and label routes."""

PREFIXES = {4: ("0.0.0.0/0", "10.9.0.0/16", "10.9.1.0/24", "192.168.1.0/24", "192.168.1.1/32", "169.254.7.0/24", "224.1.0.0/16"),
            6: ("::/0", "2001:db8:a::/48", "2001:db8:a:1::/64", "2001:db8:c::1/128", "fd00::/8", "fe80::/64")}
TYPES = ("unicast", "unicast", "unicast", "blackhole", "unreachable", "prohibit", "throw")
METRICS = ("", "", " metric 10", " metric 20", " metric 4278198272")
PROTOCOLS = ("", "", " proto static", " proto 186", " proto 188", " proto 189", " proto 16", " proto 196", " proto 77")
# A suite that starts treats routes with the numbers of its protocols as its own.
NOT_OF_A_SUITE = ("", "", " proto static", " proto 16", " proto 77")
VERBS = ("add", "add", "append", "replace", "replace", "del")


class RandomRoutes:
    """Random routes for World; uses its choices, VRFs and interfaces."""

    def gateway(self, version):
        host = self.random.randrange(2, 5)
        return f"10.{self.random.randrange(3)}.0.{host}" if version == 4 else f"2001:db8:{self.random.randrange(3)}::{host}"

    def path(self, version):
        """A path over any interface, also one outside the VRF, as VPN routes have."""
        name = self.pick(self.interfaces)
        if self.chance(25):
            return f"dev {name}"
        if version == 4 and self.chance(8):
            return f"via inet6 {self.gateway(6)} dev {name} onlink"
        labels = f"encap mpls {self.random.choice(('100', '200/16', '1048575'))} " if self.chance(10) else ""
        return f"{labels}via {self.gateway(version)} dev {name} onlink"

    def target(self, version):
        """ "PREFIX metric M proto P table T" and the like, without type and path."""
        vrf = self.pick(self.vrfs)
        prefix = self.random.choice(PREFIXES[version])
        service = " tos 0x10" if version == 4 and self.chance(5) else ""
        return (prefix + service + self.random.choice(METRICS) + self.random.choice(self.protocols)
                + f" table {self.vrfs[vrf]['table']}")

    def change_route(self):
        version = self.random.choice((4, 4, 6))
        target, path, kind = self.target(version), self.path(version), self.random.choice(TYPES)
        verb = self.random.choice(VERBS)
        if verb == "del" and self.chance(50):
            return [f"route del {target}"]
        # ip(8) expects labels after the prefix, and a path's other words after those
        return [f"route {verb} {kind} {target}" + (f" {path}" if kind == "unicast" else "")]

    def change_multipath(self):
        version = self.random.choice((4, 4, 6))
        target, paths = self.target(version), [self.path(version) for _ in range(self.random.randrange(2, 4))]
        hops = " ".join(f"nexthop {path}" + (" weight 3" if self.chance(20) else "") for path in paths)
        return [f"route {self.random.choice(('add', 'replace'))} {target} {hops}"]

    def change_object(self):
        """Creates, replaces or deletes a next-hop object or a group."""
        number = self.random.randrange(1, 9)
        if self.chance(25):
            return [f"nexthop del id {number}"]
        if number > 6:
            group = "/".join(str(each) for each in self.random.sample(range(1, 5), self.random.randrange(1, 4)))
            return [f"nexthop replace id {number} group {group}"]
        if number == 6:
            return ["nexthop replace id 6 blackhole"]
        version = 6 if number == 5 else 4
        return [f"nexthop replace id {number} {self.path(version)}"]

    def route_by_object(self):
        number = self.random.randrange(1, 9)
        target = self.target(6 if number == 5 else 4)
        return [f"route replace {target} nhid {number}"]

    def change_labels(self):
        """Label routes: the label of a VRF, and one that is swapped."""
        label, vrf = self.random.randrange(100, 104), self.pick(self.vrfs)
        if self.chance(30):
            return [f"mpls route del {label}"]
        return [f"mpls route replace {label} dev {vrf}"]

    def flush_table(self):
        return [f"route flush table {self.vrfs[self.pick(self.vrfs)]['table']}"]
