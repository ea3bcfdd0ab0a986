"""Windows hosts and hosts of this system at work on one practice, without a server between them."""

import os
import random
import shlex
import subprocess
import time

import pytest
from conftest import NATIVE, OURS, at_once, windows_form
from judges import TableView, assert_sound

SECONDS = float(os.environ.get('BRENIK_MIXED_SECONDS', '20'))


def work(host, seed, stop):
    """Adds, edits and reports until the time is over; the identifiers of what it added."""
    random_numbers, mine, reported = random.Random(seed), {1: [], 3: []}, []
    while time.monotonic() < stop:
        table = random_numbers.choice((1, 3))
        values = {'LAST': 'W%d-%d' % (seed, len(mine[1]))} if table == 1 else {'MATTER': 'W%d-%d' % (seed, len(mine[3]))}
        rc, uid = host.add(table, values, mine[1][0] if table == 3 and mine[1] else '')
        assert rc == 0, rc
        mine[table].append(uid)
        assert host.edit_start(table, random_numbers.choice(mine[table])) == 0
        assert host.set_field(table, 'OPERATOR', 'W%d' % seed) == 0 and host.edit_end(table) == 0
        assert host.edit(1, 1 + random_numbers.randrange(12), {'FIRST': 'By %d' % seed}) == 0
        record = 1 + random_numbers.randrange(12)
        assert host.deleted(3, record) == 0
        reported.append(record)
    return mine, reported


def test_mixed_workstations(new_host, practice):
    """Nothing is lost or doubled, every deletion is noted once, and both judges find every order right."""
    start = {name: practice.table(name).table.count for name in ('LAW1', 'LAW3', 'LAW9')}
    counters = {table: practice.counter('U_ID%d' % table) for table in (1, 3)}
    for record in range(1, 13):
        practice.patch('LAW3', record)
    hosts = [new_host(workstation=system) for system in (OURS, NATIVE, OURS, NATIVE)]
    assert [host.init(practice) for host in hosts] == [0] * 4
    stop = time.monotonic() + SECONDS
    results = at_once(*[lambda seed=seed, host=host: work(host, seed, stop) for seed, host in enumerate(hosts)])
    assert all(len(mine[1]) and len(mine[3]) for mine, _ in results)
    journal = TableView(practice.folder, 'LAWTRANS').rows
    for table, name, field in (1, 'LAW1', 'LAST'), (3, 'LAW3', 'MATTER'):
        texts = {uid: 'W%d-%d' % (seed, number) for seed, (mine, _) in enumerate(results)
                 for number, uid in enumerate(mine[table])}
        added = practice.table(name).rows[start[name]:]
        assert {row['U_ID']: row[field] for row in added} == texts and len(added) == len(texts)
        assert practice.counter('U_ID%d' % table) == counters[table] + len(texts)
        noted = [row['U_ID'] for row in journal if (row['CDB'], row['CCODE']) == ('%02d' % table, 'A')]
        assert set(texts) <= set(noted) and len(set(noted)) == len(noted)
    for kind in 'ED':
        entries = [(row['CDB'], row['U_ID']) for row in journal if row['CCODE'] == kind]
        assert len(set(entries)) == len(entries)
    matters = practice.table('LAW3').rows
    reported = {matters[record - 1]['U_ID'] for _, records in results for record in records}
    assert reported <= {row['U_ID'] for row in journal if row['CCODE'] == 'D'}
    linked = [uid for mine, _ in results for uid in mine[3]]
    links = [row['U_ID3'] for row in practice.table('LAW9').rows[start['LAW9']:]]
    assert set(links) <= set(linked) and len(set(links)) == len(links)
    print('%d records added, %s by each' % (sum(len(m[1]) + len(m[3]) for m, _ in results),
                                            [len(m[1]) + len(m[3]) for m, _ in results]))
    assert_sound(practice.folder)


HOLDERS = {OURS: shlex.split(os.environ['BRENIK_HOLDER']), NATIVE: shlex.split(os.environ['BRENIK_NATIVE_HOLDER'])}
BOTH_WAYS = pytest.mark.parametrize('first, second', [(OURS, NATIVE), (NATIVE, OURS)], ids=['Windows first', 'native first'])


class Holder:
    """A program of either system that has opened a table, or locked a byte of it, as the library does."""

    def __init__(self, workstation, path, *arguments):
        path = windows_form(path) if workstation is OURS else path
        self.child = subprocess.Popen([*HOLDERS[workstation], path, *map(str, arguments)], text=True,
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.answer = self.child.stdout.readline().strip()

    def __enter__(self):
        return self.answer

    def __exit__(self, *_):
        self.child.communicate(timeout=20)


@BOTH_WAYS
def test_opens_respect_each_other(practice, first, second):
    path = practice.find('LAW1.dbf')
    for mine, yours, answer in (('shared', 'shared', 'held'), ('shared', 'exclusive', 'refused'),
                                ('exclusive', 'shared', 'refused'), ('exclusive', 'exclusive', 'refused')):
        with Holder(first, path, mine) as held, Holder(second, path, yours) as got:
            assert (held, got) == ('held', answer), (mine, yours)


@BOTH_WAYS
def test_locks_respect_each_other(new_host, practice, first, second):
    """What one system's program holds is refused to the other's host: records, and tables at the start."""
    view, host = practice.table('LAW1'), new_host(workstation=second)
    assert host.init(practice) == 0 and host.edit_begin(1, 2) == 0 and host.set_field(1, 'LAST', 'Held') == 0
    with Holder(first, view.path, 'shared', view.lock_position(2)) as held:
        assert held == 'held' and host.edit_end(1) == 12
    assert host.edit_end(1) == 0 and practice.table('LAW1').rows[1]['LAST'] == 'Held'
    assert host.shutdown() == 0
    with Holder(first, practice.find('LAW3.dbf'), 'exclusive') as held:
        assert held == 'held' and host.init(practice) == 4
    assert host.init(practice) == 0
