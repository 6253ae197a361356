/// @file
/// The arithmetic of blending, written once for single values and for vectors: the compositing frame, and what each
/// mode does with the colours of background b and foreground f.
///
/// Nothing is clamped that is not seen to be clamped here, and values out of 0 ... 1 go through the same formulas.
/// Divisions by 0 and NaN give infinities and NaN in the channels that they reach, nowhere else; where a comparison
/// with NaN decides, the branch after it is taken.

// Included once for each instruction set.
#if defined(ORVIK_GFX_IMAGE_PIXELBLEND_FORMULAS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef ORVIK_GFX_IMAGE_PIXELBLEND_FORMULAS_INL_H
#undef ORVIK_GFX_IMAGE_PIXELBLEND_FORMULAS_INL_H
#else
#define ORVIK_GFX_IMAGE_PIXELBLEND_FORMULAS_INL_H
#endif

#include "pixel/blend/gfx_image_pixelblend_kernels.h"
#include "pixel/blend/gfx_image_pixelblend_lanes_inl.h"

HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {

template <class V>
struct Rgb {
    V red, green, blue;
};
template <class V>
struct Rgba {
    V red, green, blue, alpha;
};

// --- One channel -----------------------------------------------------------------------------------------------------

/// 1 - (1 - b) / f, not below 0. Called with f = 0 by vectors that then select something else.
template <class V>
HWY_INLINE V Burn(V b, V f) {
    return Max(V(0), V(1) - (V(1) - b) / f);
}
/// b / (1 - f), not above 1.
template <class V>
HWY_INLINE V Dodge(V b, V f) {
    return Min(V(1), b / (V(1) - f));
}
/// 1 - 2 * (1 - b) * (1 - f)
template <class V>
HWY_INLINE V DoubleScreen(V b, V f) {
    return V(1) - V(2) * (V(1) - b) * (V(1) - f);
}

/// B(b, f) of the modes that look at one channel at a time. Over, where it is f, and multiply, where it is f * b, come
/// out shorter as a whole: see MixColor.
template <BlendFormula kFormula, class V>
HWY_INLINE V BlendChannel(V b, V f) {
    using enum BlendFormula;
    const V zero(0), half(0.5), one(1), two(2);
    const V nearZero = V(0.0001);  // divisors below count as 0
    static_assert(kFormula != Over && kFormula != Multiply, "see MixColor");
    if constexpr (kFormula == Darken)
        return Min(b, f);
    else if constexpr (kFormula == Lighten)
        return Max(b, f);
    else if constexpr (kFormula == Screen)
        return f + b - f * b;
    else if constexpr (kFormula == LinearDodge)
        return Min(f + b, one);
    else if constexpr (kFormula == Add)
        return f + b;
    else if constexpr (kFormula == Subtract)
        return b - f;
    else if constexpr (kFormula == Difference)
        return Absolute(b - f);
    else if constexpr (kFormula == Exclusion)
        return f + b - two * f * b;
    else if constexpr (kFormula == Average)
        return (f + b) * half;
    else if constexpr (kFormula == Overlay)
        return Select(b < half, two * f * b, DoubleScreen(b, f));
    else if constexpr (kFormula == HardLight)
        return Select(f < half, two * f * b, DoubleScreen(b, f));
    else if constexpr (kFormula == SoftLight)
        return f * f + two * f * b - two * f * f * b;
    else if constexpr (kFormula == ColorBurn)
        return Select(f == zero, f, Burn(b, f));
    else if constexpr (kFormula == ColorDodge)
        return Select(f == one, f, Dodge(b, f));
    else if constexpr (kFormula == LinearBurn)
        return Max(zero, f + b - one);
    else if constexpr (kFormula == Stamp)
        return Max(zero, Min(one, two * f + b - one));
    else if constexpr (kFormula == PinLight)
        return Select(f < half, Min(b, two * f), Max(two * (f - half), b));
    else if constexpr (kFormula == HardMix)
        return Select(f + b > one, Select(f == one, f, Dodge(b, f)),
                      Select(b == one, b, Select(b == zero, zero, Burn(f, b))));
    else if constexpr (kFormula == VividLight) {
        const V burn = two * f, dodge = two * (f - half);
        return Select(f < half, Select(burn == zero, zero, Burn(b, burn)), Select(dodge == one, one, Dodge(b, dodge)));
    } else if constexpr (kFormula == Divide)
        return Select(f <= nearZero, b, b / f);
    else if constexpr (kFormula == Freeze)
        return Select(f < nearZero, zero, Max(zero, one - (one - b) * (one - b) / f));
    else if constexpr (kFormula == Heat)
        return Select(b < nearZero, zero, Max(zero, one - (one - f) * (one - f) / b));
    else if constexpr (kFormula == Glow)
        return Select(one - b <= nearZero, one, Min(one, f * f / (one - b)));
    else if constexpr (kFormula == Reflect)
        return Select(one - f <= nearZero, one, Min(one, b * b / (one - f)));
    else if constexpr (kFormula == Hypot)
        return SquareRoot(f * f + b * b);
    else
        return XorOfIntegers(CutToIntegerLimit(b * V(255)), CutToIntegerLimit(f * V(255))) / V(255);
}

// --- Whole pixels ----------------------------------------------------------------------------------------------------

/// Hue in sixths of the circle, 0 ... 6.
template <class V>
struct HueSaturationLightness {
    V hue, saturation, lightness;
};

template <class V>
HWY_INLINE HueSaturationLightness<V> ToHsl(const Rgb<V>& c) {
    const V zero(0), half(0.5);
    const V max = Max(c.red, Max(c.green, c.blue)), min = Min(c.red, Min(c.green, c.blue));
    const V distance = max - min, lightness = (max + min) * half;
    const V saturation = distance / Select(lightness <= half, max + min, V(2) - max - min);
    const V fromRed = (c.green - c.blue) / distance;
    const V hue = Select(c.red == max, Select(fromRed < zero, fromRed + V(6), fromRed),
                         Select(c.green == max, V(2) + (c.blue - c.red) / distance,  //
                                V(4) + (c.red - c.green) / distance));
    // Greys have no hue, and black no saturation.
    const V colorful = Select(lightness == zero, zero, distance);
    return {Select(colorful == zero, zero, hue), Select(colorful == zero, zero, saturation), lightness};
}

/// One channel of a colour, at `hue` measured from the sixth in which the channel begins to rise: it rises for one
/// sixth, is at its highest for two, falls for one, and is at its lowest for two.
template <class V>
HWY_INLINE V ChannelOfHue(V low, V high, V hue) {
    return low + (high - low) * Max(V(0), Min(V(1), Min(hue, V(4) - hue)));
}

template <class V>
HWY_INLINE Rgb<V> FromHsl(const HueSaturationLightness<V>& c) {
    const V one(1), two(2), six(6);
    const V high = Select(c.lightness <= V(0.5), c.lightness * (one + c.saturation),
                          c.lightness + c.saturation - c.lightness * c.saturation);
    const V low = two * c.lightness - high;
    const V red = c.hue + two, blue = c.hue - two;
    return {ChannelOfHue(low, high, Select(red < six, red, red - six)), ChannelOfHue(low, high, c.hue),
            ChannelOfHue(low, high, Select(blue < V(0), blue + six, blue))};
}

template <class V>
HWY_INLINE V WeightedSum(const Rgb<V>& c) {
    return V(0.2125) * c.red + V(0.7154) * c.green + V(0.0721) * c.blue;
}

template <class Condition, class V>
HWY_INLINE Rgb<V> SelectColor(Condition condition, const Rgb<V>& yes, const Rgb<V>& no) {
    return {Select(condition, yes.red, no.red), Select(condition, yes.green, no.green),
            Select(condition, yes.blue, no.blue)};
}

template <BlendFormula kFormula, class V>
HWY_INLINE Rgb<V> BlendColor(const Rgb<V>& b, const Rgb<V>& f) {
    using enum BlendFormula;
    if constexpr (IsSeparable(kFormula)) {
        return {BlendChannel<kFormula>(b.red, f.red), BlendChannel<kFormula>(b.green, f.green),
                BlendChannel<kFormula>(b.blue, f.blue)};
    } else if constexpr (kFormula == Darker) {  // of equals, the foreground
        return SelectColor(WeightedSum(f) > WeightedSum(b), b, f);
    } else if constexpr (kFormula == Lighter) {
        return SelectColor(WeightedSum(b) > WeightedSum(f), b, f);
    } else if constexpr (kFormula == Levr) {
        const V mean = (b.red + b.green + b.blue) * V(0.33333334);
        const V level = Select(f.red > mean, V(1), V(0));
        return {level, level, level};
    } else {
        const HueSaturationLightness<V> back = ToHsl(b), front = ToHsl(f);
        if constexpr (kFormula == Hue)
            return FromHsl<V>({front.hue, back.saturation, back.lightness});
        else if constexpr (kFormula == Saturation)
            return FromHsl<V>({back.hue, front.saturation, back.lightness});
        else if constexpr (kFormula == Color)
            return FromHsl<V>({front.hue, front.saturation, back.lightness});
        else
            return FromHsl<V>({back.hue, back.saturation, front.lightness});
    }
}

// --- The compositing frame -------------------------------------------------------------------------------------------

/// (1 - b.a) * f.c + b.a * B(b, f): the foreground, blended as far as there is a background.
template <BlendFormula kFormula, class V>
HWY_INLINE Rgb<V> MixColor(const Rgba<V>& b, const Rgba<V>& f, V restAlpha) {
    if constexpr (kFormula == BlendFormula::Over) {  // both terms hold the same colour
        return {f.red, f.green, f.blue};
    } else if constexpr (kFormula == BlendFormula::Multiply) {  // both terms are multiples of f
        return {f.red * (restAlpha + b.alpha * b.red), f.green * (restAlpha + b.alpha * b.green),
                f.blue * (restAlpha + b.alpha * b.blue)};
    } else {
        const Rgb<V> blended = BlendColor<kFormula, V>({b.red, b.green, b.blue}, {f.red, f.green, f.blue});
        return {restAlpha * f.red + b.alpha * blended.red, restAlpha * f.green + b.alpha * blended.green,
                restAlpha * f.blue + b.alpha * blended.blue};
    }
}

/// One pixel of foreground over one of background, both with straight alpha. An opacity of exactly 1 needs no case of
/// its own, since multiplying by it changes nothing.
template <BlendFormula kFormula, class V>
HWY_INLINE Rgba<V> BlendPixel(const Rgba<V>& b, const Rgba<V>& f, V opacity) {
    const V source = opacity * f.alpha, restAlpha = V(1) - b.alpha;
    const V alpha = b.alpha + source * restAlpha;
    const V share = source / alpha, rest = V(1) - share;  // of the mixed colour and of the background's
    const Rgb<V> mixed = MixColor<kFormula>(b, f, restAlpha);
    Rgba<V> out{rest * b.red + share * mixed.red, rest * b.green + share * mixed.green,
                rest * b.blue + share * mixed.blue, alpha};
    // Where the foreground is transparent, the background is unchanged. Most vectors have no such pixel.
    const auto keep = source == V(0);
    if (IsAnyTrue<V>(keep)) {
        out.red = Select(keep, b.red, out.red);
        out.green = Select(keep, b.green, out.green);
        out.blue = Select(keep, b.blue, out.blue);
        out.alpha = Select(keep, b.alpha, out.alpha);
    }
    return out;
}

}  // namespace orvik::pixel::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
