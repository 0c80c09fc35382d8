// The pinyin table and its lookups; paging, case and failures through
// service 20 are checked end to end by the svc_pinyin program.
#include <cstring>
#include <set>
#include <string>
#include <utility>

#include "cjk/pinyin.h"
#include "lib/syscalls.h"
#include "vm_harness.h"

namespace {

uint32_t offset(uint32_t s) { return pinyin_data[kPinyinOffsets + 2 * s] | pinyin_data[kPinyinOffsets + 2 * s + 1] << 8; }
std::string syllable(uint32_t s) {
    const char* p = reinterpret_cast<const char*>(pinyin_data + kPinyinNames + 6 * s);
    return std::string(p, strnlen(p, 6));
}
// The characters of syllable s as GB2312 text.
std::string characters(uint32_t s) {
    return std::string(reinterpret_cast<const char*>(pinyin_data + offset(s)), offset(s + 1) - offset(s));
}
// Whether syllable py lists the two-byte character gb.
bool lists(const char* py, const char* gb) {
    const uint32_t s = get_seq_no(py);
    if (s == kPinyinNotFound) return false;
    const std::string chars = characters(s);
    for (size_t i = 0; i < chars.size(); i += 2)
        if (chars.compare(i, 2, gb) == 0) return true;
    return false;
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

TEST(PinyinLookup, ReadingsOfKnownCharacters) {
    // Characters with more than one reading are listed under each; u with
    // diaeresis is typed as v.
    const std::pair<const char*, const char*> listed[] = {
        {"zhong", "\xD6\xD0"}, {"wen", "\xCE\xC4"},   {"xing", "\xD0\xD0"}, {"hang", "\xD0\xD0"}, {"chang", "\xB3\xA4"},
        {"zhang", "\xB3\xA4"}, {"lv", "\xC2\xCC"},    {"nve", "\xC5\xB0"},  {"lv", "\xC2\xC3"},
    };
    for (const auto& [py, gb] : listed) EXPECT_TRUE(lists(py, gb)) << py;
    EXPECT_FALSE(lists("lu", "\xC2\xC3"));
    EXPECT_FALSE(lists("zhong", "\xCE\xC4"));
}
