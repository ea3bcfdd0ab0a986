"""A telephone program: who is calling, which of the caller's matters are open, and a note of the call.

    telephone.py PRACTICE NUMBER [LIBRARY [BRENIK]]

The library changes a practice; it does not search one by telephone number. So the records are read by the companion
tool, as JSON. The note is added by the library, like every change. LIBRARY is the path of the library, BRENIK that of
the tool. Without them the system searches for both. The module brenikdb must be found: PYTHONPATH=bindings/python.
"""

import json
import subprocess
import sys

import brenikdb
from brenikdb import Table

TELEPHONES = ('DAYPHONE', 'EVEPHONE', 'PHONE3', 'PHONE4')
NO_SUCH_KEY = 1             # exit status of the tool


def records(tool, practice, table, *chosen):
    """The fields of the records that the tool shows, without deleted records."""
    shown = subprocess.run([tool, 'show', practice, table, '--json', *chosen], stdout=subprocess.PIPE)
    if shown.returncode != NO_SUCH_KEY:
        shown.check_returncode()
    rows = [json.loads(line) for line in shown.stdout.decode('utf-8').splitlines()]
    return [row['fields'] for row in rows if not row['deleted']]


def digits(text):
    return ''.join(c for c in text if c in '0123456789')


def callers(tool, practice, number):
    return [contact for contact in records(tool, practice, 'LAW1', '--all')
            if digits(number) in [digits(contact[field]) for field in TELEPHONES]]


def open_matters(tool, practice, contact):
    """A cross-reference ties a contact (U_ID1) to a matter (U_ID3)."""
    for link in records(tool, practice, 'LAW9', '--all'):
        if link['U_ID1'] == contact and link['U_ID3']:
            yield from (matter for matter in records(tool, practice, 'LAW3', '--order', 'U_ID', '--seek', link['U_ID3'])
                        if matter['ACTIVE'])


def note_call(practice, library, contact, text):
    with brenikdb.Session(practice, library=library) as session:
        session.add_start(Table.NOTES)
        session.set_field(Table.NOTES, 0, 'NAME_UID', contact)
        session.set_field(Table.NOTES, 0, 'TOPIC', 'Telephone call')
        session.set_field(Table.NOTES, 0, 'NOTE', text)
        return session.add_end(Table.NOTES)


def answer(practice, number, library='', tool='brenik'):
    found = callers(tool, practice, number) if digits(number) else []
    for contact in found:
        print('caller', contact['U_ID'], contact['LAST'] + ', ' + contact['FIRST'])
    if len(found) != 1:
        sys.exit('%d contacts have the number %s: the call is not noted' % (len(found), number))
    contact = found[0]['U_ID']
    matters = list(open_matters(tool, practice, contact))
    for matter in matters:
        print('matter', matter['CASENUM'], matter['MATTER'])
    text = 'Called from %s. Open matters: %d.' % (number, len(matters))
    print('note', note_call(practice, library, contact, text))


def main():
    if not 3 <= len(sys.argv) <= 5:
        sys.exit(__doc__)
    try:
        answer(*sys.argv[1:])
    except (brenikdb.BrenikError, OSError, ValueError, subprocess.SubprocessError) as error:
        sys.exit(str(error))


if __name__ == '__main__':
    main()
