#include "pixel/gfx_image_pixelformat_channels.h"

#include <algorithm>

#include "pixel/gfx_image_pixelformat_compare.h"
#include "pixel/gfx_image_pixelformat_route.h"

namespace orvik {

Result<void> PixelFormatChannels::AppendChannel(const ImageChannel& channel) {
    const Id type = channel->GetChannelType()->GetId();
    if (_offsets.IsEmpty())
        TRY(_offsets.Append(BITS(0)));
    TRY(_channels.Append(channel));
    TRY(_types.Append(type));
    TRY(_components.Append(channel->GetComponentType()));
    TRY(_offsets.Append(_offsets.GetLast() + channel->GetChannelBits()));
    if (type == channeltypes::kAlpha && _alphaIndex < 0)
        _alphaIndex = static_cast<int>(_channels.GetCount() - 1);
    return {};
}

bool PixelFormatChannels::HasOwnOffsets(ChannelOffsets srcOffsets, ChannelOffsets dstOffsets) const {
    return std::ranges::equal(srcOffsets, _offsets) && std::ranges::equal(dstOffsets, _offsets);
}

Result<std::pair<PixelFormat, Int>> PixelFormatChannels::GetAlphaPixelFormat() const {
    if (_alphaIndex < 0 || _components[_alphaIndex] == ComponentType::None)
        return UnsupportedOperationError();
    const ImageChannel alpha[] = {channeltypes::GetChannel(channeltypes::kAlpha, _components[_alphaIndex])};
    PixelFormat format = TRY(PixelFormats::FindOrCreatePixelFormat(alpha));
    return std::pair<PixelFormat, Int>(std::move(format), _alphaIndex);
}

ColorProfile PixelFormatChannels::GetDefaultColorProfile() const {
    if (_components.IsEmpty())
        return PixelFormatBase::GetDefaultColorProfile();
    switch (_components[0]) {
        case ComponentType::S8:
        case ComponentType::S16:  // only data has such components, no picture
            return PixelFormatBase::GetDefaultColorProfile();
        case ComponentType::F16:
        case ComponentType::F32:
        case ComponentType::F64:
            return GetColorSpace()->GetDefaultLinearColorProfile();
        default:
            return GetColorSpace()->GetDefaultNonlinearColorProfile();
    }
}

Bool PixelFormatChannels::IsIdenticalPixel(const void* a, const void* b, Int tolerance) const {
    const auto *first = static_cast<const std::byte*>(a), *second = static_cast<const std::byte*>(b);
    for (Int i = 0; i < _channels.GetCount(); ++i) {
        const Int offset = _offsets[i].GetBytes();
        if (!(_types[i] == channeltypes::kUnused) &&
            !pixel::IsIdenticalValue(_components[i], first + offset, second + offset, tolerance))
            return false;
    }
    return true;
}

Result<ConvertPixelFunc> PixelFormatChannels::GetConvertPixelFromFunc(const PixelFormat& srcFormat,
                                                                      ChannelOffsets srcOffsets,
                                                                      ChannelOffsets dstOffsets, bool) const {
    if (!(srcFormat == GetSelf()) || !HasOwnOffsets(srcOffsets, dstOffsets))
        return ConvertPixelFunc();
    return pixel::MakePixelCopy(GetBitsPerPixel(), GetPackedPixelCount());
}

}  // namespace orvik
