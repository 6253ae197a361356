// Packed words: every word of every format into its partners and back.

#include <gmock/gmock.h>

#include "slow_special.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<uint8_t>;

class SpecialPackedTest : public ModuleFixture {
protected:
    /// All words, each once.
    static std::vector<uint16_t> AllWords() {
        std::vector<uint16_t> words(65536);
        for (size_t i = 0; i < words.size(); ++i)
            words[i] = static_cast<uint16_t>(i);
        return words;
    }
    static Bytes BytesOf(const std::vector<uint16_t>& words) {
        Bytes bytes(words.size() * 2);
        std::memcpy(bytes.data(), words.data(), bytes.size());
        return bytes;
    }
};

const char* const kPartners[] = {"rgb.u8",  "argb.u8",  "rgb.u16", "argb.u16",
                                 "rgb.f32", "argb.f32", "rgb.f64", "argb.f64"};

TEST_F(SpecialPackedTest, EveryWordThereAndBack) {
    const std::vector<uint16_t> words = AllWords();
    for (const auto& [name, bits] : slow::kPackedBits) {
        const PixelFormat packed = FormatOf(name);
        std::map<std::string, Bytes> expanded;  // by channel, for each word
        for (const uint16_t word : words) {
            for (const auto& [channel, component] : slow::ExpandWord(word, bits))
                expanded[channel].push_back(static_cast<uint8_t>(component.raw));
        }
        if (expanded.count("alpha") == 0)
            expanded["alpha"] = Bytes(words.size(), 255);
        for (const char* partnerName : kPartners) {
            const SlowFormat partner = Describe(FormatOf(partnerName));
            uint64_t ofByte[256];
            for (uint64_t byte = 0; byte < 256; ++byte)
                ofByte[byte] = slow::Convert(ComponentType::U8, partner.component, byte);
            const size_t size = partner.GetPixelBytes();
            Bytes wanted(words.size() * size);
            for (size_t c = 0; c < partner.types.size(); ++c) {
                const Bytes& channel = expanded.at(partner.types[c]);
                for (const uint16_t word : words)
                    std::memcpy(&wanted[word * size + c * partner.size], &ofByte[channel[word]], partner.size);
            }
            // What an RGB format drops is opaque when it comes back; unused bits come back as 0.
            uint16_t kept = 0, set = 0;
            for (size_t i = 0; i < 16; ++i) {
                const auto bit = static_cast<uint16_t>(0x8000 >> i);
                if (bits[i] == 'A' && partner.Find("alpha") < 0)
                    set = static_cast<uint16_t>(set | bit);
                else if (bits[i] != 'x')
                    kept = static_cast<uint16_t>(kept | bit);
            }
            std::vector<uint16_t> back;
            for (const uint16_t word : words)
                back.push_back(static_cast<uint16_t>((word & kept) | set));
            ASSERT_EQ(ConvertBytes(partner.format, packed, words.data(), 65536), wanted)
                << name << " to " << partnerName;
            ASSERT_EQ(ConvertBytes(packed, partner.format, wanted.data(), 65536), BytesOf(back))
                << partnerName << " to " << name;
        }
    }
}

TEST_F(SpecialPackedTest, AnyValueBecomesAWord) {
    std::mt19937_64 random(5);
    constexpr Int kCount = 3000;
    for (const char* partnerName : kPartners) {
        const SlowFormat partner = Describe(FormatOf(partnerName));
        const size_t size = partner.GetPixelBytes();
        Bytes pixels(kCount * size);
        for (size_t i = 0; i < kCount; ++i) {
            SlowPixel pixel;
            for (const ComponentType type : partner.components)
                pixel.push_back(RandomComponent(type, random));
            StorePixel(partner, pixel, &pixels[i * size]);
        }
        for (const auto& [name, bits] : slow::kPackedBits) {
            std::vector<uint16_t> wanted;
            for (size_t i = 0; i < kCount; ++i)
                wanted.push_back(
                    slow::CompressWord(slow::NameChannels(partner, LoadPixel(partner, &pixels[i * size])), bits));
            ASSERT_EQ(ConvertBytes(FormatOf(name), partner.format, pixels.data(), kCount), BytesOf(wanted))
                << partnerName << " to " << name;
        }
    }
}

