"""The files of a folder with real mail, and the session that hands one of them over."""

import os
import re
from pathlib import Path

from gateway_home import ROOT

# What a message is, by its header: decided here from the bytes, to check the gateway's own decision against.
MIME_FIELDS = re.compile(rb"^(mime-version|content-type|content-transfer-encoding)$", re.IGNORECASE)


def corpus_folder(given):
    for folder in (given, os.environ.get("MORVANE_CORPUS"), ROOT.parent / "shared" / "corpus"):
        if folder:
            return Path(folder)
    return None


def files_of(folder):
    """The files that a MANIFEST.tsv lists in its first column; without one, all files."""
    manifest = folder / "MANIFEST.tsv"
    if manifest.exists():
        rows = manifest.read_text(encoding="utf-8", errors="surrogateescape").splitlines()[1:]
        return sorted(folder / row.split("\t")[0] for row in rows)
    return sorted(path for path in folder.rglob("*") if path.is_file())


def header_lines(data):
    for line in data.split(b"\n"):
        line = line.rstrip(b"\r")
        if not line:
            return
        yield line


def kind_of(data):
    """"mime", "rfc1154" or "plain"."""
    names = {line.split(b":", 1)[0] for line in header_lines(data) if b":" in line}
    if any(MIME_FIELDS.match(name) for name in names):
        return "mime"
    return "rfc1154" if any(name.lower() == b"encoding" for name in names) else "plain"


def dialogue(data):
    text = re.sub(rb"(^|\n)\.", rb"\1..", data)
    if not text.endswith(b"\n"):
        text += b"\n"
    return (b"HELO corpus.example\nMAIL FROM:<sender@corpus.example>\nRCPT TO:<reader@corpus.example>\nDATA\n" + text +
            b".\nQUIT\n")
