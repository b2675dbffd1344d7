"""Is the home whole? Every kind of damage is found, what is not damage is left alone, and repairing deletes leavings only."""

import fcntl
import os
import struct
import subprocess
import threading
import time
from pathlib import Path

import native
from gateway_home import GATEWAY
from room import ToolTest, small_message

DEAD = 4_194_303  # beyond every process id that Linux gives


def lock(file, start, length=1):
    """What a process that makes items holds: an open-file lock."""
    flock = struct.pack("hhxxxxqqixxxx", fcntl.F_WRLCK, os.SEEK_SET, start, length, 0)
    fcntl.fcntl(file, fcntl.F_OFD_SETLK, flock)


class FsckTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.home = self.fresh_home()

    def path(self, item):
        return Path(self.home.file(item.path()))

    def check(self, *args):
        """The lines, by what they begin with, and the summary."""
        done = self.tool("fsck", *args)
        self.assertEqual(done.err, "")
        lines = done.out.splitlines()
        told = {word: [line.split("  ", 1)[1].strip() for line in lines[:-1] if line.startswith(word)]
                for word in ("damage", "reclaimable", "foreign")}
        self.assertEqual(sum(map(len, told.values())), len(lines) - 1, done.out)
        self.assertEqual(done.returncode, 1 if told["damage"] else 0, done.out)
        return told["damage"], told["reclaimable"], lines[-1]

    def assert_damage(self, *patterns):
        damage, _, summary = self.check()
        self.assertEqual(len(damage), len(patterns), damage)
        for text, pattern in zip(damage, patterns):
            self.assertRegex(text, pattern)
        self.assertRegex(summary, "%d damages?" % len(patterns))
        before = self.home.items()
        self.check("--repair")
        self.assertEqual(self.home.items(), before, "damage is not repaired away")


class Clean(FsckTest):
    def test_empty_home(self):
        self.assertEqual(self.check(), ([], [], "0 entries, 0 messages, 0 files checked: no damage"))

    def test_whole_messages(self):
        self.home.queue(small_message())
        self.home.queue(small_message(), small_message(), priority=2)
        self.succeed("queue", "take")
        message = native.MessageBuilder().record(native.header()).record(native.start_package())
        message.text("wrapped", wrap=True).record(native.Record(native.END_PACKAGE))
        self.home.queue(message)
        damage, reclaimable, summary = self.check()
        self.assertEqual((damage, reclaimable), ([], []))
        self.assertEqual(summary, "3 entries, 4 messages, 15 files checked: no damage")


