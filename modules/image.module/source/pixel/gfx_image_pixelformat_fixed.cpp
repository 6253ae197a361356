#include "pixel/gfx_image_pixelformat_fixed.h"

#include "pixel/gfx_image_pixelformat_compare.h"
#include "pixel/gfx_image_pixelformat_plan.h"

namespace orvik {
namespace {

constexpr int kAlphaDigit = 0xA, kGreyDigit = 0xB, kUnusedDigit = 0xF;

/// Where a channel of the general families comes from. Nothing is premultiplied.
pixel::ChannelOrigin FindOrigin(int digit, const FamilyRow& src) {
    using pixel::ChannelOrigin;
    const auto find = [&](int wanted) { return FindDigit(src.order, src.channelCount, wanted); };
    const bool hasColors = find(0) != 15, hasGrey = find(kGreyDigit) != 15, hasAlpha = find(kAlphaDigit) != 15;
    switch (digit) {
        case kAlphaDigit:
            return hasAlpha ? ChannelOrigin::FromChannel(find(kAlphaDigit)) : ChannelOrigin::FromFill(255);
        case kGreyDigit:
            if (hasGrey)
                return ChannelOrigin::FromChannel(find(kGreyDigit));
            return hasColors ? ChannelOrigin::FromMean() : ChannelOrigin::FromFill(0);
        case kUnusedDigit:
            return ChannelOrigin::FromFill(0);
        default:
            if (hasColors)
                return ChannelOrigin::FromChannel(find(digit));
            return ChannelOrigin::FromChannel(find(hasGrey ? kGreyDigit : kAlphaDigit));  // an alpha mask as a picture
    }
}

bool IsDirectSource(const FormatRow& row) {
    return row.kind == FormatKind::Components &&
           !(row.family == PixelFormatFamily::ALPHA && row.component == ComponentType::F16);
}

class PackedChannel final : public virtual ImageChannelInterface {
public:
    PackedChannel(ImageChannelType type, Int bits) : _type(std::move(type)), _bits(bits) {}
    BITS GetChannelBits() const override { return BITS(_bits); }
    ImageChannelType GetChannelType() const override { return _type; }
    const DataType* GetDataType() const override { return nullptr; }
    Bool IsIdenticalComponent(const void*, const void*, Int) const override { return false; }
    ComponentType GetComponentType() const override { return ComponentType::None; }

private:
    ImageChannelType _type;
    Int _bits;
};

}  // namespace

Result<ImageChannel> CreatePackedChannel(const Id& type, Int bits) {
    return ImageChannel(TRY(NewObj<PackedChannel>(channeltypes::Get(type), bits)));
}

Result<void> PixelFormatFixed::ConstructNames() {
    _id = TRY(MakeFormatId(_row));
    if (!_family.colorSpace.IsEmpty())
        _colorSpace = colorspaces::Get(_family.colorSpace);
    return {};
}

Result<void> PixelFormatFixed::Construct() {
    TRY(ConstructNames());
    for (int i = 0; i < _family.channelCount; ++i) {
        const Id type = GetChannelTypeOfDigit(GetDigit(_family.order, i), _family.inverted);
        const ImageChannel channel = TRY(channeltypes::Get(type)->GetChannel(DataTypeOf(_row.component)));
        TRY(AppendChannel(channel));
    }
    return {};
}

String PixelFormatFixed::PixToString(const void* pixel) const {
    FormatArgument arguments[5];
    int count = 0;
    for (; count < 5; ++count) {
        const int channel = FindDigit(_family.order, _family.channelCount, GetDigit(_family.textOrder, count));
        if (channel == 15 || (count > 0 && _family.textOrder >> (4 * count) == 0))
            break;
        const auto* value = static_cast<const std::byte*>(pixel) + _offsets[channel].GetBytes();
        arguments[count] = pixel::MakeValueArgument(_row.component, value);
    }
    return FormatStringArguments(_family.text, {arguments, static_cast<size_t>(count)});
}

Result<ConvertPixelFunc> PixelFormatFixed::GetConvertPixelFromFunc(const PixelFormat& srcFormat,
                                                                   ChannelOffsets srcOffsets, ChannelOffsets dstOffsets,
                                                                   Bool defaultOffsets) const {
    const PixelFormatFixed* src = Get(srcFormat);
    if (_row.kind != FormatKind::Components || !src || !IsDirectSource(src->GetRow()))
        return PixelFormatChannels::GetConvertPixelFromFunc(srcFormat, srcOffsets, dstOffsets, defaultOffsets);
    BaseArray<pixel::ChannelOrigin> origins;
    for (int i = 0; i < _family.channelCount; ++i)
        TRY(origins.Append(FindOrigin(GetDigit(_family.order, i), src->_family)));
    const auto find = [&](int digit) { return FindDigit(src->_family.order, src->_family.channelCount, digit); };
    const int colors[3] = {find(0), find(1), find(2)};
    return pixel::ConversionPlan::Create({_components.ToBlock(), dstOffsets}, {src->_components.ToBlock(), srcOffsets},
                                         origins.ToBlock(), colors);
}

Result<ObjectRef> CreateFixedPixelFormat(const FormatRow& row) {
    switch (row.kind) {
        case FormatKind::Inks:
            return CreateInksPixelFormat(row);
        case FormatKind::Packed:
            return CreatePackedPixelFormat(row);
        case FormatKind::SharedExponent:
            return CreateSharedExponentPixelFormat(row);
        case FormatKind::SharedChroma:
            return CreateSharedChromaPixelFormat(row);
        case FormatKind::Indexed:
            return CreateIndexedPixelFormat(row);
        case FormatKind::Components:
            break;
    }
    return ObjectRef(TRY(NewObj<PixelFormatFixed>(row)));
}

}  // namespace orvik
