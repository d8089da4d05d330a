"""A minimal client of the daemon's data store, for many actions over one connection."""
import socket
import struct

MAGIC = b"MVPN"
VERSION = 1
ACTION = 5
ANSWER = 0x8000


class Client:
    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(30)
        self.socket.connect(str(path))
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
                raise AssertionError("the daemon closed the connection")
            octets += part
        return octets

    def action(self, *words):
        """The text that the action answers; an AssertionError when it fails."""
        self.request += 1
        payload = struct.pack("<H", len(words))
        for word in words:
            payload += struct.pack("<I", len(word.encode())) + word.encode()
        self.socket.sendall(struct.pack("<4sHHII", MAGIC, VERSION, ACTION, self.request, len(payload)) + payload)
        magic, _, kind, request, length = struct.unpack("<4sHHII", self.read(16))
        answer = self.read(length)
        assert (magic, kind, request) == (MAGIC, ACTION | ANSWER, self.request), (magic, kind, request)
        status, size = struct.unpack("<II", answer[:8])
        assert status == 0, f"{' '.join(words)}: {status:#x} {answer[8:8 + size].decode()}"
        return answer[8:8 + size].decode()
