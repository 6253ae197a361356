// Formats whose channels share a 16-bit word.

#include "pixel/special/gfx_image_pixelformat_packed.h"

#include <algorithm>
#include <cstring>

#include "pixel/gfx_image_pixelformat_fixed.h"
#include "pixel/special/gfx_image_pixelformat_planes.h"

namespace orvik {
namespace {

using pixel::kPlanePixels;
using pixel::PackedLayout;
using pixel::PixelAt;
using pixel::PlaneSide;

constexpr Int kWordBits = 16;
constexpr int kDigits[4] = {0, 1, 2, pixel::kDigitAlpha};  // in the order of a layout

uint16_t LoadWord(const std::byte* from) {
    uint16_t word;
    std::memcpy(&word, from, sizeof(word));
    return word;
}

/// Channel by channel, so that the layout is constant within each loop.
void ExpandWords(const PackedLayout& layout, const std::byte* from, Int stride, uint8_t (&planes)[4][kPlanePixels],
                 Int count) {
    uint16_t words[kPlanePixels];
    for (Int i = 0; i < count; ++i)
        words[i] = LoadWord(from + i * stride);
    for (int c = 0; c < 4; ++c) {
        const pixel::PackedField field = layout.fields[c];
        for (Int i = 0; i < count; ++i)
            planes[c][i] = field.Expand(words[i]);
    }
}
void CompressWords(const PackedLayout& layout, const uint8_t (&planes)[4][kPlanePixels], std::byte* to, Int stride,
                   Int count) {
    uint16_t words[kPlanePixels] = {};
    for (int c = 0; c < 4; ++c) {
        const pixel::PackedField field = layout.fields[c];
        for (Int i = 0; i < count; ++i)
            words[i] = static_cast<uint16_t>(words[i] | field.Compress(planes[c][i]));
    }
    for (Int i = 0; i < count; ++i)
        std::memcpy(to + i * stride, &words[i], sizeof(uint16_t));
}

struct ExpandConversion {
    PackedLayout layout;
    PlaneSide side;

    Result<void> operator()(const PixelLine& dst, Int count, const PixelLineConst& src, CONVERTPIXELFLAGS) const {
        uint8_t planes[4][kPlanePixels];
        for (Int done = 0; done < count; done += kPlanePixels) {
            const Int block = std::min(kPlanePixels, count - done);
            ExpandWords(layout, PixelAt(src, done), src.stride.GetBytes(), planes, block);
            side.Write(dst, done, block, ComponentType::U8, planes);
        }
        return {};
    }
};

struct CompressConversion {
    PackedLayout layout;
    PlaneSide side;

    Result<void> operator()(const PixelLine& dst, Int count, const PixelLineConst& src, CONVERTPIXELFLAGS) const {
        uint8_t planes[4][kPlanePixels];
        for (Int done = 0; done < count; done += kPlanePixels) {
            const Int block = std::min(kPlanePixels, count - done);
            side.Read(src, done, block, ComponentType::U8, planes);
            CompressWords(layout, planes, PixelAt(dst, done), dst.stride.GetBytes(), block);
        }
        return {};
    }
};

/// Between two words with the same places for colours: alpha is dropped or becomes opaque.
struct RearrangeConversion {
    uint16_t kept, set;

    Result<void> operator()(const PixelLine& dst, Int count, const PixelLineConst& src, CONVERTPIXELFLAGS) const {
        const Int srcStride = src.stride.GetBytes(), dstStride = dst.stride.GetBytes();
        const std::byte* from = PixelAt(src, 0);
        std::byte* to = PixelAt(dst, 0);
        for (Int i = 0; i < count; ++i) {
            const auto word = static_cast<uint16_t>((LoadWord(from + i * srcStride) & kept) | set);
            std::memcpy(to + i * dstStride, &word, sizeof(word));
        }
        return {};
    }
};

bool IsPartner(const FormatRow& row) {
    if (row.family != PixelFormatFamily::RGB && row.family != PixelFormatFamily::ARGB)
        return false;
    return row.component == ComponentType::U8 || row.component == ComponentType::U16 ||
           row.component == ComponentType::F32 || row.component == ComponentType::F64;
}

/// The first channel is in the highest bits.
class PixelFormatPacked final : public PixelFormatFixed {
public:
    explicit PixelFormatPacked(const FormatRow& row)
        : PixelFormatFixed(row), _layout(pixel::MakePackedLayout(_row, _family)) {}

