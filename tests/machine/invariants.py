"""What may be on a drive in the middle of a preparation or of an update, and after one that was cut.

Each function gets the drive as it is, as it was, and as the whole step leaves it (bundles.tree()), and
yields what is broken.
"""

import bundles
from bundles import STATE


def below(files, directory):
    return {path.removeprefix(directory): content for path, content in files.items()
            if path.startswith(directory)}


def broken_by_preparation(now, before, after):
    for path in before.keys() | after.keys():
        allowed = {before.get(path), after.get(path)}
        if now.get(path) in allowed:
            continue
        if path in before or path == STATE and path in now:
            yield f'{path} was whole and is {now.get(path)}'
        elif now[path][1] == after[path][1]:
            yield f'{path} has the right size and {now[path][0]}'
    if now.get(STATE) == after[STATE] != before.get(STATE):
        for path in after:
            if now.get(path) != after[path]:
                yield f'the state is new, but {path} is {now.get(path)}'


def broken_by_update(now, before, after):
    places = [f'Tessarine/{kind}/' for kind in bundles.FILES]
    for path in before:
        if not path.startswith(tuple(places)) and now.get(path) not in (before[path], after.get(path)):
            yield f'{path} was whole and is {now.get(path)}'
    for bundle in places:
        homes = {'/'.join(path.split('/')[:2]) + '/' for path in now if path.startswith(bundle[:-1])}
        if not any(below(now, place) in (below(before, bundle), below(after, bundle)) for place in homes):
            yield f'{bundle} is whole nowhere: {({place: below(now, place) for place in homes})}'
        if now.get(STATE) == after[STATE] and below(now, bundle) != below(after, bundle):
            yield f'the state is new, but {bundle} is not'
