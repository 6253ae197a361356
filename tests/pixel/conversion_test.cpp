// Direct conversions between all pairs of the general formats, against a slow composition of the rules.

#include <gmock/gmock.h>

#include "slow_formats.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<uint8_t>;

class ConversionTest : public ModuleFixture {};

/// Where the pixels of one side lie.
struct Placement {
    Int first = 0;   ///< byte of the first pixel
    Int stride = 0;  ///< bytes
    std::vector<BITS> offsets;
};
Placement PlaceDense(const SlowFormat& format) {
    const ChannelOffsets offsets = format.format->GetChannelOffsets();
    return {0, static_cast<Int>(format.GetPixelBytes()), {offsets.begin(), offsets.end()}};
}
/// Channels in reverse order with a gap of a byte after each, and space between the pixels.
Placement PlaceOddly(const SlowFormat& format, Int count, bool backwards) {
    Placement place;
    const Int channel = static_cast<Int>(format.size) + 1;
    const Int channels = static_cast<Int>(format.types.size());
    place.stride = channel * channels + 3;
    for (Int i = 0; i < channels; ++i)
        place.offsets.push_back(BITS(8 * (2 + channel * (channels - 1 - i))));
    place.offsets.push_back(BITS(8 * place.stride));
    if (backwards) {
        place.first = (count - 1) * place.stride;
        place.stride = -place.stride;
    }
    return place;
}

TEST_F(ConversionTest, EveryPairFollowsTheRulesInEveryPlacement) {
    std::vector<SlowFormat> formats;
    const Result<BaseArray<PixelFormat>> all = PixelFormats::GetAll();
    ASSERT_TRUE(all);
    for (const PixelFormat& format : *all) {
        if (IsGeneral(format))
            formats.push_back(Describe(format));
    }
    ASSERT_EQ(formats.size(), 49u);

    constexpr Int kCount = 70, kLong = 9000;  // 9000 one-byte pixels are more than one block of the composed form
    std::mt19937_64 random(7);
    int pairs = 0;
    for (const SlowFormat& src : formats) {
        std::vector<uint64_t> in(static_cast<size_t>(kCount) * src.types.size());
        for (uint64_t& value : in)
            value = RandomComponent(src.component, random);
        for (const SlowFormat& dst : formats) {
            const std::string what = TextOf(src.format->GetId()) + " to " + TextOf(dst.format->GetId());
            const bool isAlphaHalf = src.format->GetId() == Id("net.orvik.image.pixelformat.alpha.f16");
            if (isAlphaHalf && dst.types != std::vector<std::string>{"alpha"})
                continue;  // it goes channel by channel, which reaches alpha formats only
            ++pairs;
            std::vector<uint64_t> expected(static_cast<size_t>(kCount) * dst.types.size());
            for (Int i = 0; i < kCount; ++i)
                ConvertPixelSlowly(dst, &expected[static_cast<size_t>(i) * dst.types.size()], src,
                                   &in[static_cast<size_t>(i) * src.types.size()]);

            const auto check = [&](const Placement& from, const Placement& to, Int count, Int sourceStep,
                                   const char* how) {
                Bytes source(static_cast<size_t>(std::abs(from.stride) * count + 64), 0xEE);
                for (Int i = 0; i < count; ++i) {
                    for (size_t c = 0; c < src.types.size(); ++c)
                        std::memcpy(source.data() + from.first + i * from.stride + from.offsets[c].GetBytes(),
                                    &in[static_cast<size_t>(i * sourceStep % kCount) * src.types.size() + c], src.size);
                }
                const Bytes untouched(static_cast<size_t>(std::abs(to.stride) * count + 64), 0xCD);
                Bytes result = untouched, wanted = untouched;
                for (Int i = 0; i < count; ++i) {
                    for (size_t c = 0; c < dst.types.size(); ++c)
                        std::memcpy(wanted.data() + to.first + i * to.stride + to.offsets[c].GetBytes(),
                                    &expected[static_cast<size_t>(i * sourceStep % kCount) * dst.types.size() + c],
                                    dst.size);
                }
                const Result<ConvertPixelFunc> convert =
                    FindConversion(dst.format, src.format, to.offsets, from.offsets);
                ASSERT_TRUE(convert) << what;
                const BITS srcStride(sourceStep == 0 ? 0 : from.stride * 8);
                ASSERT_TRUE((*convert)({result.data() + to.first, BITS(to.stride * 8), 0}, count,
                                       {source.data() + from.first, srcStride, 0}, CONVERTPIXELFLAGS::NONE));
                ASSERT_EQ(result, wanted) << what << ", " << how << ", count " << count;
            };
            const Placement denseSrc = PlaceDense(src), denseDst = PlaceDense(dst);
            for (Int count = 0; count <= kCount; ++count)
                ASSERT_NO_FATAL_FAILURE(check(denseSrc, denseDst, count, 1, "dense"));
            check(denseSrc, denseDst, kLong, 1, "dense and long");
            check(PlaceOddly(src, kCount, false), PlaceOddly(dst, kCount, false), kCount, 1, "odd strides");
            check(PlaceOddly(src, kCount, true), denseDst, kCount, 1, "source backwards");
            check(denseSrc, PlaceOddly(dst, kCount, true), kCount, 1, "destination backwards");
            check(denseSrc, denseDst, kCount, 0, "one source pixel for all");
            check(PlaceOddly(src, 300, false), denseDst, 300, 1, "more than one block of means");
            if (testing::Test::HasFatalFailure())
                return;
        }
    }
    EXPECT_EQ(pairs, 48 * 49 + 5);
}

