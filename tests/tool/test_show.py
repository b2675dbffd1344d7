"""A message as a tree, as JSON and as a dump; and everything that can be wrong with it."""

import json
import os
import re
import struct
import unittest
from pathlib import Path

import native
from room import JANE, MEGABYTE, SANITIZED, ToolTest, environment, peak_memory, run, run_on_terminal, small_message

GREETINGS = "=?utf-8?q?Gr=C3=BC=C3=9Fe?="


def rich_message():
    """One of everything."""
    message = native.MessageBuilder(route="via\x1b[31m")
    message.record(native.header(flags=0x0400 | 2 | 2 << 3 | 2 << 6 | 0xF000, kind=1, hops=3, mime_type="text/plain"))
    message.record(native.creator(JANE)).record(native.creator("/CN=Boss", native.P2_ORIGINATOR))
    message.record(native.return_address("/S=Doe/G=Jane/O=example.org"))
    message.record(native.subject(GREETINGS)).record(native.item_class("IPM.Note"))
    message.record(native.date(1_700_000_000, 60)).record(native.date(1_700_000_001, -570, 13600))
    message.record(native.date(1, 0, 13700)).record(native.date(1, 0, 14100)).record(native.date(1, 0, 16000))
    message.record(native.message_id("MV0123456789ABCDEF", "<a@b>"))
    for kind in 13200, 13800, 13900:
        message.record(native.reference("MV0000000000000001", kind))
    message.record(native.Record(15000, 40).string("/CN=Reply", 24))
    message.record(native.object_file("inetMessageHeader", "Subject: \x1b[31m\r\nTo: b\r\n"))
    message.record(native.object_file("MAPI.ObjectProperties", b"\x78\x9f\x3e\x22"))
    names = [native.header(2, 1000, 0x400), native.list_counts(1, 2, 1, 1, 1, 1)]
    for kind in 22000, 22100, 22200, 22300, 22430, 22440:
        names.append(native.list_entry("/CN=n%d/DD.RFC-822=n%d(a)x.org" % (kind, kind), kind))
    message.names(names, GREETINGS)
    message.record(native.Record(native.START_ALTERNATIVES))
    message.text("Hi\x1b[2J\r\n\n\tyou\n", flags=0x21, rfc2047subject=GREETINGS)
    message.text(b"<p>\xe4</p>\n", code=native.HTML, charset="ISO8859_1", pMIMEContentType="text/html")
    message.record(native.Record(native.END_ALTERNATIVES))
    message.record(native.start_package("Inner"))
    message.record(native.header(flags=1).wrapped()).record(native.subject("Inner").wrapped())
    message.names([native.header(2, 1000), native.list_counts(to=1), native.list_entry(JANE)], "Inner")
    message.record(native.start_package("p", 2 | 4 | 0x18, "multipart/parallel"))
    message.text(b"\x89PNG", code=0, charset="", pOrigFileName=GREETINGS, pContentDisp="attachment",
                 pMIMEContentType="image/png", pContentID="<1@x>", pContentLocation="http://x", wrap=True)
    message.record(native.date(1, 0, 30600)).record(native.date(1, 0, 30605))
    message.record(native.Record(native.END_PACKAGE)).record(native.Record(native.END_PACKAGE))
    message.record(native.properties("PidTagSubject:unicode=x\nPidLidLocation:unicode=y\n", relations=1))
    message.record(native.Record(4711).string("\x1bwhat"))
    message.record(native.recipient(JANE, 1, 1, 0xB000 | 0x10 | 7)).record(native.recipient("", 2, 3))
    message.record(native.acknowledgement("/CN=a", 4 | 16 | 128, "rfc822;o@x"))
    return message.record(native.non_delivery("/CN=b", 511, "rfc822;p@x"))


