"""What the tests of the tool share: a fresh home, the tool run in it, the tool run on a terminal."""

import os
import pty
import re
import resource
import select
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import native
from gateway_home import GATEWAY, MORVANE, SANITIZERS

SANITIZED = b"__asan_init" in MORVANE.read_bytes()
MEGABYTE = 1 << 20
# In memory where that can be: waiting for a disk is no part of what is tested here.
ROOM = None if "TMPDIR" in os.environ or not os.access("/dev/shm", os.W_OK) else "/dev/shm"


def environment(**extra):
    keep = {key: os.environ[key] for key in ("PATH", "TMPDIR") if key in os.environ}
    found = {**SANITIZERS, **keep, "LC_ALL": "C.UTF-8", "TZ": "UTC", **extra}
    return {key: value for key, value in found.items() if value is not None}


def run(*args, **options):
    """Runs the tool; text in, text out."""
    env = options.pop("env", environment())
    done = subprocess.run([str(MORVANE), *map(str, args)], capture_output=True, env=env, timeout=300, check=False,
                          **options)
    done.out = done.stdout.decode("utf-8", "surrogateescape")
    done.err = done.stderr.decode("utf-8", "surrogateescape")
    return done


def run_on_terminal(args, env, streams=("stdout",)):
    """Runs the tool with some of its streams on a terminal; returns the exit status and what the terminal got."""
    ours, theirs = pty.openpty()
    others = {name: subprocess.PIPE for name in ("stdout", "stderr") if name not in streams}
    child = subprocess.Popen([str(MORVANE), *map(str, args)], stdin=subprocess.DEVNULL, env=env,
                             **{name: theirs for name in streams}, **others)
    os.close(theirs)
    seen = bytearray()
    while True:
        if not select.select([ours], [], [], 120)[0]:
            child.kill()
            raise AssertionError("nothing for two minutes")
        try:
            block = os.read(ours, 65536)
        except OSError:  # the other side has been closed
            break
        if not block:
            break
        seen += block
    os.close(ours)
    child.communicate(timeout=120)
    return child.returncode, bytes(seen)


def peak_memory(args, env):
    """The largest resident set of the tool's process, in bytes, its children left out."""
    program = ("import resource, subprocess, sys\n"
               "done = subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL)\n"
               "print(done.returncode, resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss * 1024)")
    done = subprocess.run([sys.executable, "-c", program, str(MORVANE), *map(str, args)], env=env, check=True,
                          capture_output=True, text=True, timeout=300)
    status, peak = map(int, done.stdout.split())
    return status, peak


class ToolTest(unittest.TestCase):
    """Each test has a folder of its own and, where it asks for one, a fresh home in it."""

    def setUp(self):
        self.folder = Path(tempfile.mkdtemp(prefix="tool-", dir=ROOM))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.home_path = self.folder / "home"

    def fresh_home(self):
        done = run("init", "--home", self.home_path)
        self.assertEqual((done.returncode, done.err), (0, ""))
        return native.Home(self.home_path)

    def env(self, **extra):
        return environment(**{"MORVANE_HOME": str(self.home_path), **extra})

    def tool(self, *args, **options):
        env = self.env(**options.pop("extra", {}))
        return run(*args, env=env, **options)

    def succeed(self, *args, **options):
        done = self.tool(*args, **options)
        self.assertEqual((done.returncode, done.err), (0, ""), done.out)
        return done.out

    def fail_with(self, pattern, *args, status=1, **options):
        """The command fails, says why in one line, and the line matches."""
        done = self.tool(*args, **options)
        self.assertEqual(done.returncode, status, done.out + done.err)
        lines = done.err.splitlines()
        self.assertTrue(lines and lines[-1].startswith("morvane: "), done.err)
        self.assertRegex(lines[-1], pattern)
        return done

    def write(self, name, content):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(native.to_bytes(content))
        return path

    def assert_harmless(self, data):
        """No byte that a terminal acts on, but line ends and, where colour is meant, our own colours."""
        text = re.sub(rb"\x1b\[[0-9;]*m", b"", data).replace(b"\r\n", b"\n")
        self.assertNotRegex(text, rb"[\x00-\x09\x0b-\x1f\x7f]")
        self.assertNotIn(b"\xc2\x9b", text)


JANE = "/CN=Jane Doe/DD.RFC-822=jane(a)example.org/IA=Jane Doe <jane@example.org>"


def small_message(subject="Hello", text="Hello,\nworld\n"):
    """A message as the gateway makes it of a plain mail."""
    message = native.MessageBuilder()
    message.record(native.header(flags=0x400)).record(native.creator(JANE)).record(native.subject(subject))
    message.record(native.date(1_700_000_000, 60))
    message.names([native.header(2, 1000), native.list_counts(to=1), native.list_entry(JANE)], subject)
    message.text(text, rfc2047subject=subject)
    return message.record(native.recipient(JANE))
