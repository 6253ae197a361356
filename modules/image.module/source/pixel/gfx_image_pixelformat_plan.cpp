#include "pixel/gfx_image_pixelformat_plan.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace orvik::pixel {
namespace {

constexpr Int kMeanBlock = 256;
constexpr Int kPeriod = 64;  ///< pixels; blocks of the composed form are multiples, which suit every shuffle

Int BytesOf(ComponentType type) { return GetComponentBits(type) / 8; }

/// One component type for all channels, each behind the one before.
bool IsDense(const PlanSide& side) {
    const Int bits = GetComponentBits(side.components[0]);
    for (size_t i = 0; i < side.components.size(); ++i) {
        if (side.components[i] != side.components[0] || side.offsets[i].GetBits() != static_cast<Int>(i) * bits)
            return false;
    }
    return true;
}

}  // namespace

Result<ConvertPixelFunc> ConversionPlan::Create(const PlanSide& dst, const PlanSide& src,
                                                Block<const ChannelOrigin> origins, const int (&colors)[3]) {
    Ref<ConversionPlan> plan = TRY(NewObj<ConversionPlan>());
    TRY(plan.GetObject()->Init(dst, src, origins, colors));
    return ConvertPixelFunc(
        [plan](const PixelLine& to, Int count, const PixelLineConst& from, CONVERTPIXELFLAGS) -> Result<void> {
            plan.GetObject()->Run(to, count, from);
            return {};
        });
}

Result<void> ConversionPlan::Init(const PlanSide& dst, const PlanSide& src, Block<const ChannelOrigin> origins,
                                  const int (&colors)[3]) {
    if (dst.offsets.size() < dst.components.size() || src.offsets.size() < src.components.size())
        return IllegalArgumentError("A pixel conversion needs an offset for each channel.");
    for (size_t d = 0; d < origins.size(); ++d) {
        const ChannelOrigin& origin = origins[d];
        Channel channel;
        channel.kind = origin.kind;
        channel.dstType = dst.components[d];
        channel.dstOffset = dst.offsets[d].GetBytes();
        if (origin.kind == ChannelOrigin::Kind::Channel) {
            channel.srcType = src.components[origin.channel];
            channel.srcOffset = src.offsets[origin.channel].GetBytes();
        } else if (origin.kind == ChannelOrigin::Kind::Mean) {
            channel.srcType = src.components[colors[0]];
            _meanType = channel.srcType;
        } else {
            channel.srcType = ComponentType::U8;
        }
        if (channel.srcType == ComponentType::None || channel.dstType == ComponentType::None)
            return UnsupportedArgumentError("Channel @ has no component that could be converted.", d);
        if (origin.kind == ChannelOrigin::Kind::Fill) {
            channel.value = static_cast<std::byte>(origin.fill);
            GetKernels().GetRun(ComponentType::U8, channel.dstType)(&channel.value, channel.fill, 1);
        }
        TRY(_channels.Append(channel));
    }
    if (_meanType != ComponentType::None) {
        for (int i = 0; i < 3; ++i)
            _meanOffsets[i] = src.offsets[colors[i]].GetBytes();
    }
    Compose(dst, src, origins, colors);
    return {};
}

void ConversionPlan::Compose(const PlanSide& dst, const PlanSide& src, Block<const ChannelOrigin> origins,
                             const int (&colors)[3]) {
    if (src.components.empty() || dst.components.empty() || dst.components.size() > kMaxComposedChannels ||
        src.components.size() > kMaxComposedChannels || !IsDense(dst) || !IsDense(src))
        return;
    _srcType = src.components[0];
    _dstType = dst.components[0];
    if (_srcType == ComponentType::None || _dstType == ComponentType::None)
        return;
    _srcCount = static_cast<int>(src.components.size());
    _dstCount = static_cast<int>(dst.components.size());
    _srcPixel = _srcCount * BytesOf(_srcType);
    _dstPixel = _dstCount * BytesOf(_dstType);
    _convert = GetKernels().GetRun(_srcType, _dstType);
    const auto isKind = [](ChannelOrigin::Kind kind) {
        return [kind](const ChannelOrigin& origin) { return origin.kind == kind; };
    };
    if (std::ranges::all_of(origins, isKind(ChannelOrigin::Kind::Fill)))
        _steps = Steps::Fill;
    else if (std::ranges::any_of(origins, isKind(ChannelOrigin::Kind::Mean)))
        ComposeMean(origins, colors);
    else
        ComposePixels(origins);
}

