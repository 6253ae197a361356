#pragma once
/// @file
/// The plain vocabulary under everything else: number names, blocks, source locations, symbol visibility.

#include <cstddef>
#include <cstdint>
#include <span>

/// Marks what the framework libraries export; everything is compiled with hidden visibility.
#define ORVIK_API __attribute__((visibility("default")))

namespace orvik {

using Int = int64_t;
using Float = double;
using Bool = bool;

/// A pointer plus a count. It owns nothing.
template <class T>
using Block = std::span<T>;

/// Where an error was made. The build maps file names so that they start at the project's root. As
/// std::source_location, which clang does not have before version 16.
class SourceLocation {
public:
    static constexpr SourceLocation current(const char* file = __builtin_FILE(), uint32_t line = __builtin_LINE(),
                                            const char* function = __builtin_FUNCTION()) noexcept {
        SourceLocation location;
        location._file = file;
        location._function = function;
        location._line = line;
        return location;
    }
    constexpr const char* file_name() const noexcept { return _file; }
    constexpr const char* function_name() const noexcept { return _function; }
    constexpr uint32_t line() const noexcept { return _line; }

private:
    const char* _file = "";
    const char* _function = "";
    uint32_t _line = 0;
};

}  // namespace orvik
