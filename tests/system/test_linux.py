"""What only programs on Linux meet: forks, links in the place of logs, and file calls that go wrong on purpose."""

import contextlib
import os
from pathlib import Path

import pytest
from conftest import SHARING_BYTE, Fork, HeldBytes, at_once
from judges import assert_sound
from test_doctor import ask

ADDITIONS = 30


@pytest.fixture
def new_fork(tmp_path):
    with contextlib.ExitStack() as forks:
        def make(parent):
            make.count += 1
            fork = Fork(parent, tmp_path / ('fork%d' % make.count))
            forks.callback(fork.close)
            return fork
        make.count = 0
        yield make


def assert_refused(host):
    """Each of the twelve calls but the one that begins a session."""
    assert [host.add_start(1), host.set_field(1, 'LAST', 'X'), host.add_end(1)[0], host.edit_start(1, 'X'),
            host.edit_begin(1, 1), host.edit_end(1), host.added(1, 1), host.deleted(1, 1), host.get_uid(1, 'X')[0],
            host.call('firm', b'     \0').rc, host.shutdown()] == [14] * 11


def test_a_session_belongs_to_its_process(host, new_fork, practice):
    """Children of a fork take nothing of it along, and work as any other host once they begin one."""
    early = new_fork(host)
    assert host.init(practice, 1) == 0
    host.begin(1, 1, {'FIRST': 'Parent'})
    idle, *workers = [new_fork(host) for _ in range(3)]
    for child in idle, *workers:
        assert_refused(child)
    caller, (_, reason) = practice.trace()[-1]
    assert caller == 'SHUTDOWN' and 'process' in reason
    assert early.add_start(1) == 5, 'forked before there was a session'
    assert host.edit_end(1) == 0 and practice.table('LAW1').rows[0]['FIRST'] == 'Parent'

    at_work = [host, early, *workers]
    assert [child.init(practice) for child in at_work[1:]] == [0, 0, 0]
    assert_refused(new_fork(workers[0]))
    added = sum(at_once(*[lambda host=host: [host.add(1, {'LAST': 'Forked'}) for _ in range(ADDITIONS)]
                          for host in at_work]), [])
    assert {rc for rc, _ in added} == {0} and len({uid for _, uid in added}) == len(at_work) * ADDITIONS
    assert_sound(practice.folder)

    for child in at_work[1:]:
        child.close()
    with pytest.raises(BlockingIOError):        # still the parent's share
        HeldBytes(practice.find('LAW1.dbf'), SHARING_BYTE)
    host.child.kill()
    host.child.wait()
    HeldBytes(practice.find('LAW1.dbf'), SHARING_BYTE).file.close()
    assert_refused(idle)


def test_log_that_is_a_link_is_left_alone(host, practice, tmp_path):
    """Neither emptied, written to nor made; the calls work as without a log."""
    victim, nobody = tmp_path / 'victim', tmp_path / 'nobody'
    victim.write_text('precious')
    practice.write('Trace.Log', '')
    log = Path(practice.find('Trace.Log'))
    for target in victim, nobody:
        log.unlink()
        log.symlink_to(target)
        assert host.init(practice, 1) == 0 and host.add(1, {'LAST': 'Untraced'})[0] == 0 and host.shutdown() == 0
    assert victim.read_text() == 'precious' and not nobody.exists()


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
