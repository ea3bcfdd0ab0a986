"""README.md and the documents: what they show is run, compiled or read, and every link leads somewhere.

CONTRIBUTING.md lists the kinds of blocks and what is done with each. The programs are those that "cmake --install"
leaves.
"""

import configparser
import functools
import json
import os
import re
import shlex
import shutil
import subprocess
import sys

import pytest
from conftest import CMAKE, ROOT, run
from pages import FILE_NAME, RUN, blocks_of, compare_outputs

PAGES = [ROOT / 'README.md', *sorted((ROOT / 'docs').rglob('*.md'))]
CHECKOUT_PAGE = ROOT / 'CONTRIBUTING.md'      # its indented blocks are commands for a checkout
SETTINGS = ROOT / 'packaging/settings'
STRICT_C = ['-fsyntax-only', '-Wall', '-Wextra', '-Werror', '-Wno-unused', '-x']


def as_script(blocks):
    """The blocks of a page as one shell script. The output of block N goes to the file N.told."""
    for number, block in enumerate(blocks):
        if name := FILE_NAME.match(block.text):
            yield "cat > %s <<'END OF THE BLOCK'\n%sEND OF THE BLOCK" % (name[1], block.text)
        elif status := RUN.match(block.info):
            ends = '&& exit 99 || [ $? -eq %s ]' % status[1] if status[1] else ''
            yield '{\n%s} >"$TOLD/%d" 2>&1 %s' % (block.text, number, ends)


def run_page(blocks, folder, prefix, told):
    script = 'set -e\n' + '\n'.join(as_script(blocks))
    told.mkdir()
    environment = {name: value for name, value in os.environ.items() if not name.startswith('BRENIK_')}
    environment.update(HOME=str(told), TOLD=str(told), PATH='%s:%s' % (prefix / 'bin', os.environ['PATH']))
    status = subprocess.run(['bash', '-c', script], cwd=folder, env=environment, timeout=600).returncode
    texts = {int(path.name): path.read_text() for path in told.glob('[0-9]*')}
    assert status == 0, texts[max(texts)]
    compare_outputs(blocks, texts)
    assert [text for number, (info, text) in enumerate(blocks) if info == 'output' and number - 1 not in texts] == []


@pytest.mark.parametrize('page', PAGES, ids=lambda page: str(page.relative_to(ROOT)))
def test_commands(page, prefix, tmp_path):
    blocks = list(blocks_of(page))
    folder = tmp_path / 'folder'
    folder.mkdir()
    (folder / 'brenikdb').symlink_to(prefix)
    if 'tutorial' not in page.parts:
        run(prefix / 'bin/brenik', 'sample', folder / 'practice')
    run_page(blocks, folder, prefix, tmp_path / 'told')
    files = [name[1] for block in blocks if (name := FILE_NAME.match(block.text))]
    commands = '\n'.join(block.text for block in blocks if RUN.match(block.info))
    assert [name for name in files if name not in commands] == [], 'files that no command uses'


def check_options(text, prefix):
    """Every command of the tool exists and has the options that are given to it."""
    for command, arguments in re.findall(r'\bbrenik(?:\.exe)? ([a-z]+)((?: [^|;&#\n]*)?)', text):
        known = re.findall(r'(?<!\S)-[\w-]+', run(prefix / 'bin/brenik', command, '--help').replace(',', ' '))
        assert set(re.findall(r'(?<= )--[\w-]+', arguments)) <= set(known), (command, arguments)


def check_maintainers(text, prefix):
    presets = {preset['name'] for preset in json.loads((ROOT / 'CMakePresets.json').read_text())['configurePresets']}
    for line in re.split(r'\n|&&', text):
        words = shlex.split(line, comments=True)
        assert set(re.findall(r'--preset (\w+)', line)) <= presets, line
        if words and words[0].startswith('scripts/'):
            # An option is known to the script, or to a program in the folder of the same name that it runs.
            sources = [ROOT / words[0], *(ROOT / words[0].partition('/')[2]).glob('*.[pc]*')]
            known = ''.join(source.read_text() for source in sources)
            assert [word for word in words if word.startswith('--') and word not in known] == [], line


def wrapped(text, hoisted, before, after):
    """The lines of a program inside a function, below the lines that must stand outside."""
    outside = [line for line in text.splitlines() if re.match(hoisted, line)]
    inside = [line for line in text.splitlines() if not re.match(hoisted, line)]
    return '\n'.join([*outside, before, *inside, after, ''])


def check_c(compiler, language, text, prefix):
    source = wrapped(text, ' *#', 'int fragment(void);\nint fragment(void) {', 'return 0;\n}')
    run(compiler, *STRICT_C, language, '-I', prefix / 'include', '-I', ROOT / 'bindings/cpp', '-', input=source)


