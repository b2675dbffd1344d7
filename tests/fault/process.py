"""A gateway that a test talks to step by step, and the questions that every test asks at its end."""

import re
import subprocess
from pathlib import Path

from gateway_home import GATEWAY

MEGABYTE = 1 << 20
SANITIZED = b"__asan_init" in GATEWAY.read_bytes() if GATEWAY.exists() else False


class Gateway:
    """Writes commands, reads the reply to each."""

    def __init__(self, home, command=None, **options):
        identity = {}
        if home.user:
            identity = {"user": home.user.pw_uid, "group": home.user.pw_gid, "extra_groups": []}
        pipes = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
        self.process = subprocess.Popen(command or [str(home.program)], env=home.environment(), cwd="/", **identity,
                                        **{**pipes, **options})

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for stream in (self.process.stdin, self.process.stdout, self.process.stderr):
            if stream and not stream.closed:
                try:
                    stream.close()
                except BrokenPipeError:
                    pass
        self.process.kill()
        self.process.wait()

    def reply(self):
        return self.process.stdout.readline().decode(errors="backslashreplace").rstrip("\n")

    def write(self, data):
        self.process.stdin.write(data)
        self.process.stdin.flush()

    def ask(self, line):
        self.write(line.encode() + b"\n")
        return self.reply()

    def begin(self, recipients=("reader@example.org",)):
        """From the greeting to the reply to DATA."""
        replies = [self.reply(), self.ask("HELO test.example.com"), self.ask("MAIL FROM:<sender@example.com>")]
        for recipient in recipients:
            replies.append(self.ask(f"RCPT TO:<{recipient}>"))
        return [*replies, self.ask("DATA")]

    def peak_memory(self):
        """Largest resident set so far, in bytes, of this program alone (what ran in the process before it, which the
        number that wait4 gives includes, does not count)."""
        status = Path(f"/proc/{self.process.pid}/status").read_text(encoding="ascii")
        return int(re.search(r"VmHWM:\s*(\d+) kB", status)[1]) * 1024

    def quit(self):
        """The closing reply and the exit status."""
        closing = self.ask("QUIT")
        return closing, self.process.wait(timeout=60)


def check_home(home, accepted=None):
    """Faults: everything that waits is whole, nothing else is left, and as much waits as was accepted."""
    faults = [f"missing: {name}" for name in home.missing()]
    faults += [f"left behind: {name}" for name in home.left_behind()]
    queued = sum(len(home.messages(entry)) for entry in home.entries())
    if accepted is not None and queued != accepted:
        faults.append(f"{queued} messages wait, {accepted} were accepted")
    return faults + check_fsck(home)


def check_fsck(home):
    checked = home.fsck()
    if checked.returncode == 0:
        return []
    return ["fsck: " + (checked.stdout + checked.stderr).decode(errors="replace")[:2000]]


def codes(replies):
    return [reply[:3] for reply in replies]
