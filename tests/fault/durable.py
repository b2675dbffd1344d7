"""What a reply 250 promises, checked on the system calls of a session: before the entry is renamed into new/, every file of
the message and every folder that names one has been told to reach the disk; after the rename, before the reply, new/ has."""

import os
import re
import subprocess
from pathlib import Path

from full_disk import MAILS, as_root, outcome
from gateway_home import Home
from process import check_home

CALLS = "openat,write,pwrite64,writev,pwritev,fsync,fdatasync,syncfs,rename,renameat,renameat2,linkat,unlink,unlinkat"
WRITES = ("write", "pwrite64", "writev", "pwritev")


class Event:
    """One system call: its name, the paths that it is about, and whether it is the reply that accepts a mail."""

    def __init__(self, name, text):
        self.name, self.text = name, text
        self.paths = self.paths_of(name, text)
        self.failed = " = -1 " in text

    @staticmethod
    def paths_of(name, text):
        descriptors = re.findall(r"\d+<(/[^>]*)>", text)
        if name.startswith("rename") or name == "linkat":
            names = re.findall(r'(?:\d+<(/[^>]*)>|AT_FDCWD<?[^,]*), "([^"]*)"', text)
            return [Path(folder or "/") / file for folder, file in names]
        if name == "openat":
            return [Path(path) for path in re.findall(r"= \d+<(/[^>]*)>$", text)]
        return [Path(path) for path in descriptors[:1]]

    def is_reply(self, start):
        return self.name == "write" and self.text.startswith("1<") and f'"{start}' in self.text


def events_of(home, data):
    log = home.path.with_name(home.path.name + ".trace")
    done = subprocess.run(["strace", "-f", "-y", "-qq", "-s", "64", "-o", str(log), "-e", "trace=" + CALLS,
                           str(home.program)], input=data, capture_output=True, env=home.environment(), cwd="/",
                          timeout=60, check=False)
    found = [re.match(r"\d+ +(\w+)\((.*)", line) for line in log.read_text(errors="replace").splitlines()]
    log.unlink()
    return done, [Event(call[1], call[2]) for call in found if call]


def check_order(home, events):
    """For each commit (a rename into new/) of the session."""
    new = home.path / "queues/ROUTER/new"
    commits = [at for at, event in enumerate(events)
               if event.name.startswith("rename") and event.paths[-1].parent == new]
    replies = [at for at, event in enumerate(events) if event.is_reply("250 2.0.0 OK")]
    begin = 0
    for commit in commits:
        reply = next(at for at in replies if at > commit)
        yield from check_commit(home, events, begin, commit)
        if not any(syncs(event, new) for event in events[commit + 1 : reply]):
            yield "new/ is not synchronised between the rename and the reply"
        begin = reply
    if not commits:
        yield "no commit was seen"


def check_commit(home, events, begin, commit):
    entry = events[commit].paths[0]
    kept = {home.path / name for name in files_that_stay(home)} | {entry}
    for path in kept:
        written = [at for at in range(begin, commit) if path in events[at].paths and events[at].name in (*WRITES, "openat")]
        if not written:
            continue  # of another message of the session
        after = events[max(written) + 1 : commit]
        if not any(syncs(event, path) for event in after):
            yield f"{path.relative_to(home.path)} is not synchronised after its last write"
        if path != entry and not any(syncs(event, path.parent) for event in events[min(written) + 1 : commit]):
            yield f"the folder of {path.relative_to(home.path)} is not synchronised"


def files_that_stay(home):
    return [path.relative_to(home.path) for path in (home.path / "data").rglob("*") if path.is_file()]


def syncs(event, path):
    """Whether this call makes the path reach the disk: it names it, or it is the whole file system's."""
    if event.failed or not event.paths:
        return False
    if event.name in ("fsync", "fdatasync"):
        return event.paths[0] == path
    return event.name == "syncfs" and device(event.paths[0]) == device(path)


def device(path):
    while not path.exists():
        path = path.parent
    return os.stat(path).st_dev


def session():
    """A mail of each kind."""
    envelope = b"MAIL FROM:<s@example.com>\nRCPT TO:<r@example.org>\nDATA\n"
    return b"HELO a\n" + b"".join(envelope + text + b".\n" for text in MAILS.values()) + b"QUIT\n"


def check_session(home):
    home.gateway(session())  # what is made once per home is there
    done, events = events_of(home, session())
    if done.stdout.count(b"\n250 2.0.0 OK\n") == 0 or done.returncode != 0:
        yield outcome(done)
    yield from check_order(home, events)
    yield from check_home(home, 2 * len(MAILS))


def on_one_file_system():
    with Home() as home:
        yield from check_session(home)


def mounted(place):
    """The same with a part of the home on a file system of its own."""
    def test():
        with Home() as home:
            path = home.path / place
            aside = home.path / "aside"
            path.rename(aside)
            path.mkdir(mode=0o700)
            subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=700,size=64m", "tmpfs", str(path)], check=True)
            try:
                subprocess.run(["cp", "-a", f"{aside}/.", str(path)], check=True)
                yield from check_session(home)
            finally:
                subprocess.run(["umount", "--lazy", str(path)], check=True)
    return as_root(test)


def tests():
    yield "durable before the reply", on_one_file_system
    yield "durable before the reply: data on a disk of its own", mounted("data")
    yield "durable before the reply: queues on a disk of their own", mounted("queues")
