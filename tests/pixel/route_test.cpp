// The search for conversions: channel by channel, through an intermediate format, errors, cache and threads; formats
// made at run time.

#include <atomic>
#include <functional>
#include <gmock/gmock.h>

#include "pixel_tools.h"
#include "support/threads.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class RouteTest : public ModuleFixture {
protected:
    static ImageChannel Channel(const char* type, ComponentType component) {
        const Result<Id> id = Id::Create(std::string("net.orvik.image.imagechanneltype.") + type);
        return id ? channeltypes::GetChannel(*id, component) : ImageChannel();
    }
    static Result<PixelFormat> Make(const std::vector<const char*>& types, ComponentType component) {
        std::vector<ImageChannel> channels;
        for (const char* type : types)
            channels.push_back(Channel(type, component));
        return PixelFormats::FindOrCreatePixelFormat(channels);
    }
};

using enum ComponentType;

// --- Formats made at run time ----------------------------------------------------------------------------------------

TEST_F(RouteTest, EqualChannelListsShareOneFormat) {
    const std::tuple<std::vector<const char*>, ComponentType, const char*, const char*> kCases[] = {
        {{"red", "green", "blue"}, U8, "rgb.u8", "RGB::U8"},
        {{"red", "green", "blue"}, F16, "rgb.f16", "RGB::F16"},
        {{"alpha"}, F16, "alpha.f16", "ALPHA::F16"},
        {{"red"}, S8, "dynamic.reds8", "R S8"},
        {{"red", "green"}, F32, "dynamic.redgreenf32", "R F32 G F32"},
        {{"alpha", "grey"}, S16, "alpha.s16_grey.s16", "A S16 Gr S16"},
        {{"depth", "unused", "uvu"}, F32, "depth.f32_unused.f32_uvu.f32", "Z F32 uvu F32"},
        {{"cmyk_ic", "cmyk_k"}, U8, "cmyk_ic.u8_cmyk_k.u8", "iC U8 K U8"},
    };
    for (const auto& [types, component, id, shortName] : kCases) {
        const Result<PixelFormat> format = Make(types, component);
        ASSERT_TRUE(format) << id << ": " << MessageOf(format);
        EXPECT_EQ(TextOf((*format)->GetId()), "net.orvik.image.pixelformat." + std::string(id));
        EXPECT_EQ(TextOf((*format)->GetShortName()), shortName);
        EXPECT_EQ(*format, *Make(types, component)) << "the same handle each time";
    }
}

TEST_F(RouteTest, ImpossibleChannelListsAreRefused) {
    EXPECT_EQ(MessageOf(PixelFormats::FindOrCreatePixelFormat({})),
              "FindOrCreatePixelFormat() needs at least 1 channel.");
    const Result<PixelFormat> mixed = Make({"red", "grey"}, U8), again = Make({"red", "grey"}, U8);
    EXPECT_EQ(MessageOf(mixed),
              "PixelFormat belongs to two different color spaces: net.orvik.image.colorspace.rgb, "
              "net.orvik.image.colorspace.grey");
    ASSERT_FALSE(again);
    EXPECT_EQ(again.GetError().Get(), mixed.GetError().Get()) << "the failure itself is kept";
    EXPECT_TRUE(Make({"grey", "alpha", "depth"}, U8));
    EXPECT_FALSE(PixelFormats::FindOrCreatePixelFormat(std::vector<ImageChannel>{ImageChannel()}));
    EXPECT_FALSE(PixelFormats::FindOrCreatePixelFormat(FormatOf("rgb.u565")->GetChannels()))
        << "bits of a packed word are no components";
    const auto shared = Cast<PixelFormatDynamicInterface>(FormatOf("dynamic.redu8"));
    EXPECT_FALSE(shared->AddChannel(Channel("green", U8))) << "formats do not change once shared";
    EXPECT_EQ(shared->GetChannelCount(), 1);
}

// --- Channel by channel ----------------------------------------------------------------------------------------------

