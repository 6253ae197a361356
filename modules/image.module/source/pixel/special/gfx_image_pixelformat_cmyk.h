#pragma once
/// @file
/// Inks and colours, in single precision and from 0 to 1. Nothing is limited here.

namespace orvik::pixel {

struct Colors {
    float red, green, blue;
};
struct Inks {
    float cyan, magenta, yellow, black;
};

constexpr Colors InksToColors(const Inks& inks) {
    const float light = 1.0f - inks.black;
    return {(1.0f - inks.cyan) * light, (1.0f - inks.magenta) * light, (1.0f - inks.yellow) * light};
}

/// All black goes into the black ink; without light there are no other inks.
constexpr Inks ColorsToInks(const Colors& colors) {
    const float brighter = colors.red > colors.green ? colors.red : colors.green;
    const float brightest = brighter > colors.blue ? brighter : colors.blue;
    const float black = 1.0f - brightest, light = 1.0f - black;
    const bool isDark = light == 0.0f;
    const float divisor = isDark ? 1.0f : light;
    const auto ink = [&](float color) { return isDark ? 0.0f : (1.0f - color - black) / divisor; };
    return {ink(colors.red), ink(colors.green), ink(colors.blue), black};
}

}  // namespace orvik::pixel
