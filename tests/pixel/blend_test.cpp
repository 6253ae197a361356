// Blend modes against long double, and on every instruction set against the loop over single pixels.

#include <gmock/gmock.h>
#include <limits>
#include <numeric>
#include <set>
#include <utility>

#include "blend_tools.h"
#include "level_scope.h"
#include "pixel/blend/gfx_image_pixelblend_kernels.h"
#include "slow_formats.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Bytes = std::vector<uint8_t>;

class BlendTest : public ModuleFixture {};

const PixelLine kNone{nullptr, BITS()};

/// Every pair of values and alphas: other values in each channel, grey below colours, and below grey two equal
/// channels. Sums and products of the values are exact in float, so that comparisons fall the same way at any
/// precision.
template <class T>
void CompareWithReals(const std::string& mode, double opacity) {
    const std::vector<T> values = {T(0), T(0.00005), T(0.0002), T(0.125),  T(0.25), T(0.484375), T(0.5),   T(0.625),
                                   T(1), T(0.75),    T(0.875),  T(0.9375), T(1.5),  T(0.99993),  T(-0.25), T(2.25)};
    const std::vector<T> alphas = {T(0), T(0.25), T(0.875), T(1), T(1.25), T(-0.5)};
    std::vector<T> bg, fg;
    const auto at = [&](size_t index) { return values[index % values.size()]; };
    constexpr size_t kSteps[][4] = {{3, 7, 5, 11}, {0, 0, 5, 11}, {3, 3, 0, 0}};
    for (const auto& [bgGreen, bgBlue, fgGreen, fgBlue] : kSteps) {
        for (size_t pair = 0; pair < values.size() * values.size() * alphas.size() * alphas.size(); ++pair) {
            const size_t i = pair % values.size(), j = pair / values.size() % values.size();
            if (bgGreen == 0 && i == j)
                continue;  // as bright as each other, but for rounding
            const size_t alpha = pair / values.size() / values.size();
            bg.insert(bg.end(), {at(i), at(i + bgGreen), at(i + bgBlue), alphas[alpha % alphas.size()]});
            fg.insert(fg.end(), {at(j), at(j + fgGreen), at(j + fgBlue), alphas[alpha / alphas.size()]});
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
                << mode << " channel " << c << " gives " << out[i + c] << " instead of " << want << ", opacity "
                << opacity << ", bg and fg "
                << testing::PrintToString(
                       std::vector<T>{bg[i], bg[i + 1], bg[i + 2], bg[i + 3], fg[i], fg[i + 1], fg[i + 2], fg[i + 3]});
        }
    }
}

TEST_F(BlendTest, MatchesEvaluationInHigherPrecision) {
    for (const std::string& mode : FrameModes()) {
        for (const double opacity : {0.0, 0.5, 1.0}) {
            CompareWithReals<float>(mode, opacity);
            CompareWithReals<double>(mode, opacity);
        }
    }
}

TEST_F(BlendTest, TransparencyKeepsTheOthersBits) {
    const float nan = std::numeric_limits<float>::quiet_NaN(), infinity = std::numeric_limits<float>::infinity();
    const std::vector<float> bg = {0.3f, -0.0f, nan, 0.7f, infinity, 1e30f, -2, 0, 0.1f, 0.2f, 0.3f, nan};
    const std::vector<float> transparent = {nan, infinity, 0, 0, 0.5f, -1, 7, -0.0f, nan, nan, nan, 0};
    const std::vector<float> opaque = {nan, infinity, 0, 1, 0.5f, -1, 7, 1, nan, nan, nan, nan};
    const std::vector<double> clear = {0.25, 0.5, 0.75, 0}, fg = {0.1, 0.6, 0.9, 0.8};
    for (const std::string& mode : FrameModes()) {
        for (const std::vector<float>& kept : {Blend(mode, bg, transparent, 1), Blend(mode, bg, opaque, 0)})
            EXPECT_EQ(std::memcmp(kept.data(), bg.data(), bg.size() * sizeof(float)), 0) << mode;
        EXPECT_THAT(Blend(mode, clear, fg, 1), ElementsAre(0.1, 0.6, 0.9, 0.8)) << mode;
        EXPECT_THAT(Blend(mode, clear, fg, 0.5), ElementsAre(0.1, 0.6, 0.9, 0.4)) << mode;
    }
}