TEST_F(RouteTest, ChannelsArePairedByType) {
    const std::tuple<const char*, std::vector<const char*>, std::vector<const char*>, std::vector<uint8_t>,
                     std::vector<uint8_t>>
        kCases[] = {
            {"order", {"depth", "blue", "red", "green"}, {"red", "green", "blue"}, {9, 3, 1, 2}, {1, 2, 3}},
            {"missing colours", {"red"}, {"green", "red", "blue"}, {7}, {0, 7, 0}},
            {"missing alpha", {"red", "green"}, {"alpha", "green", "red"}, {1, 2}, {255, 2, 1}},
            {"k-th to k-th", {"red", "red", "green"}, {"red", "green", "red", "red"}, {1, 2, 3}, {1, 3, 2, 0}},
            {"tolerated", {"red"}, {"unknown", "depth", "depthback", "unused", "red"}, {7}, {0, 0, 0, 0, 7}},
            {"inverted ink", {"cmyk_c"}, {"cmyk_c", "cmyk_ik"}, {7}, {7, 255}},
            {"no colour at all", {"uvu", "uvv"}, {"uvv", "uvu"}, {1, 2}, {2, 1}},
            {"unused pairs too", {"red", "unused"}, {"unused", "red"}, {1, 2}, {2, 1}},
            {"alpha alone", {"alpha", "depth"}, {"depth", "alpha"}, {1, 2}, {2, 1}},
        };
    for (const auto& [what, srcName, dstName, in, out] : kCases) {
        const Result<PixelFormat> src = Make(srcName, U8), dst = Make(dstName, U8);
        ASSERT_TRUE(src && dst) << what;
        EXPECT_EQ(ConvertBytes(*dst, *src, in.data(), 1), out) << what;
    }
}

TEST_F(RouteTest, ConvertsPixelsOfManyChannels) {
    constexpr size_t kMasks = 2000, kCount = 100;  // of 16 KB a pixel
    std::vector<ImageChannel> channels(kMasks, Channel("mask", F64));
    for (const char* type : {"red", "green", "blue"})
        channels.push_back(Channel(type, F64));
    const Result<PixelFormat> wide = PixelFormats::FindOrCreatePixelFormat(channels);
    ASSERT_TRUE(wide) << MessageOf(wide);
    std::vector<uint8_t> rgb(kCount * 3);
    for (size_t i = 0; i < rgb.size(); ++i)
        rgb[i] = uint8_t(i * 11);
    const std::vector<uint8_t> pixels = ConvertBytes(*wide, FormatOf("rgb.u8"), rgb.data(), kCount);
    EXPECT_TRUE(pixels.empty()) << "masks are not of that space, and nothing fills them";
    std::vector<double> values(kCount * channels.size());
    for (size_t i = 0; i < rgb.size(); ++i)
        values[i / 3 * channels.size() + kMasks + i % 3] = rgb[i] / 255.0;
    EXPECT_EQ(ConvertBytes(FormatOf("rgb.u8"), *wide, values.data(), kCount), rgb);
    EXPECT_EQ(ConvertBytes(FormatOf("yuv.i422a"), *wide, values.data(), kCount),
              ConvertBytes(FormatOf("yuv.i422a"), FormatOf("rgb.u8"), rgb.data(), kCount));
    std::vector<double> copy(values.size());
    const Result<ConvertPixelFunc> identity = FindConversion(*wide, *wide);
    ASSERT_TRUE(identity);
    ASSERT_TRUE((*identity)({copy.data(), (*wide)->GetBitsPerPixel()}, kCount,
                            {values.data(), (*wide)->GetBitsPerPixel()}, {}));
    EXPECT_EQ(copy, values);
}

// --- Intermediate ----------------------------------------------------------------------------------------------------

TEST_F(RouteTest, IntermediateRunsInBlocksOf64) {
    // Red and green have no grey of their own, so they pass through RGB.
    const Result<ConvertPixelFunc> convert = FindConversion(FormatOf("grey.u8"), FormatOf("dynamic.redgreenu8"));
    ASSERT_TRUE(convert) << MessageOf(convert);
    for (const size_t count : {1, 63, 64, 65, 128, 200}) {
        std::vector<uint8_t> in(2 * count), wanted(count + 8, 0xCD);
        for (size_t i = 0; i < count; ++i) {
            in[2 * i] = uint8_t(i * 7);
            in[2 * i + 1] = uint8_t(i * 13);
            wanted[i] = uint8_t((in[2 * i] + in[2 * i + 1]) / 3);
        }
        for (const int step : {1, -1}) {
            std::vector<uint8_t> out(wanted.size(), 0xCD);
            ASSERT_TRUE(
                (*convert)({&out[step > 0 ? 0 : count - 1], BITS(8 * step)}, Int(count), {in.data(), BITS(16)}, {}));
            if (step < 0)
                std::reverse(out.begin(), out.begin() + Int(count));
            EXPECT_EQ(out, wanted) << count << " by " << step;
        }
    }
}

