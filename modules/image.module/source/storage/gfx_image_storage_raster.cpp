#include "storage/gfx_image_storage_raster.h"

#include <algorithm>

#include "storage/decode_limits.h"

namespace orvik {

Result<void> PixelRaster::SetPixelDistance(BITS distance) {
    Int lineBits = 0;
    if (distance.GetBits() < 0 || __builtin_mul_overflow(distance.GetBits(), _width, &lineBits) ||
        lineBits > std::numeric_limits<Int>::max() - 7)
        return OutOfMemoryError();
    _pixelDistance = distance;
    _bytesPerLine = BITS(lineBits).GetBytes();
    return {};
}

Result<Ref<PixelRaster>> PixelRaster::Create(Int width, Int height, const PixelFormat& format) {
    if (!format || width < 0 || height < 0)
        return IllegalArgumentError();
    Ref<PixelRaster> raster = TRY(NewObj<PixelRaster>());
    raster->_width = width;
    raster->_height = height;
    raster->_format = format;
    raster->_channelCount = format->GetChannelCount();
    TRY(raster->_channelOffsets.CopyFrom(format->GetChannelOffsets()));
    TRY(raster->SetPixelDistance(format->GetBitsPerPixel()));
    return raster;
}

Result<Ref<PixelRaster>> PixelRaster::CreatePlanes(Int width, Int height, const PixelFormat& format) {
    Ref<PixelRaster> raster = TRY(Create(width, height, format));
    BaseArray<BITS>& offsets = raster->_channelOffsets;
    const Int count = std::min(raster->_channelCount, offsets.GetCount() - 1);
    if (count <= 0)
        return IllegalArgumentError();
    // Packed formats have tables that do not ascend: they too have no width that all channels share.
    const BITS channel = offsets[1];
    for (Int c = 0; c < count; ++c) {
        if (offsets[c + 1] - (c > 0 ? offsets[c] : BITS()) != channel || channel < BITS())
            return IllegalArgumentError("ImagePixelStoragePlanes doesn't work with pixel format: @.", format);
    }
    TRY(raster->SetPixelDistance(channel));
    raster->_planeCount = count;
    if (raster->_bytesPerLine == 0 || height == 0)
        return IllegalArgumentError();

    Int planeBits = 0, totalBits = 0;
    if (__builtin_mul_overflow(raster->_bytesPerLine, height, &planeBits) ||
        __builtin_mul_overflow(planeBits, Int(8), &planeBits) || __builtin_mul_overflow(planeBits, count, &totalBits))
        return OutOfMemoryError();
    if (count > 1) {  // a single plane is what the format itself says, and formats know their own table best
        for (Int c = 0; c <= count; ++c)
            offsets[c] = BITS(planeBits * c);
    }
    return raster;
}

Result<Int> PixelRaster::CountBytes() const {
    Int bytes = 0;
    if (__builtin_mul_overflow(_bytesPerLine, _height, &bytes) || __builtin_mul_overflow(bytes, _planeCount, &bytes))
        return OutOfMemoryError();
    return bytes;
}

Result<void> PixelRaster::AllocatePixels() {
    const Int bytes = TRY(CountBytes());
    TRY(CheckDecodeBuffer(bytes));
    return _data.Resize(bytes);
}

Result<void> PixelRaster::AdoptPixels(BaseArray<std::byte> pixels) {
    if (pixels.GetCount() != TRY(CountBytes()))
        return IllegalArgumentError();
    _data = std::move(pixels);
    return {};
}

namespace {

/// Finds the conversion into `to`. An absent source profile travels as a null pointer; the destination's is a copy,
/// because the search may replace it.
/// @param convertsProfiles  set to whether colours change
Result<ConvertPixelFunc> FindConversion(const PixelFormat& to, ChannelOffsets toOffsets, ColorProfile toProfile,
                                        const PixelFormat& from, ChannelOffsets fromOffsets,
                                        const ColorProfile& fromProfile, CONVERTPIXELFLAGS flags,
                                        bool& convertsProfiles) {
    ConvertPixelFunc convert =
        TRY(to->GetConvertPixelFunc(from, fromOffsets, toOffsets, fromProfile.HasProfile() ? &fromProfile : nullptr,
                                    &toProfile, flags, convertsProfiles));
    if (!convert)
        return UnexpectedError("No pixel conversion found from '@' to '@'", from, to);
    return convert;
}

struct LineReader {
    Ref<PixelRaster> raster;
    ConvertPixelFunc convert;
    CONVERTPIXELFLAGS flags;

    Result<void> operator()(const PixelSpan& span, const PixelLine& dst, GETPIXELFLAGS) const {
        TRY(raster->CheckSpan(span));
        return convert(dst, span.count, raster->GetLine(span.x, span.y), flags);
    }
};

struct LineWriter {
    Ref<PixelRaster> raster;
    ConvertPixelFunc convert;
    CONVERTPIXELFLAGS flags;

