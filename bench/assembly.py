"""Assembling a Linux runtime, and copying alone, beside what a terminal would do."""

import shutil
import subprocess

import drives
from drives import GIBIBYTE, MEBIBYTE
from measuring import Side, compare, run, seconds_by, seconds_of

# The same ldd, ldconfig and copies, and one sync. What is there already isn't copied again.
BEGIN = r'''
set -e
program=$1 drive=$2 plugins=$3 target=$2/Tessarine/linux
libraries() { for file; do ldd "$file"; done | grep -o '/[^ ]*' | sort -u; }
families=
for family in platforms imageformats xcbglintegrations tls; do
    [ ! -d "$plugins/$family" ] || families="$families $plugins/$family"
done
'''
# A preparation asks for the size before, for which every ldd runs, too.
SIZE = r'''
libraries "$program" $(find $families -name '*.so') | xargs du -Lc "$program" $families >/dev/null
'''
ASSEMBLY = r'''
mkdir -p "$target/lib" "$target/plugins"
cp -pu "$program" "$target/Tessarine"
cp -rpu $families "$target/plugins"
libraries "$target/Tessarine" "$target"/plugins/*/*.so | xargs cp -Lpu -t "$target/lib"
ldconfig -p | grep -o '/.*libssl\.so\.[0-9].*' | xargs cp -Lpu -t "$target/lib"
'''
TEXTS = r'''
for text in Tessarine-Windows.bat Tessarine-Linux.sh Tessarine/README.txt; do echo text >"$drive/$text"; done
'''
END = r'''
sync -f "$drive"
'''
PLACES = {'in memory': drives.tmpfs, 'idle disk': drives.ext4}


def assembly(build, rounds):
    """The manager itself is the Qt program whose runtime is assembled: alone, and by a preparation.

    It lies in a directory of its own: beside other files those would be its bundle's size, without ldd.
    """
    bench = build / 'bench/deployment_bench'
    plugins = run('qmake6', '-query', 'QT_INSTALL_PLUGINS', stdout=subprocess.PIPE, text=True).stdout.strip()

    def sides(script, *ours):
        return [Side('ours', lambda: seconds_of(bench, *ours)),
                Side('a script', lambda: seconds_of('sh', '-c', script, 'sh', program, drive, plugins))]

    for where, file_system in PLACES.items():
        with drives.tmpfs(GIBIBYTE) as place, file_system(GIBIBYTE) as drive:
            program = place / 'Tessarine'
            shutil.copy(build / 'app/TessarineConfig', program)
            alone = sides(BEGIN + ASSEMBLY + END, 'assemble', program, drive / 'Tessarine/linux')
            prepared = sides(BEGIN + SIZE + ASSEMBLY + TEXTS + END, 'prepare', drive, program)
            yield compare(f'assembly of a Linux runtime, {where}', alone, rounds, before=lambda: emptied(drive))
            yield compare(f'preparation with an assembly, {where}', prepared, rounds, before=lambda: emptied(drive))
            yield compare(f'second preparation with an assembly, {where}', prepared, rounds)


def emptied(drive):
    drives.empty(drive)
    (drive / 'Tessarine/linux').mkdir(parents=True)


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
                    rounds, before=lambda: emptied(drive))
