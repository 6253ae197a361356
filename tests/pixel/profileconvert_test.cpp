// Transforms between profiles against the colour library called directly; alpha, layouts, errors, threads.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gmock/gmock.h>
#include <random>

#include "profile_tools.h"
#include "slow_formats.h"
#include "support/threads.h"

namespace orvik {
namespace {

using testing::EndsWith;
using testing::StartsWith;
using Bytes = std::vector<uint8_t>;

constexpr auto kPerceptual = COLORCONVERSIONINTENT::PERCEPTUAL;
constexpr auto kBpc = COLORCONVERSIONFLAGS::BLACKPOINTCOMPENSATION;

/// All formats that need no rearranging.
const char* const kNatives[] = {
    "rgb.u8",    "rgb.u16",  "rgb.f32",  "rgb.f64",   "bgr.u8",    "bgr.u16",   "bgr.f32",  "rgba.u8",   "rgba.u16",
    "rgba.f32",  "rgba.f64", "argb.u8",  "argb.u16",  "argb.f32",  "argb.f64",  "bgra.u8",  "grey.u8",   "grey.u16",
    "grey.f32",  "grey.f64", "agrey.u8", "agrey.u16", "agrey.f32", "agrey.f64", "greya.u8", "greya.u16", "greya.f32",
    "greya.f64", "cmyk.u8",  "cmyk.u16", "cmyk.f32",  "acmyk.u8",  "acmyk.u16", "acmyk.f32"};

/// What the library calls a layout of the format's channels.
cmsUInt32Number WordOf(const PixelFormat& format) {
    const SlowFormat slow = Describe(format);
    const Int alpha = slow.Find("alpha"), red = slow.Find("red"), blue = slow.Find("blue");
    const auto space = cmsUInt32Number(red >= 0 ? PT_RGB : slow.Find("grey") >= 0 ? PT_GRAY : PT_CMYK);
    const auto extra = cmsUInt32Number(alpha >= 0), swaps = cmsUInt32Number(blue < red);
    const cmsUInt32Number swapsFirst = extra && (alpha == 0) != swaps;
    return FLOAT_SH(cmsUInt32Number(slow::IsFloat(slow.component))) | COLORSPACE_SH(space) | EXTRA_SH(extra) |
           CHANNELS_SH(cmsUInt32Number(slow.types.size()) - extra) | BYTES_SH(slow.size & 7) | DOSWAP_SH(swaps) |
           SWAPFIRST_SH(swapsFirst);
}

class ProfileConvertTest : public ModuleFixture {
protected:
    void SetUp() override {
        ModuleFixture::SetUp();
        srgb = colorprofiles::Get(colorprofiles::kSrgb);
        linear = colorprofiles::Get(colorprofiles::kLinearRgb);
        sgrey = colorprofiles::Get(colorprofiles::kSgrey);
        gamma = ColorProfile::OpenProfileFromMemory(MakeGammaProfile(1.8)).GetValueOr(ColorProfile());
        cmyk = ColorProfile::OpenProfileFromMemory(MakeCmykProfile()).GetValueOr(ColorProfile());
        ASSERT_TRUE(gamma.HasProfile() && cmyk.HasProfile());
    }
    void TearDown() override { srgb = linear = sgrey = gamma = cmyk = ColorProfile(); }

