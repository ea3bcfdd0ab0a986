"""Runs a test program that cannot start the table checker, and starts it whenever the program asks.

    with_checker.py CHECKER COMMAND...

The program writes "judge: FILE OPTIONS" and reads one line, "right" or what is wrong.
"""

import os
import re
import subprocess
import sys

REQUEST = 'judge: '


def judge(checker, file, *options):
    path = re.sub('^[A-Za-z]:', '', file).replace('\\', '/')
    done = subprocess.run([sys.executable, checker, path, *options], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    return 'right' if done.returncode == 0 else repr(done.stdout.decode('latin-1'))


def main(checker, *command):
    child = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                             env=dict(os.environ, BRENIK_ASK_FOR_CHECKER='1'))
    for line in child.stdout:
        if line.startswith(REQUEST):
            print(judge(checker, *line[len(REQUEST):].split()), file=child.stdin, flush=True)
        else:
            print(line, end='', flush=True)
    return child.wait()


if __name__ == '__main__':
    sys.exit(main(*sys.argv[1:]))
