#!/usr/bin/env python3
"""The MIB module that is installed: names and numbers of RFC 4382, readable by the SNMP tools of a machine without any other
module and by strict compilers, and what docs/mib.md states of each object."""
import os
import re
import shutil
import subprocess
import tempfile
import unittest

from system import BIN, ROOT, ROOT_OID, SLOW, System

MODULE = "MPLS-L3VPN-STD-MIB"
FOLDER = ROOT / "packaging/mibs"
STRICT = BIN.parent / f"packaging/mibs/{MODULE}.mib"

# RFC 4382, section 6: names below a number, without their common prefix "mplsL3Vpn"; "" is a number that is not used.
SCALARS = ("ConfiguredVrfs ActiveVrfs ConnectedInterfaces NotificationEnable VrfConfMaxPossRts VrfConfRteMxThrshTime "
           "IllLblRcvThrsh")
CIDR = "VrfRteInetCidr"
TABLES = {  # number: table, row, names of columns, how many of the first are no more than index
    (2, 1): ("IfConfTable", "IfConfEntry", "IfConfIndex IfVpnClassification IfVpnRouteDistProtocol IfConfStorageType "
             "IfConfRowStatus", 1),
    (2, 2): ("VrfTable", "VrfEntry", "VrfName VrfVpnId VrfDescription VrfRD VrfCreationTime VrfOperStatus VrfActiveInterfaces "
             "VrfAssociatedInterfaces VrfConfMidRteThresh VrfConfHighRteThresh VrfConfMaxRoutes VrfConfLastChanged "
             "VrfConfRowStatus VrfConfAdminStatus VrfConfStorageType", 1),
    (2, 3): ("VrfRTTable", "VrfRTEntry", "- VrfRTIndex VrfRTType VrfRT VrfRTDescr VrfRTRowStatus VrfRTStorageType", 3),
    (2, 6): ("VrfSecTable", "VrfSecEntry", "VrfSecIllegalLblVltns VrfSecDiscontinuityTime", 0),
    (3, 1): ("VrfPerfTable", "VrfPerfEntry", "VrfPerfRoutesAdded VrfPerfRoutesDeleted VrfPerfCurrNumRoutes "
             "VrfPerfRoutesDropped VrfPerfDiscTime", 0),
    (4, 1): ("VrfRteTable", "VrfRteEntry", " ".join(CIDR + part for part in (
        "DestType Dest PfxLen Policy NHopType NextHop IfIndex Type Proto Age NextHopAS "
        "Metric1 Metric2 Metric3 Metric4 Metric5").split()) + f" VrfRteXCPointer {CIDR}Status", 6),
}
NOTIFICATIONS = {  # and their objects, in order
    "VrfUp": "IfConfRowStatus VrfOperStatus",
    "VrfDown": "IfConfRowStatus VrfOperStatus",
    "VrfRouteMidThreshExceeded": "VrfPerfCurrNumRoutes VrfConfMidRteThresh",
    "VrfNumVrfRouteMaxThreshExceeded": "VrfPerfCurrNumRoutes VrfConfHighRteThresh",
    "NumVrfSecIllglLblThrshExcd": "VrfSecIllegalLblVltns",
    "NumVrfRouteMaxThreshCleared": "VrfPerfCurrNumRoutes VrfConfHighRteThresh",
}
GROUPS = ("ScalarGroup VrfGroup IfGroup PerfGroup PerfRouteGroup - SecGroup VrfRteGroup VrfRTGroup NotificationGroup")
COMPLIANCES = "ModuleFullCompliance ModuleReadOnlyCompliance"
NODES = {"MIB": (), "Notifications": (0,), "Objects": (1,), "Scalars": (1, 1), "Conf": (1, 2), "Perf": (1, 3), "Route": (1, 4),
         "Conformance": (2,), "Groups": (2, 1), "Compliances": (2, 2)}


def numbered(names, below):
    return {name: below + (number,) for number, name in enumerate(names.split(), 1) if name != "-"}


