"""Windows hosts and hosts of this system at work on one practice, without a server between them."""

import itertools
import json
import os
import shlex
import subprocess
import time

import pytest
from conftest import CALL_LIMIT, NATIVE, OURS, TOOL, path_form
from test_shared import work_together

SECONDS = float(os.environ.get('BRENIK_MIXED_SECONDS', '20'))
TOOLS = {OURS: shlex.split(TOOL), NATIVE: shlex.split(os.environ['BRENIK_NATIVE_TOOL'])}
BOTH_WAYS = pytest.mark.parametrize('first, second', [(OURS, NATIVE), (NATIVE, OURS)], ids=['Windows', 'native'])


def test_mixed_workstations(new_host, practice):
    stop = time.monotonic() + SECONDS
    work_together(practice, [new_host(workstation=system) for system in (OURS, NATIVE, OURS, NATIVE)],
                  lambda: itertools.takewhile(lambda turn: turn < 20 or time.monotonic() < stop, itertools.count()))


class Holder:
    """The tool of either system, which has a table open, shared or not, or a record of it locked."""

    def __init__(self, workstation, path, shared, record=None):
        self.child = subprocess.Popen([*TOOLS[workstation], 'call'], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.lines = [['select area', 1], ['open table', False, None, path_form(workstation)(path), None, shared],
                      ['lock record', record] if record else ['used']]

    def __enter__(self):
        """Whether it has what it asked for."""
        for line in self.lines:
            self.child.stdin.write(json.dumps(line).encode() + b'\n')
            self.child.stdin.flush()
            answer = self.child.stdout.readline()
        return json.loads(answer)['result']

    def __exit__(self, *_):
        self.child.communicate(timeout=CALL_LIMIT)


@BOTH_WAYS
def test_opens_respect_each_other(practice, first, second):
    path = practice.find('LAW1.dbf')
    for mine, yours in itertools.product([True, False], repeat=2):
        with Holder(first, path, mine) as held, Holder(second, path, yours) as got:
            assert (held, got) == (True, mine and yours), (mine, yours)


@BOTH_WAYS
def test_locks_respect_each_other(new_host, practice, first, second):
    """What one system's program holds is refused to the other's host: records, and tables at the start."""
    view, host = practice.table('LAW1'), new_host(workstation=second)
    assert host.init(practice) == 0
    host.begin(1, 2, {'LAST': 'Held'})
    with Holder(first, view.path, True, 2) as held:
        assert held and host.edit_end(1) == 12
    assert host.edit_end(1) == 0 and host.shutdown() == 0
    with Holder(first, practice.find('LAW3.dbf'), False) as held:
        assert held and host.init(practice) == 4
    assert host.init(practice) == 0
