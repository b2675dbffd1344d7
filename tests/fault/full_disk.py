"""No room, at every write: on a full file system, without inodes, at a limit on file size, and with any single system
call that touches the disk failing. A reply 250 means that the message waits whole; a refusal, that nothing waits."""

import os
import re
import shutil
import subprocess
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from gateway_home import Home
from process import SANITIZED, check_fsck, check_home
from queued_mail import queued_mails

# Small and large, text and decoded items, with and without a body: everything that is written for a mail.
ITEM = b"begin 644 a.bin\n" + (b"M" + b"5" * 60 + b"\n") * 400 + b"`\nend\n"
# A report about a stranger's message, whose copy is too large to stay in memory and is read again.
REPORT = (b"Subject: report\nContent-Type: multipart/report; report-type=delivery-status; boundary=b\n\n"
          b"--b\n\nSorry.\n--b\nContent-Type: message/delivery-status\n\nOriginal-Envelope-Id: foreign\n\n"
          b"--b\n\n" + b"0123456789abcde\n" * 20000 + b"--b--\n")
PART = b"--b\nContent-Type: application/octet-stream\nContent-Transfer-Encoding: base64\n\n" + b"QUJD" * 19 + b"\n"
MAILS = {
    "small": b"Subject: small\n\nbody\n",
    "large": b"Subject: large\n" + b"X-Filler: 0123456789\n" * 300 + b"\n" + b"0123456789abcde\n" * 5000,
    "items": b"Subject: items\n\nbefore\n" + ITEM + b"between\n" + ITEM + b"after\n",
    "report": REPORT,
    "forwarded": b"Content-Type: multipart/digest; boundary=b\n\n--b\n\n"
                 b"Subject: one\nContent-Type: message/rfc822\n\nTo: a@example.org\n\n" + b"0123456789abcde\n" * 500 +
                 b"--b\nContent-Type: application/x-ploxen-distlist\n\nTo: b@example.org\n--b--\n",
    "RFC 1154": b"Encoding: 1 hex, message\n\n4142\n\nSubject: inner\nEncoding: 403 uuencode, message, text\n\n" + ITEM +
                b"Subject: innermost\nEncoding: 1 text\n\ntext\nrest\n",
    # Parts that stay in memory until they are attached, and one that does not fit there.
    "parts": b"MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n" + PART + PART + b"QUJD\n" * 3000 +
             b"--b\nContent-Type: multipart/alternative; boundary=c\n\n--c\n\nplain\n--c\nContent-Type: text/html; "
             b"charset=iso-8859-1\n\n<p>\n--c--\n" + PART + b"QUJD" * 19 * 2600 + b"\n" + PART + b"--b--\n",
    # What was signed is read again from its item as far as that has the bytes that came, which is to the first LF
    # without CR, and behind it from a copy. The item, the copy and the part are all too large to stay in memory.
    "signed": b"Content-Type: multipart/signed; protocol=x/y; boundary=b\n\n--b\r\n\r\n" +
              b"0123456789abcd\r\n" * 1000 + b"0123456789abcde\n" * 9000 +
              b"--b\nContent-Type: x/y\n\nsignature\n--b--\n",
}


def dialogue(text):
    return b"HELO a\nMAIL FROM:<s@example.com>\nRCPT TO:<r@example.org>\nDATA\n" + text + b".\nQUIT\n"


def outcome(done):
    """"taken", "refused" (the text, or everything), or what else happened."""
    replies = [line[:3] for line in done.stdout.decode(errors="replace").splitlines()]
    if done.returncode == 0 and replies == ["220", "250", "250", "250", "354", "250", "221"]:
        return "taken"
    if done.returncode == 1 and replies == ["220", "250", "250", "250", "354", "451", "221"]:
        return "refused"
    if done.returncode == 1 and replies and set(replies[:-1]) == {"451"} and replies[-1] == "221":
        return "refused"
    return f"exit {done.returncode}, replies {replies}, {done.stderr[:300]!r}"


def check_outcome(home, done, parts):
    """One session in an empty home: taken and whole, or refused and gone."""
    result = outcome(done)
    if result not in ("taken", "refused"):
        yield result
    yield from check_home(home, 1 if result == "taken" else 0)
    if result == "taken" and [mail.parts for mail in queued_mails(home)] != [parts]:
        yield "the mail that was taken is not whole"


def forget_mail(home):
    for place in ("data", "queues", "tmp"):
        for path in (home.path / place).rglob("*"):
            if path.is_file():
                path.unlink()


