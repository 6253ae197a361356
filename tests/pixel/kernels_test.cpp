// Conversions of components and the transfer curves of sRGB against independent evaluations, over the whole range of
// values; every level of kernels against the scalar form.

#include <bit>
#include <cstdlib>
#include <gmock/gmock.h>
#include <limits>
#include <random>

#include "color/gfx_image_colorprofile_closedform.h"
#include "level_scope.h"
#include "pixel/kernels/gfx_image_pixelformat_arithmetic.h"
#include "pixel/kernels/gfx_image_pixelformat_kernels.h"
#include "pixel/kernels/gfx_image_pixelformat_shuffle.h"
#include "slow_arithmetic.h"

namespace orvik {
namespace {

using Bytes = std::vector<std::byte>;
constexpr std::byte kCanary{0xA5};
using enum ComponentType;
constexpr Int kLongest = 300, kAlignments = 64;

Bytes RandomBytes(size_t count, unsigned seed) {
    std::mt19937 random(seed);
    Bytes bytes(count);
    for (std::byte& byte : bytes)
        byte = std::byte(random());
    return bytes;
}

TEST(Kernels, UsesTheLevelOfTheEnvironment) {
    std::vector<std::string> names;
    for (const pixel::KernelSet* kernels : pixel::GetKernelSets())
        names.push_back(kernels->name);
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(names[0], "scalar");
#ifdef __x86_64__
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2")) {
        EXPECT_THAT(names, testing::Contains("avx2"));
    }
#endif
    const char* const wanted = std::getenv("ORVIK_SIMD");
    if (!wanted)
        GTEST_SKIP() << "ORVIK_SIMD is not set";
    if (!testing::Value(names, testing::Contains(wanted)))
        GTEST_SKIP() << "this machine has no level " << wanted;
    EXPECT_STREQ(pixel::GetKernels().name, wanted);
}

template <class F, class Bits>
void AppendFloats(std::vector<uint64_t>& values, std::mt19937_64& random) {
    const auto append = [&](F value) { values.push_back(slow::Reinterpret<Bits>(value)); };
    using Limits = std::numeric_limits<F>;
    constexpr double kSpecials[] = {0,   1,     0.999,        0.997, 2,       65500, 65504,   65519,   65536,
                                    1e9, 0.001, 2147483648.0, 1e30,  1.2e-10, 1e-10, 1.5e-10, 2.4e-10, 4e-10};
    std::vector<F> specials(std::begin(kSpecials), std::end(kSpecials));
    specials.insert(specials.end(), {Limits::min(), Limits::max(), Limits::denorm_min(), Limits::infinity(),
                                     Limits::quiet_NaN(), Limits::epsilon()});
    for (const F value : specials) {
        append(value);
        append(-value);
    }
    // Both sides of every step of the 8-bit types and of many steps of the 16-bit types.
    for (const int steps : {255, 65535}) {
        for (int i = 0; i <= steps; i += steps == 255 ? 1 : 7) {
            for (const F offset : {F(0), F(0.5)}) {
                const F edge = (F(i) + offset) / F(steps);
                append(edge);
                append(std::nextafter(edge, F(-9)));
                append(std::nextafter(edge, F(9)));
            }
        }
    }
    std::uniform_real_distribution<F> around(F(-0.1), F(1.1)), wide(F(-70000), F(70000));
    for (int i = 0; i < 20000; ++i) {
        append(around(random));
        append(wide(random));
        values.push_back(Bits(random()));  // any pattern, NaN and denormals among them
    }
}

std::vector<uint64_t> MakeInputs(ComponentType type) {
    std::vector<uint64_t> values;
    std::mt19937_64 random(uint64_t(type) + 1);
    if (GetComponentBits(type) <= 16) {
        for (uint64_t i = 0; i < uint64_t(1) << GetComponentBits(type); ++i)
            values.push_back(i);
        if (type == F16) {  // what is not finite sends its neighbours down another path
            const std::vector<uint64_t> ordered = values;
            for (const uint64_t value : ordered)
                values.insert(values.end(), {value, random() % 0x7C00, 0x8000 + random() % 0x7C00});
        }
    } else if (type == F32) {
        AppendFloats<float, uint32_t>(values, random);
    } else if (type == F64) {
        AppendFloats<double, uint64_t>(values, random);
    } else {
        for (int bit = 0; bit < 32; ++bit) {
            for (const int64_t near : {-1, 0, 1})
                values.push_back(uint32_t((int64_t(1) << bit) + near));
        }
        for (uint64_t i = 0; i < 65536; ++i)
            values.push_back(i << 16 | (random() & 0xFFFF));
    }
    return values;
}

class CellTest : public testing::TestWithParam<int> {};

TEST_P(CellTest, EqualsTheRule) {
    const auto src = ComponentType(GetParam() / kComponentTypeCount);
    const auto dst = ComponentType(GetParam() % kComponentTypeCount);
    const size_t srcBytes = size_t(GetComponentBits(src) / 8);
    const size_t dstBytes = size_t(GetComponentBits(dst) / 8);
    const std::vector<uint64_t> inputs = MakeInputs(src);
    // One byte in front makes all addresses odd.
    std::vector<std::byte> source(inputs.size() * srcBytes + 1), strided(inputs.size() * dstBytes * 2 + 1);
    for (size_t i = 0; i < inputs.size(); ++i)
        std::memcpy(source.data() + 1 + i * srcBytes, &inputs[i], srcBytes);  // little endian
    const Int count = Int(inputs.size());
    pixel::GetConvertStrided(src, dst)(source.data() + 1, Int(srcBytes), strided.data() + 1, Int(2 * dstBytes), count);
    std::vector<uint64_t> expected;
    for (const uint64_t input : inputs)
        expected.push_back(slow::Convert(src, dst, input));
    const auto load = [&](const std::byte* from) {
        uint64_t raw = 0;
        std::memcpy(&raw, from, dstBytes);
        return raw;
    };
    for (const pixel::KernelSet* kernels : pixel::GetKernelSets()) {
        std::vector<std::byte> run(inputs.size() * dstBytes + 1);
        kernels->GetRun(src, dst)(source.data() + 1, run.data() + 1, count);
        int failures = 0;
        for (size_t i = 0; i < inputs.size() && failures < 5; ++i) {
            const uint64_t found = load(run.data() + 1 + i * dstBytes);
            const bool bothNan = src != dst && slow::IsNan(dst, expected[i]) && slow::IsNan(dst, found);
            const bool exactNan = src == F32 && dst == F16;
            const bool fine = found == expected[i] || (bothNan && !exactNan);
            failures += !fine;
            EXPECT_TRUE(fine) << kernels->name << ": " << GetComponentName(src) << " to " << GetComponentName(dst)
                              << " of 0x" << std::hex << inputs[i] << ": 0x" << found << " instead of 0x"
                              << expected[i];
            EXPECT_EQ(load(strided.data() + 1 + 2 * i * dstBytes), found) << "strided differs";
        }
    }
}

std::string NameOfCell(const testing::TestParamInfo<int>& info) {
    return std::string(GetComponentName(ComponentType(info.param / kComponentTypeCount))) + "To" +
           GetComponentName(ComponentType(info.param % kComponentTypeCount));
}
INSTANTIATE_TEST_SUITE_P(All, CellTest, testing::Range(0, kComponentTypeCount* kComponentTypeCount), NameOfCell);

/// With what a conversion of components, which limits its values, never hands on.
TEST(Half, EncodesByTruncationAndDecodesExactly) {
    for (uint32_t high = 0; high < 65536; ++high) {  // all exponents with dense mantissas, and all halves
        for (const uint32_t low : {0u, 0x1FFFu, 0x2000u, 0xFFFFu}) {
            const auto value = slow::Reinterpret<float>(high << 16 | low);
            ASSERT_EQ(pixel::FloatToHalf(value).bits, slow::EncodeHalf(value)) << std::hex << (high << 16 | low);
        }
        ASSERT_EQ(pixel::FloatToHalf(pixel::HalfToFloat({uint16_t(high)})).bits, high) << "the way back is exact";
    }
}

/// Bytes that are no NaN as half, float or double, whose payload is not fixed by the table.
Bytes FiniteBytes(size_t count, unsigned seed) {
    Bytes bytes = RandomBytes(count, seed);
    for (std::byte& byte : bytes)
        byte &= std::byte{0xBB};
    return bytes;
}

/// Runs of every length at many places against a plain loop, and in place where values keep their width. The source
/// ends with the run, so that a sanitizer sees reads beyond it.
void CheckRuns(const Bytes& values, Int srcBytes, Int dstBytes, auto loop, auto run) {
    const auto check = [&](Int count, Int from, Int to) {
        const Bytes source(values.begin(), values.begin() + from + count * srcBytes);
        Bytes expected(size_t(to + count * dstBytes) + kAlignments, kCanary), found = expected;
        loop(source.data() + from, expected.data() + to, count);
        run(source.data() + from, found.data() + to, count);
        ASSERT_TRUE(found == expected) << count << " values from " << from << " to " << to;
        if (srcBytes != dstBytes)
            return;
        std::fill(found.begin(), found.end(), kCanary);
        std::copy(source.begin() + from, source.end(), found.begin() + to);
        run(found.data() + to, found.data() + to, count);
        ASSERT_TRUE(found == expected) << "in place, " << count << " values from " << from << " to " << to;
    };
    for (Int count = 0; count <= kLongest && !testing::Test::HasFatalFailure(); ++count)
        check(count, count * 7 % kAlignments, count * 13 % kAlignments);
    for (Int place = 0; place < kAlignments && !testing::Test::HasFatalFailure(); ++place) {
        for (const Int count : {3, 17, 70, 193})
            check(count, place, (place + count) * 5 % kAlignments);
    }
}

TEST(Kernels, EveryLengthAndPlaceOfEveryCell) {
    const Bytes values = FiniteBytes(kLongest * 8 + kAlignments, 1);
    for (const pixel::KernelSet* kernels : pixel::GetKernelSets()) {
        for (int cell = 0; cell < kComponentTypeCount * kComponentTypeCount; ++cell) {
            const auto src = ComponentType(cell / kComponentTypeCount), dst = ComponentType(cell % kComponentTypeCount);
            SCOPED_TRACE(testing::Message()
                         << kernels->name << ": " << GetComponentName(src) << " to " << GetComponentName(dst));
            const Int srcBytes = GetComponentBits(src) / 8, dstBytes = GetComponentBits(dst) / 8;
            const auto loop = [&](auto* in, auto* out, Int count) {
                pixel::GetConvertStrided(src, dst)(in, srcBytes, out, dstBytes, count);
            };
            CheckRuns(values, srcBytes, dstBytes, loop, kernels->GetRun(src, dst));
        }
    }
}

struct Map {
    int srcCount, dstCount;
    std::vector<int> channels;  ///< -1 fills
};
const Map kMaps[] = {
    {3, 4, {0, 1, 2, -1}}, {3, 4, {-1, 2, 1, 0}},    {4, 3, {0, 1, 2}},     {4, 3, {3, 2, 1}},
    {3, 3, {2, 1, 0}},     {4, 4, {3, 2, 1, 0}},     {4, 4, {2, 1, 0, -1}}, {1, 3, {0, 0, 0}},
    {1, 4, {0, 0, 0, -1}}, {2, 4, {0, 0, 0, 1}},     {2, 1, {1}},           {4, 1, {3}},
    {3, 1, {1}},           {1, 2, {0, -1}},          {2, 2, {1, 0}},        {2, 3, {1, 1, 1}},
    {5, 4, {0, 1, 2, 3}},  {4, 5, {0, 1, 2, 3, -1}}, {3, 2, {0, -1}},       {8, 8, {7, 6, 5, 4, 3, 2, 1, 0}},
};

TEST(Kernels, EveryLengthAndPlaceOfRearrangements) {
    const Bytes values = RandomBytes(kLongest * 8 * 8 + kAlignments, 5);
    for (const pixel::KernelSet* kernels : pixel::GetKernelSets()) {
        for (const Map& map : kMaps) {
            for (const int size : {1, 2, 4, 8}) {
                pixel::PermuteSource sources[8];
                for (int d = 0; d < map.dstCount; ++d) {
                    sources[d].channel = int8_t(map.channels[size_t(d)]);
                    for (int i = 0; i < 8; ++i)
                        sources[d].fill[i] = std::byte(0xF0 + i);
                }
                pixel::PixelShuffle shuffle;
                shuffle.Init(*kernels, map.srcCount, map.dstCount, sources, size);
                SCOPED_TRACE(testing::Message() << kernels->name << ": " << map.srcCount << " to " << map.dstCount
                                                << " channels of " << size << " bytes");
                const Int srcPixel = map.srcCount * size;
                const auto loop = [&](const std::byte* in, std::byte* out, Int count) {
                    for (Int i = 0; i < count * map.dstCount; ++i) {
                        const auto& origin = sources[i % map.dstCount];
                        const std::byte* pixel = in + i / map.dstCount * srcPixel;
                        std::copy_n(origin.channel < 0 ? origin.fill : pixel + origin.channel * size, size,
                                    out + i * size);
                    }
                };
                CheckRuns(values, srcPixel, map.dstCount * size, loop,
                          [&](auto* in, auto* out, Int count) { shuffle.Run(in, out, count); });
            }
        }
    }
}

TEST(Kernels, MeansOfExtremesAndSamples) {
    EXPECT_EQ(pixel::MeanOfColors<Pix16f>({0x7BFF}, {0x7BFF}, {0x7BFF}).bits, 0x7BFE) << "65500, not 65504";
    for (int index = 0; index < kComponentTypeCount; ++index) {
        const auto type = ComponentType(index);
        const Int size = GetComponentBits(type) / 8, count = 20000;
        Bytes planes[3] = {FiniteBytes(size_t(count * size), 1), FiniteBytes(size_t(count * size), 2),
                           FiniteBytes(size_t(count * size), 3)};
        for (int i = 0; i < 3 && type < F16; ++i) {
            planes[i] = RandomBytes(planes[i].size(), unsigned(i) + 11);
            for (Int at = 0; at < 64; ++at) {  // 0, the largest, the smallest, -1 and their neighbours, in all triples
                const int which = int(at >> (2 * i)) & 3;
                for (Int byte = 0; byte < size; ++byte) {
                    const bool top = byte == size - 1;
                    const int values[] = {0, 0xFF, top ? 0x80 : 0, top ? 0x7F : 0xFF};
                    planes[i][size_t(at * size + byte)] = std::byte(values[which]);
                }
            }
        }
        Bytes expected(planes[0].size()), found(planes[0].size());
        pixel::GetMean(type)(planes[0].data(), planes[1].data(), planes[2].data(), size, expected.data(), size, count);
        for (const pixel::KernelSet* kernels : pixel::GetKernelSets()) {
            kernels->mean[int(type)](planes[0].data(), planes[1].data(), planes[2].data(), found.data(), count);
            EXPECT_TRUE(found == expected) << kernels->name << ": " << GetComponentName(type);
        }
    }
}

TEST(Kernels, MeansOfPixelsOfEveryLengthAndPlace) {
    const Bytes values = FiniteBytes(kLongest * 4 * 8 + kAlignments, 31);
    for (const pixel::KernelSet* kernels : pixel::GetKernelSets()) {
        int tested = 0;
        for (int type = 0; type < kComponentTypeCount; ++type) {
            const Int size = GetComponentBits(ComponentType(type)) / 8;
            for (const int channels : {3, 4}) {
                const pixel::MeanOfPixelsFunction mean = kernels->meanOfPixels[type][channels - 3];
                if (!mean)
                    continue;
                ++tested;
                const int colors[] = {channels - 1, 0, 1};
                pixel::MeanTable table;
                for (int i = 0; i < 3; ++i) {
                    for (Int at = 0; at < kernels->vectorBytes; ++at)
                        table.picks[i][at] = uint8_t((at / size * channels + colors[i]) * size + at % size);
                }
                SCOPED_TRACE(testing::Message() << kernels->name << ": " << type << ", " << channels << " channels");
                const auto loop = [&](auto* in, auto* out, Int count) {
                    pixel::GetMean(ComponentType(type))(in + colors[0] * size, in + colors[1] * size,
                                                        in + colors[2] * size, channels * size, out, size, count);
                };
                CheckRuns(values, channels * size, size, loop,
                          [&](auto* in, auto* out, Int count) { mean(table, in, out, count); });
            }
        }
        EXPECT_EQ(tested, kernels->name == std::string("avx3_dl") ? 14 : 0);
    }
}

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

bool IsSame(float a, float b) {
    return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b) || (std::isnan(a) && std::isnan(b));
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
        values.push_back(std::bit_cast<float>(uint32_t(bits)));
    for (uint32_t bits = std::bit_cast<uint32_t>(0.002f); bits < std::bit_cast<uint32_t>(1.5f); bits += 67)
        values.push_back(std::bit_cast<float>(bits));
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
        const std::vector<float> plain = results;
        AtEveryLevel([&] {
            ConvertTransferCurve(curve, results.data(), values.data(), values.size());
            judge("vector");
            EXPECT_EQ(results == plain, pixel::GetKernels().target == 0) << "vectors round some results differently";
        });
    }
}

