#include "orvik/gfx_image_pixelblend.h"

namespace orvik {

PixelFormat ImagePixelBlendInterface::GetOptimalPixelFormat(Block<const PixelFormat> formats) {
    for (const PixelFormat& format : formats) {
        const Block<const ImageChannel> channels = format->GetChannels();
        if (!channels.empty() && channels[0]->GetComponentType() == ComponentType::F64)
            return PixelFormats::Get(pixelformats::kRgbaF64);
    }
    return PixelFormats::Get(pixelformats::kRgbaF32);
}

namespace blendmodes {

Id GetId(BLEND_MODES mode) {
    // In the order of the enumeration.
    static const Id kIds[kBlendModesCount] = {
        kAverage,    kColor,       kColorBurn, kColorDodge, kDarken,     kDarker,   kDifference, kDissolve,
        kDivide,     kExclusion,   kFreeze,    kHardLight,  kHardMix,    kHypot,    kLighten,    kLighter,
        kLinearBurn, kLinearDodge, kLuminance, kMultiply,   kOverlay,    kPinLight, kReflect,    kSaturation,
        kScreen,     kSoftLight,   kSubtract,  kVividLight, kPassFolder, kStamp,
    };
    const int index = static_cast<int>(mode);
    return index >= 0 && index < kBlendModesCount ? kIds[index] : Id();
}

ImagePixelBlend Get(const Id& id) { return FindPublished<ImagePixelBlendInterface>(id); }

}  // namespace blendmodes
}  // namespace orvik
