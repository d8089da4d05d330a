#!/usr/bin/env python3
"""The manual pages have every command and option of the programs' help and every key of the files that the daemon reads, and no
others, and groff formats them without a warning."""
import os
import re
import shutil
import subprocess
import unittest

from system import BIN, ROOT, SLOW, System

FOLDER = ROOT / "packaging/man"
COMPLETED = BIN.parent / "packaging/man"  # of pages that the build completes
PAGES = {name: FOLDER / name for name in ("mpls_vpn_mib.8", "mpls_vpn_snmp.8", "platform.yaml.5", "mpls_vpn_router.5")}
PAGES["mplsvpn.1"] = COMPLETED / "mplsvpn.1"
OPTION = r"(?<![\w-])--[a-z][a-z-]+"


def text_of(page):
    """The page as a reader sees it, without line breaks and hyphenation."""
    environment = dict(os.environ, MANWIDTH="1000", MANPAGER="cat", MAN_KEEP_FORMATTING="", LC_ALL="C.UTF-8", MANOPT="--nh --nj")
    shown = subprocess.run(["man", "-l", str(PAGES[page])], env=environment, check=True, capture_output=True, text=True,
                           timeout=60 * SLOW).stdout
    return shown.replace("‐", "-").replace("−", "-")


def help_of(program, *words):
    return subprocess.run([str(BIN / program), *words, "--help"], check=True, capture_output=True, text=True,
                          timeout=60 * SLOW).stdout


def commands(*words):
    """[(words, help)] of the command line's commands, from the top."""
    text = help_of("mplsvpn", *words)
    below = re.search(r"^subcommands:\n((?:  .*\n|\n(?=  ))*)", text, re.MULTILINE | re.IGNORECASE)
    names = re.findall(r"^  (\S+)", below[1], re.MULTILINE) if below else []
    return [(words, text)] + [found for name in names for found in commands(*words, name)]


def keys_in(*sources):
    """The words of the tables and lists of keys in these sources of the daemon."""
    text = "".join((ROOT / source).read_text() for source in sources)
    tables = re.findall(r"Key(?:<\w+>)? k\w*Keys\[\] = \{(.*?)\};", text, re.DOTALL)
    return {key for table in tables for key in re.findall(r'\{"([\w-]+)",', table)}


def bold_words(page):
    source = PAGES[page].read_text()
    source = re.sub(r"^\.EX.*?^\.EE", "", source[source.index(".SH KEYS"):], flags=re.DOTALL | re.MULTILINE)
    bold = re.findall(r'^\.(?:B|BR|RB) (.*)$', source[:source.index(".SH EXAMPLES")].replace("\\-", "-"), re.MULTILINE)
    return {word for line in bold for word in re.findall(r"[a-z][\w-]*", line)}


