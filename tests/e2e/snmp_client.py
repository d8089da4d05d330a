"""An SNMPv2c client for measurements: one socket, one request at a time, no process to start. RFC 3416, BER of X.690."""
import socket
import time

GET, GET_NEXT, GET_BULK = 0xA0, 0xA1, 0xA5
NO_SUCH_INSTANCE, END_OF_MIB_VIEW = 0x81, 0x82


def tlv(tag, content):
    length = len(content)
    size = bytes([length]) if length < 128 else bytes([0x82, length >> 8, length & 255])
    return bytes([tag]) + size + content


def integer(value):
    return tlv(2, value.to_bytes(value.bit_length() // 8 + 1, "big"))


def encode_oid(numbers):
    octets = bytearray([40 * numbers[0] + numbers[1]])
    for number in numbers[2:]:
        groups = [number & 127]
        while number > 127:
            number >>= 7
            groups.append(128 | (number & 127))
        octets += bytes(reversed(groups))
    return tlv(6, bytes(octets))


def decode_oid(content):
    numbers, number = [content[0] // 40, content[0] % 40], 0
    for octet in content[1:]:
        number = number << 7 | (octet & 127)
        if octet < 128:
            numbers.append(number)
            number = 0
    return tuple(numbers)


def parts(content):
    """The (tag, content) pairs of a constructed value."""
    place = 0
    while place < len(content):
        tag, length = content[place], content[place + 1]
        place += 2
        if length & 128:
            octets = length & 127
            length = int.from_bytes(content[place:place + octets], "big")
            place += octets
        yield tag, content[place:place + length]
        place += length


class SnmpClient:
    """Each answer is a list of (oid, tag, content); `seconds` is how long the last one took. TimeoutError after
    `timeout` seconds; requests are not repeated."""

    def __init__(self, port, timeout=120):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.connect(("127.0.0.1", port))
        self.socket.settimeout(timeout)
        self.number, self.seconds = 0, 0.0

    def close(self):
        self.socket.close()

    def request(self, kind, oid, second=0, third=0):
        start = time.monotonic()
        self.send(kind, (oid,), second, third)
        found = self.receive()
        self.seconds = time.monotonic() - start
        return found

    def send(self, kind, oids, second=0, third=0):
        """Without waiting for the answer."""
        self.socket.send(self.message(kind, oids, second, third))

    def message(self, kind, oids, second=0, third=0):
        self.number += 1
        binds = tlv(0x30, b"".join(tlv(0x30, encode_oid(oid) + tlv(5, b"")) for oid in oids))
        pdu = tlv(kind, integer(self.number) + integer(second) + integer(third) + binds)
        return tlv(0x30, integer(1) + tlv(4, b"public") + pdu)

    def receive(self):
        """The answer to what was sent last."""
        while True:
            (_, answer), = parts(self.socket.recv(65536))
            _, _, (_, pdu) = parts(answer)
            (_, number), (_, error), _, (_, binds) = parts(pdu)
            if int.from_bytes(number, "big") == self.number:
                break  # and not the late answer to an abandoned request
        if error != b"\x00":
            raise RuntimeError(f"error status {int.from_bytes(error, 'big')}")
        found = []
        for _, bind in parts(binds):
            (_, name), (tag, content) = parts(bind)
            found.append((decode_oid(name), tag, content))
        return found

    def get(self, oid):
        return self.request(GET, oid)[0]

    def get_next(self, oid):
        return self.request(GET_NEXT, oid)[0]

    def get_bulk(self, oid, rows):
        return self.request(GET_BULK, oid, 0, rows)

    def walk(self, root, start=None, rows=50, most=None):
        """(number of rows below the root after `start`, longest time of an answer); ends after `most` rows."""
        oid, count, longest = start or root, 0, 0.0
        while most is None or count < most:
            answer = self.get_bulk(oid, rows)
            longest = max(longest, self.seconds)
            for name, tag, _ in answer:
                if tag == END_OF_MIB_VIEW or name[:len(root)] != root:
                    return count, longest
                if name <= oid:
                    raise AssertionError(f"{name} does not follow {oid}")
                oid, count = name, count + 1
        return count, longest
