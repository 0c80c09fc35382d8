#!/usr/bin/env python3
"""Prints glyphs of the built-in font table as text, side by side.

Usage: show_font.py [--file data/font.bin] FONT ITEM...
  FONT  6x12, 8x16 (ASCII) or 12x12, 16x16 (GB2312)
  ITEM  characters to show (hanzi and GB2312 symbols for the GB2312 fonts),
        or a code in hex: "0x41" for ASCII, "D6D0" or "0xD6D0" for GB2312.
Ink is '#', paper '.'; each glyph shows its whole cell.
"""

import argparse
import os
import sys

FONTS = {  # name: (offset, glyph count, width, height)
    "6x12": (0, 128, 6, 12),
    "8x16": (1536, 128, 8, 16),
    "12x12": (3584, 7614, 12, 12),
    "16x16": (186320, 7614, 16, 16),
}


def gb_index(hi, lo):
    row = hi - 161 if hi < 176 else hi - 167
    return row * 94 + (lo - 161)


def codes(font, item):
    """(label, glyph index) for each character or hex code in item."""
    gb = font in ("12x12", "16x16")
    text = item[2:] if item.lower().startswith("0x") else item
    if all(c in "0123456789abcdefABCDEF" for c in text) and \
            len(text) == (4 if gb else 2) and (gb or item.lower().startswith("0x")):
        value = int(text, 16)
        if gb:
            return [(text.upper(), gb_index(value >> 8, value & 0xFF))]
        return [("%02X" % value, value)]
    out = []
    for ch in item:
        if gb:
            try:
                b = ch.encode("gb2312")
            except UnicodeEncodeError:
                sys.exit("show_font: %r is not a GB2312 character" % ch)
            if len(b) != 2:
                sys.exit("show_font: %r is not a two-byte character" % ch)
            out.append(("%02X%02X %s" % (b[0], b[1], ch), gb_index(b[0], b[1])))
        else:
            out.append(("%02X %s" % (ord(ch), ch), ord(ch)))
    return out


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description="Show glyphs of the font table.")
    ap.add_argument("--file", default=os.path.join(here, "..", "..", "data", "font.bin"))
    ap.add_argument("font", choices=sorted(FONTS))
    ap.add_argument("items", nargs="+")
    args = ap.parse_args()
    with open(args.file, "rb") as f:
        table = f.read()
    offset, count, w, h = FONTS[args.font]
    per_row = (w + 7) // 8
    glyphs = []
    for item in args.items:
        for label, index in codes(args.font, item):
            if not 0 <= index < count:
                sys.exit("show_font: %s is outside the font" % label)
            base = offset + index * h * per_row
            lines = []
            for y in range(h):
                bits = int.from_bytes(table[base + y * per_row:base + (y + 1) * per_row], "big")
                lines.append("".join("#" if bits >> (8 * per_row - 1 - x) & 1 else "."
                                     for x in range(w)))
            glyphs.append((label, lines))
    # Up to 6 glyphs across.
    for start in range(0, len(glyphs), 6):
        group = glyphs[start:start + 6]
        print("  ".join(label.ljust(w + 2) for label, _ in group).rstrip())
        for y in range(h):
            print("  ".join("|" + lines[y] + "|" for _, lines in group))
        print()


if __name__ == "__main__":
    main()
