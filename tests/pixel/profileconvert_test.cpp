// Transforms between profiles against the colour library called directly; alpha, layouts, errors, threads.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gmock/gmock.h>
#include <random>
#include <thread>

#include "profile_tools.h"

namespace orvik {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Bytes = std::vector<uint8_t>;

constexpr auto kPerceptual = COLORCONVERSIONINTENT::PERCEPTUAL;
constexpr auto kBpc = COLORCONVERSIONFLAGS::BLACKPOINTCOMPENSATION;

constexpr cmsUInt32Number Word(int space, int channels, int bytes, int extra, bool isFloat, bool swapFirst = false,
                               bool swap = false) {
    return FLOAT_SH(isFloat) | COLORSPACE_SH(space) | CHANNELS_SH(channels) | BYTES_SH(bytes & 7) | EXTRA_SH(extra) |
           SWAPFIRST_SH(swapFirst) | DOSWAP_SH(swap);
}

/// All formats that need no rearranging, in the library's words made of their layout.
const struct NativeCase {
    const char* name;
    cmsUInt32Number word;
    int alpha = -1;  ///< index of the channel
} kNatives[] = {
    {"rgb.u8", TYPE_RGB_8},
    {"rgb.u16", TYPE_RGB_16},
    {"rgb.f32", TYPE_RGB_FLT},
    {"rgb.f64", TYPE_RGB_DBL},
    {"bgr.u8", TYPE_BGR_8},
    {"bgr.u16", TYPE_BGR_16},
    {"bgr.f32", TYPE_BGR_FLT},
    {"rgba.u8", TYPE_RGBA_8, 3},
    {"rgba.u16", TYPE_RGBA_16, 3},
    {"rgba.f32", TYPE_RGBA_FLT, 3},
    {"rgba.f64", Word(PT_RGB, 3, 8, 1, true), 3},
    {"argb.u8", TYPE_ARGB_8, 0},
    {"argb.u16", TYPE_ARGB_16, 0},
    {"argb.f32", TYPE_ARGB_FLT, 0},
    {"argb.f64", Word(PT_RGB, 3, 8, 1, true, true), 0},
    {"bgra.u8", TYPE_BGRA_8, 3},
    {"grey.u8", TYPE_GRAY_8},
    {"grey.u16", TYPE_GRAY_16},
    {"grey.f32", TYPE_GRAY_FLT},
    {"grey.f64", TYPE_GRAY_DBL},
    {"agrey.u8", Word(PT_GRAY, 1, 1, 1, false, true), 0},
    {"agrey.u16", Word(PT_GRAY, 1, 2, 1, false, true), 0},
    {"agrey.f32", Word(PT_GRAY, 1, 4, 1, true, true), 0},
    {"agrey.f64", Word(PT_GRAY, 1, 8, 1, true, true), 0},
    {"greya.u8", TYPE_GRAYA_8, 1},
    {"greya.u16", TYPE_GRAYA_16, 1},
    {"greya.f32", Word(PT_GRAY, 1, 4, 1, true), 1},
    {"greya.f64", Word(PT_GRAY, 1, 8, 1, true), 1},
    {"cmyk.u8", TYPE_CMYK_8},
    {"cmyk.u16", TYPE_CMYK_16},
    {"cmyk.f32", TYPE_CMYK_FLT},
    {"acmyk.u8", TYPE_CMYKA_8, 4},
    {"acmyk.u16", Word(PT_CMYK, 4, 2, 1, false), 4},
    {"acmyk.f32", Word(PT_CMYK, 4, 4, 1, true), 4},
};

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
    /// Whole range of integers; floats in 0 ... 1.
    static Bytes MakePixels(const PixelFormat& format, Int count) {
        std::mt19937 random(7);
        const ComponentType type = format->GetChannels()[0]->GetComponentType();
        Bytes pixels(static_cast<size_t>(format->GetBytesPerLine(count)));
        for (uint8_t& byte : pixels)
            byte = static_cast<uint8_t>(random());
        std::uniform_real_distribution<double> unit(0, 1);
        const auto fill = [&](auto zero, auto encode) {
            for (size_t i = 0; i + sizeof(zero) <= pixels.size(); i += sizeof(zero)) {
                zero = encode(unit(random));
                std::memcpy(&pixels[i], &zero, sizeof(zero));
            }
        };
        if (type == ComponentType::F32)
            fill(0.0f, [](double v) { return float(v); });
        else if (type == ComponentType::F64)
            fill(0.0, [](double v) { return v; });
        else if (type == ComponentType::F16)
            fill(uint16_t(0), [](double v) { return static_cast<uint16_t>(0x3C00 * v); });  // steps of halves up to 1
        return pixels;
    }
    static Bytes Run(const ColorProfileConvert& convert, const PixelFormat& dst, const PixelFormat& src,
                     const Bytes& pixels, Int count) {
        Bytes out(static_cast<size_t>(dst->GetBytesPerLine(count)), 0xCD);
        const Result<void> done = convert->Convert({out.data(), dst->GetBitsPerPixel(), 0},
                                                   {pixels.data(), src->GetBitsPerPixel(), 0}, count);
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
    static void ScaleInks(const NativeCase& native, Bytes& pixels, auto change) {
        if (!T_FLOAT(native.word) || T_COLORSPACE(native.word) != PT_CMYK)
            return;
        const size_t channels = native.alpha < 0 ? 4 : 5;
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
        const auto line = [](auto data, const PixelFormat& format, Int index) {
            return std::pair(data + format->GetChannelOffsets()[index].GetBytes(), format->GetBitsPerPixel());
        };
        const auto target = dst->GetAlphaPixelFormat();
        ASSERT_TRUE(target);
        const auto [to, toStride] = line(out.data(), dst, target->second);
        PixelFormat from = FormatOf("alpha.u8");
        const uint8_t opaque = 255;
        PixelLineConst fromLine{&opaque, BITS(0), 0};
        if (src->HasAlpha()) {
            const auto source = src->GetAlphaPixelFormat();
            ASSERT_TRUE(source);
            const auto [data, stride] = line(pixels.data(), src, source->second);
            from = source->first;
            fromLine = {data, stride, 0};
        }
        ASSERT_TRUE(target->first->ConvertPixelFromSlow({to, toStride, 0}, count, fromLine, from, nullptr, nullptr,
                                                        CONVERTPIXELFLAGS::NONE));
    }

    ColorProfile srgb, linear, sgrey, gamma, cmyk;
};

// --- Against the library ---------------------------------------------------------------------------------------------

TEST_F(ProfileConvertTest, NativeFormatsGiveWhatTheLibraryGives) {
    constexpr Int kCount = 150;
    const std::string partners[] = {"rgb.u8", "argb.f32", "grey.u16", "cmyk.u8"};
    const auto check = [&](const NativeCase& from, const NativeCase& to) {
        const PixelFormat src = FormatOf(from.name), dst = FormatOf(to.name);
        const ColorProfile srcProfile = ProfileFor(src, true);
        const ColorProfile dstProfile = ProfileFor(dst, false);
        if (srcProfile == dstProfile)
            return;  // inks to inks
        const Bytes pixels = MakePixels(src, kCount);
        Bytes in = pixels, wanted(static_cast<size_t>(dst->GetBytesPerLine(kCount)));
        ScaleInks(from, in, [](float ink) { return ink * 100; });
        ASSERT_TRUE(BareConvert(srcProfile, from.word, in.data(), dstProfile, to.word, wanted.data(), kCount));
        ScaleInks(to, wanted, [](float ink) { return ink / 100; });
        SetAlpha(dst, wanted, src, pixels, kCount);
        EXPECT_EQ(Run(Make(src, srcProfile, dst, dstProfile), dst, src, pixels, kCount), wanted)
            << from.name << " to " << to.name;
    };
    for (const NativeCase& native : kNatives) {
        for (const NativeCase& partner : kNatives) {
            if (std::ranges::find(partners, partner.name) == std::end(partners))
                continue;
            check(native, partner);
            if (std::string(native.name) != partner.name)
                check(partner, native);
        }
    }
}

TEST_F(ProfileConvertTest, OtherFormatsGoThroughTheNearestNativeOne) {
    const struct {
        const char* name;
        const char* nearest;
    } kCases[] = {
        {"rgb.u8", "rgb.u8"},      {"rgba.u8", "argb.u8"},       {"bgra.f16", "argb.f32"},
        {"rgb.f16", "rgb.f32"},    {"rgb.u32", "rgb.f32"},       {"rgb.s32", "rgb.f32"},
        {"xrgb.u8", "rgb.u8"},     {"rgba.f64", "argb.f64"},     {"greya.u16", "agrey.u16"},
        {"grey.f16", "grey.f32"},  {"greya.f64", "agrey.f64"},   {"rgb.u565", "rgb.u8"},
        {"argb.u1555", "argb.u8"}, {"cmyk_inv.u16", "cmyk.u16"}, {"acmyk_inv.f32", "acmyk.f32"},
        {"yuv.i422a", "rgb.u8"},   {"rgb.rgbe", "rgb.f32"},      {"dynamic.redgreenu8", "rgb.u8"},
    };
    const ColorProfileConvert convert = CreateConvert();
    for (const auto& entry : kCases) {
        const Result<PixelFormat> nearest = convert->GetNearestNativeFormat(FormatOf(entry.name));
        ASSERT_TRUE(nearest) << entry.name << ": " << MessageOf(nearest);
        EXPECT_EQ(*nearest, FormatOf(entry.nearest)) << entry.name;
    }
    for (const char* name : {"alpha.u8", "alpha.f64", "dynamic.uvf32"}) {
        const PixelFormat format = FormatOf(name);
        if (!format)
            continue;
        const std::string text =
            "No compatible color profile conversion pixel format found for: " + TextOf(format->GetId()) + ".";
        EXPECT_EQ(MessageOf(convert->GetNearestNativeFormat(format)), text);
        EXPECT_EQ(MessageOf(convert->Init(format, srgb, FormatOf("rgb.u8"), linear, kPerceptual, kBpc)), text);
        EXPECT_EQ(MessageOf(convert->Init(FormatOf("rgb.u8"), linear, format, srgb, kPerceptual, kBpc)), text);
    }
    EXPECT_FALSE(convert->GetNearestNativeFormat(PixelFormat()));
}

TEST_F(ProfileConvertTest, BlocksOfAnyLengthEqualTheirSteps) {
    // Halves go through floats, U32 to floats, the X format has no word: each in blocks, by steps that the test makes.
    const struct {
        const char* src;
        const char* srcNative;
        const char* dst;
        const char* dstNative;
        cmsUInt32Number srcWord, dstWord;
    } kCases[] = {
        {"rgb.f16", "rgb.f32", "rgb.u8", "rgb.u8", TYPE_RGB_FLT, TYPE_RGB_8},
        {"bgra.f16", "argb.f32", "rgba.u32", "argb.f32", TYPE_ARGB_FLT, TYPE_ARGB_FLT},
        {"bgrx.u8", "rgb.u8", "greya.f16", "agrey.f32", TYPE_RGB_8, Word(PT_GRAY, 1, 4, 1, true, true)},
    };
    for (const auto& entry : kCases) {
        const PixelFormat src = FormatOf(entry.src), dst = FormatOf(entry.dst);
        const PixelFormat srcNative = FormatOf(entry.srcNative), dstNative = FormatOf(entry.dstNative);
        const ColorProfile dstProfile = ProfileFor(dst, false);
        const ColorProfileConvert convert = Make(src, srgb, dst, dstProfile);
        for (Int count = 1; count <= 200; ++count) {
            const Bytes pixels = MakePixels(src, count);
            const Bytes in = ConvertBytes(srcNative, src, pixels.data(), count);
            Bytes native(static_cast<size_t>(dstNative->GetBytesPerLine(count)));
            ASSERT_TRUE(BareConvert(srgb, entry.srcWord, in.data(), dstProfile, entry.dstWord, native.data(), count));
            Bytes wanted = ConvertBytes(dst, dstNative, native.data(), count);
            SetAlpha(dst, wanted, src, pixels, count);
            Bytes out(wanted.size() + 16, 0xCD);
            ASSERT_TRUE(convert->Convert({out.data(), dst->GetBitsPerPixel(), 0},
                                         {pixels.data(), src->GetBitsPerPixel(), 0}, count));
            ASSERT_EQ(Bytes(out.begin() + wanted.size(), out.end()), Bytes(16, 0xCD)) << entry.src << " " << count;
            out.resize(wanted.size());
            ASSERT_EQ(out, wanted) << entry.src << " to " << entry.dst << " " << count;
            count += count > 70 && count < 120 ? 10 : 0;  // transforms are slow to make
        }
    }
}

TEST_F(ProfileConvertTest, IntentsAndFlagsReachTheLibrary) {
    const PixelFormat rgb = FormatOf("rgb.u8"), inks = FormatOf("cmyk.u8");
    const Bytes pixels = MakePixels(rgb, 100);
    const struct {
        COLORCONVERSIONINTENT intent;
        cmsUInt32Number wanted;
    } kIntents[] = {{COLORCONVERSIONINTENT::PERCEPTUAL, 0},
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

// --- Layouts ---------------------------------------------------------------------------------------------------------

TEST_F(ProfileConvertTest, LinesMayLieAnyhow) {
    constexpr Int kCount = 131;
    const struct {
        const char* src;
        const char* dst;
    } kCases[] = {{"rgb.u8", "rgba.u16"}, {"rgba.f32", "rgb.u8"},   {"rgba.f16", "bgra.f16"},
                  {"rgb.f32", "rgb.f32"}, {"argb.u16", "grey.f64"}, {"greya.u8", "argb.f32"}};
    for (const auto& entry : kCases) {
        const PixelFormat src = FormatOf(entry.src), dst = FormatOf(entry.dst);
        const bool formula = std::string(entry.src) == "rgb.f32";
        const ColorProfile dstProfile = formula ? linear : ProfileFor(dst, false);
        const ColorProfileConvert convert = Make(src, ProfileFor(src, true), dst, dstProfile);
        const Bytes pixels = MakePixels(src, kCount);
        const Bytes wanted = Run(convert, dst, src, pixels, kCount);
        const Int srcBytes = src->GetBitsPerPixel().GetBytes(), dstBytes = dst->GetBitsPerPixel().GetBytes();
        // Gaps in bytes between the pixels on both sides, shift of the first byte, direction.
        const struct {
            Int srcGap, dstGap, shift;
            int srcSign, dstSign;
        } kLayouts[] = {{8, 16, 0, 1, 1}, {0, 8, 0, 1, 1},  {24, 0, 0, 1, 1}, {1, 3, 0, 1, 1},   {0, 0, 1, 1, 1},
                        {0, 0, 3, 1, 1},  {0, 0, 0, -1, 1}, {0, 0, 0, 1, -1}, {40, 40, 0, 1, 1}, {8, 8, 8, -1, -1}};
        for (const auto& layout : kLayouts) {
            const Int srcStride = srcBytes + layout.srcGap, dstStride = dstBytes + layout.dstGap;
            const auto first = [&](int sign, Int stride) { return sign < 0 ? (kCount - 1) * stride : 0; };
            std::vector<uint64_t> srcWords(static_cast<size_t>(srcStride * kCount + 64) / 8);
            std::vector<uint64_t> dstWords(static_cast<size_t>(dstStride * kCount + 64) / 8, 0xCDCDCDCDCDCDCDCD);
            auto* in = reinterpret_cast<uint8_t*>(srcWords.data()) + layout.shift + first(layout.srcSign, srcStride);
            auto* out = reinterpret_cast<uint8_t*>(dstWords.data()) + layout.shift + first(layout.dstSign, dstStride);
            for (Int i = 0; i < kCount; ++i)
                std::memcpy(in + i * srcStride * layout.srcSign, &pixels[static_cast<size_t>(i * srcBytes)],
                            static_cast<size_t>(srcBytes));
            ASSERT_TRUE(convert->Convert({out, BITS(8 * dstStride * layout.dstSign), 0},
                                         {in, BITS(8 * srcStride * layout.srcSign), 0}, kCount));
            bool same = true, untouched = true;
            for (Int i = 0; i < kCount; ++i) {
                const uint8_t* pixel = out + i * dstStride * layout.dstSign;
                same &=
                    std::memcmp(pixel, &wanted[static_cast<size_t>(i * dstBytes)], static_cast<size_t>(dstBytes)) == 0;
                untouched &= std::all_of(pixel + dstBytes, pixel + dstStride, [](uint8_t b) { return b == 0xCD; });
            }
            EXPECT_TRUE(same && untouched) << entry.src << " to " << entry.dst << " layout " << &layout - kLayouts;
        }
        const Int constant = 0;  // one source pixel for the whole run
        Bytes spread(wanted.size());
        ASSERT_TRUE(
            convert->Convert({spread.data(), dst->GetBitsPerPixel(), 0}, {pixels.data(), BITS(constant), 0}, kCount));
        for (Int i = 0; i < kCount; ++i)
            ASSERT_EQ(
                std::memcmp(&spread[static_cast<size_t>(i * dstBytes)], wanted.data(), static_cast<size_t>(dstBytes)),
                0)
                << entry.src << " " << i;
        ASSERT_TRUE(convert->Convert({nullptr, BITS(), 0}, {nullptr, BITS(), 0}, 0));
        ASSERT_TRUE(convert->Convert({nullptr, BITS(), 0}, {nullptr, BITS(), 0}, -5));
    }
}

TEST_F(ProfileConvertTest, ALineMayBeConvertedInPlace) {
    for (const char* name : {"rgb.u8", "argb.u8", "rgba.f32", "bgra.f16", "rgb.f32", "rgba.u32"}) {
        const PixelFormat format = FormatOf(name);
        const ColorProfileConvert convert = Make(format, srgb, format, linear);
        Bytes pixels = MakePixels(format, 150);
        const Bytes wanted = Run(convert, format, format, pixels, 150);
        ASSERT_TRUE(convert->Convert({pixels.data(), format->GetBitsPerPixel(), 0},
                                     {pixels.data(), format->GetBitsPerPixel(), 0}, 150));
        EXPECT_EQ(pixels, wanted) << name;
    }
}

TEST_F(ProfileConvertTest, ChannelsMayLieInPlanes) {
    constexpr Int kCount = 77;
    for (const char* name : {"rgb.u8", "rgb.f32", "rgba.u16", "bgra.f16"}) {
        const PixelFormat format = FormatOf(name);
        const Int bits = format->GetChannelOffsets()[1].GetBits(), channels = format->GetChannelCount();
        const Bytes pixels = MakePixels(format, kCount);
        const ColorProfileConvert packed = Make(format, srgb, format, linear);
        const Bytes wanted = Run(packed, format, format, pixels, kCount);
        std::vector<BITS> planes;
        for (Int c = 0; c < channels; ++c)
            planes.emplace_back(c * kCount * bits);
        planes.emplace_back(bits);
        const size_t bytes = static_cast<size_t>(bits / 8);
        const auto transpose = [&](const Bytes& from, bool toPlanes) {
            Bytes to(from.size());
            for (size_t i = 0; i < kCount; ++i)
                for (size_t c = 0; c < static_cast<size_t>(channels); ++c) {
                    const size_t interleaved = (i * static_cast<size_t>(channels) + c) * bytes;
                    const size_t planar = (c * kCount + i) * bytes;
                    std::memcpy(&to[toPlanes ? planar : interleaved], &from[toPlanes ? interleaved : planar], bytes);
                }
            return to;
        };
        const Bytes planar = transpose(pixels, true);
        const ChannelOffsets own = format->GetChannelOffsets();
        for (const bool srcPlanar : {false, true}) {
            for (const bool dstPlanar : {false, true}) {
                const ColorProfileConvert convert = CreateConvert();
                const Result<Bool> made =
                    convert->InitWithOffsets(format, srcPlanar ? ChannelOffsets(planes) : own, srgb, format,
                                             dstPlanar ? ChannelOffsets(planes) : own, linear, kPerceptual, kBpc);
                ASSERT_TRUE(made && *made) << name << MessageOf(made);
                Bytes out(wanted.size());
                ASSERT_TRUE(convert->Convert(
                    {out.data(), dstPlanar ? BITS(bits) : format->GetBitsPerPixel(), 0},
                    {srcPlanar ? planar.data() : pixels.data(), srcPlanar ? BITS(bits) : format->GetBitsPerPixel(), 0},
                    kCount));
                EXPECT_EQ(dstPlanar ? transpose(out, false) : out, wanted) << name << srcPlanar << dstPlanar;
            }
        }
        const ColorProfileConvert convert = CreateConvert();
        EXPECT_FALSE(convert->InitWithOffsets(format, {}, srgb, format, own, linear, kPerceptual, kBpc));
        EXPECT_FALSE(convert->InitWithOffsets(format, own, srgb, format, planes.empty() ? own : own.first(2), linear,
                                              kPerceptual, kBpc));
    }
}

// --- Errors ----------------------------------------------------------------------------------------------------------

TEST_F(ProfileConvertTest, WhatCannotBeSetUpSaysWhy) {
    const PixelFormat rgb = FormatOf("rgb.u8"), floats = FormatOf("rgb.f32");
    const ColorProfile none;
    const auto init = [](const PixelFormat& src, const ColorProfile& srcProfile, const PixelFormat& dst,
                         const ColorProfile& dstProfile, COLORCONVERSIONINTENT intent = kPerceptual) {
        return CreateConvert()->Init(src, srcProfile, dst, dstProfile, intent, kBpc);
    };
    EXPECT_EQ(MessageOf(init(PixelFormat(), srgb, rgb, linear)), "no profile found");
    EXPECT_EQ(MessageOf(init(rgb, srgb, PixelFormat(), linear)), "no profile found");
    EXPECT_EQ(MessageOf(init(rgb, none, rgb, linear)), "no profile found");
    EXPECT_EQ(MessageOf(init(rgb, srgb, rgb, none)), "no profile found");
    EXPECT_EQ(MessageOf(init(rgb, srgb, rgb, linear, COLORCONVERSIONINTENT(4))), "Illegal COLORCONVERSIONINTENT");
    EXPECT_EQ(MessageOf(init(rgb, srgb, rgb, linear, COLORCONVERSIONINTENT(-1))), "Illegal COLORCONVERSIONINTENT");

    const Result<Bool> wrongSpace = init(rgb, sgrey, rgb, linear);
    ASSERT_FALSE(wrongSpace);
    EXPECT_THAT(ChainOf(wrongSpace.GetError()), StartsWith("cmsCreateTransform failed <- LCMS Error: "));
    const Result<Bool> wrongTarget = init(rgb, srgb, rgb, cmyk);
    ASSERT_FALSE(wrongTarget);
    EXPECT_THAT(ChainOf(wrongTarget.GetError()), StartsWith("cmsCreateTransform failed <- LCMS Error: "));

    for (const PixelFormat& format : {rgb, floats}) {
        const ColorProfileConvert equal = CreateConvert();
        const Result<Bool> nothing = equal->Init(format, srgb, format, srgb, kPerceptual, kBpc);
        ASSERT_TRUE(nothing) << MessageOf(nothing);
        EXPECT_FALSE(*nothing);
        uint8_t pixel[12] = {};
        EXPECT_FALSE(equal->Convert({pixel, BITS(96), 0}, {pixel, BITS(96), 0}, 1)) << "nothing was set up";
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

// --- Pixel conversion with profiles ----------------------------------------------------------------------------------

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
        cmsUInt32Number srcWord, dstWord;  ///< 0: plain arithmetic
    } kCases[] = {
        {"spaces differ", "rgb.u8", &srgb, "grey.u8", &linearGrey, kNone, TYPE_RGB_8, TYPE_GRAY_8},
        {"same space", "rgb.u8", &srgb, "rgb.u16", &linear, kNone, 0, 0},
        {"same space, forced", "rgb.u8", &srgb, "rgb.u16", &linear, kForce, TYPE_RGB_8, TYPE_RGB_16},
        {"no source profile", "rgb.u8", nullptr, "grey.u8", &linearGrey, kNone, 0, 0},
        {"default of the source, forced", "rgb.u8", nullptr, "grey.u8", &linearGrey, kForce, TYPE_RGB_8, TYPE_GRAY_8},
        {"equal profiles, forced", "rgb.u8", &linear, "rgb.u16", &linear, kForce, 0, 0},
        {"inks", "rgb.u8", &srgb, "cmyk.u8", &cmyk, kNone, TYPE_RGB_8, TYPE_CMYK_8},
        {"failure is dropped", "rgb.u8", &sgrey, "grey.u8", &linearGrey, kNone, 0, 0},
        {"failure is dropped, forced", "rgb.u8", &blackInk, "rgb.u16", &srgb, kForce, 0, 0},
    };
    for (const auto& entry : kCases) {
        const PixelFormat src = FormatOf(entry.src), dst = FormatOf(entry.dst);
        const Bytes pixels = MakePixels(src, 90);
        ColorProfile target = *entry.dstProfile;
        bool converts = false;
        const auto convert = dst->GetConvertPixelFunc(src, src->GetChannelOffsets(), dst->GetChannelOffsets(),
                                                      entry.srcProfile, &target, entry.flags, converts);
        ASSERT_TRUE(convert) << entry.what << ": " << MessageOf(convert);
        EXPECT_EQ(converts, entry.srcWord != 0) << entry.what;
        Bytes wanted(static_cast<size_t>(dst->GetBytesPerLine(90))), out(wanted.size());
        if (entry.srcWord == 0) {
            wanted = ConvertBytes(dst, src, pixels.data(), 90);
        } else {
            ASSERT_TRUE(BareConvert(entry.srcProfile ? *entry.srcProfile : srgb, entry.srcWord, pixels.data(),
                                    *entry.dstProfile, entry.dstWord, wanted.data(), 90));
        }
        ASSERT_TRUE((*convert)({out.data(), dst->GetBitsPerPixel(), 0}, 90, {pixels.data(), src->GetBitsPerPixel(), 0},
                               entry.flags));
        EXPECT_EQ(out, wanted) << entry.what;
    }
}

// --- Threads ---------------------------------------------------------------------------------------------------------

TEST_F(ProfileConvertTest, ThreadsShareATransformAndMakeTheirOwn) {
    const PixelFormat src = FormatOf("rgba.u8"), dst = FormatOf("rgba.f16"), third = FormatOf("bgr.u16");
    const Bytes pixels = MakePixels(src, 300);
    const ColorProfileConvert shared = Make(src, srgb, dst, gamma);
    const Bytes wanted = Run(shared, dst, src, pixels, 300);
    const Bytes wantedThird = Run(Make(src, srgb, third, linear), third, src, pixels, 300);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 20; ++i) {
                EXPECT_EQ(Run(shared, dst, src, pixels, 300), wanted);
                EXPECT_EQ(Run(Make(src, srgb, third, linear), third, src, pixels, 300), wantedThird);
                const Result<Bool> failed =
                    CreateConvert()->Init(src, sgrey, dst, t % 2 ? gamma : linear, kPerceptual, kBpc);
                EXPECT_EQ(MessageOf(failed), "cmsCreateTransform failed");
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(ProfileConvertTest, RememberedTransformsDoNotKeepProfilesAlive) {
    const std::vector<std::byte> bytes = MakeGammaProfile(2.6);
    const PixelFormat rgb = FormatOf("rgb.u8");
    const Bytes pixels = MakePixels(rgb, 64);
    Bytes first;
    {
        const Result<ColorProfile> profile = ColorProfile::OpenProfileFromMemory(bytes);
        ASSERT_TRUE(profile);
        const ColorProfileConvert convert = Make(rgb, *profile, rgb, srgb);
        first = Run(convert, rgb, rgb, pixels, 64);
        EXPECT_EQ(profile->GetEntry()->GetStrongCount(), 1);
    }
    // Another profile may now lie where that one was.
    for (const double exponent : {1.2, 2.6, 3.0}) {
        const Result<ColorProfile> profile = ColorProfile::OpenProfileFromMemory(MakeGammaProfile(exponent));
        ASSERT_TRUE(profile);
        Bytes wanted(192);
        ASSERT_TRUE(BareConvert(*profile, TYPE_RGB_8, pixels.data(), srgb, TYPE_RGB_8, wanted.data(), 64));
        EXPECT_EQ(Run(Make(rgb, *profile, rgb, srgb), rgb, rgb, pixels, 64), wanted) << exponent;
        EXPECT_EQ(wanted == first, exponent == 2.6);
    }
}

}  // namespace
}  // namespace orvik
