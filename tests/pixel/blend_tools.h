#pragma once
// Helpers of the tests of blending: runs of pixels, and the modes evaluated in long double by other means than the
// module's.

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "pixel_tools.h"

#include "orvik/gfx_image_pixelblend.h"

namespace orvik {

using Real = long double;

inline ImagePixelBlend BlendOf(const std::string& name) {
    const Result<Id> id = Id::Create("net.orvik.render.blendmode." + name);
    return id ? blendmodes::Get(*id) : ImagePixelBlend();
}

template <class T>
PixelFormat RgbaFormat() {
    return FormatOf(sizeof(T) == 4 ? "rgba.f32" : "rgba.f64");
}

inline Result<BlendPixelHandlerRef> FindBlend(const std::string& mode, const PixelFormat& bg, const PixelFormat& fg,
                                              double opacity) {
    return BlendOf(mode)->GetBlendPixelHandler(bg, bg->GetChannelOffsets(), fg, fg->GetChannelOffsets(), opacity);
}

/// Whole pixels of four Ts; empty after an error.
template <class T>
std::vector<T> Blend(const std::string& mode, const std::vector<T>& bg, const std::vector<T>& fg, double opacity) {
    const Result<BlendPixelHandlerRef> blend = FindBlend(mode, RgbaFormat<T>(), RgbaFormat<T>(), opacity);
    std::vector<T> out(bg.size());
    constexpr BITS kStride{sizeof(T) * 32};
    if (!blend || !(*blend)({out.data(), kStride}, {bg.data(), kStride}, {fg.data(), kStride}, Int(bg.size() / 4),
                            BLENDPIXELFLAGS::NONE))
        out.clear();
    return out;
}

/// The same bits, or NaN on both sides: what a NaN looks like is left to the machine.
template <class T>
bool SameBits(T a, T b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0 || (std::isnan(a) && std::isnan(b));
}

struct RealColor {
    Real c[3];
};

inline Real Clamp01(Real x) { return x < 0 ? 0 : x > 1 ? 1 : x; }

using ChannelRule = Real (*)(Real b, Real f);
inline const std::map<std::string, ChannelRule>& ChannelRules() {
    static const auto burn = [](Real b, Real f) { return std::fmax(Real(0), 1 - (1 - b) / f); };
    static const auto dodge = [](Real b, Real f) { return std::fmin(Real(1), b / (1 - f)); };
    static const ChannelRule over = [](Real, Real f) { return f; };
    static const ChannelRule hard = [](Real b, Real f) { return f < 0.5L ? 2 * f * b : 1 - 2 * (1 - b) * (1 - f); };
    static const ChannelRule reflect = [](Real b, Real f) {
        return 1 - f <= 0.0001L ? Real(1) : std::fmin(Real(1), b * b / (1 - f));
    };
    static const ChannelRule freeze = [](Real b, Real f) {
        return f < 0.0001L ? Real(0) : std::fmax(Real(0), 1 - (1 - b) * (1 - b) / f);
    };
    static const std::map<std::string, ChannelRule> kRules = {
        {"over", over},
        {"passfolder", over},
        {"dissolve", over},
        {"darken", [](Real b, Real f) { return std::fmin(b, f); }},
        {"lighten", [](Real b, Real f) { return std::fmax(b, f); }},
        {"multiply", [](Real b, Real f) { return f * b; }},
        {"screen", [](Real b, Real f) { return 1 - (1 - f) * (1 - b); }},
        {"lineardodge", [](Real b, Real f) { return std::fmin(Real(1), f + b); }},
        {"add", [](Real b, Real f) { return f + b; }},
        {"subtract", [](Real b, Real f) { return b - f; }},
        {"difference", [](Real b, Real f) { return std::fabs(b - f); }},
        {"exclusion", [](Real b, Real f) { return b * (1 - f) + f * (1 - b); }},
        {"average", [](Real b, Real f) { return (f + b) / 2; }},
        {"overlay", [](Real b, Real f) { return hard(f, b); }},
        {"hardlight", hard},
        {"softlight", [](Real b, Real f) { return f * f * (1 - 2 * b) + 2 * f * b; }},
        {"colorburn", [](Real b, Real f) { return f == 0 ? f : burn(b, f); }},
        {"colordodge", [](Real b, Real f) { return f == 1 ? f : dodge(b, f); }},
        {"linearburn", [](Real b, Real f) { return std::fmax(Real(0), f + b - 1); }},
        {"stamp", [](Real b, Real f) { return Clamp01(2 * f + b - 1); }},
        {"pinlight", [](Real b, Real f) { return f < 0.5L ? std::fmin(b, 2 * f) : std::fmax(2 * f - 1, b); }},
        {"hardmix",
         [](Real b, Real f) {
             if (f + b > 1)
                 return f == 1 ? f : dodge(b, f);
             return b == 1 || b == 0 ? b : burn(f, b);
         }},
        {"vividlight",
         [](Real b, Real f) {
             if (f < 0.5L)
                 return f == 0 ? Real(0) : burn(b, 2 * f);
             return f == 1 ? Real(1) : dodge(b, 2 * f - 1);
         }},
        {"divide", [](Real b, Real f) { return f <= 0.0001L ? b : b / f; }},
        {"freeze", freeze},
        {"heat", [](Real b, Real f) { return freeze(f, b); }},
        {"glow", [](Real b, Real f) { return reflect(f, b); }},
        {"reflect", reflect},
        {"hypot", [](Real b, Real f) { return std::hypot(f, b); }},
        {"xor", [](Real b, Real f) { return Real(int(b * 255) ^ int(f * 255)) / 255; }},
    };
    return kRules;
}

/// Hue in degrees by the usual definition, chroma form.
struct RealHsl {
    Real h = 0, s = 0, l = 0;
};
inline RealHsl ToRealHsl(const RealColor& c) {
    const Real max = *std::max_element(c.c, c.c + 3), min = *std::min_element(c.c, c.c + 3), chroma = max - min;
    RealHsl out;
    out.l = (max + min) / 2;
    if (chroma == 0 || out.l == 0)
        return out;
    out.s = chroma / (out.l <= 0.5L ? 2 * out.l : 2 - 2 * out.l);
    if (c.c[0] == max)
        out.h = 60 * ((c.c[1] - c.c[2]) / chroma);
    else if (c.c[1] == max)
        out.h = 60 * ((c.c[2] - c.c[0]) / chroma) + 120;
    else
        out.h = 60 * ((c.c[0] - c.c[1]) / chroma) + 240;
    if (out.h < 0)
        out.h += 360;
    return out;
}
inline RealColor FromRealHsl(const RealHsl& c) {
    const Real chroma = c.s * (c.l <= 0.5L ? 2 * c.l : 2 - 2 * c.l), base = c.l - chroma / 2;
    const Real x = chroma * (1 - std::fabs(std::fmod(c.h / 60, Real(2)) - 1));
    const Real table[6][3] = {{chroma, x, 0}, {x, chroma, 0}, {0, chroma, x},
                              {0, x, chroma}, {x, 0, chroma}, {chroma, 0, x}};
    const Real* row = table[std::min(5, int(c.h / 60))];
    return {{row[0] + base, row[1] + base, row[2] + base}};
}

using ColorRule = RealColor (*)(const RealColor& b, const RealColor& f);
inline const std::map<std::string, ColorRule>& ColorRules() {
    static const auto weigh = [](const RealColor& c) { return 0.2125L * c.c[0] + 0.7154L * c.c[1] + 0.0721L * c.c[2]; };
    static const auto from = [](const RealHsl& hue, const RealHsl& saturation, const RealHsl& lightness) {
        return FromRealHsl({hue.h, saturation.s, lightness.l});
    };
    static const std::map<std::string, ColorRule> kRules = {
        {"hue", [](const RealColor& b, const RealColor& f) { return from(ToRealHsl(f), ToRealHsl(b), ToRealHsl(b)); }},
        {"saturation",
         [](const RealColor& b, const RealColor& f) { return from(ToRealHsl(b), ToRealHsl(f), ToRealHsl(b)); }},
        {"color",
         [](const RealColor& b, const RealColor& f) { return from(ToRealHsl(f), ToRealHsl(f), ToRealHsl(b)); }},
        {"luminance",
         [](const RealColor& b, const RealColor& f) { return from(ToRealHsl(b), ToRealHsl(b), ToRealHsl(f)); }},
        {"darker", [](const RealColor& b, const RealColor& f) { return weigh(f) > weigh(b) ? b : f; }},
        {"lighter", [](const RealColor& b, const RealColor& f) { return weigh(b) > weigh(f) ? b : f; }},
        {"levr",
         [](const RealColor& b, const RealColor& f) {
             const Real level = f.c[0] > (b.c[0] + b.c[1] + b.c[2]) * 0.33333334L ? 1 : 0;
             return RealColor{{level, level, level}};
         }},
    };
    return kRules;
}

inline std::vector<std::string> FrameModes() {
    std::vector<std::string> names;
    for (const auto& [name, rule] : ChannelRules())
        names.push_back(name);
    for (const auto& [name, rule] : ColorRules())
        names.push_back(name);
    return names;
}

inline RealColor BlendRealColor(const std::string& mode, const RealColor& b, const RealColor& f) {
    if (const auto rule = ColorRules().find(mode); rule != ColorRules().end())
        return rule->second(b, f);
    const ChannelRule rule = ChannelRules().at(mode);
    return {{rule(b.c[0], f.c[0]), rule(b.c[1], f.c[1]), rule(b.c[2], f.c[2])}};
}

/// One pixel, and how large the terms are that a rounding error can come from.
struct RealPixel {
    Real c[4];
    Real magnitude = 1;
};
template <class T>
RealPixel BlendReal(const std::string& mode, const T* bg, const T* fg, Real opacity) {
    const Real source = opacity * fg[3], back = bg[3];
    RealPixel out{{bg[0], bg[1], bg[2], back}};
    if (source == 0)
        return out;
    const RealColor b{{bg[0], bg[1], bg[2]}}, f{{fg[0], fg[1], fg[2]}};
    const RealColor blended = BlendRealColor(mode, b, f);
    const Real alpha = source + back - source * back, share = source / alpha;
    for (int i = 0; i < 3; ++i) {
        const Real mixed = (1 - back) * f.c[i] + back * blended.c[i];
        out.c[i] = (1 - share) * b.c[i] + share * mixed;
        const Real terms =
            (1 + std::fabs(b.c[i]) + std::fabs(f.c[i]) + std::fabs(blended.c[i])) * (1 + std::fabs(back));
        out.magnitude = std::fmax(out.magnitude, terms * (1 + std::fabs(share)));
    }
    out.c[3] = alpha;
    return out;
}

}  // namespace orvik
