"""Hostile clients of the daemon: each class is a program that a local user without rights could run to take the daemon from the
others. They read only what the kernel makes them read and reconnect when they are closed, so that the daemon does the work."""
import collections
import contextlib
import functools
import itertools
import random
import selectors
import socket
import struct
import time

from wire import ACTION, ANSWER, GET, MAGIC, VERSION, Client, text

DATALIST, WALK, SUBSCRIBE, NODES, STAGE, COMMIT, HISTORY, COMMIT_CHANGES = 3, 4, 6, 9, 0xb, 0xc, 0xd, 0xe
DEBUG_LIST, DEBUG_SET, DEBUG_WATCH = 1, 2, 3
ROOT = "/oper/mpls_vpn/gl/"
MANY = 70  # connections: more than the daemon has slots
CHUNK = 64 << 10


def frame(kind, payload, request=1):
    return struct.pack("<4sHHII", MAGIC, VERSION, kind, request, len(payload)) + payload


def commit(comment):
    """The payload of a commit that needs no confirmation."""
    return struct.pack("<I", 0) + text(comment)


def get(path):
    return frame(GET, b"\0" + text(ROOT + path))


def rows(kind, path, most=1000):
    return frame(kind, struct.pack("<BI", 0, most) + text(ROOT + path))


def repeated(*requests):
    """As many of these requests as one write takes."""
    octets = b"".join(requests)
    return octets * max(1, CHUNK // len(octets))


class Hostile:
    """One program. `run` works until `is_over()`; `counts` is what it could do."""
    connections = 1
    reads = True      # its answers
    octets = CHUNK    # of one write
    pause = 0.0       # seconds between two writes of a connection
    lifetime = None   # seconds after which it closes a connection

    def __init__(self, main, debug):
        self.main, self.debug, self.path = str(main), str(debug), str(main)
        self.counts = collections.Counter()
        self.selector = selectors.DefaultSelector()
        self.buffer = bytearray(1 << 20)

    def input(self):
        """What a new connection sends: an iterator of octets. It sends nothing more after the end."""
        raise NotImplementedError

    def is_ready(self):
        """Whether the measurement may begin."""
        return self.counts["opened"] + self.counts["refused"] >= self.connections

    def run(self, is_over, ready=lambda: None):
        next_open, is_announced = 0.0, False
        while not is_over():
            now = time.monotonic()
            if now >= next_open and len(self.selector.get_map()) < self.connections and not self.open(now):
                next_open = now + 0.01
            if not is_announced and self.is_ready():
                is_announced = True
                ready()
            wait = 0 if len(self.selector.get_map()) < self.connections and now >= next_open else 0.01
            for key, events in self.selector.select(wait):
                self.serve(key.data, events)
            self.end_old(time.monotonic())
        for key in list(self.selector.get_map().values()):
            key.data.socket.close()
        return dict(self.counts)

    def open(self, now):
        peer = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM | socket.SOCK_NONBLOCK)
        try:
            peer.connect(self.path)
        except OSError:
            self.counts["refused"] += 1
            peer.close()
            return False
        self.counts["opened"] += 1
        self.selector.register(peer, selectors.EVENT_WRITE, Peer(peer, self.input(), now))
        self.watch(self.selector.get_key(peer).data)
        return True

    def close(self, peer, why):
        self.counts[why] += 1
        self.selector.unregister(peer.socket)
        peer.socket.close()

    def end_old(self, now):
        """Closes connections at the end of their lifetime, and lets those write whose pause is over."""
        if self.lifetime is None and not self.pause:
            return
        for peer in [key.data for key in self.selector.get_map().values()]:
            if self.lifetime is not None and now - peer.opened > self.lifetime:
                self.close(peer, "left")
            elif self.pause and now >= peer.next_write:
                self.watch(peer)

    def watch(self, peer, writes=True):
        reads = selectors.EVENT_READ if self.reads else 0
        self.selector.modify(peer.socket, reads | (selectors.EVENT_WRITE if writes else 0), peer)

    def serve(self, peer, events):
        try:
            if events & selectors.EVENT_READ:
                size = peer.socket.recv_into(self.buffer)
                if size == 0:
                    return self.close(peer, "closed by the daemon")
                self.counts["octets read"] += size
            if events & selectors.EVENT_WRITE:
                self.write(peer)
        except BlockingIOError:
            pass
        except OSError:
            self.close(peer, "closed by the daemon")

    def write(self, peer):
        if not peer.waiting:
            peer.waiting = memoryview(next(peer.input, b""))
            if not peer.waiting:
                return self.watch(peer, writes=False)
        peer.waiting = peer.waiting[peer.socket.send(peer.waiting[:self.octets]):]
        if self.pause:
            peer.next_write = time.monotonic() + self.pause
            self.watch(peer, writes=False)


