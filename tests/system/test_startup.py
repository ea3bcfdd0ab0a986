"""Start-up and shut-down: what they look at, in which order, and what they answer."""

import os

import pytest
from conftest import OURS, fault_lines, faults_of, path_form


def test_sessions_come_and_go(host, practice):
    """Without one, calls are answered as with no table open; a second start opens the tables again."""
    def no_table_open():
        assert [host.add_start(1), host.edit_start(1, 'X'), host.edit_begin(1, 1), host.added(1, 1),
                host.deleted(1, 1), host.get_uid(1, 'X')[0]] == [5] * 6
        assert {host.set_field(1, 'LAST', 'X'), host.edit_end(1), host.add_end(20)[0]} <= {6, 13, 14, 17}
        host.firm(10)
    no_table_open()
    assert (host.shutdown(), host.shutdown()) == (0, 15)
    assert (host.init(practice, 0, 12345), host.shutdown(), host.shutdown()) == (0, 0, 15)
    no_table_open()
    assert (host.init(practice), host.init(practice)) == (0, 0)
    assert host.add(1, {'LAST': 'Twice'})[0] == 0


def test_forms_of_the_path(new_host, practice):
    host = new_host(cwd=practice.folder)
    for form in '{}/', '  {}  ', '{}\\.', '', '   ':      # the current folder is the default
        assert host.init(form.format(practice), 1) == 0, form
        assert practice.trace()[0][1][1][-1] in '\\/' and host.add(1, {'LAST': 'Here'})[0] == 0
    assert len(practice.table('LAW1').where(LAST='Here')) == 5


@pytest.mark.parametrize('missing, rc, message', [
    ('LAWSYS.dbf', 1, 'Data files are missing.'), ('LAW1.dbf', 1, 'Data files are missing.'),
    ('LAW1.cdx', 2, 'Index files are missing.'), ('LAW2.cdx', 2, 'Index files are missing.')])
def test_missing_files(host, practice, windows_folder, missing, rc, message):
    os.remove(practice.find(missing))
    practice.write('Trace.Log', 'from an earlier session')
    assert host.init(practice, 1) == rc
    assert [arguments[1:] for _, arguments in practice.trace()][1:] == [[message]]
    (call, reason), = fault_lines(windows_folder)
    assert call == 'StartUp' and reason.lower().endswith('%s: no such file' % missing.lower())
    assert host.shutdown() == 0


@pytest.mark.parametrize('trace, setting, on', [
    (0, None, False), (-7, None, True), (1, '0', False), (0, '1', True), (1, 'yes', True), (0, 'yes', False)])
def test_tracing_switch(host, practice, windows_folder, trace, setting, on):
    practice.write('Trace.Log', 'from an earlier session')
    if setting is not None:
        (windows_folder / 'LawWin.INI').write_text('; 1\n[x]\nAPITracing=1\n[main]\napitracing=%s\n' % setting)
    assert host.init(practice, trace) == 0 and host.add(1, {'LAST': 'Traced'})[0] == 0 and host.shutdown() == 0
    assert [caller for caller, _ in practice.trace()[:2]] == (['STARTUP', 'ADDSTART'] if on else [])
    assert not faults_of(windows_folder).exists()


def test_notes_variant(host, new_practice):
    """A logical field V14 chooses LAW1Note, whatever it holds."""
    for notes, *options in ['LAWNOTES'], ['LAW1NOTE', '--v14']:
        practice = new_practice(notes, *options)
        if options:
            practice.patch('LAWSYS', 1, 'V14', b'F')
        assert host.init(practice) == 0
        rc, uid = host.add(4, {})
        assert rc == 0 and practice.table(notes).rows[-1]['U_ID'] == uid and host.shutdown() == 0


def test_settings_that_change_nothing(host, practice):
    """A server that is not there, and a settings file that cannot be read."""
    practice.write('LAWSYS.INI', '[Main]\nnServerType=2\n')
    assert host.init(practice) == 0 and host.add(1, {'LAST': 'Settings'})[0] == 0
    os.remove(practice.find('LAWSYS.INI'))
    (practice.folder / 'LAWSYS.INI').mkdir()
    assert host.init(practice, 1) == 0 and host.add(1, {'LAST': 'Settings'})[0] == 0
    assert 'GETSERVERTYPE' in [caller for caller, told in practice.trace() if 'LAWSYS.INI: ' in told[1]]


def test_engines(new_host, practice, windows_folder, tmp_path):
    """Without its library the client engine opens nothing, and the tables of the other engine are closed."""
    missing = tmp_path / 'no_client.library'
    host = new_host(BRENIK_ACE_LIBRARY=path_form(OURS)(missing))

    def start(engine, trace=0):
        practice.write('LAWSYS.INI', '[Main]\nEngine=%s\n' % engine)
        return host.init(practice, trace)
    assert start('ADVANTAGE', 1) == 3
    (_, (_, message)), (_, (_, reason)) = practice.trace()[1:]
    assert message == 'Cannot open lawsys.' and missing.name in reason
    assert fault_lines(windows_folder) == [('StartUp', reason)]
    assert [start('embedded'), host.add(1, {'LAST': 'Engines'})[0]] == [0, 0]
    assert [start('advantage'), host.add_start(1), host.shutdown()] == [3, 5, 0]
    assert [start('other'), host.add(1, {'LAST': 'Engines'})[0]] == [0, 0]
    assert 'Engine=other' in fault_lines(windows_folder)[-1][1]
    os.remove(practice.find('LAW1.cdx'))
    assert start('advantage') == 2


def test_what_is_no_practice(new_host, tmp_path):
    host = new_host(cwd=tmp_path)
    (tmp_path / 'file').write_text('no folder')
    (tmp_path / 'folders' / 'LAWSYS.dbf').mkdir(parents=True)
    for path in 'nowhere', 'file', 'folders', 'p' * 100000, '\xFF\x01', '..\\' * 3000, '*?|<>':
        assert host.init(path, 1) == 1 and host.add_start(1) == 5, path[:20]


def test_another_practice(host, new_practice):
    """What one session has left open is never another folder's, also where the other start fails."""
    first, second, third = [new_practice(name) for name in ('first', 'second', 'third')]
    os.remove(third.find('LAW1.dbf'))
    for practice in first, second:
        assert host.init(practice) == 0
        contact, links = practice.table('LAW1').rows[3]['U_ID'], practice.table('LAW9').table.count
        assert host.add(3, {'MATTER': 'Linked'}, contact)[0] == 0
        assert practice.table('LAW9').table.count == links + 1
    assert host.init(third) == 1
    assert [host.add_start(table) for table in (1, 3, 9, 20)] == [5] * 4


@pytest.mark.skipif(OURS.library.endswith('.dll'), reason='needs symbolic links')
def test_one_name_for_two_practices(host, new_practice, tmp_path):
    link = tmp_path / 'link'
    for practice in new_practice('first'), new_practice('second'):
        link.unlink(missing_ok=True)
        link.symlink_to(practice.folder)
        assert host.init(link) == 0 and host.add(1, {'LAST': 'Linked'})[0] == 0
        assert len(practice.table('LAW1').where(LAST='Linked')) == 1
