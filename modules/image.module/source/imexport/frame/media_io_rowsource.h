#pragma once
/// @file
/// Reads rows from a picture.

#include "imexport/frame/media_io_buffer.h"

#include "orvik/mediasession_stream.h"

namespace orvik {

using ImageExportStreamRef = Ref<MediaStreamImageDataExportInterface>;

/// Rows of one stream, in the format and profile that the file needs. The input that offers the stream reports progress
/// and tests for cancellation with each row.
class RowSource : public Object {
public:
    Int GetWidth() const { return _width; }
    Int GetHeight() const { return _height; }
    const PixelFormat& GetPixelFormat() const { return _format; }
    /// Bytes of a row from `GetRow`.
    Int GetRowBytes() const { return _rowBytes; }

    /// Line y, valid until the next call: in the picture itself, or in scratch memory if it must be converted.
    Result<const std::byte*> GetRow(Int y);
    /// Reads line y into the caller's memory, with any pixel stride.
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
