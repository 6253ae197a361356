#include "support/described.h"
#include "test_helpers.h"

#include "orvik/datadescriptionobject.h"
#include "orvik/datadictionaryobject.h"

namespace orvik {
namespace {

constexpr Key<Int> kNumber{"net.orvik.test.number"};
constexpr Key<String> kText{"net.orvik.test.text"};
constexpr Key<Int> kTextAsNumber{"net.orvik.test.text"};

/// Larger than what a `Data` holds inside; counts its copies and instances.
struct Large {
    Large() { ++instances; }
    Large(const Large& other) : value(other.value) { ++instances, ++copies; }
    Large(Large&& other) noexcept : value(other.value) { ++instances; }
    ~Large() { --instances; }
    bool operator==(const Large& other) const { return value == other.value; }
    Int value = 5;
    char filling[100] = {};
    static inline int instances = 0, copies = 0;
};

TEST(Data, DistinguishesTypesAndValues) {
    const Data number(Int(5)), text(String("five"));
    EXPECT_EQ(*number.GetIf<Int>(), 5);
    EXPECT_FALSE(number.GetIf<Float>() || number.GetIf<int32_t>() || Data().GetIf<Int>());
    EXPECT_TRUE(number == Data(Int(5)) && number.GetHashCode() == Data(Int(5)).GetHashCode() && Data() == Data());
    for (const Data& other : {Data(Int(6)), Data(Float(5)), Data(), text})
        EXPECT_FALSE(number == other);
    EXPECT_EQ(number.ToString(), String("5"));
    EXPECT_EQ(text.ToString(), String("five"));
    EXPECT_STREQ(number.GetType()->name, "Int");
}

TEST(Data, CountsReferencesInsideOnce) {
    class Plain : public Object {};
    const Ref<Plain> object = NewObj<Plain>().TakeValue();
    {
        Data data(object), copy = data;
        const Data moved = std::move(copy);
        EXPECT_TRUE(copy.IsEmpty());
        EXPECT_EQ(object->GetStrongCount(), 3);
        data = Data(Int(1));
        EXPECT_EQ(object->GetStrongCount(), 2);
    }
    EXPECT_EQ(object->GetStrongCount(), 1);
}

TEST(Data, SharesLargeValues) {
    {
        Data data = Data::Create(Large()).TakeValue();
        Large::copies = 0;
        Data copy = data;
        const Data third = copy;
        copy = Data();
        EXPECT_EQ(Large::copies, 0);
        EXPECT_EQ(data.GetIf<Large>(), third.GetIf<Large>());
        EXPECT_EQ(data, third);
        EXPECT_EQ(data, Data::Create(Large()).TakeValue());
    }
    EXPECT_EQ(Large::instances, 0);
    EXPECT_EQ(FailEachAllocation([] { return Data::Create(Large()); }), 1);
    EXPECT_EQ(Large::instances, 0);
}

TEST(Data, KeepsWideAlignment) {
    struct alignas(64) Wide {
        ~Wide() {}  // passed by address, whatever the compiler's rules for aligned arguments
        char bytes[64] = {};
    };
    for (int i = 0; i < 10; ++i) {
        const Data data = Data::Create(Wide()).TakeValue();
        EXPECT_EQ(reinterpret_cast<uintptr_t>(data.GetIf<Wide>()) % 64, 0u);
    }
}

TEST(DataDictionary, TypedGetAndSet) {
    DataDictionary dictionary;
    EXPECT_EQ(MessageOf(dictionary.Get(kNumber)), "Key net.orvik.test.number not found.");
    EXPECT_EQ(dictionary.Get(kNumber, 3), 3);
    ASSERT_TRUE(dictionary.Set(kNumber, 4));
    EXPECT_EQ(dictionary.ToString(), String("{net.orvik.test.number: 4}"));
    ASSERT_TRUE(dictionary.Set(kText, "word"));
    EXPECT_EQ(dictionary.Get(kNumber).GetValueOr(0), 4);
    EXPECT_EQ(MessageOf(dictionary.Get(kTextAsNumber)), "Key net.orvik.test.text holds another type.");
    EXPECT_EQ(ErrorIdOf(dictionary.Get(kTextAsNumber)), errorid::kIllegalArgument);
    EXPECT_EQ(dictionary.Get(kTextAsNumber, 9), 9);
    ASSERT_TRUE(dictionary.Set(kTextAsNumber, 1));
    EXPECT_EQ(dictionary.GetCount(), 2) << "a new type replaces the old value";
    for (int again = 0; again < 2; ++again)
        ASSERT_TRUE(dictionary.Erase(kNumber.GetId()));
    EXPECT_FALSE(dictionary.Contains(kNumber.GetId()));
}

TEST(DataDictionary, CopiesAreIndependent) {
    DataDictionary first, merged;
    ASSERT_TRUE(first.Set(kNumber, 1));
    DataDictionary second = first;
    SetAllocationFault(1);
    EXPECT_EQ(ErrorIdOf(second.Set(kNumber, 2)), errorid::kOutOfMemory);
    SetAllocationFault(0);
    EXPECT_EQ(first, second) << "a failed write changes nothing";
    ASSERT_TRUE(second.Set(kNumber, 2) && second.Set(kText, "word"));
    EXPECT_FALSE(first == second);
    ASSERT_TRUE(merged.Merge(first) && merged.Merge(second) && merged.Merge(merged));
    EXPECT_EQ(merged, second);
    EXPECT_EQ(first.ToString(), String("{net.orvik.test.number: 1}"));
}

TEST(DataDictionaryObject, AnswersOverriddenKeysWithoutStoringThem) {
    class Capable : public DataDictionaryObjectInterface {
    public:
        Result<Data> GetData(const Id& id) const override {
            return id == kNumber.GetId() ? Data(Int(77)) : DataDictionaryObjectInterface::GetData(id);
        }
    };
    const Ref<DataDictionaryObjectInterface> object = NewObj<Capable>().TakeValue(), null;
    ASSERT_TRUE(object->Set(kText, "stored"));
    EXPECT_TRUE(object->Get(kNumber, 0) == 77 && object->Has(kNumber.GetId()));
    EXPECT_EQ(object->GetDictionary().ToString(), String("{net.orvik.test.text: stored}"));
    EXPECT_EQ(ErrorIdOf(null->Get(kNumber)), errorid::kNullptr);
    EXPECT_EQ(ErrorIdOf(null->Set(kNumber, 1)), errorid::kNullptr);
}

/// One field of every kind.
struct Record {
    Int number = 0;
    Bool flag = false;
    String text;
    BaseArray<std::byte> bytes;
    BaseArray<Int> numbers;
    BaseArray<String> texts;

