#pragma once
/// @file
/// Transforms between colour profiles, by the colour library or, between linear RGB and sRGB, by the formula.

#include <optional>

#include "color/gfx_image_colorprofile_closedform.h"
#include "color/gfx_image_colorprofile_library.h"

#include "orvik/gfx_image_colorprofileconvert.h"
#include "orvik/gfx_image_pixelformat.h"

namespace orvik {

class ColorProfileConvertImpl final : public virtual ColorProfileConvertInterface {
public:
    Result<Bool> Init(const PixelFormat& srcFormat, const ColorProfile& srcProfile, const PixelFormat& dstFormat,
                      const ColorProfile& dstProfile, COLORCONVERSIONINTENT intent,
                      COLORCONVERSIONFLAGS flags) override;
    Result<void> Convert(const PixelLine& dst, const PixelLineConst& src, Int count) const override;
    uint64_t GetHashCode() const override { return _hash; }
    Result<PixelFormat> GetNearestNativeFormat(const PixelFormat& format) const override {
        return FindNearestNativeFormat(format);
    }
    Result<Bool> InitWithOffsets(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                 const ColorProfile& srcProfile, const PixelFormat& dstFormat,
                                 ChannelOffsets dstOffsets, const ColorProfile& dstProfile,
                                 COLORCONVERSIONINTENT intent, COLORCONVERSIONFLAGS flags) override;

    /// "No compatible color profile conversion pixel format found for: @."
    static Result<PixelFormat> FindNearestNativeFormat(const PixelFormat& format);

private:
    /// One side of the transform.
    struct Side {
        PixelFormat native;        ///< what the library reads or writes
        Int nativeBytes = 0;       ///< of one native pixel
        Int componentBytes = 0;    ///< of the native format
        cmsUInt32Number word = 0;  ///< the native format as the library calls it
        ConvertPixelFunc bridge;   ///< between the real and the native pixels
        bool isDirect = false;     ///< the real pixels are native ones
        bool hasAlpha = false;     ///< of the pixels, or of the colours that indices stand for
        bool alphaIsReal = false;  ///< alpha is read or written in the real pixels, else in the native ones
        PixelFormat alphaFormat;   ///< of the real or the native alpha
        Int alphaOffset = 0;       ///< in bytes, in the real or the native pixel

        Result<void> Init(const PixelFormat& format, ChannelOffsets offsets);
        Result<void> InitAlpha(const PixelFormat& format, ChannelOffsets offsets);
        /// The library counts inks in floats in percent.
        bool HasPercents() const { return T_FLOAT(word) && T_COLORSPACE(word) == PT_CMYK; }
        /// The library can work on this line as it lies.
        bool CanWorkOn(const PixelLineConst& line) const;
    };

    Result<void> InitAlphaConversion();
    Result<void> ConvertByFormula(const PixelLine& dst, const PixelLineConst& src, Int count) const;
    Result<void> ConvertWhole(const PixelLine& dst, const PixelLineConst& src, Int count) const;
    Result<void> ConvertBlock(const PixelLine& dst, const PixelLineConst& src, Int count) const;
    PixelLineConst GetSourceAlpha(const PixelLineConst& pixels) const;

    Ref<ColorLibrary> _library;  ///< before the transform, which must go first
    Ref<ColorTransform> _transform;
    std::optional<TransferCurve> _curve;           ///< set instead of a transform
    Int _srcOffsets[3] = {}, _dstOffsets[3] = {};  ///< of the components in bytes, for the curve
    Side _src, _dst;
    ConvertPixelFunc _alpha, _alphaCopy;  ///< into the destination's alpha format, and within it
    uint64_t _hash = 0;
};

}  // namespace orvik
