#include "gfx_imagerasterlayerimpl.h"

namespace orvik {

Result<void> ImageRasterLayerImpl::AddChildren(IMAGEHIERARCHY branch, const ImageBaseRef& child,
                                               const ImageBaseRef& predecessor) {
    TRY(CheckChild<ImageLayerInterface>(branch, {IMAGEHIERARCHY::LAYER, IMAGEHIERARCHY::MASK}, child));
    // Past the image's own check, which this class replaces.
    // NOLINTNEXTLINE(bugprone-parent-virtual-call)
    return ImageBaseImpl::AddChildren(branch, child, predecessor);
}

}  // namespace orvik
