#!/usr/bin/env python3
"""report.py FOLDER: what a soak run left in the folder, also one that was interrupted: its start against its end, the slope of the
memory, and whether it passes. Status 1 if it does not.

soak.csv has a line for each interval. `end` has how the run ended: "complete" when all its changes were checked after
the last one."""
import csv
import pathlib
import statistics
import sys

PROCESSES = ("daemon", "agent", "snmpd")
KINDS = ("request", "cli", "snmp")
COLUMNS = ("seconds", *(f"{name}_kib" for name in PROCESSES), *(f"{name}_files" for name in PROCESSES), "state_kib",
           *(f"{kind}_{part}" for kind in KINDS for part in ("asked", "failed", "p50_ms", "p99_ms")),
           "rows_walked", "walks", "walk_errors", "walk_s", "walk_rows", "routes", "changes", "delay_p50_ms", "delay_max_ms",
           "pending", "commits", "traps_raised", "traps_received", "long_iterations", "lost")
FILES_GROWTH = 5        # descriptors of a process; clients come and go
MEMORY_GROWTH = 0.05    # of a process, as a part of its start, ...
LEAST_GROWTH_KIB = 8192  # ... or this much
WINDOW = 5              # lines that state the start, and the end


def read(folder):
    with open(folder / "soak.csv", newline="") as file:
        return [{name: float(value) for name, value in row.items() if value not in (None, "")} for row in csv.DictReader(file)]


def slope(lines, name):
    """Growth in an hour, by least squares."""
    times, values = [line["seconds"] / 3600 for line in lines], [line[name] for line in lines]
    mean, center = statistics.mean(times), statistics.mean(values)
    spread = sum((time - mean) ** 2 for time in times)
    return sum((time - mean) * (value - center) for time, value in zip(times, values)) / spread if spread else 0.0


def ends(lines, name, of=statistics.median):
    """The column at the start and at the end."""
    window = max(1, min(WINDOW, len(lines) // 2))
    return of([line[name] for line in lines[:window]]), of([line[name] for line in lines[-window:]])


def growth_errors(lines):
    errors = []
    for name in PROCESSES:
        start, end = ends(lines, f"{name}_kib")
        if end - start > max(LEAST_GROWTH_KIB, MEMORY_GROWTH * start):
            errors.append(f"the memory of {name} grew from {start / 1024:.1f} MiB to {end / 1024:.1f} MiB")
        start, end = ends(lines, f"{name}_files", min)
        if end - start > FILES_GROWTH:
            errors.append(f"the descriptors of {name} grew from {start:.0f} to {end:.0f}")
    return errors


def verdict(lines, end):
    """Why the run fails; empty if it passes."""
    if not lines:
        return ["nothing was measured"]
    last = lines[-1]
    errors = growth_errors(lines) if len(lines) >= 2 else []
    if last["lost"]:
        errors.append(f"{last['lost']:.0f} changes or traps were lost, see the log")
    if last["walk_errors"]:
        errors.append(f"{last['walk_errors']:.0f} walks failed, see the log")
    if not end:
        errors.append("the run ended by itself, before its time")
    elif end not in ("complete", "interrupted"):
        errors.append(end)
    return errors


def table(lines):
    yield f"{'':16}{'start':>14}{'end':>14}{'an hour':>12}"
    for name in PROCESSES:
        start, end = ends(lines, f"{name}_kib")
        yield f"{name + ' MiB':16}{start / 1024:14.1f}{end / 1024:14.1f}{slope(lines, f'{name}_kib') / 1024:+12.2f}"
    for name in PROCESSES:
        start, end = ends(lines, f"{name}_files", min)
        yield f"{name + ' files':16}{start:14.0f}{end:14.0f}"
    start, end = ends(lines, "state_kib")
    yield f"{'state KiB':16}{start:14.0f}{end:14.0f}{slope(lines, 'state_kib'):+12.1f}"
    for name in [f"{kind}_{part}_ms" for kind in KINDS for part in ("p50", "p99")] + ["delay_p50_ms", "delay_max_ms"]:
        present = [line for line in lines if name in line]
        if present:
            start, end = ends(present, name)
            yield f"{name:16}{start:14.1f}{end:14.1f}"


def totals(lines):
    last = lines[-1]
    yield f"{last['seconds'] / 3600:.2f} h, {last['routes']:.0f} routes, {last['changes']:.0f} changes " \
          f"({last['changes'] / last['seconds']:.0f} per second), {last['commits']:.0f} commits, " \
          f"{last['traps_received']:.0f} of {last['traps_raised']:.0f} traps, {last['long_iterations']:.0f} long iterations"
    yield f"{last['rows_walked']:.0f} rows walked, {last['walks']:.0f} walks of all tables" + (
        f", the last of {last['walk_rows']:.0f} rows in {last['walk_s']:.0f} s" if "walk_rows" in last else "")
    for kind in KINDS:
        asked, failed = (sum(line[f"{kind}_{part}"] for line in lines) for part in ("asked", "failed"))
        yield f"{kind}: {asked:.0f} requests, {failed:.0f} without an answer"


def report(folder, settle):
    """Prints the report; whether the run passes. Memory and descriptors count when the first `settle` lines are over."""
    lines = read(folder) if (folder / "soak.csv").exists() else []
    end = (folder / "end").read_text().strip() if (folder / "end").exists() else ""
    steady = lines[settle:] or lines
    for line in (*table(steady), *totals(lines)) if lines else ():
        print(line)
    errors = verdict(steady, end)
    print(f"{end or 'ended early'}: " + ("; ".join(errors) or "passed"))
    return not errors


if __name__ == "__main__":
    sys.exit(0 if report(pathlib.Path(sys.argv[1]), int(sys.argv[2]) if len(sys.argv) > 2 else 5) else 1)
