#include "imexport/frame/media_io_formats.h"

#include "base/registration.h"
#include "imexport/bmp/media_io_bmp.h"
#include "imexport/frame/media_io_fileformat_imagebase.h"
#include "imexport/hdr/media_io_hdr.h"
#include "imexport/jpeg/media_io_jpeg.h"
#include "imexport/png/media_io_png.h"
#include "imexport/tga/media_io_tga.h"

namespace orvik {
namespace {

constexpr Int kBits8[] = {8};
constexpr Int kBits8And16[] = {8, 16};
constexpr Int kBits32[] = {32};
constexpr std::string_view kBmpSuffixes[] = {"bmp"};
constexpr std::string_view kHdrSuffixes[] = {"hdr", "rgbe", "pic"};
constexpr std::string_view kJpegSuffixes[] = {"jpg", "jpeg"};
constexpr std::string_view kPngSuffixes[] = {"png"};
constexpr std::string_view kTgaSuffixes[] = {"tga", "tpic"};

constexpr ImportCapabilities kStillImage{.image = true};

constexpr FileFormatEntry kFormats[] = {
    {
        .name = "bmp",
        .format = "net.orvik.fileformat.imagebmp",
        .handler = "net.orvik.fileformathandler.imageloaderbmp",
        .importer = "net.orvik.mediasession.bmp.import",
        .exporter = "net.orvik.mediasession.bmp.export",
        .suffixes = kBmpSuffixes,
        .strength = DETECTIONSTRENGTH::SIGNATURE,
        .detect = DetectBmp,
        .makeImporter = MakeBmpImporter,
        .makeExporter = MakeBmpExporter,
        .input = kStillImage,
        .output = {.image = true,
                   .embedColorProfile = true,
                   .maximalAlphaChannels = 1,
                   .maximalImageResolution = 32000,
                   .bitDepthsImage = kBits8},
        .publishMore = nullptr,
    },
    {
        .name = "hdr",
        .format = "net.orvik.fileformat.imagehdr",
        .handler = "net.orvik.fileformathandler.imageloaderhdr",
        .importer = "net.orvik.mediasession.hdr.import",
        .exporter = "net.orvik.mediasession.hdr.export",
        .suffixes = kHdrSuffixes,
        .strength = DETECTIONSTRENGTH::SIGNATURE,
        .detect = DetectHdr,
        .makeImporter = MakeHdrImporter,
        .makeExporter = MakeHdrExporter,
        .input = kStillImage,
        .output = {.image = true, .maximalImageResolution = 0x7FFFFFFF, .bitDepthsImage = kBits32},
        .publishMore = nullptr,
    },
    {
        .name = "jpg",
        .format = "net.orvik.fileformat.imagejpg",
        .handler = "net.orvik.fileformathandler.imageloaderjpg",
        .importer = "net.orvik.mediasession.jpg.import",
        .exporter = "net.orvik.mediasession.jpg.export",
        .suffixes = kJpegSuffixes,
        .strength = DETECTIONSTRENGTH::SIGNATURE,
        .detect = DetectJpeg,
        .makeImporter = MakeJpegImporter,
        .makeExporter = MakeJpegExporter,
        .input = kStillImage,
        .output = {.image = true,
                   .embedColorProfile = true,
                   .maximalAlphaChannels = 0,
                   .maximalImageResolution = 65000,
                   .bitDepthsImage = kBits8},
        .publishMore = PublishJpegParts,
    },
    {
        .name = "png",
        .format = "net.orvik.fileformat.imagepng",
        .handler = "net.orvik.fileformathandler.imageloaderpng",
        .importer = "net.orvik.mediasession.png.import",
        .exporter = "net.orvik.mediasession.png.export",
        .suffixes = kPngSuffixes,
        .strength = DETECTIONSTRENGTH::SIGNATURE,
        .detect = DetectPng,
        .makeImporter = MakePngImporter,
        .makeExporter = MakePngExporter,
        .input = kStillImage,
        .output = {.image = true,
                   .embedColorProfile = true,
                   .maximalAlphaChannels = 1,
                   .maximalImageResolution = 0x7FFFFFFF,
                   .bitDepthsImage = kBits8And16},
        .publishMore = PublishPngParts,
    },
    {
        .name = "tga",
        .format = "net.orvik.fileformat.imagetga",
        .handler = "net.orvik.image.fileformathandler.tga",
        .importer = "net.orvik.mediasession.tga.import",
        .exporter = "net.orvik.mediasession.tga.export",
        .suffixes = kTgaSuffixes,
        .strength = DETECTIONSTRENGTH::WEAK,
        .detect = DetectTga,
        .makeImporter = MakeTgaImporter,
        .makeExporter = MakeTgaExporter,
        .input = kStillImage,
        .output = {.image = true, .maximalAlphaChannels = 1, .maximalImageResolution = 32000, .bitDepthsImage = kBits8},
        .publishMore = PublishTgaParts,
    },
};

/// The other classes of a row. A creation function has no state, so each row needs its own.
struct FormatClasses {
    CreateFunction format;
    CreateFunction handler;
};

template <size_t... Row>
constexpr std::array<FormatClasses, sizeof...(Row)> MakeFormatClasses(std::index_sequence<Row...>) {
    return {FormatClasses{CreateFileFormat<kFormats[Row]>, CreateFileFormatHandler<kFormats[Row]>}...};
}

constexpr auto kFormatClasses = MakeFormatClasses(std::make_index_sequence<std::size(kFormats)>());

}  // namespace

Block<const FileFormatEntry> GetFileFormatTable() { return kFormats; }

const FileFormatEntry* FindFileFormatEntry(const Id& format) {
    for (const FileFormatEntry& entry : kFormats) {
        if (entry.format == format)
            return &entry;
    }
    return nullptr;
}

Result<void> RegisterFileFormats(Publisher& publisher) {
    TRY(publisher.PublishClass<FileFormatImageBase>(FileFormatImageBase::kClassId));
    for (size_t row = 0; row < std::size(kFormats); ++row) {
        const FileFormatEntry& entry = kFormats[row];
        TRY(publisher.PublishClass(entry.importer, entry.makeImporter));
        if (entry.makeExporter)
            TRY(publisher.PublishClass(entry.exporter, entry.makeExporter));
        if (entry.publishMore)
            TRY(entry.publishMore(publisher));
        // The class and its only object share an id.
        TRY(publisher.PublishClass(entry.format, kFormatClasses[row].format));
        TRY(publisher.PublishClass(entry.handler, kFormatClasses[row].handler));
        const ObjectRef format = TRY(ClassRef(entry.format).Create());
        TRY(publisher.PublishObject(entry.format, format));
        TRY(publisher.AddToRegistry(kFileFormatRegistry, entry.format, format));
        const ObjectRef handler = TRY(ClassRef(entry.handler).Create());
        TRY(publisher.PublishObject(entry.handler, handler));
        TRY(publisher.AddToRegistry(kFileFormatHandlerRegistry, entry.handler, handler));
    }
    return {};
}

Result<Bool> StartsWith(const InputStreamRef& stream, std::string_view signature) {
    std::byte head[16];
    const Block<std::byte> wanted(head, std::min(signature.size(), sizeof(head)));
    const Int count = TRY(stream->ReadEOS(wanted));
    return count == Int(signature.size()) && std::memcmp(head, signature.data(), signature.size()) == 0;
}

}  // namespace orvik
