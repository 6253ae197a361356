#include "imexport/bmp/media_io_bmp.h"

#include "imexport/bmp/media_io_bmp_runs.h"
#include "imexport/frame/media_io_palette.h"

namespace orvik {

using namespace bmp;

namespace {

/// 14 bytes at the start of the file.
struct FileHeader {
    uint32_t fileSize = 0;
    uint32_t pixelOffset = 0;  ///< 0: the pixels follow the headers
};

/// The info header; fields that a generation lacks stay 0.
struct BmpInfo {
    uint32_t size = 0;
    int32_t width = 0;
    int32_t height = 0;  ///< negative: the first row is the top one
    uint16_t bitCount = 0;
    uint32_t compression = 0;
    uint32_t imageSize = 0;
    int32_t xPixelsPerMetre = 0, yPixelsPerMetre = 0;
    uint32_t colorsUsed = 0;
    uint32_t redMask = 0, greenMask = 0, blueMask = 0, alphaMask = 0;
    uint32_t colorSpaceType = 0;
    uint32_t intent = 0;
    uint32_t profileOffset = 0;  ///< from the start of the info header
    uint32_t profileSize = 0;

    /// 64 bits: -2^31 has no positive counterpart in 32.
    Int AbsoluteHeight() const { return height < 0 ? -Int(height) : Int(height); }
    bool IsCompression(Compression wanted) const { return compression == uint32_t(wanted); }
    bool IsRunLength() const { return IsCompression(Compression::Rle8) || IsCompression(Compression::Rle4); }
};

Result<FileHeader> ReadFileHeader(EndianReader& in) {
    FileHeader header;
    if (TRY(in.ReadU16()) != kMagic)
        return MediaSessionWrongTypeError();
    header.fileSize = TRY(in.ReadU32());
    TRY(in.Skip(4));  // reserved
    header.pixelOffset = TRY(in.ReadU32());
    return header;
}

Result<void> ReadCoreHeader(EndianReader& in, BmpInfo& info) {
    info.width = TRY(in.ReadU16());
    info.height = TRY(in.ReadU16());
    if (TRY(in.ReadU16()) != 1)  // planes
        return MediaSessionWrongTypeError();
    info.bitCount = TRY(in.ReadU16());
    return {};
}

Result<void> ReadMasks(EndianReader& in, BmpInfo& info) {
    info.redMask = TRY(in.ReadU32());
    info.greenMask = TRY(in.ReadU32());
    info.blueMask = TRY(in.ReadU32());
    return {};
}

Result<BmpInfo> ReadInfoHeader(EndianReader& in) {
    BmpInfo info;
    info.size = TRY(in.ReadU32());
    if (info.size == kCoreHeaderSize) {
        TRY(ReadCoreHeader(in, info));
        return info;
    }
    if (info.size < kV3Size)
        return info;  // unknown generation: rejected later by its bit count of 0
    info.width = TRY(in.ReadS32());
    info.height = TRY(in.ReadS32());
    TRY(in.Skip(2));  // planes
    info.bitCount = TRY(in.ReadU16());
    info.compression = TRY(in.ReadU32());
    info.imageSize = TRY(in.ReadU32());
    info.xPixelsPerMetre = TRY(in.ReadS32());
    info.yPixelsPerMetre = TRY(in.ReadS32());
    info.colorsUsed = TRY(in.ReadU32());
    TRY(in.Skip(4));  // important colours

    if (info.size == kV3Size && info.IsCompression(Compression::BitFields) &&
        (info.bitCount == 16 || info.bitCount == 32))
        TRY(ReadMasks(in, info));
    if (info.size < kV3MaskSize) {
        TRY(in.Skip(Int(info.size) - kV3Size));  // masks need at least 56 bytes
        return info;
    }
    TRY(ReadMasks(in, info));
    info.alphaMask = TRY(in.ReadU32());
    if (info.size < kV4Size) {
        TRY(in.Skip(Int(info.size) - kV3MaskSize));
        return info;
    }
    info.colorSpaceType = TRY(in.ReadU32());
    TRY(in.Skip(kEndpointsSize));
    TRY(in.Skip(12));  // gamma of red, green, blue
    if (info.size < kV5Size) {
        TRY(in.Skip(Int(info.size) - kV4Size));
        return info;
    }
    info.intent = TRY(in.ReadU32());
    info.profileOffset = TRY(in.ReadU32());
    info.profileSize = TRY(in.ReadU32());
    TRY(in.Skip(4));  // reserved
    TRY(in.Skip(Int(info.size) - kV5Size));
    return info;
}

/// Reads the profile that the header points to and restores the position.
/// @param fileStart  position of the file in its stream
Result<ColorProfile> ReadProfile(EndianReader& in, Int fileStart, const BmpInfo& info) {
    const Int back = in.GetPosition();
    const Int start = fileStart + kFileHeaderSize + Int(info.profileOffset);
    const Int length = TRY(in.GetStream()->GetStreamLength());
    if (start > length || Int(info.profileSize) > length - start)
        return MediaSessionWrongTypeError();
    CodecBuffer bytes;
    TRY(in.Seek(start));
    TRY(bytes.ReadFromFile(info.profileSize, in.GetStream()));
    TRY(in.Seek(back));
    Result<ColorProfile> profile = ColorProfile::OpenProfileFromMemory(bytes.ToBlock());
    if (!profile && !profile.GetError()->IsKindOf(errorid::kOutOfMemory))
        return colorprofiles::Get(colorprofiles::kSrgb);  // a bad profile must not fail the load
    return profile;
}

/// How one pixel is delivered: the pixel format, starting at the first byte that holds a channel, and the padding bytes
/// around it. Padding is not removed; it widens the pixel stride.
struct PixelLayout {
    PixelFormat format;
    Int leadingFiller = 0, trailingFiller = 0;  ///< bytes
    bool hasAlpha = false;
    Int alphaOffset = 0;  ///< byte of alpha within the pixel

