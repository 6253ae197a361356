#include "gfx_image_pixelformat_plan.h"

#include <algorithm>
#include <cstring>

namespace orvik::pixel {
namespace {

constexpr Int kMeanBlock = 256;

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
            const auto value = static_cast<std::byte>(origin.fill);
            GetConvertRun(ComponentType::U8, channel.dstType)(&value, channel.fill, 1);
        }
        TRY(_channels.Append(channel));
    }
    if (_meanType != ComponentType::None) {
        for (int i = 0; i < 3; ++i)
            _meanOffsets[i] = src.offsets[colors[i]].GetBytes();
    }
    Compose(dst, src, origins);
    return {};
}

void ConversionPlan::Compose(const PlanSide& dst, const PlanSide& src, Block<const ChannelOrigin> origins) {
    if (src.components.empty() || dst.components.size() > kMaxComposedChannels ||
        src.components.size() > kMaxComposedChannels || !IsDense(dst) || !IsDense(src))
        return;
    _srcType = src.components[0];
    _dstType = dst.components[0];
    _srcCount = static_cast<int>(src.components.size());
    _dstCount = static_cast<int>(dst.components.size());
    if (_srcType == ComponentType::None || _dstType == ComponentType::None)
        return;

    // Each source of the destination's channels gets a place in the gathered pixel.
    constexpr int kMean = kMaxComposedChannels;
    int place[kMaxComposedChannels + 1];
    std::fill(std::begin(place), std::end(place), -1);
    for (int d = 0; d < _dstCount; ++d) {
        if (origins[d].kind == ChannelOrigin::Kind::Fill) {
            std::copy_n(_channels[d].fill, 8, _spread[d].fill);
            continue;
        }
        const bool mean = origins[d].kind == ChannelOrigin::Kind::Mean;
        int& where = place[mean ? kMean : origins[d].channel];
        if (where < 0) {
            where = _gatheredCount++;
            _gather[where].channel = static_cast<int8_t>(mean ? -1 : origins[d].channel);
        }
        _spread[d].channel = static_cast<int8_t>(where);
    }
    if (_gatheredCount == 0)
        return;  // nothing but fills
    // Without a mean, gathering pays only where it saves conversions.
    _gathers = place[kMean] >= 0 || (_gatheredCount < _srcCount && _srcType != _dstType);
    if (!_gathers) {
        for (int d = 0; d < _dstCount; ++d) {
            if (_spread[d].channel >= 0)
                _spread[d].channel = _gather[_spread[d].channel].channel;
        }
        _gatheredCount = _srcCount;
    }
    _spreads = _gatheredCount != _dstCount;
    for (int d = 0; d < _dstCount; ++d)
        _spreads |= _spread[d].channel != d;
    _composed = true;
}

void ConversionPlan::Run(const PixelLine& dst, Int count, const PixelLineConst& src) const {
    if (count <= 0)
        return;
    if (_composed && src.stride.GetBits() == Int(_srcCount) * GetComponentBits(_srcType) &&
        dst.stride.GetBits() == Int(_dstCount) * GetComponentBits(_dstType))
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

void ConversionPlan::Gather(const std::byte* src, std::byte* dst, Int count) const {
    const Int size = BytesOf(_srcType), srcStride = _srcCount * size, dstStride = _gatheredCount * size;
    for (int i = 0; i < _gatheredCount; ++i) {
        if (_gather[i].channel < 0)
            GetMean(_srcType)(src + _meanOffsets[0], src + _meanOffsets[1], src + _meanOffsets[2], srcStride,
                              dst + i * size, dstStride, count);
        else
            GetConvertStrided(_srcType, _srcType)(src + _gather[i].channel * size, srcStride, dst + i * size, dstStride,
                                                  count);
    }
}

void ConversionPlan::RunComposed(const std::byte* src, std::byte* dst, Int count) const {
    const bool converts = _srcType != _dstType;
    const ConvertRunFunction convert = GetConvertRun(_srcType, _dstType);
    const int dstSize = static_cast<int>(BytesOf(_dstType));
    if (!_gathers && !_spreads)
        return convert(src, dst, count * _dstCount);
    if (!_gathers && !converts)
        return PermutePixels(src, _srcCount, dst, _dstCount, _spread, dstSize, count);

    const Int srcPixel = _srcCount * BytesOf(_srcType), dstPixel = _dstCount * Int(dstSize);
    const Int widest = _gatheredCount * std::max(BytesOf(_srcType), Int(dstSize));
    const Int blockPixels = kScratchBytes / widest;
    alignas(64) std::byte gathered[kScratchBytes];
    alignas(64) std::byte converted[kScratchBytes];
    for (Int done = 0; done < count; done += blockPixels) {
        const Int block = std::min(blockPixels, count - done);
        std::byte* out = dst + done * dstPixel;
        const std::byte* values = src + done * srcPixel;
        if (_gathers) {
            std::byte* to = converts || _spreads ? gathered : out;
            Gather(values, to, block);
            values = to;
        }
        if (converts) {
            std::byte* to = _spreads ? converted : out;
            convert(values, to, block * _gatheredCount);
            values = to;
        }
        if (_spreads)
            PermutePixels(values, _gatheredCount, out, _dstCount, _spread, dstSize, block);
    }
}

}  // namespace orvik::pixel
