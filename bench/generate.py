#!/usr/bin/env python3
"""The mail of the benchmarks. The same call gives the same bytes.

    generate.py small COUNT | plain BYTES | uuencoded BYTES | rfc1154 BYTES | addresses COUNT
    generate.py reports COUNT | strange-reports COUNT
    generate.py base64 BYTES | quoted BYTES | alternatives COUNT | parts COUNT | nested DEPTH | forwarded COUNT
    generate.py signed BYTES | invitations COUNT | winmail BYTES

writes a whole dialogue, HELO to QUIT, to standard output: COUNT small mails, one mail with a body of BYTES, or one
with COUNT addresses in its To field; in MIME: one mail with an attachment or a text that BYTES are sent for, COUNT
mails with the same text plain and as HTML, one mail with COUNT attachments, or with one attachment inside DEPTH
multiparts; COUNT mails that are each a mail in a mail. Bodies are written in blocks, so BYTES may be larger than memory.
"""

import base64
import binascii
import html
import random
import struct
import sys

SENDER = "anna.lind@sender.example"
RECIPIENT = "user0@host0.example.net"
WORDS = """the of and to in that is was for on are with they be at one have this from by hot but some what there we can out
other were all your when up use word how said an each she which do their time if will way about many then them would
write like so these her long make thing see him two has look more day could go come did my sound no most number who over
know water than call first people may down side been now find any new work part take get place made live where after
back little only round man year came show every good me give our under""".split()
FIRST_NAMES = "Anna Boris Clara David Elena Frank Greta Henri Ingrid Jonas Karin Lukas Marta Niels Olga Paul".split()
LAST_NAMES = "Lind Bauer Costa Dubois Eriksen Ferrari Gruber Horvat Ivanov Jensen Keller Larsen Moreau Novak Olsen".split()

GERMAN = """der die das und über für können müssen wäre größer schön heißt Straße grüßen nächste später Länder Wörter
möglich während natürlich früher Tür Öl Übung Ärger ist nicht mit auf ein eine wir haben werden sein Zeit Jahr Tag Haus
Brief Antwort Anfrage Termin gerne bitte vielen Dank freundlichen""".split()

PLAIN_LINE = 76
UU_LINE = 45
BASE64_LINE = 57  # bytes in a line of 76 characters
BLOCK_LINES = 8192  # a large body is this many lines again and again


def sentence(chance, words):
    return " ".join(chance.choice(WORDS) for _ in range(words)).capitalize() + "."


def text_lines(chance, count):
    for _ in range(count):
        line = ""
        while len(line) < PLAIN_LINE - 10:
            line += chance.choice(WORDS) + " "
        yield line.rstrip()


def received(number, hop, chance):
    return (f"Received: from mail{number % 7}.hop{hop}.example (mail{number % 7}.hop{hop}.example [192.0.2.{number % 250}])\r\n"
            f"\tby relay{hop}.example.net (Postfix) with ESMTPS id {chance.getrandbits(40):010X}\r\n"
            f"\tfor <{RECIPIENT}>; Fri, 20 Nov 2026 10:{number % 60:02}:{19 - hop} +0100 (CET)\r\n")


def signature(chance):
    value = base64.b64encode(chance.randbytes(256)).decode()
    folded = "\r\n\t ".join(value[at : at + 70] for at in range(0, len(value), 70))
    return (f"DKIM-Signature: v=1; a=rsa-sha256; c=relaxed/relaxed; d=sender.example; s=2026;\r\n"
            f"\th=from:to:cc:subject:date:message-id; bh={base64.b64encode(chance.randbytes(32)).decode()};\r\n"
            f"\tb={folded}\r\n")


def message_id(chance):
    return f"<{chance.getrandbits(48):012x}.{chance.getrandbits(64):016x}@sender.example>"


