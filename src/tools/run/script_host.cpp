#include "tools/run/script_host.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <ctime>
#include <thread>

namespace {

constexpr const char* kButtons[13] = {"", "UP", "DOWN", "LEFT", "RIGHT", "A", "B", "SELECT", "START", "L1", "R1", "X", "Y"};
constexpr uint64_t kTickNs = 1000000000ULL / 256;  // one 1/256-second tick

uint64_t monotonic_ns() {
    using namespace std::chrono;
    return static_cast<uint64_t>(duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count());
}

}  // namespace

bool parse_key_script(const std::string& text, std::vector<KeyEvent>* events, std::string* error) {
    std::string clean;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '#') {
            while (i < text.size() && text[i] != '\n') ++i;
            clean += ' ';
        } else {
            clean += text[i] == ',' ? ' ' : text[i];
        }
    }
    size_t i = 0;
    while (i < clean.size()) {
        if (std::isspace(static_cast<unsigned char>(clean[i]))) {
            ++i;
            continue;
        }
        size_t end = i;
        while (end < clean.size() && !std::isspace(static_cast<unsigned char>(clean[end]))) ++end;
        const std::string item = clean.substr(i, end - i);
        i = end;
        const size_t colon = item.find(':');
        std::string name = colon == std::string::npos ? "" : item.substr(colon + 1);
        char sign = 0;
        if (!name.empty() && (name.back() == '+' || name.back() == '-')) {
            sign = name.back();
            name.pop_back();
        }
        int button = 0;
        for (int b = 1; b <= 12; ++b)
            if (name == kButtons[b]) button = b;
        char* stop = nullptr;
        const unsigned long long at = colon == std::string::npos ? 0 : std::strtoull(item.c_str(), &stop, 10);
        if (colon == std::string::npos || colon == 0 || stop != item.c_str() + colon || button == 0) {
            *error = "bad key event \"" + item + "\" (want TIME:BUTTON, TIME:BUTTON+ or TIME:BUTTON-)";
            return false;
        }
        if (sign != '-') events->push_back({at, button, true});
        if (sign != '+') events->push_back({sign == '-' ? at : at + 100, button, false});
    }
    std::stable_sort(events->begin(), events->end(),
                     [](const KeyEvent& a, const KeyEvent& b) { return a.at_ms < b.at_ms; });
    return true;
}

void ScriptHost::log(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), log_to);
    std::fflush(log_to);
}

uint64_t ScriptHost::now_ns() {
    if (virtual_clock) return virtual_ns_;
    if (real_start_ns_ == 0) real_start_ns_ = monotonic_ns();
    return monotonic_ns() - real_start_ns_;
}

void ScriptHost::pump() {
    if (!machine) return;
    const uint64_t now_ms = now_ns() / 1000000;
    bool changed = false;
    while (next_event < events.size() && events[next_event].at_ms <= now_ms) {
        const KeyEvent& e = events[next_event++];
        if (e.down)
            vk_ = static_cast<uint16_t>(vk_ & ~kb[e.button]);
        else
            vk_ = static_cast<uint16_t>(vk_ | kb[e.button]);
        changed = true;
        // One front-end pass per event, so that quick taps are all seen.
        machine->vk.store(vk_, std::memory_order_relaxed);
        SetGamePad(*machine, vk_);
    }
    if (!changed) SetGamePad(*machine, machine->vk.load(std::memory_order_relaxed));
}

int ScriptHost::GetMillisecond_os() {
    if (!virtual_clock) return Host::GetMillisecond_os();
    // Reading the counter is how a guest waits: each read is one tick later.
    virtual_ns_ += kTickNs;
    pump();
    return static_cast<int>((virtual_ns_ / kTickNs) & 0xFF);
}

uint32_t ScriptHost::GetTickCount_os() {
    return static_cast<uint32_t>(static_cast<double>(now_ns() / 1000000) * 0.256);
}

void ScriptHost::Sleep_os(uint32_t ms) {
    if (virtual_clock)
        virtual_ns_ += static_cast<uint64_t>(ms) * 1000000;
    else
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    pump();
}

uint64_t ScriptHost::GetNanoSeconds_os() {
    if (!virtual_clock) return Host::GetNanoSeconds_os();
    return virtual_ns_ / 100;
}

LocalTime ScriptHost::GetLocalTime_os() {
    if (!virtual_clock) return Host::GetLocalTime_os();
    tm t{};
    to_tm(kVirtualEpoch, &t);
    const time_t base = timegm(&t);
    const time_t now = base + static_cast<time_t>(virtual_ns_ / 1000000000ULL) + calendar_offset_s_;
    tm out{};
    gmtime_r(&now, &out);
    return {out.tm_year + 1900, out.tm_mon + 1, out.tm_mday, out.tm_hour, out.tm_min, out.tm_sec, out.tm_wday};
}

void ScriptHost::SetLocalTime_os(const LocalTime& lt) {
    // The virtual calendar moves; the host clock is never touched by a run.
    if (!virtual_clock) return;
    tm t{}, n{};
    to_tm(lt, &t);
    to_tm(GetLocalTime_os(), &n);
    calendar_offset_s_ += static_cast<int64_t>(timegm(&t) - timegm(&n));
}

bool ScriptHost::keep_waiting(Machine&) {
    if (next_event < events.size()) return true;
    starved = true;
    return false;
}
