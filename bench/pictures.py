"""The pictures of docs/performance.md, drawn by gnuplot. The background is white and not
transparent, so that they are readable on a dark page too."""

import math
import subprocess

from figures import case_name, exponent, pairs
from limits import growth_curves

SETTINGS = """
set terminal svg size 820,{height} dynamic noenhanced font 'sans-serif,13' background '#ffffff'
set output '{path}'
set border linecolor rgb '#444444'
set tics textcolor rgb '#222222' nomirror
set grid linecolor rgb '#dddddd'
set title '{title}' textcolor rgb '#222222'
"""

COLOURS = ("#0b6fa4", "#d1600f", "#2f8a3c", "#8d4bb5", "#b3261e", "#5f6b73", "#a07c00", "#0f8f8a",
           "#c2408a", "#3f51b5", "#6d4c41", "#7a9a01")
BAR_COLOUR = COLOURS[0]


def draw(path, title, height, commands):
    script = SETTINGS.format(path=path, title=title, height=height) + commands
    subprocess.run(["gnuplot"], input=script, check=True, text=True)


def block(name, rows):
    """A data block of gnuplot."""
    lines = [" ".join(f'"{cell}"' if isinstance(cell, str) else f"{cell:.6g}" for cell in row)
             for row in rows]
    return "\n".join([f"${name} << END", *lines, "END", ""])


def draw_bars(path, title, bars, axis):
    """Horizontal bars (label, value, low, high) around 1 on a logarithmic axis. The whiskers run
    from low to high; the bars from 1."""
    rows = [[label, value, low, high, len(bars) - index]
            for index, (label, value, low, high) in enumerate(bars)]
    smallest = min(row[2] for row in rows)
    largest = max(max(row[3] for row in rows), 1)
    draw(path, title, 90 + 19 * len(bars), block("bars", rows) + f"""
set logscale x
set format x '%g'
set xtics add (0.2, 0.5, 2, 5)
set xrange [{smallest * 0.8:.6g}:{largest * 1.2:.6g}]
set yrange [0.3:{len(bars) + 0.7}]
set xlabel '{axis}' textcolor rgb '#222222'
set style fill solid 0.8 noborder
unset key
unset grid
set grid xtics linecolor rgb '#dddddd'
set arrow from 1, graph 0 to 1, graph 1 nohead linecolor rgb '#444444' linewidth 2 front
plot $bars using 2:5:(1):2:($5-0.3):($5+0.3):ytic(1) with boxxyerror \\
  linecolor rgb '{BAR_COLOUR}', \\
  $bars using 2:5:3:4 with xerrorbars pointtype 0 linecolor rgb '#222222'
""")


def draw_check(path, check):
    """CPU time and peak memory of whole checks beside those of the bare program."""
    bars = []
    for figure, label in (("cpu_us", "CPU time"), ("peak_kib", "peak memory")):
        base = check["bare"][figure]["median"]
        for name in check:
            spread = check[name][figure]
            bars.append((f"{name}: {label}",
                         *(spread[key] / base for key in ("median", "low", "high"))))
    draw_bars(path, "A whole check", bars, "beside the bare program (1 = the same)")


def routine_bars(routines):
    """The smallest, the geometric mean and the largest ratio over the sizes of each routine."""
    ratios = {}
    instructions = routines["instructions"]
    for ours, peer in pairs(instructions):
        ratio = instructions[case_name(ours)] / instructions[case_name(peer)]
        ratios.setdefault(f"{peer.routine}: {peer.side}", []).append(ratio)
    return [(label, math.prod(values) ** (1 / len(values)), min(values), max(values))
            for label, values in sorted(ratios.items())]


def draw_growth(path, curves):
    """Costs per unit of size, beside that at the smallest size: linear growth is a level line. The
    ones that grow most come first."""
    names = sorted(curves, key=lambda name: (-exponent(curves[name]), name))
    data, plots = "", ["1 with lines dashtype 2 linecolor rgb '#444444' title 'linear'"]
    for index, name in enumerate(names):
        first_size, first_cost = curves[name][0]
        rows = [[size / first_size, cost / size * first_size / first_cost]
                for size, cost in curves[name]]
        data += block(f"curve{index}", rows)
        colour = COLOURS[index % len(COLOURS)]
        plots.append(f"$curve{index} using 1:2 with linespoints linecolor rgb '{colour}' "
                     f"pointtype {index % 7 + 4} pointsize 0.7 "
                     f"title '{name} ({exponent(curves[name]):.2f})'")
    draw(path, "Cost per unit of size (exponent of the cost)", 130 + 19 * len(plots), data + f"""
set logscale xy
set format '%g'
set xlabel 'size beside the smallest' textcolor rgb '#222222'
set ylabel 'cost per unit beside that at the smallest' textcolor rgb '#222222'
set key outside right Left reverse textcolor rgb '#222222' samplen 1
plot {', '.join(plots)}
""")


def draw_all(figures, folder):
    draw_check(f"{folder}/performance-check.svg", figures["check"])
    draw_bars(f"{folder}/performance-ratios.svg", "Instructions beside the peer",
              routine_bars(figures["routines"]), "ours / peer (1 = the same); mean and range")
    draw_growth(f"{folder}/performance-growth.svg", growth_curves(figures))