    ColorProfile ProfileFor(const PixelFormat& format, bool asSource) const {
        const Id space = format->GetColorSpace()->GetId();
        if (space == colorspaces::kRgb)
            return asSource ? srgb : gamma;
        if (space == colorspaces::kGrey)
            return asSource ? sgrey : colorprofiles::Get(colorprofiles::kLinearGrey);
        return cmyk;
    }
    /// Whole range of integers; floats in 0 ... 1, halves in steps.
    static Bytes MakePixels(const PixelFormat& format, Int count) {
        std::mt19937_64 random(7);
        std::uniform_real_distribution<double> unit(0, 1);
        const ComponentType type = format->GetChannels()[0]->GetComponentType();
        const size_t size = type == ComponentType::None ? 1 : size_t(GetComponentBits(type) / 8);
        Bytes pixels(size_t(format->GetBytesPerLine(count)));
        for (size_t i = 0; i + size <= pixels.size(); i += size) {
            const uint64_t raw = slow::IsFloat(type) ? slow::EncodeFloat(type, unit(random)) : random();
            std::memcpy(&pixels[i], &raw, size);
        }
        return pixels;
    }
    static Bytes Run(const ColorProfileConvert& convert, const PixelFormat& dst, const PixelFormat& src,
                     const Bytes& pixels, Int count) {
        Bytes out(size_t(dst->GetBytesPerLine(count)), 0xCD);
        const Result<void> done =
            convert->Convert({out.data(), dst->GetBitsPerPixel()}, {pixels.data(), src->GetBitsPerPixel()}, count);
        EXPECT_TRUE(done) << MessageOf(done);
        return out;
    }
    static ColorProfileConvert Make(const PixelFormat& src, const ColorProfile& srcProfile, const PixelFormat& dst,
                                    const ColorProfile& dstProfile) {
        const ColorProfileConvert convert = CreateConvert();
        const Result<Bool> made = convert->Init(src, srcProfile, dst, dstProfile, kPerceptual, kBpc);
        EXPECT_TRUE(made && *made) << TextOf(src->GetShortName()) << " " << TextOf(dst->GetShortName()) << " "
                                   << MessageOf(made);
        return convert;
    }
    /// Inks in floats are fractions here and percents in the library.
    static void ScaleInks(const PixelFormat& format, Bytes& pixels, auto change) {
        if (format->GetColorSpace()->GetId() != colorspaces::kCmyk || format->GetChannelOffsets()[1] != BITS(32))
            return;
        const size_t channels = size_t(format->GetChannelCount());
        for (size_t i = 0; i < pixels.size() / 4; ++i) {
            float ink;
            std::memcpy(&ink, &pixels[4 * i], 4);
            if (i % channels < 4)
                ink = change(ink);
            std::memcpy(&pixels[4 * i], &ink, 4);
        }
    }
    /// Alpha by the arithmetic of pixel conversion; opaque where the source has none.
    static void SetAlpha(const PixelFormat& dst, Bytes& out, const PixelFormat& src, const Bytes& pixels, Int count) {
        if (!dst->HasAlpha())
            return;
        const auto target = dst->GetAlphaPixelFormat().TakeValue();
        PixelFormat from = FormatOf("alpha.u8");
        const uint8_t opaque = 255;
        PixelLineConst line{&opaque, BITS(0)};
        if (src->HasAlpha()) {
            const auto source = src->GetAlphaPixelFormat().TakeValue();
            from = source.first;
            line = {pixels.data() + src->GetChannelOffsets()[source.second].GetBytes(), src->GetBitsPerPixel(), 0};
        }
        const PixelLine to{out.data() + dst->GetChannelOffsets()[target.second].GetBytes(), dst->GetBitsPerPixel()};
        ASSERT_TRUE(target.first->ConvertPixelFromSlow(to, count, line, from, nullptr, nullptr, {}));
    }

