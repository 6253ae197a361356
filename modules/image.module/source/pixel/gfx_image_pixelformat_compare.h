#pragma once
/// @file
/// Comparison of single components with a tolerance, and their text.

#include "orvik/gfx_image_channels.h"

namespace orvik::pixel {

/// Compares one component at each address, which need not be aligned.
/// @param tolerance  in 8-bit steps, negative counts as 0. Integers of 16 bits compare with tolerance << 8, those of 32
///                   bits with tolerance << 24, floats with tolerance / 255. Equal values are always identical; NaN is
///                   identical to itself only bit by bit. False for `ComponentType::None`.
bool IsIdenticalValue(ComponentType type, const void* a, const void* b, Int tolerance);

/// The value at an address as a number for a text.
FormatArgument MakeValueArgument(ComponentType type, const void* value);

}  // namespace orvik::pixel
