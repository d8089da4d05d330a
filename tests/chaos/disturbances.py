"""What is done to the system. Each is a context manager that takes the rig and a random generator, disturbs on entry and ends
the disturbance on exit; the names that it is recorded under in the journal are what users may miss meanwhile."""
import contextlib
import os
import resource
import signal

YEAR = 365 * 86400
CLOCK_STEPS = (1, -1, 3600, -3600, 86400, -86400, YEAR, -YEAR, 13 * YEAR, -20 * YEAR)  # 13: beyond 2^31 seconds


@contextlib.contextmanager
def kill(rig, rng, name):
    number = rng.choice((signal.SIGKILL, signal.SIGKILL, signal.SIGTERM))
    rig.journal.note(f"{signal.Signals(number).name} to {name}")
    rig.end_program(name, number)
    yield
    rig.restart(name)
    rig.journal.note(f"{name} is started")


@contextlib.contextmanager
def stop(rig, rng, name):
    rig.journal.note(f"SIGSTOP to {name}")
    rig.signal(name, signal.SIGSTOP)
    try:
        yield
    finally:
        rig.signal(name, signal.SIGCONT)
        rig.journal.note(f"SIGCONT to {name}")


@contextlib.contextmanager
def limit_memory(rig, rng, name):
    if rig.pid(name) is None:
        yield
        return
    more = rng.choice((0, 256 << 10, 1 << 20, 4 << 20))
    rig.journal.note(f"{name} gets {more} more octets of memory")
    rig.limit_memory(name, rig.address_space(name) + more)
    try:
        yield
    finally:
        rig.limit_memory(name, resource.RLIM_INFINITY)
        rig.journal.note(f"{name} gets all the memory")


@contextlib.contextmanager
def fill(rig, rng, folder):
    """Takes all but some octets of the file system."""
    name = rig.folder / folder / "filler"
    left = rng.choice((0, 0, 4096, 65536))
    rig.journal.note(f"the file system of {folder} has {left} octets left")
    filler = os.open(name, os.O_WRONLY | os.O_CREAT)
    try:
        with contextlib.suppress(OSError):
            while os.write(filler, bytes(4096)):
                pass
        os.truncate(filler, max(0, os.fstat(filler).st_size - left))
    finally:
        os.close(filler)
    try:
        yield
    finally:
        name.unlink()
        rig.journal.note(f"the file system of {folder} has room")


@contextlib.contextmanager
def step_clock(rig, rng):
    seconds = rng.choice((0, *CLOCK_STEPS))
    rig.step_clock(seconds)
    rig.journal.note(f"the clock is {seconds} s ahead")
    yield


@contextlib.contextmanager
def flood(rig, rng):
    """More traps than queues can store."""
    rig.journal.note("traps as fast as possible")
    rig.flapper.fast.set()
    try:
        yield
    finally:
        rig.flapper.fast.clear()
        rig.journal.note("traps as usual")


@contextlib.contextmanager
def large_commit(rig, rng):
    rig.journal.note("a large commit")
    rig.large_commits.wanted.set()
    yield


class Disturbance:
    """`weight`: how often it is drawn; `disturbs`: what it is recorded under."""

    def __init__(self, weight, name, function, *arguments, disturbs=(), fatal=False, without_sanitizers=False):
        self.weight, self.name, self.function, self.arguments = weight, name, function, arguments
        self.disturbs = disturbs
        self.fatal = fatal  # a program may end of it
        self.without_sanitizers = without_sanitizers

    def ends(self, program):
        return self.function is kill and program in self.arguments

    def target(self):
        """Two with the same target are not combined."""
        return self.arguments or (self.name,)

    def __call__(self, rig, rng):
        return self.function(rig, rng, *self.arguments)


def table(programs, suite_programs):
    found = []
    for name in programs:
        of_suite = name in suite_programs
        disturbs = ("suite", name) if of_suite else (name,)
        found += [Disturbance(1 if of_suite else 4, f"kill {name}", kill, name, disturbs=disturbs),
                  Disturbance(1 if of_suite else 3, f"stop {name}", stop, name, disturbs=disturbs)]
    for name in ("daemon", "agent"):
        found.append(Disturbance(2, f"limit memory of {name}", limit_memory, name, disturbs=(name,), fatal=True,
                                 without_sanitizers=True))
    found += [Disturbance(3, "fill state directory", fill, "state", disturbs=("state directory",), fatal=True),
              Disturbance(2, "fill run directory", fill, "run", disturbs=("run directory",), fatal=True),
              Disturbance(4, "step clock", step_clock, without_sanitizers=True),
              Disturbance(4, "large commit", large_commit),
              Disturbance(1, "flood of traps", flood)]
    return found
