"""The queue by hand: order, taking, finishing, exporting; and single files."""

import json
import os
from pathlib import Path

import native
from room import ToolTest, run, run_on_terminal, small_message


class Queue(ToolTest):
    def setUp(self):
        super().setUp()
        self.home = self.fresh_home()

    def test_empty(self):
        self.assertEqual(self.succeed("queue", "list"), "0 entries wait, 0 are taken\n")
        self.assertEqual(json.loads(self.succeed("queue", "list", "--json")), [])
        self.fail_with("nothing waits in ROUTER", "queue", "take")
        self.fail_with("nothing is queued on ROUTER", "show")

    def test_order_is_that_of_service(self):
        names = [self.home.queue(small_message(f"s{priority}"), priority=priority) for priority in (1, 0, 2, 0)]
        listed = json.loads(self.succeed("queue", "list", "--json"))
        self.assertEqual([entry["entry"] for entry in listed], [names[2], names[1], names[3], names[0]])
        self.assertEqual([entry["priorityText"] for entry in listed], ["urgent", "normal", "normal", "non-urgent"])
        first = listed[0]
        self.assertEqual((first["state"], first["queued"], first["queuedText"]),
                         ("waiting", 1_700_000_000, "2023-11-14T22:13:20+00:00"))
        message = first["messages"][0]
        self.assertEqual((message["files"], message["subject"], message["originator"]),
                         (3, "s2", "Jane Doe <jane@example.org>"))
        self.assertRegex(message["message"], r"^[0-9a-f]{16}\.mesg$")

    def test_list_for_people(self):
        name = self.home.queue(small_message("=?utf-8?q?Gr=C3=BC=C3=9Fe?="), priority=2)
        titles, line, total = self.succeed("queue", "list").splitlines()
        self.assertRegex(titles, "^ENTRY +STATE +PRIORITY +QUEUED +SIZE +FROM +SUBJECT$")
        self.assertRegex(line, name + r" +waiting urgent +2023-11-14T22:13:20Z +\d+ bytes +Jane Doe <jane@example.org> +Grüße$")
        self.assertEqual(total, "1 entry waits, 0 are taken")
        self.assertEqual(titles.index("SUBJECT"), line.index("Grüße"))

    def test_two_messages_in_one_entry(self):
        self.home.queue(small_message("one"), small_message("two"))
        entry = json.loads(self.succeed("queue", "list", "--json"))[0]
        self.assertEqual([message["subject"] for message in entry["messages"]], ["one", "two"])
        self.assertIn("two\n", self.succeed("queue", "list"))

    def test_reports_are_told_by_what_they_are_about(self):
        def report(kind):
            return native.MessageBuilder().record(native.header(1, kind)).record(native.reference("MV0123456789ABCDEF", 13200))
        self.home.queue(report(110).record(native.acknowledgement("/CN=a")),
                        report(100).record(native.subject("Undelivered")).record(native.non_delivery("/CN=b", 511)))
        _, first, second, _ = self.succeed("queue", "list").splitlines()
        self.assertRegex(first, r" acknowledgement +about MV0123456789ABCDEF$")
        self.assertRegex(second, r" non-delivery +Undelivered$")
        messages = json.loads(self.succeed("queue", "list", "--json"))[0]["messages"]
        self.assertEqual([(message["report"], message["about"]) for message in messages],
                         [("acknowledgement", "MV0123456789ABCDEF"), ("non-delivery", "MV0123456789ABCDEF")])

    def test_replies_are_no_reports(self):
        self.home.queue(small_message().record(native.reference("MV0123456789ABCDEF", 13200)))
        self.assertNotIn("about", self.succeed("queue", "list", "--json"))

    def test_life_of_an_entry(self):
        late, urgent = self.home.queue(small_message()), self.home.queue(small_message(), priority=2)
        self.assertEqual(self.succeed("queue", "take"), urgent + "\n")
        self.assertEqual((self.home.entries(), self.home.entries(folder="cur")), ([late], [urgent]))
        self.fail_with("is taken already", "queue", "take", urgent)
        self.fail_with("is taken; morvane queue done deletes it", "queue", "remove", urgent)
        self.fail_with("has not been taken", "queue", "done", late)
        states = {entry["entry"]: entry["state"] for entry in json.loads(self.succeed("queue", "list", "--json"))}
        self.assertEqual(states, {late: "waiting", urgent: "taken"})
        self.assertEqual(json.loads(self.succeed("queue", "done", "--json", urgent)), {"entry": urgent, "state": "done"})
        self.assertEqual(len(self.home.items()), 4, "the files of the other message stay")
        self.assertEqual(self.succeed("queue", "remove", late), late + "\n")
        self.assertEqual(self.home.items(), [])
        self.assertEqual(self.home.entries(), [])

    def test_names_may_be_cut(self):
        name, other = self.home.queue(small_message()), self.home.queue(small_message())
        suffix = name[name.rindex("-"):]
        self.assertEqual(self.succeed("queue", "take", suffix), name + "\n")
        self.fail_with(r'2 entries of ROUTER begin or end with "1-"', "queue", "take", "1-")
        self.fail_with('no entry of ROUTER and no file is called "none"', "queue", "done", "none")
        self.assertEqual(self.succeed("queue", "take", other), other + "\n")

    def test_other_queues(self):
        for folder in ("tmp", "new", "cur"):
            os.makedirs(self.home.file("queues/OTHER/" + folder))
        name = self.home.queue(small_message("elsewhere"), queue="OTHER")
        self.assertIn("elsewhere", self.succeed("queue", "list", "--queue", "OTHER"))
        self.assertIn("elsewhere", self.succeed("show", "--queue", "OTHER"))
        self.assertEqual(self.succeed("queue", "--queue", "OTHER", "take", name), name + "\n")
        self.fail_with("queues/NONE", "queue", "list", "--queue", "NONE")

    def test_damaged_entries_do_not_hide_the_others(self):
        good = self.home.queue(small_message("good"))
        Path(self.home.file("queues/ROUTER/new/0-bad")).write_bytes(b"no records")
        done = self.tool("queue", "list", "--json")
        self.assertEqual(done.returncode, 1)
        self.assertEqual([entry["entry"] for entry in json.loads(done.out)], [good])
        self.assertIn("0-bad: offset 0", done.err)

    def test_export(self):
        name = self.home.queue(small_message("one"), small_message("two", "\0\r\xff"))
        target = self.folder / "out/there"
        self.assertIn(f"9 files of {name} are in {target}/", self.succeed("queue", "export", name, "--to", target))
        exported = {path.name: path.read_bytes() for path in target.iterdir()}
        stored = {os.path.basename(item): Path(self.home.file(item)).read_bytes() for item in self.home.items()}
        self.assertEqual({key: value for key, value in exported.items() if key != name}, stored)
        self.assertEqual(exported[name], Path(self.home.file("queues/ROUTER/new/" + name)).read_bytes())
        self.assertEqual(self.home.entries(), [name], "it waits on")
        done = json.loads(self.succeed("queue", "export", "--json", name, "--to", self.folder / "json"))
        self.assertEqual(sorted(done["files"]), sorted(exported))
        self.fail_with("File exists", "queue", "export", name, "--to", target)
        # What was exported can be looked at where no home is.
        shown = run("show", target / name)
        self.assertEqual(shown.returncode, 0, shown.err)
        self.assertIn("two", shown.out)


