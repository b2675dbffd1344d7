"""A home with something missing, unreadable or wrong: the agent is told to keep its mail, the log says why, and after
the repair mail flows again."""

import os
import shutil

from dialogue_model import REPLY
from gateway_home import Home
from process import Gateway, check_home, codes
from queued_mail import queued_mails

TRY_AGAIN = REPLY[1424]
TEXT = b"From: a@example.com\nSubject: x\n\n" + b"body\n" * 20000 + b".\n"  # more than stays in memory


class Damage:
    """What is done to a home, and undone."""

    def __init__(self, *places, unreadable=False):
        self.places, self.unreadable = places, unreadable

    def do(self, home):
        for place in self.places:
            path = home.path / place
            if self.unreadable:
                os.chmod(path, 0)
            else:
                path.rename(home.path / ("kept-" + path.name))

    def undo(self, home):
        for place in self.places:
            path = home.path / place
            if self.unreadable:
                os.chmod(path, 0o755)
            else:
                if path.is_dir():  # a process that made it anew
                    shutil.rmtree(path)
                (home.path / ("kept-" + path.name)).rename(path)


def whole_dialogue(gateway):
    """The replies to one mail, as an agent asks for them: it quits when it is refused."""
    replies = gateway.begin()
    if not replies[-1].startswith("354"):
        return replies
    gateway.write(TEXT)
    return [*replies, gateway.reply()]


def refused_at_greeting(home, reply=TRY_AGAIN):
    """Every reply is the refusal, until QUIT."""
    with Gateway(home) as gateway:
        replies = [gateway.reply(), *map(gateway.ask, ("HELO a", "MAIL FROM:<s@example.com>", "NOOP"))]
        if set(replies) != {reply}:
            yield f"replies {replies} instead of {reply!r}"
        closing, status = gateway.quit()
        if not closing.startswith("221") or status != 1:
            yield f"closing {closing!r}, exit {status}"


def refused_text(home):
    """The mail is refused for a time once its text has been read."""
    with Gateway(home) as gateway:
        replies = whole_dialogue(gateway)
        if codes(replies) != ["220", "250", "250", "250", "354", "451"] or replies[-1] != TRY_AGAIN:
            yield f"replies {replies}"
        after = gateway.ask("NOOP")
        if after != TRY_AGAIN:
            yield f"after the refusal NOOP is answered {after!r}"
        closing, status = gateway.quit()
        if not closing.startswith("221") or status != 1:
            yield f"closing {closing!r}, exit {status}"


def taken(home, count=1):
    with Gateway(home) as gateway:
        replies = whole_dialogue(gateway)
        if codes(replies) != ["220", "250", "250", "250", "354", "250"]:
            yield f"replies {replies}"
        if gateway.quit() != (REPLY[1409], 0):
            yield "the session did not end well"
    if len(queued_mails(home)) != count:
        yield f"{len(queued_mails(home))} mails wait"


def damaged(damage, expectation):
    """Damage, a refusal and nothing queued; repair, and mail is taken."""
    def test():
        with Home() as home:
            if damage.unreadable and os.getuid() == 0:
                home.run_as("nobody")
                home.write("sys/unixin.trust", "nobody\n")
            damage.do(home)
            yield from expectation(home)
            damage.undo(home)
            yield from check_home(home, 0)
            yield from taken(home)
            yield from check_home(home, 1)
    return test


def removed(*places):
    return Damage(*places)


def unreadable(*places):
    return Damage(*places, unreadable=True)


# ---- Configuration

def logged(home, *words):
    log = home.path / "logs/gateway.log"
    text = log.read_text(encoding="utf-8") if log.exists() else ""
    yield from (f"the log does not tell {word!r}: {text[-1000:]}" for word in words if word not in text)


def bad_configuration(lines, *told):
    """Refused, and the log names the file, the line and what is wrong there."""
    def test():
        with Home() as home:
            home.write("sys/gateway.toml", "# first line\n" + lines)
            yield from refused_at_greeting(home)
            yield from logged(home, "gateway.toml", *told)
            home.write("sys/gateway.toml", "")
            yield from taken(home)
            yield from check_home(home, 1)
    return test


CONFIGURATIONS = {
    "no TOML": ("LOG_LEVEL = = 7\n", ":2"),
    "a text without an end": ('UXI_UUDECODE_ARPA_TOKEN = "x\n', ":2"),
    "a key twice": ("UX_NICE = 1\nUX_NICE = 2\n", ":3", "UX_NICE"),
    "a list for a number": ("UX_NICE = 0\nLOG_LEVEL = [7]\n", ":3", "LOG_LEVEL"),
    "a date for a truth": ("AUDIT = 2026-11-21\n", ":2", "AUDIT"),
    "binary": ("\0\1\2\n", ":2"),
}


