// Shared chroma, both ways.

#include <array>
#include <gmock/gmock.h>

#include "slow_special.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<uint8_t>;

class SpecialYuvTest : public ModuleFixture {};

TEST_F(SpecialYuvTest, EveryChromaDecodes) {
    Bytes pairs, wanted;
    for (int u = 0; u < 256; ++u) {
        for (int v = 0; v < 256; ++v) {
            for (int y = 0; y < 256; y += 17) {
                const int second = (y + u + v) & 255;
                for (const int byte : {y, u, second, v})
                    pairs.push_back(static_cast<uint8_t>(byte));
                for (const int luma : {y, second}) {
                    const slow::Channels colors = slow::DecodeYuv(luma, u, v);
                    for (const std::string& name : slow::kColorNames)
                        wanted.push_back(static_cast<uint8_t>(colors.at(name).raw));
                }
            }
        }
    }
    EXPECT_EQ(ConvertBytes(FormatOf("rgb.u8"), FormatOf("yuv.i422a"), pairs.data(), Int(pairs.size()) / 2), wanted);
}

TEST_F(SpecialYuvTest, EveryColorEncodes) {
    Bytes colors, wanted;
    for (int r = 0; r < 256; ++r) {
        for (int g = 0; g < 256; ++g) {
            for (int b = 0; b < 256; b += 17) {
                const int next = (r + g + b) & 255;
                for (const int byte : {r, g, b, b, next, r})
                    colors.push_back(static_cast<uint8_t>(byte));
                const auto first = slow::EncodeYuv(r, g, b), second = slow::EncodeYuv(b, next, r);
                for (const uint8_t byte : {first[1], first[0], first[2], second[0]})
                    wanted.push_back(byte);
            }
        }
    }
    EXPECT_EQ(ConvertBytes(FormatOf("yuv.i422b"), FormatOf("rgb.u8"), colors.data(), Int(colors.size()) / 3), wanted);
}

TEST_F(SpecialYuvTest, KnownPairs) {
    const struct {
        const char* src;
        Bytes in;
        const char* dst;
        Bytes out;
    } kCases[] = {
        {"yuv.i422a", {16, 128, 235, 128}, "rgb.u8", {0, 0, 0, 255, 255, 255}},
        {"yuv.i422b", {128, 16, 128, 235}, "rgb.u8", {0, 0, 0, 255, 255, 255}},
        {"yuv.i422a", {16, 128, 235, 128}, "xrgb.u8", {0, 0, 0, 0, 0, 255, 255, 255}},
        {"yuv.i422a", {16, 128, 235, 128}, "bgra.u8", {0, 0, 0, 255, 255, 255, 255, 255}},
        {"rgb.u8", {255, 0, 0, 0, 0, 255}, "yuv.i422a", {82, 90, 41, 240}},
        {"rgb.u8", {255, 0, 0, 0, 0, 255}, "yuv.i422b", {90, 82, 240, 41}},
        {"rgb.u16", {0xFF, 0, 0xFF, 0, 0xFF, 0, 0, 1, 0, 1, 0, 1}, "yuv.i422a", {16, 128, 17, 128}},
        {"yuv.i422a", {16, 128, 235, 128}, "yuv.i422b", {128, 16, 128, 235}},  // through RGB
    };
    for (const auto& entry : kCases)
        EXPECT_EQ(ConvertBytes(FormatOf(entry.dst), FormatOf(entry.src), entry.in.data(), 2), entry.out)
            << entry.src << " to " << entry.dst;
}

TEST_F(SpecialYuvTest, OddCountsFail) {
    const PixelFormat yuv = FormatOf("yuv.i422a");
    for (const char* name : {"rgb.u8", "bgrx.u8", "rgb.f64", "rgba.f32", "grey.u8", "yuv.i422b"}) {
        const PixelFormat other = FormatOf(name);
        Bytes from(512), to(512 * 16);
        const Result<ConvertPixelFunc> in = FindConversion(yuv, other), out = FindConversion(other, yuv);
        ASSERT_TRUE(in && out) << name;
        for (const Int count : {Int(1), Int(3), Int(7)}) {
            const PixelLine source{from.data(), yuv->GetBitsPerPixel(), 0};
            const PixelLine target{to.data(), other->GetBitsPerPixel(), 0};
            const Result<void> decoded = (*out)(target, count, source, CONVERTPIXELFLAGS::NONE);
            const Result<void> encoded = (*in)(source, count, target, CONVERTPIXELFLAGS::NONE);
            EXPECT_EQ(MessageOf(decoded), "YUV needs an even number of pixels to convert.") << name;
            EXPECT_EQ(MessageOf(encoded), "YUV needs an even number of pixels to convert.") << name;
        }
        EXPECT_TRUE((*in)({nullptr, BITS(16), 0}, 0, {nullptr, BITS(16), 0}, CONVERTPIXELFLAGS::NONE));
        EXPECT_TRUE((*out)({nullptr, BITS(16), 0}, -1, {nullptr, BITS(16), 0}, CONVERTPIXELFLAGS::NONE));
    }
}

TEST_F(SpecialYuvTest, TheOtherVariantIsNoPartner) {
    const PixelFormat a = FormatOf("yuv.i422a"), b = FormatOf("yuv.i422b");
    EXPECT_EQ(MessageOf(a->GetConvertPixelFromFunc(b, b->GetChannelOffsets(), a->GetChannelOffsets(), true)),
              "YUV unsupported");
    EXPECT_EQ(MessageOf(a->GetConvertPixelToFunc(b, a->GetChannelOffsets(), b->GetChannelOffsets(), true)),
              "YUV unsupported");
}

TEST_F(SpecialYuvTest, PairsFollowTheStride) {
    const PixelFormat yuv = FormatOf("yuv.i422a"), rgb = FormatOf("rgb.u8");
    constexpr Int kCount = 600;
    Bytes dense(kCount * 2), spread(kCount * 3, 0xEE);
    std::mt19937 random(2);
    for (size_t i = 0; i < dense.size(); ++i)
        dense[i] = static_cast<uint8_t>(random());
    for (size_t pair = 0; pair < kCount / 2; ++pair)
        std::memcpy(&spread[pair * 6], &dense[pair * 4], 4);
    const Bytes wanted = ConvertBytes(rgb, yuv, dense.data(), kCount);
    Bytes colors(kCount * 3);
    const Result<ConvertPixelFunc> decode = FindConversion(rgb, yuv), encode = FindConversion(yuv, rgb);
    ASSERT_TRUE(decode && encode);
    ASSERT_TRUE((*decode)({colors.data() + 3 * (kCount - 1), BITS(-24), 0}, kCount, {spread.data(), BITS(24), 0},
                          CONVERTPIXELFLAGS::NONE));
    for (size_t i = 0; i < kCount; ++i)
        ASSERT_EQ(0, std::memcmp(&colors[3 * (kCount - 1 - i)], &wanted[3 * i], 3)) << i;
    const Bytes encoded = ConvertBytes(yuv, rgb, wanted.data(), kCount);
    Bytes target(kCount * 3, 0xCD), expected = target;
    for (size_t pair = 0; pair < kCount / 2; ++pair)
        std::memcpy(&expected[pair * 6], &encoded[pair * 4], 4);
    ASSERT_TRUE((*encode)({target.data(), BITS(24), 0}, kCount, {wanted.data(), BITS(24), 0}, CONVERTPIXELFLAGS::NONE));
    EXPECT_EQ(target, expected);
}

}  // namespace
}  // namespace orvik
