"""The trace log, record for record."""

import os
import re
from pathlib import Path

import pytest
from conftest import at_once, fault_lines, faults_of

BLANKS = ' ' * 7


def test_whole_conversation(host, practice):
    """Each call with the records that it writes."""
    contacts, codes = practice.table('LAW1'), practice.table('LAWCODES')
    n = contacts.table.count
    uid, last = contacts.rows[1]['U_ID'], str(n)
    active = str(contacts.names.index('ACTIVE') + 1)
    position = str(contacts.names.index('LAST') + 1)
    code = codes.rows[2]
    key = code['TYPE'].ljust(10) + code['CODE'].ljust(40)
    assert position != '0' and host.init(practice, 1) == 0

    def says(caller, records, call, *arguments):
        before = len(practice.trace())
        call(*arguments)
        written = practice.trace()[before:]
        assert written == [(caller, ['NIL', *texts]) for texts in records], (call.__name__, arguments)

    begun = 'EditBegin in alias Namesreccount: %d' % n
    assert practice.trace()[0][0] == 'STARTUP' and len(practice.trace()) == 1
    says('ADDSTART', [['AddStart nTable:', '0'], ['AddStart nTable is out of range.']], host.add_start, 0)
    says('ADDSTART', [['AddStart nTable:', '255'], ['AddStart in alias reccount: 0'],
                      ['AddStart nTable is not used.']], host.add_start, 255)
    says('EDITSTART', [['EditStart nTable, U_ID:', '256', 'a '], ['EditStart nTable is out of range.']],
         host.edit_start, 256, 'a ')
    says('EDITBEGIN', [['EditBegin nTable, nRec:', '-1', '-5'], ['EditBegin nTable is out of range.']],
         host.edit_begin, -1, -5)
    says('EDITSTART', [['EditStart nTable, U_ID:', '1', 'ZZZZZZZ'], ['EditStart in alias Namesreccount: %d' % n]],
         host.edit_start, 1, 'ZZZZZZZ')
    says('EDITSTART', [['EditStart nTable, U_ID:', '1', uid], ['EditStart in alias Namesreccount: %d' % n],
                       ['EditStart record selected', uid, '2', 'Names']], host.edit_start, 1, uid)
    says('SETFIELD', [['Set Field', 'LAST', ' x\r\n\xe9 ', '1', '2', 'Names', '0', '.f.'], ['Set Field', '0']],
         host.set_field, 1, 'LAST', ' x\r\n\xe9 ')
    says('SETFIELD', [['Set Field', 'LASTS', '', '1', '2', 'Names', '2', '.f.'],
                      ['Set Field BRERR_FIELD', '.f.', '0', '2', 'Names', '2']], host.set_field, 1, 'LASTS', '', 2)
    says('SETFIELD', [['Set Field', 'LAST', '', '3', '2', 'Names', '0', '.f.']], host.set_field, 3, 'LAST', '')
    says('EDITEND', [['EditEnd', '0', '1', '2', '.f.', 'Names'], ['EditEnd', '0']], host.edit_end, 1)
    says('EDITEND', [['EditEnd', '9', '1', '2', '.f.', 'Names'], ['EditEnd', '6']], host.edit_end, 1, 9)
    says('EDITEND', [['EditEnd', '9', '3', '2', '.f.', 'Names']], host.edit_end, 3, 9)
    says('EDITBEGIN', [['EditBegin nTable, nRec:', '1', last], [begun], ['EditBegin record selected', last, 'Names']],
         host.edit_begin, 1, n)
    says('ADDEDREC', [['AddedRec: nTable, nRec:', '1', '0'], ['AddedRec return:', '6']], host.added, 1, 0)
    says('ADDEDREC', [['AddedRec: nTable, nRec:', '1', '1'], ['AddedRec return:', '0']], host.added, 1, 1)
    says('DELETEDREC', [['DeletedRec nTable, nRec:', '1', '1']], host.deleted, 1, 1)
    says('GETU_ID', [['GetU_ID End', '1', BLANKS, '19']], host.get_uid, 1, '', 'abc')
    says('GETU_ID', [['GetU_ID End', '2', 'ABCDEFG', '5']], host.get_uid, 2, '', 'ABCDEFG')
    says('GETU_ID', [['GetU_ID End', '1', uid, '0']], host.get_uid, 1, contacts.rows[1]['ID'])
    practice.write('LAWSYS.INI', '[Main]\nMyFirm=NOBODY9\n')
    says('GETMYFIRM', [['GetMyFirm', '12'], ['GetMyFirm Failed Seek', 'NOBODY9']], host.firm, 12)
    says('ADDSTART', [['AddStart nTable:', '1'], ['AddStart in alias Namesreccount: %d' % n],
                      ['AddStart record initialized', '.t.', 'Names', active]], host.add_start, 1)
    says('SETFIELD', [['Set Field', 'LAST', 'New', '1', str(n + 1), 'Names', '0', '.f.'], ['Set Field', '0']],
         host.set_field, 1, 'LAST', 'New')
    says('ADDEND', [['AddEnd', '3', '.t.', 'Names', BLANKS]], host.add_end, 3)
    new = host.add_end(1)[1]
    assert practice.trace()[-2:] == [('ADDEND', ['NIL', 'AddEnd', '1', '.t.', 'Names', BLANKS]),
                                     ('ADDEND', ['NIL', 'AddEnd', '0', new])]
    host.add_start(7), host.set_field(7, 'TYPE', code['TYPE']), host.set_field(7, 'CODE', code['CODE'])
    tag = min(codes.tags.values(), key=lambda tag: tag.at).name
    says('ADDEND', [['AddEnd', '7', '.t.', 'LAWCODES', BLANKS], ['AddEnd', tag, key],
                    ['AddEnd', '18', code['U_ID']]], host.add_end, 7)
    says('SHUTDOWN', [['Databases were closed.']], host.shutdown)