def short_config(length):
    def test():
        with Home() as home:
            content = (home.path / "sys/config").read_bytes()
            home.write("sys/config", content[:length])
            yield from refused_at_greeting(home)
            yield from logged(home, "sys/config")
            home.write("sys/config", content)
            yield from taken(home)
            yield from check_home(home, 1)
    return test


def config_without_delimiter():
    with Home() as home:
        home.write("sys/config", bytes(512))
        yield from taken(home)
        (mail,) = queued_mails(home)
        if mail.recipients != ["reader@example.org"]:
            yield f"recipients {mail.recipients}"
        yield from check_home(home, 1)


# ---- Catalog

def without_catalog(damage):
    """The agent learns from the first reply that it must keep its mail, and from which host."""
    def test():
        with Home() as home:
            if damage.unreadable and os.getuid() == 0:
                home.run_as("nobody")
            damage.do(home)
            with Gateway(home) as gateway:
                greeting = gateway.reply()
                if not greeting.startswith("451 ") or "catalog" not in greeting:
                    yield f"greeting {greeting!r}"
                closing, _ = gateway.quit()
                if closing != "221 Closing connection":
                    yield f"closing {closing!r}"
            damage.undo(home)
            yield from check_home(home, 0)
    return test


def broken_catalog(content):
    """A file that is no catalog is none."""
    def test():
        with Home() as home:
            for catalog in (home.path / "nls").glob("*/unix.cat"):
                catalog.write_bytes(content)
            with Gateway(home) as gateway:
                greeting = gateway.reply()
                if not greeting.startswith("451 "):
                    yield f"greeting {greeting!r}"
                gateway.quit()
            yield from check_home(home, 0)
    return test


# ---- What mail does not depend on

def taken_without(damage):
    def test():
        with Home() as home:
            if damage.unreadable and os.getuid() == 0:
                home.run_as("nobody")
                home.write("sys/unixin.trust", "nobody\n")
            damage.do(home)
            yield from taken(home)
            damage.undo(home)
            yield from check_home(home, 1)
    return test


def no_home():
    with Home() as home:
        elsewhere = home.path.with_name(home.path.name + "-elsewhere")
        home.path.rename(elsewhere)
        try:
            with Gateway(home) as gateway:
                greeting = gateway.reply()
                if not greeting.startswith("451 "):
                    yield f"greeting {greeting!r}"
                closing, status = gateway.quit()
                if not closing.startswith("221") or status != 1:
                    yield f"closing {closing!r}, exit {status}"
        finally:
            elsewhere.rename(home.path)
        yield from taken(home)
        yield from check_home(home, 1)


def tests():
    yield "no home", no_home
    yield "no sys/config", damaged(removed("sys/config"), refused_at_greeting)
    yield "unreadable sys/config", damaged(unreadable("sys/config"), refused_at_greeting)
    for length in (0, 475, 476, 477):
        yield f"sys/config of {length} bytes", short_config(length)
    yield "sys/config without a delimiter", config_without_delimiter
    for name, (lines, *told) in CONFIGURATIONS.items():
        yield f"gateway.toml: {name}", bad_configuration(lines, *told)
    yield "unreadable gateway.toml", damaged(unreadable("sys/gateway.toml"), refused_at_greeting)
    yield "no gateway.toml", taken_without(removed("sys/gateway.toml"))
    yield "no mimetypes.toml", taken_without(removed("sys/mimetypes.toml"))
    yield "no catalogs", without_catalog(removed("nls"))
    yield "no catalog for C", without_catalog(removed("nls/C/unix.cat"))
    yield "unreadable catalog", without_catalog(unreadable("nls/C/unix.cat"))
    yield "empty catalog", broken_catalog(b"")
    yield "broken catalog", broken_catalog(b"\xde\x12\x04\x95" + b"\xff" * 200)
    yield "no item store", damaged(removed("data"), refused_text)
    yield "unreadable item store", damaged(unreadable("data"), refused_text)
    yield "no folder of one domain", damaged(removed("data/1"), refused_text)
    yield "no queues", damaged(removed("queues"), refused_text)
    yield "no ROUTER queue", damaged(removed("queues/ROUTER"), refused_text)
    yield "no queues/ROUTER/new", damaged(removed("queues/ROUTER/new"), refused_text)
    yield "no queues/ROUTER/tmp", damaged(removed("queues/ROUTER/tmp"), refused_text)
    yield "unreadable queue", damaged(unreadable("queues/ROUTER"), refused_text)
    yield "no logs", taken_without(removed("logs"))
    yield "unreadable logs", taken_without(unreadable("logs"))
    yield "no scratch folder", taken_without(removed("tmp"))
