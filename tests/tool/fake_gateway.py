#!/usr/bin/env python3
"""A gateway that only keeps a record: what it was told goes to $FAKE_LOG/<process>, byte for byte.

It refuses, dies or falls silent where $FAKE_RULES says so: a Python expression over `text` (the message text as
received) or over `command`, giving a reply, or "die", or None for the usual reply.
"""

import os
import sys

log = open(os.path.join(os.environ["FAKE_LOG"], str(os.getpid())), "ab", buffering=0)
command_rule = os.environ.get("FAKE_COMMANDS", "None")
text_rule = os.environ.get("FAKE_TEXTS", "None")
stdin, stdout = sys.stdin.buffer, sys.stdout.buffer
keep = os.environ.get("FAKE_KEEP", "1") == "1"


def say(text):
    stdout.write(text.encode() + b"\r\n")
    stdout.flush()


def read_text():
    lines = []
    size = 0
    for line in stdin:
        if line.rstrip(b"\r\n") == b"." and line.endswith(b"\n"):
            return b"".join(lines)
        size += len(line)
        if keep:
            lines.append(line)
    log.write(b"<cut off after %d bytes>\n" % size)
    sys.exit(1)


def answer(rule, usual, **names):
    reply = eval(rule, {"os": os, "len": len}, names)  # the rules are the test's own
    if reply == "die":
        os._exit(7)
    say(reply or usual)
    if (reply or usual)[0] in "45":
        refusal = reply
        for line in stdin:
            if line.strip() == b"QUIT":
                log.write(b"QUIT after a refusal\n")
                say("221 bye")
                sys.exit(1)
            say(refusal)
        sys.exit(1)


answer(command_rule, "220 ready", command="greeting")
for raw in stdin:
    log.write(raw)
    word = raw.decode("latin-1").strip()
    if word == "QUIT":
        say("221 bye")
        break
    if word == "DATA":
        answer(command_rule, "354 go on", command=word)
        text = read_text()
        log.write(b"[" + text + b"]\n")
        answer(text_rule, "250 ok", text=text)
    else:
        answer(command_rule, "250 ok", command=word)
