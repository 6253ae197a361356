// Plain loops that the compiler can vectorise. This file is compiled with -O3 in every preset.

#include <cstring>

#include "pixel/kernels/gfx_image_pixelformat_arithmetic.h"
#include "pixel/kernels/gfx_image_pixelformat_kernels_simd.h"

namespace orvik::pixel {
namespace {

template <class T>
T Load(const std::byte* from) {
    T value;
    std::memcpy(&value, from, sizeof(T));
    return value;
}
template <class T>
void Store(std::byte* to, T value) {
    std::memcpy(to, &value, sizeof(T));
}

template <class S, class D>
void ConvertRun(const std::byte* src, std::byte* dst, Int count) {
    for (Int i = 0; i < count; ++i)
        Store(dst + i * Int(sizeof(D)), ConvertComponent<D>(Load<S>(src + i * Int(sizeof(S)))));
}
template <class T>
void CopyRun(const std::byte* src, std::byte* dst, Int count) {
    if (count > 0)
        std::memmove(dst, src, static_cast<size_t>(count) * sizeof(T));
}

template <class S, class D>
void ConvertStrided(const std::byte* src, Int srcStride, std::byte* dst, Int dstStride, Int count) {
    for (Int i = 0; i < count; ++i)
        Store(dst + i * dstStride, ConvertComponent<D>(Load<S>(src + i * srcStride)));
}

template <class T>
void Mean(const std::byte* red, const std::byte* green, const std::byte* blue, Int srcStride, std::byte* dst,
          Int dstStride, Int count) {
    for (Int i = 0; i < count; ++i)
        Store(dst + i * dstStride, MeanOfColors(Load<T>(red + i * srcStride), Load<T>(green + i * srcStride),
                                                Load<T>(blue + i * srcStride)));
}

template <class E>
void Fill(const std::byte* value, std::byte* dst, Int dstStride, Int count) {
    const E element = Load<E>(value);
    for (Int i = 0; i < count; ++i)
        Store(dst + i * dstStride, element);
}

template <class E>
void Permute(const std::byte* src, int srcCount, std::byte* dst, int dstCount, const PermuteSource* sources,
             Int count) {
    constexpr Int kSize = sizeof(E);
    for (int d = 0; d < dstCount; ++d) {
        if (sources[d].channel < 0)
            Fill<E>(sources[d].fill, dst + d * kSize, dstCount * kSize, count);
        else
            ConvertStrided<E, E>(src + sources[d].channel * kSize, srcCount * kSize, dst + d * kSize, dstCount * kSize,
                                 count);
    }
}

template <class T>
void MeanRun(const std::byte* red, const std::byte* green, const std::byte* blue, std::byte* dst, Int count) {
    Mean<T>(red, green, blue, sizeof(T), dst, sizeof(T), count);
}
template <class E>
void Interleave(const std::byte* first, const std::byte* second, std::byte* dst, Int count) {
    ConvertStrided<E, E>(first, sizeof(E), dst, 2 * sizeof(E), count);
    ConvertStrided<E, E>(second, sizeof(E), dst + sizeof(E), 2 * sizeof(E), count);
}

struct StridedTable {
    ConvertStridedFunction convert[kComponentTypeCount][kComponentTypeCount];
    MeanFunction mean[kComponentTypeCount];
};
struct PlainKernels {
    StridedTable strided{};
    KernelSet set{};
};

template <int S, int D>
constexpr void SetCell(PlainKernels& plain) {
    using Src = ComponentAtT<S>;
    using Dst = ComponentAtT<D>;
    if constexpr (S == D)
        plain.set.run[S][D] = &CopyRun<Src>;
    else
        plain.set.run[S][D] = &ConvertRun<Src, Dst>;
    plain.strided.convert[S][D] = &ConvertStrided<Src, Dst>;
}
template <int S, int... D>
constexpr void SetRow(PlainKernels& plain, std::integer_sequence<int, D...>) {
    (SetCell<S, D>(plain), ...);
    plain.strided.mean[S] = &Mean<ComponentAtT<S>>;
    plain.set.mean[S] = &MeanRun<ComponentAtT<S>>;
}
template <int... S>
constexpr PlainKernels MakePlainKernels(std::integer_sequence<int, S...> all) {
    PlainKernels plain;
    (SetRow<S>(plain, all), ...);
    plain.set.interleave[0] = &Interleave<uint8_t>;
    plain.set.interleave[1] = &Interleave<uint16_t>;
    plain.set.interleave[2] = &Interleave<uint32_t>;
    plain.set.interleave[3] = &Interleave<uint64_t>;
    return plain;
}
constexpr PlainKernels kPlain = MakePlainKernels(std::make_integer_sequence<int, kComponentTypeCount>());

}  // namespace

const KernelSet& GetPlainKernels() { return kPlain.set; }

ConvertStridedFunction GetConvertStrided(ComponentType src, ComponentType dst) {
    return kPlain.strided.convert[static_cast<int>(src)][static_cast<int>(dst)];
}
MeanFunction GetMean(ComponentType type) { return kPlain.strided.mean[static_cast<int>(type)]; }

void FillStrided(const std::byte* value, int elementBytes, std::byte* dst, Int dstStride, Int count) {
    switch (elementBytes) {
        case 1:
            return Fill<uint8_t>(value, dst, dstStride, count);
        case 2:
            return Fill<uint16_t>(value, dst, dstStride, count);
        case 4:
            return Fill<uint32_t>(value, dst, dstStride, count);
        default:
            return Fill<uint64_t>(value, dst, dstStride, count);
    }
}

void PermutePixels(const std::byte* src, int srcCount, std::byte* dst, int dstCount, const PermuteSource* sources,
                   int elementBytes, Int count) {
    switch (elementBytes) {
        case 1:
            return Permute<uint8_t>(src, srcCount, dst, dstCount, sources, count);
        case 2:
            return Permute<uint16_t>(src, srcCount, dst, dstCount, sources, count);
        case 4:
            return Permute<uint32_t>(src, srcCount, dst, dstCount, sources, count);
        default:
            return Permute<uint64_t>(src, srcCount, dst, dstCount, sources, count);
    }
}

}  // namespace orvik::pixel
