// Damaged and hostile JPEG files: a clear error or a picture, in little time and memory.

#include <sys/resource.h>

#include "codec_support.h"
#include "jpeg_direct.h"

namespace codectest {
namespace {

class JpegHostileTest : public CodecTest {};

size_t FindScan(const Bytes& file) { return FindSegment(file, {0xDA}); }

struct Case {
    const char* name;
    Bytes file;
};

/// True when a cut goes through tables or the head of a scan between the scans: half of these is an error.
bool IsInTables(const Bytes& file, size_t firstData, size_t cut) {
    for (size_t at = firstData; at + 4 < file.size(); ++at) {
        if (file[at] != 0xFF || (file[at + 1] != 0xC4 && file[at + 1] != 0xDA))
            continue;
        const size_t end = at + 2 + (size_t(file[at + 2]) << 8 | file[at + 3]);
        if (cut > at && cut < end)
            return true;
        at = end - 1;
    }
    return false;
}

std::vector<Case> MakeFiles() {
    Noise noise(4);
    const Bytes rgb = noise.Make(20 * 12 * 3), grey = noise.Make(20 * 12), inks = noise.Make(9 * 9 * 4);
    const Bytes profile = [] {
        const ColorProfile linear = colorprofiles::Get(colorprofiles::kLinearRgb);
        const Block<const std::byte> bytes = *linear.WriteProfileToMemory();
        const auto* first = reinterpret_cast<const uint8_t*>(bytes.data());
        return Bytes(first, first + bytes.size());
    }();
    const Bytes exif = {'E', 'x', 'i', 'f', 0, 0, 'I', 'I', 42, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const Bytes index = {'M', 'P', 'F',  0, 'I', 'I', 42, 0, 8, 0,  0, 0, 2, 0, 1, 0xB0, 4, 0, 1, 0, 0, 0, 2, 0, 0,
                         0,   2,   0xB0, 7, 0,   32,  0,  0, 0, 38, 0, 0, 0, 0, 0, 0,    0, 0, 0, 3, 0, 9, 9, 0, 0,
                         0,   0,   0,    0, 0,   0,   0,  0, 0, 0,  0, 0, 9, 9, 0, 0,    0, 0, 0, 0, 0, 0, 0, 0};
    return {
        {"baseline", WriteJpeg({.width = 20, .height = 12, .rows = rgb, .quality = 30, .profile = profile})},
        {"progressive", WriteJpeg({.width = 20, .height = 12, .rows = rgb, .quality = 30, .progressive = true})},
        {"grey, arithmetic, with restarts", WriteJpeg({.width = 20,
                                                       .height = 12,
                                                       .colorSpace = JCS_GRAYSCALE,
                                                       .rows = grey,
                                                       .quality = 30,
                                                       .arithmetic = true,
                                                       .restartRows = 1,
                                                       .horizontal = 1,
                                                       .vertical = 1})},
        {"inks", WriteJpeg({.width = 9,
                            .height = 9,
                            .colorSpace = JCS_CMYK,
                            .rows = inks,
                            .quality = 30,
                            .horizontal = 1,
                            .vertical = 1})},
        {"index and Exif", WriteJpeg({.width = 20,
                                      .height = 12,
                                      .rows = rgb,
                                      .quality = 30,
                                      .segments = {{JPEG_APP0 + 1, exif}, {JPEG_APP0 + 2, index}}})},
    };
}

/// Loads and reads what came of it. Errors must say something.
std::string TryLoad(const Bytes& file) {
    const Result<ImageTextureRef> texture = Load(file);
    if (!texture) {
        EXPECT_FALSE(texture.GetError()->ToString().IsEmpty());
        return KindOf(texture);
    }
    const ImageBaseRef image = FirstImage(*texture);
    EXPECT_EQ(RgbaOf(*texture).size(), size_t(image->GetWidth() * image->GetHeight() * 4));
    return "ok";
}

long PeakMemory() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;  // megabytes
}

class MemoryBound {
public:
    ~MemoryBound() { EXPECT_LT(PeakMemory() - _before, 600); }

private:
    long _before = PeakMemory();
};

TEST_F(JpegHostileTest, CutFilesEndInAPicture) {
    const MemoryBound bound;
    for (const Case& c : MakeFiles()) {
        SCOPED_TRACE(c.name);
        ASSERT_FALSE(c.file.empty());
        ASSERT_EQ(TryLoad(c.file), "ok");
        const size_t scan = FindScan(c.file);
        const size_t data = scan + 2 + (size_t(c.file[scan + 2]) << 8 | c.file[scan + 3]);
        for (size_t length = 0; length < c.file.size(); ++length) {
            const std::string loaded = TryLoad(Bytes(c.file.begin(), c.file.begin() + long(length)));
            if (length <= scan) {
                EXPECT_NE(loaded, "ok") << length;
            } else if (length >= data && !IsInTables(c.file, data, length)) {
                EXPECT_EQ(loaded, "ok") << length;
            }
        }
    }
}

TEST_F(JpegHostileTest, CutFilesKeepWhatIsThere) {
    Noise noise(9);
    const Bytes rows = noise.Make(64 * 64 * 3);
    const Bytes file = WriteJpeg({.width = 64, .height = 64, .rows = rows, .horizontal = 1, .vertical = 1});
    const Bytes whole = RgbaOf(*Load(file));
    const Bytes half = RgbaOf(*Load(Bytes(file.begin(), file.begin() + long(file.size() * 3 / 4))));
    const size_t firstQuarter = 64 * 16 * 4;
    EXPECT_TRUE(std::equal(whole.begin(), whole.begin() + firstQuarter, half.begin()));
    EXPECT_NE(whole, half);
}

TEST_F(JpegHostileTest, FlippedBytesGiveErrorsOrPictures) {
    const MemoryBound bound;
    int pictures = 0, errors = 0;
    for (const Case& c : MakeFiles()) {
        SCOPED_TRACE(c.name);
        for (size_t at = 0; at < c.file.size(); ++at) {
            for (const int mask : {0x01, 0x10, 0x80, 0xFF}) {
                Bytes damaged = c.file;
                damaged[at] = uint8_t(damaged[at] ^ mask);
                ++(TryLoad(damaged) == "ok" ? pictures : errors);
            }
        }
    }
    EXPECT_GT(pictures, 1000);
    EXPECT_GT(errors, 1000);
}

TEST_F(JpegHostileTest, PromisesThatNoFileCanKeep) {
    const MemoryBound bound;
    for (const Case& c : MakeFiles()) {
        SCOPED_TRACE(c.name);
        const std::string loaded = TryLoad(ResizeJpeg(c.file, 65500, 65500));
        EXPECT_EQ(loaded, "mediasessionwrongtype");
        EXPECT_EQ(KindOf(Load(ResizeJpeg(c.file, 65500, 65500), MEDIASESSIONFLAGS::RUNONLYANALYZE)), loaded);
        EXPECT_EQ(TryLoad(ResizeJpeg(c.file, 700, 500)), "ok");  // a file that ends early is a picture
    }
    // A large picture of one colour is honest: hardly more than a bit for each block.
    const Bytes flat = WriteJpeg({.width = 4000, .height = 3000, .rows = Bytes(36000000, 80), .progressive = true});
    EXPECT_LT(flat.size(), 100000u);
    EXPECT_EQ(KindOf(Load(flat)), "ok");
}

TEST_F(JpegHostileTest, ScansAreCounted) {
    Bytes file = WriteJpeg({.width = 8,
                            .height = 8,
                            .colorSpace = JCS_GRAYSCALE,
                            .rows = Bytes(64, 90),
                            .progressive = true,
                            .horizontal = 1,
                            .vertical = 1});
    const size_t scan = FindScan(file);
    // The first scan again and again.
    const uint8_t mark[] = {0xFF, 0xC4};
    const auto end = std::search(file.begin() + long(scan) + 2, file.end(), std::begin(mark), std::end(mark));
    ASSERT_NE(end, file.end());
    const Bytes once(file.begin() + long(scan), end);
    Bytes many(file.begin(), end);
    for (int i = 0; i < 600; ++i)
        many.insert(many.end(), once.begin(), once.end());
    EXPECT_EQ(MessageOf(Load(many)), "Error loading jpg: more than 500 scans");
}

TEST_F(JpegHostileTest, EmptyAndForeignFiles) {
    const auto handler = FindHandlerBySuffix("jpg");
    const auto analyze = [&](const Bytes& file) {
        const auto importer = Cast<MediaInputInterface>(*handler->CreateHandler(Mount(file)));
        return MessageOf(importer->Analyze({}, {}, MEDIASESSIONFLAGS::NONE));
    };
    EXPECT_EQ(analyze({}), "Error loading jpg: Empty input file");
    EXPECT_EQ(analyze({1, 2, 3, 4}), "Error loading jpg: Not a JPEG file: starts with 0x01 0x02");
    EXPECT_EQ(analyze({0xFF, 0xD8}), "Error loading jpg: JPEG datastream contains no image");
}

TEST_F(JpegHostileTest, ManySmallSegments) {
    // A million segments of nothing before the picture, and as many pieces of Exif data.
    const Bytes good = MakeFiles()[0].file;
    Bytes file(good.begin(), good.begin() + 2);
    for (int i = 0; i < 200000; ++i) {
        const uint8_t segments[] = {0xFF, 0xE1, 0, 2, 0xFF, 0xE2, 0, 7, 'E', 'x', 'i', 'f', 'x'};
        file.insert(file.end(), std::begin(segments), std::end(segments));
    }
    file.insert(file.end(), good.begin() + 2, good.end());
    const MemoryBound bound;
    EXPECT_EQ(TryLoad(file), "ok");
}

}  // namespace
}  // namespace codectest
