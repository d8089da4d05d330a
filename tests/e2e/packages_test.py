#!/usr/bin/env python3
"""What the files of debian/ repeat of the build is the same there: version, packages that the build needs, components. The packages
themselves are built and tested by scripts/package --test."""
import re
import subprocess
import tempfile
import unittest

from system import BIN, ROOT

CONTROL = (ROOT / "debian/control").read_text()


def needed_by_the_build():
    """The list that the scripts install; compilers are part of build-essential, which every Debian build has."""
    out = subprocess.run(["bash", "-euc", '. scripts/lib.sh; printf "%s\\n" "${packages_build[@]}"'], cwd=ROOT, check=True, text=True,
                         stdout=subprocess.PIPE, timeout=60).stdout
    return set(out.split()) - {"g++"}


def build_depends():
    field = re.search(r"^Build-Depends:((?:.*\n)(?: .*\n)*)", CONTROL, re.MULTILINE)[1]
    return {entry.split()[0] for entry in field.split(",")}


def installed_components():
    """Names in the installation script that CMake has generated, without those of the programs that are not shipped."""
    scripts = [BIN.parent / "packaging/cmake_install.cmake", *BIN.parent.glob("packaging/*/cmake_install.cmake")]
    return {name for script in scripts for name in re.findall(r'CMAKE_INSTALL_COMPONENT STREQUAL "([^"]+)"', script.read_text())}


class DebianFiles(unittest.TestCase):
    def test_changelog_has_the_version_of_the_project(self):
        project = re.search(r"^project\(\S+ VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
        changelog = (ROOT / "debian/changelog").read_text()
        self.assertEqual(re.match(r"mplsvpn \((\S+)\)", changelog)[1], project)

    def test_build_needs_what_the_scripts_install(self):
        self.assertEqual(build_depends() - {"debhelper-compat"}, needed_by_the_build())

    def test_packages_are_the_components_of_the_installation(self):
        packages = set(re.findall(r"^Package: (\S+)", CONTROL, re.MULTILINE))
        self.assertEqual(packages, installed_components() - {"debug"})

    def test_build_without_tests_is_configured(self):
        """The packages' build, which has no test program."""
        with tempfile.TemporaryDirectory(prefix="mpls_vpn_packages.") as folder:
            result = subprocess.run(["cmake", "-G", "Ninja", "-DMPLS_FAULT_POINTS=OFF", "-S", str(ROOT), "-B", folder], check=False,
                                    text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=100)
        self.assertEqual(result.returncode, 0, result.stdout[-2000:])


if __name__ == "__main__":
    unittest.main()
