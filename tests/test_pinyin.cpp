// The pinyin table's layout, and lookups through service 20.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "cjk/gbconv.h"
#include "cjk/pinyin.h"
#include "lib/syscalls.h"
#include "vm_harness.h"

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

// Lookups through service 20 (syllable, buffer, first index): the syllable's
// number of characters * 65536 + the characters written, and the buffer.
// Upper case is lower-cased, only six letters count, failures leave the
// buffer as it was.
TEST(PinyinLookup, ServiceTwentyPagesThroughASyllable) {
    CallVm c;
    const struct { const char* syl; int64_t first; int32_t result; const char* chars; } cases[] = {
        {"a", 0, 458759, "阿锕嗄啊呵吖腌"}, {"A", 6, 458753, "腌"}, {"yi", 0, 7274505, "一壹医揖铱依伊衣咿"},
        {"yi", 9, 7274505, "噫猗漪欹衤黟颐夷遗"}, {"Yi", 108, 7274499, "食仡嗌"}, {"yi", 111, -1, "食仡嗌"},
        {"zhuangx", 0, 720905, "桩庄装妆撞壮状奘幢"}, {"ZHONG", 0, 1114121, "中盅忠钟衷终锺螽舯"}, {"lv", 0, 1376265, "驴闾榈吕铝侣旅履屡"},
        {"", 0, -1, "驴闾榈吕铝侣旅履屡"}, {"xyz", 0, -1, "驴闾榈吕铝侣旅履屡"}, {"zhuan", 0, 720905, "专砖颛转撰赚篆啭馔"},
        {"a", 7, -1, "专砖颛转撰赚篆啭馔"}, {"a", -1, -1, "专砖颛转撰赚篆啭馔"},
    };
    for (const auto& k : cases) {
        c.str(0x2000, k.syl);
        EXPECT_EQ(int32_t(c.result(c_system, {0x2000, 0x3000, k.first, 20})), k.result) << k.syl << " " << k.first;
        const std::string gb = c.read(0x3000);
        char utf8[64];
        gb_to_utf8(gb.data(), gb.size(), utf8, sizeof utf8);
        EXPECT_STREQ(utf8, k.chars) << k.syl << " " << k.first;
    }
}
