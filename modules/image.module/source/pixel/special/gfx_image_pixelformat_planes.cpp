#include "pixel/special/gfx_image_pixelformat_planes.h"

#include <cstring>

#include "pixel/kernels/gfx_image_pixelformat_kernels.h"

namespace orvik::pixel {
namespace {

Int BytesOf(ComponentType type) { return GetComponentBits(type) / 8; }

}  // namespace

Result<PlaneSide> PlaneSide::Create(const FormatRow& row, std::initializer_list<int> digits, ChannelOffsets offsets) {
    const FamilyRow& family = GetFamilyRow(row.family);
    if (offsets.size() < family.channelCount)
        return IllegalArgumentError("A pixel conversion needs an offset for each channel.");
    const auto find = [&](int digit) {
        const int channel = FindDigit(family.order, family.channelCount, digit);
        return channel == 15 ? kMissing : offsets[channel].GetBytes();
    };
    PlaneSide side;
    side._type = row.component;
    for (const int digit : digits)
        side._planes[side._planeCount++] = find(digit);
    side._alpha = find(kDigitAlpha);
    side._unused = find(kDigitUnused);
    return side;
}

void PlaneSide::Read(const PixelLineConst& line, Int first, Int count, ComponentType type, void* planes) const {
    const Int size = BytesOf(type), stride = line.stride.GetBytes();
    const ConvertStridedFunction convert = GetConvertStrided(_type, type);
    auto* plane = static_cast<std::byte*>(planes);
    for (int i = 0; i < _planeCount; ++i, plane += kPlanePixels * size) {
        if (_planes[i] == kMissing)
            std::memset(plane, 0xFF, static_cast<size_t>(count * size));
        else
            convert(PixelAt(line, first) + _planes[i], stride, plane, size, count);
    }
}

void PlaneSide::Write(const PixelLine& line, Int first, Int count, ComponentType type, const void* planes) const {
    const Int size = BytesOf(type), stride = line.stride.GetBytes();
    const ConvertStridedFunction convert = GetConvertStrided(type, _type);
    const auto* plane = static_cast<const std::byte*>(planes);
    for (int i = 0; i < _planeCount; ++i, plane += kPlanePixels * size) {
        if (_planes[i] != kMissing)
            convert(plane, size, PixelAt(line, first) + _planes[i], stride, count);
    }
    if (_unused != kMissing) {
        constexpr std::byte kZero[8] = {};
        FillStrided(kZero, static_cast<int>(BytesOf(_type)), PixelAt(line, first) + _unused, stride, count);
    }
}

void PlaneSide::WriteAlpha(const PixelLine& line, Int first, Int count, const PlaneSide* src,
                           const PixelLineConst& srcLine) const {
    if (_alpha == kMissing)
        return;
    std::byte* alpha = PixelAt(line, first) + _alpha;
    const Int stride = line.stride.GetBytes();
    if (src && src->_alpha != kMissing) {
        GetConvertStrided(src->_type, _type)(PixelAt(srcLine, first) + src->_alpha, srcLine.stride.GetBytes(), alpha,
                                             stride, count);
        return;
    }
    constexpr std::byte kOpaque{255};
    std::byte value[8];
    GetConvertStrided(ComponentType::U8, _type)(&kOpaque, 1, value, 8, 1);
    FillStrided(value, static_cast<int>(BytesOf(_type)), alpha, stride, count);
}

}  // namespace orvik::pixel
