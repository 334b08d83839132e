"""CryptoManager beside bare calls of the libraries."""

import json
import subprocess

from measuring import Comparison

GOALS = {'libsodium, new buffer': 1 / 0.97, 'libsodium': 1 / 0.97}


def cryptography(build, rounds):
    with subprocess.Popen([build / 'bench/core_bench', str(3 * rounds)], stdout=subprocess.PIPE,
                          text=True) as bench:
        for line in bench.stdout:
            found = json.loads(line)
            goals = {side: GOALS[side] for side in found['sides'] if side in GOALS}
            yield Comparison(found['what'], 's', found['sides'], goals)
    assert bench.returncode == 0
