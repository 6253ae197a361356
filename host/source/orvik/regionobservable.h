#pragma once
/// @file
/// The service behind `ImageRegionObservableHandlerInterface`.

#include "orvik/imageregionobservable.h"

namespace orvik {

/// Publishes the service under its interface id. An observable belongs to the thread of its image. Observers hear in
/// the order of adding; they are known weakly, and one that has gone is forgotten at the next event.
ORVIK_API Result<void> PublishRegionObservable(Publisher& publisher);

}  // namespace orvik
