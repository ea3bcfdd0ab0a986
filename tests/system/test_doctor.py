"""The tool's doctor: two of them in one folder, and one alone."""

import json
import os

from conftest import at_once, tool


def ask(folder, *options, **environment):
    """The exit code, the whole answer, and which trials were unsound."""
    done = tool('doctor', folder, '--json', *options, env=dict(os.environ, **environment))
    answer = json.loads(done.stdout)
    return done.returncode, answer, [trial['trial'] for trial in answer['trials'] if not trial['sound']]


def test_sound(tmp_path):
    """Two that begin at once agree, past what one left that was killed; nothing is left of them."""
    left = [tmp_path / ('brenik-doctor-1-0123456789abcdef-' + what) for what in ('here', 'ffffffffffffffff-0-offer')]
    for path in left:
        path.touch()
        os.utime(path, (1, 1) if path is left[1] else None)
    for code, answer, faults in at_once(*[lambda: ask(tmp_path, '--with')] * 2):
        assert (code, answer['verdict'], faults) == (0, 'sound', [])
        assert len(answer['trials']) == 10 and answer['times']['size']['count'] == 50
    assert list(tmp_path.iterdir()) == left[:1], 'one that may still be at work keeps its files'

    code, answer, faults = ask(tmp_path)
    assert (code, answer['verdict'], len(answer['trials']), faults) == (0, 'sound', 6, [])


def test_alone(tmp_path):
    """Nobody comes; and there is no such folder."""
    code, answer, _ = ask(tmp_path, '--with', '--wait', 1)
    assert (code, answer['verdict'], answer['stopped']) == (4, 'unfinished', 'nobody came')
    assert list(tmp_path.iterdir()) == []
    assert tool('doctor', tmp_path / 'missing').returncode == 3
