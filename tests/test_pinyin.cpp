// The pinyin table and its lookups: get_seq_no, GetGBCodeByPY and service 20.
#include <cstring>
#include <set>
#include <string>

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

TEST(PinyinLookup, SyllableNumbers) {
    EXPECT_EQ(get_seq_no("a"), 0u);
    EXPECT_EQ(get_seq_no("zuo"), kPinyinSyllables - 1);
    EXPECT_EQ(syllable(get_seq_no("zhong")), "zhong");
    // Each byte is ORed with 0x20: upper case finds lower case.
    EXPECT_EQ(get_seq_no("A"), 0u);
    EXPECT_EQ(get_seq_no("ZhOnG"), get_seq_no("zhong"));
    // Only six bytes count.
    EXPECT_EQ(syllable(get_seq_no("zhuang")), "zhuang");
    EXPECT_EQ(get_seq_no("zhuangx"), get_seq_no("zhuang"));
    EXPECT_EQ(get_seq_no("zhuangxyz"), get_seq_no("zhuang"));
    // A prefix or an extension of a syllable is another string.
    EXPECT_EQ(get_seq_no("zhuan") + 1, get_seq_no("zhuang"));
    for (const char* bad : {"", "xyz", "zz", "b", "aa", "zuoa", "a ", "@"}) EXPECT_EQ(get_seq_no(bad), kPinyinNotFound) << bad;
}

TEST(PinyinLookup, ReadingsOfKnownCharacters) {
    EXPECT_TRUE(lists("zhong", "\xD6\xD0"));  // zhong: the middle
    EXPECT_TRUE(lists("wen", "\xCE\xC4"));    // wen: writing
    // Characters with more than one reading are listed under each.
    EXPECT_TRUE(lists("xing", "\xD0\xD0"));
    EXPECT_TRUE(lists("hang", "\xD0\xD0"));
    EXPECT_TRUE(lists("chang", "\xB3\xA4"));
    EXPECT_TRUE(lists("zhang", "\xB3\xA4"));
    // u with diaeresis is typed as v.
    EXPECT_TRUE(lists("lv", "\xC2\xCC"));
    EXPECT_TRUE(lists("nve", "\xC5\xB0"));
    EXPECT_TRUE(lists("lv", "\xC2\xC3"));
    EXPECT_FALSE(lists("lu", "\xC2\xC3"));
    EXPECT_FALSE(lists("zhong", "\xCE\xC4"));
}

TEST(PinyinLookup, PagesOfNineCharacters) {
    uint8_t out[19];
    // "a": seven characters, the first 0xB0 0xA2.
    std::memset(out, 0x55, sizeof out);
    EXPECT_EQ(GetGBCodeByPY(0, "a", out), 7u << 16 | 7);
    EXPECT_EQ(out[0], 0xB0);
    EXPECT_EQ(out[1], 0xA2);
    EXPECT_EQ(out[14], 0);
    EXPECT_EQ(out[15], 0x55);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out)), characters(0));
    EXPECT_EQ(GetGBCodeByPY(6, "A", out), 7u << 16 | 1);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out)), characters(0).substr(12));

    // A long syllable: nine per page, the full count in the high half.
    const uint32_t yi = get_seq_no("yi");
    const uint32_t n = (offset(yi + 1) - offset(yi)) / 2;
    ASSERT_GT(n, 9u);
    EXPECT_EQ(GetGBCodeByPY(0, "yi", out), n << 16 | 9);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out)), characters(yi).substr(0, 18));
    EXPECT_EQ(GetGBCodeByPY(n - 4, "yi", out), n << 16 | 4);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out)), characters(yi).substr(2 * (n - 4)));

    // Failures leave the buffer alone.
    std::memset(out, 0x55, sizeof out);
    EXPECT_EQ(GetGBCodeByPY(n, "yi", out), 0xFFFFFFFFu);
    EXPECT_EQ(GetGBCodeByPY(7, "a", out), 0xFFFFFFFFu);
    EXPECT_EQ(GetGBCodeByPY(0xFFFFFFFF, "a", out), 0xFFFFFFFFu);
    EXPECT_EQ(GetGBCodeByPY(0, "", out), 0xFFFFFFFFu);
    EXPECT_EQ(GetGBCodeByPY(0, "xyz", out), 0xFFFFFFFFu);
    for (uint8_t b : out) EXPECT_EQ(b, 0x55);
}

// Service 20 takes the syllable, the buffer and the first index (pushed in
// that order, the service number on top) and pushes one result. Wild
// addresses wrap inside guest memory.
TEST(PinyinLookup, ThroughServiceTwenty) {
    Vm vm(Code{}, 0x10);  // 32-bit program: addresses keep 24 bits
    Machine& m = *vm.m;
    const auto call = [&](uint32_t py, uint32_t buf, uint32_t first) {
        push_cell(m, 0x5EED);
        for (uint32_t v : {py, buf, first, 20u}) push_cell(m, v);
        c_system(m);
        EXPECT_EQ(vm.depth(), 2);
        EXPECT_EQ(vm.cell(1), 0x5EEDu);
        const uint32_t r = vm.cell(0);
        m.eval_top = 0;
        return r;
    };
    for (uint32_t i = 0; i < 4; ++i) lRamWrite(m, 0x3000 + i, "Yi\0"[i]);
    const uint32_t n = (offset(get_seq_no("yi") + 1) - offset(get_seq_no("yi"))) / 2;
    EXPECT_EQ(call(0x3000, 0x3100, 2), n << 16 | 9);
    EXPECT_EQ(lRamRead(m, 0x3100), static_cast<uint8_t>(characters(get_seq_no("yi"))[4]));
    EXPECT_EQ(lRamRead(m, 0x3100 + 18), 0);
    lRamWrite(m, 0x3100, 0x77);
    EXPECT_EQ(call(0x3000, 0x3100, n), 0xFFFFFFFFu);
    EXPECT_EQ(lRamRead(m, 0x3100), 0x77);

    // Syllable and buffer across the end of the block, from 32-bit pointers.
    lRamWrite(m, kRamMask, 'a');
    lRamWrite(m, 0, 0);
    EXPECT_EQ(call(0xFF0FFFFF, 0xFFFFFFF8, 0), 7u << 16 | 7);
    EXPECT_EQ(m.tovix_ram[kRamMask - 7], 0xB0);
    EXPECT_EQ(m.tovix_ram[6], 0);
}
