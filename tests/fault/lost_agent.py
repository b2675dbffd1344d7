"""Agents that go, stall, or hand over descriptors of an unusual kind."""

import os
import socket
import subprocess
import time

from dialogue_model import REPLY, expect
from gateway_home import Home
from process import Gateway, check_home
from queued_mail import queued_mails

COMMANDS = [b"HELO a\n", b"MAIL FROM:<s@example.com>\n", b"RCPT TO:<r@example.org>\n", b"DATA\n",
            b"Subject: first\n\nbody\n.\n", b"NOOP\n", b"MAIL FROM:<s@example.com>\n", b"RCPT TO:<r@example.org>\n",
            b"DATA\n", b"Subject: second\n\nbody\n.\n", b"QUIT\n"]
DIALOGUE = b"".join(COMMANDS)
TEXTS = (4, 9)  # which of the commands are message texts


def reader_gone(after):
    """The agent closes its reading end when it has read this many replies, and still writes all it has."""
    def test():
        with Home() as home, Gateway(home) as gateway:
            for n in range(after):
                gateway.reply()
                if n < after - 1:
                    gateway.write(COMMANDS[n])
            gateway.process.stdout.close()
            try:
                gateway.write(b"".join(COMMANDS[max(0, after - 1) :]))
                gateway.process.stdin.close()
            except BrokenPipeError:
                pass  # it gave up
            status = gateway.process.wait(timeout=60)
            error = gateway.process.stderr.read()
            if status != 1 or error:
                yield f"exit {status}, {error[:500]!r}"
            # The reply to this command is the one that fails; a text whose reply fails has been queued already.
            failing = max(0, after - 1)
            yield from check_home(home, sum(text <= failing for text in TEXTS))
    return test


def all_gone():
    """Both ends closed in the middle of a text."""
    with Home() as home, Gateway(home) as gateway:
        gateway.begin()
        gateway.write(b"Subject: x\n\nhalf a bo")
        gateway.process.stdout.close()
        gateway.process.stdin.close()
        status = gateway.process.wait(timeout=60)
        if status != 1:
            yield f"exit {status}"
        yield from check_home(home, 0)


def standard_streams_closed():
    """Started with no standard streams at all: an error, not a hang, and no file takes the place of a stream."""
    with Home() as home:
        done = subprocess.run(["sh", "-c", f"exec {home.program} <&- >&- 2>&-"], env=home.environment(), timeout=60,
                              capture_output=True, check=False)
        if done.returncode == 0:
            yield "exit 0"
        yield from check_home(home, 0)


def run_with(descriptors, feed):
    """Runs the gateway on (standard input, standard output), or on one descriptor for both; `feed` plays the agent."""
    with Home() as home:
        process = subprocess.Popen([str(home.program)], stdin=descriptors[0], stdout=descriptors[-1],
                                   stderr=subprocess.PIPE, env=home.environment(), cwd="/")
        for descriptor in descriptors:
            os.close(descriptor)
        replies = feed()
        status = process.wait(timeout=60)
        error = process.stderr.read()
        process.stderr.close()
        wanted = expect(DIALOGUE)
        if (replies, status, error) != (wanted.text(), 0, b""):
            yield f"exit {status}, {replies!r}, {error[:500]!r}"
        yield from check_home(home, wanted.accepted)
        if [mail.parts for mail in queued_mails(home)] != [[b"body\n"]] * wanted.accepted:
            yield "the mails that wait are not those sent"


def slowly(write, data):
    """Small pieces with pauses, so that reads find nothing."""
    for at in range(0, len(data), 7):
        write(data[at : at + 7])
        time.sleep(0.002)


def nonblocking_pipes():
    input_read, input_write = os.pipe()
    output_read, output_write = os.pipe()
    os.set_blocking(input_read, False)
    os.set_blocking(output_write, False)

    def feed():
        slowly(lambda piece: os.write(input_write, piece), DIALOGUE)
        os.close(input_write)
        with os.fdopen(output_read, "rb") as output:
            return output.read()

    yield from run_with((input_read, output_write), feed)


def nonblocking_socket():
    ours, theirs = socket.socketpair()
    theirs.setblocking(False)

    def feed():
        slowly(ours.sendall, DIALOGUE)
        with ours, ours.makefile("rb") as replies:
            return replies.read()

    yield from run_with((theirs.detach(),), feed)


def nonblocking_full_output():
    """More replies than the pipe holds, and a reader that comes late: each reply arrives, whole and in order."""
    count = 8000
    dialogue = b"NOOP\n" * count + b"QUIT\n"
    wanted = expect(dialogue).text()
    input_read, input_write = os.pipe()
    output_read, output_write = os.pipe()
    os.set_blocking(output_write, False)
    with Home() as home:
        process = subprocess.Popen([str(home.program)], stdin=input_read, stdout=output_write, env=home.environment(),
                                   cwd="/")
        os.close(input_read)
        os.close(output_write)
        os.write(input_write, dialogue)
        os.close(input_write)
        time.sleep(0.5)
        with os.fdopen(output_read, "rb") as output:
            replies = output.read()
        status = process.wait(timeout=60)
        if replies != wanted or status != 0:
            yield f"exit {status}, {len(replies)} bytes of replies instead of {len(wanted)}"


def files():
    """The dialogue is a file, the replies go into one."""
    with Home() as home:
        home.write("dialogue", DIALOGUE)
        with open(home.path / "dialogue", "rb") as source, open(home.path / "replies", "wb") as target:
            done = subprocess.run([str(home.program)], stdin=source, stdout=target, env=home.environment(), cwd="/",
                                  timeout=60, check=False)
        replies = (home.path / "replies").read_bytes()
        if (replies, done.returncode) != (expect(DIALOGUE).text(), 0):
            yield f"exit {done.returncode}, {replies!r}"
        yield from check_home(home, 2)


def full_output():
    """Replies onto a full device cannot be written: an error, and nothing is queued behind the agent's back."""
    with Home() as home, open("/dev/full", "wb") as full:
        done = subprocess.run([str(home.program)], input=DIALOGUE, stdout=full, env=home.environment(), cwd="/",
                              timeout=60, check=False)
        if done.returncode != 1:
            yield f"exit {done.returncode}"
        yield from check_home(home, 0)


def byte_by_byte():
    """Every read gives one byte."""
    ours, theirs = socket.socketpair()
    theirs.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1)

    def feed():
        for byte in DIALOGUE:
            ours.sendall(bytes([byte]))
            time.sleep(0.0005)
        with ours, ours.makefile("rb") as replies:
            return replies.read()

    yield from run_with((theirs.detach(),), feed)


def signals():
    """What a terminal or a parent sends does not end a session."""
    with Home() as home, Gateway(home) as gateway:
        gateway.reply()
        for signal in (2, 3, 13, 25):  # INT, QUIT, PIPE, XFSZ
            gateway.process.send_signal(signal)
            if gateway.ask("NOOP") != REPLY[1406]:
                yield f"signal {signal} ended the session"
                return
        if gateway.quit() != (REPLY[1409], 0):
            yield "the session did not end well"


def tests():
    for after in range(len(COMMANDS) + 1):
        yield f"reader gone after {after} replies", reader_gone(after)
    yield "agent gone in the middle of a text", all_gone
    yield "no standard streams", standard_streams_closed
    yield "non-blocking pipes", nonblocking_pipes
    yield "non-blocking socket", nonblocking_socket
    yield "non-blocking output that is full", nonblocking_full_output
    yield "one byte at a time", byte_by_byte
    yield "files as input and output", files
    yield "output onto a full device", full_output
    yield "signals that are ignored", signals
