#include "imexport/tga/media_io_tga.h"

namespace orvik {

using namespace tga;

namespace {

/// The 18 bytes at the start of the file.
struct TgaHeader {
    uint8_t idLength = 0;
    uint8_t colorMapType = 0;  ///< not 0: there is a colour map
    uint8_t imageType = 0;
    uint16_t mapFirst = 0;  ///< palette index of the map's first entry
    uint16_t mapLength = 0;
    uint8_t mapEntryBits = 0;
    int16_t width = 0, height = 0;
    uint8_t pixelDepth = 0;
    uint8_t descriptor = 0;

    Int BytesPerPixel() const { return (pixelDepth + 7) >> 3; }
    Int RowBytes() const { return width * BytesPerPixel(); }
    Int BytesPerEntry() const { return (mapEntryBits + 7) >> 3; }
    Int MapBytes() const { return mapLength * BytesPerEntry(); }
    bool IsInRuns() const { return (imageType & kRuns) != 0; }
    bool IsMapped() const { return ImageType(imageType & ~kRuns) == ImageType::Mapped; }
    bool IsRightToLeft() const { return (descriptor & kRightToLeft) != 0; }
    bool IsTopToBottom() const { return (descriptor & kTopToBottom) != 0; }
    /// Line of the picture that row `row` of the file holds.
    Int GetLine(Int row) const { return IsTopToBottom() ? row : height - 1 - row; }
};

Result<TgaHeader> ReadTgaHeader(EndianReader& in) {
    TgaHeader header;
    header.idLength = TRY(in.ReadU8());
    header.colorMapType = TRY(in.ReadU8());
    header.imageType = TRY(in.ReadU8());
    header.mapFirst = TRY(in.ReadU16());
    header.mapLength = TRY(in.ReadU16());
    header.mapEntryBits = TRY(in.ReadU8());
    TRY(in.Skip(4));  // x and y origin
    header.width = TRY(in.ReadS16());
    header.height = TRY(in.ReadS16());
    if (header.width < 1 || header.height < 1)
        return MediaSessionWrongTypeError();
    header.pixelDepth = TRY(in.ReadU8());
    header.descriptor = TRY(in.ReadU8());
    TRY(in.Skip(header.idLength));
    return header;
}

/// The attribute bit of 16-bit pixels is not an alpha; from 24 bits on every further byte is one.
Result<PixelFormat> ChoosePixelFormat(const TgaHeader& header) {
    const Int bytes = header.BytesPerPixel();
    switch (ImageType(header.imageType)) {
        case ImageType::Mapped:
        case ImageType::MappedRuns:
            if (bytes == 1)
                return PixelFormats::Get(pixelformats::kIndexedU8);
            if (bytes == 2)
                return PixelFormats::Get(pixelformats::kIndexedU16);
            break;
        case ImageType::TrueColor:
        case ImageType::TrueColorRuns:
            if (bytes == 2)
                return PixelFormats::Get("net.orvik.image.pixelformat.rgb.u555");
            if (bytes >= 3)
                return PixelFormats::Get(pixelformats::kBgrU8);
            break;
        case ImageType::Grey:
        case ImageType::GreyRuns:
            if (bytes == 1)
                return PixelFormats::Get(pixelformats::kGreyU8);
            if (bytes == 2)
                return PixelFormats::Get(pixelformats::kGreyU16);
            break;
    }
    return MediaSessionWrongTypeError();
}

Result<PixelFormat> ChooseEntryFormat(Int bytes) {
    switch (bytes) {
        case 2:
            return PixelFormats::Get("net.orvik.image.pixelformat.rgb.u555");
        case 3:
            return PixelFormats::Get(pixelformats::kBgrU8);
        case 4:
            return PixelFormats::Get("net.orvik.image.pixelformat.abgr.u8");
        default:
            return MediaSessionWrongTypeError();
    }
}

/// Reads the colour map.
/// @return a new indexed format with the map as its palette, at most 256 entries
Result<PixelFormat> ReadColorMap(EndianReader& in, const TgaHeader& header) {
    if (header.MapBytes() < 1)
        return MediaSessionWrongTypeError();
    const PixelFormat entryFormat = TRY(ChooseEntryFormat(header.BytesPerEntry()));
    constexpr Int kMaxEntries = 256;
    const Int count = std::min(Int(header.mapFirst) + header.mapLength, kMaxEntries);
    const PixelFormatIndexedColor palette =
        TRY(PixelFormats::CreateIndexed(header.BytesPerPixel() * 8, entryFormat, count));
    for (Int i = 0; i < header.mapLength; ++i) {
        std::byte entry[4];
        TRY(in.ReadBlock(Block<std::byte>(entry, size_t(header.BytesPerEntry()))));
        if (header.mapFirst + i < count)
            TRY(palette->SetIndex(header.mapFirst + i, entryFormat, entry));
    }
    return PixelFormat(palette);
}

/// Reads the pixels after the headers as one sequence in file order.
class PixelReader {
public:
    PixelReader(const InputStreamRef& stream, const TgaHeader& header)
        : _stream(stream),
          _inRuns(header.IsInRuns()),
          _pixelBytes(header.BytesPerPixel()),
          _pixelsLeft(Int(header.width) * header.height) {}

