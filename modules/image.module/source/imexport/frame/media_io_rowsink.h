#pragma once
/// @file
/// The way of rows into a picture.

#include "imexport/frame/media_io_buffer.h"

#include "orvik/mediasession_stream.h"

namespace orvik {

class FileImporter;
using ImageImportStreamRef = Ref<MediaStreamImageDataImportInterface>;

/// One stream while its rows are delivered. A row is either decoded where it belongs,
///
///     std::byte* row = TRY(sink->BeginRow(y));
///     TRY(DecodeRow(row));
///     TRY(sink->EndRow());
///
/// or, when it is already in memory, handed over by `PushRow`. Both report progress and test for cancellation in
/// advance. Rows of a stream without a subscriber are decoded into scratch memory and dropped.
class RowSink : public Object {
public:
    /// True when the stream is subscribed. A format may skip the work for other streams.
    bool IsTaken() const { return static_cast<bool>(_stream); }
    Int GetWidth() const { return _width; }
    Int GetHeight() const { return _height; }
    const PixelFormat& GetPixelFormat() const { return _format; }
    /// Bytes of a row as `BeginRow` gives it: without filler, rounded up to whole bytes.
    Int GetRowBytes() const { return _rowBytes; }
    /// What `FinishStream` will be told; a format adds the time of a sample here.
    MediaStreamProperties& GetProperties() { return _properties; }

    /// Memory for line y in the pixel format of the sink, of `GetRowBytes()` bytes: in the picture itself where the
    /// pixels are stored as they are. Illegal argument outside of the picture.
    Result<std::byte*> BeginRow(Int y);
    /// Takes the line of the last `BeginRow`.
    Result<void> EndRow();
    /// Hands over all of line y.
    Result<void> PushRow(Int y, const PixelLineConst& line) { return Push({0, y, _width}, line); }
    /// Hands over `count` pixels of line y, starting at x. Illegal argument outside of the picture.
    Result<void> Push(const PixelSpan& span, const PixelLineConst& line);

    /// Where line y is in the picture, for decoders that come back to their rows; null unless every line is there. No
    /// progress is reported, and the line counts as delivered.
    std::byte* Locate(Int y);

private:
    friend class ImageImporter;

    Result<void> ReportRow();
    Result<void> Write(const PixelSpan& span, const PixelLineConst& line);

    ImageImportStreamRef _stream;
    MediaStreamProperties _properties;
    SetPixelHandlerStruct _handler;
    PixelFormat _format;
    Int _width = 0, _height = 0, _rowBytes = 0;

    FileImporter* _reporter = nullptr;  ///< set for the sink whose rows are the progress of the job
    Int _job = -1;
    Int _rowsBegun = 0;

    CodecBuffer _scratch;
    Int _row = -1;  ///< line that was begun
    bool _inPlace = false;
};
using RowSinkRef = Ref<RowSink>;

}  // namespace orvik
