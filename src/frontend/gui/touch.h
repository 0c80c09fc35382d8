// On-screen touch buttons for devices without keys: a diamond of four round
// face buttons on the right, a cross of four square direction buttons on the
// left, shoulder bars at the top and SELECT/START bars at the bottom, drawn
// into a 32-bit overlay and hit-tested against finger positions.
//
// The pieces work but are not connected: the front-end only logs finger
// events, never shows the overlay and never calls check_finger. A port that
// wants touch input makes a texture of `pixels` (bytes red, green, blue,
// alpha: masks 0x000000FF, 0x0000FF00, 0x00FF0000, 0xFF000000), draws it over
// the frame and feeds finger events to check_finger.
#pragma once

#include <cstdint>
#include <vector>

#include "frontend/gui/vw.h"

struct Machine;

// Button bits of the circles (A, B, X, Y) then the rectangles (UP, DOWN,
// LEFT, RIGHT, L1, R1, SELECT, START).
inline constexpr uint16_t button_val[12] = {0x001, 0x002, 0x400, 0x800, 0x040, 0x080,
                                            0x020, 0x010, 0x200, 0x100, 0x004, 0x008};

// A finger event with its position normalised to 0..1 across the overlay.
struct FingerEvent {
    bool down = false;
    int64_t finger_id = 0;
    float x = 0, y = 0;
};

struct TouchButtons {
    int width = 0, height = 0;  // overlay size; 0 until gui_init
    int u = 0;                  // layout unit: height / 18
    int line_width = 2;         // ring and frame width: u / 16, at least 2
    struct Circle {
        int32_t cx = 0, cy = 0, r = 0;
    } circle_buttons[4];
    struct Rect {
        int32_t x1 = 0, y1 = 0, x2 = 0, y2 = 0;
    } rect_buttons[8];
    struct Finger {
        uint16_t button = 0;
        uint8_t pressed = 0;
    } fingers[10];
    std::vector<uint32_t> pixels;  // the overlay surface, width x height
    sGraph ui;                     // drawing context over pixels
};

// Once per TouchButtons (later calls do nothing while the overlay exists):
// makes a transparent w x h overlay, lays out and draws the buttons. On a
// size that cannot be made, writes "gui_init: Failed to create surface: ..."
// to standard error and returns false.
bool gui_init(TouchButtons& t, int w, int h);
void init_buttons(TouchButtons& t);
// Each circle a light-grey ring, each rectangle a light-grey frame, the
// inside dark and mostly transparent.
void draw_buttons(TouchButtons& t);
// Button bit under (x, y), or 0. Circles are hit inside their bounding square
// (strictly), rectangles strictly inside their corners.
uint16_t get_button_key(const TouchButtons& t, int x, int y);
// Button bit that a finger-down presses or a finger-up releases (the button
// first pressed by that finger, even if the finger slid off), or 0; logs
// "FINGER: id x y down". Finger ids above 9 are ignored.
uint16_t gui_finger(Machine& m, TouchButtons& t, const FingerEvent& e);
// Applies a finger event to the button word vk; START pressed while L1 and R1
// are held asks the running program to exit.
void check_finger(Machine& m, TouchButtons& t, const FingerEvent& e);

// The touch record a guest reads; this machine reports no touch.
struct TOUCH {
    uint8_t cmd = 0, pushed = 0;
    uint16_t rawX = 0, rawY = 0, x = 0, y = 0;
};
// Clears everything but cmd.
void GetTouch(TOUCH& touch);
