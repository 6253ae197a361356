#pragma once
/// @file
/// `TimeValue`: a double of seconds.

#include <compare>
#include <limits>

#include "orvik/string.h"

namespace orvik {

/// Seconds. The greatest finite double stands for "no value".
class TimeValue {
public:
    constexpr TimeValue() = default;
    static constexpr TimeValue FromSeconds(Float seconds) {
        TimeValue time;
        time._seconds = seconds;
        return time;
    }
    static constexpr TimeValue None() { return FromSeconds(std::numeric_limits<Float>::max()); }
    /// Now, by a clock that never runs backwards; only differences mean something.
    ORVIK_API static TimeValue GetTime();

    constexpr Float GetSeconds() const { return _seconds; }
    constexpr bool IsNone() const { return _seconds == std::numeric_limits<Float>::max(); }
    String ToString() const { return IsNone() ? String("<none>") : FormatString("@ s", _seconds); }

    friend constexpr bool operator==(TimeValue a, TimeValue b) = default;
    friend constexpr auto operator<=>(TimeValue a, TimeValue b) = default;  // NOLINT(modernize-use-nullptr)
    friend constexpr TimeValue operator-(TimeValue a, TimeValue b) { return FromSeconds(a._seconds - b._seconds); }
    friend constexpr TimeValue operator+(TimeValue a, TimeValue b) { return FromSeconds(a._seconds + b._seconds); }

private:
    Float _seconds = 0;
};

}  // namespace orvik
