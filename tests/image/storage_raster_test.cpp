// Where the two raster storages keep pixels, and how they hand them to conversions.
#include <fstream>
#include <random>
#include <unistd.h>

#include "image_fakes.h"
#include "storage/gfx_image_storage_normal.h"
#include "storage/gfx_image_storage_planes.h"
#include "support/module_fixture.h"

namespace orvik {
namespace {

template <class Storage>
Ref<Storage> Make(Int width, Int height, const PixelFormat& format) {
    auto storage = NewObj<Storage>().TakeValue();
    const Result<void> done = storage->Init(width, height, format, {});
    EXPECT_TRUE(done) << MessageOf(done);
    return storage;
}

/// All lines of a storage in a caller's format, or nothing when there is no conversion.
std::vector<std::byte> ReadAll(ImagePixelStorageInterface& storage, const PixelFormat& format) {
    auto reader = storage.GetPixelHandler(format, {}, {}, {}, GETPIXELHANDLERFLAGS::NONE);
    if (!reader)
        return {};
    const Int lineBytes = (format->GetBitsPerPixel() * storage.GetWidth()).GetBytes();
    std::vector<std::byte> bytes(size_t(lineBytes * storage.GetHeight()));
    for (Int y = 0; y < storage.GetHeight(); ++y)
        EXPECT_TRUE(
            reader->read({0, y, storage.GetWidth()}, {&bytes[size_t(y * lineBytes)], format->GetBitsPerPixel()}, {}));
    return bytes;
}

/// Lines follow each other without padding, pixels begin at any bit, and planes begin at whole bytes.
template <class Storage>
void ExpectAddresses(Int bits, Int channels) {
    constexpr Int kWidth = 9, kHeight = 3;
    SCOPED_TRACE(testing::Message() << bits << " bits, " << channels << " planes");
    const Ref<FakeFormat> format = MakeFormat(std::vector<Int>(size_t(channels), bits));
    const auto storage = Make<Storage>(kWidth, kHeight, format);
    const Int lineBytes = (bits * kWidth + 7) / 8;
    const auto writer = storage->SetPixelHandler(format, {}, {}, {}, SETPIXELHANDLERFLAGS::NONE, {}).TakeValue();
    for (Int c = 0; c <= channels; ++c) {
        EXPECT_EQ(format->request.srcOffsets[size_t(c)], c * bits);
        EXPECT_EQ(format->request.dstOffsets[size_t(c)], c * (channels > 1 ? lineBytes * kHeight * 8 : bits));
    }
    std::byte none{};
    ASSERT_TRUE(writer.write({0, 0, 0}, {&none, BITS(bits)}, {}));
    const std::byte* first = format->to.data;
    for (Int y = 0; y < kHeight; ++y) {
        for (Int x = 0; x < kWidth; ++x) {
            ASSERT_TRUE(writer.write({x, y, 0}, {&none, BITS(bits)}, {}));
            EXPECT_EQ(format->to.stride, bits);
            EXPECT_EQ(format->to.phase, x * bits % 8);
            EXPECT_EQ(format->to.data - first, y * lineBytes + x * bits / 8);
        }
    }
}

TEST(Storage, AddressesPixelsOfEveryWidth) {
    for (Int bits = 1; bits <= 128; ++bits)
        ExpectAddresses<ImagePixelStorageNormal>(bits, 1);
    for (const Int bits : {1, 4, 8, 16, 32})
        ExpectAddresses<ImagePixelStoragePlanes>(bits, 3);
}

TEST(Storage, PassesProfilesOffsetsAndFlagOn) {
    const Ref<FakeFormat> stored = MakeFormat({8, 8}), caller = MakeFormat({4, 12});
    const auto storage = Make<ImagePixelStorageNormal>(2, 2, stored);
    const BITS shifted[] = {BITS(8), BITS(0), BITS(16)};
    const ColorProfile profile = MakeProfile();
    const auto expect = [](const FakeFormat::Request& found, std::vector<Int> srcOffsets, std::vector<Int> dstOffsets,
                           CONVERTPIXELFLAGS flags) {
        EXPECT_EQ(found.srcOffsets, srcOffsets);
        EXPECT_EQ(found.dstOffsets, dstOffsets);
        EXPECT_TRUE(found.hasSrcProfile);
        EXPECT_FALSE(found.hasDstProfile);
        EXPECT_EQ(found.flags, flags);
    };
    ASSERT_TRUE(storage->GetPixelHandler(caller, shifted, profile, {}, GETPIXELHANDLERFLAGS::DONTAPPLYMASK));
    expect(caller->request, {0, 8, 16}, {8, 0, 16}, CONVERTPIXELFLAGS::NONE);
    ASSERT_TRUE(storage->GetPixelHandler(caller, {}, {}, {}, GETPIXELHANDLERFLAGS::NONE));
    EXPECT_FALSE(caller->request.hasSrcProfile);  // a null pointer, not an empty profile
    auto writer =
        storage->SetPixelHandler(caller, {}, {}, profile, SETPIXELHANDLERFLAGS::FORCECOLORPROFILECONVERSION, {});
    ASSERT_TRUE(writer);  // the format's own offsets where none are given
    expect(stored->request, {0, 4, 16}, {0, 8, 16}, CONVERTPIXELFLAGS::FORCECOLORPROFILECONVERSION);
    std::byte row[4] = {};
    ASSERT_TRUE(writer->write({0, 0, 2}, {row, BITS(16)}, {}));
    EXPECT_EQ(stored->to.flags, CONVERTPIXELFLAGS::FORCECOLORPROFILECONVERSION);
}

/// The number of bytes is that of the channel in front; nothing leaves the block.
TEST(Storage, ComponentsTakeTheWidthInFront) {
    struct Case {
        std::vector<Int> channels;
        Int channel;
        Int x, count;
        std::string expected;  ///< two pixels with a stride of 8; a dot is untouched
    };
    // A line holds the letters a, b, c ... from its first byte on.
    const Case cases[] = {
        {{8, 8, 8}, 0, 0, 2, "................"}, {{8, 8, 8}, 1, 0, 2, "b.......e......."},
        {{8, 8, 8}, 2, 1, 2, "f.......i......."}, {{16, 8}, 1, 0, 2, "cd......fg......"},
        {{8, 16}, 1, 0, 2, "b.......e......."},   {{16, 16}, 1, 1, 1, "gh.............."},
        {{5, 6, 5}, 1, 0, 2, "................"}, {{5, 6, 5}, 2, 0, 2, "................"},
        {{32, 8}, 1, 1, 2, "jklm............"},   {{8, 8}, 1, 0, 0, "................"},
        {{8, 8}, 1, 0, -4, "................"},   {{64, 8}, 1, 0, 2, "ijklmnoprstuvwxy"},
    };
    for (const Case& test : cases) {
        const Ref<FakeFormat> format = MakeFormat(test.channels);
        const Int bits = format->GetBitsPerPixel().GetBits();
        SCOPED_TRACE(testing::Message() << bits << " bits, channel " << test.channel << ", x " << test.x);
        const auto storage = Make<ImagePixelStorageNormal>(3, 1, format);
        std::string line(size_t(bits * 3 / 8), ' ');
        for (size_t i = 0; i < line.size(); ++i)
            line[i] = char('a' + i);
        const auto writer = storage->SetPixelHandler(format, {}, {}, {}, SETPIXELHANDLERFLAGS::NONE, {}).TakeValue();
        ASSERT_TRUE(writer.write({0, 0, 3}, {line.data(), BITS(bits)}, {}));

        std::string got(16, '.');
        ASSERT_TRUE(storage->GetComponent(test.channel, {test.x, 0, test.count}, got.data(), 8, {}));
        EXPECT_EQ(got, test.expected);

        // Dots go where reading took from, and nowhere else.
        const std::string dots(16, '.');
        ASSERT_TRUE(storage->SetComponent(test.channel, {test.x, 0, test.count}, dots.data(), 8, {}));
        std::string changed(line.size(), ' ');
        std::memcpy(changed.data(), ReadAll(*storage, format).data(), changed.size());
        for (size_t i = 0; i < line.size(); ++i)
            EXPECT_EQ(changed[i] == '.', got.find(line[i]) != std::string::npos) << line[i];
    }
}

using PlanesFormatTest = ModuleFixture;

/// Whatever is written into planes, in whatever format, reads as if it had been written into whole pixels.
TEST_F(PlanesFormatTest, AgreesWithTheNormalStorageInEveryFormat) {
    constexpr Int kWidth = 7, kHeight = 3;
    std::mt19937 random(4);
    const PixelFormat callers[] = {PixelFormats::Get(pixelformats::kRgbaU8), PixelFormats::Get(pixelformats::kBgrU8),
                                   PixelFormats::Get(pixelformats::kGreyaU16),
                                   PixelFormats::Get("net.orvik.image.pixelformat.cmyk.u8"),
                                   PixelFormats::Get("net.orvik.image.pixelformat.rgb.u565")};
    int formats = 0, refused = 0;
    for (const PixelFormat& stored : PixelFormats::GetAll().TakeValue()) {
        SCOPED_TRACE(stored->GetId().GetCString());
        const auto planes = NewObj<ImagePixelStoragePlanes>().TakeValue();
        if (const Result<void> done = planes->Init(kWidth, kHeight, stored, {}); !done) {
            EXPECT_EQ(MessageOf(done), "ImagePixelStoragePlanes doesn't work with pixel format: " +
                                           std::string(stored->GetId().GetText()) + ".");
            ++refused;
            continue;
        }
        ++formats;
        for (const PixelFormat& caller : callers) {
            SCOPED_TRACE(caller->GetId().GetCString());
            ASSERT_TRUE(planes->Init(kWidth, kHeight, stored, {}));
            const auto normal = Make<ImagePixelStorageNormal>(kWidth, kHeight, stored);
            auto intoPlanes = planes->SetPixelHandler(caller, {}, {}, {}, SETPIXELHANDLERFLAGS::NONE, {});
            auto intoNormal = normal->SetPixelHandler(caller, {}, {}, {}, SETPIXELHANDLERFLAGS::NONE, {});
            ASSERT_EQ(bool(intoPlanes), bool(intoNormal)) << MessageOf(intoPlanes) << MessageOf(intoNormal);
            if (!intoNormal)
                continue;
            std::byte row[64];
            for (int i = 0; i < 10; ++i) {
                std::generate(std::begin(row), std::end(row), [&] { return std::byte(random()); });
                const Int x = Int(random() % kWidth);
                const PixelSpan span{x, Int(random() % kHeight), 1 + Int(random() % (kWidth - x))};
                const PixelLineConst line{row, caller->GetBitsPerPixel()};
                ASSERT_TRUE(intoPlanes->write(span, line, {}));
                ASSERT_TRUE(intoNormal->write(span, line, {}));
            }
            EXPECT_EQ(ReadAll(*planes, stored), ReadAll(*normal, stored));
            for (const PixelFormat& readBy : callers)
                EXPECT_EQ(ReadAll(*planes, readBy), ReadAll(*normal, readBy)) << readBy->GetId().GetText();
        }
    }
    EXPECT_GT(formats, 60);
    EXPECT_GT(refused, 10);
}

TEST(Planes, RefuseChannelsOfUnequalWidth) {
    const std::vector<Int> cases[] = {{8, 16}, {8, 8, 4}, {5, 6, 5}, {8, -8, 24}};
    for (const std::vector<Int>& channels : cases) {
        const auto storage = NewObj<ImagePixelStoragePlanes>().TakeValue();
        for (const Int side : {1, 5}) {  // at a width of 1 all lines of {5, 6, 5} have one byte
            const Result<void> done = storage->Init(side, side, MakeFormat(channels), {});
            EXPECT_EQ(ErrorIdOf(done), errorid::kIllegalArgument);
            // A fake format has no id.
            EXPECT_EQ(MessageOf(done), "ImagePixelStoragePlanes doesn't work with pixel format: .");
            EXPECT_EQ(storage->GetChannelCount(), 0);
        }
    }
    // No channels; and planes that fit one by one, but not together.
    for (const auto& [channels, side, error] :
         {std::tuple(std::vector<Int>{}, Int(5), errorid::kIllegalArgument),
          std::tuple(std::vector<Int>(4, 8), Int(1) << 30, errorid::kOutOfMemory)})
        EXPECT_EQ(
            ErrorIdOf(NewObj<ImagePixelStoragePlanes>().TakeValue()->Init(side, 2 * side, MakeFormat(channels), {})),
            error);
}

/// Each channel is written and read alone; the others keep their values.
TEST_F(PlanesFormatTest, ComponentsAreThoseOfTheirPlane) {
    for (const Id& id : {pixelformats::kRgbU8, pixelformats::kRgbaU16, pixelformats::kRgbaF64}) {
        SCOPED_TRACE(id.GetCString());
        const PixelFormat format = PixelFormats::Get(id);
        const auto storage = Make<ImagePixelStoragePlanes>(5, 2, format);
        const Int bytes = format->GetChannelOffsets()[1].GetBytes(), channels = format->GetChannelCount();
        std::vector<std::byte> expected(size_t(bytes * channels * 10));
        for (Int c = 0; c < channels; ++c) {
            std::byte values[3 * 11] = {}, back[3 * 11] = {};
            for (Int x = 0; x < 3; ++x) {
                for (Int b = 0; b < bytes; ++b)
                    expected[size_t((7 + x) * channels * bytes + c * bytes + b)] = values[x * 11 + b] =
                        std::byte(1 + c * 40 + x * 8 + b);
            }
            ASSERT_TRUE(storage->SetComponent(c, {2, 1, 3}, values, 11, {}));
            ASSERT_TRUE(storage->GetComponent(c, {2, 1, 3}, back, 11, {}));
            EXPECT_TRUE(std::ranges::equal(back, values));
        }
        EXPECT_EQ(ReadAll(*storage, format), expected);
    }
}

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
    std::ifstream status("/proc/self/statm");
    Int all = 0, resident = 0;
    status >> all >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
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
