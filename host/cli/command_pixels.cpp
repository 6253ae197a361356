#include "commands.h"
#include "formats.h"
#include "outputtarget.h"
#include "picture.h"
#include "selection.h"

namespace orvik::cli {

namespace {

/// Indices keep their meaning only with their own colours, so the image's own format stands in for the published one.
PixelFormat FindFormatOf(const ImageBaseRef& image, const PixelFormat& wanted) {
    const PixelFormat own = image->GetPixelFormat();
    return Cast<PixelFormatIndexedColorInterface>(wanted) && own->GetId() == wanted->GetId() ? own : wanted;
}

Result<void> WriteTo(const std::string& output, const Selection& selection, const PixelFormat& format) {
    OutputTarget target = TRY(OutputTarget::Open(output));
    RowsWish wish;
    wish.format = FindFormatOf(selection.node, format);
    wish.layers = selection.layers;
    NodeRows rows = TRY(NodeRows::Create(selection.node, wish));
    for (Int y = 0; y < rows.GetHeight() && rows.GetWidth() > 0; ++y) {
        const Block<const std::byte> row = TRY(rows.Read(y));
        TRY(target.Write(row));
    }
    return target.Commit();
}

}  // namespace

int RunPixels(const Console& console, const PixelsOptions& options) {
    Result<Picture> picture = LoadPicture(options.input, MEDIASESSIONFLAGS::NONE);
    if (!picture)
        return console.Fail(options.input, picture.GetError());
    const Result<PixelFormat> format = FindPixelFormat(options.pixelFormat);
    if (!format)
        return console.FailUsage(format.GetError()->ToString().GetText());
    const Result<Selection> selection = Select(*picture, options.selection);
    if (!selection)
        return console.Fail(options.input, selection.GetError());
    const Result<void> written = WriteTo(options.output, *selection, *format);
    if (written)
        return kDone;
    const bool toOutput = written.GetError()->IsKindOf(errorid::kIo);
    return console.Fail(toOutput ? options.output : options.input, written.GetError());
}

}  // namespace orvik::cli
