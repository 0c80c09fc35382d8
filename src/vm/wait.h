// A guest call that waits does not block: it records what it waits for here
// and stops the interpreter loop; the host's next run resumes it.
#pragma once

#include <cstdint>
#include <string>

enum class WaitKind : uint8_t {
    None,
    Key,     // a key press (c_getchar, c_getword): the call runs again once one is pending
    KeysUp,  // every key released (before a program ends or starts another)
    Time,    // a delay: the guest clock reaches until_ns
};

// What a KeysUp wait finishes once the keys are up.
enum class AfterKeysUp : uint8_t { Exit, Exec };

struct WaitState {
    WaitKind kind = WaitKind::None;
    AfterKeysUp then = AfterKeysUp::Exit;
    uint32_t exit_code = 0;  // Exit: the code the program ends with
    uint64_t until_ns = 0;   // Time: guest clock time the delay ends at
    std::string child;       // Exec: host path (GB2312) of the program being started
};

// Why the interpreter loop stopped before its step budget. Busy: the calls
// of this stretch have done a lot of bulk work (add_work), so the host gets
// control back; any other reason replaces it.
enum class Stop : uint8_t { None, Wait, Frame, Ended, Horizon, Busy };
