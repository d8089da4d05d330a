"""The rules that what the system shows must keep, whatever is done to its processes. Nothing here reads a clock or a process:
checks_test.py breaks each rule once."""
import statistics

from system import ROOT_OID, dotted

MOST_SHOWN = 5
GROWTH_PART, GROWTH_KIB = 0.2, 4096  # by which a process's memory may grow over a run
WARM_UP = 600.0                      # seconds until histories, caches and queues have their size


def some(items):
    items = list(items)
    return f"{len(items)}: {', '.join(map(str, items[:MOST_SHOWN]))}"


def walk_errors(rows, lasting, may_be_cut):
    """`lasting` are the OIDs that exist all the time. A walk ended early if the master agent lost its sub-agent meanwhile."""
    found = [f"OID {dotted(after)} follows {dotted(before)}"
             for (before, _), (after, _) in zip(rows, rows[1:]) if not before < after]
    missing = () if may_be_cut else sorted(lasting - {oid for oid, _ in rows})
    if missing:
        found.append(f"a walk of {len(rows)} objects lacks {some(dotted(oid[len(ROOT_OID):]) for oid in missing)}")
    return found


class Times:
    """The times of VRFs that no one changes, from the first reading on."""

    def __init__(self, vrfs):
        self.vrfs, self.first = vrfs, {}

    def errors(self, rows):
        """`rows`: {VRF: row} with all VRFs."""
        found = []
        for vrf in self.vrfs:
            row = rows.get(vrf)
            if row is None:
                found.append(f"no row of {vrf}")
                continue
            times = row["creationTime"], row["confLastChanged"]
            first = self.first.setdefault(vrf, times)
            if times != first:
                found.append(f"{vrf} was created and changed at {first}, now {times}")
        return found


class Commits:
    """Numbered commits, each of which sets the same items to its number. The number that is read is that of the last
    acknowledged commit or a later one; one whose outcome is not known may be effective as well."""

    def __init__(self):
        self.submitted, self.ended, self.acknowledged, self.unknown = 0, 0, 0, set()

    def begin(self):
        self.submitted += 1
        return self.submitted

    def end(self, number, succeeded):
        self.ended += 1
        if succeeded:
            self.acknowledged = number
        else:
            self.unknown.add(number)

    def settle(self):
        """No commit is still on its way to the daemon."""
        self.unknown.clear()

    def look(self):
        """What the values of a reading that starts now may be, for `errors` after it."""
        return self.submitted, self.ended, self.acknowledged, set(self.unknown)

    def errors(self, look, numbers):
        """A reading may consist of several requests, between which a commit may become effective."""
        submitted, ended, acknowledged, unknown = look
        if submitted == ended == self.submitted and len(set(numbers)) != 1:
            return [f"a commit is effective in part: {len(set(numbers))} of {some(numbers)}"]
        return [f"commit {number} is effective, {acknowledged} was acknowledged, {self.submitted} is the last"
                for number in sorted(set(numbers)) if not acknowledged <= number <= self.submitted and number not in unknown]


class Traps:
    """Every trap is unique. Those of a daemon's life arrive in order and once, except that those which no one has acknowledged
    are repeated after a disturbance of the sub-agent or snmpd, and that a full queue loses and counts the oldest."""

    def __init__(self):
        self.place, self.arrived, self.last = {}, {}, -1
        self.pending = {}     # those of this life that have not arrived: whether their change was confirmed
        self.last_certain = -1
        self.counted = 0      # as lost, of those that have been accounted for
        self.is_counting_later = False  # the next daemon counts what the last one lost

    def submit(self, trap):
        """The change that raises the trap is requested."""
        self.place[trap] = len(self.place)
        self.pending[trap] = False

    def confirm(self, trap):
        """The change was made."""
        self.last_certain = max(self.last_certain, self.place[trap])
        if trap in self.pending:
            self.pending[trap] = True

    def receive(self, trap, when, repeats_since):
        """`repeats_since(first)`: whether a trap that arrived then may arrive again."""
        if trap not in self.place:
            return [f"trap {trap} has no cause"]
        if trap in self.arrived:
            return [] if repeats_since(self.arrived[trap]) else [f"trap {trap} arrived twice"]
        self.arrived[trap] = when
        self.pending.pop(trap, None)
        if self.place[trap] < self.last:
            return [f"trap {trap} arrived after a later one"]
        self.last = self.place[trap]
        return []

    def missing(self, until):
        """The certain traps up to this place that have not arrived in this life."""
        return [trap for trap, certain in self.pending.items() if certain and self.place[trap] <= until]

    def settle(self, mark, counted):
        """All traps up to the mark, a former `last_certain`, have had their time to arrive; `counted` were reported as lost
        since the first life."""
        return self.account(self.missing(mark), counted, is_exact=True)

    def end_life(self, counted, is_losing=False, is_stored=True):
        """The daemon has ended. The next one delivers what is pending, if it could be stored, but nothing that precedes what has
        arrived. `is_losing`: its queue was full, and it had not counted yet."""
        found = self.account(self.missing(self.last), counted, is_exact=False)
        self.pending = {trap: True for trap, certain in self.pending.items() if certain and is_stored and not is_losing}
        self.is_counting_later = is_losing
        return [] if is_losing else found

    def account(self, missing, counted, is_exact):
        lost, self.counted = counted - self.counted, counted
        for trap in missing:
            del self.pending[trap]
        is_right = len(missing) == lost if is_exact else len(missing) <= lost
        if is_right or (is_exact and self.is_counting_later and not missing):
            self.is_counting_later = False
            return []
        return [f"{len(missing)} traps did not arrive, {lost} were counted as lost: {missing[:MOST_SHOWN]}"]


class Memory:
    """Resident memory of processes at equal points."""

    def __init__(self):
        self.samples = {}  # name: [(seconds, process id, KiB)]

    def add(self, name, seconds, process, kib):
        self.samples.setdefault(name, []).append((seconds, process, kib))

    def slopes(self):
        """{name: KiB per hour}, of the line through all points, and of the process that lived longest."""
        shown = {}
        for name, samples in self.samples.items():
            lives = {}
            for sample in samples:
                lives.setdefault(sample[1], []).append(sample)
            longest = max(lives.values(), key=lambda life: life[-1][0] - life[0][0])
            shown[name] = slope(samples), slope(longest), longest[-1][0] - longest[0][0]
        return shown

    def errors(self):
        """The last third of the points against the first, after the warm-up."""
        found = []
        for name, samples in self.samples.items():
            sizes = [kib for seconds, _, kib in samples if seconds > WARM_UP]
            third = len(sizes) // 3
            if third < 5:
                continue
            first, last = map(statistics.median, (sizes[:third], sizes[-third:]))
            if last > first * (1 + GROWTH_PART) + GROWTH_KIB:
                found.append(f"{name} grew from {first:.0f} to {last:.0f} KiB")
        return found


def slope(samples):
    if len({seconds for seconds, _, _ in samples}) < 2:
        return 0.0
    return 3600 * statistics.linear_regression([each[0] for each in samples], [each[2] for each in samples]).slope
