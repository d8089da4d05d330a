"""Routes of VRFs in the kernel, whose prefixes move on: each change adds the next prefix of a VRF or deletes its oldest one. So the
kernel's tables keep their size, every prefix exists once, and the counters of routes added and deleted have known values."""
import errno
import ipaddress
import random
import socket
import struct

from kernel import batch, vrf_lines
from system import route_index

ROUTES_PER_VRF = 10_000  # at most
LEAST_VRFS = 10
TABLES = 1000           # the first VRF's number
IPV6_EACH = 10          # one VRF of ten has IPv6 routes
MOST_PER_SEND = 500     # messages
NEWROUTE, DELROUTE, REQUEST, CREATE, EXCL = 24, 25, 0x1, 0x400, 0x200
DST, OIF, GATEWAY, TABLE = 1, 4, 5, 15
BGP, UNICAST = 186, 1


def attribute(kind, value):
    return struct.pack("=HH", 4 + len(value), kind) + value


class Vrf:
    """The prefixes with the numbers `oldest` to `next` - 1 are in its table."""

    def __init__(self, number, size):
        self.name, self.member, self.table = f"soak-{number:03}", f"m{number}", TABLES + number
        self.size, self.oldest, self.next = size, 0, 0
        self.is_ipv6 = number % IPV6_EACH == IPV6_EACH - 1
        second, third = divmod(number, 250)
        self.subnet = f"2001:db8:{number:x}::" if self.is_ipv6 else f"10.{second}.{third}."
        self.gateway = ipaddress.ip_address(self.subnet + "2")

    def lines(self):
        """Commands of ip(8) that create it with its interface."""
        address = self.subnet + ("1/64 nodad" if self.is_ipv6 else "1/24")
        words = address.split()
        return [*vrf_lines({self.name: self.table}), f"link add {self.member} type dummy",
                f"link set {self.member} addrgenmode none", f"link set {self.member} master {self.name}",
                f"link set {self.member} up", f"addr add {words[0]} dev {self.member} {' '.join(words[1:])}"]

    def connected(self):
        """The prefix of its interface."""
        return ipaddress.ip_network((self.gateway, 64 if self.is_ipv6 else 24), strict=False)

    def prefix(self, number):
        """A /24 from 20.0.0.0, or a /48 from 2400::."""
        if self.is_ipv6:
            return ipaddress.ip_network(((0x2400 << 112) + (number << 80), 48))
        return ipaddress.ip_network(((20 << 24) + (number << 8), 24))

    def connected_row(self):
        return route_index(self.name, self.connected(), None, is_local=True)

    def row(self, number):
        """The index of the prefix's row in the table of routes."""
        return route_index(self.name, self.prefix(number), self.gateway, is_local=False)

    def message(self, kind, number):
        prefix = self.prefix(number)
        family = socket.AF_INET6 if self.is_ipv6 else socket.AF_INET
        body = struct.pack("=BBBBBBBBI", family, prefix.prefixlen, 0, 0, 0, BGP, 0, UNICAST, 0)
        body += (attribute(DST, prefix.network_address.packed) + attribute(OIF, struct.pack("=I", self.index)) +
                 attribute(GATEWAY, self.gateway.packed) + attribute(TABLE, struct.pack("=I", self.table)))
        flags = REQUEST | (CREATE | EXCL if kind == NEWROUTE else 0)
        return struct.pack("=IHHII", 16 + len(body), kind, flags, number & 0xffffffff, 0) + body

    def add(self):
        self.next += 1
        return self.message(NEWROUTE, self.next - 1)

    def delete(self):
        self.oldest += 1
        return self.message(DELROUTE, self.oldest - 1)


class MovingRoutes:
    def __init__(self, count):
        self.random = random.Random(1)
        size = min(ROUTES_PER_VRF, max(1, count // LEAST_VRFS))
        self.vrfs = [Vrf(number, size) for number in range(count // size)]
        self.changes = 0  # after the load
        self.socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
        self.socket.bind((0, 0))

    def load(self):
        for vrf in self.vrfs:
            batch(vrf.lines())
            vrf.index = socket.if_nametoindex(vrf.member)
            self.send([vrf.add() for _ in range(vrf.size)])

    def count(self):
        return sum(vrf.next - vrf.oldest for vrf in self.vrfs)

    def change(self, count, places=4):
        """This many changes, half of them in random VRFs of this number of `places`, which are returned."""
        changed = self.random.sample(self.vrfs, min(places, len(self.vrfs)))
        each = max(1, count // (2 * len(changed)))
        for vrf in changed:
            self.send([message for _ in range(each) for message in (vrf.add(), vrf.delete())])
            self.changes += 2 * each
        return changed

    def send(self, messages):
        for first in range(0, len(messages), MOST_PER_SEND):
            self.socket.send(b"".join(messages[first:first + MOST_PER_SEND]))
            self.check()

    def check(self):
        """The kernel answers a message of these flags only if it fails."""
        try:
            answer = self.socket.recv(65536, socket.MSG_DONTWAIT)
        except BlockingIOError:
            return
        code = -struct.unpack_from("=i", answer, 16)[0]
        raise AssertionError(f"the kernel refuses a route: {errno.errorcode.get(code, code)}")
