#include "test_helpers.h"

#include "orvik/datadescriptionobject.h"
#include "orvik/hashset.h"
#include "orvik/iomemory.h"

namespace orvik {
namespace {

/// One field of every kind.
struct Record {
    Int number = 0;
    Bool flag = false;
    String text;
    BaseArray<std::byte> bytes;
    BaseArray<Int> numbers;
    BaseArray<String> texts;

    Result<void> DescribeIO(DataSerialize& io) {
        TRY(io.Field("number", number));
        TRY(io.Field("flag", flag));
        TRY(io.Field("text", text));
        TRY(io.Field("bytes", bytes));
        TRY(io.Field("numbers", numbers));
        return io.Field("texts", texts);
    }
};

MemoryFileRef WriteSample() {
    Record record;
    record.number = -2;
    record.flag = true;
    record.text = "h\xC3\xA9";
    EXPECT_TRUE(record.bytes.Resize(100'000));
    record.bytes[99'999] = std::byte(7);
    EXPECT_TRUE(record.numbers.Append(std::numeric_limits<Int>::min()));
    EXPECT_TRUE(record.texts.Append("a"));
    EXPECT_TRUE(record.texts.Append(""));
    MemoryFileRef file = CreateMemoryFile().TakeValue();
    DataSerialize io(OpenMemoryOutput(file).TakeValue());
    EXPECT_FALSE(io.IsReading());
    EXPECT_TRUE(record.DescribeIO(io));
    return file;
}

/// Hides how long a stream is.
class EndlessStream : public InputStreamInterface {
public:
    explicit EndlessStream(InputStreamRef stream) : _stream(std::move(stream)) {}
    Result<Int> GetStreamLength() override { return UnsupportedOperationError(); }

protected:
    Result<void> FillWindow(Int position) override {
        TRY(_stream->Seek(position));
        const Int count = TRY(_stream->ReadEOS(_buffer));
        SetWindow(position, _buffer, count);
        return {};
    }

private:
    InputStreamRef _stream;
    std::byte _buffer[100] = {};
};

TEST(DataSerialize, ReadsBackWhatItWrote) {
    const MemoryFileRef file = WriteSample();
    for (const bool saysLength : {true, false}) {
        InputStreamRef stream = OpenMemoryInput(file).TakeValue();
        if (!saysLength)
            stream = NewObj<EndlessStream>(stream).TakeValue();
        DataSerialize io(stream);
        EXPECT_TRUE(io.IsReading());
        Record back;
        const Result<void> read = back.DescribeIO(io);
        ASSERT_TRUE(read) << read.GetError()->ToString().GetCString();
        EXPECT_EQ(back.number, -2);
        EXPECT_TRUE(back.flag);
        EXPECT_EQ(back.text, "h\xC3\xA9");
        ASSERT_EQ(back.bytes.GetCount(), 100'000);
        EXPECT_EQ(back.bytes[99'999], std::byte(7));
        ASSERT_EQ(back.numbers.GetCount(), 1);
        EXPECT_EQ(back.numbers[0], std::numeric_limits<Int>::min());
        ASSERT_EQ(back.texts.GetCount(), 2);
        EXPECT_EQ(back.texts[0], "a");
        EXPECT_TRUE(back.texts[1].IsEmpty());
    }
}

TEST(DataSerialize, WritesTheFixedLayout) {
    const MemoryFileRef file = CreateMemoryFile().TakeValue();
    DataSerialize io(OpenMemoryOutput(file).TakeValue());
    Int number = 0x0102;
    Bool flag = true;
    String text = "z";
    ASSERT_TRUE(io.Field("n", number));
    ASSERT_TRUE(io.Field("fl", flag));
    ASSERT_TRUE(io.Field("t", text));
    const std::string_view expected(
        "\1n\1\2\1\0\0\0\0\0\0"
        "\2fl\2\1"
        "\1t\3\1\0\0\0\0\0\0\0z",
        11 + 5 + 12);
    const auto& bytes = file->GetBytes();
    EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(bytes.GetFirst()), size_t(bytes.GetCount())), expected);
}

TEST(DataSerialize, RefusesOtherFieldsAndFalseCounts) {
    const std::tuple<const char*, std::string, Id, const char*> cases[] = {
        {"another name", std::string("\1x\4"), errorid::kIllegalArgument, "Field b expected, x found."},
        {"another kind", std::string("\1b\3"), errorid::kIllegalArgument, "Field b holds another type."},
        {"negative count", std::string("\1b\4") + std::string(8, '\xFF'), errorid::kIllegalArgument,
         "A field has a negative count."},
        {"a count that is not there", std::string("\1b\4") + std::string(7, '\xFF') + "\x7F", errorid::kIo, nullptr},
        {"nothing", "", errorid::kIo, nullptr},
    };
    for (const auto& [what, stored, error, message] : cases) {
        SCOPED_TRACE(what);
        DataSerialize io(OpenMemoryInput(std::as_bytes(std::span(stored))).TakeValue());
        BaseArray<std::byte> bytes;
        ASSERT_TRUE(bytes.Resize(3));
        const Result<void> read = io.Field("b", bytes);
        ASSERT_FALSE(read);
        EXPECT_EQ(read.GetError()->GetErrorId(), error);
        if (message) {
            EXPECT_EQ(read.GetError()->GetMessage(), message);
        }
        EXPECT_EQ(bytes.GetCount(), 3);
    }
    // A list cannot be longer than the stream either.
    const std::string lists = std::string("\1b\5") + std::string(7, '\xFF') + "\x7F" + std::string(80, '\1');
    DataSerialize io(OpenMemoryInput(std::as_bytes(std::span(lists))).TakeValue());
    BaseArray<Int> numbers;
    EXPECT_FALSE(io.Field("b", numbers));
    EXPECT_TRUE(numbers.IsEmpty());
}

TEST(HashSet, ComparesWithoutOrder) {
    HashSet<Int> a, b;
    for (Int i = 0; i < 100; ++i) {
        ASSERT_TRUE(a.Insert(i));
        ASSERT_TRUE(b.Insert(99 - i) && b.Insert(50));
    }
    EXPECT_TRUE(a == b);
    ASSERT_TRUE(b.Erase(5));
    EXPECT_FALSE(a == b);
    ASSERT_TRUE(b.Insert(100));
    EXPECT_FALSE(a == b) << "as many, but others";
}

}  // namespace
}  // namespace orvik
