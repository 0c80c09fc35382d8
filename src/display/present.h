// Presentation state shared between the VM thread and the front-end, and the
// settings of the frame conversion.
#pragma once

#include <atomic>
#include <cstdint>

struct Presentation {
    std::atomic<uint8_t> need_refresh{0};
    std::atomic<uint8_t> can_refresh{1};
    int32_t refresh_mode = 0;
};
