// Every level of kernels against the scalar form: addresses, lengths, and runs in place. The values of the component
// table are covered over their whole range in arithmetic_test.cpp.

#include <cstdlib>
#include <gmock/gmock.h>
#include <random>

#include "level_scope.h"
#include "pixel/kernels/gfx_image_pixelformat_arithmetic.h"
#include "pixel/kernels/gfx_image_pixelformat_shuffle.h"
#include "pixel_tools.h"

namespace orvik {
namespace {

using Bytes = std::vector<std::byte>;
constexpr std::byte kCanary{0xA5};
constexpr Int kLongest = 300, kAlignments = 64;

Bytes RandomBytes(size_t count, unsigned seed) {
    std::mt19937 random(seed);
    Bytes bytes(count);
    for (std::byte& byte : bytes)
        byte = std::byte(random());
    return bytes;
}

std::vector<std::string> LevelNames() {
    std::vector<std::string> names;
    for (const pixel::KernelSet* kernels : pixel::GetKernelSets())
        names.push_back(kernels->name);
    return names;
}

TEST(Kernels, ScalarIsTheFirstLevel) {
    const std::vector<std::string> names = LevelNames();
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(names[0], "scalar");
#ifdef __x86_64__
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2")) {
        EXPECT_THAT(names, testing::Contains("avx2"));
    }
#endif
}

TEST(Kernels, UsesTheLevelOfTheEnvironment) {
    const char* const wanted = std::getenv("ORVIK_SIMD");
    if (!wanted)
        GTEST_SKIP() << "ORVIK_SIMD is not set";
    if (!testing::Value(LevelNames(), testing::Contains(wanted)))
        GTEST_SKIP() << "this machine has no level " << wanted;
    EXPECT_STREQ(pixel::GetKernels().name, wanted);
}

/// Bytes that are no NaN as half, float or double, whose payload is not fixed by the table.
Bytes FiniteBytes(size_t count, unsigned seed) {
    Bytes bytes = RandomBytes(count, seed);
    for (std::byte& byte : bytes)
        byte &= std::byte{0xBB};
    return bytes;
}

/// One cell at one level against the strided loop, and in place where the values have one width. The source ends with
/// the run, so that a sanitizer sees reads beyond it.
void CheckCell(const pixel::KernelSet& kernels, ComponentType src, ComponentType dst, Int count, Int from, Int to) {
    const Int srcBytes = GetComponentBits(src) / 8, dstBytes = GetComponentBits(dst) / 8;
    static const Bytes values = FiniteBytes(kLongest * 8 + kAlignments, 1);
    const Bytes source(values.begin(), values.begin() + from + count * srcBytes);
    Bytes expected(size_t(to + count * dstBytes) + kAlignments, kCanary), found = expected;
    pixel::GetConvertStrided(src, dst)(source.data() + from, srcBytes, expected.data() + to, dstBytes, count);
    kernels.GetRun(src, dst)(source.data() + from, found.data() + to, count);
    const auto what = [&] {
        return std::string(kernels.name) + ": " + std::string(GetComponentName(src)) + " to " +
               std::string(GetComponentName(dst)) + ", " + std::to_string(count) + " values from " +
               std::to_string(from) + " to " + std::to_string(to);
    };
    ASSERT_TRUE(found == expected) << what();
    if (srcBytes != dstBytes)
        return;
    std::fill(found.begin(), found.end(), kCanary);
    std::copy(source.begin() + from, source.end(), found.begin() + to);
    kernels.GetRun(src, dst)(found.data() + to, found.data() + to, count);
    ASSERT_TRUE(found == expected) << "in place, " << what();
}

TEST(Kernels, EveryLengthAndPlaceOfEveryCell) {
    for (const pixel::KernelSet* kernels : pixel::GetKernelSets()) {
        for (int cell = 0; cell < kComponentTypeCount * kComponentTypeCount; ++cell) {
            const auto src = ComponentType(cell / kComponentTypeCount);
            const auto dst = ComponentType(cell % kComponentTypeCount);
            for (Int count = 0; count <= kLongest; ++count)
                ASSERT_NO_FATAL_FAILURE(
                    CheckCell(*kernels, src, dst, count, count * 7 % kAlignments, count * 13 % kAlignments));
            for (Int place = 0; place < kAlignments; ++place) {
                for (const Int count : {3, 17, 70, 193})
                    ASSERT_NO_FATAL_FAILURE(
                        CheckCell(*kernels, src, dst, count, place, (place + count) * 5 % kAlignments));
            }
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
                const Int srcPixel = map.srcCount * size, dstPixel = map.dstCount * size;
                for (Int count = 0; count <= kLongest; ++count) {
                    const Int from = count * 7 % kAlignments, to = count * 13 % kAlignments;
                    // The source is exactly as long as the run, so that a sanitizer sees reads beyond it.
                    const Bytes source = RandomBytes(size_t(from + count * srcPixel), 5);
                    Bytes expected(size_t(count * dstPixel) + 2 * kAlignments, kCanary), found = expected;
                    for (Int i = 0; i < count * map.dstCount; ++i) {
                        const auto& origin = sources[i % map.dstCount];
                        const std::byte* element =
                            origin.channel < 0
                                ? origin.fill
                                : source.data() + from + i / map.dstCount * srcPixel + origin.channel * size;
                        std::copy_n(element, size, expected.data() + to + i * size);
                    }
                    shuffle.Run(source.data() + from, found.data() + to, count);
                    ASSERT_EQ(found, expected) << kernels->name << ": " << map.srcCount << " to " << map.dstCount
                                               << " channels of " << size << " bytes, " << count << " pixels";
                    if (srcPixel != dstPixel)
                        continue;
                    Bytes inPlace(found.size(), kCanary);
                    std::copy(source.begin() + from, source.end(), inPlace.begin() + to);
                    shuffle.Run(inPlace.data() + to, inPlace.data() + to, count);
                    ASSERT_EQ(inPlace, expected) << kernels->name << " in place";
                }
            }
        }
    }
}