class Peer:
    """One connection."""

    def __init__(self, connected, octets, now):
        self.socket, self.input, self.opened, self.next_write = connected, iter(octets), now, now
        self.waiting = memoryview(b"")


class PipelinedScalars(Hostile):
    """One connection never stops asking for what the daemon counts."""

    def input(self):
        return itertools.repeat(repeated(get("scalars")))


class PipelinedScalarsEverywhere(PipelinedScalars):
    """The same on as many connections as there are slots."""
    connections = 60


class FilteredLists(Hostile):
    """Lists that look at every VRF and find none."""
    connections = 8

    def input(self):
        return itertools.repeat(repeated(rows(DATALIST, "vrf-invalid-detail"), rows(DATALIST, "vrf-detail-filter/-/2/2")))


class WholeTables(Hostile):
    """Pages of a thousand rows, from the beginning again and again."""
    connections = 8

    def input(self):
        return itertools.repeat(repeated(rows(DATALIST, "vrf-detail"), rows(WALK, "interface-next/customer-00001/1"),
                                         rows(WALK, "vrf-next/customer-00001")))


class NextRoutes(Hostile):
    """The first route of all VRFs, and the routes that follow it. Without routes each request looks at every VRF."""
    connections = 8

    def input(self):
        first = "route-next/customer-00001/1/0/1/0/0"
        return itertools.repeat(repeated(get(first), rows(WALK, first)))


class NodesOfAnOwner(Hostile):
    """The configuration of an owner that has none. The daemon looks at everybody's."""
    connections = 8

    def input(self):
        return itertools.repeat(repeated(frame(NODES, struct.pack("<I", 1000) + text("/cfg/") + text("") + text("frr"))))


class RouterShows(Hostile):
    """The router of a router file, as text, as a whole and by VRF. The daemon looks at every interface."""
    connections = 8

    def input(self):
        def show(*words):
            return frame(ACTION, struct.pack("<H", 2 + len(words)) + b"".join(map(text, ("router", "show", *words))))

        return itertools.repeat(repeated(show(), show("customer-05000")))


class HistoryPages(Hostile):
    """One change per page of the largest commit."""
    connections = 4

    @functools.cached_property
    def largest_commit(self):
        with Client(self.main) as client:
            _, answer = client.ask(HISTORY, struct.pack("<I", 100) + text(""))
        found, at = [], 4
        for _ in range(struct.unpack_from("<I", answer)[0]):
            texts = []
            for skip in (8, 0, 4):  # id and time, owner, comment and the number of changes
                length = struct.unpack_from("<I", answer, at)[0]
                texts.append(answer[at + 4:at + 4 + length].decode())
                at += 4 + length + skip
            found.append((struct.unpack_from("<I", answer, at - 4)[0], texts[0]))
        return max(found)[1]

    def input(self):
        return itertools.repeat(repeated(*(frame(COMMIT_CHANGES, text(self.largest_commit) + struct.pack("<II", first, 1))
                                           for first in range(0, 4000, 7))))


class HalfHeaders(Hostile):
    """Connections that begin a message and never finish it, on every slot."""
    connections = MANY

    def input(self):
        yield get("scalars")[:9]


class SilentDebugClients(Hostile):
    """Connections to the debug socket that say nothing."""
    connections = MANY

    def __init__(self, main, debug):
        super().__init__(main, debug)
        self.path = self.debug

    def input(self):
        return iter(())


class DebugWatchers(Hostile):
    """Watchers of the debug flags that list them without end; one does not read."""
    connections = 12

    def __init__(self, main, debug):
        super().__init__(main, debug)
        self.path = self.debug

    def input(self):
        refused = frame(DEBUG_SET, text("all") + b"\1")  # this user may not
        return itertools.chain([frame(DEBUG_WATCH, b"")], itertools.repeat(repeated(frame(DEBUG_LIST, b""), refused)))


