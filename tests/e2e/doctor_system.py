"""For tests of "mplsvpn doctor" with real processes: one check, its state, its findings and what it advises."""
import json
import os
import subprocess

from system import BIN, SystemTest

ROUTER = "vrfs: [{name: red, table: 10}]\ninterfaces: [{name: ge0, index: 1, vrf: red, addresses: [10.1.0.1/24]}]\n"
STATES = {"ok": 0, "notPossible": 0, "warning": 1, "error": 2}
OTHER_USER = ("setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups")
OPERATOR = ("setpriv", "--reuid", "64999", "--regid", "64999", "--clear-groups")  # a user without a name
IS_ROOT = os.geteuid() == 0
ALONE = ("unshare", "--pid", "--fork", "--mount-proc")  # without the processes of others
WITHOUT = (*ALONE, "sh", "-c", 'for file in $(which -a "$0"); do mount --bind /dev/null "$file"; done; exec "$@"')


class DoctorTest(SystemTest):
    def started(self, router=ROUTER, **options):
        system = self.new_system(router, **options)
        system.start_daemon()
        return system

    def words(self, system, *words):
        socket_given = ("--agentx-socket", str(system.agentx)) if system.agentx else ()
        return (str(BIN / "mplsvpn"), "--json", "doctor", *socket_given, *words)

    def diagnose(self, system, check, *words, wrapper=()):
        """(state, the texts of the findings) of one check."""
        result = subprocess.run([*wrapper, *self.words(system, "--only", check, *words)], env=system.environment,
                                capture_output=True, text=True, check=False)
        self.assertIn(result.returncode, (0, 1, 2), result.stderr)
        shown, = json.loads(result.stdout)
        self.assertEqual(shown["id"], check)
        self.assertEqual(result.returncode, STATES[shown["state"]])
        return shown["state"], " / ".join(finding["text"] for finding in shown["findings"])

    def fixes(self, system, check, *words, wrapper=()):
        result = subprocess.run([*wrapper, *self.words(system, "--only", check, *words)], env=system.environment, capture_output=True,
                                text=True, check=False)
        return [finding["fix"] for finding in json.loads(result.stdout)[0]["findings"]]

    def becomes_ok(self, system, check, *words):
        self.becomes(check, lambda: self.diagnose(system, check, *words), ("ok", ""))

    def assert_found(self, system, check, state, text, *words, wrapper=()):
        found = self.diagnose(system, check, *words, wrapper=wrapper)
        self.assertEqual(found[0], state, found)
        self.assertIn(text, found[1])
