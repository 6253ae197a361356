#pragma once
// An ICC profile of inks, for none is built in that transforms can be made of.

#include <algorithm>
#include <cstddef>
#include <lcms2.h>
#include <vector>

namespace orvik {

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

}  // namespace orvik
