"""The curves: how the cost of a unit of work grows with the work."""

import statistics

import matplotlib

matplotlib.use('svg')
matplotlib.rcParams['svg.hashsalt'] = 'bench'
from matplotlib import pyplot  # noqa: E402 the backend comes first

CURVES = {'preparation': ('files of 20 KB on an idle disk', 'milliseconds a file', 1e3),
          'detection': ('block devices', 'microseconds a device', 1e6)}


def draw(results, directory):
    for curve, (work, cost, factor) in CURVES.items():
        points = [comparison for row in results.values() for comparison in row
                  if comparison.curve == curve]
        if points:
            draw_curve(points, work, cost, factor, directory / f'{curve}.svg')


def draw_curve(points, work, cost, factor, file):
    figure, axes = pyplot.subplots(figsize=(6, 3.2), layout='constrained')
    sizes = [point.size for point in points]
    for side in points[0].costs:
        each = [statistics.median(point.costs[side]) / point.size * factor for point in points]
        axes.plot(sizes, each, marker='o', label=side.replace('`', ''))
    axes.set_xscale('log')
    axes.set_xticks(sizes, [f'{size:,.0f}' for size in sizes])
    axes.minorticks_off()
    axes.set_ylim(bottom=0)
    axes.set_xlabel(work)
    axes.set_ylabel(cost)
    axes.grid(alpha=0.3)
    axes.legend()
    figure.savefig(file, metadata={'Date': None})
    pyplot.close(figure)