TEST_F(BlendTest, NaNStaysInItsChannel) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<double> bg = {0.25, 0.5, 0.75, 0.5}, fg = {0.5, 0.625, 0.125, 0.75};
    for (const auto& [mode, rule] : ChannelRules()) {
        const std::vector<double> clean = Blend(mode, bg, fg, 1);
        for (int channel = 0; channel < 3; ++channel) {
            for (const bool front : {false, true}) {
                std::vector<double> back = bg, over = fg;
                (front ? over : back)[channel] = nan;
                std::vector<double> out = Blend(mode, back, over, 1);
                EXPECT_TRUE(std::isnan(std::exchange(out[channel], clean[channel]))) << mode;
                EXPECT_EQ(out, clean) << mode;
            }
        }
        const std::vector<double> lost = Blend(mode, bg, {0.5, 0.625, 0.125, nan}, 1);
        EXPECT_THAT(lost, testing::Each(testing::IsNan())) << mode;
    }
}

/// Ordinary values, with one in eight a special.
template <class T>
std::vector<T> MakeWildPixels(size_t count, unsigned seed) {
    using L = std::numeric_limits<T>;
    constexpr double kInf = L::infinity(), kNan = L::quiet_NaN(), kMax = L::max(), kTiny = L::denorm_min();
    constexpr double kBelow1 = T(1) - L::epsilon();
    const double kSpecials[] = {0,    -0.0, 1,     0.5,  -1,   2,     1e-4,  1e-30,
                                1e30, kInf, -kInf, kNan, kMax, -kMax, kTiny, kBelow1};
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
    ASSERT_TRUE((*blend)(kNone, kNone, kNone, -5, {}));
    // Single pixels: destination with a gap of one component, so that the lines are not contiguous.
    std::vector<T> gaps(count * 5, T(7));
    constexpr BITS kStride{sizeof(T) * 32}, kGapStride{sizeof(T) * 40};
    ASSERT_TRUE((*blend)({gaps.data(), kGapStride}, {bg.data(), kStride}, {fg.data(), kStride}, Int(count),
                         BLENDPIXELFLAGS::NONE));
    for (const int into : {0, 1, 2}) {  // another line, the background, the foreground
        std::vector<T> lines[3] = {{}, bg, fg};
        for (std::vector<T>& line : lines)
            line.resize(count * 4 + 4, T(7));
        std::vector<T>& target = lines[into];
        ASSERT_TRUE((*blend)({target.data(), kStride}, {lines[1].data(), kStride}, {lines[2].data(), kStride},
                             Int(count), BLENDPIXELFLAGS::NONE));
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

TEST_F(BlendTest, EveryLevelMatchesSinglePixels) {
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

TEST_F(BlendTest, RegistryHoldsEveryModeUnderItsId) {
    std::vector<std::string> names, expected = FrameModes();
    expected.push_back("applyalpha");
    for (const Registry::Entry& entry : Registry::GetEntries(kBlendModeRegistry)) {
        const auto mode = Cast<ImagePixelBlendInterface>(entry.object);
        EXPECT_EQ(mode->GetId(), entry.id);
        EXPECT_EQ(blendmodes::Get(entry.id), mode) << "the published object is the one of the registry";
        names.push_back(TextOf(entry.id).substr(std::string("net.orvik.render.blendmode.").size()));
    }
    EXPECT_THAT(names, testing::UnorderedElementsAreArray(expected));
}

TEST_F(BlendTest, EnumeratedModesArePublished) {
    const std::pair<BLEND_MODES, const char*> kCases[] = {
        {BLEND_MODES::AVERAGE, "average"},       {BLEND_MODES::COLORBURN, "colorburn"},
        {BLEND_MODES::DISSOLVE, "dissolve"},     {BLEND_MODES::FREEZE, "freeze"},
        {BLEND_MODES::HYPOT, "hypot"},           {BLEND_MODES::LINEARDODGE, "lineardodge"},
        {BLEND_MODES::SATURATION, "saturation"}, {BLEND_MODES::STAMP, "stamp"}};
    for (const auto& [mode, name] : kCases)
        EXPECT_EQ(blendmodes::Get(blendmodes::GetId(mode)), BlendOf(name)) << name;
    std::set<std::string> ids;
    for (int i = 0; i < kBlendModesCount; ++i) {
        const Id id = blendmodes::GetId(BLEND_MODES(i));
        EXPECT_TRUE(blendmodes::Get(id)) << TextOf(id);
        ids.insert(TextOf(id));
    }
    EXPECT_EQ(ids.size(), 30u);
    for (const int outside : {-1, int(kBlendModesCount)})
        EXPECT_TRUE(blendmodes::GetId(BLEND_MODES(outside)).IsEmpty());
}

TEST_F(BlendTest, OptimalFormatIsWideOnlyForDoubles) {
    const std::pair<std::vector<const char*>, const char*> kCases[] = {{{}, "rgba.f32"},
                                                                       {{"rgb.u8", "rgba.f32", "grey.u16"}, "rgba.f32"},
                                                                       {{"rgb.u8", "grey.f64"}, "rgba.f64"},
                                                                       {{"argb.f64", "rgba.u8"}, "rgba.f64"},
                                                                       {{"rgb.u565", ""}, "rgba.f32"}};
    for (const auto& [names, expected] : kCases) {
        std::vector<PixelFormat> formats;
        for (const char* name : names)
            formats.push_back(FormatOf(name));
        EXPECT_EQ(ImagePixelBlendInterface::GetOptimalPixelFormat(formats), FormatOf(expected));
    }
}

TEST_F(BlendTest, AcceptsAnyStrideAndAlignment) {
    constexpr Int kCount = 37;
    std::vector<float> bg(kCount * 4), fg(kCount * 4), flat;
    for (size_t i = 0; i < bg.size(); ++i) {
        bg[i] = float(i % 101) / 100;
        fg[i] = float(i % 89) / 88;
        flat.push_back(fg[i % 4]);
    }
    const std::vector<float> expected = Blend("screen", bg, fg, 0.5);
    const PixelFormat format = FormatOf("rgba.f32");
    const SlowFormat slow = Describe(format);
    const Placement dense = PlaceDense(format);
    std::vector<Placement> places = {{(kCount - 1) * 16, -16, dense.offsets},
                                     PlaceInPlanes(slow, kCount),
                                     PlaceOddly(slow, kCount, false),
                                     PlaceOddly(slow, kCount, true)};
    for (Int shift = 0; shift < 64; ++shift)  // every byte of a vector
        places.push_back({shift, 16, dense.offsets});
    const auto scatter = [&](const Placement& place, const std::vector<float>& pixels) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(pixels.data());
        return Scatter(slow, place, Bytes(bytes, bytes + 4 * pixels.size()), kCount, kCount);
    };
    for (size_t i = 0; i < places.size(); ++i) {
        const Placement& back = places[i];
        for (const Placement& front : {back, places[places.size() - 1 - i]}) {
            const auto blend =
                BlendOf("screen")->GetBlendPixelHandler(format, back.offsets, format, front.offsets, 0.5);
            const Bytes bgBytes = scatter(back, bg), fgBytes = scatter(front, fg), wanted = scatter(back, expected);
            Bytes out(wanted.size(), 0xCD);
            ASSERT_TRUE(blend && (*blend)({&out[size_t(back.first)], BITS(8 * back.stride)},
                                          {&bgBytes[size_t(back.first)], BITS(8 * back.stride)},
                                          {&fgBytes[size_t(front.first)], BITS(8 * front.stride)}, kCount, {}));
            ASSERT_EQ(out, wanted) << i;
        }
    }
    const auto blend = FindBlend("screen", format, format, 0.5);
    std::vector<float> out(bg.size());  // one foreground pixel for all
    ASSERT_TRUE(blend && (*blend)({out.data(), BITS(128)}, {bg.data(), BITS(128)}, {&fg[0], BITS(0)}, kCount, {}));
    EXPECT_EQ(out, Blend("screen", bg, flat, 0.5));
}

TEST_F(BlendTest, OtherFormatsBlendInDoublePrecision) {
    const std::pair<const char*, const char*> kPairs[] = {
        {"rgba.u16", "rgba.u16"}, {"rgba.u8", "rgba.u8"},   {"rgb.u8", "rgba.u8"},   {"grey.u8", "greya.u8"},
        {"bgra.f16", "argb.u16"}, {"cmyk.u8", "rgba.u8"},   {"rgb.u8", "cmyk.u8"},   {"rgba.f32", "rgba.u8"},
        {"rgba.f64", "rgba.f32"}, {"argb.f64", "grey.f32"}, {"rgb.u32", "rgba.f32"},
    };
    constexpr Int kMaxCount = 130;
    const PixelFormat wide = FormatOf("rgba.f64");
    for (const auto& [bgName, fgName] : kPairs) {
        SCOPED_TRACE(std::string(bgName) + " under " + fgName);
        const PixelFormat bgFormat = FormatOf(bgName), fgFormat = FormatOf(fgName);
        // Pixels whose values are ordinary in any format: made of bytes.
        Bytes colors(kMaxCount * 4);
        for (size_t i = 0; i < colors.size(); ++i)
            colors[i] = uint8_t(i * 37 + i / 4 * 11);
        const Bytes bg = ConvertBytes(bgFormat, FormatOf("rgba.u8"), colors.data(), kMaxCount);
        std::reverse(colors.begin(), colors.end());
        const Bytes fg = ConvertBytes(fgFormat, FormatOf("rgba.u8"), colors.data(), kMaxCount);
        ASSERT_FALSE(bg.empty() || fg.empty());
        const auto blend = FindBlend("overlay", bgFormat, fgFormat, 0.75);
        ASSERT_TRUE(blend) << MessageOf(blend);
        const auto asDoubles = [&](const PixelFormat& format, const Bytes& bytes) {
            const Bytes converted = ConvertBytes(wide, format, bytes.data(), kMaxCount);
            std::vector<double> values(converted.size() / 8);
            std::memcpy(values.data(), converted.data(), converted.size());
            return values;
        };
        const std::vector<double> blended = Blend("overlay", asDoubles(bgFormat, bg), asDoubles(fgFormat, fg), 0.75);
        const Bytes expected = ConvertBytes(bgFormat, wide, blended.data(), kMaxCount);
        const BITS bgStride = bgFormat->GetBitsPerPixel(), fgStride = fgFormat->GetBitsPerPixel();
        for (Int count = 0; count <= kMaxCount; ++count) {
            const auto bytes = size_t(count * bgStride.GetBytes());
            Bytes out(bg.size(), 0xA5), inPlace = bg;
            for (Bytes* to : {&out, &inPlace})
                ASSERT_TRUE((*blend)({to->data(), bgStride}, {to == &out ? bg.data() : to->data(), bgStride},
                                     {fg.data(), fgStride}, count, {}));
            ASSERT_TRUE(std::equal(out.begin(), out.begin() + bytes, expected.begin())) << count;
            ASSERT_TRUE(std::equal(out.begin(), out.begin() + bytes, inPlace.begin())) << count;
            ASSERT_TRUE(std::all_of(out.begin() + bytes, out.end(), [](uint8_t byte) { return byte == 0xA5; }));
            ASSERT_TRUE(std::equal(inPlace.begin() + bytes, inPlace.end(), bg.begin() + bytes));
        }
        for (const Int none : {0, -5})
            EXPECT_TRUE((*blend)(kNone, kNone, kNone, none, {}));
        // At opacity 0 the background is copied, not converted there and back.
        const auto copy = FindBlend("overlay", bgFormat, fgFormat, 0);
        Bytes out(bg.size());
        ASSERT_TRUE(copy &&
                    (*copy)({out.data(), bgStride}, {bg.data(), bgStride}, {fg.data(), fgStride}, kMaxCount, {}));
        EXPECT_EQ(out, bg);
    }
}

TEST_F(BlendTest, RefusesMissingFormatsAndConversions) {
    const PixelFormat rgba = FormatOf("rgba.u8");
    const Result<PixelFormat> colorless = MakeFormat({"depth"}, ComponentType::F32);
    ASSERT_TRUE(colorless);
    for (const char* mode : {"over", "applyalpha"}) {
        EXPECT_EQ(MessageOf(FindBlend(mode, rgba, PixelFormat(), 1)), "srcformat must not be nullptr.");
        EXPECT_FALSE(FindBlend(mode, PixelFormat(), rgba, 1));
        for (const double opacity : {0.0, 1.0})
            EXPECT_THAT(MessageOf(FindBlend(mode, rgba, *colorless, opacity)),
                        HasSubstr("No pixel conversion found from"));
        EXPECT_THAT(MessageOf(FindBlend(mode, *colorless, FormatOf("alpha.u8"), 1)),
                    HasSubstr("No pixel conversion found from"));
    }
    EXPECT_FALSE(BlendOf("applyalpha")->GetBlendPixelHandler(rgba, {}, rgba, rgba->GetChannelOffsets(), 1));
    EXPECT_FALSE(ImagePixelBlend()->GetBlendPixelHandler(rgba, {}, rgba, {}, 1)) << "a null reference answers";
}

template <class T>
void ApplyAlphaDirectly(const char* alphaName) {
    const auto blend = FindBlend("applyalpha", RgbaFormat<T>(), FormatOf(alphaName), 0.25);
    const T mask[] = {T(0.5), T(0), T(2)};
    const std::vector<T> bg = {1, 2, 3, T(0.5), 4, 5, 6, 1, 7, 8, 9, T(0.25)};
    std::vector<T> out(12, T(-1)), same = bg;
    constexpr BITS kStride{sizeof(T) * 32}, kMaskStride{sizeof(T) * 8};
    ASSERT_TRUE(blend && (*blend)({out.data(), kStride}, {bg.data(), kStride}, {mask, kMaskStride}, 3, {}));
    EXPECT_THAT(out, ElementsAre(-1, -1, -1, 0.25, -1, -1, -1, 0, -1, -1, -1, 0.5)) << "opacity plays no part";
    ASSERT_TRUE((*blend)({same.data(), kStride}, {same.data(), kStride}, {mask, kMaskStride}, 3, {}));
    EXPECT_THAT(same, ElementsAre(1, 2, 3, 0.25, 4, 5, 6, 0, 7, 8, 9, 0.5));
}

TEST_F(BlendTest, MasksChangeAlphaOnly) {
    ApplyAlphaDirectly<float>("alpha.f32");
    ApplyAlphaDirectly<double>("alpha.f64");
    constexpr Int kCount = 130;
    Bytes mask(kCount);
    std::iota(mask.begin(), mask.end(), uint8_t(100));
    const struct {
        const char* format;
        int bytes, alphaByte;  ///< of one pixel
    } kFormats[] = {{"rgba.u8", 4, 3}, {"argb.u8", 4, 0}, {"greya.u8", 2, 1}, {"rgb.u8", 3, -1}};
    for (const auto& entry : kFormats) {
        const PixelFormat format = FormatOf(entry.format);
        const auto blend = FindBlend("applyalpha", format, FormatOf("alpha.u8"), 1);
        ASSERT_TRUE(blend) << entry.format << ": " << MessageOf(blend);
        Bytes bg(kCount * entry.bytes), out(bg.size(), 0x5A);
        for (size_t i = 0; i < bg.size(); ++i)
            bg[i] = uint8_t(i * 29);
        const BITS stride = format->GetBitsPerPixel();
        ASSERT_TRUE((*blend)({out.data(), stride}, {bg.data(), stride}, {mask.data(), BITS(8)}, kCount, {}));
        EXPECT_TRUE((*blend)(kNone, kNone, kNone, -5, {}));
        for (size_t i = 0; i < out.size(); ++i) {
            const bool isAlpha = int(i % size_t(entry.bytes)) == entry.alphaByte;
            const int product = (bg[i] * mask[i / size_t(entry.bytes)] * 2 + 255) / 510;  // to the nearest
            ASSERT_EQ(int(out[i]), isAlpha ? product : 0x5A) << entry.format << " byte " << i;
        }
    }
    // A mask without alpha is opaque, so nothing changes.
    Bytes pixel = {1, 2, 3, 77};
    const auto opaque = FindBlend("applyalpha", FormatOf("rgba.u8"), FormatOf("grey.u8"), 1);
    ASSERT_TRUE(opaque && (*opaque)({pixel.data(), BITS(32)}, {pixel.data(), BITS(32)}, {mask.data(), BITS(8)}, 1, {}));
    EXPECT_THAT(pixel, ElementsAre(1, 2, 3, 77));
}

}  // namespace
}  // namespace orvik
