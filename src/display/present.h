// Presentation: the dirty mark that drawing sets, and the frames the machine
// hands to its host. A present copies the visible screen into a new Frame;
// the host takes frames between runs and never reads the screen itself.
#pragma once

#include <cstdint>
#include <memory>

#include "display/frame.h"

struct Machine;

struct Presentation {
    uint8_t need_refresh = 0;  // the visible plane changed since the last present
    uint32_t dirty_marks = 0;  // drawing calls that marked the screen, since the load
    uint8_t use_grid = 1;      // grid look for enlarged monochrome screens
    uint8_t ZOOM = 1;          // kept from the configuration; has no effect
    uint32_t frame_number = 0;
    std::shared_ptr<const Frame> frame;  // the last presented frame
};

inline void SetZoom(Presentation& p, uint8_t v) { p.ZOOM = v; }

// Presents the guest screen: a new frame from the visible plane, the dirty
// mark cleared, and the interpreter loop told to return to the host so that
// it can show the frame.
void HardwareRefresh(Machine& m);
// The same without stopping the loop (a host asking for the picture as it is).
void present_frame(Machine& m);
