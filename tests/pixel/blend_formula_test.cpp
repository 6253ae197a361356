// What the modes compute: numbers by hand, a grid against long double, special values, and every instruction set
// against the loop over single pixels.

#include <gmock/gmock.h>
#include <limits>
#include <random>
#include <set>

#include "blend_tools.h"
#include "level_scope.h"
#include "pixel/blend/gfx_image_pixelblend_kernels.h"

namespace orvik {
namespace {

class BlendFormulaTest : public ModuleFixture {};

TEST_F(BlendFormulaTest, OpaqueValuesByHand) {
    struct Value {
        double b, f, expected;
    };
    const std::map<std::string, std::vector<Value>> kCases = {
        {"over", {{0.25, 0.75, 0.75}}},
        {"passfolder", {{0.25, 0.75, 0.75}}},
        {"dissolve", {{0.25, 0.75, 0.75}}},
        {"darken", {{0.25, 0.75, 0.25}}},
        {"lighten", {{0.25, 0.75, 0.75}}},
        {"multiply", {{0.5, 0.25, 0.125}}},
        {"screen", {{0.5, 0.5, 0.75}}},
        {"lineardodge", {{0.75, 0.75, 1}}},
        {"add", {{0.75, 0.75, 1.5}}},
        {"subtract", {{0.25, 0.75, -0.5}}},
        {"difference", {{0.25, 0.75, 0.5}}},
        {"exclusion", {{0.5, 0.25, 0.5}}},
        {"average", {{0.25, 0.75, 0.5}}},
        {"overlay", {{0.25, 0.5, 0.25}, {0.5, 0.25, 0.25}, {0.75, 0.25, 0.625}}},
        {"hardlight", {{0.5, 0.25, 0.25}, {0.25, 0.75, 0.625}}},
        {"softlight", {{0.5, 0.5, 0.5}, {0.25, 0.5, 0.375}}},
        {"colorburn", {{0.75, 0.5, 0.5}, {0.25, 0.5, 0}, {1, 0, 0}}},
        {"colordodge", {{0.25, 0.5, 0.5}, {0.75, 0.5, 1}, {0, 1, 1}}},
        {"linearburn", {{0.75, 0.5, 0.25}, {0.25, 0.5, 0}}},
        {"stamp", {{0.25, 0.5, 0.25}, {1, 1, 1}, {0, 0.25, 0}}},
        {"pinlight", {{0.75, 0.25, 0.5}, {0.25, 0.75, 0.5}, {0.75, 0.75, 0.75}}},
        {"hardmix", {{0.5, 0.75, 1}, {0.25, 0.875, 1}, {0.5, 1, 1}, {1, 0, 1}, {0, 0.5, 0}, {0.5, 0.5, 0}}},
        {"vividlight", {{0.75, 0.25, 0.5}, {1, 0, 0}, {0.25, 0.75, 0.5}, {0, 1, 1}}},
        {"divide", {{0.25, 0.5, 0.5}, {0.75, 0.5, 1.5}, {0.75, 0, 0.75}, {0.75, 0.00005, 0.75}}},
        {"freeze", {{0.5, 0.5, 0.5}, {1, 0, 0}}},
        {"heat", {{0.5, 0.5, 0.5}, {0, 1, 0}}},
        {"glow", {{0.5, 0.5, 0.5}, {1, 0, 1}, {0.99995, 0, 1}}},
        {"reflect", {{0.5, 0.5, 0.5}, {0, 1, 1}}},
        {"hypot", {{0.75, 1, 1.25}}},
        {"xor", {{1, 0.5, 128.0 / 255}, {0.5, 0.5, 0}, {2, 1, (510 ^ 255) / 255.0}}},
    };
    for (const auto& [mode, values] : kCases) {
        for (const auto& [b, f, expected] : values) {
            SCOPED_TRACE(testing::Message() << mode << " b " << b << " f " << f);
            const auto bf = float(b), ff = float(f);
            EXPECT_DOUBLE_EQ(Blend<double>(mode, {b, b, b, 1}, {f, f, f, 1}, 1)[1], expected);
            EXPECT_FLOAT_EQ(Blend<float>(mode, {bf, bf, bf, 1}, {ff, ff, ff, 1}, 1)[2], float(expected));
        }
    }
    EXPECT_EQ(kCases.size(), ChannelRules().size());
}

TEST_F(BlendFormulaTest, WholePixelsByHand) {
    using P = std::vector<double>;
    const P red{1, 0, 0, 1}, olive{0.5, 0.5, 0.25, 1}, grey{0.5, 0.5, 0.5, 1}, black{0, 0, 0, 1};
    const std::tuple<const char*, P, P, P> kCases[] = {
        // olive: hue 60 degrees, saturation 1/3, lightness 3/8
        {"hue", olive, red, {0.5, 0.25, 0.25, 1}},
        {"saturation", olive, red, {0.75, 0.75, 0, 1}},
        {"color", olive, red, {0.75, 0, 0, 1}},
        {"luminance", red, olive, {0.75, 0, 0, 1}},
        {"luminance", olive, grey, {2.0 / 3, 2.0 / 3, 1.0 / 3, 1}},
        {"hue", red, grey, {1, 0, 0, 1}},  // grey has hue 0, which is red
        {"saturation", red, grey, {0.5, 0.5, 0.5, 1}},
        {"color", black, red, black},
        {"darker", olive, red, red},
        {"lighter", olive, red, olive},
        {"darker", {0.5, 0, 0, 1}, {0.5, 0, 0, 0.5}, {0.5, 0, 0, 1}},
        {"levr", grey, red, {1, 1, 1, 1}},
        {"levr", red, {0.25, 1, 1, 1}, black},
    };
    for (const auto& [mode, b, f, expected] : kCases) {
        const P out = Blend<double>(mode, b, f, 1);
        for (int i = 0; i < 4; ++i)
            EXPECT_NEAR(out[i], expected[i], 1e-15) << mode << " channel " << i;
    }
}

/// Every pair of values and alphas, other values in each channel. Sums and products of the values are exact in float,
/// so that comparisons fall the same way at any precision.
template <class T>
void CompareWithReals(const std::string& mode, double opacity) {
    const std::vector<T> values = {T(0), T(0.00005), T(0.0002), T(0.125),  T(0.25), T(0.484375), T(0.5), T(0.625),
                                   T(1), T(0.75),    T(0.875),  T(0.9375), T(1.5),  T(-0.25),    T(2.25)};
    const std::vector<T> alphas = {T(0), T(0.25), T(0.875), T(1), T(1.25), T(-0.5)};
    std::vector<T> bg, fg;
    for (size_t i = 0; i < values.size(); ++i) {
        for (size_t j = 0; j < values.size(); ++j) {
            for (const T backAlpha : alphas) {
                for (const T frontAlpha : alphas) {
                    const auto at = [&](size_t index) { return values[index % values.size()]; };
                    bg.insert(bg.end(), {at(i), at(i + 3), at(i + 7), backAlpha});
                    fg.insert(fg.end(), {at(j), at(j + 5), at(j + 11), frontAlpha});
                }
            }
        }
    }
    const std::vector<T> out = Blend(mode, bg, fg, opacity);
    ASSERT_EQ(out.size(), bg.size());
    constexpr Real kTolerance = 24 * Real(std::numeric_limits<T>::epsilon());
    for (size_t i = 0; i < out.size(); i += 4) {
        const RealPixel expected = BlendReal(mode, &bg[i], &fg[i], opacity);
        for (int c = 0; c < 4; ++c) {
            const Real want = expected.c[c];
            if (!std::isfinite(want))
                continue;  // the result has alpha 0 although the source has not: only alphas out of range give that
            ASSERT_LE(std::fabs(out[i + c] - want), kTolerance * expected.magnitude)
                << mode << " channel " << c << " gives " << out[i + c] << " instead of " << want << " opacity "
                << opacity << " bg " << bg[i] << " " << bg[i + 1] << " " << bg[i + 2] << " " << bg[i + 3] << " fg "
                << fg[i] << " " << fg[i + 1] << " " << fg[i + 2] << " " << fg[i + 3];
        }
    }
}

TEST_F(BlendFormulaTest, MatchesEvaluationInHigherPrecision) {
    for (const std::string& mode : FrameModes()) {
        for (const double opacity : {0.0, 0.5, 1.0}) {
            CompareWithReals<float>(mode, opacity);
            CompareWithReals<double>(mode, opacity);
        }
    }
}

TEST_F(BlendFormulaTest, TransparentForegroundKeepsTheBackgroundsBits) {
    const float nan = std::numeric_limits<float>::quiet_NaN(), infinity = std::numeric_limits<float>::infinity();
    const std::vector<float> bg = {0.3f, -0.0f, nan, 0.7f, infinity, 1e30f, -2, 0, 0.1f, 0.2f, 0.3f, nan};
    const std::vector<float> transparent = {nan, infinity, 0, 0, 0.5f, -1, 7, -0.0f, nan, nan, nan, 0};
    const std::vector<float> opaque = {nan, infinity, 0, 1, 0.5f, -1, 7, 1, nan, nan, nan, nan};
    for (const std::string& mode : FrameModes()) {
        const std::vector<float> kept = Blend(mode, bg, transparent, 1), zero = Blend(mode, bg, opaque, 0);
        EXPECT_EQ(std::memcmp(kept.data(), bg.data(), bg.size() * sizeof(float)), 0) << mode;
        EXPECT_EQ(std::memcmp(zero.data(), bg.data(), bg.size() * sizeof(float)), 0) << mode;
    }
}

TEST_F(BlendFormulaTest, TransparentBackgroundGivesTheForeground) {
    const std::vector<double> bg = {0.25, 0.5, 0.75, 0}, fg = {0.1, 0.6, 0.9, 0.8};
    for (const std::string& mode : FrameModes()) {
        EXPECT_THAT(Blend(mode, bg, fg, 1), testing::ElementsAre(0.1, 0.6, 0.9, 0.8)) << mode;
        EXPECT_THAT(Blend(mode, bg, fg, 0.5), testing::ElementsAre(0.1, 0.6, 0.9, 0.4)) << mode;
    }
}

TEST_F(BlendFormulaTest, NaNStaysInItsChannel) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<double> bg = {0.25, 0.5, 0.75, 0.5}, fg = {0.5, 0.625, 0.125, 0.75};
    for (const auto& [mode, rule] : ChannelRules()) {
        const std::vector<double> clean = Blend(mode, bg, fg, 1);
        for (int channel = 0; channel < 3; ++channel) {
            for (const bool front : {false, true}) {
                std::vector<double> back = bg, over = fg;
                (front ? over : back)[channel] = nan;
                const std::vector<double> out = Blend(mode, back, over, 1);
                for (int c = 0; c < 4; ++c) {
                    if (c == channel)
                        EXPECT_TRUE(std::isnan(out[c])) << mode;
                    else
                        EXPECT_EQ(out[c], clean[c]) << mode;
                }
            }
        }
        const std::vector<double> lost = Blend(mode, bg, {0.5, 0.625, 0.125, nan}, 1);
        EXPECT_TRUE(std::isnan(lost[0]) && std::isnan(lost[1]) && std::isnan(lost[2]) && std::isnan(lost[3])) << mode;
    }
}

// --- Instruction sets ------------------------------------------------------------------------------------------------

/// Ordinary values, with one in eight a special.
template <class T>
std::vector<T> MakeWildPixels(size_t count, unsigned seed) {
    using Limits = std::numeric_limits<T>;
    const double kSpecials[] = {0,
                                -0.0,
                                1,
                                0.5,
                                -1,
                                2,
                                0.0001,
                                1e-30,
                                1e30,
                                Limits::infinity(),
                                -Limits::infinity(),
                                Limits::quiet_NaN(),
                                Limits::denorm_min(),
                                Limits::max(),
                                Limits::lowest(),
                                T(1) - Limits::epsilon()};
    std::mt19937 random(seed);
    std::vector<T> out(count * 4);
    for (T& value : out)
        value = random() % 8 ? T(random() % 4096) / T(4095) : T(kSpecials[random() % std::size(kSpecials)]);
    return out;
}

template <class T>
void CompareLevels(const std::string& mode, size_t count, double opacity) {
    const std::vector<T> bg = MakeWildPixels<T>(count, 1), fg = MakeWildPixels<T>(count, 2);
    const auto blend = FindBlend(mode, RgbaFormat<T>(), RgbaFormat<T>(), opacity);
    ASSERT_TRUE(blend);
    // Single pixels: destination with a gap of one component, so that the lines are not contiguous.
    std::vector<T> gaps(count * 5, T(7));
    constexpr BITS kStride{sizeof(T) * 32}, kGapStride{sizeof(T) * 40};
    ASSERT_TRUE((*blend)({gaps.data(), kGapStride}, {bg.data(), kStride}, {fg.data(), kStride}, Int(count),
                         BLENDPIXELFLAGS::NONE));
    enum class Into { Other, Background, Foreground };
    for (const Into into : {Into::Other, Into::Background, Into::Foreground}) {
        std::vector<T> out(count * 4 + 4, T(7)), back = bg, front = fg;
        back.resize(count * 4 + 4, T(7));
        front.resize(count * 4 + 4, T(7));
        std::vector<T>& target = into == Into::Other ? out : into == Into::Background ? back : front;
        ASSERT_TRUE((*blend)({target.data(), kStride}, {back.data(), kStride}, {front.data(), kStride}, Int(count),
                             BLENDPIXELFLAGS::NONE));
        for (size_t i = 0; i < count * 4; ++i)
            ASSERT_TRUE(SameBits(target[i], gaps[i / 4 * 5 + i % 4]))
                << mode << " of " << count << " pixels, component " << i << ": " << target[i] << " instead of "
                << gaps[i / 4 * 5 + i % 4] << ", bg " << bg[i] << " fg " << fg[i];
        for (size_t i = count * 4; i < target.size(); ++i)
            ASSERT_EQ(target[i], T(7)) << "written behind the run";
    }
    for (size_t i = 4; i < gaps.size(); i += 5)
        ASSERT_EQ(gaps[i], T(7)) << "written between pixels";
}

TEST_F(BlendFormulaTest, EveryLevelMatchesSinglePixels) {
    std::set<pixel::BlendKernel<float>> kernels;
    for (const pixel::KernelSet* level : pixel::GetKernelSets()) {
        const LevelScope scope(*level);
        SCOPED_TRACE(level->name);
        const auto kernel = pixel::GetBlendKernel<float>(pixel::BlendFormula::Multiply);
        const std::string name = level->name;
        ASSERT_EQ(kernel == nullptr, name == "scalar" || name == "ssse3");
        if (kernel && name != "avx3_dl") {  // which runs the vectors of avx3
            EXPECT_TRUE(kernels.insert(kernel).second) << "each level has kernels of its own";
        }
        for (const std::string& mode : FrameModes()) {
            for (const double opacity : {0.3, 1.0}) {
                CompareLevels<float>(mode, 1003, opacity);
                CompareLevels<double>(mode, 1003, opacity);
            }
        }
        for (size_t count = 0; count <= 130; ++count) {
            for (const char* mode : {"over", "vividlight", "hue"}) {
                CompareLevels<float>(mode, count, 0.75);
                CompareLevels<double>(mode, count, 0.75);
            }
        }
    }
}

}  // namespace
}  // namespace orvik
