#include "orvik/gfx_image_functions.h"

namespace orvik {

Result<ImageBaseRef> ImageFunctions::CreateSubImagePart(const ImageBaseRef& source, const DrawRectInt& rectangle) {
    return FindPublished<ImageFunctionsInterface>(ImageFunctionsInterface::kInterfaceId)
        ->CreateSubImagePart(source, rectangle);
}

}  // namespace orvik
