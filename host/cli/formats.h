#pragma once
/// @file
/// File formats by the names that a user gives them.

#include "orvik/mediasession_output.h"

namespace orvik::cli {

/// By format id, short name or suffix, in any case, a suffix also with its dot; common second suffixes too ("tiff",
/// "pct", "aif", "cur"). Null when there is none.
MediaSessionFileFormatHandler FindFormat(std::string_view name);

}  // namespace orvik::cli
