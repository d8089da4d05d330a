"""The notifications that snmpd sent, and the rules that they must keep.

For every VRF ups and downs alternate, and at the end of a batch the last one is the VRF's state. Everything that the daemon
published, as "mplsvpn watch" shows it, arrives in the same order: exactly once, or at least once if an agent was killed.
"""
import json
import socket
import threading

from model import IF_CONF
from shown import ROOT
from snmp_client import decode_oid, parts

VRF_UP, VRF_DOWN = 1, 2
STATE_OF = {"mplsL3VpnVrfUp": VRF_UP, "mplsL3VpnVrfDown": VRF_DOWN}
ROW_STATUS = ROOT + IF_CONF + (5,)


class Sink:
    """Receives the traps of one snmpd on a port of its own: (up or down, VRF, ifIndex) in the order received."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        self.traps = []
        threading.Thread(target=self.receive, daemon=True).start()

    def receive(self):
        while True:
            trap = decode_trap(self.socket.recv(65536))
            if trap:
                self.traps.append(trap)


def decode_trap(datagram):
    (_, message), = parts(datagram)
    _, _, (_, pdu) = parts(message)
    _, _, _, (_, binds) = parts(pdu)
    variables = [tuple(parts(bind)) for _, bind in parts(binds)]
    trap = decode_oid(variables[1][1][1])  # after sysUpTime
    if trap[:len(ROOT) + 1] != ROOT + (0,) or trap[-1] not in (VRF_UP, VRF_DOWN):
        return None
    name = decode_oid(variables[2][0][1])
    assert name[:len(ROW_STATUS)] == ROW_STATUS, name
    index = name[len(ROW_STATUS):]
    return trap[-1], bytes(index[1:1 + index[0]]).decode(), index[-1]


def watched(log):
    """The output of "mplsvpn --json watch": (traps in the same form, changes of RDs and route targets)."""
    lines = [line for line in log.splitlines(keepends=True) if line.startswith("{")]
    events = [json.loads(line) for line in lines if line.endswith("\n")]
    traps = [event for event in events if event.get("notification") in STATE_OF]
    return ([(STATE_OF[trap["notification"]], trap["vrfName"], trap["ifConfIndex"]) for trap in traps],
            [event for event in events if "change" in event])


def order_errors(received, published, may_repeat):
    """Notifications that only the sink or only the daemon has."""
    place = 0
    for trap in received:
        if place < len(published) and trap == published[place]:
            place += 1
        elif not (may_repeat and trap in published[:place]):
            return [f"trap {trap} received; published next: {published[place:place + 3]}"]
    return [f"trap {trap} was published and not received" for trap in published[place:place + 3]]


class States:
    """The state of every VRF according to its notifications."""

    def __init__(self, up):
        """A daemon raises no notification for the state at its start."""
        self.up = set(up)

    def follow(self, published):
        errors = []
        for state, vrf, index in published:
            if (state == VRF_UP) == (vrf in self.up):
                errors.append(f"{vrf} is announced {'up' if state == VRF_UP else 'down'} twice (interface {index})")
            (self.up.add if state == VRF_UP else self.up.discard)(vrf)
        return errors

    def differences(self, active):
        return [f"{vrf} is {'up' if vrf in active else 'down'}, its last notification says the opposite"
                for vrf in sorted(self.up ^ set(active))]
