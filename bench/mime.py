"""The sections of the benchmarks about MIME bodies: the gateway beside programs that take mails apart into files.

All of them work on the same mails, in fresh folders on a tmpfs; none waits for a disk. What each has written is looked
at once, before anything is measured: a program whose files do not hold every body that was sent is said to fail and is
not measured. Text may have gained or lost line ends at its end.
"""

import hashlib
import itertools
import shutil
import subprocess
import sys

import generate
from measuring import (
    DISK, FLOOR, GATEWAY, GMIME, MB, MUNPACK, REFORMIME, RIPMIME, TMPFS, agent, aim, digest, expected_digest, folder,
    fresh_home, item_files, line, measure, median, memory_peak, queued, ratio, results, section, session,
    sizes_per_message, write_dialogue, write_mail,
)

TO_UTF8 = '[[target]]\nfrom = "ISO8859_1"\nto = "UTF8"\n'
PATIENCE = 30  # seconds that a program may take for one mail before it counts as one that fails
PYTHON_PROGRAM = """
import email, sys
for number, part in enumerate(email.message_from_binary_file(open(sys.argv[1], "rb")).walk()):
    if not part.is_multipart():
        open(f"{sys.argv[2]}/{number}", "wb").write(part.get_payload(decode=True))
"""


def text_digest(content):
    return hashlib.blake2b(content.replace(b"\r\n", b"\n").rstrip(b"\n")).hexdigest()


class Input:
    """Mails, in each form in which they are read: a dialogue; a file for each; one file with all their sizes."""

    def __init__(self, place, mails, bodies, text=False, leaves=("1",), converted=()):
        """`mails()`: for each mail its pieces. `bodies`: the digest of each that must be among the files. `leaves`:
        where they stand in each mail, in the dotted numbers that reformime wants. `converted`: the digests after
        conversion into UTF-8, when the gateway and GMime make one."""
        place.mkdir()
        self.place, self.bodies, self.text, self.leaves = place, set(bodies), text, leaves
        self.converted = set(converted)
        self.dialogue = write_dialogue(place / "dialogue", generate.dialogue(mails()))
        self.count = 0
        with open(place / "mails", "wb") as all_mails:
            for number, pieces in enumerate(mails()):
                path = write_mail(place / f"mail{number}", pieces)
                all_mails.write(f"{path.stat().st_size}\n".encode())
                with open(path, "rb") as mail:
                    shutil.copyfileobj(mail, all_mails)
                self.count = number + 1
        self.sent = self.dialogue.stat().st_size
        self.floor_sizes = []

    def missing(self, files, converted=False):
        """How many bodies are in none of the files."""
        found = {text_digest(path.read_bytes()) if self.text else digest(path) for path in files}
        return len((self.converted or self.bodies if converted else self.bodies) - found)


class Taken(float):
    """Seconds from start to end, and those of the processor: a busy machine adds to these less."""

    def __new__(cls, runs):
        taken = super().__new__(cls, sum(run.seconds for run in runs))
        taken.processor = sum(run.processor_seconds for run in runs)
        return taken


# ---- The programs. Each is a call that returns what was Taken or, when it is asked to look, says what is wrong.

def gateway(mails, look=False):
    with fresh_home(TMPFS, sync=False) as home:
        if mails.converted:
            (home / "sys/mimein.str").write_text(TO_UTF8, encoding="ascii")
        runs = session([GATEWAY], mails.dialogue, mails.count, home)
        assert queued(home) == mails.count
        if not look:
            return Taken(runs)
        items = item_files(home, "item")
        bytes_each = sum(path.stat().st_size for path in items) / len(items)
        mails.floor_sizes = ["--parts", round(len(items) / mails.count), round(bytes_each), *sizes_per_message(home)]
        lacking = mails.missing(items, converted=True)
        return f"{lacking} bodies are missing" if lacking else None


def floor(mails):
    with fresh_home(TMPFS, sync=False) as home:
        runs = session([FLOOR, *mails.floor_sizes], mails.dialogue, mails.count, home)
        assert queued(home) == mails.count
        return Taken(runs)


def gmime_command(mails, out):
    """One process for all mails; the others are started for each."""
    convert = ["--utf8"] if mails.converted else []
    return {"command": [GMIME, *convert, mails.place / "mails", out]}


def ripmime_command(mails, out):
    return {"command": [RIPMIME, "--recursion-max", "1000000", "-i", f"{mails.place}/mail{{run}}",
                        "-d", f"{out}/{{run}}"], "runs": mails.count}


def munpack_command(mails, out):
    return {"command": [MUNPACK, "-t", "-q", "-C", f"{out}/{{run}}", f"{mails.place}/mail{{run}}"], "runs": mails.count}


