"""Seeded random operations on VRFs, interfaces, addresses and routes.

An operation is a list of steps, each a line: "ip ...", "mpls ..." (ip -f mpls), "kill PROCESS", "start PROCESS". The world
records what the operations intend, so that most of them succeed; any subset of them can be applied, too.
"""
import contextlib
import random

from random_routes import NOT_OF_A_SUITE, PROTOCOLS, RandomRoutes
from random_suite import RandomSuite

VRF_NAMES = ("red", "blue", "green", "v9", "v10", "a.b", "Az", "x", "cust-long-name5")
INTERFACE_NAMES = ("d0", "d1", "d2", "d3", "d4", "ge10", "ge9", "p-4_7", "eth0.100", "longest-name-15")
TABLES = (10, 20, 30, 255000, 1001, 1002, 4000000000)
FIRST_INDEX = 101
# Otherwise its programs disagree about which VRF or interface has the name.
NOT_FOLLOWED_BY_THE_SUITE = ("rename_vrf", "swap_vrfs", "swap_interfaces")
OWN_TOOLS = ("mpls", "kill", "start", "suite")  # all others are commands of ip(8)


class Impossible(Exception):
    """There is nothing of the kind that an operation changes."""


class World(RandomRoutes, RandomSuite):
    vrf_names, interface_names = VRF_NAMES, INTERFACE_NAMES

    def __init__(self, seed, has_suite=False, without=()):
        self.random = random.Random(seed)
        self.shares_tables = not has_suite  # the suite does not start when two VRFs have one table
        self.makes_bridges = not has_suite  # without a port, the suite's programs disagree about them
        self.protocols = NOT_OF_A_SUITE if has_suite else PROTOCOLS
        weights = self.WEIGHTS + (self.SUITE_WEIGHTS if has_suite else ())
        without = {*without, *(NOT_FOLLOWED_BY_THE_SUITE if has_suite else ())}
        self.weights = [each for each in weights if each[0] not in without]
        self.vrfs = {}        # name: {"index", "table"}
        self.interfaces = {}  # name: {"index", "vrf", "up", "number"}
        self.next_index, self.free_indexes = FIRST_INDEX, []
        self.dead = []        # processes that were killed and not started again
        self.instances = {}   # BGP instances of the suite: {VRF name: address families}

    # --- Choices ---

    def chance(self, percent):
        return self.random.randrange(100) < percent

    def pick(self, choices):
        if not choices:
            raise Impossible
        return self.random.choice(sorted(choices))

    def pick_two(self, choices):
        if len(choices) < 2:
            raise Impossible
        return self.random.sample(sorted(choices), 2)

    def new_index(self):
        """A new index, or that of a former link."""
        if self.free_indexes and self.chance(50):
            return self.free_indexes.pop(self.random.randrange(len(self.free_indexes)))
        self.next_index += 1
        return self.next_index - 1

    def new_table(self):
        used = {vrf["table"] for vrf in self.vrfs.values()}
        shared = self.shares_tables and self.chance(20)
        return self.random.choice([table for table in TABLES if shared or table not in used])

    def unused(self, names, used):
        return self.pick(set(names) - set(used))

    # --- VRFs ---

    def make_vrf(self, name, index, table):
        self.vrfs[name] = {"index": index, "table": table}
        return [f"link add {name} index {index} type vrf table {table}"] + ([f"link set {name} up"] if self.chance(85) else [])

    def add_vrf(self):
        name = self.unused(VRF_NAMES, self.vrfs)
        if len(self.vrfs) >= 6:
            raise Impossible
        return self.make_vrf(name, self.new_index(), self.new_table())

    def forget_vrf(self, name):
        self.free_indexes.append(self.vrfs.pop(name)["index"])
        for interface in self.interfaces.values():
            if interface["vrf"] == name:
                interface["vrf"] = None

    def delete_vrf(self):
        name = self.pick(self.vrfs)
        if len(self.vrfs) < 3 and self.chance(60):
            raise Impossible
        self.forget_vrf(name)
        return [f"link del {name}"]

    def recreate_vrf(self):
        """Deletes and creates a VRF: with another table, another index, with its members or without."""
        name = self.pick(self.vrfs)
        members = [each for each, it in self.interfaces.items() if it["vrf"] == name]
        index, table = self.vrfs[name]["index"], self.vrfs[name]["table"]
        self.forget_vrf(name)
        self.free_indexes.remove(index)
        if self.chance(50):
            self.free_indexes.append(index)
            index = self.new_index()
        lines = [f"link del {name}"] + self.make_vrf(name, index, table if self.chance(40) else self.new_table())
        for member in members:
            if self.chance(60):
                self.interfaces[member]["vrf"] = name
                lines.append(f"link set {member} master {name}")
        return lines

    def move_vrf_name(self, old, new):
        self.vrfs[new] = self.vrfs.pop(old)
        for interface in self.interfaces.values():
            if interface["vrf"] == old:
                interface["vrf"] = new
        return [f"link set {old} down", f"link set {old} name {new}"]

    def rename_vrf(self):
        old, new = self.pick(self.vrfs), self.unused(VRF_NAMES, [*self.vrfs, *self.interfaces])
        return self.move_vrf_name(old, new) + [f"link set {new} up"]

    def swap_vrfs(self):
        one, two = self.pick_two(self.vrfs)
        lines = self.move_vrf_name(one, "tmp") + self.move_vrf_name(two, one) + self.move_vrf_name("tmp", two)
        return lines + [f"link set {one} up", f"link set {two} up"]

    def flap_vrf(self):
        name = self.pick(self.vrfs)
        return [f"link set {name} down"] + ([f"link set {name} up"] if self.chance(90) else [])

    def describe_vrf(self):
        name = self.pick(self.vrfs)
        text = self.random.choice(("", "Red Rail", "customer 4711, branch", "x"))
        return [f"link set {name} up", f'link set {name} alias "{text}"']

    # --- Interfaces ---

    def make_interface(self, name, index):
        number = self.random.randrange(8)
        interface = {"index": index, "vrf": None, "up": self.chance(85), "number": number}
        lines = [f"link add {name} index {index} type dummy"]
        if self.chance(20):
            lines = [f"link add {name} index {index} type veth peer name q{index} index {index + 1000}",
                     f"link set q{index} up"]
        elif self.chance(15) and self.makes_bridges:
            lines = [f"link add {name} index {index} type bridge"]
        enslave = []
        if self.vrfs and self.chance(80):
            interface["vrf"] = self.pick(self.vrfs)
            enslave = [f"link set {name} master {interface['vrf']}"]
        up = [f"link set {name} up"] if interface["up"] else []
        address = [self.address_line("add", name, interface)] if self.chance(70) else []
        parts = [enslave, up, address]
        self.random.shuffle(parts)
        self.interfaces[name] = interface
        return lines + [line for part in parts for line in part]

    def add_interface(self):
        name = self.unused(INTERFACE_NAMES, [*self.interfaces, *self.vrfs])
        return self.make_interface(name, self.new_index())

    def delete_interface(self):
        name = self.pick(self.interfaces)
        if len(self.interfaces) < 4 and self.chance(60):
            raise Impossible
        self.free_indexes.append(self.interfaces.pop(name)["index"])
        return [f"link del {name}"]

    def recreate_interface(self):
        """Deletes and creates an interface under its old name, its old index or both."""
        name = self.pick(self.interfaces)
        new_name = self.unused(INTERFACE_NAMES, [*self.interfaces, *self.vrfs]) if self.chance(35) else name
        new_index = index = self.interfaces.pop(name)["index"]
        if new_name == name and self.chance(70):
            new_index = self.new_index()
            self.free_indexes.append(index)
        return [f"link del {name}"] + self.make_interface(new_name, new_index)

    def rename_interface(self):
        old, new = self.pick(self.interfaces), self.unused(INTERFACE_NAMES, [*self.interfaces, *self.vrfs])
        interface = self.interfaces[new] = self.interfaces.pop(old)
        return [f"link set {old} down", f"link set {old} name {new}"] + ([f"link set {new} up"] if interface["up"] else [])

    def swap_interfaces(self):
        one, two = self.pick_two(self.interfaces)
        self.interfaces[one], self.interfaces[two] = self.interfaces[two], self.interfaces[one]
        lines = [f"link set {one} down", f"link set {two} down", f"link set {one} name tmp", f"link set {two} name {one}",
                 f"link set tmp name {two}"]
        return lines + [f"link set {name} up" for name in (one, two) if self.interfaces[name]["up"]]

    def swap_indexes(self):
        """Creates two interfaces again, each with the other's index."""
        one, two = self.pick_two(self.interfaces)
        first, second = self.interfaces[one]["index"], self.interfaces[two]["index"]
        return [f"link del {one}", f"link del {two}"] + self.make_interface(one, second) + self.make_interface(two, first)

    def move_interface(self):
        name, vrf = self.pick(self.interfaces), self.pick(self.vrfs)
        self.interfaces[name]["vrf"] = vrf
        return [f"link set {name} master {vrf}"]

    def leave_vrf(self):
        name = self.pick(self.interfaces)
        self.interfaces[name]["vrf"] = None
        return [f"link set {name} nomaster"]

    def set_link(self):
        name = self.pick(self.interfaces)
        up = self.interfaces[name]["up"] = self.chance(60)
        return [f"link set {name} {'up' if up else 'down'}"]

    def flap_interface(self):
        name = self.pick(self.interfaces)
        return [f"link set {name} down", f"link set {name} up"] * self.random.choice((1, 1, 3))

    def set_carrier(self):
        """Changes the carrier of a dummy; for a veth pair sets the other end down."""
        name = self.pick(self.interfaces)
        state = self.random.choice(("on", "on", "off"))
        peer = f"q{self.interfaces[name]['index']}"
        return [f"link set {name} carrier {state}", f"link set {peer} {'up' if state == 'on' else 'down'}"]

    # --- Addresses ---

    def address_line(self, verb, name, interface):
        number = self.random.choice((interface["number"], interface["number"], self.random.randrange(8)))
        if self.chance(65):
            return f"addr {verb} 10.{number}.0.{self.random.randrange(1, 3)}/24 dev {name}"
        nodad = " nodad" if verb == "add" else ""
        return f"addr {verb} 2001:db8:{number}::{self.random.randrange(1, 3)}/64 dev {name}{nodad}"

    def change_address(self):
        name = self.pick(self.interfaces)
        if self.chance(10):
            return [f"addr flush dev {name}"]
        return [self.address_line("add" if self.chance(65) else "del", name, self.interfaces[name])]

    # --- Processes ---

    def kill(self):
        process = self.random.choice(("daemon", "agent", "snmpd"))
        self.dead.append(process)
        return [f"kill {process}"]

    def start_dead(self):
        """The steps that start what an earlier operation of the batch killed."""
        dead, self.dead = self.dead, []
        return [f"start {process}" for process in dead]

    # --- Batches ---

    WEIGHTS = (
        ("add_vrf", 6), ("delete_vrf", 3), ("recreate_vrf", 3), ("rename_vrf", 3), ("swap_vrfs", 2), ("flap_vrf", 1),
        ("describe_vrf", 2), ("add_interface", 10), ("delete_interface", 5), ("recreate_interface", 6), ("rename_interface", 4),
        ("swap_interfaces", 3), ("swap_indexes", 3), ("move_interface", 8), ("leave_vrf", 3), ("set_link", 7),
        ("flap_interface", 3), ("set_carrier", 2), ("change_address", 9), ("change_route", 22), ("change_multipath", 5),
        ("change_object", 5), ("route_by_object", 5), ("change_labels", 3), ("flush_table", 1), ("kill", 1),
    )

    def operation(self):
        names, weights = zip(*self.weights)
        while True:
            name = self.random.choices(names, weights)[0]
            with contextlib.suppress(Impossible):
                return [step if step.split()[0] in OWN_TOOLS else f"ip {step}" for step in getattr(self, name)()]

    def batch(self):
        size = self.random.choice((1, 8, 20, 40, 60, 60, 80, 100))
        operations = [self.operation() for _ in range(size)]
        if self.dead:
            operations.append(self.start_dead())
            operations += [self.operation() for _ in range(self.random.randrange(3))]
        return operations
