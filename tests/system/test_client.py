"""The client engine under everything that its library may do: each reading of what the vendor's documentation leaves
open, functions and whole libraries that are missing, a server that is lost, and workstations beside it.

The stand-in for the library names its readings itself. BRENIK_EVERY_FAULT=1 runs the engine's whole suite with each of
them, and with each pair of those that decide who holds a lock and what a record holds under it.
"""

import ctypes
import itertools
import json
import os
import re
import subprocess
from pathlib import Path

import pytest
from conftest import OURS, Host, at_once, fault_lines, path_form, tool
from judges import TableView, assert_sound
from test_shared import work, work_together

LIBRARY = Path(os.environ['BRENIK_ACE_LIBRARY'])
NATIVE = not OURS.library.endswith('.dll')
ANY_TEXT = bytes(range(1, 256))
PLAIN = NATIVE and os.environ['BRENIK_SANITIZED'] == '0'       # a library that Python can load and a test can change
EVERYTHING = os.environ.get('BRENIK_EVERY_FAULT') == '1'
FUNCTIONS = Path(__file__).parents[2] / 'src' / 'engine' / 'advantage' / 'client_functions.h'


def readings():
    """NAME=VALUE for each value but the default."""
    if not PLAIN:
        return []
    told = ctypes.CDLL(str(LIBRARY)).StandInReadings
    told.restype = ctypes.c_char_p
    return ['%s=%s' % (name, value) for name, _, *others in map(str.split, told().decode().splitlines())
            for value in others if name != 'fail_after']


def functions():
    """(name, required) of what the engine calls."""
    required, optional = FUNCTIONS.read_text().split('#define BRENIK_CLIENT_OPTIONAL')
    return [(name.encode(), text is required) for text in (required, optional)
            for name in re.findall(r'FUNCTION\((Ads\w+)', text)]


def full_session(host, practice):
    """Every operation of a host; what it leaves behind is what it was told to."""
    assert host.init(practice) == 0
    values = {'LAST': 'Zoë', 'ID': 'ZOE', 'OPEN': '20240229', 'BALANCE': '12.50', 'ACTIVE': 'N', 'NOTES': ANY_TEXT}
    rc, contact = host.add(1, values)
    assert rc == 0 and host.add(2, {'RNO': '7', 'DATE': '20240229', 'MINUTES': '-5', 'NOTES': 'Call'})[0] == 0
    rc, matter = host.add(3, {'MATTER': 'Zoë', 'RATE': '12.5', 'BUDGET': '0.125', 'PRIORITY': '3'}, contact)
    assert rc == 0 and host.add(4, {'NOTE': ANY_TEXT[::-1], 'TOPIC': 'Ñ'})[0] == 0
    assert host.edit(1, contact, {'FIRST': 'Åse', 'BALANCE': '0', 'CLOSED': ''}) == 7, 'no field CLOSED'
    assert host.edit_end(1) == 0 and host.edit(1, 1, {'NOTES': '', 'OPEN': ''}) == 0
    assert host.get_uid(1, 'ZOE')[1][:7].decode() == contact and len(host.firm(900).split(b'|')) == 24
    count = practice.table('LAW1').table.count
    assert [host.added(1, count), host.deleted(1, count), host.shutdown()] == [0, 6, 0]
    row, emptied = practice.table('LAW1').one(U_ID=contact), practice.table('LAW1').rows[0]
    assert {name: row[name] for name in values} == dict(values, BALANCE=0, ACTIVE=False) and row['FIRST'] == 'Åse'
    assert (emptied['NOTES'], emptied['OPEN']) == (b'', '') and practice.table('LAWNotes').rows[-1]['NOTE'] == \
        ANY_TEXT[::-1]
    linked = practice.table('LAW3').one(U_ID=matter)
    assert [linked[name] for name in ('RATE', 'BUDGET', 'PRIORITY')] == [12.5, 0.125, 3]
    assert [link['U_ID1'] for link in practice.table('LAW9').where(U_ID3=matter)] == [contact]
    assert [host.count(what) for what in ('handles', 'locks')] == [0, 0] and not host.violations()
    assert_sound(practice.folder, 'LAW1', 'LAW3', 'LAWTRANS')


@pytest.mark.parametrize('reading', readings())
def test_readings(new_host, practice, reading):
    full_session(new_host(STAND_IN_READINGS=reading), practice)
    run_engine_suite(reading)


