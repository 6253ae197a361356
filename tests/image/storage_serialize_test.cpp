#include "image_fakes.h"
#include "storage/gfx_image_storage_normal.h"
#include "support/described.h"
#include "support/module_fixture.h"

namespace orvik {
namespace {

using StorageSerializeTest = ModuleFixture;

Ref<ImagePixelStorageNormal> MakeSample(const PixelFormat& format) {
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
            const Result<void> read = ReadFrom(*storages.back(), BytesOf(file));
            ASSERT_TRUE(read) << MessageOf(read);
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
    const auto empty = NewObj<ImagePixelStorageNormal>().TakeValue();
    const auto back = MakeSample(PixelFormats::Get(pixelformats::kRgbU8));
    ASSERT_TRUE(ReadFrom(*back, BytesOf(Written(*empty))));
    EXPECT_TRUE(back->IsEqual(*empty));
}

TEST_F(StorageSerializeTest, EqualityIsBySizeFormatAndPixels) {
    const PixelFormat grey = PixelFormats::Get(pixelformats::kGreyU8),
                      alpha = PixelFormats::Get(pixelformats::kAlphaU8);
    const auto storage = MakeSample(grey), changed = MakeSample(grey),
               turned = NewObj<ImagePixelStorageNormal>().TakeValue();
    const std::byte pixel{7};
    ASSERT_TRUE(turned->Init(3, 5, grey, {}));
    ASSERT_TRUE(changed->SetPixelHandler(grey, {}, {}, {}, SETPIXELHANDLERFLAGS::NONE, {})
                    ->write({4, 2, 1}, {&pixel, BITS(8)}, {}));
    for (const auto& other : {changed, turned, MakeSample(alpha)}) {
        EXPECT_FALSE(storage->IsEqual(*other));
        EXPECT_NE(storage->GetHashCode(), other->GetHashCode());
    }
    EXPECT_TRUE(storage->IsEqual(*MakeSample(grey)));
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
        EXPECT_EQ(Registry::Find<PixelFormatInterface>("net.orvik.image.registry.dynamic", id), format);
        EXPECT_EQ(FindPublished<PixelFormatInterface>(id), format);
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
        const auto storage = MakeSample(PixelFormats::Get(pixelformats::kGreyU8));
        Fields fields;
        change(fields);
        const Result<void> read = ReadFrom(*storage, BytesOf(Written(fields)));
        EXPECT_EQ(ErrorIdOf(read), error);
        if (std::string_view(what).ends_with(" format")) {
            EXPECT_EQ(MessageOf(read), "Illegal pixel format: " + std::string(fields.format) + ".");
        }
        EXPECT_EQ(storage->IsEqual(*MakeSample(PixelFormats::Get(pixelformats::kGreyU8))), !read);
    }
}

TEST_F(StorageSerializeTest, EveryCutAndEveryFailedAllocationIsAnError) {
    const auto kept = MakeSample(PixelFormats::Get(pixelformats::kGreyU8));
    const auto same = MakeSample(PixelFormats::Get(pixelformats::kGreyU8));
    const MemoryFileRef file = Written(Fields());
    const Block<const std::byte> bytes = BytesOf(file);
    for (size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_EQ(ErrorIdOf(ReadFrom(*kept, bytes.first(length))), errorid::kIo) << length;
        EXPECT_TRUE(kept->IsEqual(*same));
    }
    AllocationFaults faults;
    while (faults.Next()) {
        const auto storage = MakeSample(PixelFormats::Get(pixelformats::kGreyU8));
        DataSerialize io(OpenMemoryInput(bytes).TakeValue());
        const Result<void> read = faults.Run([&] { return storage->DescribeIO(io); });
        EXPECT_EQ(storage->IsEqual(*same), !read);
    }
    EXPECT_GT(faults.GetErrorCount(), 3);
}

}  // namespace
}  // namespace orvik
