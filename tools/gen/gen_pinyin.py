#!/usr/bin/env python3
"""Generates data/pinyin.bin, the pinyin table behind the pinyin lookup.

Layout (C = number of character codes, S = number of syllables):
  offset 0          C two-byte GB2312 codes, first byte first, grouped by
                    syllable in syllable order
  offset 2C         S + 1 little-endian 16-bit byte offsets into the first
                    area: entry s is where syllable s begins, entry s + 1
                    where it ends (entry 0 is 0, entry S is 2C)
  offset 2C+2S+2    S syllables of 6 bytes: lower-case toneless pinyin,
                    zero-padded, sorted in byte order

Source: the Unihan database of Debian's unicode-data package
(/usr/share/unicode/Unihan_Readings.txt[.bz2] or Unihan.zip), fields
  kMandarin   the customary reading of each character,
  kXHC1983    the readings of the Xiandai Hanyu Cidian (1983),
  kTGHZ2013   the readings of the Tongyong Guifan Hanzi Zidian (2013),
for the 6763 hanzi of GB2312 (rows 0xB0-0xF7, found with Python's gb2312
codec). A character is listed under every distinct toneless syllable that
one of these fields gives it. Tone marks are dropped, u with diaeresis is
written "v" ("lv", "nve"), e with circumflex is "e".

Order within a syllable: first the characters whose customary reading (the
first kMandarin value) is this syllable, then those that only have it as a
further reading; within each group by tone (1-4, then the neutral tone; a
further reading takes its lowest tone), then by GB code, so that the common
characters of GB2312 level 1 come before those of level 2.

Usage: gen_pinyin.py [OUTPUT_DIR] [UNIHAN_DIR]
       (defaults: data/ next to tools/, and /usr/share/unicode)
"""

import bz2
import collections
import io
import os
import sys
import unicodedata
import zipfile

FIELDS = ("kMandarin", "kXHC1983", "kTGHZ2013")
SYLLABLE_BYTES = 6
TONE_MARKS = {"\u0304": 1, "\u0301": 2, "\u030c": 3, "\u0300": 4}
NEUTRAL = 5
FURTHER = (1, NEUTRAL)           # the largest sort key: a further reading, neutral tone


def fail(msg):
    sys.exit("gen_pinyin: " + msg)


def check(cond, msg):
    if not cond:
        fail(msg)


def gb2312_hanzi():
    """Code point -> GB2312 code for the hanzi rows 0xB0-0xF7."""
    hanzi = {}
    for b1 in range(0xB0, 0xF8):
        for b2 in range(0xA1, 0xFF):
            try:
                text = bytes((b1, b2)).decode("gb2312")
            except UnicodeDecodeError:
                continue
            check(len(text) == 1, "odd gb2312 result for %02X%02X" % (b1, b2))
            hanzi[ord(text)] = (b1 << 8) | b2
    check(len(hanzi) == 6763, "expected 6763 GB2312 hanzi, found %d" % len(hanzi))
    return hanzi


def readings_lines(unihan_dir):
    """The lines of Unihan_Readings.txt from whichever form is installed."""
    plain = os.path.join(unihan_dir, "Unihan_Readings.txt")
    if os.path.exists(plain):
        with open(plain, encoding="utf-8") as f:
            return f.read().splitlines()
    if os.path.exists(plain + ".bz2"):
        with bz2.open(plain + ".bz2", "rt", encoding="utf-8") as f:
            return f.read().splitlines()
    archive = os.path.join(unihan_dir, "Unihan.zip")
    if os.path.exists(archive):
        with zipfile.ZipFile(archive) as z:
            with z.open("Unihan_Readings.txt") as f:
                return io.TextIOWrapper(f, encoding="utf-8").read().splitlines()
    fail("no Unihan_Readings.txt in %s (apt-get install unicode-data)" % unihan_dir)


