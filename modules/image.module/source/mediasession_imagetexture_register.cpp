#include "mediasession_imagetexture_export.h"
#include "mediasession_imagetexture_output.h"
#include "registration.h"

namespace orvik {

Result<void> RegisterTextureConverters(Publisher& publisher) {
    TRY(publisher.PublishClass<MediaOutputTextureImpl>(mediaclasses::kOutputTexture));
    return publisher.PublishClass<MediaStreamExportFromImageTextureImpl>(mediaclasses::kExportFromTexture);
}

}  // namespace orvik
