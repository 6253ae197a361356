// What all storages owe their callers, whatever lies behind them.
#include <map>
#include <random>
#include <thread>

#include "image_fakes.h"
#include "storage/decode_limits.h"
#include "storage/gfx_image_storage_voxel.h"
#include "support/module_fixture.h"

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
        EXPECT_EQ(ErrorIdOf(storage->Init(kWidth, kHeight, format, {})), Id());
        return storage;
    }
    Result<GetPixelHandlerStruct> Reader(const Storage& storage) const {
        return storage->GetPixelHandler(format, {}, {}, {}, GETPIXELHANDLERFLAGS::NONE);
    }
    Result<SetPixelHandlerStruct> Writer(const Storage& storage) const {
        return storage->SetPixelHandler(format, {}, {}, {}, SETPIXELHANDLERFLAGS::NONE, {});
    }

    Ref<FakeFormat> format = MakeFormat({8, 8});
    std::byte pixels[64] = {};
    const Id kinds[4] = {storageclasses::kNormal, storageclasses::kPlanes, storageclasses::kNoData,
                         storageclasses::kVoxel};
};

/// Rasters end at their sides, a voxel storage where its tiles can no longer be counted; its grid cannot reach from the
/// tile at 0 to the farthest.
TEST_F(StorageKinds, RefuseSpansOutside) {
    const std::vector<PixelSpan> farther = {
        {kFar, 0, 2}, {0, kFar + 1, 1}, {-kFar - 2, 0, 1}, {0, -kFar - 2, 1}, {0, 0, -1},   {5, 0, -3},   {kMax, 0, 2},
        {1, 0, kMax}, {kMax, 0, kMax},  {kMin, 0, kMax},   {kMin, 0, kMin},   {0, kMax, 1}, {0, kMin, 1}, {0, 0, kMin}};
    const struct {
        std::vector<PixelSpan> spans;
        Id raster, voxelRead, voxelWrite;
    } cases[] = {
        {{{0, 0, 6}, {5, 3, 1}, {6, 0, 0}}, {}, {}, {}},
        {{{0, 0, 7}, {5, 0, 2}, {7, 0, 0}, {-1, 0, 1}, {-1, 0, 0}, {0, 4, 1}, {0, 4, 0}, {0, -1, 1}}, kNo, {}, {}},
        {{{kFar, kFar, 1}, {-kFar - 1, 0, 1}}, kNo, {}, kMemory},
        {farther, kNo, kNo, kNo},
    };
    for (const Id& kind : kinds) {
        const Storage storage = Fresh(kind);
        const bool isVoxel = kind == storageclasses::kVoxel, isEmpty = kind == storageclasses::kNoData;
        for (const auto& [spans, raster, voxelRead, voxelWrite] : cases) {
            for (const PixelSpan& span : spans) {
                SCOPED_TRACE(testing::Message()
                             << kind.GetText() << ' ' << span.x << ", " << span.y << ", " << span.count);
                const Result<void> read = Reader(storage)->read(span, {pixels, BITS(16)}, {});
                const Result<void> written = Writer(storage)->write(span, {pixels, BITS(16)}, {});
                EXPECT_EQ(ErrorIdOf(read), isEmpty ? kLacks : isVoxel ? voxelRead : raster);
                EXPECT_EQ(ErrorIdOf(written), isEmpty ? kLacks : isVoxel ? voxelWrite : raster);
                EXPECT_EQ(MessageOf(written), "");
            }
        }
    }
}

