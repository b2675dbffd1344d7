"""MIME messages made to hurt: cut off anywhere, deep, of very many or very large parts, with boundaries that are
missing, reused or endless, with a bit that went wrong. What was accepted is whole; memory stays flat; a refusal leaves
nothing."""

import base64
import random
import resource
import struct
import subprocess

from cut_off import at_every_byte, at_samples
from gateway_home import Home, records
from process import MEGABYTE, SANITIZED, check_home
from sizes import BLOCK, MEMORY, send_text

CONTENT_FILE, START_PACKAGE, END_PACKAGE = 30500, 30100, 39000
START_ALTERNATIVES, END_ALTERNATIVES = 30200, 39100
HIDDEN = 0x21

ENVELOPE = b"HELO a\nMAIL FROM:<s@example.com>\nRCPT TO:<r@example.org>\nDATA\n"
SMALL = b"""\
From: s@example.com\r
Subject: =?UTF-8?Q?gr=C3=BC=C3=9Fe?=\r
MIME-Version: 1.0\r
Content-Type: multipart/mixed;\r
 boundary="out er"\r
\r
preamble\r
--out er\r
Content-Type: multipart/alternative; boundary=in\r
\r
--in\r
Content-Type: text/plain; charset=utf-8\r
Content-Transfer-Encoding: quoted-printable\r
\r
..caf=C3=A9=\r
=2E\r
--in\r
Content-Type: text/html\r
Content-ID: <a@b>\r
\r
<p>\r
--in--\r
--out er\r
Content-Disposition: attachment; filename*0*=utf-8''a%C3;\r
 filename*1*=%A4; creation-date="Sat, 21 Nov 2026 10:00:00 +0100"\r
Content-Transfer-Encoding: base64\r
\r
AAEC/w==\r
--out er\r
Content-Transfer-Encoding: x-uuencode\r
\r
begin 644 x\r
#86)C\r
end\r
--out er\r
Content-Type: message/rfc822\r
\r
Subject: in it\r
\r
.\x2ewords\r
--out er--\r
epilogue\r
.\r
QUIT\r
"""


# ---- What waits

def transfer_records(home):
    """(type, record) of the main transfer file of the one message that waits, and the items behind its list of names."""
    ((main, _names, *items),) = [home.files_of(message) for entry in home.entries() for message in home.messages(entry)]
    return list(records(main.read_bytes())), items


def count(found, kind):
    return sum(1 for record_kind, _ in found if record_kind == kind)


def contents(found):
    """Flags of each content-file record but that of the message's names."""
    flags = [struct.unpack_from(">I", record, 24)[0] for kind, record in found if kind == CONTENT_FILE]
    return [each for each in flags if each != 2]


# ---- Cut off

def large():
    """Twenty parts of all encodings, 300 KB."""
    chance = random.Random(7)
    out = [ENVELOPE, b"MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n"]
    for n in range(20):
        octets = chance.randbytes(chance.choice((0, 10, 5000, 30000)))
        out += [b"--b\nContent-Type: application/octet-stream; name=n%d\nContent-Transfer-Encoding: base64\n\n" % n,
                base64.encodebytes(octets)]
        out.append(b"--b\nContent-Type: multipart/alternative; boundary=c%d\n\n" % n)
        out += [b"--c%d\n\n" % n + b"words and words\r\n" * chance.choice((1, 50, 500)) for _ in range(2)]
        out.append(b"--c%d--\n" % n)
    return b"".join(out) + b"--b--\n.\nQUIT\n"


def cut_tests():
    yield "cut off: one MIME message, at every byte", at_every_byte(ENVELOPE.replace(b"\n", b"\r\n") + SMALL)
    yield "cut off: one large MIME message, at 60 places", at_samples(large, 60, 3)


# ---- Many, large, deep