RICH_TREE = """\
ENTRY  queued Tue 2023-11-14 22:13:20 +00:00 · urgent · waiting in ROUTER
└─ message         ID.mesg · 6 files · SIZE · route via\\x1B[31m
   ├─ header          message · reply · urgent · private · high importance · auto-forwarded · auto-replied · \
content goes back with reports · hops 3 · text/plain
   ├─ creator         Jane Doe <jane@example.org>  /CN=Jane Doe/DD.RFC-822=jane(a)example.org
   ├─ P2 originator   Boss  /CN=Boss
   ├─ return address  Jane Doe  /S=Doe/G=Jane/O=example.org
   ├─ subject         Grüße
   ├─ item class      IPM.Note · mail
   ├─ created         Tue 2023-11-14 23:13:20 +01:00
   ├─ reply by        Tue 2023-11-14 12:43:21 -09:30
   ├─ expires         Thu 1970-01-01 00:00:01 +00:00
   ├─ deferred until  Thu 1970-01-01 00:00:01 +00:00
   ├─ latest delivery Thu 1970-01-01 00:00:01 +00:00
   ├─ message id      MV0123456789ABCDEF · transport id <a@b>
   ├─ in reply to     MV0000000000000001
   ├─ references      MV0000000000000001
   ├─ obsoletes       MV0000000000000001
   ├─ reply to        Reply  /CN=Reply
   ├─ object          inetMessageHeader · 23 bytes
   │     ┆ Subject: \\x1B[31m
   │     ┆ To: b
   ├─ object          MAPI.ObjectProperties · 4 bytes
   ├─ content 1       distribution list (1166) · of the message itself
   │  ├─ header          distribution list · content goes back with reports
   │  ├─ counts          names 7 · from 1 · to 2 · cc 1 · bcc 1 · sender 1 · reply-to 1
   │  ├─ From            n22000 <n22000@x.org>  /CN=n22000/DD.RFC-822=n22000(a)x.org
   │  ├─ To              n22100 <n22100@x.org>  /CN=n22100/DD.RFC-822=n22100(a)x.org
   │  ├─ Cc              n22200 <n22200@x.org>  /CN=n22200/DD.RFC-822=n22200(a)x.org
   │  ├─ Bcc             n22300 <n22300@x.org>  /CN=n22300/DD.RFC-822=n22300(a)x.org
   │  ├─ Sender          n22430 <n22430@x.org>  /CN=n22430/DD.RFC-822=n22430(a)x.org
   │  └─ Reply-To        n22440 <n22440@x.org>  /CN=n22440/DD.RFC-822=n22440(a)x.org
   ├─ alternatives
   │  ├─ content 2       plain text (1167) · 14 bytes · IA5 · hidden: a richer alternative follows
   │  │     type text/plain
   │  │     ┆ Hi\\x1B[2J
   │  │     ┆ 
   │  │     ┆  you
   │  └─ content 3       HTML (2133) · 9 bytes · ISO8859_1
   │        type text/html
   │        ┆ <p>ä</p>
   ├─ message         Inner
   │  ├─ header          ⊂ message · non-urgent
   │  ├─ subject         ⊂ Inner
   │  ├─ content 4       distribution list (1166) · of the message itself
   │  │  ├─ header          distribution list
   │  │  ├─ counts          no blind copies · names 1 · to 1
   │  │  └─ To              Jane Doe <jane@example.org>  /CN=Jane Doe/DD.RFC-822=jane(a)example.org
   │  └─ package         p · multipart/parallel · parallel · signed · hidden: a richer alternative follows
   │     ├─ content 5       ⊂ binary (0) · 4 bytes
   │     │     file name Grüße · type image/png · disposition attachment · content id <1@x> · location http://x
   │     ├─ file created    Thu 1970-01-01 00:00:01 +00:00
   │     └─ file modified   Thu 1970-01-01 00:00:01 +00:00
   ├─ properties      of relations · 49 bytes
   │     ┆ PidTagSubject:unicode=x
   │     ┆ PidLidLocation:unicode=y
   ├─ record 4711     22 bytes
   │     \\x1Bwhat\\x00
   ├─ recipient 1     To  Jane Doe <jane@example.org>  /CN=Jane Doe/DD.RFC-822=jane(a)example.org
   │     acknowledge reading · no acknowledgement of delivery · disposition notification wanted · reply requested · \
no non-delivery report
   ├─ recipient 2     Bcc  no name
   ├─ delivered       a  /CN=a
   │     list expanded · sent by hand · originally o@x
   └─ not delivered   b  /CN=b
         bad destination mailbox · reason 511 (status x.1.1, addressing) · originally p@x
"""


