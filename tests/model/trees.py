"""Random MIME messages, and what must become of them.

A Writer writes a message line by line and notes, beside each part, the records that the part must become (stored.py
has their form). It knows the rules from outside: what a boundary ends, what is hidden, which value a record carries.
It parses nothing, and shares no code with the gateway.

Where the rest of a text becomes part of something that began before (a closing line that is missing, nesting beyond
the depth that is taken apart), the writer goes on with its tree as text, and notes no records for it.
"""

import email.utils
import random
import re
import sys
import urllib.parse
from dataclasses import dataclass, field
from base64 import b64encode

import encodings_of_bodies

BINARY, PLAIN, OTHER_TEXT, HTML, RICH_TEXT, SIGNED_ENTITY = 0, 1167, 1736, 2133, 2130, 2185
HIDDEN_CONTENT, HIDDEN_PACKAGE = 0x21, 0x18
NESTED_PACKAGE = (3, -100)
PACKAGE_FLAGS = {"parallel": 2, "signed": 4}  # these are packages wherever they stand
CREATED, MODIFIED = 30600, 30605
DISPOSITION_LIMIT = 20

SIGNED_FIELDS = {"type": SIGNED_ENTITY, "flags": 0, "pOrigFileName": b"", "pContentCharset": b"",
                 "pMIMEContentType": b"multipart/signed", "pContentDisp": b"", "pContentID": b"",
                 "pContentLocation": b"", "rfc2047subject": b"smime_clearsigned.txt"}

ANY = object()  # a value that is somebody else's business

# MIME label, native name, python's codec.
CHARSETS = (
    ("us-ascii", "IA5", "ascii"), ("US-ASCII", "IA5", "ascii"), ("utf-8", "UTF8", "utf-8"), ("UTF-8", "UTF8", "utf-8"),
    ("iso-8859-1", "ISO8859_1", "latin-1"), ("ISO-8859-15", "ISO8859_15", "iso-8859-15"),
    ("iso-8859-2", "ISO8859_2", "iso-8859-2"), ("windows-1252", "WIN1252", "cp1252"),
    ("windows-1251", "WIN1251", "cp1251"), ("koi8-r", "KOI8_R", "koi8-r"), ("iso-2022-jp", "ISO2022JP", "iso-2022-jp"),
    ("Shift_JIS", "SJIS", "shift_jis"), ("EUC-JP", "EUCJP", "euc-jp"), ("gb2312", "GB2312", "gb2312"),
    ("gb18030", "GB18030", "gb18030"), ("Big5", "BIG5", "big5"), ("euc-kr", "KSC5601", "euc-kr"),
    ("x-unheard-of", "x-unheard-of", "utf-8"),
)
ASCII_SET, LATIN_SET, UNKNOWN_SET = "IA5", "ISO8859_1", "x-unheard-of"
ASCII_LABEL = b"; charset=US-ASCII"
WORDS = {
    "ascii": "plain", "utf-8": "é 中 𝄞 ﬀ", "latin-1": "é ü ß ñ Ålesund",
    "iso-8859-15": "€ œ Ž", "iso-8859-2": "ł ő č Łódź",
    "cp1252": "“ ” € –", "cp1251": "привет мир", "koi8-r": "привет мир", "iso-2022-jp": "日本語 テスト",
    "shift_jis": "日本語 テスト", "euc-jp": "日本語 テスト", "gb2312": "中文 测试", "gb18030": "中文 𠀀 测试",
    "big5": "中文 測試", "euc-kr": "한국어 시험",
}

# type, its native code; PLAIN is any text, by its set.
TYPES = (
    ("text/plain", PLAIN), ("text/plain", PLAIN), ("text/html", HTML), ("text/html", HTML), ("text/csv", PLAIN),
    ("text/x-unheard-of", PLAIN), ("application/octet-stream", BINARY), ("application/octet-stream", BINARY),
    ("application/pdf", BINARY), ("image/png", BINARY), ("audio/basic", BINARY), ("x-unheard/of", BINARY),
    ("message/partial", BINARY), ("message/external-body", BINARY), ("application/rtf", RICH_TEXT),
    ("text/rtf", RICH_TEXT),
)
WITHOUT_SLASH = ("", "", "text", "nonsense")
SUBTYPES = ("mixed", "mixed", "alternative", "alternative", "related", "parallel", "digest", "report", "form-data",
            "x-unheard-of", "MIXED", "Alternative", "PARALLEL", "signed", "signed", "SIGNED")
