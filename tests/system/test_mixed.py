"""Windows hosts and hosts of this system at work on one practice, without a server between them."""

import itertools
import os
import shlex
import subprocess
import time

import pytest
from conftest import CALL_LIMIT, NATIVE, OURS, windows_form
from test_shared import work_together

SECONDS = float(os.environ.get('BRENIK_MIXED_SECONDS', '20'))
HOLDERS = {OURS: shlex.split(os.environ['BRENIK_HOLDER']), NATIVE: shlex.split(os.environ['BRENIK_NATIVE_HOLDER'])}
BOTH_WAYS = pytest.mark.parametrize('first, second', [(OURS, NATIVE), (NATIVE, OURS)], ids=['Windows', 'native'])


def test_mixed_workstations(new_host, practice):
    stop = time.monotonic() + SECONDS
    work_together(practice, [new_host(workstation=system) for system in (OURS, NATIVE, OURS, NATIVE)],
                  lambda: itertools.takewhile(lambda turn: turn < 20 or time.monotonic() < stop, itertools.count()))


class Holder:
    """A program of either system that has opened a table, or locked a byte of it, as the library does."""

    def __init__(self, workstation, path, *arguments):
        path = windows_form(path) if workstation is OURS else path
        self.child = subprocess.Popen([*HOLDERS[workstation], path, *map(str, arguments)], text=True,
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def __enter__(self):
        return self.child.stdout.readline().strip()

    def __exit__(self, *_):
        self.child.communicate(timeout=CALL_LIMIT)


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
    assert host.init(practice) == 0
    host.begin(1, 2, {'LAST': 'Held'})
    with Holder(first, view.path, 'shared', view.lock_position(2)) as held:
        assert held == 'held' and host.edit_end(1) == 12
    assert host.edit_end(1) == 0 and host.shutdown() == 0
    with Holder(first, practice.find('LAW3.dbf'), 'exclusive') as held:
        assert held == 'held' and host.init(practice) == 4
    assert host.init(practice) == 0
