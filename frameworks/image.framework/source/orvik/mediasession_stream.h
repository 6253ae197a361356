#pragma once
/// @file
/// Media streams: what an input offers, and the seams by which rows travel.

#include "orvik/exif.h"
#include "orvik/gfx_image_storage.h"
#include "orvik/hierarchyobject.h"
#include "orvik/mediasession_streamformat.h"

// Interface methods name the parameters that their overriders use.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"

namespace orvik {

/// One way to read a stream, under its id.
struct MediaStreamFormatEntry {
    Data id;
    MediaStreamFormat format;
};

/// A stream has one or more formats, one of them selected, and can be subscribed. Streams form a tree: child streams
/// (alphas, layers) hang in branch 0.
class MediaStreamInterface : public virtual MediaBaseInterface, public virtual HierarchyObjectInterface {
    ORVIK_INTERFACE(MediaStreamInterface, "net.orvik.image.interface.mediastream");

public:
    static constexpr Int kChildBranch = 0;

    /// A copy of the map in its iteration order.
    virtual Result<BaseArray<MediaStreamFormatEntry>> GetFormats() const { return Unbound(); }
    /// The format of an id, or a null one.
    virtual MediaStreamFormat GetFormat(const Data& id) const { return Unbound(); }
    virtual Data GetSelectedFormat() const { return Unbound(); }
    /// Illegal argument for an id that is not in the map; the selection stays.
    virtual Result<void> SetSelectedFormat(const Data& id) { return Unbound(); }
    /// Inserts or replaces. The first format added becomes the selection.
    virtual Result<void> AddFormat(const Data& id, const MediaStreamFormat& format) { return Unbound(); }
    virtual Result<void> SubscribeStream(const Data& id) { return Unbound(); }
    virtual Result<void> UnsubscribeStream() { return Unbound(); }
    virtual Bool IsSubscribed() const { return Unbound(); }
};

class MediaStreamExifDataInterface : public virtual MediaStreamInterface {
    ORVIK_INTERFACE(MediaStreamExifDataInterface, "net.orvik.image.interface.mediastreamexifdata");

public:
    using Handler = Delegate<Result<void>(const ExifRef& exif)>;
    virtual Result<void> SetCallbackHandler(const Handler& handler) { return Unbound(); }
    /// Null pointer error without a handler.
    virtual Result<void> HandleExifData(const ExifRef& exif) { return Unbound(); }
    virtual Result<void> FinishStream() { return Unbound(); }
};

/// Marks streams that carry image data of any kind.
class MediaStreamImageBaseInterface : public virtual MediaStreamInterface {
    ORVIK_INTERFACE(MediaStreamImageBaseInterface, "net.orvik.image.interface.mediastreamimagebase");
};

/// A stream through which an importer delivers rows. The importer calls `InitStream`, `SetPixelStream`, the handler per
/// row, and `FinishStream`, which is owed after `InitStream` also when decoding failed.
class MediaStreamImageDataImportInterface : public virtual MediaStreamImageBaseInterface {
    ORVIK_INTERFACE(MediaStreamImageDataImportInterface, "net.orvik.image.interface.mediastreamimagedataimport");

public:
    using InitDelegate = Delegate<Result<void>(const MediaStreamProperties& properties)>;
    using PixelDelegate = Delegate<Result<SetPixelHandlerStruct>(const MediaStreamProperties& properties,
                                                                 ChannelOffsets offsets, SETPIXELHANDLERFLAGS flags)>;
    using FinishDelegate = Delegate<Result<void>(const MediaStreamProperties& properties)>;

    virtual Result<void> SetCallbackHandler(const InitDelegate& init, const PixelDelegate& pixel,
                                            const FinishDelegate& finish) {
        return Unbound();
    }
    /// Success without a delegate.
    virtual Result<void> InitStream(const MediaStreamProperties& properties) { return Unbound(); }
    /// An empty handler without a delegate.
    virtual Result<SetPixelHandlerStruct> SetPixelStream(const MediaStreamProperties& properties,
                                                         ChannelOffsets offsets, SETPIXELHANDLERFLAGS flags) {
        return Unbound();
    }
    virtual Result<void> FinishStream(const MediaStreamProperties& properties) { return Unbound(); }
};

/// The mirror image: a stream from which an exporter pulls rows.
class MediaStreamImageDataExportInterface : public virtual MediaStreamImageBaseInterface {
    ORVIK_INTERFACE(MediaStreamImageDataExportInterface, "net.orvik.image.interface.mediastreamimagedataexport");

public:
    using InitDelegate = Delegate<Result<void>(const MediaStreamProperties& properties)>;
    using PixelDelegate =
        Delegate<Result<GetPixelHandlerStruct>(const MediaStreamProperties& properties, const PixelFormat& format,
                                               const ColorProfile& profile, GETPIXELHANDLERFLAGS flags)>;
    using FinishDelegate = Delegate<Result<void>(const MediaStreamProperties& properties)>;

