// Every level of kernels against the scalar form: places, lengths and runs in place. The values of the component table
// are covered over their whole range in arithmetic_test.cpp.

#include <gmock/gmock.h>
#include <random>

#include "gfx_image_pixelformat_arithmetic.h"
#include "gfx_image_pixelformat_shuffle.h"
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
        byte = static_cast<std::byte>(random());
    return bytes;
}

std::vector<std::string> LevelNames() {
    std::vector<std::string> names;
    for (const pixel::KernelSet* kernels : pixel::GetKernelSets())
        names.push_back(kernels->name);
    return names;
}

/// Makes conversions use one level while it lives.
class LevelScope {
public:
    explicit LevelScope(const pixel::KernelSet& kernels) : _before(pixel::GetKernels()) { pixel::SetKernels(kernels); }
    ~LevelScope() { pixel::SetKernels(_before); }
    LevelScope(const LevelScope&) = delete;
    LevelScope& operator=(const LevelScope&) = delete;

private:
    const pixel::KernelSet& _before;
};

TEST(Kernels, PlainLoopsAreTheFirstLevel) {
    const std::vector<std::string> names = LevelNames();
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(names[0], "scalar");
#ifdef __x86_64__
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2")) {
        EXPECT_THAT(names, testing::Contains("avx2"));
    }
#endif
}

/// Bytes that are no NaN as half, float or double, whose payload is not fixed by the table.
Bytes FiniteBytes(size_t count, unsigned seed) {
    Bytes bytes = RandomBytes(count, seed);
    for (std::byte& byte : bytes)
        byte &= std::byte{0xBB};
    return bytes;
}

