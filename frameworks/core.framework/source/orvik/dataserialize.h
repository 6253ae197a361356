#pragma once
/// @file
/// Values as streams of named fields.
///
/// A class describes its fields once, in `DescribeIO`, and is written and read by the same lines. A field is its name
/// (length in one byte, then the bytes), one byte that says what kind of value follows, and the value: numbers and
/// counts as 64 bits little-endian, a bool as one byte, texts and blocks as count and bytes.

#include "orvik/iostreams.h"

namespace orvik {

/// Writes the fields that are given to it, or replaces them by what a stream holds.
class ORVIK_API DataSerialize {
public:
    explicit DataSerialize(OutputStreamRef stream) : _out(std::move(stream)) {}
    explicit DataSerialize(InputStreamRef stream) : _in(std::move(stream)), _isReading(true) {}

    /// True when fields are replaced.
    bool IsReading() const noexcept { return _isReading; }
    /// @{ When reading: illegal argument "Field @ expected, @ found." and "Field @ holds another type.", the stream's
    /// io error at its end. Nothing is reserved that the stream cannot deliver. After an error the value is unchanged.
    Result<void> Field(std::string_view name, Int& value);
    Result<void> Field(std::string_view name, Bool& value);
    Result<void> Field(std::string_view name, String& value);
    Result<void> Field(std::string_view name, BaseArray<std::byte>& value);
    Result<void> Field(std::string_view name, BaseArray<Int>& value);
    Result<void> Field(std::string_view name, BaseArray<String>& value);
    /// @}

private:
    enum class Kind : uint8_t { Number = 1, Bool, Text, Bytes, Numbers, Texts };

    Result<void> Begin(std::string_view name, Kind kind);
    Result<void> Number(Int& value);
    Result<void> Bytes(BaseArray<std::byte>& value);
    Result<void> Text(String& value);

    OutputStreamRef _out;
    InputStreamRef _in;
    bool _isReading = false;
};

}  // namespace orvik
