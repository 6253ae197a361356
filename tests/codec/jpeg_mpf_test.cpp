// Multi-Picture files that the test puts together from single pictures, and Exif data on their way to a host.

#include "jpeg_direct.h"
#include "parts.h"

#include "orvik/exif.h"

namespace codectest {
namespace {

class JpegMpfTest : public CodecTest {};

Bytes MakeJpeg(uint32_t width, uint32_t height, uint8_t value, std::vector<JpegSegment> segments = {}) {
    JpegPicture picture{.width = width, .height = height, .rows = Bytes(size_t(width) * height * 3, value)};
    picture.segments = std::move(segments);
    return WriteJpeg(picture);
}

struct Index {
    bool big = false;
    std::vector<uint32_t> offsets = {};
    uint32_t entryCount = 3;
    uint32_t versionType = 7, versionCount = 4;
    uint32_t numberType = 4;
    uint32_t numberOfImages = 0;  ///< 0: as many as there are offsets
    uint32_t entryBytes = 0;      ///< 0: as many as needed
    uint32_t entriesAt = 50;
    uint32_t directoryAt = 8;
    uint32_t extraType = 0;  ///< a tag of its own in front of the version

    JpegSegment Make() const {
        Bytes bytes = Joined({BytesOf({"MPF", 4}), big ? Bytes{'M', 'M', 0, 42} : Bytes{'I', 'I', 42, 0}});
        const auto put = [&](uint32_t value, int size) {
            for (int i = 0; i < size; ++i)
                bytes.push_back(uint8_t(value >> (8 * (big ? size - 1 - i : i))));
        };
        const auto putEntry = [&](uint32_t tag, uint32_t type, uint32_t count, uint32_t value) {
            put(tag, 2), put(type, 2), put(count, 4), put(value, 4);
        };
        const auto count = uint32_t(offsets.size());
        put(directoryAt, 4), put(entryCount, 2);
        if (extraType)
            putEntry(0xA000, extraType, extraType == 7 ? 4 : 1, 0);
        putEntry(0xB000, versionType, versionCount, 0x30303130);
        putEntry(0xB001, numberType, 1, numberOfImages ? numberOfImages : count);
        putEntry(0xB002, 7, entryBytes ? entryBytes : 16 * count, entriesAt);
        put(0, 4);
        for (const uint32_t offset : offsets)
            put(0x20030000, 4), put(1000, 4), put(offset, 4), put(0, 4);
        return {JPEG_APP0 + 2, bytes};
    }
};

/// A first picture with an index of itself and the others, which follow.
Bytes Join(Index index, const std::vector<Bytes>& others, const std::vector<JpegSegment>& before = {}) {
    const auto makeFirst = [&] {
        std::vector<JpegSegment> segments = before;
        segments.push_back(index.Make());
        return MakeJpeg(16, 16, 50, segments);
    };
    index.offsets.assign(others.size() + 1, 0);
    const Bytes first = makeFirst(), signature = {'M', 'P', 'F', 0};
    const auto base = std::search(first.begin(), first.end(), signature.begin(), signature.end()) + 4;
    Bytes rest;
    for (size_t i = 0; i < others.size(); ++i) {
        index.offsets[i + 1] = uint32_t(size_t(first.end() - base) + rest.size());
        rest = Joined({rest, others[i]});
    }
    return Joined({makeFirst(), rest});
}

std::vector<ImageBaseRef> ImagesOf(const ImageTextureRef& texture) {
    std::vector<ImageBaseRef> images;
    for (const HierarchyObjectRef& child : texture->GetChildren(Int(IMAGEHIERARCHY::IMAGE)))
        images.push_back(Cast<ImageBaseInterface>(child));
    return images;
}

TEST_F(JpegMpfTest, FindsEveryPicture) {
    const Bytes second = MakeJpeg(8, 24, 120);
    JpegPicture grey{.width = 5, .height = 3, .colorSpace = JCS_GRAYSCALE, .rows = Bytes(15, 200)};
    grey.horizontal = grey.vertical = 1;
    const Bytes third = WriteJpeg(grey);
    for (const bool big : {false, true}) {
        for (const size_t comments : {0, 4}) {  // behind four, the index lies beyond the first buffer of the decoder
            SCOPED_TRACE(testing::Message() << big << comments);
            const std::vector<JpegSegment> before(comments, {JPEG_COM, Bytes(60000, 1)});
            const std::vector<ImageBaseRef> images = ImagesOf(Loaded(Join({.big = big}, {second, third}, before)));
            ASSERT_EQ(images.size(), 3u);
            for (size_t i = 0; i < images.size(); ++i)
                EXPECT_EQ(images[i]->Get(image::kSubImageIndex, -1), Int(i));
            EXPECT_EQ(PixelsOf(images[0], pixelformats::kRgbU8), Bytes(16 * 16 * 3, 50));
            EXPECT_EQ(PixelsOf(images[1], pixelformats::kRgbU8), ReadJpeg(second).rows);
            EXPECT_EQ(images[2]->GetWidth(), 5);
            EXPECT_EQ(PixelsOf(images[2], pixelformats::kGreyU8), ReadJpeg(third).rows);
        }
    }
}

class SelectOne : public LayerSetInterface {
public:
    explicit SelectOne(String image) : _image(std::move(image)) {}
    String GetSelectedImage() const override { return _image; }

private:
    String _image;
};

TEST_F(JpegMpfTest, DecodesTheSelectedPictureOnly) {
    const Bytes file = Join({}, {MakeJpeg(8, 24, 120)});
    for (const Int wanted : {1, 2}) {
        const LayerSet layers(*NewObj<SelectOne>(FormatString("#@", wanted)));
        const Result<ImageTextureRef> texture =
            ImageTextureInterface::LoadTexture(Mount(file), {}, MEDIASESSIONFLAGS::NONE, {}, layers);
        ASSERT_TRUE(texture);
        ASSERT_EQ(ImagesOf(*texture).size(), 1u);
        EXPECT_EQ(FirstImage(*texture)->GetHeight(), wanted == 1 ? 16 : 24);
    }
}

TEST_F(JpegMpfTest, ChecksTheIndex) {
    const Bytes second = MakeJpeg(8, 8, 120);
    const std::string failed = "ReadApp2Marker failed.";
    const struct {
        const char* what;
        Index index;
        std::string message;
        size_t images;
    } cases[] = {
        {"directory of 65535 entries", {.entryCount = 65535}, "", 1},
        {"empty directory", {.entryCount = 0}, "", 1},
        {"type of the version", {.versionType = 4}, failed, 0},
        {"count of the version", {.versionCount = 5}, failed, 0},
        {"type of the number", {.numberType = 3}, failed, 0},
        {"number and bytes differ", {.numberOfImages = 3}, failed, 0},
        {"bytes and number differ", {.entryBytes = 31}, failed, 0},
        {"number whose bytes wrap round", {.numberOfImages = 0x10000002, .entryBytes = 32}, failed, 0},
        {"many pictures", {.numberOfImages = 5000, .entryBytes = 80000}, failed, 0},
        {"entries half outside", {.entriesAt = 70}, failed, 0},
        {"directory outside", {.directoryAt = 9000}, failed, 0},
        {"directory at the end", {.directoryAt = 82}, failed, 0},
        {"more entries than there are, behind the index", {.entryCount = 4}, "", 2},
        {"unknown tag of a known type", {.entryCount = 4, .extraType = 4}, "", 2},
        {"unknown tag of bytes", {.entryCount = 4, .extraType = 7}, "", 2},
        {"unknown tag of an unknown type", {.entryCount = 4, .extraType = 2}, "", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Index index = c.index;
        if (index.extraType)
            index.entriesAt += 12;
        const Result<ImageTextureRef> texture = Load(Join(index, {second}));
        EXPECT_EQ(MessageOf(texture), c.message);
        if (texture) {
            EXPECT_EQ(ImagesOf(*texture).size(), c.images);
        }
    }
}

TEST_F(JpegMpfTest, IgnoresSegmentsThatAreNoIndex) {
    for (const Bytes& payload : {Bytes{'M', 'P', 'F', 0},
                                 {'M', 'P', 'F', 0, 'I', 'I', 42},
                                 {'M', 'P', 'F', 0, 'I', 'I', 0, 42, 8, 0, 0, 0},
                                 {'M', 'P', 'F', 0, 'M', 'M', 42, 0, 0, 0, 0, 8},
                                 {'F', 'P', 'X', 'R', 0, 1, 2, 3, 4, 5}})
        EXPECT_EQ(ImagesOf(Loaded(MakeJpeg(16, 16, 50, {{JPEG_APP0 + 2, payload}}))).size(), 1u);
}

TEST_F(JpegMpfTest, LeavesOutPicturesThatCannotBeRead) {
    const Bytes second = MakeJpeg(8, 8, 120), senseless(100, 1), whole = Join({}, {second});
    EXPECT_EQ(ImagesOf(Loaded(whole)).size(), 2u);
    EXPECT_EQ(ImagesOf(Loaded(Join({}, {senseless, second}))).size(), 2u);
    const Bytes cut(whole.begin(), whole.end() - long(second.size()));
    const Index elsewhere{.offsets = {9000}};
    const Bytes first = PixelsOfAll(Loaded(MakeJpeg(16, 16, 50)));
    for (const Bytes& file : {cut, Join({}, {senseless}), MakeJpeg(16, 16, 50, {elsewhere.Make()})})
        EXPECT_EQ(PixelsOfAll(Loaded(file)), first);
}

TEST_F(JpegMpfTest, LimitsOverlappingPictures) {
    const auto countImages = [](uint32_t width, uint32_t height, size_t listed) {  // all of them the first
        const Index index{.offsets = std::vector<uint32_t>(listed)};
        return ImagesOf(Loaded(MakeJpeg(width, height, 50, {index.Make()}))).size();
    };
    EXPECT_LT(countImages(640, 480, 4000), 100u);
    EXPECT_EQ(countImages(16, 16, 3), 3u);
}

/// Keeps the bytes that it was given.
class FakeExif : public ExifInterface {
public:
    explicit FakeExif(Bytes block) : block(std::move(block)) {}
    Bytes block;
};

class FakeExifService : public ExifStaticInterface {
public:
    Result<ExifRef> OpenFromMemory(Block<const std::byte> block) const override {
        if (fails)
            return FileFormatError("not today");
        if (opensNothing)
            return ExifRef();
        const auto* first = reinterpret_cast<const uint8_t*>(block.data());
        return ExifRef(TRY(NewObj<FakeExif>(Bytes(first, first + block.size()))));
    }
    bool fails = false;
    bool opensNothing = false;
};

TEST_F(JpegMpfTest, PassesExifToTheHost) {
    const Bytes block = {'E', 'x', 'i', 'f', 0, 0, 'M', 'M', 0, 42, 1, 2, 3};
    const int app1 = JPEG_APP0 + 1;
    const Bytes file = MakeJpeg(8, 8, 90, {{app1, BytesOf("http://")}, {app1, BytesOf("Exif")}, {app1, block}});
    const auto exifOf = [](const ImageTextureRef& texture) {
        const auto exif = Cast<FakeExif>(texture->Get(image::kExifData, ExifRef()));
        return exif ? exif->block : Bytes();
    };
    // Without a host there is no stream.
    EXPECT_FALSE(Loaded(file)->Has(image::kExifData.GetId()));

    const Ref<FakeExifService> service = *NewObj<FakeExifService>();
    Publisher host;
    ASSERT_TRUE(host.PublishObject(ExifStaticInterface::kInterfaceId, ObjectRef(service)));
    EXPECT_EQ(exifOf(Loaded(file)), block);

    // Streams: Exif first, of a class of its own, and no stream without Exif data.
    const auto importer = Cast<MediaInputInterface>(*FindHandlerBySuffix("jpg")->CreateHandler(Mount(file)));
    ASSERT_TRUE(importer->Analyze({}, {}, MEDIASESSIONFLAGS::NONE));
    const BaseArray<MediaStreamRef> streams = *importer->GetOutputStreams(false);
    ASSERT_EQ(streams.GetCount(), 2);
    EXPECT_EQ(streams[0]->GetClassId().GetText(), "net.orvik.image.class.mediastreamexifdatajpg");
    EXPECT_TRUE(Cast<MediaStreamExifDataInterface>(streams[0]));
    EXPECT_EQ(streams[1]->GetClassId().GetText(), "net.orvik.image.class.mediastreamimagelayerjpgimport");
    EXPECT_FALSE(Loaded(MakeJpeg(8, 8, 90))->Has(image::kExifData.GetId()));

    // Structure alone: no pixels, and still the Exif data.
    const ImageTextureRef bare = MakeTexture();
    const auto output = *ClassRef(mediaclasses::kOutputTexture).Create<MediaOutputTextureInterface>();
    ASSERT_TRUE(output->SetOutputTexture(bare, ClassRef(storageclasses::kNormal)));
    const SelectionDelegate structureOnly = [](const MediaStreamRef&, const MediaStreamFormat&) {
        return Result<SELECTIONHANDLERRESULT>(SELECTIONHANDLERRESULT::STRUCTURE);
    };
    ASSERT_TRUE(MediaSessionImport(Mount(file), {}, MEDIASESSIONFLAGS::NONE, output, structureOnly));
    EXPECT_EQ(exifOf(bare), block);

    service->opensNothing = true;
    EXPECT_EQ(MessageOf(Load(file)), "Exif chunk not found");
    service->fails = true;
    EXPECT_EQ(MessageOf(Load(file)), "not today");
}

}  // namespace
}  // namespace codectest
