#pragma once
/// @file
/// The plan of a conversion between two formats of whole components.

#include "pixel/kernels/gfx_image_pixelformat_shuffle.h"

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
/// without gaps: blocks that stay in the first-level cache go through a few steps over contiguous values. The steps are
/// a rearrangement of channels before the conversion of components, the conversion, and a rearrangement behind it;
/// steps that are the identity vanish, and mostly there is one of each kind at most. Colours that become grey are first
/// parted into planes, of which the mean is taken. Strided, for everything else: one loop for each channel of the
/// destination.
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
        Int srcOffset = 0;       ///< bytes
        Int dstOffset = 0;       ///< bytes
        std::byte value = {};    ///< a U8 component that fills
        std::byte fill[8] = {};  ///< the same as a component of the destination
    };
    /// The steps of the composed form.
    enum class Steps : uint8_t {
        None,            ///< strided only
        Fill,            ///< the source is not read
        Convert,         ///< one conversion or copy
        Shuffle,         ///< one rearrangement
        Pixels,          ///< rearranged before, converted, rearranged behind
        Mean,            ///< one channel of grey
        MeanAndFill,     ///< grey beside a constant
        MeanAndChannel,  ///< grey beside a channel of the source
    };
    static constexpr int kMaxComposedChannels = PixelShuffle::kMaxChannels;
    static constexpr Int kScratchBytes = 8192;
    static constexpr Int kPlaneBytes = 2048;

    Result<void> Init(const PlanSide& dst, const PlanSide& src, Block<const ChannelOrigin> origins,
                      const int (&colors)[3]);
    void Compose(const PlanSide& dst, const PlanSide& src, Block<const ChannelOrigin> origins, const int (&colors)[3]);
    void ComposePixels(Block<const ChannelOrigin> origins);
    void ComposeMean(Block<const ChannelOrigin> origins, const int (&colors)[3]);
    bool FillsBeforeConversion(PermuteSource* sources) const;
    void RunComposed(const std::byte* src, std::byte* dst, Int count) const;
    void RunFill(std::byte* dst, Int count) const;
    void RunPixels(const std::byte* src, std::byte* dst, Int count) const;
    void RunMean(const std::byte* src, std::byte* dst, Int count) const;
    void TakeMeans(const std::byte* src, std::byte* dst, Int count) const;

    BaseArray<Channel> _channels;
    ComponentType _meanType = ComponentType::None;
    Int _meanOffsets[3] = {};  ///< bytes: red, green, blue

    // The composed form.
    Steps _steps = Steps::None;
    bool _shufflesBefore = false, _shufflesBehind = false;
    bool _greyIsFirst = false;  ///< of two channels
    ComponentType _srcType = ComponentType::None, _dstType = ComponentType::None;
    int _srcCount = 0, _dstCount = 0, _convertedCount = 0;  ///< channels of a pixel
    Int _srcPixel = 0, _dstPixel = 0, _blockPixels = 0;     ///< bytes, bytes, pixels
    ConvertRunFunction _convert = nullptr;
    MeanRunFunction _mean = nullptr;
    MeanOfPixelsFunction _meanOfPixels = nullptr;  ///< instead of planes
    MeanTable _meanTable;
    InterleaveFunction _interleave = nullptr;
    PixelShuffle _before, _behind;
    PixelShuffle _planes[4];  ///< red, green, blue and the channel beside the grey
};

}  // namespace orvik::pixel
