#include "gfx_image_storage_normal.h"
#include "image_fakes.h"
#include "support/module_fixture.h"

#include "orvik/iomemory.h"

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
        const MemoryFileRef file = CreateMemoryFile().TakeValue();
        DataSerialize writer(OpenMemoryOutput(file).TakeValue());
        ASSERT_TRUE(storage->DescribeIO(writer));

        const auto back = NewObj<ImagePixelStorageNormal>().TakeValue();
        DataSerialize reader(OpenMemoryInput(file).TakeValue());
        const Result<void> read = back->DescribeIO(reader);
        ASSERT_TRUE(read) << MessageOf(read);
        EXPECT_TRUE(*back == *storage);
        EXPECT_EQ(back->GetWidth(), 5);
        EXPECT_EQ(back->GetHashCode(), storage->GetHashCode());
    }
    // One that was never given a size.
    const auto empty = NewObj<ImagePixelStorageNormal>().TakeValue();
    const MemoryFileRef file = CreateMemoryFile().TakeValue();
    DataSerialize writer(OpenMemoryOutput(file).TakeValue());
    ASSERT_TRUE(empty->DescribeIO(writer));
    const auto back = MakeSample(PixelFormats::Get(pixelformats::kRgbU8));
    DataSerialize reader(OpenMemoryInput(file).TakeValue());
    ASSERT_TRUE(back->DescribeIO(reader));
    EXPECT_TRUE(*back == *empty);
}

/// The fields as a file holds them, in their order, with one of them changed.
struct Fields {
    Int width = 5, height = 3, bytesPerLine = 15, bitsPerPixel = 24, channels = 3;
    std::vector<Int> offsets = {0, 8, 16, 24};
    const char* format = "net.orvik.image.pixelformat.rgb.u8";
    Int bytes = 45;

    MemoryFileRef Write() const {
        MemoryFileRef file = CreateMemoryFile().TakeValue();
        DataSerialize io(OpenMemoryOutput(file).TakeValue());
        Fields copy = *this;
        BaseArray<Int> offsetArray;
        EXPECT_TRUE(offsetArray.CopyFrom(offsets));
        String formatText(format);
        BaseArray<std::byte> data;
        EXPECT_TRUE(data.Resize(bytes));
        EXPECT_TRUE(io.Field("_width", copy.width));
        EXPECT_TRUE(io.Field("_height", copy.height));
        EXPECT_TRUE(io.Field("_bytesPerLine", copy.bytesPerLine));
        EXPECT_TRUE(io.Field("_bitsPerPixel", copy.bitsPerPixel));
        EXPECT_TRUE(io.Field("_channels", copy.channels));
        EXPECT_TRUE(io.Field("_channelOffsets", offsetArray));
        EXPECT_TRUE(io.Field("_pixelFormatId", formatText));
        EXPECT_TRUE(io.Field("_data", data));
        return file;
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
        DataSerialize io(OpenMemoryInput(fields.Write()).TakeValue());
        const Result<void> read = storage->DescribeIO(io);
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
    const MemoryFileRef file = Fields().Write();
    const Block<const std::byte> bytes = std::as_const(*file).GetBytes().ToBlock();
    for (size_t length = 0; length < bytes.size(); ++length) {
        DataSerialize io(OpenMemoryInput(bytes.first(length)).TakeValue());
        EXPECT_EQ(ErrorIdOf(kept->DescribeIO(io)), errorid::kIo) << length;
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
