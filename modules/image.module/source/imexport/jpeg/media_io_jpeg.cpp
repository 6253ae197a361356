#include "imexport/jpeg/media_io_jpeg.h"

#include "imexport/jpeg/media_io_jpeg_decoder.h"
#include "imexport/jpeg/media_io_jpeg_mpf.h"

namespace orvik {

using namespace jpeg;

namespace {

/// The streams of a JPEG file; separate classes let clients recognise them.
class MediaStreamImageLayerJpgImport : public MediaStreamImageDataImportImpl {};
class MediaStreamExifDataJpg : public MediaStreamExifDataImpl {};

/// Inks are stored inverted, and presented so.
constexpr Id kCmykInverted{"net.orvik.image.pixelformat.cmyk_inv.u8"};

Result<PixelFormat> ChoosePixelFormat(const jpeg_decompress_struct& info) {
    const int count = info.out_color_components;
    switch (info.out_color_space) {
        case JCS_RGB:
            if (count != 3)
                return MediaSessionWrongTypeError("Unsupported component count for RGB: @", count);
            return PixelFormats::Get(pixelformats::kRgbU8);
        case JCS_GRAYSCALE:
            if (count != 1)
                return MediaSessionWrongTypeError("Unsupported component count for GREY: @", count);
            return PixelFormats::Get(pixelformats::kGreyU8);
        case JCS_CMYK:
            if (count != 4)
                return MediaSessionWrongTypeError("Unsupported component count for CMYK: @", count);
            return PixelFormats::Get(kCmykInverted);
        default:
            return MediaSessionWrongTypeError("Unsupported color space: @", static_cast<int>(info.out_color_space));
    }
}

Result<void> DescribeResolution(const jpeg_decompress_struct& info, MediaStreamFormat& format) {
    enum DensityUnit : UINT8 { kDotsPerInch = 1, kDotsPerCentimetre = 2 };
    const Float x = info.X_density, y = info.Y_density;
    if (x == 0 || (info.density_unit != kDotsPerInch && info.density_unit != kDotsPerCentimetre))
        return {};
    TRY(format.Set(mediaformat::kDpi, info.density_unit == kDotsPerInch ? x : x * 2.54));
    const Float aspectRatio = y / x;
    if (x != y && aspectRatio > 0.1 && aspectRatio < 10.0)
        TRY(format.Set(mediaformat::kAspectRatio, aspectRatio));
    return {};
}

class JpegImporter : public ImageImporter {
public:
    JpegImporter() : ImageImporter(kFormat, "JPG image") {}

protected:
    bool CanAnalyzeAgain() const override { return false; }
    Result<void> Prepare() override { return {}; }  // each picture adds its job when it is decoded
    void ResetHeader() override;
    Result<void> ReadHeader(const InputStreamRef& stream) override;
    Result<void> DeliverMetadata() override;
    Result<void> DecodePixels(const InputStreamRef& stream) override;

private:
    struct Image {
        Int position;  ///< in the stream
        ImageImportStreamRef stream;
        PixelFormat format;
        Int width, height;
        Int job;
    };

    Result<void> ReadMarkers();
    Result<void> AddExifStream();
    Result<void> AddFirstImage(const InputStreamRef& stream);
    Result<void> AddFurtherImages(const InputStreamRef& stream);
    Result<void> OpenImage(const InputStreamRef& stream, Int index);
    Result<void> AddImage(Int index);
    Result<void> CheckSize();
    Result<void> DecodeImage(const Image& image);

    JpegDecoder _decoder;
    Int _start = 0;       ///< position of the file in its stream
    Int _openImage = -1;  ///< the decoder has read its header but no rows
    BaseArray<Image> _images;
    Ref<MediaStreamExifDataInterface> _exifStream;
    BaseArray<CodecBuffer> _exifBlocks;

