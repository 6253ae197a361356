// Inks to colours and back, inverted inks, alpha beside.

#include <gmock/gmock.h>

#include "slow_special.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<uint8_t>;

const char* const kColorPartners[] = {"rgb.u8",  "rgba.u8", "rgbx.u8",  "argb.u8", "xrgb.u8",  "bgr.u8",  "bgra.u8",
                                      "bgrx.u8", "rgb.u16", "rgba.u16", "rgb.f32", "rgba.f32", "rgb.f64", "rgba.f64"};
const char* const kFamilies[] = {"cmyk", "acmyk", "cmyk_inv", "acmyk_inv"};
const char* const kVariants[] = {"u8", "u16", "f32"};

class SpecialCmykTest : public ModuleFixture {
protected:
    /// Pixels over a grid that has 0, 1, close neighbours of both and values outside.
    static Bytes MakeGrid(const SlowFormat& format) {
        std::vector<uint64_t> steps;
        const bool isFloat = slow::IsFloat(format.component);
        for (const double value : {0.0, 1.0, 1 / 255.0, 254 / 255.0, 0.2501, 0.5, -0.25, 1.5}) {
            if (isFloat)
                steps.push_back(slow::EncodeFloat(format.component, value));
            else if (value >= 0 && value <= 1)
                steps.push_back(static_cast<uint64_t>(value * static_cast<double>(slow::MaskOf(format.component))));
        }
        std::vector<SlowPixel> pixels = {SlowPixel()};
        for (size_t c = 0; c < format.types.size(); ++c) {
            std::vector<SlowPixel> longer;
            for (const SlowPixel& pixel : pixels) {
                const size_t first = c < 4 ? 0 : 1, last = c < 4 ? steps.size() : 3;  // two alphas are enough
                for (size_t s = first; s < last; ++s) {
                    longer.push_back(pixel);
                    longer.back().push_back(steps[s]);
                }
            }
            pixels = std::move(longer);
        }
        Bytes bytes(pixels.size() * format.GetPixelBytes());
        for (size_t i = 0; i < pixels.size(); ++i)
            StorePixel(format, pixels[i], &bytes[i * format.GetPixelBytes()]);
        return bytes;
    }
    /// Compares a conversion of the grid with what `evaluate` makes of the channels.
    template <class Evaluate>
    static void Check(const std::string& dstName, const std::string& srcName, Evaluate evaluate) {
        const SlowFormat src = Describe(FormatOf(srcName)), dst = Describe(FormatOf(dstName));
        const Bytes in = MakeGrid(src);
        const size_t count = in.size() / src.GetPixelBytes();
        ASSERT_GT(count, 200u);
        Bytes wanted(count * dst.GetPixelBytes());
        for (size_t i = 0; i < count; ++i) {
            const slow::Channels named = slow::NameChannels(src, LoadPixel(src, &in[i * src.GetPixelBytes()]));
            StorePixel(dst, TakeChannels(dst, evaluate(named)), &wanted[i * dst.GetPixelBytes()]);
        }
        ASSERT_EQ(ConvertBytes(dst.format, src.format, in.data(), static_cast<Int>(count)), wanted)
            << srcName << " to " << dstName;
    }
};

TEST_F(SpecialCmykTest, EveryPartnerOverTheGrid) {
    for (const std::string family : kFamilies) {
        const bool inverted = family.find("_inv") != std::string::npos;
        for (const std::string variant : kVariants) {
            for (const char* partner : kColorPartners) {
                const std::string inks = family + "." + variant;
                Check(partner, inks, [](const slow::Channels& channels) { return slow::DecodeInks(channels); });
                Check(inks, partner,
                      [inverted](const slow::Channels& channels) { return slow::EncodeInks(channels, inverted); });
            }
        }
    }
}

TEST_F(SpecialCmykTest, InversionAmongInks) {
    for (const std::string alpha : {"", "a"}) {
        for (const std::string a : kVariants) {
            for (const std::string b : kVariants) {
                const std::string plain = alpha + "cmyk." + a, inverted = alpha + "cmyk_inv." + b;
                const auto type = Describe(FormatOf(inverted)).component, back = Describe(FormatOf(plain)).component;
                Check(inverted, plain, [type](const slow::Channels& inks) { return slow::InvertInks(inks, type); });
                Check(plain, inverted, [back](const slow::Channels& inks) { return slow::InvertInks(inks, back); });
            }
        }
    }
}

