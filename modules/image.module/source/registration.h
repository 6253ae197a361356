#pragma once
/// @file
/// What the units of the module publish. `module_start.cpp` calls these in their order; unloading undoes them
/// backwards.

#include "orvik/registrybase.h"

namespace orvik {

Result<void> RegisterImageStorages(Publisher& publisher);
Result<void> RegisterImages(Publisher& publisher);
Result<void> RegisterMediaSession(Publisher& publisher);
Result<void> RegisterMediaSessionAudio(Publisher& publisher);
Result<void> RegisterTextureConverters(Publisher& publisher);
Result<void> RegisterMediaSessionOutputConverterBase(Publisher& publisher);
Result<void> RegisterMediaSessionProgress(Publisher& publisher);
Result<void> RegisterMediaSessionUrlOutput(Publisher& publisher);

}  // namespace orvik
