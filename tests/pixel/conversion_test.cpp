// Direct conversions between all pairs of the general formats, against a slow composition of the rules.

#include "slow_formats.h"

namespace orvik {
namespace {

using Bytes = std::vector<uint8_t>;

class ConversionTest : public ModuleFixture {};

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
        std::vector<SlowPixel> pixels(kCount, SlowPixel(src.types.size()));
        Bytes in(kCount * src.GetPixelBytes());
        for (size_t i = 0; i < kCount; ++i) {
            for (uint64_t& value : pixels[i])
                value = RandomComponent(src.component, random);
            StorePixel(src, pixels[i], &in[i * src.GetPixelBytes()]);
        }
        for (const SlowFormat& dst : formats) {
            const std::string what = TextOf(src.format->GetId()) + " to " + TextOf(dst.format->GetId());
            if (src.format == FormatOf("alpha.f16") && dst.types != std::vector<std::string>{"alpha"})
                continue;  // it goes channel by channel, which reaches alpha formats only
            ++pairs;
            Bytes expected(kCount * dst.GetPixelBytes());
            for (size_t i = 0; i < kCount; ++i) {
                SlowPixel pixel(dst.types.size());
                ConvertPixelSlowly(dst, pixel.data(), src, pixels[i].data());
                StorePixel(dst, pixel, &expected[i * dst.GetPixelBytes()]);
            }
            const auto check = [&](const Placement& from, const Placement& to, Int count, const char* how,
                                   Int period = 70) {
                const Bytes source = Scatter(src, from, in, count, period);
                const Bytes wanted = Scatter(dst, to, expected, count, period);
                Bytes result(wanted.size(), 0xCD);
                const auto convert = FindConversion(dst.format, src.format, to.offsets, from.offsets);
                ASSERT_TRUE(convert) << what;
                ASSERT_TRUE((*convert)({result.data() + to.first, BITS(to.stride * 8)}, count,
                                       {source.data() + from.first, BITS(period == 1 ? 0 : from.stride * 8)}, {}));
                ASSERT_EQ(result, wanted) << what << ", " << how << ", count " << count;
            };
            const Placement denseSrc = PlaceDense(src.format), denseDst = PlaceDense(dst.format);
            for (Int count = 0; count <= kCount; ++count)
                ASSERT_NO_FATAL_FAILURE(check(denseSrc, denseDst, count, "dense"));
            check(denseSrc, denseDst, kLong, "dense and long");
            check(PlaceOddly(src, kCount, false), PlaceOddly(dst, kCount, false), kCount, "odd strides");
            check(PlaceOddly(src, kCount, true), denseDst, kCount, "source backwards");
            check(denseSrc, PlaceOddly(dst, kCount, true), kCount, "destination backwards");
            check(denseSrc, denseDst, kCount, "one source pixel for all", 1);
            check(PlaceOddly(src, 300, false), denseDst, 300, "more than one block of means");
            check(PlaceInPlanes(src, kCount), PlaceInPlanes(dst, kCount), kCount, "planes");
            if (HasFatalFailure())
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
        EXPECT_TRUE((*convert)({nullptr, BITS(24)}, count, {nullptr, BITS(32)}, {}));
}

TEST_F(ConversionTest, InPlaceOfOneFormatKeepsPixels) {
    Bytes before(70 * 16);
    std::generate(before.begin(), before.end(), std::mt19937(3));
    for (const char* name :
         {"rgb.u8", "rgba.f16", "greya.u16", "rgb.u565", "rgb.rgbe", "cmyk.f32", "yuv.i422a", "dynamic.redgreens16"}) {
        const PixelFormat format = FormatOf(name);
        Bytes pixels = before;
        const PixelLine line{pixels.data(), format->GetBitsPerPixel()};
        ASSERT_TRUE(format->ConvertPixelFromSlow(line, 70, line, format, nullptr, nullptr, {})) << name;
        EXPECT_EQ(pixels, before) << name;
    }
}

}  // namespace
}  // namespace orvik
