#pragma once
/// @file
/// What all exporters of pictures share: which streams are written, the checks of the size, and a file that is closed
/// whatever happens.

#include "imexport/frame/media_io_chunkedfileio.h"
#include "imexport/frame/media_io_formats.h"
#include "session/mediasession_urloutput.h"

namespace orvik {

using ImageExportStreamRef = Ref<MediaStreamImageDataExportInterface>;

/// Rows of one stream, in the format and profile that the file needs.
class RowSource {
public:
    explicit operator bool() const { return static_cast<bool>(_handler); }
    /// Reads all of line y.
    Result<void> ReadRow(Int y, Int width, const PixelLine& line) const {
        return _handler.read({0, y, width}, line, GETPIXELFLAGS::NONE);
    }
    /// All of line y, to be looked at only: where it stands in the picture, or read into the buffer when it has to be
    /// converted.
    Result<const std::byte*> GetRow(Int y, Int width, const PixelLine& buffer) const {
        if (_handler.find)
            return _handler.find({0, y, width});
        TRY(ReadRow(y, width, buffer));
        return static_cast<const std::byte*>(buffer.data);
    }

private:
    friend class ImageExporter;

    ImageExportStreamRef _stream;
    MediaStreamProperties _properties;
    GetPixelHandlerStruct _handler;
};

/// Frame of the exporters that write one picture. `Analyze` finds the first image and, if its pixels have no alpha of
/// their own, its alpha child; a repeat does nothing. A format supplies `OpenRows` and `WriteFile`. Nothing is written
/// before `OpenRows` has succeeded, and the file is closed on every path.
class ImageExporter : public MediaOutputUrlBaseImpl {
public:
    /// From the registry of file formats.
    FileFormat GetFileFormat() const override;
    Result<Data> GetData(const Id& id) const override;
    Result<void> ResetConverter() override;
    /// Errors: illegal state unless there is one input, "no image stream(s) found." as a wrong type, "resolution must
    /// not be 0." and "Maximum resolution exceeded." as illegal arguments.
    Result<void> Analyze(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) final;
    Result<void> PrepareExecute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) final;
    Result<void> Execute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) final;
    Result<void> Close(Inputs inputs) final;

protected:
    explicit ImageExporter(const Id& format) : _entry(FindFileFormatEntry(format)) {}

    /// Refuses any number of inputs but one.
    virtual Result<void> CheckInputCount(size_t count) const;
    /// Whether the file will hold the alpha beside the picture. One that it will not hold is not subscribed: nobody
    /// must wait for its rows.
    virtual bool KeepsAlpha() const { return _entry->output.maximalAlphaChannels > 0; }
    /// Decides what the file will hold and opens `_image` and `_alpha`.
    virtual Result<void> OpenRows() = 0;
    virtual Result<void> WriteFile(const OutputStreamRef& output) = 0;

    /// The picture as its stream describes it.
    struct Picture {
        MediaStreamFormat format;
        PixelFormat pixelFormat;
        Int width = 0, height = 0;
        Float dpi = 72.0;
        DataDictionary settings;
        bool hasOwnAlpha = false;     ///< in its pixels
        bool hasAlphaStream = false;  ///< beside it
        bool HasAlpha() const { return hasOwnAlpha || hasAlphaStream; }
    };
    const Picture& GetPicture() const { return _picture; }
    /// The profile for rows of `rowFormat`: the picture's own (or the default of its pixels) if it describes the same
    /// colour space, else the built-in one of that space, sRGB or its grey counterpart.
    ColorProfile ChooseProfile(const PixelFormat& rowFormat) const;
    /// @{ Rows converted to this format and profile. No rows to be had is an illegal state.
    Result<void> OpenImageRows(const PixelFormat& rowFormat, const ColorProfile& profile);
    Result<void> OpenAlphaRows(const PixelFormat& rowFormat);
    /// @}
    /// A resolution as a whole number of 31 bits; 0 for what is none.
    static int32_t ToResolution(Float value);

    RowSource _image;
    RowSource _alpha;  ///< empty unless there is an alpha stream and `OpenAlphaRows` was called

private:
    /// The streams, and whether the format can hold what they offer.
    Result<void> FindPicture(const MediaConverterRef& input);
    Result<void> FindStreams(const MediaConverterRef& input);
    Result<void> DescribePicture();
    Result<void> WriteToUrl();
    static Result<void> OpenSource(RowSource& source, const ImageExportStreamRef& stream, const PixelFormat& format,
                                   const ColorProfile& profile);
    static Result<void> FinishSource(RowSource& source);
    void ForgetStreams();

    const FileFormatEntry* _entry;
    Bool _analyzed = false;
    Bool _prepared = false;
    ImageExportStreamRef _imageStream;
    ImageExportStreamRef _alphaStream;
    Picture _picture;
};

}  // namespace orvik
