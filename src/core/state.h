// Save states beyond what core.h offers every host.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "core/core.h"

// As core_load_state, with the guest root moved to root (a host directory,
// UTF-8): every root the state names at or under its outermost root is
// moved with it, and the open files are looked for there. An empty root
// keeps the state's own.
std::string core_load_state_at(Core& core, std::span<const uint8_t> state, const std::string& root);

