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
                      rgb16 = PixelFormats::Get(pixelformats::kRgbU16),
                      alpha8 = PixelFormats::Get(pixelformats::kAlphaU8);
    const ImageRef image = MakeImage(3, 2, rgb8);
    const uint8_t source[] = {10, 20, 30, 40, 50, 60, 70, 80};  // two pixels: b g r a
    auto writer = image->SetPixelHandler(bgra8, bgra8->GetChannelOffsets(), {}, SETPIXELHANDLERFLAGS::NONE);
    ASSERT_TRUE(writer) << MessageOf(writer);
    ASSERT_TRUE(writer->write({1, 1, 2}, {source, BITS(32)}, SETPIXELFLAGS::NONE));
    EXPECT_FALSE(writer->write({2, 1, 2}, {source, BITS(32)}, SETPIXELFLAGS::NONE));
    // From right to left, each pixel of the source twice as far apart as it is wide.
    const uint8_t spread[] = {1, 2, 3, 4, 0, 0, 0, 0, 5, 6, 7, 8};
    ASSERT_TRUE(writer->write({0, 0, 2}, {spread + 8, BITS(-64)}, SETPIXELFLAGS::NONE));
    image->FreePixelHandler(*writer);

    const auto bytes = [](std::initializer_list<int> values) {
        std::vector<std::byte> row;
        for (const int value : values)
            row.push_back(std::byte(value));
        return row;
    };
    EXPECT_EQ(ReadRows(image),
              (std::vector{bytes({7, 6, 5, 3, 2, 1, 0, 0, 0}), bytes({0, 0, 0, 30, 20, 10, 70, 60, 50})}));

    auto reader = image->GetPixelHandler(rgb16, rgb16->GetChannelOffsets(), {}, GETPIXELHANDLERFLAGS::NONE, {});
    ASSERT_TRUE(reader) << MessageOf(reader);
    uint16_t wide[3] = {};
    ASSERT_TRUE(reader->read({1, 1, 1}, {wide, BITS(48)}, GETPIXELFLAGS::NONE));
    EXPECT_EQ(wide[0] >> 8, 30);
    EXPECT_EQ(wide[2] >> 8, 10);

    auto opaque = image->GetPixelHandler(bgra8, bgra8->GetChannelOffsets(), {}, GETPIXELHANDLERFLAGS::NONE, {});
    ASSERT_TRUE(opaque) << MessageOf(opaque);
    uint8_t pixel[4] = {};
    ASSERT_TRUE(opaque->read({2, 1, 1}, {pixel, BITS(32)}, GETPIXELFLAGS::NONE));
    EXPECT_EQ(std::vector<int>(pixel, pixel + 4), (std::vector<int>{50, 60, 70, 255}));
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
    ASSERT_TRUE(reader->read({8191, 8191, 1}, {pixel, BITS(32)}, GETPIXELFLAGS::NONE));
    EXPECT_EQ(std::vector<int>(pixel, pixel + 4), std::vector<int>(4, 0));
}

}  // namespace
}  // namespace orvik
