"""A dialogue that ends anywhere: the right replies, the right exit status, and nothing queued that was not accepted."""

import random
from concurrent.futures import ThreadPoolExecutor

from dialogue_model import expect
from gateway_home import Home
from process import check_home

ONE_MAIL = b"""\
EHLO agent.example.com\r
HELO agent.example.com\r
MAIL FROM:<sender@example.com>\r
RCPT TO:<reader@example.org>\r
DATA\r
From: Sender <sender@example.com>\r
To: reader@example.org\r
Subject: one mail\r
\r
First line\r
..two dots\r
\r
.\r
QUIT\r
"""

TWO_MAILS = b"""\
RCPT TO:<early@example.org>
NOOP
MAIL FROM:<>
RCPT TO:<a@example.org>
DATA

.
helo  x
Mail From : <b@example.com> RET=HDRS ENVID=QQ
rcpt to:<c@example.org> NOTIFY=NEVER
RSET
DATA
QUIT now
MAIL FROM:<d@example.com>
RCPT TO:<e@example.org>
DATA
Subject: =?UTF-8?Q?zwei?=
\tfolded

begin 644 file.txt
%:&5L;&\\
`
end
.
VRFY x
QUIT
"""

EIGHT_BIT = "MAIL FROM:<f@example.com>\nRCPT TO:<g@example.org>\nRCPT TO:<Grüße@example.org>\nDATA\n".encode() + \
    "Subject: naïve\nX-Empty:\nDate: Sat, 21 Nov 2026 10:00:00 +0100\n\nÄÖÜ\n.\n\n.\n.\r\r\nQUIT \t\n".encode()

# Messages inside messages: MIME, with a list part, and RFC 1154, with every kind of part.
INSIDE = b"""\
MAIL FROM:<h@example.com>
RCPT TO:<i@example.org>
DATA
Content-Type: multipart/digest; boundary=b

--b

Subject: one
Content-Type: message/rfc822

From: j@example.org
 (folded)

..text
--b
Content-Type: application/x-ploxen-distlist

To: k@example.org,
 l@example.org
--b--
.
MAIL FROM:<m@example.com>
RCPT TO:<n@example.org>
DATA
Encoding: 1 hex, 3 uuencode (x),
 5 message, text

4142

begin 644 x
#86)C
end

Encoding: 1 text, 1 text

a

b
rest
.
QUIT
"""

# Signed messages: of CR LF and of LF, dots, a signed one inside another, one that nothing closes.
SIGNED = b"""\
MAIL FROM:<o@example.com>\r
RCPT TO:<p@example.org>\r
DATA\r
Content-Type: multipart/signed; protocol=x/y; boundary=b\r
\r
--b\r
Content-Type: multipart/signed; boundary=c\r
\r
--c\r
\r
..text
text\r
--c
Content-Type: x/y

inner
--c--
--b
Content-Type: x/y

outer
--b--
epilogue
.
MAIL FROM:<q@example.com>
RCPT TO:<r@example.org>
DATA
Content-Type: multipart/signed; boundary=b

--b

text
.
QUIT
"""


def run_cuts(dialogue, cuts):
    """Runs the dialogue cut at each of these offsets, in one home."""
    with Home() as home:
        accepted, faults = 0, []
        for cut in cuts:
            wanted = expect(dialogue[:cut])
            done = home.gateway(dialogue[:cut])
            accepted += wanted.accepted
            if (done.stdout, done.returncode, done.stderr) != (wanted.text(), wanted.status, b""):
                faults.append(f"cut at {cut}, after {dialogue[max(0, cut - 20):cut]!r}: exit {done.returncode} for "
                              f"{wanted.status}, {done.stdout!r} for {wanted.text()!r}, {done.stderr!r}")
            if len(home.entries()) != accepted:
                return faults + [f"cut at {cut}: {len(home.entries())} entries wait instead of {accepted}"]
        return faults + check_home(home, accepted)


def run_split(dialogue, cuts):
    """The same in two homes at a time."""
    with ThreadPoolExecutor(2) as pool:
        for faults in pool.map(lambda part: run_cuts(dialogue, part), (cuts[::2], cuts[1::2])):
            yield from faults


def at_every_byte(dialogue):
    return lambda: run_split(dialogue, range(len(dialogue) + 1))


def many_mails():
    """A session of forty mails, some of them large."""
    chance = random.Random(40)
    out = [b"HELO agent.example.com\r\n"]
    for n in range(40):
        lines = (b"%d " % n + b"x" * chance.randrange(1200) for _ in range(chance.choice((0, 3, 30, 300))))
        text = b"".join(line + chance.choice((b"\n", b"\r\n")) for line in lines)
        out.append(b"MAIL FROM:<s%d@example.com>\r\nRCPT TO:<r@example.org>\r\nDATA\r\nSubject: %d\r\n\r\n" % (n, n) +
                   text + b".\r\n")
    return b"".join(out) + b"QUIT\r\n"


def deep_mail():
    mime = b"Content-Type: message/rfc822\n\n" * 3000
    rfc1154 = b"Encoding: message, 1 text\n\n" * 3000
    envelope = b"MAIL FROM:<s@example.com>\nRCPT TO:<r@example.org>\nDATA\n"
    return envelope + mime + b"\nbody\n.\n" + envelope + rfc1154 + b"\nbody\n.\nQUIT\n"


def large_mail():
    line = b"M" + bytes(range(0x21, 0x5D)) + b"\n"
    body = b"text before\nbegin 600 large.bin\n" + line * 30000 + b"`\nend\ntext after\n" * 1000
    return b"MAIL FROM:<s@example.com>\nRCPT TO:<r@example.org>\nDATA\n\n" + body + b".\nQUIT\n"


def at_samples(make, count, seed):
    def test():
        dialogue = make()
        chance = random.Random(seed)
        cuts = sorted({len(dialogue), *(chance.randrange(len(dialogue)) for _ in range(count))})
        yield from run_split(dialogue, cuts)
    return test


def tests():
    yield "cut off: one mail, at every byte", at_every_byte(ONE_MAIL)
    yield "cut off: two mails with errors, at every byte", at_every_byte(TWO_MAILS)
    yield "cut off: 8-bit and odd line ends, at every byte", at_every_byte(EIGHT_BIT)
    yield "cut off: messages inside messages, at every byte", at_every_byte(INSIDE)
    yield "cut off: signed messages, at every byte", at_every_byte(SIGNED)
    yield "cut off: forty mails, at 60 places", at_samples(many_mails, 60, 1)
    yield "cut off: one large mail, at 40 places", at_samples(large_mail, 40, 2)
    yield "cut off: messages 3,000 deep, at 20 places", at_samples(deep_mail, 20, 3)