TEST_F(ConversionTest, CountsBelowOneTouchNothing) {
    const PixelFormat rgb = FormatOf("rgb.u8"), grey = FormatOf("grey.f32");
    const Result<ConvertPixelFunc> convert = FindConversion(rgb, grey);
    ASSERT_TRUE(convert);
    for (const Int count : {Int(0), Int(-1), std::numeric_limits<Int>::min()})
        EXPECT_TRUE((*convert)({nullptr, BITS(24), 0}, count, {nullptr, BITS(32), 0}, CONVERTPIXELFLAGS::NONE));
}

TEST_F(ConversionTest, InPlaceOfOneFormatKeepsPixels) {
    for (const char* name :
         {"rgb.u8", "rgba.f16", "greya.u16", "rgb.u565", "rgb.rgbe", "cmyk.f32", "yuv.i422a", "dynamic.redgreens16"}) {
        const PixelFormat format = FormatOf(name);
        Bytes pixels(static_cast<size_t>(format->GetBytesPerLine(70)));
        std::mt19937 random(3);
        for (uint8_t& byte : pixels)
            byte = static_cast<uint8_t>(random());
        const Bytes before = pixels;
        const PixelLine line{pixels.data(), format->GetBitsPerPixel(), 0};
        ASSERT_TRUE(format->ConvertPixelFromSlow(line, 70, line, format, nullptr, nullptr, CONVERTPIXELFLAGS::NONE))
            << name;
        EXPECT_EQ(pixels, before) << name;
    }
}

TEST_F(ConversionTest, KnownPixels) {
    const struct {
        const char* src;
        Bytes in;
        const char* dst;
        Bytes out;
    } kCases[] = {
        {"alpha.u8", {17}, "rgba.u8", {17, 17, 17, 17}},
        {"alpha.u8", {17}, "grey.u8", {0}},
        {"alpha.u8", {17}, "agrey.u8", {17, 0}},
        {"rgb.u8", {10, 10, 11}, "grey.u8", {10}},
        {"rgb.u8", {1, 2, 3}, "rgbx.u8", {1, 2, 3, 0}},
        {"rgbx.u8", {1, 2, 3, 99}, "rgbx.u8", {1, 2, 3, 0}},
        {"rgbx.u8", {1, 2, 3, 99}, "rgba.u8", {1, 2, 3, 255}},
        {"rgbx.u8", {1, 2, 3, 99}, "alpha.u8", {255}},
        {"grey.u8", {7}, "alpha.u16", {255, 255}},
        {"grey.u8", {7}, "bgra.u8", {7, 7, 7, 255}},
        {"rgba.u8", {1, 2, 3, 4}, "abgr.u8", {4, 3, 2, 1}},
        {"rgba.u8", {1, 2, 3, 4}, "greya.u8", {2, 4}},
        {"rgb.u16", {0xFF, 0x00, 0xFF, 0xFF, 0x00, 0x01}, "rgb.u8", {0, 255, 1}},
        {"rgb.u8", {1, 2, 3}, "rgba.f16", {0x04, 0x1C, 0x04, 0x20, 0x06, 0x22, 0x00, 0x3C}},
        {"grey.u8", {0}, "rgba.s32", {0, 0, 0, 0x80, 0, 0, 0, 0x80, 0, 0, 0, 0x80, 0xFF, 0xFF, 0xFF, 0x7F}},
    };
    for (const auto& entry : kCases)
        EXPECT_EQ(ConvertBytes(FormatOf(entry.dst), FormatOf(entry.src), entry.in.data(), 1), entry.out)
            << entry.src << " to " << entry.dst;
}

