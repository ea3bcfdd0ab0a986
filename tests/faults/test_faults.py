"""Every writing, reading and locking call of a change fails once, in every way in which it can.

A script of changes is run without faults first, one step longer each time: that tells what the
practice looks like after each step. Then it is run again and again, each time with one call spoilt.
What was acknowledged must be there afterwards; the step that was not may have happened or not, for
each record by itself, but nothing in between. The next session must be able to work as if nothing
had happened, and `brenik check` must find nothing that `brenik repair` does not mend.

By default a spoilt writing call is tried with a killed process and with one of the other faults in
turn; BRENIK_EVERY_FAULT=1 tries every fault at every call. Under the sanitizers no process is killed, since
a killed one reports nothing; what it leaves behind is the same in every build.
"""

import concurrent.futures
import itertools
import os
import re
import shutil
import signal
import subprocess
import tempfile
from pathlib import Path

import judges
import pytest
from conftest import Host, HostGone, Practice, tool
from judges import tables_of, view_of

WRITING = ('error', 'short', 'full', 'gone')
TABLES = {'1': 'LAW1', '2': 'LAW2', '3': 'LAW3', '4': 'LAWNotes', '9': 'LAW9'}      # those with identifiers
# Times of change, which no two runs share. The counters are judged by what they have given out.
MASKED = {('LAWTRANS', 'CDT'), ('LAWTRANS', 'CDATA'), ('LAWSYS', 'TLASTDELTA'), ('LAWSYS', 'RECORDNO')}
MASKED |= {('LAWSYS', 'U_ID' + table) for table in TABLES}
SANITIZED = os.environ['BRENIK_SANITIZED'] == '1'


def faulty(folder, kind='end', call=0, **environment):
    """What makes a program's calls on the folder's files go wrong."""
    return dict(environment, LD_PRELOAD=os.environ['BRENIK_FAULTY_FILES'], FAULTY_FOLDER=str(folder), FAULTY_KIND=kind,
                FAULTY_CALL=str(call), FAULTY_LOG='%s.calls' % folder, ASAN_OPTIONS='verify_asan_link_order=0')


def calls_made(folder):
    """How many writing, reading and locking ones, once the program has ended; None if it was killed."""
    log = Path('%s.calls' % folder)
    return [int(word) for word in log.read_text().split()] if log.exists() else None


# Scripts make changes of a host, and yield what each is answered: the code, and of a record added its table and its
# identifier.
def added(host, table, *values):
    rc, uid = host.add(table, *values)
    return rc, str(table), uid


def add(host):
    """The contact's name splits a page of the index."""
    yield added(host, 1, {'LAST': 'Added' * 6, 'FIRST': 'Added' * 4, 'ID': 'ADDED', 'CITY': 'Bergen'})
    yield added(host, 4, {'TOPIC': 'Added', 'NOTE': 'A note that is new'})


def edit(host):
    """The first name empties a page of the index, which the last one takes."""
    for name in 'Edited', 'Aaltonen', 'Zuse' * 7:
        yield host.edit(1, 'A10000B', {'LAST': name, 'FIRST': name[:20], 'CITY': name[:8], 'BALANCE': '99.50'}),


def matter(host):
    yield added(host, 3, {'MATTER': 'Added', 'CASENUM': '2030/1'}, 'A100003')


def memo(host):
    """Longer, shorter, as long, none, and text again, of one record and of its neighbour."""
    for text in 'a' * 300, 'b' * 90, 'c' * 90, '', 'd' * 1000:
        yield host.edit(1, 'A100002', {'NOTES': text}),
        yield host.edit(1, 'A100003', {'NOTES': text + '!'}),


def later(host):
    """What the next user does after whatever went wrong."""
    for table in 1, 2, 4:
        rc, _, uid = answer = added(host, table, {})
        yield answer
        yield host.edit(table, uid, {'NOTE' if table == 4 else 'NOTES': 'Later'}),
        yield host.edit(table, 'A100001', {'OPERATOR': 'LTR'}),
    yield added(host, 3, {'MATTER': 'Later'}, 'A100004')


