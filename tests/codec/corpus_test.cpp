// Real files of many makers, compared with what independent decoders made of them.

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "format_table.h"
#include "tool_support.h"

namespace codectest {
namespace {

/// Of each file in the folder of a format: the hashes that peers gave.
std::map<std::string, std::set<std::string>> ReadExpectations(const std::filesystem::path& corpus,
                                                              std::string_view folder) {
    std::map<std::string, std::set<std::string>> all;
    std::ifstream in(corpus / "expected.tsv");
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> fields;
        std::istringstream split(line);
        for (std::string field; std::getline(split, field, '\t');)
            fields.push_back(field);
        if (fields.size() < 8 || !fields[0].starts_with(std::string(folder) + "/"))
            continue;
        std::set<std::string>& hashes = all[fields[0]];
        if (fields[7] == "ok" && fields[6].size() == 64)
            hashes.insert(fields[6]);
    }
    return all;
}

class CorpusTest : public CodecTest, public testing::WithParamInterface<std::string_view> {};

TEST_P(CorpusTest, AgreesWithPeers) {
    const TestedFormat& format = TestedFormatOf(GetParam());
    EXPECT_NE(format.fewestCompared > 0, format.whyNotCompared != nullptr);
    EXPECT_FALSE(format.makeSamples().empty());
    const std::filesystem::path corpus = std::filesystem::path(SharedDirectory()) / "corpus";
    if (!std::filesystem::exists(corpus / "expected.tsv"))
        GTEST_SKIP() << "no corpus at " << corpus;
    std::map<std::string, std::string> differences;
    for (const CorpusDifference& difference : format.differences)
        differences[difference.file] = difference.reason;

    int compared = 0, refused = 0;
    const std::string_view folder = format.corpusFolder.empty() ? format.name : format.corpusFolder;
    for (const auto& [file, hashes] : ReadExpectations(corpus, folder)) {
        SCOPED_TRACE(file);
        const Result<ImageTextureRef> loaded = Load(Url((corpus / file).string()));
        if (!loaded) {
            EXPECT_FALSE(loaded.GetError()->ToString().IsEmpty());
            if (hashes.empty())
                ++refused;
            else
                EXPECT_TRUE(differences.contains(file)) << "refused: " << loaded.GetError()->ToString().GetCString();
            continue;
        }
        const Bytes rgba = format.peersRgba ? format.peersRgba(*loaded) : RgbaOf(*loaded);  // read in any case
        if (hashes.empty())
            continue;
        const bool agrees =
            hashes.contains(Sha256(rgba)) || (format.agrees && format.agrees((corpus / file).string(), *loaded));
        EXPECT_NE(agrees, differences.contains(file)) << (agrees ? "agrees again" : "differs from all peers");
        ++compared;
    }
    EXPECT_GE(compared, format.fewestCompared);
    EXPECT_GE(refused, format.fewestRefused);
}

std::vector<std::string_view> NamesOfFormats() {
    std::vector<std::string_view> names;
    for (const FileFormatEntry& entry : GetFileFormatTable())
        names.push_back(entry.name);
    return names;
}
INSTANTIATE_TEST_SUITE_P(Formats, CorpusTest, testing::ValuesIn(NamesOfFormats()),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace codectest
