"""What the gateway made of a message, as a list to compare: the records that stand for its body, in order.

    ("package", type, kind, flags, subject, MIME type)    ("end of package",)
    ("alternatives",)                                     ("end of alternatives",)
    ("date", record type, seconds, zone)                  ("object", name, number, wrapped, content)
    ("content", {field: value}, octets of the item)       ("list", subject)    of an encapsulated message
"""

import os

import native

CONTENT_FIELDS = ("pOrigFileName", "pContentCharset", "pMIMEContentType", "pContentDisp", "pContentID",
                  "pContentLocation", "rfc2047subject")
SAYS_NOTHING = {native.HEADER, native.CREATOR, native.P2_ORIGINATOR, native.SUBJECT, native.CREATED, native.RECIPIENT,
                native.MESSAGE_ID}
ADDRESS_LIST = 1166
DATES = (30600, 30605)
MESSAGE_HEADER = b"inetMessageHeader"


def content_event(record, octets):
    names = dict(zip(native.CONTENT_STRINGS, record.strings(32)))
    fields = {name: names[name] for name in CONTENT_FIELDS}
    fields["type"], fields["flags"] = record.get("i", 20), record.get("I", 24)
    others = sorted(name for name, value in names.items() if value and name not in CONTENT_FIELDS)
    if others or record.get("i", 28) != len(octets):
        fields["odd"] = (others, record.get("i", 28))
    return ("content", fields, octets)


def list_event(record):
    """The addresses of an encapsulated message: a file that its record says no size of."""
    subject = dict(zip(native.CONTENT_STRINGS, record.strings(32)))["rfc2047subject"]
    return ("list", subject) if record.get("i", 28) == 0 else ("list", subject, record.get("i", 28))


def package_event(record):
    at = 24 + sum(len(text) + 1 for text in record.strings(24, 3))
    mime_type, subject = record.strings(at + 10, 2)
    return ("package", record.get("i", 16), record.get("i", at + 4), record.get("i", at), subject, mime_type)


def object_event(outer):
    record = outer.unwrapped()
    (name,) = record.strings(24, 1)
    at, length = 24 + len(name) + 1, record.get("I", 20)
    return ("object", name, record.get("i", 16), outer.type == native.WRAPPED, bytes(record.data[at:at + length]))


def events(records, items):
    """The records of a main transfer file with its attached files, the list of names left out of both."""
    found, rest = [], iter(items)
    for record in records:
        kind = record.unwrapped().type
        if kind == native.CONTENT_FILE:
            octets = next(rest)
            if record.get("i", 20) == ADDRESS_LIST and record.get("I", 24) == 0:
                found.append(list_event(record))
            elif record.get("I", 24) != 2:
                found.append(content_event(record, octets))
        elif kind == native.START_PACKAGE:
            found.append(package_event(record))
        elif kind == native.OBJECT_FILE:
            if record.strings(24, 1) != [MESSAGE_HEADER]:
                found.append(object_event(record))
        elif kind in DATES:
            found.append(("date", kind, record.get("i", 16), record.get("h", 20)))
        elif kind == native.END_PACKAGE:
            found.append(("end of package",))
        elif kind == native.START_ALTERNATIVES:
            found.append(("alternatives",))
        elif kind == native.END_ALTERNATIVES:
            found.append(("end of alternatives",))
        elif kind not in SAYS_NOTHING:
            found.append(("record", kind, record.bytes()))
    if list(rest):
        found.append(("items without a record",))
    return found


def take(home, entry):
    """The events of the one message of a queue entry; entry and files are removed, as a consumer would."""
    path = home.file("queues/ROUTER/new/" + entry)
    with open(path, "rb") as file:
        (message,) = [record.get_ref(16) for record in native.read_records(file.read())]
    refs = [record.get_ref(16) for record in native.read_records(home.read(message))
            if record.type == native.FILE_ENTRY]
    main, *items = [home.read(ref) for ref in refs]
    for name in [path, *(home.file(ref.path()) for ref in [message, *refs])]:
        os.unlink(name)
    return events(native.read_records(main), items)
