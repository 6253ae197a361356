#pragma once
/// @file
/// `Id`: the name of every class, interface, registry, key and error.

#include <compare>
#include <string_view>

#include "orvik/apibase.h"

namespace orvik {

template <class T>
class Result;

/// A dotted lower-case name with a 64-bit value that is computed at compile time.
///
/// | Bits     | Meaning |
/// |----------|---------|
/// | 0 to 42  | low 43 bits of h, where h starts at 0 and h = h * 31 + c for each byte c |
/// | 43       | the text is owned and counted; takes no part in comparisons |
/// | 44 to 63 | length of the text in bytes |
///
/// Two ids are equal when their masked values and their texts are equal. Hot code switches on `GetValue()`.
class Id {
public:
    static constexpr uint64_t kHashMask = (uint64_t(1) << 43) - 1;
    static constexpr uint64_t kOwnedBit = uint64_t(1) << 43;

    constexpr Id() = default;

    /// From a literal, which must outlive the id.
    template <size_t N>
    constexpr Id(const char (&literal)[N])  // NOLINT(google-explicit-constructor)
        : _text(literal), _value(ComputeValue(std::string_view(literal, N - 1))) {}

    constexpr Id(const Id& other) : _text(other._text), _value(other._value) {
        if (_value & kOwnedBit)
            RetainText();
    }
    constexpr Id(Id&& other) noexcept : _text(other._text), _value(other._value) {
        other._text = "";
        other._value = 0;
    }
    constexpr Id& operator=(const Id& other) {
        Id copy(other);
        Swap(copy);
        return *this;
    }
    constexpr Id& operator=(Id&& other) noexcept {
        Swap(other);
        return *this;
    }
    constexpr ~Id() {
        if (_value & kOwnedBit)
            ReleaseText();
    }

    /// Copies `text` into a counted string. Out of memory is the only failure, besides a text of 2^20 bytes or more.
    ORVIK_API static Result<Id> Create(std::string_view text);

    /// The value by the table above, without the owned bit.
    static constexpr uint64_t ComputeValue(std::string_view text) {
        uint64_t hash = 0;
        for (const char c : text)
            hash = hash * 31 + static_cast<unsigned char>(c);
        return (hash & kHashMask) | (uint64_t(text.size()) << 44);
    }

    /// The value with the owned bit cleared: what comparisons and switches use.
    constexpr uint64_t GetValue() const { return _value & ~kOwnedBit; }
    constexpr size_t GetLength() const { return static_cast<size_t>(_value >> 44); }
    constexpr std::string_view GetText() const { return {_text, GetLength()}; }
    constexpr const char* GetCString() const { return _text; }
    constexpr bool IsEmpty() const { return GetValue() == 0; }

    friend constexpr bool operator==(const Id& a, const Id& b) {
        return a.GetValue() == b.GetValue() && (a._text == b._text || a.GetText() == b.GetText());
    }
    friend constexpr std::strong_ordering operator<=>(const Id& a, const Id& b) { return a.GetText() <=> b.GetText(); }

private:
    constexpr void Swap(Id& other) noexcept {
        const char* text = _text;
        const uint64_t value = _value;
        _text = other._text;
        _value = other._value;
        other._text = text;
        other._value = value;
    }
    ORVIK_API void RetainText() const noexcept;
    ORVIK_API void ReleaseText() noexcept;

    const char* _text = "";
    uint64_t _value = 0;
};

}  // namespace orvik
