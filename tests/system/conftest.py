"""A practice and a host for every test.

Practices come from the companion tool and are thrown away; hosts are child processes that know the
library only by its path. A Host answers every call within a time limit or is killed, checks the
guard bytes of every buffer, and must leave without a word from a sanitizer.

With BRENIK_TEST_ENGINE=client every practice asks for the client engine, which finds the stand-in of tests/client, and
every host must have kept the rules of that library.

Host and tool are command lines. A library for Windows runs in a Windows host, which is given the
paths of the tests on drive Z; tests that want a host of either system ask for NATIVE.
"""

import concurrent.futures
import contextlib
import fcntl
import json
import os
import re
import select
import shlex
import shutil
import signal
import struct
import subprocess
import threading
import time
from collections import namedtuple
from pathlib import Path

import judges
import pytest

CALL_LIMIT = 120         # seconds; no call takes more than ten, but the machine may have other work to do
OFD_SETLK = 37           # a lock that belongs to the open file, as the library's own locks do
SHARING_BYTE = 0x7FFFFFFF
UNTOUCHED = b'\xEE' * 8

Reply = namedtuple('Reply', 'rc buffer p')
Workstation = namedtuple('Workstation', 'host library')            # a command line and a path
OURS = Workstation(os.environ['BRENIK_HOST'], os.environ['BRENIK_LIBRARY'])
NATIVE = Workstation(os.environ.get('BRENIK_NATIVE_HOST'), os.environ.get('BRENIK_NATIVE_LIBRARY'))
TOOL = os.environ['BRENIK_TOOL']
CLIENT = os.environ.get('BRENIK_TEST_ENGINE') == 'client'
SIZES = '--contacts 40 --matters 20 --events 30 --notes 15'.split()


def windows_form(path):
    """A path from the root as Windows programs take it; whatever surrounds it stays."""
    return re.sub(r'^( *)(/(?!/)[^\\]*[^\\/])', lambda match: match[1] + 'Z:' + match[2].replace('/', '\\'), str(path))


def path_form(workstation):
    return windows_form if workstation.library.endswith('.dll') else str


@contextlib.contextmanager
def new_wine_profile(folder, registry='', **environment):
    """An environment in which programs have a Wine server of their own, with its own registry beside the same
    drives."""
    profile = Path(os.environ['BRENIK_WINE_PROFILE'])
    folder.mkdir()
    for name in '.update-timestamp', 'system.reg', 'userdef.reg', 'user.reg':
        shutil.copy(profile / name, folder)
    for name in 'dosdevices', 'drive_c':
        (folder / name).symlink_to(profile / name)
    with (folder / 'user.reg').open('a') as file:
        file.write(registry)
    environment = dict(os.environ, **environment, BRENIK_WINE_PROFILE=str(folder))
    yield environment
    subprocess.run([shlex.split(TOOL)[0], '--stop'], env=environment)


def tool(*arguments, **options):
    """Runs the companion tool, which is of the same system as our hosts."""
    command = [*shlex.split(TOOL), *map(path_form(OURS), arguments)]
    return subprocess.run(command, capture_output=True, timeout=CALL_LIMIT, text=True, **options)


