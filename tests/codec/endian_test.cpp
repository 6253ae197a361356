// Typed reads and writes, and the stack of chunks.

#include "codec_support.h"
#include "imexport/frame/media_io_chunkedfileio.h"

namespace codectest {
namespace {

const Bytes kBytes = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x88};

EndianReader ReaderOf(BYTEORDER order, const Bytes& bytes = kBytes) {
    EndianReader reader;
    reader.Attach(OpenMemoryInput(AsBlock(bytes)).GetValueOr(InputStreamRef()), order);
    return reader;
}

TEST(Endian, ReadsInBothOrders) {
    EXPECT_EQ(*ReaderOf(BYTEORDER::BIG).ReadU16(), 0x0102);
    EXPECT_EQ(*ReaderOf(BYTEORDER::LITTLE).ReadU16(), 0x0201);
    EXPECT_EQ(*ReaderOf(BYTEORDER::BIG).ReadU32(), 0x01020304u);
    EXPECT_EQ(*ReaderOf(BYTEORDER::LITTLE).ReadU32(), 0x04030201u);
    EXPECT_EQ(*ReaderOf(BYTEORDER::BIG).ReadU64(), 0x0102030405060788u);
    EXPECT_EQ(*ReaderOf(BYTEORDER::LITTLE).ReadS64(), int64_t(0x8807060504030201u));
    EXPECT_EQ(*ReaderOf(BYTEORDER::BIG).ReadU8(), 1);
    EXPECT_EQ(*ReaderOf(BYTEORDER::BIG, {0xFF, 0xFE}).ReadS16(), -2);
    EXPECT_EQ(*ReaderOf(BYTEORDER::BIG, {0xFF, 0xFF, 0xFF, 0xFD}).ReadS32(), -3);
    EXPECT_EQ(*ReaderOf(BYTEORDER::BIG, {0x3F, 0xC0, 0, 0}).ReadF32(), 1.5f);
    EXPECT_EQ(*ReaderOf(BYTEORDER::LITTLE, {0, 0, 0, 0, 0, 0, 0xF8, 0x3F}).ReadF64(), 1.5);
}

TEST(Endian, NamesTheUrlThatItOpened) {
    const Url url = Mount(kBytes);
    EndianReader reader;
    ASSERT_TRUE(reader.Attach(url, BYTEORDER::BIG));
    EXPECT_EQ(reader.GetUrl(), url);
    EXPECT_EQ(*reader.ReadU16(), 0x0102);
    reader.Attach(*OpenMemoryInput(AsBlock(kBytes)), BYTEORDER::BIG);
    EXPECT_TRUE(reader.GetUrl().IsEmpty());
    EXPECT_EQ(*reader.ReadU16(), 0x0102);
    EXPECT_EQ(KindOf(ReaderOf(BYTEORDER::BIG, {1, 2, 3}).ReadU32()), "io");
    EXPECT_EQ(KindOf(EndianReader().ReadU8()), "nullptr");
}

TEST(Endian, WritesInBothOrders) {
    const struct {
        BYTEORDER order;
        Bytes bytes;  ///< before the zeros
    } cases[] = {{BYTEORDER::BIG, {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xFF, 0xFE, 0x3F, 0xC0,
                                   0,    0,    0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}},
                 {BYTEORDER::LITTLE, {0x12, 0x56, 0x34, 0xDE, 0xBC, 0x9A, 0x78, 0xFE, 0xFF, 0,   0,
                                      0xC0, 0x3F, 0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11}}};
    for (const auto& [order, bytes] : cases) {
        const MemoryFileRef file = *CreateMemoryFile();
        EndianWriter out;
        out.Attach(*OpenMemoryOutput(file), order);
        ASSERT_TRUE(out.WriteU8(0x12) && out.WriteU16(0x3456) && out.WriteU32(0x789ABCDE) && out.WriteS16(-2) &&
                    out.WriteF32(1.5f) && out.WriteU64(0x1122334455667788) && out.WriteZeros(130) &&
                    out.GetStream()->Close());
        Bytes expected = bytes;
        expected.resize(bytes.size() + 130);
        const auto* first = reinterpret_cast<const uint8_t*>(file->GetBytes().GetFirst());
        EXPECT_EQ(Bytes(first, first + file->GetBytes().GetCount()), expected);
    }
}

TEST(ChunkedFileIO, EntersAndLeavesChunks) {
    const Bytes bytes(100);
    ChunkedFileIO io;
    io.Attach(*OpenMemoryInput(AsBlock(bytes)), BYTEORDER::BIG);
    EXPECT_EQ(io.Remaining(), -1);
    EXPECT_EQ(KindOf(io.PopChunk()), "illegalstate");

    ASSERT_TRUE(io.Seek(10));
    ASSERT_TRUE(io.PushChunk(50));
    ASSERT_TRUE(io.PushChunk(20));
    ASSERT_TRUE(io.Skip(5));
    EXPECT_EQ(io.Remaining(), 15);
    ASSERT_TRUE(io.PopChunk());  // skips the rest
    EXPECT_EQ(io.GetPosition(), 30);
    EXPECT_EQ(io.Remaining(), 30);
    ASSERT_TRUE(io.Skip(30));
    EXPECT_EQ(io.Remaining(), 0);
    ASSERT_TRUE(io.PopChunk());  // exactly at its end: nothing to skip
    EXPECT_EQ(io.GetPosition(), 60);

    ASSERT_TRUE(io.PushChunk(4));
    ASSERT_TRUE(io.Skip(5));
    EXPECT_EQ(io.Remaining(), -1);
    EXPECT_EQ(KindOf(io.PopChunk()), "illegalstate");  // overrun

    ASSERT_TRUE(io.PushChunk(36));  // one byte more than the file has, as an odd last chunk when it is padded
    EXPECT_EQ(KindOf(io.PopChunk()), "io");
    EXPECT_EQ(KindOf(io.PushChunk(-1)), "illegalstate");
    ASSERT_TRUE(io.PushChunk(INT64_MAX));  // an end beyond all positions
    ASSERT_TRUE(io.PushChunk(1));
    io.ClearChunks();
    EXPECT_EQ(io.Remaining(), -1);
}

TEST(ChunkedWriter, EntersLengthsWhenChunksEnd) {
    using LENGTH = ChunkedWriter::LENGTH;
    const MemoryFileRef file = *CreateMemoryFile();
    ChunkedWriter out;
    out.Attach(*OpenMemoryOutput(file), BYTEORDER::BIG);
    EXPECT_EQ(KindOf(out.PopChunk()), "illegalstate");
    ASSERT_TRUE(out.PushChunk());
    ASSERT_TRUE(out.WriteU8(0xAA));
    ASSERT_TRUE(out.PushChunk(LENGTH::BITS16));
    ASSERT_TRUE(out.WriteU8(0xBB));
    ASSERT_TRUE(out.PopChunk(2));  // a filler that is not counted
    ASSERT_TRUE(out.PushChunk(LENGTH::BITS64));
    ASSERT_TRUE(out.WriteU8(0xCC));
    ASSERT_TRUE(out.PopChunk(4, ChunkedWriter::PADDING::COUNTED));
    ASSERT_TRUE(out.PopChunk());
    const Bytes expected = {0, 0, 0, 17, 0xAA, 0, 1, 0xBB, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0xCC, 0, 0, 0};
    EXPECT_EQ(KindOf(out.PushChunk(LENGTH::BITS16)), "ok");
    ASSERT_TRUE(out.WriteZeros(0x10000));
    EXPECT_EQ(KindOf(out.PopChunk()), "illegalstate");  // too long for its length
    const auto* first = reinterpret_cast<const uint8_t*>(file->GetBytes().GetFirst());
    EXPECT_EQ(Bytes(first, first + expected.size()), expected);
}

}  // namespace
}  // namespace codectest
