#include "imexport/frame/media_io_rowsink.h"

#include "imexport/frame/media_io_importer.h"

namespace orvik {

/// Only the first sink of a job reports: the picture's, not those of alphas decoded from the same bytes.
Result<void> RowSink::ReportRow() {
    if (!_reporter)
        return {};
    const Int row = std::min(_rowsBegun++, _height);
    return _reporter->ReportProgress(_job, _height > 0 ? Float(row) / Float(_height) : 0);
}

Result<std::byte*> RowSink::BeginRow(Int y) {
    TRY(ReportRow());
    if (y < 0 || y >= _height)
        return IllegalArgumentError();
    _row = y;
    std::byte* const row = _handler.locate ? _handler.locate({0, y, _width}) : nullptr;
    _inPlace = row != nullptr;
    if (row)
        return row;
    if (_scratch.GetSize() != _rowBytes)
        TRY(_scratch.Allocate(_rowBytes));
    return _scratch.GetFirst();
}

Result<void> RowSink::EndRow() {
    const PixelSpan span{0, std::exchange(_row, -1), _width};
    if (span.y < 0)
        return IllegalStateError();
    if (_inPlace) {
        _handler.Widen(span);
        return {};
    }
    return Write(span, {_scratch.GetFirst(), _format->GetBitsPerPixel()});
}

Result<void> RowSink::Push(const PixelSpan& span, const PixelLineConst& line) {
    TRY(ReportRow());
    if (!_stream)
        return {};
    if (span.x < 0 || span.y < 0 || span.count < 0 || span.y >= _height || span.x > _width - span.count)
        return IllegalArgumentError();
    return Write(span, line);
}

Result<void> RowSink::Write(const PixelSpan& span, const PixelLineConst& line) {
    if (!_handler)
        return {};
    TRY(_handler.write(span, line, SETPIXELFLAGS::NONE));
    _handler.Widen(span);
    return {};
}

std::byte* RowSink::Locate(Int y) {
    const PixelSpan span{0, y, _width};
    std::byte* const row = _handler.locate ? _handler.locate(span) : nullptr;
    if (row)
        _handler.Widen(span);
    return row;
}

}  // namespace orvik
