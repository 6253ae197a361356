#pragma once
/// @file
/// Colour profile conversion: the closed form against a copy, transforms against the bare colour library.

#include <vector>

#include "bench_report.h"

namespace bench {

/// Registers the benchmarks; the module must stay loaded until they have run.
/// @return what each is compared with
std::vector<Pairing> RegisterProfileBenchmarks();

}  // namespace bench
