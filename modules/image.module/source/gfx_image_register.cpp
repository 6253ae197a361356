#include "gfx_image_subimage_impl.h"
#include "gfx_imagerasterlayerimpl.h"
#include "gfx_imagetextureimpl.h"
#include "registration.h"

namespace orvik {

Result<void> RegisterImages(Publisher& publisher) {
    TRY(publisher.PublishClass<ImageSubImagePartImpl>(imageclasses::kSubImagePart));
    TRY(publisher.PublishClass<ImageBaseImpl>(imageclasses::kBase));
    TRY(publisher.PublishClass<ImageImpl>(imageclasses::kImage));
    TRY(publisher.PublishClass<ImageRasterLayerImpl>(imageclasses::kRasterLayer));
    return publisher.PublishClass<ImageTextureImpl>(imageclasses::kTexture);
}

}  // namespace orvik