TEST_F(RouteTest, MissingRouteNamesBothFormats) {
    const std::pair<const char*, const char*> kCases[] = {
        {"indexed.u8bit", "rgb.u8"},        {"grey.u8", "indexed.u1bit"},  {"rgb.rgbe", "indexed.u16bit"},
        {"indexed.u4bit", "indexed.u8bit"}, {"alpha.f16", "rgb.u8"},       {"alpha.f16", "rgba.u8"},
        {"alpha.f16", "argb.u1555"},        {"alpha.f16", "acmyk_inv.u8"}, {"alpha.f16", "yuv.i422a"},
    };
    for (const auto& [src, dst] : kCases) {
        const Result<ConvertPixelFunc> none = FindConversion(FormatOf(dst), FormatOf(src));
        ASSERT_FALSE(none) << src << " to " << dst;
        const std::string prefix = "net.orvik.image.pixelformat.";
        EXPECT_EQ(MessageOf(none), "No pixel conversion found from '" + prefix + src + "' to '" + prefix + dst + "'");
        EXPECT_THAT(ChainOf(none.GetError()), testing::EndsWith("Recursion check"));
        // A failed search leaves nothing behind that would answer the next one differently.
        EXPECT_EQ(ChainOf(FindConversion(FormatOf(dst), FormatOf(src)).GetError()), ChainOf(none.GetError()));
    }
    const Result<ConvertPixelFunc> empty = FindConversion(FormatOf("rgb.u8"), PixelFormat());
    EXPECT_EQ(MessageOf(empty), "srcformat must not be nullptr.");
    ASSERT_FALSE(empty);
    EXPECT_EQ(empty.GetError()->GetErrorId(), errorid::kIllegalArgument);
    EXPECT_FALSE(FindConversion(FormatOf("rgb.u8"), FormatOf("rgba.u8"), {}, {})) << "offsets are missing";
}

// --- Profiles --------------------------------------------------------------------------------------------------------

TEST_F(RouteTest, ProfilesDecideOnlyWhereTheyMust) {
    const PixelFormat rgb = FormatOf("rgb.u8"), rgba = FormatOf("rgba.u8"), grey = FormatOf("grey.u8");
    const ColorProfile srgb = colorprofiles::Get(colorprofiles::kSrgb);
    const ColorProfile linear = colorprofiles::Get(colorprofiles::kLinearRgb);
    constexpr auto kForce = CONVERTPIXELFLAGS::FORCECOLORPROFILECONVERSION;
    const auto find = [](const PixelFormat& dst, const PixelFormat& src, const ColorProfile* srcProfile,
                         ColorProfile* dstProfile, CONVERTPIXELFLAGS flags) {
        bool converts = false;
        const auto found = dst->GetConvertPixelFunc(src, src->GetChannelOffsets(), dst->GetChannelOffsets(), srcProfile,
                                                    dstProfile, flags, converts);
        EXPECT_FALSE(converts);
        return MessageOf(found);
    };
    ColorProfile out = srgb;
    EXPECT_EQ(find(rgba, rgb, &linear, &out, {}), "");
    EXPECT_EQ(out, linear) << "same space: the pixels keep their profile";
    out = srgb;
    EXPECT_EQ(find(rgba, rgb, nullptr, &out, {}), "");
    EXPECT_EQ(out, srgb);
    EXPECT_EQ(find(rgba, rgb, &srgb, &out, kForce), "") << "equal profiles: plain arithmetic";
    EXPECT_EQ(out, srgb);
    out = ColorProfile();
    EXPECT_EQ(find(grey, rgb, &srgb, &out, kForce),
              "Warning: Pixel conversion with different color spaces: net.orvik.image.colorspace.rgb != "
              "net.orvik.image.colorspace.grey and incomplete color profiles: sRGB IEC61966-2.1 != <<no profile>>");
    EXPECT_THAT(find(grey, rgb, nullptr, nullptr, kForce), HasSubstr("profiles: <<no profile>> != <<no profile>>"));
    EXPECT_EQ(find(rgba, rgb, nullptr, nullptr, kForce), "");
}

// --- Cache and threads -----------------------------------------------------------------------------------------------

/// A source that counts how often a route is searched, and does something while it is.
template <class Interface>
class CountingFormat final : public virtual Interface {
public:
    mutable std::atomic<int> searches{0};
    std::function<void(const PixelFormat& dst, const PixelFormat& self)> whileSearched;
    Id GetId() const override { return "net.orvik.test.counting"; }
    ChannelOffsets GetChannelOffsets() const override { return _offsets; }
    Result<ConvertPixelFunc> GetConvertPixelToFunc(const PixelFormat& dst, ChannelOffsets, ChannelOffsets,
                                                   bool) const override {
        if (++searches == 1 && whileSearched)
            whileSearched(dst, PixelFormat(const_cast<CountingFormat*>(this)));
        return ConvertPixelFunc(
            [](const PixelLine&, Int, const PixelLineConst&, CONVERTPIXELFLAGS) -> Result<void> { return {}; });
    }

private:
    BITS _offsets[2] = {BITS(0), BITS(8)};
};

