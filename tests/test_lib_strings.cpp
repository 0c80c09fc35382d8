// String, memory and character-class calls, abs and the random numbers,
// called directly on a machine's evaluation stack; hostile pointers and
// counts must stay inside guest memory.
#include <string>
#include <utility>

#include "lib/syscalls.h"
#include "vm_harness.h"

namespace {

constexpr uint32_t T = 0xFFFFFFFF;

// A reset machine with an empty program, for calling handlers directly.
struct Calls {
    Vm vm;
    Machine& m;
    explicit Calls(uint8_t flags = 0) : vm(Code{}, flags), m(*vm.m) {}
    Calls& push(uint32_t v) {
        push_cell(m, v);
        return *this;
    }
    uint32_t pop() {
        get_val(m);
        return m.a1;
    }
    // Writes s and a terminating zero at guest address a.
    void str(uint32_t a, const std::string& s) {
        for (size_t i = 0; i <= s.size(); ++i) lRamWrite(m, a + static_cast<uint32_t>(i), i < s.size() ? s[i] : 0);
    }
    std::string read(uint32_t a) {
        std::string s;
        for (uint8_t ch; (ch = lRamRead(m, a + static_cast<uint32_t>(s.size()))) != 0;) s += static_cast<char>(ch);
        return s;
    }
    uint32_t call(void (*fn)(Machine&), std::initializer_list<uint32_t> args) {
        for (uint32_t v : args) push(v);
        const int before = vm.depth();
        fn(m);
        EXPECT_EQ(vm.depth(), before - static_cast<int>(args.size()) + 1);
        return pop();
    }
    void call_void(void (*fn)(Machine&), std::initializer_list<uint32_t> args) {
        for (uint32_t v : args) push(v);
        const int before = vm.depth();
        fn(m);
        EXPECT_EQ(vm.depth(), before - static_cast<int>(args.size()));
    }
};

TEST(LibStrings, CopyLengthAndConcatenate) {
    Calls c;
    c.str(0x3000, "hello");
    std::memset(c.m.tovix_ram + 0x4000, '#', 16);
    c.call_void(c_strcpy, {0x4000, 0x3000});
    EXPECT_EQ(c.read(0x4000), "hello");
    EXPECT_EQ(lRamRead(c.m, 0x4006), '#');  // nothing beyond the terminator
    EXPECT_EQ(c.call(c_strlen, {0x4000}), 5u);
    c.str(0x3100, ", world");
    c.call_void(c_strcat, {0x4000, 0x3100});
    EXPECT_EQ(c.read(0x4000), "hello, world");
    EXPECT_EQ(c.call(c_strlen, {0x4000}), 12u);
    c.str(0x3200, "");
    EXPECT_EQ(c.call(c_strlen, {0x3200}), 0u);
    c.call_void(c_strcat, {0x4000, 0x3200});
    EXPECT_EQ(c.read(0x4000), "hello, world");
}

TEST(LibStrings, CompareGivesExactlyMinusOneZeroOne) {
    Calls c;
    c.str(0x3000, "abc");
    c.str(0x3010, "abd");
    c.str(0x3020, "ab");
    c.str(0x3030, "\x80");
    c.str(0x3040, "\x01");
    EXPECT_EQ(c.call(c_strcmp, {0x3000, 0x3010}), T);
    EXPECT_EQ(c.call(c_strcmp, {0x3010, 0x3000}), 1u);
    EXPECT_EQ(c.call(c_strcmp, {0x3000, 0x3000}), 0u);
    EXPECT_EQ(c.call(c_strcmp, {0x3020, 0x3000}), T);  // a prefix is smaller
    EXPECT_EQ(c.call(c_strcmp, {0x3000, 0x3020}), 1u);
    EXPECT_EQ(c.call(c_strcmp, {0x3030, 0x3040}), 1u);  // bytes compare unsigned
    c.str(0x3050, "abc");
    EXPECT_EQ(c.call(c_strcmp, {0x3000, 0x3050}), 0u);
}

TEST(LibStrings, SearchForCharacterAndSubstring) {
    Calls c;
    c.str(0x3000, "banana");
    EXPECT_EQ(c.call(c_strchr, {0x3000, 'n'}), 0x3002u);
    EXPECT_EQ(c.call(c_strchr, {0x3000, 0x100 + 'a'}), 0x3001u);  // low byte only
    EXPECT_EQ(c.call(c_strchr, {0x3000, 'z'}), 0u);
    EXPECT_EQ(c.call(c_strchr, {0x3000, 0}), 0x3006u);  // the terminator
    EXPECT_EQ(c.call(c_strchr, {0x3000, 0x300}), 0x3006u);

    c.str(0x3100, "nan");
    c.str(0x3110, "nab");
    c.str(0x3120, "");
    EXPECT_EQ(c.call(c_strstr, {0x3000, 0x3100}), 0x3002u);
    EXPECT_EQ(c.call(c_strstr, {0x3000, 0x3110}), 0u);
    EXPECT_EQ(c.call(c_strstr, {0x3000, 0x3120}), 0x3000u);
    EXPECT_EQ(c.call(c_strstr, {0x3120, 0x3120}), 0x3120u);
    EXPECT_EQ(c.call(c_strstr, {0x3100, 0x3000}), 0u);  // longer than the text

    // Long patterns: a near miss before the real match.
    const std::string pat(40, 'x');
    c.str(0x5000, std::string(39, 'x') + "y" + pat + "z");
    c.str(0x6000, pat);
    EXPECT_EQ(c.call(c_strstr, {0x5000, 0x6000}), 0x5000u + 40);
    c.str(0x6000, pat + "q");
    EXPECT_EQ(c.call(c_strstr, {0x5000, 0x6000}), 0u);
}

TEST(LibStrings, AddressesAreMaskedAndResultsRelativeToTaskBase) {
    Calls c;  // 16-bit program: addresses keep 16 bits
    c.str(0x3000, "mask");
    EXPECT_EQ(c.call(c_strlen, {0x7FFF3000}), 4u);
    EXPECT_EQ(c.call(c_strchr, {0x10003000, 's'}), 0x3002u);

    // A nested task's addresses are offsets from its own base.
    c.m.lRam = 0x20000;
    c.str(0x3000, "child");
    EXPECT_EQ(c.m.tovix_ram[0x23000], 'c');
    EXPECT_EQ(c.call(c_strchr, {0x3000, 'l'}), 0x3003u);
    c.str(0x3100, "il");
    EXPECT_EQ(c.call(c_strstr, {0x3000, 0x3100}), 0x3002u);
}

TEST(LibStrings, CaseConversionFollowsLatin1Table) {
    Calls c;
    struct Case {
        uint32_t in, upper, lower;
    };
    const Case cases[] = {
        {'a', 'A', 'a'},   {'Z', 'Z', 'z'},   {'5', '5', '5'},   {'@', '@', '@'},   {0xDF, 0xBF, 0xDF},
        {0xFF, 0xDF, 0xFF}, {0xE9, 0xC9, 0xE9}, {0xC0, 0xC0, 0xE0}, {0xDE, 0xDE, 0xFE}, {0xD7, 0xD7, 0xD7},
        {0xF7, 0xF7, 0xF7}, {0xAA, 0xAA, 0xAA}, {0x161, 'A', 'a'}, {0xFFFFFF41, 'A', 'a'},
    };
    for (const Case& k : cases) {
        EXPECT_EQ(c.call(c_toupper, {k.in}), k.upper) << std::hex << k.in;
        EXPECT_EQ(c.call(c_tolower, {k.in}), k.lower) << std::hex << k.in;
    }
}

// Each class written out from the Latin-1 description, independently of
// the table's layout.
bool in(unsigned ch, unsigned lo, unsigned hi) { return ch >= lo && ch <= hi; }
bool upper(unsigned ch) { return in(ch, 'A', 'Z') || (in(ch, 0xC0, 0xDE) && ch != 0xD7); }
bool lower(unsigned ch) { return in(ch, 'a', 'z') || (in(ch, 0xDF, 0xFF) && ch != 0xF7); }
bool digit(unsigned ch) { return in(ch, '0', '9'); }
bool cntrl(unsigned ch) { return ch < 0x20 || ch == 0x7F; }
bool space(unsigned ch) { return in(ch, 9, 13) || ch == ' ' || ch == 0xA0; }
bool punct(unsigned ch) {
    return in(ch, 0x21, 0x7E) ? !upper(ch) && !lower(ch) && !digit(ch)
                              : in(ch, 0xA1, 0xBF) || ch == 0xD7 || ch == 0xF7;
}

TEST(LibStrings, CharacterClassesOverAllBytes) {
    Calls c;
    for (unsigned ch = 0; ch < 256; ++ch) {
        // Only the low byte counts; results are exactly -1 or 0.
        const auto is = [&](void (*fn)(Machine&)) {
            const uint32_t r = c.call(fn, {0xABCD00u | ch});
            EXPECT_TRUE(r == 0 || r == T) << ch;
            return r == T;
        };
        const bool alpha = upper(ch) || lower(ch);
        EXPECT_EQ(is(c_isupper), upper(ch)) << ch;
        EXPECT_EQ(is(c_islower), lower(ch)) << ch;
        EXPECT_EQ(is(c_isdigit), digit(ch)) << ch;
        EXPECT_EQ(is(c_iscntrl), cntrl(ch)) << ch;
        EXPECT_EQ(is(c_ispunct), punct(ch)) << ch;
        EXPECT_EQ(is(c_isspace), space(ch)) << ch;
        EXPECT_EQ(is(c_isalpha), alpha) << ch;
        EXPECT_EQ(is(c_isalnum), alpha || digit(ch)) << ch;
        EXPECT_EQ(is(c_isxdigit), digit(ch) || in(ch, 'a', 'f') || in(ch, 'A', 'F')) << ch;
        EXPECT_EQ(is(c_isgraph), alpha || digit(ch) || punct(ch)) << ch;
        EXPECT_EQ(is(c_isprint), alpha || digit(ch) || punct(ch) || ch == 0x20 || ch == 0xA0) << ch;
        if (in(ch, 0x80, 0x9F)) {  // no class at all, not even control
            for (auto fn : {c_iscntrl, c_isprint, c_isspace, c_ispunct}) EXPECT_FALSE(is(fn)) << ch;
        }
    }
}

TEST(LibStrings, MemoryFillCopyAndMove) {
    Calls c;
    c.str(0x3000, "0123456789");
    c.call_void(c_memset, {0x3000, 0x14A, 0});  // count 0: nothing
    c.call_void(c_memcpy, {0x3000, 0x3005, 0});
    c.call_void(c_memmove, {0x3000, 0x3005, 0});
    EXPECT_EQ(c.read(0x3000), "0123456789");
    c.call_void(c_memset, {0x3002, 0x14A, 3});  // low byte of the value
    EXPECT_EQ(c.read(0x3000), "01JJJ56789");

    c.str(0x3000, "0123456789");
    c.call_void(c_memmove, {0x3002, 0x3000, 6});  // overlapping, forwards
    EXPECT_EQ(c.read(0x3000), "0101234589");
    c.str(0x3000, "0123456789");
    c.call_void(c_memmove, {0x3000, 0x3002, 6});  // overlapping, backwards
    EXPECT_EQ(c.read(0x3000), "2345676789");
    c.str(0x3000, "0123456789");
    c.call_void(c_memcpy, {0x3000, 0x3002, 6});
    EXPECT_EQ(c.read(0x3000), "2345676789");
    c.str(0x3000, "0123456789");
    c.call_void(c_memcpy, {0x3001, 0x3000, 6});  // forward copy repeats the first byte
    EXPECT_EQ(c.read(0x3000), "0000000789");
}

TEST(LibStrings, CountsAreMaskedToTheAddressWidth) {
    // The second argument is the fill value for memset and the source area
    // (filled with 0x55) for the copies.
    const std::pair<void (*)(Machine&), uint32_t> cases[] = {{c_memset, 0x55}, {c_memcpy, 0x8000}, {c_memmove, 0x8000}};
    for (auto [fn, second] : cases) {
        Calls c;
        std::memset(c.m.tovix_ram + 0x8000, 0x55, 0x3000);
        c.call_void(fn, {0x4000, second, 0x12345});
        EXPECT_EQ(lRamRead(c.m, 0x4000), 0x55);
        EXPECT_EQ(lRamRead(c.m, 0x4000 + 0x2344), 0x55);
        EXPECT_EQ(lRamRead(c.m, 0x4000 + 0x2345), 0);
    }
    Calls wide(0x80);  // 24-bit program: the count keeps 24 bits
    wide.call_void(c_memset, {0x20000, 7, 0x7F012345});
    EXPECT_EQ(lRamRead(wide.m, 0x20000 + 0x12344), 7);
    EXPECT_EQ(lRamRead(wide.m, 0x20000 + 0x12345), 0);
}

TEST(LibStrings, AbsRandSrandAndNoOps) {
    Calls c;
    EXPECT_EQ(c.call(c_abs, {static_cast<uint32_t>(-5)}), 5u);
    EXPECT_EQ(c.call(c_abs, {7}), 7u);
    EXPECT_EQ(c.call(c_abs, {0x80000000}), 0x80000000u);
    EXPECT_EQ(c.call(c_abs, {0x80000001}), 0x7FFFFFFFu);

    c.call_void(c_srand, {1});
    EXPECT_EQ(c.call(c_rand, {}), 346u);
    // The whole 32-bit seed counts, and the same seed gives the same run.
    auto run = [&](uint32_t seed) {
        c.call_void(c_srand, {seed});
        std::vector<uint32_t> v;
        for (int i = 0; i < 50; ++i) v.push_back(c.call(c_rand, {}));
        return v;
    };
    const auto a = run(0x00010001), b = run(0x00010001), d = run(1), e = run(0xFFFFFFFF);
    EXPECT_EQ(a, b);
    EXPECT_NE(a, d);
    EXPECT_NE(d, e);
    for (uint32_t r : e) EXPECT_LE(r, 0x7FFFu);

    c.push(0x1234);
    const uint8_t top = c.m.eval_top;
    c_beep(c.m);
    c_setlist(c.m);
    EXPECT_EQ(c.m.eval_top, top);
    EXPECT_EQ(c.pop(), 0x1234u);
}

TEST(LibStrings, CallsThroughTheirOpcodes) {
    Code code;
    code.op("push_string").raw({'x', 'y', 'z', 0}).op("c_strlen");
    code.op("push_char").u8('q').op("c_toupper");
    code.op("push_char").u8(1).op("c_srand").op("c_rand");
    code.op("c_beep").op("c_setlist");
    Vm vm(code);
    vm.run(9);
    ASSERT_EQ(vm.depth(), 3);
    EXPECT_EQ(vm.cell(2), 3u);
    EXPECT_EQ(vm.cell(1), static_cast<uint32_t>('Q'));
    EXPECT_EQ(vm.cell(0), 346u);
}

// Hostile arguments: strings without a terminator anywhere, areas that run
// over the end of the block, counts far beyond it. Nothing may leave guest
// memory (the sanitizer build checks) and nothing may hang.
TEST(LibStrings, WildPointersAndHugeCountsStayInGuestMemory) {
    Calls c(0x80);  // 24-bit addresses reach the whole block and beyond
    // A string that runs over the end of the block continues at its start.
    c.m.tovix_ram[kRamMask - 1] = 'a';
    c.m.tovix_ram[kRamMask] = 'b';
    c.m.tovix_ram[0] = 'c';
    c.m.tovix_ram[1] = 0;
    EXPECT_EQ(c.call(c_strlen, {kRamMask - 1}), 3u);
    EXPECT_EQ(c.call(c_strchr, {kRamMask - 1, 'c'}), kRamMask + 1);
    c.str(0x3000, "bc");
    EXPECT_EQ(c.call(c_strstr, {kRamMask - 1, 0x3000}), kRamMask);

    // No zero byte in the whole block. The arguments' stack cells are part
    // of the block too, so they are made of 'a' bytes as well.
    const uint32_t A = 0x61616161;  // guest 0x616161
    const auto all_a = [&] { std::memset(c.m.tovix_ram, 'a', kRamSize); };
    all_a();
    EXPECT_EQ(c.call(c_strlen, {A}), kRamSize);
    all_a();
    EXPECT_EQ(c.call(c_strcmp, {A, A}), 0u);
    all_a();
    EXPECT_EQ(c.call(c_strstr, {A, A}), A & 0xFFFFFF);
    all_a();
    c.call_void(c_strcpy, {A, A});
    all_a();
    c.call_void(c_strcat, {A, A});
    // A long pattern that almost matches everywhere must not take quadratic time.
    all_a();
    c.m.tovix_ram[0x72000] = 'b';
    c.m.tovix_ram[0x72001] = 0;
    c.m.tovix_ram[0xFFFFE] = 'c';
    c.m.tovix_ram[0xFFFFF] = 0;
    EXPECT_EQ(c.call(c_strstr, {0x2000, 0xC0000}), 0u);
    c.m.tovix_ram[0xFFFFE] = 'b';
    EXPECT_EQ(c.call(c_strstr, {0x2000, 0xF0000}), 0x72000u - 0xFFFE);

    // strcat of a string onto itself reads what it writes; it must still end.
    std::memset(c.m.tovix_ram, 0, kRamSize);
    c.str(0x3000, "ab");
    c.call_void(c_strcat, {0x3000, 0x3000});
    EXPECT_EQ(lRamRead(c.m, 0x3002), 'a');

    // Counts up to 16 MiB and areas that wrap.
    c.call_void(c_memset, {0xFFFFFF, 0x11, 0xFFFFFF});
    EXPECT_EQ(c.m.tovix_ram[0], 0x11);
    EXPECT_EQ(c.m.tovix_ram[kRamMask], 0x11);
    c.m.tovix_ram[kRamMask - 1] = 1;
    c.m.tovix_ram[kRamMask] = 2;
    c.m.tovix_ram[0] = 3;
    c.call_void(c_memmove, {0x10, kRamMask - 1, 3});
    EXPECT_EQ(lRamRead(c.m, 0x10), 1);
    EXPECT_EQ(lRamRead(c.m, 0x12), 3);
    c.call_void(c_memmove, {kRamMask, 0x10, 3});
    EXPECT_EQ(c.m.tovix_ram[kRamMask], 1);
    EXPECT_EQ(c.m.tovix_ram[1], 3);
    c.call_void(c_memmove, {0x800000, 0x123456, 0xFFFFFF});
    c.call_void(c_memcpy, {0xFFFF00, 0x400, 0xFFFFFF});
    c.call_void(c_memcpy, {0x401, 0x400, 0xFFFFFF});
    c.call_void(c_memset, {0x12345, 0, 0x3000});
}

}  // namespace
