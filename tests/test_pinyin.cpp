// The pinyin table's layout; lookups, paging, case and failures through
// service 20 are checked end to end by the svc_pinyin program.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "cjk/pinyin.h"

namespace {

uint32_t offset(uint32_t s) { return pinyin_data[kPinyinOffsets + 2 * s] | pinyin_data[kPinyinOffsets + 2 * s + 1] << 8; }
std::string syllable(uint32_t s) {
    const char* p = reinterpret_cast<const char*>(pinyin_data + kPinyinNames + 6 * s);
    return std::string(p, strnlen(p, 6));
}
}  // namespace

TEST(PinyinTable, LayoutIsConsistent) {
    ASSERT_EQ(pinyin_data_size, kPinyinSize);
    EXPECT_EQ(offset(0), 0u);
    EXPECT_EQ(offset(kPinyinSyllables), kPinyinOffsets);
    std::set<uint32_t> codes;
    for (uint32_t s = 0; s < kPinyinSyllables; ++s) {
        ASSERT_LT(offset(s), offset(s + 1)) << "syllable " << s << " has no characters";
        ASSERT_EQ(offset(s) % 2, 0u);
        const std::string name = syllable(s);
        ASSERT_FALSE(name.empty());
        for (char ch : name) ASSERT_TRUE(ch >= 'a' && ch <= 'z') << name;
        if (s > 0) {
            ASSERT_LT(syllable(s - 1), name);  // byte order, no duplicates
        }
        for (uint32_t i = offset(s); i < offset(s + 1); i += 2) {
            const uint32_t b1 = pinyin_data[i], b2 = pinyin_data[i + 1];
            ASSERT_TRUE(b1 >= 0xB0 && b1 <= 0xF7 && b2 >= 0xA1 && b2 <= 0xFE) << name;
            codes.insert(b1 << 8 | b2);
        }
    }
    // Every GB2312 hanzi can be typed (rows B0-F7 less the five empty cells of D7).
    EXPECT_EQ(codes.size(), 6763u);
    EXPECT_EQ(syllable(0), "a");
    EXPECT_EQ(syllable(kPinyinSyllables - 1), "zuo");
}
