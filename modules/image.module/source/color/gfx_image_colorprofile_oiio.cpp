#include "color/gfx_image_colorprofile_oiio.h"

#include <algorithm>
#include <string>

namespace orvik {
namespace {

constexpr cmsUInt32Number kGridPoints = 32;
constexpr double kWhiteTemperature = 6505;                                           // kelvin, D65
constexpr cmsUInt32Number kTransformFlags = cmsFLAGS_NOCACHE | cmsFLAGS_NOOPTIMIZE;  // exact, for few colours
constexpr float kXyzUnit = 32768;                                                    // the 16-bit form of 1.0
constexpr float kRgbUnit = 65535;

struct ScopedTransform {
    cmsHTRANSFORM handle = nullptr;
    explicit ScopedTransform(cmsHTRANSFORM made) : handle(made) {}
    ScopedTransform(const ScopedTransform&) = delete;
    ScopedTransform& operator=(const ScopedTransform&) = delete;
    ~ScopedTransform() {
        if (handle)
            cmsDeleteTransform(handle);
    }
};

struct ScopedPipeline {
    cmsPipeline* pipeline = nullptr;
    explicit ScopedPipeline(cmsPipeline* made) : pipeline(made) {}
    ScopedPipeline(const ScopedPipeline&) = delete;
    ScopedPipeline& operator=(const ScopedPipeline&) = delete;
    ~ScopedPipeline() {
        if (pipeline)
            cmsPipelineFree(pipeline);
    }
};

OiioProcessorInterface::Triple FromWords(const cmsUInt16Number* words, float unit) {
    return {float(words[0]) / unit, float(words[1]) / unit, float(words[2]) / unit};
}
void ToWords(const OiioProcessorInterface::Triple& values, float unit, cmsUInt16Number* words) {
    for (size_t i = 0; i < 3; ++i) {
        const float word = values[i] * unit + 0.5f;
        words[i] = static_cast<cmsUInt16Number>(word > 0 ? std::min(word, 65535.0f) : 0.0f);  // NaN becomes 0
    }
}

/// What the library's callbacks get.
struct Sampling {
    const OiioProcessorInterface& processor;
    cmsHTRANSFORM xyzToLab, labToXyz;
    Error error;  ///< the first of the processor

