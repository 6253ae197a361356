#pragma once
// Formats as the slow evaluation sees them, and their conversion pixel by pixel from the rules of each: words as texts
// of bits, integers without shifts, and floats in extended precision that is rounded after each step.

#include <algorithm>
#include <map>
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

inline uint64_t SlowMean(ComponentType type, uint64_t r, uint64_t g, uint64_t b) {
    if (!slow::IsFloat(type)) {
        const auto decode = [&](uint64_t raw) { return slow::DecodeInteger(type, raw); };
        return uint64_t((decode(r) + decode(g) + decode(b)) / 3) & slow::MaskOf(type);
    }
    // Every step is rounded, that of halves to single precision.
    const auto mean = [&]<class T>(T three) {
        const auto decode = [&](uint64_t raw) { return T(slow::DecodeFloat(type, raw)); };
        return slow::Exact((decode(r) + decode(g) + decode(b)) / three);
    };
    return slow::EncodeFloat(type, type == ComponentType::F64 ? mean(3.0) : mean(3.0f));
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

namespace slow {

/// A value of a channel with its type.
struct Component {
    ComponentType type = None;
    uint64_t raw = 0;
    uint64_t As(ComponentType wanted) const { return Convert(type, wanted, raw); }
};
using Channels = std::map<std::string, Component>;

inline Channels NameChannels(const SlowFormat& format, const SlowPixel& pixel) {
    Channels named;
    for (size_t c = 0; c < pixel.size(); ++c)
        named[format.types[c]] = {format.components[c], pixel[c]};
    return named;
}
/// What a format takes of named channels: absent alpha is opaque, an unused channel is 0.
inline SlowPixel TakeChannels(const SlowFormat& format, const Channels& named) {
    SlowPixel pixel;
    for (size_t c = 0; c < format.types.size(); ++c) {
        const auto found = named.find(format.types[c]);
        if (format.types[c] == "unused")
            pixel.push_back(0);
        else if (found != named.end())
            pixel.push_back(found->second.As(format.components[c]));
        else
            pixel.push_back(Convert(U8, format.components[c], 255));
    }
    return pixel;
}

inline float AsFloat(const Channels& channels, const std::string& name) {
    return Reinterpret<float>(uint32_t(channels.at(name).As(F32)));
}
inline Component FloatComponent(float value) { return {F32, Reinterpret<uint32_t>(value)}; }
inline float Round(long double value) { return float(value); }

/// The bits of a word, the highest first.
inline const std::map<std::string, std::string> kPackedBits = {
    {"rgb.u565", "RRRRRGGGGGGBBBBB"},   {"bgr.u565", "BBBBBGGGGGGRRRRR"},   {"rgb.u555", "xRRRRRGGGGGBBBBB"},
    {"bgr.u555", "xBBBBBGGGGGRRRRR"},   {"argb.u1555", "ARRRRRGGGGGBBBBB"}, {"abgr.u1555", "ABBBBBGGGGGRRRRR"},
    {"rgb.u444", "xxxxRRRRGGGGBBBB"},   {"bgr.u444", "xxxxBBBBGGGGRRRR"},   {"argb.u4444", "AAAARRRRGGGGBBBB"},
    {"abgr.u4444", "AAAABBBBGGGGRRRR"},
};
inline const std::map<char, std::string> kPackedNames = {{'R', "red"}, {'G', "green"}, {'B', "blue"}, {'A', "alpha"}};

/// The channels of a word as texts of bits.
inline std::map<char, std::string> SplitWord(uint16_t word, const std::string& bits) {
    std::map<char, std::string> values;
    for (size_t i = 0; i < 16; ++i)
        values[bits[i]] += word >> (15 - i) & 1 ? '1' : '0';
    return values;
}
inline uint16_t JoinWord(std::map<char, std::string> values, const std::string& bits) {
    uint16_t word = 0;
    for (size_t i = 0; i < 16; ++i) {
        std::string& value = values[bits[i]];
        word = uint16_t(word * 2);
        if (value.empty() || bits[i] == 'x')
            continue;
        word = uint16_t(word + (value[0] == '1'));
        value.erase(0, 1);
    }
    return word;
}
inline Channels ExpandWord(uint16_t word, const std::string& bits) {
    Channels channels;
    for (auto [letter, value] : SplitWord(word, bits)) {
        if (letter == 'x')
            continue;
        if (value.size() == 1)
            value = std::string(8, value[0]);
        else if (bits.find("AAAA") != std::string::npos)
            value += value;
        value.resize(8, '0');
        channels[kPackedNames.at(letter)] = {U8, std::stoul(value, nullptr, 2)};
    }
    return channels;
}
inline uint16_t CompressWord(const Channels& channels, const std::string& bits) {
    std::map<char, std::string> values;
    for (const auto& [letter, name] : kPackedNames) {
        const auto found = channels.find(name);
        const uint64_t byte = found == channels.end() ? 255 : found->second.As(U8);
        for (int bit = 7; bit >= 0; --bit)
            values[letter] += byte >> bit & 1 ? '1' : '0';
    }
    return JoinWord(values, bits);
}
/// Between two words whose colours have equal widths.
inline uint16_t RearrangeWord(uint16_t word, const std::string& src, const std::string& dst) {
    std::map<char, std::string> values = SplitWord(word, src);
    if (values.count('A') == 0)
        values['A'] = "1111";
    return JoinWord(values, dst);
}

inline Channels DecodeRgbe(const uint8_t* bytes) {
    const auto decode = [&](int c) {
        return FloatComponent(bytes[3] == 0 ? 0.0f : Round(std::ldexp(bytes[c] + 0.5L, bytes[3] - 136)));
    };
    return {{"red", decode(0)}, {"green", decode(1)}, {"blue", decode(2)}};
}
/// For colours whose greatest is below 2^127.
inline std::array<uint8_t, 4> EncodeRgbe(const Channels& colors) {
    const long double values[3] = {AsFloat(colors, "red"), AsFloat(colors, "green"), AsFloat(colors, "blue")};
    const long double v = *std::max_element(values, values + 3);
    std::array<uint8_t, 4> bytes{};
    if (v <= 1e-32f)
        return bytes;
    int exponent = 0;
    const long double mantissa = std::frexp(v, &exponent);
    const long double scale = Round(Round(mantissa * 255.9999f) / v);
    for (size_t c = 0; c < 3; ++c) {
        const auto byte = Wide(Round(values[c] * scale));
        bytes[c] = uint8_t(Mod(byte, 256));
    }
    bytes[3] = uint8_t(exponent + 128);
    return bytes;
}

inline uint64_t FloorAndLimit(int numerator) {
    return uint64_t(std::min(std::max(std::floor(numerator / 256.0), 0.0), 255.0));
}
inline Channels DecodeYuv(int y, int u, int v) {
    const int c = 298 * (y - 16) + 128, d = u - 128, e = v - 128;
    return {{"red", {U8, FloorAndLimit(c + 409 * e)}},
            {"green", {U8, FloorAndLimit(c - 100 * d - 208 * e)}},
            {"blue", {U8, FloorAndLimit(c + 516 * d)}}};
}
/// Y, U and V.
inline std::array<uint8_t, 3> EncodeYuv(const Channels& colors) {
    const auto byte = [&](const char* name) { return int(colors.at(name).As(U8)); };
    const int r = byte("red"), g = byte("green"), b = byte("blue");
    const auto scaled = [](int sum, int base) { return uint8_t(std::floor((sum + 128) / 256.0) + base); };
    return {scaled(66 * r + 129 * g + 25 * b, 16), scaled(-38 * r - 74 * g + 112 * b, 128),
            scaled(112 * r - 94 * g - 18 * b, 128)};
}

inline std::string InkName(int i, bool inverted) { return std::string(inverted ? "cmyk_i" : "cmyk_") + "cmyk"[i]; }
inline const std::string kColorNames[3] = {"red", "green", "blue"};

/// Alpha, if any, is kept unchanged.
inline Channels KeepAlpha(const Channels& from) {
    const auto alpha = from.find("alpha");
    return alpha == from.end() ? Channels() : Channels{*alpha};
}
/// @param channels  inks or inverted inks
inline Channels DecodeInks(const Channels& channels) {
    const bool inverted = channels.count("cmyk_ik") != 0;
    float inks[4];
    for (int i = 0; i < 4; ++i) {
        inks[i] = AsFloat(channels, InkName(i, inverted));
        if (inverted)
            inks[i] = Round(1.0L - inks[i]);
    }
    Channels colors = KeepAlpha(channels);
    const long double light = Round(1.0L - inks[3]);
    for (int i = 0; i < 3; ++i)
        colors[kColorNames[i]] = FloatComponent(Round(Round(1.0L - inks[i]) * light));
    return colors;
}
inline Channels EncodeInks(const Channels& colors, bool inverted) {
    float brightest = AsFloat(colors, "red");
    for (const std::string& name : kColorNames)
        brightest = std::max(brightest, AsFloat(colors, name));
    const long double black = Round(1.0L - brightest), light = Round(1.0L - black);
    float inks[4] = {0, 0, 0, Round(black)};
    for (int i = 0; i < 3 && light != 0; ++i)
        inks[i] = Round(Round(Round(1.0L - AsFloat(colors, kColorNames[i])) - black) / light);
    Channels channels = KeepAlpha(colors);
    for (int i = 0; i < 4; ++i)
        channels[InkName(i, inverted)] = FloatComponent(inverted ? Round(1.0L - inks[i]) : inks[i]);
    return channels;
}
/// Inks to inverted inks or the other way: 1 - value, among integers all ones less the value.
/// @param component  of the destination
inline Channels InvertInks(const Channels& channels, ComponentType component) {
    const bool inverted = channels.count("cmyk_ik") != 0;
    Channels result = KeepAlpha(channels);
    for (int i = 0; i < 4; ++i) {
        const Component& ink = channels.at(InkName(i, inverted));
        Component& other = result[InkName(i, !inverted)];
        if (IsFloat(ink.type) || IsFloat(component))
            other = FloatComponent(Round(1.0L - Reinterpret<float>(uint32_t(ink.As(F32)))));
        else
            other = {component, MaskOf(component) - ink.As(component)};
    }
    return result;
}

}  // namespace slow
}  // namespace orvik
