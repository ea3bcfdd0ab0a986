"""What only programs on Linux meet: forks, open files that are removed, and file calls that go wrong on purpose."""

import os
from pathlib import Path

import pytest
from conftest import SHARING_BYTE, HeldBytes, at_once, tool
from judges import assert_sound
from test_damage import replaced
from test_doctor import ask


def assert_refused(host):
    """Each of the twelve calls but the one that begins a session."""
    assert [host.add_start(1), host.set_field(1, 'LAST', 'X'), host.add_end(1)[0], host.edit_start(1, 'X'),
            host.edit_begin(1, 1), host.edit_end(1), host.added(1, 1), host.deleted(1, 1), host.get_uid(1, 'X')[0],
            host.call('firm', b'     \0').rc, host.shutdown()] == [14] * 11


@pytest.mark.embedded
def test_a_session_belongs_to_its_process(host, practice):
    """Children of a fork take nothing of it along, and work as any other host once they begin one."""
    with host.forked():
        assert host.add_start(1) == 5, 'forked before there was a session'
    assert host.init(practice, 1) == 0
    host.begin(1, 1, {'FIRST': 'Parent'})
    with host.forked():
        child = Path('/proc/%d/task/%d/children' % (host.child.pid, host.child.pid)).read_text().strip()
        held = [os.readlink(descriptor) for descriptor in Path('/proc', child, 'fd').iterdir()]
        assert not [path for path in held if path.startswith(os.path.realpath(practice.folder))], \
            'the locks would outlive the parent'
        assert_refused(host)
        caller, (_, reason) = practice.trace()[-1]
        assert caller == 'SHUTDOWN' and 'process' in reason
        assert host.init(practice) == 0 and host.add(1, {'LAST': 'Forked'})[0] == 0
        with host.forked():
            assert_refused(host)
    with pytest.raises(BlockingIOError):        # still the parent's share
        HeldBytes(practice.find('LAW1.dbf'), SHARING_BYTE)
    assert host.edit_end(1) == 0 and practice.table('LAW1').rows[0]['FIRST'] == 'Parent'
    assert host.add(1, {'LAST': 'Parent'})[0] == 0
    assert_sound(practice.folder)


@pytest.mark.embedded
@pytest.mark.parametrize('change', [os.remove, replaced])
def test_journal_changed_behind_us(host, practice, change):
    """What could not be journalled is not done."""
    assert host.init(practice) == 0 and host.edit(1, 2, {'FIRST': 'Noted'}) == 0
    before = [practice.table(name).rows for name in ('LAW1', 'LAWSYS')]
    change(practice.find('LAWTRANS.dbf'))
    assert [host.add(1, {'LAST': 'Lost'})[0], host.edit(1, 2, {'LAST': 'Lost'})] == [14, 14]
    assert [practice.table(name).rows for name in ('LAW1', 'LAWSYS')] == before


def test_locks_that_reach_nobody(tmp_path):
    """Where one's locks are granted and kept from the other, both doctors say so."""
    locks = ['lock', 'lock past 4 GB', 'shared lock']   # the rest takes two who are at work at the same moment
    spoilt = dict(LD_PRELOAD=os.environ['BRENIK_FAULTY_FILES'], FAULTY_FOLDER=str(tmp_path), FAULTY_KIND='granted',
                  FAULTY_CALL='1', FAULTY_ARMED='1')
    for code, answer, faults in at_once(lambda: ask(tmp_path, '--with', **spoilt), lambda: ask(tmp_path, '--with')):
        assert (code, answer['verdict'], faults[:3]) == (1, 'unsound', locks)
        assert all(trial['remedy'] for trial in answer['trials'] if not trial['sound'])
    assert ask(tmp_path, **spoilt)[::2] == (1, locks[:2])
    assert list(tmp_path.iterdir()) == []


def test_a_folder_whose_name_is_no_text(practice, tmp_path):
    """Output stays UTF-8, tells the byte, and commands no terminal."""
    folder = practice.folder.rename(Path(os.fsdecode(bytes(tmp_path) + b'/\xFF\x1B[31m')))
    for command in ['check'], ['doctor'], ['repair', '--dry-run', '--json'], ['show'], ['doctor', '--json']:
        done = tool(*command, folder, *['Names'] * (command == ['show']), encoding='utf-8')
        assert done.returncode == 0 and 'xFF' in done.stdout
        assert '\uFFFD' not in done.stdout and '\x1B' not in done.stdout
