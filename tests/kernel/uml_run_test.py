#!/usr/bin/env python3
"""uml-run: which ends of a guest are failures and which mean that this machine cannot boot a guest; the preload that lets a
guest kernel save a part of the processor's extended state. Most tests put a linux.uml of their own into PATH."""
import concurrent.futures
import fcntl
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
SKIPPED = 77
PANIC = "Kernel panic - not syncing: Attempted to kill init! exitcode=0x0000000b"
FAKE = """\
for argument in "$@"; do case $argument in UML_SCRATCH=*) scratch=${argument#UML_SCRATCH=} ;; esac; done
"""


class Folder(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="uml_run_test.")
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)

    def program(self, name, text):
        path = self.folder / name
        path.write_text("#!/bin/sh\n" + text)
        path.chmod(0o755)
        return path

    def run_guest(self, *options, **environment):
        program = self.program("program", "echo from the guest; exit 5\n")
        return subprocess.run([HERE / "uml-run", *options, program], capture_output=True, text=True, timeout=100, check=False,
                              env=dict(os.environ, PATH=f"{self.folder}:{os.environ['PATH']}", **environment))


class Cpu(Folder):
    def other_guests_run(self):
        """Locks each CPU as uml-run does, until the descriptor is closed."""
        for cpu in os.sched_getaffinity(0):
            folder = os.open(f"/sys/devices/system/cpu/cpu{cpu}", os.O_RDONLY)
            try:
                fcntl.flock(folder, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError:
                return True
            finally:
                os.close(folder)
        return False

    @unittest.skipIf(len(os.sched_getaffinity(0)) < 2, "SKIPPED: needs two CPUs")
    def test_guests_at_the_same_time_have_different_cpus(self):
        if self.other_guests_run():
            self.skipTest("SKIPPED: another guest has a CPU")
        for _ in range(5):  # a choice by chance would pass once in two
            cpus = self.folder / "cpus"
            cpus.write_text("")
            self.program("linux.uml", f"taskset -cp $$ | sed 's/.*: //' >> {cpus}\nwhile [ $(wc -l < {cpus}) -lt 2 ]; do sleep 0.05; done\n")
            with concurrent.futures.ThreadPoolExecutor() as runs:
                for run in [runs.submit(self.run_guest, "-t", "20") for _ in range(2)]:
                    run.result()
            self.assertEqual(len(set(cpus.read_text().split())), 2, cpus.read_text())


class Ends(Folder):
    def guest(self, script, *options):
        self.program("linux.uml", FAKE + script)
        return self.run_guest(*options)

    def test_panic_before_the_first_program_is_skipped_with_the_panic(self):
        run = self.guest(f"echo '{PANIC}'; kill -ABRT $$")
        self.assertEqual(run.returncode, SKIPPED, run.stderr)
        self.assertRegex(run.stderr, f"SKIPPED: .*{PANIC}")

    def test_refused_ptrace_is_skipped_with_the_last_line(self):
        run = self.guest("echo 'Checking that ptrace can change system call numbers...ptrace: Operation not permitted'; exit 1")
        self.assertEqual(run.returncode, SKIPPED, run.stderr)
        self.assertRegex(run.stderr, "SKIPPED: .*ptrace: Operation not permitted")

    def test_memory_that_cannot_be_executed_is_skipped(self):
        run = self.guest("echo 'Checking PROT_EXEC mmap in /tmp...Operation not permitted'; exit 1")
        self.assertEqual(run.returncode, SKIPPED, run.stderr)
        self.assertRegex(run.stderr, "SKIPPED: .*PROT_EXEC mmap")

    def test_panic_of_a_guest_that_booted_is_a_failure(self):
        run = self.guest(f"echo 'uml-init: started'; echo '{PANIC}'; kill -ABRT $$")
        self.assertEqual(run.returncode, 125, run.stderr)
        self.assertNotIn("SKIPPED", run.stderr)

    def test_program_that_ends_with_a_status_has_that_status(self):
        run = self.guest("echo 'uml-init: started'; echo output > $scratch/output; echo 3 > $scratch/status")
        self.assertEqual((run.returncode, run.stdout), (3, "output\n"), run.stderr)

    def test_expired_time_is_a_failure(self):
        for script in ("sleep 30", "echo 'uml-init: started'; sleep 30"):
            run = self.guest(script, "-t", "1")
            self.assertEqual(run.returncode, 124, run.stderr)

    def test_panic_that_does_not_end_is_skipped(self):
        run = self.guest(f"echo '{PANIC}'; sleep 30", "-t", "1")
        self.assertEqual(run.returncode, SKIPPED, run.stderr)

    def test_machine_without_ptrace_is_skipped(self):
        self.program("python3", "echo 'ptrace is not permitted: Operation not permitted' >&2; exit 1\n")
        run = self.guest("exit 1")
        self.assertEqual(run.returncode, SKIPPED, run.stderr)
        self.assertRegex(run.stderr, "SKIPPED: .*ptrace is not permitted")


class Preload(Folder):
    def loaded(self, octets, **environment):
        """The preload with which linux.uml is started on a processor with so many octets of extended state."""
        self.program("python3", f"echo {octets}\n")
        self.program("linux.uml", FAKE + "echo \"${LD_PRELOAD##*/}\" > $scratch/output; echo 0 > $scratch/status\n")
        return self.run_guest(**environment)

    def test_processor_whose_state_fits_has_no_preload(self):
        self.assertEqual(self.loaded(2696).stdout, "\n")

    def test_processor_with_more_state_has_the_preload(self):
        run = self.loaded(11008)
        self.assertEqual(run.stdout, "whole_xstate.so\n", run.stderr)

    def test_preload_is_used_on_demand(self):
        run = self.loaded(832, UML_WHOLE_XSTATE="always")
        self.assertEqual(run.stdout, "whole_xstate.so\n", run.stderr)

    def test_compiler_is_needed_only_with_the_preload(self):
        self.assertEqual(self.loaded(2696, CC="/nonexistent/cc").returncode, 0)
        run = self.loaded(11008, CC="/nonexistent/cc")
        self.assertEqual(run.returncode, SKIPPED, run.stderr)
        self.assertRegex(run.stderr, "SKIPPED: .*11008 octets.*does not compile")

    @unittest.skipUnless(shutil.which("linux.uml"), "SKIPPED: linux.uml is not here")
    def test_guest_boots_with_the_preload(self):
        if self.run_guest().returncode == SKIPPED:
            self.skipTest("SKIPPED: this machine boots no guest")
        run = self.run_guest(UML_WHOLE_XSTATE="always")
        self.assertEqual((run.returncode, run.stdout), (5, "from the guest\n"), run.stderr)


class RoundTrip(Folder):
    """Real kernel, with a buffer that is smaller than this machine's extended state."""

    def compiled(self, name, *options):
        made = self.folder / pathlib.Path(name).stem
        subprocess.run([os.environ.get("CC", "cc"), "-O2", *options, "-o", made, HERE / name], check=True, timeout=60)
        return made

    def outcome(self, **environment):
        run = subprocess.run([self.compiled("xstate_round_trip.c")], capture_output=True, text=True, timeout=60, check=False,
                             env=dict(os.environ, **environment))
        if run.returncode == SKIPPED:
            self.skipTest("SKIPPED: this processor has no registers beside x87, SSE and AVX")
        return run.returncode, run.stdout

    def test_part_of_the_state_is_refused_without_the_preload(self):
        self.assertEqual(self.outcome(), (0, "refused\n"))

    def test_part_of_the_state_is_accepted_with_the_preload(self):
        library = self.compiled("whole_xstate.c", "-shared", "-fPIC")
        self.assertEqual(self.outcome(LD_PRELOAD=str(library)), (0, "accepted\n"))


if __name__ == "__main__":
    unittest.main()
