// The choice of kernels for this machine.

#include <atomic>
#include <cstdlib>
#include <hwy/targets.h>
#include <string_view>

#include "gfx_image_pixelformat_kernels_simd.h"
#include "gfx_image_pixelformat_kernels_targets.h"

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

struct Choice {
    KernelSet sets[std::size(kLevels)];
    const KernelSet* all[std::size(kLevels) + 1] = {&GetPlainKernels()};
    size_t count = 1;
    std::atomic<const KernelSet*> current;

    Choice() {
        const int64_t supported = hwy::SupportedTargets();
        for (const Level& level : kLevels) {
            const SetKernelsFunction parts[] = {GetIntegerKernels(level.target), GetFloatKernels(level.target),
                                                GetShuffleKernels(level.target), GetMeanKernels(level.target)};
            if (!(supported & level.target) || !parts[0])
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
