// Shared exponents, both ways.

#include <gmock/gmock.h>

#include "slow_special.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<uint8_t>;

class SpecialRgbeTest : public ModuleFixture {};

const char* const kPartners[] = {"rgb.u8", "rgb.u16", "rgb.f16", "rgb.f32", "rgb.f64"};

TEST_F(SpecialRgbeTest, EveryExponentDecodes) {
    Bytes pixels;
    for (int exponent = 0; exponent < 256; ++exponent) {
        for (int i = 0; i < 256; i += 3) {
            for (const int byte : {i, 255 - i, (i * 37 + exponent) & 255, exponent})
                pixels.push_back(uint8_t(byte));
        }
    }
    const auto count = Int(pixels.size() / 4);
    for (const char* name : kPartners) {
        const SlowFormat partner = Describe(FormatOf(name));
        Bytes wanted(size_t(count) * partner.GetPixelBytes());
        for (size_t i = 0; i < size_t(count); ++i)
            StorePixel(partner, TakeChannels(partner, slow::DecodeRgbe(&pixels[i * 4])),
                       &wanted[i * partner.GetPixelBytes()]);
        EXPECT_EQ(ConvertBytes(partner.format, FormatOf("rgb.rgbe"), pixels.data(), count), wanted) << name;
    }
}

TEST_F(SpecialRgbeTest, EveryExponentEncodes) {
    std::mt19937_64 random(9);
    std::uniform_real_distribution<float> mantissa(0.5f, 1.0f), share(-1.0f, 1.0f);
    std::vector<float> colors;
    for (int exponent = -126; exponent <= 127; ++exponent) {
        for (int i = 0; i < 60; ++i) {
            const float brightest = std::ldexp(i == 0 ? 0.5f : i == 1 ? 0x1.fffffep-1f : mantissa(random), exponent);
            float pixel[3] = {brightest * share(random), brightest * share(random), brightest * share(random)};
            pixel[i % 3] = brightest;
            colors.insert(colors.end(), pixel, pixel + 3);
        }
    }
    const auto count = Int(colors.size() / 3);
    const PixelFormat rgbe = FormatOf("rgb.rgbe"), floats = FormatOf("rgb.f32");
    for (const char* name : kPartners) {
        // The other formats get the colours that they can hold.
        const SlowFormat partner = Describe(FormatOf(name));
        const Bytes pixels = ConvertBytes(partner.format, floats, colors.data(), count);
        Bytes wanted;
        for (size_t i = 0; i < size_t(count); ++i) {
            const auto bytes =
                slow::EncodeRgbe(slow::NameChannels(partner, LoadPixel(partner, &pixels[i * partner.GetPixelBytes()])));
            wanted.insert(wanted.end(), bytes.begin(), bytes.end());
        }
        EXPECT_EQ(ConvertBytes(rgbe, partner.format, pixels.data(), count), wanted) << name;
    }
}

TEST_F(SpecialRgbeTest, SpecialValues) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity(), kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr float kGreatest = std::numeric_limits<float>::max();
    const struct {
        float in[3];
        Bytes out;
    } kCases[] = {
        {{0, 0, 0}, {0, 0, 0, 0}},
        {{1e-32f, 1e-32f, 0}, {0, 0, 0, 0}},
        {{-1, -1, -1}, {0, 0, 0, 0}},
        {{1, 0.5f, 0.25f}, {127, 63, 31, 129}},
        {{1, -0.5f, 0}, {127, 193, 0, 129}},
        {{1, -1e30f, -kInfinity}, {127, 0, 0, 129}},
        {{kNan, 1, 0}, {0, 127, 0, 129}},
        {{kNan, kNan, kNan}, {0, 0, 0, 0}},
        {{kInfinity, 1, kGreatest}, {255, 0, 255, 255}},
        {{0x1p127f, 0x1p126f, 0}, {255, 127, 0, 255}},
    };
    for (const auto& entry : kCases)
        EXPECT_EQ(ConvertBytes(FormatOf("rgb.rgbe"), FormatOf("rgb.f32"), entry.in, 1), entry.out)
            << entry.in[0] << " " << entry.in[1] << " " << entry.in[2];
    const float aboveLimit[3] = {std::nextafter(1e-32f, 1.0f), 0, 0};
    EXPECT_THAT(ConvertBytes(FormatOf("rgb.rgbe"), FormatOf("rgb.f32"), aboveLimit, 1), ElementsAre(207, 0, 0, 22));
}

}  // namespace
}  // namespace orvik