    bool Store(const Result<OiioProcessorInterface::Triple>& values, float unit, cmsUInt16Number* words) {
        if (!values) {
            error = values.GetError();
            return false;
        }
        ToWords(*values, unit, words);
        return true;
    }
};

cmsInt32Number SampleForward(const cmsUInt16Number* in, cmsUInt16Number* out, void* cargo) {
    auto& sampling = *static_cast<Sampling*>(cargo);
    cmsUInt16Number xyz[3];
    if (!sampling.Store(sampling.processor.Forward(FromWords(in, kRgbUnit)), kXyzUnit, xyz))
        return 0;
    cmsDoTransform(sampling.xyzToLab, xyz, out, 1);
    return 1;
}

cmsInt32Number SampleInverse(const cmsUInt16Number* in, cmsUInt16Number* out, void* cargo) {
    auto& sampling = *static_cast<Sampling*>(cargo);
    cmsUInt16Number xyz[3];
    cmsDoTransform(sampling.labToXyz, in, xyz, 1);
    return sampling.Store(sampling.processor.Inverse(FromWords(xyz, kXyzUnit)), kRgbUnit, out);
}

/// Adds a stage at the end, which the pipeline then owns.
bool Append(cmsPipeline* pipeline, cmsStage* stage) {
    return stage && cmsPipelineInsertStage(pipeline, cmsAT_END, stage);
}
bool AppendCurves(cmsContext context, cmsPipeline* pipeline, cmsToneCurve* curve) {
    cmsToneCurve* const curves[3] = {curve, curve, curve};
    return Append(pipeline, cmsStageAllocToneCurves(context, 3, curves));
}
bool AppendIdentity(cmsContext context, cmsPipeline* pipeline) {
    constexpr double kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    return Append(pipeline, cmsStageAllocMatrix(context, 3, 3, kIdentity, nullptr));
}
bool AppendTable(cmsContext context, cmsPipeline* pipeline, cmsSAMPLER16 sampler, Sampling& sampling) {
    cmsStage* table = cmsStageAllocCLut16bit(context, kGridPoints, 3, 3, nullptr);
    return Append(pipeline, table) && cmsStageSampleCLut16bit(table, sampler, &sampling, 0);
}

/// The order in which the format stores the stages: device side first for A2B0, last for B2A0.
bool WriteTables(cmsContext context, cmsHPROFILE profile, Sampling& sampling) {
    const ScopedCurve curve(cmsBuildGamma(context, 1.0));
    const ScopedPipeline toLab(cmsPipelineAlloc(context, 3, 3)), fromLab(cmsPipelineAlloc(context, 3, 3));
    cmsPipeline *const a2b = toLab.pipeline, *const b2a = fromLab.pipeline;
    return curve.curve && a2b && b2a && AppendCurves(context, a2b, curve.curve) &&
           AppendTable(context, a2b, SampleForward, sampling) && AppendCurves(context, a2b, curve.curve) &&
           AppendIdentity(context, a2b) && AppendCurves(context, a2b, curve.curve) &&
           cmsWriteTag(profile, cmsSigAToB0Tag, a2b) && AppendCurves(context, b2a, curve.curve) &&
           AppendIdentity(context, b2a) && AppendCurves(context, b2a, curve.curve) &&
           AppendTable(context, b2a, SampleInverse, sampling) && AppendCurves(context, b2a, curve.curve) &&
           cmsWriteTag(profile, cmsSigBToA0Tag, b2a);
}

/// With a zero behind it. The library stores one unit of UTF-16 per character.
Result<BaseArray<wchar_t>> ToWide(const String& text) {
    const std::u16string units = TRY(text.ToUtf16());
    BaseArray<wchar_t> wide;
    TRY(wide.Resize(Int(units.size()) + 1));
    std::ranges::copy(units, wide.GetFirst());
    return wide;
}

}  // namespace

Result<BaseArray<std::byte>> BakeOiioProfile(ColorLibrary& library, const OiioProcessor& processor) {
    if (!processor)
        return NullptrError();
    const cmsContext context = library.GetContext();
    const BaseArray<wchar_t> description =
        TRY(ToWide(FormatString("\"@\". Baked by Orvik OIIO.", processor->GetName())));
    const BaseArray<wchar_t> copyright = TRY(ToWide(processor->GetCopyright()));
    (void)library.TakeError();
    const ColorLibrary::MemoryWatch watch(library);

    cmsCIExyY white;
    cmsWhitePointFromTemp(&white, kWhiteTemperature);
    const ScopedProfile lab(cmsCreateLab4ProfileTHR(context, &white)), xyz(cmsCreateXYZProfileTHR(context));
    const ScopedProfile profile(cmsCreateProfilePlaceholder(context));
    if (!lab.handle || !xyz.handle || !profile.handle) {
        TRY(watch.Check());
        return LibraryError(library, "Building a color profile failed.");
    }
    cmsSetProfileVersion(profile.handle, 4.2);
    cmsSetDeviceClass(profile.handle, cmsSigDisplayClass);
    cmsSetColorSpace(profile.handle, cmsSigRgbData);
    cmsSetPCS(profile.handle, cmsSigLabData);
    cmsSetHeaderRenderingIntent(profile.handle, INTENT_PERCEPTUAL);

    const ScopedTransform xyzToLab(cmsCreateTransformTHR(context, xyz.handle, TYPE_XYZ_16, lab.handle, TYPE_Lab_16,
                                                         INTENT_PERCEPTUAL, kTransformFlags));
    const ScopedTransform labToXyz(cmsCreateTransformTHR(context, lab.handle, TYPE_Lab_16, xyz.handle, TYPE_XYZ_16,
                                                         INTENT_PERCEPTUAL, kTransformFlags));
    Sampling sampling{*processor, xyzToLab.handle, labToXyz.handle, {}};
    const bool built = xyzToLab.handle && labToXyz.handle &&
                       WriteTextTag(context, profile.handle, cmsSigProfileDescriptionTag, description.GetFirst()) &&
                       WriteTextTag(context, profile.handle, cmsSigCopyrightTag, copyright.GetFirst()) &&
                       WriteTables(context, profile.handle, sampling);
    if (sampling.error)
        return sampling.error;
    TRY(watch.Check());
    if (!built)
        return LibraryError(library, "Building a color profile failed.");
    return SaveBuiltProfile(library, profile.handle);
}

}  // namespace orvik
