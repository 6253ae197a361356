#pragma once
/// @file
/// Load and save of the file formats, against the bare library or a copy of the pixels.

#include <vector>

#include "bench_report.h"

namespace bench {

/// Registers the benchmarks; the module must stay loaded until they have run.
/// @return what each is compared with
std::vector<Pairing> RegisterCodecBenchmarks();

/// Frees what the benchmarks share; to be called before the module is unloaded.
void ReleaseCodecMaterial();

/// The command line as a process: its start, the peak memory of a load and save beyond the pixels, and conversions
/// against the bare libraries. To be called while this process is small.
/// @param directory  folder of `orvik`; empty result when it cannot be run
/// @param filter  a regular expression for the names of the rows
std::vector<Row> MeasureProgram(const std::string& directory, const std::string& filter);

}  // namespace bench
