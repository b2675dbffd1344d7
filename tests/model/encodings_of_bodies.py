"""Writes octets in a transfer encoding, as mailers do at their worst; what comes back is what went in.

Each encoder gets the octets, the randomness and a function that gives line ends. It returns the lines of a body and
what the last line's end stands for: nothing where the decoding drops it, else the octets that are content when no
boundary line follows, to which it belongs then.
"""

import base64
import binascii

JUNK = b" \t!#$%&*-_.,:;<>?@"  # no part of the base64 alphabet


def identity(data, _chance, eol):
    end = eol()
    return data + end, end


def base64_lines(data, chance, eol):
    """Lines of any length, also of one that cuts groups; characters of no meaning; padding in the middle, or missing."""
    pieces = [data]
    if len(data) > 3 and chance.random() < 0.1:
        cut = chance.randrange(1, len(data))
        pieces = [data[:cut], data[cut:]]
    texts = [base64.b64encode(piece) for piece in pieces]
    if chance.random() < 0.1:
        texts[-1] = texts[-1].rstrip(b"=")
    text = b"".join(texts)
    length = chance.choice((76, 76, 76, 60, 64, 4, 77, 1, 996, 1000, 1022, 5000)) if len(text) < 20000 else 76
    noisy = chance.random() < 0.15
    out = []
    for at in range(0, len(text), length):
        line = text[at:at + length]
        if noisy and chance.random() < 0.3:
            where = chance.randrange(len(line) + 1)
            line = line[:where] + bytes([chance.choice(JUNK)]) + line[where:]
            if line.startswith(b"-"):
                line = b" " + line
        out += [line, eol()]
        if noisy and chance.random() < 0.1:
            out.append(eol())
    if not out or chance.random() < 0.05:
        out.append(eol())
    return b"".join(out), b""


def quoted(data, chance, eol, text):
    """Escapes where they must be, and elsewhere at random. In a text part line ends are the body's own lines' ends, or
    escapes; in any other they are escapes."""
    must = set(range(32)) | {ord("=")} | set(range(127, 256))
    fond = chance.choice((0.0, 0.05, 1.0))
    longest = chance.choice((76, 76, 40, 5, 1020, 3000))
    lines = data.split(b"\n") if text else [data]
    out = []
    for number, line in enumerate(lines):
        last = number == len(lines) - 1
        width = 0
        for at, byte in enumerate(line):
            at_end = at == len(line) - 1
            shape = b"=%02X" if chance.random() < 0.9 else b"=%02x"
            if byte in must and byte != 9 or at_end and byte in b" \t" or chance.random() < fond:
                piece = shape % byte
            else:
                piece = bytes([byte])
            if width + len(piece) > longest - 1:
                out.append(b"=" + chance.choice((b"", b"", b"", b" ", b" \t")) + eol())
                width = 0
            out.append(piece)
            width += len(piece)
        if last:
            break
        escaped = b"=0A=" if line.endswith(b"\r") else b"=0D=0A="
        out.append(escaped + eol() if chance.random() < 0.02 else eol())
    # The octets end without a line end, so the last one can be the boundary's or a soft one.
    mark, end = chance.choice((b"", b"", b"=", b"  ")), eol()
    return b"".join(out) + mark + end, b"" if mark == b"=" else end


def uuencoded(data, chance, eol):
    out = []
    for _ in range(chance.choice((0, 0, 2))):
        out += [b"words before it", eol()]
    out += [b"begin 644 " + chance.choice((b"file.bin", b"a file")), eol()]
    for at in range(0, len(data), 45):
        out += [binascii.b2a_uu(data[at:at + 45], backtick=chance.random() < 0.5).rstrip(b"\n"), eol()]
    out += [b"`", eol(), b"end", eol()]
    for _ in range(chance.choice((0, 0, 2))):
        out += [b"words after it", eol()]
    return b"".join(out), b""