class SlowReaders(Hostile):
    """Connections that ask for large answers and never read."""
    connections = 60
    reads = False

    def input(self):
        return itertools.repeat(repeated(rows(DATALIST, "vrf-detail")))


class SlowSenders(Hostile):
    """Messages of one octet a second, on every slot."""
    connections = MANY
    octets = 1
    pause = 1.0

    def input(self):
        return itertools.repeat(frame(STAGE, bytes(60000)))


class SubscriptionFlood(Hostile):
    """Every connection subscribes to everything, and asks for more."""
    connections = 60
    lifetime = 0.5

    def input(self):
        return itertools.repeat(repeated(frame(SUBSCRIBE, text("/oper/") + text("")),
                                         frame(SUBSCRIBE, text("/oper/mpls_vpn/gl/") + text("mpls_vpn_snmp"))))


class ReconnectFlood(Hostile):
    """Connections that are left as soon as they are there, half of them within a message."""
    connections = 40
    lifetime = 0.0

    def input(self):
        yield get("scalars")[:random.randrange(40)]


class ForbiddenCommits(Hostile):
    """Large commits of a user who may not change anything. The daemon must read and refuse them."""
    connections = 16

    def input(self):
        change = text("/cfg/gl/vmap/vrf/a/ord_a/vmap/ord_k/vmap/descr") + b"\1" + text("d")
        count = 60000 // len(change)
        stage = frame(STAGE, struct.pack("<BI", 0, count) + change * count)
        return itertools.repeat(stage * 4 + frame(COMMIT, commit("taken over")) + frame(ACTION, struct.pack("<H", 0)))


class MalformedFrames(Hostile):
    """Everything that closes a connection: bad magic, versions, lengths, types, contents."""
    connections = 16

    def input(self):
        broken = [b"GET / HTTP/1.0\r\n\r\n", bytes(64), b"\xff" * 64, get("scalars")[:-1] + b"\xff" * 40,
                  struct.pack("<4sHHII", MAGIC, VERSION, GET, 1, 0xffffffff), frame(0x7777, b""), frame(GET, b"\xff" * 60),
                  struct.pack("<4sHHII", MAGIC, VERSION + 1, GET, 1, 0), frame(GET | ANSWER, b"\0" + text(ROOT + "scalars"))]
        yield repeated(get("scalars"))[:4000] + random.choice(broken)


ATTACKS = (PipelinedScalars, PipelinedScalarsEverywhere, FilteredLists, WholeTables, NextRoutes, NodesOfAnOwner, RouterShows,
           HistoryPages, HalfHeaders, SilentDebugClients, DebugWatchers, SlowReaders, SlowSenders, SubscriptionFlood, ReconnectFlood,
           ForbiddenCommits, MalformedFrames)


class Bystander:
    """A user who opens a new connection and reads the scalars every 20 ms. Every request that has no answer is lost."""

    def __init__(self, main, timeout=10.0):
        self.main, self.timeout = str(main), timeout
        self.seconds, self.lost = [], []

    def run(self, is_over, ready=lambda: None):
        ready()
        while not is_over():
            start = time.monotonic()
            try:
                with Client(self.main, self.timeout) as client:
                    assert client.get(ROOT + "scalars") is not None
            except (OSError, AssertionError) as error:
                self.lost.append(f"{type(error).__name__}: {error}")
            self.seconds.append(time.monotonic() - start)
            time.sleep(max(0.0, start + 0.02 - time.monotonic()))
        return {"seconds": self.seconds, "lost": self.lost}


class Manager:
    """The same for an SNMP manager."""

    def __init__(self, make_client, oids, timeout=10.0):
        self.make_client, self.oids, self.timeout = make_client, oids, timeout
        self.seconds, self.lost = [], []

    def run(self, is_over, ready=lambda: None):
        with contextlib.closing(self.make_client(timeout=self.timeout)) as client:
            ready()
            for oid in itertools.cycle(self.oids):
                if is_over():
                    break
                start = time.monotonic()
                try:
                    client.get(oid)
                except (OSError, RuntimeError) as error:
                    self.lost.append(f"{type(error).__name__}: {error}")
                self.seconds.append(time.monotonic() - start)
                time.sleep(max(0.0, start + 0.02 - time.monotonic()))
        return {"seconds": self.seconds, "lost": self.lost}
