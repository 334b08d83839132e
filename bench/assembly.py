"""Assembling a Linux runtime, and copying alone, beside what a terminal would do."""

import shutil
import subprocess

import drives
from drives import GIBIBYTE, MEBIBYTE
from measuring import Side, compare, seconds_by, seconds_of

# The same ldd, ldconfig and copies, and one sync. Where the size is asked for first, as a preparation does,
# every ldd runs for that, too. What is there already isn't copied again.
SCRIPT = r'''
program=$1 target=$2 plugins=$3 sized=$4
libraries() { for file; do ldd "$file"; done | grep -o '/[^ ]*' | sort -u; }
families=
for family in platforms imageformats xcbglintegrations tls; do
    [ ! -d "$plugins/$family" ] || families="$families $plugins/$family"
done
[ -z "$sized" ] || libraries "$program" $(find $families -name '*.so') | xargs du -Lc >"$target/../size"
mkdir -p "$target/lib" "$target/plugins"
cp -pu "$program" "$target/Tessarine"
cp -rpu $families "$target/plugins"
libraries "$target/Tessarine" "$target"/plugins/*/*.so | xargs cp -Lpu -t "$target/lib"
ldconfig -p | grep -o '/.*libssl\.so\.[0-9].*' | xargs cp -Lpu -t "$target/lib"
sync -f "$target"
'''
PLACES = {'in memory': drives.tmpfs, 'idle disk': drives.ext4}


def assembly(build, rounds):
    """The manager itself is the Qt program whose runtime is assembled: alone, and by a preparation.

    It lies in a directory of its own: beside other files those would be its bundle's size, without ldd.
    """
    bench = build / 'bench/deployment_bench'
    plugins = subprocess.run(['qmake6', '-query', 'QT_INSTALL_PLUGINS'], stdout=subprocess.PIPE,
                             text=True, check=True).stdout.strip()

    def sides(ours, program, target, sized=''):
        return [Side('ours', lambda: seconds_of(bench, *ours)),
                Side('a script', lambda: seconds_of('sh', '-c', SCRIPT, 'sh', program, target, plugins, sized))]

    for where, file_system in PLACES.items():
        with drives.scratch() as place, file_system(GIBIBYTE) as drive:
            program, target = place / 'Tessarine', drive / 'Tessarine/linux'
            shutil.copy(build / 'app/TessarineConfig', program)
            alone = sides(['assemble', program, target], program, target)
            prepared = sides(['prepare', drive, program], program, target, 'sized')
            yield compare(f'assembly of a Linux runtime, {where}', alone, rounds, before=lambda: emptied(target))
            yield compare(f'preparation with an assembly, {where}', prepared, rounds,
                          before=lambda: emptied(target))
            yield compare(f'the same with nothing to copy, {where}', prepared, rounds)


def emptied(target):
    drives.empty(target.parents[1])
    target.mkdir(parents=True)


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
                target = drive / 'Tessarine/linux/copy'
                yield compare(
                    f'{what}, {where}',
                    [Side('ours', lambda: seconds_by(bench, operation, source, target)),
                     Side('`cp -rp`, `sync -f`',
                          lambda: seconds_of('sh', '-c', 'cp -rp "$1" "$2" && sync -f "$2"', 'sh', source, target))],
                    rounds, before=lambda: emptied(target.parent))
