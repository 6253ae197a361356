#include "orvik/gfx_image_pixelformat.h"

namespace orvik::PixelFormats {

PixelFormat Get(const Id& id) { return FindPublished<PixelFormatInterface>(id); }

Result<PixelFormat> FindOrCreatePixelFormat(Block<const ImageChannel> channels) {
    return FindPublished<PixelFormatsInterface>(PixelFormatsInterface::kInterfaceId)->FindOrCreatePixelFormat(channels);
}

Result<BaseArray<PixelFormat>> GetAll() {
    BaseArray<PixelFormat> all;
    for (const Registry::Entry& entry : Registry::GetEntries(kPixelFormatRegistry)) {
        const BaseArray<PixelFormat> formats = TRY(Cast<PixelFormatGroupInterface>(entry.object)->GetEntries());
        TRY(all.AppendBlock(formats.ToBlock()));
    }
    return all;
}

}  // namespace orvik::PixelFormats
