"""Workstations on a real SMB share: whatever happens to guests, network and server, nothing acknowledged is lost.

Every guest runs a worker (tests/faults/worker.cpp), whose output leaves the guest by a serial port at once. After the
work the practice is judged where it lies on the server. A run counts only if the workstations did something and took
turns. Calls may be refused while network or server are away, and only then.

BRENIK_SHARE_SECONDS is the time that they work for in most tests. The machine is emulated: the longest call of each is
told, but says little about real ones. Windows' own redirector cannot be had here.
"""

import os
import re
import subprocess
import time

import judges
import pytest
from guests import LIMIT, Guest, Server, wait_until
from judges import tables_of
from test_faults import assert_mended, tool
from test_soak import Log, assert_kept

SECONDS = int(os.environ.get('BRENIK_SHARE_SECONDS', '12'))
SEEDS = {'A': 1, 'B': 2, 'local': 3}
PAUSE = 10               # milliseconds between two pieces of work of a local worker, which would be far ahead of guests
LEAST_WORK = 20          # acknowledged changes of each worker
LEAST_TURNS = 5          # how often a record in LAW1 is another one's than the record before
LOST = {('BrenikEditStart', '6'), ('BrenikEditStart', '16'), ('BrenikGetU_ID', '19')}    # of what is acknowledged


def work(name, seconds=SECONDS, pause=0, trace=0, folder='/practice'):
    """The arguments of a worker."""
    return ['share', str(folder), *map(str, (SEEDS[name], seconds, pause, trace))]


class Practice:
    """A shared practice and those who work on it."""

    def __init__(self, folder):
        self.folder, self.guests, self.paths, self.logs, self.server = folder / 'practice', {}, {}, {}, None
        self.edited = ()         # tags in which the key of one record may be missing, whose edit a kill cut short

    def open(self, *options, settings=''):
        tool('sample', self.folder, '--contacts', 20, '--matters', 8, '--events', 4, '--notes', 6, check=True)
        with open(judges.find(self.folder, 'LAWSYS.INI'), 'w', newline='\r\n') as file:
            file.write('[Main]\nnServerType=0\n' + settings)
        self.server = Server(self.folder.parent, self.folder, options)

    def add(self, *names, options='', after='', **kind):
        for name in names:
            job = 'worker %s >/dev/ttyS1\n%s' % (' '.join(work(name, **kind)), after)
            self.guests[name] = Guest(self.server, name, options, job)
            self.paths[name] = self.guests[name].log

    def begin(self):
        """Returns when everybody has begun to work."""
        for guest in self.guests.values():
            guest.wait_until_ready()
        (self.server.control / 'go').touch()
        for name in self.paths:
            self.wait_for_lines(name, 1)

    def lines(self, name):
        return self.paths[name].read_bytes().count(b'\n')

    def wait_for_lines(self, name, count):
        wait_until(lambda: self.lines(name) >= count or self.guests[name].process.poll() is not None)

    def wait_for_matters(self):
        """Everybody has the cross-references open then. A server lets one who is alone with a file cache it, and what
        is cached is lost when the server's process ends."""
        for name, path in self.paths.items():
            wait_until(lambda: b'\nmatter ' in path.read_bytes() or self.guests[name].process.poll() is not None)

    def end(self):
        for guest in self.guests.values():
            guest.process.wait(LIMIT)
        self.logs = {'W%d' % SEEDS[name]: Log(path) for name, path in self.paths.items()}
        print('', *map('%s: %s'.__mod__, self.logs.items()), sep='\n')

    def close(self):
        for guest in self.guests.values():
            guest.kill()
        if self.server:
            self.server.stop()

    def judge(self, interrupted=False):
        """After an interruption only a change that was never acknowledged may lie there half done."""
        self.end()
        seeds = [row['ID'].split('.')[0] for row in judges.TableView(self.folder, 'LAW1').rows if '.' in row['ID']]
        turns = sum(one != other for one, other in zip(seeds, seeds[1:]))
        done = [len(log.written) for log in self.logs.values()]
        assert min(done) >= LEAST_WORK and turns >= LEAST_TURNS, (done, turns)
        assert_kept(self.folder, self.logs, set().union(*(log.unnoted for log in self.logs.values())))
        refused = [tuple(words[1:3]) for log in self.logs.values() for words in log.refused]
        assert not LOST & set(refused), refused
        if interrupted:
            written = {words[1] for log in self.logs.values() for words in log.written}
            for name in tables_of(self.folder):
                if 'U_ID' in judges.TableView(self.folder, name).names:
                    judges.assert_finished(self, name, written, self.edited)
            assert_mended(self.folder)
        else:
            assert not refused
            checked = tool('check', self.folder)
            assert checked.returncode == 0, checked.stdout[:600]
        judges.assert_sound(self.folder)