/// A constant is a value of the destination. Where the source's type has one that becomes it, it may join earlier.
bool ConversionPlan::FillsBeforeConversion(PermuteSource* sources) const {
    for (int d = 0; d < _dstCount; ++d) {
        const Channel& channel = _channels[d];
        if (channel.kind != ChannelOrigin::Kind::Fill)
            continue;
        std::byte converted[8] = {};
        GetKernels().GetRun(ComponentType::U8, _srcType)(&channel.value, sources[d].fill, 1);
        _convert(sources[d].fill, converted, 1);
        if (std::memcmp(converted, channel.fill, sizeof(converted)) != 0)
            return false;
    }
    return true;
}

void ConversionPlan::ComposePixels(Block<const ChannelOrigin> origins) {
    const KernelSet& kernels = GetKernels();
    PermuteSource map[kMaxComposedChannels];  // of the destination's channels
    PermuteSource gather[kMaxComposedChannels];
    int place[kMaxComposedChannels];  // of a source channel among the gathered ones
    std::fill(std::begin(place), std::end(place), -1);
    int gathered = 0;
    bool isIdentity = _srcCount == _dstCount;
    for (int d = 0; d < _dstCount; ++d) {
        isIdentity &= origins[d].kind == ChannelOrigin::Kind::Channel && origins[d].channel == d;
        if (origins[d].kind == ChannelOrigin::Kind::Fill) {
            std::copy_n(_channels[d].fill, 8, map[d].fill);
            continue;
        }
        map[d].channel = static_cast<int8_t>(origins[d].channel);
        if (place[origins[d].channel] < 0) {
            gather[gathered].channel = map[d].channel;
            place[origins[d].channel] = gathered++;
        }
    }
    const int srcSize = static_cast<int>(BytesOf(_srcType)), dstSize = static_cast<int>(BytesOf(_dstType));
    if (isIdentity) {
        _steps = Steps::Convert;
        _convertedCount = _dstCount;
        return;
    }
    if (_srcType == _dstType) {
        _steps = Steps::Shuffle;
        _before.Init(kernels, _srcCount, _dstCount, map, srcSize);
        return;
    }
    _steps = Steps::Pixels;
    PermuteSource early[kMaxComposedChannels];
    std::copy(std::begin(map), std::end(map), early);
    if (srcSize <= dstSize && FillsBeforeConversion(early)) {  // the narrower values are rearranged
        _shufflesBefore = true;
        _convertedCount = _dstCount;
        _before.Init(kernels, _srcCount, _dstCount, early, srcSize);
    } else {
        _convertedCount = _srcCount;
        _shufflesBefore = gathered * 2 <= _srcCount;  // otherwise the conversions saved cost less than gathering
        if (_shufflesBefore) {
            _convertedCount = gathered;
            _before.Init(kernels, _srcCount, gathered, gather, srcSize);
            for (int d = 0; d < _dstCount; ++d) {
                if (map[d].channel >= 0)
                    map[d].channel = static_cast<int8_t>(place[map[d].channel]);
            }
        }
        _shufflesBehind = _convertedCount != _dstCount;
        for (int d = 0; d < _dstCount; ++d)
            _shufflesBehind |= map[d].channel != d;
        if (_shufflesBehind)
            _behind.Init(kernels, _convertedCount, _dstCount, map, dstSize);
    }
    _blockPixels = kScratchBytes / (Int(_convertedCount) * std::max(srcSize, dstSize)) / kPeriod * kPeriod;
}

