// Fuzz target: save states. The first input byte chooses the mode; the rest
// is the state. With bit 0 set the header's payload size and CRC-32 are made
// to match the payload first, so mutations reach the section parser instead
// of dying at the checksum. A state that loads must save and load again to
// the same bytes; it is then run for a while and saved, all under the path
// guard.
#include <zlib.h>

#include "core/state.h"
#include "vm/machine.h"
#include "fuzz.h"

namespace {

constexpr size_t kHeaderSize = 24;  // magic, format version, payload size, CRC-32

void put_le(uint8_t* p, uint64_t v, int n) {
    for (int k = 0; k < n; ++k) p[k] = static_cast<uint8_t>(v >> (8 * k));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    std::vector<uint8_t> state(data + 1, data + size);
    if ((data[0] & 1) && state.size() >= kHeaderSize) {
        const size_t n = state.size() - kHeaderSize;
        put_le(&state[12], n, 8);
        put_le(&state[20], crc32(0, state.data() + kHeaderSize, static_cast<uInt>(n)), 4);
    }
    static ScratchRoot root;
    root.reset();
    root.put("DATA/note.txt", "0123456789\n", 11);

    PathGuard guard(root.path);
    Core core;
    quiet(core);
    if (!core_load_state_at(core, state, root.path).empty()) return 0;
    // What loads saves as a state that loads again and, on the virtual clock
    // (the real one moves between saves), saves the same bytes.
    const std::vector<uint8_t> saved = core_save_state(core);
    Core again;
    quiet(again);
    if (const std::string err = core_load_state_at(again, saved, root.path); !err.empty())
        fail("a loaded state saved again does not load: ", err);
    if (core_machine(core).clock.virtual_time && core_save_state(again) != saved)
        fail("a loaded state saved twice differs");
    core_close_files(again);
    drive(core, 5'000);
    (void)core_save_state(core);
    core_close_files(core);
    return 0;
}
