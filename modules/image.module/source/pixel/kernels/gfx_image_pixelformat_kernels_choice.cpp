// The choice of kernels for this machine.

#include <atomic>
#include <cstdlib>
#include <string_view>
#if defined(__x86_64__)
#include <cpuid.h>
#endif

#include "pixel/kernels/gfx_image_pixelformat_kernels_simd.h"
#include "pixel/kernels/gfx_image_pixelformat_kernels_targets.h"

namespace orvik::pixel {
namespace {

struct Level {
    int64_t target;
    const char* name;
};
constexpr Level kLevels[] = {
    // from the weakest to the strongest
    {HWY_NEON, "neon"}, {HWY_SSSE3, "ssse3"}, {HWY_SSE4, "sse4"},
    {HWY_AVX2, "avx2"}, {HWY_AVX3, "avx3"},   {HWY_AVX3_DL, "avx3_dl"},
};

#if defined(__x86_64__)
/// F16C, which `__builtin_cpu_supports` has no name for.
bool HasF16c() {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    return __get_cpuid(1, &eax, &ebx, &ecx, &edx) && (ecx & bit_F16C);
}
#endif

/// Whether this machine has all instructions that code for a target may be compiled to. Highway's library could tell
/// too, but measures the clock when it is loaded, which takes longer than the start of everything else.
bool IsSupported(int64_t target) {
#if defined(__x86_64__)
    __builtin_cpu_init();
    const bool hasSsse3 = __builtin_cpu_supports("ssse3");
    const bool hasSse4 = hasSsse3 && __builtin_cpu_supports("sse4.1") && __builtin_cpu_supports("sse4.2") &&
                         __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("aes");
    const bool hasAvx2 = hasSse4 && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
                         __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("fma") && HasF16c();
    const bool hasAvx3 = hasAvx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
                         __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw");
    switch (target) {
        case HWY_SSSE3:
            return hasSsse3;
        case HWY_SSE4:
            return hasSse4;
        case HWY_AVX2:
            return hasAvx2;
        case HWY_AVX3:
            return hasAvx3;
        case HWY_AVX3_DL:
            return hasAvx3 && __builtin_cpu_supports("avx512vnni") && __builtin_cpu_supports("vpclmulqdq") &&
                   __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2") &&
                   __builtin_cpu_supports("avx512bitalg") && __builtin_cpu_supports("avx512vpopcntdq");
        default:
            return false;
    }
#else
    return target == HWY_NEON;  // all machines of 64 bits have it
#endif
}

struct Choice {
    KernelSet sets[std::size(kLevels)];
    const KernelSet* all[std::size(kLevels) + 1] = {&GetPlainKernels()};
    size_t count = 1;
    std::atomic<const KernelSet*> current;

    Choice() {
        for (const Level& level : kLevels) {
            const SetKernelsFunction parts[] = {GetIntegerKernels(level.target), GetFloatKernels(level.target),
                                                GetShuffleKernels(level.target), GetMeanKernels(level.target)};
            if (!parts[0] || !IsSupported(level.target))
                continue;
            KernelSet& set = sets[count - 1] = GetPlainKernels();
            set.name = level.name;
            set.target = level.target;
            for (const SetKernelsFunction part : parts)
                part(set);
            all[count++] = &set;
        }
        current = all[count - 1];
        const char* wanted = std::getenv("ORVIK_SIMD");
        for (size_t i = 0; wanted && i < count; ++i) {
            if (std::string_view(wanted) == all[i]->name)
                current = all[i];
        }
    }
};
Choice& GetChoice() {
    static Choice choice;
    return choice;
}

}  // namespace

const KernelSet& GetKernels() { return *GetChoice().current.load(std::memory_order_relaxed); }
Block<const KernelSet* const> GetKernelSets() { return {GetChoice().all, GetChoice().count}; }
void SetKernels(const KernelSet& kernels) { GetChoice().current = &kernels; }

}  // namespace orvik::pixel
