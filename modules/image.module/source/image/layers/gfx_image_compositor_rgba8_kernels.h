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

/// Lays runs over each other, the first at the bottom, as far as whole vectors reach. Does the same for each pixel as
/// reading bytes as floats, blending floats, and writing them as bytes.
/// @param dst       may lie anywhere but on the runs
/// @param straight  the first run is taken as it is; else it is blended over nothing like the others
/// @return          pixels done; the caller does the few that are left
using Rgba8Kernel = size_t (*)(uint8_t* dst, const Rgba8Front* fronts, size_t frontCount, size_t count, bool straight);

/// The loop for the vectors of the level in use; null at the plain one.
Rgba8Kernel GetRgba8Kernel();

}  // namespace orvik::pixel
