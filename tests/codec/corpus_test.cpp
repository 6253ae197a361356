// Real files of many makers, compared with what independent decoders made of them.

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "codec_support.h"
#include "tool_support.h"

namespace codectest {
namespace {

/// Pictures that lawfully differ from all peers, and why. An entry that agrees again fails the test.
struct Difference {
    const char* file;
    const char* reason;
};
const Difference kDifferences[] = {
    {"bmp/image-rs/rgba32-61754.bmp", "masks of 6, 1, 7, 5 and 4 bits: only whole bytes are read"},
    {"bmp/oiio-tests/crash-5158.bmp", "shorter than its rows"},
    {"bmp/pillow/pal8os2v2-16.bmp", "header of 16 bytes, no generation that is known here"},
    {"bmp/pillow/pal8os2v2.bmp", "header of 64 bytes, no generation that is known here"},
    {"bmp/pillow/rgb32bf.bmp", "green mask 0xFF0: only whole bytes are read"},
    {"bmp/pillow/rgb32h52.bmp", "header of 52 bytes, no generation that is known here"},
    {"png/image-png/basn0g16.png", "16 bits become 8 by a shift here, by rounding elsewhere"},
    {"png/image-png/oi4n0g16.png", "16 bits become 8 by a shift here, by rounding elsewhere"},
    {"png/image-rs/basi0g16.png", "16 bits become 8 by a shift here, by rounding elsewhere"},
    {"png/image-png/x_interlaced_chck.png", "wrong check sum of the pixel data"},
};

/// True for files whose pixels can be described, but not be converted.
bool IsOutOfScope(const std::string& message) { return message.starts_with("No pixel conversion found"); }

using Expectations = std::map<std::string, std::set<std::string>>;  ///< file to the hashes that peers gave

Expectations ReadExpectations(const std::filesystem::path& corpus) {
    Expectations all;
    std::ifstream in(corpus / "expected.tsv");
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> fields;
        std::istringstream split(line);
        for (std::string field; std::getline(split, field, '\t');)
            fields.push_back(field);
        if (fields.size() < 8)
            continue;
        std::set<std::string>& hashes = all[fields[0]];
        if (fields[7] == "ok" && fields[6].size() == 64)
            hashes.insert(fields[6]);
    }
    return all;
}

TEST_F(CodecTest, CorpusAgreesWithPeers) {
    const std::filesystem::path corpus = std::filesystem::path(SharedDirectory()) / "corpus";
    if (!std::filesystem::exists(corpus / "expected.tsv"))
        GTEST_SKIP() << "no corpus at " << corpus;
    std::map<std::string, std::string> differences;
    for (const Difference& difference : kDifferences)
        differences[difference.file] = difference.reason;

    int compared = 0, refused = 0;
    for (const auto& [file, hashes] : ReadExpectations(corpus)) {
        const std::string folder = file.substr(0, file.find('/'));
        if (folder != "bmp" && folder != "png")
            continue;
        SCOPED_TRACE(file);
        const Result<ImageTextureRef> loaded = Load(Url((corpus / file).string()));
        if (!loaded) {
            if (IsOutOfScope(MessageOf(loaded)))
                continue;
            if (hashes.empty())
                ++refused;
            else
                EXPECT_TRUE(differences.contains(file)) << "refused: " << loaded.GetError()->ToString().GetCString();
            continue;
        }
        if (hashes.empty())
            continue;
        const bool agrees = hashes.contains(Sha256(RgbaOf(*loaded)));
        EXPECT_NE(agrees, differences.contains(file)) << (agrees ? "agrees again" : "differs from all peers");
        ++compared;
    }
    EXPECT_GT(compared, 90);
    EXPECT_GT(refused, 5);
}

}  // namespace
}  // namespace codectest
