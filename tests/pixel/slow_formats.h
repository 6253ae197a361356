#pragma once
/// @file
/// Formats as the slow evaluation sees them, and conversion of the general ones pixel by pixel.

#include <algorithm>
#include <random>

#include "pixel_tools.h"
#include "slow_arithmetic.h"

namespace orvik {

/// The names of a format's channels and their component types.
struct SlowFormat {
    PixelFormat format;
    std::vector<std::string> types;
    std::vector<ComponentType> components;
    ComponentType component = ComponentType::None;  ///< of the last channel; of all, but for formats made at run time
    size_t size = 0;                                ///< bytes of that

    Int Find(const std::string& type) const {
        const auto found = std::find(types.begin(), types.end(), type);
        return found == types.end() ? -1 : found - types.begin();
    }
    size_t GetPixelBytes() const { return types.size() * size; }
};

inline SlowFormat Describe(const PixelFormat& format) {
    SlowFormat slow;
    slow.format = format;
    for (const ImageChannel& channel : format->GetChannels()) {
        const std::string id = TextOf(channel->GetChannelType()->GetId());
        slow.types.push_back(id.substr(id.rfind('.') + 1));
        slow.component = channel->GetComponentType();
        slow.components.push_back(slow.component);
    }
    slow.size = size_t(GetComponentBits(slow.component) / 8);
    return slow;
}

template <class T>
uint64_t MeanAs(uint64_t r, uint64_t g, uint64_t b) {
    T values[3];
    const uint64_t raw[3] = {r, g, b};
    for (int i = 0; i < 3; ++i)
        std::memcpy(&values[i], &raw[i], sizeof(T));
    const T mean = (values[0] + values[1] + values[2]) / T(3);
    uint64_t result = 0;
    std::memcpy(&result, &mean, sizeof(T));
    return result;
}
inline uint64_t SlowMean(ComponentType type, uint64_t r, uint64_t g, uint64_t b) {
    switch (type) {
        case ComponentType::F16: {
            const auto f = [](uint64_t half) { return float(slow::DecodeHalf(half)); };
            const float mean = (f(r) + f(g) + f(b)) / 3.0f;
            return slow::EncodeHalf(std::min(std::max(mean, -65500.0f), 65500.0f));
        }
        case ComponentType::F32:
            return MeanAs<float>(r, g, b);
        case ComponentType::F64:
            return MeanAs<double>(r, g, b);
        default: {
            const slow::Wide sum =
                slow::DecodeInteger(type, r) + slow::DecodeInteger(type, g) + slow::DecodeInteger(type, b);
            return uint64_t(sum / 3) & slow::MaskOf(type);
        }
    }
}

/// One pixel by the rules: what each destination channel gets, decided by the names of the channels.
inline void ConvertPixelSlowly(const SlowFormat& dst, uint64_t* out, const SlowFormat& src, const uint64_t* in) {
    const auto convert = [&](uint64_t raw) { return slow::Convert(src.component, dst.component, raw); };
    const auto fill = [&](uint64_t u8) { return slow::Convert(ComponentType::U8, dst.component, u8); };
    const bool srcHasColor = src.Find("red") >= 0, srcHasGrey = src.Find("grey") >= 0;
    for (size_t d = 0; d < dst.types.size(); ++d) {
        const std::string& type = dst.types[d];
        const Int same = src.Find(type);
        if (type == "unused")
            out[d] = 0;
        else if (same >= 0)
            out[d] = convert(in[same]);
        else if (type == "alpha")
            out[d] = fill(255);
        else if (type == "grey")
            out[d] =
                srcHasColor
                    ? convert(SlowMean(src.component, in[src.Find("red")], in[src.Find("green")], in[src.Find("blue")]))
                    : 0;
        else
            out[d] = convert(in[srcHasGrey ? src.Find("grey") : src.Find("alpha")]);
    }
}

inline uint64_t RandomComponent(ComponentType type, std::mt19937_64& random) {
    if (!slow::IsFloat(type))
        return random() & slow::MaskOf(type);
    std::uniform_real_distribution<double> around(-0.2, 1.2), wide(-70000, 70000);
    const double value = random() % 16 == 0 ? wide(random) : around(random);
    return slow::EncodeFloat(type, value);
}

inline bool IsGeneral(const PixelFormat& format) {
    const std::string id = TextOf(format->GetId());
    if (id.find("cmyk") != std::string::npos || id.find("dynamic") != std::string::npos)
        return false;
    return format->GetChannels()[0]->GetComponentType() != ComponentType::None;
}

// --- Where pixels lie ------------------------------------------------------------------------------------------------

struct Placement {
    Int first = 0;   ///< byte of the first pixel
    Int stride = 0;  ///< bytes
    std::vector<BITS> offsets;
};
inline Placement PlaceDense(const PixelFormat& format) {
    const ChannelOffsets offsets = format->GetChannelOffsets();
    return {0, format->GetBitsPerPixel().GetBytes(), {offsets.begin(), offsets.end()}};
}
/// Channels in reverse order with a gap of a byte after each, and space between the pixels.
inline Placement PlaceOddly(const SlowFormat& format, Int count, bool backwards) {
    Placement place;
    const Int channel = Int(format.size) + 1, channels = Int(format.types.size());
    place.stride = channel * channels + 3;
    for (Int i = 0; i < channels; ++i)
        place.offsets.push_back(BITS(8 * (2 + channel * (channels - 1 - i))));
    place.offsets.push_back(BITS(8 * place.stride));
    if (backwards) {
        place.first = (count - 1) * place.stride;
        place.stride = -place.stride;
    }
    return place;
}
inline Placement PlaceInPlanes(const SlowFormat& format, Int count) {
    Placement place{0, Int(format.size), {}};
    for (size_t i = 0; i < format.types.size(); ++i)
        place.offsets.push_back(BITS(8 * Int(i) * count * place.stride));
    place.offsets.push_back(BITS(8 * place.stride));
    return place;
}
/// Contiguous pixels put where a placement says, among bytes of 0xCD.
/// @param period  after how many pixels they begin anew
inline std::vector<uint8_t> Scatter(const SlowFormat& format, const Placement& to, const std::vector<uint8_t>& pixels,
                                    Int count, Int period) {
    const Int bytes = std::max(std::abs(to.stride), Int(format.GetPixelBytes()));  // in planes too
    std::vector<uint8_t> out(size_t(bytes * count + 64), 0xCD);
    for (Int i = 0; i < count; ++i) {
        const uint8_t* pixel = &pixels[size_t(i % period) * format.GetPixelBytes()];
        for (size_t c = 0; c < format.types.size(); ++c)
            std::memcpy(&out[size_t(to.first + i * to.stride + to.offsets[c].GetBytes())], pixel + c * format.size,
                        format.size);
    }
    return out;
}

// --- Pixels as raw bits ----------------------------------------------------------------------------------------------

/// One pixel's components.
using SlowPixel = std::vector<uint64_t>;

inline SlowPixel LoadPixel(const SlowFormat& format, const uint8_t* pixel) {
    SlowPixel raw(format.types.size());
    for (size_t c = 0; c < raw.size(); ++c)
        std::memcpy(&raw[c], pixel + format.format->GetChannelOffsets()[c].GetBytes(),
                    size_t(GetComponentBits(format.components[c]) / 8));
    return raw;
}
inline void StorePixel(const SlowFormat& format, const SlowPixel& raw, uint8_t* pixel) {
    for (size_t c = 0; c < raw.size(); ++c)
        std::memcpy(pixel + format.format->GetChannelOffsets()[c].GetBytes(), &raw[c],
                    size_t(GetComponentBits(format.components[c]) / 8));
}

}  // namespace orvik
