"""Laying down a home: every row of the table of paths, and never over what is there."""

import os
import re
import shutil
import socket
import stat
import struct
import unittest
from pathlib import Path

from gateway_home import MORVANE
from room import ToolTest, environment, run


def mode(path):
    return stat.S_IMODE(os.lstat(path).st_mode)


class Init(ToolTest):
    def test_layout(self):
        done = run("init", "--home", self.home_path, env=environment(LC_ALL="C"))
        self.assertEqual((done.returncode, done.out, done.err), (0, f"laid down {self.home_path}\n", ""))
        config = (self.home_path / "sys/config").read_bytes()
        self.assertEqual(len(config), 512)
        self.assertEqual(struct.unpack_from("=H", config, 476)[0], ord("/"))
        self.assertEqual(config.replace(b"/", b"\0"), bytes(512), "nothing else is set")
        for domain in (1, 4):
            self.assertEqual(sorted(os.listdir(self.home_path / f"data/{domain}")), [f"{n:02x}" for n in range(256)])
        self.assertEqual(sorted(os.listdir(self.home_path / "data")), ["1", "4"])
        self.assertEqual(os.listdir(self.home_path / "queues"), ["ROUTER"])
        self.assertEqual(sorted(os.listdir(self.home_path / "queues/ROUTER")), ["cur", "new", "tmp"])
        self.assertEqual(sorted(os.listdir(self.home_path)), ["data", "logs", "nls", "queues", "sys", "tmp"])
        self.assertEqual(sorted(os.listdir(self.home_path / "sys")), ["config", "gateway.toml", "mimetypes.toml"])
        self.assertGreater((self.home_path / "nls/C/unix.cat").stat().st_size, 1000)
        for folder, _, names in os.walk(self.home_path):
            self.assertEqual(mode(folder), 0o700, folder)
            for name in names:
                self.assertEqual(mode(os.path.join(folder, name)), 0o600, name)

    def test_modes_do_not_depend_on_the_umask(self):
        old = os.umask(0)
        try:
            self.fresh_home()
        finally:
            os.umask(old)
        self.assertEqual(mode(self.home_path / "queues/ROUTER/new"), 0o700)
        self.assertEqual(mode(self.home_path / "sys/gateway.toml"), 0o600)

    def test_one_active_key(self):
        self.fresh_home()
        lines = (self.home_path / "sys/gateway.toml").read_text(encoding="utf-8").splitlines()
        active = [line for line in lines if line and not line.startswith("#")]
        self.assertEqual(len(active), 1, active)
        key, value = re.fullmatch(r'(\w+) = "([^"]+)"', active[0]).groups()
        self.assertEqual(key, "INET_LOCAL_DOMAINS")
        name = socket.gethostname()
        self.assertTrue(value == name or value.split(".")[0] == name.split(".")[0] or value in socket.getfqdn(), value)
        self.assertFalse([line for line in lines if line.startswith("#INET_LOCAL_DOMAINS")], "the key stands once")

    def test_never_overwrites(self):
        home = self.fresh_home()
        for name in ("sys/config", "sys/gateway.toml", "sys/mimetypes.toml", "nls/C/unix.cat"):
            with open(home.file(name), "wb") as file:
                file.write(b"mine")
        with open(home.file("data/1/00/precious"), "wb"):
            pass
        out = self.succeed("init")
        self.assertIn("nothing was missing", out)
        self.assertIn("kept sys/config", out)
        for name in ("sys/config", "sys/gateway.toml", "sys/mimetypes.toml", "nls/C/unix.cat"):
            self.assertEqual(Path(home.file(name)).read_bytes(), b"mine")
        self.assertTrue(os.path.exists(home.file("data/1/00/precious")))
        self.assertEqual([name for name in os.listdir(home.file("sys")) if ".new-" in name], [], "no drafts left")

    def test_makes_what_is_missing(self):
        home = self.fresh_home()
        shutil.rmtree(home.file("data/4"))
        os.unlink(home.file("nls/C/unix.cat"))
        self.assertIn("laid down", self.succeed("init"))
        self.assertEqual(len(os.listdir(home.file("data/4"))), 256)
        self.assertTrue(os.path.exists(home.file("nls/C/unix.cat")))

    def test_delimiter(self):
        for character in ";", "!", "~", "|":
            with self.subTest(character):
                home = self.folder / ("d%d" % ord(character))
                self.assertEqual(run("init", "--home", home, "--delimiter", character).returncode, 0)
                self.assertEqual(struct.unpack_from("=H", (home / "sys/config").read_bytes(), 476)[0], ord(character))

    def test_bad_delimiters(self):
        for text in "ab", "=", "\\", "A", "7", " ", "\t", "ü", ".", "--":
            with self.subTest(text):
                done = run("init", "--home", self.home_path, f"--delimiter={text}")
                self.assertEqual(done.returncode, 1, done.err)
                self.assertIn("cannot be the name delimiter", done.err)
                self.assertFalse(self.home_path.exists(), "nothing is laid down")

    def test_another_delimiter_is_refused_and_the_old_one_kept(self):
        home = self.fresh_home()
        before = Path(home.file("sys/config")).read_bytes()
        self.fail_with(r"is kept; its name delimiter is \"/\"", "init", "--delimiter", ";")
        self.assertEqual(Path(home.file("sys/config")).read_bytes(), before)
        self.succeed("init", "--delimiter", "/")

    def test_relative_homes_and_parents(self):
        done = run("init", "--home", "a/b/../c/home", cwd=self.folder)
        self.assertEqual((done.returncode, done.out), (0, f"laid down {self.folder}/a/c/home\n"))
        self.assertEqual(mode(self.folder / "a/c"), 0o755 & ~0o077 | mode(self.folder / "a/c") & 0o055)
        self.assertEqual(mode(self.folder / "a/c/home"), 0o700)

    def test_a_home_that_cannot_be(self):
        self.write("file", "x")
        done = run("init", "--home", self.folder / "file")
        self.assertEqual(done.returncode, 1)
        self.assertIn(str(self.folder / "file"), done.err)

    @unittest.skipIf(any(Path(path, "morvane").exists() for path in ("/usr/share", "/usr/local/share")), "installed here")
    def test_incomplete_installation(self):
        shutil.copy(MORVANE, self.folder / "morvane")
        done = run("init", "--home", self.home_path, executable=self.folder / "morvane")
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.err, r"morvane: gateway.toml is neither in .* is morvane installed completely\?")
        self.assertFalse(self.home_path.exists())


