#pragma once
/// @file
/// What the units of the module publish. `module_start.cpp` calls these in their order; unloading undoes them
/// backwards.

#include "orvik/registrybase.h"

namespace orvik {

Result<void> RegisterImageStorages(Publisher& publisher);
Result<void> RegisterImages(Publisher& publisher);
Result<void> RegisterTextureConverters(Publisher& publisher);

}  // namespace orvik
