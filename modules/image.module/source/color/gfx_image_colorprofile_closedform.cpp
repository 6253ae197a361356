#include "color/gfx_image_colorprofile_closedform.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "pixel/kernels/gfx_image_pixelformat_kernels.h"
#include "pixel/kernels/gfx_image_pixelformat_kernels_targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "color/gfx_image_colorprofile_closedform.cpp"
#include <hwy/foreach_target.h>
// After foreach_target: it includes this file again for each instruction set.
#include <hwy/highway.h>

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128
HWY_BEFORE_NAMESPACE();
namespace orvik::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using Doubles = hn::ScalableTag<double>;
using Bits = hn::RebindToUnsigned<Doubles>;
using Floats = hn::Rebind<float, Doubles>;  // as many floats as a vector has doubles
using VD = hn::Vec<Doubles>;
using VF = hn::Vec<Floats>;

// A power is 2^(exponent * log2). Double lanes leave the rounding to float as the only error that counts: both
// polynomials are minimax fits (Remez) with errors far below half a unit in the last place of a float.

/// log2(1 + r) / r for 1 + r in [sqrt(1/2), sqrt(2)]; r times this is within 6.7e-9.
constexpr double kLog2[] = {1.44269486851498,    -0.7213471282616974,  0.480922533481237,
                            -0.3607212121969622, 0.28765656276418533,  -0.23851902896363025,
                            0.21738000413619227, -0.21030632904143315, 0.12541447927104676};
/// 2^f for f in [-1/2, 1/2], within 1.9e-9 of it.
constexpr double kExp2[] = {1.0000000005550493,   0.6931472057671006,    0.24022646886064203, 0.055503287118773614,
                            0.009618489247450492, 0.0013399957606422832, 0.000153457880148327};

constexpr float kLargestFloat = 0x1.FFFFFEp127f;

/// Even and odd powers apart: two short chains instead of a long one.
template <size_t N>
HWY_INLINE VD Polynomial(const double (&coefficients)[N], VD x) {
    static_assert(N % 2 == 1);
    const Doubles d;
    const VD square = hn::Mul(x, x);
    VD even = hn::Set(d, coefficients[N - 1]), odd = hn::Set(d, coefficients[N - 2]);
    for (size_t i = N - 3; i > 0; i -= 2) {
        even = hn::MulAdd(even, square, hn::Set(d, coefficients[i]));
        odd = hn::MulAdd(odd, square, hn::Set(d, coefficients[i - 1]));
    }
    return hn::MulAdd(odd, x, hn::MulAdd(even, square, hn::Set(d, coefficients[0])));
}

/// 2^(exponent * log2(t) + offset) for positive normal t. Other lanes get numbers without meaning.
HWY_INLINE VD Power(VD t, double exponent, double offset) {
    const Doubles d;
    const Bits u;
    constexpr uint64_t kOne = 0x3FF0000000000000, kSqrtHalf = 0x3FE6A09E667F3BCD, kTwo52 = 0x4330000000000000;
    // The exponent, counted so that the mantissa lies in [sqrt(1/2), sqrt(2)).
    const auto bits = hn::BitCast(u, t);
    const auto shifted = hn::Add(bits, hn::Set(u, kOne - kSqrtHalf));
    const auto biased = hn::ShiftRight<52>(shifted);
    const VD k = hn::Sub(hn::BitCast(d, hn::Or(biased, hn::Set(u, kTwo52))), hn::Set(d, 0x1p52 + 1023));
    const auto mantissa = hn::Sub(hn::Add(bits, hn::Set(u, kOne)), hn::ShiftLeft<52>(biased));
    const VD r = hn::Sub(hn::BitCast(d, mantissa), hn::Set(d, 1));
    const VD whole = hn::MulAdd(k, hn::Set(d, exponent), hn::Set(d, offset));
    const VD y = hn::MulAdd(hn::Mul(r, hn::Set(d, exponent)), Polynomial(kLog2, r), whole);
    // Adding 1.5 * 2^52 rounds to an integer, which then stands in the low bits.
    const VD magic = hn::Set(d, 0x1.8p52);
    const VD rounded = hn::Add(y, magic);
    const VD power = Polynomial(kExp2, hn::Sub(y, hn::Sub(rounded, magic)));
    return hn::BitCast(d, hn::Add(hn::BitCast(u, power), hn::ShiftLeft<52>(hn::BitCast(u, rounded))));
}

