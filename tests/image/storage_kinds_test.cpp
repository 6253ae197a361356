// What all storages owe their callers, whatever lies behind them.
#include <map>
#include <random>

#include "image_fakes.h"
#include "storage/decode_limits.h"

namespace orvik {
namespace {

constexpr Int kMax = std::numeric_limits<Int>::max();
constexpr Int kMin = std::numeric_limits<Int>::min();
constexpr Int kFar = (Int(1) << 37) - 1;  ///< the last coordinate that a voxel storage counts
constexpr Id kNo = errorid::kIllegalArgument, kMemory = errorid::kOutOfMemory,
             kLacks = errorid::kFunctionNotImplemented;

/// One registered class of storages a run. Two bytes a pixel, 6 pixels by 4.
class StorageKinds : public ImageFixture {
protected:
    static constexpr Int kWidth = 6, kHeight = 4;
    using Storage = Ref<ImagePixelStorageInterface>;

    Storage Fresh(const Id& kind) const {
        const Storage storage = Make<ImagePixelStorageInterface>(kind);
        const Result<void> done = storage->Init(kWidth, kHeight, format, {});
        EXPECT_TRUE(done) << MessageOf(done);
        return storage;
    }
    Result<GetPixelHandlerStruct> Reader(const Storage& storage) const {
        return storage->GetPixelHandler(format, {}, {}, {}, GETPIXELHANDLERFLAGS::NONE);
    }
    Result<SetPixelHandlerStruct> Writer(const Storage& storage) const {
        return storage->SetPixelHandler(format, {}, {}, {}, SETPIXELHANDLERFLAGS::NONE, {});
    }
    Id Read(const Storage& storage, const PixelSpan& span) {
        return ErrorIdOf(Reader(storage)->read(span, {pixels, BITS(16)}, {}));
    }
    Id Write(const Storage& storage, const PixelSpan& span) {
        const Result<void> written = Writer(storage)->write(span, {pixels, BITS(16)}, {});
        EXPECT_EQ(MessageOf(written), "");
        return ErrorIdOf(written);
    }

