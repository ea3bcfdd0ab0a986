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


@pytest.fixture
def display(tmp_path):
    """Runs the window host on a screen of its own. Wine shows windows only where its server began with a
    screen, so the server is another one too, with a registry of its own beside the same drives."""
    server = subprocess.Popen(['Xvfb', '-displayfd', '1', '-screen', '0', SCREEN + 'x24'], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True)
    screen = ':' + server.stdout.readline().strip()
    with new_wine_profile(tmp_path / 'profile', VIRTUAL_DESKTOP, DISPLAY=screen) as environment:
        environment.pop('BRENIK_UI', None)

        def run(*arguments):
            return subprocess.Popen([*WINDOW_HOST, *arguments], env=environment, text=True, stdin=subprocess.PIPE,
                                    stdout=subprocess.PIPE)
        run.environment = environment
        yield run
    server.terminate()
    server.wait()


def shows(display, finger, name):
    """The text of a box and how many of the host's windows take input meanwhile. A picture of it is kept for people to
    look at, where BRENIK_PICTURES names a folder for it."""
    told = finger.stdout.readline().strip(), int(finger.stdout.readline())
    folder = os.environ.get('BRENIK_PICTURES')
    if folder:
        subprocess.run(['import', '-window', 'root', '-colors', '64', str(Path(folder) / name)],
                       env=display.environment, check=True)
    return told


def test_notices_and_a_box(display, practice):
    """Ten notices of half a second, during which only the host's painting runs, a hundred times on an idle machine; and
    after ten more a box, which waits for the person."""
    names, links = practice.table('LAW1'), practice.table('LAW9')
    with HeldBytes(names.path, names.lock_position(2)), HeldBytes(links.path, links.lock_position(0)):
        notice, box = display('press', 'Record Locking'), display('press', 'Error Appending Record')
        host = display('work', windows_form(OURS.library), windows_form(practice), names.rows[1]['U_ID'])
        text = 'Names ( record 2) is locked by another user or program. Retrying...'
        assert shows(display, notice, 'notice.png') == (text, 2)
        edited = json.loads(host.stdout.readline())
        text = 'An error occurred while adding a record to the XREF database.'
        assert shows(display, box, 'message-box.png') == (text, 0)      # no window can call the library again
        time.sleep(1)
        assert host.poll() is None
        box.communicate('\n', timeout=CALL_LIMIT)
        added = json.loads(host.communicate(timeout=CALL_LIMIT)[0])
        notice.communicate('\n', timeout=CALL_LIMIT)
    assert edited['rc'] == 12 and edited['ms'] > 4500 and added['rc'] == 17 and added['ms'] > 5500
    assert edited['paints'] >= 5 and edited['handled'] == 0 and edited['keys afterwards'] == 1
    assert practice.table('LAW1').rows[1]['LAST'] == names.rows[1]['LAST']