def run_engine_suite(reading):
    cases = '*Client-' + '*RandomMoves*' * (not EVERYTHING)
    if 'set_record=refused' in reading:
        cases += ':*EveryFieldType*'                    # dates with times and NULL marks can be stored in no other way
    environment = dict(os.environ, STAND_IN_SERVERS='both', STAND_IN_READINGS=reading)
    done = subprocess.run([os.environ['BRENIK_ENGINE_TEST'], '--gtest_brief=1', '--gtest_filter=' + cases],
                          env=environment, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout[-3000:]


@pytest.mark.skipif(not EVERYTHING, reason='takes minutes')
@pytest.mark.parametrize('pair', [pair for pair in itertools.combinations(readings(), 2)
                                  if all(re.search('lock|goto|append|refresh', reading) for reading in pair)])
def test_pairs_of_readings(pair):
    run_engine_suite(','.join(pair))


@pytest.mark.parametrize('reading', ['', 'memo_zero=cut', 'oem_fields=raw'])
@pytest.mark.parametrize('mark', [0x01, 0x03])
def test_every_byte(practice, mark, reading):
    """Text and memos keep each byte in tables of DOS and of Windows, also letters that Windows lacks."""
    practice.damage('LAW1.dbf', lambda data: data.__setitem__(29, mark))
    every, names = bytes(range(256)), practice.table('LAW1').names
    texts = [every, b'\xe9', b'\0', *[every[begin:begin + 30] for begin in range(0, 256, 30)]]
    lines = [['select area', 1], ['open table', False, None, path_form(OURS)(practice.find('LAW1.dbf')), None, True]]
    for number, text in enumerate(texts, 1):
        puts = [['field put', names.index(field) + 1, {'hex': text.hex()}] for field in ('LAST', 'NOTES')]
        lines += [['go to', number], ['lock record', number], *puts, ['unlock'], ['field get', puts[1][1]]]
    done = tool('call', '--engine', 'advantage', input='\n'.join(map(json.dumps, lines)),
                env=dict(os.environ, STAND_IN_READINGS=reading))
    assert 'error' not in done.stdout, done.stdout
    read = [json.loads(line)['result'] for line in done.stdout.splitlines()[7::6]]
    assert [bytes.fromhex(text['hex']) if isinstance(text, dict) else text.encode() for text in read] == texts
    for row, text in zip(practice.table('LAW1').rows, texts):
        assert (row.raw['LAST'], row['NOTES']) == (text.ljust(30)[:30], text)


# ----------------------------------------------------------------------- libraries that cannot be used

def changed_library(tmp_path, change):
    """A copy of the stand-in with other bytes."""
    path = tmp_path / ('changed' + LIBRARY.suffix)
    path.write_bytes(change(LIBRARY.read_bytes()))
    return path


@pytest.mark.skipif(not PLAIN, reason='the name of an export is changed in an ELF file')
@pytest.mark.parametrize('name, required', functions())
def test_missing_functions(new_host, practice, windows_folder, tmp_path, name, required):
    """One that is required is named, and the opens fail; without any other, everything works."""
    path = changed_library(tmp_path, lambda data: data.replace(b'\0%s\0' % name, b'\0%s!\0' % name[:-1]))
    host = new_host(BRENIK_ACE_LIBRARY=str(path))
    if not required:
        return full_session(host, practice)
    assert (host.init(practice), host.shutdown()) == (3, 0)
    assert name.decode() in fault_lines(windows_folder)[0][1]
    told = tool('engine', practice, env=dict(os.environ, BRENIK_ACE_LIBRARY=str(path)))
    assert name.decode() in told.stdout, told.stdout


def make_none(path):
    pass


def install_there(folder):
    (folder / 'libace.so').write_bytes(LIBRARY.read_bytes())


def write_text(path):
    path.write_text('no library')


def turn_class(path):
    """Says that it is of the other width."""
    data = bytearray(LIBRARY.read_bytes())
    data[4] ^= 3
    path.write_bytes(data)


@pytest.mark.skipif(not NATIVE, reason='the paths are of this system')
@pytest.mark.parametrize('name, make, reason', [
    ('{}/none.so', make_none, 'no such file'), ('{}/text.so', write_text, 'not a'),
    ('{}/other.so', turn_class, '32 bits'), ('other.so', turn_class, 'full path|absolute'),
    ('{}', make_none, 'plain file'), ('', install_there, 'current folder')])
def test_libraries_that_cannot_be_used(new_host, practice, windows_folder, tmp_path, name, make, reason):
    """Asked for, they end the start-up with their reason; by itself the embedded engine goes on."""
    path = name.format(tmp_path)
    make(tmp_path / Path(path).name)
    variables = {'BRENIK_ACE_LIBRARY': path, 'LD_LIBRARY_PATH': ':'}        # an empty part is the current folder
    host = new_host(**variables, cwd=tmp_path)
    assert host.init(practice, 1) == 3 and host.init(practice, 1) == 3
    told = [arguments[1:] for _, arguments in practice.trace()]
    assert ['Cannot open lawsys.'] in told and re.search(reason, str(told[-1]), re.I)
    assert re.search(reason, fault_lines(windows_folder)[0][1], re.I)
    shown = tool('engine', practice, env=os.environ | variables, cwd=tmp_path).stdout
    assert re.search(reason, shown, re.I), shown
    practice.write('LAWSYS.INI', '[Main]\r\nEngine=auto\r\nnServerType=2\r\n')
    assert host.init(practice) == 0 and host.add(1, {'LAST': 'Embedded'})[0] == 0


# ------------------------------------------------------------------------------------- the server

def test_lost_server(new_host, practice):
    """Every call is answered, the session ends, and the next one works when the server is back."""
    host = new_host(STAND_IN_SERVERS='both')
    settings = Path(practice.find('LAWSYS.INI'))
    settings.write_text(settings.read_text().replace('nServerType=0', 'nServerType=2'))
    uid = practice.table('LAW1').rows[1]['U_ID']
    for turn in range(2):
        assert host.init(practice) == 0 and host.begin(1, 2, {'FIRST': 'Lost%d' % turn}) == 0
        host.control('server=lost')
        assert [host.edit_end(1), host.edit_start(1, uid), host.add(1, {})[0], host.get_uid(1, 'X')[0]] == [14] * 4
        assert [host.shutdown(), host.count('locks')] == [0, 0]
        assert host.init(practice) == 3
        host.control('server=back')
    full_session(host, practice)
    assert not practice.table('LAW1').where(FIRST='Lost0')


@pytest.mark.parametrize('call, allowed', [('addstart', {0, 14}), ('setfield', {0, 14}), ('shutdown', {0})])
def test_each_call_on_the_library_fails(new_host, practice, tmp_path, call, allowed):
    """The calls of a host that change no table, with each of their calls on the library failing before its work and
    after it; the next session works. A table that was closed all the same is asked once more: not tried here."""
    log = Calls(tmp_path / 'calls')
    host = new_host(STAND_IN_LOG=path_form(OURS)(log.path))
    calls = {'addstart': lambda: host.add_start(1), 'setfield': lambda: host.set_field(1, 'LAST', 'Set'),
             'shutdown': host.shutdown}
    for after in [0] if call == 'shutdown' else [0, 1]:
        number, made = 0, 1
        while made > number:
            number += 1
            assert host.init(practice) == 0 and host.begin(1, 2, {'FIRST': 'Begun'}) == 0
            log.next()
            host.control('fail_after=%d' % after)
            host.control('fail=any:%d' % number)
            code = calls[call]()
            made = len(log.next())
            host.control('fail=')
            assert code in allowed and host.shutdown() in (0, 15) and host.count('locks') == 0, (number, made)
    full_session(new_host(), practice)


# --------------------------------------------------------------------------- workstations beside it

@pytest.mark.parametrize('others', [
    '', 'goto_same=fetched', 'lock_refresh=fetches', 'goto_same=fetched,lock_refresh=fetches'])
def test_eight_processes(new_host, practice, others):
    """No identifier is issued twice, and nothing is lost."""
    hosts = [new_host(STAND_IN_READINGS=others) for _ in range(8)]
    counts = {name: practice.table(name).table.count for name in ('LAW1', 'LAW3')}
    contact = practice.table('LAW1').rows[4]['U_ID']
    assert {host.init(practice) for host in hosts} == {0}

    def add(host):
        return [(table, host.add(table, {}, contact if table == 3 else '')) for _ in range(10) for table in (1, 3)]
    answers = [answer for answers in at_once(*[lambda host=host: add(host) for host in hosts]) for answer in answers]
    assert {rc for _, (rc, _) in answers} == {0} and len(set(answers)) == len(answers)
    for table, (name, count) in zip((1, 3), counts.items()):
        added = [(table, (0, row['U_ID'])) for row in TableView(practice.folder, name).rows[count:]]
        assert sorted(added) == sorted(answer for answer in answers if answer[0] == table)
    assert_sound(practice.folder, 'LAW1', 'LAW3', 'LAW9', 'LAWSYS', 'LAWTRANS')


class HostOn(Host):
    """A host whose start-up finds these settings."""

    settings = ''

    def init(self, practice, *arguments):
        practice.write('LAWSYS.INI', '[Main]\r\n' + self.settings)
        return super().init(practice, *arguments)


@pytest.mark.parametrize('embedded, client', [(0, 0), (1, 0), (0, 1), (1, 1)])
def test_an_engine_each(new_host, practice, embedded, client):
    """With different ways of locking the second is refused; the local server always locks as all other programs do."""
    hosts = [new_host(kind=HostOn) for _ in range(4)]
    for number, host in enumerate(hosts):
        host.settings = 'Engine=%s\r\nLockType=%d\r\n' % (('embedded', embedded), ('advantage', client))[number % 2]
    if not embedded:
        return work_together(practice, hosts, lambda: range(40))
    for first, second in (0, 1), (1, 0):
        assert hosts[first].init(practice) == 0 and hosts[second].init(practice) == 3
        work(hosts[first], 0, practice.table('LAW1').rows[4]['U_ID'], range(3))
        assert hosts[first].shutdown() == 0
    assert_sound(practice.folder)


# ------------------------------------------------------------------------------------ the log of calls

# What the host has set for its process, as it uses the library itself.
SETTINGS = {'AdsShowDeleted': 0, 'AdsSetExact': 1, 'AdsSetDateFormat': 'YYYY.MM.DD', 'AdsSetServerType': 6}


class Calls:
    """The log of the stand-in's calls, read on from where it was read before."""

    def __init__(self, path):
        self.path, self.read, self.settings = path, 0, {}

    def next(self):
        """(function, arguments) of each call; those that set something for the process are remembered."""
        lines = self.path.read_text('latin-1').splitlines()[self.read:]
        self.read += len(lines)
        calls = [tuple(line.split('\t')[1:3]) for line in lines]
        self.settings.update((name, value) for name, value in calls if name in SETTINGS)
        return calls


def test_process_settings_and_handles(new_host, practice, tmp_path):
    """The host's settings are those of its process again after each call, even if a call that reads or sets them says
    that it failed, the server type is set before the first open, nothing is read ahead, and every handle is closed."""
    log = Calls(tmp_path / 'calls')
    host = new_host(STAND_IN_LOG=path_form(OURS)(log.path))
    for name, value in SETTINGS.items():
        command, value = ('setnumber', value) if isinstance(value, int) else ('settext', value + '\0')
        assert host.call(command, name + '\0', value).rc == 0
    log.next()
    settings, calls = dict(log.settings), []

    def after(call):
        def answer(*arguments):
            reply = call(*arguments)
            calls.extend(log.next())
            assert {name: log.settings[name] for name in settings} == settings, arguments
            return reply
        return answer
    host.call = after(host.call)
    full_session(host, practice)
    functions = [function for function, _ in calls]
    assert functions.index('AdsSetServerType') < functions.index('AdsOpenTable')
    opened = [re.search(r'\[(h\d+)]', arguments)[1] for function, arguments in calls if function == 'AdsOpenTable']
    after_open = [calls[number + 1] for number, function in enumerate(functions) if function == 'AdsOpenTable']
    assert len(opened) > 5 and after_open == [('AdsCacheRecords', handle + ', 1') for handle in opened]
    closed = [arguments for function, arguments in calls if function == 'AdsCloseTable']
    assert sorted(closed) == sorted(opened) and functions.count('AdsDisconnect') == functions.count('AdsConnect60')
    host.control('fail_after=1')
    for name in 'Deleted', 'Exact', 'DateFormat':
        for function in 'AdsGet' + name, 'AdsShowDeleted' if name == 'Deleted' else 'AdsSet' + name:
            for turn in 1, 2:               # the second one of a call may be that which puts back
                host.control('fail=%s:%d' % (function, turn))
                host.init(practice)
                host.shutdown()
