"""The configuration items of a VRF to which the daemon subscribes: what sets and deletes each, and what the VRF shows then."""
import typing

IMPORT, EXPORT = 1, 2
NOTHING = {"description": "", "rd": "", "mid": 0, "high": 0, "targets": [], "policies": {}, "a": set(), "b": set()}


class Item(typing.NamedTuple):
    name: str
    is_stamped: bool  # a change sets the VRF's time of last change
    steps: list  # (words after "config set|delete vrf NAME", what the VRF shows then besides NOTHING), ...

    def shows(self, done):
        """What the VRF shows after this number of steps."""
        return NOTHING | (self.steps[done - 1][1] if done else {})


def both(*names):
    return {"a": set(names), "b": set(names)}


# {a} and {b} are the VRF's interfaces. Each item has four steps: two set, two delete.
ITEMS = [
    Item("description", True, [
        ("set description Red Rail", {"description": "Red Rail"}),
        ("set description Rail, \\ and 100 % #more", {"description": "Rail, \\ and 100 % #more"}),
        ("delete description Rail, \\ and 100 % #more", {}),
        (None, {})]),
    Item("import targets", True, [
        ("set rt import 65000:1 ipv4", {"targets": [(IMPORT, "ipv4", "65000:1")]}),
        ("set rt import 65000:02 ipv4", {"targets": [(IMPORT, "ipv4", "65000:1"), (IMPORT, "ipv4", "65000:2")]}),
        ("delete rt import 65000:1 ipv4", {"targets": [(IMPORT, "ipv4", "65000:2")]}),
        ("delete rt import 65000:2 ipv4", {})]),
    Item("export targets", True, [
        ("set rt export 4200000000:30 ipv6", {"targets": [(EXPORT, "ipv6", "4200000000:30")]}),
        ("set rt export 10.0.0.1:5 ipv6",
         {"targets": [(EXPORT, "ipv6", "10.0.0.1:5"), (EXPORT, "ipv6", "4200000000:30")]}),
        ("delete rt export 4200000000:30", {"targets": [(EXPORT, "ipv6", "10.0.0.1:5")]}),
        ("delete rt export 10.0.0.1:5 ipv6", {})]),
    Item("targets of all kinds", True, [
        ("set rt both 65000:100",
         {"targets": [(kind, family, "65000:100") for kind in (IMPORT, EXPORT) for family in ("ipv4", "ipv6")]}),
        ("set rt export 65000:99 ipv4",
         {"targets": [(IMPORT, "ipv4", "65000:100"), (IMPORT, "ipv6", "65000:100"), (EXPORT, "ipv4", "65000:99"),
                      (EXPORT, "ipv4", "65000:100"), (EXPORT, "ipv6", "65000:100")]}),
        ("delete rt export", {"targets": [(IMPORT, "ipv4", "65000:100"), (IMPORT, "ipv6", "65000:100")]}),
        ("delete rt", {})]),
    Item("import policy", False, [
        ("set policy import ipv4 pass-some", {"policies": {("ipv4", "import"): "pass-some"}}),
        ("set policy import ipv4 pass-all", {"policies": {("ipv4", "import"): "pass-all"}}),
        ("delete policy import ipv4 pass-all", {}),
        (None, {})]),
    Item("export policies", False, [
        ("set policy export ipv6 pass", {"policies": {("ipv6", "export"): "pass"}}),
        ("set policy export ipv4 pass-v4", {"policies": {("ipv6", "export"): "pass", ("ipv4", "export"): "pass-v4"}}),
        ("delete policy export ipv6", {"policies": {("ipv4", "export"): "pass-v4"}}),
        ("delete policy export ipv4", {})]),
    Item("thresholds", True, [
        ("set threshold ipv4 100 80", {"mid": 80, "high": 100}),
        ("set threshold ipv4 4294967295 3000000000", {"mid": 3000000000, "high": 4294967295}),
        ("delete threshold ipv4", {}),
        (None, {})]),
    Item("thresholds of IPv6", True, [
        ("set threshold ipv6 5 0", {"mid": 0, "high": 5}),
        ("set threshold ipv6 50 40", {"mid": 40, "high": 50}),
        ("delete threshold ipv6 50 40", {}),
        (None, {})]),
    Item("route distinguisher", True, [
        ("set rd 65000:1", {"rd": "65000:1"}),
        ("set rd 192.0.2.1:7", {"rd": "192.0.2.1:7"}),
        ("delete rd 192.0.2.1:7", {}),
        (None, {})]),
    Item("route distinguishers of both families", True, [
        ("set rd 65000:6 ipv6", {"rd": "65000:6"}),
        ("set rd 4200000000:4 ipv4", {"rd": "4200000000:4"}),
        ("delete rd 4200000000:4 ipv4", {"rd": "65000:6"}),
        ("delete rd 65000:6 ipv6", {})]),
    Item("BGP neighbors", False, [
        ("set bgp 65000 neighbor 10.0.0.2 ipv4", both("bgp")),
        ("set bgp 65000 neighbor 2001:db8::2 ipv6", both("bgp")),
        ("delete bgp 65000 neighbor 10.0.0.2 ipv4", both("bgp")),
        ("delete bgp 65000 neighbor 2001:db8::2 ipv6", {})]),
    Item("RIP", False, [
        ("set rip interface {a}", {"a": {"rip"}}),
        ("set rip interface {b}", both("rip")),
        ("delete rip interface {a}", {"b": {"rip"}}),
        ("delete rip interface {b}", {})]),
    Item("OSPF", False, [
        ("set ospf 1 area 0 interface {a}", {"a": {"ospf"}}),
        ("set ospf core area 10.0.0.0 interface {b}", both("ospf")),
        ("delete ospf 1 area 0 interface {a}", {"b": {"ospf"}}),
        ("delete ospf core area 10.0.0.0 interface {b}", {})]),
    Item("EIGRP, twice on one interface", False, [
        ("set eigrp 9 interface {a}", {"a": {"other"}}),
        ("set eigrp 10 interface {a}", {"a": {"other"}}),
        ("delete eigrp 9 interface {a}", {"a": {"other"}}),
        ("delete eigrp 10 interface {a}", {})]),
    Item("static routes with an interface", False, [
        ("set static 10.1.0.0/16 interface {a}", {"a": {"static"}}),
        ("set static 2001:db8::/32 interface {b} via 2001:db8::1", both("static")),
        ("delete static 10.1.0.0/16 interface {a}", {"b": {"static"}}),
        ("delete static 2001:db8::/32 interface {b} via 2001:db8::1", {})]),
    Item("static routes without one", False, [
        ("set static 10.1.0.0/16 via 10.0.0.2", both("static")),
        ("set static 10.2.0.0/16 interface {a} via 10.0.0.2", both("static")),
        ("delete static 10.1.0.0/16 via 10.0.0.2", {"a": {"static"}}),
        ("delete static 10.2.0.0/16 interface {a} via 10.0.0.2", {})]),
]
STEPS = 4
