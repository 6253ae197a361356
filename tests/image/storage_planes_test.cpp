#include <random>

#include "image_fakes.h"
#include "storage/gfx_image_storage_normal.h"
#include "storage/gfx_image_storage_planes.h"
#include "support/module_fixture.h"

namespace orvik {
namespace {

constexpr Int kMax = std::numeric_limits<Int>::max();

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

/// Where a conversion is sent: channels start where their planes start, and pixels are one channel apart.
TEST(Planes, HandsPlanesToTheConversion) {
    constexpr Int kWidth = 9, kHeight = 4;
    for (const Int bits : {1, 4, 8, 16, 32}) {
        SCOPED_TRACE(bits);
        const Ref<FakeFormat> format = MakeFormat({bits, bits, bits});
        const auto storage = Make<ImagePixelStoragePlanes>(kWidth, kHeight, format);
        const Int lineBytes = (bits * kWidth + 7) / 8, planeBits = lineBytes * kHeight * 8;
        const auto writer = storage->SetPixelHandler(format, {}, {}, {}, SETPIXELHANDLERFLAGS::NONE, {}).TakeValue();
        EXPECT_EQ(format->request.srcOffsets, (std::vector<Int>{0, bits, 2 * bits, 3 * bits}));
        EXPECT_EQ(format->request.dstOffsets, (std::vector<Int>{0, planeBits, 2 * planeBits, 3 * planeBits}));
        const std::vector<std::byte> pixels(200);
        ASSERT_TRUE(writer.write({0, 0, 0}, {pixels.data(), BITS(3 * bits)}, {}));
        const std::byte* first = format->to.data;
        for (Int y = 0; y < kHeight; ++y) {
            for (Int x = 0; x < kWidth; ++x) {
                ASSERT_TRUE(writer.write({x, y, 0}, {pixels.data(), BITS(3 * bits)}, {}));
                EXPECT_EQ(format->to.stride, bits);
                EXPECT_EQ((format->to.data - first) * 8 + format->to.phase, y * lineBytes * 8 + x * bits);
            }
        }
        EXPECT_EQ(ErrorIdOf(writer.write({0, kHeight, 0}, {pixels.data(), BITS(bits)}, {})), errorid::kIllegalArgument);
        EXPECT_EQ(ErrorIdOf(writer.write({1, 0, kWidth}, {pixels.data(), BITS(bits)}, {})), errorid::kIllegalArgument);
    }
}

TEST(Planes, InitRefuses) {
    const char* kText = "ImagePixelStoragePlanes doesn't work with pixel format: .";  // a fake format has no id
    const std::tuple<const char*, std::vector<Int>, Int, Int, Id, std::string> cases[] = {
        {"second wider", {8, 16}, 5, 5, errorid::kIllegalArgument, kText},
        {"last narrower", {8, 8, 4}, 5, 5, errorid::kIllegalArgument, kText},
        {"packed", {5, 6, 5}, 5, 5, errorid::kIllegalArgument, kText},
        {"packed, in one byte a line", {5, 6, 5}, 1, 1, errorid::kIllegalArgument, kText},
        {"a table that descends", {8, -8, 24}, 5, 5, errorid::kIllegalArgument, kText},
        {"no channels", {}, 5, 5, errorid::kIllegalArgument, ""},
        {"no width", {8, 8}, 0, 5, errorid::kIllegalArgument, ""},
        {"no height", {8, 8}, 5, 0, errorid::kIllegalArgument, ""},
        {"negative width", {8, 8}, -5, 5, errorid::kIllegalArgument, ""},
        {"line overflows", {8, 8}, kMax / 2, 1, errorid::kOutOfMemory, ""},
        {"plane overflows", {8, 8}, Int(1) << 30, Int(1) << 32, errorid::kOutOfMemory, ""},
        {"total overflows", {8, 8, 8, 8}, Int(1) << 29, Int(1) << 30, errorid::kOutOfMemory, ""},
    };
    for (const auto& [what, channels, width, height, error, message] : cases) {
        SCOPED_TRACE(what);
        const auto storage = NewObj<ImagePixelStoragePlanes>().TakeValue();
        const Ref<FakeFormat> format = MakeFormat(channels);
        const Result<void> done = storage->Init(width, height, format, {});
        EXPECT_EQ(ErrorIdOf(done), error);
        if (error == errorid::kIllegalArgument) {
            EXPECT_EQ(MessageOf(done), message);
        }
        EXPECT_EQ(storage->GetChannelCount(), 0);
        EXPECT_FALSE(storage->GetPixelHandler(format, {}, {}, {}, GETPIXELHANDLERFLAGS::NONE));
    }
    const auto storage = NewObj<ImagePixelStoragePlanes>().TakeValue();
    EXPECT_EQ(ErrorIdOf(storage->Init(5, 5, nullptr, {})), errorid::kIllegalArgument);
}

TEST(Planes, InitSurvivesEveryFailedAllocation) {
    const Ref<FakeFormat> format = MakeFormat({8, 8});
    AllocationFaults faults;
    while (faults.Next()) {
        const auto storage = Make<ImagePixelStoragePlanes>(4, 4, format);
        const bool failed = !faults.Run([&] { return storage->Init(100, 100, format, {}); });
        EXPECT_EQ(storage->GetWidth(), failed ? 0 : 100);
        EXPECT_EQ(bool(storage->GetPixelFormat()), !failed);
    }
    EXPECT_GE(faults.GetErrorCount(), 3);
}

/// Each channel is written and read alone; the others keep their values.
TEST_F(PlanesFormatTest, ComponentsAreThoseOfTheirPlane) {
    constexpr Int kWidth = 5, kHeight = 2;
    for (const PixelFormat& format :
         {PixelFormats::Get(pixelformats::kRgbU8), PixelFormats::Get(pixelformats::kRgbaU16),
          PixelFormats::Get(pixelformats::kRgbaF64)}) {
        SCOPED_TRACE(format->GetId().GetCString());
        const auto storage = Make<ImagePixelStoragePlanes>(kWidth, kHeight, format);
        const size_t bytes = size_t(format->GetChannelOffsets()[1].GetBytes());
        const Int channels = format->GetChannelCount(), pixelBytes = format->GetBitsPerPixel().GetBytes();
        const auto value = [](Int c, Int x, size_t b) { return std::byte(c * 40 + x * 8 + Int(b)); };
        for (Int c = 0; c < channels; ++c) {
            std::byte values[3 * 11] = {};
            for (Int x = 2; x < 5; ++x) {
                for (size_t b = 0; b < bytes; ++b)
                    values[size_t(x - 2) * 11 + b] = value(c, x, b);
            }
            ASSERT_TRUE(storage->SetComponent(c, {2, 1, 3}, values, 11, {}));
            std::byte back[3 * 11] = {};
            ASSERT_TRUE(storage->GetComponent(c, {2, 1, 3}, back, 11, {}));
            EXPECT_EQ(std::vector(back, std::end(back)), std::vector(values, std::end(values)));
        }
        std::vector<std::byte> expected(size_t(pixelBytes * kWidth * kHeight));
        for (Int x = 2; x < 5; ++x) {
            for (Int c = 0; c < channels; ++c) {
                for (size_t b = 0; b < bytes; ++b)
                    expected[size_t(pixelBytes * (kWidth + x)) + size_t(c) * bytes + b] = value(c, x, b);
            }
        }
        EXPECT_EQ(ReadAll(*storage, format), expected);
    }
}

TEST(Planes, ComponentsCheckTheWidthBeforeTheIndex) {
    const struct {
        Int bits, channel;
        PixelSpan span;
        Id error;
    } cases[] = {
        {4, 0, {0, 0, 1}, errorid::kFunctionNotImplemented},
        {4, 9, {0, 0, 1}, errorid::kFunctionNotImplemented},
        {8, 3, {0, 0, 1}, errorid::kIllegalArgument},
        {8, -1, {0, 0, 1}, errorid::kIllegalArgument},
        {8, 0, {-1, 0, 1}, errorid::kIllegalArgument},
        {8, 0, {5, 0, 2}, errorid::kIllegalArgument},
        {8, 0, {0, 2, 1}, errorid::kIllegalArgument},
        {8, 0, {0, -1, 1}, errorid::kIllegalArgument},
        {8, 0, {1, 0, kMax}, errorid::kIllegalArgument},
        {8, 2, {5, 1, 1}, {}},
        {8, 0, {0, 0, 0}, {}},
    };
    for (const auto& [bits, channel, span, error] : cases) {
        SCOPED_TRACE(testing::Message() << bits << " bits, channel " << channel << ", " << span.x << ", " << span.y);
        const auto storage = Make<ImagePixelStoragePlanes>(6, 2, MakeFormat({bits, bits, bits}));
        std::byte values[8] = {};
        EXPECT_EQ(ErrorIdOf(storage->GetComponent(channel, span, values, 1, {})), error);
        EXPECT_EQ(ErrorIdOf(storage->SetComponent(channel, span, values, 1, {})), error);
    }
}

TEST_F(PlanesFormatTest, CopiesAreIndependent) {
    const PixelFormat format = PixelFormats::Get(pixelformats::kRgbU8);
    const auto storage = Make<ImagePixelStoragePlanes>(2, 2, format);
    const uint8_t pixel[] = {1, 2, 3};
    const auto writer = storage->SetPixelHandler(format, {}, {}, {}, SETPIXELHANDLERFLAGS::NONE, {}).TakeValue();
    ASSERT_TRUE(writer.write({1, 1, 1}, {pixel, BITS(24)}, {}));
    const ObjectRef copy = storage->Clone().TakeValue();
    auto* clone = dynamic_cast<ImagePixelStoragePlanes*>(copy.GetPointer());
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(ReadAll(*clone, format), ReadAll(*storage, format));
    ASSERT_TRUE(writer.write({0, 0, 1}, {pixel, BITS(24)}, {}));
    EXPECT_NE(ReadAll(*clone, format), ReadAll(*storage, format));
}

}  // namespace
}  // namespace orvik
