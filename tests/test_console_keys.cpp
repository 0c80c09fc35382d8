// The console grid with verbose mode off, the choice of the pending key and
// the calendar, the runner's key scripts; the keys_clock programs check the
// key and clock calls end to end.
#include "lib/syscalls.h"
#include "tools/run/key_script.h"
#include "vm_harness.h"

namespace {

std::string row_text(Machine& m, int row) {
    std::string s;
    for (int c = 0; c < m.curr_CPR; ++c) s += static_cast<char>(lRamRead(m, m.TextBuffer + static_cast<uint32_t>(row * m.curr_CPR + c)));
    return s;
}

void put(Machine& m, const std::string& text) {
    for (char c : text) cout(m, static_cast<uint8_t>(c));
}

TEST(Console, GridWrapsScrollsAndIgnoresCarriageReturn) {
    Vm vm(Code{});  // 160 x 80: 20 columns, 5 rows in the large font
    Machine& m = *vm.m;
    m.verbose_mode = 0;
    ASSERT_EQ(m.curr_CPR, 20);
    ASSERT_EQ(m.curr_RPS, 5);
    put(m, std::string(20, 'a'));  // exactly one row: cursor at the start of the next
    EXPECT_EQ(m.scr_x, 0);
    EXPECT_EQ(m.scr_y, 1);
    put(m, "b\tc\r\n");
    EXPECT_EQ(row_text(m, 1).substr(0, 3), "b c");
    EXPECT_EQ(m.scr_y, 2);
    put(m, "1\n2\n3");
    EXPECT_EQ(m.scr_y, 4);
    put(m, "\n");  // line feed on the last row scrolls
    EXPECT_EQ(m.scr_y, 4);
    EXPECT_EQ(row_text(m, 0).substr(0, 3), "b c");
    EXPECT_EQ(row_text(m, 4), std::string(20, ' '));
    put(m, std::string(20, 'z'));  // fills the last row; the scroll waits for the next character
    EXPECT_EQ(m.scr_y, 5);
    EXPECT_EQ(row_text(m, 0).substr(0, 3), "b c");
    put(m, "!");
    EXPECT_EQ(row_text(m, 3), std::string(20, 'z'));
    EXPECT_EQ(row_text(m, 4)[0], '!');
}

TEST(Keys, SetGamePadMakesTheLowestNewPressPending) {
    Keys k;
    SetGamePad(k, static_cast<uint16_t>(0xFFF & ~(0x80 | 0x01)));  // DOWN and A
    EXPECT_EQ(k.cur_keyb[2], 1);
    EXPECT_EQ(k.cur_keyb[5], 1);
    EXPECT_EQ(k.tvx_key, 0x15 | 0x80);  // DOWN (index 2) wins over A (index 5)
    k.tvx_key = 0x15;
    SetGamePad(k, static_cast<uint16_t>(0xFFF & ~(0x80 | 0x01)));  // still held: nothing new
    EXPECT_EQ(k.tvx_key, 0x15);
    EXPECT_EQ(c_keyid(k, 0x0D), 5);
    EXPECT_EQ(c_keyid(k, 0x7F), 0);

    Vm vm(Code{});
    push_cell(*vm.m, 128);  // no such key
    c_checkkey(*vm.m);
    EXPECT_EQ(vm.cell(), 0u);
}

// c_gettime reads the virtual calendar (year low byte first); c_settime moves
// it (the weekday computed, whatever was given), also a second later across a
// leap day.
TEST(Clock, CalendarSetAndReadBack) {
    CallVm c;
    c.call(c_gettime, {0x3000});  // the virtual calendar starts on Monday, 2024-01-01
    EXPECT_EQ(c.read(0x3000, 8), std::string("\xE8\x07\x01\x01\x00\x00\x00\x01", 8));
    const struct { const char *set, *got, *later; } cases[] = {
        {"\xEE\x07\x06\x0F\x0C\x22\x38\x03", "\xEE\x07\x06\x0F\x0C\x22\x38\x06", "\xEE\x07\x06\x0F\x0C\x22\x39\x06"},
        {"\xE8\x07\x02\x1D\x17\x3B\x3B\x03", "\xE8\x07\x02\x1D\x17\x3B\x3B\x04", "\xE8\x07\x03\x01\x00\x00\x00\x05"},
    };
    for (const auto& k : cases) {
        for (uint32_t i = 0; i < 8; ++i) lRamWrite(*c.m, 0x3000 + i, uint8_t(k.set[i]));
        c.call(c_settime, {0x3000});
        c.call(c_gettime, {0x3000});
        EXPECT_EQ(c.read(0x3000, 8), std::string(k.got, 8));
        c.m->clock.now_ns += 1000000000;
        c.call(c_gettime, {0x3000});
        EXPECT_EQ(c.read(0x3000, 8), std::string(k.later, 8));
    }
}

TEST(RunHost, KeyScriptsParseAndReject) {
    std::vector<KeyEvent> ev;
    std::string err;
    ASSERT_TRUE(parse_key_script("300:UP+ # comment\n100:A, 500:UP-", &ev, &err)) << err;
    ASSERT_EQ(ev.size(), 4u);
    EXPECT_EQ(ev[0].at_ms, 100u);
    EXPECT_TRUE(ev[0].down);
    EXPECT_EQ(ev[1].at_ms, 200u);  // the tap's release
    EXPECT_FALSE(ev[1].down);
    EXPECT_EQ(ev[2].button, 1);
    for (const char* bad : {"A", "x:A", "100:Q", "100:", ":A+"}) {
        std::vector<KeyEvent> none;
        EXPECT_FALSE(parse_key_script(bad, &none, &err)) << bad;
    }
}

}  // namespace
