"""A minimal client of the daemon's data store, for many requests over one connection."""
import socket
import struct

MAGIC = b"MVPN"
VERSION = 4
GET, ACTION = 1, 5
ANSWER = 0x8000
NO_SUCH_ROW = 2
# The fields of a VRF row and their types: s text, D unsigned, d signed.
VRF_ROW = (("name", "s"), ("description", "s"), ("rd", "s"), ("creationTime", "D"), ("operStatus", "d"),
           ("activeInterfaces", "D"), ("associatedInterfaces", "D"), ("midThresh", "D"), ("highThresh", "D"),
           ("import_route_policy", "s"), ("export_route_policy", "s"), ("confLastChanged", "D"))


class Client:
    """Raises ConnectionError when the daemon closes the connection."""

    def __init__(self, path, timeout=30):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        # As the project's own clients, connect() waits while other connections wait to be accepted.
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO, struct.pack("ll", int(timeout), 0))
        try:
            self.socket.connect(str(path))
        except OSError:
            self.socket.close()
            raise
        self.socket.settimeout(timeout)
        self.request = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def read(self, size):
        octets = b""
        while len(octets) < size:
            part = self.socket.recv(size - len(octets))
            if not part:
                raise ConnectionError("the daemon closed the connection")
            octets += part
        return octets

    def ask(self, kind, payload):
        """(status, the rest of the answer)."""
        self.request += 1
        self.socket.sendall(struct.pack("<4sHHII", MAGIC, VERSION, kind, self.request, len(payload)) + payload)
        magic, _, answered, request, length = struct.unpack("<4sHHII", self.read(16))
        answer = self.read(length)
        assert (magic, answered, request) == (MAGIC, kind | ANSWER, self.request), (magic, answered, request)
        return struct.unpack("<I", answer[:4])[0], answer[4:]

    def action(self, *words):
        """The text that the action returns; an AssertionError if it fails."""
        payload = struct.pack("<H", len(words)) + b"".join(text(word) for word in words)
        status, answer = self.ask(ACTION, payload)
        answered = answer[4:4 + struct.unpack("<I", answer[:4])[0]].decode()
        assert status == 0, f"{' '.join(words)}: {status:#x} {answered}"
        return answered

    def get(self, path):
        """The encoded record at this path; None when there is no such row."""
        status, answer = self.ask(GET, b"\0" + text(path))
        if status == NO_SUCH_ROW:
            return None
        assert status == 0, f"{path}: {status:#x}"
        return answer[8:]  # after kind and length

    def vrf_row(self, name):
        """{field: value} of the VRF's row; None when there is none."""
        record = self.get(f"/oper/mpls_vpn/gl/vrf/{name}")
        return None if record is None else decode(record, "mpls_vpn_mib_vrf", VRF_ROW)


def text(value):
    return struct.pack("<I", len(value.encode())) + value.encode()


def decode(record, type_name, fields):
    """The first fields of an encoded record: a format octet, the type's name, three words, the fields. A text has its
    length plus one before it, 0 when it is absent."""
    at = 1

    def word():
        nonlocal at
        at += 4
        return struct.unpack_from("<I", record, at - 4)[0]

    def octets():
        nonlocal at
        length = word()
        at += max(length - 1, 0)
        return None if length == 0 else record[at - length + 1:at].decode()

    found = octets()
    assert found == type_name, found
    at += 12
    return {name: octets() if kind == "s" else word() for name, kind in fields}
