"""Adds a contact with a matter, looks the contact up, and prints what the change journal says about it.

    first_contact.py PRACTICE [LIBRARY [BRENIK]]

LIBRARY is the path of the library, BRENIK that of the companion tool. Without them the system searches for both.
"""

import subprocess
import sys

import brenikdb
from brenikdb import Table


def add_contact(session):
    session.add_start(Table.NAMES)
    session.set_field(Table.NAMES, 0, 'ID', 'MULLER')       # record 0: the one that is being added
    session.set_field(Table.NAMES, 0, 'LAST', 'Müller')
    session.set_field(Table.NAMES, 0, 'FIRST', 'Zoë')
    return session.add_end(Table.NAMES)


def add_matter(session, contact):
    session.add_start(Table.MATTERS)
    session.set_field(Table.MATTERS, 0, 'CASENUM', '2026-MULLER-1')
    session.set_field(Table.MATTERS, 0, 'MATTER', 'Müller v. Okafor')
    return session.add_end(Table.MATTERS, contact)          # links the matter to the contact


def main():
    if not 2 <= len(sys.argv) <= 4:
        sys.exit(__doc__)
    practice, library, tool = (sys.argv[1:] + ['', ''])[:3]
    try:
        with brenikdb.Session(practice, library=library) as session:
            contact = add_contact(session)
            print('contact', contact)
            print('matter', add_matter(session, contact))
            print('found', session.get_u_id(Table.NAMES, 'muller'), flush=True)
        subprocess.run([tool or 'brenik', 'journal', practice, '--limit', '3'], check=True)
    except (brenikdb.BrenikError, OSError, ValueError, subprocess.SubprocessError) as error:
        sys.exit(str(error))


if __name__ == '__main__':
    main()
