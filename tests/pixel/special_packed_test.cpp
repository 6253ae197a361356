// Packed words: every word of every format into its partners and back.

#include <numeric>

#include "slow_special.h"

namespace orvik {
namespace {

using Bytes = std::vector<uint8_t>;

class SpecialPackedTest : public ModuleFixture {
protected:
    static Bytes BytesOf(const std::vector<uint16_t>& words) {
        Bytes bytes(words.size() * 2);
        std::memcpy(bytes.data(), words.data(), bytes.size());
        return bytes;
    }
};

const char* const kPartners[] = {"rgb.u8",  "argb.u8",  "rgb.u16", "argb.u16",
                                 "rgb.f32", "argb.f32", "rgb.f64", "argb.f64"};

TEST_F(SpecialPackedTest, EveryWordThereAndBack) {
    std::vector<uint16_t> words(65536);
    std::iota(words.begin(), words.end(), uint16_t(0));
    for (const auto& [name, bits] : slow::kPackedBits) {
        const PixelFormat packed = FormatOf(name);
        std::map<std::string, Bytes> expanded;  // by channel, for each word
        for (const uint16_t word : words) {
            for (const auto& [channel, component] : slow::ExpandWord(word, bits))
                expanded[channel].push_back(uint8_t(component.raw));
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
                const auto bit = uint16_t(0x8000 >> i);
                if (bits[i] == 'A' && partner.Find("alpha") < 0)
                    set = uint16_t(set | bit);
                else if (bits[i] != 'x')
                    kept = uint16_t(kept | bit);
            }
            std::vector<uint16_t> back;
            for (const uint16_t word : words)
                back.push_back(uint16_t((word & kept) | set));
            ASSERT_EQ(ConvertBytes(partner.format, packed, words.data(), 65536), wanted)
                << name << " to " << partnerName;
            ASSERT_EQ(ConvertBytes(packed, partner.format, wanted.data(), 65536), BytesOf(back))
                << partnerName << " to " << name;
        }
    }
}

}  // namespace
}  // namespace orvik
