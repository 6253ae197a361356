#pragma once
/// @file
/// Conversion of pixels, against copies of the same number of bytes.

#include <vector>

#include "bench_report.h"

namespace bench {

/// Measures the named pairs, those of the peers, and all direct pairs, each interleaved with the copy that it is held
/// against. Of the direct pairs the mean and the slowest become rows. The module must be loaded.
/// @param wanted  a regular expression; nothing is measured unless it is found in a row's name
std::vector<Row> MeasurePixels(const std::string& wanted);

}  // namespace bench