    Result<void> Construct() override {
        TRY(ConstructNames());
        for (int i = 0; i < _family.channelCount; ++i) {
            const int digit = GetDigit(_family.order, i);
            const pixel::PackedField& field = GetField(digit);
            const ImageChannel channel = TRY(CreatePackedChannel(GetChannelTypeOfDigit(digit, false), field.width));
            TRY(AppendChannel(channel));
            _offsets[i] = BITS(field.shift);
        }
        _offsets.GetLast() = BITS(kWordBits);
        return {};
    }
    Bool IsIdenticalPixel(const void* a, const void* b, Int tolerance) const override {
        for (const int digit : kDigits) {
            const Int difference = Int(Read(a, digit)) - Int(Read(b, digit));
            if ((difference < 0 ? -difference : difference) << (8 - GetField(digit).width) >
                std::max<Int>(tolerance, 0))
                return false;
        }
        return true;
    }
    String PixToString(const void* pixel) const override {
        const auto width = [&](int digit) { return Int(GetField(digit).width); };  // 0 without alpha
        const auto value = [&](int digit) { return Int(Read(pixel, digit)); };
        return FormatString("A@ @ R@ @ G@ @ B@ @", width(pixel::kDigitAlpha), value(pixel::kDigitAlpha), width(0),
                            value(0), width(1), value(1), width(2), value(2));
    }

    /// Knows this format, the one with the same colours that differs in alpha, and RGB and ARGB of U8, U16, F32 and
    /// F64; the same into the other direction.
    Result<ConvertPixelFunc> GetConvertPixelFromFunc(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                     ChannelOffsets dstOffsets, Bool defaultOffsets) const override {
        const PixelFormatFixed* src = Get(srcFormat);
        if (!src || src == this || !std::ranges::equal(dstOffsets, GetChannelOffsets()))
            return PixelFormatFixed::GetConvertPixelFromFunc(srcFormat, srcOffsets, dstOffsets, defaultOffsets);
        if (!IsPartner(src->GetRow()))
            return FindRearrangement(*src, srcOffsets, *this);
        const PlaneSide side = TRY(PlaneSide::Create(src->GetRow(), {0, 1, 2, pixel::kDigitAlpha}, srcOffsets));
        return ConvertPixelFunc::Create(CompressConversion{_layout, side});
    }
    Result<ConvertPixelFunc> GetConvertPixelToFunc(const PixelFormat& dstFormat, ChannelOffsets srcOffsets,
                                                   ChannelOffsets dstOffsets, Bool) const override {
        const PixelFormatFixed* dst = Get(dstFormat);
        // Words among each other are the destination's matter.
        if (!dst || !IsPartner(dst->GetRow()) || !std::ranges::equal(srcOffsets, GetChannelOffsets()))
            return ConvertPixelFunc();
        const PlaneSide side = TRY(PlaneSide::Create(dst->GetRow(), {0, 1, 2, pixel::kDigitAlpha}, dstOffsets));
        return ConvertPixelFunc::Create(ExpandConversion{_layout, side});
    }

private:
    const pixel::PackedField& GetField(int digit) const {
        return _layout.fields[std::ranges::find(kDigits, digit) - kDigits];
    }
    uint32_t Read(const void* pixel, int digit) const {
        const pixel::PackedField& field = GetField(digit);
        return (LoadWord(static_cast<const std::byte*>(pixel)) & field.GetMask()) >> field.shift;
    }

    static Result<ConvertPixelFunc> FindRearrangement(const PixelFormatFixed& source, ChannelOffsets srcOffsets,
                                                      const PixelFormatPacked& dst) {
        const auto* src = dynamic_cast<const PixelFormatPacked*>(&source);
        if (!src || !std::ranges::equal(srcOffsets, src->GetChannelOffsets()))
            return ConvertPixelFunc();
        RearrangeConversion words{0, 0};
        for (int i = 0; i < 3; ++i) {
            words.kept = static_cast<uint16_t>(words.kept | dst._layout.fields[i].GetMask());
            if (src->_layout.fields[i].GetMask() != dst._layout.fields[i].GetMask())
                return ConvertPixelFunc();
        }
        words.set = dst._layout.fields[3].GetMask();
        return ConvertPixelFunc(words);
    }

    PackedLayout _layout;
};

}  // namespace

Result<ObjectRef> CreatePackedPixelFormat(const FormatRow& row) {
    return ObjectRef(TRY(NewObj<PixelFormatPacked>(row)));
}

}  // namespace orvik
