#!/usr/bin/env python3
"""scripts/check_tree reports each kind of violation, and nothing in a tree without one."""
import importlib.machinery
import importlib.util
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # none beside the script
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
LOADER = importlib.machinery.SourceFileLoader("check_tree", str(ROOT / "scripts/check_tree"))
check_tree = importlib.util.module_from_spec(importlib.util.spec_from_loader("check_tree", LOADER))
LOADER.exec_module(check_tree)


class Includes(unittest.TestCase):
    def errors(self, path, *names):
        return check_tree.include_errors(path, "".join(f"#include {name}\n" for name in names))

    def test_include_of_a_lower_layer_is_allowed(self):
        self.assertEqual(self.errors("cli/main.cpp", '"platform/store/client/client.h"', "<fmt/format.h>"), [])

    def test_include_of_a_higher_layer_is_an_error(self):
        self.assertEqual(self.errors("platform/core/evm/evm.h", '"platform/router/model/router.h"'),
                         ["platform/core/evm/evm.h: may not include platform/router/model/router.h"])

    def test_daemon_may_include_the_standard_library_only(self):
        self.assertEqual(len(self.errors("mpls/vpn/mib/src/vrf/entry.cpp", "<vector>", "<fmt/format.h>")), 1)

    def test_folder_without_a_layer_is_an_error(self):
        self.assertEqual(len(self.errors("other/main.cpp", "<vector>")), 1)

    def test_modules_that_include_each_other_are_reported_as_one_set(self):
        texts = {"a/one.h": '#include "a/two.h"\n', "a/two.cpp": '#include "a/three.h"\n', "a/three.h": '#include "a/one.h"\n',
                 "a/four.h": '#include "a/one.h"\n'}
        self.assertEqual(check_tree.include_cycles(texts), [["a/one", "a/three", "a/two"]])

    def test_folder_with_too_many_files_is_reported(self):
        files = [f"a/{number}.cpp" for number in range(check_tree.MOST_FILES)]
        self.assertEqual(check_tree.crowded_folders(files), [])
        self.assertEqual(check_tree.crowded_folders([*files, "a/more.h"]), [("a", check_tree.MOST_FILES + 1)])

    def test_source_with_too_many_lines_is_reported(self):
        self.assertEqual(check_tree.length_errors("a/b.py", "x\n" * 400), [])
        self.assertEqual(check_tree.length_errors("a/b.py", "x\n" * 401),
                         ["a/b.py: has 401 lines; divide it by concern, 400 are the limit"])


class Format(unittest.TestCase):
    @unittest.skipUnless(shutil.which(check_tree.FORMATTER), "the formatter is not installed")
    def test_source_that_the_formatter_would_change_is_an_error(self):
        with tempfile.TemporaryDirectory() as folder:
            shutil.copy(ROOT / ".clang-format", folder)
            formatted, other = (pathlib.Path(folder) / name for name in ("formatted.cpp", "other.cpp"))
            formatted.write_text("int number();\n")
            other.write_text("int  number( );\n")
            self.assertEqual(check_tree.format_errors([str(formatted)]), [])
            self.assertEqual(check_tree.format_errors([str(formatted), str(other)]), [f"{other}:1: run {check_tree.FORMATTER} -i"])


class Words(unittest.TestCase):
    def found(self, text):
        return [error.split('"')[1] for error in check_tree.old_words("a.cpp", text)]

    def test_old_words_are_found_in_sentences_and_names(self):
        self.assertEqual(self.found("// is told of\nvoid tellAll();\nvoid tell_all();\n"), ["told", "tell", "tell"])

    def test_old_words_after_a_single_capital_are_found(self):
        self.assertEqual(self.found("NodeIsAMistake, WaitsForALaterTurn"), ["Mistake", "Later Turn"])

    def test_links_that_go_down_and_come_up_are_standard(self):
        self.assertEqual(self.found("the link goes down and comes up"), [])


