#pragma once
/// @file
/// Directory listing.

#include "orvik/url.h"

namespace orvik {

/// Walks the entries of one directory, without "." and "..", in no particular order.
class BrowseIteratorInterface : public virtual Object {
    ORVIK_INTERFACE(BrowseIteratorInterface, "net.orvik.interface.browseiterator");

public:
    /// Steps to the next entry; false at the end.
    virtual Result<Bool> GetNext() { return Unbound(); }
    virtual Url GetCurrent() const { return Unbound(); }
    virtual Bool IsDirectory() const { return Unbound(); }
};

}  // namespace orvik