def test_firm_and_bad_record_numbers(host, practice):
    practice.write('LAWSYS.INI', '[Main]\nMyFirm=%s\nFirmName=Traced\n' % practice.table('LAW1').rows[0]['ID'])
    assert host.init(practice, 1) == 0
    text = host.firm(2000)
    caller, arguments = practice.trace()[-1]
    assert caller == 'GETMYFIRM' and arguments[:2] == ['NIL', 'GetMyFirm End'] and arguments[3] == '0'
    assert arguments[2].startswith('Traced|') and text.startswith(arguments[2].encode('latin-1'))
    assert host.edit_begin(1, 0) == 6
    caller, arguments = practice.trace()[-1]
    assert (caller, arguments[2]) == ('EDITBEGIN', '0')
    assert re.fullmatch(r'EditBegin Error in nRec\. Count = *%d' % practice.table('LAW1').table.count, arguments[1])


@pytest.mark.parametrize('away', [True, False])
def test_log_is_never_made_anew(host, practice, away):
    """A log that went away stays away; one that cannot be opened disturbs nobody."""
    assert host.init(practice, 1) == 0
    path = Path(practice.find('Trace.log'))
    os.remove(path)
    if not away:
        path.mkdir()
    assert host.add(1, {'LAST': 'Untraced'})[0] == 0 and host.edit(1, 1, {'FIRST': 'Untraced'}) == 0
    assert not path.is_file() and practice.table('LAW1').where(LAST='Untraced')


def test_nothing_is_written_with_tracing_off(host, practice, windows_folder):
    assert host.init(practice) == 0 and host.add(1, {'LAST': 'Quiet'})[0] == 0
    host.firm(5), host.get_uid(1, 'X'), host.added(1, 1), host.edit_end(1)
    assert Path(practice.find('Trace.log')).read_bytes() == b'' and not faults_of(windows_folder).exists()


def cut_short(data):
    del data[500:]


def test_faults_are_noted_with_tracing_off(new_host, practice, windows_folder):
    """By all sessions of a user in one file, which is begun anew when it is full; nobody depends on it."""
    hosts, file = [new_host() for _ in range(4)], faults_of(windows_folder)
    assert [host.init(practice, number // 3) for number, host in enumerate(hosts)] == [0] * 4
    practice.damage('LAW1.dbf', cut_short)
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
    for block in lambda: file.mkdir(), lambda: (file.rmdir(), file.parent.rmdir(), file.parent.write_text('')):
        for path in file.parent.glob('*.*'):
            path.is_file() and path.unlink()
        block()
        assert hosts[1].add(1, {'LAST': 'Lost'})[0] == 14
