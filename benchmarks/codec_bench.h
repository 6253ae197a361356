#pragma once
/// @file
/// Load and save of the file formats, against the bare library or a copy of the pixels.

#include <vector>

#include "bench_report.h"

namespace bench {

/// Registers the benchmarks; the module must be loaded until they have run.
/// @return what each is held against
std::vector<Pairing> RegisterCodecBenchmarks();

/// Drops what the benchmarks keep between them, which must go before the module does.
void ReleaseCodecMaterial();

/// The command line as a whole process: its start, the peak memory of a load and save beyond the pixels, and
/// conversions against the bare libraries. To be called before this process has grown.
/// @param directory  where `orvik` lies; empty result when it cannot be run
/// @param filter  a regular expression for the names of the rows
std::vector<Row> MeasureProgram(const std::string& directory, const std::string& filter);

}  // namespace bench