    bool HasFiller() const { return leadingFiller + trailingFiller > 0 || hasAlpha; }
    BITS GetStride() const { return format->GetBitsPerPixel() + BITS((leadingFiller + trailingFiller) * 8); }
};

PixelFormat GetFormat(const Id& id) { return PixelFormats::Get(id); }

/// Masks of 16-bit pixels and the corresponding format.
struct MaskedFormat {
    uint32_t alpha, red, green, blue;
    Id format;
};
constexpr MaskedFormat kMasked16[] = {
    {0, 0x7C00, 0x03E0, 0x001F, "net.orvik.image.pixelformat.rgb.u555"},
    {0, 0xF800, 0x07E0, 0x001F, "net.orvik.image.pixelformat.rgb.u565"},
    {0, 0x0F00, 0x00F0, 0x000F, "net.orvik.image.pixelformat.rgb.u444"},
    {0x8000, 0x7C00, 0x03E0, 0x001F, "net.orvik.image.pixelformat.argb.u1555"},
    {0xF000, 0x0F00, 0x00F0, 0x000F, "net.orvik.image.pixelformat.argb.u4444"},
};

Result<PixelLayout> ChooseLayout16(const BmpInfo& info) {
    if (!info.IsCompression(Compression::BitFields))
        return PixelLayout{GetFormat(kMasked16[0].format)};
    for (const MaskedFormat& masked : kMasked16) {
        if (masked.alpha == info.alphaMask && masked.red == info.redMask && masked.green == info.greenMask &&
            masked.blue == info.blueMask)
            return PixelLayout{GetFormat(masked.format)};
    }
    return MediaSessionWrongTypeError("unsupported pixeltype");
}

Error BitCountError(const BmpInfo& info) {
    return MediaSessionWrongTypeError("Invalid image bit count: @.", info.bitCount);
}

/// Byte lane of a mask, 0 for the first byte in the file; -1 for a mask that is not a whole byte.
constexpr int LaneOf(uint32_t mask) {
    for (int lane = 0; lane < 4; ++lane) {
        if (mask == uint32_t(0xFF) << (lane * 8))
            return lane;
    }
    return -1;
}

/// Each mask selects one byte. Bytes without a channel are padding at either end, unused channels in between.
Result<PixelLayout> ChooseLayout32ByMasks(const BmpInfo& info) {
    const struct {
        uint32_t mask;
        const Id& channel;
    } masks[] = {
        {info.redMask, channeltypes::kRed},
        {info.greenMask, channeltypes::kGreen},
        {info.blueMask, channeltypes::kBlue},
        {info.alphaMask, channeltypes::kUnused},  // alpha goes to its own stream
    };
    ImageChannel lanes[4];
    for (const auto& entry : masks) {
        if (entry.mask == 0)
            continue;
        const int lane = LaneOf(entry.mask);
        if (lane < 0)
            return MediaSessionWrongTypeError("BITMAPV4HEADER unsupported mask value (@{x}) for channel '@'.",
                                              entry.mask, entry.channel);
        if (lanes[lane])
            return MediaSessionWrongTypeError("BITMAPV4HEADER duplicate mask value (@{x}) for channel '@'.", entry.mask,
                                              entry.channel);
        lanes[lane] = channeltypes::GetChannel(entry.channel, ComponentType::U8);
    }

    PixelLayout layout;
    layout.hasAlpha = info.alphaMask != 0;
    layout.alphaOffset = layout.hasAlpha ? LaneOf(info.alphaMask) : 0;
    Int first = 0, end = 4;
    while (first < end && !lanes[first])
        ++first;
    while (end > first && !lanes[end - 1])
        --end;
    if (first == end)
        return BitCountError(info);  // no colour channel
    for (Int lane = first; lane < end; ++lane) {
        if (!lanes[lane])
            lanes[lane] = channeltypes::GetChannel(channeltypes::kUnused, ComponentType::U8);
    }
    layout.leadingFiller = first;
    layout.trailingFiller = 4 - end;
    layout.format = TRY(PixelFormats::FindOrCreatePixelFormat(Block<const ImageChannel>(lanes + first, end - first)));
    return layout;
}

Result<PixelLayout> ChooseLayout(const BmpInfo& info) {
    switch (info.bitCount) {
        case 1:
            return PixelLayout{GetFormat(pixelformats::kIndexedU1)};
        case 2:
            return PixelLayout{GetFormat(pixelformats::kIndexedU2)};
        case 4:
            return PixelLayout{GetFormat(pixelformats::kIndexedU4)};
        case 8:
            return PixelLayout{GetFormat(pixelformats::kIndexedU8)};
        case 16:
            return ChooseLayout16(info);
        case 24:
            return PixelLayout{GetFormat(pixelformats::kBgrU8)};
        case 32:
            if (info.IsCompression(Compression::BitFields))
                return ChooseLayout32ByMasks(info);
            return PixelLayout{
                .format = GetFormat(pixelformats::kBgrU8), .trailingFiller = 1, .hasAlpha = true, .alphaOffset = 3};
        default:
            return BitCountError(info);
    }
}

/// Number of palette entries: as many as the bit count can address, or fewer if the header says so.
Result<Int> GetPaletteSize(const BmpInfo& info) {
    if (info.bitCount >= 16)
        return Int(0);
    Int size = Int(1) << info.bitCount;
    if (info.colorsUsed != 0 && Int(info.colorsUsed) < size)
        size = info.colorsUsed;
    if (size > 0x10000)
        return MediaSessionWrongTypeError("Illegal Color table size: @.", size);
    return size;
}

class BmpImporter : public ImageImporter {
public:
    BmpImporter() : ImageImporter(kFormat, "BMP image") {}

protected:
    void ResetHeader() override;
    Result<void> ReadHeader(const InputStreamRef& stream) override;
    Result<void> DecodePixels(const InputStreamRef& stream) override;

private:
    Result<void> CheckSize(const InputStreamRef& stream) const;
    Result<void> AddStreams(const ColorProfile& profile);
    Result<void> DescribeResolution(MediaStreamFormat& format) const;
    Result<PixelFormat> ReadPalette(const InputStreamRef& stream) const;
    Result<void> DecodeRows(const InputStreamRef& stream);
    Result<void> DecodeRuns(const InputStreamRef& stream);
    Result<void> DecodeFilledRows(const InputStreamRef& stream);
    Int GetLine(Int row) const { return _info.height > 0 ? _info.height - 1 - row : row; }
    Result<void> DeliverRow(Int row, const std::byte* pixels);

