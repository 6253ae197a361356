#include "media_io_palette.h"

namespace orvik {
namespace {

struct IndexedClass {
    Int bits;
    Id id;
};
constexpr IndexedClass kIndexedClasses[] = {
    {1, "net.orvik.image.class.pixelformat.Indexed.u1bit"},   {2, "net.orvik.image.class.pixelformat.Indexed.u2bit"},
    {3, "net.orvik.image.class.pixelformat.Indexed.u3bit"},   {4, "net.orvik.image.class.pixelformat.Indexed.u4bit"},
    {5, "net.orvik.image.class.pixelformat.Indexed.u5bit"},   {6, "net.orvik.image.class.pixelformat.Indexed.u6bit"},
    {7, "net.orvik.image.class.pixelformat.Indexed.u7bit"},   {8, "net.orvik.image.class.pixelformat.Indexed.u8bit"},
    {16, "net.orvik.image.class.pixelformat.Indexed.u16bit"},
};

}  // namespace

Result<PixelFormat> MakePaletteFormat(Int bits, const PixelFormat& entryFormat, Block<const std::byte> colors) {
    const auto* found = std::find_if(std::begin(kIndexedClasses), std::end(kIndexedClasses),
                                     [bits](const IndexedClass& indexedClass) { return indexedClass.bits == bits; });
    if (found == std::end(kIndexedClasses))
        return IllegalArgumentError();
    const PixelFormatIndexedColor format = TRY(ClassRef(found->id).Create<PixelFormatIndexedColorInterface>());
    const Int entryBytes = entryFormat->GetBitsPerPixel().GetBits() / 8;
    const Int count = Int(colors.size()) / entryBytes;
    TRY(format->InitColorTable(entryFormat, count));
    for (Int i = 0; i < count; ++i)
        TRY(format->SetIndex(i, entryFormat, colors.data() + i * entryBytes));
    return PixelFormat(format);
}

}  // namespace orvik
