#pragma once
/// @file
/// Pixel conversion, against copies of as many bytes.

#include <vector>

#include "bench_report.h"

namespace bench {

/// Measures the named pairs, those of the peers, and all direct pairs, each interleaved with its copy. Of the direct
/// pairs, the mean and the slowest become rows. The module must be loaded.
/// @param wanted  a regular expression; only rows whose names contain a match are measured
std::vector<Row> MeasurePixels(const std::string& wanted);

}  // namespace bench
