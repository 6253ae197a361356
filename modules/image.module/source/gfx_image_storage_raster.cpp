#include "gfx_image_storage_raster.h"

#include "decode_limits.h"

namespace orvik {

Result<Ref<PixelRaster>> PixelRaster::Create(Int width, Int height, const PixelFormat& format) {
    if (!format || width < 0 || height < 0)
        return IllegalArgumentError();
    Ref<PixelRaster> raster = TRY(NewObj<PixelRaster>());
    raster->_width = width;
    raster->_height = height;
    raster->_format = format;
    raster->_channelCount = format->GetChannelCount();
    TRY(raster->_channelOffsets.CopyFrom(format->GetChannelOffsets()));
    raster->_bitsPerPixel = format->GetBitsPerPixel();
    Int lineBits = 0;
    if (raster->_bitsPerPixel.GetBits() < 0 ||
        __builtin_mul_overflow(raster->_bitsPerPixel.GetBits(), width, &lineBits) ||
        lineBits > std::numeric_limits<Int>::max() - 7)
        return OutOfMemoryError();
    raster->_bytesPerLine = BITS(lineBits).GetBytes();
    return raster;
}

Result<void> PixelRaster::AllocatePixels() {
    Int bytes = 0;
    if (__builtin_mul_overflow(_bytesPerLine, _height, &bytes))
        return OutOfMemoryError();
    TRY(CheckDecodeBuffer(bytes));
    return _data.Resize(bytes);
}

namespace {

/// Finds the conversion into `to`. An absent source profile travels as a null pointer; the destination's is a copy,
/// because the search may replace it.
Result<ConvertPixelFunc> FindConversion(const PixelFormat& to, ChannelOffsets toOffsets, ColorProfile toProfile,
                                        const PixelFormat& from, ChannelOffsets fromOffsets,
                                        const ColorProfile& fromProfile, CONVERTPIXELFLAGS flags) {
    bool convertsProfiles = false;
    ConvertPixelFunc convert =
        TRY(to->GetConvertPixelFunc(from, fromOffsets, toOffsets, fromProfile.HasProfile() ? &fromProfile : nullptr,
                                    &toProfile, flags, convertsProfiles));
    if (!convert)
        return UnexpectedError("No pixel conversion found from '@' to '@'", from, to);
    return convert;
}

}  // namespace

Result<ConvertPixelFunc> ImagePixelStorageRasterBase::MakeReadConversion(const PixelFormat& format,
                                                                         ChannelOffsets offsets,
                                                                         const ColorProfile& storedProfile,
                                                                         const ColorProfile& profile,
                                                                         CONVERTPIXELFLAGS flags) const {
    if (!_raster)
        return IllegalStateError();
    return FindConversion(format, offsets.empty() ? format->GetChannelOffsets() : offsets, profile,
                          _raster->GetFormat(), _raster->GetChannelOffsets(), storedProfile, flags);
}

Result<ConvertPixelFunc> ImagePixelStorageRasterBase::MakeWriteConversion(const PixelFormat& format,
                                                                          ChannelOffsets offsets,
                                                                          const ColorProfile& storedProfile,
                                                                          const ColorProfile& profile,
                                                                          CONVERTPIXELFLAGS flags) const {
    if (!_raster)
        return IllegalStateError();
    return FindConversion(_raster->GetFormat(), _raster->GetChannelOffsets(), storedProfile, format,
                          offsets.empty() ? format->GetChannelOffsets() : offsets, profile, flags);
}

}  // namespace orvik