ENCODINGS = ("", "7bit", "8bit", "binary", "base64", "base64", "quoted-printable", "quoted-printable", "x-uuencode",
             "uuencode", "x-unheard-of")
DECODED = ("base64", "quoted-printable", "x-uuencode", "uuencode")
LINES = ("", "", ".", "..", ".x", "From me", "plain words", "-- ", "--", "--x", "----", " blanks at both ends ",
         "a\tb", "=", "=41 =zz =", "begin 644 x", "end", "Content-Type: text/plain", "x" * 1022, "x" * 1023,
         "y" * 1022 + ".", "z" * 3000)
LETTERS = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"

sys.setrecursionlimit(10000)


class TextEnds(Exception):
    """The message stops here, whatever is open."""


@dataclass
class Setup:
    """How the home is set up, as far as it decides what becomes of a message."""
    max_depth: int = 10_000
    detects: bool = False  # sets are detected: labels of text that is not ASCII are the detector's business


@dataclass
class Level:
    """An open multipart: its boundary line, and what its parts inherit."""
    marker: bytes
    subject: bytes
    depth: int
    is_alternative: bool = False
    is_digest: bool = False
    location: bytes = b""


@dataclass
class SignedCopy:
    """The item that holds a multipart/signed whole."""
    event: list
    begin: int   # where the lines behind its first boundary line begin
    head: bytes  # what stands before those in the item


@dataclass
class Header:
    """Of one part: its lines without line ends, and what they say."""
    lines: list = field(default_factory=list)
    is_of_message: bool = False
    content_type: bytes = b""
    subtype: str = None  # of a multipart
    without_parameters: bool = False
    boundary: bytes = b""
    subject: bytes = b""  # that a multipart gives its parts
    name: object = b""   # file name in its record, or the text that it must decode to
    is_page: bool = False  # the name says HTML
    kind: str = ""       # type of a leaf
    code: int = PLAIN
    charset: tuple = None
    encoding: str = ""
    disposition: bytes = b""
    dates: list = field(default_factory=list)
    identifier: bytes = b""
    location: bytes = b""
    is_body: bool = False       # of an encapsulated message: its lines are that message's header
    inner: object = None        # Header of the message that this part is
    inner_level: object = None  # what its body inherits
    is_cut: bool = False        # the message is its header alone, without a blank line

    def content(self):
        """As it is saved; that of a message inside keeps the dots of the dialogue."""
        dot = b"." if self.is_body else b""
        return b"".join((dot if line.startswith(b".") else b"") + line + b"\r\n" for line in self.lines)

    @property
    def is_multipart(self):
        return self.subtype is not None

    @property
    def is_message(self):
        return self.inner is not None

    @property
    def is_text(self):
        """Of a leaf: its line ends are those of text. The type counts as it is written."""
        return "/" not in self.kind or self.kind.startswith("text")


@dataclass
class Mail:
    text: bytes  # as it goes through the dialogue, without its end line
    events: list
    refused: bool


def hide(events, begins):
    """A better alternative follows: what stands from here on is marked, of content files those before any package."""
    package_met = False
    for event in events[begins:]:
        if event[0] == "package":
            package_met = True
            event[3] |= HIDDEN_PACKAGE
        elif event[0] == "content" and not package_met:
            event[1]["flags"] |= HIDDEN_CONTENT


def with_crlf(octets):
    return re.sub(rb"\r*\n", b"\r\n", octets)


def with_line_feeds(octets):
    return re.sub(rb"\r*\n", b"\n", octets)