SCRIPTS = {script.__name__: script for script in (add, edit, matter, memo, later)}


class Run:
    """What became of one run of a script: steps acknowledged, identifiers given out, calls made. That of "reindex"
    is the tool's, on the whole practice, with no steps to acknowledge."""

    def __init__(self, folder, script, kind='end', call=0, steps=None, record=False):
        self.steps, self.refused, self.marks, self.record = [], [], [], Path('%s.record' % folder)
        environment = faulty(folder, kind, call, **({'FAULTY_RECORD': str(self.record)} if record else {}))
        if script == 'reindex':
            done = tool('reindex', folder, env=dict(os.environ, **environment, FAULTY_ARMED='1'))
            assert done.returncode in (-9, 0, 1, 3, 4) and 'Sanitizer' not in done.stderr, done.stderr
            self.refused += [done.returncode] if done.returncode else []
        else:
            self._follow(folder, script, steps, environment)
        self.identifiers = [tuple(step) for step in self.steps if step]
        self.calls = calls_made(folder)

    def _follow(self, folder, script, steps, environment):
        host = Host(folder.parent, **environment)
        try:
            assert host.init(folder) == 0
            host.child.send_signal(signal.SIGUSR1)
            self._mark()
            for rc, *what in itertools.islice(SCRIPTS[script](host), steps):
                assert not locks_on(folder), 'locked after a call'
                if rc:
                    self.refused.append(rc)
                    break
                self.steps.append(what)
                self._mark()
            host.shutdown()
        except HostGone:
            pass
        finally:
            host.close()

    def _mark(self):
        """How long the record is now, if there is one."""
        self.marks += [self.record.stat().st_size] if self.record.exists() else []


def locks_on(folder):
    """The exclusive locks that somebody has in the folder's files: file, first byte, last byte."""
    numbers = {str(path.stat().st_ino): path.name for path in folder.iterdir()}
    locks = [line.split()[-3:] for line in Path('/proc/locks').read_text().splitlines() if ' WRITE ' in line]
    return [(numbers[place.split(':')[2]], *ends) for place, *ends in locks if place.split(':')[2] in numbers]


def rows(folder):
    """Every record as it can be compared between runs."""
    found = {}
    for name in tables_of(folder):
        view = view_of(folder, name)
        names = [field for field in view.names if (name.upper(), field) not in MASKED]
        for row in view.rows:
            found[name, row.number] = [row.deleted] + [row.raw[field] for field in names]
    return found


def is_blank(row):
    return row[0] or all(not value.strip(b' \0F') for value in row[1:])


def assert_old_or_new(now, old, new):
    """`new` is the step after `old`, or None where nothing was under way."""
    for key in old.keys() | now.keys():
        allowed = [state[key] for state in (old, new) if state and key in state]
        if now.get(key) in allowed:
            continue
        assert key not in old or (new and key not in new), '%s record %d is neither old nor new' % key
        assert new is not None and is_blank(now[key]), '%s record %d: not asked for' % key


def assert_unique(folder, identifiers, unnoted=frozenset()):
    """Each identifier that was given out is one record's, and no counter will give it out again."""
    system, = view_of(folder, 'LAWSYS').rows
    for table, name in TABLES.items():
        issued = [row['U_ID'] for row in view_of(folder, name).rows if row['U_ID']]
        assert len(set(issued)) == len(issued), name
        assert {identifier for number, identifier in identifiers if number == table} <= set(issued), name
        assert max(issued) <= judges.identifier(system['MYUDN'], int(system['U_ID' + table])), name
    noted = [(row['CDB'], row['U_ID']) for row in view_of(folder, 'LawTrans').where(CCODE='A', deleted=False)]
    assert len(set(noted)) == len(noted)
    assert {('%02d' % int(number), identifier) for number, identifier in set(identifiers) - unnoted} <= set(noted)


