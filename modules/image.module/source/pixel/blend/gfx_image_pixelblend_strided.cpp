// Blending of single pixels, for lines whose pixels are not contiguous or not aligned.

#include <array>
#include <cstring>
#include <utility>

#include "pixel/blend/gfx_image_pixelblend_formulas_inl.h"

namespace orvik::pixel {
namespace {

template <class T>
using Pixel = HWY_NAMESPACE::Rgba<T>;

template <BlendFormula kFormula, class T>
void BlendStrided(const PixelLine& dst, const PixelLineConst& bg, const PixelLineConst& fg, Int count, T opacity) {
    static_assert(sizeof(Pixel<T>) == 4 * sizeof(T));
    const auto* back = static_cast<const std::byte*>(bg.data);
    const auto* front = static_cast<const std::byte*>(fg.data);
    auto* out = static_cast<std::byte*>(dst.data);
    for (Int i = 0; i < count; ++i) {
        Pixel<T> b, f;
        std::memcpy(&b, back + i * bg.stride.GetBytes(), sizeof b);
        std::memcpy(&f, front + i * fg.stride.GetBytes(), sizeof f);
        const Pixel<T> blended = HWY_NAMESPACE::BlendPixel<kFormula>(b, f, opacity);
        std::memcpy(out + i * dst.stride.GetBytes(), &blended, sizeof blended);
    }
}

template <class T, size_t... kFormula>
constexpr std::array<StridedBlendKernel<T>, sizeof...(kFormula)> MakeKernels(std::index_sequence<kFormula...>) {
    return {&BlendStrided<static_cast<BlendFormula>(kFormula), T>...};
}
template <class T>
constexpr auto kKernels = MakeKernels<T>(std::make_index_sequence<kBlendFormulaCount>());

}  // namespace

template <>
StridedBlendKernel<float> GetStridedBlendKernel<float>(BlendFormula formula) {
    return kKernels<float>[static_cast<size_t>(formula)];
}
template <>
StridedBlendKernel<double> GetStridedBlendKernel<double>(BlendFormula formula) {
    return kKernels<double>[static_cast<size_t>(formula)];
}

}  // namespace orvik::pixel
