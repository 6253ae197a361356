#include "test_helpers.h"

#include "orvik/hashmap.h"

namespace orvik {
namespace {

// Worked out by hand: h = h * 31 + c, 43 bits of it, the length from bit 44 up.
static_assert(Id("").GetValue() == 0);
static_assert(Id("a").GetValue() == 0x100000000061);
static_assert(Id("ab").GetValue() == 0x200000000C21);
static_assert(Id("ab") == Id("ab") && Id("ab") != Id("ba"));

TEST(Id, BitsOfLongAndHighTexts) {
    EXPECT_EQ(Id("net.orvik.image.interface.mediastream").GetValue(), 0x25213073703B2u);
    EXPECT_EQ(Id("\xFF\x80").GetValue(), 0x200000001F61u) << "bytes above 127 count as positive numbers";
}

TEST(Id, EqualValuesOfDifferentTextsAreDifferentIds) {
    // "Aa" and "BB" have the same hash under the factor 31.
    EXPECT_EQ(Id("Aa").GetValue(), Id("BB").GetValue());
    EXPECT_NE(Id("Aa"), Id("BB"));
    EXPECT_LT(Id("Aa"), Id("BB"));
}

TEST(Id, OwnedTextIsCopiedAndCounted) {
    std::string text = "net.orvik.runtime";
    Result<Id> made = Id::Create(text);
    ASSERT_TRUE(made);
    text.assign(text.size(), 'x');
    Id id = *made;
    EXPECT_EQ(id, Id("net.orvik.runtime")) << "the owned bit takes no part in comparisons";
    EXPECT_EQ(id.GetValue(), Id("net.orvik.runtime").GetValue());
    EXPECT_EQ(id.GetCString(), made->GetCString()) << "copies share the text";
    {
        Id copy = id;
        Id moved = std::move(copy);
        copy = moved;
        moved = Id("other");
        EXPECT_EQ(copy, id);
    }
    made = Id();
    EXPECT_STREQ(id.GetCString(), "net.orvik.runtime");
}

TEST(Id, LengthLimitAndLackOfMemory) {
    EXPECT_TRUE(Id::Create(std::string((1 << 20) - 1, 'a')));
    EXPECT_EQ(ErrorIdOf(Id::Create(std::string(1 << 20, 'a'))), errorid::kIllegalArgument);
    EXPECT_TRUE(Id::Create("").TakeValue().IsEmpty());
    EXPECT_EQ(FailEachAllocation([] { return Id::Create("net.orvik.x"); }), 1);
}

}  // namespace
}  // namespace orvik