def many_empty_parts():
    total = 100_000
    with Home() as home:
        home.configure("QUEUE_SYNC = false")  # a disk's time, not ours
        head = b"MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n"
        yield from send_text(home, [head, *[b"--b\n\n" * 1000] * (total // 1000), b"--b--\n"], memory=MEMORY)
        found, items = transfer_records(home)
        if len(contents(found)) != total or len(items) != total:
            yield f"{len(contents(found))} records, {len(items)} items"
        if any(item.stat().st_size for item in items):
            yield "an empty part is not empty"


def attachment(encoding, line, octets):
    """200 MB of an attachment in one encoding."""
    def test():
        lines = BLOCK // len(line)
        blocks = 200 * MEGABYTE // (lines * len(line))
        head = (b"MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: application/pdf\n"
                b"Content-Transfer-Encoding: " + encoding + b"\n\n")
        with Home() as home:
            yield from send_text(home, [head, *[line * lines] * blocks, b"--b--\n"], memory=MEMORY)
            _, (item,) = transfer_records(home)
            with open(item, "rb") as file:
                wanted = octets * lines
                for number in range(blocks):
                    last = number == blocks - 1 and encoding == b"binary"  # the last line end is the boundary's
                    if file.read(len(wanted)) != (wanted[:-2] if last else wanted):
                        yield f"other octets in block {number}"
                        return
                if file.read(1):
                    yield f"{item.stat().st_size} octets"
    return test


def nested(kind, depth):
    """Multiparts in each other, each with one part."""
    head = b"MIME-Version: 1.0\nContent-Type: multipart/%s; boundary=b0\n\n" % kind
    yield head
    for begin in range(0, depth - 1, 1000):
        yield b"".join(b"--b%d\nContent-Type: multipart/%s; boundary=b%d\n\n" % (n, kind, n + 1)
                       for n in range(begin, min(begin + 1000, depth - 1)))
    yield b"--b%d\n\nx\n" % (depth - 1)
    for end in range(depth, 0, -1000):
        yield b"".join(b"--b%d--\n" % n for n in range(end - 1, max(end - 1001, -1), -1))


def deep(kind, depth, levels, records_of):
    """Accepted, with as many levels taken apart as are allowed, in memory that does not grow beyond them."""
    def test():
        with Home() as home:
            yield from send_text(home, nested(kind, depth), memory=MEMORY)
            found, items = transfer_records(home)
            opened, closed = (count(found, record) for record in records_of)
            if (opened, closed) != (levels, levels):
                yield f"{opened} levels opened, {closed} closed, {levels} wanted"
            if len(items) != 1:
                yield f"{len(items)} items"
    return test


def alternatives_in_first_part(depth):
    """Each level's first alternative is the next level, its second a text: every text but the outermost is superseded,
    and with each, all that is inside."""
    yield b"MIME-Version: 1.0\nContent-Type: multipart/alternative; boundary=b0\n\n"
    for n in range(depth - 1):
        yield b"--b%d\nContent-Type: multipart/alternative; boundary=b%d\n\n" % (n, n + 1)
    yield b"--b%d\n\nx\n" % (depth - 1)
    for n in range(depth - 1, -1, -1):
        yield b"--b%d\n\ny%d\n--b%d--\n" % (n, n, n)


def deep_alternatives():
    depth = 10_000
    with Home() as home:
        home.configure("QUEUE_SYNC = false")
        yield from send_text(home, [b"".join(alternatives_in_first_part(depth))], memory=MEMORY)
        flags = contents(transfer_records(home)[0])
        if len(flags) != depth + 1 or flags[-1] != 0 or set(flags[:-1]) != {HIDDEN}:
            yield f"{len(flags)} parts, flags {sorted(set(flags))}, the last has {flags[-1]}"


def processor_time(pieces):
    """User time of a session, start-up taken off."""
    def spent(data):
        with Home() as home:
            home.configure("QUEUE_SYNC = false")
            before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime
            subprocess.run([str(home.program)], input=data, env=home.environment(), cwd="/", check=True,
                           capture_output=True)
            return resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime - before
    return max(spent(ENVELOPE + b"".join(pieces) + b".\nQUIT\n") - spent(b"QUIT\n"), 0.001)


GROWING = {
    "nested multiparts": lambda n: nested(b"mixed", n),
    "nested alternatives": lambda n: nested(b"alternative", n),
    "superseded alternatives": alternatives_in_first_part,
}


def growth(make):
    """Twice the depth may take four times as long and more before we call it anything but linear: what is looked for is
    hundreds of times. The times are told, so that a reader sees more than that."""
    def test():
        single, double = processor_time(make(5000)), processor_time(make(10_000))
        print(f"       user time: {single:.3f} s for 5,000 levels, {double:.3f} s for 10,000")
        if double > 0.5 and double > 8 * single:
            yield "not linear"
    return test


PACKAGES, GROUPS = (START_PACKAGE, END_PACKAGE), (START_ALTERNATIVES, END_ALTERNATIVES)


def size_tests():
    yield "100,000 empty parts", many_empty_parts
    sixty = bytes(range(60))
    yield "200 MB of base64", attachment(b"base64", base64.b64encode(sixty[:57]) + b"\r\n", sixty[:57])
    words = b"The quick =41 brown fox =\r\njumps =3D over\r\n"
    yield "200 MB of quoted-printable", attachment(b"quoted-printable", words + b"=0D=\r\n",
                                                   b"The quick A brown fox jumps = over\r\n\r")
    yield "200 MB as it is", attachment(b"binary", b"..The quick brown fox\r\n", b".The quick brown fox\r\n")
    yield "multiparts nested 10,000 deep", deep(b"mixed", 10_000, 9_999, PACKAGES)
    yield "multiparts nested 1,000,000 deep", deep(b"mixed", 1_000_000, 9_999, PACKAGES)
    yield "alternatives nested 10,000 deep", deep(b"alternative", 10_000, 10_000, GROUPS)
    yield "alternatives nested 1,000,000 deep", deep(b"alternative", 1_000_000, 10_000, GROUPS)
    yield "alternatives nested 10,000 deep, each superseded", deep_alternatives
    if not SANITIZED:
        for name, make in GROWING.items():
            yield f"time for {name}", growth(make)


# ---- Boundaries

def boundary(parameter, marker, parts):
    """A multipart whose boundary is declared and written like this has so many parts; None: it is refused for good."""
    def test():
        text = (b"MIME-Version: 1.0\nContent-Type: multipart/mixed" + parameter + b"\n\n--" + marker + b"\n\none\n--" +
                marker + b"\n\ntwo\n--" + marker + b"--\n")
        with Home() as home:
            done = home.gateway(ENVELOPE + text + b".\nQUIT\n")
            reply = done.stdout.decode().splitlines()[5]
            if not reply.startswith("250"):
                yield f"reply {reply}"
            else:
                _, items = transfer_records(home)
                if len(items) != parts:
                    yield f"{len(items)} parts instead of {parts}"
            yield from check_home(home, 1)
    return test


def reused_boundary():
    """An inner multipart with the boundary of the outer one: refused for good, and nothing is left of it."""
    head = b"MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\n" + b"words\n" * 50000
    inner = b"--b\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\nx\n--b--\n--b--\n"
    with Home() as home:
        done = home.gateway(ENVELOPE + head + inner + b".\nQUIT\n")
        reply = done.stdout.decode().splitlines()[5]
        if not reply.startswith("5") or done.returncode != 1:
            yield f"exit {done.returncode}, reply {reply}"
        yield from check_home(home, 0)


def boundary_tests():
    for length in (1, 69, 70, 71, 500, 980):  # with its keyword it still is one line
        text = (b"0123456789'()+_,-./:=?" * 50)[: length - 1] + b"x"
        yield f"boundary of {length} characters", boundary(b'; boundary="' + text + b'"', text, 2)
    # Of a boundary line beyond the bound of a text line, the first piece never is the whole line.
    yield "boundary of 1,022 characters, folded", boundary(b";\n boundary=" + b"y" * 1010, b"y" * 1022, 0)
    yield "no boundary parameter", boundary(b"; charset=x", b"b", 0)
    yield "no boundary parameter, lines without one", boundary(b"; charset=x", b"", 2)
    yield "empty boundary", boundary(b'; boundary=""', b"", 2)
    yield "boundary in one quote", boundary(b'; boundary="b', b"b", 2)
    yield "boundary that is declared twice", boundary(b"; boundary=a; boundary=b", b"b", 2)
    yield "boundary in other letters", boundary(b"; boundary=B", b"b", 0)
    yield "boundary that is that of the enclosing multipart", reused_boundary


# ---- Octets

DIGITS = b"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"


def plainly(text):
    """Base64, read as plainly as can be: what is no digit is passed over, a "=" ends a group."""
    out, group = bytearray(), []
    for byte in text + b"=":
        if byte in DIGITS:
            group.append(DIGITS.index(byte))
        if byte == ord("=") or len(group) == 4:
            bits = sum(value << (18 - 6 * at) for at, value in enumerate(group))
            out += bits.to_bytes(3, "big")[: max(len(group) - 1, 0)]
            group = []
    return bytes(out)


def one_bit_wrong():
    """Every bit of a base64 part in turn: one part, and of it what a plain reading gives; what a bit has turned into a
    line end, a NUL or an end of anything changes nothing else."""
    body = base64.encodebytes(bytes(range(90)) + b"end").replace(b"\n", b"\r\n")
    head = b"MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n--b\nContent-Transfer-Encoding: base64\n" \
        b"Content-Type: image/png\n\n"
    broken = []
    for bit in range(len(body) * 8):
        wrong = bytearray(body)
        wrong[bit // 8] ^= 1 << bit % 8
        broken.append(bytes(wrong))
    with Home() as home:
        home.configure("QUEUE_SYNC = false")
        mails = [ENVELOPE[7:] + head + wrong.replace(b"\n.", b"\n..") + b"--b--\n.\n" for wrong in broken]
        done = home.gateway(b"".join(mails) + b"QUIT\n")
        if done.returncode != 0:
            yield f"exit {done.returncode}, {done.stdout[-200:]!r}"
        messages = [message for entry in home.entries() for message in home.messages(entry)]
        if len(messages) != len(broken):
            yield f"{len(messages)} messages of {len(broken)}"
        for wrong, message in zip(broken, messages):
            _main, _names, *items = home.files_of(message)
            found = [item.read_bytes() for item in items]
            if not wrong.endswith(b"\n"):
                continue  # the boundary line is text of the last line now
            if found != [plainly(wrong)]:
                yield f"{wrong!r}: {found!r} instead of {plainly(wrong)!r}"
        yield from check_home(home, len(broken))


def tests():
    yield from cut_tests()
    yield from size_tests()
    yield from boundary_tests()
    yield "base64 with any bit wrong", one_bit_wrong
