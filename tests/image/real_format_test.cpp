#include <cstdio>

#include "image_fakes.h"
#include "support/module_fixture.h"

namespace orvik {
namespace {

/// Image nodes over the formats of the module.
class RealFormatTest : public ModuleFixture {
protected:
    static ImageRef MakeImage(Int width, Int height, const PixelFormat& format) {
        ImageRef image = ClassRef(imageclasses::kImage).Create<ImageInterface>().TakeValue();
        const Result<void> done = image->Init(width, height, ClassRef(), format, {});
        EXPECT_TRUE(done) << MessageOf(done);
        return image;
    }
};

/// Writes in one format over another, reads in a third; the expected bytes are worked out by hand.
TEST_F(RealFormatTest, ConvertsOnTheWayInAndOut) {
    const PixelFormat rgb8 = PixelFormats::Get(pixelformats::kRgbU8), bgra8 = PixelFormats::Get(pixelformats::kBgraU8),
                      rgb16 = PixelFormats::Get(pixelformats::kRgbU16);
    const ImageRef image = MakeImage(3, 2, rgb8);
    auto writer = image->SetPixelHandler(bgra8, {}, {}, SETPIXELHANDLERFLAGS::NONE);
    ASSERT_TRUE(writer) << MessageOf(writer);
    const uint8_t source[] = {10, 20, 30, 40, 50, 60, 70, 80};  // two pixels: b g r a
    ASSERT_TRUE(writer->write({1, 1, 2}, {source, BITS(32)}, {}));
    EXPECT_FALSE(writer->write({2, 1, 2}, {source, BITS(32)}, {}));
    // From right to left, each pixel of the source twice as far apart as it is wide.
    const uint8_t spread[] = {1, 2, 3, 4, 0, 0, 0, 0, 5, 6, 7, 8};
    ASSERT_TRUE(writer->write({0, 0, 2}, {spread + 8, BITS(-64)}, {}));
    image->FreePixelHandler(*writer);
    const auto read = [&](const PixelFormat& format, Int x, Int y, Int count) {
        std::vector<uint8_t> bytes(size_t(format->GetBytesPerLine(count)));
        auto reader = image->GetPixelHandler(format, {}, {}, GETPIXELHANDLERFLAGS::NONE, {});
        EXPECT_TRUE(reader && reader->read({x, y, count}, {bytes.data(), format->GetBitsPerPixel()}, {}));
        return bytes;
    };
    using Bytes = std::vector<uint8_t>;
    EXPECT_EQ(read(rgb8, 0, 0, 3), (Bytes{7, 6, 5, 3, 2, 1, 0, 0, 0}));
    EXPECT_EQ(read(rgb8, 0, 1, 3), (Bytes{0, 0, 0, 30, 20, 10, 70, 60, 50}));
    EXPECT_EQ(read(rgb16, 1, 1, 1), (Bytes{30, 30, 20, 20, 10, 10}));
    EXPECT_EQ(read(bgra8, 2, 1, 1), (Bytes{50, 60, 70, 255}));
}

Int ResidentKilobytes() {
    Int kilobytes = 0;
    if (std::FILE* status = std::fopen("/proc/self/status", "r")) {
        char line[256];
        long value = 0;
        while (std::fgets(line, sizeof(line), status)) {
            if (std::sscanf(line, "VmRSS: %ld", &value) == 1)
                kilobytes = value;
        }
        std::fclose(status);
    }
    return kilobytes;
}

/// Pixels cost memory when they are written, not when an image is made.
TEST_F(RealFormatTest, FreshPixelsAreUntouchedPages) {
    const PixelFormat format = PixelFormats::Get(pixelformats::kRgbaU8);
    const Int before = ResidentKilobytes();
    ASSERT_GT(before, 0);
    const ImageRef image = MakeImage(8192, 8192, format);  // 256 MiB
    EXPECT_LT(ResidentKilobytes() - before, 64 * 1024);
    uint8_t pixel[4] = {1, 1, 1, 1};
    auto reader = image->GetPixelHandler(format, format->GetChannelOffsets(), {}, GETPIXELHANDLERFLAGS::NONE, {});
    ASSERT_TRUE(reader) << MessageOf(reader);
    ASSERT_TRUE(reader->read({8191, 8191, 1}, {pixel, BITS(32)}, {}));
    EXPECT_EQ(std::vector<int>(pixel, pixel + 4), std::vector<int>(4, 0));
}

}  // namespace
}  // namespace orvik
