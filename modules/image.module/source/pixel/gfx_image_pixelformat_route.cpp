#include "pixel/gfx_image_pixelformat_route.h"

#include <algorithm>
#include <cstring>

#include "pixel/gfx_image_pixelformat_plan.h"

namespace orvik::pixel {
namespace {

/// The channels of a format, with their types looked up once.
class ChannelList {
public:
    Result<void> Init(const PixelFormat& format) {
        for (const ImageChannel& channel : format->GetChannels()) {
            TRY(_types.Append(channel->GetChannelType()));
            TRY(_components.Append(channel->GetComponentType()));
        }
        return {};
    }
    Int GetCount() const { return _types.GetCount(); }
    const ImageChannelType& GetType(Int index) const { return _types[index]; }
    Block<const ComponentType> GetComponents() const { return _components.ToBlock(); }

private:
    BaseArray<ImageChannelType> _types;
    BaseArray<ComponentType> _components;
};

/// The colour space of the format, or of its first colour channel when the format has none or only that of alpha.
ColorSpace GetColorSpaceOfChannels(const PixelFormat& format, const ChannelList& channels) {
    const ColorSpace alpha = colorspaces::Get(colorspaces::kAlpha);
    ColorSpace space = format->GetColorSpace();
    for (Int i = 0; i < channels.GetCount() && (!space || space == alpha); ++i) {
        if (ColorSpace own = channels.GetType(i)->GetColorSpace(); own && !(own == alpha))
            space = own;
    }
    return space;
}

bool IsOptionalType(const ImageChannelType& type) {
    const Id id = type->GetId();
    return id == channeltypes::kAlpha || id == channeltypes::kUnknown || id == channeltypes::kDepth ||
           id == channeltypes::kDepthBack || id == channeltypes::kUnused;
}

constexpr Int kBlockPixels = 64;

PixelLineConst Advance(const PixelLineConst& line, Int pixels) {
    return {static_cast<const std::byte*>(line.data) + pixels * line.stride.GetBits() / 8, line.stride, line.phase};
}
PixelLine Advance(const PixelLine& line, Int pixels) {
    return {static_cast<std::byte*>(line.data) + pixels * line.stride.GetBits() / 8, line.stride, line.phase};
}

/// The two halves of an intermediate route.
struct IntermediateConversion {
    ConvertPixelFunc in, out;
    BITS stride;

