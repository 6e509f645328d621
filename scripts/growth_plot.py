#!/usr/bin/env python3
"""Draws what `growth curve` prints: time a layer and resident memory over the layers written, as SVG."""

import sys

FORMATS = {".vndlp": "#0b6e99", ".ctb": "#c2571a", ".vndlpv4": "#5b8c2a"}
WIDTH, HEIGHT = 380, 240  # of a panel's axes
LEFT, TOP, GAP = 60, 44, 90


def nice_end(value):
    """The next of 1, 2, 5 times a power of ten."""
    scale = 1
    while True:
        for step in (1, 2, 5):
            if step * scale >= value:
                return step * scale
        scale *= 10


def panel(left, title, curves, most_layers):
    end = nice_end(max(value for points in curves.values() for _, value in points))
    out = [f'<text x="{left}" y="{TOP - 18}" font-weight="bold">{title}</text>']
    for tick in range(6):
        y = TOP + HEIGHT - HEIGHT * tick / 5
        out.append(f'<line x1="{left}" y1="{y:.1f}" x2="{left + WIDTH}" y2="{y:.1f}" stroke="#ddd"/>')
        out.append(f'<text x="{left - 8}" y="{y + 4:.1f}" text-anchor="end">{end * tick / 5:g}</text>')
        x = left + WIDTH * tick / 5
        out.append(f'<text x="{x:.1f}" y="{TOP + HEIGHT + 18}" text-anchor="middle">{most_layers * tick / 5:g}</text>')
    out.append(f'<text x="{left + WIDTH / 2}" y="{TOP + HEIGHT + 38}" text-anchor="middle">layers written</text>')
    for ending, points in curves.items():
        line = " ".join(
            f"{left + WIDTH * layers / most_layers:.1f},{TOP + HEIGHT - HEIGHT * value / end:.1f}"
            for layers, value in points
        )
        out.append(f'<polyline points="{line}" fill="none" stroke="{FORMATS[ending]}" stroke-width="1.8"/>')
    return out


def main(path):
    times, memory = {}, {}
    with open(path, encoding="utf-8") as file:
        for row in file:
            ending, layers, milliseconds, megabytes = row.strip().split(",")
            if layers == "finish":
                continue
            times.setdefault(ending, []).append((int(layers), float(milliseconds)))
            memory.setdefault(ending, []).append((int(layers), float(megabytes)))
    most_layers = max(layers for points in times.values() for layers, _ in points)
    width = LEFT + 2 * WIDTH + GAP + 24
    height = TOP + HEIGHT + 76
    out = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" viewBox="0 0 {width} {height}"'
        ' font-family="sans-serif" font-size="12" fill="#222">',
        '<rect width="100%" height="100%" fill="white"/>',
        *panel(LEFT, "milliseconds a layer", times, most_layers),
        *panel(LEFT + WIDTH + GAP, "resident memory, MB", memory, most_layers),
    ]
    x = LEFT
    for ending in times:
        out.append(f'<rect x="{x}" y="{height - 22}" width="18" height="3" fill="{FORMATS[ending]}"/>')
        out.append(f'<text x="{x + 24}" y="{height - 16}">{ending}</text>')
        x += 110
    print("\n".join([*out, "</svg>"]))


main(sys.argv[1])