def reformime_command(mails, out):
    """The sections are named: asked for all of them, the one that Debian 12 has does not survive a multipart."""
    return {"command": [REFORMIME, "-s", ",".join(mails.leaves), f"-x{out}/{{run}}/"], "runs": mails.count,
            "file": f"{mails.place}/mail{{run}}"}


def python_command(mails, out):
    return {"command": [sys.executable, "-c", PYTHON_PROGRAM, mails.place / "mail0", out]}


# Name: the program, and how it is called.
RIVALS = {
    "GMime 3": (GMIME.exists() and GMIME, gmime_command),
    "ripmime": (RIPMIME, ripmime_command),
    "munpack": (MUNPACK, munpack_command),
    "reformime": (REFORMIME, reformime_command),
    "python3": (sys.executable, python_command),
}
USUAL = ("GMime 3", "ripmime", "munpack", "reformime")


def rival(name, mails, look=False):
    with folder(TMPFS) as out:
        how = RIVALS[name][1](mails, out)
        for number in range(how.get("runs", 0)):
            (out / str(number)).mkdir()
        if look:
            how["command"] = [shutil.which("timeout"), str(PATIENCE), *how["command"]]
        runs = agent(**how, stderr=subprocess.DEVNULL)
        if not look:
            return Taken(runs)
        return complaint(mails, runs, out, converted=name == "GMime 3")


def complaint(mails, runs, out, converted):
    """What is wrong with what a program has done; None when all is well."""
    status = next((run.status for run in runs if run.status != 0), 0)
    if status == 124:
        return f"fails: not ready after {PATIENCE} s"
    if status < 0 or status > 128:
        return "fails: it crashes"
    lacking = mails.missing([path for path in out.glob("**/*") if path.is_file()], converted)
    if lacking:
        what = f"{lacking} of {len(mails.bodies)} bodies are" if len(mails.bodies) > 1 else "the body is"
        return f"fails: {what} in none of its files" + (f", exit status {status}" if status else "")
    return f"fails: exit status {status}" if status else None


def subjects(mails, rivals=USUAL):
    """{name: call} of all that can do it, and what the others lack."""
    able, unable = {"unix.in": lambda: gateway(mails), "floor": lambda: floor(mails)}, {}
    wrong = gateway(mails, look=True)
    if wrong:
        print(f"   unix.in DOES NOT STORE WHAT WAS SENT: {wrong}", flush=True)
    for name in rivals:
        trouble = rival(name, mails, look=True) if RIVALS[name][0] else "not installed: left out"
        if trouble:
            unable[name] = trouble
        else:
            able[name] = lambda name=name: rival(name, mails)
    return able, unable


# ---- Reporting

def report(number, title, times, unable, figure):
    """A line for each program; the ratios of unix.in to those that can do it."""
    results.setdefault(str(number), {})[title] = {name: median(values) for name, values in times.items()} | unable
    processor = {name: [taken.processor for taken in values] for name, values in times.items()}
    ratios = {}
    for name, values in times.items():
        remark = f"{median(processor[name]) * 1e3:.1f} ms of processor"
        if name != "unix.in":
            ratios[name] = ratio(times, name, "unix.in")
            remark += f"; unix.in at {ratios[name]:.2f} times it, {ratio(processor, name, 'unix.in'):.2f} in processor"
        line(f"{title}: {name}", figure(median(values)), remark)
    for name, trouble in unable.items():
        line(f"{title}: {name}", "-", trouble)
    return ratios


def compare(options, number, title, mails, figure):
    able, unable = subjects(mails)
    times = measure(able, 3 if options.quick else 5)
    return report(number, title, times, unable, figure)


def aim_beside(number, ratios, name, factor, text):
    if name in ratios:
        aim(number, text, ratios[name] >= factor)


def rate(mails):
    return lambda seconds: f"{mails.sent / seconds / MB:.0f}"


# ---- 7. Attachments

def attachments(options):
    sizes = (5, 20) if options.quick else (25, 100)
    section(7, f"Base64 attachments of {sizes[0]} and {sizes[1]} MB, not synced (MB/s of what is sent)")
    block, content = generate.base64_block()
    for size in sizes:
        body = expected_digest(itertools.repeat(content, generate.repeats(block, size * MB)))
        with folder(TMPFS) as place:
            mails = Input(place / "input", lambda: [generate.base64_mail(size * MB)], [body], leaves=["1.1", "1.2"])
            ratios = compare(options, 7, f"{size} MB", mails, rate(mails))
    aim_beside(7, ratios, "GMime 3", 3, f"{size} MB at least 3 times GMime")
    aim_beside(7, ratios, "ripmime", 6, f"{size} MB at least 6 times ripmime")


# ---- 8. Text

