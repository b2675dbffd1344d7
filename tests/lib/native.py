"""The native format, written and read without any of our C++: what tests compare the programs with.

Records are built field by field after the byte table of docs/native-format.md. A home, its store and its
queues are laid out by plain file operations.

    home = Home(path)                       # an existing home
    message = MessageBuilder()
    message.record(header()).record(subject("Hello"))
    message.text("Hello,\\nworld\\n")         # content-file record and item
    entry = home.queue(message)             # -> path of the queue entry

    for record in read_records(data): print(record.type, record.strings(16))
"""

import itertools
import os
import struct
import time

HEADER = 1100
CREATOR = 10000
P2_ORIGINATOR = 10005
SUBJECT = 11100
ITEM_CLASS = 11200
CREATED = 13000
MESSAGE_ID = 13100
RETURN_ADDRESS = 16100
LIST_COUNTS = 20010
LIST_FROM, LIST_TO, LIST_CC, LIST_BCC, LIST_SENDER, LIST_REPLY_TO = 22000, 22100, 22200, 22300, 22430, 22440
START_PACKAGE, END_PACKAGE = 30100, 39000
START_ALTERNATIVES, END_ALTERNATIVES = 30200, 39100
CONTENT_FILE = 30500
OBJECT_FILE = 30700
PROPERTIES = 30710
WRAPPED = 34500
RECIPIENT = 40000
ACKNOWLEDGEMENT = 42100
NON_DELIVERY = 42200
MESSAGE_FILE, FILE_ENTRY, QUEUE_ENTRY = 90, 91, 92

DISTRIBUTION_LIST, PLAIN_TEXT, MESSAGE_HEADER = 1166, 1167, 1168
OTHER_TEXT, HTML, TNEF, CALENDAR = 1736, 2133, 1734, 2191

CONTENT_STRINGS = (
    "latinSubject", "pOrigFileName", "pContentLang", "pContentCharset", "subjLang", "latinSubjCharset",
    "pX400_DataObjectId", "pX400_ParamsObjectId", "t61Subject", "t61SubjCharset", "pOrigCharset", "pApplicRef",
    "pMIMEContentType", "pContentDisp", "pContentID", "pContentLocation", "rfc2047subject")

RECORD_HEADER = 16


def to_bytes(text):
    return text if isinstance(text, bytes) else text.encode("utf-8")


class FormatError(Exception):
    """A file that is not a sequence of records."""


class Record:
    """One record being built, or read: put fields at offsets, read them back."""

    def __init__(self, kind, word=0):
        self.data = bytearray(RECORD_HEADER)
        struct.pack_into(">i", self.data, 4, kind)
        struct.pack_into(">H", self.data, 14, word)

    @classmethod
    def of(cls, data):
        record = cls(0)
        record.data = bytearray(data)
        return record

    @property
    def type(self):
        return self.get("i", 4)

    @property
    def word(self):
        return self.get("H", 14)

    def put(self, code, offset, value):
        """Stores an integer ('h', 'i', 'I', 'q' ... as in struct) and makes room for it."""
        end = offset + struct.calcsize(">" + code)
        self.data.extend(bytes(max(0, end - len(self.data))))
        struct.pack_into(">" + code, self.data, offset, value)
        return self

    def append(self, code, value):
        return self.put(code, len(self.data), value)

    def string(self, text, offset=None):
        """Stores a NUL-terminated string, after what is there unless an offset is given."""
        offset = len(self.data) if offset is None else offset
        self.data.extend(bytes(max(0, offset - len(self.data))))
        self.data[offset:] = to_bytes(text) + b"\0"
        return self

    def ref(self, offset, item):
        self.put("H", offset, item.domain).put("H", offset + 2, item.flags).put("I", offset + 4, item.sub_domain)
        self.put("Q", offset + 8, item.file_id)
        self.data[offset + 16:] = item.extension
        return self

    def get(self, code, offset):
        return struct.unpack_from(">" + code, self.data, offset)[0]

    def get_ref(self, offset):
        domain, flags, sub_domain, file_id = struct.unpack_from(">HHIQ", self.data, offset)
        return ItemRef(file_id, bytes(self.data[offset + 16:offset + 20]), domain, flags, sub_domain)

    def strings(self, offset, count=None):
        """The strings that stand one after the other from `offset`."""
        parts = bytes(self.data[offset:]).split(b"\0")[:-1]
        return parts if count is None else parts[:count]

    def wrapped(self):
        outer = Record(WRAPPED)
        outer.data += self.bytes()
        return outer

    def unwrapped(self):
        return Record.of(self.data[RECORD_HEADER:]) if self.type == WRAPPED else self

    def bytes(self):
        struct.pack_into(">I", self.data, 0, len(self.data))
        return bytes(self.data)


