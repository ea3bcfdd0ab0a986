"""What the person at a Windows workstation sees: a notice for each try, a box, a window that stays painted."""

import json
import os
import shlex
import subprocess
import time
from pathlib import Path

import pytest
from conftest import CALL_LIMIT, OURS, HeldBytes, new_wine_profile, windows_form

WINDOW_HOST = shlex.split(os.environ['BRENIK_WINDOW_HOST'])
SCREEN = '640x480'
VIRTUAL_DESKTOP = '''
[Software\\\\Wine\\\\Explorer]
"Desktop"="Default"

[Software\\\\Wine\\\\Explorer\\\\Desktops]
"Default"="%s"
''' % SCREEN


@pytest.fixture(scope='module')
def display(tmp_path_factory):
    """Runs the window host on a screen of its own. Wine shows windows only where its server began with a
    screen, so the server is another one too, with a registry of its own beside the same drives."""
    server = subprocess.Popen(['Xvfb', '-displayfd', '1', '-screen', '0', SCREEN + 'x24'], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True)
    screen = ':' + server.stdout.readline().strip()
    folder = tmp_path_factory.mktemp('display') / 'profile'
    with new_wine_profile(folder, VIRTUAL_DESKTOP, DISPLAY=screen) as environment:
        environment.pop('BRENIK_UI', None)

        def run(*arguments):
            return subprocess.Popen([*WINDOW_HOST, *arguments], env=environment, text=True, stdin=subprocess.PIPE,
                                    stdout=subprocess.PIPE)
        run.environment = environment
        yield run
    server.terminate()
    server.wait()


def picture(display, name):
    """Kept for people to look at, where BRENIK_PICTURES names a folder for it."""
    folder = os.environ.get('BRENIK_PICTURES')
    if folder:
        target = Path(folder) / name
        subprocess.run(['import', '-window', 'root', '-colors', '64', str(target)], env=display.environment, check=True)


def test_host_stays_painted_during_the_notices(display, practice):
    """Ten notices of half a second. Only the host's painting runs meanwhile, a hundred times on an idle machine."""
    view, contact = practice.table('LAW1'), practice.table('LAW1').rows[1]['U_ID']
    with HeldBytes(view.path, view.lock_position(2)):
        finger = display('press', 'Record Locking')       # looks for the notice from before it is shown
        host = display('edit', windows_form(OURS.library), windows_form(practice), contact)
        text, enabled = finger.stdout.readline().strip(), finger.stdout.readline().strip()
        picture(display, 'notice.png')
        result = json.loads(host.communicate(timeout=CALL_LIMIT)[0].splitlines()[-1])
        finger.communicate('\n', timeout=CALL_LIMIT)
    assert text == 'Names ( record 2) is locked by another user or program. Retrying...'
    assert enabled == '2' and result['rc'] == 12 and result['ms'] > 4500
    assert result['paints'] >= 5 and result['handled'] == 0 and result['keys afterwards'] == 1
    assert practice.table('LAW1').rows[1]['LAST'] == view.rows[1]['LAST']


def test_box_waits_for_the_person(display, practice):
    links, contact = practice.table('LAW9'), practice.table('LAW1').rows[1]['U_ID']
    with HeldBytes(links.path, links.lock_position(0)):
        host = display('link', windows_form(OURS.library), windows_form(practice), contact)
        finger = display('press', 'Error Appending Record')
        assert finger.stdout.readline() == 'An error occurred while adding a record to the XREF database.\n'
        assert finger.stdout.readline() == '0\n'          # neither of its windows can call the library again
        time.sleep(1)
        assert host.poll() is None
        picture(display, 'message-box.png')
        finger.communicate('\n', timeout=CALL_LIMIT)
        result = json.loads(host.communicate(timeout=CALL_LIMIT)[0].splitlines()[-1])
    assert result['rc'] == 17 and result['ms'] > 5500
