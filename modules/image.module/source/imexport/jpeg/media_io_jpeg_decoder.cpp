#include "imexport/jpeg/media_io_jpeg_decoder.h"

#include <cstdlib>
#include <jerror.h>

#include "storage/decode_limits.h"

namespace orvik {
namespace {

constexpr JOCTET kEndOfImage[] = {0xFF, JPEG_EOI};
/// A scan of a dozen bytes costs a pass over the whole progressive picture. Encoders write about ten.
constexpr int kMaxScans = 500;

/// Signatures of the payloads to keep; all other markers are skipped.
struct KeptMarker {
    int marker;
    std::string_view signature;
    size_t minBytes;
};
constexpr KeptMarker kKeptMarkers[] = {
    {JPEG_APP0 + 1, std::string_view("Exif", 4), 5},
    {JPEG_APP0 + 2, std::string_view("MPF\0", 4), 8},
    {JPEG_APP0 + 2, std::string_view("ICC_PROFILE\0", 12), 14},
};
constexpr size_t kLongestSignature = 12;

bool IsKept(int marker, const JOCTET* head, size_t length) {
    for (const KeptMarker& kept : kKeptMarkers) {
        if (kept.marker == marker && length >= kept.minBytes &&
            std::memcmp(head, kept.signature.data(), kept.signature.size()) == 0)
            return true;
    }
    return false;
}

}  // namespace

Result<void> JpegDecoder::Open(const InputStreamRef& input) {
    Close();
    _input = input;
    const Int left = input->BytesAvailable();
    const Int wanted = left < 0 ? kBufferBytes : std::clamp(left, Int(1), kBufferBytes);
    TRY(_buffer.Allocate(wanted));
    _info = {};
    _info.err = InitErrors();
    _info.client_data = static_cast<JpegLibrary*>(this);
    _isActive = true;
    return Call([this] {
        jpeg_create_decompress(&_info);
        _info.mem->max_memory_to_use = GetDecodeBufferLimit();
        _source = {};
        _source.init_source = OnInitSource;
        _source.fill_input_buffer = OnFillBuffer;
        _source.skip_input_data = OnSkip;
        _source.resync_to_restart = jpeg_resync_to_restart;
        _source.term_source = OnTermSource;
        _info.src = &_source;
        jpeg_set_marker_processor(&_info, JPEG_APP0 + 1, OnMarker);
        jpeg_set_marker_processor(&_info, JPEG_APP0 + 2, OnMarker);
        if (jpeg_read_header(&_info, FALSE) != JPEG_HEADER_OK)
            ERREXIT(&_info, JERR_NO_IMAGE);
        jpeg_calc_output_dimensions(&_info);
    });
}

void JpegDecoder::Close() noexcept {
    if (_isActive)
        jpeg_destroy_decompress(&_info);
    _isActive = false;
    _lastMarker = nullptr;
    _info.marker_list = nullptr;
    _input = nullptr;
}

Int JpegDecoder::GetPosition() const {
    return _atEnd ? _bufferStart : _bufferStart + (_source.next_input_byte - _buffer.As<JOCTET>());
}

Result<ColorProfile> JpegDecoder::ReadProfile() {
    JOCTET* bytes = nullptr;
    unsigned count = 0;
    JOCTET** const to = &bytes;
    unsigned* const countTo = &count;
    TRY(Call([this, to, countTo] { jpeg_read_icc_profile(&_info, to, countTo); }));
    const std::unique_ptr<JOCTET, decltype(&std::free)> owner(bytes, std::free);
    if (!bytes)
        return ColorProfile();
    Result<ColorProfile> profile =
        ColorProfile::OpenProfileFromMemory(std::as_bytes(Block<const JOCTET>(bytes, count)));
    if (!profile && !profile.GetError()->IsKindOf(errorid::kOutOfMemory))
        return ColorProfile();  // a bad profile must not fail the load
    return profile;
}

Result<void> JpegDecoder::Start(const Watch& watch) {
    _watch = &watch;
    Result<void> started = Call([this] {
        _progress.progress_monitor = OnProgress;
        _info.progress = &_progress;
        jpeg_start_decompress(&_info);
        _info.progress = nullptr;
    });
    _watch = nullptr;
    return started;
}

Result<void> JpegDecoder::ReadRow(std::byte* row) {
    JSAMPROW line = reinterpret_cast<JSAMPROW>(row);
    JDIMENSION count = 0;
    JDIMENSION* const read = &count;
    TRY(Call([this, line, read] {
        JSAMPROW lines[] = {line};
        *read = jpeg_read_scanlines(&_info, lines, 1);
    }));
    if (count != 1)
        return FileFormatError();
    return {};
}

Result<void> JpegDecoder::Finish() {
    TRY(Call([this] { jpeg_finish_decompress(&_info); }));
    Close();
    return {};
}

// --- The source of bytes ---------------------------------------------------------------------------------------------

void JpegDecoder::OnInitSource(j_decompress_ptr info) {
    JpegDecoder& self = Get(info);
    self._nothingRead = true;
    self._atEnd = false;
    self._bufferStart = self._input->GetPosition();
    self._source.next_input_byte = self._buffer.As<JOCTET>();
    self._source.bytes_in_buffer = 0;
}

void JpegDecoder::OnTermSource(j_decompress_ptr) {}

/// @return false when the stream failed; an empty buffer means its end
bool JpegDecoder::FillBuffer() noexcept {
    _bufferStart = _input->GetPosition();
    const Result<Int> count = _input->ReadEOS(_buffer.ToBlock());
    if (!count) {
        HoldError(MakeStreamError(_input->GetUrl(), "error reading file @", count.GetError()));
        return false;
    }
    _source.next_input_byte = _buffer.As<JOCTET>();
    _source.bytes_in_buffer = static_cast<size_t>(*count);
    return true;
}

/// A truncated file still gives a picture; the missing part stays as the library left it.
boolean JpegDecoder::OnFillBuffer(j_decompress_ptr info) {
    JpegDecoder& self = Get(info);
    if (!self.FillBuffer())
        self.Leave();
    self._atEnd = self._source.bytes_in_buffer == 0;
    if (self._atEnd) {
        if (self._nothingRead)
            ERREXIT(info, JERR_INPUT_EMPTY);
        WARNMS(info, JWRN_JPEG_EOF);
        self._source.next_input_byte = kEndOfImage;
        self._source.bytes_in_buffer = sizeof(kEndOfImage);
    }
    self._nothingRead = false;
    return TRUE;
}

void JpegDecoder::OnSkip(j_decompress_ptr info, long count) { Get(info).SkipBytes(count); }

void JpegDecoder::SkipBytes(Int count) {
    for (; count > Int(_source.bytes_in_buffer); OnFillBuffer(&_info)) {
        if (_atEnd)
            return;  // leave the end-of-image marker to be read
        count -= Int(_source.bytes_in_buffer);
    }
    if (count > 0) {
        _source.next_input_byte += count;
        _source.bytes_in_buffer -= static_cast<size_t>(count);
    }
}

void JpegDecoder::CopyBytes(JOCTET* to, size_t count) {
    while (count > 0) {
        if (_source.bytes_in_buffer == 0)
            OnFillBuffer(&_info);
        const size_t part = std::min(count, _source.bytes_in_buffer);
        std::memcpy(to, _source.next_input_byte, part);
        _source.next_input_byte += part;
        _source.bytes_in_buffer -= part;
        to += part;
        count -= part;
    }
}

// --- Markers ---------------------------------------------------------------------------------------------------------

boolean JpegDecoder::OnMarker(j_decompress_ptr info) {
    Get(info).ReadMarker();
    return TRUE;
}

/// Replaces the library's routine for saving markers, which does not record their positions. Both build the same list.
void JpegDecoder::ReadMarker() {
    constexpr size_t kLengthBytes = 2;
    JOCTET head[kLongestSignature] = {};
    CopyBytes(head, kLengthBytes);
    const size_t withLength = size_t(head[0]) << 8 | head[1];
    const size_t length = withLength - std::min(withLength, kLengthBytes);
    const Int position = GetPosition();
    const size_t headBytes = std::min(length, kLongestSignature);
    CopyBytes(head, headBytes);
    if (!IsKept(_info.unread_marker, head, length))
        return SkipBytes(Int(length - headBytes));

    auto* common = reinterpret_cast<j_common_ptr>(&_info);
    auto* marker = static_cast<JpegMarker*>(_info.mem->alloc_large(common, JPOOL_IMAGE, sizeof(JpegMarker) + length));
    auto* data = reinterpret_cast<JOCTET*>(marker + 1);
    *marker = {};
    marker->position = position;
    marker->saved.marker = static_cast<UINT8>(_info.unread_marker);
    marker->saved.original_length = marker->saved.data_length = static_cast<unsigned>(length);
    marker->saved.data = data;
    std::memcpy(data, head, headBytes);
    CopyBytes(data + headBytes, length - headBytes);
    (_lastMarker ? _lastMarker->saved.next : _info.marker_list) = &marker->saved;
    _lastMarker = marker;
}

// --- Progressive pictures --------------------------------------------------------------------------------------------

/// All scans of a progressive picture are read before its first row, which can take long.
bool JpegDecoder::MayContinue() noexcept {
    if (_info.input_scan_number > kMaxScans) {
        HoldError(FileFormatError("Error loading jpg: more than @ scans", kMaxScans));
        return false;
    }
    Result<void> watched = (*_watch)();
    if (watched)
        return true;
    HoldError(std::move(watched).TakeError());
    return false;
}

void JpegDecoder::OnProgress(j_common_ptr info) {
    JpegDecoder& self = Get(reinterpret_cast<j_decompress_ptr>(info));
    if (!self.MayContinue())
        self.Leave();
}

}  // namespace orvik
