"""A receiver for more traps at once than a stock snmptrapd can process."""
import socket
import threading
import time

from snmp_client import decode_oid, parts
from system import ROOT_OID


def decode_trap(datagram):
    """(notification number, [(oid below the MIB, value's octets)]); None for a notification of another MIB."""
    (_, message), = parts(datagram)
    _, _, (_, pdu) = parts(message)
    _, _, _, (_, binds) = parts(pdu)
    variables = [tuple(parts(bind)) for _, bind in parts(binds)]
    trap = decode_oid(variables[1][1][1])  # after sysUpTime
    if trap[:len(ROOT_OID) + 1] != ROOT_OID + (0,):
        return None
    return trap[-1], [(decode_oid(name)[len(ROOT_OID):], value) for (_, name), (_, value) in variables[2:]]


class TrapSink:
    def __init__(self):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        try:
            self.socket.setsockopt(socket.SOL_SOCKET, getattr(socket, "SO_RCVBUFFORCE", 33), 64 << 20)
        except PermissionError:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 64 << 20)
        self.socket.bind(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        self.received = []  # (time, datagram); decoded later, to be as fast as the senders
        self.decoded = []
        threading.Thread(target=self.receive, daemon=True).start()

    def receive(self):
        while True:
            datagram = self.socket.recv(65536)
            self.received.append((time.monotonic(), datagram))

    def traps(self):
        """In the order received."""
        self.decoded += [decode_trap(datagram) for _, datagram in self.received[len(self.decoded):]]
        return [trap for trap in self.decoded if trap]
