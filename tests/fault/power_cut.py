"""The power fails: the disk holds what had reached it, and nothing of what the system still had in memory.

A home lies on a file system in an image, which writes nothing by itself for minutes. A copy of the image, taken when a
reply has arrived, is the disk as it would be found after a power cut at that moment: mounted, it must hold every mail
that was acknowledged, whole, and no damage.
"""

import os
import random
import shutil
import signal
import subprocess
import tempfile
import time
from pathlib import Path

from full_disk import MAILS, as_root, stored_parts
from gateway_home import Home
from process import SANITIZED, Gateway, check_fsck
from queued_mail import queued_mails

IMAGE_SIZE = 96 << 20
NEVER = 300  # seconds until the file system writes by itself

# Without the ring that starts all waits for the disk at once: kernels and containers that have none.
NO_RING = ["strace", "-f", "-qq", "-o", "/dev/null", "-e", "inject=io_uring_setup:error=ENOSYS"]


def call(*command):
    subprocess.run(command, check=True, capture_output=True)


class Disk:
    """A home with folders on file systems of their own: "" is the home itself."""

    def __init__(self, places):
        self.folder = Path(tempfile.mkdtemp(prefix="power-"))
        self.places = places
        self.mounted = []
        for number, _ in enumerate(places):
            image = self.image(number)
            with open(image, "wb") as file:
                file.truncate(IMAGE_SIZE)
            call("mkfs.ext4", "-q", "-F", str(image))
        self.mount_point = self.folder / "mount"
        self.mount_point.mkdir()
        self.mount(self.image(0), self.mount_point)
        self.home = Home(parent=self.mount_point)
        for number, place in list(enumerate(places))[1:]:
            self.move(number, place)

    def image(self, number, copy=""):
        return self.folder / f"image{number}{copy}"

    def mount(self, image, place):
        call("mount", "-o", f"loop,commit={NEVER}", str(image), str(place))
        self.mounted.append(place)

    def unmount(self):
        while self.mounted:
            call("umount", "--lazy", str(self.mounted.pop()))

    def move(self, number, place):
        """A folder of the home goes onto an image of its own."""
        folder, aside = self.home.path / place, self.home.path / "aside"
        folder.rename(aside)
        folder.mkdir()
        self.mount(self.image(number), folder)
        call("cp", "-a", f"{aside}/.", str(folder))
        shutil.rmtree(aside)

    def __enter__(self):
        os.sync()  # a home that has been in use for some time
        return self

    def __exit__(self, *_):
        self.unmount()
        shutil.rmtree(self.folder)

    def cut(self):
        """The disk as it is at this moment."""
        for number, _ in enumerate(self.places):
            call("cp", "--sparse=always", str(self.image(number)), str(self.image(number, "-cut")))

    def after_cut(self, check):
        """Mounts the disk as it was at the cut and looks at its home."""
        self.unmount()
        self.mount(self.image(0, "-cut"), self.mount_point)
        for number, place in list(enumerate(self.places))[1:]:
            self.mount(self.image(number, "-cut"), self.home.path / place)
        return list(check(self.home))


def say_mail(gateway, text):
    for command in ("MAIL FROM:<s@example.com>", "RCPT TO:<r@example.org>", "DATA"):
        gateway.ask(command)
    gateway.write(text + b".\n")
    return gateway.reply()


def check_waiting(home, wanted):
    yield from (f"missing: {name}" for name in home.missing())
    yield from check_fsck(home)
    waiting = [mail.parts for mail in queued_mails(home)]
    if waiting != wanted:
        yield f"{len(waiting)} mails wait instead of {len(wanted)}, or they are not whole"


def cut_at_reply(places, wrapper=(), way="files"):
    """A session of several mails, and the power fails as soon as the last one is acknowledged."""
    def test():
        for count in range(1, len(MAILS) + 1):
            texts = list(MAILS.values())[:count]
            with Disk(places) as disk:
                disk.home.configure(f'QUEUE_SYNC_BY = "{way}"')
                os.sync()
                with Gateway(disk.home, [*wrapper, str(disk.home.program)]) as gateway:
                    gateway.reply()
                    replies = [say_mail(gateway, text) for text in texts]
                    disk.cut()
                if not all(reply.startswith("250") for reply in replies):
                    yield f"replies {replies}"
                wanted = [stored_parts(text) for text in texts]
                yield from disk.after_cut(lambda home: check_waiting(home, wanted))
    return as_root(test)


