// Damaged and hostile JPEG files: a clear error or a picture, in little time and memory.

#include "format_table.h"
#include "jpeg_direct.h"
#include "memory_watch.h"

namespace codectest {
namespace {

class JpegHostileTest : public CodecTest {};

size_t FindScan(const Bytes& file) { return FindSegment(file, {0xDA}); }

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

TEST_F(JpegHostileTest, CutFilesEndInAPicture) {
    for (const Sample& sample : TestedFormatOf("jpg").makeSamples()) {
        SCOPED_TRACE(sample.name);
        const Bytes& file = sample.bytes;
        const size_t scan = FindScan(file);
        const size_t data = scan + 2 + (size_t(file[scan + 2]) << 8 | file[scan + 3]);
        for (size_t length = 0; length <= file.size(); ++length) {
            const bool loads(Load(Bytes(file.begin(), file.begin() + long(length))));
            if (length <= scan) {
                EXPECT_FALSE(loads) << length;
            } else if (length >= data && !IsInTables(file, data, length)) {
                EXPECT_TRUE(loads) << length;
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

TEST_F(JpegHostileTest, PromisesAreMeasuredByTheFile) {
    for (const Sample& sample : TestedFormatOf("jpg").makeSamples()) {
        SCOPED_TRACE(sample.name);
        EXPECT_EQ(KindOf(Load(ResizeJpeg(sample.bytes, 65500, 65500))), "mediasessionwrongtype");
        EXPECT_EQ(KindOf(Load(ResizeJpeg(sample.bytes, 700, 500))), "ok");  // a file that ends early is a picture
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
    // Segments of nothing, and as many pieces of no Exif data, before the picture.
    const Bytes good = TestedFormatOf("jpg").makeSamples()[0].bytes;
    Bytes file(good.begin(), good.begin() + 2);
    for (int i = 0; i < 200000; ++i) {
        const uint8_t segments[] = {0xFF, 0xE1, 0, 2, 0xFF, 0xE2, 0, 7, 'E', 'x', 'i', 'f', 'x'};
        file.insert(file.end(), std::begin(segments), std::end(segments));
    }
    file.insert(file.end(), good.begin() + 2, good.end());
    const Url url = Mount(file);
    const MemoryWatch watch;
    EXPECT_EQ(KindOf(Load(url)), "ok");
    EXPECT_LE(watch.GetPeakBytes(), size_t(4) << 20);
}

}  // namespace
}  // namespace codectest
