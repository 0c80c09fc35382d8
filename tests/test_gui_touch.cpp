// Touch buttons: layout for a window size, ring and frame drawing, hit tests,
// finger tracking and the button word.
#include <gtest/gtest.h>

#include <memory>

#include "frontend/gui/touch.h"
#include "vm_harness.h"

namespace {

struct Touch : ::testing::Test {
    TestHost host;
    std::unique_ptr<Machine> m = std::make_unique<Machine>();
    TouchButtons t;
    void SetUp() override {
        m->host = &host;
        ASSERT_TRUE(gui_init(t, 640, 480));
    }
    FingerEvent at(bool down, int64_t id, int x, int y) const {
        return {down, id, (float(x) + 0.5f) / 640.0f, (float(y) + 0.5f) / 480.0f};
    }
    uint32_t px(int x, int y) const { return t.pixels[size_t(y * 640 + x)]; }
};

}  // namespace

TEST_F(Touch, LayoutOfA640x480Window) {
    EXPECT_EQ(t.u, 26);
    EXPECT_EQ(t.line_width, 2);
    EXPECT_EQ(get_button_key(t, 588, 240), 0x001);
    EXPECT_EQ(t.circle_buttons[2].cy, 240 - 52);
    EXPECT_EQ(t.rect_buttons[4].y2, 65);  // L1 bar: (2u, u) to (6u, 5u/2)
    EXPECT_EQ(t.rect_buttons[7].x1, 640 - 156);

    // Every button answers at its centre with its own bit.
    uint16_t all = 0;
    for (int i = 0; i < 4; ++i) all |= get_button_key(t, t.circle_buttons[i].cx, t.circle_buttons[i].cy);
    for (const auto& r : t.rect_buttons) all |= get_button_key(t, (r.x1 + r.x2) / 2, (r.y1 + r.y2) / 2);
    EXPECT_EQ(all, 0xFFF);

    // Edges are misses: the rectangle's border and the circle's bounding square.
    const auto& up = t.rect_buttons[0];
    EXPECT_EQ(get_button_key(t, up.x1, up.y1 + 5), 0);
    EXPECT_EQ(get_button_key(t, up.x1 + 1, up.y1 + 1), 0x040);
    EXPECT_EQ(get_button_key(t, up.x2, up.y1 + 5), 0);
    EXPECT_EQ(get_button_key(t, 588 + 26, 240), 0);
    EXPECT_EQ(get_button_key(t, 588 + 25, 240 - 25), 0x001);  // square test: the corner counts
    EXPECT_EQ(get_button_key(t, 320, 240), 0);

    // A second init with another size changes nothing.
    EXPECT_TRUE(gui_init(t, 100, 100));
    EXPECT_EQ(t.width, 640);
    EXPECT_EQ(t.u, 26);
}

TEST_F(Touch, FingersPressAndReleaseTheirOwnButton) {
    EXPECT_EQ(gui_finger(*m, t, at(true, 0, 588, 240)), 0x001);
    EXPECT_NE(host.logged.find("FINGER: 0 588 240 1"), std::string::npos) << host.logged;
    // The finger slides off the button: its release still names A.
    EXPECT_EQ(gui_finger(*m, t, at(false, 0, 320, 240)), 0x001);
    EXPECT_EQ(gui_finger(*m, t, at(false, 0, 588, 240)), 0);  // already released
    EXPECT_EQ(gui_finger(*m, t, at(true, 3, 320, 240)), 0);  // no button there
    EXPECT_EQ(gui_finger(*m, t, at(false, 3, 588, 240)), 0);
    EXPECT_EQ(gui_finger(*m, t, at(true, 10, 588, 240)), 0);  // ids above 9 are ignored
    EXPECT_EQ(gui_finger(*m, t, {true, 1, 1e30f, -1e30f}), 0);

    TouchButtons none;  // no overlay yet
    EXPECT_EQ(gui_finger(*m, none, at(true, 0, 588, 240)), 0);
}

TEST_F(Touch, CheckFingerDrivesTheButtonWordAndTheExitChord) {
    m->vk = 0xFFF;
    const auto& b = t.circle_buttons[1];
    check_finger(*m, t, at(true, 1, b.cx, b.cy));
    EXPECT_EQ(m->vk, 0xFFF & ~0x002);
    check_finger(*m, t, at(false, 1, b.cx, b.cy));
    EXPECT_EQ(m->vk, 0xFFF);

    auto centre = [&](int i, bool down, int id) {
        const auto& r = t.rect_buttons[i];
        check_finger(*m, t, at(down, id, (r.x1 + r.x2) / 2, (r.y1 + r.y2) / 2));
    };
    centre(7, true, 2);  // START alone: no exit
    EXPECT_EQ(m->force_exit_tvx, 0);
    centre(7, false, 2);
    centre(4, true, 3);  // L1
    centre(5, true, 4);  // R1
    centre(7, true, 5);  // START with both shoulders held
    EXPECT_EQ(m->force_exit_tvx, 1);
    EXPECT_EQ(m->vk, 0xFFF & ~(0x200 | 0x100 | 0x008));

    TOUCH rec{7, 1, 2, 3, 4, 5};
    GetTouch(rec);
    EXPECT_EQ(rec.cmd, 7);
    EXPECT_EQ(rec.pushed + rec.rawX + rec.rawY + rec.x + rec.y, 0);
}

TEST(TouchLayout, TinyWindowsStayInsideTheOverlay) {
    for (const auto& [w, h] : {std::pair{1, 1}, {10, 20}, {35, 17}, {3000, 40}}) {
        TouchButtons t;
        ASSERT_TRUE(gui_init(t, w, h));
        EXPECT_EQ(t.pixels.size(), size_t(w) * size_t(h));
    }
    TouchButtons bad;
    EXPECT_FALSE(gui_init(bad, 0, 480));
    EXPECT_FALSE(gui_init(bad, 640, 100000));
}
