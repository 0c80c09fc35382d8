// Configuration lines: button values in every accepted and refused form,
// the zoom switch, comments and case, the size limit, and key defaults.
#include "fs/config.h"
#include "fs_harness.h"

using namespace fs_test;

namespace {

struct ConsoleHost : TestHost {
    std::string out;
    void console_write(std::string_view text) override { out += text; }
};

struct Cfg {
    std::unique_ptr<ConsoleHost> console = std::make_unique<ConsoleHost>();
    ConsoleHost& host = *console;
    std::unique_ptr<Machine> m = std::make_unique<Machine>();
    Cfg() { m->host = console.get(); }
    // key_code of button A (index 5) after reading text from the defaults.
    int a_after(const std::string& text) {
        m->key_code[5] = 13;
        read_config_text(*m, text.data(), text.size());
        return m->key_code[5];
    }
};

TEST(Config, ButtonValues) {
    Cfg c;
    // A name, a printable character, or three decimal digits; anything else leaves the default 13.
    for (const auto& [text, code] : {std::pair{"A = ESC", 27}, {"  A = ENTER\n", 13}, {"A=F1 ; comment", 28}, {"A = Q", 113},
                                     {"A = X", 0x78}, {"A = 7", 55}, {"A = 065", 65}, {"A = 013", 13}, {"A = q", 13},
                                     {"A = 200", 13}, {"A = 00", 13}, {"A = 0x10", 13}, {"A = 99999999999999999999", 13},
                                     {"a = ESC", 13}, {"A ESC", 13}, {"; A = ESC", 13}, {"A = ", 13}, {"A = -5", 13}})
        EXPECT_EQ(c.a_after(text), code) << text;
    c.host.logged.clear();
    const std::string lines = "\r\n\n# keys\nB = ENTER\r\nL1\t=\tPAGEDOWN\nQQ = 5\nY = HELP extra words\n";
    read_config_text(*c.m, lines.data(), lines.size());
    EXPECT_EQ(c.host.logged, "SET KEY B=0xd\nSET KEY L1=0xe\nSET KEY Y=0x19\n");  // to the log, not the console
    EXPECT_EQ(c.m->key_code[6], 13);
    EXPECT_EQ(c.m->key_code[9], 14);
}

TEST(Config, ZoomSwitch) {
    Cfg c;
    for (const auto& [line, zoom] : {std::pair{"ZOOM_SCREEN=1", 1}, {"ZOOM_SCREEN=yes", 0}, {"ZOOM_SCREEN = 1", 1},
                                     {"ZOOM_SCREEN=0", 0}, {"ZOOM_SCREEN=11", 0}}) {
        c.m->ZOOM = 7;
        read_config_text(*c.m, line, std::strlen(line));
        EXPECT_EQ(c.m->ZOOM, zoom) << line;
    }
}

TEST(Config, FileLimitAndDefaults) {
    TempRoot dir;
    Cfg c;
    // The 4096th byte starts the last line, which is not read.
    std::string text = "X = F3\n" + std::string(4095 - 7 - 1, ';') + "\nY = SPACE\n";
    ASSERT_EQ(text.find("Y ="), 4095u);
    dir.write("Config.ini", text);
    c.m->key_code[5] = 99;
    c.m->key_code[12] = 99;
    SetKeyCode(*c.m, (dir.root_slash() + "Config.ini").c_str());
    EXPECT_EQ(c.m->key_code[5], 13);  // back to the default
    EXPECT_EQ(c.m->key_code[11], 30);
    EXPECT_EQ(c.m->key_code[12], 25);
    dir.write("Config.ini", text.substr(0, 4082) + "\nY = SPACE\n");  // ends at byte 4093
    ReadConfig(*c.m, (dir.root_slash() + "Config.ini").c_str());
    EXPECT_EQ(c.m->key_code[12], 32);
    ReadConfig(*c.m, (dir.root_slash() + "missing.ini").c_str());
    EXPECT_EQ(c.m->key_code[12], 32);
}

}  // namespace