// --- Copies of pixels that are no whole bytes ------------------------------------------------------------------------

TEST_F(ConversionTest, SubByteCopiesKeepTheBitsBeside) {
    std::mt19937 random(11);
    for (const int width : {1, 2, 3, 4, 5, 6, 7}) {
        const PixelFormat format = FormatOf("indexed.u" + std::to_string(width) + "bit");
        const Result<ConvertPixelFunc> copy = FindConversion(format, format);
        ASSERT_TRUE(copy) << width;
        for (int srcPhase = 0; srcPhase < 8; ++srcPhase) {
            for (int dstPhase = 0; dstPhase < 8; ++dstPhase) {
                for (const int count : {1, 2, 3, 7, 8, 9, 17, 31}) {
                    Bytes source(40), target(40);
                    for (size_t i = 0; i < source.size(); ++i) {
                        source[i] = static_cast<uint8_t>(random());
                        target[i] = static_cast<uint8_t>(random());
                    }
                    const auto bits = [](const Bytes& bytes) {
                        std::string text;
                        for (const uint8_t byte : bytes) {
                            for (int bit = 7; bit >= 0; --bit)
                                text += byte >> bit & 1 ? '1' : '0';
                        }
                        return text;
                    };
                    std::string wanted = bits(target);
                    const auto length = static_cast<size_t>(width * count);
                    wanted.replace(8 + static_cast<size_t>(dstPhase), length,
                                   bits(source).substr(8 + static_cast<size_t>(srcPhase), length));
                    ASSERT_TRUE((*copy)({target.data() + 1, BITS(width), dstPhase}, count,
                                        {source.data() + 1, BITS(width), srcPhase}, CONVERTPIXELFLAGS::NONE));
                    ASSERT_EQ(bits(target), wanted)
                        << width << " bits, " << count << " pixels, phases " << srcPhase << " and " << dstPhase;
                }
            }
        }
    }
}

TEST_F(ConversionTest, PackedCopiesFollowStrides) {
    const PixelFormat format = FormatOf("rgb.u565");
    const uint8_t source[9] = {1, 2, 0xAA, 3, 4, 0xAA, 5, 6, 0xAA};
    uint8_t target[6] = {};
    const Result<ConvertPixelFunc> copy = FindConversion(format, format);
    ASSERT_TRUE(copy);
    ASSERT_TRUE((*copy)({target + 4, BITS(-16), 0}, 3, {source, BITS(24), 0}, CONVERTPIXELFLAGS::NONE));
    EXPECT_THAT(target, ElementsAre(5, 6, 3, 4, 1, 2));
}

TEST_F(ConversionTest, SharedChromaNeedsPairs) {
    const PixelFormat format = FormatOf("yuv.i422b");
    const uint8_t source[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    uint8_t target[8] = {};
    const Result<ConvertPixelFunc> copy = FindConversion(format, format);
    ASSERT_TRUE(copy);
    EXPECT_EQ(MessageOf((*copy)({target, BITS(16), 0}, 3, {source, BITS(16), 0}, CONVERTPIXELFLAGS::NONE)),
              "YUV needs an even number of pixels to convert.");
    ASSERT_TRUE((*copy)({target, BITS(16), 0}, 4, {source, BITS(16), 0}, CONVERTPIXELFLAGS::NONE));
    EXPECT_THAT(target, testing::ElementsAreArray(source));
}

}  // namespace
}  // namespace orvik
