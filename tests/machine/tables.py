"""The tables of figures in docs/, which scenarios write."""

import pathlib
import re

DOCS = pathlib.Path(__file__).resolve().parents[2] / 'docs'


def write(document, name, header, rows):
    """Writes the rows into the table of that name, between the two comments that mark it.

    A row that is there already and begins with words that no new row begins with stays: not every
    run is about everything.
    """
    path = DOCS / document
    text = path.read_text(encoding='utf-8')
    begin, end = f'<!-- table {name} -->\n', '<!-- end of table -->'
    found = re.search(f'{re.escape(begin)}(.*?){re.escape(end)}', text, re.DOTALL)
    old = [[cell.strip() for cell in line.strip('|').split(' | ')] for line in found[1].splitlines()[2:]]
    new = [[str(cell).replace('\n', ' ').replace('|', '\\|') for cell in row] for row in rows]
    said = {row[0] for row in new}
    kept = [row for row in old if row[0] not in said]
    lines = [f'| {" | ".join(row)} |' for row in (header, *sorted(kept + new, key=lambda row: row[0]))]
    lines.insert(1, '|---' * len(header) + '|')
    table = begin + '\n'.join(lines) + '\n' + end
    path.write_text(text[:found.start()] + table + text[found.end():], encoding='utf-8')
