#pragma once
/// @file
/// Outputs: into a texture, to a URL; and the import driver that finds the importer of a URL.

#include "orvik/fileformat.h"
#include "orvik/gfx_image.h"
#include "orvik/mediasession_session.h"

// Interface methods name the parameters that their overriders use.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"

namespace orvik {

/// Turns an importer's streams into an image tree.
class MediaOutputTextureInterface : public virtual MediaOutputInterface {
    ORVIK_INTERFACE(MediaOutputTextureInterface, "net.orvik.image.interface.mediaoutputtexture");

public:
    virtual Result<void> SetOutputTexture(const ImageTextureRef& texture, const ClassRef& storage) { return Unbound(); }
};
using MediaOutputTextureRef = Ref<MediaOutputTextureInterface>;
template <>
inline constexpr const char* kDataTypeName<MediaOutputTextureRef> = "orvik::MediaOutputTextureRef";

/// Base of every exporter: writes one file at a URL.
class MediaOutputUrlInterface : public virtual MediaOutputInterface {
    ORVIK_INTERFACE(MediaOutputUrlInterface, "net.orvik.image.interface.mediaoutputurl");

public:
    /// Empty until `SetOutputUrl`.
    virtual Url GetOutputUrl() const { return Unbound(); }
    virtual Result<void> SetOutputUrl(const Url& url) { return Unbound(); }
    /// The exporter's format, from the registry of file formats.
    virtual FileFormat GetFileFormat() const { return Unbound(); }
    virtual Result<Bool> EditSystemOptions() { return Unbound(); }
    /// The size that the format will accept for a wanted one.
    virtual DrawDimensionInt CheckBitmapSize(const DrawDimensionInt& size) const { return Unbound(); }
};

/// Marks handlers that make media inputs.
class MediaSessionFileFormatHandlerInterface : public virtual FileFormatHandlerInterface {
    ORVIK_INTERFACE(MediaSessionFileFormatHandlerInterface, "net.orvik.image.interface.mediasessionfileformathandler");

public:
    /// Class id of the importer.
    virtual Id GetImporterClass() const { return Unbound(); }
    /// Class id of the exporter, empty for formats that are only read.
    virtual Id GetExporterClass() const { return Unbound(); }
};
using MediaSessionFileFormatHandler = Ref<MediaSessionFileFormatHandlerInterface>;
template <>
inline constexpr const char* kDataTypeName<MediaSessionFileFormatHandler> = "orvik::MediaSessionFileFormatHandler";

/// Export settings that several formats read.
namespace mediaexport {
inline constexpr Key<Float> kQuality{"net.orvik.mediasession.export.quality"};
inline constexpr Key<Bool> kDisableSrgbConversion{"net.orvik.mediasession.export.disablesrgbconversion"};
/// "V3", "V4" or "V5": the generation of the header. Without it, the oldest that holds alpha and colour profile.
inline constexpr Key<Id> kBmpInfoHeader{"net.orvik.mediasession.bmp.export.bitmapinfoheader"};
/// Only quantisation values of 8 bits, which every reader takes.
inline constexpr Key<Bool> kJpgBaseline{"net.orvik.mediasession.jpg.export.baseline"};
inline constexpr Key<Bool> kPngInterlaced{"net.orvik.mediasession.png.export.interlaced"};
/// @{ For exporters of other modules, which agree on these names; nothing here reads them.
inline constexpr Key<DataDictionary> kCustomData{"net.orvik.mediasession.export.customdata"};
inline constexpr Key<Int> kDataRate{"net.orvik.mediasession.export.datarate"};
inline constexpr Key<Int> kKeyFrames{"net.orvik.mediasession.export.keyframes"};
inline constexpr Key<Id> kAviType{"net.orvik.mediasession.avi.export.avitype"};
inline constexpr Key<Id> kAviHandler{"net.orvik.mediasession.avi.export.avihandler"};
inline constexpr Key<DataDictionary> kMfPresets{"net.orvik.mediasession.mf.export.group.presets"};
inline constexpr Key<DataDictionary> kMfOptions{"net.orvik.mediasession.mf.export.group.options"};
inline constexpr Key<Float> kMfAudioSampleRate{"net.orvik.mediasession.mf.export.audio.samplerate"};
inline constexpr Key<Int> kMfAudioKilobitRate{"net.orvik.mediasession.mf.export.audio.kilobitrate"};
inline constexpr Key<Id> kMfAudioCodec{"net.orvik.mediasession.mf.export.audio.codec"};
inline constexpr Key<Id> kMfCodec{"net.orvik.mediasession.mf.export.codec"};
/// @}
}  // namespace mediaexport

/// Finds the importer of a URL, connects it with `output` in a new session, and runs it.
/// @param selection         may be empty
/// @param progress          may be empty; notified after 0.25 s, every 0.1 s
/// @param preferredHandler  tried first; may be null
/// @return the session, which the caller keeps until it has finished with the data
/// Errors: "Image @ is not of a supported type." when no format claims the file; the failure of opening it; the
/// importer's and the output's errors unchanged.
ORVIK_API Result<MediaSessionRef> MediaSessionImport(const Url& url, TimeValue targetTime, MEDIASESSIONFLAGS flags,
                                                     const MediaOutputRef& output, const SelectionDelegate& selection,
                                                     const ProgressDelegate& progress = {},
                                                     const MediaSessionFileFormatHandler& preferredHandler = {});

/// The handler of a registered file format, by format id or by suffix (lower case, without dot); null when there is
/// none.
ORVIK_API MediaSessionFileFormatHandler FindHandlerByFormat(const Id& formatId);
ORVIK_API MediaSessionFileFormatHandler FindHandlerBySuffix(std::string_view suffix);

}  // namespace orvik

#pragma GCC diagnostic pop
