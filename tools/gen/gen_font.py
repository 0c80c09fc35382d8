#!/usr/bin/env python3
"""Generates the built-in font table data/font.bin (429,968 bytes).

Layout, rows most significant bit first (bit 7 = leftmost pixel), set = ink:

  offset       font           glyphs                      bytes per glyph
  0            ASCII 6x12     128 (codes 0-127)           12 (bits 7-2 used)
  1,536        ASCII 8x16     128                         16
  3,584        GB2312 12x12   7,614 (81 rows x 94)        24 (2 bytes a row)
  186,320      GB2312 16x16   7,614                       32

GB2312 rows A1-A9 are font rows 0-8 and B0-F7 font rows 9-80: glyph index
= font row * 94 + (trail - 0xA1).

Sources (bitmap fonts from Debian packages, read with tools/gen/pcf.py):
  - ASCII 6x12: xfonts-base 6x12.pcf.gz (misc-fixed, public domain).
  - ASCII 8x16: xfonts-base 8x16.pcf.gz (Sony fixed).
  - GB2312 12x12 / 16x16: xfonts-wqy, the faces whose PIXEL_SIZE is 12 and
    16 (wenquanyi_9pt.pcf and wenquanyi_12pt.pcf). These fonts are Unicode
    encoded; each two-byte code is mapped to Unicode with our code page 936
    table data/cp936_gb2uni.bin, falling back to Python's gb2312 codec where
    the two disagree and the font lacks the first choice.

Glyph 0 of the ASCII fonts is blank, as is every code without a character.
Glyphs are placed in the cell by their metrics on a fixed baseline, centred
when their advance is narrower than the cell; ink that would stick out of the
cell is moved inside when it fits, and clipped otherwise.

Usage: gen_font.py [OUTPUT] [--fonts DIR] [--cp936 FILE]
  OUTPUT defaults to data/font.bin next to tools/.
"""

import argparse
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import pcf  # noqa: E402

FONT_SIZE = 429968
GB_ROWS = 81
GB_COLS = 94
GB_GLYPHS = GB_ROWS * GB_COLS

# name, file, cell width, cell height, baseline row, offset in the table.
# ASCII baselines are the fonts' own ascent (both are character-cell fonts
# of exactly the cell size). For the hanzi faces the baseline is the highest
# ascent among the GB2312 glyphs, so nothing is cut at the top and the box
# drawing and line symbols, which reach the top of the face, join up from
# cell to cell; the common hanzi box (11x11 ink at 12 px, 15x16 at 16 px)
# then sits at the bottom left at 12 px and fills the cell at 16 px.
ASCII_FONTS = [
    ("ASCII 6x12", "6x12.pcf.gz", 6, 12, 10, 0),
    ("ASCII 8x16", "8x16.pcf.gz", 8, 16, 14, 1536),
]
GB_FONTS = [
    ("GB2312 12x12", 12, 12, 11, 3584),
    ("GB2312 16x16", 16, 16, 14, 186320),
]


def fail(msg):
    sys.exit("gen_font: " + msg)


def check(cond, msg):
    if not cond:
        fail(msg)


class Stats:
    def __init__(self):
        self.found = 0
        self.missing = []
        self.moved = 0
        self.clipped = 0


def render(glyph, cell_w, cell_h, baseline, stats):
    """The glyph as cell_h rows of cell_w-bit integers (bit cell_w-1 = left)."""
    ink = []
    ox = (cell_w - glyph.width) // 2 if glyph.width < cell_w else 0
    for r in range(len(glyph.rows)):
        for c in range(glyph.right - glyph.left):
            if glyph.pixel(c, r):
                ink.append((ox + glyph.left + c, baseline - glyph.ascent + r))
    rows = [0] * cell_h
    if not ink:
        return rows
    dx = _nudge(min(x for x, _ in ink), max(x for x, _ in ink), cell_w)
    dy = _nudge(min(y for _, y in ink), max(y for _, y in ink), cell_h)
    if dx or dy:
        stats.moved += 1
    cut = False
    for x, y in ink:
        x, y = x + dx, y + dy
        if 0 <= x < cell_w and 0 <= y < cell_h:
            rows[y] |= 1 << (cell_w - 1 - x)
        else:
            cut = True
    if cut:
        stats.clipped += 1
    return rows


def _nudge(lo, hi, size):
    """Shift that brings ink spanning lo..hi inside 0..size-1 when it fits."""
    if hi - lo + 1 > size:
        return 0
    if lo < 0:
        return -lo
    if hi >= size:
        return size - 1 - hi
    return 0


def pack(rows, cell_w):
    """Rows of cell_w bits to bytes, left-aligned, one or two bytes a row."""
    per_row = (cell_w + 7) // 8
    out = bytearray()
    for bits in rows:
        out += (bits << (8 * per_row - cell_w)).to_bytes(per_row, "big")
    return bytes(out)