void ConversionPlan::ComposeMean(Block<const ChannelOrigin> origins, const int (&colors)[3]) {
    if (_dstCount > 2)
        return;
    const KernelSet& kernels = GetKernels();
    const int srcSize = static_cast<int>(BytesOf(_srcType)), dstSize = static_cast<int>(BytesOf(_dstType));
    _greyIsFirst = origins[0].kind == ChannelOrigin::Kind::Mean;
    const int beside = _greyIsFirst ? 1 : 0;
    const auto initPlane = [&](int plane, int channel) {
        PermuteSource source;
        source.channel = static_cast<int8_t>(channel);
        _planes[plane].Init(kernels, _srcCount, 1, &source, srcSize);
    };
    if (_srcCount == 3 || _srcCount == 4)
        _meanOfPixels = kernels.meanOfPixels[static_cast<int>(_srcType)][_srcCount - 3];
    for (int i = 0; i < 3; ++i) {
        initPlane(i, colors[i]);
        for (int at = 0; at < kernels.vectorBytes && _meanOfPixels; ++at)
            _meanTable.picks[i][at] =
                static_cast<uint8_t>((at / srcSize * _srcCount + colors[i]) * srcSize + at % srcSize);
    }
    if (_dstCount == 1) {
        _steps = Steps::Mean;
    } else if (origins[beside].kind == ChannelOrigin::Kind::Fill) {
        _steps = Steps::MeanAndFill;
        PermuteSource sources[2];
        sources[1 - beside].channel = 0;
        std::copy_n(_channels[beside].fill, 8, sources[beside].fill);
        _behind.Init(kernels, 1, 2, sources, dstSize);
    } else if (origins[beside].kind == ChannelOrigin::Kind::Channel) {
        _steps = Steps::MeanAndChannel;
        initPlane(3, origins[beside].channel);
        _interleave = kernels.interleave[std::countr_zero(static_cast<unsigned>(dstSize))];
    }
    _mean = kernels.mean[static_cast<int>(_srcType)];
    _blockPixels = kPlaneBytes / std::max(srcSize, dstSize);
}

void ConversionPlan::Run(const PixelLine& dst, Int count, const PixelLineConst& src) const {
    if (count <= 0)
        return;
    if (_steps != Steps::None && src.stride.GetBits() == _srcPixel * 8 && dst.stride.GetBits() == _dstPixel * 8)
        RunComposed(static_cast<const std::byte*>(src.data), static_cast<std::byte*>(dst.data), count);
    else
        RunStrided(dst, count, src);
}

void ConversionPlan::RunStrided(const PixelLine& dst, Int count, const PixelLineConst& src) const {
    const auto* from = static_cast<const std::byte*>(src.data);
    auto* to = static_cast<std::byte*>(dst.data);
    const Int srcStride = src.stride.GetBytes(), dstStride = dst.stride.GetBytes();
    for (const Channel& channel : _channels) {
        std::byte* out = to + channel.dstOffset;
        if (channel.kind == ChannelOrigin::Kind::Channel) {
            GetConvertStrided(channel.srcType, channel.dstType)(from + channel.srcOffset, srcStride, out, dstStride,
                                                                count);
        } else if (channel.kind == ChannelOrigin::Kind::Fill) {
            FillStrided(channel.fill, static_cast<int>(BytesOf(channel.dstType)), out, dstStride, count);
        } else {
            alignas(64) std::byte means[kMeanBlock * 8];
            const Int size = BytesOf(_meanType);
            for (Int done = 0; done < count; done += kMeanBlock) {
                const Int block = std::min(kMeanBlock, count - done);
                const std::byte* pixels = from + done * srcStride;
                GetMean(_meanType)(pixels + _meanOffsets[0], pixels + _meanOffsets[1], pixels + _meanOffsets[2],
                                   srcStride, means, size, block);
                GetConvertStrided(_meanType, channel.dstType)(means, size, out + done * dstStride, dstStride, block);
            }
        }
    }
}

