#include <thread>

#include "image_fakes.h"
#include "storage/gfx_image_storage_voxel.h"
#include "support/module_fixture.h"

namespace orvik {
namespace {

constexpr Int kMax = std::numeric_limits<Int>::max();
constexpr Int kLastPixel = (Int(1) << 37) - 1;  ///< in tile 0x7FFFFFFF

Ref<ImagePixelStorageVoxel> MakeVoxel(const PixelFormat& format, Block<const std::byte> defaultColor = {}) {
    auto storage = NewObj<ImagePixelStorageVoxel>().TakeValue();
    const Result<void> done = storage->Init(10, 10, format, defaultColor);
    EXPECT_TRUE(done) << MessageOf(done);
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
    const Result<void> read = Reader(storage, format).read({x, y, 1}, {&value, BITS(8)}, {});
    EXPECT_TRUE(read) << MessageOf(read);
    return value;
}
Result<void> WriteByte(ImagePixelStorageVoxel& storage, const PixelFormat& format, Int x, Int y, uint8_t value) {
    return Writer(storage, format).write({x, y, 1}, {&value, BITS(8)}, {});
}

/// Tiles are the only memory that line calls ask for.
TEST(Voxel, MakesTilesOnlyWhereItIsWritten) {
    const Ref<FakeFormat> format = MakeFormat({8});
    const std::byte color{42};
    const auto storage = MakeVoxel(format, {&color, 1});
    const SetPixelHandlerStruct writer = Writer(*storage, format);
    const GetPixelHandlerStruct reader = Reader(*storage, format);
    uint8_t pixels[300] = {};
    for (const PixelSpan& span : {PixelSpan{0, 0, 300}, {-1000, -1000, 300}, {kLastPixel, 0, 1}}) {
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
    ASSERT_TRUE(WriteByte(*storage, format, kLastPixel, -kLastPixel - 1, 9));
    EXPECT_EQ(ReadByte(*storage, format, kLastPixel, -kLastPixel - 1), 9);
    EXPECT_EQ(ReadByte(*storage, format, kLastPixel - 1, -kLastPixel - 1), 5);
}

TEST(Voxel, SurvivesEveryFailedAllocation) {
    const Ref<FakeFormat> format = MakeFormat({8});
    const std::vector<uint8_t> line(200, 8);
    AllocationFaults writes, copies;
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
    const auto storage = MakeVoxel(format);
    ASSERT_TRUE(WriteByte(*storage, format, 1, 1, 3));
    while (copies.Next())
        (void)copies.Run([&] { return storage->Clone(); });
    EXPECT_GT(copies.GetErrorCount(), 3);
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
