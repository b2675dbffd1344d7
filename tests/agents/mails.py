"""The mail that the agents send, and the check that exactly it is queued."""

import json
import random
from collections import Counter
from dataclasses import dataclass, field

from queued_mail import queued_mails

DOMAIN = "example.org"  # the gateway's, in all the configurations

# Bodies that an agent or the gateway could spoil: lines without their line ends.
BODIES = {
    "plain": [b"One line.", b"", b"Another one, after an empty line."],
    "empty": [],
    "dots": [b".", b"..", b"...", b".a dot at the start", b"", b".", b"a dot at the end."],
    "long": [b"x" * 997, b"y" * 1022, b"z" * 1023, b"." + b"w" * 1024, b"." * 5000, b"v" * 100000],
    "8-bit": ["Grüße, naïve café, Ελληνικά, 日本語".encode(), b"", "und zurück".encode()],
    "blank lines": [b"", b"", b"text", b"", b""],
    "commands": [b"QUIT", b"RSET", b"DATA", b"MAIL FROM:<x@example.com>", b"From the start of a line", b">From too"],
}


@dataclass
class Mail:
    id: str
    sender: str = "sender@example.com"  # empty: the null sender
    recipients: list = field(default_factory=lambda: ["reader@" + DOMAIN])
    body: list = field(default_factory=lambda: BODIES["plain"])

    def originator(self):
        """Who the mail is from: with a null sender, what the header says."""
        return self.sender or "MAILER-DAEMON@example.com"

    def header(self):
        return [f"From: The Sender <{self.originator()}>",
                f"To: {', '.join(self.recipients[:20])}",
                f"Subject: mail {self.id}",
                "Date: Sat, 21 Nov 2026 10:00:00 +0000",
                f"Message-ID: <{self.id}@example.com>"]

    def text(self, line_end=b"\r\n"):
        """The whole text without the doubling of dots."""
        lines = [line.encode() for line in self.header()] + [b""] + self.body
        return b"".join(line + line_end for line in lines)

    def item(self):
        """The body as it is stored."""
        return b"".join(line + b"\n" for line in self.body)


def batch(prefix, count, seed=1):
    """Mail of every kind of body, with one to thirty recipients."""
    chance = random.Random(seed)
    kinds = list(BODIES)
    return [Mail(f"{prefix}{n}", sender=f"sender{n}@example.com",
                 recipients=[f"reader{r}@{DOMAIN}" for r in range(chance.choice((1, 1, 2, 3, 7, 30)))],
                 body=BODIES[kinds[n % len(kinds)]]) for n in range(count)]


def check_queued(home, sent):
    """Faults, as text: what waits in the home must be the mail that was sent, once for each recipient, unchanged."""
    faults = [f"missing: {name}" for name in home.missing()] + [f"left behind: {name}" for name in home.left_behind()]
    checked = home.fsck()
    if checked.returncode != 0:
        faults.append("fsck: " + (checked.stdout + checked.stderr).decode(errors="replace"))
    if faults:
        return faults
    faults += check_listing(home, sent)
    wanted = {f"<{mail.id}@example.com>": mail for mail in sent}
    delivered = {identifier: Counter() for identifier in wanted}
    for queued in queued_mails(home):
        identifier = queued.field("Message-ID")
        if identifier not in wanted:
            faults.append(f"queued but not sent: {identifier}, {queued.field('Subject')}")
            continue
        delivered[identifier].update(queued.recipients)
        faults += compare(wanted[identifier], queued)
    for identifier, mail in wanted.items():
        if delivered[identifier] != Counter(mail.recipients):
            faults.append(f"{identifier}: recipients {dict(delivered[identifier])} instead of {mail.recipients}")
    return faults


def check_listing(home, sent):
    """What the operator's tool lists is what was sent (a mail to many may come in several messages)."""
    listed = home.morvane("queue", "list", "--json")
    if listed.returncode != 0:
        return ["queue list: " + listed.stderr.decode(errors="replace")]
    entries = json.loads(listed.stdout)
    subjects = {message["subject"] for entry in entries for message in entry["messages"]}
    if subjects != {f"mail {mail.id}" for mail in sent} or any(entry["state"] != "waiting" for entry in entries):
        return [f"queue list shows {len(entries)} entries, of {len(subjects)} mails instead of {len(sent)}"]
    return []


def compare(mail, queued):
    if queued.sender != mail.originator():
        yield f"{mail.id}: sender {queued.sender!r} instead of {mail.originator()!r}"
    if queued.field("Subject") != f"mail {mail.id}":
        yield f"{mail.id}: subject {queued.field('Subject')!r}"
    if queued.parts != [mail.item()]:
        shown = [part[:200] for part in queued.parts]
        yield f"{mail.id}: {len(queued.parts)} parts {shown!r} instead of {mail.item()[:200]!r}"
