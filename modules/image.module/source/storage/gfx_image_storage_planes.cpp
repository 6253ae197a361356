#include "storage/gfx_image_storage_planes.h"

#include <cstring>

namespace orvik {

Result<void> ImagePixelStoragePlanes::Init(Int width, Int height, const PixelFormat& format, Block<const std::byte>) {
    return InitRaster(width, height, format, PixelRaster::CreatePlanes, true);
}

Result<void> ImagePixelStoragePlanes::CheckComponents(Int channel, const PixelSpan& span) const {
    constexpr BITS kNarrow(8);
    if (!_raster)
        return IllegalStateError();
    if (_raster->GetPixelDistance() < kNarrow)
        return FunctionNotImplementedError();
    if (channel < 0 || channel >= _raster->GetChannelCount())
        return IllegalArgumentError();
    return span.count <= 0 ? Result<void>() : _raster->CheckSpan(span);
}

std::byte* ImagePixelStoragePlanes::GetValue(Int channel, Int x, Int y) const {
    return _raster->GetPixels().data() + _raster->GetChannelOffsets()[static_cast<size_t>(channel)].GetBytes() +
           y * _raster->GetBytesPerLine() + ((x * _raster->GetPixelDistance().GetBits()) >> 3);
}

Result<void> ImagePixelStoragePlanes::GetComponent(Int channel, const PixelSpan& span, void* destination, Int stride,
                                                   GETPIXELFLAGS) {
    TRY(CheckComponents(channel, span));
    const auto bytes = static_cast<size_t>(_raster->GetPixelDistance().GetBytes());
    auto* to = static_cast<std::byte*>(destination);
    for (Int i = 0; i < span.count; ++i)
        std::memcpy(to + i * stride, GetValue(channel, span.x + i, span.y), bytes);
    return {};
}

Result<void> ImagePixelStoragePlanes::SetComponent(Int channel, const PixelSpan& span, const void* source, Int stride,
                                                   SETPIXELFLAGS) {
    TRY(CheckComponents(channel, span));
    const auto bytes = static_cast<size_t>(_raster->GetPixelDistance().GetBytes());
    const auto* from = static_cast<const std::byte*>(source);
    for (Int i = 0; i < span.count; ++i)
        std::memcpy(GetValue(channel, span.x + i, span.y), from + i * stride, bytes);
    return {};
}

Result<Ref<Object>> ImagePixelStoragePlanes::Clone() const {
    Ref<ImagePixelStoragePlanes> copy = TRY(NewObj<ImagePixelStoragePlanes>());
    if (_raster) {
        TRY(copy->Init(_raster->GetWidth(), _raster->GetHeight(), _raster->GetFormat(), {}));
        const Block<std::byte> pixels = _raster->GetPixels();
        std::memcpy(copy->_raster->GetPixels().data(), pixels.data(), pixels.size());
    }
    return Ref<Object>(copy);
}

}  // namespace orvik
