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

TEST_F(StorageSerializeTest, ReadsBackWhatItWrote) {
    for (const char* id : {"net.orvik.image.pixelformat.rgb.u8", "net.orvik.image.pixelformat.rgba.f32",
                           "net.orvik.image.pixelformat.rgb.u565"}) {
        SCOPED_TRACE(id);
        const auto storage = MakeSample(PixelFormats::Get(Id::Create(id).TakeValue()));
        const auto back = NewObj<ImagePixelStorageNormal>().TakeValue();
        const Result<void> read = ReadFrom(*back, BytesOf(Written(*storage)));
        ASSERT_TRUE(read) << MessageOf(read);
        EXPECT_TRUE(*back == *storage);
        EXPECT_EQ(back->GetWidth(), 5);
        EXPECT_EQ(back->GetHashCode(), storage->GetHashCode());
    }
    // One that was never given a size.
    const auto empty = NewObj<ImagePixelStorageNormal>().TakeValue();
    const auto back = MakeSample(PixelFormats::Get(pixelformats::kRgbU8));
    ASSERT_TRUE(ReadFrom(*back, BytesOf(Written(*empty))));
    EXPECT_TRUE(*back == *empty);
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
    const auto with = [](auto change) {
        Fields fields;
        change(fields);
        return fields;
    };
    const std::tuple<const char*, Fields, Id, const char*> cases[] = {
        {"as written", {}, {}, ""},
        {"unknown format", with([](Fields& f) { f.format = "net.orvik.no"; }), errorid::kIllegalArgument,
         "Illegal pixel format: net.orvik.no."},
        {"no format", with([](Fields& f) { f.format = ""; }), errorid::kIllegalArgument, "Illegal pixel format: ."},
        {"wider", with([](Fields& f) { f.width = 6; }), errorid::kIllegalArgument, nullptr},
        {"higher", with([](Fields& f) { f.height = 4; }), errorid::kIllegalArgument, nullptr},
        {"negative", with([](Fields& f) { f.height = -3; }), errorid::kIllegalArgument, nullptr},
        {"too wide to count", with([](Fields& f) { f.width = std::numeric_limits<Int>::max(); }), errorid::kOutOfMemory,
         nullptr},
        {"padded", with([](Fields& f) { f.bytesPerLine = 16; }), errorid::kIllegalArgument, nullptr},
        {"wider pixels", with([](Fields& f) { f.bitsPerPixel = 32; }), errorid::kIllegalArgument, nullptr},
        {"more channels", with([](Fields& f) { f.channels = 4; }), errorid::kIllegalArgument, nullptr},
        {"other places", with([](Fields& f) {
             f.offsets = {0, 16, 8, 24};
         }),
         errorid::kIllegalArgument, nullptr},
        {"fewer places", with([](Fields& f) {
             f.offsets = {0, 8, 16};
         }),
         errorid::kIllegalArgument, nullptr},
        {"less data", with([](Fields& f) { f.bytes = 44; }), errorid::kIllegalArgument, nullptr},
    };
    for (const auto& [what, fields, error, message] : cases) {
        SCOPED_TRACE(what);
        const auto storage = MakeSample(PixelFormats::Get(pixelformats::kGreyU8));
        const Result<void> read = ReadFrom(*storage, BytesOf(Written(Fields(fields))));
        EXPECT_EQ(ErrorIdOf(read), error);
        if (message) {
            EXPECT_EQ(MessageOf(read), message);
        }
        if (!error.IsEmpty()) {
            EXPECT_TRUE(*storage == *MakeSample(PixelFormats::Get(pixelformats::kGreyU8)));
        }
    }
}

TEST_F(StorageSerializeTest, EveryCutAndEveryFailedAllocationIsAnError) {
    const auto kept = MakeSample(PixelFormats::Get(pixelformats::kGreyU8));
    const auto same = MakeSample(PixelFormats::Get(pixelformats::kGreyU8));
    const MemoryFileRef file = Written(Fields());
    const Block<const std::byte> bytes = BytesOf(file);
    for (size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_EQ(ErrorIdOf(ReadFrom(*kept, bytes.first(length))), errorid::kIo) << length;
        EXPECT_TRUE(*kept == *same);
    }
    AllocationFaults faults;
    while (faults.Next()) {
        const auto storage = MakeSample(PixelFormats::Get(pixelformats::kGreyU8));
        DataSerialize io(OpenMemoryInput(bytes).TakeValue());
        // A list of formats that runs short may have none of this id.
        const Result<void> read = faults.Run([&] { return storage->DescribeIO(io); }, false);
        EXPECT_EQ(*storage == *same, !read);
    }
    EXPECT_GT(faults.GetErrorCount(), 3);
}

}  // namespace
}  // namespace orvik
