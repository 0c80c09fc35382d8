// Fuzz target: the input is a .tvx image, run through the core API in a
// fresh guest root on the virtual clock with buttons tapped when it waits
// for one. The path guard aborts on any file touched outside the root. For
// one input in four (by size: saving costs more than most runs) the machine
// saved at the end must load again into a new core and save the same bytes;
// for another one in four the program runs again on the reference engine,
// in a fresh root, and must leave the machine exactly as the fast engine
// did.
#include "core/state.h"
#include "fuzz.h"

namespace {

constexpr uint64_t kMaxSteps = 30'000;

// Runs the input in a fresh root on the chosen engine; false if it does not
// load.
bool run(Core& core, ScratchRoot& root, const uint8_t* data, size_t size, bool reference, bool* late) {
    root.reset();
    root.put("PROGRAM/main.tvx", data, size);
    root.put("DATA/note.txt", "0123456789\n", 11);
    quiet(core);
    core.reference_engine = reference;
    LoadOptions opts;
    opts.program = root.path + "/PROGRAM/main.tvx";
    opts.root = root.path;
    opts.args = "one two";
    if (!core_load(core, opts).empty()) return false;
    drive(core, kMaxSteps, late);
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScratchRoot root;
    PathGuard guard(root.path);
    Core core;
    bool late = false;
    if (!run(core, root, data, size, false, &late)) return 0;
    if (size % 4 == 1) {
        const std::vector<uint8_t> fast = core_save_state(core);
        core_close_files(core);
        Core ref;
        bool ref_late = false;
        run(ref, root, data, size, true, &ref_late);
        if (!late && !ref_late && core_save_state(ref) != fast) fail("the engines leave different machines", "");
        core_close_files(ref);
        return 0;
    }
    if (size % 4 != 0) {
        core_close_files(core);
        return 0;
    }

    const std::vector<uint8_t> state = core_save_state(core);
    Core again;
    quiet(again);
    // A file the program removed while it was open cannot be opened again.
    const std::string err = core_load_state_at(again, state, root.path);
    if (!err.empty() && err.rfind("an open file", 0) != 0) fail("a state just saved does not load: ", err);
    if (err.empty() && core_save_state(again) != state) fail("a state loaded and saved again differs");
    core_close_files(core);
    core_close_files(again);
    return 0;
}