def split_reading(reading):
    """'lüè' -> ('lve', 4), 'ê̄' -> ('e', 1), 'zhuang' -> ('zhuang', 5)."""
    s = unicodedata.normalize("NFD", reading.lower()).replace("u\u0308", "v")
    tones = [TONE_MARKS[c] for c in s if c in TONE_MARKS]
    s = "".join(c for c in s if not unicodedata.combining(c))
    check(s.isascii() and s.isalpha() and 1 <= len(s) <= SYLLABLE_BYTES, "odd reading %r" % reading)
    check(len(tones) <= 1, "two tone marks in %r" % reading)
    return s, tones[0] if tones else NEUTRAL


def parse_readings(field, value):
    """The readings of one Unihan value, customary one first for kMandarin."""
    if field == "kMandarin":
        return value.split()
    # "page.entry[*][,page.entry...]:reading[,reading...]" items
    out = []
    for item in value.split():
        _, _, readings = item.partition(":")
        check(readings, "odd %s value %r" % (field, value))
        out.extend(readings.split(","))
    return out


def build(hanzi, lines):
    # syllable -> code point -> (0 customary / 1 further reading, tone)
    table = collections.defaultdict(dict)
    for line in lines:
        if not line or line.startswith("#"):
            continue
        cp, field, value = line.split("\t")
        cp = int(cp[2:], 16)
        if field not in FIELDS or cp not in hanzi:
            continue
        for i, reading in enumerate(parse_readings(field, value)):
            syllable, tone = split_reading(reading)
            rank = 0 if field == "kMandarin" and i == 0 else 1
            entry = table[syllable]
            entry[cp] = min(entry.get(cp, FURTHER), (rank, tone))
    covered = set(cp for entry in table.values() for cp in entry)
    check(covered == set(hanzi), "%d hanzi without a reading" % (len(hanzi) - len(covered)))
    syllables = sorted(table, key=lambda s: s.encode("ascii"))
    groups = [sorted(table[s], key=lambda cp: (table[s][cp], hanzi[cp])) for s in syllables]
    return syllables, groups


def encode(hanzi, syllables, groups):
    chars = bytearray()
    offsets = [0]
    for group in groups:
        for cp in group:
            chars += hanzi[cp].to_bytes(2, "big")
        offsets.append(len(chars))
    check(len(chars) < 0x10000, "character area too large for 16-bit offsets")
    data = bytearray(chars)
    for off in offsets:
        data += off.to_bytes(2, "little")
    for s in syllables:
        data += s.encode("ascii").ljust(SYLLABLE_BYTES, b"\0")
    return bytes(data)


def verify(data, syllables, groups):
    codes = sum(len(g) for g in groups)
    s = len(syllables)
    check(len(data) == 2 * codes + 2 * (s + 1) + SYLLABLE_BYTES * s, "size does not add up")
    names = [data[2 * codes + 2 * s + 2 + SYLLABLE_BYTES * i:][:SYLLABLE_BYTES] for i in range(s)]
    check(names == sorted(names) and len(set(names)) == s, "syllables not sorted or not unique")
    check(all(len(g) == len(set(g)) and g for g in groups), "a syllable is empty or lists a character twice")
    check(syllables[0] == "a", "the first syllable is not 'a'")


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    out_dir = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "..", "..", "data")
    unihan_dir = sys.argv[2] if len(sys.argv) > 2 else "/usr/share/unicode"
    hanzi = gb2312_hanzi()
    syllables, groups = build(hanzi, readings_lines(unihan_dir))
    data = encode(hanzi, syllables, groups)
    verify(data, syllables, groups)
    with open(os.path.join(out_dir, "pinyin.bin"), "wb") as f:
        f.write(data)
    print("gen_pinyin: %d bytes, %d syllables, %d codes, at most %d per syllable"
          % (len(data), len(syllables), sum(len(g) for g in groups), max(len(g) for g in groups)))


if __name__ == "__main__":
    main()