@unittest.skipUnless(shutil.which("man"), "SKIPPED: no man")
class Pages(unittest.TestCase):
    def test_groff_has_no_warning(self):
        for page, file in PAGES.items():
            result = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", str(file)], capture_output=True,
                                    timeout=60 * SLOW, check=False)
            self.assertEqual((result.returncode, result.stderr), (0, b""), page)

    def test_pages_fit_a_terminal_of_80_columns_but_for_examples(self):
        for page, file in PAGES.items():
            source = re.sub(r"^\.EX.*?^\.EE", "", file.read_text(), flags=re.DOTALL | re.MULTILINE)
            shown = subprocess.run(["man", "-l", "-"], input=source, env=dict(os.environ, MANWIDTH="80", MANPAGER="cat",
                                   LC_ALL="C.UTF-8"), check=True, capture_output=True, text=True, timeout=60 * SLOW).stdout
            self.assertEqual([line for line in shown.splitlines() if len(line) > 80], [], page)

    def test_command_lines_page_has_every_command_with_its_options(self):
        text = text_of("mplsvpn.1")
        for words, shown in commands():
            title = " ".join(("mplsvpn",) + words)
            if words:
                self.assertRegex(text, rf"(?m)^   {re.escape(title)}$", f"{title} is missing in the page")
            section = text.split("\n   " + title + "\n")[1].split("\n   mplsvpn ")[0] if words else text
            for option in set(re.findall(r"^  (?:-\w, *)?(" + OPTION + ")", shown, re.MULTILINE)) - {"--help"}:
                self.assertIn(option, section, f"{title} {option} is missing in the page")

    def test_pages_of_the_programs_have_every_option_and_no_other(self):
        for program in "mpls_vpn_mib", "mpls_vpn_snmp":
            options = set(re.findall(OPTION, help_of(program)))
            listed = text_of(program + ".8").split("\nOPTIONS\n")[1].split("\nEXIT STATUS\n")[0]
            self.assertEqual(set(re.findall(OPTION, listed)), options, program)

    def test_pages_have_every_variable_of_the_environment_that_the_help_names(self):
        for program, page in ("mpls_vpn_mib", "mpls_vpn_mib.8"), ("mpls_vpn_snmp", "mpls_vpn_snmp.8"), ("mplsvpn", "mplsvpn.1"):
            for variable in set(re.findall(r"MPLS_VPN_MIB_[A-Z_]+|AGENTX_SOCKET", help_of(program))):
                self.assertIn(variable, text_of(page), page)

    def test_page_of_the_command_line_has_every_variable_that_it_reads(self):
        sources = "".join(file.read_text() for file in (ROOT / "cli").rglob("*.cpp") if not file.name.endswith("_test.cpp"))
        variables = set(re.findall(r'(?:getenv|environment)\("([A-Z_]+)"', sources))
        self.assertIn("NO_COLOR", variables)
        page = text_of("mplsvpn.1")
        self.assertEqual([variable for variable in variables if not re.search(rf"\b{variable}\b", page)], [])

    def test_page_of_the_settings_has_every_key(self):
        keys = keys_in("daemon/settings.cpp", "daemon/metrics/settings.cpp")
        options = re.findall(r"\.key = k(\w+)", (ROOT / "daemon/sources.cpp").read_text())
        names = dict(re.findall(r'string_view k(\w+) = "(\w+)"', (ROOT / "daemon/sources.cpp").read_text()))
        keys |= {names[option] for option in options}
        self.assertLessEqual({"source", "frr", "router_file", "port"}, keys)
        self.assertEqual(keys - bold_words("platform.yaml.5"), set())

    def test_page_of_the_router_file_has_every_key(self):
        reader = [str(file.relative_to(ROOT)) for file in (ROOT / "sources/file/reader").glob("*.cpp")
                  if not file.name.endswith("_test.cpp")]
        keys = keys_in(*reader)
        self.assertGreater(len(keys), 40)
        items = (ROOT / "platform/config/vrf_config.h").read_text()
        switches = {word for line in re.findall(r"kTrap(?:Items|All|ReissueTime)\b[^;]*;", items)
                    for word in re.findall(r'"([\w-]+)"', line)}
        self.assertEqual(len(switches), 8)
        lists = {"import", "export", "both", "ipv4", "ipv6"}
        self.assertEqual((keys | switches | lists) - bold_words("mpls_vpn_router.5"), set())

    def test_example_of_the_router_files_page_is_a_router(self):
        source = PAGES["mpls_vpn_router.5"].read_text().replace("\\-", "-")
        with System(re.search(r"\.EX\n(.*?)\.EE", source, re.DOTALL)[1]) as system:
            system.start_daemon()
            self.assertEqual([vrf["name"] for vrf in system.cli_json("show", "vrf")], ["red"])

    def test_references_among_the_pages_exist(self):
        for page, file in PAGES.items():
            for name, section in re.findall(r"^\.BR ((?:mpls|platform)[\w.]*) \((\d)\)", file.read_text(), re.MULTILINE):
                self.assertIn(f"{name}.{section}", PAGES, page)


if __name__ == "__main__":
    unittest.main()