class Tree(ToolTest):
    def setUp(self):
        super().setUp()
        self.home = self.fresh_home()

    def anonymous(self, text, *entries):
        for entry in entries:
            text = text.replace(entry, "ENTRY")
        return re.sub(r"\d+\.\d KiB", "SIZE", re.sub(r"[0-9a-f]{16}(?=\.)", "ID", text))

    def test_everything(self):
        entry = self.home.queue(rich_message(), priority=2)
        self.assertEqual(self.anonymous(self.succeed("show"), entry).splitlines(), RICH_TREE.splitlines())
        self.assertIn("no damage", self.succeed("fsck"))

    def test_ascii(self):
        self.home.queue(rich_message())
        done = self.tool("show", extra={"LC_ALL": "C"})
        self.assertEqual(done.returncode, 0)
        self.assertTrue(done.out.isascii())
        self.assertIn("\n   |- subject         Gr??e\n", done.out)
        self.assertIn("\n   |  |- subject         < Inner\n", done.out)

    def test_colour_is_for_terminals(self):
        self.home.queue(rich_message())
        plain = self.tool("show").stdout
        self.assertNotIn(b"\x1b", plain)
        _, coloured = run_on_terminal(["show"], self.env(TERM="xterm"))
        self.assertIn(b"\x1b[1;36msubject\x1b[0m", coloured)
        self.assert_harmless(coloured)
        self.assertEqual(re.sub(rb"\x1b\[[0-9;]*m", b"", coloured).replace(b"\r\n", b"\n"), plain)
        for extra in ({"TERM": "xterm", "NO_COLOR": "1"}, {"TERM": "dumb"}, {}):
            _, seen = run_on_terminal(["show"], self.env(**extra))
            self.assertEqual(seen.replace(b"\r\n", b"\n"), plain, extra)
        _, seen = run_on_terminal(["show"], self.env(TERM="xterm", NO_COLOR=""))
        self.assertIn(b"\x1b", seen, "an empty NO_COLOR says nothing")

    def test_two_messages(self):
        entry = self.home.queue(small_message("one"), small_message("two"))
        out = self.anonymous(self.succeed("show", entry), entry)
        self.assertEqual([line[:10] for line in out.splitlines() if "message  " in line], ["├─ message", "└─ message"])

    def test_which_is_meant(self):
        old = self.home.queue(small_message("older"), priority=2)
        new = self.home.queue(small_message("newer"), priority=1)
        self.assertIn("newer", self.succeed("show"), "queued last, whatever its rank")
        self.succeed("queue", "take", new)
        self.assertIn("taken from ROUTER", self.succeed("show", new))
        self.assertIn("newer", self.succeed("show"), "taken ones count")
        self.assertIn("older", self.succeed("show", old[-8:]))
        self.assertIn("older", self.succeed("show", old[:24]))
        self.fail_with("no entry of ROUTER and no file is called", "show", "none")
        message = [path for path in self.home.items() if path.endswith(".mesg")][0]
        name = os.path.basename(message)
        for what in (name, name[:16], self.home.file(message)):
            self.assertIn("└─ recipient 1", self.succeed("show", what), what)
        files = self.home.messages_of(old)[0]
        self.assertIn("content         distribution list", self.succeed("show", files[0].name()), "a transfer file alone")
        self.assertIn("└─ To", self.succeed("show", files[1].name()), "a list alone")
        self.assertIn("Hello,", self.succeed("show", files[2].name()), "an item")

    def test_lists_of_thousands(self):
        message = native.MessageBuilder().record(native.header())
        names = [native.header(2, 1000), native.list_counts(to=2000)]
        message.names(names + [native.list_entry("/CN=n%d" % n) for n in range(2000)])
        for number in range(2000):
            message.record(native.recipient("/CN=r%d" % number, number + 1))
        self.home.queue(message)
        out = self.succeed("show")
        self.assertLess(len(out.splitlines()), 70)
        self.assertEqual(out.count("1,975 more, shown with --all"), 2)
        everything = self.succeed("show", "--all")
        self.assertEqual(everything.count("─ To "), 2000)
        self.assertEqual(everything.count("─ recipient "), 2000)

    def test_character_sets_of_previews(self):
        rows = [("KOI8_R", "Привет".encode("koi8-r"), "Привет"), ("WIN1252", b"\x80", "€"),
                ("ISO2022JP", "日本".encode("iso2022_jp"), "日本"), ("UTF8", "a\u202eb\u009b".encode(), None),
                ("NO_SUCH_SET", b"\xe4", r"\xE4")]
        message = native.MessageBuilder().record(native.header())
        for charset, data, _ in rows:
            message.text(data, code=native.OTHER_TEXT, charset=charset)
        self.home.queue(message)
        out = self.succeed("show")
        for charset, _, expected in rows:
            if expected:
                self.assertIn("┆ " + expected, out, charset)
        self.assertNotIn("\u202e", out)
        self.assertNotIn("\u009b", out)

    def test_every_file_code_has_a_name(self):
        codes = {1166: "distribution list", 1167: "plain text", 1168: "message header", 0: "binary", 2133: "HTML",
                 1736: "text in another character set", 1734: "TNEF", 2191: "calendar", 2130: "rich text",
                 2185: "signed message", 3100: "property part", 3109: "property part", 99: "file type"}
        message = native.MessageBuilder().record(native.header())
        for code in codes:
            if code == 1166:
                message.names([native.header(2, 1000)])
            else:
                message.text("x", code=code)
        self.home.queue(message)
        out = self.succeed("show")
        for code, name in codes.items():
            self.assertIn(f"{name} ({code})", out)


