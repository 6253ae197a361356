#pragma once
/// @file
/// What every object of a media session shares: enumerations, errors, and the link to the session.

#include "orvik/datadescriptionobject.h"
#include "orvik/datadictionaryobject.h"
#include "orvik/errortypes.h"
#include "orvik/gfx_image_pixelformat.h"
#include "orvik/timevalue.h"

namespace orvik {

enum class MEDIAFORMATTYPE : int32_t {
    UNDEFINED = 0,
    IMAGE = 1,
    ALPHA = 2,
    LAYERFOLDER = 3,
    LAYER = 4,
    LAYERADJUSTMENT = 5,
    LAYERMASK = 6,
    MIPMAP = 7,
    DEEPIMAGEDATA = 8,
};
enum class MEDIAALPHATYPE : int32_t { UNDEFINED = 0, PREMULTIPLIED = 1, STRAIGHT = 2 };
/// A bit set.
enum class MEDIASESSIONFLAGS : int32_t { NONE = 0, RUNONLYANALYZE = 1, FORCELOAD = 2 };
/// A bit set: what an output does with a stream.
enum class SELECTIONHANDLERRESULT : int32_t {
    NONE = 0,
    STRUCTURE = 1,     ///< build the objects for the stream
    CONTENT_FLAG = 2,  ///< subscribe, so that the pixels arrive
    STRUCTURE_WITH_CONTENT = 3,
    ALL = 3,
};

namespace errorid {
inline constexpr Id kMediaConverter{"net.orvik.image.error.mediaconverter"};
inline constexpr Id kMediaSessionWrongType{"net.orvik.image.error.mediasessionwrongtype"};
inline constexpr Id kMediaStreamEOF{"net.orvik.image.error.mediastreameof"};
}  // namespace errorid

/// A failure that is a converter's own.
class MediaConverterErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
/// The file is not of the importer's format, or no stream of it is usable.
class MediaSessionWrongTypeErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
/// An input was asked to run again after it ran to its end.
class MediaStreamEOFErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
ORVIK_ERROR_MAKER(MediaConverterError, MediaConverterErrorInterface, errorid::kMediaConverter);
ORVIK_ERROR_MAKER(MediaSessionWrongTypeError, MediaSessionWrongTypeErrorInterface, errorid::kMediaSessionWrongType);
ORVIK_ERROR_MAKER(MediaStreamEOFError, MediaStreamEOFErrorInterface, errorid::kMediaStreamEOF);

class MediaSessionInterface;
using MediaSessionRef = Ref<MediaSessionInterface>;
template <>
inline constexpr const char* kDataTypeName<MediaSessionRef> = "orvik::MediaSessionRef";
class MediaConverterInterface;
using MediaConverterRef = Ref<MediaConverterInterface>;
template <>
inline constexpr const char* kDataTypeName<MediaConverterRef> = "orvik::MediaConverterRef";

/// Base of converters, streams and images: a dictionary and a weak link to the session.
class ORVIK_API MediaBaseInterface : public virtual DataDictionaryObjectInterface,
                                     public virtual DataDescriptionObjectInterface {
    ORVIK_INTERFACE(MediaBaseInterface, "net.orvik.image.interface.mediabase");

public:
    /// Illegal state while a live session is bound; a dead binding is replaced.
    virtual Result<void> ConnectToSession(const MediaSessionRef& session) {
        (void)session;
        return Unbound();
    }
    /// The bound session, or null when it has gone.
    virtual MediaSessionRef GetSession() const;
};

}  // namespace orvik
