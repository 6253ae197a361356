#pragma once
/// @file
/// libjpeg's compressor over an output stream.

#include "imexport/frame/media_io_buffer.h"
#include "imexport/jpeg/media_io_jpeg_library.h"

namespace orvik {

struct JpegSettings {
    Int width = 0, height = 0;
    bool isGrey = false;
    int quality = 0;  ///< 0 to 100, on the library's scale
    bool isBaseline = false;
    uint16_t dotsPerInch = 0;
    Block<const std::byte> profile = {};  ///< to be embedded; empty for none
};

/// Writes one picture.
class JpegEncoder : private JpegLibrary {
public:
    JpegEncoder() : JpegLibrary("Error saving jpg: @") {}
    ~JpegEncoder();

    /// Writes the header. The stream must live as long as this.
    Result<void> Start(const OutputStreamRef& output, const JpegSettings& settings);
    Result<void> WriteRow(const std::byte* row);
    Result<void> Finish();

private:
    static constexpr Int kBufferBytes = Int(64) * 1024;

    static JpegEncoder& Get(j_compress_ptr info) {
        return *static_cast<JpegEncoder*>(static_cast<JpegLibrary*>(info->client_data));
    }
    void EmptyBuffer(size_t count);
    bool WriteBuffer(size_t count) noexcept;

    static void OnInitDestination(j_compress_ptr info);
    static boolean OnEmptyBuffer(j_compress_ptr info);
    static void OnTermDestination(j_compress_ptr info);

    jpeg_compress_struct _info{};
    jpeg_destination_mgr _destination{};
    bool _isActive = false;
    OutputStreamRef _output;
    CodecBuffer _buffer;
};

}  // namespace orvik
