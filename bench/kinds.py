"""Sections of bench/run: kinds of MIME bodies that become more than parts, beside what they can be compared with."""

import shutil
import subprocess

import generate
from measuring import (GATEWAY, MB, TMPFS, agent, aim, expected_digest, digest, folder, fresh_home, item_files, left_out,
                       line, measure, median, queued, ratio, results, section, session, write_dialogue, write_mail)

TNEF = shutil.which("tnef")


def delivered(dialogue, count, wanted=None):
    """Seconds of a session; `wanted`: digests that must be among those of the items."""
    with fresh_home(TMPFS, sync=False) as home:
        seconds = session([GATEWAY], dialogue, count, home)[0].seconds
        assert queued(home) == count
        if wanted is not None and not wanted <= {digest(path) for path in item_files(home, "item")}:
            print("   unix.in DOES NOT STORE WHAT WAS SENT", flush=True)
        return seconds


# ---- 15. Signed messages

def signed(options):
    size = (10 if options.quick else 50) * MB
    section(15, f"An attachment of {size // MB} MB, signed and not, not synced (ms)")
    with folder(TMPFS) as place:
        plain = write_dialogue(place / "plain", generate.dialogue([generate.base64_mail(size)]))
        kept = write_dialogue(place / "signed", generate.dialogue([generate.signed_mail(size)]))
        block, content = generate.base64_block()
        wanted = {expected_digest(content for _ in range(generate.repeats(block, size)))}
        delivered(kept, 1, wanted)

        def copy():
            with folder(TMPFS) as out:
                return agent([shutil.which("cp"), kept, out / "copy"])[0].seconds

        times = measure({"signed": lambda: delivered(kept, 1), "not signed": lambda: delivered(plain, 1),
                         "a copy of it": copy}, 3 if options.quick else 7)
    cost = [one / (two + three) for one, two, three in zip(*(times[name] for name in times))]
    for name, values in times.items():
        line(name, f"{median(values) * 1e3:.1f}")
    line("signed / (not signed + copy)", f"{median(cost):.2f} x")
    aim(15, "at most 1.3 times the same unsigned and a copy", median(cost) <= 1.3,
        milliseconds={name: median(values) * 1e3 for name, values in times.items()})


# ---- 16. Invitations

def invitations(options):
    count = 200 if options.quick else 1000
    section(16, f"{count} meeting requests in one session, converted and kept as attachments, not synced (messages/s)")
    with folder(TMPFS) as place:
        dialogue = write_dialogue(place / "dialogue", generate.dialogue(generate.invitations(count)))

        def converted(keys):
            with fresh_home(TMPFS, sync=False) as home:
                with open(home / "sys/gateway.toml", "a", encoding="utf-8") as file:
                    file.write(keys)
                return session([GATEWAY], dialogue, count, home)[0].seconds

        times = measure({"converted": lambda: converted("INET_ICAL_NO_CONV_AFTER_PART_ONE = false\n"),
                         "attached": lambda: converted("INET_ICAL_2_MAPI = false\n")}, 3 if options.quick else 5)
    for name, values in times.items():
        line(name, f"{count / median(values):.0f}")
    line("converted / attached", f"{ratio(times, 'converted', 'attached'):.2f} x the time")
    results.setdefault("16", {}).update({name: count / median(values) for name, values in times.items()})


# ---- 17. TNEF

def winmail(options):
    size = (5 if options.quick else 25) << 20
    section(17, f"A TNEF stream of {size >> 20} MiB with one attachment, not synced (ms)")
    if not TNEF:
        return left_out("tnef")
    with folder(TMPFS) as place:
        stream = place / "winmail.dat"
        stream.write_bytes(generate.winmail(size))
        dialogue = write_dialogue(place / "dialogue", generate.dialogue([generate.winmail_mail(size)]))
        wanted = {expected_digest([generate.winmail_content(size)])}
        delivered(dialogue, 1, wanted)

        def tnef():
            with folder(TMPFS) as out:
                return agent([TNEF, "--directory", out, stream], stderr=subprocess.DEVNULL)[0].seconds

        times = measure({"unix.in, with base64": lambda: delivered(dialogue, 1), "tnef, from a file": tnef},
                        3 if options.quick else 7)
    for name, values in times.items():
        line(name, f"{median(values) * 1e3:.1f}")
    faster = ratio(times, "tnef, from a file", "unix.in, with base64")
    aim(17, "no slower than tnef", faster >= 1, times_as_fast=faster)


SECTIONS = {
    "15": signed,
    "16": invitations,
    "17": winmail,
}