class Writer:
    def __init__(self, seed, setup):
        self.chance = random.Random(seed)
        self.setup = setup
        self.out = []
        self.events = []
        self.ended = False     # what follows is text of something that began before
        self.as_text = 0       # open multiparts that are kept whole
        self.kept_in = b""     # boundary line behind what is kept whole
        self.swallows = None   # (content event, where its body begins, the leaf's header): it takes all that follows
        self.copies = []       # of the multipart/signed that are open, or were never closed
        self.refused = False
        self.numbers = 0
        self.has_bare = False  # a multipart has no boundary: in another one, its lines would be the other's, too
        self.deep = self.rarely(0.01)
        self.budget = 150 if self.deep else self.pick((1, 3, 6, 12, 40))
        self.ends = self.pick(((b"\n",), (b"\r\n",), (b"\n", b"\r\n"), (b"\n", b"\r\n", b"\r\r\n")))

    # ---- Chance and lines

    def pick(self, choices):
        return self.chance.choice(choices)

    def rarely(self, share):
        return self.chance.random() < share

    def number(self):
        self.numbers += 1
        return self.numbers

    def eol(self):
        return self.pick(self.ends)

    def line(self, text=b""):
        self.out.append(text + self.eol())

    @property
    def counts(self):
        """What is written now becomes records."""
        return not self.ended and self.as_text == 0

    def note(self, *event):
        event = list(event)
        if self.counts:
            self.events.append(event)
        return event

    # ---- The message

    def mail(self):
        header = Header([b"From: s@example.com", b"Subject: message", b"MIME-Version: 1.0"], True)
        self.budget -= 1
        is_multipart = self.rarely(0.85)
        try:
            if is_multipart and self.rarely(0.01):
                self.add(header, b"Content-Type", [b"multipart/mixed"])
                self.refused = True  # nobody reads its text
                is_multipart = False
                self.describe_nothing(header)
            elif is_multipart:
                self.describe_multipart(header, None)
            else:
                self.describe_leaf(header, None)
            self.write_header(header)
            self.line()
            if is_multipart:
                self.multipart(header, None)
            else:
                self.leaf(header, None)
        except TextEnds:
            pass
        self.end_of_text(0)
        return Mail(self.stuffed(), [tuple(event) for event in self.events], self.refused)

    def end_of_text(self, copies):
        """Of all of it, or of the copy that this is the number of: what goes on until there is known now."""
        if self.swallows:
            event, begin, leaf = self.swallows
            rest = b"".join(self.out[begin:])
            event[2] = with_line_feeds(rest) if leaf and leaf.is_text else rest
            if leaf:
                event[1].update(self.labels(leaf, event[2]))
            self.swallows = None
        for copy in self.copies[copies:]:
            copy.event[2] = copy.head + with_crlf(b"".join(self.out[copy.begin:]))
        del self.copies[copies:]

    def describe_nothing(self, header):
        header.kind, header.encoding = "x/x", ""
        header.code = BINARY

    def stuffed(self):
        """Lines that begin with a dot get another; those that cannot be mistaken for anything may go without."""
        careless = self.rarely(0.3)

        def stuff(found):
            needs_none = careless and re.match(rb"\.[^.\r\n]", found[0]) and self.rarely(0.5)
            return found[0] if needs_none else b"." + found[0]

        return re.sub(rb"(?m)^\..?.?", stuff, b"".join(self.out))

    # ---- Header fields

    def any_case(self, text):
        return self.pick((text, text, text.upper(), text.lower()))

    def add(self, header, name, pieces):
        """A field of pieces between which it may be folded; its value as it is put together again: nothing stands where
        a part's header was folded, in a message's own one all blanks but the first do."""
        lines, value = [self.any_case(name) + self.pick((b": ", b": ", b":", b":  ", b":\t")) + pieces[0]], pieces[0]
        for piece in pieces[1:]:
            if self.rarely(0.4):
                blanks = self.pick((b" ", b"\t", b" \t  "))
                lines.append(blanks + piece)
                value += blanks[1:] * header.is_of_message + piece
            else:
                lines[-1] += b" " + piece
                value += b" " + piece
        header.lines += lines
        return value

    def write_header(self, header):
        for text in header.lines:
            self.line(text)

    def add_others(self, header):
        if not self.rarely(0.2):
            return
        others = [b"Content-Description: words", b"X-Other: 1", b"no colon here", b":", b"..dots: 1",
                  b"Content-MD5: Q2hlY2sgSW50ZWdyaXR5IQ==", b"X-Bytes: \xe4\xff", b".x: y"]
        header.lines.append(self.pick(others[:-1] if header.is_body else others))  # the last may lose its dot, or not
        if self.rarely(0.3):
            header.lines.append(b"\tgoes on")

    def add_place(self, header, level):
        """Identifier, and the location, which a part inherits from the one before it."""
        if self.rarely(0.15):
            level.location = b"http://example.org/%d" % self.number()
            self.add(header, b"Content-Location", [level.location])
        header.location = level.location
        if self.rarely(0.2):
            header.identifier = b"part%d@example.org" % self.number()
            shape = self.pick((b"<%s>", b"<%s> (words)", b"words <%s>", b"< %s>"))
            self.add(header, b"Content-ID", [shape % header.identifier])
        elif self.rarely(0.05):
            self.add(header, b"Content-ID", [b"without.brackets@example.org"])

    # ---- Multiparts

    def new_boundary(self):
        """The parameter and the text of a boundary."""
        if self.rarely(0.01) and not self.has_bare:
            self.has_bare = True
            return [], b""
        length = self.pick((1, 5, 30, 54, 55, 56, 200, 600)) if self.rarely(0.3) else 12
        quoted = self.rarely(0.6)
        letters = LETTERS + ("'()+_,-./:=? " if quoted else "'+_-.=")
        text = "".join(self.pick(letters) for _ in range(length)) + "%dx" % self.number()
        return [b'boundary="%s";' % text.encode() if quoted else b"boundary=%s;" % text.encode()], text.encode()

    def describe_multipart(self, header, parent):
        header.subtype = self.pick(SUBTYPES)
        parameters, header.boundary = self.new_boundary()
        takes_apart = parent is not None and parent.depth < self.setup.max_depth
        if takes_apart and self.counts and self.rarely(0.002):
            header.boundary = parent.marker[2:]
            parameters = [b'boundary="%s";' % header.boundary]
        if self.rarely(0.15):
            header.name = header.subject = b"name %d" % self.number()
            parameters.append(b'name="%s";' % header.name)
        if self.rarely(0.2) or not parameters:
            parameters.append(self.pick((b"type=text/html;", b'start="<a@b>";', b"x=;")))
        if header.subtype == "report" and self.rarely(0.5):
            parameters.append(b"report-type=x-unheard-of;")
        self.chance.shuffle(parameters)
        if b"x=;" in parameters[:-1]:
            self.swallow_parameter(header, parameters)
        if header.subtype.lower() == "signed" and not header.boundary:
            header.subtype = "mixed"  # any line of dashes would end what is kept whole
        parameters[-1] = parameters[-1][:-1]
        kind = self.any_case(b"multipart") + self.pick((b"/", b"/", b" / ")) + header.subtype.encode()
        header.content_type = self.add(header, b"Content-Type", [kind + self.pick((b";", b";", b" ;")), *parameters])

    def swallow_parameter(self, header, parameters):
        """A value that is empty takes the next parameter for its own, for whoever takes the multipart apart."""
        taken = parameters[parameters.index(b"x=;") + 1]
        if taken.startswith(b"boundary=") and self.has_bare:
            parameters.remove(b"x=;")
        elif taken.startswith(b"boundary="):
            header.boundary, self.has_bare = b"", True
        elif taken.startswith(b"name="):
            header.subject = b""

    def multipart(self, header, parent):
        """Everything behind the header of a multipart that is taken apart, but its epilogue's end."""
        subject = header.subject or (parent.subject if parent else b"message")
        kind = header.subtype.lower()
        level = Level(b"--" + header.boundary, subject, parent.depth + 1 if parent else 1, kind == "alternative",
                      kind == "digest")
        if parent is not None and level.marker == parent.marker and self.counts:
            self.refused = True
            raise TextEnds
        is_message_body = parent is None or header.is_body
        counts, content_header = self.counts, None if is_message_body else header.content()
        closing = self.open(header, level, is_message_body)
        try:
            self.preamble(level.marker)
            if self.rarely(0.005):
                raise TextEnds  # it never opens
            self.line(level.marker)
            if kind == "signed" and self.counts:
                self.signed(header, level)
            else:
                self.parts(level, content_header)
        finally:
            if counts and closing:
                self.events.append(closing)
        self.epilogue(b"--nobody's" if self.ended else level.marker)

    def open(self, header, level, is_message_body):
        """Notes the record that opens the level; returns the one that closes it."""
        kind = header.subtype.lower()
        if level.is_alternative:
            self.note("alternatives")
            return ["end of alternatives"]
        if kind == "report" or is_message_body and kind not in PACKAGE_FLAGS:
            return None
        self.note("package", *NESTED_PACKAGE, PACKAGE_FLAGS.get(kind, 0), level.subject, header.content_type)
        if not is_message_body:
            self.note("object", b"inetContentHeader", 1, True, header.content())
        return ["end of package"]

    def preamble(self, marker):
        for _ in range(self.pick((0, 0, 0, 1, 3))):
            self.line(self.pick((b"words", b"", b"x" * 2000, b"\0", marker + b" ", marker + b"\t", marker + b"--",
                                 marker + b"x", b" " + marker, marker[:-1], b"." + marker, b"x" * 1023 + marker, b"..", b".",
                                 marker.swapcase() + b".", b"Content-Type: text/plain")))

    def epilogue(self, marker):
        for _ in range(self.pick((0, 0, 0, 1, 3))):
            self.line(self.pick((b"words", b"", b"y" * 3000, b"\0\xff", b".", b"..", b"Content-Type: text/plain",
                                 marker, marker + b"--")))

    def parts(self, level, content_header):
        """The parts with the lines between them, and the line that closes them."""
        count = 1 if self.budget <= 0 or self.deep else self.chance.randrange(1, 5)
        begins = None  # where the records of the part before begin
        part = None
        for number in range(1, count + 1):
            last = number == count
            if part is not None and not part.without_parameters:
                self.separate(level, part, b"")
            part = self.describe_part(level, last)
            counts = self.counts
            if counts:
                self.swallows = None
            self.write_header(part)
            if counts and level.is_alternative and begins is not None:
                hide(self.events, begins)
            begins = len(self.events)
            try:
                if self.rarely(0.003):
                    raise TextEnds
                self.line()
                self.part(part, level)
            finally:
                if counts and level.is_alternative and number == 1 and content_header is not None:
                    self.events.append(["object", b"inetMimeAlternative", 0, False, content_header])
        self.close(level, part)

    def close(self, level, part):
        """The closing line. Without one, the last part goes on to the end of the message, whatever follows."""
        if self.as_text and self.rarely(0.1):
            return
        tail, _ = self.tail(part, level)
        if self.counts and self.goes_on(tail) and level.marker != b"--" and self.rarely(0.05):
            self.ended = True
            return
        if self.counts:
            self.swallows = None
        self.separate(level, part, b"--")

    # ---- Signed parts

    def signed(self, header, level):
        """The parts of a multipart/signed: the first becomes records, and all go into an item as they are. Of the
        second one the header counts."""
        copies, signature = len(self.copies), []
        parameters = header.content_type.split(b";", 1)[1].strip(b" \t").replace(b";", b";\r\n\t")
        head = b"Content-Type: multipart/signed;\r\n\t" + parameters + b"\r\n\r\n\r\n" + level.marker + b"\r\n"
        event = ["content", SIGNED_FIELDS, b""]
        self.copies.append(SignedCopy(event, len(self.out), head))
        try:
            tail = self.signed_parts(level, signature)
            self.close_signed(level, copies, tail)
        finally:
            self.events.append(event)
            for part in signature:
                self.events.append(["object", b"inetContentHeader", 0, False, part.content()])

    def signed_parts(self, level, signature):
        """Returns the part that the closing line follows, when it is the first one."""
        count = 1 if self.deep else self.pick((1, 2, 2, 2, 3))
        part = self.describe_part(level, count == 1)
        self.swallows = None
        self.write_header(part)
        if self.rarely(0.003):
            raise TextEnds
        self.line()
        self.part(part, level)
        if count == 1:
            return part
        if not part.without_parameters:
            self.separate(level, part, b"")
        is_read = self.counts
        if is_read:
            self.swallows = None
        self.as_text += 1
        self.kept_in = level.marker
        try:
            for number in range(2, count + 1):
                part = self.describe_part(level, True)
                if is_read and number == 2:
                    signature.append(part)
                self.write_header(part)
                self.line()
                self.part(part, level)
                if number < count:
                    self.line(level.marker)
        finally:
            self.as_text -= 1
        return None

    def close_signed(self, level, copies, only_part):
        """Only a line that is exactly the closing one ends the item. Nothing behind the message's end line is read."""
        takes_rest = only_part is None or self.ended or self.goes_on(self.tail(only_part, level)[0])
        if takes_rest and self.rarely(0.05):
            self.ended = True
            return
        if self.counts and only_part is not None:
            self.swallows = None
        begin = len(self.out)
        if only_part is None or self.ended:
            self.line(level.marker + b"--" + (b" " if self.rarely(0.05) else b""))
        else:
            self.separate(level, only_part, b"--")
        if self.out[begin].rstrip(b"\r\n") == level.marker + b"--":
            self.end_of_text(copies)
            self.ended = False
        else:
            self.ended = True

    def separate(self, level, part, dashes):
        """A boundary line: behind a leaf it may carry blanks; behind a multipart, and to close, it may be in any case."""
        marker = level.marker + dashes
        if self.rarely(0.1) and (dashes or not self.is_leaf(part, level)):
            marker = marker.swapcase()
        if self.rarely(0.1) and self.is_leaf(part, level):
            marker += self.pick((b" ", b"\t", b" \t "))
        self.line(marker)

    def goes_on(self, part):
        """Without a boundary line behind it, it takes what follows."""
        return not part.is_cut and (part.is_multipart or part.encoding not in DECODED)

    def tail(self, part, level):
        """What a part ends with: of a message its body."""
        while part.is_message and not part.is_cut:
            part, level = part.inner, part.inner_level
        return part, level

    def is_leaf(self, part, level):
        part, level = self.tail(part, level)
        return not part.is_multipart or level.depth >= self.setup.max_depth

    # ---- Parts

    def describe_part(self, level, last):
        header = Header()
        self.budget -= 1
        takes_apart = level.depth < self.setup.max_depth
        is_multipart = self.budget > 0 and self.rarely(0.98 if self.deep else 0.3)
        if is_multipart and takes_apart and not last and self.rarely(0.03):
            self.add(header, b"Content-Type", [b"multipart/" + self.pick((b"mixed", b"alternative", b"report"))])
            header.without_parameters, header.subtype = True, ""
            return header
        if takes_apart and self.rarely(0.1):
            self.describe_message(header, level)
        elif is_multipart:
            self.describe_multipart(header, level)
        else:
            self.describe_leaf(header, level)
        self.add_others(header)
        self.add_place(header, level)
        return header

    # ---- Encapsulated messages

    def describe_message(self, header, level):
        """The part's header, and that of the message in it."""
        if not level.is_digest or header.is_body or self.rarely(0.5):
            self.add(header, b"Content-Type", [self.any_case(b"message") + b"/" + self.any_case(b"rfc822")])
        if self.rarely(0.2):
            self.add(header, b"Content-Transfer-Encoding", [self.pick((b"7bit", b"8bit", b"binary", b"x-unheard-of"))])
        subject = b"inner %d" % self.number()
        inner = Header([b"From: inner@example.com", self.any_case(b"Subject") + b": " + subject], is_body=True)
        header.inner, header.inner_level = inner, Level(level.marker, subject, level.depth + 1)
        header.is_cut = self.rarely(0.05)
        self.budget -= 1
        takes_apart = header.inner_level.depth < self.setup.max_depth
        if takes_apart and self.rarely(0.15):
            self.describe_message(inner, header.inner_level)
        elif self.budget > 0 and self.rarely(0.4):
            self.describe_multipart(inner, header.inner_level)
        else:
            self.describe_leaf(inner, header.inner_level)
        self.add_others(inner)

    def message(self, header):
        """Everything behind the header of a part that is a message."""
        counts, level = self.counts, header.inner_level
        self.note("package", *NESTED_PACKAGE, 0, level.subject, b"")
        self.note("object", b"inetMessageHeader", 1, True, header.inner.content())
        if not header.is_body:
            self.note("object", b"inetContentHeader", 1, True, header.content())
        self.note("list", level.subject)
        try:
            self.write_header(header.inner)
            if header.is_cut:
                return
            if self.rarely(0.003):
                raise TextEnds
            self.line()
            self.part(header.inner, level)
        finally:
            if counts:
                self.events.append(["end of package"])

    def part(self, header, level):
        if header.without_parameters:
            return  # the next part's header follows at once
        if header.is_message:
            self.message(header)
        elif not header.is_multipart:
            self.leaf(header, level)
        elif self.is_leaf(header, level):
            self.kept_whole(header, level)
        else:
            self.multipart(header, level)

    def kept_whole(self, header, level):
        """A multipart that is too deep: one binary item, as it stands."""
        labels = {"type": BINARY, "pContentCharset": b"", "pMIMEContentType": header.content_type}
        event = self.note_leaf(header, level, labels)
        begin, whole = len(self.out), False
        if not self.as_text:
            self.kept_in = level.marker
        self.as_text += 1
        try:
            self.multipart(header, level)
            whole = True
        finally:
            self.as_text -= 1
            content = b"".join(self.out[begin:])
            event[2] = content.removesuffix(b"\n").rstrip(b"\r") if whole else content
            if self.counts:
                self.swallows = (event, begin, None)

    # ---- Leaves

    def describe_leaf(self, header, level):
        header.kind, header.code = self.pick(TYPES)
        if self.rarely(0.12):
            header.kind, header.code = self.pick(WITHOUT_SLASH), PLAIN
            if level is not None and level.is_digest:
                header.kind = "text"
        if self.rarely(0.1):
            header.kind = self.pick((header.kind.upper(), header.kind.title()))
        parameters = []
        if "/" in header.kind and header.code in (PLAIN, HTML) and self.rarely(0.7):
            header.charset = self.pick(CHARSETS)
            shape = self.pick((b"charset=%s;", b'charset="%s";', b"CHARSET=%s;", b'Charset = "%s";'))
            parameters.append(shape % header.charset[0].encode())
        if "/" in header.kind and self.rarely(0.1):
            parameters.append(self.pick((b"format=flowed;", b"x=y;", b'title="a b";')))
        of_disposition = self.give_name(header, parameters)
        if not header.is_body:  # of a message inside nothing is said of a disposition
            self.dispose(header, of_disposition)
        if header.kind:
            pieces = [header.kind.encode() + b";", *parameters]
            if not parameters or self.rarely(0.9):
                pieces[-1] = pieces[-1][:-1]
            header.content_type = self.add(header, b"Content-Type", pieces)
        header.encoding = self.pick(ENCODINGS)
        if header.encoding:
            shape = self.pick((b"%s", b"%s", b"%s (words)", b"(a (b)) %s "))
            self.add(header, b"Content-Transfer-Encoding", [shape % self.any_case(header.encoding.encode())])

    def give_name(self, header, of_type):
        """A file name in one of the two fields; the disposition's counts. Returns the disposition's parameters."""
        if not self.rarely(0.35):
            return []
        plain = self.pick(("file%d.bin", "a b %d.dat", "x-%d", "%d.tar.gz", "page%d.html")) % self.number()
        in_type = self.rarely(0.4) and "/" in header.kind
        if header.is_body and not in_type:
            return []
        pieces = self.name_parameter(header, b"name" if in_type else b"filename", plain)
        if in_type:
            of_type += pieces
            return []
        if "/" in header.kind and self.rarely(0.2):
            of_type.append(b'name="other.bin";')
        return pieces

    def name_parameter(self, header, name, plain):
        way = self.pick(("plain", "plain", "2231", "2231 in sections", "sections", "2047"))
        wide = self.pick(("é", "日本語", "𝄞", "ü" * 60)) + plain
        quoted = urllib.parse.quote(wide, safe="").encode()
        header.name = plain.encode() if way in ("plain", "sections") else wide
        header.is_page = plain.endswith(".html")
        if way == "plain":
            return [name + b'="' + plain.encode() + b'";']
        if way == "2231":
            return [name + b"*=" + self.pick((b"utf-8''", b"UTF-8'en'")) + quoted + b";"]
        if way == "2231 in sections":
            cut = self.chance.randrange(1, len(quoted))
            pieces = [name + b"*0*=utf-8''" + quoted[:cut] + b";", name + b"*1*=" + quoted[cut:] + b";"]
            return self.pick((pieces, pieces, pieces[::-1]))
        if way == "sections":
            cut = self.chance.randrange(1, len(plain))
            return [name + b'*0="' + plain[:cut].encode() + b'";', name + b'*1="' + plain[cut:].encode() + b'";']
        header.name = b"=?utf-8?b?" + b64encode(("é" + plain).encode()) + b"?="
        return [name + b'="' + header.name + b'";']

    def dispose(self, header, parameters):
        if not parameters and not self.rarely(0.3):
            return
        word = self.pick((b"attachment", b"attachment", b"inline", b"ATTACHMENT", b"x-something-very-long-indeed"))
        header.disposition = word[:DISPOSITION_LIMIT]
        for name, record in ((b"creation-date", CREATED), (b"modification-date", MODIFIED)):
            if self.rarely(0.15):
                parameters.append(b'%s="%s";' % (name, self.date(header, record)))
        pieces = [word + b";", *parameters]
        pieces[-1] = pieces[-1][:-1]
        self.add(header, b"Content-Disposition", pieces)

    def date(self, header, record):
        seconds, zone = self.chance.randrange(10**8, 2 * 10**9), self.pick((0, 60, -300, 330, -210, 720))
        header.dates.append(("date", record, seconds, zone))
        local = email.utils.formatdate(seconds + zone * 60).removesuffix("-0000")
        return f"{local}{'-' if zone < 0 else '+'}{abs(zone) // 60:02}{abs(zone) % 60:02}".encode()

    def octets(self, header):
        """Of a leaf; text is not always in the set that it says."""
        if header.code not in (PLAIN, HTML):
            return self.binary()
        if (header.charset is None or header.charset[1] in (ASCII_SET, "UTF8")) and self.rarely(0.03):
            return self.chance.randbytes(self.pick((1, 100, 2000)))
        codec = header.charset[2] if header.charset else self.pick(("ascii", "ascii", "utf-8"))
        count = self.pick((0, 1, 3, 10)) if not self.rarely(0.005) else self.pick((2000, 20000))
        only_ascii = codec == "ascii" or self.rarely(0.3)
        text = b"".join(self.text_line(codec, only_ascii) + self.eol() for _ in range(count))
        return text if self.rarely(0.5) else text.removesuffix(b"\n").rstrip(b"\r")

    def text_line(self, codec, only_ascii):
        words = self.pick(LINES) if self.rarely(0.5) else "words and words"
        return words.encode() + (b"" if only_ascii or self.rarely(0.3) else WORDS[codec].encode(codec))

    def binary(self):
        if self.rarely(0.5):
            lengths = (70000, 1200000) if self.rarely(0.01) else (0, 1, 2, 3, 45, 57, 3000)
            return self.chance.randbytes(self.pick(lengths))
        few = self.pick((b"\r\n", b"\r\na", b".\r\n", b"-\n", b"\0\n."))
        return bytes(self.pick(few) for _ in range(self.pick((1, 10, 1023, 1024, 3000))))

    def leaf(self, header, level):
        text = header.is_text
        octets = self.octets(header)
        body, end = self.body(header, octets, text)
        markers = ([level.marker] if level else []) + ([self.kept_in] if self.as_text else [])
        if any(self.holds_marker(body, marker) for marker in markers):
            octets = b""
            body, end = self.body(header, octets, text)
        event = self.note_leaf(header, level, self.labels(header, octets))
        begin = len(self.out)
        self.out.append(body)
        stops = level is None or self.rarely(0.003)
        decoded = header.encoding in DECODED
        content = octets if decoded or stops else octets.rstrip(b"\r")
        content += (b"\n" if text else end) if stops and end else b""
        event[2] = self.stored(content, decoded) if text else content
        if self.counts and not decoded:
            self.swallows = (event, begin, header)
        elif self.counts:
            self.swallows = None
        if stops:
            if self.counts:
                self.swallows = None
            raise TextEnds

    def stored(self, text, decoded):
        """Text with its line ends as they are kept. Of CRs that were encoded only one belongs to a line end."""
        return text.replace(b"\r\n", b"\n") if decoded else with_line_feeds(text)

    def body(self, header, octets, text):
        encoding = header.encoding
        if encoding == "base64":
            return encodings_of_bodies.base64_lines(octets, self.chance, self.eol)
        if encoding == "quoted-printable":
            return encodings_of_bodies.quoted(octets, self.chance, self.eol, text)
        if encoding in DECODED:
            return encodings_of_bodies.uuencoded(octets, self.chance, self.eol)
        return encodings_of_bodies.identity(octets, self.chance, self.eol)

    def holds_marker(self, body, marker):
        return re.search(rb"(?m)^" + re.escape(marker) + rb"(--)?[ \t]*\r*$", body) is not None

    def labels(self, header, octets):
        """Code, set and content type of the record of a leaf."""
        is_page = header.is_page and header.kind.lower() in ("application/octet-stream", *WITHOUT_SLASH)
        code = HTML if is_page else header.code
        label, charset = header.content_type, ""
        shifts = b"\x1b" in octets and header.charset is not None and header.charset[1] == "ISO2022JP"
        is_ascii = octets.isascii() and not shifts
        as_ascii = (b"text/html" if code == HTML else b"text/plain") + ASCII_LABEL
        if code not in (PLAIN, HTML):
            pass
        elif "/" not in header.kind:
            label, charset = as_ascii, ASCII_SET
        elif header.charset is None:
            label, charset = label.rstrip(b"; \t\r\n") + ASCII_LABEL, ASCII_SET
        elif is_ascii and header.charset[1] not in (ASCII_SET, UNKNOWN_SET):
            label, charset = as_ascii, ASCII_SET
        else:
            charset = header.charset[1]
        if charset and self.setup.detects and (not is_ascii or charset == UNKNOWN_SET):
            return {"type": code if code == HTML else ANY, "pContentCharset": ANY, "pMIMEContentType": ANY}
        if code == PLAIN and charset not in (ASCII_SET, LATIN_SET):
            code = OTHER_TEXT
        return {"type": code, "pContentCharset": charset.encode(), "pMIMEContentType": label}

    def note_leaf(self, header, level, labels):
        """The records of a leaf; the content event, whose octets the caller knows."""
        for date in header.dates:
            self.note(*date)
        fields = {"flags": 0, "pContentDisp": header.disposition, "pContentID": header.identifier,
                  "pContentLocation": header.location, "pOrigFileName": header.name,
                  "rfc2047subject": self.subject(header, level), **labels}
        event = self.note("content", fields, b"")
        if level is not None and not header.is_body:
            self.note("object", b"inetContentHeader", 0, False, header.content())
        return event

    def subject(self, header, level):
        """Of a leaf: its name, else what the level says. The detector doubts the sets of encoded words."""
        if not header.name:
            return b"message" if level is None else level.subject
        return ANY if self.setup.detects and (isinstance(header.name, str) or b"=?" in header.name) else header.name


def mail(seed, setup):
    return Writer(seed, setup).mail()
