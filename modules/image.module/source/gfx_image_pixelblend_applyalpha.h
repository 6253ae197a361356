#pragma once
/// @file
/// The mode that lays a mask over the alpha of pixels.

#include "orvik/gfx_image_pixelblend.h"

namespace orvik {

Result<ImagePixelBlend> CreateApplyAlpha();

}  // namespace orvik
