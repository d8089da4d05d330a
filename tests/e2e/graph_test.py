#!/usr/bin/env python3
""""mplsvpn graph": what Graphviz reads in it are the VRFs, route targets, exports and imports of the router file."""
import json
import os
import shutil
import subprocess
import unittest
import xml.etree.ElementTree

from system import SharedSystemTest, wait_until

HUB, SPOKE, LEAK, LOST, OFFERED, OWN = (f"65000:{number}" for number in range(1, 7))
VRFS = {  # imports, exports
    "hub": ([HUB], [SPOKE]),
    "spoke": ([SPOKE], [HUB, LEAK]),
    'a"b\\c\\N <b>x</b> &lt; {|}': ([LEAK, LOST], [OFFERED]),
    "alone": ([OWN], [OWN]),
}
DASHED = {LOST, OFFERED}
THICK = {HUB, SPOKE, LEAK}
RD = "65000:99"


def read_by_dot(graph):
    shown = subprocess.run(["dot", "-Tjson"], input=graph, capture_output=True, text=True, timeout=60, check=True)
    assert shown.stderr == "", shown.stderr
    return json.loads(shown.stdout)


def texts(node):
    return [operation["text"] for operation in node.get("_ldraw_", ()) if operation["op"] == "T"]


@unittest.skipUnless(shutil.which("dot"), "SKIPPED: no dot (package graphviz)")
class Graph(SharedSystemTest):
    router = json.dumps({"vrfs": [{"name": name, "table": 10 + at, "route_targets": {"import": imports, "export": exports},
                                   **({"rd": RD} if name == "hub" else {})}
                                  for at, (name, (imports, exports)) in enumerate(VRFS.items())], "interfaces": []})

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        wait_until("VRFs", lambda: len(cls.system.cli_json("show", "vrf")) == len(VRFS))

    def graph(self):
        """(nodes with the legend's apart, edges as pairs of their first texts)"""
        read = read_by_dot(self.system.cli("graph", check=True).stdout)
        of_legend = {number for part in read["objects"] if part["name"] == "cluster_legend" for number in part["nodes"]}
        nodes = {part["_gvid"]: part for part in read["objects"] if "nodes" not in part}
        edges = {(texts(nodes[edge["tail"]])[0], texts(nodes[edge["head"]])[0]) for edge in read["edges"]}
        self.assertEqual(len(edges), len(read["edges"]))
        shown = {texts(node)[0]: node for number, node in nodes.items() if number not in of_legend}
        return shown, [nodes[number] for number in of_legend], edges

    def test_vrfs_and_route_targets_are_nodes_exports_and_imports_are_edges(self):
        nodes, _, edges = self.graph()
        targets = {target for lists in VRFS.values() for each in lists for target in each}
        self.assertEqual(set(nodes), set(VRFS) | targets)
        self.assertEqual({name for name, node in nodes.items() if node["shape"] == "box"}, set(VRFS))
        self.assertEqual(texts(nodes["hub"]), ["hub", RD])
        self.assertEqual(edges, {(name, target) for name, (_, exports) in VRFS.items() for target in exports}
                         | {(target, name) for name, (imports, _) in VRFS.items() for target in imports})

    def test_targets_with_one_side_and_those_that_connect_vrfs_differ_as_the_legend_states(self):
        nodes, legend, _ = self.graph()
        self.assertEqual({name for name, node in nodes.items() if "dashed" in node["style"]}, DASHED)
        self.assertNotEqual(nodes[LOST]["fillcolor"], nodes[OFFERED]["fillcolor"])
        self.assertEqual({name for name, node in nodes.items() if "penwidth" in node}, THICK)

        def looks(node):
            return node["shape"], node["style"], node.get("fillcolor"), node.get("penwidth")

        explained = {looks(node): " ".join(texts(node)) for node in legend}
        self.assertEqual(len(explained), len(legend))
        self.assertEqual({explained[looks(node)] for node in nodes.values()}, set(explained.values()))
        self.assertIn("exported by no VRF", explained[looks(nodes[LOST])])
        self.assertIn("imported by no VRF", explained[looks(nodes[OFFERED])])

    def test_svg_shows_names_as_they_are(self):
        drawn = xml.etree.ElementTree.fromstring(self.system.cli("graph", "--format", "svg", check=True).stdout)
        shown = {element.text for element in drawn.iter("{http://www.w3.org/2000/svg}text")}
        self.assertLessEqual(set(VRFS) | {HUB, SPOKE, LEAK, LOST, OFFERED, OWN, RD}, shown)

    def test_json_names_both_sides_of_each_target(self):
        shown = self.system.cli_json("graph")
        self.assertEqual({vrf["name"]: vrf["rd"] for vrf in shown["vrfs"]}, {name: RD if name == "hub" else None for name in VRFS})
        targets = {each["routeTarget"]: each for each in shown["routeTargets"]}
        self.assertEqual((targets[LEAK]["exportedBy"], len(targets[LEAK]["importedBy"])), (["spoke"], 1))
        self.assertEqual({name for name, each in targets.items() if each["connectsVrfs"]}, THICK)
        self.assertEqual({name: each["sides"] for name, each in targets.items() if each["sides"] != "both"},
                         {LOST: "onlyImported", OFFERED: "onlyExported"})

    def with_path(self, folder):
        environment = self.system.environment
        self.addCleanup(environment.__setitem__, "PATH", environment["PATH"])
        environment["PATH"] = str(folder)

    def fake_dot(self, text):
        folder = self.system.folder / "programs"
        folder.mkdir(exist_ok=True)
        (folder / "dot").write_text(text)
        (folder / "dot").chmod(0o755)
        self.with_path(f"{folder}:{os.environ['PATH']}")

    def test_missing_dot_is_an_error_that_names_its_package(self):
        self.with_path(self.system.folder / "nothing")
        result = self.system.cli("graph", "--format", "svg")
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertIn("apt-get install graphviz", result.stderr)
        self.assertEqual(self.system.cli("graph").returncode, 0)

    def test_dot_that_takes_too_long_or_fails_is_an_error(self):
        self.fake_dot("#!/bin/sh\nexec sleep 100\n")
        result = self.system.cli("graph", "--format", "svg", "--time-limit", "200ms")
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertIn("it did not end within 200 ms: allow more by --time-limit", result.stderr)
        self.fake_dot("#!/bin/sh\necho out of memory >&2\nexit 3\n")
        result = self.system.cli("graph", "--format", "svg")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (1, "", "mplsvpn: dot failed: out of memory\n"))

    def test_wrong_words_are_usage_errors(self):
        for words in (("graph", "--format", "png"), ("graph", "--time-limit", "soon"), ("graph", "--time-limit", "0"),
                      ("--json", "graph", "--format", "dot")):
            result = self.system.cli(*words)
            self.assertEqual((result.returncode, result.stdout), (2, ""), words)


if __name__ == "__main__":
    unittest.main()
