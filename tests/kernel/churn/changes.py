"""The changes of RDs and route targets that "mplsvpn watch" shows: the old value of each must be the new value of the one before,
and together they must lead from the values shown after one batch to those shown after the next."""

KINDS = {"rt import": 1, "rt export": 2}
FAMILIES = {"ipv4": 4, "ipv6": 6}
ORIGINS = {None, "configured"}  # the configuration of the suite is the only owner


class Changes:
    """The changes of one daemon since its start."""

    def __init__(self):
        self.rds = {}         # VRF: text, "" for none; as far as known
        self.targets = None   # (VRF, import 1 or export 2, family, text); None: not known yet

    def errors(self, events, rds, targets):
        """`events` since the last accept(); `rds` {VRF: RD} and `targets` as shown now."""
        known, present, found = dict(self.rds), set(self.targets or ()), []
        for event in events:
            found += self.follow(event, known, present)
        found += [f"the RD of {vrf} is {rd!r}, the changes lead to {led_to!r}" for vrf, rd in rds.items()
                  if (led_to := known.get(vrf, rd)) != rd]
        if self.targets is not None and present != targets:
            found.append(f"route targets by the changes and shown: only one has {sorted(present ^ targets)}")
        return found

    def accept(self, events, targets):
        for event in events:
            self.follow(event, self.rds, set())
        self.targets = targets

    def follow(self, event, rds, targets):
        vrf, old, new = event["vrfName"], event["oldValue"], event["newValue"]
        found = [f"{event}: changes were lost"] if event["lostBefore"] else []
        if old == new or not {event["oldOrigin"], event["newOrigin"]} <= ORIGINS or event["origin"] != "configured":
            found.append(f"{event}: no change, or of another origin")
        if event["change"] == "rd":
            return found + self.follow_rd(vrf, event, rds)
        row = (vrf, KINDS[event["change"]], FAMILIES[event["family"]])
        if self.targets is not None and old and (*row, old) not in targets:
            found.append(f"{event}: there was none such")
        if self.targets is not None and new and (*row, new) in targets:
            found.append(f"{event}: it was there before")
        targets.discard((*row, old))
        if new:
            targets.add((*row, new))
        return found

    @staticmethod
    def follow_rd(vrf, event, rds):
        """The RD of a family is shown only while it differs from the VRF's, so its changes need not be a chain."""
        if event["family"] is not None:
            return []
        before, rds[vrf] = rds.get(vrf), event["newValue"] or ""
        return [f"{event}: the RD before was {before!r}"] if before not in (None, event["oldValue"] or "") else []