def control():
    """That such a cut loses what was not waited for shows that the test would see it."""
    with Disk([""]) as disk:
        disk.home.configure("QUEUE_SYNC = false")
        os.sync()
        with Gateway(disk.home) as gateway:
            gateway.reply()
            if not say_mail(gateway, MAILS["large"]).startswith("250"):
                yield "not taken"
            disk.cut()
        wanted = [stored_parts(MAILS["large"])]
        if not disk.after_cut(lambda home: check_waiting(home, wanted)):
            yield "the mail survived although nobody waited for the disk"


# ---- At any moment

def stopped(process, stop):
    process.send_signal(signal.SIGSTOP if stop else signal.SIGCONT)


class Talk:
    """A session that goes on until the power fails."""

    def __init__(self, home, number):
        self.gateway = Gateway(home)
        self.number = number
        self.gateway.reply()
        os.set_blocking(self.gateway.process.stdout.fileno(), False)

    def text(self):
        return b"Subject: %d\n\n" % self.number + b"body\n" * 200

    def feed(self, count):
        envelope = b"MAIL FROM:<s@example.com>\nRCPT TO:<r@example.org>\nDATA\n"
        self.gateway.write((envelope + self.text() + b".\n") * count)


def cut_at_any_moment():
    """Four gateways at work, stopped somewhere, and the disk as it is then."""
    chance = random.Random(7)
    for _ in range(6):
        with Disk([""]) as disk:
            talks = [Talk(disk.home, number) for number in range(4)]
            for talk in talks:
                talk.feed(40)
            time.sleep(chance.uniform(0.002, 0.08))
            for talk in talks:
                stopped(talk.gateway.process, True)
            acknowledged = sum(acknowledged_by(talk) for talk in talks)
            time.sleep(0.05)  # what the disk had begun, it ends
            disk.cut()
            for talk in talks:
                talk.gateway.__exit__()
            yield from disk.after_cut(lambda home: check_at_least(home, acknowledged))


def acknowledged_by(talk):
    """Mails whose reply 250 stands in the pipe: the one to the text is the second reply in four after its 354."""
    replies = (talk.gateway.process.stdout.read() or b"").splitlines()
    return sum(reply.startswith(b"354") and following.startswith(b"250")
               for reply, following in zip(replies, replies[1:]))


def check_at_least(home, acknowledged):
    yield from (f"missing: {name}" for name in home.missing())
    yield from check_fsck(home)
    waiting = queued_mails(home)
    if len(waiting) < acknowledged:
        yield f"{len(waiting)} mails wait, {acknowledged} were acknowledged"
    if any(mail.parts != [b"body\n" * 200] for mail in waiting):
        yield "a mail that waits is not whole"


def tests():
    yield "power cut: without waiting for the disk, mail is lost", as_root(control)
    yield "power cut at the reply", cut_at_reply([""])
    yield "power cut at the reply: data on a disk of its own", cut_at_reply(["", "data"])
    yield "power cut at the reply: queues on a disk of their own", cut_at_reply(["", "queues"])
    yield "power cut at the reply: by file system", cut_at_reply([""], way="filesystem")
    yield "power cut at the reply: by file system, data elsewhere", cut_at_reply(["", "data"], way="filesystem")
    yield "power cut at the reply: by file system, queues elsewhere", cut_at_reply(["", "queues"], way="filesystem")
    yield "power cut at the reply: as the gateway chooses", cut_at_reply([""], way="auto")
    if not SANITIZED:  # its leak detector does not work under strace
        yield "power cut at the reply: no ring", cut_at_reply([""], NO_RING)
        yield "power cut at the reply: no ring, data on a disk of its own", cut_at_reply(["", "data"], NO_RING)
    yield "power cut at any moment", as_root(cut_at_any_moment)
