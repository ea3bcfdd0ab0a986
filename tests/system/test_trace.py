"""The trace log, and the file of faults beside it."""

import os
from pathlib import Path

import pytest
from conftest import OURS, at_once, fault_lines, faults_of

BLANKS = ' ' * 7


def test_conversation(host, practice):
    """The records of a few calls; the others are put together in the same way."""
    codes, count = practice.table('LAWCODES'), practice.table('LAW1').table.count
    uid, code = practice.table('LAW1').rows[1]['U_ID'], codes.rows[2]
    assert host.init(practice, 1) == 0 and [caller for caller, _ in practice.trace()] == ['STARTUP']

    def says(caller, records, call, *arguments):
        before = len(practice.trace())
        call(*arguments)
        written = practice.trace()[before:]
        assert written == [(caller, ['NIL', *texts]) for texts in records], (call.__name__, arguments)

    says('ADDSTART', [['AddStart nTable:', '0'], ['AddStart nTable is out of range.']], host.add_start, 0)
    says('EDITSTART', [['EditStart nTable, U_ID:', '1', uid], ['EditStart in alias Namesreccount: %d' % count],
                       ['EditStart record selected', uid, '2', 'Names']], host.edit_start, 1, uid)
    says('SETFIELD', [['Set Field', 'LAST', ' x\r\n\xe9 ', '1', '2', 'Names', '0', '.f.'], ['Set Field', '0']],
         host.set_field, 1, 'LAST', ' x\r\n\xe9 ')
    says('EDITEND', [['EditEnd', '0', '1', '2', '.f.', 'Names'], ['EditEnd', '0']], host.edit_end, 1)
    host.add_start(7), host.set_field(7, 'TYPE', code['TYPE']), host.set_field(7, 'CODE', code['CODE'])
    says('ADDEND', [['AddEnd', '7', '.t.', 'LAWCODES', BLANKS],
                    ['AddEnd', 'TYPECODE', code['TYPE'].ljust(10) + code['CODE'].ljust(40)],
                    ['AddEnd', '18', code['U_ID']]], host.add_end, 7)


LINKS = [] if OURS.library.endswith('.dll') else ['link to a file', 'link to nothing']


@pytest.mark.parametrize('instead', ['nothing', 'folder', *LINKS])
def test_log_that_went_away(host, practice, tmp_path, instead):
    """It is never made anew, whatever is in its place is left alone, and calls work as without a log."""
    assert host.init(practice, 1) == 0
    path = Path(practice.find('Trace.log'))
    os.remove(path)
    (tmp_path / 'link to a file').write_text('precious')
    if instead == 'folder':
        path.mkdir()
    elif instead != 'nothing':
        path.symlink_to(tmp_path / instead)
    assert host.add(1, {'LAST': 'Untraced'})[0] == 0 and host.shutdown() == 0
    if instead != 'nothing':                            # a session begins by emptying its log
        assert host.init(practice, 1) == 0 and host.add(1, {'LAST': 'Untraced'})[0] == 0
    assert practice.table('LAW1').where(LAST='Untraced')
    assert (path.read_text() if path.is_file() else None) == ('precious' if instead == 'link to a file' else None)


def test_faults_are_noted_with_tracing_off(new_host, practice, windows_folder):
    """By all sessions of a user in one file, which is begun anew when it is full; nobody depends on it."""
    hosts, file = [new_host() for _ in range(4)], faults_of(windows_folder)
    assert [host.init(practice, number // 3) for number, host in enumerate(hosts)] == [0] * 4
    practice.damage('LAW1.dbf', lambda data: data.__delitem__(slice(500, None)))
    assert hosts[3].add(1, {'LAST': 'Lost'})[0] == 14
    (call, reason), = fault_lines(windows_folder)
    assert call == 'AddEnd' and 'cut short' in reason and practice.trace()[-1] == ('ADDEND', ['NIL', reason])
    line = file.read_bytes()
    count = (1 << 18) // len(line) + 1
    file.write_bytes(line * count)
    at_once(*[lambda host=host: [host.add(1, {'LAST': 'Lost'}) for _ in range(20)] for host in hosts])
    assert 0 < len(fault_lines(windows_folder)) < 80
    file.write_bytes(file.with_name(file.name + '.old').read_bytes() + file.read_bytes())
    assert len(fault_lines(windows_folder)) == count + 80
    file.unlink(), file.mkdir()
    assert hosts[1].add(1, {'LAST': 'Lost'})[0] == 14
