"""Signed mail: signed by OpenSSL (S/MIME) or GnuPG (PGP/MIME), sent through the gateway, and verified from the item that
the gateway attached. What was signed must still verify, whatever was in it."""

import contextlib
import os
import re
import subprocess
import tempfile
from pathlib import Path

from queued_mail import queued_mails

HEAD = b"From: signer@example.com\r\nTo: reader@example.org\r\nSubject: signed\r\nMIME-Version: 1.0\r\n"
BOUNDARY = b"=-signed-by-hand"

# Entities to sign: header and body, CR LF line ends.
ENTITIES = {
    "text": b"Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n"
            b"Gr=C3=BC=C3=9Fe\r\n",
    "folded header": b"Content-Type: text/plain;\r\n\tcharset=us-ascii;\r\n   format=flowed\r\nX-Long: a\r\n b\r\n\tc\r\n\r\n"
                     b"Text\r\n",
    "dots": b"Content-Type: text/plain\r\n\r\n.\r\n..\r\n.a\r\n...\r\n\r\n.\r\n",
    "long lines": b"Content-Type: text/plain\r\n\r\n" + b"x" * 1022 + b"\r\n" + b"y" * 1023 + b"\r\n." + b"z" * 50000 +
                  b"\r\n",
    "blank ends": b"Content-Type: text/plain\r\n\r\n\r\n\r\nText\r\n\r\n\r\n",
    "8-bit": "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n\r\nGrüße\r\n".encode(),
    "a multipart": b"Content-Type: multipart/mixed; boundary=in\r\n\r\n--in\r\n\r\nOne\r\n--in\r\n"
                   b"Content-Type: application/octet-stream\r\nContent-Transfer-Encoding: base64\r\n\r\nAAEC\r\n--in--\r\n",
    "many lines": b"Content-Type: text/plain\r\n\r\n" + b"".join(b"line %d\r\n" % n for n in range(30000)),
}


def call(*command, data=b"", env=None):
    done = subprocess.run(command, input=data, capture_output=True, timeout=60, check=False, env=env)
    return done.returncode, done.stdout, done.stderr.decode(errors="replace")


class OpenSsl:
    name = "OpenSSL"

    def __init__(self, folder):
        self.key, self.certificate = folder / "key.pem", folder / "certificate.pem"
        status, _, told = call("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=signer",
                               "-keyout", str(self.key), "-out", str(self.certificate), "-days", "2")
        if status != 0:
            raise RuntimeError(told)

    def sign(self, entity):
        """The MIME fields and body of a multipart/signed."""
        status, out, told = call("openssl", "smime", "-sign", "-signer", str(self.certificate), "-inkey",
                                 str(self.key), "-binary", "-crlfeol", data=entity)
        if status != 0:
            raise RuntimeError(told)
        lines = re.sub(rb"\r*\n", b"\r\n", out)
        return lines.removeprefix(b"MIME-Version: 1.0\r\n")

    def verify(self, item):
        status, _, told = call("openssl", "smime", "-verify", "-noverify", "-binary", "-crlfeol", data=item)
        return [] if status == 0 else [told]


class GnuPg:
    name = "GnuPG"

    def __init__(self, folder):
        self.env = {**os.environ, "GNUPGHOME": str(folder)}
        self.folder = folder
        os.chmod(folder, 0o700)
        status, _, told = self.gpg("--quick-generate-key", "signer@example.com", "rsa2048", "sign", "1d")
        if status != 0:
            raise RuntimeError(told)

    def gpg(self, *options, data=b""):
        return call("gpg", "--batch", "--quiet", "--pinentry-mode", "loopback", "--passphrase", "", *options, data=data,
                    env=self.env)

    def sign(self, entity):
        status, signature, told = self.gpg("--armor", "--detach-sign", data=entity)
        if status != 0:
            raise RuntimeError(told)
        return (b'Content-Type: multipart/signed; micalg=pgp-sha512;\r\n\tprotocol="application/pgp-signature";'
                b'\r\n\tboundary="' + BOUNDARY + b'"\r\n\r\n--' + BOUNDARY + b"\r\n" + entity + b"\r\n--" + BOUNDARY +
                b"\r\nContent-Type: application/pgp-signature\r\n\r\n" + signature.replace(b"\n", b"\r\n") + b"\r\n--" +
                BOUNDARY + b"--\r\n")

    def verify(self, item):
        _, content, rest = item.split(b"--" + BOUNDARY + b"\r\n", 2)
        signature = rest.split(b"\r\n\r\n", 1)[1].split(b"\r\n--" + BOUNDARY, 1)[0]
        content_file, signature_file = self.folder / "content", self.folder / "signature"
        content_file.write_bytes(content.removesuffix(b"\r\n"))
        signature_file.write_bytes(signature)
        status, _, told = self.gpg("--verify", str(signature_file), str(content_file))
        return [] if status == 0 else [told]


@contextlib.contextmanager
def signer_of(kind):
    with tempfile.TemporaryDirectory(prefix="signer-") as folder:
        yield kind(Path(folder))


def dialogue(mail):
    stuffed = re.sub(rb"(?m)^\.", b"..", mail)
    return (b"HELO client.example.com\r\nMAIL FROM:<signer@example.com>\r\nRCPT TO:<reader@example.org>\r\nDATA\r\n" +
            stuffed + b".\r\nQUIT\r\n")


def stays_signed(kind, home_of, enclosed):
    """Every entity, signed, sent and verified; `enclosed`: inside a multipart/mixed, with LF line ends on the way."""
    def test():
        with signer_of(kind) as signer, home_of() as home:
            for name, entity in ENTITIES.items():
                text = dialogue(HEAD + (enclose(signer.sign(entity)) if enclosed else signer.sign(entity)))
                home.gateway(text.replace(b"\r\n", b"\n") if enclosed else text)
                items = [part for part in queued_mails(home)[-1].parts
                         if part.startswith(b"Content-Type: multipart/signed")]
                if len(items) != 1:
                    yield f"{name}: {len(items)} signature items"
                    continue
                yield from (f"{name}: {fault}" for fault in signer.verify(items[0]))
                if not signer.verify(items[0].replace(b"Content-Type: text/plain", b"Content-Type: text/Plain")) and \
                        b"\r\nContent-Type: text/plain" in items[0]:
                    yield f"{name}: a changed item verifies too: the test sees nothing"
    return test


def enclose(signed):
    return (b"Content-Type: multipart/mixed; boundary=out\r\n\r\n--out\r\n" + signed + b"--out\r\n\r\nAfter\r\n--out--\r\n")


def tests(home_of):
    for kind in (OpenSsl, GnuPg):
        yield f"{kind.name}: what was signed verifies", stays_signed(kind, home_of, False)
        yield f"{kind.name}: inside a multipart, with LF line ends", stays_signed(kind, home_of, True)
