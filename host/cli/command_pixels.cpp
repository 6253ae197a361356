#include "commands.h"
#include "noderows.h"
#include "outputtarget.h"
#include "picture.h"

namespace orvik::cli {

namespace {

std::string PathOf(const std::string& parent, std::string_view name, char separator) {
    return parent.empty() ? std::string(name) : parent + separator + std::string(name);
}

/// The first descendant, depth first, whose path is `wanted` with either separator.
Result<ImageBaseRef> FindByPath(const ImageBaseRef& node, const std::string& wanted, const std::string& slashed,
                                const std::string& backslashed, int depth) {
    constexpr int kMaxDepth = 256;
    for (int branch = 0; branch < static_cast<int>(IMAGEHIERARCHY::MAX_ELEMENTS) && depth < kMaxDepth; ++branch) {
        for (const ImageBaseRef& child : TRY(GetImages(node, static_cast<IMAGEHIERARCHY>(branch)))) {
            const String name = GetNodeName(child);
            const std::string withSlash = PathOf(slashed, name.GetText(), '/');
            const std::string withBackslash = PathOf(backslashed, name.GetText(), '\\');
            if (wanted == withSlash || wanted == withBackslash)
                return child;
            if (ImageBaseRef found = TRY(FindByPath(child, wanted, withSlash, withBackslash, depth + 1)))
                return found;
        }
    }
    return ImageBaseRef();
}

Result<ImageBaseRef> SelectNode(const Picture& picture, const PixelsOptions& options) {
    const auto images = TRY(GetImages(picture.texture, IMAGEHIERARCHY::IMAGE));
    if (options.image < 1 || options.image > images.GetCount())
        return IllegalArgumentError("there is no image @; the file has @", options.image, images.GetCount());
    const ImageBaseRef& image = images[options.image - 1];
    if (options.path.empty())
        return image;
    ImageBaseRef found = TRY(FindByPath(image, options.path, {}, {}, 1));
    if (!found)
        return IllegalArgumentError("image @ has no node '@'", options.image, options.path);
    return found;
}

Result<void> WriteTo(const std::string& output, const ImageBaseRef& node, const PixelFormat& format) {
    OutputTarget target = TRY(OutputTarget::Open(output));
    RowsWish wish;
    wish.format = format;
    NodeRows rows = TRY(NodeRows::Create(node, wish));
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
    const Result<Id> formatId = Id::Create(options.pixelFormat);
    const PixelFormat format = formatId ? PixelFormats::Get(*formatId) : PixelFormat();
    if (!format)
        return console.FailUsage("there is no pixel format '" + options.pixelFormat +
                                 "'; orvik pixelformats lists them");
    const Result<ImageBaseRef> node = SelectNode(*picture, options);
    if (!node)
        return console.Fail(options.input, node.GetError());
    const Result<void> written = WriteTo(options.output, *node, format);
    if (written)
        return kDone;
    // A reader that has seen enough is no failure to talk about.
    const bool toOutput = written.GetError()->IsKindOf(errorid::kIo);
    return console.Fail(toOutput ? options.output : options.input, written.GetError());
}

}  // namespace orvik::cli
