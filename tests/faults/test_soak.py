"""Workstations at work on one practice while some of them are killed: nothing acknowledged is lost,
nobody meets anything torn, and nobody starves.

BRENIK_SOAK_SECONDS makes it longer than the two times twelve seconds that it takes by default.
"""

import collections
import os
import random
import re
import subprocess
import time

import judges
import pytest

SECONDS = int(os.environ.get('BRENIK_SOAK_SECONDS', '12'))
TABLES = {'1': ('LAW1', 'LAST'), '3': ('LAW3', 'MATTER'), '4': ('LAWNotes', 'TOPIC')}
LONGEST_CALL = 5.0      # seconds; a refused lock would take as long
TOOL = os.environ['BRENIK_TOOL']


class Log:
    """What one workstation has noted; a line that its end cut short does not count."""

    def __init__(self, path):
        lines = path.read_text('latin-1').split('\n')[:-1] if path.exists() else []
        self.complaints = [line for line in lines if re.match('violation|refused', line)]
        self.lines = [line.split() for line in lines if line not in self.complaints]
        self.written = [words[2:] for words in self.lines if len(words) == 5]    # table, identifier, token
        self.added = [words[2:] for words in self.lines if len(words) == 5 and words[0] in ('add', 'matter')]
        self.added += list({identifier: ['4', identifier, token] for table, identifier, token in self.written
                            if table == '4'}.values())

    def times(self):
        found = collections.defaultdict(list)
        for words in self.lines:
            found[words[0]].append(int(words[1]) / 1e6)
        return found


def start(practice, folder, seed, seconds):
    environment = dict(os.environ, BRENIK_UI='none', BRENIK_WINDIR=str(folder))
    return subprocess.Popen([os.environ['BRENIK_SOAKING'], str(practice), str(seed), str(seconds),
                             str(folder / ('%d.log' % seed))], env=environment)


def work(practice, folder, count, kills):
    """The number of kills; whoever is killed is replaced at once."""
    random_numbers, seeds, killed = random.Random(count), iter(range(1, 1000)), 0
    end = time.monotonic() + SECONDS
    workers = [start(practice, folder, next(seeds), SECONDS) for _ in range(count)]
    while kills and time.monotonic() < end - 2:
        time.sleep(random_numbers.uniform(0.2, 1.0))
        victim = random_numbers.randrange(1, count)      # the first one stays to the end
        workers[victim].kill()
        workers[victim].wait()
        killed += 1
        workers[victim] = start(practice, folder, next(seeds), max(1, int(end - time.monotonic())))
    for worker in workers:
        assert worker.wait(SECONDS + 30) in (0, 3)
    return killed


def report(logs, killed):
    """Figures for whoever looks at the test's output: progress and the longest call of each."""
    print('%d workstations, %d kills' % (len(logs), killed))
    for number, log in sorted(logs.items()):
        times = log.times()
        longest = max(((max(seconds), name) for name, seconds in times.items()), default=(0, ''))
        done = sum(map(len, times.values()))
        print('%3d: %5d done, longest %.3f s (%s)' % (number, done, *longest))


def assert_kept(practice, logs):
    """Records, identifiers, contents and journal, as they were acknowledged."""
    system, = judges.TableView(practice, 'LAWSYS').rows
    journal = judges.TableView(practice, 'LawTrans')
    noted = [(row['CDB'], row['U_ID']) for row in journal.rows if row['CCODE'] == 'A' and not row.deleted]
    assert len(set(noted)) == len(noted)
    for table, (name, field) in TABLES.items():
        view = judges.TableView(practice, name)
        rows = {row['U_ID']: row for row in view.rows if row['U_ID']}
        assert len(rows) == sum(bool(row['U_ID']) for row in view.rows), 'an identifier twice in ' + name
        assert max(rows) <= judges.identifier(system['MYUDN'], int(system['U_ID' + table]))
        for log in logs.values():
            last = {identifier: token for number, identifier, token in log.written if number == table}
            assert last.keys() <= rows.keys()
            assert {('%02d' % int(table), identifier) for identifier in last} <= set(noted)
            if table != '4':                             # notes are everybody's
                for identifier, token in last.items():
                    seed, number = rows[identifier][field].split('.')
                    assert seed == token.split('.')[0] and int(number) >= int(token.split('.')[1]), token


def assert_mended(practice, killed):
    """Every kill can leave one change half done, in at most a handful of tags."""
    names = [p.stem for p in practice.iterdir() if p.suffix.lower() == '.dbf']
    faults = [fault for name in names for fault in judges.TableView(practice, name).report.faults]
    assert len(faults) <= 12 * killed, faults[:10]
    tool = lambda command: subprocess.run([TOOL, command, str(practice)], capture_output=True, text=True)  # noqa: E731
    assert tool('check').returncode in ((0, 1) if killed else (0,))
    assert tool('repair').returncode in (0, 1)
    checked = tool('check')
    assert checked.returncode == 0, checked.stdout[:2000]
    judges.assert_sound(practice)


@pytest.mark.parametrize('count, kills', [(8, False), (6, True)])
def test_soak(tmp_path, count, kills):
    practice = tmp_path / 'practice'
    subprocess.run([TOOL, 'sample', str(practice), '--contacts', '20', '--matters', '8', '--events', '4', '--notes',
                    '6'], check=True, stdout=subprocess.DEVNULL)
    killed = work(practice, tmp_path, count, kills)
    logs = {int(path.stem): Log(path) for path in tmp_path.glob('*.log')}
    report(logs, killed)
    assert [complaint for log in logs.values() for complaint in log.complaints] == []
    assert max(max(sum(log.times().values(), [0])) for log in logs.values()) < LONGEST_CALL
    done = [len(log.lines) for log in logs.values()]
    assert kills or min(done) > max(done) / 4, done
    assert_kept(practice, logs)
    assert_mended(practice, killed)
