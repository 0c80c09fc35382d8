// Presentation state shared between the VM thread and the front-end, and the
// settings of the frame conversion.
#pragma once

#include <atomic>
#include <cstdint>

struct Presentation {
    std::atomic<uint8_t> need_refresh{0};
    std::atomic<uint8_t> can_refresh{1};
    int32_t refresh_mode = 0;

    // Frame conversion settings.
    uint8_t use_grid = 1;  // grid look for enlarged monochrome screens
    uint8_t ZOOM = 1;      // kept from the configuration; has no effect
    int32_t bg_x = 0, bg_y = 0, bg_scale = 0;
};

inline void SetZoom(Presentation& p, uint8_t v) { p.ZOOM = v; }