class Damaged(FsckTest):
    def setUp(self):
        super().setUp()
        self.entry = self.home.queue(small_message())
        self.files = self.home.messages_of(self.entry)[0]
        self.message = Path(self.home.file([path for path in self.home.items() if path.endswith(".mesg")][0]))

    def rewrite(self, path, change):
        path.write_bytes(change(path.read_bytes()))

    def test_missing_files(self):
        for item in self.files:
            content = self.path(item).read_bytes()
            self.path(item).unlink()
            self.assert_damage(item.name() + " is missing")
            self.path(item).write_bytes(content)
        self.check()

    def test_missing_message_file(self):
        self.message.unlink()
        self.assert_damage(self.message.name + " is missing")

    def test_files_that_damage_may_have_led_to_are_no_leavings(self):
        orphan = self.home.store("left over")
        for path in (self.message, Path(self.home.file("queues/ROUTER/new/" + self.entry))):
            content = path.read_bytes()
            path.write_bytes(content[:-1])
            damage, reclaimable, summary = self.check("--repair")
            self.assertEqual((len(damage), reclaimable), (1, []))
            self.assertRegex(summary, "[45] files left alone that may belong to what is damaged$")
            path.write_bytes(content)
        self.assertEqual(self.check("--repair")[:2], ([], [orphan.path()]))

    def test_cut_files(self):
        for path in (self.message, self.path(self.files[0]), self.path(self.files[1])):
            content = path.read_bytes()
            path.write_bytes(content[:-1])
            self.assert_damage("offset [0-9]+: a record of [0-9]+ bytes where [0-9]+ are left")
            path.write_bytes(content)

    def test_empty_files(self):
        self.path(self.files[1]).write_bytes(b"")
        self.assert_damage("no records")
        self.message.write_bytes(b"")
        damage, _, _ = self.check()
        self.assertIn("the message has no transfer file", damage[0])

    def test_sizes(self):
        self.path(self.files[2]).write_bytes(b"x")
        self.assert_damage(r"content record 2 says 13 bytes, .* has 1$")

    def test_numbers_of_attachments(self):
        record = native.Record(91).ref(16, self.home.store("more")).bytes()
        self.rewrite(self.message, lambda content: content + record)
        self.assert_damage("3 attached files, but 2 content records")

    def test_order_of_attachments(self):
        main, names, text = self.files
        records = [native.Record(90).put("i", 16, 1).string("", 20)]
        records += [native.Record(91).ref(16, item) for item in (main, text, names)]
        self.message.write_bytes(b"".join(record.bytes() for record in records))
        damage, _, _ = self.check()
        self.assertTrue(any("content record 2 says 13 bytes" in text for text in damage), damage)

    def test_claimed_twice(self):
        other = small_message()
        reference = self.home.store_message(other)
        content = self.path(reference).read_bytes()
        shared = native.Record(91).ref(16, self.files[2]).bytes()
        self.path(reference).write_bytes(content[:-len(shared)] + shared)
        orphan = native.read_records(content)[-1].get_ref(16)
        self.path(orphan).unlink()
        entry = native.Record(92).ref(16, reference).put("i", 36, 0).put("q", 40, 1).bytes()
        Path(self.home.file("queues/ROUTER/new/1-2-3-4")).write_bytes(entry)
        self.assert_damage(self.files[2].name() + " belongs to more than one message")

    def test_version_and_flags(self):
        def change(content):
            records = native.read_records(content)
            records[0].put("i", 16, 2)
            records[2].put("H", 18, 1)
            return b"".join(record.bytes() for record in records)
        self.rewrite(self.message, change)
        self.assert_damage("format version 2", "has flags")

    def test_records(self):
        def unbalanced(content):
            return content + native.Record(native.END_PACKAGE).bytes()
        self.rewrite(self.path(self.files[0]), unbalanced)
        self.assert_damage("the end of a package or group that was not begun")
        self.path(self.files[0]).write_bytes(native.Record(1100).bytes() + small_message().transfer_file())
        self.assert_damage("offset 0: the record ends before its field reserved16")
        wrong = native.object_file("x", b"abc")
        struct.pack_into(">I", wrong.data, 20, 4)
        self.path(self.files[0]).write_bytes(wrong.bytes() + small_message().transfer_file())
        self.assert_damage("offset 0: the object's length is wrong")

    def test_entries(self):
        path = Path(self.home.file("queues/ROUTER/new/" + self.entry))
        content = path.read_bytes()
        for bad, pattern in ((b"", "the entry queues nothing"), (content[:-1], "offset 0"), (b"x" * 16, "offset 0")):
            path.write_bytes(bad)
            damage, _, _ = self.check()
            self.assertEqual(len(damage), 1)
            self.assertRegex(damage[0], f"^queues/ROUTER/new/{self.entry}: .*{pattern}")

    def test_misplaced_files(self):
        item = self.files[2]
        wrong = "data/1/%02x/%s" % ((item.file_id + 1) & 0xFF, item.name())
        os.rename(self.path(item), self.home.file(wrong))
        damage, _, _ = self.check()
        self.assertEqual(sorted(text.rsplit(":", 1)[-1].strip() for text in damage),
                         [f"{item.path()} is missing", "in the wrong folder"])

    def test_layout(self):
        os.rmdir(self.home.file("data/4/7f"))
        os.rmdir(self.home.file("queues/ROUTER/cur"))
        os.unlink(self.home.file("nls/C/unix.cat"))
        Path(self.home.file("sys/gateway.toml")).write_text("a = 1\nb = = 2\n", encoding="utf-8")
        Path(self.home.file("sys/config")).write_bytes(bytes(477))
        damage, _, _ = self.check()
        self.assertEqual(len(damage), 5, damage)
        for text, pattern in zip(damage, ("queues/ROUTER/cur: the folder is missing", "data/4/7f: the folder is missing",
                                          "nls/C/unix.cat is missing", "sys/config: too short",
                                          "sys/gateway.toml:2: ")):
            self.assertIn(pattern, text)

    def test_a_terminal_is_safe_from_names(self):
        Path(self.home.file("data/1/00/\x1b[31m")).write_bytes(b"")
        Path(self.home.file("queues/ROUTER/new/\x1b[2J")).write_bytes(b"\x1b")
        done = self.tool("fsck")
        self.assertNotIn("\x1b", done.out + done.err)


