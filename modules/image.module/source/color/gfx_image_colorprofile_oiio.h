#pragma once
/// @file
/// Colour profiles baked out of a colour processor.

#include "color/gfx_image_colorprofile_library.h"

#include "orvik/gfx_image_oiioprocessor.h"

namespace orvik {

/// Samples both directions of a processor into an ICC 4.2 profile of class "mntr" from RGB to Lab, with tables of 32
/// points an axis.
/// @return the bytes; the same processor gives the same ones
/// Errors: those of the processor, unchanged; "Building a color profile failed." with the library's error as cause.
Result<BaseArray<std::byte>> BakeOiioProfile(ColorLibrary& library, const OiioProcessor& processor);

}  // namespace orvik