class Host:
    """One host process; its methods are the library's calls."""

    def __init__(self, windows_folder, cwd=None, workstation=OURS, **environment):
        self.path = path_form(workstation)
        self.keeps_rules = CLIENT and 'BRENIK_ACE_LIBRARY' not in environment
        environment = dict(os.environ, BRENIK_UI='stderr', BRENIK_WINDIR=self.path(windows_folder),
                           BRENIK_FAULTS=self.path(faults_of(windows_folder)), **environment)
        self.child = subprocess.Popen([*shlex.split(workstation.host), self.path(workstation.library)], cwd=cwd,
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                      bufsize=0, env=environment)
        self.answers = b''
        self.complaints = []
        self.listener = threading.Thread(target=lambda: self.complaints.extend(self.child.stderr), daemon=True)
        self.listener.start()

    def call(self, command, *arguments):
        words = [str(a) if isinstance(a, int) else 'x' + as_bytes(a).hex() for a in arguments]
        line = memoryview(' '.join([command, *words, 'p4660']).encode() + b'\n')
        try:
            while line:
                line = line[self.child.stdin.write(line):]
        except BrokenPipeError:
            raise HostGone(command) from None
        return self._reply(command)

    @contextlib.contextmanager
    def forked(self):
        """Meanwhile all calls are those of a child of the host's process."""
        assert self.call('fork').rc == 0
        yield
        assert self.call('end').rc == 0, 'how the child ended'

    def _reply(self, command):
        answer = json.loads(self._answer(command))
        assert answer['guards'], '%s wrote outside its buffer' % command
        return Reply(answer['rc'], bytes.fromhex(answer['buffer']), answer['p'])

    def _answer(self, command):
        deadline = time.monotonic() + CALL_LIMIT
        while b'\n' not in self.answers:
            ready, _, _ = select.select([self.child.stdout], [], [], max(0, deadline - time.monotonic()))
            if not ready:
                self.child.kill()
                pytest.fail('%s took more than %d seconds' % (command, CALL_LIMIT))
            piece = os.read(self.child.stdout.fileno(), 1 << 16)
            if not piece:
                raise HostGone('%s: host ended, %s' % (command, self.finish()))
            self.answers += piece
        answer, _, self.answers = self.answers.partition(b'\n')
        return answer

    def init(self, practice, trace=0, unused=0):
        return self.call('init', as_bytes(self.path(practice)) + b'\0', trace, unused).rc

    def shutdown(self):
        return self.call('shutdown').rc

    def _start(self, command, table, *arguments):
        reply = self.call(command, table, *arguments)
        assert reply.p == table              # whatever the outcome
        return reply.rc

    def add_start(self, table):
        return self._start('addstart', table)

    def edit_start(self, table, uid):
        return self._start('editstart', table, as_bytes(uid) + b'\0')

    def edit_begin(self, table, record):
        return self._start('editbegin', table, record)

    def set_field(self, table, name, value, record=0):
        return self.call('setfield', table, record, as_bytes(name) + b'\0', as_bytes(value) + b'\0').rc

    def add_end(self, table, uid=''):
        """The result and the seven characters handed back."""
        given = (as_bytes(uid) + b'\0').ljust(8, b'\xEE') + UNTOUCHED
        rc, buffer, _ = self.call('addend', table, given)
        wanted = given if rc == 14 else buffer[:7] + b'\0' + given[8:]     # a fault copies nothing back
        assert buffer == wanted
        return rc, buffer[:7].decode('latin-1')

    def edit_end(self, table, record=0):
        return self.call('editend', table, record).rc

    def added(self, table, record):
        return self.call('added', table, record).rc

    def deleted(self, table, record):
        return self.call('deleted', table, record).rc

    def get_uid(self, table, key, text='.......'):
        """The result and the whole buffer, which began with `text`, a NUL and untouched bytes."""
        return self.call('getuid', table, as_bytes(key) + b'\0', as_bytes(text) + b'\0' + UNTOUCHED)[:2]

    def firm(self, length):
        """The buffer, primed with blanks; its rule is that of get_uid."""
        rc, buffer, _ = self.call('firm', b' ' * length + b'\0' + UNTOUCHED)
        assert rc == 0
        return buffer

    # -- whole transactions, up to the first call that is refused; a record is told by its number or its identifier
    def set_fields(self, table, values):
        return next((rc for name, value in values.items() if (rc := self.set_field(table, name, value))), 0)

    def begin(self, table, record, values):
        start = self.edit_begin if isinstance(record, int) else self.edit_start
        return start(table, record) or self.set_fields(table, values)

    def edit(self, table, record, values):
        return self.begin(table, record, values) or self.edit_end(table)

    def add(self, table, values, uid=''):
        rc = self.add_start(table) or self.set_fields(table, values)
        return (rc, '') if rc else self.add_end(table, uid)

    # -- the stand-in for the client library, within the host's process
    def control(self, text):
        assert self.call('control', as_bytes(text) + b'\0').rc == 0, text

    def count(self, what):
        return self.call('count', as_bytes(what) + b'\0').rc

    def violations(self):
        """The rules of the client library that the process has broken; nothing if none."""
        return self.call('violations', b' ' * 4000 + b'\0').buffer.split(b'\0')[0].decode('latin-1')

    def notices(self, at_least=0):
        """How many notices between two tries for a lock have been shown; waits until there are so many."""
        end = time.monotonic() + CALL_LIMIT
        while True:
            shown = sum(b'Retrying...' in line for line in self.complaints)
            if shown >= at_least or time.monotonic() > end:
                return shown
            time.sleep(0.01)

    def finish(self):
        with contextlib.suppress(BrokenPipeError):
            self.child.stdin.close()
        rc = self.child.wait(CALL_LIMIT)
        self.listener.join(CALL_LIMIT)
        return 'exit code %d\n%s' % (rc, b''.join(self.complaints).decode('latin-1'))

    def close(self):
        violations = ''
        if self.keeps_rules and self.child.poll() is None:
            with contextlib.suppress(HostGone):
                violations = self.violations()
        report = self.finish()
        assert not violations, violations
        if self.child.returncode != -signal.SIGKILL:     # those the test itself has killed
            assert self.child.returncode == 0 and 'Sanitizer' not in report, report


class HostGone(Exception):
    """The host ended in the middle of a call."""


