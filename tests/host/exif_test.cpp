// The host's Exif service, by blocks made by hand and by what other programs read in the same files.

#include "orvik/exif.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

#include "orvik/gfx_image.h"
#include "orvik/host.h"

namespace orvik {
namespace {

using Bytes = std::vector<uint8_t>;

/// A directory of an Exif block as a test puts it together, in little-endian order.
struct Entry {
    uint16_t tag, type;
    uint32_t count;
    Bytes value;
};

void Put(Bytes& bytes, uint64_t value, int count) {
    for (int i = 0; i < count; ++i)
        bytes.push_back(uint8_t(value >> (8 * i)));
}

void PutDirectory(Bytes& block, const std::vector<Entry>& entries) {
    const size_t dataStart = block.size() + 2 + 12 * entries.size() + 4;
    Bytes data;
    Put(block, entries.size(), 2);
    for (const Entry& entry : entries) {
        Put(block, entry.tag, 2);
        Put(block, entry.type, 2);
        Put(block, entry.count, 4);
        if (entry.value.size() <= 4) {
            Bytes value = entry.value;
            value.resize(4);
            block.insert(block.end(), value.begin(), value.end());
        } else {
            Put(block, dataStart + data.size(), 4);
            data.insert(data.end(), entry.value.begin(), entry.value.end());
        }
    }
    Put(block, 0, 4);
    block.insert(block.end(), data.begin(), data.end());
}

Bytes Text(std::string_view text) { return Bytes(text.begin(), text.end()); }
Bytes Words(std::initializer_list<uint32_t> values, int size) {
    Bytes bytes;
    for (const uint32_t value : values)
        Put(bytes, value, size);
    return bytes;
}

/// The picture's directory, then those of exposure and place, to which its last two entries lead.
Bytes MakeBlock(std::vector<Entry> picture, const std::vector<Entry>& exposure, const std::vector<Entry>& place) {
    Bytes block = {'I', 'I', 42, 0, 8, 0, 0, 0};
    size_t link = block.size() + 2 + 12 * picture.size() + 8;
    picture.push_back({0x8769, 4, 1, Words({0}, 4)});
    picture.push_back({0x8825, 4, 1, Words({0}, 4)});
    PutDirectory(block, picture);
    for (const std::vector<Entry>& directory : {exposure, place}) {
        const Bytes position = Words({uint32_t(block.size())}, 4);
        std::copy(position.begin(), position.end(), block.begin() + long(link));
        PutDirectory(block, directory);
        link += 12;
    }
    return block;
}

class ExifTest : public testing::Test {
protected:
    void SetUp() override {
        Result<Host> host = Host::Start();
        ASSERT_TRUE(host) << host.GetError()->ToString().GetText();
        _host = std::make_unique<Host>(std::move(*host));
        service = FindPublished<ExifStaticInterface>(ExifStaticInterface::kInterfaceId);
        ASSERT_TRUE(service);
    }
    void TearDown() override { service = nullptr; }

    Result<ExifRef> Open(const Bytes& block) {
        return service->OpenFromMemory(std::as_bytes(Block<const uint8_t>(block)));
    }
    /// Every entry with its value as text.
    static std::map<std::string, std::string> ToMap(const ExifRef& exif) {
        std::map<std::string, std::string> all;
        exif->GetExifDictionary()->ForEach(
            [&](const Id& id, const Data& data) { all.emplace(id.GetText(), std::string(data.ToString().GetText())); });
        return all;
    }

