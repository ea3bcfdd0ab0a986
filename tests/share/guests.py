"""A server for SMB shares, and guests that mount them.

The server is a Samba that listens on the loopback only, on a port of its own, with all its state in the test's folder.
A guest is a small virtual machine, which sees the loopback as 10.0.2.2 and nothing else: it has no route beyond its own
network. QEMU could restrict that network further, but then the loopback is out of reach too. Both end with the test,
also if that is killed.
"""

import os
import socket
import subprocess
import time
from pathlib import Path

SHARE = Path(os.environ['BRENIK_SHARE'])
AS_ROOT = [] if os.geteuid() == 0 else ['sudo']
END_WITH_US = ['setpriv', '--pdeathsig', 'TERM']
LIMIT = 300              # seconds; guests are up in five and work for two minutes at most, but machines may be busy

GLOBAL = '''[global]
interfaces = 127.0.0.1
bind interfaces only = yes
smb ports = {port}
disable netbios = yes
server role = standalone server
server min protocol = SMB3_11
map to guest = Bad User
guest account = root
load printers = no
disable spoolss = yes
log file = {state}/log
private dir = {state}
lock directory = {state}
state directory = {state}
cache directory = {state}
pid directory = {state}
ncalrpc dir = {state}/ncalrpc
{options}
'''
SERVICE = '''[{name}]
path = {path}
guest ok = yes
read only = no
force user = root
'''


def wait_until(condition):
    end = time.monotonic() + LIMIT
    while not condition():
        assert time.monotonic() < end, 'nothing within %d seconds' % LIMIT
        time.sleep(0.05)


class Server:
    """Shares a practice under the name of each guest, so that it is seen which process serves whom, and a folder
    "control" for the guests' jobs."""

    def __init__(self, folder, practice, options):
        self.folder, self.control, self.file = folder, folder / 'control', folder / 'smb.conf'
        self.control.mkdir()
        (folder / 'server' / 'ncalrpc').mkdir(parents=True)
        with socket.socket() as free:
            free.bind(('127.0.0.1', 0))
            self.port = free.getsockname()[1]
        services = [('control', self.control), ('A', practice), ('B', practice)]
        self.file.write_text(GLOBAL.format(port=self.port, state=folder / 'server', options='\n'.join(options)) +
                             ''.join(SERVICE.format(name=name, path=path) for name, path in services))
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
        self.process.wait(LIMIT)

    def kill(self, guest):
        """Kills the process that serves this guest's mount, if there is one; whether there was."""
        shares = subprocess.run([*AS_ROOT, 'smbstatus', '--configfile=%s' % self.file, '--shares'], check=True,
                                text=True, capture_output=True).stdout
        found = [words[1] for words in map(str.split, shares.splitlines()) if words and words[0] == guest]
        return bool(found) and subprocess.run([*AS_ROOT, 'kill', '-KILL', *found]).returncode == 0


class Guest:
    """Mounts the practice with these options and, once the file "go" is in the control folder, runs the job."""

    def __init__(self, server, name, options, job):
        self.ready, self.log = server.control / (name + '.ready'), server.folder / (name + '.log')
        self.console, self.monitor = server.folder / (name + '.console'), server.folder / (name + '.monitor')
        (server.control / (name + '.sh')).write_text(job)
        self.process = subprocess.Popen(
            [*END_WITH_US, 'qemu-system-x86_64', '-accel', 'tcg', '-cpu', 'max', '-m', '256', '-display', 'none',
             '-nodefaults', '-no-reboot', '-kernel', SHARE / 'vmlinuz', '-initrd', SHARE / 'initramfs',
             '-append', 'console=ttyS0 quiet panic=-1 mitigations=off no_timer_check '     # a busy machine's is late
             'guest=%s share_port=%d share_options=%s' % (name, server.port, options or 'rw'),
             '-netdev', 'user,id=net,ipv6=off', '-device', 'virtio-net-pci,netdev=net,romfile=',
             '-serial', 'file:%s' % self.console, '-serial', 'file:%s' % self.log,
             '-monitor', 'unix:%s,server=on,wait=off' % self.monitor], stdin=subprocess.DEVNULL)

    def wait_until_ready(self):
        wait_until(lambda: self.ready.exists() or self.process.poll() is not None)
        assert self.process.poll() is None, self.console.read_text('latin-1')

    def set_link(self, state):
        """Plugs the network cable in ("on") or pulls it out ("off")."""
        with socket.socket(socket.AF_UNIX) as monitor:
            monitor.connect(str(self.monitor))
            monitor.sendall(b'set_link net %s\n' % state.encode())
            answer = b''
            while answer.count(b'(qemu)') < 2:
                answer += monitor.recv(4096)

    def kill(self):
        self.process.kill()
        self.process.wait()
