#pragma once
/// @file
/// The index of a Multi-Picture file: an APP2 segment of its first picture that locates the others.

#include "orvik/basearray.h"
#include "orvik/errortypes.h"

namespace orvik {

/// Most pictures that one segment can list.
inline constexpr Int kMaxMpfPictures = 65535 / 16;

/// Appends the stream position of each picture in the index; 0 stands for the first one, at the start of the stream. A
/// payload that is not an index adds nothing.
/// @param payload          of the segment, beginning with "MPF"
/// @param payloadPosition  of its first byte in the stream
/// @return "ReadApp2Marker failed." for an index that contradicts itself or leaves the segment, as a wrong type
Result<void> ReadMpfIndex(Block<const std::byte> payload, Int payloadPosition, BaseArray<Int>& positions);

}  // namespace orvik