class Documents(unittest.TestCase):
    FILES = {"docs/a.md", "platform/core/evm/evm.h", "mpls/vpn/mib/src/vrf/entry.cpp", "tests/e2e/live_test.py"}

    def missing(self, text):
        return [error.split(": ")[1].split(" ")[0] for error in check_tree.missing_paths("docs/b.md", text, self.FILES)]

    def test_paths_that_exist_are_accepted(self):
        self.assertEqual(self.missing("`platform/core/evm/evm.h` `platform/core/` `vrf/entry.cpp` `evm.h` `tests/e2e/*_test.py` "
                                      "[a](a.md)"), [])

    def test_paths_that_do_not_exist_are_reported(self):
        self.assertEqual(self.missing("`platform/evm/evm.h` `vrf/row.cpp` `row.h` [c](c.md#top)"),
                         ["platform/evm/evm.h", "vrf/row.cpp", "row.h", "c.md"])

    def test_what_is_not_a_path_of_the_tree_is_ignored(self):
        self.assertEqual(self.missing("`/etc/snmp/snmpd.conf` `lib/systemd/system` `a/b` `router.yaml` "
                                      "[r](https://example.org/x.h)"), [])

    def test_service_that_is_not_described_is_reported(self):
        files = {"platform/core/evm/evm.h", "platform/router/model/router.h", "mpls/vpn/mib/src/vrf/entry.cpp", "cli/main.cpp"}
        self.assertEqual(check_tree.undescribed_folders(files, "| `evm`, `timer` | ... |\n| `vrf/` | ... |"),
                         ["platform/router/model/ is not described in docs/architecture.md"])

    def test_tests_that_do_not_exist_are_reported(self):
        text = "`Suite.Test` `Suite.*` `Other.Test` `LinkThatIsDownRaisesDown` `SnmpAdminString`"
        errors = check_tree.missing_tests("docs/b.md", text, {"Suite.Test", "Suite.*"})
        self.assertEqual([error.split(" ")[-1] for error in errors], ["Other.Test", "LinkThatIsDownRaisesDown"])


    def test_every_attack_is_in_the_security_document(self):
        names = set(re.findall(r"^class (\w+)\((?:Hostile|[A-Z]\w+)\):", (ROOT / "tests/e2e/hostile.py").read_text(), re.MULTILINE))
        self.assertGreater(len(names), 10)
        self.assertEqual(names - set(re.findall(r"\w+", (ROOT / "SECURITY.md").read_text())), set())

    def test_commands_and_constants_that_do_not_exist_are_reported(self):
        text = ("`scripts/soak 6` `./scripts/test` `ROUTER=kernel ./scripts/demo` `ctest -R kernel_soak` `wire::kMost` `kernel` "
                "`scripts/sock 6` `CHURN=1 scripts/chrn` `ctest -L e2e -R kernel_sock --verbose` `kLeast`")
        errors = check_tree.missing_commands("docs/b.md", text, {"scripts/soak", "scripts/test", "scripts/demo"},
                                             "add_test(NAME kernel_soak_8)", {"kMost"})
        self.assertEqual([error.split(" no ")[1] for error in errors],
                         ["scripts/sock", "scripts/chrn", "test kernel_sock for ctest", "constant kLeast"])


class Subjects(unittest.TestCase):
    """Against a repository of their own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="mpls_vpn_subjects.")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.git("init", "-q")
        self.git("config", "user.name", "test")
        self.git("config", "user.email", "test@example.org")
        self.commit("before")
        self.saved = check_tree.ROOT, check_tree.FIRST_CHECKED_AFTER
        self.addCleanup(self.restore)
        check_tree.ROOT, check_tree.FIRST_CHECKED_AFTER = self.folder, self.git("rev-parse", "HEAD").strip()

    def restore(self):
        check_tree.ROOT, check_tree.FIRST_CHECKED_AFTER = self.saved

    def git(self, *words):
        return subprocess.run(["git", *words], cwd=self.folder, check=True, capture_output=True, text=True).stdout

    def commit(self, subject):
        self.git("commit", "-q", "--allow-empty", "-m", subject)

    def errors(self, *subjects):
        for subject in subjects:
            self.commit(subject)
        return len(check_tree.subject_errors({"cli", "tests/e2e", "vpn mib"}))

    def test_area_and_imperative_summary_are_accepted(self):
        self.assertEqual(self.errors("cli: Show the VNI of a VRF", "vpn mib: Keep " + "x" * 58, "tests/e2e: Run it twice"), 0)

    def test_other_subjects_are_errors(self):
        self.assertEqual(self.errors("Show the VNI", "other: Show the VNI", "cli: show the VNI", "cli: Show the VNI.",
                                     "cli: Show " + "x" * 68), 5)

    def test_areas_are_those_that_the_document_lists_and_the_services(self):
        self.restore()
        areas = check_tree.areas({"platform/core/evm/evm.h"})
        self.assertLessEqual({"cli", "docs", "vpn mib", "sources/kernel", "evm"}, areas)
        self.assertNotIn("everything", areas)


if __name__ == "__main__":
    unittest.main()
