#pragma once
/// @file
/// Start-up of the module: the one place that knows all its units.

#include "orvik/registrybase.h"

namespace orvik {

/// Publishes every class, object and registry entry of the module, unit by unit in a fixed order. The first error ends
/// it; the publisher's owner then undoes what was published.
Result<void> StartImageModule(Publisher& publisher);

}  // namespace orvik
