#pragma once
/// @file
/// The plain vocabulary under everything else: number names, blocks, source locations, symbol visibility.

#include <cstddef>
#include <cstdint>
#include <source_location>
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

/// Where an error was made. The build maps file names so that they start at the project's root.
using SourceLocation = std::source_location;

}  // namespace orvik
