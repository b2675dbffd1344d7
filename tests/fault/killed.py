"""SIGKILL at random moments while sixteen gateways share one home, a consumer takes mail from the queue and the
operator repairs the home: what was acknowledged is there, whole and once; what was not acknowledged is there whole and
once, or not at all; and what the dead left behind can be reclaimed."""

import json
import random
import signal
import threading
import time
from collections import Counter

from gateway_home import Home
from process import Gateway, check_fsck, check_home
from queued_mail import queued_mails, read_message

GATEWAYS = 16
SECONDS = 10
LONGEST_LIFE = 0.25  # seconds; a session of a few mails takes less


def body(identifier, chance):
    """A body that can be told from every other one, sometimes with items, sometimes larger than stays in memory."""
    line = f"{identifier} ".encode() * 3 + b"\n"
    text = line * chance.choice((1, 10, 1000, 5000))
    if chance.random() < 0.4:
        text += b"begin 644 item\n" + (b"M" + b"5" * 60 + b"\n") * chance.choice((1, 50, 1500)) + b"`\nend\n" + line
    return text


class Agent(threading.Thread):
    """Starts gateways one after another and sends mail through each until it is killed or has had enough."""

    def __init__(self, home, number, until):
        super().__init__()
        self.home, self.number, self.until = home, number, until
        self.chance = random.Random(number)
        self.sent, self.acknowledged, self.kills, self.faults = {}, set(), 0, []

    def run(self):
        while time.monotonic() < self.until:
            try:
                self.one_gateway()
            except Exception as error:
                self.faults.append(f"{type(error).__name__}: {error}")
                return

    def one_gateway(self):
        with Gateway(self.home) as gateway:
            timer = threading.Timer(self.chance.random() * LONGEST_LIFE, gateway.process.kill)
            timer.start()
            try:
                self.session(gateway)
            except BrokenPipeError:
                pass  # it was killed
            timer.cancel()
            timer.join()
            status = gateway.process.wait()
            self.kills += status == -signal.SIGKILL
            if status not in (0, -signal.SIGKILL):
                self.faults.append(f"exit {status}: {gateway.process.stderr.read()[:500]!r}")

    def session(self, gateway):
        if not gateway.reply() or not gateway.ask("HELO a"):
            return
        for _ in range(self.chance.randrange(1, 8)):
            identifier = f"mail-{self.number}-{len(self.sent)}"
            text = body(identifier, self.chance)
            gateway.ask("MAIL FROM:<s@example.com>")
            gateway.ask(f"RCPT TO:<{identifier}@example.org>")
            if not gateway.ask("DATA"):
                return
            self.sent[identifier] = text
            gateway.write(b"Subject: " + identifier.encode() + b"\n\n" + text + b".\n")
            reply = gateway.reply()
            if reply.startswith("250"):
                self.acknowledged.add(identifier)
            elif reply:
                self.faults.append(f"{identifier} was answered {reply!r}")
            if not reply:
                return
        gateway.ask("QUIT")


class Worker(threading.Thread):
    """Does one thing again and again until it is told to stop."""

    def __init__(self, home):
        super().__init__()
        self.home, self.faults, self.stopped = home, [], threading.Event()

    def run(self):
        while not self.stopped.is_set():
            try:
                self.work()
            except Exception as error:
                self.faults.append(f"{type(self).__name__}: {type(error).__name__}: {error}")
                return

    def stop(self):
        self.stopped.set()
        self.join()


class Consumer(Worker):
    """Takes the next entry, reads its mail, deletes it."""

    def __init__(self, home):
        super().__init__(home)
        self.consumed = []

    def work(self):
        took = self.home.morvane("queue", "take", "--json")
        if took.returncode != 0 or not took.stdout.strip():
            self.stopped.wait(0.05)
            return
        name = json.loads(took.stdout)["entry"]
        entry = self.home.path / "queues/ROUTER/cur" / name
        self.consumed += [read_message(self.home, message) for message in self.home.messages(entry)]
        done = self.home.morvane("queue", "done", name)
        if done.returncode != 0:
            self.faults.append(f"queue done {name}: {done.stderr[:500]!r}")


