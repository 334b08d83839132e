"""What is seen in the guest of test_machine.py, by its kernel and by the program."""

import json
import os
import pathlib
import subprocess
import sys

import bundles
import guest
from bundles import HOST

# Port on the controller, and unit.
PLACES = ((1, 0), (2, 0), (3, 0), (4, 0), (4, 1), (5, 0), (6, 0))
STICK, FAILING = 'AVIÃO', 'DEFEITO'


def device_at(port, unit):
    return next(pathlib.Path('/dev/disk/by-path').glob(f'*-usb-0:{port}:*:{unit}')).resolve()


def description(place):
    columns = 'NAME,TYPE,TRAN,RM,SIZE,LABEL,FSTYPE'
    said = subprocess.run(['lsblk', '-J', '-d', '-b', '-o', columns, device_at(*place)],
                          check=True, stdout=subprocess.PIPE, text=True).stdout
    return json.loads(said)['blockdevices'][0]


def writes(device, sector):
    """Whether that sector can be written, and the drive says so."""
    return subprocess.run(['dd', f'of={device}', 'bs=512', f'seek={sector}', 'conv=sync,fsync'],
                          input=b'recorded', stderr=subprocess.DEVNULL, check=False).returncode == 0


def inside(shared):
    seen = {'kernel': os.uname().release,
            'failing': [writes(device_at(2, 0), sector) for sector in (4095, 4096)],
            'recorded': writes(device_at(1, 0), 9000),
            'devices': [description(place) for place in PLACES]}
    (shared / 'seen.json').write_text(json.dumps(seen))
    pathlib.Path('/root/file-of-the-guest').write_text('gone with it')
    guest.begin()
    guest.be_vendor(HOST, shared / 'certificates')
    guest.mount(STICK)
    guest.on_desktop(__file__, 'work', shared)
    sys.exit(7)


def work(shared):
    """Uses the program as its user does: a stick, which is pulled out at the end, then the one that fails."""
    from manager import Manager, question_before_preparing, question_before_updating
    from vendor import Vendor
    program = bundles.install('/tmp/manager', '1')
    stick = pathlib.Path('/media', guest.USER, STICK)
    seen = {}

    def prepare(drive):
        manager.press('Preparar unidade USB')
        manager.answer(question_before_preparing(drive), 'Sim')
        return manager.box()

    with Manager(program) as manager, Vendor('/tmp/vendor') as vendor:
        seen['listed'], seen['chosen'], seen['log'] = manager.drives, manager.chosen_drive, manager.log
        seen['prepared'], seen['after preparation'] = prepare(stick), bundles.tree(stick)
        bundles.publish(vendor, '2', '1.1.0')
        manager.press('Verificar atualizações')
        manager.answer(question_before_updating(stick, '1.0.0', '1.1.0', bundles.NOTES), 'Sim')
        seen['updated'] = manager.box()
        guest.pull('attached', STICK)
        manager.press('Atualizar lista')
        manager.wait_for(lambda: manager.chosen_drive is None, 'the list without the stick')
        guest.plug_in('attached', STICK)
        seen['after pull'] = bundles.tree(guest.mount(STICK))
        guest.unmount(STICK)
        bundles.provide(program, '1', library_size=3 << 20)
        failing = guest.mount(FAILING)
        manager.press('Atualizar lista')
        manager.wait_for(lambda: manager.chosen_drive, 'the drive that fails')
        seen['failed'] = prepare(failing)
    (shared / 'program.json').write_text(json.dumps(seen))


if __name__ == '__main__':
    {'inside': inside, 'work': work}[sys.argv[1]](pathlib.Path(sys.argv[2]))