def assert_mended(folder):
    """`check` and the outside readers agree that `repair` leaves nothing to say."""
    views = [view_of(folder, name) for name in tables_of(folder)]
    faults = [fault for view in views for fault in view.report.faults]
    checked = tool('check', folder)
    assert checked.returncode in (0, 1), checked.stderr
    if checked.returncode or faults:
        explained = checked.returncode == 1 or 'an interrupted change left this' in checked.stdout
        assert explained, (faults[:3], checked.stdout)
        before = rows(folder)
        repaired = tool('repair', folder)
        assert repaired.returncode in (0, 1), repaired.stderr
        checked = tool('check', folder)
        assert checked.returncode == 0, checked.stdout[:2000]
        after = rows(folder)
        assert all(after.get(key) in (row, [True] + row[1:]) for key, row in before.items() if not is_blank(row))
    for name in tables_of(folder):
        assert not view_of(folder, name).report.faults, (name, view_of(folder, name).report.faults[:4])


def judge(folder, run, script, states):
    """`states` are those of the practice after each step. The next addition to a table clears what one has left."""
    done = len(run.steps)
    finished = done + 1 == len(states) and not run.refused
    assert_old_or_new(rows(folder), states[done], None if finished else states[min(done + 1, len(states) - 1)])
    later = Run(folder, 'later')
    assert not later.refused, later.refused
    assert_unique(folder, run.identifiers + later.identifiers)
    if script in ('add', 'matter'):
        faults = [(name, fault) for name in tables_of(folder) for fault in view_of(folder, name).report.faults]
        assert not [fault for fault in faults if re.search('occurs twice|has key', fault[1])], faults[:4]
    assert_mended(folder)


@pytest.fixture
def memory():
    """A folder, in memory where there is a place for that."""
    with tempfile.TemporaryDirectory(prefix='brenik-', dir='/dev/shm' if os.path.isdir('/dev/shm') else None) as folder:
        yield Path(folder)


@pytest.fixture
def copy(memory):
    """Makes copies of one practice, in whose names' index one page is full and the next has one entry."""
    pristine = memory / 'pristine'
    tool('sample', pristine, '--contacts', 6, '--matters', 4, '--events', 4, '--notes', 3, check=True)
    Practice(pristine).choose_engine()
    host = Host(memory)
    assert host.init(pristine) == 0
    assert not any(host.add(1, {'LAST': letter * 30, 'FIRST': letter * 20})[0] for letter in 'VWXYZ')
    host.close()
    return lambda name: Path(shutil.copytree(pristine, memory / name))


def after_each_step(copy, script):
    states = [rows(copy('before'))]
    for steps in itertools.count(1):
        folder = copy('step%d' % steps)
        run = Run(folder, script, steps=steps)
        assert not run.refused
        if len(run.steps) < steps:
            return states, run.calls
        states.append(rows(folder))


def faults(writing, reading, locking):
    everything = os.environ.get('BRENIK_EVERY_FAULT') == '1'
    for call in range(1, writing + 1):
        if not SANITIZED:
            yield 'end', call
        for kind in WRITING if everything else WRITING[call % len(WRITING)::len(WRITING)]:
            yield kind, call
    on_share = reading + writing            # what was written is read back
    for kind, calls in ('stale', on_share), ('drop', writing), ('drop-read', on_share), ('drop-lock', 2 * locking):
        yield from ((kind, call) for call in range(1, calls + 1, 1 if everything else 2))
    for kind, calls in ('read', reading), ('lock', locking):
        for call in range(1, calls + 1, 1 if everything else 5):
            yield kind, call


def run_with_fault(copy, script, states, told, kind, call):
    folder = copy('%s%d' % (kind, call))
    try:
        run = Run(folder, script, kind, call)
        told.extend([kind] if run.refused else [])
        judge(folder, run, script, states)
    except (AssertionError, subprocess.TimeoutExpired) as error:
        return '%s at call %d: %s' % (kind, call, str(error)[:600])
    shutil.rmtree(folder)
    return None


