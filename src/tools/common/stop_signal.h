// The signals that ask a host program to end: SIGINT, SIGTERM and SIGHUP.
#pragma once

#include <csignal>

// The signal that asked the program to end, or 0; only the handler sets it.
extern volatile std::sig_atomic_t g_stop_signal;

// Installs a handler for the three signals that only records the signal, for
// the program's loop to see between two slices. A signal ignored from the
// start (nohup, a background job) stays ignored. The handler stays installed:
// senders such as timeout(1) may deliver the same signal twice.
void install_stop_signals();
