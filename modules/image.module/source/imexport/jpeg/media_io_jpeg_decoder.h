#pragma once
/// @file
/// The decompressor of libjpeg over an input stream, and what it keeps of the file's markers.

#include "imexport/frame/media_io_buffer.h"
#include "imexport/jpeg/media_io_jpeg_library.h"

#include "orvik/delegate.h"
#include "orvik/gfx_image_colorprofile.h"

namespace orvik {

/// A marker segment that the decoder has kept: Exif data, an index of pictures, or a piece of a colour profile.
struct JpegMarker {
    jpeg_marker_struct saved;  ///< first, for the library walks the list of these
    Int position;              ///< of the first payload byte in the stream

    const JpegMarker* GetNext() const { return reinterpret_cast<const JpegMarker*>(saved.next); }
    Block<const std::byte> GetPayload() const {
        return std::as_bytes(Block<const JOCTET>(saved.data, saved.data_length));
    }
    bool IsApp(int number) const { return saved.marker == JPEG_APP0 + number; }
};

/// Reads one picture of a stream, and can begin again at another.
class JpegDecoder : private JpegLibrary {
public:
    /// Asked now and then while a progressive picture is collected; its error ends that.
    using Watch = Delegate<Result<void>()>;

    JpegDecoder() : JpegLibrary("Error loading jpg: @") {}
    ~JpegDecoder() { Close(); }

    /// Begins afresh at the stream's position and reads the header, up to the first scan. The stream must live until
    /// `Close`. Errors: "Error loading jpg: @" with the library's text as a file format error, "error reading file @".
    Result<void> Open(const InputStreamRef& input);
    void Close() noexcept;
    bool IsOpen() const { return _isActive; }

    /// What the header says.
    const jpeg_decompress_struct& GetInfo() const { return _info; }
    /// The kept markers in file order; null when there are none. Valid until `Finish` or `Close`.
    const JpegMarker* GetFirstMarker() const { return reinterpret_cast<const JpegMarker*>(_info.marker_list); }
    /// Position in the stream of the byte that is decoded next.
    Int GetPosition() const;
    /// The embedded profile; the empty one when there is none, or when it makes no sense.
    Result<ColorProfile> ReadProfile();

    Result<void> Start(const Watch& watch);
    /// @param row  output_width * output_components bytes
    Result<void> ReadRow(std::byte* row);
    Result<void> Finish();

private:
    /// The library takes its fast way through Huffman codes only while some 3 KB are left in the buffer.
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
    bool _atEnd = false;  ///< the buffer holds the end of image that stands in for missing data
    Int _bufferStart = 0;
    InputStreamRef _input;
    CodecBuffer _buffer;
    JpegMarker* _lastMarker = nullptr;
    const Watch* _watch = nullptr;
};

}  // namespace orvik