def quoted_text(options):
    size = (5 if options.quick else 25) * MB
    section(8, f"Quoted-printable text of {size // MB} MB; unix.in and GMime make UTF-8 of it (MB/s of what is sent)")
    block, content = generate.quoted_block()
    text = content * generate.repeats(block, size)
    with folder(TMPFS) as place:
        mails = Input(place / "input", lambda: [generate.quoted_mail(size)], [text_digest(text)], text=True,
                      converted=[text_digest(text.decode("latin-1").encode())])
        ratios = compare(options, 8, "text", mails, rate(mails))
    aim_beside(8, ratios, "GMime 3", 3, "at least 3 times GMime")


# ---- 9. Alternatives

def alternatives(options):
    count = 500 if options.quick else 2000
    section(9, f"{count} mails of 8 KB, the text plain and as HTML, not synced (messages/s)")
    bodies = (text_digest(text) for number in range(count) for text in generate.alternative_texts(number))
    with folder(TMPFS) as place:
        mails = Input(place / "input", lambda: generate.alternatives_mails(count), bodies, text=True,
                      leaves=["1.1", "1.2"])
        ratios = compare(options, 9, "8 KB", mails, lambda seconds: f"{count / seconds:.0f}")
    aim_beside(9, ratios, "GMime 3", 2.5, "at least 2.5 times GMime")


# ---- 10. Parts

def many_parts(options):
    count = 5000
    section(10, f"One mail with {count} attachments, not synced (ms)")
    bodies = (expected_digest([generate.part_content(number)]) for number in range(count))
    with folder(TMPFS) as place:
        mails = Input(place / "input", lambda: [generate.parts_mail(count)], bodies,
                      leaves=[f"1.{number + 1}" for number in range(count)])
        ratios = compare(options, 10, f"{count} parts", mails, lambda seconds: f"{seconds * 1e3:.1f}")
    aim_beside(10, ratios, "munpack", 1, "no slower than munpack")


# ---- 11. Nesting

def nesting(options):
    depths = (50, 500, 5000, 10_000)
    section(11, "One attachment inside multiparts inside multiparts, not synced (ms)")
    body = expected_digest([generate.part_content(0)])
    able, unable = {}, {}
    with folder(TMPFS) as place:
        for depth in depths:
            mails = Input(place / str(depth), lambda: [generate.nested_mail(depth)], [body],
                          leaves=[".".join(["1"] * (depth + 1))])
            calls, unable[depth] = subjects(mails, RIVALS)
            able |= {(depth, name): call for name, call in calls.items()}
        times = measure(able, 3 if options.quick else 9)
    for depth in depths:
        here = {name: values for (at, name), values in times.items() if at == depth}
        report(11, f"{depth} deep", here, unable[depth], lambda seconds: f"{seconds * 1e3:.2f}")
    few, half, full = (times[depth, "unix.in"] for depth in (50, 5000, 10_000))
    growth = ratio({"full": full, "half": half}, "full", "half")
    beyond = median([(c - a) / (b - a) for a, b, c in zip(few, half, full)])
    line("10,000 beside 5,000", f"{growth:.2f}", f"times as long; {beyond:.2f} without what 50 take")
    aim(11, "linear: 10,000 at most 2.2 times as long as 5,000", growth <= 2.2, growth=growth, beyond=beyond)


# ---- 12. Memory

def memory(options):
    section(12, "Peak memory with MIME bodies (MB)")
    peaks = {}
    for kind, title in (("base64", "base64"), ("quoted", "quoted-printable, into UTF-8")):
        for size in (1, 100) if options.quick else (1, 1000):
            with fresh_home(DISK, sync=False) as home:
                (home / "sys/mimein.str").write_text(TO_UTF8, encoding="ascii")
                run, peaks[f"{title}, {size} MB"] = memory_peak(kind, size, home)
            line(f"{title}, {size} MB", f"{peaks[f'{title}, {size} MB']:.1f}", f"{run.seconds:.1f} s")
    aim(12, "under 12 MB whatever the size", max(peaks.values()) < 12, megabytes=peaks)


# ---- 14. Forwarded messages

def forwarded(options):
    count = 200 if options.quick else 1000
    section(14, f"{count} mails, each in a mail in a mail, ten deep, not synced (messages/s)")
    bodies = (text_digest(generate.forwarded_text(number)) for number in range(count))
    with folder(TMPFS) as place:
        mails = Input(place / "input", lambda: generate.forwarded_mails(count), bodies, text=True,
                      leaves=[".".join(["1"] * generate.FORWARDED_DEPTH)])
        ratios = compare(options, 14, "ten deep", mails, lambda seconds: f"{count / seconds:.0f}")
    aim_beside(14, ratios, "ripmime", 3, "at least 3 times ripmime")


SECTIONS = {
    "7": attachments,
    "8": quoted_text,
    "9": alternatives,
    "10": many_parts,
    "11": nesting,
    "12": memory,
    "14": forwarded,
}