TEST_F(SpecialCmykTest, KnownPixels) {
    const struct {
        const char* src;
        Bytes in;
        const char* dst;
        Bytes out;
    } kCases[] = {
        {"rgb.u8", {0, 0, 0}, "cmyk.u8", {0, 0, 0, 255}},
        {"rgb.u8", {255, 255, 255}, "cmyk.u8", {0, 0, 0, 0}},
        {"rgb.u8", {255, 0, 0}, "cmyk.u8", {0, 255, 255, 0}},
        {"rgb.u8", {0, 0, 0}, "cmyk_inv.u8", {255, 255, 255, 0}},
        {"rgba.u8", {255, 255, 255, 7}, "acmyk.u8", {0, 0, 0, 0, 7}},
        {"rgba.u8", {255, 255, 255, 7}, "acmyk_inv.u8", {255, 255, 255, 255, 7}},
        {"rgb.u8", {255, 255, 255}, "acmyk.u16", {0, 0, 0, 0, 0, 0, 0, 0, 255, 255}},
        {"cmyk.u8", {0, 0, 0, 255}, "rgb.u8", {0, 0, 0}},
        {"cmyk.u8", {255, 0, 0, 0}, "rgbx.u8", {0, 255, 255, 0}},
        {"acmyk.u8", {0, 0, 0, 0, 9}, "bgra.u8", {255, 255, 255, 9}},
        {"acmyk.u8", {0, 0, 0, 0, 9}, "rgb.u8", {255, 255, 255}},
        {"cmyk_inv.u8", {1, 2, 3, 4}, "cmyk.u8", {254, 253, 252, 251}},
        {"acmyk.u8", {1, 2, 3, 4, 5}, "acmyk_inv.u8", {254, 253, 252, 251, 5}},
        {"cmyk.u8", {0, 0, 0, 255}, "grey.u8", {0}},                           // through RGB
        {"cmyk_inv.u8", {255, 0, 0, 255}, "acmyk.u8", {0, 255, 255, 0, 255}},  // through RGB
    };
    for (const auto& entry : kCases)
        EXPECT_EQ(ConvertBytes(FormatOf(entry.dst), FormatOf(entry.src), entry.in.data(), 1), entry.out)
            << entry.src << " to " << entry.dst;
}

TEST_F(SpecialCmykTest, OddFloatsGiveSomePixel) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity(), kNan = std::numeric_limits<float>::quiet_NaN();
    const float inks[4] = {kNan, kInfinity, -kInfinity, 0};
    EXPECT_THAT(ConvertBytes(FormatOf("rgb.u8"), FormatOf("cmyk.f32"), inks, 1), ElementsAre(0, 0, 255));
    const float dark[3] = {-1, -2, 0};  // no light, so no colour
    EXPECT_THAT(ConvertBytes(FormatOf("cmyk.u8"), FormatOf("rgb.f32"), dark, 1), ElementsAre(0, 0, 0, 255));
    const float colors[3] = {kInfinity, kNan, 0};
    EXPECT_EQ(ConvertBytes(FormatOf("cmyk.u8"), FormatOf("rgb.f32"), colors, 1).size(), 4u);
}

TEST_F(SpecialCmykTest, PlanesAndGaps) {
    const PixelFormat inks = FormatOf("acmyk.u8"), colors = FormatOf("rgba.u8");
    constexpr size_t kCount = 600;
    Bytes dense(kCount * 5), planes(kCount * 5);
    std::mt19937 random(2);
    for (size_t i = 0; i < dense.size(); ++i) {
        dense[i] = static_cast<uint8_t>(random());
        planes[i % 5 * kCount + i / 5] = dense[i];
    }
    std::vector<BITS> offsets;
    for (Int c = 0; c < 5; ++c)
        offsets.push_back(BITS(c * Int(kCount) * 8));
    offsets.push_back(BITS(8));
    const Bytes wanted = ConvertBytes(colors, inks, dense.data(), kCount);
    const Result<ConvertPixelFunc> decode = FindConversion(colors, inks, colors->GetChannelOffsets(), offsets);
    const Result<ConvertPixelFunc> encode = FindConversion(inks, colors, offsets, colors->GetChannelOffsets());
    ASSERT_TRUE(decode && encode);
    Bytes out(kCount * 4), back(kCount * 5);
    ASSERT_TRUE((*decode)({out.data(), BITS(32), 0}, kCount, {planes.data(), BITS(8), 0}, CONVERTPIXELFLAGS::NONE));
    EXPECT_EQ(out, wanted);
    ASSERT_TRUE((*encode)({back.data(), BITS(8), 0}, kCount, {out.data(), BITS(32), 0}, CONVERTPIXELFLAGS::NONE));
    const Bytes encoded = ConvertBytes(inks, colors, out.data(), kCount);
    for (size_t i = 0; i < encoded.size(); ++i)
        ASSERT_EQ(back[i % 5 * kCount + i / 5], encoded[i]) << i;
}

}  // namespace
}  // namespace orvik
