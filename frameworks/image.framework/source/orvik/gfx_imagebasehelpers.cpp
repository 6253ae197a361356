#include "orvik/gfx_imagebasehelpers.h"

namespace orvik {
namespace {

Ref<ImageBaseHelpersInterface> GetHelpers() {
    return FindPublished<ImageBaseHelpersInterface>(ImageBaseHelpersInterface::kInterfaceId);
}

}  // namespace

Result<void> ImageBaseHelpers::MarkRegionChanged(const ImageBaseRef& image, const UpdateRegion& region) {
    return GetHelpers()->MarkRegionChanged(image, region);
}

Result<ImageRegionRegistrationRef> ImageBaseHelpers::RegisterRegionChangedObserver(
    const ImageBaseRef& image, const ImageRegionObserverRef& observer) {
    return GetHelpers()->RegisterRegionChangedObserver(image, observer);
}

}  // namespace orvik
