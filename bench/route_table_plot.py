#!/usr/bin/env python3
"""Draws how long a manager waits for the first row of one VRF's route table, and how long snmpd gives no answer meanwhile, for
1,000 to 1,000,000 routes: the sub-agent, the module inside snmpd, and snmpd's own inetCidrRouteTable, measured in one run.

  route_table_plot.py BIN_DIRECTORY BENCH_DIRECTORY SVG [--brief]        (as root, for a network namespace)

A table that needs more than PATIENCE is not measured with more routes; its last mark is an arrow."""
import json
import math
import pathlib
import sys

import route_table_bench as bench

PATIENCE = 600  # seconds
COUNTS = (1000, 3000) if bench.BRIEF else (1000, 3000, 10000, 30000, 100000, 300000, 1000000)
SUB_AGENT, MODULE, THEIRS = "sub-agent", "module in snmpd", "snmpd's own table"
COLORS = {SUB_AGENT: "#1f6fb4", MODULE: "#2a9d6f", THEIRS: "#c4501b"}
PANELS = ("time to the first row", "longest time in which snmpd does not answer")


class Point:
    def __init__(self, count, first, silence, ended=True):
        self.count, self.seconds, self.ended = count, (first, silence), ended


def measure_ours(count, module):
    with bench.System(json.dumps(bench.ROUTER)) as system:
        system.module = module
        system.start_all()
        bench.give_routes(system, count)
        return Point(count, *bench.first_and_silence(system, bench.OURS, count))


def measure_theirs(count):
    with bench.System(json.dumps(bench.ROUTER)) as system:
        system.start_snmpd()
        try:
            return Point(count, *bench.first_and_silence(system, bench.THEIRS, count, PATIENCE))
        except TimeoutError:
            return Point(count, PATIENCE, PATIENCE, ended=False)


def measure():
    lines = {name: [] for name in COLORS}
    for count in COUNTS:
        bench.fill_kernel(count)
        lines[SUB_AGENT].append(measure_ours(count, None))
        lines[MODULE].append(measure_ours(count, bench.MODULE))
        if not lines[THEIRS] or lines[THEIRS][-1].ended:
            lines[THEIRS].append(measure_theirs(count))
        bench.empty_kernel()
        for name, points in lines.items():
            if points[-1].count == count:
                limit = "" if points[-1].ended else "more than "
                print(f"  {count:9,} routes  {name:18} first row {limit}{points[-1].seconds[0]:.4f} s, "
                      f"silence {limit}{points[-1].seconds[1]:.4f} s", flush=True)
    return lines


class Panel:
    """One chart with logarithmic axes; X and Y of its plot's lower left corner."""
    WIDTH, HEIGHT, LOW, HIGH = 330, 260, -4, 3  # exponents of seconds

    def __init__(self, left, title):
        self.left, self.bottom, self.title = left, 330, title

    def x(self, count):
        return self.left + self.WIDTH * (math.log10(count) - 3) / 3

    def y(self, seconds):
        exponent = min(max(math.log10(max(seconds, 1e-9)), self.LOW), self.HIGH)
        return self.bottom - self.HEIGHT * (exponent - self.LOW) / (self.HIGH - self.LOW)

    def axes(self):
        yield f'<text x="{self.left}" y="{self.bottom - self.HEIGHT - 14}" class="title">{self.title}</text>'
        for exponent, label in zip(range(self.LOW, self.HIGH + 1), ("0.1 ms", "1 ms", "10 ms", "0.1 s", "1 s", "10 s", "100 s", "")):
            y = self.y(10.0 ** exponent)
            yield f'<line x1="{self.left}" x2="{self.left + self.WIDTH}" y1="{y:.1f}" y2="{y:.1f}" class="grid"/>'
            yield f'<text x="{self.left - 8}" y="{y + 4:.1f}" class="tick" text-anchor="end">{label}</text>'
        for exponent, label in zip(range(3, 7), ("1,000", "10,000", "100,000", "1,000,000")):
            x = self.x(10 ** exponent)
            yield f'<text x="{x:.1f}" y="{self.bottom + 18}" class="tick" text-anchor="middle">{label}</text>'
        yield (f'<text x="{self.left + self.WIDTH / 2}" y="{self.bottom + 36}" class="tick" text-anchor="middle">'
               "routes in the table</text>")

    def line(self, points, which, color):
        places = [(self.x(point.count), self.y(point.seconds[which]), point) for point in points]
        corners = " ".join(f"{x:.1f},{y:.1f}" for x, y, _ in places)
        yield f'<polyline points="{corners}" fill="none" stroke="{color}" stroke-width="2"/>'
        for x, y, point in places:
            limit = "" if point.ended else "more than "
            title = f"<title>{point.count:,} routes: {limit}{point.seconds[which]:.4g} s</title>"
            if point.ended:
                yield f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{color}">{title}</circle>'
            else:
                yield f'<path d="M{x - 6:.1f} {y:.1f}L{x:.1f} {y - 10:.1f}L{x + 6:.1f} {y:.1f}Z" fill="{color}">{title}</path>'


def draw(lines):
    yield ('<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 880 420" font-family="sans-serif" font-size="12">'
           "<style>.title{font-weight:bold;fill:#222}.tick{fill:#555}.grid{stroke:#ddd}</style>"
           '<rect width="880" height="420" fill="#fff"/>')
    for which, (left, title) in enumerate(zip((70, 500), PANELS)):
        panel = Panel(left, title)
        yield from panel.axes()
        for name, points in lines.items():
            yield from panel.line(points, which, COLORS[name])
    for place, (name, color) in enumerate(COLORS.items()):
        yield f'<circle cx="{80 + 200 * place}" cy="399" r="5" fill="{color}"/>'
        yield f'<text x="{92 + 200 * place}" y="403" class="tick">{name}</text>'
    yield f'<text x="680" y="403" class="tick">arrow: more than {PATIENCE} s</text></svg>\n'


if __name__ == "__main__":
    bench.enter_namespace()
    target = pathlib.Path(sys.argv[3])
    target.write_text("\n".join(draw(measure())))
    print(f"written: {target}")
