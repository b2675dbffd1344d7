"""Bounces and notifications of the corpus: native reports or ordinary mail, never neither and never both.

Every multipart/report goes through three ways: as it is, as it is where reports are never converted, and as if it
answered a message of this mail system. What is not converted must be, record by record and item by item, what comes
where no report ever is; what is converted must name exactly the recipients that Python's own parser finds.
"""

import email
import email.policy
import re
import struct
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor

from gateway_home import Home, records

TIMEOUT = 60
OWN_ID = b"MV0123456789ABCDEF"
HEADER, CREATED, WRAPPED, ACKNOWLEDGEMENT, NON_DELIVERY = 1100, 13000, 34500, 42100, 42200
REPORT_CLASS = 1
RECENT = 3600  # seconds: a date that the gateway gave a mail without one

REPORT = re.compile(rb"^Content-Type:[ \t]*(\r?\n[ \t]+)*multipart/report", re.IGNORECASE | re.MULTILINE)
BEFORE_FIELDS = re.compile(rb"^(Content-Type:[ \t]*message/delivery-status[^\n]*\n(?:[^\r\n]+\r?\n)*\r?\n)(\r?\n)*",
                           re.IGNORECASE | re.MULTILINE)
MESSAGE_ID = re.compile(rb"^Original-Message-ID:[^\n]*\n", re.IGNORECASE | re.MULTILINE)


def header_of(data):
    return re.split(rb"\r?\n\r?\n", data, maxsplit=1)[0]


def is_report(path):
    return path.is_file() and REPORT.search(header_of(path.read_bytes())) is not None


def as_if_ours(data):
    """The report with the identifier of a message of ours in it."""
    data = BEFORE_FIELDS.sub(rb"\1Original-Envelope-Id: " + OWN_ID + rb"\n", data, count=1)
    return MESSAGE_ID.sub(b"Original-Message-ID: <" + OWN_ID + b"@MHS>\n", data)


def without_fields_of_their_own(data):
    """A second Original-Envelope-Id would hold instead of the one put in."""
    return re.sub(rb"^Original-Envelope-Id:[^\n]*\n", b"", data, flags=re.IGNORECASE | re.MULTILINE)


def dialogue(data):
    text = re.sub(rb"(^|\n)\.", rb"\1..", data)
    text += b"" if text.endswith(b"\n") else b"\n"
    return b"HELO a\nMAIL FROM:<s@corpus.example>\nRCPT TO:<r@corpus.example>\nDATA\n" + text + b".\nQUIT\n"


def told(kind, record):
    """A record as it is compared: a date of just now is any, also one in a wrapped record."""
    inner = record[16:] if kind == WRAPPED else record
    if struct.unpack_from(">i", inner, 4)[0] == CREATED:
        if abs(struct.unpack_from(">I", inner, 16)[0] - time.time()) < RECENT:
            return kind, b"now"
    return kind, record


class Message:
    def __init__(self, home, path):
        transfer, *files = home.files_of(path)
        self.records = [told(kind, record) for kind, record in records(transfer.read_bytes())]
        self.files = [file.read_bytes() for file in files]

    def is_native_report(self):
        kind, record = self.records[0]
        return kind == HEADER and struct.unpack_from(">h", record, 20)[0] == REPORT_CLASS

    def content(self):
        return self.records, self.files


def convert(home, data):
    """What one session makes of a report: the reply to it, and the messages of the one entry that it may leave."""
    try:
        done = home.gateway(dialogue(data), timeout=TIMEOUT)
    except subprocess.TimeoutExpired:
        return "no end", []
    replies = done.stdout.split(b"\n")
    reply = replies[5].decode(errors="backslashreplace") if len(replies) > 5 else done.stdout[-200:].decode(errors="replace")
    entries = home.entries()
    if len(entries) != (1 if reply.startswith("250") else 0) or done.stderr:
        return f"{reply!r} and {len(entries)} entries, {done.stderr[:1000]!r}", []
    messages = [Message(home, path) for entry in entries for path in home.messages(entry)]
    for path in sorted(home.queued_files()) + entries:
        path.unlink()
    left = home.left_behind()
    return (f"left behind: {left}" if left else reply), messages


def recipients_of(data):
    """The addresses that a delivery status notification names, by another parser; none when it is something else."""
    report = email.message_from_bytes(data, policy=email.policy.compat32)
    for part in report.walk():
        if part.get_content_type() == "message/delivery-status" and part.is_multipart():
            values = [block["final-recipient"] for block in part.get_payload() if "final-recipient" in block]
            return [re.sub(r"\r?\n[ \t]+", "", value).partition(";")[2].strip() for value in values]
    return []


def unnamed(messages, data):
    """What is wrong with the recipients of native reports. Text that is no address has no native name, and no record."""
    entries = [record for message in messages for kind, record in message.records if kind in (ACKNOWLEDGEMENT, NON_DELIVERY)]
    named = recipients_of(data)
    plain = [address for address in named if re.fullmatch(r"[\w.+=-]+@[\w.-]+", address, re.ASCII)]
    missing = [address for address in plain if not any(b"/IA=" + address.encode() + b"\0" in entry for entry in entries)]
    if missing or (named and not len(plain) <= len(entries) <= len(named)):
        return f"{len(entries)} recipients, {named} are named"
    return None


def faults_of(path, converting, keeping):
    data = path.read_bytes()
    ours = as_if_ours(without_fields_of_their_own(data))
    for what, text in (("as it is", data), ("as if ours", ours)):
        reply, messages = convert(converting, text)
        plain_reply, plain = convert(keeping, text)
        if not reply.startswith("2") or not plain_reply.startswith("2"):
            if reply != plain_reply:
                yield f"{what}: {reply}; without conversion: {plain_reply}"
            continue
        native = [message.is_native_report() for message in messages]
        if [message.is_native_report() for message in plain] != [False]:
            yield f"{what}: a native report although none is wanted"
        elif all(native):
            if what == "as it is":
                yield "a stranger's report became a native one"
            elif wrong := unnamed(messages, text):
                yield f"{what}: {wrong}"
        elif any(native) or len(messages) != 1:
            yield f"{what}: native report and mail both"
        elif messages[0].content() != plain[0].content():
            yield f"{what}: not the mail that it is where reports are not converted"
        yield native


def check(files, jobs):
    """(faults, reports, conversions) of the reports among the files."""
    reports = [path for path in files if is_report(path)]
    shares = [reports[number::jobs] for number in range(jobs)]

    def run(share):
        found = []
        with Home() as converting, Home() as keeping:
            for home in (converting, keeping):
                home.configure('INET_LOCAL_DOMAINS = "corpus.example"')  # a report to a stranger is only passed on
            keeping.configure("UXI_NO_CONVERT_REPORTS = true")
            for path in share:
                found += [(path, fault) for fault in faults_of(path, converting, keeping)]
        return found

    with ThreadPoolExecutor(jobs) as pool:
        outcomes = [outcome for share in pool.map(run, shares) for outcome in share]
    faults = [f"{path.name}: {fault}" for path, fault in outcomes if isinstance(fault, str)]
    converted = sum(all(native) for _, native in outcomes if isinstance(native, list))
    return faults, len(reports), converted