def rfc_objects():
    """({name: number below the MIB} of what GET reads, the same of what is only an index)."""
    readable, indexes = numbered(SCALARS, (1, 1)), {}
    for number, (_, _, columns, of_index) in TABLES.items():
        for name, oid in numbered(columns, (1,) + number + (1,)).items():
            (indexes if oid[-1] <= of_index else readable)[name] = oid
    return readable, indexes


READABLE, INDEXES = rfc_objects()


def rfc_names():
    names = {**NODES, **READABLE, **INDEXES, **numbered(" ".join(NOTIFICATIONS), (0,)), **numbered(GROUPS, (2, 1)),
             **numbered(COMPLIANCES, (2, 2))}
    for number, (table, row, _, _) in TABLES.items():
        names[table], names[row] = (1,) + number, (1,) + number + (1,)
    return {"mplsL3Vpn" + name: ROOT_OID + oid for name, oid in names.items()}


def tool(*command):
    """Output of a tool of net-snmp that knows this module and no other. It must not complain."""
    environment = {key: value for key, value in os.environ.items() if not key.startswith("MIB")}
    with tempfile.TemporaryDirectory(prefix="mpls_vpn_mib_module.") as state:
        os.mkdir(f"{state}/cert_indexes")  # net-snmp reports when it creates it
        environment.update(MIBS=MODULE, MIBDIRS=str(FOLDER), SNMPCONFPATH="/nonexistent", SNMP_PERSISTENT_DIR=state)
        result = subprocess.run([str(word) for word in command], env=environment, capture_output=True, text=True,
                                timeout=60 * SLOW, check=False)
    assert (result.returncode, result.stderr) == (0, ""), result.stderr + result.stdout
    return result.stdout


def dotted(oid):
    return "." + ".".join(map(str, oid))


class Names(unittest.TestCase):
    def test_names_of_the_rfc_translate_to_their_numbers_and_back(self):
        names = rfc_names()
        self.assertEqual(tool("snmptranslate", "-On", *(f"{MODULE}::{name}" for name in names)).split(),
                         list(map(dotted, names.values())))
        self.assertEqual(tool("snmptranslate", *map(dotted, names.values())).split(), [f"{MODULE}::{name}" for name in names])

    def test_module_has_no_other_names(self):
        lines = re.findall(r'^"(\w+)"\s+"([\d.]+)"$', tool("snmptranslate", "-Tz"), re.MULTILINE)
        below = {name for name, oid in lines if f".{oid}.".startswith(dotted(ROOT_OID) + ".")}
        self.assertEqual(below, set(rfc_names()))

    def test_readable_objects_are_read_only_and_indexes_not_accessible(self):
        for access, names in (("read-only", READABLE), ("not-accessible", INDEXES)):
            details = tool("snmptranslate", "-Td", *(f"{MODULE}::mplsL3Vpn{name}" for name in names))
            self.assertEqual(re.findall(r"MAX-ACCESS\t(\S+)", details), [access] * len(names))

    def test_notifications_have_the_objects_of_the_rfc_in_their_order(self):
        for name, objects in NOTIFICATIONS.items():
            details = tool("snmptranslate", "-Td", f"{MODULE}::mplsL3Vpn{name}")
            self.assertEqual(re.search(r"OBJECTS\t{ (.*) }", details)[1].split(", "),
                             ["mplsL3Vpn" + part for part in objects.split()])

    @unittest.skipUnless(shutil.which("smilint"), "SKIPPED: no smilint")
    def test_strict_compiler_accepts_the_form_with_imports(self):
        # The RFC's index has an OBJECT IDENTIFIER, whose size SMIv2 cannot restrict.
        command = ["smilint", "-c", os.devnull, "-l", "3", "-s", "-i", "index-element-no-size", str(STRICT)]
        result = subprocess.run(command, env=dict(os.environ, SMIPATH=str(ROOT / "tests/data/smi")), capture_output=True,
                                text=True, timeout=60, check=False)
        self.assertEqual((result.stdout + result.stderr), "")
        result = subprocess.run(command, env=dict(os.environ, SMIPATH=os.devnull), capture_output=True, text=True, timeout=60,
                                check=False)
        self.assertIn("SNMPv2-SMI", result.stdout + result.stderr)  # it does look at the modules of SMIPATH


