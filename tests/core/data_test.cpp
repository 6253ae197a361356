#include "test_helpers.h"

#include "orvik/datadictionaryobject.h"

namespace orvik {
namespace {

constexpr Key<Int> kNumber{"net.orvik.test.number"};
constexpr Key<Float> kRatio{"net.orvik.test.ratio"};
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
    const Data number(Int(5));
    const Data text(String("five"));
    EXPECT_EQ(*number.GetIf<Int>(), 5);
    EXPECT_EQ(number.GetIf<Float>(), nullptr);
    EXPECT_EQ(number.GetIf<int32_t>(), nullptr);
    EXPECT_EQ(*text.GetIf<String>(), String("five"));
    EXPECT_EQ(Data().GetIf<Int>(), nullptr);
    EXPECT_EQ(number, Data(Int(5)));
    EXPECT_FALSE(number == Data(Int(6)));
    EXPECT_FALSE(number == Data(Float(5)));
    EXPECT_FALSE(number == Data());
    EXPECT_EQ(Data(), Data());
    EXPECT_EQ(number.GetHashCode(), Data(Int(5)).GetHashCode());
    EXPECT_EQ(number.ToString(), String("5"));
    EXPECT_EQ(text.ToString(), String("five"));
    EXPECT_STREQ(number.GetType()->name, "Int");
}

TEST(Data, CountsReferencesInsideOnce) {
    class Plain : public Object {};
    Ref<Plain> object = NewObj<Plain>().TakeValue();
    {
        Data data(object);
        Data copy = data;
        EXPECT_EQ(object->GetStrongCount(), 3);
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
    EXPECT_EQ(TextOf(dictionary.Get(kNumber)), "Key net.orvik.test.number not found.");
    EXPECT_EQ(dictionary.Get(kNumber, 3), 3);
    ASSERT_TRUE(dictionary.Set(kNumber, 4));
    EXPECT_EQ(dictionary.ToString(), String("{net.orvik.test.number: 4}"));
    ASSERT_TRUE(dictionary.Set(kText, "word"));
    EXPECT_EQ(dictionary.Get(kNumber).GetValueOr(0), 4);
    EXPECT_EQ(dictionary.Get(kNumber, 3), 4);
    EXPECT_EQ(TextOf(dictionary.Get(kTextAsNumber)), "Key net.orvik.test.text holds another type.");
    EXPECT_EQ(ErrorIdOf(dictionary.Get(kTextAsNumber)), errorid::kIllegalArgument);
    EXPECT_EQ(dictionary.Get(kTextAsNumber, 9), 9);
    ASSERT_TRUE(dictionary.Set(kTextAsNumber, 1));
    EXPECT_EQ(dictionary.GetCount(), 2) << "a new type replaces the old value";
    ASSERT_TRUE(dictionary.Erase(kNumber.GetId()));
    ASSERT_TRUE(dictionary.Erase(kNumber.GetId()));
    EXPECT_FALSE(dictionary.Contains(kNumber.GetId()));
}

TEST(DataDictionary, CopiesAreIndependent) {
    DataDictionary first;
    ASSERT_TRUE(first.Set(kNumber, 1));
    DataDictionary second = first;
    EXPECT_EQ(first, second);
    SetAllocationFault(1);
    EXPECT_EQ(ErrorIdOf(second.Set(kNumber, 2)), errorid::kOutOfMemory);
    SetAllocationFault(0);
    EXPECT_EQ(second.Get(kNumber, 0), 1) << "a failed write changes nothing";
    ASSERT_TRUE(second.Set(kNumber, 2));
    ASSERT_TRUE(second.Set(kRatio, 0.5));
    EXPECT_EQ(first.Get(kNumber, 0), 1);
    EXPECT_FALSE(first == second);
    EXPECT_EQ(first.GetCount(), 1);

    DataDictionary merged;
    ASSERT_TRUE(merged.Merge(first));
    ASSERT_TRUE(merged.Merge(second));
    EXPECT_EQ(merged, second);
    EXPECT_EQ(first.Get(kNumber, 0), 1);
    ASSERT_TRUE(merged.Merge(merged));
    EXPECT_EQ(merged.GetCount(), 2);
}

TEST(DataDictionaryObject, AnswersOverriddenKeysWithoutStoringThem) {
    class Capable : public DataDictionaryObjectInterface {
    public:
        Result<Data> GetData(const Id& id) const override {
            if (id == kNumber.GetId())
                return Data(Int(77));
            return DataDictionaryObjectInterface::GetData(id);
        }
    };
    const Ref<DataDictionaryObjectInterface> object = NewObj<Capable>().TakeValue();
    ASSERT_TRUE(object->Set(kText, "stored"));
    EXPECT_EQ(object->Get(kNumber, 0), 77);
    EXPECT_TRUE(object->Has(kNumber.GetId()));
    EXPECT_EQ(object->Get(kText, ""), String("stored"));
    EXPECT_EQ(object->GetDictionary().GetCount(), 1);
    const Ref<DataDictionaryObjectInterface> null;
    EXPECT_EQ(ErrorIdOf(null->Get(kNumber)), errorid::kNullptr);
    EXPECT_EQ(ErrorIdOf(null->Set(kNumber, 1)), errorid::kNullptr);
    EXPECT_EQ(null->Get(kNumber, 5), 5);
}

}  // namespace
}  // namespace orvik
