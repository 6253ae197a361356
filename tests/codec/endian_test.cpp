// Typed reads and writes, and the stack of chunks.

#include "codec_support.h"
#include "imexport/frame/media_io_chunkedfileio.h"

namespace codectest {
namespace {

EndianReader ReaderOf(BYTEORDER order, const Bytes& bytes) {
    EndianReader reader;
    reader.Attach(OpenMemoryInput(AsBlock(bytes)).GetValueOr(InputStreamRef()), order);
    return reader;
}

/// @param bytes  of the value with the highest first; the other order has them reversed
template <class T>
void ExpectInBothOrders(T value, Bytes bytes, Result<T> (EndianReader::*read)(),
                        Result<void> (EndianWriter::*write)(T)) {
    for (const BYTEORDER order : {BYTEORDER::BIG, BYTEORDER::LITTLE}) {
        EndianReader in = ReaderOf(order, bytes);
        EXPECT_EQ(*(in.*read)(), value);
        EXPECT_EQ(KindOf((in.*read)()), "io");
        const MemoryFileRef file = *CreateMemoryFile();
        EndianWriter out;
        out.Attach(*OpenMemoryOutput(file), order);
        EXPECT_TRUE((out.*write)(value) && out.WriteZeros(130) && out.GetStream()->Close());
        Bytes expected = bytes;
        expected.resize(bytes.size() + 130);
        EXPECT_EQ(BytesOf(file), expected);
        std::reverse(bytes.begin(), bytes.end());
    }
}

TEST(Endian, ReadsAndWritesInBothOrders) {
    using R = EndianReader;
    using W = EndianWriter;
    const Bytes eight = {0x89, 0xAB, 0xCD, 0xEF, 1, 2, 3, 4};
    ExpectInBothOrders<uint8_t>(0x81, {0x81}, &R::ReadU8, &W::WriteU8);
    ExpectInBothOrders<uint16_t>(0x8102, {0x81, 0x02}, &R::ReadU16, &W::WriteU16);
    ExpectInBothOrders<uint32_t>(0x81020304, {0x81, 2, 3, 4}, &R::ReadU32, &W::WriteU32);
    ExpectInBothOrders<uint64_t>(0x89ABCDEF01020304, eight, &R::ReadU64, &W::WriteU64);
    ExpectInBothOrders<int16_t>(-2, {0xFF, 0xFE}, &R::ReadS16, &W::WriteS16);
    ExpectInBothOrders<int32_t>(-3, {0xFF, 0xFF, 0xFF, 0xFD}, &R::ReadS32, &W::WriteS32);
    ExpectInBothOrders<int64_t>(int64_t(0x89ABCDEF01020304), eight, &R::ReadS64, &W::WriteS64);
    ExpectInBothOrders<float>(1.5f, {0x3F, 0xC0, 0, 0}, &R::ReadF32, &W::WriteF32);
    ExpectInBothOrders<double>(1.5, {0x3F, 0xF8, 0, 0, 0, 0, 0, 0}, &R::ReadF64, &W::WriteF64);
}

TEST(Endian, OpensUrls) {
    EndianReader reader;
    EXPECT_EQ(KindOf(reader.ReadU8()), "nullptr");
    ASSERT_TRUE(reader.Attach(Mount({1, 2}), BYTEORDER::BIG));
    EXPECT_EQ(*reader.ReadU16(), 0x0102);
}

TEST(ChunkedFileIO, EntersAndLeavesChunks) {
    const Bytes bytes(100);
    ChunkedFileIO io;
    io.Attach(*OpenMemoryInput(AsBlock(bytes)), BYTEORDER::BIG);
    EXPECT_EQ(io.Remaining(), -1);
    EXPECT_EQ(KindOf(io.PopChunk()), "illegalstate");

    ASSERT_TRUE(io.Seek(10) && io.PushChunk(50) && io.PushChunk(20) && io.Skip(5));
    EXPECT_EQ(io.Remaining(), 15);
    ASSERT_TRUE(io.PopChunk());  // skips the rest
    EXPECT_EQ(io.GetPosition(), 30);
    EXPECT_EQ(io.Remaining(), 30);
    ASSERT_TRUE(io.Skip(30));
    EXPECT_EQ(io.Remaining(), 0);
    ASSERT_TRUE(io.PopChunk());  // exactly at its end: nothing to skip
    EXPECT_EQ(io.GetPosition(), 60);

    ASSERT_TRUE(io.PushChunk(4) && io.Skip(5));
    EXPECT_EQ(io.Remaining(), -1);
    EXPECT_EQ(KindOf(io.PopChunk()), "illegalstate");  // overrun

    ASSERT_TRUE(io.PushChunk(36));  // one byte more than the file has, as an odd last chunk when it is padded
    EXPECT_EQ(KindOf(io.PopChunk()), "io");
    EXPECT_EQ(KindOf(io.PushChunk(-1)), "illegalstate");
    ASSERT_TRUE(io.PushChunk(INT64_MAX) && io.PushChunk(1));  // an end beyond all positions
    io.ClearChunks();
    EXPECT_EQ(io.Remaining(), -1);
}

TEST(ChunkedWriter, EntersLengthsWhenChunksEnd) {
    using LENGTH = ChunkedWriter::LENGTH;
    const MemoryFileRef file = *CreateMemoryFile();
    ChunkedWriter out;
    out.Attach(*OpenMemoryOutput(file), BYTEORDER::BIG);
    EXPECT_EQ(KindOf(out.PopChunk()), "illegalstate");
    ASSERT_TRUE(out.PushChunk() && out.WriteU8(0xAA));
    ASSERT_TRUE(out.PushChunk(LENGTH::BITS16) && out.WriteU8(0xBB) && out.PopChunk(2));  // a filler that is not counted
    ASSERT_TRUE(out.PushChunk(LENGTH::BITS64) && out.WriteU8(0xCC));
    ASSERT_TRUE(out.PopChunk(4, ChunkedWriter::PADDING::COUNTED) && out.PopChunk());
    const Bytes expected = {0, 0, 0, 17, 0xAA, 0, 1, 0xBB, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0xCC, 0, 0, 0};
    ASSERT_TRUE(out.PushChunk(LENGTH::BITS16) && out.WriteZeros(0x10000));
    EXPECT_EQ(KindOf(out.PopChunk()), "illegalstate");  // too long for its length
    Bytes written = BytesOf(file);
    written.resize(expected.size());
    EXPECT_EQ(written, expected);
}

}  // namespace
}  // namespace codectest