    Int GetPaletteEntryBytes() const { return _info.size == kCoreHeaderSize ? 3 : 4; }
    /// Where the rows start: as the file header says, otherwise after headers and palette.
    Int GetPixelPosition() const {
        return _header.pixelOffset ? _fileStart + _header.pixelOffset
                                   : _headerEnd + _paletteSize * GetPaletteEntryBytes();
    }

    FileHeader _header;
    BmpInfo _info;
    Int _fileStart = 0;  ///< in the stream
    Int _headerEnd = 0;
    Int _paletteSize = 0;  ///< entries
    PixelLayout _layout;
    RowSinkRef _image;
    RowSinkRef _alpha;
    ImageImportStreamRef _imageStream;
    ImageImportStreamRef _alphaStream;
};

void BmpImporter::ResetHeader() {
    _header = {};
    _info = {};
    _headerEnd = 0;
    _paletteSize = 0;
    _layout = {};
    _image = nullptr;
    _alpha = nullptr;
    _imageStream = nullptr;
    _alphaStream = nullptr;
}

Result<void> BmpImporter::ReadHeader(const InputStreamRef& stream) {
    EndianReader in;
    in.Attach(stream, BYTEORDER::LITTLE);
    _fileStart = in.GetPosition();
    _header = TRY(ReadFileHeader(in));
    _info = TRY(ReadInfoHeader(in));
    _headerEnd = in.GetPosition();
    ColorProfile profile = colorprofiles::Get(colorprofiles::kSrgb);
    if (_info.size >= kV5Size && _info.colorSpaceType == kSpaceEmbedded && _info.profileSize != 0)
        profile = TRY(ReadProfile(in, _fileStart, _info));

    if (_info.bitCount > 32)
        return MediaSessionWrongTypeError();
    if (_info.width < 0)
        return MediaSessionWrongTypeError("Invalid Image width: @.", _info.width);
    if (_info.compression > uint32_t(Compression::BitFields))
        return MediaSessionWrongTypeError("unsupported bmp compression (@).", _info.compression);
    _paletteSize = TRY(GetPaletteSize(_info));
    _layout = TRY(ChooseLayout(_info));
    TRY(CheckSize(stream));
    return AddStreams(profile);
}

/// Checks that the file can contain the rows before memory is allocated for them. Runs can be far shorter than their
/// rows, and jumps shorter still, so small pictures in runs are exempt.
Result<void> BmpImporter::CheckSize(const InputStreamRef& stream) const {
    Int bytes = RowBytes(_info.width, _info.bitCount);
    if (bytes < 0 || __builtin_mul_overflow(bytes, _info.AbsoluteHeight(), &bytes))
        return OutOfMemoryError();
    constexpr Int kBestRunLength = 128, kSmall = Int(16) << 20;
    if (_info.IsRunLength()) {
        const Int pixels = Int(_info.width) * _info.AbsoluteHeight();  // up to eight per byte
        bytes = std::max(bytes, pixels) <= kSmall ? 0 : bytes / kBestRunLength;
    }
    const Result<Int> length = stream->GetStreamLength();
    if (length && bytes > *length - GetPixelPosition())
        return MediaSessionWrongTypeError();
    return {};
}

Result<void> BmpImporter::AddStreams(const ColorProfile& profile) {
    StreamDescription description;
    description.type = MEDIAFORMATTYPE::IMAGE;
    description.pixelFormat = _layout.format;
    description.colorProfile = profile;
    description.width = _info.width;
    description.height = _info.AbsoluteHeight();
    MediaStreamFormat format = TRY(DescribeStream(description));
    TRY(DescribeResolution(format));
    if (_info.size >= kV3Size) {
        DataDictionary settings;
        const Id generation = _info.size >= kV5Size ? Id("V5") : _info.size >= kV4Size ? Id("V4") : Id("V3");
        TRY(settings.Set(mediaexport::kBmpInfoHeader, generation));
        TRY(format.Set(mediaformat::kExportSettings, settings));
    }
    _imageStream = TRY(AddImageStream(format));

    if (_layout.hasAlpha) {
        description.type = MEDIAFORMATTYPE::ALPHA;
        description.pixelFormat = GetFormat(pixelformats::kAlphaU8);
        description.colorProfile = ColorProfile();
        MediaStreamFormat alpha = TRY(DescribeStream(description));
        TRY(alpha.Set(mediaformat::kAlphaType, MEDIAALPHATYPE::STRAIGHT));
        TRY(alpha.Set(mediaformat::kAlphaName, "Alpha"));
        _alphaStream = TRY(AddImageStream(alpha, _imageStream));
    }
    return {};
}

/// Writers leave junk in these fields, so only plausible values are used.
Result<void> BmpImporter::DescribeResolution(MediaStreamFormat& format) const {
    const Float x = std::abs(Float(_info.xPixelsPerMetre)), y = std::abs(Float(_info.yPixelsPerMetre));
    if (x != 0 && y != 0 && _info.xPixelsPerMetre != _info.yPixelsPerMetre) {
        const Float ratio = y / x;
        if (ratio > 0.1 && ratio < 10.0)
            TRY(format.Set(mediaformat::kAspectRatio, ratio));
    }
    const Float dpi = x * 300.0 / 11808.0;
    if (x != 0 && dpi >= 1.0 && dpi < 10000.0)
        TRY(format.Set(mediaformat::kDpi, dpi));
    return {};
}

Result<void> BmpImporter::DecodePixels(const InputStreamRef& stream) {
    PixelFormat format = _layout.format;
    if (_paletteSize != 0)
        format = TRY(ReadPalette(stream));
    TRY(stream->Seek(GetPixelPosition()));
    _image = TRY(OpenSink(_imageStream, format));
    _alpha = TRY(OpenSink(_alphaStream, GetFormat(pixelformats::kAlphaU8)));
    return _info.IsRunLength() ? DecodeRuns(stream) : DecodeRows(stream);
}

/// Entries are blue, green, red and, except with the oldest header, a fourth byte. It is 0 in most files; if any entry
/// has another value, the bytes are taken as transparency.
Result<PixelFormat> BmpImporter::ReadPalette(const InputStreamRef& stream) const {
    const Int entryBytes = GetPaletteEntryBytes();
    CodecBuffer colors;
    TRY(stream->Seek(_headerEnd));
    TRY(colors.Allocate(_paletteSize * entryBytes));
    TRY(stream->Read(colors.ToBlock()));
    if (entryBytes == 3)
        return MakePaletteFormat(_info.bitCount, GetFormat(pixelformats::kBgrU8), colors.ToBlock());

    bool hasTransparency = false;
    for (Int i = 0; i < _paletteSize; ++i) {
        std::byte& fourth = colors.GetFirst()[i * 4 + 3];
        hasTransparency |= fourth != std::byte(0);
        fourth = ~fourth;
    }
    if (hasTransparency)
        return MakePaletteFormat(_info.bitCount, GetFormat(pixelformats::kBgraU8), colors.ToBlock());
    for (Int i = 0; i < _paletteSize; ++i)
        std::memmove(colors.GetFirst() + i * 3, colors.GetFirst() + i * 4, 3);
    return MakePaletteFormat(_info.bitCount, GetFormat(pixelformats::kBgrU8),
                             colors.ToBlock().first(size_t(_paletteSize) * 3));
}

Result<void> BmpImporter::DeliverRow(Int row, const std::byte* pixels) {
    const BITS stride = _layout.GetStride();
    TRY(_image->PushRow(GetLine(row), {pixels + _layout.leadingFiller, stride}));
    return _alpha->PushRow(GetLine(row), {pixels + _layout.alphaOffset, stride});
}

/// Uncompressed rows.
Result<void> BmpImporter::DecodeRows(const InputStreamRef& stream) {
    if (_layout.HasFiller())
        return DecodeFilledRows(stream);
    const Int rowBytes = _image->GetRowBytes();
    const Int filler = RowBytes(_info.width, _info.bitCount) - rowBytes;
    for (Int row = 0; row < _info.AbsoluteHeight(); ++row) {
        std::byte* const pixels = TRY(_image->BeginRow(GetLine(row)));
        TRY(stream->Read(pixels, size_t(rowBytes)));
        TRY(stream->Skip(filler));
        TRY(_image->EndRow());
    }
    return {};
}

/// Uncompressed rows of padded pixels, as many at a time as a small buffer holds.
Result<void> BmpImporter::DecodeFilledRows(const InputStreamRef& stream) {
    constexpr Int kBufferBytes = Int(64) * 1024;  // small enough to stay in cache
    const Int rowBytes = RowBytes(_info.width, _info.bitCount), height = _info.AbsoluteHeight();
    if (rowBytes == 0 || height == 0)
        return {};
    const Int rowsAtOnce = std::clamp(kBufferBytes / rowBytes, Int(1), height);
    CodecBuffer buffer;
    TRY(buffer.AllocateFromFile(rowsAtOnce * rowBytes, stream));
    for (Int row = 0; row < height;) {
        const Int rows = std::min(rowsAtOnce, height - row);
        TRY(stream->Read(buffer.ToBlock().first(size_t(rows * rowBytes))));
        for (Int i = 0; i < rows; ++i, ++row)
            TRY(DeliverRow(row, buffer.GetFirst() + i * rowBytes));
    }
    return {};
}

/// Compressed rows. Holds the whole input, whose size is bounded by two header fields and by the file's length.
Result<void> BmpImporter::DecodeRuns(const InputStreamRef& stream) {
    const Int rowBytes = RowBytes(_info.width, _info.bitCount), height = _info.AbsoluteHeight();
    if (rowBytes == 0 || height == 0)
        return {};
    const Int stated = std::max(Int(_header.fileSize) - Int(_header.pixelOffset), Int(0));
    CodecBuffer input, row;
    TRY(input.ReadFromFile(std::min({Int(_info.imageSize), stated, GetBytesLeft(stream)}), stream));
    TRY(row.Allocate(rowBytes));

    RunDecoder decoder(input.ToBlock(), _info.IsCompression(Compression::Rle4));
    Int done = 0;
    while (done < height) {
        std::memset(row.GetFirst(), 0, size_t(rowBytes));
        const Int skipped = TRY(decoder.DecodeLine(row.ToBlock(), done == height - 1));
        TRY(DeliverRow(done, row.GetFirst()));
        done += 1 + skipped;
    }
    if (done != height)
        return MediaSessionWrongTypeError("Corrupt RLE compression.");
    return {};
}

}  // namespace

/// "BM" and a known header size. Masking out bit 4 of the size covers 40 and 56 as well as 108 and 124.
Result<Bool> DetectBmp(const Url&, const InputStreamRef& stream) {
    uint8_t head[20];
    if (TRY(stream->ReadEOS(std::as_writable_bytes(Block<uint8_t>(head)))) != Int(sizeof(head)))
        return false;
    uint32_t size;
    std::memcpy(&size, head + kFileHeaderSize, sizeof(size));
    size = SwapToOrder(size, BYTEORDER::LITTLE);
    const uint32_t paired = size & ~uint32_t(0x10);
    return head[0] == 'B' && head[1] == 'M' && (size == kCoreHeaderSize || paired == kV3Size || paired == kV4Size);
}

Result<ObjectRef> MakeBmpImporter() { return ObjectRef(TRY(NewObj<BmpImporter>())); }

}  // namespace orvik