def stored_parts(text):
    """What the mail becomes with room enough."""
    with Home() as home:
        done = home.gateway(dialogue(text))
        if outcome(done) != "taken":
            raise RuntimeError(f"not taken with room enough: {done}")
        return queued_mails(home)[0].parts


# ---- A small file system

class SmallDisk:
    """A home on a file system of its own, which a test fills."""

    def __init__(self, options):
        self.mount = Path(tempfile.mkdtemp(prefix="disk-"))
        subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", str(self.mount)], check=True)
        self.home = Home(parent=self.mount)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        subprocess.run(["umount", "--lazy", str(self.mount)], check=True)
        self.mount.rmdir()

    def leave_free(self, pages):
        """Fills all but this many pages."""
        ballast = self.mount / "ballast"
        ballast.unlink(missing_ok=True)
        room = os.statvfs(self.mount)
        with open(ballast, "wb") as file:
            os.posix_fallocate(file.fileno(), 0, (room.f_bavail - pages) * room.f_bsize)

    def leave_inodes(self, count):
        folder = self.mount / "inodes"
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir()
        for n in range(os.statvfs(self.mount).f_favail - count):
            (folder / str(n)).touch()


def as_root(test):
    """Mounting needs root; without it the test says so and fails, it does not pass unseen."""
    def guarded():
        if os.getuid() != 0:
            yield "needs root: mount(8)"
            return
        yield from test()
    return guarded


def sweep(disk, leave, text):
    """From nothing free to enough, in steps of one."""
    parts, results = stored_parts(text), []
    for free in range(200):
        leave(free)
        done = disk.home.gateway(dialogue(text))
        yield from (f"{free} free: {fault}" for fault in check_outcome(disk.home, done, parts))
        results.append(outcome(done))
        forget_mail(disk.home)
        if results[-3:] == ["taken"] * 3:
            break
    if "refused" not in results or results[-1] != "taken":
        yield f"the sweep went from {results[0]} to {results[-1]} in {len(results)} steps"


def full_disk(text):
    def test():
        with SmallDisk("size=8m,mode=755") as disk:
            yield from sweep(disk, disk.leave_free, text)
    return as_root(test)


def no_inodes(text):
    def test():
        with SmallDisk("size=8m,nr_inodes=2000,mode=755") as disk:
            yield from sweep(disk, disk.leave_inodes, text)
    return as_root(test)


# ---- A limit on file size

def file_size_limit(text):
    """Every limit up to 2,000 bytes, then ever larger ones, to beyond the largest file."""
    def test():
        parts, results = stored_parts(text), set()
        limits, limit = list(range(0, 2000, 13)), 2000
        while limit < 3 * len(text) + 10000:
            limits.append(limit)
            limit += 1 + limit // 12
        def run(limits):
            faults = []
            with Home() as home:
                for limit in limits:
                    done = run_limited(home, ["prlimit", f"--fsize={limit}"], dialogue(text))
                    faults += [f"limit {limit}: {fault}" for fault in check_outcome(home, done, parts)]
                    results.add(outcome(done))
                    forget_mail(home)
            return faults
        with ThreadPoolExecutor(2) as pool:
            for faults in pool.map(run, (limits[::2], limits[1::2])):
                yield from faults
        if results != {"taken", "refused"}:
            yield f"outcomes {results}"
    return test


def run_limited(home, wrapper, data):
    # A sanitizer's leak detector does not work under strace.
    environment = home.environment({"ASAN_OPTIONS": "exitcode=99:detect_leaks=0"})
    return subprocess.run([*wrapper, str(home.program)], input=data, capture_output=True, env=environment, cwd="/",
                          timeout=60, check=False)


# ---- Any system call

# call and the errors it can give; only calls after the greeting are made to fail, those before belong to the start.
CALLS = {
    "openat": ("ENOSPC", "EMFILE"),
    "write": ("ENOSPC", "EINTR"), "pwrite64": ("ENOSPC",), "writev": ("EIO",), "pwritev": ("EIO",),
    "fsync": ("EIO",), "fdatasync": ("EIO",), "syncfs": ("EIO",), "sync_file_range": ("EIO",), "msync": ("EIO",),
    "rename": ("ENOSPC",), "renameat": ("ENOSPC",), "renameat2": ("ENOSPC",),
    "link": ("ENOSPC",), "linkat": ("ENOSPC",), "unlink": ("EIO",), "unlinkat": ("EIO",),
    "mkdir": ("ENOSPC",), "mkdirat": ("ENOSPC",), "ftruncate": ("EIO",), "fallocate": ("ENOSPC",),
    "lseek": ("EIO",), "pread64": ("EIO",), "fstat": ("EIO",), "newfstatat": ("EIO",),
    "io_uring_setup": ("ENOSYS", "EMFILE"), "io_uring_enter": ("EIO", "EINTR", "EAGAIN", "EBUSY"),
    "copy_file_range": ("EIO",), "sendfile": ("EIO",), "close": ("EIO",), "flock": ("EIO",), "fcntl": ("EIO",),
}
if not SANITIZED:  # a sanitizer ends a program that cannot have memory
    CALLS["mmap"] = ("ENOMEM",)