TEST(TransferCurve, SpecialValuesAreThoseOfTheScalarForm) {
    using Limits = std::numeric_limits<float>;
    std::vector<float> values;
    for (const float value : {0.0f, 1.0f, 0.5f, 1e-40f, Limits::infinity(), Limits::denorm_min(), Limits::min(),
                              Limits::max(), Limits::quiet_NaN(), std::bit_cast<float>(0x7F800001)})
        values.insert(values.end(), {value, -value});
    for (const float edge : {0.0031308f, 0.04045f})  // where the straight part meets the curve
        values.insert(values.end(), {std::nextafter(edge, 0.0f), edge, std::nextafter(edge, 1.0f)});
    for (const TransferCurve curve : kCurves) {
        AtEveryLevel([&] {
            for (const float value : values) {
                const float scalar = EvaluateScalar(curve, value);
                float result = 77;
                ConvertTransferCurve(curve, &result, &value, 1);
                EXPECT_TRUE(IsSame(result, scalar)) << value << ": " << result << ", scalar " << scalar;
                EXPECT_EQ(std::isnan(scalar), std::isnan(value)) << value;
            }
        });
    }
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
            alignas(64) std::byte from[4 * kMax + 64], to[4 * kMax + 128], expected[sizeof(to)];
            for (size_t count = 0; count <= kMax; ++count) {
                const size_t shift = count * 7 % 64, toShift = count * 11 % 64;  // all alignments in both
                std::memcpy(from + shift, values.data(), 4 * count);
                std::memset(to, 0xCD, sizeof(to));
                std::memset(expected, 0xCD, sizeof(to));
                std::memcpy(expected + toShift, wanted.data(), 4 * count);
                ConvertTransferCurve(curve, reinterpret_cast<float*>(to + toShift),
                                     reinterpret_cast<const float*>(from + shift), count);
                ASSERT_EQ(std::memcmp(to, expected, sizeof(to)), 0) << count;
                std::vector<float> line(values.begin(), values.begin() + std::ptrdiff_t(count));
                ConvertTransferCurve(curve, line.data(), line.data(), count);
                ASSERT_TRUE(std::equal(line.begin(), line.end(), wanted.begin())) << count << " in place";
            }
        });
    }
}

}  // namespace
}  // namespace orvik