/// Infinity and NaN do not survive the bit tricks of `Power`, and not every narrowing to float makes an infinity.
/// @param largest  the largest value with a finite result
HWY_INLINE VF KeepSpecial(VF c, VF result, float largest) {
    const Floats f;
    const auto ordinary = hn::Le(c, hn::Set(f, largest));
    return hn::IfThenElse(ordinary, result, hn::Mul(c, hn::Set(f, kLargestFloat)));  // NaN or infinity
}

struct LinearToSrgbOp {
    HWY_INLINE VF operator()(VF c) const {
        const Doubles d;
        const Floats f;
        const VD power = Power(hn::PromoteTo(d, c), double(0.41666666f), 0);
        const VF curved = hn::DemoteTo(f, hn::MulSub(power, hn::Set(d, double(1.055f)), hn::Set(d, double(0.055f))));
        const auto straight = hn::Lt(c, hn::Set(f, 0.0031308f));
        return hn::IfThenElse(straight, hn::Mul(c, hn::Set(f, 12.92f)), KeepSpecial(c, curved, kLargestFloat));
    }
};

struct SrgbToLinearOp {
    HWY_INLINE VF operator()(VF c) const {
        const Doubles d;
        const Floats f;
        constexpr double kExponent = double(2.4f);
        constexpr double kOffset = -0.18538329354742398;  // 2.4f * log2(0.9478673f)
        const VD t = hn::Add(hn::PromoteTo(d, c), hn::Set(d, double(0.055f)));
        const VF curved = hn::DemoteTo(f, Power(t, kExponent, kOffset));
        const auto straight = hn::Le(c, hn::Set(f, 0.04045f));
        return hn::IfThenElse(straight, hn::Mul(c, hn::Set(f, 0.07739938f)), KeepSpecial(c, curved, 0x1.54476Ap53f));
    }
};

template <class Op>
HWY_INLINE void Run(float* dst, const float* src, size_t count) {
    const Floats f;
    const size_t lanes = hn::Lanes(f);
    const Op op;
    size_t i = 0;
    for (; i + 4 * lanes <= count; i += 4 * lanes) {  // four chains hide the latency of the polynomials
        const VF a = hn::LoadU(f, src + i), b = hn::LoadU(f, src + i + lanes);
        const VF c = hn::LoadU(f, src + i + 2 * lanes), e = hn::LoadU(f, src + i + 3 * lanes);
        hn::StoreU(op(a), f, dst + i);
        hn::StoreU(op(b), f, dst + i + lanes);
        hn::StoreU(op(c), f, dst + i + 2 * lanes);
        hn::StoreU(op(e), f, dst + i + 3 * lanes);
    }
    for (; i + lanes <= count; i += lanes)
        hn::StoreU(op(hn::LoadU(f, src + i)), f, dst + i);
    if (i < count) {  // the same arithmetic for the rest, so that a result does not depend on the length of the run
        HWY_ALIGN float rest[hn::MaxLanes(f)] = {};
        std::memcpy(rest, src + i, (count - i) * sizeof(float));
        hn::Store(op(hn::Load(f, rest)), f, rest);
        std::memcpy(dst + i, rest, (count - i) * sizeof(float));
    }
}

void RunCurve(TransferCurve curve, float* dst, const float* src, size_t count) {
    if (curve == TransferCurve::LinearToSrgb)
        Run<LinearToSrgbOp>(dst, src, count);
    else
        Run<SrgbToLinearOp>(dst, src, count);
}

}  // namespace
}  // namespace orvik::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace orvik {
namespace {

/// The vectors of an instruction set; null where there are none.
void (*GetRunCurve(int64_t target))(TransferCurve curve, float* dst, const float* src, size_t count) {
    ORVIK_KERNELS_OF_TARGET(RunCurve)
}

}  // namespace

float LinearToSrgb(float c) {
    if (c < 0.0031308f)
        return c * 12.92f;
    return static_cast<float>(std::pow(double(c), double(0.41666666f)) * double(1.055f) - double(0.055f));
}

float SrgbToLinear(float c) {
    if (c <= 0.04045f)
        return c * 0.07739938f;
    return static_cast<float>(std::pow((double(c) + double(0.055f)) * double(0.9478673f), double(2.4f)));
}

void ConvertTransferCurve(TransferCurve curve, float* dst, const float* src, size_t count) {
    if (const auto run = GetRunCurve(pixel::GetKernels().target))
        return run(curve, dst, src, count);
    for (size_t i = 0; i < count; ++i) {
        float c;  // may lie anywhere
        std::memcpy(&c, src + i, sizeof(c));
        c = curve == TransferCurve::LinearToSrgb ? LinearToSrgb(c) : SrgbToLinear(c);
        std::memcpy(dst + i, &c, sizeof(c));
    }
}

}  // namespace orvik
#endif
