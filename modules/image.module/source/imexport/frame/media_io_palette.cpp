#include "imexport/frame/media_io_palette.h"

namespace orvik {

Result<PixelFormat> MakePaletteFormat(Int bits, const PixelFormat& entryFormat, Block<const std::byte> colors) {
    const Int entryBytes = entryFormat->GetBitsPerPixel().GetBits() / 8;
    if (entryBytes == 0)
        return IllegalArgumentError();
    const Int count = Int(colors.size()) / entryBytes;
    const PixelFormatIndexedColor format = TRY(PixelFormats::CreateIndexed(bits, entryFormat, count));
    for (Int i = 0; i < count; ++i)
        TRY(format->SetIndex(i, entryFormat, colors.data() + i * entryBytes));
    return PixelFormat(format);
}

}  // namespace orvik