    Result<void> DescribeIO(DataSerialize& io) {
        TRY(io.Field("n", number));
        TRY(io.Field("flag", flag));
        TRY(io.Field("text", text));
        TRY(io.Field("bytes", bytes));
        TRY(io.Field("numbers", numbers));
        return io.Field("texts", texts);
    }
};

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

std::string Count(Int value) {
    std::string bytes;
    for (int i = 0; i < 8; ++i)
        bytes += char(uint64_t(value) >> (8 * i));
    return bytes;
}

TEST(DataSerialize, ReadsAndWritesTheFixedLayout) {
    const std::string pattern = PatternBytes(100'000);
    const std::string stored = "\1n\1" + Count(-0x0102) + "\4flag\2\1" + "\4text\3" + Count(3) + "h\xC3\xA9" +
                               "\5bytes\4" + Count(100'000) + pattern + "\7numbers\5" + Count(2) + Count(INT64_MIN) +
                               Count(7) + "\5texts\6" + Count(2) + Count(1) + "a" + Count(0);
    for (const bool saysLength : {true, false}) {
        InputStreamRef stream = OpenMemoryInput(AsBlock(stored)).TakeValue();
        if (!saysLength)
            stream = NewObj<EndlessStream>(stream).TakeValue();
        DataSerialize io(stream);
        Record record;
        ASSERT_EQ(ErrorIdOf(record.DescribeIO(io)), Id());
        EXPECT_TRUE(record.number == -0x0102 && record.flag && record.text == "h\xC3\xA9");
        EXPECT_TRUE(std::ranges::equal(BytesOf(Written(record)), AsBlock(stored)));
    }
}

TEST(DataSerialize, RefusesOtherFieldsAndFalseCounts) {
    const std::string huge = Count(INT64_MAX);
    const std::tuple<const char*, std::string, Id, const char*> cases[] = {
        {"another name", "\1x\4", errorid::kIllegalArgument, "Field b expected, x found."},
        {"another kind", "\1b\3", errorid::kIllegalArgument, "Field b holds another type."},
        {"negative count", "\1b\4" + Count(-1), errorid::kIllegalArgument, "A field has a negative count."},
        {"a count that is not there", "\1b\4" + huge, errorid::kIo, nullptr},
        {"nothing", "", errorid::kIo, nullptr},
    };
    for (const auto& [what, stored, error, message] : cases) {
        SCOPED_TRACE(what);
        DataSerialize io(OpenMemoryInput(AsBlock(stored)).TakeValue());
        BaseArray<std::byte> bytes;
        ASSERT_TRUE(bytes.Resize(3));
        const Result<void> read = io.Field("b", bytes);
        EXPECT_EQ(ErrorIdOf(read), error);
        EXPECT_TRUE(!message || MessageOf(read) == message) << MessageOf(read);
        EXPECT_EQ(bytes.GetCount(), 3);
    }
    // A list cannot be longer than the stream either.
    const std::string lists = "\1b\5" + huge + std::string(80, '\1');
    DataSerialize io(OpenMemoryInput(AsBlock(lists)).TakeValue());
    BaseArray<Int> numbers;
    EXPECT_FALSE(io.Field("b", numbers));
    EXPECT_TRUE(numbers.IsEmpty());
}

}  // namespace
}  // namespace orvik