class ItemRef:
    def __init__(self, file_id, extension, domain=1, flags=0, sub_domain=0):
        self.file_id, self.extension, self.domain = file_id, to_bytes(extension), domain
        self.flags, self.sub_domain = flags, sub_domain

    def name(self):
        return "%016x.%s" % (self.file_id, self.extension.decode("latin-1"))

    def path(self):
        return "data/%d/%02x/%s" % (self.domain, self.file_id & 0xFF, self.name())

    def __eq__(self, other):
        return self.__dict__ == other.__dict__

    def __repr__(self):
        return "ItemRef(%s)" % self.path()


def read_records(data):
    """Splits the bytes of a record file; raises FormatError with the offset of what is no record."""
    records, at = [], 0
    while at < len(data):
        if len(data) - at < RECORD_HEADER:
            raise FormatError("offset %d: %d bytes are left" % (at, len(data) - at))
        size = struct.unpack_from(">I", data, at)[0]
        if size < RECORD_HEADER or size > len(data) - at:
            raise FormatError("offset %d: size %d" % (at, size))
        records.append(Record.of(data[at:at + size]))
        at += size
    return records


# ---- builders, one for each record of the table


def header(tf_class=0, kind=0, flags=0, hops=0, mime_type=""):
    record = Record(HEADER).put("h", 16, 3).put("h", 18, 0).put("h", 20, tf_class).put("h", 22, kind)
    record.put("i", 24, flags).put("i", 28, 1).put("i", 32, hops).put("i", 42, 2)
    return record.string(mime_type, 54) if mime_type else record


def creator(name, kind=CREATOR):
    return Record(kind).put("i", 20, 0).put("h", 24, 0).string(name, 36)


def subject(text):
    record = Record(SUBJECT).string(text, 16)
    for _ in range(4):
        record.string("")
    return record.append("i", 0)


def item_class(text):
    return Record(ITEM_CLASS).string(text, 16)


def date(seconds, zone=0, kind=CREATED):
    return Record(kind).put("i", 16, seconds).put("h", 20, zone)


def message_id(identifier, transport=None):
    record = Record(MESSAGE_ID).string(identifier, 18)
    return record.string(transport if transport is not None else identifier)


def reference(identifier, kind):
    return Record(kind).string(identifier, 18)


def return_address(name):
    return Record(RETURN_ADDRESS).string(name, 24)


def list_counts(from_=0, to=0, cc=0, bcc=0, sender=0, reply_to=0):
    total = from_ + to + cc + bcc + sender + reply_to
    record = Record(LIST_COUNTS, word=40).put("i", 16, 0 if bcc else 1).put("h", 20, total)
    record.put("h", 22, from_).put("h", 24, to).put("h", 26, cc).put("h", 28, bcc).put("h", 30, 0).put("i", 32, 0)
    return record.put("h", 36, sender).put("h", 38, reply_to)


def list_entry(name, kind=LIST_TO):
    return Record(kind, word=40).put("i", 16, 0).put("h", 20, 0).put("h", 22, 0).string(name, 24)


def start_package(subject_text="", flags=0, mime_type="", kind=3, qn_kind=-100):
    record = Record(START_PACKAGE).put("i", 16, kind).put("i", 20, 0)
    for _ in range(3):
        record.string("")
    return record.append("i", flags).append("i", qn_kind).append("h", 0).string(mime_type).string(subject_text)


def content_file(code, size, flags=0, **strings):
    record = Record(CONTENT_FILE).put("i", 16, code).put("i", 20, code).put("I", 24, flags).put("i", 28, size)
    unknown = set(strings) - set(CONTENT_STRINGS)
    assert not unknown, unknown
    for name in CONTENT_STRINGS:
        record.string(strings.get(name, ""))
    return record


def object_file(name, content, number=1):
    record = Record(OBJECT_FILE).put("i", 16, number).put("I", 20, len(content)).string(name, 24)
    record.data += to_bytes(content)
    return record


def properties(text, flags1=0, flags2=0, relations=0):
    return Record(PROPERTIES).put("i", 16, flags1).put("i", 20, flags2).put("h", 24, relations).string(text, 26)


