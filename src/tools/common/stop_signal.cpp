#include "tools/common/stop_signal.h"

#include <initializer_list>

volatile std::sig_atomic_t g_stop_signal = 0;

namespace {

extern "C" void on_stop_signal(int sig) { g_stop_signal = sig; }

}  // namespace

void install_stop_signals() {
    struct sigaction sa {};
    sa.sa_handler = on_stop_signal;
    sa.sa_flags = 0;
    sigemptyset(&sa.sa_mask);
    for (const int sig : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old {};
        if (sigaction(sig, nullptr, &old) == 0 && old.sa_handler != SIG_IGN) sigaction(sig, &sa, nullptr);
    }
}
