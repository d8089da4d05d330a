"""Runs batches of operations on a fresh system, each run in a process and a network namespace of its own."""
import json
import os
import pathlib
import sys
import time
import traceback

from compare import Comparison
from rig import Rig, enter_new_namespace
from times import Times
from world import VRF_NAMES

OUT = pathlib.Path(os.environ.get("UML_OUT", "."))

BOUND, SUITE_BOUND = 12.0, 40.0  # s, times SLOW
PLACES = {name: place for place, name in enumerate(VRF_NAMES, 1)}


class Run:
    """The result. `errors` is empty if the system agreed after every batch."""

    def __init__(self):
        self.batches, self.errors = [], []
        self.operations = self.lines = self.failed_lines = 0
        self.seconds = 0.0


class Settings:
    """For all runs: the suite's release (None: without a suite), and how long a batch may disagree."""

    def __init__(self, release=None):
        self.release = release
        self.bound = SUITE_BOUND if release else BOUND

    def of_attempt(self, batches):
        """For a sequence that is expected to disagree. Items of a killed program stay for a while."""
        attempt = Settings(self.release)
        kills = any(step.startswith("kill") for batch in batches for operation in batch for step in operation)
        attempt.bound = self.bound if kills and self.release else self.bound / 10
        return attempt


def run_batches(seed, batches, settings, report):
    """Applies the batches until one ends with a mismatch; `report` gets the Run after each."""
    run, began, rig = Run(), time.monotonic(), Rig(seed, settings.release, PLACES)
    try:
        comparison = Comparison(rig, Times())
        for batch in batches:
            run.batches.append(batch)
            run.errors = run_batch(rig, comparison, batch, settings.bound)
            run.operations += len(batch)
            run.lines, run.failed_lines, run.seconds = rig.lines, rig.failed_lines, time.monotonic() - began
            report(run)
            if run.errors:
                save_description(seed, rig)
                break
    finally:
        rig.close()


def save_description(seed, rig):
    """Saved with the sequence of operations; that of the whole sequence, not of attempts to shorten it."""
    path = OUT / f"churn-{seed}-system"
    if not path.exists():
        path.write_text(rig.describe())


def run_batch(rig, comparison, batch, bound):
    began, starts = time.time(), rig.daemon_starts
    try:
        errors = rig.apply(batch)
        rig.start_all()
        return errors or comparison.errors(touched_vrfs(batch), began, rig.daemon_starts != starts, bound)
    except Exception:  # pylint: disable=broad-except
        return [traceback.format_exc()]


def touched_vrfs(batch):
    """Names of VRFs that may have been created, deleted or renamed."""
    words = [step.split() for operation in batch for step in operation]
    return {name for line in words if line[1:3] in (["link", "add"], ["link", "del"]) or "name" in line
            for name in (line[3], line[-1])}


def in_child(seed, batches, settings):
    """The Run as a dictionary."""
    reader, writer = os.pipe()
    child = os.fork()
    if child == 0:
        os.close(reader)
        run_child(seed, batches, settings, writer)
    os.close(writer)
    last = None
    with os.fdopen(reader) as lines:
        for line in lines:
            last = json.loads(line)
    _, status = os.waitpid(child, 0)
    if last is None or status != 0:
        raise RuntimeError(f"seed {seed}: the run ended with status {status}")
    return last


def run_child(seed, batches, settings, writer):
    status = 1
    try:
        enter_new_namespace()
        with os.fdopen(writer, "w") as answers:
            run_batches(seed, batches, settings, lambda run: answers.write(json.dumps(run.__dict__) + "\n"))
        status = 0
    except BaseException:  # pylint: disable=broad-except
        traceback.print_exc()
    finally:
        sys.stdout.flush()
        sys.stderr.flush()
        os._exit(status)