    Ref<ExifStaticInterface> service;

private:
    std::unique_ptr<Host> _host;
};

TEST_F(ExifTest, EntriesByNameAndKind) {
    const Bytes block =
        MakeBlock({{0x010F, 2, 6, Text(std::string_view("Maker\0", 6))},
                   {0x0110, 2, 5, {'M', 0xE9, ' ', ' ', 0}},  // Latin-1, with blanks behind
                   {0x0112, 3, 1, Words({6}, 2)},
                   {0x011A, 5, 1, Words({720, 10}, 4)},
                   {0x0102, 3, 3, Words({8, 8, 9}, 2)}},
                  {{0x829A, 5, 1, Words({1, 250}, 4)},
                   {0x829D, 5, 1, Words({28, 0}, 4)},  // over 0: nothing
                   {0x9204, 10, 1, Words({uint32_t(-2), 3}, 4)},
                   {0x9000, 7, 4, Text("0230")},
                   {0x9101, 7, 4, {1, 2, 3, 0}},
                   {0x9286, 7, 13, Text(std::string_view("ASCII\0\0\0hello", 13))},
                   {0xA001, 3, 1, Words({1}, 2)},
                   {0xA300, 7, 1, {3}}},
                  {{0x0001, 2, 2, Text(std::string_view("N\0", 2))}, {0x0002, 5, 3, Words({52, 1, 30, 1, 25, 2}, 4)}});
    Bytes signedBlock = Text(std::string_view("Exif\0\0", 6));
    signedBlock.insert(signedBlock.end(), block.begin(), block.end());
    for (const Bytes& form : {block, signedBlock}) {
        const Result<ExifRef> exif = Open(form);
        ASSERT_TRUE(exif);
        const DataDictionary dictionary = *(*exif)->GetExifDictionary();
        EXPECT_EQ(*dictionary.Get(Key<String>("Make")), "Maker");
        EXPECT_EQ(*dictionary.Get(Key<String>("Model")), "M\xC3\xA9");
        EXPECT_EQ(*dictionary.Get(Key<Int>("Orientation")), 6);
        EXPECT_EQ(*dictionary.Get(Key<Float>("XResolution")), 72.0);
        EXPECT_EQ(*dictionary.Get(Key<String>("BitsPerSample")), "8 8 9");
        EXPECT_EQ(*dictionary.Get(Key<Float>("ExposureTime")), 0.004);
        EXPECT_FALSE(dictionary.Contains("FNumber"));
        EXPECT_DOUBLE_EQ(*dictionary.Get(Key<Float>("ExposureBiasValue")), -2.0 / 3);
        EXPECT_EQ(*dictionary.Get(Key<String>("ExifVersion")), "0230");
        EXPECT_EQ(*dictionary.Get(Key<String>("ComponentsConfiguration")), "1 2 3 0");
        EXPECT_EQ(*dictionary.Get(Key<String>("UserComment")), "hello");
        EXPECT_EQ(*dictionary.Get(Key<Int>("ColorSpace")), 1);
        EXPECT_EQ(*dictionary.Get(Key<Int>("FileSource")), 3);
        EXPECT_EQ(*dictionary.Get(Key<String>("GPSLatitudeRef")), "N");
        EXPECT_EQ(*dictionary.Get(Key<String>("GPSLatitude")), "52 30 12.5");
    }
}

TEST_F(ExifTest, DamagedBlocksGiveWhatIsThere) {
    const Bytes block =
        MakeBlock({{0x010F, 2, 6, Text(std::string_view("Maker\0", 6))}, {0x0112, 3, 1, Words({6}, 2)}},
                  {{0x829A, 5, 1, Words({1, 250}, 4)}}, {{0x0002, 5, 3, Words({52, 1, 30, 1, 25, 2}, 4)}});
    EXPECT_FALSE(Open({}));
    size_t entries = 0;
    for (size_t length = 1; length <= block.size(); ++length) {
        const Result<ExifRef> exif = Open(Bytes(block.begin(), block.begin() + long(length)));
        ASSERT_TRUE(exif);
        entries = ToMap(*exif).size();
    }
    EXPECT_GE(entries, 4u);
    for (size_t at = 0; at < block.size(); ++at) {
        for (const int mask : {1, 0x80, 0xFF}) {
            Bytes damaged = block;
            damaged[at] = uint8_t(damaged[at] ^ mask);
            const Result<ExifRef> exif = Open(damaged);
            ASSERT_TRUE(exif);
            EXPECT_LE(ToMap(*exif).size(), 8u);
        }
    }
}

TEST_F(ExifTest, FindsTheBlockInAFile) {
    const auto segment = [](uint8_t marker, const Bytes& payload) {
        const size_t length = payload.size() + 2;
        Bytes bytes;
        for (const size_t value : {size_t(0xFF), size_t(marker), length >> 8, length})
            bytes.push_back(uint8_t(value));
        std::ranges::copy(payload, std::back_inserter(bytes));
        return bytes;
    };
    Bytes payload = Text(std::string_view("Exif\0\0", 6));
    const Bytes block = MakeBlock({{0x0112, 3, 1, Words({6}, 2)}}, {}, {});
    payload.insert(payload.end(), block.begin(), block.end());
    const Bytes exif = segment(0xE1, payload), other = segment(0xE1, Text("http://")), start = {0xFF, 0xD8};
    const Bytes cut(exif.begin(), exif.end() - 1);
    const std::string found = "6", none = "Exif chunk not found";
    const struct {
        const char* what;
        std::vector<Bytes> parts;
        std::string expected;  ///< the orientation, or a part of the error
    } cases[] = {
        {"first", {start, exif}, found},
        {"behind others", {start, segment(0xE0, {1, 2, 3}), other, exif}, found},
        {"behind filling bytes", {start, {0xFF, 0xFF, 0xFF}, exif}, found},
        {"no JPEG", {{0xFF, 0xD9}, exif}, "is no JPEG file"},
        {"behind the picture", {start, segment(0xDA, {0}), exif}, none},
        {"end of the picture", {start, {0xFF, 0xD9}, exif}, none},
        {"no segment", {start, {0, 0xE1}, exif}, none},
        {"length below 2", {start, {0xFF, 0xE0, 0, 1}, exif}, none},
        {"cut", {start, cut}, "unexpected end of file"},
    };
    for (const auto& c : cases) {
        Bytes file;
        for (const Bytes& part : c.parts)
            file.insert(file.end(), part.begin(), part.end());
        const MemoryFileRef memory = *CreateMemoryFile(std::as_bytes(Block<const uint8_t>(file)));
        const Result<ExifRef> exif = service->OpenJpgFromUrl(*MountMemoryFile("exif", memory));
        const std::string text = exif ? ToMap(*exif)["Orientation"] : exif.GetError()->ToString().GetCString();
        EXPECT_THAT(text, testing::HasSubstr(c.expected)) << c.what;
    }
}

// --- Real files ------------------------------------------------------------------------------------------------------

std::filesystem::path SharedDirectory() {
    if (const char* shared = std::getenv("ORVIK_SHARED"))
        return shared;
    std::error_code ignored;
    std::filesystem::path root = std::filesystem::read_symlink("/proc/self/exe", ignored);
    while (root.has_relative_path() && !std::filesystem::exists(root / "CMakePresets.json"))
        root = root.parent_path();
    return root.parent_path() / "shared";
}

std::string RunToText(const std::string& command) {
    std::string text;
    FILE* pipe = popen(command.c_str(), "r");
    char block[4096];
    for (size_t count; pipe && (count = std::fread(block, 1, sizeof(block), pipe)) > 0;)
        text.append(block, count);
    if (pipe)
        pclose(pipe);
    return text;
}

std::string Trimmed(std::string text) {
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

TEST_F(ExifTest, AgreesWithExiftool) {
    const std::filesystem::path folder = SharedDirectory() / "corpus/jpeg/metadata-extractor";
    if (!std::filesystem::exists(folder))
        GTEST_SKIP() << "no corpus at " << folder;
    if (RunToText("exiftool -ver 2> /dev/null").empty())
        GTEST_SKIP() << "exiftool is not installed";
    // Names that both programs give to the same entries, whose values are plain numbers or texts.
    const char* const kNames[] = {"Make",         "Model",         "Orientation", "XResolution",      "ExposureTime",
                                  "FNumber",      "Software",      "FocalLength", "DateTimeOriginal", "ColorSpace",
                                  "MeteringMode", "GPSLatitudeRef"};
    int files = 0, compared = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        SCOPED_TRACE(entry.path().filename().string());
        const auto picture =
            ImageTextureInterface::LoadTexture(Url(entry.path().string()), {}, MEDIASESSIONFLAGS::NONE, {}, {});
        const ExifRef exif = picture ? (*picture)->Get(image::kExifData, ExifRef()) : ExifRef();
        if (!exif)
            continue;
        const Result<ExifRef> direct = service->OpenJpgFromUrl(Url(entry.path().string()));
        ASSERT_TRUE(direct) << direct.GetError()->ToString().GetText();
        const auto own = ToMap(exif);
        EXPECT_EQ(ToMap(*direct), own);
        const std::string text = RunToText("exiftool -j -n -fast2 -ifd0:all -exififd:all -gps:all '" +
                                           entry.path().string() + "' 2> /dev/null");
        const auto list = nlohmann::json::parse(text, nullptr, false);
        ASSERT_TRUE(list.is_array() && list.size() == 1) << text;
        for (const char* name : kNames) {
            if (!list[0].contains(name) || !own.contains(name))
                continue;
            const auto& theirs = list[0][name];
            const std::string& ours = own.at(name);
            if (theirs.is_number())
                EXPECT_NEAR(std::strtod(ours.c_str(), nullptr), theirs.get<double>(),
                            1e-6 + theirs.get<double>() * 1e-6)
                    << name;
            else
                EXPECT_EQ(ours, Trimmed(theirs.get<std::string>())) << name;
            ++compared;
        }
        ++files;
    }
    EXPECT_GT(files, 12);
    EXPECT_GT(compared, 100);
}

}  // namespace
}  // namespace orvik
