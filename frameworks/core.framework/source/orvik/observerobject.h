#pragma once
/// @file
/// Base of objects that observe and can be observed.

#include "orvik/observable.h"

namespace orvik {

class ObserverObjectInterface : public virtual Object {
    ORVIK_INTERFACE(ObserverObjectInterface, "net.orvik.interface.observerobject");
};

}  // namespace orvik