class Leavings(FsckTest):
    def orphan(self, extension="item", domain=1, block=None):
        item = self.home.store("left over", extension, domain)
        if block is None:
            return item
        moved = native.ItemRef(block << 12 | item.file_id & 0xFFF, extension, domain)
        os.rename(self.path(item), self.path(moved))
        return moved

    def test_orphans_of_dead_processes_are_reclaimable(self):
        kept = self.home.queue(small_message())
        orphans = [self.orphan(), self.orphan("tran"), self.orphan("mesg"), self.orphan("temp", 4)]
        damage, reclaimable, summary = self.check()
        self.assertEqual((damage, sorted(reclaimable)), ([], sorted(item.path() for item in orphans)))
        self.assertIn("no damage, 4 files reclaimable (36 bytes)", summary)
        for item in orphans:
            self.assertTrue(self.path(item).exists(), "nothing is deleted unasked")
        _, _, summary = self.check("--repair")
        self.assertIn("4 files reclaimed (36 bytes)", summary)
        self.assertEqual(len(self.home.items()), 4, "the files of the message")
        self.assertEqual(self.home.entries(), [kept])
        self.assertEqual(self.check()[1], [])

    def test_work_of_living_processes_is_left_alone(self):
        item = self.orphan(block=1 << 30)
        with open(self.home.file("sys/ids"), "w+b") as ids:
            lock(ids, 1 << 30)
            damage, reclaimable, summary = self.check("--repair")
            self.assertEqual((damage, reclaimable), ([], []))
            self.assertIn("no damage, 1 file of processes at work", summary)
            self.assertTrue(self.path(item).exists())
        self.assertEqual(self.check()[1], [item.path()], "its process has gone")

    def test_a_real_gateway_in_the_middle_of_a_message(self):
        env = self.env()
        with subprocess.Popen([str(GATEWAY)], env=env, stdin=subprocess.PIPE, stdout=subprocess.PIPE) as gateway:
            gateway.stdin.write(b"HELO x\nMAIL FROM:<a@b>\nRCPT TO:<c@d>\nDATA\nSubject: x\n\n" + b"x" * 70 * 100_000)
            gateway.stdin.flush()
            deadline = time.monotonic() + 60
            while not self.home.items() and time.monotonic() < deadline:
                time.sleep(0.01)
            self.assertTrue(self.home.items(), "a large body is a file while it grows")
            damage, reclaimable, summary = self.check("--repair")
            self.assertEqual((damage, reclaimable), ([], []))
            self.assertIn("of processes at work", summary)
            gateway.kill()
            gateway.communicate()
        damage, reclaimable, _ = self.check("--repair")
        self.assertEqual((damage, sorted(reclaimable)), ([], sorted(reclaimable)))
        self.assertEqual(self.home.items(), [])

    def test_drafts_of_entries(self):
        drafts = self.home.file("queues/ROUTER/tmp/")
        alive, dead = self.orphan("mesg", block=1 << 30), self.orphan("mesg")
        for number, content in enumerate((b"", b"half", native.Record(92).ref(16, dead).put("q", 40, 1).bytes())):
            Path(drafts + "1-00000000000000000001-%d-%d" % (DEAD, number)).write_bytes(content)
        Path(drafts + "strange").write_bytes(b"")
        living = "1-00000000000000000001-%d-9" % DEAD
        Path(drafts + living).write_bytes(native.Record(92).ref(16, alive).put("i", 36, 0).put("q", 40, 1).bytes())
        with open(self.home.file("sys/ids"), "w+b") as ids:
            lock(ids, 1 << 30)
            damage, reclaimable, _ = self.check("--repair")
        self.assertEqual(damage, [])
        self.assertEqual(len(reclaimable), 5, reclaimable)
        self.assertEqual(os.listdir(drafts), [living])

    def test_scratch(self):
        folder = Path(self.home.file("tmp"))
        for name in ("unix.in-12-1.TNEF", "fresh", "x-%d-1" % DEAD, "x-%d-2.temp" % DEAD, "stale"):
            (folder / name).write_bytes(b"x")
        os.utime(folder / "stale", (0, 0))
        os.utime(folder / "unix.in-12-1.TNEF", (0, 0))
        damage, reclaimable, summary = self.check("--repair")
        self.assertEqual((damage, sorted(reclaimable)), ([], ["tmp/stale", "tmp/x-%d-1" % DEAD, "tmp/x-%d-2.temp" % DEAD]))
        self.assertEqual(sorted(os.listdir(folder)), ["fresh", "unix.in-12-1.TNEF"], "saved TNEF stays; so does today's")
        self.assertIn("1 file of processes at work", summary)

    def test_foreign_files_are_told_and_left_alone(self):
        path = Path(self.home.file("data/1/00/README"))
        path.write_bytes(b"x")
        _, reclaimable, summary = self.check("--repair")
        self.assertEqual(reclaimable, [])
        self.assertIn("no damage, 1 foreign file", summary)
        self.assertTrue(path.exists())

    def test_many_leavings_are_counted(self):
        for _ in range(50):
            self.orphan()
        _, reclaimable, summary = self.check()
        self.assertEqual(len(reclaimable), 21)
        self.assertEqual(reclaimable[-1], "... and 30 more, named with --verbose")
        self.assertIn("50 files reclaimable", summary)
        self.assertEqual(len(self.check("--verbose")[1]), 50)


