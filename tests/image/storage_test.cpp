#include "image_fakes.h"
#include "storage/decode_limits.h"
#include "storage/gfx_image_storage_nodata.h"
#include "storage/gfx_image_storage_normal.h"

namespace orvik {
namespace {

constexpr Int kMax = std::numeric_limits<Int>::max();
constexpr Int kMin = std::numeric_limits<Int>::min();

Ref<ImagePixelStorageNormal> MakeNormal(Int width, Int height, const PixelFormat& format) {
    auto storage = NewObj<ImagePixelStorageNormal>().TakeValue();
    const Result<void> done = storage->Init(width, height, format, {});
    EXPECT_TRUE(done) << MessageOf(done);
    return storage;
}
Result<GetPixelHandlerStruct> Reader(ImagePixelStorageInterface& storage, const PixelFormat& format) {
    return storage.GetPixelHandler(format, format->GetChannelOffsets(), {}, {}, GETPIXELHANDLERFLAGS::NONE);
}
Result<SetPixelHandlerStruct> Writer(ImagePixelStorageInterface& storage, const PixelFormat& format,
                                     const RegionDelegate& region = {}) {
    return storage.SetPixelHandler(format, format->GetChannelOffsets(), {}, {}, SETPIXELHANDLERFLAGS::NONE, region);
}

/// Every span of a small image lands on its own bits, whatever the width of a pixel.
TEST(Storage, AddressesPixelsOfEveryWidth) {
    constexpr Int kWidth = 9, kHeight = 3;
    for (Int bits = 1; bits <= 128; ++bits) {
        SCOPED_TRACE(bits);
        const Ref<FakeFormat> format = MakeFormat({bits});
        const auto storage = MakeNormal(kWidth, kHeight, format);
        const Int lineBytes = (bits * kWidth + 7) / 8;
        const SetPixelHandlerStruct writer = Writer(*storage, format).TakeValue();
        const GetPixelHandlerStruct reader = Reader(*storage, format).TakeValue();

        std::vector<std::byte> ones(size_t(lineBytes), std::byte(0xFF)), row(ones.size());
        ASSERT_TRUE(reader.read({0, 0, 0}, {row.data(), BITS(bits)}, {}));
        const std::byte* first = format->from.data;
        for (Int y = 0; y < kHeight; ++y) {
            for (Int x = 0; x < kWidth; ++x) {
                const Int count = std::min<Int>(kWidth - x, 1 + (x + y) % 3);
                ASSERT_TRUE(storage->Init(kWidth, kHeight, format, {}));
                const SetPixelHandlerStruct fresh = Writer(*storage, format).TakeValue();
                const GetPixelHandlerStruct back = Reader(*storage, format).TakeValue();
                ASSERT_TRUE(fresh.write({x, y, count}, {ones.data(), BITS(bits)}, {}));
                EXPECT_EQ(format->to.stride, bits);
                EXPECT_EQ(format->to.phase, x * bits % 8);
                const std::byte* written = format->to.data;

                for (Int other = 0; other < kHeight; ++other) {
                    std::vector<std::byte> expected(ones.size());
                    if (other == y)
                        CopyBits(expected.data(), x * bits, ones.data(), 0, count * bits);
                    std::fill(row.begin(), row.end(), std::byte(0));
                    ASSERT_TRUE(back.read({0, other, kWidth}, {row.data(), BITS(bits)}, {}));
                    EXPECT_EQ(row, expected) << "line " << other << " after writing " << x << ", " << y;
                    if (other == 0) {
                        EXPECT_EQ(written - format->from.data, y * lineBytes + x * bits / 8);
                    }
                }
            }
        }
        // A handler of before keeps the block that it was made for.
        ASSERT_TRUE(writer.write({0, 0, kWidth}, {ones.data(), BITS(bits)}, {}));
        EXPECT_EQ(format->to.data, first);
    }
}

TEST(Storage, ChecksSpans) {
    const Ref<FakeFormat> format = MakeFormat({8});
    const auto storage = MakeNormal(10, 4, format);
    const SetPixelHandlerStruct writer = Writer(*storage, format).TakeValue();
    const GetPixelHandlerStruct reader = Reader(*storage, format).TakeValue();
    const struct {
        PixelSpan span;
        bool fits;
    } cases[] = {
        {{0, 0, 10}, true},    {{0, 3, 10}, true},    {{9, 0, 1}, true},        {{10, 0, 0}, true},
        {{0, 0, 0}, true},     {{0, 0, 11}, false},   {{9, 0, 2}, false},       {{10, 0, 1}, false},
        {{11, 0, 0}, false},   {{-1, 0, 1}, false},   {{-1, 0, 0}, false},      {{0, 4, 1}, false},
        {{0, 4, 0}, false},    {{0, -1, 1}, false},   {{0, 0, -1}, false},      {{5, 0, -3}, false},
        {{kMax, 0, 1}, false}, {{1, 0, kMax}, false}, {{kMax, 0, kMax}, false}, {{kMin, 0, kMax}, false},
        {{0, kMax, 1}, false}, {{0, kMin, 1}, false}, {{kMin, 0, kMin}, false}, {{0, 0, kMin}, false},
    };
    std::byte pixels[16] = {};
    for (const auto& [span, fits] : cases) {
        SCOPED_TRACE(testing::Message() << span.x << ", " << span.y << ", " << span.count);
        const Id expected = fits ? Id() : errorid::kIllegalArgument;
        const Result<void> read = reader.read(span, {pixels, BITS(8)}, {});
        EXPECT_EQ(ErrorIdOf(read), expected);
        EXPECT_EQ(MessageOf(read), "");
        EXPECT_EQ(ErrorIdOf(writer.write(span, {pixels, BITS(8)}, {})), expected);
    }
}

TEST(Storage, OldHandlersStayInsideTheirOwnBlock) {
    const Ref<FakeFormat> wide = MakeFormat({128}), narrow = MakeFormat({8});
    const auto storage = MakeNormal(50, 50, wide);
    const SetPixelHandlerStruct old = Writer(*storage, wide).TakeValue();
    ASSERT_TRUE(storage->Init(2, 2, narrow, {}));
    const std::vector<std::byte> row(50 * 16, std::byte(0xAA));
    EXPECT_TRUE(old.write({0, 49, 50}, {row.data(), BITS(128)}, {}));
    EXPECT_EQ(ErrorIdOf(Writer(*storage, wide)), errorid::kIllegalState);  // no conversion to the narrow format
    uint8_t pixels[2] = {1, 1};
    ASSERT_TRUE(Reader(*storage, narrow)->read({0, 1, 2}, {pixels, BITS(8)}, {}));
    EXPECT_EQ(pixels[0] | pixels[1], 0);
}

TEST(Storage, InitRefusesAndStaysSafe) {
    const Ref<FakeFormat> format = MakeFormat({8, 8, 8});
    const std::tuple<const char*, Int, Int, bool, Id, Int> cases[] = {
        {"null format", 90, 90, false, errorid::kIllegalArgument, 90},
        {"negative width", -1, 5, true, errorid::kIllegalArgument, 7},
        {"negative height", 5, kMin, true, errorid::kIllegalArgument, 7},
        {"line overflows", kMax, 1, true, errorid::kOutOfMemory, 0},
        {"line rounds over", kMax / 24, kMax, true, errorid::kOutOfMemory, 0},
        {"block overflows", Int(1) << 40, Int(1) << 40, true, errorid::kOutOfMemory, 0},
        {"above the bound", 4'000'000'000, 4'000, true, errorid::kOutOfMemory, 0},
    };
    SetDecodeBufferLimit(1'000'000);
    for (const auto& [what, width, height, hasFormat, error, widthAfter] : cases) {
        SCOPED_TRACE(what);
        const auto storage = MakeNormal(7, 2, format);
        EXPECT_EQ(ErrorIdOf(storage->Init(width, height, hasFormat ? format : nullptr, {})), error);
        EXPECT_EQ(storage->GetWidth(), widthAfter);
        if (error == errorid::kOutOfMemory) {
            EXPECT_EQ(storage->GetHeight(), 0);
            EXPECT_EQ(storage->GetChannelCount(), 0);
            EXPECT_FALSE(storage->GetPixelFormat());
            EXPECT_FALSE(Reader(*storage, format));
        } else {
            const GetPixelHandlerStruct reader = Reader(*storage, format).TakeValue();
            std::vector<std::byte> row(300);
            EXPECT_TRUE(reader.read({0, 1, 7}, {row.data(), BITS(24)}, {}));
            EXPECT_FALSE(reader.read({0, 0, 8}, {row.data(), BITS(24)}, {}));
        }
    }
    EXPECT_TRUE(MakeNormal(1'000, 333, format));
    SetDecodeBufferLimit(0);
    EXPECT_GT(GetDecodeBufferLimit(), Int(64) << 20);
}

TEST(Storage, InitSurvivesEveryFailedAllocation) {
    const Ref<FakeFormat> format = MakeFormat({8});
    AllocationFaults faults;
    while (faults.Next()) {
        const auto storage = MakeNormal(4, 4, format);
        const bool failed = !faults.Run([&] { return storage->Init(100, 100, format, {}); });
        EXPECT_EQ(storage->GetWidth(), failed ? 0 : 100);
        EXPECT_EQ(bool(storage->GetPixelFormat()), !failed);
    }
    EXPECT_GT(faults.GetErrorCount(), 0);
}

TEST(Storage, LineCallsAllocateNothing) {
    const Ref<FakeFormat> format = MakeFormat({8});
    const auto storage = MakeNormal(16, 2, format);
    const SetPixelHandlerStruct writer = Writer(*storage, format).TakeValue();
    const GetPixelHandlerStruct reader = Reader(*storage, format).TakeValue();
    std::byte row[16] = {};
    SetAllocationFault(0);
    ASSERT_TRUE(writer.write({0, 1, 16}, {row, BITS(8)}, {}));
    ASSERT_TRUE(reader.read({0, 1, 16}, {row, BITS(8)}, {}));
    EXPECT_EQ(GetAllocationCount(), 0);
}

TEST(Storage, PassesProfilesOffsetsAndFlagOn) {
    const Ref<FakeFormat> stored = MakeFormat({8, 8}), caller = MakeFormat({4, 12});
    const auto storage = MakeNormal(2, 2, stored);
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
    ASSERT_TRUE(Reader(*storage, caller));
    EXPECT_FALSE(caller->request.hasSrcProfile);  // a null pointer, not an empty profile
    auto writer =
        storage->SetPixelHandler(caller, {}, {}, profile, SETPIXELHANDLERFLAGS::FORCECOLORPROFILECONVERSION, {});
    ASSERT_TRUE(writer);  // the format's own offsets where none are given
    expect(stored->request, {0, 4, 16}, {0, 8, 16}, CONVERTPIXELFLAGS::FORCECOLORPROFILECONVERSION);
    std::byte row[4] = {};
    ASSERT_TRUE(writer->write({0, 0, 2}, {row, BITS(16)}, {}));
    EXPECT_EQ(stored->to.flags, CONVERTPIXELFLAGS::FORCECOLORPROFILECONVERSION);
}

TEST(Storage, NoDataDescribesButHoldsNothing) {
    const Ref<FakeFormat> format = MakeFormat({8, 8, 8}), other = MakeFormat({8});
    const auto storage = NewObj<ImagePixelStorageNoData>().TakeValue();
    EXPECT_EQ(ErrorIdOf(storage->Init(5, 5, nullptr, {})), errorid::kIllegalArgument);
    ASSERT_TRUE(storage->Init(4'000'000'000, 4'000'000'000, format, {}));
    EXPECT_EQ(storage->GetHeight(), 4'000'000'000);
    EXPECT_EQ(storage->GetChannelCount(), 3);
    const auto reader = Reader(*storage, format);
    const auto writer = Writer(*storage, format);
    ASSERT_TRUE(reader && writer);
    std::byte pixel[3] = {};
    for (const Id& error : {ErrorIdOf(reader->read({0, 0, 1}, {pixel, BITS(24)}, {})),
                            ErrorIdOf(writer->write({0, 0, 1}, {pixel, BITS(24)}, {})),
                            ErrorIdOf(storage->GetComponent(0, {0, 0, 1}, pixel, 1, {})),
                            ErrorIdOf(storage->SetComponent(0, {0, 0, 1}, pixel, 1, {}))})
        EXPECT_EQ(error, errorid::kFunctionNotImplemented);
    EXPECT_FALSE(Reader(*storage, other));  // the conversion is looked for as always
    EXPECT_EQ(ErrorIdOf(storage->Init(kMax, 1, format, {})), errorid::kOutOfMemory);
    EXPECT_EQ(storage->GetWidth(), 0);
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
        const auto storage = MakeNormal(3, 1, format);
        std::string line(size_t(bits * 3 / 8), ' ');
        for (size_t i = 0; i < line.size(); ++i)
            line[i] = char('a' + i);
        const SetPixelHandlerStruct writer = Writer(*storage, format).TakeValue();
        ASSERT_TRUE(writer.write({0, 0, 3}, {line.data(), BITS(bits)}, {}));

        std::string got(16, '.');
        ASSERT_TRUE(storage->GetComponent(test.channel, {test.x, 0, test.count}, got.data(), 8, {}));
        EXPECT_EQ(got, test.expected);

        // Dots go where reading took from, and nowhere else.
        const std::string dots(16, '.');
        ASSERT_TRUE(storage->SetComponent(test.channel, {test.x, 0, test.count}, dots.data(), 8, {}));
        std::string changed(line.size(), ' ');
        ASSERT_TRUE(Reader(*storage, format)->read({0, 0, 3}, {changed.data(), BITS(bits)}, {}));
        for (size_t i = 0; i < line.size(); ++i)
            EXPECT_EQ(changed[i] == '.', got.find(line[i]) != std::string::npos) << line[i];
    }
}

TEST(Storage, ComponentsCheckTheirArguments) {
    const Ref<FakeFormat> format = MakeFormat({8, 8, 8});
    const auto storage = MakeNormal(4, 2, format);
    std::byte values[4] = {};
    const struct {
        Int channel;
        PixelSpan span;
    } cases[] = {{3, {0, 0, 1}}, {-1, {0, 0, 1}}, {kMax, {0, 0, 1}},    {1, {0, 2, 1}}, {1, {-1, 0, 1}},
                 {1, {3, 0, 2}}, {1, {0, -1, 1}}, {1, {kMax, 0, kMax}}, {3, {0, 0, 0}}, {1, {1, 0, kMax}}};
    for (const auto& [channel, span] : cases) {
        SCOPED_TRACE(testing::Message() << channel << ": " << span.x << ", " << span.y << ", " << span.count);
        EXPECT_EQ(ErrorIdOf(storage->GetComponent(channel, span, values, 1, {})), errorid::kIllegalArgument);
        EXPECT_EQ(ErrorIdOf(storage->SetComponent(channel, span, values, 1, {})), errorid::kIllegalArgument);
    }
}

TEST(Storage, TellsTheDirtyRectangleOnce) {
    const Ref<FakeFormat> format = MakeFormat({8});
    const auto storage = MakeNormal(20, 20, format);
    const std::pair<std::vector<PixelSpan>, std::vector<UpdateRegion>> cases[] = {
        {{}, {}},
        {{{3, 4, 0}}, {}},
        {{{3, 4, 5}}, {{3, 4, 5, 1}}},
        {{{3, 4, 5}, {10, 1, 2}, {0, 9, 1}}, {{0, 1, 12, 9}}},
    };
    for (const auto& [widened, expected] : cases) {
        std::vector<UpdateRegion> told;
        SetPixelHandlerStruct writer = Writer(*storage, format, [&](const UpdateRegion& where) {
                                           told.push_back(where);
                                           return Result<void>();
                                       }).TakeValue();
        for (const PixelSpan& span : widened)
            writer.Widen(span);
        storage->FreePixelHandler(writer);
        EXPECT_FALSE(writer);
        storage->FreePixelHandler(writer);
        EXPECT_EQ(told, expected);
    }
}

TEST(Storage, NormalIsData) {
    const Ref<FakeFormat> format = MakeFormat({8}), other = MakeFormat({8});
    const auto a = MakeNormal(4, 2, format), b = MakeNormal(4, 2, format);
    EXPECT_TRUE(*a == *b);
    EXPECT_EQ(a->GetHashCode(), b->GetHashCode());
    EXPECT_FALSE(*a == *MakeNormal(2, 4, format));
    EXPECT_FALSE(*a == *MakeNormal(4, 2, other));

    const std::byte pixel{7};
    ASSERT_TRUE(Writer(*a, format)->write({2, 1, 1}, {&pixel, BITS(8)}, {}));
    EXPECT_FALSE(*a == *b);
    EXPECT_NE(a->GetHashCode(), b->GetHashCode());
    const ObjectRef copy = a->Clone().TakeValue();
    const auto* clone = dynamic_cast<ImagePixelStorageNormal*>(copy.GetPointer());
    ASSERT_NE(clone, nullptr);
    EXPECT_TRUE(*clone == *a);
    ASSERT_TRUE(Writer(*a, format)->write({0, 0, 1}, {&pixel, BITS(8)}, {}));
    EXPECT_FALSE(*clone == *a);
}

TEST_F(ImageFixture, StoragesAreRegistered) {
    std::vector<std::string> ids;
    for (const Registry::Entry& entry : Registry::GetEntries(kPixelStorageClassRegistry)) {
        ids.emplace_back(entry.id.GetText());
        EXPECT_TRUE(ClassRef(entry.id).Create<ImagePixelStorageInterface>());
    }
    EXPECT_EQ(ids,
              (std::vector<std::string>{
                  "net.orvik.image.imagepixelstorageclass.normal", "net.orvik.image.imagepixelstorageclass.planes",
                  "net.orvik.image.imagepixelstorageclass.nodata", "net.orvik.image.imagepixelstorageclass.voxel"}));
}

}  // namespace
}  // namespace orvik
