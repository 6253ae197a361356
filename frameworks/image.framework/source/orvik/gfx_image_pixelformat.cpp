#include "orvik/gfx_image_pixelformat.h"

namespace orvik::PixelFormats {

PixelFormat Get(const Id& id) {
    if (PixelFormat known = FindPublished<PixelFormatInterface>(id))
        return known;
    const auto service = FindPublished<PixelFormatsInterface>(PixelFormatsInterface::kInterfaceId);
    const Result<PixelFormat> made = service->FindOrCreatePixelFormatById(id);
    return made ? *made : PixelFormat::Unresolved();
}

Result<PixelFormat> FindOrCreatePixelFormat(Block<const ImageChannel> channels) {
    return FindPublished<PixelFormatsInterface>(PixelFormatsInterface::kInterfaceId)->FindOrCreatePixelFormat(channels);
}

Result<PixelFormatIndexedColor> CreateIndexed(Int width, const PixelFormat& entryFormat, Int count) {
    if ((width < 1 || width > 8) && width != 16)
        return IllegalArgumentError("There are no indices of @ bits.", width);
    const String className = FormatString("net.orvik.image.class.pixelformat.Indexed.u@bit", width);
    if (className.IsEmpty())
        return OutOfMemoryError();
    const Id classId = TRY(Id::Create(className.GetText()));
    PixelFormatIndexedColor format = TRY(ClassRef(classId).Create<PixelFormatIndexedColorInterface>());
    TRY(format->InitColorTable(entryFormat, count));
    return format;
}

Result<BaseArray<PixelFormat>> GetAll() {
    BaseArray<PixelFormat> all;
    const BaseArray<Registry::Entry> groups = TRY(Registry::CopyEntries(kPixelFormatRegistry));
    for (const Registry::Entry& entry : groups) {
        const BaseArray<PixelFormat> formats = TRY(Cast<PixelFormatGroupInterface>(entry.object)->GetEntries());
        TRY(all.AppendBlock(formats.ToBlock()));
    }
    return all;
}

}  // namespace orvik::PixelFormats
