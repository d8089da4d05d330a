"""What the whole MIB must show, computed from ip(8)'s view of the kernel and from the output of the suite's commands.

Cells are {(table and column, index): value}; a value is an integer, octets or a Check.
"""
import dataclasses

from system import name_index, route_index

import kernel as linux
import routes

IF_CONF, VRF, TARGET, SECURITY, PERFORMANCE, ROUTE = (
    (1, 2, 1, 1), (1, 2, 2, 1), (1, 2, 3, 1), (1, 2, 6, 1), (1, 3, 1, 1), (1, 4, 1, 1))
RD = 4  # column of the table of VRFs
UP, DOWN = 1, 2
ENTERPRISE, ACTIVE, READ_ONLY = 2, 1, 5
NO_METRIC = -1
NO_CROSS_CONNECT = b"\0"
LABELS_AT = 14  # in a cross-connect index: how many labels, then three octets for each


@dataclasses.dataclass
class Check:
    """A value that is not fixed: any for which `holds` is true."""
    text: str
    holds: object

    def __eq__(self, value):
        return self.holds(value)

    def __repr__(self):
        return self.text


@dataclasses.dataclass
class Suite:
    """What the routing suite states; empty without one."""
    rds: dict = dataclasses.field(default_factory=dict)           # VRF: text
    targets: set = dataclasses.field(default_factory=set)         # (VRF, import 1 or export 2, family 4 or 6, text)
    unexported: set = dataclasses.field(default_factory=set)      # (VRF, family) of which the suite exports nothing
    unsure_rds: set = dataclasses.field(default_factory=set)      # VRFs that have an RD that the suite does not state
    protocols: dict = dataclasses.field(default_factory=dict)     # (VRF, interface name): numbers
    may_be: dict = dataclasses.field(default_factory=dict)        # the same: not stated, but not excluded either
    descriptions: dict = dataclasses.field(default_factory=dict)  # VRF: text
    unsure_descriptions: set = dataclasses.field(default_factory=set)  # VRFs whose description a program of the suite has lost


def number(value):
    return Check("a number", lambda seen: isinstance(seen, int))


def bits(numbers):
    return bytes([sum(0x80 >> each for each in numbers)])


def protocols_of(suite, vrf, name):
    """Exactly those that the suite states, and any of those that it does not exclude."""
    stated = suite.protocols.get((vrf, name), set())
    possible = suite.may_be.get((vrf, name), set())
    if not possible - stated:
        return bits(stated)
    least, most = bits(stated)[0], bits(stated | possible)[0]
    return Check(f"protocols {least:#x} to {most:#x}", lambda seen: seen[0] & least == least and seen[0] & ~most == 0)


class Model:
    def __init__(self, kernel, suite):
        self.kernel, self.suite = kernel, suite
        self.vrfs, self.members = kernel.vrfs(), kernel.members()
        self.routes = {vrf: routes.table_rows(kernel, link["linkinfo"]["info_data"]["table"])
                       for vrf, link in self.vrfs.items()}

    def interfaces_of(self, vrf):
        return [link for (owner, _), link in self.members.items() if owner == vrf]

    def active_interfaces(self, vrf):
        return sum(linux.is_active(link) for link in self.interfaces_of(vrf))

    def active_vrfs(self):
        return {vrf for vrf in self.vrfs if self.active_interfaces(vrf)}

    def distinguisher(self, vrf):
        if vrf in self.suite.unsure_rds:
            return Check("any RD", lambda seen: isinstance(seen, bytes))
        return self.suite.rds.get(vrf, "").encode()

    def is_stated(self, target):
        """Whether the suite states the route targets of the row's VRF and family."""
        return target[0] in self.vrfs and (target[0], target[2]) not in self.suite.unexported

    def description(self, vrf):
        texts = [self.suite.descriptions.get(vrf, ""), self.vrfs[vrf].get("ifalias", "")]
        if vrf in self.suite.unsure_descriptions:
            return Check(f"one of {texts}", lambda seen: seen.decode() in texts)
        return (texts[0] or texts[1]).encode()

    # --- The MIB ---

    def cells(self):
        cells = self.scalars()
        for vrf in self.vrfs:
            cells.update(self.vrf_cells(vrf))
            for key, row in self.routes[vrf].items():
                cells.update(self.route_cells(vrf, key, row))
        for (vrf, index), link in self.members.items():
            columns = {2: ENTERPRISE, 3: protocols_of(self.suite, vrf, link["ifname"]), 4: READ_ONLY, 5: ACTIVE}
            cells.update(row_cells(IF_CONF, columns, name_index(vrf) + (index,)))
        return cells

    def scalars(self):
        values = (len(self.vrfs), len(self.active_vrfs()), len(self.members), 1, 0, 0, 0)
        return {((1, 1, column), (0,)): value for column, value in enumerate(values, 1)}

    def vrf_cells(self, vrf):
        active = self.active_interfaces(vrf)
        state = UP if active else DOWN
        no_threshold = 0
        columns = {2: b"", 3: self.description(vrf), 4: self.distinguisher(vrf), 5: number("created"),
                   6: state, 7: active, 8: len(self.interfaces_of(vrf)), 9: no_threshold, 10: no_threshold, 11: no_threshold, 12: number("changed"),
                   13: ACTIVE, 14: state, 15: READ_ONLY}
        index = name_index(vrf)
        return {**row_cells(VRF, columns, index), **row_cells(SECURITY, {1: 0, 2: 0}, index),
                **row_cells(PERFORMANCE, {1: 0, 2: 0, 3: len(self.routes[vrf]), 4: 0, 5: 0}, index)}

    def route_cells(self, vrf, key, row):
        columns = {7: row["ifIndex"], 8: row["type"], 9: row["proto"], 10: number("age"), 11: 0, 12: row["metric1"],
                   13: NO_METRIC, 14: NO_METRIC, 15: NO_METRIC, 16: NO_METRIC, 17: self.cross_connect(vrf, key[0]), 18: ACTIVE}
        return row_cells(ROUTE, columns, route_index(vrf, *key, row["type"] == routes.LOCAL))

    def cross_connect(self, vrf, prefix):
        """Found by prefix: that of the first path with labels, in the order of next hops. IPv6 has none."""
        paths = sorted((hop.packed if hop else b"", row["labels"]) for (network, hop), row in self.routes[vrf].items()
                       if network == prefix and row["labels"])
        if not paths or prefix.version == 6:
            return NO_CROSS_CONNECT
        return Check(f"cross-connect with labels {paths[0][1]}", lambda seen: labels_in(seen) == paths[0][1][:3])

    # --- Other views ---

    def route_keys(self, vrf):
        return {(str(prefix), "" if hop is None else str(hop)) for prefix, hop in self.routes[vrf]}


def row_cells(entry, columns, index):
    return {(entry + (column,), index): value for column, value in columns.items()}


def labels_in(octets):
    if len(octets) <= LABELS_AT:
        return None
    return [int.from_bytes(octets[LABELS_AT + 1 + 3 * each:LABELS_AT + 4 + 3 * each], "big") for each in range(octets[LABELS_AT])]