def load(path, want_pixels):
    try:
        font = pcf.PcfFont(path)
    except (OSError, pcf.PcfError) as e:
        fail("%s: %s" % (path, e))
    size = font.properties.get("PIXEL_SIZE")
    check(size == want_pixels, "%s: PIXEL_SIZE %s, want %d" % (path, size, want_pixels))
    return font


def ascii_font(font, cell_w, cell_h, baseline, stats):
    out = bytearray()
    for code in range(128):
        glyph = font.glyph(code) if code else None   # glyph 0 stays blank
        if glyph is None:
            if 32 <= code < 127:
                stats.missing.append(code)
            out += bytes(cell_h * ((cell_w + 7) // 8))
            continue
        stats.found += 1
        out += pack(render(glyph, cell_w, cell_h, baseline, stats), cell_w)
    return bytes(out)


def gb_lead_bytes():
    """Lead byte of each stored font row: A1-A9, then B0-F7."""
    return list(range(0xA1, 0xAA)) + list(range(0xB0, 0xF8))


def read_cp936(path):
    with open(path, "rb") as f:
        data = f.read()
    check(len(data) == 24080 * 2, "%s: unexpected size %d" % (path, len(data)))
    return data


def characters(cp936, hi, lo):
    """Candidate Unicode characters of a GB2312 code, best first; empty for
    codes that GB2312 leaves unassigned (GBK's additions in rows A1-A9
    included: the table holds GB2312 only)."""
    try:
        alt = ord(bytes([hi, lo]).decode("gb2312"))
    except UnicodeDecodeError:
        return []
    i = (hi - 0x81) * 191 + (lo - 0x40)
    u = cp936[2 * i] | cp936[2 * i + 1] << 8
    # The two mappings differ only in A1A4 and A1AA (middle dot, dash); the
    # code page's choice comes first.
    return [u] if u == alt else [u, alt]


def gb_font(font, cp936, cell_w, cell_h, baseline, stats):
    out = bytearray()
    blank = bytes(cell_h * 2)
    for hi in gb_lead_bytes():
        for lo in range(0xA1, 0xFF):
            glyph = None
            cands = characters(cp936, hi, lo)
            for u in cands:
                glyph = font.glyph(u)
                if glyph is not None:
                    break
            if glyph is None:
                if cands:
                    stats.missing.append((hi << 8 | lo, cands[0]))
                out += blank
                continue
            stats.found += 1
            out += pack(render(glyph, cell_w, cell_h, baseline, stats), cell_w)
    check(len(out) == GB_GLYPHS * cell_h * 2, "GB font size")
    return bytes(out)


def report(name, stats, fmt):
    print("%-13s %5d glyphs, %d moved into the cell, %d clipped, %d missing%s"
          % (name, stats.found, stats.moved, stats.clipped, len(stats.missing),
             (": " + " ".join(fmt(m) for m in stats.missing)) if stats.missing else ""))


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    top = os.path.dirname(os.path.dirname(here))
    ap = argparse.ArgumentParser(description="Generate the built-in font table.")
    ap.add_argument("output", nargs="?", default=os.path.join(top, "data", "font.bin"))
    ap.add_argument("--fonts", default="/usr/share/fonts/X11/misc",
                    help="directory of the PCF fonts (xfonts-base, xfonts-wqy)")
    ap.add_argument("--cp936", default=os.path.join(top, "data", "cp936_gb2uni.bin"),
                    help="code page 936 to Unicode table")
    args = ap.parse_args()

    table = bytearray()
    for name, file, cell_w, cell_h, baseline, offset in ASCII_FONTS:
        check(len(table) == offset, name + ": wrong offset")
        font = load(os.path.join(args.fonts, file), cell_h)
        stats = Stats()
        table += ascii_font(font, cell_w, cell_h, baseline, stats)
        report(name, stats, lambda c: "%02X" % c)

    cp936 = read_cp936(args.cp936)
    faces = {}
    for entry in sorted(os.listdir(args.fonts)):
        if entry.startswith("wenquanyi_") and entry.endswith(".pcf"):
            font = pcf.PcfFont(os.path.join(args.fonts, entry))
            faces.setdefault(font.properties.get("PIXEL_SIZE"), (entry, font))
    for name, cell_w, cell_h, baseline, offset in GB_FONTS:
        check(len(table) == offset, name + ": wrong offset")
        check(cell_h in faces, "no wenquanyi face of %d pixels in %s" % (cell_h, args.fonts))
        entry, font = faces[cell_h]
        stats = Stats()
        table += gb_font(font, cp936, cell_w, cell_h, baseline, stats)
        report(name + " (" + entry + ")", stats,
               lambda m: "%04X:U+%04X" % m)

    check(len(table) == FONT_SIZE, "table is %d bytes, want %d" % (len(table), FONT_SIZE))
    with open(args.output, "wb") as f:
        f.write(table)
    print("wrote %s (%d bytes)" % (args.output, len(table)))


if __name__ == "__main__":
    main()
