#pragma once
/// @file
/// The plan of a conversion between two formats of whole components.

#include "gfx_image_pixelformat_kernels.h"

#include "orvik/gfx_image_pixelformat.h"

namespace orvik::pixel {

/// Where one channel of the destination comes from.
struct ChannelOrigin {
    enum class Kind : uint8_t { Channel, Mean, Fill };
    Kind kind = Kind::Fill;
    int channel = -1;  ///< of the source, for `Channel`
    uint8_t fill = 0;  ///< a U8 component, for `Fill`

    static ChannelOrigin FromChannel(int index) { return {Kind::Channel, index, 0}; }
    static ChannelOrigin FromMean() { return {Kind::Mean, -1, 0}; }
    static ChannelOrigin FromFill(uint8_t value) { return {Kind::Fill, -1, value}; }
};

/// One side of a plan: the component type of each channel and where it lies, in bits.
struct PlanSide {
    Block<const ComponentType> components;
    ChannelOffsets offsets;
};

/// Built once, immutable then, run from any thread; allocates nothing while it runs.
///
/// It runs at one of two speeds with the same bits. Composed, when both sides are whole pixels of one component type
/// without gaps: blocks that stay in the first-level cache go through up to three steps over contiguous values (gather
/// the channels that are needed, convert the components, spread them over the destination's channels); steps that are
/// the identity vanish. Strided, for everything else: one loop for each channel of the destination.
class ConversionPlan final : public Object {
public:
    /// @param origins  one for each channel of the destination
    /// @param colors   the source channels red, green, blue, for origins from the mean
    /// Errors: illegal argument when offsets are missing, unsupported argument for a component that is none of the
    /// nine.
    static Result<ConvertPixelFunc> Create(const PlanSide& dst, const PlanSide& src, Block<const ChannelOrigin> origins,
                                           const int (&colors)[3]);

    void Run(const PixelLine& dst, Int count, const PixelLineConst& src) const;

    /// The strided loops for any line; for tests of the composed ones.
    void RunStrided(const PixelLine& dst, Int count, const PixelLineConst& src) const;

    ConversionPlan() = default;

private:
    struct Channel {
        ChannelOrigin::Kind kind = ChannelOrigin::Kind::Fill;
        ComponentType srcType = ComponentType::None;
        ComponentType dstType = ComponentType::None;
        Int srcOffset = 0;  ///< bytes
        Int dstOffset = 0;  ///< bytes
        std::byte fill[8] = {};
    };
    static constexpr int kMaxComposedChannels = 8;
    static constexpr Int kScratchBytes = 8192;

    Result<void> Init(const PlanSide& dst, const PlanSide& src, Block<const ChannelOrigin> origins,
                      const int (&colors)[3]);
    void Compose(const PlanSide& dst, const PlanSide& src, Block<const ChannelOrigin> origins);
    void RunComposed(const std::byte* src, std::byte* dst, Int count) const;
    void Gather(const std::byte* src, std::byte* dst, Int count) const;

    BaseArray<Channel> _channels;
    ComponentType _meanType = ComponentType::None;
    Int _meanOffsets[3] = {};  ///< bytes: red, green, blue

    // The composed form. `gathered` is the pixel of source values that are needed, between gathering and spreading.
    bool _composed = false;
    bool _gathers = false, _spreads = false;
    ComponentType _srcType = ComponentType::None, _dstType = ComponentType::None;
    int _srcCount = 0, _dstCount = 0, _gatheredCount = 0;
    PermuteSource _gather[kMaxComposedChannels];  ///< of the source; -1 is the mean
    PermuteSource _spread[kMaxComposedChannels];  ///< of the gathered pixel
};

}  // namespace orvik::pixel
