#!/usr/bin/python3
"""Measures the program beside what a user would do by hand and beside the limit, in turns.

Prints one table, of all rows or of the named ones, and keeps what was measured in results.json,
each row under its name: a row that is measured again takes the place of the older one.
"""

import argparse
import dataclasses
import json
import pathlib
import signal
import sys

import assembly
import charts
import cryptography
import detection
import preparation
import responsiveness
import start
import update
from measuring import HEAD, Comparison, say

ROWS = {'preparation': preparation.first,
        'growth': preparation.growth,
        'second-preparation': preparation.second,
        'assembly': assembly.assembly,
        'copying': assembly.copying,
        'update': update.update,
        'detection': detection.detection,
        'start': start.start,
        'cryptography': cryptography.cryptography,
        'responsiveness': responsiveness.responsiveness}


def parsed_arguments():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('rows', nargs='*', metavar='ROW', choices=[[], *ROWS], default=[],  # which is a choice, too
                        help=f'one of {", ".join(ROWS)}; all if none is given')
    parser.add_argument('--build', type=pathlib.Path, default='build/release',
                        help='directory of the programs that are measured')
    parser.add_argument('--results', type=pathlib.Path, default='build/bench',
                        help='directory for results.json and the pictures')
    parser.add_argument('--rounds', type=int, default=5, help='turns of each side')
    return parser.parse_args()


def measured(name, build, rounds):
    say(f'-- {name}')
    comparisons = []
    for comparison in ROWS[name](build, rounds):
        comparisons.append(comparison)
        for line in comparison.lines():
            say(line)
    return comparisons


def kept(results, file):
    """All that has been measured so far: the older rows, and these."""
    older = json.loads(file.read_text(encoding='utf-8')) if file.exists() else {}
    newer = {name: [dataclasses.asdict(comparison) for comparison in comparisons]
             for name, comparisons in results.items()}
    both = older | newer
    file.write_text(json.dumps(both, indent=1), encoding='utf-8')
    return {name: [Comparison(**fields) for fields in both[name]] for name in ROWS if name in both}


def main():
    options = parsed_arguments()
    build = options.build.resolve()
    options.results.mkdir(parents=True, exist_ok=True)
    for ending in (signal.SIGTERM, signal.SIGHUP):  # as an exception, so that what is mounted and limited is undone
        signal.signal(ending, lambda number, _: sys.exit(128 + number))
    results = {}
    try:
        for name in options.rows or ROWS:
            results[name] = measured(name, build, options.rounds)
            charts.draw(kept(results, options.results / 'results.json'), options.results)
    finally:  # a row that fails doesn't take the others along
        print(HEAD)
        for comparisons in results.values():
            for comparison in comparisons:
                print('\n'.join(comparison.lines()))


if __name__ == '__main__':
    main()
