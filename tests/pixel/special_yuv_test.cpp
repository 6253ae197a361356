// Shared chroma, both ways.

#include "slow_special.h"

namespace orvik {
namespace {

using Bytes = std::vector<uint8_t>;

class SpecialYuvTest : public ModuleFixture {};

TEST_F(SpecialYuvTest, EveryChromaDecodes) {
    Bytes pairs, wanted;
    for (int u = 0; u < 256; ++u) {
        for (int v = 0; v < 256; ++v) {
            for (int y = 0; y < 256; y += 17) {
                const int second = (y + u + v) & 255;
                for (const int byte : {y, u, second, v})
                    pairs.push_back(uint8_t(byte));
                for (const int luma : {y, second}) {
                    const slow::Channels colors = slow::DecodeYuv(luma, u, v);
                    for (const std::string& name : slow::kColorNames)
                        wanted.push_back(uint8_t(colors.at(name).raw));
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
                    colors.push_back(uint8_t(byte));
                const auto first = slow::EncodeYuv(r, g, b), second = slow::EncodeYuv(b, next, r);
                for (const uint8_t byte : {first[1], first[0], first[2], second[0]})
                    wanted.push_back(byte);
            }
        }
    }
    EXPECT_EQ(ConvertBytes(FormatOf("yuv.i422b"), FormatOf("rgb.u8"), colors.data(), Int(colors.size()) / 3), wanted);
}

TEST_F(SpecialYuvTest, OddCountsFail) {
    const PixelFormat yuv = FormatOf("yuv.i422a");
    for (const char* name : {"rgb.u8", "bgrx.u8", "rgb.f64", "rgba.f32", "grey.u8", "yuv.i422b", "yuv.i422a"}) {
        const PixelFormat other = FormatOf(name);
        Bytes from(512), to(512 * 16);
        const Result<ConvertPixelFunc> in = FindConversion(yuv, other), out = FindConversion(other, yuv);
        ASSERT_TRUE(in && out) << name;
        for (const Int count : {Int(1), Int(3), Int(7)}) {
            const PixelLine source{from.data(), yuv->GetBitsPerPixel()};
            const PixelLine target{to.data(), other->GetBitsPerPixel()};
            const Result<void> decoded = (*out)(target, count, source, {});
            const Result<void> encoded = (*in)(source, count, target, {});
            EXPECT_EQ(MessageOf(decoded), "YUV needs an even number of pixels to convert.") << name;
            EXPECT_EQ(MessageOf(encoded), "YUV needs an even number of pixels to convert.") << name;
        }
        EXPECT_TRUE((*in)({nullptr, BITS(16)}, 0, {nullptr, BITS(16)}, {}));
        EXPECT_TRUE((*out)({nullptr, BITS(16)}, -1, {nullptr, BITS(16)}, {}));
    }
}

TEST_F(SpecialYuvTest, TheOtherVariantIsNoPartner) {
    const PixelFormat a = FormatOf("yuv.i422a"), b = FormatOf("yuv.i422b");
    EXPECT_EQ(MessageOf(a->GetConvertPixelFromFunc(b, b->GetChannelOffsets(), a->GetChannelOffsets(), true)),
              "YUV unsupported");
    EXPECT_EQ(MessageOf(a->GetConvertPixelToFunc(b, a->GetChannelOffsets(), b->GetChannelOffsets(), true)),
              "YUV unsupported");
}

}  // namespace
}  // namespace orvik
