#pragma once
/// @file
/// Compositing layered pictures, against a copy of as many bytes as four layers and the result have.

#include <vector>

#include "bench_report.h"

namespace bench {

/// Registers "compose.normal4.big": four layers of RGBA bytes as large as their picture of 4096 x 2160, in the normal
/// mode, with random alpha, into RGBA bytes. "compose.opaque4.big" is the same without transparency; in
/// "compose.mixed4.big" the layers have half opacity, other modes, masks and odd positions. The module must stay loaded
/// until they have run.
/// @return what each is compared with
std::vector<Pairing> RegisterComposeBenchmarks();

/// Frees the memory that the benchmarks share.
void ReleaseComposeMaterial();

}  // namespace bench