TEST(Kernels, EveryLengthAndPlaceOfEveryCell) {
    const Bytes source = FiniteBytes(kLongest * 8 + kAlignments, 1);
    for (const pixel::KernelSet* kernels : pixel::GetKernelSets()) {
        for (int cell = 0; cell < kComponentTypeCount * kComponentTypeCount; ++cell) {
            const auto src = static_cast<ComponentType>(cell / kComponentTypeCount);
            const auto dst = static_cast<ComponentType>(cell % kComponentTypeCount);
            const Int srcBytes = GetComponentBits(src) / 8, dstBytes = GetComponentBits(dst) / 8;
            for (Int count = 0; count <= kLongest; ++count) {
                const Int from = count * 7 % kAlignments, to = count * 13 % kAlignments;  // each place with some length
                Bytes expected(static_cast<size_t>(count * dstBytes) + 2 * kAlignments, kCanary), found = expected;
                pixel::GetConvertStrided(src, dst)(source.data() + from, srcBytes, expected.data() + to, dstBytes,
                                                   count);
                kernels->GetRun(src, dst)(source.data() + from, found.data() + to, count);
                ASSERT_EQ(found, expected) << kernels->name << ": " << GetComponentName(src) << " to "
                                           << GetComponentName(dst) << ", " << count << " values";
                if (srcBytes != dstBytes)
                    continue;
                Bytes inPlace(static_cast<size_t>(count * dstBytes) + 2 * kAlignments, kCanary);
                std::copy_n(source.begin() + from, count * srcBytes, inPlace.begin() + to);
                kernels->GetRun(src, dst)(inPlace.data() + to, inPlace.data() + to, count);
                ASSERT_EQ(inPlace, expected) << kernels->name << " in place: " << GetComponentName(src) << " to "
                                             << GetComponentName(dst) << ", " << count << " values";
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
                    sources[d].channel = static_cast<int8_t>(map.channels[static_cast<size_t>(d)]);
                    for (int i = 0; i < 8; ++i)
                        sources[d].fill[i] = static_cast<std::byte>(0xF0 + i);
                }
                pixel::PixelShuffle shuffle;
                shuffle.Init(*kernels, map.srcCount, map.dstCount, sources, size);
                const Int srcPixel = map.srcCount * size, dstPixel = map.dstCount * size;
                for (Int count = 0; count <= kLongest; ++count) {
                    const Int from = count * 7 % kAlignments, to = count * 13 % kAlignments;
                    // The source is exactly as long as the run, so that a sanitizer sees reads beyond it.
                    const Bytes source = RandomBytes(static_cast<size_t>(from + count * srcPixel), 5);
                    Bytes expected(static_cast<size_t>(count * dstPixel) + 2 * kAlignments, kCanary), found = expected;
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
    for (const ComponentType type :
         {ComponentType::U8, ComponentType::S8, ComponentType::U16, ComponentType::S16, ComponentType::U32,
          ComponentType::S32, ComponentType::F16, ComponentType::F32, ComponentType::F64}) {
        const Int size = GetComponentBits(type) / 8, count = 20000;
        Bytes planes[3] = {FiniteBytes(static_cast<size_t>(count * size), 1),
                           FiniteBytes(static_cast<size_t>(count * size), 2),
                           FiniteBytes(static_cast<size_t>(count * size), 3)};
        for (int i = 0; i < 3 && type < ComponentType::F16; ++i) {
            planes[i] = RandomBytes(planes[i].size(), static_cast<unsigned>(i) + 11);
            for (Int at = 0; at < 64; ++at) {  // 0, the largest, the smallest, -1 and their neighbours, in all triples
                const int which = static_cast<int>(at >> (2 * i)) & 3;
                for (Int byte = 0; byte < size; ++byte) {
                    const bool top = byte == size - 1;
                    const int values[] = {0, 0xFF, top ? 0x80 : 0, top ? 0x7F : 0xFF};
                    planes[i][static_cast<size_t>(at * size + byte)] = static_cast<std::byte>(values[which]);
                }
            }
        }
        Bytes expected(planes[0].size()), found(planes[0].size());
        pixel::GetMean(type)(planes[0].data(), planes[1].data(), planes[2].data(), size, expected.data(), size, count);
        for (const pixel::KernelSet* kernels : pixel::GetKernelSets()) {
            kernels->mean[static_cast<int>(type)](planes[0].data(), planes[1].data(), planes[2].data(), found.data(),
                                                  count);
            EXPECT_TRUE(found == expected) << kernels->name << ": " << GetComponentName(type);
        }
    }
}

TEST(Kernels, AllLevelsConvertFormatsToTheSameBytes) {
    const char* const kNames[] = {"rgb.u8",   "bgr.u8",   "rgba.u8",  "bgra.u8",   "argb.u8",  "xrgb.u8",   "grey.u8",
                                  "greya.u8", "agrey.u8", "alpha.u8", "rgb.u16",   "rgba.u16", "agrey.u16", "rgb.u32",
                                  "rgba.s32", "rgb.f16",  "rgba.f16", "greya.f16", "rgb.f32",  "rgba.f32",  "bgra.f32",
                                  "grey.f32", "rgb.f64",  "rgba.f64", "agrey.f64"};
    const Bytes source = FiniteBytes(3000 * 32, 9);
    const auto convertAll = [&] {
        std::vector<Bytes> results;
        for (const char* src : kNames) {
            for (const char* dst : kNames) {
                const PixelFormat from = FormatOf(src), to = FormatOf(dst);
                const Result<ConvertPixelFunc> convert = FindConversion(to, from);
                EXPECT_TRUE(convert) << src << " to " << dst;
                for (const Int count : {1, 5, 63, 64, 65, 300, 3000}) {
                    Bytes out(static_cast<size_t>(to->GetBytesPerLine(count)) + 64, kCanary);
                    EXPECT_TRUE((*convert)({out.data(), to->GetBitsPerPixel(), 0}, count,
                                           {source.data(), from->GetBitsPerPixel(), 0}, CONVERTPIXELFLAGS::NONE));
                    results.push_back(std::move(out));
                }
            }
        }
        return results;
    };
    std::vector<Bytes> expected;
    for (const pixel::KernelSet* kernels : pixel::GetKernelSets()) {
        const LevelScope level(*kernels);
        Publisher publisher;  // formats remember their conversions, so each level starts anew
        ASSERT_TRUE(StartImageModule(publisher));
        std::vector<Bytes> results = convertAll();
        if (expected.empty())
            expected = std::move(results);
        else
            EXPECT_TRUE(results == expected) << kernels->name;
    }
}

}  // namespace
}  // namespace orvik
