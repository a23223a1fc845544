#!/usr/bin/env python3
"""Draws the points that the benchmark programs print with --growth: one SVG file for each series.

A straight line through the points (least squares) shows whether the time grows with the size alone.
"""
import argparse
import collections
import html
import math
import pathlib
import re

WIDTH, HEIGHT = 560, 320
LEFT, RIGHT, TOP, BOTTOM = 70, 20, 40, 50
TICKS = 5
UNITS = ((1, "s"), (1e-3, "ms"), (1e-6, "us"), (1e-9, "ns"))


def read_series(path):
    """Name and unit of each series -> its points (size, seconds), in the order of the file."""
    series = collections.defaultdict(list)
    for line in path.read_text(encoding="utf-8").splitlines():
        fields = line.split("\t")
        if fields[0] == "growth":
            series[fields[1], fields[2]].append((float(fields[3]), float(fields[4])))
    return series


def straight_line(points):
    """Start and slope of the line through the points, and how much of their spread it explains (0 to 1)."""
    mean_x = sum(x for x, _ in points) / len(points)
    mean_y = sum(y for _, y in points) / len(points)
    spread_x = sum((x - mean_x) ** 2 for x, _ in points)
    slope = sum((x - mean_x) * (y - mean_y) for x, y in points) / spread_x
    start = mean_y - slope * mean_x
    spread_y = sum((y - mean_y) ** 2 for _, y in points)
    rest = sum((y - start - slope * x) ** 2 for x, y in points)
    return start, slope, 1 - rest / spread_y if spread_y else 1


def round_step(largest):
    """The distance between ticks: 1, 2 or 5 times a power of ten."""
    rough = largest / TICKS
    power = 10 ** math.floor(math.log10(rough))
    return next(factor * power for factor in (1, 2, 5, 10) if factor * power >= rough)


def ticks(largest):
    step = round_step(largest)
    return [step * i for i in range(int(largest / step + 1e-9) + 1)]


class Plot:
    def __init__(self, name, unit, points):
        self.name, self.unit, self.points = name, unit, points
        largest = max(seconds for _, seconds in points)
        self.scale, self.time_unit = next(row for row in UNITS if largest >= row[0] or row is UNITS[-1])
        self.most_x = max(size for size, _ in points)
        self.most_y = largest / self.scale * 1.05

    def x(self, size):
        return LEFT + size / self.most_x * (WIDTH - LEFT - RIGHT)

    def y(self, time):
        return HEIGHT - BOTTOM - time / self.most_y * (HEIGHT - TOP - BOTTOM)

    def text(self, x, y, text, anchor="middle", size=12):
        return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}">'
                f'{html.escape(text)}</text>')

    def line(self, x1, y1, x2, y2, style):
        return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" {style}/>'

    def svg(self):
        parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" width="{WIDTH}" '
                 f'height="{HEIGHT}" font-family="sans-serif">',
                 f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
                 self.text(WIDTH / 2, 22, self.name, size=15)]
        grid = 'stroke="#dddddd"'
        for size in ticks(self.most_x):
            parts.append(self.line(self.x(size), TOP, self.x(size), HEIGHT - BOTTOM, grid))
            parts.append(self.text(self.x(size), HEIGHT - BOTTOM + 17, f"{size:,.10g}"))
        for time in ticks(self.most_y):
            parts.append(self.line(LEFT, self.y(time), WIDTH - RIGHT, self.y(time), grid))
            parts.append(self.text(LEFT - 8, self.y(time) + 4, f"{time:,.10g}", "end"))
        parts.append(self.text(WIDTH / 2, HEIGHT - 10, self.unit))
        parts.append(self.text(10, TOP - 10, self.time_unit, "start"))
        scaled = [(size, seconds / self.scale) for size, seconds in self.points]
        start, slope, fit = straight_line(scaled)
        first = max(0, -start / slope) if slope > 0 else 0
        parts.append(self.line(self.x(first), self.y(start + slope * first), self.x(self.most_x),
                               self.y(min(start + slope * self.most_x, self.most_y)),
                               'stroke="#999999" stroke-dasharray="5 4"'))
        parts.append(self.text(WIDTH - RIGHT, TOP - 10, f"straight line: R² = {fit:.3f}", "end"))
        path = " ".join(f"{self.x(size):.1f},{self.y(time):.1f}" for size, time in scaled)
        parts.append(f'<polyline points="{path}" fill="none" stroke="#1f5fa8" stroke-width="2"/>')
        parts += [f'<circle cx="{self.x(size):.1f}" cy="{self.y(time):.1f}" r="3" fill="#1f5fa8"/>'
                  for size, time in scaled]
        return "\n".join([*parts, "</svg>", ""])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("points", type=pathlib.Path, help="lines that begin with the word growth")
    parser.add_argument("folder", type=pathlib.Path, help="where the files go")
    arguments = parser.parse_args()
    arguments.folder.mkdir(parents=True, exist_ok=True)
    for (name, unit), points in read_series(arguments.points).items():
        file_name = re.sub(r"[^a-z0-9]+", "-", name.lower()).strip("-") + ".svg"
        (arguments.folder / file_name).write_text(Plot(name, unit, points).svg(), encoding="utf-8")
        print(arguments.folder / file_name)


if __name__ == "__main__":
    main()
