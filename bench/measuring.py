"""Measures sides of a comparison in turns, and says what came of it."""

import dataclasses
import os
import random
import statistics
import subprocess
import sys
import time
from collections.abc import Callable


@dataclasses.dataclass
class Side:
    """One way to do the work. run() does it once and returns what it cost, in the comparison's unit."""
    name: str
    run: Callable[[], float]
    goal: float | None = None  # ours / this side, at most


@dataclasses.dataclass
class Comparison:
    """What was done, and what each side's turns cost. The first side is ours."""
    what: str
    unit: str  # 's' or 'MB'
    costs: dict[str, list[float]]
    goals: dict[str, float]
    at_most: float | None = None  # goal for each turn of a side that is alone
    curve: str = ''  # the picture that it is a point of
    size: float = 0  # its place there

    def ratios(self, side):
        """Ours / the side's, for each round: a slow moment of the machine meets all sides of it."""
        ours = next(iter(self.costs.values()))
        return [our / their for our, their in zip(ours, self.costs[side])]

    def lines(self):
        """A table's lines, one for each other side."""
        ours, *others = self.costs
        if not others:
            return [f'| {self.what} | | {self.cost(ours)} | | | | {self.verdict(max(self.costs[ours]), self.at_most)} |']
        return [self.line(ours, other) for other in others]

    def line(self, ours, other):
        ratios = self.ratios(other)
        low, high = middle_half(ratios)
        ratio = statistics.median(ratios)
        verdict = self.verdict(ratio, self.goals.get(other))
        return (f'| {self.what} | {other} | {self.cost(ours)} | {self.cost(other)} '
                f'| {ratio:.2f} | {low:.2f} to {high:.2f} | {verdict} |')

    @staticmethod
    def verdict(value, goal):
        return '' if goal is None else f'{goal:.2f}: {"met" if value <= goal else "**missed**"}'

    def cost(self, side):
        return with_unit(statistics.median(self.costs[side]), self.unit)


HEAD = ('| what | beside | ours | theirs | ours / theirs | middle half | at most |\n'
        '|---|---|---:|---:|---:|---|---|')


def middle_half(values):
    if len(values) == 1:
        return values[0], values[0]
    low, _, high = statistics.quantiles(values, n=4, method='inclusive')
    return low, high


def with_unit(cost, unit):
    if unit != 's':
        return f'{cost:.3g} {unit}'
    for factor, name in ((1, 's'), (1e-3, 'ms'), (1e-6, 'µs')):
        if cost >= factor:
            return f'{cost / factor:.3g} {name}'
    return f'{cost * 1e9:.3g} ns'


def compare(what, sides, rounds, unit='s', before=lambda: None, **place):
    """Lets each side work once a round, in another order each time: what one leaves in a cache meets all."""
    costs = {side.name: [] for side in sides}
    for number in range(rounds):
        for side in random.Random(number).sample(sides, len(sides)):
            before()
            costs[side.name].append(side.run())
    goals = {side.name: side.goal for side in sides if side.goal is not None}
    return Comparison(what, unit, costs, goals, **place)


def run(*command, **options):
    return subprocess.run([str(word) for word in command], check=True, **options)


def seconds_of(*command, **options):
    """The time of a whole command, from its start to its end."""
    begin = time.perf_counter()
    run(*command, stdout=subprocess.DEVNULL, **options)
    return time.perf_counter() - begin


def seconds_by(*command, **options):
    """The time that the command itself prints: for programs of bench/, that of the work alone."""
    return float(run(*command, stdout=subprocess.PIPE, text=True, **options).stdout.split()[-1])


def processor_seconds_of(*command):
    """The processor time of a whole command: what else the machine does doesn't count."""
    with subprocess.Popen([str(word) for word in command], stdout=subprocess.DEVNULL) as process:
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    assert process.returncode == 0, command
    return usage.ru_utime + usage.ru_stime


def say(text):
    print(text, file=sys.stderr, flush=True)
