#include "gfx_image_storage_normal.h"

#include <cstring>

#include "orvik/crc32c.h"

namespace orvik {
namespace {

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

}  // namespace

Result<void> ImagePixelStorageNormal::Init(Int width, Int height, const PixelFormat& format, Block<const std::byte>) {
    if (width < 0 || height < 0)
        return IllegalArgumentError();
    _width = width;
    _height = height;
    if (!format)
        return IllegalArgumentError();
    _raster = nullptr;  // before the new block is asked for: two would be the peak
    Result<Ref<PixelRaster>> made = PixelRaster::Create(width, height, format);
    Result<void> allocated = made ? made.GetValue()->AllocatePixels() : Result<void>(made.GetError());
    if (!allocated) {
        _width = _height = 0;
        return allocated;
    }
    _raster = std::move(made).TakeValue();
    return {};
}

Result<GetPixelHandlerStruct> ImagePixelStorageNormal::GetPixelHandler(const PixelFormat& format,
                                                                       ChannelOffsets offsets,
                                                                       const ColorProfile& storedProfile,
                                                                       const ColorProfile& profile,
                                                                       GETPIXELHANDLERFLAGS flags) {
    const CONVERTPIXELFLAGS convertFlags = ToConvertFlags(flags);
    ConvertPixelFunc convert = TRY(MakeReadConversion(format, offsets, storedProfile, profile, convertFlags));
    GetPixelHandlerStruct handler;
    handler.read = TRY(ReadLineFunc::Create(LineReader{_raster, std::move(convert), convertFlags}));
    return handler;
}

Result<SetPixelHandlerStruct> ImagePixelStorageNormal::SetPixelHandler(
    const PixelFormat& format, ChannelOffsets offsets, const ColorProfile& storedProfile, const ColorProfile& profile,
    SETPIXELHANDLERFLAGS flags, const RegionDelegate& region) {
    const CONVERTPIXELFLAGS convertFlags = ToConvertFlags(flags);
    ConvertPixelFunc convert = TRY(MakeWriteConversion(format, offsets, storedProfile, profile, convertFlags));
    SetPixelHandlerStruct handler;
    handler.write = TRY(WriteLineFunc::Create(LineWriter{_raster, std::move(convert), convertFlags}));
    handler.region = region;
    return handler;
}

/// A run of single components inside the block.
struct ImagePixelStorageNormal::Components {
    std::byte* first = nullptr;  ///< the first pixel's component
    Int bytes = 0;               ///< copied for each pixel
    Int step = 0;                ///< bytes from one pixel to the next
    Int count = 0;               ///< pixels whose component lies in the block as a whole
};

/// The width is that of the channel in front, so that nothing is copied for channel 0; callers rely on this. A wide
/// channel in front of a narrow one would reach beyond the last pixel: such a pixel is left out.
Result<ImagePixelStorageNormal::Components> ImagePixelStorageNormal::FindComponents(Int channel,
                                                                                    const PixelSpan& span) const {
    if (!_raster)
        return IllegalStateError();
    const ChannelOffsets offsets = _raster->GetChannelOffsets();
    if (channel < 0 || channel >= _raster->GetChannelCount() || channel >= static_cast<Int>(offsets.size()))
        return IllegalArgumentError();
    if (span.count <= 0)
        return Components{};
    TRY(_raster->CheckSpan(span));
    constexpr Int kNarrow = 8;
    const Int before = channel > 0 ? (offsets[channel] - offsets[channel - 1]).GetBits() : 0;
    const Int own =
        channel + 1 < static_cast<Int>(offsets.size()) ? (offsets[channel + 1] - offsets[channel]).GetBits() : before;
    if (before < kNarrow || own < kNarrow)
        return Components{};

    const Block<std::byte> pixels = _raster->GetPixels();
    Components run;
    run.bytes = BITS(before).GetBytes();
    run.step = _raster->GetBitsPerPixel().GetBytes();
    const Int start = span.y * _raster->GetBytesPerLine() + ((span.x * _raster->GetBitsPerPixel().GetBits()) >> 3) +
                      offsets[channel].GetBytes();
    const Int room = static_cast<Int>(pixels.size()) - start - run.bytes;
    if (room >= 0) {
        run.first = pixels.data() + start;
        run.count = std::min(span.count, room / run.step + 1);
    }
    return run;
}

Result<void> ImagePixelStorageNormal::GetComponent(Int channel, const PixelSpan& span, void* destination, Int stride,
                                                   GETPIXELFLAGS) {
    const Components run = TRY(FindComponents(channel, span));
    auto* to = static_cast<std::byte*>(destination);
    for (Int i = 0; i < run.count; ++i)
        std::memcpy(to + i * stride, run.first + i * run.step, static_cast<size_t>(run.bytes));
    return {};
}

Result<void> ImagePixelStorageNormal::SetComponent(Int channel, const PixelSpan& span, const void* source, Int stride,
                                                   SETPIXELFLAGS) {
    const Components run = TRY(FindComponents(channel, span));
    const auto* from = static_cast<const std::byte*>(source);
    for (Int i = 0; i < run.count; ++i)
        std::memcpy(run.first + i * run.step, from + i * stride, static_cast<size_t>(run.bytes));
    return {};
}

Result<Ref<Object>> ImagePixelStorageNormal::Clone() const {
    Ref<ImagePixelStorageNormal> copy = TRY(NewObj<ImagePixelStorageNormal>());
    if (_raster) {
        TRY(copy->Init(_raster->GetWidth(), _raster->GetHeight(), _raster->GetFormat(), {}));
        const Block<std::byte> pixels = _raster->GetPixels();
        if (!pixels.empty())
            std::memcpy(copy->_raster->GetPixels().data(), pixels.data(), pixels.size());
    }
    copy->_width = _width;
    copy->_height = _height;
    return Ref<Object>(copy);
}

bool ImagePixelStorageNormal::operator==(const ImagePixelStorageNormal& other) const {
    if (_width != other._width || _height != other._height || GetPixelFormat() != other.GetPixelFormat())
        return false;
    if (!_raster || !other._raster)
        return !_raster && !other._raster;
    return std::ranges::equal(_raster->GetPixels(), other._raster->GetPixels());
}

uint64_t ImagePixelStorageNormal::GetHashCode() const {
    uint64_t hash =
        HashPointerBits(static_cast<uint64_t>(_width)) * 31 + HashPointerBits(static_cast<uint64_t>(_height));
    if (_raster)
        hash = (hash * 31 + HashOf<PixelFormat>()(_raster->GetFormat())) * 31 + ComputeCrc32c(_raster->GetPixels());
    return hash;
}

}  // namespace orvik