    Ref<FakeFormat> format = MakeFormat({8, 8});
    std::byte pixels[64] = {};
    const Id kinds[4] = {storageclasses::kNormal, storageclasses::kPlanes, storageclasses::kNoData,
                         storageclasses::kVoxel};
};

TEST_F(StorageKinds, AreRegisteredInTheirOrder) {
    std::vector<Id> ids;
    for (const Registry::Entry& entry : Registry::GetEntries(kPixelStorageClassRegistry))
        ids.push_back(entry.id);
    EXPECT_TRUE(std::ranges::equal(ids, kinds));
}

/// Rasters end at their sides, a voxel storage where its tiles can no longer be counted; its grid cannot reach from the
/// tile at 0 to the farthest.
TEST_F(StorageKinds, RefuseSpansOutside) {
    const struct {
        std::vector<PixelSpan> spans;
        Id raster, voxelRead, voxelWrite;
    } cases[] = {
        {{{0, 0, 6}, {5, 3, 1}, {6, 0, 0}}, {}, {}, {}},
        {{{0, 0, 7}, {5, 0, 2}, {7, 0, 0}, {-1, 0, 1}, {-1, 0, 0}, {0, 4, 1}, {0, 4, 0}, {0, -1, 1}}, kNo, {}, {}},
        {{{kFar, kFar, 1}, {-kFar - 1, 0, 1}}, kNo, {}, kMemory},
        {{{kFar, 0, 2},
          {0, kFar + 1, 1},
          {-kFar - 2, 0, 1},
          {0, -kFar - 2, 1},
          {0, 0, -1},
          {5, 0, -3},
          {kMax, 0, 2},
          {1, 0, kMax},
          {kMax, 0, kMax},
          {kMin, 0, kMax},
          {kMin, 0, kMin},
          {0, kMax, 1},
          {0, kMin, 1},
          {0, 0, kMin}},
         kNo,
         kNo,
         kNo},
    };
    for (const Id& kind : kinds) {
        const Storage storage = Fresh(kind);
        const bool isVoxel = kind == storageclasses::kVoxel, isEmpty = kind == storageclasses::kNoData;
        for (const auto& [spans, raster, voxelRead, voxelWrite] : cases) {
            for (const PixelSpan& span : spans) {
                SCOPED_TRACE(testing::Message()
                             << kind.GetText() << ' ' << span.x << ", " << span.y << ", " << span.count);
                EXPECT_EQ(Read(storage, span), isEmpty ? kLacks : isVoxel ? voxelRead : raster);
                EXPECT_EQ(Write(storage, span), isEmpty ? kLacks : isVoxel ? voxelWrite : raster);
            }
        }
    }
}

/// Random lines over a map of single pixels: in rasters inside their sides, in a voxel storage in all directions.
TEST_F(StorageKinds, AgreeWithAMapOfPixels) {
    using Pixel = std::vector<std::byte>;
    for (const Id& kind : {storageclasses::kNormal, storageclasses::kPlanes, storageclasses::kVoxel}) {
        for (const Int bits : {1, 2, 4, 8, 12, 24, 64}) {
            SCOPED_TRACE(testing::Message() << kind.GetText() << ' ' << bits);
            const bool isVoxel = kind == storageclasses::kVoxel;
            format = MakeFormat({bits});
            const auto bytes = size_t((bits + 7) / 8);
            const std::vector<std::byte> color(bytes, std::byte(0xA5));
            const Storage storage = Make<ImagePixelStorageInterface>(kind);
            ASSERT_TRUE(storage->Init(500, 40, format, color));
            const SetPixelHandlerStruct writer = Writer(storage).TakeValue();
            const GetPixelHandlerStruct reader = Reader(storage).TakeValue();
            std::map<std::pair<Int, Int>, Pixel> model;
            Pixel untouched(bytes);
            if (isVoxel)
                CopyBits(untouched.data(), 0, color.data(), 0, bits);
            const auto pixelAt = [&](Int x, Int y) -> const Pixel& {
                const auto found = model.find({x, y});
                return found == model.end() ? untouched : found->second;
            };
            std::mt19937 random(static_cast<unsigned>(bits));
            std::vector<std::byte> line(300 * 8 + 8);
            for (int i = 0; i < 300; ++i) {
                const Int count = Int(random() % 200);
                const PixelSpan span{Int(random() % 300) - (isVoxel ? 150 : 0), Int(random() % 40) - (isVoxel ? 20 : 0),
                                     count};
                const int phase = bits < 8 ? int(random() % 8) / int(bits) * int(bits) : 0;
                std::vector<std::byte> expected(line.size());
                if (i % 2 == 0) {
                    std::generate(line.begin(), line.end(), [&] { return std::byte(random()); });
                    ASSERT_TRUE(writer.write(span, {line.data(), BITS(bits), phase}, {}));
                    for (Int k = 0; k < count; ++k) {
                        Pixel& pixel = model[{span.x + k, span.y}] = Pixel(bytes);
                        CopyBits(pixel.data(), 0, line.data(), phase + k * bits, bits);
                    }
                } else if (bits % 8 == 0 && i % 3 == 0) {  // a line from right to left
                    std::fill(line.begin(), line.end(), std::byte(0));
                    ASSERT_TRUE(reader.read(span, {line.data() + 200 * bytes, BITS(-bits)}, {}));
                    for (Int k = 0; k < count; ++k)
                        std::ranges::copy(pixelAt(span.x + k, span.y), &expected[size_t(200 - k) * bytes]);
                    ASSERT_EQ(line, expected) << "line " << i;
                } else {
                    std::fill(line.begin(), line.end(), std::byte(0));
                    ASSERT_TRUE(reader.read(span, {line.data(), BITS(bits), phase}, {}));
                    for (Int k = 0; k < count; ++k)
                        CopyBits(expected.data(), phase + k * bits, pixelAt(span.x + k, span.y).data(), 0, bits);
                    ASSERT_EQ(line, expected) << "line " << i;
                }
            }
        }
    }
}

TEST_F(StorageKinds, InitRefusesAndStaysSafe) {
    constexpr Int kBig = Int(1) << 40;
    const Id none{};
    const struct {
        const char* what;
        Int width, height;
        bool hasFormat;
        std::array<Id, 4> errors;  ///< by kind
    } cases[] = {
        {"no format", 9, 9, false, {kNo, kNo, kNo, kNo}},
        {"negative width", -1, 5, true, {kNo, kNo, kNo, kNo}},
        {"negative height", 5, kMin, true, {kNo, kNo, kNo, kNo}},
        {"no width", 0, 5, true, {none, kNo, none, none}},
        {"no height", 5, 0, true, {none, kNo, none, none}},
        {"line overflows", kMax, 1, true, {kMemory, kMemory, kMemory, none}},
        {"line rounds over", kMax / 16, kMax, true, {kMemory, kMemory, none, none}},
        {"block overflows", kBig, kBig, true, {kMemory, kMemory, none, none}},
        {"above the bound", 1'000, 1'000, true, {kMemory, kMemory, none, none}},
    };
    SetDecodeBufferLimit(1'000'000);
    for (size_t k = 0; k < std::size(kinds); ++k) {
        for (const auto& [what, width, height, hasFormat, errors] : cases) {
            SCOPED_TRACE(testing::Message() << kinds[k].GetText() << ": " << what);
            const Storage storage = Fresh(kinds[k]);
            EXPECT_EQ(ErrorIdOf(storage->Init(width, height, hasFormat ? format : nullptr, {})), errors[k]);
            if (errors[k] == kMemory) {  // as new
                EXPECT_EQ(storage->GetWidth() | storage->GetHeight() | storage->GetChannelCount(), 0);
                EXPECT_FALSE(storage->GetPixelFormat());
                EXPECT_FALSE(Reader(storage));
            } else if (const auto reader = Reader(storage); reader && errors[k] == kNo) {  // as before
                EXPECT_EQ(ErrorIdOf(reader->read({0, 3, 6}, {pixels, BITS(16)}, {})),
                          kinds[k] == storageclasses::kNoData ? kLacks : none);
            }
        }
    }
    EXPECT_TRUE(Make<ImagePixelStorageInterface>(storageclasses::kNormal)->Init(1'000, 500, format, {}));
    SetDecodeBufferLimit(0);
    EXPECT_GT(GetDecodeBufferLimit(), Int(64) << 20);
}

TEST_F(StorageKinds, InitSurvivesEveryFailedAllocation) {
    for (const Id& kind : kinds) {
        SCOPED_TRACE(kind.GetText());
        AllocationFaults faults;
        while (faults.Next()) {
            const Storage storage = Fresh(kind);
            const bool failed = !faults.Run([&] { return storage->Init(100, 100, format, {}); });
            EXPECT_EQ(storage->GetWidth() == 100 && bool(Reader(storage)), !failed);
        }
        EXPECT_GT(faults.GetErrorCount(), 0);
    }
}

TEST_F(StorageKinds, ClonesAreIndependent) {
    for (const Id& kind : kinds) {
        SCOPED_TRACE(kind.GetText());
        const Storage storage = Fresh(kind);
        std::byte pixel[2] = {std::byte(1), std::byte(2)}, seen[2] = {};
        const PixelSpan span{5, 3, 1};
        const bool holds = kind != storageclasses::kNoData;
        EXPECT_EQ(bool(Writer(storage)->write(span, {pixel, BITS(16)}, {})), holds);
        const Storage clone = Cast<ImagePixelStorageInterface>(storage->Clone().TakeValue());
        ASSERT_TRUE(clone);
        EXPECT_EQ(clone->GetWidth(), kWidth);
        EXPECT_EQ(clone->GetHeight(), kHeight);
        EXPECT_EQ(clone->GetPixelFormat(), PixelFormat(format));
        EXPECT_EQ(storage->IsEqual(*clone), kind == storageclasses::kNormal);
        EXPECT_TRUE(storage->IsEqual(*storage));
        if (!holds)
            continue;
        EXPECT_TRUE(Writer(storage)->write(span, {pixels, BITS(16)}, {}));
        EXPECT_TRUE(Reader(clone)->read(span, {seen, BITS(16)}, {}));
        EXPECT_EQ(std::vector(seen, seen + 2), std::vector(pixel, pixel + 2));
        EXPECT_FALSE(storage->IsEqual(*clone));
    }
}

/// Line calls of rasters allocate nothing, and a handler keeps to the block that it was made for.
TEST_F(StorageKinds, HandlersOutliveANewSize) {
    for (const Id& kind : {storageclasses::kNormal, storageclasses::kPlanes, storageclasses::kVoxel}) {
        SCOPED_TRACE(kind.GetText());
        const Storage storage = Fresh(kind);
        const SetPixelHandlerStruct old = Writer(storage).TakeValue();
        EXPECT_TRUE(old.write({0, 0, 6}, {pixels, BITS(16)}, {}));
        ASSERT_TRUE(storage->Init(2, 1, format, {}));
        const std::vector<std::byte> row(12, std::byte(0xAA));
        const GetPixelHandlerStruct reader = Reader(storage).TakeValue();
        SetAllocationFault(0);
        EXPECT_TRUE(old.write({0, 0, 6}, {row.data(), BITS(16)}, {}));
        EXPECT_TRUE(reader.read({0, 0, 2}, {pixels, BITS(16)}, {}));
        EXPECT_EQ(GetAllocationCount(), 0);
        EXPECT_EQ(pixels[0] | pixels[1] | pixels[2] | pixels[3], std::byte(0));
    }
}

/// Components have the checks of spans. Planes test the width of a channel before its index.
TEST_F(StorageKinds, ComponentsCheckTheirArguments) {
    struct Case {
        Int channel;
        PixelSpan span;
        Id error;
    };
    const Case cases[] = {
        {2, {0, 0, 1}, kNo}, {-1, {0, 0, 1}, kNo},   {kMax, {0, 0, 1}, kNo}, {1, {-1, 0, 1}, kNo},
        {1, {5, 0, 2}, kNo}, {1, {0, 4, 1}, kNo},    {1, {0, -1, 1}, kNo},   {1, {kMax, 0, kMax}, kNo},
        {2, {0, 0, 0}, kNo}, {1, {1, 0, kMax}, kNo}, {1, {5, 3, 1}, {}},     {0, {0, 0, 0}, {}},
    };
    for (const Id& kind : kinds) {
        const bool isRaster = kind == storageclasses::kNormal || kind == storageclasses::kPlanes;
        for (const auto& [channel, span, error] : cases) {
            SCOPED_TRACE(testing::Message() << kind.GetText() << ' ' << channel << ": " << span.x << ", " << span.y);
            const Storage storage = Fresh(kind);
            const Id expected = isRaster ? error : kLacks;
            EXPECT_EQ(ErrorIdOf(storage->GetComponent(channel, span, pixels, 1, {})), expected);
            EXPECT_EQ(ErrorIdOf(storage->SetComponent(channel, span, pixels, 1, {})), expected);
        }
    }
    format = MakeFormat({4, 4});
    for (const Int channel : {0, 9})
        EXPECT_EQ(ErrorIdOf(Fresh(storageclasses::kPlanes)->GetComponent(channel, {0, 0, 1}, pixels, 1, {})), kLacks);
}

}  // namespace
}  // namespace orvik
