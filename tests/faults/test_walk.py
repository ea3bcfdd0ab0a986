"""What is left of a call that ends early is what the documentation's table says.

Each call of a host is made with each of its calls on files failing in turn, and with each of its locks somebody
else's. Code, work area, records, journal and counter must then be those of a row of the table, and every row that a
failing call or a lock leads to must be met.

With BRENIK_TEST_ENGINE=client the calls on the client library fail instead: each of them, before and after its work.

The host's clock runs only while it sleeps (faulty_files.c), so that refused locks take no time and stamps are the same
in every walk. An End that failed is tried once more: the buffer must have kept its values.
"""

import concurrent.futures
import os
import re
import shutil
import signal
from pathlib import Path

import pytest
from conftest import CLIENT, Host, Practice, faults_of
from judges import tables_of, view_of
from test_faults import calls_made, copy, faulty, memory  # noqa: F401  (fixtures)

TABLE = Path(__file__).parents[2] / 'docs' / 'reference' / 'when-a-call-ends-early.md'
FILES = {0: 'LAW1', 1: 'LAW1', 3: 'LAW3'}
AREAS = 1, 2, 3, 4, 5, 7, 9, 20
CONTACT = 'A100003'
NOON = 1900000000        # the second at which each walk's clock begins


def add_end(table, contact=''):
    """What prepares an addition, and the call that ends it. Its identifier is kept in the host."""
    def fill(host, _):
        host.add_start(table), host.set_fields(table, {'NOTES': 'A note that is new'})

    def end(host, _):
        rc, uid = host.add_end(table, contact)
        host.identifier = uid if rc != 14 and uid.strip() else ''
        return rc
    return table, fill, end


def begin_again(host, folder):
    """Start-up from a current area that it does not open."""
    host.shutdown(), host.added(9, 1)


def get_firm(host, _):
    rc, text, _ = host.call('firm', b' ' * 500 + b'\0')
    host.identifier = text.strip(b' \0')
    return rc


def nothing(host, _):
    pass


def change(host, _):
    host.begin(1, 3, {'LAST': 'Walked', 'NOTES': 'Walked'})


# The number of the call's table, what comes before it, and the call.
CALLS = {
    'StartUp': (0, begin_again, lambda host, folder: host.init(folder)),
    'AddEnd': add_end(1), 'AddEnd with a link': add_end(3, CONTACT),
    'EditStart': (1, nothing, lambda host, _: host.edit_start(1, CONTACT)),
    'EditBegin': (1, nothing, lambda host, _: host.edit_begin(1, 3)),
    'EditEnd': (1, change, lambda host, _: host.edit_end(1, 3)),
    'AddedRec': (1, nothing, lambda host, _: host.added(1, 3)),
    'DeletedRec': (1, nothing, lambda host, _: host.deleted(1, 3)),
    'GetMyFirm': (0, nothing, get_firm),
    'GetU_ID': (1, nothing, lambda host, _: host.get_uid(1, 'FIRM')[0])}


class Row:
    def __init__(self, line):
        calls, _, what, *left = [cell.strip() for cell in line.strip('|').split('|')]
        self.line, self.calls, self.allowed = line, calls.split(', '), [cell.split(' or ') for cell in left]
        self.walked = 'as before' in left[-1] + left[-2] + left[2] and re.match('a call on a file|a lock', what)

    def covers(self, left):
        return all(word in allowed for word, allowed in zip(left, self.allowed))


ROWS = [Row(line) for line in TABLE.read_text().splitlines() if line.startswith('| ') and 'What fails' not in line]


def contents(folder):
    views = {name.upper(): view_of(folder, name) for name in tables_of(folder)}
    return {(name, row.number): dict(row.raw, deleted=row.deleted)
            for name, view in views.items() for row in view.rows}


def current_area(host):
    return next((str(area) for area in AREAS if host.set_field(area, 'NOSUCH', '') != 13), 'none')


def locks_held(host, folder):
    """What the host holds alone in the practice's files, as the system lists it."""
    process = Path('/proc/%d' % host.child.pid)
    ours = [file.name for file in (process / 'fd').iterdir() if os.readlink(file).startswith(str(folder))]
    return sum((process / 'fdinfo' / name).read_text().count(' WRITE ') for name in ours)


def arm(host, kind, number):
    """From now on calls are counted, and the one with this number is spoilt; for the client library, the one that a
    text names."""
    host.child.send_signal(signal.SIGUSR1)
    if CLIENT:
        host.control('fail_after=%d' % (kind == 'answer'))
        host.control('fail=%s' % (number or ''))


def disarm(host):
    host.child.send_signal(signal.SIGUSR1)
    if CLIENT:
        host.control('fail=')


def lines_of(log):
    return log.read_text('latin-1').splitlines() if log.exists() else []


