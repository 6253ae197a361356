#include <functional>
#include <sys/stat.h>
#include <thread>

#include "test_helpers.h"

#include "orvik/iomemory.h"

namespace orvik {
namespace {

constexpr Int kWindow = 64 << 10;

std::string ReadExactly(InputStreamInterface& stream, Int count) {
    std::string bytes(size_t(count), '?');
    const Result<void> read = stream.Read(bytes.data(), bytes.size());
    return read ? bytes : "error: " + MessageOf(read);
}

/// The same bytes behind every kind of seekable stream.
class SeekableStreams : public testing::Test {
protected:
    SeekableStreams() {
        const Url url = _folder.Write("data", _bytes);
        const MemoryFileRef memory = CreateMemoryFile(AsBlock(_bytes)).TakeValue();
        const Url padded = _folder.Write("padded", "head" + _bytes + "tail");
        _sources = {
            {"file", [=] { return url.OpenInputStream().TakeValue(); }},
            {"in-out file", [=] { return url.OpenInOutputStream().TakeValue().first; }},
            {"memory", [=] { return OpenMemoryInput(memory).TakeValue(); }},
            {"part of a file",
             [=, this] { return OpenSubStream(*padded.OpenInputStream(), 4, Int(_bytes.size())).TakeValue(); }},
        };
    }

