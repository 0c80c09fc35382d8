#!/usr/bin/env python3
"""Generates the code page 936 tables in data/.

  cp936_gb2uni.bin  24080 little-endian 16-bit code points, one per two-byte
                    code, index (b1 - 0x81) * 191 + (b2 - 0x40) for first bytes
                    0x81-0xFE and second bytes 0x40-0xFE; undefined codes and the
                    14 padding entries at the end hold 0x003F.
  cp936_uni2gb.bin  65536 byte pairs, one per BMP code point: the GBK bytes,
                    first byte first; second byte 0 for a one-byte result;
                    "??" where the code page has no code.

Sources (Python standard library and glibc iconv only):
  - Python's cp936 codec: the 21791 two-byte GBK characters.
  - The three user-defined areas, mapped to the private-use area as the code
    page does: AAA1-AFFE -> U+E000.., F8A1-FEFE -> U+E234.., A140-A7A0 -> U+E4C6...
  - The 255 remaining two-byte codes (rows A1-A9 and FE: unassigned cells and
    the 95 GBK characters that Unicode 2.0 lacked) -> U+E766..U+E864 in code
    order. Python's gb18030 codec uses the same assignment wherever it still
    maps such a code to the private-use area; the generator checks that.
  - The single bytes 0x80 <-> U+20AC and 0xFF <-> U+F8F5.
  - glibc's iconv (CP936) cross-checks every GBK character and the euro sign.

Usage: gen_cp936.py [OUTPUT_DIR]   (default: data/ next to tools/)
"""

import os
import subprocess
import sys

ROWS, COLS = 126, 191            # first bytes 0x81-0xFE, second bytes 0x40-0xFE
GB2UNI_ENTRIES = 24080           # 126 * 191 = 24066 used, the rest padding
UNKNOWN = 0x003F                 # "?" for codes without a character
UNMAPPED = b"??"                 # for code points without a code


def fail(msg):
    sys.exit("gen_cp936: " + msg)


def check(cond, msg):
    if not cond:
        fail(msg)


def user_defined(b1, b2):
    """Private-use code point of a user-defined code, or None."""
    if 0xAA <= b1 <= 0xAF and b2 >= 0xA1:
        return 0xE000 + (b1 - 0xAA) * 94 + (b2 - 0xA1)
    if 0xF8 <= b1 <= 0xFE and b2 >= 0xA1:
        return 0xE234 + (b1 - 0xF8) * 94 + (b2 - 0xA1)
    if 0xA1 <= b1 <= 0xA7 and b2 <= 0xA0:
        return 0xE4C6 + (b1 - 0xA1) * 96 + (b2 - 0x40 - (b2 > 0x7F))
    return None


def decode_one(data, codec):
    try:
        text = data.decode(codec)
    except UnicodeDecodeError:
        return None
    check(len(text) == 1 and ord(text) < 0x10000, "odd %s result for %s" % (codec, data.hex()))
    return ord(text)


def build_gb2uni():
    table = [UNKNOWN] * GB2UNI_ENTRIES
    rest = []                      # codes left for U+E766.. in code order
    counts = {"gbk": 0, "uda": 0, "rest": 0}
    for b1 in range(0x81, 0xFF):
        for b2 in range(0x40, 0xFF):
            if b2 == 0x7F:
                continue
            pair = bytes((b1, b2))
            u = decode_one(pair, "cp936")
            if u is not None:
                counts["gbk"] += 1
            else:
                u = user_defined(b1, b2)
                if u is not None:
                    counts["uda"] += 1
                else:
                    u = 0xE766 + len(rest)
                    rest.append(pair)
                    counts["rest"] += 1
                    # Python's gb18030 codec keeps this code in the private-use
                    # area unless a later standard gave it a real character.
                    g = decode_one(pair, "gb18030")
                    check(g is not None and (g == u or not 0xE000 <= g <= 0xF8FF),
                          "private-use order differs at %s" % pair.hex())
            table[(b1 - 0x81) * COLS + (b2 - 0x40)] = u
    check(counts == {"gbk": 21791, "uda": 1894, "rest": 255}, "unexpected counts %r" % counts)
    check(0xE766 + len(rest) - 1 == 0xE864, "private-use range does not end at U+E864")
    return table


