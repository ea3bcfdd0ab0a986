"""A practice shared with another program's engine, which remembers more of the index than the library does.

BRENIK_SOAK_SECONDS lets both work at once for longer than usual, up to a minute.
"""

import os
import random
import time

import pytest
from conftest import at_once
from foreign_engine import ForeignEngine
from judges import assert_sound

SECONDS = min(60, int(os.environ.get('BRENIK_SOAK_SECONDS', '6')))


def contact(random_numbers):
    """Values for every tag of the contacts, some with few different keys and some with many."""
    any_of = random_numbers.randrange
    return {'LAST': random_numbers.choice(('Ames', 'Brodie', 'Whittaker-Zoëllner')), 'FIRST': 'F%06d' % any_of(10 ** 6),
            'CITY': 'T%d' % any_of(5), 'ID': 'C%08d' % any_of(10 ** 8), 'ENTRY': '2031%02d15' % any_of(1, 13),
            'BALANCE': '%d.%02d' % (any_of(9000), any_of(100))}


def append_contact(engine, random_numbers, theirs):
    """No workstation of the sample practices issues such identifiers."""
    theirs.append('ZF%05d' % len(theirs))
    engine.append(dict(contact(random_numbers), U_ID=theirs[-1]))


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
            append_contact(engine, random_numbers, theirs)
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
    engine, count, ours, theirs = ForeignEngine(practice.folder, 'LAW1'), practice.table('LAW1').table.count, [], []
    end = time.monotonic() + SECONDS

    def work():
        random_numbers = random.Random(1)
        while time.monotonic() < end:
            ours.append(add_contact(session, random_numbers))
            record = 1 + random_numbers.randrange(count + len(ours))
            assert session.edit(1, record, {'LAST': 'Edited %d' % len(ours)}) == 0

    def append():
        random_numbers = random.Random(2)
        while time.monotonic() < end:
            append_contact(engine, random_numbers, theirs)
            time.sleep(random_numbers.uniform(0, 0.01))     # between two changes of its own others make some
    at_once(work, append)
    assert min(len(ours), len(theirs)) > SECONDS
    assert_whole(practice, count, ours, theirs)
