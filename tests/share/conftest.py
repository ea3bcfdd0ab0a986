"""A server for SMB shares and guests that mount them, of their own for every test.

The server is a Samba that listens on the loopback only, on a port of its own, with all its state in the test's folder.
A guest is a small virtual machine, which sees the loopback as 10.0.2.2 and nothing else: it has no route beyond its own
network. QEMU could restrict that network further, but then the loopback is out of reach too. Server and guests end with
the test, however that ends.
"""

import os
import socket
import subprocess
import time
from pathlib import Path

import pytest

SHARE = Path(os.environ['BRENIK_SHARE'])
AS_ROOT = [] if os.geteuid() == 0 else ['sudo']
END_WITH_US = ['setpriv', '--pdeathsig', 'TERM']          # should the test be killed
START_LIMIT = 180        # seconds; a guest is up in five, unless the machine has other work to do
END_LIMIT = 300

CONFIGURATION = '''
[global]
server role = standalone server
interfaces = 127.0.0.1
bind interfaces only = yes
smb ports = {port}
disable netbios = yes
server min protocol = SMB3_11
map to guest = Bad User
guest account = root
load printers = no
disable spoolss = yes
printing = bsd
printcap name = /dev/null
log file = {state}/log
log level = 1
smbd profiling level = count
private dir = {state}
lock directory = {state}
state directory = {state}
cache directory = {state}
pid directory = {state}
ncalrpc dir = {state}/ncalrpc
{options}
'''
SERVICE = '''
[{name}]
path = {path}
guest ok = yes
read only = no
force user = root
'''


def wait_until(condition, limit=START_LIMIT):
    end = time.monotonic() + limit
    while not condition():
        assert time.monotonic() < end, 'nothing within %d seconds' % limit
        time.sleep(0.05)


class Server:
    """Shares the folder "practice" under the name of each guest, so that it is seen which process serves whom."""

    def __init__(self, folder, options):
        self.folder, self.practice, self.control = folder, folder / 'practice', folder / 'control'
        state = folder / 'server'
        (state / 'ncalrpc').mkdir(parents=True)
        self.control.mkdir()
        with socket.socket() as free:
            free.bind(('127.0.0.1', 0))
            self.port = free.getsockname()[1]
        self.file = folder / 'smb.conf'
        self.file.write_text(CONFIGURATION.format(port=self.port, state=state, options='\n'.join(options)) +
                             SERVICE.format(name='control', path=self.control) +
                             ''.join(SERVICE.format(name=name, path=self.practice) for name in 'AB'))
        self.start()

    def start(self):
        self.process = subprocess.Popen([*AS_ROOT, *END_WITH_US, 'smbd', '--foreground', '--configfile=%s' % self.file],
                                        stdin=subprocess.DEVNULL)
        wait_until(self._answers)

    def _answers(self):
        assert self.process.poll() is None, 'the server has ended'
        with socket.socket() as call:
            return call.connect_ex(('127.0.0.1', self.port)) == 0

    def stop(self):
        subprocess.run([*AS_ROOT, 'kill', str(self.process.pid)])
        self.process.wait(END_LIMIT)

    def status(self, *options):
        return subprocess.run([*AS_ROOT, 'smbstatus', '--configfile=%s' % self.file, *options], check=True, text=True,
                              capture_output=True).stdout

    def kill(self, guest):
        """Kills the process that serves this guest's mount, if there is one; whether there was."""
        lines = [line.split() for line in self.status('--shares').splitlines()]
        found = [words[1] for words in lines if words and words[0] == guest]
        return bool(found) and subprocess.run([*AS_ROOT, 'kill', '-KILL', *found]).returncode == 0

    def locks(self):
        """How many lock requests have reached the server."""
        words = self.status('--profile').split()
        return int(words[words.index('smb2_lock_count:') + 1])


class Guest:
    def __init__(self, server, name, options, job):
        self.server, self.name = server, name
        self.ready, self.said = server.control / (name + '.ready'), server.folder / (name + '.console')
        self.log = server.folder / (name + '.log')
        self.monitor = server.folder / (name + '.monitor')
        (server.control / (name + '.sh')).write_text(job)
        self.process = subprocess.Popen(
            [*END_WITH_US, 'qemu-system-x86_64', '-accel', 'tcg', '-cpu', 'max', '-m', '256', '-display', 'none',
             '-nodefaults', '-no-reboot', '-kernel', SHARE / 'vmlinuz', '-initrd', SHARE / 'initramfs',
             '-append', 'console=ttyS0 quiet panic=-1 mitigations=off guest=%s share_port=%d share_options=%s'
             % (name, server.port, options or 'rw'),
             '-netdev', 'user,id=net,ipv6=off', '-device', 'virtio-net-pci,netdev=net,romfile=',
             '-serial', 'file:%s' % self.said, '-serial', 'file:%s' % self.log,
             '-monitor', 'unix:%s,server=on,wait=off' % self.monitor], stdin=subprocess.DEVNULL)

    def set_link(self, up):
        with socket.socket(socket.AF_UNIX) as monitor:
            monitor.connect(str(self.monitor))
            monitor.sendall(b'set_link net %s\n' % (b'on' if up else b'off'))
            answer = b''
            while answer.count(b'(qemu)') < 2:
                answer += monitor.recv(4096)

    def kill(self):
        self.process.kill()
        self.process.wait()

    def console(self):
        return self.said.read_text('latin-1')


class Office:
    """A practice on a share, and the guests that work on it."""

    def __init__(self, folder):
        self.folder, self.guests, self.server = folder, {}, None

    def open(self, *options):
        self.server = Server(self.folder, options)

    def add_guest(self, name, job, options=''):
        self.guests[name] = Guest(self.server, name, options, job)

    def begin(self):
        """Lets all guests begin their jobs at once."""
        for guest in self.guests.values():
            wait_until(lambda: guest.ready.exists() or guest.process.poll() is not None)
            assert guest.process.poll() is None, guest.console()
        (self.server.control / 'go').touch()

    def end(self):
        for guest in self.guests.values():
            guest.process.wait(END_LIMIT)

    def close(self):
        for guest in self.guests.values():
            guest.kill()
        if self.server:
            self.server.stop()


@pytest.fixture
def office(tmp_path):
    office = Office(tmp_path)
    yield office
    office.close()
