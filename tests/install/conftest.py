"""What "cmake --install" leaves, for the tests that use it."""

import os
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
CMAKE = os.environ['BRENIK_CMAKE']
BUILD = Path(os.environ['BRENIK_BUILD'])


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, timeout=900, **options)
    assert done.returncode == 0, '%s\n%s' % (command, done.stdout[-3000:])
    return done.stdout


@pytest.fixture(scope='module')
def prefix(tmp_path_factory):
    """Installed in one place and moved to another."""
    places = tmp_path_factory.mktemp('places')
    run(CMAKE, '--install', BUILD, '--prefix', places / 'first')
    return (places / 'first').rename(places / 'second place')