    ColorProfile srgb, linear, sgrey, gamma, cmyk;
};

TEST_F(ProfileConvertTest, NativeFormatsGiveWhatTheLibraryGives) {
    constexpr Int kCount = 150;
    const std::string partners[] = {"rgb.u8", "argb.f32", "grey.u16", "cmyk.u8"};
    for (const char* from : kNatives) {
        for (const char* to : kNatives) {
            const PixelFormat src = FormatOf(from), dst = FormatOf(to);
            const ColorProfile srcProfile = ProfileFor(src, true), dstProfile = ProfileFor(dst, false);
            if (!std::ranges::count(partners, from) && !std::ranges::count(partners, to))
                continue;
            if (srcProfile == dstProfile)
                continue;  // inks to inks
            const Bytes pixels = MakePixels(src, kCount);
            Bytes in = pixels, wanted(size_t(dst->GetBytesPerLine(kCount)));
            ScaleInks(src, in, [](float ink) { return ink * 100; });
            ASSERT_TRUE(
                BareConvert(srcProfile, WordOf(src), in.data(), dstProfile, WordOf(dst), wanted.data(), kCount));
            ScaleInks(dst, wanted, [](float ink) { return ink / 100; });
            SetAlpha(dst, wanted, src, pixels, kCount);
            EXPECT_EQ(Run(Make(src, srcProfile, dst, dstProfile), dst, src, pixels, kCount), wanted)
                << from << " to " << to;
        }
    }
}

TEST_F(ProfileConvertTest, OtherFormatsGoThroughTheNearestNativeOne) {
    const std::pair<const char*, const char*> kCases[] = {
        {"rgb.u8", "rgb.u8"},      {"rgba.u8", "argb.u8"},       {"bgra.f16", "argb.f32"},
        {"rgb.f16", "rgb.f32"},    {"rgb.u32", "rgb.f32"},       {"rgb.s32", "rgb.f32"},
        {"xrgb.u8", "rgb.u8"},     {"rgba.f64", "argb.f64"},     {"greya.u16", "agrey.u16"},
        {"grey.f16", "grey.f32"},  {"greya.f64", "agrey.f64"},   {"rgb.u565", "rgb.u8"},
        {"argb.u1555", "argb.u8"}, {"cmyk_inv.u16", "cmyk.u16"}, {"acmyk_inv.f32", "acmyk.f32"},
        {"yuv.i422a", "rgb.u8"},   {"rgb.rgbe", "rgb.f32"},      {"dynamic.redgreenu8", "rgb.u8"}};
    const ColorProfileConvert convert = CreateConvert();
    for (const auto& [name, nearest] : kCases)
        EXPECT_EQ(convert->GetNearestNativeFormat(FormatOf(name)).GetValueOr(nullptr), FormatOf(nearest)) << name;
    for (const char* name : {"alpha.u8", "alpha.f64"}) {
        const PixelFormat format = FormatOf(name), rgb = FormatOf("rgb.u8");
        const std::string text =
            "No compatible color profile conversion pixel format found for: " + TextOf(format->GetId()) + ".";
        EXPECT_EQ(MessageOf(convert->GetNearestNativeFormat(format)), text);
        EXPECT_EQ(MessageOf(convert->Init(format, srgb, rgb, linear, kPerceptual, kBpc)), text);
        EXPECT_EQ(MessageOf(convert->Init(rgb, linear, format, srgb, kPerceptual, kBpc)), text);
    }
    EXPECT_FALSE(convert->GetNearestNativeFormat(PixelFormat()));
}

TEST_F(ProfileConvertTest, BlocksOfAnyLengthEqualTheirSteps) {
    // Halves go through floats, U32 to floats, the X format has no word: each in blocks, by steps that the test makes.
    const std::tuple<const char*, const char*, const char*, const char*> kCases[] = {
        {"rgb.f16", "rgb.f32", "rgb.u8", "rgb.u8"},
        {"bgra.f16", "argb.f32", "rgba.u32", "argb.f32"},
        {"bgrx.u8", "rgb.u8", "greya.f16", "agrey.f32"}};
    for (const auto& [srcName, srcNativeName, dstName, dstNativeName] : kCases) {
        const PixelFormat src = FormatOf(srcName), dst = FormatOf(dstName);
        const PixelFormat srcNative = FormatOf(srcNativeName), dstNative = FormatOf(dstNativeName);
        const ColorProfile dstProfile = ProfileFor(dst, false);
        const ColorProfileConvert convert = Make(src, srgb, dst, dstProfile);
        for (Int count = 1; count <= 200; ++count) {
            const Bytes pixels = MakePixels(src, count);
            const Bytes in = ConvertBytes(srcNative, src, pixels.data(), count);
            Bytes native(size_t(dstNative->GetBytesPerLine(count)));
            ASSERT_TRUE(
                BareConvert(srgb, WordOf(srcNative), in.data(), dstProfile, WordOf(dstNative), native.data(), count));
            Bytes wanted = ConvertBytes(dst, dstNative, native.data(), count);
            SetAlpha(dst, wanted, src, pixels, count);
            Bytes out(wanted.size() + 16, 0xCD);
            ASSERT_TRUE(
                convert->Convert({out.data(), dst->GetBitsPerPixel()}, {pixels.data(), src->GetBitsPerPixel()}, count));
            ASSERT_EQ(Bytes(out.begin() + wanted.size(), out.end()), Bytes(16, 0xCD)) << srcName << " " << count;
            out.resize(wanted.size());
            ASSERT_EQ(out, wanted) << srcName << " to " << dstName << " " << count;
            count += count > 70 && count < 120 ? 10 : 0;  // transforms are slow to make
        }
    }
}

TEST_F(ProfileConvertTest, IntentsAndFlagsReachTheLibrary) {
    const PixelFormat rgb = FormatOf("rgb.u8"), inks = FormatOf("cmyk.u8");
    const Bytes pixels = MakePixels(rgb, 100);
    const std::pair<COLORCONVERSIONINTENT, cmsUInt32Number> kIntents[] = {
        {COLORCONVERSIONINTENT::PERCEPTUAL, 0},
        {COLORCONVERSIONINTENT::RELATIVE_COLORIMETRIC, 1},
        {COLORCONVERSIONINTENT::SATURATION, 2},
        {COLORCONVERSIONINTENT::ABSOLUTE_COLORIMETRIC, 1}};
    for (const auto& [intent, wantedIntent] : kIntents) {
        for (const auto flags : {COLORCONVERSIONFLAGS::NONE, kBpc}) {
            const ColorProfileConvert convert = CreateConvert();
            ASSERT_TRUE(convert->Init(rgb, gamma, inks, cmyk, intent, flags).GetValueOr(false));
            Bytes wanted(400);
            ASSERT_TRUE(BareConvert(gamma, TYPE_RGB_8, pixels.data(), cmyk, TYPE_CMYK_8, wanted.data(), 100,
                                    wantedIntent, flags == kBpc ? 0x2000 : 0));
            EXPECT_EQ(Run(convert, inks, rgb, pixels, 100), wanted) << int(intent) << " " << int(flags);
        }
    }
}

TEST_F(ProfileConvertTest, AcceptsAnyPlacement) {
    constexpr Int kCount = 131;
    const std::pair<const char*, const char*> kCases[] = {
        {"rgb.u8", "rgba.u16"},   {"rgba.f32", "rgb.u8"},   {"rgba.f16", "bgra.f16"}, {"rgb.f32", "rgb.f32"},
        {"argb.u16", "grey.f64"}, {"greya.u8", "argb.f32"}, {"rgba.u16", "rgb.u8"},   {"rgb.u8", "rgb.u8"},
        {"argb.u8", "argb.u8"},   {"rgba.f32", "rgba.f32"}, {"bgra.f16", "bgra.f16"}, {"rgba.u32", "rgba.u32"}};
    // Gaps, odd addresses, channels in planes and in another order, from the last pixel to the first.
    const auto placesOf = [](const PixelFormat& format) {
        const Placement dense = PlaceDense(format);
        std::vector<Placement> places = {dense, PlaceInPlanes(Describe(format), kCount),
                                         PlaceOddly(Describe(format), kCount, false)};
        for (const Int gap : {0, 1, 3, 8, 16, 24, 40}) {
            const Int stride = dense.stride + gap;
            places.push_back({gap % 8, stride, dense.offsets});
            places.push_back({gap % 8 + (kCount - 1) * stride, -stride, dense.offsets});
        }
        return places;
    };
    for (const auto& [srcName, dstName] : kCases) {
        const PixelFormat src = FormatOf(srcName), dst = FormatOf(dstName);
        const ColorProfile srcProfile = ProfileFor(src, true),
                           dstProfile = src == dst ? linear : ProfileFor(dst, false);
        const ColorProfileConvert packed = Make(src, srcProfile, dst, dstProfile);
        const Bytes pixels = MakePixels(src, kCount), wanted = Run(packed, dst, src, pixels, kCount);
        const std::vector<Placement> from = placesOf(src), to = placesOf(dst);
        for (size_t i = 0; i < 3 * from.size(); ++i) {
            const Placement& srcPlace = from[i < from.size() ? 0 : i % from.size()];
            const Placement& dstPlace = to[i / from.size() == 1 ? 0 : i % from.size()];
            const Bytes in = Scatter(Describe(src), srcPlace, pixels, kCount, kCount);
            const Bytes expected = Scatter(Describe(dst), dstPlace, wanted, kCount, kCount);
            const ColorProfileConvert convert = CreateConvert();
            ASSERT_TRUE(convert
                            ->InitWithOffsets(src, srcPlace.offsets, srcProfile, dst, dstPlace.offsets, dstProfile,
                                              kPerceptual, kBpc)
                            .GetValueOr(false));
            Bytes out(expected.size(), 0xCD);
            ASSERT_TRUE(convert->Convert({&out[size_t(dstPlace.first)], BITS(8 * dstPlace.stride)},
                                         {&in[size_t(srcPlace.first)], BITS(8 * srcPlace.stride)}, kCount));
            EXPECT_EQ(out, expected) << srcName << " to " << dstName << ", layout " << i;
        }
        Bytes spread(wanted.size()), expected = Scatter(Describe(dst), PlaceDense(dst), wanted, kCount, 1);
        ASSERT_TRUE(packed->Convert({spread.data(), dst->GetBitsPerPixel()}, {pixels.data(), BITS(0)}, kCount));
        expected.resize(spread.size());
        EXPECT_EQ(spread, expected) << srcName << ", one pixel for the whole run";
        if (src == dst) {
            Bytes line = pixels;
            ASSERT_TRUE(
                packed->Convert({line.data(), src->GetBitsPerPixel()}, {line.data(), src->GetBitsPerPixel()}, kCount));
            EXPECT_EQ(line, wanted) << srcName << " in place";
        }
        for (const Int none : {0, -5})
            ASSERT_TRUE(packed->Convert({nullptr, BITS()}, {nullptr, BITS()}, none));
        const ChannelOffsets srcOwn = src->GetChannelOffsets(), dstOwn = dst->GetChannelOffsets();
        EXPECT_FALSE(CreateConvert()->InitWithOffsets(src, {}, srcProfile, dst, dstOwn, dstProfile, kPerceptual, kBpc));
        EXPECT_FALSE(CreateConvert()->InitWithOffsets(src, srcOwn, srcProfile, dst, dstOwn.first(1), dstProfile,
                                                      kPerceptual, kBpc));
    }
}

TEST_F(ProfileConvertTest, WhatCannotBeSetUpSaysWhy) {
    const PixelFormat rgb = FormatOf("rgb.u8"), floats = FormatOf("rgb.f32");
    constexpr COLORCONVERSIONINTENT kIllegal[] = {COLORCONVERSIONINTENT(4), COLORCONVERSIONINTENT(-1)};
    const std::string none = "no profile found", illegal = "Illegal COLORCONVERSIONINTENT";
    const std::string failed = "cmsCreateTransform failed <- LCMS Error: ";
    const struct {
        PixelFormat src;
        ColorProfile srcProfile;
        PixelFormat dst;
        ColorProfile dstProfile;
        COLORCONVERSIONINTENT intent;
        std::string message;
    } kCases[] = {{nullptr, srgb, rgb, linear, kPerceptual, none}, {rgb, srgb, nullptr, linear, kPerceptual, none},
                  {rgb, {}, rgb, linear, kPerceptual, none},       {rgb, srgb, rgb, {}, kPerceptual, none},
                  {rgb, srgb, rgb, linear, kIllegal[0], illegal},  {rgb, srgb, rgb, linear, kIllegal[1], illegal},
                  {rgb, sgrey, rgb, linear, kPerceptual, failed},  {rgb, srgb, rgb, cmyk, kPerceptual, failed}};
    for (const auto& [src, srcProfile, dst, dstProfile, intent, message] : kCases) {
        const Result<Bool> made = CreateConvert()->Init(src, srcProfile, dst, dstProfile, intent, kBpc);
        ASSERT_FALSE(made) << message;
        EXPECT_THAT(ChainOf(made.GetError()), StartsWith(message));
    }
    for (const PixelFormat& format : {rgb, floats}) {
        const ColorProfileConvert equal = CreateConvert();
        EXPECT_FALSE(equal->Init(format, srgb, format, srgb, kPerceptual, kBpc).GetValueOr(true));
        uint8_t pixel[12] = {};
        EXPECT_FALSE(equal->Convert({pixel, BITS(96)}, {pixel, BITS(96)}, 1)) << "nothing was set up";
    }
    const ColorProfileConvert once = Make(rgb, srgb, rgb, linear);
    EXPECT_FALSE(once->Init(rgb, linear, rgb, srgb, kPerceptual, kBpc)) << "others may be running it";
}

TEST_F(ProfileConvertTest, TheHashTellsProfilesAndFormatsApart) {
    const PixelFormat rgb = FormatOf("rgb.u8"), rgba = FormatOf("rgba.u8");
    const uint64_t hash = Make(rgb, srgb, rgba, linear)->GetHashCode();
    EXPECT_EQ(Make(rgb, srgb, rgba, linear)->GetHashCode(), hash);
    for (const ColorProfileConvert& other : {Make(rgb, linear, rgba, srgb), Make(rgba, srgb, rgb, linear),
                                             Make(rgb, srgb, rgb, linear), Make(rgb, gamma, rgba, linear)})
        EXPECT_NE(other->GetHashCode(), hash);
}

TEST_F(ProfileConvertTest, PixelConversionTakesTheTransformWhereProfilesDecide) {
    constexpr auto kForce = CONVERTPIXELFLAGS::FORCECOLORPROFILECONVERSION;
    constexpr auto kNone = CONVERTPIXELFLAGS::NONE;
    const ColorProfile linearGrey = colorprofiles::Get(colorprofiles::kLinearGrey);
    const ColorProfile blackInk = colorprofiles::Get(colorprofiles::kCmykDefault);
    const struct {
        const char* what;
        const char* src;
        const ColorProfile* srcProfile;
        const char* dst;
        const ColorProfile* dstProfile;
        CONVERTPIXELFLAGS flags;
        bool converts;                           ///< else plain arithmetic
        const ColorProfile* startsAt = nullptr;  ///< what the source is taken for, where that is not given
    } kCases[] = {
        {"spaces differ", "rgb.u8", &srgb, "grey.u8", &linearGrey, kNone, true},
        {"same space", "rgb.u8", &srgb, "rgb.u16", &linear, kNone, false},
        {"same space, forced", "rgb.u8", &srgb, "rgb.u16", &linear, kForce, true},
        {"no source profile", "rgb.u8", nullptr, "grey.u8", &linearGrey, kNone, false},
        {"default of the source, forced", "rgb.u8", nullptr, "grey.u8", &linearGrey, kForce, true},
        {"equal profiles, forced", "rgb.u8", &linear, "rgb.u16", &linear, kForce, false},
        {"inks", "rgb.u8", &srgb, "cmyk.u8", &cmyk, kNone, true},
        {"failure is dropped", "rgb.u8", &sgrey, "grey.u8", &linearGrey, kNone, false},
        {"failure is dropped, forced", "rgb.u8", &srgb, "rgb.u16", &sgrey, kForce, false},
        {"source profile of another space", "grey.u8", &srgb, "grey.u16", &linearGrey, kNone, false},
        {"source profile of another space, forced", "grey.u8", &srgb, "rgb.f32", &linear, kForce, true, &sgrey},
        {"the same in one space", "rgba.u8", &blackInk, "rgb.u16", &gamma, kForce, true},
        {"the default of inks begins no transform", "cmyk.u8", &srgb, "cmyk.u16", &cmyk, kForce, false, &blackInk},
    };
    for (const auto& entry : kCases) {
        const PixelFormat src = FormatOf(entry.src), dst = FormatOf(entry.dst);
        const Bytes pixels = MakePixels(src, 90);
        ColorProfile target = *entry.dstProfile;
        bool converts = false;
        const auto convert = dst->GetConvertPixelFunc(src, src->GetChannelOffsets(), dst->GetChannelOffsets(),
                                                      entry.srcProfile, &target, entry.flags, converts);
        ASSERT_TRUE(convert) << entry.what << ": " << MessageOf(convert);
        EXPECT_EQ(converts, entry.converts) << entry.what;
        const bool keepsNumbers = !converts && entry.srcProfile && src->GetColorSpace() == dst->GetColorSpace();
        EXPECT_EQ(target, keepsNumbers ? *(entry.startsAt ? entry.startsAt : entry.srcProfile) : *entry.dstProfile)
            << entry.what;
        Bytes wanted(size_t(dst->GetBytesPerLine(90))), out(wanted.size());
        if (!converts) {
            wanted = ConvertBytes(dst, src, pixels.data(), 90);
        } else {
            ASSERT_TRUE(BareConvert(entry.startsAt ? *entry.startsAt : srgb, WordOf(src), pixels.data(),
                                    *entry.dstProfile, WordOf(dst), wanted.data(), 90));
        }
        ASSERT_TRUE(
            (*convert)({out.data(), dst->GetBitsPerPixel()}, 90, {pixels.data(), src->GetBitsPerPixel()}, entry.flags));
        EXPECT_EQ(out, wanted) << entry.what;
    }
    const auto force = [](const char* to, const ColorProfile* srcProfile, ColorProfile* dstProfile) {
        const PixelFormat src = FormatOf("rgb.u8"), dst = FormatOf(to);
        bool converts = false;
        return MessageOf(dst->GetConvertPixelFunc(src, src->GetChannelOffsets(), dst->GetChannelOffsets(), srcProfile,
                                                  dstProfile, kForce, converts));
    };
    ColorProfile none;
    EXPECT_EQ(force("grey.u8", &srgb, &none),
              "Warning: Pixel conversion with different color spaces: net.orvik.image.colorspace.rgb != "
              "net.orvik.image.colorspace.grey and incomplete color profiles: sRGB IEC61966-2.1 != <<no profile>>");
    EXPECT_THAT(force("grey.u8", nullptr, nullptr), EndsWith("profiles: <<no profile>> != <<no profile>>"));
    EXPECT_EQ(force("rgba.u8", nullptr, nullptr), "");
}

TEST_F(ProfileConvertTest, ThreadsShareATransformAndMakeTheirOwn) {
    const PixelFormat src = FormatOf("rgba.u8"), dst = FormatOf("rgba.f16"), third = FormatOf("bgr.u16");
    const Bytes pixels = MakePixels(src, 300);
    const ColorProfileConvert shared = Make(src, srgb, dst, gamma);
    const Bytes wanted = Run(shared, dst, src, pixels, 300);
    const Bytes wantedThird = Run(Make(src, srgb, third, linear), third, src, pixels, 300);
    RunAtOnce(4, [&](int t) {
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(Run(shared, dst, src, pixels, 300), wanted);
            EXPECT_EQ(Run(Make(src, srgb, third, linear), third, src, pixels, 300), wantedThird);
            EXPECT_EQ(MessageOf(CreateConvert()->Init(src, sgrey, dst, t % 2 ? gamma : linear, kPerceptual, kBpc)),
                      "cmsCreateTransform failed");
        }
    });
}

TEST_F(ProfileConvertTest, RememberedTransformsDoNotKeepProfilesAlive) {
    const PixelFormat rgb = FormatOf("rgb.u8");
    const Bytes pixels = MakePixels(rgb, 64);
    for (const double exponent : {2.6, 1.2, 2.6, 3.0}) {  // each may lie where an earlier one was
        const Result<ColorProfile> profile = ColorProfile::OpenProfileFromMemory(MakeGammaProfile(exponent));
        ASSERT_TRUE(profile);
        Bytes wanted(192);
        ASSERT_TRUE(BareConvert(*profile, TYPE_RGB_8, pixels.data(), srgb, TYPE_RGB_8, wanted.data(), 64));
        const ColorProfileConvert convert = Make(rgb, *profile, rgb, srgb);
        EXPECT_EQ(Run(convert, rgb, rgb, pixels, 64), wanted) << exponent;
        EXPECT_EQ(profile->GetEntry()->GetStrongCount(), 1);
    }
}

}  // namespace
}  // namespace orvik
