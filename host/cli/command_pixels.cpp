#include "commands.h"
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

/// A read handler that goes back to its image.
class LineReader {
public:
    static Result<LineReader> Create(const ImageBaseRef& image, const PixelFormat& format) {
        return LineReader(image, TRY(image->GetPixelHandler(format, format->GetChannelOffsets(), ColorProfile(),
                                                            GETPIXELHANDLERFLAGS::NONE, LayerSet())));
    }
    LineReader(LineReader&& other) noexcept
        : _image(std::move(other._image)), _handler(std::exchange(other._handler, {})) {}
    LineReader& operator=(LineReader&&) = delete;
    ~LineReader() {
        if (_handler)
            _image->FreePixelHandler(_handler);
    }

    Result<void> Read(Int y, Int width, const PixelLine& line) const {
        return _handler.read({0, y, width}, line, GETPIXELFLAGS::NONE);
    }

private:
    LineReader(ImageBaseRef image, GetPixelHandlerStruct handler)
        : _image(std::move(image)), _handler(std::move(handler)) {}

    ImageBaseRef _image;
    GetPixelHandlerStruct _handler;
};

/// Writes the rows of an image that has no alpha child, or in a format that has no alpha.
Result<void> WritePlain(const ImageBaseRef& image, const PixelFormat& format, OutputTarget& target) {
    const Int width = image->GetWidth();
    const LineReader reader = TRY(LineReader::Create(image, format));
    BaseArray<std::byte> row;
    TRY(row.Resize(format->GetBytesPerLine(width)));
    for (Int y = 0; y < image->GetHeight(); ++y) {
        TRY(reader.Read(y, width, {row.GetFirst(), format->GetBitsPerPixel()}));
        TRY(target.Write(row.ToBlock()));
    }
    return {};
}

/// Writes rows whose alpha comes from the alpha child. Colours and alpha meet in a format in which alpha lies on whole
/// bytes: the wanted one, or float where that packs its channels.
Result<void> WriteWithAlpha(const ImageBaseRef& image, const ImageBaseRef& alpha, const PixelFormat& format,
                            OutputTarget& target) {
    PixelFormat meeting = format;
    if (format->GetChannels().empty() || format->GetChannels()[0]->GetComponentType() == ComponentType::None)
        meeting = PixelFormats::Get(pixelformats::kRgbaF32);
    const auto [alphaFormat, alphaIndex] = TRY(meeting->GetAlphaPixelFormat());
    const Int alphaStart = meeting->GetChannelOffsets()[static_cast<size_t>(alphaIndex)].GetBytes();
    const BITS stride = meeting->GetBitsPerPixel();

    const Int width = image->GetWidth();
    const LineReader colours = TRY(LineReader::Create(image, meeting));
    const LineReader alphas = TRY(LineReader::Create(alpha, alphaFormat));
    BaseArray<std::byte> row;
    TRY(row.Resize(meeting->GetBytesPerLine(width)));
    BaseArray<std::byte> packed;
    if (meeting != format)
        TRY(packed.Resize(format->GetBytesPerLine(width)));
    for (Int y = 0; y < image->GetHeight(); ++y) {
        TRY(colours.Read(y, width, {row.GetFirst(), stride}));
        TRY(alphas.Read(y, width, {row.GetFirst() + alphaStart, stride}));
        if (meeting == format) {
            TRY(target.Write(row.ToBlock()));
            continue;
        }
        TRY(format->ConvertPixelFromSlow({packed.GetFirst(), format->GetBitsPerPixel()}, width,
                                         {row.GetFirst(), stride}, meeting, nullptr, nullptr, CONVERTPIXELFLAGS::NONE));
        TRY(target.Write(packed.ToBlock()));
    }
    return {};
}

Result<void> WritePixels(const ImageBaseRef& image, const PixelFormat& format, OutputTarget& target) {
    if (image->GetWidth() == 0 || image->GetHeight() == 0)
        return {};  // nothing to read, and nothing that bounds the other side
    const ImageBaseRef alpha = FindAlpha(image);
    if (!alpha || !format->HasAlpha())
        return WritePlain(image, format, target);
    if (alpha->GetWidth() != image->GetWidth() || alpha->GetHeight() != image->GetHeight())
        return IllegalStateError("the alpha is @ x @, its image @ x @", alpha->GetWidth(), alpha->GetHeight(),
                                 image->GetWidth(), image->GetHeight());
    return WriteWithAlpha(image, alpha, format, target);
}

Result<void> WriteTo(const std::string& output, const ImageBaseRef& image, const PixelFormat& format) {
    OutputTarget target = TRY(OutputTarget::Open(output));
    TRY(WritePixels(image, format, target));
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
