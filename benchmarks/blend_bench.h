#pragma once
/// @file
/// Blending of RGBA floats, each mode against a copy of as many bytes as three runs have.

#include <vector>

#include "bench_report.h"

namespace bench {

/// Registers the benchmarks "blend.MODE.big" (rows of a whole picture) and "blend.MODE.cache" (one run of 64 Ki pixels)
/// at opacity 0.5; "over" and "multiply" also with opacity 1 as "blend.MODE.opaque.SIZE"; the general handler for RGBA
/// of bytes as "blend.rgba8.over.SIZE". The module must stay loaded until they have run.
/// @return what each is compared with
std::vector<Pairing> RegisterBlendBenchmarks();

/// Frees the memory that the benchmarks share.
void ReleaseBlendMaterial();

}  // namespace bench
