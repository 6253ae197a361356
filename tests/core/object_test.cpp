#include "test_helpers.h"

#include "orvik/datadictionaryobject.h"
#include "orvik/registrybase.h"

namespace orvik {
namespace {

/// An interface with a method of every shape of answer.
class ShapesInterface : public virtual Object {
    ORVIK_INTERFACE(ShapesInterface, "net.orvik.test.interface.shapes");

public:
    virtual Result<void> GetNothing() { return Unbound(); }
    virtual Result<Int> GetInt() const { return Unbound(); }
    virtual Result<Ref<ShapesInterface>> GetNext() const { return Unbound(); }
    virtual Ref<ShapesInterface> GetPlainNext() const { return Unbound(); }
    virtual Int GetCount() const { return Unbound(); }
    virtual String GetName() const { return Unbound(); }
    virtual const char* GetAddress() const { return Unbound(); }
};
using ShapesRef = Ref<ShapesInterface>;

class OtherInterface : public virtual Object {
    ORVIK_INTERFACE(OtherInterface, "net.orvik.test.interface.other");

public:
    virtual Int GetOther() const { return Unbound(); }
};
class AbsentInterface : public virtual Object {
    ORVIK_INTERFACE(AbsentInterface, "net.orvik.test.interface.absent");
};

/// Implements two interfaces, with data before and between them, and counts its instances.
class TwoFaced : public ShapesInterface, public OtherInterface {
public:
    TwoFaced() { ++instances; }
    ~TwoFaced() override { --instances; }
    Int GetCount() const override { return 12; }
    Int GetOther() const override { return 34; }
    static inline std::atomic<int> instances = 0;
};

TEST(NullReference, AnswersEveryShapeByItsReason) {
    const std::pair<ShapesRef, Id> cases[] = {
        {ShapesRef(), errorid::kNullptr},
        {ShapesRef::Unresolved(), errorid::kUnresolved},
        {NewObj<ShapesInterface>().TakeValue(), errorid::kFunctionNotImplemented},
    };
    for (const auto& [ref, error] : cases) {
        SetAllocationFault(1, true);  // no answer may need memory
        EXPECT_EQ(ErrorIdOf(ref->GetNothing()), error);
        EXPECT_EQ(ErrorIdOf(ref->GetInt()), error);
        EXPECT_EQ(ErrorIdOf(ref->GetNext()), error);
        EXPECT_FALSE(ref->GetPlainNext());
        EXPECT_FALSE(ref->GetPlainNext()->GetPlainNext()->GetPlainNext());
        EXPECT_TRUE(ref->GetCount() == 0 && !ref->GetAddress() && ref->GetName().IsEmpty());
        EXPECT_EQ(ref->GetNothing().GetError().Get(), ref->GetInt().GetError().Get()) << "one shared error";
        SetAllocationFault(0);
    }
    EXPECT_FALSE(ShapesRef::Unresolved());
    EXPECT_EQ(ShapesRef::Unresolved(), ShapesRef());
    EXPECT_EQ(ErrorIdOf(ShapesRef::Unresolved()->Clone()), errorid::kUnresolved);
}

TEST(NullReference, OtherReasonsStopTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const int reason : {-1, 4})
        EXPECT_DEATH((void)PrivateGetNullReturnError(reason), "Stop: reason not supported by PrivateGetNullReturnErr");
    EXPECT_TRUE(PrivateGetNullReturnError(0)->IsKindOf(errorid::kIllegalArgument)) << "as a null pointer error is";
}

TEST(Ref, LastReferenceEndsTheObject) {
    ASSERT_EQ(TwoFaced::instances, 0);
    Ref<TwoFaced> object = NewObj<TwoFaced>().TakeValue();
    ShapesRef shapes = object;
    Ref<OtherInterface> other = object;
    EXPECT_EQ(object->GetStrongCount(), 3);
    EXPECT_EQ(std::pair(shapes->GetCount(), other->GetOther()), std::pair(Int(12), Int(34)));
    object = nullptr;
    ShapesRef moved = std::move(shapes);
    EXPECT_EQ(moved->GetStrongCount(), 2);
    other = nullptr;
    EXPECT_EQ(TwoFaced::instances, 1);
    moved = nullptr;
    EXPECT_EQ(TwoFaced::instances, 0);
}

TEST(Ref, ConstructionCanFail) {
    class Failing : public TwoFaced {
    public:
        Result<void> Construct() { return IllegalStateError("not today"); }
    };
    EXPECT_EQ(MessageOf(NewObj<Failing>()), "not today");
    EXPECT_EQ(TwoFaced::instances, 0);
    EXPECT_EQ(FailEachAllocation([] { return NewObj<TwoFaced>(); }), 1);
}

TEST(Ref, KeepsTheAlignmentOfItsObject) {
    struct alignas(64) Aligned : Object {
        std::byte line[64];
    };
    for (int i = 0; i < 20; ++i) {
        Ref<Aligned> object = NewObj<Aligned>().TakeValue();
        EXPECT_EQ(reinterpret_cast<uintptr_t>(object.GetPointer()) % 64, 0u);
    }
}

TEST(Cast, FindsInterfacesWithAndWithoutAPublishedClass) {
    constexpr Id kClass("net.orvik.test.class.twofaced");
    Publisher publisher;
    ASSERT_TRUE(publisher.PublishClass<TwoFaced>(kClass));
    for (const bool published : {false, true, true}) {
        const ObjectRef object =
            published ? ClassRef(kClass).Create().TakeValue() : ObjectRef(NewObj<TwoFaced>().TakeValue());
        EXPECT_EQ(object->GetClassId(), published ? kClass : Id());
        for (int again = 0; again < 2; ++again) {  // the second cast answers from the class's table
            EXPECT_EQ(Cast<OtherInterface>(object)->GetOther(), 34);
            EXPECT_EQ(Cast<ShapesInterface>(object)->GetCount(), 12);
            EXPECT_FALSE(Cast<AbsentInterface>(object));
        }
    }
    EXPECT_FALSE(Cast<ShapesInterface>(ObjectRef()) || Cast<ShapesInterface>(ObjectRef::Unresolved()));
}

TEST(WeakRef, ReadersRaceWithTheEndOfTheObject) {
    for (int round = 0; round < 200; ++round) {
        Ref<TwoFaced> strong = NewObj<TwoFaced>().TakeValue(), other = NewObj<TwoFaced>().TakeValue();
        WeakRef<TwoFaced> weak(strong);
        EXPECT_EQ(strong->GetStrongCount(), 1) << "weak references do not count";
        const WeakRef<TwoFaced> copy = weak;
        std::atomic<int> wrong = 0;
        RunAtOnce(5, [&](int thread) {
            if (thread == 0)
                strong = nullptr;
            for (int i = 0; thread == 1 && i < 50; ++i)
                weak.Set(i % 2 ? other : Ref<TwoFaced>());
            for (int i = 0; thread > 1 && i < 200; ++i) {
                if (Ref<TwoFaced> got = weak.Get(); got && got->GetCount() != 12)
                    ++wrong;
            }
        });
        other = nullptr;
        EXPECT_EQ(wrong, 0);
        EXPECT_FALSE(weak.Get() || copy.Get());
    }
    EXPECT_EQ(TwoFaced::instances, 0);
}

TEST(ValueRef, CopiesOnlyWhenSharedAndNamesClassesThatCannotBeCopied) {
    EXPECT_EQ(ErrorIdOf(ValueRef<TwoFaced>().MakeWritable()), errorid::kNullptr);
    ValueRef<TwoFaced> first(NewObj<TwoFaced>().TakeValue());
    EXPECT_EQ(first.MakeWritable().GetValueOr(nullptr), first.GetPointer());
    const ValueRef<TwoFaced> second = first;
    EXPECT_THAT(MessageOf(first.MakeWritable()),
                testing::MatchesRegex("Component .*TwoFaced has members, but CopyFrom is not implemented!"));
    constexpr Id kClass("net.orvik.test.class.uncopied");
    Publisher publisher;
    ASSERT_TRUE(publisher.PublishClass<TwoFaced>(kClass));
    EXPECT_EQ(MessageOf(ClassRef(kClass).Create().TakeValue()->Clone()),
              "Component net.orvik.test.class.uncopied has members, but CopyFrom is not implemented!");
}

TEST(Result, MovesAndDropsValuesOnce) {
    Ref<TwoFaced> object = NewObj<TwoFaced>().TakeValue();
    Result<Ref<TwoFaced>> good(object), bad(IllegalStateError("bad"));
    Result<Ref<TwoFaced>> moved = std::move(bad);
    bad = good;
    good = moved;
    moved = std::move(bad);
    EXPECT_EQ(object->GetStrongCount(), 2);
    EXPECT_EQ(MessageOf(good), "bad");
    EXPECT_EQ(std::move(moved).TakeValue(), object);
    const auto pass = [&](Result<Ref<TwoFaced>> from) -> Result<Int> {
        Ref<TwoFaced> taken = TRY(std::move(from));
        return taken->GetCount();
    };
    EXPECT_EQ(pass(object).GetValueOr(0), 12);
    EXPECT_EQ(pass(good).GetError().Get(), good.GetError().Get()) << "the error is passed on unchanged";
}

TEST(Error, CarriesClassPlaceMessageAndCause) {
    const Error cause = IllegalArgumentError("inner @", 7);
    const uint32_t line = __LINE__ + 1;
    const Error error = UnexpectedErrorWith(cause, "outer @{x}", 255);
    EXPECT_EQ(error->GetMessage(), String("outer ff"));
    EXPECT_EQ(error->GetLocation().line(), line);
    EXPECT_THAT(error->GetLocation().file_name(), testing::EndsWith("object_test.cpp"));
    EXPECT_EQ(error->GetCause().Get(), cause.Get());
    EXPECT_TRUE(error->IsKindOf(errorid::kUnexpected));
    EXPECT_FALSE(error->IsKindOf(errorid::kIllegalArgument));
    EXPECT_TRUE(Error(NullptrError())->IsKindOf(errorid::kIllegalArgument));
    EXPECT_EQ(Error(NullptrError())->GetLocation().line(), uint32_t(__LINE__));
    EXPECT_FALSE(Error(OutOfMemoryError())->ToString().IsEmpty());
}

TEST(Error, StandardKindsByNumber) {
    const char* const expected[] = {"unknown",         "outofmemory",  "nullptr",
                                    "illegalargument", "illegalstate", "functionnotimplemented",
                                    "unresolved",      "unknown"};
    for (int kind = -1; kind < 7; ++kind) {
        const Error error = MakeStandardError(SourceLocation::current(), kind);
        EXPECT_EQ(error->GetErrorId().GetText(), std::string("net.orvik.error.") + expected[kind + 1]);
    }
}

TEST(Error, WithoutMemoryForItselfIsTheOutOfMemoryError) {
    SetAllocationFault(1, true);
    const Error error = IllegalStateError("text @", 1), io = IoError(Url(), "text");
    SetAllocationFault(0);
    EXPECT_TRUE(error->IsKindOf(errorid::kOutOfMemory) && io->IsKindOf(errorid::kOutOfMemory));
}

}  // namespace
}  // namespace orvik
