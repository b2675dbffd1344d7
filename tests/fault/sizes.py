"""Sizes and bytes that nobody sends: commands, lines, headers and lists beyond every bound, NUL and 8-bit anywhere.

Memory must not grow with them; the bound is what a process may hold at most, whatever the mail.
"""

import re
from concurrent.futures import ThreadPoolExecutor

from cut_off import ONE_MAIL
from dialogue_model import REPLY, expect
from gateway_home import Home, item_path, records
from process import MEGABYTE, SANITIZED, Gateway, check_home
from queued_mail import queued_mails

MEMORY = 12 * MEGABYTE
RECORD_NON_DELIVERY = 42200
BLOCK = MEGABYTE


# ---- Commands

def command(text):
    """One command between two others."""
    def test():
        dialogue = b"NOOP\n" + text + b"\nNOOP\nQUIT\n"
        wanted = expect(dialogue)
        with Home() as home:
            done = home.gateway(dialogue)
            if (done.stdout, done.returncode) != (wanted.text(), wanted.status):
                yield f"{len(text)} characters: exit {done.returncode}, {done.stdout[:500]!r} for {wanted.text()!r}"
            yield from check_home(home, 0)
    return test


def filled(start, length, fill=b" "):
    return start + fill * (length - len(start))


def command_tests():
    for length in (2047, 2048, 2049, 10 * MEGABYTE):
        yield f"command of {length} characters: blanks", command(filled(b"NOOP", length))
        yield f"command of {length} characters: a path", command(filled(b"MAIL FROM:<", length, b"a"))
        yield f"command of {length} characters: no command", command(b"x" * length)
    yield "command of 10 MiB: memory", command_memory


def command_memory():
    with Home() as home, Gateway(home) as gateway:
        gateway.reply()
        gateway.write(b"RCPT TO:<" + b"a" * (10 * MEGABYTE) + b">\n")
        if not gateway.reply().startswith("500"):
            yield "not refused"
        yield from memory_fault(gateway, MEMORY)


# ---- Texts

def memory_fault(gateway, bound):
    peak = gateway.peak_memory()
    print(f"       peak memory {peak / MEGABYTE:.1f} MB")
    if peak > bound and not SANITIZED:
        yield f"peak memory {peak / MEGABYTE:.1f} MB, more than {bound / MEGABYTE:.0f}"


def send_text(home, pieces, recipients=("reader@example.org",), memory=None):
    """Sends one mail whose text is these byte strings one after another; it must be accepted."""
    with Gateway(home) as gateway:
        gateway.begin(recipients)
        for piece in pieces:
            gateway.write(piece)
        gateway.write(b".\n")
        reply = gateway.reply()
        if reply != REPLY[1406]:
            yield f"reply {reply!r}"
        if memory:
            yield from memory_fault(gateway, memory)
        if gateway.quit() != (REPLY[1409], 0):
            yield "the session did not end well"
    yield from check_home(home, 1)


def blocks(count, byte=b"x"):
    """`count` bytes, in blocks."""
    while count > 0:
        yield byte * min(count, BLOCK)
        count -= BLOCK


def body_line(length):
    """A body line of this length, dots at its start, is stored as it is."""
    def test():
        with Home() as home:
            line = b"." + b"y" * (length - 1)
            yield from send_text(home, [b"Subject: x\n\n.", line, b"\nend\n"], memory=MEMORY)
            (mail,) = queued_mails(home)
            if mail.parts != [line + b"\nend\n"]:
                yield f"stored {[len(part) for part in mail.parts]} bytes, {mail.parts[0][:50]!r}"
    return test


