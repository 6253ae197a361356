#pragma once
/// @file
/// Blend modes: how a run of foreground pixels is laid over a run of background pixels.

#include "orvik/gfx_image_pixelformat.h"

namespace orvik {

enum class BLENDPIXELFLAGS : int32_t { NONE = 0 };

/// The modes by the names that file formats of the host use. The registry holds more modes than this list.
enum class BLEND_MODES : int32_t {
    AVERAGE,
    COLOR,
    COLORBURN,
    COLORDODGE,
    DARKEN,
    DARKER,
    DIFFERENCE,
    DISSOLVE,
    DIVIDE,
    EXCLUSION,
    FREEZE,
    HARDLIGHT,
    HARDMIX,
    HYPOT,
    LIGHTEN,
    LIGHTER,
    LINEARBURN,
    LINEARDODGE,
    LUMINANCE,
    MULTIPLY,
    OVERLAY,
    PINLIGHT,
    REFLECT,
    SATURATION,
    SCREEN,
    SOFTLIGHT,
    SUBTRACT,
    VIVIDLIGHT,
    PASSFOLDER,
    STAMP,
};
inline constexpr int kBlendModesCount = static_cast<int>(BLEND_MODES::STAMP) + 1;

/// Blends `count` pixels of `fg` over `bg` into `dst`, which has the format of the background; 0 and below succeed and
/// touch nothing. `dst` may be the run of `bg` or of `fg`, since a pixel is read before it is written; runs that
/// overlap in another way are not allowed. Holds its state by value, can be called from any thread, allocates nothing.
using BlendPixelHandlerRef = Delegate<Result<void>(const PixelLine& dst, const PixelLineConst& bg,
                                                   const PixelLineConst& fg, Int count, BLENDPIXELFLAGS flags)>;

/// One blend mode: a stateless object that is published under its id and stands in `kBlendModeRegistry`.
class ImagePixelBlendInterface : public virtual Object {
    ORVIK_INTERFACE(ImagePixelBlendInterface, "net.orvik.image.interface.imagepixelblend");

public:
    /// The function that blends runs of these two formats. Alpha is straight; colours are taken as they are, whatever
    /// their profile.
    ///
    /// RGBA.F32 over RGBA.F32 and RGBA.F64 over RGBA.F64 are blended in their own type. All other pairs go through
    /// RGBA.F64 by blocks of 64 pixels; a missing conversion is the error of this call, and the handler fails only as
    /// its conversions do.
    /// @param opacity  factor of the foreground's alpha, 0 ... 1; at 0 the background is copied as it is
    virtual Result<BlendPixelHandlerRef> GetBlendPixelHandler(const PixelFormat& bgFormat, ChannelOffsets bgOffsets,
                                                              const PixelFormat& fgFormat, ChannelOffsets fgOffsets,
                                                              Float opacity) const {
        (void)bgFormat, (void)bgOffsets, (void)fgFormat, (void)fgOffsets, (void)opacity;
        return Unbound();
    }
    /// The format in which layers of these formats should be blended: RGBA.F64 when the first channel of any of them
    /// has 64-bit float components, else RGBA.F32, also for none.
    ORVIK_API static PixelFormat GetOptimalPixelFormat(Block<const PixelFormat> formats);

    virtual Id GetId() const { return Unbound(); }
    String ToString() const { return FormatString("@", GetId()); }
};
using ImagePixelBlend = Ref<ImagePixelBlendInterface>;

inline constexpr Id kBlendModeRegistry{"net.orvik.render.registry.blendmodeclasses"};
inline constexpr Id kBlendPixelHandlerTypeId{"net.orvik.datatype.blendpixelhandlerref"};

/// Ids of the modes, which layers keep under "net.orvik.image.layer.blendmode".
namespace blendmodes {
inline constexpr Id kOver{"net.orvik.render.blendmode.over"};
inline constexpr Id kPassFolder{"net.orvik.render.blendmode.passfolder"};
inline constexpr Id kDissolve{"net.orvik.render.blendmode.dissolve"};
inline constexpr Id kDarken{"net.orvik.render.blendmode.darken"};
inline constexpr Id kLighten{"net.orvik.render.blendmode.lighten"};
inline constexpr Id kMultiply{"net.orvik.render.blendmode.multiply"};
inline constexpr Id kScreen{"net.orvik.render.blendmode.screen"};
inline constexpr Id kLinearDodge{"net.orvik.render.blendmode.lineardodge"};
inline constexpr Id kAdd{"net.orvik.render.blendmode.add"};
inline constexpr Id kSubtract{"net.orvik.render.blendmode.subtract"};
inline constexpr Id kDifference{"net.orvik.render.blendmode.difference"};
inline constexpr Id kExclusion{"net.orvik.render.blendmode.exclusion"};
inline constexpr Id kAverage{"net.orvik.render.blendmode.average"};
inline constexpr Id kOverlay{"net.orvik.render.blendmode.overlay"};
inline constexpr Id kHardLight{"net.orvik.render.blendmode.hardlight"};
inline constexpr Id kSoftLight{"net.orvik.render.blendmode.softlight"};
inline constexpr Id kColorBurn{"net.orvik.render.blendmode.colorburn"};
inline constexpr Id kColorDodge{"net.orvik.render.blendmode.colordodge"};
inline constexpr Id kLinearBurn{"net.orvik.render.blendmode.linearburn"};
inline constexpr Id kStamp{"net.orvik.render.blendmode.stamp"};
inline constexpr Id kPinLight{"net.orvik.render.blendmode.pinlight"};
inline constexpr Id kHardMix{"net.orvik.render.blendmode.hardmix"};
inline constexpr Id kVividLight{"net.orvik.render.blendmode.vividlight"};
inline constexpr Id kDivide{"net.orvik.render.blendmode.divide"};
inline constexpr Id kFreeze{"net.orvik.render.blendmode.freeze"};
inline constexpr Id kHeat{"net.orvik.render.blendmode.heat"};
inline constexpr Id kGlow{"net.orvik.render.blendmode.glow"};
inline constexpr Id kReflect{"net.orvik.render.blendmode.reflect"};
inline constexpr Id kHypot{"net.orvik.render.blendmode.hypot"};
inline constexpr Id kXor{"net.orvik.render.blendmode.xor"};
inline constexpr Id kHue{"net.orvik.render.blendmode.hue"};
inline constexpr Id kSaturation{"net.orvik.render.blendmode.saturation"};
inline constexpr Id kColor{"net.orvik.render.blendmode.color"};
inline constexpr Id kLuminance{"net.orvik.render.blendmode.luminance"};
inline constexpr Id kDarker{"net.orvik.render.blendmode.darker"};
inline constexpr Id kLighter{"net.orvik.render.blendmode.lighter"};
inline constexpr Id kLevr{"net.orvik.render.blendmode.levr"};
/// Multiplies the background's alpha by a run of alpha and leaves the colours of the destination alone, in place when
/// destination and background are one run. The opacity plays no part.
inline constexpr Id kApplyAlpha{"net.orvik.render.blendmode.applyalpha"};

/// The id of a listed mode; the empty id out of the list.
ORVIK_API Id GetId(BLEND_MODES mode);
/// The published mode of an id; unresolved for an unknown one.
ORVIK_API ImagePixelBlend Get(const Id& id);
}  // namespace blendmodes

template <>
inline constexpr const char* kDataTypeName<ImagePixelBlend> = "orvik::ImagePixelBlend";
template <>
inline constexpr const char* kDataTypeName<BlendPixelHandlerRef> = "orvik::BlendPixelHandlerRef";

}  // namespace orvik