    TempFolder _folder;
    const std::string _bytes = PatternBytes(size_t(kWindow) * 3 + 1234);
    std::vector<std::pair<const char*, std::function<InputStreamRef()>>> _sources;
};

TEST_F(SeekableStreams, ReadSeekAndSkipAcrossEveryWindowBoundary) {
    const Int length = Int(_bytes.size());
    for (const auto& [name, open] : _sources) {
        SCOPED_TRACE(name);
        for (const Int boundary : {kWindow, 2 * kWindow, length}) {
            for (const Int before : {Int(0), Int(1), Int(2), Int(7), kWindow - 1, kWindow, kWindow + 1}) {
                for (const Int count :
                     {Int(0), Int(1), Int(2), Int(9), kWindow - 1, kWindow, kWindow + 3, 2 * kWindow}) {
                    const Int start = boundary - before;
                    if (start < 0 || start + count > length)
                        continue;
                    const InputStreamRef stream = open();
                    ASSERT_TRUE(stream->Seek(start));
                    ASSERT_EQ(ReadExactly(*stream, count), _bytes.substr(size_t(start), size_t(count)))
                        << start << " + " << count;
                    ASSERT_EQ(stream->GetPosition(), start + count);
                    const Int rest = std::min(Int(5), length - start - count);
                    ASSERT_EQ(ReadExactly(*stream, rest), _bytes.substr(size_t(start + count), size_t(rest)));
                    ASSERT_EQ(stream->BytesAvailable(), length - start - count - rest);
                    ASSERT_TRUE(stream->Seek(start / 2));
                    ASSERT_TRUE(stream->Skip(start - start / 2 + count));
                    ASSERT_EQ(ReadExactly(*stream, rest), _bytes.substr(size_t(start + count), size_t(rest)));
                }
            }
        }
    }
}

TEST_F(SeekableStreams, EndWithErrorsAndKeepTheirPosition) {
    const Int length = Int(_bytes.size());
    for (const auto& [name, open] : _sources) {
        SCOPED_TRACE(name);
        const InputStreamRef stream = open();
        EXPECT_EQ(stream->GetStreamLength().GetValueOr(-1), length);
        EXPECT_TRUE(stream->SeekSupported());
        for (const Int far : {length + 1, Int(-1), INT64_MAX}) {
            EXPECT_EQ(ErrorIdOf(stream->Seek(far)), errorid::kIo) << far;
            EXPECT_EQ(ErrorIdOf(stream->Skip(far)), errorid::kIo) << far;
        }
        EXPECT_EQ(stream->GetPosition(), 0) << "refused moves leave the position";
        ASSERT_TRUE(stream->Seek(length - 3));
        std::byte block[8];
        EXPECT_EQ(stream->ReadEOS(block).GetValueOr(-1), 3);
        EXPECT_EQ(std::memcmp(block, _bytes.data() + length - 3, 3), 0);
        EXPECT_EQ(stream->ReadEOS(block).GetValueOr(-1), 0);
        EXPECT_TRUE(stream->Read({}) && stream->Skip(0) && stream->BytesAvailable() == 0);
        ASSERT_TRUE(stream->Seek(length - 3));
        EXPECT_THAT(MessageOf(stream->Read(block)), testing::StartsWith("unexpected end of file"));
        std::vector<std::byte> large(_bytes.size() + 10);
        ASSERT_TRUE(stream->Seek(1));
        EXPECT_EQ(stream->ReadEOS(large).GetValueOr(-1), length - 1);
        ASSERT_TRUE(stream->Seek(0));
        EXPECT_EQ(ReadExactly(*stream, 4), _bytes.substr(0, 4));
        EXPECT_TRUE(stream->Close() && stream->Close());
    }
}

TEST(InputStream, EmptyFilesAndPartsEndAtOnce) {
    const TempFolder folder;
    const Url empty = folder.Write("empty", "");
    std::byte byte;
    for (const InputStreamRef& stream :
         {empty.OpenInputStream().TakeValue(), OpenMemoryInput(Block<const std::byte>()).TakeValue(),
          OpenSubStream(empty.OpenInputStream().TakeValue(), 0, 0).TakeValue()}) {
        EXPECT_EQ(stream->GetStreamLength().GetValueOr(-1), 0);
        EXPECT_EQ(stream->ReadEOS({&byte, 1}).GetValueOr(-1), 0);
        EXPECT_TRUE(stream->Seek(0) && !stream->Seek(1) && !stream->Read(&byte, 1));
    }
    EXPECT_EQ(ErrorIdOf(InputStreamRef()->Read(&byte, 1)), errorid::kNullptr);
    const InputStreamRef nine = OpenMemoryInput(AsBlock("012345678")).TakeValue();
    EXPECT_EQ(ErrorIdOf(OpenSubStream(nine, 5, 5)), errorid::kIo);
    EXPECT_EQ(ErrorIdOf(OpenSubStream(nine, -1, 2)), errorid::kIllegalArgument);
    EXPECT_EQ(ErrorIdOf(OpenSubStream(nine, INT64_MAX, 2)), errorid::kIllegalArgument);
    EXPECT_EQ(ErrorIdOf(OpenSubStream(nullptr, 0, 0)), errorid::kNullptr);
    const InputStreamRef part = OpenSubStream(nine, 2, 5).TakeValue();
    const InputStreamRef inner = OpenSubStream(part, 1, 3).TakeValue();
    EXPECT_EQ(ReadExactly(*inner, 3), "345");
    EXPECT_FALSE(inner->Skip(1));
}

TEST(InputStream, PipesReadForwardOnly) {
    const TempFolder folder;
    const Url url = folder / "pipe";
    ASSERT_EQ(mkfifo(url.GetSystemPath().c_str(), 0600), 0);
    const std::string bytes = PatternBytes(300000);
    std::thread writer([&] {
        const OutputStreamRef out = url.OpenOutputStream().TakeValue();
        EXPECT_FALSE(out->Seek(10));
        for (size_t i = 0; i < bytes.size(); i += 7777)
            EXPECT_TRUE(out->Write(bytes.data() + i, std::min<size_t>(7777, bytes.size() - i)));
        EXPECT_TRUE(out->Close());
    });
    const InputStreamRef in = url.OpenInputStream().TakeValue();
    EXPECT_FALSE(in->SeekSupported());
    EXPECT_EQ(ErrorIdOf(in->GetStreamLength()), errorid::kIo);
    EXPECT_EQ(in->BytesAvailable(), -1);
    EXPECT_EQ(ReadExactly(*in, 10), bytes.substr(0, 10));
    EXPECT_TRUE(in->Seek(100000)) << "forward seeks read on";
    EXPECT_EQ(ReadExactly(*in, 100000), bytes.substr(100000, 100000));
    EXPECT_FALSE(in->Seek(5));
    EXPECT_EQ(in->GetPosition(), 200000);
    EXPECT_TRUE(in->Skip(99990));
    EXPECT_FALSE(in->Skip(11));
    std::byte byte;
    EXPECT_EQ(in->ReadEOS({&byte, 1}).GetValueOr(-1), 0);
    writer.join();
}

/// Every kind of output over the same steps: overwriting, seeking back, gaps, blocks around the buffer's size.
TEST(OutputStream, WritesSeeksAndGaps) {
    const TempFolder folder;
    const MemoryFileRef memory = CreateMemoryFile(AsBlock("removed first")).TakeValue();
    const Url file = folder.Write("out", "removed first");
    const Url inOut = folder / "inout";
    const std::tuple<const char*, OutputStreamRef, std::function<std::string()>> targets[] = {
        {"file", file.OpenOutputStream().TakeValue(), [&] { return folder.Read("out"); }},
        {"in-out file", inOut.OpenInOutputStream().TakeValue().second, [&] { return folder.Read("inout"); }},
        {"memory", OpenMemoryOutput(memory).TakeValue(),
         [&] {
             const auto& bytes = memory->GetBytes();
             return std::string(reinterpret_cast<const char*>(bytes.GetFirst()), size_t(bytes.GetCount()));
         }},
    };
    const std::string pattern = PatternBytes(size_t(kWindow) * 2 + 5);
    for (const auto& [name, stream, content] : targets) {
        SCOPED_TRACE(name);
        OutputStreamInterface& out = *stream;
        std::string expected;
        const auto write = [&](std::string_view bytes, size_t position) {
            if (expected.size() < position + bytes.size() && !bytes.empty())
                expected.resize(position + bytes.size());
            expected.replace(position, bytes.size(), bytes);
            EXPECT_TRUE(out.Write(bytes.data(), bytes.size()));
            EXPECT_EQ(out.GetPosition().GetValueOr(-1), Int(position + bytes.size()));
        };
        write("header", 0);
        for (const size_t size :
             {size_t(1), size_t(kWindow) - 7, size_t(2), size_t(kWindow), size_t(kWindow) * 2 + 5, size_t(0)})
            write(std::string_view(pattern).substr(0, size), expected.size());
        ASSERT_TRUE(out.Seek(2));
        write("AD", 2);
        const size_t far = expected.size() + 100000;
        ASSERT_TRUE(out.Seek(Int(far)));
        write("end", far);
        EXPECT_EQ(ErrorIdOf(out.Seek(-1)), errorid::kIo);
        ASSERT_TRUE(out.Flush());
        EXPECT_EQ(content(), expected) << "flushed";
        write("!", expected.size());
        ASSERT_TRUE(out.Close());
        EXPECT_TRUE(out.Close());
        EXPECT_EQ(content(), expected);
        EXPECT_EQ(ErrorIdOf(out.Write("x", 1)), errorid::kIo) << "closed";
    }
}

TEST(OutputStream, WritesWhatWasNotClosedAndReportsAFullDisk) {
    const TempFolder folder;
    ASSERT_TRUE((folder / "x").OpenOutputStream().TakeValue()->Write("abc", 3));
    EXPECT_EQ(folder.Read("x"), "abc");
    const std::string large(size_t(kWindow) + 1, 'x');
    const auto open = [] { return Url("/dev/full").OpenOutputStream().TakeValue(); };
    const std::string full = "cannot write: No space left on device";
    OutputStreamRef out = open();
    EXPECT_EQ(MessageOf(out->Write(large.data(), large.size())), full);
    EXPECT_EQ(MessageOf(out->Write("x", 1)), full) << "the failure stays";
    EXPECT_EQ(MessageOf(out->Close()), full);
    EXPECT_TRUE(out->Close());
    for (const bool closes : {false, true}) {
        out = open();
        EXPECT_TRUE(out->Write("x", 1));
        EXPECT_EQ(MessageOf(closes ? out->Close() : out->Flush()), full);
    }
    EXPECT_TRUE(open()->Close()) << "nothing was written";
}

TEST(OutputStream, ToMemorySurvivesFailedAllocationsAndTakesAnExpectedLengthOnce) {
    EXPECT_GE(FailEachAllocation([&]() -> Result<void> {
                  const MemoryFileRef file = TRY(CreateMemoryFile());
                  OutputStreamRef out = TRY(OpenMemoryOutput(file));
                  for (int i = 0; i < 50; ++i)
                      TRY(out->Write("abc", 3));
                  return out->Close();
              }),
              4);
    const OutputStreamRef out = OpenMemoryOutput(CreateMemoryFile().TakeValue()).TakeValue();
    SetAllocationFault(1);
    out->Expect(5000);  // no memory: nothing happens
    out->Expect(5000);
    SetAllocationFault(0);
    const std::string block(500, 'x');
    for (int i = 0; i < 10; ++i)
        ASSERT_TRUE(out->Write(block.data(), block.size()));
    EXPECT_EQ(GetAllocationCount(), 0);
    out->Expect(10);  // less than there is
    ASSERT_TRUE(out->Write(block.data(), block.size()));
    EXPECT_EQ(out->GetPosition().GetValueOr(0), 5500);
}

TEST(InOutStream, ReadersAndWritersShareThePosition) {
    const TempFolder folder;
    const MemoryFileRef memory = CreateMemoryFile(AsBlock("0123456789")).TakeValue();
    const Url mounted = MountMemoryFile("in-out test", memory).TakeValue();
    for (const Url& url : {folder.Write("x", "0123456789"), mounted}) {
        auto [in, out] = url.OpenInOutputStream().TakeValue();
        EXPECT_EQ(ReadExactly(*in, 2), "01");
        EXPECT_EQ(out->GetPosition().GetValueOr(-1), 2);
        ASSERT_TRUE(out->Write("AB", 2));
        EXPECT_EQ(ReadExactly(*in, 2), "45");
        ASSERT_TRUE(in->Seek(1) && out->Write("C", 1));
        EXPECT_EQ(ReadExactly(*in, 3), "AB4") << "writes show at once";
        ASSERT_TRUE(out->Seek(12) && out->Write("end", 3) && in->Seek(0));
        EXPECT_EQ(ReadExactly(*in, 15), std::string("0CAB456789\0\0end", 15));
        ASSERT_TRUE(out->Close());
    }
    UnmountMemoryFile("in-out test");
}

TEST(MemoryUrl, MountsReplacesAndUnmounts) {
    const Url url = MountMemoryFile("block.bin", CreateMemoryFile(AsBlock("one")).TakeValue()).TakeValue();
    EXPECT_EQ(url.GetUrl(), String("memory:block.bin"));
    EXPECT_EQ(url.IoDetect(), IODETECT::FILE);
    const InputStreamRef before = url.OpenInputStream().TakeValue();
    ASSERT_TRUE(MountMemoryFile("block.bin", CreateMemoryFile(AsBlock("three")).TakeValue()));
    EXPECT_EQ(ReadExactly(*before, 3), "one") << "an open stream keeps its block";
    EXPECT_EQ(ReadExactly(*url.OpenInputStream().TakeValue(), 5), "three");
    EXPECT_EQ(before->GetUrl(), url);
    OutputStreamRef out = url.OpenOutputStream().TakeValue();
    ASSERT_TRUE(out->Write("4", 1));
    EXPECT_EQ(url.GetSizeAndTime().TakeValue().first, 1);
    ASSERT_TRUE(url.IoDelete());
    EXPECT_TRUE(url.IoDetect() == IODETECT::NONEXISTENT && !FindMemoryFile("block.bin"));
    EXPECT_EQ(ErrorIdOf(MountMemoryFile("x", nullptr)), errorid::kNullptr);
    ASSERT_TRUE(Url("memory:fresh").OpenOutputStream().TakeValue()->Write("new", 3));
    EXPECT_EQ(ReadExactly(*Url("memory:fresh").OpenInputStream().TakeValue(), 3), "new");
    UnmountMemoryFile("fresh");
}

}  // namespace
}  // namespace orvik
