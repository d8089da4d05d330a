"""The notifications that snmpd sent, and the rules that they must keep.

For every VRF ups and downs alternate, and at the end of a batch the last one is the VRF's state. Everything that the daemon
published, as "mplsvpn watch" shows it, arrives in the same order: exactly once, or at least once if an agent was killed.
"""
import json

from model import IF_CONF
from system import name_and_rest
from trap_sink import TrapSink

VRF_UP, VRF_DOWN = 1, 2
STATE_OF = {"mplsL3VpnVrfUp": VRF_UP, "mplsL3VpnVrfDown": VRF_DOWN}
ROW_STATUS = IF_CONF + (5,)


class Sink(TrapSink):
    @property
    def vrf_traps(self):
        """(up or down, VRF, ifIndex) in the order received."""
        return [vrf_trap(number, variables) for number, variables in self.traps() if number in (VRF_UP, VRF_DOWN)]


def vrf_trap(number, variables):
    (name, _), *_ = variables
    assert name[:len(ROW_STATUS)] == ROW_STATUS, name
    vrf, (index,) = name_and_rest(name[len(ROW_STATUS):])
    return number, vrf, index


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