class Served(unittest.TestCase):
    """What snmpd answers for the sample router, read with the module."""

    @classmethod
    def setUpClass(cls):
        with System((ROOT / "examples/small-router.yaml").read_text()) as system:
            system.start_all()
            address = f"127.0.0.1:{system.port}"
            cls.numbers = tool("snmpwalk", "-v2c", "-c", "public", "-On", address, dotted(ROOT_OID))
            cls.names = tool("snmpwalk", "-v2c", "-c", "public", "-Ot", address, f"{MODULE}::mplsL3VpnMIB")
            cls.refusals = {oid: system.snmp("set", oid, "i", "1", options=("-c", "private")).stderr for oid in cls.one_of_each()}

    @classmethod
    def one_of_each(cls):
        """The first instance of each object that is served."""
        oids = re.findall(r"^(\.[\d.]+) = ", cls.numbers, re.MULTILINE)
        return [next(oid for oid in oids if oid.startswith(dotted(ROOT_OID + below) + ".")) for below in READABLE.values()]

    def rows(self, name):
        """[(instance, value without its type)] of an object."""
        rows = re.findall(rf"^{MODULE}::mplsL3Vpn{name}\.(\S+) = (.*)$", self.names, re.MULTILINE)
        return [(instance, re.sub(r"^\w+: ", "", value).removesuffix(" seconds")) for instance, value in rows]

    def test_agent_serves_exactly_the_readable_objects(self):
        walked = [tuple(map(int, oid.split("."))) for oid in re.findall(r"^\.([\d.]+) = ", self.numbers, re.MULTILINE)]
        names = {ROOT_OID + oid: name for name, oid in READABLE.items()}
        served = {next((names[oid[:length]] for length in range(len(oid)) if oid[:length] in names), oid) for oid in walked}
        self.assertEqual(served, set(READABLE))

    def test_set_of_every_object_is_refused(self):
        self.assertEqual([oid for oid, error in self.refusals.items() if "notWritable" not in error], [])
        self.assertEqual(len(self.refusals), len(READABLE))

    def test_values_have_the_types_of_the_module(self):
        self.assertNotIn("Wrong Type", self.names)

    def documented(self, kind):
        """{object: text} of this kind in the page for operators."""
        return {name: text for name, of_kind, text in DOCUMENTED if of_kind == kind}

    def test_constants_of_the_page_are_constant(self):
        for name, text in self.documented("constant").items():
            value = re.match(r"`([^`]*)`", text)[1]
            self.assertEqual({shown for _, shown in self.rows(name)}, {value}, name)

    def test_objects_that_mirror_another_equal_it(self):
        for name, text in self.documented("mirrored").items():
            other = re.match(r"mplsL3Vpn(\w+)", text)[1]
            self.assertEqual(self.rows(name), self.rows(other), name)


DOCUMENTED = re.findall(r"^\| mplsL3Vpn(\w+) \| (\w+) \| (.*) \|$", (ROOT / "docs/mib.md").read_text(), re.MULTILINE)


class Page(unittest.TestCase):
    def test_page_for_operators_has_every_object_once_in_the_order_of_the_mib(self):
        objects = {**READABLE, **INDEXES}
        self.assertEqual([name for name, _, _ in DOCUMENTED], sorted(objects, key=objects.get))

    def test_page_states_what_each_object_is(self):
        for name, kind, text in DOCUMENTED:
            self.assertTrue(text, name)
            self.assertIn(kind, ("index",) if name in INDEXES else ("live", "mirrored", "constant"), name)


if __name__ == "__main__":
    unittest.main()