def check_csharp(text, prefix):
    source = prefix.with_name('block.cs')
    source.write_text(wrapped(text, r' *using [\w.]+;', 'static class Block { static void Main() {', '} }'))
    run('mcs', '-warnaserror+', '-nowarn:0219', '-out:%s' % source.with_suffix('.exe'), source,
        ROOT / 'bindings/csharp/BrenikDB.cs')


def check_pascal(text, prefix):
    source = prefix.with_name('block.dpr')
    body = text if re.search('(?m)^begin$', text) else 'begin\n%s\nend.' % text
    source.write_text('program Block;\nuses SysUtils, BrenikDB;\n' + body)
    run('fpc', '-Mdelphi', '-Sew', '-Fu%s' % (ROOT / 'bindings/pascal'), '-FE%s' % source.parent, source)


def check_python(text, prefix):
    compile(text, 'block', 'exec')


def check_cmake(text, prefix):
    [target] = re.findall(r'target_link_libraries\((\w+)', text)
    folder = prefix.parent / 'project'
    folder.mkdir()
    (folder / 'CMakeLists.txt').write_text('cmake_minimum_required(VERSION 3.21)\nproject(host C)\n'
                                           'add_executable(%s %s)\n%s' % (target, ROOT / 'examples/host.c', text))
    run(CMAKE, '-B', folder / 'build', '-S', folder, '-DCMAKE_PREFIX_PATH=%s' % prefix)
    run(CMAKE, '--build', folder / 'build')


def check_json(text, prefix):
    try:
        json.loads(text)
    except ValueError:
        assert [json.loads(line) for line in text.splitlines()]


def keys_in(text):
    """The settings of an INI file, those behind a semicolon included."""
    settings = configparser.ConfigParser(interpolation=None, comment_prefixes='; ')
    settings.read_string(re.sub(r'(?m)^;(?=\w+=)', '', text))
    return {(section.lower(), key) for section in settings.sections() for key in settings[section]}


def check_settings(known, text, prefix):
    assert keys_in(text) <= known, text


CHECKS = {'sh other': check_options, 'sh maintainer': check_maintainers,
          'c': functools.partial(check_c, 'gcc', 'c'), 'cpp': functools.partial(check_c, 'g++', 'c++'),
          'c windows': functools.partial(check_c, 'i686-w64-mingw32-gcc', 'c'), 'csharp': check_csharp,
          'pascal': check_pascal, 'python': check_python, 'cmake': check_cmake, 'json': check_json,
          'bat': check_options, 'powershell': check_options, 'vb': check_options, 'conf': check_options}
CHECKS.update({'ini %s' % path.relative_to(SETTINGS): functools.partial(check_settings, keys_in(path.read_text()))
               for path in SETTINGS.rglob('*.INI')})
# test_commands runs commands and compares output; test_pages.py in tests/system compares the dumps.
NOT_CHECKED = re.compile(r'text$|output$|dump \S+$|' + RUN.pattern)


@pytest.mark.parametrize('page', [*PAGES, CHECKOUT_PAGE], ids=lambda page: str(page.relative_to(ROOT)))
def test_blocks(page, prefix):
    for info, text in blocks_of(page):
        if not NOT_CHECKED.match(info) and not FILE_NAME.match(text):
            kind = 'sh maintainer' if page == CHECKOUT_PAGE else info
            assert kind in CHECKS, 'no such kind of block: "%s"\n%s' % (info, text)
            CHECKS[kind](text, prefix)


def test_settings_examples_list_what_the_library_reads():
    sources = ''.join(path.read_text() for path in (ROOT / 'src').rglob('*.[ch]*'))
    read = {('main', key) for keys in (r'main_setting\(session, "\w+", "(\w+)"', r'k\w+Setting = "(\w+)"')
            for key in re.findall(keys, sources)}
    read |= set(re.findall(r'profile_setting\(session, "\w+",\s*"(\w+)",\s*"(\w+)"', sources))
    assert {(section.lower(), key.lower()) for section, key in read} == {
        setting for path in SETTINGS.rglob('*.INI') for setting in keys_in(path.read_text())}


def test_links(tmp_path):
    tree = shutil.copytree(ROOT, tmp_path / 'tree', ignore=shutil.ignore_patterns('build', '.git'))
    maker = [sys.executable, ROOT / 'packaging/make_pages.py', tree]
    run(*maker)
    (tree / 'docs/more.md').write_text('[one](README.md#missing-heading) [two](missing.md)')
    refused = subprocess.run(maker, capture_output=True, text=True)
    assert refused.returncode == 1
    assert re.findall('docs/more.md: (.*): no such', refused.stderr) == ['README.md#missing-heading', 'missing.md']
