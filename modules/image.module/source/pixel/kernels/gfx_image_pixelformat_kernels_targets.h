#pragma once
/// @file
/// Which instruction sets the kernels are compiled for.

// The strongest set has byte permutations over whole vectors; it is compiled only on demand.
#define HWY_WANT_AVX3_DL 1

#include <hwy/detect_targets.h>

/// The body of a function that gives a file's `FUNCTION` for `target`, or null.
#define ORVIK_KERNELS_OF_TARGET(FUNCTION) \
    switch (target) {                     \
        ORVIK_CASE_NEON(FUNCTION)         \
        ORVIK_CASE_SSSE3(FUNCTION)        \
        ORVIK_CASE_SSE4(FUNCTION)         \
        ORVIK_CASE_AVX2(FUNCTION)         \
        ORVIK_CASE_AVX3(FUNCTION)         \
        ORVIK_CASE_AVX3_DL(FUNCTION)      \
        default:                          \
            return nullptr;               \
    }

#if HWY_TARGETS & HWY_NEON
#define ORVIK_CASE_NEON(FUNCTION) \
    case HWY_NEON:                \
        return &N_NEON::FUNCTION;
#else
#define ORVIK_CASE_NEON(FUNCTION)
#endif
#if HWY_TARGETS & HWY_SSSE3
#define ORVIK_CASE_SSSE3(FUNCTION) \
    case HWY_SSSE3:                \
        return &N_SSSE3::FUNCTION;
#else
#define ORVIK_CASE_SSSE3(FUNCTION)
#endif
#if HWY_TARGETS & HWY_SSE4
#define ORVIK_CASE_SSE4(FUNCTION) \
    case HWY_SSE4:                \
        return &N_SSE4::FUNCTION;
#else
#define ORVIK_CASE_SSE4(FUNCTION)
#endif
#if HWY_TARGETS & HWY_AVX2
#define ORVIK_CASE_AVX2(FUNCTION) \
    case HWY_AVX2:                \
        return &N_AVX2::FUNCTION;
#else
#define ORVIK_CASE_AVX2(FUNCTION)
#endif
#if HWY_TARGETS & HWY_AVX3
#define ORVIK_CASE_AVX3(FUNCTION) \
    case HWY_AVX3:                \
        return &N_AVX3::FUNCTION;
#else
#define ORVIK_CASE_AVX3(FUNCTION)
#endif
#if HWY_TARGETS & HWY_AVX3_DL
#define ORVIK_CASE_AVX3_DL(FUNCTION) \
    case HWY_AVX3_DL:                \
        return &N_AVX3_DL::FUNCTION;
#else
#define ORVIK_CASE_AVX3_DL(FUNCTION)
#endif
