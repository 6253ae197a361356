#pragma once
/// @file
/// The seam to transforms between colour profiles.

#include "orvik/gfx_basictypes.h"
#include "orvik/gfx_image_colorprofile.h"

namespace orvik {

/// A ready transform between two pixel formats with their profiles.
class ColorProfileConvertInterface : public virtual Object {
    ORVIK_INTERFACE(ColorProfileConvertInterface, "net.orvik.image.interface.colorprofileconvert");

public:
    /// @return true when a conversion was set up, false when the profiles are equal and there is nothing to convert
    virtual Result<Bool> Init(const PixelFormat& srcFormat, const ColorProfile& srcProfile,
                              const PixelFormat& dstFormat, const ColorProfile& dstProfile,
                              COLORCONVERSIONINTENT intent, COLORCONVERSIONFLAGS flags) {
        (void)srcFormat, (void)srcProfile, (void)dstFormat, (void)dstProfile, (void)intent, (void)flags;
        return Unbound();
    }
    /// Runs the transform on two runs of `count` pixels. May be called from several threads at once.
    virtual Result<void> Convert(const PixelLine& dst, const PixelLineConst& src, Int count) const {
        (void)dst, (void)src, (void)count;
        return Unbound();
    }
};
using ColorProfileConvert = Ref<ColorProfileConvertInterface>;

/// The published class of such transforms.
inline constexpr Id kColorProfileConvertClass{"net.orvik.image.class.colorprofileconvert"};

}  // namespace orvik
