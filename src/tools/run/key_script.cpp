#include "tools/run/key_script.h"

#include <algorithm>
#include <cctype>

#include "tools/common/numbers.h"

namespace {

constexpr const char* kButtons[13] = {"", "UP", "DOWN", "LEFT", "RIGHT", "A", "B", "SELECT", "START", "L1", "R1", "X", "Y"};
constexpr uint16_t kButtonBits[13] = {0,      BTN_UP, BTN_DOWN,  BTN_LEFT, BTN_RIGHT, BTN_A, BTN_B,
                                      BTN_SELECT, BTN_START, BTN_L1, BTN_R1, BTN_X, BTN_Y};

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
        uint64_t at = 0;
        if (colon == std::string::npos || !parse_decimal(std::string_view(item).substr(0, colon), kMaxKeyTimeMs, &at) ||
            button == 0) {
            *error = "bad key event \"" + item + "\" (want TIME:BUTTON, TIME:BUTTON+ or TIME:BUTTON-, TIME in ms " +
                     "at most " + std::to_string(kMaxKeyTimeMs) + ")";
            return false;
        }
        if (sign != '-') events->push_back({at, button, true});
        if (sign != '+') events->push_back({sign == '-' ? at : at + 100, button, false});
    }
    std::stable_sort(events->begin(), events->end(),
                     [](const KeyEvent& a, const KeyEvent& b) { return a.at_ms < b.at_ms; });
    return true;
}

void KeyScript::apply_due(Core& core, uint64_t now_ns) {
    while (next < events.size() && events[next].at_ms * 1000000 <= now_ns) {
        const KeyEvent& e = events[next++];
        const uint16_t bit = kButtonBits[e.button];
        if (e.down)
            core_press(core, bit);
        else
            core_release(core, bit);
    }
}

void KeyScript::skip_until(uint64_t now_ns) {
    while (next < events.size() && events[next].at_ms * 1000000 <= now_ns) ++next;
}

uint64_t KeyScript::next_ns() const { return ended() ? UINT64_MAX : events[next].at_ms * 1000000; }
