// GB2312/GBK (code page 936) <-> UTF-8 conversion for guest text and names.
//
// Guest strings are GBK bytes; the host's file names and log are UTF-8. Both
// converters read at most src_size bytes (the end of the source counts as its
// terminating zero), write at most dst_size bytes including a terminating
// zero, and stop at the first malformed input. A GB string grows at most by a
// factor of 1.5 into UTF-8 (3 / 2; single bytes stay single) and UTF-8 never
// grows into GB, so callers that size dst that way never see truncation; when
// dst is too small anyway the output is cut at a character boundary and the
// conversion counts as stopped.
#pragma once

#include <cstddef>
#include <cstdint>

// Unicode code point of each two-byte code, index (b1 - 0x81) * 191 + (b2 - 0x40)
// for b1 0x81-0xFE and b2 0x40-0xFE. Codes without a character hold 0x003F;
// no entry is 0. The last 14 entries are padding.
inline constexpr size_t kGbTableEntries = 24080;
extern const uint16_t mb_gb2uni_table[kGbTableEntries];

// The GBK bytes of each BMP code point, first byte first. A second byte of 0
// means a one-byte result; code points without a code hold "??".
extern const uint8_t utf16togb[0x10000][2];

// Converts the GB string src to UTF-8 in dst. Bytes below 0x81 are copied
// unchanged (0x80 stays 0x80); other bytes start a pair whose second byte must
// be 0x40-0xFE. Returns the number of bytes written before the terminator;
// *complete (when given) becomes true when the whole source was converted and
// false when an invalid pair or a full dst stopped it.
size_t gb_to_utf8(const char* src, size_t src_size, char* dst, size_t dst_size, bool* complete = nullptr);

// Converts the UTF-8 string src to GB in dst. Code points below 256 become the
// single byte of that value; others take their code from utf16togb. Sequences
// of one to three bytes are read (overlong forms included); a stray
// continuation byte, a four-byte lead or a missing continuation byte stops the
// conversion. Result and *complete as for gb_to_utf8.
size_t utf8_to_gb(const char* src, size_t src_size, char* dst, size_t dst_size, bool* complete = nullptr);

// The same converter for callers that hold GB text as unsigned bytes.
inline size_t gb_to_utf8(const uint8_t* src, size_t src_size, char* dst, size_t dst_size,
                         bool* complete = nullptr) {
    return gb_to_utf8(reinterpret_cast<const char*>(src), src_size, dst, dst_size, complete);
}
