// The search for conversions: through an intermediate format, errors, cache and threads; formats made at run time.

#include <atomic>
#include <functional>
#include <gmock/gmock.h>

#include "pixel_tools.h"
#include "support/threads.h"

namespace orvik {
namespace {

using testing::HasSubstr;

class RouteTest : public ModuleFixture {};

using enum ComponentType;

TEST_F(RouteTest, EqualChannelListsShareOneFormat) {
    const std::tuple<std::vector<const char*>, ComponentType, const char*, const char*> kCases[] = {
        {{"red", "green", "blue"}, U8, "rgb.u8", "RGB::U8"},
        {{"alpha"}, F16, "alpha.f16", "ALPHA::F16"},
        {{"red"}, S8, "dynamic.reds8", "R S8"},
        {{"red", "green"}, F32, "dynamic.redgreenf32", "R F32 G F32"},
        {{"alpha", "grey"}, S16, "alpha.s16_grey.s16", "A S16 Gr S16"},
        {{"depth", "unused", "uvu"}, F32, "depth.f32_unused.f32_uvu.f32", "Z F32 uvu F32"},
        {{"cmyk_ic", "cmyk_k"}, U8, "cmyk_ic.u8_cmyk_k.u8", "iC U8 K U8"},
    };
    for (const auto& [types, component, id, shortName] : kCases) {
        const Result<PixelFormat> format = MakeFormat(types, component);
        ASSERT_TRUE(format) << id << ": " << MessageOf(format);
        EXPECT_EQ(TextOf((*format)->GetId()), "net.orvik.image.pixelformat." + std::string(id));
        EXPECT_EQ(TextOf((*format)->GetShortName()), shortName);
        EXPECT_EQ(*format, *MakeFormat(types, component)) << "the same handle each time";
    }
}

TEST_F(RouteTest, ImpossibleChannelListsAreRefused) {
    EXPECT_EQ(MessageOf(PixelFormats::FindOrCreatePixelFormat({})),
              "FindOrCreatePixelFormat() needs at least 1 channel.");
    const Result<PixelFormat> mixed = MakeFormat({"red", "grey"}, U8), again = MakeFormat({"red", "grey"}, U8);
    EXPECT_EQ(MessageOf(mixed),
              "PixelFormat belongs to two different color spaces: net.orvik.image.colorspace.rgb, "
              "net.orvik.image.colorspace.grey");
    ASSERT_FALSE(again);
    EXPECT_EQ(again.GetError().Get(), mixed.GetError().Get()) << "the failure itself is kept";
    EXPECT_TRUE(MakeFormat({"grey", "alpha", "depth"}, U8));
    EXPECT_FALSE(PixelFormats::FindOrCreatePixelFormat(std::vector<ImageChannel>{ImageChannel()}));
    EXPECT_FALSE(PixelFormats::FindOrCreatePixelFormat(FormatOf("rgb.u565")->GetChannels()))
        << "bits of a packed word are no components";
    const auto shared = Cast<PixelFormatDynamicInterface>(FormatOf("dynamic.redu8"));
    EXPECT_FALSE(shared->AddChannel(ChannelOf("green", U8))) << "formats do not change once shared";
    EXPECT_EQ(shared->GetChannelCount(), 1);
}

TEST_F(RouteTest, ConvertsPixelsOfManyChannels) {
    constexpr size_t kMasks = 2000, kCount = 100;  // of 16 KB a pixel
    std::vector<ImageChannel> channels(kMasks, ChannelOf("mask", F64));
    for (const char* type : {"red", "green", "blue"})
        channels.push_back(ChannelOf(type, F64));
    const Result<PixelFormat> wide = PixelFormats::FindOrCreatePixelFormat(channels);
    ASSERT_TRUE(wide) << MessageOf(wide);
    std::vector<uint8_t> rgb(kCount * 3);
    for (size_t i = 0; i < rgb.size(); ++i)
        rgb[i] = uint8_t(i * 11);
    EXPECT_TRUE(ConvertBytes(*wide, FormatOf("rgb.u8"), rgb.data(), kCount).empty()) << "nothing fills masks";
    std::vector<double> values(kCount * channels.size());
    for (size_t i = 0; i < rgb.size(); ++i)
        values[i / 3 * channels.size() + kMasks + i % 3] = rgb[i] / 255.0;
    EXPECT_EQ(ConvertBytes(FormatOf("rgb.u8"), *wide, values.data(), kCount), rgb);
    EXPECT_EQ(ConvertBytes(FormatOf("yuv.i422a"), *wide, values.data(), kCount),
              ConvertBytes(FormatOf("yuv.i422a"), FormatOf("rgb.u8"), rgb.data(), kCount));
    std::vector<double> copy(values.size());
    const auto identity = FindConversion(*wide, *wide);
    const BITS stride = (*wide)->GetBitsPerPixel();
    ASSERT_TRUE(identity && (*identity)({copy.data(), stride}, kCount, {values.data(), stride}, {}));
    EXPECT_EQ(copy, values);
}

TEST_F(RouteTest, MissingRouteNamesItsCauses) {
    for (const char* dst : {"rgb.u8", "argb.u1555", "acmyk_inv.u8", "yuv.i422a", "indexed.u8bit"}) {
        const auto search = [&] { return ChainOf(FindConversion(FormatOf(dst), FormatOf("alpha.f16")).GetError()); };
        const std::string chain = search();
        EXPECT_THAT(chain, testing::EndsWith("Recursion check")) << dst;
        EXPECT_EQ(search(), chain) << "a failed search leaves nothing behind that would answer the next one";
    }
    const Result<ConvertPixelFunc> empty = FindConversion(FormatOf("rgb.u8"), PixelFormat());
    EXPECT_EQ(MessageOf(empty), "srcformat must not be nullptr.");
    EXPECT_EQ(ErrorIdOf(empty), errorid::kIllegalArgument);
    EXPECT_FALSE(FindConversion(FormatOf("rgb.u8"), FormatOf("rgba.u8"), {}, {})) << "offsets are missing";
}

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
    const auto indexed = NewObj<CountingFormat<PixelFormatIndexedColorInterface>>();
    ASSERT_TRUE(made && indexed);
    const std::atomic<int>& searches = made->GetPointer()->searches;
    const PixelFormat source = *made, rgb = FormatOf("rgb.u8");
    const BITS shifted[] = {BITS(8), BITS(16)};
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(FindConversion(rgb, source));
        EXPECT_EQ(searches, round == 0 ? 1 : 3);
        ASSERT_TRUE(FindConversion(rgb, source, rgb->GetChannelOffsets(), shifted)) << "other offsets, other key";
        ASSERT_TRUE(FindConversion(FormatOf("rgba.u8"), source));
        EXPECT_EQ(searches, 3);
    }
    // Pictures with other colours have the same id, and what is kept would keep the colours.
    for (int round = 1; round <= 3; ++round) {
        ASSERT_TRUE(FindConversion(FormatOf("grey.u8"), *indexed));
        ASSERT_TRUE(FindConversion(FormatOf("indexed.u8bit"), source));
        EXPECT_EQ(indexed->GetPointer()->searches, round);
        EXPECT_EQ(searches, 3 + round);
    }
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

TEST_F(RouteTest, ConcurrentThreadsShareFormatsAndRoutes) {
    constexpr int kThreads = 4;
    const std::vector<const char*> kLists[] = {
        {"weight"}, {"green", "alpha", "red"}, {"red", "green", "blue"}, {"mask", "mask", "grey"}};
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
    std::vector<PixelFormat> handles[kThreads];
    std::string answers[kThreads];
    RunAtOnce(kThreads, [&](int t) {
        answers[t] = search();
        for (int component = 0; component < kComponentTypeCount; ++component) {
            for (const auto& types : kLists) {
                handles[t].push_back(MakeFormat(types, ComponentType(component)).GetValueOr(PixelFormat()));
                EXPECT_TRUE(FindConversion(handles[t].back(), handles[t].back()));
            }
            EXPECT_FALSE(MakeFormat({"red", "cmyk_c"}, ComponentType(component)));
        }
    });
    EXPECT_THAT(handles, testing::Each(handles[0]));
    EXPECT_THAT(answers, testing::Each(search()));
    EXPECT_THAT(answers[0], testing::AllOf(HasSubstr("\n\n"), HasSubstr("No pixel conversion found")));
}

}  // namespace
}  // namespace orvik