TEST_F(RouteTest, RoutesAreSearchedOnceForEachKey) {
    const auto made = NewObj<CountingFormat<PixelFormatInterface>>();
    ASSERT_TRUE(made);
    const std::atomic<int>& searches = made->GetPointer()->searches;
    const PixelFormat source = *made, rgb = FormatOf("rgb.u8"), rgba = FormatOf("rgba.u8");
    ASSERT_TRUE(FindConversion(rgb, source));
    ASSERT_TRUE(FindConversion(rgb, source));
    EXPECT_EQ(searches, 1);
    const BITS shifted[] = {BITS(8), BITS(16)};
    ASSERT_TRUE(FindConversion(rgb, source, rgb->GetChannelOffsets(), shifted));
    EXPECT_EQ(searches, 2) << "other offsets, other key";
    ASSERT_TRUE(FindConversion(rgba, source));
    EXPECT_EQ(searches, 3);
}

TEST_F(RouteTest, RecursionIsRefusedInTheSearchingThreadOnly) {
    const auto made = NewObj<CountingFormat<PixelFormatInterface>>();
    ASSERT_TRUE(made);
    made->GetPointer()->whileSearched = [](const PixelFormat& dst, const PixelFormat& self) {
        EXPECT_EQ(MessageOf(FindConversion(dst, self)), "Recursion check");
        // Were a lock held while the route is built, the other thread would wait for this one.
        std::thread([&] {
            EXPECT_EQ(MessageOf(FindConversion(dst, self)), "");
            EXPECT_EQ(MessageOf(FindConversion(dst, FormatOf("acmyk_inv.u16"))), "");
        }).join();
    };
    EXPECT_EQ(MessageOf(FindConversion(FormatOf("agrey.f64"), *made)), "");
    EXPECT_EQ(made->GetPointer()->searches, 2);
}

TEST_F(RouteTest, RoutesOfIndexedFormatsAreNotCached) {
    // Pictures with other colours have the same id, and what is kept would keep the colours.
    const auto indexed = NewObj<CountingFormat<PixelFormatIndexedColorInterface>>();
    const auto plain = NewObj<CountingFormat<PixelFormatInterface>>();
    ASSERT_TRUE(indexed && plain);
    for (int round = 1; round <= 3; ++round) {
        ASSERT_TRUE(FindConversion(FormatOf("grey.u8"), *indexed));
        ASSERT_TRUE(FindConversion(FormatOf("indexed.u8bit"), *plain));
        EXPECT_EQ(indexed->GetPointer()->searches, round);
        EXPECT_EQ(plain->GetPointer()->searches, round);
    }
}

TEST_F(RouteTest, ConcurrentSearchesAgree) {
    const char* const kNames[] = {"rgb.u8",   "rgba.f16", "grey.f32", "argb.u16", "cmyk.u8", "dynamic.redgreens16",
                                  "alpha.f16"};
    const auto search = [&] {
        std::string answers;
        for (const char* dst : kNames) {
            for (const char* src : kNames)
                answers += MessageOf(FindConversion(FormatOf(dst), FormatOf(src))) + "\n";
        }
        return answers;
    };
    std::string answers[4];
    RunAtOnce(4, [&](int t) { answers[t] = search(); });
    EXPECT_THAT(answers, testing::Each(search()));
    EXPECT_THAT(answers[0], testing::AllOf(HasSubstr("\n\n"), HasSubstr("No pixel conversion found")));
}

TEST_F(RouteTest, ConcurrentThreadsShareOneFormatPerList) {
    constexpr int kThreads = 4;
    const std::vector<const char*> kLists[] = {
        {"weight"}, {"green", "alpha", "red"}, {"red", "green", "blue"}, {"mask", "mask", "grey"}};
    std::vector<PixelFormat> handles[kThreads];
    RunAtOnce(kThreads, [&](int t) {
        for (int component = 0; component < kComponentTypeCount; ++component) {
            const auto type = ComponentType(component);
            for (const auto& types : kLists) {
                const Result<PixelFormat> format = Make(types, type);
                ASSERT_TRUE(format) << MessageOf(format);
                handles[t].push_back(*format);
                // And use it at once.
                EXPECT_TRUE(FindConversion(*format, *format));
            }
            EXPECT_FALSE(Make({"red", "cmyk_c"}, type));
        }
    });
    for (const auto& others : handles)
        EXPECT_EQ(others, handles[0]);
    EXPECT_EQ(handles[0].size(), 4u * kComponentTypeCount);
}

}  // namespace
}  // namespace orvik
