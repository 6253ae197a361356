#pragma once
/// @file
/// Delivers rows into a picture.

#include "imexport/frame/media_io_buffer.h"

#include "orvik/mediasession_stream.h"

namespace orvik {

class FileImporter;
using ImageImportStreamRef = Ref<MediaStreamImageDataImportInterface>;

/// One stream during delivery. A row is either decoded in place,
///
///     std::byte* row = TRY(sink->BeginRow(y));
///     TRY(DecodeRow(row));
///     TRY(sink->EndRow());
///
/// or, if already in memory, passed to `PushRow`. Both first report progress and test for cancellation. Rows of a
/// stream without a subscriber are decoded into scratch memory and dropped.
class RowSink : public Object {
public:
    /// True when the stream is subscribed. A format may skip the work for other streams.
    bool IsTaken() const { return static_cast<bool>(_stream); }
    Int GetWidth() const { return _width; }
    Int GetHeight() const { return _height; }
    const PixelFormat& GetPixelFormat() const { return _format; }
    /// Bytes of a row from `BeginRow`: unpadded, rounded up to whole bytes.
    Int GetRowBytes() const { return _rowBytes; }
    /// Passed to `FinishStream`; a format adds the sample time here.
    MediaStreamProperties& GetProperties() { return _properties; }

    /// Memory for line y in the sink's pixel format, `GetRowBytes()` bytes: in the picture itself if it is stored in
    /// that format. Illegal argument outside the picture.
    Result<std::byte*> BeginRow(Int y);
    /// Delivers the line of the last `BeginRow`.
    Result<void> EndRow();
    /// Delivers the whole line y.
    Result<void> PushRow(Int y, const PixelLineConst& line) { return Push({0, y, _width}, line); }
    /// Delivers `count` pixels of line y, starting at x. Illegal argument outside the picture.
    Result<void> Push(const PixelSpan& span, const PixelLineConst& line);

    /// Address of line y in the picture, for decoders that revisit rows; null unless every line has one. Reports no
    /// progress; the line counts as delivered.
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

    FileImporter* _reporter = nullptr;  ///< set for the sink that reports the job's progress
    Int _job = -1;
    Int _rowsBegun = 0;

    CodecBuffer _scratch;
    Int _row = -1;  ///< line of the last `BeginRow`
    bool _inPlace = false;
};
using RowSinkRef = Ref<RowSink>;

}  // namespace orvik
