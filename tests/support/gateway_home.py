"""A home of the mail system for a test, and the programs run in it.

The build folder is $BUILD (default: build). What is read here of the format on disk (queue entries, message
files, the item store) is read from the bytes themselves, not through the programs that are under test.
"""

import os
import pwd
import shutil
import struct
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("BUILD", ROOT / "build")).resolve()
GATEWAY = BUILD / "bin" / "unix.in"
MORVANE = BUILD / "bin" / "morvane"

# A sanitizer's report must never look like one of the gateway's own exit statuses.
SANITIZERS = {
    "ASAN_OPTIONS": "exitcode=99:detect_leaks=1:abort_on_error=0",
    "UBSAN_OPTIONS": "exitcode=99:halt_on_error=1:print_stacktrace=1",
}

RECORD_MESSAGE_FILE = 91
RECORD_QUEUE_ENTRY = 92


MEMORY_FOLDER = "/dev/shm"
ENOUGH = 4 << 30


def in_memory():
    """Homes go into memory where there is enough: for tests that do not depend on the disk and make tens of thousands of
    files, which takes longer to delete on one than to test."""
    if "TMPDIR" not in os.environ and os.path.isdir(MEMORY_FOLDER):
        room = os.statvfs(MEMORY_FOLDER)
        if room.f_bavail * room.f_frsize > ENOUGH:
            os.environ["TMPDIR"] = tempfile.tempdir = MEMORY_FOLDER


def require_programs():
    missing = [str(path) for path in (GATEWAY, MORVANE) if not path.exists()]
    if missing:
        sys.exit("not built: " + ", ".join(missing))


def records(data):
    """(type, whole record) for each record of a record file."""
    at = 0
    while at < len(data):
        size, kind = struct.unpack_from(">Ii", data, at)
        if size < 16 or at + size > len(data):
            raise ValueError(f"record of {size} bytes at offset {at} of {len(data)}")
        yield kind, data[at : at + size]
        at += size


def item_path(record, at=16):
    """The path below the home that the ITEM_REF at this offset names."""
    domain, _flags, _sub_domain, number, extension = struct.unpack_from(">HHIQ4s", record, at)
    name = f"{number:016x}"
    return f"data/{domain}/{name[-2:]}/{name}.{extension.decode()}"


class Home:
    def __init__(self, parent=None):
        self.path = Path(tempfile.mkdtemp(prefix="home-", dir=parent))
        os.chmod(self.path, 0o755)
        self.user = None  # run the gateway as this account; None: as ourselves
        self.program = GATEWAY
        made = self.morvane("init", "--home", str(self.path))
        if made.returncode != 0:
            shutil.rmtree(self.path, ignore_errors=True)
            raise RuntimeError("morvane init: " + made.stderr.decode(errors="replace"))
        self.unset("INET_LOCAL_DOMAINS")  # init takes it from this host; without it the host's own name is local
        if os.getuid() != 0:  # the tests give senders of their own
            self.write("sys/unixin.trust", pwd.getpwuid(os.getuid()).pw_name + "\n")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.path, ignore_errors=True)
        if self.program != GATEWAY:
            shutil.rmtree(self.program.parent, ignore_errors=True)

    def environment(self, extra=None):
        keep = {key: os.environ[key] for key in ("PATH", "TMPDIR") if key in os.environ}
        return {**SANITIZERS, **keep, "LANG": "C", "TZ": "UTC", "MORVANE_HOME": str(self.path), **(extra or {})}

    def write(self, name, text):
        path = self.path / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(text if isinstance(text, bytes) else text.encode())

    def configure(self, line):
        """Adds a line to gateway.toml; a key that is set already is set anew."""
        self.unset(line.split("=")[0].strip())
        with open(self.path / "sys/gateway.toml", "a", encoding="utf-8") as file:
            file.write(line + "\n")

    def unset(self, key):
        path = self.path / "sys/gateway.toml"
        kept = [line for line in path.read_text(encoding="utf-8").splitlines() if line.split("=")[0].strip() != key]
        path.write_text("".join(line + "\n" for line in kept), encoding="utf-8")

    def run_as(self, user):
        """The gateway runs as `user`, who then owns the home as well. Needs root."""
        account = pwd.getpwnam(user)
        for path in [self.path, *self.path.rglob("*")]:
            os.chown(path, account.pw_uid, account.pw_gid, follow_symlinks=False)
        folder = Path(tempfile.mkdtemp(prefix="bin-", dir=self.path.parent))  # the build may lie where it cannot look
        os.chmod(folder, 0o755)
        # Copied by another process: a descriptor that is open for writing here would, for a moment, be inherited by what
        # another thread starts, and a program that is being written cannot be run.
        subprocess.run(["cp", str(GATEWAY), str(folder)], check=True)
        self.program = folder / GATEWAY.name
        self.user = account

    def gateway(self, dialogue, args=(), env=None, timeout=60):
        """Runs one session: its whole input at once, as an agent's pipe would carry it."""
        identity = {}
        if self.user:
            identity = {"user": self.user.pw_uid, "group": self.user.pw_gid, "extra_groups": []}
        return subprocess.run(
            [str(self.program), *args], input=dialogue, capture_output=True, env=self.environment(env), cwd="/",
            timeout=timeout, check=False, **identity)

    def morvane(self, *args, env=None, timeout=120):
        env = self.environment({"LANG": "C.UTF-8", **(env or {})})
        return subprocess.run([str(MORVANE), *args], input=b"", capture_output=True, env=env, cwd="/",
                              timeout=timeout, check=False)

    def entries(self):
        """Queue entries that wait, in order of service."""
        return sorted((self.path / "queues/ROUTER/new").glob("*"), key=lambda path: path.name)

    def messages(self, entry):
        """The message files that a queue entry queues."""
        return [self.path / item_path(record) for kind, record in records(entry.read_bytes())
                if kind == RECORD_QUEUE_ENTRY]

    def files_of(self, message):
        """The files of a message: the main transfer file, then the attached ones in order."""
        return [self.path / item_path(record) for kind, record in records(message.read_bytes())
                if kind == RECORD_MESSAGE_FILE]

    def queued_files(self):
        """Every file that a waiting message consists of."""
        messages = [message for entry in self.entries() for message in self.messages(entry)]
        return {file for message in messages for file in [message, *self.files_of(message)]}

    def left_behind(self):
        """Files that no waiting message needs; a session that has ended leaves none."""
        queued = self.queued_files()
        places = ("data", "tmp", "queues/ROUTER/tmp", "queues/ROUTER/cur")
        present = {path for place in places for path in (self.path / place).rglob("*") if path.is_file()}
        return sorted(str(path.relative_to(self.path)) for path in present - queued)

    def missing(self):
        """Files that a waiting message names and that are not there."""
        return sorted(str(path.relative_to(self.path)) for path in self.queued_files() if not path.is_file())

    def fsck(self):
        return self.morvane("fsck", "--home", str(self.path))


def report(name, passed, failed):
    """One line "name passed failed" for whoever adds the suites up."""
    print(f"{name}: {passed} passed, {failed} failed")
    path = os.environ.get("RESULTS_FILE")
    if path:
        Path(path).write_text(f"{os.environ.get('SUITE', name)} {passed} {failed}\n", encoding="utf-8")