class Operator(Worker):
    """Checks and repairs the home next to the gateways: there is no damage, and nobody's files go."""

    def work(self):
        checked = self.home.morvane("fsck", "--home", str(self.home.path), "--repair")
        if checked.returncode != 0:
            self.faults.append(f"fsck at work: {(checked.stdout + checked.stderr)[:1000]!r}")
        self.stopped.wait(0.1)


def run_agents(home):
    until = time.monotonic() + SECONDS
    agents = [Agent(home, number, until) for number in range(GATEWAYS)]
    for agent in agents:
        agent.start()
    for agent in agents:
        agent.join()
    return agents


def killed():
    with Home() as home:
        consumer, operator = Consumer(home), Operator(home)
        consumer.start()
        operator.start()
        agents = run_agents(home)
        consumer.stop()
        operator.stop()
        sent = {identifier: text for agent in agents for identifier, text in agent.sent.items()}
        acknowledged = set().union(*(agent.acknowledged for agent in agents))
        kills = sum(agent.kills for agent in agents)
        print(f"       {len(sent)} mails, {len(acknowledged)} acknowledged, {len(consumer.consumed)} consumed, "
              f"{kills} gateways killed")
        yield from (fault for worker in (*agents, consumer, operator) for fault in worker.faults)
        if kills < 50 or len(acknowledged) < 50 or len(acknowledged) == len(sent):
            yield "too little happened to prove anything"
        waiting = queued_mails(home)  # raises when one of them is not whole
        yield from compare(consumer.consumed + waiting, sent, acknowledged)
        yield from after_repair(home)


def compare(waiting, sent, acknowledged):
    counts = Counter(mail.field("Subject") for mail in waiting)
    yield from (f"{identifier} was acknowledged and is lost" for identifier in acknowledged
                if identifier not in counts)
    yield from (f"{identifier} came {count} times" for identifier, count in counts.items() if count != 1)
    yield from (f"{identifier} was never sent" for identifier in counts if identifier not in sent)
    for mail in waiting:
        identifier = mail.field("Subject")
        if mail.recipients != [f"{identifier}@example.org"]:
            yield f"{identifier}: recipients {mail.recipients}"
        yield from compare_body(identifier, mail.parts, sent.get(identifier, b""))


def compare_body(identifier, parts, text):
    """The text before an item, the item, what follows it; a body without an item is one part."""
    before, item, _ = text.partition(b"begin 644 item\n")
    if parts[0] != before:
        yield f"{identifier}: first part of {len(parts[0])} bytes instead of {len(before)}"
    if len(parts) != (3 if item else 1):
        yield f"{identifier}: {len(parts)} parts"
    if item:
        lines = text.count(b"\nM" + b"5" * 60)
        if parts[1] != decoded(lines):
            yield f"{identifier}: item of {len(parts[1])} bytes"


def decoded(lines):
    value = (ord("5") - 32) & 63
    group = bytes([(value << 2 | value >> 4) & 255, (value << 4 | value >> 2) & 255, (value << 6 | value) & 255])
    return group * 15 * lines


def after_repair(home):
    """No damage; fsck --repair takes the leavings away and nothing else."""
    yield from check_fsck(home)
    before = {mail.field("Subject") for mail in queued_mails(home)}
    repaired = home.morvane("fsck", "--home", str(home.path), "--repair")
    if repaired.returncode != 0:
        yield f"fsck --repair: {(repaired.stdout + repaired.stderr)[:1000]!r}"
    if {mail.field("Subject") for mail in queued_mails(home)} != before:
        yield "fsck --repair took mail away"
    yield from check_home(home, len(before))


def tests():
    yield f"{GATEWAYS} gateways killed at random moments for {SECONDS} seconds", killed
