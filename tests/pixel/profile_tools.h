#pragma once
// The colour library used directly, beside the module, and profiles that tests make with it.

#include <array>
#include <lcms2.h>
#include <memory>
#include <utility>
#include <vector>

#include "pixel_tools.h"
#include "support/cmyk_profile.h"

#include "orvik/gfx_image_colorprofileconvert.h"

namespace orvik {

/// A profile of the module opened once more by the library itself.
inline auto OpenBare(const ColorProfile& profile) {
    const Result<Block<const std::byte>> bytes = profile.WriteProfileToMemory();
    const cmsHPROFILE bare = bytes ? cmsOpenProfileFromMem(bytes->data(), cmsUInt32Number(bytes->size())) : nullptr;
    return std::unique_ptr<void, decltype(&cmsCloseProfile)>(bare, &cmsCloseProfile);
}

/// Runs `count` contiguous pixels through a fresh transform; `out` holds the destination's earlier bytes. False when
/// there is no such transform.
inline bool BareConvert(const ColorProfile& srcProfile, cmsUInt32Number srcWord, const void* in,
                        const ColorProfile& dstProfile, cmsUInt32Number dstWord, void* out, size_t count,
                        cmsUInt32Number intent = INTENT_PERCEPTUAL,
                        cmsUInt32Number flags = cmsFLAGS_BLACKPOINTCOMPENSATION) {
    const auto src = OpenBare(srcProfile), dst = OpenBare(dstProfile);
    const cmsHTRANSFORM transform = cmsCreateTransform(src.get(), srcWord, dst.get(), dstWord, intent, flags);
    if (!transform)
        return false;
    cmsDoTransform(transform, in, out, static_cast<cmsUInt32Number>(count));
    cmsDeleteTransform(transform);
    return true;
}

/// An RGB profile with one gamma.
inline std::vector<std::byte> MakeGammaProfile(double gamma, const wchar_t* description = L"Gamma") {
    const cmsCIExyY white{0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries{{0.64, 0.33, 1.0}, {0.30, 0.60, 1.0}, {0.15, 0.06, 1.0}};
    cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
    cmsToneCurve* const curves[3] = {curve, curve, curve};
    const cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
    cmsMLU* text = cmsMLUalloc(nullptr, 1);
    cmsMLUsetWide(text, "en", "US", description);
    cmsWriteTag(profile, cmsSigProfileDescriptionTag, text);
    std::vector<std::byte> bytes = SaveBare(profile);
    cmsMLUfree(text);
    cmsCloseProfile(profile);
    cmsFreeToneCurve(curve);
    return bytes;
}

inline ColorProfileConvert CreateConvert() {
    return ClassRef(kColorProfileConvertClass).Create<ColorProfileConvertInterface>().GetValueOr(nullptr);
}

}  // namespace orvik