def body_of(size, line):
    """Lines up to a size: an ordinary large mail."""
    def test():
        with Home() as home:
            count = BLOCK // len(line)
            pieces = [b"\n", *([line * count] * (size // (len(line) * count)))]
            yield from send_text(home, pieces, memory=MEMORY)
            (mail,) = queued_mails(home)
            if b"".join(mail.parts) != b"".join(pieces[1:]):
                yield f"stored {[len(part) for part in mail.parts]} bytes"
    return test


def without_line_ends(data):
    return data.replace(b"\r", b"").replace(b"\n", b"")


def header_of(pieces):
    """A header of these byte strings is stored whole, and the body is still found. (A line beyond the bound of a text
    line is stored as several.)"""
    def test():
        with Home() as home:
            yield from send_text(home, [*pieces(), b"Subject: after it\n\nbody\n"], memory=MEMORY)
            mail = next(iter(queued_mails(home)), None)
            if mail is None:
                return
            wanted = without_line_ends(b"".join(pieces()) + b"Subject: after it")
            if mail.parts != [b"body\n"] or not mail.header.endswith(b"Subject: after it\r\n"):
                yield f"parts {mail.parts!r}, header ends {mail.header[-60:]!r}"
            if without_line_ends(mail.header) != wanted:
                yield f"a header of {len(mail.header)} bytes, not what was sent"
    return test


def fifty_blocks(line):
    return [line * (BLOCK // len(line))] * 50


HEADERS = {
    "fields": lambda: fifty_blocks(b"X-Filler: 0123456789 0123456789\n"),
    "one folded field that is not known": lambda: [b"X-Filler: begin\n", *fifty_blocks(b" 0123456789 0123456789\n")],
    "one folded Comments": lambda: [b"Comments: begin\n", *fifty_blocks(b"\tabc def ghi\n")],
    "one folded Keywords": lambda: [b"Keywords: a\n", *fifty_blocks(b" word,\n")],
    "one folded References": lambda: [b"References: <a@b>\n", *fifty_blocks(b" <message.identifier@example.com>\n")],
    "one folded To": lambda: [b"To: a@b\n", *fifty_blocks(b" ,first.last@example.org\n")],
    "Received fields": lambda: fifty_blocks(b"Received: from a by b; Sat, 21 Nov 2026 10:00:00 +0000\n"),
    "one line": lambda: [b"X-Filler: ", *blocks(50 * 1000 * 1000), b"\n"],
    "one line without a colon": lambda: [*blocks(50 * 1000 * 1000), b"\n"],
}


def text_tests():
    for length in (1022, 1023, 1024, 50 * 1000 * 1000):
        yield f"text line of {length} characters", body_line(length)
    yield "body of 200 MB", body_of(200 * MEGABYTE, b"The quick brown fox jumps over the lazy dog, again and again.\n")
    eight_bit = "Zwölf Boxkämpfer jagen Viktor quer über den großen Deich.\n".encode()
    yield "8-bit body of 50 MB", body_of(50 * MEGABYTE, eight_bit)
    for name, pieces in HEADERS.items():
        yield f"header of 50 MB: {name}", header_of(pieces)


# ---- Lists

COUNT = 20000
LISTS_MEMORY = 24 * MEGABYTE  # the recipients themselves must be held


def addresses():
    return [f"first.last{n}@example{n % 7}.org" for n in range(COUNT)]


def many_recipients(separator):
    """20,000 recipients in the envelope and in one To field. Of a line beyond the bound of a text line, the first part
    alone is a To field."""
    def test():
        recipients = addresses()
        field = "To: " + separator.join(recipients)
        entries = len(field[:1023].split(",")) if "\n" not in separator else COUNT
        with Home() as home:
            text = b"From: a@example.com\n" + field.encode() + b"\nSubject: many\n\nbody\n"
            yield from send_text(home, [text], recipients, LISTS_MEMORY)
            (mail,) = queued_mails(home)
            if mail.recipients != recipients:
                yield f"{len(mail.recipients)} recipients, {mail.recipients[:3]}"
            listed = sum(list_entries(home, 22100))
            if listed != entries:
                yield f"{listed} list entries instead of {entries}"
    return test


def list_entries(home, wanted):
    """How many records of this type each transfer file holds."""
    for entry in home.entries():
        for message in home.messages(entry):
            for kind, record in records(message.read_bytes()):
                path = home.path / item_path(record) if kind == 91 else None
                if path and path.suffix == ".tran":
                    yield sum(found == wanted for found, _ in records(path.read_bytes()))


def list_tests():
    yield "20,000 recipients and a folded To field", many_recipients(",\n ")
    yield "20,000 recipients and a To field in one line", many_recipients(", ")


# ---- Messages inside messages, and RFC 1154 bodies

DEEPEST = 10000
START_OF_PACKAGE, LIST_TO = 30100, 22100


def messages_inside(field, count):
    """Messages inside each other: as many packages as are taken apart, the rest is one part."""
    def test():
        inner = field + b"\n\n"
        last = b"Subject: last\n\nbody\n"
        with Home() as home:
            yield from send_text(home, [inner, *blocks_of(inner, count - 1), last], memory=MEMORY)
            packages = sum(list_entries(home, START_OF_PACKAGE))
            if packages != min(count, DEEPEST):
                yield f"{packages} packages"
            (mail,) = queued_mails(home)
            kept = inner * (count - DEEPEST - 1) + last if count > DEEPEST else b"body\n"
            if mail.parts[-1] != kept:
                yield f"the last part has {len(mail.parts[-1])} bytes, {mail.parts[-1][:50]!r}"
    return test


def blocks_of(piece, count):
    while count > 0:
        take = min(count, BLOCK // len(piece))
        yield piece * take
        count -= take


def encapsulated_header(field):
    """A message inside whose header has 50 MB."""
    def test():
        with Home() as home:
            filler = fifty_blocks(b"X-Filler: 0123456789 0123456789\n")
            yield from send_text(home, [field + b"\n\nSubject: a\n", *filler, b"To: a@b.example\n\nbody\n"], memory=MEMORY)
            (mail,) = queued_mails(home)
            if mail.parts[-1] != b"body\n" or sum(list_entries(home, LIST_TO)) != 1:
                yield f"parts {[part[:50] for part in mail.parts]!r}"
    return test


def part_of(field, pieces, wanted):
    """An RFC 1154 body of one large part."""
    def test():
        with Home() as home:
            yield from send_text(home, [field + b"\n\n", *pieces()], memory=MEMORY)
            (mail,) = queued_mails(home)
            if b"".join(mail.parts) != wanted():
                yield f"stored {[len(part) for part in mail.parts]} bytes"
    return test


def list_part(separator):
    def test():
        entries = separator.join(b"first.last%d@example.org" % n for n in range(100_000))
        with Home() as home:
            field = b"Content-Type: application/x-ploxen-distlist\n\nTo: "
            yield from send_text(home, [field, entries, b"\n"], memory=MEMORY)
            listed = sum(list_entries(home, LIST_TO))
            if listed != 100_000:
                yield f"{listed} list entries"
    return test


def inside_tests():
    for name, field in (("MIME", b"Content-Type: message/rfc822"), ("RFC 1154", b"Encoding: message")):
        for count in (DEEPEST, DEEPEST + 1, 1_000_000):
            yield f"messages inside messages: {name}, {count} deep", messages_inside(field, count)
        yield f"messages inside messages: {name}, a header of 50 MB", encapsulated_header(field)
    digits, uu_line, text_line = b"0123456789" * 7, b"M" + b"5" * 60, b"The quick brown fox jumps over the lazy dog."
    many, size = BLOCK // 80 * 100, 100 * MEGABYTE
    yield "RFC 1154: hex of 100 MB", part_of(
        b"Encoding: hex", lambda: blocks_of(digits + b"\n", many), lambda: bytes.fromhex(digits.decode()) * many)
    yield "RFC 1154: hex of 100 MB in one line", part_of(
        b"Encoding: 1 hex", lambda: [*blocks_of(b"01", size // 2), b"\n"], lambda: b"\x01" * (size // 2))
    yield "RFC 1154: uuencode of 100 MB", part_of(
        b"Encoding: 999999999 uuencode",
        lambda: [b"begin 644 x\n", *blocks_of(uu_line + b"\n", many), b"end\n"], lambda: b"UUU" * 15 * many)
    yield "RFC 1154: text of 50 MB", part_of(
        b"Encoding: text", lambda: blocks_of(text_line + b"\n", many), lambda: (text_line + b"\n") * many)
    yield "list part: 100,000 addresses, folded", list_part(b",\n ")
    yield "list part: 100,000 addresses in one line", list_part(b", ")


# ---- Bytes

def byte_everywhere(byte, insert):
    """One byte put in, or in another's place, at every offset of a small dialogue."""
    def run(offsets):
        faults = []
        with Home() as home:
            accepted = 0
            for at in offsets:
                dialogue = ONE_MAIL[:at] + byte + ONE_MAIL[at + (not insert):]
                done = home.gateway(dialogue)
                accepted += len(re.findall(rb"^354 .*\n250 ", done.stdout, re.MULTILINE))
                faults += [f"at {at}: {fault}" for fault in check_session(dialogue, done)]
            return faults + check_home(home, accepted)

    def test():
        offsets = range(len(ONE_MAIL))
        with ThreadPoolExecutor(2) as pool:
            for faults in pool.map(run, (offsets[::2], offsets[1::2])):
                yield from faults
    return test


def check_session(dialogue, done):
    wanted = expect(dialogue)
    if (done.stdout, done.returncode) != (wanted.text(), wanted.status):
        yield f"exit {done.returncode} for {wanted.status}, {done.stdout!r} for {wanted.text()!r}"
    if done.stderr:
        yield f"standard error {done.stderr[:500]!r}"


def nul_body():
    """A NUL is a blank; any other byte stays."""
    every_byte = bytes(byte for byte in range(256) if byte not in b"\r\n")
    with Home() as home:
        yield from send_text(home, [b"Subject: bytes\n\n" + every_byte + b"\na\0b\n\0\n\0.\n.\0\n"])
        (mail,) = queued_mails(home)
        if mail.parts[0].count(b"\0") or not mail.parts[0].endswith(b"\na b\n \n .\n. \n"):
            yield f"stored {mail.parts!r}"


def byte_tests():
    for byte, name in ((b"\0", "NUL"), (b"\xff", "0xFF"), (b"\x80", "0x80")):
        yield f"{name} put in at every offset", byte_everywhere(byte, True)
        yield f"{name} in every byte's place", byte_everywhere(byte, False)
    yield "every byte in a body", nul_body


# ---- Reports

REPORT_HEADER = (b"Subject: report\nContent-Type: multipart/report; report-type=delivery-status; boundary=b\n\n"
                 b"--b\nContent-Type: message/delivery-status\n\nOriginal-Envelope-Id: MV0123456789ABCDEF\n\n")


def status_blocks(count, last):
    """Recipients' blocks, the action of the last one as given; a megabyte or so at a time."""
    for start in range(0, count, 8000):
        yield b"".join(b"Final-Recipient: rfc822;user%d@x.example\nAction: %s\nStatus: 5.1.1\n\n" %
                       (number, last if number + 1 == count else b"failed")
                       for number in range(start, min(count, start + 8000)))


def report_of(count, last, recipients):
    """A report that names so many recipients is native, or mail when the last one is only delayed."""
    def test():
        with Home() as home:
            home.configure('INET_LOCAL_DOMAINS = "example.org"')
            pieces = [REPORT_HEADER, *status_blocks(count, last), b"--b--\n"]
            yield from send_text(home, pieces, memory=MEMORY)
            [message] = [message for entry in home.entries() for message in home.messages(entry)]
            transfer = home.files_of(message)[0]
            found = sum(kind == RECORD_NON_DELIVERY for kind, _ in records(transfer.read_bytes()))
            if found != recipients:
                yield f"{found} recipients instead of {recipients}"
    return test


def report_tests():
    yield "report of 50,000 recipients", report_of(50_000, b"failed", 50_000)
    yield "report of 50,000 recipients, the last one delayed", report_of(50_000, b"delayed", 0)
    yield "report of 1,000,000 recipients", report_of(1_000_000, b"failed", 1_000_000)


def tests():
    yield from command_tests()
    yield from text_tests()
    yield from list_tests()
    yield from inside_tests()
    yield from byte_tests()
    yield from report_tests()
