// Keyboard and game controller: the button word vk, the host chords (grid,
// frame counter, full screen, exit, key map) and the controller itself.
#include "frontend/keymap.h"

#include "frontend/frontend.h"

uint16_t host_key_button(SDL_Keycode key) {
    switch (key) {
        case SDLK_SPACE:
        case SDLK_l: return btn::A;
        case SDLK_k:
        case SDLK_LCTRL: return btn::B;
        case SDLK_5:
        case SDLK_RCTRL: return btn::SELECT;
        case SDLK_RETURN:
        case SDLK_6: return btn::START;
        case SDLK_UP: return btn::UP;
        case SDLK_DOWN: return btn::DOWN;
        case SDLK_LEFT: return btn::LEFT;
        case SDLK_RIGHT: return btn::RIGHT;
        case SDLK_TAB:
        case SDLK_PAGEUP: return btn::L1;
        case SDLK_BACKSPACE:
        case SDLK_PAGEDOWN: return btn::R1;
        case SDLK_p:
        case SDLK_LSHIFT: return btn::X;
        case SDLK_o:
        case SDLK_LALT: return btn::Y;
        default: return 0;
    }
}

uint16_t pad_button(int button, int controller_type) {
    const bool xbox = is_xbox_type(controller_type);
    switch (button) {
        case SDL_CONTROLLER_BUTTON_A: return xbox ? btn::B : btn::A;
        case SDL_CONTROLLER_BUTTON_B: return xbox ? btn::A : btn::B;
        case SDL_CONTROLLER_BUTTON_X: return xbox ? btn::Y : btn::X;
        case SDL_CONTROLLER_BUTTON_Y: return xbox ? btn::X : btn::Y;
        case SDL_CONTROLLER_BUTTON_BACK: return btn::SELECT;
        case SDL_CONTROLLER_BUTTON_START: return btn::START;
        case SDL_CONTROLLER_BUTTON_LEFTSHOULDER: return btn::L1;
        case SDL_CONTROLLER_BUTTON_RIGHTSHOULDER: return btn::R1;
        case SDL_CONTROLLER_BUTTON_DPAD_UP: return btn::UP;
        case SDL_CONTROLLER_BUTTON_DPAD_DOWN: return btn::DOWN;
        case SDL_CONTROLLER_BUTTON_DPAD_LEFT: return btn::LEFT;
        case SDL_CONTROLLER_BUTTON_DPAD_RIGHT: return btn::RIGHT;
        default: return 0;
    }
}

uint16_t pad_release_bits(int button, int controller_type) {
    const bool xbox = is_xbox_type(controller_type);
    switch (button) {
        case SDL_CONTROLLER_BUTTON_A: return xbox ? (btn::B | btn::Y) : (btn::A | btn::Y);
        case SDL_CONTROLLER_BUTTON_B: return xbox ? (btn::A | btn::B) : btn::B;
        case SDL_CONTROLLER_BUTTON_X: return xbox ? (btn::Y | btn::X) : btn::X;
        case SDL_CONTROLLER_BUTTON_Y: return xbox ? (btn::X | btn::A) : (btn::Y | btn::A);
        default: return pad_button(button, controller_type);
    }
}

namespace {

void release(Machine& m, uint16_t bits) { m.vk.fetch_or(bits, std::memory_order_relaxed); }

// A button goes down. SELECT and START carry the host chords, looked at
// before the button's own bit is cleared.
void press(Frontend& fe, uint16_t bit, bool alt_return) {
    Machine& m = *fe.m;
    const uint16_t vk = m.vk.load(std::memory_order_relaxed);
    if (bit == btn::SELECT) {
        if ((vk & (btn::L1 | btn::R1)) == btn::R1) {  // L1 held alone: grid look
            m.use_grid ^= 1;
            force_present(fe);
        } else if ((vk & (btn::L1 | btn::R1)) == btn::L1) {  // R1 held alone: frame counter
            fe.show_fps ^= 1;
            force_present(fe);
        }
    } else if (bit == btn::START) {
        if (alt_return)
            toggleFullscreen(fe);
        else if (!(vk & btn::SELECT))
            m.force_exit_tvx.store(1, std::memory_order_relaxed);
    }
    m.vk.fetch_and(static_cast<uint16_t>(~bit), std::memory_order_relaxed);
}

void key_event(Frontend& fe, const SDL_KeyboardEvent& k) {
    Machine& m = *fe.m;
    const bool down = k.type == SDL_KEYDOWN;
    // Auto-repeat would only toggle the chords again while a key is held.
    if (down && k.repeat) return;
    const SDL_Keycode sym = k.keysym.sym;
    if (sym == SDLK_ESCAPE) {
        // Leave the program; START, L1 and R1 stay held while Escape is.
        constexpr uint16_t held = btn::START | btn::L1 | btn::R1;
        if (down) {
            m.force_exit_tvx.store(1, std::memory_order_relaxed);
            m.vk.fetch_and(static_cast<uint16_t>(~held), std::memory_order_relaxed);
        } else {
            release(m, held);
        }
        return;
    }
    if (sym == SDLK_F1) {
        if (down) {
            fe.show_keymap ^= 1;
            force_present(fe);
        }
        return;
    }
    const uint16_t bit = host_key_button(sym);
    if (!bit) return;
    if (down)
        press(fe, bit, sym == SDLK_RETURN && (k.keysym.mod & KMOD_ALT));
    else
        release(m, bit);
}

void pad_event(Frontend& fe, const SDL_ControllerButtonEvent& b) {
    if (b.type == SDL_CONTROLLERBUTTONDOWN) {
        if (const uint16_t bit = pad_button(b.button, fe.controllerType)) press(fe, bit, false);
    } else {
        release(*fe.m, pad_release_bits(b.button, fe.controllerType));
    }
}

}  // namespace

void checkKey(Frontend& fe, const SDL_Event& e) {
    switch (e.type) {
        case SDL_KEYDOWN:
        case SDL_KEYUP: key_event(fe, e.key); break;
        case SDL_CONTROLLERBUTTONDOWN:
        case SDL_CONTROLLERBUTTONUP: pad_event(fe, e.cbutton); break;
        default: break;
    }
}

void set_controler(Frontend& fe) {
    Machine& m = *fe.m;
    if (fe.gGameController) {
        SDL_GameControllerClose(fe.gGameController);
        fe.gGameController = nullptr;
    }
    fe.controllerType = 0;
    const int count = SDL_NumJoysticks();
    if (count <= 0) {
        mylog(m, "Warning: No joysticks connected!\n");
        return;
    }
    int index = -1;
    for (int i = 0; i < count; ++i) {
        if (SDL_IsGameController(i)) {
            index = i;
            break;
        }
        const char* name = SDL_JoystickNameForIndex(i);
        mylog(m, "Joystick %d %s is not game controller\n", i, name ? name : "");
    }
    if (index < 0) {
        mylog(m, "Warning: No game controller connected!\n");
        return;
    }
    fe.gGameController = SDL_GameControllerOpen(index);
    if (fe.gGameController) {
        fe.controllerType = SDL_GameControllerGetType(fe.gGameController);
        mylog(m, "gGameController %d\n", fe.controllerType);
    } else {
        mylog(m, "Warning: Unable to open game controller! SDL Error: %s\n", SDL_GetError());
    }
}
