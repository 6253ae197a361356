#pragma once
/// @file
/// Load and save of the file formats, against the bare library or a copy of the pixels.

#include <vector>

#include "bench_report.h"

namespace bench {

/// Registers the benchmarks; the module must be loaded until they have run.
/// @return what each is held against
std::vector<Pairing> RegisterCodecBenchmarks();

/// Start-up time of the command line and the peak memory of a load, beyond the pixels.
/// @param directory  where `orvik` lies; empty result when it cannot be run
std::vector<Row> MeasureProgram(const std::string& directory);

}  // namespace bench
