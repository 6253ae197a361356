// Where the two raster storages keep pixels, and how they hand them to conversions.
#include <fstream>
#include <random>
#include <unistd.h>

#include "image_fakes.h"
#include "storage/gfx_image_storage_normal.h"
#include "storage/gfx_image_storage_planes.h"
#include "support/described.h"
#include "support/module_fixture.h"

namespace orvik {
namespace {

template <class Storage>
Ref<Storage> Make(Int width, Int height, const PixelFormat& format) {
    auto storage = NewObj<Storage>().TakeValue();
    EXPECT_EQ(ErrorIdOf(storage->Init(width, height, format, {})), Id());
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

TEST(Storage, PassesProfilesOffsetsAndFlagOn) {
    const Ref<FakeFormat> stored = MakeFormat({8, 8}), caller = MakeFormat({4, 12});
    const auto storage = Make<ImagePixelStorageNormal>(2, 2, stored);
    const BITS shifted[] = {BITS(8), BITS(0), BITS(16)};
    const ColorProfile profile = MakeProfile();
    ASSERT_TRUE(storage->GetPixelHandler(caller, shifted, profile, {}, GETPIXELHANDLERFLAGS::DONTAPPLYMASK));
    EXPECT_EQ(caller->request, "src 0 8 16 8 0 16 0");
    ASSERT_TRUE(storage->GetPixelHandler(caller, {}, {}, {}, GETPIXELHANDLERFLAGS::NONE));
    EXPECT_FALSE(caller->request.starts_with("src"));  // a null pointer, not an empty profile
    auto writer =
        storage->SetPixelHandler(caller, {}, {}, profile, SETPIXELHANDLERFLAGS::FORCECOLORPROFILECONVERSION, {});
    constexpr auto kForced = CONVERTPIXELFLAGS::FORCECOLORPROFILECONVERSION;
    EXPECT_EQ(stored->request, "src 0 4 16 0 8 16 " + std::to_string(int(kForced)));
    std::byte row[4] = {};
    ASSERT_TRUE(writer->write({0, 0, 2}, {row, BITS(16)}, {}));
    EXPECT_EQ(stored->convertedWith, kForced);
}

/// The number of bytes is that of the channel in front; nothing leaves the block.
TEST(Storage, ComponentsTakeTheWidthInFront) {
    // A line holds the letters a, b, c ... from its first byte on. Expected are two pixels with a stride of 8; a dot is
    // untouched.
    const std::tuple<std::vector<Int>, Int, Int, Int, std::string> cases[] = {
        {{8, 8, 8}, 0, 0, 2, "................"}, {{8, 8, 8}, 1, 0, 2, "b.......e......."},
        {{8, 8, 8}, 2, 1, 2, "f.......i......."}, {{16, 8}, 1, 0, 2, "cd......fg......"},
        {{8, 16}, 1, 0, 2, "b.......e......."},   {{16, 16}, 1, 1, 1, "gh.............."},
        {{5, 6, 5}, 1, 0, 2, "................"}, {{5, 6, 5}, 2, 0, 2, "................"},
        {{32, 8}, 1, 1, 2, "jklm............"},   {{8, 8}, 1, 0, 0, "................"},
        {{8, 8}, 1, 0, -4, "................"},   {{64, 8}, 1, 0, 2, "ijklmnoprstuvwxy"},
    };
    for (const auto& [channels, channel, x, count, expected] : cases) {
        const Ref<FakeFormat> format = MakeFormat(channels);
        const Int bits = format->GetBitsPerPixel().GetBits();
        SCOPED_TRACE(testing::Message() << bits << " bits, channel " << channel << ", x " << x);
        const auto storage = Make<ImagePixelStorageNormal>(3, 1, format);
        std::string line(size_t(bits * 3 / 8), ' ');
        for (size_t i = 0; i < line.size(); ++i)
            line[i] = char('a' + i);
        const auto writer = storage->SetPixelHandler(format, {}, {}, {}, SETPIXELHANDLERFLAGS::NONE, {}).TakeValue();
        ASSERT_TRUE(writer.write({0, 0, 3}, {line.data(), BITS(bits)}, {}));
        std::string got(16, '.');
        const std::string dots = got;
        ASSERT_TRUE(storage->GetComponent(channel, {x, 0, count}, got.data(), 8, {}));
        EXPECT_EQ(got, expected);
        // Dots go where reading took from, and nowhere else.
        ASSERT_TRUE(storage->SetComponent(channel, {x, 0, count}, dots.data(), 8, {}));
        const std::vector<std::byte> changed = ReadAll(*storage, format);
        for (size_t i = 0; i < line.size(); ++i)
            EXPECT_EQ(changed[i] == std::byte('.'), got.find(line[i]) != std::string::npos) << line[i];
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
    const std::vector<Int> cases[] = {{}, {8, 16}, {8, 8, 4}, {5, 6, 5}, {8, -8, 24}};
    for (const std::vector<Int>& channels : cases) {
        const auto storage = NewObj<ImagePixelStoragePlanes>().TakeValue();
        for (const Int side : {1, 5}) {  // at a width of 1 all lines of {5, 6, 5} have one byte
            EXPECT_EQ(ErrorIdOf(storage->Init(side, side, MakeFormat(channels), {})), errorid::kIllegalArgument);
            EXPECT_EQ(storage->GetChannelCount(), 0);
        }
    }
    // Planes that fit one by one, but not together.
    EXPECT_EQ(ErrorIdOf(NewObj<ImagePixelStoragePlanes>().TakeValue()->Init(Int(1) << 30, Int(2) << 30,
                                                                            MakeFormat({8, 8, 8, 8}), {})),
              errorid::kOutOfMemory);
}

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

Int ResidentKilobytes() {
    std::ifstream status("/proc/self/statm");
    Int all = 0, resident = 0;
    status >> all >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

TEST(Storage, FreshPixelsAreUntouchedPages) {
    const Ref<FakeFormat> format = MakeFormat({32});
    const Int before = ResidentKilobytes();
    ASSERT_GT(before, 0);
    const auto storage = Make<ImagePixelStorageNormal>(8192, 8192, format);  // 256 MiB
    EXPECT_LT(ResidentKilobytes() - before, 64 * 1024);
    uint32_t pixel = 1;
    const auto reader = storage->GetPixelHandler(format, {}, {}, {}, GETPIXELHANDLERFLAGS::NONE).TakeValue();
    ASSERT_TRUE(reader.read({8191, 8191, 1}, {&pixel, BITS(32)}, {}));
    EXPECT_EQ(pixel, 0u);
}

using StorageSerializeTest = ModuleFixture;

Ref<ImagePixelStorageNormal> MakeSample(const PixelFormat& format = PixelFormats::Get(pixelformats::kGreyU8)) {
    auto storage = NewObj<ImagePixelStorageNormal>().TakeValue();
    EXPECT_TRUE(storage->Init(5, 3, format, {}));
    const auto writer = storage->SetPixelHandler(format, {}, {}, {}, SETPIXELHANDLERFLAGS::NONE, {}).TakeValue();
    for (Int y = 0; y < 3; ++y) {
        const std::vector<std::byte> row = MakeRow(3, y, (format->GetBitsPerPixel() * 5).GetBytes());
        EXPECT_TRUE(writer.write({0, y, 5}, {row.data(), format->GetBitsPerPixel()}, {}));
    }
    return storage;
}

constexpr uint8_t kRed[] = {200, 10, 20};

/// One for each kind of format that is found in a way of its own; the last has a palette.
std::vector<Ref<ImagePixelStorageNormal>> MakeSamples() {
    const ImageChannel channels[] = {
        channeltypes::GetChannel("net.orvik.image.imagechanneltype.cmyk_c", ComponentType::U8),
        channeltypes::GetChannel(channeltypes::kDepth, ComponentType::F32)};
    const PixelFormatIndexedColor indexed =
        PixelFormats::CreateIndexed(4, PixelFormats::Get(pixelformats::kRgbU16), 9).TakeValue();
    EXPECT_TRUE(indexed->SetIndex(8, PixelFormats::Get(pixelformats::kRgbU8), kRed));
    std::vector<Ref<ImagePixelStorageNormal>> samples;
    for (const PixelFormat& format :
         {PixelFormats::Get(pixelformats::kRgbU8), PixelFormats::Get("net.orvik.image.pixelformat.rgb.u565"),
          PixelFormats::Get(pixelformats::kIndexedU4), PixelFormats::FindOrCreatePixelFormat(channels).TakeValue(),
          PixelFormat(indexed)})
        samples.push_back(MakeSample(format));
    return samples;
}

/// Also in a module that has just been started, and so has made no format at run time.
TEST_F(StorageSerializeTest, ReadsBackWhatItWrote) {
    std::vector<MemoryFileRef> files;
    for (const auto& sample : MakeSamples())
        files.push_back(Written(*sample));
    for (const bool restarts : {false, true}) {
        if (restarts) {
            _publisher.UndoAll();
            ASSERT_TRUE(StartImageModule(_publisher));
        }
        std::vector<Ref<ImagePixelStorageNormal>> storages;
        for (const MemoryFileRef& file : files) {
            storages.push_back(NewObj<ImagePixelStorageNormal>().TakeValue());
            ASSERT_EQ(ErrorIdOf(ReadFrom(*storages.back(), BytesOf(file))), Id());
        }
        const auto samples = MakeSamples();
        for (size_t i = 0; i < files.size(); ++i) {
            EXPECT_TRUE(storages[i]->IsEqual(*samples[i])) << i;
            EXPECT_EQ(storages[i]->GetHashCode(), samples[i]->GetHashCode()) << i;
        }
        const auto colors = Cast<PixelFormatIndexedColorInterface>(storages.back()->GetPixelFormat());
        uint8_t color[3] = {};
        ASSERT_TRUE(colors->GetIndex(8, PixelFormats::Get(pixelformats::kRgbU8), color));
        EXPECT_TRUE(std::ranges::equal(color, kRed));
        EXPECT_EQ(colors->GetColorTableSize(), 9);
        ASSERT_TRUE(colors->SetIndex(7, PixelFormats::Get(pixelformats::kRgbU8), kRed));
        EXPECT_FALSE(storages.back()->IsEqual(*samples.back()));  // equal indices of other colours
    }
    // One that was never given a size.
    const auto empty = NewObj<ImagePixelStorageNormal>().TakeValue(), back = MakeSample();
    ASSERT_TRUE(ReadFrom(*back, BytesOf(Written(*empty))));
    EXPECT_TRUE(back->IsEqual(*empty));
}

TEST_F(StorageSerializeTest, EqualityIsBySizeFormatAndPixels) {
    const PixelFormat grey = PixelFormats::Get(pixelformats::kGreyU8);
    const auto storage = MakeSample(), changed = MakeSample(), turned = NewObj<ImagePixelStorageNormal>().TakeValue();
    const std::byte pixel{7};
    ASSERT_TRUE(turned->Init(3, 5, grey, {}));
    ASSERT_TRUE(changed->SetPixelHandler(grey, {}, {}, {}, SETPIXELHANDLERFLAGS::NONE, {})
                    ->write({4, 2, 1}, {&pixel, BITS(8)}, {}));
    for (const auto& other : {changed, turned, MakeSample(PixelFormats::Get(pixelformats::kAlphaU8))}) {
        EXPECT_FALSE(storage->IsEqual(*other));
        EXPECT_NE(storage->GetHashCode(), other->GetHashCode());
    }
    EXPECT_TRUE(storage->IsEqual(*MakeSample()));
}

/// The id of a format made at run time lists its channels. A list with a name of its own goes by that name only.
TEST_F(StorageSerializeTest, FormatsMadeAtRunTimeAreFoundById) {
    const std::string prefix = "net.orvik.image.pixelformat.";
    for (const char* name : {"red.u8_depth.f32", "cmyk_c.s16", "unused.u8_cmyk_ik.f64_unused.u8"}) {
        const Id id = Id::Create(prefix + name).TakeValue();
        EXPECT_FALSE(FindPublishedObject(id));
        const PixelFormat format = PixelFormats::Get(id);
        ASSERT_TRUE(format) << name;
        EXPECT_EQ(format->GetId(), id);
        EXPECT_EQ(PixelFormats::FindOrCreatePixelFormat(format->GetChannels()).GetValueOr(nullptr), format);
        EXPECT_EQ(FindPublished<PixelFormatInterface>(id), format);
        EXPECT_EQ(Registry::Find<PixelFormatInterface>("net.orvik.image.registry.dynamic", id), format);
    }
    for (const char* name : {"", "red", "red.u9", "red.u8", "red.u8_", "_red.u8", "red.u8_depth", "nothing.u8",
                             "RED.U8", "red.u8_grey.u8", "net.orvik.image.imagechanneltype.depth.f32"})
        EXPECT_FALSE(PixelFormats::Get(Id::Create(prefix + name).TakeValue())) << name;
}

/// The fields as a file holds them, in their order, with one of them changed.
struct Fields {
    Int width = 5, height = 3, bytesPerLine = 15, bitsPerPixel = 24, channels = 3;
    std::vector<Int> offsets = {0, 8, 16, 24};
    const char* format = "net.orvik.image.pixelformat.rgb.u8";
    Int bytes = 45;

    Result<void> DescribeIO(DataSerialize& io) {
        BaseArray<Int> offsetArray;
        TRY(offsetArray.CopyFrom(offsets));
        String formatText(format);
        BaseArray<std::byte> data;
        TRY(data.Resize(bytes));
        TRY(io.Field("_width", width));
        TRY(io.Field("_height", height));
        TRY(io.Field("_bytesPerLine", bytesPerLine));
        TRY(io.Field("_bitsPerPixel", bitsPerPixel));
        TRY(io.Field("_channels", channels));
        TRY(io.Field("_channelOffsets", offsetArray));
        TRY(io.Field("_pixelFormatId", formatText));
        return io.Field("_data", data);
    }
};

TEST_F(StorageSerializeTest, RefusesNumbersThatContradictTheFormat) {
    using Change = void (*)(Fields&);
    const Id no = errorid::kIllegalArgument;
    const std::tuple<const char*, Change, Id> cases[] = {
        {"as written", [](Fields&) {}, {}},
        {"unknown format", [](Fields& f) { f.format = "net.orvik.no"; }, no},
        {"no format", [](Fields& f) { f.format = ""; }, no},
        {"wider", [](Fields& f) { f.width = 6; }, no},
        {"higher", [](Fields& f) { f.height = 4; }, no},
        {"negative", [](Fields& f) { f.height = -3; }, no},
        {"too wide to count", [](Fields& f) { f.width = std::numeric_limits<Int>::max(); }, errorid::kOutOfMemory},
        {"padded", [](Fields& f) { f.bytesPerLine = 16; }, no},
        {"wider pixels", [](Fields& f) { f.bitsPerPixel = 32; }, no},
        {"more channels", [](Fields& f) { f.channels = 4; }, no},
        {"other places", [](Fields& f) { std::swap(f.offsets[1], f.offsets[2]); }, no},
        {"fewer places", [](Fields& f) { f.offsets.pop_back(); }, no},
        {"less data", [](Fields& f) { f.bytes = 44; }, no},
    };
    for (const auto& [what, change, error] : cases) {
        SCOPED_TRACE(what);
        const auto storage = MakeSample();
        Fields fields;
        change(fields);
        const Result<void> read = ReadFrom(*storage, BytesOf(Written(fields)));
        EXPECT_EQ(ErrorIdOf(read), error);
        if (std::string_view(what).ends_with(" format")) {
            EXPECT_EQ(MessageOf(read), "Illegal pixel format: " + std::string(fields.format) + ".");
        }
        EXPECT_EQ(storage->IsEqual(*MakeSample()), !read);
    }
}

TEST_F(StorageSerializeTest, EveryCutAndEveryFailedAllocationIsAnError) {
    const auto kept = MakeSample(), same = MakeSample();
    const MemoryFileRef file = Written(Fields());
    const Block<const std::byte> bytes = BytesOf(file);
    for (size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_EQ(ErrorIdOf(ReadFrom(*kept, bytes.first(length))), errorid::kIo) << length;
        EXPECT_TRUE(kept->IsEqual(*same));
    }
    AllocationFaults faults;
    while (faults.Next()) {
        const auto storage = MakeSample();
        DataSerialize io(OpenMemoryInput(bytes).TakeValue());
        const Result<void> read = faults.Run([&] { return storage->DescribeIO(io); });
        EXPECT_EQ(storage->IsEqual(*same), !read);
    }
    EXPECT_GT(faults.GetErrorCount(), 3);
}

}  // namespace
}  // namespace orvik
