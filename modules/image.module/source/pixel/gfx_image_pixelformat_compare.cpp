#include "pixel/gfx_image_pixelformat_compare.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "pixel/kernels/gfx_image_pixelformat_arithmetic.h"

namespace orvik::pixel {
namespace {

template <class T>
T Load(const void* from) {
    T value;
    std::memcpy(&value, from, sizeof(T));
    return value;
}

template <class T>
bool IsWithin(const void* a, const void* b, Int tolerance) {
    const T x = Load<T>(a), y = Load<T>(b);
    const Int difference = Int(x) - Int(y);
    return (difference < 0 ? -difference : difference) <= tolerance;
}

template <class F>
bool IsWithinFloat(F x, F y, Int tolerance) {
    if (x == y)
        return true;  // also two equal infinities
    return std::fabs(x - y) <= static_cast<F>(tolerance) * ConvertComponent<F>(Pix8u(1));
}

}  // namespace

bool IsIdenticalValue(ComponentType type, const void* a, const void* b, Int tolerance) {
    if (type != ComponentType::None && std::memcmp(a, b, static_cast<size_t>(GetComponentBits(type) / 8)) == 0)
        return true;
    const Int steps = std::clamp<Int>(tolerance, 0, Int(1) << 32);  // more could not be shifted
    switch (type) {
        case ComponentType::U8:
            return IsWithin<Pix8u>(a, b, steps);
        case ComponentType::S8:
            return IsWithin<Pix8s>(a, b, steps);
        case ComponentType::U16:
            return IsWithin<Pix16u>(a, b, steps << 8);
        case ComponentType::S16:
            return IsWithin<Pix16s>(a, b, steps << 8);
        case ComponentType::U32:
            return IsWithin<Pix32u>(a, b, steps << 24);
        case ComponentType::S32:
            return IsWithin<Pix32s>(a, b, steps << 24);
        case ComponentType::F16:
            return IsWithinFloat(HalfToFloat(Load<Pix16f>(a)), HalfToFloat(Load<Pix16f>(b)), steps);
        case ComponentType::F32:
            return IsWithinFloat(Load<float>(a), Load<float>(b), steps);
        case ComponentType::F64:
            return IsWithinFloat(Load<double>(a), Load<double>(b), steps);
        case ComponentType::None:
            break;
    }
    return false;
}

FormatArgument MakeValueArgument(ComponentType type, const void* value) {
    switch (type) {
        case ComponentType::U8:
            return {uint64_t(Load<Pix8u>(value))};
        case ComponentType::S8:
            return {int64_t(Load<Pix8s>(value))};
        case ComponentType::U16:
            return {uint64_t(Load<Pix16u>(value))};
        case ComponentType::S16:
            return {int64_t(Load<Pix16s>(value))};
        case ComponentType::U32:
            return {uint64_t(Load<Pix32u>(value))};
        case ComponentType::S32:
            return {int64_t(Load<Pix32s>(value))};
        case ComponentType::F16:
            return {double(HalfToFloat(Load<Pix16f>(value)))};
        case ComponentType::F32:
            return {double(Load<float>(value))};
        case ComponentType::F64:
            return {Load<double>(value)};
        case ComponentType::None:
            break;
    }
    return {};
}

}  // namespace orvik::pixel
