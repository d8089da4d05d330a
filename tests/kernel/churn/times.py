"""Creation and change times of VRFs from one batch to the next."""
import collections

Known = collections.namedtuple("Known", "index table created changed")


class Times:
    def __init__(self):
        self.known = {}  # VRF: Known

    def errors(self, model, shown, touched, began, restarted):
        """`touched`: VRFs that may have been created again; `began`: start of the batch, in seconds of the clock; `restarted`:
        the daemon was down for a part of it, and treats a VRF with the name and table of a former one as that one."""
        found, now = [], {}
        for vrf, row in shown.items():
            link = model.vrfs[vrf]
            state = now[vrf] = Known(link["ifindex"], link["linkinfo"]["info_data"]["table"], row["creationTime"],
                                     row["confLastChanged"])
            # Interfaces that leave a VRF of the same name touch its successor, which may be created a second later. 0: not changed.
            if state.changed and state.created > state.changed and state.changed < int(began):
                found.append(f"{vrf} was created at {state.created} and changed at {state.changed}")
            if vrf not in self.known and state.created < int(began):
                found.append(f"{vrf} is new, created at {state.created}, the batch began at {began:.2f}")
            if vrf in self.known:
                found += self.compare(vrf, self.known[vrf], state, vrf in touched, began, restarted)
        self.known = now
        return found

    @staticmethod
    def compare(vrf, before, now, touched, began, restarted):
        if not touched and (now.index, now.created) != (before.index, before.created):
            return [f"{vrf} was not made again: {before}, now {now}"]
        same_to_it = restarted and now.table == before.table
        if now.index != before.index and now.created < int(began) and not same_to_it:
            return [f"{vrf} was made again: created at {now.created}, the batch began at {began:.2f}"]
        if not touched and now.changed < before.changed:
            return [f"{vrf} changed at {before.changed}, now it says {now.changed}"]
        return []
