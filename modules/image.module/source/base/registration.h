#pragma once
/// @file
/// What the units of the module publish. `module_start.cpp` calls these in their order; unloading undoes them
/// backwards.

#include "orvik/registrybase.h"

namespace orvik {

/// Keys, interfaces and data types of the framework, by id.
Result<void> RegisterDeclarations(Publisher& publisher);
/// Channel types and channel classes.
Result<void> RegisterChannels(Publisher& publisher);
/// Colour spaces. Channel types look them up when asked, so the order of these two does not matter.
Result<void> RegisterColorSpaces(Publisher& publisher);
/// The service that opens colour profiles and hands out the built-in ones.
Result<void> RegisterColorProfiles(Publisher& publisher);
/// The class of transforms between profiles.
Result<void> RegisterColorProfileConvert(Publisher& publisher);
/// Blend modes. They look up pixel formats when asked for a handler.
Result<void> RegisterPixelBlends(Publisher& publisher);
/// Groups, classes and instances of all pixel formats, and the service that makes formats at run time. Needs the
/// channel types and the colour spaces.
Result<void> RegisterPixelFormats(Publisher& publisher);
Result<void> RegisterImageStorages(Publisher& publisher);
/// The services that make sub-images and notify observers of regions.
Result<void> RegisterImageFunctions(Publisher& publisher);
Result<void> RegisterImages(Publisher& publisher);
/// The class of layer sets.
Result<void> RegisterLayerSet(Publisher& publisher);
Result<void> RegisterMediaSession(Publisher& publisher);
Result<void> RegisterMediaSessionAudio(Publisher& publisher);
Result<void> RegisterTextureConverters(Publisher& publisher);
Result<void> RegisterMediaSessionOutputConverterBase(Publisher& publisher);
Result<void> RegisterMediaSessionProgress(Publisher& publisher);
Result<void> RegisterMediaSessionUrlOutput(Publisher& publisher);
/// Importers, exporters, file formats and handlers of all file formats.
Result<void> RegisterFileFormats(Publisher& publisher);

}  // namespace orvik