class Choice(ToolTest):
    """Which home is meant."""

    def systems(self, text):
        return {"MORVANE_SYSTEMS": str(self.write("systems.toml", text)), "MORVANE_HOME": None}

    def test_order(self):
        homes = {name: self.folder / name for name in ("a", "b", "env", "option")}
        for home in homes.values():
            run("init", "--home", home)
        text = f'default = "b"\n[system.a]\nhome = "{homes["a"]}"\n[system.b]\nhome = "{homes["b"]}"\n'
        base = self.systems(text)
        both = {**base, "MORVANE_HOME": str(homes["env"])}
        rows = [(["--home", homes["option"], "-s", "a"], both, "option"), (["-s", "a"], both, "a"), ([], both, "env"),
                ([], base, "b")]
        for args, extra, expected in rows:
            with self.subTest(expected):
                done = run("init", *args, env=environment(**extra))
                self.assertEqual(done.out.splitlines()[0], f"nothing was missing in {homes[expected]}")

    def test_options_may_stand_anywhere(self):
        self.fresh_home()
        for args in (["--home", self.home_path, "queue", "list"], ["queue", "--home", self.home_path, "list"],
                     ["queue", "list", "--home", self.home_path]):
            self.assertEqual(run(*args).returncode, 0, args)

    def test_unknown_system(self):
        done = self.fail_with('there is no mail system called "x"', "-s", "x", "init",
                              extra=self.systems('[system.a]\nhome = "/srv/a"\n'))
        self.assertIn("  a  /srv/a\n", done.err)

    def test_bad_systems_file(self):
        self.fail_with(r"systems.toml:2: key system.a.home: a text is wanted", "-s", "a", "fsck",
                       extra=self.systems("[system.a]\nhome = 1\n"))

    def test_bad_systems_file_does_not_matter_where_the_environment_says_the_home(self):
        self.fresh_home()
        self.succeed("queue", "list", extra={"MORVANE_SYSTEMS": str(self.write("systems.toml", "= ="))})

    def test_no_home(self):
        for args in (["show"], ["fsck"], ["queue", "list"], ["item", "cat", "0" * 16]):
            self.fail_with("is not a home: .* morvane init", *args)


class CommandLine(ToolTest):
    def test_misunderstood(self):
        for args in ([], ["nonsense"], ["queue"], ["show", "--nonsense"], ["show", "--json", "--hex"], ["item", "cat"],
                     ["convert"], ["convert", "-j", "0", "x"], ["queue", "export", "x"], ["directory", "import", "x"]):
            done = self.tool(*args)
            self.assertEqual(done.returncode, 2, args)
            self.assertNotEqual(done.err + done.out, "", args)

    def test_help_and_version(self):
        for args in (["--help"], ["show", "--help"], ["queue", "list", "--help"]):
            done = self.tool(*args)
            self.assertEqual(done.returncode, 0)
            self.assertIn("--help", done.out)
        self.assertRegex(self.succeed("--version"), r"^morvane \d")