/// Random lines over a map of single pixels: in rasters inside their sides, in a voxel storage in all directions.
TEST_F(StorageKinds, AgreeWithAMapOfPixels) {
    using Pixel = std::vector<std::byte>;
    for (const Id& kind : {storageclasses::kNormal, storageclasses::kPlanes, storageclasses::kVoxel}) {
        for (const Int bits : {1, 2, 3, 4, 5, 7, 8, 11, 12, 24, 64, 65, 100, 128}) {
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
            std::vector<std::byte> line(300 * 16);
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
                } else {
                    const bool backwards = bits % 8 == 0 && i % 3 == 0;
                    const Int first = backwards ? 200 * bits : phase, step = backwards ? -bits : bits;
                    std::fill(line.begin(), line.end(), std::byte(0));
                    ASSERT_TRUE(reader.read(span, {&line[size_t(first / 8)], BITS(step), int(first % 8)}, {}));
                    for (Int k = 0; k < count; ++k)
                        CopyBits(expected.data(), first + k * step, pixelAt(span.x + k, span.y).data(), 0, bits);
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

TEST_F(StorageKinds, InitAndCloneSurviveEveryFailedAllocation) {
    for (const Id& kind : kinds) {
        SCOPED_TRACE(kind.GetText());
        AllocationFaults faults, copies;
        while (faults.Next()) {
            const Storage storage = Fresh(kind);
            const bool failed = !faults.Run([&] { return storage->Init(100, 100, format, {}); });
            EXPECT_EQ(storage->GetWidth() == 100 && bool(Reader(storage)), !failed);
        }
        const Storage storage = Fresh(kind);
        (void)Writer(storage)->write({0, 0, 1}, {pixels, BITS(16)}, {});
        while (copies.Next())
            (void)copies.Run([&] { return storage->Clone(); });
        EXPECT_TRUE(faults.GetErrorCount() > 0 && copies.GetErrorCount() > 0);
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
        ASSERT_TRUE(clone && clone->GetPixelFormat() == PixelFormat(format));
        EXPECT_EQ(clone->GetWidth() * 10 + clone->GetHeight(), kWidth * 10 + kHeight);
        EXPECT_TRUE(storage->IsEqual(*storage) && storage->IsEqual(*clone) == (kind == storageclasses::kNormal));
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
    const std::tuple<Int, PixelSpan, Id> cases[] = {
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

Ref<ImagePixelStorageVoxel> MakeVoxel(const PixelFormat& format, Block<const std::byte> defaultColor = {}) {
    auto storage = NewObj<ImagePixelStorageVoxel>().TakeValue();
    EXPECT_EQ(ErrorIdOf(storage->Init(10, 10, format, defaultColor)), Id());
    return storage;
}
GetPixelHandlerStruct Reader(ImagePixelStorageVoxel& storage, const PixelFormat& format) {
    return storage.GetPixelHandler(format, {}, {}, {}, GETPIXELHANDLERFLAGS::NONE).TakeValue();
}
SetPixelHandlerStruct Writer(ImagePixelStorageVoxel& storage, const PixelFormat& format) {
    return storage.SetPixelHandler(format, {}, {}, {}, SETPIXELHANDLERFLAGS::NONE, {}).TakeValue();
}
uint8_t ReadByte(ImagePixelStorageVoxel& storage, const PixelFormat& format, Int x, Int y) {
    uint8_t value = 99;
    EXPECT_EQ(ErrorIdOf(Reader(storage, format).read({x, y, 1}, {&value, BITS(8)}, {})), Id());
    return value;
}
Result<void> WriteByte(ImagePixelStorageVoxel& storage, const PixelFormat& format, Int x, Int y, uint8_t value) {
    return Writer(storage, format).write({x, y, 1}, {&value, BITS(8)}, {});
}

TEST(Voxel, MakesTilesOnlyWhereItIsWritten) {
    const Ref<FakeFormat> format = MakeFormat({8});
    const std::byte color{42};
    const auto storage = MakeVoxel(format, {&color, 1});
    const SetPixelHandlerStruct writer = Writer(*storage, format);
    const GetPixelHandlerStruct reader = Reader(*storage, format);
    uint8_t pixels[300] = {};
    for (const PixelSpan& span : {PixelSpan{0, 0, 300}, {-1000, -1000, 300}, {kFar, 0, 1}}) {
        SetAllocationFault(0);
        EXPECT_TRUE(reader.read(span, {pixels, BITS(8)}, {}));
        EXPECT_EQ(GetAllocationCount(), 0);
        EXPECT_EQ(pixels[0], 42);
    }
    const std::pair<PixelSpan, Int> cases[] = {
        {{-1, -1, 1}, 2},  // the grid and the tile
        {{-64, -64, 64}, 0}, {{0, -1, 0}, 0}, {{-1, -1, 2}, 2},
        {{-65, -1, 1}, 2},   {{-1, 0, 1}, 2}, {{0, 0, 1}, 1},  // inside the grid
        {{0, 64, 200}, 5},                                     // one growth for four tiles
    };
    for (const auto& [span, allocations] : cases) {
        SetAllocationFault(0);
        EXPECT_TRUE(writer.write(span, {pixels, BITS(8)}, {}));
        EXPECT_EQ(GetAllocationCount(), allocations) << span.x << ", " << span.y;
    }
}

TEST(Voxel, FillsWithOneWholePixelAndStartsAfresh) {
    const std::string text =
        "Illegal argument: Condition defaultColor->GetCount() == _bitsPerPixel.GetBytes() not fulfilled. ";
    const std::byte color[4] = {std::byte(5), std::byte(6), std::byte(7), std::byte(8)};
    const std::tuple<std::vector<Int>, size_t, bool> cases[] = {
        {{8}, 0, true},        {{8}, 1, true},  {{8}, 2, false}, {{8, 8, 8}, 3, true},
        {{8, 8, 8}, 4, false}, {{12}, 2, true}, {{12}, 1, false}};
    for (const auto& [channels, colorBytes, fits] : cases) {
        const auto storage = NewObj<ImagePixelStorageVoxel>().TakeValue();
        const Result<void> done =
            storage->Init(4, 3, MakeFormat(channels), Block<const std::byte>(color).first(colorBytes));
        EXPECT_EQ(ErrorIdOf(done), fits ? Id() : errorid::kIllegalArgument);
        EXPECT_EQ(MessageOf(done), fits ? "" : text);
    }
    const Ref<FakeFormat> format = MakeFormat({8});
    const auto storage = MakeVoxel(format);
    ASSERT_TRUE(WriteByte(*storage, format, 1, 1, 3));
    ASSERT_TRUE(storage->Init(kMax, kMax, format, {color, 1}));  // the size is only declared
    EXPECT_EQ(ReadByte(*storage, format, 1, 1), 5);
    // Also in the far corner, when there is no other tile.
    ASSERT_TRUE(WriteByte(*storage, format, kFar, -kFar - 1, 9));
    EXPECT_EQ(ReadByte(*storage, format, kFar, -kFar - 1), 9);
    EXPECT_EQ(ReadByte(*storage, format, kFar - 1, -kFar - 1), 5);
}

TEST(Voxel, SurvivesEveryFailedAllocation) {
    const Ref<FakeFormat> format = MakeFormat({8});
    const std::vector<uint8_t> line(200, 8);
    AllocationFaults writes;
    while (writes.Next()) {
        const auto storage = MakeVoxel(format);
        ASSERT_TRUE(WriteByte(*storage, format, -100, -100, 3));
        const SetPixelHandlerStruct writer = Writer(*storage, format);
        const auto write = [&] { return writer.write({0, 0, 200}, {line.data(), BITS(8)}, {}); };
        if (!writes.Run(write)) {
            EXPECT_EQ(ReadByte(*storage, format, 199, 0), 0);
            ASSERT_TRUE(write());
        }
        EXPECT_EQ(ReadByte(*storage, format, 199, 0), 8);
        EXPECT_EQ(ReadByte(*storage, format, -100, -100), 3);
    }
    EXPECT_EQ(writes.GetErrorCount(), 5);
}

using VoxelThreadsTest = ModuleFixture;

/// Many writers over growing, overlapping ground, and readers beside them. Each writer has its own columns, so that no
/// pixel has two.
TEST_F(VoxelThreadsTest, ManyWritersLoseNothing) {
    const PixelFormat format = PixelFormats::Get(pixelformats::kRgbaU8);
    const std::byte color[4] = {std::byte(1), std::byte(2), std::byte(3), std::byte(4)};
    constexpr Int kWriters = 4, kReach = 260;
    const auto storage = MakeVoxel(format, color);
    const auto valueAt = [](Int x, Int y) { return uint32_t(x * 7919 + y * 104729 + 77); };
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    std::atomic<bool> stop{false};
    for (Int w = 0; w < kWriters; ++w) {
        threads.emplace_back([&, w] {
            const SetPixelHandlerStruct writer = Writer(*storage, format);
            for (Int step = 0; step < kReach / 4; ++step) {
                // Outwards in all four directions, so that the grid grows all the time.
                for (const Int y : {step * 4, -step * 4 - 1}) {
                    for (Int x = -step * 4; x <= step * 4; ++x) {
                        if ((x & 3) != w)
                            continue;
                        const uint32_t pixel = valueAt(x, y);
                        failures += !writer.write({x, y, 1}, {&pixel, BITS(32)}, {});
                    }
                }
            }
        });
    }
    std::thread reader([&] {
        const GetPixelHandlerStruct handler = Reader(*storage, format);
        uint32_t row[64];
        while (!stop.load()) {  // over rows without writers, in tiles that are made meanwhile
            for (Int y = -kReach + 2; y < kReach; y += 4) {
                failures += !handler.read({-32, y, 64}, {row, BITS(32)}, {});
                failures += row[5] != 0x04030201;
            }
        }
    });
    for (std::thread& thread : threads)
        thread.join();
    stop = true;
    reader.join();
    EXPECT_EQ(failures, 0);
    const GetPixelHandlerStruct handler = Reader(*storage, format);
    for (Int y = -kReach; y < kReach; ++y) {
        uint32_t row[2 * kReach];
        ASSERT_TRUE(handler.read({-kReach, y, 2 * kReach}, {row, BITS(32)}, {}));
        const Int step = y >= 0 ? (y % 4 == 0 ? y / 4 : -1) : ((-y - 1) % 4 == 0 ? (-y - 1) / 4 : -1);
        for (Int x = -kReach; x < kReach; ++x) {
            const bool written = step >= 0 && step < kReach / 4 && -step * 4 <= x && x <= step * 4;
            ASSERT_EQ(row[x + kReach], written ? valueAt(x, y) : 0x04030201u) << x << ", " << y;
        }
    }
}

}  // namespace
}  // namespace orvik