    Result<void> operator()(const PixelLine& dst, Int count, const PixelLineConst& src, CONVERTPIXELFLAGS flags) {
        alignas(16) std::byte scratch[kBlockPixels * 8];  // four channels of 16 bits at most
        for (Int done = 0; done < count; done += kBlockPixels) {
            const Int block = std::min(kBlockPixels, count - done);
            const PixelLine middle{scratch, stride, 0};
            TRY(in(middle, block, Advance(src, done), flags));
            TRY(out(Advance(dst, done), block, middle, flags));
        }
        return {};
    }
};

// --- Copies ----------------------------------------------------------------------------------------------------------

/// A position in a run of pixels of less than a byte, or of a number of bits that is no multiple of 8. Bit 0 of a byte
/// is its highest.
bool GetBit(const uint8_t* data, Int bit) { return (data[bit >> 3] >> (7 - (bit & 7)) & 1) != 0; }
void SetBit(uint8_t* data, Int bit, bool value) {
    const auto mask = static_cast<uint8_t>(0x80 >> (bit & 7));
    data[bit >> 3] = static_cast<uint8_t>(value ? data[bit >> 3] | mask : data[bit >> 3] & ~mask);
}

void CopyBits(const PixelLine& dst, Int count, const PixelLineConst& src, Int width) {
    const auto* from = static_cast<const uint8_t*>(src.data);
    auto* to = static_cast<uint8_t*>(dst.data);
    Int first = 0;
    if (src.stride.GetBits() == width && dst.stride.GetBits() == width && src.phase == dst.phase) {
        // The same bits of the same bytes: single bits only at the ends.
        const Int end = dst.phase + count * width;
        const Int wholeBegin = (Int(dst.phase) + 7) >> 3, wholeEnd = end >> 3;
        if (wholeBegin < wholeEnd) {
            for (Int bit = dst.phase; bit < wholeBegin * 8; ++bit)
                SetBit(to, bit, GetBit(from, bit));
            std::memmove(to + wholeBegin, from + wholeBegin, static_cast<size_t>(wholeEnd - wholeBegin));
            first = wholeEnd * 8;
        } else {
            first = dst.phase;
        }
        for (Int bit = first; bit < end; ++bit)
            SetBit(to, bit, GetBit(from, bit));
        return;
    }
    for (Int i = 0; i < count; ++i) {
        const Int in = src.phase + i * src.stride.GetBits(), out = dst.phase + i * dst.stride.GetBits();
        for (Int bit = 0; bit < width; ++bit)
            SetBit(to, out + bit, GetBit(from, in + bit));
    }
}

void CopyBytes(const PixelLine& dst, Int units, const PixelLineConst& src, Int unitBytes, Int packedPixels) {
    const Int srcStride = src.stride.GetBytes() * packedPixels, dstStride = dst.stride.GetBytes() * packedPixels;
    const auto* from = static_cast<const std::byte*>(src.data);
    auto* to = static_cast<std::byte*>(dst.data);
    if (srcStride == unitBytes && dstStride == unitBytes) {
        std::memmove(to, from, static_cast<size_t>(units * unitBytes));
        return;
    }
    for (Int i = 0; i < units; ++i)
        std::memmove(to + i * dstStride, from + i * srcStride, static_cast<size_t>(unitBytes));
}

}  // namespace

ConvertPixelFunc MakePixelCopy(BITS bitsPerPixel, Int packedPixels) {
    const Int bits = bitsPerPixel.GetBits();
    if (bits % 8 != 0)
        return [bits](const PixelLine& dst, Int count, const PixelLineConst& src, CONVERTPIXELFLAGS) -> Result<void> {
            if (count > 0)
                CopyBits(dst, count, src, bits);
            return {};
        };
    return [bits, packedPixels](const PixelLine& dst, Int count, const PixelLineConst& src,
                                CONVERTPIXELFLAGS) -> Result<void> {
        if (count <= 0)
            return {};
        if (count % packedPixels != 0)
            return IllegalArgumentError("YUV needs an even number of pixels to convert.");
        CopyBytes(dst, count / packedPixels, src, bits / 8 * packedPixels, packedPixels);
        return {};
    };
}

Result<ConvertPixelFunc> FindChannelRoute(const PixelFormat& dstFormat, ChannelOffsets dstOffsets,
                                          const PixelFormat& srcFormat, ChannelOffsets srcOffsets) {
    ChannelList src, dst;
    TRY(src.Init(srcFormat));
    TRY(dst.Init(dstFormat));
    // Channels that are no whole components have places in bits and a meaning that only their format knows.
    for (const ChannelList* list : {&src, &dst}) {
        if (std::ranges::count(list->GetComponents(), ComponentType::None) != 0)
            return ConvertPixelFunc();
    }
    const ColorSpace space = GetColorSpaceOfChannels(srcFormat, src);

    HashMap<Id, Int> nextOfType;  // where the search for the next channel of a type goes on
    BaseArray<ChannelOrigin> origins;
    Int pairedColors = 0;
    for (Int d = 0; d < dst.GetCount(); ++d) {
        const ImageChannelType& type = dst.GetType(d);
        Int& next = *TRY(nextOfType.FindOrCreate(type->GetId()));
        while (next < src.GetCount() && !(src.GetType(next) == type))
            ++next;
        const bool ofSpace = type->GetColorSpace() == space;
        if (next < src.GetCount()) {
            pairedColors += ofSpace;
            TRY(origins.Append(ChannelOrigin::FromChannel(static_cast<int>(next++))));
        } else if (IsOptionalType(type) || ofSpace) {
            TRY(origins.Append(ChannelOrigin::FromFill(static_cast<uint8_t>(type->GetDefaultFillValue()))));
        } else {
            return ConvertPixelFunc();
        }
    }
    if (pairedColors == 0)
        return ConvertPixelFunc();
    return ConversionPlan::Create({dst.GetComponents(), dstOffsets}, {src.GetComponents(), srcOffsets},
                                  origins.ToBlock(), {0, 0, 0});
}

Result<ConvertPixelFunc> FindIntermediateRoute(const PixelFormat& dstFormat, ChannelOffsets dstOffsets,
                                               ColorProfile* dstProfile, const PixelFormat& srcFormat,
                                               ChannelOffsets srcOffsets, const ColorProfile* srcProfile,
                                               CONVERTPIXELFLAGS flags, bool& isColorProfileConversion) {
    // Shared exponents span a range that 8 bits would lose.
    static constexpr Id kRgbe{"net.orvik.image.pixelformat.rgb.rgbe"};
    const ComponentType component = srcFormat->GetId() == kRgbe ? ComponentType::F16 : ComponentType::U8;
    BaseArray<ImageChannel> channels;
    if (srcFormat->HasAlpha() && dstFormat->HasAlpha())
        TRY(channels.Append(channeltypes::GetChannel(channeltypes::kAlpha, component)));
    for (const Id& type : {channeltypes::kRed, channeltypes::kGreen, channeltypes::kBlue})
        TRY(channels.Append(channeltypes::GetChannel(type, component)));
    const PixelFormat middle = TRY(PixelFormats::FindOrCreatePixelFormat(channels.ToBlock()));

    const auto compose = [&]() -> Result<ConvertPixelFunc> {
        const ColorProfile source = srcProfile ? *srcProfile : ColorProfile();
        ColorProfile kept = source;
        bool convertsIn = false, convertsOut = false;
        IntermediateConversion steps;
        steps.stride = middle->GetBitsPerPixel();
        const ChannelOffsets offsets = middle->GetChannelOffsets();
        const ColorProfile* given = srcProfile ? &source : nullptr;
        steps.in = TRY(middle->GetConvertPixelFunc(srcFormat, srcOffsets, offsets, given, srcProfile ? &kept : nullptr,
                                                   flags, convertsIn));
        steps.out =
            TRY(dstFormat->GetConvertPixelFunc(middle, offsets, dstOffsets, given, dstProfile, flags, convertsOut));
        isColorProfileConversion |= convertsIn || convertsOut;
        return ConvertPixelFunc::Create(std::move(steps));
    };
    Result<ConvertPixelFunc> composed = compose();
    if (!composed)
        return UnknownErrorWith(std::move(composed).TakeError(), "No pixel conversion found from '@' to '@'", srcFormat,
                                dstFormat);
    return composed;
}

}  // namespace orvik::pixel
