"""A practice shared with another program's engine, which remembers more of the index than the library does.

BRENIK_SOAK_SECONDS lets both work at once for longer than usual, up to a minute.
"""

import os
import random
import subprocess
import sys

import foreign_engine
import pytest
from foreign_engine import ForeignEngine, contact, identifier
from judges import assert_sound

SECONDS = min(60, int(os.environ.get('BRENIK_SOAK_SECONDS', '6')))


def add_contact(host, random_numbers):
    rc, uid = host.add(1, contact(random_numbers))
    assert rc == 0
    return uid


def assert_whole(practice, count, ours, theirs):
    """The records of both follow the first `count`, each of them once, and both judges are content."""
    assert sorted(row['U_ID'] for row in practice.table('LAW1').rows[count:]) == sorted([*ours, *theirs])
    assert len({*ours, *theirs}) == len(ours) + len(theirs)
    assert_sound(practice.folder, 'LAW1')


def take_turns(host, practice, random_numbers, turns):
    """The two add in turn, as many as `turns` says; the other engine has opened its files before."""
    engine, count = ForeignEngine(practice.folder, 'LAW1'), practice.table('LAW1').table.count
    ours, theirs, found = [], [], []
    assert host.init(practice) == 0
    for number_of_ours, number_of_theirs in turns:
        ours += [add_contact(host, random_numbers) for _ in range(number_of_ours)]
        for _ in range(number_of_theirs):
            theirs.append(identifier(len(theirs)))
            engine.append(dict(contact(random_numbers), U_ID=theirs[-1]))
        found.append(host.edit_start(1, theirs[-1]))
        assert host.edit(1, 1 + random_numbers.randrange(count + len(ours)), {'LAST': 'Edited'}) == 0
    assert_whole(practice, count, ours, theirs)
    assert not any(found)


def test_engine_that_waits_while_trees_grow(host, practice):
    take_turns(host, practice, random.Random(1), [(400, 1), (1, 1)])


def test_turns(host, new_practice):
    for seed in range(20):
        random_numbers = random.Random(seed)
        turns = [(random_numbers.randrange(12), random_numbers.randrange(1, 12)) for _ in range(12)]
        take_turns(host, new_practice(str(seed)), random_numbers, turns)


@pytest.mark.waits
def test_both_at_once(session, practice):
    """Contacts of either are edited as well, which moves their keys."""
    count, random_numbers, ours = practice.table('LAW1').table.count, random.Random(1), []
    command = [sys.executable, foreign_engine.__file__, practice.folder, 'LAW1', str(SECONDS)]
    with subprocess.Popen(command, stdout=subprocess.PIPE) as other:
        while other.poll() is None:
            ours.append(add_contact(session, random_numbers))
            record = 1 + random_numbers.randrange(count + len(ours))
            assert session.edit(1, record, {'LAST': 'Edited %d' % len(ours)}) == 0
        added = int(other.stdout.read())
    assert other.returncode == 0 and min(len(ours), added) > SECONDS
    assert_whole(practice, count, ours, [identifier(number) for number in range(1, added + 1)])
    print('%d contacts of ours, %d of the other engine' % (len(ours), added))
