"""A small reader for X11 PCF bitmap fonts (optionally gzip-compressed).

Reads the tables a bitmap renderer needs: properties, accelerators, metrics,
bitmaps and encodings. Glyph bitmaps are normalised to rows of bytes with the
leftmost pixel in bit 7, whatever byte order, bit order, scan unit and row
padding the file uses.
"""

import gzip
import struct

PCF_PROPERTIES = 1 << 0
PCF_ACCELERATORS = 1 << 1
PCF_METRICS = 1 << 2
PCF_BITMAPS = 1 << 3
PCF_BDF_ENCODINGS = 1 << 5
PCF_BDF_ACCELERATORS = 1 << 8

PCF_DEFAULT_FORMAT = 0x000
PCF_ACCEL_W_INKBOUNDS = 0x100
PCF_COMPRESSED_METRICS = 0x100
PCF_FORMAT_MASK = 0xFFFFFF00
PCF_GLYPH_PAD_MASK = 3
PCF_BYTE_MASK = 1 << 2           # set: most significant byte first
PCF_BIT_MASK = 1 << 3            # set: most significant bit first
PCF_SCAN_UNIT_MASK = 3 << 4

NO_GLYPH = 0xFFFF


class PcfError(Exception):
    pass


class Glyph:
    """One glyph: its metrics and its ink as rows of MSB-first bytes.

    The bitmap spans x = left .. right-1 relative to the origin and
    y = -ascent .. descent-1 relative to the baseline (y grows downwards).
    """

    __slots__ = ("left", "right", "width", "ascent", "descent", "rows")

    def __init__(self, left, right, width, ascent, descent, rows):
        self.left, self.right, self.width = left, right, width
        self.ascent, self.descent = ascent, descent
        self.rows = rows

    def pixel(self, x, y):
        """Ink at bitmap column x, row y (0-based inside the bitmap)."""
        return (self.rows[y][x >> 3] >> (7 - (x & 7))) & 1


class _Table:
    """Cursor over one table, honouring the table's byte order."""

    def __init__(self, data, offset, size):
        # Writers round table sizes up, so the last one may claim bytes past
        # the end of the file; reads are checked against what is there.
        if offset < 0 or size < 4 or offset + 4 > len(data):
            raise PcfError("table outside the file")
        self.data = data[offset:offset + size]
        self.format = struct.unpack_from("<i", self.data, 0)[0]
        self.big = bool(self.format & PCF_BYTE_MASK)
        self.pos = 4

    def _read(self, code, size):
        if self.pos + size > len(self.data):
            raise PcfError("table too short")
        value = struct.unpack_from((">" if self.big else "<") + code,
                                   self.data, self.pos)[0]
        self.pos += size
        return value

    def i32(self):
        return self._read("i", 4)

    def i16(self):
        return self._read("h", 2)

    def u16(self):
        return self._read("H", 2)

    def u8(self):
        return self._read("B", 1)

    def i8(self):
        return self._read("b", 1)

    def raw(self, size):
        if self.pos + size > len(self.data):
            raise PcfError("table too short")
        chunk = self.data[self.pos:self.pos + size]
        self.pos += size
        return chunk

    def is_format(self, fmt):
        return (self.format & PCF_FORMAT_MASK) == fmt