@pytest.fixture
def practice(tmp_path):
    practice = Practice(tmp_path)
    yield practice
    practice.close()


@pytest.mark.parametrize('options, settings', [('', ''), ('cache=none', ''), ('', 'LockType=1\n'),
                                               ('cache=none', 'Durability=full\n')],
                         ids=['default', 'uncached', 'proprietary', 'durable'])
def test_two_guests(practice, options, settings):
    practice.open(settings=settings)
    traced = options != ''       # which takes its time
    practice.add('A', 'B', seconds=SECONDS * (4 if traced else 2), trace=traced, options=options)
    practice.begin()
    practice.judge()
    with open(judges.find(practice.folder, 'Trace.Log'), 'rb') as log:
        assert b'\0' not in log.read()


def test_beside_a_local_process(practice):
    """Without oplocks the server locks in the file system what its clients lock."""
    practice.open('oplocks = no', 'posix locking = yes')
    practice.add('A')
    practice.begin()
    practice.paths['local'] = practice.folder.parent / 'local.log'
    with practice.paths['local'].open('w') as log:
        subprocess.run([os.environ['BRENIK_WORKER'], *work('local', pause=PAUSE, folder=practice.folder)], stdout=log,
                       check=True, timeout=LIMIT,
                       env=dict(os.environ, BRENIK_UI='none', BRENIK_WINDIR=str(practice.folder)))
    practice.judge()


def test_killed_guest(practice):
    practice.open()
    practice.add('A', seconds=LIMIT)
    practice.add('B', seconds=3 * SECONDS)
    practice.begin()
    practice.wait_for_lines('A', 5 * LEAST_WORK)
    practice.guests['A'].kill()
    practice.edited = 'NAME', 'CITY'            # those whose keys an edit of the worker changes
    done = practice.lines('B')
    practice.judge(interrupted=True)
    assert practice.lines('B') >= done + LEAST_WORK


def test_a_long_cut(practice):
    """Meanwhile the server gives the locks to others. With a short echo interval the client notices within the cut."""
    practice.open()
    practice.add('A', seconds=100, options='echo_interval=2')
    practice.add('B', seconds=100)
    practice.begin()
    practice.wait_for_lines('A', 2 * LEAST_WORK)
    practice.wait_for_matters()
    practice.guests['A'].set_link('off')
    time.sleep(10)
    assert practice.server.kill('A')
    time.sleep(65)
    practice.guests['A'].set_link('on')
    practice.judge(interrupted=True)


def test_killed_server(practice):
    """First only the process that serves one of the guests; every other time the guest hears of it a second later, when
    the other one may have had its locks. At last all of the server."""
    practice.open()
    practice.add('A', 'B', seconds=3 * SECONDS)
    practice.begin()
    practice.wait_for_matters()
    kills = 0
    for silence in (0, 1) * 5:
        time.sleep(SECONDS / 8)
        practice.guests['A'].set_link('off' if silence else 'on')
        kills += practice.server.kill('A')
        time.sleep(silence)
        practice.guests['A'].set_link('on')
    assert kills >= 5
    practice.server.stop()
    practice.server.start()
    practice.judge(interrupted=True)


def test_refused_without_locks(practice):
    """A mount that keeps locks to itself makes sharing impossible, and that is said."""
    practice.open()
    practice.add('A', seconds=2, trace=1, options='nobrl',
                 after='brenik check /practice >/dev/ttyS0 2>&1; echo "check: $?"')
    practice.begin()
    practice.end()
    log, said = practice.logs['W1'], practice.guests['A'].console.read_text('latin-1')
    assert {tuple(words[1:3]) for words in log.refused} == {('BrenikInitialize', '14')} and not log.done, str(log)
    assert 'lock' in open(judges.find(practice.folder, 'Trace.Log'), encoding='latin-1').read().lower()
    assert re.search('check: [1-9]', said) and 'lock' in said.lower(), said
