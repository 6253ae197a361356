// The host's Exif service, by blocks made by hand. The command line's tests compare it with exiftool.

#include "orvik/exif.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
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
            std::ranges::copy(entry.value, std::back_inserter(block));
            Put(block, 0, 4 - int(entry.value.size()));
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
    Result<ExifRef> Open(const Bytes& block) {
        return service->OpenFromMemory(std::as_bytes(Block<const uint8_t>(block)));
    }
    /// Every entry with its value as text, in front of which stands what kind of number it is.
    static std::map<std::string, std::string> ToMap(const ExifRef& exif) {
        std::map<std::string, std::string> all;
        exif->GetExifDictionary()->ForEach([&](const Id& id, const Data& data) {
            const std::string kind = data.GetIf<Int>() ? "Int " : data.GetIf<Float>() ? "Float " : "";
            all.emplace(id.GetText(), kind + data.ToString().GetCString());
        });
        return all;
    }

    const Result<Host> host = Host::Start();
    const Ref<ExifStaticInterface> service = FindPublished<ExifStaticInterface>(ExifStaticInterface::kInterfaceId);
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
    const std::string expected =
        "BitsPerSample: 8 8 9; ColorSpace: Int 1; ComponentsConfiguration: 1 2 3 0; ExifVersion: 0230; "
        "ExposureBiasValue: Float -0.6666666666666666; ExposureTime: Float 0.004; FileSource: Int 3; "
        "GPSLatitude: 52 30 12.5; GPSLatitudeRef: N; Make: Maker; Model: M\xC3\xA9; Orientation: Int 6; "
        "UserComment: hello; XResolution: Float 72; ";
    const auto list = [&](const Bytes& bytes) {
        std::string text;
        for (const auto& [name, value] : ToMap(*Open(bytes)))
            text += name + ": " + value + "; ";
        return text;
    };
    EXPECT_EQ(list(block), expected);
    Bytes signedBlock = Text(std::string_view("Exif\0\0", 6));
    std::ranges::copy(block, std::back_inserter(signedBlock));
    EXPECT_EQ(list(signedBlock), expected);
}

TEST_F(ExifTest, DamagedBlocksGiveWhatIsThere) {
    const Bytes block =
        MakeBlock({{0x010F, 2, 6, Text(std::string_view("Maker\0", 6))}, {0x0112, 3, 1, Words({6}, 2)}},
                  {{0x829A, 5, 1, Words({1, 250}, 4)}}, {{0x0002, 5, 3, Words({52, 1, 30, 1, 25, 2}, 4)}});
    EXPECT_FALSE(Open({}));
    EXPECT_EQ(ToMap(*Open(block)).size(), 4u);
    for (size_t at = 0; at < block.size(); ++at) {
        if (at > 0) {
            EXPECT_LE(ToMap(*Open(Bytes(block.begin(), block.begin() + long(at)))).size(), 4u);
        }
        for (const int mask : {1, 0x80, 0xFF}) {
            Bytes damaged = block;
            damaged[at] = uint8_t(damaged[at] ^ mask);
            EXPECT_LE(ToMap(*Open(damaged)).size(), 8u);
        }
    }
}

TEST_F(ExifTest, FindsTheBlockInAFile) {
    const auto segment = [](uint8_t marker, const Bytes& payload) {
        const size_t length = payload.size() + 2;
        Bytes bytes = {0xFF, marker, uint8_t(length >> 8), uint8_t(length)};
        std::ranges::copy(payload, std::back_inserter(bytes));
        return bytes;
    };
    Bytes payload = Text(std::string_view("Exif\0\0", 6));
    const Bytes block = MakeBlock({{0x0112, 3, 1, Words({6}, 2)}}, {}, {});
    payload.insert(payload.end(), block.begin(), block.end());
    const Bytes exif = segment(0xE1, payload), other = segment(0xE1, Text("http://")), start = {0xFF, 0xD8};
    const Bytes cut(exif.begin(), exif.end() - 1);
    const std::string found = "Int 6", none = "Exif chunk not found";
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

}  // namespace
}  // namespace orvik
