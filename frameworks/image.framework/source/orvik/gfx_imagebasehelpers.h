#pragma once
/// @file
/// Observing which regions of an image change.

#include "orvik/gfx_image.h"

namespace orvik {

/// What the module publishes under its interface id. A null image is the illegal state error "Illegal state: Condition
/// impl != nullptr not fulfilled. ", an image without the host's observable the null pointer error.
class ImageBaseHelpersInterface : public virtual Object {
    ORVIK_INTERFACE(ImageBaseHelpersInterface, "net.orvik.image.interface.imagebasehelpers");

public:
    /// Notifies the observers of the image.
    virtual Result<void> MarkRegionChanged(const ImageBaseRef& image, const UpdateRegion& region) {
        (void)image, (void)region;
        return Unbound();
    }
    /// @return a registration that `Free` ends; the image knows the observer weakly
    virtual Result<ImageRegionRegistrationRef> RegisterRegionChangedObserver(const ImageBaseRef& image,
                                                                             const ImageRegionObserverRef& observer) {
        (void)image, (void)observer;
        return Unbound();
    }
};

namespace ImageBaseHelpers {
/// @{ See `ImageBaseHelpersInterface`.
ORVIK_API Result<void> MarkRegionChanged(const ImageBaseRef& image, const UpdateRegion& region);
ORVIK_API Result<ImageRegionRegistrationRef> RegisterRegionChangedObserver(const ImageBaseRef& image,
                                                                           const ImageRegionObserverRef& observer);
/// @}
}  // namespace ImageBaseHelpers

}  // namespace orvik
