"""Waits until the system agrees with the model, and reports the differences if it does not."""
import itertools
import random
import time

from kernel import Kernel
from live_suite import PROTOCOL_PROGRAMS
from model import RD, TARGET, VRF, Model
from shown import walk_mib
from system import SLOW, dotted, name_and_rest

MOST_SHOWN = 12
ROUTE_VIEWS = 2
# Seconds before each comparison, which takes a second of the guest's only processor. The daemon reads from the suite each second.
PAUSES = (0.1, 0.2, 0.5, 1.0)
SUITE_PAUSES = (1.2, 1.0, 1.5, 2.0)
# Programs of the suite that may have missed an event, and seconds, times SLOW, until they are restarted. Items that a program
# no longer has then stay in the MIB for 10 s.
RESTARTS = ((3.0, PROTOCOL_PROGRAMS), (12.0, ("zebra",)))
PROTOCOLS_COLUMN = "1.2.1.1.3 "
FAMILIES = {b"IPv4 Unicast": 4, b"IPv6 Unicast": 6}


def cell_errors(expected, seen):
    seen = {key: value for key, value in seen.items() if key[0][:4] != TARGET}
    differing = [key for key in {**expected, **seen} if key not in expected or key not in seen or expected[key] != seen[key]]
    return [f"{dotted(column)} [{readable(index)}]: expected {expected.get(column_index, 'no row')!r}, "
            f"shown {seen.get(column_index, 'no row')!r}" for column_index in sorted(differing) for column, index in [column_index]]


def target_errors(model, cells):
    """The route target table: rows numbered from 1 in each VRF, in an order that is not fixed. Those of VRFs that are only
    configured are not compared."""
    rows = {}
    for (column, index), value in cells.items():
        if column[:4] == TARGET and vrf_of(index) in model.vrfs:
            rows.setdefault(index, {})[column[4]] = value
    seen = {(vrf_of(index), index[-1], FAMILIES.get(row.get(5)), row.get(4, b"").decode())
            for index, row in rows.items()}  # a row may be added during the walk
    seen = set(filter(model.is_stated, seen))
    expected = model.suite.targets
    numbers = sorted((vrf_of(index), index[-2]) for index in rows)
    counted = [(vrf, number) for vrf, group in itertools.groupby(numbers, lambda each: each[0])
               for number, _ in enumerate(group, 1)]
    found = [f"route targets: only one has {sorted(seen ^ expected, key=repr)}"] if seen != expected else []
    return found + ([f"route targets are numbered {numbers}"] if numbers != counted else [])


def shown_rds(cells):
    """{VRF: RD}"""
    return {vrf_of(index): value.decode() for (column, index), value in cells.items() if column == (*VRF, RD)}


def vrf_of(index):
    return name_and_rest(index)[0]


def readable(index):
    """ "red".1.4... """
    length = index[0]
    if 0 < length < 16 and len(index) > length:
        name = bytes(index[1:1 + length]).decode(errors="replace")
        return dotted([f'"{name}"', *index[1 + length:]])
    return dotted(index)


def view_errors(model, command_line, targets, vrfs):
    """The command line's tables; routes of some VRFs only, because each is a process."""
    found = []
    scalars = (len(model.vrfs), len(model.active_vrfs()), len(model.members))
    members = {key: link["ifname"] for key, link in model.members.items()}
    for what, expected, seen in (("show scalars", scalars, command_line.scalars()),
                                 ("show interfaces", members, command_line.interfaces()),
                                 ("corrections of routes", 0, command_line.corrections()),
                                 ("malformed messages", 0, command_line.malformed_messages()),
                                 ("show route-targets", model.suite.targets, set(filter(model.is_stated, targets)))):
        if expected != seen:
            found.append(f"{what}: expected {expected}, shown {seen}")
    for vrf in vrfs:
        seen = command_line.routes(vrf)
        if model.route_keys(vrf) != seen:
            found.append(f"show routes {vrf}: only one has {sorted(model.route_keys(vrf) ^ seen)}")
    return found


class Comparison:
    """One system over its batches."""

    def __init__(self, rig, times):
        self.rig, self.times = rig, times
        self.model = None
        self.seen = [], set()  # changes since the last batch, and route targets as shown, of the suite's probes, too
        self.batches = 0

    def errors(self, touched, began, restarted, bound):
        """Polls until everything agrees; returns the last differences otherwise."""
        deadline = time.monotonic() + bound * SLOW
        restarts = [(time.monotonic() + after * SLOW, programs) for after, programs in RESTARTS if self.rig.live]
        pauses = SUITE_PAUSES if self.rig.live else PAUSES
        for pause in itertools.chain(pauses, itertools.repeat(pauses[-1])):
            time.sleep(pause)
            found = self.look()
            if not found:
                return self.final_errors(touched, began, restarted)
            if time.monotonic() > deadline:
                return found[:MOST_SHOWN]
            if restarts and time.monotonic() > restarts[0][0] and all(each.startswith(PROTOCOLS_COLUMN) for each in found):
                self.rig.live.restart(*restarts.pop(0)[1])
        raise AssertionError("there is always another pause")

    def look(self):
        kernel = Kernel()
        if not kernel.is_settled():
            return ["the kernel still checks an address"]
        try:
            self.model = Model(kernel, self.rig.suite_says(kernel))
            cells = walk_mib(self.rig.system.port)
            found = cell_errors(self.model.cells(), cells) + target_errors(self.model, cells)
        except (RuntimeError, TimeoutError, ConnectionError) as failure:
            self.rig.start_all()
            return [f"no answer: {failure}"]
        return found or self.rig.trap_errors(self.model.active_vrfs()) or self.other_errors(cells)

    def other_errors(self, cells):
        """Changes are compared with the values shown, because the suite does not state all of them."""
        events = self.rig.new_changes()
        targets = self.rig.command_line.targets()
        found = view_errors(self.model, self.rig.command_line, targets, self.some_vrfs())
        if not found and events != self.rig.new_changes():
            return ["RDs or route targets change"]
        self.seen = events, targets
        return found or self.rig.changes.errors(events, shown_rds(cells), targets)

    def some_vrfs(self):
        """Different ones in every batch."""
        names = sorted(self.model.vrfs)
        return random.Random(self.batches).sample(names, min(ROUTE_VIEWS, len(names)))

    def final_errors(self, touched, began, restarted):
        self.batches += 1
        self.rig.accept_traps()
        self.rig.accept_changes(*self.seen)
        return self.times.errors(self.model, self.rig.command_line.vrfs(), touched, began, restarted)
