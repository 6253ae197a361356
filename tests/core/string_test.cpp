#include <clocale>
#include <cmath>
#include <limits>

#include "test_helpers.h"

#include "orvik/timevalue.h"

namespace orvik {
namespace {

std::string Value(const Result<String>& text) { return text ? std::string(text->GetText()) : "error"; }

TEST(Format, ReplacesPlaceholdersInOrder) {
    struct NoText {};
    struct Shown {
        String ToString() const { return "shown"; }
    };
    enum class Colour { Red = 3 };
    const std::pair<String, std::string> cases[] = {
        {FormatString("plain"), "plain"},
        {FormatString("@ and @", 1, "two"), "1 and two"},
        {FormatString("@@@", 1, 2, String("\xC3\xA4")), "12\xC3\xA4"},
        {FormatString("0x@{x}, @{x}", 48879, uint8_t(10)), "0xbeef, a"},
        {FormatString("@{x}", -1), "ffffffffffffffff"},
        {FormatString("@{q}|@{}", 12, 13), "12|13"},
        {FormatString("@{04d}|@{04}|@{4}|@{d}", 7, 7, 7, 7), "0007|0007|   7|7"},
        {FormatString("@{04d}|@{5d}|@{2d}|@{02d}", -7, -7, -123, 123), "-007|   -7|-123|123"},
        {FormatString("@{+d}|@{+04d}|@{+3}|@{+d}", 7, 7, 7, -7), "+7|+007| +7|-7"},
        {FormatString("@{04x}|@{X}|@{6X}|@{02x}", 0xAB, 0xAB, 0xAB, uint8_t(5)), "00ab|AB|    AB|05"},
        {FormatString("@{04d}|@{021d}", UINT64_MAX, INT64_MIN), "18446744073709551615|-09223372036854775808"},
        {FormatString("@{099}", 1), std::string(98, '0') + "1"},
        {FormatString("@{0100}|@{4d }|@{04o}|@{-4}", 1, 2, 3, 4), "1|2|3|4"},
        {FormatString("@{04d}|@{04d}", "text", 1.5), "text|1.5"},
        {FormatString("@ @", 1), "1 @"},
        {FormatString("@ @{x}"), "@ @{x}"},
        {FormatString("@", 1, 2), "1"},
        {FormatString("@{x", 255), "255{x"},
        {FormatString("@ @ @", "a@b", "@", 2), "a@b @ 2"},
        {FormatString("@ @", true, false), "true false"},
        {FormatString("@ @", NoText(), Shown()), "<value> shown"},
        {FormatString("@ @", Colour::Red, Id("net.orvik.x")), "3 net.orvik.x"},
        {FormatString("@ @", INT64_MIN, UINT64_MAX), "-9223372036854775808 18446744073709551615"},
        {FormatString("@ @", TimeValue::FromSeconds(1.5), TimeValue::None()), "1.5 s <none>"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(text.GetText(), expected);
}

TEST(Format, NumbersAreShortAndFreeOfTheLocale) {
    const char* before = std::setlocale(LC_ALL, nullptr);
    const std::string kept = before ? before : "C";
    std::setlocale(LC_ALL, "de_DE.UTF-8");  // a machine without it tests the rest
    const double infinity = std::numeric_limits<double>::infinity();
    const std::pair<double, const char*> cases[] = {{1.5, "1.5"},
                                                    {1.0, "1"},
                                                    {0.1, "0.1"},
                                                    {-0.0, "-0"},
                                                    {1e300, "1e+300"},
                                                    {100000.0, "100000"},
                                                    {std::nan(""), "nan"},
                                                    {-std::nan(""), "nan"},
                                                    {infinity, "inf"},
                                                    {-infinity, "-inf"},
                                                    {0.1 + 0.2, "0.30000000000000004"}};
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(FormatString("@", value).GetText(), expected);
    std::setlocale(LC_ALL, kept.c_str());
}

TEST(String, InvalidUtf8BecomesReplacementCharacters) {
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"ascii", "abc", "abc"},
        {"all lengths", "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"lone byte", "a\xFFz", "a\xEF\xBF\xBDz"},
        {"cut at the end", "a\xE2\x82", "a\xEF\xBF\xBD"},
        {"zero inside", std::string("a\0b", 3), std::string("a\0b", 3)},
    };
    for (const auto& [what, bytes, expected] : cases)
        EXPECT_EQ(Value(String::Create(bytes)), expected) << what;
    // However many replacements stand for these, nothing invalid remains and what is around them stays.
    for (const std::string bad : {"\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xC3", "\x80\x80"}) {
        const std::string text = Value(String::Create("<" + bad + ">"));
        EXPECT_THAT(text, testing::StartsWith("<\xEF\xBF\xBD"));
        EXPECT_EQ(text.back(), '>');
        EXPECT_EQ(Value(String::FromSystemText(text)), text);
    }
}

TEST(String, ConvertsUtf16Utf32AndLatin1) {
    EXPECT_EQ(Value(String::FromUtf16(u"a\u00E4\u20AC\U0001F600")), "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    const char16_t lone[] = {0xDC00, 'x', 0xD800, 'y', 0xD83D};
    EXPECT_EQ(Value(String::FromUtf16({lone, 5})), "\xEF\xBF\xBDx\xEF\xBF\xBDy\xEF\xBF\xBD");
    const char32_t wide[] = {0x1F600, 0xD800, 0x110000, 'k'};
    EXPECT_EQ(Value(String::FromUtf32({wide, 4})), "\xF0\x9F\x98\x80\xEF\xBF\xBD\xEF\xBF\xBDk");
    EXPECT_EQ(Value(String::FromLatin1("a\xE4\xFF")), "a\xC3\xA4\xC3\xBF");
    EXPECT_EQ(Value(String::FromSystemText("a\xE4")), "a\xC3\xA4") << "not UTF-8, hence Latin-1";
    EXPECT_EQ(Value(String::FromSystemText("a\xC3\xA4")), "a\xC3\xA4");
    const String text("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(text.GetLength(), 4);
    EXPECT_EQ(text.ToUtf16().TakeValue(), u"a\u00E4\u20AC\U0001F600");
    EXPECT_EQ(text.ToUtf32().TakeValue(), U"a\u00E4\u20AC\U0001F600");
    EXPECT_EQ(text.ToLatin1().TakeValue(), "a\xE4??");
}

TEST(String, AppendLeavesCopiesAlone) {
    String text("ab");
    const String copy = text;
    ASSERT_TRUE(text.Append("cd"));
    ASSERT_TRUE(text.Append(text));
    const String second = text;
    ASSERT_TRUE(text.Append("!"));
    ASSERT_TRUE(text.Append(String()));
    EXPECT_EQ(copy, String("ab"));
    EXPECT_EQ(second, String("abcdabcd"));
    EXPECT_STREQ(text.GetCString(), "abcdabcd!");
}

TEST(String, ReportsLackOfMemory) {
    EXPECT_EQ(FailEachAllocation([] { return String::Create("some text"); }), 1);
    EXPECT_EQ(FailEachAllocation([] { return String::FromLatin1("\xE4"); }), 1);
    SetAllocationFault(1);
    EXPECT_TRUE(String("short").IsEmpty()) << "the implicit form gives the empty text";
    SetAllocationFault(0);
    String text("kept");
    const String more("more");
    SetAllocationFault(1);
    EXPECT_EQ(ErrorIdOf(text.Append(more)), errorid::kOutOfMemory);
    SetAllocationFault(0);
    EXPECT_EQ(text, String("kept"));
}

TEST(String, SearchesAndLowersAsciiOnly) {
    EXPECT_EQ(String("AbC\xC3\x84").ToLower(), String("abc\xC3\x84"));
    EXPECT_TRUE(String("Linear sRGB profile").ContainsIgnoringCase("SRGB"));
    EXPECT_FALSE(String("Linear").ContainsIgnoringCase("sRGB"));
}

// Worked out by hand: h = h * 31 + c, 43 bits of it, the length from bit 44 up.
static_assert(Id("").GetValue() == 0);
static_assert(Id("a").GetValue() == 0x100000000061);
static_assert(Id("ab").GetValue() == 0x200000000C21);
static_assert(Id("ab") == Id("ab") && Id("ab") != Id("ba"));

static_assert(Id("net.orvik.image.interface.mediastream").GetValue() == 0x25213073703B2);
static_assert(Id("\xFF\x80").GetValue() == 0x200000001F61, "bytes above 127 count as positive numbers");

TEST(Id, EqualValuesOfDifferentTextsAreDifferentIds) {
    const Id first("Aa"), second("BB");  // the same hash under the factor 31
    EXPECT_EQ(first.GetValue(), second.GetValue());
    EXPECT_TRUE(first != second && first < second);
}

TEST(Id, OwnedTextIsCopiedAndCounted) {
    std::string text = "net.orvik.runtime";
    Result<Id> made = Id::Create(text);
    ASSERT_TRUE(made);
    text.assign(text.size(), 'x');
    const Id id = *made, literal("net.orvik.runtime");
    EXPECT_TRUE(id == literal && id.GetValue() == literal.GetValue()) << "the owned bit takes no part";
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
