#pragma once
/// @file
/// CRC-32C (Castagnoli), in hardware where the machine has it.

#include "orvik/apibase.h"

namespace orvik {

/// @param crc  result of the call before, to continue a sum; 0 to start
ORVIK_API uint32_t ComputeCrc32c(Block<const std::byte> bytes, uint32_t crc = 0) noexcept;

}  // namespace orvik
