#pragma once
/// @file
/// libjpeg's decompressor over an input stream, with the markers kept from the file.

#include "imexport/frame/media_io_buffer.h"
#include "imexport/jpeg/media_io_jpeg_library.h"

#include "orvik/delegate.h"
#include "orvik/gfx_image_colorprofile.h"

namespace orvik {

/// A marker segment that the decoder has kept: Exif data, an index of pictures, or a piece of a colour profile.
struct JpegMarker {
    jpeg_marker_struct saved;  ///< first: the library walks the list of these
    Int position;              ///< of the first payload byte in the stream

    const JpegMarker* GetNext() const { return reinterpret_cast<const JpegMarker*>(saved.next); }
    Block<const std::byte> GetPayload() const {
        return std::as_bytes(Block<const JOCTET>(saved.data, saved.data_length));
    }
    bool IsApp(int number) const { return saved.marker == JPEG_APP0 + number; }
};

/// Reads one picture of a stream; can be reopened at another.
class JpegDecoder : private JpegLibrary {
public:
    /// Called repeatedly while the scans of a progressive picture are read; an error stops that.
    using Watch = Delegate<Result<void>()>;

    JpegDecoder() : JpegLibrary("Error loading jpg: @") {}
    ~JpegDecoder() { Close(); }

    /// Restarts at the stream's position and reads the header, up to the first scan. The stream must live until
    /// `Close`. Errors: "Error loading jpg: @" with the library's text as a file format error, "error reading file @".
    Result<void> Open(const InputStreamRef& input);
    void Close() noexcept;
    bool IsOpen() const { return _isActive; }

    /// The header fields.
    const jpeg_decompress_struct& GetInfo() const { return _info; }
    /// The kept markers in file order; null when there are none. Valid until `Finish` or `Close`.
    const JpegMarker* GetFirstMarker() const { return reinterpret_cast<const JpegMarker*>(_info.marker_list); }
    /// Stream position of the next byte to decode.
    Int GetPosition() const;
    /// The embedded profile; empty if absent or unusable.
    Result<ColorProfile> ReadProfile();

    Result<void> Start(const Watch& watch);
    /// @param row  output_width * output_components bytes
    Result<void> ReadRow(std::byte* row);
    Result<void> Finish();

private:
    /// Large, since the library's fast Huffman path needs some 3 KB left in the buffer.
    static constexpr Int kBufferBytes = Int(128) * 1024;

    static JpegDecoder& Get(j_decompress_ptr info) {
        return *static_cast<JpegDecoder*>(static_cast<JpegLibrary*>(info->client_data));
    }
    bool FillBuffer() noexcept;
    bool MayContinue() noexcept;
    void SkipBytes(Int count);
    void CopyBytes(JOCTET* to, size_t count);
    void ReadMarker();

    static void OnInitSource(j_decompress_ptr info);
    static boolean OnFillBuffer(j_decompress_ptr info);
    static void OnSkip(j_decompress_ptr info, long count);
    static void OnTermSource(j_decompress_ptr info);
    static boolean OnMarker(j_decompress_ptr info);
    static void OnProgress(j_common_ptr info);

    jpeg_decompress_struct _info{};
    jpeg_source_mgr _source{};
    jpeg_progress_mgr _progress{};
    bool _isActive = false;
    bool _nothingRead = true;
    bool _atEnd = false;  ///< the buffer holds an end-of-image marker in place of missing data
    Int _bufferStart = 0;
    InputStreamRef _input;
    CodecBuffer _buffer;
    JpegMarker* _lastMarker = nullptr;
    const Watch* _watch = nullptr;
};

}  // namespace orvik
