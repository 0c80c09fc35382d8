// String and memory calls and their results: copy and concatenation (GB2312
// text included), unsigned comparison, searches that give guest addresses,
// the low byte of character arguments, forward copies that repeat a pattern
// where the areas overlap, moves both ways, fills, counts masked to 16 bits,
// abs, and the two calls that do nothing.
#include <utility>

#include "lib/syscalls.h"
#include "vm_harness.h"

TEST(LibStrings, ResultsOfTheStringAndMemoryCalls) {
    CallVm c;  // 16-bit program
    const uint32_t buf = 0x3000, a = 0x3400, b = 0x3500;
    c.str(a, "hello");
    c.call(c_strcpy, {buf, a});
    c.str(a, ", GB \xB0\xA1");
    c.call(c_strcat, {buf, a});
    EXPECT_EQ(c.read(buf), "hello, GB \xB0\xA1");
    EXPECT_EQ(c.result(c_strlen, {buf}), 12u);
    c.str(a, "");
    EXPECT_EQ(c.result(c_strlen, {a}), 0u);
    const struct { const char *x, *y; int32_t cmp; } cmps[] = {
        {"\x80", "a", 1}, {"a", "ab", -1}, {"ab", "a", 1}, {"", "", 0}, {"\xB0\xA1", "\xB0\xA2", -1}};
    for (const auto& k : cmps) {
        c.str(a, k.x);
        c.str(b, k.y);
        EXPECT_EQ(int32_t(c.result(c_strcmp, {a, b})), k.cmp) << k.x << " " << k.y;
    }
    c.str(a, "");
    c.str(b, "a");
    EXPECT_EQ(c.result(c_strstr, {a, b}), 0u);  // nothing is found in the empty string
    for (auto [ch, at] : {std::pair<int64_t, uint32_t>{'l', buf + 2}, {0xB0, buf + 10}, {0x16C, buf + 2}, {'z', 0}, {0x100, buf + 12}})
        EXPECT_EQ(c.result(c_strchr, {buf, ch}), at) << ch;
    for (auto [sub, at] : {std::pair<const char*, uint32_t>{"lo", buf + 3}, {"", buf}, {"B \xB0\xA1", buf + 8}, {"hello!", 0}}) {
        c.str(a, sub);
        EXPECT_EQ(c.result(c_strstr, {buf, a}), at) << sub;
    }
    c.str(a, "hello, GB \xB0\xA1");
    EXPECT_EQ(c.result(c_strcmp, {buf, a}), 0u);

    const uint32_t b2 = 0x3100, b3 = 0x3200, b4 = 0x3300;
    for (uint32_t at : {b2, b3, b4}) c.str(at, "abcdefgh");
    c.call(c_memcpy, {b2 + 1, b2, 5});
    c.call(c_memmove, {b3 + 1, b3, 5});
    c.call(c_memmove, {b4, b4 + 2, 4});
    EXPECT_EQ(c.read(b2) + " " + c.read(b3) + " " + c.read(b4), "aaaaaagh aabcdegh cdefefgh");
    c.call(c_memcpy, {b2, b3, 0});
    c.call(c_memmove, {b3, b4, 0x10000});
    c.call(c_memset, {b4, 0x141, 0x10003});
    c.call(c_memset, {b2 + 6, 'x', 0});
    EXPECT_EQ(c.read(b2) + " " + c.read(b3) + " " + c.read(b4), "aaaaaagh aabcdegh AAAfefgh");

    for (auto [x, abs] : {std::pair<int64_t, uint32_t>{-5, 5}, {5, 5}, {0x80000000, 0x80000000}, {-2147483647, 2147483647}})
        EXPECT_EQ(c.result(c_abs, {x}), abs) << x;
    push_cell(*c.m, 42);
    c.call(c_beep, {});
    c.call(c_setlist, {});
    EXPECT_EQ(c.cell(), 42u);
}
