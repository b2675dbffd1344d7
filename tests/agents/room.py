"""A room: a machine of its own for one mail transfer agent, made of this one.

The room sees this machine's files through an overlay in memory, and has its own network (loopback alone), processes
and name. Debian's mail transfer agents exclude each other as packages; unpacked into rooms they do not meet, use
the paths, ports and accounts that their documentation names, and leave nothing behind.

Making a room needs root and the right to make namespaces.
"""

import os
import shutil
import signal
import subprocess
import tempfile
import time
from pathlib import Path

PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"

SET_UP = r"""
set -e
work=$1 name=$2
mount -t tmpfs -o mode=755,size=700m tmpfs "$work"
mkdir "$work/upper" "$work/scratch" "$work/root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$work/upper,workdir=$work/scratch" "$work/root"
cd "$work/root"
mount -t proc proc proc
mount -t tmpfs -o mode=755 tmpfs dev
for device in null zero full random urandom tty; do
    touch dev/$device
    mount --bind /dev/$device dev/$device
done
ln -s /proc/self/fd dev/fd
mkdir dev/shm && chmod 1777 dev/shm
mount -t tmpfs -o mode=755 tmpfs run
rm -rf etc/resolv.conf etc/hosts var/log/mail.log
echo "nameserver 127.0.0.1" >etc/resolv.conf
printf '127.0.0.1 localhost\n127.0.1.1 %s %s\n' "$name" "${name%%.*}" >etc/hosts
echo "$name" >etc/mailname
hostname "$name"
ip link set lo up
echo ready
exec chroot . sleep infinity
"""


class RoomError(Exception):
    pass


class Room:
    def __init__(self, name="mail.example.org", parent=None):
        self.work = Path(tempfile.mkdtemp(prefix="room-", dir=parent))
        self.keeper = subprocess.Popen(
            ["unshare", "--mount", "--net", "--pid", "--ipc", "--uts", "--fork", "--kill-child", "sh", "-c", SET_UP,
             "room", str(self.work), name],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        if self.keeper.stdout.readline() != b"ready\n":
            self.keeper.wait()
            raise RoomError("no room: " + self.keeper.stderr.read().decode(errors="replace"))
        self.first = self.first_process()
        self.path = Path(f"/proc/{self.first}/root")  # the room's files, seen from outside
        self.background = []

    def first_process(self):
        """The room's process 1 under its number here, once it has entered the room."""
        children = Path(f"/proc/{self.keeper.pid}/task/{self.keeper.pid}/children")
        for _ in range(1000):
            found = children.read_text().split()
            if found and Path(f"/proc/{found[0]}/comm").read_text() == "sleep\n":
                return int(found[0])
            time.sleep(0.01)
        raise RoomError("the room's first process did not start")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.kill(self.first, signal.SIGKILL)  # every process of the room dies with it
        self.keeper.wait()
        for process in self.background:
            process.wait()
        shutil.rmtree(self.work, ignore_errors=True)

    def entering(self, command, user=None):
        enter = ["nsenter", "--target", str(self.first), "--mount", "--net", "--pid", "--ipc", "--uts", "--root"]
        if user:
            enter += ["setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups"]
        return [*enter, "env", "--chdir=/", "-i", f"PATH={PATH}", "LANG=C", "TZ=UTC", "HOME=/root", *command]

    def run(self, *command, user=None, data=b"", timeout=120, check=True):
        done = subprocess.run(self.entering(command, user), input=data, capture_output=True, timeout=timeout,
                              check=False)
        if check and done.returncode != 0:
            raise RoomError(f"{' '.join(command)}: exit {done.returncode}: "
                            + (done.stdout + done.stderr).decode(errors="replace"))
        return done

    def start(self, *command):
        """A program that runs as long as the room does."""
        process = subprocess.Popen(self.entering(command), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        self.background.append(process)
        return process

    def write(self, name, text, mode=0o644):
        path = self.path / name.lstrip("/")
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(text if isinstance(text, bytes) else text.encode())
        os.chmod(path, mode)

    def append(self, name, text):
        with open(self.path / name.lstrip("/"), "ab") as file:
            file.write(text if isinstance(text, bytes) else text.encode())

    def read(self, name):
        path = self.path / name.lstrip("/")
        return path.read_text(encoding="utf-8", errors="replace") if path.exists() else ""

    def unpack(self, packages):
        """The files of Debian packages, without their maintainers' scripts."""
        for package in packages:
            files = subprocess.run(["dpkg-deb", "--fsys-tarfile", package], capture_output=True, check=True).stdout
            self.run("tar", "--extract", "--keep-directory-symlink", "--directory=/", data=files)

    def account(self, name, home="/nonexistent"):
        """A user with a group of the same name, unless the machine has it already."""
        if self.run("getent", "passwd", name, check=False).returncode != 0:
            self.run("useradd", "--system", "--user-group", "--home-dir", home, "--no-create-home", "--shell",
                     "/usr/sbin/nologin", name)

    def group(self, name):
        if self.run("getent", "group", name, check=False).returncode != 0:
            self.run("groupadd", "--system", name)

    def keep_log(self, name="/var/log/mail.log"):
        """What the room's programs tell syslog goes into this file."""
        self.start("socat", "-u", "UNIX-RECV:/dev/log,mode=666", f"OPEN:{name},creat,append")
        self.wait_for(lambda: (self.path / "dev/log").exists(), "the log's socket")

    def wait_for(self, condition, what, timeout=30):
        end = time.monotonic() + timeout
        while not condition():
            if time.monotonic() > end:
                raise RoomError(f"{what}: not within {timeout} seconds")
            time.sleep(0.05)

    def listens(self, port):
        """Whether something listens on 127.0.0.1:port in the room."""
        table = self.run("cat", "/proc/net/tcp").stdout.decode()
        rows = [line.split() for line in table.splitlines()[1:]]
        return any(row[3] == "0A" and row[1] in (f"0100007F:{port:04X}", f"00000000:{port:04X}") for row in rows)
