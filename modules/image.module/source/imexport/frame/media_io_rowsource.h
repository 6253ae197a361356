#pragma once
/// @file
/// The way of rows out of a picture.

#include "imexport/frame/media_io_buffer.h"

#include "orvik/mediasession_stream.h"

namespace orvik {

using ImageExportStreamRef = Ref<MediaStreamImageDataExportInterface>;

/// Rows of one stream, in the format and profile that the file needs. Progress and cancellation are those of the input
/// that offers the stream: a row that is read counts.
class RowSource : public Object {
public:
    Int GetWidth() const { return _width; }
    Int GetHeight() const { return _height; }
    const PixelFormat& GetPixelFormat() const { return _format; }
    /// Bytes of a row as `GetRow` gives it.
    Int GetRowBytes() const { return _rowBytes; }

    /// Line y, to be looked at until the next call: in the picture itself, or in scratch memory where it has to be
    /// converted.
    Result<const std::byte*> GetRow(Int y);
    /// Reads line y into memory of the caller, whose pixels may lie apart.
    Result<void> ReadRow(Int y, const PixelLine& line) {
        return _handler.read({0, y, _width}, line, GETPIXELFLAGS::NONE);
    }
    /// The same without gaps.
    Result<void> ReadRow(Int y, std::byte* row) { return ReadRow(y, {row, _format->GetBitsPerPixel()}); }

private:
    friend class FileExporter;

    ImageExportStreamRef _stream;
    MediaStreamProperties _properties;
    GetPixelHandlerStruct _handler;
    PixelFormat _format;
    Int _width = 0, _height = 0, _rowBytes = 0;
    CodecBuffer _scratch;
};
using RowSourceRef = Ref<RowSource>;

}  // namespace orvik