def header(number, chance, to=f"Userzero <{RECIPIENT}>", content=""):
    """The fields that a mail of our days has when it has come over two relays: fourteen, and those of `content`."""
    first, last = chance.choice(FIRST_NAMES), chance.choice(LAST_NAMES)
    answered, earlier = message_id(chance), message_id(chance)
    return (
        received(number, 2, chance) + received(number, 1, chance) + signature(chance) +
        f"Date: Fri, 20 Nov 2026 10:{number % 60:02}:15 +0100\r\n"
        f"From: {first} {last} <{SENDER}>\r\n"
        f"To: {to}\r\n"
        f"Cc: \"{last}, {first}\" <cc{number}@host{number % 100}.example.org>\r\n"
        f"Subject: Re: {sentence(chance, 6)}\r\n"
        f"Message-ID: {message_id(chance)}\r\n"
        f"In-Reply-To: {answered}\r\n"
        f"References: {earlier}\r\n {answered}\r\n"
        f"User-Agent: Benchmark/1.0 (X11; Linux x86_64)\r\n"
        f"Organization: {last} and {first} Ltd\r\n"
        f"X-Spam-Status: No, score={number % 50 / 10:.1f} required=5.0\r\n"
        f"{content}\r\n"
    ).encode()


def small_mail(number):
    """About 3 KB: fourteen fields and fifteen lines."""
    chance = random.Random(number)
    body = "".join(line + "\r\n" for line in text_lines(chance, 15))
    return header(number, chance) + body.encode()


def plain_block():
    return "".join(line + "\r\n" for line in text_lines(random.Random(1), BLOCK_LINES)).encode()


def uuencoded_block():
    """The lines of a block, and the bytes that they decode to."""
    content = random.Random(2).randbytes(UU_LINE * BLOCK_LINES)
    lines = [binascii.b2a_uu(content[at : at + UU_LINE], backtick=True)[:-1] + b"\r\n"
             for at in range(0, len(content), UU_LINE)]
    return b"".join(lines), content


