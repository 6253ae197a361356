#include "profile_bench.h"

#include <cstring>
#include <lcms2.h>
#include <random>
#include <string>

#include "../tests/support/cmyk_profile.h"

#include "orvik/gfx_image_colorprofileconvert.h"
#include "orvik/gfx_image_pixelformat.h"

using namespace orvik;

namespace bench {
namespace {

constexpr Int kRowPixels = 4096;

constexpr Id kInks;  ///< placeholder for an ink profile, since none is built in

struct Conversion {
    const char* name;
    Id format;  ///< of both sides, or inks
    cmsUInt32Number word;
    Id src, dst;  ///< profiles
    Int rows;
    bool isClosedForm;
    Id dstFormat = format;
    cmsUInt32Number dstWord = word;
};
const Conversion kConversions[] = {
    {"srgb_to_linear_f32", pixelformats::kRgbF32, TYPE_RGB_FLT, colorprofiles::kSrgb, colorprofiles::kLinearRgb, 2160,
     true},
    {"linear_to_srgb_f32", pixelformats::kRgbF32, TYPE_RGB_FLT, colorprofiles::kLinearRgb, colorprofiles::kSrgb, 2160,
     true},
    {"rgb8", pixelformats::kRgbU8, TYPE_RGB_8, colorprofiles::kSrgb, colorprofiles::kLinearRgb, 256, false},
    {"rgba8", pixelformats::kRgbaU8, TYPE_RGBA_8, colorprofiles::kSrgb, colorprofiles::kLinearRgb, 256, false},
    {"rgb16", pixelformats::kRgbU16, TYPE_RGB_16, colorprofiles::kSrgb, colorprofiles::kLinearRgb, 256, false},
    {"rgbaf", pixelformats::kRgbaF32, TYPE_RGBA_FLT, colorprofiles::kSrgb, colorprofiles::kLinearRgb, 64, false},
    {"rgba16", pixelformats::kRgbaU16, TYPE_RGBA_16, colorprofiles::kSrgb, colorprofiles::kLinearRgb, 256, false},
    {"grey8", pixelformats::kGreyU8, TYPE_GRAY_8, colorprofiles::kSgrey, colorprofiles::kLinearGrey, 256, false},
    {"cmyk8", "net.orvik.image.pixelformat.cmyk.u8", TYPE_CMYK_8, kInks, colorprofiles::kSrgb, 128, false,
     pixelformats::kRgbU8, TYPE_RGB_8},
    {"cmykf", "net.orvik.image.pixelformat.cmyk.f32", TYPE_CMYK_FLT, kInks, colorprofiles::kSrgb, 32, false,
     pixelformats::kRgbF32, TYPE_RGB_FLT},
};

ColorProfile GetProfile(const Id& id) {
    if (id != kInks)
        return colorprofiles::Get(id);
    static const std::vector<std::byte> bytes = MakeCmykProfile();
    return ColorProfile::OpenProfileFromMemory(bytes).GetValueOr(ColorProfile());
}

/// The lines of both sides, with all memory touched; floats are in 0 ... 1.
struct Lines {
    size_t srcBytes, dstBytes, rows;  ///< bytes of a row
    std::vector<uint8_t> src, dst;

