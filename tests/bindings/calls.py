"""Calls every function through the Python binding and prints what each gives, as calls.cpp does."""

import os
import sys

import brenikdb
from brenikdb import Table


def show(work, *arguments):
    try:
        print(work(*arguments) or 'done')
    except brenikdb.BrenikError as error:
        print(error.function, int(error.code), error.identifier + error.reason)
    except (ValueError, RuntimeError):
        print('refused')


def firm():
    items = session.get_my_firm()
    return '%d items, %s, %s' % (len(items), items[14], items[17])


def move(city):
    session.edit_start(Table.NAMES, session.get_u_id(Table.NAMES, 'firm'))
    session.set_field(Table.NAMES, 0, 'CITY', city)
    session.edit_end(Table.NAMES)
    return firm()


def add_code():
    session.add_start(Table.CODES)
    session.set_field(Table.CODES, 0, 'CODE', 'Mediation')
    return session.add_end(Table.CODES)


session = brenikdb.Session(sys.argv[1], True, sys.argv[2], int(sys.argv[3]))
with open(os.environ['BRENIK_FAULTS'], 'a') as faults:
    faults.write('time\tcall\tan older reason\n')
child = os.fork()
if child == 0:              # it can begin a session of its own
    brenikdb.Session(sys.argv[1], library=sys.argv[2]).shut_down()
    os._exit(0)
assert os.waitpid(child, 0)[1] == 0
for step in [(brenikdb.Session, *sys.argv[1:3]), (move, 'Dunmöre'), (move, '東京'), (add_code,), (add_code,),
             (session.add_end, Table.MATTERS, 'A1'), (session.get_u_id, Table.MATTERS, 'nowhere'),
             (session.edit_begin, Table.EVENTS, 17), (session.set_field, Table.EVENTS, 17, 'DETAIL', 'a\0b'),
             (session.edit_begin, Table.EVENTS, 17 + 2**32), (session.set_field, Table.EVENTS, 17, 'DETAILS', 'Moved'),
             (session.edit_end, Table.EVENTS, 17), (session.added_record, Table.NAMES, 2),
             (session.deleted_record, Table.NAMES, 1), (session.shut_down,), (firm,), (session.shut_down,)]:
    show(*step)
