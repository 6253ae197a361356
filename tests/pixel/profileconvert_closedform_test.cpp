// The transfer curves of sRGB: against the formula in extended precision, on every instruction set of this machine.

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

#include "color/gfx_image_colorprofile_closedform.h"
#include "level_scope.h"

namespace orvik {
namespace {

static_assert(std::numeric_limits<long double>::digits > std::numeric_limits<double>::digits);

constexpr TransferCurve kCurves[] = {TransferCurve::LinearToSrgb, TransferCurve::SrgbToLinear};

/// Exact but for some 1e-19. The constants are single-precision numbers.
long double Evaluate(TransferCurve curve, float c) {
    const long double x = c;
    if (curve == TransferCurve::LinearToSrgb)
        return c < 0.0031308f ? x * 12.92f : std::pow(x, (long double)(0.41666666f)) * 1.055f - 0.055f;
    return c <= 0.04045f ? x * 0.07739938f : std::pow((x + 0.055f) * 0.9478673f, (long double)(2.4f));
}
float EvaluateScalar(TransferCurve curve, float c) {
    return curve == TransferCurve::LinearToSrgb ? LinearToSrgb(c) : SrgbToLinear(c);
}

/// Distance in units in the last place of the exact value, whose range of floats continues above the largest one.
double UlpsFrom(long double exact, float value) {
    constexpr int kDigits = std::numeric_limits<float>::digits, kMinExponent = std::numeric_limits<float>::min_exponent;
    if (std::isinf(value))  // right where the exact value rounds to infinity
        return std::fabs(exact) >= 0x1.FFFFFFp127L && std::signbit(exact) == std::signbit(value) ? 0 : INFINITY;
    int exponent = 0;
    (void)std::frexp(exact, &exponent);
    return double(std::fabs(value - exact) / std::ldexp(1.0L, std::max(exponent, kMinExponent) - kDigits));
}

float FromBits(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof(value));
    return value;
}
uint32_t ToBits(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

/// Runs `check` at each level and names it where something fails.
void AtEveryLevel(auto check) {
    for (const pixel::KernelSet* kernels : pixel::GetKernelSets()) {
        SCOPED_TRACE(kernels->name);
        const LevelScope scope(*kernels);
        check();
    }
}

TEST(TransferCurve, EveryResultIsTheFormulasNearlyRounded) {
    // Every exponent and sign, and densely where pictures are.
    std::vector<float> values;
    for (uint64_t bits = 0; bits < 0x100000000; bits += 2039)
        values.push_back(FromBits(uint32_t(bits)));
    for (uint32_t bits = ToBits(0.002f); bits < ToBits(1.5f); bits += 67)
        values.push_back(FromBits(bits));
    std::erase_if(values, [](float v) { return !std::isfinite(v); });
    ASSERT_GT(values.size(), 3000000u);
    std::vector<float> results(values.size());
    std::vector<long double> exact(values.size());
    for (const TransferCurve curve : kCurves) {
        for (size_t i = 0; i < values.size(); ++i)
            exact[i] = Evaluate(curve, values[i]);
        const auto judge = [&](const char* what) {
            double worst = 0;
            size_t at = 0;
            for (size_t i = 0; i < values.size(); ++i) {
                const double ulps = UlpsFrom(exact[i], results[i]);
                if (!(ulps <= worst))
                    worst = ulps, at = i;
            }
            EXPECT_LE(worst, 1.0) << what << " curve " << int(curve) << ": " << values[at] << " gives " << results[at];
            EXPECT_GT(worst, 0.4) << "a rounding must show";
        };
        for (size_t i = 0; i < values.size(); ++i)
            results[i] = EvaluateScalar(curve, values[i]);
        judge("scalar");
        AtEveryLevel([&] {
            ConvertTransferCurve(curve, results.data(), values.data(), values.size());
            judge("vector");
        });
    }
}

TEST(TransferCurve, SpecialValuesAreThoseOfTheScalarForm) {
    const float kInfinity = std::numeric_limits<float>::infinity();
    std::vector<float> values{0.0f, -0.0f, 1.0f, -1.0f, -0.5f, kInfinity, -kInfinity};
    for (const float value : {std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::min(), 1e-40f,
                              std::numeric_limits<float>::max()})
        values.insert(values.end(), {value, -value});
    for (const float edge : {0.0031308f, 0.04045f})  // where the straight part meets the curve
        values.insert(values.end(), {std::nextafter(edge, 0.0f), edge, std::nextafter(edge, 1.0f)});
    const uint32_t kNans[] = {0x7FC00000, 0xFFC00000, 0x7F800001, 0x7FFFFFFF};
    for (const TransferCurve curve : kCurves) {
        AtEveryLevel([&] {
            for (const float value : values) {
                float result = 77;
                ConvertTransferCurve(curve, &result, &value, 1);
                const float scalar = EvaluateScalar(curve, value);
                EXPECT_EQ(ToBits(result), ToBits(scalar)) << value << ": " << result << ", scalar " << scalar;
            }
            for (const uint32_t bits : kNans) {
                const float value = FromBits(bits);
                float result = 77;
                ConvertTransferCurve(curve, &result, &value, 1);
                EXPECT_TRUE(std::isnan(result)) << bits;
                EXPECT_TRUE(std::isnan(EvaluateScalar(curve, value))) << bits;
            }
        });
    }
    EXPECT_EQ(LinearToSrgb(-2.0f), -2.0f * 12.92f);
    EXPECT_EQ(SrgbToLinear(-2.0f), -2.0f * 0.07739938f);
    EXPECT_EQ(SrgbToLinear(std::numeric_limits<float>::max()), kInfinity);
    EXPECT_LT(LinearToSrgb(std::numeric_limits<float>::max()), 1e17f);
}

TEST(TransferCurve, TheLevelDecidesWhoComputes) {
    // The one without vectors gives the C library's bits; of the others' some are rounded differently.
    std::vector<float> values(100000), plain(values.size()), results(values.size());
    for (size_t i = 0; i < values.size(); ++i) {
        values[i] = 0.05f + float(i) / 100000;
        plain[i] = LinearToSrgb(values[i]);
    }
    AtEveryLevel([&] {
        ConvertTransferCurve(TransferCurve::LinearToSrgb, results.data(), values.data(), values.size());
        EXPECT_EQ(results == plain, pixel::GetKernels().target == 0);
    });
}

TEST(TransferCurve, PlaceInTheRunDoesNotMatter) {
    constexpr size_t kMax = 300;
    std::vector<float> values(kMax), wanted(kMax);
    for (size_t i = 0; i < kMax; ++i)
        values[i] = float(i) / 150 - 0.5f;
    for (const TransferCurve curve : kCurves) {
        AtEveryLevel([&] {
            for (size_t i = 0; i < kMax; ++i)
                ConvertTransferCurve(curve, &wanted[i], &values[i], 1);
            alignas(64) std::byte from[4 * kMax + 64], to[4 * kMax + 128];
            for (size_t count = 0; count <= kMax; ++count) {
                const size_t shift = count * 7 % 64, toShift = count * 11 % 64;  // all alignments in both
                std::memcpy(from + shift, values.data(), 4 * count);
                std::memset(to, 0xCD, sizeof(to));
                ConvertTransferCurve(curve, reinterpret_cast<float*>(to + toShift),
                                     reinterpret_cast<const float*>(from + shift), count);
                ASSERT_EQ(std::memcmp(to + toShift, wanted.data(), 4 * count), 0) << count;
                for (size_t i = 0; i < sizeof(to); ++i) {
                    if (i < toShift || i >= toShift + 4 * count) {
                        ASSERT_EQ(to[i], std::byte(0xCD)) << count;
                    }
                }
                std::vector<float> line(values.begin(), values.begin() + std::ptrdiff_t(count));
                ConvertTransferCurve(curve, line.data(), line.data(), count);
                if (count > 0) {
                    ASSERT_EQ(std::memcmp(line.data(), wanted.data(), 4 * count), 0) << count << " in place";
                }
            }
        });
    }
}

}  // namespace
}  // namespace orvik