    explicit Lines(const Conversion& conversion)
        : srcBytes(static_cast<size_t>(PixelFormats::Get(conversion.format)->GetBytesPerLine(kRowPixels))),
          dstBytes(static_cast<size_t>(PixelFormats::Get(conversion.dstFormat)->GetBytesPerLine(kRowPixels))),
          rows(static_cast<size_t>(conversion.rows)),
          src(srcBytes * rows),
          dst(dstBytes * rows, 1) {
        std::minstd_rand random(1);
        if (T_FLOAT(conversion.word)) {
            for (size_t i = 0; i < src.size(); i += sizeof(float)) {
                const float value = float(random() & 0xFFFFF) / float(0xFFFFF);
                std::memcpy(&src[i], &value, sizeof(value));
            }
        } else {
            for (uint8_t& byte : src)
                byte = static_cast<uint8_t>(random() >> 8);
        }
    }
};

void Convert(benchmark::State& state, const Conversion& conversion) {
    const PixelFormat format = PixelFormats::Get(conversion.format);
    const PixelFormat dstFormat = PixelFormats::Get(conversion.dstFormat);
    const Result<ColorProfileConvert> created =
        ClassRef(kColorProfileConvertClass).Create<ColorProfileConvertInterface>();
    if (!created)
        return state.SkipWithError("no class of transforms");
    const ColorProfileConvert& convert = *created;
    const Result<Bool> made =
        convert->Init(format, GetProfile(conversion.src), dstFormat, GetProfile(conversion.dst),
                      COLORCONVERSIONINTENT::PERCEPTUAL, COLORCONVERSIONFLAGS::BLACKPOINTCOMPENSATION);
    if (!made || !*made)
        return state.SkipWithError("no transform");
    Lines lines(conversion);
    const BITS stride = format->GetBitsPerPixel(), dstStride = dstFormat->GetBitsPerPixel();
    for ([[maybe_unused]] auto iteration : state) {
        for (size_t row = 0; row < lines.rows; ++row) {
            if (!convert->Convert({&lines.dst[row * lines.dstBytes], dstStride, 0},
                                  {&lines.src[row * lines.srcBytes], stride, 0}, kRowPixels))
                return state.SkipWithError("the conversion failed");
        }
        benchmark::ClobberMemory();
    }
}

void CopyRows(benchmark::State& state, const Conversion& conversion) {
    Lines lines(conversion);
    for ([[maybe_unused]] auto iteration : state) {
        for (size_t row = 0; row < lines.rows; ++row)
            std::memcpy(&lines.dst[row * lines.dstBytes], &lines.src[row * lines.srcBytes], lines.srcBytes);
        benchmark::ClobberMemory();
    }
}

cmsHPROFILE OpenBare(const Id& id) {
    const ColorProfile profile = GetProfile(id);  // keeps the bytes alive until the library has copied them
    const Result<Block<const std::byte>> bytes = profile.WriteProfileToMemory();
    return bytes ? cmsOpenProfileFromMem(bytes->data(), static_cast<cmsUInt32Number>(bytes->size())) : nullptr;
}

/// Includes alpha, which the library copies on request.
void ConvertBare(benchmark::State& state, const Conversion& conversion) {
    const cmsHPROFILE src = OpenBare(conversion.src), dst = OpenBare(conversion.dst);
    const cmsHTRANSFORM transform =
        cmsCreateTransform(src, conversion.word, dst, conversion.dstWord, INTENT_PERCEPTUAL,
                           cmsFLAGS_BLACKPOINTCOMPENSATION | (T_EXTRA(conversion.word) ? cmsFLAGS_COPY_ALPHA : 0));
    if (!transform)
        return state.SkipWithError("the library makes no transform");
    Lines lines(conversion);
    for ([[maybe_unused]] auto iteration : state) {
        for (size_t row = 0; row < lines.rows; ++row)
            cmsDoTransform(transform, &lines.src[row * lines.srcBytes], &lines.dst[row * lines.dstBytes], kRowPixels);
        benchmark::ClobberMemory();
    }
    cmsDeleteTransform(transform);
    cmsCloseProfile(src);
    cmsCloseProfile(dst);
}

}  // namespace

std::vector<Pairing> RegisterProfileBenchmarks() {
    std::vector<Pairing> pairings;
    for (const Conversion& conversion : kConversions) {
        const std::string name = std::string("profile.") + conversion.name;
        const char* against = conversion.isClosedForm ? "memcpy" : "lcms2";
        benchmark::RegisterBenchmark(name.c_str(), [&conversion](benchmark::State& state) {
            Convert(state, conversion);
        })->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((name + "/" + against).c_str(), [&conversion](benchmark::State& state) {
            conversion.isClosedForm ? CopyRows(state, conversion) : ConvertBare(state, conversion);
        })->Unit(benchmark::kMillisecond);
        pairings.push_back({name, against, "Mpixel/s", double(kRowPixels * conversion.rows) / 1e6});
    }
    return pairings;
}

}  // namespace bench
