// SDL-free drawing of the front-end on plain surfaces: the diagnostic
// overlays (overlay.h).
#pragma once

#include "display/surface.h"
#include "frontend/gui/overlay.h"
