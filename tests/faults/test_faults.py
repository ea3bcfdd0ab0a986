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
import hashlib
import itertools
import os
import re
import shutil
import subprocess
import tempfile
from pathlib import Path

import judges
import pytest

WRITING = ('error', 'short', 'full', 'gone')
SCRIPTS = ('add', 'edit', 'matter', 'memo', 'remove', 'reindex')
TABLES = {'1': 'LAW1', '2': 'LAW2', '3': 'LAW3', '4': 'LAWNotes', '9': 'LAW9'}      # those with identifiers
# Times of change, which no two runs share. The counters are judged by what they have given out.
MASKED = {('LAWTRANS', 'CDT'), ('LAWTRANS', 'CDATA'), ('LAWSYS', 'TLASTDELTA'), ('LAWSYS', 'RECORDNO')}
MASKED |= {('LAWSYS', 'U_ID' + table) for table in TABLES}
TOOL = os.environ['BRENIK_TOOL']
SANITIZED = os.environ['BRENIK_SANITIZED'] == '1'
HANGS = 600              # seconds; no program here takes more than a moment, unless the machine has other work to do


class Run:
    """What became of one run of a script: steps acknowledged, identifiers given out, calls made. That of "reindex"
    is the tool's, on the whole practice, with no steps to acknowledge."""

    def __init__(self, folder, script, kind='end', call=0, steps=-1):
        log = '%s.calls' % folder
        environment = dict(os.environ, LD_PRELOAD=os.environ['BRENIK_FAULTY_FILES'], FAULTY_FOLDER=str(folder),
                           FAULTY_KIND=kind, FAULTY_CALL=str(call), FAULTY_LOG=log, BRENIK_UI='none',
                           BRENIK_WINDIR=str(folder), ASAN_OPTIONS='verify_asan_link_order=0')
        if script == 'reindex':
            done = tool('reindex', folder, env=dict(environment, FAULTY_ARMED='1'))
            lines = ['refused'] if done.returncode else []
        else:
            done = subprocess.run([os.environ['BRENIK_SCRIPTED'], str(folder), script, str(steps)], timeout=HANGS,
                                  capture_output=True, text=True, env=environment)
            lines = done.stdout.splitlines()
        self.steps = [line.split()[1:] for line in lines if line.startswith('done')]
        self.identifiers = [tuple(step) for step in self.steps if step]
        self.refused = [line for line in lines if line.startswith('refused')]
        self.calls = [int(word) for word in Path(log).read_text().split()] if os.path.exists(log) else None
        expected = (-9, 0, 1, 3, 4) if script == 'reindex' else (-9, 0)
        assert done.returncode in expected and 'Sanitizer' not in done.stderr, done.stderr


def tables_of(folder):
    return sorted(p.stem for p in Path(folder).iterdir() if p.suffix.lower() == '.dbf')


VIEWS = {}


def view_of(folder, name):
    """Reading a table in Python is slow, and most tables are as they were in the run before."""
    path = judges.find(folder, name + '.dbf')
    files = [path] + [judges.dbfcheck.sibling_file(path, extension) for extension in ('.cdx', '.fpt')]
    key = name, *[hashlib.sha1(Path(file).read_bytes()).digest() for file in files if file]
    if key not in VIEWS:
        VIEWS[key] = judges.TableView(folder, name)
    return VIEWS[key]


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
    noted = [(row['CDB'], row['U_ID']) for row in view_of(folder, 'LawTrans').where(CCODE='A') if not row.deleted]
    assert len(set(noted)) == len(noted)
    assert {('%02d' % int(number), identifier) for number, identifier in set(identifiers) - unnoted} <= set(noted)


def tool(*arguments, **options):
    return subprocess.run([TOOL, *map(str, arguments)], capture_output=True, text=True, timeout=HANGS, **options)


def assert_mended(folder):
    """`check` and the outside readers agree that `repair` leaves nothing to say."""
    views = [view_of(folder, name) for name in tables_of(folder)]
    faults = [fault for view in views for fault in view.report.faults]
    checked = tool('check', folder)
    assert checked.returncode in (0, 1), checked.stderr
    if checked.returncode or faults:
        assert checked.returncode == 1 or 'a change was cut short there' in checked.stdout, (faults[:3], checked.stdout)
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
    assert len(later.identifiers) == 4
    assert_unique(folder, run.identifiers + later.identifiers)
    if script in ('add', 'matter'):
        faults = [(name, fault) for name in tables_of(folder) for fault in view_of(folder, name).report.faults]
        assert not [fault for fault in faults if re.search('occurs twice|has key', fault[1])], faults[:4]
    assert_mended(folder)


@pytest.fixture
def copy():
    """Makes copies of one practice, in memory where there is a place for that."""
    with tempfile.TemporaryDirectory(prefix='brenik-', dir='/dev/shm' if os.path.isdir('/dev/shm') else None) as folder:
        pristine = Path(folder) / 'pristine'
        tool('sample', pristine, '--contacts', 6, '--matters', 4, '--events', 4, '--notes', 3, check=True)
        assert not Run(pristine, 'prepare').refused
        yield lambda name: Path(shutil.copytree(pristine, Path(folder) / name))


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


@pytest.mark.parametrize('script', SCRIPTS)
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
