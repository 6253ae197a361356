#pragma once
/// @file
/// The colour library used directly, beside the module, and profiles that tests make with it.

#include <array>
#include <lcms2.h>
#include <utility>
#include <vector>

#include "pixel_tools.h"

#include "orvik/gfx_image_colorprofileconvert.h"

namespace orvik {

/// A profile of the module opened once more by the library itself.
class BareProfile {
public:
    explicit BareProfile(const ColorProfile& profile) {
        const Result<Block<const std::byte>> bytes = profile.WriteProfileToMemory();
        if (bytes)
            handle = cmsOpenProfileFromMem(bytes->data(), static_cast<cmsUInt32Number>(bytes->size()));
    }
    BareProfile(const BareProfile&) = delete;
    BareProfile& operator=(const BareProfile&) = delete;
    ~BareProfile() {
        if (handle)
            cmsCloseProfile(handle);
    }
    cmsHPROFILE handle = nullptr;
};

/// Runs `count` contiguous pixels through a fresh transform; `out` holds the destination's earlier bytes. False when
/// there is no such transform.
inline bool BareConvert(const ColorProfile& srcProfile, cmsUInt32Number srcWord, const void* in,
                        const ColorProfile& dstProfile, cmsUInt32Number dstWord, void* out, size_t count,
                        cmsUInt32Number intent = INTENT_PERCEPTUAL,
                        cmsUInt32Number flags = cmsFLAGS_BLACKPOINTCOMPENSATION) {
    const BareProfile src(srcProfile), dst(dstProfile);
    const cmsHTRANSFORM transform = cmsCreateTransform(src.handle, srcWord, dst.handle, dstWord, intent, flags);
    if (!transform)
        return false;
    cmsDoTransform(transform, in, out, static_cast<cmsUInt32Number>(count));
    cmsDeleteTransform(transform);
    return true;
}

inline std::vector<std::byte> SaveBare(cmsHPROFILE profile) {
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    std::vector<std::byte> bytes(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    return bytes;
}

/// A printer with four inks that mix by subtraction: tables of 9 points an axis in both directions.
inline std::vector<std::byte> MakeCmykProfile() {
    struct Context {
        cmsHTRANSFORM toLab, fromLab;
        static int FromInks(const cmsUInt16Number in[], cmsUInt16Number out[], void* cargo) {
            cmsUInt16Number rgb[3];
            for (int i = 0; i < 3; ++i)
                rgb[i] = static_cast<cmsUInt16Number>(65535.0 * (1 - in[i] / 65535.0) * (1 - in[3] / 65535.0));
            cmsDoTransform(static_cast<Context*>(cargo)->toLab, rgb, out, 1);
            return 1;
        }
        static int ToInks(const cmsUInt16Number in[], cmsUInt16Number out[], void* cargo) {
            cmsUInt16Number rgb[3];
            cmsDoTransform(static_cast<Context*>(cargo)->fromLab, in, rgb, 1);
            const int white = std::max({rgb[0], rgb[1], rgb[2]});
            for (int i = 0; i < 3; ++i)
                out[i] = static_cast<cmsUInt16Number>(white == 0 ? 0 : (white - rgb[i]) * 65535LL / white);
            out[3] = static_cast<cmsUInt16Number>(65535 - white);
            return 1;
        }
    };
    const cmsHPROFILE srgb = cmsCreate_sRGBProfile(), lab = cmsCreateLab4Profile(nullptr);
    Context context{cmsCreateTransform(srgb, TYPE_RGB_16, lab, TYPE_Lab_16, INTENT_PERCEPTUAL, 0),
                    cmsCreateTransform(lab, TYPE_Lab_16, srgb, TYPE_RGB_16, INTENT_PERCEPTUAL, 0)};
    const cmsHPROFILE profile = cmsCreateProfilePlaceholder(nullptr);
    cmsSetProfileVersion(profile, 4.2);
    cmsSetDeviceClass(profile, cmsSigOutputClass);
    cmsSetColorSpace(profile, cmsSigCmykData);
    cmsSetPCS(profile, cmsSigLabData);
    const auto write = [&](cmsTagSignature tag, cmsUInt32Number inputs, cmsUInt32Number outputs, cmsSAMPLER16 sampler) {
        cmsPipeline* pipeline = cmsPipelineAlloc(nullptr, inputs, outputs);
        cmsStage* table = cmsStageAllocCLut16bit(nullptr, 9, inputs, outputs, nullptr);
        cmsStageSampleCLut16bit(table, sampler, &context, 0);
        // Sides in the order in which the file stores them.
        cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, inputs, nullptr));
        cmsPipelineInsertStage(pipeline, cmsAT_END, table);
        cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, outputs, nullptr));
        cmsWriteTag(profile, tag, pipeline);
        cmsPipelineFree(pipeline);
    };
    write(cmsSigAToB0Tag, 4, 3, Context::FromInks);
    write(cmsSigBToA0Tag, 3, 4, Context::ToInks);
    std::vector<std::byte> bytes = SaveBare(profile);
    cmsCloseProfile(profile);
    cmsDeleteTransform(context.toLab);
    cmsDeleteTransform(context.fromLab);
    cmsCloseProfile(srgb);
    cmsCloseProfile(lab);
    return bytes;
}

/// An RGB profile with one gamma.
inline std::vector<std::byte> MakeGammaProfile(double gamma) {
    const cmsCIExyY white{0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries{{0.64, 0.33, 1.0}, {0.30, 0.60, 1.0}, {0.15, 0.06, 1.0}};
    cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
    cmsToneCurve* const curves[3] = {curve, curve, curve};
    const cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
    std::vector<std::byte> bytes = SaveBare(profile);
    cmsCloseProfile(profile);
    cmsFreeToneCurve(curve);
    return bytes;
}

inline ColorProfileConvert CreateConvert() {
    return ClassRef(kColorProfileConvertClass).Create<ColorProfileConvertInterface>().GetValueOr(nullptr);
}

}  // namespace orvik
