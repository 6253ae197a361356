// Blend modes as published objects, and their handlers for all kinds of lines and formats.

#include <gmock/gmock.h>
#include <numeric>
#include <set>

#include "blend_tools.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class BlendTest : public ModuleFixture {};

// --- Registry --------------------------------------------------------------------------------------------------------

TEST_F(BlendTest, RegistryHoldsEveryMode) {
    const BaseArray<Registry::Entry> entries = Registry::GetEntries(kBlendModeRegistry);
    std::vector<std::string> names;
    for (const Registry::Entry& entry : entries) {
        const std::string id = TextOf(entry.id);
        ASSERT_THAT(id, testing::StartsWith("net.orvik.render.blendmode."));
        names.push_back(id.substr(id.rfind('.') + 1));
        const auto mode = Cast<ImagePixelBlendInterface>(entry.object);
        ASSERT_TRUE(mode) << id;
        EXPECT_EQ(mode->GetId(), entry.id);
        EXPECT_EQ(blendmodes::Get(entry.id), mode) << "the published object is the one of the registry";
    }
    std::vector<std::string> expected = FrameModes();
    expected.push_back("applyalpha");
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
    EXPECT_FALSE(ids.contains("net.orvik.render.blendmode.applyalpha"));
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

// --- Lines -----------------------------------------------------------------------------------------------------------

TEST_F(BlendTest, AcceptsAnyStrideAndAlignment) {
    constexpr Int kCount = 37;
    std::vector<float> bg(kCount * 4), fg(kCount * 4);
    for (size_t i = 0; i < bg.size(); ++i) {
        bg[i] = float(i % 101) / 100;
        fg[i] = float(i % 89) / 88;
    }
    const std::vector<float> expected = Blend("screen", bg, fg, 0.5);
    const PixelFormat format = FormatOf("rgba.f32");
    const auto blend = FindBlend("screen", format, format, 0.5);
    ASSERT_TRUE(blend);
    constexpr BITS kStride(128);

    // Backwards: last pixel first on all three lines.
    std::vector<float> out(bg.size());
    ASSERT_TRUE((*blend)({&out[out.size() - 4], BITS(-128)}, {&bg[bg.size() - 4], BITS(-128)},
                         {&fg[fg.size() - 4], BITS(-128)}, kCount, {}));
    EXPECT_EQ(out, expected);

    // At every byte of a vector.
    for (size_t shift = 0; shift < 64; ++shift) {
        std::vector<uint8_t> dstBytes(bg.size() * 4 + 64), bgBytes(bg.size() * 4 + 64), fgBytes(bg.size() * 4 + 64);
        std::memcpy(&bgBytes[shift], bg.data(), bg.size() * 4);
        std::memcpy(&fgBytes[63 - shift], fg.data(), fg.size() * 4);
        ASSERT_TRUE((*blend)({&dstBytes[shift], kStride}, {&bgBytes[shift], kStride}, {&fgBytes[63 - shift], kStride},
                             kCount, {}));
        ASSERT_EQ(std::memcmp(&dstBytes[shift], expected.data(), expected.size() * 4), 0) << shift;
    }

    // One foreground pixel for all.
    std::vector<float> flat(bg.size());
    for (size_t i = 0; i < flat.size(); ++i)
        flat[i] = fg[4 + i % 4];
    ASSERT_TRUE((*blend)({out.data(), kStride}, {bg.data(), kStride}, {&fg[4], BITS(0)}, kCount, {}));
    EXPECT_EQ(out, Blend("screen", bg, flat, 0.5));

    // Planes: the same precision, hence the same bits.
    std::vector<float> bgPlanes(bg.size()), fgPlanes(bg.size()), outPlanes(bg.size());
    for (size_t i = 0; i < bg.size(); ++i) {
        bgPlanes[i % 4 * kCount + i / 4] = bg[i];
        fgPlanes[i % 4 * kCount + i / 4] = fg[i];
    }
    const BITS planes[] = {BITS(0), BITS(32 * kCount), BITS(64 * kCount), BITS(96 * kCount), BITS(32)};
    const auto planar = BlendOf("screen")->GetBlendPixelHandler(format, planes, format, planes, 0.5);
    ASSERT_TRUE(planar);
    ASSERT_TRUE(
        (*planar)({outPlanes.data(), BITS(32)}, {bgPlanes.data(), BITS(32)}, {fgPlanes.data(), BITS(32)}, kCount, {}));
    for (size_t i = 0; i < bg.size(); ++i)
        ASSERT_EQ(outPlanes[i % 4 * kCount + i / 4], expected[i]) << i;
}

TEST_F(BlendTest, AcceptsEmptyRuns) {
    for (const char* name : {"rgba.f32", "rgba.f64", "rgba.u8"}) {
        for (const char* mode : {"over", "applyalpha"}) {
            const auto blend = FindBlend(mode, FormatOf(name), FormatOf(name), 0.5);
            ASSERT_TRUE(blend);
            const PixelLine none{nullptr, BITS(0)};
            EXPECT_TRUE((*blend)(none, none, none, 0, {}));
            EXPECT_TRUE((*blend)(none, none, none, -5, {}));
        }
    }
}

// --- Other formats ---------------------------------------------------------------------------------------------------

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
        std::vector<uint8_t> colors(kMaxCount * 4);
        for (size_t i = 0; i < colors.size(); ++i)
            colors[i] = uint8_t(i * 37 + i / 4 * 11);
        const std::vector<uint8_t> bg = ConvertBytes(bgFormat, FormatOf("rgba.u8"), colors.data(), kMaxCount);
        std::reverse(colors.begin(), colors.end());
        const std::vector<uint8_t> fg = ConvertBytes(fgFormat, FormatOf("rgba.u8"), colors.data(), kMaxCount);
        ASSERT_FALSE(bg.empty() || fg.empty());
        const auto blend = FindBlend("overlay", bgFormat, fgFormat, 0.75);
        ASSERT_TRUE(blend) << MessageOf(blend);

        const auto asDoubles = [&](const PixelFormat& format, const std::vector<uint8_t>& bytes) {
            const std::vector<uint8_t> converted = ConvertBytes(wide, format, bytes.data(), kMaxCount);
            std::vector<double> values(converted.size() / 8);
            std::memcpy(values.data(), converted.data(), converted.size());
            return values;
        };
        const std::vector<double> blended = Blend("overlay", asDoubles(bgFormat, bg), asDoubles(fgFormat, fg), 0.75);
        const std::vector<uint8_t> expected = ConvertBytes(bgFormat, wide, blended.data(), kMaxCount);
        const BITS bgStride = bgFormat->GetBitsPerPixel(), fgStride = fgFormat->GetBitsPerPixel();
        for (Int count = 0; count <= kMaxCount; ++count) {
            const auto bytes = size_t(count * bgStride.GetBytes());
            std::vector<uint8_t> out(bg.size(), 0xA5), inPlace = bg;
            for (std::vector<uint8_t>* to : {&out, &inPlace})
                ASSERT_TRUE((*blend)({to->data(), bgStride}, {to == &out ? bg.data() : to->data(), bgStride},
                                     {fg.data(), fgStride}, count, {}));
            ASSERT_TRUE(std::equal(out.begin(), out.begin() + bytes, expected.begin())) << count;
            ASSERT_TRUE(std::equal(out.begin(), out.begin() + bytes, inPlace.begin())) << count;
            ASSERT_TRUE(std::all_of(out.begin() + bytes, out.end(), [](uint8_t byte) { return byte == 0xA5; }));
            ASSERT_TRUE(std::equal(inPlace.begin() + bytes, inPlace.end(), bg.begin() + bytes));
        }
        // At opacity 0 the background is copied, not converted there and back.
        const auto copy = FindBlend("overlay", bgFormat, fgFormat, 0);
        std::vector<uint8_t> out(bg.size());
        ASSERT_TRUE(copy &&
                    (*copy)({out.data(), bgStride}, {bg.data(), bgStride}, {fg.data(), fgStride}, kMaxCount, {}));
        EXPECT_EQ(out, bg);
    }
}