class PcfFont:
    def __init__(self, path):
        opener = gzip.open if path.endswith(".gz") else open
        with opener(path, "rb") as f:
            data = f.read()
        if data[:4] != b"\x01fcp":
            raise PcfError(path + ": not a PCF font")
        count = struct.unpack_from("<i", data, 4)[0]
        self.tables = {}
        for i in range(count):
            ttype, fmt, size, offset = struct.unpack_from("<iiii", data, 8 + 16 * i)
            self.tables[ttype] = (fmt, size, offset)
        self._data = data
        self.properties = self._read_properties()
        self.ascent, self.descent = self._read_accelerators()
        metrics = self._read_metrics()
        self.glyphs = self._read_bitmaps(metrics)
        self._read_encodings()

    def _table(self, ttype):
        if ttype not in self.tables:
            raise PcfError("missing table %d" % ttype)
        _, size, offset = self.tables[ttype]
        return _Table(self._data, offset, size)

    def _read_properties(self):
        t = self._table(PCF_PROPERTIES)
        n = t.i32()
        props = []
        for _ in range(n):
            props.append((t.i32(), t.i8(), t.i32()))
        if n & 3:
            t.raw(4 - (n & 3))
        string_size = t.i32()
        strings = t.raw(string_size)

        def string_at(off):
            end = strings.index(b"\0", off)
            return strings[off:end].decode("latin-1")

        out = {}
        for name_off, is_string, value in props:
            out[string_at(name_off)] = string_at(value) if is_string else value
        return out

    def _read_accelerators(self):
        ttype = PCF_BDF_ACCELERATORS if PCF_BDF_ACCELERATORS in self.tables \
            else PCF_ACCELERATORS
        t = self._table(ttype)
        t.raw(8)                      # seven flag bytes and one padding byte
        ascent, descent = t.i32(), t.i32()
        return ascent, descent

    def _read_metrics(self):
        t = self._table(PCF_METRICS)
        out = []
        if t.is_format(PCF_COMPRESSED_METRICS):
            for _ in range(t.u16()):    # a count above 32767 is still unsigned
                left, right, width, ascent, descent = (t.u8() - 0x80 for _ in range(5))
                out.append((left, right, width, ascent, descent))
        elif t.is_format(PCF_DEFAULT_FORMAT):
            for _ in range(t.i32()):
                left, right, width, ascent, descent = (t.i16() for _ in range(5))
                t.u16()               # attributes
                out.append((left, right, width, ascent, descent))
        else:
            raise PcfError("unknown metrics format")
        return out

    def _read_bitmaps(self, metrics):
        t = self._table(PCF_BITMAPS)
        if not t.is_format(PCF_DEFAULT_FORMAT):
            raise PcfError("unknown bitmap format")
        count = t.i32()
        if count != len(metrics):
            raise PcfError("bitmap and metrics counts differ")
        offsets = [t.i32() for _ in range(count)]
        sizes = [t.i32() for _ in range(4)]
        fmt = t.format
        pad = 1 << (fmt & PCF_GLYPH_PAD_MASK)
        unit = 1 << ((fmt & PCF_SCAN_UNIT_MASK) >> 4)
        blob = bytearray(t.raw(sizes[fmt & PCF_GLYPH_PAD_MASK]))
        # Normalise to most significant bit first, bytes in reading order.
        if not fmt & PCF_BIT_MASK:
            blob = bytearray(_REVERSED[b] for b in blob)
        if bool(fmt & PCF_BYTE_MASK) != bool(fmt & PCF_BIT_MASK) and unit > 1:
            for i in range(0, len(blob) - unit + 1, unit):
                blob[i:i + unit] = blob[i:i + unit][::-1]
        glyphs = []
        for (left, right, width, ascent, descent), off in zip(metrics, offsets):
            w, h = right - left, ascent + descent
            stride = ((w + 8 * pad - 1) // (8 * pad)) * pad if w > 0 else 0
            need = (w + 7) // 8
            rows = []
            for y in range(max(h, 0)):
                start = off + y * stride
                if start + need > len(blob):
                    raise PcfError("glyph bitmap outside the table")
                rows.append(bytes(blob[start:start + need]))
            glyphs.append(Glyph(left, right, width, ascent, descent, rows))
        return glyphs

    def _read_encodings(self):
        t = self._table(PCF_BDF_ENCODINGS)
        self.min2, self.max2 = t.i16(), t.i16()
        self.min1, self.max1 = t.i16(), t.i16()
        self.default_char = t.i16()
        n = (self.max2 - self.min2 + 1) * (self.max1 - self.min1 + 1)
        self._index = [t.u16() for _ in range(n)]

    def glyph(self, code):
        """The glyph of a character code (byte1 * 256 + byte2), or None."""
        b1, b2 = code >> 8, code & 0xFF
        if not (self.min1 <= b1 <= self.max1 and self.min2 <= b2 <= self.max2):
            return None
        i = self._index[(b1 - self.min1) * (self.max2 - self.min2 + 1) + b2 - self.min2]
        if i == NO_GLYPH or i >= len(self.glyphs):
            return None
        return self.glyphs[i]


_REVERSED = bytes(int("{:08b}".format(b)[::-1], 2) for b in range(256))
