// SDL-free drawing of the front-end on 16-bit surfaces.
#pragma once

#include "display/surface.h"
