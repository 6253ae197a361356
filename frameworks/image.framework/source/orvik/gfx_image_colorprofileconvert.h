#pragma once
/// @file
/// Transforms between colour profiles.

#include "orvik/gfx_basictypes.h"
#include "orvik/gfx_image_pixelformat.h"

namespace orvik {

/// A ready transform between two pixel formats with their profiles.
class ColorProfileConvertInterface : public virtual Object {
    ORVIK_INTERFACE(ColorProfileConvertInterface, "net.orvik.image.interface.colorprofileconvert");

public:
    /// For pixels with the formats' own channel offsets.
    /// @return true when a conversion was set up, false when the profiles are equal and there is nothing to convert
    /// Errors: "no profile found" for an empty argument, "No compatible color profile conversion pixel format found
    /// for: @.", "Unsupported color conversion pixel format @.", "Illegal COLORCONVERSIONINTENT",
    /// "cmsCreateTransform failed" with what the colour library says as cause.
    virtual Result<Bool> Init(const PixelFormat& srcFormat, const ColorProfile& srcProfile,
                              const PixelFormat& dstFormat, const ColorProfile& dstProfile,
                              COLORCONVERSIONINTENT intent, COLORCONVERSIONFLAGS flags) {
        (void)srcFormat, (void)srcProfile, (void)dstFormat, (void)dstProfile, (void)intent, (void)flags;
        return Unbound();
    }
    /// Runs the transform on two runs of `count` pixels; 0 and below do nothing and succeed. May be called from several
    /// threads at once. Both runs may be the same line if their pixels are of one size. Alpha goes beside the
    /// transform by the arithmetic of pixel conversion; without alpha in the source the destination becomes opaque.
    virtual Result<void> Convert(const PixelLine& dst, const PixelLineConst& src, Int count) const {
        (void)dst, (void)src, (void)count;
        return Unbound();
    }
    /// Of the two profiles and formats.
    virtual uint64_t GetHashCode() const { return Unbound(); }
    /// The format that the colour library takes and that loses least of `format`: of the same space (rgb for yuv), with
    /// alpha in front if `format` has alpha, with components of its width.
    virtual Result<PixelFormat> GetNearestNativeFormat(const PixelFormat& format) const;
    /// As `Init`, for pixels whose channels lie elsewhere, for instance in planes.
    /// @param srcOffsets, dstOffsets  one entry a channel and the bits per pixel
    virtual Result<Bool> InitWithOffsets(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                         const ColorProfile& srcProfile, const PixelFormat& dstFormat,
                                         ChannelOffsets dstOffsets, const ColorProfile& dstProfile,
                                         COLORCONVERSIONINTENT intent, COLORCONVERSIONFLAGS flags) {
        (void)srcFormat, (void)srcOffsets, (void)srcProfile, (void)dstFormat, (void)dstOffsets, (void)dstProfile;
        (void)intent, (void)flags;
        return Unbound();
    }
};
inline Result<PixelFormat> ColorProfileConvertInterface::GetNearestNativeFormat(const PixelFormat& format) const {
    (void)format;
    return Unbound();
}
using ColorProfileConvert = Ref<ColorProfileConvertInterface>;

/// The published class of such transforms.
inline constexpr Id kColorProfileConvertClass{"net.orvik.image.class.colorprofileconvert"};

}  // namespace orvik
