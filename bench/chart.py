#!/usr/bin/env python3
"""Draws the ratios of figures to their floors.

chart.py RESULTS SVG              RESULTS as bench/table.py writes it
"""
import html
import json
import pathlib
import sys

from table import groups, met, ratio

WIDTH, LEFT, RIGHT = 930, 430, 60  # the names stand left of the bars, room for a ratio is right of them
ROW, HEADING, TOP, BOTTOM = 22, 34, 84, 16
LONGEST = 3.0  # ratio at the right end; what is longer is cut off there

STYLE = """  <style>
    .panel { fill: #ffffff; stroke: #d0d7de; }
    .met { fill: #2da44e; }
    .missed { fill: #cf222e; }
    .reported { fill: #8c959f; }
    .goal { stroke: #1f2328; stroke-width: 2; }
    .floor { stroke: #57606a; stroke-dasharray: 3 3; }
    .name { text-anchor: end; font-size: 12px; }
    .ratio { font-size: 12px; }
    .heading { font-weight: bold; }
    .small { font-size: 12px; fill: #57606a; }
  </style>"""


def across(value):
    return LEFT + min(value, LONGEST) / LONGEST * (WIDTH - LEFT - RIGHT)


def bar(row, y):
    value = ratio(row)
    kind = {None: "reported", True: "met", False: "missed"}[met(row)]
    end = across(value)
    parts = [f'<text class="name" x="{LEFT - 8}" y="{y + 13}">{html.escape(row["name"])}</text>',
             f'<rect class="{kind}" x="{LEFT}" y="{y + 3}" width="{end - LEFT:.1f}" height="13"/>',
             f'<text class="ratio" x="{end + 6:.1f}" y="{y + 14}">{value:.2f}</text>']
    if "goal" in row:
        goal = across(row["goal"])
        parts.append(f'<path class="goal" d="M{goal:.1f},{y} V{y + 19}"/>')
    return ["  " + part for part in parts]


def draw(results):
    rows = [row for row in results["rows"] if ratio(row) is not None]
    about = results["machine"]
    body, y = [], TOP
    for group in groups(rows):
        body.append(f'  <text class="heading" x="20" y="{y + 20}">{html.escape(group)}</text>')
        y += HEADING
        for row in (row for row in rows if row["group"] == group):
            body += bar(row, y)
            y += ROW
    height = y + BOTTOM
    machine = f"{results['date']}, {about['processor']}, {about['cores']} cores, {about['kernel']}, {about['wine']}"
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" width="{WIDTH}" height="{height}"',
        '     role="img" aria-labelledby="title" font-family="Helvetica, Arial, sans-serif" font-size="14" fill="#1f2328">',
        '  <title id="title">Figures of the benchmarks as ratios to their floors</title>',
        STYLE,
        f'  <rect class="panel" x="0.5" y="0.5" width="{WIDTH - 1}" height="{height - 1}" rx="8"/>',
        '  <text class="heading" x="20" y="30">How many times its floor each figure is</text>',
        f'  <text class="small" x="20" y="50">{html.escape(machine)}</text>',
        '  <text class="small" x="20" y="68">Black mark: the goal. Green: met, red: missed, grey: reported only. '
        'Dashed: the floor.</text>',
        f'  <path class="floor" d="M{across(1):.1f},{TOP} V{height - BOTTOM}"/>',
        *body, "</svg>", ""])


def main(results_file, drawing):
    results = json.loads(pathlib.Path(results_file).read_text(encoding="utf-8"))
    pathlib.Path(drawing).write_text(draw(results), encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
