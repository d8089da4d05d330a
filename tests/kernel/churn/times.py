"""Creation and change times of VRFs from one batch to the next."""


class Times:
    def __init__(self):
        self.known = {}  # VRF: (ifIndex of its device, created, changed)

    def errors(self, model, shown, touched, began, restarted):
        """`touched`: VRFs that may have been made again; `began`: the batch, in seconds of the clock; `restarted`: the
        daemon was away for a part of it, so that a VRF with the table of a former one is that one to it."""
        found, now = [], {}
        for vrf, row in shown.items():
            index, created, changed = model.vrfs[vrf]["ifindex"], row["creationTime"], row["confLastChanged"]
            now[vrf] = (index, created, changed)
            if changed and created > changed:  # 0: not changed since
                found.append(f"{vrf} was created at {created} and changed at {changed}")
            if vrf in self.known:
                found += self.compare(vrf, self.known[vrf], now[vrf], vrf in touched, 0 if restarted else began)
            elif not restarted and created < int(began):
                found.append(f"{vrf} is new, created at {created}, the batch began at {began:.2f}")
        self.known = now
        return found

    @staticmethod
    def compare(vrf, before, now, touched, began):
        index, created, changed = now
        if not touched and (index, created) != before[:2]:
            return [f"{vrf} was not made again: (ifIndex, created) {before[:2]}, now {now[:2]}"]
        if index != before[0] and created < int(began):
            return [f"{vrf} was made again: created at {created}, the batch began at {began:.2f}"]
        if not touched and changed < before[2]:
            return [f"{vrf} changed at {before[2]}, now it says {changed}"]
        return []