def build_uni2gb(gb2uni):
    table = [UNMAPPED] * 0x10000
    for c in range(0x80):
        table[c] = bytes((c, 0))
    for c in range(0x80, 0x100):
        try:
            enc = chr(c).encode("cp936")
        except UnicodeEncodeError:
            continue
        check(len(enc) == 2, "U+%04X encodes to %d bytes" % (c, len(enc)))
        table[c] = enc
    for i, u in enumerate(gb2uni[:ROWS * COLS]):
        b1, b2 = 0x81 + i // COLS, 0x40 + i % COLS
        if b2 == 0x7F or u < 0x100:
            continue
        check(table[u] == UNMAPPED, "U+%04X has two codes" % u)
        table[u] = bytes((b1, b2))
    table[0x20AC] = b"\x80\x00"
    table[0xF8F5] = b"\xff\x00"
    return table


def glibc_decode(data):
    out = subprocess.run(["iconv", "-f", "CP936", "-t", "UTF-16LE"], input=data,
                         capture_output=True, check=True).stdout
    return [int.from_bytes(out[i:i + 2], "little") for i in range(0, len(out), 2)]


def glibc_encode(text):
    return subprocess.run(["iconv", "-f", "UTF-8", "-t", "CP936"], input=text.encode(),
                          capture_output=True, check=True).stdout


def verify(gb2uni, uni2gb):
    def at(b1, b2):
        return gb2uni[(b1 - 0x81) * COLS + (b2 - 0x40)]

    check(len(gb2uni) == GB2UNI_ENTRIES and len(uni2gb) == 0x10000, "table sizes")
    check(0 not in gb2uni, "a zero entry in the GB table")
    check(all(at(b1, 0x7F) == UNKNOWN for b1 in range(0x81, 0xFF)), "second byte 0x7F defined")
    check(gb2uni.count(UNKNOWN) == ROWS + GB2UNI_ENTRIES - ROWS * COLS, "unexpected '?' entries")
    check(at(0xFE, 0xFE) == 0xE4C5 and at(0xB0, 0xA1) == 0x554A and at(0xA1, 0xA1) == 0x3000,
          "known characters")

    # Every two-byte code round-trips, except those below U+0100, which the
    # converter writes as single bytes anyway.
    for i, u in enumerate(gb2uni[:ROWS * COLS]):
        b1, b2 = 0x81 + i // COLS, 0x40 + i % COLS
        if b2 != 0x7F and u >= 0x100:
            check(uni2gb[u] == bytes((b1, b2)), "round trip of %02X%02X" % (b1, b2))

    singles = sorted(c for c in range(0x80, 0x10000) if uni2gb[c][1] == 0)
    check(singles == [0x20AC, 0xF8F5], "one-byte results %r" % singles)
    unmapped = sum(1 for c in range(0x100, 0x10000) if uni2gb[c] == UNMAPPED)
    # 23940 codes minus the 20 below U+0100, plus the two single bytes.
    check(unmapped == 65280 - (23940 - 20 + 2), "unmappable count %d" % unmapped)

    # GB2312 agrees except where code page 936 chose another code point.
    gb2312_diff = []
    for b1 in range(0xA1, 0xF8):
        for b2 in range(0xA1, 0xFF):
            g = decode_one(bytes((b1, b2)), "gb2312")
            if g is not None and g != at(b1, b2):
                gb2312_diff.append((b1, b2))
    check(gb2312_diff == [(0xA1, 0xA4), (0xA1, 0xAA)], "GB2312 differences %r" % gb2312_diff)

    # glibc's CP936 agrees on every GBK character and on the euro sign.
    pairs = [(0x81 + i // COLS, 0x40 + i % COLS) for i in range(ROWS * COLS)]
    gbk = [p for p in pairs if decode_one(bytes(p), "cp936") is not None]
    check(glibc_decode(b"".join(bytes(p) for p in gbk)) == [at(*p) for p in gbk],
          "glibc CP936 disagrees")
    check(glibc_decode(b"\x80") == [0x20AC] and glibc_encode("\u20ac") == b"\x80", "glibc euro")
    return unmapped


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    out_dir = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "..", "..", "data")
    gb2uni = build_gb2uni()
    uni2gb = build_uni2gb(gb2uni)
    unmapped = verify(gb2uni, uni2gb)
    with open(os.path.join(out_dir, "cp936_gb2uni.bin"), "wb") as f:
        f.write(b"".join(u.to_bytes(2, "little") for u in gb2uni))
    with open(os.path.join(out_dir, "cp936_uni2gb.bin"), "wb") as f:
        f.write(b"".join(uni2gb))
    print("gen_cp936: %d GB entries, %d code points from U+0100 without a code"
          % (len(gb2uni), unmapped))


if __name__ == "__main__":
    main()