TEST(Kernels, MeansOfExtremesAndSamples) {
    for (int index = 0; index < kComponentTypeCount; ++index) {
        const auto type = ComponentType(index);
        const Int size = GetComponentBits(type) / 8, count = 20000;
        Bytes planes[3] = {FiniteBytes(size_t(count * size), 1), FiniteBytes(size_t(count * size), 2),
                           FiniteBytes(size_t(count * size), 3)};
        for (int i = 0; i < 3 && type < ComponentType::F16; ++i) {
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
                for (Int count = 0; count <= kLongest; ++count) {
                    const Int from = count * 7 % kAlignments, to = count * 13 % kAlignments, pixel = channels * size;
                    const Bytes source = FiniteBytes(size_t(from + count * pixel), 31);
                    Bytes expected(size_t(to + count * size) + kAlignments, kCanary), found = expected;
                    const std::byte* const first = source.data() + from;
                    pixel::GetMean(ComponentType(type))(first + colors[0] * size, first + colors[1] * size,
                                                        first + colors[2] * size, pixel, expected.data() + to, size,
                                                        count);
                    mean(table, first, found.data() + to, count);
                    ASSERT_EQ(found, expected)
                        << kernels->name << ": " << type << ", " << channels << " channels, " << count << " pixels";
                }
            }
        }
        EXPECT_EQ(tested, kernels->name == std::string("avx3_dl") ? 14 : 0);
    }
}

TEST(Kernels, InfiniteAndNotANumberBetweenNumbers) {
    // Such a value sends its neighbours down another path.
    constexpr Int kCount = 130;
    const std::tuple<ComponentType, ComponentType, uint32_t> kCases[] = {
        {ComponentType::F16, ComponentType::F32, 0x7C01},     {ComponentType::F16, ComponentType::F32, 0xFE55},
        {ComponentType::F32, ComponentType::F16, 0x7F800001}, {ComponentType::F32, ComponentType::F16, 0xFFC12345},
        {ComponentType::F32, ComponentType::U8, 0x7FC00000},  {ComponentType::F32, ComponentType::S16, 0xFFC00000},
        {ComponentType::F32, ComponentType::F16, 0x7F800000}, {ComponentType::F32, ComponentType::F16, 0xFF800000},
        {ComponentType::F16, ComponentType::F32, 0xFC00},     {ComponentType::F32, ComponentType::U8, 0x7F800000},
        {ComponentType::F16, ComponentType::U16, 0x7E00},     {ComponentType::F16, ComponentType::U32, 0xFC01},
    };
    for (const pixel::KernelSet* kernels : pixel::GetKernelSets()) {
        for (const auto& [src, dst, special] : kCases) {
            const Int srcBytes = GetComponentBits(src) / 8, dstBytes = GetComponentBits(dst) / 8;
            for (Int at = 0; at < kCount; ++at) {
                Bytes source = FiniteBytes(size_t(kCount * srcBytes), 21);
                std::memcpy(source.data() + at * srcBytes, &special, size_t(srcBytes));
                Bytes expected(size_t(kCount * dstBytes)), found = expected;
                pixel::GetConvertStrided(src, dst)(source.data(), srcBytes, expected.data(), dstBytes, kCount);
                kernels->GetRun(src, dst)(source.data(), found.data(), kCount);
                ASSERT_EQ(found, expected) << kernels->name << ": " << GetComponentName(src) << " to "
                                           << GetComponentName(dst) << ", value " << at;
            }
        }
    }
}

}  // namespace
}  // namespace orvik
