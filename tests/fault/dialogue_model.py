"""What the gateway must answer to a dialogue: a second, small statement of the rules, to compare the gateway with.

It knows plain mail that is taken, not the conversion: every text that is read to its end line is accepted.
"""

import re
import socket
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
COMMAND_LIMIT = 2048

GREETING, HELLO, BAD_SEQUENCE, OK, START_INPUT = 1403, 1404, 1405, 1406, 1407
NOT_RECOGNISED, CLOSING, NO_EXTENDED_HELLO = 1408, 1409, 1426
END_IN_TEXT, END_IN_COMMANDS, LOCAL_ERROR = 1401, 1402, 1424

WITHOUT_ARGUMENT = {b"DATA": "data", b"QUIT": "quit", b"RSET": "reset", b"NOOP": "noop"}
HELLOS = {b"HELO": HELLO, b"EHLO": NO_EXTENDED_HELLO}
PATHS = {b"MAIL": (b"FROM", "mail"), b"RCPT": (b"TO", "recipient")}


def catalog():
    """The reply texts by number, as this host gives them."""
    source = (ROOT / "share/nls/C/unix.msg").read_text(encoding="utf-8")
    texts = re.findall(r'^(\d+) "([2345]\d\d .*)"$', source, re.MULTILINE)
    return {int(number): text.replace("%s", socket.gethostname()) for number, text in texts}


REPLY = catalog()


@dataclass
class Outcome:
    replies: list = field(default_factory=list)  # numbers
    status: int = 0
    accepted: int = 0  # messages

    def text(self):
        return "".join(REPLY[number] + "\n" for number in self.replies).encode()


class InputEnded(Exception):
    pass


def classify(line):
    """The command that a line is; None when it is none."""
    word, rest = line[:4].upper(), line[4:]
    if len(line) > COMMAND_LIMIT:
        return None
    if word in WITHOUT_ARGUMENT:
        return None if rest.strip(b" \t") else WITHOUT_ARGUMENT[word]
    if word in HELLOS:
        return HELLOS[word] if not rest or rest[:1] in b" \t" else None
    if word in PATHS:
        parameter, name = PATHS[word]
        if re.match(rb"[ \t]*" + parameter + rb"[ \t]*:", rest, re.IGNORECASE):
            return name
    return None


class Session:
    def __init__(self, data):
        self.data, self.at = data, 0
        self.outcome = Outcome([GREETING])
        self.sender = self.recipients = False

    def next_line(self, needs_line_end):
        """A line without its end. The last one may lack it: a command then holds, an end line does not."""
        if self.at == len(self.data):
            raise InputEnded
        end = self.data.find(b"\n", self.at)
        if end == -1:
            line, self.at = self.data[self.at :], len(self.data)
            return b"?" if needs_line_end else line
        line, self.at = self.data[self.at : end], end + 1
        return line.rstrip(b"\r")

    def run(self):
        out = self.outcome
        try:
            while self.step():
                pass
        except InputEnded:
            out.replies.append(END_IN_TEXT if out.replies[-1] == START_INPUT else END_IN_COMMANDS)
            out.status = 1
        return out

    def step(self):
        command = classify(self.next_line(False).replace(b"\0", b" "))
        reply = self.answer(command)
        if reply in (BAD_SEQUENCE, NOT_RECOGNISED):
            self.outcome.status = 1
        self.outcome.replies.append(reply)
        if reply == START_INPUT:
            self.read_text()
        return reply != CLOSING

    def answer(self, command):
        if command is None:
            return NOT_RECOGNISED
        if isinstance(command, int):
            return command
        if command == "quit":
            return CLOSING
        if command == "mail":
            self.sender = True
        elif command == "recipient":
            if not self.sender:
                return BAD_SEQUENCE
            self.recipients = True
        elif command == "reset":
            self.sender = self.recipients = False
        elif command == "data":
            return START_INPUT if self.sender and self.recipients else BAD_SEQUENCE
        return OK

    def read_text(self):
        while self.next_line(True) != b".":
            pass
        self.sender = self.recipients = False
        self.outcome.accepted += 1
        self.outcome.replies.append(OK)


def expect(data):
    return Session(data).run()