class Practice:
    """A folder of tables that a test may do anything to."""

    def __init__(self, folder):
        self.folder = folder

    def __str__(self):
        return str(self.folder)

    def table(self, name):
        return judges.TableView(self.folder, name)

    def find(self, name):
        return judges.find(self.folder, name)

    def write(self, name, text):
        """Makes or replaces a file, found in whatever case it has; INI texts are given as sections."""
        path = self.folder / name
        path.parent.mkdir(exist_ok=True)
        if CLIENT and name == 'LAWSYS.INI' and 'Engine' not in text:
            text = text.replace('[Main]', '[Main]\nEngine=advantage')
        old = [p for p in path.parent.iterdir() if p.name.lower() == path.name.lower()]
        (old[0] if old else path).write_bytes(as_bytes(text))

    def choose_engine(self):
        """Of the tests' practices, in the settings as they are."""
        self.write('LAWSYS.INI', Path(self.find('LAWSYS.INI')).read_text('latin-1'))

    def set_locking_mode(self, proprietary):
        self.write('LAWSYS.INI', '[Main]\r\nnServerType=0\r\nLockType=%d\r\n' % proprietary)

    def counter(self, field):
        return self.table('LAWSYS').rows[0][field]

    def damage(self, name, change):
        """Applies a function to the bytes of a file; what they are now."""
        path = Path(self.find(name))
        data = bytearray(path.read_bytes())
        change(data)
        path.write_bytes(data)
        return bytes(data)

    def patch(self, name, record, field=None, value=b'*'):
        """Overwrites a field in place, or, without a field, the deletion mark."""
        table = self.table(name).table
        offset, width = (table.by_name[field].offset, table.by_name[field].width) if field else (0, 1)
        with open(self.find(name + '.dbf'), 'r+b') as file:
            file.seek(table.header_size + (record - 1) * table.record_size + offset)
            file.write(value.ljust(width)[:width])

    def journal(self, code, kind, uid):
        return self.table('LAWTRANS').where(CDB=code, CCODE=kind, U_ID=uid)

    def trace(self):
        """The trace log as (caller, arguments) pairs; every byte of it must fit the format."""
        text = Path(self.find('Trace.log')).read_bytes().decode('latin-1')
        record = r'\[([A-Z_]+)\] \([ \d]{5}\) Called from: \r\n((?:>>>.*?<<<\r\n)+)\r\n'
        assert re.sub(record, '', text, flags=re.S) == ''
        return [(caller, re.findall(r'>>>(.*?)<<<\r\n', arguments, re.S))
                for caller, arguments in re.findall(record, text, re.S)]


class HeldBytes:
    """A byte range of a file, locked as another workstation would lock it."""

    def __init__(self, path, offset, length=1):
        self.file = open(path, 'r+b')
        fcntl.fcntl(self.file, OFD_SETLK, struct.pack('hhqqi4x', fcntl.F_WRLCK, os.SEEK_SET, offset, length, 0))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.file.close()


def faults_of(windows_folder):
    """The fault file of the hosts; its folder is made with the first line."""
    return Path(windows_folder) / 'faults' / 'Faults.log'


def fault_lines(windows_folder):
    """(call, reason) of each line; every byte of the file must fit the format."""
    text = faults_of(windows_folder).read_bytes().decode('latin-1')
    record = r'\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\t([A-Za-z_]+)\t([^\t\r\n]+)\r\n'
    assert re.sub(record, '', text) == ''
    return re.findall(record, text)


def as_bytes(text):
    return text if isinstance(text, bytes) else text.encode('latin-1')


def at_once(*tasks):
    """Runs the tasks in threads of their own; their results, in order."""
    with concurrent.futures.ThreadPoolExecutor(len(tasks)) as pool:
        return [future.result() for future in [pool.submit(task) for task in tasks]]


def timed(call, *arguments):
    begin = time.monotonic()
    return call(*arguments), time.monotonic() - begin


def pytest_configure(config):
    config.addinivalue_line('markers', 'waits: takes five seconds and more, most of them waiting')
    config.addinivalue_line('markers', 'embedded: what a library between us and the files cannot do or tell')


@pytest.fixture(scope='session')
def samples(tmp_path_factory):
    """Sample practices by the options that they were made with, each made once."""
    made = {}

    def sample(*options):
        if options not in made:
            made[options] = tmp_path_factory.mktemp('sample') / 'practice'
            tool('sample', made[options], *SIZES, *options).check_returncode()
            Practice(made[options]).choose_engine()
        return made[options]
    return sample


@pytest.fixture
def new_practice(samples, tmp_path):
    def make(name='practice', *options, into=tmp_path):
        return Practice(shutil.copytree(samples(*options), into / name))
    return make


@pytest.fixture
def practice(new_practice):
    return new_practice()


@pytest.fixture
def windows_folder(tmp_path):
    folder = tmp_path / 'windows'
    folder.mkdir()
    return folder


@pytest.fixture
def new_host(windows_folder):
    with contextlib.ExitStack() as hosts:
        def make(kind=Host, **options):
            host = kind(windows_folder, **options)
            hosts.callback(host.close)
            return host
        yield make


@pytest.fixture
def host(new_host):
    return new_host()


@pytest.fixture
def session(host, practice):
    """A host that has started on the practice."""
    assert host.init(practice) == 0
    return host