    virtual Result<void> SetCallbackHandler(const InitDelegate& init, const PixelDelegate& pixel,
                                            const FinishDelegate& finish) {
        return Unbound();
    }
    virtual Result<void> InitStream(const MediaStreamProperties& properties) { return Unbound(); }
    /// Row access in the exporter's format and profile; an empty handler without a delegate.
    virtual Result<GetPixelHandlerStruct> GetPixelStream(const MediaStreamProperties& properties,
                                                         const PixelFormat& format, const ColorProfile& profile,
                                                         GETPIXELHANDLERFLAGS flags) {
        return Unbound();
    }
    virtual Result<void> FinishStream(const MediaStreamProperties& properties) { return Unbound(); }
};

/// Reads rows of another converter's stream: for inputs that nest a second input.
class MediaStreamImageDataForwardImportInterface : public virtual MediaStreamImageDataImportInterface {
    ORVIK_INTERFACE(MediaStreamImageDataForwardImportInterface,
                    "net.orvik.image.interface.mediastreamimagedataforwardimport");

public:
    virtual Result<void> SetSourceStream(const MediaStreamRef& source) { return Unbound(); }
};

/// Visits a stream and its descendants depth first, parents before children. The visitor gets the stream, its parent
/// (null at the root) and the depth; false stops the whole walk, an error ends it. A tree deeper than 256 levels is
/// refused as an illegal state. Children that are no streams are passed over.
/// @return false when the visitor stopped the walk; a null root is nothing to visit
using StreamVisitor = Delegate<Result<Bool>(const MediaStreamRef& stream, const MediaStreamRef& parent, Int depth)>;
ORVIK_API Result<Bool> WalkStreams(const MediaStreamRef& root, const StreamVisitor& visitor);

/// Class ids.
namespace mediaclasses {
inline constexpr Id kMediaBase{"net.orvik.image.class.mediabase"};
inline constexpr Id kStreamBase{"net.orvik.image.class.mediastreambase"};
inline constexpr Id kStreamImageBase{"net.orvik.image.class.mediastreamimagebase"};
inline constexpr Id kStreamImport{"net.orvik.image.class.mediastreamimagedataimport"};
inline constexpr Id kStreamExport{"net.orvik.image.class.mediastreamimagedataexport"};
inline constexpr Id kStreamExif{"net.orvik.image.class.mediastreamexifdata"};
inline constexpr Id kStreamAudioImport{"net.orvik.image.class.mediastreamaudiodataimport"};
inline constexpr Id kStreamAudioExport{"net.orvik.image.class.mediastreamaudiodataexport"};
inline constexpr Id kAudioObject{"net.orvik.image.class.audioobject"};
inline constexpr Id kStreamFormat{"net.orvik.image.class.mediastreamformat"};
inline constexpr Id kStreamProperties{"net.orvik.image.class.mediastreamproperties"};
inline constexpr Id kConverterBase{"net.orvik.image.class.mediaconverterbase"};
inline constexpr Id kOutputBase{"net.orvik.image.class.mediaoutputbase"};
inline constexpr Id kOutputUrlBase{"net.orvik.image.class.mediaoutputurlbase"};
inline constexpr Id kSession{"net.orvik.image.class.mediasessionobject"};
inline constexpr Id kSessionProgress{"net.orvik.image.class.mediasessionprogressobject"};
inline constexpr Id kOutputTexture{"net.orvik.image.class.mediaoutputtexture"};
inline constexpr Id kExportFromTexture{"net.orvik.image.class.mediastreamexportfromimagetexture"};
}  // namespace mediaclasses

}  // namespace orvik

#pragma GCC diagnostic pop