    Result<void> operator()(const PixelSpan& span, const PixelLineConst& src, SETPIXELFLAGS) const {
        TRY(raster->CheckSpan(span));
        return convert(raster->GetLine(span.x, span.y), span.count, src, flags);
    }
};

/// True when reading or writing is copying whole bytes, pixel behind pixel, unless profiles are converted.
bool IsStoredAsGiven(const PixelRaster& raster, const PixelFormat& format, ChannelOffsets offsets) {
    constexpr Int kByte = 8;
    const ChannelOffsets given = offsets.empty() ? format->GetChannelOffsets() : offsets;
    return format == raster.GetFormat() && std::ranges::equal(given, raster.GetChannelOffsets()) &&
           raster.GetPixelDistance().GetBits() % kByte == 0;
}

struct LineLocator {
    Ref<PixelRaster> raster;

    std::byte* operator()(const PixelSpan& span) const {
        return raster->CheckSpan(span) ? static_cast<std::byte*>(raster->GetLine(span.x, span.y).data) : nullptr;
    }
};

struct LineFinder {
    Ref<PixelRaster> raster;

    Result<const std::byte*> operator()(const PixelSpan& span) const {
        TRY(raster->CheckSpan(span));
        return static_cast<const std::byte*>(raster->GetLine(span.x, span.y).data);
    }
};

}  // namespace

Result<void> ImagePixelStorageRasterBase::InitRaster(Int width, Int height, const PixelFormat& format,
                                                     Result<Ref<PixelRaster>> (*describe)(Int, Int, const PixelFormat&),
                                                     bool allocate) {
    if (width < 0 || height < 0)
        return IllegalArgumentError();
    _width = width;
    _height = height;
    if (!format)
        return IllegalArgumentError();
    _raster = nullptr;
    Result<Ref<PixelRaster>> made = describe(width, height, format);
    Result<void> allocated;
    if (!made)
        allocated = made.GetError();
    else if (allocate)
        allocated = made.GetValue()->AllocatePixels();
    if (!allocated) {
        _width = _height = 0;
        return allocated;
    }
    _raster = std::move(made).TakeValue();
    return {};
}

Result<GetPixelHandlerStruct> ImagePixelStorageRasterBase::GetPixelHandler(const PixelFormat& format,
                                                                           ChannelOffsets offsets,
                                                                           const ColorProfile& storedProfile,
                                                                           const ColorProfile& profile,
                                                                           GETPIXELHANDLERFLAGS flags) {
    const CONVERTPIXELFLAGS convertFlags = ToConvertFlags(flags);
    bool convertsProfiles = false;
    ConvertPixelFunc convert =
        TRY(MakeReadConversion(format, offsets, storedProfile, profile, convertFlags, &convertsProfiles));
    GetPixelHandlerStruct handler;
    if (!convertsProfiles && IsStoredAsGiven(*_raster, format, offsets))
        handler.find = TRY(FindLineFunc::Create(LineFinder{_raster}));
    handler.read = TRY(ReadLineFunc::Create(LineReader{_raster, std::move(convert), convertFlags}));
    return handler;
}

Result<SetPixelHandlerStruct> ImagePixelStorageRasterBase::SetPixelHandler(
    const PixelFormat& format, ChannelOffsets offsets, const ColorProfile& storedProfile, const ColorProfile& profile,
    SETPIXELHANDLERFLAGS flags, const RegionDelegate& region) {
    const CONVERTPIXELFLAGS convertFlags = ToConvertFlags(flags);
    ConvertPixelFunc convert = TRY(MakeWriteConversion(format, offsets, storedProfile, profile, convertFlags));
    SetPixelHandlerStruct handler;
    if (flags == SETPIXELHANDLERFLAGS::NONE && !profile.HasProfile() && IsStoredAsGiven(*_raster, format, offsets))
        handler.locate = LineLocator{_raster};
    handler.write = TRY(WriteLineFunc::Create(LineWriter{_raster, std::move(convert), convertFlags}));
    handler.region = region;
    return handler;
}

Result<ConvertPixelFunc> ImagePixelStorageRasterBase::MakeReadConversion(
    const PixelFormat& format, ChannelOffsets offsets, const ColorProfile& storedProfile, const ColorProfile& profile,
    CONVERTPIXELFLAGS flags, bool* convertsProfiles) const {
    if (!_raster)
        return IllegalStateError();
    bool notWanted = false;
    return FindConversion(format, offsets.empty() ? format->GetChannelOffsets() : offsets, profile,
                          _raster->GetFormat(), _raster->GetChannelOffsets(), storedProfile, flags,
                          convertsProfiles ? *convertsProfiles : notWanted);
}

Result<ConvertPixelFunc> ImagePixelStorageRasterBase::MakeWriteConversion(const PixelFormat& format,
                                                                          ChannelOffsets offsets,
                                                                          const ColorProfile& storedProfile,
                                                                          const ColorProfile& profile,
                                                                          CONVERTPIXELFLAGS flags) const {
    if (!_raster)
        return IllegalStateError();
    bool convertsProfiles = false;
    return FindConversion(_raster->GetFormat(), _raster->GetChannelOffsets(), storedProfile, format,
                          offsets.empty() ? format->GetChannelOffsets() : offsets, profile, flags, convertsProfiles);
}

}  // namespace orvik
