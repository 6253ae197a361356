#pragma once
/// @file
/// The frame of exporters that write one picture.

#include "imexport/frame/media_io_exporter.h"

namespace orvik {

/// Writes the first image and, if its pixels have no alpha of their own, its first alpha child. A format supplies
/// `OpenRows`, which sets `_image` and `_alpha`, and `WriteFile`.
class ImageExporter : public FileExporter {
protected:
    explicit ImageExporter(const Id& format) : FileExporter(format) {}

    /// Whether the file will hold an alpha that stands beside the picture.
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
        Bool hasAlphaStream = false;  ///< beside it
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
    /// @{ Line y of the picture, with the alpha beside it, if there is one, in the last channel of its pixels: read
    /// into `row`, or to be looked at until the next call.
    Result<void> ReadRowWithAlpha(Int y, std::byte* row) const;
    Result<const std::byte*> GetRowWithAlpha(Int y);
    /// @}
    /// A resolution as a whole number of 31 bits; 0 for what is none.
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