    /// @{ Totals over all pictures of the file, which may overlap.
    Int _bytesInFile = 0;
    Int _headerBytes = 0;
    Int _pixelBytes = 0;
    Int _codeBytes = 0;
    /// @}
};

void JpegImporter::ResetHeader() {
    _decoder.Close();
    _openImage = -1;
    _images.Reset();
    _exifStream = nullptr;
    _exifBlocks.Reset();
    _headerBytes = _pixelBytes = _codeBytes = 0;
}

Result<void> JpegImporter::ReadHeader(const InputStreamRef& stream) {
    _start = stream->GetPosition();
    _bytesInFile = GetBytesLeft(stream);
    TRY(_images.Append(Image{_start, nullptr, nullptr, 0, 0, -1}));
    TRY(OpenImage(stream, 0));
    TRY(ReadMarkers());
    TRY(AddExifStream());
    TRY(AddFirstImage(stream));
    return AddFurtherImages(stream);
}

/// True for damage in a file, as opposed to lack of memory or a failing disk.
Bool IsDamage(const Error& error) {
    return error->IsKindOf(errorid::kFileFormat) || error->IsKindOf(errorid::kMediaSessionWrongType);
}

/// The first index entry should be the picture at the start of the file. If it leads to something unreadable, that
/// picture takes its place.
Result<void> JpegImporter::AddFirstImage(const InputStreamRef& stream) {
    Result<void> opened = OpenImage(stream, 0);
    if (!opened && IsDamage(opened.GetError()) && _images[0].position != _start) {
        _images[0].position = _start;
        opened = OpenImage(stream, 0);
    }
    TRY(std::move(opened));
    return AddImage(0);
}

/// Tools that cut a file after its first picture keep the index. Entries that lead to no picture are skipped, and so is
/// the rest once the pictures together claim more than the file can hold.
Result<void> JpegImporter::AddFurtherImages(const InputStreamRef& stream) {
    for (Int i = 1; i < _images.GetCount();) {
        Result<void> opened = OpenImage(stream, i);
        if (!opened && IsDamage(opened.GetError())) {
            _images.Erase(i);
            continue;
        }
        TRY(std::move(opened));
        Result<void> added = AddImage(i);
        if (!added && IsDamage(added.GetError())) {
            _images.Erase(i, _images.GetCount() - i);
            _openImage = -1;
            break;
        }
        TRY(std::move(added));
        ++i;
    }
    return {};
}

/// Collects pictures and Exif data from the first picture's markers.
Result<void> JpegImporter::ReadMarkers() {
    constexpr int kExif = 1, kMultiPicture = 2;
    constexpr std::string_view kExifSignature = "Exif";
    BaseArray<Int> positions;
    for (const JpegMarker* marker = _decoder.GetFirstMarker(); marker; marker = marker->GetNext()) {
        const Block<const std::byte> payload = marker->GetPayload();
        if (marker->IsApp(kMultiPicture)) {
            TRY(ReadMpfIndex(payload, marker->position, positions));
        } else if (marker->IsApp(kExif) && payload.size() > kExifSignature.size() &&
                   std::memcmp(payload.data(), kExifSignature.data(), kExifSignature.size()) == 0) {
            CodecBuffer block;
            TRY(block.Allocate(Int(payload.size())));
            std::memcpy(block.GetFirst(), payload.data(), payload.size());
            TRY(_exifBlocks.Append(std::move(block)));
        }
    }
    if (positions.IsEmpty())
        return {};
    _images.Clear();
    for (const Int position : positions)
        TRY(_images.Append(Image{position == 0 ? _start : position, nullptr, nullptr, 0, 0, -1}));
    if (_images[0].position != _start)
        _openImage = -1;
    return {};
}

Ref<ExifStaticInterface> FindExifService() {
    return FindPublished<ExifStaticInterface>(ExifStaticInterface::kInterfaceId);
}

/// Without the host's Exif service there is no stream.
Result<void> JpegImporter::AddExifStream() {
    if (_exifBlocks.IsEmpty() || !FindExifService())
        return {};
    _exifStream = TRY(ClassRef(kExifStreamClass).Create<MediaStreamExifDataInterface>());
    TRY(_exifStream->AddFormat(Data(Int(0)), MediaStreamFormat()));
    return AddStream(_exifStream);
}

/// Reads the header of a picture unless it is the open one.
Result<void> JpegImporter::OpenImage(const InputStreamRef& stream, Int index) {
    if (_openImage == index)
        return {};
    _openImage = -1;
    const Int position = _images[index].position;
    const Int end = stream->GetStreamLength().GetValueOr(position);
    TRY(stream->Seek(std::min(position, end)));  // past the end, the decoder reports the error
    TRY(_decoder.Open(stream));
    _openImage = index;
    return {};
}

Result<void> JpegImporter::AddImage(Int index) {
    const jpeg_decompress_struct& info = _decoder.GetInfo();
    Image& image = _images[index];
    TRY(CheckSize());
    image.format = TRY(ChoosePixelFormat(info));
    image.width = info.output_width;
    image.height = info.output_height;

    StreamDescription description;
    description.pixelFormat = image.format;
    description.width = image.width;
    description.height = image.height;
    description.subImageIndex = index;
    description.colorProfile = TRY(_decoder.ReadProfile());
    if (!description.colorProfile.HasProfile() && info.out_color_space != JCS_CMYK)
        description.colorProfile = colorprofiles::Get(colorprofiles::kSrgb);
    MediaStreamFormat format = TRY(DescribeStream(description));
    TRY(DescribeResolution(info, format));
    image.stream = TRY(AddImageStream(format, nullptr, kStreamClass));
    return {};
}

/// Truncated files are accepted, so a header can claim any size. Above a harmless size, a complete file of this length
/// must be able to hold the picture.
Result<void> JpegImporter::CheckSize() {
    constexpr Int kHarmlessBytes = 16 << 20;
    constexpr Int kMaxHeaderShare = 16;  // overlapping pictures share headers
    constexpr Int kBlocksPerByte = 8;    // one bit per unchanged block
    constexpr Int kBlocksPerByteArithmetic = 64 * kBlocksPerByte;
    const jpeg_decompress_struct& info = _decoder.GetInfo();
    Int blocks = 0;
    for (int i = 0; i < info.num_components; ++i)
        blocks += Int(info.comp_info[i].width_in_blocks) * Int(info.comp_info[i].height_in_blocks);
    _codeBytes += blocks / (info.arith_code ? kBlocksPerByteArithmetic : kBlocksPerByte);
    _pixelBytes += Int(info.output_width) * Int(info.output_height) * info.out_color_components;
    _headerBytes += _decoder.GetPosition() - _images[_openImage].position;
    if (_pixelBytes > kHarmlessBytes && _codeBytes > _bytesInFile)
        return MediaSessionWrongTypeError("@ x @ pixels cannot be in @ bytes.", info.output_width, info.output_height,
                                          _bytesInFile);
    if (_openImage > 0 && _headerBytes / kMaxHeaderShare > _bytesInFile)
        return MediaSessionWrongTypeError("Pictures of the file lie inside each other.");
    return {};
}

Result<void> JpegImporter::DeliverMetadata() {
    if (!_exifStream || !_exifStream->IsSubscribed())
        return {};
    const Ref<ExifStaticInterface> service = FindExifService();
    bool isFound = false;
    for (const CodecBuffer& block : _exifBlocks) {
        const ExifRef exif = TRY(service->OpenFromMemory(block.ToBlock()));
        if (!exif)
            continue;
        TRY(_exifStream->HandleExifData(exif));
        isFound = true;
    }
    if (!isFound)
        return FileFormatError("Exif chunk not found");
    return _exifStream->FinishStream();
}

Result<void> JpegImporter::DecodePixels(const InputStreamRef& stream) {
    for (Image& image : _images) {
        if (image.stream->IsSubscribed())
            image.job = TRY(AddPictureJob(image.width, image.height));
    }
    for (Int i = 0; i < _images.GetCount(); ++i) {
        if (!_images[i].stream->IsSubscribed())
            continue;
        SelectJob(_images[i].job);
        TRY(OpenImage(stream, i));
        _openImage = -1;
        TRY(DecodeImage(_images[i]));
        TRY(ReportJob(1.0));
        TRY(FinishSinks());
    }
    return {};
}

Result<void> JpegImporter::DecodeImage(const Image& image) {
    const jpeg_decompress_struct& info = _decoder.GetInfo();
    if (Int(info.output_width) != image.width || Int(info.output_height) != image.height)
        return IllegalStateError();  // the file has changed since the analysis
    const RowSinkRef sink = TRY(OpenSink(image.stream, image.format));
    TRY(_decoder.Start([this] { return ReportJob(0); }));
    for (Int y = 0; y < image.height; ++y) {
        std::byte* const row = TRY(sink->BeginRow(y));
        TRY(_decoder.ReadRow(row));
        TRY(sink->EndRow());
    }
    Result<void> finished = _decoder.Finish();
    if (!finished && finished.GetError()->IsKindOf(errorid::kFileFormat))
        return {};  // all rows are there: the damage is after the picture
    return finished;
}

}  // namespace

/// Start of image, then segments, each after any number of fill bytes. Three in a row are no coincidence.
Result<Bool> DetectJpeg(const Url&, const InputStreamRef& stream) {
    constexpr uint8_t kMark = 0xFF, kStart = 0xD8, kEnd = 0xD9;
    constexpr int kSegments = 3;
    constexpr Int kLengthBytes = 2, kMaxFill = 0x10000;
    const auto readBytes = [&stream](Block<uint8_t> bytes) -> Result<Bool> {
        const Int count = TRY(stream->ReadEOS(std::as_writable_bytes(bytes)));
        return count == Int(bytes.size());
    };
    uint8_t start[2] = {};
    const Bool hasStart = TRY(readBytes(start));
    if (!hasStart || start[0] != kMark || start[1] != kStart)
        return false;
    for (int segment = 1;; ++segment) {
        uint8_t marker[2] = {};
        const Bool hasMarker = TRY(readBytes(marker));
        if (!hasMarker || marker[0] != kMark)
            return false;
        for (Int fill = 0; marker[1] == kMark; ++fill) {
            const Bool hasNext = TRY(readBytes({&marker[1], 1}));
            if (!hasNext || fill == kMaxFill)
                return false;
        }
        uint8_t size[2] = {};
        const Bool hasSize = TRY(readBytes(size));
        if (!hasSize)
            return false;
        if (marker[1] == kEnd || segment == kSegments)
            return true;
        const Int length = Int(size[0]) << 8 | size[1];
        if (length < kLengthBytes || length - kLengthBytes > GetBytesLeft(stream))
            return false;
        TRY(stream->Skip(length - kLengthBytes));
    }
}

Result<ObjectRef> MakeJpegImporter() { return ObjectRef(TRY(NewObj<JpegImporter>())); }

Result<void> PublishJpegParts(Publisher& publisher) {
    TRY(publisher.PublishClass<MediaStreamImageLayerJpgImport>(kStreamClass));
    TRY(publisher.PublishClass<MediaStreamExifDataJpg>(kExifStreamClass));
    const Ref<DataDictionaryObjectInterface> library = TRY(NewObj<DataDictionaryObjectInterface>());
    TRY(library->Set(moduleinfo::kName, "jpeglib"));
    TRY(library->Set(moduleinfo::kDescription, "Jpeg image i/o library"));
    TRY(library->Set(moduleinfo::kVersion, FormatString("@.@", JPEG_LIB_VERSION / 10, JPEG_LIB_VERSION % 10)));
    return publisher.PublishObject(kModuleInfo, ObjectRef(library));
}

}  // namespace orvik
