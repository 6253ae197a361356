/// @file
/// What the formulas of blending are written on: a single float or double, or a vector of them. Comparisons give a bool
/// or a mask, and `Select` takes either. Minimum and maximum are selections as well, so that NaN takes the same way on
/// every machine: the second operand wins when the comparison fails.

// Included once for each instruction set.
#if defined(ORVIK_GFX_IMAGE_PIXELBLEND_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef ORVIK_GFX_IMAGE_PIXELBLEND_LANES_INL_H
#undef ORVIK_GFX_IMAGE_PIXELBLEND_LANES_INL_H
#else
#define ORVIK_GFX_IMAGE_PIXELBLEND_LANES_INL_H
#endif

#include <cmath>
#include <concepts>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

/// Values beyond are cut before they become 32-bit integers: the limit is exact in both float types.
inline constexpr double kIntegerLimit = 1 << 30;

/// A vector with the operators of a number. GCC compiles friends of a template for the instruction set that is in force
/// where they are instantiated, so they name theirs.
template <class D>
struct Lanes {
    using Tag = D;
    using Component = hn::TFromD<D>;
    using Mask = hn::Mask<D>;

    hn::Vec<D> vector;

    Lanes() = default;
    HWY_INLINE explicit Lanes(hn::Vec<D> value) : vector(value) {}
    HWY_INLINE explicit Lanes(double value) : vector(hn::Set(D(), static_cast<Component>(value))) {}

    friend HWY_ATTR HWY_INLINE Lanes operator+(Lanes a, Lanes b) { return Lanes(hn::Add(a.vector, b.vector)); }
    friend HWY_ATTR HWY_INLINE Lanes operator-(Lanes a, Lanes b) { return Lanes(hn::Sub(a.vector, b.vector)); }
    friend HWY_ATTR HWY_INLINE Lanes operator*(Lanes a, Lanes b) { return Lanes(hn::Mul(a.vector, b.vector)); }
    friend HWY_ATTR HWY_INLINE Lanes operator/(Lanes a, Lanes b) { return Lanes(hn::Div(a.vector, b.vector)); }
    friend HWY_ATTR HWY_INLINE Mask operator<(Lanes a, Lanes b) { return hn::Lt(a.vector, b.vector); }
    friend HWY_ATTR HWY_INLINE Mask operator>(Lanes a, Lanes b) { return hn::Gt(a.vector, b.vector); }
    friend HWY_ATTR HWY_INLINE Mask operator<=(Lanes a, Lanes b) { return hn::Le(a.vector, b.vector); }
    friend HWY_ATTR HWY_INLINE Mask operator==(Lanes a, Lanes b) { return hn::Eq(a.vector, b.vector); }
    friend HWY_ATTR HWY_INLINE Lanes Select(Mask condition, Lanes yes, Lanes no) {
        return Lanes(hn::IfThenElse(condition, yes.vector, no.vector));
    }
    friend HWY_ATTR HWY_INLINE Lanes Absolute(Lanes a) { return Lanes(hn::Abs(a.vector)); }
    friend HWY_ATTR HWY_INLINE Lanes SquareRoot(Lanes a) { return Lanes(hn::Sqrt(a.vector)); }
    /// Exclusive or of two values that lie within the limit above, truncated to integers.
    friend HWY_ATTR HWY_INLINE Lanes XorOfIntegers(Lanes a, Lanes b) {
        const hn::Rebind<int32_t, D> integer;
        if constexpr (sizeof(Component) == sizeof(int32_t))
            return Lanes(
                hn::ConvertTo(D(), hn::Xor(hn::ConvertTo(integer, a.vector), hn::ConvertTo(integer, b.vector))));
        else
            return Lanes(hn::PromoteTo(D(), hn::Xor(hn::DemoteTo(integer, a.vector), hn::DemoteTo(integer, b.vector))));
    }
};

template <std::floating_point T>
HWY_INLINE T Select(bool condition, T yes, T no) {
    return condition ? yes : no;
}
template <std::floating_point T>
HWY_INLINE T Absolute(T a) {
    return std::fabs(a);
}
template <std::floating_point T>
HWY_INLINE T SquareRoot(T a) {
    return std::sqrt(a);
}
template <std::floating_point T>
HWY_INLINE T XorOfIntegers(T a, T b) {
    return static_cast<T>(static_cast<int32_t>(a) ^ static_cast<int32_t>(b));
}

/// @param condition  from a comparison of Vs
template <class V, class Condition>
HWY_INLINE bool IsAnyTrue(Condition condition) {
    if constexpr (std::floating_point<V>)
        return condition;
    else
        return !hn::AllFalse(typename V::Tag(), condition);
}

template <class V>
HWY_INLINE V Min(V a, V b) {
    return Select(a < b, a, b);
}
template <class V>
HWY_INLINE V Max(V a, V b) {
    return Select(a > b, a, b);
}
/// NaN becomes 0.
template <class V>
HWY_INLINE V CutToIntegerLimit(V a) {
    return Select(a == a, Max(V(-kIntegerLimit), Min(V(kIntegerLimit), a)), V(0));
}

}  // namespace orvik::pixel::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
