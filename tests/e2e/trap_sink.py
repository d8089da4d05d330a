"""A receiver for more traps at once than a stock snmptrapd can process: counts them in the order received."""
import socket
import threading
import time

from system import L3VPN, oid_tuple


def ber_oid(numbers):
    """The octets of an OID's value."""
    octets = bytearray([numbers[0] * 40 + numbers[1]])
    for number in numbers[2:]:
        part = [number & 0x7f]
        while number := number >> 7:
            part.append(number & 0x7f | 0x80)
        octets += bytes(reversed(part))
    return bytes(octets)


TRAP_OID = ber_oid((1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0))
NOTIFICATIONS = ber_oid(oid_tuple(L3VPN) + (0,))


class TrapSink:
    def __init__(self):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        try:
            self.socket.setsockopt(socket.SOL_SOCKET, getattr(socket, "SO_RCVBUFFORCE", 33), 64 << 20)
        except PermissionError:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 64 << 20)
        self.socket.bind(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        self.traps = []  # (time, notification number)
        threading.Thread(target=self.receive, daemon=True).start()

    def receive(self):
        while True:
            datagram = self.socket.recv(65536)
            at = datagram.find(NOTIFICATIONS, datagram.find(TRAP_OID) + 1)
            if TRAP_OID in datagram and at > 0:
                self.traps.append((time.monotonic(), datagram[at + len(NOTIFICATIONS)]))

    def numbers(self):
        return [number for _, number in list(self.traps)]