class AtWork(FsckTest):
    def consume(self, stop):
        """A consumer at full speed: the folders and files as a router would move and delete them."""
        while not stop.is_set() or self.home.entries():
            for name in self.home.entries():
                paths = [self.home.file(f"queues/ROUTER/{folder}/{name}") for folder in ("new", "cur")]
                os.rename(*paths)
                message = native.read_records(Path(paths[1]).read_bytes())[0].get_ref(16)
                files = [record.get_ref(16) for record in native.read_records(self.home.read(message))[1:]]
                os.unlink(paths[1])
                for item in files + [message]:
                    os.unlink(self.path(item))

    def test_while_gateways_and_a_consumer_work(self):
        dialogue = b"HELO x\n" + b"MAIL FROM:<a@b>\nRCPT TO:<c@d>\nDATA\nSubject: x\n\nHello\n.\n" * 300 + b"QUIT\n"
        gateways = [subprocess.Popen([str(GATEWAY)], env=self.env(), stdin=subprocess.PIPE, stdout=subprocess.DEVNULL)
                    for _ in range(4)]
        stop = threading.Event()
        consumer = threading.Thread(target=self.consume, args=(stop,))
        consumer.start()
        try:
            writers = [threading.Thread(target=gateway.communicate, args=(dialogue,)) for gateway in gateways]
            for writer in writers:
                writer.start()
            checks = 0
            while any(writer.is_alive() for writer in writers) or checks < 3:
                damage, _, _ = self.check()  # a file that is just being deleted may look reclaimable
                self.assertEqual(damage, [])
                checks += 1
            for writer in writers:
                writer.join()
        finally:
            stop.set()
            consumer.join()
        self.assertEqual([gateway.returncode for gateway in gateways], [0] * 4)
        self.assertEqual(self.check()[:2], ([], []))
        self.assertEqual(self.home.items(), [], "every message was whole")

    def test_cost_is_linear(self):
        def seconds(messages):
            for _ in range(messages):
                self.home.queue(small_message())
            start = time.monotonic()
            self.check()
            return time.monotonic() - start
        small = seconds(500)
        large = seconds(9_500)
        self.assertLess(large, 20 * 8 * max(small, 0.02), (small, large))