@pytest.mark.parametrize('script', ['add', 'edit', 'matter', 'memo', 'reindex'])
def test_every_call_fails_once(copy, script):
    """With "reindex" the old indexes stay until the new ones are whole, and the records are nobody's business. What a
    share does not give back is told of more than once: the tables' counts and the indexes' counters are read back."""
    states, calls = after_each_step(copy, script)
    jobs, told = list(faults(*calls)), []
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        outcomes = pool.map(lambda job: run_with_fault(copy, script, states, told, *job), jobs)
    failed = [outcome for outcome in outcomes if outcome]
    print('%d faults' % len(jobs))
    assert len(jobs) > 20 and told.count('stale') > 1
    assert not failed, '%d of %d\n%s' % (len(failed), len(jobs), '\n'.join(failed[:12]))


def test_memos_given_up(copy):
    """At no moment is there a memo file whose blocks a record still names: hosts would store new memos in them. The
    next run ends what one left undone."""
    damaged = copy('damaged')
    host = Host(damaged.parent)
    assert host.init(damaged) == 0 and all(host.edit(1, n, {'NOTES': 'n' * n}) == 0 for n in (2, 3, 5))
    host.close()
    (damaged / 'LAW1.FPT').unlink()
    for call in range(1, 1000):
        folder = Path(shutil.copytree(damaged, '%s%d' % (damaged, call)))
        memos, environment = folder / 'LAW1.FPT', faulty(folder, 'gone' if SANITIZED else 'end', call, FAULTY_ARMED='1')
        done = tool('repair', folder, '--without-memos', env=dict(os.environ, **environment))
        if memos.exists() and memos.stat().st_size:
            assert not Practice(folder).table('LAW1').report.faults, call
        assert tool('repair', folder, '--without-memos').returncode == tool('check', folder).returncode == 0, call
        if done.returncode == 0:
            break
    assert call > 6


def cut_short(copy, durability, call):
    """The complaint, or None; whether an edit was refused. The same record is edited at last in the table that was open
    all the time, or one opened again; every other time somebody else has edited it before."""
    folder = copy('cut-%s%d' % (durability, call))
    Practice(folder).write('LAWSYS.INI', '[Main]\r\nDurability=%s\r\n' % durability)
    host, other = Host(folder.parent, **faulty(folder, 'cut', call)), Host(folder.parent)
    assert host.init(folder) == other.init(folder) == 0
    host.child.send_signal(signal.SIGUSR1)
    refused = any(rc for rc, in edit(host))
    if call % 2:
        assert other.edit(1, 'A10000B', {'LAST': 'Other', 'CITY': 'Otherwhere'}) == 0
    host.child.send_signal(signal.SIGUSR1)
    assert call % 4 > 1 or host.init(folder) == 0
    last = host.edit(1, 'A10000B', {'LAST': 'Latest'})
    for one in host, other:
        one.shutdown(), one.close()
    faults = view_of(folder, 'LAW1').report.faults
    complaint = '%s cut at call %d: %s %s' % (durability, call, last, faults[:3]) if last or faults else None
    assert_mended(folder)
    return complaint, refused


@pytest.mark.parametrize('durability', ['none', 'full'])
def test_edits_that_a_cut_interrupts(copy, durability):
    """The server does not answer any more, so the call answers 14 and its change is given up. Nobody else knows which
    keys it has left in the index."""
    outcomes = []
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        while not outcomes or all(refused for _, refused in outcomes):
            some = range(len(outcomes) + 1, len(outcomes) + 9)
            outcomes += pool.map(lambda call: cut_short(copy, durability, call), some)
    failed = [complaint for complaint, _ in outcomes if complaint]
    assert len(outcomes) > 20
    assert not failed, '%d of %d\n%s' % (len(failed), len(outcomes), '\n'.join(failed[:12]))
