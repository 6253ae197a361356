#pragma once
/// @file
/// Base of exporters that write one picture.

#include "imexport/frame/media_io_exporter.h"

namespace orvik {

/// Writes the first image and, if its pixels have no alpha of their own, its first alpha child. A format supplies
/// `OpenRows`, which sets `_image` and `_alpha`, and `WriteFile`.
class ImageExporter : public FileExporter {
protected:
    explicit ImageExporter(const Id& format) : FileExporter(format) {}

    /// Whether the file will hold a separate alpha stream.
    virtual Bool KeepsAlpha() const { return GetCapabilities().maximalAlphaChannels > 0; }
    /// Errors: "no image stream(s) found." as a wrong type, "resolution must not be 0." and "Maximum resolution
    /// exceeded." as illegal arguments.
    Result<void> ChooseStreams(Block<const OfferedStream> streams) override;
    void ForgetStreams() override;

    /// The picture as its stream describes it.
    struct Picture {
        MediaStreamFormat format;
        PixelFormat pixelFormat;
        Int width = 0, height = 0;
        Float dpi = 72.0;
        Float aspectRatio = 1.0;
        DataDictionary settings;
        Bool hasOwnAlpha = false;     ///< in its pixels
        Bool hasAlphaStream = false;  ///< as a separate stream
        Bool HasAlpha() const { return hasOwnAlpha || hasAlphaStream; }
    };
    const Picture& GetPicture() const { return _picture; }
    /// The profile for rows of `rowFormat`: the picture's own (or the default of its pixels) if it describes the same
    /// colour space, else the built-in one of that space, sRGB or its grey counterpart.
    ColorProfile ChooseProfile(const PixelFormat& rowFormat) const;
    /// Opens `_image`.
    Result<void> OpenImageRows(const PixelFormat& rowFormat, const ColorProfile& profile);
    /// Opens `_alpha` as bytes or words of alpha; it stays null without an alpha stream.
    Result<void> OpenAlphaRows(const PixelFormat& rowFormat);
    /// @{ Line y of the picture, with a separate alpha merged into the last channel: read into `row`, or valid until
    /// the next call.
    Result<void> ReadRowWithAlpha(Int y, std::byte* row) const;
    Result<const std::byte*> GetRowWithAlpha(Int y);
    /// @}
    /// A resolution as a 31-bit integer; 0 if invalid.
    static int32_t ToResolution(Float value);

    RowSourceRef _image;
    RowSourceRef _alpha;

private:
    Result<void> FindPicture(Block<const OfferedStream> streams);
    Result<void> DescribePicture();

    ImageExportStreamRef _imageStream;
    ImageExportStreamRef _alphaStream;
    Picture _picture;
    CodecBuffer _rowWithAlpha;
};

}  // namespace orvik
