#pragma once
/// @file
/// Loops that lay RGBA bytes over each other.

#include "orvik/gfx_basictypes.h"

namespace orvik::pixel {

/// A run of a layer.
struct Rgba8Front {
    const uint8_t* pixels;
    float opacity;
};

/// Lays runs over each other, the first at the bottom.
/// @param dst       written once all layers of a pixel are read; may lie anywhere but on them
/// @param straight  the first run is taken as it is; else it is blended over nothing like the others
/// Does the same for each pixel as reading bytes as floats, blending floats, and writing them as bytes.
void ComposeRgba8(uint8_t* dst, const Rgba8Front* fronts, size_t frontCount, size_t count, bool straight);

}  // namespace orvik::pixel