    /// Reads the next `count` pixels. Illegal state for a packet that extends past the last pixel.
    Result<void> Read(std::byte* to, Int count) { return _inRuns ? ReadPackets(to, count) : ReadPlain(to, count); }

private:
    Result<void> ReadPlain(std::byte* to, Int count) { return _stream->Read(to, size_t(count * _pixelBytes)); }
    Result<void> ReadPackets(std::byte* to, Int count);
    Result<void> BeginPacket();
    void Repeat(std::byte* to, Int count) const;

    const InputStreamRef& _stream;
    const bool _inRuns;
    const Int _pixelBytes;
    Int _pixelsLeft;  ///< of the picture, after the current packet

    static constexpr Int kMaxPixelBytes = 32;
    Int _packetLeft = 0;  ///< pixels; packets may cross rows and calls
    bool _isRun = false;
    std::byte _repeated[kMaxPixelBytes] = {};
};

Result<void> PixelReader::ReadPackets(std::byte* to, Int count) {
    while (count > 0) {
        if (_packetLeft == 0)
            TRY(BeginPacket());
        const Int pixels = std::min(_packetLeft, count);
        if (_isRun)
            Repeat(to, pixels);
        else
            TRY(ReadPlain(to, pixels));
        _packetLeft -= pixels;
        to += pixels * _pixelBytes;
        count -= pixels;
    }
    return {};
}

/// The low 7 bits of the head hold the count - 1; the high bit marks a single pixel to be repeated.
Result<void> PixelReader::BeginPacket() {
    uint8_t head;
    TRY(_stream->Read(&head, 1));
    const Int count = (head & 0x7F) + 1;
    if (count > _pixelsLeft)
        return IllegalStateError("Decode scan line error.");
    _isRun = (head & 0x80) != 0;
    if (_isRun)
        TRY(_stream->Read(_repeated, size_t(_pixelBytes)));
    _pixelsLeft -= count;
    _packetLeft = count;
    return {};
}

/// Each copy doubles the filled part.
void PixelReader::Repeat(std::byte* to, Int count) const {
    const Int bytes = count * _pixelBytes;
    std::memcpy(to, _repeated, size_t(_pixelBytes));
    for (Int done = _pixelBytes; done < bytes;) {
        const Int step = std::min(done, bytes - done);
        std::memcpy(to + done, to, size_t(step));
        done += step;
    }
}

/// A stream of a TGA file: the picture or one of its alphas.
class MediaStreamImageLayerTga : public MediaStreamImageDataImportImpl {
public:
    void Describe(const PixelFormat& pixelFormat, Int width, Int height) {
        _pixelFormat = pixelFormat;
        _width = width;
        _height = height;
    }
    const PixelFormat& GetPixelFormat() const { return _pixelFormat; }
    Int GetWidth() const { return _width; }
    Int GetHeight() const { return _height; }

private:
    PixelFormat _pixelFormat;
    Int _width = 0, _height = 0;
};
using TgaStreamRef = Ref<MediaStreamImageLayerTga>;

class TgaImporter : public ImageImporter {
public:
    TgaImporter() : ImageImporter(kFormat, "Tga") {}

protected:
    void ResetHeader() override;
    Result<void> ReadHeader(const InputStreamRef& stream) override;
    Result<void> DecodePixels(const InputStreamRef& stream) override;

private:
    static constexpr Int kAlphaOffset = 3;  ///< first byte of the pixel after its colours

