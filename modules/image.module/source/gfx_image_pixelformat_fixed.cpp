#include "gfx_image_pixelformat_fixed.h"

#include "gfx_image_pixelformat_compare.h"
#include "gfx_image_pixelformat_plan.h"

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

/// Channels of a 16-bit word, the first in the highest bits.
class PixelFormatPacked final : public PixelFormatFixed {
public:
    using PixelFormatFixed::PixelFormatFixed;

    Result<void> Construct() override {
        TRY(ConstructNames());
        Int top = 0;
        for (int i = 0; i < _family.channelCount; ++i)
            top += GetWidth(i);
        for (int i = 0; i < _family.channelCount; ++i) {
            const int digit = GetDigit(_family.order, i);
            const ImageChannel channel = TRY(CreatePackedChannel(GetChannelTypeOfDigit(digit, false), GetWidth(i)));
            TRY(AppendChannel(channel));
            top -= GetWidth(i);
            _offsets[i] = BITS(top);
        }
        _offsets.GetLast() = BITS(kWordBits);
        return {};
    }
    Bool IsIdenticalPixel(const void* a, const void* b, Int tolerance) const override {
        for (int i = 0; i < _family.channelCount; ++i) {
            const Int difference = Int(Read(a, i)) - Int(Read(b, i));
            if ((difference < 0 ? -difference : difference) << (8 - GetWidth(i)) > std::max<Int>(tolerance, 0))
                return false;
        }
        return true;
    }
    String PixToString(const void* pixel) const override {
        Int widths[4] = {}, values[4] = {};
        constexpr int kDigits[4] = {kAlphaDigit, 0, 1, 2};
        for (int i = 0; i < 4; ++i) {
            const int channel = FindDigit(_family.order, _family.channelCount, kDigits[i]);
            if (channel == 15)
                continue;  // no alpha: 0 bits
            widths[i] = GetWidth(channel);
            values[i] = Read(pixel, channel);
        }
        return FormatString("A@ @ R@ @ G@ @ B@ @", widths[0], values[0], widths[1], values[1], widths[2], values[2],
                            widths[3], values[3]);
    }

private:
    static constexpr Int kWordBits = 16;

    Int GetWidth(int channel) const { return (_row.packing >> (4 * (_family.channelCount - 1 - channel))) & 15; }
    uint32_t Read(const void* pixel, int channel) const {
        return ReadPackedBits(pixel, kWordBits, _offsets[channel].GetBits(), GetWidth(channel));
    }
};

/// Three mantissas and one exponent, a byte each.
class PixelFormatSharedExponent final : public PixelFormatFixed {
public:
    using PixelFormatFixed::PixelFormatFixed;

    Result<void> Construct() override {
        TRY(ConstructNames());
        for (int i = 0; i < _family.channelCount; ++i) {
            const Id type = GetChannelTypeOfDigit(GetDigit(_family.order, i), false);
            const ImageChannel mantissa = TRY(CreatePackedChannel(type, 8));
            TRY(AppendChannel(mantissa));
        }
        _offsets.GetLast() = BITS(32);
        return {};
    }
    ColorProfile GetDefaultColorProfile() const override { return _colorSpace->GetDefaultLinearColorProfile(); }
    Bool IsIdenticalPixel(const void* a, const void* b, Int) const override { return std::memcmp(a, b, 4) == 0; }
    String PixToString(const void* pixel) const override {
        const auto* bytes = static_cast<const uint8_t*>(pixel);
        return FormatString("R @ G @ B @ E @", bytes[0], bytes[1], bytes[2], bytes[3]);
    }
};

/// Two pixels with a brightness each and one chroma: Y U Y V in variant A, U Y V Y in variant B.
class PixelFormatSharedChroma final : public PixelFormatFixed {
public:
    using PixelFormatFixed::PixelFormatFixed;

    Result<void> Construct() override {
        TRY(ConstructNames());
        const Int first = IsVariantA() ? 0 : 8, chroma = IsVariantA() ? 8 : 0;
        const Int offsets[] = {first, chroma, chroma + 16, 16};
        for (int i = 0; i < _family.channelCount; ++i) {
            const ImageChannel channel = TRY(CreatePackedChannel(channeltypes::kUnknown, 8));
            TRY(AppendChannel(channel));
        }
        for (int i = 0; i < 4; ++i)
            _offsets[i] = BITS(offsets[i]);
        return {};
    }
    Int GetPackedPixelCount() const override { return 2; }
    /// Compares a pair.
    Bool IsIdenticalPixel(const void* a, const void* b, Int tolerance) const override {
        for (int i = 0; i < 4; ++i) {
            if (!pixel::IsIdenticalValue(ComponentType::U8, static_cast<const uint8_t*>(a) + i,
                                         static_cast<const uint8_t*>(b) + i, tolerance))
                return false;
        }
        return true;
    }
    /// The text of a pair.
    String PixToString(const void* pixel) const override {
        const auto* bytes = static_cast<const uint8_t*>(pixel);
        const int y = IsVariantA() ? 0 : 1, u = IsVariantA() ? 1 : 0;
        return FormatString(_family.text, bytes[y], bytes[u], bytes[y + 2], bytes[u + 2]);
    }

private:
    bool IsVariantA() const { return std::string_view(_row.variant).back() == 'A'; }
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
                                                                   bool defaultOffsets) const {
    const auto* src = dynamic_cast<const PixelFormatFixed*>(srcFormat.GetPointer());
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
        case FormatKind::Packed:
            return ObjectRef(TRY(NewObj<PixelFormatPacked>(row)));
        case FormatKind::SharedExponent:
            return ObjectRef(TRY(NewObj<PixelFormatSharedExponent>(row)));
        case FormatKind::SharedChroma:
            return ObjectRef(TRY(NewObj<PixelFormatSharedChroma>(row)));
        default:
            return ObjectRef(TRY(NewObj<PixelFormatFixed>(row)));
    }
}

}  // namespace orvik
