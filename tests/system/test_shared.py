"""Several workstations on one practice, in either locking mode."""

import random
import re

import pytest
from conftest import at_once
from judges import TableView, assert_sound

TURNS = 100
DELETED = 12             # matters that are reported again and again, each by one of four workstations


def work(host, seed, contact, turns=range(TURNS)):
    """Adds contacts and linked matters, edits what it added and what everybody edits, reports what is deleted."""
    random_numbers, mine = random.Random(seed), {1: {}, 3: {}}
    for number in turns:
        table, text = random_numbers.choice((1, 3)), 'W%d-%d' % (seed, number)
        rc, uid = host.add(table, {'LAST' if table == 1 else 'MATTER': text}, contact if table == 3 else '')
        assert rc == 0
        mine[table][uid] = text
        assert host.edit(table, random_numbers.choice(list(mine[table])), {'OPERATOR': '%03d' % (number % 1000)}) == 0
        assert host.edit(1, 1 + random_numbers.randrange(12), {'FIRST': 'By %d' % seed}) == 0
        assert host.deleted(3, 1 + (4 * number + seed) % DELETED) in (0, 6)     # 6 where nothing is deleted
    return mine


def work_together(practice, hosts, turns):
    """Nothing is lost or doubled, every deletion is noted once, and both judges find every order right."""
    start = {name: practice.table(name).table.count for name in ('LAW1', 'LAW3', 'LAW9')}
    counters = {table: practice.counter('U_ID%d' % table) for table in (1, 3)}
    contact = practice.table('LAW1').rows[4]['U_ID']
    for record in range(1, DELETED + 1):
        practice.patch('LAW3', record)
    assert {host.init(practice) for host in hosts} == {0}
    results = at_once(*[lambda seed=seed, host=host: work(host, seed, contact, turns())
                        for seed, host in enumerate(hosts)])
    journal = TableView(practice.folder, 'LAWTRANS').rows
    for table, name, field in (1, 'LAW1', 'LAST'), (3, 'LAW3', 'MATTER'):
        texts = {uid: text for result in results for uid, text in result[table].items()}
        assert len(texts) == sum(len(result[table]) for result in results)
        added = practice.table(name).rows[start[name]:]
        assert {row['U_ID']: row[field] for row in added} == texts and len(added) == len(texts)
        assert practice.counter('U_ID%d' % table) == counters[table] + len(texts)
        assert set(texts) <= {row['U_ID'] for row in journal if (row['CDB'], row['CCODE']) == ('%02d' % table, 'A')}
    entries = [(row['CDB'], row['CCODE'], row['U_ID']) for row in journal]
    assert len(set(entries)) == len(entries)
    assert {('03', 'D', row['U_ID']) for row in practice.table('LAW3').rows[:DELETED]} <= set(entries)
    assert re.fullmatch('By [0-9]', practice.table('LAW1').rows[0]['FIRST'])
    assert sorted(row['U_ID3'] for row in practice.table('LAW9').rows[start['LAW9']:]) == sorted(texts)
    assert_sound(practice.folder)


@pytest.mark.parametrize('own_mode', [False, True])
def test_working_at_once(new_host, practice, own_mode):
    practice.set_locking_mode(own_mode)
    work_together(practice, [new_host() for _ in range(4)], lambda: range(TURNS))