class Walk:
    """One call, and what it left behind."""

    def __init__(self, folder, call, kind='error', number=0):
        self.call, (self.table, prepare, run) = call, CALLS[call]
        if call == 'DeletedRec':
            Practice(folder).patch('LAW1', 3)
        windows = Path('%s.host' % folder)
        windows.mkdir()
        log = Path('%s.log' % folder)
        spoilt = {'STAND_IN_LOG': str(log)} if CLIENT else {'kind': kind, 'call': number}
        host = Host(windows, **faulty(folder, FAULTY_TIME=str(NOON), **spoilt))
        host.identifier = ''
        assert host.init(folder) == 0
        prepare(host, folder)
        self.area_before, self.before = current_area(host), contents(folder)
        before = len(lines_of(log))
        arm(host, kind, number)
        self.code = str(run(host, folder))
        disarm(host)
        self.client_calls = [line.split('\t')[1] for line in lines_of(log)[before:]]
        self.locks, self.area, self.now = locks_held(host, folder), current_area(host), contents(folder)
        self.locks += host.count('locks') if CLIENT else 0
        self.told, self.identifier = faults_of(windows).exists(), host.identifier
        if self.code in ('9', '12', '14', '17') and re.match('AddEnd|EditEnd', call) and not self.identifier:
            self.again, self.retried = run(host, folder), contents(folder)
        elif call == 'StartUp':
            host.init(folder)
        self.next_code = host.add(2, {})[0]
        if CLIENT:
            assert (host.shutdown(), host.count('handles')) == (0, 0), (self.client_calls, number)
        host.close()
        self.calls = calls_made(folder)

    def kept_its_buffer(self, finished):
        """The host could do once more what had failed, with all values but for the identifier."""
        if not hasattr(self, 'retried'):
            return True
        wanted, there = [[dict(row, U_ID='', deleted=False) for key, row in rows.items() if key[0] == FILES[self.table]
                          and row != self.before.get(key)] for rows in (finished, self.retried)]
        return self.again == 0 and any(row in wanted for row in there)

    def became(self, name, finished):
        """Of the records of a table that the call would have changed or added, what became of each."""
        words = set()
        for key in self.now.keys() | finished.keys():
            now, before = self.now.get(key), self.before.get(key)
            if key[0] != name or before == now == finished.get(key):
                continue
            changed = 'changed' if before else 'marked deleted' if now and now['deleted'] else 'added'
            whole = changed == 'marked deleted' or now == finished.get(key)
            words.add('as before' if now == before else changed if whole else 'half')
        return ' and '.join(sorted(words)) or 'as before'

    def left(self, finished):
        told = {'as before': 'as before', 'added': 'told', 'changed': 'told', 'added and as before': 'partly told'}
        entries = self.became('LAWTRANS', finished).replace('marked deleted', 'as before')  # one withdrawn is none
        area = 'as before' if self.table == 0 and self.area == self.area_before else self.area
        return [self.code, 'its own' if area == str(self.table) else area,
                self.became(FILES[self.table], finished),
                self.became('LAW9', finished).replace('as before', 'none'),
                told.get(' and '.join(sorted(set(entries.split(' and ')))), 'half'),
                'as before' if self.now['LAWSYS', 1] == self.before['LAWSYS', 1] else 'used']


def file_jobs(writing, reading, locking):
    kinds = {'error': writing, 'gone': writing, 'read': reading, 'lock': locking, 'held': locking}
    return [(kind, number) for kind, calls in kinds.items() for number in range(1, calls + 1)]


def client_jobs(functions):
    """Each call fails before its work, and after it; each lock is refused once, also that of a record appended."""
    jobs = [(kind, 'any:%d' % number) for kind in ('before', 'answer') for number in range(1, len(functions) + 1)]
    for function, failure in ('AdsLock', 'any:%d:5035'), ('AdsAppendRecord', 'append-lock:%d'):
        counted = functions if 'any' in failure else [name for name in functions if name == function]
        jobs += [('refused', failure % number) for number, name in enumerate(counted, 1) if name.startswith(function)]
    return jobs


@pytest.mark.parametrize('call', CALLS)
def test_what_is_left(copy, call):  # noqa: F811
    reference = Walk(copy('finished'), call)
    assert (reference.code, reference.locks, reference.next_code) == ('0', 0, 0)
    rows = [row for row in ROWS if {call, call.split()[0]} & set(row.calls)]

    def walk(kind, number):
        folder = copy('%s%s' % (kind, number))
        made = Walk(folder, call, kind, number)
        shutil.rmtree(folder)
        assert made.told or made.code not in ('3', '4', '14')
        assert (made.locks, made.next_code) == (0, 0), (kind, number, made.code, made.area)
        assert made.kept_its_buffer(reference.now)
        added = made.code in ('0', '4') or made.code == '17' and made.became('LAW3', reference.now) == 'added'
        assert 'AddEnd' not in call or bool(made.identifier) == added
        return tuple(made.left(reference.now)), made.identifier
    jobs = client_jobs(reference.client_calls) if CLIENT else file_jobs(*reference.calls)
    print('%s: %d runs' % (call, len(jobs)))
    with concurrent.futures.ThreadPoolExecutor(4) as pool:          # they mostly wait
        outcomes = list(pool.map(lambda job: walk(*job), jobs))
    finished = tuple(reference.left(reference.now)), reference.identifier
    unfinished = {outcome[0]: job for outcome, job in zip(outcomes, jobs) if outcome != finished}
    unknown = {left: job for left, job in unfinished.items() if not any(row.covers(left) for row in rows)}
    assert not unknown, unknown
    missed = [row.line for row in rows
              if row.walked and call in row.calls and not any(row.covers(left) for left in unfinished)]
    assert CLIENT or not missed, missed