def repeats(block, size):
    return max(1, size // len(block))


def plain_mail(size):
    """The mail in pieces."""
    yield header(0, random.Random(0))
    block = plain_block()
    for _ in range(repeats(block, size)):
        yield block


def uuencoded_mail(size):
    yield header(0, random.Random(0))
    block, _ = uuencoded_block()
    yield b"begin 644 archive.bin\r\n"
    for _ in range(repeats(block, size)):
        yield block
    yield b"`\r\nend\r\n"


def rfc1154_mail(size):
    """The same as a part of an RFC 1154 message, which says how many lines it has."""
    block, _ = uuencoded_block()
    lines = repeats(block, size) * BLOCK_LINES + 3
    yield header(0, random.Random(0), content=f"Encoding: {lines} uuencode\r\n")
    yield b"begin 644 archive.bin\r\n"
    for _ in range(repeats(block, size)):
        yield block
    yield b"`\r\nend\r\n"


def addresses_mail(count):
    chance = random.Random(3)
    entries = [f"{chance.choice(FIRST_NAMES)} {chance.choice(LAST_NAMES)} <user{i}@host{i % 1000}.example.net>"
               for i in range(count)]
    yield header(0, random.Random(0), to=",\r\n ".join(entries))
    yield b"Hello all.\r\n"


def report(number, own):
    """A delivery status notification as a mailer of our days sends it, with the message that came back, about a message
    of the mail system or about a stranger's."""
    chance = random.Random(number)
    mark = f"report-{number}"
    identifier = f"MV{number:016X}" if own else f"{number:016x}@far.example"
    back = small_mail(number)
    return (
        f"Date: Fri, 20 Nov 2026 10:{number % 60:02}:15 +0100\r\n"
        f"From: MAILER-DAEMON@relay{number % 7}.example.net (Mail Delivery System)\r\n"
        f"To: {SENDER}\r\nSubject: Undelivered Mail Returned to Sender\r\nMessage-ID: {message_id(chance)}\r\n"
        f"Auto-Submitted: auto-replied\r\nMIME-Version: 1.0\r\n"
        f"Content-Type: multipart/report; report-type=delivery-status;\r\n\tboundary=\"{mark}\"\r\n\r\n"
        f"This is a MIME-encapsulated message.\r\n\r\n--{mark}\r\nContent-Description: Notification\r\n"
        f"Content-Type: text/plain; charset=us-ascii\r\n\r\n" +
        "".join(line + "\r\n" for line in text_lines(chance, 12)) +
        f"\r\n--{mark}\r\nContent-Description: Delivery report\r\nContent-Type: message/delivery-status\r\n\r\n"
        f"Reporting-MTA: dns; relay{number % 7}.example.net\r\nOriginal-Envelope-Id: {identifier}\r\n"
        f"Arrival-Date: Fri, 20 Nov 2026 09:{number % 60:02}:15 +0100 (CET)\r\n\r\n"
        f"Original-Recipient: rfc822;cc{number}@host{number % 100}.example.org\r\n"
        f"Final-Recipient: rfc822; cc{number}@host{number % 100}.example.org\r\nAction: failed\r\nStatus: 5.1.1\r\n"
        f"Remote-MTA: dns; mail.host{number % 100}.example.org\r\n"
        f"Diagnostic-Code: smtp; 550 5.1.1 <cc{number}@host{number % 100}.example.org>: Recipient address rejected:\r\n"
        f"    User unknown in local recipient table\r\n\r\n"
        f"--{mark}\r\nContent-Description: Undelivered Message\r\nContent-Type: message/rfc822\r\n\r\n"
    ).encode() + back + f"\r\n--{mark}--\r\n".encode()


# ---- MIME

def mime(content_type, encoding=None):
    """The fields of a message's header that say that it is MIME, and what."""
    fields = f"MIME-Version: 1.0\r\nContent-Type: {content_type}\r\n"
    return fields + (f"Content-Transfer-Encoding: {encoding}\r\n" if encoding else "")


def base64_lines(content):
    return b"".join(binascii.b2a_base64(content[at : at + BASE64_LINE], newline=False) + b"\r\n"
                    for at in range(0, len(content), BASE64_LINE))


def attachment_header(name):
    return (f"Content-Type: application/octet-stream; name=\"{name}\"\r\nContent-Transfer-Encoding: base64\r\n"
            f"Content-Disposition: attachment; filename=\"{name}\"\r\n\r\n").encode()


def base64_block():
    """The lines of a block, and the bytes that they decode to."""
    content = random.Random(4).randbytes(BASE64_LINE * BLOCK_LINES)
    return base64_lines(content), content


def base64_mail(size):
    yield header(0, random.Random(0), content=mime('multipart/mixed; boundary="=_mixed"'))
    yield b"--=_mixed\r\nContent-Type: text/plain; charset=us-ascii\r\n\r\nThe archive.\r\n--=_mixed\r\n"
    yield attachment_header("archive.bin")
    block, _ = base64_block()
    for _ in range(repeats(block, size)):
        yield block
    yield b"--=_mixed--\r\n"


def quoted(text):
    """Quoted-printable, in lines of at most 76 characters, of bytes with LF line ends."""
    return binascii.b2a_qp(text, istext=True).replace(b"\n", b"\r\n")


def quoted_block():
    """The lines of a block, and the Latin-1 text that they decode to: paragraphs of 100 to 400 characters."""
    chance = random.Random(5)
    paragraphs = (" ".join(chance.choice(GERMAN) for _ in range(chance.randrange(16, 64))) + ".\n" for _ in range(2000))
    content = "".join(paragraphs).encode("latin-1")
    return quoted(content), content


def quoted_mail(size):
    yield header(0, random.Random(0), content=mime("text/plain; charset=iso-8859-1", "quoted-printable"))
    block, _ = quoted_block()
    for _ in range(repeats(block, size)):
        yield block


def alternative_texts(number):
    """The plain text and the HTML of a mail of 8 KB, in UTF-8."""
    chance = random.Random(number)
    paragraphs = [" ".join(chance.choice(GERMAN) for _ in range(50)) + "." for _ in range(6)]
    style = "".join(f"p.c{i} {{ margin: {i}px; font-family: Arial, sans-serif; }}\n" for i in range(20))
    rich = "".join(f'<p class="c{i}" style="color:#333333">{html.escape(text)}</p>\n'
                   for i, text in enumerate(paragraphs))
    page = f"<html><head><style>\n{style}</style></head>\n<body>\n{rich}</body></html>\n"
    return "".join(f"{text}\n\n" for text in paragraphs).encode(), page.encode()


def alternatives_mail(number):
    boundary = f"=_{number:08x}"
    plain, page = alternative_texts(number)
    yield header(number, random.Random(number), content=mime(f'multipart/alternative; boundary="{boundary}"'))
    for kind, text in (("plain", plain), ("html", page)):
        yield (f"--{boundary}\r\nContent-Type: text/{kind}; charset=utf-8\r\n"
               f"Content-Transfer-Encoding: quoted-printable\r\n\r\n").encode()
        yield quoted(text) + b"\r\n"
    yield f"--{boundary}--\r\n".encode()


def part_content(number):
    return random.Random(number).randbytes(8 * BASE64_LINE)


def parts_mail(count):
    yield header(0, random.Random(0), content=mime('multipart/mixed; boundary="=_mixed"'))
    for number in range(count):
        yield b"--=_mixed\r\n" + attachment_header(f"part{number}.bin") + base64_lines(part_content(number))
    yield b"--=_mixed--\r\n"


def nested_mail(depth):
    """One attachment, part_content(0), inside `depth` multiparts."""
    yield header(0, random.Random(0), content=mime('multipart/mixed; boundary="=_0"'))
    for level in range(1, depth):
        yield f'--=_{level - 1}\r\nContent-Type: multipart/mixed; boundary="=_{level}"\r\n\r\n'.encode()
    yield f"--=_{depth - 1}\r\n".encode() + attachment_header("leaf.bin") + base64_lines(part_content(0))
    for level in reversed(range(depth)):
        yield f"--=_{level}--\r\n".encode()


FORWARDED_DEPTH = 10


def forwarded_text(number):
    return "".join(line + "\r\n" for line in text_lines(random.Random(number), 15)).encode()


def forwarded_mail(number):
    """A mail in a mail in a mail: ten headers of fourteen fields, and fifteen lines."""
    for level in range(FORWARDED_DEPTH):
        inner = mime("message/rfc822") if level < FORWARDED_DEPTH - 1 else ""
        yield header(number, random.Random(number * FORWARDED_DEPTH + level), content=inner)
    yield forwarded_text(number)


# ---- Signed messages, invitations, winmail.dat

def signed_mail(size):
    """The attachment of base64_mail inside a multipart/signed; its signature is none."""
    yield header(0, random.Random(0), content=mime(
        'multipart/signed; micalg=sha-256; protocol="application/pkcs7-signature"; boundary="=_signed"'))
    yield b'--=_signed\r\nContent-Type: multipart/mixed; boundary="=_mixed"\r\n\r\n'
    pieces = base64_mail(size)
    next(pieces)  # the header
    yield from pieces
    yield b"--=_signed\r\n" + attachment_header("smime.p7s").replace(b"octet-stream", b"pkcs7-signature")
    yield base64_lines(random.Random(6).randbytes(2000)) + b"--=_signed--\r\n"


def invitation_mail(number):
    """A meeting request as calendar programs send it: text, and the calendar beside it."""
    chance = random.Random(number)
    mark = f"=_{number:08x}"
    hour = 8 + number % 9
    people = "".join(f"ATTENDEE;CUTYPE=INDIVIDUAL;ROLE=REQ-PARTICIPANT;PARTSTAT=NEEDS-ACTION;RSVP=TRUE;CN=User {n}:\r\n"
                     f" mailto:user{n}@host{n}.example.net\r\n" for n in range(5))
    calendar = (
        "BEGIN:VCALENDAR\r\nPRODID:-//Benchmark//EN\r\nVERSION:2.0\r\nMETHOD:REQUEST\r\n"
        "BEGIN:VTIMEZONE\r\nTZID:Europe/Paris\r\n"
        "BEGIN:STANDARD\r\nDTSTART:19701025T030000\r\nTZOFFSETFROM:+0200\r\nTZOFFSETTO:+0100\r\n"
        "RRULE:FREQ=YEARLY;BYMONTH=10;BYDAY=-1SU\r\nEND:STANDARD\r\n"
        "BEGIN:DAYLIGHT\r\nDTSTART:19700329T020000\r\nTZOFFSETFROM:+0100\r\nTZOFFSETTO:+0200\r\n"
        "RRULE:FREQ=YEARLY;BYMONTH=3;BYDAY=-1SU\r\nEND:DAYLIGHT\r\nEND:VTIMEZONE\r\n"
        f"BEGIN:VEVENT\r\nUID:{chance.getrandbits(64):016x}@sender.example\r\nDTSTAMP:20261120T090000Z\r\n"
        f"DTSTART;TZID=Europe/Paris:20261201T{hour:02}0000\r\nDTEND;TZID=Europe/Paris:20261201T{hour + 1:02}0000\r\n"
        f"RRULE:FREQ=WEEKLY;COUNT=10;BYDAY=TU\r\nSUMMARY:{sentence(chance, 5)}\r\nLOCATION:Room {number % 40}\r\n"
        f"ORGANIZER;CN=Anna Lind:mailto:{SENDER}\r\n{people}SEQUENCE:0\r\n"
        f"DESCRIPTION:{sentence(chance, 8)}\\n{sentence(chance, 8)}\r\n"
        "BEGIN:VALARM\r\nACTION:DISPLAY\r\nTRIGGER:-PT15M\r\nDESCRIPTION:Reminder\r\nEND:VALARM\r\n"
        "END:VEVENT\r\nEND:VCALENDAR\r\n")
    yield header(number, chance, content=mime(f'multipart/alternative; boundary="{mark}"'))
    yield f"--{mark}\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n".encode()
    yield "".join(line + "\r\n" for line in text_lines(chance, 8)).encode()
    yield f"--{mark}\r\nContent-Type: text/calendar; charset=utf-8; method=REQUEST\r\n\r\n".encode()
    yield calendar.encode() + f"--{mark}--\r\n".encode()


def tnef_attribute(level, identity, content):
    return bytes([level]) + struct.pack("<II", identity, len(content)) + content + struct.pack(
        "<H", sum(content) & 0xFFFF)


def winmail_content(size):
    return random.Random(7).randbytes(1 << 16) * (size >> 16)


def winmail(size):
    """A TNEF stream ([MS-OXTNEF]) with one attachment."""
    return b"".join((
        struct.pack("<IH", 0x223E9F78, 1),
        tnef_attribute(1, 0x00089006, struct.pack("<I", 0x10000)),
        tnef_attribute(1, 0x00069007, struct.pack("<II", 1252, 0)),
        tnef_attribute(1, 0x00078008, b"IPM.Microsoft Mail.Note\0"),
        tnef_attribute(2, 0x00069002, struct.pack("<HIHHI", 1, 0xFFFFFFFF, 32, 32, 0)),
        tnef_attribute(2, 0x00018010, b"archive.bin\0"),
        tnef_attribute(2, 0x0006800F, winmail_content(size))))


def winmail_mail(size):
    yield header(0, random.Random(0), content=mime('multipart/mixed; boundary="=_mixed"'))
    yield b"--=_mixed\r\nContent-Type: text/plain; charset=us-ascii\r\n\r\nThe archive.\r\n--=_mixed\r\n"
    yield attachment_header("winmail.dat").replace(b"octet-stream", b"ms-tnef")
    yield base64_lines(winmail(size))
    yield b"--=_mixed--\r\n"


def invitations(count):
    return (invitation_mail(number) for number in range(count))


def dot_stuffed(piece):
    return piece.replace(b"\r\n.", b"\r\n..")


def dialogue(mails, hello="HELO client.example", recipient=RECIPIENT):
    """The pieces of a session that delivers the mails, each an iterable of pieces that end in CR LF."""
    yield f"{hello}\r\n".encode()
    for mail in mails:
        yield f"MAIL FROM:<{SENDER}>\r\nRCPT TO:<{recipient}>\r\nDATA\r\n".encode()
        for piece in mail:
            yield dot_stuffed(piece)
        yield b".\r\n"
    yield b"QUIT\r\n"


def small_mails(count):
    return ([small_mail(number)] for number in range(count))


def reports(count, own):
    return ([report(number, own)] for number in range(count))


def forwarded_mails(count):
    return (forwarded_mail(number) for number in range(count))


def alternatives_mails(count):
    return (alternatives_mail(number) for number in range(count))


KINDS = {
    "small": small_mails,
    "plain": lambda size: [plain_mail(size)],
    "uuencoded": lambda size: [uuencoded_mail(size)],
    "rfc1154": lambda size: [rfc1154_mail(size)],
    "forwarded": forwarded_mails,
    "addresses": lambda count: [addresses_mail(count)],
    "reports": lambda count: reports(count, own=True),
    "strange-reports": lambda count: reports(count, own=False),
    "base64": lambda size: [base64_mail(size)],
    "signed": lambda size: [signed_mail(size)],
    "invitations": invitations,
    "winmail": lambda size: [winmail_mail(size)],
    "quoted": lambda size: [quoted_mail(size)],
    "alternatives": alternatives_mails,
    "parts": lambda count: [parts_mail(count)],
    "nested": lambda depth: [nested_mail(depth)],
}

if __name__ == "__main__":
    if len(sys.argv) != 3 or sys.argv[1] not in KINDS:
        sys.exit(__doc__)
    for part in dialogue(KINDS[sys.argv[1]](int(sys.argv[2]))):
        sys.stdout.buffer.write(part)
