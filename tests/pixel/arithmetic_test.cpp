// The 9 x 9 table of component conversions against an independent evaluation of its rules.

#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

#include "pixel/kernels/gfx_image_pixelformat_arithmetic.h"
#include "pixel/kernels/gfx_image_pixelformat_kernels.h"
#include "slow_arithmetic.h"

namespace orvik {
namespace {

using enum ComponentType;

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

void StoreRaw(ComponentType type, uint64_t raw, std::byte* to) {
    std::memcpy(to, &raw, size_t(GetComponentBits(type) / 8));  // little endian
}
uint64_t LoadRaw(ComponentType type, const std::byte* from) {
    uint64_t raw = 0;
    std::memcpy(&raw, from, size_t(GetComponentBits(type) / 8));
    return raw;
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
        StoreRaw(src, inputs[i], source.data() + 1 + i * srcBytes);
    const Int count = Int(inputs.size());
    pixel::GetConvertStrided(src, dst)(source.data() + 1, Int(srcBytes), strided.data() + 1, Int(2 * dstBytes), count);
    std::vector<uint64_t> expected;
    for (const uint64_t input : inputs)
        expected.push_back(slow::Convert(src, dst, input));

    for (const pixel::KernelSet* kernels : pixel::GetKernelSets()) {
        std::vector<std::byte> run(inputs.size() * dstBytes + 1);
        kernels->GetRun(src, dst)(source.data() + 1, run.data() + 1, count);
        int failures = 0;
        for (size_t i = 0; i < inputs.size() && failures < 5; ++i) {
            const uint64_t found = LoadRaw(dst, run.data() + 1 + i * dstBytes);
            const bool bothNan = src != dst && slow::IsNan(dst, expected[i]) && slow::IsNan(dst, found);
            const bool exactNan = src == F32 && dst == F16;
            const bool fine = found == expected[i] || (bothNan && !exactNan);
            failures += !fine;
            EXPECT_TRUE(fine) << kernels->name << ": " << GetComponentName(src) << " to " << GetComponentName(dst)
                              << " of 0x" << std::hex << inputs[i] << ": 0x" << found << " instead of 0x"
                              << expected[i];
            EXPECT_EQ(LoadRaw(dst, strided.data() + 1 + 2 * i * dstBytes), found) << "strided differs";
        }
    }
}

std::string NameOfCell(const testing::TestParamInfo<int>& info) {
    return std::string(GetComponentName(ComponentType(info.param / kComponentTypeCount))) + "To" +
           GetComponentName(ComponentType(info.param % kComponentTypeCount));
}
INSTANTIATE_TEST_SUITE_P(All, CellTest, testing::Range(0, kComponentTypeCount* kComponentTypeCount), NameOfCell);

/// What a conversion of components, which limits its values, never hands on.
TEST(Half, EncodesByTruncationAndDecodesExactly) {
    const std::pair<float, uint16_t> kCases[] = {
        {65500.0f, 0x7BFE},
        {65535.9f, 0x7BFF},
        {65536.0f, 0x7C00},
        {-0.0f, 0x8000},
        {0x1p-24f, 0x0001},
        {0x1.fffffep-25f, 0},
        {slow::Reinterpret<float>(0xFFC00000u), 0xFE00},
        {slow::Reinterpret<float>(0x7F800001u), 0x7C00}};  // a small NaN becomes infinity
    for (const auto& [value, half] : kCases)
        EXPECT_EQ(pixel::FloatToHalf(value).bits, half) << value;
    for (uint32_t high = 0; high < 65536; ++high) {  // all exponents with dense mantissas, and all halves
        for (const uint32_t low : {0u, 0x1FFFu, 0x2000u, 0xFFFFu}) {
            const auto value = slow::Reinterpret<float>(high << 16 | low);
            ASSERT_EQ(pixel::FloatToHalf(value).bits, slow::EncodeHalf(value)) << std::hex << (high << 16 | low);
        }
        ASSERT_EQ(pixel::FloatToHalf(pixel::HalfToFloat({uint16_t(high)})).bits, high) << "the way back is exact";
    }
}

TEST(Mean, TruncatesInTheSourceType) {
    EXPECT_EQ(pixel::MeanOfColors<Pix8u>(255, 255, 254), 254);
    EXPECT_EQ(pixel::MeanOfColors<Pix32u>(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF), 0xFFFFFFFF);
    EXPECT_EQ(pixel::MeanOfColors<Pix32s>(-1, -1, 0), 0) << "signed division truncates towards zero";
    EXPECT_EQ(pixel::MeanOfColors<Pix32s>(INT32_MIN, INT32_MIN, INT32_MIN), INT32_MIN);
    EXPECT_EQ(pixel::MeanOfColors(0.1f, 0.2f, 0.4f), ((0.1f + 0.2f) + 0.4f) / 3.0f);
    // 1 + 1 + 1.0009765625 over 3 lies between two halves and goes down.
    EXPECT_EQ(pixel::MeanOfColors<Pix16f>({0x3C00}, {0x3C00}, {0x3C01}).bits, 0x3C00);
    EXPECT_EQ(pixel::MeanOfColors<Pix16f>({0x7BFF}, {0x7BFF}, {0x7BFF}).bits, 0x7BFE) << "limited to 65500";
}

}  // namespace
}  // namespace orvik