TEST_F(BlendTest, RefusesMissingFormatsAndConversions) {
    const PixelFormat rgba = FormatOf("rgba.u8");
    const std::vector<ImageChannel> depth{channeltypes::GetChannel(channeltypes::kDepth, ComponentType::F32)};
    const Result<PixelFormat> colorless = PixelFormats::FindOrCreatePixelFormat(depth);
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

// --- Masks -----------------------------------------------------------------------------------------------------------

template <class T>
void ApplyAlphaDirectly(const char* alphaName) {
    const auto blend = FindBlend("applyalpha", RgbaFormat<T>(), FormatOf(alphaName), 0.25);
    ASSERT_TRUE(blend);
    const std::vector<T> mask = {T(0.5), T(0), T(2)};
    std::vector<T> bg = {1, 2, 3, T(0.5), 4, 5, 6, 1, 7, 8, 9, T(0.25)}, out(12, T(-1));
    constexpr BITS kStride{sizeof(T) * 32}, kMaskStride{sizeof(T) * 8};
    ASSERT_TRUE((*blend)({out.data(), kStride}, {bg.data(), kStride}, {mask.data(), kMaskStride}, 3, {}));
    EXPECT_THAT(out, ElementsAre(-1, -1, -1, 0.25, -1, -1, -1, 0, -1, -1, -1, 0.5)) << "opacity plays no part";
    ASSERT_TRUE((*blend)({bg.data(), kStride}, {bg.data(), kStride}, {mask.data(), kMaskStride}, 3, {}));
    EXPECT_THAT(bg, ElementsAre(1, 2, 3, 0.25, 4, 5, 6, 0, 7, 8, 9, 0.5));
}

TEST_F(BlendTest, MasksChangeAlphaOnly) {
    ApplyAlphaDirectly<float>("alpha.f32");
    ApplyAlphaDirectly<double>("alpha.f64");
}

TEST_F(BlendTest, AppliesMasksToOtherFormats) {
    constexpr Int kCount = 130;
    std::vector<uint8_t> mask(kCount);
    std::iota(mask.begin(), mask.end(), uint8_t(100));
    const struct {
        const char* format;
        int bytes, alphaByte;  ///< of one pixel
    } kFormats[] = {{"rgba.u8", 4, 3}, {"argb.u8", 4, 0}, {"greya.u8", 2, 1}, {"rgb.u8", 3, -1}};
    for (const auto& entry : kFormats) {
        const PixelFormat format = FormatOf(entry.format);
        const auto blend = FindBlend("applyalpha", format, FormatOf("alpha.u8"), 1);
        ASSERT_TRUE(blend) << entry.format << ": " << MessageOf(blend);
        std::vector<uint8_t> bg(kCount * entry.bytes), out(bg.size(), 0x5A);
        for (size_t i = 0; i < bg.size(); ++i)
            bg[i] = uint8_t(i * 29);
        const BITS stride = format->GetBitsPerPixel();
        ASSERT_TRUE((*blend)({out.data(), stride}, {bg.data(), stride}, {mask.data(), BITS(8)}, kCount, {}));
        for (size_t i = 0; i < out.size(); ++i) {
            const bool isAlpha = int(i % size_t(entry.bytes)) == entry.alphaByte;
            const int product = (bg[i] * mask[i / size_t(entry.bytes)] * 2 + 255) / 510;  // to the nearest
            ASSERT_EQ(int(out[i]), isAlpha ? product : 0x5A) << entry.format << " byte " << i;
        }
    }
    // A mask without alpha is opaque, so nothing changes.
    std::vector<uint8_t> pixel = {1, 2, 3, 77};
    const auto opaque = FindBlend("applyalpha", FormatOf("rgba.u8"), FormatOf("grey.u8"), 1);
    ASSERT_TRUE(opaque && (*opaque)({pixel.data(), BITS(32)}, {pixel.data(), BITS(32)}, {mask.data(), BITS(8)}, 1, {}));
    EXPECT_THAT(pixel, ElementsAre(1, 2, 3, 77));
}

}  // namespace
}  // namespace orvik