def recipient(name, number=1, category=1, flags=0):
    record = Record(RECIPIENT).put("H", 16, flags | category << 5).put("h", 20, number)
    return record.string("", 22).string("").string(name)


def acknowledgement(name, flags=4, original=None):
    record = Record(ACKNOWLEDGEMENT).put("H", 16, flags).string(name, 24)
    if original is None:
        return record
    for _ in range(4):
        record.string("")
    return record.string(original)


def non_delivery(name, reason, original=None):
    record = Record(NON_DELIVERY).put("h", 22, reason).string(name, 24)
    return record if original is None else record.append("h", 0).append("h", 0).string(original)


# ---- messages and homes


class MessageBuilder:
    """A message in the making: the records of its transfer file and the contents of its attached files, in order."""

    def __init__(self, route=""):
        self.records, self.files, self.route = [], [], route

    def record(self, record):
        self.records.append(record)
        return self

    def attach(self, content_record, data, extension="item", wrap=False):
        self.records.append(content_record.wrapped() if wrap else content_record)
        self.files.append((to_bytes(data), extension))
        return self

    def names(self, records, subject_text=""):
        """The message's list of names; `records` begins with its header and counts."""
        data = b"".join(record.bytes() for record in records)
        return self.attach(content_file(DISTRIBUTION_LIST, 0, 2, rfc2047subject=subject_text), data, "tran")

    def text(self, data, code=PLAIN_TEXT, charset="IA5", flags=0, wrap=False, **strings):
        data = to_bytes(data)
        strings.setdefault("pMIMEContentType", "text/plain")
        return self.attach(content_file(code, len(data), flags, pContentCharset=charset, **strings), data, wrap=wrap)

    def transfer_file(self):
        return b"".join(record.bytes() for record in self.records)


class Home:
    def __init__(self, path):
        self.path = str(path)

    _running = itertools.count(1)

    def file(self, relative):
        return os.path.join(self.path, relative)

    def new_id(self):
        """An id that no gateway hands out now: the clock of an earlier year."""
        return (next(self._running) << 12 | next(self._running) & 0xFF) + (1 << 40)

    def store(self, data, extension="item", domain=1):
        item = ItemRef(self.new_id(), extension, domain)
        with open(self.file(item.path()), "wb") as file:
            file.write(to_bytes(data))
        return item

    def store_message(self, message):
        """Writes all files of a message; returns the reference of its message file."""
        main = self.store(message.transfer_file(), "tran")
        files = [main] + [self.store(data, extension) for data, extension in message.files]
        records = [Record(MESSAGE_FILE).put("i", 16, 1).string(message.route, 20)]
        records += [Record(FILE_ENTRY).ref(16, item) for item in files]
        return self.store(b"".join(record.bytes() for record in records), "mesg")

    def queue(self, *messages, priority=0, queue="ROUTER", seconds=1_700_000_000, folder="new"):
        """Queues messages in one entry; returns its name."""
        rank = {2: 0, 0: 1, 1: 2}[priority]
        name = "%d-%020d-%d-%d" % (rank, time.time_ns(), os.getpid(), next(self._running))
        references = [self.store_message(message) for message in messages]
        records = [Record(QUEUE_ENTRY).ref(16, ref).put("i", 36, priority).put("q", 40, seconds) for ref in references]
        with open(self.file(os.path.join("queues", queue, folder, name)), "wb") as file:
            file.write(b"".join(record.bytes() for record in records))
        return name

    def entries(self, queue="ROUTER", folder="new"):
        return sorted(os.listdir(self.file(os.path.join("queues", queue, folder))))

    def read(self, item):
        with open(self.file(item.path()), "rb") as file:
            return file.read()

    def messages_of(self, entry, queue="ROUTER", folder="new"):
        """The messages of an entry: for each, the references of its files, the main transfer file first."""
        with open(self.file(os.path.join("queues", queue, folder, entry)), "rb") as file:
            refs = [record.get_ref(16) for record in read_records(file.read())]
        found = []
        for ref in refs:
            records = read_records(self.read(ref))
            found.append([record.get_ref(16) for record in records if record.type == FILE_ENTRY])
        return found

    def items(self):
        """Every file of the store, below the home."""
        found = []
        for folder, _, names in os.walk(self.file("data")):
            found += [os.path.relpath(os.path.join(folder, name), self.path) for name in names]
        return sorted(found)
