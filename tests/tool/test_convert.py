"""Mail files through the gateway: what the agent's side writes, byte for byte, and what becomes of refusals."""

import json
import os
import re
import sys
import unittest
from pathlib import Path

from room import MEGABYTE, SANITIZED, ToolTest, peak_memory, run_on_terminal

HERE = Path(__file__).resolve().parent
FROM_1 = "From a@x.org Fri Nov 20 10:00:00 2026\n"
FROM_2 = "From b@x.org Fri Nov 20 10:00:01 2026\n"


class FakeGateway(ToolTest):
    """Against a gateway that records what it is told."""

    def setUp(self):
        super().setUp()
        self.fresh_home()
        self.log = self.folder / "log"
        self.log.mkdir()
        self.gateway = self.write("fake", f"#!/bin/sh\nexec {sys.executable} {HERE / 'fake_gateway.py'} \"$@\"\n")
        self.gateway.chmod(0o755)

    def convert(self, *args, commands="None", texts="None", keep="1", **options):
        extra = {"FAKE_LOG": str(self.log), "FAKE_COMMANDS": commands, "FAKE_TEXTS": texts, "FAKE_KEEP": keep}
        return self.tool("convert", "--gateway", self.gateway, *args, extra=extra, **options)

    def sessions(self):
        """What each process was told, in the order of the processes."""
        logs = [path for path in self.log.iterdir() if path.name.isdigit()]
        return [path.read_bytes() for path in sorted(logs, key=lambda path: path.stat().st_mtime_ns)]

    def texts(self):
        return [text for session in self.sessions() for text in re.findall(rb"^\[(.*?)\]\n", session, re.S | re.M)]

    def test_a_whole_session(self):
        mail = self.write("a.eml", "Return-Path: <s@x.org>\nTo: Jane <j@y.org>\n\nHello\n")
        other = self.write("b.eml", "To: k@y.org\n\nHi\n")
        done = self.convert(mail, other)
        self.assertEqual((done.returncode, done.err), (0, ""))
        self.assertRegex(done.out, r"^queued 2 messages, refused 0, \d+\.\d\d s, \d+ messages/s, \d+\.\d MB/s\n$")
        self.assertEqual(self.sessions(), [
            b"HELO localhost\r\n"
            b"MAIL FROM:<s@x.org>\r\nRCPT TO:<j@y.org>\r\nDATA\r\n"
            b"[Return-Path: <s@x.org>\nTo: Jane <j@y.org>\n\nHello\n]\n"
            b"MAIL FROM:<>\r\nRCPT TO:<k@y.org>\r\nDATA\r\n[To: k@y.org\n\nHi\n]\n"
            b"QUIT\r\n"])

    def test_given_envelope(self):
        mail = self.write("a.eml", "Return-Path: <s@x.org>\nTo: j@y.org\n\n")
        self.assertEqual(self.convert("--from", "<>", "--to", "a@b.org", "--to", "c@d.org", mail).returncode, 0)
        self.assertIn(b"MAIL FROM:<>\r\nRCPT TO:<a@b.org>\r\nRCPT TO:<c@d.org>\r\nDATA\r\n", self.sessions()[0])
        for option, bad in ("--to", "a b@c"), ("--to", "a@b>c"), ("--to", ""), ("--from", "x\ny"), ("--from", "a\x1b"):
            done = self.convert(option, bad, mail)
            self.assertEqual(done.returncode, 1, bad)
            self.assertRegex(done.err, "^morvane: .*(is not an address that can be sent|is no recipient)\n$")
        self.assertEqual(len(self.sessions()), 1, "nothing was sent")

    def test_bytes_are_passed_as_they_are(self):
        rows = [
            (b"A: 1\n\n.\n..\n.x\n", b"A: 1\n\n..\n...\n..x\n"),
            (b"A: 1\n\na\0b\rc\x80\xff\n", b"A: 1\n\na\0b\rc\x80\xff\n"),
            (b"A: 1\r\n\r\nno end", b"A: 1\r\n\r\nno end\r\n"),
            (b"A: 1\n\n>From x\n", b"A: 1\n\n>From x\n"),
            (b"", b""),
            (b"\n", b"\n"),
        ]
        for number, (text, _) in enumerate(rows):
            self.write("in/%d.eml" % number, text)
        self.assertEqual(self.convert(self.folder / "in").returncode, 0)
        self.assertEqual(self.texts(), [told for _, told in rows])

    def test_mbox(self):
        mbox = self.write("box", FROM_1 + "A: 1\n\n>From here\n.\n\n" + FROM_2 + "B: 2\n\nFrom there\n\n")
        self.assertEqual(self.convert(mbox).returncode, 0)
        self.assertEqual(self.texts(), [b"A: 1\n\nFrom here\n..\n", b"B: 2\n\nFrom there\n"])
        self.assertIn(b"MAIL FROM:<a@x.org>", self.sessions()[0])
        self.assertIn(b"MAIL FROM:<b@x.org>", self.sessions()[0])

    def test_one_refused_message_does_not_lose_the_rest(self):
        for number in range(6):
            self.write("in/%d.eml" % number, "A: %s\n\n%d\n" % ("bad" if number in (1, 2, 5) else "good", number))
        done = self.convert(self.folder / "in", texts="'554 5.6.0 not this one' if b'bad' in text else None")
        self.assertEqual(done.returncode, 1)
        lines = done.out.splitlines()
        self.assertEqual(lines[:3], [f"refused  {self.folder}/in/{n}.eml: 554 5.6.0 not this one" for n in (1, 2, 5)])
        self.assertTrue(lines[3].startswith("queued 3 messages, refused 3, "), lines)
        sessions = self.sessions()
        self.assertEqual(len(sessions), 3, "a new process after each refusal")
        self.assertEqual([session.count(b"DATA\r\n") for session in sessions], [2, 1, 3])
        self.assertTrue(all(session.endswith(b"QUIT after a refusal\n") for session in sessions))

    def test_refusals_in_an_mbox_say_which_message(self):
        mbox = self.write("box", FROM_1 + "A: 1\n\nx\n\n" + FROM_2 + "A: bad\n\n")
        done = self.convert(mbox, texts="'451 later' if b'bad' in text else None")
        self.assertEqual(done.out.splitlines()[0], f"refused  {mbox}: message 2 at byte {2 * len(FROM_1) + 9}: 451 later")

    def test_refused_commands(self):
        mails = [self.write("%d.eml" % n, "To: %s@x.org\n\n" % name) for n, name in enumerate(("a", "bad", "c"))]
        for rule in ("'550 no' if 'bad' in command else None", "'die' if 'bad' in command else None"):
            done = self.convert(*mails, commands=rule)
            self.assertEqual(done.returncode, 1)
            self.assertIn("queued 2 messages, refused 1", done.out)
            self.assertRegex(done.out.splitlines()[0], "1.eml: (550 no|the gateway ended with status 7 and no reply)$")
            self.assertEqual(len(self.texts()), 2)
            for path in self.log.iterdir():
                path.unlink()

    def test_a_gateway_that_dies(self):
        mails = [self.write("%d.eml" % n, "A: %d\n\n" % n) for n in range(3)]
        done = self.convert(*mails, texts="'die' if b'A: 1' in text else None")
        self.assertEqual(done.returncode, 1)
        self.assertIn("1.eml: the gateway ended with status 7 and no reply", done.out)
        self.assertIn("queued 2 messages, refused 1", done.out)

    def test_a_gateway_that_does_not_read(self):
        # It answers DATA with a refusal and reads no more; the text is far larger than any pipe.
        mails = [self.write("0.eml", b"A: 1\n\n" + b"x" * 79 * 400_000), self.write("1.eml", "A: 2\n\n")]
        for rule in ("'451 full' if command == 'DATA' else None", "'die' if command == 'DATA' else None"):
            done = self.convert(*mails, commands=rule)
            self.assertEqual(done.returncode, 1)
            self.assertIn("queued 0 messages, refused 2", done.out)

    def test_a_gateway_that_takes_no_mail_is_not_tried_again(self):
        mails = [self.write("%d.eml" % n, "A: 1\n\n") for n in range(50)]
        done = self.convert(*mails, commands="'451 no home' if command == 'greeting' else None")
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.err, r"morvane: \S+ takes no mail: 451 no home\n$")
        self.assertEqual(len(self.sessions()), 1)
        done = self.convert(*mails, commands="'die'")
        self.assertIn("takes no mail: the gateway ended with status 7", done.err)

    def test_no_gateway(self):
        mail = self.write("a.eml", "A: 1\n\n")
        self.fail_with("no/such/program: No such file", "convert", "--gateway", "/no/such/program", mail)

    def test_unreadable_files_are_told_and_the_rest_goes_on(self):
        good = self.write("good.eml", "A: 1\n\n")
        os.mkfifo(self.folder / "pipe")
        done = self.convert(self.folder / "missing", self.folder / "pipe", good)
        self.assertEqual(done.returncode, 1)
        self.assertIn(f"refused  {self.folder}/missing: No such file or directory", done.out)
        self.assertIn("pipe: not a regular file", done.out)
        self.assertIn("queued 1 message, refused 2", done.out)

    def test_workers(self):
        for number in range(40):
            self.write("in/%02d.eml" % number, "A: %d\n\n" % number)
        done = self.convert("-j", "4", self.folder / "in", texts="'554 no' if b'A: 13' in text else None")
        self.assertIn("queued 39 messages, refused 1", done.out)
        self.assertEqual(len(self.sessions()), 5)
        self.assertEqual(sorted(self.texts(), key=lambda text: int(text.split()[1])), [b"A: %d\n\n" % n for n in range(40)])

    def test_files_that_are_no_mail(self):
        self.write("in/a.eml", "x")
        self.write("in/picture", b"\x89PNG\r\n")
        done = self.convert(self.folder / "in")
        self.assertEqual(done.returncode, 0)
        self.assertEqual(done.out.splitlines()[1], "1 file is no mail")

    def test_system_is_passed_on(self):
        systems = self.write("systems.toml", f'[system.main]\nhome = "{self.home_path}"\n')
        seen = self.folder / "seen"
        gateway = self.write("spy", f"#!/bin/sh\necho \"$MORVANE_HOME $*\" > {seen}\necho 451 no\n")
        gateway.chmod(0o755)
        mail = self.write("a.eml", "A: 1\n\n")
        self.tool("convert", "-s", "main", "--gateway", gateway, mail, extra={"MORVANE_SYSTEMS": str(systems)})
        self.assertEqual(seen.read_text(encoding="utf-8"), f"{self.home_path} -s main\n")
        self.tool("convert", "--gateway", gateway, mail)
        self.assertEqual(seen.read_text(encoding="utf-8"), f"{self.home_path} \n")

    def test_progress_is_for_terminals(self):
        for number in range(30):
            self.write("in/\x1b[31m%02d.eml" % number, "A: 1\n\n" + "x\n" * 100_000)
        extra = {"FAKE_LOG": str(self.log), "FAKE_TEXTS": "'554 \\x1b[2J' if len(text) else None", "TERM": "xterm"}
        args = ["convert", "--gateway", self.gateway, self.folder / "in"]
        status, seen = run_on_terminal(args, self.env(**extra), ("stdout", "stderr"))
        self.assertEqual(status, 1)
        self.assertRegex(seen, rb"\r[^\r]*%  \d+ messages  \d+\.\d MB/s")
        self.assert_harmless(re.sub(rb"\r|\x1b\[K", b"", seen))
        self.assertEqual(self.convert(self.folder / "in").err, "", "no bar in a file")

    @unittest.skipIf(SANITIZED, "sanitizers keep memory of their own")
    def test_memory_does_not_grow_with_the_mail(self):
        peaks = []
        for size in (1, 200):
            mail = self.write("%d.eml" % size, b"A: 1\n\n" + (b"x" * 78 + b"\n") * (size * MEGABYTE // 79))
            extra = {"FAKE_LOG": str(self.log), "FAKE_KEEP": "0"}
            status, peak = peak_memory(["convert", "--gateway", self.gateway, mail], self.env(**extra))
            self.assertEqual(status, 0)
            peaks.append(peak)
        self.assertLess(peaks[1], peaks[0] + 4 * MEGABYTE, peaks)


class RealGateway(ToolTest):
    def test_mail_arrives(self):
        home = self.fresh_home()
        if os.getuid() != 0:
            Path(home.file("sys/unixin.trust")).write_text(os.environ.get("USER", "") + "\n", encoding="utf-8")
        self.write("in/1.eml", "From: Jane Doe <jane@example.com>\nTo: bob@example.org\nSubject: one\n\nHello\n.dot\n>From\n")
        self.write("in/2.mbox", FROM_1 + "Subject: two\n\n>From\n\n" + FROM_2 + "Subject: three\n\nlast\n")
        self.assertIn("queued 3 messages, refused 0", self.succeed("convert", "-j", "2", self.folder / "in"))
        self.assertIn("no damage", self.succeed("fsck"))
        listed = json.loads(self.succeed("queue", "list", "--json"))
        self.assertEqual(sorted(entry["messages"][0]["subject"] for entry in listed), ["one", "three", "two"])
        for entry in listed:
            if entry["messages"][0]["subject"] == "one":
                self.assertEqual(self.tool("item", "cat", entry["entry"] + "#2").stdout, b"Hello\n.dot\n>From\n")

    def test_a_home_that_does_not_work(self):
        home = self.fresh_home()
        Path(home.file("sys/gateway.toml")).write_text("= =\n", encoding="utf-8")
        mail = self.write("1.eml", "Subject: one\n\n")
        done = self.tool("convert", mail, self.write("2.eml", "Subject: two\n\n"))
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.out + done.err, r"1\.eml: 4\d\d ")