class Json(ToolTest):
    def setUp(self):
        super().setUp()
        self.home = self.fresh_home()

    def test_everything(self):
        entry = self.home.queue(rich_message(), priority=2)
        shown = json.loads(self.succeed("show", "--json"))
        self.assertEqual(shown["entry"], entry)
        self.assertEqual((shown["priority"], shown["priorityText"], shown["queued"]), (2, "urgent", 1_700_000_000))
        message, = shown["messages"]
        self.assertEqual((message["formatVersion"], message["filterRoute"]), (1, "via\x1b[31m"))
        main = self.home.messages_of(entry)[0][0]
        self.assertEqual(message["transferFile"]["item"]["fileId"] + ".tran", main.name())
        records = native.read_records(self.home.read(main))
        self.assertEqual([record["type"] for record in message["records"]],
                         [record.unwrapped().type for record in records])
        self.assertEqual([record["wrapped"] for record in message["records"]],
                         [record.type == native.WRAPPED for record in records])
        at = 0
        for record, told in zip(records, message["records"]):
            self.assertEqual(told["position"], at)
            self.assertEqual(told["size"], len(record.unwrapped().data))
            at += len(record.data)
        self.assertNotIn("missing", {key for record in message["records"] for key in record})
        depths = [record["depth"] for record in message["records"]]
        self.assertEqual((max(depths), depths[0], depths[-1]), (2, 0, 0))

    def test_every_field_of_the_format(self):
        self.home.queue(rich_message())
        fields = {}
        for record in json.loads(self.succeed("show", "--json"))["messages"][0]["records"]:
            fields.setdefault(record["type"], record.get("fields"))
        header = fields[1100]
        self.assertEqual([header[key] for key in ("reserved16", "reserved18", "class", "messageType", "flags",
                                                  "reserved28", "hops", "reserved42", "mimeType")],
                         [3, 0, 0, 1, 0xF492, 1, 3, 2, "text/plain"])
        self.assertEqual(header["flagsText"], ["urgent", "private", "high importance", "auto-forwarded", "auto-replied",
                                               "content goes back with reports"])
        self.assertEqual(fields[10000]["nameText"], "Jane Doe <jane@example.org>")
        self.assertEqual((fields[11100]["subject"], fields[11100]["subjectText"]), (GREETINGS, "Grüße"))
        self.assertEqual(fields[13000], {"seconds": 1_700_000_000, "secondsText": "2023-11-14T23:13:20+01:00", "zone": 60})
        self.assertEqual(fields[13100], {"identifier": "MV0123456789ABCDEF", "transportId": "<a@b>"})
        self.assertEqual(fields[30700]["content"], "Subject: \x1b[31m\r\nTo: b\r\n")
        self.assertEqual((fields[30710]["relations"], fields[30710]["properties"].count("\n")), (1, 2))
        self.assertEqual((fields[42100]["flags"], fields[42100]["originalRecipient"]), (148, "rfc822;o@x"))
        self.assertEqual((fields[42200]["reason"], fields[42200]["originalRecipient"]), (511, "rfc822;p@x"))
        content = fields[30500]
        self.assertEqual(set(native.CONTENT_STRINGS) - set(content), set())
        self.assertEqual(fields[30100]["qnPkgType"], -100)

    def test_attachments(self):
        entry = self.home.queue(rich_message())
        files = self.home.messages_of(entry)[0]
        attachments = json.loads(self.succeed("show", "--json"))["messages"][0]["attachments"]
        self.assertEqual([attachment["number"] for attachment in attachments], [1, 2, 3, 4, 5])
        for attachment, item in zip(attachments, files[1:]):
            self.assertEqual(attachment["path"], self.home.file(item.path()))
            self.assertEqual(attachment["size"], len(self.home.read(item)))
        self.assertEqual([attachment["contentTypeText"] for attachment in attachments],
                         ["distribution list", "plain text", "HTML", "distribution list", "binary"])
        self.assertEqual(len(attachments[0]["records"]), 8)
        self.assertEqual(attachments[2]["preview"], ["<p>ä</p>"])
        self.assertNotIn("preview", attachments[4])

    def test_bytes_that_are_no_text(self):
        message = native.MessageBuilder().record(native.header()).record(native.creator(b"/CN=\xff\xc3"))
        self.home.queue(message)
        record = json.loads(self.succeed("show", "--json"))["messages"][0]["records"][1]
        self.assertEqual((record["fields"]["name"], record["fields"]["nameBytes"]), ("/CN=\xff\xc3", "2f434e3dffc3"))

    def test_every_kind_of_file_is_a_document(self):
        entry = self.home.queue(rich_message())
        files = self.home.messages_of(entry)[0]
        for what in (entry, files[0].name(), files[1].name(), self.home.file("queues/ROUTER/new/" + entry)):
            json.loads(self.succeed("show", "--json", what))