class Item(ToolTest):
    def setUp(self):
        super().setUp()
        self.home = self.fresh_home()
        self.data = bytes(range(256)) * 1000
        self.name = self.home.queue(small_message(text=self.data))
        self.files = self.home.messages_of(self.name)[0]

    def cat(self, *args):
        done = self.tool("item", "cat", *args)
        self.assertEqual((done.returncode, done.err), (0, ""))
        return done.stdout

    def test_ways_to_name_it(self):
        item = self.files[2]
        path = self.home.file(item.path())
        for ref in (item.name(), item.name()[:16], path, self.name + "#2", "#2", self.name[-6:] + "#2"):
            self.assertEqual(self.cat(ref), self.data, ref)
        self.assertEqual(self.cat("#0"), self.home.read(self.files[0]), "the main transfer file")
        self.assertEqual(self.cat("#1"), self.home.read(self.files[1]))
        self.assertEqual(self.cat(self.files[1].name()[:16]), self.home.read(self.files[1]), "other extensions are found")

    def test_what_it_is_not(self):
        self.fail_with("the message has 2 attached files", "item", "cat", "#3")
        self.fail_with("a number is wanted after #", "item", "cat", "#x")
        self.fail_with("a number is wanted after #", "item", "cat", "#")
        self.fail_with("is a queue entry; its files are", "item", "cat", self.name)
        self.fail_with("No such file", "item", "cat", "0" * 16)
        self.fail_with("no entry of ROUTER", "item", "cat", "nothing")
        self.fail_with("is not a message", "item", "cat", self.files[0].name() + "#1")
        self.fail_with("Is a directory", "item", "cat", self.folder / ".")

    def test_terminals_get_no_control_characters(self):
        status, seen = run_on_terminal(["item", "cat", "#2"], self.env(TERM="xterm"))
        self.assertEqual(status, 0)
        self.assert_harmless(seen)
        self.assertIn(rb"\x1B", seen)
        _, raw = run_on_terminal(["item", "cat", "--raw", "#2"], self.env(TERM="xterm"))
        self.assertIn(b"\x1b", raw)
