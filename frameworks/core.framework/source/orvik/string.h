#pragma once
/// @file
/// `String` and `CString`, and the message format with "@" placeholders.

#include <string>
#include <string_view>
#include <type_traits>

#include "orvik/id.h"
#include "orvik/result.h"

namespace orvik {

/// Unicode text, kept as valid UTF-8 in a counted, shared body. Copying never fails.
///
/// The implicit constructors exist for short texts of the program itself: if memory is short they give the empty text.
/// Text whose length a file decides goes through `Create`, which reports the failure.
class ORVIK_API String {
public:
    String() = default;
    String(const char* utf8);                                            // NOLINT(google-explicit-constructor)
    String(std::string_view utf8);                                       // NOLINT(google-explicit-constructor)
    String(const std::string& utf8) : String(std::string_view(utf8)) {}  // NOLINT(google-explicit-constructor)
    String(const String& other) noexcept;
    String(String&& other) noexcept : _body(std::exchange(other._body, nullptr)) {}
    String& operator=(String other) noexcept {
        std::swap(_body, other._body);
        return *this;
    }
    ~String();

    /// Bytes that are not UTF-8 become U+FFFD.
    static Result<String> Create(std::string_view utf8);
    static Result<String> FromUtf16(std::u16string_view text);
    static Result<String> FromUtf32(std::u32string_view text);
    static Result<String> FromLatin1(std::string_view text);
    /// Valid UTF-8 as such, anything else as Latin-1: what text without a declared encoding gets.
    static Result<String> FromSystemText(std::string_view bytes);

    /// Number of Unicode characters (code points).
    Int GetLength() const;
    bool IsEmpty() const { return GetText().empty(); }
    /// The UTF-8 bytes; valid as long as this string is not changed.
    std::string_view GetText() const noexcept;
    /// The same with a terminating zero.
    const char* GetCString() const noexcept;

    Result<void> Append(const String& other);
    Result<std::u16string> ToUtf16() const;
    Result<std::u32string> ToUtf32() const;
    /// Latin-1, with "?" for what lies outside.
    Result<std::string> ToLatin1() const;
    /// ASCII letters only, as ids and suffixes need it.
    String ToLower() const;
    /// ASCII case-insensitive search.
    bool ContainsIgnoringCase(std::string_view asciiPart) const;

    friend bool operator==(const String& a, const String& b) noexcept { return a.GetText() == b.GetText(); }
    friend std::strong_ordering operator<=>(const String& a, const String& b) noexcept {
        return a.GetText() <=> b.GetText();
    }
    uint64_t GetHashCode() const noexcept;

private:
    struct Body;
    Body* _body = nullptr;
};

/// 8-bit text of an encoding that only its owner knows.
class CString {
public:
    CString() = default;
    explicit CString(std::string_view bytes) : _bytes(bytes) {}
    /// From Unicode text as UTF-8.
    explicit CString(const String& text) : _bytes(text.GetText()) {}
    Int GetLength() const { return static_cast<Int>(_bytes.size()); }
    std::string_view GetText() const { return _bytes; }
    String ToString() const { return String(std::string_view(_bytes)); }
    friend bool operator==(const CString&, const CString&) = default;

private:
    std::string _bytes;
};

/// One argument of `FormatString`, rendered only when its placeholder is met.
class FormatArgument {
public:
    enum class Kind : uint8_t { Default, Signed, Unsigned, Real, Boolean, Text, Rendered };

    FormatArgument(int64_t value) : _kind(Kind::Signed), _signed(value) {}              // NOLINT
    FormatArgument(uint64_t value) : _kind(Kind::Unsigned), _unsigned(value) {}         // NOLINT
    FormatArgument(double value) : _kind(Kind::Real), _real(value) {}                   // NOLINT
    FormatArgument(bool value) : _kind(Kind::Boolean), _unsigned(value) {}              // NOLINT
    FormatArgument(std::string_view value) : _kind(Kind::Text), _text(value) {}         // NOLINT
    FormatArgument(String value) : _kind(Kind::Rendered), _string(std::move(value)) {}  // NOLINT
    FormatArgument() = default;

    ORVIK_API void AppendTo(std::string& out, std::string_view spec) const;

private:
    Kind _kind = Kind::Default;
    union {
        int64_t _signed;
        uint64_t _unsigned = 0;
        double _real;
    };
    std::string_view _text;
    String _string;
};

/// Numbers, texts, ids and everything with a `ToString()` have a rendering; any other type prints "<value>".
template <class T>
FormatArgument MakeFormatArgument(const T& value) {
    if constexpr (std::is_same_v<T, bool>)
        return FormatArgument(value);
    else if constexpr (std::is_enum_v<T>)
        return FormatArgument(static_cast<int64_t>(value));
    else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T>)
        return FormatArgument(static_cast<uint64_t>(value));
    else if constexpr (std::is_integral_v<T>)
        return FormatArgument(static_cast<int64_t>(value));
    else if constexpr (std::is_floating_point_v<T>)
        return FormatArgument(static_cast<double>(value));
    else if constexpr (std::is_same_v<T, Id>)
        return FormatArgument(value.GetText());
    else if constexpr (std::is_same_v<T, String>)
        return FormatArgument(value);
    else if constexpr (std::is_convertible_v<const T&, std::string_view>)
        return FormatArgument(std::string_view(value));
    else if constexpr (requires {
                           { value.ToString() } -> std::convertible_to<String>;
                       })
        return FormatArgument(value.ToString());
    else if constexpr (requires {
                           { value->ToString() } -> std::convertible_to<String>;
                       })
        return FormatArgument(value->ToString());
    else
        return FormatArgument();
}

/// Replaces each "@" (or "@{spec}") of `text` by the next argument. Placeholders without an argument stay as they are.
///
/// A spec is for integers: [+] [0] [width] [d | x | X]. "+" shows the sign of positive numbers; the width, at most 99,
/// is filled with blanks in front of the sign or, after "0", with zeros behind it; "d" is decimal, as is no letter;
/// "x" and "X" are hexadecimal, negative numbers as 64 bits in two's complement. "@{04d}" prints 7 as "0007". Any other
/// spec, and any other argument, prints as "@" does.
ORVIK_API String FormatStringArguments(std::string_view text, Block<const FormatArgument> arguments) noexcept;

template <class... Arguments>
String FormatString(std::string_view text, const Arguments&... arguments) noexcept {
    if constexpr (sizeof...(Arguments) == 0) {
        return FormatStringArguments(text, {});
    } else {
        const FormatArgument list[] = {MakeFormatArgument(arguments)...};
        return FormatStringArguments(text, list);
    }
}

}  // namespace orvik
