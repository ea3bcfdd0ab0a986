"""What "cmake --install" leaves works wherever it is moved: by find_package and by pkg-config."""

import json
import os
import shlex
import subprocess
from pathlib import Path

import pytest
from conftest import BUILD, CMAKE, ROOT, run

CONSUMER = Path(__file__).parent / 'consumer'
DATA_FILES_MISSING = 1


@pytest.fixture
def practice(prefix, tmp_path):
    run(prefix / 'bin/brenik', 'sample', tmp_path / 'practice', '--contacts', 10, '--matters', 5)
    return tmp_path / 'practice'


def works(program, prefix, practice, name, **environment):
    """The program adds a contact, which the installed tool then finds, and reports a wrong folder."""
    environment = dict(os.environ, BRENIK_UI='none', BRENIK_WINDIR=str(practice), **environment)
    uid = run(program, practice, name, env=environment).strip()
    shown = run(prefix / 'bin/brenik', 'show', practice, 'LAW1', '--order', 'U_ID', '--seek', uid, '--json')
    assert json.loads(shown)['fields']['LAST'] == name
    nowhere = subprocess.run([str(program), str(practice / 'nowhere'), name], env=environment)
    assert nowhere.returncode == DATA_FILES_MISSING


def configure(prefix, build, version):
    return [CMAKE, '-G', 'Ninja', '-S', CONSUMER, '-B', build, '-DCMAKE_PREFIX_PATH=%s' % prefix,
            '-DWANTED_VERSION=%s' % version]


def test_find_package(prefix, practice, tmp_path):
    run(*configure(prefix, tmp_path, os.environ['BRENIK_VERSION']))
    run(CMAKE, '--build', tmp_path)
    works(tmp_path / 'consumer_c', prefix, practice, 'Thackeray')
    works(tmp_path / 'consumer_cxx', prefix, practice, 'Umstead')

    refused = subprocess.run([str(word) for word in configure(prefix, tmp_path / 'other', '99.0')],
                             capture_output=True, text=True)
    assert refused.returncode != 0 and 'version: %s' % os.environ['BRENIK_VERSION'] in refused.stderr


def test_pkg_config(prefix, practice, tmp_path):
    [description] = prefix.rglob('brenikdb.pc')
    environment = dict(os.environ, PKG_CONFIG_PATH=str(description.parent))
    assert run('pkg-config', '--modversion', 'brenikdb', env=environment).strip() == os.environ['BRENIK_VERSION']
    flags = shlex.split(run('pkg-config', '--cflags', '--libs', 'brenikdb', env=environment))
    [library] = prefix.rglob('libBrenikDB.so')
    run('cc', CONSUMER / 'consumer.c', '-o', tmp_path / 'consumer', *flags)
    works(tmp_path / 'consumer', prefix, practice, 'Villanueva', LD_LIBRARY_PATH=str(library.parent))


def test_nothing_installed_names_a_place(prefix):
    texts = [path for path in prefix.rglob('*') if path.suffix in ('.cmake', '.pc', '.h')]
    assert len(texts) >= 4
    places = [str(prefix.with_name('first')), str(BUILD), str(ROOT)]
    assert [(path.name, place) for path in texts for place in places if place in path.read_text()] == []