class Hex(ToolTest):
    def test_every_byte_of_every_record_file(self):
        home = self.fresh_home()
        entry = home.queue(rich_message())
        out = self.succeed("show", "--hex", "--all")
        seen = bytearray()
        for line in out.splitlines():
            found = re.match(r"  \+[0-9a-f]{3,}   ((?:[0-9a-f]{2} )+)", line)
            if found:
                seen += bytes.fromhex(found[1])
        files = home.messages_of(entry)[0]
        message = [path for path in home.items() if path.endswith(".mesg")]
        expected = Path(home.file("queues/ROUTER/new/" + entry)).read_bytes() + Path(home.file(message[0])).read_bytes()
        expected += b"".join(home.read(item) for item in files if item.extension == b"tran")
        self.assertEqual(bytes(seen), expected)

    def test_what_a_field_is(self):
        home = self.fresh_home()
        home.queue(small_message())
        out = self.succeed("show", "--hex")
        self.assertRegex(out, r"(?m)^00000000  header \(1100\), 46 bytes$")
        self.assertRegex(out, r"(?m)^  \+018   00 00 04 00 +flags +1024  content goes back with reports$")
        self.assertRegex(out, r"(?m)^  \+010   65 53 f1 00 +seconds +1700000000  Tue 2023-11-14 23:13:20 \+01:00$")


