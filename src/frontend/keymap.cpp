// Keyboard and game controller: the core's buttons, the host chords (grid,
// frame counter, full screen, exit, key map), quick save and load, and the
// controller itself.
#include "frontend/keymap.h"

#include "frontend/frontend.h"

uint16_t host_key_button(SDL_Keycode key) {
    switch (key) {
        case SDLK_SPACE:
        case SDLK_l: return BTN_A;
        case SDLK_k:
        case SDLK_LCTRL: return BTN_B;
        case SDLK_5:
        case SDLK_RCTRL: return BTN_SELECT;
        case SDLK_RETURN:
        case SDLK_6: return BTN_START;
        case SDLK_UP: return BTN_UP;
        case SDLK_DOWN: return BTN_DOWN;
        case SDLK_LEFT: return BTN_LEFT;
        case SDLK_RIGHT: return BTN_RIGHT;
        case SDLK_TAB:
        case SDLK_PAGEUP: return BTN_L1;
        case SDLK_BACKSPACE:
        case SDLK_PAGEDOWN: return BTN_R1;
        case SDLK_p:
        case SDLK_LSHIFT: return BTN_X;
        case SDLK_o:
        case SDLK_LALT: return BTN_Y;
        default: return 0;
    }
}

uint16_t pad_button(int button, int controller_type) {
    const bool xbox = is_xbox_type(controller_type);
    switch (button) {
        case SDL_CONTROLLER_BUTTON_A: return xbox ? BTN_B : BTN_A;
        case SDL_CONTROLLER_BUTTON_B: return xbox ? BTN_A : BTN_B;
        case SDL_CONTROLLER_BUTTON_X: return xbox ? BTN_Y : BTN_X;
        case SDL_CONTROLLER_BUTTON_Y: return xbox ? BTN_X : BTN_Y;
        case SDL_CONTROLLER_BUTTON_BACK: return BTN_SELECT;
        case SDL_CONTROLLER_BUTTON_START: return BTN_START;
        case SDL_CONTROLLER_BUTTON_LEFTSHOULDER: return BTN_L1;
        case SDL_CONTROLLER_BUTTON_RIGHTSHOULDER: return BTN_R1;
        case SDL_CONTROLLER_BUTTON_DPAD_UP: return BTN_UP;
        case SDL_CONTROLLER_BUTTON_DPAD_DOWN: return BTN_DOWN;
        case SDL_CONTROLLER_BUTTON_DPAD_LEFT: return BTN_LEFT;
        case SDL_CONTROLLER_BUTTON_DPAD_RIGHT: return BTN_RIGHT;
        default: return 0;
    }
}

uint16_t pad_release_bits(int button, int controller_type) {
    const bool xbox = is_xbox_type(controller_type);
    switch (button) {
        case SDL_CONTROLLER_BUTTON_A: return xbox ? (BTN_B | BTN_Y) : (BTN_A | BTN_Y);
        case SDL_CONTROLLER_BUTTON_B: return xbox ? (BTN_A | BTN_B) : BTN_B;
        case SDL_CONTROLLER_BUTTON_X: return xbox ? (BTN_Y | BTN_X) : BTN_X;
        case SDL_CONTROLLER_BUTTON_Y: return xbox ? (BTN_X | BTN_A) : (BTN_Y | BTN_A);
        default: return pad_button(button, controller_type);
    }
}

namespace {

void release(Frontend& fe, uint16_t bits) {
    fe.held &= static_cast<uint16_t>(~bits);
    core_release(fe.core, bits);
}

// A button goes down. SELECT and START carry the host chords, looked at
// before the button itself is pressed; the guest sees the button either way.
void press(Frontend& fe, uint16_t bit, bool alt_return) {
    const uint16_t shoulders = fe.held & (BTN_L1 | BTN_R1);
    if (bit == BTN_SELECT) {
        if (shoulders == BTN_L1) {  // L1 held alone: grid look
            core_set_grid(fe.core, !core_grid(fe.core));
            if (fe.shown) {
                // The frame on the window, drawn again with the other look.
                auto f = std::make_shared<Frame>(*fe.shown);
                f->grid = core_grid(fe.core);
                present(fe, std::move(f));
            }
        } else if (shoulders == BTN_R1) {  // R1 held alone: frame counter
            fe.show_fps ^= 1;
            present_again(fe);
        }
    } else if (bit == BTN_START) {
        if (alt_return)
            toggleFullscreen(fe);
        else if (fe.held & BTN_SELECT)
            fe.exit_requested = true;
    }
    fe.held |= bit;
    core_press(fe.core, bit);
    // SELECT and START held together close the window, whichever came first.
    if ((fe.held & (BTN_SELECT | BTN_START)) == (BTN_SELECT | BTN_START)) fe.exit_requested = true;
}

void key_event(Frontend& fe, const SDL_KeyboardEvent& k) {
    const bool down = k.type == SDL_KEYDOWN;
    // Auto-repeat would only toggle the chords again while a key is held.
    if (down && k.repeat) return;
    const SDL_Keycode sym = k.keysym.sym;
    if (sym == SDLK_ESCAPE) {
        // Leave the program; START, L1 and R1 stay held while Escape is.
        constexpr uint16_t held = BTN_START | BTN_L1 | BTN_R1;
        if (down) {
            fe.exit_requested = true;
            fe.held |= held;
            core_press(fe.core, held);
        } else {
            release(fe, held);
        }
        return;
    }
    if (sym == SDLK_F1) {
        if (down) {
            fe.show_keymap ^= 1;
            present_again(fe);
        }
        return;
    }
    if (sym == SDLK_F5 || sym == SDLK_F9) {
        if (down) sym == SDLK_F5 ? quick_save(fe) : quick_load(fe);
        return;
    }
    const uint16_t bit = host_key_button(sym);
    if (!bit) return;
    if (down)
        press(fe, bit, sym == SDLK_RETURN && (k.keysym.mod & KMOD_ALT));
    else
        release(fe, bit);
}

void pad_event(Frontend& fe, const SDL_ControllerButtonEvent& b) {
    if (b.type == SDL_CONTROLLERBUTTONDOWN) {
        if (const uint16_t bit = pad_button(b.button, fe.controllerType)) press(fe, bit, false);
    } else {
        release(fe, pad_release_bits(b.button, fe.controllerType));
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
    if (fe.gGameController) {
        SDL_GameControllerClose(fe.gGameController);
        fe.gGameController = nullptr;
    }
    fe.controllerType = 0;
    const int count = SDL_NumJoysticks();
    if (count <= 0) {
        fe_log(fe, "Warning: No joysticks connected!\n");
        return;
    }
    int index = -1;
    for (int i = 0; i < count; ++i) {
        if (SDL_IsGameController(i)) {
            index = i;
            break;
        }
        const char* name = SDL_JoystickNameForIndex(i);
        fe_log(fe, "Joystick %d %s is not game controller\n", i, name ? name : "");
    }
    if (index < 0) {
        fe_log(fe, "Warning: No game controller connected!\n");
        return;
    }
    fe.gGameController = SDL_GameControllerOpen(index);
    if (fe.gGameController) {
        fe.controllerType = SDL_GameControllerGetType(fe.gGameController);
        fe_log(fe, "gGameController %d\n", fe.controllerType);
    } else {
        fe_log(fe, "Warning: Unable to open game controller! SDL Error: %s\n", SDL_GetError());
    }
}
