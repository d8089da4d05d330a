"""What uses the system meanwhile, each in a process of its own: a walker of all tables, users and managers who measure how long
they wait. They report to a queue: ("request" | "cli" | "snmp", seconds or None when there was no answer) and
("rows", rows of a part of a walk), ("walk", (seconds, rows)), ("error", why a walk failed)."""
import contextlib
import itertools
import multiprocessing
import os
import signal
import subprocess
import time

from hostile import ROOT
from snmp_client import END_OF_MIB_VIEW, SnmpClient
from system import BIN, ROOT_OID, ROUTE_ENTRY, SCALARS, VRF_ENTRY, name_index, oid_tuple
from wire import Client

fork = multiprocessing.get_context("fork")
READERS = (("show", "status"), ("show", "vrf"), ("show", "interfaces"), ("config", "history"), ("--json", "show", "scalars"))
PATIENCE = 30.0  # seconds that a client waits for an answer
OTHERS = [ROOT_OID + (1, part) for part in (1, 2, 3)]  # all but the routes
ROUTE_COLUMNS = range(7, 19)
PART = 500       # rows of a walk between two reports
AGAIN = 600      # times that a walker asks for the same rows, once a second


class Clients:
    def __init__(self, system, vrfs):
        self.queue, self.processes = fork.SimpleQueue(), []
        main, oid = system.folder / "run/dev.mpls.vpn.main", VRF_ENTRY + (4,) + name_index(vrfs[0].name)
        commands = READERS + (("show", "routes", vrfs[-1].name, str(vrfs[-1].connected())),)
        for work in (lambda: measure("request", lambda: request(main), 0.1),
                     lambda: measure("cli", lambda words=itertools.cycle(commands): run(system, next(words)), 1.0),
                     lambda: manage(system.port, itertools.cycle((oid_tuple(SCALARS + ".1.0"), oid))),
                     lambda: walk(system.port)):
            self.processes.append(fork.Process(target=self.work, args=(work,), daemon=True))
            self.processes[-1].start()

    def work(self, work):
        signal.signal(signal.SIGTERM, signal.SIG_DFL)
        for report in work():
            self.queue.put(report)

    def reports(self):
        """What they reported since the last call."""
        while not self.queue.empty():
            yield self.queue.get()

    def end(self):
        for process in self.processes:
            process.kill()
            process.join()


def measure(kind, ask, every):
    """Asks at these times, and at once if the last answer took longer."""
    while True:
        start = time.monotonic()
        try:
            ask()
            yield kind, time.monotonic() - start
        except (OSError, RuntimeError, AssertionError, subprocess.SubprocessError):
            yield kind, None
        time.sleep(max(0.0, start + every - time.monotonic()))


def request(main):
    """What a program does that shows the scalars once."""
    with Client(main, PATIENCE) as client:
        assert client.get(ROOT + "scalars") is not None


def run(system, words):
    subprocess.run([BIN / "mplsvpn", "--timeout", str(int(1000 * PATIENCE)), *words], env=system.environment, check=True,
                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=PATIENCE)


def manage(port, oids):
    with contextlib.closing(SnmpClient(port, PATIENCE)) as client:
        yield from measure("snmp", lambda: client.get(next(oids)), 0.1)


def walk(port):
    """Walks all tables again and again, of the routes another column each time, with lower priority than the others."""
    os.nice(5)
    columns = itertools.cycle(ROUTE_COLUMNS)
    with contextlib.closing(SnmpClient(port, PATIENCE)) as client:
        while True:
            start, rows = time.monotonic(), 0
            try:
                for root in (*OTHERS, ROUTE_ENTRY + (next(columns),)):
                    for _ in walk_rows(client, root):
                        rows += 1
                        if rows % PART == 0:
                            yield "rows", PART
                yield "rows", rows % PART
                yield "walk", (time.monotonic() - start, rows)
            except (AssertionError, TimeoutError) as error:
                yield "error", str(error)
            time.sleep(1.0)


def walk_rows(client, root):
    """The names of the rows below the root; an AssertionError if an OID does not increase."""
    oid = root
    while True:
        for name, tag, _ in ask(client, oid):
            if tag == END_OF_MIB_VIEW or name[:len(root)] != root:
                return
            assert oid < name, f"OID not increasing: {name} after {oid}"
            oid = name
            yield name


def ask(client, oid):
    """The next rows. A busy snmpd may answer with an error: the manager asks again."""
    for _ in range(AGAIN):
        with contextlib.suppress(TimeoutError, RuntimeError):
            return client.get_bulk(oid, 50)
        time.sleep(1.0)
    raise TimeoutError(f"no rows after {oid}")