def trace(home, text):
    """The numbers of each call's uses after the greeting. Replies are left out: a reply that cannot be written is the
    agent's going (lost_agent.py), not a full disk."""
    log = home.path.parent / (home.path.name + ".trace")
    done = run_limited(home, ["strace", "-f", "-qq", "-o", str(log), "-e", "trace=" + ",".join(CALLS)], dialogue(text))
    if outcome(done) != "taken":
        raise RuntimeError(f"not taken under strace: {done}")
    calls = [re.match(r"\d+ +(\w+)\((.*)", line) for line in log.read_text(errors="replace").splitlines()]
    log.unlink()
    calls = [(call[1], call[2]) for call in calls if call]
    names = [name for name, _ in calls]
    start = next(at for at, (name, rest) in enumerate(calls) if name == "write" and rest.startswith('1, "220'))
    uses = {name: [] for name in CALLS}
    for at, (name, rest) in enumerate(calls):
        if at > start and not (name == "write" and rest.startswith("1, ")):
            uses[name].append(names[: at + 1].count(name))
    return uses


def failing_call(text, way):
    """Each call fails once, each error in turn."""
    def test():
        parts = stored_parts(text)
        with Home() as home:
            home.configure(f'QUEUE_SYNC_BY = "{way}"')
            home.gateway(dialogue(text))  # the log and audit files exist, as they do in life
            forget_mail(home)
            uses = trace(home, text)
            forget_mail(home)
        cases = [(call, error, number) for call, numbers in uses.items() for error in CALLS[call] for number in numbers]
        with ThreadPoolExecutor(2) as pool:
            for faults in pool.map(lambda some: run_failing(text, way, parts, some), (cases[::2], cases[1::2])):
                yield from faults
        if len(cases) < 20:
            yield f"only {len(cases)} calls were made to fail"
    return test


def run_failing(text, way, parts, cases):
    faults = []
    with Home() as home:
        home.configure(f'QUEUE_SYNC_BY = "{way}"')
        home.gateway(dialogue(text))
        forget_mail(home)
        for call, error, number in cases:
            inject = f"inject={call}:error={error}:when={number}"
            done = run_limited(home, ["strace", "-f", "-qq", "-o", "/dev/null", "-e", inject], dialogue(text))
            faults += [f"{call} number {number}, {error}: {fault}" for fault in check_failing(home, done, parts)]
            forget_mail(home)
    return faults


def check_failing(home, done, parts):
    """Taken or refused as elsewhere; but a call that failed may end the session without an answer, and a file that could
    not be deleted stays behind."""
    replies = re.findall(rb"^(\d\d\d) ", done.stdout, re.MULTILINE)
    after_text = replies[replies.index(b"354") + 1 :] if b"354" in replies else []
    waiting = queued_mails(home)
    if after_text[:1] == [b"250"] and len(waiting) != 1:
        yield f"taken, but {len(waiting)} mails wait"
    if after_text[:1] and after_text[0][:1] in b"45" and len(waiting) != 0:
        yield f"refused with {after_text}, but {len(waiting)} mails wait"
    if done.returncode not in (0, 1) or done.stderr:
        yield f"exit {done.returncode}, {done.stderr[:300]!r}"
    if any(mail.parts != parts for mail in waiting):
        yield "the mail that waits is not whole"
    yield from (f"missing: {name}" for name in home.missing())
    yield from check_fsck(home)


def tests():
    for name, text in MAILS.items():
        yield f"full disk: {name} mail", full_disk(text)
        yield f"no inodes: {name} mail", no_inodes(text)
        yield f"limit on file size: {name} mail", file_size_limit(text)
    for name, text in MAILS.items():
        yield f"every call fails once: {name} mail", failing_call(text, "files")
    yield "every call fails once: syncing by file system", failing_call(next(iter(MAILS.values())), "filesystem")