void ConversionPlan::RunComposed(const std::byte* src, std::byte* dst, Int count) const {
    switch (_steps) {
        case Steps::None:
            return;
        case Steps::Fill:
            return RunFill(dst, count);
        case Steps::Convert:
            return _convert(src, dst, count * _convertedCount);
        case Steps::Shuffle:
            return _before.Run(src, dst, count);
        case Steps::Pixels:
            return RunPixels(src, dst, count);
        default:
            return RunMean(src, dst, count);
    }
}

void ConversionPlan::RunFill(std::byte* dst, Int count) const {
    // The first pixels are written one by one and then copied.
    const Int size = BytesOf(_dstType), first = std::min<Int>(count, kPeriod);
    for (int d = 0; d < _dstCount; ++d)
        FillStrided(_channels[d].fill, static_cast<int>(size), dst + d * size, _dstPixel, first);
    for (Int done = first; done < count;) {
        const Int block = std::min(std::min(done, kScratchBytes / kPeriod), count - done);
        std::memcpy(dst + done * _dstPixel, dst, static_cast<size_t>(block * _dstPixel));
        done += block;
    }
}

void ConversionPlan::RunPixels(const std::byte* src, std::byte* dst, Int count) const {
    alignas(64) std::byte rearranged[kScratchBytes];
    alignas(64) std::byte converted[kScratchBytes];
    for (Int done = 0; done < count; done += _blockPixels) {
        const Int block = std::min(_blockPixels, count - done);
        std::byte* out = dst + done * _dstPixel;
        const std::byte* values = src + done * _srcPixel;
        if (_shufflesBefore) {
            _before.Run(values, rearranged, block);
            values = rearranged;
        }
        _convert(values, _shufflesBehind ? converted : out, block * _convertedCount);
        if (_shufflesBehind)
            _behind.Run(converted, out, block);
    }
}

void ConversionPlan::RunMean(const std::byte* src, std::byte* dst, Int count) const {
    const bool isLast = _steps == Steps::Mean, isConverted = _srcType != _dstType;
    if (isLast && !isConverted && _meanOfPixels)
        return _meanOfPixels(_meanTable, src, dst, count);
    alignas(64) std::byte mean[kPlaneBytes], grey[kPlaneBytes], given[kPlaneBytes], beside[kPlaneBytes];
    for (Int done = 0; done < count; done += _blockPixels) {
        const Int block = std::min(_blockPixels, count - done);
        const std::byte* values = src + done * _srcPixel;
        std::byte* out = dst + done * _dstPixel;
        std::byte* const greys = isLast ? out : grey;
        TakeMeans(values, isConverted ? mean : greys, block);
        if (isConverted)
            _convert(mean, greys, block);
        if (_steps == Steps::MeanAndFill) {
            _behind.Run(grey, out, block);
        } else if (_steps == Steps::MeanAndChannel) {
            _planes[3].Run(values, isConverted ? given : beside, block);
            if (isConverted)
                _convert(given, beside, block);
            _interleave(_greyIsFirst ? grey : beside, _greyIsFirst ? beside : grey, out, block);
        }
    }
}

void ConversionPlan::TakeMeans(const std::byte* src, std::byte* dst, Int count) const {
    if (_meanOfPixels)
        return _meanOfPixels(_meanTable, src, dst, count);
    alignas(64) std::byte planes[3][kPlaneBytes];
    for (int i = 0; i < 3; ++i)
        _planes[i].Run(src, planes[i], count);
    _mean(planes[0], planes[1], planes[2], dst, count);
}

}  // namespace orvik::pixel