class Damage(ToolTest):
    """Clear answers, with file and offset, and exit status 1."""

    def setUp(self):
        super().setUp()
        self.home = self.fresh_home()
        self.entry = self.home.queue(small_message())
        self.files = self.home.messages_of(self.entry)[0]

    def path(self, number):
        return Path(self.home.file(self.files[number].path()))

    def all_forms_fail(self, pattern, *args):
        for form in ([], ["--json"], ["--hex"]):
            done = self.fail_with(pattern, "show", *form, *args)
            if form == ["--json"] and done.out:
                json.loads(done.out)

    def test_truncated(self):
        whole = self.path(0).read_bytes()
        for size in range(1, len(whole)):
            self.path(0).write_bytes(whole[:size])
            done = self.tool("show")
            try:
                records = native.read_records(whole[:size])
            except native.FormatError as error:
                offset = str(error).split(":", maxsplit=1)[0]
                self.assertEqual(done.returncode, 1)
                self.assertIn(f"{self.path(0)}: {offset}: ", done.err)
            else:
                contents = sum(record.type == native.CONTENT_FILE for record in records)
                self.assertEqual(done.returncode, 0 if contents == 2 else 1, done.err)

    def test_what_stands_before_the_damage_is_shown(self):
        whole = self.path(0).read_bytes()
        self.path(0).write_bytes(whole[:-10])
        done = self.fail_with(r"offset \d+: a record of \d+ bytes where \d+ are left", "show")
        self.assertIn("subject         Hello", done.out)
        self.assertIn("└─ damage", done.out)
        self.all_forms_fail(r"offset \d+: a record of")

    def test_sizes_that_lie(self):
        whole = bytearray(self.path(0).read_bytes())
        for size in (0, 15, 2**31 - 1, 2**31, 2**32 - 1):
            struct.pack_into(">I", whole, 46, size)
            self.path(0).write_bytes(whole)
            self.all_forms_fail(r"\.tran: offset 46: a record (of|that says it has) %d bytes" % size)

    def test_not_record_files(self):
        for name, content in {"mail": "From: x\n\nHello\n", "zero": b"\0" * 100, "short": b"\0\0\0"}.items():
            path = self.write(name, content)
            self.all_forms_fail(name + ": offset 0: ", path)
        self.all_forms_fail("Is a directory", self.folder)
        self.all_forms_fail("No such file", self.folder / "none")
        os.mkfifo(self.folder / "pipe")
        self.all_forms_fail("not a regular file", self.folder / "pipe")

    def test_missing_files(self):
        self.path(2).unlink()
        for form in ([], ["--json"]):
            done = self.fail_with("missing", "show", *form)
            self.assertIn("Hello", done.out)
        self.path(0).unlink()
        self.all_forms_fail(r"\.tran: No such file")

    def test_attachments_that_do_not_match(self):
        self.path(2).write_bytes(b"longer than the record says")
        self.fail_with("the record says 13 bytes, the file has 27", "show")
        self.path(1).write_bytes(b"no list")
        done = self.fail_with("offset 0: 7 bytes are left", "show")
        self.assertIn("recipient 1", done.out)

    def test_numbers_that_do_not_match(self):
        message = small_message()
        message.files.append((b"one more", "item"))
        self.home.queue(message)
        self.fail_with("attached file 3 has no content record", "show")
        self.fail_with("attached file 3 has no content record", "show", "--json")
        message = small_message().record(native.content_file(1167, 3))
        self.home.queue(message)
        self.fail_with("no file is attached for it", "show")
        self.fail_with("more content records than attached files", "show", "--json")

    def test_damaged_message_files_and_entries(self):
        message = Path(self.home.file([path for path in self.home.items() if path.endswith(".mesg")][0]))
        whole = message.read_bytes()
        for content, pattern in ((b"", "no transfer file"), (whole[:21], "no transfer file"), (whole[:50], "offset 21: "),
                                 (whole[21:], "a record of type 91 at the start of a message file"),
                                 (whole + whole, "a record of type 90 in a message file"),
                                 (whole[:21] + native.Record(91).bytes(), "the record is too short")):
            message.write_bytes(content)
            self.fail_with(pattern, "show", self.entry)
        path = Path(self.home.file("queues/ROUTER/new/" + self.entry))
        for content, pattern in ((b"", "the entry queues nothing"), (native.header().bytes(), "a record of type 1100 in"),
                                 (native.Record(92).put("i", 30, 0).bytes(), "the record is too short")):
            path.write_bytes(content)
            self.fail_with(pattern, "show", self.entry)

    def test_hostile_references(self):
        item = native.ItemRef(0xFFFFFFFFFFFFFFFF, b"/../", 65535)
        self.home.queue(small_message())
        message = native.Record(90).put("i", 16, 1).string("", 20).bytes() + native.Record(91).ref(16, item).bytes()
        path = self.write("hostile", message)
        done = self.fail_with("ffffffffffffffff", "show", path)
        self.assertNotIn("\x1b", done.err)

    @unittest.skipIf(SANITIZED, "sanitizers keep memory of their own")
    def test_memory_is_bounded(self):
        large = self.folder / "large.tran"
        record = native.object_file("inetMessageHeader", b"").bytes()
        record = struct.pack(">I", len(record) + 200 * MEGABYTE) + record[4:20] + struct.pack(">I", 200 * MEGABYTE) + record[24:]
        with open(large, "wb") as file:
            file.write(record)
            file.truncate(len(record) + 200 * MEGABYTE)
        huge_text = self.folder / "text.tran"
        with open(huge_text, "wb") as file:
            file.write(struct.pack(">IiiHH", 16 + 200 * MEGABYTE, 11200, 0, 0, 0) + b"x" * (200 * MEGABYTE))
        for path in (large, huge_text):
            for form in ([], ["--json"], ["--hex"]):
                status, peak = peak_memory(["show", *form, path], environment())
                self.assertEqual(status, 0, (path, form))
                self.assertLess(peak, 40 * MEGABYTE, (path, form))

    def test_depth(self):
        package = native.start_package().bytes()
        path = self.write("deep.tran", package * 10_000 + native.Record(native.END_PACKAGE).bytes() * 10_000)
        done = run("show", path)
        self.assertEqual(done.returncode, 0)
        self.assertLess(len(done.stdout), 2 * MEGABYTE)
        self.assertIn("[9999] └─ message", done.out)
        records = json.loads(run("show", "--json", path).out)["records"]
        self.assertEqual(max(record["depth"] for record in records), 9999)
