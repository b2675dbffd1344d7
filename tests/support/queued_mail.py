"""What waits on the ROUTER queue of a home, read from the bytes on disk: for tests that compare it with the mail that
was sent."""

import re
import struct
from dataclasses import dataclass, field

from gateway_home import RECORD_MESSAGE_FILE, item_path, records

RECORD_HEADER = 1100
RECORD_CREATOR = 10000
RECORD_MESSAGE_ID = 13100
RECORD_OBJECT = 30700
RECORD_RECIPIENT = 40000

HEADER_FLAGS_AT = 24
MESSAGE_ID_AT = 18
CREATOR_NAME_AT = 36
RECIPIENT_FLAGS_AT = 16
RECIPIENT_STRINGS_AT = 22
OBJECT_LENGTH_AT, OBJECT_NAME_AT = 20, 24


def strings(data, at, count=1):
    """`count` NUL-terminated strings from offset `at`, and the offset after them."""
    found = []
    for _ in range(count):
        end = data.index(b"\0", at)
        found.append(data[at:end])
        at = end + 1
    return found, at


def name_fields(name):
    """The fields of a native name, by keyword."""
    delimiter = re.escape(name[:1])
    fields = re.findall(delimiter + rb"([A-Z0-9.a-z-]+)=((?:\\.|(?!" + delimiter + rb").)*)", name, re.DOTALL)
    return {keyword.decode(): re.sub(rb"\\(.)", rb"\1", value, flags=re.DOTALL) for keyword, value in fields}


def address(name):
    """The Internet address that a native name carries, without phrase and angle brackets."""
    text = name_fields(name).get("IA", b"").decode(errors="replace").strip()
    bracketed = re.search(r"<([^<>]*)>$", text)
    return bracketed[1] if bracketed else text


@dataclass
class QueuedMail:
    sender: str  # Internet address of the creator
    recipients: list  # Internet addresses of the recipient records, in order
    header: bytes  # the stored header, CR LF line ends
    parts: list  # contents of the body parts
    flags: int = 0  # of the header record
    transport_id: str = ""
    recipient_flags: list = field(default_factory=list)

    def field(self, name):
        """Value of a header field, unfolded; None when there is none."""
        lines = self.header.replace(b"\r\n", b"\n")
        found = re.search(rb"(?im)^" + name.encode() + rb":[ \t]*((?:.|\n[ \t])*)$", lines)
        return re.sub(rb"\n[ \t]+", b" ", found[1]).decode(errors="replace").strip() if found else None


def object_content(record):
    (length,) = struct.unpack_from(">I", record, OBJECT_LENGTH_AT)
    (name,), at = strings(record, OBJECT_NAME_AT)
    return name, record[at : at + length]


def read_message(home, message_file):
    files = [home.path / item_path(record) for kind, record in records(message_file.read_bytes())
             if kind == RECORD_MESSAGE_FILE]
    transfer, _lists, *parts = files
    mail = QueuedMail("", [], b"", [part.read_bytes() for part in parts])
    for kind, record in records(transfer.read_bytes()):
        if kind == RECORD_HEADER:
            (mail.flags,) = struct.unpack_from(">i", record, HEADER_FLAGS_AT)
        elif kind == RECORD_MESSAGE_ID:
            mail.transport_id = strings(record, MESSAGE_ID_AT, 2)[0][1].decode(errors="replace")
        elif kind == RECORD_CREATOR:
            mail.sender = address(strings(record, CREATOR_NAME_AT)[0][0])
        elif kind == RECORD_RECIPIENT:
            mail.recipients.append(address(strings(record, RECIPIENT_STRINGS_AT, 3)[0][2]))
            mail.recipient_flags += struct.unpack_from(">H", record, RECIPIENT_FLAGS_AT)
        elif kind == RECORD_OBJECT:
            name, content = object_content(record)
            if name == b"inetMessageHeader":
                mail.header = content
    return mail


def queued_mails(home):
    """Every message that waits, in order of service. A message that is not whole raises an error."""
    return [read_message(home, message) for entry in home.entries() for message in home.messages(entry)]
