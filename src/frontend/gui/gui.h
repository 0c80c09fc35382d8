// SDL-free drawing of the front-end on plain surfaces: the diagnostic
// overlays (overlay.h), the vw_ drawing library for 32-bit pixel arrays
// (vw.h) and the touch buttons drawn with it (touch.h).
#pragma once

#include "display/surface.h"
#include "frontend/gui/overlay.h"
#include "frontend/gui/touch.h"
#include "frontend/gui/vw.h"
