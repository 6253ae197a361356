#include "imexport/jpeg/media_io_jpeg_encoder.h"

namespace orvik {

JpegEncoder::~JpegEncoder() {
    if (_isActive)
        jpeg_destroy_compress(&_info);
}

Result<void> JpegEncoder::Start(const OutputStreamRef& output, const JpegSettings& settings) {
    enum DensityUnit : UINT8 { kDotsPerInch = 1 };
    _output = output;
    TRY(_buffer.Allocate(kBufferBytes));
    _info = {};
    _info.err = InitErrors();
    _info.client_data = static_cast<JpegLibrary*>(this);
    _isActive = true;
    return Call([this, &settings] {
        jpeg_create_compress(&_info);
        _destination.init_destination = OnInitDestination;
        _destination.empty_output_buffer = OnEmptyBuffer;
        _destination.term_destination = OnTermDestination;
        _info.dest = &_destination;
        _info.image_width = static_cast<JDIMENSION>(settings.width);
        _info.image_height = static_cast<JDIMENSION>(settings.height);
        _info.input_components = settings.isGrey ? 1 : 3;
        _info.in_color_space = settings.isGrey ? JCS_GRAYSCALE : JCS_RGB;
        jpeg_set_defaults(&_info);
        _info.density_unit = kDotsPerInch;
        _info.X_density = _info.Y_density = settings.dotsPerInch;
        jpeg_set_quality(&_info, settings.quality, settings.isBaseline);
        _info.dct_method = JDCT_FLOAT;
        jpeg_start_compress(&_info, TRUE);
        if (!settings.profile.empty())
            jpeg_write_icc_profile(&_info, reinterpret_cast<const JOCTET*>(settings.profile.data()),
                                   static_cast<unsigned>(settings.profile.size()));
    });
}

Result<void> JpegEncoder::WriteRow(const std::byte* row) {
    auto* samples = const_cast<JSAMPROW>(reinterpret_cast<const JSAMPLE*>(row));  // only read by the library
    return Call([this, &samples] { jpeg_write_scanlines(&_info, &samples, 1); });
}

Result<void> JpegEncoder::Finish() {
    return Call([this] { jpeg_finish_compress(&_info); });
}

void JpegEncoder::OnInitDestination(j_compress_ptr info) {
    JpegEncoder& self = Get(info);
    self._destination.next_output_byte = self._buffer.As<JOCTET>();
    self._destination.free_in_buffer = static_cast<size_t>(kBufferBytes);
}

bool JpegEncoder::WriteBuffer(size_t count) noexcept {
    Result<void> written = _output->Write(_buffer.GetFirst(), count);
    if (written)
        return true;
    HoldError(MakeStreamError(_output->GetUrl(), "error writing file @", std::move(written).TakeError()));
    return false;
}

void JpegEncoder::EmptyBuffer(size_t count) {
    if (!WriteBuffer(count))
        Leave();
    OnInitDestination(&_info);
}

/// The library calls this only when the whole buffer is full; the fields of the destination are to be ignored.
boolean JpegEncoder::OnEmptyBuffer(j_compress_ptr info) {
    Get(info).EmptyBuffer(static_cast<size_t>(kBufferBytes));
    return TRUE;
}

void JpegEncoder::OnTermDestination(j_compress_ptr info) {
    JpegEncoder& self = Get(info);
    self.EmptyBuffer(static_cast<size_t>(kBufferBytes) - self._destination.free_in_buffer);
}

}  // namespace orvik