TEST_F(SpecialPackedTest, KnownWords) {
    const struct {
        const char* src;
        Bytes in;
        const char* dst;
        Bytes out;
    } kCases[] = {
        {"rgb.u565", {0xFF, 0xFF}, "rgb.u8", {248, 252, 248}},
        {"argb.u4444", {0x00, 0xF0}, "argb.u8", {255, 0, 0, 0}},
        {"argb.u4444", {0x12, 0x3F}, "argb.u8", {0x33, 255, 0x11, 0x22}},
        {"rgb.u444", {0x00, 0x0F}, "rgb.u8", {240, 0, 0}},
        {"bgr.u565", {0x1F, 0x00}, "rgb.u8", {248, 0, 0}},
        {"argb.u1555", {0x00, 0x80}, "argb.u8", {255, 0, 0, 0}},
        {"argb.u8", {127, 255, 255, 255}, "argb.u1555", {0xFF, 0x7F}},
        {"argb.u8", {128, 7, 7, 7}, "argb.u1555", {0x00, 0x80}},
        {"rgb.u8", {7, 3, 7}, "rgb.u565", {0, 0}},
        {"rgb.u555", {0xFF, 0xFF}, "argb.u1555", {0xFF, 0xFF}},
        {"argb.u1555", {0xFF, 0x7F}, "rgb.u555", {0xFF, 0x7F}},
        {"rgb.u565", {0xFF, 0xFF}, "bgra.u8", {248, 252, 248, 255}},
        {"rgb.u565", {0xFF, 0xFF}, "grey.u8", {249}},
        {"rgb.u565", {0x00, 0xF8}, "bgr.u565", {0x1F, 0x00}},
    };
    for (const auto& entry : kCases)
        EXPECT_EQ(ConvertBytes(FormatOf(entry.dst), FormatOf(entry.src), entry.in.data(), 1), entry.out)
            << entry.src << " to " << entry.dst;
}

TEST_F(SpecialPackedTest, LinesMayLieAnywhere) {
    // Blocks end at 256 pixels; odd addresses and gaps on both sides, channels in planes, backwards.
    const PixelFormat packed = FormatOf("argb.u4444"), partner = FormatOf("argb.u16");
    for (const Int count : {Int(0), Int(1), Int(255), Int(256), Int(257), Int(600)}) {
        Bytes words(static_cast<size_t>(count) * 3 + 8, 0xEE);
        const size_t plane = static_cast<size_t>(count) * 2;
        Bytes wanted(4 * plane + 1, 0xCD);
        for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
            const auto word = static_cast<uint16_t>(i * 7919);
            std::memcpy(&words[1 + i * 3], &word, 2);
            const size_t last = static_cast<size_t>(count) - 1 - i;
            for (size_t c = 0; c < 4; ++c) {  // alpha, red, green, blue: from the highest bits
                const uint8_t byte = static_cast<uint8_t>((word >> (12 - 4 * c) & 15) * 17);
                wanted[1 + c * plane + last * 2] = wanted[1 + c * plane + last * 2 + 1] = byte;
            }
        }
        std::vector<BITS> offsets;
        for (Int c = 0; c < 4; ++c)
            offsets.push_back(BITS(c * static_cast<Int>(plane) * 8));
        offsets.push_back(BITS(16));
        const Result<ConvertPixelFunc> expand = FindConversion(partner, packed, offsets, packed->GetChannelOffsets());
        const Result<ConvertPixelFunc> compress = FindConversion(packed, partner, packed->GetChannelOffsets(), offsets);
        ASSERT_TRUE(expand && compress);
        Bytes planes(wanted.size(), 0xCD);
        uint8_t* last = planes.data() + 1 + (count - 1) * 2;
        ASSERT_TRUE((*expand)({last, BITS(-16), 0}, count, {words.data() + 1, BITS(24), 0}, CONVERTPIXELFLAGS::NONE));
        EXPECT_EQ(planes, wanted) << count;
        Bytes back(words.size(), 0xEE);
        ASSERT_TRUE((*compress)({back.data() + 1, BITS(24), 0}, count, {last, BITS(-16), 0}, CONVERTPIXELFLAGS::NONE));
        EXPECT_EQ(back, words) << count;
    }
    EXPECT_FALSE(FindConversion(partner, packed, {}, packed->GetChannelOffsets())) << "offsets are missing";
}

}  // namespace
}  // namespace orvik
