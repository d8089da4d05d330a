#!/usr/bin/env python3
"""The checks of "mplsvpn doctor" of snmpd and of what connects to it, with real processes: each is triggered, and is quiet again
when the cause is removed."""
import grp
import os
import pathlib
import pwd
import re
import signal
import socket
import subprocess
import tempfile
import unittest

from doctor_system import ALONE, IS_ROOT, OTHER_USER, ROUTER, WITHOUT, DoctorTest
from system import BIN, ROOT, wait_until


class Snmp(DoctorTest):
    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root makes process namespaces")
    def test_snmpd_that_does_not_run_is_an_error(self):
        system = self.started()
        self.assert_found(system, "snmpd-running", "error", "no snmpd runs", wrapper=ALONE)
        system.start_snmpd()
        self.assertEqual(self.diagnose(system, "snmpd-running"), ("ok", ""))

    def test_agentx_socket_that_is_missing_or_closed_is_an_error(self):
        system = self.started()
        self.assert_found(system, "agentx-socket", "error", f"{system.agentx} does not exist")
        system.module = None
        system.start_snmpd()
        self.assertEqual(self.diagnose(system, "agentx-socket"), ("ok", ""))

    def test_agentx_socket_without_a_listener_is_an_error(self):
        system = self.new_system(ROUTER)
        with socket.socket(socket.AF_UNIX) as left_over:
            left_over.bind(str(system.agentx))
        self.assert_found(system, "agentx-socket", "error", f"{system.agentx}: Connection refused")

    def test_agentx_socket_is_that_of_snmpds_configuration(self):
        system = self.new_system(ROUTER)
        conf = system.folder / "named.conf"
        conf.write_text(f"master agentx\nagentXSocket unix:{system.folder}/named\n")
        given = ("--snmpd-conf", str(conf))
        system.agentx = None
        self.assert_found(system, "agentx-socket", "error", f"{system.folder}/named does not exist", *given)
        conf.write_text("agentXSocket tcp:localhost:705\n")
        self.assert_found(system, "agentx-socket", "notPossible", "tcp:localhost:705 is not the path of a Unix socket", *given)

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root hides programs")
    def test_machine_without_snmpd_or_without_the_sub_agent_has_no_errors_of_them(self):
        system = self.started()
        system.environment["PATH"] += f":{BIN}"
        for program, text, fix in (("snmpd", "snmpd is not installed", "apt-get install snmpd"),
                                   ("mpls_vpn_snmp", "the sub-agent is not installed",
                                    "apt install ./mplsvpn-snmp_*.deb, in the folder with the packages")):
            for check in "snmpd-running", "agentx-socket", "snmp-front-end", "snmp-view":
                with self.subTest(check, program=program):
                    self.assert_found(system, check, "notPossible", text, wrapper=(*WITHOUT, program))
                    self.assertEqual(self.fixes(system, check, wrapper=(*WITHOUT, program)), [fix])

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root becomes another user")
    def test_agentx_socket_of_another_user_is_an_error(self):
        system = self.new_system(ROUTER)
        system.module = None
        system.start_snmpd()
        system.folder.chmod(0o755)
        self.assert_found(system, "agentx-socket", "error", f"of the sub-agent has no permission for {system.agentx}",
                          wrapper=OTHER_USER)

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root becomes another user")
    def test_closed_agentx_socket_is_opened_by_what_is_advised_and_stays_that_of_its_group(self):
        system = self.new_system(ROUTER)
        system.module = None
        system.start_snmpd()
        with tempfile.NamedTemporaryFile("w", suffix=".conf") as conf:
            os.chmod(conf.name, 0o644)

            def advised(line):
                conf.seek(0)
                conf.truncate()
                conf.write(line + "\n")
                conf.flush()
                fix, = self.fixes(system, "agentx-socket", "--snmpd-conf", conf.name, wrapper=OTHER_USER)
                return fix
            fix = advised("agentXPerms 0660 0711")
            self.assertEqual(fix, f"chmod a+x {system.folder}")
            subprocess.run(fix, shell=True, check=True)
            restart = ", then: systemctl restart snmpd"
            member = f"usermod -aG daemon {pwd.getpwuid(65534).pw_name}, then: systemctl restart mpls_vpn_snmp"
            self.assertEqual(advised("master agentx"), 'add "agentXPerms 0660 0711 Debian-snmp mpls_vpn_snmp" to snmpd.conf' + restart)
            self.assertEqual(advised("agentXPerms 0600 0755 man"),
                             f'replace the line {conf.name}:1 by "agentXPerms 0660 0755 man mpls_vpn_snmp"{restart}')
            self.assertEqual(advised("agentXPerms 0660 0755 man daemon"), member)
            self.assertEqual(advised("agentXPerms 0600 0755 man daemon"),
                             f'replace the line {conf.name}:1 by "agentXPerms 0660 0755 man daemon"{restart}; {member}')

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root gives files to groups")
    def test_snmpd_accepts_the_agentx_permissions_of_the_package_without_a_complaint(self):
        system = self.new_system(ROUTER)
        system.module = None
        line = re.search(r"(?m)^agentXPerms .*$", (ROOT / "packaging/snmpd.conf").read_text())[0]
        system.more_snmpd_settings = line.replace("mpls_vpn_snmp", "daemon") + "\n"
        system.start_snmpd()
        self.assertNotIn("Can't identify", system.log("snmpd"))
        found = system.agentx.stat()
        self.assertEqual((found.st_gid, found.st_mode & 0o777), (grp.getgrnam("daemon").gr_gid, 0o660))
        self.assertEqual(line, "agentXPerms 0660 0711 Debian-snmp mpls_vpn_snmp")

    def test_front_end_that_is_not_connected_is_an_error(self):
        system = self.started()
        self.assert_found(system, "snmp-front-end", "error", "neither the sub-agent, which does not run, nor the module is connected",
                          wrapper=ALONE)
        self.assertEqual(self.fixes(system, "snmp-front-end", wrapper=ALONE), ["systemctl start mpls_vpn_snmp"])
        system.start_snmpd()
        system.start_agent()
        self.becomes_ok(system, "snmp-front-end")

    def test_sub_agent_that_runs_without_a_connection_is_not_reported_as_ended(self):
        system = self.started()
        system.module = None
        system.start_snmpd()
        system.start_agent()
        self.becomes_ok(system, "snmp-front-end")
        agent = system.processes["agent"]
        agent.send_signal(signal.SIGSTOP)  # it does not connect again
        self.addCleanup(agent.send_signal, signal.SIGCONT)
        system.kill("daemon")
        system.start_daemon()
        self.assert_found(system, "snmp-front-end", "warning", "but it is not connected to the daemon for ")
        self.assertRegex(self.diagnose(system, "snmp-front-end")[1], r"^the sub-agent runs \(process \d+\), .* for \d+ s; 0 traps wait$")
        self.assertEqual(self.fixes(system, "snmp-front-end"), ["wait 10 s and run mplsvpn doctor again"])
        agentx, system.agentx = system.agentx, system.folder / "absent"
        self.assert_found(system, "snmp-front-end", "error", "it cannot connect to snmpd, see agentx-socket")
        self.assertEqual(self.fixes(system, "snmp-front-end"), self.fixes(system, "agentx-socket"))
        system.agentx = agentx
        self.becomes("an error", lambda: self.diagnose(system, "snmp-front-end")[0], "error")
        self.assertEqual(self.fixes(system, "snmp-front-end"), ["journalctl -u mpls_vpn_snmp; systemctl restart mpls_vpn_snmp"])
        agent.send_signal(signal.SIGCONT)
        self.becomes_ok(system, "snmp-front-end")

    def asking(self, system):
        return "--snmp", f"-v2c -c public -t 5 127.0.0.1:{system.port}"

    def test_view_without_the_mib_is_an_error_by_snmpds_answer(self):
        system = self.started()
        system.more_snmpd_settings = "view narrow included .1.3.6.1.2.1.1\nrocommunity hidden default -V narrow\n"
        system.start_snmpd()
        system.start_agent()
        self.becomes_ok(system, "snmp-view", *self.asking(system))
        hidden = self.asking(system)[1].replace("public", "hidden")
        self.assert_found(system, "snmp-view", "error", "No Such Object", "--snmp", hidden)
        self.assert_found(system, "snmp-view", "error", "No Such Object", "--snmp", hidden.replace("-v2c", "-v1"))
        system.kill("snmpd")
        self.assert_found(system, "snmp-view", "error", "snmpd does not answer: Timeout", "--snmp", hidden.replace("-t 5", "-t 1 -r 0"))

    def test_view_without_the_mib_is_an_error_by_the_configuration(self):
        system = self.new_system(ROUTER)
        stock = system.folder / "snmpd.conf"
        stock.write_text("view systemonly included .1.3.6.1.2.1.1\nrocommunity public default -V systemonly\n"
                         f"includeDir {system.folder}/more\n")
        given = ("--snmpd-conf", str(stock))
        self.assert_found(system, "snmp-view", "error", f"{stock}:2: rocommunity shows the view systemonly, which lacks it", *given)
        more = system.folder / "more"
        more.mkdir()
        shipped = (ROOT / "packaging/snmpd.conf").read_text()
        (more / "mib.conf").write_text(shipped)
        line = shipped.splitlines().index("rocommunity l3vpn 127.0.0.1 -V l3vpn") + 1
        self.assertEqual(self.diagnose(system, "snmp-view", *given), ("ok", f"{more}/mib.conf:{line} shows it; {stock}:2 does not"))
        (more / "mib.conf").write_text("view systemonly included .1.3.6.1.2.1\nview systemonly excluded .1.3.6.1.2.1.10\n")
        self.assertEqual(self.diagnose(system, "snmp-view", *given)[0], "error")
        stock.write_text("rocommunity public default .1.3.6.1.2.1\n")
        self.assertEqual(self.diagnose(system, "snmp-view", *given), ("ok", ""))
        stock.write_text("")
        self.assert_found(system, "snmp-view", "error", "lets no manager read anything", *given)
        self.assert_found(system, "snmp-view", "notPossible", "No such file", "--snmpd-conf", "/nonexistent.conf")

    def test_well_known_community_is_not_shown_the_mib(self):
        system = self.new_system(ROUTER)
        stock = system.folder / "stock.conf"
        stock.write_text("view systemonly included .1.3.6.1.2.1.1\nrocommunity public default -V systemonly\n"
                         "rocommunity6 public default -V systemonly\nincludeDir /etc/snmp/snmpd.conf.d\n")
        example = "install -m 640 -g Debian-snmp /usr/share/doc/mplsvpn-snmp/examples/snmpd.conf"
        self.assertIn(example, " ".join((ROOT / "README.md").read_text().split()))
        fix, = self.fixes(system, "snmp-view", "--snmpd-conf", str(stock))
        self.assertIn(example if not pathlib.Path("/etc/snmp/snmpd.conf.d/mpls_vpn_mib.conf").exists() else "MANAGER", fix)
        self.assertIn('"rocommunity COMMUNITY MANAGER -V l3vpn"', fix)
        stock.write_text(stock.read_text().replace("includeDir", "#"))
        fix, = self.fixes(system, "snmp-view", "--snmpd-conf", str(stock))
        self.assertIn('"rocommunity COMMUNITY MANAGER -V l3vpn"', fix)

    def test_manager_without_the_if_mib_has_no_verdict_of_its_interfaces(self):
        system = self.started()
        system.more_snmpd_settings = "view l3vpn included .1.3.6.1.2.1.10.166.11\nrocommunity narrow default -V l3vpn\n"
        system.start_snmpd()
        for version in "-v2c", "-v1":
            asking = self.asking(system)[1].replace("public", "narrow").replace("-v2c", version)
            self.assert_found(system, "snmp-ifindex", "notPossible", "this manager may not read the IF-MIB", "--snmp", asking)
        self.assert_found(system, "snmp-ifindex", "notPossible", "snmpd does not answer: Timeout", "--snmp",
                          asking.replace("-t 5", "-t 1 -r 0").replace("narrow", "unknown"))

    @unittest.skipUnless(IS_ROOT, "SKIPPED: only root makes network namespaces")
    def test_interface_that_snmpd_does_not_show_is_a_warning_with_the_reason(self):
        names = {name: int(pathlib.Path(f"/sys/class/net/{name}/ifindex").read_text()) for name in os.listdir("/sys/class/net")}
        other = "lo" if len(names) == 1 else next(name for name in names if name != "lo")
        interfaces = f"{{name: {other}, index: {names[other]}, vrf: red}}, {{name: nosuch0, index: {max(names.values()) + 1}, vrf: red}}"
        system = self.started(f"vrfs: [{{name: red, table: 10}}]\ninterfaces: [{interfaces}]\n")
        system.start_snmpd()
        self.assert_found(system, "snmp-ifindex", "warning", "snmpd does not show 1 of our interfaces, nosuch0: this network namespace does "
                          "not have them", *self.asking(system))
        self.assertNotIn(other, self.diagnose(system, "snmp-ifindex", *self.asking(system))[1])
        if other == "lo":
            self.skipTest("SKIPPED: this machine has no interface but lo")
        address, conf = f"unix:{system.folder}/other.sock", system.folder / "other.conf"
        conf.write_text("authcommunity read public\n")
        system.spawn("other", "unshare", "--net", "snmpd", "-f", "-Lo", "-C", "-c", str(conf), address)
        wait_until("snmpd", lambda: "NET-SNMP version" in system.log("other"))
        self.assert_found(system, "snmp-ifindex", "warning", f"snmpd does not show 1 of our interfaces, {other}: it runs in another network "
                          "namespace", "--snmp", f"-v2c -c public -t 5 {address}")

    def test_other_ifindex_of_an_interface_is_an_error(self):
        index = int(pathlib.Path("/sys/class/net/lo/ifindex").read_text())
        system = self.started(ROUTER.replace("name: ge0, index: 1", f"name: lo, index: {index}"))
        self.assert_found(system, "snmp-ifindex", "notPossible", "the community is unknown")
        system.start_snmpd()
        self.assertEqual(self.diagnose(system, "snmp-ifindex", *self.asking(system)), ("ok", ""))
        system.router_file.write_text(ROUTER.replace("name: ge0, index: 1", f"name: lo, index: {index + 76}"))
        self.becomes("an error", lambda: self.diagnose(system, "snmp-ifindex", *self.asking(system))[0], "error")
        self.assert_found(system, "snmp-ifindex", "error", f"interface lo has ifIndex {index + 76} here and {index} in snmpd",
                          *self.asking(system))


if __name__ == "__main__":
    unittest.main()
