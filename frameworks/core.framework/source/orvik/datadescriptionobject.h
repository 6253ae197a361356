#pragma once
/// @file
/// An object that can be written to a stream and read back.

#include "orvik/dataserialize.h"

namespace orvik {

class DataDescriptionObjectInterface : public virtual Object {
    ORVIK_INTERFACE(DataDescriptionObjectInterface, "net.orvik.interface.datadescriptionobject");

public:
    /// Hands each serialised field to `io`, in a fixed order. When reading fails, the object is unchanged.
    virtual Result<void> DescribeIO(DataSerialize& io) {
        (void)io;
        return Unbound();
    }
};

}  // namespace orvik