    Result<void> CheckSize(const InputStreamRef& stream) const;
    Result<TgaStreamRef> MakeStream(const PixelFormat& pixelFormat) const;
    Result<void> AddImage(const PixelFormat& pixelFormat);
    Result<void> AddAlphas();
    Result<void> DecodePlainRows(PixelReader& pixels, RowSink& sink) const;
    Result<void> DecodeRows(PixelReader& pixels, Block<const RowSinkRef> sinks) const;

    TgaHeader _header;
    Int _pixelPosition = 0;
    BaseArray<TgaStreamRef> _streams;  ///< the image first, then its alphas
};

void TgaImporter::ResetHeader() {
    _header = {};
    _pixelPosition = 0;
    _streams.Reset();
}

Result<void> TgaImporter::ReadHeader(const InputStreamRef& stream) {
    EndianReader in;
    in.Attach(stream, BYTEORDER::LITTLE);
    _header = TRY(ReadTgaHeader(in));
    PixelFormat pixelFormat = TRY(ChoosePixelFormat(_header));
    if (_header.colorMapType != 0) {
        if (_header.IsMapped())
            pixelFormat = TRY(ReadColorMap(in, _header));
        else
            TRY(in.Skip(_header.MapBytes()));  // only a hint for palette displays
    }
    _pixelPosition = in.GetPosition();
    TRY(CheckSize(stream));
    TRY(AddImage(pixelFormat));
    return AddAlphas();
}

/// Checks that the file can contain the pixels before memory is allocated for them.
Result<void> TgaImporter::CheckSize(const InputStreamRef& stream) const {
    const Int pixels = Int(_header.width) * _header.height;
    Int bytes = pixels * _header.BytesPerPixel();
    if (_header.IsInRuns()) {
        constexpr Int kLongestPacket = 128;
        bytes = (pixels + kLongestPacket - 1) / kLongestPacket * (1 + _header.BytesPerPixel());
    }
    return RequireContent(stream, bytes);
}

Result<TgaStreamRef> TgaImporter::MakeStream(const PixelFormat& pixelFormat) const {
    const ObjectRef made = TRY(ClassRef(kStreamClass).Create());
    const TgaStreamRef stream(dynamic_cast<MediaStreamImageLayerTga*>(made.GetPointer()));
    if (!stream)
        return UnexpectedError();
    stream->Describe(pixelFormat, _header.width, _header.height);
    return stream;
}

Result<void> TgaImporter::AddImage(const PixelFormat& pixelFormat) {
    const TgaStreamRef stream = TRY(MakeStream(pixelFormat));
    StreamDescription description;
    description.pixelFormat = stream->GetPixelFormat();
    description.width = stream->GetWidth();
    description.height = stream->GetHeight();
    MediaStreamFormat format = TRY(DescribeStream(description));
    TRY(format.Set(mediaformat::kStreamName, "Image"));
    TRY(stream->AddFormat(Data(Int(0)), format));
    TRY(AddStream(MediaStreamRef(stream)));
    return _streams.Append(stream);
}

/// Adds an alpha stream for each byte of a pixel after its colours.
Result<void> TgaImporter::AddAlphas() {
    for (Int i = kAlphaOffset; i < _header.BytesPerPixel(); ++i) {
        const TgaStreamRef stream = TRY(MakeStream(PixelFormats::Get(pixelformats::kAlphaU8)));
        StreamDescription description;
        description.type = MEDIAFORMATTYPE::ALPHA;
        description.pixelFormat = stream->GetPixelFormat();
        description.width = stream->GetWidth();
        description.height = stream->GetHeight();
        MediaStreamFormat format = TRY(DescribeStream(description));
        TRY(format.Set(mediaformat::kAlphaType, MEDIAALPHATYPE::STRAIGHT));
        const String name = i == kAlphaOffset ? String("Alpha") : FormatString("Alpha#@", i - 2);
        TRY(format.Set(mediaformat::kAlphaName, name));
        TRY(stream->AddFormat(Data(Int(0)), format));
        TRY(AddStream(MediaStreamRef(stream), _streams[0]));
        TRY(_streams.Append(stream));
    }
    return {};
}

Result<void> TgaImporter::DecodePixels(const InputStreamRef& stream) {
    BaseArray<RowSinkRef> sinks;
    for (const TgaStreamRef& tgaStream : _streams) {
        const RowSinkRef sink = TRY(OpenSink(tgaStream, tgaStream->GetPixelFormat()));
        TRY(sinks.Append(sink));
    }
    TRY(stream->Seek(_pixelPosition));
    PixelReader pixels(stream, _header);
    const bool isPlain = sinks[0]->GetRowBytes() == _header.RowBytes() && !_header.IsRightToLeft();
    return isPlain ? DecodePlainRows(pixels, *sinks[0]) : DecodeRows(pixels, sinks.ToBlock());
}

/// Rows stored in the file as in the picture.
Result<void> TgaImporter::DecodePlainRows(PixelReader& pixels, RowSink& sink) const {
    for (Int row = 0; row < _header.height; ++row) {
        std::byte* const line = TRY(sink.BeginRow(_header.GetLine(row)));
        TRY(pixels.Read(line, _header.width));
        TRY(sink.EndRow());
    }
    return {};
}

/// Rows split among streams or stored right to left. A right-to-left row is read backwards from its first byte: its
/// other pixels are those of the previous row, or zeros for the first one.
Result<void> TgaImporter::DecodeRows(PixelReader& pixels, Block<const RowSinkRef> sinks) const {
    const Int rowBytes = _header.RowBytes();
    CodecBuffer rows;
    TRY(rows.AllocateZeroed(2 * rowBytes));
    std::byte* const before = rows.GetFirst();
    std::byte* const present = before + rowBytes;
    const BITS stride(_header.BytesPerPixel() * (_header.IsRightToLeft() ? -8 : 8));
    for (Int row = 0; row < _header.height; ++row) {
        TRY(pixels.Read(present, _header.width));
        const Int y = _header.GetLine(row);
        TRY(sinks[0]->PushRow(y, {present, stride}));
        for (const RowSinkRef& alpha : sinks.subspan(1))
            TRY(alpha->PushRow(y, {present + kAlphaOffset, stride}));  // all alphas get the first alpha byte
        if (_header.IsRightToLeft())
            std::memcpy(before, present, size_t(rowBytes));
    }
    return {};
}

}  // namespace

/// There is no magic number, only fields with few valid values: the colour map type, the image type and the depth.
Result<Bool> DetectTga(const Url&, const InputStreamRef& stream) {
    uint8_t head[17];
    if (TRY(stream->ReadEOS(std::as_writable_bytes(Block<uint8_t>(head)))) != Int(sizeof(head)))
        return false;
    const uint8_t type = head[2] & ~kRuns;
    return head[1] < 2 && type >= 1 && type <= 3 && head[16] >= 8 && head[16] <= 32;
}

Result<ObjectRef> MakeTgaImporter() { return ObjectRef(TRY(NewObj<TgaImporter>())); }

Result<void> PublishTgaParts(Publisher& publisher) {
    return publisher.PublishClass<MediaStreamImageLayerTga>(kStreamClass);
}

}  // namespace orvik
