"""The embedded directory through the tool. What the formats and the database do is tested with their service."""

import json
import os
import subprocess
from pathlib import Path

from gateway_home import MORVANE
from room import ToolTest

LDIF = """version: 1

dn: cn=Jane
cn: Jane
mail: jane@example.org
mail: doe@example.org
morvaneName: /S=Doe/G=Jane/O=example.org

dn: cn=Bob
mail: bob@example.org
morvaneName: /CN=Bob
"""
CSV = "name,mail\n/S=Doe/G=Jane/O=example.org,jane@example.org\n/CN=Bob,bob@example.org\n"


class Directory(ToolTest):
    def setUp(self):
        super().setUp()
        self.home = self.fresh_home()

    def test_import_and_lookup(self):
        for name, content in (("staff.ldif", LDIF), ("staff.csv", CSV)):
            self.succeed("directory", "import", "staff", self.write(name, content), "--replace")
            self.assertIn("staff  2 entries\n", self.succeed("directory", "list"))
            found = self.succeed("directory", "lookup", "staff", "MAIL", "Jane@EXAMPLE.org")
            self.assertTrue(found.startswith("/S=Doe/G=Jane/O=example.org\n"), found)
            entry, = json.loads(self.succeed("directory", "lookup", "--json", "staff", "mail", "bob@example.org"))
            self.assertEqual(entry["name"], "/CN=Bob")
            self.assertIn({"attribute": "mail", "value": "bob@example.org"}, entry["attributes"])
        self.assertEqual(os.stat(self.home.file("sys/directory.db")).st_mode & 0o777, 0o600)

    def test_nothing_found(self):
        self.succeed("directory", "import", "staff", self.write("a.csv", CSV))
        self.fail_with('no entry of staff has "x" in mail', "directory", "lookup", "staff", "mail", "x")
        self.fail_with("no entry of none", "directory", "lookup", "none", "mail", "x")
        self.assertEqual(json.loads(self.tool("directory", "lookup", "--json", "none", "mail", "x").out), [])

    def test_export_is_read_back(self):
        self.succeed("directory", "import", "staff", self.write("a.ldif", LDIF))
        for name in "b.ldif", "b.csv":
            self.succeed("directory", "export", "staff", self.folder / name)
            self.succeed("directory", "import", "copy", self.folder / name, "--replace")
            again = self.tool("directory", "export", "copy", "--format", "csv").stdout
            self.assertEqual(again, self.tool("directory", "export", "staff", "--format", "csv").stdout)
        self.assertTrue((self.folder / "b.csv").read_text(encoding="utf-8").splitlines()[0].startswith("name,"))
        self.assertIn("morvaneName: /CN=Bob", (self.folder / "b.ldif").read_text(encoding="utf-8"))

    def test_pipes(self):
        done = subprocess.run([str(MORVANE), "directory", "import", "staff", "-", "--format", "csv"], input=CSV.encode(),
                              env=self.env(), capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (0, b"2 entries in staff\n"))
        done = subprocess.run([str(MORVANE), "directory", "import", "staff", "-"], input=CSV.encode(), env=self.env(),
                              capture_output=True, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"--format says it", done.stderr)

    def test_entries_without_a_name_are_counted(self):
        path = self.write("a.ldif", LDIF + "\ndn: cn=x\nmail: x@example.org\n")
        self.assertEqual(self.succeed("directory", "import", "staff", path),
                         "2 entries in staff, 1 entry without a native name skipped\n")

    def test_what_cannot_be_read(self):
        self.succeed("directory", "import", "staff", self.write("good.csv", CSV))
        bad = self.write("bad.csv", CSV + '"open\n')
        self.fail_with(r"bad\.csv: line \d+: ", "directory", "import", "staff", bad)
        self.assertIn("staff  2 entries\n", self.succeed("directory", "list"), "all or none")
        self.fail_with("No such file", "directory", "import", "staff", self.folder / "none")
        self.fail_with("is no format", "directory", "import", "staff", bad, "--format", "xml")
        for name in "a:b", "sqlite_x", "", "x" * 65:
            self.fail_with("cannot be the name of a directory", "directory", "import", name, bad)
        Path(self.home.file("sys/directory.db")).write_bytes(b"no database" * 100)
        self.fail_with("directory.db", "directory", "list")

    def test_no_directory_yet(self):
        self.assertEqual(self.succeed("directory", "list"), "")
        self.assertEqual(json.loads(self.succeed("directory", "list", "--json")), [])
        self.assertFalse(os.path.exists(self.home.file("sys/directory.db")), "looking makes nothing")
