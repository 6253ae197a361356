// Profiles baked out of a colour processor.

#include <cmath>
#include <gmock/gmock.h>

#include "profile_tools.h"

#include "orvik/crc32c.h"
#include "orvik/gfx_image_oiioprocessor.h"

namespace orvik {
namespace {

/// Three channels with one gamma in front of the primaries of sRGB, as seen from D50.
class GammaProcessor final : public virtual OiioProcessorInterface {
public:
    explicit GammaProcessor(float gamma, int failAt = -1) : _gamma(gamma), _failAt(failAt) {}
    String GetName() const override { return "Gamma \u00BD"; }
    String GetCopyright() const override { return "Test department"; }
    Result<Triple> Forward(const Triple& rgb) const override {
        if (_failAt-- == 0)
            return UnexpectedError("The lamp is broken.");
        Triple xyz{};
        for (size_t i = 0; i < 3; ++i) {
            for (size_t c = 0; c < 3; ++c)
                xyz[i] += kToXyz[i][c] * std::pow(rgb[c], _gamma);
        }
        return xyz;
    }
    Result<Triple> Inverse(const Triple& xyz) const override {
        if (_failAt-- == 0)
            return UnexpectedError("The lamp is broken.");
        Triple rgb{};
        for (size_t c = 0; c < 3; ++c) {
            float linear = 0;
            for (size_t i = 0; i < 3; ++i)
                linear += kToRgb[c][i] * xyz[i];
            rgb[c] = std::pow(linear, 1 / _gamma);  // NaN below 0
        }
        return rgb;
    }

private:
    static constexpr float kToXyz[3][3] = {{0.4360747f, 0.3850649f, 0.1430804f},
                                           {0.2225045f, 0.7168786f, 0.0606169f},
                                           {0.0139322f, 0.0971045f, 0.7141733f}};
    static constexpr float kToRgb[3][3] = {{3.1338561f, -1.6168667f, -0.4906146f},
                                           {-0.9787684f, 1.9161415f, 0.0334540f},
                                           {0.0719453f, -0.2289914f, 1.4052427f}};
    float _gamma;
    mutable int _failAt;
};

class BakedProfileTest : public ModuleFixture {
protected:
    static OiioProcessor Processor(float gamma, int failAt = -1) {
        return NewObj<GammaProcessor>(gamma, failAt).GetValueOr(nullptr);
    }
};

TEST_F(BakedProfileTest, TheHeaderAndTheTexts) {
    const Result<ColorProfile> baked = ColorProfile::BakeFromProcessor(Processor(2.2f));
    ASSERT_TRUE(baked) << MessageOf(baked);
    EXPECT_EQ(TextOf(baked->ToString()), "\"Gamma \u00BD\". Baked by Orvik OIIO.");
    EXPECT_EQ(TextOf(*baked->GetInfo(COLORPROFILEINFO::COPYRIGHT)), "Test department");
    EXPECT_EQ(baked->GetColorSpace()->GetId(), colorspaces::kRgb);
    const Result<Block<const std::byte>> bytes = baked->WriteProfileToMemory();
    ASSERT_TRUE(bytes && bytes->size() > 2 * 6 * 32 * 32 * 32) << "two tables of 32 points an axis in 16 bits";
    const auto at = [&](size_t offset) {
        return std::string(reinterpret_cast<const char*>(bytes->data()) + offset, 4);
    };
    EXPECT_EQ(at(8), std::string("\x04\x20\0\0", 4)) << "version";
    EXPECT_EQ(at(12) + at(16) + at(20), "mntrRGB Lab ");
    EXPECT_EQ(at(64), std::string(4, '\0')) << "rendering intent";
    const BareProfile bare(*baked);
    for (const auto tag : {cmsSigAToB0Tag, cmsSigBToA0Tag}) {
        EXPECT_TRUE(cmsIsTag(bare.handle, tag));
        const auto* pipeline = static_cast<const cmsPipeline*>(cmsReadTag(bare.handle, tag));
        ASSERT_TRUE(pipeline);
        EXPECT_EQ(cmsPipelineStageCount(pipeline), 5u);
    }
    // No date and no address gets in.
    const Result<ColorProfile> again = ColorProfile::BakeFromProcessor(Processor(2.2f));
    ASSERT_TRUE(again);
    EXPECT_EQ(again->GetEntry(), baked->GetEntry());
    EXPECT_EQ(baked->GetCrc(), ComputeCrc32c(*bytes));
}

TEST_F(BakedProfileTest, BothDirectionsFollowTheProcessor) {
    const Result<ColorProfile> baked = ColorProfile::BakeFromProcessor(Processor(1.8f));
    ASSERT_TRUE(baked) << MessageOf(baked);
    const Result<ColorProfile> exact = ColorProfile::OpenProfileFromMemory(MakeGammaProfile(1.8));
    ASSERT_TRUE(exact);
    const ColorProfile srgb = colorprofiles::Get(colorprofiles::kSrgb);
    const PixelFormat rgb = FormatOf("rgb.u8");
    std::vector<uint8_t> colors;
    for (int i = 0; i < 512; ++i) {  // away from the dark corner, where a table of 32 points is coarse
        for (const int digit : {i % 8, i / 8 % 8, i / 64})
            colors.push_back(uint8_t(60 + 195 * digit / 7));
    }
    const auto convert = [&](const ColorProfile& from, const ColorProfile& to) {
        std::vector<uint8_t> out(colors.size());
        const ColorProfileConvert transform = CreateConvert();
        EXPECT_TRUE(
            transform
                ->Init(rgb, from, rgb, to, COLORCONVERSIONINTENT::RELATIVE_COLORIMETRIC, COLORCONVERSIONFLAGS::NONE)
                .GetValueOr(false));
        EXPECT_TRUE(transform->Convert({out.data(), BITS(24)}, {colors.data(), BITS(24)}, 512));
        return out;
    };
    const auto largest = [](const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
        int most = 0;
        for (size_t i = 0; i < a.size(); ++i)
            most = std::max(most, std::abs(a[i] - b[i]));
        return most;
    };
    EXPECT_LE(largest(convert(*baked, srgb), convert(*exact, srgb)), 3);
    EXPECT_LE(largest(convert(srgb, *baked), convert(srgb, *exact)), 12);
    EXPECT_GT(largest(convert(srgb, *exact), colors), 12) << "the profiles differ enough to show an error";
}

TEST_F(BakedProfileTest, AFailingProcessorStopsTheBaking) {
    for (const int failAt : {0, 100, 32 * 32 * 32, 40000})
        EXPECT_EQ(MessageOf(ColorProfile::BakeFromProcessor(Processor(2.2f, failAt))), "The lamp is broken.") << failAt;
    EXPECT_FALSE(ColorProfile::BakeFromProcessor(OiioProcessor()));
    const auto provider = FindPublished<OiioProcessorInterface>(OiioProcessorInterface::kInterfaceId);
    EXPECT_FALSE(ColorProfile::BakeFromProcessor(provider)) << "none ships";
}

}  // namespace
}  // namespace orvik
