#pragma once
/// @file
/// Loops that blend runs of RGBA pixels of floats or doubles, one for each formula.
///
/// `gfx_image_pixelblend_formulas_inl.h` holds the arithmetic. It is compiled for single values, which serve lines with
/// gaps and judge the rest, and for vectors of each instruction set, chosen at run time. All give the same bits; only
/// the payload and sign of a NaN may differ.

#include "orvik/gfx_basictypes.h"

namespace orvik::pixel {

/// What a mode does with the colours of one pixel. The formulas that look at one channel at a time stand first.
enum class BlendFormula : uint8_t {
    Over,
    Darken,
    Lighten,
    Multiply,
    Screen,
    LinearDodge,
    Add,
    Subtract,
    Difference,
    Exclusion,
    Average,
    Overlay,
    HardLight,
    SoftLight,
    ColorBurn,
    ColorDodge,
    LinearBurn,
    Stamp,
    PinLight,
    HardMix,
    VividLight,
    Divide,
    Freeze,
    Heat,
    Glow,
    Reflect,
    Hypot,
    Xor,
    Hue,  ///< the first that needs the whole pixel
    Saturation,
    Color,
    Luminance,
    Darker,
    Lighter,
    Levr,
};
inline constexpr size_t kBlendFormulaCount = static_cast<size_t>(BlendFormula::Levr) + 1;
constexpr bool IsSeparable(BlendFormula formula) { return formula < BlendFormula::Hue; }

/// Blends `count` pixels of four components without gaps, aligned to the component. `dst` may be `bg` or `fg`.
template <class T>
using BlendKernel = void (*)(T* dst, const T* bg, const T* fg, size_t count, T opacity);
/// The same for lines with any distances and alignment.
template <class T>
using StridedBlendKernel = void (*)(const PixelLine& dst, const PixelLineConst& bg, const PixelLineConst& fg, Int count,
                                    T opacity);

/// The loop for the vectors that `GetKernels` has chosen, or null when there is none and `GetStridedBlendKernel` serves
/// all lines. T is float or double.
template <class T>
BlendKernel<T> GetBlendKernel(BlendFormula formula);
template <>
BlendKernel<float> GetBlendKernel<float>(BlendFormula formula);
template <>
BlendKernel<double> GetBlendKernel<double>(BlendFormula formula);

/// The loop over single pixels.
template <class T>
StridedBlendKernel<T> GetStridedBlendKernel(BlendFormula formula);
template <>
StridedBlendKernel<float> GetStridedBlendKernel<float>(BlendFormula formula);
template <>
StridedBlendKernel<double> GetStridedBlendKernel<double>(BlendFormula formula);

}  // namespace orvik::pixel
