"""Assembling a Linux runtime, and copying alone, beside what a terminal would do."""

import subprocess

import drives
from drives import GIBIBYTE, MEBIBYTE
from measuring import Side, compare, seconds_by, seconds_of

# The same ldd, ldconfig and copies, and one sync.
SCRIPT = r'''
program=$1 target=$2 plugins=$3
mkdir -p "$target/lib" "$target/plugins"
cp -p "$program" "$target/Tessarine"
for family in platforms imageformats xcbglintegrations tls; do
    [ ! -d "$plugins/$family" ] || cp -rp "$plugins/$family" "$target/plugins"
done
for file in "$target/Tessarine" "$target"/plugins/*/*.so; do ldd "$file"; done |
    grep -o '/[^ ]*' | sort -u | xargs cp -Lp -t "$target/lib"
ldconfig -p | grep -o '/.*libssl\.so\.[0-9].*' | xargs cp -Lp -t "$target/lib"
sync -f "$target"
'''
PLACES = {'in memory': drives.tmpfs, 'idle disk': drives.ext4}


def assembly(build, rounds):
    """The manager itself is the Qt program whose runtime is assembled."""
    program, bench = build / 'app/TessarineConfig', build / 'bench/deployment_bench'
    plugins = subprocess.run(['qmake6', '-query', 'QT_INSTALL_PLUGINS'], stdout=subprocess.PIPE,
                             text=True, check=True).stdout.strip()
    for where, file_system in PLACES.items():
        with file_system(GIBIBYTE) as drive:
            target = drive / 'Tessarine'
            yield compare(
                f'assembly of a Linux runtime, {where}',
                [Side('ours', lambda: seconds_of(bench, 'assemble', program, target)),
                 Side('a script', lambda: seconds_of('sh', '-c', SCRIPT, 'sh', program, target, plugins))],
                rounds, before=lambda: emptied(target))


def emptied(target):
    drives.empty(target.parent)
    target.mkdir()


def copying(build, rounds):
    """What cp loses when the drive is pulled out: none of its files is on the medium before its end."""
    bench = build / 'bench/deployment_bench'
    for where, file_system in PLACES.items():
        with drives.tmpfs(GIBIBYTE) as place, file_system(GIBIBYTE) as drive:
            drives.fill(place / 'large', 1, 256 * MEBIBYTE)
            drives.fill(place / 'small', 2000, 16384)
            for what, operation, source in (
                    ('copy of one file of 256 MiB', 'copy', place / 'large/0/file-0'),
                    ('copy of 2,000 files of 16 KiB', 'tree', place / 'small')):
                target = drive / 'Tessarine/copy'
                yield compare(
                    f'{what}, {where}',
                    [Side('ours', lambda: seconds_by(bench, operation, source, target)),
                     Side('`cp -rp`, `sync -f`',
                          lambda: seconds_of('sh', '-c', 'cp -rp "$1" "$2" && sync -f "$2"', 'sh', source, target))],
                    rounds, before=lambda: emptied(target.parent))
